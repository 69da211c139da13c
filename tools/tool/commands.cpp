// commands.cpp - the commands that run the engine: update, import and parse
// go the program's own road (the feed query slots, the workers, the scan,
// then the shut-down order); export writes the feed list.
#include "tools/tool/tool.h"

#include "base/files.h"
#include "base/log.h"
#include "net/feed_list.h"
#include "os/os_core.h"

engine_t tool_engine;
static data_t tool_frame_memory;
static u8 tool_user_folder_buffer[4096];
static data_t tool_user_folder;
static u64 tool_user_log_printed;

bool tool_open(const data_t *folder, const data_t *file) {
    tool_frame_memory = data_virtual_alloc(0xA00000, 0);
    assert_message(tool_frame_memory.bytes, "No memory for the tool.");
    tool_user_folder = engine_user_folder(tool_user_folder_buffer, sizeof(tool_user_folder_buffer), folder);
    if (!tool_user_folder.used) {
        if (folder && folder->used) print_error("tidewrack-tool: the folder's path is too long\n");
        else print_error("tidewrack-tool: no per-user data folder (set HOME or use -path)\n");
        return false;
    }
    return engine_open(&tool_engine, &tool_user_folder, &tool_frame_memory, file);
}

// The engine with its workers; no window, so no pictures and no wake hook.
static bool tool_start(const data_t *folder) {
    if (!tool_open(folder, nullptr)) return false;
    engine_hooks_t hooks = {};
    engine_start(&tool_engine, &hooks);
    return true;
}

// The text the user channel got since the last scan goes to stderr.
static void tool_print_user_log(engine_t *) {
    log_channel_t *user = log_channel(log_user);
    if (!user || user->data.used <= tool_user_log_printed) return;
    os_write_stderr((const char *)user->data.bytes + tool_user_log_printed, user->data.used - tool_user_log_printed);
    tool_user_log_printed = user->data.used;
}

// Runs the queries to their end and closes the engine.
static bool tool_finish(bool write_log) {
    engine_run_queries(&tool_engine, tool_print_user_log);
    if (tool_user_log_printed) print_error("\n");
    return engine_close(&tool_engine, "tidewrack-tool", write_log, nullptr);
}

// Exit status of update, import and parse: 3 when the save failed (whatever
// else happened), 1 when a fetch failed or the full reader refused records,
// 0 otherwise. (2 is a bad command line or an unreadable snapshot.)
static int tool_status(bool saved) {
    if (!saved) return 3;
    return tool_engine.queries.failed_count || tool_engine.queries.refused_count || tool_engine.queries.not_feed_count
               ? 1
               : 0;
}

// ---- update, import, parse ------------------------------------------------------------------------

int tool_update(const tool_args_t *args) {
    if (!tool_start(&args->path)) return 2;
    if (args->item_count) {
        for (u32 i = 0; i < args->item_count; i++) {
            data_t url = tool_item(args, i);
            feed_query_add_url(&tool_engine.queries, &tool_engine.reader, &url);
        }
    } else {
        feed_query_update_all(&tool_engine.queries, &tool_engine.reader);
    }
    return tool_status(tool_finish(args->log));
}

int tool_import(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    data_t list = tool_item(args, 0);
    u32 error = 0;
    if (!file_exists(&list, &error)) {
        print_error("tidewrack-tool: can't read the list file ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    if (!tool_start(&args->path)) return 2;
    feed_query_add_list(&tool_engine.queries, &tool_engine.reader, &list);
    return tool_status(tool_finish(args->log));
}

int tool_parse(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    data_t file_path = tool_item(args, 0);
    data_t document = {};
    u32 error = 0;
    file_read_all(&document, &file_path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    if (!tool_start(&args->path)) return 2;
    data_t url = args->url.bytes ? args->url : file_path;

    // The document takes the place of a finished fetch in the first slot, so
    // the scan parses it exactly as it parses what the workers bring.
    feed_query_begin_generation(&tool_engine.queries, &tool_engine.reader);
    u8 *copy = (u8 *)file_storage_alloc(&tool_engine.file_storage, url.used + 1);
    assert_true(copy);
    memory_copy(copy, url.bytes, url.used);
    copy[url.used] = 0;
    data_t stored = {url.used + 1, url.used, copy};
    feed_t *known = reader_get_feed_by_url(&tool_engine.reader, &stored);
    feed_query_t *slot = &tool_engine.slots[0];
    feed_query_start(slot, &stored, known ? known->id : feed_query_new_feed, nullptr, nullptr);
    slot->content = document.bytes ? document : data_t{};
    __atomic_store_n(&slot->state, feed_query_finished, __ATOMIC_RELEASE);
    return tool_status(tool_finish(args->log));
}

// ---- export -----------------------------------------------------------------------------------------

int tool_export(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    if (!tool_open(&args->path, nullptr)) return 2;
    data_t path = tool_item(args, 0);
    u32 error = 0;
    feed_list_export(&tool_engine.reader, &path, &tool_frame_memory, &error);
    if (error) {
        print_error("tidewrack-tool: can't write ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    tool_print_user_log(nullptr); // how many were written
    print_error("\n");
    return 0;
}
