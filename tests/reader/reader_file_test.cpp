// The snapshot file: round trips, choosing and pruning files,
// and files that are damaged or foreign.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include <gtest/gtest.h>

#include "reader_fixture.h"

namespace fs = std::filesystem;

namespace {

// The names in a folder.
std::set<std::string> names_in(const temp_folder_t &folder) {
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder.path)) names.insert(entry.path().filename().string());
    return names;
}

u32 write_reader(test_reader_t &t, const std::string &path_text) {
    data_t path = view_of(path_text);
    u32 error = 0;
    reader_write(&t.reader, &t.frame_memory, &path, &error);
    return error;
}

// Loads the newest snapshot of `folder` into t; `path` gets the file chosen.
u32 load(test_reader_t &t, const std::string &folder, std::string *path = nullptr) {
    data_t folder_path = view_of(folder), chosen = {};
    u32 error = 0;
    reader_load(&t.reader, &folder_path, &t.frame_memory, &chosen, &error);
    if (path) *path = text_of(chosen);
    return error;
}

bool save(test_reader_t &t, const std::string &folder) {
    data_t folder_path = view_of(folder);
    return reader_save(&t.reader, &folder_path, &t.frame_memory);
}

std::string first_feed_title(test_reader_t &t) {
    return text_of(feed_get_title((feed_t *)pool_entry(&t.reader.feeds, sizeof(feed_t), 0)));
}

// String field offsets, written out from the file layout.
const std::vector<u32> rss_feed_strings = {16,  40,  64,  88,  112, 136, 160, 184, 232, 256, 280, 312,
                                           336, 360, 392, 416, 440, 472, 496, 520, 544, 568, 592};
const std::vector<u32> atom_feed_strings = {16, 56, 80, 104, 128, 152, 176, 200, 224, 248};
const std::vector<u32> rss_entry_strings = {16, 40, 64, 88, 112, 136, 168, 192, 216, 240};
const std::vector<u32> atom_entry_strings = {32, 56, 80, 104, 128, 152};
const std::vector<u32> atom_link_strings = {8, 32, 56, 80};
const std::vector<u32> configuration_strings = {0, 24, 48};

// What a user would call the content, independent of ids and slots: each
// feed by address and entry by guid, with generation, flags and relations.
std::map<std::string, std::string> content_of(reader_t *reader) {
    std::map<std::string, std::string> out;
    std::map<u32, std::string> feed_key, entry_key;
    for (u32 i = 0; i < reader->feeds.max_entry_count; i++) {
        feed_t *f = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        if (!feed_is_valid(f)) continue;
        meta_t *meta = reader_get_meta(reader, f->id);
        feed_key[f->id] = "feed " + text_of(f->url);
        out[feed_key[f->id]] = "title=" + text_of(feed_get_title(f)) + " entries=" + std::to_string(f->entry_count) +
                               " meta=" + std::to_string(meta->flags) + "/" +
                               std::to_string(meta->link_configuration - reader->link_configurations);
    }
    for (u32 i = 0; i < reader->entries.max_entry_count; i++) {
        entry_t *e = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        if (!entry_is_valid(e)) continue;
        entry_key[e->id] = text_of(entry_get_guid(e));
        out[entry_key[e->id]] = "feed=" + text_of(reader_get_feed_by_id(reader, e->feed_id)->url) +
                                " gen=" + std::to_string(e->generation) + " title=" + text_of(entry_get_title(e)) +
                                " flags=" + std::to_string(e->type_and_flags);
    }
    std::map<std::string, std::vector<std::string>> related;
    for (u32 j = 0; j < reader->links.max_entry_count; j++) {
        link_t *l = (link_t *)pool_entry(&reader->links, sizeof(link_t), j);
        if (!link_is_valid(l)) continue;
        std::string &owner = l->kind % 2 == 0 ? entry_key[l->owner_id] : feed_key[l->owner_id];
        related[owner].push_back(l->kind <= link_kind_atom_entry_category
                                     ? "cat:" + text_of(reader_get_category_by_id(reader, l->target_id)->term)
                                     : "person" + std::to_string(l->kind) + ":" +
                                           text_of(reader_get_person_by_id(reader, l->target_id)->name));
    }
    for (u32 j = 0; j < reader->atom_links.max_entry_count; j++) {
        atom_link_t *l = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), j);
        if (atom_link_is_valid(l))
            related[(l->owner_kind == atom_link_owner_entry ? entry_key : feed_key)[l->owner_id]].push_back(
                "link:" + text_of(l->href) + "/" + std::to_string(l->length));
    }
    for (auto &[key, list] : related) {
        std::sort(list.begin(), list.end());
        for (const std::string &r : list) out[key] += " " + r;
    }
    return out;
}

// Gives every string field of a record its own text.
void fill_strings(test_reader_t &t, void *record, const std::vector<u32> &offsets, const std::string &tag) {
    for (u32 offset : offsets) {
        data_t text = t.add(tag + "." + std::to_string(offset));
        memcpy((u8 *)record + offset, &text, sizeof(text));
    }
}

// A reader with every kind of record, three generations, marks, removals and
// a purge.
void fill_everything(test_reader_t &t) {
    reader_t *r = &t.reader;
    reader_generation_advance(r, nullptr, nullptr);
    feed_t *rss = t.rss_feed("", "");
    fill_strings(t, rss, rss_feed_strings, "rss");
    rss->rss.pub_date = make_date(2024, 3, 1, 10, 0, 0);
    rss->rss.last_build_date = make_date(2024, 3, 2, 11, 30, 15);
    rss->rss.cloud_port = 8080;
    rss->rss.ttl = 60;
    rss->rss.image_width = 88;
    rss->rss.image_height = 31;
    rss->rss.skip_hours[0] = rss->rss.skip_hours[23] = rss->rss.skip_days[6] = 1;
    reader_new_link(r, link_kind_rss_feed_category, rss->id, t.category("channel-topic")->id);
    rss->rss.category_count = 1;
    reader_get_meta(r, rss->id)->flags = meta_hide_enclosure | meta_draw_enclosure_image;

    entry_t *e1 = t.rss_entry(rss, "", "", make_date(2024, 3, 1, 9), {"news", "tech"});
    fill_strings(t, e1, rss_entry_strings, "rss-1");
    e1->rss.title = t.add("First ünïcödé");
    e1->rss.description = t.add("<p>Body with \xE2\x82\xAC and \xF0\x9F\x93\xB0</p>");
    e1->rss.enclosure_length = 0x1'2345'6789ull;
    e1->rss.guid_is_perma_link = 0;
    entry_t *doomed = t.rss_entry(rss, "Removed now \xE1\x9A\xA0", "rss-2", make_date(2024, 3, 1, 8), {"only-doomed"});
    reader_delete_entry(r, doomed, rss);

    // Generation 3 (2 is skipped on purpose: it leaves no entry).
    r->generation = 3;
    feed_t *atom = t.atom_feed("", "");
    fill_strings(t, atom, atom_feed_strings, "atom");
    atom->atom.updated = make_date(2024, 4, 4, 4, 4, 4);
    person_t *ann = t.person("Ann");
    fill_strings(t, ann, {32, 56}, "ann");
    category_t *science = t.category("science");
    fill_strings(t, science, {32, 56}, "science");
    reader_new_link(r, link_kind_atom_feed_author, atom->id, ann->id);
    reader_new_link(r, link_kind_atom_feed_contributor, atom->id, t.person("Carl")->id);
    reader_new_link(r, link_kind_atom_feed_category, atom->id, science->id);
    atom->atom.author_count = atom->atom.contributor_count = atom->atom.category_count = atom->atom.link_count = 1;
    atom_link_t *self = reader_new_atom_link(r, atom_link_owner_feed, atom->id);
    fill_strings(t, self, atom_link_strings, "self");
    self->rel = atom_link_rel_self;

    entry_t *a1 = t.atom_entry(atom, "", "", make_date(2024, 4, 1), {"Ann", "Bea"}, {"http://a/1"});
    fill_strings(t, a1, atom_entry_strings, "atom-1");
    a1->atom.updated = make_date(2024, 4, 2);
    reader_new_link(r, link_kind_atom_entry_contributor, a1->id, t.person("Carl")->id);
    reader_new_link(r, link_kind_atom_entry_category, a1->id, t.category("news")->id);
    a1->atom.contributor_count = a1->atom.category_count = 1;
    atom_link_t *enclosure = reader_new_atom_link(r, atom_link_owner_entry, a1->id);
    fill_strings(t, enclosure, atom_link_strings, "enclosure");
    enclosure->rel = atom_link_rel_enclosure;
    enclosure->length = 123456789;
    a1->atom.link_count++;

    // Generation 5: more entries, a marked feed, a marked entry.
    r->generation = 5;
    t.atom_entry(atom, "Atom two", "urn:2", make_date(2024, 5, 1), {"Bea"}, {"http://a/2", "http://a/2b"});
    entry_mark_deleted(t.rss_entry(rss, "Marked", "rss-3", make_date(2024, 5, 2), {"tech"}));
    t.rss_entry(rss, "Kept", "rss-4", make_date(2024, 5, 3));
    feed_t *gone = t.rss_feed("http://gone", "Gone");
    t.rss_entry(gone, "g", "gone-1", make_date(2024, 5, 4), {"gone-cat"});
    feed_mark_deleted(r, gone);
    reader_sort_feed(r, rss);

    link_configuration_t *browser = &r->link_configurations[2];
    fill_strings(t, browser, configuration_strings, "browser");
    browser->queue_links = 1;
    reader_get_meta(r, atom->id)->link_configuration = browser;
    reader_get_meta(r, atom->id)->flags = meta_sort_oldest_first;

    reader_purge_deleted(r);
}

} // namespace

TEST(ReaderFile, RoundTripKeepsEveryRecord) {
    temp_folder_t folder;
    test_reader_t a;
    fill_everything(a);
    std::map<std::string, std::string> before = content_of(&a.reader);
    // Generations 1, 3, 5 are to become 1, 2, 3.
    for (auto &item : before)
        for (auto [from, to] : {std::pair{"gen=3 ", "gen=2 "}, {"gen=5 ", "gen=3 "}})
            if (size_t at = item.second.find(from); at != std::string::npos) item.second.replace(at, strlen(from), to);
    ASSERT_TRUE(save(a, folder.path));
    EXPECT_EQ(a.frame_memory.used, 0u);
    EXPECT_EQ(content_of(&a.reader), before) << "the saved reader stays usable in memory";

    test_reader_t b;
    std::string path;
    ASSERT_EQ(load(b, folder.path, &path), 0u);
    EXPECT_EQ(content_of(&b.reader), before);
    EXPECT_EQ(b.reader.generation, 3u);
    for (u32 i = 0; i < b.reader.entries.entry_count; i++)
        EXPECT_EQ(((entry_t *)pool_entry(&b.reader.entries, sizeof(entry_t), i))->id, i + 1) << "ids without gaps";
    EXPECT_EQ(b.code_points.code_points[b.replacement_glyph_index], 0xFFFDu);
    // Every byte of every record came back: written again, the file is the same.
    std::string bytes = read_whole(path);
    ASSERT_EQ(write_reader(b, path + ".again"), 0u);
    EXPECT_TRUE(read_whole(path + ".again") == bytes);
    fs::remove(path + ".again");

    // The next record goes to the first free slot with the next id.
    entry_t *next = reader_new_entry(&b.reader);
    EXPECT_EQ(pool_index_of(&b.reader.entries, sizeof(entry_t), next), 4u);
    EXPECT_EQ(next->id, 5u);
    reader_accept_entry(&b.reader, (feed_t *)pool_entry(&b.reader.feeds, sizeof(feed_t), 0), next);

    // Nothing of the removed entries or the purged feed reached the file; nor
    // a code point only they used.
    for (const char *absent : {"Removed now", "only-doomed", "http://gone", "gone-cat"})
        EXPECT_EQ(bytes.find(absent), std::string::npos) << absent;
    std::vector<u32> list(b.code_points.code_points, b.code_points.code_points + b.code_points.count);
    EXPECT_FALSE(std::binary_search(list.begin(), list.end(), 0x16A0u));
    EXPECT_TRUE(std::binary_search(list.begin(), list.end(), 0x1F4F0u));
    EXPECT_EQ(names_in(folder).size(), 1u) << "no temporary file is left";
}

// The list shows slot order: a purge and a save (which moves records from the
// end into holes) leave every feed sorted, in memory and in the file.
TEST(ReaderFile, PurgeAndSaveLeaveFeedsSorted) {
    temp_folder_t folder;
    test_reader_t a;
    feed_t *feed = a.rss_feed("http://f", "F");
    feed_t *other = a.rss_feed("http://o", "O");
    const int days[] = {3, 0, 5, 3, 1, 0, 4};  // 0: no date
    std::vector<entry_t *> others;
    for (int i = 0; i < 7; i++) {  // created unsorted, another feed's entries between
        date_t d = days[i] ? make_date(2024, 1, days[i]) : date_t{};
        a.rss_entry(feed, "d" + std::to_string(days[i]) + "-" + std::to_string(i), "g" + std::to_string(i), d);
        others.push_back(
            a.rss_entry(other, "d" + std::to_string(days[i]) + "-o" + std::to_string(i), "o" + std::to_string(i), d));
    }
    auto days_of = [](test_reader_t &t, const std::string &url) {
        data_t address = view_of(url);
        std::string out;
        for (entry_t *e : t.entries_of(reader_get_feed_by_url(&t.reader, &address)))
            out += text_of(entry_get_title(e)).substr(1, 1);
        return out;
    };
    for (int i : {0, 1, 2, 3}) entry_mark_deleted(others[i]); // holes that the save fills from the end
    reader_purge_deleted(&a.reader);
    EXPECT_EQ(days_of(a, "http://f"), "5433100");
    ASSERT_TRUE(save(a, folder.path));
    EXPECT_EQ(days_of(a, "http://f"), "5433100");
    EXPECT_EQ(days_of(a, "http://o"), "410");
    test_reader_t b;
    ASSERT_EQ(load(b, folder.path), 0u);
    EXPECT_EQ(days_of(b, "http://f"), "5433100");
}

// A loaded reader packs its strings where they lie; a replaced field leaves
// a gap that closes, and a string that lies before where it must go sends
// the whole text to the spare block instead. Either way the same text.
TEST(ReaderFile, CompactionInPlaceOrInTheSpareBlockGivesTheSameText) {
    temp_folder_t folder;
    test_reader_t a;
    fill_everything(a);
    ASSERT_TRUE(save(a, folder.path));
    test_reader_t b;
    std::string path;
    ASSERT_EQ(load(b, folder.path, &path), 0u);
    for (int round = 0; round < 2; round++) {
        feed_t *feed = (feed_t *)pool_entry(&b.reader.feeds, sizeof(feed_t), 0);
        data_t *title = feed_get_type(feed) == reader_type_rss ? &feed->rss.title : &feed->atom.title;
        std::string old_title = text_of(*title);
        *title = b.add(round == 0 ? "T" : old_title); // shorter: the old bytes leave a gap
        entry_t *entry = (entry_t *)pool_entry(&b.reader.entries, sizeof(entry_t), 0);
        data_t *entry_title = entry_get_type(entry) == reader_type_rss ? &entry->rss.title : &entry->atom.title;
        // Round 1: the entry's title is the feed's address, near the text's start.
        if (round == 1) *entry_title = feed->url;
        std::string entry_text = text_of(*entry_title);
        const u8 *text_before = b.reader.text.bytes;
        ASSERT_EQ(write_reader(b, path), 0u);
        EXPECT_EQ(b.reader.text.bytes == text_before, round == 0) << "in place only while no string lies behind";
        EXPECT_EQ(text_of(*title), round == 0 ? "T" : old_title);
        EXPECT_EQ(text_of(*entry_title), entry_text);
    }
    test_reader_t c;
    ASSERT_EQ(load(c, folder.path), 0u);
    EXPECT_EQ(content_of(&c.reader), content_of(&b.reader));
}

// Text large enough that compaction into the spare block gives old pages
// back while it goes: every string still arrives whole.
TEST(ReaderFile, ALargeTextMovedToTheSpareBlockArrivesWhole) {
    temp_folder_t folder;
    test_reader_t a;
    feed_t *feeds[2] = {a.rss_feed("http://a/rss", "A"), a.rss_feed("http://b/rss", "B")};
    std::map<std::string, std::string> descriptions;
    for (u32 i = 0; i < 600; i++) {
        std::string guid = "g" + std::to_string(i), body(1500 + i % 97, (char)('a' + i % 26));
        entry_t *entry = a.rss_entry(feeds[i % 2], "t" + std::to_string(i), guid, make_date(2024, 1, 1 + i % 28),
                                     {"c" + std::to_string(i % 5)});
        entry->rss.description = a.add(body);
        descriptions[guid] = body;
    }
    ASSERT_TRUE(save(a, folder.path));
    test_reader_t b;
    ASSERT_EQ(load(b, folder.path), 0u);
    EXPECT_EQ(content_of(&b.reader), content_of(&a.reader));
    for (u32 i = 0; i < b.reader.entries.entry_count; i++) {
        entry_t *e = (entry_t *)pool_entry(&b.reader.entries, sizeof(entry_t), i);
        EXPECT_EQ(text_of(e->rss.description), descriptions[text_of(e->rss.guid)]);
    }
}

TEST(ReaderFile, FileDates) {
    std::pair<const char *, bool> rows[] = {
        {"feed_data_20260101_000000.bin", true},
        {"/home/u/.local/share/tidewrack/feed_data_20251231_235959.bin", true},
        {"C:\\Users\\u\\feed_data_20240229_120000.bin", true},
        {"feed_data_20250229_120000.bin", false}, // not a leap year (the stamp's own rules are the dates' tests)
        {"feed_data_20260101_0000000.bin", false},
        {"feed_data_20260101-000000.bin", false}, // right length, wrong separator
        {"notes.bin", false},
        {"20260101_000000_abcdefghi.bin", false}, // right length, foreign name
        {"xfeed_data_20260101_000000", false}, {"", false},
    };
    for (auto [name, valid] : rows) EXPECT_EQ(reader_file_date((const u8 *)name, strlen(name)) != 0, valid) << name;
    const char *newer = "feed_data_20260101_000000.bin", *older = "feed_data_20251231_235959.bin";
    EXPECT_GT(reader_file_date((const u8 *)newer, strlen(newer)), reader_file_date((const u8 *)older, strlen(older)));
}

TEST(ReaderFile, SaveKeepsTheNewestTenAndRemovesOnlyItsOwnStaleLeftovers) {
    temp_folder_t folder;
    std::vector<std::string> dated;
    for (int i = 1; i <= 12; i++) {
        char name[64];
        snprintf(name, sizeof(name), "feed_data_2020%02d15_120000.bin", i);
        dated.push_back(name);
    }
    // A save that died before its rename long ago goes; one that may still be
    // running (its name is a minute old, so not this save's) and the user's
    // own files stay.
    u8 buffer[32];
    data_t stamp = {sizeof(buffer), 0, buffer};
    date_to_file_text(date_add(date_now(), 0, 0, 0, 0, -1, 0), &stamp);
    std::string running = "feed_data_" + text_of(stamp) + ".bin.tmp";
    std::vector<std::string> foreign = {"notes.bin", "feed_data_garbage.bin", "feed_data_20200101_000000.txt", running,
                                        "notes.tmp", "feed_data_garbage.bin.tmp"};
    for (const std::string &name : dated) write_whole(folder / name, "x");
    for (const std::string &name : foreign) write_whole(folder / name, "y");
    write_whole(folder / "feed_data_20200101_000000.bin.tmp", "t");

    test_reader_t t;
    t.rss_feed("http://f", "F");
    ASSERT_TRUE(save(t, folder.path));
    std::set<std::string> names = names_in(folder);
    for (int i = 0; i < 12; i++) EXPECT_EQ(names.count(dated[i]), i >= 3 ? 1u : 0u) << dated[i];
    for (const std::string &name : foreign) EXPECT_TRUE(names.count(name)) << name;
    EXPECT_EQ(names.size(), 10u + foreign.size()) << "nine old snapshots and the new one";
}

TEST(ReaderFile, AFailedSaveHasRemovedStaleLeftoversFirstAndGivesTheSystemsReason) {
    temp_folder_t folder;
    write_whole(folder / "feed_data_20200101_000000.bin.tmp", std::string(4096, 't'));
    test_reader_t t;
    t.rss_feed("http://f", "F");
    data_t folder_path = view_of(folder.path);
    u32 reason = 0;
    bool saved = true;
    // Folders under every temporary name this save can take in the next two
    // minutes make it fail where a full disk would; a save held up past them
    // is tried again over new ones.
    for (u64 window_end = 0; date_to_number(date_now()) >= window_end;) {
        u8 buffer[32];
        for (int s = 0; s < 120; s++) {
            data_t stamp = {sizeof(buffer), 0, buffer};
            date_t at = date_add(date_now(), 0, 0, 0, 0, 0, s);
            date_to_file_text(at, &stamp);
            fs::create_directories((folder / "feed_data_" + text_of(stamp) + ".bin.tmp"));
            window_end = date_to_number(at);
        }
        reason = 0;
        saved = reader_save(&t.reader, &folder_path, &t.frame_memory, &reason);
    }
    EXPECT_FALSE(saved);
    EXPECT_EQ(reason, (u32)EISDIR);
    EXPECT_FALSE(fs::exists(folder / "feed_data_20200101_000000.bin.tmp"));
}

TEST(ReaderFile, LoadPicksTheNewestFile) {
    temp_folder_t folder;
    for (auto [name, title] : {std::pair{"feed_data_20251231_235959.bin", "older"},
                               {"feed_data_20260101_000000.bin", "newer"}, {"feed_data_20240101_000000.bin", "oldest"}}) {
        test_reader_t t;
        t.rss_feed(std::string("http://") + title, title);
        ASSERT_EQ(write_reader(t, folder / name), 0u);
    }
    write_whole(folder / "notes.bin", "note");
    write_whole(folder / "zzz_20990101_000000_zzzzz.bin", "z");

    test_reader_t t;
    std::string path;
    ASSERT_EQ(load(t, folder.path, &path), 0u);
    EXPECT_EQ(path, folder / "feed_data_20260101_000000.bin");
    ASSERT_EQ(t.reader.feeds.entry_count, 1u);
    EXPECT_EQ(first_feed_title(t), "newer");
}

TEST(ReaderFile, NoFolderOrNoFileLeavesAnEmptyReader) {
    temp_folder_t folder;
    for (std::string where : {folder / "missing", folder.path}) {
        test_reader_t t;
        EXPECT_EQ(load(t, where), 0u);
        EXPECT_EQ(t.reader.generation, 0u);
        EXPECT_EQ(t.reader.feeds.entry_count, 0u);
        EXPECT_EQ(t.frame_memory.used, 0u);
    }
}

namespace {

std::string small_file(const temp_folder_t &folder) {
    test_reader_t t;
    reader_generation_advance(&t.reader, nullptr, nullptr);
    t.atom_entry(t.atom_feed("http://a", "A"), "one", "urn:1", make_date(2024, 1, 1), {"Ann"}, {"http://l"});
    t.rss_entry(t.rss_feed("http://r", "R"), "two", "g2", make_date(2024, 1, 2), {"c"});
    EXPECT_EQ(write_reader(t, folder / "source.bin"), 0u);
    return read_whole(folder / "source.bin");
}

u32 read_back(const std::string &path_text) {
    test_reader_t t;
    data_t path = view_of(path_text);
    u32 error = 0;
    reader_read(&t.reader, &path, &error);
    if (!error) EXPECT_TRUE(reader_audit_check(&t.reader));
    return error;
}

} // namespace
TEST(ReaderFile, DamagedFilesAreRefusedWithTheirReason) {
    temp_folder_t folder;
    std::string good = small_file(folder);
    ASSERT_GT(good.size(), 300u);
    const u64 pools = 88 + 20, first_feed = pools + 4, first_entry = first_feed + 2 * 744 + 4;
    // One category, one person and one atom link, then the two links: the
    // Atom entry's author (kind 6) and the RSS entry's category (kind 2).
    const u64 first_link = first_entry + 2 * 280 + (4 + 80) + (4 + 80) + (4 + 120) + 4;
    const u64 text_section = *(const u64 *)(good.data() + 8 + 8 * 8), n = good.size(), any_error = ~0u;
    struct row {
        const char *what;
        std::vector<std::array<u64, 3>> changes; // {offset, value, size}
        u64 size;
        u64 error;
    } rows[] = {
        {"untouched", {}, n, 0},
        {"empty", {}, 0, reader_error_section},
        {"cut in the header", {}, 50, reader_error_section},
        {"cut in the text", {}, n - 1, reader_error_section},
        {"a byte more", {}, n + 1, reader_error_size},
        {"magic", {{0, 'F', 1}}, n, reader_error_magic},
        {"newer version", {{4, 2, 4}}, n, reader_error_version},
        {"section table", {{8 + 16, 109, 8}}, n, reader_error_section},
        {"section size", {{8 + 8, 24, 8}}, n, reader_error_section},
        {"too many feeds", {{pools, 101, 4}}, n, reader_error_count},
        {"one feed more than stored", {{pools, 3, 4}}, n, any_error},
        {"string past the text", {{first_feed + 16 + 16, 1u << 30, 8}}, n, reader_error_string},
        {"string length", {{first_feed + 16 + 8, ~0ull, 8}}, n, reader_error_string},
        {"feed type", {{first_feed, 7, 4}}, n, reader_error_records},
        {"entry type", {{first_entry, 1, 4}}, n, any_error},
        {"entry generation", {{first_entry + 12, 2, 4}}, n, reader_error_records},
        {"counter", {{88 + 4, 7, 4}}, n, reader_error_records},
        {"code points", {{text_section - 8, 0x20, 4}}, n, reader_error_records},
        {"entry of a missing feed", {{first_entry + 8, 9, 4}}, n, reader_error_records},
        {"feed entry count", {{first_feed + 8, 2, 4}}, n, reader_error_records},
        {"duplicate feed id", {{first_feed + 744 + 4, 1, 4}}, n, reader_error_records},
        {"author count", {{first_entry + 16, 2, 4}}, n, reader_error_records},
        // Consistent counts, but a link that no owner counts: the Atom
        // entry's author link turned into an RSS category link.
        {"link of an owner of the other layout", {{first_link, link_kind_rss_entry_category, 4}, {first_entry + 16, 0, 4}},
         n, reader_error_records},
        {"link to a missing category",
         {{first_link, link_kind_atom_entry_category, 4}, {first_link + 8, 5, 4}, {first_entry + 16, 0, 4}}, n,
         reader_error_records},
        // The atom link's owner id, and the entry's link count.
        {"atom link of a missing entry", {{first_link - 120, 3, 4}, {first_entry + 28, 0, 4}}, n, reader_error_records},
        {"generation beyond its entries", {{88 + 16, 5000000, 4}, {first_entry + 12, 5000000, 4}}, n,
         reader_error_records},
        // The two links, then the metas: the first one names no feed.
        {"meta of a missing feed", {{first_link + 2 * 12 + 4, 9, 4}}, n, reader_error_records},
        {"text larger than the area", {{text_section, 0x7000000, 4}}, n, reader_error_text},
    };
    // The meta row must land on a feed id.
    u32 meta_feed = 0;
    memcpy(&meta_feed, good.data() + first_link + 2 * 12 + 4, 4);
    EXPECT_TRUE(meta_feed == 1 || meta_feed == 2) << meta_feed;
    for (const row &r : rows) {
        std::string bytes = good;
        bytes.resize(r.size);
        for (auto [offset, value, size] : r.changes) memcpy(bytes.data() + offset, &value, size);
        write_whole(folder / "damaged.bin", bytes);
        u32 error = read_back(folder / "damaged.bin");
        if (r.error == any_error) EXPECT_NE(error, 0u) << r.what;
        else EXPECT_EQ(error, r.error) << r.what;
    }
}

TEST(ReaderFile, FailedWriteLeavesNoFileAndAUsableReader) {
    temp_folder_t folder;
    test_reader_t t;
    t.rss_entry(t.rss_feed("http://f", "Title"), "e", "g", make_date(2024, 1, 1), {"c"});
    EXPECT_NE(write_reader(t, folder / "no-such-folder/feed_data_20240101_000000.bin"), 0u);
    EXPECT_TRUE(names_in(folder).empty());
    EXPECT_TRUE(reader_audit_check(&t.reader));
    EXPECT_EQ(first_feed_title(t), "Title");

    // A folder that can't be made: save says so and changes nothing.
    write_whole(folder / "a-file", "x");
    EXPECT_FALSE(save(t, folder / "a-file/sub"));
    EXPECT_TRUE(reader_audit_check(&t.reader));
}
