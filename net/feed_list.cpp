// feed_list.cpp - reading a list of feeds (plain or OPML) and writing one.
#include "net/feed_list.h"

#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "feed/xml.h"
#include "html/encoding.h"

// ---- encodings ------------------------------------------------------------------------------

static bool feed_list_is_white(u8 b) { return b == ' ' || b == '\t' || b == '\n' || b == '\r' || b == '\f' || b == '\v'; }

static bool feed_list_same_letters(const u8 *bytes, u64 size, const char *lower) {
    u64 i = 0;
    for (; i < size && lower[i]; i++) {
        u8 b = bytes[i];
        if (b >= 'A' && b <= 'Z') b = (u8)(b + 32);
        if (b != (u8)lower[i]) return false;
    }
    return i == size && lower[i] == 0;
}

// The encoding the text is in when it is not UTF-8: UTF-16 by its byte order
// mark or by a "<" in its first unit, else the declaration's label when it
// names another encoding. Sets `skip` to the UTF-8 byte order mark's size.
static u32 feed_list_encoding(const data_t *text, u64 *skip) {
    *skip = 0;
    const u8 *b = text->bytes;
    u64 n = text->used;
    if (n >= 3 && b[0] == 0xEF && b[1] == 0xBB && b[2] == 0xBF) {
        *skip = 3;
        return encoding_utf8;
    }
    if (n >= 2 && ((b[0] == 0xFF && b[1] == 0xFE) || (b[0] == '<' && b[1] == 0))) return encoding_utf16le;
    if (n >= 2 && ((b[0] == 0xFE && b[1] == 0xFF) || (b[0] == 0 && b[1] == '<'))) return encoding_utf16be;

    // <?xml version="1.0" encoding="..."?> at the very start.
    if (n < 5 || !memory_equal(b, 5, "<?xml", 5)) return encoding_utf8;
    u64 end = 5;
    while (end < n && end < 512 && b[end] != '>') end++;
    for (u64 i = 5; i + 8 < end; i++) {
        if (!memory_equal(b + i, 8, "encoding", 8)) continue;
        u64 p = i + 8;
        while (p < end && (feed_list_is_white(b[p]) || b[p] == '=')) p++;
        if (p >= end || (b[p] != '"' && b[p] != '\'')) break;
        u8 quote = b[p++];
        u64 close = p;
        while (close < end && b[close] != quote) close++;
        u32 named = encoding_label_lookup(b + p, close - p);
        // A declaration of UTF-16 on bytes that aren't is not believed.
        if (named == encoding_none || named == encoding_utf16le || named == encoding_utf16be) return encoding_utf8;
        return named;
    }
    return encoding_utf8;
}

// A UTF-8 copy of `text` read in `encoding`, in a block of its own; no
// character takes more than three bytes for each byte it came from.
static data_t feed_list_to_utf8(const data_t *text, u32 encoding) {
    data_t out = data_virtual_alloc(text->used * 3 + 16, 0);
    if (!out.bytes) return out;
    const u8 *p = text->bytes;
    const u8 *end = p + text->used;
    u8 state = 0;
    while (p < end) {
        u32 code_point = code_point_none, second = code_point_none;
        u8 consumed = 0;
        u32 error = 0;
        encoding_decode(encoding, p, end, &code_point, &second, &consumed, &state, &error);
        if (error == encoding_error_end_of_input) break;
        if (error || code_point == code_point_none) code_point = code_point_replacement;
        if (consumed == 0) consumed = 1;
        p += consumed > end - p ? end - p : consumed;
        u32 both[2] = {code_point, second};
        for (u32 c : both) {
            if (c == code_point_none || c == 0xFEFF) continue;
            u8 size = 0;
            u32 write_error = 0;
            utf8_encode(out.bytes + out.used, out.bytes + out.reserved, c, &size, &write_error);
            if (!write_error) out.used += size;
        }
    }
    return out;
}

// ---- OPML ---------------------------------------------------------------------------------

// Decodes the references of XML (the five names and numbers) in place; the
// text only gets shorter. Unknown or malformed references stay as written.
static u64 feed_list_decode_references(u8 *text, u64 size) {
    u64 out = 0;
    for (u64 i = 0; i < size;) {
        if (text[i] != '&') {
            text[out++] = text[i++];
            continue;
        }
        u64 semicolon = i + 1;
        while (semicolon < size && semicolon - i < 12 && text[semicolon] != ';') semicolon++;
        u32 code_point = 0;
        if (semicolon < size && text[semicolon] == ';') {
            const u8 *name = text + i + 1;
            u64 length = semicolon - i - 1;
            static const struct {
                const char *name;
                u32 code_point;
            } names[] = {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
            for (const auto &entry : names) {
                if (memory_equal(name, length, entry.name, string_length(entry.name))) code_point = entry.code_point;
            }
            if (length >= 2 && name[0] == '#') {
                bool hex = name[1] == 'x' || name[1] == 'X';
                u64 value = 0;
                u64 digits = 0;
                for (u64 k = hex ? 2 : 1; k < length; k++, digits++) {
                    u8 c = name[k];
                    if (hex && char_is_ascii_hex(c)) value = value * 16 + char_hex_value(c);
                    else if (!hex && c >= '0' && c <= '9') value = value * 10 + (c - '0');
                    else digits = 0, k = length;
                }
                if (digits && value > 0 && value <= 0x10FFFF && unicode_is_scalar((u32)value)) code_point = (u32)value;
            }
        }
        if (!code_point) {
            text[out++] = text[i++];
            continue;
        }
        u8 size_written = 0;
        u32 error = 0;
        utf8_encode(text + out, text + semicolon + 1, code_point, &size_written, &error);
        out += size_written;
        i = semicolon + 1;
    }
    return out;
}

// The value of the attribute `name` (any case) in a tag, between its quotes.
static bool feed_list_attribute(const xml_tag_t *tag, const char *name, data_t *value) {
    const u8 *p = tag->name.bytes + tag->name.used;
    const u8 *end = tag->end;
    while (p < end) {
        while (p < end && (feed_list_is_white(*p) || *p == '/')) p++;
        const u8 *name_start = p;
        while (p < end && *p != '=' && !feed_list_is_white(*p)) p++;
        const u8 *name_end = p;
        while (p < end && feed_list_is_white(*p)) p++;
        if (p >= end || *p != '=') continue;
        p++;
        while (p < end && feed_list_is_white(*p)) p++;
        if (p >= end) break;
        if (*p != '"' && *p != '\'') { // unquoted: up to white space
            while (p < end && !feed_list_is_white(*p)) p++;
            continue;
        }
        u8 quote = *p++;
        const u8 *close = p;
        while (close < end && *close != quote) close++;
        if (close >= end) break;
        if (feed_list_same_letters(name_start, (u64)(name_end - name_start), name)) {
            *value = data_from_range(p, close);
            return true;
        }
        p = close + 1;
    }
    return false;
}

static bool feed_list_tag_is(const xml_tag_t *tag, const char *lower) {
    return feed_list_same_letters(tag->name.bytes, tag->name.used, lower);
}

static void feed_list_read_opml(data_t *memory, const data_t *text, feed_list_t *list, u64 capacity) {
    xml_scan_t scan = xml_scan_tags(memory, text);
    // The first element names the document; declarations, comments and the
    // doctype come before it.
    u64 i = 0;
    for (; i < scan.count; i++) {
        const xml_tag_t *tag = &scan.tags[i];
        if (tag->is_xml_declaration || tag->is_comment || tag->is_cdata || tag->is_closing) continue;
        if (tag->name.used && (tag->name.bytes[0] == '!' || tag->name.bytes[0] == '?')) continue;
        break;
    }
    if (i == scan.count || !feed_list_tag_is(&scan.tags[i], "opml")) {
        list->format = feed_list_other;
        return;
    }
    list->format = feed_list_opml;
    for (; i < scan.count; i++) {
        xml_tag_t *tag = &scan.tags[i];
        if (tag->is_closing || tag->is_comment || tag->is_cdata || !feed_list_tag_is(tag, "outline")) continue;
        data_t value = {};
        if (!feed_list_attribute(tag, "xmlurl", &value)) continue;
        u8 *bytes = value.bytes;
        u64 size = feed_list_decode_references(bytes, value.used);
        const u8 *first = bytes;
        const u8 *last = bytes + size;
        while (first < last && feed_list_is_white(*first)) first++;
        while (last > first && feed_list_is_white(last[-1])) last--;
        if (first == last) continue;
        list->found++;
        if (list->count < capacity) list->addresses[list->count++] = data_from_range(first, last);
    }
}

// ---- reading ------------------------------------------------------------------------------------

feed_list_t feed_list_read(data_t *memory, data_t *text, u64 capacity) {
    feed_list_t list = {};
    if (!text || !text->bytes || !text->used) return list;
    list.addresses = (data_t *)data_push(memory, capacity * sizeof(data_t), 8);
    if (!list.addresses) capacity = 0;

    u64 skip = 0;
    u32 encoding = feed_list_encoding(text, &skip);
    data_t body = data_t{text->used - skip, text->used - skip, text->bytes + skip};
    if (encoding != encoding_utf8) {
        list.converted = feed_list_to_utf8(text, encoding);
        body = list.converted;
    }

    const u8 *end = body.bytes + body.used;
    const u8 *first = body.bytes;
    while (first < end && feed_list_is_white(*first)) first++;
    if (first < end && *first == '<') {
        feed_list_read_opml(memory, &body, &list, capacity);
        return list;
    }

    for (const u8 *cursor = first; cursor < end;) {
        while (cursor < end && char_is_space(*cursor)) cursor++;
        const u8 *line = cursor;
        while (cursor < end && *cursor != '\n' && *cursor != '\r') cursor++;
        if (cursor > line) {
            list.found++;
            if (list.count < capacity) list.addresses[list.count++] = data_from_range(line, cursor);
        }
        while (cursor < end && (*cursor == '\n' || *cursor == '\r')) cursor++;
    }
    return list;
}

void feed_list_free(feed_list_t *list) {
    if (list->converted.bytes) data_virtual_free(&list->converted);
}

// ---- writing ------------------------------------------------------------------------------------

bool feed_list_path_is_opml(const data_t *path) {
    return path && path->used >= 5 && feed_list_same_letters(path->bytes + path->used - 5, 5, ".opml");
}

static bool feed_list_put(data_t *out, const void *bytes, u64 size) {
    if (out->reserved - out->used < size) return false;
    memory_copy(out->bytes + out->used, bytes, size);
    out->used += size;
    return true;
}

static bool feed_list_put_c(data_t *out, const char *text) { return feed_list_put(out, text, string_length(text)); }

// Attribute text: the five markup characters as references; line ends and
// other control characters, which an attribute can't keep, as spaces.
static bool feed_list_put_escaped(data_t *out, const data_t *text) {
    for (u64 i = 0; i < text->used; i++) {
        u8 b = text->bytes[i];
        const char *reference = b == '&' ? "&amp;" : b == '<' ? "&lt;" : b == '>' ? "&gt;" : b == '"' ? "&quot;" : nullptr;
        bool ok = reference ? feed_list_put_c(out, reference) : feed_list_put(out, b < 0x20 ? (const u8 *)" " : &b, 1);
        if (!ok) return false;
    }
    return true;
}

static const char feed_list_opml_head[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                          "<opml version=\"2.0\">\n"
                                          "  <head>\n"
                                          "    <title>Tidewrack feeds</title>\n"
                                          "  </head>\n"
                                          "  <body>\n";
static const char feed_list_opml_tail[] = "  </body>\n</opml>\n";

data_t feed_list_export_text(reader_t *reader, bool opml, data_t *memory, u64 *written, u64 *total) {
    u64 own_written = 0, own_total = 0;
    if (!written) written = &own_written;
    if (!total) total = &own_total;
    *written = *total = 0;
    data_t out = data_block_view_rest(memory);
    out.used = 0;
    u64 tail = opml ? sizeof(feed_list_opml_tail) - 1 : 0;
    if (out.reserved < sizeof(feed_list_opml_head) + tail) return data_t{};
    out.reserved -= tail;
    if (opml) feed_list_put_c(&out, feed_list_opml_head);

    pool_t *feeds = &reader->feeds;
    for (u32 i = 0; i < feeds->max_entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), i);
        if (!feed_is_valid(feed)) continue;
        (*total)++;
        u64 before = out.used;
        bool ok;
        if (!opml) {
            ok = feed_list_put(&out, feed->url.bytes, feed->url.used) && feed_list_put_c(&out, "\n");
        } else {
            data_t title = feed_get_title(feed);
            if (!title.used) title = feed->url;
            ok = feed_list_put_c(&out, "    <outline text=\"") && feed_list_put_escaped(&out, &title) &&
                 feed_list_put_c(&out, "\" title=\"") && feed_list_put_escaped(&out, &title) &&
                 feed_list_put_c(&out, feed_get_type(feed) == reader_type_atom ? "\" type=\"atom\" xmlUrl=\""
                                                                                : "\" type=\"rss\" xmlUrl=\"") &&
                 feed_list_put_escaped(&out, &feed->url) && feed_list_put_c(&out, "\"/>\n");
        }
        if (!ok) out.used = before; // what doesn't fit is left out; a shorter one may still fit
        else (*written)++;
    }
    out.reserved += tail;
    if (opml) feed_list_put_c(&out, feed_list_opml_tail);
    return out;
}

u64 feed_list_export(reader_t *reader, const data_t *path, data_t *memory, u32 *error) {
    if (*error) return 0;
    u64 written = 0, total = 0;
    data_t text = feed_list_export_text(reader, feed_list_path_is_opml(path), memory, &written, &total);
    file_write_all(path, text.bytes, text.used, true, error);
    if (*error) return 0;
    const u32 channels[] = {log_main, log_user};
    for (u32 channel : channels) {
        log_channel_t *user = log_channel(channel);
        if (channel == log_user && user && user->data.used) log_string(channel, "\n\n");
        log_string(channel, "Exported ");
        log_number(channel, written);
        log_string(channel, written == 1 ? " feed address to " : " feed addresses to ");
        log_data(channel, path);
        if (written < total) {
            log_string(channel, "; ");
            log_number(channel, total - written);
            log_string(channel, " did not fit in memory and were left out");
        }
        log_string(channel, channel == log_main ? ".\n" : ".");
    }
    return written;
}
