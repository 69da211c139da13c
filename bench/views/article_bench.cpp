// article_bench - an entry whose article is 1 MB of HTML as feeds send it
// (paragraphs with links and emphasis, headings, lists, a table, pictures,
// a script): the parse of a selection, then the entry view's frames, quiet
// and with the wheel turning, main thread only. The glyphs go into a text
// batch whose flush (the GL side) isn't part of these figures; the pictures
// stay placeholders (no image cache).
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "reader/reader.h"
#include "toolkit/layout.h"
#include "toolkit/ui_state.h"
#include "views/view_article.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

const char *const words[] = {
    "the", "of", "and", "to", "a", "in", "that", "is", "was", "it", "for", "on", "with", "as", "his", "they", "at",
    "be", "this", "from", "have", "or", "by", "one", "had", "not", "but", "what", "all", "were", "when", "we",
    "there", "can", "an", "your", "which", "their", "said", "if", "will", "each", "about", "how", "up", "out",
    "river", "harbour", "weather", "storm", "reader", "lantern", "morning", "keeper", "shore", "window", "archive",
    "government", "announced", "yesterday", "according", "spokeswoman", "development", "infrastructure",
    "committee", "September", "café", "naïve", "résumé", "Zürich", "€120", "2026", "percent", "researchers",
};

struct bench_t {
    reader_t reader = {};
    std::vector<u32> code_point_storage = std::vector<u32>(code_point_list_capacity);
    code_point_list_t code_points = {};
    font_set_t font_set = {};
    window_t window = {};
    ui_t ui = {};
    view_state_t state = {};
    app_context context = {};
    gl_batch_t batch = {};
    feed_t *feed = nullptr;
    std::string html;
    bool ready = false;
};

std::string article_html() {
    unsigned seed = 7;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    const unsigned count = sizeof(words) / sizeof(words[0]);
    auto sentence = [&](std::string &out) {
        for (unsigned w = 0, n = 6 + next(20); w < n; ++w) {
            std::string word = words[next(count)];
            unsigned kind = next(40);
            if (kind == 0) out += "<a href=\"https://example.org/" + word + "/" + std::to_string(next(9999)) + "\">" + word + "</a>";
            else if (kind == 1) out += "<em>" + word + "</em>";
            else if (kind == 2) out += "<strong>" + word + "</strong>";
            else if (kind == 3) out += word + "&nbsp;&amp;";
            else out += word;
            out += w + 1 == n ? ". " : " ";
        }
    };
    std::string html = "<!DOCTYPE html><html><head><title>Tidewrack bench</title><style>p{margin:0}</style>"
                       "<script>var x = 1;</script></head><body><article>";
    for (unsigned block = 0; html.size() < (1u << 20); ++block) {
        if (block % 12 == 0) html += "<h2>Section " + std::to_string(block / 12) + "</h2>";
        if (block % 30 == 7) {
            html += "<ul>";
            for (unsigned i = 0; i < 4; ++i) html += "<li>", sentence(html), html += "</li>";
            html += "</ul>";
        } else if (block % 45 == 20) {
            html += "<figure><img src=\"https://example.org/pictures/" + std::to_string(block) +
                    ".jpg\" alt=\"A picture\"><figcaption>Caption</figcaption></figure>";
        } else if (block % 70 == 33) {
            html += "<table><tr><th>Year</th><th>Value</th></tr><tr><td>2025</td><td>12</td></tr></table>";
        } else {
            html += "<p>";
            for (unsigned s = 0, n = 2 + next(6); s < n; ++s) sentence(html);
            html += "</p>\n";
        }
    }
    return html + "</article></body></html>";
}

bench_t &bench() {
    static bench_t b;
    static bool tried = false;
    if (tried) return b;
    tried = true;
    static data_t sans = font_file_load_sans();
    static data_t mono = font_file_load_mono();
    if (!sans.bytes || !mono.bytes) return b;
    system_info_get();
    reader_init(&b.reader);
    code_point_list_init(&b.code_points, b.code_point_storage.data(), (u32)b.code_point_storage.size());
    b.reader.code_points = &b.code_points;
    font_set_create_application(&b.font_set, data_virtual_alloc(0x2000000, 0), &sans, &mono);
    b.html = article_html();

    b.feed = reader_new_feed(&b.reader, 1);
    data_t url = data_literal("https://example.org/feed");
    b.feed->url = reader_text_add(&b.reader, &url);
    reader_new_meta(&b.reader, b.feed);
    entry_t *entry = reader_new_entry(&b.reader);
    data_t title = data_literal("One megabyte of HTML");
    entry->rss.title = reader_text_add(&b.reader, &title);
    data_t html = {b.html.size(), b.html.size(), (u8 *)b.html.data()};
    entry->rss.description = reader_text_add(&b.reader, &html);
    reader_accept_entry(&b.reader, b.feed, entry);

    b.context.frame_memory = data_virtual_alloc(0xA00000, 0);
    b.context.window = &b.window;
    b.context.view_state = &b.state;
    b.context.font_set = &b.font_set;
    b.ui = ui_create(&b.context.frame_memory, &b.window);
    b.ui.font_set = &b.font_set;
    b.batch.kind = gl_batch_kind_text;
    b.batch.commands = data_virtual_alloc(1u << 20, 0);
    b.batch.vertices = data_virtual_alloc(1u << 20, 0);
    b.batch.font_set = &b.font_set;
    b.ui.text = &b.batch;
    b.context.ui = &b.ui;
    view_state_init(&b.state, 0);
    b.state.panel = panel_content;
    b.state.selected_feed = b.feed;
    b.state.selected_entry = entry;
    b.ready = b.font_set.font_count == 4;
    return b;
}

// One frame of the entry view; the wheel turns in it when `wheel` is set.
u32 frame(bench_t &b, f32 wheel) {
    b.batch.commands.used = 0;
    b.batch.command_count = 0;
    b.batch.vertices.used = 0;
    b.window.wheel = wheel;
    b.window.mouse_x = 400;
    b.window.mouse_y = 300;
    ui_frame_start(&b.ui);
    layout_t layout;
    entry_view_layout(&b.context, &b.reader, vec4{0, 0, 800, 600}, &layout);
    view_layout_render(&b.context, &b.state, &layout);
    return layout.pass_count - 1;
}

void BM_ArticleParse(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    data_t source = b.state.selected_entry->rss.description;
    for (auto _ : state) {
        b.state.article_ready = 0;
        u32 error = 0;
        article_parse(&b.state, &source, &error);
        if (error) state.SkipWithError("the article didn't parse");
    }
    state.counters["nodes"] = (f64)b.state.article_tree.node_count;
    state.SetBytesProcessed((i64)state.iterations() * (i64)source.used);
}

void BM_QuietFrame(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    b.state.content_scroll = vec2{0, (f32)state.range(0)};
    frame(b, 0);
    u32 passes = 0;
    for (auto _ : state) passes = frame(b, 0);
    state.counters["passes"] = passes;
}

void BM_ScrollFrame(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    b.state.content_scroll = vec2{0, (f32)state.range(0)};
    frame(b, 0);
    u32 passes = 0;
    f32 wheel = -1;
    for (auto _ : state) {
        passes = frame(b, wheel);
        wheel = -wheel;
    }
    state.counters["passes"] = passes;
}

} // namespace

BENCHMARK(BM_ArticleParse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_QuietFrame)->Arg(0)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScrollFrame)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
