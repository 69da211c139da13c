// http.cpp - the HTTP client over the system layer's GET operations.
#include "net/http.h"

#include "base/profiler.h"
#include "os/os_core.h"
#include "os/os_net.h"

const char *const http_error_names[http_error_count] = {
    "http_error_none",
    "http_error_internet_open",
    "http_error_internet_close",
    "http_error_not_initialized",
    "http_error_file_not_opened",
    "http_error_internet_open_url",
    "http_error_internet_read_file",
    "http_error_internet_close_url",
    "http_error_not_enough_storage",
    "http_error_file_storage_not_initialized",
    "http_error_uri_is_not_zero_terminated",
};

const char *http_error_name(u32 error) {
    return error < http_error_count ? http_error_names[error] : "http_error_unknown";
}

const char *http_detail_text(u32 detail) { return os_net_detail_text(detail); }

void http_init(const char *user_agent, u32 *error) {
    if (*error || os_net_session_is_open()) return;
    if (!os_net_session_open(user_agent)) *error = http_error_internet_open;
}

void http_close(u32 *error) {
    if (*error) return;
    if (!os_net_session_close()) *error = http_error_internet_close;
}

bool http_is_open() { return os_net_session_is_open(); }

void http_set_time_limits(u32 connect_seconds, u32 stall_seconds, u32 total_seconds) {
    os_net_set_time_limits(connect_seconds, stall_seconds, total_seconds);
}

http_file_t http_file_open(const data_t *url, u32 *error) {
    http_file_t file = {};
    if (*error) return file;
    PROFILE_SCOPE(http_file_open);
    if (!os_net_session_is_open()) {
        *error = http_error_not_initialized;
        return file;
    }
    // The address as the system wants it: zero-terminated, in a buffer of its
    // own. One that does not fit, or holds a zero, can't name anything.
    char address[http_url_capacity];
    u64 size = url->used;
    while (size > 0 && url->bytes[size - 1] == 0) size--; // a terminator of the caller's
    bool fits = size < sizeof(address);
    for (u64 i = 0; fits && i < size; i++) fits = url->bytes[i] != 0;
    if (!fits) {
        *error = http_error_internet_open_url;
        return file;
    }
    memory_copy(address, url->bytes, size);
    address[size] = 0;

    u32 failure = 0;
    file.handle = os_net_open(address, &failure, &file.detail);
    if (!file.handle) {
        *error = failure == os_net_failed_transfer ? http_error_internet_read_file : http_error_internet_open_url;
        return file;
    }
    u64 length = 0;
    if (os_net_content_length(file.handle, &length)) file.content.reserved = length;
    if (file.content.reserved > http_default_size) {
        // A claimed length is only a claim: the body would be read into a
        // block of that size. Refused before a byte is read.
        *error = http_error_not_enough_storage;
        http_file_abandon(&file);
    }
    return file;
}

void http_file_get(http_file_t *file, u32 *error) {
    if (*error) return;
    PROFILE_SCOPE(http_file_get);
    if (!file->handle) {
        *error = http_error_file_not_opened;
        return;
    }
    if (!file->content.bytes || file->content.reserved == 0) {
        *error = http_error_file_storage_not_initialized;
        http_file_abandon(file);
        return;
    }
    u64 remaining = file->content.reserved;
    u8 *cursor = file->content.bytes;
    i64 last = 0;
    u64 step = 0x40000; // commit in pieces of 256 KB
    for (;;) {
        u64 piece = remaining;
        if (file->committed && file->committed < file->content.reserved) {
            u64 usable = file->committed - (u64)(cursor - file->content.bytes);
            if (usable == 0) {
                u64 more = file->content.reserved - file->committed;
                if (more > step) more = step;
                if (!os_memory_commit(file->content.bytes + file->committed, more)) {
                    *error = http_error_not_enough_storage;
                    break;
                }
                file->committed += more;
                usable = more;
            }
            if (piece > usable) piece = usable;
        }
        last = os_net_read(file->handle, cursor, piece, &file->detail);
        if (last < 0) {
            *error = http_error_internet_read_file;
            break;
        }
        cursor += last;
        remaining -= (u64)last;
        if (last == 0 || remaining == 0) break;
    }
    file->content.used = (u64)(cursor - file->content.bytes);

    // A full buffer may be the whole body or only its start. One byte more
    // says which; the rest is not read (a body may never end).
    if (!*error && remaining == 0 && last > 0) {
        u8 probe[1];
        i64 n = os_net_read(file->handle, probe, sizeof(probe), &file->detail);
        if (n < 0) *error = http_error_internet_read_file;
        else if (n > 0) *error = http_error_not_enough_storage;
    }
    bool closed = os_net_close(file->handle);
    file->handle = nullptr;
    if (!closed && !*error) *error = http_error_internet_close_url;
}

void http_file_abandon(http_file_t *file) {
    if (file->handle) os_net_close(file->handle);
    file->handle = nullptr;
}
