// A fetched picture is drawn where the article's layout put its box: an
// entry view in a real window under Xvfb, a red PNG from a loopback server,
// and the pixels read back.
#include "reading_fixture.h"

#include "gfx/renderer.h"
#include "net/image_fixture.h"
#include "net/test_server.h"

namespace {

struct article_pixels_test_t : reading_fixture_t {
    gl_renderer_t renderer = {};
    void SetUp() override {
        reading_fixture_t::SetUp();
        ASSERT_EQ(window.running, 1u) << "no window: is the test run under xvfb-run?";
        renderer = gl_renderer_create(window.width, window.height, gl_renderer_blend);
        u32 icons = gl_texture_create(ui.atlas.pixels, ui.atlas.width, ui.atlas.height, 1, 0);
        for (int layer = 0; layer < 2; layer++) {
            gl_batch_create_rectangles(&renderer);
            gl_batch_create_text(&renderer, 20000, 500, 0, 0, nullptr, &fonts, 0);
            gl_batch_create_strips(&renderer, icons);
        }
        gl_batch_create_images(&renderer);
        ui_set_batches(&ui, &renderer, 0, 1, 2, 3, 4, 5);
        context.renderer = &renderer;
    }
    std::vector<u8> draw() {
        gl_renderer_frame_start(&renderer);
        gl_renderer_viewport(&renderer, 0, 0, (f32)window.width, (f32)window.height);
        gl_scissor(&renderer, false, 0, 0, 0, 0);
        gl_clear(&renderer, vec4{0, 0, 0, 1});
        last = frame();
        gl_renderer_flush(&renderer);
        std::vector<u8> pixels((size_t)window.width * window.height * 4);
        gl_read_pixels(0, 0, window.width, window.height, pixels.data());
        window_swap_buffers(&window);
        return pixels;
    }
    layout_t last = {};
};

TEST_F(article_pixels_test_t, a_fetched_picture_fills_its_box) {
    test_image_cache_t cache;
    test_server_t server([](const std::string &) { return test_response_t{200, test_png(40, 30, 4, 0xFF0000FF)}; });
    const std::string url = server.url("/red.png");
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    select(feed, rss_entry_with(feed, "<p>above</p><img src=\"" + url + "\">"));
    std::vector<u8> pixels;
    const layout_command_t *box = nullptr;
    for (int round = 0; round < 5 && !box; round++) {
        pixels = draw();
        for (auto &slot : image_cache.slots) cache.wait(&slot);
        for (u32 i = 0; i < last.command_count; i++)
            if (last.commands[i].kind == layout_kind_box && last.commands[i].box.rect.z - last.commands[i].box.rect.x == 40)
                box = &last.commands[i];
    }
    ASSERT_NE(box, nullptr);
    auto at = [&](i32 x, i32 y) {
        const u8 *p = &pixels[((size_t)y * window.width + x) * 4];
        return std::vector<int>{p[0], p[1], p[2]};
    };
    const vec4 rect = box->box.rect;
    const std::vector<int> red = {255, 0, 0};
    EXPECT_EQ(at((i32)rect.x + 1, (i32)rect.y + 1), red);
    EXPECT_EQ(at((i32)rect.z - 2, (i32)rect.w - 2), red);
    EXPECT_EQ(at((i32)(rect.x + rect.z) / 2, (i32)(rect.y + rect.w) / 2), red);
    EXPECT_NE(at((i32)rect.z + 2, (i32)rect.w - 2), red);
    EXPECT_NE(at((i32)rect.x + 1, (i32)rect.w + 2), red);
}

} // namespace
