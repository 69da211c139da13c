// Fonts and the glyph atlas on real faces found through fontconfig: the
// lookup rules of the start list, kerning as stored and as searched, the
// packing of the start glyphs, and the store of glyphs on demand.
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
    font_set_t set = {};

    font_fixture_t() {
        sans = font_file_load_sans();
        mono = font_file_load_mono();
        data_t memory = data_virtual_alloc(0x500000, 0);
        font_set_create_application(&set, memory, &sans, &mono);
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
        {0x416, font_glyph_none}, // beyond the window: a glyph on demand
        {0x09, font_glyph_none},  // below the lowest code point
        {0xA4, font_glyph_none},  // inside the direct window but not in the list
        {0x10FFFF, font_glyph_none},
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
    EXPECT_EQ(w, h);
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

TEST(Fonts, StartGlyphsArePackedAtTheBottomOfTheAtlas) {
    font_fixture_t f;
    check_atlas(&f.set);
    EXPECT_GT(f.set.static_height, 0u);
    EXPECT_LE(f.set.static_height, 1024u);
}

// Characters beyond the start list: a glyph from the face or a fallback,
// never a stop; many more distinct ones than the atlas holds are drawn by
// emptying it, with the store's memory bounded.
TEST(Fonts, GlyphsOnDemandForAnyNumberOfCharacters) {
    font_fixture_t f;
    const font_t *font = font_get(&f.set, 0);
    const glyph_t *zhe = font_glyph(font, 0x416);
    EXPECT_GT(zhe->advance, 5.0f);
    EXPECT_EQ(zhe->kerning_count, 0u);
    const glyph_t *drawn = font_glyph_drawn(font, 0x416);
    EXPECT_EQ(drawn->advance, zhe->advance);
    EXPECT_GT(drawn->x1, drawn->x0);
    EXPECT_GE(drawn->y0, f.set.static_height) << "glyphs on demand stand above the start glyphs";
    // Controls and unassigned code points get a glyph too (the box).
    for (u32 c : {0x09u, 0x7Fu, 0xD800u, 0x10FFFFu, 0xE0000u}) EXPECT_GT(font_glyph(font, c)->advance, 0.0f) << c;

    u64 memory_before = 0;
    for (u32 c = 0x4E00; c < 0x4E00 + 20000; ++c) {
        for (u32 k = 0; k < f.set.font_count; ++k) {
            font_t *fk = font_get(&f.set, k);
            const glyph_t *g = font_glyph_drawn(fk, c);
            ASSERT_GT(g->advance, 0.0f);
            if (font_set_atlas_overflowed(&f.set)) font_set_atlas_evict(&f.set);
        }
        if (c == 0x4E00 + 1000) memory_before = font_set_store_stats(&f.set).memory;
    }
    font_store_stats_t stats = font_set_store_stats(&f.set);
    EXPECT_GT(stats.evictions, 0u);
    EXPECT_LT(stats.memory, 100ull << 20);
    EXPECT_LT(stats.memory - memory_before, 8ull << 20) << "the store does not grow with the characters";
    // The atlas still has the start glyphs after all that.
    check_atlas(&f.set);
}

// An Arabic sentence with a Latin word and a number reads right to left,
// the word and the number each keeping their own order.
TEST(Fonts, MixedDirectionOrder) {
    // Logical: two Arabic letters, space, "ab", space, "12". The number
    // follows a Latin word, so it joins its stretch.
    const u32 text[] = {0x645, 0x631, ' ', 'a', 'b', ' ', '1', '2'};
    u8 levels[8];
    EXPECT_EQ(font_bidi_levels(text, 8, levels), 1);
    u32 order[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    font_bidi_reorder(levels, 8, order);
    const u32 expected[] = {3, 4, 5, 6, 7, 2, 1, 0}; // "ab 12" is one left-to-right stretch
    EXPECT_TRUE(std::equal(order, order + 8, expected));
    // A Latin paragraph stays in order; bidi controls nested far too deep
    // are taken as far as the algorithm goes, never a stop.
    const u32 latin[] = {'a', ' ', 0x5D0, 0x5D1, ' ', 'b'};
    EXPECT_EQ(font_bidi_levels(latin, 6, levels), 0);
    std::vector<u32> nested(400, 0x202B);
    nested.push_back(0x5D0);
    std::vector<u8> deep(nested.size());
    font_bidi_levels(nested.data(), (u32)nested.size(), deep.data());
    std::vector<u32> deep_order(nested.size());
    for (u32 i = 0; i < deep_order.size(); ++i) deep_order[i] = i;
    font_bidi_reorder(deep.data(), (u32)deep.size(), deep_order.data());
}

} // namespace
