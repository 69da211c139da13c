// log.h - 16 in-memory ring channels of 5 MiB, taken at the first write.
// Channels: 0 main log ("log.txt" with -log), 1 graphics log, 2 messages for
// the user (the log panel), 5 reader dumps. No locks: main thread only.
#pragma once

#include "base/memory.h"

struct log_channel_t {
    data_t data; // used is the write position
    u32 indent;
    u32 overflowed;
    u64 overflow_end;
};

constexpr u32 log_channel_count = 16;
constexpr u64 log_buffer_size = 0x500000;
enum : u32 {
    log_main = 0,
    log_graphics = 1,
    log_user = 2,
    log_reader_dump = 5,
};

log_channel_t *log_channel(u32 channel);
void log_prepare(u32 channel, u64 size);
void log_finish(u32 channel);
void log_string(u32 channel, const char *text);
void log_bytes(u32 channel, const void *pointer, u64 size);
void log_data(u32 channel, const data_t *data);
void log_number(u32 channel, u64 value, u64 width = 0, u8 fill = ' ', u32 flags = 0);
void log_number_signed(u32 channel, i64 value, u64 width = 0, u8 fill = ' ', u32 flags = 0);
void log_line_number(u32 channel, u64 value, bool indent, const char *label, bool newline, u64 width = 0,
                     u8 fill = ' ', u32 flags = 0);
void log_indent(u32 channel);
void log_outdent(u32 channel);
void log_write_indent(u32 channel);
void log_system_error(u32 channel, u32 code);
void log_save(u32 channel, const data_t *path, u32 *error);
// The text written to `channel` since its end stood at `old_end` (a pointer
// from data_end of the channel's data), copied to the user channel after a
// blank line when that channel is not empty. Returns whether anything was new.
bool log_copy_new_text_to_user(u32 channel, const u8 *old_end);
