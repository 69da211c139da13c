// ui_test_helpers.h - widgets driven through the headless window layer: a
// window, the application's fonts (found as the program finds them), a fresh ui_t per test, and frames of queued events.
#pragma once

#include "gfx/fonts.h"
#include "gfx/window.h"
#include "os/os_window.h"
#include "toolkit/layout.h"
#include "toolkit/text_edit.h"

#include <gtest/gtest.h>
#include <strings.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace ui_test {

inline font_set_t *fonts() {
    static font_set_t set = {};
    if (set.font_count == 0) {
        static data_t sans = font_file_load_sans();
        static data_t mono = font_file_load_mono();
        font_set_create_application(&set, data_virtual_alloc(0x500000, 0), &sans, &mono);
    }
    return &set;
}

constexpr i32 window_width = 400, window_height = 300;

// Events take window coordinates with y up, as the toolkit sees them.
inline os_window_event_t move(i32 x, i32 y) {
    os_window_event_t e = {os_input_mouse_move};
    e.x = x, e.y = window_height - 1 - y;
    return e;
}
inline os_window_event_t button(bool down, i32 x, i32 y) {
    os_window_event_t e = move(x, y);
    e.kind = os_input_button, e.button = 1, e.flags = down ? (u32)os_key_down : 0u;
    return e;
}
inline os_window_event_t press(i32 x, i32 y) { return button(true, x, y); }
inline os_window_event_t release(i32 x, i32 y) { return button(false, x, y); }
inline os_window_event_t key(u32 virtual_key, bool down = true) {
    os_window_event_t e = {os_input_key, virtual_key, virtual_key == 0x10 ? 42u : 0u};
    e.flags = down ? (u32)os_key_down : 0u;
    return e;
}
inline os_window_event_t typed(const std::string &text) {
    os_window_event_t e = {os_input_text};
    e.text_size = (u32)text.size();
    for (size_t i = 0; i < text.size() && i < sizeof(e.text); ++i) e.text[i] = (u8)text[i];
    return e;
}
inline os_window_event_t wheel(f32 notches) {
    os_window_event_t e = {os_input_wheel};
    e.wheel = notches;
    return e;
}

enum : u32 {
    vk_backspace = 0x08, vk_enter = 0x0D, vk_shift = 0x10, vk_control = 0x11, vk_end = 0x23, vk_home = 0x24,
    vk_left = 0x25, vk_up = 0x26, vk_right = 0x27, vk_down = 0x28, vk_delete = 0x2E, vk_c = 0x43, vk_v = 0x56,
};

struct ui_fixture_t : ::testing::Test {
    static inline window_t window = {};
    static inline data_t frame_memory = {};
    ui_t ui = {};

    void SetUp() override {
        if (!window.running) {
            data_t title = data_literal("widgets");
            window_create(&window, &title, window_width, window_height, window_centred, window_centred, 0);
            frame_memory = data_virtual_alloc(0x1000000, 0);
        }
        ASSERT_EQ(window.running, 1u);
        ASSERT_EQ(fonts()->font_count, 4);
        window_handle_messages(&window, 0); // whatever an earlier test left queued
        input_clear_keys(&window);
        fresh_ui();
    }
    void fresh_ui() {
        ui = ui_create(&frame_memory, &window);
        ui.font_set = fonts();
    }

    // One frame: the events, the pump, the frame start, then the widget calls.
    void frame(std::vector<os_window_event_t> events, const std::function<void()> &calls = {}) {
        for (const os_window_event_t &e : events) os_window_headless_push(&e);
        window_handle_messages(&window, 0);
        ui_frame_start(&ui);
        if (calls) calls();
    }

    f32 line_height(u32 font = 0) { return font_line_height(font_get(fonts(), font), false); }
    f32 text_width(const std::string &text, u32 font = 0) {
        return layout_get_single_line_size(font_get(fonts(), font), (const u8 *)text.data(), text.size(),
                                           code_point_none)
            .x;
    }
};

} // namespace ui_test
