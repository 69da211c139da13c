// profiler.h - an instrumenting profiler that lives in the program.
//
// Marks call through a per-thread table of functions; each writes one 16-byte
// event with the processor's time stamp into the thread's own buffer. Without
// -profile the table holds functions that do nothing. The last 60 frames of
// each thread are kept in full, older ones as a start and an end event.
#pragma once

#include "base/memory.h"

enum profiler_label_t : u32 {
#define PROFILER_LABEL(name) label_##name,
#include "base/profiler_labels.inc"
#undef PROFILER_LABEL
    profiler_label_count
};
static_assert(profiler_label_count == 115, "the label table has 115 names");

extern const char *const profiler_label_names[profiler_label_count];

enum : u32 {
    profiler_kind_start = 1,
    profiler_kind_end = 2,
    profiler_kind_collapse_start = 5,
    profiler_kind_collapse_end = 6,
    profiler_kind_collapsed = 8,
};

enum : u32 {
    profiler_thread_worker = 0,
    profiler_thread_main = 1,
};

enum : u32 {
    profiler_error_empty_destination = 1,
    profiler_error_no_memory = 3,
    profiler_error_create = 4,
    profiler_error_write = 7,
    profiler_error_short_write = 8,
    profiler_error_magic = 9,
    profiler_error_version = 10,
    profiler_error_read = 11,
};

struct profiler_event_t {
    u64 time;
    u32 label;
    u32 kind;
};
static_assert(sizeof(profiler_event_t) == 16, "events are 16 bytes");

constexpr u32 profiler_collapse_frames = 60;
constexpr u32 profiler_max_threads = 128;

typedef void profiler_mark_t(u32 label, u32 kind);
typedef void profiler_collapse_mark_t(u32 label);

struct profiler_thread_t {
    profiler_event_t *events;
    profiler_event_t *write;
    profiler_event_t *end;
    profiler_event_t *collapse_start[profiler_collapse_frames];
    profiler_event_t *collapse_end[profiler_collapse_frames];
    u64 collapse_count;
    u32 in_collapse;
    u32 thread_type;
    profiler_mark_t *mark_start;
    profiler_mark_t *mark_end;
    profiler_collapse_mark_t *mark_collapse_start;
    profiler_collapse_mark_t *mark_collapse_end;
    u32 *depth;          // open spans of each label
    // When the buffer is too full to close what is open, marks are skipped as
    // whole spans so that the events stay in matched pairs.
    u64 open;             // recorded spans not closed yet
    u64 skipped;          // skipped spans not closed yet
    u32 collapse_skipped; // the current collapsible span was skipped
};

// How time stamps map to seconds. On Linux the program measures both spans
// (time stamp and monotonic clock) at start and at exit: clock_measured 0.
struct profiler_clock_t {
    u64 qpc_frequency;
    u64 tsc_span;
    u64 qpc_span;
    u8 clock_measured;
    u8 clock_kind;
    u8 clock_shift;
    u64 clock_bias;
    u64 clock_multiplier;
    u64 clock_offset;
    u32 clock_scale;
    u32 clock_scale_shift;
};

extern profiler_thread_t profiler_threads[profiler_max_threads];
// The calling thread's record; a thread that never registered gets the
// shared record whose marks do nothing.
profiler_thread_t *profiler_thread_current();
extern profiler_clock_t profiler_clock;

void profiler_init(u32 thread_type, u64 event_capacity, u32 *error);
void profiler_thread_init(u32 thread_type, u64 event_capacity, u32 *error);
void profiler_disable(u32 mask);
void profiler_finish();
void profiler_write(const data_t *path, bool overwrite, u32 *error);

// Marks. A thread that never called profiler_thread_init marks nothing.
void mark_start(u32 label);
void mark_end(u32 label);
void mark_collapse_start(u32 label);
void mark_collapse_end(u32 label);

// A scope guard for a span.
struct profiler_scope_t {
    u32 label;
    explicit profiler_scope_t(u32 l) : label(l) { mark_start(label); }
    ~profiler_scope_t() { mark_end(label); }
};
#define PROFILE_SCOPE(name) profiler_scope_t profile_scope_##name(label_##name)

