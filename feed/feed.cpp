// feed.cpp - the driver that tells RSS from Atom, field text with its
// character references, and the joints of categories and persons.
#include "feed/feed.h"

#include "base/log.h"
#include "html/encoding.h"
#include "html/tokenizer.h"

// ---- element text and attributes ----------------------------------------------------------

data_t node_text(const xml_node_t *node) {
    if (node->text.used == 0 && node->child_count == 1 && node->children[0]->name_index == xml_cdata)
        return node->children[0]->text;
    return node->text;
}

const data_t *node_attribute(const xml_node_t *node, u32 attribute_index) {
    for (u32 i = 0; i < node->attribute_count; i++) {
        if (node->attributes[i]->name_index == attribute_index) return &node->attributes[i]->value;
    }
    return nullptr;
}

// ---- field text -----------------------------------------------------------------------------

// The code point a reference stands for (the text between "&" and ";"), or 0.
static u32 feed_reference(const u8 *first, const u8 *end) {
    u64 size = (u64)(end - first);
    i64 value = 0;
    if (size >= 2 && first[0] == '#' && first[1] == 'x') {
        u64 number = 0; // wraps, as the number reader does
        for (const u8 *p = first + 2; p < end && char_is_ascii_hex(*p); p++) number = number * 16 + char_hex_value(*p);
        value = (i64)number;
    } else if (size >= 1 && first[0] == '#') {
        value = text_to_i64(first + 1, size - 1);
    } else {
        // The five names of XML itself make up most references in feeds;
        // they answer as the table would, without its search.
        static const struct {
            const char *name;
            u64 size;
            u32 code_point;
        } xml_names[] = {{"lt", 2, '<'}, {"gt", 2, '>'}, {"amp", 3, '&'}, {"quot", 4, '"'}, {"apos", 4, '\''}};
        for (const auto &entry : xml_names) {
            if (memory_equal(first, size, entry.name, entry.size)) return entry.code_point;
        }
        u32 code_point = 0, second = 0;
        if (size == 0 || size > 31 || !html_entity_find(first, size, &code_point, &second)) return 0;
        value = code_point;
    }
    // A number that is no Unicode scalar value (0, a surrogate, past
    // U+10FFFF, negative) can't be written as UTF-8 and must not reach the
    // code point list that the atlas and the reader file share: the
    // reference stays in the text as written, like an unknown name.
    if (value <= 0 || value > 0x10FFFF || !unicode_is_scalar((u32)value)) return 0;
    return (u32)value;
}

// The code points met in one conversion, so that each distinct one costs at
// most one search of the list per call, not one per character. The list only
// grows during a call, so a code point once found stays found.
struct feed_code_point_cache_t {
    u64 ascii[2];
    u32 recent[64];
};

// Where in the list a code point was last found, by its low bits. An answer is
// only taken after the list is seen to hold that code point there, so it
// stays right whatever became of the list (a save's trim, another reader).
// Main thread only, as all parsing.
static u32 feed_code_point_places[1024];

static void feed_code_point_search(code_point_list_t *list, u32 code_point) {
    u32 *place = &feed_code_point_places[code_point & 1023];
    if (*place < list->count && list->code_points[*place] == code_point) return;
    for (u32 i = 0; i < list->count; i++) {
        if (list->code_points[i] == code_point) {
            *place = i;
            return;
        }
    }
    assert_message(list->count < list->capacity, "The list of code points is full.");
    *place = list->count;
    list->code_points[list->count++] = code_point;
}

static void feed_code_point_note(code_point_list_t *list, feed_code_point_cache_t *cache, u32 code_point) {
    if (code_point < 128) {
        u64 bit = 1ull << (code_point & 63);
        if (cache->ascii[code_point >> 6] & bit) return;
        cache->ascii[code_point >> 6] |= bit;
    } else {
        u32 *slot = &cache->recent[code_point & 63];
        if (*slot == code_point) return;
        *slot = code_point;
    }
    feed_code_point_search(list, code_point);
}

void feed_text_set(reader_t *reader, const data_t *raw, data_t *field, code_point_list_t *code_points, u32 encoding,
                   data_t *scratch) {
    u8 *out = scratch->bytes;
    u64 capacity = scratch->reserved;
    u64 size = 0;
    feed_code_point_cache_t cache;
    cache.ascii[0] = cache.ascii[1] = 0;
    for (u32 &slot : cache.recent) slot = code_point_none;

    const u8 *p = raw->bytes;
    const u8 *end = p ? p + raw->used : p;
    u32 decoder_state = 0;
    // The next ";" from the last search: later searches start further on, so
    // the answer holds until the text passes it (and "none" holds for good).
    const u8 *semicolon = nullptr;
    bool searched = false;
    bool cut = false;

    auto write = [&](u32 code_point) -> bool {
        if (code_point < 0x80) {
            if (size == capacity) {
                cut = true;
                return false;
            }
            out[size++] = (u8)code_point;
            return true;
        }
        u8 bytes[4];
        u8 count = 0;
        u32 error = 0;
        utf8_encode(bytes, bytes + 4, code_point, &count, &error);
        if (error) return true;
        if (count > capacity - size) {
            cut = true;
            return false;
        }
        for (u8 i = 0; i < count; i++) out[size + i] = bytes[i];
        size += count;
        return true;
    };

    // Where every byte below 0x80 is that ASCII character at the start of a
    // sequence, those bytes need no decoder call.
    bool ascii_bytes = encoding != encoding_iso_2022_jp && encoding != encoding_utf16be &&
                       encoding != encoding_utf16le && encoding != encoding_replacement;
    while (p < end) {
        // A run of plain ASCII (no "&") is copied as it stands.
        if (ascii_bytes && *p < 0x80 && *p != '&') {
            u64 room = capacity - size;
            const u8 *limit = (u64)(end - p) < room ? end : p + room;
            const u8 *q = p;
            u8 *o = out + size;
            u64 seen_low = cache.ascii[0], seen_high = cache.ascii[1];
            while (q < limit) {
                u8 b = *q;
                if (b >= 0x80 || b == '&') break;
                *o++ = b;
                u64 bit = 1ull << (b & 63);
                u64 *seen = b < 64 ? &seen_low : &seen_high;
                if (!(*seen & bit)) {
                    *seen |= bit;
                    feed_code_point_search(code_points, b);
                }
                q++;
            }
            cache.ascii[0] = seen_low, cache.ascii[1] = seen_high;
            size += (u64)(q - p);
            p = q;
            if (p == limit && p < end && *p < 0x80 && *p != '&') {
                feed_code_point_note(code_points, &cache, *p);
                write(*p); // no room: marks the text as cut
                break;
            }
            continue;
        }
        u32 code_point = code_point_none, second = code_point_none;
        u8 consumed = 0;
        if (ascii_bytes && *p < 0x80) {
            code_point = *p;
            consumed = 1;
        } else {
            u32 error = 0;
            encoding_decode(encoding, p, end, &code_point, &second, &consumed, (u8 *)&decoder_state, &error);
            if (error == encoding_error_end_of_input) break;
            if (error) code_point = code_point_none, second = code_point_none;
            if (consumed == 0) consumed = 1;
            if (consumed > end - p) consumed = (u8)(end - p);
        }
        const u8 *next = p + consumed;

        if (code_point == '&') {
            // The names of XML itself, with their ";" right behind: that ";"
            // is the next one, so they need no search.
            u32 named = 0;
            u64 rest = (u64)(end - next);
            if (rest >= 3 && next[2] == ';' && next[1] == 't' && (next[0] == 'l' || next[0] == 'g')) {
                named = next[0] == 'l' ? '<' : '>';
                p = next + 3;
            } else if (rest >= 4 && next[0] == 'a' && next[1] == 'm' && next[2] == 'p' && next[3] == ';') {
                named = '&';
                p = next + 4;
            } else if (rest >= 5 && next[4] == ';' &&
                       ((next[0] == 'q' && next[1] == 'u' && next[2] == 'o' && next[3] == 't') ||
                        (next[0] == 'a' && next[1] == 'p' && next[2] == 'o' && next[3] == 's'))) {
                named = next[0] == 'q' ? '"' : '\'';
                p = next + 5;
            }
            if (named) {
                if (!write(named)) break;
                feed_code_point_note(code_points, &cache, named);
                continue;
            }
            if (!searched || (semicolon && semicolon < next)) {
                semicolon = next;
                while (semicolon < end && *semicolon != ';') semicolon++;
                if (semicolon == end) semicolon = nullptr;
                searched = true;
            }
            u32 referenced = semicolon ? feed_reference(next, semicolon) : 0;
            if (referenced) {
                if (!write(referenced)) break;
                feed_code_point_note(code_points, &cache, referenced);
                p = semicolon + 1;
                continue;
            }
            if (!write('&')) break;
            p = next;
            continue;
        }
        if (code_point == code_point_none) code_point = code_point_replacement;
        feed_code_point_note(code_points, &cache, code_point);
        if (!write(code_point)) break;
        if (second != code_point_none) {
            feed_code_point_note(code_points, &cache, second);
            if (!write(second)) break;
        }
        p = next;
    }
    if (cut) log_string(log_main, "A feed text was cut: it does not fit the conversion space.\n");

    // The old text stays when it equals what follows the new text in the
    // scratch area (left over from earlier conversions) - not the new text
    // itself. So nearly every re-read field is stored again, and the text
    // area grows with each update until a save compacts it.
    if (field->used != 0 && size <= capacity - size &&
        memory_equal(field->bytes, field->used, out + size, size))
        return;
    // A full text area keeps the field as it was (the caller learns of it
    // from reader->full).
    if (!reader_text_fits(reader, size)) return;
    data_t output = data_t{size, size, out};
    *field = reader_text_add(reader, &output);
}

bool feed_url_set(reader_t *reader, const data_t *url, data_t *field) {
    if (!reader_text_fits(reader, url->used)) return false;
    feed_code_point_cache_t cache;
    cache.ascii[0] = cache.ascii[1] = 0;
    for (u32 &slot : cache.recent) slot = code_point_none;
    const u8 *p = url->bytes;
    const u8 *end = p ? p + url->used : p;
    while (p < end) {
        u32 code_point = code_point_none;
        u8 consumed = 0;
        u32 error = 0;
        utf8_decode(p, end, &code_point, &consumed, &error);
        feed_code_point_note(reader->code_points, &cache, error ? code_point_replacement : code_point);
        p += error || consumed == 0 ? 1 : consumed;
    }
    *field = reader_text_add(reader, url);
    return true;
}

// ---- categories and persons --------------------------------------------------------------------

// What the three texts of a raw category or person can take in the text
// area: a raw byte becomes at most 3 bytes of UTF-8.
static bool feed_texts_fit(reader_t *reader, const data_t *a, const data_t *b, const data_t *c) {
    return reader_text_fits(reader, (a->used + b->used + c->used) * 3);
}

bool feed_link_category(reader_t *reader, u32 encoding, const category_t *raw, u32 kind, u32 owner_id,
                        u32 *owner_count, data_t *scratch) {
    category_t *category = nullptr;
    pool_t *categories = &reader->categories;
    u32 seen = 0;
    for (u32 i = 0; i < categories->max_entry_count && seen < categories->entry_count; i++) {
        category_t *c = (category_t *)pool_entry(categories, sizeof(category_t), i);
        if (!category_is_valid(c)) continue;
        seen++;
        if (memory_equal(c->term.bytes, c->term.used, raw->term.bytes, raw->term.used)) category = c;
    }

    bool joined = false;
    if (category) {
        pool_t *links = &reader->links;
        u32 counted = 0;
        seen = 0;
        for (u32 i = 0; i < links->max_entry_count && seen < links->entry_count; i++) {
            link_t *link = (link_t *)pool_entry(links, sizeof(link_t), i);
            if (!link_is_valid(link)) continue;
            seen++;
            if (link->kind != kind || link->owner_id != owner_id) continue;
            if (link->target_id == category->id) {
                joined = true;
                break;
            }
            if (*owner_count && ++counted >= *owner_count) break;
        }
    } else {
        if (!feed_texts_fit(reader, &raw->term, &raw->scheme, &raw->label)) return false;
        category = reader_new_category(reader);
        if (!category) return false;
        feed_text_set(reader, &raw->term, &category->term, reader->code_points, encoding, scratch);
        feed_text_set(reader, &raw->scheme, &category->scheme, reader->code_points, encoding, scratch);
        feed_text_set(reader, &raw->label, &category->label, reader->code_points, encoding, scratch);
    }
    if (joined) return true;
    // A category made just now and left without its link is collected with
    // the next rollback or save.
    link_t *link = reader_new_link(reader, kind, owner_id, category->id);
    if (!link) return false;
    (*owner_count)++;
    return true;
}

bool feed_link_person(reader_t *reader, u32 encoding, const person_t *raw, u32 kind, u32 owner_id,
                      u32 *owner_count, data_t *scratch) {
    person_t *person = nullptr;
    pool_t *persons = &reader->persons;
    u32 seen = 0;
    for (u32 i = 0; i < persons->max_entry_count && seen < persons->entry_count; i++) {
        person_t *candidate = (person_t *)pool_entry(persons, sizeof(person_t), i);
        if (!person_is_valid(candidate)) continue;
        seen++;
        if (memory_equal(candidate->name.bytes, candidate->name.used, raw->name.bytes, raw->name.used))
            person = candidate;
    }

    bool joined = false;
    if (person) {
        // By owner id alone, whatever the kind: an author who is also a
        // contributor of the same owner stays one joint. All of the owner's
        // links are looked at: the count of one kind can't bound a walk that
        // meets every kind, and stopping early would join a contributor
        // again at each re-read of the feed.
        pool_t *links = &reader->links;
        seen = 0;
        for (u32 i = 0; i < links->max_entry_count && seen < links->entry_count; i++) {
            link_t *link = (link_t *)pool_entry(links, sizeof(link_t), i);
            if (!link_is_valid(link)) continue;
            seen++;
            if (link->owner_id == owner_id && link->target_id == person->id) {
                joined = true;
                break;
            }
        }
    } else {
        if (!feed_texts_fit(reader, &raw->name, &raw->uri, &raw->email)) return false;
        person = reader_new_person(reader);
        if (!person) return false;
        feed_text_set(reader, &raw->name, &person->name, reader->code_points, encoding, scratch);
        feed_text_set(reader, &raw->uri, &person->uri, reader->code_points, encoding, scratch);
        feed_text_set(reader, &raw->email, &person->email, reader->code_points, encoding, scratch);
    }
    if (joined) return true;
    link_t *link = reader_new_link(reader, kind, owner_id, person->id);
    if (!link) return false;
    (*owner_count)++;
    return true;
}

// ---- rollback safety -----------------------------------------------------------------------------

bool feed_reserve_for_item(reader_t *reader, const xml_node_t *item) {
    // Everything an item can store comes from its children's texts and
    // attributes, and from the texts of a person's children. A raw byte
    // becomes at most 3 bytes of UTF-8.
    u64 raw = 0;
    for (u32 i = 0; i < item->child_count; i++) {
        const xml_node_t *child = item->children[i];
        raw += node_text(child).used + child->text.used;
        for (u32 a = 0; a < child->attribute_count; a++) raw += child->attributes[a]->value.used;
        if (child->name_index == xml_author || child->name_index == xml_contributor) {
            for (u32 g = 0; g < child->child_count; g++) raw += node_text(child->children[g]).used;
        }
    }
    return reader_text_fits(reader, raw * 3 + 64);
}

// ---- the driver -------------------------------------------------------------------------------------

void feed_log_format_change(const data_t *url, u32 stored_type) {
    const char *was = stored_type == reader_type_rss ? "RSS" : "Atom";
    const char *now = stored_type == reader_type_rss ? "Atom" : "RSS";
    log_string(log_main, "Parsing: the feed at ");
    log_data(log_main, url);
    log_string(log_main, " is stored as ");
    log_string(log_main, was);
    log_string(log_main, " but now serves ");
    log_string(log_main, now);
    log_string(log_main, "; it was left as it was.\n");

    log_string(log_user, "The feed ");
    log_data(log_user, url);
    log_string(log_user, " changed its format from ");
    log_string(log_user, was);
    log_string(log_user, " to ");
    log_string(log_user, now);
    log_string(log_user, ". Its stored entries are kept, but it gets no new ones. To follow it in its new format, "
                         "remove the feed and add the address again as a new feed.\n");
}

// Whether the document's root element (its first element, past the
// declaration, comments and a doctype) is closed, or closes itself. A scan
// that ran out of room never saw the end: that document is read up to there.
static bool feed_document_is_whole(const xml_scan_t *scan) {
    if (scan->out_of_room) return true;
    for (u64 i = 0; i < scan->count; i++) {
        const xml_tag_t *tag = &scan->tags[i];
        if (tag->is_comment || tag->is_cdata || tag->is_xml_declaration || tag->is_closing) continue;
        if (tag->name.used && (tag->name.bytes[0] == '!' || tag->name.bytes[0] == '?')) continue;
        return tag->is_self_closing || tag->end_index != xml_tag_no_end;
    }
    return true;
}

// Room kept free of tags: the four tree blocks (with their alignment) and at
// least this much conversion space. A document of more tags than fit in what
// is left is read up to there.
constexpr u64 feed_tree_room = 4 * (xml_tree_block_size + 64);
constexpr u64 feed_scratch_room = 0x100000;

const char *feed_parse_outcome_text(u32 outcome) {
    static const char *const texts[feed_parse_outcome_count] = {
        "the document was read",
        "the document is no RSS, Atom or JSON Feed document",
        "an HTML page with no feed link",
        "the document ends before its root element closes",
        "the feed changed its format",
        "not enough memory to read the document",
        "the JSON Feed document breaks the rules of JSON or is cut short",
        "the JSON Feed document nests deeper than can be read",
        "the JSON Feed document holds more values than can be read",
        "the JSON document is no JSON Feed (its version names none)",
    };
    return outcome < feed_parse_outcome_count ? texts[outcome] : "unknown";
}

// The first non-space byte of a document, past a UTF-8 byte order mark; 0
// for an empty one.
static const u8 *feed_document_start(const data_t *document) {
    const u8 *p = document->bytes, *end = p ? p + document->used : p;
    if (end - p >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) p += 3;
    while (p < end && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')) p++;
    return p < end ? p : nullptr;
}

bool feed_document_is_html(const data_t *document) {
    const u8 *p = feed_document_start(document);
    if (!p) return false;
    const u8 *end = document->bytes + document->used;
    // Within the first kilobyte, past comments and the like: "<html" or
    // "<!doctype html", in any case.
    u64 size = (u64)(end - p) < 1024 ? (u64)(end - p) : 1024;
    static const char *const marks[] = {"<!doctype html", "<html"};
    for (u64 i = 0; i < size; i++) {
        for (const char *mark : marks) {
            u64 n = string_length(mark);
            if (size - i < n) continue;
            bool same = true;
            for (u64 k = 0; k < n && same; k++) same = char_to_ascii_lower(p[i + k]) == (u32)mark[k];
            if (same) return true;
        }
    }
    return false;
}

static feed_t *feed_parse_markup(data_t *parse_memory, reader_t *reader, const data_t *document, const data_t *url,
                                 feed_t *feed, u32 *outcome);

feed_t *feed_parse(data_t *parse_memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed,
                   u32 *outcome) {
    u32 own_outcome = feed_parse_read;
    if (!outcome) outcome = &own_outcome;
    *outcome = feed_parse_read;
    const u8 *start = feed_document_start(document);
    if (start && *start == '{') {
        data_t memory = data_block_view_rest(parse_memory);
        return feed_parse_json(&memory, reader, document, url, feed, outcome);
    }
    feed_t *result = feed_parse_markup(parse_memory, reader, document, url, feed, outcome);
    bool unread = *outcome == feed_parse_not_feed || *outcome == feed_parse_cut;
    if (unread && feed_document_is_html(document)) *outcome = feed_parse_html;
    return result;
}

static feed_t *feed_parse_markup(data_t *parse_memory, reader_t *reader, const data_t *document, const data_t *url,
                                 feed_t *feed, u32 *outcome) {
    data_t memory = data_block_view_rest(parse_memory);
    if (memory.reserved < feed_tree_room + feed_scratch_room) {
        log_string(log_main, "Parsing: not enough frame memory left to read ");
        log_data(log_main, url);
        log_string(log_main, ".\n");
        *outcome = feed_parse_no_memory;
        return feed;
    }
    *outcome = feed_parse_not_feed;
    data_t tag_memory = data_t{memory.reserved - feed_tree_room - feed_scratch_room, 0, memory.bytes};
    xml_scan_t scan = xml_scan_tags(&tag_memory, document);
    memory.used = tag_memory.used;
    if (scan.count == 0) return feed;
    xml_tree_t tree = xml_build_tree(&memory, &scan);
    if (tree.node_count == 0) return feed;

    u32 encoding = encoding_utf8;
    const data_t *label = node_attribute(xml_tree_node(&tree, 0), xml_attribute_encoding);
    if (label) {
        u32 named = encoding_label_lookup(label->bytes, label->used);
        if (named != encoding_none) encoding = named;
    }

    xml_node_t *found = nullptr;
    xml_node_t *rdf = nullptr;
    for (u32 i = 0; i < tree.node_count; i++) {
        xml_node_t *node = xml_tree_node(&tree, i);
        if (node->name_index == xml_channel || node->name_index == xml_feed) {
            found = node;
            break;
        }
        if (node->name_index == xml_rdf) rdf = node;
    }
    if (!found) return feed;
    if (!feed_document_is_whole(&scan)) {
        // The tree would still be read (an unclosed element hands its
        // children to its parent), but a document cut short - a dropped
        // connection, a length shorter than the body - holds only part of
        // the feed, and read as a whole it would overwrite good fields with
        // pieces. The stored feed stays as it was.
        log_string(log_main, "Parsing: the document from ");
        log_data(log_main, url);
        log_string(log_main, " ends before its root element closes; it was not read.\n");
        *outcome = feed_parse_cut;
        return feed;
    }

    u32 type = found->name_index == xml_channel ? reader_type_rss : reader_type_atom;
    if (feed && feed_get_type(feed) != type) {
        feed_log_format_change(&feed->url, feed_get_type(feed));
        *outcome = feed_parse_other_format;
        return feed;
    }
    *outcome = feed_parse_read;
    data_t scratch = data_block_view_rest(&memory);
    if (type == reader_type_rss) return feed_map_rss(reader, found, rdf, url, feed, encoding, &scratch);
    return feed_map_atom(reader, found, url, feed, encoding, &scratch);
}

void feed_run_set(feed_run_t *run, const data_t *raw, data_t *field) {
    feed_text_set(run->reader, raw, field, run->reader->code_points, run->encoding, run->scratch);
}

void feed_run_set_node(feed_run_t *run, const xml_node_t *node, data_t *field) {
    data_t text = node_text(node);
    feed_run_set(run, &text, field);
}

static u64 feed_guid_hash(const data_t *guid) {
    u64 hash = 0xcbf29ce484222325ull; // FNV-1a
    for (u64 i = 0; i < guid->used; i++) hash = (hash ^ guid->bytes[i]) * 0x100000001b3ull;
    return hash ^ (hash >> 29);
}

// Two bits a guid, from the two halves of its hash.
static bool feed_guid_filter_test(const feed_run_t *run, u64 hash) {
    const u64 bits = sizeof(run->guid_filter) * 8;
    u64 a = (hash & 0xFFFFFFFF) % bits, b = (hash >> 32) % bits;
    return (run->guid_filter[a >> 6] >> (a & 63) & 1) && (run->guid_filter[b >> 6] >> (b & 63) & 1);
}

static void feed_guid_filter_add(feed_run_t *run, const data_t *guid) {
    const u64 bits = sizeof(run->guid_filter) * 8;
    u64 hash = feed_guid_hash(guid);
    u64 a = (hash & 0xFFFFFFFF) % bits, b = (hash >> 32) % bits;
    run->guid_filter[a >> 6] |= 1ull << (a & 63);
    run->guid_filter[b >> 6] |= 1ull << (b & 63);
}

entry_t *feed_run_find_twin(feed_run_t *run, const data_t *guid) {
    if (!guid || guid->used == 0 || !run->feed) return nullptr;
    feed_t *feed = run->feed;
    if (!run->guid_filter_ready) {
        run->guid_filter_ready = true;
        u32 found = 0;
        pool_t *entries = &run->reader->entries;
        for (u32 i = 0; i < entries->max_entry_count && found < feed->entry_count; i++) {
            entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
            if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
            found++;
            data_t own = entry_get_guid(entry);
            if (own.used) feed_guid_filter_add(run, &own);
        }
    }
    entry_t *twin = nullptr;
    if (feed_guid_filter_test(run, feed_guid_hash(guid))) twin = reader_get_entry_by_guid(run->reader, feed->id, guid);
    feed_guid_filter_add(run, guid);
    return twin;
}

date_t feed_later(date_t a, date_t b) { return date_is_after(b, a) ? b : a; }
