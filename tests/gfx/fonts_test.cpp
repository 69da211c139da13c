// Fonts and the glyph atlas on a real face found through fontconfig: the
// lookup rules (direct window, binary search, the replacement index),
// kerning as stored and as searched, and the packing of the atlas.
#include "gfx/fonts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <vector>

namespace {

struct font_fixture_t {
    data_t sans = {};
    data_t mono = {};
    std::vector<u32> list;
    code_point_list_t code_points = {};
    font_set_t set = {};

    explicit font_fixture_t(u32 extra = 0) {
        sans = font_file_load("Verdana", false);
        mono = font_file_load("Lucida Console", true);
        list.resize(2048);
        code_point_list_init(&code_points, list.data(), (u32)list.size());
        code_points.count = code_point_list_start_count;
        // More letters, appended unsorted at the end as the reader does.
        for (u32 c = 0x4FF; code_points.count < code_point_list_start_count + extra && c >= 0x100; --c) {
            u32 *end = list.data() + code_points.count;
            if (std::find(list.data(), end, c) == end) list[code_points.count++] = c;
        }
        data_t memory = data_virtual_alloc(0x500000, 0);
        font_set_create_application(&set, memory, &sans, &mono, &code_points);
    }
};

TEST(Fonts, TheApplicationFontsAreFound) {
    font_fixture_t f;
    ASSERT_NE(f.sans.bytes, nullptr) << "no sans face at all: install fonts-dejavu-core";
    ASSERT_NE(f.mono.bytes, nullptr);
    ASSERT_EQ(f.set.font_count, 4);
    EXPECT_EQ(font_get(&f.set, 3)->monospaced, 1u);
    font_metrics_t m = font_metrics(&f.set, 4); // no such font: all zero
    EXPECT_EQ(m.index + m.line_height + m.descent, 0.0f);
}

TEST(Fonts, LookupRules) {
    font_fixture_t f;
    ASSERT_EQ(f.set.font_count, 4);
    const font_t *font = font_get(&f.set, 0);
    ASSERT_EQ(font->count, 193u);
    EXPECT_TRUE(std::is_sorted(font->code_points, font->code_points + font->count));
    struct {
        u32 code_point;
        u32 index;
    } cases[] = {
        {0x20, 0},       {'A', 'A' - 0x20}, {0x7E, 94},   {0xA0, 95},
        {0xFF, 182},     {0x152, 183},      {0x2026, 190}, {0x20AC, 191},
        {0xFFFD, 192},   // found like any other
        {0x416, 191},    // not in the list, beyond the window: the replacement index, the euro sign here
        {0x09, 191},     // below the lowest code point: searched, not found
        {0xA4, 0},       // inside the direct window but not in the list: 0
        {0x10FFFF, 191},
    };
    for (auto c : cases) EXPECT_EQ(font_glyph_index(font, c.code_point), c.index) << std::hex << c.code_point;
}

TEST(Fonts, KerningSearchesTheHeadOfTheFontsPairs) {
    u32 pairs[] = {'V', (u32)-50, 'T', (u32)-30, 'A', (u32)-20};
    font_t font = {};
    font.kerning = pairs;
    glyph_t none = {}, two = {}, three = {};
    two.kerning_count = 2;
    three.kerning_count = 3;
    EXPECT_EQ(font_kerning(&font, &none, 'V'), 0);
    EXPECT_EQ(font_kerning(&font, &two, 'T'), -30);
    EXPECT_EQ(font_kerning(&font, &two, 'A'), 0) << "only the first two pairs are seen";
    EXPECT_EQ(font_kerning(&font, &three, 'A'), -20);
}

// Every glyph box lies in the atlas, no two overlap, and the ink of a glyph
// sits inside its own box (the rows were turned over with the boxes).
void check_atlas(font_set_t *set) {
    ASSERT_NE(set->atlas.bytes, nullptr);
    u32 w = set->atlas_width, h = set->atlas_height;
    EXPECT_TRUE(w == h || w == 2 * h) << w << "x" << h;
    EXPECT_EQ(w & (w - 1), 0u);
    // Code points the face lacks all share the box of its missing-glyph shape.
    std::set<std::array<u32, 4>> boxes; // x0, y0, x1, y1
    for (u32 f = 0; f < set->font_count; ++f) {
        const font_t *font = &set->fonts[f];
        for (u32 i = 0; i < font->count; ++i) {
            const glyph_t &g = font->glyphs[i];
            ASSERT_TRUE(g.x0 <= g.x1 && g.y0 <= g.y1 && g.x1 <= w && g.y1 <= h) << f << " " << i;
            if (g.x1 > g.x0) boxes.insert({g.x0, g.y0, g.x1, g.y1});
        }
    }
    for (auto i = boxes.begin(); i != boxes.end(); ++i)
        for (auto j = std::next(i); j != boxes.end() && (*j)[0] < (*i)[2]; ++j)
            ASSERT_FALSE((*j)[1] < (*i)[3] && (*i)[1] < (*j)[3])
                << "boxes overlap: " << (*i)[0] << "," << (*i)[1] << " and " << (*j)[0] << "," << (*j)[1];
    // 'I' of font 2: a vertical bar whose ink lies in its box, and the rows
    // just outside the box are empty.
    const font_t *font = &set->fonts[2];
    const glyph_t &g = font->glyphs[font_glyph_index(font, 'I')];
    u32 ink = 0;
    for (u32 y = g.y0; y < g.y1; ++y)
        for (u32 x = g.x0; x < g.x1; ++x) ink += set->atlas.bytes[y * w + x] > 128;
    EXPECT_GT(ink, (g.y1 - g.y0) * 2u);
    if (g.y1 < h)
        for (u32 x = g.x0; x < g.x1; ++x) EXPECT_EQ(set->atlas.bytes[g.y1 * w + x], 0);
    EXPECT_GT(g.top, 10.0f);
    EXPECT_LE(g.bottom, 1.0f);
}

TEST(Fonts, AtlasOf1023CodePointsInFourFonts) {
    font_fixture_t f(font_max_code_points - code_point_list_start_count);
    ASSERT_EQ(font_get(&f.set, 0)->count, 1023u);
    check_atlas(&f.set);
    EXPECT_GE((u32)f.set.atlas_width * f.set.atlas_height, 1024u * 1024u);
}

TEST(Fonts, RebuildSortsTheGrownListAndFindsTheNewLetters) {
    font_fixture_t f;
    font_t *font = font_get(&f.set, 0);
    EXPECT_EQ(font_glyph_index(font, 0x416), 191u);
    f.list[f.code_points.count++] = 0x416; // as the reader appends: unsorted at the end
    f.list[f.code_points.count++] = 0x41;  // must not happen, but a duplicate mustn't break anything
    f.code_points.count--;
    font_set_rebuild(&f.set, &f.code_points);
    font = font_get(&f.set, 0);
    EXPECT_EQ(font->count, 194u);
    EXPECT_EQ(font_glyph_index(font, 0x416), 190u); // after U+017E, before U+2026
    EXPECT_EQ(font_glyph_index(font, 0xFFFD), 193u);
    EXPECT_EQ(f.list[190], 0x416u);
    for (u32 i = 0; i < f.set.font_count; ++i) EXPECT_EQ(f.set.fonts[i].count, 194u);
    check_atlas(&f.set);
}

} // namespace
