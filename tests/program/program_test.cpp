// The program itself, started as a child process: it opens its window, idles
// without using the processor, ends on SIGTERM or SIGINT with status 0 and
// leaves a saved snapshot; without a display it still saves and says why; a
// damaged newest snapshot stops it before any file is touched.
#include <gtest/gtest.h>

#include "base/base_test_util.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

struct run_t {
    fs::path folder; // the test's own folder: the working directory
    fs::path data;   // the -path folder
    pid_t pid = -1;
    int status = 0;

    run_t() {
        char pattern[] = "/tmp/tidewrack_program_XXXXXX";
        folder = mkdtemp(pattern);
        data = folder / "data";
    }
    ~run_t() {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }

    void start(std::vector<std::string> extra, bool with_display = true,
               std::vector<std::pair<std::string, std::string>> environment = {}) {
        std::vector<std::string> args = {TIDEWRACK_PROGRAM, "-path", data.string()};
        args.insert(args.end(), extra.begin(), extra.end());
        pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            if (chdir(folder.c_str()) != 0) _exit(120);
            int out = open((folder / "stdout.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            int err = open((folder / "stderr.txt").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            dup2(out, 1);
            dup2(err, 2);
            if (!with_display) {
                unsetenv("DISPLAY");
                unsetenv("WAYLAND_DISPLAY");
            }
            for (auto &[name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
            std::vector<char *> argv;
            for (auto &a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(121);
        }
    }

    // Waits for the end; false when it doesn't come within the limit.
    bool wait_exit(int seconds) {
        for (int i = 0; i < seconds * 20; ++i) {
            pid_t r = waitpid(pid, &status, WNOHANG);
            if (r == pid) {
                pid = -1;
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    bool wait_for_file(const fs::path &path, const std::string &text, int seconds) {
        for (int i = 0; i < seconds * 20; ++i) {
            if (fs::exists(path) && read_whole(path).find(text) != std::string::npos) return true;
            if (waitpid(pid, &status, WNOHANG) == pid) {
                pid = -1;
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

    // User and system clock ticks so far.
    long cpu_ticks() const {
        std::string stat = read_whole("/proc/" + std::to_string(pid) + "/stat");
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::string field;
        long utime = 0, stime = 0;
        for (int i = 3; i <= 15 && fields >> field; ++i) {
            if (i == 14) utime = std::stol(field);
            if (i == 15) stime = std::stol(field);
        }
        return utime + stime;
    }

    // Whether the process reaches a second in which it uses no processor time.
    bool becomes_idle(int seconds) {
        long before = cpu_ticks();
        for (int i = 0; i < seconds; ++i) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
            long now = cpu_ticks();
            if (now == before) return true;
            before = now;
        }
        return false;
    }

    std::vector<fs::path> snapshots() const {
        std::vector<fs::path> found;
        if (!fs::exists(data)) return found;
        for (auto &e : fs::directory_iterator(data)) {
            std::string name = e.path().filename().string();
            if (name.rfind("feed_data_", 0) == 0 && name.size() > 4 && name.substr(name.size() - 4) == ".bin")
                found.push_back(e.path());
        }
        return found;
    }

    std::string err() const { return read_whole(folder / "stderr.txt"); }
};

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
        std::string command = std::string(TIDEWRACK_PROFILE_TOOL) + " " + (run.folder / "profile.bin").string();
        FILE *pipe = popen(command.c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string report;
        char buffer[4096];
        for (size_t n; (n = fread(buffer, 1, sizeof(buffer), pipe)) > 0;) report.append(buffer, n);
        EXPECT_EQ(pclose(pipe), 0);
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
