// The ring channels of the log. Channels are process-wide, so each test
// writes to a channel of its own.
#include "base/log.h"
#include "base/text.h"

#include "base_test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::string channel_text(u32 channel) {
    log_channel_t *c = log_channel(channel);
    return std::string((const char *)c->data.bytes, c->data.used);
}

bool end_marker_follows(u32 channel) {
    log_channel_t *c = log_channel(channel);
    const char marker[] = "## Log end ##\n";
    return std::memcmp(c->data.bytes + c->data.used, marker, sizeof(marker) - 1) == 0;
}

} // namespace

TEST(Log, NumbersIndentsAndLines) {
    const u32 ch = 7;
    EXPECT_EQ(log_channel(ch)->data.reserved, 0u); // taken at the first write
    log_number(ch, 0);
    log_string(ch, "|");
    log_number_signed(ch, -42, 5, ' ', 0);
    log_string(ch, "|");
    log_number(ch, 255, 0, ' ', number_hexadecimal);
    log_indent(ch);
    log_indent(ch);
    log_line_number(ch, 7, true, "n: ", true);
    log_outdent(ch);
    log_write_indent(ch);
    log_data(ch, &(const data_t &)data_literal("x"));
    EXPECT_EQ(channel_text(ch), "0|  -42|0xff        n: 7\n    x");
    EXPECT_TRUE(end_marker_follows(ch));
}

TEST(Log, WrapsBeforeTheEndMarkerWouldPassTheEnd) {
    const u32 ch = 8;
    const u64 marker = std::strlen("## Log end ##\n");
    std::string filler(log_buffer_size - marker - 11, 'f');
    log_string(ch, filler.c_str());
    log_channel_t *c = log_channel(ch);
    EXPECT_EQ(c->overflowed, 0u);
    const u8 *old_end = data_end(&c->data);

    // 10 more bytes still fit with the marker; 11 would touch the end.
    log_bytes(ch, "0123456789", 10);
    EXPECT_EQ(c->overflowed, 0u);
    log_string(ch, "x");
    EXPECT_EQ(c->overflowed, 1u);
    EXPECT_EQ(c->overflow_end, log_buffer_size - marker - 1);
    EXPECT_EQ(channel_text(ch), "## Log overflowed ##\nx");
    EXPECT_TRUE(end_marker_follows(ch));

    // The text since old_end runs to the seam, then from the start.
    log_channel_t *user = log_channel(log_user);
    u64 user_before = user->data.used;
    EXPECT_TRUE(log_copy_new_text_to_user(ch, old_end));
    std::string copied((const char *)user->data.bytes + user_before, user->data.used - user_before);
    if (user_before) copied.erase(0, 1); // the blank line before it
    EXPECT_EQ(copied, "0123456789## Log overflowed ##\nx");
    EXPECT_FALSE(log_copy_new_text_to_user(ch, data_end(&c->data)));
}

TEST(Log, SaveWritesUsedBytesOrTheWholeRing) {
    temp_folder_t folder;
    const u32 ch = 10;
    log_string(ch, "hello");
    std::string path = folder.path + "/log.txt";
    data_t p = view_of(path);
    u32 error = 0;
    log_save(ch, &p, &error);
    ASSERT_EQ(error, 0u);
    EXPECT_EQ(read_whole(path), "hello");

    std::string half(log_buffer_size / 2, 'f');
    log_string(ch, half.c_str());
    log_string(ch, half.c_str());
    ASSERT_EQ(log_channel(ch)->overflowed, 1u);
    log_save(ch, &p, &error);
    ASSERT_EQ(error, 0u);
    std::string saved = read_whole(path);
    EXPECT_EQ(saved.size(), log_buffer_size);
    EXPECT_EQ(saved.substr(0, 21), "## Log overflowed ##\n");
}
