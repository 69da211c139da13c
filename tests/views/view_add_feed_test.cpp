// The add feed panel through the headless window: an address typed into the
// field and sent with Enter, a list file with CRLF lines, and export and
// import giving back the same addresses.
#include "views/views_fixture.h"

#include <filesystem>
#include <fstream>

#include "net/test_server.h"

namespace {

namespace fs = std::filesystem;

std::string rss(const std::string &title, int items) {
    std::string out = "<?xml version=\"1.0\"?><rss version=\"2.0\"><channel><title>" + title + "</title>";
    for (int i = 0; i < items; i++)
        out += "<item><title>" + title + " " + std::to_string(i) + "</title><guid>" + title + std::to_string(i) +
               "</guid></item>";
    return out + "</channel></rss>";
}

struct add_feed_test_t : views_fixture_t {
    test_server_t server{[](const std::string &path) {
        test_response_t response;
        if (path == "/missing") response.status = 404;
        else response.body = rss(path.substr(1), 2);
        return response;
    }};
    fs::path folder;

    void SetUp() override {
        views_fixture_t::SetUp();
        folder = fs::temp_directory_path() / ("tidewrack_add_feed_" + std::to_string(getpid()));
        fs::create_directories(folder);
    }
    void TearDown() override {
        fs::remove_all(folder);
        views_fixture_t::TearDown();
    }
    // Frames until every fetch has been parsed.
    void settle() {
        engine.wait_finished();
        frame();
        ASSERT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 0u);
    }
    // Enter down in one frame, with its character, and up in the next.
    void enter() {
        frame({key(0x0D, true), typed("\r")});
        frame({key(0x0D, false)});
    }
    std::vector<std::string> urls() {
        std::vector<std::string> out;
        for (feed_t *feed : engine.feeds()) out.emplace_back((const char *)feed->url.bytes, feed->url.used);
        return out;
    }
};

TEST_F(add_feed_test_t, AnAddressTypedAndEnteredBecomesAFeedInTheList) {
    frame();
    click(field_under("URL to a RSS"));
    type(server.url("/first"));
    enter();
    settle();
    EXPECT_EQ(urls(), std::vector<std::string>{server.url("/first")});
    EXPECT_EQ(text_of(state.add_feed_url), server.url("/first"));
    EXPECT_EQ(r.reader.generation, 1u);
    frame();
    EXPECT_TRUE(find_text("first 0"));
    EXPECT_TRUE(find_text("first 1"));
}

TEST_F(add_feed_test_t, AFailedFetchOpensTheLog) {
    // A port nobody listens on: the connection is refused.
    std::string missing = "http://127.0.0.1:1/feed";
    data_t url = view_of(missing);
    feed_query_add_url(&engine.context, &r.reader, &url);
    settle();
    EXPECT_EQ(state.panel, (u32)panel_log);
    frame();
    EXPECT_TRUE(find_text("Error while retrieving feed: " + missing));
    EXPECT_TRUE(urls().empty());
}

TEST_F(add_feed_test_t, ListFileExportAndImport) {
    // CRLF line ends, blank lines and leading blanks: one feed per address.
    std::ofstream(folder / "list.txt", std::ios::binary)
        << "  " << server.url("/one") << "\r\n\r\n\t" << server.url("/two") << "\r\n" << server.url("/three");
    std::string path = (folder / "list.txt").string();
    data_push_raw(&state.add_feed_import_path, path.data(), path.size());
    frame();
    click(field_under("Path to a text file containing"));
    enter();
    settle();
    std::vector<std::string> expected = {server.url("/one"), server.url("/two"), server.url("/three")};
    EXPECT_EQ(urls(), expected);

    // Export with an empty field goes to list.txt in the desktop folder and
    // shows the path; a deleted feed is exported too.
    feed_mark_deleted(&r.reader, engine.feeds()[1]);
    std::string desktop = folder.string();
    data_push_raw(&context.desktop_folder, desktop.data(), desktop.size());
    click(on_text("Export"));
    std::string written = (folder / "list.txt").string();
    EXPECT_EQ(text_of(state.add_feed_export_path), written);
    std::ifstream in(written);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, expected[0] + "\n" + expected[1] + "\n" + expected[2] + "\n");

    // Read back, the list names the same feeds and adds none.
    data_t list = view_of(written);
    feed_query_add_list(&engine.context, &r.reader, &list);
    settle();
    EXPECT_EQ(urls(), expected);

    // An export into a folder that doesn't exist fails quietly.
    std::string missing = (folder / "no" / "such" / "list.txt").string();
    state.add_feed_export_path.used = 0;
    data_push_raw(&state.add_feed_export_path, missing.data(), missing.size());
    EXPECT_FALSE(view_export_list(&context, &r.reader, &state.add_feed_export_path));
}

} // namespace
