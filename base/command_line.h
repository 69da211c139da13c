// command_line.h - splitting a command line into words by the rules of a
// Windows command line: blanks (space, tab) separate words, double quotes
// group, and backslashes are literal except before a quote, where each pair
// gives one backslash and an odd one escapes the quote. The program's own
// arguments follow these rules, and so does the executable line of a link
// configuration.
#pragma once

#include "base/memory.h"

// Writes the words, each zero-terminated, into `out` and a pointer to each
// into `words` (up to `capacity`, then a null when there is room). Empty
// words are dropped. Returns the number of words; *overflow is set when the
// text or the pointers did not fit (what fitted stays usable).
u32 command_line_split(const u8 *text, u64 size, u8 *out, u64 out_size, char **words, u32 capacity, bool *overflow);
