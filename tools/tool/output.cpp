// output.cpp - the tool's output: stdout through one buffer, JSON strings of
// any bytes, and JSON objects and arrays with the comma rule.
#include "tools/tool/tool.h"

#include "base/text.h"
#include "os/os_core.h"

#include <stdio.h>

// ---- output ----------------------------------------------------------------------------------

struct tool_out_t {
    u8 buffer[1 << 16];
    u64 used;
    bool failed;
};

static tool_out_t tool_out;

static void out_flush() {
    if (tool_out.used && fwrite(tool_out.buffer, 1, tool_out.used, stdout) != tool_out.used) tool_out.failed = true;
    tool_out.used = 0;
}

void out_bytes(const void *bytes, u64 size) {
    const u8 *p = (const u8 *)bytes;
    while (size) {
        if (tool_out.used == sizeof(tool_out.buffer)) out_flush();
        u64 room = sizeof(tool_out.buffer) - tool_out.used;
        u64 n = size < room ? size : room;
        memory_copy(tool_out.buffer + tool_out.used, p, n);
        tool_out.used += n;
        p += n;
        size -= n;
    }
}

void out_c(const char *text) { out_bytes(text, string_length(text)); }

void out_number(u64 value) {
    u8 digits[32];
    u64 n = number_to_text(digits, sizeof(digits), value, 0, ' ', 0);
    out_bytes(digits, n);
}

void out_code_point(u32 code_point) {
    u8 bytes[4];
    u8 size = 0;
    u32 error = 0;
    utf8_encode(bytes, bytes + 4, code_point, &size, &error);
    if (error) utf8_encode(bytes, bytes + 4, code_point_replacement, &size, &(error = 0));
    out_bytes(bytes, size);
}

// A JSON string of any bytes: valid UTF-8 passes as it is, control characters
// and the two that must be escaped are escaped, and each byte that does not
// start a valid UTF-8 sequence becomes U+FFFD.
void out_json_string(const u8 *bytes, u64 size) {
    static const char hex[] = "0123456789abcdef";
    out_c("\"");
    const u8 *p = bytes;
    const u8 *end = bytes + size;
    while (p < end) {
        u8 b = *p;
        if (b < 0x80) {
            if (b == '"') out_c("\\\"");
            else if (b == '\\') out_c("\\\\");
            else if (b == '\n') out_c("\\n");
            else if (b == '\r') out_c("\\r");
            else if (b == '\t') out_c("\\t");
            else if (b < 0x20 || b == 0x7F) {
                char escape[7] = {'\\', 'u', '0', '0', hex[b >> 4], hex[b & 15], 0};
                out_c(escape);
            } else out_bytes(&b, 1);
            p++;
            continue;
        }
        u32 code_point = 0;
        u8 length = 0;
        u32 error = 0;
        utf8_decode(p, end, &code_point, &length, &error);
        if (error || length == 0) {
            out_c("\\ufffd");
            p++;
        } else {
            out_bytes(p, length);
            p += length;
        }
    }
    out_c("\"");
}

void out_json_data(const data_t *data) { out_json_string(data->bytes, data->bytes ? data->used : 0); }

void out_json_c(const char *text) { out_json_string((const u8 *)text, string_length(text)); }

void print_error(const char *text) { os_write_stderr(text, string_length(text)); }

bool text_is(const data_t *text, const char *literal) {
    return memory_equal(text->bytes, text->used, literal, string_length(literal));
}

// ---- JSON objects with a comma rule --------------------------------------------------------

struct json_t {
    u32 depth;
    bool first[64];
};

static json_t json;

void json_separator() {
    if (json.depth && !json.first[json.depth]) out_c(",");
    json.first[json.depth] = false;
}

void json_open(const char *bracket) {
    out_c(bracket);
    assert_true(json.depth + 1 < array_count(json.first));
    json.first[++json.depth] = true;
}

void json_close(const char *bracket) {
    json.depth--;
    out_c(bracket);
}

void json_key(const char *key) {
    json_separator();
    out_json_c(key);
    out_c(":");
}

void json_number(const char *key, u64 value) {
    json_key(key);
    out_number(value);
}

void json_bool(const char *key, bool value) {
    json_key(key);
    out_c(value ? "true" : "false");
}

void json_string(const char *key, const data_t *value) {
    json_key(key);
    out_json_data(value);
}

void json_date(const char *key, date_t date) {
    json_key(key);
    if (date_is_empty(&date)) {
        out_c("null");
        return;
    }
    u8 text[32];
    data_t t = {sizeof(text), 0, text};
    data_push_number(&t, date.year, 4, '0', 0);
    data_push_u8(&t, '-');
    data_push_number(&t, date.month, 2, '0', 0);
    data_push_u8(&t, '-');
    data_push_number(&t, date.day, 2, '0', 0);
    data_push_u8(&t, ' ');
    data_push_number(&t, date.hour, 2, '0', 0);
    data_push_u8(&t, ':');
    data_push_number(&t, date.minute, 2, '0', 0);
    data_push_u8(&t, ':');
    data_push_number(&t, date.second, 2, '0', 0);
    out_json_data(&t);
}

void json_flags(const char *key, const u32 *flags, u32 count) {
    json_key(key);
    out_c("[");
    for (u32 i = 0; i < count; i++) {
        if (i) out_c(",");
        out_number(flags[i] ? 1 : 0);
    }
    out_c("]");
}

bool out_finish() {
    out_flush();
    return fflush(stdout) == 0 && !tool_out.failed;
}
