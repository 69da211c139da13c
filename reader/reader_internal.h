// reader_internal.h - what the reader's own files share: pool predicates,
// the record walk, the string walks, and the scratch of sorting.
#pragma once

#include "base/sort.h"
#include "reader/reader.h"

// Pool predicates in the form the pool functions take.
bool reader_pool_live_feed(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_entry(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_category(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_person(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_atom_link(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_link(void *entry, pool_iterator_t *iterator);
bool reader_pool_live_meta(void *entry, pool_iterator_t *iterator);

inline pool_iterator_t reader_iterator(pool_t *pool, u64 entry_size, pool_is_live_t *is_live) {
    pool_iterator_t iterator;
    pool_iterator_create(&iterator, pool, entry_size, is_live);
    return iterator;
}

// Walks the live records of a pool in slot order, stopping once the pool's
// count has been seen.
#define READER_FOR_EACH(type, name, pool, is_live)                                                       \
    for (pool_iterator_t name##_iterator = reader_iterator(&(pool), sizeof(type), is_live);              \
         type *name = (type *)pool_iterator_next(&name##_iterator);)

// Calls `visit` on each string field of the records of slots 0 to count - 1
// of feeds, entries, categories, persons and atom links, in that order (the
// order of the file). Returns false, having stopped, at a feed or entry of
// another type than RSS or Atom, with *bad_feed or *bad_entry set.
typedef bool reader_string_visit_t(void *context, data_t *field);
bool reader_visit_strings(reader_t *reader, reader_string_visit_t *visit, void *context, bool *bad_feed,
                          bool *bad_entry);
// The same on the string fields of the ten link configurations.
bool reader_visit_configurations(reader_t *reader, reader_string_visit_t *visit, void *context);

// Scratch for sorting and look-up tables; the reader is used by the main
// thread only, and no two users of it overlap.
struct reader_scratch_t {
    u64 keys_a[reader_entry_capacity + reader_link_capacity];
    u64 keys_b[reader_link_capacity + reader_atom_link_capacity];
    u64 keys_c[reader_category_capacity + reader_person_capacity];
    u64 keys_d[reader_entry_capacity];
    u32 slots[reader_entry_capacity];
    u8 record[sizeof(feed_t)];
};
extern reader_scratch_t reader_scratch;


// The relation checks of the audit; 0 when all agree.
u32 reader_audit_relations(reader_t *reader);
