// reader_bench - save and load of a full reader: 100 feeds (half RSS, half
// Atom), 10000 entries with article-sized HTML descriptions, 9000
// categories and 1000 persons joined through all 10000 link records, and all
// 1000 atom links. Reports the time of each and the file's size.
#include <benchmark/benchmark.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/reader/reader_fixture.h"

namespace {

// The benchmarks fill the same reader record the tests use.
using bench_reader_t = test_reader_t;

unsigned seed = 11;
unsigned next(unsigned n) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 16) % n;
}

const char *words[] = {"tide", "wreck", "harbour", "lantern", "keeper", "gull", "ledger", "salt", "rope", "shore",
                       "drift", "north", "morning", "archive", "reader", "storm", "quiet", "window", "feed", "river"};

std::string sentence(unsigned count) {
    std::string s;
    for (unsigned i = 0; i < count; i++) {
        if (i) s += ' ';
        s += words[next(20)];
    }
    return s;
}

std::string article() {
    std::string s;
    unsigned paragraphs = 3 + next(5);
    for (unsigned p = 0; p < paragraphs; p++) {
        s += "<p>" + sentence(20 + next(30)) + " <a href=\"https://example.org/" + words[next(20)] + "\">" +
             words[next(20)] + "</a> caf\xC3\xA9 &amp; " + sentence(10 + next(20)) + ".</p>\n";
    }
    return s;
}

date_t date_of(unsigned n) {
    date_t d = {};
    d.year = (u16)(2020 + n % 6);
    d.month = (u8)(1 + n % 12);
    d.day = (u8)(1 + n % 28);
    d.hour = (u8)(n % 24);
    d.minute = (u8)(n % 60);
    d.second = (u8)(n * 7 % 60);
    return d;
}

void fill(bench_reader_t &b) {
    seed = 11;
    reader_t *r = &b.reader;
    r->generation = 4;
    u32 category_links = 0, person_links = 0, atom_links = 0, entry_number = 0;
    for (u32 f = 0; f < reader_feed_capacity; f++) {
        bool atom = f % 2 == 1;
        feed_t *feed = reader_new_feed(r, atom ? reader_type_atom : reader_type_rss);
        feed->url = b.add("https://feeds.example.org/" + std::to_string(f) + "/feed.xml");
        if (atom) {
            feed->atom.title = b.add("Atom feed " + sentence(3));
            feed->atom.subtitle = b.add(sentence(8));
            feed->atom.atom_id = b.add("urn:feed:" + std::to_string(f));
            feed->atom.updated = date_of(f);
        } else {
            feed->rss.title = b.add("RSS feed " + sentence(3));
            feed->rss.link = b.add("https://example.org/" + std::to_string(f));
            feed->rss.description = b.add(sentence(12));
            feed->rss.last_build_date = date_of(f);
        }
        reader_new_meta(r, feed);
        for (u32 e = 0; e < reader_entry_capacity / reader_feed_capacity; e++, entry_number++) {
            entry_t *entry = reader_new_entry(r);
            entry->generation = 1 + entry_number % 4;
            std::string id = "https://example.org/" + std::to_string(f) + "/" + std::to_string(e);
            if (atom) {
                entry->atom.title = b.add(sentence(6 + next(6)));
                entry->atom.atom_id = b.add(id);
                entry->atom.content = b.add(article());
                entry->atom.published = entry->atom.updated = date_of(entry_number);
                if (atom_links < reader_atom_link_capacity) {
                    atom_link_t *link = reader_new_atom_link(r, atom_link_owner_entry, entry->id);
                    link->href = b.add(id);
                    link->type = b.add("text/html");
                    entry->atom.link_count++;
                    atom_links++;
                }
                if (person_links < reader_person_capacity) {
                    person_t *p = reader_new_person(r);
                    p->name = b.add(std::string("Author ") + words[next(20)] + " " + std::to_string(person_links));
                    p->email = b.add("author" + std::to_string(person_links) + "@example.org");
                    reader_new_link(r, link_kind_atom_entry_author, entry->id, p->id);
                    entry->atom.author_count++;
                    person_links++;
                }
            } else {
                entry->rss.title = b.add(sentence(6 + next(6)));
                entry->rss.link = b.add(id);
                entry->rss.guid = b.add(id);
                entry->rss.guid_is_perma_link = 1;
                entry->rss.description = b.add(article());
                entry->rss.pub_date = date_of(entry_number);
            }
            // Categories fill the links the persons leave.
            u32 wanted = atom ? 1 : 2;
            for (u32 c = 0; c < wanted && category_links + person_links < reader_link_capacity &&
                            category_links < reader_link_capacity - reader_person_capacity;
                 c++) {
                category_t *category = reader_new_category(r);
                category->term = b.add(std::string(words[next(20)]) + "-" + std::to_string(category_links));
                reader_new_link(r, atom ? link_kind_atom_entry_category : link_kind_rss_entry_category, entry->id,
                                category->id);
                if (atom) entry->atom.category_count++;
                else entry->rss.category_count++;
                category_links++;
            }
            reader_accept_entry(r, feed, entry);
        }
    }
}

std::string folder() {
    static std::string path;
    if (path.empty()) {
        char name[] = "/tmp/tidewrack_reader_bench_XXXXXX";
        path = mkdtemp(name);
    }
    return path;
}

u64 newest_file_size() {
    u64 size = 0;
    std::string newest;
    DIR *dir = opendir(folder().c_str());
    while (dirent *d = readdir(dir)) {
        std::string name = d->d_name;
        if (name.rfind("feed_data_", 0) == 0 && name > newest) newest = name;
    }
    closedir(dir);
    struct stat st;
    if (!newest.empty() && stat((folder() + "/" + newest).c_str(), &st) == 0) size = (u64)st.st_size;
    return size;
}

void BM_reader_save_full(benchmark::State &state) {
    bench_reader_t b;
    fill(b);
    std::string path = folder();
    data_t user_folder = {path.size(), path.size(), (u8 *)path.data()};
    for (auto _ : state) {
        bool saved = reader_save(&b.reader, &user_folder, &b.frame_memory);
        if (!saved) state.SkipWithError("save failed");
    }
    state.counters["file_MB"] = (double)newest_file_size() / (1 << 20);
    state.counters["text_MB"] = (double)b.reader.text.used / (1 << 20);
    state.counters["entries"] = b.reader.entries.entry_count;
    state.counters["links"] = b.reader.links.entry_count;
}
BENCHMARK(BM_reader_save_full)->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_reader_load_full(benchmark::State &state) {
    std::string path = folder();
    data_t user_folder = {path.size(), path.size(), (u8 *)path.data()};
    for (auto _ : state) {
        state.PauseTiming();
        auto *b = new bench_reader_t;
        state.ResumeTiming();
        u32 error = 0;
        data_t file = {};
        reader_load(&b->reader, &user_folder, &b->frame_memory, &file, &error);
        state.PauseTiming();
        if (error || b->reader.entries.entry_count != reader_entry_capacity) state.SkipWithError("load failed");
        delete b;
        state.ResumeTiming();
    }
    state.counters["file_MB"] = (double)newest_file_size() / (1 << 20);
}
BENCHMARK(BM_reader_load_full)->Unit(benchmark::kMillisecond)->Iterations(5);

} // namespace

BENCHMARK_MAIN();
