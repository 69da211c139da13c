// reader_fixture.h - a reader with its code point list and frame memory for
// the tests and the benchmarks, and small builders that fill it the way the
// feed parser does. Needs no test framework.
#pragma once

#include <string>
#include <vector>

#include "../base/base_test_util.h"
#include "base/log.h"
#include "reader/reader.h"

inline date_t make_date(u16 year, u8 month, u8 day, u8 hour = 0, u8 minute = 0, u8 second = 0) {
    return date_t{year, month, day, hour, minute, second, 0};
}

struct test_reader_t {
    reader_t reader = {};
    code_point_list_t code_points = {};
    std::vector<u32> code_point_array;
    data_t frame_memory = {};
    u32 replacement_glyph_index = 191;

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

    feed_t *rss_feed(const std::string &url, const std::string &title) { return new_feed(reader_type_rss, url, title); }
    feed_t *atom_feed(const std::string &url, const std::string &title) { return new_feed(reader_type_atom, url, title); }
    feed_t *new_feed(u32 type, const std::string &url, const std::string &title) {
        feed_t *feed = reader_new_feed(&reader, type);
        feed->url = add(url);
        (type == reader_type_rss ? feed->rss.title : feed->atom.title) = add(title);
        reader_new_meta(&reader, feed);
        return feed;
    }

    // Categories and persons are shared by their text, as the parser shares them.
    category_t *category(const std::string &term) {
        return shared<category_t>(&reader.categories, term, reader_new_category, &category_t::term);
    }
    person_t *person(const std::string &name) {
        return shared<person_t>(&reader.persons, name, reader_new_person, &person_t::name);
    }
    template <typename T, typename New> T *shared(pool_t *pool, const std::string &text, New make, data_t T::*field) {
        data_t t = view_of(text);
        for (u32 i = 0; i < pool->max_entry_count; i++) {
            T *record = (T *)pool_entry(pool, sizeof(T), i);
            if (record->id && data_equal(&(record->*field), &t)) return record;
        }
        T *record = make(&reader);
        record->*field = add(text);
        return record;
    }

    entry_t *rss_entry(feed_t *feed, const std::string &title, const std::string &guid, date_t date,
                       const std::vector<std::string> &categories = {}) {
        entry_t *entry = reader_new_entry(&reader);
        entry->rss.title = add(title);
        entry->rss.guid = add(guid);
        entry->rss.guid_is_perma_link = 1;
        entry->rss.pub_date = date;
        for (const std::string &term : categories)
            reader_new_link(&reader, link_kind_rss_entry_category, entry->id, category(term)->id);
        entry->rss.category_count = (u32)categories.size();
        reader_accept_entry(&reader, feed, entry);
        return entry;
    }

    entry_t *atom_entry(feed_t *feed, const std::string &title, const std::string &id, date_t published,
                        const std::vector<std::string> &authors = {}, const std::vector<std::string> &links = {}) {
        entry_t *entry = reader_new_entry(&reader);
        entry->atom.title = add(title);
        entry->atom.atom_id = add(id);
        entry->atom.published = entry->atom.updated = published;
        for (const std::string &name : authors)
            reader_new_link(&reader, link_kind_atom_entry_author, entry->id, person(name)->id);
        for (const std::string &href : links) {
            atom_link_t *link = reader_new_atom_link(&reader, atom_link_owner_entry, entry->id);
            link->href = add(href);
            link->rel = atom_link_rel_alternate;
        }
        entry->atom.author_count = (u32)authors.size();
        entry->atom.link_count = (u32)links.size();
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
