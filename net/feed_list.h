// feed_list.h - the files that carry a list of feeds in and out: the plain
// list (one address a line) and OPML, the outline format other readers
// import and export.
//
// Reading tells the two apart by content, not by name: a text whose first
// character (after a byte order mark and white space) is "<" is markup, and
// markup whose first element is `opml` gives the `xmlUrl` of every
// `outline`, nested ones included. Markup of any other kind (an HTML page, a
// feed) gives no address at all. Everything else is a plain list.
#pragma once

#include "base/memory.h"
#include "reader/reader.h"

enum : u32 {
    feed_list_plain = 0, // one address a line
    feed_list_opml = 1,  // the xmlUrl of each outline
    feed_list_other = 2, // markup that is no OPML: nothing to add
};

// What one list file holds. `addresses` are views of the text (or of the
// converted copy) and live as long as both the text and `memory` do.
struct feed_list_t {
    data_t *addresses;
    u64 count;       // addresses kept, at most the `capacity` given
    u64 found;       // addresses in the file, kept or not
    u32 format;      // feed_list_plain, _opml, _other
    u32 unused_28;
    data_t converted; // a UTF-8 copy of a document in another encoding, a block of its own
};

// Reads the addresses of a list file. `text` is the file's bytes and is
// written to: references in OPML attribute values are decoded in place.
// A document in UTF-16 (by its byte order mark or its first bytes) or in an
// encoding its declaration names is read through a UTF-8 copy, which
// feed_list_free releases. The array and the tags take their room from
// `memory`; when it is short, what was found so far stands.
// An OPML address is trimmed at both ends; a plain line only at its start
// (its end is the line's end, white space and all).
feed_list_t feed_list_read(data_t *memory, data_t *text, u64 capacity);
void feed_list_free(feed_list_t *list);

// Whether a path names an OPML file for writing (it ends in ".opml", in any
// case).
bool feed_list_path_is_opml(const data_t *path);

// Writes every used feed in slot order, deleted ones too, to `path`
// (overwriting it): OPML 2.0 with each feed's title, type and address when
// the path ends in ".opml", else the plain list of addresses, one a line.
// The text is built in the free part of `memory`, which is given back; an
// address that does not fit there is left out. The main log and the user's
// log say how many addresses were written (and how many were left out).
// A file that can't be written sets `error` (the file layer's code).
// Returns the addresses written.
u64 feed_list_export(reader_t *reader, const data_t *path, data_t *memory, u32 *error);

// The text of the export without the file: returns a view of the bytes,
// built in the free part of `memory` (which does not grow). `written` and
// `total` (may be null) count the addresses put in and the feeds there are.
data_t feed_list_export_text(reader_t *reader, bool opml, data_t *memory, u64 *written = nullptr,
                             u64 *total = nullptr);
