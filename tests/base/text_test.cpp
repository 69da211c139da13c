// Search, editing, text to number and number to text.
#include "base/text.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

data_t view(const std::string &s) { return data_t{s.size(), s.size(), (u8 *)s.data()}; }
std::string str(const data_t &d) { return std::string((const char *)d.bytes, d.used); }
const u8 *b(const std::string &s) { return (const u8 *)s.data(); }

// What a number writer puts in a destination of `size` bytes.
template <typename F> std::string written(u64 size, F write) {
    u8 out[64];
    return std::string((char *)out, write(out, size));
}

} // namespace

TEST(TextSearch, FindFirstAndLast) {
    struct {
        std::string hay, needle;
        i64 first, last; // -1: not found (the end)
    } cases[] = {
        {"abcabc", "bc", 1, 4}, {"abc", "abc", 0, 0}, {"abc", "", -1, -1},
        {"abc", "abcd", -1, -1}, {"", "a", -1, -1},  {"aaa", "aa", 0, 1}, {"xyz", "q", -1, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.hay + " / " + c.needle);
        const u8 *end = b(c.hay) + c.hay.size();
        const u8 *f = memory_find(b(c.hay), end, c.needle.data(), c.needle.size());
        const u8 *l = memory_find_last(b(c.hay), end, c.needle.data(), c.needle.size());
        EXPECT_EQ(f == end ? -1 : f - b(c.hay), c.first);
        EXPECT_EQ(l == end ? -1 : l - b(c.hay), c.last);
    }
    EXPECT_EQ(memory_find(nullptr, nullptr, "a", 1), nullptr);
}

TEST(TextSearch, EqualIgnoringCase) {
    std::string t = "Content-Type", u = "CONTENT-TYPE", w = "content-typ\xC3\x89";
    data_t tv = view(t), uv = view(u), wv = view(w);
    EXPECT_TRUE(data_equal_ignore_case(&tv, &uv));
    EXPECT_FALSE(data_equal_ignore_case(&tv, &wv));
    data_t none = {}; // an empty text has no bytes at all
    EXPECT_TRUE(data_equal_ignore_case(&none, &none));
    EXPECT_FALSE(data_equal_ignore_case(&none, &tv));
}

TEST(TextSearch, SpaceFinders) {
    std::string s = "  ab \t", blank = " \n\r";
    EXPECT_EQ(text_find_non_space(b(s), b(s) + s.size()), b(s) + 2);
    EXPECT_EQ(text_find_non_space(b(blank), b(blank) + 3), nullptr);
}

TEST(TextEdit, TrimAndSplit) {
    std::string s = "value;; ";
    data_t sv = view(s), out;
    data_t set = data_literal("; ");
    data_trim_end(&out, &sv, &set);
    EXPECT_EQ(str(sv), "value");

    std::string list = "a, b,,c ";
    data_t items[8];
    data_t lv = view(list);
    ASSERT_EQ(data_split_commas(&lv, items, 8), 3u);
    EXPECT_EQ(str(items[0]), "a");
    EXPECT_EQ(str(items[1]), "b");
    EXPECT_EQ(str(items[2]), "c ");
    EXPECT_EQ(data_split_commas(&lv, items, 2), 2u);
}

TEST(TextEdit, PushesStopWhenFull) {
    u8 storage[16];
    data_t arena = {sizeof(storage), 0, storage};
    EXPECT_NE(data_push_c_string(&arena, "abcde"), nullptr);
    EXPECT_NE(data_push_c_string(&arena, "xyz"), nullptr);
    EXPECT_EQ(data_push_raw(&arena, "0123456789", 10), nullptr); // does not fit
    EXPECT_EQ(arena.used, 8u);
}

TEST(TextNumbers, TextToI64) {
    struct {
        std::string text;
        i64 plain, plus;
    } cases[] = {
        {"  -12abc", -12, -12}, {"0x", 0, 0},      {"0X10", 0, 0},   {"0x1f", 31, 31}, {"0x1F", 31, 31},
        {"+5", 5, 5},           {"", 0, 0},        {"   ", 0, 0},   {"++5", 0, 5},    {" + +-3", 0, -3},
        {"-", 0, 0},            {"42 7", 42, 42},  {"007", 7, 7},    {"-0x10", -16, -16},
        {"9223372036854775807", INT64_MAX, INT64_MAX},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(text_to_i64(b(c.text), c.text.size()), c.plain) << c.text;
        EXPECT_EQ(text_to_i64_plus(b(c.text), c.text.size()), c.plus) << c.text;
    }
    // The size bounds the read: "12" of "123".
    EXPECT_EQ(text_to_i64((const u8 *)"123", 2), 12);
}

TEST(TextNumbers, NumberToText) {
    struct {
        u64 value;
        u64 width;
        char fill;
        u32 flags;
        std::string text;
    } cases[] = {
        {0, 0, ' ', 0, "0"}, {1234567, 0, ' ', number_group_3, "1 234 567"},
        {123, 0, ' ', number_group_3, "123"}, {1234, 0, ' ', number_group_3, "1 234"},
        {0xAB, 0, ' ', number_hexadecimal | number_digits_4, "0x00ab"},
        {0xAB, 0, ' ', number_hexadecimal | number_no_prefix, "ab"},
        {0x12345678, 0, ' ', number_hexadecimal | number_no_prefix | number_group_4, "1234 5678"},
        {0xAB, 0, ' ', number_hexadecimal | number_no_prefix | number_digits_8 | number_group_2, "00 00 00 ab"},
        {5, 3, '0', 0, "005"}, {5, 3, '0', number_left_justify, "500"}, {5, 4, ' ', number_show_plus, "  +5"},
        {5, 4, '0', number_show_plus | number_sign_before_fill, "+005"}, {12, 1, ' ', 0, "12"},
        {UINT64_MAX, 0, ' ', 0, "18446744073709551615"},
        {UINT64_MAX, 0, ' ', number_hexadecimal, "0xffffffffffffffff"},
    };
    for (const auto &c : cases) {
        auto write = [&](u8 *o, u64 size) { return number_to_text(o, size, c.value, c.width, (u8)c.fill, c.flags); };
        EXPECT_EQ(written(64, write), c.text);
    }
    // A short destination keeps the low digits.
    EXPECT_EQ(written(2, [](u8 *out, u64 size) { return number_to_text(out, size, 12345, 0, ' ', 0); }), "45");
}

TEST(TextNumbers, SignedAndFloat) {
    struct {
        i64 value;
        u64 width;
        char fill;
        u32 flags;
        std::string text;
    } cases[] = {
        {-5, 0, ' ', 0, "-5"}, {-5, 4, ' ', 0, "  -5"}, {-5, 4, '0', number_sign_before_fill, "-005"},
        {-5, 4, ' ', number_left_justify, "-5  "}, {INT64_MIN, 0, ' ', 0, "-9223372036854775808"},
        {7, 0, ' ', number_show_plus, "+7"},
    };
    for (const auto &c : cases) {
        auto write = [&](u8 *o, u64 n) { return number_to_text_signed(o, n, c.value, c.width, (u8)c.fill, c.flags); };
        EXPECT_EQ(written(64, write), c.text);
    }
    struct {
        f64 value;
        u32 decimals;
        std::string text;
    } floats[] = {
        {1.5, 3, "1.500"},  {1.0, 3, "1.000"},  {0.123456, 3, "0.123"}, {2.0, 0, "2"},
        {-1.25, 2, "-1.25"}, {-0.5, 2, "0.50"}, {10.05, 1, "10.0"},
    };
    for (const auto &c : floats) {
        auto write = [&](u8 *out, u64 size) { return number_to_text_float(out, size, c.value, 0, ' ', c.decimals, 0); };
        EXPECT_EQ(written(64, write), c.text) << c.value;
    }
}
