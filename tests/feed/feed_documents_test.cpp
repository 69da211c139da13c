// Whole documents shaped like real feeds, read into a reader the way the
// feed query scan does it, and read again.
#include <gtest/gtest.h>

#include <string>

#include "feed_fixture.h"

using namespace feed_test;

namespace {

const char *rss2_document = R"(<?xml version="1.0" encoding="UTF-8"?>
<?xml-stylesheet type="text/xsl" href="/style.xsl"?>
<rss version="2.0" xmlns:content="http://purl.org/rss/1.0/modules/content/" xmlns:atom="http://www.w3.org/2005/Atom">
<channel>
  <title>Harbour Notes</title>
  <link>https://harbour.example/</link>
  <description>Notes from the harbour &amp; the sea</description>
  <language>en-gb</language>
  <copyright>&#169; 2024 Harbour</copyright>
  <managingEditor>ed@harbour.example (Ed)</managingEditor>
  <webMaster>web@harbour.example</webMaster>
  <pubDate>Tue, 02 Jan 2024 10:00:00 GMT</pubDate>
  <lastBuildDate>Tue, 02 Jan 2024 09:00:00 GMT</lastBuildDate>
  <category>Sea</category>
  <generator>Hand</generator>
  <docs>https://www.rssboard.org/rss-specification</docs>
  <cloud domain="rpc.example" port="80" path="/RPC2" registerProcedure="notify" protocol="xml-rpc" />
  <ttl>60</ttl>
  <image>
    <url>https://harbour.example/logo.png</url><title>Harbour</title><link>https://harbour.example/</link>
    <width>88</width><height>31</height><description>Logo</description>
  </image>
  <rating>(PICS-1.1)</rating>
  <textInput><title>Search</title><description>Search the notes</description><name>q</name><link>https://harbour.example/search</link></textInput>
  <skipHours><hour>0</hour><hour>23</hour><hour>24</hour></skipHours>
  <skipDays><day>Saturday</day><day>sunday</day></skipDays>
  <atom:link href="https://harbour.example/feed" rel="self" type="application/rss+xml" />
  <item>
    <title>Tide tables</title>
    <link>https://harbour.example/tides</link>
    <description>&lt;p&gt;The &lt;b&gt;spring&lt;/b&gt; tides&lt;/p&gt;</description>
    <content:encoded><![CDATA[<p>Longer text</p>]]></content:encoded>
    <pubDate>Mon, 01 Jan 2024 08:00:00 +0100</pubDate>
    <guid isPermaLink="false">tides-1</guid>
    <category>Sea</category>
    <category>Tides</category>
    <enclosure url="https://harbour.example/tides.mp3" length="12345" type="audio/mpeg" />
    <author>ed@harbour.example</author>
    <comments>https://harbour.example/tides#comments</comments>
    <source url="https://other.example/feed">Other</source>
  </item>
  <item>
    <title>Content first</title>
    <content:encoded><![CDATA[<p>From content</p>]]></content:encoded>
    <description>From description</description>
    <pubDate>Mon, 01 Jan 2024 09:00:00 GMT</pubDate>
    <guid>https://harbour.example/2</guid>
  </item>
  <item>
    <title><![CDATA[Only content & more]]></title>
    <content:encoded><![CDATA[<p>Only</p>]]></content:encoded>
    <pubDate>Mon, 01 Jan 2024 07:00:00 GMT</pubDate>
  </item>
</channel>
</rss>
)";

const char *rss091_document = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
                              "<!DOCTYPE rss PUBLIC \"-//Netscape Communications//DTD RSS 0.91//EN\" "
                              "\"http://my.netscape.com/publish/formats/rss-0.91.dtd\">\n"
                              "<rss version=\"0.91\">\n<channel>\n"
                              "<title>Vieux site</title>\n<link>http://old.example/</link>\n"
                              "<description>Nouvelles du caf\xE9</description>\n<language>fr</language>\n"
                              "<image><title>Old</title><url>http://old.example/i.gif</url>"
                              "<link>http://old.example/</link></image>\n"
                              "<item><title>Premi\xE8re</title><link>http://old.example/1</link>"
                              "<description>Une</description></item>\n"
                              "<item><title>Seconde</title><link>http://old.example/2</link></item>\n"
                              "</channel>\n</rss>\n";

const char *rss1_document = R"(<?xml version="1.0"?>
<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#" xmlns="http://purl.org/rss/1.0/"
  xmlns:dc="http://purl.org/dc/elements/1.1/">
  <channel rdf:about="http://meerkat.example/">
    <title>Meerkat</title>
    <link>http://meerkat.example/</link>
    <description>Open wire</description>
    <image rdf:resource="http://meerkat.example/logo.png" />
    <items>
      <rdf:Seq>
        <rdf:li resource="http://meerkat.example/1" />
        <rdf:li resource="http://meerkat.example/2" />
      </rdf:Seq>
    </items>
  </channel>
  <image rdf:about="http://meerkat.example/logo.png">
    <title>Meerkat Powered!</title>
    <url>http://meerkat.example/logo.png</url>
    <link>http://meerkat.example</link>
  </image>
  <item rdf:about="http://meerkat.example/1">
    <title>One</title>
    <link>http://meerkat.example/1</link>
    <dc:date>2024-01-01</dc:date>
  </item>
  <item rdf:about="http://meerkat.example/2">
    <title>Two</title>
    <link>http://meerkat.example/2</link>
    <description>Second</description>
  </item>
</rdf:RDF>
)";

const char *atom_document = R"(<?xml version="1.0" encoding="utf-8"?>
<feed xmlns="http://www.w3.org/2005/Atom" xml:lang="en">
  <title type="text">Driftwood</title>
  <subtitle>Things the tide left</subtitle>
  <link rel="alternate" type="text/html" hreflang="en" href="https://drift.example/" />
  <link rel="self" type="application/atom+xml" href="https://drift.example/feed.atom" />
  <id>tag:drift.example,2024:feed</id>
  <updated>2024-02-01T12:00:00Z</updated>
  <rights>&#169; Drift</rights>
  <generator uri="https://gen.example/" version="1.0">Gen</generator>
  <icon>https://drift.example/icon.png</icon>
  <logo>https://drift.example/logo.png</logo>
  <author><name>Mara</name><email>mara@drift.example</email><uri>https://drift.example/mara</uri></author>
  <contributor><name>Jon</name></contributor>
  <category term="beach" scheme="https://drift.example/tags" label="Beach" />
  <entry>
    <title>Glass floats</title>
    <link href="https://drift.example/floats" />
    <link rel="enclosure" type="image/jpeg" length="2048" href="https://drift.example/floats.jpg" title="Photo" />
    <link rel="edit" href="https://drift.example/edit/1" />
    <id>tag:drift.example,2024:1</id>
    <published>2024-01-10T08:00:00Z</published>
    <updated>2024-01-12T09:30:00+02:00</updated>
    <author><name>Ann</name></author>
    <contributor><name>Ann</name></contributor>
    <category term="glass" />
    <category term="beach" />
    <summary>Floats of &lt;i&gt;glass&lt;/i&gt;</summary>
    <content type="html"><![CDATA[<p>Green &amp; blue</p>]]></content>
    <source><id>x</id><title>Other</title></source>
  </entry>
  <entry>
    <title>Updated first</title>
    <id>tag:drift.example,2024:2</id>
    <updated>2024-01-20T00:00:00Z</updated>
    <published>2024-01-05T00:00:00Z</published>
    <content type="xhtml"><div xmlns="http://www.w3.org/1999/xhtml"><p>x</p></div></content>
  </entry>
  <entry>
    <title>Published only</title>
    <id>tag:drift.example,2024:3</id>
    <published>2024-01-15T00:00:00Z</published>
    <source>Plain source</source>
  </entry>
  <entry>
    <title>No date</title>
    <id>tag:drift.example,2024:4</id>
    <author><name>Nobody</name></author>
    <link href="https://drift.example/4" />
  </entry>
</feed>
)";

std::string replace(std::string s, const std::string &from, const std::string &to) {
    size_t at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) s.replace(at, from.size(), to);
    return s;
}

} // namespace

TEST(FeedDocuments, Rss2) {
    fixture_t f;
    f.reader.generation = 3;
    feed_t *feed = f.parse(rss2_document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed_get_type(feed), reader_type_rss);
    const feed_rss_t &rss = feed->rss;
    EXPECT_EQ(text(feed->url), "https://example.org/feed");
    EXPECT_EQ(text(rss.title), "Harbour Notes");
    EXPECT_EQ(text(rss.link), "https://harbour.example/");
    EXPECT_EQ(text(rss.description), "Notes from the harbour & the sea");
    EXPECT_EQ(text(rss.language), "en-gb");
    EXPECT_EQ(text(rss.copyright), "\xC2\xA9 2024 Harbour");
    EXPECT_EQ(text(rss.managing_editor), "ed@harbour.example (Ed)");
    EXPECT_EQ(text(rss.web_master), "web@harbour.example");
    EXPECT_EQ(date_to_number(rss.pub_date), date_to_number(make_date(2024, 1, 2, 10)));
    EXPECT_EQ(date_to_number(rss.last_build_date), date_to_number(make_date(2024, 1, 2, 9)));
    EXPECT_EQ(text(rss.generator), "Hand");
    EXPECT_EQ(text(rss.docs), "https://www.rssboard.org/rss-specification");
    EXPECT_EQ(text(rss.cloud_domain), "rpc.example");
    EXPECT_EQ(rss.cloud_port, 80u);
    EXPECT_EQ(text(rss.cloud_path), "/RPC2");
    EXPECT_EQ(text(rss.cloud_register_procedure), "notify");
    EXPECT_EQ(text(rss.cloud_protocol), "xml-rpc");
    EXPECT_EQ(rss.ttl, 60u);
    EXPECT_EQ(text(rss.image_url), "https://harbour.example/logo.png");
    EXPECT_EQ(text(rss.image_title), "Harbour");
    EXPECT_EQ(text(rss.image_link), "https://harbour.example/");
    EXPECT_EQ(text(rss.image_description), "Logo");
    EXPECT_EQ(rss.image_width, 88u);
    EXPECT_EQ(rss.image_height, 31u);
    EXPECT_EQ(text(rss.rating), "(PICS-1.1)");
    EXPECT_EQ(text(rss.text_input_title), "Search");
    EXPECT_EQ(text(rss.text_input_description), "Search the notes");
    EXPECT_EQ(text(rss.text_input_name), "q");
    EXPECT_EQ(text(rss.text_input_link), "https://harbour.example/search");
    for (u32 h = 0; h < 24; h++) EXPECT_EQ(rss.skip_hours[h], h == 0 || h == 23 ? 1u : 0u) << h;
    for (u32 d = 0; d < 7; d++) EXPECT_EQ(rss.skip_days[d], d == 5 ? 1u : 0u) << d;
    EXPECT_EQ(f.categories(link_kind_rss_feed_category, feed->id), std::vector<std::string>{"Sea"});
    EXPECT_EQ(rss.category_count, 1u);

    ASSERT_EQ(feed->entry_count, 3u);
    entry_t *tides = f.entry_titled(feed, "Tide tables");
    ASSERT_TRUE(tides);
    EXPECT_EQ(tides->generation, 3u);
    EXPECT_EQ(text(tides->rss.link), "https://harbour.example/tides");
    EXPECT_EQ(text(tides->rss.description), "<p>The <b>spring</b> tides</p>");
    EXPECT_EQ(date_to_number(tides->rss.pub_date), date_to_number(make_date(2024, 1, 1, 7)));
    EXPECT_EQ(text(tides->rss.guid), "tides-1");
    EXPECT_EQ(tides->rss.guid_is_perma_link, 0u);
    EXPECT_EQ(f.categories(link_kind_rss_entry_category, tides->id), (std::vector<std::string>{"Sea", "Tides"}));
    EXPECT_EQ(f.reader.categories.entry_count, 2u); // "Sea" is shared with the channel
    EXPECT_EQ(text(tides->rss.enclosure_url), "https://harbour.example/tides.mp3");
    EXPECT_EQ(tides->rss.enclosure_length, 12345u);
    EXPECT_EQ(text(tides->rss.enclosure_type), "audio/mpeg");
    EXPECT_EQ(text(tides->rss.author), "ed@harbour.example");
    EXPECT_EQ(text(tides->rss.comments), "https://harbour.example/tides#comments");
    EXPECT_EQ(text(tides->rss.source), "Other");
    EXPECT_EQ(text(tides->rss.source_url), "https://other.example/feed");

    entry_t *second = f.entry_titled(feed, "Content first");
    ASSERT_TRUE(second);
    EXPECT_EQ(text(second->rss.description), "From description");
    EXPECT_EQ(second->rss.guid_is_perma_link, 1u);
    entry_t *only = f.entry_titled(feed, "Only content & more");
    ASSERT_TRUE(only);
    EXPECT_EQ(text(only->rss.description), "<p>Only</p>");
    EXPECT_EQ(only->rss.guid.used, 0u);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, SecondParseOfTheSameDocumentAddsNothing) {
    fixture_t f;
    feed_t *feed = f.parse(rss2_document);
    ASSERT_TRUE(feed);
    std::vector<u32> ids;
    for (entry_t *e : f.entries(feed)) ids.push_back(e->id);
    u32 links = f.reader.links.entry_count, categories = f.reader.categories.entry_count;

    EXPECT_EQ(f.parse(rss2_document, feed), feed);
    std::vector<u32> again;
    for (entry_t *e : f.entries(feed)) again.push_back(e->id);
    EXPECT_EQ(again, ids);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_EQ(f.reader.links.entry_count, links);
    EXPECT_EQ(f.reader.categories.entry_count, categories);
    EXPECT_EQ(text(feed->rss.title), "Harbour Notes");
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, RepublishedItemReplacesItsTwin) {
    fixture_t f;
    f.reader.generation = 1;
    feed_t *feed = f.parse(rss2_document);
    ASSERT_TRUE(feed);
    entry_t *old = f.entry_titled(feed, "Tide tables");
    ASSERT_TRUE(old);
    u32 old_id = old->id;
    entry_mark_deleted(old);

    f.reader.generation = 2;
    std::string republished = replace(rss2_document, "Mon, 01 Jan 2024 08:00:00 +0100", "Wed, 03 Jan 2024 08:00:00 GMT");
    republished = replace(republished, "<title>Tide tables</title>", "<title>Tide tables, corrected</title>");
    EXPECT_EQ(f.parse(republished, feed), feed);

    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_EQ(f.entry_titled(feed, "Tide tables"), nullptr);
    entry_t *fresh = f.entry_titled(feed, "Tide tables, corrected");
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh->id, old_id);
    EXPECT_EQ(fresh->generation, 2u);
    EXPECT_FALSE(entry_is_deleted(fresh));
    EXPECT_EQ(f.categories(link_kind_rss_entry_category, old_id), std::vector<std::string>{});
    EXPECT_EQ(f.categories(link_kind_rss_entry_category, fresh->id), (std::vector<std::string>{"Sea", "Tides"}));
    // The other items are older than the stored date and stay as they were.
    EXPECT_EQ(f.entry_titled(feed, "Content first")->generation, 1u);
    EXPECT_EQ(date_to_number(feed->rss.last_build_date), date_to_number(make_date(2024, 1, 3, 8)));
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, ItemsWithoutDatesComeAgainAndReplaceByGuid) {
    fixture_t f;
    const char *document = "<rss><channel><title>t</title>"
                           "<item><title>kept by guid</title><guid>g1</guid></item>"
                           "<item><title>no guid</title></item></channel></rss>";
    feed_t *feed = f.parse(document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed->entry_count, 2u);
    EXPECT_TRUE(date_is_empty(&feed->rss.last_build_date));
    u32 guid_id = f.entry_titled(feed, "kept by guid")->id;
    f.parse(document, feed);
    EXPECT_EQ(feed->entry_count, 3u);
    EXPECT_NE(f.entry_titled(feed, "kept by guid")->id, guid_id);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, Rss091InLatin1) {
    fixture_t f;
    feed_t *feed = f.parse(rss091_document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(text(feed->rss.title), "Vieux site");
    EXPECT_EQ(text(feed->rss.description), "Nouvelles du caf\xC3\xA9");
    EXPECT_EQ(text(feed->rss.image_url), "http://old.example/i.gif");
    EXPECT_EQ(feed->entry_count, 2u);
    EXPECT_TRUE(f.entry_titled(feed, "Premi\xC3\xA8re"));
    EXPECT_TRUE(f.entry_titled(feed, "Seconde"));
}

TEST(FeedDocuments, Rss1WithItemsBesideTheChannel) {
    fixture_t f;
    feed_t *feed = f.parse(rss1_document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(text(feed->rss.title), "Meerkat");
    EXPECT_EQ(text(feed->rss.image_title), "Meerkat Powered!");
    EXPECT_EQ(text(feed->rss.image_url), "http://meerkat.example/logo.png");
    EXPECT_EQ(feed->entry_count, 2u);
    EXPECT_EQ(text(f.entry_titled(feed, "Two")->rss.description), "Second");
    EXPECT_EQ(text(f.entry_titled(feed, "One")->rss.link), "http://meerkat.example/1");
}

TEST(FeedDocuments, Atom) {
    fixture_t f;
    feed_t *feed = f.parse(atom_document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed_get_type(feed), reader_type_atom);
    const feed_atom_t &atom = feed->atom;
    EXPECT_EQ(text(atom.title), "Driftwood");
    EXPECT_EQ(text(atom.subtitle), "Things the tide left");
    EXPECT_EQ(text(atom.atom_id), "tag:drift.example,2024:feed");
    EXPECT_EQ(text(atom.rights), "\xC2\xA9 Drift");
    EXPECT_EQ(text(atom.generator), "Gen");
    EXPECT_EQ(text(atom.generator_uri), "https://gen.example/");
    EXPECT_EQ(text(atom.generator_version), "1.0");
    EXPECT_EQ(text(atom.icon), "https://drift.example/icon.png");
    EXPECT_EQ(text(atom.logo), "https://drift.example/logo.png");
    // The feed's own date is later than its entries and stays.
    EXPECT_EQ(date_to_number(atom.updated), date_to_number(make_date(2024, 2, 1, 12)));

    std::vector<atom_link_t *> links = f.atom_links(atom_link_owner_feed, feed->id);
    ASSERT_EQ(links.size(), 2u);
    EXPECT_EQ(atom.link_count, 2u);
    EXPECT_EQ(text(links[0]->href), "https://drift.example/");
    EXPECT_EQ(links[0]->rel, atom_link_rel_alternate);
    EXPECT_EQ(text(links[0]->hreflang), "en");
    EXPECT_EQ(text(links[0]->type), "text/html");
    EXPECT_EQ(links[1]->rel, atom_link_rel_self);

    EXPECT_EQ(f.persons(link_kind_atom_feed_author, feed->id), std::vector<std::string>{"Mara"});
    EXPECT_EQ(f.persons(link_kind_atom_feed_contributor, feed->id), std::vector<std::string>{"Jon"});
    person_t *mara = reader_get_person_by_id(&f.reader, 1);
    EXPECT_EQ(text(mara->email), "mara@drift.example");
    EXPECT_EQ(text(mara->uri), "https://drift.example/mara");
    EXPECT_EQ(f.categories(link_kind_atom_feed_category, feed->id), std::vector<std::string>{"beach"});
    category_t *beach = reader_get_category_by_id(&f.reader, 1);
    EXPECT_EQ(text(beach->scheme), "https://drift.example/tags");
    EXPECT_EQ(text(beach->label), "Beach");

    ASSERT_EQ(feed->entry_count, 3u); // the entry with no date is refused
    EXPECT_EQ(f.entry_titled(feed, "No date"), nullptr);

    entry_t *floats = f.entry_titled(feed, "Glass floats");
    ASSERT_TRUE(floats);
    EXPECT_EQ(date_to_number(floats->atom.published), date_to_number(make_date(2024, 1, 10, 8)));
    EXPECT_EQ(date_to_number(floats->atom.updated), date_to_number(make_date(2024, 1, 12, 9, 30)));
    EXPECT_EQ(text(floats->atom.summary), "Floats of <i>glass</i>");
    EXPECT_EQ(text(floats->atom.content), "<p>Green & blue</p>");
    EXPECT_EQ(floats->atom.source.used, 0u); // a source with children gives nothing
    std::vector<atom_link_t *> entry_links = f.atom_links(atom_link_owner_entry, floats->id);
    ASSERT_EQ(entry_links.size(), 3u);
    EXPECT_EQ(entry_links[0]->rel, atom_link_rel_alternate);
    EXPECT_EQ(entry_links[1]->rel, atom_link_rel_enclosure);
    EXPECT_EQ(entry_links[1]->length, 2048u);
    EXPECT_EQ(text(entry_links[1]->title), "Photo");
    EXPECT_EQ(entry_links[2]->rel, atom_link_rel_alternate); // "edit" is no known rel
    EXPECT_EQ(f.persons(link_kind_atom_entry_author, floats->id), std::vector<std::string>{"Ann"});
    EXPECT_EQ(f.persons(link_kind_atom_entry_contributor, floats->id), std::vector<std::string>{});
    EXPECT_EQ(f.categories(link_kind_atom_entry_category, floats->id), (std::vector<std::string>{"glass", "beach"}));

    entry_t *updated_first = f.entry_titled(feed, "Updated first");
    ASSERT_TRUE(updated_first);
    EXPECT_EQ(date_to_number(updated_first->atom.updated), date_to_number(make_date(2024, 1, 20)));
    EXPECT_EQ(date_to_number(updated_first->atom.published), date_to_number(make_date(2024, 1, 5)));
    EXPECT_EQ(updated_first->atom.content.used, 0u); // xhtml content has child elements, no text

    entry_t *published_only = f.entry_titled(feed, "Published only");
    ASSERT_TRUE(published_only);
    EXPECT_EQ(date_to_number(published_only->atom.updated), date_to_number(make_date(2024, 1, 15)));
    EXPECT_EQ(text(published_only->atom.source), "Plain source");

    // The refused entry left neither its person nor its link behind.
    EXPECT_EQ(f.reader.persons.entry_count, 3u);
    EXPECT_EQ(f.reader.atom_links.entry_count, 5u);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, AtomSecondParseRereadsTheLinks) {
    fixture_t f;
    feed_t *feed = f.parse(atom_document);
    ASSERT_TRUE(feed);
    u32 entries = feed->entry_count;
    u32 persons = f.reader.persons.entry_count;
    EXPECT_EQ(f.parse(atom_document, feed), feed);
    EXPECT_EQ(feed->entry_count, entries);
    EXPECT_EQ(feed->atom.link_count, 2u);
    EXPECT_EQ(f.atom_links(atom_link_owner_feed, feed->id).size(), 2u);
    EXPECT_EQ(f.reader.persons.entry_count, persons);
    EXPECT_EQ(f.persons(link_kind_atom_feed_author, feed->id), std::vector<std::string>{"Mara"});
    EXPECT_EQ(f.persons(link_kind_atom_feed_contributor, feed->id), std::vector<std::string>{"Jon"});
    EXPECT_EQ(feed->atom.contributor_count, 1u);
    EXPECT_EQ(feed->atom.category_count, 1u);
    EXPECT_TRUE(reader_audit_check(&f.reader));

    // A newer `updated` brings the entry back with a new id.
    entry_t *old = f.entry_titled(feed, "Published only");
    u32 old_id = old->id;
    std::string newer = replace(atom_document, "<published>2024-01-15T00:00:00Z</published>",
                                "<published>2024-01-15T00:00:00Z</published><updated>2024-03-01T00:00:00Z</updated>");
    f.parse(newer, feed);
    EXPECT_EQ(feed->entry_count, entries);
    entry_t *fresh = f.entry_titled(feed, "Published only");
    ASSERT_TRUE(fresh);
    EXPECT_NE(fresh->id, old_id);
    EXPECT_EQ(date_to_number(feed->atom.updated), date_to_number(make_date(2024, 3, 1)));
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, Windows1252) {
    fixture_t f;
    std::string document = "<?xml version=\"1.0\" encoding=\"windows-1252\"?><rss><channel>"
                           "<title>Caf\xE9 &eacute; \x80 \x86</title>"
                           "<item><title><![CDATA[\x93quoted\x94 &amp; \xE9]]></title></item></channel></rss>";
    u32 before = f.code_points.count;
    feed_t *feed = f.parse(document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(text(feed->rss.title), "Caf\xC3\xA9 \xC3\xA9 \xE2\x82\xAC \xE2\x80\xA0");
    EXPECT_TRUE(f.entry_titled(feed, "\xE2\x80\x9Cquoted\xE2\x80\x9D & \xC3\xA9"));
    // U+2020, U+201C and U+201D were new to the list; the others are in it from the start.
    EXPECT_EQ(f.code_points.count, before + 3);
    EXPECT_TRUE(f.code_point_known(0x2020));
}

TEST(FeedDocuments, UnknownOrMissingEncodingIsUtf8) {
    for (const char *declaration : {"", "<?xml version=\"1.0\"?>", "<?xml version=\"1.0\" encoding=\"klingon\"?>"}) {
        fixture_t f;
        std::string document = std::string(declaration) + "<rss><channel><title>caf\xC3\xA9</title></channel></rss>";
        feed_t *feed = f.parse(document);
        ASSERT_TRUE(feed);
        EXPECT_EQ(text(feed->rss.title), "caf\xC3\xA9") << declaration;
    }
}

TEST(FeedDocuments, APageThatIsNoFeedLeavesNoTrace) {
    const char *pages[] = {
        "<!DOCTYPE html><html><head><title>Not a feed</title></head><body><p>Hello</p></body></html>",
        "plain text, no tags",
        "",
        "<channels><feeds/></channels>",
        "<!-- <channel> -->",
        "<![CDATA[<feed>]]>",
    };
    for (const char *page : pages) {
        fixture_t f;
        u64 text_used = f.reader.text.used;
        u32 points = f.code_points.count;
        EXPECT_EQ(f.parse(page), nullptr) << page;
        EXPECT_EQ(f.reader.feeds.entry_count, 0u);
        EXPECT_EQ(f.reader.text.used, text_used);
        EXPECT_EQ(f.code_points.count, points);

        feed_t *stored = reader_new_feed(&f.reader, reader_type_rss);
        EXPECT_EQ(f.parse(page, stored), stored);
        EXPECT_EQ(f.reader.text.used, text_used);
    }
}

TEST(FeedDocuments, RefusedItemLeavesTheTextAreaAsItWas) {
    fixture_t f;
    feed_t *feed = f.parse("<rss><channel><item><title>new</title><pubDate>Wed, 10 Jan 2024 00:00:00 GMT</pubDate>"
                           "</item></channel></rss>");
    ASSERT_TRUE(feed);
    u64 text_used = f.reader.text.used;
    u32 categories = f.reader.categories.entry_count, last_category = f.reader.last_category_id;
    u32 links = f.reader.links.entry_count, entries = f.reader.entries.entry_count;
    u32 last_entry = f.reader.last_entry_id;

    // Title, categories and a description of 2 MB come before the date that
    // refuses the item: all of it goes again, also past the text area's
    // first megabyte.
    std::string big(2 << 20, 'x');
    std::string old = "<rss><channel><item><title>old</title><category>Fresh term</category><category>Other</category>"
                      "<description>" + big + "</description>"
                      "<pubDate>Tue, 09 Jan 2024 00:00:00 GMT</pubDate><guid>never</guid></item></channel></rss>";
    EXPECT_EQ(f.parse(old, feed), feed);
    EXPECT_EQ(f.reader.text.used, text_used);
    EXPECT_EQ(f.reader.categories.entry_count, categories);
    EXPECT_EQ(f.reader.last_category_id, last_category);
    EXPECT_EQ(f.reader.links.entry_count, links);
    EXPECT_EQ(f.reader.entries.entry_count, entries);
    EXPECT_EQ(f.reader.last_entry_id, last_entry);
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_EQ(date_to_number(feed->rss.last_build_date), date_to_number(make_date(2024, 1, 10)));

    // An equal date is refused too.
    f.parse("<rss><channel><item><title>same</title><pubDate>Wed, 10 Jan 2024 00:00:00 GMT</pubDate></item>"
            "</channel></rss>",
            feed);
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_EQ(f.reader.text.used, text_used);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, ADateThatReadsAsNoDateIsRefusedEvenInANewFeed) {
    fixture_t f;
    data_t zero = data_literal("00 Foo 0000 00:00:00 GMT");
    date_t parsed = date_parse_rfc822(&zero);
    ASSERT_TRUE(date_is_empty(&parsed));
    feed_t *feed = f.parse("<rss><channel><item><title>zero</title><pubDate>00 Foo 0000 00:00:00 GMT</pubDate>"
                           "</item><item><title>undated</title></item></channel></rss>");
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_TRUE(f.entry_titled(feed, "undated"));
    EXPECT_TRUE(date_is_empty(&feed->rss.last_build_date));
}

TEST(FeedDocuments, ChannelDateAheadOfItemsRaisesTheNextThreshold) {
    fixture_t f;
    const char *document = "<rss><channel><lastBuildDate>Fri, 01 Mar 2024 00:00:00 GMT</lastBuildDate>"
                           "<item><title>a</title><pubDate>Mon, 01 Jan 2024 00:00:00 GMT</pubDate></item>"
                           "</channel></rss>";
    feed_t *feed = f.parse(document);
    ASSERT_TRUE(feed);
    EXPECT_EQ(feed->entry_count, 1u); // the first run's threshold was zero
    f.parse("<rss><channel><item><title>b</title><pubDate>Fri, 01 Feb 2024 00:00:00 GMT</pubDate></item>"
            "</channel></rss>",
            feed);
    EXPECT_EQ(feed->entry_count, 1u);
}

TEST(FeedDocuments, AtomRefusedEntryRollsBackPersonsLinksAndCategories) {
    fixture_t f;
    feed_t *feed = f.parse("<feed><entry><title>a</title><updated>2024-01-10T00:00:00Z</updated></entry></feed>");
    ASSERT_TRUE(feed);
    u64 text_used = f.reader.text.used;
    u32 persons = f.reader.persons.entry_count, atom_links = f.reader.atom_links.entry_count;
    u32 categories = f.reader.categories.entry_count;
    f.parse("<feed><entry><title>old</title><author><name>New person</name></author>"
            "<link href=\"https://x.example/\"/><category term=\"t\"/>"
            "<updated>2024-01-09T00:00:00Z</updated></entry></feed>",
            feed);
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_EQ(f.reader.text.used, text_used);
    EXPECT_EQ(f.reader.persons.entry_count, persons);
    EXPECT_EQ(f.reader.atom_links.entry_count, atom_links);
    EXPECT_EQ(f.reader.categories.entry_count, categories);
    EXPECT_TRUE(reader_audit_check(&f.reader));
}

TEST(FeedDocuments, AChangedFormatLeavesTheStoredFeedAlone) {
    fixture_t f;
    feed_t *feed = f.parse(rss2_document);
    ASSERT_TRUE(feed);
    u64 text_used = f.reader.text.used;
    u32 entries = feed->entry_count;
    u64 main_mark = log_mark(log_main), user_mark = log_mark(log_user);

    EXPECT_EQ(f.parse(atom_document, feed), feed);
    EXPECT_EQ(feed_get_type(feed), reader_type_rss);
    EXPECT_EQ(feed->entry_count, entries);
    EXPECT_EQ(f.reader.text.used, text_used);
    EXPECT_EQ(text(feed->rss.title), "Harbour Notes");
    EXPECT_NE(log_since(log_main, main_mark).find("https://example.org/feed"), std::string::npos);
    std::string message = log_since(log_user, user_mark);
    EXPECT_NE(message.find("from RSS to Atom"), std::string::npos);
    EXPECT_NE(message.find("add the address again as a new feed"), std::string::npos);

    fixture_t g;
    feed_t *atom = g.parse(atom_document);
    EXPECT_EQ(g.parse(rss2_document, atom), atom);
    EXPECT_EQ(feed_get_type(atom), reader_type_atom);
    EXPECT_EQ(text(atom->atom.title), "Driftwood");
}

TEST(FeedDocuments, SeveralParsesInOneFrame) {
    fixture_t f;
    f.frame.used = 0x1000; // what the frame held before the scan
    feed_t *a = f.parse(rss2_document, nullptr, "https://a.example/");
    feed_t *b = f.parse(atom_document, nullptr, "https://b.example/");
    ASSERT_TRUE(a && b);
    EXPECT_NE(a, b);
    EXPECT_EQ(text(b->url), "https://b.example/");
    EXPECT_EQ(f.reader.feeds.entry_count, 2u);
}
