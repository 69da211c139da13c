// Widgets as frames of events through the headless window layer: the check
// box, the dropdown and its list, scroll bars and their steps, the wheel on a
// layout.
#include "ui_test_helpers.h"

#include <cmath>

using namespace ui_test;

namespace {

struct dropdown_t {
    std::vector<data_t> items;
    u64 selected;
    vec4 rect;
    ui_id_t id = ui_id_from_value(0x1234);
    ui_id_t row(u64 index) const { return ui_id_child(ui_id_child(id, ui_part_list), (i64)index + 1); }
};

struct widgets_test_t : ui_fixture_t {
    // A key pressed in this frame even when it was down in the last one.
    static std::vector<os_window_event_t> tap(u32 virtual_key) { return {key(virtual_key, false), key(virtual_key)}; }
    // A dropdown of one line's height at (10, 200); call() is its frame's widget call.
    dropdown_t dropdown(std::vector<data_t> items, u64 selected) {
        return {items, selected, vec4{10, 200, 150, 200 + ceilf(ui_dropdown_size(&ui, &ui_theme.dropdown, 0).y)}};
    }
    std::function<void()> call(dropdown_t &d) {
        return [&] { ui_dropdown(&ui, d.id, d.rect, d.items.data(), d.items.size(), &d.selected, 0); };
    }
};

TEST_F(widgets_test_t, ACheckBoxFlipsOnceAtTheRelease) {
    u32 value = 0;
    const vec4 rect = {10, 10, 120, 30};
    auto box = [&] { return ui_checkbox(&ui, ui_id(&value), rect, &value, data_literal("Show empty"), 0); };
    u32 changed = 0;
    frame({press(15, 20)}, [&] { changed = box(); });
    EXPECT_EQ(changed + value, 0u);
    frame({move(100, 20)}, [&] { changed = box(); }); // on the label: still on the box
    frame({release(100, 20)}, [&] { changed = box(); });
    EXPECT_EQ(changed, 1u);
    EXPECT_EQ(value, 1u);
}

TEST_F(widgets_test_t, AHugeLabelCostsItsWidthOnly) {
    std::string title(2 << 20, 'w');
    frame({}, [&] { ui_button(&ui, ui_id(), {10, 10, 210, 40}, data_t{title.size(), title.size(), (u8 *)title.data()}, 0); });
    EXPECT_LT(frame_memory.used, 8192u);
}

TEST_F(widgets_test_t, DropdownKeysWrapAndEnterChooses) {
    dropdown_t d = dropdown({data_literal("zero"), data_literal("one"), data_literal("two"), data_literal("three"),
                             data_literal("four")}, 2);
    auto call = this->call(d);

    frame({press(20, 205)}, call);
    ASSERT_TRUE(ui.popup_open);
    EXPECT_EQ(ui.popup_rect.w, d.rect.y - 1); // below the box
    EXPECT_TRUE(ui_is_active(&ui, d.row(2)));
    frame({release(20, 205)}, call); // the opening press's release chooses nothing
    EXPECT_TRUE(ui.popup_open);

    const struct {
        u32 key;
        u64 row;
    } keys[] = {{vk_down, 3}, {vk_down, 4}, {vk_down, 0}, {vk_up, 4}, {vk_up, 3}};
    for (const auto &k : keys) {
        frame(tap(k.key), call);
        EXPECT_TRUE(ui_is_active(&ui, d.row(k.row))) << "after key " << k.key;
    }
    frame(tap(vk_enter), call);
    EXPECT_EQ(d.selected, 3u);
    EXPECT_FALSE(ui.popup_open);
    EXPECT_FALSE(ui_any_active(&ui));
}

TEST_F(widgets_test_t, DropdownClicks) {
    dropdown_t d = dropdown({data_literal("zero"), data_literal("one"), data_literal("two")}, 0);
    auto call = this->call(d);
    const f32 item = ceilf(line_height() + 2);
    const i32 row_1 = (i32)(d.rect.y - 1 - 3 - item * 1.5f);

    // A press and release on a row choose it.
    frame({press(20, 205)}, call);
    frame({release(20, 205)}, call);
    frame({press(40, row_1)}, call);
    EXPECT_TRUE(ui_is_active(&ui, d.row(1)));
    EXPECT_EQ(d.selected, 0u);
    frame({release(40, row_1)}, call);
    EXPECT_EQ(d.selected, 1u);
    EXPECT_FALSE(ui.popup_open);

    // A press outside closes it without a choice; so does a press on the box.
    for (os_window_event_t closing : {press(300, 50), press(20, 205)}) {
        frame({press(20, 205)}, call);
        frame({release(20, 205)}, call);
        ASSERT_TRUE(ui.popup_open);
        frame({closing}, call);
        EXPECT_FALSE(ui.popup_open);
        EXPECT_FALSE(ui_any_active(&ui));
        frame({release(closing.x, window_height - 1 - closing.y)}, call);
        EXPECT_EQ(d.selected, 1u);
    }

    // A list whose dropdown is no longer called (its view closed) goes away
    // with the active it held.
    frame({press(20, 205)}, call);
    frame({release(20, 205)}, call);
    ASSERT_TRUE(ui.popup_open);
    frame({});
    frame({});
    EXPECT_FALSE(ui.popup_open);
    EXPECT_FALSE(ui_any_active(&ui));

    // Without items the list is its border and padding.
    dropdown_t empty = {{}, 0, d.rect, ui_id_from_value(0x5678)};
    frame({press(20, 205)}, this->call(empty));
    EXPECT_EQ(rect_height(ui.popup_rect), 6);
}

TEST_F(widgets_test_t, ALongListOpensOnTheSelectedRowInTheMiddle) {
    std::vector<std::string> names;
    for (int i = 0; i < 100; ++i) names.push_back("item " + std::to_string(i));
    dropdown_t d = dropdown({}, 50);
    for (const std::string &n : names) d.items.push_back(data_t{n.size(), n.size(), (u8 *)n.data()});
    auto call = this->call(d);
    frame({press(20, 205)}, call);
    ASSERT_TRUE(ui.popup_open);
    EXPECT_EQ(ui.popup_rect.y, 0); // cut by the screen below, still taller than above
    const f32 item = ceilf(line_height() + 2);
    f64 scroll = ui_state_get(&ui, d.id)->list.scroll;
    f32 inner_top = ui.popup_rect.w - 3, inner_middle = (ui.popup_rect.w + ui.popup_rect.y) * 0.5f;
    f32 row_middle = inner_top - (f32)(50 * item - scroll) - item * 0.5f;
    EXPECT_LE(std::fabs(row_middle - inner_middle), item);

    // The wheel scrolls the list three rows, a row boundary at the bottom.
    frame({release(20, 205), move(60, 100), wheel(-1)}, call);
    f64 after = ui_state_get(&ui, d.id)->list.scroll;
    EXPECT_NEAR(after - scroll, 3 * item, item);
    // Its bar lies at the list's right; a press on its lower button steps one row.
    frame({press((i32)ui.popup_rect.z - 5, 8)}, call);
    EXPECT_GT(ui_state_get(&ui, d.id)->list.scroll, after);
    frame({release((i32)ui.popup_rect.z - 5, 8)}, call);
    EXPECT_TRUE(ui.popup_open); // the end of a press on the bar chooses nothing
    EXPECT_EQ(d.selected, 50u);
}

TEST_F(widgets_test_t, ScrollBarParts) {
    // 200 high: two 16-pixel buttons, a track of 168, a thumb of 42, travel 126.
    const vec4 bar = {300, 50, 316, 250};
    ui_id_t id = ui_id();
    struct {
        f64 start;
        i32 y;
        f64 expected;
    } presses[] = {
        {100, 245, 80},  // top button: the top of the row above
        {100, 55, 120},  // bottom button: the page's bottom to the next row
        {100, 100, 200}, // the track below the thumb: a page down
        {100, 220, 0},   // above it: a page up
        {500, 245, 280}, // a value past the end is pulled back first
    };
    for (const auto &p : presses) {
        f64 value = p.start;
        f64 change = 0;
        frame({press(308, p.y)}, [&] { change = ui_scrollbar_vertical(&ui, id, bar, 100, 400, &value, 20); });
        frame({release(308, p.y)}, [&] { ui_scrollbar_vertical(&ui, id, bar, 100, 400, &value, 20); });
        EXPECT_EQ(value, p.expected) << "press at " << p.y;
        EXPECT_EQ(change, p.expected - p.start);
        EXPECT_FALSE(ui_any_active(&ui));
    }
}

TEST_F(widgets_test_t, TheThumbDraggedPastTheEndAndBack) {
    const vec4 bar = {300, 50, 316, 250};
    ui_id_t id = ui_id();
    struct {
        f64 content;
        std::vector<std::pair<os_window_event_t, f64>> steps;
    } rows[] = {
        {400,
         {{press(308, 220), 0},
          {move(308, 157), 150},  // 63 of 126 pixels of travel: half of 300
          {move(308, -40), 300},  // held at the end
          {move(308, 55), 300},   // over the lower button: still waits
          {move(308, 80), 300 - 25 * 300.0 / 126}, // over the track again: follows
          {release(308, 80), 300 - 25 * 300.0 / 126}}},
        // A thumb never below 16 pixels: the travel shrinks to 152.
        {1e6, {{press(308, 230), 0}, {move(308, 154), 76 * (1e6 - 100) / 152}, {release(308, 154), 76 * (1e6 - 100) / 152}}},
        // Content that fits: the thumb fills the track and nothing moves.
        {50, {{press(308, 200), 0}, {move(308, 100), 0}, {release(308, 100), 0}}},
    };
    for (const auto &r : rows) {
        f64 value = 0;
        for (const auto &[event, expected] : r.steps) {
            frame({event}, [&] { ui_scrollbar_vertical(&ui, id, bar, 100, r.content, &value, 20); });
            EXPECT_NEAR(value, expected, 1e-6 * (r.content > 1000 ? r.content : 1)) << "pointer at " << ui.mouse.y;
        }
        EXPECT_FALSE(ui_any_active(&ui));
    }
}

TEST_F(widgets_test_t, LayoutBarsAndTheWheel) {
    std::vector<std::string> lines;
    for (int i = 0; i < 60; ++i) lines.push_back("line " + std::to_string(i));
    vec2 scroll = {0, 0};
    const vec4 rect = {0, 0, 300, 200};
    bool had_bar = false;
    auto view = [&](size_t count) {
        layout_t layout = layout_create(ui.frame_memory, fonts(), rect, scroll.x, scroll.y, layout_margin_t{});
        while (layout_pass_start(&layout)) {
            ui_layout_scrollbars(&scroll, &ui, &layout, rect);
            if (layout_scroll_update(&layout, false)) continue;
            for (size_t i = 0; i < count; ++i) {
                layout_string(&layout, data_t{lines[i].size(), lines[i].size(), (u8 *)lines[i].data()});
                layout_new_line(&layout);
            }
            layout_finish(&layout);
            if (layout.state == layout_state_draw) had_bar = layout.has_vertical_bar;
        }
    };
    frame({move(100, 100)}, [&] { view(lines.size()); });
    EXPECT_TRUE(had_bar);
    frame({wheel(-1)}, [&] { view(lines.size()); });
    EXPECT_EQ(scroll.y, 60); // three steps of 20
    frame({wheel(1)}, [&] { view(lines.size()); });
    EXPECT_EQ(scroll.y, 0); // three rows back up
    // A press and release on the thumb leaves no hold: the wheel acts again.
    frame({press(292, 180)}, [&] { view(lines.size()); });
    EXPECT_TRUE(ui_any_active(&ui));
    frame({release(292, 180)}, [&] { view(lines.size()); });
    EXPECT_FALSE(ui_any_active(&ui));
    frame({move(100, 100), wheel(-1)}, [&] { view(lines.size()); });
    EXPECT_EQ(scroll.y, 60);
    frame({wheel(1)}, [&] { view(lines.size()); });
    frame({}, [&] { view(3); }); // content that shrank goes back to the top
    EXPECT_FALSE(had_bar);
    EXPECT_EQ(scroll.y, 0);
}

} // namespace
