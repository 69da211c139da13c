// app.h - the program's long-lived state: the one record handed to every
// view, and the paths and blocks the entry function owns.
#pragma once

#include "base/memory.h"
#include "base/text.h"

#include "views/view_state.h" // app_context and view_state_t

constexpr u64 app_frame_memory_size = 0xA00000;
constexpr u64 app_scratch_block_size = 0x500000;
constexpr u64 app_font_memory_size = 0x500000;
constexpr u64 app_ui_memory_size = 0x100000;

constexpr i32 app_window_width = 1280;
constexpr i32 app_window_height = 720;

// The renderer's batches, in painter's order: the ordinary layer, the layer
// of what pops up over it (open dropdowns), then images.
enum : u32 {
    app_batch_rectangles = 0,
    app_batch_text = 1,
    app_batch_icons = 2,
    app_batch_popup_rectangles = 3,
    app_batch_popup_text = 4,
    app_batch_popup_icons = 5,
    app_batch_images = 6,
};

// Fills user_folder and desktop_folder: the per-user data folder of the
// program (or the value of "-path") and the user's desktop.
void app_paths_init(app_context *app);

// The text batches' size: a screen filled with 14-pixel rows of glyphs 2
// pixels wide. rows = ceil(screen height / 14), columns = screen width / 2.
void app_text_cells(i32 screen_width, i32 screen_height, u32 *rows, u32 *columns);
