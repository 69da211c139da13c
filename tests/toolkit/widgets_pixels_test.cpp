// Widgets drawn by the real renderer (Mesa's software OpenGL under a private
// X server) and judged by the pixels: box colours by state, the check mark,
// the chevron, an open list over what lies below it, the selection and caret
// of a text field.
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "toolkit/text_edit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <vector>

namespace {

constexpr i32 width = 320, height = 240;

window_t window;
gl_renderer_t renderer;
font_set_t font_set;
std::vector<u32> code_point_storage(2048);
code_point_list_t code_points;
data_t frame_memory;
ui_t ui;

struct rgb_t {
    i32 r, g, b;
    bool near(rgb_t o) const { return std::abs(r - o.r) <= 2 && std::abs(g - o.g) <= 2 && std::abs(b - o.b) <= 2; }
};
std::ostream &operator<<(std::ostream &os, const rgb_t &c) { return os << "(" << c.r << "," << c.g << "," << c.b << ")"; }

const rgb_t grey75 = {191, 191, 191}, grey5 = {128, 128, 128}, blue = {0, 122, 204}, white = {255, 255, 255},
            black = {0, 0, 0}, selection = {107, 148, 184};

struct frame_t {
    std::vector<u8> pixels;
    rgb_t at(i32 x, i32 y) const {
        const u8 *p = &pixels[((size_t)y * width + x) * 4];
        return rgb_t{p[0], p[1], p[2]};
    }
    // Pixels of the rectangle (left, bottom inclusive; right, top exclusive) that pass a test.
    i32 count(vec4 r, const std::function<bool(rgb_t)> &test) const {
        i32 n = 0;
        for (i32 y = (i32)r.y; y < (i32)r.w; ++y)
            for (i32 x = (i32)r.x; x < (i32)r.z; ++x) n += test(at(x, y)) ? 1 : 0;
        return n;
    }
};

bool dark(rgb_t c) { return c.r < 90 && c.g < 90 && c.b < 90; }
bool light(rgb_t c) { return c.r > 200 && c.g > 200 && c.b > 200; }

struct pixels_test_t : ::testing::Test {
    static void SetUpTestSuite() {
        data_t title = data_literal("widgets");
        window_create(&window, &title, width, height, window_centred, window_centred, 0);
        if (!window.running) return;
        window_swap_interval(0);
        code_point_list_init(&code_points, code_point_storage.data(), (u32)code_point_storage.size());
        static data_t sans = font_file_load_sans();
        static data_t mono = font_file_load_mono();
        font_set_create_application(&font_set, data_virtual_alloc(0x500000, 0), &sans, &mono);
        frame_memory = data_virtual_alloc(0x400000, 0);
        ui = ui_create(&frame_memory, &window);
        renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
        u32 icons = gl_texture_create(ui.atlas.pixels, ui.atlas.width, ui.atlas.height, 1, 0);
        for (int layer = 0; layer < 2; ++layer) {
            gl_batch_create_rectangles(&renderer);
            gl_batch_create_text(&renderer, 4000, 200, 0, 0, nullptr, &font_set, 0);
            gl_batch_create_strips(&renderer, icons);
        }
        ui_set_batches(&ui, &renderer, 0, 1, 2, 3, 4, 5);
    }
    void SetUp() override { ASSERT_EQ(window.running, 1u) << "no window: is the test run under xvfb-run?"; }

    // One frame with the pointer at `mouse` and the left button as given.
    frame_t draw(vec2 mouse, bool pressed, const std::function<void()> &calls) {
        gl_renderer_frame_start(&renderer);
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});
        window.keys[key_left_button] = pressed ? key_state_pack(0, 1, 0, 1) : 0;
        window.mouse_x = (i32)mouse.x, window.mouse_y = (i32)mouse.y;
        ui_frame_start(&ui);
        calls();
        gl_renderer_flush(&renderer);
        frame_t frame;
        frame.pixels.resize((size_t)width * height * 4);
        gl_read_pixels(0, 0, width, height, frame.pixels.data());
        window_swap_buffers(&window);
        return frame;
    }
};

TEST_F(pixels_test_t, ButtonBoxByState) {
    const vec4 rect = {20, 20, 120, 46};
    ui_id_t id = ui_id();
    auto button = [&] { ui_button(&ui, id, rect, data_literal("Save (F8)"), 1); };
    struct {
        vec2 mouse;
        bool pressed;
        rgb_t border, fill;
    } states[] = {
        {{200, 200}, false, grey75, grey5},
        {{25, 40}, false, blue, grey5}, // hot
        {{25, 40}, true, blue, blue},   // active and hot
    };
    for (const auto &s : states) {
        frame_t f = draw(s.mouse, s.pressed, button);
        EXPECT_TRUE(f.at(20, 20).near(s.border)) << f.at(20, 20);
        EXPECT_TRUE(f.at(119, 45).near(s.border)) << f.at(119, 45);
        EXPECT_TRUE(f.at(22, 22).near(s.fill)) << f.at(22, 22);
        EXPECT_TRUE(f.at(20, 46).near(black)); // top is exclusive
        // The label is white and centred: ink on both sides of the middle.
        EXPECT_GT(f.count({30, 22, 70, 44}, light), 10);
        EXPECT_GT(f.count({70, 22, 110, 44}, light), 10);
    }
    ui_clear_active(&ui);
    // A button narrower than the ellipsis shows no text at all.
    frame_t f = draw({200, 200}, false, [&] { ui_button(&ui, id, {20, 20, 42, 46}, data_literal("Save (F8)"), 1); });
    EXPECT_EQ(f.count({21, 21, 41, 45}, light), 0);
}

TEST_F(pixels_test_t, CheckMarkAndChevron) {
    u32 value = 1;
    const vec4 check = {20, 100, 140, 120};
    u64 selected = 0;
    const data_t items[2] = {data_literal("Feeds"), data_literal("Deleted")};
    const vec4 drop = {160, 100, 280, 122};
    auto both = [&] {
        ui_checkbox(&ui, ui_id(&value), check, &value, data_literal("Show empty"), 0);
        ui_dropdown(&ui, ui_id(&selected), drop, items, 2, &selected, 0);
    };
    frame_t on = draw({0, 0}, false, both);
    value = 0;
    frame_t off = draw({0, 0}, false, both);
    const vec4 box_inner = {21, 101, 39, 119};
    EXPECT_GT(on.count(box_inner, light), 12); // the white check mark
    EXPECT_EQ(off.count(box_inner, light), 0);
    EXPECT_TRUE(off.at(30, 110).near(grey5));
    // The chevron: dark ink in the square at the right of a white box, on
    // both sides of its middle and more in its upper half (it points down).
    const f32 side = 122 - 100 - 6;
    vec4 square = {280 - 3 - side, 103, 277, 119};
    EXPECT_TRUE(off.at(165, 104).near(white));
    vec4 upper = {square.x, 111, square.z, square.w}, lower = {square.x, square.y, square.z, 111};
    EXPECT_GT(off.count(upper, dark), off.count(lower, dark));
    EXPECT_GT(off.count({square.x, square.y, square.x + side / 2, square.w}, dark), 3);
    EXPECT_GT(off.count({square.x + side / 2, square.y, square.z, square.w}, dark), 3);
    // The selected item's text is black on the left.
    EXPECT_GT(off.count({163, 103, 200, 119}, dark), 10);
}

TEST_F(pixels_test_t, AnOpenListCoversWhatLiesBelow) {
    u64 selected = 1;
    const data_t items[3] = {data_literal("one"), data_literal("two"), data_literal("three")};
    const vec4 drop = {20, 180, 140, 202};
    const vec4 below = {20, 120, 140, 170};
    ui_id_t button = ui_id();
    auto calls = [&] {
        ui_button(&ui, button, below, data_literal("under"), 0);
        ui_dropdown(&ui, ui_id(&selected), drop, items, 3, &selected, 0);
    };
    frame_t closed = draw({30, 190}, false, calls);
    EXPECT_TRUE(closed.at(60, 160).near(grey5));
    frame_t open = draw({30, 190}, true, calls);
    ASSERT_TRUE(ui.popup_open);
    // The list (white, grey border) stands over the button; the selected
    // row is lit in blue.
    EXPECT_TRUE(open.at(20, (i32)ui.popup_rect.w - 1).near(grey75));
    EXPECT_GT(open.count({22, 120, 138, 170}, [](rgb_t c) { return c.near(white) || c.near(blue); }), 3000);
    EXPECT_GT(open.count(ui.popup_rect, [](rgb_t c) { return c.near(blue); }), 200);
    window.keys[key_left_button] = 0;
    ui_clear_active(&ui);
    ui_popup_close(&ui);
}

TEST_F(pixels_test_t, TextFieldSelectionAndCaret) {
    u8 bytes[64] = "select me";
    data_t text = {sizeof(bytes), 9, bytes};
    const vec4 rect = {20, 60, 220, 84};
    ui_id_t id = ui_id(&text);
    ui_text_edit_state_t *state = &ui_state_get(&ui, id)->text_edit;
    ui_force_active(&ui, id, ui_kind_text_edit);
    state->caret = 6, state->anchor = 0; // "select" selected, the caret at its right
    frame_t f = draw({0, 0}, false, [&] { ui_text_edit(&ui, id, rect, &text, 0); });
    EXPECT_TRUE(f.at(20, 60).near(blue)); // active border
    EXPECT_GT(f.count({23, 63, 60, 81}, [](rgb_t c) { return c.near(selection); }), 50);
    EXPECT_EQ(f.count({90, 63, 217, 81}, [](rgb_t c) { return c.near(selection); }), 0);
    // The caret: a whole dark column at the end of the selection.
    i32 caret_x = -1;
    for (i32 x = 40; x < 90 && caret_x < 0; ++x)
        if (f.count({(f32)x, 67, (f32)x + 1, 81}, dark) == 14 && f.at(x - 1, 68).near(selection)) caret_x = x;
    EXPECT_GT(caret_x, 0);
    ui_clear_active(&ui);
    frame_t idle = draw({0, 0}, false, [&] { ui_text_edit(&ui, id, rect, &text, 0); });
    EXPECT_TRUE(idle.at(20, 60).near(grey75));
    EXPECT_GT(idle.count({23, 63, 100, 81}, dark), 30); // the text is black on white
}

} // namespace
