// view_state.h - what outlives a frame in the views, and the context every
// view function is handed. The views keep nothing else between frames: the
// toolkit is immediate-mode, so everything is drawn anew from the reader and
// this record.
#pragma once

#include "base/memory.h"
#include "base/text.h"
#include "html/tokenizer.h"
#include "html/tree.h"

struct feed_t;
struct entry_t;
struct window_t;
struct ui_t;
struct gl_renderer_t;
struct font_set_t;
struct feed_query_t;
struct feed_query_context_t;
struct file_storage_t;

// Which view fills the right side of the window.
enum : u32 {
    panel_content = 0, // the selected feed or entry; the help text without a selection
    panel_help = 1,
    panel_add_feed = 2,
    panel_links = 3,
    panel_log = 4,
};

// The dropdown of the left menu: which records the list shows.
enum : u32 {
    list_filter_feeds = 0,   // feeds and entries not marked deleted
    list_filter_deleted = 1, // only what is marked deleted
    list_filter_both = 2,
};

// The capacity of each text field kept in the record.
constexpr u64 view_text_field_size = 1024;

// The article address space and its committed front.
constexpr u64 view_article_space_size = 0x6400000;
constexpr u64 view_article_commit_step = 0x100000;

struct view_state_t {
    feed_t *selected_feed;   // null when nothing is selected
    entry_t *selected_entry; // never set without selected_feed, which is its feed
    f32 list_scroll;         // pixels from the top of the list to the top of the panel, never negative
    vec2 content_scroll;     // the feed and entry views
    vec2 add_feed_scroll;
    vec2 links_scroll;
    vec2 help_scroll;
    vec2 log_scroll;
    data_t article_space;  // address space for the parsed article
    data_t article_memory; // the committed front of article_space
    u32 article_ready;     // the selection's article has been parsed
    html_tokens_t article_tokens;
    html_tree_t article_tree;
    data_t article_walk;
    u64 article_command_count; // layout commands after the article's measuring
    u32 redraw_requested;      // run one more frame without waiting for input
    u32 key_navigated;         // a navigation key acted in this frame
    u32 show_empty;            // "Show empty"
    u32 generation_minimum;    // the shown range of generations, inclusive
    u32 generation_maximum;
    u32 log_auto_scroll; // "Auto scroll."
    // Four text fields whose text lives in this record, so they can neither
    // grow nor fail; the text editor stops at the capacity.
    data_t add_feed_url;
    data_t add_feed_import_path;
    data_t add_feed_export_path;
    data_t feed_url_text; // the "URI: " field of the feed views
    u32 panel;            // panel_*
    u32 list_filter;      // list_filter_*
    u8 add_feed_url_bytes[view_text_field_size];
    u8 add_feed_import_path_bytes[view_text_field_size];
    u8 add_feed_export_path_bytes[view_text_field_size];
    u8 feed_url_text_bytes[view_text_field_size];
};

// Zeroes the record and points the four text fields at their bytes; the
// shown range starts at the generation the reader was loaded with, the add
// feed panel is open, auto scroll is on. The article memory is the article
// code's to set up.
void view_state_init(view_state_t *state, u32 start_generation);

// The program's long-lived state, handed to every view: frame memory, the
// window and its input, the view state, the toolkit, the renderer and the
// fetching machinery.
struct app_context {
    data_t frame_memory; // 10 MB, emptied at the end of each frame
    window_t *window;
    view_state_t *view_state;
    ui_t *ui;
    gl_renderer_t *renderer;
    feed_query_t *feed_queries;
    u64 feed_query_count;
    u32 start_generation;
    u8 user_folder_buffer[4096];
    data_t user_folder; // where the reader files live
    u8 desktop_folder_buffer[4096];
    data_t desktop_folder; // default place of the feed list file
    // What the fetching actions of the views need besides the slots.
    feed_query_context_t *feed_query_context;
    file_storage_t *file_storage;
    font_set_t *font_set; // the four fonts: Verdana 14, 16, 20, Lucida Console 12
};
