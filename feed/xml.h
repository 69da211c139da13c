// xml.h - the tag scanner and the tree of small nodes that the feed mappings
// walk. This is no general XML parser: the scanner finds every tag in the raw
// bytes without looking at the text between tags, and the builder turns the
// tag list into nodes whose element and attribute names are already numbers.
//
// Nothing is decoded here: names, values and texts are views of the
// document's own bytes. All records are pushed to the memory given and live
// as long as it does (the frame).
#pragma once

#include "base/memory.h"

// ---- names --------------------------------------------------------------------------
enum : u32 {
    xml_xml = 0,
    xml_rss = 1,
    xml_rdf = 2,
    xml_channel = 3,
    xml_title = 4,
    xml_link = 5,
    xml_description = 6,
    xml_language = 7,
    xml_copyright = 8,
    xml_managing_editor = 9,
    xml_web_master = 10,
    xml_pub_date = 11,
    xml_last_build_date = 12,
    xml_category = 13,
    xml_generator = 14,
    xml_docs = 15,
    xml_cloud = 16,
    xml_ttl = 17,
    xml_image = 18,
    xml_rating = 19,
    xml_text_input = 20,
    xml_skip_hours = 21,
    xml_skip_days = 22,
    xml_url = 23,
    xml_width = 24,
    xml_height = 25,
    xml_name = 26,
    xml_hour = 27,
    xml_day = 28,
    xml_item = 29,
    xml_author = 30,
    xml_comments = 31,
    xml_enclosure = 32,
    xml_guid = 33,
    xml_source = 34,
    xml_cdata = 35,
    xml_comment = 36,
    xml_uri = 37,
    xml_email = 38,
    xml_feed = 39,
    xml_id = 40,
    xml_updated = 41,
    xml_contributor = 42,
    xml_icon = 43,
    xml_logo = 44,
    xml_rights = 45,
    xml_subtitle = 46,
    xml_entry = 47,
    xml_content = 48,
    xml_published = 49,
    xml_summary = 50,
    xml_element_other = 51,
};

enum : u32 {
    xml_attribute_encoding = 0,
    xml_attribute_xmlns = 1,
    xml_attribute_version = 2,
    xml_attribute_domain = 3,
    xml_attribute_port = 4,
    xml_attribute_path = 5,
    xml_attribute_register_procedure = 6,
    xml_attribute_protocol = 7,
    xml_attribute_url = 8,
    xml_attribute_length = 9,
    xml_attribute_type = 10,
    xml_attribute_is_perma_link = 11,
    xml_attribute_src = 12,
    xml_attribute_term = 13,
    xml_attribute_scheme = 14,
    xml_attribute_label = 15,
    xml_attribute_uri = 16,
    xml_attribute_href = 17,
    xml_attribute_rel = 18,
    xml_attribute_hreflang = 19,
    xml_attribute_title = 20,
    xml_attribute_other = 21,
};

// Prefixed names that the mappings read, known by the whole name (the tables
// above see only the prefix of an element's name): `prefixed_index` of a
// node or an attribute.
enum : u32 {
    xml_prefixed_none = 0,
    xml_dc_date = 1,
    xml_dc_creator = 2,
    xml_content_encoded = 3,
    xml_rdf_about = 4,
};

constexpr u32 xml_element_name_count = 51;
constexpr u32 xml_attribute_name_count = 21;
extern const char *const xml_element_names[xml_element_name_count];
extern const char *const xml_attribute_names[xml_attribute_name_count];

// Exact, case-sensitive look-ups; a name not in the table gives
// xml_element_other or xml_attribute_other.
u32 xml_name_index(const data_t *name);
u32 xml_attribute_index(const data_t *name);
// xml_prefixed_none for a name not among them.
u32 xml_prefixed_index(const data_t *name);

// ---- records ------------------------------------------------------------------------------
struct xml_node_t;

struct xml_tag_t { // 72 bytes
    const u8 *start; // the byte after "<" (after "<?" for a declaration)
    const u8 *end;   // the closing ">"
    data_t name;     // a namespace prefix is all that is kept of a prefixed name
    u32 is_closing;
    u32 is_self_closing;
    u32 is_cdata;
    u32 is_comment;
    u32 is_xml_declaration;
    u32 end_index; // the tag that closes this one (xml_tag_no_end if none); set by the builder
    xml_node_t *node;
};
static_assert(sizeof(xml_tag_t) == 72);
constexpr u32 xml_tag_no_end = 0xFFFFFFFF;

struct xml_attribute_t { // 32 bytes
    u32 name_index;     // xml_attribute_*
    u32 prefixed_index; // xml_prefixed_*
    data_t value; // raw bytes between the quotes
};
static_assert(sizeof(xml_attribute_t) == 32);

struct xml_node_t { // 64 bytes
    u32 name_index;     // xml_* of the element table
    u32 prefixed_index; // xml_prefixed_*
    xml_attribute_t **attributes;
    u32 attribute_count;
    u32 unused_20;
    xml_node_t **children;
    u32 child_count;
    u32 unused_36;
    data_t text; // raw bytes of the element's text, when it has no child elements
};
static_assert(sizeof(xml_node_t) == 64);

struct xml_scan_t {
    xml_tag_t *tags;
    u64 count;
    u32 out_of_room; // the memory held no more tags: the rest of the text was not scanned
};

constexpr u64 xml_tree_block_size = 0x100000;
constexpr u32 xml_node_capacity = xml_tree_block_size / sizeof(xml_node_t);                   // 16384
constexpr u32 xml_attribute_capacity = xml_tree_block_size / sizeof(xml_attribute_t);         // 32768
constexpr u32 xml_child_capacity = xml_tree_block_size / sizeof(xml_node_t *);                // 131072

struct xml_tree_t {
    data_t nodes;              // xml_node_t, in the order they were made
    data_t attributes;         // xml_attribute_t
    data_t attribute_pointers; // each node's attributes, one run a node
    data_t child_pointers;     // each element's children, one run an element
    u32 node_count;
    u32 truncated; // a block was full: the nodes after that point are missing
};

// ---- passes -----------------------------------------------------------------------------------
// Finds every tag of `text`; the tags are pushed to `memory`. Malformed tags
// cost a line on log channel 0, never the scan. When `memory` is full the
// scan ends there, with a line in the log: the tags found so far stand.
xml_scan_t xml_scan_tags(data_t *memory, const data_t *text);

// Builds the tree of a scan in four blocks of 1 MB taken from `memory`;
// what is free behind them is borrowed for the matching of closing tags: its
// bytes are overwritten, but `memory` does not grow by it.
// A document that needs more nodes, attributes or child links than the blocks
// hold gets the tree up to that point, with `truncated` set and a log line.
xml_tree_t xml_build_tree(data_t *memory, xml_scan_t *scan);

// The node made `index`-th, and its children and attributes.
xml_node_t *xml_tree_node(const xml_tree_t *tree, u32 index);

// Sets `end_index` of every tag: the closing tag of the same name that
// balances it, or xml_tag_no_end. Uses the free part of `memory` for a table
// of names when it fits, else walks forward from each tag.
void xml_match_ends(data_t *memory, xml_scan_t *scan);
// The forward walk alone (kept apart so that both ways can be compared).
void xml_match_ends_by_walking(xml_scan_t *scan);
