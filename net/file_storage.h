// file_storage.h - a first-fit allocator of small long-lived strings: query
// addresses, queued links, edited link configurations. They outlive a frame
// but not a run.
//
// Main thread only: workers read strings that were allocated before their job
// was queued, and never allocate or free.
#pragma once

#include "base/memory.h"

// One free range. Nodes live in a block of their own, one node for each unit
// of the reserve at most, so taking a node never fails.
struct file_storage_node_t {
    u64 size;
    u64 address;
    file_storage_node_t *next;
};
static_assert(sizeof(file_storage_node_t) == 24);

struct file_storage_t {
    data_t memory;      // reserved: the whole range; used: bytes committed
    data_t node_memory; // reserved for one node a unit; used: bytes committed
    data_t nodes;       // over the committed part of node_memory; nodes are pushed to it
    file_storage_node_t *free_list;   // free ranges, in no address order
    file_storage_node_t *spare_nodes; // nodes out of use
    u64 unit;        // every allocation is a multiple of this
    u64 commit_step; // memory is committed this much at a time
};

// The sizes the program uses: 100 MB reserved, 1 MB committed at a time,
// 128-byte units.
constexpr u64 file_storage_reserve_size = 0x6400000;
constexpr u64 file_storage_commit_step = 0x100000;
constexpr u64 file_storage_unit = 128;

// Reserves the range and commits the first step. The reserve must be a
// multiple of the allocation granularity and of `unit`, the step a multiple of
// the page size and of `unit` (asserted).
void file_storage_init(file_storage_t *storage, u64 reserve_size, u64 commit_step, u64 unit);
// The first free range that holds `size` bytes gives its start; the size is
// rounded up to the unit. Null when no free range is large enough.
void *file_storage_alloc(file_storage_t *storage, u64 size);
// Gives a range back, merged with the free ranges that touch it. Ranges that
// stood between the two merged ones in the list drop out of it for the rest of
// the run; the storage serves few and small strings, so that is accepted.
void file_storage_free(file_storage_t *storage, void *address, u64 size);
// Gives a range back as a free range of its own, without merging.
void file_storage_free_unmerged(file_storage_t *storage, void *address, u64 size);
// Whether the address lies in the committed part of the storage.
bool file_storage_owns(const file_storage_t *storage, const void *address);
// Bytes in the free list (for tests and the log).
u64 file_storage_free_size(const file_storage_t *storage);
u32 file_storage_free_count(const file_storage_t *storage);
