// feed_validators.h - the ETag and Last-Modified each feed's server sent
// with its document, kept across runs in "validators.txt" in the data folder
// so that the next update asks for the feed only if it changed.
//
// The file is small and plain: a first line "tidewrack validators 1 N", N
// a fingerprint of the reader when it was written (its feeds, their entry
// counts and the entries' generations), then one line a feed: address, ETag
// and Last-Modified separated by tabs (either may be empty). It is only
// trusted beside the reader it was written with: a file whose fingerprint
// differs (a run that ended before the reader was saved), or one that can't
// be read line by line, is ignored, and the next update rebuilds it. It
// holds only addresses of stored feeds. Main thread only.
#pragma once

#include "net/http.h"
#include "reader/reader.h"

struct feed_validators_entry_t {
    u64 url_hash;
    http_validators_t validators;
};

struct feed_validators_t {
    feed_validators_entry_t entries[reader_feed_capacity];
    u32 count;
    bool changed;          // something was set since the file was read or written
    u64 folder_size;       // 0: no folder, nothing is read or written
    u8 folder[http_url_capacity];
};

// Reads the file of `folder` when it belongs to `reader` as loaded.
// A missing file is an empty table; a stale or damaged one is ignored with a
// line in the main log.
void feed_validators_load(feed_validators_t *table, const data_t *folder, reader_t *reader);
// The validators stored for an address, or null.
const http_validators_t *feed_validators_find(const feed_validators_t *table, const data_t *url);
// Keeps what a server sent for an address that is a stored feed of `reader`
// (an answer without validators forgets the address). A value holding a tab
// or a line end can't be written and is not kept.
void feed_validators_set(feed_validators_t *table, reader_t *reader, const data_t *url,
                         const http_validators_t *validators);
// Writes the file for the reader's feeds and generation, in the free part
// of `memory` (which does not grow). Failures go to the main log.
void feed_validators_save(feed_validators_t *table, reader_t *reader, data_t *memory);
