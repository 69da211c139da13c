// reader_fixture.h - a reader with its code point list and frame memory for
// the tests, and small builders that fill it the way the feed parser does.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/log.h"
#include "reader/reader.h"

inline std::string text_of(const data_t &d) { return d.used ? std::string((const char *)d.bytes, d.used) : ""; }

inline data_t view_of(const std::string &s) { return data_t{s.size(), s.size(), (u8 *)s.data()}; }

struct test_reader_t {
    reader_t reader = {};
    code_point_list_t code_points = {};
    std::vector<u32> code_point_array;
    data_t frame_memory = {};
    u32 replacement_glyph_index = 191;
    std::vector<u32> forgotten_entries;

    test_reader_t() {
        system_info_get();
        reader_init(&reader);
        code_point_array.assign(code_point_list_capacity, 0);
        code_point_list_init(&code_points, code_point_array.data(), code_point_list_capacity);
        reader.code_points = &code_points;
        reader.replacement_glyph_index = &replacement_glyph_index;
        frame_memory = data_virtual_alloc(0xA00000, 0);
    }
    ~test_reader_t() {
        data_virtual_free(&reader.storage);
        data_virtual_free(&reader.text_block);
        data_virtual_free(&reader.text_block_spare);
        data_virtual_free(&frame_memory);
    }
    test_reader_t(const test_reader_t &) = delete;
    test_reader_t &operator=(const test_reader_t &) = delete;

    data_t add(const std::string &s) {
        data_t d = view_of(s);
        return reader_text_add(&reader, &d);
    }

    feed_t *rss_feed(const std::string &url, const std::string &title) {
        feed_t *feed = reader_new_feed(&reader, reader_type_rss);
        feed->url = add(url);
        feed->rss.title = add(title);
        reader_new_meta(&reader, feed);
        return feed;
    }

    feed_t *atom_feed(const std::string &url, const std::string &title) {
        feed_t *feed = reader_new_feed(&reader, reader_type_atom);
        feed->url = add(url);
        feed->atom.title = add(title);
        reader_new_meta(&reader, feed);
        return feed;
    }

    // A category shared by term, as the parser shares them.
    category_t *category(const std::string &term) {
        data_t t = view_of(term);
        for (u32 i = 0; i < reader.categories.max_entry_count; i++) {
            category_t *c = (category_t *)pool_entry(&reader.categories, sizeof(category_t), i);
            if (category_is_valid(c) && data_equal(&c->term, &t)) return c;
        }
        category_t *c = reader_new_category(&reader);
        c->term = add(term);
        return c;
    }

    person_t *person(const std::string &name) {
        data_t t = view_of(name);
        for (u32 i = 0; i < reader.persons.max_entry_count; i++) {
            person_t *p = (person_t *)pool_entry(&reader.persons, sizeof(person_t), i);
            if (person_is_valid(p) && data_equal(&p->name, &t)) return p;
        }
        person_t *p = reader_new_person(&reader);
        p->name = add(name);
        return p;
    }

    entry_t *rss_entry(feed_t *feed, const std::string &title, const std::string &guid, date_t date,
                       const std::vector<std::string> &categories = {}) {
        entry_t *entry = reader_new_entry(&reader);
        entry->rss.title = add(title);
        entry->rss.guid = add(guid);
        entry->rss.guid_is_perma_link = 1;
        entry->rss.pub_date = date;
        for (const std::string &term : categories) {
            category_t *c = category(term);
            reader_new_link(&reader, link_kind_rss_entry_category, entry->id, c->id);
            entry->rss.category_count++;
        }
        reader_accept_entry(&reader, feed, entry);
        return entry;
    }

    entry_t *atom_entry(feed_t *feed, const std::string &title, const std::string &id, date_t published,
                        const std::vector<std::string> &authors = {}, const std::vector<std::string> &links = {}) {
        entry_t *entry = reader_new_entry(&reader);
        entry->atom.title = add(title);
        entry->atom.atom_id = add(id);
        entry->atom.published = published;
        entry->atom.updated = published;
        for (const std::string &name : authors) {
            person_t *p = person(name);
            reader_new_link(&reader, link_kind_atom_entry_author, entry->id, p->id);
            entry->atom.author_count++;
        }
        for (const std::string &href : links) {
            atom_link_t *link = reader_new_atom_link(&reader, atom_link_owner_entry, entry->id);
            link->href = add(href);
            link->rel = atom_link_rel_alternate;
            entry->atom.link_count++;
        }
        reader_accept_entry(&reader, feed, entry);
        return entry;
    }

    std::vector<entry_t *> entries_of(const feed_t *feed) {
        std::vector<entry_t *> out;
        for (u32 i = 0; i < reader.entries.max_entry_count; i++) {
            entry_t *e = (entry_t *)pool_entry(&reader.entries, sizeof(entry_t), i);
            if (entry_is_valid(e) && e->feed_id == feed->id) out.push_back(e);
        }
        return out;
    }
};

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

// The text written to log channel 0 since `mark` (a byte count).
inline std::string log_main_since(u64 mark) {
    log_channel_t *channel = log_channel(log_main);
    if (!channel->data.bytes || channel->data.used < mark) return "";
    return std::string((const char *)channel->data.bytes + mark, channel->data.used - mark);
}

inline u64 log_main_mark() {
    log_channel_t *channel = log_channel(log_main);
    return channel->data.bytes ? channel->data.used : 0;
}
