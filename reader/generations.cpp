// generations.cpp - generations, the two-stage deletion (mark, then removal),
// the order of a feed's entries, and the walks with which the views step
// through what is visible.
#include "base/log.h"
#include "reader/reader.h"
#include "reader/reader_internal.h"

// ---- generations --------------------------------------------------------------------

void reader_generation_advance(reader_t *reader, u32 *shown_minimum, u32 *shown_maximum) {
    reader->generation++;
    if (shown_minimum) *shown_minimum = reader->generation;
    if (shown_maximum) *shown_maximum = reader->generation;
}

u32 reader_previous_generation(reader_t *reader, u32 generation, u32 required, u32 allowed) {
    // The nearest lower generation that has a passing entry: the greatest
    // such generation below the given one.
    u32 best = 0;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (entry->generation >= generation || entry->generation == 0 || entry->generation <= best) continue;
        if (reader_flags_pass(entry->type_and_flags, required, allowed)) best = entry->generation;
    }
    return best ? best : generation;
}

u32 reader_next_generation(reader_t *reader, u32 generation, u32 required, u32 allowed) {
    u32 best = 0;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (entry->generation <= generation || entry->generation > reader->generation) continue;
        if (best && entry->generation >= best) continue;
        if (reader_flags_pass(entry->type_and_flags, required, allowed)) best = entry->generation;
    }
    return best ? best : generation;
}

// ---- marks ------------------------------------------------------------------------------

void entry_mark_deleted(entry_t *entry) {
    if (entry) entry->type_and_flags |= reader_deleted;
}

void entry_restore(entry_t *entry) {
    if (entry) entry->type_and_flags &= ~reader_deleted;
}

bool entry_is_deleted(const entry_t *entry) { return entry && (entry->type_and_flags & reader_deleted) != 0; }
bool feed_is_deleted(const feed_t *feed) { return feed && (feed->type_and_flags & reader_deleted) != 0; }

// Sets or clears the mark on every entry of the feed and checks that all of
// them were found.
static void reader_mark_feed_entries(reader_t *reader, feed_t *feed, bool mark) {
    u32 done = 0;
    READER_FOR_EACH(entry_t, entry, reader->entries, reader_pool_live_entry) {
        if (done >= feed->entry_count) break;
        if (entry->feed_id != feed->id) continue;
        if (mark) entry_mark_deleted(entry);
        else entry_restore(entry);
        done++;
    }
    assert_message(done == feed->entry_count, "A feed's entry count disagrees with its entries.");
}

void feed_mark_deleted(reader_t *reader, feed_t *feed) {
    assert_true(feed && feed_get_type(feed) < 3);
    feed->type_and_flags |= reader_deleted;
    reader_mark_feed_entries(reader, feed, true);
}

void feed_restore(reader_t *reader, feed_t *feed, bool with_entries) {
    assert_true(feed && feed_get_type(feed) < 3);
    feed->type_and_flags &= ~reader_deleted;
    if (with_entries) reader_mark_feed_entries(reader, feed, false);
}

// ---- removal --------------------------------------------------------------------------------

static void reader_free_link(reader_t *reader, link_t *link, u32 index) {
    reader->categories_unlinked = 1;
    reader->persons_unlinked = 1;
    link->kind = 0;
    pool_release_index(&reader->links, index);
}

// Frees the links of the owner whose kind has a count in `counts` (by kind,
// 0 for kinds not wanted), walking while any count is above 0.
static void reader_free_links(reader_t *reader, u32 owner_id, u32 *counts[9]) {
    auto pending = [counts]() {
        for (u32 k = 1; k <= 8; k++)
            if (counts[k] && *counts[k] > 0) return true;
        return false;
    };
    pool_t *links = &reader->links;
    for (u32 i = 0; i < links->max_entry_count && pending(); i++) {
        link_t *link = (link_t *)pool_entry(links, sizeof(link_t), i);
        if (!link_is_valid(link) || link->owner_id != owner_id) continue;
        u32 *count = counts[link->kind];
        if (!count || *count == 0) continue;
        reader_free_link(reader, link, i);
        (*count)--;
    }
}

static void reader_free_atom_links(reader_t *reader, u32 owner_kind, u32 owner_id, u32 *count) {
    pool_t *pool = &reader->atom_links;
    for (u32 i = 0; i < pool->max_entry_count && *count > 0; i++) {
        atom_link_t *link = (atom_link_t *)pool_entry(pool, sizeof(atom_link_t), i);
        if (link->owner_kind != owner_kind || link->owner_id != owner_id) continue;
        link->owner_kind = 0;
        pool_release_index(pool, i);
        (*count)--;
    }
}

void reader_delete_entry(reader_t *reader, entry_t *entry, feed_t *feed) {
    assert_true(entry);
    u32 *counts[9] = {};
    switch (entry_get_type(entry)) {
    case reader_type_rss:
        counts[link_kind_rss_entry_category] = &entry->rss.category_count;
        reader_free_links(reader, entry->id, counts);
        assert_message(entry->rss.category_count == 0, "An entry's category count disagrees with its links.");
        break;
    case reader_type_atom:
        counts[link_kind_atom_entry_author] = &entry->atom.author_count;
        counts[link_kind_atom_entry_category] = &entry->atom.category_count;
        counts[link_kind_atom_entry_contributor] = &entry->atom.contributor_count;
        reader_free_links(reader, entry->id, counts);
        reader_free_atom_links(reader, atom_link_owner_entry, entry->id, &entry->atom.link_count);
        assert_message(entry->atom.author_count == 0 && entry->atom.category_count == 0 &&
                           entry->atom.contributor_count == 0 && entry->atom.link_count == 0,
                       "An entry's counts disagree with its links.");
        break;
    default:
        log_string(log_main, "Wrong entry type.\n");
        assert_message(false, "Wrong entry type.");
    }
    if (reader->entry_forget) reader->entry_forget(entry->id);
    entry->type_and_flags = 0;
    pool_release(&reader->entries, entry, sizeof(entry_t));
    if (feed) feed->entry_count--;
}

void reader_delete_atom_links(reader_t *reader, void *owner, u32 owner_kind) {
    assert_true(owner);
    if (owner_kind == atom_link_owner_feed) {
        feed_t *feed = (feed_t *)owner;
        reader_free_atom_links(reader, owner_kind, feed->id, &feed->atom.link_count);
        assert_message(feed->atom.link_count == 0, "A feed's link count disagrees with its atom links.");
    } else {
        assert_true(owner_kind == atom_link_owner_entry);
        entry_t *entry = (entry_t *)owner;
        reader_free_atom_links(reader, owner_kind, entry->id, &entry->atom.link_count);
        assert_message(entry->atom.link_count == 0, "An entry's link count disagrees with its atom links.");
    }
}

void reader_delete_feed(reader_t *reader, feed_t *feed) {
    assert_true(feed);
    pool_t *entries = &reader->entries;
    for (u32 i = 0; i < entries->max_entry_count && feed->entry_count > 0; i++) {
        entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (entry_is_valid(entry) && entry->feed_id == feed->id) reader_delete_entry(reader, entry, feed);
    }
    assert_message(feed->entry_count == 0, "A feed's entry count disagrees with its entries.");

    meta_t *meta = reader_get_meta(reader, feed->id);
    assert_message(meta, "A feed has no meta record.");
    memory_zero(meta, sizeof(meta_t));
    pool_release(&reader->metas, meta, sizeof(meta_t));

    u32 *counts[9] = {};
    switch (feed_get_type(feed)) {
    case reader_type_rss:
        counts[link_kind_rss_feed_category] = &feed->rss.category_count;
        reader_free_links(reader, feed->id, counts);
        assert_message(feed->rss.category_count == 0, "A feed's category count disagrees with its links.");
        break;
    case reader_type_atom:
        counts[link_kind_atom_feed_category] = &feed->atom.category_count;
        counts[link_kind_atom_feed_author] = &feed->atom.author_count;
        counts[link_kind_atom_feed_contributor] = &feed->atom.contributor_count;
        reader_free_links(reader, feed->id, counts);
        reader_free_atom_links(reader, atom_link_owner_feed, feed->id, &feed->atom.link_count);
        assert_message(feed->atom.author_count == 0 && feed->atom.category_count == 0 &&
                           feed->atom.contributor_count == 0 && feed->atom.link_count == 0,
                       "A feed's counts disagree with its links.");
        break;
    default:
        log_string(log_main, "Wrong feed type.\n");
        assert_message(false, "Wrong feed type.");
    }
    feed->type_and_flags = 0;
    pool_release(&reader->feeds, feed, sizeof(feed_t));
}

void reader_purge_deleted(reader_t *reader) {
    pool_t *feeds = &reader->feeds;
    u32 feed_count = feeds->entry_count;
    u32 feeds_seen = 0;
    for (u32 f = 0; f < feeds->max_entry_count && feeds_seen < feed_count; f++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), f);
        if (!feed_is_valid(feed)) continue;
        feeds_seen++;
        if (feed_is_deleted(feed)) {
            reader_delete_feed(reader, feed);
            continue;
        }
        u32 expected = feed->entry_count;
        u32 walked = 0;
        pool_t *entries = &reader->entries;
        for (u32 i = 0; i < entries->max_entry_count && walked < expected; i++) {
            entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
            if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
            walked++;
            if (entry_is_deleted(entry)) reader_delete_entry(reader, entry, feed);
        }
        assert_message(walked == expected, "A feed's entry count disagrees with its entries.");
    }
    assert_message(feeds_seen == feed_count, "The feed pool's count disagrees with its records.");
    reader_sort_all(reader);
}

// ---- order ------------------------------------------------------------------------------------

// The date an entry sorts by: RSS pubDate; Atom published, else updated,
// the date the entry view shows for it.
static u64 reader_entry_date_number(const entry_t *entry) {
    if (entry_get_type(entry) == reader_type_rss) return date_to_number(entry->rss.pub_date);
    const date_t *date = date_is_empty(&entry->atom.published) ? &entry->atom.updated : &entry->atom.published;
    return date_to_number(*date);
}

void reader_sort_feed(reader_t *reader, feed_t *feed) {
    if (!feed || feed->entry_count < 2) return;
    meta_t *meta = reader_get_meta(reader, feed->id);
    bool reverse = meta && (meta->flags & meta_sort_oldest_first);

    // The exchange sort runs on (date, record) pairs held apart from the
    // records, and the records then move once along the permutation: the
    // same order as exchanging whole records, with far fewer bytes moved.
    u32 *slots = reader_scratch.slots;
    u64 *dates = reader_scratch.keys_d;
    u64 *origin = reader_scratch.keys_a; // which slot's record ends up at each place
    u32 count = 0;
    pool_t *entries = &reader->entries;
    for (u32 i = 0; i < entries->max_entry_count && count < feed->entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
        assert_message(entry_get_type(entry) == feed_get_type(feed), "Entries of one feed differ in type.");
        slots[count] = i;
        dates[count] = reader_entry_date_number(entry);
        origin[count] = i;
        count++;
    }
    for (u32 a = 0; a + 1 < count; a++) {
        for (u32 b = a + 1; b < count; b++) {
            bool exchange = reverse ? dates[b] < dates[a] : dates[a] < dates[b];
            if (!exchange) continue;
            u64 date = dates[a];
            dates[a] = dates[b];
            dates[b] = date;
            u64 from = origin[a];
            origin[a] = origin[b];
            origin[b] = from;
        }
    }
    // Place k must receive the record now in slot origin[k]. Follow each
    // cycle of the permutation with one record held aside.
    u64 *where = reader_scratch.keys_b; // place index of each slot in `slots`
    for (u32 k = 0; k < count; k++) where[k] = 0;
    // Map a slot number back to its place: slots[] rises, so search it.
    auto place_of = [slots, count](u64 slot) {
        u32 low = 0, high = count;
        while (low < high) {
            u32 middle = low + (high - low) / 2;
            if (slots[middle] < slot) low = middle + 1;
            else high = middle;
        }
        return low;
    };
    u8 *held = reader_scratch.record;
    for (u32 start = 0; start < count; start++) {
        if (where[start] || origin[start] == slots[start]) continue;
        // Save the record at `start`, then pull records along the cycle.
        memory_copy(held, pool_entry(entries, sizeof(entry_t), slots[start]), sizeof(entry_t));
        u32 place = start;
        for (;;) {
            where[place] = 1;
            u32 source_place = place_of(origin[place]);
            if (source_place == start) {
                memory_copy(pool_entry(entries, sizeof(entry_t), slots[place]), held, sizeof(entry_t));
                break;
            }
            memory_copy(pool_entry(entries, sizeof(entry_t), slots[place]),
                        pool_entry(entries, sizeof(entry_t), slots[source_place]), sizeof(entry_t));
            place = source_place;
        }
    }
}

// ---- walks ------------------------------------------------------------------------------------

static bool reader_entry_passes(const entry_t *entry, const feed_t *feed, u32 minimum, u32 maximum, u32 required,
                                u32 allowed) {
    return entry_is_valid(entry) && entry->feed_id == feed->id && entry->generation >= minimum &&
           entry->generation <= maximum && reader_flags_pass(entry->type_and_flags, required, allowed);
}

entry_t *reader_first_entry(reader_t *reader, feed_t *feed, u32 minimum, u32 maximum, u32 required, u32 allowed) {
    if (!feed) return nullptr;
    pool_t *entries = &reader->entries;
    u32 seen = 0;
    for (u32 i = 0; i < entries->max_entry_count && seen < feed->entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
        seen++;
        if (reader_entry_passes(entry, feed, minimum, maximum, required, allowed)) return entry;
    }
    return nullptr;
}

entry_t *reader_last_entry(reader_t *reader, feed_t *feed, u32 minimum, u32 maximum, u32 required, u32 allowed) {
    if (!feed) return nullptr;
    pool_t *entries = &reader->entries;
    u32 seen = 0;
    for (u32 i = entries->max_entry_count; i-- > 0 && seen < feed->entry_count;) {
        entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
        seen++;
        if (reader_entry_passes(entry, feed, minimum, maximum, required, allowed)) return entry;
    }
    return nullptr;
}

entry_t *reader_previous_entry(reader_t *reader, feed_t *feed, entry_t *entry, u32 minimum, u32 maximum,
                               u32 required, u32 allowed) {
    if (!feed || !entry) return nullptr;
    pool_t *entries = &reader->entries;
    u64 slot = pool_index_of(entries, sizeof(entry_t), entry);
    if (slot > entries->max_entry_count) slot = entries->max_entry_count;
    for (u64 i = slot; i-- > 0;) {
        entry_t *other = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (reader_entry_passes(other, feed, minimum, maximum, required, allowed)) return other;
    }
    return nullptr;
}

entry_t *reader_next_entry(reader_t *reader, feed_t *feed, entry_t *entry, u32 minimum, u32 maximum, u32 required,
                           u32 allowed) {
    if (!feed || !entry) return nullptr;
    pool_t *entries = &reader->entries;
    u64 slot = pool_index_of(entries, sizeof(entry_t), entry);
    for (u64 i = slot + 1; i < entries->max_entry_count; i++) {
        entry_t *other = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (reader_entry_passes(other, feed, minimum, maximum, required, allowed)) return other;
    }
    return nullptr;
}

static bool reader_feed_passes(reader_t *reader, feed_t *feed, bool show_empty, u32 minimum, u32 maximum,
                               u32 feed_required, u32 feed_allowed, u32 entry_required, u32 entry_allowed) {
    if (!feed_is_valid(feed) || !reader_flags_pass(feed->type_and_flags, feed_required, feed_allowed)) return false;
    if (feed_required & reader_deleted) show_empty = false;
    if (show_empty) return true;
    return feed->entry_count > 0 &&
           reader_first_entry(reader, feed, minimum, maximum, entry_required, entry_allowed) != nullptr;
}

feed_t *reader_first_feed(reader_t *reader, bool show_empty, u32 minimum, u32 maximum, u32 feed_required,
                          u32 feed_allowed, u32 entry_required, u32 entry_allowed) {
    pool_t *feeds = &reader->feeds;
    for (u32 i = 0; i < feeds->max_entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), i);
        if (reader_feed_passes(reader, feed, show_empty, minimum, maximum, feed_required, feed_allowed,
                               entry_required, entry_allowed))
            return feed;
    }
    return nullptr;
}

feed_t *reader_last_feed(reader_t *reader, bool show_empty, u32 minimum, u32 maximum, u32 feed_required,
                         u32 feed_allowed, u32 entry_required, u32 entry_allowed) {
    pool_t *feeds = &reader->feeds;
    for (u32 i = feeds->max_entry_count; i-- > 0;) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), i);
        if (reader_feed_passes(reader, feed, show_empty, minimum, maximum, feed_required, feed_allowed,
                               entry_required, entry_allowed))
            return feed;
    }
    return nullptr;
}

feed_t *reader_previous_feed(reader_t *reader, feed_t *feed, bool show_empty, u32 minimum, u32 maximum,
                             u32 feed_required, u32 feed_allowed, u32 entry_required, u32 entry_allowed) {
    if (!feed) return nullptr;
    pool_t *feeds = &reader->feeds;
    u64 slot = pool_index_of(feeds, sizeof(feed_t), feed);
    if (slot > feeds->max_entry_count) slot = feeds->max_entry_count;
    for (u64 i = slot; i-- > 0;) {
        feed_t *other = (feed_t *)pool_entry(feeds, sizeof(feed_t), i);
        if (reader_feed_passes(reader, other, show_empty, minimum, maximum, feed_required, feed_allowed,
                               entry_required, entry_allowed))
            return other;
    }
    return nullptr;
}

feed_t *reader_next_feed(reader_t *reader, feed_t *feed, bool show_empty, u32 minimum, u32 maximum,
                         u32 feed_required, u32 feed_allowed, u32 entry_required, u32 entry_allowed) {
    if (!feed) return nullptr;
    pool_t *feeds = &reader->feeds;
    u64 slot = pool_index_of(feeds, sizeof(feed_t), feed);
    for (u64 i = slot + 1; i < feeds->max_entry_count; i++) {
        feed_t *other = (feed_t *)pool_entry(feeds, sizeof(feed_t), i);
        if (reader_feed_passes(reader, other, show_empty, minimum, maximum, feed_required, feed_allowed,
                               entry_required, entry_allowed))
            return other;
    }
    return nullptr;
}

void reader_sort_all(reader_t *reader) {
    pool_t *feeds = &reader->feeds;
    u32 seen = 0;
    for (u32 f = 0; f < feeds->max_entry_count && seen < feeds->entry_count; f++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), f);
        if (!feed_is_valid(feed)) continue;
        seen++;
        reader_sort_feed(reader, feed);
    }
}
