// Splitting a raw command line the way a Windows program receives it (as
// the links panel does for a link configuration's program), and looking
// options up in the store.
#include "app/args.h"
#include "base/command_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

static std::vector<std::string> split(const std::string &line, bool *overflow = nullptr) {
    u8 out[256];
    char *words[16];
    bool over = false;
    u32 count = command_line_split((const u8 *)line.data(), line.size(), out, sizeof(out), words, 16, &over);
    if (overflow) *overflow = over;
    return std::vector<std::string>(words, words + count);
}

TEST(CommandLine, QuotesAndBackslashes) {
    struct Case {
        const char *line;
        std::vector<std::string> expected;
    } cases[] = {
        {"prog a b", {"prog", "a", "b"}},
        {"prog  a \t b", {"prog", "a", "b"}},                    // runs of blanks make no empty argument
        {"prog \"a b\" c", {"prog", "a b", "c"}},                // quotes group
        {"prog a\\\\\"b c\"", {"prog", "a\\b c"}},               // two backslashes before a quote become one
        {"prog a\\\"b", {"prog", "a\"b"}},                       // an odd count leaves a literal quote
        {"prog C:\\dir\\file", {"prog", "C:\\dir\\file"}},       // backslashes elsewhere stay
        {"prog trailing\\\\", {"prog", "trailing\\\\"}},         // pending backslashes are written out
        {"prog \"\"", {"prog"}},                                 // an empty quoted argument is no argument
        {"prog caf\xc3\xa9", {"prog", "caf\xc3\xa9"}},           // UTF-8 passes through
        {"prog \"unterminated quote", {"prog", "unterminated quote"}},
    };
    for (const Case &c : cases) EXPECT_EQ(split(c.line), c.expected) << c.line;
}

TEST(CommandLine, OverlongLineSaysSo) {
    bool overflow = false;
    split("prog " + std::string(4000, 'a'), &overflow);
    EXPECT_TRUE(overflow);
}

TEST(ArgsStore, FindAndValue) {
    const char *argv[] = {"tidewrack", "-log", "-path", "/tmp/feeds", "-profile", "-path"};
    args_store(6, (char **)argv);
    EXPECT_EQ(args_count, 6);
    EXPECT_EQ(args_table[3].used, 10u);
    EXPECT_EQ(args_table[3].reserved, 11u);
    EXPECT_EQ(args_find_z("-log", 1), 1);
    EXPECT_EQ(args_find_z("-gfx_log", 1), 0);
    EXPECT_EQ(args_find_z("-lo", 1), 0); // exact match only

    data_t value = args_value("-path", 5, nullptr);
    EXPECT_EQ(std::string((char *)value.bytes, value.used), "/tmp/feeds");

    // A search that starts past the first "-path" finds the last one, which
    // has no value: as if it were absent.
    i32 index = 3;
    EXPECT_EQ(args_value("-path", 5, &index).bytes, nullptr);
    EXPECT_GT(args_program_name.used, 0u);
}

TEST(ArgsStoreDeathTest, TooManyArguments) {
    static std::vector<char *> many(129, (char *)"x");
    EXPECT_DEATH(args_store(129, many.data()), "Too many arguments");
}

TEST(ArgsStoreDeathTest, ArgumentsLongerThanTheBufferStop) {
    static std::string long_path(2040, 'a');
    static char program[] = "tidewrack", option[] = "-path";
    char *arguments[] = {program, option, long_path.data()};
    EXPECT_DEATH(args_store(3, arguments), "Empty command line or tool long command line.");
    char *none[] = {nullptr};
    EXPECT_DEATH(args_store(0, none), "Empty command line or tool long command line.");
}
