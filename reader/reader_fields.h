// reader_fields.h - the one list of each record's fields, in record order.
// Each list is a macro that applies X(kind, name) to every field; from it come
// the members of the records (reader.h), the string tables that compaction,
// rebasing and the load's checks walk (compact.cpp), and the tool's dump.
// Adding a field here adds it everywhere; the static_asserts of reader.h keep
// the file layout fixed.
//
// Kinds: string (data_t into the text), date (date_t), u32, u64, unused (a
// u32 of padding, zero), hours (u32[24], one flag an hour), days (u32[7],
// Monday first).
#pragma once

// The start every feed record has; then the RSS or the Atom part.
#define READER_FEED_FIELDS(X)                                                                                 \
    X(u32, type_and_flags) /* low 31 bits: 0 free, 1 RSS, 2 Atom; bit 31 deleted */                         \
    X(u32, id)             /* from 1 */                                                                      \
    X(u32, entry_count)    /* entries of this feed in the pool, marked or not */                             \
    X(unused, unused_12)                                                                                      \
    X(string, url) /* where the feed is fetched from */

#define READER_FEED_RSS_FIELDS(X)                                                                             \
    X(string, title)                                                                                          \
    X(string, link)                                                                                           \
    X(string, description)                                                                                    \
    X(string, language)                                                                                       \
    X(string, copyright)                                                                                      \
    X(string, managing_editor)                                                                                \
    X(string, web_master)                                                                                     \
    X(date, pub_date)                                                                                         \
    X(date, last_build_date)                                                                                  \
    X(u32, category_count) /* links of kind 1 owned by this feed */                                          \
    X(unused, unused_228)                                                                                     \
    X(string, generator)                                                                                      \
    X(string, docs)                                                                                           \
    X(string, cloud_domain)                                                                                   \
    X(u32, cloud_port)                                                                                        \
    X(unused, unused_308)                                                                                     \
    X(string, cloud_path)                                                                                     \
    X(string, cloud_register_procedure)                                                                       \
    X(string, cloud_protocol)                                                                                 \
    X(u32, ttl) /* minutes */                                                                                 \
    X(unused, unused_388)                                                                                     \
    X(string, image_url)                                                                                      \
    X(string, image_title)                                                                                    \
    X(string, image_link)                                                                                     \
    X(u32, image_width)                                                                                       \
    X(u32, image_height)                                                                                      \
    X(string, image_description)                                                                              \
    X(string, rating)                                                                                         \
    X(string, text_input_title)                                                                               \
    X(string, text_input_description)                                                                         \
    X(string, text_input_name)                                                                                \
    X(string, text_input_link)                                                                                \
    X(hours, skip_hours)                                                                                      \
    X(days, skip_days)                                                                                        \
    X(unused, unused_740)

#define READER_FEED_ATOM_FIELDS(X)                                                                            \
    X(u32, author_count)      /* links of kind 5 */                                                           \
    X(u32, category_count)    /* links of kind 3 */                                                           \
    X(u32, contributor_count) /* links of kind 7 */                                                           \
    X(u32, link_count)        /* atom links with owner kind 1 */                                              \
    X(string, generator)                                                                                      \
    X(string, generator_uri)                                                                                  \
    X(string, generator_version)                                                                              \
    X(string, icon)                                                                                           \
    X(string, logo)                                                                                           \
    X(string, atom_id)                                                                                        \
    X(string, rights)                                                                                         \
    X(string, subtitle)                                                                                       \
    X(string, title)                                                                                          \
    X(date, updated)

// The start every entry record has; then the RSS or the Atom part.
#define READER_ENTRY_FIELDS(X)                                                                                \
    X(u32, type_and_flags) /* the feed's type; bit 31 deleted */                                             \
    X(u32, id)             /* from 1 */                                                                      \
    X(u32, feed_id)        /* the owning feed */                                                             \
    X(u32, generation)     /* the reader's generation when the entry was made */

#define READER_ENTRY_RSS_FIELDS(X)                                                                            \
    X(string, title)                                                                                          \
    X(string, link)                                                                                           \
    X(string, description)                                                                                    \
    X(string, author)                                                                                         \
    X(string, comments)                                                                                       \
    X(string, enclosure_url)                                                                                  \
    X(u64, enclosure_length)                                                                                  \
    X(string, enclosure_type)                                                                                 \
    X(string, source)                                                                                         \
    X(string, source_url)                                                                                     \
    X(string, guid)                                                                                           \
    X(u32, guid_is_perma_link) /* 1 unless the feed says otherwise */                                        \
    X(u32, category_count)     /* links of kind 2 */                                                         \
    X(date, pub_date)

#define READER_ENTRY_ATOM_FIELDS(X)                                                                           \
    X(u32, author_count)      /* links of kind 6 */                                                           \
    X(u32, category_count)    /* links of kind 4 */                                                           \
    X(u32, contributor_count) /* links of kind 8 */                                                           \
    X(u32, link_count)        /* atom links with owner kind 2 */                                              \
    X(string, content)                                                                                        \
    X(string, atom_id)                                                                                        \
    X(string, rights)                                                                                         \
    X(string, source)                                                                                         \
    X(string, summary)                                                                                        \
    X(string, title)                                                                                          \
    X(date, published)                                                                                        \
    X(date, updated)

// Shared by every owner that names it. For RSS the element's text is the term.
#define READER_CATEGORY_FIELDS(X)                                                                             \
    X(u32, id) /* 0 while the slot is free */                                                                \
    X(unused, unused_4)                                                                                       \
    X(string, term)                                                                                           \
    X(string, scheme)                                                                                         \
    X(string, label)

#define READER_PERSON_FIELDS(X)                                                                               \
    X(u32, id) /* 0 while the slot is free */                                                                \
    X(unused, unused_4)                                                                                       \
    X(string, name)                                                                                           \
    X(string, uri)                                                                                            \
    X(string, email)

#define READER_ATOM_LINK_FIELDS(X)                                                                            \
    X(u32, owner_kind) /* atom_link_owner_*: 0 free, 1 a feed, 2 an entry */                                 \
    X(u32, owner_id)                                                                                          \
    X(string, href)                                                                                           \
    X(string, type)                                                                                           \
    X(string, hreflang)                                                                                       \
    X(string, title)                                                                                          \
    X(u32, rel) /* atom_link_rel_* */                                                                         \
    X(unused, unused_108)                                                                                     \
    X(u64, length)

// A many-to-many joint.
#define READER_LINK_FIELDS(X)                                                                                 \
    X(u32, kind) /* link_kind_*, 0 while free */                                                             \
    X(u32, owner_id)                                                                                          \
    X(u32, target_id)

// How a feed's links are opened.
#define READER_LINK_CONFIGURATION_FIELDS(X)                                                                   \
    X(string, name)                                                                                           \
    X(string, executable)                                                                                     \
    X(string, queued_links)                                                                                   \
    X(u32, queue_links)                                                                                       \
    X(unused, unused_76)

// What the user set on one feed; then the link configuration (a pointer in
// memory, an index in the file), which no list can describe.
#define READER_META_FIELDS(X)                                                                                 \
    X(u32, feed_id) /* 0 while the slot is free */                                                           \
    X(u32, flags)   /* meta_* */

// The members of a record from its list.
#define READER_MEMBER(kind, name) READER_MEMBER_##kind(name)
#define READER_MEMBER_string(name) data_t name;
#define READER_MEMBER_date(name) date_t name;
#define READER_MEMBER_u32(name) u32 name;
#define READER_MEMBER_u64(name) u64 name;
#define READER_MEMBER_unused(name) u32 name;
#define READER_MEMBER_hours(name) u32 name[24];
#define READER_MEMBER_days(name) u32 name[7];
