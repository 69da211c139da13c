// os_http_curl.cpp - the HTTP operations over libcurl.
//
// libcurl pushes the body through a write callback; the program pulls it in
// pieces into a buffer of its own choosing. Each request therefore drives a
// private multi handle: the callback copies straight into the buffer of the
// current read, a small spill area takes what arrives past its end, and a
// full spill pauses the transfer until the next read.
#include "os/os_net.h"
#include "os/os_core.h"

#include <atomic>
#include <curl/curl.h>
#include <string.h>

namespace {

constexpr u64 os_net_chunk_size = 16384;     // libcurl's receive buffer, the largest callback
constexpr u64 os_net_spill_size = 4 * os_net_chunk_size;
constexpr long os_net_max_redirects = 20;

struct os_net_session_t {
    bool open;
    char user_agent[4096];
    std::atomic<u32> connect_seconds;
    std::atomic<u32> stall_seconds;
    std::atomic<u32> total_seconds;
};

os_net_session_t os_net_session = {false, {0}, {30}, {60}, {120}};

} // namespace

struct os_net_request_t {
    CURL *easy;
    CURLM *multi;
    u8 *destination; // the buffer of the read under way, or null
    u64 destination_size;
    u64 destination_used;
    u64 spill_used;
    u64 spill_read;
    bool paused;
    bool done;
    CURLcode result;
    curl_slist *headers; // the request's extra header lines
    u8 spill[os_net_spill_size];
};

bool os_net_session_open(const char *user_agent) {
    if (os_net_session.open) return true;
    if (curl_global_init(CURL_GLOBAL_DEFAULT) != CURLE_OK) return false;
    u64 n = strlen(user_agent);
    if (n >= sizeof(os_net_session.user_agent)) n = sizeof(os_net_session.user_agent) - 1;
    memcpy(os_net_session.user_agent, user_agent, n);
    os_net_session.user_agent[n] = 0;
    os_net_session.open = true;
    return true;
}

bool os_net_session_close() {
    if (!os_net_session.open) return false;
    curl_global_cleanup();
    os_net_session.open = false;
    return true;
}

bool os_net_session_is_open() { return os_net_session.open; }

void os_net_set_time_limits(u32 connect_seconds, u32 stall_seconds, u32 total_seconds) {
    if (connect_seconds) os_net_session.connect_seconds.store(connect_seconds);
    if (stall_seconds) os_net_session.stall_seconds.store(stall_seconds);
    if (total_seconds) os_net_session.total_seconds.store(total_seconds);
}

static size_t os_net_write(char *pointer, size_t size, size_t count, void *user) {
    os_net_request_t *request = (os_net_request_t *)user;
    u64 total = (u64)size * count;
    if (request->spill_read == request->spill_used) request->spill_read = request->spill_used = 0;

    // Straight into the reader's buffer while nothing waits in the spill.
    u64 taken = 0;
    if (request->destination && request->spill_used == 0) {
        u64 room = request->destination_size - request->destination_used;
        taken = total < room ? total : room;
        memcpy(request->destination + request->destination_used, pointer, taken);
        request->destination_used += taken;
    }
    u64 rest = total - taken;
    if (rest == 0) return total;
    if (os_net_spill_size - request->spill_used >= rest) {
        memcpy(request->spill + request->spill_used, pointer + taken, rest);
        request->spill_used += rest;
        return total;
    }
    if (taken == 0) {
        // libcurl keeps the piece and hands it over again after the unpause.
        request->paused = true;
        return CURL_WRITEFUNC_PAUSE;
    }
    return 0; // a piece larger than the receive buffer: fail rather than lose bytes
}

static bool os_net_has_spill(const os_net_request_t *request) { return request->spill_used > request->spill_read; }

static bool os_net_destination_full(const os_net_request_t *request) {
    return request->destination && request->destination_used == request->destination_size;
}

// Runs the transfer until the body has begun (opening) or the current read's
// buffer is full (reading), or the transfer has ended.
static void os_net_pump(os_net_request_t *request, bool until_body) {
    while (!request->done) {
        if (until_body ? os_net_has_spill(request) : (os_net_destination_full(request) || request->paused)) return;
        int running = 0;
        CURLMcode code = curl_multi_perform(request->multi, &running);
        if (code != CURLM_OK) {
            request->done = true;
            request->result = CURLE_RECV_ERROR;
            return;
        }
        int queued = 0;
        while (CURLMsg *message = curl_multi_info_read(request->multi, &queued)) {
            if (message->msg == CURLMSG_DONE) {
                request->done = true;
                request->result = message->data.result;
            }
        }
        if (request->done) return;
        if (until_body ? os_net_has_spill(request) : (os_net_destination_full(request) || request->paused)) return;
        curl_multi_poll(request->multi, nullptr, 0, 1000, nullptr);
    }
}

static void os_net_release(os_net_request_t *request) {
    if (request->multi && request->easy) curl_multi_remove_handle(request->multi, request->easy);
    if (request->easy) curl_easy_cleanup(request->easy);
    if (request->multi) curl_multi_cleanup(request->multi);
    if (request->headers) curl_slist_free_all(request->headers);
    os_memory_release(request, sizeof(os_net_request_t));
}

// Failures after the connection stood are failures of the transfer; all
// others mean there was no answer to read.
static bool os_net_is_transfer_failure(os_net_request_t *request) {
    switch (request->result) {
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_WRITE_ERROR:
    case CURLE_BAD_CONTENT_ENCODING:
        return true;
    case CURLE_OPERATION_TIMEDOUT: {
        curl_off_t connect_time = 0;
        curl_easy_getinfo(request->easy, CURLINFO_CONNECT_TIME_T, &connect_time);
        return connect_time > 0;
    }
    default:
        return false;
    }
}

// The library's code of a failed request, or os_net_detail_deadline when it
// ran out of its total time (the library gives one code for that and for a
// stall).
static u32 os_net_detail_of(os_net_request_t *request) {
    if (request->result == CURLE_OPERATION_TIMEDOUT) {
        curl_off_t total = 0;
        curl_easy_getinfo(request->easy, CURLINFO_TOTAL_TIME_T, &total);
        // The library's clock may stop a little short of the limit it ran
        // out of: a stall ending in the last tenth counts as the deadline.
        if (total * 10 >= (curl_off_t)os_net_session.total_seconds.load() * 9000000) return os_net_detail_deadline;
    }
    return (u32)request->result;
}

os_net_request_t *os_net_open(const char *url, const char *const *headers, u32 header_count, u32 *failure,
                              u32 *detail) {
    *failure = os_net_ok;
    *detail = 0;
    if (!os_net_session.open) {
        *failure = os_net_failed_open;
        *detail = CURLE_FAILED_INIT;
        return nullptr;
    }
    os_net_request_t *request = (os_net_request_t *)os_memory_alloc(sizeof(os_net_request_t));
    if (!request) {
        *failure = os_net_failed_memory;
        return nullptr;
    }
    request->easy = curl_easy_init();
    request->multi = curl_multi_init();
    if (!request->easy || !request->multi) {
        os_net_release(request);
        *failure = os_net_failed_memory;
        return nullptr;
    }
    CURL *easy = request->easy;
    curl_easy_setopt(easy, CURLOPT_URL, url);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, os_net_session.user_agent);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, os_net_max_redirects);
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    // http_proxy, https_proxy and no_proxy from the environment, as libcurl reads them.
    // Every encoding this libcurl decodes is asked for, and a body compressed
    // without being asked is decoded too; the reads see the decoded bytes.
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, (long)os_net_session.connect_seconds.load());
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, (long)os_net_session.stall_seconds.load());
    // A body that trickles just above the stall rule, or never ends, would
    // hold a worker (and the program's exit) for ever without this.
    curl_easy_setopt(easy, CURLOPT_TIMEOUT, (long)os_net_session.total_seconds.load());
    curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, (long)os_net_chunk_size);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, os_net_write);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, request);
    for (u32 i = 0; i < header_count; i++) {
        curl_slist *list = curl_slist_append(request->headers, headers[i]);
        if (!list) {
            os_net_release(request);
            *failure = os_net_failed_memory;
            return nullptr;
        }
        request->headers = list;
    }
    if (request->headers) curl_easy_setopt(easy, CURLOPT_HTTPHEADER, request->headers);
    if (curl_multi_add_handle(request->multi, easy) != CURLM_OK) {
        os_net_release(request);
        *failure = os_net_failed_memory;
        return nullptr;
    }

    os_net_pump(request, true);
    if (request->done && request->result != CURLE_OK && !os_net_has_spill(request)) {
        *failure = os_net_is_transfer_failure(request) ? os_net_failed_transfer : os_net_failed_open;
        *detail = os_net_detail_of(request);
        os_net_release(request);
        return nullptr;
    }
    return request;
}

bool os_net_content_length(os_net_request_t *request, u64 *length) {
    curl_off_t value = -1;
    if (curl_easy_getinfo(request->easy, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &value) != CURLE_OK || value < 0) {
        return false;
    }
    *length = (u64)value;
    return true;
}

u32 os_net_status(os_net_request_t *request) {
    long status = 0;
    curl_easy_getinfo(request->easy, CURLINFO_RESPONSE_CODE, &status);
    return (u32)status;
}

u64 os_net_header(os_net_request_t *request, const char *name, char *destination, u64 capacity) {
    curl_header *header = nullptr;
    if (curl_easy_header(request->easy, name, 0, CURLH_HEADER, -1, &header) != CURLHE_OK || !header) return 0;
    u64 size = strlen(header->value);
    if (size <= capacity) memcpy(destination, header->value, size);
    return size;
}

i64 os_net_read(os_net_request_t *request, void *destination, u64 size, u32 *detail) {
    u8 *bytes = (u8 *)destination;
    u64 read = request->spill_used - request->spill_read;
    if (read > size) read = size;
    memcpy(bytes, request->spill + request->spill_read, read);
    request->spill_read += read;

    if (read < size && !request->done) {
        request->destination = bytes;
        request->destination_size = size;
        request->destination_used = read;
        if (request->paused) {
            request->paused = false;
            curl_easy_pause(request->easy, CURLPAUSE_CONT); // may call os_net_write at once
        }
        os_net_pump(request, false);
        read = request->destination_used;
        request->destination = nullptr;
    }
    if (read > 0) return (i64)read;
    if (request->done && request->result != CURLE_OK) {
        *detail = os_net_detail_of(request);
        return -1;
    }
    return 0;
}

bool os_net_close(os_net_request_t *request) {
    if (!request) return false;
    os_net_release(request);
    return true;
}

const char *os_net_detail_text(u32 detail) {
    if (detail == os_net_detail_deadline) return "The transfer took longer than its time limit.";
    return curl_easy_strerror((CURLcode)detail);
}
