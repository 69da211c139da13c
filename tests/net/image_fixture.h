// image_fixture.h - pictures made in the test (PNG and JPEG through
// stb_image_write, a GIF by hand) and the image cache with its workers, a
// file storage and a wake-up the test can wait on.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/thread_queue.h"
#include "gfx/image.h"
#include "net/file_storage.h"
#include "net/http.h"
#include "net/image_query.h"

#include <stb/stb_image_write.h>

// A picture of one colour (r, g, b, a), `components` bytes a pixel.
inline std::vector<unsigned char> test_pixels(int width, int height, int components, unsigned colour) {
    std::vector<unsigned char> pixels((size_t)width * height * components);
    for (size_t i = 0; i < pixels.size(); i++) pixels[i] = (unsigned char)(colour >> (24 - 8 * (i % components)));
    return pixels;
}

inline void test_append(void *context, void *data, int size) {
    ((std::string *)context)->append((const char *)data, (size_t)size);
}

inline std::string test_png(int width, int height, int components = 4, unsigned colour = 0x20A040FF) {
    std::string out;
    auto pixels = test_pixels(width, height, components, colour);
    stbi_write_png_to_func(test_append, &out, width, height, components, pixels.data(), width * components);
    return out;
}

inline std::string test_jpeg(int width, int height, unsigned colour = 0x3060C0FF) {
    std::string out;
    auto pixels = test_pixels(width, height, 3, colour);
    stbi_write_jpg_to_func(test_append, &out, width, height, 3, pixels.data(), 90);
    return out;
}

// A 1 by 1 GIF89a with a two-colour table.
inline std::string test_gif() {
    static const unsigned char bytes[] = {
        'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0x80, 0, 0, 0xFF, 0, 0, 0, 0, 0xFF, 0x2C, 0, 0, 0, 0, 1, 0, 1, 0,
        0, 2, 2, 0x44, 0x01, 0, 0x3B};
    return std::string((const char *)bytes, sizeof(bytes));
}

// A PNG whose header claims `width` by `height` and whose data is cut short.
inline std::string test_png_claiming(unsigned width, unsigned height) {
    std::string png = test_png(4, 4);
    auto put32 = [&](size_t at, unsigned v) {
        for (int i = 0; i < 4; i++) png[at + i] = (char)(v >> (24 - 8 * i));
    };
    put32(16, width);
    put32(20, height);
    // The header's checksum, so the decoder reads on to the data.
    unsigned crc = 0xFFFFFFFF;
    for (size_t i = 12; i < 29; i++) {
        crc ^= (unsigned char)png[i];
        for (int k = 0; k < 8; k++) crc = (crc >> 1) ^ (0xEDB88320 & (0u - (crc & 1)));
    }
    put32(29, ~crc);
    return png;
}

// The cache of the process, set up afresh for each test and emptied after.
struct test_image_cache_t {
    file_storage_t storage = {};
    std::unique_ptr<thread_queue_t> queue = std::make_unique<thread_queue_t>();
    os_event_t *woken = os_event_create();
    std::vector<u32> deleted_textures;
    static inline test_image_cache_t *current = nullptr;

    test_image_cache_t() {
        u32 error = 0;
        http_init("tidewrack", &error);
        file_storage_init(&storage, file_storage_reserve_size, file_storage_commit_step, file_storage_unit);
        thread_queue_init(queue.get(), 6);
        current = this;
        image_queries_init(&storage, queue.get(), image_resize,
                           [](u32 texture) { current->deleted_textures.push_back(texture); },
                           [](void *event) { os_event_signal((os_event_t *)event); }, woken);
    }
    ~test_image_cache_t() {
        thread_terminate(queue.get());
        for (auto &slot : image_cache.slots)
            if (image_query_state(&slot) != image_state_free) image_query_release(&slot);
        image_queries_init(nullptr, nullptr, image_resize, nullptr, nullptr, nullptr); // no cache for later tests
        os_event_close(woken);
        data_virtual_free(&storage.memory);
        data_virtual_free(&storage.node_memory);
        current = nullptr;
    }

    // Until no worker holds the slot.
    void wait(const image_query_t *slot) {
        while (__atomic_load_n(&slot->busy, __ATOMIC_ACQUIRE)) os_event_wait(woken);
    }
    static u32 slots_in_use() {
        u32 n = 0;
        for (auto &slot : image_cache.slots) n += image_query_state(&slot) != image_state_free;
        return n;
    }
};

inline data_t test_data(const std::string &text) { return data_t{text.size(), text.size(), (u8 *)text.data()}; }
