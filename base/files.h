// files.h - whole-file reads, writes at explicit offsets, directories and
// directory walks. Paths are UTF-8 everywhere; the system layer converts them
// just for the call. No buffering layer.
#pragma once

#include "base/memory.h"

typedef u64 file_handle_t;
constexpr file_handle_t file_handle_invalid = ~(u64)0;

enum : u32 {
    file_error_open = 1,
    file_error_close_invalid = 2,
    file_error_invalid_handle = 3,
    file_error_seek = 4,
    file_error_short_read = 5,
    file_error_short_write = 6,
    file_error_read = 7,
    file_error_write = 8,
    file_error_delete = 12,
    file_error_read_zero = 13,
    file_error_size = 14,
    file_error_no_memory = 15,
    file_error_directory_create = 16,
};

enum : u32 {
    file_walk_recursive = 1,
    file_walk_files = 2,
    file_walk_directories = 4,
    file_walk_keep_dots = 8,
};

struct file_list_t {
    data_t *text;
    u8 **paths;
    u64 *sizes;
    u16 *name_offsets;
    u8 *is_directory;
    u64 *write_times; // seconds since 1970 on this platform
    u32 count;
    u32 capacity;
};

file_handle_t file_open(const data_t *path, bool write, bool overwrite, u32 *error);
void file_close(file_handle_t handle, u32 *error);
u64 file_size(file_handle_t handle, u32 *error);
u64 file_read(file_handle_t handle, u64 offset, u64 size, void *destination, u32 *error);
u64 file_write(file_handle_t handle, u64 offset, u64 size, const void *source, u32 *error);
// Flushes the file's bytes to the disk (used before a rename that publishes it).
void file_flush(file_handle_t handle, u32 *error);
data_t file_read_all(data_t *out, const data_t *path, bool zero_terminate, u32 *error);
u64 file_write_all(const data_t *path, const void *source, u64 size, bool overwrite, u32 *error);
void file_delete(const data_t *path, u32 *error);
// Replaces `to` by `from` in one step (same folder). Error file_error_write.
void file_rename(const data_t *from, const data_t *to, u32 *error);
bool directory_create(const data_t *path, u32 *error);
bool file_exists(const data_t *path, u32 *error);
bool directory_exists(const data_t *path, u32 *error);

void file_list_create(file_list_t *list, data_t *arena, u32 capacity);
void file_list_directory(file_list_t *list, const data_t *path, const data_t *extensions,
                         const data_t *excluded_names, u32 flags);

data_t path_extension(const data_t *path);
data_t path_without_extension(const data_t *path);

// Pointer-and-size forms.
inline data_t file_path_view(const char *path, u64 size) { return data_t{size, size, (u8 *)path}; }
