// Laid text drawn through the renderer in a real window (Mesa under Xvfb):
// the ink lands where the layout said, the first glyph of a line touching
// the left edge, baselines one line height plus gap apart.
#include "toolkit/layout.h"

#include "gfx/gl.h"
#include "gfx/renderer.h"
#include "ui_test_helpers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr i32 width = 320, height = 200;

struct layout_pixels_test_t : ::testing::Test {
    static inline window_t window = {};
    static inline gl_renderer_t renderer = {};
    static inline u32 text = 0;
    static inline data_t arena = {};

    static void SetUpTestSuite() {
        data_t title = data_literal("layout pixels");
        window_create(&window, &title, width, height, window_centred, window_centred, 0);
        if (!window.running) return;
        window_swap_interval(0);
        renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
        text = gl_batch_create_text(&renderer, 4000, 100, 0, 0, nullptr, ui_test::fonts(), 0);
        arena = data_virtual_alloc(1 << 20, 0);
    }

    // Lays the text in the box with the passes of a view and draws it: which
    // rows have ink, bottom first, and the leftmost column of ink.
    struct ink_t {
        std::vector<bool> rows;
        i32 left;
    };
    ink_t draw(vec4 box, u32 font, const std::string &s) {
        arena.used = 0;
        gl_renderer_frame_start(&renderer);
        gl_renderer_viewport(&renderer, 0, 0, width, height);
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});
        layout_t l = layout_create(&arena, ui_test::fonts(), box, 0, 0, {});
        while (layout_pass_start(&l)) {
            if (layout_scroll_update(&l, false)) continue;
            layout_set_font(&l, font);
            layout_string_p(&l, (const u8 *)s.data(), s.size());
            layout_finish(&l);
        }
        layout_draw(&l, gl_batch_get(&renderer, text, true));
        gl_renderer_flush(&renderer);
        std::vector<u8> pixels((size_t)width * height * 4);
        gl_read_pixels(0, 0, width, height, pixels.data());
        window_swap_buffers(&window);
        EXPECT_EQ(gl_debug_message_count, 0u);
        ink_t ink = {std::vector<bool>(height), width};
        for (i32 y = 0; y < height; ++y)
            for (i32 x = 0; x < width; ++x)
                if (pixels[((size_t)y * width + x) * 4] > 40) ink.rows[y] = true, ink.left = std::min(ink.left, x);
        return ink;
    }
};

TEST_F(layout_pixels_test_t, InkWhereTheLayoutPutIt) {
    ASSERT_EQ(window.running, 1u) << "no window: is the test run under xvfb-run?";
    const font_t *f = font_get(ui_test::fonts(), 2);
    const f32 ascent = (f32)f->ascent * f->scale, step = font_line_height(f, false) + (f32)f->line_gap * f->scale;
    // Two letters, each from its baseline up.
    std::vector<bool> rows = draw(vec4{20, 20, 300, 180}, 2, "H\nH").rows;
    std::vector<i32> bottoms, tops;
    for (i32 y = 0; y < height; ++y) {
        if (rows[y] && (y == 0 || !rows[y - 1])) bottoms.push_back(y);
        if (rows[y] && (y + 1 == height || !rows[y + 1])) tops.push_back(y);
    }
    ASSERT_EQ(bottoms.size(), 2u);
    EXPECT_LE(tops[1], 180);
    EXPECT_NEAR(bottoms[1], 180 - ascent, 1.0f);
    EXPECT_NEAR(bottoms[1] - bottoms[0], step, 1.0f);
    // The ink of a line's first glyph starts at the box's left edge: its
    // bearing is taken off ('!' has one of 2 pixels).
    ASSERT_GT(f->glyphs[font_glyph_index(f, '!')].left, 1.5f);
    EXPECT_NEAR(draw(vec4{20, 20, 300, 180}, 2, "!").left, 20, 1);
}

} // namespace
