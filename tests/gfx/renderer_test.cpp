// The renderer on a real OpenGL 3.3 context (Mesa's software renderer under
// a private X server), judged by the pixels it leaves in the back buffer:
// rectangles, scissors, text, images and the atlas rebuilt after new code
// points.
#include "gfx/fonts.h"
#include "gfx/gl.h"
#include "gfx/renderer.h"
#include "gfx/window.h"

#include <gtest/gtest.h>

#include <algorithm>

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

// Left, bottom, right, top (inclusive) of the lit pixels; r < l when none.
struct box_t {
    i32 l, b, r, t;
};

struct probe_t {
    i32 x, y;
    rgba_t colour;
};

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
    box_t lit_box() const {
        box_t box = {width, height, -1, -1};
        for (i32 y = 0; y < height; ++y)
            for (i32 x = 0; x < width; ++x)
                if (lit(x, y)) box = {std::min(box.l, x), std::min(box.b, y), std::max(box.r, x), std::max(box.t, y)};
        return box;
    }
    void expect(std::initializer_list<probe_t> probes) const {
        for (const probe_t &p : probes) EXPECT_EQ(at(p.x, p.y), p.colour) << "at " << p.x << "," << p.y;
    }
};

struct renderer_test_t : ::testing::Test {
    static void SetUpTestSuite() {
        data_t title = data_literal("renderer");
        window_create(&window, &title, width, height, window_centred, window_centred, 0);
        if (!window.running) return;
        window_swap_interval(0);
        code_point_list_init(&code_points, code_point_storage.data(), (u32)code_point_storage.size());
        static data_t sans = font_file_load_sans();
        static data_t mono = font_file_load_mono();
        font_set_create_application(&font_set, data_virtual_alloc(0x500000, 0), &sans, &mono);
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
    gl_command_t *fill(u32 index, vec4 rect, vec4 colour) {
        return gl_batch_rectangle(batch(index), &rect, nullptr, nullptr, colour);
    }
    frame_t flush() {
        gl_renderer_flush(&renderer);
        frame_t frame;
        frame.pixels.resize((size_t)width * height * 4);
        gl_read_pixels(0, 0, width, height, frame.pixels.data());
        window_swap_buffers(&window);
        EXPECT_EQ(gl_debug_message_count, 0u);
        return frame;
    }
    frame_t draw_text(const std::string &s, f32 x, f32 y, u32 font = 1) {
        SetUp();
        gl_batch_text(batch(text), (const u8 *)s.data(), s.size(), 0, x, y, false, font, vec4{1, 1, 1, 1});
        return flush();
    }
};

TEST_F(renderer_test_t, RectanglesInTheirColoursAndPlaces) {
    fill(rectangles, {10, 20, 50, 40}, {1, 0, 0, 1}); // left, bottom, right, top; y up from the bottom
    fill(rectangles, {100, 100, 160, 180}, {0, 0, 1, 1});
    // Later in the batch paints over earlier; a later batch over both.
    fill(rectangles, {140, 90, 200, 120}, {0, 1, 0, 1});
    fill(popups, {150, 80, 170, 110}, {1, 1, 1, 1});
    // A recoloured command draws in its new colour.
    gl_command_t *command = fill(rectangles, {10, 150, 30, 170}, {1, 0, 0, 1});
    gl_batch_recolour(batch(rectangles), command, nullptr, vec4{0, 0, 1, 1});
    // Half-transparent white over black blends to grey.
    fill(rectangles, {260, 0, 300, 40}, {1, 1, 1, 0.5f});
    // Colours per corner: bottom left, bottom right, top left, top right.
    vec4 r = {220, 100, 320, 200}, corners[4] = {{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}, {1, 1, 1, 1}};
    gl_batch_rectangle(batch(rectangles), &r, nullptr, corners, vec4{1, 1, 1, 1});
    frame_t f = flush();
    f.expect({{10, 20, red},     {49, 39, red},    {9, 20, black},   {50, 30, black},   {30, 40, black},
              {30, 19, black},   {100, 100, blue}, {120, 179, blue}, {120, 180, black}, {145, 110, green},
              {199, 95, green},  {130, 110, blue}, {160, 100, white}, {155, 115, green}, {0, 0, black},
              {219, 150, black}, {20, 160, blue}});
    for (const probe_t &p : {probe_t{220, 100, red}, {319, 100, green}, {220, 199, blue}, {319, 199, white}}) {
        rgba_t c = f.at(p.x, p.y);
        EXPECT_TRUE(abs(c.r - p.colour.r) < 15 && abs(c.g - p.colour.g) < 15 && abs(c.b - p.colour.b) < 15)
            << p.x << "," << p.y << " " << c;
    }
    rgba_t grey = f.at(280, 20);
    EXPECT_NEAR(grey.r, 127, 3);
    EXPECT_EQ(grey.r, grey.g);
}

TEST_F(renderer_test_t, AScissorCuts) {
    gl_batch_t *b = batch(rectangles);
    gl_batch_scissor(b, true, 0, 0, 60, height);
    fill(rectangles, {10, 10, 110, 50}, {1, 0, 0, 1});
    // Two scissors in a row, the second wins.
    gl_batch_scissor(b, true, 0, 0, 10, 10);
    gl_batch_scissor(b, true, 0, 80, width, 20);
    fill(rectangles, {200, 60, 240, 140}, {0, 1, 0, 1});
    gl_batch_scissor(b, false, 0, 0, 0, 0);
    fill(rectangles, {280, 10, 300, 30}, {0, 0, 1, 1});
    // Negative values are raised to 0: this one starts at the window's edge,
    // and its (0, 0, 45, 45) hides the popup.
    gl_batch_scissor(batch(popups), true, -20, -20, 45, 45);
    fill(popups, {0, 150, 30, 190}, {1, 1, 1, 1});
    frame_t f = flush();
    f.expect({{59, 30, red},     {60, 30, black},    {100, 30, black}, {220, 79, black}, {220, 80, green},
              {220, 99, green},  {220, 100, black},  {290, 20, blue},  {10, 170, black}});
}

TEST_F(renderer_test_t, TextStopsAtInvalidUtf8AndBreaksLines) {
    frame_t whole = draw_text("AB", 20, 100);
    frame_t cut = draw_text("AB\xFF" "CD", 20, 100);
    EXPECT_EQ(cut.pixels, whole.pixels);
    EXPECT_EQ(((gl_command_t *)batch(text)->commands.bytes)->text.glyphs_written, 2u);

    // CR LF is one line break, a lone CR another: three lines, each
    // starting again at x.
    const font_t *font = font_get(&font_set, 1);
    f32 step = (font->ascent - font->descent + font->line_gap) * font->scale;
    box_t lines = draw_text("A\r\nA\rA", 20, 150).lit_box();
    box_t one = draw_text("A", 20, 150).lit_box();
    EXPECT_EQ(lines.l, one.l);
    EXPECT_EQ(lines.r, one.r);
    EXPECT_EQ(lines.t, one.t);
    EXPECT_NEAR(lines.b, one.b - 2 * step, 1.5);
}

TEST_F(renderer_test_t, ImagesOfOneAndFourChannels) {
    // 1 channel: grey levels drawn as grey, opaque. Bottom row first: bl, br, tl, tr.
    const u8 grey[4] = {0, 255, 128, 64};
    const u8 colour[16] = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255};
    // 3 pixels of 1 byte: rows are not 4-byte multiples.
    const u8 odd[6] = {255, 0, 255, 0, 255, 0};
    u32 textures[3] = {gl_texture_create(grey, 2, 2, 1, 0), gl_texture_create(colour, 2, 2, 4, 0),
                       gl_texture_create(odd, 3, 2, 1, 0)};
    vec4 a = {10, 10, 50, 50}, b = {100, 10, 140, 50}, c = {200, 10, 240, 50}, d = {10, 100, 40, 120};
    gl_batch_image(batch(images), &a, nullptr, nullptr, vec4{1, 1, 1, 1}, textures[0], 1);
    gl_batch_image(batch(images), &b, nullptr, nullptr, vec4{1, 1, 1, 1}, textures[1], 4);
    // The colour multiplies the texture.
    gl_batch_image(batch(images), &c, nullptr, nullptr, vec4{1, 0, 0, 1}, textures[1], 4);
    gl_batch_image(batch(images), &d, nullptr, nullptr, vec4{1, 1, 1, 1}, textures[2], 1);
    frame_t f = flush();
    f.expect({{15, 15, black},  {45, 15, white}, {105, 15, red},    {135, 15, green}, {105, 45, blue},
              {135, 45, white}, {235, 15, black}, {235, 45, red},   {15, 105, white}, {25, 105, black},
              {15, 115, black}, {25, 115, white}});
    EXPECT_NEAR(f.at(15, 45).r, 128, 2);
    EXPECT_EQ(f.at(15, 45).r, f.at(15, 45).b);
    EXPECT_NEAR(f.at(45, 45).g, 64, 2);
    for (u32 &t : textures) gl_texture_delete(&t);
    EXPECT_EQ(textures[0], 0u);
}

// A letter beyond the start list is drawn in its first frame, from its own
// box. A save that trims and reorders the reader's code point list leaves
// every drawn character as it was: the fonts never read that list.
TEST_F(renderer_test_t, GlyphsOnDemandAndATrimmedListChangesNoCharacter) {
    const u32 zhe = 0x416; // Cyrillic capital ZHE, not in the start list
    const font_t *font = font_get(&font_set, 2);
    ASSERT_EQ(font_glyph_index(font, zhe), font_glyph_none);
    frame_t after = draw_text("\xD0\x96", 60, 100, 2);
    const glyph_t *g = font_glyph_drawn(font, zhe);
    box_t box = after.lit_box();
    ASSERT_GE(box.r, box.l);
    EXPECT_NEAR(box.l, 60 + g->left, 1.5);
    EXPECT_NEAR(box.r + 1, 60 + g->right, 1.5);
    EXPECT_NEAR(box.t + 1, 100 + g->top, 1.5);
    EXPECT_NEAR(box.b, 100 + g->bottom, 1.5);
    EXPECT_NE(after.pixels, draw_text("\xEF\xBF\xBD", 60, 100, 2).pixels) << "not the replacement character";
    // Han from a fallback face: glyphs that differ from the box a character
    // without a face gets (U+FFFF) and from each other.
    const frame_t zhong = draw_text("中", 60, 100, 2), wen = draw_text("文", 60, 100, 2);
    const frame_t box_glyph = draw_text("\xEF\xBF\xBF", 60, 100, 2);
    EXPECT_GT(zhong.lit_box().r - zhong.lit_box().l, 8);
    EXPECT_NE(zhong.pixels, wen.pixels);
    EXPECT_NE(zhong.pixels, box_glyph.pixels);
    EXPECT_NE(wen.pixels, box_glyph.pixels);

    const std::string title = "The lifeboat\xE2\x80\x99s \xE2\x98\xBA \xE2\x80\xA6 \xD0\x96";
    code_points.count = code_point_list_start_count;
    for (u32 c : {0x2019u, 0x263Au, 0x416u}) code_points.code_points[code_points.count++] = c;
    frame_t before_save = draw_text(title, 10, 100, 0);
    // What a save's trim does: drop what no text uses, U+FFFD moves.
    std::reverse(code_points.code_points, code_points.code_points + code_points.count);
    code_points.count -= 2;
    EXPECT_EQ(draw_text(title, 10, 100, 0).pixels, before_save.pixels);
}

// An emoji of a colour face keeps its own colours: drawn in white text, it
// has pixels that are no grey, which a tinted one-channel glyph can't give.
TEST_F(renderer_test_t, ColourEmojiKeepTheirColours) {
    const frame_t f = draw_text("\xF0\x9F\x98\x80\xF0\x9F\x8D\x8E", 60, 100, 2); // grinning face, red apple
    const glyph_t *grin = font_glyph_drawn(font_get(&font_set, 2), 0x1F600);
    if (!grin->colour) GTEST_SKIP() << "no colour emoji face installed";
    EXPECT_GE(grin->advance + 1, grin->right) << "the next character starts past the emoji";
    u32 coloured = 0;
    for (i32 y = 0; y < height; ++y)
        for (i32 x = 0; x < width; ++x) {
            rgba_t c = f.at(x, y);
            coloured += std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b}) > 60;
        }
    EXPECT_GT(coloured, 50u);
    EXPECT_GT(f.lit_box().r - f.lit_box().l, 25) << "two emoji side by side, at the text's size";
    EXPECT_LT(f.lit_box().t - f.lit_box().b, 40);
}

} // namespace
