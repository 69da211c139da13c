// view_links.cpp - opening links, the queues of the ten link configurations,
// and the links panel that edits them.
//
// A link never passes through a shell: the configured executable line is
// split into words by the program's command-line rules, each link is
// appended as a word of its own, and the program is started directly.
// Without an executable the system's handler gets the link.
#include "base/command_line.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/thread_queue.h"
#include "net/file_storage.h"
#include "os/os_process.h"
#include "views/view_helpers.h"

// What one start may hand over: the size of a command line of the program's
// platform model, in UTF-16 with its terminating zero.
constexpr u64 link_command_line_limit = 16384;
constexpr u32 link_argument_capacity = 4096;
constexpr u64 link_queue_step = 4096;

link_configuration_t *view_link_configuration(reader_t *reader, const feed_t *feed) {
    meta_t *meta = feed ? reader_get_meta(reader, feed->id) : nullptr;
    if (meta && meta->link_configuration) return meta->link_configuration;
    return &reader->link_configurations[0];
}

// The next space-separated word of `text` at or after *offset; empty at the end.
static data_t link_next_word(const data_t *text, u64 *offset) {
    u64 i = *offset;
    while (i < text->used && text->bytes[i] == ' ') i++;
    u64 start = i;
    while (i < text->used && text->bytes[i] != ' ') i++;
    *offset = i;
    return data_t{i - start, i - start, text->bytes + start};
}

u32 links_count(const link_configuration_t *configuration) {
    if (!configuration->queue_links) return 0;
    u32 count = 0;
    u64 offset = 0;
    for (;;) {
        data_t word = link_next_word(&configuration->queued_links, &offset);
        if (!word.used) break;
        count++;
    }
    return count;
}

u32 links_count_all(reader_t *reader) {
    u32 count = 0;
    for (const link_configuration_t &configuration : reader->link_configurations) count += links_count(&configuration);
    return count;
}

bool links_queue_append(file_storage_t *storage, link_configuration_t *configuration, const data_t *link) {
    data_t *queue = &configuration->queued_links;
    u64 needed = queue->used + link->used + 2;
    if (queue->reserved < needed) {
        u64 size = align_up(needed, link_queue_step);
        u8 *block = (u8 *)file_storage_alloc(storage, size);
        if (!block) return false;
        if (queue->used) memory_copy(block, queue->bytes, queue->used);
        if (queue->bytes && file_storage_owns(storage, queue->bytes)) file_storage_free(storage, queue->bytes, queue->reserved);
        queue->bytes = block;
        queue->reserved = size;
    }
    if (queue->used) queue->bytes[queue->used++] = ' ';
    memory_copy(queue->bytes + queue->used, link->bytes, link->used);
    queue->used += link->used;
    if (queue->used < queue->reserved) queue->bytes[queue->used] = 0;
    return true;
}

void view_open_link(app_context *context, reader_t *reader, const feed_t *feed, const data_t *link) {
    link_configuration_t *configuration = view_link_configuration(reader, feed);
    if (configuration->queue_links) links_queue_append(context->file_storage, configuration, link);
    else link_open(link, configuration);
}

// UTF-16 units of the text, an invalid byte counting as one replacement.
static u64 link_utf16_units(const data_t *text) {
    u64 units = 0;
    for (u64 i = 0; i < text->used;) {
        u32 code_point, error = 0;
        u8 length;
        utf8_decode(text->bytes + i, text->bytes + text->used, &code_point, &length, &error);
        if (error) length = 1, code_point = code_point_replacement;
        units += code_point >= 0x10000 ? 2 : 1;
        i += length;
    }
    return units;
}

// The argument array of one start: the executable's words (or the system's
// handler) and then `links`, one word each, or the whole text as one word.
// Built in the scratch block; null when it passes the command-line limit.
static const char *const *link_arguments(data_t *scratch, const link_configuration_t *configuration,
                                         const data_t *links, bool split_links) {
    const data_t *executable = &configuration->executable;
    u64 units = link_utf16_units(executable) + 1 + link_utf16_units(links) + 1;
    if (units * 2 > link_command_line_limit) return nullptr;

    char **words = (char **)data_push(scratch, sizeof(char *) * (link_argument_capacity + 1), 8);
    u32 count = 0;
    if (executable->used) {
        u64 room = executable->used + 2;
        u8 *out = (u8 *)data_push(scratch, room, 1);
        bool overflow;
        count = command_line_split(executable->bytes, executable->used, out, room, words, link_argument_capacity,
                                   &overflow);
    }
    if (count == 0) words[count++] = (char *)"xdg-open";
    auto add = [&](data_t word) {
        if (count == link_argument_capacity) return;
        char *copy = (char *)data_push(scratch, word.used + 1, 1);
        memory_copy(copy, word.bytes, word.used);
        copy[word.used] = 0;
        words[count++] = copy;
    };
    if (split_links && executable->used) {
        u64 offset = 0;
        for (data_t word = link_next_word(links, &offset); word.used; word = link_next_word(links, &offset)) add(word);
    } else {
        add(*links);
    }
    words[count] = nullptr;
    return words;
}

static bool link_start(const link_configuration_t *configuration, const data_t *links, bool split_links) {
    data_t scratch = scratch_block_take();
    const char *const *argv = link_arguments(&scratch, configuration, links, split_links);
    bool started = false;
    if (!argv) {
        log_string(log_main, "Link not opened: longer than a command line may be (");
        log_number(log_main, links->used);
        log_string(log_main, " bytes)\n");
    } else {
        started = os_process_start(argv);
        if (!started) {
            u32 code = os_last_error();
            log_string(log_main, "Could not start ");
            log_string(log_main, argv[0]);
            log_string(log_main, ": ");
            log_system_error(log_main, code);
            log_string(log_main, "\n");
        }
    }
    scratch_block_give_back();
    return started;
}

bool link_open(const data_t *link, const link_configuration_t *configuration) {
    if (!link->used) return false;
    return link_start(configuration, link, false);
}

void links_clear_queue(file_storage_t *storage, link_configuration_t *configuration) {
    data_t *queue = &configuration->queued_links;
    if (queue->bytes && file_storage_owns(storage, queue->bytes)) file_storage_free(storage, queue->bytes, queue->reserved);
    *queue = data_t{};
}

void links_open_queue(file_storage_t *storage, link_configuration_t *configuration, bool clear) {
    if (!configuration->queue_links || !configuration->queued_links.used) return;
    // A queue that could not be handed over stays, so no link is lost.
    bool started = link_start(configuration, &configuration->queued_links, true);
    if (clear && started) links_clear_queue(storage, configuration);
}

void links_open_all(app_context *context, reader_t *reader, bool clear) {
    for (link_configuration_t &configuration : reader->link_configurations)
        links_open_queue(context->file_storage, &configuration, clear);
}

void links_remove(link_configuration_t *configuration, const data_t *link) {
    data_t *queue = &configuration->queued_links;
    u8 *end = queue->bytes + queue->used;
    u8 *start = link->bytes;
    u8 *after = link->bytes + link->used;
    assert_true(start >= queue->bytes && after <= end);
    while (after < end && *after == ' ') after++;
    u64 rest = (u64)(end - after);
    for (u64 i = 0; i < rest; i++) start[i] = after[i];
    queue->used -= (u64)(after - start);
    while (queue->used && queue->bytes[queue->used - 1] == ' ') queue->used--;
    if (queue->used < queue->reserved) queue->bytes[queue->used] = 0;
}
