// The HTTP client against a server of the test's own on 127.0.0.1: lengths
// given, missing and false, redirects, refused and malformed addresses, a
// stalled transfer, and bodies that do not fit their block.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/http.h"
#include "net/test_server.h"

namespace {

struct fetched_t {
    u32 error = 0;
    u32 detail = 0;
    u64 reserved = 0; // the length the server gave, 0 when none
    std::string body;
};

// Open, then read into a block of the given size (or the length, or 5 MB).
fetched_t fetch(const std::string &url, u64 buffer_size = 0) {
    fetched_t result;
    data_t address = {url.size(), url.size(), (u8 *)url.data()};
    http_file_t file = http_file_open(&address, nullptr, &result.error);
    result.reserved = file.content.reserved;
    u64 size = result.error ? 0 : buffer_size ? buffer_size : file.content.reserved ? file.content.reserved : http_default_size;
    std::vector<u8> block(size);
    file.content = data_t{size, 0, block.data()};
    http_file_get(&file, &result.error);
    http_file_abandon(&file);
    result.detail = file.detail;
    result.body.assign((const char *)block.data(), file.content.used);
    return result;
}

struct http_fixture : ::testing::Test {
    static void SetUpTestSuite() {
        system_info_get();
        u32 error = 0;
        http_init("tidewrack", &error);
        ASSERT_EQ(error, 0u);
    }
};

test_response_t answer(const std::string &path) {
    test_response_t r;
    if (path == "/hello") r.body = "hello, world";
    else if (path == "/zero-length") r.body = "abc", r.claimed_length = 0;
    else if (path == "/no-length") r.body = std::string(100000, 'x'), r.send_length = false;
    else if (path == "/big") r.body = std::string(http_default_size + 1, 'y'), r.send_length = false;
    else if (path == "/exact") r.body = std::string(4096, 'z'), r.send_length = false;
    else if (path == "/long") r.body = std::string(20, 'l'), r.claimed_length = 5;
    else if (path == "/stall") r.body = std::string(1000, 't'), r.stall = true, r.stall_after = 100;
    else if (path == "/stall-head") r.body = "never", r.stall = true, r.stall_after = 0;
    else if (path == "/endless") r.body = std::string(65536, 'e'), r.send_length = false, r.endless = true;
    else if (path == "/trickle") r.body = "<rss>", r.send_length = false, r.trickle_ms = 400; // above the stall rule
    else if (path == "/a") r.status = 301, r.headers = "Location: /b\r\n";
    else if (path == "/b") r.status = 302, r.headers = "Location: /hello\r\n";
    else if (path == "/missing") r.status = 404, r.body = "<html>not here</html>";
    else r.status = 500;
    return r;
}

TEST_F(http_fixture, reads_bodies_by_their_length_or_up_to_the_end) {
    test_server_t server(answer);
    struct {
        const char *path;
        u32 error;
        u64 reserved;
        size_t body_size;
    } cases[] = {
        {"/hello", 0, 12, 12},
        {"/zero-length", 0, 0, 0},            // a length of 0 counts as unknown
        {"/no-length", 0, 0, 100000},         // read to the end into 5 MB
        {"/a", 0, 12, 12},                    // two redirects, then the page
        {"/missing", http_error_status, 0, 0}, // a 404 is a failure, its page unread
        {"/long", 0, 5, 5},                   // the rest past the length is not read
    };
    for (const auto &c : cases) {
        fetched_t f = fetch(server.url(c.path));
        EXPECT_EQ(f.error, c.error) << c.path << " " << http_error_name(f.error);
        EXPECT_EQ(f.reserved, c.reserved) << c.path;
        EXPECT_EQ(f.body.size(), c.body_size) << c.path;
    }
    EXPECT_EQ(fetch(server.url("/a")).body, "hello, world");
    EXPECT_EQ(server.last_user_agent(), "tidewrack");
}

TEST_F(http_fixture, a_body_longer_than_its_block_is_refused_at_the_blocks_end) {
    test_server_t server(answer);
    for (const char *path : {"/big", "/endless"}) { // the second never ends
        fetched_t big = fetch(server.url(path));
        EXPECT_EQ(big.error, http_error_not_enough_storage) << path;
        EXPECT_EQ(big.body.size(), http_default_size) << path;
    }
    // Exactly the block's size is fine; one byte less room is not.
    EXPECT_EQ(fetch(server.url("/exact"), 4096).error, 0u);
    EXPECT_EQ(fetch(server.url("/exact"), 4095).error, http_error_not_enough_storage);
    EXPECT_EQ(fetch(server.url("/hello")).error, 0u);
}

TEST_F(http_fixture, a_transfer_ends_at_its_deadline_however_its_bytes_come) {
    test_server_t server(answer);
    http_set_time_limits(0, 0, 2);
    fetched_t f = fetch(server.url("/trickle"));
    http_set_time_limits(0, 0, 120);
    EXPECT_EQ(f.error, http_error_internet_read_file);
    EXPECT_STREQ(http_detail_text(f.detail), "The transfer took longer than its time limit.");
}

TEST_F(http_fixture, addresses_that_lead_nowhere_fail_to_open) {
    test_server_t server(answer);
    std::string refused = "http://127.0.0.1:1/feed.xml";
    const std::string cases[] = {
        refused, "", "   ", "http://", "://x", "ftp://127.0.0.1/x", "file:///etc/passwd",
        "http://[::1", "http://127.0.0.1:99999/", std::string("http://127.0.0.1/\0x", 19),
        "http://" + std::string(5000, 'a') + ".example/", "\xff\xfe\x80", "javascript:alert(1)",
    };
    for (const auto &url : cases) {
        fetched_t f = fetch(url);
        EXPECT_EQ(f.error, http_error_internet_open_url) << url.substr(0, 60);
        EXPECT_EQ(f.body, "");
    }
}

TEST_F(http_fixture, a_stalled_transfer_ends_in_a_read_error) {
    test_server_t server(answer);
    // A one-second stall rule here only: elsewhere a busy machine's pause is no stall.
    http_set_time_limits(0, 1, 0);
    fetched_t f = fetch(server.url("/stall"));
    u32 head_error = fetch(server.url("/stall-head")).error;
    http_set_time_limits(0, 60, 0);
    EXPECT_EQ(f.error, http_error_internet_read_file);
    EXPECT_EQ(head_error, http_error_internet_read_file);
}

} // namespace
