// views_fixture.h - the whole window content on the headless window: the
// engine (reader, file storage, slots, workers), the application's fonts,
// the toolkit with batches that record into memory (no OpenGL), the view
// state, and frames driven by queued keys, text and pointer events. What a
// frame drew is read back from the batches' commands.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/thread_queue.h"
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "net/engine_fixture.h"
#include "os/os_window.h"
#include "toolkit/ui_state.h"
#include "toolkit/widgets.h"
#include "views/reading_fixture.h" // the application's faces and window
#include "views/views.h"

// A batch recording into memory, as the renderer makes it, without the GL
// objects that only the flush needs.
struct memory_batch_t {
    gl_batch_t batch = {};
    data_t block = {};
    memory_batch_t(u32 kind, u8 format) {
        block = data_virtual_alloc(0x400000, 0);
        batch.kind = kind;
        batch.format = format;
        batch.commands = data_block_reserve(&block, 0x200000, 64);
        batch.vertices = data_block_reserve(&block, 0x100000, 16);
    }
    ~memory_batch_t() { data_virtual_free(&block); }
    void reset() {
        batch.commands.used = 0;
        batch.vertices.used = 0;
        batch.command_count = 0;
    }
    const gl_command_t *commands() const { return (const gl_command_t *)batch.commands.bytes; }
};

struct drawn_text_t {
    std::string text;
    vec2 position;
    u32 font;
};

struct views_fixture_t : ::testing::Test {
    static constexpr i32 window_width = 1280, window_height = 720;
    test_engine_t engine;
    test_reader_t &r = engine.r;
    window_t window = {};
    font_set_t fonts = {};
    ui_t ui = {};
    view_state_t state = {};
    app_context context = {};
    memory_batch_t rectangles{gl_batch_kind_rectangles, gl_vertex_format(2, true, false, 2)};
    memory_batch_t text{gl_batch_kind_text, gl_vertex_format(2, true, true, 4)};
    memory_batch_t icons{gl_batch_kind_rectangles, gl_vertex_format(2, true, true, 2)};
    memory_batch_t popup_rectangles{gl_batch_kind_rectangles, gl_vertex_format(2, true, false, 2)};
    memory_batch_t popup_text{gl_batch_kind_text, gl_vertex_format(2, true, true, 4)};
    memory_batch_t popup_icons{gl_batch_kind_rectangles, gl_vertex_format(2, true, true, 2)};

    void SetUp() override {
        [[maybe_unused]] static bool scratch_ready = (scratch_block_init(0x500000), true);
        open_view_window(r, window, fonts, ui, state, context, window_width, window_height);
        if (HasFatalFailure()) return; // no font: the failure is reported, nothing runs
        ui.rectangles = &rectangles.batch;
        ui.text = &text.batch;
        ui.icons = &icons.batch;
        ui.popup_rectangles = &popup_rectangles.batch;
        ui.popup_text = &popup_text.batch;
        ui.popup_icons = &popup_icons.batch;
        context.feed_queries = engine.slots.data();
        context.feed_query_count = engine.slots.size();
        context.feed_query_context = &engine.context;
        context.file_storage = &engine.storage;
        context.desktop_folder = data_t{sizeof(context.desktop_folder_buffer), 0, context.desktop_folder_buffer};
        context.user_folder = data_t{sizeof(context.user_folder_buffer), 0, context.user_folder_buffer};
        new_run();
        engine.context.show_log = view_show_log_hook;
        engine.context.show_log_context = &context;
    }
    void TearDown() override { data_virtual_free(&context.frame_memory); }

    // As a start of the program on the reader as it stands.
    void new_run() {
        engine.new_run();
        context.start_generation = r.reader.generation;
        view_state_init(&state, r.reader.generation);
        engine.context.generation_minimum = &state.generation_minimum;
        engine.context.generation_maximum = &state.generation_maximum;
        engine.context.selected_feed = &state.selected_feed;
        engine.context.selected_entry = &state.selected_entry;
    }

    // One frame of the window content after the queued events.
    void frame(std::initializer_list<os_window_event_t> events = {}) {
        for (const os_window_event_t &e : events) os_window_headless_push(&e);
        window_handle_messages(&window, 0);
        for (memory_batch_t *b : {&rectangles, &text, &icons, &popup_rectangles, &popup_text, &popup_icons}) b->reset();
        feed_queries_check(&engine.context, &r.reader);
        draw_window_content(&context, &r.reader);
    }

    static os_window_event_t key(u32 virtual_key, bool down) {
        return {.kind = os_input_key, .virtual_key = virtual_key, .flags = down ? (u32)os_key_down : 0u};
    }
    static os_window_event_t typed(const std::string &s) {
        os_window_event_t e = {.kind = os_input_text, .text_size = (u32)s.size()};
        memcpy(e.text, s.data(), s.size());
        return e;
    }
    // Pointer events at window pixels, y up.
    os_window_event_t move(vec2 p) const {
        return {.kind = os_input_mouse_move, .x = (i32)p.x, .y = window.height - 1 - (i32)p.y};
    }
    os_window_event_t button(vec2 p, bool down) const {
        return {.kind = os_input_button, .flags = down ? (u32)os_key_down : 0u, .button = 1, .x = (i32)p.x,
                .y = window.height - 1 - (i32)p.y};
    }
    // A key pressed in one frame and released in the next, Shift held around
    // it when asked.
    void press(u32 virtual_key, bool shift = false) {
        if (shift) frame({key(0x10, true)});
        frame({key(virtual_key, true)});
        frame({key(virtual_key, false)});
        if (shift) frame({key(0x10, false)});
    }
    void click(vec2 p) {
        frame({move(p), button(p, true)});
        frame({button(p, false)});
    }
    // Typed text as the keyboard gives it: the key of a letter or digit,
    // then its character (other characters come as text alone).
    void type(const std::string &s) {
        for (char c : s) {
            u32 vk = c >= 'a' && c <= 'z' ? (u32)(c - 'a' + 'A') : (c >= '0' && c <= '9') ? (u32)c : 0;
            if (!vk) {
                frame({typed(std::string(1, c))});
                continue;
            }
            frame({key(vk, true), typed(std::string(1, c))});
            frame({key(vk, false)});
        }
    }

    std::vector<drawn_text_t> texts() const {
        std::vector<drawn_text_t> out;
        for (u32 i = 0; i < text.batch.command_count; i++) {
            const gl_command_t &c = text.commands()[i];
            if (c.kind != gl_command_text) continue;
            out.push_back({std::string((const char *)c.text.text.bytes, c.text.text.used),
                           vec2{c.text.position.x, c.text.position.y}, c.text.font});
        }
        return out;
    }
    // The first drawn text that starts with `prefix`; its position, or none.
    bool find_text(const std::string &prefix, drawn_text_t *found = nullptr) const {
        for (const drawn_text_t &t : texts())
            if (t.text.rfind(prefix, 0) == 0) {
                if (found) *found = t;
                return true;
            }
        return false;
    }
    f32 text_width(const std::string &s, u32 font) {
        return layout_get_single_line_size(font_get(&fonts, font), (const u8 *)s.data(), s.size(), code_point_none).x;
    }
    // A point on a drawn text, to click on.
    vec2 on_text(const std::string &prefix) const {
        drawn_text_t t;
        EXPECT_TRUE(find_text(prefix, &t)) << prefix;
        return vec2{t.position.x + 4, t.position.y + 4};
    }
    // A point inside the field standing under a drawn label.
    vec2 field_under(const std::string &label) const {
        drawn_text_t t;
        EXPECT_TRUE(find_text(label, &t)) << label;
        return vec2{t.position.x + 20, t.position.y - 18};
    }
};
