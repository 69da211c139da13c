// feed_fixture.h - the test reader with its code point list and 10 MB of
// frame memory, as the app hands them to feed_parse, and readers of the result.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/log.h"
#include "feed/feed.h"
#include "reader/reader_fixture.h"

namespace feed_test {

inline std::string text(const data_t &d) { return text_of(d); }
inline data_t view(const std::string &s) { return view_of(s); }
// A sample document of tests/feed/documents.
inline std::string read_document(const std::string &name) {
    std::string document = read_whole(std::string(FEED_TEST_DOCUMENTS "/") + name);
    EXPECT_FALSE(document.empty()) << name;
    return document;
}
// date_to_number of a date, for comparisons that print readably.
inline u64 when(u64 year, u64 month, u64 day, u64 hour = 0, u64 minute = 0) {
    return minute * 100 + hour * 10000 + day * 1000000 + month * 100000000 + year * 10000000000;
}

struct fixture_t : test_reader_t {
    data_t &frame = frame_memory;

    feed_t *parse(const std::string &document, feed_t *feed = nullptr, const std::string &url = "https://a.example/") {
        data_t d = view(document), u = view(url);
        u64 used = frame.used;
        feed_t *result = feed_parse(&frame, &reader, &d, &u, feed);
        EXPECT_EQ(frame.used, used) << "the frame memory was moved";
        // As the feed query scan does: a new feed gets its meta record.
        if (result && !reader_get_meta(&reader, result->id)) reader_new_meta(&reader, result);
        return result;
    }
    entry_t *entry_titled(const feed_t *feed, const std::string &title) {
        for (u32 i = 0; i < reader.entries.max_entry_count; i++) {
            entry_t *e = (entry_t *)pool_entry(&reader.entries, sizeof(entry_t), i);
            if (entry_is_valid(e) && e->feed_id == feed->id && text(entry_get_title(e)) == title) return e;
        }
        return nullptr;
    }
    // What an owner's links of `kind` point at: category terms or person names.
    std::vector<std::string> joined(u32 kind, u32 owner_id) {
        std::vector<std::string> out;
        for (u32 i = 0; i < reader.links.max_entry_count; i++) {
            link_t *l = (link_t *)pool_entry(&reader.links, sizeof(link_t), i);
            if (!link_is_valid(l) || l->kind != kind || l->owner_id != owner_id) continue;
            if (kind <= link_kind_atom_entry_category)
                out.push_back(text(reader_get_category_by_id(&reader, l->target_id)->term));
            else
                out.push_back(text(reader_get_person_by_id(&reader, l->target_id)->name));
        }
        return out;
    }
    std::vector<atom_link_t *> atom_links(u32 owner_kind, u32 owner_id) {
        std::vector<atom_link_t *> out;
        for (u32 i = 0; i < reader.atom_links.max_entry_count; i++) {
            atom_link_t *l = (atom_link_t *)pool_entry(&reader.atom_links, sizeof(atom_link_t), i);
            if (atom_link_is_valid(l) && l->owner_kind == owner_kind && l->owner_id == owner_id) out.push_back(l);
        }
        return out;
    }
};

} // namespace feed_test
