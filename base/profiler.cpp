// profiler.cpp - the recording half of the profiler: per-thread event
// buffers, the marks, the collapse of old frames and the writer of
// "profile.bin".
//
// Every mark goes through the calling thread's table of functions. A thread
// that never registered points at a shared record whose table does nothing,
// so a disabled mark costs one indirect call.
#include "base/profiler.h"

#include "base/files.h"
#include "base/text.h"
#include "os/os_core.h"

#include <atomic>

const char *const profiler_label_names[profiler_label_count] = {
#define PROFILER_LABEL(name) #name,
#include "base/profiler_labels.inc"
#undef PROFILER_LABEL
};

static const char *const profiler_thread_type_names[2] = {"worker_thread", "main"};

profiler_thread_t profiler_threads[profiler_max_threads];
profiler_clock_t profiler_clock;
static std::atomic<u32> profiler_thread_count{0};
static std::atomic<u32> profiler_ready{0};
// What profiler_disable switched off; threads registered later start so.
static std::atomic<u32> profiler_disabled_parts{0};

// ---- the table of functions --------------------------------------------------------------

static void profiler_mark_nothing(u32, u32) {}
static void profiler_collapse_nothing(u32) {}

static profiler_thread_t profiler_disabled_thread = {
    .mark_start = profiler_mark_nothing,
    .mark_end = profiler_mark_nothing,
    .mark_collapse_start = profiler_collapse_nothing,
    .mark_collapse_end = profiler_collapse_nothing,
};

static thread_local profiler_thread_t *profiler_thread = &profiler_disabled_thread;

profiler_thread_t *profiler_thread_current() { return profiler_thread; }

// Room a thread must keep so that every span it has open can still be
// closed: a start is recorded only if it, its own end and the ends of all
// open spans fit. When the buffer is that full, marks are skipped as whole
// spans (`skipped` counts the open skipped ones), so the file stays made of
// matched pairs.
static bool profiler_room(profiler_thread_t *t, u64 events) {
    return (u64)(t->end - t->write) >= events + t->open;
}

static void profiler_mark_start_real(u32 label, u32 kind) {
    profiler_thread_t *t = profiler_thread;
    t->depth[label]++;
    if (t->skipped || !profiler_room(t, 2)) {
        t->skipped++;
        return;
    }
    t->open++;
    profiler_event_t *e = t->write++;
    e->label = label;
    e->kind = kind;
    e->time = os_time_stamp(); // last, so the mark's own cost falls outside
}

static void profiler_mark_end_real(u32 label, u32 kind) {
    u64 time = os_time_stamp(); // first, for the same reason
    profiler_thread_t *t = profiler_thread;
    t->depth[label]--;
    if (t->skipped) {
        t->skipped--;
        return;
    }
    t->open--;
    profiler_event_t *e = t->write++;
    e->time = time;
    e->label = label;
    e->kind = kind;
}

// Drops the detail of the oldest of the last 60 frames: only its start and
// end events stay, both marked as collapsed.
static void profiler_collapse_oldest(profiler_thread_t *t) {
    u64 slot = t->collapse_count % profiler_collapse_frames;
    profiler_event_t *s = t->collapse_start[slot];
    profiler_event_t *e = t->collapse_end[slot];
    s->kind |= profiler_kind_collapsed;
    e->kind |= profiler_kind_collapsed;
    u64 distance = (u64)(e - (s + 1));
    if (distance == 0) return;
    u64 count = (u64)(t->write - e);
    // Overlapping move downwards: copy in ascending order.
    for (u64 i = 0; i < count; i++) s[1 + i] = e[i];
    t->write -= distance;
    for (u32 i = 0; i < profiler_collapse_frames; i++) {
        if (i == slot) continue;
        if (t->collapse_start[i] > e) t->collapse_start[i] -= distance;
        if (t->collapse_end[i] > e) t->collapse_end[i] -= distance;
    }
    t->collapse_end[slot] = s + 1;
}

static void profiler_mark_collapse_start_real(u32 label) {
    profiler_thread_t *t = profiler_thread;
    assert_message(!t->in_collapse, "A collapsible span started inside another.");
    t->in_collapse = 1;
    if (!t->skipped && t->collapse_count >= profiler_collapse_frames) {
        // The pair that measures the collapse needs room of its own; without
        // it the collapse still runs, unmeasured.
        if (profiler_room(t, 2)) {
            t->mark_start(label_profiler_collapse, profiler_kind_start);
            profiler_collapse_oldest(t);
            t->mark_end(label_profiler_collapse, profiler_kind_end);
        } else {
            profiler_collapse_oldest(t);
        }
    }
    t->depth[label]++;
    if (t->skipped || !profiler_room(t, 2)) {
        t->skipped++;
        t->collapse_skipped = 1;
        return;
    }
    t->collapse_skipped = 0;
    t->open++;
    profiler_event_t *e = t->write++;
    e->label = label;
    e->kind = profiler_kind_collapse_start;
    t->collapse_start[t->collapse_count % profiler_collapse_frames] = e;
    e->time = os_time_stamp();
}

static void profiler_mark_collapse_end_real(u32 label) {
    u64 time = os_time_stamp();
    profiler_thread_t *t = profiler_thread;
    assert_message(t->in_collapse, "A collapsible span ended without a start.");
    t->depth[label]--;
    t->in_collapse = 0;
    if (t->collapse_skipped) {
        t->skipped--;
        t->collapse_skipped = 0;
        return;
    }
    t->open--;
    profiler_event_t *e = t->write++;
    e->time = time;
    e->label = label;
    e->kind = profiler_kind_collapse_end;
    t->collapse_end[t->collapse_count % profiler_collapse_frames] = e;
    t->collapse_count++;
}

static void profiler_table_apply(profiler_thread_t *t, u32 disabled) {
    bool marks_off = disabled == 0xFFFFFFFF || (disabled & 1);
    bool collapse_off = disabled == 0xFFFFFFFF || (disabled & 2);
    t->mark_start = marks_off ? profiler_mark_nothing : profiler_mark_start_real;
    t->mark_end = marks_off ? profiler_mark_nothing : profiler_mark_end_real;
    t->mark_collapse_start = collapse_off ? profiler_collapse_nothing : profiler_mark_collapse_start_real;
    t->mark_collapse_end = collapse_off ? profiler_collapse_nothing : profiler_mark_collapse_end_real;
}

// ---- the marks ---------------------------------------------------------------------------------

void mark_start(u32 label) { profiler_thread->mark_start(label, profiler_kind_start); }
void mark_end(u32 label) { profiler_thread->mark_end(label, profiler_kind_end); }
void mark_collapse_start(u32 label) { profiler_thread->mark_collapse_start(label); }
void mark_collapse_end(u32 label) { profiler_thread->mark_collapse_end(label); }

// ---- set-up ---------------------------------------------------------------------------------------

void profiler_init(u32 thread_type, u64 event_capacity, u32 *error) {
    // Both spans are measured: at start they hold the readings, at finish
    // the differences.
    profiler_clock = profiler_clock_t{};
    profiler_clock.qpc_frequency = os_counter_frequency();
    profiler_clock.clock_measured = 0;
    profiler_clock.tsc_span = os_time_stamp();
    profiler_clock.qpc_span = os_counter();
    profiler_ready.store(1, std::memory_order_release);
    profiler_thread_init(thread_type, event_capacity, error);
}

void profiler_thread_init(u32 thread_type, u64 event_capacity, u32 *error) {
    if (*error) return;
    // Without a profiler set up (tools, tests) a thread simply stays on the
    // record that does nothing.
    if (!profiler_ready.load(std::memory_order_acquire)) return;
    assert_message(profiler_thread == &profiler_disabled_thread, "The thread has a profiler record already.");
    u32 index = profiler_thread_count.fetch_add(1, std::memory_order_acq_rel);
    assert_message(index < profiler_max_threads, "Too many threads for the profiler.");
    profiler_thread_t *t = &profiler_threads[index];
    *t = profiler_thread_t{};
    t->thread_type = thread_type;
    u64 depth_size = profiler_label_count * sizeof(u32);
    u64 events_size = event_capacity * sizeof(profiler_event_t);
    u8 *memory = (u8 *)os_memory_alloc(events_size + depth_size);
    if (!memory) {
        *error = profiler_error_no_memory;
        profiler_table_apply(t, 0xFFFFFFFF);
        profiler_thread = t;
        return;
    }
    t->events = (profiler_event_t *)memory;
    t->write = t->events;
    t->end = t->events + event_capacity;
    t->depth = (u32 *)(memory + events_size);
    profiler_table_apply(t, profiler_disabled_parts.load(std::memory_order_acquire));
    profiler_thread = t;
}

void profiler_disable(u32 mask) {
    u32 parts = mask == 0 ? 0xFFFFFFFF : mask;
    profiler_disabled_parts.fetch_or(parts, std::memory_order_acq_rel);
    profiler_thread_t *t = profiler_thread;
    if (t == &profiler_disabled_thread) return;
    if (mask == 0 || (mask & 1)) {
        t->mark_start = profiler_mark_nothing;
        t->mark_end = profiler_mark_nothing;
    }
    if (mask == 0 || (mask & 2)) {
        t->mark_collapse_start = profiler_collapse_nothing;
        t->mark_collapse_end = profiler_collapse_nothing;
    }
}

void profiler_finish() {
    assert_message(profiler_ready.load(std::memory_order_acquire), "The profiler was not started.");
    profiler_clock.tsc_span = os_time_stamp() - profiler_clock.tsc_span;
    profiler_clock.qpc_span = os_counter() - profiler_clock.qpc_span;
    u32 count = profiler_thread_count.load(std::memory_order_acquire);
    if (count > profiler_max_threads) count = profiler_max_threads;
    for (u32 i = 0; i < count; i++) {
        const profiler_thread_t *t = &profiler_threads[i];
        if (!t->depth) continue;
        for (u32 label = 0; label < profiler_label_count; label++) {
            assert_message(t->depth[label] == 0, "A profiler mark was started and never ended.");
        }
    }
}

// ---- the file --------------------------------------------------------------------------------------

struct profiler_writer_t {
    u8 *bytes;
    u64 used;
};

static void profiler_put(profiler_writer_t *w, const void *source, u64 size) {
    if (w->bytes) memory_copy(w->bytes + w->used, source, size);
    w->used += size;
}
static void profiler_put_u8(profiler_writer_t *w, u8 v) { profiler_put(w, &v, 1); }
static void profiler_put_u16(profiler_writer_t *w, u16 v) { profiler_put(w, &v, 2); }
static void profiler_put_u32(profiler_writer_t *w, u32 v) { profiler_put(w, &v, 4); }
static void profiler_put_u64(profiler_writer_t *w, u64 v) { profiler_put(w, &v, 8); }

// Header and metadata; with a null `bytes` it only measures.
static void profiler_put_head(profiler_writer_t *w, u32 timeline_count, u64 metadata_size, u64 events_size) {
    u64 type_names_size = 0, label_names_size = 0;
    for (const char *name : profiler_thread_type_names) type_names_size += string_length(name);
    for (const char *name : profiler_label_names) label_names_size += string_length(name);

    profiler_put(w, "PROF", 4);
    profiler_put_u32(w, 1);
    profiler_put_u64(w, metadata_size);
    profiler_put_u64(w, 40);
    profiler_put_u64(w, events_size);
    profiler_put_u64(w, align_up(40 + metadata_size, 16));

    profiler_put_u32(w, 2);
    profiler_put_u32(w, timeline_count);
    profiler_put_u32(w, profiler_label_count);
    profiler_put_u64(w, type_names_size);
    profiler_put_u64(w, label_names_size);
    for (const char *name : profiler_thread_type_names) profiler_put_u16(w, (u16)string_length(name));
    for (const char *name : profiler_thread_type_names) profiler_put(w, name, string_length(name));
    for (u32 i = 0; i < timeline_count; i++) {
        const profiler_thread_t *t = &profiler_threads[i];
        profiler_put_u64(w, (u64)(t->write - t->events) * sizeof(profiler_event_t));
    }
    for (u32 i = 0; i < timeline_count; i++) profiler_put_u32(w, profiler_threads[i].thread_type);
    for (const char *name : profiler_label_names) profiler_put_u16(w, (u16)string_length(name));
    for (const char *name : profiler_label_names) profiler_put(w, name, string_length(name));
    profiler_put_u64(w, profiler_clock.qpc_frequency);
    profiler_put_u64(w, profiler_clock.tsc_span);
    profiler_put_u64(w, profiler_clock.qpc_span);
    profiler_put_u8(w, profiler_clock.clock_measured);
    profiler_put_u8(w, profiler_clock.clock_kind);
    profiler_put_u8(w, profiler_clock.clock_shift);
    profiler_put_u64(w, profiler_clock.clock_bias);
    profiler_put_u64(w, profiler_clock.clock_multiplier);
    profiler_put_u64(w, profiler_clock.clock_offset);
    profiler_put_u32(w, profiler_clock.clock_scale);
    profiler_put_u32(w, profiler_clock.clock_scale_shift);
}

void profiler_write(const data_t *path, bool overwrite, u32 *error) {
    if (*error) return;
    if (!path || !path->used || !path->bytes) {
        *error = profiler_error_empty_destination;
        return;
    }
    u32 timeline_count = profiler_thread_count.load(std::memory_order_acquire);
    if (timeline_count > profiler_max_threads) timeline_count = profiler_max_threads;
    u64 events_size = 0;
    for (u32 i = 0; i < timeline_count; i++) {
        const profiler_thread_t *t = &profiler_threads[i];
        u64 size = (u64)(t->write - t->events) * sizeof(profiler_event_t);
        assert_message(size % 32 == 0, "A profiler timeline holds an unmatched event.");
        events_size += size;
    }

    // Measure the metadata, then build header and metadata in one block.
    profiler_writer_t measure = {nullptr, 0};
    profiler_put_head(&measure, timeline_count, 0, 0);
    u64 metadata_size = measure.used - 40;
    u64 head_size = align_up(40 + metadata_size, 16);
    data_t head = data_virtual_alloc(head_size, 0);
    if (!head.bytes) {
        *error = profiler_error_no_memory;
        return;
    }
    memory_zero(head.bytes, head_size);
    profiler_writer_t w = {head.bytes, 0};
    profiler_put_head(&w, timeline_count, metadata_size, events_size);

    u32 file_error = 0;
    file_handle_t file = file_open(path, true, overwrite, &file_error);
    if (file_error) {
        *error = profiler_error_create;
        data_virtual_free(&head);
        return;
    }
    u64 offset = 0;
    u64 written = file_write(file, offset, head_size, head.bytes, &file_error);
    offset += written;
    for (u32 i = 0; i < timeline_count && !file_error; i++) {
        const profiler_thread_t *t = &profiler_threads[i];
        u64 size = (u64)(t->write - t->events) * sizeof(profiler_event_t);
        if (!size) continue;
        offset += file_write(file, offset, size, t->events, &file_error);
    }
    u32 close_error = 0;
    file_close(file, &close_error);
    if (file_error == file_error_short_write) *error = profiler_error_short_write;
    else if (file_error) *error = profiler_error_write;
    data_virtual_free(&head);
}
