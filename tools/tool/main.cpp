// tidewrack-tool - the program's engine without a window: fetching and
// parsing feeds into the reader files, the feed list file, and dumps of the
// reader, of HTML documents and of decoded text for looking at them.
//
//   update [-path DIR] [-log] [URL...]  fetch the given addresses, or every feed
//   import [-path DIR] [-log] FILE    fetch every address of a list or OPML file
//   export [-path DIR] FILE           write the feed list (OPML when FILE ends in .opml)
//   parse  [-path DIR] [--url URL] FILE   read a local document as if fetched
//   dump   [-path DIR | FILE.bin]     the newest snapshot (or a file) as JSON
//   html   [--strict] FILE            tokens and tree of an HTML document as JSON
//   discover [--url PAGE_URL] FILE | URL   the feed addresses a page names (discover.cpp)
//   decode LABEL FILE                 FILE's bytes in that encoding, as UTF-8
//
// The fetching commands run the same road as the program: the feed query
// slots, the workers, the scan, then the shut-down order (workers stopped,
// deleted records purged, audit, save). With "-log" they write the main log
// to log.txt in the current directory at the end, as the program does.
#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "base/thread_queue.h"
#include "html/html.h"
#include "net/feed_list.h"
#include "net/feed_query.h"
#include "net/http.h"
#include "os/os_core.h"
#include "reader/reader.h"

#include <stdio.h>

// ---- output ----------------------------------------------------------------------------------

struct tool_out_t {
    u8 buffer[1 << 16];
    u64 used;
    bool failed;
};

static tool_out_t tool_out;

static void out_flush() {
    if (tool_out.used && fwrite(tool_out.buffer, 1, tool_out.used, stdout) != tool_out.used) tool_out.failed = true;
    tool_out.used = 0;
}

static void out_bytes(const void *bytes, u64 size) {
    const u8 *p = (const u8 *)bytes;
    while (size) {
        if (tool_out.used == sizeof(tool_out.buffer)) out_flush();
        u64 room = sizeof(tool_out.buffer) - tool_out.used;
        u64 n = size < room ? size : room;
        memory_copy(tool_out.buffer + tool_out.used, p, n);
        tool_out.used += n;
        p += n;
        size -= n;
    }
}

static void out_c(const char *text) { out_bytes(text, string_length(text)); }

static void out_number(u64 value) {
    u8 digits[32];
    u64 n = number_to_text(digits, sizeof(digits), value, 0, ' ', 0);
    out_bytes(digits, n);
}

static void out_code_point(u32 code_point) {
    u8 bytes[4];
    u8 size = 0;
    u32 error = 0;
    utf8_encode(bytes, bytes + 4, code_point, &size, &error);
    if (error) utf8_encode(bytes, bytes + 4, code_point_replacement, &size, &(error = 0));
    out_bytes(bytes, size);
}

// A JSON string of any bytes: valid UTF-8 passes as it is, control characters
// and the two that must be escaped are escaped, and each byte that does not
// start a valid UTF-8 sequence becomes U+FFFD.
static void out_json_string(const u8 *bytes, u64 size) {
    static const char hex[] = "0123456789abcdef";
    out_c("\"");
    const u8 *p = bytes;
    const u8 *end = bytes + size;
    while (p < end) {
        u8 b = *p;
        if (b < 0x80) {
            if (b == '"') out_c("\\\"");
            else if (b == '\\') out_c("\\\\");
            else if (b == '\n') out_c("\\n");
            else if (b == '\r') out_c("\\r");
            else if (b == '\t') out_c("\\t");
            else if (b < 0x20 || b == 0x7F) {
                char escape[7] = {'\\', 'u', '0', '0', hex[b >> 4], hex[b & 15], 0};
                out_c(escape);
            } else out_bytes(&b, 1);
            p++;
            continue;
        }
        u32 code_point = 0;
        u8 length = 0;
        u32 error = 0;
        utf8_decode(p, end, &code_point, &length, &error);
        if (error || length == 0) {
            out_c("\\ufffd");
            p++;
        } else {
            out_bytes(p, length);
            p += length;
        }
    }
    out_c("\"");
}

static void out_json_data(const data_t *data) { out_json_string(data->bytes, data->bytes ? data->used : 0); }

static void out_json_c(const char *text) { out_json_string((const u8 *)text, string_length(text)); }

static void print_error(const char *text) { os_write_stderr(text, string_length(text)); }

static bool text_is(const data_t *text, const char *literal) {
    return memory_equal(text->bytes, text->used, literal, string_length(literal));
}

static void print_error_data(const data_t *data) {
    if (data->bytes) os_write_stderr((const char *)data->bytes, data->used);
}

// ---- JSON objects with a comma rule --------------------------------------------------------

struct json_t {
    u32 depth;
    bool first[64];
};

static json_t json;

static void json_separator() {
    if (json.depth && !json.first[json.depth]) out_c(",");
    json.first[json.depth] = false;
}

static void json_open(const char *bracket) {
    out_c(bracket);
    assert_true(json.depth + 1 < array_count(json.first));
    json.first[++json.depth] = true;
}

static void json_close(const char *bracket) {
    json.depth--;
    out_c(bracket);
}

static void json_key(const char *key) {
    json_separator();
    out_json_c(key);
    out_c(":");
}

static void json_number(const char *key, u64 value) {
    json_key(key);
    out_number(value);
}

static void json_bool(const char *key, bool value) {
    json_key(key);
    out_c(value ? "true" : "false");
}

static void json_string(const char *key, const data_t *value) {
    json_key(key);
    out_json_data(value);
}

static void json_date(const char *key, date_t date) {
    json_key(key);
    if (date_is_empty(&date)) {
        out_c("null");
        return;
    }
    u8 text[32];
    data_t t = {sizeof(text), 0, text};
    data_push_number(&t, date.year, 4, '0', 0);
    data_push_u8(&t, '-');
    data_push_number(&t, date.month, 2, '0', 0);
    data_push_u8(&t, '-');
    data_push_number(&t, date.day, 2, '0', 0);
    data_push_u8(&t, ' ');
    data_push_number(&t, date.hour, 2, '0', 0);
    data_push_u8(&t, ':');
    data_push_number(&t, date.minute, 2, '0', 0);
    data_push_u8(&t, ':');
    data_push_number(&t, date.second, 2, '0', 0);
    out_json_data(&t);
}

static void json_flags(const char *key, const u32 *flags, u32 count) {
    json_key(key);
    out_c("[");
    for (u32 i = 0; i < count; i++) {
        if (i) out_c(",");
        out_number(flags[i] ? 1 : 0);
    }
    out_c("]");
}

// ---- the engine -----------------------------------------------------------------------------

struct tool_t {
    reader_t reader;
    code_point_list_t code_points;
    u32 replacement_glyph_index;
    data_t general;
    data_t frame_memory;
    char user_folder_buffer[4096];
    data_t user_folder;
    feed_query_t slots[feed_query_slot_count];
    file_storage_t file_storage;
    feed_query_context_t context;
    feed_validators_t validators;
    os_event_t *finished_event;
    u64 user_log_printed;
    bool queue_started;
    bool write_log; // -log
};

static tool_t tool;

static void tool_wake(void *context) { os_event_signal((os_event_t *)context); }

// The reader and its memory, and the snapshot of the folder (or of `file`).
// A snapshot that can't be read is reported and gives false.
static bool tool_load(const data_t *folder, const data_t *file) {
    system_info_get();
    tool.general = data_virtual_alloc((u64)code_point_list_capacity * sizeof(u32), 0);
    tool.frame_memory = data_virtual_alloc(0xA00000, 0);
    assert_message(tool.general.bytes && tool.frame_memory.bytes, "No memory for the tool.");
    code_point_list_init(&tool.code_points, (u32 *)tool.general.bytes, code_point_list_capacity);
    reader_init(&tool.reader);
    tool.reader.code_points = &tool.code_points;
    tool.replacement_glyph_index = 0;
    tool.reader.replacement_glyph_index = &tool.replacement_glyph_index;

    if (folder && folder->used) {
        u64 n = folder->used < sizeof(tool.user_folder_buffer) - 1 ? folder->used : 0;
        if (!n) {
            print_error("tidewrack-tool: the folder's path is too long\n");
            return false;
        }
        memory_copy(tool.user_folder_buffer, folder->bytes, n);
        tool.user_folder_buffer[n] = 0;
        tool.user_folder = data_t{sizeof(tool.user_folder_buffer), n, (u8 *)tool.user_folder_buffer};
    } else {
        u64 n = os_user_data_folder(tool.user_folder_buffer, sizeof(tool.user_folder_buffer));
        if (!n) {
            print_error("tidewrack-tool: no per-user data folder (set HOME or use -path)\n");
            return false;
        }
        tool.user_folder = data_t{sizeof(tool.user_folder_buffer), n, (u8 *)tool.user_folder_buffer};
        os_user_data_parent_create();
    }

    u32 error = 0;
    data_t path = {};
    if (file) {
        path = *file;
        reader_read(&tool.reader, file, &error);
    } else {
        reader_load(&tool.reader, &tool.user_folder, &tool.frame_memory, &path, &error);
    }
    if (error) {
        reader_report_unreadable(&path, error);
        return false;
    }
    tool.frame_memory.used = 0;
    return true;
}

static void tool_start_fetching() {
    u32 error = 0;
    http_init("tidewrack", &error);
    thread_queue_init(&thread_queue, 6);
    tool.queue_started = true;
    file_storage_init(&tool.file_storage, file_storage_reserve_size, file_storage_commit_step, file_storage_unit);
    tool.finished_event = os_event_create();

    feed_query_context_t *context = &tool.context;
    context->slots = tool.slots;
    context->slot_count = feed_query_slot_count;
    context->file_storage = &tool.file_storage;
    context->queue = &thread_queue;
    context->start_generation = tool.reader.generation;
    context->frame_memory = &tool.frame_memory;
    context->wake = tool_wake;
    context->wake_context = tool.finished_event;
    feed_validators_load(&tool.validators, &tool.user_folder, &tool.reader);
    context->validators = &tool.validators;
}

// The text the user channel got since the last call goes to stderr.
static void tool_print_user_log() {
    log_channel_t *user = log_channel(log_user);
    if (!user || user->data.used <= tool.user_log_printed) return;
    os_write_stderr((const char *)user->data.bytes + tool.user_log_printed, user->data.used - tool.user_log_printed);
    tool.user_log_printed = user->data.used;
}

// The frame loop without a window: scan, then sleep until a worker finishes,
// until every slot is free again.
static void tool_run_queries() {
    for (;;) {
        feed_queries_check(&tool.context, &tool.reader);
        tool_print_user_log();
        tool.frame_memory.used = 0;
        if (!feed_query_busy_count(tool.slots, feed_query_slot_count)) break;
        os_event_wait(tool.finished_event);
    }
    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) print_error("\n");
}

// The shut-down order of the program. False when the save failed.
static bool tool_finish() {
    if (tool.queue_started) thread_terminate(&thread_queue);
    reader_purge_deleted(&tool.reader);
    reader_audit(&tool.reader);
    u32 reason = 0;
    bool saved = reader_save(&tool.reader, &tool.user_folder, &tool.frame_memory, &reason);
    // The validators are written again for the reader as saved (the purge may have changed it).
    if (saved && tool.validators.count) feed_validators_save(&tool.validators, &tool.reader, &tool.frame_memory);
    if (!saved) {
        print_error("tidewrack-tool: the reader could not be saved in ");
        print_error_data(&tool.user_folder);
        if (reason) {
            char text[256];
            u64 n = os_error_text(reason, text, sizeof(text));
            print_error(": ");
            os_write_stderr(text, n);
        }
        print_error("\n");
    }
    u32 error = 0;
    if (http_is_open()) http_close(&error);
    if (tool.write_log) {
        data_t path = data_literal("log.txt");
        u32 log_error = 0;
        log_save(log_main, &path, &log_error);
    }
    return saved;
}

// Exit status of update, import and parse: 3 when the save failed (whatever
// else happened), 1 when a fetch failed or the full reader refused records,
// 0 otherwise. (2 is a bad command line or an unreadable snapshot.)
static int tool_status(bool saved) {
    if (!saved) return 3;
    return tool.context.failed_count || tool.context.refused_count || tool.context.not_feed_count ? 1 : 0;
}

// ---- command line ------------------------------------------------------------------------------

struct tool_args_t {
    data_t path;         // -path DIR
    data_t url;          // --url URL
    bool strict;         // --strict
    bool log;            // -log: the main log to log.txt at the end
    char **items; // the rest, in order (gathered at the front of argv's tail)
    u32 item_count;
    bool bad;
};

static tool_args_t tool_parse_args(int argc, char **argv, bool allow_path, bool allow_url, bool allow_strict) {
    tool_args_t args = {};
    // Items are moved down over the options already read, so any number of
    // them fits without a list of the tool's own.
    args.items = argv + 2;
    for (int i = 2; i < argc; i++) {
        const char *a = argv[i];
        data_t value = data_from_pointer(a, string_length(a));
        if (allow_path && text_is(&value, "-path")) {
            if (i + 1 >= argc) args.bad = true;
            else args.path = data_from_pointer(argv[i + 1], string_length(argv[i + 1])), i++;
        } else if (allow_url && text_is(&value, "--url")) {
            if (i + 1 >= argc) args.bad = true;
            else args.url = data_from_pointer(argv[i + 1], string_length(argv[i + 1])), i++;
        } else if (allow_path && text_is(&value, "-log")) {
            args.log = true;
        } else if (allow_strict && text_is(&value, "--strict")) {
            args.strict = true;
        } else if (a[0] == '-' && a[1] != 0) {
            args.bad = true;
        } else {
            args.items[args.item_count++] = argv[i];
        }
    }
    return args;
}

static int tool_usage() {
    print_error("usage:\n"
                "  tidewrack-tool update [-path DIR] [-log] [URL...]\n"
                "  tidewrack-tool import [-path DIR] [-log] FILE\n"
                "  tidewrack-tool export [-path DIR] FILE\n"
                "  tidewrack-tool parse [-path DIR] [-log] [--url URL] FILE\n"
                "  tidewrack-tool dump [-path DIR | FILE.bin]\n"
                "  tidewrack-tool html [--strict] FILE\n"
                "  tidewrack-tool discover [--url PAGE_URL] FILE | URL\n"
                "  tidewrack-tool decode LABEL FILE\n");
    return 2;
}

static data_t tool_item(const tool_args_t *args, u32 index) {
    return data_from_pointer(args->items[index], string_length(args->items[index]));
}

// ---- update, import, parse ------------------------------------------------------------------------

static int tool_update(const tool_args_t *args) {
    tool.write_log = args->log;
    if (!tool_load(&args->path, nullptr)) return 2;
    tool_start_fetching();
    if (args->item_count) {
        for (u32 i = 0; i < args->item_count; i++) {
            data_t url = tool_item(args, i);
            feed_query_add_url(&tool.context, &tool.reader, &url);
        }
    } else {
        feed_query_update_all(&tool.context, &tool.reader);
    }
    tool_run_queries();
    bool saved = tool_finish();
    return tool_status(saved);
}

static int tool_import(const tool_args_t *args) {
    tool.write_log = args->log;
    if (args->item_count != 1) return tool_usage();
    data_t list = tool_item(args, 0);
    u32 error = 0;
    if (!file_exists(&list, &error)) {
        print_error("tidewrack-tool: can't read the list file ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    if (!tool_load(&args->path, nullptr)) return 2;
    tool_start_fetching();
    feed_query_add_list(&tool.context, &tool.reader, &list);
    tool_run_queries();
    bool saved = tool_finish();
    return tool_status(saved);
}

static int tool_parse(const tool_args_t *args) {
    tool.write_log = args->log;
    if (args->item_count != 1) return tool_usage();
    data_t file_path = tool_item(args, 0);
    data_t document = {};
    u32 error = 0;
    file_read_all(&document, &file_path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    if (!tool_load(&args->path, nullptr)) return 2;
    tool_start_fetching();
    data_t url = args->url.bytes ? args->url : file_path;

    // The document takes the place of a finished fetch in the first slot, so
    // the scan parses it exactly as it parses what the workers bring.
    feed_query_begin_generation(&tool.context, &tool.reader);
    u8 *copy = (u8 *)file_storage_alloc(&tool.file_storage, url.used + 1);
    assert_true(copy);
    memory_copy(copy, url.bytes, url.used);
    copy[url.used] = 0;
    data_t stored = {url.used + 1, url.used, copy};
    feed_t *known = reader_get_feed_by_url(&tool.reader, &stored);
    feed_query_t *slot = &tool.slots[0];
    feed_query_start(slot, &stored, known ? known->id : feed_query_new_feed, nullptr, nullptr);
    slot->content = document.bytes ? document : data_t{};
    __atomic_store_n(&slot->state, feed_query_finished, __ATOMIC_RELEASE);
    tool_run_queries();
    return tool_status(tool_finish());
}

// ---- export -----------------------------------------------------------------------------------------

static int tool_export(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    if (!tool_load(&args->path, nullptr)) return 2;
    data_t path = tool_item(args, 0);
    u32 error = 0;
    feed_list_export(&tool.reader, &path, &tool.frame_memory, &error);
    if (error) {
        print_error("tidewrack-tool: can't write ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    tool_print_user_log(); // how many were written
    os_write_stderr("\n", 1);
    return 0;
}

// ---- dump -------------------------------------------------------------------------------------------

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

static int tool_dump(const tool_args_t *args) {
    data_t file = {};
    if (args->item_count > 1 || (args->item_count == 1 && args->path.bytes)) return tool_usage();
    if (args->item_count == 1) file = tool_item(args, 0);
    if (!tool_load(&args->path, args->item_count ? &file : nullptr)) return 2;
    reader_t *reader = &tool.reader;

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
    json_number("code_point_count", tool.code_points.count);
    json_close("}");
    out_c("\n");
    return 0;
}

// ---- html and decode ------------------------------------------------------------------------------------

static const char *html_token_kind_name(u32 kind) {
    switch (kind) {
    case html_token_doctype: return "doctype";
    case html_token_start_tag: return "start_tag";
    case html_token_end_tag: return "end_tag";
    case html_token_comment: return "comment";
    case html_token_cdata: return "cdata";
    case html_token_text: return "text";
    default: return "none";
    }
}

static void html_dump_node_open(const html_node_t *node, bool first) {
    if (!first) out_c(",");
    if (node->kind == html_node_kind_text) {
        out_c("{\"text\":");
        out_json_data(&node->text);
        out_c("}");
        return;
    }
    data_t name = html_element_name(node->element);
    out_c("{\"element\":");
    out_json_data(&name);
    out_c(",\"attributes\":{");
    for (u32 i = 0; i < node->attribute_count; i++) {
        data_t attribute = html_attribute_name(node->attributes[i].attribute);
        if (i) out_c(",");
        out_json_data(&attribute);
        out_c(":");
        out_json_data(&node->attributes[i].value);
    }
    out_c("},\"children\":[");
}

// The children of `root` as JSON values, without recursion: the tolerant
// tree has no implied end tags, so a document of unclosed tags nests as deep
// as it has tags, and any tree the parser gives must print.
static void html_dump_children(const html_node_t *root, u64 node_count) {
    data_t stack_block = data_virtual_alloc((node_count + 1) * sizeof(u32), 0);
    assert_message(stack_block.bytes, "No memory for the tree walk.");
    u32 *next = (u32 *)stack_block.bytes; // per level: the next child to print
    u64 depth = 0;
    const html_node_t *parent = root;
    next[0] = 0;
    for (;;) {
        if (next[depth] < parent->child_count) {
            const html_node_t *child = parent->children[next[depth]];
            html_dump_node_open(child, next[depth]++ == 0);
            if (child->kind == html_node_kind_text) continue;
            parent = child;
            next[++depth] = 0;
            continue;
        }
        if (depth == 0) break;
        out_c("]}");
        parent = parent->parent;
        depth--;
    }
    data_virtual_free(&stack_block);
}

static int tool_html(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    system_info_get();
    data_t path = tool_item(args, 0);
    data_t input = {};
    u32 error = 0;
    file_read_all(&input, &path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    data_t arena = data_virtual_alloc(html_parse_document_size(&input) + 4096, 0);
    assert_message(arena.bytes, "No memory for the document.");
    log_channel_t *main_log = log_channel(log_main);
    u64 log_start = main_log ? main_log->data.used : 0;
    u32 parse_error = 0;
    html_document_t document = html_parse_document(&arena, &input, args->strict ? 0 : 1, &parse_error);

    json_open("{");
    json_key("encoding");
    out_json_c(encoding_name(document.tokens.encoding));
    json_key("error");
    json_open("{");
    json_number("code", parse_error);
    data_t error_name = parse_error ? html_error_name(parse_error) : data_t{};
    json_string("name", &error_name);
    json_close("}");
    json_key("tokens");
    json_open("[");
    for (u64 i = 0; i < document.tokens.token_count; i++) {
        const html_token_t *t = &document.tokens.tokens[i];
        json_separator();
        json_open("{");
        json_key("kind");
        out_json_c(html_token_kind_name(t->kind));
        if (t->kind == html_token_doctype) {
            json_bool("legacy", t->legacy != 0);
        } else {
            json_string("text", &t->text);
        }
        if (t->kind == html_token_start_tag) {
            json_bool("self_closing", t->self_closing != 0);
            json_key("attributes");
            json_open("[");
            for (u32 a = 0; a < t->attribute_count; a++) {
                json_separator();
                json_open("[");
                json_separator();
                out_json_data(&t->attributes[a].name);
                json_separator();
                if (t->attributes[a].value.bytes) out_json_data(&t->attributes[a].value);
                else out_c("null");
                json_close("]");
            }
            json_close("]");
        }
        json_close("}");
    }
    json_close("]");
    json_key("tree");
    json_open("[");
    if (document.tree.nodes) html_dump_children(document.tree.nodes, document.tree.node_count);
    json_close("]");
    main_log = log_channel(log_main);
    data_t log_text = {};
    if (main_log && main_log->data.used > log_start) {
        log_text = data_t{main_log->data.used - log_start, main_log->data.used - log_start,
                          main_log->data.bytes + log_start};
    }
    json_string("log", &log_text);
    json_close("}");
    out_c("\n");
    return 0;
}

static int tool_decode(int argc, char **argv) {
    if (argc != 4) return tool_usage();
    system_info_get();
    u32 encoding = encoding_label_lookup((const u8 *)argv[2], string_length(argv[2]));
    if (!encoding) {
        print_error("tidewrack-tool: unknown encoding label ");
        print_error(argv[2]);
        print_error("\n");
        return 2;
    }
    data_t path = data_from_pointer(argv[3], string_length(argv[3]));
    data_t input = {};
    u32 error = 0;
    file_read_all(&input, &path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(argv[3]);
        print_error("\n");
        return 1;
    }
    const u8 *p = input.bytes;
    const u8 *end = input.bytes + input.used;
    if (encoding == encoding_replacement) {
        // The whole of any input is one U+FFFD, and empty input nothing.
        if (input.used) out_code_point(code_point_replacement);
        return 0;
    }
    u8 state[4] = {}; // the stateful decoders keep their state here (ISO-2022-JP uses three bytes)
    while (p && p < end) {
        u32 code_point = code_point_none;
        u32 second = code_point_none;
        u8 consumed = 0;
        u32 decode_error = 0;
        encoding_decode(encoding, p, end, &code_point, &second, &consumed, state, &decode_error);
        if (consumed == 0) consumed = 1;
        out_code_point(code_point == code_point_none ? code_point_replacement : code_point);
        if (second != code_point_none) out_code_point(second);
        p += consumed;
    }
    return 0;
}

int tool_discover(int argc, char **argv); // discover.cpp; 2 for a bad command line

int main(int argc, char **argv) {
    if (argc < 2) return tool_usage();
    data_t command = data_from_pointer(argv[1], string_length(argv[1]));
    int status = 2;
    if (text_is(&command, "decode")) {
        status = tool_decode(argc, argv);
    } else if (text_is(&command, "discover")) {
        status = tool_discover(argc, argv);
        if (status == 2) return tool_usage();
    } else if (text_is(&command, "html")) {
        tool_args_t args = tool_parse_args(argc, argv, false, false, true);
        status = args.bad ? tool_usage() : tool_html(&args);
    } else {
        bool is_parse = text_is(&command, "parse");
        tool_args_t args = tool_parse_args(argc, argv, true, is_parse, false);
        if (args.bad) return tool_usage();
        if (text_is(&command, "update")) status = tool_update(&args);
        else if (text_is(&command, "import")) status = tool_import(&args);
        else if (text_is(&command, "export")) status = tool_export(&args);
        else if (is_parse) status = tool_parse(&args);
        else if (text_is(&command, "dump")) status = tool_dump(&args);
        else return tool_usage();
    }
    out_flush();
    if (fflush(stdout) != 0 || tool_out.failed) {
        print_error("tidewrack-tool: can't write to stdout\n");
        return 1;
    }
    return status;
}
