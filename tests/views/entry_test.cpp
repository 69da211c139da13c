// Entry views on the headless window: the title and the line of date and
// people for RSS and Atom, which address the article link carries and how it
// reads, the enclosure's label and its picture.
#include "reading_fixture.h"

#include "base/dates.h"
#include "base/text.h"
#include "feed/feed.h"

namespace {

struct entry_test_t : reading_fixture_t {
    void SetUp() override {
        reading_fixture_t::SetUp();
        r.reader.link_configurations[0].queue_links = 0;
    }
    std::string date_text(date_t date) {
        u8 buffer[256];
        data_t out = {sizeof(buffer), 0, buffer};
        data_t separator = data_literal(" ");
        return text_of(date_to_string(date, &out, 0, &separator));
    }
    std::string header(feed_t *feed, entry_t *entry) {
        select(feed, entry);
        layout_t layout = frame();
        return joined(lines(&layout));
    }
    void contributor(entry_t *entry, const std::string &name) {
        reader_new_link(&r.reader, link_kind_atom_entry_contributor, entry->id, r.person(name)->id);
        entry->atom.contributor_count++;
    }
};

TEST_F(entry_test_t, rss_header_lines) {
    const date_t date = make_date(2024, 3, 5, 12, 30);
    const std::string d = date_text(date);
    struct row_t {
        const char *name;
        date_t date;
        const char *author, *guid, *link;
        u32 perma;
        std::string expected;
    } rows[] = {
        {"nothing but a perma-link", {}, "", "http://a/1", "", 1, "2:Title|2: - |2:Open article\n"},
        {"date and author", date, "Alice", "g", "http://a/1", 0, "2:Title\n0:" + d + "|0: - |0:Alice|0: - |0:Open article\n"},
        {"author alone", {}, "Alice", "", "", 1, "2:Title\n0:Alice\n"},
        {"date alone", date, "", "", "", 1, "2:Title\n0:" + d + "\n"},
        {"no guid: the link", {}, "", "", "http://a/1", 1, "2:Title|2: - |2:Open article\n"},
        {"a guid that is no address, no link", {}, "", "1559104147038", "", 1, "2:Title\n"},
    };
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    for (const row_t &row : rows) {
        entry_t *entry = r.rss_entry(feed, "Title", row.guid, row.date);
        entry->rss.author = r.add(row.author);
        entry->rss.link = r.add(row.link);
        entry->rss.guid_is_perma_link = row.perma;
        EXPECT_EQ(header(feed, entry), row.expected) << row.name;
    }
}

TEST_F(entry_test_t, atom_header_lines) {
    const date_t date = make_date(2024, 3, 5, 12, 30);
    const std::string d = date_text(date);
    struct row_t {
        const char *name;
        date_t date;
        std::vector<std::string> authors, contributors, links;
        std::string expected;
    } rows[] = {
        {"date and one contributor", date, {}, {"Bob"}, {}, "2:Title\n0:" + d + "|0: - |0:Contributor: |0:Bob\n"},
        {"date, author, two contributors", date, {"Ann"}, {"Bob", "Cy"}, {},
         "2:Title\n0:" + d + "|0: - |0:Ann|0: |0:Contributors: |0:Bob, Cy\n"},
        {"contributor alone", {}, {}, {"Bob"}, {}, "2:Title\n0:Contributor: |0:Bob\n"},
        {"two authors and a link", {}, {"Ann", "Bo"}, {}, {"http://a/2"}, "2:Title\n0:Ann, Bo|0: - |0:Open article\n"},
    };
    feed_t *feed = r.atom_feed("http://example.org/atom", "Feed");
    for (const row_t &row : rows) {
        entry_t *entry = r.atom_entry(feed, "Title \t\n", "id", row.date, row.authors, row.links);
        for (const std::string &name : row.contributors) contributor(entry, name);
        EXPECT_EQ(header(feed, entry), row.expected) << row.name;
        draw_entry_atom(&context, &r.reader, rect); // the drawing's own road to the same layout
    }
}

TEST_F(entry_test_t, the_link_carries_its_address_and_reads_as_the_configuration_says) {
    feed_t *feed = r.atom_feed("http://example.org/atom", "Feed");
    entry_t *entry = r.atom_entry(feed, "Title", "id", {}, {}, {"http://a/alternate"});
    atom_link_t *related = reader_new_atom_link(&r.reader, atom_link_owner_entry, entry->id);
    related->href = r.add("http://a/related");
    related->rel = atom_link_rel_related;
    entry->atom.link_count++;
    entry->atom.summary = r.add("<p>summary</p>");
    entry->atom.content = r.add("<p>content</p>");
    r.reader.link_configurations[0].queue_links = 1;
    select(feed, entry);
    layout_t layout = frame();
    EXPECT_EQ(joined(lines(&layout)), "2:Title|2: - |2:Queue article\n1:content\n"); // the whole article
    // A click queues the alternate link.
    click(centre(find_string(&layout, "Queue article")->string.segments[0].rect));
    EXPECT_EQ(text_of(r.reader.link_configurations[0].queued_links).find("http://a/alternate"), 0u);
    EXPECT_EQ(links_count(&r.reader.link_configurations[0]), 1u);
}

TEST_F(entry_test_t, the_enclosure_line_and_its_picture) {
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    meta_t *meta = reader_get_meta(&r.reader, feed->id);
    u8 buffer[32];
    data_t arena = {sizeof(buffer), 0, buffer}, size_text = {};
    data_size_to_text(&size_text, 1234567, &arena);
    const std::string size = text_of(size_text);
    struct row_t {
        const char *url;
        u32 flags;
        std::string expected;
    } rows[] = {
        {"http://x.org/media/song.mp3?id=3&b=/c", 0, "0:song.mp3|0: - |0:" + size + "\n"},
        {"song.mp3", 0, "0:song.mp3|0: - |0:" + size + "\n"},
        {"http://x.org/pic.jpg?w=1", meta_draw_enclosure_image, "0:pic.jpg|0: - |0:" + size + "\n"},
        {"http://x.org/pic.JPG", meta_draw_enclosure_image, "0:pic.JPG|0: - |0:" + size + "\n"},
        {"http://127.0.0.1:1/pic.png", meta_draw_enclosure_image | meta_hide_enclosure,
         "2:[img]|2:http://127.0.0.1:1/pic.png|2: Loading...|2:[/img]\n"}, // in the title's font still
        {"http://x.org/song.mp3", meta_hide_enclosure, ""},
    };
    for (const row_t &row : rows) {
        entry_t *entry = r.rss_entry(feed, "Title", "", {});
        entry->rss.enclosure_url = r.add(row.url);
        entry->rss.enclosure_length = 1234567;
        meta->flags = row.flags;
        EXPECT_EQ(header(feed, entry), "2:Title\n" + row.expected) << row.url;
    }
}

TEST_F(entry_test_t, a_blog_item_shows_its_whole_article_and_author_and_opens_its_link) {
    // As every WordPress feed writes it: content:encoded, dc:creator, no guid.
    const std::string document =
        "<rss xmlns:content=\"http://purl.org/rss/1.0/modules/content/\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\">"
        "<channel><title>Blog</title><item><title>Post</title><link>https://blog.example/post</link>"
        "<dc:creator><![CDATA[Ann]]></dc:creator><description>Short</description>"
        "<content:encoded><![CDATA[<p>Whole</p>]]></content:encoded></item></channel></rss>";
    data_t d = view_of(document), url = data_literal("https://blog.example/feed");
    feed_t *feed = feed_parse(&r.frame_memory, &r.reader, &d, &url, nullptr);
    ASSERT_TRUE(feed && feed->entry_count == 1);
    reader_new_meta(&r.reader, feed);
    entry_t *entry = reader_get_entry_by_id(&r.reader, feed->id, r.reader.last_entry_id);
    r.reader.link_configurations[0].queue_links = 1;
    select(feed, entry);
    layout_t layout = frame();
    EXPECT_EQ(joined(lines(&layout)), "2:Post\n0:Ann|0: - |0:Queue article\n1:Whole\n");
    click(centre(find_string(&layout, "Queue article")->string.segments[0].rect));
    EXPECT_EQ(text_of(r.reader.link_configurations[0].queued_links).find("https://blog.example/post"), 0u);
}

} // namespace
