// Opening links: a configured executable (a script that writes down its
// arguments) gets each link as an argument of its own, whatever the link
// holds; queues fill, count, open, lose rows and empty; without an
// executable the system's handler (a stand-in xdg-open on PATH) gets the
// link as one argument.
#include "views/views_fixture.h"
#include "views/view_helpers.h"
#include "os/os_process.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

namespace {

namespace fs = std::filesystem;

struct links_test_t : views_fixture_t {
    fs::path folder;
    fs::path script;   // records each start: its arguments, one a line, then "--"
    fs::path record;
    fs::path canary;   // a file only a shell running part of a link would make
    feed_t *feed = nullptr;
    link_configuration_t *configuration = nullptr;
    std::string old_path;

    void SetUp() override {
        views_fixture_t::SetUp();
        folder = fs::temp_directory_path() / ("tidewrack links " + std::to_string(getpid()));
        fs::create_directories(folder);
        record = folder / "record.txt";
        canary = folder / "canary";
        script = folder / "rec.sh";
        // One write a start, so that starts running at once don't interleave.
        std::ofstream(script) << "#!/bin/sh\nr=''\nfor a in \"$@\"; do r=\"$r$a\n\"; done\nprintf '%s--\\n' \"$r\" >> '"
                              << record.string() << "'\n";
        fs::permissions(script, fs::perms::owner_all);
        // A stand-in for the system's handler, found on PATH.
        fs::copy_file(script, folder / "xdg-open");
        old_path = getenv("PATH") ? getenv("PATH") : "";
        setenv("PATH", (folder.string() + ":" + old_path).c_str(), 1);
        feed = r.rss_feed("http://f/", "F");
        configuration = view_link_configuration(&r.reader, feed);
    }
    void TearDown() override {
        setenv("PATH", old_path.c_str(), 1);
        fs::remove_all(folder);
        views_fixture_t::TearDown();
    }
    void set_executable(const std::string &line) {
        data_t text = view_of(line);
        view_store_text(&context, &configuration->executable, &text);
    }
    void open(const std::string &link) {
        data_t d = view_of(link);
        view_open_link(&context, &r.reader, feed, &d);
    }
    // The starts recorded so far, once `count` of them have ended.
    std::vector<std::vector<std::string>> starts(size_t count) {
        std::vector<std::vector<std::string>> out;
        for (int i = 0; i < 2000; i++) {
            out.clear();
            std::vector<std::string> current;
            std::string text = read_whole(record);
            size_t at = 0;
            for (size_t end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
                std::string line = text.substr(at, end - at);
                if (line == "--") out.push_back(current), current.clear();
                else current.push_back(line);
            }
            if (out.size() >= count) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return out;
    }
    std::string quoted_script() const { return "\"" + script.string() + "\""; }
    std::string queue() const { return text_of(configuration->queued_links); }
};

TEST_F(links_test_t, EachLinkIsOneArgumentAndNothingInItRuns) {
    set_executable(quoted_script() + " --new-tab");
    std::string nasty = "http://x/a b\"c';d$(touch " + canary.string() + ")`touch " + canary.string() + "`&e|f>g";
    open("http://example.com/one");
    open(nasty);
    auto seen = starts(2); // the two run side by side: either may write first
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], (std::vector<std::string>{"--new-tab", "http://example.com/one"}));
    EXPECT_EQ(seen[1], (std::vector<std::string>{"--new-tab", nasty}));
    EXPECT_FALSE(fs::exists(canary));
}

TEST_F(links_test_t, AQueueFillsCountsAndOpensInOneStart) {
    set_executable(quoted_script());
    configuration->queue_links = 1;
    for (const char *link : {"http://a/1", "http://a/2", "http://a/3"}) open(link);
    EXPECT_EQ(queue(), "http://a/1 http://a/2 http://a/3");
    EXPECT_EQ(links_count_all(&r.reader), 3u);
    frame();
    EXPECT_TRUE(find_text("Open queued links (F4) (3)") || find_text("Open queued links (3)"));
    press(0x73); // F4 opens and empties every queue
    auto seen = starts(1);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], (std::vector<std::string>{"http://a/1", "http://a/2", "http://a/3"}));
    EXPECT_EQ(links_count_all(&r.reader), 0u);
    frame();
    EXPECT_TRUE(find_text("Open queued links (F4) (0)") || find_text("Open queued links (0)"));
    // Queuing off: the count falls to 0 though links stay stored.
    open("http://a/4");
    configuration->queue_links = 0;
    EXPECT_EQ(links_count_all(&r.reader), 0u);
    EXPECT_EQ(queue(), "http://a/4");
}

TEST_F(links_test_t, WithoutAnExecutableTheSystemHandlerGetsOneArgument) {
    open("http://a/1");
    configuration->queue_links = 1;
    open("http://a/2");
    open("http://a/3");
    links_open_all(&context, &r.reader, true); // as the closing window does
    auto seen = starts(2);
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], std::vector<std::string>{"http://a/1"});
    EXPECT_EQ(seen[1], std::vector<std::string>{"http://a/2 http://a/3"}); // the whole queue as one address
    EXPECT_EQ(queue(), "");
    // No handler at all: the log says what is missing and opens.
    setenv("PATH", (folder / "nothing").c_str(), 1);
    configuration->queue_links = 0;
    state.panel = panel_content;
    open("http://a/4");
    EXPECT_EQ(state.panel, (u32)panel_log);
    EXPECT_NE(text_of(log_channel(log_user)->data).find("could not start xdg-open"), std::string::npos);
}

TEST_F(links_test_t, QueueRowsOpenAndRemove) {
    set_executable(quoted_script());
    configuration->queue_links = 1;
    for (const char *link : {"http://a/1", "http://a/2", "http://a/3"}) open(link);
    state.panel = panel_links;
    frame();
    auto row_button = [&](const std::string &link, const std::string &label) {
        drawn_text_t row;
        EXPECT_TRUE(find_text(link, &row)) << link;
        for (const drawn_text_t &t : texts())
            if (t.text == label && std::abs(t.position.y - row.position.y) < 4)
                return vec2{t.position.x + 3, t.position.y + 4};
        ADD_FAILURE() << label << " not beside " << link;
        return vec2{};
    };
    click(row_button("http://a/2", "Open"));
    auto seen = starts(1);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0], std::vector<std::string>{"http://a/2"});
    EXPECT_EQ(queue(), "http://a/1 http://a/2 http://a/3"); // Open leaves the row
    frame();
    click(row_button("http://a/3", "X"));
    EXPECT_EQ(queue(), "http://a/1 http://a/2"); // X opens nothing and leaves no trailing space
    frame();
    click(row_button("http://a/1", "X"));
    EXPECT_EQ(queue(), "http://a/2");
    EXPECT_EQ(starts(1).size(), 1u);
}

TEST_F(links_test_t, HandEditedQueuesAndOverlongLinks) {
    // Empty words are no links; removing one closes the gap.
    std::string edited = "  http://a/1   http://a/2  ";
    data_t text = view_of(edited);
    view_store_text(&context, &configuration->queued_links, &text);
    configuration->queue_links = 1;
    EXPECT_EQ(links_count(configuration), 2u);
    data_t first = {10, 10, configuration->queued_links.bytes + 2};
    links_remove(configuration, &first);
    EXPECT_EQ(queue(), "  http://a/2");
    EXPECT_EQ(links_count(configuration), 1u);

    // A link past the command-line limit is refused and said in the main log.
    set_executable(quoted_script());
    u64 mark = log_mark();
    std::string huge = "http://a/" + std::string(20000, 'x');
    data_t link = view_of(huge);
    EXPECT_FALSE(link_open(&link, configuration));
    EXPECT_NE(log_since(mark).find("Link not opened"), std::string::npos);
    EXPECT_FALSE(fs::exists(record));
}

TEST_F(links_test_t, TheDesktopsBrowserCommand) {
    // A stand-in xdg-mime naming a desktop entry in a data folder of our own.
    char command[2048];
    std::ofstream(folder / "xdg-mime") << "#!/bin/sh\necho browser.desktop\n";
    fs::permissions(folder / "xdg-mime", fs::perms::owner_all);
    fs::create_directories(folder / "share" / "applications");
    std::ofstream(folder / "share" / "applications" / "browser.desktop")
        << "[Desktop Entry]\nName=Browser\nExec=/opt/browser/run --new-window %u\n[Desktop Action x]\nExec=other\n";
    const char *old_home = getenv("XDG_DATA_HOME");
    std::string saved = old_home ? old_home : "";
    setenv("XDG_DATA_HOME", (folder / "share").c_str(), 1);
    u64 n = os_default_browser_command(command, sizeof(command));
    EXPECT_EQ(std::string(command, n), "/opt/browser/run --new-window %u");
    if (old_home) setenv("XDG_DATA_HOME", saved.c_str(), 1);
    else unsetenv("XDG_DATA_HOME");
}

TEST_F(links_test_t, TheEntryHeaderLinksClickInTheWholeWindow) {
    // The list runs first in a frame and must not take the header's links,
    // named by fields inside the entry record, for rows of its own.
    entry_t *entry = r.rss_entry(feed, "E", "http://f/e", date_t{});
    entry->rss.enclosure_url = r.add("http://f/e.mp3");
    configuration->queue_links = 1;
    state.panel = panel_content;
    state.selected_feed = feed;
    state.selected_entry = entry;
    frame();
    click(on_text("Queue article"));
    click(on_text("e.mp3"));
    EXPECT_EQ(queue(), "http://f/e http://f/e.mp3");
}

} // namespace
