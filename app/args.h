// args.h - the command-line store: the arguments as UTF-8 in one static
// buffer, a table of data_t views over them, and the program's own path.
#pragma once

#include "base/memory.h"

constexpr u32 args_buffer_size = 2048;
constexpr u32 args_max_count = 128;

extern i32 args_count;
extern data_t args_table[args_max_count];
extern data_t args_program_folder; // up to and including the last separator
extern data_t args_program_name;

// Fills the store from an argument array (on Linux straight from argv).
void args_store(i32 count, char **arguments);
// Index of the first argument at or after `first_index` equal to the name,
// or 0 when there is none (0 is the program's own slot).
i32 args_find(const char *name, u64 length, i32 first_index);
i32 args_find_z(const char *name, i32 first_index);
// The argument after the name, or an empty data_t when the name is absent or
// last. With `index`, the search starts there and the found index is written.
data_t args_value(const char *name, u64 length, i32 *index);
