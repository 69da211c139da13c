// feed_fixture.h - a reader with its code point list and 10 MB of frame
// memory, the way the app hands them to feed_parse, and small readers of what
// a parse left behind.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/log.h"
#include "feed/feed.h"

namespace feed_test {

inline std::string text(const data_t &d) { return d.used ? std::string((const char *)d.bytes, d.used) : ""; }
inline data_t view(const std::string &s) { return data_t{s.size(), s.size(), (u8 *)s.data()}; }

inline u64 log_mark(u32 channel) {
    log_channel_t *c = log_channel(channel);
    return c->data.bytes ? c->data.used : 0;
}
inline std::string log_since(u32 channel, u64 mark) {
    log_channel_t *c = log_channel(channel);
    if (!c->data.bytes || c->data.used < mark) return "";
    return std::string((const char *)c->data.bytes + mark, c->data.used - mark);
}

inline date_t make_date(u16 year, u8 month, u8 day, u8 hour = 0, u8 minute = 0, u8 second = 0) {
    date_t d = {};
    d.year = year;
    d.month = month;
    d.day = day;
    d.hour = hour;
    d.minute = minute;
    d.second = second;
    return d;
}

struct fixture_t {
    reader_t reader = {};
    code_point_list_t code_points = {};
    std::vector<u32> code_point_array;
    data_t frame = {};

    fixture_t() {
        system_info_get();
        reader_init(&reader);
        code_point_array.assign(code_point_list_capacity, 0);
        code_point_list_init(&code_points, code_point_array.data(), code_point_list_capacity);
        reader.code_points = &code_points;
        frame = data_virtual_alloc(0xA00000, 0);
    }
    ~fixture_t() {
        data_virtual_free(&reader.storage);
        data_virtual_free(&reader.text_block);
        data_virtual_free(&reader.text_block_spare);
        data_virtual_free(&frame);
    }
    fixture_t(const fixture_t &) = delete;
    fixture_t &operator=(const fixture_t &) = delete;

    feed_t *parse(const std::string &document, feed_t *feed = nullptr, const std::string &url = "https://example.org/feed") {
        data_t d = view(document), u = view(url);
        u64 used = frame.used;
        feed_t *result = feed_parse(&frame, &reader, &d, &u, feed);
        EXPECT_EQ(frame.used, used) << "the frame memory was moved";
        // As the feed query scan does: a new feed gets its meta record.
        if (result && !reader_get_meta(&reader, result->id)) reader_new_meta(&reader, result);
        return result;
    }

    std::vector<entry_t *> entries(const feed_t *feed) {
        std::vector<entry_t *> out;
        for (u32 i = 0; i < reader.entries.max_entry_count; i++) {
            entry_t *e = (entry_t *)pool_entry(&reader.entries, sizeof(entry_t), i);
            if (entry_is_valid(e) && e->feed_id == feed->id) out.push_back(e);
        }
        return out;
    }
    entry_t *entry_titled(const feed_t *feed, const std::string &title) {
        for (entry_t *e : entries(feed))
            if (text(entry_get_title(e)) == title) return e;
        return nullptr;
    }
    // Terms of the categories linked to an owner by links of `kind`.
    std::vector<std::string> categories(u32 kind, u32 owner_id) {
        std::vector<std::string> out;
        for (u32 i = 0; i < reader.links.max_entry_count; i++) {
            link_t *l = (link_t *)pool_entry(&reader.links, sizeof(link_t), i);
            if (!link_is_valid(l) || l->kind != kind || l->owner_id != owner_id) continue;
            category_t *c = reader_get_category_by_id(&reader, l->target_id);
            out.push_back(c ? text(c->term) : "<missing>");
        }
        return out;
    }
    std::vector<std::string> persons(u32 kind, u32 owner_id) {
        std::vector<std::string> out;
        for (u32 i = 0; i < reader.links.max_entry_count; i++) {
            link_t *l = (link_t *)pool_entry(&reader.links, sizeof(link_t), i);
            if (!link_is_valid(l) || l->kind != kind || l->owner_id != owner_id) continue;
            person_t *p = reader_get_person_by_id(&reader, l->target_id);
            out.push_back(p ? text(p->name) : "<missing>");
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
    bool code_point_known(u32 c) const {
        for (u32 i = 0; i < code_points.count; i++)
            if (code_points.code_points[i] == c) return true;
        return false;
    }
};

} // namespace feed_test
