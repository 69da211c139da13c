// The tokenizer: table-driven short documents, the error report, the size
// prediction, and random input.
#include <gtest/gtest.h>

#include "html_test_util.h"

using namespace html_test;

struct token_case_t {
    std::string input;
    std::string expected; // tokens joined by "|"
    u32 error;
};

static void run_cases(const std::vector<token_case_t> &cases) {
    for (const token_case_t &c : cases) {
        tokenized_t t = tokenize(c.input);
        EXPECT_EQ(t.tokens, c.expected) << "input: " << c.input;
        EXPECT_EQ(t.error, c.error) << "input: " << c.input;
    }
}

TEST(HtmlTokenizer, Encodings) {
    run_cases({
        {"\xE2\x82\xAC", "T:\xE2\x82\xAC", 0},
        {"\xEF\xBB\xBF\xE2\x82\xAC", "T:\xE2\x82\xAC", 0},
        {std::string("\xFE\xFF\x20\xAC", 4), "T:\xE2\x82\xAC", 0},
        {std::string("\xFF\xFE\xAC\x20", 4), "T:\xE2\x82\xAC", 0},
        {"<meta charset=\"big5\" />\x88\x62\x88\x64\x88\xA3\x88\xA5",
         "S:meta/ charset=big5|T:\xC3\x8A\xCC\x84\xC3\x8A\xCC\x8C\xC3\xAA\xCC\x84\xC3\xAA\xCC\x8C", 0},
        {"\xEF\xB7\x90", "", 6},
        {"a\xFF" "b", "T:a\xEF\xBF\xBD" "b", 0},
        {"<meta charset=windows-1252>\x80", "S:meta charset=windows-1252|T:\xE2\x82\xAC", 0},
        // The second code point of a Big5 pair stays in the text of a raw element.
        {"<meta charset=big5><title>\x88\x62</title>", "S:meta charset=big5|S:title|T:\xC3\x8A\xCC\x84|E:title", 0},
    });
}

TEST(HtmlTokenizer, Doctype) {
    std::vector<token_case_t> cases;
    for (const char *ok : {"<!doctype html>", "<!dOctYpe hTMl>", "<!doctype \t\n\r\f html \n\t>"})
        cases.push_back({ok, "D0", 0});
    for (const char *legacy :
         {"<!doctype html system \"about:legacy-compat\">", "<!doctype html SySteM \"about:legacy-compat\" >",
          "<!doctype  html  system  'about:legacy-compat'  >"})
        cases.push_back({legacy, "D1", 0});
    for (const char *bad :
         {"<!doctype html system \"about:legacy-compat\" nonsense>", "<!doctype html system \"About:legacy-compat\">",
          "<!doctype system \"about:legacy-compat\">", "<!doctype html system about:legacy-compat>",
          "<!doctype html system \"about:legacy-compat'>", "<!doctype >", "<!doctype nonsense html>",
          "<!doctype html nonsense>", "<!doctype html"})
        cases.push_back({bad, "", 14});
    cases.insert(cases.end(), {{"<!doctypehtml>", "", 13}, {"<!doctype>", "", 13}, {"<!doctype\x0bhtml>", "", 13},
                               {"<! doctype html>", "", 12}, {"< !doctype html>", "", 11},
                               {"< ! doctype html>", "", 11}, {"<doctype html>", "S:doctype html", 0},
                               {"<!doctype html>text", "D0|T:text", 0},
                               {"<!doctype html public \"-//W3C//DTD\" \"http://x\">", "D0", 0}});
    run_cases(cases);
}

TEST(HtmlTokenizer, Comments) {
    run_cases({
        {"<!---->", "C:", 0}, {"<!--Comment-->", "C:Comment", 0}, {"<!--Comment<!-->", "C:Comment<!", 0},
        {"<!--text<!text-->", "C:text<!text", 0}, {"<!--text<!-text-->", "C:text<!-text", 0},
        {"<!-- a - b -- c -->", "C: a - b -- c ", 0}, {"<!--&#65;&amp;-->", "C:A&", 0}, {"<!-->-->", "", 15},
        {"<!--->-->", "", 15}, {"<!-->", "", 15}, {"<!--->", "", 15}, {"<!-->comment-->", "", 15},
        {"<!--->comment-->", "", 15}, {"<!--<!--->", "", 16}, {"<!--<!---->", "", 16},
        {"<!--text<!--text-->", "", 16}, {"<!--text--!>-->", "", 16}, {"<!--a\x01-->", "", 17},
        {"<!--unfinished", "", 1}, {"a<!--x-->b", "T:a|C:x|T:b", 0}, {"<!x>", "", 12},
        {"<!", "", 0}, // the input ends before the markup state runs
    });
}

TEST(HtmlTokenizer, Cdata) {
    run_cases({
        {"<![CDATA[]]>", "X:", 0}, {"<![CDATA[data]]>", "X:data", 0}, {"<![CDATA[<![CDATA[]]>", "X:<![CDATA[", 0},
        {"<![CDATA[data]]>data]]>", "X:data|T:data]]>", 0}, {"<![CDATA[&#65;]]>", "X:&#65;", 0},
        {"<![CDATA[a]b]]c]]>", "X:a]b]]c", 0}, {"<![cdata[]]>", "", 12}, {"<![CDATA[\x01]]>", "", 7},
        {"<![CDATA[open", "", 1},
    });
}

TEST(HtmlTokenizer, TextAndReferences) {
    run_cases({
        {"start&#65;end", "T:startAend", 0}, {"start&#x41;end", "T:startAend", 0}, {"&amp;#65;", "T:&#65;", 0},
        {"&acE;", "T:\xE2\x88\xBE\xCC\xB3", 0}, {"&65;", "T:&65;", 0}, {"&agrave", "T:&agrave", 0},
        {"&copy", "T:&copy", 0}, {"a&", "T:a&", 0}, {"&agravenonsense;", "T:&agravenonsense;", 0},
        {"&agrave;&Agrave;", "T:\xC3\xA0\xC3\x80", 0}, {"a\x01", "", 6}, {"a\xC2\x85", "", 6},
        {"\t\n text \r\n", "T:\t\n text \r\n", 0},
        {"x<", "T:x", 0}, // a "<" at the very end is dropped
        {"?>", "T:?>", 0}, {"<?xml version='1.0'?>after", "T:after", 0}, {"<?xml", "", 1},
    });
}

TEST(HtmlTokenizer, Tags) {
    run_cases({
        {"<p>", "S:p", 0}, {"<P>", "S:P", 0}, {"<h1>x</h1>", "S:h1|T:x|E:h1", 0}, {"</p >", "E:p", 0},
        {"</>", "E:", 0}, {"</p x>", "", 10}, {"<my-tag>", "", 11}, {"<div\xE2\x82\xAC>", "", 11}, {"<", "", 0},
        {"<p>x</", "S:p|T:x", 1}, {"<p>x</p", "S:p|T:x", 1}, {"<p", "", 1}, {"<p ", "", 8},
        {"<div empty_1 empty_2>", "S:div empty_1 empty_2", 0}, {"<div a=b >", "S:div a=b", 0},
        {"<div a='b c' d=\"e f\">", "S:div a=b c d=e f", 0}, {"<div a \t= \n b>", "S:div a=b", 0},
        {"<div A=1 bB=2>", "S:div a=1 bb=2", 0},
        {"<div name=\"value \n\r\t\fvalue\">", "S:div name=value \n\r\t\fvalue", 0}, {"<div />", "S:div/", 0},
        {"<div/>", "S:div/", 0}, {"<div unquoted_attribute=value/>", "S:div unquoted_attribute=value/", 0},
        {"<div unquoted_attribute=value />", "S:div/ unquoted_attribute=value", 0},
        {"<div a\xE2\x82\xAC=1>", "S:div a\xE2\x82\xAC=1", 0}, {"<div double_quote_syntax=\"double>", "", 2},
        {"<div double_quote_syntax=double\">", "", 9}, {"<div double_quote_syntax='double\">", "", 2},
        {"<div name_start/name_end>", "", 10}, {"<div name_start\"name_end>", "", 5},
        {"<div name_start=name_end=value>", "", 9}, {"<div name_start=name_end = value>", "", 8},
        {"<div a=\"x\"b>", "", 4}, {"<div a=\"x\x01\">", "", 3}, {"<div /a", "", 10},
        {"<div name=\"&agrave\">", "S:div name=&agrave", 0},
        {"<div name=\"&agrave;&#x41;\">", "S:div name=\xC3\xA0" "A", 0}, {"<div name=\"&abcdefghijklmn;\">", "", 18},
        {"<div name=\"&#0;\">", "S:div name=&#0;", 0}, {"<div a=&amp;>", "S:div a=&amp;", 0},
        {"<p a='&acE;'>", "S:p a=\xE2\x88\xBE\xCC\xB3", 0},
        {"<p>a<p>a<p>a<p>a", "S:p|T:a|S:p|T:a|S:p|T:a|S:p|T:a", 0},
    });
}

TEST(HtmlTokenizer, RawElements) {
    run_cases({
        {"<script></script>", "S:script|E:script", 0}, {"<script><</script>", "S:script|T:<|E:script", 0},
        {"<script>sometext", "S:script|T:sometext", 0}, {"<script>", "S:script", 0},
        {"<script></script </script>", "S:script", 19}, {"<script></script ", "S:script", 19},
        {"<script></script/>", "S:script", 19}, {"<script>a</scriptx</script>", "S:script|T:a</scriptx|E:script", 0},
        {"<script>a</script<</script>", "S:script|T:a</script<|E:script", 0},
        {"<script>if (a<b) x();</SCRIPT></script>", "S:script|T:if (a<b) x();</SCRIPT>|E:script", 0},
        {"<script>&amp;&anrstanrastusie;</script>", "S:script|T:&amp;&anrstanrastusie;|E:script", 0},
        {"<style>p{}</style>", "S:style|T:p{}|E:style", 0},
        {"<textarea>&amp;</textarea>", "S:textarea|T:&|E:textarea", 0},
        {"<title>&amp;</title>", "S:title|T:&|E:title", 0}, {"<title>&anrstanrastusie;</title>", "S:title", 21},
        {"<title>&agrave &</title>", "S:title|T:&agrave &|E:title", 0},
        {"<textarea></textarea ></textarea>", "S:textarea", 20}, {"<title>a\x01</title>", "S:title", 6},
        {"<SCRIPT><b></SCRIPT>", "S:SCRIPT|S:b|E:SCRIPT", 0},
        {"<script>\n<p>\n</script>x", "S:script|T:\n<p>\n|E:script|T:x", 0},
    });
}

// The report: position, text, source line and caret, exactly.
TEST(HtmlTokenizer, ErrorReport) {
    struct {
        std::string input;
        std::string report;
    } cases[] = {
        {"<p>\nab\x01" "cd\nnext",
         "Error( 2, 3 ): The text contains an invalid character.\n    ab\x01" "cd\n      ^\n\n"},
        {"<div a=\"x\"b>", "Error( 1, 11 ): An attribute value was not followed by a space (' ', '\\n', '\\r', '\\t', "
                           "'\\f'), a slash ('/') or a greater than sign ('>').\n    <div a=\"x\"b>\n              "
                           "^\n\n"},
        {"x\r\ny\n<!-->", "Error( 2, 5 ): A comment starts with an invalid character sequence. A comment can't "
                          "start with '>' or '->'.\n    <!-->\n        ^\n\n"},
        {"<div a=\"x", "Error( 1, 9 ): The end of the file was reached while parsing a quoted attirbute value.\n"
                       "    <div a=\"x\n            ^\n\n"},
        {"<p", "Error: The end of the file has been reached.\n\n"},
        // Once a CR has been seen, lone LFs no longer count lines.
        {"a\rb\nc\n\x01", "Error( 2, 1 ): The text contains an invalid character.\n    \x01\n    ^\n\n"},
        {"a\nb\nc\n\x01", "Error( 4, 1 ): The text contains an invalid character.\n    \x01\n    ^\n\n"},
    };
    for (auto &c : cases) {
        u64 mark = log_mark();
        EXPECT_NE(tokenize(c.input).error, 0u);
        EXPECT_EQ(log_since(mark), c.report) << c.input;
    }
}

// The blocks predicted from the input size hold the worst cases; the
// arenas are exactly as large as predicted.
TEST(HtmlTokenizer, PredictionFits) {
    for (const char *input : {"", "a", "<p><p><p><p>", "<p>a", "<p>aa", "<p>aaa", "<p>aaaa", "<p>a<p>a<p>a<p>a",
                              "<p a b c d>", "a<p>b", "a<p>b<p>c<p>d", "<p a b c d=e", "&acE;&acE;", "<p a='&acE;'>",
                              "\xFF\xFF\xFF", "</></></>", "<!----><!---->"})
        tokenize(input);
    data_t in = data_literal("<p>");
    u64 need = hp_tokenizer_size(&in);
    EXPECT_EQ(need, 8 + 48 * 2 + 48 * 1 + 4 * 3u);
    arena_t small(need - 1);
    u32 error = 0;
    html_tokens_t tokens = hp_tokenizer(&small.data, &in, 0, &error);
    EXPECT_EQ(error, (u32)html_tokenizer_error_not_enough_memory);
    EXPECT_EQ(tokens.token_count, 0u);
    EXPECT_EQ(small.data.used, 0u);
    // The text block's unused tail goes back to the arena.
    arena_t exact(need);
    error = 0;
    tokens = hp_tokenizer(&exact.data, &in, 0, &error);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(tokens.text_block.used, 1u);
    EXPECT_EQ(exact.data.used, need - 8 - 11);
}
