// Ids, hot and active, the popup and the pair, driven as frames of events
// through the headless window layer.
#include "ui_test_helpers.h"

using namespace ui_test;

namespace {

const vec4 button_a = {10, 10, 110, 40};
const vec4 button_b = {60, 10, 160, 40};
const data_t label = data_literal("A");

TEST(UiId, Paths) {
    ui_id_t a = ui_id_from_value(7), a1 = ui_id_child(a, -1), a13 = ui_id_child(a1, 3), a2 = ui_id_child(a, -2);
    ui_id_t b = ui_id_from_value(8);
    struct {
        ui_id_t id, other;
        bool starts_with, is_child, is_sibling;
    } rows[] = {
        {a13, a1, true, true, false}, {a13, a, true, false, false}, {a1, a13, false, false, false},
        {a1, a1, true, false, true},  {a1, a2, false, false, true}, {a1, b, false, false, false},
        {a, ui_id_t{}, false, false, false},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(ui_id_starts_with(r.id, r.other), r.starts_with);
        EXPECT_EQ(ui_id_is_child(r.other, r.id), r.is_child);
        EXPECT_EQ(ui_id_is_sibling(r.id, r.other), r.is_sibling);
    }

    // One constant per call site: a loop's site gives the same id each time,
    // two sites on one line give two.
    ui_id_t ids[2];
    for (ui_id_t &id : ids) id = ui_id();
    EXPECT_TRUE(ui_id_equal(ids[0], ids[1]));
    EXPECT_FALSE(ui_id_equal(ui_id(), ui_id()));

    ui_id_t full = ui_id_child(a13, 4);
    EXPECT_DEATH(ui_id_child(full, 5), "four slots");
}

struct ui_state_test_t : ui_fixture_t {};

TEST_F(ui_state_test_t, AClickIsAPressAndAReleaseOnTheButton) {
    struct {
        std::vector<std::vector<os_window_event_t>> frames;
        std::string clicks;
    } rows[] = {
        {{{press(50, 20)}, {release(50, 20)}}, "01"},
        {{{press(50, 20), release(50, 20)}}, "1"}, // a tap: both halves in one frame
        {{{press(50, 20)}, {move(200, 200)}, {release(200, 200)}}, "000"},
        {{{press(200, 200)}, {move(50, 20)}, {release(50, 20)}}, "000"},
        {{{press(50, 20)}, {move(200, 200)}, {move(50, 20)}, {release(50, 20)}}, "0001"},
    };
    for (const auto &r : rows) {
        std::string clicks;
        for (const auto &events : r.frames)
            frame(events, [&] { clicks += "01"[ui_button(&ui, ui_id(), button_a, label, 0)]; });
        EXPECT_EQ(clicks, r.clicks);
        EXPECT_FALSE(ui_any_active(&ui));
    }
}

TEST_F(ui_state_test_t, WhoBecomesHot) {
    ui_id_t a = ui_id(), b = ui_id();
    // Overlapping widgets: the later call, the one on top, wins.
    frame({move(80, 20)}, [&] {
        ui_button(&ui, a, button_a, label, 0);
        ui_button(&ui, b, button_b, label, 0);
    });
    EXPECT_TRUE(ui_is_hot(&ui, b));

    // Under an open popup nothing exists for the pointer.
    frame({}, [&] {
        ui_popup_open(&ui, ui_id_from_value(99), vec4{50, 0, 200, 100});
        ui_button(&ui, a, button_a, label, 0);
    });
    EXPECT_TRUE(ui_id_is_empty(ui.hot));
    ui_popup_close(&ui);

    // A widget clipped away does nothing at all, even under a press.
    frame({press(80, 20)}, [&] {
        ui_set_clip(&ui, vec4{200, 200, 300, 300});
        EXPECT_EQ(ui_button(&ui, a, button_a, label, 0), 0u);
    });
    EXPECT_TRUE(ui_id_is_empty(ui.hot));
    EXPECT_FALSE(ui_any_active(&ui));
    frame({release(80, 20)});

    // While a scroll bar's thumb is dragged, a button under the pointer stays cold.
    f64 value = 0;
    ui_id_t bar = ui_id();
    auto both = [&] {
        ui_scrollbar_vertical(&ui, bar, vec4{300, 50, 316, 250}, 100, 400, &value, 20);
        ui_button(&ui, a, button_a, label, 0);
    };
    frame({press(308, 240)}, both);
    EXPECT_TRUE(ui_id_starts_with(ui.active, bar));
    frame({move(50, 20)}, both);
    EXPECT_FALSE(ui_is_hot(&ui, a));
    frame({release(50, 20)}, both);
    EXPECT_FALSE(ui_any_active(&ui));

    // An active text field is modal: a button still becomes hot, and a press takes over.
    u8 bytes[16];
    data_t text = {sizeof(bytes), 0, bytes};
    ui_id_t field = ui_id();
    auto field_and_button = [&] {
        ui_text_edit(&ui, field, vec4{10, 100, 200, 130}, &text, 0);
        ui_button(&ui, a, button_a, label, 0);
    };
    frame({press(50, 110)}, field_and_button);
    frame({release(50, 110)}, field_and_button);
    EXPECT_TRUE(ui_is_active(&ui, field));
    frame({move(50, 20)}, field_and_button);
    EXPECT_TRUE(ui_is_hot(&ui, a));
    frame({press(50, 20)}, field_and_button);
    EXPECT_TRUE(ui_is_active(&ui, a));
}

TEST_F(ui_state_test_t, AFractionalRectangleStopsTheProgram) {
    frame({});
    EXPECT_DEATH(ui_button(&ui, ui_id(), vec4{10.5f, 10, 110, 40}, label, 0), "whole pixels");
}

TEST_F(ui_state_test_t, DraggingTheDivider) {
    // Side by side over the window: the divider is 8 pixels from x = 102.
    ui_pair_t pair = ui_pair_make(ui_spacing_t{2, 2, 2, 4}, ui_spacing_t{2, 2, 4, 2}, 100, false);
    const vec4 screen = {0, 0, (f32)window_width, (f32)window_height};
    ui_id_t id = ui_id();
    void *shown = nullptr;
    auto run = [&] {
        ui_pair_update(&ui, id, &pair, screen, true);
        ui_pair_draw(&ui, id, &pair, ui_spacing_t{2, 2, -3, -3});
        ui_apply_cursor(&ui);
        shown = os_cursor_set(window.cursors[0]);
    };
    struct {
        os_window_event_t event;
        f32 size;
        bool active;
        u32 cursor;
    } steps[] = {
        {move(50, 100), 100, false, cursor_arrow},
        {move(105, 100), 100, false, cursor_resize_west_east},
        {press(105, 100), 100, true, cursor_resize_west_east},
        {move(135, 90), 130, true, cursor_resize_west_east},
        {move(-60, 90), 0, true, cursor_arrow},           // held at 0; no cursor outside the window
        {move(0, 90), 0, true, cursor_resize_west_east},  // left of the divider: it waits
        {move(6, 90), 0, true, cursor_resize_west_east},  // coming from its wrong side: still waits
        {move(16, 90), 10, true, cursor_resize_west_east}, // from its low edge on: it follows
        {move(900, 90), 390, true, cursor_arrow},          // 400 less the divider and the outer margin
        {release(300, 90), 390, false, cursor_arrow},
    };
    for (const auto &s : steps) {
        frame({s.event}, run);
        EXPECT_EQ(pair.size, s.size);
        EXPECT_EQ(ui_is_active(&ui, id), s.active);
        EXPECT_EQ(shown, window.cursors[s.cursor]) << "pointer at " << ui.mouse.x;
    }
    EXPECT_EQ(pair.first_rect.x, 2);
    EXPECT_EQ(pair.first_rect.z, 392);
    EXPECT_EQ(pair.second_rect.x, 400);
}

} // namespace
