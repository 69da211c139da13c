// feed_discovery_test.cpp - feed links of pages shaped like real blogs', and
// the address resolution under them.
#include "net/feed_discovery.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> discover(const std::string &page, const std::string &url, u64 *found = nullptr) {
    data_t memory = data_virtual_alloc(0x1000000, 0);
    data_t p = {page.size(), page.size(), (u8 *)page.data()};
    data_t u = {url.size(), url.size(), (u8 *)url.data()};
    feed_discovery_t result = feed_discovery_find(&memory, &p, &u);
    std::vector<std::string> out;
    for (u64 i = 0; i < result.count; i++) out.emplace_back((const char *)result.links[i].bytes, result.links[i].used);
    if (found) *found = result.found;
    data_virtual_free(&memory);
    return out;
}

TEST(feed_discovery, pages_of_the_shapes_blogs_have) {
    const std::string head = "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>A blog</title>";
    const struct {
        const char *what;
        std::string page;
        std::vector<std::string> feeds;
    } rows[] = {
        {"a CMS's two feeds, absolute", head +
             "<link rel=\"alternate\" type=\"application/rss+xml\" title=\"Feed\" href=\"https://blog.example/feed/\" />\n"
             "<link rel=\"alternate\" type=\"application/rss+xml\" title=\"Comments\" href=\"https://blog.example/comments/feed/\" />",
         {"https://blog.example/feed/", "https://blog.example/comments/feed/"}},
        {"a site generator's relative Atom and JSON", head +
             "<LINK REL=Alternate TYPE=\"application/atom+xml\" HREF=\"../atom.xml\">"
             "<link rel=\"alternate\" type=\"application/feed+json; charset=utf-8\" href=\"feed.json\">",
         {"http://site.example/atom.xml", "http://site.example/posts/feed.json"}},
        {"a base element, rel=feed and a scheme-relative link", head +
             "<base href=\"/blog/\"><link rel=\"feed\" href=\"index.xml\">"
             "<link rel=\"alternate\" type=\"application/rss+xml\" href=\"//cdn.example/r.xml?a=1&amp;b=2\">",
         {"http://site.example/blog/index.xml", "http://cdn.example/r.xml?a=1&b=2"}},
        {"links that name no feed, and a repeat", head +
             "<link rel=\"stylesheet\" href=\"s.css\"><link rel=\"alternate\" hreflang=\"fr\" href=\"/fr/\">"
             "<link rel=\"alternate\" type=\"application/rss+xml\" href=\"/rss\">"
             "<link rel=\"alternate\" type=\"application/rss+xml\" href=\"http://site.example/rss\">"
             "<a rel=\"alternate\" type=\"application/rss+xml\" href=\"/a.xml\">RSS</a>",
         {"http://site.example/rss"}},
        {"none at all", head + "</head><body><p>Hello & welcome</p></body></html>", {}},
    };
    for (const auto &row : rows) EXPECT_EQ(discover(row.page, "http://site.example/posts/first.html"), row.feeds) << row.what;
}

TEST(feed_discovery, ten_thousand_links_keep_the_first_and_count_the_rest) {
    std::string page = "<html><head>";
    for (int i = 0; i < 10000; i++) page += "<link rel=\"feed\" href=\"/f" + std::to_string(i) + "\">";
    u64 found = 0;
    std::vector<std::string> feeds = discover(page, "http://a.example/", &found);
    ASSERT_EQ(feeds.size(), feed_discovery_capacity);
    EXPECT_EQ(feeds[0], "http://a.example/f0");
    EXPECT_EQ(found, 10000u);
}

TEST(feed_discovery, references_resolve_as_browsers_do) {
    const char *base = "http://a/b/c/d;p?q";
    const struct {
        const char *reference, *expected;
    } rows[] = {{"g", "http://a/b/c/g"},         {"./g", "http://a/b/c/g"},         {"g/", "http://a/b/c/g/"},
                {"/g", "http://a/g"},            {"//g", "http://g"},               {"?y", "http://a/b/c/d;p?y"},
                {"g?y#s", "http://a/b/c/g?y#s"}, {"", "http://a/b/c/d;p?q"},        {".", "http://a/b/c/"},
                {"..", "http://a/b/"},           {"../..", "http://a/"},            {"../../../g", "http://a/g"},
                {"/./g", "http://a/g"},          {"g/../h", "http://a/b/c/h"},      {"https:x", "https:x"}};
    data_t memory = data_virtual_alloc(0x10000, 0);
    data_t b = data_from_pointer(base, strlen(base));
    for (const auto &row : rows) {
        data_t r = data_from_pointer(row.reference, strlen(row.reference));
        data_t out = feed_discovery_resolve(&memory, &b, &r);
        EXPECT_EQ(std::string((const char *)out.bytes, out.used), row.expected) << row.reference;
    }
    data_t relative = data_from_pointer("no/scheme", 9), g = data_from_pointer("g", 1);
    EXPECT_EQ(feed_discovery_resolve(&memory, &relative, &g).used, 0u); // nothing to resolve against
    data_virtual_free(&memory);
}

} // namespace
