// The text field driven through the headless window layer: editing sequences
// over multi-byte text, a full field, typed control characters and ending
// keys, paste and copy through the in-memory clipboard, the pointer, and the
// scroll that keeps the caret in view.
#include "ui_test_helpers.h"

using namespace ui_test;

namespace {

const vec4 field = {10, 100, 210, 126};

struct field_t {
    std::vector<u8> bytes;
    data_t text;
    field_t(const std::string &start, size_t reserved) : bytes(reserved ? reserved : 1) {
        std::copy(start.begin(), start.end(), bytes.begin());
        text = data_t{reserved, start.size(), bytes.data()};
    }
    std::string str() const { return std::string((const char *)text.bytes, text.used); }
};

struct text_edit_test_t : ui_fixture_t {
    ui_id_t id = ui_id_from_value(0xF1E1D);
    ui_text_edit_state_t *state() { return &ui_state_get(&ui, id)->text_edit; }
    // A frame of events with the field active from its start.
    u32 edit(field_t &f, std::vector<os_window_event_t> events) {
        u32 result = 0;
        frame(events, [&] {
            if (!ui_any_active(&ui)) ui_force_active(&ui, id, ui_kind_text_edit), ui.active_at_start = ui.active;
            result = ui_text_edit(&ui, id, field, &f.text, 0);
        });
        return result;
    }
    static std::vector<os_window_event_t> keys(std::initializer_list<u32> held, u32 pressed) {
        std::vector<os_window_event_t> events;
        for (u32 k : held) events.push_back(key(k));
        events.push_back(key(pressed, false));
        events.push_back(key(pressed));
        return events;
    }
    static void clipboard(const std::string &text) { os_clipboard_set((const u8 *)text.data(), text.size()); }
    static std::string clipboard() {
        std::vector<u8> out(64);
        return std::string((char *)out.data(), os_clipboard_get(out.data(), out.size()));
    }
};

TEST_F(text_edit_test_t, EditingSequences) {
    const std::string e = "\xC3\xA9"; // é, two bytes
    struct row_t {
        std::string start;
        u32 caret, anchor;
        size_t reserved;
        std::vector<std::vector<os_window_event_t>> frames;
        std::string text;
        u32 caret_after, anchor_after, changed;
    } rows[] = {
        {"h" + e + "llo", 3, 3, 16, {keys({}, vk_left)}, "h" + e + "llo", 1, 1, 0},
        {"h" + e + "llo", 1, 1, 16, {keys({}, vk_right)}, "h" + e + "llo", 3, 3, 0},
        {"h" + e + "llo", 3, 3, 16, {keys({vk_shift}, vk_left), keys({}, vk_delete)}, "hllo", 1, 1, 1},
        {"h" + e + "llo", 4, 4, 16, {keys({}, vk_backspace), keys({}, vk_backspace)}, "hlo", 1, 1, 1},
        {"abc", 0, 0, 16, {keys({}, vk_backspace)}, "abc", 0, 0, 0},
        {"abc", 3, 3, 16, {keys({}, vk_delete)}, "abc", 3, 3, 0},
        {"abc", 1, 1, 16, {keys({vk_shift}, vk_end)}, "abc", 3, 1, 0},
        {"abc", 1, 1, 16, {keys({vk_shift}, vk_home), {typed("x")}}, "xbc", 1, 1, 1},
        // Words: back to the start of a word, on to the start of the next.
        {"one two  three", 14, 14, 32, {keys({vk_control}, vk_left)}, "one two  three", 9, 9, 0},
        {"one two  three", 9, 9, 32, {keys({vk_control}, vk_left)}, "one two  three", 4, 4, 0},
        {"one two  three", 4, 4, 32, {keys({vk_control}, vk_right)}, "one two  three", 9, 9, 0},
        {"one two  three", 14, 14, 32, {keys({vk_control}, vk_backspace)}, "one two  ", 9, 9, 1},
        {"one two  three", 9, 9, 32, {keys({vk_control}, vk_backspace)}, "one three", 4, 4, 1},
        {"one two", 0, 0, 32, {keys({vk_control}, vk_delete)}, "two", 0, 0, 1},
        {"one  two", 3, 3, 32, {keys({vk_control}, vk_delete)}, "onetwo", 3, 3, 1},
        {"a\xFF" "b", 1, 1, 16, {keys({}, vk_delete)}, "ab", 1, 1, 1}, // an invalid byte goes alone
        // Typing replaces the selection; a full field takes nothing.
        {"hello", 1, 4, 16, {{typed("XY")}}, "hXYo", 3, 3, 1},
        {"hello", 5, 5, 5, {{typed("x")}}, "hello", 5, 5, 0},
        {"hello", 1, 2, 5, {{typed(e)}}, "hello", 1, 2, 0}, // two bytes over a one-byte selection
        {"hello", 1, 3, 5, {{typed(e)}}, "h" + e + "lo", 3, 3, 1},
        {"ab", 2, 2, 5, {{typed("cd" + e)}}, "abcd", 4, 4, 1}, // what doesn't fit ends the typing
        // A control character drops everything typed behind it in that frame.
        {"", 0, 0, 16, {{typed("a\x01" "bc")}}, "a", 1, 1, 1},
        {"", 0, 0, 16, {{typed("a\x01\r")}}, "a", 1, 1, 1},
    };
    for (const row_t &r : rows) {
        field_t f(r.start, r.reserved);
        fresh_ui();
        state()->caret = r.caret, state()->anchor = r.anchor;
        for (const auto &events : r.frames) edit(f, events);
        EXPECT_EQ(f.str(), r.text) << r.start;
        EXPECT_EQ(state()->caret, r.caret_after) << r.start;
        EXPECT_EQ(state()->anchor, r.anchor_after) << r.start;
        EXPECT_EQ(state()->changed, r.changed) << r.start;
        EXPECT_TRUE(ui_is_active(&ui, id));
        frame({key(vk_shift, false), key(vk_control, false)});
    }
}

TEST_F(text_edit_test_t, EndingKeys) {
    struct {
        std::string typed;
        u32 result;
        std::string text;
    } rows[] = {{"ab\rcd", 13, "ab"}, {"\x1b", 27, ""}, {"\t", 9, ""}, {"\n", 10, ""}};
    for (const auto &r : rows) {
        field_t f("", 16);
        EXPECT_EQ(edit(f, {typed(r.typed)}), r.result);
        EXPECT_EQ(f.str(), r.text);
        EXPECT_FALSE(ui_any_active(&ui));
    }
    // Not active: Enter does nothing here.
    field_t f("", 16);
    u32 result = 1;
    frame({typed("\r")}, [&] { result = ui_text_edit(&ui, id, field, &f.text, 0); });
    EXPECT_EQ(result, 0u);
}

TEST_F(text_edit_test_t, PasteAndCopy) {
    std::string megabytes(3 << 20, 'x');
    struct {
        std::string clip, start;
        u32 caret, anchor;
        size_t reserved;
        std::string text;
        u32 caret_after;
    } rows[] = {
        {"w\xC3\xB6rld", "hi", 2, 2, 16, "hiw\xC3\xB6rld", 8},
        {"w\xC3\xB6rld", "hi", 2, 2, 4, "hiw\xC3", 4},   // cut inside a code point
        {std::string("ab\0cd", 5), "", 0, 0, 16, "ab", 2}, // up to the first NUL
        {"one\ntwo", "", 0, 0, 16, "one\ntwo", 7},       // a line break stays
        {"\xFF\xFE", "", 0, 0, 16, "\xFF\xFE", 2},       // bytes pass as they are
        {"XY", "hello", 4, 1, 16, "hXYo", 3},            // over the selection
        {megabytes, "ab", 1, 1, 1024, "a" + std::string(1022, 'x') + "b", 1023},
        {"", "ab", 1, 1, 16, "ab", 1},
    };
    for (const auto &r : rows) {
        field_t f(r.start, r.reserved);
        fresh_ui();
        state()->caret = r.caret, state()->anchor = r.anchor;
        clipboard(r.clip);
        edit(f, keys({vk_control}, vk_v));
        EXPECT_EQ(f.str(), r.text) << r.start;
        EXPECT_EQ(state()->caret, r.caret_after);
        EXPECT_EQ(state()->anchor, r.caret_after);
        frame({key(vk_control, false)});
    }

    field_t f("h\xC3\xA9llo", 16);
    state()->caret = 1, state()->anchor = 4;
    clipboard("before");
    edit(f, keys({vk_control}, vk_c));
    EXPECT_EQ(clipboard(), "\xC3\xA9l");
    EXPECT_FALSE(ui_clipboard_set(data_literal("\xC3"))); // no invalid text on the clipboard
    EXPECT_EQ(clipboard(), "\xC3\xA9l");

    // Into a data_t: its free room, less one byte for the terminator.
    u8 buffer[5];
    data_t out = {sizeof(buffer), 1, buffer};
    clipboard("abcdef");
    data_t added = ui_clipboard_get(&out, true);
    EXPECT_EQ(std::string((char *)added.bytes, added.used), "abc");
    EXPECT_EQ(out.used, 5u);
    EXPECT_EQ(buffer[4], 0);
}

TEST_F(text_edit_test_t, PointerPlacesAndDragsTheCaret) {
    field_t f("hello world", 32);
    const f32 left = field.x + 3; // border and padding
    auto call = [&] { ui_text_edit(&ui, id, field, &f.text, 0); };
    // The position is the pointer's x in the text, 2 pixels to the right.
    i32 after_hello = (i32)(left + text_width("hello") - 2);
    frame({press(after_hello, 110)}, call);
    ASSERT_TRUE(ui_is_active(&ui, id));
    EXPECT_EQ(state()->caret, 5u);
    EXPECT_EQ(state()->anchor, 5u);
    EXPECT_EQ(state()->changed, 0u);
    frame({move((i32)(left + text_width("hello wor") - 2), 110)}, call);
    frame({release((i32)(left + text_width("hello wor") - 2), 110)}, call);
    EXPECT_EQ(state()->caret, 9u);
    EXPECT_EQ(state()->anchor, 5u);
    EXPECT_EQ(ui.cursor, cursor_text);
    frame({press(300, 250)}, call); // a press outside ends the editing
    EXPECT_FALSE(ui_any_active(&ui));
}

TEST_F(text_edit_test_t, TheCaretStaysInView) {
    std::string long_text;
    for (int i = 0; i < 12; ++i) long_text += "word" + std::to_string(i) + " ";
    field_t f(long_text, 128);
    const f32 inner_width = rect_width(field) - 6;
    const f32 width = text_width(long_text);
    ASSERT_GT(width, inner_width);
    edit(f, keys({}, vk_end));
    EXPECT_FLOAT_EQ(state()->scroll, width + 1 - inner_width); // the end of the text at the right edge
    edit(f, keys({}, vk_home));
    EXPECT_EQ(state()->scroll, 0);
    edit(f, keys({}, vk_end));
    // Deleting at the far right keeps the end of the text against the right edge.
    edit(f, keys({vk_control}, vk_backspace));
    f32 shorter = text_width(f.str());
    EXPECT_NEAR(state()->scroll, shorter + 1 - inner_width, 0.01f);
}

} // namespace
