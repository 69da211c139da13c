// window.cpp - window creation, the pump and the input state of a frame.
#include "gfx/window.h"

#include "base/log.h"
#include "base/profiler.h"
#include "gfx/gl.h"
#include "os/os_core.h"
#include "os/os_window.h"

u32 window_write_gfx_log;

namespace {

struct key_tables_t {
    u8 to_virtual[key_count];
    u8 from_virtual[256];
};

constexpr key_tables_t key_tables_make() {
    key_tables_t t = {
        {
            0x00, 0x01, 0x02, 0x04, 0x05, 0x06, 0x03, 0x08, 0x09, 0x0C, 0x0D, 0x10, 0x11, 0x12, 0x13, 0x14, // 0-15
            0x15, 0x15, 0x17, 0x18, 0x19, 0x19, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F, 0x20, 0x21, 0x22, 0x23, 0x24, // 16-31
            0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,                               // 32-42
            0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39,                                     // 43-52
            0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D,                   // 53-65
            0x4E, 0x4F, 0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A,                   // 66-78
            0x5B, 0x5C, 0x5D, 0x5F,                                                                         // 79-82
            0x60, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69,                                     // 83-92
            0x6A, 0x6F, 0x6B, 0x6D, 0x6C, 0x6E,                                                             // 93-98
            0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x7B,                         // 99-110
            0x7C, 0x7D, 0x7E, 0x7F, 0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87,                         // 111-122
            0x90, 0x91,                                                                                     // 123-124
            0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5,                                                             // 125-130
            0xA6, 0xA7, 0xA8, 0xA9, 0xAA, 0xAB, 0xAC,                                                       // 131-137
            0xAD, 0xAE, 0xAF, 0xB0, 0xB1, 0xB2, 0xB3, 0xB4, 0xB5, 0xB6, 0xB7,                               // 138-148
            0xBB, 0xBD, 0xBC, 0xBE, 0xBA, 0xBF, 0xC0,                                                       // 149-155
            0xDB, 0xDC, 0xDD, 0xDE, 0xDF, 0xE2, 0xFE, 0xE5, 0xE7,                                           // 156-164
            0xF6, 0xF7, 0xF8, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD,                                                 // 165-172
        },
        {},
    };
    // The inverse; where two ids share a virtual key the first one wins.
    for (u32 id = key_count; id-- > 1;) t.from_virtual[t.to_virtual[id]] = (u8)id;
    return t;
}

constexpr key_tables_t key_tables = key_tables_make();

// Every id maps to its virtual key and back, except the second of two ids
// that share one (kana/hangul, hanja/kanji).
constexpr bool key_tables_agree() {
    for (u32 id = 1; id < key_count; ++id) {
        u32 back = key_tables.from_virtual[key_tables.to_virtual[id]];
        if (back != (id == key_hangul || id == key_kanji ? id - 1 : id)) return false;
    }
    return key_tables.from_virtual[0x07] == 0; // a code without an id
}
static_assert(key_tables_agree(), "the two key tables disagree");

} // namespace

const u8 (&key_to_virtual_key)[key_count] = key_tables.to_virtual;
const u8 (&virtual_key_to_key)[256] = key_tables.from_virtual;

static void window_read_pointer(window_t *window) {
    i32 x = 0, y = 0;
    os_window_pointer(&x, &y);
    window->mouse_x = x;
    window->mouse_y = window->height - 1 - y;
}

static void window_read_place(window_t *window) {
    os_window_info_t info = {};
    os_window_query(&info);
    window->x = info.x;
    window->y = info.y;
    window->width = info.width;
    window->height = info.height;
}

void window_create(window_t *window, const data_t *title, i32 width, i32 height, i32 x, i32 y, u32 flags) {
    assert_true(window);
    PROFILE_SCOPE(window_create);
    for (u32 i = 0; i < cursor_count; ++i) window->cursors[i] = os_cursor_load(i);

    os_window_info_t info = {};
    char reason[512];
    reason[0] = 0;
    u32 os_flags = 0;
    if (flags & window_flag_popup) os_flags |= os_window_popup;
    if (flags & window_flag_maximised) os_flags |= os_window_maximised;
    bool created = os_window_create(title ? title->bytes : (const u8 *)"", title ? title->used : 0, width, height,
                                    x, y, os_flags, &info, reason, sizeof(reason));
    window->screen_width = info.screen_width;
    window->screen_height = info.screen_height;
    window->refresh_rate = (u16)info.refresh_rate;
    window->x = info.x;
    window->y = info.y;
    window->width = info.width;
    window->height = info.height;

    if (!created) {
        // The program goes on to its shut-down; a Linux user looks on stderr.
        log_string(log_graphics, "Failed to create an advanced render context.\n");
        log_string(log_graphics, reason);
        log_string(log_graphics, "\n");
        const char prefix[] = "tidewrack: no window: ";
        os_write_stderr(prefix, sizeof(prefix) - 1);
        u64 length = 0;
        while (reason[length]) ++length;
        os_write_stderr(reason, length);
        os_write_stderr("\n", 1);
    } else {
        bool usable = true;
        if (info.has_gl) {
            log_string(log_graphics, "\nActual context\n");
            usable = gl_load_functions();
            gl_log_context();
        }
        if (!usable) {
            const char text[] = "tidewrack: no window: the OpenGL context lacks OpenGL 3.3 functions\n";
            os_write_stderr(text, sizeof(text) - 1);
        } else {
            // closing first, then running, as a creation may have delivered a
            // close to this same record.
            window->closing = 0;
            window->running = 1;
            if (info.has_gl) gl.glViewport(0, 0, window->width, window->height);
        }
    }

    if (window_write_gfx_log) {
        u32 error = 0;
        data_t path = data_literal("win32_opengl.log");
        log_save(log_graphics, &path, &error);
    }
}

void window_swap_interval(i32 interval) { os_window_swap_interval(interval); }

void window_swap_buffers(window_t *window) {
    PROFILE_SCOPE(window_swap_buffers);
    os_window_swap();
}

void window_set_cursor(window_t *window, void *cursor) {
    assert_true(cursor);
    window->previous_cursor = os_cursor_set(cursor);
}

void window_wake() { os_window_wake(); }

// ---- key queries --------------------------------------------------------------------
bool key_is_down(const window_t *window, u32 key) { return (window->keys[key] & 1) != 0; }
bool key_went_down(const window_t *window, u32 key) {
    return (window->keys[key] & 1) && (window->keys[key] >> 2) != 0;
}
bool key_went_up(const window_t *window, u32 key) {
    return !(window->keys[key] & 1) && (window->keys[key] >> 2) != 0;
}
bool key_went_down_or_repeated(const window_t *window, u32 key) {
    return key_went_down(window, key) || (window->keys[key] & 2) != 0;
}
u32 key_transitions(const window_t *window, u32 key) { return window->keys[key] >> 2; }

// ---- focus ------------------------------------------------------------------------------
void input_clear_keys(window_t *window) {
    for (u32 i = 0; i < 256; ++i) {
        window->keys[i] = (window->keys[i] & 1) ? 4 : 0;
        window->scan_keys[i] = (window->scan_keys[i] & 1) ? 4 : 0;
    }
    window->text_count = 0;
    window->text_bytes = 0;
    window_read_pointer(window);
}

void input_sync_keys(window_t *window) {
    PROFILE_SCOPE(input_sync_keys);
    window_read_pointer(window);
    window->keys[0] = 0;
    bool inside = window->mouse_x >= 0 && window->mouse_x < window->width && window->mouse_y >= 0 &&
                  window->mouse_y < window->height;
    for (u32 key = key_left_button; key <= key_x2_button; ++key)
        window->keys[key] = (inside && os_window_key_down_now(key_to_virtual_key[key])) ? 1 : 0;
    for (u32 key = key_cancel; key < key_count - 1; ++key)
        window->keys[key] = os_window_key_down_now(key_to_virtual_key[key]) ? 1 : 0;
    // The raw scan-code state is not kept on this platform: scan_keys stays
    // as the pumps leave it.
    window->text_count = 0;
    window->text_bytes = 0;
}

// ---- the pump ------------------------------------------------------------------------------
static void window_key_state(u8 *byte, bool down, bool force_changed) {
    bool was_down = (*byte & 1) != 0;
    bool repeat = was_down && down;
    bool changed = was_down != down || force_changed;
    u32 transitions = (u32)(*byte >> 2) + (changed ? 1 : 0);
    *byte = (u8)((transitions << 2) | (down ? 1 : 0) | (repeat ? 2 : 0));
}

static void window_key_message(window_t *window, const os_window_event_t *event) {
    u32 virtual_key = event->virtual_key & 0xFF;
    u32 key = virtual_key_to_key[virtual_key];
    bool down = (event->flags & os_key_down) != 0;
    bool extended = (event->flags & os_key_extended) != 0;
    u32 scan = event->scan_code;
    if (extended) {
        if (scan != 0x45) scan += 0xE000;
    } else if (scan == 0x45) {
        scan = 0xE11D45;
    } else if (scan == 0x54) {
        scan = 0xE037;
    }
    // Print Screen reports only its release on Windows: it counts as a change.
    bool force = scan == 0xE037;
    if (key != key_none) {
        window_key_state(&window->keys[key], down, force);
        u32 side = key_none;
        if (virtual_key == 0x10) side = event->scan_code == 42 ? key_left_shift : key_right_shift;
        if (virtual_key == 0x11) side = extended ? key_right_control : key_left_control;
        if (virtual_key == 0x12) side = extended ? key_right_alt : key_left_alt;
        if (side != key_none) window->keys[side] = window->keys[key];
    }
    if (down && virtual_key == 0x73 && (event->flags & os_key_system)) window->closing = 1;
}

static void window_text_message(window_t *window, const os_window_event_t *event) {
    const u8 *at = event->text;
    const u8 *end = event->text + event->text_size;
    while (at < end) {
        u32 code_point = 0;
        u8 size = 0;
        u32 error = 0;
        utf8_decode(at, end, &code_point, &size, &error);
        if (error || size == 0) {
            ++at;
            continue;
        }
        at += size;
        if (window->text_count >= 32) continue; // the rest of a burst is dropped
        u8 bytes = 0;
        u32 encode_error = 0;
        utf8_encode(window->text_utf8 + window->text_bytes, window->text_utf8 + sizeof(window->text_utf8),
                    code_point, &bytes, &encode_error);
        if (encode_error) continue;
        window->text_code_points[window->text_count] = code_point;
        window->text_sizes[window->text_count] = bytes;
        window->text_bytes = (u8)(window->text_bytes + bytes);
        ++window->text_count;
    }
}

static void window_handle_event(window_t *window, const os_window_event_t *event) {
    switch (event->kind) {
    case os_input_quit:
    case os_input_close: window->closing = 1; break;
    case os_input_key: window_key_message(window, event); break;
    case os_input_text: window_text_message(window, event); break;
    case os_input_button: {
        if (event->button < 1 || event->button > 5) break;
        bool down = (event->flags & os_key_down) != 0;
        u8 *byte = &window->keys[event->button];
        u32 transitions = (u32)(*byte >> 2) + 1;
        *byte = (u8)((transitions << 2) | (down ? 1 : 0));
        os_window_capture_pointer(down);
        window->mouse_x = event->x;
        window->mouse_y = window->height - 1 - event->y;
        break;
    }
    case os_input_wheel: window->wheel = event->wheel; break;
    case os_input_focus_gained:
        input_sync_keys(window);
        window->focus_seen = 1;
        break;
    case os_input_focus_lost:
        input_clear_keys(window);
        window->focus_seen = 1;
        break;
    case os_input_resized:
        window_read_place(window);
        window->resized = 1;
        break;
    default: break; // pointer moves and wake-ups only end the wait
    }
}

void window_handle_messages(window_t *window, u32 mode) {
    PROFILE_SCOPE(window_handle_messages);
    window->resized = 0;
    window->text_count = 0;
    window->text_bytes = 0;
    window->wheel = 0;
    for (u32 i = 0; i < key_count; ++i) window->keys[i] &= 1;
    for (u32 i = 0; i < 256; ++i) window->scan_keys[i] &= 1;

    os_window_event_t event;
    bool got;
    if (mode & 1) {
        got = os_window_wait(&event);
        while (got && (mode & 2) && event.kind == os_input_mouse_move) got = os_window_wait(&event);
    } else {
        got = os_window_poll(&event);
    }
    window_read_pointer(window);
    while (got) {
        window_handle_event(window, &event);
        got = os_window_poll(&event);
    }
}
