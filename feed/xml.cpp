// xml.cpp - the tag scanner, the matching of closing tags and the tree
// builder that the feed mappings read.
#include "feed/xml.h"

#include "base/log.h"
#include "base/text.h"

const char *const xml_element_names[xml_element_name_count] = {
    "xml",       "rss",         "rdf",      "channel",  "title",     "link",          "description",
    "language",  "copyright",   "managingEditor", "webMaster", "pubDate", "lastBuildDate", "category",
    "generator", "docs",        "cloud",    "ttl",      "image",     "rating",        "textInput",
    "skipHours", "skipDays",    "url",      "width",    "height",    "name",          "hour",
    "day",       "item",        "author",   "comments", "enclosure", "guid",          "source",
    "cdata",     "comment",     "uri",      "email",    "feed",      "id",            "updated",
    "contributor", "icon",      "logo",     "rights",   "subtitle",  "entry",         "content",
    "published", "summary",
};

const char *const xml_attribute_names[xml_attribute_name_count] = {
    "encoding", "xmlns", "version", "domain", "port", "path", "registerProcedure",
    "protocol", "url",   "length",  "type",   "isPermaLink", "src", "term",
    "scheme",   "label", "uri",     "href",   "rel",  "hreflang", "title",
};

static u32 xml_table_index(const char *const *table, u32 count, const data_t *name) {
    for (u32 i = 0; i < count; i++) {
        const char *entry = table[i];
        u64 k = 0;
        while (k < name->used && entry[k] && (u8)entry[k] == name->bytes[k]) k++;
        if (k == name->used && entry[k] == 0) return i;
    }
    return count;
}

u32 xml_name_index(const data_t *name) { return xml_table_index(xml_element_names, xml_element_name_count, name); }

u32 xml_attribute_index(const data_t *name) {
    return xml_table_index(xml_attribute_names, xml_attribute_name_count, name);
}

static const char *const xml_prefixed_names[] = {"", "dc:date", "dc:creator", "content:encoded", "rdf:about"};

u32 xml_prefixed_index(const data_t *name) {
    u32 count = array_count(xml_prefixed_names);
    u32 index = xml_table_index(xml_prefixed_names + 1, count - 1, name) + 1;
    return index < count ? index : xml_prefixed_none;
}

// ---- scanning ---------------------------------------------------------------------------------

static bool xml_is_white(u8 b) { return b == ' ' || b == '\t' || b == '\v' || b == '\f' || b == '\n' || b == '\r'; }

static bool xml_is_xml_letters(const u8 *p) {
    return (p[0] | 0x20) == 'x' && (p[1] | 0x20) == 'm' && (p[2] | 0x20) == 'l';
}

xml_scan_t xml_scan_tags(data_t *memory, const data_t *text) {
    xml_scan_t scan = {};
    u8 *free_start = memory->bytes + memory->used;
    scan.tags = (xml_tag_t *)(free_start + data_alignment_padding((u64)free_start, 8));
    if (!text->bytes || text->used == 0) return scan;
    const u8 *first = text->bytes;
    const u8 *end = first + text->used;

    const u8 *open = nullptr; // the tag's "<" (its "?" for a declaration)
    bool in_single_quotes = false, in_double_quotes = false;
    bool in_comment = false, in_cdata = false, in_xml_declaration = false;

    for (const u8 *c = first; c < end; c++) {
        // Outside a tag only "<" means anything: the text between tags is
        // passed over at once.
        if (!open) {
            c = memory_find_byte(c, end, '<');
            if (c == end) break;
        }
        u8 b = *c;
        if (b == '"') {
            if (open && !in_comment && !in_cdata && !in_single_quotes) in_double_quotes = !in_double_quotes;
            continue;
        }
        if (b == '\'') {
            if (open && !in_comment && !in_cdata && !in_double_quotes) in_single_quotes = !in_single_quotes;
            continue;
        }
        if (b == '<') {
            if (in_single_quotes || in_double_quotes || in_comment || in_cdata || in_xml_declaration) continue;
            if (open) {
                log_string(log_main, "'<' inside an already opened tag.\n");
                continue;
            }
            open = c;
            if (c + 1 < end) {
                if (c[1] == '!' && c + 3 < end && c[2] == '-' && c[3] == '-') {
                    in_comment = true;
                } else if (c[1] == '!' && c + 8 < end && memory_equal(c + 2, 7, "[CDATA[", 7)) {
                    in_cdata = true;
                } else if (c[1] == '?' && c + 4 < end && xml_is_xml_letters(c + 2)) {
                    in_xml_declaration = true;
                    open = c + 1;
                }
            }
            continue;
        }
        if (b != '>' || !open || in_single_quotes || in_double_quotes) continue;

        u64 span = (u64)(c - open);
        bool self_closing = false;
        if (in_comment) {
            if (span < 5 || c[-1] != '-' || c[-2] != '-') continue;
        } else if (in_cdata) {
            if (span < 10 || c[-1] != ']' || c[-2] != ']') continue;
        } else if (in_xml_declaration) {
            if (c[-1] != '?') log_string(log_main, "Malformed xml tag.\n");
        } else {
            self_closing = c[-1] == '/';
        }

        if (open < c) {
            xml_tag_t *tag = (xml_tag_t *)data_push(memory, sizeof(xml_tag_t), 8);
            if (!tag) {
                log_string(log_main, "The feed has more tags than there is room for; the rest is not read.\n");
                scan.out_of_room = 1;
                break;
            }
            memory_zero(tag, sizeof(xml_tag_t));
            tag->start = open + 1;
            tag->end = c;
            tag->is_self_closing = self_closing;
            tag->is_cdata = in_cdata;
            tag->is_comment = in_comment;
            tag->is_xml_declaration = in_xml_declaration;
            tag->end_index = xml_tag_no_end;
            const u8 *name = tag->start;
            if (!in_comment && !in_cdata && name < c && *name == '/') {
                tag->is_closing = 1;
                name++;
            }
            u64 name_size;
            if (in_comment) {
                name_size = 3;
            } else if (in_cdata) {
                name_size = 8;
            } else {
                const u8 *n = name;
                while (n < c && !xml_is_white(*n) && *n != ':') n++;
                name_size = (u64)(n - name);
            }
            tag->name = data_t{name_size, name_size, (u8 *)name};
            scan.count++;
        }
        open = nullptr;
        in_single_quotes = in_double_quotes = in_comment = in_cdata = in_xml_declaration = false;
    }
    return scan;
}

// ---- matching closing tags --------------------------------------------------------------------

static bool xml_same_name(const xml_tag_t *a, const xml_tag_t *b) {
    return memory_equal(a->name.bytes, a->name.used, b->name.bytes, b->name.used);
}

void xml_match_ends_by_walking(xml_scan_t *scan) {
    for (u64 i = 0; i < scan->count; i++) {
        xml_tag_t *tag = &scan->tags[i];
        tag->end_index = xml_tag_no_end;
        if (tag->is_self_closing) continue;
        i64 depth = 0;
        for (u64 k = i + 1; k < scan->count; k++) {
            const xml_tag_t *other = &scan->tags[k];
            if (!xml_same_name(tag, other)) continue;
            if (other->is_closing) {
                if (--depth < 0) {
                    tag->end_index = (u32)k;
                    break;
                }
            } else if (!other->is_self_closing) {
                depth++;
            }
        }
    }
}

// The walk above gives each tag the first later closing tag of its name at
// which the closings after it outnumber the openings. Per name that is a
// stack of levels: an opening tag starts a new level; a closing tag ends every
// tag of the top level, the level below moves up, and the closing tag itself
// joins it (it looks for an end of its own). Pending tags of one level are
// chained through end_index until they get their end.
struct xml_name_slot_t {
    u32 tag_plus_one; // a tag of this name; 0 for a free slot
    u32 top_level;    // 1-based index into the levels, 0 for none
};

struct xml_level_t {
    u32 first_tag; // chain through end_index, ending in xml_tag_no_end
    u32 below;     // 1-based, 0 for none
};

static u64 xml_name_hash(const data_t *name) {
    u64 hash = 14695981039346656037ull;
    for (u64 i = 0; i < name->used; i++) hash = (hash ^ name->bytes[i]) * 1099511628211ull;
    return hash;
}

void xml_match_ends(data_t *memory, xml_scan_t *scan) {
    if (scan->count == 0) return;
    u64 slot_count = 16;
    while (slot_count < scan->count * 2) slot_count *= 2;
    data_t rest = data_block_view_rest(memory);
    u64 need = slot_count * sizeof(xml_name_slot_t) + scan->count * sizeof(xml_level_t) + 16;
    if (scan->count >= 0x7FFFFFFF || rest.reserved < need) {
        xml_match_ends_by_walking(scan);
        return;
    }
    xml_name_slot_t *slots = (xml_name_slot_t *)rest.bytes;
    xml_level_t *levels = (xml_level_t *)(rest.bytes + slot_count * sizeof(xml_name_slot_t));
    memory_zero(slots, slot_count * sizeof(xml_name_slot_t));
    u32 level_count = 0;

    for (u32 i = 0; i < scan->count; i++) {
        xml_tag_t *tag = &scan->tags[i];
        tag->end_index = xml_tag_no_end;
        if (tag->is_self_closing) continue;
        u64 at = xml_name_hash(&tag->name) & (slot_count - 1);
        while (slots[at].tag_plus_one && !xml_same_name(&scan->tags[slots[at].tag_plus_one - 1], tag))
            at = (at + 1) & (slot_count - 1);
        xml_name_slot_t *slot = &slots[at];
        if (!slot->tag_plus_one) slot->tag_plus_one = i + 1;

        if (!tag->is_closing) {
            levels[level_count] = xml_level_t{i, slot->top_level};
            slot->top_level = ++level_count;
            continue;
        }
        if (slot->top_level) {
            xml_level_t *top = &levels[slot->top_level - 1];
            for (u32 t = top->first_tag; t != xml_tag_no_end;) {
                u32 next = scan->tags[t].end_index;
                scan->tags[t].end_index = i;
                t = next;
            }
            slot->top_level = top->below;
        }
        if (slot->top_level) {
            xml_level_t *level = &levels[slot->top_level - 1];
            tag->end_index = level->first_tag;
            level->first_tag = i;
        } else {
            levels[level_count] = xml_level_t{i, 0};
            slot->top_level = ++level_count;
        }
    }
    // Whatever is still pending has no end.
    for (u64 s = 0; s < slot_count; s++) {
        for (u32 level = slots[s].top_level; level;) {
            for (u32 t = levels[level - 1].first_tag; t != xml_tag_no_end;) {
                u32 next = scan->tags[t].end_index;
                scan->tags[t].end_index = xml_tag_no_end;
                t = next;
            }
            level = levels[level - 1].below;
        }
    }
}

// ---- the tree -----------------------------------------------------------------------------------

xml_node_t *xml_tree_node(const xml_tree_t *tree, u32 index) {
    assert_true(index < tree->node_count);
    return (xml_node_t *)tree->nodes.bytes + index;
}

static void xml_tree_full(xml_tree_t *tree) {
    if (!tree->truncated) log_string(log_main, "The feed has more elements than its tree can hold.\n");
    tree->truncated = 1;
}

static void xml_read_attributes(xml_tree_t *tree, xml_node_t *node, const xml_tag_t *tag) {
    node->attributes = (xml_attribute_t **)(tree->attribute_pointers.bytes + tree->attribute_pointers.used);
    const u8 *p = tag->name.bytes + tag->name.used;
    const u8 *end = tag->end;
    while (p < end) {
        while (p < end && *p == ' ') p++;
        const u8 *equals = p;
        while (equals < end && *equals != '=') equals++;
        if (equals >= end) return;
        const u8 *name_end = equals;
        if (equals > p && equals[-1] == ' ') name_end--;
        data_t name = data_from_range(p, name_end);
        p = equals + 1;
        if (p < end && *p == ' ') p++;
        if (p >= end || (*p != '"' && *p != '\'')) {
            log_string(log_main, "Attribute value doesn't start with ' or \".\n");
            while (p < end && *p != ' ') p++;
            continue;
        }
        u8 quote = *p++;
        const u8 *close = p;
        while (close < end && *close != quote) close++;
        if (close >= end) return;

        if (tree->attributes.reserved - tree->attributes.used < sizeof(xml_attribute_t) ||
            tree->attribute_pointers.reserved - tree->attribute_pointers.used < sizeof(void *)) {
            xml_tree_full(tree);
            return;
        }
        xml_attribute_t *attribute = (xml_attribute_t *)data_push(&tree->attributes, sizeof(xml_attribute_t), 8);
        xml_attribute_t **pointer = (xml_attribute_t **)data_push(&tree->attribute_pointers, sizeof(void *), 8);
        attribute->name_index = xml_attribute_index(&name);
        attribute->prefixed_index = xml_prefixed_index(&name);
        attribute->value = data_from_range(p, close);
        *pointer = attribute;
        node->attribute_count++;
        p = close + 1;
    }
}

// The node of a tag, made (with its attributes) when the tag has none yet.
static xml_node_t *xml_node_of(xml_tree_t *tree, xml_tag_t *tag) {
    if (tag->node) return tag->node;
    if (tree->node_count >= xml_node_capacity) {
        xml_tree_full(tree);
        return nullptr;
    }
    xml_node_t *node = (xml_node_t *)data_push(&tree->nodes, sizeof(xml_node_t), 8);
    assert_true(node);
    memory_zero(node, sizeof(xml_node_t));
    tree->node_count++;
    tag->node = node;
    if (tag->is_cdata) {
        node->name_index = xml_cdata;
        if (tag->end - 2 > tag->start + 8) node->text = data_from_range(tag->start + 8, tag->end - 2);
    } else if (tag->is_comment) {
        node->name_index = xml_comment;
        if (tag->end - 2 > tag->start + 3) node->text = data_from_range(tag->start + 3, tag->end - 2);
    } else {
        node->name_index = xml_name_index(&tag->name);
        const u8 *name_end = tag->name.bytes + tag->name.used;
        if (name_end < tag->end && *name_end == ':') { // the whole name, up to white space or "/"
            const u8 *whole_end = name_end;
            while (whole_end < tag->end && !xml_is_white(*whole_end) && *whole_end != '/') whole_end++;
            data_t whole = data_from_range(tag->name.bytes, whole_end);
            node->prefixed_index = xml_prefixed_index(&whole);
        }
        xml_read_attributes(tree, node, tag);
    }
    return node;
}

static bool xml_append_child(xml_tree_t *tree, xml_node_t *parent, xml_node_t *child) {
    if (tree->child_pointers.reserved - tree->child_pointers.used < sizeof(void *)) {
        xml_tree_full(tree);
        return false;
    }
    xml_node_t **pointer = (xml_node_t **)data_push(&tree->child_pointers, sizeof(void *), 8);
    *pointer = child;
    parent->child_count++;
    return true;
}

xml_tree_t xml_build_tree(data_t *memory, xml_scan_t *scan) {
    xml_tree_t tree = {};
    tree.nodes = data_block_reserve(memory, xml_tree_block_size, 64);
    tree.attributes = data_block_reserve(memory, xml_tree_block_size, 64);
    tree.attribute_pointers = data_block_reserve(memory, xml_tree_block_size, 64);
    tree.child_pointers = data_block_reserve(memory, xml_tree_block_size, 64);
    xml_match_ends(memory, scan);

    xml_tag_t *tags = scan->tags;
    for (u64 i = 0; i < scan->count && !tree.truncated; i++) {
        xml_tag_t *tag = &tags[i];
        if (tag->is_closing) continue;
        xml_node_t *node = xml_node_of(&tree, tag);
        if (!node) break;
        if (tag->is_self_closing || tag->is_cdata || tag->is_comment) continue;

        node->children = (xml_node_t **)(tree.child_pointers.bytes + tree.child_pointers.used);
        node->child_count = 0;
        bool found_end = false;
        u64 j = i + 1;
        for (; j < scan->count; j++) {
            xml_tag_t *other = &tags[j];
            if (other->is_cdata || other->is_comment) {
                xml_node_t *child = xml_node_of(&tree, other);
                if (!child || !xml_append_child(&tree, node, child)) break;
                continue;
            }
            if (other->is_closing && xml_same_name(other, tag)) {
                found_end = true;
                break;
            }
            xml_node_t *child = xml_node_of(&tree, other);
            if (!child || !xml_append_child(&tree, node, child)) break;
            // An unclosed element leaves its own children to this element.
            if (!other->is_self_closing && other->end_index != xml_tag_no_end) j = other->end_index;
        }
        if (found_end && j == i + 1) node->text = data_from_range(tag->end + 1, tags[j].start - 1);
    }
    return tree;
}
