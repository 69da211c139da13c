// profile_read.cpp - the reading half of the profiler: "profile.bin" back
// into timelines, a tree of spans for each, per-label totals, and the text
// report. The running program never calls it; tidewrack-profile and the
// tests do.
//
// The file comes from outside: every size and offset is checked against the
// file before it is used, and a file that does not hold together is error
// profiler_error_read.
#include "base/files.h"
#include "tools/profile/profile_read.h"
#include "base/text.h"

// ---- reading bytes -------------------------------------------------------------------------

struct profiler_cursor_t {
    const u8 *bytes;
    u64 size;
    u64 at;
    bool swap;
    bool bad;
};

static u64 profiler_swap_bytes(u64 v, u32 size) {
    u64 r = 0;
    for (u32 i = 0; i < size; i++) r |= ((v >> (8 * i)) & 0xFF) << (8 * (size - 1 - i));
    return r;
}

static u64 profiler_take(profiler_cursor_t *c, u32 size) {
    if (c->bad || c->size - c->at < size || c->at > c->size) {
        c->bad = true;
        return 0;
    }
    u64 v = 0;
    memory_copy(&v, c->bytes + c->at, size); // the machine's order, little-endian here
    c->at += size;
    return c->swap ? profiler_swap_bytes(v, size) : v;
}

static const u8 *profiler_take_bytes(profiler_cursor_t *c, u64 size) {
    if (c->bad || c->at > c->size || c->size - c->at < size) {
        c->bad = true;
        return nullptr;
    }
    const u8 *p = c->bytes + c->at;
    c->at += size;
    return p;
}

// ---- clock conversion -------------------------------------------------------------------------

// A clock record of this kind maps time stamps by a multiplier and an
// offset; the others by a shift.
constexpr u8 profiler_clock_kind_multiply = 2;

// A time stamp as ticks of the system's counter, by the record's mapping.
static f64 profiler_to_counter(const profiler_clock_t *clock, u64 tsc) {
    switch (clock->clock_measured) {
    case 0:
        if (!clock->tsc_span) return 0;
        return (f64)tsc * ((f64)clock->qpc_span / (f64)clock->tsc_span);
    case 1:
        if (clock->clock_kind == profiler_clock_kind_multiply) {
            unsigned __int128 product = (unsigned __int128)tsc * clock->clock_multiplier;
            u64 high = (u64)(product >> 64);
            u64 sum = high + clock->clock_offset + clock->clock_bias;
            return (f64)(clock->clock_shift < 64 ? sum >> clock->clock_shift : 0);
        }
        return (f64)(clock->clock_shift < 64 ? (tsc + clock->clock_bias) >> clock->clock_shift : 0);
    case 2: {
        if (clock->clock_scale_shift > 255) return 0;
        unsigned __int128 product = (unsigned __int128)tsc * clock->clock_scale;
        u32 shift = clock->clock_scale_shift & 63;
        return (f64)(u64)(product >> shift);
    }
    default: return 0;
    }
}

static f64 profiler_span_seconds(const profiler_clock_t *clock, u64 start, u64 end) {
    if (!clock->qpc_frequency) return 0;
    // The measured mapping is a plain ratio: scale the span, not its two
    // stamps. Stamps of a machine that has run for days are large enough
    // that converting each loses a tick or more, which is a visible share of
    // a short span and makes sums of spans disagree with their total.
    if (clock->clock_measured == 0) {
        if (!clock->tsc_span) return 0;
        return (f64)(i64)(end - start) * ((f64)clock->qpc_span / (f64)clock->tsc_span) / (f64)clock->qpc_frequency;
    }
    return (profiler_to_counter(clock, end) - profiler_to_counter(clock, start)) / (f64)clock->qpc_frequency;
}

// ---- reading the file ---------------------------------------------------------------------------

static void profiler_read_fail(profiler_report_t *report, u32 code, u32 *error) {
    data_virtual_free(&report->file);
    data_virtual_free(&report->nodes);
    *report = profiler_report_t{};
    *error = code;
}

// Rebuilds one timeline's tree and sums its totals; false when the events
// don't nest.
static bool profiler_build_tree(profiler_report_t *report, profiler_timeline_t *timeline, data_t *nodes) {
    profiler_node_t *root = (profiler_node_t *)data_push(nodes, sizeof(profiler_node_t), 8);
    if (!root) return false;
    *root = profiler_node_t{};
    root->label = 0xFFFFFFFF;
    timeline->root = root;
    u32 open_of_label[profiler_label_count] = {};
    profiler_node_t *current = root;
    for (u64 i = 0; i < timeline->event_count; i++) {
        const profiler_event_t *e = &timeline->events[i];
        if (e->label >= report->label_count) return false;
        if (e->kind & 1) {
            profiler_node_t *node = (profiler_node_t *)data_push(nodes, sizeof(profiler_node_t), 8);
            if (!node) return false;
            *node = profiler_node_t{};
            node->label = e->label;
            node->start = e->time;
            node->end = e->time;
            node->parent = current;
            if (current->last_child) current->last_child->next_sibling = node;
            else current->first_child = node;
            current->last_child = node;
            current = node;
            open_of_label[e->label]++;
        } else {
            if (current == root || current->label != e->label) return false;
            current->end = e->time < current->start ? current->start : e->time;
            u64 duration = current->end - current->start;
            u64 children = 0;
            for (profiler_node_t *c = current->first_child; c; c = c->next_sibling) children += c->end - c->start;
            profiler_total_t *total = &timeline->totals[current->label];
            total->hits++;
            u64 self = duration > children ? duration - children : 0;
            total->self_ticks += self;
            f64 seconds = profiler_span_seconds(&report->clock, current->start, current->end);
            f64 child_seconds = 0;
            for (profiler_node_t *c = current->first_child; c; c = c->next_sibling) {
                child_seconds += profiler_span_seconds(&report->clock, c->start, c->end);
            }
            total->self_seconds += seconds > child_seconds ? seconds - child_seconds : 0;
            // Only the outermost open of a label adds to its total, so a
            // recursive label isn't counted twice.
            open_of_label[current->label]--;
            if (open_of_label[current->label] == 0) {
                total->ticks += duration;
                total->seconds += seconds;
            }
            current = current->parent;
        }
    }
    return current == root;
}

void profiler_read(profiler_report_t *report, const data_t *path, u32 *error) {
    *report = profiler_report_t{};
    if (*error) return;
    u32 file_error = 0;
    file_read_all(&report->file, path, false, &file_error);
    if (file_error || !report->file.bytes) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }
    profiler_cursor_t c = {report->file.bytes, report->file.used, 0, false, false};
    if (c.size < 40) {
        profiler_read_fail(report, profiler_error_magic, error);
        return;
    }
    if (memory_equal(c.bytes, 4, "PROF", 4)) c.swap = false;
    else if (memory_equal(c.bytes, 4, "FORP", 4)) c.swap = true;
    else {
        profiler_read_fail(report, profiler_error_magic, error);
        return;
    }
    c.at = 4;
    u32 version = (u32)profiler_take(&c, 4);
    if (version != 1) {
        profiler_read_fail(report, profiler_error_version, error);
        return;
    }
    u64 metadata_size = profiler_take(&c, 8);
    u64 metadata_offset = profiler_take(&c, 8);
    u64 events_size = profiler_take(&c, 8);
    u64 events_offset = profiler_take(&c, 8);
    if (metadata_offset != 40 || metadata_size > c.size - 40 || events_offset % 16 != 0 ||
        events_offset < 40 + metadata_size || events_offset > c.size || events_size > c.size - events_offset ||
        events_size % sizeof(profiler_event_t) != 0) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }

    // Metadata.
    profiler_cursor_t m = {c.bytes, 40 + metadata_size, 40, c.swap, false};
    report->thread_type_count = (u32)profiler_take(&m, 4);
    report->timeline_count = (u32)profiler_take(&m, 4);
    report->label_count = (u32)profiler_take(&m, 4);
    u64 type_names_size = profiler_take(&m, 8);
    u64 label_names_size = profiler_take(&m, 8);
    if (m.bad || report->thread_type_count == 0 || report->thread_type_count > 2 ||
        report->label_count != profiler_label_count || report->timeline_count > 0x10000) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }
    u16 type_sizes[2] = {};
    u64 type_sum = 0;
    for (u32 i = 0; i < report->thread_type_count; i++) type_sum += type_sizes[i] = (u16)profiler_take(&m, 2);
    const u8 *type_names = profiler_take_bytes(&m, type_names_size);
    if (m.bad || type_sum != type_names_size) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }
    for (u32 i = 0, at = 0; i < report->thread_type_count; at += type_sizes[i], i++) {
        report->thread_type_names[i] = data_from_pointer(type_names + at, type_sizes[i]);
    }
    const u8 *timeline_sizes = profiler_take_bytes(&m, (u64)report->timeline_count * 8);
    const u8 *timeline_types = profiler_take_bytes(&m, (u64)report->timeline_count * 4);
    u16 label_sizes[profiler_label_count] = {};
    u64 label_sum = 0;
    for (u32 i = 0; i < report->label_count; i++) label_sum += label_sizes[i] = (u16)profiler_take(&m, 2);
    const u8 *label_names = profiler_take_bytes(&m, label_names_size);
    if (m.bad || label_sum != label_names_size) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }
    for (u32 i = 0, at = 0; i < report->label_count; at += label_sizes[i], i++) {
        report->label_names[i] = data_from_pointer(label_names + at, label_sizes[i]);
    }
    profiler_clock_t *clock = &report->clock;
    clock->qpc_frequency = profiler_take(&m, 8);
    clock->tsc_span = profiler_take(&m, 8);
    clock->qpc_span = profiler_take(&m, 8);
    clock->clock_measured = (u8)profiler_take(&m, 1);
    clock->clock_kind = (u8)profiler_take(&m, 1);
    clock->clock_shift = (u8)profiler_take(&m, 1);
    clock->clock_bias = profiler_take(&m, 8);
    clock->clock_multiplier = profiler_take(&m, 8);
    clock->clock_offset = profiler_take(&m, 8);
    clock->clock_scale = (u32)profiler_take(&m, 4);
    clock->clock_scale_shift = (u32)profiler_take(&m, 4);
    if (m.bad) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }

    // Timelines: the sizes must add up to the events' size, in pairs.
    u64 total_events = 0;
    for (u32 i = 0; i < report->timeline_count; i++) {
        profiler_cursor_t s = {timeline_sizes, (u64)report->timeline_count * 8, (u64)i * 8, c.swap, false};
        u64 size = profiler_take(&s, 8);
        if (size % 32 != 0 || size > events_size) {
            profiler_read_fail(report, profiler_error_read, error);
            return;
        }
        total_events += size / sizeof(profiler_event_t);
    }
    if (total_events * sizeof(profiler_event_t) != events_size) {
        profiler_read_fail(report, profiler_error_read, error);
        return;
    }

    profiler_event_t *events = (profiler_event_t *)(report->file.bytes + events_offset);
    if (c.swap) {
        for (u64 i = 0; i < total_events; i++) {
            events[i].time = profiler_swap_bytes(events[i].time, 8);
            events[i].label = (u32)profiler_swap_bytes(events[i].label, 4);
            events[i].kind = (u32)profiler_swap_bytes(events[i].kind, 4);
        }
    }

    // One block for the timeline records and every tree's nodes.
    u64 timelines_size = align_up((u64)report->timeline_count * sizeof(profiler_timeline_t), 16);
    u64 node_count = total_events / 2 + report->timeline_count + 1;
    report->nodes = data_virtual_alloc(timelines_size + node_count * sizeof(profiler_node_t), 0);
    if (!report->nodes.bytes) {
        profiler_read_fail(report, profiler_error_no_memory, error);
        return;
    }
    report->timelines = (profiler_timeline_t *)data_push(&report->nodes, timelines_size, 8);
    u64 at = 0;
    for (u32 i = 0; i < report->timeline_count; i++) {
        profiler_timeline_t *t = &report->timelines[i];
        *t = profiler_timeline_t{};
        profiler_cursor_t s = {timeline_sizes, (u64)report->timeline_count * 8, (u64)i * 8, c.swap, false};
        profiler_cursor_t k = {timeline_types, (u64)report->timeline_count * 4, (u64)i * 4, c.swap, false};
        t->event_count = profiler_take(&s, 8) / sizeof(profiler_event_t);
        t->thread_type = (u32)profiler_take(&k, 4);
        t->events = events + at;
        at += t->event_count;
        if (t->thread_type >= report->thread_type_count || !profiler_build_tree(report, t, &report->nodes)) {
            profiler_read_fail(report, profiler_error_read, error);
            return;
        }
    }
}

// ---- the text report ----------------------------------------------------------------------------

// Writes what fits and counts everything, so a caller can measure first.
struct profiler_text_t {
    u8 *bytes;
    u64 size;
    u64 used;
};

static void text_put(profiler_text_t *t, const void *source, u64 size) {
    if (t->bytes && t->used < t->size) {
        u64 n = t->size - t->used < size ? t->size - t->used : size;
        memory_copy(t->bytes + t->used, source, n);
    }
    t->used += size;
}
static void text_put_z(profiler_text_t *t, const char *s) { text_put(t, s, string_length(s)); }
static void text_put_repeat(profiler_text_t *t, u8 c, u64 count) {
    for (u64 i = 0; i < count; i++) text_put(t, &c, 1);
}
static void text_put_number(profiler_text_t *t, u64 value, u64 width) {
    u8 buffer[32];
    u64 n = number_to_text(buffer, sizeof(buffer), value, width, ' ', 0);
    text_put(t, buffer, n);
}
static void text_put_float(profiler_text_t *t, f64 value, u64 width, u32 decimals) {
    u8 buffer[64];
    u64 n = number_to_text_float(buffer, sizeof(buffer), value, width, ' ', decimals, 0);
    text_put(t, buffer, n);
}

static void profiler_report_timeline(const profiler_report_t *report, u32 index, profiler_text_t *out) {
    const profiler_timeline_t *timeline = &report->timelines[index];
    text_put_z(out, "Timeline[ ");
    text_put_number(out, index, 0);
    text_put_z(out, " ] - ");
    const data_t *type = &report->thread_type_names[timeline->thread_type];
    text_put(out, type->bytes, type->used);
    text_put_z(out, "\n# Totals\n");

    // Labels with a total, largest first (insertion sort: 115 at most).
    u32 order[profiler_label_count];
    u32 shown = 0;
    u64 width = 0;
    for (u32 label = 0; label < report->label_count; label++) {
        if (!timeline->totals[label].ticks) continue;
        u32 j = shown++;
        while (j > 0 && timeline->totals[order[j - 1]].ticks < timeline->totals[label].ticks) {
            order[j] = order[j - 1];
            j--;
        }
        order[j] = label;
        if (report->label_names[label].used > width) width = report->label_names[label].used;
    }
    for (u32 i = 0; i < shown; i++) {
        u32 label = order[i];
        const profiler_total_t *total = &timeline->totals[label];
        const data_t *name = &report->label_names[label];
        text_put(out, name->bytes, name->used);
        text_put_repeat(out, ' ', width - name->used);
        text_put_z(out, " | ");
        text_put_number(out, total->hits, 10);
        text_put_z(out, "h | ");
        text_put_number(out, total->ticks, 16);
        text_put_z(out, "c | ");
        text_put_number(out, total->hits ? total->ticks / total->hits : 0, 12);
        text_put_z(out, "c/h | ");
        text_put_float(out, total->seconds, 14, 9);
        text_put_z(out, "s | ");
        text_put_float(out, total->hits ? total->seconds / (f64)total->hits : 0, 12, 9);
        text_put_z(out, "s/h | ");
        f64 share = (f64)total->ticks / (f64)timeline->totals[order[0]].ticks;
        u32 bars = 0;
        for (u32 k = 1; k <= 20; k++) {
            if (share >= (f64)k / 20.0 - 0.001) bars = k;
        }
        text_put_repeat(out, '=', bars);
        text_put_repeat(out, ' ', 20 - bars);
        text_put_z(out, "\n");
    }

    text_put_z(out, "\n# Tree\n");
    u64 column = width + 24;
    const profiler_node_t *node = timeline->root ? timeline->root->first_child : nullptr;
    u64 depth = 0;
    while (node) {
        const data_t *name = &report->label_names[node->label];
        u64 indent = depth * 2;
        text_put_repeat(out, ' ', indent);
        text_put(out, name->bytes, name->used);
        text_put_z(out, " ");
        u64 taken = indent + name->used + 1;
        text_put_repeat(out, '.', column > taken ? column - taken : 1);
        text_put_z(out, " ");
        text_put_number(out, node->end - node->start, 0);
        text_put_z(out, "c ");
        text_put_float(out, profiler_span_seconds(&report->clock, node->start, node->end), 0, 9);
        text_put_z(out, "s\n");
        // Depth first, without recursion.
        if (node->first_child) {
            node = node->first_child;
            depth++;
            continue;
        }
        while (node && !node->next_sibling) {
            node = node->parent;
            if (node == timeline->root) node = nullptr;
            else depth--;
        }
        if (node) node = node->next_sibling;
    }
}

u64 profiler_report(const profiler_report_t *report, u8 *destination, u64 size, u32 *error) {
    if (*error) return 0;
    if (!destination && size) {
        *error = profiler_error_empty_destination;
        return 0;
    }
    profiler_text_t out = {destination, size, 0};
    for (u32 i = 0; i < report->timeline_count; i++) {
        if (i) text_put_z(&out, "--------------------------------------------------------------------------------\n");
        profiler_report_timeline(report, i, &out);
    }
    return out.used;
}
