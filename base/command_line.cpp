// command_line.cpp - splitting a command line into words.
#include "base/command_line.h"

u32 command_line_split(const u8 *text, u64 size, u8 *out, u64 out_size, char **words, u32 capacity,
                       bool *overflow) {
    *overflow = false;
    u8 *write = out;
    u8 *write_end = out + out_size;
    auto put = [&](u8 byte) {
        if (write < write_end) *write++ = byte;
        else *overflow = true;
    };
    auto put_backslashes = [&](u64 n) {
        for (u64 i = 0; i < n; i++) put('\\');
    };
    bool in_quotes = false;
    u64 backslashes = 0;
    for (u64 i = 0; i < size; i++) {
        u8 c = text[i];
        if (c == '\\') {
            backslashes++;
        } else if (c == '"') {
            put_backslashes(backslashes / 2);
            if (backslashes % 2) put('"');
            else in_quotes = !in_quotes;
            backslashes = 0;
        } else {
            put_backslashes(backslashes);
            backslashes = 0;
            if ((c == ' ' || c == '\t') && !in_quotes) put(0);
            else put(c);
        }
    }
    put_backslashes(backslashes);
    put(0);
    if (*overflow && out_size > 0) out[out_size - 1] = 0;

    u32 count = 0;
    for (u8 *run = out; run < write;) {
        u8 *stop = run;
        while (stop < write && *stop) stop++;
        if (stop > run) {
            if (count == capacity) {
                *overflow = true;
                break;
            }
            words[count++] = (char *)run;
        }
        run = stop + 1;
    }
    if (count < capacity) words[count] = nullptr;
    return count;
}
