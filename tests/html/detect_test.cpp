// The encoding prescan over the first 1024 bytes.
#include <gtest/gtest.h>

#include "html_test_util.h"

using namespace html_test;

static u32 detect(const std::string &input) {
    data_t in = view(input);
    return hp_detect_encoding(&in);
}

TEST(HtmlDetect, MetaElements) {
    struct {
        std::string input;
        u32 encoding;
    } cases[] = {
        {"<meta charset=\"big5\" />", 32}, {"<html><head><meta charset=big5>", 32},
        {"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=iso-8859-2\">", 3},
        // content ends the element before http-equiv is seen: no pragma, UTF-8.
        {"<meta content=\"text/html; charset=iso-8859-2\" http-equiv=\"content-type\">", 1},
        {"<meta HTTP-EQUIV=\"CONTENT-TYPE\" content=\"TEXT/HTML;charset=ISO-8859-2\">", 3},
        {"<meta content=\"text/html; charset=iso-8859-2\">", 1},
        {"<meta http-equiv=\"refresh\" content=\"text/html; charset=iso-8859-2\">", 1},
        {"<meta content=\"text/html; charset=nonsense\"><meta charset=koi8-r>", 16},
        {"<!-- <meta charset=\"big5\"> -->", 0}, {"<!-- x --><meta charset=\"big5\">", 32},
        {"<meta charset=\"utf-16\">", 1}, {"<meta charset=\"utf-16be\">", 1},
        {"<meta charset=\"x-user-defined\">", 22}, {"<meta charset=\"nonsense\"><meta charset=\"euc-kr\">", 36},
        {"<meta CHARSET=\"big5\">", 0}, {"<META charset=\"big5\">", 32}, {"<meta charset=\" shift_jis \">", 35},
        {"<metacharset=big5>", 0}, {"<meta>", 0}, {"<p title=\"<meta charset=big5>\"><meta charset=gbk>", 30},
        {"<?xml version=\"1.0\"?><meta charset=euc-jp>", 33}, {"</p><meta charset=euc-jp>", 33},
        {"<! weird > <meta charset=euc-jp>", 33}, {"<<meta charset=euc-jp>", 33}, {"", 0}, {"<", 0}, {"<meta ", 0},
        {"<meta charset=\"big5", 32}, // an unclosed value still counts
        {"<meta charset=big5", 32},
        // An http-equiv whose value comes out empty.
        {std::string("\0<oc!dtype html><meta http-equiv=\"\x15\0\0\0\xAF" "at\x9F\x92" "cii\">", 48), 0},
    };
    for (auto &c : cases) EXPECT_EQ(detect(c.input), c.encoding) << c.input;
}

TEST(HtmlDetect, OnlyTheFirst1024Bytes) {
    std::string meta = "<meta charset=\"big5\" />";
    EXPECT_EQ(detect(std::string(1024 - meta.size(), ' ') + meta), 32u);
    // An element that starts in the window counts even if it ends beyond it.
    EXPECT_EQ(detect(std::string(1000, ' ') + meta), 32u);
    EXPECT_EQ(detect(std::string(1024, ' ') + meta), 0u);
    EXPECT_EQ(detect(std::string(1100, ' ') + meta), 0u);
    EXPECT_EQ(tokenize(std::string(1100, ' ') + meta).encoding, 1u);
    // A window full of names and values still fits the scratch space.
    std::string many = "<meta";
    while (many.size() < 1020) many += " a=\xE2\x82\xAC";
    EXPECT_EQ(detect(many), 0u);
    std::string bad = "<meta";
    while (bad.size() < 1020) bad += " a=\xFF";
    EXPECT_EQ(detect(bad), 0u);
}

TEST(HtmlDetect, ByteOrderMarkDecidesFirst) {
    EXPECT_EQ(tokenize("\xEF\xBB\xBF<meta charset=\"big5\">").encoding, 1u);
    EXPECT_EQ(tokenize("<meta charset=\"big5\">").encoding, 32u);
    EXPECT_EQ(tokenize("<meta charset=\"nonsense\">").encoding, 1u);
}
