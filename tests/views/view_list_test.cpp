// The left panel through the headless window: every navigation key with and
// without Shift, deletion in two stages and restore, the generation buttons
// and their keys, letters in a text field, the filters against what the list
// shows, and the keep-visible scrolling.
#include "views/views_fixture.h"

#include <filesystem>

namespace {

enum : u32 {
    vk_backspace = 0x08, vk_return = 0x0D, vk_page_up = 0x21, vk_page_down = 0x22, vk_end = 0x23,
    vk_home = 0x24, vk_up = 0x26, vk_down = 0x28, vk_delete = 0x2E, vk_a = 'A', vk_e = 'E', vk_h = 'H',
    vk_s = 'S', vk_add = 0x6B, vk_subtract = 0x6D,
};

struct list_test_t : views_fixture_t {
    feed_t *a = nullptr, *b = nullptr, *c = nullptr;
    entry_t *a1 = nullptr, *a2 = nullptr, *a3 = nullptr, *c1 = nullptr, *c2 = nullptr;

    // Feeds A (a1 a2 a3), B (empty) and C (c1 c2), all in generation 1.
    void SetUp() override {
        views_fixture_t::SetUp();
        r.reader.generation = 1;
        a = r.rss_feed("http://a/", "A");
        b = r.rss_feed("http://b/", "B");
        c = r.rss_feed("http://c/", "C");
        a1 = r.rss_entry(a, "a1", "a1", date_t{});
        a2 = r.rss_entry(a, "a2", "a2", date_t{});
        a3 = r.rss_entry(a, "a3", "a3", date_t{});
        c1 = r.rss_entry(c, "c1", "c1", date_t{});
        c2 = r.rss_entry(c, "c2", "c2", date_t{});
        new_run();
        state.panel = panel_content;
    }
    void select(feed_t *feed, entry_t *entry) {
        state.selected_feed = feed;
        state.selected_entry = entry;
    }
    std::string name(const feed_t *feed, const entry_t *entry) const {
        std::string out = feed == a ? "A" : feed == b ? "B" : feed == c ? "C" : feed ? "?" : "-";
        return entry ? out + "/" + text_of(entry_get_title(entry)) : out;
    }
    // A point on a feed's strip or an entry's row, found by its drawn title.
    vec2 on_title(const std::string &title) const {
        for (const drawn_text_t &t : texts())
            if (t.text == title) return vec2{t.position.x + 4, t.position.y + 4};
        ADD_FAILURE() << "not drawn: " << title;
        return vec2{};
    }
    std::string selection() const { return name(state.selected_feed, state.selected_entry); }
};

TEST_F(list_test_t, NavigationKeys) {
    struct row_t {
        const char *start; // "-", "A", "A/a2", ...
        u32 key;
        bool shift;
        const char *expected;
    };
    const row_t rows[] = {
        {"-", vk_down, false, "A/a1"},      {"-", vk_up, false, "A/a1"},
        {"A/a1", vk_down, false, "A/a2"},    {"A/a3", vk_down, false, "C/c1"}, // B has nothing to show
        {"C/c2", vk_down, false, "C/c2"},   {"A/a1", vk_up, false, "A/a1"},
        {"C/c1", vk_up, false, "A/a3"},      {"A", vk_down, false, "A/a1"},
        {"A", vk_up, false, "A/a3"},        {"A/a2", vk_home, false, "A/a1"},
        {"A/a2", vk_end, false, "A/a3"},    {"-", vk_home, false, "-"},
        {"-", vk_page_down, false, "A/a1"}, {"A/a2", vk_page_down, false, "C/c1"},
        {"C/c1", vk_page_down, false, "C/c1"}, {"-", vk_page_up, false, "C/c1"},
        {"C/c2", vk_page_up, false, "A/a1"},
        // Shift moves over feed rows, landing on the feed first, and wraps.
        {"-", vk_page_down, true, "A"},     {"A/a2", vk_page_down, true, "A"},
        {"A", vk_page_down, true, "C"},     {"C", vk_page_down, true, "A"},
        {"A", vk_page_up, true, "C"},       {"C/c1", vk_page_up, true, "C"},
    };
    for (const row_t &row : rows) {
        for (feed_t *f : {(feed_t *)nullptr, a, b, c})
            for (entry_t *e : {(entry_t *)nullptr, a1, a2, a3, c1, c2})
                if (name(f, e) == row.start) select(f, e);
        ASSERT_EQ(selection(), row.start);
        press(row.key, row.shift);
        EXPECT_EQ(selection(), row.expected) << row.start << " key " << row.key << (row.shift ? " with Shift" : "");
        if (row.start[0] != '-' || std::string(row.expected) != "-") EXPECT_EQ(state.panel, (u32)panel_content);
    }
    // With "Show empty" Page down stops at the empty feed.
    state.show_empty = 1;
    select(a, a2);
    press(vk_page_down);
    EXPECT_EQ(selection(), "B");
}

TEST_F(list_test_t, DeleteMarksThenErasesAndBackspaceRestores) {
    select(a, a2);
    press(vk_delete);
    EXPECT_EQ(selection(), "A/a3");
    EXPECT_TRUE(entry_is_deleted(a2));
    EXPECT_EQ(a->entry_count, 3u);

    // Under "Both" the marked entry still shows; a second Delete erases it.
    state.list_filter = list_filter_both;
    select(a, a2);
    press(vk_delete);
    EXPECT_EQ(a->entry_count, 2u);
    EXPECT_EQ(selection(), "A/a3");

    // Backspace restores a marked entry, and the feed too when it was marked.
    entry_mark_deleted(a1);
    feed_mark_deleted(&r.reader, c);
    select(a, a1);
    press(vk_backspace);
    EXPECT_FALSE(entry_is_deleted(a1));
    select(c, c1);
    press(vk_backspace, true); // Shift with an entry: only that entry and its feed
    EXPECT_FALSE(feed_is_deleted(c));
    EXPECT_FALSE(entry_is_deleted(c1));
    EXPECT_TRUE(entry_is_deleted(c2));
    select(c, nullptr);
    press(vk_backspace, true); // Shift on the feed row: all its entries
    EXPECT_FALSE(entry_is_deleted(c2));
    EXPECT_TRUE(reader_audit_check(&r.reader));
}

TEST_F(list_test_t, ShiftDeleteRemovesTheEntryOrTheFeed) {
    state.list_filter = list_filter_both;
    select(a, a1);
    press(vk_delete, true);
    EXPECT_TRUE(entry_is_deleted(a1));
    EXPECT_FALSE(feed_is_deleted(a));

    select(a, nullptr);
    press(vk_delete); // without Shift a feed row stays
    EXPECT_FALSE(feed_is_deleted(a));
    EXPECT_EQ(state.key_navigated, 0u);
    press(vk_delete, true);
    EXPECT_TRUE(feed_is_deleted(a));
    EXPECT_TRUE(entry_is_deleted(a2) && entry_is_deleted(a3));
    EXPECT_EQ(selection(), "C/c1");
    select(a, nullptr);
    press(vk_delete, true); // a marked feed goes for good
    EXPECT_EQ(r.reader.feeds.entry_count, 2u);
    EXPECT_EQ(selection(), "C/c1");
    EXPECT_TRUE(reader_audit_check(&r.reader));
}

TEST_F(list_test_t, DeletingTheLastVisibleEntryLeavesNoSelection) {
    for (entry_t *e : {a1, a2, a3, c1}) entry_mark_deleted(e);
    select(c, c2);
    press(vk_delete);
    EXPECT_EQ(selection(), "-");
    EXPECT_TRUE(entry_is_deleted(c2));
    // Held down, Delete repeats and walks on.
    for (entry_t *e : {a1, a2, a3, c1, c2}) entry_restore(e);
    select(a, a1);
    frame({key(vk_delete, true)});
    os_window_event_t repeat = key(vk_delete, true);
    repeat.flags |= os_key_repeat;
    frame({repeat});
    frame({key(vk_delete, false)});
    EXPECT_TRUE(entry_is_deleted(a1) && entry_is_deleted(a2));
    EXPECT_EQ(selection(), "A/a3");
}

TEST_F(list_test_t, GenerationButtonsAndKeys) {
    // Entries of generations 1, 2 and 3 (a deleted one in 4 counts under Feeds for nothing).
    a1->generation = 1, a2->generation = 2, a3->generation = 3, c1->generation = 3, c2->generation = 4;
    entry_mark_deleted(c2);
    r.reader.generation = 4;
    struct row_t {
        u32 minimum, maximum, key;
        bool shift;
        u32 expected_minimum, expected_maximum;
        bool keeps_selection;
    };
    const row_t rows[] = {
        {3, 3, vk_s, false, 1, 1, false},        {3, 3, vk_subtract, false, 2, 2, false},
        {3, 3, vk_subtract, true, 2, 3, true},   {2, 2, vk_a, false, 1, 3, false},
        {1, 1, vk_add, false, 2, 2, false},      {1, 1, vk_add, true, 1, 2, true},
        {1, 1, vk_e, false, 3, 3, false},        {3, 3, vk_s, true, 3, 3, true}, // S with Shift does nothing
        {3, 3, vk_a, true, 3, 3, true},          {1, 3, vk_add, true, 1, 3, true}, // 4 holds only a deleted entry
        {1, 1, vk_subtract, false, 1, 1, false},
    };
    for (const row_t &row : rows) {
        state.generation_minimum = row.minimum;
        state.generation_maximum = row.maximum;
        select(a, a1);
        press(row.key, row.shift);
        EXPECT_EQ(state.generation_minimum, row.expected_minimum) << "key " << row.key << " shift " << row.shift;
        EXPECT_EQ(state.generation_maximum, row.expected_maximum) << "key " << row.key << " shift " << row.shift;
        EXPECT_EQ(state.selected_feed != nullptr, row.keeps_selection) << "key " << row.key;
    }
    // The buttons act on a click whatever the keys: "All" is the fourth.
    state.generation_minimum = state.generation_maximum = 3;
    frame();
    click(on_text("All"));
    EXPECT_EQ(state.generation_minimum, 1u);
    EXPECT_EQ(state.generation_maximum, 3u);
}

TEST_F(list_test_t, TheHeadingNamesTheRangeAndAnEmptyRangeSaysSo) {
    c2->generation = 2;
    r.reader.generation = 3;
    struct {
        u32 minimum, maximum;
        const char *heading, *nothing;
    } rows[] = {
        {3, 3, "Generation 3", "Nothing new in generation 3."},
        {2, 3, "Generations 2 to 3", nullptr},
        {1, 2, "All generations", nullptr},
        {1, 3, "All generations", nullptr},
    };
    for (const auto &row : rows) {
        state.generation_minimum = row.minimum, state.generation_maximum = row.maximum;
        frame();
        EXPECT_TRUE(find_text(row.heading)) << row.heading;
        EXPECT_EQ(find_text("Nothing new"), row.nothing != nullptr) << row.heading;
        if (row.nothing) EXPECT_TRUE(find_text(row.nothing) && find_text("Press A, or click All"));
    }
    state.list_filter = list_filter_deleted;
    state.generation_minimum = 1, state.generation_maximum = 3;
    frame();
    EXPECT_TRUE(find_text("Nothing deleted in generations 1 to 3."));
}

TEST_F(list_test_t, AnEmptyReaderTakesEveryKey) {
    for (feed_t *feed : {a, b, c}) reader_delete_feed(&r.reader, feed);
    r.reader.generation = 0;
    new_run();
    state.panel = panel_content;
    for (u32 k : {vk_up, vk_down, vk_page_up, vk_page_down, vk_home, vk_end, vk_delete, vk_return, vk_backspace})
        press(k), press(k, true);
    EXPECT_EQ(selection(), "-");
    press(vk_a);
    EXPECT_EQ(state.generation_minimum, 0u);
    EXPECT_EQ(state.generation_maximum, 1u);
}

TEST_F(list_test_t, LettersTypedInATextFieldStayText) {
    state.panel = panel_add_feed;
    frame();
    click(field_under("URL to a RSS"));
    ASSERT_TRUE(ui_any_active(&ui));
    u32 minimum = state.generation_minimum;
    type("hha");
    EXPECT_EQ(text_of(state.add_feed_url), "hha");
    EXPECT_EQ(state.show_empty, 0u);
    EXPECT_EQ(state.generation_minimum, minimum);
    // F keys act while the field is being edited.
    press(0x70);
    EXPECT_EQ(state.panel, (u32)panel_help);
}

TEST_F(list_test_t, FiltersAndShowEmptyDecideWhatTheListShows) {
    // D: a deleted feed with one entry; A holds a deleted entry.
    feed_t *d = r.rss_feed("http://d/", "D");
    r.rss_entry(d, "d1", "d1", date_t{});
    feed_mark_deleted(&r.reader, d);
    entry_mark_deleted(a3);
    struct row_t {
        u32 filter, show_empty;
        const char *shown; // blocks drawn, by title
        u32 entries;
    };
    const row_t rows[] = {
        {list_filter_feeds, 0, "A C", 4},       {list_filter_feeds, 1, "A B C", 4},
        {list_filter_deleted, 0, "A D", 2},     {list_filter_deleted, 1, "A D", 2},
        {list_filter_both, 0, "A C D", 6},      {list_filter_both, 1, "A B C D", 6},
    };
    for (const row_t &row : rows) {
        state.list_filter = row.filter;
        state.show_empty = row.show_empty;
        frame();
        std::string shown;
        for (const char *title : {"A", "B", "C", "D"})
            for (const drawn_text_t &t : texts())
                if (t.font == view_font_title && (t.text == title || t.text == std::string("[Deleted] ") + title))
                    shown += (shown.empty() ? "" : " ") + std::string(title);
        EXPECT_EQ(shown, row.shown) << "filter " << row.filter << " show empty " << row.show_empty;
        view_list_stats_t stats = view_list_measure(&context, &r.reader, &context.frame_memory);
        EXPECT_EQ(stats.entry_count, row.entries) << "filter " << row.filter;
    }
    // A feed being fetched shows under "Feeds" even with nothing in range.
    state.list_filter = list_filter_feeds;
    state.show_empty = 0;
    engine.slots[0].state = feed_query_in_flight;
    engine.slots[0].feed_id = b->id;
    frame();
    EXPECT_TRUE(find_text("Updating\xE2\x80\xA6 B"));
    engine.slots[0].state = feed_query_free;
    frame();
    EXPECT_FALSE(find_text("Updating"));
}

TEST_F(list_test_t, ClicksSelectAndBringTheContentBack) {
    frame();
    click(on_title("c2"));
    EXPECT_EQ(selection(), "C/c2");
    click(on_title("A"));
    EXPECT_EQ(selection(), "A");
    EXPECT_EQ(text_of(state.feed_url_text), "http://a/");
    state.panel = panel_help;
    click(on_title("A"));
    EXPECT_EQ(state.panel, (u32)panel_content);
    EXPECT_EQ(selection(), "A");
    // A row pressed and gone before the release (an update replaced it)
    // doesn't keep the list's keys.
    vec2 on_c1 = on_title("c1");
    frame({move(on_c1), button(on_c1, true)});
    reader_delete_entry(&r.reader, c1, c);
    select(c, c2);
    frame({button(on_c1, false)});
    press(0x26);
    EXPECT_EQ(selection(), "A/a3");
}

TEST_F(list_test_t, BadTitlesDrawCut) {
    std::string huge;
    for (int i = 0; i < 10000; i++) huge += "Huge title ";
    c2->rss.title = r.add(huge);
    c1->rss.title = r.add("Bad \xff\xfe bytes \xe2\x82");
    frame();
    drawn_text_t cut;
    ASSERT_TRUE(find_text("Huge title", &cut));
    EXPECT_LT(cut.text.size(), 200u);
    EXPECT_EQ(cut.text.substr(cut.text.size() - 3), "\xE2\x80\xA6");
    EXPECT_TRUE(find_text("Bad "));
}

TEST_F(list_test_t, SavingKeepsTheSelection) {
    std::string folder = testing::TempDir() + "tidewrack_list_save_" + std::to_string(getpid());
    data_push_raw(&context.user_folder, folder.data(), folder.size());
    reader_delete_entry(&r.reader, a1, a); // a hole the save closes: records move
    select(c, c2);
    press(0x77); // F8 saves, then shows the log
    EXPECT_EQ(selection(), "C/c2");
    EXPECT_EQ(state.panel, (u32)panel_log);
    EXPECT_NE(text_of(log_channel(log_user)->data).find("Saved " + folder + "/feed_data_"), std::string::npos);
    std::filesystem::remove_all(folder);
}

TEST_F(list_test_t, SmallWindowsKeepEveryControlInReach) {
    for (vec2 size : {vec2{800, 500}, vec2{600, 400}}) {
        frame({os_window_event_t{.kind = os_input_resized, .x = (i32)size.x, .y = (i32)size.y}});
        state.panel = panel_help, state.show_empty = 0, state.help_scroll = {0, 0};
        frame();
        // The right side is never the narrower; every label stands whole in the window.
        EXPECT_GE(on_text("Help").x, size.x / 2) << size.x;
        for (const char *label : {"Add feed", "Links", "Open queued links (0)", "Update all", "Update selected",
                                  "Log", "Save", "All", "[+", "Show empty", "Feeds"}) {
            drawn_text_t t;
            ASSERT_TRUE(find_text(label, &t)) << label << " at " << size.x;
            EXPECT_EQ(t.text, label) << "cut at " << size.x;
            EXPECT_LE(t.position.x + text_width(label, t.font), size.x) << label << " at " << size.x;
        }
        click(on_text("Show empty"));
        EXPECT_EQ(state.show_empty, 1u);
        // The help scrolls with the wheel, so nothing of it is out of reach.
        frame({move(vec2{size.x - 100, size.y / 2}), os_window_event_t{.kind = os_input_wheel, .wheel = -1}});
        EXPECT_GT(state.help_scroll.y, 0) << size.x;
        click(on_text("Log"));
        EXPECT_EQ(state.panel, (u32)panel_log);
        // The log follows its end until the wheel takes it back.
        for (int i = 0; i < 60; i++) log_string(log_user, "a line of the log\n");
        frame();
        f32 end = state.log_scroll.y;
        EXPECT_GT(end, 0);
        frame({move(vec2{size.x - 100, size.y / 2}), os_window_event_t{.kind = os_input_wheel, .wheel = 1}});
        EXPECT_LT(state.log_scroll.y, end);
        EXPECT_EQ(state.log_auto_scroll, 0u);
        state.log_auto_scroll = 1;
    }
}

TEST_F(list_test_t, TinyWindowsDrawEveryPanel) {
    select(a, a1);
    for (vec2 size : {vec2{1, 1}, vec2{40, 30}, vec2{300, 120}, vec2{700, 90}}) {
        frame({os_window_event_t{.kind = os_input_resized, .x = (i32)size.x, .y = (i32)size.y}});
        ASSERT_EQ(window.width, (i32)size.x);
        for (u32 panel : {panel_content, panel_help, panel_add_feed, panel_links, panel_log}) {
            state.panel = panel;
            frame();
            press(0x28);
        }
    }
}

} // namespace

