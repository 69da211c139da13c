// args.cpp - splitting and storing the command line.
#include "app/args.h"
#include "base/text.h"
#include "os/os_core.h"

i32 args_count;
data_t args_table[args_max_count];
data_t args_program_folder;
data_t args_program_name;

static u8 args_buffer[args_buffer_size];
static char args_program_path[2048];

char **args_parse(const u8 *command_line, u64 size, i32 *count) {
    u8 *out = args_buffer;
    u8 *out_end = args_buffer + args_buffer_size;
    auto put = [&](u8 byte) {
        if (out < out_end) *out++ = byte;
    };
    auto put_backslashes = [&](u32 n) {
        for (u32 i = 0; i < n; i++) put('\\');
    };
    bool in_quotes = false, after_space = false;
    u32 backslashes = 0;
    const u8 *p = command_line;
    const u8 *end = command_line + size;
    while (p < end) {
        u32 error = 0, c;
        u8 length;
        utf8_decode(p, end, &c, &length, &error);
        if (error) {
            c = code_point_replacement;
            length = 1;
        }
        p += length;
        if (c == '\\') {
            backslashes++;
            after_space = false;
        } else if (c == '"') {
            put_backslashes(backslashes / 2);
            if (backslashes % 2) put('"');
            else in_quotes = !in_quotes;
            backslashes = 0;
            after_space = false;
        } else {
            put_backslashes(backslashes);
            backslashes = 0;
            if (c != ' ' && c != '\t') {
                after_space = false;
                u8 bytes[4], n = 0;
                u32 encode_error = 0;
                utf8_encode(bytes, bytes + 4, c, &n, &encode_error);
                for (u8 i = 0; i < n; i++) put(bytes[i]);
            } else if (in_quotes) {
                put((u8)c);
            } else {
                if (!after_space) put(0);
                after_space = true;
            }
        }
    }
    put_backslashes(backslashes);
    u64 written = (u64)(out - args_buffer);
    assert_message(written != 0 && written < args_buffer_size, "Empty command line or tool long command line.");
    if (out[-1] != 0) *out++ = 0;

    // The pointer array follows at the next 8-byte boundary.
    u64 offset = align_up((u64)(out - args_buffer), 8);
    char **pointers = (char **)(args_buffer + offset);
    char **pointers_end = (char **)(args_buffer + args_buffer_size);
    i32 n = 0;
    u8 *text_end = out;
    for (u8 *run = args_buffer; run < text_end;) {
        u8 *stop = run;
        while (stop < text_end && *stop) stop++;
        if (stop > run) {
            if (pointers + n + 1 > pointers_end) break;
            pointers[n++] = (char *)run;
        }
        run = stop + 1;
    }
    *count = n;
    return pointers;
}

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
