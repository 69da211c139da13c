// The renderer's cost of a busy frame.

#include "gfx/fonts.h"
#include "gfx/gl.h"
#include "gfx/renderer.h"
#include "gfx/window.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

window_t window;
font_set_t font_set;
std::vector<u32> code_point_storage(4096);
code_point_list_t code_points;
data_t sans, mono;

bool graphics_ready() {
    static bool tried = false, ready = false;
    if (tried) return ready;
    tried = true;
    data_t title = data_literal("gfx bench");
    window_create(&window, &title, 1280, 720, window_centred, window_centred, 0);
    if (!window.running) return false;
    window_swap_interval(0); // measure the work, not the display's pace
    sans = font_file_load_sans();
    mono = font_file_load_mono();
    code_point_list_init(&code_points, code_point_storage.data(), (u32)code_point_storage.size());
    font_set_create_application(&font_set, data_virtual_alloc(0x2000000, 0), &sans, &mono);
    ready = font_set.font_count == 4;
    return ready;
}

// 20000 glyphs as 400 lines of 50, and 2000 rectangles, on a 1280 by 720
// window: what a dense screen of the program draws.
void BM_FrameOf20000GlyphsAnd2000Rectangles(benchmark::State &state) {
    if (!graphics_ready()) {
        state.SkipWithError("no OpenGL window (run under xvfb-run)");
        return;
    }
    gl_renderer_t renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
    u32 rectangles = gl_batch_create_rectangles(&renderer);
    u32 text = gl_batch_create_text(&renderer, 30000, 1000, 0, 0, nullptr, &font_set, 0);
    // The rectangle batch holds 1000; two batches make the 2000.
    u32 more_rectangles = gl_batch_create_rectangles(&renderer);
    const std::string line = "The quick brown fox jumps over the lazy dog 0123."; // 49 + 1 glyphs
    const std::string line50 = line + "!";
    for (auto _ : state) {
        gl_renderer_frame_start(&renderer);
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});
        for (u32 i = 0; i < 2000; ++i) {
            f32 x = (f32)((i * 37) % 1240), y = (f32)((i * 53) % 700);
            vec4 r = {x, y, x + 40, y + 20};
            vec4 c = {(f32)(i % 7) / 7.0f, (f32)(i % 5) / 5.0f, 0.5f, 1};
            gl_batch_rectangle(gl_batch_get(&renderer, i < 1000 ? rectangles : more_rectangles, true), &r, nullptr,
                               nullptr, c);
        }
        gl_batch_t *t = gl_batch_get(&renderer, text, true);
        for (u32 i = 0; i < 400; ++i) {
            f32 x = (f32)((i % 3) * 420), y = (f32)(700 - (i / 3) * 5);
            gl_batch_text(t, (const u8 *)line50.data(), line50.size(), 0, x, y, false, i % 4, vec4{1, 1, 1, 1});
        }
        gl_renderer_flush(&renderer);
        gl.glFinish(); // the software renderer's work belongs to the frame
        window_swap_buffers(&window);
    }
    state.counters["glyphs"] = 20000;
    state.counters["rectangles"] = 2000;
}
BENCHMARK(BM_FrameOf20000GlyphsAnd2000Rectangles)->Unit(benchmark::kMillisecond)->MinTime(3.0);

} // namespace

BENCHMARK_MAIN();
