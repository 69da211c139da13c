// feed_json.cpp - JSON Feed 1.0 and 1.1 documents to Atom-type records.
//
// The JSON is read by a flat parser of its own: one pass with an explicit
// stack (bounded depth, no recursion) turns the document into an array of
// small nodes in the parse memory, which point back into the document's
// bytes. String values are unescaped when a field takes them.
#include "base/dates.h"
#include "base/log.h"
#include "feed/feed.h"
#include "html/encoding.h"

// ---- the parser ------------------------------------------------------------------------------------

enum : u32 {
    json_object = 1,
    json_array = 2,
    json_string = 3,
    json_number = 4,
    json_true = 5,
    json_false = 6,
    json_null = 7,
};

constexpr u32 json_depth_limit = 64; // nesting a feed never needs, and the parser refuses
constexpr u32 json_none = 0;          // no node: the root is node 0 and never anyone's child

struct json_node_t {
    u32 kind;
    u32 next;  // the next sibling, json_none at the end
    u32 first; // the first child of an object or array, json_none when empty
    u32 key_start, key_size; // an object member's raw key (inside its quotes)
    u32 start, size;         // raw bytes: a string inside its quotes, a number or word as written
};

struct json_document_t {
    const u8 *text;
    json_node_t *nodes;
    u32 count;
};

static u64 json_skip_space(const u8 *text, u64 p, u64 size) {
    while (p < size && (text[p] == ' ' || text[p] == '\t' || text[p] == '\n' || text[p] == '\r')) p++;
    return p;
}

// The end of the string whose opening quote is at p (past its closing
// quote), or 0 when it breaks the grammar.
static u64 json_string_end(const u8 *text, u64 p, u64 size) {
    for (p++; p < size; p++) {
        u8 c = text[p];
        if (c == '"') return p + 1;
        if (c < 0x20) return 0;
        if (c != '\\') continue;
        if (++p == size) return 0;
        c = text[p];
        if (c == 'u') {
            for (u32 i = 0; i < 4; i++) {
                if (++p == size || !char_is_ascii_hex(text[p])) return 0;
            }
        } else if (c != '"' && c != '\\' && c != '/' && c != 'b' && c != 'f' && c != 'n' && c != 'r' && c != 't') {
            return 0;
        }
    }
    return 0;
}

static u64 json_digits(const u8 *text, u64 p, u64 size) {
    while (p < size && char_is_ascii_digit(text[p])) p++;
    return p;
}

// The end of the number at p, or 0.
static u64 json_number_end(const u8 *text, u64 p, u64 size) {
    if (p < size && text[p] == '-') p++;
    if (p == size || !char_is_ascii_digit(text[p])) return 0;
    p = text[p] == '0' ? p + 1 : json_digits(text, p, size);
    if (p < size && text[p] == '.') {
        u64 q = json_digits(text, p + 1, size);
        if (q == p + 1) return 0;
        p = q;
    }
    if (p < size && (text[p] == 'e' || text[p] == 'E')) {
        p++;
        if (p < size && (text[p] == '+' || text[p] == '-')) p++;
        u64 q = json_digits(text, p, size);
        if (q == p) return 0;
        p = q;
    }
    return p;
}

// One value at p (and its key), as a new node; returns where it ends, or 0
// with *error set.
static u64 json_scalar(json_node_t *node, const u8 *text, u64 p, u64 size, u32 *error) {
    static const struct {
        const char *word;
        u32 kind;
    } words[] = {{"true", json_true}, {"false", json_false}, {"null", json_null}};
    u64 end = 0;
    if (text[p] == '"') {
        end = json_string_end(text, p, size);
        node->kind = json_string;
        node->start = (u32)p + 1;
        node->size = end ? (u32)(end - p - 2) : 0;
    } else if (text[p] == '-' || char_is_ascii_digit(text[p])) {
        end = json_number_end(text, p, size);
        node->kind = json_number;
        node->start = (u32)p;
        node->size = (u32)(end - p);
    } else {
        for (const auto &w : words) {
            u64 n = string_length(w.word);
            if (size - p >= n && memory_equal(text + p, n, w.word, n)) end = p + n, node->kind = w.kind;
        }
        node->start = (u32)p;
        node->size = end ? (u32)(end - p) : 0;
    }
    if (!end) *error = feed_parse_json_invalid;
    return end;
}

struct json_frame_t {
    u32 node, last; // an open object or array, and its last child so far
};

// After a value inside a container: a comma, or the container's end.
// Returns where reading goes on; *depth drops when the container closed.
static u64 json_after_value(json_document_t *doc, json_frame_t *stack, u32 *depth, u64 p, u64 size,
                            bool *value_done, u32 *error) {
    json_node_t *container = &doc->nodes[stack[*depth - 1].node];
    u8 close = container->kind == json_object ? '}' : ']';
    if (p < size && doc->text[p] == ',') {
        *value_done = false;
        return p + 1;
    }
    if (p < size && doc->text[p] == close) {
        container->size = (u32)(p + 1 - container->start);
        (*depth)--;
        return p + 1;
    }
    *error = feed_parse_json_invalid;
    return p;
}

// A member's key and its colon at p; returns where its value starts (0 on
// a break of the grammar).
static u64 json_key(const u8 *text, u64 p, u64 size, u32 *key_start, u32 *key_size) {
    u64 end = text[p] == '"' ? json_string_end(text, p, size) : 0;
    if (!end) return 0;
    *key_start = (u32)p + 1, *key_size = (u32)(end - p - 2);
    p = json_skip_space(text, end, size);
    if (p == size || text[p] != ':') return 0;
    p = json_skip_space(text, p + 1, size);
    return p == size ? 0 : p;
}

// A new node for the value at p, joined to its parent; null when the
// memory is full.
static json_node_t *json_add(data_t *memory, json_document_t *doc, json_frame_t *parent, u32 key_start,
                             u32 key_size, u64 p) {
    json_node_t *node = (json_node_t *)data_push(memory, sizeof(json_node_t), alignof(json_node_t));
    if (!node) return nullptr;
    if (!doc->nodes) doc->nodes = node;
    u32 index = doc->count++;
    *node = json_node_t{0, json_none, json_none, key_start, key_size, (u32)p, 0};
    if (parent) {
        if (parent->last == json_none) doc->nodes[parent->node].first = index;
        else doc->nodes[parent->last].next = index;
        parent->last = index;
    }
    return node;
}

// The whole document as nodes in `memory`; *error is one of the JSON
// outcomes when it can't be read.
static json_document_t json_parse(data_t *memory, const data_t *document, u32 *error) {
    json_document_t doc = {document->bytes, nullptr, 0};
    const u8 *text = document->bytes;
    u64 size = document->used;
    if (size >= 0xFFFFFFFFull) {
        *error = feed_parse_json_too_large;
        return doc;
    }
    json_frame_t stack[json_depth_limit];
    u32 depth = 0;
    u64 p = size >= 3 && text[0] == 0xEF && text[1] == 0xBB && text[2] == 0xBF ? 3 : 0;
    bool value_done = false;
    while (!*error) {
        p = json_skip_space(text, p, size);
        if (value_done) {
            if (depth == 0) break; // the root is whole
            p = json_after_value(&doc, stack, &depth, p, size, &value_done, error);
            continue;
        }
        json_frame_t *parent = depth ? &stack[depth - 1] : nullptr;
        u32 parent_kind = parent ? doc.nodes[parent->node].kind : 0;
        if (p == size || (!parent && doc.count)) {
            *error = feed_parse_json_invalid;
            break;
        }
        // An empty container closes at once.
        if (parent && parent->last == json_none && text[p] == (parent_kind == json_object ? '}' : ']')) {
            value_done = true;
            continue;
        }
        u32 key_start = 0, key_size = 0;
        if (parent_kind == json_object && !(p = json_key(text, p, size, &key_start, &key_size))) {
            *error = feed_parse_json_invalid;
            break;
        }
        json_node_t *node = json_add(memory, &doc, parent, key_start, key_size, p);
        if (!node) {
            *error = feed_parse_json_too_large;
            break;
        }
        if (text[p] == '{' || text[p] == '[') {
            if (depth == json_depth_limit) {
                *error = feed_parse_json_too_deep;
                break;
            }
            node->kind = text[p] == '{' ? json_object : json_array;
            stack[depth++] = json_frame_t{doc.count - 1, json_none};
            p++;
            continue;
        }
        p = json_scalar(node, text, p, size, error);
        value_done = true;
    }
    if (!*error && json_skip_space(text, p, size) != size) *error = feed_parse_json_invalid;
    return doc;
}

static const json_node_t *json_member(const json_document_t *doc, const json_node_t *object, const char *key) {
    if (!object || object->kind != json_object) return nullptr;
    u64 n = string_length(key);
    for (u32 i = object->first; i != json_none; i = doc->nodes[i].next) {
        const json_node_t *member = &doc->nodes[i];
        if (memory_equal(doc->text + member->key_start, member->key_size, key, n)) return member;
    }
    return nullptr;
}

static const json_node_t *json_first(const json_document_t *doc, const json_node_t *node) {
    return node && (node->kind == json_array || node->kind == json_object) && node->first != json_none
               ? &doc->nodes[node->first]
               : nullptr;
}

static const json_node_t *json_next(const json_document_t *doc, const json_node_t *node) {
    return node->next != json_none ? &doc->nodes[node->next] : nullptr;
}

// ---- string values ------------------------------------------------------------------------------------

// Where unescaped values are written: a bump area reset for each group of
// values that must live together (the parts of a person, of a link).
struct json_text_t {
    data_t area;
    bool cut;
};

static void json_put(json_text_t *out, u32 code_point, bool html) {
    if (html && (code_point == '<' || code_point == '>' || code_point == '&')) {
        const char *name = code_point == '<' ? "&lt;" : code_point == '>' ? "&gt;" : "&amp;";
        for (const char *c = name; *c; c++) json_put(out, (u8)*c, false);
        return;
    }
    u8 bytes[4];
    u8 count = 0;
    u32 error = 0;
    utf8_encode(bytes, bytes + 4, code_point, &count, &error);
    if (error || out->cut || out->area.reserved - out->area.used < count) {
        out->cut = out->cut || !error;
        return;
    }
    memory_copy(out->area.bytes + out->area.used, bytes, count);
    out->area.used += count;
}

static u32 json_hex4(const u8 *p) {
    u32 value = 0;
    for (u32 i = 0; i < 4; i++) value = value * 16 + char_hex_value(p[i]);
    return value;
}

// A string node's text as UTF-8 (escapes resolved, malformed bytes as
// U+FFFD; `html` escapes the three characters markup needs), or a number's
// as written. Other kinds give an empty text.
static data_t json_text(const json_document_t *doc, const json_node_t *node, json_text_t *out, bool html = false) {
    if (!node || (node->kind != json_string && node->kind != json_number)) return data_t{};
    u64 start = out->area.used;
    const u8 *p = doc->text + node->start, *end = p + node->size;
    while (p < end && !out->cut) {
        u32 code_point = code_point_replacement;
        if (*p == '\\') {
            u8 c = p[1];
            p += 2;
            static const char plain[] = "\"\\/bfnrt", meant[] = "\"\\/\b\f\n\r\t";
            for (u32 i = 0; i < 8; i++) {
                if (c == (u8)plain[i]) code_point = (u8)meant[i];
            }
            if (c == 'u') {
                code_point = json_hex4(p);
                p += 4;
                bool high = code_point >= 0xD800 && code_point < 0xDC00;
                u32 low = end - p >= 6 && p[0] == '\\' && p[1] == 'u' ? json_hex4(p + 2) : 0;
                if (high && low >= 0xDC00 && low < 0xE000) {
                    code_point = 0x10000 + ((code_point - 0xD800) << 10) + (low - 0xDC00);
                    p += 6;
                } else if (code_point >= 0xD800 && code_point < 0xE000) {
                    code_point = code_point_replacement; // a lone surrogate
                }
            }
        } else {
            u8 consumed = 0;
            u32 error = 0;
            utf8_decode(p, end, &code_point, &consumed, &error);
            if (error || consumed == 0) code_point = code_point_replacement, consumed = 1;
            p += consumed;
        }
        json_put(out, code_point, html);
    }
    return data_t{out->area.used - start, out->area.used - start, out->area.bytes + start};
}

// ---- the mapping ---------------------------------------------------------------------------------------

struct json_run_t {
    feed_run_t run;
    const json_document_t *doc;
    json_text_t text; // unescaped values
    const data_t *url;
};

// Stores a value's text as it stands (no references are decoded: JSON
// text is already the text).
static void json_set(json_run_t *j, const json_node_t *node, data_t *field, bool html = false) {
    j->text.area.used = 0;
    data_t text = json_text(j->doc, node, &j->text, html);
    if (j->text.cut) {
        log_string(log_main, "A feed text was cut: it does not fit the conversion space.\n");
        j->text.cut = false;
    }
    if (!node) return;
    if (text.used == field->used && memory_equal(text.bytes, text.used, field->bytes, field->used)) return;
    if (!feed_url_set(j->run.reader, &text, field)) j->run.reader->full |= reader_full_text;
}

static date_t json_date(json_run_t *j, const json_node_t *node) {
    j->text.area.used = 0;
    data_t text = json_text(j->doc, node, &j->text);
    return text.used ? date_parse_rfc3339(&text) : date_t{};
}

// An atom link of the owner; false when there was no room.
static bool json_link(json_run_t *j, const json_node_t *href, u32 rel, const json_node_t *type, const json_node_t *title,
                      const json_node_t *length, u32 owner_kind, u32 owner_id, u32 *count) {
    if (!href || href->kind != json_string) return true;
    u64 raw = href->size + (type ? type->size : 0) + (title ? title->size : 0);
    if (!reader_text_fits(j->run.reader, raw * 3)) return false;
    atom_link_t *link = reader_new_atom_link(j->run.reader, owner_kind, owner_id);
    if (!link) return false;
    link->rel = rel;
    json_set(j, href, &link->href);
    if (type) json_set(j, type, &link->type);
    if (title) json_set(j, title, &link->title);
    if (length && length->kind == json_number) link->length = (u64)text_to_i64(j->doc->text + length->start, length->size);
    (*count)++;
    return true;
}

// The persons of `authors` (1.1) and `author` (1.0).
static bool json_persons(json_run_t *j, const json_node_t *owner, u32 kind, u32 owner_id, u32 *count) {
    const json_node_t *list = json_member(j->doc, owner, "authors");
    const json_node_t *single = json_member(j->doc, owner, "author");
    const json_node_t *person = list && list->kind == json_array ? json_first(j->doc, list) : single;
    for (; person; person = person == single ? nullptr : json_next(j->doc, person)) {
        j->text.area.used = 0;
        person_t raw = {};
        raw.name = json_text(j->doc, json_member(j->doc, person, "name"), &j->text);
        raw.uri = json_text(j->doc, json_member(j->doc, person, "url"), &j->text);
        if (!raw.name.used && !raw.uri.used) continue;
        if (!feed_link_person(j->run.reader, encoding_utf8, &raw, kind, owner_id, count, j->run.scratch)) return false;
    }
    return true;
}

static bool json_tags(json_run_t *j, const json_node_t *item, u32 owner_id, u32 *count) {
    for (const json_node_t *tag = json_first(j->doc, json_member(j->doc, item, "tags")); tag;
         tag = json_next(j->doc, tag)) {
        j->text.area.used = 0;
        category_t raw = {};
        raw.term = json_text(j->doc, tag, &j->text);
        if (!raw.term.used) continue;
        if (!feed_link_category(j->run.reader, encoding_utf8, &raw, link_kind_atom_entry_category, owner_id, count,
                                j->run.scratch))
            return false;
    }
    return true;
}

static bool json_entry_links(json_run_t *j, const json_node_t *item, entry_t *entry) {
    u32 *count = &entry->atom.link_count;
    const json_document_t *doc = j->doc;
    if (!json_link(j, json_member(doc, item, "url"), atom_link_rel_alternate, nullptr, nullptr, nullptr,
                   atom_link_owner_entry, entry->id, count) ||
        !json_link(j, json_member(doc, item, "external_url"), atom_link_rel_related, nullptr, nullptr, nullptr,
                   atom_link_owner_entry, entry->id, count))
        return false;
    for (const json_node_t *a = json_first(doc, json_member(doc, item, "attachments")); a; a = json_next(doc, a)) {
        if (!json_link(j, json_member(doc, a, "url"), atom_link_rel_enclosure, json_member(doc, a, "mime_type"),
                       json_member(doc, a, "title"), json_member(doc, a, "size_in_bytes"), atom_link_owner_entry,
                       entry->id, count))
            return false;
    }
    return true;
}

// One item, judged whole on its dates as an Atom entry is.
static void json_entry(json_run_t *j, const json_node_t *item) {
    reader_t *reader = j->run.reader;
    const json_document_t *doc = j->doc;
    // A text grows at most five times (content_text with its &amp;s escaped).
    if (item->kind != json_object || !reader_text_fits(reader, (u64)item->size * 5 + 64)) return;
    reader_text_mark_t mark = reader_text_mark(reader);
    date_t saved_newest = j->run.newest;
    entry_t *entry = reader_new_entry(reader);
    if (!entry) return;
    entry_atom_t *atom = &entry->atom;

    json_set(j, json_member(doc, item, "id"), &atom->atom_id);
    json_set(j, json_member(doc, item, "title"), &atom->title);
    const json_node_t *html = json_member(doc, item, "content_html");
    if (html) json_set(j, html, &atom->content);
    else json_set(j, json_member(doc, item, "content_text"), &atom->content, true);
    json_set(j, json_member(doc, item, "summary"), &atom->summary);
    atom->published = json_date(j, json_member(doc, item, "date_published"));
    atom->updated = json_date(j, json_member(doc, item, "date_modified"));
    if (date_is_empty(&atom->updated)) atom->updated = atom->published;
    j->run.newest = feed_later(j->run.newest, atom->updated);
    bool room = json_entry_links(j, item, entry) &&
                json_persons(j, item, link_kind_atom_entry_author, entry->id, &atom->author_count) &&
                json_tags(j, item, entry->id, &atom->category_count);

    if (!room || !date_is_after(atom->updated, j->run.threshold)) {
        entry->type_and_flags = reader_type_atom;
        reader_delete_entry(reader, entry, nullptr);
        reader_text_rollback(reader, mark);
        j->run.newest = saved_newest;
        return;
    }
    entry_t *twin = feed_run_find_twin(&j->run, &atom->atom_id);
    if (twin) reader_delete_entry(reader, twin, j->run.feed);
    reader_accept_entry(reader, j->run.feed, entry);
}

static bool json_is_feed(const json_document_t *doc) {
    const json_node_t *version = json_member(doc, &doc->nodes[0], "version");
    if (!version || version->kind != json_string) return false;
    const u8 *v = doc->text + version->start;
    static const char *const prefixes[] = {"https://jsonfeed.org/version/", "http://jsonfeed.org/version/"};
    for (const char *prefix : prefixes) {
        u64 n = string_length(prefix);
        if (version->size > n && memory_equal(v, n, prefix, n)) return true;
    }
    return false;
}

static void json_feed_fields(json_run_t *j, feed_t *feed) {
    const json_document_t *doc = j->doc;
    const json_node_t *root = &doc->nodes[0];
    feed_atom_t *atom = &feed->atom;
    json_set(j, json_member(doc, root, "title"), &atom->title);
    json_set(j, json_member(doc, root, "description"), &atom->subtitle);
    const json_node_t *icon = json_member(doc, root, "icon"), *favicon = json_member(doc, root, "favicon");
    json_set(j, icon, &atom->logo);
    json_set(j, favicon ? favicon : icon, &atom->icon);
    json_link(j, json_member(doc, root, "home_page_url"), atom_link_rel_alternate, nullptr, nullptr, nullptr,
              atom_link_owner_feed, feed->id, &atom->link_count);
    json_link(j, json_member(doc, root, "feed_url"), atom_link_rel_self, nullptr, nullptr, nullptr,
              atom_link_owner_feed, feed->id, &atom->link_count);
    json_persons(j, root, link_kind_atom_feed_author, feed->id, &atom->author_count);
}

feed_t *feed_parse_json(data_t *memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed,
                        u32 *outcome) {
    u32 error = 0;
    u64 memory_used = memory->used;
    json_document_t doc = json_parse(memory, document, &error);
    if (!error && (doc.count == 0 || doc.nodes[0].kind != json_object || !json_is_feed(&doc)))
        error = feed_parse_json_not_feed;
    if (!error && feed && feed_get_type(feed) != reader_type_atom) {
        feed_log_format_change(&feed->url, feed_get_type(feed));
        error = feed_parse_other_format;
    }
    if (error) {
        memory->used = memory_used;
        *outcome = error;
        return feed;
    }
    // What is left: half for the unescaped values, half for the conversion
    // of categories and persons.
    data_t rest = data_block_view_rest(memory);
    u64 half = rest.reserved / 2;
    json_run_t j = {};
    j.doc = &doc;
    j.url = url;
    j.text.area = data_t{half, 0, rest.bytes};
    data_t scratch = data_t{rest.reserved - half, 0, rest.bytes + half};
    j.run.reader = reader;
    j.run.encoding = encoding_utf8;
    j.run.scratch = &scratch;
    if (feed) {
        j.run.threshold = feed->atom.updated;
        reader_delete_atom_links(reader, feed, atom_link_owner_feed); // the document's links replace them
    } else {
        if (!reader_text_fits(reader, url->used)) return nullptr;
        feed = reader_new_feed(reader, reader_type_atom);
        if (!feed) return nullptr;
        feed_url_set(reader, url, &feed->url);
    }
    j.run.feed = feed;
    json_feed_fields(&j, feed);
    for (const json_node_t *item = json_first(&doc, json_member(&doc, &doc.nodes[0], "items")); item;
         item = json_next(&doc, item)) {
        json_entry(&j, item);
    }
    feed_atom_t *atom = &feed->atom;
    if (date_is_empty(&atom->updated) || date_is_after(j.run.newest, atom->updated)) atom->updated = j.run.newest;
    memory->used = memory_used;
    *outcome = feed_parse_read;
    return feed;
}
