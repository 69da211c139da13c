// engine_fixture.h - the fetching road without a window: a reader, the file
// storage, the 1024 slots, six workers, and a loop that scans the slots and
// sleeps until a worker finishes, as the frame loop does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/log.h"
#include "base/thread_queue.h"
#include "net/feed_query.h"
#include "net/http.h"
#include "reader/reader_fixture.h"

struct test_engine_t {
    test_reader_t r;
    file_storage_t storage = {};
    std::vector<feed_query_t> slots = std::vector<feed_query_t>(feed_query_slot_count);
    std::unique_ptr<thread_queue_t> queue = std::make_unique<thread_queue_t>();
    os_event_t *finished = nullptr;
    feed_query_context_t context = {};
    feed_t *selected_feed = nullptr;
    entry_t *selected_entry = nullptr;
    u32 shown_minimum = 0, shown_maximum = 0;
    int show_log_calls = 0;

    test_engine_t() {
        u32 error = 0;
        http_init("tidewrack", &error);
        file_storage_init(&storage, file_storage_reserve_size, file_storage_commit_step, file_storage_unit);
        thread_queue_init(queue.get(), 6);
        finished = os_event_create();
        context.slots = slots.data();
        context.slot_count = slots.size();
        context.file_storage = &storage;
        context.queue = queue.get();
        context.generation_minimum = &shown_minimum;
        context.generation_maximum = &shown_maximum;
        context.selected_feed = &selected_feed;
        context.selected_entry = &selected_entry;
        context.frame_memory = &r.frame_memory;
        context.wake = [](void *event) { os_event_signal((os_event_t *)event); };
        context.wake_context = finished;
        context.show_log = [](void *self) { ((test_engine_t *)self)->show_log_calls++; };
        context.show_log_context = this;
        new_run();
    }
    ~test_engine_t() {
        thread_terminate(queue.get());
        os_event_close(finished);
        data_virtual_free(&storage.memory);
        data_virtual_free(&storage.node_memory);
    }
    test_engine_t(const test_engine_t &) = delete;
    test_engine_t &operator=(const test_engine_t &) = delete;

    // As a new start of the program on the same reader.
    void new_run() {
        context.start_generation = r.reader.generation;
        shown_minimum = shown_maximum = r.reader.generation;
    }

    // Workers run, the scan parses, until every slot is free again.
    void run() {
        for (;;) {
            feed_queries_check(&context, &r.reader);
            r.frame_memory.used = 0;
            if (!feed_query_busy_count(slots.data(), slots.size())) break;
            os_event_wait(finished);
        }
        ASSERT_TRUE(reader_audit_check(&r.reader));
    }
    // Waits until every slot is finished, without scanning.
    void wait_finished() {
        for (;;) {
            u64 in_flight = 0;
            for (auto &s : slots) in_flight += feed_query_state(&s) == feed_query_in_flight;
            if (!in_flight) return;
            os_event_wait(finished);
        }
    }

    void add(const std::string &url) {
        data_t d = view_of(url);
        feed_query_add_url(&context, &r.reader, &d);
    }

    std::vector<feed_t *> feeds() {
        std::vector<feed_t *> out;
        for (u32 i = 0; i < r.reader.feeds.max_entry_count; i++) {
            feed_t *f = (feed_t *)pool_entry(&r.reader.feeds, sizeof(feed_t), i);
            if (feed_is_valid(f)) out.push_back(f);
        }
        return out;
    }
    feed_t *feed(const std::string &url) {
        data_t d = view_of(url);
        return reader_get_feed_by_url(&r.reader, &d);
    }
    std::vector<entry_t *> entries(const feed_t *feed) { return r.entries_of(feed); }
    entry_t *entry(const feed_t *feed, const std::string &guid) {
        data_t d = view_of(guid);
        return reader_get_entry_by_guid(&r.reader, feed->id, &d);
    }
};

inline std::string user_log() {
    log_channel_t *c = log_channel(log_user);
    return c && c->data.used ? std::string((const char *)c->data.bytes, c->data.used) : "";
}

inline void clear_user_log() {
    log_channel_t *c = log_channel(log_user);
    if (c) c->data.used = 0;
}
