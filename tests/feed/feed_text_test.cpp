// Field text (encodings, references, the code point list, the kept
// comparison) and the joints of categories and persons.
#include "feed_fixture.h"
#include "html/encoding.h"

using namespace feed_test;

namespace {

struct text_fixture_t : fixture_t {
    std::vector<u8> scratch_memory = std::vector<u8>(4096);
    data_t scratch = {scratch_memory.size(), 0, scratch_memory.data()};

    void set(const std::string &raw, data_t *field, u32 encoding = encoding_utf8) {
        data_t in = view(raw);
        feed_text_set(&reader, &in, field, &code_points, encoding, &scratch);
    }
    std::string convert(const std::string &raw, u32 encoding = encoding_utf8) {
        data_t field = {};
        set(raw, &field, encoding);
        return text(field);
    }
};

} // namespace

TEST(FeedText, ReferencesAndEncodings) {
    struct {
        u32 encoding;
        std::string raw, stored;
    } cases[] = {
        {encoding_utf8, "AT&T, x&, &;, &nosuchname; &EACUTE;", "AT&T, x&, &;, &nosuchname; &EACUTE;"},
        {encoding_utf8, "&#65;&#x41;&#X41;", "AA&#X41;"},
        {encoding_utf8, "&amp;&lt;p&gt; &amp;#65; &eacute;", "&<p> &#65; \xC3\xA9"},
        {encoding_utf8, "&acE;", "\xE2\x88\xBE"}, // one code point a reference
        {encoding_utf8, "&#0;&#xD800;&#x110000;&#-65;&#4294967361;", "&#0;&#xD800;&#x110000;&#-65;&#4294967361;"},
        {encoding_utf8, "&# 65;&#65abc;&#x41zz;", "AAA"}, // numbers are read as the number reader reads them
        {encoding_utf8, "a & b; Q&A &amp; more", "a & b; Q&A & more"},
        {encoding_utf8, "&quot;&apos;&ltx;&lt &amp", "\"'&ltx;&lt &amp"}, // names of XML, and near misses
        {encoding_utf8, "bad \xFF, cut \xE2\x82", "bad \xEF\xBF\xBD, cut \xEF\xBF\xBD\xEF\xBF\xBD"},
        {encoding_windows_1252, "\xE9 &eacute; \x80 \x86 \x81", "\xC3\xA9 \xC3\xA9 \xE2\x82\xAC \xE2\x80\xA0 \xC2\x81"},
        {encoding_shift_jis, "\x82\xA0&amp;", "\xE3\x81\x82&"},
        // The reference is read as bytes, so in UTF-16 it names nothing.
        {encoding_utf16le, std::string("A\0&\0a\0m\0p\0;\0", 12), "A&amp;"},
    };
    for (const auto &c : cases) {
        text_fixture_t f;
        EXPECT_EQ(f.convert(c.raw, c.encoding), c.stored) << c.raw;
    }
}

TEST(FeedText, NewCodePointsJoinTheListOnce) {
    text_fixture_t f;
    u32 start = f.code_points.count;
    f.convert("ASCII, \xC3\xA9, \xE2\x82\xAC and U+FFFD from \xFF are there from the start");
    EXPECT_EQ(f.code_points.count, start);
    f.convert("\xC4\x81\xC4\x81 &#x4E2D; \xC4\x81 &#x101;\xE4\xB8\xAD &#x0; &unknown;");
    ASSERT_EQ(f.code_points.count, start + 2);
    EXPECT_EQ(f.code_points.code_points[start], 0x101u);
    EXPECT_EQ(f.code_points.code_points[start + 1], 0x4E2Du);
}

// The comparison that keeps a field looks at the scratch bytes behind the
// new text, not at the new text: the same text is stored again, and a
// different one is kept out when the left-overs equal the old text.
TEST(FeedText, TheKeptComparisonReadsTheLeftOvers) {
    text_fixture_t f;
    data_t field = {};
    f.set("same", &field);
    u64 used = f.reader.text.used;
    f.set("same", &field);
    EXPECT_EQ(text(field), "same");
    EXPECT_EQ(f.reader.text.used, used + 4);

    data_t one = {};
    f.set("a", &one);
    memory_copy(f.scratch.bytes, "xa", 2);
    f.set("z", &one);
    EXPECT_EQ(text(one), "a");
    memory_copy(f.scratch.bytes, "xq", 2);
    f.set("z", &one);
    EXPECT_EQ(text(one), "z");
}

TEST(FeedText, TooLongForTheScratchIsCutAtAWholeCharacter) {
    text_fixture_t f;
    f.scratch.reserved = 5;
    u64 mark = log_mark();
    EXPECT_EQ(f.convert("ab\xC3\xA9\xC3\xA9 more"), "ab\xC3\xA9");
    EXPECT_EQ(log_since(mark), "A feed text was cut: it does not fit the conversion space.\n");
}

TEST(FeedJoints, CategoriesByTermAndKindPersonsByOwnerAlone) {
    text_fixture_t f;
    category_t sea = {};
    sea.term = data_literal("Sea");
    sea.scheme = data_literal("https://tags.example/");
    u32 a = 0, b = 0, feed_kind = 0;
    feed_link_category(&f.reader, encoding_utf8, &sea, link_kind_atom_entry_category, 7, &a, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &sea, link_kind_atom_entry_category, 7, &a, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &sea, link_kind_atom_entry_category, 8, &b, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &sea, link_kind_atom_feed_category, 7, &feed_kind, &f.scratch);
    EXPECT_EQ(std::vector<u32>({a, b, feed_kind}), std::vector<u32>({1, 1, 1}));
    EXPECT_EQ(f.reader.categories.entry_count, 1u);
    EXPECT_EQ(text(reader_get_category_by_id(&f.reader, 1)->scheme), "https://tags.example/");

    // Authors named again as contributors of the same owner stay one joint each.
    person_t ann = {}, bob = {};
    ann.name = data_literal("Ann");
    bob.name = data_literal("Bob");
    u32 authors = 0, contributors = 0, other = 0;
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_author, 4, &authors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &bob, link_kind_atom_entry_author, 4, &authors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &bob, link_kind_atom_entry_contributor, 4, &contributors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_contributor, 4, &contributors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_author, 5, &other, &f.scratch);
    EXPECT_EQ(std::vector<u32>({authors, contributors, other}), std::vector<u32>({2, 0, 1}));
    EXPECT_EQ(f.reader.persons.entry_count, 2u);
}
