// http.h - a thin blocking HTTP GET for the workers, with the small error
// vocabulary the user sees in the log panel.
//
// The session is opened and closed on the main thread; http_file_open and
// http_file_get run on workers. Every function follows the error convention:
// nothing happens when *error is already set, and the first error stays.
#pragma once

#include "base/memory.h"

struct os_net_request_t;

enum : u32 {
    http_error_none = 0,
    http_error_internet_open = 1,
    http_error_internet_close = 2,
    http_error_not_initialized = 3,
    http_error_file_not_opened = 4,
    http_error_internet_open_url = 5,
    http_error_internet_read_file = 6,
    http_error_internet_close_url = 7,
    http_error_not_enough_storage = 8,
    http_error_file_storage_not_initialized = 9,
    http_error_uri_is_not_zero_terminated = 10,
    http_error_status = 11, // the server answered 4xx or 5xx; http_file_t.status says which
    http_error_count = 12,
};

// The names shown to the user, indexed by the error value.
extern const char *const http_error_names[http_error_count];
// The name of any value; values past the table give "http_error_unknown".
const char *http_error_name(u32 error);
// The HTTP library's text for a `detail` code of a failed request.
const char *http_detail_text(u32 detail);

constexpr u64 http_default_size = 0x500000; // the body block when no length is given, and the largest body
constexpr u64 http_url_capacity = 4096;     // longest address, with its terminator
constexpr u64 http_etag_capacity = 256;     // longest ETag kept; a longer one is not kept
constexpr u64 http_modified_capacity = 64;  // longest Last-Modified kept

// What a server said about the version of a document it sent, sent back on
// the next fetch so that an unchanged document costs a 304 and no body.
struct http_validators_t {
    u32 etag_size;     // 0: none
    u32 modified_size; // 0: none
    u8 etag[http_etag_capacity];
    u8 modified[http_modified_capacity];
};

// The reason phrase of a status ("Not Found"), or "" for one not in the table.
const char *http_status_text(u32 status);

struct http_file_t {
    os_net_request_t *handle;
    data_t content; // reserved: the content length (0 when unknown); used: bytes read
    u32 detail;     // the HTTP library's own code of a failure, for the log
    u64 committed;  // bytes of content usable so far, when the caller gave
                    // address space only (see http_file_get); 0 otherwise
    u32 status;     // the final HTTP status, 0 before an answer
    bool not_modified;     // a 304: the document is as the validators sent said; no body
    bool validator_cut;    // a validator of the answer was too long to keep
    http_validators_t validators; // those of the answer
};

void http_init(const char *user_agent, u32 *error);
void http_close(u32 *error);
bool http_is_open();
// Time limits of later requests: connection (30 s by default), a stalled
// transfer (60 s below 1 byte a second) and the whole request (120 s).
// 0 keeps a limit.
void http_set_time_limits(u32 connect_seconds, u32 stall_seconds, u32 total_seconds);

// Starts the GET of `url` (UTF-8; its used bytes, no terminator needed) and
// reads the content length into content.reserved when the server gives one.
// With `validators` (may be null), the request is conditional; a 304 sets
// not_modified and ends the request. A 4xx or 5xx answer sets
// http_error_status. A length above http_default_size is refused at once with
// http_error_not_enough_storage: no block is taken for a claim. The length
// is that of the bytes sent, which may be compressed: the body read can be
// longer, and its limit is the caller's buffer.
http_file_t http_file_open(const data_t *url, const http_validators_t *validators, u32 *error);
// Reads the body into content.bytes, whose reserved size the caller set, and
// ends the request. A body longer than the buffer ends the request at the
// buffer's end with http_error_not_enough_storage. When `committed` is below
// the reserved size, content.bytes is address space of which only that much
// is usable: the rest is committed step by step as bytes arrive.
void http_file_get(http_file_t *file, u32 *error);
// Ends a request that was opened but will not be read (any error state).
void http_file_abandon(http_file_t *file);
