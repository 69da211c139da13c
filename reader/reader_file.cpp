// reader_file.cpp - the snapshot file: writing a tidied reader under a new
// dated name, pruning to the newest ten, and reading the newest back.
//
// The file is a near-raw dump: a header with a table of five sections, then
// counters, the pools' records (slots 0 to count - 1), the link
// configurations, the code point list and the text. Strings hold offsets
// into the text section in place of pointers.
#include "base/files.h"
#include "base/log.h"
#include "os/os_core.h"
#include "reader/reader.h"
#include "reader/reader_internal.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "The reader file is written as the memory stands.");

static const u8 reader_file_magic[4] = {'f', 'e', 'e', 'd'};
static const char reader_file_prefix[] = "feed_data_";
constexpr u64 reader_file_prefix_size = sizeof(reader_file_prefix) - 1;
constexpr u64 reader_file_stamp_size = 15; // yyyymmdd_hhmmss

struct reader_pool_layout_t {
    pool_t *pool;
    u64 record_size;
};

static void reader_pool_layouts(reader_t *reader, reader_pool_layout_t layouts[7]) {
    layouts[0] = {&reader->feeds, sizeof(feed_t)};
    layouts[1] = {&reader->entries, sizeof(entry_t)};
    layouts[2] = {&reader->categories, sizeof(category_t)};
    layouts[3] = {&reader->persons, sizeof(person_t)};
    layouts[4] = {&reader->atom_links, sizeof(atom_link_t)};
    layouts[5] = {&reader->links, sizeof(link_t)};
    layouts[6] = {&reader->metas, sizeof(meta_t)};
}

// ---- squeezing the pools ----------------------------------------------------------------

static bool reader_compact_live_feed(void *entry, u64, u64) { return feed_is_valid((feed_t *)entry); }
static bool reader_compact_live_entry(void *entry, u64, u64) { return entry_is_valid((entry_t *)entry); }
static bool reader_compact_live_category(void *entry, u64, u64) { return category_is_valid((category_t *)entry); }
static bool reader_compact_live_person(void *entry, u64, u64) { return person_is_valid((person_t *)entry); }
static bool reader_compact_live_atom_link(void *entry, u64, u64) { return atom_link_is_valid((atom_link_t *)entry); }
static bool reader_compact_live_link(void *entry, u64, u64) { return link_is_valid((link_t *)entry); }
static bool reader_compact_live_meta(void *entry, u64, u64) { return meta_is_valid((meta_t *)entry); }
// The old place of a moved record becomes free.
static void reader_compact_moved(void *old_entry, void *) { *(u32 *)old_entry = 0; }

static void reader_squeeze_pools(reader_t *reader) {
    pool_compact(&reader->feeds, sizeof(feed_t), reader_compact_live_feed, reader_compact_moved);
    pool_compact(&reader->entries, sizeof(entry_t), reader_compact_live_entry, reader_compact_moved);
    pool_compact(&reader->categories, sizeof(category_t), reader_compact_live_category, reader_compact_moved);
    pool_compact(&reader->persons, sizeof(person_t), reader_compact_live_person, reader_compact_moved);
    pool_compact(&reader->atom_links, sizeof(atom_link_t), reader_compact_live_atom_link, reader_compact_moved);
    pool_compact(&reader->links, sizeof(link_t), reader_compact_live_link, reader_compact_moved);
    pool_compact(&reader->metas, sizeof(meta_t), reader_compact_live_meta, reader_compact_moved);
}

// ---- writing ----------------------------------------------------------------------------

struct reader_writer_t {
    file_handle_t file;
    u64 position;
    u32 *error;
    u32 system_error; // the system's code of the first failure, 0 if it gave none
};

// Notes the system's reason of the call that just set the error.
static void reader_note_failure(reader_writer_t *writer) {
    if (*writer->error && !writer->system_error) writer->system_error = os_last_error();
}

static void reader_put(reader_writer_t *writer, const void *bytes, u64 size) {
    if (size && !*writer->error) {
        file_write(writer->file, writer->position, size, bytes, writer->error);
        reader_note_failure(writer);
    }
    writer->position += size;
}

static void reader_put_u32(reader_writer_t *writer, u32 value) { reader_put(writer, &value, 4); }

// reader_write with the system's reason of a failure in *system_error.
static void reader_write_file(reader_t *reader, data_t *frame_memory, const data_t *path, u32 *error,
                              u32 *system_error) {
    if (*error) return;
    assert_message(reader->code_points, "The reader has no code point list.");

    reader_audit(reader);
    reader_collect_categories(reader);
    reader_collect_persons(reader);
    reader_squeeze_pools(reader);
    reader_sort_all(reader); // the squeeze moved records from the end into holes
    reader_compact(reader);
    reader_renumber_generations(reader, frame_memory);
    reader_renumber_ids(reader, frame_memory);
    reader_trim_code_points(reader);
    reader_audit(reader);

    // The bytes go under a temporary name in the same folder, and only a
    // complete, flushed file is renamed to the reader file name.
    u64 used_before = frame_memory->used;
    data_t temporary = {path->used + 5, 0, (u8 *)data_push(frame_memory, path->used + 5, 1)};
    assert_message(temporary.bytes, "No frame memory for the file name.");
    data_push_raw(&temporary, path->bytes, path->used);
    data_push_c_string(&temporary, ".tmp");

    reader_writer_t writer = {};
    writer.error = error;
    writer.file = file_open(&temporary, true, true, error);
    reader_note_failure(&writer);

    u64 table[10] = {};
    reader_put(&writer, reader_file_magic, 4);
    reader_put_u32(&writer, reader_file_version);
    reader_put(&writer, table, sizeof(table));

    table[0] = writer.position;
    u32 counters[5] = {reader->last_feed_id, reader->last_entry_id, reader->last_category_id, reader->last_person_id,
                       reader->generation};
    reader_put(&writer, counters, sizeof(counters));
    table[1] = writer.position - table[0];

    table[2] = writer.position;
    reader_pool_layout_t layouts[7];
    reader_pool_layouts(reader, layouts);
    for (reader_pool_layout_t &layout : layouts) {
        reader_put_u32(&writer, layout.pool->entry_count);
        reader_put(&writer, layout.pool->entries, (u64)layout.pool->entry_count * layout.record_size);
    }
    table[3] = writer.position - table[2];

    table[4] = writer.position;
    reader_put(&writer, reader->link_configurations, sizeof(reader->link_configurations));
    table[5] = writer.position - table[4];

    table[6] = writer.position;
    reader_put_u32(&writer, reader->code_points->count);
    reader_put(&writer, reader->code_points->code_points, (u64)reader->code_points->count * 4);
    table[7] = writer.position - table[6];

    table[8] = writer.position;
    reader_put_u32(&writer, (u32)reader->text.used);
    reader_put(&writer, reader->text.bytes, reader->text.used);
    table[9] = writer.position - table[8];

    writer.position = 8;
    reader_put(&writer, table, sizeof(table));
    file_flush(writer.file, error);
    reader_note_failure(&writer);
    if (writer.file != file_handle_invalid) file_close(writer.file, error);
    reader_note_failure(&writer);
    file_rename(&temporary, path, error);
    reader_note_failure(&writer);
    *system_error = writer.system_error;
    if (*error) {
        u32 ignored = 0;
        file_delete(&temporary, &ignored);
    }
    frame_memory->used = used_before;

    reader_rebase(reader);
}

void reader_write(reader_t *reader, data_t *frame_memory, const data_t *path, u32 *error) {
    u32 system_error = 0;
    reader_write_file(reader, frame_memory, path, error, &system_error);
}

// ---- file names and pruning ---------------------------------------------------------------

u64 reader_file_date(const u8 *path, u64 path_size) {
    if (!path) return 0;
    u64 name_start = 0;
    for (u64 i = 0; i < path_size; i++)
        if (path[i] == '/' || path[i] == '\\') name_start = i + 1;
    data_t name = {path_size - name_start, path_size - name_start, (u8 *)path + name_start};
    data_t stem = path_without_extension(&name);
    if (stem.used != reader_file_prefix_size + reader_file_stamp_size) return 0;
    // Only names of the program's own form count; anything else is the
    // user's and is never chosen, nor deleted.
    if (!memory_starts_with(stem.bytes, stem.bytes + stem.used, reader_file_prefix, reader_file_prefix_size)) return 0;
    data_t stamp = {reader_file_stamp_size, reader_file_stamp_size, stem.bytes + reader_file_prefix_size};
    return date_to_number(date_from_file_text(&stamp));
}

// The "bin" files of the folder, each path with its size in bytes.
struct reader_file_names_t {
    file_list_t list;
    u64 *lengths;
};

static constexpr u32 reader_file_list_capacity = 4096;

static reader_file_names_t reader_list_files(const data_t *folder, data_t *frame_memory, const data_t *extension) {
    reader_file_names_t names = {};
    file_list_create(&names.list, frame_memory, reader_file_list_capacity);
    if (!names.list.paths) return names;
    file_list_directory(&names.list, folder, extension, nullptr, file_walk_files);
    // Paths lie one after another in the arena, so each ends where the next
    // begins.
    // The text ends here: the lengths below go onto the same arena.
    u8 *text_end = data_end(names.list.text);
    names.lengths = (u64 *)data_push(frame_memory, (u64)names.list.count * 8 + 8, 8);
    if (!names.lengths) {
        names.list.count = 0;
        return names;
    }
    for (u32 i = 0; i < names.list.count; i++) {
        u8 *end = i + 1 < names.list.count ? names.list.paths[i + 1] : text_end;
        names.lengths[i] = (u64)(end - names.list.paths[i]);
    }
    return names;
}

void reader_prune(const data_t *user_folder, data_t *frame_memory) {
    u64 used_before = frame_memory->used;
    data_t bin = data_literal("bin");
    reader_file_names_t names = reader_list_files(user_folder, frame_memory, &bin);
    u32 count = names.list.count;
    if (count > reader_files_kept) {
        // Keys sort by date; the low 16 bits carry the file's index.
        u64 *keys = (u64 *)data_push(frame_memory, (u64)count * 8, 8);
        u32 valid = 0;
        if (keys) {
            for (u32 i = 0; i < count; i++) {
                u64 date = reader_file_date(names.list.paths[i], names.lengths[i]);
                if (date) keys[valid++] = date << 16 | i;
            }
        }
        if (valid > reader_files_kept) {
            sort_u64(keys, valid);
            for (u32 k = 0; k < valid - reader_files_kept; k++) {
                u32 i = (u32)(keys[k] & 0xFFFF);
                data_t path = {names.lengths[i], names.lengths[i], names.list.paths[i]};
                u32 error = 0;
                file_delete(&path, &error);
            }
        }
    }
    frame_memory->used = used_before;
}

void reader_remove_stale_temporaries(const data_t *user_folder, data_t *frame_memory) {
    // A save that died before its rename left "<reader file>.tmp" behind.
    // Those of our own names that are older than any save still running
    // could be are removed; other "tmp" files are the user's.
    u64 used_before = frame_memory->used;
    data_t tmp = data_literal("tmp");
    reader_file_names_t leftovers = reader_list_files(user_folder, frame_memory, &tmp);
    u64 stale_before = date_to_number(date_add(date_now(), 0, 0, 0, 0, -10, 0));
    for (u32 i = 0; i < leftovers.list.count; i++) {
        u64 length = leftovers.lengths[i];
        if (length < 4) continue;
        u64 date = reader_file_date(leftovers.list.paths[i], length - 4);
        if (date == 0 || date >= stale_before) continue;
        data_t path = {length, length, leftovers.list.paths[i]};
        u32 error = 0;
        file_delete(&path, &error);
    }
    frame_memory->used = used_before;
}

// ---- saving --------------------------------------------------------------------------------

static void reader_log_save_failure(u32 reason) {
    log_string(log_main, "Error while saving the reader");
    if (reason) {
        log_string(log_main, ": ");
        log_system_error(log_main, reason);
    }
    log_string(log_main, ".\n");
}

bool reader_save(reader_t *reader, const data_t *user_folder, data_t *frame_memory, u32 *system_error,
                 data_t *saved_path) {
    u32 error = 0;
    u32 reason = 0;
    if (!directory_exists(user_folder, &error)) {
        error = 0;
        if (!directory_create(user_folder, &error)) reason = os_last_error();
    }
    if (error) {
        reader_log_save_failure(reason);
        if (system_error) *system_error = reason;
        return false;
    }
    // Leftovers of a save that died go first: on a nearly full disk they
    // would take the room this save needs, and then every later one.
    reader_remove_stale_temporaries(user_folder, frame_memory);
    u64 used_before = frame_memory->used;
    u64 size = user_folder->used + 1 + reader_file_prefix_size + reader_file_stamp_size + 4;
    data_t path = {size, 0, (u8 *)data_push(frame_memory, size, 1)};
    assert_message(path.bytes, "No frame memory for the file name.");
    data_push_raw(&path, user_folder->bytes, user_folder->used);
    if (user_folder->used && user_folder->bytes[user_folder->used - 1] != (u8)os_path_separator)
        data_push_u8(&path, (u8)os_path_separator);
    data_push_c_string(&path, reader_file_prefix);
    date_to_file_text(date_now(), &path);
    data_push_c_string(&path, ".bin");

    error = 0;
    reader_write_file(reader, frame_memory, &path, &error, &reason);
    if (!error) reader_prune(user_folder, frame_memory);
    else reader_log_save_failure(reason);
    if (!error && saved_path && path.used <= saved_path->reserved - saved_path->used)
        data_push_data(saved_path, &path, 1);
    if (system_error) *system_error = error ? reason : 0;
    frame_memory->used = used_before;
    return error == 0;
}

// ---- reading -------------------------------------------------------------------------------

struct reader_reader_t {
    file_handle_t file;
    u64 position;
    u64 size;
    u32 *error;
};

static void reader_get(reader_reader_t *in, void *destination, u64 size) {
    if (*in->error || size == 0) return;
    if (size > in->size - in->position) {
        *in->error = reader_error_section;
        return;
    }
    file_read(in->file, in->position, size, destination, in->error);
    in->position += size;
}

static u32 reader_get_u32(reader_reader_t *in) {
    u32 value = 0;
    reader_get(in, &value, 4);
    return value;
}

static void reader_section_start(reader_reader_t *in, const u64 *table, u32 section) {
    if (!*in->error && in->position != table[section * 2]) *in->error = reader_error_section;
}

static void reader_section_end(reader_reader_t *in, const u64 *table, u32 section) {
    if (!*in->error && in->position - table[section * 2] != table[section * 2 + 1]) *in->error = reader_error_section;
}

struct reader_string_check_t {
    u64 text_size;
};

static bool reader_check_string(void *context, data_t *field) {
    u64 text_size = ((reader_string_check_t *)context)->text_size;
    u64 offset = (u64)(uintptr_t)field->bytes;
    return offset <= text_size && field->used <= text_size - offset;
}

// What the audit doesn't look at but every later step relies on: counters
// as a save leaves them, unique ids, each entry under an existing feed of its
// type and of a generation that has begun, each feed's entry count, one meta
// record a feed, a sorted list of code points, and links whose owners and
// targets exist.
static bool reader_records_agree(reader_t *reader) {
    if (reader->last_feed_id != reader->feeds.entry_count || reader->last_entry_id != reader->entries.entry_count ||
        reader->last_category_id != reader->categories.entry_count ||
        reader->last_person_id != reader->persons.entry_count)
        return false;
    const code_point_list_t *list = reader->code_points;
    for (u32 i = 0; i < list->count; i++) {
        if (list->code_points[i] >= list->capacity) return false;
        if (i && list->code_points[i] <= list->code_points[i - 1]) return false;
    }
    u64 *ids = reader_scratch.keys_a;
    auto unique_ids = [&](pool_t *pool, u64 record_size, u64 id_offset, u32 last_id) {
        for (u32 i = 0; i < pool->entry_count; i++) {
            u32 id = *(u32 *)((u8 *)pool_entry(pool, record_size, i) + id_offset);
            if (id == 0 || id > last_id) return false;
            ids[i] = id;
        }
        sort_u64(ids, pool->entry_count);
        for (u32 i = 1; i < pool->entry_count; i++)
            if (ids[i] == ids[i - 1]) return false;
        return true;
    };
    if (!unique_ids(&reader->feeds, sizeof(feed_t), offsetof(feed_t, id), reader->last_feed_id)) return false;
    if (!unique_ids(&reader->entries, sizeof(entry_t), offsetof(entry_t, id), reader->last_entry_id)) return false;
    if (!unique_ids(&reader->categories, sizeof(category_t), 0, reader->last_category_id)) return false;
    if (!unique_ids(&reader->persons, sizeof(person_t), 0, reader->last_person_id)) return false;

    u32 counted[reader_feed_capacity] = {};
    feed_t *feed = nullptr; // the last one found: a feed's entries mostly lie together
    for (u32 i = 0; i < reader->entries.entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        if (!feed || feed->id != entry->feed_id) feed = reader_get_feed_by_id(reader, entry->feed_id);
        if (!feed || feed_get_type(feed) != entry_get_type(entry)) return false;
        if (entry->generation > reader->generation) return false;
        counted[pool_index_of(&reader->feeds, sizeof(feed_t), feed)]++;
    }
    for (u32 i = 0; i < reader->feeds.entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        if (feed->entry_count != counted[i]) return false;
        if (!reader_get_meta(reader, feed->id)) return false;
    }
    for (u32 i = 0; i < reader->metas.entry_count; i++) {
        meta_t *meta = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        if (meta->link_configuration_index >= reader_link_configuration_count) return false;
    }
    // A save leaves the generation at the number of distinct generations of
    // the entries; a larger one would ask the next save for a table that
    // doesn't fit in frame memory.
    if (reader->generation > reader->entries.entry_count) return false;

    // Every link joins an existing owner of its layout to an existing target,
    // and every atom link belongs to an Atom feed or entry. The audit counts
    // only what it finds under each owner, so a stray record would pass it
    // and then attach itself to whichever record a later renumbering or a new
    // entry gives its owner id. The ids are 1 to count here (checked above).
    u8 feed_types[reader_feed_capacity + 1] = {};
    for (u32 i = 0; i < reader->feeds.entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        feed_types[feed->id] = (u8)feed_get_type(feed);
    }
    u8 entry_types[reader_entry_capacity + 1] = {};
    for (u32 i = 0; i < reader->entries.entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        entry_types[entry->id] = (u8)entry_get_type(entry);
    }
    auto owner_is = [&](bool feed_owner, u32 owner_id, u32 type) {
        u32 owners = feed_owner ? reader->feeds.entry_count : reader->entries.entry_count;
        if (owner_id == 0 || owner_id > owners) return false;
        return (feed_owner ? feed_types[owner_id] : entry_types[owner_id]) == type;
    };
    for (u32 i = 0; i < reader->links.entry_count; i++) {
        link_t *link = (link_t *)pool_entry(&reader->links, sizeof(link_t), i);
        bool to_category = link->kind <= link_kind_atom_entry_category;
        u32 targets = to_category ? reader->categories.entry_count : reader->persons.entry_count;
        if (link->target_id == 0 || link->target_id > targets) return false;
        bool feed_owner = link->kind % 2 == 1;
        u32 type = link->kind <= link_kind_rss_entry_category ? reader_type_rss : reader_type_atom;
        if (!owner_is(feed_owner, link->owner_id, type)) return false;
    }
    for (u32 i = 0; i < reader->atom_links.entry_count; i++) {
        atom_link_t *link = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), i);
        if (!owner_is(link->owner_kind == atom_link_owner_feed, link->owner_id, reader_type_atom)) return false;
    }
    return true;
}

void reader_read(reader_t *reader, const data_t *path, u32 *error) {
    if (*error) return;
    assert_message(reader->code_points, "The reader has no code point list.");
    reader_reader_t in = {};
    in.error = error;
    in.file = file_open(path, false, false, error);
    in.size = file_size(in.file, error);

    u8 magic[4] = {};
    reader_get(&in, magic, 4);
    if (!*error && !memory_equal(magic, 4, reader_file_magic, 4)) *error = reader_error_magic;
    u32 version = reader_get_u32(&in);
    if (!*error && version > reader_file_version) *error = reader_error_version;
    u64 table[10] = {};
    reader_get(&in, table, sizeof(table));

    reader_section_start(&in, table, 0);
    u32 counters[5] = {};
    reader_get(&in, counters, sizeof(counters));
    reader_section_end(&in, table, 0);

    reader_section_start(&in, table, 1);
    reader_pool_layout_t layouts[7];
    reader_pool_layouts(reader, layouts);
    for (reader_pool_layout_t &layout : layouts) {
        pool_t *pool = layout.pool;
        u32 count = reader_get_u32(&in);
        if (*error) break;
        if (count > pool->max_entry_count) {
            *error = reader_error_count;
            break;
        }
        u64 bytes = (u64)count * layout.record_size;
        if (bytes >= 0x200000) memory_advise_dense(pool->entries, bytes); // a pool filled to the brim
        reader_get(&in, pool->entries, bytes);
        pool->entry_count = count;
        // A fresh pool's stack, so that the next take gets slot `count`.
        for (u32 k = 0; k < pool->max_entry_count; k++) pool->free_indices[k] = pool->max_entry_count - 1 - k;
    }
    reader_section_end(&in, table, 1);

    reader_section_start(&in, table, 2);
    reader_get(&in, reader->link_configurations, sizeof(reader->link_configurations));
    reader_section_end(&in, table, 2);

    reader_section_start(&in, table, 3);
    u32 code_point_count = reader_get_u32(&in);
    if (!*error && code_point_count > reader->code_points->capacity) *error = reader_error_count;
    reader_get(&in, reader->code_points->code_points, (u64)code_point_count * 4);
    if (!*error) reader->code_points->count = code_point_count;
    reader_section_end(&in, table, 3);

    reader_section_start(&in, table, 4);
    u32 text_size = reader_get_u32(&in);
    if (!*error && text_size > reader->text.reserved && !reader_text_reserve(reader, text_size))
        *error = reader_error_text;
    reader_get(&in, reader->text.bytes, text_size);
    if (!*error) reader->text.used = text_size;
    reader_section_end(&in, table, 4);

    if (in.file != file_handle_invalid) file_close(in.file, error);
    if (!*error && in.position != in.size) *error = reader_error_size;
    if (*error) return;

    reader->last_feed_id = counters[0];
    reader->last_entry_id = counters[1];
    reader->last_category_id = counters[2];
    reader->last_person_id = counters[3];
    reader->generation = counters[4];

    // Every string must lie inside the text, and every record must be of a
    // known kind, before any offset becomes a pointer.
    reader_string_check_t check = {text_size};
    bool bad_feed = false, bad_entry = false;
    bool strings_fit = reader_visit_strings(reader, reader_check_string, &check, &bad_feed, &bad_entry);
    strings_fit = strings_fit && reader_visit_configurations(reader, reader_check_string, &check);
    if (bad_feed || bad_entry) {
        *error = reader_error_records;
        return;
    }
    if (!strings_fit) {
        *error = reader_error_string;
        return;
    }
    if (!reader_audit_check(reader) || !reader_records_agree(reader)) {
        *error = reader_error_records;
        return;
    }

    for (u32 i = 0; i < reader->code_points->count; i++) {
        if (reader->code_points->code_points[i] == code_point_replacement && reader->replacement_glyph_index) {
            *reader->replacement_glyph_index = i;
            break;
        }
    }
    reader_rebase(reader);
    reader_audit_after_check(reader);
    reader_sort_all(reader); // a file of an older version may hold feeds out of order
}

// ---- loading ----------------------------------------------------------------------------------

void reader_load(reader_t *reader, const data_t *user_folder, data_t *frame_memory, data_t *path, u32 *error) {
    *path = data_t{};
    if (*error) return;
    u32 folder_error = 0;
    if (!directory_exists(user_folder, &folder_error)) return;

    u64 used_before = frame_memory->used;
    data_t bin = data_literal("bin");
    reader_file_names_t names = reader_list_files(user_folder, frame_memory, &bin);
    u64 newest = 0;
    for (u32 i = 0; i < names.list.count; i++) {
        u64 date = reader_file_date(names.list.paths[i], names.lengths[i]);
        if (date > newest) {
            newest = date;
            *path = data_t{names.lengths[i], names.lengths[i], names.list.paths[i]};
        }
    }
    frame_memory->used = used_before;
    if (!path->used) return;
    u32 exists_error = 0;
    if (!file_exists(path, &exists_error)) return;
    reader_read(reader, path, error);
}

void reader_report_unreadable(const data_t *path, u32 error) {
    char buffer[4096];
    data_t text = {sizeof(buffer) - 1, 0, (u8 *)buffer};
    data_push_c_string(&text, "tidewrack: the reader file\n    ");
    u64 room = text.reserved - text.used;
    data_push_raw(&text, path->bytes, path->used < room - 512 ? path->used : room - 512);
    data_push_c_string(&text, "\ncould not be read (");
    if (error < 0x100) data_push_c_string(&text, "the file system refused it");
    else if (error == reader_error_magic) data_push_c_string(&text, "it is not a reader file");
    else if (error == reader_error_version) data_push_c_string(&text, "it was written by a newer version");
    else data_push_c_string(&text, "it is damaged");
    data_push_c_string(&text, ", code ");
    data_push_number(&text, error, 0, ' ', 0);
    data_push_c_string(&text,
                       ").\nNothing was changed. Move that file out of the folder and start the program again:\n"
                       "it will then start from the previous snapshot in the same folder.\n");
    os_write_stderr(buffer, text.used);
}
