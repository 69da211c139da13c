// window.h - the one window, its OpenGL context and the input of the current
// frame: key state bytes by neutral key id, typed text, pointer and wheel.
// Everything above reads window_t and the key queries; nothing above sees an
// event of the window system.
//
// Coordinates: pixels, origin at the bottom left of the client area, y up.
#pragma once

#include "base/memory.h"

// Neutral key ids, the indices of window_t::keys. The comments give the
// Windows virtual key of each, which is how the window layer reports keys.
enum key_id : u8 {
    key_none = 0,
    key_left_button,   // 01
    key_right_button,  // 02
    key_middle_button, // 04
    key_x1_button,     // 05
    key_x2_button,     // 06
    key_cancel,        // 03
    key_backspace,     // 08
    key_tab,           // 09
    key_clear,         // 0C
    key_enter,         // 0D
    key_shift,         // 10
    key_control,       // 11
    key_alt,           // 12
    key_pause,         // 13
    key_caps_lock,     // 14
    key_kana,          // 15
    key_hangul,        // 15
    key_junja,         // 17
    key_final,         // 18
    key_hanja,         // 19
    key_kanji,         // 19
    key_escape,        // 1B
    key_convert,       // 1C
    key_non_convert,   // 1D
    key_accept,        // 1E
    key_mode_change,   // 1F
    key_space,         // 20
    key_page_up,       // 21
    key_page_down,     // 22
    key_end,           // 23
    key_home,          // 24
    key_left,          // 25
    key_up,            // 26
    key_right,         // 27
    key_down,          // 28
    key_select,        // 29
    key_print,         // 2A
    key_execute,       // 2B
    key_print_screen,  // 2C
    key_insert,        // 2D
    key_delete,        // 2E
    key_help,          // 2F
    key_0, key_1, key_2, key_3, key_4, key_5, key_6, key_7, key_8, key_9, // 30 to 39
    // The letter T is key_letter_t: POSIX already names a type key_t.
    key_a, key_b, key_c, key_d, key_e, key_f, key_g, key_h, key_i, key_j, key_k, key_l, key_m,
    key_n, key_o, key_p, key_q, key_r, key_s, key_letter_t, key_u, key_v, key_w, key_x, key_y, key_z, // 41 to 5A
    key_left_system,  // 5B
    key_right_system, // 5C
    key_applications, // 5D
    key_sleep,        // 5F
    key_numpad_0, key_numpad_1, key_numpad_2, key_numpad_3, key_numpad_4, key_numpad_5, key_numpad_6,
    key_numpad_7, key_numpad_8, key_numpad_9, // 60 to 69
    key_numpad_multiply,  // 6A
    key_numpad_divide,    // 6F
    key_numpad_add,       // 6B
    key_numpad_subtract,  // 6D
    key_numpad_separator, // 6C
    key_numpad_decimal,   // 6E
    key_f1, key_f2, key_f3, key_f4, key_f5, key_f6, key_f7, key_f8, key_f9, key_f10, key_f11, key_f12,
    key_f13, key_f14, key_f15, key_f16, key_f17, key_f18, key_f19, key_f20, key_f21, key_f22, key_f23,
    key_f24,          // 70 to 87
    key_num_lock,     // 90
    key_scroll_lock,  // 91
    key_left_shift,   // A0
    key_right_shift,  // A1
    key_left_control, // A2
    key_right_control,// A3
    key_left_alt,     // A4
    key_right_alt,    // A5
    key_browser_back, key_browser_forward, key_browser_refresh, key_browser_stop, key_browser_search,
    key_browser_favorites, key_browser_home, // A6 to AC
    key_volume_mute, key_volume_down, key_volume_up, // AD to AF
    key_media_next, key_media_previous, key_media_stop, key_media_play, // B0 to B3
    key_launch_mail, key_launch_media, key_launch_application_1, key_launch_application_2, // B4 to B7
    key_plus,   // BB
    key_minus,  // BD
    key_comma,  // BC
    key_period, // BE
    key_oem_1, key_oem_2, key_oem_3,               // BA, BF, C0
    key_oem_4, key_oem_5, key_oem_6, key_oem_7, key_oem_8, // DB to DF
    key_oem_102,   // E2
    key_oem_clear, // FE
    key_process,   // E5
    key_packet,    // E7
    key_attn, key_crsel, key_exsel, key_erase_eof, key_play, key_zoom, key_no_name, key_pa1, // F6 to FD
    key_count
};
static_assert(key_count == 173, "173 key ids");

// Key id to Windows virtual key, and back (0 for codes without an id).
extern const u8 (&key_to_virtual_key)[key_count];
extern const u8 (&virtual_key_to_key)[256];

enum : u32 {
    cursor_arrow = 0,
    cursor_hand = 1,
    cursor_text = 2,
    cursor_resize_north_south = 3,
    cursor_resize_west_east = 4,
    cursor_count = 5,
};

enum : u32 {
    window_flag_popup = 0x2,
    window_flag_maximised = 0x4,
};

constexpr i32 window_centred = 0x7FFFFFFF;

struct window_t {
    u32 running;    // 1 from a successful window_create; the frame loop clears it
    u32 closing;    // the user or the system asked to close
    u32 focus_seen; // set by every gain and loss of focus, never cleared
    i32 x, y;       // client area's bottom left on the screen, y from the screen's bottom
    i32 width, height;
    u32 resized;    // a move or size change since the previous pump
    i32 screen_width, screen_height;
    u16 refresh_rate;
    u8 keys[256]; // key state bytes by key_id, 173 used
    u8 scan_keys[256];
    u32 text_code_points[32];
    u32 text_count;
    u8 text_sizes[32];
    u8 text_utf8[128];
    u8 text_bytes;
    i32 mouse_x, mouse_y;
    f32 wheel; // notches this frame, positive away from the user
    void *window_handle;
    void *instance;
    void *device_context;
    void *render_context;
    void *previous_cursor;
    void *cursors[cursor_count];
};

// With it set, window_create writes log channel 1 to "win32_opengl.log"
// (the "-gfx_log" option).
extern u32 window_write_gfx_log;

// Key state byte: bit 0 down, bit 1 repeated while down, bits 2 to 7 the
// transitions since the last pump began.
inline u8 key_state_pack(u8 byte, u32 down, u32 repeat, u32 transitions) {
    (void)byte;
    return (u8)((down & 1) | ((repeat & 1) << 1) | (transitions << 2));
}

void window_create(window_t *window, const data_t *title, i32 width, i32 height, i32 x, i32 y, u32 flags);
void window_swap_interval(i32 interval);
// mode bit 0: wait for the first event; bit 1 (with bit 0): pointer moves
// don't end the wait.
void window_handle_messages(window_t *window, u32 mode);
void window_swap_buffers(window_t *window);
void window_set_cursor(window_t *window, void *cursor);
// Any thread: ends a wait of the pump (workers call it when a job is done).
void window_wake();

bool key_is_down(const window_t *window, u32 key);
bool key_went_down(const window_t *window, u32 key);
bool key_went_up(const window_t *window, u32 key);
bool key_went_down_or_repeated(const window_t *window, u32 key);
u32 key_transitions(const window_t *window, u32 key);

void input_sync_keys(window_t *window);
void input_clear_keys(window_t *window);
