// main.cpp - the entry: start-up in its fixed order, the frame loop, and the
// shut-down order. Nothing is freed at exit; blocks live until the process
// ends.
#include "app/app.h"
#include "app/args.h"
#include "base/files.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/text.h"
#include "base/thread_queue.h"

static app_context app;
static code_point_list_t code_points;

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

    // net: open the Internet session with the user agent "tidewrack".

    // reader: zero the reader and run reader_init.

    // 7. The window's title.
    u8 title_buffer[64];
    data_t title = {sizeof(title_buffer), 0, title_buffer};
    data_push_c_string(&title, "Tidewrack - ");
    data_push_number(&title, 0, 0, ' ', 0);
    data_push_c_string(&title, ".");
    data_push_number(&title, 2, 0, ' ', 0);
    data_push_u8(&title, 0);

    // window: create the window (1280 by 720) and set the swap interval to 1.

    // 9. The general block, and in it the list of code points.
    data_t general = data_virtual_alloc(app_general_block_size, 0);
    assert_message(general.bytes, "No memory for the general block.");
    u32 *code_point_array =
        (u32 *)data_push(&general, (u64)code_point_list_capacity * sizeof(u32), 4);
    assert_true(code_point_array);
    code_point_list_init(&code_points, code_point_array, code_point_list_capacity);
    // reader: point the reader's code point list at `code_points`.

    // 10. The font memory.
    data_t font_memory = data_block_reserve(&general, app_font_memory_size, 0);
    (void)font_memory;

    // 11. The context, its frame memory and the folders.
    app.frame_memory = data_virtual_alloc(app_frame_memory_size, 0);
    assert_message(app.frame_memory.bytes, "No memory for the frame.");
    app_paths_init(&app);

    // 12. reader: load the newest reader file; start_generation is its generation.

    // 13.-17. window: fonts, atlas, renderer, UI state and view state.

    // 18. The workers.
    thread_queue_init(&thread_queue, 6);

    // 19.-20. net: the feed query slots and the file storage.

    // window: the frame loop runs here until the window is closed.

    // Shut-down order.
    thread_terminate(&thread_queue);
    // reader: reader_purge_deleted.
    profiler_finish();
    if (profiling) {
        u32 error = 0;
        data_t path = data_literal("profile.bin");
        profiler_write(&path, true, &error);
    }
    // reader: reader_audit, then reader_save.
    if (args_find_z("-log", 1)) {
        u32 error = 0;
        data_t path = data_literal("log.txt");
        log_save(log_main, &path, &error);
    }
    // net: close the Internet session.
    return 0;
}
