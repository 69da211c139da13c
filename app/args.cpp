// args.cpp - storing the command line.
#include "app/args.h"
#include "base/text.h"
#include "os/os_core.h"

i32 args_count;
data_t args_table[args_max_count];
data_t args_program_folder;
data_t args_program_name;

static char args_program_path[2048];

void args_store(i32 count, char **arguments) {
    assert_message(count <= (i32)args_max_count, "Too many arguments.");
    // The arguments come split already here, but they must still fit the
    // buffer that a split command line would fill, each with its terminator.
    u64 written = 0;
    for (i32 i = 0; i < count; i++) written += string_length(arguments[i]) + 1;
    assert_message(written != 0 && written < args_buffer_size, "Empty command line or tool long command line.");
    args_count = count;
    for (i32 i = 0; i < count; i++) {
        u64 length = string_length(arguments[i]);
        args_table[i] = data_t{length + 1, length, (u8 *)arguments[i]};
    }
    u64 length = os_executable_path(args_program_path, sizeof(args_program_path));
    assert_message(length < sizeof(args_program_path), "The program's path is too long.");
    u64 folder = length;
    while (folder > 0 && args_program_path[folder - 1] != '/' && args_program_path[folder - 1] != '\\') folder--;
    args_program_folder = data_t{folder, folder, (u8 *)args_program_path};
    args_program_name = data_t{length - folder, length - folder, (u8 *)args_program_path + folder};
}

i32 args_find(const char *name, u64 length, i32 first_index) {
    for (i32 i = first_index; i < args_count; i++)
        if (memory_equal(args_table[i].bytes, args_table[i].used, name, length)) return i;
    return 0;
}

i32 args_find_z(const char *name, i32 first_index) { return args_find(name, string_length(name), first_index); }

data_t args_value(const char *name, u64 length, i32 *index) {
    i32 found = args_find(name, length, index ? *index : 1);
    if (found == 0 || found + 1 >= args_count) return data_t{};
    if (index) *index = found;
    return args_table[found + 1];
}
