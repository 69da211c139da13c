// The snapshot file: byte layout, round trips, choosing and pruning files,
// and files that are damaged or foreign.
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>

#include "reader_fixture.h"

namespace fs = std::filesystem;

namespace {

struct temp_folder_t {
    fs::path path;
    std::string text;
    explicit temp_folder_t(const std::string &name) {
        path = fs::temp_directory_path() / ("tidewrack_reader_" + name + "_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
        fs::remove_all(path);
        fs::create_directories(path);
        text = path.string();
    }
    ~temp_folder_t() { fs::remove_all(path); }
    std::string file(const std::string &name) const { return (path / name).string(); }
};

std::vector<u8> read_bytes(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<u8>(std::istreambuf_iterator<char>(in), {});
}

void write_bytes(const std::string &path, const std::vector<u8> &bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write((const char *)bytes.data(), (std::streamsize)bytes.size());
}

std::set<std::string> names_in(const fs::path &folder) {
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
}

// String field offsets, written out from the file layout.
const std::vector<u32> rss_feed_strings = {16,  40,  64,  88,  112, 136, 160, 184, 232, 256, 280, 312,
                                           336, 360, 392, 416, 440, 472, 496, 520, 544, 568, 592};
const std::vector<u32> atom_feed_strings = {16, 56, 80, 104, 128, 152, 176, 200, 224, 248};
const std::vector<u32> rss_entry_strings = {16, 40, 64, 88, 112, 136, 168, 192, 216, 240};
const std::vector<u32> atom_entry_strings = {32, 56, 80, 104, 128, 152};
const std::vector<u32> small_record_strings = {8, 32, 56};
const std::vector<u32> atom_link_strings = {8, 32, 56, 80};

// A record as text: every byte that isn't a string pointer, and the content
// of each string; so two readers can be compared record by record.
std::string describe(const void *record, u64 size, const std::vector<u32> &strings) {
    std::vector<u8> copy((const u8 *)record, (const u8 *)record + size);
    std::string out;
    for (u32 offset : strings) {
        data_t field;
        memcpy(&field, copy.data() + offset, sizeof(field));
        out += "[" + text_of(field) + "]";
        memset(copy.data() + offset + 16, 0, 8);
    }
    out += std::string((const char *)copy.data(), copy.size());
    return out;
}

std::vector<std::string> describe_reader(reader_t *reader) {
    std::vector<std::string> out;
    auto pool = [&](pool_t *p, u64 size, auto strings_of) {
        out.push_back("count " + std::to_string(p->entry_count));
        for (u32 i = 0; i < p->entry_count; i++) {
            void *record = pool_entry(p, size, i);
            out.push_back(describe(record, size, strings_of(record)));
        }
    };
    pool(&reader->feeds, sizeof(feed_t), [](void *r) {
        return feed_get_type((feed_t *)r) == reader_type_rss ? rss_feed_strings : atom_feed_strings;
    });
    pool(&reader->entries, sizeof(entry_t), [](void *r) {
        return entry_get_type((entry_t *)r) == reader_type_rss ? rss_entry_strings : atom_entry_strings;
    });
    pool(&reader->categories, sizeof(category_t), [](void *) { return small_record_strings; });
    pool(&reader->persons, sizeof(person_t), [](void *) { return small_record_strings; });
    pool(&reader->atom_links, sizeof(atom_link_t), [](void *) { return atom_link_strings; });
    pool(&reader->links, sizeof(link_t), [](void *) { return std::vector<u32>{}; });
    for (u32 i = 0; i < reader->metas.entry_count; i++) {
        meta_t *meta = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        out.push_back("meta " + std::to_string(meta->feed_id) + " " + std::to_string(meta->flags) + " " +
                      std::to_string(meta->link_configuration - reader->link_configurations));
    }
    for (link_configuration_t &c : reader->link_configurations)
        out.push_back(describe(&c, sizeof(c), {0, 24, 48}));
    out.push_back("counters " + std::to_string(reader->last_feed_id) + " " + std::to_string(reader->last_entry_id) +
                  " " + std::to_string(reader->last_category_id) + " " + std::to_string(reader->last_person_id) +
                  " " + std::to_string(reader->generation));
    return out;
}

// What a user would call the content, independent of ids and slots: each
// entry by guid with its feed, generation and relations.
std::map<std::string, std::string> content_of(reader_t *reader) {
    std::map<std::string, std::string> out;
    for (u32 i = 0; i < reader->entries.max_entry_count; i++) {
        entry_t *e = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        if (!entry_is_valid(e)) continue;
        feed_t *feed = reader_get_feed_by_id(reader, e->feed_id);
        std::string row = "feed=" + text_of(feed->url) + " gen=" + std::to_string(e->generation) +
                          " title=" + text_of(entry_get_title(e)) + " flags=" + std::to_string(e->type_and_flags);
        std::vector<std::string> related;
        for (u32 j = 0; j < reader->links.max_entry_count; j++) {
            link_t *l = (link_t *)pool_entry(&reader->links, sizeof(link_t), j);
            if (!link_is_valid(l) || l->owner_id != e->id) continue;
            bool entry_kind = l->kind % 2 == 0;
            if (!entry_kind) continue;
            if (l->kind <= link_kind_atom_entry_category)
                related.push_back("cat:" + text_of(reader_get_category_by_id(reader, l->target_id)->term));
            else
                related.push_back("person" + std::to_string(l->kind) + ":" +
                                  text_of(reader_get_person_by_id(reader, l->target_id)->name));
        }
        for (u32 j = 0; j < reader->atom_links.max_entry_count; j++) {
            atom_link_t *l = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), j);
            if (l->owner_kind == atom_link_owner_entry && l->owner_id == e->id)
                related.push_back("link:" + text_of(l->href) + "/" + std::to_string(l->length));
        }
        std::sort(related.begin(), related.end());
        for (const std::string &r : related) row += " " + r;
        out[text_of(entry_get_guid(e))] = row;
    }
    for (u32 i = 0; i < reader->feeds.max_entry_count; i++) {
        feed_t *f = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        if (!feed_is_valid(f)) continue;
        meta_t *meta = reader_get_meta(reader, f->id);
        std::string row = "title=" + text_of(feed_get_title(f)) + " entries=" + std::to_string(f->entry_count) +
                          " meta=" + std::to_string(meta->flags) + "/" +
                          std::to_string(meta->link_configuration - reader->link_configurations);
        std::vector<std::string> related;
        for (u32 j = 0; j < reader->links.max_entry_count; j++) {
            link_t *l = (link_t *)pool_entry(&reader->links, sizeof(link_t), j);
            if (!link_is_valid(l) || l->owner_id != f->id || l->kind % 2 == 0) continue;
            if (l->kind <= link_kind_atom_feed_category)
                related.push_back("cat:" + text_of(reader_get_category_by_id(reader, l->target_id)->term));
            else
                related.push_back("person" + std::to_string(l->kind) + ":" +
                                  text_of(reader_get_person_by_id(reader, l->target_id)->name));
        }
        std::sort(related.begin(), related.end());
        for (const std::string &r : related) row += " " + r;
        out["feed " + text_of(f->url)] = row;
    }
    return out;
}

// A reader with every kind of record, three generations, marks, a rollback,
// removals and a purge.
void fill_everything(test_reader_t &t) {
    reader_t *r = &t.reader;
    reader_generation_advance(r, nullptr, nullptr);
    feed_t *rss = t.rss_feed("http://example.org/rss", "Example RSS");
    rss->rss.link = t.add("http://example.org/");
    rss->rss.description = t.add("A feed with <b>every</b> field");
    rss->rss.language = t.add("fr-FR");
    rss->rss.copyright = t.add("© 2024");
    rss->rss.managing_editor = t.add("ed@example.org");
    rss->rss.web_master = t.add("web@example.org");
    rss->rss.pub_date = make_date(2024, 3, 1, 10, 0, 0);
    rss->rss.last_build_date = make_date(2024, 3, 2, 11, 30, 15);
    rss->rss.generator = t.add("gen");
    rss->rss.docs = t.add("http://docs");
    rss->rss.cloud_domain = t.add("rpc.example.org");
    rss->rss.cloud_port = 8080;
    rss->rss.cloud_path = t.add("/RPC2");
    rss->rss.cloud_register_procedure = t.add("pleaseNotify");
    rss->rss.cloud_protocol = t.add("xml-rpc");
    rss->rss.ttl = 60;
    rss->rss.image_url = t.add("http://example.org/logo.png");
    rss->rss.image_title = t.add("Logo");
    rss->rss.image_link = t.add("http://example.org/");
    rss->rss.image_width = 88;
    rss->rss.image_height = 31;
    rss->rss.image_description = t.add("The logo");
    rss->rss.rating = t.add("(PICS-1.1)");
    rss->rss.text_input_title = t.add("Search");
    rss->rss.text_input_description = t.add("Search the site");
    rss->rss.text_input_name = t.add("q");
    rss->rss.text_input_link = t.add("http://example.org/search");
    rss->rss.skip_hours[0] = rss->rss.skip_hours[23] = 1;
    rss->rss.skip_days[6] = 1;
    category_t *channel_category = t.category("channel-topic");
    reader_new_link(r, link_kind_rss_feed_category, rss->id, channel_category->id);
    rss->rss.category_count = 1;
    reader_get_meta(r, rss->id)->flags = meta_hide_enclosure | meta_draw_enclosure_image;

    entry_t *e1 = t.rss_entry(rss, "First ünïcödé", "rss-1", make_date(2024, 3, 1, 9), {"news", "tech"});
    e1->rss.link = t.add("http://example.org/1");
    e1->rss.description = t.add("<p>Body with \xE2\x82\xAC and \xF0\x9F\x93\xB0</p>");
    e1->rss.author = t.add("ann@example.org");
    e1->rss.comments = t.add("http://example.org/1#c");
    e1->rss.enclosure_url = t.add("http://example.org/1.mp3");
    e1->rss.enclosure_length = 0x1'2345'6789ull;
    e1->rss.enclosure_type = t.add("audio/mpeg");
    e1->rss.source = t.add("Elsewhere");
    e1->rss.source_url = t.add("http://elsewhere");
    e1->rss.guid_is_perma_link = 0;
    entry_t *doomed = t.rss_entry(rss, "Removed now", "rss-2", make_date(2024, 3, 1, 8), {"only-doomed"});
    reader_delete_entry(r, doomed, rss);

    // Generation 3 (2 is skipped on purpose: it leaves no entry).
    r->generation = 3;
    feed_t *atom = t.atom_feed("http://example.org/atom", "Example Atom");
    atom->atom.generator = t.add("Hugo");
    atom->atom.generator_uri = t.add("https://gohugo.io");
    atom->atom.generator_version = t.add("0.1");
    atom->atom.icon = t.add("/icon.png");
    atom->atom.logo = t.add("/logo.png");
    atom->atom.atom_id = t.add("urn:feed");
    atom->atom.rights = t.add("CC-BY");
    atom->atom.subtitle = t.add("Sub");
    atom->atom.updated = make_date(2024, 4, 4, 4, 4, 4);
    person_t *ann = t.person("Ann");
    ann->uri = t.add("http://ann");
    ann->email = t.add("ann@x");
    reader_new_link(r, link_kind_atom_feed_author, atom->id, ann->id);
    reader_new_link(r, link_kind_atom_feed_contributor, atom->id, t.person("Carl")->id);
    category_t *scheme = t.category("science");
    scheme->scheme = t.add("http://scheme");
    scheme->label = t.add("Science");
    reader_new_link(r, link_kind_atom_feed_category, atom->id, scheme->id);
    atom->atom.author_count = atom->atom.contributor_count = atom->atom.category_count = 1;
    atom_link_t *self = reader_new_atom_link(r, atom_link_owner_feed, atom->id);
    self->href = t.add("http://example.org/atom");
    self->rel = atom_link_rel_self;
    self->type = t.add("application/atom+xml");
    atom->atom.link_count = 1;

    entry_t *a1 = t.atom_entry(atom, "Atom one", "urn:1", make_date(2024, 4, 1), {"Ann", "Bea"}, {"http://a/1"});
    a1->atom.content = t.add("<div>content</div>");
    a1->atom.summary = t.add("summary");
    a1->atom.rights = t.add("mine");
    a1->atom.source = t.add("src");
    a1->atom.updated = make_date(2024, 4, 2);
    reader_new_link(r, link_kind_atom_entry_contributor, a1->id, t.person("Carl")->id);
    a1->atom.contributor_count = 1;
    reader_new_link(r, link_kind_atom_entry_category, a1->id, t.category("news")->id);
    a1->atom.category_count = 1;
    atom_link_t *enclosure = reader_new_atom_link(r, atom_link_owner_entry, a1->id);
    enclosure->href = t.add("http://a/1.ogg");
    enclosure->rel = atom_link_rel_enclosure;
    enclosure->hreflang = t.add("en");
    enclosure->title = t.add("Audio");
    enclosure->length = 123456789;
    a1->atom.link_count++;

    // A refused item: read, then rolled back.
    reader_text_mark_t mark = reader_text_mark(r);
    entry_t *refused = reader_new_entry(r);
    refused->atom.title = t.add("REFUSED-TEXT \xE1\x9A\xA0"); // a rune only the refused item has
    person_t *ghost = t.person("Ghost");
    reader_new_link(r, link_kind_atom_entry_author, refused->id, ghost->id);
    refused->atom.author_count = 1;
    refused->type_and_flags = reader_type_atom;
    reader_delete_entry(r, refused, nullptr);
    reader_text_rollback(r, mark);

    // Generation 5: more entries, a marked feed, marked entries.
    r->generation = 5;
    t.atom_entry(atom, "Atom two", "urn:2", make_date(2024, 5, 1), {"Bea"}, {"http://a/2", "http://a/2b"});
    entry_t *marked = t.rss_entry(rss, "Marked", "rss-3", make_date(2024, 5, 2), {"tech"});
    entry_mark_deleted(marked);
    entry_t *kept_marked_flag = t.rss_entry(rss, "Kept", "rss-4", make_date(2024, 5, 3));
    (void)kept_marked_flag;
    feed_t *gone = t.rss_feed("http://gone", "Gone");
    t.rss_entry(gone, "g", "gone-1", make_date(2024, 5, 4), {"gone-cat"});
    feed_mark_deleted(r, gone);
    reader_sort_feed(r, rss);

    link_configuration_t *browser = &r->link_configurations[2];
    browser->name = t.add("Browser");
    browser->executable = t.add("/usr/bin/firefox");
    browser->queued_links = t.add("http://q1\nhttp://q2");
    browser->queue_links = 1;
    reader_get_meta(r, atom->id)->link_configuration = browser;
    reader_get_meta(r, atom->id)->flags = meta_sort_oldest_first;

    reader_purge_deleted(r);
}

} // namespace

TEST(ReaderFile, RoundTripKeepsEveryRecord) {
    temp_folder_t folder("round_trip");
    test_reader_t a;
    fill_everything(a);
    std::map<std::string, std::string> before = content_of(&a.reader);
    // Generations 1, 3, 5 are to become 1, 2, 3.
    for (auto &item : before) {
        for (auto [from, to] : {std::pair{"gen=1 ", "gen=1 "}, {"gen=3 ", "gen=2 "}, {"gen=5 ", "gen=3 "}}) {
            size_t at = item.second.find(from);
            if (at != std::string::npos) {
                item.second.replace(at, strlen(from), to);
                break;
            }
        }
    }
    data_t folder_path = view_of(folder.text);
    ASSERT_TRUE(reader_save(&a.reader, &folder_path, &a.frame_memory));
    EXPECT_EQ(a.frame_memory.used, 0u);
    EXPECT_EQ(content_of(&a.reader), before) << "the saved reader stays usable in memory";

    test_reader_t b;
    b.replacement_glyph_index = 191;
    u32 error = 0;
    data_t path = {};
    reader_load(&b.reader, &folder_path, &b.frame_memory, &path, &error);
    ASSERT_EQ(error, 0u);
    EXPECT_EQ(content_of(&b.reader), before);
    EXPECT_EQ(describe_reader(&b.reader), describe_reader(&a.reader));
    EXPECT_EQ(b.reader.generation, 3u);
    EXPECT_EQ(b.reader.last_entry_id, b.reader.entries.entry_count);
    EXPECT_EQ(b.reader.entries.entry_count, 4u);
    EXPECT_EQ(b.reader.feeds.entry_count, 2u);
    for (u32 i = 0; i < b.reader.entries.entry_count; i++)
        EXPECT_EQ(((entry_t *)pool_entry(&b.reader.entries, sizeof(entry_t), i))->id, i + 1) << "ids without gaps";
    EXPECT_EQ(b.code_points.count, a.code_points.count);
    EXPECT_EQ(b.code_points.code_points[b.replacement_glyph_index], 0xFFFDu);

    // The next record goes to the first free slot with the next id.
    feed_t *feed = (feed_t *)pool_entry(&b.reader.feeds, sizeof(feed_t), 0);
    entry_t *next = reader_new_entry(&b.reader);
    EXPECT_EQ(pool_index_of(&b.reader.entries, sizeof(entry_t), next), 4u);
    EXPECT_EQ(next->id, 5u);
    reader_accept_entry(&b.reader, feed, next);

    // Nothing of the refused item, the removed entries or the purged feed
    // reached the file; nor a code point only they used.
    std::vector<u8> bytes = read_bytes(path.used ? text_of(path) : "");
    std::string file(bytes.begin(), bytes.end());
    for (const char *absent : {"REFUSED-TEXT", "Ghost", "Removed now", "only-doomed", "http://gone", "gone-cat"})
        EXPECT_EQ(file.find(absent), std::string::npos) << absent;
    std::vector<u32> list(b.code_points.code_points, b.code_points.code_points + b.code_points.count);
    EXPECT_FALSE(std::binary_search(list.begin(), list.end(), 0x16A0u));
    EXPECT_TRUE(std::binary_search(list.begin(), list.end(), 0x1F4F0u));
    EXPECT_EQ(names_in(folder.path).size(), 1u) << "no temporary file is left";
}

TEST(ReaderFile, LayoutOfASmallFile) {
    temp_folder_t folder("layout");
    test_reader_t t;
    reader_generation_advance(&t.reader, nullptr, nullptr);
    feed_t *feed = t.rss_feed("http://x/feed", "X");
    t.rss_entry(feed, "Hi", "g1", make_date(2024, 5, 6, 7, 8, 9), {"news"});
    t.add("left behind");
    std::string path_text = folder.file("feed_data_20240506_070809.bin");
    data_t path = view_of(path_text);
    u32 error = 0;
    reader_write(&t.reader, &t.frame_memory, &path, &error);
    ASSERT_EQ(error, 0u);

    std::vector<u8> e;
    auto u32_ = [&](u32 v) { for (int i = 0; i < 4; i++) e.push_back((u8)(v >> (8 * i))); };
    auto u64_ = [&](u64 v) { for (int i = 0; i < 8; i++) e.push_back((u8)(v >> (8 * i))); };
    auto at = [](std::vector<u8> &record, u32 offset, u64 value, int size) {
        for (int i = 0; i < size; i++) record[offset + i] = (u8)(value >> (8 * i));
    };
    // Strings in record order; an empty one points at the current end.
    u64 text = 0;
    auto string_at = [&](std::vector<u8> &record, u32 offset, u64 size) {
        at(record, offset, size, 8);
        at(record, offset + 8, size, 8);
        at(record, offset + 16, text, 8);
        text += size;
    };

    std::vector<u8> feed_record(744, 0);
    at(feed_record, 0, 1, 4);
    at(feed_record, 4, 1, 4);
    at(feed_record, 8, 1, 4);
    for (u32 offset : rss_feed_strings) string_at(feed_record, offset, offset == 16 ? 13 : offset == 40 ? 1 : 0);

    std::vector<u8> entry_record(280, 0);
    at(entry_record, 0, 1, 4);
    at(entry_record, 4, 1, 4);
    at(entry_record, 8, 1, 4);
    at(entry_record, 12, 1, 4);
    for (u32 offset : rss_entry_strings) string_at(entry_record, offset, offset == 16 ? 2 : offset == 240 ? 2 : 0);
    at(entry_record, 264, 1, 4);
    at(entry_record, 268, 1, 4);
    at(entry_record, 272, 2024, 2);
    at(entry_record, 274, 5, 1);
    at(entry_record, 275, 6, 1);
    at(entry_record, 276, 7, 1);
    at(entry_record, 277, 8, 1);
    at(entry_record, 278, 9, 1);

    std::vector<u8> category_record(80, 0);
    at(category_record, 0, 1, 4);
    for (u32 offset : small_record_strings) string_at(category_record, offset, offset == 8 ? 4 : 0);

    std::vector<u8> configurations(800, 0);
    for (u32 c = 0; c < 10; c++)
        for (u32 field : {0u, 24u, 48u}) string_at(configurations, c * 80 + field, 0);
    ASSERT_EQ(text, 22u);

    std::string letters = "http://x/feedXHig1news";
    u32 start[193];
    code_point_list_t start_list;
    code_point_list_init(&start_list, start, 193);
    std::vector<u32> code_points(start, start + 193);
    std::sort(code_points.begin(), code_points.end());

    e.insert(e.end(), {'f', 'e', 'e', 'd'});
    u32_(1);
    u64 sizes[5] = {20, 7 * 4 + 744 + 280 + 80 + 12 + 16, 800, 4 + 4 * 193, 4 + 22};
    u64 offset = 88;
    for (u64 size : sizes) {
        u64_(offset);
        u64_(size);
        offset += size;
    }
    for (u32 v : {1u, 1u, 1u, 0u, 1u}) u32_(v); // counters
    u32_(1);
    e.insert(e.end(), feed_record.begin(), feed_record.end());
    u32_(1);
    e.insert(e.end(), entry_record.begin(), entry_record.end());
    u32_(1);
    e.insert(e.end(), category_record.begin(), category_record.end());
    u32_(0); // persons
    u32_(0); // atom links
    u32_(1);
    for (u32 v : {2u, 1u, 1u}) u32_(v); // link: kind 2, entry 1, category 1
    u32_(1);
    u32_(1); // meta: feed 1, flags 0, configuration 0
    u32_(0);
    u64_(0);
    e.insert(e.end(), configurations.begin(), configurations.end());
    u32_(193);
    for (u32 c : code_points) u32_(c);
    u32_(22);
    e.insert(e.end(), letters.begin(), letters.end());

    std::vector<u8> actual = read_bytes(path_text);
    ASSERT_EQ(actual.size(), e.size());
    for (size_t i = 0; i < e.size(); i++) ASSERT_EQ(actual[i], e[i]) << "first difference at byte " << i;
}

TEST(ReaderFile, EmptyReaderSectionSizes) {
    temp_folder_t folder("empty");
    test_reader_t t;
    std::string path_text = folder.file("feed_data_20200101_000000.bin");
    data_t path = view_of(path_text);
    u32 error = 0;
    reader_write(&t.reader, &t.frame_memory, &path, &error);
    ASSERT_EQ(error, 0u);
    std::vector<u8> bytes = read_bytes(path_text);
    u64 table[10];
    memcpy(table, bytes.data() + 8, sizeof(table));
    EXPECT_EQ(table[0], 88u);
    u64 sizes[5] = {20, 28, 800, 4 + 4 * 193, 4};
    for (int s = 0; s < 5; s++) EXPECT_EQ(table[s * 2 + 1], sizes[s]) << "section " << s + 1;
    EXPECT_EQ(bytes.size(), 88u + 20 + 28 + 800 + 776 + 4);

    test_reader_t back;
    reader_read(&back.reader, &path, &error);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(back.reader.generation, 0u);
}

TEST(ReaderFile, FileDates) {
    struct row {
        const char *name;
        bool valid;
    } rows[] = {
        {"feed_data_20260101_000000.bin", true},
        {"/home/u/.local/share/tidewrack/feed_data_20251231_235959.bin", true},
        {"C:\\Users\\u\\feed_data_20240229_120000.bin", true},
        {"feed_data_20250229_120000.bin", false}, // not a leap year
        {"feed_data_20260101_240000.bin", false},
        {"feed_data_2026010_000000.bin", false},
        {"feed_data_20260101_0000000.bin", false},
        {"feed_data_20260101-000000.bin", false},
        {"notes.bin", false},
        {"20260101_000000_abcdefghi.bin", false}, // right length, foreign name
        {"xfeed_data_20260101_000000", false},
        {"", false},
    };
    for (const row &r : rows)
        EXPECT_EQ(reader_file_date((const u8 *)r.name, strlen(r.name)) != 0, r.valid) << r.name;
    const char *newer = "feed_data_20260101_000000.bin", *older = "feed_data_20251231_235959.bin";
    EXPECT_GT(reader_file_date((const u8 *)newer, strlen(newer)), reader_file_date((const u8 *)older, strlen(older)));
}

TEST(ReaderFile, SaveKeepsTheNewestTenAndForeignFiles) {
    temp_folder_t folder("prune");
    std::vector<std::string> dated;
    for (int i = 1; i <= 12; i++) {
        char name[64];
        snprintf(name, sizeof(name), "feed_data_2020%02d15_120000.bin", i);
        dated.push_back(name);
        write_bytes(folder.file(name), {'x'});
    }
    for (const char *foreign : {"notes.bin", "feed_data_garbage.bin", "feed_data_20200101_000000.txt"})
        write_bytes(folder.file(foreign), {'y'});

    test_reader_t t;
    t.rss_feed("http://f", "F");
    data_t folder_path = view_of(folder.text);
    ASSERT_TRUE(reader_save(&t.reader, &folder_path, &t.frame_memory));

    std::set<std::string> names = names_in(folder.path);
    for (int i = 0; i < 3; i++) EXPECT_FALSE(names.count(dated[i])) << dated[i];
    for (int i = 3; i < 12; i++) EXPECT_TRUE(names.count(dated[i])) << dated[i];
    for (const char *foreign : {"notes.bin", "feed_data_garbage.bin", "feed_data_20200101_000000.txt"})
        EXPECT_TRUE(names.count(foreign)) << foreign;
    EXPECT_EQ(names.size(), 10u + 3u);
    for (const std::string &name : names) EXPECT_EQ(name.find(".tmp"), std::string::npos) << name;
}

TEST(ReaderFile, SaveRemovesOnlyStaleLeftoversOfItsOwnSaves) {
    temp_folder_t folder("leftovers");
    // A save that died before its rename, long ago; one that may still be
    // running (its name is a minute old); and the user's own files.
    std::string now_name;
    {
        u8 buffer[32];
        data_t stamp = {sizeof(buffer), 0, buffer};
        // A minute back, so that it can't be the name this save writes.
        date_to_file_text(date_add(date_now(), 0, 0, 0, 0, -1, 0), &stamp);
        now_name = "feed_data_" + text_of(stamp) + ".bin.tmp";
    }
    for (const std::string &name : {std::string("feed_data_20200101_000000.bin.tmp"), now_name,
                                    std::string("notes.tmp"), std::string("feed_data_garbage.bin.tmp")})
        write_bytes(folder.file(name), {'t'});

    test_reader_t t;
    t.rss_feed("http://f", "F");
    data_t folder_path = view_of(folder.text);
    ASSERT_TRUE(reader_save(&t.reader, &folder_path, &t.frame_memory));

    std::set<std::string> names = names_in(folder.path);
    EXPECT_FALSE(names.count("feed_data_20200101_000000.bin.tmp"));
    EXPECT_TRUE(names.count(now_name));
    EXPECT_TRUE(names.count("notes.tmp"));
    EXPECT_TRUE(names.count("feed_data_garbage.bin.tmp"));
    EXPECT_EQ(names.size(), 4u) << "three left plus the new snapshot";
}

TEST(ReaderFile, LoadPicksTheNewestFile) {
    temp_folder_t folder("newest");
    auto save_as = [&](const std::string &name, const std::string &title) {
        test_reader_t t;
        t.rss_feed("http://" + title, title);
        std::string p = folder.file(name);
        data_t path = view_of(p);
        u32 error = 0;
        reader_write(&t.reader, &t.frame_memory, &path, &error);
        ASSERT_EQ(error, 0u);
    };
    save_as("feed_data_20251231_235959.bin", "older");
    save_as("feed_data_20260101_000000.bin", "newer");
    save_as("feed_data_20240101_000000.bin", "oldest");
    write_bytes(folder.file("notes.bin"), {'n', 'o', 't', 'e'});
    write_bytes(folder.file("zzz_20990101_000000_zzzzz.bin"), {'z'});

    test_reader_t t;
    data_t folder_path = view_of(folder.text);
    data_t path = {};
    u32 error = 0;
    reader_load(&t.reader, &folder_path, &t.frame_memory, &path, &error);
    ASSERT_EQ(error, 0u);
    EXPECT_EQ(text_of(path), folder.file("feed_data_20260101_000000.bin"));
    ASSERT_EQ(t.reader.feeds.entry_count, 1u);
    EXPECT_EQ(text_of(feed_get_title((feed_t *)pool_entry(&t.reader.feeds, sizeof(feed_t), 0))), "newer");
}

TEST(ReaderFile, NoFolderOrNoFileLeavesAnEmptyReader) {
    temp_folder_t folder("none");
    for (std::string where : {folder.file("missing"), folder.path.string()}) {
        test_reader_t t;
        data_t folder_path = view_of(where);
        data_t path = {};
        u32 error = 0;
        reader_load(&t.reader, &folder_path, &t.frame_memory, &path, &error);
        EXPECT_EQ(error, 0u);
        EXPECT_EQ(t.reader.generation, 0u);
        EXPECT_EQ(t.reader.feeds.entry_count, 0u);
        EXPECT_EQ(t.frame_memory.used, 0u);
    }
}

namespace {

std::vector<u8> small_file(const temp_folder_t &folder) {
    test_reader_t t;
    reader_generation_advance(&t.reader, nullptr, nullptr);
    feed_t *feed = t.atom_feed("http://a", "A");
    t.atom_entry(feed, "one", "urn:1", make_date(2024, 1, 1), {"Ann"}, {"http://l"});
    feed_t *rss = t.rss_feed("http://r", "R");
    t.rss_entry(rss, "two", "g2", make_date(2024, 1, 2), {"c"});
    std::string p = folder.file("source.bin");
    data_t path = view_of(p);
    u32 error = 0;
    reader_write(&t.reader, &t.frame_memory, &path, &error);
    EXPECT_EQ(error, 0u);
    return read_bytes(p);
}

u32 read_back(const std::string &path_text) {
    test_reader_t t;
    data_t path = view_of(path_text);
    u32 error = 0;
    reader_read(&t.reader, &path, &error);
    if (!error) EXPECT_TRUE(reader_audit_check(&t.reader));
    return error;
}

template <typename T> void put(std::vector<u8> &bytes, u64 offset, T value) { memcpy(bytes.data() + offset, &value, sizeof(T)); }

} // namespace

TEST(ReaderFile, DamagedFilesAreRefusedWithTheirReason) {
    temp_folder_t folder("damaged");
    std::vector<u8> good = small_file(folder);
    ASSERT_GT(good.size(), 300u);
    u64 pools = 88 + 20;
    u64 first_feed = pools + 4;
    u64 first_entry = first_feed + 2 * 744 + 4;
    // One category, one person and one atom link, then the two links: the
    // Atom entry's author (kind 6) and the RSS entry's category (kind 2).
    u64 first_link = first_entry + 2 * 280 + (4 + 80) + (4 + 80) + (4 + 120) + 4;
    u64 text_section;
    memcpy(&text_section, good.data() + 8 + 8 * 8, 8);

    const u32 any_error = ~0u;
    struct row {
        const char *what;
        std::function<void(std::vector<u8> &)> damage;
        u32 error;
    } rows[] = {
        {"untouched", [](std::vector<u8> &) {}, 0},
        {"empty", [](std::vector<u8> &b) { b.clear(); }, reader_error_section},
        {"cut in the header", [](std::vector<u8> &b) { b.resize(50); }, reader_error_section},
        {"cut in the text", [](std::vector<u8> &b) { b.pop_back(); }, reader_error_section},
        {"a byte more", [](std::vector<u8> &b) { b.push_back(0); }, reader_error_size},
        {"magic", [](std::vector<u8> &b) { b[0] = 'F'; }, reader_error_magic},
        {"newer version", [](std::vector<u8> &b) { put<u32>(b, 4, 2); }, reader_error_version},
        {"section table", [](std::vector<u8> &b) { put<u64>(b, 8 + 16, 109); }, reader_error_section},
        {"section size", [](std::vector<u8> &b) { put<u64>(b, 8 + 8, 24); }, reader_error_section},
        {"too many feeds", [&](std::vector<u8> &b) { put<u32>(b, pools, 101); }, reader_error_count},
        {"one feed more than stored", [&](std::vector<u8> &b) { put<u32>(b, pools, 3); }, any_error},
        {"string past the text", [&](std::vector<u8> &b) { put<u64>(b, first_feed + 16 + 16, 1u << 30); },
         reader_error_string},
        {"string length", [&](std::vector<u8> &b) { put<u64>(b, first_feed + 16 + 8, ~0ull); }, reader_error_string},
        {"feed type", [&](std::vector<u8> &b) { put<u32>(b, first_feed, 7); }, reader_error_records},
        {"entry type", [&](std::vector<u8> &b) { put<u32>(b, first_entry, 1); }, any_error},
        {"entry generation", [&](std::vector<u8> &b) { put<u32>(b, first_entry + 12, 2); }, reader_error_records},
        {"counter", [&](std::vector<u8> &b) { put<u32>(b, 88 + 4, 7); }, reader_error_records},
        {"code points", [&](std::vector<u8> &b) { put<u32>(b, text_section - 8, 0x20); }, reader_error_records},
        {"entry of a missing feed", [&](std::vector<u8> &b) { put<u32>(b, first_entry + 8, 9); }, reader_error_records},
        {"feed entry count", [&](std::vector<u8> &b) { put<u32>(b, first_feed + 8, 2); }, reader_error_records},
        {"duplicate feed id", [&](std::vector<u8> &b) { put<u32>(b, first_feed + 744 + 4, 1); }, reader_error_records},
        {"author count", [&](std::vector<u8> &b) { put<u32>(b, first_entry + 16, 2); }, reader_error_records},
        // Consistent counts, but a link that no owner counts: the Atom
        // entry's author link turned into an RSS category link.
        {"link of an owner of the other layout",
         [&](std::vector<u8> &b) {
             put<u32>(b, first_link, link_kind_rss_entry_category);
             put<u32>(b, first_entry + 16, 0);
         },
         reader_error_records},
        {"link to a missing category",
         [&](std::vector<u8> &b) {
             put<u32>(b, first_link, link_kind_atom_entry_category);
             put<u32>(b, first_link + 8, 5);
             put<u32>(b, first_entry + 16, 0);
         },
         reader_error_records},
        {"atom link of a missing entry",
         [&](std::vector<u8> &b) {
             put<u32>(b, first_link - 4 - 120 + 4, 3); // the atom link's owner id
             put<u32>(b, first_entry + 28, 0);          // the entry's link count
         },
         reader_error_records},
        {"generation beyond its entries",
         [&](std::vector<u8> &b) {
             put<u32>(b, 88 + 16, 5000000);
             put<u32>(b, first_entry + 12, 5000000);
         },
         reader_error_records},
        {"text larger than the area", [&](std::vector<u8> &b) { put<u32>(b, text_section, 0x7000000); },
         reader_error_text},
    };
    for (const row &r : rows) {
        std::vector<u8> bytes = good;
        r.damage(bytes);
        std::string p = folder.file("damaged.bin");
        write_bytes(p, bytes);
        u32 error = read_back(p);
        if (r.error == any_error) EXPECT_NE(error, 0u) << r.what;
        else EXPECT_EQ(error, r.error) << r.what;
    }
}

TEST(ReaderFile, NoByteOfADamagedFileCrashesTheLoad) {
    temp_folder_t folder("fuzz");
    std::vector<u8> good = small_file(folder);
    std::mt19937 random(11);
    std::string p = folder.file("damaged.bin");
    u32 refused = 0;
    // Every byte of the header and pool sections once, then random spots.
    u64 pools_end;
    memcpy(&pools_end, good.data() + 8 + 4 * 8, 8);
    for (u64 i = 0; i < good.size(); i++) {
        if (i >= pools_end && random() % 8) continue;
        std::vector<u8> bytes = good;
        bytes[i] ^= (u8)(1 + random() % 255);
        write_bytes(p, bytes);
        refused += read_back(p) != 0;
    }
    EXPECT_GT(refused, 100u);
}

TEST(ReaderFile, DamagedNewestFileIsReportedAndKept) {
    temp_folder_t folder("report");
    std::vector<u8> good = small_file(folder);
    fs::remove(folder.file("source.bin"));
    write_bytes(folder.file("feed_data_20240101_000000.bin"), good);
    std::vector<u8> bad = good;
    bad.resize(bad.size() / 2);
    write_bytes(folder.file("feed_data_20240102_000000.bin"), bad);

    test_reader_t t;
    data_t folder_path = view_of(folder.text);
    data_t path = {};
    u32 error = 0;
    reader_load(&t.reader, &folder_path, &t.frame_memory, &path, &error);
    EXPECT_NE(error, 0u);
    std::string reported = text_of(path);
    EXPECT_EQ(reported, folder.file("feed_data_20240102_000000.bin"));

    testing::internal::CaptureStderr();
    reader_report_unreadable(&path, error);
    std::string message = testing::internal::GetCapturedStderr();
    EXPECT_NE(message.find(reported), std::string::npos) << message;
    EXPECT_NE(message.find("previous snapshot"), std::string::npos) << message;
    EXPECT_EQ(names_in(folder.path).size(), 2u) << "nothing is deleted";

    // Moved away, the previous snapshot loads.
    fs::rename(reported, folder.file("moved-away.old"));
    test_reader_t again;
    error = 0;
    reader_load(&again.reader, &folder_path, &again.frame_memory, &path, &error);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(again.reader.entries.entry_count, 2u);
}

TEST(ReaderFile, FailedWriteLeavesNoFileAndAUsableReader) {
    temp_folder_t folder("fail");
    test_reader_t t;
    feed_t *feed = t.rss_feed("http://f", "Title");
    t.rss_entry(feed, "e", "g", make_date(2024, 1, 1), {"c"});
    std::string p = folder.file("no-such-folder/feed_data_20240101_000000.bin");
    data_t path = view_of(p);
    u32 error = 0;
    reader_write(&t.reader, &t.frame_memory, &path, &error);
    EXPECT_NE(error, 0u);
    EXPECT_TRUE(names_in(folder.path).empty());
    EXPECT_TRUE(reader_audit_check(&t.reader));
    EXPECT_EQ(text_of(feed_get_title((feed_t *)pool_entry(&t.reader.feeds, sizeof(feed_t), 0))), "Title");

    // A folder that can't be made: save says so and changes nothing.
    write_bytes(folder.file("a-file"), {'x'});
    std::string blocked_text = folder.file("a-file/sub");
    data_t blocked = view_of(blocked_text);
    EXPECT_FALSE(reader_save(&t.reader, &blocked, &t.frame_memory));
    EXPECT_TRUE(reader_audit_check(&t.reader));
}
