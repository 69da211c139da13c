// reading_fixture.h - the reading views on the headless window: a reader, the
// application's fonts (read straight from the files fontconfig names, since
// the headless layer finds none), the toolkit, the view state, and frames
// driven by queued input. The lines a layout made are read back as text.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "gfx/fonts.h"
#include "net/file_storage.h"
#include "gfx/window.h"
#include "os/os_window.h"
#include "reader/reader_fixture.h"
#include "toolkit/layout.h"
#include "toolkit/ui_test_helpers.h"
#include "toolkit/ui_state.h"
#include "toolkit/widgets.h"
#include "views/view_article.h"

// The application's fonts over the reader's code points, a window of the
// given size, and the context and toolkit that views draw with.
inline void open_view_window(test_reader_t &r, window_t &window, font_set_t &fonts, ui_t &ui, view_state_t &state,
                             app_context &context, i32 width, i32 height) {
    static data_t sans = font_file_load_sans();
    static data_t mono = font_file_load_mono();
    ASSERT_NE(sans.bytes, nullptr) << "no sans face: install fonts-dejavu-core";
    r.code_points.count = code_point_list_start_count;
    font_set_create_application(&fonts, data_virtual_alloc(0x500000, 0), &sans, &mono);
    data_t title = data_literal("views");
    window_create(&window, &title, width, height, window_centred, window_centred, 0);
    window_handle_messages(&window, 0);
    context.frame_memory = data_virtual_alloc(0xA00000, 0);
    context.window = &window;
    context.view_state = &state;
    context.font_set = &fonts;
    ui = ui_create(&context.frame_memory, &window);
    ui.font_set = &fonts;
    context.ui = &ui;
}

struct reading_fixture_t : ::testing::Test {
    static constexpr i32 window_width = 800, window_height = 600;
    test_reader_t r;
    window_t window = {};
    font_set_t fonts = {};
    ui_t ui = {};
    view_state_t state = {};
    app_context context = {};
    file_storage_t storage = {};
    vec4 rect = {0, 0, window_width, window_height};

    void SetUp() override {
        open_view_window(r, window, fonts, ui, state, context, window_width, window_height);
        if (HasFatalFailure()) return; // no font: the failure is reported, nothing runs
        file_storage_init(&storage, file_storage_reserve_size, file_storage_commit_step, file_storage_unit);
        context.file_storage = &storage;
        // Links go to the queue of the first configuration: no program starts.
        r.reader.link_configurations[0].queue_links = 1;
        view_state_init(&state, r.reader.generation);
        state.panel = panel_content;
    }
    void TearDown() override {
        data_virtual_free(&context.frame_memory);
        data_virtual_free(&storage.memory);
        data_virtual_free(&storage.node_memory);
    }

    void select(feed_t *feed, entry_t *entry) {
        state.selected_feed = feed;
        state.selected_entry = entry;
        state.article_ready = 0;
        state.content_scroll = vec2{0, 0};
        if (!entry) {
            state.feed_url_text.used = 0;
            data_push_data(&state.feed_url_text, &feed->url, 1);
        }
    }

    // One frame of the entry or feed view after the queued events; the
    // layout stays readable until the next frame.
    layout_t frame(std::initializer_list<os_window_event_t> events = {}) {
        for (const os_window_event_t &e : events) os_window_headless_push(&e);
        window_handle_messages(&window, 0);
        ui_frame_start(&ui);
        image_queries_check();
        layout_t layout;
        if (state.selected_entry) entry_view_layout(&context, &r.reader, rect, &layout);
        else feed_view_layout(&context, &r.reader, rect, &layout);
        view_layout_render(&context, &state, &layout);
        ui_apply_cursor(&ui);
        return layout;
    }

    // Pointer events; y counts from the window's top.
    static os_window_event_t move(vec2 p) {
        return {os_input_mouse_move, 0, 0, 0, 0, (i32)p.x, window_height - (i32)p.y};
    }
    static os_window_event_t button(vec2 p, bool down) {
        return {os_input_button, 0, 0, down ? (u32)os_key_down : 0u, 1, (i32)p.x, window_height - (i32)p.y};
    }
    // Press and release over a point, each in a frame of its own.
    void click(vec2 p) {
        frame({move(p), button(p, true)});
        frame({button(p, false)});
    }

    // The strings of a finished layout, one line a row, each string as
    // "font:text", strings of a line joined by "|".
    static std::vector<std::string> lines(layout_t *layout) {
        std::map<int, std::string> rows;
        u32 font = 0;
        for (u32 i = 0; i < layout->command_count; i++) {
            const layout_command_t *c = &layout->commands[i];
            if (c->kind == layout_kind_font) font = c->font.index;
            if (c->kind != layout_kind_string || !c->string.bytes) continue;
            for (u32 s = 0; s < c->string.segment_count; s++) {
                const layout_segment_t &seg = c->string.segments[s];
                if (!seg.bytes) continue;
                std::string &row = rows[-(int)std::lround(seg.rect.w)];
                if (!row.empty()) row += "|";
                row += std::to_string(font) + ":" + std::string((const char *)seg.text, seg.bytes);
            }
        }
        std::vector<std::string> out;
        for (auto &[top, row] : rows) out.push_back(row);
        return out;
    }
    static std::string joined(const std::vector<std::string> &rows) {
        std::string out;
        for (const std::string &row : rows) out += row + "\n";
        return out;
    }
    // The first string command of the text, or null.
    static const layout_command_t *find_string(layout_t *layout, const std::string &text) {
        for (u32 i = 0; i < layout->command_count; i++) {
            const layout_command_t *c = &layout->commands[i];
            if (c->kind == layout_kind_string && std::string((const char *)c->string.text, c->string.bytes) == text)
                return c;
        }
        return nullptr;
    }
    static vec2 centre(vec4 rect) { return vec2{std::floor((rect.x + rect.z) / 2), std::floor((rect.y + rect.w) / 2)}; }

    entry_t *rss_entry_with(feed_t *feed, const std::string &description) {
        entry_t *entry = r.rss_entry(feed, "Title", "", date_t{});
        entry->rss.description = r.add(description);
        return entry;
    }
};
