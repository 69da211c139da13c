// fuzz_profile - any bytes as a profile.bin. Reading must refuse them with a
// code or give timelines whose report can be written; it must never read
// outside the file. Seeds: corpus/profile (files written with "-profile").
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "base/text.h"
#include "tools/profile/profile_read.h"

static char path_text[64];
static u8 text[1 << 16];

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (!path_text[0]) {
        system_info_get();
        snprintf(path_text, sizeof(path_text), "/tmp/fuzz_profile_%d.bin", (int)getpid());
    }
    FILE *file = fopen(path_text, "wb");
    if (!file || fwrite(bytes, 1, size, file) != size || fclose(file) != 0) abort();
    data_t path = data_from_pointer(path_text, string_length(path_text));
    profiler_report_t report;
    u32 error = 0;
    profiler_read(&report, &path, &error);
    if (error) {
        if (report.file.bytes) abort(); // a refused file is not kept
        return 0;
    }
    // The whole report is measured, then written into what fits.
    u64 whole = profiler_report(&report, nullptr, 0, &error);
    if (profiler_report(&report, text, sizeof(text), &error) != whole) abort();
    data_virtual_free(&report.file);
    data_virtual_free(&report.nodes);
    return 0;
}
