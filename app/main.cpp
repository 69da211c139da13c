// main.cpp - the entry: start-up in its fixed order, the frame loop, and the
// shut-down order. Nothing is freed at exit; blocks live until the process
// ends.
#include "app/app.h"
#include "app/args.h"
#include "app/engine.h"
#include "views/view_state.h"
#include "base/files.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/text.h"
#include "base/thread_queue.h"
#include "gfx/fonts.h"
#include "gfx/image.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "os/os_core.h"
#include "toolkit/ui_state.h"
#include "toolkit/widgets.h"
#include "views/views.h"

static app_context app;
static engine_t engine;
static window_t window;
static view_state_t view_state;
static font_set_t font_set;
static gl_renderer_t renderer;
static ui_t ui;
static u64 frame_counter;

// A worker finished a fetch: the pump wakes and a frame scans the slots.
static void app_wake(void *) { window_wake(); }

// A picture's slot was released: its texture goes with it (main thread).
static void app_texture_release(u32 texture) { gl_texture_delete(&texture); }

// Everything that needs the OpenGL context: the fonts and their atlas, the
// icon atlas, the renderer and its seven batches.
static void app_graphics_init(data_t font_memory) {
    // 13. The two faces. Verdana and Lucida Console where they are installed,
    // else DejaVu Sans and DejaVu Sans Mono, named so that more installed
    // fonts never change them (said on log channel 1). The files stay loaded
    // for the life of the program.
    data_t sans_file = font_file_load_sans();
    data_t mono_file = font_file_load_mono();

    // 14. Verdana at 14, 16 and 20 pixels, Lucida Console at 12, then the
    // start glyphs; everything else comes on demand.
    font_set_create_application(&font_set, font_memory, &sans_file, &mono_file);

    // 15. Batches sized from the screen: a screen full of 14-pixel rows of
    // glyphs 2 pixels wide.
    u32 cell_rows, cell_columns;
    app_text_cells(window.screen_width, window.screen_height, &cell_rows, &cell_columns);

    // 16. The UI: its state table (a block of its own), the theme and the
    // icon atlas; then the renderer and its batches.
    ui = ui_create(&app.frame_memory, &window);

    renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
    // Icons are drawn at their own size: nearest filtering.
    u32 icon_texture = gl_texture_create(ui.atlas.pixels, ui.atlas.width, ui.atlas.height, 1, 0);
    u32 characters = cell_rows * cell_columns;
    u32 commands = cell_rows * 5;
    // The ordinary layer (0 to 2), the layer of what pops up over it (3 to
    // 5), and images last.
    const u32 layer_firsts[2] = {app_batch_rectangles, app_batch_popup_rectangles};
    for (u32 first : layer_firsts) {
        u32 index = gl_batch_create_rectangles(&renderer);
        assert_true(index == first);
        index = gl_batch_create_text(&renderer, characters, commands, 0, 0, nullptr, &font_set, 0);
        assert_true(index == first + 1);
        index = gl_batch_create_strips(&renderer, icon_texture);
        assert_true(index == first + 2);
    }
    u32 index = gl_batch_create_images(&renderer);
    assert_true(index == app_batch_images);
    ui_set_batches(&ui, &renderer, app_batch_rectangles, app_batch_text, app_batch_icons, app_batch_popup_rectangles,
                   app_batch_popup_text, app_batch_popup_icons);
}

// The loop never sleeps on its own: the swap interval of 1 sets the pace (on
// Linux there is no way to ask whether a compositor runs, so the pacing of a
// system without one is not there).
static void app_frame_loop() {
    reader_t *reader = &engine.reader;
    while (window.running) {
        // 1.
        mark_collapse_start(label_frame);
        log_string(log_main, "\nFrame start: ");
        log_number(log_main, frame_counter);
        log_string(log_main, "\n");

        // 2. Sleep in the pump unless a view asked for another frame.
        if (view_state.redraw_requested) {
            view_state.redraw_requested = 0;
            window_handle_messages(&window, 0);
        } else {
            window_handle_messages(&window, 1);
        }

        // 4.
        mark_start(label_not_messages);

        // 5. A close request ends the loop after this frame.
        if (window.closing) window.running = 0;

        // 6.
        gl_renderer_frame_start(&renderer);
        if (window.resized && window.focus_seen)
            gl_renderer_viewport(&renderer, 0, 0, (f32)window.width, (f32)window.height);
        // A scissor left on by the last frame's batches would confine the clear.
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});

        // 7. and 9. Pictures whose entry went away during their fetch are let
        // go; finished fetches are parsed into the reader and their slots freed.
        engine_scan(&engine);

        // 10. With a close request pending, the queued links of the ten link
        // configurations are opened now, so that none is lost.
        if (window.closing) links_open_all(&app, reader, true);

        // 11. The window content; a minimised window draws nothing.
        mark_start(label_window_content);
        if (window.width != 0 || window.height != 0) {
            draw_window_content(&app, reader);
        }
        mark_end(label_window_content);

        // 12. New letters need nothing here: their glyphs are made when the
        // flush first draws them.

        // 13.
        mark_start(label_render);
        gl_renderer_flush(&renderer);
        window_swap_buffers(&window);
        mark_end(label_render);
        mark_end(label_not_messages);

        // 14.
        ++frame_counter;
        app.frame_memory.used = 0;
        mark_collapse_end(label_frame);
    }
}

// With "-profile" the profile ends after the purge and goes to profile.bin.
static bool app_profiling;
static void app_profile_finish() {
    profiler_finish();
    if (app_profiling) {
        u32 error = 0;
        data_t path = data_literal("profile.bin");
        profiler_write(&path, true, &error);
    }
}

int main(int argc, char **argv) {
    // 1. The command line. On Linux the arguments come split already.
    args_store(argc, argv);

    // 2. The scratch block, one user at a time.
    scratch_block_init(app_scratch_block_size);

    // 3. Page size and allocation granularity for the memory layer.
    system_info_get();

    // 4. The profiler; without "-profile" every mark does nothing.
    u32 profiler_error = 0;
    app_profiling = args_find_z("-profile", 1) != 0;
    profiler_init(profiler_thread_main, 10000000, &profiler_error);
    if (!app_profiling) profiler_disable(0);

    // 7. The window's title.
    u8 title_buffer[64];
    data_t title = {sizeof(title_buffer), 0, title_buffer};
    data_push_c_string(&title, "Tidewrack - ");
    data_push_number(&title, 0, 0, ' ', 0);
    data_push_c_string(&title, ".");
    data_push_number(&title, 2, 0, ' ', 0);

    // 8. The window, centred. Without a display or without OpenGL 3.3 it says
    // why on stderr and stays not running: the loop is skipped and the
    // shut-down still saves the reader.
    window_write_gfx_log = args_find_z("-gfx_log", 1) != 0;
    window_create(&window, &title, app_window_width, app_window_height, window_centred, window_centred, 0);
    if (window.running) window_swap_interval(1);

    // 11. The context, its frame memory and the folders.
    app.frame_memory = data_virtual_alloc(app_frame_memory_size, 0);
    assert_message(app.frame_memory.bytes, "No memory for the frame.");
    app_paths_init(&app);

    // 6., 9. and 12. The reader, the general block with the code point list,
    // and the newest snapshot.
    if (!engine_open(&engine, &app.user_folder, &app.frame_memory, nullptr)) return 1;
    app.start_generation = engine.reader.generation;

    // 10. The font memory, behind the code point list.
    data_t font_memory = data_block_reserve(&engine.general, app_font_memory_size, 8);
    assert_true(font_memory.bytes);

    // 13.-16. Fonts, atlas, renderer: only with a window to draw in.
    if (window.running) app_graphics_init(font_memory);

    // 17. The view state: the shown range at the loaded generation, the add
    // feed panel open.
    view_state_init(&view_state, app.start_generation);

    // 5. and 18.-20. The Internet session, the workers, the feed query slots,
    // the file storage and the image cache.
    engine_hooks_t hooks = {app_wake, nullptr, image_resize, window.running ? app_texture_release : nullptr};
    engine_start(&engine, &hooks);
    feed_query_context_t *queries = &engine.queries;
    queries->generation_minimum = &view_state.generation_minimum;
    queries->generation_maximum = &view_state.generation_maximum;
    queries->selected_feed = &view_state.selected_feed;
    queries->selected_entry = &view_state.selected_entry;
    queries->show_log = view_show_log_hook;
    queries->show_log_context = &app;

    // 21.
    app.window = &window;
    app.view_state = &view_state;
    app.ui = window.running ? &ui : nullptr;
    app.renderer = window.running ? &renderer : nullptr;
    app.feed_queries = engine.slots;
    app.feed_query_count = feed_query_slot_count;
    app.feed_query_context = queries;
    app.file_storage = &engine.file_storage;
    app.font_set = window.running ? &font_set : nullptr;

    // 22.-23. and the loop.
    app_frame_loop();

    // Shut-down order: workers, purge, profile, audit, save, log, session.
    engine_close(&engine, "tidewrack", args_find_z("-log", 1) != 0, app_profile_finish);
    return 0;
}
