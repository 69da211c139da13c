// feed_bench - MB/s of feed_parse on a generated 5 MB RSS 2.0 document (2000
// items with HTML descriptions) into an empty reader, beside libxml2 reading
// the same bytes into its own tree (xmlReadMemory), and of our scan and
// tree alone, which is the part that compares with libxml2's work, and of a
// second parse that refuses every item.
#include <benchmark/benchmark.h>
#include <libxml/parser.h>

#include <string>
#include <vector>

#include "feed/feed.h"

static std::string make_feed(size_t items, size_t target_size) {
    static const char *words[] = {"the",   "river", "brought", "wreckage", "after",   "storm",  "tide",    "reader",
                                  "feeds", "quiet", "harbour", "north",    "lantern", "gull",   "ledger",  "salt",
                                  "rope",  "keeper", "drift",  "shore",    "window",  "archive",
                                  "caf\xC3\xA9", "na\xC3\xAFve"};
    unsigned seed = 11;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    size_t description_size = target_size / items - 420;
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                      "<rss version=\"2.0\" xmlns:atom=\"http://www.w3.org/2005/Atom\">\n<channel>\n"
                      "<title>Tidewrack bench</title>\n<link>https://bench.example/</link>\n"
                      "<description>Generated items &amp; HTML</description>\n<language>en</language>\n"
                      "<lastBuildDate>Tue, 02 Jan 2024 09:00:00 GMT</lastBuildDate>\n"
                      "<atom:link href=\"https://bench.example/feed\" rel=\"self\" type=\"application/rss+xml\"/>\n";
    for (size_t i = 0; i < items; i++) {
        out += "<item>\n<title>Item " + std::to_string(i) + ": the " + words[next(24)] + " &amp; the " +
               words[next(24)] + "</title>\n";
        out += "<link>https://bench.example/items/" + std::to_string(i) + "</link>\n";
        out += "<pubDate>" + std::string("Mon, ") + (i % 28 < 9 ? "0" : "") + std::to_string(i % 28 + 1) +
               " Jan 2024 " + (i % 24 < 10 ? "0" : "") + std::to_string(i % 24) + ":" +
               (i % 60 < 10 ? "0" : "") + std::to_string(i % 60) + ":00 GMT</pubDate>\n";
        out += "<guid isPermaLink=\"false\">bench-" + std::to_string(i) + "</guid>\n";
        out += std::string("<category>") + words[next(24)] + "</category>\n";
        out += "<description>";
        size_t start = out.size();
        while (out.size() - start < description_size) {
            switch (next(8)) {
            case 0: out += "&lt;p&gt;"; break;
            case 1: out += "&lt;/p&gt;\n"; break;
            case 2:
                out += "&lt;a href=&quot;https://bench.example/" + std::string(words[next(24)]) + "?id=" +
                       std::to_string(next(9999)) + "&amp;amp;x=1&quot;&gt;" + words[next(24)] + "&lt;/a&gt; ";
                break;
            case 3: out += std::string("&lt;em&gt;") + words[next(24)] + "&lt;/em&gt; "; break;
            case 4: out += "&#8217;s &amp;mdash; "; break;
            default:
                for (int w = 0; w < 6; w++) out += std::string(words[next(24)]) + " ";
                break;
            }
        }
        out += "</description>\n</item>\n";
    }
    out += "</channel>\n</rss>\n";
    return out;
}

static const std::string &document() {
    static std::string text = make_feed(2000, 5 << 20);
    return text;
}

struct bench_reader_t {
    reader_t reader = {};
    code_point_list_t code_points = {};
    std::vector<u32> code_point_array = std::vector<u32>(code_point_list_capacity);
    bench_reader_t() {
        reader_init(&reader);
        code_point_list_init(&code_points, code_point_array.data(), code_point_list_capacity);
        reader.code_points = &code_points;
    }
    ~bench_reader_t() {
        data_virtual_free(&reader.storage);
        data_virtual_free(&reader.text_block);
        data_virtual_free(&reader.text_block_spare);
    }
};

// Into an empty reader whose memory was used before (reset, as libxml2's heap
// is warm after its first document), with the code point list back at its
// start.
static void BM_tidewrack_feed_parse(benchmark::State &state) {
    system_info_get();
    const std::string &text = document();
    data_t in = {text.size(), text.size(), (u8 *)text.data()};
    data_t url = data_literal("https://bench.example/feed");
    data_t frame = data_virtual_alloc(0xA00000, 0);
    bench_reader_t r;
    u64 entries = 0;
    for (auto _ : state) {
        reader_reset(&r.reader);
        code_point_list_init(&r.code_points, r.code_point_array.data(), code_point_list_capacity);
        feed_t *feed = feed_parse(&frame, &r.reader, &in, &url, nullptr);
        benchmark::DoNotOptimize(feed);
        entries = feed ? feed->entry_count : 0;
    }
    data_virtual_free(&frame);
    state.counters["entries"] = (double)entries;
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_tidewrack_feed_parse)->Unit(benchmark::kMillisecond);

// The same into a reader fresh from its allocation: every page of the text
// and the pools is touched for the first time.
static void BM_tidewrack_feed_parse_fresh_reader(benchmark::State &state) {
    system_info_get();
    const std::string &text = document();
    data_t in = {text.size(), text.size(), (u8 *)text.data()};
    data_t url = data_literal("https://bench.example/feed");
    data_t frame = data_virtual_alloc(0xA00000, 0);
    u64 entries = 0;
    for (auto _ : state) {
        state.PauseTiming();
        bench_reader_t *r = new bench_reader_t();
        state.ResumeTiming();
        feed_t *feed = feed_parse(&frame, &r->reader, &in, &url, nullptr);
        benchmark::DoNotOptimize(feed);
        state.PauseTiming();
        entries = feed ? feed->entry_count : 0;
        delete r;
        state.ResumeTiming();
    }
    data_virtual_free(&frame);
    state.counters["entries"] = (double)entries;
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_tidewrack_feed_parse_fresh_reader)->Unit(benchmark::kMillisecond);

// The same document again into the feed it made: every item is refused on
// its date and rolled back, the road of most updates.
static void BM_tidewrack_feed_reparse(benchmark::State &state) {
    system_info_get();
    const std::string &text = document();
    data_t in = {text.size(), text.size(), (u8 *)text.data()};
    data_t url = data_literal("https://bench.example/feed");
    data_t frame = data_virtual_alloc(0xA00000, 0);
    bench_reader_t r;
    feed_t *feed = feed_parse(&frame, &r.reader, &in, &url, nullptr);
    for (auto _ : state) benchmark::DoNotOptimize(feed_parse(&frame, &r.reader, &in, &url, feed));
    data_virtual_free(&frame);
    state.counters["entries"] = (double)feed->entry_count;
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_tidewrack_feed_reparse)->Unit(benchmark::kMillisecond);

static void BM_tidewrack_scan_and_tree(benchmark::State &state) {
    system_info_get();
    const std::string &text = document();
    data_t in = {text.size(), text.size(), (u8 *)text.data()};
    data_t frame = data_virtual_alloc(0xA00000, 0);
    u64 nodes = 0;
    for (auto _ : state) {
        frame.used = 0;
        xml_scan_t scan = xml_scan_tags(&frame, &in);
        xml_tree_t tree = xml_build_tree(&frame, &scan);
        nodes = tree.node_count;
        benchmark::DoNotOptimize(tree.nodes.bytes);
    }
    data_virtual_free(&frame);
    state.counters["nodes"] = (double)nodes;
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_tidewrack_scan_and_tree)->Unit(benchmark::kMillisecond);

static void BM_libxml2_read_memory(benchmark::State &state) {
    const std::string &text = document();
    xmlInitParser();
    for (auto _ : state) {
        int options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
        xmlDocPtr doc = xmlReadMemory(text.data(), (int)text.size(), "feed.xml", nullptr, options);
        if (!doc) state.SkipWithError("libxml2 refused the document");
        benchmark::DoNotOptimize(doc);
        xmlFreeDoc(doc);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_libxml2_read_memory)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
