// dump_reader.cpp - the dump command: a snapshot as JSON, every record of
// every pool with its slot, then the counters and the code point count. The
// fields come from the lists of reader/reader_fields.h, in record order.
#include "tools/tool/tool.h"

// One JSON member per field of a list, read from `record`.
#define DUMP_string(name) json_string(#name, &record->name);
#define DUMP_date(name) json_date(#name, record->name);
#define DUMP_u32(name) json_number(#name, record->name);
#define DUMP_u64(name) json_number(#name, record->name);
#define DUMP_unused(name)
#define DUMP_hours(name) json_flags(#name, record->name, 24);
#define DUMP_days(name) json_flags(#name, record->name, 7);
#define DUMP_FIELD(kind, name) DUMP_##kind(name)

static void dump_type(u32 type_and_flags) {
    u32 type = type_and_flags & reader_type_mask;
    json_key("type");
    out_json_c(type == reader_type_rss ? "rss" : type == reader_type_atom ? "atom" : "free");
    json_bool("deleted", (type_and_flags & reader_deleted) != 0);
}

static void dump_feed_rss(const feed_rss_t *record) { READER_FEED_RSS_FIELDS(DUMP_FIELD) }
static void dump_feed_atom(const feed_atom_t *record) { READER_FEED_ATOM_FIELDS(DUMP_FIELD) }
static void dump_entry_rss(const entry_rss_t *record) { READER_ENTRY_RSS_FIELDS(DUMP_FIELD) }
static void dump_entry_atom(const entry_atom_t *record) { READER_ENTRY_ATOM_FIELDS(DUMP_FIELD) }

static void dump_feed(const feed_t *record) {
    dump_type(record->type_and_flags);
    READER_FEED_FIELDS(DUMP_FIELD)
    if (feed_get_type(record) == reader_type_rss) dump_feed_rss(&record->rss);
    else dump_feed_atom(&record->atom);
}

static void dump_entry(const entry_t *record) {
    dump_type(record->type_and_flags);
    READER_ENTRY_FIELDS(DUMP_FIELD)
    if (entry_get_type(record) == reader_type_rss) dump_entry_rss(&record->rss);
    else dump_entry_atom(&record->atom);
}

static void dump_category(const category_t *record) { READER_CATEGORY_FIELDS(DUMP_FIELD) }
static void dump_person(const person_t *record) { READER_PERSON_FIELDS(DUMP_FIELD) }
static void dump_atom_link(const atom_link_t *record) { READER_ATOM_LINK_FIELDS(DUMP_FIELD) }
static void dump_link(const link_t *record) { READER_LINK_FIELDS(DUMP_FIELD) }

static void dump_meta(const meta_t *record) {
    READER_META_FIELDS(DUMP_FIELD)
    json_number("link_configuration",
                (u64)(record->link_configuration - tool_engine.reader.link_configurations));
}

// The valid records of a pool as an array of objects, each with its slot.
template <typename record_t>
static void dump_pool(const char *name, pool_t *pool, bool (*is_valid)(const record_t *),
                      void (*dump)(const record_t *)) {
    json_key(name);
    json_open("[");
    for (u32 i = 0; i < pool->max_entry_count; i++) {
        const record_t *record = (const record_t *)pool_entry(pool, sizeof(record_t), i);
        if (!is_valid(record)) continue;
        json_separator();
        json_open("{");
        json_number("slot", i);
        dump(record);
        json_close("}");
    }
    json_close("]");
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

    dump_pool("feeds", &reader->feeds, feed_is_valid, dump_feed);
    dump_pool("entries", &reader->entries, entry_is_valid, dump_entry);
    dump_pool("categories", &reader->categories, category_is_valid, dump_category);
    dump_pool("persons", &reader->persons, person_is_valid, dump_person);
    dump_pool("atom_links", &reader->atom_links, atom_link_is_valid, dump_atom_link);
    dump_pool("links", &reader->links, link_is_valid, dump_link);
    dump_pool("metas", &reader->metas, meta_is_valid, dump_meta);

    json_key("link_configurations");
    json_open("[");
    for (const link_configuration_t &configuration : reader->link_configurations) {
        const link_configuration_t *record = &configuration;
        json_separator();
        json_open("{");
        READER_LINK_CONFIGURATION_FIELDS(DUMP_FIELD)
        json_close("}");
    }
    json_close("]");
    json_number("code_point_count", tool_engine.code_points.count);
    json_close("}");
    out_c("\n");
    return 0;
}
