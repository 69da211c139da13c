// app.h - the program's long-lived state: the one record handed to every
// view, and the paths and blocks the entry function owns.
#pragma once

#include "base/memory.h"
#include "base/text.h"

struct window_t;
struct view_state_t;
struct ui_t;
struct gl_renderer_t;
struct feed_query_t;

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
};

constexpr u64 app_frame_memory_size = 0xA00000;
constexpr u64 app_scratch_block_size = 0x500000;
constexpr u64 app_general_block_size = 0x2000000;
constexpr u64 app_font_memory_size = 0x500000;

// Fills user_folder and desktop_folder: the per-user data folder of the
// program (or the value of "-path") and the user's desktop.
void app_paths_init(app_context *app);
