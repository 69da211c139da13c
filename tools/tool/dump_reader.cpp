// dump_reader.cpp - the dump command: a snapshot as JSON, every record of
// every pool with its slot, then the counters and the code point count.
#include "tools/tool/tool.h"

static void dump_type(u32 type_and_flags) {
    u32 type = type_and_flags & reader_type_mask;
    json_key("type");
    out_json_c(type == reader_type_rss ? "rss" : type == reader_type_atom ? "atom" : "free");
    json_bool("deleted", (type_and_flags & reader_deleted) != 0);
}

static void dump_feed(const feed_t *feed, u32 slot) {
    json_separator();
    json_open("{");
    json_number("slot", slot);
    dump_type(feed->type_and_flags);
    json_number("type_and_flags", feed->type_and_flags);
    json_number("id", feed->id);
    json_number("entry_count", feed->entry_count);
    json_string("url", &feed->url);
    if (feed_get_type(feed) == reader_type_rss) {
        const feed_rss_t *r = &feed->rss;
        json_string("title", &r->title);
        json_string("link", &r->link);
        json_string("description", &r->description);
        json_string("language", &r->language);
        json_string("copyright", &r->copyright);
        json_string("managing_editor", &r->managing_editor);
        json_string("web_master", &r->web_master);
        json_date("pub_date", r->pub_date);
        json_date("last_build_date", r->last_build_date);
        json_number("category_count", r->category_count);
        json_string("generator", &r->generator);
        json_string("docs", &r->docs);
        json_string("cloud_domain", &r->cloud_domain);
        json_number("cloud_port", r->cloud_port);
        json_string("cloud_path", &r->cloud_path);
        json_string("cloud_register_procedure", &r->cloud_register_procedure);
        json_string("cloud_protocol", &r->cloud_protocol);
        json_number("ttl", r->ttl);
        json_string("image_url", &r->image_url);
        json_string("image_title", &r->image_title);
        json_string("image_link", &r->image_link);
        json_number("image_width", r->image_width);
        json_number("image_height", r->image_height);
        json_string("image_description", &r->image_description);
        json_string("rating", &r->rating);
        json_string("text_input_title", &r->text_input_title);
        json_string("text_input_description", &r->text_input_description);
        json_string("text_input_name", &r->text_input_name);
        json_string("text_input_link", &r->text_input_link);
        json_flags("skip_hours", r->skip_hours, 24);
        json_flags("skip_days", r->skip_days, 7);
    } else {
        const feed_atom_t *a = &feed->atom;
        json_number("author_count", a->author_count);
        json_number("category_count", a->category_count);
        json_number("contributor_count", a->contributor_count);
        json_number("link_count", a->link_count);
        json_string("generator", &a->generator);
        json_string("generator_uri", &a->generator_uri);
        json_string("generator_version", &a->generator_version);
        json_string("icon", &a->icon);
        json_string("logo", &a->logo);
        json_string("atom_id", &a->atom_id);
        json_string("rights", &a->rights);
        json_string("subtitle", &a->subtitle);
        json_string("title", &a->title);
        json_date("updated", a->updated);
    }
    json_close("}");
}

static void dump_entry(const entry_t *entry, u32 slot) {
    json_separator();
    json_open("{");
    json_number("slot", slot);
    dump_type(entry->type_and_flags);
    json_number("type_and_flags", entry->type_and_flags);
    json_number("id", entry->id);
    json_number("feed_id", entry->feed_id);
    json_number("generation", entry->generation);
    if (entry_get_type(entry) == reader_type_rss) {
        const entry_rss_t *r = &entry->rss;
        json_string("title", &r->title);
        json_string("link", &r->link);
        json_string("description", &r->description);
        json_string("author", &r->author);
        json_string("comments", &r->comments);
        json_string("enclosure_url", &r->enclosure_url);
        json_number("enclosure_length", r->enclosure_length);
        json_string("enclosure_type", &r->enclosure_type);
        json_string("source", &r->source);
        json_string("source_url", &r->source_url);
        json_string("guid", &r->guid);
        json_number("guid_is_perma_link", r->guid_is_perma_link);
        json_number("category_count", r->category_count);
        json_date("pub_date", r->pub_date);
    } else {
        const entry_atom_t *a = &entry->atom;
        json_number("author_count", a->author_count);
        json_number("category_count", a->category_count);
        json_number("contributor_count", a->contributor_count);
        json_number("link_count", a->link_count);
        json_string("content", &a->content);
        json_string("atom_id", &a->atom_id);
        json_string("rights", &a->rights);
        json_string("source", &a->source);
        json_string("summary", &a->summary);
        json_string("title", &a->title);
        json_date("published", a->published);
        json_date("updated", a->updated);
    }
    json_close("}");
}

static void dump_pool_start(const char *name) {
    json_key(name);
    json_open("[");
}

int tool_dump(const tool_args_t *args) {
    data_t file = {};
    if (args->item_count > 1 || (args->item_count == 1 && args->path.bytes)) return tool_usage();
    if (args->item_count == 1) file = tool_item(args, 0);
    if (!tool_open(&args->path, args->item_count ? &file : nullptr)) return 2;
    reader_t *reader = &tool_engine.reader;

    json_open("{");
    json_key("counters");
    json_open("{");
    json_number("last_feed_id", reader->last_feed_id);
    json_number("last_entry_id", reader->last_entry_id);
    json_number("last_category_id", reader->last_category_id);
    json_number("last_person_id", reader->last_person_id);
    json_number("generation", reader->generation);
    json_close("}");

    dump_pool_start("feeds");
    for (u32 i = 0; i < reader->feeds.max_entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        if (feed_is_valid(feed)) dump_feed(feed, i);
    }
    json_close("]");

    dump_pool_start("entries");
    for (u32 i = 0; i < reader->entries.max_entry_count; i++) {
        entry_t *entry = (entry_t *)pool_entry(&reader->entries, sizeof(entry_t), i);
        if (entry_is_valid(entry)) dump_entry(entry, i);
    }
    json_close("]");

    dump_pool_start("categories");
    for (u32 i = 0; i < reader->categories.max_entry_count; i++) {
        category_t *c = (category_t *)pool_entry(&reader->categories, sizeof(category_t), i);
        if (!category_is_valid(c)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        json_number("id", c->id);
        json_string("term", &c->term);
        json_string("scheme", &c->scheme);
        json_string("label", &c->label);
        json_close("}");
    }
    json_close("]");

    dump_pool_start("persons");
    for (u32 i = 0; i < reader->persons.max_entry_count; i++) {
        person_t *p = (person_t *)pool_entry(&reader->persons, sizeof(person_t), i);
        if (!person_is_valid(p)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        json_number("id", p->id);
        json_string("name", &p->name);
        json_string("uri", &p->uri);
        json_string("email", &p->email);
        json_close("}");
    }
    json_close("]");

    dump_pool_start("atom_links");
    for (u32 i = 0; i < reader->atom_links.max_entry_count; i++) {
        atom_link_t *l = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), i);
        if (!atom_link_is_valid(l)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        json_number("owner_kind", l->owner_kind);
        json_number("owner_id", l->owner_id);
        json_string("href", &l->href);
        json_string("type", &l->type);
        json_string("hreflang", &l->hreflang);
        json_string("title", &l->title);
        json_number("rel", l->rel);
        json_number("length", l->length);
        json_close("}");
    }
    json_close("]");

    dump_pool_start("links");
    for (u32 i = 0; i < reader->links.max_entry_count; i++) {
        link_t *l = (link_t *)pool_entry(&reader->links, sizeof(link_t), i);
        if (!link_is_valid(l)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        json_number("kind", l->kind);
        json_number("owner_id", l->owner_id);
        json_number("target_id", l->target_id);
        json_close("}");
    }
    json_close("]");

    dump_pool_start("metas");
    for (u32 i = 0; i < reader->metas.max_entry_count; i++) {
        meta_t *m = (meta_t *)pool_entry(&reader->metas, sizeof(meta_t), i);
        if (!meta_is_valid(m)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        json_number("feed_id", m->feed_id);
        json_number("flags", m->flags);
        json_number("link_configuration", (u64)(m->link_configuration - reader->link_configurations));
        json_close("}");
    }
    json_close("]");

    dump_pool_start("link_configurations");
    for (u32 i = 0; i < reader_link_configuration_count; i++) {
        link_configuration_t *c = &reader->link_configurations[i];
        json_separator();
        json_open("{");
        json_string("name", &c->name);
        json_string("executable", &c->executable);
        json_string("queued_links", &c->queued_links);
        json_number("queue_links", c->queue_links);
        json_close("}");
    }
    json_close("]");
    json_number("code_point_count", tool_engine.code_points.count);
    json_close("}");
    out_c("\n");
    return 0;
}
