// Image resize and the icon atlas: exact values of the box filter, the size
// rules and errors, and an icon that fails in the atlas.
#include "gfx/image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// Resizes into a generous buffer and returns exactly the pixels made.
std::vector<u8> resize(const std::vector<u8> &source, u32 sw, u32 sh, u32 *w, u32 *h, u32 channels,
                       bool swap = false, f32 gamma = 1.0f, u32 *error_out = nullptr) {
    u32 error = 0;
    std::vector<u8> out(source.size() * 16 + 4096, 0xEE);
    image_resize(source.data(), sw, sh, out.data(), w, h, channels, swap, gamma, &error);
    if (error_out) *error_out = error;
    out.resize(error ? 0 : (size_t)*w * *h * channels);
    return out;
}

// Whole factors: each pixel is the rounded mean of its block, in every
// channel; a factor of 1 copies.
TEST(ImageResize, WholeFactorsGiveTheRoundedMeanOfEachBlock) {
    const u32 sw = 9, sh = 6;
    for (u32 channels = 1; channels <= 4; ++channels)
        for (u32 f : {1u, 3u}) {
            std::vector<u8> source(sw * sh * channels);
            for (size_t i = 0; i < source.size(); ++i) source[i] = (u8)(i * 97 + 13);
            u32 w = sw / f, h = 0;
            std::vector<u8> out = resize(source, sw, sh, &w, &h, channels);
            ASSERT_EQ(h, sh / f);
            for (u32 i = 0; i < out.size(); ++i) {
                u32 x = i / channels % w, y = i / channels / w, k = i % channels, sum = 0;
                for (u32 d = 0; d < f * f; ++d) sum += source[((y * f + d / f) * sw + x * f + d % f) * channels + k];
                EXPECT_EQ(out[i], (u32)std::lround(sum / double(f * f))) << channels << " channels, factor " << f;
            }
        }
}

// The size asked (a width, or a height when the width is 0) and the other
// side scaled to match, truncated: it may come out as 0, an empty image.
TEST(ImageResize, SizeRules) {
    struct {
        u32 sw, sh, w, h, expected_w, expected_h;
    } cases[] = {{8, 4, 0, 2, 4, 2},   {3, 1, 2, 0, 2, 0},     {2, 1, 1, 0, 1, 0},
                 {100, 3, 1, 0, 1, 0}, {7, 5, 14, 0, 14, 10}};
    for (auto c : cases) {
        std::vector<u8> source(c.sw * c.sh, 200);
        u32 w = c.w, h = c.h, error = 0;
        std::vector<u8> out = resize(source, c.sw, c.sh, &w, &h, 1, false, 1.0f, &error);
        EXPECT_EQ(error, 0u);
        EXPECT_EQ(w, c.expected_w) << c.sw << "x" << c.sh;
        EXPECT_EQ(h, c.expected_h) << c.sw << "x" << c.sh;
        for (u8 v : out) EXPECT_EQ(v, 200);
    }
}

TEST(ImageResize, EnlargingSplitsPixelsByArea) {
    // Two pixels 0 and 255 to four: each half of the output covers one.
    u32 w = 4, h = 0;
    std::vector<u8> out = resize({0, 255}, 2, 1, &w, &h, 1);
    EXPECT_EQ(out, (std::vector<u8>{0, 0, 255, 255, 0, 0, 255, 255}));
    // Three to two: the middle source pixel is shared half and half.
    w = 2, h = 0;
    out = resize({0, 90, 180, 0, 90, 180, 0, 90, 180}, 3, 3, &w, &h, 1);
    ASSERT_EQ(h, 2u);
    EXPECT_EQ(out[0], 30); // (0 * 1 + 90 * 0.5) / 1.5
    EXPECT_EQ(out[1], 150); // (90 * 0.5 + 180) / 1.5
}

TEST(ImageResize, ErrorsAndSizeOnlyCalls) {
    u8 pixels[16] = {};
    u8 out[16] = {1, 2, 3};
    struct {
        u32 w, h, channels;
        u32 expected_error;
    } cases[] = {{0, 0, 1, 1}, {2, 0, 5, 2}, {2, 0, 0, 2}};
    for (auto c : cases) {
        u32 error = 0, w = c.w, h = c.h;
        image_resize(pixels, 4, 4, out, &w, &h, c.channels, false, 1.0f, &error);
        EXPECT_EQ(error, c.expected_error);
        EXPECT_EQ(out[0], 1) << "no pixel is written on an error";
    }
    // A set error stops the call.
    u32 error = 7, w = 2, h = 0;
    image_resize(pixels, 4, 4, out, &w, &h, 1, false, 1.0f, &error);
    EXPECT_EQ(error, 7u);
    EXPECT_EQ(h, 0u);
    // Channel count isn't checked when only the sizes are asked.
    error = 0, w = 2, h = 0;
    image_resize(nullptr, 4, 8, nullptr, &w, &h, 9, false, 1.0f, &error);
    EXPECT_EQ(error, 0u);
    EXPECT_EQ(h, 4u);
}

TEST(ImageResize, SwapAndGamma) {
    u32 w = 1, h = 0;
    std::vector<u8> pixel = {10, 20, 30, 40}, four(16);
    for (size_t i = 0; i < four.size(); ++i) four[i] = pixel[i % 4];
    std::vector<u8> out = resize(four, 2, 2, &w, &h, 4, true);
    EXPECT_EQ(out, (std::vector<u8>{30, 20, 10, 40}));
    // Gamma 2: 128 -> (128/255)^2 * 255 = 64.25 -> 64.
    w = 1, h = 0;
    EXPECT_EQ(resize({128}, 1, 1, &w, &h, 1, false, 2.0f), std::vector<u8>{64});
}

TEST(IconAtlas, AnIconThatFailsLeavesItsColumnEmpty) {
    static u8 mask[4 * 4];
    for (u8 &m : mask) m = 255;
    ui_icon_source_t icons[3] = {{mask, 4, 4, 2, 2}, {mask, 4, 4, 0, 0}, {mask, 4, 4, 2, 2}};
    ui_atlas_t atlas = ui_atlas_create(icons, 3, 1);
    EXPECT_EQ(atlas.width, 4u);
    vec4 uv = ui_atlas_uv(&atlas, 1);
    EXPECT_EQ(uv.x, 0.0f);
    EXPECT_EQ(uv.z, 0.0f);
    EXPECT_FLOAT_EQ(ui_atlas_uv(&atlas, 2).x, 0.5f);
    EXPECT_EQ(atlas.pixels[0], 255);
    EXPECT_EQ(atlas.pixels[3], 255);
}

} // namespace
