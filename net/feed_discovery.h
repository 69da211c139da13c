// feed_discovery.h - the feeds an HTML page names: `<link rel="alternate">`
// of an RSS, Atom or JSON Feed type, and `<link rel="feed">`, read with the
// program's own tokenizer and resolved against the page's address and its
// `<base href>`. Main thread (or the tool); memory from the caller's block.
#pragma once

#include "base/memory.h"

constexpr u64 feed_discovery_capacity = 64; // addresses kept of one page; the rest are only counted

struct feed_discovery_t {
    data_t links[feed_discovery_capacity]; // resolved addresses in document order, no repeats
    u64 count; // kept
    u64 found; // named by the page, kept or not (repeats not counted)
};

// The feed links of `page` (raw bytes as fetched from `page_url`). The
// tokens and the addresses take room from the free part of `memory`, whose
// `used` moves past the addresses; the caller gives it back when done. A page
// too large for that room is read up to what fits.
feed_discovery_t feed_discovery_find(data_t *memory, const data_t *page, const data_t *page_url);

// `reference` resolved against the absolute address `base` (RFC 3986: dot
// segments removed), copied into `memory`. Empty when the base has no
// scheme, the result is longer than an address can be, or memory is short.
data_t feed_discovery_resolve(data_t *memory, const data_t *base, const data_t *reference);
