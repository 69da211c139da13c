// feed_query.h - the feed query slots: one HTTP fetch of a feed in flight
// between the main thread and a worker, the four user actions that fill the
// slots, the worker function, and the scan that turns finished fetches into
// records.
//
// A slot goes 0 free -> 1 in flight (main thread, when an action starts it)
// -> 2 finished (worker) -> 0 free (main thread, in the scan). The `state`
// word alone hands a slot over: the main thread writes every other field
// before it queues the job, the worker writes `content` and `error` and then
// `state`, and wakes the main thread. There is no cancel and no retry.
#pragma once

#include "base/memory.h"
#include "net/feed_validators.h"
#include "net/file_storage.h"
#include "reader/reader.h"

struct thread_queue_t;

enum : u32 {
    feed_query_free = 0,
    feed_query_in_flight = 1,
    feed_query_finished = 2,
};

constexpr u64 feed_query_slot_count = 1024;
constexpr u64 feed_query_default_size = 0x500000; // body block when the server gives no length
constexpr u64 feed_query_first_commit = 0x10000;  // memory committed before the body's first bytes
constexpr u32 feed_query_new_feed = 0xFFFFFFFF;   // feed_id of an address not yet stored
constexpr u64 feed_query_guid_capacity = 1024;   // the selection's guid kept over a parse

// Called by a worker when its slot is finished (any thread). The program
// wakes its window's message pump with it; the command-line tool signals the
// loop that waits for the slots.
typedef void feed_query_wake_t(void *context);

struct feed_query_t {
    u32 state;    // feed_query_free, _in_flight, _finished; read and written with acquire/release
    data_t url;   // zero-terminated copy of the address (used excludes the zero), in the file storage
    u32 feed_id;  // the stored feed to update, or feed_query_new_feed
    u32 error;    // an http_error_* value, 0 for success
    u32 detail;   // the HTTP library's own code of a failure, for the main log
    data_t content;          // the fetched document, a block of its own
    feed_query_wake_t *wake; // what the worker calls when done (may be null)
    void *wake_context;
    u32 status;              // the final HTTP status (0 without an answer)
    u32 flags;               // feed_query_flag_*
    bool not_modified;       // a 304: the feed is as stored
    bool validator_cut;      // the answer's ETag or Last-Modified was too long to keep
    http_validators_t validators; // sent with the request; the answer's when finished
};

enum : u32 {
    feed_query_flag_discovered = 1, // the address was found on a page: a page it gives is not searched again
};

// Called by the scan when a fetch failed, after the message is on log
// channel 2: the program opens its log panel.
typedef void feed_query_show_log_t(void *context);

// What the actions and the scan need from the program, filled by its owner
// (the app from its context and view state; the tool from its own state).
// Every pointer is owned by the caller and must outlive the slots' use.
//
// The program fills it once its slots, file storage and workers exist:
//   slots, slot_count        the context's feed_queries and feed_query_count
//   file_storage             the one file storage (100 MB, 1 MB steps, 128-byte units)
//   queue                    &thread_queue
//   start_generation         the reader's generation right after loading
//   generation_minimum, _maximum   the view state's shown range
//   selected_feed, selected_entry  the view state's selection
//   frame_memory             the context's frame memory
//   wake                     a function that calls window_wake() (any thread)
//   show_log                 a function that opens the log panel (view_show_log)
// and calls feed_queries_check(&context, &reader) in each frame, after the
// image queries and before the window content is drawn.
struct feed_query_context_t {
    feed_query_t *slots;        // feed_query_slot_count records, zeroed at start
    u64 slot_count;
    file_storage_t *file_storage; // where slot addresses are allocated
    thread_queue_t *queue;        // the workers that run feed_query_work
    u32 start_generation;         // the reader's generation right after loading
    u32 unused_36;
    u32 *generation_minimum;      // the shown generation range, moved by a new
    u32 *generation_maximum;      // generation (either may be null)
    feed_t **selected_feed;       // the selection, kept over a parse (may be null)
    entry_t **selected_entry;
    data_t *frame_memory;         // parsing and list files take their memory here
    feed_query_wake_t *wake;      // copied into each slot: the worker's wake-up
    void *wake_context;
    feed_query_show_log_t *show_log; // called when a failure was logged (may be null)
    void *show_log_context;
    u32 failed_count;             // fetch failures seen by the scan, counted up
    u32 parsed_count;             // documents handed to the parser, counted up
    u32 full_reported;            // reader_full_* bits the user was told of in this action
    u32 refused_count;            // parses that found the reader full, counted up
    feed_validators_t *validators; // ETags and dates sent back (may be null: every fetch is whole)
    u32 unchanged_count;          // 304 answers seen by the scan, counted up
    u32 not_feed_count;           // documents that held no feed, counted up
};

// The four user actions. Each first starts a new generation when the
// reader's generation still equals the start generation of the run.
// "Add feed" with one address: leading white space is skipped, trailing white
// space stays; an empty text does nothing. A known address updates its feed.
void feed_query_add_url(feed_query_context_t *context, reader_t *reader, const data_t *url);
// "Add feed" with a list file: one address a line, or an OPML file (told by
// its content; see feed_list.h). An unreadable file counts as an empty one;
// markup that is no OPML adds nothing and says so in the user's log. New
// addresses beyond the reader's feed capacity are dropped, with one line in
// the log for all of them.
void feed_query_add_list(feed_query_context_t *context, reader_t *reader, const data_t *path);
// "Update selected (F6)": the selected feed, marked as deleted or not.
void feed_query_update_selected(feed_query_context_t *context, reader_t *reader);
// "Update all (F5)": every feed without the deleted mark, all queued at once.
void feed_query_update_all(feed_query_context_t *context, reader_t *reader);

// The rule every action starts with: when the reader's generation still
// equals the start generation, it advances and the shown range moves to it.
// Each action also begins a new round of messages about a full reader.
void feed_query_begin_generation(feed_query_context_t *context, reader_t *reader);
// One slot for one stored feed (asserted valid).
void feed_query_update(feed_query_context_t *context, reader_t *reader, feed_t *feed);
// The first free slot, or null.
feed_query_t *feed_query_free_slot(feed_query_t *slots, u64 count);
// Fills a slot and sets it in flight; the caller queues feed_query_work.
void feed_query_start(feed_query_t *slot, const data_t *url, u32 feed_id, feed_query_wake_t *wake,
                      void *wake_context);
// Whether a slot in flight carries this feed ("Updating… " in the list).
bool feed_query_is_active(const feed_query_t *slots, u64 count, u32 feed_id);
// Slots that are not free (in flight or finished and not yet scanned).
u64 feed_query_busy_count(const feed_query_t *slots, u64 count);
u32 feed_query_state(const feed_query_t *slot);

// The worker function (thread_job_function_t): fetch `url` into `content`.
void feed_query_work(void *slot);

// The scan of a frame, main thread: every finished slot is logged (failure)
// or parsed into the reader (success), and freed.
void feed_queries_check(feed_query_context_t *context, reader_t *reader);
