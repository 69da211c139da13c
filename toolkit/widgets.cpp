// widgets.cpp - the theme, sizes, button, icon button, check box, dropdown
// and its list, scroll bars, the wheel and the bars of a layout.
#include "toolkit/widgets.h"

#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "toolkit/layout.h"

#include <math.h>

// ---- drawing helpers ------------------------------------------------------------------------------
static const font_t *ui_font(const ui_t *ui, u32 font) {
    assert_message(ui->font_set, "The UI has no fonts.");
    return font_get(ui->font_set, font);
}

u32 ui_style_state(const ui_t *ui, ui_id_t id) {
    bool hot = ui_is_hot(ui, id);
    if (hot && ui_is_active(ui, id)) return ui_state_active;
    return hot ? ui_state_hot : ui_state_normal;
}

void ui_draw_box(const ui_t *ui, ui_id_t id, vec4 rect, const ui_style_t *style, u32 state) {
    gl_batch_t *batch = ui_batches_for(ui, id).rectangles;
    if (!batch) return;
    gl_batch_rectangle(batch, &rect, nullptr, nullptr, style->border_colour[state]);
    vec4 fill = rect_shrink(rect, style->border);
    gl_batch_rectangle(batch, &fill, nullptr, nullptr, style->fill_colour[state]);
}

vec4 ui_style_content(const ui_style_t *style, vec4 rect) {
    return rect_shrink(rect_shrink(rect, style->border), style->padding);
}

data_t ui_fit_label(ui_t *ui, data_t label, u32 font, f32 width, vec2 *size) {
    data_t out = {};
    // A label of megabytes (a feed's title can be anything) is looked at no
    // further than could ever fit: the copy below stays small.
    u64 enough = 1024 + 8 * (u64)(width > 0 ? width : 0);
    if (label.used > enough) label.used = label.reserved = enough;
    u8 *bytes = ui->frame_memory ? (u8 *)data_push(ui->frame_memory, label.used + 3, 1) : nullptr;
    if (!bytes) {
        if (size) *size = vec2{};
        return out;
    }
    out = data_t{label.used + 3, 0, bytes};
    layout_fit_single_line(ui_font(ui, font), &label, code_point_none, width, &out, size, 0);
    return out;
}

// Text into a batch; a byte that starts no valid UTF-8 sequence is drawn as
// U+FFFD, since the renderer stops a run at the first one.
void ui_draw_text(ui_t *ui, gl_batch_t *batch, data_t text, f32 x, f32 y, u32 font, vec4 colour, bool skip_bearing) {
    if (!batch || text.used == 0) return;
    const u8 *at = text.bytes, *end = text.bytes + text.used;
    u64 invalid = 0;
    while (at < end) {
        u32 code_point, error = 0;
        u8 size;
        utf8_decode(at, end, &code_point, &size, &error);
        at += error ? 1 : size;
        invalid += error ? 1 : 0;
    }
    if (invalid) {
        u8 *copy = ui->frame_memory ? (u8 *)data_push(ui->frame_memory, text.used + invalid * 2, 1) : nullptr;
        if (!copy) return;
        u64 written = 0;
        for (at = text.bytes; at < end;) {
            u32 code_point, error = 0;
            u8 size;
            utf8_decode(at, end, &code_point, &size, &error);
            if (error) {
                copy[written++] = 0xEF, copy[written++] = 0xBF, copy[written++] = 0xBD;
                ++at;
            } else {
                memory_copy(copy + written, at, size);
                written += size;
                at += size;
            }
        }
        text = data_t{written, written, copy};
    }
    gl_batch_text(batch, text.bytes, text.used, 0, x, y, skip_bearing, font, colour);
}

// The baseline that centres a line of `font` in `content`.
static f32 ui_baseline(const ui_t *ui, vec4 content, u32 font) {
    const font_t *f = ui_font(ui, font);
    return (content.w + content.y) * 0.5f - f->size * 0.5f + font_descent(f);
}

vec4 ui_icon_uv(const ui_t *ui, u32 icon, vec2 *size) {
    u32 base = icon;
    if (icon == ui_icon_chevron_up_14) base = ui_icon_chevron_down_14;
    if (icon == ui_icon_chevron_up_10) base = ui_icon_chevron_down_10;
    if (icon == ui_icon_chevron_right_14) base = ui_icon_chevron_left_14;
    if (icon == ui_icon_chevron_right_10) base = ui_icon_chevron_left_10;
    if (base >= ui_icon_count || !ui->atlas.uvs) {
        if (size) *size = vec2{};
        return vec4{};
    }
    vec4 uv = ui_atlas_uv(&ui->atlas, base);
    if (size) {
        *size = vec2{roundf((uv.z - uv.x) * (f32)ui->atlas.width), roundf((uv.w - uv.y) * (f32)ui->atlas.height)};
    }
    if (icon == ui_icon_chevron_up_14 || icon == ui_icon_chevron_up_10) return vec4{uv.z, uv.w, uv.x, uv.y};
    if (icon == ui_icon_chevron_right_14 || icon == ui_icon_chevron_right_10) return vec4{uv.z, uv.y, uv.x, uv.w};
    return uv;
}

void ui_draw_icon(const ui_t *ui, ui_id_t id, vec4 rect, u32 icon, vec4 colour) {
    gl_batch_t *batch = ui_batches_for(ui, id).icons;
    if (!batch) return;
    vec2 size;
    vec4 uv = ui_icon_uv(ui, icon, &size);
    if (size.x == 0) return;
    f32 x = floorf(rect.x + (rect_width(rect) - size.x) * 0.5f);
    f32 y = floorf(rect.y + (rect_height(rect) - size.y) * 0.5f);
    vec4 place = rect_xywh(x, y, size.x, size.y);
    gl_batch_rectangle(batch, &place, &uv, nullptr, colour);
}

// ---- sizes ------------------------------------------------------------------------------------------
f32 ui_style_top(const ui_style_t *style) { return style->border.top + style->padding.top; }

vec2 ui_text_box_size(const ui_t *ui, const ui_style_t *style, u32 font) {
    const ui_spacing_t &b = style->border, &p = style->padding;
    return vec2{b.left + b.right + p.left + p.right,
                font_line_height(ui_font(ui, font), false) + b.top + b.bottom + p.top + p.bottom};
}

vec2 ui_button_size(const ui_t *ui, const ui_style_t *style, data_t label, u32 font) {
    vec2 size = ui_text_box_size(ui, style, font);
    vec2 text = layout_get_single_line_size(ui_font(ui, font), label.bytes, label.used, code_point_none);
    size.x += ceilf(text.x);
    return size;
}

vec2 ui_dropdown_size(const ui_t *ui, const ui_style_t *style, u32 font) {
    const ui_spacing_t &b = style->border, &p = style->padding;
    vec2 size = ui_text_box_size(ui, style, font);
    size.x = b.left + p.left + p.right + b.right * 2 + font_line_height(ui_font(ui, font), false) + p.top + p.bottom;
    return size;
}

vec2 ui_checkbox_size(const ui_t *ui, const ui_style_t *style, data_t label, u32 font) {
    vec2 text = layout_get_single_line_size(ui_font(ui, font), label.bytes, label.used, code_point_none);
    assert_message(text.y > 0, "A check box needs a label.");
    return vec2{ceilf(text.x + text.y + 4), ceilf(text.y)};
}

// ---- press-type widgets -------------------------------------------------------------------------------
// The input half of everything that is clicked: 1 when a press and a
// release both happened on it.
static u32 ui_click_input(ui_t *ui, ui_id_t id, vec4 rect, u32 kind) {
    if (ui_hit_test(ui, id, rect, ui->mouse)) ui_set_hot(ui, id);
    u32 clicked = 0;
    if (ui_is_active(ui, id)) {
        if (ui_mouse_released(ui)) {
            clicked = ui_is_hot(ui, id) ? 1 : 0;
            ui_clear_active(ui);
        }
    } else if (ui_is_hot(ui, id) && ui_mouse_pressed(ui)) {
        // A quick tap brings its release in the same frame: that is a click too.
        if (ui_set_active(ui, id, kind) && !key_is_down(ui->window, key_left_button)) {
            clicked = 1;
            ui_clear_active(ui);
        }
    }
    return clicked;
}

u32 ui_button(ui_t *ui, ui_id_t id, vec4 rect, data_t label, u32 font) {
    if (!ui_widget_begin(ui, rect)) return 0;
    u32 clicked = ui_pass_has_input(ui) ? ui_click_input(ui, id, rect, ui_kind_button) : 0;
    if (ui_pass_has_draw(ui)) {
        const ui_style_t *style = &ui_theme.button;
        ui_draw_box(ui, id, rect, style, ui_style_state(ui, id));
        vec4 content = ui_style_content(style, rect);
        vec2 size;
        data_t text = ui_fit_label(ui, label, font, rect_width(content), &size);
        f32 x = content.x;
        if (size.x < rect_width(content)) x = content.x + (rect_width(content) - size.x) * 0.5f;
        ui_draw_text(ui, ui_batches_for(ui, id).text, text, x, ui_baseline(ui, content, font), font,
                     style->text_colour[ui_state_normal], true);
    }
    return clicked;
}

static u32 ui_checkbox_any(ui_t *ui, ui_id_t id, vec4 rect, u32 *value, const data_t *label, u32 font) {
    if (!ui_widget_begin(ui, rect)) return 0;
    u32 changed = 0;
    if (ui_pass_has_input(ui) && ui_click_input(ui, id, rect, ui_kind_checkbox)) {
        *value = *value ? 0 : 1;
        changed = 1;
    }
    if (ui_pass_has_draw(ui)) {
        const ui_style_t *style = &ui_theme.checkbox;
        u32 state = ui_style_state(ui, id);
        f32 side = rect_height(rect);
        vec4 box = rect_xywh(rect.x, rect.y, side, side);
        ui_draw_box(ui, id, box, style, state);
        vec4 inner = rect_shrink(box, style->border);
        if (*value) {
            u32 icon = rect_width(inner) < 12 ? ui_icon_check_10 : ui_icon_check_12;
            ui_draw_icon(ui, id, inner, icon, style->text_colour[state]);
        }
        if (label) {
            f32 left = box.z + 4;
            vec2 size;
            data_t text = ui_fit_label(ui, *label, font, rect.z - left, &size);
            ui_draw_text(ui, ui_batches_for(ui, id).text, text, left, ui_baseline(ui, ui_style_content(style, rect), font),
                         font, style->text_colour[ui_state_normal], true);
        }
    }
    return changed;
}

u32 ui_checkbox_plain(ui_t *ui, ui_id_t id, vec4 rect, u32 *value) {
    return ui_checkbox_any(ui, id, rect, value, nullptr, 0);
}

u32 ui_checkbox(ui_t *ui, ui_id_t id, vec4 rect, u32 *value, data_t label, u32 font) {
    return ui_checkbox_any(ui, id, rect, value, &label, font);
}

// ---- scrolling -------------------------------------------------------------------------------------------
static f64 ui_clamp(f64 value, f64 low, f64 high) { return value < low ? low : value > high ? high : value; }

f64 scroll_step_up(f64 value, f64 step, f64 maximum, u32 lines) {
    if (step <= 0) return ui_clamp(value, 0, maximum);
    f64 row = floor(value / step);
    if (value - row * step < 0.5) row -= 1;
    f64 back = row - (f64)(lines ? lines - 1 : 0);
    return ui_clamp((back > 0 ? back : 0) * step, 0, maximum);
}

f64 scroll_step_down(f64 value, f64 page, f64 step, f64 maximum, u32 lines) {
    if (step <= 0) return ui_clamp(value, 0, maximum);
    f64 row = floor((value + page) / step) + lines;
    return ui_clamp(row * step - page, 0, maximum);
}

// The wheel without the conditions: for a list that holds the active item.
static f64 ui_wheel_apply(const ui_t *ui, f64 page, f64 content, f64 step, u32 lines, f64 *value) {
    f32 wheel = ui->window ? ui->window->wheel : 0;
    if (wheel == 0) return 0;
    f64 maximum = content - page > 0 ? content - page : 0;
    f64 before = *value;
    *value = wheel > 0 ? scroll_step_up(*value, step, maximum, lines) : scroll_step_down(*value, page, step, maximum, lines);
    return *value - before;
}

f64 ui_scroll_wheel(ui_t *ui, f64 page, f64 content, f64 step, u32 lines, f64 *value) {
    if (!ui_pass_has_input(ui) || ui_any_active(ui)) return 0;
    if (!rect_contains_point(ui->clip, ui->mouse)) return 0;
    // What lies under an open popup doesn't scroll.
    if (ui->popup_open && rect_contains_point(ui->popup_rect, ui->mouse)) return 0;
    return ui_wheel_apply(ui, page, content, step, lines, value);
}

f32 ui_scroll_wheel_f32(ui_t *ui, f32 page, f32 content, f32 step, u32 lines, f32 *value) {
    f64 wide = *value;
    f64 change = ui_scroll_wheel(ui, page, content, step, lines, &wide);
    *value = (f32)wide;
    return (f32)change;
}

// Both bars in one: the vertical one in screen terms (y up, first button on
// top), the horizontal one mirrored (first button on the left).
static f64 ui_scrollbar(ui_t *ui, ui_id_t id, vec4 rect, f64 page, f64 content, f64 *value, f64 step,
                        bool vertical) {
    if (!ui_widget_begin(ui, rect) || !ui_pass_is_live(ui)) return 0;
    const f32 t = ui_scrollbar_thickness;
    f32 along = vertical ? rect_height(rect) : rect_width(rect);
    f32 across = vertical ? rect_width(rect) : rect_height(rect);
    if (across < t || along < 3 * t + 1) return 0;

    f64 before = *value;
    f64 maximum = content - page > 0 ? content - page : 0;
    if (*value > maximum) *value = maximum;
    if (*value < 0) *value = 0;
    f64 track = along - 2 * t;
    f64 thumb = content > 0 ? track * page / content : track;
    if (thumb < t) thumb = t;
    if (thumb > track) thumb = track;
    f64 travel = track - thumb;

    // The parts: first button, second button, thumb, track.
    vec4 first, second, track_rect;
    if (vertical) {
        first = vec4{rect.x, rect.w - t, rect.z, rect.w};
        second = vec4{rect.x, rect.y, rect.z, rect.y + t};
        track_rect = vec4{rect.x, rect.y + t, rect.z, rect.w - t};
    } else {
        first = vec4{rect.x, rect.y, rect.x + t, rect.w};
        second = vec4{rect.z - t, rect.y, rect.z, rect.w};
        track_rect = vec4{rect.x + t, rect.y, rect.z - t, rect.w};
    }
    auto thumb_rect = [&]() {
        f32 offset = roundf((f32)(maximum > 0 ? travel * *value / maximum : 0));
        f32 size = roundf((f32)thumb);
        if (vertical) return vec4{rect.x, track_rect.w - offset - size, rect.z, track_rect.w - offset};
        return vec4{track_rect.x + offset, rect.y, track_rect.x + offset + size, rect.w};
    };
    const ui_id_t parts[4] = {ui_id_child(id, ui_part_scroll_first), ui_id_child(id, ui_part_scroll_second),
                              ui_id_child(id, ui_part_scroll_thumb), ui_id_child(id, ui_part_scroll_track)};

    if (ui_pass_has_input(ui)) {
        const vec4 rects[4] = {first, second, thumb_rect(), track_rect};
        for (u32 i = 0; i < 4; ++i) {
            if (ui_hit_test(ui, parts[i], rects[i], ui->mouse)) {
                ui_set_hot_family(ui, parts[i]);
                if (ui_is_hot(ui, parts[i]) && ui_mouse_pressed(ui))
                    ui_set_active(ui, parts[i], ui_kind_scrollbar);
                break;
            }
        }
        f32 pointer = vertical ? ui->mouse.y : ui->mouse.x;
        // The parts act while the button is held; the release only lets go.
        bool held = key_is_down(ui->window, key_left_button) || ui_mouse_pressed(ui);
        if (!held) {
        } else if (ui_is_active(ui, parts[0])) {
            if (rect_contains_point(first, ui->mouse)) *value = scroll_step_up(*value, step, maximum, 1);
        } else if (ui_is_active(ui, parts[1])) {
            if (rect_contains_point(second, ui->mouse)) *value = scroll_step_down(*value, page, step, maximum, 1);
        } else if (ui_is_active(ui, parts[3])) {
            // A page towards the pointer; nothing while the pointer is on the thumb.
            vec4 now = thumb_rect();
            bool before_thumb = vertical ? pointer >= now.w : pointer < now.x;
            bool after_thumb = vertical ? pointer < now.y : pointer >= now.z;
            if (after_thumb) *value = ui_clamp(*value + page, 0, maximum);
            if (before_thumb) *value = ui_clamp(*value - page, 0, maximum);
        } else if (ui_is_active(ui, parts[2]) && ui_id_equal(ui->active_at_start, parts[2]) && travel > 0) {
            // From the frame after the press: how the pointer came to the thumb doesn't count.
            f32 delta = vertical ? ui->previous_mouse.y - ui->mouse.y : ui->mouse.x - ui->previous_mouse.x;
            // Past an end the thumb waits until the pointer is back over the inner part.
            bool past_first = vertical ? pointer >= first.y : pointer < first.z;
            bool past_second = vertical ? pointer < second.w : pointer >= second.x;
            if ((delta > 0 && !past_first) || (delta < 0 && !past_second))
                *value = ui_clamp(*value + delta * maximum / travel, 0, maximum);
        }
        for (const ui_id_t &part : parts) {
            if (ui_is_active(ui, part) && !key_is_down(ui->window, key_left_button)) ui_activate_parent(ui, id);
        }
    }

    if (ui_pass_has_draw(ui)) {
        ui_batches_t batches = ui_batches_for(ui, id);
        if (batches.rectangles)
            gl_batch_rectangle(batches.rectangles, &rect, nullptr, nullptr, ui_theme.scrollbar_track.fill_colour[0]);
        const ui_style_t *style = &ui_theme.scrollbar;
        u32 icons[2] = {vertical ? (u32)ui_icon_chevron_up_10 : (u32)ui_icon_chevron_left_10,
                        vertical ? (u32)ui_icon_chevron_down_10 : (u32)ui_icon_chevron_right_10};
        const vec4 buttons[2] = {first, second};
        for (u32 i = 0; i < 2; ++i) {
            u32 state = ui_style_state(ui, parts[i]);
            ui_draw_box(ui, id, buttons[i], style, state);
            ui_draw_icon(ui, id, buttons[i], icons[i], style->text_colour[state]);
        }
        ui_draw_box(ui, id, thumb_rect(), style, ui_style_state(ui, parts[2]));
    }
    return *value - before;
}

f64 ui_scrollbar_vertical(ui_t *ui, ui_id_t id, vec4 rect, f64 page, f64 content, f64 *value, f64 step) {
    return ui_scrollbar(ui, id, rect, page, content, value, step, true);
}

f32 ui_scrollbar_vertical_f32(ui_t *ui, ui_id_t id, vec4 rect, f32 page, f32 content, f32 *value, f32 step) {
    f64 wide = *value;
    f64 change = ui_scrollbar(ui, id, rect, page, content, &wide, step, true);
    *value = (f32)wide;
    return (f32)change;
}

f32 ui_scrollbar_horizontal_f32(ui_t *ui, ui_id_t id, vec4 rect, f32 page, f32 content, f32 *value, f32 step) {
    f64 wide = *value;
    f64 change = ui_scrollbar(ui, id, rect, page, content, &wide, step, false);
    *value = (f32)wide;
    return (f32)change;
}

void ui_set_pass_from_layout(ui_t *ui, const layout_t *layout) {
    u32 pass = ui_pass_none;
    if (layout->state == layout_state_input) pass = ui_pass_input;
    if (layout->state == layout_state_draw) pass = ui_pass_draw;
    ui->pass = pass;
}

void ui_layout_scrollbars(vec2 *scroll, ui_t *ui, layout_t *layout, vec4 rect) {
    ui_set_pass_from_layout(ui, layout);
    ui_set_clip(ui, rect);
    const f32 t = ui_scrollbar_thickness;
    ui_id_t id = ui_id_pointer(scroll);
    bool vertical = layout_has_vertical_bar(layout), horizontal = layout_has_horizontal_bar(layout);
    if (vertical) {
        ui_scroll_wheel_f32(ui, layout->height, layout->content_height, 20, 3, &layout->scroll_y);
        vec4 bar = {rect.z - t, rect.y + (layout_wants_horizontal_bar(layout) ? t : 0), rect.z, rect.w};
        ui_scrollbar_vertical_f32(ui, ui_id_child(id, 1), bar, layout->height, layout->content_height,
                                  &layout->scroll_y, 20);
        scroll->y = layout->scroll_y;
    }
    if (horizontal) {
        vec4 bar = {rect.x, rect.y, rect.z - (layout_wants_vertical_bar(layout) ? t : 0), rect.y + t};
        ui_scrollbar_horizontal_f32(ui, ui_id_child(id, 2), bar, layout->width, layout->content_width,
                                    &layout->scroll_x, 20);
        scroll->x = layout->scroll_x;
    }
    // A bar's release hands its hold to the bar; the layout owns the bars, so
    // it lets go once the button is up, or the hold would block every widget.
    bool held = ui->window && key_is_down(ui->window, key_left_button);
    if (!held && ui_id_starts_with(ui->active, id)) ui_clear_active(ui);
    if (layout->state == layout_state_input) {
        // Content that shrank below its box goes back to the start.
        if (!vertical) scroll->y = 0;
        if (!horizontal) scroll->x = 0;
    }
}

// ---- dropdown -------------------------------------------------------------------------------------------
static f32 ui_item_height(const ui_t *ui, u32 font) {
    return ceilf(ui_text_box_size(ui, &ui_theme.dropdown_item, font).y);
}

vec4 ui_dropdown_popup_rect(const ui_t *ui, vec4 rect, u64 item_count, u32 font) {
    const ui_style_t *list = &ui_theme.list;
    f32 height = list->border.top + list->border.bottom + list->padding.top + list->padding.bottom +
                 (f32)item_count * ui_item_height(ui, font);
    vec4 below = rect_clip(vec4{rect.x, rect.y - 1 - height, rect.z, rect.y - 1}, ui->screen);
    if (rect_height(below) >= height) return below;
    vec4 above = rect_clip(vec4{rect.x, rect.w + 1, rect.z, rect.w + 1 + height}, ui->screen);
    return rect_height(above) > rect_height(below) ? above : below;
}

// The geometry of an open list: the inner rectangle, the rows' width, and
// the scroll bar when the rows are higher than the list.
struct ui_list_frame_t {
    vec4 inner;
    vec4 rows; // inner less the bar
    vec4 bar;
    f32 item_height;
    f64 content;
    f64 maximum;
    bool has_bar;
};

static ui_list_frame_t ui_list_frame(const ui_t *ui, vec4 popup, u64 item_count, u32 font) {
    ui_list_frame_t f = {};
    f.inner = ui_style_content(&ui_theme.list, popup);
    f.item_height = ui_item_height(ui, font);
    f.content = (f64)item_count * f.item_height;
    f64 page = rect_height(f.inner);
    f.maximum = f.content - page > 0 ? f.content - page : 0;
    f.has_bar = f.content > page;
    f.rows = f.inner;
    if (f.has_bar) {
        f.bar = vec4{f.inner.z - ui_scrollbar_thickness, f.inner.y, f.inner.z, f.inner.w};
        f.rows.z = f.bar.x;
    }
    return f;
}

// The row `index` on the screen, with the list scrolled by `scroll`, uncut.
static vec4 ui_list_row(const ui_list_frame_t *f, u64 index, f64 scroll) {
    f32 top = f->inner.w - (f32)((f64)index * f->item_height - scroll);
    return vec4{f->rows.x, top - f->item_height, f->rows.z, top};
}

static void ui_list_visible(const ui_list_frame_t *f, u64 item_count, f64 scroll, u64 *first, u64 *end) {
    if (f->item_height <= 0 || item_count == 0) {
        *first = *end = 0;
        return;
    }
    f64 page = rect_height(f->inner);
    u64 a = (u64)floor(scroll / f->item_height);
    u64 b = (u64)ceil((scroll + page) / f->item_height);
    *first = a < item_count ? a : item_count;
    *end = b < item_count ? b : item_count;
}

static void ui_list_show_row(const ui_list_frame_t *f, u64 index, f64 *scroll) {
    f64 top = (f64)index * f->item_height, bottom = top + f->item_height;
    f64 page = rect_height(f->inner);
    if (top < *scroll) *scroll = top;
    if (bottom > *scroll + page) *scroll = bottom - page;
    *scroll = ui_clamp(*scroll, 0, f->maximum);
}

static void ui_dropdown_close(ui_t *ui) {
    ui_clear_active(ui);
    if (ui->popup_open) ui_popup_close(ui);
}

// The open list: keys, wheel, scroll bar, hover and the choice. Runs with
// the clip on the popup.
static void ui_list_input(ui_t *ui, ui_id_t id, u64 item_count, u64 *selected, u32 font,
                          ui_dropdown_state_t *state, f64 *scroll, bool just_opened) {
    ui_id_t list_id = ui_id_child(id, ui_part_list);
    ui_list_frame_t f = ui_list_frame(ui, ui->popup_rect, item_count, font);
    u64 chosen = *selected < item_count ? *selected : 0;

    // 1. The first frame: the selected row is active and stands in the middle.
    if (!state->opened) {
        state->opened = 1;
        ui_force_active(ui, item_count ? ui_id_child(list_id, (i64)chosen + 1) : list_id, ui_kind_list);
        if (f.has_bar) {
            u64 rows = (u64)floor(rect_height(f.inner) / f.item_height);
            u64 half = rows ? (rows - 1) / 2 : 0;
            u64 above = chosen < half ? chosen : half;
            *scroll = ui_clamp((f64)(chosen - above) * f.item_height, 0, f.maximum);
        } else {
            *scroll = 0;
        }
    }
    bool holds = ui_id_starts_with(ui->active, list_id);
    bool bar_was_active = ui_id_starts_with(ui->active_at_start, ui_id_child(list_id, ui_part_list_scrollbar));

    // 2. Scroll bar and wheel.
    if (f.has_bar) {
        if (holds) ui_wheel_apply(ui, rect_height(f.inner), f.content, f.item_height, 3, scroll);
        // A row holds active while the list is open; a press on the bar hands
        // it to the list first, so that a part of the bar can take it.
        if (ui_mouse_pressed(ui) && rect_contains_point(f.bar, ui->mouse) && !just_opened)
        {
            ui_force_active(ui, list_id, ui_kind_list);
            ui->active_at_start = ui->active; // as if the list had held it since the frame began
        }
        // Input only: the bar is drawn over the list in the draw half.
        u32 pass = ui->pass;
        ui->pass = ui_pass_input;
        ui_scrollbar_vertical(ui, ui_id_child(list_id, ui_part_list_scrollbar), f.bar, rect_height(f.inner),
                              f.content, scroll, f.item_height);
        ui->pass = pass;
    } else {
        *scroll = 0;
    }

    // 3. Keys: Up and Down walk the rows, wrapping; Enter chooses.
    bool keyed = false;
    bool down = ui_key_pressed(ui, key_down), up = ui_key_pressed(ui, key_up);
    bool enter = key_transitions(ui->window, key_enter) > 0 && ui_key_pressed(ui, key_enter);
    holds = ui_id_starts_with(ui->active, list_id);
    if (holds && item_count && (down || up || enter)) {
        u64 current = chosen;
        if (ui_id_is_child(list_id, ui->active) && ui_id_last(ui->active) > 0) current = (u64)ui_id_last(ui->active) - 1;
        if (current >= item_count) current = item_count - 1;
        if (down) current = current + 1 < item_count ? current + 1 : 0;
        if (up) current = current > 0 ? current - 1 : item_count - 1;
        ui_force_active(ui, ui_id_child(list_id, (i64)current + 1), ui_kind_list);
        ui_list_show_row(&f, current, scroll);
        keyed = true;
        if (enter) {
            *selected = current;
            ui_dropdown_close(ui);
            return;
        }
    }

    // 4. Hover and press on the visible rows.
    u64 first, end;
    ui_list_visible(&f, item_count, *scroll, &first, &end);
    bool released = ui_mouse_released(ui);
    for (u64 i = first; i < end && !keyed; ++i) {
        ui_id_t row_id = ui_id_child(list_id, (i64)i + 1);
        vec4 row = rect_clip(ui_list_row(&f, i, *scroll), f.rows);
        if (!ui_hit_test(ui, row_id, row, ui->mouse)) continue;
        ui_set_hot_sibling(ui, row_id);
        if (ui_is_hot(ui, row_id) && ui_mouse_pressed(ui) && !just_opened)
            ui_force_active(ui, row_id, ui_kind_list);
        // 5. A release on a row chooses it (not the release of the opening
        // press, nor the end of a drag of the bar).
        if (released && !state->held && !bar_was_active) {
            *selected = i;
            ui_dropdown_close(ui);
            return;
        }
    }
    if (released) state->held = 0;
}

static void ui_list_draw(ui_t *ui, ui_id_t id, const data_t *items, u64 item_count, u32 font, f64 scroll) {
    ui_id_t list_id = ui_id_child(id, ui_part_list);
    ui_batches_t batches = ui_batches_for(ui, list_id);
    ui_list_frame_t f = ui_list_frame(ui, ui->popup_rect, item_count, font);
    ui_draw_box(ui, list_id, ui->popup_rect, &ui_theme.list, ui_state_normal);
    gl_batch_t *scissored[2] = {batches.rectangles, batches.text};
    vec4 inner = f.inner;
    for (gl_batch_t *batch : scissored) {
        if (batch)
            gl_batch_scissor(batch, true, (i32)inner.x, (i32)inner.y, (i32)rect_width(inner), (i32)rect_height(inner));
    }
    const ui_style_t *item = &ui_theme.dropdown_item;
    u64 first, end;
    ui_list_visible(&f, item_count, scroll, &first, &end);
    for (u64 i = first; i < end; ++i) {
        ui_id_t row_id = ui_id_child(list_id, (i64)i + 1);
        vec4 row = ui_list_row(&f, i, scroll);
        vec4 cut = rect_clip(row, f.rows);
        if (rect_width(cut) <= 0) continue;
        bool lit = ui_is_active(ui, row_id) || ui_is_hot(ui, row_id);
        if (lit && batches.rectangles)
            gl_batch_rectangle(batches.rectangles, &cut, nullptr, nullptr, item->fill_colour[ui_state_hot]);
        vec4 content = ui_style_content(item, row);
        vec2 size;
        data_t text = ui_fit_label(ui, items[i], font, rect_width(content), &size);
        ui_draw_text(ui, batches.text, text, content.x, ui_baseline(ui, content, font), font,
                     item->text_colour[ui_state_normal], true);
    }
    for (gl_batch_t *batch : scissored) {
        if (batch) gl_batch_scissor(batch, false, 0, 0, 0, 0);
    }
}

void ui_dropdown(ui_t *ui, ui_id_t id, vec4 rect, const data_t *items, u64 item_count, u64 *selected, u32 font) {
    if (!ui_widget_begin(ui, rect)) return;
    ui_id_t list_id = ui_id_child(id, ui_part_list);
    ui_dropdown_state_t *state = &ui_state_get(ui, list_id)->dropdown;
    f64 *scroll = &ui_state_get(ui, id)->list.scroll;

    if (ui_pass_has_input(ui)) {
        bool just_opened = false;
        if (ui_hit_test(ui, id, rect, ui->mouse)) ui_set_hot_family(ui, id);
        if (ui_is_hot(ui, id) && ui_mouse_pressed(ui)) {
            bool was_open = ui_id_starts_with(ui->active, id);
            if (ui_toggle_active(ui, id, ui_kind_dropdown)) {
                state->opened = 0;
                state->held = 1;
                just_opened = true;
            } else if (was_open) {
                if (ui->popup_open && ui_id_equal(ui->popup, list_id)) ui_popup_close(ui);
                ui_force_hot(ui, id);
            }
        }
        if (ui_id_starts_with(ui->active, id)) {
            vec4 popup = ui_dropdown_popup_rect(ui, rect, item_count, font);
            ui_popup_open(ui, list_id, popup);
            if (ui_mouse_pressed(ui) && !just_opened &&
                !rect_contains_point(popup, ui->mouse)) {
                ui_dropdown_close(ui);
            } else {
                vec4 clip = ui->clip;
                ui->clip = popup;
                ui_list_input(ui, id, item_count, selected, font, state, scroll, just_opened);
                ui->clip = clip;
            }
        }
    }

    if (ui_pass_has_draw(ui)) {
        const ui_style_t *style = &ui_theme.dropdown;
        ui_draw_box(ui, id, rect, style, ui_style_state(ui, id));
        vec4 content = ui_style_content(style, rect);
        f32 side = rect_height(content);
        vec4 square = rect_shrink(vec4{content.z - side, content.y, content.z, content.w}, ui_spacing_t{2, 2, 2, 2});
        u32 icon = rect_width(square) < 16 ? ui_icon_chevron_down_14 : ui_icon_chevron_down_16;
        ui_draw_icon(ui, id, square, icon, style->text_colour[ui_state_normal]);
        if (*selected < item_count) {
            vec2 size;
            data_t text = ui_fit_label(ui, items[*selected], font, rect_width(content) - side, &size);
            ui_draw_text(ui, ui_batches_for(ui, id).text, text, content.x, ui_baseline(ui, content, font), font,
                         style->text_colour[ui_state_normal], true);
        }
        if (ui->popup_open && ui_id_equal(ui->popup, list_id) && ui_id_starts_with(ui->active, id)) {
            ui->popup_touched = 1; // a frame whose input pass was skipped still keeps it
            vec4 clip = ui->clip;
            ui->clip = ui->popup_rect;
            ui_list_draw(ui, id, items, item_count, font, *scroll);
            // The list's bar draws in the popup layer with the same call as its input.
            ui_list_frame_t f = ui_list_frame(ui, ui->popup_rect, item_count, font);
            if (f.has_bar) {
                u32 pass = ui->pass;
                ui->pass = ui_pass_draw;
                ui_scrollbar_vertical(ui, ui_id_child(list_id, ui_part_list_scrollbar), f.bar, rect_height(f.inner),
                                      f.content, scroll, f.item_height);
                ui->pass = pass;
            }
            ui->clip = clip;
        }
    }
}
