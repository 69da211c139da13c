// Text layout on the application's sans face (found through fontconfig):
// widths and positions worked out from the glyph metrics, line breaking,
// the pass states and the replay check.
#include "toolkit/layout.h"

#include "gfx/fonts.h"
#include "ui_test_helpers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

struct layout_test_t : ::testing::Test {
    static inline font_set_t *set = nullptr;
    static inline data_t arena = {};
    static inline u32 kern_a = 0, kern_b = 0; // a pair the font's lookup kerns

    static void SetUpTestSuite() {
        set = ui_test::fonts();
        arena = data_virtual_alloc(0x1000000, 0);
        const font_t *f = font_get(set, 0);
        for (u32 a = 'A'; a <= 'z' && !kern_a; ++a)
            for (u32 b = 'A'; b <= 'z'; ++b)
                if (font_kerning(f, &f->glyphs[font_glyph_index(f, a)], b) != 0) {
                    kern_a = a, kern_b = b;
                    break;
                }
    }
    void SetUp() override {
        ASSERT_EQ(set->font_count, 4);
        arena.used = 0;
    }

    static const font_t *font() { return font_get(set, 0); }
    static const glyph_t *glyph(u32 c) { return &font()->glyphs[font_glyph_index(font(), c)]; }
    static f32 advance(u32 c) { return glyph(c)->advance; }
    static f32 bearing(u32 c) { return font_glyph(font(), c)->left; }
    static f32 kern(u32 a, u32 b) { return (f32)font_kerning(font(), glyph(a), b) * font()->scale; }
    static f32 h() { return font_line_height(font(), false); }
    static f32 g() { return (f32)font()->line_gap * font()->scale; }
    static f32 width(const std::string &s, u32 previous = code_point_none) {
        return layout_get_single_line_size(font(), (const u8 *)s.data(), s.size(), previous).x;
    }

    // One frame of passes over a box with no margins; body runs once a pass
    // after the scroll check and returns the pass's states.
    template <typename body_t>
    static std::vector<u32> frame(layout_t *l, body_t body, std::function<void(layout_t *)> input = {}) {
        std::vector<u32> states;
        while (layout_pass_start(l)) {
            states.push_back(l->state);
            if (l->state == layout_state_input && input) input(l);
            if (layout_scroll_update(l, false)) continue;
            body(l);
            layout_finish(l);
        }
        return states;
    }
    static layout_t make(f32 w, f32 hgt, f32 scroll_y = 0, layout_margin_t m = {}) {
        return layout_create(&arena, set, vec4{100, 50, 100 + w, 50 + hgt}, 0, scroll_y, m);
    }
    static std::string segment_text(const layout_segment_t &s) { return std::string((const char *)s.text, s.bytes); }
};

TEST_F(layout_test_t, FitSingleLine) {
    const std::string text = "Hello world";
    const std::string dots = "\xE2\x80\xA6";
    const f32 e = advance(0x2026), hello = width("Hello");
    struct row_t {
        f32 max_width;
        u32 flags;
        std::string out;
        f32 out_width;
    } rows[] = {
        {width(text) + 1, 0, text, width(text)},
        {hello + e + 0.5f, 0, "Hello" + dots, hello + e},
        {hello + 0.01f, layout_fit_no_ellipsis, "Hello", hello},
        {e - 0.1f, 0, "", 0}, // narrower than the ellipsis: nothing at all
    };
    for (const row_t &r : rows) {
        u8 storage[64];
        data_t out = {text.size() + 2, 0, storage}, in = {text.size(), text.size(), (u8 *)text.data()};
        vec2 size = {};
        u64 taken = layout_fit_single_line(font(), &in, code_point_none, r.max_width, &out, &size, r.flags);
        EXPECT_EQ(std::string((const char *)out.bytes, out.used), r.out) << r.max_width;
        EXPECT_EQ(taken, r.out.substr(0, r.out.find(dots)).size()) << r.max_width;
        EXPECT_FLOAT_EQ(size.x, r.out_width) << r.max_width;
        EXPECT_EQ(size.y, h());
    }
}

// Lines of one string in a line box: the segments of each line after the
// final walk, with their left edges.
TEST_F(layout_test_t, LineBreaking) {
    struct row_t {
        const char *name;
        std::string text;
        f32 line_width;
        u32 flags;
        std::vector<std::string> lines;
    } rows[] = {
        {"space at the edge starts the next line", "aaa bbb ccc", width("aaa bbb") + 1, 0, {"aaa bbb", " ccc"}},
        {"space at the edge dropped", "aaa bbb ccc", width("aaa bbb") + 1, layout_line_drop_break_space,
         {"aaa bbb", "ccc"}},
        {"word moves whole", "aaa bbb ccc", width("aaa bb"), 0, {"aaa ", "bbb ", "ccc"}},
        {"long word breaks at the edge", "aaaaaaa", width("aaaa") + 1, 0, {"aaaa", "aaa"}},
        {"anywhere", "aaa bbb", width("aaa b") + 0.5f, layout_line_break_anywhere, {"aaa b", "bb"}},
        {"CR LF is one break", "a\r\nb", 1000, 0, {"a", "b"}},
        {"LF CR are two", "a\n\rb", 1000, 0, {"a", "", "b"}},
        {"a character wider than the line is dropped", "ab", 1, 0, {"", "", ""}},
        {"Han breaks between characters", "中文中文中文", width("中文中") + 1, 0, {"中文中", "文中文"}},
        {"a full stop never starts a line", "中文。中", width("中文") + 1, 0, {"中", "文。", "中"}},
        {"Latin inside Han moves whole", "中文abc", width("中文a") + 1, 0, {"中文", "abc"}},
        {"Thai breaks between words", "ชาวประมงกลับบ้าน", width("ชาวประมง") + 1, 0, {"ชาวประมง", "กลับบ้าน"}},
    };
    for (const row_t &r : rows) {
        arena.used = 0;
        layout_t l = make(500, 400);
        layout_command_t *c = nullptr;
        frame(&l, [&](layout_t *p) {
            layout_set_line_box(p, 0, r.line_width, r.flags);
            c = layout_string_p(p, (const u8 *)r.text.data(), r.text.size());
        });
        // Lines from the top of the box down, one text per line.
        std::vector<std::string> lines(r.lines.size());
        for (u32 s = 0; s < c->string.segment_count; ++s) {
            const layout_segment_t &sg = c->string.segments[s];
            f32 line = (450 - sg.rect.w) / (h() + g());
            ASSERT_NEAR(line, roundf(line), 1e-3) << r.name;
            ASSERT_LT((size_t)line, lines.size()) << r.name;
            lines[(size_t)line] += segment_text(sg);
            if (s == 0 || c->string.segments[s - 1].rect.w != sg.rect.w) { // a line's first segment
                u32 first = 0, error = 0;
                u8 size = 0;
                utf8_decode(sg.text, sg.text + sg.bytes, &first, &size, &error);
                EXPECT_FLOAT_EQ(sg.rect.x, 100 - bearing(first)) << r.name;
            }
        }
        EXPECT_EQ(lines, r.lines) << r.name;
        EXPECT_FLOAT_EQ(l.content_height, r.lines.size() * h() + (r.lines.size() - 1) * g()) << r.name;
    }
}

// Two strings with only a colour change between them kern across the seam;
// a move between them doesn't.
TEST_F(layout_test_t, KerningAcrossColourPush) {
    const std::string a(1, (char)kern_a), b(1, (char)kern_b);
    for (bool with_move : {false, true}) {
        arena.used = 0;
        layout_t l = make(500, 400, 0, {4, 4, 4, 4});
        layout_command_t *first = nullptr, *second = nullptr;
        frame(&l, [&](layout_t *p) {
            first = layout_string_p(p, (const u8 *)a.data(), 1);
            if (with_move) layout_move(p, 0, 0, 0);
            layout_push_colour(p, vec4{1, 0, 0, 1});
            second = layout_string_p(p, (const u8 *)b.data(), 1);
            layout_pop_colour(p);
        });
        ASSERT_EQ(first->string.segment_count, 1u);
        ASSERT_EQ(second->string.segment_count, 1u);
        const vec4 r1 = first->string.segments[0].rect, r2 = second->string.segments[0].rect;
        EXPECT_FLOAT_EQ(r1.x, 104 - bearing(kern_a)); // the ink starts at the margin
        EXPECT_FLOAT_EQ(r1.z, 104 + advance(kern_a) - bearing(kern_a));
        EXPECT_FLOAT_EQ(r2.x, r1.z + (with_move ? 0 : kern(kern_a, kern_b))) << with_move;
        EXPECT_FLOAT_EQ(first->string.bounds.x, std::min(104.0f, r1.x)); // bounds pulled to the bearing
        EXPECT_FLOAT_EQ(r1.w, 450 - 4);
        EXPECT_FLOAT_EQ(r1.y, 450 - 4 - h());
    }
}

// A line of every pair of letters and a few code points outside the list
// (a tab, a CJK letter, invalid bytes) is as wide laid as measured alone:
// the layout's kerning agrees with the font's own lookup.
TEST_F(layout_test_t, LaidWidthIsTheMeasuredWidth) {
    std::string text = "\t\xE4\xB8\x80\xFF\xE2\x82\xAC\xE2\x80\xA6";
    for (char a = 'A'; a <= 'z'; ++a)
        for (char b = 'A'; b <= 'z'; ++b) text += std::string{a, b, '.'};
    layout_t l = make(500, 400);
    frame(&l, [&](layout_t *p) { layout_string_p(p, (const u8 *)text.data(), text.size()); });
    EXPECT_FLOAT_EQ(l.content_width, width(text));
}

// The states each pass of a frame runs in, for content that fits or needs a
// bar, with and without input that changes the recording.
TEST_F(layout_test_t, PassStates) {
    std::string tall, wide(200, 'w'), words;
    for (int i = 0; i < 40; ++i) tall += "line\n";
    for (int i = 0; i < 400; ++i) words += "a few words ";
    auto scroll = [](layout_t *l) { l->scroll_y += 20; };
    auto invalidate = [](layout_t *l) { layout_invalidate(l); };
    struct row_t {
        const char *name;
        const std::string &text;
        f32 width;
        std::function<void(layout_t *)> input;
        std::vector<u32> states;
        u32 vertical, horizontal;
        bool wrap = false; // lines break at the box's right edge
    } rows[] = {
        {"quiet", wide, 3000, {}, {0, 1, 3}, 0, 0},
        {"scrolled", wide, 3000, scroll, {0, 1, 2, 3}, 0, 0},
        {"invalidated", wide, 3000, invalidate, {0, 1, 2, 3}, 0, 0},
        {"tall", tall, 3000, {}, {0, 0, 1, 3}, 1, 0},
        {"tall, scrolled: the bar is taken back and comes again", tall, 3000, scroll, {0, 0, 1, 2, 2, 3}, 1, 0},
        {"wide", wide, 300, {}, {0, 0, 1, 3}, 0, 1},
        {"wrapped to the box, which a vertical bar narrows", words, 300, {}, {0, 0, 1, 3}, 1, 0, true},
    };
    for (const row_t &r : rows) {
        arena.used = 0;
        layout_t l = make(r.width, 200);
        auto states = frame(
            &l,
            [&](layout_t *p) {
                if (r.wrap) layout_set_line_box(p, 0, p->width, 0);
                for (size_t at = 0; at < r.text.size(); at += 60) // a string of many, as views make
                    layout_string_p(p, (const u8 *)r.text.data() + at, std::min<size_t>(60, r.text.size() - at));
            },
            r.input);
        EXPECT_EQ(states, r.states) << r.name;
        EXPECT_EQ(l.has_vertical_bar, r.vertical) << r.name;
        EXPECT_EQ(l.has_horizontal_bar, r.horizontal) << r.name;
        EXPECT_EQ(l.width, r.width - 16 * r.vertical) << r.name;
        EXPECT_EQ(l.y, 50 + 16 * r.horizontal) << r.name;
    }
}

// layout_end keeps the scroll inside the content, and only strings on the
// screen get segments, all of them inside the box.
TEST_F(layout_test_t, ScrollClampAndVisibleSegments) {
    std::vector<std::string> paragraphs;
    for (int i = 0; i < 200; ++i) paragraphs.push_back("Paragraph " + std::to_string(i) + " of some words.");
    for (u32 flags : {0u, (u32)layout_flag_keep_partial}) {
        for (f32 scroll : {0.0f, 1000.5f, 1e9f}) {
            arena.used = 0;
            layout_t l = make(400, 300, scroll, {4, 4, 4, 4});
            std::vector<layout_command_t *> strings;
            frame(&l, [&](layout_t *p) {
                strings.clear();
                layout_set_flags(p, flags);
                for (const std::string &s : paragraphs) {
                    strings.push_back(layout_string_p(p, (const u8 *)s.data(), s.size()));
                    layout_new_line(p);
                }
            });
            f32 end = l.content_height - l.height;
            EXPECT_EQ(l.scroll_y, scroll > end ? roundf(end) : roundf(scroll));
            for (layout_command_t *c : strings) {
                EXPECT_EQ(c->string.segment_count != 0, layout_command_visible(&l, c) &&
                                                            (flags || (c->string.bounds.y >= l.y &&
                                                                       c->string.bounds.w <= l.y + l.height)));
                for (u32 s = 0; s < c->string.segment_count; ++s) {
                    const vec4 &r = c->string.segments[s].rect;
                    EXPECT_TRUE(flags ? r.w > l.y && r.y < l.y + l.height : r.y >= l.y && r.w <= l.y + l.height);
                }
            }
        }
    }
}

// Whatever bytes a feed sends and however narrow the line: the passes end,
// every segment lies in its string's bounds and the final walk measures what
// the recording measured (both asserted inside).
TEST_F(layout_test_t, AnyBytesInAnyBox) {
    const std::string pieces[] = {"a", "W", " ", "\n", "\r", "\t", "\xE2\x82\xAC", "\xFF", "\xE2\x82", "\xF0\x9F\x98\x80",
                                  std::string(1, '\0'), "mmmmmmmmmmmm", "中文。", "مرحبا", "שלום", "नमस्ते",
                                  "\xCC\x81", "\xE2\x80\xAB", "\xE2\x80\xAC", "ไทย", "\xEF\xBF\xBF"};
    unsigned seed = 5;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    for (int round = 0; round < 1000; ++round) {
        std::vector<std::string> strings(1 + next(4));
        if (round == 0) strings[0] = std::string(300000, 'm'); // a word of a whole article, line after line
        std::vector<bool> colour(strings.size());
        for (size_t s = 0; s < strings.size(); ++s) {
            for (unsigned i = 0, n = next(40); i < n; ++i) strings[s] += pieces[next(array_count(pieces))];
            colour[s] = next(3) == 0;
        }
        const f32 line = round == 0 ? 100.0f : (f32)next(120) - 10, scroll = (f32)next(200) - 50;
        const u32 box_flags = round == 0 ? 0 : next(4), flags = next(16);
        arena.used = 0;
        layout_t l = make(60 + (f32)next(100), 40 + (f32)next(100), scroll, {2, 3, 4, 5});
        l.scroll_x = scroll;
        frame(&l, [&](layout_t *p) {
            layout_set_flags(p, flags);
            layout_set_line_box(p, 0, line, box_flags);
            for (size_t s = 0; s < strings.size(); ++s) {
                layout_string_p(p, (const u8 *)strings[s].data(), strings[s].size());
                if (colour[s]) layout_push_colour(p, vec4{1, 0, 0, 1});
            }
        });
        EXPECT_EQ(l.state, (u32)layout_state_done);
    }
}

// A run of a shaped script is measured as HarfBuzz shapes it: joined
// Arabic is narrower than its letters standing alone, and the layout, the
// single-line walk and the run's own width agree.
TEST_F(layout_test_t, ShapedRunsAreMeasuredShaped) {
    const std::string word = "مرحبا", letters[] = {"م", "ر", "ح", "ب", "ا"};
    f32 alone = 0;
    for (const std::string &l : letters) alone += width(l);
    const f32 joined = width(word);
    EXPECT_GT(joined, 10.0f);
    EXPECT_LT(joined, alone - 2.0f);
    EXPECT_FLOAT_EQ(joined, font_run_width(font(), (const u8 *)word.data(), word.size()));
    layout_t l = make(500, 400);
    layout_command_t *c = nullptr;
    frame(&l, [&](layout_t *p) { c = layout_string_p(p, (const u8 *)word.data(), word.size()); });
    ASSERT_EQ(c->string.segment_count, 1u);
    EXPECT_FLOAT_EQ(c->string.segments[0].rect.z - c->string.segments[0].rect.x, joined);
}

using layout_death_test_t = layout_test_t;

// A view whose calls differ between passes stops the program.
TEST_F(layout_death_test_t, ReplayThatLosesStepStops) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct row_t {
        std::function<void(layout_t *, bool)> body; // second: in a replay
        const char *message;
    } rows[] = {
        {[](layout_t *l, bool replay) { replay ? (void)layout_move(l, 1, 1, 0) : (void)layout_string_p(l, nullptr, 0); },
         "differ from its recording"},
        {[](layout_t *l, bool replay) {
             if (!replay) return;
             layout_finish(l);
             layout_new_line(l);
         },
         "more layout calls"},
        {[](layout_t *l, bool) { layout_finish(l); }, "layout_finish twice"},
    };
    for (const row_t &r : rows) {
        EXPECT_DEATH(
            {
                layout_t l = make(200, 100);
                while (layout_pass_start(&l)) {
                    if (layout_scroll_update(&l, false)) continue;
                    r.body(&l, !layout_is_recording(&l));
                    layout_finish(&l);
                }
            },
            r.message);
    }
}

} // namespace
