// tidewrack-tool run as a program: update, import, export, parse, dump,
// decode and html, with reader folders of the test's own and a local server.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "base/base_test_util.h"
#include "net/json_test_util.h"
#include "net/test_server.h"

namespace {

namespace fs = std::filesystem;

struct run_t {
    int status = -1;
    std::string out, err;
};

std::string quote(const std::string &s) {
    std::string q = "'";
    for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

run_t tool(const std::vector<std::string> &args) {
    static int counter = 0;
    std::string base = ::testing::TempDir() + "tidewrack_tool_" + std::to_string(getpid()) + "_" +
                       std::to_string(counter++);
    std::string command = quote(TIDEWRACK_TOOL);
    for (const auto &a : args) command += " " + quote(a);
    command += " >" + quote(base + ".out") + " 2>" + quote(base + ".err");
    run_t r;
    int raw = std::system(command.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128 + WTERMSIG(raw);
    r.out = read_whole(base + ".out");
    r.err = read_whole(base + ".err");
    fs::remove(base + ".out");
    fs::remove(base + ".err");
    return r;
}

json_value_t dump(const std::string &folder) {
    run_t r = tool({"dump", "-path", folder});
    EXPECT_EQ(r.status, 0) << r.err;
    bool ok = false;
    json_value_t v = json_parse(r.out, &ok);
    EXPECT_TRUE(ok) << r.out.substr(0, 300);
    return v;
}

std::vector<std::string> snapshots(const std::string &folder) {
    std::vector<std::string> names;
    if (!fs::exists(folder)) return names;
    for (auto &e : fs::directory_iterator(folder)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}


struct tool_fixture : ::testing::Test {
    std::string folder;
    void SetUp() override {
        folder = ::testing::TempDir() + "tidewrack_tool_" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name();
        fs::remove_all(folder);
    }
    void TearDown() override { fs::remove_all(folder); }
};

const json_value_t *entry_by_guid(const json_value_t &d, const std::string &guid) {
    for (const auto &e : d["entries"].items)
        if (e["guid"].s == guid) return &e;
    return nullptr;
}

TEST_F(tool_fixture, update_then_update_all_across_two_runs) {
    test_site_t site;
    site.set("/a.xml", test_rss("A", {{"a1", "one", "Mon, 01 Jan 2024 10:00:00 GMT"},
                                      {"a2", "two", "Tue, 02 Jan 2024 11:30:05 GMT"}}));
    site.set("/b.xml", test_rss("B", {{"b1", "one", "Mon, 01 Jan 2024 10:00:00 GMT"}}));
    test_server_t server(site.handler());

    run_t first = tool({"update", "-path", folder, server.url("/a.xml"), server.url("/b.xml")});
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.err, "");
    json_value_t d = dump(folder);
    EXPECT_EQ(d["counters"]["generation"].n, 1);
    ASSERT_EQ(d["feeds"].size(), 2u);
    EXPECT_EQ(d["entries"].size(), 3u);
    const json_value_t *a2 = entry_by_guid(d, "a2");
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ((*a2)["pub_date"].s, "2024-01-02 11:30:05");

    // Second run: a2 again with a later date, and "update all".
    site.set("/a.xml", test_rss("A", {{"a1", "one", "Mon, 01 Jan 2024 10:00:00 GMT"},
                                      {"a2", "two!", "Fri, 05 Jan 2024 09:00:00 GMT"}}));
    run_t second = tool({"update", "-path", folder});
    ASSERT_EQ(second.status, 0) << second.err;
    d = dump(folder);
    EXPECT_EQ(d["counters"]["generation"].n, 2);
    EXPECT_EQ(d["entries"].size(), 3u);
    a2 = entry_by_guid(d, "a2");
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ((*a2)["generation"].n, 2);
    EXPECT_EQ((*a2)["title"].s, "two!");
    EXPECT_EQ((*entry_by_guid(d, "a1"))["generation"].n, 1);
    EXPECT_EQ(server.hits("/b.xml"), 2);
}

TEST_F(tool_fixture, a_failed_fetch_is_reported_and_gives_status_1) {
    test_site_t site;
    test_server_t server(site.handler());
    std::string refused = "http://127.0.0.1:1/x.xml";
    run_t r = tool({"update", "-path", folder, refused, server.url("/none.xml")});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "Error while retrieving feed: " + refused + "\n    Returned (5) http_error_internet_open_url\n");
    EXPECT_EQ(dump(folder)["feeds"].size(), 0u);

    run_t page = tool({"update", "-path", folder, server.url("/none.xml")}); // a 404 page only
    EXPECT_EQ(page.status, 0);
    EXPECT_EQ(page.err, "");
}

TEST_F(tool_fixture, a_failed_save_has_its_own_status_and_the_systems_reason) {
    fs::create_directories(folder);
    // Folders under the temporary names of the next two minutes' saves.
    for (int s = 0; s < 120; s++) {
        std::time_t t = std::time(nullptr) + s;
        char name[64];
        std::strftime(name, sizeof(name), "feed_data_%Y%m%d_%H%M%S.bin.tmp", std::gmtime(&t));
        fs::create_directories(folder + "/" + name);
    }
    run_t r = tool({"update", "-path", folder});
    EXPECT_EQ(r.status, 3);
    EXPECT_EQ(r.err, "tidewrack-tool: the reader could not be saved in " + folder + ": Is a directory\n");
}

TEST_F(tool_fixture, a_full_reader_keeps_what_fits_says_so_once_and_gives_status_1) {
    test_site_t site;
    test_server_t server(site.handler());
    std::vector<std::string> args = {"update", "-path", folder};
    for (int i = 0; i < 130; i++) { // more feeds than fit, more addresses than the tool once took
        std::string path = "/f" + std::to_string(i) + ".xml";
        site.set(path, test_rss("F" + std::to_string(i), {{"g", "item", ""}}));
        args.push_back(server.url(path));
    }
    run_t r = tool(args);
    EXPECT_EQ(r.status, 1);
    size_t said = r.err.find("The reader is full (feeds)");
    EXPECT_NE(said, std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("The reader is full", said + 1), std::string::npos) << "once per update";
    EXPECT_EQ(dump(folder)["feeds"].size(), 100u);
}

TEST_F(tool_fixture, export_writes_the_list_and_import_reads_it_back) {
    test_site_t site;
    for (const char *p : {"/1.xml", "/2.xml"}) site.set(p, test_rss(p, {{p, "x", "Mon, 01 Jan 2024 10:00:00 GMT"}}));
    test_server_t server(site.handler());
    ASSERT_EQ(tool({"update", "-path", folder, server.url("/1.xml"), server.url("/2.xml")}).status, 0);
    std::string list = folder + "/list.txt";
    ASSERT_EQ(tool({"export", "-path", folder, list}).status, 0);
    std::string text = read_whole(list);
    EXPECT_NE(text.find(server.url("/1.xml") + "\n"), std::string::npos);
    EXPECT_NE(text.find(server.url("/2.xml") + "\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);

    std::string other = folder + "/other";
    run_t r = tool({"import", "-path", other, list});
    ASSERT_EQ(r.status, 0) << r.err;
    json_value_t d = dump(other);
    EXPECT_EQ(d["feeds"].size(), 2u);
    EXPECT_EQ(d["counters"]["generation"].n, 1);
    EXPECT_NE(tool({"import", "-path", other, folder + "/no-such-list.txt"}).status, 0);
}

TEST_F(tool_fixture, a_damaged_snapshot_is_named_and_nothing_is_touched) {
    fs::create_directories(folder);
    std::string bad = folder + "/feed_data_20990101_000000.bin";
    {
        std::ofstream f(bad, std::ios::binary);
        f << "feed\x01\x00\x00\x00 not really a reader file";
    }
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"update", "-path", folder}, {"dump", "-path", folder}, {"export", "-path", folder, folder + "/l.txt"}}) {
        run_t r = tool(args);
        EXPECT_NE(r.status, 0) << args[0];
        EXPECT_NE(r.err.find(bad), std::string::npos) << r.err;
    }
    EXPECT_EQ(snapshots(folder), std::vector<std::string>{"feed_data_20990101_000000.bin"});
    EXPECT_NE(tool({"dump", bad}).status, 0);
}

TEST_F(tool_fixture, parse_reads_a_local_document_under_its_address) {
    fs::create_directories(folder);
    std::string document = folder + "/doc.xml";
    {
        std::ofstream f(document, std::ios::binary);
        f << test_rss("Quote \" back \\ slash", {{"g1", "tab\there", "Mon, 01 Jan 2024 10:00:00 GMT"}});
    }
    run_t r = tool({"parse", "-path", folder, "--url", "http://example.org/feed", document});
    ASSERT_EQ(r.status, 0) << r.err;
    json_value_t d = dump(folder);
    ASSERT_EQ(d["feeds"].size(), 1u);
    EXPECT_EQ(d["feeds"][0]["url"].s, "http://example.org/feed");
    EXPECT_EQ(d["feeds"][0]["title"].s, "Quote \" back \\ slash");
    EXPECT_EQ(d["entries"][0]["title"].s, "tab\there");

    // Without --url the file's path is the address.
    ASSERT_EQ(tool({"parse", "-path", folder, document}).status, 0);
    d = dump(folder);
    EXPECT_EQ(d["feeds"].size(), 2u);
}

TEST_F(tool_fixture, html_gives_tokens_tree_and_the_tokenizer_report_as_json) {
    fs::create_directories(folder);
    std::string good = folder + "/good.html", bad = folder + "/bad.html";
    std::ofstream(good, std::ios::binary) << "<!DOCTYPE html><p class=\"x\">Hi &amp; bye<br></p>";
    std::ofstream(bad, std::ios::binary) << "<p>one \x01 two</p>";

    run_t r = tool({"html", good});
    ASSERT_EQ(r.status, 0) << r.err;
    bool ok = false;
    json_value_t d = json_parse(r.out, &ok);
    ASSERT_TRUE(ok) << r.out;
    EXPECT_EQ(d["error"]["code"].n, 0);
    ASSERT_EQ(d["tokens"].size(), 5u); // doctype, p, text, br, /p
    EXPECT_EQ(d["tokens"][2]["text"].s, "Hi & bye");
    EXPECT_EQ(d["tree"][0]["attributes"]["class"].s, "x");

    r = tool({"html", bad});
    d = json_parse(r.out, &ok);
    ASSERT_TRUE(ok) << r.out;
    EXPECT_NE(d["error"]["code"].n, 0);
    EXPECT_NE(d["log"].s.find("\x01"), std::string::npos); // the line quoted as it stands
    EXPECT_EQ(tool({"html", "--strict", bad}).status, 0);

    // Unclosed tags nest as deep as there are tags, and all of it prints.
    std::string deep = folder + "/deep.html", text;
    for (int i = 0; i < 500; i++) text += "<p>a";
    std::ofstream(deep, std::ios::binary) << text;
    r = tool({"html", deep});
    ASSERT_EQ(r.status, 0) << r.err;
    d = json_parse(r.out, &ok);
    ASSERT_TRUE(ok);
    int depth = 1;
    for (const json_value_t *n = &d["tree"][0]; (*n)["children"].size() == 2; n = &(*n)["children"][1]) depth++;
    EXPECT_EQ(depth, 500);
}

TEST_F(tool_fixture, bad_command_lines_print_the_usage) {
    for (const std::vector<std::string> &args : {std::vector<std::string>{}, {"frobnicate"}, {"update", "-path"},
                                                  {"export"}, {"dump", "--nope"}, {"decode", "utf-8"}}) {
        run_t r = tool(args);
        EXPECT_EQ(r.status, 2);
        EXPECT_NE(r.err.find("usage:"), std::string::npos);
    }
}

} // namespace
