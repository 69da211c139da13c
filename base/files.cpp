// files.cpp - whole-file reads, writes at explicit offsets, directories and
// the directory walk, over the system layer. Paths are UTF-8; each call
// copies its path into a zero-terminated stack buffer just for the call.
#include "base/files.h"

#include "base/text.h"
#include "os/os_core.h"

// A system call moves at most this many bytes at a time.
static constexpr u64 file_call_limit = 0xFFFFFFFFull;
static constexpr u64 file_path_capacity = 2048;

// Copies the path into `buffer` with a terminator. A path that does not fit,
// or that holds a zero byte (the system would see a shorter, other path), is
// coding error 3 and nothing is tried.
static bool file_path_z(const data_t *path, char (&buffer)[file_path_capacity], u32 *error) {
    if (*error) return false;
    u64 size = path ? path->used : 0;
    if (size >= file_path_capacity || (size && !path->bytes)) {
        *error = coding_error_no_room;
        return false;
    }
    for (u64 i = 0; i < size; i++) {
        if (path->bytes[i] == 0) {
            *error = coding_error_no_room;
            return false;
        }
        buffer[i] = (char)path->bytes[i];
    }
    buffer[size] = 0;
    return true;
}

file_handle_t file_open(const data_t *path, bool write, bool overwrite, u32 *error) {
    char z[file_path_capacity];
    if (!file_path_z(path, z, error)) return file_handle_invalid;
    u32 mode = !write ? os_file_read : overwrite ? os_file_write_always : os_file_write_new;
    u64 handle = os_file_open(z, mode);
    if (handle == os_file_invalid) *error = file_error_open;
    return handle;
}

void file_close(file_handle_t handle, u32 *error) {
    // A valid handle is closed even after an earlier failure, so that a chain
    // of open, read, close leaks nothing.
    if (handle == file_handle_invalid) {
        if (!*error) *error = file_error_close_invalid;
        return;
    }
    os_file_close(handle);
}

u64 file_size(file_handle_t handle, u32 *error) {
    if (*error) return 0;
    u64 size = 0;
    if (!os_file_size(handle, &size)) {
        *error = file_error_size;
        return 0;
    }
    return size;
}

u64 file_read(file_handle_t handle, u64 offset, u64 size, void *destination, u32 *error) {
    if (*error) return 0;
    if (handle == file_handle_invalid) {
        *error = file_error_invalid_handle;
        return 0;
    }
    u8 *to = (u8 *)destination;
    u64 done = 0;
    while (done < size) {
        u64 part = size - done;
        if (part > file_call_limit) part = file_call_limit;
        i64 n = os_file_read_at(handle, offset + done, to + done, part);
        if (n < 0) {
            *error = file_error_read;
            break;
        }
        if (n == 0) {
            // The end of the file came first.
            *error = done ? file_error_short_read : file_error_read_zero;
            break;
        }
        done += (u64)n;
    }
    return done;
}

u64 file_write(file_handle_t handle, u64 offset, u64 size, const void *source, u32 *error) {
    if (*error) return 0;
    if (handle == file_handle_invalid) {
        *error = file_error_invalid_handle;
        return 0;
    }
    const u8 *from = (const u8 *)source;
    u64 done = 0;
    while (done < size) {
        u64 part = size - done;
        if (part > file_call_limit) part = file_call_limit;
        i64 n = os_file_write_at(handle, offset + done, from + done, part);
        if (n < 0) {
            *error = file_error_write;
            break;
        }
        if (n == 0) {
            *error = file_error_short_write;
            break;
        }
        done += (u64)n;
    }
    return done;
}

void file_flush(file_handle_t handle, u32 *error) {
    if (*error) return;
    if (handle == file_handle_invalid) {
        *error = file_error_invalid_handle;
        return;
    }
    if (!os_file_flush(handle)) *error = file_error_write;
}

data_t file_read_all(data_t *out, const data_t *path, bool zero_terminate, u32 *error) {
    *out = data_t{};
    if (*error) return *out;
    file_handle_t handle = file_open(path, false, false, error);
    u64 size = file_size(handle, error);
    data_t block = {};
    if (!*error) {
        u64 want = size + (zero_terminate ? 1 : 0);
        // An empty file without the terminator needs no block at all.
        if (want) {
            block = data_virtual_alloc(want, 0);
            if (!block.bytes || block.reserved != want) {
                data_virtual_free(&block);
                block = data_t{};
                *error = file_error_no_memory;
            }
        }
    }
    if (!*error && size) block.used = file_read(handle, 0, size, block.bytes, error);
    if (handle != file_handle_invalid) file_close(handle, error);
    if (!*error && zero_terminate) data_push_u8(&block, 0);
    if (block.used != block.reserved || *error) {
        data_virtual_free(&block);
        block = data_t{};
    }
    *out = block;
    return block;
}

u64 file_write_all(const data_t *path, const void *source, u64 size, bool overwrite, u32 *error) {
    file_handle_t handle = file_open(path, true, overwrite, error);
    u64 written = file_write(handle, 0, size, source, error);
    if (handle != file_handle_invalid) file_close(handle, error);
    return written;
}

void file_delete(const data_t *path, u32 *error) {
    char z[file_path_capacity];
    if (!file_path_z(path, z, error)) return;
    if (!os_file_delete(z)) *error = file_error_delete;
}

void file_rename(const data_t *from, const data_t *to, u32 *error) {
    char a[file_path_capacity];
    char b[file_path_capacity];
    if (!file_path_z(from, a, error) || !file_path_z(to, b, error)) return;
    if (!os_file_rename(a, b)) *error = file_error_write;
}

bool directory_create(const data_t *path, u32 *error) {
    char z[file_path_capacity];
    if (!file_path_z(path, z, error)) return false;
    if (os_directory_create(z) == 2) {
        *error = file_error_directory_create;
        return false;
    }
    return true;
}

bool file_exists(const data_t *path, u32 *error) {
    char z[file_path_capacity];
    if (!file_path_z(path, z, error)) return false;
    return os_path_kind(z) == 1;
}

bool directory_exists(const data_t *path, u32 *error) {
    char z[file_path_capacity];
    if (!file_path_z(path, z, error)) return false;
    return os_path_kind(z) == 2;
}

// ---- the directory walk -----------------------------------------------------------------

void file_list_create(file_list_t *list, data_t *arena, u32 capacity) {
    *list = file_list_t{};
    data_t saved = *arena;
    u8 **paths = (u8 **)data_push(arena, (u64)capacity * sizeof(u8 *), 8);
    u64 *sizes = paths ? (u64 *)data_push(arena, (u64)capacity * 8, 8) : nullptr;
    u16 *offsets = sizes ? (u16 *)data_push(arena, (u64)capacity * 2, 2) : nullptr;
    u8 *is_directory = offsets ? (u8 *)data_push(arena, capacity, 1) : nullptr;
    u64 *times = is_directory ? (u64 *)data_push(arena, (u64)capacity * 8, 8) : nullptr;
    if (!times) {
        *arena = saved;
        return;
    }
    list->paths = paths;
    list->sizes = sizes;
    list->name_offsets = offsets;
    list->is_directory = is_directory;
    list->write_times = times;
    list->capacity = capacity;
    // The paths go onto the same arena, after the arrays, unless the caller
    // points `text` at another block.
    list->text = arena;
}

struct file_walk_t {
    file_list_t *list;
    data_t extensions[64];
    u32 extension_count;
    data_t excluded[64];
    u32 excluded_count;
    u32 flags;
    char path[file_path_capacity]; // the folder being walked, zero-terminated
    u64 path_size;
};

static bool file_walk_is_dots(const char *name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

// Records one entry; false when the text block is full.
static bool file_walk_record(file_walk_t *walk, const data_t *name, const os_directory_entry_t *entry) {
    file_list_t *list = walk->list;
    data_t *text = list->text;
    if (!text) return false;
    u64 size = walk->path_size + 1 + name->used;
    assert_true(walk->path_size + 1 < 65536);
    if (text->used > text->reserved || text->reserved - text->used < size) return false;
    u8 *start = data_end(text);
    data_push_raw(text, walk->path, walk->path_size);
    data_push_u8(text, (u8)os_path_separator);
    data_push_raw(text, name->bytes, name->used);
    u32 i = list->count;
    list->paths[i] = start;
    list->name_offsets[i] = (u16)(walk->path_size + 1);
    list->is_directory[i] = entry->is_directory ? 1 : 0;
    list->sizes[i] = entry->size;
    list->write_times[i] = entry->write_time;
    list->count++;
    return true;
}

static void file_walk(file_walk_t *walk) {
    file_list_t *list = walk->list;
    os_directory_t *directory = os_directory_open(walk->path);
    if (!directory) return; // a folder that can't be read ends the walk silently
    os_directory_entry_t entry;
    while (list->count < list->capacity && os_directory_next(directory, &entry)) {
        data_t name = data_from_pointer(entry.name, string_length(entry.name));
        bool excluded = false;
        for (u32 i = 0; i < walk->excluded_count && !excluded; i++) excluded = data_equal(&name, &walk->excluded[i]);
        if (excluded) continue;
        bool dots = file_walk_is_dots(entry.name);
        if (entry.is_directory) {
            if ((walk->flags & file_walk_directories) && (!dots || (walk->flags & file_walk_keep_dots))) {
                if (!file_walk_record(walk, &name, &entry)) break;
            }
            if ((walk->flags & file_walk_recursive) && !dots && list->count < list->capacity) {
                u64 saved = walk->path_size;
                if (saved + 1 + name.used < file_path_capacity) {
                    walk->path[saved] = os_path_separator;
                    memory_copy(walk->path + saved + 1, name.bytes, name.used);
                    walk->path_size = saved + 1 + name.used;
                    walk->path[walk->path_size] = 0;
                    file_walk(walk);
                    walk->path_size = saved;
                    walk->path[saved] = 0;
                }
            }
        } else if (walk->flags & file_walk_files) {
            if (walk->extension_count) {
                data_t extension = path_extension(&name);
                bool match = false;
                for (u32 i = 0; i < walk->extension_count && !match; i++) {
                    match = data_equal(&extension, &walk->extensions[i]);
                }
                if (!match) continue;
            }
            if (!file_walk_record(walk, &name, &entry)) break;
        }
    }
    os_directory_close(directory);
}

void file_list_directory(file_list_t *list, const data_t *path, const data_t *extensions,
                         const data_t *excluded_names, u32 flags) {
    if (!list->paths || !path) return;
    file_walk_t walk;
    walk.list = list;
    walk.extension_count =
        extensions && extensions->used ? data_split_commas(extensions, walk.extensions, 64) : 0;
    walk.excluded_count =
        excluded_names && excluded_names->used ? data_split_commas(excluded_names, walk.excluded, 64) : 0;
    walk.flags = flags;
    if (!(flags & (file_walk_files | file_walk_directories))) walk.flags |= file_walk_files | file_walk_directories;
    u32 error = 0;
    char (&z)[file_path_capacity] = walk.path;
    if (!file_path_z(path, z, &error)) return;
    walk.path_size = path->used;
    // "folder/" and "folder" walk the same; entries get one separator.
    while (walk.path_size > 1 && walk.path[walk.path_size - 1] == os_path_separator) {
        walk.path[--walk.path_size] = 0;
    }
    file_walk(&walk);
}

// ---- paths -------------------------------------------------------------------------------

data_t path_extension(const data_t *path) {
    for (u64 i = path->used; i > 0; i--) {
        if (path->bytes[i - 1] == '.') return data_from_pointer(path->bytes + i, path->used - i);
    }
    return data_t{};
}

data_t path_without_extension(const data_t *path) {
    for (u64 i = path->used; i > 0; i--) {
        if (path->bytes[i - 1] == '.') return data_from_pointer(path->bytes, i - 1);
    }
    return data_from_pointer(path->bytes, path->used);
}
