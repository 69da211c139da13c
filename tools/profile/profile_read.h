// profile_read.h - the reading half of the profiler: "profile.bin" back into
// timelines, a tree of spans for each, per-label totals, and the text report.
// Only tidewrack-profile and the tests use it; the program only writes.
#pragma once

#include "base/profiler.h"

struct profiler_node_t {
    u32 label;
    u64 start;
    u64 end;
    profiler_node_t *first_child;
    profiler_node_t *next_sibling;
    profiler_node_t *parent;
    profiler_node_t *last_child;
};

struct profiler_total_t {
    u64 hits;
    u64 ticks;      // including children
    u64 self_ticks; // without children
    f64 seconds;
    f64 self_seconds;
};

struct profiler_timeline_t {
    u32 thread_type;
    u64 event_count;
    profiler_event_t *events;
    profiler_node_t *root; // children are the top-level spans
    profiler_total_t totals[profiler_label_count];
};

struct profiler_report_t {
    data_t file;  // the whole file, owned by the report
    data_t nodes; // space for the trees
    u32 thread_type_count;
    u32 timeline_count;
    u32 label_count;
    data_t thread_type_names[2];
    data_t label_names[profiler_label_count];
    profiler_clock_t clock;
    profiler_timeline_t *timelines;
};

void profiler_read(profiler_report_t *report, const data_t *path, u32 *error);
// Writes what fits of the text report and returns the size of the whole of
// it, so a null destination with size 0 measures.
u64 profiler_report(const profiler_report_t *report, u8 *destination, u64 size, u32 *error);
