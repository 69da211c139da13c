// engine.h - the program without its window: the reader and its memory, the
// code point list, the feed query slots, the image cache, the workers and the
// file storage, with one order of opening and one of closing. The window
// program (app/main.cpp) adds the window and the views to it; the tool
// (tools/tool) only parses its arguments and prints.
#pragma once

#include "base/memory.h"
#include "net/feed_query.h"
#include "net/file_storage.h"
#include "net/image_query.h"
#include "os/os_core.h"
#include "reader/reader.h"

// The general block: the code point list first, then (in the window program)
// the font memory.
constexpr u64 engine_general_block_size = 0x2000000;
constexpr u32 engine_worker_count = 6;

// What the engine's owner gives it: how a finished worker wakes the main
// thread, and what the image cache needs of the graphics layer. Every hook
// may be null: without `wake` the engine waits on an event of its own
// (engine_run_queries), and without `resize` no picture is ever asked for.
struct engine_hooks_t {
    feed_query_wake_t *wake;
    void *wake_context;
    image_resize_function_t *resize;
    image_texture_release_t *texture_release;
};

struct engine_t {
    reader_t reader;
    code_point_list_t code_points;
    data_t general;
    data_t *frame_memory;       // the owner's; the owner empties it
    const data_t *user_folder;  // the owner's; where the snapshots live
    feed_query_t slots[feed_query_slot_count];
    file_storage_t file_storage;
    feed_query_context_t queries; // the view pointers are the owner's to set
    feed_validators_t validators; // the ETags and dates of the last update
    os_event_t *finished;         // set when the owner gave no wake hook
    u32 http_error;               // from opening the session; fetches report it
    bool started;
};

// The per-user data folder in `buffer`: `given` (the "-path" value) when it
// has bytes, else the system's folder for the program, whose parent is made
// when missing. Empty when `given` does not fit or there is no such folder.
data_t engine_user_folder(u8 *buffer, u64 size, const data_t *given);

// The reader, its general block and code point list, then the newest snapshot
// of the folder (or `file` when given). A snapshot that can't be read is
// reported on stderr and gives false; the reader is then not fit for use.
bool engine_open(engine_t *engine, const data_t *user_folder, data_t *frame_memory, const data_t *file);
// The fetching side: the HTTP session, the workers, the slots, the file
// storage and the image cache, and the reader's hooks into them.
void engine_start(engine_t *engine, const engine_hooks_t *hooks);
// One scan of what the workers finished: pictures whose entry went away are
// let go, and finished fetches are parsed into the reader.
void engine_scan(engine_t *engine);
// Without a wake hook: scans, and sleeps until a worker finishes, until every
// slot is free again; `after_scan` (may be null) runs after each scan, and
// the frame memory is emptied after each one.
void engine_run_queries(engine_t *engine, void (*after_scan)(engine_t *engine));

typedef void engine_close_hook_t();
// The shut-down order: workers stopped, deleted records purged, `after_purge`
// (may be null; the profile is finished there), audit, save, and with
// `write_log` the main log to log.txt in the current directory; the HTTP
// session closes last. A failed save is said on stderr, after `program` and
// ": ". False when the save failed.
bool engine_close(engine_t *engine, const char *program, bool write_log, engine_close_hook_t *after_purge);
