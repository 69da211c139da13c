// fuzz_feed - any bytes as a fetched feed document, parsed into an empty
// reader, then parsed again into the feed it made (the stored-feed road:
// thresholds, refusals with their rollback, twins by guid, re-read links).
// The reader's counts must agree afterwards, and a document that made no
// feed must have left nothing behind.
//
// One reader serves every input and is reset between them: a fresh one costs
// page faults and scans of its full-size pools that would dwarf the parse.
#include <stdlib.h>
#include <string.h>

#include "feed/feed.h"
#include "reader/reader_internal.h"

static data_t frame_memory;
static u32 *code_point_array;
static reader_t reader;
static code_point_list_t code_points;
static u32 fresh_free_stack[reader_entry_capacity];

// The slots below which a pool's records in use must lie. Slots are handed
// out from the free stack, which a reset leaves as n - 1 down to 0; the part
// of the free list that still reads so (from the bottom) holds the highest
// slots, never taken since the reset. Found by halving with memcmp: a walk
// of every slot of the full-size pools would cost more than the parse.
static u32 fuzz_slots_touched(const pool_t *pool) {
    u32 capacity = pool->max_entry_count;
    const u32 *fresh = fresh_free_stack + (reader_entry_capacity - capacity);
    u32 low = 0, high = capacity - pool->entry_count; // the fresh prefix is at least low, at most high
    while (low < high) {
        u32 middle = low + (high - low + 1) / 2;
        if (memcmp(pool->free_indices, fresh, (u64)middle * 4) == 0) low = middle;
        else high = middle - 1;
    }
    return capacity - low;
}

// The reader's own audit, but each pool's count is checked over the slots
// that can be in use instead of all of them.
static bool fuzz_audit(reader_t *reader) {
    struct {
        pool_t *pool;
        u64 size;
        bool (*live)(void *, pool_iterator_t *);
    } pools[7] = {{&reader->feeds, sizeof(feed_t), reader_pool_live_feed},
                  {&reader->entries, sizeof(entry_t), reader_pool_live_entry},
                  {&reader->categories, sizeof(category_t), reader_pool_live_category},
                  {&reader->persons, sizeof(person_t), reader_pool_live_person},
                  {&reader->atom_links, sizeof(atom_link_t), reader_pool_live_atom_link},
                  {&reader->links, sizeof(link_t), reader_pool_live_link},
                  {&reader->metas, sizeof(meta_t), reader_pool_live_meta}};
    for (auto &p : pools) {
        u32 touched = fuzz_slots_touched(p.pool), live = 0;
        for (u32 i = 0; i < touched; i++) live += p.live(p.pool->entries + (u64)i * p.size, nullptr);
        if (live != p.pool->entry_count) return false;
    }
    return reader->metas.entry_count == reader->feeds.entry_count && reader_audit_relations(reader) == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (!frame_memory.bytes) {
        system_info_get();
        frame_memory = data_virtual_alloc(0xA00000, 0);
        code_point_array = (u32 *)malloc((u64)code_point_list_capacity * sizeof(u32));
        reader_init(&reader);
        for (u32 i = 0; i < reader_entry_capacity; i++) fresh_free_stack[i] = reader_entry_capacity - 1 - i;
    } else {
        reader_reset(&reader);
    }
    code_point_list_init(&code_points, code_point_array, code_point_list_capacity);
    reader.code_points = &code_points;
    reader.generation = 1;

    data_t document = {size, size, (u8 *)bytes};
    data_t url = data_literal("https://fuzz.example/feed");
    frame_memory.used = 0;
    feed_t *feed = feed_parse(&frame_memory, &reader, &document, &url, nullptr);
    if (frame_memory.used != 0) abort();
    if (!feed) {
        if (reader.feeds.entry_count || reader.entries.entry_count || reader.text.used) abort();
        if (code_points.count != code_point_list_start_count) abort();
    } else {
        reader_new_meta(&reader, feed);
        reader.generation = 2;
        if (feed_parse(&frame_memory, &reader, &document, &url, feed) != feed) abort();
        if (!fuzz_audit(&reader)) abort();
    }
    return 0;
}
