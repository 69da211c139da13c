// reader.h - the program's database: feeds, entries and what hangs off them,
// in seven fixed-capacity pools and one append-only text area, reached by
// numeric ids only. Saved as a near-raw snapshot file and read back at start.
//
// Every record layout below is also the layout of the snapshot file, so each
// one is settled in every byte (little-endian; see the static_asserts).
// Main thread only; nothing here locks.
//
// The whole public interface of the store is in this one header:
//   records and pools, text area, look-ups, predicates   (reader.cpp)
//   generations, marks, removal, purge, sort, walks      (generations.cpp)
//   snapshot file: save, load, prune                     (reader_file.cpp)
//   compaction, renumbering, code point trim, audit      (compact.cpp)
#pragma once

#include "base/dates.h"
#include "base/memory.h"
#include "base/text.h"
#include "reader/reader_fields.h"

// ---- capacities (hard limits of the design) ------------------------------------
constexpr u32 reader_feed_capacity = 100;
constexpr u32 reader_entry_capacity = 10000;
constexpr u32 reader_category_capacity = 10000;
constexpr u32 reader_person_capacity = 1000;
constexpr u32 reader_atom_link_capacity = 1000;
constexpr u32 reader_link_capacity = 10000;
constexpr u32 reader_meta_capacity = 100;
constexpr u32 reader_link_configuration_count = 10;

constexpr u64 reader_text_block_size = 0x6400000; // 100 MB of address space
constexpr u64 reader_text_commit_step = 0x100000; // 1 MB

// ---- types and flags -------------------------------------------------------------
enum : u32 {
    reader_type_free = 0,
    reader_type_rss = 1,
    reader_type_atom = 2,
};
constexpr u32 reader_type_mask = 0x7FFFFFFF;
constexpr u32 reader_deleted = 0x80000000; // bit 31 of type_and_flags

// Kinds of link records: owner -> target.
enum : u32 {
    link_kind_rss_feed_category = 1,
    link_kind_rss_entry_category = 2,
    link_kind_atom_feed_category = 3,
    link_kind_atom_entry_category = 4,
    link_kind_atom_feed_author = 5,
    link_kind_atom_entry_author = 6,
    link_kind_atom_feed_contributor = 7,
    link_kind_atom_entry_contributor = 8,
};

// Owners of atom links.
enum : u32 {
    atom_link_owner_free = 0,
    atom_link_owner_feed = 1,
    atom_link_owner_entry = 2,
};

// The rel values of atom links.
enum : u32 {
    atom_link_rel_alternate = 0,
    atom_link_rel_related = 1,
    atom_link_rel_self = 2,
    atom_link_rel_enclosure = 3,
    atom_link_rel_via = 4,
    atom_link_rel_other = 5, // any rel not above ("replies", "edit"); none is alternate
};

// Flags of a feed's meta record (what the user set).
enum : u32 {
    meta_sort_oldest_first = 1, // "Sort oldest to newest entries."
    meta_hide_enclosure = 2,    // "Hide enclosure."
    meta_draw_enclosure_image = 4, // "Draw enclosure image."
};

// The pools (and the text area) that refused a record because they were
// full, as bits of reader_t::full.
enum : u32 {
    reader_full_feeds = 1,
    reader_full_entries = 2,
    reader_full_categories = 4,
    reader_full_persons = 8,
    reader_full_atom_links = 16,
    reader_full_links = 32,
    reader_full_metas = 64,
    reader_full_text = 128,
};

// ---- records ------------------------------------------------------------------------
// The fields of each record are listed once, in reader_fields.h.
// Strings are data_t views into the reader's text (UTF-8, reserved == used, not
// zero-terminated); in the file the pointer holds an offset into the text
// section instead. Dates are UTC date_t, zero when unknown.

struct feed_rss_t { // the RSS part of a feed record, from byte 40
    READER_FEED_RSS_FIELDS(READER_MEMBER)
};

struct feed_atom_t { // the Atom part of a feed record, from byte 40
    READER_FEED_ATOM_FIELDS(READER_MEMBER)
    u8 unused_280[464];
};

struct feed_t { // 744 bytes
    READER_FEED_FIELDS(READER_MEMBER)
    union {
        feed_rss_t rss;
        feed_atom_t atom;
    };
};

struct entry_rss_t { // the RSS part of an entry record, from byte 16
    READER_ENTRY_RSS_FIELDS(READER_MEMBER)
};

struct entry_atom_t { // the Atom part of an entry record, from byte 16
    READER_ENTRY_ATOM_FIELDS(READER_MEMBER)
    u8 unused_192[88];
};

struct entry_t { // 280 bytes
    READER_ENTRY_FIELDS(READER_MEMBER)
    union {
        entry_rss_t rss;
        entry_atom_t atom;
    };
};

struct category_t { // 80 bytes
    READER_CATEGORY_FIELDS(READER_MEMBER)
};

struct person_t { // 80 bytes
    READER_PERSON_FIELDS(READER_MEMBER)
};

struct atom_link_t { // 120 bytes
    READER_ATOM_LINK_FIELDS(READER_MEMBER)
};

struct link_t { // 12 bytes
    READER_LINK_FIELDS(READER_MEMBER)
};

struct link_configuration_t { // 80 bytes
    READER_LINK_CONFIGURATION_FIELDS(READER_MEMBER)
};

struct meta_t { // 16 bytes
    READER_META_FIELDS(READER_MEMBER)
    union {
        link_configuration_t *link_configuration; // in memory
        u64 link_configuration_index;             // in the file, 0 to 9
    };
};

static_assert(sizeof(date_t) == 8);
static_assert(sizeof(data_t) == 24);
static_assert(offsetof(feed_t, url) == 16);
static_assert(offsetof(feed_t, rss) == 40);
static_assert(offsetof(feed_t, rss.title) == 40);
static_assert(offsetof(feed_t, rss.web_master) == 184);
static_assert(offsetof(feed_t, rss.pub_date) == 208);
static_assert(offsetof(feed_t, rss.last_build_date) == 216);
static_assert(offsetof(feed_t, rss.category_count) == 224);
static_assert(offsetof(feed_t, rss.generator) == 232);
static_assert(offsetof(feed_t, rss.docs) == 256);
static_assert(offsetof(feed_t, rss.cloud_domain) == 280);
static_assert(offsetof(feed_t, rss.cloud_port) == 304);
static_assert(offsetof(feed_t, rss.cloud_path) == 312);
static_assert(offsetof(feed_t, rss.cloud_register_procedure) == 336);
static_assert(offsetof(feed_t, rss.cloud_protocol) == 360);
static_assert(offsetof(feed_t, rss.ttl) == 384);
static_assert(offsetof(feed_t, rss.image_url) == 392);
static_assert(offsetof(feed_t, rss.image_title) == 416);
static_assert(offsetof(feed_t, rss.image_link) == 440);
static_assert(offsetof(feed_t, rss.image_width) == 464);
static_assert(offsetof(feed_t, rss.image_height) == 468);
static_assert(offsetof(feed_t, rss.image_description) == 472);
static_assert(offsetof(feed_t, rss.rating) == 496);
static_assert(offsetof(feed_t, rss.text_input_title) == 520);
static_assert(offsetof(feed_t, rss.text_input_description) == 544);
static_assert(offsetof(feed_t, rss.text_input_name) == 568);
static_assert(offsetof(feed_t, rss.text_input_link) == 592);
static_assert(offsetof(feed_t, rss.skip_hours) == 616);
static_assert(offsetof(feed_t, rss.skip_days) == 712);
static_assert(offsetof(feed_t, atom.author_count) == 40);
static_assert(offsetof(feed_t, atom.category_count) == 44);
static_assert(offsetof(feed_t, atom.contributor_count) == 48);
static_assert(offsetof(feed_t, atom.link_count) == 52);
static_assert(offsetof(feed_t, atom.generator) == 56);
static_assert(offsetof(feed_t, atom.generator_uri) == 80);
static_assert(offsetof(feed_t, atom.generator_version) == 104);
static_assert(offsetof(feed_t, atom.icon) == 128);
static_assert(offsetof(feed_t, atom.logo) == 152);
static_assert(offsetof(feed_t, atom.atom_id) == 176);
static_assert(offsetof(feed_t, atom.rights) == 200);
static_assert(offsetof(feed_t, atom.subtitle) == 224);
static_assert(offsetof(feed_t, atom.title) == 248);
static_assert(offsetof(feed_t, atom.updated) == 272);
static_assert(sizeof(feed_t) == 744 && alignof(feed_t) == 8);

static_assert(offsetof(entry_t, rss.title) == 16);
static_assert(offsetof(entry_t, rss.link) == 40);
static_assert(offsetof(entry_t, rss.description) == 64);
static_assert(offsetof(entry_t, rss.author) == 88);
static_assert(offsetof(entry_t, rss.comments) == 112);
static_assert(offsetof(entry_t, rss.enclosure_url) == 136);
static_assert(offsetof(entry_t, rss.enclosure_length) == 160);
static_assert(offsetof(entry_t, rss.enclosure_type) == 168);
static_assert(offsetof(entry_t, rss.source) == 192);
static_assert(offsetof(entry_t, rss.source_url) == 216);
static_assert(offsetof(entry_t, rss.guid) == 240);
static_assert(offsetof(entry_t, rss.guid_is_perma_link) == 264);
static_assert(offsetof(entry_t, rss.category_count) == 268);
static_assert(offsetof(entry_t, rss.pub_date) == 272);
static_assert(offsetof(entry_t, atom.author_count) == 16);
static_assert(offsetof(entry_t, atom.category_count) == 20);
static_assert(offsetof(entry_t, atom.contributor_count) == 24);
static_assert(offsetof(entry_t, atom.link_count) == 28);
static_assert(offsetof(entry_t, atom.content) == 32);
static_assert(offsetof(entry_t, atom.atom_id) == 56);
static_assert(offsetof(entry_t, atom.rights) == 80);
static_assert(offsetof(entry_t, atom.source) == 104);
static_assert(offsetof(entry_t, atom.summary) == 128);
static_assert(offsetof(entry_t, atom.title) == 152);
static_assert(offsetof(entry_t, atom.published) == 176);
static_assert(offsetof(entry_t, atom.updated) == 184);
static_assert(sizeof(entry_t) == 280 && alignof(entry_t) == 8);

static_assert(offsetof(category_t, term) == 8 && offsetof(category_t, scheme) == 32);
static_assert(offsetof(category_t, label) == 56 && sizeof(category_t) == 80);
static_assert(offsetof(person_t, name) == 8 && offsetof(person_t, uri) == 32);
static_assert(offsetof(person_t, email) == 56 && sizeof(person_t) == 80);
static_assert(offsetof(atom_link_t, href) == 8 && offsetof(atom_link_t, type) == 32);
static_assert(offsetof(atom_link_t, hreflang) == 56 && offsetof(atom_link_t, title) == 80);
static_assert(offsetof(atom_link_t, rel) == 104 && offsetof(atom_link_t, length) == 112);
static_assert(sizeof(atom_link_t) == 120);
static_assert(sizeof(link_t) == 12 && alignof(link_t) == 4);
static_assert(offsetof(meta_t, link_configuration) == 8 && sizeof(meta_t) == 16);
static_assert(offsetof(link_configuration_t, executable) == 24);
static_assert(offsetof(link_configuration_t, queued_links) == 48);
static_assert(offsetof(link_configuration_t, queue_links) == 72);
static_assert(sizeof(link_configuration_t) == 80);

// ---- the reader -----------------------------------------------------------------------
// Called with the old bytes of a link configuration string that lay outside
// the text area (the file storage) when a save brings it home; the app points
// it at file_storage_free_unmerged.
typedef void reader_text_release_t(void *context, u8 *bytes, u64 size);
// Called with the id of each entry that is removed (image_queries_forget).
typedef void reader_entry_forget_t(u32 entry_id);

struct reader_t {
    data_t storage; // one block for the seven pools
    pool_t feeds;
    pool_t entries;
    pool_t categories;
    pool_t persons;
    pool_t atom_links;
    pool_t links;
    data_t text_block;       // 100 MB of address space; used = bytes committed
    data_t text_block_spare; // the same, committed only while a save compacts
    data_t text;             // reserved = committed, used = in use, bytes = start
    u32 last_feed_id;
    u32 last_entry_id;
    u32 last_category_id;
    u32 last_person_id;
    u32 generation;
    code_point_list_t *code_points; // the app's list, shared with the atlas
    link_configuration_t link_configurations[reader_link_configuration_count];
    pool_t metas;

    // Set when a category (or person) may have lost its last link or was
    // made without one; a collection that finds nothing to do is skipped
    // while they are clear, which keeps the rollback of a refused item cheap.
    u32 categories_unlinked;
    u32 persons_unlinked;
    // reader_full_* bits of what was refused for want of room since the
    // caller last cleared them. Capacities are fixed; a full pool refuses
    // what does not fit, and the caller tells the user.
    u32 full;

    // Hooks into the higher layers; each may stay null.
    u32 *replacement_glyph_index; // set to the position of U+FFFD in the list
    reader_text_release_t *text_release;
    void *text_release_context;
    reader_entry_forget_t *entry_forget;
};

// Mark of the text area and the two counters that a refused item rolls back.
struct reader_text_mark_t {
    data_t text;
    u32 last_category_id;
    u32 last_person_id;
};
static_assert(sizeof(reader_text_mark_t) == 32);

// ---- construction and text ----------------------------------------------------------------
// On zeroed memory: the pools in one block, the two text blocks reserved and
// 1 MB of the first committed.
void reader_init(reader_t *reader);
// Makes a reader empty again as reader_init left it, keeping its memory (the
// text area stays committed) and its code point list and hooks.
void reader_reset(reader_t *reader);
// Makes sure `needed_size` bytes of text fit (committing in steps of 1 MB);
// false when the 100 MB of the area would be passed.
bool reader_text_reserve(reader_t *reader, u64 needed_size);
// Copies the string to the end of the text area and returns the copy
// (reserved == used). A text area past 100 MB stops the process: callers
// with text from outside check reader_text_fits first.
data_t reader_text_add(reader_t *reader, const data_t *string);
// Whether `size` more bytes fit the text area (committing what they need);
// when not, sets reader_full_text in reader->full.
bool reader_text_fits(reader_t *reader, u64 size);
reader_text_mark_t reader_text_mark(reader_t *reader);
// Undoes everything since the mark: unlinked categories and persons go, the
// text's used size and the category and person counters return.
void reader_text_rollback(reader_t *reader, reader_text_mark_t mark);
void reader_collect_categories(reader_t *reader);
void reader_collect_persons(reader_t *reader);

// ---- predicates (null gives false or 0) --------------------------------------------------
u32 feed_get_type(const feed_t *feed);
u32 entry_get_type(const entry_t *entry);
bool feed_is_valid(const feed_t *feed);
bool entry_is_valid(const entry_t *entry);
bool category_is_valid(const category_t *category);
bool person_is_valid(const person_t *person);
bool meta_is_valid(const meta_t *meta);
bool atom_link_is_valid(const atom_link_t *link);
bool link_is_valid(const link_t *link);
// Whether flags (the high bits of a type word) hold all of `required` and
// nothing outside required | allowed; with both 0 the flags must be 0.
bool reader_flags_pass(u32 type_and_flags, u32 required, u32 allowed);

// ---- creation ------------------------------------------------------------------------------
// Each creation function below returns null when its pool is full, and then
// sets that pool's bit in reader->full.
// A zeroed feed of the type with the next id; null when the pool is full.
feed_t *reader_new_feed(reader_t *reader, u32 type);
// A zeroed entry with id last_entry_id + 1 (the counter does not move) and the
// current generation; its type stays 0, unseen by every walk, until accepted.
entry_t *reader_new_entry(reader_t *reader);
// Makes a new entry count: the feed's entry_count, the entry's feed id and
// type, and last_entry_id.
void reader_accept_entry(reader_t *reader, feed_t *feed, entry_t *entry);
// A category or person with the next id (null when full), an atom link of an
// owner, a link record; the caller fills the rest and keeps its owner's counts.
category_t *reader_new_category(reader_t *reader);
person_t *reader_new_person(reader_t *reader);
atom_link_t *reader_new_atom_link(reader_t *reader, u32 owner_kind, u32 owner_id);
link_t *reader_new_link(reader_t *reader, u32 kind, u32 owner_id, u32 target_id);
// The meta record of a new feed, pointing at the first link configuration.
meta_t *reader_new_meta(reader_t *reader, const feed_t *feed);

// ---- look-ups (null or empty when nothing matches) -------------------------------------
feed_t *reader_get_feed_by_id(reader_t *reader, u32 id);
feed_t *reader_get_feed_by_url(reader_t *reader, const data_t *url);
entry_t *reader_get_entry_by_id(reader_t *reader, u32 feed_id, u32 entry_id);
entry_t *reader_get_entry_by_guid(reader_t *reader, u32 feed_id, const data_t *guid);
data_t entry_get_guid(const entry_t *entry);
category_t *reader_get_category_by_id(reader_t *reader, u32 id);
person_t *reader_get_person_by_id(reader_t *reader, u32 id);
meta_t *reader_get_meta(reader_t *reader, u32 feed_id);
data_t reader_get_atom_link(reader_t *reader, u32 owner_id, u32 owner_link_count, u32 owner_kind, u32 rel);
data_t feed_get_title(const feed_t *feed);
data_t entry_get_title(const entry_t *entry);

// ---- generations ----------------------------------------------------------------------------
// Adds 1 to the generation and moves the shown range (either pointer may be
// null) to it. The fetching actions call it only while the reader's
// generation still equals the start generation of the run.
void reader_generation_advance(reader_t *reader, u32 *shown_minimum, u32 *shown_maximum);
u32 reader_previous_generation(reader_t *reader, u32 generation, u32 required, u32 allowed);
u32 reader_next_generation(reader_t *reader, u32 generation, u32 required, u32 allowed);

// ---- marks and removal ------------------------------------------------------------------------
void entry_mark_deleted(entry_t *entry);
void entry_restore(entry_t *entry);
bool entry_is_deleted(const entry_t *entry);
void feed_mark_deleted(reader_t *reader, feed_t *feed);
void feed_restore(reader_t *reader, feed_t *feed, bool with_entries);
bool feed_is_deleted(const feed_t *feed);
// Removes the entry, its links and atom links; with a feed, its entry_count
// falls by one. Categories and persons stay until a rollback or a save.
void reader_delete_entry(reader_t *reader, entry_t *entry, feed_t *feed);
void reader_delete_atom_links(reader_t *reader, void *owner, u32 owner_kind);
void reader_delete_feed(reader_t *reader, feed_t *feed);
// Removes every marked feed and every marked entry, then sorts every feed.
void reader_purge_deleted(reader_t *reader);

// ---- order and walks ------------------------------------------------------------------------
// Exchange sort of the feed's entries by date, newest first unless the meta
// record asks for oldest first; records move between slots.
void reader_sort_feed(reader_t *reader, feed_t *feed);
// Every feed sorted: after a load, a purge and the squeeze of a save, which
// move records between slots.
void reader_sort_all(reader_t *reader);
// Walks in slot order, filtered by generation range (inclusive) and flags.
entry_t *reader_first_entry(reader_t *reader, feed_t *feed, u32 minimum, u32 maximum, u32 required, u32 allowed);
entry_t *reader_last_entry(reader_t *reader, feed_t *feed, u32 minimum, u32 maximum, u32 required, u32 allowed);
entry_t *reader_previous_entry(reader_t *reader, feed_t *feed, entry_t *entry, u32 minimum, u32 maximum,
                               u32 required, u32 allowed);
entry_t *reader_next_entry(reader_t *reader, feed_t *feed, entry_t *entry, u32 minimum, u32 maximum, u32 required,
                           u32 allowed);
feed_t *reader_first_feed(reader_t *reader, bool show_empty, u32 minimum, u32 maximum, u32 feed_required,
                          u32 feed_allowed, u32 entry_required, u32 entry_allowed);
feed_t *reader_last_feed(reader_t *reader, bool show_empty, u32 minimum, u32 maximum, u32 feed_required,
                         u32 feed_allowed, u32 entry_required, u32 entry_allowed);
feed_t *reader_previous_feed(reader_t *reader, feed_t *feed, bool show_empty, u32 minimum, u32 maximum,
                             u32 feed_required, u32 feed_allowed, u32 entry_required, u32 entry_allowed);
feed_t *reader_next_feed(reader_t *reader, feed_t *feed, bool show_empty, u32 minimum, u32 maximum,
                         u32 feed_required, u32 feed_allowed, u32 entry_required, u32 entry_allowed);

// ---- the snapshot file --------------------------------------------------------------------------
// feed_data_<yyyymmdd_hhmmss>.bin in the user folder: magic "feed", version 1,
// a table of five (offset, size) pairs, then counters, pools, link
// configurations, code points and text. The newest 10 are kept.
constexpr u32 reader_file_version = 1;
constexpr u64 reader_file_header_size = 88;
constexpr u32 reader_files_kept = 10;

enum : u32 { // reader file errors; the file layer's own codes are below 0x100
    reader_error_magic = 0x101,
    reader_error_version = 0x102,
    reader_error_section = 0x103,  // a section not where the table says, or of another size
    reader_error_count = 0x104,    // a count beyond a pool's or the list's capacity
    reader_error_string = 0x105,   // a string outside the text section
    reader_error_text = 0x106,     // more text than the text area holds
    reader_error_size = 0x107,     // bytes after the last section
    reader_error_records = 0x108,  // records that disagree with their counts or relations
    reader_error_no_folder = 0x109,
};

// Saves a new snapshot in the folder (created when missing) and prunes old
// ones; temporary files that an earlier save left behind go first. Returns
// false, with a line in the log, when the file could not be written, and the
// system's code of the reason in *system_error (when given; 0 when the system
// named none). The reader in memory is unharmed either way. Saving compacts
// and renumbers the reader: ids, generations and slots change.
bool reader_save(reader_t *reader, const data_t *user_folder, data_t *frame_memory, u32 *system_error = nullptr,
                 data_t *saved_path = nullptr);
// Reads the newest snapshot of the folder into a reader fresh from
// reader_init. No folder or no snapshot leaves the reader empty. A file that
// can't be read leaves its code in *error and its path in *path (a view into
// frame memory); the reader is then not fit for use.
void reader_load(reader_t *reader, const data_t *user_folder, data_t *frame_memory, data_t *path, u32 *error);
// Writes to stderr which file could not be read and what to do about it.
void reader_report_unreadable(const data_t *path, u32 error);
// The steps of a save without the name and the pruning. The file appears
// under `path` only when all of it is written (a temporary name first).
void reader_write(reader_t *reader, data_t *frame_memory, const data_t *path, u32 *error);
void reader_read(reader_t *reader, const data_t *path, u32 *error);
// The date number of a reader file name (path or name), 0 for any other name.
u64 reader_file_date(const u8 *path, u64 path_size);
// Deletes the oldest reader files beyond the newest 10; other names stay.
void reader_prune(const data_t *user_folder, data_t *frame_memory);
// Deletes "<reader file>.tmp" files older than ten minutes (a save that died
// before its rename); newer ones may belong to a save still running.
void reader_remove_stale_temporaries(const data_t *user_folder, data_t *frame_memory);

// ---- compaction and audit ---------------------------------------------------------------------
void reader_compact(reader_t *reader);
void reader_rebase(reader_t *reader);
void reader_renumber_generations(reader_t *reader, data_t *frame_memory);
void reader_renumber_ids(reader_t *reader, data_t *frame_memory);
void reader_trim_code_points(reader_t *reader);
// Checks every pool count and every owner's link counts, logs the counts on
// channel 0, and stops the process on any disagreement.
void reader_audit(reader_t *reader);
// The same checks without logging or stopping: true when all agree.
bool reader_audit_check(reader_t *reader);
// The audit of a reader whose relations reader_audit_check has just passed
// and that only had its strings moved since: the pool counts, checked and
// logged as reader_audit does, without walking the relations again.
void reader_audit_after_check(reader_t *reader);
