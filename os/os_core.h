// os_core.h - every call into the system that the base layer needs, listed as
// operations. One implementation per platform folder (os/linux/).
#pragma once

#include "base/base_core.h"

// ---- memory pages --------------------------------------------------------------
u32 os_page_size();
u32 os_allocation_granularity();
void *os_memory_reserve(u64 size);             // address space only; null on failure
bool os_memory_commit(void *address, u64 size); // make reserved pages usable
void os_memory_decommit(void *address, u64 size);
void *os_memory_alloc(u64 size); // reserve and commit together; null on failure
void os_memory_release(void *address, u64 size);
// Hints for committed pages: about to be filled densely (back them with large
// pages where the system can), or no longer needed (their memory is given
// back; they stay usable and read as zero).
void os_memory_advise_dense(void *address, u64 size);
void os_memory_discard(void *address, u64 size);

// ---- processor -------------------------------------------------------------------
// True when the processor and the system both support the 512-bit vector
// instructions with byte and word lanes (AVX-512 F and BW).
bool os_cpu_has_avx512bw();

// ---- files (paths are zero-terminated UTF-8) -------------------------------------
constexpr u64 os_file_invalid = ~(u64)0;
enum : u32 {
    os_file_read = 0,
    os_file_write_new = 1,    // fails if the file exists
    os_file_write_always = 2, // creates or truncates
};
u64 os_file_open(const char *path, u32 mode);
bool os_file_close(u64 file);
bool os_file_size(u64 file, u64 *size);
// Returns bytes moved, or -1 on a failed call.
i64 os_file_read_at(u64 file, u64 offset, void *destination, u64 size);
i64 os_file_write_at(u64 file, u64 offset, const void *source, u64 size);
bool os_file_flush(u64 file);
bool os_file_delete(const char *path);
bool os_file_rename(const char *from, const char *to);
// 0 created, 1 existed already, 2 failed
u32 os_directory_create(const char *path);
// 0 missing, 1 file, 2 directory
u32 os_path_kind(const char *path);

struct os_directory_entry_t {
    const char *name; // valid until the next call
    bool is_directory;
    u64 size;
    u64 write_time; // seconds since 1970
};
struct os_directory_t;
os_directory_t *os_directory_open(const char *path); // null on failure
bool os_directory_next(os_directory_t *directory, os_directory_entry_t *entry);
void os_directory_close(os_directory_t *directory);
constexpr char os_path_separator = '/';

// ---- time ------------------------------------------------------------------------------
u64 os_counter();           // monotonic, in ticks of os_counter_frequency
u64 os_counter_frequency(); // ticks per second
u64 os_time_stamp();        // the processor's cycle counter (rdtscp on x86-64)
// Current UTC time as year, month, day, hour, minute, second.
void os_utc_now(u32 fields[6]);
// Local date and time text for a UTC time in the user's locale. flags: 1 no
// date, 2 no time. Returns bytes written (UTF-8, no terminator).
u64 os_local_time_text(const u32 utc_fields[6], u32 flags, const u8 *separator, u64 separator_size,
                       u8 *destination, u64 destination_size);

// ---- threads and waiting -------------------------------------------------------------
typedef void os_thread_function_t(void *argument);
bool os_thread_start(os_thread_function_t *function, void *argument); // never joined
u32 os_thread_id();
struct os_semaphore_t;
struct os_event_t;
os_semaphore_t *os_semaphore_create(u32 initial, u32 maximum);
bool os_semaphore_release(os_semaphore_t *semaphore, u32 count); // false when over the maximum
void os_semaphore_wait(os_semaphore_t *semaphore);
void os_semaphore_close(os_semaphore_t *semaphore);
os_event_t *os_event_create(); // auto-reset
void os_event_signal(os_event_t *event);
void os_event_wait(os_event_t *event);
void os_event_close(os_event_t *event);

// ---- process and places ------------------------------------------------------------
// The program's own path, zero-terminated; returns its length (cut at size).
u64 os_executable_path(char *destination, u64 size);
// The per-user data folder of the program and the desktop, zero-terminated
// UTF-8 without a trailing separator; return the length or 0 on failure.
// Makes the folder that holds the per-user data folder, with its missing
// parents: Windows always has its roaming folder, but on a fresh account
// ~/.local/share may not exist yet, and a save makes only the last level.
// True when it exists afterwards.
bool os_user_data_parent_create();
u64 os_user_data_folder(char *destination, u64 size);
u64 os_desktop_folder(char *destination, u64 size);
void os_write_stderr(const char *text, u64 size);
[[noreturn]] void os_abort();
// A system error code of the last failed call, and its text.
u32 os_last_error();
u64 os_error_text(u32 code, char *destination, u64 size);
