// os_net.h - blocking HTTP GET, listed as operations: open a session, start a
// GET (redirects followed), the content length, the body read in pieces, and
// closing. One implementation per platform (os/linux/os_http_curl.cpp).
//
// Threads: os_net_session_open and os_net_session_close run on the main thread
// only (before any request and after the last). Requests may run on any
// thread, one request on one thread at a time.
#pragma once

#include "base/base_core.h"

struct os_net_request_t;

// Failures of a request, as the caller needs to tell them apart.
enum : u32 {
    os_net_ok = 0,
    os_net_failed_open = 1,     // no connection, no answer, bad address, too many redirects
    os_net_failed_transfer = 2, // the connection broke, stalled or ended short
    os_net_failed_memory = 3,   // no memory for the request record
};

// Opens the process-wide session: every request sends `user_agent`
// (zero-terminated). False when the HTTP library could not start.
bool os_net_session_open(const char *user_agent);
// False when no session was open.
bool os_net_session_close();
bool os_net_session_is_open();

// Time limits of every later request: giving up on a connection after
// `connect_seconds`, on a transfer that moves fewer than one byte a second
// for `stall_seconds`, and on a request that has not ended after
// `total_seconds` however its bytes come (120 s unless set). 0 leaves a
// limit as it was. Set before requests start (tests shorten them).
void os_net_set_time_limits(u32 connect_seconds, u32 stall_seconds, u32 total_seconds);

// Starts a GET of the zero-terminated address and waits until the final
// answer (after redirects) has begun or ended. `headers` are extra request
// header lines ("Name: value", zero-terminated). The body is asked for in
// every compression the library decodes, and reads give it decoded. A proxy
// named by http_proxy, https_proxy and no_proxy is used. Null on failure,
// with the reason in *failure and the library's code in *detail (for the log).
os_net_request_t *os_net_open(const char *url, const char *const *headers, u32 header_count, u32 *failure,
                              u32 *detail);
// The value of the final answer's header `name`: its size, with the bytes
// copied to `destination` only when they fit `capacity`. 0 when absent.
u64 os_net_header(os_net_request_t *request, const char *name, char *destination, u64 capacity);
// The final answer's content length; false when the server gave none.
bool os_net_content_length(os_net_request_t *request, u64 *length);
// Reads up to `size` bytes of the body. Returns the bytes read (0 at the end
// of the body), or -1 when the transfer failed (the reason in *detail; a
// request past its total time limit gives os_net_detail_deadline).
i64 os_net_read(os_net_request_t *request, void *destination, u64 size, u32 *detail);
// The final HTTP status (0 when unknown).
u32 os_net_status(os_net_request_t *request);
// Ends the request and releases it, read to its end or not. False if the
// handle was not a request.
bool os_net_close(os_net_request_t *request);

// The *detail of a request that ran out of its total time.
constexpr u32 os_net_detail_deadline = 0x10000;

// Text for a library code given in *detail; zero-terminated, static.
const char *os_net_detail_text(u32 detail);
