// The feed query road: actions fill slots, workers fetch from a server of
// the test's own, the scan parses into the reader. Generations, replacement,
// failures and selection.
#include "net/engine_fixture.h"
#include "net/test_server.h"

#include <mutex>

namespace {

const char *jan(int day) {
    static std::string dates[32];
    if (dates[day].empty()) dates[day] = "Mon, " + std::string(day < 10 ? "0" : "") + std::to_string(day) +
                                         " Jan 2024 10:00:00 GMT";
    return dates[day].c_str();
}

struct feed_query_fixture : ::testing::Test {
    void SetUp() override { clear_user_log(); }
};

TEST_F(feed_query_fixture, first_update_makes_feeds_and_the_next_run_keeps_unchanged_items_out) {
    test_site_t site;
    site.set("/a.xml", test_rss("A", {{"a1", "one", jan(1)}, {"a2", "two", jan(2)}}));
    site.set("/b.xml", test_rss("B", {{"b1", "one", jan(3)}}));
    test_server_t server(site.handler());
    test_engine_t engine;

    engine.add(server.url("/a.xml"));
    engine.add("  \t" + server.url("/b.xml")); // leading blanks are skipped
    engine.add(server.url("/a.xml"));          // the same new address twice makes one feed
    EXPECT_EQ(engine.r.reader.generation, 1u);
    EXPECT_EQ(engine.shown_minimum, 1u);
    EXPECT_EQ(engine.shown_maximum, 1u);
    engine.run();
    ASSERT_EQ(engine.feeds().size(), 2u);
    feed_t *a = engine.feed(server.url("/a.xml"));
    ASSERT_NE(a, nullptr);
    ASSERT_NE(engine.feed(server.url("/b.xml")), nullptr);
    EXPECT_EQ(a->entry_count, 2u);
    EXPECT_EQ(engine.r.reader.metas.entry_count, 2u);
    EXPECT_NE(reader_get_meta(&engine.r.reader, a->id), nullptr);
    for (entry_t *e : engine.entries(a)) EXPECT_EQ(e->generation, 1u);
    u32 a1_id = engine.entry(a, "a1")->id;

    // The next run: a2 is published again with a later date, a3 is new.
    site.set("/a.xml", test_rss("A", {{"a1", "one", jan(1)}, {"a2", "two again", jan(5)}, {"a3", "three", jan(4)}}));
    engine.new_run();
    site.hold(true);
    feed_query_update_all(&engine.context, &engine.r.reader);
    EXPECT_EQ(engine.r.reader.generation, 2u);
    EXPECT_TRUE(feed_query_is_active(engine.slots.data(), engine.slots.size(), a->id));
    EXPECT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 2u);
    site.hold(false);
    engine.run();
    EXPECT_FALSE(feed_query_is_active(engine.slots.data(), engine.slots.size(), a->id));
    EXPECT_EQ(engine.feeds().size(), 2u);
    EXPECT_EQ(a->entry_count, 3u);
    entry_t *a1 = engine.entry(a, "a1");
    entry_t *a2 = engine.entry(a, "a2");
    entry_t *a3 = engine.entry(a, "a3");
    ASSERT_TRUE(a1 && a2 && a3);
    EXPECT_EQ(a1->id, a1_id);
    EXPECT_EQ(a1->generation, 1u);
    EXPECT_EQ(a2->generation, 2u);
    EXPECT_EQ(text_of(a2->rss.title), "two again");
    EXPECT_EQ(a3->generation, 2u);
    EXPECT_EQ(engine.context.failed_count, 0u);
    EXPECT_EQ(user_log(), "");
    // Newest first after the sort.
    std::vector<entry_t *> order = engine.entries(a);
    EXPECT_EQ(text_of(order[0]->rss.guid), "a2");
    EXPECT_EQ(text_of(order[2]->rss.guid), "a1");
}

TEST_F(feed_query_fixture, failures_are_logged_for_the_user_and_leave_no_feed) {
    test_site_t site;
    test_server_t server(site.handler());
    test_engine_t engine;
    std::string refused = "http://127.0.0.1:1/feed.xml";
    u64 mark = log_mark();
    engine.add(refused);
    engine.add(server.url("/missing.xml")); // a 404: its page is not parsed, and the user reads why
    engine.run();
    EXPECT_EQ(engine.feeds().size(), 0u);
    EXPECT_EQ(engine.context.failed_count, 2u);
    EXPECT_EQ(engine.context.parsed_count, 0u);
    EXPECT_EQ(engine.show_log_calls, 2);
    auto refusal = [](const std::string &url) {
        return "Error while retrieving feed: " + url + "\n    Returned (5) http_error_internet_open_url";
    };
    std::string missing = "Error while retrieving feed: " + server.url("/missing.xml") + "\n    HTTP 404 Not Found";
    EXPECT_NE(user_log().find(refusal(refused)), std::string::npos);
    EXPECT_NE(user_log().find(missing), std::string::npos);
    EXPECT_NE(log_since(0).find("http_get_file error: " + refused + " returned (5) http_error_internet_open_url\n"),
              std::string::npos);
    EXPECT_EQ(log_since(mark).find("Parsing: "), std::string::npos);

    engine.add(refused + "?again");
    engine.run();
    EXPECT_EQ(user_log().substr(user_log().size() - refusal(refused + "?again").size() - 2), "\n\n" + refusal(refused + "?again"));
}

TEST_F(feed_query_fixture, one_hundred_feeds_at_once_are_all_parsed) {
    test_site_t site;
    for (int i = 0; i < 100; i++) {
        std::vector<test_item_t> items;
        for (int j = 1; j <= 5; j++) items.push_back({"f" + std::to_string(i) + "-" + std::to_string(j), "t", jan(j)});
        site.set("/f" + std::to_string(i) + ".xml", test_rss("Feed " + std::to_string(i), items));
    }
    test_server_t server(site.handler());
    test_engine_t engine;
    for (int i = 0; i < 100; i++) engine.add(server.url("/f" + std::to_string(i) + ".xml"));
    engine.run();
    ASSERT_EQ(engine.feeds().size(), 100u);
    EXPECT_EQ(engine.r.reader.entries.entry_count, 500u);

    // "Update all" of the same 100: every one is fetched and parsed, nothing new.
    engine.new_run();
    feed_query_update_all(&engine.context, &engine.r.reader);
    EXPECT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 100u);
    engine.run();
    EXPECT_EQ(engine.context.parsed_count, 200u);
    EXPECT_EQ(engine.r.reader.entries.entry_count, 500u);
    EXPECT_EQ(server.hits("/f99.xml"), 2);
}

TEST_F(feed_query_fixture, the_selection_survives_replacement_and_sorting) {
    test_site_t site;
    site.set("/a.xml", test_rss("A", {{"a1", "one", jan(1)}, {"a2", "two", jan(2)}}));
    test_server_t server(site.handler());
    test_engine_t engine;
    engine.add(server.url("/a.xml"));
    engine.run();
    feed_t *a = engine.feed(server.url("/a.xml"));
    ASSERT_NE(a, nullptr);

    // a1 selected; it comes again newer than everything, so it is replaced
    // by a new record and sorted to the front.
    engine.selected_feed = a;
    engine.selected_entry = engine.entry(a, "a1");
    u32 old_id = engine.selected_entry->id;
    site.set("/a.xml", test_rss("A", {{"a1", "one, edited", jan(9)}, {"a2", "two", jan(2)}}));
    engine.new_run();
    feed_query_update_selected(&engine.context, &engine.r.reader);
    engine.run();
    ASSERT_NE(engine.selected_entry, nullptr);
    EXPECT_NE(engine.selected_entry->id, old_id);
    EXPECT_EQ(text_of(engine.selected_entry->rss.guid), "a1");
    EXPECT_EQ(text_of(engine.selected_entry->rss.title), "one, edited");
    EXPECT_EQ(engine.entries(a)[0], engine.selected_entry);
}

TEST_F(feed_query_fixture, a_feed_removed_while_its_fetch_ran_is_not_parsed) {
    test_site_t site;
    site.set("/a.xml", test_rss("A", {{"a1", "one", jan(1)}}));
    test_server_t server(site.handler());
    test_engine_t engine;
    engine.add(server.url("/a.xml"));
    engine.run();
    ASSERT_EQ(engine.feeds().size(), 1u);
    engine.new_run();
    feed_query_update_all(&engine.context, &engine.r.reader);
    engine.wait_finished();
    reader_delete_feed(&engine.r.reader, engine.feeds()[0]);
    engine.run();
    EXPECT_EQ(engine.feeds().size(), 0u);
    EXPECT_EQ(engine.context.parsed_count, 1u); // only the first run's parse
}

TEST_F(feed_query_fixture, the_generation_moves_once_a_run_even_for_empty_actions) {
    test_engine_t engine;
    engine.add("");
    EXPECT_EQ(engine.r.reader.generation, 1u);
    engine.add(" \t\r\n ");
    feed_query_update_selected(&engine.context, &engine.r.reader); // nothing selected
    feed_query_update_all(&engine.context, &engine.r.reader);      // no feeds
    EXPECT_EQ(engine.r.reader.generation, 1u);
    EXPECT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 0u);
    engine.new_run();
    std::string missing_path = "/nonexistent/list.txt";
    data_t missing = view_of(missing_path);
    feed_query_add_list(&engine.context, &engine.r.reader, &missing);
    EXPECT_EQ(engine.r.reader.generation, 2u);
    EXPECT_EQ(engine.shown_minimum, 2u);
}

TEST_F(feed_query_fixture, a_misbehaving_server_costs_nothing_stored) {
    // A stored feed, then its server goes bad in one way after another.
    std::string mode;
    std::mutex mode_mutex;
    std::string good = test_rss("A", {{"a1", "one", jan(1)}, {"a2", "two", jan(2)}});
    test_server_t server([&](const std::string &path) {
        std::lock_guard<std::mutex> lock(mode_mutex);
        test_response_t r;
        r.body = good;
        if (mode == "short-body") r.claimed_length = (long long)good.size() * 3;     // ends short
        else if (mode == "huge-length") r.claimed_length = 5000000000LL, r.body = good, r.endless = true;
        else if (mode == "stall") r.stall = true, r.stall_after = good.size() / 2;
        else if (mode == "big") r.body = good + std::string(feed_query_default_size, ' '), r.send_length = false;
        else if (mode == "loop") r.status = 302, r.headers = "Location: " + path + "\r\n", r.body = "";
        else if (mode == "garbage") {
            r.body.clear();
            for (int i = 0; i < 70000; i++) r.body += (char)((i * 7919) >> 3);
        } else if (mode == "html") r.body = "<html><head><title>Moved</title></head><body><channel></body>";
        else if (mode == "truncated") r.body = good.substr(0, good.size() / 2);
        return r;
    });
    test_engine_t engine;
    engine.add(server.url("/a.xml"));
    engine.run();
    ASSERT_EQ(engine.feeds().size(), 1u);
    feed_t *a = engine.feeds()[0];
    std::string title = text_of(a->rss.title);

    struct {
        const char *mode;
        const char *message; // in the user log
    } cases[] = {
        {"short-body", "Returned (6) http_error_internet_read_file"},
        {"huge-length", "Returned (8) http_error_not_enough_storage"}, // refused before reading
        {"stall", "Returned (6) http_error_internet_read_file"},
        {"loop", "Returned (5) http_error_internet_open_url"},
        {"big", "Returned (8) http_error_not_enough_storage"}, // no length, over 5 MB
        {"garbage", "the document is no RSS, Atom or JSON Feed document"},
        {"html", "an HTML page with no feed link"},
        {"truncated", "the document ends before its root element closes"},
    };
    for (const auto &c : cases) {
        {
            std::lock_guard<std::mutex> lock(mode_mutex);
            mode = c.mode;
        }
        // A one-second stall rule for the stalled answer only: elsewhere a busy
        // machine's pause is no stall.
        http_set_time_limits(0, std::string(c.mode) == "stall" ? 1 : 60, 0);
        clear_user_log();
        feed_query_update_all(&engine.context, &engine.r.reader);
        engine.run();
        ASSERT_EQ(engine.feeds().size(), 1u) << c.mode;
        EXPECT_EQ(a->entry_count, 2u) << c.mode;
        EXPECT_EQ(text_of(a->rss.title), title) << c.mode;
        EXPECT_NE(user_log().find(c.message), std::string::npos) << c.mode << ": " << user_log();
        for (const feed_query_t &slot : engine.slots) // the document's block and address are given back
            EXPECT_TRUE(!slot.content.bytes && !slot.url.bytes) << c.mode;
    }
    http_set_time_limits(0, 60, 0);
}

TEST_F(feed_query_fixture, no_address_breaks_the_engine) {
    test_engine_t engine;
    const std::string addresses[] = {
        "http://", "http://127.0.0.1:1", "ftp://127.0.0.1/", "not an address at all", "\x01\x02\x03",
        "http://" + std::string(10000, 'x'), "http://[::1]:0/", "http://127.0.0.1:65536/", "\xc3\x28\xff",
        "  http://127.0.0.1:1/trailing  ", std::string("http://127.0.0.1:1/\0zero", 25),
    };
    for (const auto &address : addresses) engine.add(address);
    engine.run();
    EXPECT_EQ(engine.feeds().size(), 0u);
    EXPECT_EQ(engine.context.failed_count, (u32)std::size(addresses));
}

} // namespace
