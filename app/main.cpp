// main.cpp - the entry: start-up in its fixed order, the frame loop, and the
// shut-down order. Nothing is freed at exit; blocks live until the process
// ends.
#include "app/app.h"
#include "app/args.h"
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
#include "net/feed_query.h"
#include "net/file_storage.h"
#include "net/http.h"
#include "net/image_query.h"
#include "os/os_core.h"
#include "reader/reader.h"
#include "toolkit/ui_state.h"
#include "toolkit/widgets.h"
#include "views/views.h"

static app_context app;
static code_point_list_t code_points;
static reader_t reader;
static window_t window;
static view_state_t view_state;
static font_set_t font_set;
static gl_renderer_t renderer;
static ui_t ui;
static feed_query_t feed_queries[feed_query_slot_count];
static file_storage_t file_storage;
static feed_query_context_t feed_query_context;
static u64 frame_counter;

// A worker finished a fetch: the pump wakes and a frame scans the slots.
static void app_wake(void *) { window_wake(); }

// A picture's slot was released: its texture goes with it (main thread).
static void app_texture_release(u32 texture) { gl_texture_delete(&texture); }

// A save brings edited link configurations home into the reader's text; the
// old copies go back to the file storage.
static void app_text_release(void *context, u8 *bytes, u64 size) {
    file_storage_free_unmerged((file_storage_t *)context, bytes, size);
}

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

static void app_frame_loop() {
    // Linux has no way to ask whether a compositor runs; the swap interval of
    // 1 sets the pace in any case, so the loop never sleeps on its own.
    u32 composition_enabled = 1;
    // A refresh rate of 0 (Xvfb reports none) would divide by zero: 60 Hz
    // stands in for it.
    u64 period_ms = app_period_ms(window.refresh_rate);
    f64 frequency = (f64)os_counter_frequency();
    u64 frame_start = 0, after_messages = 0, work_start = 0, work_end = 0;

    while (window.running) {
        // 1.
        mark_collapse_start(label_frame);
        frame_start = os_counter();
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
        after_messages = os_counter();

        // 3. Pacing, for a system that doesn't pace the swap itself.
        if (!composition_enabled) {
            u64 sleep_ms = app_pacing_sleep_ms(work_end - work_start, after_messages - frame_start, frequency,
                                               period_ms);
            mark_start(label_sleep);
            os_sleep_ms((u32)sleep_ms);
            mark_end(label_sleep);
        }

        // 4.
        work_start = os_counter();
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

        // 7. Pictures whose entry went away during their fetch are let go.
        image_queries_check();

        // 9. Finished fetches are parsed into the reader and their slots freed
        // (under the label queries_check, which the scan sets itself).
        feed_queries_check(&feed_query_context, &reader);

        // 10. With a close request pending, the queued links of the ten link
        // configurations are opened now, so that none is lost.
        if (window.closing) links_open_all(&app, &reader, true);

        // 11. The window content; a minimised window draws nothing.
        mark_start(label_window_content);
        if (window.width != 0 || window.height != 0) {
            draw_window_content(&app, &reader);
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
        work_end = os_counter();
        mark_collapse_end(label_frame);
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
    bool profiling = args_find_z("-profile", 1) != 0;
    profiler_init(profiler_thread_main, 10000000, &profiler_error);
    if (!profiling) profiler_disable(0);

    // 5. The Internet session. A failure stays here; later fetches report it.
    u32 http_error = 0;
    http_init("tidewrack", &http_error);

    // 6. The reader.
    memory_zero(&reader, sizeof(reader));
    reader_init(&reader);

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

    // 9. The general block, and in it the list of code points that the
    // reader, the atlas and the reader file share.
    data_t general = data_virtual_alloc(app_general_block_size, 0);
    assert_message(general.bytes, "No memory for the general block.");
    u32 *code_point_array = (u32 *)data_push(&general, (u64)code_point_list_capacity * sizeof(u32), 4);
    assert_true(code_point_array);
    code_point_list_init(&code_points, code_point_array, code_point_list_capacity);
    reader.code_points = &code_points;
    // The fonts keep their own start list and find every other glyph by
    // its code point, so the reader's index of U+FFFD is needed by nothing.
    reader.replacement_glyph_index = nullptr;

    // 10. The font memory.
    data_t font_memory = data_block_reserve(&general, app_font_memory_size, 8);
    assert_true(font_memory.bytes);

    // 11. The context, its frame memory and the folders.
    app.frame_memory = data_virtual_alloc(app_frame_memory_size, 0);
    assert_message(app.frame_memory.bytes, "No memory for the frame.");
    app_paths_init(&app);

    // 12. The newest snapshot. One that can't be read stops the program
    // before any file is touched, so that the user can move it away and
    // start from the one before.
    u32 load_error = 0;
    data_t unreadable_path = {};
    reader_load(&reader, &app.user_folder, &app.frame_memory, &unreadable_path, &load_error);
    if (load_error) {
        reader_report_unreadable(&unreadable_path, load_error);
        return 1;
    }
    app.start_generation = reader.generation;

    // 13.-16. Fonts, atlas, renderer: only with a window to draw in.
    if (window.running) app_graphics_init(font_memory);

    // 17. The view state: the shown range at the loaded generation, the add
    // feed panel open.
    view_state_init(&view_state, app.start_generation);

    // 18. The workers.
    thread_queue_init(&thread_queue, 6);

    // 19. The feed query slots.
    memory_zero(feed_queries, sizeof(feed_queries));

    // 20. The file storage, for query addresses, queued links and edited link
    // configurations.
    file_storage_init(&file_storage, file_storage_reserve_size, file_storage_commit_step, file_storage_unit);
    reader.text_release = app_text_release;
    reader.text_release_context = &file_storage;

    // The image cache: fetched and scaled by the workers, its addresses in
    // the file storage; a removed entry takes its pictures with it.
    image_queries_init(&file_storage, &thread_queue, image_resize, window.running ? app_texture_release : nullptr,
                       app_wake, nullptr);
    reader.entry_forget = image_queries_forget;

    feed_query_context.slots = feed_queries;
    feed_query_context.slot_count = feed_query_slot_count;
    feed_query_context.file_storage = &file_storage;
    feed_query_context.queue = &thread_queue;
    feed_query_context.start_generation = app.start_generation;
    feed_query_context.generation_minimum = &view_state.generation_minimum;
    feed_query_context.generation_maximum = &view_state.generation_maximum;
    feed_query_context.selected_feed = &view_state.selected_feed;
    feed_query_context.selected_entry = &view_state.selected_entry;
    feed_query_context.frame_memory = &app.frame_memory;
    feed_query_context.wake = app_wake;
    feed_query_context.wake_context = nullptr;
    feed_query_context.show_log = view_show_log_hook;
    feed_query_context.show_log_context = &app;

    // 21.
    app.window = &window;
    app.view_state = &view_state;
    app.ui = window.running ? &ui : nullptr;
    app.renderer = window.running ? &renderer : nullptr;
    app.feed_queries = feed_queries;
    app.feed_query_count = feed_query_slot_count;
    app.feed_query_context = &feed_query_context;
    app.file_storage = &file_storage;
    app.font_set = window.running ? &font_set : nullptr;

    // 22.-23. and the loop.
    app_frame_loop();

    // Shut-down order.
    thread_terminate(&thread_queue);
    reader_purge_deleted(&reader);
    profiler_finish();
    if (profiling) {
        u32 error = 0;
        data_t path = data_literal("profile.bin");
        profiler_write(&path, true, &error);
    }
    reader_audit(&reader);
    u32 save_reason = 0;
    if (!reader_save(&reader, &app.user_folder, &app.frame_memory, &save_reason)) {
        // The reason is in the log too; a Linux user looks on stderr.
        const char text[] = "tidewrack: the reader could not be saved in ";
        os_write_stderr(text, sizeof(text) - 1);
        os_write_stderr((const char *)app.user_folder.bytes, app.user_folder.used);
        if (save_reason) {
            char reason[256];
            u64 n = os_error_text(save_reason, reason, sizeof(reason));
            os_write_stderr(": ", 2);
            os_write_stderr(reason, n);
        }
        os_write_stderr("\n", 1);
    }
    if (args_find_z("-log", 1)) {
        u32 error = 0;
        data_t path = data_literal("log.txt");
        log_save(log_main, &path, &error);
    }
    http_close(&http_error);
    return 0;
}
