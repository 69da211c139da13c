// layout.h - text layout in passes. A view that shows flowing content writes
// the same short sequence of layout calls inside
//
//     layout_t layout = layout_create(arena, font_set, rect, scroll_x, scroll_y, margins);
//     while (layout_pass_start(&layout)) { ... the calls ... }
//
// The first pass records commands and measures them; later passes replay the
// recording with final screen positions, first for input, then for drawing.
// Between passes the layout decides on scroll bars (16 pixels each), shrinks
// the box and records again when that changed anything. Every pass of one
// recording must make the same calls: a replay that loses step stops the
// program.
//
// Layout space has its origin at the top left of the box and y growing down;
// final positions (segment and box rectangles after layout_end) are window
// pixels, y up, rectangles as left, bottom, right, top.
#pragma once

#include "base/memory.h"

struct font_t;
struct font_set_t;
struct gl_batch_t;

// Space inside the box, in this order.
struct layout_margin_t {
    f32 top, bottom, left, right;
};

// Command kinds. (layout_string and layout_move name the calls that make
// kinds 1 and 2, so the kinds carry the word "kind".)
enum : u32 {
    layout_kind_string = 1,
    layout_kind_move = 2,
    layout_kind_line_box = 3,
    layout_kind_line_start = 4,
    layout_kind_font = 5,
    layout_kind_colour_push = 6,
    layout_kind_colour_pop = 7,
    layout_kind_flags = 8,
    layout_kind_box = 9,
    layout_kind_user = 10,
    layout_kind_fill = 11,
    layout_kind_end_of_content = 12,
};

// layout_set_flags
enum : u32 {
    layout_flag_keep_partial = 1,  // a glyph partly inside the box is kept
    layout_flag_no_scroll_clamp = 2, // layout_end leaves the scroll values alone
    layout_flag_no_vertical_bar = 4,
    layout_flag_no_horizontal_bar = 8,
};

// layout_move
enum : u32 {
    layout_move_ceil_x = 1,
    layout_move_ceil_y = 2,
};

// layout_set_line_box
enum : u32 {
    layout_line_break_anywhere = 1,
    layout_line_drop_break_space = 2,
};

// layout_add_box
enum : u32 {
    layout_box_move_right = 1,
    layout_box_move_down = 2,
    layout_box_whole_pixels = 4,
};

// layout_fit_single_line
enum : u32 {
    layout_fit_no_ellipsis = 1,
};

// Pass states.
enum : u32 {
    layout_state_record = 0,
    layout_state_input = 1,
    layout_state_record_again = 2,
    layout_state_draw = 3,
    layout_state_done = 4,
};

constexpr f32 layout_bar_size = 16.0f;
constexpr f32 layout_no_line_width = 3.40282347e38f; // the largest float: lines never break

// The part of one line of a string that is visible: what gets drawn. rect
// spans the line; its left is the pen for gl_batch_text without bearing skip.
struct layout_segment_t {
    vec4 rect;
    const u8 *text;
    u64 bytes;
    u32 glyphs;
};
static_assert(sizeof(layout_segment_t) == 40, "segments are 40 bytes");

struct layout_command_t {
    u32 kind;
    union {
        struct {
            layout_segment_t *segments; // in the arena, after layout_end; null until then
            u32 segment_count;
            f32 pen_x; // the pen after the string, in layout space
            const u8 *text;
            u64 bytes;
            vec4 bounds; // after layout_end: window pixels, left, bottom, right, top
            f32 line_height;
            f32 line_gap;
            f32 descent;
            f32 pen_y;
        } string;
        struct {
            f32 dx, dy;
            u32 flags;
        } move;
        struct {
            f32 left, width;
            u32 break_anywhere, drop_break_space;
        } line_box;
        struct {
            u32 index;
        } font;
        struct {
            vec4 colour;
            layout_command_t *previous; // the push below this one, or null
        } colour_push;
        struct {
            u32 flags;
        } flags;
        struct {
            void *user;
            vec4 rect; // after layout_end: window pixels, left, bottom, right, top
            u32 flags;
        } box;
        struct {
            u64 a, b;
        } user;
        struct {
            f32 width;
        } fill;
    };
};
static_assert(sizeof(layout_command_t) == 72, "commands are 72 bytes");

// Returned by value from layout_create and not moved after.
struct layout_t {
    data_t *arena;
    data_t arena_mark;
    font_set_t *font_set;
    f32 x, y, width, height;
    f32 scroll_x, scroll_y;
    layout_margin_t margin;
    f32 content_width, content_height;
    f32 line_left;
    f32 cursor_x, cursor_y;
    u32 font;
    vec4 colour;
    f32 line_width;
    u32 break_anywhere;
    u32 drop_break_space;
    u32 end_seen;
    u32 flags;
    u32 state;
    u32 next_command;
    u32 has_vertical_bar, has_horizontal_bar;
    u32 dirty; // also set in a recording that has outgrown the box before its bar came
    f32 old_scroll_x, old_scroll_y;
    u32 pass_count;
    u32 scroll_checked;
    layout_command_t *commands;
    u32 command_count;
    layout_command_t dummy;
    layout_command_t *colour_stack;
};

// ---- the passes ----------------------------------------------------------------------------
// rect: left, bottom, right, top in window pixels.
layout_t layout_create(data_t *arena, font_set_t *font_set, vec4 rect, f32 scroll_x, f32 scroll_y,
                       layout_margin_t margins);
// Ends the previous pass, starts the next; false when all passes are done.
bool layout_pass_start(layout_t *layout);
void layout_pass_end(layout_t *layout);
bool layout_is_recording(const layout_t *layout);
// The input pass's check, first thing in its body: true when the scroll
// changed, and then the body writes no commands (a new recording follows).
// Otherwise (or with force) the final positions are computed here.
bool layout_scroll_update(layout_t *layout, bool force);
// What the view just did needs a new recording; further calls of this pass
// get `dummy`.
void layout_invalidate(layout_t *layout);
// True in the first recording once the content has outgrown the box in a
// direction whose bar isn't reserved yet, and in a recording after a change
// once it has outgrown the box's height without a vertical bar: the
// recording will be repeated, so the view may stop it.
bool layout_is_settled(const layout_t *layout);
bool layout_wants_vertical_bar(const layout_t *layout);
bool layout_wants_horizontal_bar(const layout_t *layout);
bool layout_has_vertical_bar(const layout_t *layout);
bool layout_has_horizontal_bar(const layout_t *layout);
// Computes the final positions of the recording. Called by the passes; a view
// that lays out once without passes calls it after layout_finish.
void layout_end(layout_t *layout, bool stop_at_bottom);
// Lays one string command; final puts its segments in the arena.
void layout_text(layout_t *layout, layout_command_t *command, bool final);

// ---- the calls a view makes ----------------------------------------------------------------
// Each records a command (recording passes) or takes the next recorded one
// (replay passes) and returns it; `dummy` while the pass is stale, null when
// the arena is full.
layout_command_t *layout_set_flags(layout_t *layout, u32 flags);
layout_command_t *layout_set_font(layout_t *layout, u32 index);
layout_command_t *layout_push_colour(layout_t *layout, vec4 colour);
layout_command_t *layout_pop_colour(layout_t *layout); // a pop to nothing gives white
// The text must live until the passes end.
layout_command_t *layout_string_p(layout_t *layout, const u8 *text, u64 bytes);
layout_command_t *layout_string(layout_t *layout, data_t text);
// The pen goes to line_left below everything so far.
layout_command_t *layout_new_line(layout_t *layout);
layout_command_t *layout_move(layout_t *layout, f32 dx, f32 dy, u32 flags);
// left 0 means the left margin.
layout_command_t *layout_set_line_box(layout_t *layout, f32 left, f32 width, u32 flags);
// The command's rect, in replay passes, is the box on the screen.
layout_command_t *layout_add_box(layout_t *layout, f32 width, f32 height, void *user, u32 flags);
layout_command_t *layout_add_user(layout_t *layout, u64 a, u64 b);
// The command's fill.width: from the pen to the right edge of the content.
layout_command_t *layout_fill_width(layout_t *layout);
layout_command_t *layout_fill_width_floor(layout_t *layout);
// The last call of every pass, exactly once.
layout_command_t *layout_finish(layout_t *layout);

// ---- walking a finished layout ------------------------------------------------------------
// A string or box whose bounds overlap the box.
bool layout_command_visible(const layout_t *layout, const layout_command_t *command);
// Font and colour commands take effect on font, colour and colour_stack.
void layout_replay_state(layout_t *layout, const layout_command_t *command);
// Every segment of a string command into a text batch, in the layout's
// current font and colour, on the font's baseline.
void layout_draw_string(const layout_t *layout, const layout_command_t *command, gl_batch_t *batch);
// Walks all recorded commands from the start: font and colour as recorded,
// strings drawn into the batch. For views without boxes of their own.
void layout_draw(layout_t *layout, gl_batch_t *batch);

// ---- measuring without a layout -------------------------------------------------------------
// previous_code_point: code_point_none for none.
// Width and height of the text up to the first CR or LF; height 0 when the
// width is 0.
vec2 layout_get_single_line_size(const font_t *font, const u8 *text, u64 bytes, u32 previous_code_point);
// Byte offset of the caret for a horizontal position in pixels from the
// text's left edge.
u64 layout_get_byte_at_position(const font_t *font, const u8 *text, u64 bytes, f32 position);
// Fits the first line of the text into max_width, ending a cut text in "…"
// unless flags has layout_fit_no_ellipsis. out (may be null) gets the text
// and must have room for text->used + 2 bytes; out_size (may be null) gets
// its width and the line height. Returns the bytes taken from the text.
u64 layout_fit_single_line(const font_t *font, const data_t *text, u32 previous_code_point, f32 max_width,
                           data_t *out, vec2 *out_size, u32 flags);
