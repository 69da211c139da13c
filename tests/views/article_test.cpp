// Articles through the entry view on the headless window: which elements
// break the line and change the font, links, pictures by the state of their
// slot, the early stop, and a failed parse shown as its source.
#include "reading_fixture.h"

#include "base/log.h"
#include "net/image_fixture.h"
#include "net/test_server.h"

namespace {

struct article_test_t : reading_fixture_t {
    feed_t *feed = nullptr;
    void SetUp() override {
        reading_fixture_t::SetUp();
        feed = r.rss_feed("http://example.org/feed", "Feed");
    }
    // The article's lines, below the title line.
    std::vector<std::string> article(const std::string &html) {
        select(feed, rss_entry_with(feed, html));
        layout_t layout = frame();
        std::vector<std::string> rows = lines(&layout);
        EXPECT_EQ(rows.at(0), "2:Title");
        rows.erase(rows.begin());
        return rows;
    }
};

TEST_F(article_test_t, elements_make_lines_and_fonts) {
    struct row_t {
        const char *html;
        std::vector<std::string> lines;
    } rows[] = {
        {"<p>one</p>two", {"1:one|1:two"}},
        {"<p>one</p><p>two</p>", {"1:one", "1:two"}},
        {"one<br>two<em>three</em>", {"1:one", "1:two|1:three"}},
        {"<h2>Head<a href=x>link</a></h2>after", {"2:Head|2:link", "1:after"}},
        {"<h1><i>big</i></h1><h3>more</h3>", {"2:big", "2:more"}},
        {"a<script>x()</script>b<noscript>shown</noscript><style>p{}</style>", {"1:a|1:b|1:shown"}},
        {"<title>T</title><ul><li>a<li>b</ul><table><tr><td>c<td>d</table>", {"1:T", "1:a", "1:b", "1:c", "1:d"}},
        {"<img>", {"1:[img]|1:No alternate description.|1: Loading...|1:[/img]"}},
        {"x<img alt=\"A cat\" src=\"http://127.0.0.1:1/cat.png\">y",
         {"1:x", "1:[img]|1:A cat|1: Loading...|1:[/img]", "1:y"}},
    };
    for (const row_t &row : rows) EXPECT_EQ(joined(article(row.html)), joined(row.lines)) << row.html;
}

TEST_F(article_test_t, links_open_and_close_once_each) {
    struct row_t {
        const char *html;
        std::string marks; // link begins by address, ends as "/"
    } rows[] = {
        {"<a>plain</a> <a href=x>link</a>", "x/"},
        {"<a href=x>one<a href=y>two</a></a>", "x/y/"},
        {"<h1><a href=x>a</h1>b</a>", "x/"},
    };
    for (const row_t &row : rows) {
        select(feed, rss_entry_with(feed, row.html));
        layout_t layout = frame();
        std::string marks;
        for (u32 i = 0; i < layout.command_count; i++) {
            const layout_command_t &c = layout.commands[i];
            if (c.kind != layout_kind_user) continue;
            marks += c.user.b ? text_of(*(const data_t *)c.user.b) : "/";
        }
        EXPECT_EQ(marks, row.marks) << row.html;
    }
}

TEST_F(article_test_t, a_failed_parse_shows_the_source_and_tells_the_log) {
    log_channel_t *user = log_channel(log_user);
    u64 before = user->data.bytes ? user->data.used : 0;
    const std::string source = "a<b c=\"d>e";
    EXPECT_EQ(joined(article(source)), "1:" + source + "\n");
    std::string told((const char *)user->data.bytes + before, user->data.used - before);
    EXPECT_NE(told.find("quoted"), std::string::npos) << told;
    EXPECT_NE(told.find(source + "\n"), std::string::npos) << told;
    // Later frames show the source again, without parsing anew.
    layout_t layout = frame();
    EXPECT_EQ(lines(&layout).back(), "1:" + source);
    EXPECT_EQ(user->data.used, told.size() + before);
}

TEST_F(article_test_t, a_long_article_stops_its_first_walk_early_and_shows_whole) {
    std::string html;
    for (int i = 0; i < 400; i++) html += "<p>paragraph " + std::to_string(i) + "</p>";
    std::vector<std::string> rows = article(html);
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows.front(), "1:paragraph 0");
    // Scrolled to the end, the last paragraph is laid out too.
    state.content_scroll.y = 1e9f;
    layout_t layout = frame();
    EXPECT_EQ(lines(&layout).back(), "1:paragraph 399");
    EXPECT_TRUE(layout_has_vertical_bar(&layout));
}

TEST_F(article_test_t, a_link_split_over_lines_clicks_as_one) {
    // Narrow enough that the link's words wrap.
    rect = vec4{0, 0, 160, window_height};
    select(feed, rss_entry_with(feed, "<a href=\"http://example.org/a\">first second third fourth</a>"));
    layout_t layout = frame();
    const layout_command_t *run = find_string(&layout, "first second third fourth");
    ASSERT_NE(run, nullptr);
    ASSERT_GE(run->string.segment_count, 2u);
    vec2 first = centre(run->string.segments[0].rect), last = centre(run->string.segments[1].rect);
    // Pressed on the first line and released on the second: one click.
    frame({move(first), button(first, true)});
    frame({move(last)});
    EXPECT_EQ(links_count(&r.reader.link_configurations[0]), 0u);
    frame({button(last, false)});
    EXPECT_EQ(links_count(&r.reader.link_configurations[0]), 1u);
    EXPECT_EQ(text_of(r.reader.link_configurations[0].queued_links).find("http://example.org/a"), 0u);
    EXPECT_FALSE(ui_any_active(&ui));
}

} // namespace

// ---- pictures against a loopback server ---------------------------------------------------------

namespace {

struct picture_test_t : article_test_t {
    test_image_cache_t cache;
    test_server_t server{[](const std::string &path) {
        if (path == "/wide.png") return test_response_t{200, test_png(2000, 100)};
        if (path == "/small.jpg") return test_response_t{200, test_jpeg(64, 48)};
        if (path == "/tall.png") return test_response_t{200, test_png(1000, 1000, 1)};
        return test_response_t{404, "<html><body>Not found</body></html>"};
    }};
    void SetUp() override {
        article_test_t::SetUp();
        r.reader.entry_forget = image_queries_forget;
    }
    // Frames until no worker holds a slot after one.
    layout_t settle() {
        layout_t layout = frame();
        for (int round = 0; round < 4; round++) {
            for (auto &slot : image_cache.slots) cache.wait(&slot);
            layout = frame();
        }
        return layout;
    }
    static const layout_command_t *box_of(layout_t *layout, const std::string &url) {
        for (u32 i = 0; i < layout->command_count; i++) {
            const layout_command_t *c = &layout->commands[i];
            if (c->kind == layout_kind_box && c->box.user && text_of(*(const data_t *)c->box.user) == url) return c;
        }
        return nullptr;
    }
};

TEST_F(picture_test_t, pictures_reach_the_column_or_say_why_not) {
    const std::string wide = server.url("/wide.png"), small = server.url("/small.jpg");
    const std::string missing = server.url("/missing.png"), refused = "http://127.0.0.1:1/x.png";
    const std::string tall = server.url("/tall.png"); // brings the vertical bar
    entry_t *entry = rss_entry_with(feed, "<img src=\"" + wide + "\"><img src=\"" + small + "\"><img alt=a src=\"" +
                                              missing + "\"><img alt=b src=\"" + refused + "\"><img src=\"" + tall +
                                              "\">");
    select(feed, entry);
    layout_t layout = settle();
    EXPECT_TRUE(layout_has_vertical_bar(&layout));
    EXPECT_FALSE(layout_has_horizontal_bar(&layout));
    const layout_command_t *box = box_of(&layout, wide);
    ASSERT_NE(box, nullptr);
    // Narrowed to the column, which leaves room for the bar: the box less its margins.
    EXPECT_EQ(box->box.rect.z - box->box.rect.x, layout.width - 8);
    EXPECT_EQ(box->box.rect.w - box->box.rect.y, std::floor((layout.width - 8) / 20));
    box = box_of(&layout, tall);
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->box.rect.z - box->box.rect.x, layout.width - 8);
    box = box_of(&layout, small);
    ASSERT_NE(box, nullptr);
    EXPECT_EQ(box->box.rect.z - box->box.rect.x, 64);
    EXPECT_EQ(box->box.rect.w - box->box.rect.y, 48);
    std::string text = joined(lines(&layout));
    // A 404 is a failure with its own name, not a body to decode.
    EXPECT_NE(text.find("1:[img]|1:a|1: Loading error.|1: Code: |1:http_error_status|1:[/img]"), std::string::npos)
        << text;
    EXPECT_NE(text.find("1:[img]|1:b|1: Loading error.|1: Code: |1:http_error_internet_open_url|1:[/img]"),
              std::string::npos)
        << text;
    // The error is red.
    const layout_command_t *error = find_string(&layout, " Loading error.");
    ASSERT_NE(error, nullptr);
    const layout_command_t *colour = error - 1;
    ASSERT_EQ(colour->kind, (u32)layout_kind_colour_push);
    EXPECT_EQ(colour->colour_push.colour.x, 1);
    EXPECT_EQ(colour->colour_push.colour.y, 0);

    // The entry goes: its pictures with it.
    EXPECT_EQ(cache.slots_in_use(), 5u);
    state.selected_entry = nullptr;
    reader_delete_entry(&r.reader, entry, feed);
    EXPECT_EQ(cache.slots_in_use(), 0u);
}

TEST_F(picture_test_t, a_picture_below_the_fold_waits_until_scrolled_to) {
    std::string html;
    for (int i = 0; i < 100; i++) html += "<p>paragraph</p>";
    html += "<img src=\"" + server.url("/small.jpg") + "\">";
    select(feed, rss_entry_with(feed, html));
    settle();
    EXPECT_EQ(server.hits("/small.jpg"), 0);
    state.content_scroll.y = 1e9f;
    layout_t layout = settle();
    EXPECT_EQ(server.hits("/small.jpg"), 1);
    EXPECT_NE(box_of(&layout, server.url("/small.jpg")), nullptr);
}

} // namespace
