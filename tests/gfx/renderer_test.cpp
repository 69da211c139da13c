// The renderer on a real OpenGL 3.3 context (Mesa's software renderer under
// a private X server), judged by the pixels it leaves in the back buffer:
// rectangles, scissors, text, images and the atlas rebuilt after new code
// points.
#include "gfx/fonts.h"
#include "gfx/gl.h"
#include "gfx/renderer.h"
#include "gfx/window.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

constexpr i32 width = 320, height = 200;

window_t window;
gl_renderer_t renderer;
font_set_t font_set;
std::vector<u32> code_point_storage(2048);
code_point_list_t code_points;
u32 rectangles, text, images, popups;

struct rgba_t {
    u8 r, g, b, a;
    bool operator==(const rgba_t &o) const { return r == o.r && g == o.g && b == o.b; }
};

std::ostream &operator<<(std::ostream &os, const rgba_t &c) {
    return os << "(" << (int)c.r << "," << (int)c.g << "," << (int)c.b << ")";
}

const rgba_t black = {0, 0, 0, 255}, red = {255, 0, 0, 255}, green = {0, 255, 0, 255}, blue = {0, 0, 255, 255},
             white = {255, 255, 255, 255};

struct frame_t {
    std::vector<u8> pixels;
    rgba_t at(i32 x, i32 y) const {
        const u8 *p = &pixels[((size_t)y * width + x) * 4];
        return rgba_t{p[0], p[1], p[2], p[3]};
    }
    bool lit(i32 x, i32 y) const {
        rgba_t c = at(x, y);
        return c.r > 40 || c.g > 40 || c.b > 40;
    }
    // The box around every lit pixel: left, bottom, right, top (inclusive);
    // right < left when nothing is lit.
    void lit_box(i32 *l, i32 *b, i32 *r, i32 *t) const {
        *l = width, *b = height, *r = -1, *t = -1;
        for (i32 y = 0; y < height; ++y)
            for (i32 x = 0; x < width; ++x)
                if (lit(x, y)) {
                    *l = std::min(*l, x), *r = std::max(*r, x);
                    *b = std::min(*b, y), *t = std::max(*t, y);
                }
    }
    size_t lit_count() const {
        size_t n = 0;
        for (i32 y = 0; y < height; ++y)
            for (i32 x = 0; x < width; ++x) n += lit(x, y);
        return n;
    }
};

struct renderer_test_t : ::testing::Test {
    static void SetUpTestSuite() {
        data_t title = data_literal("renderer");
        window_create(&window, &title, width, height, window_centred, window_centred, 0);
        if (!window.running) return;
        window_swap_interval(0);
        code_point_list_init(&code_points, code_point_storage.data(), (u32)code_point_storage.size());
        static data_t sans = font_file_load("Verdana", false);
        static data_t mono = font_file_load("Lucida Console", true);
        font_set_create_application(&font_set, data_virtual_alloc(0x500000, 0), &sans, &mono, &code_points);
        renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
        rectangles = gl_batch_create_rectangles(&renderer);
        text = gl_batch_create_text(&renderer, 4000, 100, 0, 0, nullptr, &font_set, 0);
        images = gl_batch_create_images(&renderer);
        popups = gl_batch_create_rectangles(&renderer);
    }
    void SetUp() override {
        ASSERT_EQ(window.running, 1u) << "no window: is the test run under xvfb-run?";
        ASSERT_EQ(window.width, width);
        ASSERT_EQ(window.height, height);
        ASSERT_EQ(font_set.font_count, 4);
        gl_renderer_frame_start(&renderer);
        gl_renderer_viewport(&renderer, 0, 0, width, height);
        // Scissor state outlives a frame: without this a scissor left on by
        // the previous test would confine the clear too.
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});
    }
    gl_batch_t *batch(u32 index) { return gl_batch_get(&renderer, index, true); }
    frame_t flush() {
        gl_renderer_flush(&renderer);
        frame_t frame;
        frame.pixels.resize((size_t)width * height * 4);
        gl_read_pixels(0, 0, width, height, frame.pixels.data());
        window_swap_buffers(&window);
        EXPECT_EQ(gl_debug_message_count, 0u);
        return frame;
    }
    frame_t draw_text(const std::string &s, f32 x, f32 y, u32 font = 1, bool skip_bearing = false) {
        SetUp();
        gl_batch_text(batch(text), (const u8 *)s.data(), s.size(), 0, x, y, skip_bearing, font, vec4{1, 1, 1, 1});
        return flush();
    }
};

TEST_F(renderer_test_t, RectanglesInTheirColoursAndPlaces) {
    vec4 a = {10, 20, 50, 40}; // left, bottom, right, top; y up from the bottom
    vec4 b = {100, 100, 160, 180};
    gl_batch_rectangle(batch(rectangles), &a, nullptr, nullptr, vec4{1, 0, 0, 1});
    gl_batch_rectangle(batch(rectangles), &b, nullptr, nullptr, vec4{0, 0, 1, 1});
    // Later in the batch paints over earlier; a later batch over both.
    vec4 c = {140, 90, 200, 120};
    gl_batch_rectangle(batch(rectangles), &c, nullptr, nullptr, vec4{0, 1, 0, 1});
    vec4 d = {150, 80, 170, 110};
    gl_batch_rectangle(batch(popups), &d, nullptr, nullptr, vec4{1, 1, 1, 1});
    frame_t f = flush();

    struct {
        i32 x, y;
        rgba_t colour;
    } probes[] = {
        {10, 20, red},     {49, 39, red},     {9, 20, black},    {50, 30, black}, {30, 40, black},
        {30, 19, black},   {100, 100, blue},  {120, 179, blue},  {120, 180, black},
        {145, 110, green}, {199, 95, green},  {130, 110, blue},  {160, 100, white},
        {155, 115, green}, {0, 0, black},     {319, 199, black},
    };
    for (const auto &p : probes) EXPECT_EQ(f.at(p.x, p.y), p.colour) << "at " << p.x << "," << p.y;
}

TEST_F(renderer_test_t, CornerColoursAndTransparency) {
    vec4 r = {0, 0, 100, 100};
    vec4 corners[4] = {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}, {1, 1, 1, 1}}; // bl, br, tl, tr
    gl_batch_rectangle(batch(rectangles), &r, nullptr, corners, vec4{1, 1, 1, 1});
    // Half-transparent white over black blends to grey.
    vec4 g = {200, 0, 240, 40};
    gl_batch_rectangle(batch(rectangles), &g, nullptr, nullptr, vec4{1, 1, 1, 0.5f});
    frame_t f = flush();
    rgba_t bl = f.at(0, 0), br = f.at(99, 0), tl = f.at(0, 99), tr = f.at(99, 99);
    EXPECT_GT(bl.r, 240);
    EXPECT_LT(bl.g, 15);
    EXPECT_GT(br.g, 240);
    EXPECT_LT(br.r, 15);
    EXPECT_GT(tl.b, 240);
    EXPECT_LT(tl.r, 15);
    EXPECT_GT(tr.r, 240);
    EXPECT_GT(tr.g, 240);
    EXPECT_GT(tr.b, 240);
    rgba_t grey = f.at(220, 20);
    EXPECT_NEAR(grey.r, 127, 3);
    EXPECT_EQ(grey.r, grey.g);
}

TEST_F(renderer_test_t, RecolourRewritesACommandInPlace) {
    vec4 r = {10, 10, 30, 30};
    gl_command_t *command = gl_batch_rectangle(batch(rectangles), &r, nullptr, nullptr, vec4{1, 0, 0, 1});
    gl_batch_recolour(batch(rectangles), command, nullptr, vec4{0, 0, 1, 1});
    frame_t f = flush();
    EXPECT_EQ(f.at(20, 20), blue);
}

TEST_F(renderer_test_t, AScissorCuts) {
    gl_batch_t *b = batch(rectangles);
    vec4 wide = {10, 10, 110, 50};
    gl_batch_scissor(b, true, 0, 0, 60, height);
    gl_batch_rectangle(b, &wide, nullptr, nullptr, vec4{1, 0, 0, 1});
    // Two scissors in a row, the second wins.
    gl_batch_scissor(b, true, 0, 0, 10, 10);
    gl_batch_scissor(b, true, 0, 80, width, 20);
    vec4 tall = {200, 60, 240, 140};
    gl_batch_rectangle(b, &tall, nullptr, nullptr, vec4{0, 1, 0, 1});
    gl_batch_scissor(b, false, 0, 0, 0, 0);
    vec4 free_box = {280, 10, 300, 30};
    gl_batch_rectangle(b, &free_box, nullptr, nullptr, vec4{0, 0, 1, 1});
    // Negative values are raised to 0: this one starts at the window's edge.
    gl_batch_scissor(batch(popups), true, -20, -20, 45, 45);
    vec4 corner = {0, 150, 30, 190};
    gl_batch_rectangle(batch(popups), &corner, nullptr, nullptr, vec4{1, 1, 1, 1});
    frame_t f = flush();
    EXPECT_EQ(f.at(59, 30), red);
    EXPECT_EQ(f.at(60, 30), black);
    EXPECT_EQ(f.at(100, 30), black);
    EXPECT_EQ(f.at(220, 79), black);
    EXPECT_EQ(f.at(220, 80), green);
    EXPECT_EQ(f.at(220, 99), green);
    EXPECT_EQ(f.at(220, 100), black);
    EXPECT_EQ(f.at(290, 20), blue);
    EXPECT_EQ(f.at(10, 170), black); // the popup's scissor (0, 0, 45, 45) hides it
}

TEST_F(renderer_test_t, TextFallsInItsBox) {
    const font_t *font = font_get(&font_set, 1);
    const f32 x = 40, y = 100;
    frame_t f = draw_text("Hxg", x, y);
    i32 l, b, r, t;
    f.lit_box(&l, &b, &r, &t);
    ASSERT_GE(r, l) << "no glyph pixels at all";
    f32 ascent = font->ascent * font->scale, descent = -font->descent * font->scale;
    // Within the line: above the descent, below the ascent, right of the pen.
    EXPECT_GE(l, (i32)x - 1);
    EXPECT_LE(r, (i32)(x + 3 * 16));
    EXPECT_GE(b, (i32)(y - descent) - 1);
    EXPECT_LE(t, (i32)(y + ascent) + 1);
    // "g" descends below the baseline and "H" reaches up near the ascent.
    EXPECT_LT(b, (i32)y - 1);
    EXPECT_GT(t, (i32)(y + ascent * 0.5f));
    EXPECT_EQ(batch(text)->texture != 0, true); // made from the atlas at the flush
}

TEST_F(renderer_test_t, TextStopsAtInvalidUtf8AndBreaksLines) {
    frame_t whole = draw_text("AB", 20, 100);
    frame_t cut = draw_text("AB\xFF" "CD", 20, 100);
    EXPECT_EQ(cut.pixels, whole.pixels);
    gl_command_t *command = (gl_command_t *)batch(text)->commands.bytes;
    EXPECT_EQ(command->text.glyphs_written, 2u);

    // CR LF is one line break, a lone CR another: three lines.
    frame_t lines = draw_text("A\r\nA\rA", 20, 150);
    const font_t *font = font_get(&font_set, 1);
    f32 step = (font->ascent - font->descent + font->line_gap) * font->scale;
    i32 l, b, r, t;
    lines.lit_box(&l, &b, &r, &t);
    frame_t one = draw_text("A", 20, 150);
    i32 l1, b1, r1, t1;
    one.lit_box(&l1, &b1, &r1, &t1);
    EXPECT_EQ(l, l1);
    EXPECT_EQ(r, r1); // each line starts again at x
    EXPECT_EQ(t, t1);
    EXPECT_NEAR(b, b1 - 2 * step, 1.5);
}

TEST_F(renderer_test_t, SkipBearingMovesTheFirstGlyphOfEachLineLeft) {
    const font_t *font = font_get(&font_set, 2);
    const glyph_t *w = &font->glyphs[font_glyph_index(font, 'W')];
    frame_t plain = draw_text("W", 50, 100, 2, false);
    frame_t skipped = draw_text("W", 50, 100, 2, true);
    i32 l0, b0, r0, t0, l1, b1, r1, t1;
    plain.lit_box(&l0, &b0, &r0, &t0);
    skipped.lit_box(&l1, &b1, &r1, &t1);
    EXPECT_NEAR(l0 - l1, w->left, 1.0);
}

TEST_F(renderer_test_t, ImagesOfOneAndFourChannels) {
    // 1 channel: grey levels drawn as grey, opaque.
    const u8 grey[4] = {0, 255, 128, 64}; // bottom row first: bl, br, tl, tr
    u32 grey_texture = gl_texture_create(grey, 2, 2, 1, 0);
    // 4 channels.
    const u8 colour[16] = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255};
    u32 colour_texture = gl_texture_create(colour, 2, 2, 4, 0);
    vec4 a = {10, 10, 50, 50}, b = {100, 10, 140, 50};
    gl_batch_image(batch(images), &a, nullptr, nullptr, vec4{1, 1, 1, 1}, grey_texture, 1);
    gl_batch_image(batch(images), &b, nullptr, nullptr, vec4{1, 1, 1, 1}, colour_texture, 4);
    // The colour multiplies the texture.
    vec4 c = {200, 10, 240, 50};
    gl_batch_image(batch(images), &c, nullptr, nullptr, vec4{1, 0, 0, 1}, colour_texture, 4);
    frame_t f = flush();
    EXPECT_EQ(f.at(15, 15), black);
    EXPECT_EQ(f.at(45, 15), white);
    EXPECT_NEAR(f.at(15, 45).r, 128, 2);
    EXPECT_EQ(f.at(15, 45).r, f.at(15, 45).b);
    EXPECT_NEAR(f.at(45, 45).g, 64, 2);
    EXPECT_EQ(f.at(105, 15), red);
    EXPECT_EQ(f.at(135, 15), green);
    EXPECT_EQ(f.at(105, 45), blue);
    EXPECT_EQ(f.at(135, 45), white);
    EXPECT_EQ(f.at(235, 15), black); // green times red
    EXPECT_EQ(f.at(235, 45), red);
    gl_texture_delete(&grey_texture);
    gl_texture_delete(&colour_texture);
    EXPECT_EQ(grey_texture, 0u);
}

TEST_F(renderer_test_t, AnOddWidthImageUploadsRowByRow) {
    // 3 pixels of 1 byte: rows are not 4-byte multiples.
    const u8 pixels[6] = {255, 0, 255, 0, 255, 0};
    u32 texture = gl_texture_create(pixels, 3, 2, 1, 0);
    vec4 r = {0, 0, 30, 20};
    gl_batch_image(batch(images), &r, nullptr, nullptr, vec4{1, 1, 1, 1}, texture, 1);
    frame_t f = flush();
    EXPECT_EQ(f.at(5, 5), white);
    EXPECT_EQ(f.at(15, 5), black);
    EXPECT_EQ(f.at(5, 15), black);
    EXPECT_EQ(f.at(15, 15), white);
    gl_texture_delete(&texture);
}

TEST_F(renderer_test_t, TheAtlasIsRebuiltAfterNewCodePoints) {
    const u32 zhe = 0x416; // Cyrillic capital ZHE, not in the start list
    const std::string zhe_text = "\xD0\x96";
    const font_t *font = font_get(&font_set, 2);
    ASSERT_EQ(font->code_points[font_glyph_index(font, zhe)] == zhe, false);

    // Unknown: drawn as the glyph at the replacement index.
    frame_t before = draw_text(zhe_text, 60, 100, 2);
    std::string replacement_text;
    {
        u32 c = font->code_points[replacement_glyph_index];
        u8 buffer[4];
        u8 size = 0;
        u32 error = 0;
        utf8_encode(buffer, buffer + 4, c, &size, &error);
        replacement_text.assign((char *)buffer, size);
    }
    frame_t replacement = draw_text(replacement_text, 60, 100, 2);
    EXPECT_EQ(before.pixels, replacement.pixels);

    // The frame loop's rebuild: the list grew, the set is built again and
    // the text texture dropped so that the next flush uploads the new atlas.
    code_points.code_points[code_points.count++] = zhe;
    u32 old_texture = batch(text)->texture;
    ASSERT_NE(old_texture, 0u);
    font_set_rebuild(&font_set, &code_points);
    gl_texture_delete(&batch(text)->texture);
    font = font_get(&font_set, 2);
    ASSERT_EQ(font->code_points[font_glyph_index(font, zhe)], zhe);

    frame_t after = draw_text(zhe_text, 60, 100, 2);
    EXPECT_NE(batch(text)->texture, 0u);
    EXPECT_NE(after.pixels, before.pixels);
    // The glyph's own box, from its metrics, holds what was drawn.
    const glyph_t *g = &font->glyphs[font_glyph_index(font, zhe)];
    i32 l, b, r, t;
    after.lit_box(&l, &b, &r, &t);
    ASSERT_GE(r, l);
    EXPECT_NEAR(l, 60 + g->left, 1.5);
    EXPECT_NEAR(r + 1, 60 + g->right, 1.5);
    EXPECT_NEAR(t + 1, 100 + g->top, 1.5);
    EXPECT_NEAR(b, 100 + g->bottom, 1.5);
    // ZHE is wide and symmetric: ink on both sides of its middle.
    i32 middle = (l + r) / 2;
    size_t left_ink = 0, right_ink = 0;
    for (i32 y = b; y <= t; ++y)
        for (i32 x = l; x <= r; ++x) (x < middle ? left_ink : right_ink) += after.lit(x, y);
    EXPECT_GT(left_ink, 10u);
    EXPECT_GT(right_ink, 10u);
}

TEST_F(renderer_test_t, AScissorLeftOnConfinesTheNextClear) {
    gl_batch_scissor(batch(popups), true, 0, 0, 20, 20);
    flush();
    // The next frame clears without switching the scissor off first.
    gl_renderer_frame_start(&renderer);
    gl_clear(&renderer, vec4{0, 0, 1, 1});
    frame_t f = flush();
    EXPECT_EQ(f.at(0, 0), blue);
    EXPECT_EQ(f.at(19, 19), blue);
    EXPECT_EQ(f.at(20, 20), black);
}

TEST_F(renderer_test_t, AnEmptyFrameIsJustTheClearColour) {
    gl_clear(&renderer, vec4{0, 0, 1, 1});
    frame_t f = flush();
    EXPECT_EQ(f.lit_count(), (size_t)width * height);
    EXPECT_EQ(f.at(0, 0), blue);
    EXPECT_EQ(f.at(width - 1, height - 1), blue);
}

TEST(Colours, PackTruncatesAndUnpackScales) {
    struct {
        vec4 colour;
        u32 packed;
    } cases[] = {
        {{1, 0, 0, 1}, 0xFF0000FF},
        {{0, 0.5f, 1, 0}, 0x00FF7F00},
        {{0.999f, 0.004f, 0.0039f, 1}, 0xFF0001FE},
    };
    for (const auto &c : cases) EXPECT_EQ(color_pack(c.colour), c.packed);
    vec4 back = color_unpack(0x80FF0001);
    EXPECT_FLOAT_EQ(back.x, 0.003921569f);
    EXPECT_FLOAT_EQ(back.y, 0);
    EXPECT_FLOAT_EQ(back.z, 1.0f);
    EXPECT_NEAR(back.w, 0.50196f, 1e-4);
}

} // namespace
