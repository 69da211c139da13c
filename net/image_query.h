// image_query.h - the image cache: 1024 slots, each one picture of an article
// or an enclosure, keyed by entry and address. A worker fetches and decodes a
// slot, another job scales it to the column, the article view makes its
// texture and draws it. Nothing of it is saved: the cache lasts one run.
//
// A slot goes 0 free -> 1 fetching (main thread) -> 2 decoded (worker) -> 3
// scaling (the view) -> 4 ready (worker); 1 -> 5 when the fetch failed, 3 ->
// 6 when scaling failed, 3 -> 7 when no size was asked for. A body that is
// no picture the decoder takes fails as a fetch does (5), with an error of
// its own. The `state` word hands a slot over, as for
// the feed queries; `busy` says a worker still holds it, and such a slot is
// never evicted nor released under the worker.
#pragma once

#include "base/memory.h"

struct file_storage_t;
struct thread_queue_t;

enum : u32 {
    image_state_free = 0,
    image_state_fetching = 1,
    image_state_decoded = 2,
    image_state_scaling = 3,
    image_state_ready = 4,
    image_state_fetch_failed = 5,
    image_state_scale_failed = 6,
    image_state_no_size = 7,
};

// Errors of a fetched body, beside the http_error_* of the fetch itself.
enum : u32 {
    image_error_undecodable = 0x100, // a 404 page, an unknown format, a cut file, an empty body
    image_error_too_large = 0x101,   // the header announces more pixels or a longer side than allowed
};
// The name of a slot's error: the fetch's http_error_* name, or the body's.
const char *image_query_error_name(u32 error);

constexpr u32 image_query_slot_count = 1024;
constexpr u64 image_query_default_size = 0x500000; // body block when the server gives no length
constexpr u64 image_query_max_size = 0x4000000;    // a longer announced body is not fetched
// Pictures whose header announces more than this are not decoded: a few
// bytes of header must not make a worker ask for gigabytes.
constexpr u64 image_query_max_pixels = 0x2000000;
constexpr u32 image_query_max_side = 8192; // and every texture fits what OpenGL promises

struct image_query_t {
    u32 entry_id;
    u32 state;       // image_state_*; read and written with acquire/release
    data_t pixels;   // the fetched file, then the decoded picture (stb_image's block)
    data_t url;      // zero-terminated copy in the file storage (used excludes the zero)
    u32 width, height; // decoded size
    u8 components;     // bytes a pixel, as the file has them (grey with alpha comes as 4)
    u32 texture;       // GL texture name, 0 when none
    data_t resized;    // the picture at its display size; may share pixels' bytes
    u32 target_width, target_height; // 0: follow the other and keep proportions
    u64 last_used;     // counter reading of the last lookup
    u32 remove_requested; // the entry went away while a worker held the slot
    u32 error;            // http_error_* of a failed fetch, or image_error_*
    u32 busy;             // a worker holds the slot; acquire/release
    f32 layout_height;    // the article view's: height of the placeholder text
    u64 last_frame;       // the cache's frame number at the view's last look
    u64 frame_state;      // state as it stood at that look
};

// Scales as gfx's image_resize does (same arguments); any thread.
typedef void image_resize_function_t(const u8 *source, u32 source_width, u32 source_height, u8 *destination,
                                     u32 *width, u32 *height, u32 channels, bool swap_red_blue, f32 gamma,
                                     u32 *error);
// Deletes a GL texture (main thread).
typedef void image_texture_release_t(u32 texture);
// Wakes the main thread's message pump (any thread).
typedef void image_wake_t(void *context);

struct image_cache_t {
    image_query_t slots[image_query_slot_count];
    file_storage_t *file_storage;
    thread_queue_t *queue;
    image_resize_function_t *resize;
    image_texture_release_t *texture_release; // may be null (no window)
    image_wake_t *wake;                       // may be null
    void *wake_context;
    u64 frame; // counted up by image_queries_check; the views' per-frame look
};

// The one cache of the process.
extern image_cache_t image_cache;

// Empties every slot (without freeing: call on a fresh or released cache)
// and sets what the slots need from the program.
void image_queries_init(file_storage_t *storage, thread_queue_t *queue, image_resize_function_t *resize,
                        image_texture_release_t *texture_release, image_wake_t *wake, void *wake_context);

// The slot of this entry and address, or null. With `create` a missing one is
// made and its fetch queued; when every slot is held by a worker, or the
// storage or queue is full, the result is null and a later frame tries again.
image_query_t *image_query_get(u32 entry_id, const data_t *url, bool create);
// Frees all the slot holds and makes it free. Main thread; never on a busy slot.
void image_query_release(image_query_t *slot);
// The entry is gone: its slots are released, or marked when a worker holds them.
void image_queries_forget(u32 entry_id);
// Once a frame, main thread: releases marked slots that no worker holds any
// more, and starts a new frame for image_query_look.
void image_queries_check();

// The view's look at a slot: the state as it stood at the first look of this
// frame, so every layout pass of a frame sees the same one.
u32 image_query_look(image_query_t *slot);
u32 image_query_state(const image_query_t *slot);
// Asks for the display size: state 2 -> 3 and the scaling queued. When the
// queue refuses (or the decoding worker has not let go yet), the slot stays
// at 2 and false is returned: a later frame asks again.
bool image_query_request_size(image_query_t *slot, u32 target_width, u32 target_height);

// Worker functions (thread_job_function_t).
void image_query_work(void *slot);
void image_query_resize_work(void *slot);
