// program_run.h - the built program started as a child process in a folder
// of the test's own, its output kept in files there, and ways to wait for it.
#pragma once

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "base/base_test_util.h"

namespace fs = std::filesystem;

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
