// toolkit_bench - the text layout's main-thread cost for a 1 MB plain-text
// article in an 800x600 box, laid out as the article view does (one string a
// paragraph, a gap between paragraphs, the first recording stopping once the
// content outgrows the box): a quiet frame, a frame with a scroll, and one
// measuring pass alone, for English, Chinese and Arabic text side by side;
// the first frame of each with an empty glyph store (every character looked
// up, every run shaped, the visible glyphs rasterised); and the store's
// memory after 20000 distinct characters. The strings go into a text batch
// whose flush (the GL side) isn't part of these figures.
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "toolkit/layout.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

struct bench_t {
    font_set_t font_set = {};
    std::vector<u32> code_point_storage = std::vector<u32>(4096);
    code_point_list_t code_points = {};
    data_t sans = {}, mono = {};
    std::vector<std::string> paragraphs[3]; // English, Chinese, Arabic
    data_t arena = {};
    gl_batch_t batch = {};
    bool ready = false;
};

// Words of running English prose, the common ones first; picks lean to the
// front of the list as word frequencies do.
const char *const words[] = {
    "the", "of", "and", "to", "a", "in", "that", "is", "was", "it", "for", "on", "with", "as", "his", "they", "at",
    "be", "this", "from", "have", "or", "by", "one", "had", "not", "but", "what", "all", "were", "when", "we",
    "there", "can", "an", "your", "which", "their", "said", "if", "will", "each", "about", "how", "up", "out",
    "them", "then", "she", "many", "some", "so", "these", "would", "other", "into", "has", "more", "her", "two",
    "like", "him", "see", "time", "could", "no", "make", "than", "first", "been", "its", "who", "now", "people",
    "my", "made", "over", "did", "down", "only", "way", "find", "use", "may", "water", "long", "little", "very",
    "after", "words", "called", "just", "where", "most", "know", "river", "harbour", "weather", "storm", "reader",
    "lantern", "morning", "keeper", "shore", "window", "archive", "government", "announced", "yesterday",
    "according", "spokeswoman", "development", "infrastructure", "committee", "September", "café", "naïve",
    "résumé", "Zürich", "coöperation", "€120", "2026", "percent", "researchers", "université", "fjord", "Ærø",
};

bench_t &bench() {
    static bench_t b;
    static bool tried = false;
    if (tried) return b;
    tried = true;
    b.sans = font_file_load_sans();
    b.mono = font_file_load_mono();
    if (!b.sans.bytes || !b.mono.bytes) return b;
    code_point_list_init(&b.code_points, b.code_point_storage.data(), (u32)b.code_point_storage.size());
    font_set_create_application(&b.font_set, data_virtual_alloc(0x2000000, 0), &b.sans, &b.mono);

    // 1 MB of paragraphs of 2 to 8 sentences of 6 to 28 words; Chinese
    // sentences of 8 to 40 characters from the 3000 after U+4E00 (no
    // spaces); Arabic words of 2 to 8 letters from a vocabulary of 4000.
    unsigned seed = 11;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    const unsigned count = sizeof(words) / sizeof(words[0]);
    size_t total = 0;
    while (total < (1u << 20)) {
        std::string p;
        for (unsigned s = 0, sentences = 2 + next(7); s < sentences; ++s) {
            for (unsigned w = 0, n = 6 + next(23); w < n; ++w) {
                unsigned r = next(1000);
                std::string word = words[(r * r / 1000) * count / 1000];
                if (w == 0 && word[0] >= 'a' && word[0] <= 'z') word[0] = (char)(word[0] - 'a' + 'A');
                p += word;
                p += (w + 1 == n) ? (next(5) ? ". " : "? ") : (next(9) == 0 ? ", " : " ");
            }
        }
        p.pop_back();
        total += p.size() + 1;
        b.paragraphs[0].push_back(std::move(p));
    }
    auto utf8 = [](u32 c, std::string *out) {
        u8 buffer[4], size = 0;
        u32 error = 0;
        utf8_encode(buffer, buffer + 4, c, &size, &error);
        out->append((const char *)buffer, size);
    };
    for (size_t total_zh = 0; total_zh < (1u << 20);) {
        std::string p;
        for (unsigned s = 0, sentences = 2 + next(7); s < sentences; ++s) {
            for (unsigned c = 0, n = 8 + next(33); c < n; ++c) utf8(0x4E00 + (next(1000) * next(1000)) % 3000, &p);
            utf8(next(4) ? 0x3002 : 0xFF0C, &p);
        }
        total_zh += p.size() + 1;
        b.paragraphs[1].push_back(std::move(p));
    }
    // A vocabulary of 4000 made-up words, picked as the English ones are.
    std::vector<std::string> vocabulary(4000);
    for (std::string &word : vocabulary)
        for (unsigned c = 0, letters = 2 + next(7); c < letters; ++c) utf8(0x627 + next(26), &word);
    for (size_t total_ar = 0; total_ar < (1u << 20);) {
        std::string p;
        for (unsigned s = 0, sentences = 2 + next(7); s < sentences; ++s) {
            for (unsigned w = 0, n = 6 + next(23); w < n; ++w) {
                unsigned r = next(1000);
                p += vocabulary[(r * r / 1000) * vocabulary.size() / 1000 + next(4)];
                p += (w + 1 == n) ? ". " : " ";
            }
        }
        p.pop_back();
        total_ar += p.size() + 1;
        b.paragraphs[2].push_back(std::move(p));
    }
    b.arena = data_virtual_alloc(64u << 20, 0);
    b.batch.kind = gl_batch_kind_text;
    b.batch.commands = data_virtual_alloc(1u << 20, 0);
    b.batch.vertices = data_virtual_alloc(1u << 20, 0);
    b.batch.font_set = &b.font_set;
    b.ready = b.font_set.font_count == 4;
    return b;
}

// The article's calls, the same in every pass.
void article(bench_t &b, layout_t *l, u32 script, bool stop_early = true) {
    layout_set_flags(l, layout_flag_keep_partial);
    layout_set_line_box(l, 0, l->width - 8, layout_line_drop_break_space);
    layout_set_font(l, 1);
    for (const std::string &p : b.paragraphs[script]) {
        layout_string_p(l, (const u8 *)p.data(), p.size());
        layout_new_line(l);
        layout_move(l, 0, 10, 0);
        if (stop_early && layout_is_settled(l)) return; // this recording will be made again with a bar
    }
    layout_finish(l);
}

// One frame of the view: the passes, then the strings on the screen into the
// text batch. wheel moves the scroll in the input pass as the wheel does.
u32 frame(bench_t &b, vec2 *scroll, f32 wheel, u32 script = 0) {
    b.arena.used = 0;
    b.batch.commands.used = 0;
    b.batch.command_count = 0;
    b.batch.vertices.used = 0;
    layout_t l = layout_create(&b.arena, &b.font_set, vec4{0, 0, 800, 600}, scroll->x, scroll->y, {4, 4, 4, 4});
    while (layout_pass_start(&l)) {
        if (l.state == layout_state_input) l.scroll_y += wheel;
        if (layout_scroll_update(&l, false)) continue;
        article(b, &l, script);
    }
    *scroll = vec2{l.scroll_x, l.scroll_y};
    layout_draw(&l, &b.batch);
    return l.pass_count;
}

// What the renderer's flush does first: every glyph of the batch gets its
// place in the atlas (rasterised when new).
void place_glyphs(bench_t &b) {
    const font_t *font = font_get(&b.font_set, 1);
    for (u32 i = 0; i < b.batch.command_count; ++i) {
        const gl_command_t *c = &((gl_command_t *)b.batch.commands.bytes)[i];
        const u8 *at = c->text.text.bytes, *end = at + c->text.text.used;
        while (at < end) {
            u64 run = font_run_length(font, at, (u64)(end - at));
            if (run) {
                font_run_glyph_t glyphs[256];
                font_run_glyphs(font, at, run, glyphs, 256);
                at += run;
                continue;
            }
            u32 code_point = 0, error = 0;
            u8 size = 0;
            utf8_decode(at, end, &code_point, &size, &error);
            if (error) break;
            font_glyph_drawn(font, code_point);
            at += size;
        }
    }
}

void BM_QuietFrame(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    vec2 scroll = {0, (f32)state.range(0)};
    const u32 script = (u32)state.range(1);
    u32 passes = 0;
    frame(b, &scroll, 0, script);
    place_glyphs(b);
    for (auto _ : state) passes = frame(b, &scroll, 0, script);
    state.counters["passes"] = (f64)passes - 1; // the last start only says there is no more
    state.counters["glyphs_drawn"] = 0;
    for (u32 i = 0; i < b.batch.command_count; ++i)
        state.counters["glyphs_drawn"] += ((gl_command_t *)b.batch.commands.bytes)[i].text.glyphs;
}

void BM_ScrollFrame(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    vec2 scroll = {0, (f32)state.range(0)};
    u32 passes = 0;
    f32 wheel = 60;
    for (auto _ : state) {
        passes = frame(b, &scroll, wheel);
        wheel = -wheel;
    }
    state.counters["passes"] = (f64)passes - 1;
}

// One recording of the whole article: what measuring costs.
void BM_MeasuringPass(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    f32 height = 0;
    for (auto _ : state) {
        b.arena.used = 0;
        layout_t l = layout_create(&b.arena, &b.font_set, vec4{0, 0, 800, 600}, 0, 0, {4, 4, 4, 4});
        layout_pass_start(&l);
        article(b, &l, 0, false);
        height = l.content_height;
    }
    state.counters["content_height"] = height;
    state.counters["paragraphs"] = (f64)b.paragraphs[0].size();
    state.SetBytesProcessed((i64)state.iterations() << 20);
}

// The first frame of an article with nothing in the glyph store: the
// measuring looks up every character (and shapes every Arabic word), the
// visible glyphs are rasterised. Each iteration starts from an empty store.
void BM_FirstFrameEmptyStore(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    const u32 script = (u32)state.range(0);
    for (auto _ : state) {
        state.PauseTiming();
        font_set_forget(&b.font_set);
        state.ResumeTiming();
        vec2 scroll = {0, 0};
        frame(b, &scroll, 0, script);
        place_glyphs(b);
    }
    font_store_stats_t stats = font_set_store_stats(&b.font_set);
    state.counters["characters"] = stats.characters;
    state.counters["glyphs"] = stats.glyphs;
}

// 20000 distinct Han characters measured and drawn in all four fonts: the
// store's memory stays bounded (its tables and atlas are fixed; the atlas is
// emptied when full).
void BM_StoreAfter20000Characters(benchmark::State &state) {
    bench_t &b = bench();
    if (!b.ready) return state.SkipWithError("no fonts found");
    for (auto _ : state) {
        font_set_forget(&b.font_set);
        for (u32 c = 0x4E00; c < 0x4E00 + 20000; ++c) {
            for (u32 k = 0; k < b.font_set.font_count; ++k) {
                font_glyph_drawn(font_get(&b.font_set, k), c);
                if (font_set_atlas_overflowed(&b.font_set)) font_set_atlas_evict(&b.font_set);
            }
        }
    }
    font_store_stats_t stats = font_set_store_stats(&b.font_set);
    state.counters["store_MB"] = (f64)stats.memory / (1 << 20);
    state.counters["evictions"] = stats.evictions;
    state.counters["faces"] = stats.faces;
}

} // namespace

BENCHMARK(BM_QuietFrame)->ArgNames({"scroll", "script"})->Args({0, 0})->Args({200000, 0})->Args({0, 1})->Args({200000, 1})
    ->Args({0, 2})->Args({200000, 2})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FirstFrameEmptyStore)->ArgName("script")->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoreAfter20000Characters)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_ScrollFrame)->Arg(200000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MeasuringPass)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
