// List files of feeds: plain lists and OPML told apart by content, in the
// encodings and states other readers and editors leave them; the export in
// both forms read back; an import larger than the reader.
#include "net/engine_fixture.h"
#include "net/feed_list.h"
#include "net/test_server.h"

#include <cstring>
#include <fstream>

namespace {

std::string utf16(const std::string &ascii, bool big_endian, bool mark) {
    std::string out;
    if (mark) out += big_endian ? "\xFE\xFF" : "\xFF\xFE";
    for (char c : ascii) out += big_endian ? std::string{'\0', c} : std::string{c, '\0'};
    return out;
}

std::vector<std::string> read_list(std::string text, u32 *format = nullptr, u64 *found = nullptr, u64 capacity = 4) {
    data_t memory = data_virtual_alloc(0x200000, 0);
    data_t t = {text.size(), text.size(), (u8 *)text.data()};
    feed_list_t list = feed_list_read(&memory, &t, capacity);
    std::vector<std::string> out;
    for (u64 i = 0; i < list.count; i++) out.emplace_back((const char *)list.addresses[i].bytes, list.addresses[i].used);
    if (format) *format = list.format;
    if (found) *found = list.found;
    feed_list_free(&list);
    data_virtual_free(&memory);
    return out;
}

const std::string nested = R"(<?xml version="1.0"?>
<!DOCTYPE opml>
<!-- <outline xmlUrl="http://comment/"/> -->
<opml version="2.0"><head><title>Mine</title></head><body>
  <outline text="News"><outline text="A" type="rss"
      xmlUrl="http://a.example/feed?x=1&amp;y=2" />
    <outline text="Folder"><outline xmlURL='  http://b.example/&#x41;&#66;  '/></outline></outline>
  <outline text="no address"/><outline text="" xmlUrl=""/>
  <![CDATA[ <outline xmlUrl="http://cdata/"/> ]]>
  <outline text="&lt;c&gt;" xmlUrl="http://c.example/&unknown;"/>
</body></opml>)";

TEST(feed_list, reads_plain_lists_and_opml_in_any_encoding_and_state) {
    struct row_t {
        const char *what;
        std::string text;
        u32 format;
        std::vector<std::string> addresses;
    } rows[] = {
        {"empty", "", feed_list_plain, {}},
        {"plain with CRLF, blanks and trailing space", "\r\n  http://a/ \r\n\r\n\thttp://b/\n", feed_list_plain,
         {"http://a/ ", "http://b/"}},
        {"nested OPML with references, comment and CDATA", nested, feed_list_opml,
         {"http://a.example/feed?x=1&y=2", "http://b.example/AB", "http://c.example/&unknown;"}},
        {"UTF-8 mark", "\xEF\xBB\xBF<opml><body><outline xmlUrl=\"http://a/\"/></body></opml>", feed_list_opml,
         {"http://a/"}},
        {"UTF-16LE with mark", utf16("<opml><outline xmlUrl=\"http://a/\"/></opml>", false, true), feed_list_opml,
         {"http://a/"}},
        {"UTF-16BE without mark", utf16("<?xml version=\"1.0\"?><opml><outline xmlUrl=\"http://b/\"/></opml>", true,
                                        false),
         feed_list_opml, {"http://b/"}},
        {"declared Latin-1", "<?xml version=\"1.0\" encoding=\"iso-8859-1\"?><opml><outline xmlUrl=\"http://\xE9/\"/>",
         feed_list_opml, {"http://\xC3\xA9/"}},
        {"cut off in a tag", "<opml><body><outline xmlUrl=\"http://a/\"/><outline xmlUrl=\"http://b", feed_list_opml,
         {"http://a/"}},
        {"an HTML page", "<!DOCTYPE html><html><a href=\"x\">http://a/</a><outline xmlUrl=\"http://b/\"/></html>",
         feed_list_other, {}},
        {"a feed", "<?xml version=\"1.0\"?><rss><channel><link>http://a/</link></channel></rss>", feed_list_other, {}},
        {"binary", std::string("\x00\x01\x02<\xFF\xFE", 6), feed_list_plain, {std::string("\x00\x01\x02<\xFF\xFE", 6)}},
    };
    for (const auto &row : rows) {
        u32 format = 99;
        EXPECT_EQ(read_list(row.text, &format), row.addresses) << row.what;
        EXPECT_EQ(format, row.format) << row.what;
    }
    u64 found = 0;
    EXPECT_EQ(read_list("1\n2\n3\n4\n5\n6\n", nullptr, &found).size(), 4u); // the capacity given
    EXPECT_EQ(found, 6u);
}

TEST(feed_list, export_writes_opml_or_the_plain_list_by_the_name_and_reads_back) {
    test_reader_t r;
    auto add = [&](const char *url, const char *title, u32 type, bool deleted) {
        feed_t *f = reader_new_feed(&r.reader, type);
        data_t u = data_from_pointer(url, strlen(url)), t = data_from_pointer(title, strlen(title));
        f->url = reader_text_add(&r.reader, &u);
        (type == reader_type_rss ? f->rss.title : f->atom.title) = reader_text_add(&r.reader, &t);
        if (deleted) f->type_and_flags |= reader_deleted;
    };
    add("http://a/?x=1&y=2", "Tom & \"Jerry\" <news>\n", reader_type_rss, false);
    add("http://b/", "", reader_type_atom, true);

    std::string path = ::testing::TempDir() + "tidewrack_export.OPML";
    data_t p = view_of(path);
    u32 error = 0;
    feed_list_export(&r.reader, &p, &r.frame_memory, &error);
    ASSERT_EQ(error, 0u);
    EXPECT_EQ(r.frame_memory.used, 0u);
    std::ifstream f(path, std::ios::binary);
    std::string opml((std::istreambuf_iterator<char>(f)), {});
    EXPECT_NE(opml.find("<opml version=\"2.0\">"), std::string::npos);
    EXPECT_NE(opml.find("<outline text=\"Tom &amp; &quot;Jerry&quot; &lt;news&gt; \" title=\"Tom &amp; "
                        "&quot;Jerry&quot; &lt;news&gt; \" type=\"rss\" xmlUrl=\"http://a/?x=1&amp;y=2\"/>"),
              std::string::npos)
        << opml;
    EXPECT_NE(opml.find("<outline text=\"http://b/\" title=\"http://b/\" type=\"atom\" xmlUrl=\"http://b/\"/>"),
              std::string::npos);
    std::vector<std::string> both = {"http://a/?x=1&y=2", "http://b/"};
    EXPECT_EQ(read_list(opml), both);

    data_t plain = feed_list_export_text(&r.reader, false, &r.frame_memory);
    EXPECT_EQ(std::string((const char *)plain.bytes, plain.used), "http://a/?x=1&y=2\nhttp://b/\n");
}

TEST(feed_list, an_export_of_every_feed_with_long_addresses_reads_back_whole) {
    test_reader_t r;
    std::vector<std::string> urls;
    for (int i = 0; i < (int)reader_feed_capacity; i++) {
        urls.push_back("http://example.org/" + std::to_string(i) + "/" + std::string(2000, 'a' + i % 26));
        feed_t *f = reader_new_feed(&r.reader, reader_type_rss);
        data_t u = data_from_pointer(urls.back().data(), urls.back().size());
        f->url = reader_text_add(&r.reader, &u);
    }
    for (const char *name : {"tidewrack_long.txt", "tidewrack_long.opml"}) {
        clear_user_log();
        std::string path = ::testing::TempDir() + name;
        data_t p = view_of(path);
        u32 error = 0;
        EXPECT_EQ(feed_list_export(&r.reader, &p, &r.frame_memory, &error), urls.size());
        ASSERT_EQ(error, 0u);
        std::ifstream f(path, std::ios::binary);
        std::string text((std::istreambuf_iterator<char>(f)), {});
        EXPECT_EQ(read_list(text, nullptr, nullptr, 1000), urls) << name;
        EXPECT_EQ(user_log(), "Exported 100 feed addresses to " + path + ".");
    }
}

TEST(feed_list, an_import_beyond_the_capacity_adds_what_fits_and_says_so_once) {
    clear_user_log();
    test_server_t server([](const std::string &path) {
        test_response_t r;
        r.body = test_rss(path, {{path, "x", "Mon, 01 Jan 2024 10:00:00 GMT"}});
        return r;
    });
    // 10000 outlines of about 1 KB each: a 10 MB file, a hundred times the reader.
    std::string path = ::testing::TempDir() + "tidewrack_big.opml";
    {
        std::ofstream f(path, std::ios::binary);
        f << "<?xml version=\"1.0\"?><opml version=\"2.0\"><body>\n";
        std::string padding(1000, 'p');
        for (int i = 0; i < 10000; i++)
            f << "<outline text=\"" << padding << "\" xmlUrl=\"" << server.url("/f" + std::to_string(i))
              << "\"/>\n";
        f << "</body></opml>\n";
    }
    test_engine_t engine;
    engine.add(server.url("/f3")); // on its way already: one place fewer, and no second query
    data_t p = view_of(path);
    feed_query_add_list(&engine.context, &engine.r.reader, &p);
    EXPECT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 100u);
    engine.run();
    EXPECT_EQ(engine.feeds().size(), 100u);
    EXPECT_EQ(engine.context.failed_count, 0u);
    EXPECT_EQ(user_log(), "9900 addresses of the list were not added: the reader holds at most 100 feeds.");

    // A second import of the same file updates the known feeds and adds none.
    engine.new_run();
    clear_user_log();
    feed_query_add_list(&engine.context, &engine.r.reader, &p);
    engine.run();
    EXPECT_EQ(engine.feeds().size(), 100u);
    EXPECT_EQ(engine.context.parsed_count, 100u + 100u);
}

TEST(feed_list, markup_that_is_no_list_adds_nothing_and_opens_the_log) {
    clear_user_log();
    std::string path = ::testing::TempDir() + "tidewrack_page.txt";
    std::ofstream(path) << "<html><body>http://a/</body></html>";
    test_engine_t engine;
    data_t p = view_of(path);
    feed_query_add_list(&engine.context, &engine.r.reader, &p);
    EXPECT_EQ(feed_query_busy_count(engine.slots.data(), engine.slots.size()), 0u);
    EXPECT_EQ(engine.show_log_calls, 1);
    EXPECT_NE(user_log().find("neither an OPML file nor a list"), std::string::npos);
}

} // namespace
