// os_window.h - the one window of the program, its OpenGL context, the
// events of the window system, cursors, clipboard, the wake-up from workers.
// Two implementations: os/linux (SDL2) and os/headless (no display; for
// tests and tools). Font files are found through os/os_fonts.h.
//
// Keys are reported as Windows-style virtual-key numbers and set-1 scan codes
// so that the input logic above (gfx/window.cpp) keeps one table of key ids
// whatever the window system is.
#pragma once

#include "base/base_core.h"

// ---- events --------------------------------------------------------------------
enum : u32 {
    os_input_none = 0,
    os_input_quit = 1,          // the system asked the program to end (also SIGTERM, SIGINT)
    os_input_close = 2,         // the window's close button or the window manager
    os_input_key = 3,           // virtual_key, scan_code, flags
    os_input_text = 4,          // text, text_size: UTF-8 typed by the user
    os_input_button = 5,        // button, flags (os_key_down), x, y
    os_input_wheel = 6,         // wheel
    os_input_mouse_move = 7,    // x, y
    os_input_focus_gained = 8,
    os_input_focus_lost = 9,
    os_input_resized = 10,      // the client area moved or changed size
    os_input_wake = 11,         // a worker posted os_window_wake
};

enum : u32 {
    os_key_down = 0x1,     // key or button is down (else released)
    os_key_repeat = 0x2,   // the system's auto-repeat
    os_key_extended = 0x4, // the key is one of the E0-prefixed ones (right Control, right Alt, ...)
    os_key_system = 0x8,   // Alt was held: Windows sends these as system keys
};

struct os_window_event_t {
    u32 kind;
    u32 virtual_key; // Windows virtual-key number, 0 when the key has none
    u32 scan_code;   // set-1 make code without the prefix, 0 when unknown
    u32 flags;       // os_key_*
    u32 button;      // 1 left, 2 right, 3 middle, 4 and 5 the side buttons
    i32 x, y;        // pointer in client pixels, y down from the top
    f32 wheel;       // notches, positive away from the user
    u32 text_size;
    u8 text[32];
};

// ---- the window ------------------------------------------------------------------
struct os_window_info_t {
    i32 x, y;                        // client area's bottom left on the screen, y up from the screen's bottom
    i32 width, height;               // client area
    i32 screen_width, screen_height;
    u32 refresh_rate;                // hertz; 0 when the system doesn't know
    u32 has_gl;                      // 1 when an OpenGL context is current
};

enum : u32 {
    os_window_popup = 0x2,     // thin border, no decorations
    os_window_maximised = 0x4, // shown maximised
};

// Creates the window and makes an OpenGL 3.3 core context with the debug
// flag, double buffering, 8-bit colour channels, 24-bit depth and 8-bit
// stencil current on this thread, with swap interval 1. `x`, `y` are the
// client area's bottom left on the screen, y up from the screen's bottom;
// os_window_centred centres on that axis. The headless window succeeds without a
// context (has_gl 0). On failure returns false and writes a zero-terminated
// reason into `reason`; a failure after the window exists leaves the window
// open without a context.
constexpr i32 os_window_centred = 0x7FFFFFFF;
bool os_window_create(const u8 *title, u64 title_size, i32 width, i32 height, i32 x, i32 y, u32 flags,
                      os_window_info_t *info, char *reason, u64 reason_size);
// The client area as it stands now (0 by 0 while minimised) and its position.
void os_window_query(os_window_info_t *info);
// Takes the next event; false when the queue is empty.
bool os_window_poll(os_window_event_t *event);
// Sleeps in the system until an event comes, then takes it. False only when
// waiting failed.
bool os_window_wait(os_window_event_t *event);
// Any thread: makes a waiting os_window_wait return with os_input_wake.
void os_window_wake();
// Pointer position in client pixels, y down; may lie outside the client area.
void os_window_pointer(i32 *x, i32 *y);
// Routes the pointer to the window while a button is held.
void os_window_capture_pointer(bool capture);
// Whether the key of a virtual-key number (or mouse button 1 to 5 as 0x01,
// 0x02, 0x04, 0x05, 0x06) is down at this moment.
bool os_window_key_down_now(u32 virtual_key);
void os_window_swap();
bool os_window_swap_interval(i32 interval);
void *os_window_gl_proc_address(const char *name);

// ---- cursors --------------------------------------------------------------------
// 0 arrow, 1 hand, 2 text beam, 3 north-south resize, 4 west-east resize.
void *os_cursor_load(u32 index);
// Makes `cursor` current; returns the one that was.
void *os_cursor_set(void *cursor);

// ---- clipboard -------------------------------------------------------------------
// Puts UTF-8 text on the clipboard. False when the system refused.
bool os_clipboard_set(const u8 *text, u64 size);
// Copies the clipboard's text as UTF-8 into `destination`, at most `size`
// bytes, and returns the number copied (0 when empty or unavailable).
u64 os_clipboard_get(u8 *destination, u64 size);

// ---- headless only -------------------------------------------------------------------
// Queues an event for the next poll or wait (os/headless). The headless
// window never blocks: waiting on an empty queue returns os_input_wake.
void os_window_headless_push(const os_window_event_t *event);
