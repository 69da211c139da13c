// Character references, called the way the tokenizer calls them: the
// cursor stands just after the "&".
#include <gtest/gtest.h>

#include <tuple>

#include "html_test_util.h"

using namespace html_test;

struct reference_result_t {
    u32 count, first, second, ambiguous;
    u64 moved; // bytes the cursor moved
};

static reference_result_t parse_reference(const std::string &after_ampersand) {
    hp_cursor_t cursor = hp_cursor_create((const u8 *)after_ampersand.data(), after_ampersand.size(), 0);
    reference_result_t r;
    r.count = hp_parse_character_reference(&cursor, &r.first, &r.second, &r.ambiguous);
    r.moved = (u64)(cursor.reader.position - (const u8 *)after_ampersand.data());
    return r;
}

TEST(HtmlReferences, Resolved) {
    struct {
        const char *input;
        u32 first, second;
        u64 moved;
    } cases[] = {
        {"#65;", 'A', code_point_none, 4},     {"#x41;", 'A', code_point_none, 5},
        {"#X41;", 'A', code_point_none, 5},    {"#x5a;", 'Z', code_point_none, 5},
        {"#x5A;", 'Z', code_point_none, 5},    {"agrave;", 0xE0, code_point_none, 7},
        {"Agrave;x", 0xC0, code_point_none, 7}, {"acE;", 0x223E, 0x333, 4},
        {"bne;", 0x3D, 0x20E5, 4},             {"caps;", 0x2229, 0xFE00, 5},
        {"#xD7ff;", 0xD7FF, code_point_none, 7}, {"#xE000;", 0xE000, code_point_none, 7},
        {"#55295;", 0xD7FF, code_point_none, 7}, {"#57344;", 0xE000, code_point_none, 7},
        {"#x10FFFD;", 0x10FFFD, code_point_none, 9}, {"#9;", 9, code_point_none, 3},
        {"CounterClockwiseContourIntegral;", 0x2233, code_point_none, 32},
        // 2^32 + 65 wraps to 65.
        {"#4294967361;", 'A', code_point_none, 12},
        {"amp;#65;", '&', code_point_none, 4},
    };
    for (auto &c : cases) {
        reference_result_t r = parse_reference(c.input);
        u32 count = c.second == code_point_none ? 1 : 2;
        // count, first, second, moved, ambiguous
        EXPECT_EQ(std::tuple(r.count, r.first, r.second, r.moved, r.ambiguous),
                  std::tuple(count, c.first, c.second, c.moved, 0u)) << c.input;
    }
}

TEST(HtmlReferences, LeftAsWritten) {
    struct {
        const char *input;
        u32 ambiguous;
    } cases[] = {
        {"65;", 1}, {"#65", 0}, {" #65;", 0}, {"# 65;", 0}, {"#65 ;", 0}, {" # 65 ;", 0}, {"#0;", 0},
        {"x41;", 1}, {"#x41", 0}, {"# x41;", 0}, {"#x 41;", 0}, {"#x41 ;", 0},
        {"#x123456789123456789123456789;", 0}, {"#123456789123456789123456789;", 0}, {"#x0;", 0}, {"#5a;", 0},
        {"5A;", 1}, {"#x5w;", 0}, {" agrave;", 0}, {"agrave ;", 0}, {"agravenonsense;", 1}, {"agravenonsense", 0},
        {"agrave", 0}, {"#13;", 0}, {"#xd;", 0}, {"#Xd;", 0}, {"#xD800;", 0}, {"#xDFFF;", 0}, {"#55296;", 0},
        {"#57343;", 0}, {"#x110000;", 0}, {"#x80;", 0}, {"#x9F;", 0}, {"#x1;", 0}, {"#xFDD0;", 0},
        {"#xFFFE;", 0}, {"#x10FFFF;", 0}, {"#x7F;", 0}, {"", 0}, {"#", 0}, {"#x", 0}, {";", 0},
        {"abcdefghijklmn;", 1}, {"AGRAVE;", 1}, {"CounterClockwiseContourIntegralX;", 1},
        {"CounterClockwiseContourIntegralX", 0},
    };
    for (auto &c : cases) {
        reference_result_t r = parse_reference(c.input);
        // count, first, moved, ambiguous
        EXPECT_EQ(std::tuple(r.count, r.first, r.moved, r.ambiguous),
                  std::tuple(0u, code_point_none, (u64)0, c.ambiguous)) << c.input;
    }
}

TEST(HtmlReferences, RefusedNumbersAreTheInvalidTextCharactersAndCr) {
    u32 refused = 0;
    for (u32 c = 1; c <= 0x10FFFF; c++) {
        std::string s = "#" + std::to_string(c) + ";";
        if (parse_reference(s).count == 0) refused++;
    }
    // The invalid text characters but 0 (never a value here), CR, and the
    // 2048 surrogates.
    EXPECT_EQ(refused, 126u + 1u + 2048u);
}
