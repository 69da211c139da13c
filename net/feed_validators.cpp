// feed_validators.cpp - the validators file of the conditional fetches.
#include "net/feed_validators.h"

#include "base/files.h"
#include "base/log.h"
#include "base/text.h"

static const char feed_validators_name[] = "/validators.txt";
static const char feed_validators_magic[] = "tidewrack validators 1 ";

static u64 feed_validators_hash(const u8 *bytes, u64 size) {
    u64 hash = 0xcbf29ce484222325ull; // FNV-1a
    for (u64 i = 0; i < size; i++) hash = (hash ^ bytes[i]) * 0x100000001b3ull;
    return hash;
}

// What the validators are only true beside: every feed's address and entry
// count, and the entries' generations (a replaced entry takes the newest).
// A reader that was changed by an update and then not saved differs.
static u64 feed_validators_fingerprint(reader_t *reader) {
    u64 hash = 0xcbf29ce484222325ull;
    auto mix = [&](u64 value) { hash = (hash ^ value) * 0x100000001b3ull; };
    pool_t *feeds = &reader->feeds;
    for (u32 f = 0; f < feeds->max_entry_count; f++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), f);
        if (!feed_is_valid(feed)) continue;
        mix(feed_validators_hash(feed->url.bytes, feed->url.used));
        mix(feed->entry_count);
    }
    pool_t *entries = &reader->entries;
    u64 generations = 0;
    for (u32 i = 0, seen = 0; i < entries->max_entry_count && seen < entries->entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
        if (!entry_is_valid(entry)) continue;
        seen++;
        generations += entry->generation;
    }
    mix(generations);
    return hash >> 1; // fits the number reader
}

// The file's path in `buffer`; false without a folder or when too long.
static bool feed_validators_path(const feed_validators_t *table, u8 *buffer, u64 capacity, data_t *path) {
    u64 size = table->folder_size + sizeof(feed_validators_name) - 1;
    if (!table->folder_size || size > capacity) return false;
    memory_copy(buffer, table->folder, table->folder_size);
    memory_copy(buffer + table->folder_size, feed_validators_name, sizeof(feed_validators_name) - 1);
    *path = data_t{size, size, buffer};
    return true;
}

static feed_validators_entry_t *feed_validators_entry(feed_validators_t *table, u64 hash) {
    for (u32 i = 0; i < table->count; i++) {
        if (table->entries[i].url_hash == hash) return &table->entries[i];
    }
    return nullptr;
}

static bool feed_validators_plain(const u8 *bytes, u64 size) {
    for (u64 i = 0; i < size; i++) {
        if (bytes[i] == '\t' || bytes[i] == '\n' || bytes[i] == '\r') return false;
    }
    return true;
}

// One line "address\tetag\tmodified" into the table; false when damaged.
static bool feed_validators_read_line(feed_validators_t *table, const u8 *line, const u8 *end) {
    const u8 *fields[4] = {line, nullptr, nullptr, end + 1};
    u32 found = 1;
    for (const u8 *p = line; p < end; p++) {
        if (*p != '\t') continue;
        if (found == 3) return false;
        fields[found++] = p + 1;
    }
    if (found != 3 || fields[1] == line + 1 || table->count == reader_feed_capacity) return false;
    u64 etag = (u64)(fields[2] - fields[1] - 1), modified = (u64)(end - fields[2]);
    if (etag > http_etag_capacity || modified > http_modified_capacity) return false;
    feed_validators_entry_t *entry = &table->entries[table->count++];
    *entry = {};
    entry->url_hash = feed_validators_hash(line, (u64)(fields[1] - line - 1));
    entry->validators.etag_size = (u32)etag;
    entry->validators.modified_size = (u32)modified;
    memory_copy(entry->validators.etag, fields[1], etag);
    memory_copy(entry->validators.modified, fields[2], modified);
    return true;
}

static bool feed_validators_parse(feed_validators_t *table, const data_t *text, u64 fingerprint) {
    const u8 *p = text->bytes, *end = p + text->used;
    u64 magic = sizeof(feed_validators_magic) - 1;
    if (text->used < magic || !memory_equal(p, magic, feed_validators_magic, magic)) return false;
    p += magic;
    const u8 *line_end = p;
    while (line_end < end && *line_end != '\n') line_end++;
    if (line_end == end || line_end == p || text_to_i64(p, (u64)(line_end - p)) != (i64)fingerprint) return false;
    for (p = line_end + 1; p < end; p = line_end + 1) {
        line_end = p;
        while (line_end < end && *line_end != '\n') line_end++;
        if (line_end == end || !feed_validators_read_line(table, p, line_end)) return false;
    }
    return true;
}

void feed_validators_load(feed_validators_t *table, const data_t *folder, reader_t *reader) {
    table->count = 0;
    table->changed = false;
    table->folder_size = 0;
    if (!folder || folder->used + sizeof(feed_validators_name) > sizeof(table->folder)) return;
    memory_copy(table->folder, folder->bytes, folder->used);
    table->folder_size = folder->used;

    u8 buffer[http_url_capacity + 32];
    data_t path = {};
    if (!feed_validators_path(table, buffer, sizeof(buffer), &path)) return;
    u32 error = 0;
    if (!file_exists(&path, &error) || error) return;
    data_t text = {};
    file_read_all(&text, &path, false, &error);
    if (!error && !feed_validators_parse(table, &text, feed_validators_fingerprint(reader))) {
        table->count = 0;
        log_string(log_main, "Validators: ");
        log_data(log_main, &path);
        log_string(log_main, " is damaged or belongs to another reader file; it is rebuilt by the next update.\n");
    }
    if (text.bytes) data_virtual_free(&text);
}

const http_validators_t *feed_validators_find(const feed_validators_t *table, const data_t *url) {
    u64 hash = feed_validators_hash(url->bytes, url->used);
    for (u32 i = 0; i < table->count; i++) {
        if (table->entries[i].url_hash == hash) return &table->entries[i].validators;
    }
    return nullptr;
}

// Entries of addresses that are no longer stored feeds leave the table.
static void feed_validators_prune(feed_validators_t *table, reader_t *reader) {
    u32 kept = 0;
    for (u32 i = 0; i < table->count; i++) {
        bool stored = false;
        pool_t *feeds = &reader->feeds;
        for (u32 f = 0; f < feeds->max_entry_count && !stored; f++) {
            feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), f);
            stored = feed_is_valid(feed) &&
                     feed_validators_hash(feed->url.bytes, feed->url.used) == table->entries[i].url_hash;
        }
        if (stored) table->entries[kept++] = table->entries[i];
    }
    table->count = kept;
}

void feed_validators_set(feed_validators_t *table, reader_t *reader, const data_t *url,
                         const http_validators_t *validators) {
    u64 hash = feed_validators_hash(url->bytes, url->used);
    feed_validators_entry_t *entry = feed_validators_entry(table, hash);
    bool usable = (validators->etag_size || validators->modified_size) && feed_validators_plain(url->bytes, url->used) &&
                  feed_validators_plain(validators->etag, validators->etag_size) &&
                  feed_validators_plain(validators->modified, validators->modified_size);
    if (!usable) {
        if (entry) *entry = table->entries[--table->count], table->changed = true;
        return;
    }
    if (!entry && table->count == reader_feed_capacity) feed_validators_prune(table, reader);
    if (!entry && table->count == reader_feed_capacity) return;
    if (!entry) entry = &table->entries[table->count++];
    entry->url_hash = hash;
    entry->validators = *validators;
    table->changed = true;
}

static void feed_validators_put(data_t *out, const void *bytes, u64 size, bool *fits) {
    if (!*fits || out->reserved - out->used < size) {
        *fits = false;
        return;
    }
    memory_copy(out->bytes + out->used, bytes, size);
    out->used += size;
}

void feed_validators_save(feed_validators_t *table, reader_t *reader, data_t *memory) {
    u8 buffer[http_url_capacity + 32];
    data_t path = {};
    if (!feed_validators_path(table, buffer, sizeof(buffer), &path)) return;
    data_t out = data_block_view_rest(memory);
    out.used = 0;
    bool fits = true;
    feed_validators_put(&out, feed_validators_magic, sizeof(feed_validators_magic) - 1, &fits);
    u8 number[24];
    u64 digits = number_to_text(number, sizeof(number), feed_validators_fingerprint(reader), 0, ' ', 0);
    feed_validators_put(&out, number, digits, &fits);
    feed_validators_put(&out, "\n", 1, &fits);
    pool_t *feeds = &reader->feeds;
    for (u32 f = 0; f < feeds->max_entry_count; f++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), f);
        if (!feed_is_valid(feed) || !feed->url.used) continue;
        feed_validators_entry_t *entry =
            feed_validators_entry(table, feed_validators_hash(feed->url.bytes, feed->url.used));
        if (!entry) continue;
        const http_validators_t *v = &entry->validators;
        feed_validators_put(&out, feed->url.bytes, feed->url.used, &fits);
        feed_validators_put(&out, "\t", 1, &fits);
        feed_validators_put(&out, v->etag, v->etag_size, &fits);
        feed_validators_put(&out, "\t", 1, &fits);
        feed_validators_put(&out, v->modified, v->modified_size, &fits);
        feed_validators_put(&out, "\n", 1, &fits);
    }
    u32 error = 0;
    data_t folder = {table->folder_size, table->folder_size, table->folder};
    if (!directory_exists(&folder, &error) && !error) directory_create(&folder, &error); // before the first save
    if (fits && !error) file_write_all(&path, out.bytes, out.used, true, &error);
    if (!fits || error) {
        log_string(log_main, "Validators: ");
        log_data(log_main, &path);
        log_string(log_main, " could not be written; the next update fetches every feed whole.\n");
        return;
    }
    table->changed = false;
}
