// text_edit.cpp - the single-line text field: caret, selection, word moves,
// deletion, typing, paste and copy, drag selection, and the drawing that
// keeps the caret in view.
#include "toolkit/text_edit.h"

#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "os/os_window.h"
#include "toolkit/layout.h"

#include <math.h>

// ---- clipboard ---------------------------------------------------------------------------------------
data_t ui_clipboard_get(data_t *data, bool terminate) {
    u64 free_room = data->reserved > data->used ? data->reserved - data->used : 0;
    if (terminate) {
        if (free_room == 0) return data_t{};
        --free_room;
    }
    u8 *at = data->bytes + data->used;
    u64 got = free_room ? os_clipboard_get(at, free_room) : 0;
    u64 size = 0;
    while (size < got && at[size] != 0) ++size;
    data->used += size;
    if (terminate) data->bytes[data->used++] = 0;
    return data_t{size, size, at};
}

bool ui_clipboard_set(data_t text) {
    const u8 *at = text.bytes, *end = text.bytes + text.used;
    while (at < end) {
        u32 code_point, error = 0;
        u8 size;
        utf8_decode(at, end, &code_point, &size, &error);
        if (error) return false;
        at += size;
    }
    return os_clipboard_set(text.bytes, text.used);
}

// ---- helpers --------------------------------------------------------------------------------------------
static const font_t *ui_text_edit_font(const ui_t *ui, u32 font) {
    assert_message(ui->font_set, "The UI has no fonts.");
    return font_get(ui->font_set, font);
}

static vec4 ui_text_edit_inner(vec4 rect) { return ui_style_content(&ui_theme.text_edit, rect); }

static f32 ui_text_width(const font_t *font, const u8 *text, u64 bytes) {
    return layout_get_single_line_size(font, text, bytes, code_point_none).x;
}

// The byte offset under the pointer.
static u32 ui_text_edit_hit(const ui_t *ui, const ui_text_edit_state_t *state, vec4 inner, const data_t *text,
                            const font_t *font) {
    f32 position = ui->mouse.x - inner.x + state->scroll + 2;
    return (u32)layout_get_byte_at_position(font, text->bytes, text->used, position);
}

static bool ui_is_space(u8 c) { return c == ' '; }

static u32 ui_code_point_size_at(const data_t *text, u32 at) {
    u32 code_point, error = 0;
    u8 size = 0;
    utf8_decode(text->bytes + at, text->bytes + text->used, &code_point, &size, &error);
    return error ? 1 : size;
}

// Removes [start, end) by moving the tail down.
static void ui_text_remove(data_t *text, u32 start, u32 end) {
    u64 tail = text->used - end;
    for (u64 i = 0; i < tail; ++i) text->bytes[start + i] = text->bytes[end + i];
    text->used -= end - start;
}

// A copy of text[from..used) in frame memory, to put back after an insertion.
static data_t ui_text_keep_tail(ui_t *ui, const data_t *text, u32 from) {
    u64 size = text->used - from;
    if (size == 0) return data_t{};
    u8 *copy = (u8 *)data_push_copy(ui->frame_memory, text->bytes + from, size, 1);
    assert_message(copy, "No frame memory for a text field's tail.");
    return data_t{size, size, copy};
}

// ---- key handling -----------------------------------------------------------------------------------------
struct ui_edit_t {
    ui_t *ui;
    ui_text_edit_state_t *state;
    data_t *text;
    const font_t *font;
    f32 inner_width;
    u32 caret, anchor;
    u32 start, end; // the selection
};

static void ui_edit_changed(ui_edit_t *e) {
    e->state->changed = 1;
    e->state->changed_now = 1;
}

static void ui_edit_paste(ui_edit_t *e) {
    data_t *text = e->text;
    u64 room = text->reserved - text->used + (e->end - e->start);
    if (room == 0 || !e->ui->frame_memory) return;
    u8 *bytes = (u8 *)data_push(e->ui->frame_memory, room, 1);
    if (!bytes) return;
    data_t block = {room, 0, bytes};
    data_t pasted = ui_clipboard_get(&block, false); // cut to the room, maybe inside a code point
    if (pasted.used == 0) return;
    ui_edit_changed(e);
    data_t tail = ui_text_keep_tail(e->ui, text, e->end);
    text->used = e->start;
    data_push_data(text, &pasted, 1);
    data_push_data(text, &tail, 1);
    e->caret = e->anchor = e->start + (u32)pasted.used;
}

static void ui_edit_delete_backwards(ui_edit_t *e, bool control) {
    data_t *text = e->text;
    const u8 *b = text->bytes;
    if (text->used == 0 || (e->caret == 0 && e->anchor == 0)) return;
    ui_edit_changed(e);
    u32 start = e->start, end = e->end;
    if (start == end) {
        end = e->caret;
        if (control) {
            u32 i = e->caret;
            while (i > 0 && ui_is_space(b[i - 1])) --i;
            while (i > 0 && !ui_is_space(b[i - 1])) --i;
            start = i;
        } else {
            start = e->caret - (u32)utf8_last_char_size(b, b + e->caret);
        }
    }
    f32 before = ui_text_width(e->font, b, e->caret);
    ui_text_remove(text, start, end);
    e->caret = e->anchor = start;
    f32 after = ui_text_width(e->font, b, start);
    e->state->scroll -= before - after;
    if (e->state->scroll < 0) e->state->scroll = 0;
}

static void ui_edit_delete_forwards(ui_edit_t *e, bool control) {
    data_t *text = e->text;
    const u8 *b = text->bytes;
    u32 used = (u32)text->used;
    if (used == 0 || (e->caret == used && e->anchor == used)) return;
    ui_edit_changed(e);
    u32 start = e->start, end = e->end;
    if (start == end) {
        start = e->caret;
        if (control) {
            u32 i = e->caret;
            if (i < used && !ui_is_space(b[i]))
                while (i < used && !ui_is_space(b[i])) ++i;
            while (i < used && ui_is_space(b[i])) ++i;
            end = i;
        } else {
            end = e->caret < used ? e->caret + ui_code_point_size_at(text, e->caret) : used;
        }
    }
    ui_text_remove(text, start, end);
    e->caret = e->anchor = start;
    // The end of the text stays at the right edge rather than leaving a gap.
    f32 width = ui_text_width(e->font, b, text->used);
    f32 gap = e->inner_width - (width - e->state->scroll);
    if (gap > 0 && e->state->scroll > 0) {
        e->state->scroll -= gap;
        if (e->state->scroll < 0) e->state->scroll = 0;
        else e->state->scroll += 0.001f;
    }
}

// Typed code points of this frame. Returns an ending key, or 0.
static u32 ui_edit_type(ui_edit_t *e) {
    window_t *window = e->ui->window;
    if (window->text_count == 0) return 0;
    data_t *text = e->text;
    data_t tail = {};
    bool started = false;
    u32 inserted = 0, read = 0, result = 0;
    for (u32 i = 0; i < window->text_count; ++i) {
        u8 first = window->text_utf8[read];
        if (first == 13 || first == 10 || first == 27 || first == 9) {
            result = first;
            break;
        }
        // A control character is skipped, and the read position stays on it:
        // whatever follows in this frame is dropped with it.
        if (first < 32 || (first >= 128 && first <= 159)) continue;
        u32 size = window->text_sizes[i];
        u64 room = text->reserved - text->used + (started ? 0 : e->end - e->start) - tail.used;
        if (size > room) break;
        if (!started) {
            started = true;
            tail = ui_text_keep_tail(e->ui, text, e->end);
            text->used = e->start;
        }
        data_push_copy(text, window->text_utf8 + read, size, 1);
        inserted += size;
        read += size;
        ui_edit_changed(e);
    }
    if (started) {
        data_push_data(text, &tail, 1);
        e->caret = e->anchor = e->start + inserted;
    }
    return result;
}

static u32 ui_text_edit_keys(ui_edit_t *e) {
    window_t *window = e->ui->window;
    data_t *text = e->text;
    u32 used = (u32)text->used;
    e->caret = e->state->caret < used ? e->state->caret : used;
    e->anchor = e->state->anchor < used ? e->state->anchor : used;
    e->start = e->caret < e->anchor ? e->caret : e->anchor;
    e->end = e->caret < e->anchor ? e->anchor : e->caret;
    const u8 *b = text->bytes;
    bool control = key_is_down(window, key_control), shift = key_is_down(window, key_shift);
    bool moved = true;
    u32 result = 0;
    if (ui_key_pressed(e->ui, key_left)) {
        if (control) {
            u32 i = e->caret;
            while (i > 0 && ui_is_space(b[i - 1])) --i;
            while (i > 0 && !ui_is_space(b[i - 1])) --i;
            e->caret = i;
        } else {
            e->caret -= (u32)utf8_last_char_size(b, b + e->caret);
        }
    } else if (ui_key_pressed(e->ui, key_right)) {
        if (control) {
            u32 i = e->caret;
            while (i < used && !ui_is_space(b[i])) ++i;
            while (i < used && ui_is_space(b[i])) ++i;
            e->caret = i;
        } else if (e->caret < used) {
            e->caret += ui_code_point_size_at(text, e->caret);
        }
    } else if (ui_key_pressed(e->ui, key_home)) {
        e->caret = 0;
    } else if (ui_key_pressed(e->ui, key_end)) {
        e->caret = used;
    } else {
        moved = false;
        if (control && key_transitions(window, key_v) && ui_key_pressed(e->ui, key_v)) {
            ui_edit_paste(e);
        } else if (control && key_transitions(window, key_c) && ui_key_pressed(e->ui, key_c)) {
            if (e->end > e->start) ui_clipboard_set(data_t{e->end - e->start, e->end - e->start, text->bytes + e->start});
        } else if (ui_key_pressed(e->ui, key_backspace)) {
            ui_edit_delete_backwards(e, control);
        } else if (ui_key_pressed(e->ui, key_delete)) {
            ui_edit_delete_forwards(e, control);
        } else {
            result = ui_edit_type(e);
        }
    }
    if (moved && !shift) e->anchor = e->caret;
    assert_message(e->caret <= text->used && e->anchor <= text->used, "A text offset past the text.");
    e->state->caret = e->caret;
    e->state->anchor = e->anchor;
    return result;
}

// ---- the widget -------------------------------------------------------------------------------------------
u32 ui_text_edit_input(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font) {
    ui_text_edit_state_t *state = &ui_state_get(ui, id)->text_edit;
    vec4 inner = ui_text_edit_inner(rect);
    const font_t *f = ui_text_edit_font(ui, font);
    state->changed_now = 0;
    if (ui_hit_test(ui, id, rect, ui->mouse)) ui_set_hot(ui, id);
    bool hot = ui_is_hot(ui, id);
    bool pressed = ui_mouse_pressed(ui);
    u32 result = 0;
    if (ui_is_active(ui, id)) {
        ui_edit_t edit = {ui, state, text, f, rect_width(inner), 0, 0, 0, 0};
        result = ui_text_edit_keys(&edit);
        if ((pressed && !hot) || result) ui_clear_active(ui);
        if (ui_is_active(ui, id) && ui_id_starts_with(ui->active_at_start, id) && hot) {
            if (pressed) {
                state->caret = state->anchor = ui_text_edit_hit(ui, state, inner, text, f);
            } else if ((key_is_down(ui->window, key_left_button) || key_went_up(ui->window, key_left_button)) &&
                       !state->mouse_held) {
                state->caret = ui_text_edit_hit(ui, state, inner, text, f); // the anchor stays: a drag selects
            }
        }
    } else if (hot && pressed) {
        state->changed = 0;
        if (ui_set_active(ui, id, ui_kind_text_edit))
            state->caret = state->anchor = ui_text_edit_hit(ui, state, inner, text, f);
    }
    return result;
}

void ui_text_edit_draw(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font) {
    ui_text_edit_state_t *state = &ui_state_get(ui, id)->text_edit;
    const ui_style_t *style = &ui_theme.text_edit;
    vec4 inner = ui_text_edit_inner(rect);
    f32 inner_width = rect_width(inner);
    const font_t *f = ui_text_edit_font(ui, font);
    u32 used = (u32)text->used;
    u32 caret = state->caret < used ? state->caret : used;
    u32 anchor = state->anchor < used ? state->anchor : used;
    u32 start = caret < anchor ? caret : anchor, end = caret < anchor ? anchor : caret;

    // 1. The caret stays in view, the text moving as little as possible.
    f32 caret_x = ui_text_width(f, text->bytes, caret) - state->scroll;
    if (caret_x >= 0) {
        if (caret_x + 1 >= inner_width) state->scroll += caret_x + 1 - inner_width;
    } else {
        state->scroll += caret_x;
    }
    if (state->scroll < 0) state->scroll = 0;

    bool active = ui_is_active(ui, id), hot = ui_is_hot(ui, id);
    if (hot) ui->cursor = cursor_text;
    ui_batches_t batches = ui_batches_for(ui, id);

    // 3. The box: the border shows the state, the fill is always the normal one.
    u32 state_index = active ? ui_state_active : hot ? ui_state_hot : ui_state_normal;
    if (batches.rectangles) {
        gl_batch_rectangle(batches.rectangles, &rect, nullptr, nullptr, style->border_colour[state_index]);
        vec4 fill = rect_shrink(rect, style->border);
        gl_batch_rectangle(batches.rectangles, &fill, nullptr, nullptr, style->fill_colour[ui_state_normal]);
    }
    if (!ui->frame_memory || rect_width(inner) <= 0 || rect_height(inner) <= 0) return;

    // 2. Three strings in a row: before the selection, the selection, after it.
    layout_t layout = layout_create(ui->frame_memory, ui->font_set, inner, state->scroll, 0,
                                    layout_margin_t{0, 0, 0, 0});
    layout_set_flags(&layout, layout_flag_keep_partial | layout_flag_no_scroll_clamp);
    layout_set_font(&layout, font);
    layout_command_t *parts[3] = {
        layout_string_p(&layout, text->bytes, start),
        layout_string_p(&layout, text->bytes + start, end - start),
        layout_string_p(&layout, text->bytes + end, used - end),
    };
    layout_finish(&layout);
    if (!parts[0] || !parts[1] || !parts[2]) return;
    layout_end(&layout, false);

    vec4 visible = rect_clip(inner, ui->clip);
    // 4. The selection behind its text.
    if (end > start && parts[1]->string.segment_count && batches.rectangles) {
        vec4 back = rect_clip(parts[1]->string.segments[0].rect, visible);
        if (rect_width(back) > 0)
            gl_batch_rectangle(batches.rectangles, &back, nullptr, nullptr, vec4{0.42f, 0.58f, 0.72f, 1});
    }
    // 5. The text, scissored on the field.
    if (batches.text) {
        gl_batch_scissor(batches.text, true, (i32)visible.x, (i32)visible.y, (i32)rect_width(visible),
                         (i32)rect_height(visible));
        for (layout_command_t *part : parts) {
            if (part->string.segment_count == 0) continue;
            const layout_segment_t *segment = &part->string.segments[0];
            data_t run = {segment->bytes, segment->bytes, (u8 *)segment->text};
            // The layout has placed the segment with the bearing already taken off.
            f32 baseline = segment->rect.y + part->string.descent;
            ui_draw_text(ui, batches.text, run, segment->rect.x, baseline, font, style->text_colour[ui_state_normal],
                         false);
        }
    }
    // 6. The caret, which doesn't blink.
    if (active && batches.rectangles) {
        const layout_command_t *edge = (end > start && caret >= anchor) ? parts[1] : parts[0];
        f32 x = floorf(layout.x - state->scroll + edge->string.pen_x);
        f32 h = font_line_height(f, false);
        vec4 bar = rect_clip(vec4{x, inner.w - h, x + 1, inner.w}, visible);
        if (rect_width(bar) > 0) gl_batch_rectangle(batches.rectangles, &bar, nullptr, nullptr, style->text_colour[0]);
    }
    // 7. The text batch's scissor back on the clip.
    if (batches.text) {
        vec4 c = ui->clip;
        gl_batch_scissor(batches.text, true, (i32)ceilf(c.x), (i32)ceilf(c.y), (i32)ceilf(rect_width(c)),
                         (i32)ceilf(rect_height(c)));
    }
}

u32 ui_text_edit(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font) {
    if (!ui_widget_begin(ui, rect)) return 0;
    u32 result = ui_pass_has_input(ui) ? ui_text_edit_input(ui, id, rect, text, font) : 0;
    if (ui_pass_has_draw(ui)) ui_text_edit_draw(ui, id, rect, text, font);
    return result;
}
