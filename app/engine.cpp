// engine.cpp - opening, scanning and closing the engine in the one order that
// the window program and the tool share.
#include "app/engine.h"

#include "base/log.h"
#include "base/thread_queue.h"
#include "net/http.h"

data_t engine_user_folder(u8 *buffer, u64 size, const data_t *given) {
    if (given && given->used) {
        if (given->used >= size) return {};
        memory_copy(buffer, given->bytes, given->used);
        buffer[given->used] = 0;
        return data_t{size, given->used, buffer};
    }
    u64 n = os_user_data_folder((char *)buffer, size);
    if (!n) return {};
    os_user_data_parent_create();
    return data_t{size, n, buffer};
}

bool engine_open(engine_t *engine, const data_t *user_folder, data_t *frame_memory, const data_t *file) {
    reader_t *reader = &engine->reader;
    memory_zero(reader, sizeof(*reader));
    reader_init(reader);

    // The list of code points that the reader, the atlas and the reader file
    // share, at the start of the general block.
    engine->general = data_virtual_alloc(engine_general_block_size, 0);
    assert_message(engine->general.bytes, "No memory for the general block.");
    u32 *code_points = (u32 *)data_push(&engine->general, (u64)code_point_list_capacity * sizeof(u32), 4);
    assert_true(code_points);
    code_point_list_init(&engine->code_points, code_points, code_point_list_capacity);
    reader->code_points = &engine->code_points;
    // The fonts find every glyph by its code point, so nothing needs the
    // list's position of U+FFFD.
    reader->replacement_glyph_index = nullptr;

    engine->frame_memory = frame_memory;
    engine->user_folder = user_folder;

    // One snapshot that can't be read stops here, before any file is
    // touched, so that the user can move it away and start from the one
    // before.
    u32 error = 0;
    data_t path = {};
    if (file) {
        path = *file;
        reader_read(reader, file, &error);
    } else {
        reader_load(reader, user_folder, frame_memory, &path, &error);
    }
    if (error) {
        reader_report_unreadable(&path, error);
        return false;
    }
    frame_memory->used = 0;
    return true;
}

// A save brings edited link configurations home into the reader's text; the
// old copies go back to the file storage.
static void engine_text_release(void *context, u8 *bytes, u64 size) {
    file_storage_free_unmerged((file_storage_t *)context, bytes, size);
}

static void engine_signal(void *context) { os_event_signal((os_event_t *)context); }

void engine_start(engine_t *engine, const engine_hooks_t *hooks) {
    reader_t *reader = &engine->reader;
    // A session that fails to open stays failed; each fetch reports it.
    http_init("tidewrack", &engine->http_error);
    thread_queue_init(&thread_queue, engine_worker_count);
    engine->started = true;
    memory_zero(engine->slots, sizeof(engine->slots));

    // Query addresses, queued links and edited link configurations.
    file_storage_init(&engine->file_storage, file_storage_reserve_size, file_storage_commit_step,
                      file_storage_unit);
    reader->text_release = engine_text_release;
    reader->text_release_context = &engine->file_storage;

    feed_query_wake_t *wake = hooks->wake;
    void *wake_context = hooks->wake_context;
    if (!wake) {
        engine->finished = os_event_create();
        wake = engine_signal;
        wake_context = engine->finished;
    }

    // The image cache: fetched and scaled by the workers, its addresses in
    // the file storage; a removed entry takes its pictures with it.
    image_queries_init(&engine->file_storage, &thread_queue, hooks->resize, hooks->texture_release, wake,
                       wake_context);
    reader->entry_forget = image_queries_forget;

    feed_query_context_t *queries = &engine->queries;
    memory_zero(queries, sizeof(*queries));
    queries->slots = engine->slots;
    queries->slot_count = feed_query_slot_count;
    queries->file_storage = &engine->file_storage;
    queries->queue = &thread_queue;
    queries->start_generation = reader->generation;
    queries->frame_memory = engine->frame_memory;
    queries->wake = wake;
    queries->wake_context = wake_context;
    // The ETags and dates of the last update, when they belong to this reader.
    feed_validators_load(&engine->validators, engine->user_folder, reader);
    queries->validators = &engine->validators;
}

void engine_scan(engine_t *engine) {
    image_queries_check();
    // Under the label queries_check, which the scan sets itself.
    feed_queries_check(&engine->queries, &engine->reader);
}

void engine_run_queries(engine_t *engine, void (*after_scan)(engine_t *engine)) {
    assert_message(engine->finished, "The engine has a wake hook: its owner's loop waits.");
    for (;;) {
        engine_scan(engine);
        if (after_scan) after_scan(engine);
        engine->frame_memory->used = 0;
        if (!feed_query_busy_count(engine->slots, feed_query_slot_count)) break;
        os_event_wait(engine->finished);
    }
}

bool engine_close(engine_t *engine, const char *program, bool write_log, engine_close_hook_t *after_purge) {
    if (engine->started) thread_terminate(&thread_queue);
    reader_purge_deleted(&engine->reader);
    if (after_purge) after_purge();
    reader_audit(&engine->reader);
    u32 reason = 0;
    bool saved = reader_save(&engine->reader, engine->user_folder, engine->frame_memory, &reason);
    // The validators are written again for the reader as saved (the purge
    // changed it), so that the next start trusts them.
    if (saved && engine->validators.count)
        feed_validators_save(&engine->validators, &engine->reader, engine->frame_memory);
    if (!saved) {
        // The reason is in the log too; a Linux user looks on stderr.
        const char text[] = ": the reader could not be saved in ";
        os_write_stderr(program, string_length(program));
        os_write_stderr(text, sizeof(text) - 1);
        os_write_stderr((const char *)engine->user_folder->bytes, engine->user_folder->used);
        if (reason) {
            char reason_text[256];
            u64 n = os_error_text(reason, reason_text, sizeof(reason_text));
            os_write_stderr(": ", 2);
            os_write_stderr(reason_text, n);
        }
        os_write_stderr("\n", 1);
    }
    if (write_log) {
        u32 error = 0;
        data_t path = data_literal("log.txt");
        log_save(log_main, &path, &error);
    }
    if (http_is_open()) http_close(&engine->http_error);
    return saved;
}
