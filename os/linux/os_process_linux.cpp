// os_process_linux.cpp - other programs through posix_spawnp: no shell, the
// default signal dispositions in the child, and a thread that waits for each
// child so that none stays behind as a zombie.
#include "os/os_core.h"
#include "os/os_process.h"
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdint.h>
#include <sys/wait.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

extern char **environ;

// Spawns with stdin from /dev/null when asked and stdout to `stdout_fd` when
// it isn't -1. Returns the child's id, or -1.
static pid_t os_process_spawn(const char *const *argv, int stdout_fd, bool empty_stdin) {
    if (!argv || !argv[0] || !argv[0][0]) return -1;
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (empty_stdin) posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (stdout_fd >= 0) posix_spawn_file_actions_adddup2(&actions, stdout_fd, 1);
    pid_t pid;
    int r = posix_spawnp(&pid, argv[0], &actions, &attributes, (char *const *)argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (r != 0) {
        errno = r;
        return -1;
    }
    return pid;
}

static i32 os_process_wait(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

static void os_process_reap(void *argument) { os_process_wait((pid_t)(intptr_t)argument); }

bool os_process_start(const char *const *argv) {
    pid_t pid = os_process_spawn(argv, -1, false);
    if (pid < 0) return false;
    if (!os_thread_start(os_process_reap, (void *)(intptr_t)pid)) {
        // Without a thread to wait with, the child stays a zombie until exit.
    }
    return true;
}

// Reads the pipe to its end; what doesn't fit is drained and dropped so that
// the child never blocks on a full pipe.
static u64 os_process_drain(int fd, u8 *destination, u64 size) {
    u64 kept = 0;
    u8 spill[4096];
    for (;;) {
        u8 *target = kept < size ? destination + kept : spill;
        u64 room = kept < size ? size - kept : sizeof(spill);
        ssize_t n = read(fd, target, room);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        if (kept < size) kept += (u64)n;
    }
    return kept;
}

static pid_t os_process_spawn_piped(const char *const *argv, int *read_end) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return -1;
    pid_t pid = os_process_spawn(argv, fds[1], true);
    close(fds[1]);
    if (pid < 0) {
        close(fds[0]);
        return -1;
    }
    *read_end = fds[0];
    return pid;
}

u64 os_process_read(const char *const *argv, u8 *destination, u64 size, i32 *exit_code) {
    *exit_code = -1;
    int fd;
    pid_t pid = os_process_spawn_piped(argv, &fd);
    if (pid < 0) return 0;
    u64 kept = os_process_drain(fd, destination, size);
    close(fd);
    *exit_code = os_process_wait(pid);
    return kept;
}

struct os_process_job_t {
    os_process_output_t *output;
    pid_t pid;
    int fd;
};

// One job at a time is enough for the program (one file chooser); the
// record lives here so that starting needs no memory.
static os_process_job_t os_process_jobs[8];

static void os_process_collect(void *argument) {
    os_process_job_t *job = (os_process_job_t *)argument;
    os_process_output_t *output = job->output;
    output->size = os_process_drain(job->fd, output->buffer, output->capacity);
    close(job->fd);
    output->exit_code = os_process_wait(job->pid);
    os_process_wake_t *wake = output->wake;
    void *wake_context = output->wake_context;
    __atomic_store_n(&job->output, nullptr, __ATOMIC_RELEASE);
    __atomic_store_n(&output->state, os_process_done, __ATOMIC_RELEASE);
    if (wake) wake(wake_context);
}

bool os_process_read_async(const char *const *argv, os_process_output_t *output) {
    output->state = os_process_idle;
    output->size = 0;
    output->exit_code = -1;
    os_process_job_t *job = nullptr;
    for (os_process_job_t &candidate : os_process_jobs) {
        if (!__atomic_load_n(&candidate.output, __ATOMIC_ACQUIRE)) {
            job = &candidate;
            break;
        }
    }
    if (!job) return false;
    int fd;
    pid_t pid = os_process_spawn_piped(argv, &fd);
    if (pid < 0) return false;
    job->output = output;
    job->pid = pid;
    job->fd = fd;
    output->state = os_process_running;
    if (!os_thread_start(os_process_collect, job)) {
        // No thread: collect here; the caller waits, but nothing is lost.
        os_process_collect(job);
    }
    return true;
}

u32 os_process_state(const os_process_output_t *output) { return __atomic_load_n(&output->state, __ATOMIC_ACQUIRE); }

// Reads a small text file whole; returns its length or 0.
static u64 os_read_small_file(const char *path, char *destination, u64 size) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    u64 used = 0;
    while (used + 1 < size) {
        ssize_t n = read(fd, destination + used, size - 1 - used);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        used += (u64)n;
    }
    close(fd);
    destination[used] = 0;
    return used;
}

// The value of Exec= in the [Desktop Entry] group of a desktop file's text.
static u64 os_desktop_exec(const char *text, u64 length, char *destination, u64 size) {
    bool in_entry = false;
    for (u64 line = 0; line < length;) {
        u64 end = line;
        while (end < length && text[end] != '\n') end++;
        u64 n = end - line;
        if (n && text[line] == '[') in_entry = n >= 15 && memcmp(text + line, "[Desktop Entry]", 15) == 0;
        else if (in_entry && n > 5 && memcmp(text + line, "Exec=", 5) == 0) {
            u64 value = n - 5;
            while (value && (text[line + 5 + value - 1] == '\r' || text[line + 5 + value - 1] == ' ')) value--;
            if (value + 1 > size) return 0;
            memcpy(destination, text + line + 5, value);
            destination[value] = 0;
            return value;
        }
        line = end + 1;
    }
    return 0;
}

u64 os_default_browser_command(char *destination, u64 size) {
    if (size) destination[0] = 0;
    char name[512];
    i32 exit_code;
    const char *const query[] = {"xdg-mime", "query", "default", "x-scheme-handler/http", nullptr};
    u64 n = os_process_read(query, (u8 *)name, sizeof(name) - 1, &exit_code);
    while (n && (name[n - 1] == '\n' || name[n - 1] == '\r' || name[n - 1] == ' ')) n--;
    name[n] = 0;
    if (exit_code != 0 || n == 0 || strchr(name, '/')) return 0;

    // The data folders, most personal first.
    char folders[4096];
    const char *home = getenv("HOME");
    const char *data_home = getenv("XDG_DATA_HOME");
    const char *data_dirs = getenv("XDG_DATA_DIRS");
    if (data_home && data_home[0] == '/') snprintf(folders, sizeof(folders), "%s", data_home);
    else snprintf(folders, sizeof(folders), "%s/.local/share", home ? home : "");
    size_t used = strlen(folders);
    snprintf(folders + used, sizeof(folders) - used, ":%s",
             data_dirs && data_dirs[0] ? data_dirs : "/usr/local/share:/usr/share");

    static char text[65536];
    for (char *folder = folders; folder && *folder;) {
        char *next = strchr(folder, ':');
        if (next) *next++ = 0;
        char path[4096];
        if (folder[0] == '/' && snprintf(path, sizeof(path), "%s/applications/%s", folder, name) < (int)sizeof(path)) {
            u64 length = os_read_small_file(path, text, sizeof(text));
            if (length) return os_desktop_exec(text, length, destination, size);
        }
        folder = next;
    }
    return 0;
}
