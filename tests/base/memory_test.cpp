// Blocks, bump allocation, pools and the strict UTF-8 / UTF-16 coding.
#include "base/memory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

alignas(64) u8 arena_bytes[4096];

data_t arena(u64 offset, u64 size) { return data_t{size, 0, arena_bytes + offset}; }

} // namespace

TEST(MemoryBump, PushesFillExactlyAndOverflowChangesNothing) {
    data_t a = arena(0, 16);
    data_push(&a, 3, 1);
    EXPECT_EQ(data_push(&a, 0, 1), arena_bytes + 3); // zero bytes: the current end
    ASSERT_NE(data_push(&a, 13, 1), nullptr);
    EXPECT_EQ(data_push(&a, 1, 1), nullptr);
    EXPECT_EQ(a.used, 16u);

    u8 small[4] = {9, 9, 9, 9};
    data_t s = {4, 0, small};
    EXPECT_EQ(data_push_copy(&s, "abcdef", 6, 1), nullptr);
    EXPECT_EQ(small[0], 9);
    EXPECT_EQ(s.used, 0u);
    data_t src = data_literal("xy");
    ASSERT_NE(data_push_data(&s, &src, 1), nullptr);
    EXPECT_EQ(std::memcmp(small, "xy", 2), 0);
}

TEST(MemoryBump, PaddingFollowsTheAbsoluteAddress) {
    // Same used, different base: the padding aligns the address, not the offset.
    data_t aligned = arena(0, 64);
    data_t odd = arena(65, 64);
    data_push(&aligned, 1, 1);
    data_push(&odd, 1, 1);
    EXPECT_EQ(data_push(&aligned, 8, 8), arena_bytes + 8);
    EXPECT_EQ(data_push(&odd, 8, 8), arena_bytes + 72);
    EXPECT_EQ(aligned.used, 16u);
    EXPECT_EQ(odd.used, 15u); // base 65: one byte used, address 66, pad to 72
}

TEST(MemoryBlocks, VirtualBlocksAndAddressSpace) {
    data_t block = data_virtual_alloc(10000, 0);
    block.bytes[9999] = 1;
    data_virtual_free(&block);
    data_virtual_free(&block); // harmless

    data_t space = data_address_space_reserve(100000, 0);
    ASSERT_NE(space.bytes, nullptr);
    EXPECT_EQ(space.reserved % memory_allocation_granularity, 0u);
    EXPECT_GE(space.reserved, 100000u);
    u8 *p = data_address_space_commit(&space, 10);
    ASSERT_EQ(p, space.bytes);
    EXPECT_EQ(space.used, memory_page_size);
    p[memory_page_size - 1] = 7;
    EXPECT_EQ(data_address_space_commit(&space, 1), space.bytes + memory_page_size);
    EXPECT_EQ(data_address_space_commit(&space, space.reserved), nullptr);
    EXPECT_EQ(space.used, 2u * memory_page_size);
    p[memory_page_size] = 8;
    data_address_space_decommit(&space, 1);
    EXPECT_EQ(space.used, memory_page_size);
    EXPECT_EQ(p[memory_page_size - 1], 7);
    // A decommitted page comes back zeroed.
    data_address_space_commit(&space, 1);
    EXPECT_EQ(p[memory_page_size], 0);
}

// ---- pools ---------------------------------------------------------------------------

namespace {

struct item_t {
    u32 live;
    u32 value;
};

bool item_is_live_index(void *entry, u64, u64) { return ((item_t *)entry)->live != 0; }
std::vector<std::pair<void *, void *>> moves;
void item_moved(void *old_entry, void *new_entry) { moves.push_back({old_entry, new_entry}); }

item_t *item_at(pool_t *pool, u64 index) { return (item_t *)pool_entry(pool, sizeof(item_t), index); }

// A pool of `values.size()` taken entries with the given values.
void pool_fill(pool_t *pool, const std::vector<u32> &values, u32 live) {
    pool_create_virtual(pool, sizeof(item_t), 8, (u32)values.size());
    for (u32 v : values) *(item_t *)pool_take(pool, sizeof(item_t)) = {live, v};
}

std::vector<u32> pool_values(pool_t *pool, u32 count) {
    std::vector<u32> got;
    for (u32 i = 0; i < count; i++) got.push_back(item_at(pool, i)->value);
    return got;
}

} // namespace

TEST(Pool, TakesInOrderAndReusesReleased) {
    pool_t pool;
    pool_create_virtual(&pool, sizeof(item_t), 8, 3);
    void *e0 = pool_take(&pool, sizeof(item_t));
    void *e1 = pool_take(&pool, sizeof(item_t));
    void *e2 = pool_take(&pool, sizeof(item_t));
    EXPECT_EQ(pool_index_of(&pool, sizeof(item_t), e2), 2u);
    EXPECT_EQ(pool_take(&pool, sizeof(item_t)), nullptr);
    pool_release(&pool, e1, sizeof(item_t));
    EXPECT_EQ(pool_take(&pool, sizeof(item_t)), e1);
    pool_release_index(&pool, 0);
    EXPECT_EQ(pool_take(&pool, sizeof(item_t)), e0);
    pool_destroy(&pool);

    // A pool made in a block of pool_size fills it exactly.
    alignas(64) static u8 storage[256];
    data_t parent = {sizeof(storage), 0, storage};
    pool_create_in(&pool, &parent, 12, 8, 5);
    EXPECT_EQ(pool.block.used, pool.block.reserved);
    EXPECT_EQ((uintptr_t)pool.entries % 8, 0u);
}

TEST(Pool, CompactMovesLiveEntriesToTheFront) {
    pool_t pool;
    pool_fill(&pool, {0, 1, 2, 3, 4, 5}, 0);
    item_at(&pool, 0)->live = 1;
    item_at(&pool, 5)->live = 1;
    pool.entry_count = 2;
    moves.clear();
    pool_compact(&pool, sizeof(item_t), item_is_live_index, item_moved);
    EXPECT_EQ(pool_values(&pool, 2), (std::vector<u32>{0, 5}));
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_EQ(moves[0].first, item_at(&pool, 5));
    EXPECT_EQ(pool_index_of(&pool, sizeof(item_t), pool_take(&pool, sizeof(item_t))), 2u);
    pool_destroy(&pool);
}

// ---- UTF-8 -----------------------------------------------------------------------------------

TEST(Utf8, DecodeIsStrict) {
    struct {
        std::string input;
        u32 code_point;
        u8 size;
        u32 error;
    } cases[] = {
        {"\xE0\xA0\x80", 0x800, 3, 0}, {"\xED\x9F\xBF", 0xD7FF, 3, 0}, {"\xF4\x8F\xBF\xBF", 0x10FFFF, 4, 0},
        {"", code_point_none, 0, coding_error_no_input},
        // Bytes that can't start a character: continuation, overlong leads, above U+10FFFF.
        {"\x80", code_point_none, 0, coding_error_lead_byte}, {"\xC0\x80", code_point_none, 0, coding_error_lead_byte},
        {"\xC1\xBF", code_point_none, 0, coding_error_lead_byte}, {"\xFF", code_point_none, 0, coding_error_lead_byte},
        {"\xF5\x80\x80\x80", code_point_none, 0, coding_error_lead_byte},
        // Overlong, surrogate, above U+10FFFF, a continuation missing.
        {"\xE0\x80\x80", code_point_none, 3, coding_error_continuation},
        {"\xED\xA0\x80", code_point_none, 3, coding_error_continuation},
        {"\xF0\x80\x80\x80", code_point_none, 4, coding_error_continuation},
        {"\xF4\x90\x80\x80", code_point_none, 4, coding_error_continuation},
        {"\xC2\x41", code_point_none, 2, coding_error_continuation},
        {"\xE2\x82\x41", code_point_none, 3, coding_error_continuation},
        {"\xE2\x82", code_point_none, 3, coding_error_cut}, {"\xF0\x90\x80", code_point_none, 4, coding_error_cut},
        {"\xC2", code_point_none, 2, coding_error_cut},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.input));
        const u8 *p = (const u8 *)c.input.data();
        u32 cp = 12345, error = 0;
        u8 size = 99;
        utf8_decode(p, p + c.input.size(), &cp, &size, &error);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(cp, c.code_point);
        EXPECT_EQ(size, c.size);
    }
}

TEST(Utf8, EncodeKeepsItsLengthLimits) {
    struct {
        u32 code_point;
        std::vector<u8> bytes;
        u32 error;
    } cases[] = {
        {0x7FE, {0xDF, 0xBE}, 0}, {0x7FF, {0xE0, 0x9F, 0xBF}, 0}, // one below the usual limit: three bytes
        {0xFFFF, {0xF0, 0x8F, 0xBF, 0xBF}, 0}, {0x10FFFE, {0xF4, 0x8F, 0xBF, 0xBE}, 0}, {0x10FFFF, {}, 0},
        {0xD800, {}, coding_error_not_scalar}, {0xDFFF, {}, coding_error_not_scalar},
        {0x110000, {}, coding_error_not_scalar},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code_point);
        u8 out[8] = {}, size = 0, measured = 0;
        u32 error = 0, e2 = 0;
        utf8_encode(out, out + sizeof(out), c.code_point, &size, &error);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(std::vector<u8>(out, out + size), c.bytes);
        // Measuring gives the same size and writes nothing.
        utf8_encode(nullptr, nullptr, c.code_point, &measured, &e2);
        EXPECT_EQ(measured, c.bytes.size());
    }
    u8 out[2], size = 0;
    u32 error = 0;
    utf8_encode(out, out + 2, 0x20AC, &size, &error);
    EXPECT_EQ(error, coding_error_no_room);
}

TEST(Utf8, LastCharSize) {
    struct {
        std::string text;
        u64 size;
    } cases[] = {
        {"", 0}, {"x\xF0\x9F\x98\x80", 4}, {"ab\x80", 1}, // 'b' decodes from there
        {"\x80\x80", 2},                                    // walked past the start: the whole range
    };
    for (const auto &c : cases) {
        const u8 *q = (const u8 *)c.text.data();
        EXPECT_EQ(utf8_last_char_size(q, q + c.text.size()), c.size) << testing::PrintToString(c.text);
    }
}

// ---- UTF-16 ------------------------------------------------------------------------------------

TEST(Utf16, Decode) {
    struct {
        std::vector<u8> bytes;
        bool big_endian;
        u32 code_point;
        u8 units;
        u32 error;
    } cases[] = {
        {{0x41, 0x00}, false, 0x41, 1, 0}, {{0x00, 0x41}, true, 0x41, 1, 0},
        {{0x3D, 0xD8, 0x00, 0xDE}, false, 0x1F600, 2, 0}, {{0xD8, 0x3D, 0xDE, 0x00}, true, 0x1F600, 2, 0},
        {{0x41}, false, code_point_none, 1, coding_error_no_input},
        {{0x3D, 0xD8}, false, code_point_none, 2, coding_error_cut},
        {{0x3D, 0xD8, 0x41, 0x00}, false, code_point_none, 2, coding_error_surrogate_pair},
        {{0x00, 0xDC, 0x00, 0xDC}, false, code_point_none, 2, coding_error_surrogate_pair},
    };
    for (const auto &c : cases) {
        u32 cp = 0, error = 0;
        u8 units = 0;
        utf16_decode(c.bytes.data(), c.bytes.data() + c.bytes.size(), &cp, &units, c.big_endian, &error);
        EXPECT_EQ(error, c.error);
        EXPECT_EQ(units, c.units);
        if (!c.error) EXPECT_EQ(cp, c.code_point);
    }
}

// The whole-buffer decoder against utf8_decode stepping one byte after an
// error, with each awkward sequence put at every offset around the edges of
// the 64-byte vector windows, and with output room that runs out mid-way.
TEST(Utf8, BufferDecoderAgreesWithTheSequenceDecoder) {
    auto reference = [](const std::string &text) {
        std::vector<u32> out;
        const u8 *p = (const u8 *)text.data(), *end = p + text.size();
        while (p < end) {
            u32 code_point = 0, error = 0;
            u8 size = 0;
            utf8_decode(p, end, &code_point, &size, &error);
            out.push_back(error ? 0xFFFFFFFFu : code_point);
            p += error ? 1 : size;
        }
        return out;
    };
    auto decode = [](const std::string &text, u64 room, bool scalar) {
        std::vector<u32> out, block(room);
        const u8 *p = (const u8 *)text.data(), *end = p + text.size();
        while (p < end) {
            u64 n = scalar ? utf8_decode_buffer_scalar(p, end, block.data(), room, &p)
                           : utf8_decode_buffer(p, end, block.data(), room, &p);
            out.insert(out.end(), block.begin(), block.begin() + (long)n);
        }
        return out;
    };
    const std::string filler = "caf\xC3\xA9 \xE6\x96\xB0 tide \xF0\x9F\x93\xB0 and plain words ";
    const char *awkward[] = {"\xC0\x80",     "\xC1\xBF",         "\xED\xA0\x80", "\xED\x9F\xBF", "\xE0\x9F\xBF",
                             "\xE0\xA0\x80", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF4\x8F\xBF\xBF",
                             "\xE2\x82",     "\xF0\x9F\x93",     "\x80",         "\xBF\xBF",     "\xFF",
                             "\xF5\x80\x80\x80", "\xC3",         "\xC3\xA9\xA9", "\xDF\xBF",     "\x00"};
    for (const char *bad : awkward) {
        std::string piece(bad, bad[0] ? strlen(bad) : 1);
        for (u64 at = 0; at < 140; at++) {
            std::string text;
            while (text.size() < 200) text += filler;
            text.insert(at, piece);
            std::vector<u32> expected = reference(text);
            for (u64 room : {4096u, 64u, 17u}) {
                ASSERT_EQ(decode(text, room, false), expected) << "offset " << at << " room " << room;
                ASSERT_EQ(decode(text, room, true), expected) << "offset " << at << " room " << room;
            }
            // Cut just after the piece, so that it may end the text.
            std::string cut = text.substr(0, at + piece.size());
            ASSERT_EQ(decode(cut, 4096, false), reference(cut)) << "offset " << at;
        }
    }
    const std::string printable(150, 'a');
    for (u8 other : {(u8)0x1F, (u8)0x7F, (u8)0xC3, (u8)'\n'}) {
        for (u64 at = 0; at < printable.size(); at += 7) {
            std::string text = printable;
            text[at] = (char)other;
            const u8 *p = (const u8 *)text.data();
            EXPECT_EQ(utf8_skip_printable_ascii(p, p + text.size()), p + at);
        }
    }
}
