// memory.h - blocks, bump allocation, pools, byte equality and strict
// UTF-8 / UTF-16 coding.
//
// There is no general heap. Every byte lives in a block taken from the
// system by page, in a piece carved from such a block, or in memory the
// caller owns and lends under the same record, data_t.
#pragma once

#include "base/base_core.h"

struct data_t {
    u64 reserved; // capacity in bytes (address-space blocks: reserved range)
    u64 used;     // bytes in use (address-space blocks: bytes committed)
    u8 *bytes;
};

// ---- process-wide memory values (filled by system_info_get) -------------
extern u32 memory_page_size;
extern u32 memory_allocation_granularity;
extern u64 memory_default_alignment;
extern u64 memory_reserved_total;

void system_info_get();

// ---- raw helpers ----------------------------------------------------------
void memory_zero(void *pointer, u64 size);
const void *memory_copy(void *destination, const void *source, u64 size);
u64 align_up(u64 value, u64 alignment);
u64 data_alignment_padding(u64 value, u64 alignment);

// ---- making a data_t -------------------------------------------------------
data_t data_from_range(const u8 *first, const u8 *end);
data_t data_from_pointer(const void *pointer, u64 size);
data_t data_virtual_alloc(u64 size, u64 preferred_address);
void data_virtual_free(data_t *data);
data_t data_address_space_reserve(u64 size, u64 preferred_address);
u8 *data_address_space_commit(data_t *data, u64 size);
void data_address_space_decommit(data_t *data, u64 size);
// A commit of at least this size is taken to be filled soon and is backed
// with large pages where the system can.
constexpr u64 memory_dense_commit = 0x800000;
// Committed memory about to be filled densely: large pages where possible.
void memory_advise_dense(void *address, u64 size);
// The whole pages inside the range give their memory back; they stay
// committed and read as zero.
void memory_discard(void *address, u64 size);

// ---- carving pieces ---------------------------------------------------------
data_t data_block_reserve(data_t *parent, u64 size, u64 alignment);
data_t data_block_reserve_rest(data_t *parent, u64 alignment);
data_t data_block_view_rest(data_t *parent);
data_t data_view_rest(data_t *parent);
void *data_push(data_t *parent, u64 size, u64 alignment);
u8 *data_push_u8(data_t *parent, u8 value);
void *data_push_copy(data_t *parent, const void *source, u64 size, u64 alignment);
void *data_push_data(data_t *parent, const data_t *source, u64 alignment);
void data_pop(data_t *parent, u64 size);
void data_reset(data_t *parent);
u64 data_trim(data_t *block);
u8 *data_end(const data_t *block);

// ---- pool -------------------------------------------------------------------
struct pool_t {
    data_t block;
    u32 *free_indices;
    u8 *entries;
    u32 entry_count;
    u32 max_entry_count;
};

struct pool_iterator_t;
typedef bool pool_is_live_t(void *entry, pool_iterator_t *iterator);

struct pool_iterator_t {
    pool_t *pool;
    u64 entry_size;
    u64 index;
    u64 visited;
    u64 entry_count;
    void *current;
    pool_is_live_t *is_live;
};

typedef bool pool_compact_is_live_t(void *entry, u64 entry_size, u64 index);
typedef void pool_moved_t(void *old_entry, void *new_entry);

u64 pool_size(u64 entry_size, u64 alignment, u32 capacity);
void pool_create_in(pool_t *pool, data_t *parent, u64 entry_size, u64 alignment, u32 capacity);
void pool_create_virtual(pool_t *pool, u64 entry_size, u64 alignment, u32 capacity);
void *pool_take(pool_t *pool, u64 entry_size);
void *pool_entry(pool_t *pool, u64 entry_size, u64 index);
u64 pool_index_of(pool_t *pool, u64 entry_size, const void *pointer);
void pool_release(pool_t *pool, void *pointer, u64 entry_size);
void pool_release_index(pool_t *pool, u32 index);
// The first slot of the run at the end that the pool has not handed out
// since it was made or its stack was last rebuilt: the bottom of the free
// stack still holds those slots in a fresh pool's order. Their bytes are as
// they were then, so a walk for live entries may stop there without touching
// (and so committing) their pages.
u32 pool_untouched_from(const pool_t *pool);
void pool_destroy(pool_t *pool);
void pool_iterator_create(pool_iterator_t *iterator, pool_t *pool, u64 entry_size, pool_is_live_t *is_live);
void *pool_iterator_next(pool_iterator_t *iterator);
// `moved` gets the old place and the new place of each moved entry.
void pool_compact(pool_t *pool, u64 entry_size, pool_compact_is_live_t *is_live, pool_moved_t *moved);

// ---- byte equality ----------------------------------------------------------
bool memory_equal(const void *a, u64 a_size, const void *b, u64 b_size);
bool data_equal(const data_t *a, const data_t *b);

// ---- text coding ------------------------------------------------------------
enum : u32 {
    coding_error_no_input = 1,
    coding_error_cut = 2,
    coding_error_no_room = 3,
    coding_error_not_scalar = 4,
    coding_error_lead_byte = 5,
    coding_error_continuation = 6,
    coding_error_surrogate_pair = 7,
};

constexpr u32 code_point_none = 0xFFFFFFFF;
constexpr u32 code_point_replacement = 0xFFFD;

bool unicode_is_scalar(u32 code_point);
void utf8_decode(const u8 *first, const u8 *end, u32 *code_point, u8 *size, u32 *error);
void utf8_encode(u8 *first, const u8 *end, u32 code_point, u8 *size, u32 *error);
// Decodes a whole range as utf8_decode does, stepping one byte after an
// error: each sequence gives its code point and each byte that starts no
// valid one gives 0xFFFFFFFF. Writes at most `capacity` code points to `out`
// and returns how many; `*next` is where decoding stopped (the end, or the
// start of the first sequence that did not fit). Uses vector instructions
// where the processor has them.
u64 utf8_decode_buffer(const u8 *first, const u8 *end, u32 *out, u64 capacity, const u8 **next);
// The first byte of the range that is not printable ASCII (0x20 to 0x7E), or
// `end`.
const u8 *utf8_skip_printable_ascii(const u8 *first, const u8 *end);
// The same one sequence at a time, without vector instructions: the
// reference the fast path is held to.
u64 utf8_decode_buffer_scalar(const u8 *first, const u8 *end, u32 *out, u64 capacity, const u8 **next);
u64 utf8_last_char_size(const u8 *first, const u8 *end);
void utf16_decode(const u8 *first, const u8 *end, u32 *code_point, u8 *units, bool big_endian, u32 *error);
void utf16_encode(u8 *first, const u8 *end, u32 code_point, u8 *units, bool big_endian, u32 *error);
u64 utf16_to_utf8(const u16 *source, u64 unit_count, u8 *destination, u64 destination_size, u32 *error);
u64 utf8_to_utf16(const u8 *source, u64 size, u16 *destination, u64 destination_size, u32 *error);
