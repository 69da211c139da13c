// views.h - everything the user sees and does: the window content and its two
// menus, the feed list, the right panel's views (entries, feeds, articles,
// links, add feed, help, log) and the opening of links.
//
// Every view has the same three arguments: the context (window and input,
// view state, toolkit, renderer, query slots), the reader, and the rectangle
// it may use (left, bottom, right, top in window pixels, y up). Views keep
// nothing between frames but view_state_t.
#pragma once

#include "base/memory.h"
#include "reader/reader.h"
#include "views/view_state.h"

struct layout_t;
struct html_tree_traversal_t;
struct image_query_t;

// Font indices into the application's font set.
enum : u32 {
    view_font_small = 0,   // Verdana 14
    view_font_normal = 1,  // Verdana 16
    view_font_title = 2,   // Verdana 20
    view_font_console = 3, // Lucida Console 12
};

// The renderer's batch of images (after the two layers of rectangles, text
// and icons); the right panel clips it too.
constexpr u32 view_batch_images = 6;

// ---- window content and right menu --------------------------------------------------
// The frame's drawing: the split of the window, both menus, the list and the
// right panel.
void draw_window_content(app_context *context, reader_t *reader);
// The view that `panel` and the selection call for.
void draw_right_panel(app_context *context, reader_t *reader, vec4 rect);
// The eight buttons of the right menu with their keys F1 to F8.
void draw_menu_right(app_context *context, reader_t *reader, vec4 rect);
// The height of a menu for a side of `width`: one row of buttons, or more
// when the side is too narrow for them.
f32 view_menu_right_height(app_context *context, reader_t *reader, f32 width);
f32 view_menu_left_height(app_context *context, f32 width);
// The content panel comes back, the article is parsed afresh, and a feed
// selected alone fills the address field.
void view_selection_changed(app_context *context);
// Opens the log panel at its top. Also the query scan's hook for a failed
// fetch (its context is the app_context).
void view_show_log(app_context *context);
void view_show_log_hook(void *context);

// ---- left panel ----------------------------------------------------------------------
// What the list shows of the reader in one frame, measured anew each frame.
struct view_list_stats_t {
    u32 feed_count;  // visible feeds
    u32 entry_count; // visible entries in visible feeds
    u32 selected_feed_index; // among the visible feeds; all bits set if none
    u32 selected_feed_slot;  // index into the two arrays; all bits set if none
    u32 entries_before_selected_feed;
    u32 selected_entry_index;   // among all visible entries; all bits set if none
    u32 selected_entry_in_feed; // all bits set if none
    u32 *feed_entry_counts; // visible entries of each used feed, by iteration position
    u32 *feed_updating;     // 1 if a query slot is busy on the feed
    u32 used_feed_count;    // length of the two arrays
};
constexpr u32 view_none = 0xFFFFFFFF;

// The flag filter of the dropdown: what an entry's (and with the feed rule,
// a feed's) deleted bit is tested against.
void view_list_entry_filter(u32 list_filter, u32 *required, u32 *allowed);
void view_list_feed_filter(u32 list_filter, u32 *required, u32 *allowed);
// Whether a feed's block shows, from its visible entries, its deleted mark
// and whether a fetch runs on it.
bool view_list_feed_visible(u32 list_filter, u32 show_empty, u32 visible_entries, bool deleted, bool updating);
// Counts what is visible; the arrays come from `arena`. The selected
// positions are only worked out when key_navigated is set.
view_list_stats_t view_list_measure(app_context *context, reader_t *reader, data_t *arena);
// The navigation keys (Up, Down, Page up and down, Home, End, Delete,
// Return, Backspace); first thing of draw_left_panel.
void view_list_handle_keys(app_context *context, reader_t *reader);
// The list's height in pixels for the measured counts.
f32 view_list_content_height(const view_list_stats_t *stats);
// Keeps the selection in view after a key moved it (list_scroll in pixels).
f32 view_list_keep_visible(f32 list_scroll, f32 panel_height, const view_list_stats_t *stats, bool entry_selected);
void draw_menu_left(app_context *context, reader_t *reader, vec4 rect);
void draw_left_panel(app_context *context, reader_t *reader, vec4 rect);

// ---- article rendering, entry and feed views ---------------------------------------------
void draw_entry_rss(app_context *context, reader_t *reader, vec4 rect);
void draw_entry_atom(app_context *context, reader_t *reader, vec4 rect);
void draw_feed_rss(app_context *context, reader_t *reader, vec4 rect);
void draw_feed_atom(app_context *context, reader_t *reader, vec4 rect);
// Parses the selected entry's HTML into the view state's article memory.
void article_parse(view_state_t *state, const data_t *source, u32 *error);
// The article's content step, called in each layout pass.
void article_layout(view_state_t *state, layout_t *layout, html_tree_traversal_t *walk, u32 font,
                    app_context *context, reader_t *reader);
void html_size_pass(view_state_t *state, layout_t *layout, html_tree_traversal_t *walk, u32 font);
void image_placeholder(layout_t *layout, const data_t *description, const data_t *source, image_query_t *slot);
void image_request_resize(layout_t *layout, image_query_t *slot);
// A block of `size` bytes of the article memory, committing more as needed.
void *article_reserve(view_state_t *state, u64 size);
// Draws a finished layout: its strings into the text batch (and, for
// articles, its images). Every view that uses a layout ends with it.
void view_layout_render(app_context *context, view_state_t *state, layout_t *layout);

// ---- links -----------------------------------------------------------------------------------
// The configuration a feed's links go through: its meta record's, else the
// first one.
link_configuration_t *view_link_configuration(reader_t *reader, const feed_t *feed);
// The one entry for opening a link: queued when the feed's configuration
// queues links, else opened now.
void view_open_link(app_context *context, reader_t *reader, const feed_t *feed, const data_t *link);
// Opens one link now: the configuration's executable with the link as its
// last argument, or the system's handler. False when nothing could start,
// which the user's log says, naming what could not start.
bool link_open(const data_t *link, const link_configuration_t *configuration);
// Opens a configuration's queue (all its links in one start), and with
// `clear` empties it. False when the start failed (the queue then stays).
bool links_open_queue(file_storage_t *storage, link_configuration_t *configuration, bool clear);
void links_open_all(app_context *context, reader_t *reader, bool clear);
void links_clear_queue(file_storage_t *storage, link_configuration_t *configuration);
// Removes one link, given as a piece of the queue's own text.
void links_remove(link_configuration_t *configuration, const data_t *link);
// Words of the queue; 0 unless the configuration queues links.
u32 links_count(const link_configuration_t *configuration);
u32 links_count_all(reader_t *reader);
// Appends a link to a queue in the file storage; false when no block was
// given (the queue is then unchanged).
bool links_queue_append(file_storage_t *storage, link_configuration_t *configuration, const data_t *link);
void draw_links(app_context *context, reader_t *reader, vec4 rect);

// ---- add feed, import, export ------------------------------------------------------------------
void draw_add_feed(app_context *context, reader_t *reader, vec4 rect);
// Writes every feed's address (deleted ones too, slot order), one a line, to
// `path`; an empty path first becomes list.txt in the desktop folder. What
// passes 8192 bytes is dropped. Returns whether the file was written.
bool view_export_list(app_context *context, reader_t *reader, data_t *path);

// ---- help and log -----------------------------------------------------------------------------
void draw_help(app_context *context, reader_t *reader, vec4 rect);
void draw_log(app_context *context, reader_t *reader, vec4 rect);
