// The store in memory: creation, text and rollback, look-ups, deletion and
// purge, sorting, walks, compaction and the audit.
#include <algorithm>
#include <cstring>
#include <random>

#include <gtest/gtest.h>

#include "reader_fixture.h"

TEST(ReaderCreate, ResetGivesTheStoreOfAFreshReader) {
    test_reader_t fresh, t;
    feed_t *rss = t.rss_feed("http://a/rss", "A");
    feed_t *atom = t.atom_feed("http://b/atom", "B");
    t.rss_entry(rss, "one", "g1", make_date(2024, 1, 1), {"x", "y"});
    t.atom_entry(atom, "two", "i2", make_date(2024, 1, 2), {"P"}, {"http://b/2"});
    reader_new_entry(&t.reader); // taken and never accepted
    t.reader.generation = 7;
    reader_reset(&t.reader);
    ASSERT_EQ(t.reader.storage.reserved, fresh.reader.storage.reserved);
    EXPECT_EQ(memcmp(t.reader.storage.bytes, fresh.reader.storage.bytes, fresh.reader.storage.reserved), 0);
    EXPECT_EQ(t.reader.text.used, 0u);
    EXPECT_EQ(t.reader.generation + t.reader.last_feed_id + t.reader.last_entry_id + t.reader.last_category_id +
                  t.reader.last_person_id, 0u);
    EXPECT_EQ(reader_new_feed(&t.reader, reader_type_rss)->id, 1u);
}

TEST(ReaderText, RollbackUndoesARefusedItem) {
    test_reader_t t;
    feed_t *feed = t.rss_feed("http://a", "A");
    t.rss_entry(feed, "kept", "g1", make_date(2024, 1, 1), {"shared"});
    u32 categories_before = t.reader.categories.entry_count;
    u64 used_before = t.reader.text.used;

    reader_text_mark_t mark = reader_text_mark(&t.reader);
    entry_t *refused = reader_new_entry(&t.reader);
    refused->rss.title = t.add("refused title");
    for (const char *term : {"shared", "only-refused"})
        reader_new_link(&t.reader, link_kind_rss_entry_category, refused->id, t.category(term)->id);
    refused->rss.category_count = 2;
    refused->type_and_flags = reader_type_rss;
    reader_delete_entry(&t.reader, refused, nullptr);
    reader_text_rollback(&t.reader, mark);

    EXPECT_EQ(t.reader.text.used, used_before);
    EXPECT_EQ(t.reader.categories.entry_count, categories_before) << "only-refused is gone, shared stays";
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_TRUE(reader_audit_check(&t.reader));
    EXPECT_EQ(t.category("next")->id, mark.last_category_id + 1) << "the freed id is given again";
}

TEST(ReaderLookup, GuidsByLayout) {
    test_reader_t t;
    feed_t *rss = t.rss_feed("http://r", "R");
    feed_t *atom = t.atom_feed("http://a", "A");
    entry_t *no_guid = t.rss_entry(rss, "no guid", "", make_date(2024, 1, 1));
    entry_t *with_guid = t.rss_entry(rss, "guid", "g-1", make_date(2024, 1, 2));
    entry_t *atom_entry = t.atom_entry(atom, "atom", "urn:1", make_date(2024, 1, 3));
    data_t empty = {}, g1 = data_literal("g-1"), urn = data_literal("urn:1"), url = data_literal("http://a");
    EXPECT_EQ(reader_get_entry_by_guid(&t.reader, rss->id, &empty), nullptr);
    EXPECT_EQ(reader_get_entry_by_guid(&t.reader, rss->id, &g1), with_guid);
    EXPECT_EQ(reader_get_entry_by_guid(&t.reader, atom->id, &g1), nullptr);
    EXPECT_EQ(reader_get_entry_by_guid(&t.reader, atom->id, &urn), atom_entry);
    EXPECT_EQ(reader_get_entry_by_guid(&t.reader, 99, &urn), nullptr);
    EXPECT_EQ(reader_get_entry_by_id(&t.reader, rss->id, no_guid->id), no_guid);
    EXPECT_EQ(reader_get_entry_by_id(&t.reader, atom->id, no_guid->id), nullptr);
    EXPECT_EQ(reader_get_feed_by_url(&t.reader, &url), atom);
}

static std::vector<u32> g_forgotten;

TEST(ReaderDelete, EntryThenFeedTakeTheirLinks) {
    test_reader_t t;
    g_forgotten.clear();
    t.reader.entry_forget = [](u32 id) { g_forgotten.push_back(id); };
    t.rss_entry(t.rss_feed("http://other", "O"), "o", "o", make_date(2024, 1, 1), {"x"});
    feed_t *feed = t.atom_feed("http://a", "A");
    reader_new_link(&t.reader, link_kind_atom_feed_author, feed->id, t.person("ann")->id);
    reader_new_atom_link(&t.reader, atom_link_owner_feed, feed->id)->rel = atom_link_rel_self;
    feed->atom.author_count = feed->atom.link_count = 1;
    entry_t *keep = t.atom_entry(feed, "keep", "k", make_date(2024, 1, 1), {"ann"}, {"http://k"});
    entry_t *drop = t.atom_entry(feed, "drop", "d", make_date(2024, 1, 2), {"ann", "bob"}, {"http://d", "http://e"});
    reader_new_link(&t.reader, link_kind_atom_entry_category, drop->id, t.category("cat")->id);
    drop->atom.category_count++;
    u32 drop_id = drop->id;

    reader_delete_entry(&t.reader, drop, feed);
    EXPECT_EQ(feed->entry_count, 1u);
    EXPECT_EQ(t.reader.links.entry_count, 3u);
    EXPECT_EQ(t.reader.atom_links.entry_count, 2u);
    EXPECT_EQ(t.reader.persons.entry_count, 2u) << "persons stay until a rollback or a save";
    EXPECT_EQ(g_forgotten, std::vector<u32>{drop_id});
    EXPECT_EQ(reader_first_entry(&t.reader, feed, 0, 9, 0, 0), keep);
    EXPECT_TRUE(reader_audit_check(&t.reader));

    reader_delete_feed(&t.reader, feed);
    pool_t *pools[] = {&t.reader.feeds, &t.reader.metas, &t.reader.entries, &t.reader.links, &t.reader.atom_links};
    for (u32 i = 0; i < 5; i++) EXPECT_EQ(pools[i]->entry_count, i < 4 ? 1u : 0u) << "pool " << i;
    EXPECT_TRUE(reader_audit_check(&t.reader));
}

TEST(ReaderDelete, MarksRestoreAndPurge) {
    test_reader_t t;
    feed_t *kept = t.rss_feed("http://k", "K");
    std::vector<entry_t *> entries;
    for (int i = 0; i < 5; i++) entries.push_back(t.rss_entry(kept, "e", "g" + std::to_string(i), make_date(2024, 2, 1 + i)));
    feed_t *gone = t.rss_feed("http://g", "G");
    t.rss_entry(gone, "x", "x", make_date(2024, 1, 1), {"c"});

    feed_mark_deleted(&t.reader, kept);
    for (entry_t *e : entries) EXPECT_TRUE(entry_is_deleted(e));
    feed_restore(&t.reader, kept, false);
    EXPECT_FALSE(feed_is_deleted(kept));
    EXPECT_TRUE(entry_is_deleted(entries[0])) << "restored without its entries";
    feed_restore(&t.reader, kept, true);
    for (entry_t *e : entries) EXPECT_FALSE(entry_is_deleted(e));

    for (int i : {0, 2, 4}) entry_mark_deleted(entries[i]);
    EXPECT_FALSE(feed_is_deleted(kept)) << "an entry marked alone does not mark its feed";
    feed_mark_deleted(&t.reader, gone);
    reader_purge_deleted(&t.reader);
    EXPECT_EQ(kept->entry_count, 2u);
    EXPECT_EQ(t.reader.feeds.entry_count, 1u);
    EXPECT_EQ(t.reader.entries.entry_count, 2u);
    EXPECT_EQ(t.reader.links.entry_count, 0u);
    EXPECT_TRUE(reader_audit_check(&t.reader));
}

static std::vector<std::string> titles_of(test_reader_t &t, feed_t *feed) {
    std::vector<std::string> titles;
    for (entry_t *e : t.entries_of(feed)) titles.push_back(text_of(entry_get_title(e)));
    return titles;
}

// The order the sort must give, by exchanging whole records: for each entry
// a and each later entry b of the feed, exchange when b should come first.
static std::vector<std::string> reference_sort(test_reader_t &t, feed_t *feed, bool reverse) {
    std::vector<entry_t> records;
    for (entry_t *e : t.entries_of(feed)) records.push_back(*e);
    auto date = [](const entry_t &e) { return date_to_number(e.rss.pub_date); };
    for (size_t a = 0; a < records.size(); a++)
        for (size_t b = a + 1; b < records.size(); b++)
            if (reverse ? date(records[b]) < date(records[a]) : date(records[a]) < date(records[b]))
                std::swap(records[a], records[b]);
    std::vector<std::string> titles;
    for (const entry_t &e : records) titles.push_back(text_of(entry_get_title(&e)));
    return titles;
}

TEST(ReaderSort, MatchesTheExchangeOfWholeRecords) {
    std::mt19937 random(7);
    for (int round = 0; round < 30; round++) {
        test_reader_t t;
        feed_t *other = t.rss_feed("http://other", "O");
        feed_t *feed = t.rss_feed("http://f", "F");
        for (int i = 0, n = 2 + (int)(random() % 40); i < n; i++) {
            // Few distinct days, so equal dates are common; entries of another
            // feed are interleaved and must not move.
            date_t d = make_date(2024, 1, 1 + random() % 5);
            t.rss_entry(feed, "e" + std::to_string(i), "g" + std::to_string(i), d, {"c" + std::to_string(i % 3)});
            if (random() % 3 == 0) t.rss_entry(other, "o" + std::to_string(i), "o" + std::to_string(i), d);
        }
        std::vector<entry_t *> others = t.entries_of(other); // a hole in the pool
        if (!others.empty()) reader_delete_entry(&t.reader, others[0], other);
        std::vector<std::string> other_titles = titles_of(t, other);

        bool reverse = round % 2 == 1;
        reader_get_meta(&t.reader, feed->id)->flags = reverse ? meta_sort_oldest_first : 0;
        for (int pass = 0; pass < 2; pass++) { // sorting a sorted feed too
            std::vector<std::string> expected = reference_sort(t, feed, reverse);
            reader_sort_feed(&t.reader, feed);
            ASSERT_EQ(titles_of(t, feed), expected) << "round " << round << " pass " << pass;
        }
        EXPECT_EQ(titles_of(t, other), other_titles);
        EXPECT_TRUE(reader_audit_check(&t.reader));
    }
}

TEST(ReaderSort, AtomEntriesByPublishedElseUpdated) {
    test_reader_t t;
    feed_t *feed = t.atom_feed("http://a", "A");
    t.atom_entry(feed, "undated", "u", date_t{});
    t.atom_entry(feed, "old", "o", make_date(2020, 1, 1));
    t.atom_entry(feed, "updated only", "p", make_date(2022, 1, 1))->atom.published = date_t{};
    t.atom_entry(feed, "new", "n", make_date(2024, 1, 1));
    reader_sort_feed(&t.reader, feed);
    EXPECT_EQ(titles_of(t, feed), (std::vector<std::string>{"new", "updated only", "old", "undated"}));
    reader_sort_feed(&t.reader, nullptr);
}

TEST(ReaderWalks, EntriesByGenerationAndFlags) {
    test_reader_t t;
    feed_t *feed = t.rss_feed("http://f", "F");
    feed_t *other = t.rss_feed("http://o", "O");
    entry_t *e[6];
    for (int i = 0; i < 6; i++) {
        t.reader.generation = 1 + i % 3; // generations 1 2 3 1 2 3
        e[i] = t.rss_entry(i == 3 ? other : feed, "e" + std::to_string(i), "g" + std::to_string(i), make_date(2024, 1, 1));
    }
    entry_mark_deleted(e[4]);
    // Unmarked entries of generation 2..3 in feed: e1, e2, e5.
    EXPECT_EQ(reader_first_entry(&t.reader, feed, 2, 3, 0, 0), e[1]);
    EXPECT_EQ(reader_last_entry(&t.reader, feed, 2, 3, 0, 0), e[5]);
    EXPECT_EQ(reader_next_entry(&t.reader, feed, e[2], 2, 3, 0, 0), e[5]);
    EXPECT_EQ(reader_previous_entry(&t.reader, feed, e[5], 2, 3, 0, 0), e[2]);
    EXPECT_EQ(reader_previous_entry(&t.reader, feed, e[1], 2, 3, 0, 0), nullptr);
    EXPECT_EQ(reader_next_entry(&t.reader, feed, e[2], 2, 3, reader_deleted, 0), e[4]);
    EXPECT_EQ(reader_next_entry(&t.reader, feed, e[2], 2, 3, 0, reader_deleted), e[4]);
    EXPECT_EQ(reader_first_entry(&t.reader, feed, 1, 1, reader_deleted, 0), nullptr);
    EXPECT_EQ(reader_first_entry(&t.reader, nullptr, 1, 1, 0, 0), nullptr);
}

TEST(ReaderWalks, FeedsShowEmptyAndDeleted) {
    test_reader_t t;
    t.reader.generation = 1;
    feed_t *empty = t.rss_feed("http://empty", "E");
    feed_t *old = t.rss_feed("http://old", "O");
    t.rss_entry(old, "o", "o", make_date(2024, 1, 1));
    t.reader.generation = 2;
    feed_t *fresh = t.rss_feed("http://fresh", "F");
    t.rss_entry(fresh, "f", "f", make_date(2024, 1, 1));
    feed_t *marked = t.rss_feed("http://marked", "M");
    t.rss_entry(marked, "m", "m", make_date(2024, 1, 1));
    feed_mark_deleted(&t.reader, marked);

    EXPECT_EQ(reader_first_feed(&t.reader, false, 2, 2, 0, 0, 0, 0), fresh);
    EXPECT_EQ(reader_last_feed(&t.reader, false, 2, 2, 0, 0, 0, 0), fresh);
    EXPECT_EQ(reader_first_feed(&t.reader, true, 2, 2, 0, 0, 0, 0), empty);
    EXPECT_EQ(reader_next_feed(&t.reader, empty, true, 2, 2, 0, 0, 0, 0), old);
    EXPECT_EQ(reader_next_feed(&t.reader, empty, false, 1, 2, 0, 0, 0, 0), old);
    EXPECT_EQ(reader_previous_feed(&t.reader, fresh, false, 1, 2, 0, 0, 0, 0), old);
    // Only marked feeds, with their marked entries; show empty is off then.
    EXPECT_EQ(reader_first_feed(&t.reader, true, 2, 2, reader_deleted, 0, reader_deleted, 0), marked);
    EXPECT_EQ(reader_previous_feed(&t.reader, marked, true, 2, 2, reader_deleted, 0, reader_deleted, 0), nullptr);
    EXPECT_EQ(reader_last_feed(&t.reader, true, 2, 2, 0, reader_deleted, 0, reader_deleted), marked);
}

static std::vector<std::pair<u8 *, u64>> g_released;

TEST(ReaderCompact, EditedLinkConfigurationComesHome) {
    test_reader_t t;
    g_released.clear();
    t.reader.text_release = [](void *, u8 *bytes, u64 size) { g_released.push_back({bytes, size}); };
    static char storage[256] = "/usr/bin/browser";
    link_configuration_t *configuration = &t.reader.link_configurations[3];
    configuration->name = t.add("Browser");
    configuration->executable = data_t{128, 16, (u8 *)storage};
    reader_compact(&t.reader);
    reader_rebase(&t.reader);
    EXPECT_EQ(text_of(configuration->executable), "/usr/bin/browser");
    EXPECT_GE(configuration->executable.bytes, t.reader.text.bytes);
    EXPECT_LT(configuration->executable.bytes, t.reader.text.bytes + t.reader.text.used);
    EXPECT_EQ(configuration->executable.reserved, 16u);
    EXPECT_EQ(g_released, (std::vector<std::pair<u8 *, u64>>{{(u8 *)storage, 128}}))
        << "only the string from outside the text is given back";
}

TEST(ReaderCompact, TrimKeepsWhatTheTextUses) {
    test_reader_t t;
    feed_t *feed = t.rss_feed("http://f", "Ça va \xE2\x86\x92 \xF0\x9F\x98\x80"); // arrow and an emoji
    t.rss_entry(feed, "\xE4\xB8\xAD", "g", make_date(2024, 1, 1));                 // a CJK character
    t.add(std::string("\xF3\xB0\x80\x80 \xFF bad byte", 12));                      // U+F0000 and a stray byte
    reader_trim_code_points(&t.reader);
    std::vector<u32> list(t.code_points.code_points, t.code_points.code_points + t.code_points.count);
    EXPECT_TRUE(std::is_sorted(list.begin(), list.end()));
    EXPECT_EQ(list.size(), 193u + 4u);
    for (u32 c : {0x2192u, 0x1F600u, 0x4E2Du, 0xF0000u, 0xFFFDu, 0x20u})
        EXPECT_TRUE(std::binary_search(list.begin(), list.end(), c)) << std::hex << c;
    EXPECT_EQ(list[t.replacement_glyph_index], 0xFFFDu);
    // Twice in one run, with a code point above U+43FFF, gives the same list.
    reader_trim_code_points(&t.reader);
    EXPECT_EQ(std::vector<u32>(t.code_points.code_points, t.code_points.code_points + t.code_points.count), list);
}

TEST(ReaderAuditDeathTest, CatchesBrokenCounts) {
    for (auto [breaks, message] : {std::pair{+[](entry_t *, reader_t *r) { r->entries.entry_count++; }, "count disagrees"},
                                   {+[](entry_t *e, reader_t *) { e->rss.category_count = 2; },
                                    "counts disagree with its links"}}) {
        test_reader_t t;
        breaks(t.rss_entry(t.rss_feed("http://f", "F"), "e", "g", make_date(2024, 1, 1), {"a"}), &t.reader);
        EXPECT_FALSE(reader_audit_check(&t.reader));
        EXPECT_DEATH(reader_audit(&t.reader), message);
    }
}
