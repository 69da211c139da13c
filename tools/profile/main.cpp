// tidewrack-profile FILE - reads a profile.bin written with "-profile" and
// prints its totals and trees, one timeline after another, to stdout.
#include "tools/profile/profile_read.h"
#include "base/text.h"
#include "os/os_core.h"

#include <cstdio>

static void print_error(const char *text) { os_write_stderr(text, string_length(text)); }

int main(int argc, char **argv) {
    if (argc != 2) {
        print_error("usage: tidewrack-profile FILE\n");
        return 1;
    }
    system_info_get();
    data_t path = data_from_pointer(argv[1], string_length(argv[1]));
    profiler_report_t report;
    u32 error = 0;
    profiler_read(&report, &path, &error);
    if (error) {
        print_error("tidewrack-profile: can't read ");
        print_error(argv[1]);
        print_error(error == profiler_error_magic     ? ": not a profile file\n"
                    : error == profiler_error_version ? ": unknown profile version\n"
                    : error == profiler_error_no_memory ? ": out of memory\n"
                                                        : ": the file is missing or damaged\n");
        return 1;
    }
    // Measure, then write the whole report into one block.
    u64 size = profiler_report(&report, nullptr, 0, &error);
    data_t text = data_virtual_alloc(size ? size : 1, 0);
    if (!text.bytes) {
        print_error("tidewrack-profile: out of memory\n");
        return 1;
    }
    u64 n = profiler_report(&report, text.bytes, text.reserved, &error);
    if (fwrite(text.bytes, 1, n, stdout) != n || fflush(stdout) != 0) {
        print_error("tidewrack-profile: can't write the report\n");
        return 1;
    }
    return 0;
}
