// image_query.cpp - the image cache's slots, its fetch and decode on the
// workers, and the scaling job.
#include "net/image_query.h"

#include "base/thread_queue.h"
#include "net/file_storage.h"
#include "net/http.h"
#include "os/os_core.h"

#include <stb/stb_image.h>

image_cache_t image_cache;

u32 image_query_state(const image_query_t *slot) { return __atomic_load_n(&slot->state, __ATOMIC_ACQUIRE); }

static void image_query_set_state(image_query_t *slot, u32 state) {
    __atomic_store_n(&slot->state, state, __ATOMIC_RELEASE);
}

static bool image_query_busy(const image_query_t *slot) { return __atomic_load_n(&slot->busy, __ATOMIC_ACQUIRE); }

// The worker is done with the slot: everything it wrote is visible before
// `busy` drops, and the main thread is woken.
static void image_query_hand_back(image_query_t *slot) {
    image_wake_t *wake = image_cache.wake;
    void *wake_context = image_cache.wake_context;
    __atomic_store_n(&slot->busy, 0, __ATOMIC_RELEASE);
    if (wake) wake(wake_context);
}

void image_queries_init(file_storage_t *storage, thread_queue_t *queue, image_resize_function_t *resize,
                        image_texture_release_t *texture_release, image_wake_t *wake, void *wake_context) {
    memory_zero(&image_cache, sizeof(image_cache));
    image_cache.file_storage = storage;
    image_cache.queue = queue;
    image_cache.resize = resize;
    image_cache.texture_release = texture_release;
    image_cache.wake = wake;
    image_cache.wake_context = wake_context;
    image_cache.frame = 1;
}

void image_query_release(image_query_t *slot) {
    assert_true(!image_query_busy(slot));
    if (slot->resized.bytes && slot->resized.bytes != slot->pixels.bytes)
        os_memory_release(slot->resized.bytes, slot->resized.reserved);
    slot->resized = data_t{};
    if (slot->pixels.bytes) stbi_image_free(slot->pixels.bytes);
    slot->pixels = data_t{};
    if (slot->url.bytes) file_storage_free(image_cache.file_storage, slot->url.bytes, slot->url.reserved);
    slot->url = data_t{};
    if (slot->texture && image_cache.texture_release) image_cache.texture_release(slot->texture);
    slot->texture = 0;
    slot->entry_id = 0;
    slot->remove_requested = 0;
    image_query_set_state(slot, image_state_free);
}

image_query_t *image_query_get(u32 entry_id, const data_t *url, bool create) {
    if (!url || !url->used) return nullptr;
    image_query_t *found = nullptr;
    image_query_t *free_slot = nullptr;
    image_query_t *oldest = nullptr;
    for (u32 i = 0; i < image_query_slot_count; i++) {
        image_query_t *slot = &image_cache.slots[i];
        if (image_query_state(slot) == image_state_free) {
            if (!free_slot && !image_query_busy(slot)) free_slot = slot;
            continue;
        }
        if (slot->entry_id == entry_id && data_equal(&slot->url, url)) {
            found = slot;
            break;
        }
        // A slot that a worker holds is never evicted: its worker would write
        // into a slot that has changed hands.
        if (!free_slot && !image_query_busy(slot) && (!oldest || slot->last_used < oldest->last_used))
            oldest = slot;
    }
    if (!found && create && image_cache.file_storage && image_cache.queue) {
        image_query_t *slot = free_slot;
        if (!slot && oldest) {
            image_query_release(oldest);
            slot = oldest;
        }
        if (!slot) return nullptr;
        u8 *copy = (u8 *)file_storage_alloc(image_cache.file_storage, url->used + 1);
        if (!copy) return nullptr;
        memory_copy(copy, url->bytes, url->used);
        copy[url->used] = 0;
        slot->layout_height = 0;
        slot->last_frame = 0;
        slot->frame_state = 0;
        slot->url = data_t{url->used + 1, url->used, copy};
        slot->target_width = slot->target_height = 0;
        slot->resized = data_t{};
        slot->pixels = data_t{};
        slot->width = slot->height = 0;
        slot->components = 0;
        slot->error = 0;
        slot->texture = 0;
        slot->remove_requested = 0;
        slot->entry_id = entry_id;
        slot->busy = 1;
        image_query_set_state(slot, image_state_fetching);
        if (!thread_queue_work(image_cache.queue, image_query_work, slot)) {
            slot->busy = 0;
            image_query_release(slot);
            return nullptr;
        }
        found = slot;
    }
    if (found) found->last_used = os_counter();
    return found;
}

void image_queries_forget(u32 entry_id) {
    for (u32 i = 0; i < image_query_slot_count; i++) {
        image_query_t *slot = &image_cache.slots[i];
        if (image_query_state(slot) == image_state_free || slot->entry_id != entry_id) continue;
        if (image_query_busy(slot)) slot->remove_requested = 1;
        else image_query_release(slot);
    }
}

void image_queries_check() {
    for (u32 i = 0; i < image_query_slot_count; i++) {
        image_query_t *slot = &image_cache.slots[i];
        if (slot->remove_requested && !image_query_busy(slot) && image_query_state(slot) != image_state_free)
            image_query_release(slot);
    }
    image_cache.frame++;
}

u32 image_query_look(image_query_t *slot) {
    if (slot->last_frame < image_cache.frame) {
        slot->frame_state = image_query_state(slot);
        slot->last_frame = image_cache.frame;
    }
    return (u32)slot->frame_state;
}

bool image_query_request_size(image_query_t *slot, u32 target_width, u32 target_height) {
    assert_true(image_query_state(slot) == image_state_decoded);
    // The worker sets the state just before it lets go of the slot.
    if (image_query_busy(slot)) return false;
    slot->target_width = target_width;
    slot->target_height = target_height;
    slot->busy = 1;
    image_query_set_state(slot, image_state_scaling);
    if (thread_queue_work(image_cache.queue, image_query_resize_work, slot)) return true;
    slot->busy = 0;
    slot->target_width = slot->target_height = 0;
    image_query_set_state(slot, image_state_decoded);
    return false;
}

// ---- the workers ----------------------------------------------------------------------------

const char *image_query_error_name(u32 error) {
    if (error == image_error_undecodable) return "image_error_undecodable";
    if (error == image_error_too_large) return "image_error_too_large";
    return http_error_name(error);
}

void image_query_work(void *argument) {
    image_query_t *slot = (image_query_t *)argument;
    assert_true(image_query_state(slot) == image_state_fetching);
    u32 error = 0;
    http_file_t file = http_file_open(&slot->url, nullptr, &error);
    u64 size = file.content.reserved ? file.content.reserved : image_query_default_size;
    if (!error && size > image_query_max_size) error = http_error_not_enough_storage;
    // Mapped directly: the memory layer's running total is the main thread's.
    data_t block = {};
    if (!error) {
        block = data_t{size, 0, (u8 *)os_memory_alloc(size)};
        if (!block.bytes) error = http_error_not_enough_storage;
    }
    file.content = data_t{size, 0, block.bytes};
    http_file_get(&file, &error);
    http_file_abandon(&file);
    block.used = file.content.used;

    if (error) {
        if (block.bytes) os_memory_release(block.bytes, block.reserved);
        slot->error = error;
        image_query_set_state(slot, image_state_fetch_failed);
        image_query_hand_back(slot);
        return;
    }

    // Whatever came is tried as a picture; a body that is none (a 404 page,
    // an unknown format, a cut file) fails the slot with the reason.
    u8 *decoded = nullptr;
    int width = 0, height = 0, components = 0;
    u32 body_error = image_error_undecodable;
    if (block.used > 0 && block.used < 0x7FFFFFFF) {
        int length = (int)block.used;
        bool known = stbi_info_from_memory(block.bytes, length, &width, &height, &components) && width > 0 &&
                     height > 0;
        bool fits = known && (u32)width <= image_query_max_side && (u32)height <= image_query_max_side &&
                    (u64)width * (u64)height <= image_query_max_pixels;
        if (known && !fits) body_error = image_error_too_large;
        if (fits) {
            stbi_set_flip_vertically_on_load_thread(1);
            // Grey with alpha has no texture form that draws as grey: it
            // comes as RGBA. Every other picture keeps its own components.
            int wanted = components == 2 ? 4 : 0;
            decoded = stbi_load_from_memory(block.bytes, length, &width, &height, &components, wanted);
            if (wanted) components = wanted;
        }
    }
    os_memory_release(block.bytes, block.reserved);
    if (decoded && components >= 1 && components <= 4) {
        slot->pixels = data_t{(u64)width * (u64)height * (u64)components, (u64)width * (u64)height * (u64)components,
                              decoded};
        slot->width = (u32)width;
        slot->height = (u32)height;
        slot->components = (u8)components;
        slot->texture = 0;
        image_query_set_state(slot, image_state_decoded);
    } else {
        if (decoded) stbi_image_free(decoded);
        slot->error = body_error;
        image_query_set_state(slot, image_state_fetch_failed);
    }
    image_query_hand_back(slot);
}

void image_query_resize_work(void *argument) {
    image_query_t *slot = (image_query_t *)argument;
    assert_true(image_query_state(slot) == image_state_scaling);
    assert_true(slot->texture == 0);
    if (slot->resized.bytes && slot->resized.bytes != slot->pixels.bytes)
        os_memory_release(slot->resized.bytes, slot->resized.reserved);
    slot->resized = data_t{};

    u32 width = slot->target_width, height = slot->target_height;
    if (width == 0 && height == 0) {
        // A column too narrow to hold anything asked for nothing.
        image_query_set_state(slot, image_state_no_size);
        image_query_hand_back(slot);
        return;
    }
    bool scale = (width != 0 && width < slot->width) || (width == 0 && height < slot->height);
    if (!scale) {
        slot->resized = slot->pixels;
        slot->target_width = slot->width;
        slot->target_height = slot->height;
        image_query_set_state(slot, image_state_ready);
        image_query_hand_back(slot);
        return;
    }
    u32 error = 0;
    image_cache.resize(nullptr, slot->width, slot->height, nullptr, &width, &height, slot->components, false, 1.0f,
                       &error);
    u64 size = (u64)width * (u64)height * slot->components;
    u8 *bytes = (!error && size) ? (u8 *)os_memory_alloc(size) : nullptr;
    if (bytes) {
        image_cache.resize(slot->pixels.bytes, slot->width, slot->height, bytes, &width, &height, slot->components,
                           false, 1.0f, &error);
    }
    if (!bytes || error) {
        if (bytes) os_memory_release(bytes, size);
        image_query_set_state(slot, image_state_scale_failed);
    } else {
        slot->resized = data_t{size, size, bytes};
        slot->target_width = width;
        slot->target_height = height;
        image_query_set_state(slot, image_state_ready);
    }
    image_query_hand_back(slot);
}
