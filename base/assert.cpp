// assert.cpp - the one way the program stops on a programmer's mistake.
#include "base/base_core.h"
#include "os/os_core.h"

static u64 assert_text_length(const char *text) {
    u64 n = 0;
    while (text && text[n]) n++;
    return n;
}

void assert_fail(const char *text, const char *file, int line) {
    char number[16];
    int n = 0;
    char digits[16];
    int d = 0;
    u32 value = line < 0 ? 0 : (u32)line;
    do {
        digits[d++] = (char)('0' + value % 10);
        value /= 10;
    } while (value && d < 15);
    while (d) number[n++] = digits[--d];

    os_write_stderr("Assertion failed: ", 18);
    os_write_stderr(text, assert_text_length(text));
    os_write_stderr(" (", 2);
    os_write_stderr(file, assert_text_length(file));
    os_write_stderr(":", 1);
    os_write_stderr(number, (u64)n);
    os_write_stderr(")\n", 2);
    os_abort();
}
