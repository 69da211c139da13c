// The program itself, started as a child process: it opens its window, idles
// without using the processor, ends on SIGTERM or SIGINT with status 0 and
// leaves a saved snapshot; without a display it still saves and says why; a
// damaged newest snapshot stops it before any file is touched.
#include "program_run.h"

#include <cstdlib>
#include <fstream>
#include <map>

namespace {

TEST(Program, OpensIdlesAndSavesWhenASignalEndsIt) {
    for (int signal_number : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(strsignal(signal_number));
        run_t run;
        run.start({"-gfx_log", "-log", "-profile"});
        // The OpenGL report is written once the window and its context exist.
        ASSERT_TRUE(run.wait_for_file(run.folder / "win32_opengl.log", "GL_VERSION", 60))
            << "no window; stderr: " << run.err();
        EXPECT_TRUE(run.becomes_idle(20)) << "still using the processor";
        kill(run.pid, signal_number);
        ASSERT_TRUE(run.wait_exit(60));
        ASSERT_TRUE(WIFEXITED(run.status)) << "ended by signal " << WTERMSIG(run.status);
        EXPECT_EQ(WEXITSTATUS(run.status), 0);
        EXPECT_EQ(run.snapshots().size(), 1u);
        EXPECT_EQ(run.err(), "");
        // -log: the main log, with the frames that ran; -profile: the events.
        EXPECT_NE(read_whole(run.folder / "log.txt").find("Frame start: "), std::string::npos);
        EXPECT_GT(fs::file_size(run.folder / "profile.bin"), 64u);
        // The report tool reads what the program wrote: the main thread's
        // frames and the six workers' timelines.
        int status = -1;
        std::string report =
            command_output(std::string(TIDEWRACK_PROFILE_TOOL) + " " + (run.folder / "profile.bin").string(), &status);
        EXPECT_EQ(status, 0);
        size_t main_at = report.find("] - main\n");
        ASSERT_NE(main_at, std::string::npos) << report.substr(0, 2000);
        EXPECT_NE(report.find("\nframe ", main_at), std::string::npos);
        size_t workers = 0;
        for (size_t at = 0; (at = report.find("] - worker_thread\n", at)) != std::string::npos; at++) workers++;
        EXPECT_EQ(workers, 6u);
    }
}

TEST(Program, WithoutAWindowItStillSavesAndSaysWhy) {
    struct {
        const char *what;
        bool display;
        std::vector<std::pair<std::string, std::string>> environment;
        const char *reason;
    } cases[] = {
        {"no display", false, {}, "no display"},
        // Mesa told to offer nothing newer than OpenGL 3.1.
        {"no OpenGL 3.3", true, {{"MESA_GL_VERSION_OVERRIDE", "3.1"}}, "OpenGL 3.3"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        run_t run;
        run.start({}, c.display, c.environment);
        ASSERT_TRUE(run.wait_exit(60));
        ASSERT_TRUE(WIFEXITED(run.status));
        EXPECT_EQ(WEXITSTATUS(run.status), 0);
        EXPECT_EQ(run.snapshots().size(), 1u);
        std::string err = run.err();
        EXPECT_EQ(err.rfind("tidewrack: no window: ", 0), 0u) << err;
        EXPECT_NE(err.find(c.reason), std::string::npos) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    }
}

TEST(Program, ADamagedNewestSnapshotStopsTheStartUpAndTouchesNothing) {
    struct {
        const char *what;
        std::string bytes;
    } cases[] = {
        {"not a reader file", "this is not a snapshot"},
        {"empty", ""},
        {"right magic, cut short", std::string("feed\x01\x00\x00\x00", 8) + std::string(20, '\0')},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        run_t run;
        fs::create_directories(run.data);
        const fs::path older = run.data / "feed_data_20240101_000000.bin";
        const fs::path newest = run.data / "feed_data_20250101_000000.bin";
        const fs::path other = run.data / "notes.txt";
        std::ofstream(older, std::ios::binary) << "an older one";
        std::ofstream(newest, std::ios::binary) << c.bytes;
        std::ofstream(other) << "someone else's";
        auto listing = [&] {
            std::map<std::string, std::pair<std::string, fs::file_time_type>> m;
            for (auto &e : fs::directory_iterator(run.data))
                m[e.path().filename().string()] = {read_whole(e.path()), fs::last_write_time(e.path())};
            return m;
        };
        auto before = listing();
        run.start({"-log", "-profile"});
        ASSERT_TRUE(run.wait_exit(60));
        ASSERT_TRUE(WIFEXITED(run.status));
        EXPECT_NE(WEXITSTATUS(run.status), 0);
        EXPECT_EQ(listing(), before);
        std::string err = run.err();
        EXPECT_NE(err.find(newest.string()), std::string::npos) << err;
        EXPECT_NE(err.find("Move that file out of the folder"), std::string::npos) << err;
        EXPECT_FALSE(fs::exists(run.folder / "log.txt"));
        EXPECT_FALSE(fs::exists(run.folder / "profile.bin"));
    }
}

} // namespace
