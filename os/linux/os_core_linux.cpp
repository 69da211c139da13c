// os_core_linux.cpp - the system layer on Linux: pages, files, directories,
// clocks, threads, semaphores, events and places.
//
// The objects handed out here (threads' start records, semaphores, events,
// directory handles) come from small static pools, never from malloc.
#include "os/os_core.h"

#include <atomic>
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <langinfo.h>
#include <locale.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>
#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#include <x86intrin.h>
#endif


// ---- small fixed pools ------------------------------------------------------------

// A slot is claimed by a compare-and-swap on its flag, so pools may be used
// from any thread.
template <typename T, u32 N> struct os_pool_t {
    T items[N];
    std::atomic<u32> taken[N];
};

template <typename T, u32 N> static T *os_pool_take(os_pool_t<T, N> *pool) {
    for (u32 i = 0; i < N; i++) {
        u32 expected = 0;
        if (pool->taken[i].load(std::memory_order_relaxed) == 0 &&
            pool->taken[i].compare_exchange_strong(expected, 1, std::memory_order_acquire)) {
            return &pool->items[i];
        }
    }
    return nullptr;
}

template <typename T, u32 N> static void os_pool_give_back(os_pool_t<T, N> *pool, T *item) {
    u64 index = (u64)(item - pool->items);
    if (index < N) pool->taken[index].store(0, std::memory_order_release);
}

// ---- memory pages -------------------------------------------------------------------

u32 os_page_size() {
    long size = sysconf(_SC_PAGESIZE);
    return size > 0 ? (u32)size : 4096;
}

// Linux has no coarser granularity for mappings than the page; the program
// still rounds reservations to 64 KiB as it does elsewhere.
u32 os_allocation_granularity() { return 65536; }

// Large blocks start on a 2 MB boundary, so that large pages can back them
// from their first byte: map 2 MB more, then give back the ends.
static void *os_memory_map(u64 size, int protection, int flags) {
    const u64 large = 0x200000;
    if (size < large) {
        void *p = mmap(nullptr, size, protection, flags, -1, 0);
        return p == MAP_FAILED ? nullptr : p;
    }
    void *p = mmap(nullptr, size + large, protection, flags, -1, 0);
    if (p == MAP_FAILED) return nullptr;
    u64 start = (u64)p, aligned = (start + large - 1) & ~(large - 1);
    if (aligned > start) munmap(p, aligned - start);
    u64 page = os_page_size();
    u64 used_end = (aligned + size + page - 1) & ~(page - 1), mapped_end = start + size + large;
    if (mapped_end > used_end) munmap((void *)used_end, mapped_end - used_end);
    return (void *)aligned;
}

void *os_memory_reserve(u64 size) {
    if (size == 0) return nullptr;
    return os_memory_map(size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE);
}

bool os_memory_commit(void *address, u64 size) {
    if (size == 0) return true;
    return mprotect(address, size, PROT_READ | PROT_WRITE) == 0;
}

void os_memory_decommit(void *address, u64 size) {
    if (size == 0) return;
    // Give the pages back first, then make any touch of them fault.
    madvise(address, size, MADV_DONTNEED);
    mprotect(address, size, PROT_NONE);
}

void *os_memory_alloc(u64 size) {
    if (size == 0) return nullptr;
    return os_memory_map(size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS);
}

void os_memory_release(void *address, u64 size) {
    if (address && size) munmap(address, size);
}

void os_memory_advise_dense(void *address, u64 size) {
    // Only whole 2 MB pages inside the range can be large; the hint is
    // worth nothing below that.
    u64 first = ((u64)address + 0x1FFFFF) & ~(u64)0x1FFFFF;
    u64 end = ((u64)address + size) & ~(u64)0x1FFFFF;
    if (end > first) madvise((void *)first, end - first, MADV_HUGEPAGE);
}

void os_memory_discard(void *address, u64 size) {
    if (address && size) madvise(address, size, MADV_DONTNEED);
}

bool os_cpu_has_avx512bw() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw");
}

// ---- files ------------------------------------------------------------------------------

u64 os_file_open(const char *path, u32 mode) {
    int flags = O_CLOEXEC;
    switch (mode) {
    case os_file_read: flags |= O_RDONLY; break;
    case os_file_write_new: flags |= O_WRONLY | O_CREAT | O_EXCL; break;
    case os_file_write_always: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
    default: errno = EINVAL; return os_file_invalid;
    }
    int fd;
    do fd = open(path, flags, 0644);
    while (fd < 0 && errno == EINTR);
    if (fd < 0) return os_file_invalid;
    if (mode == os_file_read) {
        // Reading a directory "succeeds" on Linux; it is not a file here.
        struct stat st;
        if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
            close(fd);
            errno = EISDIR;
            return os_file_invalid;
        }
    }
    return (u64)fd;
}

static bool os_file_valid(u64 file) { return file != os_file_invalid && file <= 0x7FFFFFFF; }

bool os_file_close(u64 file) {
    if (!os_file_valid(file)) return false;
    // A close interrupted by a signal has released the descriptor all the same.
    return close((int)file) == 0 || errno == EINTR;
}

bool os_file_size(u64 file, u64 *size) {
    struct stat st;
    if (!os_file_valid(file) || fstat((int)file, &st) != 0) return false;
    *size = (u64)st.st_size;
    return true;
}

i64 os_file_read_at(u64 file, u64 offset, void *destination, u64 size) {
    if (!os_file_valid(file) || offset > (u64)INT64_MAX) return -1;
    ssize_t n;
    do n = pread((int)file, destination, size, (off_t)offset);
    while (n < 0 && errno == EINTR);
    return n;
}

i64 os_file_write_at(u64 file, u64 offset, const void *source, u64 size) {
    if (!os_file_valid(file) || offset > (u64)INT64_MAX) return -1;
    ssize_t n;
    do n = pwrite((int)file, source, size, (off_t)offset);
    while (n < 0 && errno == EINTR);
    return n;
}

bool os_file_flush(u64 file) {
    if (!os_file_valid(file)) return false;
    int r;
    do r = fsync((int)file);
    while (r != 0 && errno == EINTR);
    return r == 0;
}

bool os_file_delete(const char *path) { return unlink(path) == 0; }

bool os_file_rename(const char *from, const char *to) { return rename(from, to) == 0; }

u32 os_directory_create(const char *path) {
    if (mkdir(path, 0755) == 0) return 0;
    return errno == EEXIST ? 1 : 2;
}

u32 os_path_kind(const char *path) {
    struct stat st;
    if (stat(path, &st) != 0) return 0;
    return S_ISDIR(st.st_mode) ? 2 : 1;
}

struct os_directory_t {
    DIR *dir;
};

static os_pool_t<os_directory_t, 256> os_directories;

os_directory_t *os_directory_open(const char *path) {
    os_directory_t *d = os_pool_take(&os_directories);
    if (!d) return nullptr;
    d->dir = opendir(path);
    if (!d->dir) {
        os_pool_give_back(&os_directories, d);
        return nullptr;
    }
    return d;
}

bool os_directory_next(os_directory_t *directory, os_directory_entry_t *entry) {
    if (!directory || !directory->dir) return false;
    errno = 0;
    dirent *e = readdir(directory->dir);
    if (!e) return false;
    entry->name = e->d_name;
    entry->is_directory = false;
    entry->size = 0;
    entry->write_time = 0;
    struct stat st;
    if (fstatat(dirfd(directory->dir), e->d_name, &st, 0) == 0) {
        entry->is_directory = S_ISDIR(st.st_mode);
        entry->size = S_ISDIR(st.st_mode) ? 0 : (u64)st.st_size;
        entry->write_time = st.st_mtim.tv_sec > 0 ? (u64)st.st_mtim.tv_sec : 0;
    } else if (e->d_type == DT_DIR) {
        entry->is_directory = true;
    }
    return true;
}

void os_directory_close(os_directory_t *directory) {
    if (!directory) return;
    if (directory->dir) closedir(directory->dir);
    directory->dir = nullptr;
    os_pool_give_back(&os_directories, directory);
}

// ---- time ---------------------------------------------------------------------------------

u64 os_counter() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (u64)t.tv_sec * 1000000000ull + (u64)t.tv_nsec;
}

u64 os_counter_frequency() { return 1000000000ull; }

// How os_time_stamp reads the time, found by the first call.
enum : u32 {
    os_time_stamp_unprobed = 0,
    os_time_stamp_rdtscp = 1,
    os_time_stamp_rdtsc_fenced = 2,
    os_time_stamp_monotonic = 3,
};
static std::atomic<u32> os_time_stamp_kind{os_time_stamp_unprobed};

static u32 os_time_stamp_probe() {
    u32 kind = os_time_stamp_monotonic;
#if defined(__x86_64__)
    unsigned a = 0, b = 0, c = 0, d = 0;
    const u32 cpuid_rdtscp = 1u << 27; // leaf 0x80000001, edx
    const u32 cpuid_tsc = 1u << 4;     // leaf 1, edx
    if (__get_cpuid(0x80000001, &a, &b, &c, &d) && (d & cpuid_rdtscp)) {
        kind = os_time_stamp_rdtscp;
    } else if (__get_cpuid(1, &a, &b, &c, &d) && (d & cpuid_tsc)) {
        kind = os_time_stamp_rdtsc_fenced;
    }
#endif
    os_time_stamp_kind.store(kind, std::memory_order_relaxed);
    return kind;
}

u64 os_time_stamp() {
    u32 kind = os_time_stamp_kind.load(std::memory_order_relaxed);
    if (kind == os_time_stamp_unprobed) kind = os_time_stamp_probe();
#if defined(__x86_64__)
    if (kind == os_time_stamp_rdtscp) {
        unsigned aux;
        return __rdtscp(&aux);
    }
    if (kind == os_time_stamp_rdtsc_fenced) {
        _mm_lfence();
        return __rdtsc();
    }
#endif
    return os_counter();
}

void os_utc_now(u32 fields[6]) {
    timespec t;
    clock_gettime(CLOCK_REALTIME, &t);
    struct tm tm;
    gmtime_r(&t.tv_sec, &tm);
    fields[0] = (u32)(tm.tm_year + 1900);
    fields[1] = (u32)(tm.tm_mon + 1);
    fields[2] = (u32)tm.tm_mday;
    fields[3] = (u32)tm.tm_hour;
    fields[4] = (u32)tm.tm_min;
    fields[5] = (u32)tm.tm_sec;
}

// The user's locale for dates, made once. Only time names and the character
// set are taken from the environment; the rest of the process stays in the
// "C" locale, so nothing else changes its number formats behind our back.
static std::atomic<locale_t> os_time_locale{(locale_t)0};

static locale_t os_time_locale_get() {
    locale_t l = os_time_locale.load(std::memory_order_acquire);
    if (l) return l;
    locale_t made = newlocale(LC_TIME_MASK | LC_CTYPE_MASK, "", (locale_t)0);
    if (made) {
        // Month and day names must come out as UTF-8; a locale in another
        // character set falls back to the plain "C" names.
        const char *codeset = nl_langinfo_l(CODESET, made);
        if (!codeset || (strcmp(codeset, "UTF-8") != 0 && strcmp(codeset, "ANSI_X3.4-1968") != 0)) {
            freelocale(made);
            made = (locale_t)0;
        }
    }
    if (!made) made = newlocale(LC_TIME_MASK | LC_CTYPE_MASK, "C", (locale_t)0);
    locale_t expected = (locale_t)0;
    if (!os_time_locale.compare_exchange_strong(expected, made)) {
        freelocale(made);
        return expected;
    }
    return made;
}

u64 os_local_time_text(const u32 utc_fields[6], u32 flags, const u8 *separator, u64 separator_size,
                       u8 *destination, u64 destination_size) {
    struct tm utc = {};
    utc.tm_year = (int)utc_fields[0] - 1900;
    utc.tm_mon = (int)utc_fields[1] - 1;
    utc.tm_mday = (int)utc_fields[2];
    utc.tm_hour = (int)utc_fields[3];
    utc.tm_min = (int)utc_fields[4];
    utc.tm_sec = (int)utc_fields[5];
    time_t t = timegm(&utc);
    struct tm local;
    if (!localtime_r(&t, &local)) return 0;
    locale_t l = os_time_locale_get();
    u64 n = 0;
    char buffer[512];
    if (!(flags & 1)) {
        // The long date form: weekday, day, month name and year.
        size_t k = strftime_l(buffer, sizeof(buffer), "%A %-d %B %Y", &local, l);
        if (k > destination_size - n) k = destination_size - n;
        memcpy(destination + n, buffer, k);
        n += k;
        if (separator_size && separator_size <= destination_size - n) {
            memcpy(destination + n, separator, separator_size);
            n += separator_size;
        }
    }
    if (!(flags & 2)) {
        size_t k = strftime_l(buffer, sizeof(buffer), "%X", &local, l);
        if (k > destination_size - n) k = destination_size - n;
        memcpy(destination + n, buffer, k);
        n += k;
    }
    return n;
}

// ---- threads and waiting ----------------------------------------------------------------

struct os_thread_start_t {
    os_thread_function_t *function;
    void *argument;
};

static os_pool_t<os_thread_start_t, 256> os_thread_starts;

static void *os_thread_entry(void *pointer) {
    os_thread_start_t *start = (os_thread_start_t *)pointer;
    os_thread_start_t copy = *start;
    os_pool_give_back(&os_thread_starts, start);
    copy.function(copy.argument);
    return nullptr;
}

bool os_thread_start(os_thread_function_t *function, void *argument) {
    os_thread_start_t *start = os_pool_take(&os_thread_starts);
    if (!start) return false;
    start->function = function;
    start->argument = argument;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_t thread;
    int r = pthread_create(&thread, &attributes, os_thread_entry, start);
    pthread_attr_destroy(&attributes);
    if (r != 0) {
        os_pool_give_back(&os_thread_starts, start);
        errno = r;
        return false;
    }
    return true;
}

u32 os_thread_id() { return (u32)syscall(SYS_gettid); }

struct os_semaphore_t {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    u32 count;
    u32 maximum;
};

struct os_event_t {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    u32 signalled;
};

static os_pool_t<os_semaphore_t, 256> os_semaphores;
static os_pool_t<os_event_t, 512> os_events;

os_semaphore_t *os_semaphore_create(u32 initial, u32 maximum) {
    if (initial > maximum) return nullptr;
    os_semaphore_t *s = os_pool_take(&os_semaphores);
    if (!s) return nullptr;
    pthread_mutex_init(&s->mutex, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&s->condition, &attributes);
    pthread_condattr_destroy(&attributes);
    s->count = initial;
    s->maximum = maximum;
    return s;
}

// Like the Windows semaphore: a release that would pass the maximum fails
// and leaves the count as it was.
bool os_semaphore_release(os_semaphore_t *semaphore, u32 count) {
    if (!semaphore || count == 0) return false;
    pthread_mutex_lock(&semaphore->mutex);
    bool ok = (u64)semaphore->count + count <= semaphore->maximum;
    if (ok) semaphore->count += count;
    pthread_mutex_unlock(&semaphore->mutex);
    if (ok) {
        if (count == 1) pthread_cond_signal(&semaphore->condition);
        else pthread_cond_broadcast(&semaphore->condition);
    }
    return ok;
}

void os_semaphore_wait(os_semaphore_t *semaphore) {
    pthread_mutex_lock(&semaphore->mutex);
    while (semaphore->count == 0) pthread_cond_wait(&semaphore->condition, &semaphore->mutex);
    semaphore->count--;
    pthread_mutex_unlock(&semaphore->mutex);
}

void os_semaphore_close(os_semaphore_t *semaphore) {
    if (!semaphore) return;
    pthread_cond_destroy(&semaphore->condition);
    pthread_mutex_destroy(&semaphore->mutex);
    os_pool_give_back(&os_semaphores, semaphore);
}

os_event_t *os_event_create() {
    os_event_t *e = os_pool_take(&os_events);
    if (!e) return nullptr;
    pthread_mutex_init(&e->mutex, nullptr);
    pthread_cond_init(&e->condition, nullptr);
    e->signalled = 0;
    return e;
}

void os_event_signal(os_event_t *event) {
    if (!event) return;
    pthread_mutex_lock(&event->mutex);
    event->signalled = 1;
    pthread_mutex_unlock(&event->mutex);
    pthread_cond_signal(&event->condition);
}

void os_event_wait(os_event_t *event) {
    pthread_mutex_lock(&event->mutex);
    while (!event->signalled) pthread_cond_wait(&event->condition, &event->mutex);
    event->signalled = 0; // auto-reset: one waiter goes through
    pthread_mutex_unlock(&event->mutex);
}

void os_event_close(os_event_t *event) {
    if (!event) return;
    pthread_cond_destroy(&event->condition);
    pthread_mutex_destroy(&event->mutex);
    os_pool_give_back(&os_events, event);
}

// ---- process and places ---------------------------------------------------------------

static u64 os_copy_z(char *destination, u64 size, const char *a, u64 a_size, const char *b, u64 b_size) {
    if (size == 0 || a_size + b_size + 1 > size) return 0;
    memcpy(destination, a, a_size);
    memcpy(destination + a_size, b, b_size);
    destination[a_size + b_size] = 0;
    return a_size + b_size;
}

u64 os_executable_path(char *destination, u64 size) {
    if (size == 0) return 0;
    ssize_t n = readlink("/proc/self/exe", destination, size);
    if (n < 0) {
        destination[0] = 0;
        return 0;
    }
    if ((u64)n >= size) n = (ssize_t)size - 1; // cut; the caller sees length size - 1
    destination[n] = 0;
    return (u64)n;
}

// The home folder: $HOME, else the password database.
static const char *os_home() {
    const char *home = getenv("HOME");
    if (home && home[0] == '/') return home;
    return nullptr;
}

static u64 os_strip_trailing_separators(char *text, u64 n) {
    while (n > 1 && text[n - 1] == '/') text[--n] = 0;
    return n;
}

u64 os_user_data_folder(char *destination, u64 size) {
    const char *suffix = "/tidewrack";
    const char *data_home = getenv("XDG_DATA_HOME");
    u64 n = 0;
    if (data_home && data_home[0] == '/') {
        u64 base = strlen(data_home);
        while (base > 1 && data_home[base - 1] == '/') base--;
        n = os_copy_z(destination, size, data_home, base, suffix, strlen(suffix));
    } else {
        const char *home = os_home();
        if (!home) return 0;
        const char *rest = "/.local/share/tidewrack";
        u64 base = strlen(home);
        while (base > 1 && home[base - 1] == '/') base--;
        n = os_copy_z(destination, size, home, base, rest, strlen(rest));
    }
    return n;
}

bool os_user_data_parent_create() {
    char path[4096];
    u64 n = os_user_data_folder(path, sizeof(path));
    while (n > 1 && path[n - 1] != '/') n--; // drop "/tidewrack"
    if (n <= 1) return false;
    path[n - 1] = 0;
    for (u64 i = 1; i < n; i++) {
        if (path[i] != '/' && path[i] != 0) continue;
        char kept = path[i];
        path[i] = 0;
        if (mkdir(path, 0700) != 0 && errno != EEXIST) return false;
        path[i] = kept;
    }
    return os_path_kind(path) == 2;
}

// Reads XDG_DESKTOP_DIR from user-dirs.dirs: a line XDG_DESKTOP_DIR="$HOME/Desktop",
// where only "$HOME" is expanded, as the file's own format says.
static u64 os_desktop_from_user_dirs(const char *home, char *destination, u64 size) {
    char path[4096];
    const char *config = getenv("XDG_CONFIG_HOME");
    u64 n;
    if (config && config[0] == '/') n = os_copy_z(path, sizeof(path), config, strlen(config), "/user-dirs.dirs", 15);
    else n = os_copy_z(path, sizeof(path), home, strlen(home), "/.config/user-dirs.dirs", 23);
    if (!n) return 0;
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    char text[16384];
    u64 used = 0;
    for (;;) {
        ssize_t r = read(fd, text + used, sizeof(text) - 1 - used);
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) break;
        used += (u64)r;
        if (used == sizeof(text) - 1) break;
    }
    close(fd);
    text[used] = 0;
    const char *key = "XDG_DESKTOP_DIR=";
    u64 key_size = strlen(key);
    u64 result = 0;
    for (u64 line = 0; line < used;) {
        u64 line_end = line;
        while (line_end < used && text[line_end] != '\n') line_end++;
        u64 p = line;
        while (p < line_end && (text[p] == ' ' || text[p] == '\t')) p++;
        if (line_end - p > key_size && memcmp(text + p, key, key_size) == 0) {
            p += key_size;
            u64 q = line_end;
            while (q > p && (text[q - 1] == ' ' || text[q - 1] == '\t' || text[q - 1] == '\r')) q--;
            if (q - p >= 2 && text[p] == '"' && text[q - 1] == '"') {
                p++;
                q--;
            }
            const char *value = text + p;
            u64 value_size = q - p;
            if (value_size >= 5 && memcmp(value, "$HOME", 5) == 0) {
                result = os_copy_z(destination, size, home, strlen(home), value + 5, value_size - 5);
            } else if (value_size > 0 && value[0] == '/') {
                result = os_copy_z(destination, size, value, value_size, "", 0);
            }
        }
        line = line_end + 1;
    }
    if (result) result = os_strip_trailing_separators(destination, result);
    return result;
}

u64 os_desktop_folder(char *destination, u64 size) {
    const char *home = os_home();
    if (!home) return 0;
    u64 n = os_desktop_from_user_dirs(home, destination, size);
    if (n && os_path_kind(destination) == 2) return n;
    n = os_copy_z(destination, size, home, strlen(home), "/Desktop", 8);
    if (n && os_path_kind(destination) == 2) return n;
    n = os_copy_z(destination, size, home, strlen(home), "", 0);
    return n ? os_strip_trailing_separators(destination, n) : 0;
}

void os_write_stderr(const char *text, u64 size) {
    while (size > 0) {
        ssize_t n = write(2, text, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        text += n;
        size -= (u64)n;
    }
}

[[noreturn]] void os_abort() { abort(); }

u32 os_last_error() { return (u32)errno; }

u64 os_error_text(u32 code, char *destination, u64 size) {
    if (size == 0) return 0;
    char buffer[256];
    const char *text = strerror_r((int)code, buffer, sizeof(buffer));
    u64 n = strlen(text);
    if (n >= size) n = size - 1;
    memcpy(destination, text, n);
    destination[n] = 0;
    return n;
}
