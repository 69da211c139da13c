// feed_json.cpp - JSON Feed documents to Atom-type records.
#include "feed/feed.h"

feed_t *feed_parse_json(data_t *memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed,
                        u32 *outcome) {
    (void)memory, (void)reader, (void)document, (void)url;
    *outcome = feed_parse_json_not_feed;
    return feed;
}
