// ui_state.h - the core of the immediate-mode toolkit: widget ids, which one
// is hot (under the pointer) and which active (being worked with), the small
// table of per-widget state, the one popup, hit testing, and the pair, the
// draggable divider between two panels. No widget object lives between
// frames: a widget is a call made each frame with an id and a rectangle.
//
// Rectangles are vec4: left, bottom, right, top, in window pixels, y up.
// Rectangles handed to widgets must be whole pixels (asserted).
#pragma once

#include "base/memory.h"
#include "gfx/image.h"

struct window_t;
struct gl_batch_t;
struct gl_renderer_t;
struct font_set_t;
struct layout_t;

// ---- ids ------------------------------------------------------------------------------
// A path of four slots: the first names something that stays put from frame
// to frame (a call site, a record of the caller), each further slot a part
// inside it. Empty slots are 0 and hold the tail.
struct ui_id_t {
    u64 slots[4];
};

// Part numbers used inside widgets (as the signed value of a slot).
enum : i64 {
    ui_part_list = -1,         // a dropdown's list
    ui_part_list_scrollbar = -2,
    ui_part_scroll_first = -4, // scroll bar's top or left button
    ui_part_scroll_second = -5,
    ui_part_scroll_thumb = -6,
    ui_part_scroll_track = -7,
    ui_part_combo_list = -8,
    // the n-th item of a list (from 0) is n + 1
};

// One constant per place in the source: its address is the id. The text is
// never read. ui_id() makes the id of the call site; ui_id(pointer) the id
// of something the caller owns (a value, a record).
#define ui_id_stringify_(x) #x
#define ui_id_stringify(x) ui_id_stringify_(x)
#define ui_id_site_text (__FILE__ "|" ui_id_stringify(__LINE__) "|" ui_id_stringify(__COUNTER__))
#define ui_id_first_(first, ...) first
#define ui_id(...) ui_id_pointer(ui_id_first_(__VA_ARGS__ __VA_OPT__(, ) ui_id_site_text))

ui_id_t ui_id_pointer(const void *pointer);
ui_id_t ui_id_from_value(u64 value);
// Fills the first empty slot; the parent must not be empty, and a full id is
// an assertion.
ui_id_t ui_id_child(ui_id_t parent, i64 value);
bool ui_id_equal(ui_id_t a, ui_id_t b);
// Every non-zero slot of `prefix` equals that slot of `id`, and `prefix`
// isn't empty. An id starts with itself.
bool ui_id_starts_with(ui_id_t id, ui_id_t prefix);
bool ui_id_is_empty(ui_id_t id);
void ui_id_clear(ui_id_t *id);
ui_id_t ui_id_parent(ui_id_t id);      // without its last slot
i64 ui_id_last(ui_id_t id);            // the last non-zero slot
u32 ui_id_slot_count(ui_id_t id);
bool ui_id_is_child(ui_id_t parent, ui_id_t id); // id is one level below parent
bool ui_id_is_sibling(ui_id_t a, ui_id_t b);     // same length, all but the last equal

// ---- small rectangle maths --------------------------------------------------------------
struct ui_spacing_t {
    f32 top, bottom, left, right;
};

vec4 rect_xywh(f32 x, f32 y, f32 width, f32 height);
f32 rect_width(vec4 rect);
f32 rect_height(vec4 rect);
vec4 rect_grow(vec4 rect, ui_spacing_t spacing);   // each edge outwards by its value
vec4 rect_shrink(vec4 rect, ui_spacing_t spacing); // each edge inwards by its value
bool rect_contains_point(vec4 rect, vec2 point); // left and bottom inclusive, right and top exclusive
bool rect_contains_rect(vec4 outer, vec4 inner); // all edges inclusive
bool rect_overlap(vec4 a, vec4 b);               // a common area above 0
vec4 rect_clip(vec4 a, vec4 b);                  // the intersection, all zeros without overlap
bool rect_is_whole(vec4 rect);                   // all four coordinates are whole numbers
vec4 rect_move(vec4 rect, f32 dx, f32 dy);

// ---- state ---------------------------------------------------------------------------------
// Kinds of the widget that holds `active`.
enum : u32 {
    ui_kind_none = 0,
    ui_kind_button = 1,
    ui_kind_checkbox = 2,
    ui_kind_text_edit = 3, // modal
    ui_kind_dropdown = 4,
    ui_kind_scrollbar = 6,
    ui_kind_list = 8,
    ui_kind_pair = 9,
    ui_kind_multi_list = 10, // modal
    ui_kind_multi_list_item = 11,
    ui_kind_combo = 12,
};

enum : u32 {
    ui_pass_all = 0,   // outside a layout: input and drawing in one call
    ui_pass_input = 1, // a layout's input replay
    ui_pass_draw = 2,  // a layout's draw replay
    ui_pass_none = 3,  // a layout's recording: widgets do nothing
};

struct ui_text_edit_state_t {
    f32 scroll;      // pixels scrolled out at the left, never below 0
    u32 caret;       // byte offset
    u32 anchor;      // the other end of the selection; caret when none
    u32 changed;     // text changed since the field was last activated
    u32 changed_now; // text changed in this frame
    u32 mouse_held;  // while set, dragging doesn't move the caret
};

struct ui_dropdown_state_t { // kept under the dropdown's id with child ui_part_list
    u32 opened;              // the list was laid out in this opening
    u32 held;                // the opening press is still down
    ui_id_t pressed_item;
};

struct ui_list_state_t { // kept under the dropdown's own id
    f64 scroll;
};

// 72 bytes: the id, then words of the widget kind, all zero at first.
struct ui_state_t {
    ui_id_t id;
    union {
        u32 words[10];
        ui_text_edit_state_t text_edit;
        ui_dropdown_state_t dropdown;
        ui_list_state_t list;
    };
};
static_assert(sizeof(ui_state_t) == 72, "a state record is 72 bytes");

struct ui_t {
    data_t *frame_memory; // the application's, reset by ui_frame_start
    window_t *window;
    gl_batch_t *rectangles, *text, *icons;                   // the ordinary layer
    gl_batch_t *popup_rectangles, *popup_text, *popup_icons; // the layer above
    ui_atlas_t atlas;         // the icon atlas
    ui_id_t active;           // survives frames
    ui_id_t hot;              // emptied at each frame start
    ui_id_t active_at_start;  // active as it stood when this frame began
    u32 active_kind;
    vec2 mouse, previous_mouse;
    vec4 screen;              // (0, 0, width, height)
    data_t state_memory;      // 1 MB block of the state table
    ui_state_t *states;
    u64 state_count;
    u32 popup_open;
    vec4 popup_rect;
    ui_id_t popup;
    vec4 clip;                // nothing outside can be hit or is drawn
    u32 pass;                 // ui_pass_*
    u32 cursor;               // cursor index wanted at the end of this frame
    font_set_t *font_set;     // fonts for measuring; ui_set_batches takes the text batch's
    u32 popup_touched;        // the popup's owner called ui_popup_open in this frame
};

// Fills the theme, the icon atlas and the state table. The first pointer
// position comes from the window.
ui_t ui_create(data_t *frame_memory, window_t *window);
// Looks up the six batches (rectangles, text, icons, then the same for the
// popup layer); an index of 16 or more leaves the field null, and nothing is
// drawn into a null batch.
void ui_set_batches(ui_t *ui, gl_renderer_t *renderer, u32 rectangles, u32 text, u32 icons, u32 popup_rectangles,
                    u32 popup_text, u32 popup_icons);
// Resets the frame memory, takes the pointer, the screen and the clip,
// empties hot and turns the popup batches' scissors off. A popup whose owner
// wasn't called in the last frame (its view closed) is closed, with the
// active it held, so that it can't leave a dead area on the screen.
void ui_frame_start(ui_t *ui);
void ui_set_clip(ui_t *ui, vec4 rect);
void ui_set_pass(ui_t *ui, u32 pass);
// Layout state 1 gives ui_pass_input, 3 ui_pass_draw, anything else ui_pass_none.
void ui_set_pass_from_layout(ui_t *ui, const layout_t *layout);
bool ui_pass_is_live(const ui_t *ui);
bool ui_pass_has_input(const ui_t *ui);
bool ui_pass_has_draw(const ui_t *ui);

// The first two steps of every widget call: asserts a whole-pixel rectangle,
// then says whether it overlaps the clip at all.
bool ui_widget_begin(const ui_t *ui, vec4 rect);

// Found or made by a linear search: the record of this id, else the first
// free one, else a new one.
ui_state_t *ui_state_get(ui_t *ui, ui_id_t id);

bool ui_hit_test(const ui_t *ui, ui_id_t id, vec4 rect, vec2 point);
void ui_set_hot(ui_t *ui, ui_id_t id);
// For the parts of a scroll bar: only the first slot of `active` is asked for.
void ui_set_hot_family(ui_t *ui, ui_id_t id);
// For list items: a sibling of `active` counts too.
void ui_set_hot_sibling(ui_t *ui, ui_id_t id);
void ui_force_hot(ui_t *ui, ui_id_t id);
bool ui_is_hot(const ui_t *ui, ui_id_t id);

bool ui_set_active(ui_t *ui, ui_id_t id, u32 kind);
void ui_force_active(ui_t *ui, ui_id_t id, u32 kind);
// For a dropdown: closes when active is id or inside it (result 0), else
// takes active as ui_set_active does.
bool ui_toggle_active(ui_t *ui, ui_id_t id, u32 kind);
// When active lies inside id, active becomes id less its last slot.
void ui_activate_parent(ui_t *ui, ui_id_t id);
bool ui_is_active(const ui_t *ui, ui_id_t id);
bool ui_any_active(const ui_t *ui);
void ui_clear_active(ui_t *ui); // leaves active_kind
bool ui_kind_is_modal(u32 kind);
// The left button went down in this frame, or went up: also when the other
// half of a quick click came in the same frame (a touchpad tap).
bool ui_mouse_pressed(const ui_t *ui);
bool ui_mouse_released(const ui_t *ui);
// A key went down or repeated in this frame, also when it was released again
// before the frame ran.
bool ui_key_pressed(const ui_t *ui, u32 key);

// The owner calls it in every frame while its popup stays open.
void ui_popup_open(ui_t *ui, ui_id_t id, vec4 rect);
void ui_popup_close(ui_t *ui);
// A popup is open and id lies in it: the widget draws in the popup layer.
bool ui_in_popup(const ui_t *ui, ui_id_t id);

// The end of the window content: the cursor of this frame, if the pointer
// lies in the window.
void ui_apply_cursor(ui_t *ui);

// The batches a widget of this id draws into: the popup layer or the ordinary one.
struct ui_batches_t {
    gl_batch_t *rectangles, *text, *icons;
};
ui_batches_t ui_batches_for(const ui_t *ui, ui_id_t id);

// ---- the pair -------------------------------------------------------------------------------
// A rectangle divided into a first panel, a divider and a second panel, side
// by side or (vertical) one above the other. `size` is the first panel's
// extent; dragging the divider changes it.
struct ui_pair_t {
    vec4 first_rect, second_rect, divider_rect;
    ui_spacing_t first_margin, second_margin;
    f32 size;
    u32 vertical;
};

ui_pair_t ui_pair_make(ui_spacing_t first_margin, ui_spacing_t second_margin, f32 size, bool vertical);
void ui_pair_place(ui_pair_t *pair, vec4 rect);
void ui_pair_update(ui_t *ui, ui_id_t id, ui_pair_t *pair, vec4 rect, bool clamp);
// The divider grown by `spacing`, in the pair style's fill of its state; the
// resize cursor while hot or active.
void ui_pair_draw(ui_t *ui, ui_id_t id, const ui_pair_t *pair, ui_spacing_t spacing);
