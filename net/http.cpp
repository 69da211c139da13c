// http.cpp - the HTTP client over the system layer's GET operations.
#include "net/http.h"

#include "base/profiler.h"
#include "base/text.h"
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
    "http_error_status",
};

const char *http_status_text(u32 status) {
    static const struct {
        u32 status;
        const char *text;
    } table[] = {{400, "Bad Request"}, {401, "Unauthorized"}, {402, "Payment Required"}, {403, "Forbidden"},
                 {404, "Not Found"}, {405, "Method Not Allowed"}, {406, "Not Acceptable"},
                 {407, "Proxy Authentication Required"}, {408, "Request Timeout"}, {409, "Conflict"},
                 {410, "Gone"}, {411, "Length Required"}, {412, "Precondition Failed"},
                 {413, "Content Too Large"}, {414, "URI Too Long"}, {415, "Unsupported Media Type"},
                 {416, "Range Not Satisfiable"}, {418, "I'm a teapot"}, {421, "Misdirected Request"},
                 {422, "Unprocessable Content"}, {425, "Too Early"}, {426, "Upgrade Required"},
                 {429, "Too Many Requests"}, {431, "Request Header Fields Too Large"},
                 {451, "Unavailable For Legal Reasons"}, {500, "Internal Server Error"}, {501, "Not Implemented"},
                 {502, "Bad Gateway"}, {503, "Service Unavailable"}, {504, "Gateway Timeout"},
                 {505, "HTTP Version Not Supported"}, {507, "Insufficient Storage"},
                 {511, "Network Authentication Required"}};
    for (const auto &row : table) {
        if (row.status == status) return row.text;
    }
    return "";
}

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

// "Name: value" into `line` (zero-terminated); false when it doesn't fit.
static bool http_header_line(char *line, u64 capacity, const char *name, const u8 *value, u32 size) {
    u64 name_size = string_length(name);
    if (name_size + size + 1 > capacity) return false;
    memory_copy(line, name, name_size);
    memory_copy(line + name_size, value, size);
    line[name_size + size] = 0;
    return true;
}

// The answer's validators; one too long to keep is left out and noted.
static void http_read_validators(http_file_t *file) {
    http_validators_t *v = &file->validators;
    u64 size = os_net_header(file->handle, "ETag", (char *)v->etag, sizeof(v->etag));
    if (size <= sizeof(v->etag)) v->etag_size = (u32)size;
    else file->validator_cut = true;
    size = os_net_header(file->handle, "Last-Modified", (char *)v->modified, sizeof(v->modified));
    if (size <= sizeof(v->modified)) v->modified_size = (u32)size;
    else file->validator_cut = true;
}

http_file_t http_file_open(const data_t *url, const http_validators_t *validators, u32 *error) {
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

    char lines[2][http_etag_capacity + 32];
    const char *headers[2];
    u32 header_count = 0;
    if (validators && validators->etag_size &&
        http_header_line(lines[header_count], sizeof(lines[0]), "If-None-Match: ", validators->etag,
                         validators->etag_size)) {
        headers[header_count] = lines[header_count], header_count++;
    }
    if (validators && validators->modified_size &&
        http_header_line(lines[header_count], sizeof(lines[0]), "If-Modified-Since: ", validators->modified,
                         validators->modified_size)) {
        headers[header_count] = lines[header_count], header_count++;
    }

    u32 failure = 0;
    file.handle = os_net_open(address, headers, header_count, &failure, &file.detail);
    if (!file.handle) {
        *error = failure == os_net_failed_transfer ? http_error_internet_read_file : http_error_internet_open_url;
        return file;
    }
    file.status = os_net_status(file.handle);
    if (file.status == 304) {
        file.not_modified = true;
        http_file_abandon(&file);
        return file;
    }
    if (file.status >= 400) {
        *error = http_error_status;
        http_file_abandon(&file);
        return file;
    }
    http_read_validators(&file);
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
