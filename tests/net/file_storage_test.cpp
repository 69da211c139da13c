// The file storage: first fit in units, merging on free, and the ranges that
// drop out of the list when a merge joins two nodes that were not neighbours
// in it.
#include <gtest/gtest.h>

#include <cstring>

#include "net/file_storage.h"

namespace {

struct storage_fixture : ::testing::Test {
    file_storage_t storage = {};
    u64 reserve = 0;
    void SetUp() override {
        system_info_get();
        reserve = align_up(0x400000, memory_allocation_granularity); // 4 MB
        file_storage_init(&storage, reserve, memory_page_size, 128);
    }
    void TearDown() override {
        data_virtual_free(&storage.memory);
        data_virtual_free(&storage.node_memory);
    }
    u8 *alloc(u64 size) { return (u8 *)file_storage_alloc(&storage, size); }
};

TEST_F(storage_fixture, one_byte_takes_a_unit_and_comes_back_whole) {
    u8 *a = alloc(1);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a, storage.memory.bytes);
    EXPECT_EQ(file_storage_free_size(&storage), reserve - 128);
    u8 *b = alloc(1);
    EXPECT_EQ(b, a + 128);
    file_storage_free(&storage, b, 1);
    file_storage_free(&storage, a, 1);
    EXPECT_EQ(file_storage_free_count(&storage), 1u);
    EXPECT_EQ(file_storage_free_size(&storage), reserve);
    EXPECT_EQ(alloc(200), a); // first fit starts at the bottom again
}

TEST_F(storage_fixture, freeing_neighbours_merges_them) {
    u8 *a = alloc(100), *b = alloc(100), *c = alloc(100);
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(b - a, 128);
    file_storage_free(&storage, b, 100); // no free neighbour: a node of its own
    EXPECT_EQ(file_storage_free_count(&storage), 2u);
    file_storage_free(&storage, a, 100); // merges with b's node
    EXPECT_EQ(file_storage_free_count(&storage), 2u);
    file_storage_free(&storage, c, 100); // joins a+b and the tail
    EXPECT_EQ(file_storage_free_count(&storage), 1u);
    EXPECT_EQ(file_storage_free_size(&storage), reserve);
}

TEST_F(storage_fixture, a_node_between_two_merged_ones_drops_out_with_its_range) {
    u8 *a[6];
    for (auto &p : a) p = alloc(128);
    file_storage_free(&storage, a[1], 128); // own node N1
    file_storage_free(&storage, a[5], 128); // grows the tail down
    file_storage_free(&storage, a[3], 128); // own node N3, at the head: N3, N1, tail
    ASSERT_EQ(file_storage_free_count(&storage), 3u);
    file_storage_free(&storage, a[4], 128); // joins N3 and the tail; N1 stood between
    EXPECT_EQ(file_storage_free_count(&storage), 1u);
    EXPECT_EQ(file_storage_free_size(&storage), reserve - 3 * 128); // a0, a2 and the lost a1
    EXPECT_EQ(alloc(128), a[3]);
}

TEST_F(storage_fixture, unmerged_ranges_go_to_the_head_rounded_up) {
    u8 *a = alloc(300);
    ASSERT_TRUE(a);
    file_storage_free_unmerged(&storage, a, 300);
    EXPECT_EQ(file_storage_free_count(&storage), 2u);
    EXPECT_EQ(storage.free_list->size, 384u);
    EXPECT_EQ(alloc(384), a);
}

TEST_F(storage_fixture, commits_as_it_grows_and_runs_out_with_null) {
    // Ranges past the first committed step are committed on the way.
    u64 piece = 3 * memory_page_size + 1;
    std::vector<u8 *> pieces;
    while (u8 *p = alloc(piece)) {
        memset(p, 0xAB, piece);
        pieces.push_back(p);
        EXPECT_TRUE(file_storage_owns(&storage, p + piece - 1));
    }
    EXPECT_EQ(pieces.size(), reserve / align_up(piece, 128));
    EXPECT_EQ(alloc(1 + file_storage_free_size(&storage)), nullptr);
    int outside = 0;
    EXPECT_FALSE(file_storage_owns(&storage, &outside));
    for (u8 *p : pieces) file_storage_free(&storage, p, piece);
    EXPECT_EQ(file_storage_free_size(&storage), reserve);
    EXPECT_EQ(file_storage_free_count(&storage), 1u);
}

TEST_F(storage_fixture, many_small_strings_reuse_spare_nodes) {
    // Far more frees than the first step of nodes holds, in a scattered order.
    std::vector<u8 *> kept;
    for (int round = 0; round < 50; round++) {
        std::vector<u8 *> taken;
        for (int i = 0; i < 200; i++) {
            taken.push_back(alloc(1 + (i * 37) % 500));
            ASSERT_NE(taken.back(), nullptr);
        }
        for (size_t i = 0; i < taken.size(); i += 2) file_storage_free(&storage, taken[i], 1 + (i * 37) % 500);
        for (size_t i = 1; i < taken.size(); i += 2) file_storage_free_unmerged(&storage, taken[i], 1 + (i * 37) % 500);
    }
    EXPECT_NE(alloc(128), nullptr);
}

} // namespace
