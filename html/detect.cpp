// detect.cpp - the encoding prescan: a meta element in the first 1024
// bytes of a document without a byte-order mark names its encoding.
#include "base/profiler.h"
#include "base/text.h"
#include "html/encoding.h"
#include "html/tokenizer.h"

static bool detect_equal_folded(const data_t *text, const char *literal) {
    data_t other = data_from_pointer(literal, string_length(literal));
    return data_equal_ignore_case(text, &other);
}

static bool detect_starts_with_folded(const u8 *first, const u8 *end, const char *literal) {
    u64 size = string_length(literal);
    if ((u64)(end - first) < size) return false;
    for (u64 i = 0; i < size; i++) {
        u8 c = first[i];
        if (c >= 'A' && c <= 'Z') c = (u8)(c + ('a' - 'A'));
        if (c != (u8)literal[i]) return false;
    }
    return true;
}

static bool detect_is_alnum(u8 c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

u32 hp_detect_encoding(const data_t *input) {
    PROFILE_SCOPE(hp_detect_encoding);
    if (!input->bytes || input->used == 0) return encoding_none;
    u64 window = input->used < 1024 ? input->used : 1024;
    hp_cursor_t cursor = hp_cursor_create(input->bytes, window, 0);
    cursor.encoding = encoding_utf8;
    hp_reader_t *reader = &cursor.reader;
    const u8 *end = reader->end;

    // Names and values of the whole window fit: four bytes per input byte.
    u8 scratch_bytes[4096];
    data_t scratch = {sizeof(scratch_bytes), 0, scratch_bytes};

    u32 result = encoding_none;
    while (result == encoding_none && reader->position < end) {
        bool handled = false;
        const u8 *p = reader->position;

        if (detect_starts_with_folded(p, end, "<!--") && p[1] == '!' && p[2] == '-' && p[3] == '-') {
            handled = true;
            reader->position += 4;
            while (reader->position < end) {
                if (end - reader->position >= 3 && reader->position[0] == '-' && reader->position[1] == '-' &&
                    reader->position[2] == '>') {
                    reader->position += 3;
                    break;
                }
                reader->position++;
            }
            continue; // already past the comment's end
        }

        if (detect_starts_with_folded(p, end, "<meta") && end - p > 5 && hp_is_html_space(p[5])) {
            handled = true;
            reader->position += 5;
            bool got_http_equiv = false, got_content_type = false, got_content = false, got_charset = false;
            bool need_pragma = false;
            while (result == encoding_none) {
                u32 error = 0;
                data_t name, value;
                hp_parse_attribute(&cursor, &scratch, &name, &value, &error);
                if (name.used == 0) break;
                if (!got_http_equiv && detect_equal_folded(&name, "http-equiv")) {
                    got_http_equiv = true;
                    if (!got_content_type && detect_equal_folded(&value, "content-type")) got_content_type = true;
                    continue;
                }
                if (!got_content && detect_equal_folded(&name, "content")) {
                    got_content = true;
                    const u8 *v = value.bytes;
                    const u8 *v_end = value.bytes + value.used;
                    if (result == encoding_none && v && detect_starts_with_folded(v, v_end, "text/html;")) {
                        v += 10;
                        while (v < v_end && hp_is_html_space(*v)) v++;
                        if (detect_starts_with_folded(v, v_end, "charset=")) {
                            v += 8;
                            result = encoding_label_lookup(v, (u64)(v_end - v));
                            if (result) need_pragma = true;
                        }
                    }
                    continue;
                }
                if (!got_charset && name.used == 7 && memory_equal(name.bytes, 7, "charset", 7)) {
                    result = encoding_label_lookup(value.bytes, value.used);
                    got_charset = true;
                }
            }
            if (result != encoding_none) {
                if (need_pragma && !got_charset && !got_content_type) result = encoding_utf8;
                if (result == encoding_utf16be || result == encoding_utf16le) result = encoding_utf8;
                if (result == encoding_x_user_defined) result = encoding_windows_1252;
            }
        }

        if (!handled && p[0] == '<' && end - p > 1) {
            const u8 *q = p + 1;
            bool end_tag = *q == '/';
            if (end_tag) q++;
            const u8 *name_start = q;
            while (q < end && detect_is_alnum(*q)) q++;
            if (q > name_start) {
                handled = true;
                reader->position = q;
                if (q < end && hp_is_html_space(*q)) {
                    for (;;) {
                        u32 error = 0;
                        data_t name, value;
                        hp_parse_attribute(&cursor, &scratch, &name, &value, &error);
                        if (name.used == 0) break;
                    }
                    while (reader->position < end && hp_is_html_space(*reader->position)) reader->position++;
                    if (!end_tag && reader->position < end && *reader->position == '/') reader->position++;
                }
            }
        }

        if (!handled && p[0] == '<' && end - p > 1) {
            if (p[1] == '!' || p[1] == '?' || p[1] == '/') {
                while (reader->position < end && *reader->position != '>') reader->position++;
            } else {
                reader->position++;
                continue;
            }
        }
        if (reader->position < end) reader->position++;
    }
    return result;
}
