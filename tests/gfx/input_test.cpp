// The input state of a frame, driven through the pump with events of the
// headless window layer: key state bytes across pumps, the side-specific
// modifier keys, Alt+F4, typed text, buttons, wheel and focus.
#include "gfx/window.h"
#include "os/os_window.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

os_window_event_t event(u32 kind, i32 x = 0, i32 y = 0) { return {kind, 0, 0, 0, 0, x, y}; }
os_window_event_t wheel_event(f32 notches) { return {os_input_wheel, 0, 0, 0, 0, 0, 0, notches}; }

os_window_event_t key_event(u32 virtual_key, bool down, u32 scan = 0, u32 flags = 0) {
    return {os_input_key, virtual_key, scan, flags | (down ? (u32)os_key_down : 0u)};
}

os_window_event_t button_event(u32 button, bool down, i32 x, i32 y) { // y from the top
    return {os_input_button, 0, 0, down ? (u32)os_key_down : 0u, button, x, y};
}

void push(const os_window_event_t &e) { os_window_headless_push(&e); }

os_window_event_t text_event(const std::string &text) {
    os_window_event_t e = event(os_input_text);
    e.text_size = (u32)text.size();
    for (size_t i = 0; i < text.size() && i < sizeof(e.text); ++i) e.text[i] = (u8)text[i];
    return e;
}

struct input_fixture_t : ::testing::Test {
    window_t window = {};
    void SetUp() override {
        data_t title = data_literal("input");
        window_create(&window, &title, 400, 300, window_centred, window_centred, 0);
        ASSERT_EQ(window.running, 1u);
        pump(); // whatever an earlier test left queued
    }
    void pump() { window_handle_messages(&window, 0); }
    // One frame: the events queued, then the pump.
    void step(std::initializer_list<os_window_event_t> events) {
        for (const os_window_event_t &e : events) push(e);
        pump();
    }
    // down, went down, went up, went down or repeated
    std::string queries(u32 key) {
        return std::string() + "01"[key_is_down(&window, key)] + "01"[key_went_down(&window, key)] +
               "01"[key_went_up(&window, key)] + "01"[key_went_down_or_repeated(&window, key)];
    }
    std::string typed() { return std::string((char *)window.text_utf8, window.text_bytes); }
};

TEST_F(input_fixture_t, AKeyHeldAcrossFrames) {
    struct {
        std::vector<os_window_event_t> events;
        const char *queries;
        u32 transitions;
    } frames[] = {
        {{key_event(0x41, true)}, "1101", 1},
        // Auto-repeat: no new transition, only the repeat bit.
        {{key_event(0x41, true, 0, os_key_repeat), key_event(0x41, true, 0, os_key_repeat)}, "1001", 0},
        {{}, "1000", 0}, // a frame without messages keeps only the down bit
        {{key_event(0x41, false)}, "0010", 1},
        {{}, "0000", 0},
    };
    for (const auto &f : frames) {
        for (const os_window_event_t &e : f.events) push(e);
        pump();
        EXPECT_EQ(queries(key_a), f.queries);
        EXPECT_EQ(key_transitions(&window, key_a), f.transitions);
    }
}

TEST_F(input_fixture_t, PressAndReleaseInOnePumpCountsTwoTransitions) {
    for (int taps : {1, 3}) {
        for (int i = 0; i < taps; ++i) push(key_event(0x20, true, 0x39)), push(key_event(0x20, false, 0x39));
        pump();
        EXPECT_EQ(queries(key_space), "0010");
        EXPECT_EQ(key_transitions(&window, key_space), 2u * taps);
    }
    // Print Screen sends only its release: it still counts.
    step({key_event(0x2C, false, 0x37, os_key_extended)});
    EXPECT_EQ(queries(key_print_screen), "0010");
}

TEST_F(input_fixture_t, GenericModifiersAlsoWriteTheirSide) {
    struct {
        u32 virtual_key, scan, flags, generic, side, other_side;
    } cases[] = {
        {0x10, 42, 0, key_shift, key_left_shift, key_right_shift},
        {0x10, 54, 0, key_shift, key_right_shift, key_left_shift},
        {0x11, 29, 0, key_control, key_left_control, key_right_control},
        {0x11, 29, os_key_extended, key_control, key_right_control, key_left_control},
        {0x12, 56, os_key_system, key_alt, key_left_alt, key_right_alt},
        {0x12, 56, os_key_system | os_key_extended, key_alt, key_right_alt, key_left_alt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "virtual key " << c.virtual_key << " flags " << c.flags);
        step({key_event(c.virtual_key, true, c.scan, c.flags)});
        EXPECT_EQ(queries(c.generic), "1101");
        EXPECT_EQ(window.keys[c.side], window.keys[c.generic]);
        EXPECT_EQ(window.keys[c.other_side], 0);
        step({key_event(c.virtual_key, false, c.scan, c.flags & ~(u32)os_key_system)});
        EXPECT_EQ(queries(c.side), "0010");
        pump();
    }
}

TEST_F(input_fixture_t, CloseRequests) {
    struct {
        const char *what;
        os_window_event_t event;
        u32 closing;
    } cases[] = {
        {"F4 with Alt", key_event(0x73, true, 0x3E, os_key_system), 1},
        {"F4 alone", key_event(0x73, true, 0x3E, 0), 0},
        {"release of Alt+F4", key_event(0x73, false, 0x3E, os_key_system), 0},
        {"window close", event(os_input_close), 1},
        {"quit (SIGTERM, SIGINT)", event(os_input_quit), 1},
        {"wake from a worker", event(os_input_wake), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        window.closing = 0;
        step({c.event});
        EXPECT_EQ(window.closing, c.closing);
        EXPECT_EQ(window.running, 1u); // only the frame loop clears it
    }
}

TEST_F(input_fixture_t, TypedText) {
    // a, e acute; an emoji of 4 bytes; invalid bytes are skipped, control
    // characters arrive as text.
    step({text_event("a\xC3\xA9"), text_event("\xF0\x9F\x98\x80"), text_event("\xFF\r")});
    ASSERT_EQ(window.text_count, 4u);
    EXPECT_EQ(std::vector<u32>(window.text_code_points, window.text_code_points + 4),
              (std::vector<u32>{0x61, 0xE9, 0x1F600, 13}));
    EXPECT_EQ(std::string((char *)window.text_sizes, 4), std::string("\1\2\4\1"));
    EXPECT_EQ(typed(), "a\xC3\xA9\xF0\x9F\x98\x80\r");
    // The next pump starts empty.
    pump();
    EXPECT_EQ(window.text_count, 0u);
    EXPECT_EQ(window.text_bytes, 0u);

    // A burst keeps the 32 first characters.
    std::string all;
    for (int i = 0; i < 40; ++i) {
        std::string one(1, (char)('A' + i % 26));
        push(text_event(one));
        if (i < 32) all += one;
    }
    pump();
    EXPECT_EQ(window.text_count, 32u);
    EXPECT_EQ(typed(), all);
    // 32 four-byte code points fill the 128 bytes exactly.
    for (int i = 0; i < 33; ++i) push(text_event("\xF0\x9F\x98\x80"));
    pump();
    EXPECT_EQ(window.text_count, 32u);
    EXPECT_EQ(window.text_bytes, 128u);
}

TEST_F(input_fixture_t, ButtonsWheelAndPointer) {
    step({button_event(1, true, 10, 20), wheel_event(2), wheel_event(-1)}); // the last wheel of a pump counts
    EXPECT_EQ(queries(key_left_button), "1101");
    EXPECT_EQ(window.mouse_x, 10);
    EXPECT_EQ(window.mouse_y, window.height - 1 - 20);
    EXPECT_EQ(window.wheel, -1.0f);

    step({button_event(1, false, 30, 0)});
    EXPECT_EQ(queries(key_left_button), "0010");
    EXPECT_EQ(window.mouse_y, window.height - 1);
    EXPECT_EQ(window.wheel, 0.0f);

    // Side buttons are keys 4 and 5; out-of-range buttons are ignored.
    step({button_event(5, true, 30, 0), button_event(9, true, 30, 0)});
    EXPECT_EQ(queries(key_x2_button), "1101");
}

TEST_F(input_fixture_t, FocusLostAndGained) {
    // Losing focus releases held keys.
    step({key_event(0x42, true), event(os_input_mouse_move, -5, -5), button_event(1, true, -5, -5)});
    ASSERT_TRUE(key_is_down(&window, key_b));
    step({event(os_input_focus_lost)});
    EXPECT_EQ(queries(key_b), "0010");
    EXPECT_EQ(queries(key_left_button), "0010");
    EXPECT_EQ(window.focus_seen, 1u);
    // Gaining it reads the keys of this moment: the layer still believes B
    // is down (its own record of the events), but the pointer lies outside
    // the client area, so mouse keys read up.
    step({event(os_input_focus_gained)});
    EXPECT_EQ(window.keys[key_b], 1);           // down, no transitions
    EXPECT_EQ(window.keys[key_left_button], 0); // outside: up
    EXPECT_EQ(window.focus_seen, 1u);
    step({key_event(0x42, false)});
}

} // namespace
