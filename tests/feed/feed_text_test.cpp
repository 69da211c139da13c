// Field text (encodings, references, the code point list, the kept
// comparison) and the joints of categories and persons.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "feed_fixture.h"
#include "html/encoding.h"

using namespace feed_test;

namespace {

struct text_fixture_t : fixture_t {
    std::vector<u8> scratch_memory = std::vector<u8>(4096);
    data_t scratch = {scratch_memory.size(), 0, scratch_memory.data()};

    std::string convert(const std::string &raw, u32 encoding = encoding_utf8) {
        data_t field = {};
        data_t in = view(raw);
        feed_text_set(&reader, &in, &field, &code_points, encoding, &scratch);
        return text(field);
    }
};

} // namespace

TEST(FeedText, ReferencesAndEncodings) {
    struct {
        u32 encoding;
        const char *raw;
        const char *stored;
    } cases[] = {
        {encoding_utf8, "plain", "plain"},
        {encoding_utf8, "", ""},
        {encoding_utf8, "AT&T", "AT&T"},
        {encoding_utf8, "x&", "x&"},
        {encoding_utf8, "&;", "&;"},
        {encoding_utf8, "&nosuchname;", "&nosuchname;"},
        {encoding_utf8, "&#65;&#x41;", "AA"},
        {encoding_utf8, "&#X41;", "&#X41;"},
        {encoding_utf8, "&amp;&lt;p&gt;", "&<p>"},
        {encoding_utf8, "&amp;#65;", "&#65;"},
        {encoding_utf8, "&eacute;&Eacute;", "\xC3\xA9\xC3\x89"},
        {encoding_utf8, "&EACUTE;", "&EACUTE;"},
        {encoding_utf8, "&acE;", "\xE2\x88\xBE"}, // a reference gives one code point
        {encoding_utf8, "&#0;&#xD800;&#x110000;&#-65;", "&#0;&#xD800;&#x110000;&#-65;"},
        // Numbers are read the way the number reader reads them.
        {encoding_utf8, "&# 65;&#65abc;&#x41zz;", "AAA"},
        {encoding_utf8, "&#4294967361;", "&#4294967361;"},
        // The ";" is looked for to the end of the text, so a far one is used.
        {encoding_utf8, "a & b; c", "a & b; c"},
        {encoding_utf8, "Q&A &amp; more", "Q&A & more"},
        {encoding_utf8, "&&amp;", "&&"},
        {encoding_utf8, "caf\xC3\xA9", "caf\xC3\xA9"},
        {encoding_utf8, "bad \xFF byte", "bad \xEF\xBF\xBD byte"},
        {encoding_utf8, "cut \xE2\x82", "cut \xEF\xBF\xBD\xEF\xBF\xBD"},
        {encoding_windows_1252, "caf\xE9 &eacute; \x80 \x86", "caf\xC3\xA9 \xC3\xA9 \xE2\x82\xAC \xE2\x80\xA0"},
        {encoding_windows_1252, "\x81", "\xC2\x81"},
        {encoding_iso_8859_5, "\xB0", "\xD0\x90"},
        {encoding_shift_jis, "\x82\xA0", "\xE3\x81\x82"},
    };
    for (const auto &c : cases) {
        text_fixture_t f;
        EXPECT_EQ(f.convert(c.raw, c.encoding), c.stored) << c.raw;
    }
}

TEST(FeedText, Utf16AndReferences) {
    text_fixture_t f;
    std::string raw("A\0&\0a\0m\0p\0;\0B\0", 14);
    // The reference text is read as bytes, so in UTF-16 it names nothing.
    EXPECT_EQ(f.convert(raw, encoding_utf16le), "A&amp;B");
}

TEST(FeedText, NewCodePointsJoinTheListOnce) {
    text_fixture_t f;
    u32 start = f.code_points.count;
    f.convert("plain ASCII, \xC3\xA9 and \xEF\xBF\xBD are there from the start \xFF");
    EXPECT_EQ(f.code_points.count, start);

    f.convert("\xC4\x81\xC4\x81 &#x4E2D; \xC4\x81");
    EXPECT_EQ(f.code_points.count, start + 2);
    EXPECT_EQ(f.code_points.code_points[start], 0x101u);
    EXPECT_EQ(f.code_points.code_points[start + 1], 0x4E2Du);

    f.convert("&#x101;\xE4\xB8\xAD");
    EXPECT_EQ(f.code_points.count, start + 2);
    // An unknown reference adds nothing: its "&" is kept as it is.
    f.convert("&#x0; &unknown;");
    EXPECT_EQ(f.code_points.count, start + 2);
}

TEST(FeedText, AFieldIsStoredAgainUnlessTheLeftOversMatchIt) {
    text_fixture_t f;
    data_t field = {};
    data_t first = data_literal("same text");
    feed_text_set(&f.reader, &first, &field, &f.code_points, encoding_utf8, &f.scratch);
    u64 used = f.reader.text.used;
    const u8 *old_bytes = field.bytes;

    // The same text again is stored again: the comparison looks at the
    // scratch bytes behind the new text, not at the new text.
    feed_text_set(&f.reader, &first, &field, &f.code_points, encoding_utf8, &f.scratch);
    EXPECT_EQ(text(field), "same text");
    EXPECT_EQ(f.reader.text.used, used + 9);
    EXPECT_NE(field.bytes, old_bytes);

    // When the left-overs behind the new text equal the old text, the old
    // text stays, even though the new text differs.
    data_t a_field = {};
    data_t a = data_literal("a");
    feed_text_set(&f.reader, &a, &a_field, &f.code_points, encoding_utf8, &f.scratch);
    memory_copy(f.scratch.bytes, "xa", 2);
    used = f.reader.text.used;
    data_t z = data_literal("z");
    feed_text_set(&f.reader, &z, &a_field, &f.code_points, encoding_utf8, &f.scratch);
    EXPECT_EQ(text(a_field), "a");
    EXPECT_EQ(f.reader.text.used, used);
    // Any other left-over: replaced.
    memory_copy(f.scratch.bytes, "xq", 2);
    feed_text_set(&f.reader, &z, &a_field, &f.code_points, encoding_utf8, &f.scratch);
    EXPECT_EQ(text(a_field), "z");
}

TEST(FeedText, TooLongForTheScratchIsCut) {
    text_fixture_t f;
    std::vector<u8> small(5);
    data_t scratch = {small.size(), 0, small.data()};
    data_t field = {};
    data_t raw = data_literal("ab\xC3\xA9\xC3\xA9 more");
    u64 mark = log_mark(log_main);
    feed_text_set(&f.reader, &raw, &field, &f.code_points, encoding_utf8, &scratch);
    EXPECT_EQ(text(field), "ab\xC3\xA9"); // the second é does not fit whole
    EXPECT_EQ(log_since(log_main, mark), "A feed text was cut: it does not fit the conversion space.\n");
}

TEST(FeedText, NodeText) {
    struct {
        const char *input;
        const char *text;
    } cases[] = {
        {"<t>plain</t>", "plain"},
        {"<t><![CDATA[x &amp; <y>]]></t>", "x &amp; <y>"},
        {"<t><![CDATA[a]]><![CDATA[b]]></t>", ""},
        {"<t><![CDATA[a]]><b/></t>", ""},
        {"<t>before<![CDATA[a]]></t>", "a"}, // text beside children is never the element's
        {"<t><!-- c --></t>", ""},
        {"<t><b>x</b></t>", ""},
        {"<t></t>", ""},
    };
    for (const auto &c : cases) {
        std::vector<u8> memory(0x500000);
        data_t block = {memory.size(), 0, memory.data()};
        data_t in = data_from_pointer(c.input, string_length(c.input));
        xml_scan_t scan = xml_scan_tags(&block, &in);
        xml_tree_t tree = xml_build_tree(&block, &scan);
        EXPECT_EQ(text(node_text(xml_tree_node(&tree, 0))), c.text) << c.input;
    }
}

TEST(FeedJoints, CategoriesAreSharedByTermAndJoinedOnce) {
    text_fixture_t f;
    category_t raw = {};
    raw.term = data_literal("Sea");
    raw.scheme = data_literal("https://tags.example/");
    u32 count_a = 0, count_b = 0;
    feed_link_category(&f.reader, encoding_utf8, &raw, link_kind_atom_entry_category, 7, &count_a, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &raw, link_kind_atom_entry_category, 7, &count_a, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &raw, link_kind_atom_entry_category, 8, &count_b, &f.scratch);
    EXPECT_EQ(count_a, 1u);
    EXPECT_EQ(count_b, 1u);
    EXPECT_EQ(f.reader.categories.entry_count, 1u);
    EXPECT_EQ(f.reader.links.entry_count, 2u);
    category_t *stored = reader_get_category_by_id(&f.reader, 1);
    ASSERT_TRUE(stored);
    EXPECT_EQ(text(stored->scheme), "https://tags.example/");

    // The same owner number under another kind is another joint.
    u32 count_c = 0;
    feed_link_category(&f.reader, encoding_utf8, &raw, link_kind_atom_feed_category, 7, &count_c, &f.scratch);
    EXPECT_EQ(count_c, 1u);
    EXPECT_EQ(f.reader.links.entry_count, 3u);

    // A term with a reference never matches its own stored (decoded) form.
    category_t amp = {};
    amp.term = data_literal("Salt &amp; Pepper");
    u32 count_d = 0;
    feed_link_category(&f.reader, encoding_utf8, &amp, link_kind_rss_entry_category, 9, &count_d, &f.scratch);
    feed_link_category(&f.reader, encoding_utf8, &amp, link_kind_rss_entry_category, 9, &count_d, &f.scratch);
    EXPECT_EQ(f.reader.categories.entry_count, 3u);
    EXPECT_EQ(count_d, 2u);
}

TEST(FeedJoints, PersonsAreMatchedByOwnerWhateverTheKind) {
    text_fixture_t f;
    person_t ann = {};
    ann.name = data_literal("Ann");
    ann.email = data_literal("ann@example.org");
    person_t bob = {};
    bob.name = data_literal("Bob");
    u32 authors = 0, contributors = 0;
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_author, 4, &authors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &bob, link_kind_atom_entry_author, 4, &authors, &f.scratch);
    // Both authors named again as contributors stay one joint each.
    feed_link_person(&f.reader, encoding_utf8, &bob, link_kind_atom_entry_contributor, 4, &contributors, &f.scratch);
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_contributor, 4, &contributors, &f.scratch);
    EXPECT_EQ(authors, 2u);
    EXPECT_EQ(contributors, 0u);
    EXPECT_EQ(f.reader.persons.entry_count, 2u);
    EXPECT_EQ(text(reader_get_person_by_id(&f.reader, 1)->email), "ann@example.org");

    // Another owner gets its own joint to the shared person.
    u32 other = 0;
    feed_link_person(&f.reader, encoding_utf8, &ann, link_kind_atom_entry_author, 5, &other, &f.scratch);
    EXPECT_EQ(other, 1u);
    EXPECT_EQ(f.reader.persons.entry_count, 2u);
    EXPECT_EQ(f.reader.links.entry_count, 3u);
}
