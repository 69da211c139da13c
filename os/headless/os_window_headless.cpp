// os_window_headless.cpp - the window layer without a display, for tests and
// tools: a window that exists only as numbers, an event queue fed by
// os_window_headless_push, no OpenGL. Nothing here ever blocks.
#include "os/os_window.h"

#include <atomic>
#include <string.h>

namespace {

os_window_info_t headless_info;
os_window_event_t queue[256];
u32 queue_read, queue_write;
std::atomic<u32> wake_count;
i32 pointer_x, pointer_y;
u8 keys_down[256];
void *current_cursor;
u8 clipboard[4 << 20]; // room for a paste of megabytes in tests
u64 clipboard_size;
u8 cursor_slots[5];

void track(const os_window_event_t *event) {
    if (event->kind == os_input_key && event->virtual_key < 256)
        keys_down[event->virtual_key] = (event->flags & os_key_down) ? 1 : 0;
    if (event->kind == os_input_button && event->button >= 1 && event->button <= 5) {
        static const u8 virtual_keys[6] = {0, 0x01, 0x02, 0x04, 0x05, 0x06};
        keys_down[virtual_keys[event->button]] = (event->flags & os_key_down) ? 1 : 0;
    }
    if (event->kind == os_input_button || event->kind == os_input_mouse_move) {
        pointer_x = event->x;
        pointer_y = event->y;
    }
}

} // namespace

bool os_window_create(const u8 *title, u64 title_size, i32 width, i32 height, i32 x, i32 y, u32 flags,
                      os_window_info_t *info, char *reason, u64 reason_size) {
    memset(&headless_info, 0, sizeof(headless_info));
    headless_info.screen_width = 1920;
    headless_info.screen_height = 1080;
    headless_info.refresh_rate = 60;
    headless_info.width = width;
    headless_info.height = height;
    headless_info.x = x == os_window_centred ? (headless_info.screen_width - width) / 2 : x;
    headless_info.y = y == os_window_centred ? (headless_info.screen_height - height) / 2 : y;
    *info = headless_info;
    return true;
}

void os_window_query(os_window_info_t *info) {
    info->x = headless_info.x;
    info->y = headless_info.y;
    info->width = headless_info.width;
    info->height = headless_info.height;
    info->screen_width = headless_info.screen_width;
    info->screen_height = headless_info.screen_height;
}

void os_window_headless_push(const os_window_event_t *event) {
    if (queue_write - queue_read >= array_count(queue)) return;
    queue[queue_write++ % array_count(queue)] = *event;
}

bool os_window_poll(os_window_event_t *event) {
    if (queue_read != queue_write) {
        *event = queue[queue_read++ % array_count(queue)];
        track(event);
        if (event->kind == os_input_resized && event->x >= 0 && event->y >= 0) {
            // A pushed size change carries the new client size in x and y.
            headless_info.width = event->x;
            headless_info.height = event->y;
        }
        return true;
    }
    if (wake_count.load() != 0) {
        wake_count.fetch_sub(1);
        memset(event, 0, sizeof(*event));
        event->kind = os_input_wake;
        return true;
    }
    return false;
}

bool os_window_wait(os_window_event_t *event) {
    if (os_window_poll(event)) return true;
    memset(event, 0, sizeof(*event));
    event->kind = os_input_wake;
    return true;
}

void os_window_wake() { wake_count.fetch_add(1); }

void os_window_pointer(i32 *x, i32 *y) {
    *x = pointer_x;
    *y = pointer_y;
}

void os_window_capture_pointer(bool) {}
bool os_window_key_down_now(u32 virtual_key) { return virtual_key < 256 && keys_down[virtual_key]; }
void os_window_swap() {}
bool os_window_swap_interval(i32) { return true; }
void *os_window_gl_proc_address(const char *) { return nullptr; }

void *os_cursor_load(u32 index) { return index < 5 ? &cursor_slots[index] : nullptr; }

void *os_cursor_set(void *cursor) {
    void *previous = current_cursor;
    current_cursor = cursor;
    return previous;
}

bool os_clipboard_set(const u8 *text, u64 size) {
    if (size > sizeof(clipboard)) return false;
    memcpy(clipboard, text, size);
    clipboard_size = size;
    return true;
}

u64 os_clipboard_get(u8 *destination, u64 size) {
    u64 n = clipboard_size < size ? clipboard_size : size;
    memcpy(destination, clipboard, n);
    return n;
}

