// fuzz_reader_file - any bytes as a snapshot file. The load must refuse them
// with a code or give a reader whose counts and relations all agree; it must
// never read outside the file or stop the process. Seeds: corpus/reader_file
// (small snapshots of every record kind, made by tidewrack-tool).
//
// One reader serves every input and is reset between them.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "reader/reader.h"

static data_t frame_memory;
static u32 *code_point_array;
static reader_t reader;
static code_point_list_t code_points;
static u32 replacement_glyph_index;
static char path_text[64];

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (!frame_memory.bytes) {
        system_info_get();
        frame_memory = data_virtual_alloc(0xA00000, 0);
        code_point_array = (u32 *)malloc((u64)code_point_list_capacity * sizeof(u32));
        reader_init(&reader);
        snprintf(path_text, sizeof(path_text), "/tmp/fuzz_reader_file_%d.bin", (int)getpid());
    }
    code_point_list_init(&code_points, code_point_array, code_point_list_capacity);
    reader.code_points = &code_points;
    reader.replacement_glyph_index = &replacement_glyph_index;

    FILE *file = fopen(path_text, "wb");
    if (!file || fwrite(bytes, 1, size, file) != size || fclose(file) != 0) abort();
    data_t path = data_from_pointer(path_text, string_length(path_text));
    u32 error = 0;
    reader_read(&reader, &path, &error);
    if (!error && !reader_audit_check(&reader)) abort();

    // A refused file may have left records anywhere in the pools: all of
    // them go (memset, not the product's byte loop, which the coverage
    // instrumentation makes slow).
    if (error) {
        memset(reader.storage.bytes, 0, reader.storage.used);
        pool_t *pools[] = {&reader.feeds,      &reader.entries, &reader.categories, &reader.persons,
                           &reader.atom_links, &reader.links,   &reader.metas};
        for (pool_t *pool : pools) pool->entry_count = 0;
    }
    reader_reset(&reader);
    return 0;
}
