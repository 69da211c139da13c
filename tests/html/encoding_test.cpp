// Labels, the decoder frame, and every decoder checked against the
// published index files it was generated from.
#include <gtest/gtest.h>

#include "html/generated/html_tables.h"
#include "html_test_util.h"

using namespace html_test;

static u32 lookup(const std::string &label) { return encoding_label_lookup((const u8 *)label.data(), label.size()); }

TEST(HtmlEncodingLabels, LookupByTable) {
    struct {
        const char *label;
        u32 id;
    } cases[] = {
        {" UTF-8\t", 1}, {"Utf8", 1}, {"unicode-1-1-utf-8", 0}, {"", 0}, {" \t\n", 0}, {"utf-8 x", 0},
        {"\x0butf-8", 0}, {"utf-8\x0b", 0}, {"latin1", 22}, {"US-ASCII", 22}, {"utf-16", 39}, {"utf-16be", 38},
        {"cyrillic", 6}, {"arabic", 0}, {"hz-gb-2312", 37}, {"replacement", 37}, {"gbk", 30}, {"gb18030", 31},
        {"big5-hkscs", 32}, {"shift_jis", 35}, {"euc-kr", 36}, {"x-user-defined", 40}, {"iso-8859-8-i", 10},
        {"visual", 9}, {"koi8-ru", 17}, {"x-mac-ukrainian", 29}, {"l9", 14},
    };
    for (auto &c : cases) EXPECT_EQ(lookup(c.label), c.id) << "'" << c.label << "'";
    EXPECT_EQ(lookup(std::string(200, 'a')), 0u);
    // A byte of 127 or more ends the copy: the label before it is looked up.
    EXPECT_EQ(lookup("utf-8\x80junk"), 1u);
    EXPECT_EQ(lookup(std::string(127, ' ') + "ascii"), 22u);
}

TEST(HtmlEncodingLabels, EveryRowAfterTheFirstFindsItsEncoding) {
    EXPECT_EQ(encoding_label_table_size, 213u);
    for (u32 row = 1; row < encoding_label_table_size; row++) {
        u32 id = lookup(encoding_labels[row]);
        u32 expected = encoding_label_ids[row] == 7 ? 6 : encoding_label_ids[row];
        EXPECT_EQ(id, expected) << encoding_labels[row];
    }
}

TEST(HtmlEncodingFrame, ShortCases) {
    struct {
        u32 encoding;
        std::string bytes;
        std::vector<u32> expected;
    } cases[] = {
        {1, "\xE2\x82", {0xFFFD, 0xFFFD}}, {1, "a\xC0\x80", {'a', 0xFFFD, 0xFFFD}},
        {1, "\xED\xA0\x80z", {0xFFFD, 0xFFFD, 0xFFFD, 'z'}}, {1, "\xF0\x9F\x98\x80", {0x1F600}},
        {37, "abc", {0xFFFD, 0xFFFD, 0xFFFD}}, {40, "a\x80\xFF", {'a', 0xF780, 0xF7FF}},
        {38, std::string("\x00" "A\xD8\x3D\xDE\x00", 6), {'A', 0x1F600}},
        {39, std::string("A\x00\x3D\xD8\x00\xDE", 6), {'A', 0x1F600}},
        {39, std::string("\x00\xDC" "A\x00", 4), {0xFFFD, 'A'}},
        {39, std::string("A\x00" "B", 3), {'A'}}, // a lone last byte ends the input
        {32, "\x81\x20", {0xFFFD, ' '}},
        {32, "\x88\x62\x88\x64\x88\xA3\x88\xA5", {0xCA, 0x304, 0xCA, 0x30C, 0xEA, 0x304, 0xEA, 0x30C}},
        {32, "\x80", {0xFFFD}}, {32, "\xA4", {0xFFFD}}, {31, "\x80", {0x20AC}}, {31, "\x81\x30\x81\x30", {0x80}},
        {31, "\xFE\x39\xFE\x39", {0xFFFD}}, {31, "\x84\x31\xA4\x39", {0xFFFF}}, {31, "\x90\x30\x81\x30", {0x10000}},
        {31, "\xE3\x32\x9A\x35", {0x10FFFF}}, {31, "\x81\x30\x81", {0xFFFD}},
        {31, "\x81\x30\x20\x30", {0xFFFD, '0', ' ', '0'}}, {31, "\xFF", {0xFFFD}}, {33, "\x8E\xA1", {0xFF61}},
        {33, "\x8E\x41", {0xFFFD, 'A'}}, {33, "\x8F\xB0\x41", {0xFFFD, 'A'}}, {35, "\xB1", {0xFF71}},
        {35, "\xF0\x40", {0xE000}}, {35, "\x80", {0x80}}, {35, "\x81\x20", {0xFFFD, ' '}}, {35, "\xA0", {0xFFFD}},
        {36, "\x81\x20", {0xFFFD, ' '}}, {34, "\x1B\x28\x42\x61\x1B\x28\x42", {'a'}},
        {34, "\x1B\x28\x4A\x5C\x1B\x28\x42", {0xA5}}, {34, "\x1B\x28\x42\x1B\x28\x42" "a", {0xFFFD, 'a'}},
        {34, "\x1B\x28\x5A", {0xFFFD, 0x28, 0x5A}}, {34, "\x1B\x5A", {0xFFFD, 0x5A}},
        {34, "\x1B\x28\x49\x21", {0xFF61}}, {34, "\x1B\x24\x42\x30", {0xFFFD}},
        {34, "\x1B\x24\x42\x30\x1B\x28\x42x", {0xFFFD, 'x'}}, {34, "\x0E", {0xFFFD}}, {34, "\x1B", {0xFFFD}},
    };
    for (auto &c : cases) {
        EXPECT_EQ(decode_all(c.encoding, c.bytes), c.expected) << "encoding " << c.encoding << " case " << c.bytes;
    }
}

TEST(HtmlEncodingFrame, UnknownEncodingAndEndOfInput) {
    hp_reader_t reader = reader_over("a", 1);
    u32 error = 0;
    EXPECT_EQ(hp_decode_codepoint(&reader, 41, &error), code_point_none);
    EXPECT_EQ(error, (u32)html_tokenizer_error_invalid_encoding_name);
    error = 0;
    EXPECT_EQ(hp_decode_codepoint(&reader, 0, &error), code_point_none);
    EXPECT_EQ(error, (u32)html_tokenizer_error_invalid_encoding_name);
    error = 0;
    EXPECT_EQ(hp_decode_codepoint(&reader, 1, &error), (u32)'a');
    EXPECT_EQ(hp_decode_codepoint(&reader, 1, &error), code_point_none);
    EXPECT_EQ(error, (u32)html_tokenizer_error_eof);
}

// Single-byte tables against their index files: every byte.
TEST(HtmlEncodingData, SingleByteTablesAgreeWithIndexes) {
    const char *files[] = {"ibm866", "iso-8859-2", "iso-8859-3", "iso-8859-4", "iso-8859-5", "iso-8859-6",
                           "iso-8859-7", "iso-8859-8", "iso-8859-8", "iso-8859-10", "iso-8859-13", "iso-8859-14",
                           "iso-8859-15", "iso-8859-16", "koi8-r", "koi8-u", "macintosh", "windows-874",
                           "windows-1250", "windows-1251", "windows-1252", "windows-1253", "windows-1254",
                           "windows-1255", "windows-1256", "windows-1257", "windows-1258", "x-mac-cyrillic"};
    for (u32 id = 2; id <= 29; id++) {
        std::map<u32, u32> index = read_index(files[id - 2]);
        ASSERT_FALSE(index.empty()) << files[id - 2];
        std::string all;
        for (u32 b = 0; b < 256; b++) all += (char)b;
        std::vector<u32> decoded = decode_all(id, all);
        ASSERT_EQ(decoded.size(), 256u);
        for (u32 b = 0; b < 256; b++) {
            u32 expected = b < 0x80 ? b : (index.count(b - 0x80) ? index[b - 0x80] : 0xFFFD);
            EXPECT_EQ(decoded[b], expected) << files[id - 2] << " byte " << b;
        }
    }
}

// Bytes for a pointer in the two-byte families.
static std::string two_bytes(u32 lead, u32 trail) { return std::string{(char)lead, (char)trail}; }
static std::string euc_jp_bytes(u32 p) { return two_bytes(p / 94 + 0xA1, p % 94 + 0xA1); }

struct family_t {
    const char *name;
    u32 encoding;
    u32 pointer_limit;
    std::string (*bytes)(u32 pointer);
};

// Every pointer below the limit: its code point, or U+FFFD first when the
// index has none (Big5's four pairs give two code points).
static void check_family(const family_t &f, const std::map<u32, u32> &index, bool skip_pua) {
    u32 checked = 0;
    for (u32 p = 0; p < f.pointer_limit; p++) {
        if (skip_pua && p >= 8836 && p <= 10715) continue;
        std::vector<u32> got = decode_all(f.encoding, f.bytes(p));
        auto it = index.find(p);
        bool pair = f.encoding == 32 && (p == 1133 || p == 1135 || p == 1164 || p == 1166);
        // An unmapped pair may give its trail byte back as a character.
        size_t expected_size = pair ? 2 : it != index.end() ? 1 : std::max<size_t>(got.size(), 1);
        ASSERT_EQ(got.size(), expected_size) << f.name << " pointer " << p;
        if (!pair) EXPECT_EQ(got[0], it != index.end() ? it->second : 0xFFFDu) << f.name << " pointer " << p;
        checked += it != index.end();
    }
    EXPECT_GT(checked, 0u) << f.name;
}

TEST(HtmlEncodingData, MultiByteIndexesEveryPointer) {
    std::map<u32, u32> big5 = read_index("big5"), jis0208 = read_index("jis0208"), jis0212 = read_index("jis0212"),
                       euc_kr = read_index("euc-kr"), gb18030 = read_index("gb18030");
    ASSERT_FALSE(big5.empty() || jis0208.empty() || jis0212.empty() || euc_kr.empty() || gb18030.empty());
    check_family({"big5", 32, 126 * 157, [](u32 p) {
                      u32 t = p % 157;
                      return two_bytes(p / 157 + 0x81, t + (t < 0x3F ? 0x40 : 0x62));
                  }}, big5, false);
    check_family({"euc-jp", 33, 94 * 94, euc_jp_bytes}, jis0208, false);
    check_family({"euc-jp jis0212", 33, 94 * 94, [](u32 p) { return "\x8F" + euc_jp_bytes(p); }}, jis0212, false);
    check_family({"iso-2022-jp", 34, 94 * 94, [](u32 p) { return "\x1B$B" + two_bytes(p / 94 + 0x21, p % 94 + 0x21); }},
                 jis0208, false);
    check_family({"shift_jis", 35, 60 * 188, [](u32 p) {
                      u32 lead = p / 188, trail = p % 188;
                      return two_bytes(lead + (lead < 0x1F ? 0x81 : 0xC1), trail + (trail < 0x3F ? 0x40 : 0x41));
                  }}, jis0208, true);
    check_family({"euc-kr", 36, 125 * 190, [](u32 p) { return two_bytes(p / 190 + 0x81, p % 190 + 0x41); }}, euc_kr,
                 false);
    auto gbk = [](u32 p) {
        u32 t = p % 190;
        return two_bytes(p / 190 + 0x81, t + (t < 0x3F ? 0x40 : 0x41));
    };
    check_family({"gb18030", 31, 126 * 190, gbk}, gb18030, false);
    check_family({"gbk", 30, 126 * 190, gbk}, gb18030, false);
    // Every pointer of every index lies where the decoders reach it.
    for (auto &e : jis0212) EXPECT_LT(e.first, 94u * 94u);
    EXPECT_LT(big5.rbegin()->first, 126u * 157u);
}

static std::string gb_four_bytes(u32 p) {
    return {(char)(p / 12600 + 0x81), (char)(p % 12600 / 1260 + 0x30), (char)(p % 1260 / 10 + 0x81),
            (char)(p % 10 + 0x30)};
}

TEST(HtmlEncodingData, Gb18030RangesEveryPair) {
    std::map<u32, u32> ranges = read_index("gb18030-ranges");
    ASSERT_FALSE(ranges.empty());
    for (auto &e : ranges) {
        std::vector<u32> got = decode_all(31, gb_four_bytes(e.first));
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0], e.second) << "pointer " << e.first;
        // The code point just below the next pair comes from this one.
        auto next = ranges.upper_bound(e.first);
        if (next != ranges.end() && next->first < 39420 && next->first - 1 > e.first && next->first - 1 != 7457)
            EXPECT_EQ(encoding_gb18030_ranges_lookup(next->first - 1), e.second + next->first - 1 - e.first);
    }
    EXPECT_EQ(encoding_gb18030_ranges_lookup(7457), 0xE7C7u);
    EXPECT_EQ(encoding_gb18030_ranges_lookup(39420), code_point_none);
    EXPECT_EQ(encoding_gb18030_ranges_lookup(188999), code_point_none);
    EXPECT_EQ(encoding_gb18030_ranges_lookup(1237575), 0x10FFFFu);
    EXPECT_EQ(encoding_gb18030_ranges_lookup(1237576), code_point_none);
}

// Every name with ";" in the published list, by its name without the ";".
// The legacy names without ";" are found through their ";" form.
TEST(HtmlEncodingData, EntityTableMatchesPublishedList) {
    std::string json = read_whole(std::string(TIDEWRACK_TEST_DATA) + "/html/entities.json");
    // Lines look like:  "&name;": { "codepoints": [1, 2], "characters": "..." },
    u32 names = 0, pairs = 0, first, second;
    for (size_t at = 0; (at = json.find("\"&", at)) != std::string::npos;) {
        size_t name_end = json.find('"', at + 1), open = json.find('[', name_end), close = json.find(']', open);
        std::string key = json.substr(at + 2, name_end - at - 2);
        u32 point[2] = {code_point_none, code_point_none};
        sscanf(json.c_str() + open + 1, "%u , %u", &point[0], &point[1]);
        at = close;
        if (key.back() != ';') continue;
        names++;
        pairs += point[1] != code_point_none;
        ASSERT_TRUE(html_entity_find((const u8 *)key.data(), key.size() - 1, &first, &second)) << key;
        EXPECT_EQ(first, point[0]) << key;
        EXPECT_EQ(second, point[1]) << key;
    }
    EXPECT_EQ(names, 2125u);
    EXPECT_EQ(pairs, 93u);
    EXPECT_EQ(html_entity_count, 2218u);
    EXPECT_TRUE(html_entity_find((const u8 *)"AMP", 3, &first, &second));
    EXPECT_EQ(first, (u32)'&');
    EXPECT_FALSE(html_entity_find((const u8 *)"nonsense", 8, &first, &second));
    EXPECT_EQ(first, code_point_none);
}
