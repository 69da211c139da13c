// reader.cpp - the pools, the text area, creation, predicates and look-ups.
#include "reader/reader.h"

#include "base/log.h"
#include "reader/reader_internal.h"

// ---- pool predicates ---------------------------------------------------------------

bool reader_pool_live_feed(void *entry, pool_iterator_t *) { return feed_is_valid((const feed_t *)entry); }
bool reader_pool_live_entry(void *entry, pool_iterator_t *) { return entry_is_valid((const entry_t *)entry); }
bool reader_pool_live_category(void *entry, pool_iterator_t *) {
    return category_is_valid((const category_t *)entry);
}
bool reader_pool_live_person(void *entry, pool_iterator_t *) { return person_is_valid((const person_t *)entry); }
bool reader_pool_live_atom_link(void *entry, pool_iterator_t *) {
    return atom_link_is_valid((const atom_link_t *)entry);
}
bool reader_pool_live_link(void *entry, pool_iterator_t *) { return link_is_valid((const link_t *)entry); }
bool reader_pool_live_meta(void *entry, pool_iterator_t *) { return meta_is_valid((const meta_t *)entry); }

// ---- construction ----------------------------------------------------------------------

void reader_init(reader_t *reader) {
    u64 size = 0;
    size += align_up(pool_size(sizeof(feed_t), 8, reader_feed_capacity), 4);
    size += align_up(pool_size(sizeof(entry_t), 8, reader_entry_capacity), 4);
    size += align_up(pool_size(sizeof(category_t), 8, reader_category_capacity), 4);
    size += align_up(pool_size(sizeof(person_t), 8, reader_person_capacity), 4);
    size += align_up(pool_size(sizeof(atom_link_t), 8, reader_atom_link_capacity), 4);
    size += align_up(pool_size(sizeof(link_t), 4, reader_link_capacity), 4);
    size += align_up(pool_size(sizeof(meta_t), 8, reader_meta_capacity), 4);
    // Each pool block starts at its entries' alignment; leave room for that.
    size += 7 * 8;
    reader->storage = data_virtual_alloc(size, 0);
    assert_message(reader->storage.bytes, "No memory for the reader's pools.");
    pool_create_in(&reader->feeds, &reader->storage, sizeof(feed_t), 8, reader_feed_capacity);
    pool_create_in(&reader->entries, &reader->storage, sizeof(entry_t), 8, reader_entry_capacity);
    pool_create_in(&reader->categories, &reader->storage, sizeof(category_t), 8, reader_category_capacity);
    pool_create_in(&reader->persons, &reader->storage, sizeof(person_t), 8, reader_person_capacity);
    pool_create_in(&reader->atom_links, &reader->storage, sizeof(atom_link_t), 8, reader_atom_link_capacity);
    pool_create_in(&reader->links, &reader->storage, sizeof(link_t), 4, reader_link_capacity);
    pool_create_in(&reader->metas, &reader->storage, sizeof(meta_t), 8, reader_meta_capacity);

    reader->text_block = data_address_space_reserve(reader_text_block_size, 0);
    reader->text_block_spare = data_address_space_reserve(reader_text_block_size, 0);
    u8 *first = data_address_space_commit(&reader->text_block, reader_text_commit_step);
    assert_message(first, "No memory for the reader's text.");
    reader->text = data_t{reader->text_block.used, 0, reader->text_block.bytes};

    // A reader read from a file has not been looked at yet: the first
    // collection walks it whole.
    reader->categories_unlinked = 1;
    reader->persons_unlinked = 1;
    reader->last_feed_id = 0;
    reader->last_entry_id = 0;
    reader->last_category_id = 0;
    reader->last_person_id = 0;
    reader->generation = 0;
}

// The free stack of a fresh pool of the largest capacity: a pool of
// capacity n starts as its last n values (n - 1 down to 0).
struct reader_free_stack_t {
    u32 indices[reader_entry_capacity];
    constexpr reader_free_stack_t() : indices() {
        for (u32 i = 0; i < reader_entry_capacity; i++) indices[i] = reader_entry_capacity - 1 - i;
    }
};
static constexpr reader_free_stack_t reader_fresh_free_stack;

// Empties a pool the way pool_create_in left it: every record in use is
// zeroed, and the free stack hands out slots from 0 again.
static void reader_pool_reset(pool_t *pool, u64 record_size) {
    u32 seen = 0;
    for (u32 i = 0; i < pool->max_entry_count && seen < pool->entry_count; i++) {
        u8 *record = (u8 *)pool_entry(pool, record_size, i);
        if (*(u32 *)record == 0) continue; // free, or an entry taken and never accepted
        memory_zero(record, record_size);
        seen++;
    }
    if (seen < pool->entry_count) memory_zero(pool->entries, (u64)pool->max_entry_count * record_size);
    pool->entry_count = 0;
    u32 capacity = pool->max_entry_count;
    assert_true(capacity <= reader_entry_capacity);
    __builtin_memcpy(pool->free_indices, reader_fresh_free_stack.indices + (reader_entry_capacity - capacity),
                     (u64)capacity * sizeof(u32));
}

void reader_reset(reader_t *reader) {
    reader_pool_reset(&reader->feeds, sizeof(feed_t));
    reader_pool_reset(&reader->entries, sizeof(entry_t));
    reader_pool_reset(&reader->categories, sizeof(category_t));
    reader_pool_reset(&reader->persons, sizeof(person_t));
    reader_pool_reset(&reader->atom_links, sizeof(atom_link_t));
    reader_pool_reset(&reader->links, sizeof(link_t));
    reader_pool_reset(&reader->metas, sizeof(meta_t));
    memory_zero(reader->link_configurations, sizeof(reader->link_configurations));
    reader->text.used = 0; // what is committed stays committed
    reader->categories_unlinked = 1;
    reader->persons_unlinked = 1;
    reader->full = 0;
    reader->last_feed_id = 0;
    reader->last_entry_id = 0;
    reader->last_category_id = 0;
    reader->last_person_id = 0;
    reader->generation = 0;
}

// ---- text area ---------------------------------------------------------------------------

bool reader_text_reserve(reader_t *reader, u64 needed_size) {
    u64 committed = reader->text_block.used;
    if (needed_size <= committed) return true;
    if (needed_size >= reader->text_block.reserved) return false;
    u64 shortfall = align_up(needed_size - committed, reader_text_commit_step);
    if (committed + shortfall >= reader->text_block.reserved) return false;
    if (!data_address_space_commit(&reader->text_block, shortfall)) return false;
    reader->text.reserved = reader->text_block.used;
    return true;
}

data_t reader_text_add(reader_t *reader, const data_t *string) {
    u64 size = string->used;
    bool reserved = reader_text_reserve(reader, reader->text.used + size);
    assert_message(reserved, "The reader's text area is full.");
    u8 *copy = reader->text.bytes + reader->text.used;
    if (size) memory_copy(copy, string->bytes, size);
    reader->text.used += size;
    return data_t{size, size, copy};
}

bool reader_text_fits(reader_t *reader, u64 size) {
    if (reader_text_reserve(reader, reader->text.used + size)) return true;
    reader->full |= reader_full_text;
    return false;
}

reader_text_mark_t reader_text_mark(reader_t *reader) {
    return reader_text_mark_t{reader->text, reader->last_category_id, reader->last_person_id};
}

void reader_text_rollback(reader_t *reader, reader_text_mark_t mark) {
    reader_collect_categories(reader);
    reader_collect_persons(reader);
    assert_message(reader->text.reserved == mark.text.reserved, "The reader's text grew since the mark.");
    reader->text.used = mark.text.used;
    reader->last_category_id = mark.last_category_id;
    reader->last_person_id = mark.last_person_id;
}

// Frees every record of `pool` (categories or persons; id in the first word)
// that no link of the kinds names. The link targets are sorted once, so the
// cost is n log n rather than a walk of the links for each record.
static void reader_collect(reader_t *reader, pool_t *pool, u64 record_size, u32 first_kind, u32 last_kind) {
    if (pool->entry_count == 0) return;
    u64 *targets = reader_scratch.keys_a;
    u32 target_count = 0;
    u32 seen = 0;
    for (u32 i = 0; i < reader->links.max_entry_count && seen < reader->links.entry_count; i++) {
        link_t *link = (link_t *)pool_entry(&reader->links, sizeof(link_t), i);
        if (!link_is_valid(link)) continue;
        seen++;
        if (link->kind >= first_kind && link->kind <= last_kind) targets[target_count++] = link->target_id;
    }
    sort_u64(targets, target_count);
    u32 count = pool->entry_count;
    seen = 0;
    for (u32 i = 0; i < pool->max_entry_count && seen < count; i++) {
        u32 *record = (u32 *)pool_entry(pool, record_size, i);
        if (*record == 0) continue;
        seen++;
        if (!sort_contains_u64(targets, target_count, *record)) {
            *record = 0;
            pool_release_index(pool, i);
        }
    }
}

void reader_collect_categories(reader_t *reader) {
    if (!reader->categories_unlinked) return;
    reader_collect(reader, &reader->categories, sizeof(category_t), link_kind_rss_feed_category,
                   link_kind_atom_entry_category);
    reader->categories_unlinked = 0;
}

void reader_collect_persons(reader_t *reader) {
    if (!reader->persons_unlinked) return;
    reader_collect(reader, &reader->persons, sizeof(person_t), link_kind_atom_feed_author,
                   link_kind_atom_entry_contributor);
    reader->persons_unlinked = 0;
}

// ---- predicates -----------------------------------------------------------------------------

u32 feed_get_type(const feed_t *feed) { return feed ? feed->type_and_flags & reader_type_mask : 0; }
u32 entry_get_type(const entry_t *entry) { return entry ? entry->type_and_flags & reader_type_mask : 0; }

bool feed_is_valid(const feed_t *feed) {
    u32 type = feed_get_type(feed);
    return type == reader_type_rss || type == reader_type_atom;
}

bool entry_is_valid(const entry_t *entry) {
    u32 type = entry_get_type(entry);
    return type == reader_type_rss || type == reader_type_atom;
}

bool category_is_valid(const category_t *category) { return category && category->id != 0; }
bool person_is_valid(const person_t *person) { return person && person->id != 0; }
bool meta_is_valid(const meta_t *meta) { return meta && meta->feed_id != 0; }

bool atom_link_is_valid(const atom_link_t *link) {
    return link && (link->owner_kind == atom_link_owner_feed || link->owner_kind == atom_link_owner_entry);
}

bool link_is_valid(const link_t *link) {
    return link && link->kind >= link_kind_rss_feed_category && link->kind <= link_kind_atom_entry_contributor;
}

bool reader_flags_pass(u32 type_and_flags, u32 required, u32 allowed) {
    u32 flags = type_and_flags & ~reader_type_mask;
    if ((flags & required) != required) return false;
    return (flags & ~(required | allowed)) == 0;
}

// ---- creation ----------------------------------------------------------------------------------

feed_t *reader_new_feed(reader_t *reader, u32 type) {
    feed_t *feed = (feed_t *)pool_take(&reader->feeds, sizeof(feed_t));
    if (!feed) {
        reader->full |= reader_full_feeds;
        return nullptr;
    }
    memory_zero(feed, sizeof(feed_t));
    reader->last_feed_id++;
    feed->id = reader->last_feed_id;
    feed->type_and_flags = type;
    return feed;
}

entry_t *reader_new_entry(reader_t *reader) {
    entry_t *entry = (entry_t *)pool_take(&reader->entries, sizeof(entry_t));
    if (!entry) {
        reader->full |= reader_full_entries;
        return nullptr;
    }
    memory_zero(entry, sizeof(entry_t));
    entry->id = reader->last_entry_id + 1;
    entry->generation = reader->generation;
    return entry;
}

void reader_accept_entry(reader_t *reader, feed_t *feed, entry_t *entry) {
    assert_true(feed && entry);
    feed->entry_count++;
    entry->feed_id = feed->id;
    entry->type_and_flags = (entry->type_and_flags & ~reader_type_mask) | feed_get_type(feed);
    reader->last_entry_id++;
    assert_message(reader->last_entry_id == entry->id, "An entry was accepted out of step.");
}

category_t *reader_new_category(reader_t *reader) {
    category_t *category = (category_t *)pool_take(&reader->categories, sizeof(category_t));
    if (!category) {
        reader->full |= reader_full_categories;
        return nullptr;
    }
    memory_zero(category, sizeof(category_t));
    reader->last_category_id++;
    category->id = reader->last_category_id;
    reader->categories_unlinked = 1;
    return category;
}

person_t *reader_new_person(reader_t *reader) {
    person_t *person = (person_t *)pool_take(&reader->persons, sizeof(person_t));
    if (!person) {
        reader->full |= reader_full_persons;
        return nullptr;
    }
    memory_zero(person, sizeof(person_t));
    reader->last_person_id++;
    person->id = reader->last_person_id;
    reader->persons_unlinked = 1;
    return person;
}

atom_link_t *reader_new_atom_link(reader_t *reader, u32 owner_kind, u32 owner_id) {
    atom_link_t *link = (atom_link_t *)pool_take(&reader->atom_links, sizeof(atom_link_t));
    if (!link) {
        reader->full |= reader_full_atom_links;
        return nullptr;
    }
    memory_zero(link, sizeof(atom_link_t));
    link->owner_kind = owner_kind;
    link->owner_id = owner_id;
    return link;
}

link_t *reader_new_link(reader_t *reader, u32 kind, u32 owner_id, u32 target_id) {
    link_t *link = (link_t *)pool_take(&reader->links, sizeof(link_t));
    if (!link) {
        reader->full |= reader_full_links;
        return nullptr;
    }
    link->kind = kind;
    link->owner_id = owner_id;
    link->target_id = target_id;
    return link;
}

meta_t *reader_new_meta(reader_t *reader, const feed_t *feed) {
    meta_t *meta = (meta_t *)pool_take(&reader->metas, sizeof(meta_t));
    if (!meta) {
        reader->full |= reader_full_metas;
        return nullptr;
    }
    memory_zero(meta, sizeof(meta_t));
    meta->feed_id = feed->id;
    meta->link_configuration = &reader->link_configurations[0];
    return meta;
}

// ---- look-ups ------------------------------------------------------------------------------------

feed_t *reader_get_feed_by_id(reader_t *reader, u32 id) {
    if (id == 0) return nullptr;
    READER_FOR_EACH(feed_t, feed, reader->feeds, reader_pool_live_feed) {
        if (feed->id == id) return feed;
    }
    return nullptr;
}

feed_t *reader_get_feed_by_url(reader_t *reader, const data_t *url) {
    READER_FOR_EACH(feed_t, feed, reader->feeds, reader_pool_live_feed) {
        if (memory_equal(feed->url.bytes, feed->url.used, url->bytes, url->used)) return feed;
    }
    return nullptr;
}

entry_t *reader_get_entry_by_id(reader_t *reader, u32 feed_id, u32 entry_id) {
    feed_t *feed = reader_get_feed_by_id(reader, feed_id);
    if (!feed) return nullptr;
    u32 found = 0;
    if (feed->entry_count == 0) return nullptr;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (entry->feed_id != feed_id) continue;
        if (entry->id == entry_id) return entry;
        if (++found == feed->entry_count) break;
    }
    return nullptr;
}

entry_t *reader_get_entry_by_guid(reader_t *reader, u32 feed_id, const data_t *guid) {
    if (!guid || guid->used == 0) return nullptr;
    feed_t *feed = reader_get_feed_by_id(reader, feed_id);
    if (!feed) return nullptr;
    // The walk ends once all of the feed's entries are seen: the pool may
    // count a slot no walk sees (an item being read), so the pool's own count
    // would not stop it before the last slot.
    u32 found = 0;
    if (feed->entry_count == 0) return nullptr;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (entry->feed_id != feed_id) continue;
        data_t own = entry_get_guid(entry);
        if (own.used != 0 && memory_equal(own.bytes, own.used, guid->bytes, guid->used)) return entry;
        if (++found == feed->entry_count) break;
    }
    return nullptr;
}

data_t entry_get_guid(const entry_t *entry) {
    if (!entry || entry->id == 0) return data_t{};
    switch (entry_get_type(entry)) {
    case reader_type_rss: return entry->rss.guid;
    case reader_type_atom: return entry->atom.atom_id;
    default: return data_t{};
    }
}

category_t *reader_get_category_by_id(reader_t *reader, u32 id) {
    if (id == 0) return nullptr;
    READER_FOR_EACH(category_t, category, reader->categories, reader_pool_live_category) {
        if (category->id == id) return category;
    }
    return nullptr;
}

person_t *reader_get_person_by_id(reader_t *reader, u32 id) {
    if (id == 0) return nullptr;
    READER_FOR_EACH(person_t, person, reader->persons, reader_pool_live_person) {
        if (person->id == id) return person;
    }
    return nullptr;
}

meta_t *reader_get_meta(reader_t *reader, u32 feed_id) {
    if (feed_id == 0) return nullptr;
    READER_FOR_EACH(meta_t, meta, reader->metas, reader_pool_live_meta) {
        if (meta->feed_id == feed_id) return meta;
    }
    return nullptr;
}

data_t reader_get_atom_link(reader_t *reader, u32 owner_id, u32 owner_link_count, u32 owner_kind, u32 rel) {
    u32 found = 0;
    READER_FOR_EACH(atom_link_t, link, reader->atom_links, reader_pool_live_atom_link) {
        if (found >= owner_link_count) break;
        if (link->owner_kind != owner_kind || link->owner_id != owner_id) continue;
        found++;
        if (link->rel == rel) return link->href;
    }
    return data_t{};
}

data_t feed_get_title(const feed_t *feed) {
    switch (feed_get_type(feed)) {
    case reader_type_rss: return feed->rss.title;
    case reader_type_atom: return feed->atom.title;
    default: return data_t{};
    }
}

data_t entry_get_title(const entry_t *entry) {
    switch (entry_get_type(entry)) {
    case reader_type_rss: return entry->rss.title;
    case reader_type_atom: return entry->atom.title;
    default: return data_t{};
    }
}

// ---- scratch ---------------------------------------------------------------------------------

reader_scratch_t reader_scratch;
