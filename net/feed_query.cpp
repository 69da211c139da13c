// feed_query.cpp - the feed query slots: the user actions that fill them, the
// worker that fetches, and the scan that parses what came back.
#include "net/feed_query.h"

#include "base/files.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/text.h"
#include "base/thread_queue.h"
#include "feed/feed.h"
#include "net/feed_discovery.h"
#include "net/feed_list.h"
#include "net/http.h"
#include "os/os_core.h"

// ---- the slot's state word ------------------------------------------------------------

u32 feed_query_state(const feed_query_t *slot) { return __atomic_load_n(&slot->state, __ATOMIC_ACQUIRE); }

static void feed_query_set_state(feed_query_t *slot, u32 state) {
    __atomic_store_n(&slot->state, state, __ATOMIC_RELEASE);
}

feed_query_t *feed_query_free_slot(feed_query_t *slots, u64 count) {
    for (u64 i = 0; i < count; i++) {
        if (feed_query_state(&slots[i]) == feed_query_free) return &slots[i];
    }
    return nullptr;
}

void feed_query_start(feed_query_t *slot, const data_t *url, u32 feed_id, feed_query_wake_t *wake,
                      void *wake_context) {
    slot->url = *url;
    slot->feed_id = feed_id;
    slot->error = 0;
    slot->detail = 0;
    slot->content = data_t{};
    slot->wake = wake;
    slot->wake_context = wake_context;
    slot->status = 0;
    slot->flags = 0;
    slot->not_modified = false;
    slot->validator_cut = false;
    slot->validators = http_validators_t{};
    feed_query_set_state(slot, feed_query_in_flight);
}

bool feed_query_is_active(const feed_query_t *slots, u64 count, u32 feed_id) {
    for (u64 i = 0; i < count; i++) {
        if (feed_query_state(&slots[i]) == feed_query_in_flight && slots[i].feed_id == feed_id) return true;
    }
    return false;
}

u64 feed_query_busy_count(const feed_query_t *slots, u64 count) {
    u64 busy = 0;
    for (u64 i = 0; i < count; i++) busy += feed_query_state(&slots[i]) != feed_query_free;
    return busy;
}

// ---- starting fetches ---------------------------------------------------------------------

// The first fetching action of a run begins a new generation, and the shown
// range moves to it.
void feed_query_begin_generation(feed_query_context_t *context, reader_t *reader) {
    context->full_reported = 0;
    if (reader->generation == context->start_generation) {
        reader_generation_advance(reader, context->generation_minimum, context->generation_maximum);
    }
}

// A zero-terminated copy of the address in the file storage; `used` leaves
// the zero out. Empty when the storage is full.
static data_t feed_query_copy_url(feed_query_context_t *context, const u8 *bytes, u64 size) {
    u8 *copy = (u8 *)file_storage_alloc(context->file_storage, size + 1);
    if (!copy) return data_t{};
    memory_copy(copy, bytes, size);
    copy[size] = 0;
    return data_t{size + 1, size, copy};
}

// A dropped query is the user's business too: the address was not fetched.
static void feed_query_log_dropped(feed_query_context_t *context, const data_t *url, const char *reason) {
    log_string(log_main, "Feed query not started (");
    log_string(log_main, reason);
    log_string(log_main, "): ");
    log_data(log_main, url);
    log_string(log_main, "\n");
    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) log_string(log_user, "\n\n");
    log_string(log_user, "Not fetched (");
    log_string(log_user, reason);
    log_string(log_user, "; try it again once this update is done): ");
    log_data(log_user, url);
    context->failed_count++;
    if (context->show_log) context->show_log(context->show_log_context);
}

// Takes a slot for the copied address and queues its fetch. Running out of
// slots, storage or ring room drops the query with a line in the log, and
// the address is given back.
static void feed_query_queue(feed_query_context_t *context, data_t url, u32 feed_id, u32 flags = 0) {
    if (!url.bytes) {
        log_string(log_main, "Feed query not started (the file storage is full).\n");
        return;
    }
    feed_query_t *slot = feed_query_free_slot(context->slots, context->slot_count);
    if (!slot) {
        feed_query_log_dropped(context, &url, "no free query slot");
        file_storage_free(context->file_storage, url.bytes, url.reserved);
        return;
    }
    feed_query_start(slot, &url, feed_id, context->wake, context->wake_context);
    slot->flags = flags;
    // Only a stored feed may be answered "not modified": a new address must
    // come whole, whatever an earlier feed of that address left behind.
    const http_validators_t *known = context->validators && feed_id != feed_query_new_feed
                                         ? feed_validators_find(context->validators, &url)
                                         : nullptr;
    if (known) slot->validators = *known;
    if (!thread_queue_work(context->queue, feed_query_work, slot)) {
        feed_query_log_dropped(context, &url, "the work queue is full");
        slot->url = data_t{};
        feed_query_set_state(slot, feed_query_free);
        file_storage_free(context->file_storage, url.bytes, url.reserved);
    }
}

static void feed_query_add_url_only(feed_query_context_t *context, reader_t *reader, const data_t *url) {
    if (!url || !url->bytes || !url->used) return;
    const u8 *end = url->bytes + url->used;
    const u8 *first = text_find_non_space(url->bytes, end);
    if (!first) return;
    data_t copy = feed_query_copy_url(context, first, (u64)(end - first));
    u32 feed_id = feed_query_new_feed;
    if (copy.bytes) {
        if (feed_t *known = reader_get_feed_by_url(reader, &copy)) feed_id = known->id;
    }
    feed_query_queue(context, copy, feed_id);
}

void feed_query_add_url(feed_query_context_t *context, reader_t *reader, const data_t *url) {
    feed_query_begin_generation(context, reader);
    feed_query_add_url_only(context, reader, url);
}

// A new address already waiting in a slot, so a list that names it twice
// costs one query and one feed.
static bool feed_query_new_address_queued(const feed_query_context_t *context, const data_t *url) {
    for (u64 i = 0; i < context->slot_count; i++) {
        const feed_query_t *slot = &context->slots[i];
        if (feed_query_state(slot) == feed_query_free || slot->feed_id != feed_query_new_feed) continue;
        if (memory_equal(slot->url.bytes, slot->url.used, url->bytes, url->used)) return true;
    }
    return false;
}

void feed_query_add_list(feed_query_context_t *context, reader_t *reader, const data_t *path) {
    feed_query_begin_generation(context, reader);
    u32 error = 0;
    data_t file = {};
    if (path && path->used) file_read_all(&file, path, false, &error);
    if (error || !file.bytes) return;

    data_t *memory = context->frame_memory;
    u64 memory_used = memory->used;
    feed_list_t list = feed_list_read(memory, &file, context->slot_count);
    if (list.format == feed_list_other) {
        log_string(log_main, "Import: the file is neither OPML nor a list of addresses: ");
        log_data(log_main, path);
        log_string(log_main, "\n");
        log_channel_t *user = log_channel(log_user);
        if (user && user->data.used) log_string(log_user, "\n\n");
        log_string(log_user, "Nothing was imported from ");
        log_data(log_user, path);
        log_string(log_user, ": it is neither an OPML file nor a list of feed addresses.");
        if (context->show_log) context->show_log(context->show_log_context);
    }

    // New feeds may only take the room the reader has left, counting those
    // already on their way; known addresses update their feed and cost none.
    u64 room = reader_feed_capacity - reader->feeds.entry_count;
    for (u64 i = 0; i < context->slot_count; i++) {
        const feed_query_t *slot = &context->slots[i];
        if (feed_query_state(slot) != feed_query_free && slot->feed_id == feed_query_new_feed && room) room--;
    }
    u64 dropped = list.found - list.count;
    for (u64 i = 0; i < list.count; i++) {
        data_t address = list.addresses[i];
        const u8 *first = text_find_non_space(address.bytes, address.bytes + address.used);
        if (!first) continue;
        address = data_from_range(first, address.bytes + address.used);
        if (!reader_get_feed_by_url(reader, &address)) {
            if (feed_query_new_address_queued(context, &address)) continue;
            if (!room) {
                dropped++;
                continue;
            }
            room--;
        }
        feed_query_add_url_only(context, reader, &address);
    }
    if (dropped) {
        log_string(log_main, "Import: ");
        log_number(log_main, dropped);
        log_string(log_main, " addresses were not added: the reader holds at most ");
        log_number(log_main, reader_feed_capacity);
        log_string(log_main, " feeds.\n");
        log_channel_t *user = log_channel(log_user);
        if (user && user->data.used) log_string(log_user, "\n\n");
        log_number(log_user, dropped);
        log_string(log_user, " addresses of the list were not added: the reader holds at most ");
        log_number(log_user, reader_feed_capacity);
        log_string(log_user, " feeds.");
        if (context->show_log) context->show_log(context->show_log_context);
    }
    feed_list_free(&list);
    memory->used = memory_used;
    data_virtual_free(&file);
}

void feed_query_update(feed_query_context_t *context, reader_t *reader, feed_t *feed) {
    assert_true(feed_is_valid(feed));
    data_t copy = feed_query_copy_url(context, feed->url.bytes, feed->url.used);
    feed_query_queue(context, copy, feed->id);
}

void feed_query_update_selected(feed_query_context_t *context, reader_t *reader) {
    feed_query_begin_generation(context, reader);
    if (!context->selected_feed || !*context->selected_feed) return;
    feed_query_update(context, reader, *context->selected_feed);
}

void feed_query_update_all(feed_query_context_t *context, reader_t *reader) {
    feed_query_begin_generation(context, reader);
    u32 seen = 0;
    for (u32 i = 0; i < reader->feeds.max_entry_count && seen < reader->feeds.entry_count; i++) {
        feed_t *feed = (feed_t *)pool_entry(&reader->feeds, sizeof(feed_t), i);
        if (!feed_is_valid(feed)) continue;
        seen++;
        if (!feed_is_deleted(feed)) feed_query_update(context, reader, feed);
    }
    assert_message(seen == reader->feeds.entry_count, "Not every feed was seen by the update.");
}

// ---- the worker -----------------------------------------------------------------------------

void feed_query_work(void *argument) {
    feed_query_t *slot = (feed_query_t *)argument;
    assert_true(feed_query_state(slot) == feed_query_in_flight);
    u32 error = 0;
    const http_validators_t *send = slot->validators.etag_size || slot->validators.modified_size ? &slot->validators
                                                                                                 : nullptr;
    http_file_t file = http_file_open(&slot->url, send, &error);
    // The largest document, whatever length the server gave: a compressed
    // body's length is not that of the decoded one.
    u64 size = feed_query_default_size;
    // The block is mapped directly: the memory layer's running total belongs
    // to the main thread, which frees the block with data_virtual_free. Only
    // address space is taken for the whole size; memory is committed as the
    // body arrives, so the block grows with what came, up to the limit.
    data_t block = {};
    if (!error && !file.not_modified) {
        block = data_t{size, 0, (u8 *)os_memory_reserve(size)};
        u64 first = size < feed_query_first_commit ? size : feed_query_first_commit;
        if (block.bytes && os_memory_commit(block.bytes, first)) file.committed = first;
        else if (block.bytes) os_memory_release(block.bytes, size), block = data_t{};
    }
    file.content = data_t{size, 0, block.bytes};
    if (!file.not_modified) http_file_get(&file, &error);
    http_file_abandon(&file);
    block.used = file.content.used;

    slot->status = file.status;
    slot->not_modified = file.not_modified;
    slot->validator_cut = file.validator_cut;
    if (!file.not_modified) slot->validators = file.validators;
    // Read the wake-up before the hand-over: the slot may be reused at once.
    feed_query_wake_t *wake = slot->wake;
    void *wake_context = slot->wake_context;
    slot->content = block;
    slot->error = error;
    slot->detail = file.detail;
    feed_query_set_state(slot, feed_query_finished);
    if (wake) wake(wake_context);
}

// ---- the scan ---------------------------------------------------------------------------------

// Gives back a finished slot's document block and address.
static void feed_query_release(feed_query_context_t *context, feed_query_t *slot) {
    data_virtual_free(&slot->content);
    if (slot->url.bytes) file_storage_free(context->file_storage, slot->url.bytes, slot->url.used + 1);
    slot->url = data_t{};
}

static void feed_query_report_failure(feed_query_context_t *context, feed_query_t *slot) {
    const char *name = http_error_name(slot->error);
    log_string(log_main, "http_get_file error: ");
    log_data(log_main, &slot->url);
    log_string(log_main, " returned (");
    log_number(log_main, slot->error);
    log_string(log_main, ") ");
    log_string(log_main, name);
    log_string(log_main, "\n");
    if (slot->detail) {
        log_string(log_main, "    ");
        log_string(log_main, http_detail_text(slot->detail));
        log_string(log_main, "\n");
    }

    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) log_string(log_user, "\n\n");
    log_string(log_user, "Error while retrieving feed: ");
    log_data(log_user, &slot->url);
    if (slot->error == http_error_status) {
        // What the server said, as it would say it.
        log_string(log_user, "\n    HTTP ");
        log_number(log_user, slot->status);
        const char *text = http_status_text(slot->status);
        if (*text) log_string(log_user, " "), log_string(log_user, text);
        log_string(log_main, "    HTTP status ");
        log_number(log_main, slot->status);
        log_string(log_main, "\n");
    } else {
        log_string(log_user, "\n    Returned (");
        log_number(log_user, slot->error);
        log_string(log_user, ") ");
        log_string(log_user, name);
        if (slot->error == http_error_not_enough_storage) {
            log_string(log_user, ": the document is larger than ");
            log_number(log_user, feed_query_default_size >> 20);
            log_string(log_user, " MB (after decompression); it was not read");
        }
    }

    context->failed_count++;
    if (context->show_log) context->show_log(context->show_log_context);
    feed_query_release(context, slot);
}

// What the user reads when a pool refused records: once per action for each
// pool, on the log panel's channel, with what makes room.
static void feed_query_report_full(feed_query_context_t *context, u32 full) {
    static const char *const names[] = {"feeds", "entries", "categories", "persons",
                                        "atom links", "links", "meta records", "text"};
    u32 news = full & ~context->full_reported;
    context->full_reported |= full;
    if (!news) return;
    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) log_string(log_user, "\n\n");
    log_string(log_user, "The reader is full (");
    bool first = true;
    for (u32 bit = 0; bit < array_count(names); bit++) {
        if (!(news & (1u << bit))) continue;
        if (!first) log_string(log_user, ", ");
        log_string(log_user, names[bit]);
        first = false;
    }
    log_string(log_user, "): what did not fit was left out, and everything stored is kept.\n"
                         "    To make room, delete entries or feeds you no longer need; they are purged when the "
                         "program closes, or at once when deleted a second time. Then update again.");
    log_string(log_main, "Parsing: the reader is full; records were refused.\n");
    if (context->show_log) context->show_log(context->show_log_context);
}

// A document that came back but holds no feed the parser could read: one
// message with the address and the reason, and the log opens.
static void feed_query_report_not_feed(feed_query_context_t *context, const data_t *url, const char *reason) {
    log_string(log_main, "Parsing: no feed read from ");
    log_data(log_main, url);
    log_string(log_main, ": ");
    log_string(log_main, reason);
    log_string(log_main, "\n");
    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) log_string(log_user, "\n\n");
    log_string(log_user, "No feed read from ");
    log_data(log_user, url);
    log_string(log_user, "\n    ");
    log_string(log_user, reason);
    context->not_feed_count++;
    if (context->show_log) context->show_log(context->show_log_context);
}

// The page's feed links: the first is added as if typed, and the user's log
// names it and the others. False when the page names none.
static bool feed_query_discover(feed_query_context_t *context, reader_t *reader, feed_query_t *slot) {
    data_t *memory = context->frame_memory;
    u64 memory_used = memory->used;
    feed_discovery_t found = feed_discovery_find(memory, &slot->content, &slot->url);
    if (!found.count) {
        memory->used = memory_used;
        return false;
    }
    log_string(log_main, "Discovery: ");
    log_data(log_main, &slot->url);
    log_string(log_main, " names the feed ");
    log_data(log_main, &found.links[0]);
    log_string(log_main, "\n");
    log_channel_t *user = log_channel(log_user);
    if (user && user->data.used) log_string(log_user, "\n\n");
    log_string(log_user, "The page ");
    log_data(log_user, &slot->url);
    log_string(log_user, " is not a feed; added the feed it names: ");
    log_data(log_user, &found.links[0]);
    if (found.found > 1) {
        log_string(log_user, "\n    It also names:");
        for (u64 i = 1; i < found.count; i++) {
            log_string(log_user, "\n    ");
            log_data(log_user, &found.links[i]);
        }
        if (found.found > found.count) {
            log_string(log_user, "\n    and ");
            log_number(log_user, found.found - found.count);
            log_string(log_user, " more");
        }
    }
    const data_t *first = &found.links[0];
    if (!feed_query_new_address_queued(context, first)) {
        data_t copy = feed_query_copy_url(context, first->bytes, first->used);
        u32 feed_id = feed_query_new_feed;
        if (copy.bytes) {
            if (feed_t *known = reader_get_feed_by_url(reader, &copy)) feed_id = known->id;
        }
        feed_query_queue(context, copy, feed_id, feed_query_flag_discovered);
    }
    memory->used = memory_used;
    return true;
}

// Why a document gave no feed. An HTML page given as a new address is
// searched for the feed links it names; the first is added as if typed.
static void feed_query_report_outcome(feed_query_context_t *context, reader_t *reader, feed_query_t *slot,
                                      u32 outcome) {
    if (outcome == feed_parse_html && slot->feed_id == feed_query_new_feed &&
        !(slot->flags & feed_query_flag_discovered) && feed_query_discover(context, reader, slot)) {
        return;
    }
    feed_query_report_not_feed(context, &slot->url, feed_parse_outcome_text(outcome));
}

// A 304: the stored feed is the document; nothing is parsed.
static void feed_query_unchanged(feed_query_context_t *context, feed_query_t *slot) {
    log_string(log_main, "Not modified: ");
    log_data(log_main, &slot->url);
    log_string(log_main, "\n");
    context->unchanged_count++;
    feed_query_release(context, slot);
}

// What the parse learnt about the server's validators: kept for a feed that
// was read, forgotten for anything else.
static void feed_query_note_validators(feed_query_context_t *context, reader_t *reader, feed_query_t *slot,
                                       bool read) {
    if (!context->validators) return;
    if (slot->validator_cut) {
        log_string(log_main, "Validators: the ETag or Last-Modified of ");
        log_data(log_main, &slot->url);
        log_string(log_main, " is too long to keep; the feed is fetched whole each time.\n");
    }
    http_validators_t none = {};
    feed_validators_set(context->validators, reader, &slot->url, read ? &slot->validators : &none);
    // The file names the reader it is true beside: a read feed changed it.
    if (read) context->validators->changed = true;
}

static void feed_query_parse(feed_query_context_t *context, reader_t *reader, feed_query_t *slot) {
    feed_t *feed = nullptr;
    if (slot->feed_id != feed_query_new_feed) {
        feed = reader_get_feed_by_id(reader, slot->feed_id);
        if (!feed) { // removed while its fetch ran; the result is dropped
            feed_query_release(context, slot);
            return;
        }
    } else {
        // The same new address added twice in one update: the first parse
        // made the feed, so this document updates it.
        feed = reader_get_feed_by_url(reader, &slot->url);
    }
    PROFILE_SCOPE(queries_check_not_removed);
    log_string(log_main, "Parsing: ");
    log_data(log_main, &slot->url);
    log_string(log_main, "\n");

    // The selection is kept by its guid: a replaced entry has a new id.
    entry_t **selected_entry = context->selected_entry;
    feed_t **selected_feed = context->selected_feed;
    u8 guid_buffer[feed_query_guid_capacity];
    data_t guid = {sizeof(guid_buffer), 0, guid_buffer};
    if (selected_entry && *selected_entry) {
        data_t selected_guid = entry_get_guid(*selected_entry);
        if (selected_guid.used <= sizeof(guid_buffer)) data_push_data(&guid, &selected_guid, 1);
    }

    data_t *frame_memory = context->frame_memory;
    u64 frame_used = frame_memory->used;
    reader->full = 0;
    u32 outcome = feed_parse_read;
    feed_t *parsed = feed_parse(frame_memory, reader, &slot->content, &slot->url, feed, &outcome);
    frame_memory->used = frame_used;
    context->parsed_count++;
    feed_query_note_validators(context, reader, slot, outcome == feed_parse_read && parsed);
    if (outcome != feed_parse_read && outcome != feed_parse_other_format) {
        feed_query_report_outcome(context, reader, slot, outcome);
    }

    if (guid.used && selected_feed && *selected_feed) {
        *selected_entry = reader_get_entry_by_guid(reader, (*selected_feed)->id, &guid);
    }
    feed_query_release(context, slot);

    u32 noted_feed_id = 0;
    u32 noted_entry_id = 0;
    if (selected_entry && *selected_entry) {
        noted_feed_id = (*selected_entry)->feed_id;
        noted_entry_id = (*selected_entry)->id;
    }
    if (parsed) {
        meta_t *meta = feed ? reader_get_meta(reader, parsed->id) : nullptr;
        if (!meta) reader_new_meta(reader, parsed);
        reader_sort_feed(reader, parsed);
    }
    if (reader->full) {
        context->refused_count++;
        feed_query_report_full(context, reader->full);
        reader->full = 0;
    }
    // Sorting moved records between slots; ids survive moves.
    if (selected_entry) {
        *selected_entry = noted_entry_id ? reader_get_entry_by_id(reader, noted_feed_id, noted_entry_id) : nullptr;
    }
}

void feed_queries_check(feed_query_context_t *context, reader_t *reader) {
    PROFILE_SCOPE(queries_check);
    for (u64 i = 0; i < context->slot_count; i++) {
        feed_query_t *slot = &context->slots[i];
        if (feed_query_state(slot) != feed_query_finished) continue;
        if (slot->error) feed_query_report_failure(context, slot);
        else if (slot->not_modified) feed_query_unchanged(context, slot);
        else feed_query_parse(context, reader, slot);
        feed_query_set_state(slot, feed_query_free);
    }
    // The validators are written once an update has come back whole.
    feed_validators_t *validators = context->validators;
    if (validators && validators->changed && !feed_query_busy_count(context->slots, context->slot_count)) {
        feed_validators_save(validators, reader, context->frame_memory);
    }
}
