// widgets.h - the widgets: button, icon button, check box, dropdown with its
// popup list, scroll bars and the wheel, and the bars of a layout. Each is one
// call per frame (id, whole-pixel rectangle, values by pointer, result for the
// caller) made of an input half and a draw half, so that the recording, input
// and draw passes of a layout all see the same call. A size function goes
// with each, since the view computes the rectangles.
//
// Fonts are indexes into the ui's font set (0 Verdana 14, 1 Verdana 16,
// 2 Verdana 20, 3 Lucida Console 12).
#pragma once

#include "toolkit/ui_state.h"

// ---- theme -------------------------------------------------------------------------------
enum : u32 {
    ui_state_normal = 0,
    ui_state_hot = 1,
    ui_state_active = 2,
};

struct ui_style_t {
    ui_spacing_t border;
    ui_spacing_t padding;
    vec4 border_colour[3]; // normal, hot, active
    vec4 fill_colour[3];
    vec4 text_colour[3];
};

struct ui_theme_t {
    ui_style_t button;
    ui_style_t checkbox;
    ui_style_t text_edit;
    ui_style_t dropdown;
    ui_style_t dropdown_item;
    ui_style_t scrollbar;
    ui_style_t scrollbar_track;
    ui_style_t pair;
    ui_style_t list;
    ui_style_t list_item;
};

// Filled once by ui_create (ui_theme_init).
extern ui_theme_t ui_theme;
void ui_theme_init();

constexpr f32 ui_scrollbar_thickness = 16;

// Icon numbers: the atlas's seven and four turned ones.
enum : u32 {
    ui_icon_chevron_up_14 = 8,    // the down chevron at 14, turned half round
    ui_icon_chevron_up_10 = 9,
    ui_icon_chevron_right_14 = 10, // the left chevron at 14, mirrored
    ui_icon_chevron_right_10 = 11,
};
// Texture rectangle of an icon (0 to 6, 8 to 11); its pixel size in *size.
vec4 ui_icon_uv(const ui_t *ui, u32 icon, vec2 *size);
// Draws an icon centred in `rect` (whole pixels) in `colour`.
void ui_draw_icon(const ui_t *ui, ui_id_t id, vec4 rect, u32 icon, vec4 colour);

// ---- drawing helpers ------------------------------------------------------------------------
// ui_state_active when active and hot, ui_state_hot when hot, else normal.
u32 ui_style_state(const ui_t *ui, ui_id_t id);
// `rect` in the border colour, then shrunk by the border in the fill colour,
// into the layer of `id`.
void ui_draw_box(const ui_t *ui, ui_id_t id, vec4 rect, const ui_style_t *style, u32 state);
// `rect` shrunk by the style's border and padding.
vec4 ui_style_content(const ui_style_t *style, vec4 rect);
// A label fitted into `width` with "…" as needed, copied to frame memory.
// `*size` gets its width and height.
data_t ui_fit_label(ui_t *ui, data_t label, u32 font, f32 width, vec2 *size);

// Text at the pen (x, baseline y); with skip_bearing the first glyph's ink
// starts at x. Bytes that are no valid UTF-8 draw as U+FFFD.
void ui_draw_text(ui_t *ui, gl_batch_t *batch, data_t text, f32 x, f32 y, u32 font, vec4 colour, bool skip_bearing);

// ---- sizes (width, height) -------------------------------------------------------------------
// Border and padding around no text; height adds the font's line height.
// The height of every single-line control.
vec2 ui_text_box_size(const ui_t *ui, const ui_style_t *style, u32 font);
vec2 ui_button_size(const ui_t *ui, const ui_style_t *style, data_t label, u32 font);
vec2 ui_dropdown_size(const ui_t *ui, const ui_style_t *style, u32 font);
vec2 ui_checkbox_size(const ui_t *ui, const ui_style_t *style, data_t label, u32 font);
f32 ui_style_top(const ui_style_t *style); // border top + padding top

// ---- widgets ----------------------------------------------------------------------------------
// All assert whole-number rectangles and return 0 when clipped away.

// 1 for a click: a press and a release on the button.
u32 ui_button(ui_t *ui, ui_id_t id, vec4 rect, data_t label, u32 font);
// A click flips *value between 0 and 1; returns 1 when it changed.
u32 ui_checkbox_plain(ui_t *ui, ui_id_t id, vec4 rect, u32 *value);
u32 ui_checkbox(ui_t *ui, ui_id_t id, vec4 rect, u32 *value, data_t label, u32 font);
// A box showing items[*selected] that opens a list in the popup layer. A
// choice changes *selected.
void ui_dropdown(ui_t *ui, ui_id_t id, vec4 rect, const data_t *items, u64 item_count, u64 *selected, u32 font);
// The size and place of a dropdown's open list: below the box, or above it
// when that leaves it less cut by the screen.
vec4 ui_dropdown_popup_rect(const ui_t *ui, vec4 rect, u64 item_count, u32 font);

// Scroll bars: `page` the visible extent, `content` the whole, `step` one
// arrow click. Return how much *value changed. Live only when at least 16
// thick and 49 long.
f64 ui_scrollbar_vertical(ui_t *ui, ui_id_t id, vec4 rect, f64 page, f64 content, f64 *value, f64 step);
f32 ui_scrollbar_vertical_f32(ui_t *ui, ui_id_t id, vec4 rect, f32 page, f32 content, f32 *value, f32 step);
f32 ui_scrollbar_horizontal_f32(ui_t *ui, ui_id_t id, vec4 rect, f32 page, f32 content, f32 *value, f32 step);

// One step up goes to the top of the row that is cut, or of the row above a
// whole one; one step down puts the page's bottom on a row boundary.
f64 scroll_step_up(f64 value, f64 step, f64 maximum, u32 lines);
f64 scroll_step_down(f64 value, f64 page, f64 step, f64 maximum, u32 lines);

// The wheel, in the input pass only, with nothing active and the pointer in
// the clip. Returns how much *value changed.
f64 ui_scroll_wheel(ui_t *ui, f64 page, f64 content, f64 step, u32 lines, f64 *value);
f32 ui_scroll_wheel_f32(ui_t *ui, f32 page, f32 content, f32 step, u32 lines, f32 *value);

// The standard bars of a layout over `rect`: clip, wheel, vertical and
// horizontal bar. `scroll` (x, y) is what the view keeps between frames.
// Call it first in every pass's body, before layout_scroll_update, so that a
// scroll made by the wheel or a bar is seen by that check in the same frame.
void ui_layout_scrollbars(vec2 *scroll, ui_t *ui, layout_t *layout, vec4 rect);
