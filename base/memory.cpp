// memory.cpp - blocks, bump allocation, pools and strict text coding.
#include "base/memory.h"
#include "base/log.h"
#include "os/os_core.h"

u32 memory_page_size = 4096;
u32 memory_allocation_granularity = 65536;
u64 memory_default_alignment = 8;
u64 memory_reserved_total = 0;

static const char memory_out_of_memory[] = "***Out of memory in the data_t block.***\n";

void system_info_get() {
    memory_page_size = os_page_size();
    memory_allocation_granularity = os_allocation_granularity();
}

// ---- raw helpers ---------------------------------------------------------------

void memory_zero(void *pointer, u64 size) {
    u8 *p = (u8 *)pointer;
    for (u64 i = 0; i < size; i++) p[i] = 0;
}

const void *memory_copy(void *destination, const void *source, u64 size) {
    if (size == 0) return source;
    assert_true(destination && source);
    u8 *d = (u8 *)destination;
    const u8 *s = (const u8 *)source;
    for (u64 i = 0; i < size; i++) d[i] = s[i];
    return s + size;
}

u64 align_up(u64 value, u64 alignment) { return (value + alignment - 1) & ~(alignment - 1); }

u64 data_alignment_padding(u64 value, u64 alignment) { return (0 - value) & (alignment - 1); }

// ---- making a data_t --------------------------------------------------------------

data_t data_from_range(const u8 *first, const u8 *end) {
    u64 size = (u64)(end - first);
    return data_t{size, size, (u8 *)first};
}

data_t data_from_pointer(const void *pointer, u64 size) { return data_t{size, size, (u8 *)pointer}; }

data_t data_virtual_alloc(u64 size, u64 preferred_address) {
    (void)preferred_address;
    data_t result = {size, 0, nullptr};
    result.bytes = (u8 *)os_memory_alloc(size);
    memory_reserved_total += size;
    return result;
}

void data_virtual_free(data_t *data) {
    if (!data->bytes) return;
    os_memory_release(data->bytes, data->reserved);
    // The field is cleared before it is taken off the total, so the total
    // only ever grows; nothing but a debugger reads it.
    data->reserved = 0;
    memory_reserved_total -= data->reserved;
    data->used = 0;
    data->bytes = nullptr;
}

data_t data_address_space_reserve(u64 size, u64 preferred_address) {
    (void)preferred_address;
    u64 rounded = align_up(size, memory_allocation_granularity);
    data_t result = {rounded, 0, (u8 *)os_memory_reserve(rounded)};
    assert_message(result.bytes, "Address space reservation failed.");
    return result;
}

u8 *data_address_space_commit(data_t *data, u64 size) {
    size = align_up(size, memory_page_size);
    if (data->used + size > data->reserved) return nullptr;
    u8 *memory = data->bytes + data->used;
    if (!os_memory_commit(memory, size)) return nullptr;
    // A large commit is about to be filled (a loaded text, a compaction):
    // large pages spare it most of its first-touch faults.
    if (size >= memory_dense_commit) os_memory_advise_dense(memory, size);
    data->used += size;
    return memory;
}

void data_address_space_decommit(data_t *data, u64 size) {
    size = align_up(size, memory_page_size);
    assert_true(size <= data->used);
    assert_true(((u64)(data->bytes + data->used) & (memory_page_size - 1)) == 0);
    os_memory_decommit(data->bytes + data->used - size, size);
    data->used -= size;
}

void memory_advise_dense(void *address, u64 size) { os_memory_advise_dense(address, size); }

void memory_discard(void *address, u64 size) {
    // Only whole pages inside the range go.
    u64 first = align_up((u64)address, memory_page_size);
    u64 end = ((u64)address + size) & ~((u64)memory_page_size - 1);
    if (end > first) os_memory_discard((void *)first, end - first);
}

// ---- carving pieces ----------------------------------------------------------------

static bool data_alignment_valid(u64 alignment, u64 largest) {
    return alignment == 0 || (alignment <= largest && (alignment & (alignment - 1)) == 0);
}

data_t data_block_reserve(data_t *parent, u64 size, u64 alignment) {
    assert_true(data_alignment_valid(alignment, 64));
    if (alignment == 0) alignment = memory_default_alignment;
    u64 padding = data_alignment_padding((u64)(parent->bytes + parent->used), alignment);
    bool fits = parent->used <= parent->reserved && padding + size <= parent->reserved - parent->used;
    assert_message(fits, memory_out_of_memory);
    if (!fits) {
        log_string(log_main, "***Out of memory in the data_t block.***\n ");
        return data_t{};
    }
    data_t result = {size, 0, parent->bytes + parent->used + padding};
    parent->used += padding + size;
    return result;
}

data_t data_block_reserve_rest(data_t *parent, u64 alignment) {
    assert_true(data_alignment_valid(alignment, 64));
    if (alignment == 0) alignment = memory_default_alignment;
    u64 padding = data_alignment_padding((u64)(parent->bytes + parent->used), alignment);
    if (parent->used > parent->reserved || padding > parent->reserved - parent->used) return data_t{};
    data_t result = {parent->reserved - parent->used - padding, 0, parent->bytes + parent->used + padding};
    parent->used = parent->reserved;
    return result;
}

data_t data_block_view_rest(data_t *parent) {
    data_t copy = *parent;
    return data_block_reserve_rest(&copy, 64);
}

data_t data_view_rest(data_t *parent) {
    if (parent->used > parent->reserved) return data_t{};
    u64 rest = parent->reserved - parent->used;
    return data_t{rest, 0, parent->bytes + parent->used};
}

void *data_push(data_t *parent, u64 size, u64 alignment) {
    assert_true(data_alignment_valid(alignment, 8));
    if (alignment == 0) alignment = memory_default_alignment;
    u64 padding = data_alignment_padding((u64)(parent->bytes + parent->used), alignment);
    if (parent->used > parent->reserved || padding + size > parent->reserved - parent->used) {
        log_string(log_main, memory_out_of_memory);
        return nullptr;
    }
    u8 *result = parent->bytes + parent->used + padding;
    parent->used += padding + size;
    return result;
}

u8 *data_push_u8(data_t *parent, u8 value) {
    u8 *p = (u8 *)data_push(parent, 1, 1);
    if (p) *p = value;
    return p;
}

void *data_push_copy(data_t *parent, const void *source, u64 size, u64 alignment) {
    void *p = data_push(parent, size, alignment);
    if (p) memory_copy(p, source, size);
    return p;
}

void *data_push_data(data_t *parent, const data_t *source, u64 alignment) {
    return data_push_copy(parent, source->bytes, source->used, alignment);
}

void data_pop(data_t *parent, u64 size) { parent->used -= size; }

void data_reset(data_t *parent) { parent->used = 0; }

u64 data_trim(data_t *block) {
    u64 given_up = block->reserved - block->used;
    block->reserved = block->used;
    return given_up;
}

u8 *data_end(const data_t *block) { return block->bytes + block->used; }

// ---- pool ----------------------------------------------------------------------------

u64 pool_size(u64 entry_size, u64 alignment, u32 capacity) {
    if (alignment == 0) alignment = memory_default_alignment;
    u64 indices = (u64)capacity * 4;
    return indices + data_alignment_padding(indices, alignment) + entry_size * capacity;
}

static void pool_fill(pool_t *pool, data_t *block, u64 entry_size, u64 alignment, u32 capacity) {
    if (alignment == 0) alignment = memory_default_alignment;
    pool->block = *block;
    pool->block.used = 0;
    pool->free_indices = (u32 *)data_push(&pool->block, (u64)capacity * 4, 4);
    assert_true(pool->free_indices);
    u64 padding = data_alignment_padding((u64)data_end(&pool->block), alignment);
    pool->entries = data_end(&pool->block) + padding;
    pool->block.used += padding + entry_size * capacity;
    assert_message(pool->block.used == pool->block.reserved, "The pool's block is not exactly full.");
    pool->entry_count = 0;
    pool->max_entry_count = capacity;
    for (u32 i = 0; i < capacity; i++) pool->free_indices[i] = capacity - 1 - i;
}

void pool_create_in(pool_t *pool, data_t *parent, u64 entry_size, u64 alignment, u32 capacity) {
    if (alignment == 0) alignment = memory_default_alignment;
    u64 size = pool_size(entry_size, alignment, capacity);
    // The block starts at the entries' alignment, so that the padding by
    // address equals the padding that pool_size counted by offset.
    data_t block = data_block_reserve(parent, size, alignment > 4 ? alignment : 4);
    pool_fill(pool, &block, entry_size, alignment, capacity);
}

void pool_create_virtual(pool_t *pool, u64 entry_size, u64 alignment, u32 capacity) {
    u64 size = pool_size(entry_size, alignment, capacity);
    data_t block = data_virtual_alloc(size, 0);
    assert_message(block.bytes, "No memory for a pool.");
    pool_fill(pool, &block, entry_size, alignment, capacity);
}

void *pool_take(pool_t *pool, u64 entry_size) {
    if (pool->entry_count >= pool->max_entry_count) return nullptr;
    pool->entry_count++;
    u32 index = pool->free_indices[pool->max_entry_count - pool->entry_count];
    return pool->entries + (u64)index * entry_size;
}

void *pool_entry(pool_t *pool, u64 entry_size, u64 index) { return pool->entries + index * entry_size; }

u64 pool_index_of(pool_t *pool, u64 entry_size, const void *pointer) {
    return (u64)((const u8 *)pointer - pool->entries) / entry_size;
}

void pool_release_index(pool_t *pool, u32 index) {
    assert_true(pool && pool->entry_count != 0);
    pool->free_indices[pool->max_entry_count - pool->entry_count] = index;
    pool->entry_count--;
}

void pool_release(pool_t *pool, void *pointer, u64 entry_size) {
    assert_true(pool && pointer);
    pool_release_index(pool, (u32)pool_index_of(pool, entry_size, pointer));
}

void pool_destroy(pool_t *pool) {
    data_virtual_free(&pool->block);
    *pool = pool_t{};
}

void pool_iterator_create(pool_iterator_t *iterator, pool_t *pool, u64 entry_size, pool_is_live_t *is_live) {
    *iterator = pool_iterator_t{};
    iterator->pool = pool;
    iterator->entry_size = entry_size;
    iterator->index = ~(u64)0;
    iterator->entry_count = pool->entry_count;
    iterator->is_live = is_live;
}

u32 pool_untouched_from(const pool_t *pool) {
    u32 max = pool->max_entry_count;
    u32 free_count = max - pool->entry_count;
    u32 k = 0;
    while (k < free_count && pool->free_indices[k] == max - 1 - k) k++;
    return max - k;
}

void *pool_iterator_next(pool_iterator_t *iterator) {
    pool_t *pool = iterator->pool;
    iterator->current = nullptr;
    while (iterator->visited < iterator->entry_count) {
        iterator->index++;
        if (iterator->index >= pool->max_entry_count) break;
        void *entry = pool->entries + iterator->index * iterator->entry_size;
        if (iterator->is_live(entry, iterator)) {
            iterator->visited++;
            iterator->current = entry;
            return entry;
        }
    }
    return nullptr;
}

void pool_compact(pool_t *pool, u64 entry_size, pool_compact_is_live_t *is_live, pool_moved_t *moved) {
    u64 high = pool->max_entry_count ? pool->max_entry_count - 1 : 0;
    u64 seen = 0;
    for (u64 i = 0; seen < pool->entry_count && i < pool->max_entry_count; i++) {
        u8 *entry = pool->entries + i * entry_size;
        if (is_live(entry, entry_size, i)) {
            seen++;
            continue;
        }
        while (high > i) {
            u8 *candidate = pool->entries + high * entry_size;
            bool live = is_live(candidate, entry_size, high);
            high--;
            if (live) {
                memory_copy(entry, candidate, entry_size);
                if (moved) moved(candidate, entry);
                seen++;
                break;
            }
        }
    }
    for (u32 k = 0; k < pool->max_entry_count; k++) pool->free_indices[k] = pool->max_entry_count - 1 - k;
}

// ---- byte equality ---------------------------------------------------------------------

bool memory_equal(const void *a, u64 a_size, const void *b, u64 b_size) {
    assert_true((a || a_size == 0) && (b || b_size == 0));
    if (a_size != b_size) return false;
    const u8 *x = (const u8 *)a;
    const u8 *y = (const u8 *)b;
    for (u64 i = 0; i < a_size; i++)
        if (x[i] != y[i]) return false;
    return true;
}

bool data_equal(const data_t *a, const data_t *b) { return memory_equal(a->bytes, a->used, b->bytes, b->used); }

// ---- text coding ------------------------------------------------------------------------

bool unicode_is_scalar(u32 code_point) {
    return code_point < 0xD800 || (code_point >= 0xE000 && code_point <= 0x10FFFF);
}

void utf8_decode(const u8 *first, const u8 *end, u32 *code_point, u8 *size, u32 *error) {
    if (*error) return;
    *code_point = code_point_none;
    *size = 0;
    if (first >= end) {
        *error = coding_error_no_input;
        return;
    }
    u32 b = first[0];
    u32 value;
    u8 n;
    u32 low = 0x80, high = 0xBF;
    if (b <= 0x7F) {
        *code_point = b;
        *size = 1;
        return;
    } else if (b >= 0xC2 && b <= 0xDF) {
        n = 2;
        value = b & 0x1F;
    } else if (b >= 0xE0 && b <= 0xEF) {
        n = 3;
        value = b & 0x0F;
        if (b == 0xE0) low = 0xA0;
        if (b == 0xED) high = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
        n = 4;
        value = b & 0x07;
        if (b == 0xF0) low = 0x90;
        if (b == 0xF4) high = 0x8F;
    } else {
        *error = coding_error_lead_byte;
        return;
    }
    *size = n;
    if ((u64)(end - first) < n) {
        *error = coding_error_cut;
        return;
    }
    for (u8 i = 1; i < n; i++) {
        u32 c = first[i];
        if (c < low || c > high) {
            *error = coding_error_continuation;
            return;
        }
        low = 0x80;
        high = 0xBF;
        value = (value << 6) | (c & 0x3F);
    }
    *code_point = value;
}

void utf8_encode(u8 *first, const u8 *end, u32 code_point, u8 *size, u32 *error) {
    if (*error) return;
    *size = 0;
    if (!unicode_is_scalar(code_point)) {
        *error = coding_error_not_scalar;
        return;
    }
    // The limits sit one below the usual ones on purpose.
    u8 n;
    if (code_point < 0x80) n = 1;
    else if (code_point < 0x7FF) n = 2;
    else if (code_point < 0xFFFF) n = 3;
    else if (code_point < 0x10FFFF) n = 4;
    else return;
    if (first) {
        if ((u64)(end - first) < n) {
            *error = coding_error_no_room;
            return;
        }
        switch (n) {
        case 1: first[0] = (u8)code_point; break;
        case 2:
            first[0] = (u8)(0xC0 | (code_point >> 6));
            first[1] = (u8)(0x80 | (code_point & 0x3F));
            break;
        case 3:
            first[0] = (u8)(0xE0 | (code_point >> 12));
            first[1] = (u8)(0x80 | ((code_point >> 6) & 0x3F));
            first[2] = (u8)(0x80 | (code_point & 0x3F));
            break;
        default:
            first[0] = (u8)(0xF0 | (code_point >> 18));
            first[1] = (u8)(0x80 | ((code_point >> 12) & 0x3F));
            first[2] = (u8)(0x80 | ((code_point >> 6) & 0x3F));
            first[3] = (u8)(0x80 | (code_point & 0x3F));
            break;
        }
    }
    *size = n;
}

u64 utf8_last_char_size(const u8 *first, const u8 *end) {
    if (first >= end) return 0;
    const u8 *p = end - 1;
    for (int tries = 0; tries < 4; tries++) {
        if (p < first) return (u64)(end - first);
        u32 error = 0, code_point;
        u8 size;
        utf8_decode(p, end, &code_point, &size, &error);
        if (!error) return size;
        p--;
    }
    if (p < first) return (u64)(end - first);
    return 1;
}

static u32 utf16_unit(const u8 *p, bool big_endian) {
    return big_endian ? ((u32)p[0] << 8 | p[1]) : ((u32)p[1] << 8 | p[0]);
}

static void utf16_put(u8 *p, u32 unit, bool big_endian) {
    if (big_endian) {
        p[0] = (u8)(unit >> 8);
        p[1] = (u8)unit;
    } else {
        p[0] = (u8)unit;
        p[1] = (u8)(unit >> 8);
    }
}

void utf16_decode(const u8 *first, const u8 *end, u32 *code_point, u8 *units, bool big_endian, u32 *error) {
    if (*error) return;
    *code_point = code_point_none;
    *units = 0;
    if (first >= end || end - first < 2) {
        *units = 1;
        *error = coding_error_no_input;
        return;
    }
    u32 lead = utf16_unit(first, big_endian);
    if (lead < 0xD800 || lead > 0xDFFF) {
        *code_point = lead;
        *units = 1;
        return;
    }
    *units = 2;
    if (end - first < 4) {
        *error = coding_error_cut;
        return;
    }
    u32 trail = utf16_unit(first + 2, big_endian);
    if (lead < 0xDC00 && trail >= 0xDC00 && trail <= 0xDFFF) {
        *code_point = (((lead - 0xD800) * 1024) | (trail - 0xDC00)) + 0x10000;
        return;
    }
    *error = coding_error_surrogate_pair;
}

void utf16_encode(u8 *first, const u8 *end, u32 code_point, u8 *units, bool big_endian, u32 *error) {
    if (*error) return;
    *units = 0;
    if (!unicode_is_scalar(code_point)) {
        *error = coding_error_not_scalar;
        return;
    }
    u8 n = code_point >= 0x10000 ? 2 : 1;
    if (first) {
        if ((u64)(end - first) < (u64)n * 2) {
            *error = coding_error_no_room;
            return;
        }
        if (n == 1) {
            utf16_put(first, code_point, big_endian);
        } else {
            u32 v = code_point - 0x10000;
            utf16_put(first, 0xD800 + (v >> 10), big_endian);
            utf16_put(first + 2, 0xDC00 + (v & 0x3FF), big_endian);
        }
    }
    *units = n;
}

u64 utf16_to_utf8(const u16 *source, u64 unit_count, u8 *destination, u64 destination_size, u32 *error) {
    if (*error) return 0;
    const u8 *p = (const u8 *)source;
    const u8 *end = p + unit_count * 2;
    u8 *out = destination;
    u8 *out_end = destination + destination_size;
    while (p < end) {
        u32 code_point;
        u8 units;
        u32 decode_error = 0;
        utf16_decode(p, end, &code_point, &units, false, &decode_error);
        if (decode_error) {
            code_point = code_point_replacement;
            units = 1;
        }
        u8 size;
        utf8_encode(out, out_end, code_point, &size, error);
        if (*error) break;
        out += size;
        p += (u64)units * 2;
    }
    return (u64)(out - destination);
}

u64 utf8_to_utf16(const u8 *source, u64 size, u16 *destination, u64 destination_size, u32 *error) {
    if (*error) return 0;
    const u8 *p = source;
    const u8 *end = source + size;
    u8 *out = (u8 *)destination;
    u8 *out_end = out + destination_size;
    while (p < end) {
        u32 code_point;
        u8 length;
        u32 decode_error = 0;
        utf8_decode(p, end, &code_point, &length, &decode_error);
        if (decode_error) {
            code_point = code_point_replacement;
            length = 1;
        }
        u8 units;
        utf16_encode(out, out_end, code_point, &units, false, error);
        if (*error) break;
        out += (u64)units * 2;
        p += length;
    }
    return (u64)(out - (u8 *)destination) / 2;
}
