// feed_rss.cpp - a `channel` (and, for RSS 1.0, its `rdf` siblings) to an
// RSS feed record and its items to entries, judged by date first and guid
// second.
#include "base/dates.h"
#include "feed/feed.h"

static u64 rss_number(const data_t *text) { return (u64)text_to_i64(text->bytes, text->used); }

static date_t rss_date(const xml_node_t *node) {
    data_t text = node_text(node);
    return date_parse_feed(&text);
}

bool feed_is_web_address(const data_t *text) {
    data_t http = data_literal("http://"), https = data_literal("https://");
    return data_starts_with_ignore_case(text, &http) || data_starts_with_ignore_case(text, &https);
}

const data_t *feed_rss_article_link(const entry_t *entry) {
    const data_t *guid = &entry->rss.guid;
    return entry->rss.guid_is_perma_link && feed_is_web_address(guid) ? guid : &entry->rss.link;
}

// The item's date: its pubDate, else its dc:date (RSS 1.0 has no other);
// elements whose text reads as no date don't count.
struct rss_item_dates_t {
    date_t pub_date;
    date_t dc_date;
};

static void rss_item_child(feed_run_t *run, entry_t *entry, const xml_node_t *child, rss_item_dates_t *dates,
                           bool *refused) {
    switch (child->name_index) {
    case xml_title: feed_run_set_node(run, child, &entry->rss.title); break;
    case xml_link: feed_run_set_node(run, child, &entry->rss.link); break;
    case xml_description: feed_run_set_node(run, child, &entry->rss.description); break;
    case xml_pub_date: {
        date_t date = rss_date(child);
        if (!date_is_empty(&date)) dates->pub_date = date;
        break;
    }
    case xml_category: {
        category_t raw = {};
        raw.term = node_text(child);
        if (!feed_link_category(run->reader, run->encoding, &raw, link_kind_rss_entry_category, entry->id,
                                &entry->rss.category_count, run->scratch))
            *refused = true; // no room for it
        break;
    }
    case xml_author: feed_run_set_node(run, child, &entry->rss.author); break;
    case xml_comments: feed_run_set_node(run, child, &entry->rss.comments); break;
    case xml_enclosure:
        for (u32 a = 0; a < child->attribute_count; a++) {
            const xml_attribute_t *attribute = child->attributes[a];
            switch (attribute->name_index) {
            case xml_attribute_url: feed_run_set(run, &attribute->value, &entry->rss.enclosure_url); break;
            case xml_attribute_length: entry->rss.enclosure_length = rss_number(&attribute->value); break;
            case xml_attribute_type: feed_run_set(run, &attribute->value, &entry->rss.enclosure_type); break;
            default: break;
            }
        }
        break;
    case xml_guid: {
        feed_run_set_node(run, child, &entry->rss.guid);
        const data_t *perma = node_attribute(child, xml_attribute_is_perma_link);
        entry->rss.guid_is_perma_link = perma && !memory_equal(perma->bytes, perma->used, "true", 4) ? 0 : 1;
        break;
    }
    case xml_source: {
        feed_run_set_node(run, child, &entry->rss.source);
        const data_t *url = node_attribute(child, xml_attribute_url);
        if (url) feed_run_set(run, url, &entry->rss.source_url);
        break;
    }
    case xml_content: // another content stands in for a description not given first
        if (child->prefixed_index != xml_content_encoded && entry->rss.description.used == 0)
            feed_run_set_node(run, child, &entry->rss.description);
        break;
    default:
        if (child->prefixed_index == xml_dc_date) {
            date_t date = rss_date(child);
            if (!date_is_empty(&date)) dates->dc_date = date;
        }
        break;
    }
}

// What Dublin Core, content:encoded and rdf:about give an item once its own
// elements are read: the whole article (content:encoded) over the summary
// in `description`, dc:creator where there is no author, rdf:about as the
// guid where there is none (a perma-link only when it is an address).
static void rss_item_extras(feed_run_t *run, entry_t *entry, const xml_node_t *item) {
    const xml_node_t *article = nullptr, *creator = nullptr;
    for (u32 i = 0; i < item->child_count; i++) {
        const xml_node_t *child = item->children[i];
        if (child->prefixed_index == xml_content_encoded && node_text(child).used) article = child;
        if (child->prefixed_index == xml_dc_creator && !creator && node_text(child).used) creator = child;
    }
    if (article) feed_run_set_node(run, article, &entry->rss.description);
    if (creator && entry->rss.author.used == 0) feed_run_set_node(run, creator, &entry->rss.author);
    if (entry->rss.guid.used) return;
    for (u32 a = 0; a < item->attribute_count; a++) {
        const xml_attribute_t *attribute = item->attributes[a];
        if (attribute->prefixed_index != xml_rdf_about || attribute->value.used == 0) continue;
        feed_run_set(run, &attribute->value, &entry->rss.guid);
        entry->rss.guid_is_perma_link = feed_is_web_address(&entry->rss.guid) ? 1 : 0;
        break;
    }
}

static void rss_item(feed_run_t *run, const xml_node_t *item) {
    reader_t *reader = run->reader;
    // A full reader refuses the item, as it refuses an old one: what is
    // stored stays, reader->full tells the caller, and the user is told
    // once per update what to do. Stopping the program here would lose the
    // whole update for want of room for one item.
    if (!feed_reserve_for_item(reader, item)) return;
    reader_text_mark_t mark = reader_text_mark(reader);
    date_t saved_newest = run->newest;
    entry_t *entry = reader_new_entry(reader);
    if (!entry) return;
    entry->rss.guid_is_perma_link = 1;

    bool refused = false;
    rss_item_dates_t dates = {};
    for (u32 i = 0; i < item->child_count && !refused; i++)
        rss_item_child(run, entry, item->children[i], &dates, &refused);
    // A dated item must be newer than the threshold; an undated one never is refused.
    date_t date = date_is_empty(&dates.pub_date) ? dates.dc_date : dates.pub_date;
    entry->rss.pub_date = date;
    if (!date_is_empty(&date)) {
        if (date_is_after(date, run->threshold)) run->newest = feed_later(run->newest, date);
        else refused = true;
    }
    if (!refused) rss_item_extras(run, entry, item);

    if (refused) {
        entry->type_and_flags = reader_type_rss;
        reader_delete_entry(reader, entry, nullptr);
        reader_text_rollback(reader, mark);
        run->newest = saved_newest;
        return;
    }
    entry_t *twin = feed_run_find_twin(run, &entry->rss.guid);
    if (twin) reader_delete_entry(reader, twin, run->feed);
    reader_accept_entry(reader, run->feed, entry);
}

static const char *const rss_day_names[7] = {"Monday", "Tuesday", "Wednesday", "Thursday",
                                             "Friday", "Saturday", "Sunday"};

// A channel's Dublin Core, taken where the document has no RSS element of its own.
struct rss_channel_extras_t {
    bool has_pub_date;
    bool has_managing_editor;
    date_t dc_date;
    const xml_node_t *creator;
};

static void rss_channel_child(feed_run_t *run, const xml_node_t *child, rss_channel_extras_t *extras) {
    feed_rss_t *rss = &run->feed->rss;
    switch (child->name_index) {
    case xml_title: feed_run_set_node(run, child, &rss->title); break;
    case xml_link: feed_run_set_node(run, child, &rss->link); break;
    case xml_description: feed_run_set_node(run, child, &rss->description); break;
    case xml_language: feed_run_set_node(run, child, &rss->language); break;
    case xml_copyright: feed_run_set_node(run, child, &rss->copyright); break;
    case xml_managing_editor:
        feed_run_set_node(run, child, &rss->managing_editor);
        extras->has_managing_editor = true;
        break;
    case xml_web_master: feed_run_set_node(run, child, &rss->web_master); break;
    case xml_pub_date: {
        date_t date = rss_date(child);
        extras->has_pub_date |= !date_is_empty(&date);
        if (date_is_after(date, rss->pub_date)) rss->pub_date = date;
        break;
    }
    case xml_last_build_date: {
        date_t date = rss_date(child);
        if (date_is_after(date, rss->last_build_date)) rss->last_build_date = date;
        break;
    }
    case xml_category: {
        category_t raw = {};
        raw.term = node_text(child);
        feed_link_category(run->reader, run->encoding, &raw, link_kind_rss_feed_category, run->feed->id,
                           &rss->category_count, run->scratch);
        break;
    }
    case xml_generator: feed_run_set_node(run, child, &rss->generator); break;
    case xml_docs: feed_run_set_node(run, child, &rss->docs); break;
    case xml_cloud:
        for (u32 a = 0; a < child->attribute_count; a++) {
            const xml_attribute_t *attribute = child->attributes[a];
            switch (attribute->name_index) {
            case xml_attribute_domain: feed_run_set(run, &attribute->value, &rss->cloud_domain); break;
            case xml_attribute_port: rss->cloud_port = (u32)rss_number(&attribute->value); break;
            case xml_attribute_path: feed_run_set(run, &attribute->value, &rss->cloud_path); break;
            case xml_attribute_register_procedure:
                feed_run_set(run, &attribute->value, &rss->cloud_register_procedure);
                break;
            case xml_attribute_protocol: feed_run_set(run, &attribute->value, &rss->cloud_protocol); break;
            default: break;
            }
        }
        break;
    case xml_ttl: {
        data_t text = node_text(child);
        rss->ttl = (u32)rss_number(&text);
        break;
    }
    case xml_image: // the children's own texts: no CDATA sections here
        for (u32 i = 0; i < child->child_count; i++) {
            const xml_node_t *part = child->children[i];
            switch (part->name_index) {
            case xml_url: feed_run_set(run, &part->text, &rss->image_url); break;
            case xml_title: feed_run_set(run, &part->text, &rss->image_title); break;
            case xml_link: feed_run_set(run, &part->text, &rss->image_link); break;
            case xml_description: feed_run_set(run, &part->text, &rss->image_description); break;
            case xml_width: rss->image_width = (u32)rss_number(&part->text); break;
            case xml_height: rss->image_height = (u32)rss_number(&part->text); break;
            default: break;
            }
        }
        break;
    case xml_rating: feed_run_set_node(run, child, &rss->rating); break;
    case xml_text_input:
        for (u32 i = 0; i < child->child_count; i++) {
            const xml_node_t *part = child->children[i];
            switch (part->name_index) {
            case xml_title: feed_run_set(run, &part->text, &rss->text_input_title); break;
            case xml_description: feed_run_set(run, &part->text, &rss->text_input_description); break;
            case xml_name: feed_run_set(run, &part->text, &rss->text_input_name); break;
            case xml_link: feed_run_set(run, &part->text, &rss->text_input_link); break;
            default: break;
            }
        }
        break;
    case xml_skip_hours: // flags are only ever set
        for (u32 i = 0; i < child->child_count; i++) {
            const xml_node_t *part = child->children[i];
            if (part->name_index != xml_hour) continue;
            data_t text = node_text(part);
            u64 hour = rss_number(&text);
            if (hour < 24) rss->skip_hours[hour] = 1;
        }
        break;
    case xml_skip_days:
        for (u32 i = 0; i < child->child_count; i++) {
            const xml_node_t *part = child->children[i];
            if (part->name_index != xml_day) continue;
            data_t text = node_text(part);
            for (u32 d = 0; d < 7; d++) {
                if (memory_equal(text.bytes, text.used, rss_day_names[d], string_length(rss_day_names[d])))
                    rss->skip_days[d] = 1;
            }
        }
        break;
    case xml_item: rss_item(run, child); break;
    default:
        if (child->prefixed_index == xml_dc_date) extras->dc_date = feed_later(extras->dc_date, rss_date(child));
        if (child->prefixed_index == xml_dc_creator && !extras->creator && node_text(child).used)
            extras->creator = child;
        break;
    }
}

feed_t *feed_map_rss(reader_t *reader, xml_node_t *channel, xml_node_t *rdf, const data_t *url, feed_t *feed,
                     u32 encoding, data_t *scratch) {
    feed_run_t run = {};
    run.reader = reader;
    run.encoding = encoding;
    run.scratch = scratch;
    if (feed) {
        run.threshold = feed->rss.last_build_date;
    } else {
        // No room for the feed or its address: nothing is made.
        if (!reader_text_fits(reader, url->used)) return nullptr;
        feed = reader_new_feed(reader, reader_type_rss);
        if (!feed) return nullptr;
        feed_url_set(reader, url, &feed->url);
    }
    run.feed = feed;

    // RSS 1.0 puts items and the image beside the channel, in rdf:RDF.
    const xml_node_t *passes[2] = {channel, rdf != channel ? rdf : nullptr};
    rss_channel_extras_t extras = {};
    for (const xml_node_t *parent : passes) {
        if (!parent) continue;
        for (u32 i = 0; i < parent->child_count; i++) rss_channel_child(&run, parent->children[i], &extras);
    }
    feed_rss_t *rss = &feed->rss;
    if (!extras.has_pub_date && date_is_after(extras.dc_date, rss->pub_date)) rss->pub_date = extras.dc_date;
    if (!extras.has_managing_editor && extras.creator) feed_run_set_node(&run, extras.creator, &rss->managing_editor);

    date_t *last = &feed->rss.last_build_date;
    if (date_is_empty(last) || date_is_after(run.newest, *last)) *last = run.newest;
    return feed;
}
