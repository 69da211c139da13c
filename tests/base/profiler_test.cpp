// The profiler: marks, the collapse of old frames, the file, the reader and
// the report tool. The profiler is process-wide state, so these tests have a
// program of their own, and each test records on threads of its own.
#include "base/profiler.h"

#include "base/files.h"
#include "base_test_util.h"
#include "os/os_core.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

void profiler_start_once() {
    static bool started = false;
    if (started) return;
    started = true;
    u32 error = 0;
    profiler_init(profiler_thread_main, 100000, &error);
    ASSERT_EQ(error, 0u);
}

// Runs `body` on a new thread with a profiler record of its own and gives
// back that record.
profiler_thread_t *on_profiled_thread(u32 type, u64 capacity, const std::function<void()> &body) {
    profiler_thread_t *record = nullptr;
    std::thread t([&] {
        u32 error = 0;
        profiler_thread_init(type, capacity, &error);
        EXPECT_EQ(error, 0u);
        record = profiler_thread_current();
        body();
    });
    t.join();
    return record;
}

// Spans nested in the order given.
void nested(std::initializer_list<u32> labels) {
    for (u32 l : labels) mark_start(l);
    for (auto l = std::rbegin(labels); l != std::rend(labels); ++l) mark_end(*l);
}

// One frame: a collapsible span with a fixed amount of detail (6 events).
void frame_with_detail() {
    mark_collapse_start(label_frame);
    nested({label_window_content, label_layout_text});
    {
        PROFILE_SCOPE(render);
    }
    mark_collapse_end(label_frame);
}

u64 events_of(const profiler_thread_t *t) { return (u64)(t->write - t->events); }

// Runs the report tool on `arguments` and gives back what it printed and its exit status.
std::string run_tool(const std::string &arguments, int *status) {
    FILE *pipe = popen((std::string(TIDEWRACK_PROFILE_TOOL) + " " + arguments).c_str(), "r");
    std::string printed;
    char buffer[65536];
    for (size_t n; pipe && (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) printed.append(buffer, n);
    *status = pipe ? pclose(pipe) : -1;
    return printed;
}

} // namespace

TEST(Profiler, UnregisteredThreadMarksNothing) {
    profiler_start_once();
    std::thread t([] {
        const profiler_thread_t *before = profiler_thread_current();
        mark_start(label_x);
        mark_end(label_x);
        mark_collapse_start(label_frame);
        mark_collapse_end(label_frame);
        EXPECT_EQ(profiler_thread_current(), before);
        EXPECT_EQ(before->write, nullptr);
    });
    t.join();
}

TEST(Profiler, CollapseKeepsTheLastSixtyFramesInFull) {
    profiler_start_once();
    std::vector<u64> sizes;
    std::vector<profiler_event_t> first_frame;
    profiler_thread_t *t = on_profiled_thread(profiler_thread_worker, 10000, [&] {
        for (u32 frame = 0; frame < 100; frame++) {
            frame_with_detail();
            profiler_thread_t *self = profiler_thread_current();
            if (frame == 0) first_frame.assign(self->events, self->write);
            sizes.push_back(events_of(self));
        }
    });
    ASSERT_EQ(first_frame.size(), 8u);
    for (u32 i = 1; i < 8; i++) EXPECT_GE(first_frame[i].time, first_frame[i - 1].time);
    // Frames 1 to 60 add 8 events each. From frame 61 on, a frame adds its 8,
    // takes the 6 of detail of the oldest, and adds the pair that measures
    // the collapse: 4 a frame.
    EXPECT_EQ(sizes[59], 60u * 8);
    for (u32 i = 60; i < 100; i++) EXPECT_EQ(sizes[i] - sizes[i - 1], 4u) << i;
    EXPECT_EQ(t->collapse_count, 100u);

    // The first frame is now its two events, marked as collapsed, with the
    // times they had; then the second frame's start, also collapsed.
    EXPECT_EQ(t->events[0].kind, profiler_kind_collapse_start | profiler_kind_collapsed);
    EXPECT_EQ(t->events[1].kind, profiler_kind_collapse_end | profiler_kind_collapsed);
    EXPECT_EQ(t->events[0].time, first_frame[0].time);
    EXPECT_EQ(t->events[1].time, first_frame[7].time);
    EXPECT_EQ(t->events[1].label, (u32)label_frame);
    EXPECT_EQ(t->events[2].kind, profiler_kind_collapse_start | profiler_kind_collapsed);

    // The last frame's start points at its full detail.
    profiler_event_t *last = t->collapse_start[99 % profiler_collapse_frames];
    EXPECT_EQ(last->kind, profiler_kind_collapse_start);
    EXPECT_EQ(last[1].label, (u32)label_window_content);
    EXPECT_EQ(last + 8, t->write);
}

TEST(Profiler, FullBufferSkipsWholeSpans) {
    profiler_start_once();
    profiler_thread_t *t = on_profiled_thread(profiler_thread_worker, 10, [] {
        for (int round = 0; round < 50; round++) nested({label_x, label_extra_step, label_image_resize});
        for (int frame = 0; frame < 100; frame++) frame_with_detail();
    });
    EXPECT_LE(events_of(t), 10u);
    EXPECT_EQ(t->open, 0u);
    EXPECT_EQ(t->skipped, 0u);
    // What is there still nests: every start has its end.
    std::vector<u32> stack;
    for (u64 i = 0; i < events_of(t); i++) {
        if (t->events[i].kind & 1) stack.push_back(t->events[i].label);
        else {
            ASSERT_FALSE(stack.empty());
            EXPECT_EQ(stack.back(), t->events[i].label);
            stack.pop_back();
        }
    }
    EXPECT_TRUE(stack.empty());
    for (u32 l = 0; l < profiler_label_count; l++) EXPECT_EQ(t->depth[l], 0u);
}

TEST(Profiler, DisableReachesTheCallerAndLaterThreads) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Switching off is for the whole run, so it is tried in a child process.
    EXPECT_EXIT(
        {
            u32 error = 0;
            profiler_init(profiler_thread_main, 1000, &error);
            profiler_thread_t *main_record = profiler_thread_current();
            profiler_disable(0);
            frame_with_detail();
            profiler_thread_t *worker = on_profiled_thread(profiler_thread_worker, 100, [] { nested({label_x}); });
            exit(main_record->write == main_record->events && worker->write == worker->events ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EXIT(
        {
            u32 error = 0;
            profiler_init(profiler_thread_main, 1000, &error);
            profiler_disable(2); // only the collapse pair is off: the 6 plain marks stay
            frame_with_detail();
            exit(events_of(profiler_thread_current()) == 6 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Profiler, StartWithoutEndFailsAtFinish) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            u32 error = 0;
            profiler_init(profiler_thread_main, 1000, &error);
            mark_start(label_x);
            profiler_finish();
        },
        "never ended");
}

// ---- the file, the reader and the tool ------------------------------------------------------

namespace {

struct file_head_t {
    char magic[4];
    u32 version;
    u64 metadata_size, metadata_offset, events_size, events_offset;
};

// Writes a profile with the main thread and three workers, each with more
// than 60 frames, and gives back its path.
std::string write_profile(temp_folder_t &dir) {
    profiler_start_once();
    std::vector<std::thread> workers;
    for (u32 w = 0; w < 3; w++) {
        workers.emplace_back([w] {
            u32 error = 0;
            profiler_thread_init(profiler_thread_worker, 5000, &error);
            for (u32 round = 0; round < 70 + w; round++) {
                mark_collapse_start(label_thread_loop);
                nested({label_thread_do_work, label_thread_user_function, label_http_file_get});
                mark_collapse_end(label_thread_loop);
            }
        });
    }
    for (auto &t : workers) t.join();
    for (u32 frame = 0; frame < 80; frame++) {
        mark_collapse_start(label_frame);
        // layout_text is recursive: counted once in the total.
        nested({label_window_content, label_draw_left_panel, label_layout_text, label_layout_text});
        mark_collapse_end(label_frame);
    }
    profiler_finish();
    std::string path = dir / "profile.bin";
    data_t p = view_of(path);
    u32 error = 0;
    profiler_write(&p, true, &error);
    EXPECT_EQ(error, 0u);
    return path;
}

u64 count_nodes(const profiler_node_t *node, u32 label) {
    u64 n = 0;
    for (const profiler_node_t *c = node->first_child; c; c = c->next_sibling) {
        n += (c->label == label) + count_nodes(c, label);
    }
    return n;
}

// The file with every number in the other byte order.
std::string swapped(const std::string &file) {
    std::string out = file;
    u64 at = 0;
    auto number = [&](u64 where, u32 size) {
        u64 v = 0;
        memcpy(&v, file.data() + where, size);
        return v;
    };
    auto swap = [&](u64 count, u32 size) {
        for (; count; count--, at += size) std::reverse(out.begin() + at, out.begin() + at + size);
    };
    file_head_t head;
    memcpy(&head, file.data(), sizeof(head));
    swap(2, 4), swap(4, 8); // the magic reads "FORP"
    u64 type_count = number(40, 4), timelines = number(44, 4), labels = number(48, 4);
    u64 type_names = number(52, 8), label_names = number(60, 8);
    swap(3, 4), swap(2, 8), swap(type_count, 2);
    at += type_names;
    swap(timelines, 8), swap(timelines, 4), swap(labels, 2);
    at += label_names;
    swap(3, 8);
    at += 3;
    swap(3, 8), swap(2, 4);
    EXPECT_EQ(at, 40 + head.metadata_size);
    for (at = head.events_offset; at < head.events_offset + head.events_size;) swap(1, 8), swap(2, 4);
    return out;
}

u32 read_error(const std::string &path, const std::string &bytes) {
    write_whole(path, bytes);
    profiler_report_t report;
    data_t p = view_of(path);
    u32 error = 0;
    profiler_read(&report, &p, &error);
    if (error) EXPECT_EQ(report.file.bytes, nullptr);
    return error;
}

} // namespace

TEST(ProfilerFile, WrittenReadBackAndReported) {
    temp_folder_t dir;
    std::string path = write_profile(dir);
    std::string file = read_whole(path);
    ASSERT_GE(file.size(), 40u);

    // The header: metadata right after it, events at the next 16 after that, zeros between.
    file_head_t head;
    memcpy(&head, file.data(), sizeof(head));
    EXPECT_EQ(std::string(head.magic, 4), "PROF");
    EXPECT_EQ(head.version, 1u);
    EXPECT_EQ(head.metadata_offset, 40u);
    EXPECT_EQ(head.events_offset, align_up(40 + head.metadata_size, 16));
    EXPECT_EQ(head.events_offset + head.events_size, file.size());
    for (u64 i = 40 + head.metadata_size; i < head.events_offset; i++) EXPECT_EQ(file[i], 0);

    // Read back.
    profiler_report_t report;
    data_t p = view_of(path);
    u32 error = 0;
    profiler_read(&report, &p, &error);
    ASSERT_EQ(error, 0u);
    EXPECT_EQ(report.thread_type_count, 2u);
    EXPECT_EQ(text_of(report.thread_type_names[0]), "worker_thread");
    EXPECT_EQ(text_of(report.thread_type_names[1]), "main");
    EXPECT_EQ(report.label_count, (u32)profiler_label_count);
    for (u32 l = 0; l < profiler_label_count; l++)
        EXPECT_EQ(text_of(report.label_names[l]), profiler_label_names[l]);
    EXPECT_EQ(report.clock.clock_measured, 0);
    EXPECT_EQ(report.clock.qpc_frequency, os_counter_frequency());

    // Find the main timeline and this test's three workers by what they hold.
    const profiler_timeline_t *main_line = nullptr;
    std::vector<const profiler_timeline_t *> worker_lines;
    for (u32 i = 0; i < report.timeline_count; i++) {
        const profiler_timeline_t *t = &report.timelines[i];
        if (t->thread_type == profiler_thread_main) main_line = t;
        else if (t->totals[label_thread_loop].hits >= 70) worker_lines.push_back(t);
    }
    ASSERT_NE(main_line, nullptr);
    ASSERT_EQ(worker_lines.size(), 3u);

    // Main: 80 frames, 20 of them collapsed to their two events; 60 whole.
    const profiler_total_t &frames = main_line->totals[label_frame];
    EXPECT_EQ(frames.hits, 80u);
    EXPECT_EQ(main_line->totals[label_window_content].hits, 60u);
    EXPECT_EQ(main_line->totals[label_layout_text].hits, 120u);
    EXPECT_EQ(main_line->totals[label_profiler_collapse].hits, 20u);
    EXPECT_EQ(count_nodes(main_line->root, label_frame), 80u);
    // A recursive label counts its outer span only; its self time is not
    // more than its total.
    const profiler_total_t &layout = main_line->totals[label_layout_text];
    EXPECT_LE(layout.self_ticks, layout.ticks);
    u64 outer = 0;
    for (const profiler_node_t *f = main_line->root->first_child; f; f = f->next_sibling) {
        if (f->label != label_frame) continue;
        for (const profiler_node_t *w = f->first_child; w; w = w->next_sibling)
            for (const profiler_node_t *d = w->first_child; d; d = d->next_sibling)
                for (const profiler_node_t *l = d->first_child; l; l = l->next_sibling) outer += l->end - l->start;
    }
    EXPECT_EQ(layout.ticks, outer);
    EXPECT_GE(frames.ticks, main_line->totals[label_window_content].ticks);
    EXPECT_NEAR(frames.seconds, profiler_ticks_to_seconds(&report, frames.ticks), frames.seconds * 1e-6);

    // Each worker: its rounds, the last 60 whole.
    for (const profiler_timeline_t *w : worker_lines) {
        u64 rounds = w->totals[label_thread_loop].hits;
        EXPECT_LE(rounds, 72u);
        EXPECT_EQ(w->totals[label_http_file_get].hits, 60u);
        EXPECT_EQ(w->totals[label_profiler_collapse].hits, rounds - 60);
    }

    // The text report.
    u64 size = profiler_report(&report, nullptr, 0, &error);
    ASSERT_GT(size, 0u);
    std::string text(size, '\0');
    EXPECT_EQ(profiler_report(&report, (u8 *)text.data(), text.size(), &error), size);
    for (const char *part : {"# Totals\n", "\n# Tree\n", "] - main\n", "] - worker_thread\n", "----------\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    // The main timeline's frames are counted, and its largest total (which
    // one depends on the machine) carries the full bar.
    size_t main_at = text.find("] - main\n");
    size_t frame_line = text.find("\nframe ", main_at);
    ASSERT_NE(frame_line, std::string::npos);
    std::string line = text.substr(frame_line + 1, text.find('\n', frame_line + 1) - frame_line - 1);
    EXPECT_NE(line.find(" 80h | "), std::string::npos) << line;
    size_t first_total = text.find("# Totals\n", main_at) + 9;
    std::string largest = text.substr(first_total, text.find('\n', first_total) - first_total);
    EXPECT_EQ(largest.substr(largest.size() - 20), std::string(20, '=')) << largest;
    // A short destination gets what fits and the same measure.
    std::string cut(100, '#');
    EXPECT_EQ(profiler_report(&report, (u8 *)cut.data(), 50, &error), size);
    EXPECT_EQ(cut.substr(0, 50), text.substr(0, 50));
    EXPECT_EQ(cut[50], '#');

    // The same file in the other byte order reads the same.
    std::string swapped_path = dir / "swapped.bin";
    write_whole(swapped_path, swapped(file));
    profiler_report_t other;
    data_t sp = view_of(swapped_path);
    profiler_read(&other, &sp, &error);
    ASSERT_EQ(error, 0u);
    ASSERT_EQ(other.timeline_count, report.timeline_count);
    for (u32 i = 0; i < report.timeline_count; i++) {
        for (u32 l = 0; l < profiler_label_count; l++) {
            EXPECT_EQ(other.timelines[i].totals[l].hits, report.timelines[i].totals[l].hits);
            EXPECT_EQ(other.timelines[i].totals[l].ticks, report.timelines[i].totals[l].ticks);
        }
    }
    EXPECT_EQ(other.clock.tsc_span, report.clock.tsc_span);

    // The tool prints the same report.
    int status = -1;
    EXPECT_EQ(run_tool(path, &status), text);
    EXPECT_EQ(status, 0);
}

TEST(ProfilerFile, DamagedFilesAreRefused) {
    temp_folder_t dir;
    // A small valid file to damage.
    std::string path = dir / "profile.bin";
    profiler_start_once();
    nested({label_x});
    profiler_finish();
    data_t p = view_of(path);
    u32 error = 0;
    profiler_write(&p, true, &error);
    ASSERT_EQ(error, 0u);
    std::string file = read_whole(path);
    std::string bad = dir / "bad.bin";

    EXPECT_EQ(read_error(bad, ""), (u32)profiler_error_read);
    EXPECT_EQ(read_error(bad, "PROF"), (u32)profiler_error_magic);
    EXPECT_EQ(read_error(bad, std::string(40, 'x')), (u32)profiler_error_magic);
    EXPECT_EQ(read_error(bad, "JUNK" + file.substr(4)), (u32)profiler_error_magic);
    EXPECT_EQ(read_error(bad, file.substr(0, 4) + std::string("\x02\0\0\0", 4) + file.substr(8)),
              (u32)profiler_error_version);

    // Every cut of the file, and single damaged bytes everywhere in its head,
    // are refused or read without touching anything outside the file.
    for (size_t cut = 0; cut < file.size(); cut += (cut < 2000 ? 1 : 97))
        EXPECT_NE(read_error(bad, file.substr(0, cut)), 0u) << cut;
    u64 events_offset;
    memcpy(&events_offset, file.data() + 32, 8);
    data_t b = view_of(bad);
    for (size_t at = 4; at < events_offset && at < file.size(); at++) {
        for (u8 value : {0x00, 0x01, 0x7F, 0xFF}) {
            std::string damaged = file;
            damaged[at] = (char)value;
            write_whole(bad, damaged);
            profiler_report_t report;
            error = 0;
            profiler_read(&report, &b, &error);
            if (error) continue;
            std::string text(profiler_report(&report, nullptr, 0, &error), '\0');
            profiler_report(&report, (u8 *)text.data(), text.size(), &error);
            data_virtual_free(&report.file);
            data_virtual_free(&report.nodes);
        }
    }
    // Events that do not nest.
    std::string unnested = file;
    profiler_event_t e;
    memcpy(&e, unnested.data() + events_offset, 16);
    e.kind = profiler_kind_end;
    memcpy(unnested.data() + events_offset, &e, 16);
    EXPECT_EQ(read_error(bad, unnested), (u32)profiler_error_read);
}

TEST(ProfilerFile, ToolRefusesWhatItCantRead) {
    int status = 0;
    std::string printed = run_tool("/nonexistent/profile.bin 2>&1", &status);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(printed.find("can't read"), std::string::npos);
}
