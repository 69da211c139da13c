// ui_state.cpp - ids, hot and active, the state table, the popup, hit
// testing and the pair.
#include "toolkit/ui_state.h"

#include "gfx/renderer.h"
#include "gfx/window.h"
#include "toolkit/widgets.h"

#include <math.h>

// ---- ids ------------------------------------------------------------------------------------------
ui_id_t ui_id_pointer(const void *pointer) {
    assert_true(pointer);
    return ui_id_t{{(u64)(uintptr_t)pointer, 0, 0, 0}};
}

ui_id_t ui_id_from_value(u64 value) {
    assert_true(value != 0);
    return ui_id_t{{value, 0, 0, 0}};
}

u32 ui_id_slot_count(ui_id_t id) {
    u32 count = 0;
    while (count < 4 && id.slots[count] != 0) ++count;
    return count;
}

ui_id_t ui_id_child(ui_id_t parent, i64 value) {
    assert_message(parent.slots[0] != 0, "A child of an empty id.");
    assert_true(value != 0);
    u32 count = ui_id_slot_count(parent);
    assert_message(count < 4, "An id has four slots at most.");
    parent.slots[count] = (u64)value;
    return parent;
}

bool ui_id_equal(ui_id_t a, ui_id_t b) {
    return a.slots[0] == b.slots[0] && a.slots[1] == b.slots[1] && a.slots[2] == b.slots[2] &&
           a.slots[3] == b.slots[3];
}

bool ui_id_starts_with(ui_id_t id, ui_id_t prefix) {
    if (prefix.slots[0] == 0) return false;
    for (u32 i = 0; i < 4; ++i) {
        if (prefix.slots[i] != 0 && prefix.slots[i] != id.slots[i]) return false;
    }
    return true;
}

bool ui_id_is_empty(ui_id_t id) { return id.slots[0] == 0; }

void ui_id_clear(ui_id_t *id) { *id = ui_id_t{}; }

ui_id_t ui_id_parent(ui_id_t id) {
    u32 count = ui_id_slot_count(id);
    if (count) id.slots[count - 1] = 0;
    return id;
}

i64 ui_id_last(ui_id_t id) {
    u32 count = ui_id_slot_count(id);
    return count ? (i64)id.slots[count - 1] : 0;
}

bool ui_id_is_child(ui_id_t parent, ui_id_t id) {
    u32 count = ui_id_slot_count(parent);
    return count > 0 && ui_id_slot_count(id) == count + 1 && ui_id_starts_with(id, parent);
}

bool ui_id_is_sibling(ui_id_t a, ui_id_t b) {
    u32 count = ui_id_slot_count(a);
    if (count == 0 || count != ui_id_slot_count(b)) return false;
    for (u32 i = 0; i + 1 < count; ++i) {
        if (a.slots[i] != b.slots[i]) return false;
    }
    return true;
}

// ---- rectangles -----------------------------------------------------------------------------------
vec4 rect_xywh(f32 x, f32 y, f32 width, f32 height) { return vec4{x, y, x + width, y + height}; }

f32 rect_width(vec4 rect) { return rect.z - rect.x; }
f32 rect_height(vec4 rect) { return rect.w - rect.y; }

vec4 rect_grow(vec4 rect, ui_spacing_t s) {
    return vec4{rect.x - s.left, rect.y - s.bottom, rect.z + s.right, rect.w + s.top};
}

vec4 rect_shrink(vec4 rect, ui_spacing_t s) {
    return vec4{rect.x + s.left, rect.y + s.bottom, rect.z - s.right, rect.w - s.top};
}

bool rect_contains_point(vec4 rect, vec2 p) { return p.x >= rect.x && p.x < rect.z && p.y >= rect.y && p.y < rect.w; }

bool rect_contains_rect(vec4 outer, vec4 inner) {
    return inner.x >= outer.x && inner.y >= outer.y && inner.z <= outer.z && inner.w <= outer.w;
}

bool rect_overlap(vec4 a, vec4 b) {
    return fminf(a.z, b.z) - fmaxf(a.x, b.x) > 0 && fminf(a.w, b.w) - fmaxf(a.y, b.y) > 0;
}

vec4 rect_clip(vec4 a, vec4 b) {
    if (!rect_overlap(a, b)) return vec4{};
    return vec4{fmaxf(a.x, b.x), fmaxf(a.y, b.y), fminf(a.z, b.z), fminf(a.w, b.w)};
}

vec4 rect_move(vec4 rect, f32 dx, f32 dy) { return vec4{rect.x + dx, rect.y + dy, rect.z + dx, rect.w + dy}; }

bool rect_is_whole(vec4 r) { return floorf(r.x) == r.x && floorf(r.y) == r.y && floorf(r.z) == r.z && floorf(r.w) == r.w; }

ui_theme_t ui_theme;

// ---- theme ----------------------------------------------------------------------------------------
static ui_style_t ui_style_make(f32 border, ui_spacing_t padding, vec4 border_normal, vec4 border_hot,
                                vec4 border_active, vec4 fill_normal, vec4 fill_hot, vec4 fill_active, vec4 text) {
    ui_style_t style = {};
    style.border = ui_spacing_t{border, border, border, border};
    style.padding = padding;
    style.border_colour[0] = border_normal;
    style.border_colour[1] = border_hot;
    style.border_colour[2] = border_active;
    style.fill_colour[0] = fill_normal;
    style.fill_colour[1] = fill_hot;
    style.fill_colour[2] = fill_active;
    style.text_colour[0] = style.text_colour[1] = style.text_colour[2] = text;
    return style;
}

void ui_theme_init() {
    const vec4 grey75 = {0.75f, 0.75f, 0.75f, 1}, grey5 = {0.5f, 0.5f, 0.5f, 1}, blue = {0, 0.48f, 0.8f, 1};
    const vec4 magenta = {1, 0, 1, 1}, white = {1, 1, 1, 1}, black = {0, 0, 0, 1};
    const ui_spacing_t pad_button = {2, 2, 10, 10}, pad_1 = {1, 1, 1, 1}, pad_2 = {2, 2, 2, 2};
    ui_theme = {};
    ui_theme.button = ui_style_make(1, pad_button, grey75, blue, blue, grey5, grey5, blue, white);
    ui_theme.checkbox = ui_style_make(1, pad_1, grey75, blue, blue, grey5, grey5, blue, white);
    ui_theme.text_edit = ui_style_make(1, pad_2, grey75, blue, blue, white, white, white, black);
    ui_theme.dropdown = ui_style_make(1, pad_2, grey75, blue, blue, white, white, white, black);
    ui_theme.dropdown_item = ui_style_make(0, ui_spacing_t{1, 1, 3, 3}, magenta, magenta, magenta, white, blue, blue,
                                           black);
    ui_theme.scrollbar = ui_style_make(1, pad_2, grey75, blue, blue, grey5, grey5, blue, white);
    ui_theme.scrollbar_track.fill_colour[0] = vec4{0.13f, 0.13f, 0.14f, 1};
    ui_theme.pair = ui_style_make(1, ui_spacing_t{2, 2, 10, 10}, grey75, blue, blue, grey5, grey75, blue, white);
    ui_theme.list = ui_style_make(1, pad_2, grey75, blue, blue, white, white, white, black);
    ui_theme.list_item = ui_style_make(0, ui_spacing_t{2, 2, 3, 3}, magenta, magenta, magenta, white, blue, blue,
                                       black);
}

// ---- the ui record ----------------------------------------------------------------------------------
constexpr u64 ui_state_memory_size = 0x100000;

ui_t ui_create(data_t *frame_memory, window_t *window) {
    ui_t ui = {};
    ui_theme_init();
    ui.frame_memory = frame_memory;
    ui.window = window;
    ui_icon_source_t icons[ui_icon_count];
    ui_icon_sources(icons);
    ui.atlas = ui_atlas_create(icons, ui_icon_count, 1);
    ui.state_memory = data_virtual_alloc(ui_state_memory_size, 0);
    assert_message(ui.state_memory.bytes, "No memory for the UI's state table.");
    ui.states = (ui_state_t *)ui.state_memory.bytes;
    if (window) {
        ui.mouse = vec2{(f32)window->mouse_x, (f32)window->mouse_y};
        ui.screen = vec4{0, 0, (f32)window->width, (f32)window->height};
    }
    ui.previous_mouse = ui.mouse;
    ui.clip = ui.screen;
    ui.pass = ui_pass_all;
    return ui;
}

void ui_set_batches(ui_t *ui, gl_renderer_t *renderer, u32 rectangles, u32 text, u32 icons, u32 popup_rectangles,
                    u32 popup_text, u32 popup_icons) {
    auto get = [renderer](u32 index) -> gl_batch_t * {
        return renderer && index < gl_max_batches ? gl_batch_get(renderer, index, false) : nullptr;
    };
    ui->rectangles = get(rectangles);
    ui->text = get(text);
    ui->icons = get(icons);
    ui->popup_rectangles = get(popup_rectangles);
    ui->popup_text = get(popup_text);
    ui->popup_icons = get(popup_icons);
    if (ui->text && ui->text->font_set) ui->font_set = ui->text->font_set;
}

void ui_frame_start(ui_t *ui) {
    if (ui->frame_memory) data_reset(ui->frame_memory);
    ui->previous_mouse = ui->mouse;
    if (ui->window) {
        ui->mouse = vec2{(f32)ui->window->mouse_x, (f32)ui->window->mouse_y};
        ui->screen = vec4{0, 0, (f32)ui->window->width, (f32)ui->window->height};
    }
    ui->clip = ui->screen;
    ui->pass = ui_pass_all;
    ui_id_clear(&ui->hot);
    if (ui->popup_open && !ui->popup_touched) {
        ui_id_t owner = ui_id_parent(ui->popup);
        if (!ui_id_is_empty(owner) && ui_id_starts_with(ui->active, owner)) ui_clear_active(ui);
        ui_popup_close(ui);
    }
    ui->popup_touched = 0;
    ui->active_at_start = ui->active;
    gl_batch_t *popup_batches[3] = {ui->popup_rectangles, ui->popup_text, ui->popup_icons};
    for (gl_batch_t *batch : popup_batches) {
        if (batch) gl_batch_scissor(batch, false, 0, 0, 0, 0);
    }
    ui->cursor = cursor_arrow;
}

void ui_set_clip(ui_t *ui, vec4 rect) { ui->clip = rect; }
void ui_set_pass(ui_t *ui, u32 pass) { ui->pass = pass; }
bool ui_pass_is_live(const ui_t *ui) { return ui->pass != ui_pass_none; }
bool ui_pass_has_input(const ui_t *ui) { return ui->pass == ui_pass_all || ui->pass == ui_pass_input; }
bool ui_pass_has_draw(const ui_t *ui) { return ui->pass == ui_pass_all || ui->pass == ui_pass_draw; }

bool ui_widget_begin(const ui_t *ui, vec4 rect) {
    assert_message(rect_is_whole(rect), "A widget's rectangle must be whole pixels.");
    return rect_overlap(rect, ui->clip);
}

ui_state_t *ui_state_get(ui_t *ui, ui_id_t id) {
    ui_state_t *free_record = nullptr;
    for (u64 i = 0; i < ui->state_count; ++i) {
        ui_state_t *state = &ui->states[i];
        if (ui_id_equal(state->id, id)) return state;
        if (!free_record && ui_id_is_empty(state->id)) free_record = state;
    }
    if (!free_record) {
        free_record = (ui_state_t *)data_push(&ui->state_memory, sizeof(ui_state_t), 8);
        assert_message(free_record, "The UI's state table is full.");
        ++ui->state_count;
    }
    memory_zero(free_record, sizeof(*free_record));
    free_record->id = id;
    return free_record;
}

// ---- hot and active -----------------------------------------------------------------------------------
bool ui_kind_is_modal(u32 kind) { return kind == ui_kind_text_edit || kind == ui_kind_multi_list; }

bool ui_hit_test(const ui_t *ui, ui_id_t id, vec4 rect, vec2 point) {
    if (ui->popup_open && ui_id_starts_with(id, ui->popup)) {
        assert_message(rect_contains_rect(ui->popup_rect, rect), "A part of the popup lies outside it.");
        return rect_contains_point(rect, point);
    }
    if (!rect_contains_point(rect_clip(rect, ui->clip), point)) return false;
    return !(ui->popup_open && rect_contains_point(ui->popup_rect, point));
}

// Whether `active` allows another widget to become hot this frame: it hasn't
// changed since the frame began, and `accepts` says the id belongs to it.
static bool ui_hot_allowed(const ui_t *ui, bool accepts) {
    if (ui_kind_is_modal(ui->active_kind)) return true;
    bool unchanged = ui_id_is_empty(ui->active_at_start) || ui_id_equal(ui->active_at_start, ui->active);
    return unchanged && (ui_id_is_empty(ui->active) || accepts);
}

void ui_set_hot(ui_t *ui, ui_id_t id) {
    assert_message(!ui_id_is_empty(id), "An empty id can't be hot.");
    if (ui_hot_allowed(ui, ui_id_starts_with(id, ui->active))) ui->hot = id;
}

void ui_set_hot_family(ui_t *ui, ui_id_t id) {
    assert_message(!ui_id_is_empty(id), "An empty id can't be hot.");
    if (ui_hot_allowed(ui, id.slots[0] == ui->active.slots[0])) ui->hot = id;
}

void ui_set_hot_sibling(ui_t *ui, ui_id_t id) {
    assert_message(!ui_id_is_empty(id), "An empty id can't be hot.");
    bool accepts = ui_id_starts_with(id, ui->active) || ui_id_is_sibling(id, ui->active);
    if (ui_hot_allowed(ui, accepts)) ui->hot = id;
}

void ui_force_hot(ui_t *ui, ui_id_t id) { ui->hot = id; }
bool ui_is_hot(const ui_t *ui, ui_id_t id) { return !ui_id_is_empty(id) && ui_id_equal(ui->hot, id); }

bool ui_set_active(ui_t *ui, ui_id_t id, u32 kind) {
    if (!ui_is_hot(ui, id)) return false;
    if (ui_kind_is_modal(ui->active_kind) || ui_id_is_empty(ui->active) || ui_id_starts_with(id, ui->active)) {
        ui->active = id;
        ui->active_kind = kind;
        return true;
    }
    return false;
}

void ui_force_active(ui_t *ui, ui_id_t id, u32 kind) {
    ui->active = id;
    ui->active_kind = kind;
}

bool ui_toggle_active(ui_t *ui, ui_id_t id, u32 kind) {
    if (!ui_id_is_empty(ui->active) && ui_id_starts_with(ui->active, id)) {
        ui_id_clear(&ui->active);
        ui->active_kind = ui_kind_none;
        return false;
    }
    // A sibling in the same family may be hot while another holds active;
    // then nothing opens.
    return ui_set_active(ui, id, kind);
}

void ui_activate_parent(ui_t *ui, ui_id_t id) {
    if (!ui_id_is_empty(ui->active) && ui_id_starts_with(ui->active, id)) ui->active = ui_id_parent(id);
}

bool ui_mouse_pressed(const ui_t *ui) {
    if (!ui->window) return false;
    u32 transitions = key_transitions(ui->window, key_left_button);
    return transitions >= 2 || (transitions == 1 && key_is_down(ui->window, key_left_button));
}

bool ui_mouse_released(const ui_t *ui) {
    if (!ui->window) return false;
    u32 transitions = key_transitions(ui->window, key_left_button);
    return transitions >= 2 || (transitions == 1 && !key_is_down(ui->window, key_left_button));
}

bool ui_key_pressed(const ui_t *ui, u32 key) {
    if (!ui->window) return false;
    return key_went_down_or_repeated(ui->window, key) || key_transitions(ui->window, key) >= 2;
}

bool ui_is_active(const ui_t *ui, ui_id_t id) { return !ui_id_is_empty(id) && ui_id_equal(ui->active, id); }
bool ui_any_active(const ui_t *ui) { return !ui_id_is_empty(ui->active); }
void ui_clear_active(ui_t *ui) { ui_id_clear(&ui->active); }

// ---- popup and cursor ---------------------------------------------------------------------------------
void ui_popup_open(ui_t *ui, ui_id_t id, vec4 rect) {
    assert_message(!ui->popup_open || ui_id_equal(ui->popup, id), "Another popup is open.");
    ui->popup_open = 1;
    ui->popup_touched = 1;
    ui->popup = id;
    ui->popup_rect = rect;
}

void ui_popup_close(ui_t *ui) {
    assert_message(ui->popup_open, "No popup is open.");
    ui->popup_open = 0;
    ui_id_clear(&ui->popup);
    ui->popup_rect = vec4{};
}

bool ui_in_popup(const ui_t *ui, ui_id_t id) { return ui->popup_open && ui_id_starts_with(id, ui->popup); }

ui_batches_t ui_batches_for(const ui_t *ui, ui_id_t id) {
    if (ui_in_popup(ui, id)) return ui_batches_t{ui->popup_rectangles, ui->popup_text, ui->popup_icons};
    return ui_batches_t{ui->rectangles, ui->text, ui->icons};
}

void ui_apply_cursor(ui_t *ui) {
    if (!ui->window || ui->cursor >= cursor_count) return;
    if (!rect_contains_point(ui->screen, ui->mouse)) return;
    void *cursor = ui->window->cursors[ui->cursor];
    if (cursor) window_set_cursor(ui->window, cursor);
}

// ---- the pair ---------------------------------------------------------------------------------------
ui_pair_t ui_pair_make(ui_spacing_t first_margin, ui_spacing_t second_margin, f32 size, bool vertical) {
    ui_pair_t pair = {};
    pair.first_margin = first_margin;
    pair.second_margin = second_margin;
    pair.size = size;
    pair.vertical = vertical ? 1 : 0;
    return pair;
}

void ui_pair_place(ui_pair_t *pair, vec4 rect) {
    const ui_spacing_t &a = pair->first_margin, &b = pair->second_margin;
    if (!pair->vertical) {
        f32 first_left = rect.x + a.left;
        f32 first_right = first_left + pair->size;
        f32 divider_right = first_right + a.right + b.left;
        pair->first_rect = vec4{first_left, rect.y + a.bottom, first_right, rect.w - a.top};
        pair->divider_rect = vec4{first_right, rect.y, divider_right, rect.w};
        pair->second_rect = vec4{divider_right, rect.y + b.bottom, rect.z - b.right, rect.w - b.top};
    } else {
        f32 first_top = rect.w - a.top;
        f32 first_bottom = first_top - pair->size;
        f32 divider_bottom = first_bottom - a.bottom - b.top;
        pair->first_rect = vec4{rect.x + a.left, first_bottom, rect.z - a.right, first_top};
        pair->divider_rect = vec4{rect.x, divider_bottom, rect.z, first_bottom};
        pair->second_rect = vec4{rect.x + b.left, rect.y + b.bottom, rect.z - b.right, divider_bottom};
    }
}

void ui_pair_update(ui_t *ui, ui_id_t id, ui_pair_t *pair, vec4 rect, bool clamp) {
    ui_pair_place(pair, rect);
    if (ui_hit_test(ui, id, pair->divider_rect, ui->mouse)) ui_set_hot(ui, id);
    if (ui_is_hot(ui, id) && ui_mouse_pressed(ui)) ui_set_active(ui, id, ui_kind_pair);
    if (ui_is_active(ui, id) && !key_is_down(ui->window, key_left_button)) ui_clear_active(ui);
    // From the frame after the press: how the pointer came to the divider doesn't count.
    if (ui_is_active(ui, id) && ui_id_equal(ui->active_at_start, id)) {
        bool vertical = pair->vertical != 0;
        f32 pointer = vertical ? ui->mouse.y : ui->mouse.x;
        f32 previous = vertical ? ui->previous_mouse.y : ui->previous_mouse.x;
        f32 low = vertical ? pair->divider_rect.y : pair->divider_rect.x;
        f32 high = vertical ? pair->divider_rect.w : pair->divider_rect.z;
        f32 delta = floorf(pointer - previous);
        // The divider doesn't follow while the pointer is on the wrong side of it.
        if (delta > 0 && pointer < low + delta) delta = 0;
        if (delta < 0 && pointer > high + delta) delta = 0;
        pair->size += vertical ? -delta : delta;
        if (clamp) {
            f32 extent = vertical ? rect_height(rect) : rect_width(rect);
            f32 divider = high - low;
            f32 outer_margin = vertical ? pair->first_margin.top : pair->first_margin.left;
            f32 maximum = extent - divider - outer_margin;
            if (pair->size > maximum) pair->size = maximum;
        }
        if (pair->size < 0) pair->size = 0;
    }
    ui_pair_place(pair, rect);
    assert_message(rect_is_whole(pair->first_rect) && rect_is_whole(pair->second_rect) &&
                       rect_is_whole(pair->divider_rect),
                   "A pair's rectangles must be whole pixels.");
}

void ui_pair_draw(ui_t *ui, ui_id_t id, const ui_pair_t *pair, ui_spacing_t spacing) {
    bool active = ui_is_active(ui, id), hot = ui_is_hot(ui, id);
    u32 state = active ? ui_state_active : hot ? ui_state_hot : ui_state_normal;
    if (active || hot) ui->cursor = pair->vertical ? cursor_resize_north_south : cursor_resize_west_east;
    if (!ui->rectangles) return;
    vec4 rect = rect_grow(pair->divider_rect, spacing);
    gl_batch_rectangle(ui->rectangles, &rect, nullptr, nullptr, ui_theme.pair.fill_colour[state]);
}
