// list_bench - one frame of draw_left_panel over a full reader: 100 feeds and
// up to 10000 entries, all shown (one generation, nothing deleted). The
// measuring walk runs every frame and stops each feed's walk once its entry
// count is met, so its cost depends on where a feed's entries lie in the
// pool: together, as a parse leaves them, or interleaved across the pool,
// the worst case. Main thread only: rectangles and glyphs go into batches
// that are never flushed.
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "reader/reader.h"
#include "toolkit/ui_state.h"
#include "views/views.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

constexpr u32 feed_count = 100;

struct list_bench_t {
    reader_t reader = {};
    std::vector<u32> code_point_storage = std::vector<u32>(code_point_list_capacity);
    code_point_list_t code_points = {};
    font_set_t font_set = {};
    window_t window = {};
    ui_t ui = {};
    view_state_t state = {};
    app_context context = {};
    gl_batch_t rectangles = {}, text = {};
    bool ready = false;
};

data_t fonts_sans, fonts_mono;

// A reader of 100 feeds with `per_feed` entries each; `interleaved` puts
// entry i in feed i % 100 instead of 100 in a row per feed.
void fill(list_bench_t &b, u32 per_feed, bool interleaved) {
    system_info_get();
    reader_init(&b.reader);
    code_point_list_init(&b.code_points, b.code_point_storage.data(), (u32)b.code_point_storage.size());
    b.reader.code_points = &b.code_points;
    b.reader.generation = 1;
    std::vector<feed_t *> feeds;
    for (u32 f = 0; f < feed_count; f++) {
        feed_t *feed = reader_new_feed(&b.reader, reader_type_rss);
        std::string url = "https://example.org/feed/" + std::to_string(f);
        std::string title = "A feed about harbours and lanterns, number " + std::to_string(f);
        data_t u = {url.size(), url.size(), (u8 *)url.data()}, t = {title.size(), title.size(), (u8 *)title.data()};
        feed->url = reader_text_add(&b.reader, &u);
        feed->rss.title = reader_text_add(&b.reader, &t);
        reader_new_meta(&b.reader, feed);
        feeds.push_back(feed);
    }
    for (u32 i = 0; i < feed_count * per_feed; i++) {
        feed_t *feed = feeds[interleaved ? i % feed_count : i / per_feed];
        entry_t *entry = reader_new_entry(&b.reader);
        std::string title = "The keeper of the north light writes about the storm of the morning " + std::to_string(i);
        data_t t = {title.size(), title.size(), (u8 *)title.data()};
        entry->rss.title = reader_text_add(&b.reader, &t);
        reader_accept_entry(&b.reader, feed, entry);
    }
    font_set_create_application(&b.font_set, data_virtual_alloc(0x2000000, 0), &fonts_sans, &fonts_mono);
    b.window.width = 1280;
    b.window.height = 720;
    b.context.frame_memory = data_virtual_alloc(0xA00000, 0);
    b.context.window = &b.window;
    b.context.view_state = &b.state;
    b.context.font_set = &b.font_set;
    b.ui = ui_create(&b.context.frame_memory, &b.window);
    b.ui.font_set = &b.font_set;
    b.rectangles.kind = gl_batch_kind_rectangles;
    b.rectangles.format = gl_vertex_format(2, true, false, 2);
    b.text.kind = gl_batch_kind_text;
    for (gl_batch_t *batch : {&b.rectangles, &b.text}) {
        batch->commands = data_virtual_alloc(4u << 20, 0);
        batch->vertices = data_virtual_alloc(4u << 20, 0);
    }
    b.ui.rectangles = &b.rectangles;
    b.ui.text = &b.text;
    b.context.ui = &b.ui;
    view_state_init(&b.state, 1);
    b.state.panel = panel_content;
    b.ready = b.font_set.font_count == 4;
}

void frame(list_bench_t &b) {
    for (gl_batch_t *batch : {&b.rectangles, &b.text}) {
        batch->commands.used = 0;
        batch->vertices.used = 0;
        batch->command_count = 0;
    }
    ui_frame_start(&b.ui);
    draw_left_panel(&b.context, &b.reader, vec4{2, 2, 452, 688});
}

void BM_DrawLeftPanel(benchmark::State &state) {
    if (!fonts_sans.bytes) {
        fonts_sans = font_file_load_sans();
        fonts_mono = font_file_load_mono();
    }
    if (!fonts_sans.bytes || !fonts_mono.bytes) return state.SkipWithError("no fonts found");
    static list_bench_t benches[2][4];
    u32 per_feed = (u32)state.range(0);
    bool interleaved = state.range(1) != 0;
    list_bench_t &b = benches[interleaved][per_feed == 1 ? 0 : per_feed == 10 ? 1 : per_feed == 30 ? 2 : 3];
    if (!b.ready) fill(b, per_feed, interleaved);
    if (!b.ready) return state.SkipWithError("no fonts found");
    frame(b);
    for (auto _ : state) frame(b);
    state.counters["entries"] = (f64)b.reader.entries.entry_count;
    state.counters["text_commands"] = (f64)b.text.command_count;
}
BENCHMARK(BM_DrawLeftPanel)
    ->ArgsProduct({{1, 10, 30, 100}, {0, 1}})
    ->ArgNames({"per_feed", "interleaved"})
    ->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
