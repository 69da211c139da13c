// feed_stand_in.cpp - a small RSS reader that takes the feed parser's place
// while its library is missing from the build: the channel's title and each
// item's title, guid and pubDate, with the date threshold and the guid rule.
#include "feed/feed.h"

#include <string>

namespace {

std::string element_text(const std::string &block, const std::string &name) {
    size_t open = block.find("<" + name + ">");
    if (open == std::string::npos) return "";
    open += name.size() + 2;
    size_t close = block.find("</" + name + ">", open);
    if (close == std::string::npos) return "";
    return block.substr(open, close - open);
}

data_t store(reader_t *reader, const std::string &text) {
    data_t view = {text.size(), text.size(), (u8 *)text.data()};
    return text.empty() ? data_t{} : reader_text_add(reader, &view);
}

} // namespace

feed_t *feed_parse(data_t *parse_memory, reader_t *reader, const data_t *document, const data_t *url, feed_t *feed) {
    std::string doc(document->bytes ? (const char *)document->bytes : "", document->bytes ? document->used : 0);
    size_t channel = doc.find("<channel>");
    if (channel == std::string::npos) return feed;
    if (!feed) {
        feed = reader_new_feed(reader, reader_type_rss);
        feed->url = reader_text_add(reader, url);
    }
    size_t first_item = doc.find("<item>", channel);
    std::string head = doc.substr(channel, first_item == std::string::npos ? std::string::npos : first_item - channel);
    feed->rss.title = store(reader, element_text(head, "title"));
    date_t threshold = feed->rss.last_build_date;
    date_t newest = {};
    for (size_t at = first_item; at != std::string::npos; at = doc.find("<item>", at + 1)) {
        size_t end = doc.find("</item>", at);
        if (end == std::string::npos) break;
        std::string item = doc.substr(at, end - at);
        std::string date_text = element_text(item, "pubDate");
        date_t date = {};
        if (!date_text.empty()) {
            data_t d = {date_text.size(), date_text.size(), (u8 *)date_text.data()};
            date = date_parse_rfc822(&d);
            if (!date_is_after(date, threshold)) continue;
            if (date_is_after(date, newest)) newest = date;
        }
        entry_t *entry = reader_new_entry(reader);
        entry->rss.title = store(reader, element_text(item, "title"));
        entry->rss.guid = store(reader, element_text(item, "guid"));
        entry->rss.pub_date = date;
        if (entry->rss.guid.used) {
            if (entry_t *old = reader_get_entry_by_guid(reader, feed->id, &entry->rss.guid)) {
                reader_delete_entry(reader, old, feed);
            }
        }
        reader_accept_entry(reader, feed, entry);
    }
    if (date_is_empty(&feed->rss.last_build_date) || date_is_after(newest, feed->rss.last_build_date)) {
        feed->rss.last_build_date = newest;
    }
    return feed;
}
