// The profiler: marks, the collapse of old frames, the file, the reader and
// the report tool. The profiler is process-wide state, so these tests have a
// program of their own, and each test records on threads of its own.
#include "tools/profile/profile_read.h"

#include "base/files.h"
#include "base_test_util.h"

#include <gtest/gtest.h>

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
profiler_thread_t *on_profiled_thread(u64 capacity, const std::function<void()> &body) {
    profiler_thread_t *record = nullptr;
    std::thread t([&] {
        u32 error = 0;
        profiler_thread_init(profiler_thread_worker, capacity, &error);
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
    return command_output(std::string(TIDEWRACK_PROFILE_TOOL) + " " + arguments, status);
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

TEST(Profiler, CollapseKeepsTheLastSixtyFramesInFull) {
    profiler_start_once();
    std::vector<u64> sizes;
    profiler_thread_t *t = on_profiled_thread(10000, [&] {
        for (u32 frame = 0; frame < 100; frame++) {
            frame_with_detail();
            sizes.push_back(events_of(profiler_thread_current()));
        }
    });
    // Frames 1 to 60 add 8 events each. From frame 61 on, a frame adds its 8,
    // takes the 6 of detail of the oldest, and adds the pair that measures
    // the collapse: 4 a frame.
    EXPECT_EQ(sizes[59], 60u * 8);
    for (u32 i = 60; i < 100; i++) EXPECT_EQ(sizes[i] - sizes[i - 1], 4u) << i;
    EXPECT_EQ(t->events[0].kind, profiler_kind_collapse_start | profiler_kind_collapsed);
    EXPECT_EQ(t->events[1].kind, profiler_kind_collapse_end | profiler_kind_collapsed);
}

TEST(Profiler, FullBufferSkipsWholeSpans) {
    profiler_start_once();
    profiler_thread_t *t = on_profiled_thread(10, [] {
        for (int round = 0; round < 50; round++) nested({label_x, label_extra_step, label_image_resize});
        for (int frame = 0; frame < 100; frame++) frame_with_detail();
    });
    EXPECT_LE(events_of(t), 10u);
    EXPECT_EQ(t->open, 0u);
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
            profiler_thread_t *worker = on_profiled_thread(100, [] { nested({label_x}); });
            exit(main_record->write == main_record->events && worker->write == worker->events ? 0 : 1);
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

TEST(ProfilerFile, WrittenReadBackAndReported) {
    temp_folder_t dir;
    profiler_start_once();
    // Three workers and the main thread, each with more than 60 frames.
    std::vector<std::thread> workers;
    for (u32 w = 0; w < 3; w++) {
        workers.emplace_back([w] {
            u32 error = 0;
            profiler_thread_init(profiler_thread_worker, 5000, &error);
            for (u32 round = 0; round < 70 + w; round++) {
                mark_collapse_start(label_thread_loop);
                nested({label_thread_do_work, label_http_file_get});
                mark_collapse_end(label_thread_loop);
            }
        });
    }
    for (auto &t : workers) t.join();
    for (u32 frame = 0; frame < 80; frame++) {
        mark_collapse_start(label_frame);
        // layout_text is recursive: counted once in the total.
        nested({label_window_content, label_layout_text, label_layout_text});
        mark_collapse_end(label_frame);
    }
    profiler_finish();
    std::string path = dir / "profile.bin";
    data_t p = view_of(path);
    u32 error = 0;
    profiler_write(&p, true, &error);
    ASSERT_EQ(error, 0u);

    profiler_report_t report;
    data_t rp = view_of(path);
    profiler_read(&report, &rp, &error);
    ASSERT_EQ(error, 0u);
    const profiler_timeline_t *main_line = nullptr;
    u32 worker_lines = 0;
    for (u32 i = 0; i < report.timeline_count; i++) {
        const profiler_timeline_t *t = &report.timelines[i];
        if (t->thread_type == profiler_thread_main) main_line = t;
        else if (t->totals[label_thread_loop].hits >= 70) {
            worker_lines++;
            EXPECT_EQ(t->totals[label_http_file_get].hits, 60u);
            EXPECT_EQ(t->totals[label_profiler_collapse].hits, t->totals[label_thread_loop].hits - 60);
        }
    }
    ASSERT_NE(main_line, nullptr);
    EXPECT_EQ(worker_lines, 3u);
    // 80 frames, 20 of them collapsed to their two events; 60 whole.
    EXPECT_EQ(main_line->totals[label_frame].hits, 80u);
    EXPECT_EQ(main_line->totals[label_window_content].hits, 60u);
    EXPECT_EQ(main_line->totals[label_layout_text].hits, 120u);
    const profiler_total_t &layout = main_line->totals[label_layout_text];
    EXPECT_LE(layout.self_ticks, layout.ticks);
    EXPECT_LE(layout.ticks, main_line->totals[label_window_content].ticks);

    // The text report, measured first; a short destination gets what fits.
    u64 size = profiler_report(&report, nullptr, 0, &error);
    ASSERT_GT(size, 0u);
    std::string text(size, '\0');
    EXPECT_EQ(profiler_report(&report, (u8 *)text.data(), text.size(), &error), size);
    for (const char *part : {"# Totals\n", "\n# Tree\n", "] - main\n", "] - worker_thread\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    std::string cut(100, '#');
    EXPECT_EQ(profiler_report(&report, (u8 *)cut.data(), 50, &error), size);
    EXPECT_EQ(cut.substr(0, 50), text.substr(0, 50));
    EXPECT_EQ(cut[50], '#');

    // The tool prints the same report, and refuses what it can't read.
    int status = -1;
    EXPECT_EQ(run_tool(path, &status), text);
    EXPECT_EQ(status, 0);
    std::string printed = run_tool("/nonexistent/profile.bin 2>&1", &status);
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_NE(printed.find("can't read"), std::string::npos);
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

    // Hand-picked damage; fuzz/fuzz_profile tries the rest.
    u64 events_offset;
    memcpy(&events_offset, file.data() + 32, 8);
    ASSERT_LT(events_offset + 16, file.size());
    std::string unnested = file;
    profiler_event_t e;
    memcpy(&e, unnested.data() + events_offset, 16);
    e.kind = profiler_kind_end;
    memcpy(unnested.data() + events_offset, &e, 16);
    const u32 any_error = ~0u;
    struct {
        const char *what;
        std::string bytes;
        u32 error;
    } rows[] = {
        {"magic", "JUNK" + file.substr(4), profiler_error_magic},
        {"version", file.substr(0, 4) + std::string("\x02\0\0\0", 4) + file.substr(8), profiler_error_version},
        {"events that do not nest", unnested, profiler_error_read},
        // Cut files: refused, whichever check sees it first.
        {"empty", "", any_error},
        {"cut in the header", file.substr(0, 20), any_error},
        {"cut before the events", file.substr(0, events_offset), any_error},
        {"cut in an event", file.substr(0, events_offset + 8), any_error},
        {"cut by one byte", file.substr(0, file.size() - 1), any_error},
    };
    for (const auto &r : rows) {
        u32 error = read_error(bad, r.bytes);
        if (r.error == any_error) EXPECT_NE(error, 0u) << r.what;
        else EXPECT_EQ(error, r.error) << r.what;
    }
}
