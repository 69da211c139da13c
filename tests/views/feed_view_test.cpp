// The feed view's form on the headless window: each option changes its own
// flag (the snapshot tests keep the flags over a save), the address is saved
// in place or anew, the link configuration is picked, delete and restore.
#include "reading_fixture.h"

namespace {

struct feed_view_test_t : reading_fixture_t {
    // The form's boxes in order: address, Save, the options, the dropdown,
    // delete or restore.
    std::vector<vec4> boxes() {
        layout_t layout = frame();
        std::vector<vec4> out;
        for (u32 i = 0; i < layout.command_count; i++)
            if (layout.commands[i].kind == layout_kind_box) out.push_back(layout.commands[i].box.rect);
        return out;
    }
    void click_box(u32 index) { click(centre(boxes().at(index))); }
};

TEST_F(feed_view_test_t, each_option_changes_its_own_flag) {
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    select(feed, nullptr);
    ASSERT_EQ(boxes().size(), 7u);
    const u32 bits[3] = {meta_sort_oldest_first, meta_hide_enclosure, meta_draw_enclosure_image};
    u32 expected = 0;
    for (u32 i = 0; i < 3; i++) {
        click_box(2 + i);
        expected |= bits[i];
        EXPECT_EQ(reader_get_meta(&r.reader, feed->id)->flags, expected) << i;
    }
    click_box(2 + 1); // off again
    expected &= ~(u32)meta_hide_enclosure;
    EXPECT_EQ(reader_get_meta(&r.reader, feed->id)->flags, expected);

    select(r.atom_feed("http://example.org/atom", "Atom"), nullptr);
    EXPECT_EQ(boxes().size(), 5u); // no enclosure options
}

TEST_F(feed_view_test_t, the_address_is_saved_in_place_or_anew_and_the_feed_deleted_and_restored) {
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    struct row_t {
        const char *address;
        bool in_place;
    } rows[] = {{"http://example.org/f", true}, {"http://example.org/a-much-longer-address", false}};
    for (const row_t &row : rows) {
        select(feed, nullptr);
        const u8 *before = feed->url.bytes;
        state.feed_url_text.used = 0;
        std::string address = row.address;
        data_t text = view_of(address);
        data_push_data(&state.feed_url_text, &text, 1);
        click_box(1);
        EXPECT_EQ(text_of(feed->url), row.address);
        EXPECT_EQ(feed->url.bytes == before, row.in_place) << row.address;
    }
    // Delete and restore, the view staying on the feed.
    entry_t *entry = r.rss_entry(feed, "One", "g1", {});
    click_box(6);
    EXPECT_TRUE(feed_is_deleted(feed) && entry_is_deleted(entry));
    EXPECT_EQ(state.selected_feed, feed);
    click_box(6);
    EXPECT_FALSE(feed_is_deleted(feed) || entry_is_deleted(entry));
}

TEST_F(feed_view_test_t, the_dropdown_picks_the_link_configuration) {
    feed_t *feed = r.rss_feed("http://example.org/feed", "Feed");
    meta_t *meta = reader_get_meta(&r.reader, feed->id);
    meta->link_configuration = nullptr;
    select(feed, nullptr);
    frame();
    EXPECT_EQ(meta->link_configuration, &r.reader.link_configurations[0]); // written back once shown
    // Open the list, then Down and Enter, each down in a frame and up in the next.
    click_box(5);
    for (os_window_event_t key : {os_window_event_t{os_input_key, 0x28, 0x50, os_key_down | os_key_extended},
                                  os_window_event_t{os_input_key, 0x28, 0x50, os_key_extended},
                                  os_window_event_t{os_input_key, 0x0D, 0x1C, os_key_down},
                                  os_window_event_t{os_input_key, 0x0D, 0x1C, 0}})
        frame({key});
    EXPECT_EQ(meta->link_configuration, &r.reader.link_configurations[1]);
}

} // namespace
