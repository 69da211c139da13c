// layout.cpp - text layout in passes: recording and measuring, the final
// positions, the replay of the view's calls, single-line measuring.
#include "toolkit/layout.h"

#include "base/profiler.h"
#include "gfx/fonts.h"
#include "gfx/renderer.h"

#include <math.h>

namespace {

constexpr vec4 layout_white = {1, 1, 1, 1};

// One code point at p; an invalid sequence is U+FFFD of one byte.
inline u32 layout_decode(const u8 *p, const u8 *end, u32 *size) {
    if (*p < 0x80) {
        *size = 1;
        return *p;
    }
    u32 code_point = 0, error = 0;
    u8 n = 0;
    utf8_decode(p, end, &code_point, &n, &error);
    if (error) {
        *size = 1;
        return code_point_replacement;
    }
    *size = n;
    return code_point;
}

inline bool layout_is_space(u32 c) { return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\n' || c == '\r'; }

// Scripts written without spaces whose lines break between any two
// characters: Han, kana, their punctuation and full-width forms.
inline bool layout_is_ideographic(u32 c) {
    return (c >= 0x2E80 && c <= 0x9FFF) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFF00 && c <= 0xFFEF) ||
           (c >= 0x20000 && c <= 0x3FFFF);
}

// Marks that never start a line (closing brackets, stops, small kana, the
// prolonged sound mark) and brackets that never end one.
inline bool layout_no_line_start(u32 c) {
    static const u16 marks[] = {0x3001, 0x3002, 0x3005, 0x3009, 0x300B, 0x300D, 0x300F, 0x3011, 0x3015, 0x3017,
                                0x3019, 0x301B, 0x3041, 0x3043, 0x3045, 0x3047, 0x3049, 0x3063, 0x3083, 0x3085,
                                0x3087, 0x308E, 0x309D, 0x309E, 0x30A1, 0x30A3, 0x30A5, 0x30A7, 0x30A9, 0x30C3,
                                0x30E3, 0x30E5, 0x30E7, 0x30EE, 0x30F5, 0x30F6, 0x30FB, 0x30FC, 0xFF01, 0xFF09,
                                0xFF0C, 0xFF0E, 0xFF1A, 0xFF1B, 0xFF1F, 0xFF3D, 0xFF5D};
    if (c < 0x3001 || c > 0xFF5D || (c > 0x30FC && c < 0xFF01)) return false;
    for (u16 m : marks)
        if (m == c) return true;
    return false;
}
inline bool layout_no_line_end(u32 c) {
    return c == 0x3008 || c == 0x300A || c == 0x300C || c == 0x300E || c == 0x3010 || c == 0x3014 ||
           c == 0x3016 || c == 0x3018 || c == 0x301A || c == 0xFF08 || c == 0xFF3B || c == 0xFF5B;
}

inline bool layout_is_thai(u32 c) { return c >= 0x0E01 && c <= 0x0E5B; }

// A line may break between these two characters although neither is white
// space: next to an ideographic character, unless a mark forbids it; and
// between two Thai steps, which are words (a Thai run ends where its first
// word does).
inline bool layout_breaks_between(u32 before, u32 after) {
    if (before == code_point_none) return false;
    if (layout_is_thai(before) && layout_is_thai(after)) return true;
    if (!(layout_is_ideographic(before) || layout_is_ideographic(after))) return false;
    return !layout_no_line_start(after) && !layout_no_line_end(before) && !layout_is_space(before);
}

// Index in the font's start list, font_glyph_none for a glyph on demand.
inline u32 layout_glyph_index(const font_t *font, u32 code_point) {
    u32 distance = code_point - font->first_code_point;
    if (distance < 256) return font->direct[distance] == 0xFF ? font_glyph_none : font->direct[distance];
    return font_glyph_index(font, code_point);
}

inline const glyph_t *layout_glyph(const font_t *font, u32 code_point) { return font_glyph(font, code_point); }

// Kerning in one step. A glyph searches the head of its font's pairs as far
// as its own count goes, so the amount for a next code point depends only on
// where that code point first stands among the pairs: first[next] below the
// previous glyph's count gives the pair, anything else 0, exactly as
// font_kerning finds it. Tables are made on first use after a font build and
// found again by the font's identity (a rebuild changes the count).
struct layout_kerning_table_t {
    const font_t *font;
    const u32 *kerning;
    const glyph_t *glyphs;
    const u32 *code_points;
    u32 count;
    u32 last_code_point, first_pair; // a list of the same length made again differs here
    u16 first[font_max_code_points + 1]; // by glyph index; 0xFFFF: in no pair
};

// What tells one build of a font from another.
inline bool layout_kerning_table_is_for(const layout_kerning_table_t &t, const font_t *font) {
    return t.font == font && t.kerning == font->kerning && t.glyphs == font->glyphs &&
           t.code_points == font->code_points && t.count == font->count &&
           t.last_code_point == (font->count ? font->code_points[font->count - 1] : 0) &&
           t.first_pair == (font->count && font->glyphs[0].kerning_count ? font->kerning[0] : 0);
}

layout_kerning_table_t layout_kerning_tables[8];
u32 layout_kerning_next_slot;

const layout_kerning_table_t *layout_kerning_table(const font_t *font) {
    for (const layout_kerning_table_t &t : layout_kerning_tables)
        if (layout_kerning_table_is_for(t, font)) return &t;
    layout_kerning_table_t *t = &layout_kerning_tables[layout_kerning_next_slot++ % array_count(layout_kerning_tables)];
    *t = layout_kerning_table_t{font, font->kerning, font->glyphs, font->code_points, font->count,
                                font->count ? font->code_points[font->count - 1] : 0,
                                font->count && font->glyphs[0].kerning_count ? font->kerning[0] : 0, {}};
    u32 longest = 0;
    for (u32 i = 0; i < font->count && i <= font_max_code_points; ++i) {
        t->first[i] = 0xFFFF;
        if (font->glyphs[i].kerning_count > longest) longest = font->glyphs[i].kerning_count;
    }
    for (u32 p = 0; p < longest; ++p) {
        u32 next = font->kerning[p * 2];
        u32 index = layout_glyph_index(font, next);
        if (index != font_glyph_none && t->first[index] == 0xFFFF) t->first[index] = (u16)p;
    }
    return t;
}

// Kerning between the previous glyph and this code point (whose glyph has
// `index`), in pixels.
inline f32 layout_kerning_fast(const font_t *font, const layout_kerning_table_t *table, const glyph_t *previous,
                               u32 index, u32 code_point) {
    if (!previous || previous->kerning_count == 0 || index == font_glyph_none) return 0;
    u32 first = table->first[index];
    if (first >= previous->kerning_count || font->code_points[index] != code_point) return 0;
    return (f32)(i32)font->kerning[first * 2 + 1] * font->scale;
}

// One step of a line: a character, or a run of a complex script shaped as
// one and never broken inside. Measuring, the final walk and the
// single-line walks all take their widths from here, and the renderer cuts
// runs by the same rule, so a rule of widths lives in one place.
struct layout_step_t {
    u32 code_point;       // the (first) character
    u32 size;             // bytes
    u32 glyphs;           // glyph quads it may draw, at most
    u32 index;            // in the font's start list, font_glyph_none otherwise
    const glyph_t *glyph; // for kerning the next step; null for a glyph on demand or a run
    f32 advance;
    f32 left; // the bearing taken off when the step starts a line
};

// `code_point` and `size`: the character at `at`, when the caller has
// decoded it already (size 0: not yet).
inline layout_step_t layout_step(const font_t *font, const u8 *text, u64 at, u64 bytes, u32 code_point = 0,
                                 u32 size = 0) {
    layout_step_t s = {};
    s.size = size;
    s.code_point = size ? code_point : layout_decode(text + at, text + bytes, &s.size);
    s.index = layout_glyph_index(font, s.code_point);
    s.glyphs = 1;
    if (s.index != font_glyph_none) {
        s.glyph = &font->glyphs[s.index];
        s.advance = s.glyph->advance;
        s.left = font->monospaced ? 0.0f : s.glyph->left;
        return s;
    }
    // Glyphs on demand have no bearing shift and no kerning.
    u64 run = font_may_start_run(s.code_point) ? font_run_length(font, text + at, bytes - at) : 0;
    if (run > s.size) {
        s.size = (u32)run;
        s.glyphs = (u32)run;
        s.advance = font_run_width(font, text + at, run);
        return s;
    }
    s.advance = font_advance_on_demand(font, s.code_point);
    return s;
}

// The width of a step: kerning from the previous glyph plus the advance;
// the first one of a line instead loses its left bearing (unless the font is
// monospaced), so the ink of a line starts at its left edge.
inline f32 layout_step_width(const font_t *font, const layout_step_t &step, const glyph_t *previous, bool first) {
    if (first) return step.advance - step.left;
    if (!previous || step.index == font_glyph_none) return step.advance;
    return (f32)font_kerning(font, previous, step.code_point) * font->scale + step.advance;
}

// The last code point of the string command that stands before `index` with
// only colour and user commands between, so that kerning crosses a colour
// change; none otherwise, or when that string ended in a line break.
u32 layout_previous_code_point(const layout_command_t *commands, u32 index) {
    while (index > 0) {
        const layout_command_t *c = &commands[--index];
        if (c->kind == layout_kind_colour_push || c->kind == layout_kind_colour_pop || c->kind == layout_kind_user)
            continue;
        if (c->kind != layout_kind_string || c->string.bytes == 0) return code_point_none;
        const u8 *end = c->string.text + c->string.bytes;
        u64 size = utf8_last_char_size(c->string.text, end);
        if (size == 0) size = 1;
        u32 n = 0;
        u32 code_point = layout_decode(end - size, end, &n);
        if (n != size) code_point = code_point_replacement;
        if (code_point == '\n' || code_point == '\r') return code_point_none;
        return code_point;
    }
    return code_point_none;
}

layout_command_t *layout_next(layout_t *layout, u32 kind) {
    if (layout->dirty) {
        memory_zero(&layout->dummy, sizeof(layout->dummy));
        layout->dummy.kind = kind;
        return &layout->dummy;
    }
    if (layout_is_recording(layout)) {
        auto *c = (layout_command_t *)data_push(layout->arena, sizeof(layout_command_t), 8);
        if (!c) return nullptr;
        assert_message(c == layout->commands + layout->command_count,
                       "Something else was put in the layout's arena during a recording.");
        memory_zero(c, sizeof(*c));
        c->kind = kind;
        ++layout->command_count;
        return c;
    }
    assert_message(layout->state == layout_state_input || layout->state == layout_state_draw,
                   "A layout call outside the passes.");
    assert_message(layout->next_command < layout->command_count, "The view made more layout calls than it recorded.");
    layout_command_t *c = &layout->commands[layout->next_command++];
    assert_message(c->kind == kind, "The view's layout calls differ from its recording.");
    layout_replay_state(layout, c);
    return c;
}

void layout_reset_content(layout_t *layout) {
    layout->content_width = layout->margin.left;
    layout->content_height = layout->margin.top;
    layout->line_left = layout->margin.left;
    layout->cursor_x = layout->margin.left;
    layout->cursor_y = layout->margin.top;
    layout->line_width = layout_no_line_width;
    layout->break_anywhere = 0;
    layout->drop_break_space = 0;
}

void layout_reset_style(layout_t *layout) {
    layout->font = 0;
    layout->colour = layout_white;
    layout->colour_stack = nullptr;
}

void layout_do_move(layout_t *layout, f32 dx, f32 dy, u32 flags) {
    layout->cursor_x += dx;
    layout->cursor_y += dy;
    if (flags & layout_move_ceil_x) layout->cursor_x = ceilf(layout->cursor_x);
    if (flags & layout_move_ceil_y) layout->cursor_y = ceilf(layout->cursor_y);
    if (layout->cursor_x > layout->content_width) layout->content_width = layout->cursor_x;
    if (layout->cursor_y > layout->content_height) layout->content_height = layout->cursor_y;
}

void layout_do_line_box(layout_t *layout, const layout_command_t *c) {
    layout->line_left = c->line_box.left;
    layout->line_width = c->line_box.width;
    layout->break_anywhere = c->line_box.break_anywhere;
    layout->drop_break_space = c->line_box.drop_break_space;
}

// Places a box at the pen (layout space: left, top, right, bottom) and moves
// the pen as its flags say.
void layout_do_box(layout_t *layout, const vec4 &rect, u32 flags) {
    if (flags & layout_box_move_right) layout->cursor_x = rect.z;
    if (flags & layout_box_move_down) layout->cursor_y = rect.w;
    if (rect.z > layout->content_width) layout->content_width = rect.z;
    if (rect.w > layout->content_height) layout->content_height = rect.w;
}

// Layout space (left, top, right, bottom; y down) to the window (left,
// bottom, right, top; y up).
inline vec4 layout_to_screen(vec4 r, f32 left, f32 top) { return vec4{r.x + left, top - r.w, r.z + left, top - r.y}; }

} // namespace

// ---- the passes ------------------------------------------------------------------------------

layout_t layout_create(data_t *arena, font_set_t *font_set, vec4 rect, f32 scroll_x, f32 scroll_y,
                       layout_margin_t margins) {
    layout_t layout = {};
    layout.arena = arena;
    layout.arena_mark = *arena;
    layout.font_set = font_set;
    layout.x = rect.x;
    layout.y = rect.y;
    layout.width = rect.z - rect.x;
    layout.height = rect.w - rect.y;
    layout.scroll_x = scroll_x;
    layout.scroll_y = scroll_y;
    layout.margin = margins;
    layout_reset_content(&layout);
    layout_reset_style(&layout);
    layout.commands = (layout_command_t *)align_up((u64)(arena->bytes + arena->used), 8);
    return layout;
}

bool layout_is_recording(const layout_t *layout) {
    return layout->state == layout_state_record || layout->state == layout_state_record_again;
}

bool layout_pass_start(layout_t *layout) {
    PROFILE_SCOPE(layout_pass_start);
    if (layout->pass_count > 0) layout_pass_end(layout);
    bool more = layout->state != layout_state_done;
    ++layout->pass_count;
    layout->dirty = 0;
    if (layout_is_recording(layout)) {
        layout_reset_content(layout);
        layout->flags = 0;
        layout->end_seen = 0;
        *layout->arena = layout->arena_mark;
        layout->command_count = 0;
    } else if (layout->state == layout_state_input) {
        layout->old_scroll_x = layout->scroll_x;
        layout->old_scroll_y = layout->scroll_y;
        layout->scroll_checked = 0;
    }
    layout_reset_style(layout);
    layout->next_command = 0;
    return more;
}

void layout_pass_end(layout_t *layout) {
    PROFILE_SCOPE(layout_pass_end);
    switch (layout->state) {
    case layout_state_record:
    case layout_state_record_again: {
        // Both against the box the content was measured in: a vertical bar
        // that narrows the box is weighed in the next round, whose recording
        // wraps to the narrower box.
        bool done = !layout->dirty; // a recording cut short for a bar is made again
        bool taller = layout->content_height > layout->height, wider = layout->content_width > layout->width;
        if (!(layout->flags & layout_flag_no_vertical_bar) && taller && !layout->has_vertical_bar) {
            layout->width -= layout_bar_size;
            layout->has_vertical_bar = 1;
            done = false;
        }
        if (!(layout->flags & layout_flag_no_horizontal_bar) && wider && !layout->has_horizontal_bar) {
            layout->height -= layout_bar_size;
            layout->y += layout_bar_size;
            layout->has_horizontal_bar = 1;
            done = false;
        }
        if (done) {
            if (layout->state == layout_state_record_again) {
                layout_end(layout, false);
                layout->state = layout_state_draw;
            } else {
                layout->state = layout_state_input;
            }
        }
        break;
    }
    case layout_state_input:
        if (layout->dirty) {
            if (layout->has_vertical_bar) layout->width += layout_bar_size;
            if (layout->has_horizontal_bar) {
                layout->height += layout_bar_size;
                layout->y -= layout_bar_size;
            }
            layout->has_vertical_bar = 0;
            layout->has_horizontal_bar = 0;
            layout->state = layout_state_record_again;
        } else {
            // A view that never asked still gets its final positions.
            if (!layout->scroll_checked) layout_end(layout, false);
            layout->state = layout_state_draw;
        }
        break;
    case layout_state_draw:
        layout->state = layout_state_done;
        layout_reset_style(layout);
        layout->next_command = 0;
        break;
    default:
        break;
    }
}

bool layout_scroll_update(layout_t *layout, bool force) {
    if (layout->state != layout_state_input) return false;
    assert_message(!layout->scroll_checked, "layout_scroll_update twice in one pass.");
    layout->scroll_checked = 1;
    bool changed = layout->scroll_x != layout->old_scroll_x || layout->scroll_y != layout->old_scroll_y;
    if (changed) layout->dirty = 1;
    if (force || !changed) {
        layout_end(layout, false);
        layout_reset_style(layout);
    }
    return changed;
}

void layout_invalidate(layout_t *layout) {
    // Only input can change what the view shows; a recording is fresh already.
    if (layout->state == layout_state_input) layout->dirty = 1;
}

bool layout_is_settled(const layout_t *layout) {
    if (layout->state == layout_state_record_again) return layout->dirty != 0; // cut short for a bar
    if (layout->state != layout_state_record) return false;
    bool taller = !(layout->flags & layout_flag_no_vertical_bar) && !layout->has_vertical_bar &&
                  layout->content_height - layout->margin.bottom > layout->height;
    bool wider = !(layout->flags & layout_flag_no_horizontal_bar) && !layout->has_horizontal_bar &&
                 layout->content_width - layout->margin.right > layout->width;
    return taller || wider;
}

bool layout_wants_vertical_bar(const layout_t *layout) { return layout->height < layout->content_height; }
bool layout_wants_horizontal_bar(const layout_t *layout) { return layout->width < layout->content_width; }

bool layout_has_vertical_bar(const layout_t *layout) {
    assert_message(layout->state != layout_state_input || !layout->scroll_checked,
                   "The bars are asked for before layout_scroll_update.");
    return layout->has_vertical_bar != 0;
}

bool layout_has_horizontal_bar(const layout_t *layout) {
    assert_message(layout->state != layout_state_input || !layout->scroll_checked,
                   "The bars are asked for before layout_scroll_update.");
    return layout->has_horizontal_bar != 0;
}

// ---- the view's calls --------------------------------------------------------------------

layout_command_t *layout_set_flags(layout_t *layout, u32 flags) {
    layout_command_t *c = layout_next(layout, layout_kind_flags);
    if (c && c != &layout->dummy) {
        if (layout_is_recording(layout)) c->flags.flags = flags;
        layout->flags = c->flags.flags;
    }
    return c;
}

layout_command_t *layout_set_font(layout_t *layout, u32 index) {
    layout_command_t *c = layout_next(layout, layout_kind_font);
    if (c && layout_is_recording(layout)) {
        c->font.index = index;
        layout->font = index;
    }
    return c;
}

layout_command_t *layout_push_colour(layout_t *layout, vec4 colour) {
    layout_command_t *c = layout_next(layout, layout_kind_colour_push);
    if (c && layout_is_recording(layout)) {
        c->colour_push.colour = colour;
        c->colour_push.previous = layout->colour_stack;
        layout_replay_state(layout, c);
    }
    return c;
}

layout_command_t *layout_pop_colour(layout_t *layout) {
    layout_command_t *c = layout_next(layout, layout_kind_colour_pop);
    if (c && layout_is_recording(layout)) layout_replay_state(layout, c);
    return c;
}

layout_command_t *layout_string_p(layout_t *layout, const u8 *text, u64 bytes) {
    layout_command_t *c = layout_next(layout, layout_kind_string);
    if (c && c != &layout->dummy && layout_is_recording(layout)) {
        c->string.text = text;
        c->string.bytes = text ? bytes : 0;
        if (layout->state == layout_state_record_again && !layout->has_vertical_bar &&
            !(layout->flags & layout_flag_no_vertical_bar) && layout->content_height > layout->height) {
            // The content has outgrown the box: this recording will be made
            // again with a vertical bar, so the rest of it is stale.
            layout->dirty = 1;
        } else {
            layout_text(layout, c, false);
        }
    }
    return c;
}

layout_command_t *layout_string(layout_t *layout, data_t text) { return layout_string_p(layout, text.bytes, text.used); }

layout_command_t *layout_new_line(layout_t *layout) {
    layout_command_t *c = layout_next(layout, layout_kind_line_start);
    if (c && layout_is_recording(layout)) {
        layout->cursor_x = layout->line_left;
        layout->cursor_y = layout->content_height;
    }
    return c;
}

layout_command_t *layout_move(layout_t *layout, f32 dx, f32 dy, u32 flags) {
    layout_command_t *c = layout_next(layout, layout_kind_move);
    if (c && layout_is_recording(layout)) {
        c->move.dx = dx;
        c->move.dy = dy;
        c->move.flags = flags;
        layout_do_move(layout, dx, dy, flags);
    }
    return c;
}

layout_command_t *layout_set_line_box(layout_t *layout, f32 left, f32 width, u32 flags) {
    if (left == 0) left = layout->margin.left;
    assert_message(left >= layout->margin.left, "A line box starts left of the margin.");
    layout_command_t *c = layout_next(layout, layout_kind_line_box);
    if (c && layout_is_recording(layout)) {
        c->line_box.left = left;
        c->line_box.width = width;
        c->line_box.break_anywhere = (flags & layout_line_break_anywhere) ? 1 : 0;
        c->line_box.drop_break_space = (flags & layout_line_drop_break_space) ? 1 : 0;
        layout_do_line_box(layout, c);
    }
    return c;
}

layout_command_t *layout_add_box(layout_t *layout, f32 width, f32 height, void *user, u32 flags) {
    layout_command_t *c = layout_next(layout, layout_kind_box);
    if (c && layout_is_recording(layout)) {
        f32 left = layout->cursor_x, top = layout->cursor_y;
        if (flags & layout_box_whole_pixels) {
            left = ceilf(left);
            top = ceilf(top);
        }
        c->box.user = user;
        c->box.flags = flags;
        c->box.rect = vec4{left, top, left + width, top + height};
        layout_do_box(layout, c->box.rect, flags);
    }
    return c;
}

layout_command_t *layout_add_user(layout_t *layout, u64 a, u64 b) {
    layout_command_t *c = layout_next(layout, layout_kind_user);
    if (c && layout_is_recording(layout)) {
        c->user.a = a;
        c->user.b = b;
    }
    return c;
}

static layout_command_t *layout_fill(layout_t *layout, bool floor_width) {
    layout_command_t *c = layout_next(layout, layout_kind_fill);
    if (c && layout_is_recording(layout)) {
        f32 left = layout->margin.left;
        f32 right = layout->content_width - left;
        f32 box = layout->width - left - layout->margin.right;
        if (box > right) right = box;
        if (layout->line_width != layout_no_line_width) {
            f32 line = layout->line_left + layout->line_width - left;
            if (line > right) right = line;
        }
        f32 width = right - (layout->cursor_x - left);
        c->fill.width = floor_width ? floorf(width) : width;
    }
    return c;
}

layout_command_t *layout_fill_width(layout_t *layout) { return layout_fill(layout, false); }
layout_command_t *layout_fill_width_floor(layout_t *layout) { return layout_fill(layout, true); }

layout_command_t *layout_finish(layout_t *layout) {
    layout_command_t *c = layout_next(layout, layout_kind_end_of_content);
    if (c && c != &layout->dummy && layout_is_recording(layout)) {
        assert_message(!layout->end_seen, "layout_finish twice in one pass.");
        layout->content_width += layout->margin.right;
        layout->content_height += layout->margin.bottom;
        layout->end_seen = 1;
    }
    return c;
}

// ---- laying one string --------------------------------------------------------------------

namespace {

// Where a line may break: after white space, or where the line began.
struct layout_break_t {
    u64 position;       // byte offset of the character after the break
    f32 cursor_x;
    u64 line_bytes;
    u32 segment_count;  // segments closed or open at the break
    u32 segment_open;
    layout_segment_t segment; // the open one as it stood
};

} // namespace

void layout_text(layout_t *layout, layout_command_t *command, bool final) {
    PROFILE_SCOPE(layout_text);
    const font_t *font = font_get(layout->font_set, layout->font);
    const f32 h = (f32)(font->ascent - font->descent) * font->scale;
    const f32 g = (f32)font->line_gap * font->scale;
    const u8 *text = command->string.text;
    const u64 bytes = command->string.bytes;
    const bool keep_partial = (layout->flags & layout_flag_keep_partial) != 0;
    const bool drop_space = layout->drop_break_space != 0;
    const bool anywhere = layout->break_anywhere != 0;
    const f32 line_left = layout->line_left;
    const f32 line_right_limit = line_left + layout->line_width;
    const f32 scroll_x = layout->scroll_x, scroll_y = layout->scroll_y;
    const f32 box_width = layout->width, box_height = layout->height;
    f32 pen_x = layout->cursor_x, pen_y = layout->cursor_y; // the pen, kept in registers

    // extent: left, top, right, bottom in layout space
    vec4 extent = {pen_x, pen_y, pen_x, pen_y + (bytes ? h : 0.0f)};
    bool first = pen_x == line_left;
    const layout_kerning_table_t *kerning = layout_kerning_table(font);
    const glyph_t *previous = nullptr; // glyph of the previous code point, null for none
    u32 previous_code_point = code_point_none; // on this line, for the breaks between characters
    if (bytes && !first) {
        u32 p = layout_previous_code_point(layout->commands, (u32)(command - layout->commands));
        if (p != code_point_none) previous = layout_glyph(font, p);
    }

    command->string.segments = nullptr;
    command->string.segment_count = 0;
    layout_segment_t local = {};
    layout_segment_t *segment = nullptr; // the open segment, or null
    u32 segment_count = 0;

    u64 line_bytes = 0;
    f32 line_start_x = pen_x; // where this line's text began
    f32 line_right = pen_x;
    bool long_word = false;
    layout_break_t saved = {};
    bool has_saved = false;

    // A string whose first strong character reads right to left stands at
    // the right of a line box of a set width: each line's segments move to
    // its right edge when the line ends.
    const bool align_right = layout->line_width < layout_no_line_width && bytes &&
                             font_starts_right_to_left(text, bytes);
    u32 line_first_segment = 0;
    auto line_end = [&]() {
        if (align_right) {
            const f32 shift = line_right_limit - line_right;
            if (final && shift > 0 && command->string.segments)
                for (u32 s = line_first_segment; s < segment_count; ++s) {
                    command->string.segments[s].rect.x += shift;
                    command->string.segments[s].rect.z += shift;
                }
            if (line_right_limit > extent.z) extent.z = line_right_limit;
        }
        if (line_right > extent.z) extent.z = line_right;
    };
    auto line_break = [&]() {
        line_end();
        line_first_segment = segment_count;
        if (line_left < extent.x) extent.x = line_left;
        pen_y += h + g;
        extent.w = pen_y + h;
        pen_x = extent.x;
        line_bytes = 0;
        line_start_x = pen_x;
        line_right = pen_x;
        segment = nullptr;
        first = true;
        previous = nullptr;
        previous_code_point = code_point_none;
        long_word = false;
        has_saved = false;
    };
    // Breaking gains nothing when the line holds nothing and a new line would start no further left.
    auto line_empty = [&]() {
        f32 next_left = line_left < extent.x ? line_left : extent.x;
        return line_bytes == 0 && line_start_x <= next_left;
    };

    const u8 *end = text + bytes;
    u64 i = 0;
    bool string_start = true; // the first character kerns with the string before into the pen
    // The last place where a break may fall: the pen, the line and the open segment as they stand.
    auto save_break = [&]() {
        saved.position = i;
        saved.cursor_x = pen_x;
        saved.line_bytes = line_bytes;
        saved.segment_count = segment_count;
        saved.segment_open = segment != nullptr;
        if (segment) saved.segment = *segment;
        has_saved = true;
    };
    while (i < bytes) {
        if (!final && !first && !string_start && has_saved && !long_word && !layout_is_ideographic(previous_code_point)) {
            // Measuring: ASCII characters of the direct window that fit, in a
            // tight loop doing what the steps below do for them; anything
            // else goes on to the steps.
            const glyph_t *glyphs = font->glyphs;
            const u32 low = font->first_code_point;
            const u64 fast_start = i;
            while (i < bytes) {
                const u32 b = text[i], distance = b - low;
                if (b >= 0x80 || b == '\n' || b == '\r' || distance >= 256) break;
                const u32 index = font->direct[distance];
                if (index == 0xFF) break; // not a start glyph
                const f32 w = layout_kerning_fast(font, kerning, previous, index, b) + glyphs[index].advance;
                if (line_right + w > line_right_limit) break;
                line_bytes += 1;
                line_right += w;
                pen_x += w;
                previous = &glyphs[index];
                i += 1;
                if (layout_is_space(b)) {
                    saved.position = i;
                    saved.cursor_x = pen_x;
                    saved.line_bytes = line_bytes;
                }
            }
            if (i > fast_start) previous_code_point = text[i - 1];
            if (i >= bytes) break;
        }
        u32 size = 1;
        u32 c = layout_decode(text + i, end, &size);
        if (c == '\n' || c == '\r') {
            if (!(c == '\n' && i > 0 && text[i - 1] == '\r')) line_break();
            i += size;
            string_start = false;
            continue;
        }
        const layout_step_t step = layout_step(font, text, i, bytes, c, size);
        size = step.size;
        const u32 glyph_index = step.index;
        f32 w;
        f32 shift;
        if (first) {
            shift = -step.left;
            w = step.advance + shift;
        } else {
            f32 kern = i == 0 ? 0.0f : layout_kerning_fast(font, kerning, previous, glyph_index, c);
            if (string_start) {
                kern = layout_kerning_fast(font, kerning, previous, glyph_index, c);
                pen_x += kern;
                line_right += kern;
                kern = 0;
            }
            shift = kern;
            w = kern + step.advance;
        }
        string_start = false;
        if (layout_breaks_between(previous_code_point, c)) save_break();
        if (!has_saved) save_break();
        if (line_right + w <= line_right_limit) {
            if (final) {
                f32 vx = pen_x - scroll_x, vy = pen_y - scroll_y;
                bool visible = keep_partial
                                   ? (vx < box_width && vx + w > 0 && vy < box_height && vy + h > 0)
                                   : (vx >= 0 && vx + w <= box_width && vy >= 0 && vy + h <= box_height);
                if (visible) {
                    if (!segment) {
                        segment = (layout_segment_t *)data_push(layout->arena, sizeof(layout_segment_t), 8);
                        if (!segment) segment = &local; // a full arena draws less, never more
                        else {
                            if (!command->string.segments) command->string.segments = segment;
                            ++segment_count;
                        }
                        f32 x0 = pen_x + shift;
                        *segment = layout_segment_t{{x0, pen_y, x0, pen_y + h}, text + i, 0, 0};
                    }
                    segment->bytes += size;
                    segment->glyphs += step.glyphs;
                    segment->rect.z = pen_x + w;
                } else {
                    segment = nullptr;
                }
            }
            line_bytes += size;
            line_right += w;
            pen_x += w;
            previous = step.glyph;
            previous_code_point = c;
            first = false;
            i += size;
            if (layout_is_space(c)) save_break();
            continue;
        }
        bool space = layout_is_space(c);
        if (!space && !anywhere && !long_word) {
            // Measure the word from the last break on its own: no kerning,
            // the bearing of its first character taken off.
            f32 word = 0;
            bool word_first = true;
            // Only whether it is wider counts: a word of megabytes is
            // measured no further than the line's width.
            u32 word_previous = code_point_none;
            for (u64 j = saved.position; j < bytes && word <= layout->line_width;) {
                const layout_step_t sd = layout_step(font, text, j, bytes);
                const u32 d = sd.code_point;
                if (layout_is_space(d) || layout_breaks_between(word_previous, d)) break;
                word_previous = d;
                word += sd.advance - (word_first ? sd.left : 0.0f);
                word_first = false;
                j += sd.size;
            }
            f32 next_left = line_left < extent.x ? line_left : extent.x;
            if (word > layout->line_width || saved.cursor_x <= next_left) {
                long_word = true;
                continue; // this character again, now breaking at the edge
            }
            // The word moves whole to the next line.
            if (final) {
                if (command->string.segments) {
                    layout->arena->used = (u64)((u8 *)(command->string.segments + saved.segment_count) -
                                                layout->arena->bytes);
                    if (saved.segment_count == 0) command->string.segments = nullptr;
                }
                segment_count = saved.segment_count;
                if (saved.segment_open && segment_count > 0 && command->string.segments) {
                    segment = &command->string.segments[segment_count - 1];
                    *segment = saved.segment;
                }
            }
            pen_x = saved.cursor_x;
            i = saved.position;
            line_bytes = saved.line_bytes;
            line_break();
            continue;
        }
        // Break here; the character starts the next line unless it is a
        // dropped space or the line was empty (then it is dropped, never
        // looped on).
        bool keep = space ? !(drop_space || line_empty()) : !line_empty();
        if (!keep) i += size;
        line_break();
    }
    line_end();
    if (extent.z > layout->content_width) layout->content_width = extent.z;
    if (extent.w > layout->content_height) layout->content_height = extent.w;
    command->string.segment_count = segment_count;
    for (u32 s = 0; s < segment_count; ++s) {
        const layout_segment_t *sg = &command->string.segments[s];
        if (sg->rect.x < extent.x) extent.x = sg->rect.x;
    }
    for (u32 s = 0; s < segment_count; ++s) {
        const vec4 &r = command->string.segments[s].rect;
        assert_message(r.x >= extent.x && r.z <= extent.z && r.y >= extent.y && r.w <= extent.w,
                       "A segment lies outside its string's bounds.");
    }
    command->string.bounds = extent;
    command->string.line_height = h;
    command->string.line_gap = g;
    command->string.descent = font_descent(font);
    command->string.pen_x = pen_x;
    command->string.pen_y = pen_y;
    layout->cursor_x = pen_x;
    layout->cursor_y = pen_y;
}

// ---- final positions ------------------------------------------------------------------------

void layout_end(layout_t *layout, bool stop_at_bottom) {
    PROFILE_SCOPE(layout_end);
    assert_message(layout->end_seen, "layout_end without layout_finish.");
    layout->end_seen = 0;
    if (!(layout->flags & layout_flag_no_scroll_clamp)) {
        f32 max_x = layout->content_width - layout->width, max_y = layout->content_height - layout->height;
        if (max_x < 0) max_x = 0;
        if (max_y < 0) max_y = 0;
        f32 sx = layout->scroll_x, sy = layout->scroll_y;
        sx = sx < 0 ? 0 : (sx > max_x ? max_x : sx);
        sy = sy < 0 ? 0 : (sy > max_y ? max_y : sy);
        layout->scroll_x = roundf(sx);
        layout->scroll_y = roundf(sy);
    }
    const f32 left = layout->x - layout->scroll_x;
    const f32 top = layout->y + layout->height + layout->scroll_y;
    const f32 recorded_width = layout->content_width, recorded_height = layout->content_height;
    layout_reset_content(layout);
    layout_reset_style(layout);
    layout->flags = 0;
    // A string wholly above or below the box has no segments; its measures
    // are those of the recording, so it isn't laid again.
    const f32 view_top = layout->scroll_y - 1, view_bottom = layout->scroll_y + layout->height + 1;
    bool complete = true;
    for (u32 i = 0; i < layout->command_count; ++i) {
        layout_command_t *c = &layout->commands[i];
        switch (c->kind) {
        case layout_kind_string: {
            const vec4 b = c->string.bounds;
            if (c->string.line_height > 0 && (b.w < view_top || b.y > view_bottom)) {
                c->string.segments = nullptr;
                c->string.segment_count = 0;
                layout->cursor_x = c->string.pen_x;
                layout->cursor_y = c->string.pen_y;
                if (b.z > layout->content_width) layout->content_width = b.z;
                if (b.w > layout->content_height) layout->content_height = b.w;
            } else {
                layout_text(layout, c, true);
            }
            c->string.bounds = layout_to_screen(c->string.bounds, left, top);
            for (u32 s = 0; s < c->string.segment_count; ++s)
                c->string.segments[s].rect = layout_to_screen(c->string.segments[s].rect, left, top);
            break;
        }
        case layout_kind_move: layout_do_move(layout, c->move.dx, c->move.dy, c->move.flags); break;
        case layout_kind_line_box: layout_do_line_box(layout, c); break;
        case layout_kind_line_start:
            layout->cursor_x = layout->line_left;
            layout->cursor_y = layout->content_height;
            break;
        case layout_kind_font:
        case layout_kind_colour_push:
        case layout_kind_colour_pop: layout_replay_state(layout, c); break;
        case layout_kind_flags: layout->flags = c->flags.flags; break;
        case layout_kind_box: {
            layout_do_box(layout, c->box.rect, c->box.flags);
            vec4 r = layout_to_screen(c->box.rect, left, top);
            if (c->box.flags & layout_box_whole_pixels) r = vec4{ceilf(r.x), ceilf(r.y), ceilf(r.z), ceilf(r.w)};
            c->box.rect = r;
            break;
        }
        case layout_kind_end_of_content:
            layout->content_width += layout->margin.right;
            layout->content_height += layout->margin.bottom;
            break;
        default: break;
        }
        if (stop_at_bottom && top - layout->cursor_y < layout->y) {
            complete = false;
            break;
        }
    }
    if (complete && !stop_at_bottom) {
        assert_message(fabsf(layout->content_width - recorded_width) <= 0.001f &&
                           fabsf(layout->content_height - recorded_height) <= 0.001f,
                       "The final walk of a layout measured differently from its recording.");
    }
    layout_reset_style(layout);
}

// ---- walking a finished layout ----------------------------------------------------------

bool layout_command_visible(const layout_t *layout, const layout_command_t *command) {
    vec4 r;
    if (command->kind == layout_kind_string) r = command->string.bounds;
    else if (command->kind == layout_kind_box) r = command->box.rect;
    else return false;
    f32 l = r.x > layout->x ? r.x : layout->x;
    f32 rr = r.z < layout->x + layout->width ? r.z : layout->x + layout->width;
    f32 b = r.y > layout->y ? r.y : layout->y;
    f32 t = r.w < layout->y + layout->height ? r.w : layout->y + layout->height;
    return rr > l && t > b;
}

void layout_replay_state(layout_t *layout, const layout_command_t *command) {
    switch (command->kind) {
    case layout_kind_font: layout->font = command->font.index; break;
    case layout_kind_colour_push:
        layout->colour_stack = (layout_command_t *)command;
        layout->colour = command->colour_push.colour;
        break;
    case layout_kind_colour_pop:
        if (layout->colour_stack) layout->colour_stack = layout->colour_stack->colour_push.previous;
        layout->colour = layout->colour_stack ? layout->colour_stack->colour_push.colour : layout_white;
        break;
    default: break;
    }
}

void layout_draw_string(const layout_t *layout, const layout_command_t *command, gl_batch_t *batch) {
    for (u32 s = 0; s < command->string.segment_count; ++s) {
        const layout_segment_t *sg = &command->string.segments[s];
        gl_batch_text(batch, sg->text, sg->bytes, sg->glyphs, sg->rect.x, sg->rect.y + command->string.descent,
                      false, layout->font, layout->colour);
    }
}

void layout_draw(layout_t *layout, gl_batch_t *batch) {
    layout_reset_style(layout);
    for (u32 i = 0; i < layout->command_count; ++i) {
        const layout_command_t *c = &layout->commands[i];
        if (c->kind == layout_kind_string) layout_draw_string(layout, c, batch);
        else layout_replay_state(layout, c);
    }
    layout_reset_style(layout);
}

// ---- measuring without a layout ----------------------------------------------------------

namespace {

// Walks the first line of a text, one character at a time, with the widths
// the layout uses. step(offset, size, width) returns false to stop.
template <typename step_t>
void layout_walk_line(const font_t *font, const u8 *text, u64 bytes, u32 previous, step_t step) {
    bool first = previous == code_point_none;
    const glyph_t *previous_glyph = first ? nullptr : layout_glyph(font, previous);
    for (u64 i = 0; i < bytes;) {
        const layout_step_t s = layout_step(font, text, i, bytes);
        if (s.code_point == '\n' || s.code_point == '\r') return;
        f32 w = layout_step_width(font, s, previous_glyph, first);
        if (!step(i, s.size, w)) return;
        first = false;
        previous_glyph = s.glyph;
        i += s.size;
    }
}

} // namespace

vec2 layout_get_single_line_size(const font_t *font, const u8 *text, u64 bytes, u32 previous_code_point) {
    PROFILE_SCOPE(layout_get_single_line_size);
    f32 width = 0;
    layout_walk_line(font, text, bytes, previous_code_point, [&](u64, u32, f32 w) {
        width += w;
        return true;
    });
    return vec2{width, width != 0 ? font_line_height(font, false) : 0.0f};
}

u64 layout_get_byte_at_position(const font_t *font, const u8 *text, u64 bytes, f32 position) {
    PROFILE_SCOPE(layout_get_byte_at_position);
    f32 x = 0;
    u64 result = 0;
    layout_walk_line(font, text, bytes, code_point_none, [&](u64 offset, u32 size, f32 w) {
        result = offset;
        if (roundf(x + w * 0.5f) > position) return false;
        x += w;
        result = offset + size;
        return true;
    });
    return result;
}

u64 layout_fit_single_line(const font_t *font, const data_t *text, u32 previous_code_point, f32 max_width,
                           data_t *out, vec2 *out_size, u32 flags) {
    PROFILE_SCOPE(layout_fit_single_line);
    static const u8 ellipsis[] = {0xE2, 0x80, 0xA6}; // U+2026
    const f32 e = layout_glyph(font, 0x2026)->advance;
    f32 x = 0, cut_x = 0;
    u64 cut = 0, fitted = 0;
    bool all = true;
    layout_walk_line(font, text->bytes, text->used, previous_code_point, [&](u64 offset, u32 size, f32 w) {
        if (x + e < max_width) {
            cut = offset;
            cut_x = x;
        }
        if (x + w > max_width) {
            all = false;
            return false;
        }
        x += w;
        fitted = offset + size;
        return true;
    });
    u64 taken;
    f32 width;
    bool dots = false;
    if (all || (flags & layout_fit_no_ellipsis)) {
        taken = fitted;
        width = x;
    } else {
        taken = cut;
        width = cut_x;
        if (e <= max_width) {
            dots = true;
            width += e;
        }
    }
    if (out) {
        assert_message(out->reserved >= text->used + 2, "No room for the fitted text.");
        memory_copy(out->bytes, text->bytes, taken);
        out->used = taken;
        if (dots) {
            memory_copy(out->bytes + taken, ellipsis, 3);
            out->used += 3;
        }
    }
    if (out_size) *out_size = vec2{width, font_line_height(font, false)};
    return taken;
}
