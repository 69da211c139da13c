// feed.h - a fetched document to reader records: the tag scanner, the tree of
// small nodes, the driver that tells RSS from Atom, and the two mappings.
//
// Main thread only. All working memory is taken from `parse_memory` (the rest
// of the frame memory) and is gone when the frame ends; every stored string
// is a copy in the reader's text area.
#pragma once

#include "base/memory.h"
#include "base/text.h"
#include "feed/xml.h"
#include "reader/reader.h"

// Reads `document` (raw bytes as fetched from `url`) into `feed`, or into a
// new feed when `feed` is null. Returns the feed the document was read into,
// or `feed` as given when the document holds no `channel` or `feed` element.
//
// A stored feed whose document now comes in the other format (RSS for an
// Atom feed or the reverse) is left as it was and returned as given; the log
// and the user's messages say so.
//
// `parse_memory` itself is not moved: the parse works in the space behind
// its `used` bytes, so several documents can be parsed in one frame.
//
// A document whose first character is "{" is read as a JSON Feed, into Atom
// records. `outcome` (may be null) says why nothing was read.
enum : u32 {
    feed_parse_read = 0,           // the document was read into the feed
    feed_parse_not_feed = 1,       // no RSS, Atom or JSON Feed document
    feed_parse_html = 2,           // an HTML page
    feed_parse_cut = 3,            // the root element never closes
    feed_parse_other_format = 4,   // the stored feed is of the other type (the user is told)
    feed_parse_no_memory = 5,      // not enough frame memory to read it
    feed_parse_json_invalid = 6,   // JSON that breaks the grammar, or cut short
    feed_parse_json_too_deep = 7,  // JSON nested deeper than the parser follows
    feed_parse_json_too_large = 8, // JSON of more values than fit the parse memory
    feed_parse_json_not_feed = 9,  // JSON that is no JSON Feed (no version naming one)
    feed_parse_outcome_count = 10,
};
feed_t *feed_parse(data_t *parse_memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed,
                   u32 *outcome = nullptr);
// The reason of an outcome, as the user reads it.
const char *feed_parse_outcome_text(u32 outcome);
// Whether a document that is no feed looks like an HTML page (a doctype or
// an html element at its start).
bool feed_document_is_html(const data_t *document);

// ---- what the two mappings share ----------------------------------------------------------

// The text of an element as the mappings read it: its own text, or when that
// is empty and its only child is a CDATA section, the section's text.
data_t node_text(const xml_node_t *node);

// The value of the first attribute of that name, or null.
const data_t *node_attribute(const xml_node_t *node, u32 attribute_index);

// Converts raw document text to UTF-8 in `scratch` (overwritten from its
// start), decoding the character references, and stores it in `field` unless
// the field is found unchanged. New code points join `code_points`. A text
// that does not fit the scratch area is cut at the last whole character that
// fits, with a line on log channel 0. When the reader's text area is full the
// field stays as it was and reader->full says so.
void feed_text_set(reader_t *reader, const data_t *raw, data_t *field, code_point_list_t *code_points, u32 encoding,
                   data_t *scratch);

// Stores the address a feed is fetched from as given, byte for byte (no
// reference decoding), noting its code points in the reader's list. The
// address is the user's UTF-8 text, not document text: stored as it is, it
// stays the address that is fetched again and that a feed is found by.
// False (and nothing stored) when the text area is full.
bool feed_url_set(reader_t *reader, const data_t *url, data_t *field);

// Joins a category (term, scheme and label as raw document bytes) to an
// owner: the stored category of the same term is shared, a new one is made
// otherwise, and a link of `kind` is added unless the owner already has it.
// False when a pool or the text area had no room (the owner is not joined).
bool feed_link_category(reader_t *reader, u32 encoding, const category_t *raw, u32 kind, u32 owner_id,
                        u32 *owner_count, data_t *scratch);
// The same for a person, by name. An owner's existing links are matched by
// owner id alone, whatever their kind, so a person named twice by one owner
// (author and contributor) is joined once.
bool feed_link_person(reader_t *reader, u32 encoding, const person_t *raw, u32 kind, u32 owner_id,
                      u32 *owner_count, data_t *scratch);

// The state of one mapping run: where fields go, how raw text is read, and
// the dates that decide which items are new.
struct feed_run_t {
    reader_t *reader;
    feed_t *feed;
    u32 encoding;
    data_t *scratch;
    date_t threshold; // the stored feed's date when the run began (zero for a new feed)
    date_t newest;    // the newest accepted item date so far
    // A bit per guid hash: set for every guid of the feed's stored entries
    // (on the first look-up) and for each guid accepted since. A clear bit
    // means the feed holds no entry of that guid, with no walk of the pool.
    u64 guid_filter[1024];
    bool guid_filter_ready;
};

// The stored entry of the run's feed that an accepted item of this guid
// replaces (as reader_get_entry_by_guid finds it), or null; the guid is noted
// as the feed's from then on.
entry_t *feed_run_find_twin(feed_run_t *run, const data_t *guid);

// feed_text_set with the run's reader, encoding and scratch; the second
// takes the element text of a node.
void feed_run_set(feed_run_t *run, const data_t *raw, data_t *field);
void feed_run_set_node(feed_run_t *run, const xml_node_t *node, data_t *field);
// The later of two dates.
date_t feed_later(date_t a, date_t b);

// Makes sure the text area will not need to grow while one item or entry is
// read, so that a refused one can always be rolled back. False when the
// text area can't hold it: the item is then refused.
bool feed_reserve_for_item(reader_t *reader, const xml_node_t *item);

// Whether a text is an http or https address.
bool feed_is_web_address(const data_t *text);
// The address of an RSS entry's article: its guid when that is a perma-link
// and an http or https address, else its link.
const data_t *feed_rss_article_link(const entry_t *entry);

// The mappings. `feed` is the stored feed of the same type, or null for a new
// one; `scratch` is the conversion space of feed_text_set.
feed_t *feed_map_rss(reader_t *reader, xml_node_t *channel, xml_node_t *rdf, const data_t *url, feed_t *feed,
                     u32 encoding, data_t *scratch);
feed_t *feed_map_atom(reader_t *reader, xml_node_t *feed_node, const data_t *url, feed_t *feed, u32 encoding,
                      data_t *scratch);
// Tells the log and the user that the stored feed at `url`, of `stored_type`,
// now serves the other format, and is left as it was.
void feed_log_format_change(const data_t *url, u32 stored_type);
// A JSON Feed document to an Atom-type feed (feed_json.cpp). `memory` holds
// the parse and the conversion space; *outcome is set when nothing was read.
feed_t *feed_parse_json(data_t *memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed,
                        u32 *outcome);
