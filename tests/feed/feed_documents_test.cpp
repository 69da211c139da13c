// Whole documents shaped like real feeds, read into a reader the way the
// feed query scan does it, and read again.
#include "feed_fixture.h"

using namespace feed_test;

namespace {

const std::string rss2 = read_document("rss2.xml"), rss1 = read_document("rss1.xml"), atom = read_document("atom.xml");

std::string replace(std::string s, const std::string &from, const std::string &to) {
    size_t at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

} // namespace

TEST(FeedDocuments, Rss2) {
    fixture_t f;
    f.reader.generation = 3;
    feed_t *feed = f.parse(rss2);
    ASSERT_TRUE(feed);
    const feed_rss_t &rss = feed->rss;
    EXPECT_EQ(text(feed->url), "https://a.example/");
    EXPECT_EQ(text(rss.title), "Harbour & Sea");
    EXPECT_EQ(rss.cloud_port, 80u);
    EXPECT_EQ(rss.image_width, 88u);
    EXPECT_EQ(rss.image_description.used, 0u); // image children take their own text: none beside a CDATA child
    for (u32 h = 0; h < 24; h++) EXPECT_EQ(rss.skip_hours[h], h == 0 || h == 23 ? 1u : 0u) << h;
    for (u32 d = 0; d < 7; d++) EXPECT_EQ(rss.skip_days[d], d == 5 ? 1u : 0u) << d;
    EXPECT_EQ(f.joined(link_kind_rss_feed_category, feed->id), std::vector<std::string>{"Sea"});
    // The channel's date is later than every item and stays the threshold.
    EXPECT_EQ(date_to_number(rss.last_build_date), when(2024, 1, 2, 9));

    ASSERT_EQ(feed->entry_count, 3u);
    entry_t *tides = f.entry_titled(feed, "Tide tables");
    ASSERT_TRUE(tides);
    EXPECT_EQ(tides->generation, 3u);
    EXPECT_EQ(text(tides->rss.description), "<p>Longer text</p>"); // content:encoded is the whole article
    EXPECT_EQ(date_to_number(tides->rss.pub_date), when(2024, 1, 1, 7));
    EXPECT_EQ(tides->rss.guid_is_perma_link, 0u);
    EXPECT_EQ(f.joined(link_kind_rss_entry_category, tides->id), (std::vector<std::string>{"Sea", "Tides"}));
    EXPECT_EQ(f.reader.categories.entry_count, 2u); // "Sea" is shared with the channel
    EXPECT_EQ(tides->rss.enclosure_length, 12345u);
    EXPECT_EQ(text(tides->rss.source) + " " + text(tides->rss.source_url), "Other https://other.example/feed");
    EXPECT_EQ(text(f.entry_titled(feed, "Content first")->rss.description), "<p>From content</p>");
    EXPECT_EQ(f.entry_titled(feed, "Content first")->rss.guid_is_perma_link, 1u);
    EXPECT_EQ(text(f.entry_titled(feed, "Only content & more")->rss.description), "<p>Only</p>");
    EXPECT_TRUE(reader_audit_check(&f.reader));

    // The same document again adds nothing.
    u32 links = f.reader.links.entry_count, id = tides->id;
    EXPECT_EQ(f.parse(rss2, feed), feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_EQ(f.reader.links.entry_count, links);
    EXPECT_EQ(f.entry_titled(feed, "Tide tables")->id, id);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, RepublishedItemReplacesItsTwin) {
    fixture_t f;
    f.reader.generation = 1;
    feed_t *feed = f.parse(rss2);
    ASSERT_TRUE(feed);
    entry_t *old = f.entry_titled(feed, "Tide tables");
    u32 old_id = old->id;
    entry_mark_deleted(old);

    f.reader.generation = 2;
    std::string again = replace(rss2, "Mon, 01 Jan 2024 08:00:00 +0100", "Wed, 03 Jan 2024 08:00:00 GMT");
    EXPECT_EQ(f.parse(replace(again, "Tide tables", "Tide tables, corrected"), feed), feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_FALSE(f.entry_titled(feed, "Tide tables"));
    entry_t *fresh = f.entry_titled(feed, "Tide tables, corrected");
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh->id, old_id);
    EXPECT_EQ(fresh->generation, 2u);
    EXPECT_FALSE(entry_is_deleted(fresh));
    EXPECT_TRUE(f.joined(link_kind_rss_entry_category, old_id).empty());
    EXPECT_EQ(f.entry_titled(feed, "Content first")->generation, 1u);
    EXPECT_EQ(date_to_number(feed->rss.last_build_date), when(2024, 1, 3, 8));
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, UndatedItemsComeAgainUnlessAGuidMatches) {
    fixture_t f;
    std::string document = read_document("rss091_latin1.xml");
    feed_t *feed = f.parse(document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(text(feed->rss.title), "Caf\xC3\xA9");
    EXPECT_EQ(feed->entry_count, 2u);
    EXPECT_TRUE(date_is_empty(&feed->rss.last_build_date));
    u32 guid_id = f.entry_titled(feed, "Premi\xC3\xA8re")->id;
    f.parse(document, feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_NE(f.entry_titled(feed, "Premi\xC3\xA8re")->id, guid_id);
}

TEST(FeedDocuments, Rss1ItemsBesideTheChannelDatedAndKnownByTheirAddress) {
    fixture_t f;
    feed_t *feed = f.parse(rss1);
    ASSERT_TRUE(feed);
    EXPECT_EQ(text(feed->rss.image_title), "Meerkat Powered!");
    EXPECT_EQ(date_to_number(feed->rss.pub_date), when(2024, 1, 2, 9));
    EXPECT_EQ(text(feed->rss.managing_editor), "Rael Dornfest");
    // Fetched three times, the items are there once, with their dates.
    for (int fetch = 0; fetch < 3; fetch++) EXPECT_EQ(f.parse(rss1, feed), feed);
    EXPECT_EQ(feed->entry_count, 2u);
    entry_t *one = f.entry_titled(feed, "One"), *two = f.entry_titled(feed, "Two");
    ASSERT_TRUE(one && two);
    EXPECT_EQ(date_to_number(one->rss.pub_date), when(2024, 1, 1));
    EXPECT_EQ(date_to_number(two->rss.pub_date), when(2024, 1, 2, 0, 30));
    EXPECT_EQ(text(one->rss.author), "Ann");
    EXPECT_EQ(text(two->rss.guid), "urn:m:2");
    EXPECT_EQ(text(*feed_rss_article_link(one)), "http://m.example/1");
    EXPECT_EQ(text(*feed_rss_article_link(two)), "http://m.example/two");
}

TEST(FeedDocuments, TheArticleLinkIsAWebAddress) {
    fixture_t f;
    struct {
        const char *item, *opened;
    } rss_rows[] = {
        {"<guid>https://a.example/p/1</guid><link>https://a.example/l</link>", "https://a.example/p/1"},
        {"<guid>HTTP://a.example/p/1</guid>", "HTTP://a.example/p/1"},
        {"<guid>1559104147038</guid><link>https://a.example/l</link>", "https://a.example/l"},
        {"<guid>tag:a.example,2024:1</guid><link>https://a.example/l</link>", "https://a.example/l"},
        {"<guid isPermaLink=\"false\">https://a.example/p/1</guid><link>https://a.example/l</link>",
         "https://a.example/l"},
        {"<link>https://a.example/l</link>", "https://a.example/l"}, // no guid
        {"<guid>1559104147038</guid>", ""},
    };
    for (const auto &row : rss_rows) {
        feed_t *feed = f.parse(std::string("<rss><channel><item>") + row.item + "</item></channel></rss>", nullptr,
                               row.item);
        ASSERT_TRUE(feed && feed->entry_count == 1) << row.item;
        entry_t *entry = f.entry_titled(feed, "");
        EXPECT_EQ(text(*feed_rss_article_link(entry)), row.opened) << row.item;
    }
    struct {
        const char *links, *opened;
    } atom_rows[] = {
        {"<link rel=\"replies\" href=\"https://a.example/c.atom\"/><link href=\"https://a.example/p\"/>",
         "https://a.example/p"},
        {"<link rel=\"related\" href=\"https://b.example/\"/><link rel=\"alternate\" href=\"https://a.example/p\"/>",
         "https://a.example/p"},
        {"<link rel=\"self\" href=\"https://a.example/e\"/><link rel=\"replies\" href=\"https://a.example/c\"/>", ""},
        {"<link rel=\"edit\" href=\"https://a.example/edit\"/>", ""},
    };
    for (const auto &row : atom_rows) {
        feed_t *feed = f.parse(std::string("<feed><entry><updated>2024-01-01T00:00:00Z</updated>") + row.links +
                                   "</entry></feed>",
                               nullptr, row.links);
        ASSERT_TRUE(feed && feed->entry_count == 1) << row.links;
        entry_t *entry = f.entry_titled(feed, "");
        data_t href = reader_get_atom_link(&f.reader, entry->id, entry->atom.link_count, atom_link_owner_entry,
                                           atom_link_rel_alternate);
        EXPECT_EQ(text(href), row.opened) << row.links;
    }
}

TEST(FeedDocuments, Atom) {
    fixture_t f;
    feed_t *feed = f.parse(atom);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed_get_type(feed), reader_type_atom);
    const feed_atom_t &a = feed->atom;
    EXPECT_EQ(text(a.generator) + " " + text(a.generator_uri) + " " + text(a.generator_version),
              "Gen https://gen.example/ 1.0");
    EXPECT_EQ(date_to_number(feed->atom.updated), when(2024, 2, 1, 12));
    std::vector<atom_link_t *> links = f.atom_links(atom_link_owner_feed, feed->id);
    ASSERT_EQ(links.size(), 2u);
    EXPECT_EQ(text(links[0]->hreflang), "en");
    EXPECT_EQ(links[1]->rel, atom_link_rel_self);
    EXPECT_EQ(f.joined(link_kind_atom_feed_author, feed->id), std::vector<std::string>{"Mara"});
    EXPECT_EQ(text(reader_get_person_by_id(&f.reader, 1)->email), "mara@d.example");
    EXPECT_EQ(f.joined(link_kind_atom_feed_contributor, feed->id), std::vector<std::string>{"Jon"});
    EXPECT_EQ(text(reader_get_category_by_id(&f.reader, 1)->label), "Beach");

    ASSERT_EQ(feed->entry_count, 3u); // the entry with no date is refused, even in a new feed
    entry_t *floats = f.entry_titled(feed, "Glass floats");
    EXPECT_EQ(date_to_number(floats->atom.updated), when(2024, 1, 12, 7, 30)); // +02:00 taken off
    EXPECT_EQ(text(floats->atom.content), "<p>Green & blue</p>");
    EXPECT_EQ(floats->atom.source.used, 0u); // a source with children gives nothing
    std::vector<atom_link_t *> entry_links = f.atom_links(atom_link_owner_entry, floats->id);
    ASSERT_EQ(entry_links.size(), 3u);
    EXPECT_EQ(entry_links[1]->rel, atom_link_rel_enclosure);
    EXPECT_EQ(entry_links[1]->length, 2048u);
    EXPECT_EQ(entry_links[2]->rel, atom_link_rel_other); // "edit" is no alternate
    EXPECT_EQ(f.joined(link_kind_atom_entry_author, floats->id), std::vector<std::string>{"Ann"});
    EXPECT_TRUE(f.joined(link_kind_atom_entry_contributor, floats->id).empty());
    EXPECT_EQ(f.joined(link_kind_atom_entry_category, floats->id), (std::vector<std::string>{"glass", "beach"}));
    entry_t *updated_first = f.entry_titled(feed, "Updated first");
    EXPECT_EQ(date_to_number(updated_first->atom.updated), when(2024, 1, 20));
    EXPECT_EQ(updated_first->atom.content.used, 0u); // xhtml has child elements, no text
    EXPECT_EQ(date_to_number(f.entry_titled(feed, "Published only")->atom.updated), when(2024, 1, 15));
    EXPECT_EQ(f.reader.persons.entry_count, 3u); // "Nobody" went with the refused entry
    EXPECT_TRUE(reader_audit_check(&f.reader));

    // Read again: nothing new, the feed's links and joints read anew, not doubled.
    u32 entry_id = f.entry_titled(feed, "Published only")->id;
    EXPECT_EQ(f.parse(atom, feed), feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_EQ(f.atom_links(atom_link_owner_feed, feed->id).size(), 2u);
    EXPECT_EQ(feed->atom.contributor_count, 1u);
    EXPECT_TRUE(reader_audit_check(&f.reader));

    // A later `updated` brings an entry back with a new id.
    f.parse(replace(atom, "<published>2024-01-15T00:00:00Z</published>",
                    "<published>2024-01-15T00:00:00Z</published><updated>2024-03-01T00:00:00Z</updated>"),
            feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_NE(f.entry_titled(feed, "Published only")->id, entry_id);
    EXPECT_EQ(date_to_number(feed->atom.updated), when(2024, 3, 1));
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, EncodingFromTheDeclaration) {
    const std::string cp1252 = "<?xml version=\"1.0\" encoding=\"windows-1252\"?>";
    struct {
        std::string declaration, title, stored;
    } cases[] = {
        {"", "caf\xC3\xA9", "caf\xC3\xA9"},
        {"<?xml version=\"1.0\" encoding=\"klingon\"?>", "caf\xC3\xA9", "caf\xC3\xA9"},
        {cp1252, "Caf\xE9 &eacute; \x86", "Caf\xC3\xA9 \xC3\xA9 \xE2\x80\xA0"},
        {cp1252, "<![CDATA[\x93q\x94 &amp;]]>", "\xE2\x80\x9Cq\xE2\x80\x9D &"},
    };
    for (const auto &c : cases) {
        fixture_t f;
        u32 points = f.code_points.count;
        feed_t *feed = f.parse(c.declaration + "<rss><channel><title>" + c.title + "</title></channel></rss>");
        ASSERT_TRUE(feed);
        EXPECT_EQ(text(feed->rss.title), c.stored) << c.title;
        if (c.stored.find("\xE2\x80\xA0") != std::string::npos) EXPECT_EQ(f.code_points.count, points + 1);
    }
}

TEST(FeedDocuments, NoFeedLeavesNoTrace) {
    for (const char *page : {"<!DOCTYPE html><html><head><title>Not a feed</title></head><body>Hi</body></html>",
                             "", "plain text", "<channels/>", "<!-- <channel> -->", "<![CDATA[<feed>]]>"}) {
        fixture_t f;
        u64 used = f.reader.text.used;
        EXPECT_EQ(f.parse(page), nullptr) << page;
        feed_t *stored = reader_new_feed(&f.reader, reader_type_rss);
        EXPECT_EQ(f.parse(page, stored), stored);
        EXPECT_EQ(f.reader.feeds.entry_count, 1u);
        EXPECT_EQ(f.reader.text.used, used);
        EXPECT_EQ(f.code_points.count, code_point_list_start_count);
    }
}

TEST(FeedDocuments, RefusedItemsLeaveTheReaderAsItWas) {
    fixture_t f;
    feed_t *rss = f.parse("<rss><channel><item><pubDate>Wed, 10 Jan 2024 00:00:00 GMT</pubDate></item></channel></rss>");
    feed_t *atom_feed = f.parse("<feed><entry><updated>2024-01-10T00:00:00Z</updated></entry></feed>", nullptr, "b");
    ASSERT_TRUE(rss && atom_feed);
    reader_t before = f.reader;

    // Everything before the refusing date goes again, also past the text
    // area's first megabyte; an equal date is refused too.
    std::string big(2 << 20, 'x');
    f.parse("<rss><channel><item><category>Fresh</category><description>" + big + "</description>"
            "<pubDate>Tue, 09 Jan 2024 00:00:00 GMT</pubDate><guid>g</guid></item>"
            "<item><title>same</title><pubDate>Wed, 10 Jan 2024 00:00:00 GMT</pubDate></item></channel></rss>",
            rss);
    f.parse("<feed><entry><author><name>New</name></author><link href=\"l\"/><category term=\"t\"/><content>" + big +
                "</content><updated>2024-01-09T00:00:00Z</updated></entry></feed>",
            atom_feed);
    EXPECT_EQ(f.reader.text.used, before.text.used);
    EXPECT_EQ(f.reader.last_category_id, before.last_category_id);
    EXPECT_EQ(f.reader.last_person_id, before.last_person_id);
    EXPECT_EQ(f.reader.last_entry_id, before.last_entry_id);
    for (pool_t reader_t::*pool : {&reader_t::entries, &reader_t::categories, &reader_t::persons, &reader_t::links,
                                   &reader_t::atom_links})
        EXPECT_EQ((f.reader.*pool).entry_count, (before.*pool).entry_count);
    EXPECT_TRUE(reader_audit_check(&f.reader));

    // A date that reads as no date is no date: the item is kept, undated.
    feed_t *fresh = f.parse("<rss><channel><item><pubDate>00 Foo 0000 00:00:00 GMT</pubDate></item></channel></rss>",
                            nullptr, "c");
    ASSERT_EQ(fresh->entry_count, 1u);
}

TEST(FeedDocuments, AFullReaderRefusesWhatDoesNotFitAndKeepsTheRest) {
    const std::string rss_item = "<rss><channel><title>R</title><item><title>new</title><guid>n</guid>"
                                 "<category>c</category></item></channel></rss>";
    const std::string atom_entry = "<feed><title>A</title><entry><title>new</title><id>n</id><author><name>P</name>"
                                   "</author><link href=\"h\"/><updated>2024-01-02T00:00:00Z</updated></entry></feed>";
    struct {
        pool_t reader_t::*pool; // taken to its last slot; null: the text area is full
        u32 bit;
        const std::string *document;
    } rows[] = {
        {&reader_t::entries, reader_full_entries, &rss_item},   {&reader_t::categories, reader_full_categories, &rss_item},
        {&reader_t::links, reader_full_links, &rss_item},       {&reader_t::persons, reader_full_persons, &atom_entry},
        {&reader_t::atom_links, reader_full_atom_links, &atom_entry}, {nullptr, reader_full_text, &rss_item},
        {nullptr, reader_full_text, &atom_entry},
    };
    for (const auto &row : rows) {
        fixture_t f;
        feed_t *feed = f.parse(*row.document);
        ASSERT_TRUE(feed);
        u32 entries = feed->entry_count, last_entry_id = f.reader.last_entry_id;
        ASSERT_EQ(entries, 1u);
        if (row.pool) {
            pool_t *pool = &(f.reader.*row.pool);
            while (pool_take(pool, 0)) {
            }
        } else {
            f.reader.text_block.reserved = f.reader.text_block.used; // nothing more can be committed
            f.reader.text.used = f.reader.text.reserved;
        }
        u64 text_used = f.reader.text.used;
        std::string again = *row.document;
        for (auto [from, to] : {std::pair{">n<", ">m<"}, {">c<", ">d<"}, {">P<", ">Q<"}}) // new entry, category, person
            if (again.find(from) != std::string::npos) again.replace(again.find(from), 3, to);
        f.reader.full = 0;
        EXPECT_EQ(f.parse(again, feed), feed);
        EXPECT_EQ(f.reader.full & row.bit, row.bit) << row.bit;
        EXPECT_EQ(feed->entry_count, entries) << row.bit;
        EXPECT_EQ(f.reader.last_entry_id, last_entry_id) << row.bit;
        if (!row.pool) EXPECT_EQ(f.reader.text.used, text_used);
    }

    // No room for another feed: a new address makes nothing.
    fixture_t f;
    while (pool_take(&f.reader.feeds, 0)) {
    }
    EXPECT_EQ(f.parse(rss_item), nullptr);
    EXPECT_EQ(f.reader.full, (u32)reader_full_feeds);
    EXPECT_EQ(f.reader.text.used, 0u);
}

TEST(FeedDocuments, ADocumentCutShortLeavesTheFeedAsItWas) {
    const std::string rss = "<?xml version=\"1.0\"?><rss><channel><title>T</title><item><title>one</title>"
                            "<guid>1</guid></item><item><title>two</title><guid>2</guid></item></channel></rss>";
    const std::string atom = "<feed><title>T</title><entry><title>one</title><id>1</id>"
                             "<updated>2024-01-01T00:00:00Z</updated></entry></feed>";
    for (const std::string *document : {&rss, &atom}) {
        fixture_t f;
        std::string cut = document->substr(0, document->find("<title>one") + 9); // inside the first item
        u64 mark = log_mark();
        EXPECT_EQ(f.parse(cut), nullptr) << "a new feed is not made from a part";
        EXPECT_NE(log_since(mark).find("ends before its root element closes"), std::string::npos);
        feed_t *feed = f.parse(*document);
        ASSERT_TRUE(feed);
        u32 entries = feed->entry_count;
        u64 text_used = f.reader.text.used;
        for (int i = 0; i < 2; i++) EXPECT_EQ(f.parse(cut, feed), feed);
        EXPECT_EQ(text(feed_get_title(feed)), "T");
        EXPECT_EQ(feed->entry_count, entries);
        EXPECT_EQ(f.reader.text.used, text_used);
    }
}

TEST(FeedDocuments, AChangedFormatLeavesTheStoredFeedAlone) {
    fixture_t f;
    feed_t *feed = f.parse(rss2);
    ASSERT_TRUE(feed);
    u64 used = f.reader.text.used, user = log_mark(log_user);
    EXPECT_EQ(f.parse(atom, feed), feed);
    EXPECT_EQ(feed_get_type(feed), reader_type_rss);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_EQ(f.reader.text.used, used);
    std::string message = log_since(user, log_user);
    EXPECT_NE(message.find("https://a.example/ changed its format from RSS to Atom"), std::string::npos) << message;
    EXPECT_NE(message.find("add the address again as a new feed"), std::string::npos);

    feed_t *atom_feed = f.parse(atom, nullptr, "b");
    EXPECT_EQ(f.parse(rss2, atom_feed), atom_feed);
    EXPECT_EQ(feed_get_type(atom_feed), reader_type_atom);
}

TEST(FeedDocuments, MoreTagsThanTheFrameHoldsAreReadUpToThere) {
    fixture_t f;
    f.frame.reserved = 0x600000; // 4 MB for the tree, 1 MB for text, under 1 MB for tags
    std::string document = "<rss><channel><item><title>first</title></item>";
    for (int i = 0; i < 20000; i++) document += "<item><title>more</title></item>";
    feed_t *feed = f.parse(document + "</channel></rss>");
    ASSERT_TRUE(feed);
    EXPECT_TRUE(f.entry_titled(feed, "first"));
    EXPECT_GT(feed->entry_count, 1000u);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}
