// log.cpp - the ring channels. A channel's buffer is taken at its first write;
// the oldest text is overwritten when it is full, and two markers tell a
// reader where the text ends and where the seam is.
#include "base/log.h"
#include "base/files.h"
#include "base/text.h"
#include "os/os_core.h"

static log_channel_t log_channels[log_channel_count];

static const char log_end_marker[] = "## Log end ##\n";
static const char log_wrap_marker[] = "## Log overflowed ##\n";
static constexpr u64 log_end_marker_size = sizeof(log_end_marker) - 1;
static constexpr u64 log_wrap_marker_size = sizeof(log_wrap_marker) - 1;

log_channel_t *log_channel(u32 channel) {
    assert_true(channel < log_channel_count);
    return &log_channels[channel];
}

void log_prepare(u32 channel, u64 size) {
    log_channel_t *c = log_channel(channel);
    if (c->data.reserved == 0) {
        c->data = data_virtual_alloc(log_buffer_size, 0);
        assert_message(c->data.bytes, "No memory for a log channel.");
    }
    if (c->data.used + size + log_end_marker_size >= c->data.reserved) {
        c->overflowed = 1;
        c->overflow_end = c->data.used;
        c->data.used = 0;
        data_push_raw(&c->data, log_wrap_marker, log_wrap_marker_size);
    }
}

void log_finish(u32 channel) {
    log_channel_t *c = log_channel(channel);
    if (data_push_raw(&c->data, log_end_marker, log_end_marker_size)) c->data.used -= log_end_marker_size;
}

void log_bytes(u32 channel, const void *pointer, u64 size) {
    log_prepare(channel, size);
    data_push_raw(&log_channel(channel)->data, pointer, size);
    log_finish(channel);
}

void log_string(u32 channel, const char *text) { log_bytes(channel, text, string_length(text)); }

void log_data(u32 channel, const data_t *data) { log_bytes(channel, data->bytes, data->used); }

void log_number(u32 channel, u64 value, u64 width, u8 fill, u32 flags) {
    u8 text[64];
    u64 size = width > 20 ? (width < sizeof(text) ? width : sizeof(text)) : 20;
    log_bytes(channel, text, number_to_text(text, size, value, width, fill, flags));
}

void log_number_signed(u32 channel, i64 value, u64 width, u8 fill, u32 flags) {
    u8 text[64];
    u64 size = width > 21 ? (width < sizeof(text) ? width : sizeof(text)) : 21;
    log_bytes(channel, text, number_to_text_signed(text, size, value, width, fill, flags));
}

void log_line_number(u32 channel, u64 value, bool indent, const char *label, bool newline, u64 width, u8 fill,
                     u32 flags) {
    if (indent) log_write_indent(channel);
    if (label) log_string(channel, label);
    log_number(channel, value, width, fill, flags);
    if (newline) log_bytes(channel, "\n", 1);
}

void log_indent(u32 channel) { log_channel(channel)->indent++; }

void log_outdent(u32 channel) { log_channel(channel)->indent--; }

void log_write_indent(u32 channel) {
    u32 level = log_channel(channel)->indent;
    for (u32 i = 0; i < level; i++) log_bytes(channel, "    ", 4);
}

void log_system_error(u32 channel, u32 code) {
    char text[1024];
    u64 n = os_error_text(code, text, sizeof(text));
    log_bytes(channel, text, n);
}

void log_save(u32 channel, const data_t *path, u32 *error) {
    if (*error) return;
    log_channel_t *c = log_channel(channel);
    u64 size = c->overflowed ? c->data.reserved : c->data.used;
    file_write_all(path, c->data.bytes, size, true, error);
}

bool log_copy_new_text_to_user(u32 channel, const u8 *old_end) {
    log_channel_t *c = log_channel(channel);
    if (!old_end) old_end = c->data.bytes; // the channel had no buffer yet
    const u8 *new_end = data_end(&c->data);
    if (new_end == old_end) return false;
    log_channel_t *user = log_channel(log_user);
    if (user->data.used != 0 || user->overflowed) log_bytes(log_user, "\n", 1);
    if (new_end > old_end) {
        log_bytes(log_user, old_end, (u64)(new_end - old_end));
    } else {
        assert_true(c->overflowed == 1);
        const u8 *seam = c->data.bytes + c->overflow_end;
        if (seam > old_end) log_bytes(log_user, old_end, (u64)(seam - old_end));
        log_bytes(log_user, c->data.bytes, (u64)(new_end - c->data.bytes));
    }
    return true;
}
