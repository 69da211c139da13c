// Image cache: fetch, decode and scaling against a loopback server, what
// each kind of bad body leaves in a slot, the keys, eviction and release.
#include "net/image_fixture.h"
#include "net/test_server.h"

namespace {

struct image_row_t {
    const char *name;
    test_response_t response;
    u32 target_width;      // asked for once decoded; 0: not asked
    u32 state;             // after the fetch, and the scaling if asked
    u32 width, height;     // of `resized` at state 4
    u32 components;
    const char *error;     // name of the fetch error at state 5
};

TEST(image_query, bodies_end_in_their_states) {
    const image_row_t rows[] = {
        {"png narrowed to the column", {200, test_png(40, 30)}, 20, image_state_ready, 20, 15, 4, ""},
        {"jpeg narrower than its column", {200, test_jpeg(64, 48)}, 100, image_state_ready, 64, 48, 3, ""},
        {"grey png with alpha comes as rgba", {200, test_png(6, 2, 2)}, 3, image_state_ready, 3, 1, 4, ""},
        {"grey png", {200, test_png(6, 2, 1)}, 3, image_state_ready, 3, 1, 1, ""},
        {"gif decodes too", {200, test_gif()}, 10, image_state_ready, 1, 1, 4, ""},
        {"column too narrow for anything", {200, test_png(8, 8)}, 0, image_state_no_size, 0, 0, 4, ""},
        {"404 page", {404, "<html><body>Not found</body></html>"}, 0, image_state_fetch_failed, 0, 0, 0,
         "http_error_status"},
        {"truncated png", {200, test_png(40, 30).substr(0, 60)}, 0, image_state_fetch_failed, 0, 0, 0,
         "image_error_undecodable"},
        {"30000 by 30000 header", {200, test_png_claiming(30000, 30000)}, 0, image_state_fetch_failed, 0, 0, 0,
         "image_error_undecodable"}, // the decoder's own limit refuses it
        {"a side past the texture limit", {200, test_png_claiming(9000, 10)}, 0, image_state_fetch_failed, 0, 0, 0,
         "image_error_too_large"},
        {"empty body", {200, ""}, 0, image_state_fetch_failed, 0, 0, 0, "image_error_undecodable"},
        {"body longer than any block", {200, "x", {}, true, 0x7FFFFFFF}, 0, image_state_fetch_failed, 0, 0, 0,
         "http_error_not_enough_storage"},
    };
    test_image_cache_t cache;
    test_server_t server([&](const std::string &path) { return rows[std::stoi(path.substr(1))].response; });
    for (u32 i = 0; i < std::size(rows); i++) {
        SCOPED_TRACE(rows[i].name);
        std::string url = server.url("/" + std::to_string(i));
        data_t address = test_data(url);
        image_query_t *slot = image_query_get(7, &address, true);
        ASSERT_NE(slot, nullptr);
        cache.wait(slot);
        if (image_query_state(slot) == image_state_decoded) {
            EXPECT_EQ(slot->components, rows[i].components);
            ASSERT_TRUE(image_query_request_size(slot, rows[i].target_width, 0));
            cache.wait(slot);
        }
        EXPECT_EQ(image_query_state(slot), rows[i].state);
        if (rows[i].state == image_state_ready) {
            EXPECT_EQ(slot->target_width, rows[i].width);
            EXPECT_EQ(slot->target_height, rows[i].height);
            EXPECT_EQ(slot->resized.used, (u64)rows[i].width * rows[i].height * rows[i].components);
            // Not scaled: the display bytes are the decoded ones.
            EXPECT_EQ(slot->resized.bytes == slot->pixels.bytes, rows[i].width == slot->width);
        }
        if (rows[i].state == image_state_fetch_failed) EXPECT_STREQ(image_query_error_name(slot->error), rows[i].error);
    }
}

TEST(image_query, a_stalling_server_holds_only_its_slot) {
    test_image_cache_t cache;
    image_query_t *slot;
    {
        test_response_t stalled = {200, test_png(8, 8)};
        stalled.stall = true, stalled.stall_after = 20;
        test_server_t server([&](const std::string &) { return stalled; });
        std::string address = server.url("/slow.png");
        data_t url = test_data(address);
        slot = image_query_get(1, &url, true);
        // The frame goes on: lookups answer at once, the check passes over
        // the held slot, and neither forgetting nor eviction touches it.
        EXPECT_EQ(image_query_get(1, &url, false), slot);
        image_queries_forget(1);
        image_queries_check();
        EXPECT_EQ(image_query_state(slot), image_state_fetching);
        EXPECT_TRUE(slot->remove_requested);
    } // the server stops and the transfer ends short
    cache.wait(slot);
    image_queries_check();
    EXPECT_EQ(image_query_state(slot), image_state_free);
    EXPECT_EQ(cache.storage.memory.used, file_storage_commit_step);
}

TEST(image_query, keys_eviction_and_release) {
    test_image_cache_t cache;
    test_server_t server([](const std::string &) { return test_response_t{200, test_png(4, 4)}; });
    std::string a_url = server.url("/a.png"), b_url = server.url("/b.png");
    data_t a = test_data(a_url), b = test_data(b_url);
    image_query_t *first = image_query_get(1, &a, true);
    EXPECT_EQ(image_query_get(1, &a, true), first);
    image_query_t *other_entry = image_query_get(2, &a, true);
    EXPECT_NE(other_entry, first);
    EXPECT_EQ(image_query_get(3, &a, false), nullptr);
    cache.wait(first);
    cache.wait(other_entry);

    // Every slot in use: the least recently looked-up one that no worker
    // holds is taken, texture and all.
    for (auto &slot : image_cache.slots) {
        if (&slot == first || &slot == other_entry) continue;
        slot.entry_id = 9;
        slot.url = data_t{2, 1, (u8 *)file_storage_alloc(&cache.storage, 2)};
        slot.url.bytes[0] = 'x';
        slot.last_used = os_counter() + 1000;
        slot.state = image_state_fetch_failed;
    }
    first->texture = 77;
    other_entry->last_used = os_counter() + 2000;
    first->last_used = 0;
    image_query_t *taken = image_query_get(4, &b, true);
    EXPECT_EQ(taken, first);
    EXPECT_EQ(cache.deleted_textures, std::vector<u32>{77});
    cache.wait(taken);

    // A deleted entry's slots go at once when no worker holds them.
    image_queries_forget(9);
    EXPECT_EQ(cache.slots_in_use(), 2u);
}

} // namespace
