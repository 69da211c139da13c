// The input state of a frame, driven through the pump with events of the
// headless window layer: key state bytes across pumps, the side-specific
// modifier keys, Alt+F4, typed text, buttons, wheel, focus and size changes.
#include "gfx/window.h"
#include "os/os_window.h"

#include <gtest/gtest.h>

#include <string>

namespace {

os_window_event_t key_event(u32 virtual_key, bool down, u32 scan = 0, u32 flags = 0) {
    os_window_event_t e = {};
    e.kind = os_input_key;
    e.virtual_key = virtual_key;
    e.scan_code = scan;
    e.flags = flags | (down ? (u32)os_key_down : 0u);
    return e;
}

os_window_event_t text_event(const std::string &text) {
    os_window_event_t e = {};
    e.kind = os_input_text;
    e.text_size = (u32)text.size();
    for (size_t i = 0; i < text.size() && i < sizeof(e.text); ++i) e.text[i] = (u8)text[i];
    return e;
}

os_window_event_t simple_event(u32 kind) {
    os_window_event_t e = {};
    e.kind = kind;
    return e;
}

void push(const os_window_event_t &e) { os_window_headless_push(&e); }

struct input_fixture_t : ::testing::Test {
    window_t window = {};
    void SetUp() override {
        data_t title = data_literal("input");
        window_create(&window, &title, 400, 300, window_centred, window_centred, 0);
        ASSERT_EQ(window.running, 1u);
        pump(); // whatever an earlier test left queued
    }
    void pump() { window_handle_messages(&window, 0); }
    // down, went down, went up, went down or repeated
    std::string queries(u32 key) {
        std::string s;
        s += key_is_down(&window, key) ? '1' : '0';
        s += key_went_down(&window, key) ? '1' : '0';
        s += key_went_up(&window, key) ? '1' : '0';
        s += key_went_down_or_repeated(&window, key) ? '1' : '0';
        return s;
    }
};

TEST_F(input_fixture_t, AKeyHeldAcrossFrames) {
    push(key_event(0x41, true));
    pump();
    EXPECT_EQ(queries(key_a), "1101");
    EXPECT_EQ(key_transitions(&window, key_a), 1u);

    // Auto-repeat: no new transition, only the repeat bit.
    push(key_event(0x41, true, 0, os_key_repeat));
    push(key_event(0x41, true, 0, os_key_repeat));
    pump();
    EXPECT_EQ(queries(key_a), "1001");
    EXPECT_EQ(key_transitions(&window, key_a), 0u);

    // A frame without messages keeps only the down bit.
    pump();
    EXPECT_EQ(queries(key_a), "1000");

    push(key_event(0x41, false));
    pump();
    EXPECT_EQ(queries(key_a), "0010");
    pump();
    EXPECT_EQ(queries(key_a), "0000");
}

TEST_F(input_fixture_t, PressAndReleaseInOnePumpCountsTwoTransitions) {
    push(key_event(0x20, true, 0x39));
    push(key_event(0x20, false, 0x39));
    pump();
    EXPECT_EQ(window.keys[key_space], 2 << 2);
    EXPECT_EQ(queries(key_space), "0010");

    // Three taps in one pump: six transitions, ending up.
    for (int i = 0; i < 3; ++i) {
        push(key_event(0x20, true, 0x39));
        push(key_event(0x20, false, 0x39));
    }
    pump();
    EXPECT_EQ(key_transitions(&window, key_space), 6u);
}

TEST_F(input_fixture_t, PrintScreenCountsItsLoneRelease) {
    push(key_event(0x2C, false, 0x37, os_key_extended));
    pump();
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
        push(key_event(c.virtual_key, true, c.scan, c.flags));
        pump();
        EXPECT_EQ(queries(c.generic), "1101");
        EXPECT_EQ(window.keys[c.side], window.keys[c.generic]);
        EXPECT_EQ(window.keys[c.other_side], 0);
        push(key_event(c.virtual_key, false, c.scan, c.flags & ~(u32)os_key_system));
        pump();
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
        {"window close", simple_event(os_input_close), 1},
        {"quit (SIGTERM, SIGINT)", simple_event(os_input_quit), 1},
        {"wake from a worker", simple_event(os_input_wake), 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        window.closing = 0;
        push(c.event);
        pump();
        EXPECT_EQ(window.closing, c.closing);
        EXPECT_EQ(window.running, 1u); // only the frame loop clears it
    }
}

TEST_F(input_fixture_t, TypedText) {
    push(text_event("a\xC3\xA9"));         // a, e acute
    push(text_event("\xF0\x9F\x98\x80"));  // an emoji, 4 bytes
    push(text_event("\r"));                // control characters arrive as text
    pump();
    ASSERT_EQ(window.text_count, 4u);
    EXPECT_EQ(window.text_code_points[0], 0x61u);
    EXPECT_EQ(window.text_code_points[1], 0xE9u);
    EXPECT_EQ(window.text_code_points[2], 0x1F600u);
    EXPECT_EQ(window.text_code_points[3], 13u);
    EXPECT_EQ(std::string((char *)window.text_sizes, 4), std::string("\1\2\4\1"));
    EXPECT_EQ(std::string((char *)window.text_utf8, window.text_bytes), "a\xC3\xA9\xF0\x9F\x98\x80\r");

    // The next pump starts empty.
    pump();
    EXPECT_EQ(window.text_count, 0u);
    EXPECT_EQ(window.text_bytes, 0u);
}

TEST_F(input_fixture_t, ABurstKeepsThe32FirstCharacters) {
    std::string all;
    for (int i = 0; i < 40; ++i) {
        std::string one(1, (char)('A' + i % 26));
        push(text_event(one));
        if (i < 32) all += one;
    }
    pump();
    EXPECT_EQ(window.text_count, 32u);
    EXPECT_EQ(std::string((char *)window.text_utf8, window.text_bytes), all);

    // 32 four-byte code points fill the 128 bytes exactly.
    for (int i = 0; i < 33; ++i) push(text_event("\xF0\x9F\x98\x80"));
    pump();
    EXPECT_EQ(window.text_count, 32u);
    EXPECT_EQ(window.text_bytes, 128u);
}

TEST_F(input_fixture_t, InvalidTextBytesAreSkipped) {
    push(text_event("a\xFF" "b"));
    pump();
    EXPECT_EQ(std::string((char *)window.text_utf8, window.text_bytes), "ab");
}

TEST_F(input_fixture_t, ButtonsAndPointer) {
    os_window_event_t press = {};
    press.kind = os_input_button;
    press.button = 1;
    press.flags = os_key_down;
    press.x = 10;
    press.y = 20; // from the top
    push(press);
    pump();
    EXPECT_EQ(queries(key_left_button), "1101");
    EXPECT_EQ(window.mouse_x, 10);
    EXPECT_EQ(window.mouse_y, window.height - 1 - 20);

    os_window_event_t release = press;
    release.flags = 0;
    release.x = 30;
    release.y = 0;
    push(release);
    pump();
    EXPECT_EQ(queries(key_left_button), "0010");
    EXPECT_EQ(window.mouse_y, window.height - 1);

    // Side buttons are keys 4 and 5; out-of-range buttons are ignored.
    press.button = 5;
    push(press);
    press.button = 9;
    push(press);
    pump();
    EXPECT_EQ(queries(key_x2_button), "1101");
}

TEST_F(input_fixture_t, TheLastWheelOfAPumpCounts) {
    os_window_event_t wheel = {};
    wheel.kind = os_input_wheel;
    wheel.wheel = 2;
    push(wheel);
    wheel.wheel = -1;
    push(wheel);
    pump();
    EXPECT_EQ(window.wheel, -1.0f);
    pump();
    EXPECT_EQ(window.wheel, 0.0f);
}

TEST_F(input_fixture_t, FocusLostReleasesHeldKeys) {
    push(key_event(0x42, true));
    pump();
    ASSERT_TRUE(key_is_down(&window, key_b));
    push(simple_event(os_input_focus_lost));
    pump();
    EXPECT_EQ(queries(key_b), "0010");
    EXPECT_EQ(window.focus_seen, 1u);
}

TEST_F(input_fixture_t, FocusGainedReadsTheKeysOfThisMoment) {
    // The layer believes B is down (its own record of the events) but the
    // pointer lies outside the client area: mouse keys read up.
    push(key_event(0x42, true));
    os_window_event_t move = {};
    move.kind = os_input_mouse_move;
    move.x = -5;
    move.y = -5;
    push(move);
    os_window_event_t press = {};
    press.kind = os_input_button;
    press.button = 1;
    press.flags = os_key_down;
    press.x = -5;
    press.y = -5;
    push(press);
    pump();
    push(simple_event(os_input_focus_gained));
    pump();
    EXPECT_EQ(window.keys[key_b], 1);           // down, no transitions
    EXPECT_EQ(window.keys[key_left_button], 0); // outside: up
    EXPECT_EQ(window.focus_seen, 1u);
    push(key_event(0x42, false));
    pump();
}

TEST_F(input_fixture_t, SizeChangesLastOneFrame) {
    os_window_event_t resize = {};
    resize.kind = os_input_resized;
    resize.x = 640; // the headless layer carries the new size in x and y
    resize.y = 480;
    push(resize);
    pump();
    EXPECT_EQ(window.resized, 1u);
    EXPECT_EQ(window.width, 640);
    EXPECT_EQ(window.height, 480);
    pump();
    EXPECT_EQ(window.resized, 0u);
}

TEST(KeyTables, TheTwoTablesAgree) {
    // Every id maps to its virtual key and back, except the second of two ids
    // that share one (kana/hangul, hanja/kanji).
    for (u32 id = 1; id < key_count; ++id) {
        u32 back = virtual_key_to_key[key_to_virtual_key[id]];
        if (id == key_hangul || id == key_kanji) EXPECT_EQ(back, id - 1) << id;
        else EXPECT_EQ(back, id) << id;
    }
    struct {
        u32 id, virtual_key;
    } spots[] = {{key_left_button, 0x01}, {key_cancel, 0x03}, {key_enter, 0x0D}, {key_a, 0x41},
                 {key_numpad_divide, 0x6F}, {key_f24, 0x87}, {key_plus, 0xBB}, {key_oem_102, 0xE2},
                 {key_pa1, 0xFD}};
    for (const auto &s : spots) EXPECT_EQ(key_to_virtual_key[s.id], s.virtual_key) << s.id;
    EXPECT_EQ(virtual_key_to_key[0x07], 0u); // a code without an id
}

} // namespace
