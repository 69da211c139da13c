// fuzz_feed - any bytes as a fetched feed document, parsed into an empty
// reader, then parsed again into the feed it made (the stored-feed road:
// thresholds, refusals with their rollback, twins by guid, re-read links).
// The reader's counts must agree afterwards, and a document that made no
// feed must have left nothing behind.
//
// One reader serves every input and is reset between them: a fresh one costs
// page faults and scans of its full-size pools that would dwarf the parse.
#include <stdlib.h>

#include "feed/feed.h"

static data_t frame_memory;
static u32 *code_point_array;
static reader_t reader;
static code_point_list_t code_points;

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (!frame_memory.bytes) {
        system_info_get();
        frame_memory = data_virtual_alloc(0xA00000, 0);
        code_point_array = (u32 *)malloc((u64)code_point_list_capacity * sizeof(u32));
        reader_init(&reader);
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
        if (!reader_audit_check(&reader)) abort();
    }
    return 0;
}
