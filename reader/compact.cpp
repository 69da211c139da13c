// compact.cpp - tidying the reader before a save (strings into a fresh text
// area, dense ids and generations, the code point list cut to what the text
// uses) and the audit that checks every count and relation.
#include "base/log.h"
#include "reader/reader.h"
#include "reader/reader_internal.h"

// The offsets of the string fields of each record layout, in record order,
// from the lists of reader_fields.h.
#define READER_STRING_string(type, field) (u16) offsetof(type, field),
#define READER_STRING_date(type, field)
#define READER_STRING_u32(type, field)
#define READER_STRING_u64(type, field)
#define READER_STRING_unused(type, field)
#define READER_STRING_hours(type, field)
#define READER_STRING_days(type, field)
#define READER_FEED_STRING(kind, name) READER_STRING_##kind(feed_t, name)
#define READER_FEED_RSS_STRING(kind, name) READER_STRING_##kind(feed_t, rss.name)
#define READER_FEED_ATOM_STRING(kind, name) READER_STRING_##kind(feed_t, atom.name)
#define READER_ENTRY_STRING(kind, name) READER_STRING_##kind(entry_t, name)
#define READER_ENTRY_RSS_STRING(kind, name) READER_STRING_##kind(entry_t, rss.name)
#define READER_ENTRY_ATOM_STRING(kind, name) READER_STRING_##kind(entry_t, atom.name)
#define READER_CATEGORY_STRING(kind, name) READER_STRING_##kind(category_t, name)
#define READER_PERSON_STRING(kind, name) READER_STRING_##kind(person_t, name)
#define READER_ATOM_LINK_STRING(kind, name) READER_STRING_##kind(atom_link_t, name)
#define READER_LINK_CONFIGURATION_STRING(kind, name) READER_STRING_##kind(link_configuration_t, name)

static const u16 reader_strings_feed_rss[] = {
    READER_FEED_FIELDS(READER_FEED_STRING) READER_FEED_RSS_FIELDS(READER_FEED_RSS_STRING)};
static const u16 reader_strings_feed_atom[] = {
    READER_FEED_FIELDS(READER_FEED_STRING) READER_FEED_ATOM_FIELDS(READER_FEED_ATOM_STRING)};
static const u16 reader_strings_entry_rss[] = {
    READER_ENTRY_FIELDS(READER_ENTRY_STRING) READER_ENTRY_RSS_FIELDS(READER_ENTRY_RSS_STRING)};
static const u16 reader_strings_entry_atom[] = {
    READER_ENTRY_FIELDS(READER_ENTRY_STRING) READER_ENTRY_ATOM_FIELDS(READER_ENTRY_ATOM_STRING)};
static const u16 reader_strings_category[] = {READER_CATEGORY_FIELDS(READER_CATEGORY_STRING)};
static const u16 reader_strings_person[] = {READER_PERSON_FIELDS(READER_PERSON_STRING)};
static const u16 reader_strings_atom_link[] = {READER_ATOM_LINK_FIELDS(READER_ATOM_LINK_STRING)};
static const u16 reader_strings_link_configuration[] = {
    READER_LINK_CONFIGURATION_FIELDS(READER_LINK_CONFIGURATION_STRING)};

#define READER_VISIT(record, table) reader_visit_fields(record, table, array_count(table), visit, context)

static bool reader_visit_fields(u8 *record, const u16 *offsets, u32 count, reader_string_visit_t *visit,
                                void *context) {
    for (u32 i = 0; i < count; i++)
        if (!visit(context, (data_t *)(record + offsets[i]))) return false;
    return true;
}

// One group of the order of the file: 0 the feeds, 1 the entries, 2 the
// categories, persons and atom links. `first` and `end` bound the records of
// the group's pool (group 1 only; the others take all of theirs).
static bool reader_visit_group(reader_t *reader, u32 group, u32 first, u32 end, reader_string_visit_t *visit,
                               void *context, bool *bad_feed, bool *bad_entry) {
    if (group == 0) {
        for (u32 i = 0; i < reader->feeds.entry_count; i++) {
            u8 *record = (u8 *)pool_entry(&reader->feeds, sizeof(feed_t), i);
            switch (feed_get_type((feed_t *)record)) {
            case reader_type_rss:
                if (!READER_VISIT(record, reader_strings_feed_rss)) return false;
                break;
            case reader_type_atom:
                if (!READER_VISIT(record, reader_strings_feed_atom)) return false;
                break;
            default: *bad_feed = true; return false;
            }
        }
        return true;
    }
    if (group == 1) {
        for (u32 i = first; i < end; i++) {
            u8 *record = (u8 *)pool_entry(&reader->entries, sizeof(entry_t), i);
            switch (entry_get_type((entry_t *)record)) {
            case reader_type_rss:
                if (!READER_VISIT(record, reader_strings_entry_rss)) return false;
                break;
            case reader_type_atom:
                if (!READER_VISIT(record, reader_strings_entry_atom)) return false;
                break;
            default: *bad_entry = true; return false;
            }
        }
        return true;
    }
    for (u32 i = 0; i < reader->categories.entry_count; i++) {
        u8 *record = (u8 *)pool_entry(&reader->categories, sizeof(category_t), i);
        if (!READER_VISIT(record, reader_strings_category)) return false;
    }
    for (u32 i = 0; i < reader->persons.entry_count; i++) {
        u8 *record = (u8 *)pool_entry(&reader->persons, sizeof(person_t), i);
        if (!READER_VISIT(record, reader_strings_person)) return false;
    }
    for (u32 i = 0; i < reader->atom_links.entry_count; i++) {
        u8 *record = (u8 *)pool_entry(&reader->atom_links, sizeof(atom_link_t), i);
        if (!READER_VISIT(record, reader_strings_atom_link)) return false;
    }
    return true;
}

bool reader_visit_strings(reader_t *reader, reader_string_visit_t *visit, void *context, bool *bad_feed,
                          bool *bad_entry) {
    u32 entries = reader->entries.entry_count;
    for (u32 group = 0; group < 3; group++)
        if (!reader_visit_group(reader, group, 0, entries, visit, context, bad_feed, bad_entry)) return false;
    return true;
}

bool reader_visit_configurations(reader_t *reader, reader_string_visit_t *visit, void *context) {
    for (link_configuration_t &configuration : reader->link_configurations)
        if (!READER_VISIT((u8 *)&configuration, reader_strings_link_configuration)) return false;
    return true;
}

static void reader_stop_on_wrong_type(bool bad_feed, bool bad_entry) {
    if (bad_feed) {
        log_string(log_main, "Wrong feed type.\n");
        assert_message(false, "Wrong feed type.");
    }
    if (bad_entry) {
        log_string(log_main, "Wrong entry type.\n");
        assert_message(false, "Wrong entry type.");
    }
}

// ---- compaction ----------------------------------------------------------------------

// Appends the field's bytes to the text and leaves their offset in its place.
static bool reader_compact_field(void *context, data_t *field) {
    reader_t *reader = (reader_t *)context;
    u64 size = field->used;
    bool fits = reader_text_reserve(reader, reader->text.used + size);
    assert_message(fits, "The reader's text area is full.");
    u64 offset = reader->text.used;
    // In place, a string often stands where it goes already.
    if (size && reader->text.bytes + offset != field->bytes) memory_copy(reader->text.bytes + offset, field->bytes, size);
    reader->text.used += size;
    field->reserved = size;
    field->bytes = (u8 *)(uintptr_t)offset;
    return true;
}

// Whether the strings can be packed inside the text they lie in: taken in
// the order of compaction, each string that lies in the text must start no
// earlier than where it goes, so that no string is overwritten before it
// has moved (each moves down or stays). A reader as a load left it, or with
// new strings only behind the old ones, packs in place.
struct reader_in_place_t {
    const u8 *first;
    u64 committed;
    u64 offset;
    bool possible;
};

static bool reader_in_place_field(void *context, data_t *field) {
    reader_in_place_t *check = (reader_in_place_t *)context;
    u64 size = field->used;
    if (size && field->bytes >= check->first && field->bytes < check->first + check->committed &&
        (u64)(field->bytes - check->first) < check->offset)
        check->possible = false;
    check->offset += size;
    return check->possible;
}

static bool reader_compact_in_place(reader_t *reader) {
    reader_in_place_t check = {reader->text.bytes, reader->text.reserved, 0, true};
    bool bad_feed = false, bad_entry = false;
    reader_visit_strings(reader, reader_in_place_field, &check, &bad_feed, &bad_entry);
    if (check.possible) reader_visit_configurations(reader, reader_in_place_field, &check);
    return check.possible && !bad_feed && !bad_entry && check.offset <= reader->text.reserved;
}

// Link configuration strings come home from the file storage if they were
// edited, and go back there no more.
struct reader_home_t {
    reader_t *reader;
    const u8 *old_first; // the old text block
    const u8 *old_end;
};

static bool reader_home_field(void *context, data_t *field) {
    reader_home_t *home = (reader_home_t *)context;
    u8 *old_bytes = field->bytes;
    u64 old_reserved = field->reserved;
    field->reserved = field->used;
    reader_compact_field(home->reader, field);
    bool in_text = old_bytes >= home->old_first && old_bytes < home->old_end;
    if (old_bytes && !in_text && home->reader->text_release)
        home->reader->text_release(home->reader->text_release_context, old_bytes, old_reserved);
    return true;
}

static void reader_compact_configurations(reader_t *reader, const data_t *old_block) {
    reader_home_t home = {reader, old_block->bytes, old_block->bytes + old_block->reserved};
    reader_visit_configurations(reader, reader_home_field, &home);
}

struct reader_string_span_t {
    const u8 *first; // the old text
    u64 size;
    u64 total;  // bytes of the strings seen
    u32 lowest; // the lowest offset in the old text among them
};

static bool reader_span_field(void *context, data_t *field) {
    reader_string_span_t *span = (reader_string_span_t *)context;
    span->total += field->used;
    if (field->used && field->bytes >= span->first && field->bytes < span->first + span->size) {
        u32 offset = (u32)(field->bytes - span->first);
        if (offset < span->lowest) span->lowest = offset;
    }
    return true;
}

// Compaction into the spare block, in an order that lets the old text go
// while the new one fills, so that the two are never both whole in memory:
// the categories, persons, atom links and link configurations first, at
// their places behind the feeds and entries, then the feeds, then the
// entries in slot order. Behind each entry, the old pages that no entry still
// to come reads from are given back. The strings land where the order of
// the file puts them, as if appended one after another.
static void reader_compact_staged(reader_t *reader, const data_t *old_block, u64 old_size) {
    bool bad_feed = false, bad_entry = false;
    u32 entries = reader->entries.entry_count;
    reader_string_span_t span = {old_block->bytes, old_size, 0, 0xFFFFFFFF};
    reader_visit_group(reader, 0, 0, entries, reader_span_field, &span, &bad_feed, &bad_entry);
    reader_visit_group(reader, 1, 0, entries, reader_span_field, &span, &bad_feed, &bad_entry);
    reader_stop_on_wrong_type(bad_feed, bad_entry);

    reader->text.used = span.total;
    reader_visit_group(reader, 2, 0, entries, reader_compact_field, reader, &bad_feed, &bad_entry);
    reader_compact_configurations(reader, old_block);
    u64 end = reader->text.used;
    reader->text.used = 0;
    reader_visit_group(reader, 0, 0, entries, reader_compact_field, reader, &bad_feed, &bad_entry);

    // For each entry, the lowest old offset that it or any later entry reads.
    u32 *lowest = reader_scratch.slots;
    u32 below = (u32)old_size;
    for (u32 i = entries; i-- > 0;) {
        reader_string_span_t own = {old_block->bytes, old_size, 0, 0xFFFFFFFF};
        reader_visit_group(reader, 1, i, i + 1, reader_span_field, &own, &bad_feed, &bad_entry);
        if (own.lowest < below) below = own.lowest;
        lowest[i] = below;
    }
    const u64 page_mask = ~((u64)memory_page_size - 1);
    u64 released = 0;
    for (u32 i = 0; i < entries; i++) {
        reader_visit_group(reader, 1, i, i + 1, reader_compact_field, reader, &bad_feed, &bad_entry);
        u64 free_below = (i + 1 < entries ? lowest[i + 1] : old_size) & page_mask;
        if (free_below >= released + 0x40000) {
            memory_discard(old_block->bytes + released, free_below - released);
            released = free_below;
        }
    }
    reader->text.used = end;
}

void reader_compact(reader_t *reader) {
    u64 old_size = reader->text.used;
    bool in_place = reader_compact_in_place(reader);
    data_t old_block = reader->text_block;
    if (!in_place) {
        reader->text_block = reader->text_block_spare;
        reader->text_block_spare = old_block;
        if (reader->text_block.used < reader->text.reserved) {
            u8 *memory =
                data_address_space_commit(&reader->text_block, reader->text.reserved - reader->text_block.used);
            assert_message(memory, "No memory to compact the reader's text.");
        }
    }
    reader->text = data_t{reader->text_block.used, 0, reader->text_block.bytes};

    if (in_place) {
        bool bad_feed = false, bad_entry = false;
        reader_visit_strings(reader, reader_compact_field, reader, &bad_feed, &bad_entry);
        reader_stop_on_wrong_type(bad_feed, bad_entry);
        reader_compact_configurations(reader, &old_block);
    } else {
        reader_compact_staged(reader, &old_block, old_size);
    }

    for (u32 i = 0; i < reader->metas.entry_count; i++) {
        meta_t *meta = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        u64 index = (u64)(meta->link_configuration - reader->link_configurations);
        assert_message(meta->link_configuration >= reader->link_configurations &&
                           index < reader_link_configuration_count,
                       "A meta record points outside the link configurations.");
        meta->link_configuration_index = index;
    }

    if (in_place) memory_discard(reader->text.bytes + reader->text.used, old_size - reader->text.used);
    else if (reader->text_block_spare.used)
        data_address_space_decommit(&reader->text_block_spare, reader->text_block_spare.used);

    u64 new_size = reader->text.used;
    log_string(log_main, "compact_memory diff: ");
    log_number(log_main, old_size);
    log_string(log_main, " - ");
    log_number(log_main, new_size);
    log_string(log_main, " = ");
    log_number_signed(log_main, (i64)old_size - (i64)new_size);
    log_string(log_main, "\n");
}

static bool reader_rebase_field(void *context, data_t *field) {
    reader_t *reader = (reader_t *)context;
    field->bytes = reader->text.bytes + (u64)(uintptr_t)field->bytes;
    return true;
}

void reader_rebase(reader_t *reader) {
    bool bad_feed = false, bad_entry = false;
    reader_visit_strings(reader, reader_rebase_field, reader, &bad_feed, &bad_entry);
    reader_stop_on_wrong_type(bad_feed, bad_entry);
    reader_visit_configurations(reader, reader_rebase_field, reader);
    for (u32 i = 0; i < reader->metas.entry_count; i++) {
        meta_t *meta = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        u64 index = meta->link_configuration_index;
        assert_message(index < reader_link_configuration_count, "A meta record's link configuration is not 0 to 9.");
        meta->link_configuration = &reader->link_configurations[index];
    }
}

// ---- renumbering ------------------------------------------------------------------------

void reader_renumber_generations(reader_t *reader, data_t *frame_memory) {
    // The table spans the entries' generations only, so a stray counter
    // can't ask for more memory than the entries need.
    u32 largest = 0;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (entry->generation > largest) largest = entry->generation;
    }
    u64 used_before = frame_memory->used;
    u32 *table = (u32 *)data_push(frame_memory, ((u64)largest + 1) * 4, 4);
    assert_message(table, "No frame memory to renumber generations.");
    memory_zero(table, ((u64)largest + 1) * 4);

    u32 distinct = 0;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (!table[entry->generation]) {
            table[entry->generation] = 1;
            distinct++;
        }
    }
    u32 running = 0;
    for (u64 g = 0; g <= largest; g++)
        if (table[g]) table[g] = ++running;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        entry->generation = table[entry->generation];
    }
    reader->generation = distinct;
    frame_memory->used = used_before;
}

// A map of changed ids: (old << 32 | new), sorted by old id.
struct reader_id_map_t {
    u64 *pairs;
    u64 count;
};

static u32 reader_map_id(const reader_id_map_t *map, u32 id) {
    u64 at = sort_lower_bound_u64(map->pairs, map->count, (u64)id << 32);
    if (at < map->count && (u32)(map->pairs[at] >> 32) == id) return (u32)map->pairs[at];
    return id;
}

// Sets the first word of the records of slots 0 to count - 1 to slot + 1 and
// records each change.
static reader_id_map_t reader_renumber_pool(pool_t *pool, u64 record_size, u64 id_offset, data_t *frame_memory) {
    reader_id_map_t map = {};
    map.pairs = (u64 *)data_push(frame_memory, (u64)pool->entry_count * 8 + 8, 8);
    assert_message(map.pairs, "No frame memory to renumber ids.");
    for (u32 i = 0; i < pool->entry_count; i++) {
        u32 *id = (u32 *)((u8 *)pool_entry(pool, record_size, i) + id_offset);
        if (*id == i + 1) continue;
        map.pairs[map.count++] = (u64)*id << 32 | (i + 1);
        *id = i + 1;
    }
    sort_u64(map.pairs, map.count);
    return map;
}

void reader_renumber_ids(reader_t *reader, data_t *frame_memory) {
    u64 used_before = frame_memory->used;
    reader_id_map_t feeds = reader_renumber_pool(&reader->feeds, sizeof(feed_t), offsetof(feed_t, id), frame_memory);
    reader_id_map_t entries =
        reader_renumber_pool(&reader->entries, sizeof(entry_t), offsetof(entry_t, id), frame_memory);
    for (u32 i = 0; i < reader->entries.entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        entry->feed_id = reader_map_id(&feeds, entry->feed_id);
    }
    reader_id_map_t categories = reader_renumber_pool(&reader->categories, sizeof(category_t), 0, frame_memory);
    reader_id_map_t persons = reader_renumber_pool(&reader->persons, sizeof(person_t), 0, frame_memory);

    for (u32 i = 0; i < reader->links.entry_count; i++) {
        link_t *link = (link_t *)pool_entry(&reader->links, sizeof(link_t), i);
        switch (link->kind) {
        case link_kind_rss_feed_category:
        case link_kind_atom_feed_category:
            link->owner_id = reader_map_id(&feeds, link->owner_id);
            link->target_id = reader_map_id(&categories, link->target_id);
            break;
        case link_kind_rss_entry_category:
        case link_kind_atom_entry_category:
            link->owner_id = reader_map_id(&entries, link->owner_id);
            link->target_id = reader_map_id(&categories, link->target_id);
            break;
        case link_kind_atom_feed_author:
        case link_kind_atom_feed_contributor:
            link->owner_id = reader_map_id(&feeds, link->owner_id);
            link->target_id = reader_map_id(&persons, link->target_id);
            break;
        case link_kind_atom_entry_author:
        case link_kind_atom_entry_contributor:
            link->owner_id = reader_map_id(&entries, link->owner_id);
            link->target_id = reader_map_id(&persons, link->target_id);
            break;
        default: break;
        }
    }
    for (u32 i = 0; i < reader->atom_links.entry_count; i++) {
        atom_link_t *link = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), i);
        if (link->owner_kind == atom_link_owner_feed) link->owner_id = reader_map_id(&feeds, link->owner_id);
        else if (link->owner_kind == atom_link_owner_entry) link->owner_id = reader_map_id(&entries, link->owner_id);
    }
    for (u32 i = 0; i < reader->metas.entry_count; i++) {
        meta_t *meta = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        meta->feed_id = reader_map_id(&feeds, meta->feed_id);
    }
    reader->last_feed_id = reader->feeds.entry_count;
    reader->last_entry_id = reader->entries.entry_count;
    reader->last_category_id = reader->categories.entry_count;
    reader->last_person_id = reader->persons.entry_count;
    frame_memory->used = used_before;
}

// ---- code points ----------------------------------------------------------------------------

void reader_trim_code_points(reader_t *reader) {
    code_point_list_t *list = reader->code_points;
    if (!list) return;
    assert_message(list->capacity == code_point_list_capacity, "The code point list has the wrong capacity.");
    // Presence is a bit a code point in the reader's scratch, so only the
    // front of the list that ends up used is ever written.
    static_assert(sizeof(reader_scratch.keys_a) * 8 >= code_point_list_capacity, "The presence bits don't fit.");
    u64 *present = reader_scratch.keys_a;
    const u64 words = (code_point_list_capacity + 63) / 64;
    memory_zero(present, words * 8);
    auto mark = [present](u32 code_point) -> u32 {
        u64 bit = 1ull << (code_point & 63);
        u64 *word = &present[code_point >> 6];
        if (*word & bit) return 0;
        *word |= bit;
        return 1;
    };

    u32 start[code_point_list_start_count];
    code_point_list_t start_list = {};
    code_point_list_init(&start_list, start, code_point_list_start_count);
    u32 count = 0;
    for (u32 i = 0; i < code_point_list_start_count; i++) count += mark(start[i]);

    // Printable ASCII, most of any text, is among the starting code points:
    // it is passed over, and what follows it is decoded a few code points
    // at a time.
    const u8 *at = reader->text.bytes;
    const u8 *end = reader->text.bytes + reader->text.used;
    u32 decoded[16];
    while (at < end) {
        at = utf8_skip_printable_ascii(at, end);
        if (at == end) break;
        u64 n = utf8_decode_buffer(at, end, decoded, array_count(decoded), &at);
        for (u64 i = 0; i < n; i++) {
            u32 code_point = decoded[i];
            // An invalid byte, U+0000, and the end of the table mark nothing.
            if (code_point == 0 || code_point >= list->capacity) continue;
            count += mark(code_point);
        }
    }

    u32 packed = 0;
    u32 *cells = list->code_points;
    for (u64 w = 0; w < words; w++) {
        for (u64 bits = present[w]; bits; bits &= bits - 1) {
            u32 value = (u32)(w * 64 + (u64)__builtin_ctzll(bits));
            if (value == 0 || value >= list->capacity) continue;
            if (value == code_point_replacement && reader->replacement_glyph_index)
                *reader->replacement_glyph_index = packed;
            cells[packed++] = value;
        }
    }
    assert_true(packed == count);
    list->count = count;
}

// ---- audit -------------------------------------------------------------------------------------

struct reader_pool_count_t {
    pool_t *pool;
    u64 record_size;
    pool_is_live_t *is_live;
    u32 counted;
};

static void reader_count_pools(reader_t *reader, reader_pool_count_t counts[7]) {
    counts[0] = {&reader->feeds, sizeof(feed_t), reader_pool_live_feed, 0};
    counts[1] = {&reader->entries, sizeof(entry_t), reader_pool_live_entry, 0};
    counts[2] = {&reader->categories, sizeof(category_t), reader_pool_live_category, 0};
    counts[3] = {&reader->persons, sizeof(person_t), reader_pool_live_person, 0};
    counts[4] = {&reader->atom_links, sizeof(atom_link_t), reader_pool_live_atom_link, 0};
    counts[5] = {&reader->links, sizeof(link_t), reader_pool_live_link, 0};
    counts[6] = {&reader->metas, sizeof(meta_t), reader_pool_live_meta, 0};
    // Slots the pool never handed out hold nothing; not reading them keeps
    // their pages uncommitted in a reader far from full.
    for (u32 p = 0; p < 7; p++) {
        pool_t *pool = counts[p].pool;
        u32 end = pool_untouched_from(pool);
        for (u32 i = 0; i < end; i++)
            if (counts[p].is_live(pool_entry(pool, counts[p].record_size, i), nullptr)) counts[p].counted++;
    }
}

static bool reader_pool_counts_agree(reader_t *reader, const reader_pool_count_t counts[7]) {
    for (u32 p = 0; p < 7; p++)
        if (counts[p].counted != counts[p].pool->entry_count) return false;
    return reader->metas.entry_count == reader->feeds.entry_count;
}

// Number of keys equal to `key` in a sorted array.
static u32 reader_sorted_count(const u64 *keys, u64 count, u64 key) {
    u64 first = sort_lower_bound_u64(keys, count, key);
    u64 last = first;
    while (last < count && keys[last] == key) last++;
    return (u32)(last - first);
}

static u64 reader_owner_key(u32 kind, u32 owner_id) { return (u64)kind << 32 | owner_id; }

u32 reader_audit_relations(reader_t *reader) {
    // Each owner's counts must equal its links. Rather than walk every link
    // for every feed and entry, the links with an existing target are sorted
    // by (kind, owner) once and counted by search.
    u64 *categories = reader_scratch.keys_c;
    u64 category_count = 0;
    READER_FOR_EACH(category_t, category, reader->categories, reader_pool_live_category) {
        categories[category_count++] = category->id;
    }
    sort_u64(categories, category_count);
    u64 *persons = categories + category_count;
    u64 person_count = 0;
    READER_FOR_EACH(person_t, person, reader->persons, reader_pool_live_person) {
        persons[person_count++] = person->id;
    }
    sort_u64(persons, person_count);

    u64 *links = reader_scratch.keys_a;
    u64 link_count = 0;
    u32 links_seen = 0;
    READER_FOR_EACH(link_t, link, reader->links, reader_pool_live_link) {
        links_seen++;
        bool category_target = link->kind <= link_kind_atom_entry_category;
        bool exists = category_target ? sort_contains_u64(categories, category_count, link->target_id)
                                      : sort_contains_u64(persons, person_count, link->target_id);
        if (exists) links[link_count++] = reader_owner_key(link->kind, link->owner_id);
    }
    sort_u64(links, link_count);
    u64 *atom_links = reader_scratch.keys_b;
    u64 atom_link_count = 0;
    u32 atom_links_seen = 0;
    READER_FOR_EACH(atom_link_t, link, reader->atom_links, reader_pool_live_atom_link) {
        atom_links_seen++;
        atom_links[atom_link_count++] = reader_owner_key(link->owner_kind, link->owner_id);
    }
    sort_u64(atom_links, atom_link_count);
    if (links_seen != reader->links.entry_count || atom_links_seen != reader->atom_links.entry_count) return 1;

    auto links_of = [&](u32 kind, u32 owner) { return reader_sorted_count(links, link_count, reader_owner_key(kind, owner)); };
    auto atom_links_of = [&](u32 kind, u32 owner) {
        return reader_sorted_count(atom_links, atom_link_count, reader_owner_key(kind, owner));
    };

    u32 feeds_seen = 0;
    READER_FOR_EACH(feed_t, feed, reader->feeds, reader_pool_live_feed) {
        feeds_seen++;
        if (feed_get_type(feed) == reader_type_atom) {
            if (links_of(link_kind_atom_feed_category, feed->id) != feed->atom.category_count) return 2;
            if (links_of(link_kind_atom_feed_author, feed->id) != feed->atom.author_count) return 2;
            if (links_of(link_kind_atom_feed_contributor, feed->id) != feed->atom.contributor_count) return 2;
            if (atom_links_of(atom_link_owner_feed, feed->id) != feed->atom.link_count) return 2;
        } else {
            if (links_of(link_kind_rss_feed_category, feed->id) != feed->rss.category_count) return 2;
        }
    }
    if (feeds_seen != reader->feeds.entry_count) return 1;

    u32 entries_seen = 0;
    feed_t *feed = nullptr; // the last one found: a feed's entries mostly lie together
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        entries_seen++;
        if (!feed || feed->id != entry->feed_id) feed = reader_get_feed_by_id(reader, entry->feed_id);
        if (!feed || feed_get_type(feed) != entry_get_type(entry)) continue;
        if (entry_get_type(entry) == reader_type_atom) {
            if (links_of(link_kind_atom_entry_category, entry->id) != entry->atom.category_count) return 3;
            if (links_of(link_kind_atom_entry_author, entry->id) != entry->atom.author_count) return 3;
            if (links_of(link_kind_atom_entry_contributor, entry->id) != entry->atom.contributor_count) return 3;
            if (atom_links_of(atom_link_owner_entry, entry->id) != entry->atom.link_count) return 3;
        } else {
            if (links_of(link_kind_rss_entry_category, entry->id) != entry->rss.category_count) return 3;
        }
    }
    if (entries_seen != reader->entries.entry_count) return 1;
    return 0;
}

bool reader_audit_check(reader_t *reader) {
    reader_pool_count_t counts[7];
    reader_count_pools(reader, counts);
    if (!reader_pool_counts_agree(reader, counts)) return false;
    return reader_audit_relations(reader) == 0;
}

static void reader_audit_counts(reader_t *reader);

void reader_audit(reader_t *reader) {
    reader_audit_counts(reader);
    assert_message(reader_audit_relations(reader) == 0,
                   "The audit found an owner whose counts disagree with its links.");
}

void reader_audit_after_check(reader_t *reader) { reader_audit_counts(reader); }

static void reader_audit_counts(reader_t *reader) {
    reader_pool_count_t counts[7];
    reader_count_pools(reader, counts);
    for (u32 p = 0; p < 7; p++)
        assert_message(counts[p].counted == counts[p].pool->entry_count,
                       "The audit found a pool whose count disagrees with its records.");
    assert_message(reader->metas.entry_count == reader->feeds.entry_count,
                   "The audit found feeds and meta records that differ in number.");

    static const char *const labels[7][3] = {
        {"feed count: ", "actual feed count: ", "feed count difference: "},
        {"entry count: ", "actual entry count: ", "entry count difference: "},
        {"category count: ", "actual category count: ", "category count difference: "},
        {"atom person count: ", "actual atom person count: ", "person count difference: "},
        {"atom link count: ", "actual atom link count: ", "atom link count difference: "},
        {"link count: ", "actual link count: ", "link count difference: "},
        {"meta count: ", "actual meta count: ", "meta count difference: "},
    };
    log_indent(log_main);
    for (u32 p = 0; p < 7; p++) {
        u32 stored = counts[p].pool->entry_count;
        log_line_number(log_main, stored, true, labels[p][0], true);
        log_line_number(log_main, counts[p].counted, true, labels[p][1], true);
        log_line_number(log_main, stored - counts[p].counted, true, labels[p][2], true);
    }
    log_outdent(log_main);
}
