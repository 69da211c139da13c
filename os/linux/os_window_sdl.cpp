// os_window_sdl.cpp - the window layer on SDL2 (X11 or Wayland).
#include "os/os_window.h"

#include <SDL.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

namespace {

#include "os/linux/window_icon.inc"

// The name the desktop entry's StartupWMClass gives: X11's WM_CLASS and
// Wayland's application id, so that docks and menus match the window to its
// entry whatever the executable is called.
const char window_class[] = "tidewrack";

SDL_Window *sdl_window;
SDL_GLContext sdl_context;
u32 sdl_wake_event = (u32)-1;
i32 sdl_screen_width, sdl_screen_height;

// Events made here (typed control characters) wait in a small ring until the
// next poll, so that they follow the key event that made them.
os_window_event_t pending[8];
u32 pending_read, pending_write;

bool has_text(const char *text) { return text && text[0]; }

void copy_reason(char *reason, u64 size, const char *first, const char *second) {
    if (!reason || size == 0) return;
    u64 at = 0;
    for (const char *p = first; p && *p && at + 1 < size; ++p) reason[at++] = *p;
    for (const char *p = second; p && *p && at + 1 < size; ++p) reason[at++] = *p;
    reason[at] = 0;
}

struct key_map_t {
    u32 virtual_key;
    u32 scan_code;
    u32 extended;
};

// The Windows virtual key, set-1 scan code and extended flag of an SDL key.
// Letters follow the layout (the key that types "a" is key A); everything
// else follows the position.
key_map_t map_key(SDL_Scancode scancode, SDL_Keycode sym) {
    if (sym >= 'a' && sym <= 'z') return {(u32)(0x41 + (u32)(sym - (SDL_Keycode)0x61)), 0, 0};
    if (scancode >= SDL_SCANCODE_A && scancode <= SDL_SCANCODE_Z)
        return {(u32)(0x41 + (scancode - SDL_SCANCODE_A)), 0, 0};
    if (scancode >= SDL_SCANCODE_1 && scancode <= SDL_SCANCODE_9)
        return {(u32)(0x31 + (scancode - SDL_SCANCODE_1)), (u32)(0x02 + (scancode - SDL_SCANCODE_1)), 0};
    if (scancode >= SDL_SCANCODE_F1 && scancode <= SDL_SCANCODE_F12)
        return {(u32)(0x70 + (scancode - SDL_SCANCODE_F1)), 0, 0};
    if (scancode >= SDL_SCANCODE_F13 && scancode <= SDL_SCANCODE_F24)
        return {(u32)(0x7C + (scancode - SDL_SCANCODE_F13)), 0, 0};
    if (scancode >= SDL_SCANCODE_KP_1 && scancode <= SDL_SCANCODE_KP_9)
        return {(u32)(0x61 + (scancode - SDL_SCANCODE_KP_1)), 0, 0};
    switch (scancode) {
    case SDL_SCANCODE_0: return {0x30, 0x0B, 0};
    case SDL_SCANCODE_RETURN: return {0x0D, 0x1C, 0};
    case SDL_SCANCODE_KP_ENTER: return {0x0D, 0x1C, 1};
    case SDL_SCANCODE_ESCAPE: return {0x1B, 0x01, 0};
    case SDL_SCANCODE_BACKSPACE: return {0x08, 0x0E, 0};
    case SDL_SCANCODE_TAB: return {0x09, 0x0F, 0};
    case SDL_SCANCODE_SPACE: return {0x20, 0x39, 0};
    case SDL_SCANCODE_MINUS: return {0xBD, 0x0C, 0};
    case SDL_SCANCODE_EQUALS: return {0xBB, 0x0D, 0};
    case SDL_SCANCODE_LEFTBRACKET: return {0xDB, 0x1A, 0};
    case SDL_SCANCODE_RIGHTBRACKET: return {0xDD, 0x1B, 0};
    case SDL_SCANCODE_BACKSLASH: return {0xDC, 0x2B, 0};
    case SDL_SCANCODE_SEMICOLON: return {0xBA, 0x27, 0};
    case SDL_SCANCODE_APOSTROPHE: return {0xDE, 0x28, 0};
    case SDL_SCANCODE_GRAVE: return {0xC0, 0x29, 0};
    case SDL_SCANCODE_COMMA: return {0xBC, 0x33, 0};
    case SDL_SCANCODE_PERIOD: return {0xBE, 0x34, 0};
    case SDL_SCANCODE_SLASH: return {0xBF, 0x35, 0};
    case SDL_SCANCODE_NONUSBACKSLASH: return {0xE2, 0x56, 0};
    case SDL_SCANCODE_CAPSLOCK: return {0x14, 0x3A, 0};
    case SDL_SCANCODE_PRINTSCREEN: return {0x2C, 0x37, 1};
    case SDL_SCANCODE_SCROLLLOCK: return {0x91, 0x46, 0};
    case SDL_SCANCODE_PAUSE: return {0x13, 0x45, 0};
    case SDL_SCANCODE_INSERT: return {0x2D, 0x52, 1};
    case SDL_SCANCODE_HOME: return {0x24, 0x47, 1};
    case SDL_SCANCODE_PAGEUP: return {0x21, 0x49, 1};
    case SDL_SCANCODE_DELETE: return {0x2E, 0x53, 1};
    case SDL_SCANCODE_END: return {0x23, 0x4F, 1};
    case SDL_SCANCODE_PAGEDOWN: return {0x22, 0x51, 1};
    case SDL_SCANCODE_RIGHT: return {0x27, 0x4D, 1};
    case SDL_SCANCODE_LEFT: return {0x25, 0x4B, 1};
    case SDL_SCANCODE_DOWN: return {0x28, 0x50, 1};
    case SDL_SCANCODE_UP: return {0x26, 0x48, 1};
    case SDL_SCANCODE_NUMLOCKCLEAR: return {0x90, 0x45, 1};
    case SDL_SCANCODE_KP_DIVIDE: return {0x6F, 0x35, 1};
    case SDL_SCANCODE_KP_MULTIPLY: return {0x6A, 0x37, 0};
    case SDL_SCANCODE_KP_MINUS: return {0x6D, 0x4A, 0};
    case SDL_SCANCODE_KP_PLUS: return {0x6B, 0x4E, 0};
    case SDL_SCANCODE_KP_0: return {0x60, 0x52, 0};
    case SDL_SCANCODE_KP_PERIOD: return {0x6E, 0x53, 0};
    case SDL_SCANCODE_KP_COMMA: return {0x6C, 0, 0};
    case SDL_SCANCODE_APPLICATION: return {0x5D, 0x5D, 1};
    case SDL_SCANCODE_LCTRL: return {0x11, 0x1D, 0};
    case SDL_SCANCODE_RCTRL: return {0x11, 0x1D, 1};
    case SDL_SCANCODE_LSHIFT: return {0x10, 0x2A, 0};
    case SDL_SCANCODE_RSHIFT: return {0x10, 0x36, 0};
    case SDL_SCANCODE_LALT: return {0x12, 0x38, 0};
    case SDL_SCANCODE_RALT: return {0x12, 0x38, 1};
    case SDL_SCANCODE_LGUI: return {0x5B, 0x5B, 1};
    case SDL_SCANCODE_RGUI: return {0x5C, 0x5C, 1};
    case SDL_SCANCODE_HELP: return {0x2F, 0, 0};
    case SDL_SCANCODE_SELECT: return {0x29, 0, 0};
    case SDL_SCANCODE_EXECUTE: return {0x2B, 0, 0};
    case SDL_SCANCODE_SLEEP: return {0x5F, 0, 0};
    case SDL_SCANCODE_CANCEL: return {0x03, 0, 0};
    case SDL_SCANCODE_CLEAR: return {0x0C, 0, 0};
    case SDL_SCANCODE_MUTE:
    case SDL_SCANCODE_AUDIOMUTE: return {0xAD, 0, 1};
    case SDL_SCANCODE_VOLUMEDOWN: return {0xAE, 0, 1};
    case SDL_SCANCODE_VOLUMEUP: return {0xAF, 0, 1};
    case SDL_SCANCODE_AUDIONEXT: return {0xB0, 0, 1};
    case SDL_SCANCODE_AUDIOPREV: return {0xB1, 0, 1};
    case SDL_SCANCODE_AUDIOSTOP: return {0xB2, 0, 1};
    case SDL_SCANCODE_AUDIOPLAY: return {0xB3, 0, 1};
    case SDL_SCANCODE_MAIL: return {0xB4, 0, 1};
    case SDL_SCANCODE_MEDIASELECT: return {0xB5, 0, 1};
    case SDL_SCANCODE_COMPUTER: return {0xB6, 0, 1};
    case SDL_SCANCODE_CALCULATOR: return {0xB7, 0, 1};
    case SDL_SCANCODE_AC_BACK: return {0xA6, 0, 1};
    case SDL_SCANCODE_AC_FORWARD: return {0xA7, 0, 1};
    case SDL_SCANCODE_AC_REFRESH: return {0xA8, 0, 1};
    case SDL_SCANCODE_AC_STOP: return {0xA9, 0, 1};
    case SDL_SCANCODE_AC_SEARCH: return {0xAA, 0, 1};
    case SDL_SCANCODE_AC_BOOKMARKS: return {0xAB, 0, 1};
    case SDL_SCANCODE_AC_HOME: return {0xAC, 0, 1};
    default: return {0, 0, 0};
    }
}

// The SDL scancodes that stand for a virtual key, for the state queries of a
// focus change. At most two (left and right) per key.
u32 scancodes_of_virtual_key(u32 virtual_key, SDL_Scancode out[2]) {
    switch (virtual_key) {
    case 0x10: out[0] = SDL_SCANCODE_LSHIFT, out[1] = SDL_SCANCODE_RSHIFT; return 2;
    case 0x11: out[0] = SDL_SCANCODE_LCTRL, out[1] = SDL_SCANCODE_RCTRL; return 2;
    case 0x12: out[0] = SDL_SCANCODE_LALT, out[1] = SDL_SCANCODE_RALT; return 2;
    case 0xA0: out[0] = SDL_SCANCODE_LSHIFT; return 1;
    case 0xA1: out[0] = SDL_SCANCODE_RSHIFT; return 1;
    case 0xA2: out[0] = SDL_SCANCODE_LCTRL; return 1;
    case 0xA3: out[0] = SDL_SCANCODE_RCTRL; return 1;
    case 0xA4: out[0] = SDL_SCANCODE_LALT; return 1;
    case 0xA5: out[0] = SDL_SCANCODE_RALT; return 1;
    case 0x0D: out[0] = SDL_SCANCODE_RETURN, out[1] = SDL_SCANCODE_KP_ENTER; return 2;
    default: break;
    }
    if (virtual_key >= 0x41 && virtual_key <= 0x5A) {
        SDL_Scancode scancode = SDL_GetScancodeFromKey((SDL_Keycode)('a' + (virtual_key - 0x41)));
        out[0] = scancode != SDL_SCANCODE_UNKNOWN ? scancode : (SDL_Scancode)(SDL_SCANCODE_A + (virtual_key - 0x41));
        return 1;
    }
    // Every other key has one position: search the table above.
    for (u32 s = 1; s < SDL_NUM_SCANCODES; ++s) {
        if ((s >= SDL_SCANCODE_A && s <= SDL_SCANCODE_Z)) continue;
        if (map_key((SDL_Scancode)s, 0).virtual_key == virtual_key) {
            out[0] = (SDL_Scancode)s;
            return 1;
        }
    }
    return 0;
}

void push_pending(const os_window_event_t *event) {
    if (pending_write - pending_read >= array_count(pending)) return;
    pending[pending_write++ % array_count(pending)] = *event;
}

bool pop_pending(os_window_event_t *event) {
    if (pending_read == pending_write) return false;
    *event = pending[pending_read++ % array_count(pending)];
    return true;
}

void read_info(os_window_info_t *info) {
    info->screen_width = sdl_screen_width;
    info->screen_height = sdl_screen_height;
    if (!sdl_window) return;
    i32 left = 0, top = 0, width = 0, height = 0;
    SDL_GetWindowPosition(sdl_window, &left, &top);
    SDL_GL_GetDrawableSize(sdl_window, &width, &height);
    if (width == 0 && height == 0) SDL_GetWindowSize(sdl_window, &width, &height);
    if (SDL_GetWindowFlags(sdl_window) & SDL_WINDOW_MINIMIZED) width = 0, height = 0;
    info->x = left;
    info->y = sdl_screen_height - (top + height);
    info->width = width;
    info->height = height;
}

// Turns one SDL event into ours; false for the events the program ignores.
bool translate(const SDL_Event *e, os_window_event_t *event) {
    memset(event, 0, sizeof(*event));
    if (e->type == sdl_wake_event) {
        event->kind = os_input_wake;
        return true;
    }
    switch (e->type) {
    case SDL_QUIT: event->kind = os_input_quit; return true;
    case SDL_WINDOWEVENT:
        switch (e->window.event) {
        case SDL_WINDOWEVENT_CLOSE: event->kind = os_input_close; return true;
        case SDL_WINDOWEVENT_FOCUS_GAINED: event->kind = os_input_focus_gained; return true;
        case SDL_WINDOWEVENT_FOCUS_LOST: event->kind = os_input_focus_lost; return true;
        case SDL_WINDOWEVENT_MOVED:
        case SDL_WINDOWEVENT_RESIZED:
        case SDL_WINDOWEVENT_SIZE_CHANGED:
        case SDL_WINDOWEVENT_MINIMIZED:
        case SDL_WINDOWEVENT_MAXIMIZED:
        case SDL_WINDOWEVENT_RESTORED: event->kind = os_input_resized; return true;
        // Uncovered parts need a frame to be drawn again.
        case SDL_WINDOWEVENT_EXPOSED:
        case SDL_WINDOWEVENT_SHOWN: event->kind = os_input_wake; return true;
        default: return false;
        }
    case SDL_KEYDOWN:
    case SDL_KEYUP: {
        key_map_t key = map_key(e->key.keysym.scancode, e->key.keysym.sym);
        event->kind = os_input_key;
        event->virtual_key = key.virtual_key;
        event->scan_code = key.scan_code;
        bool down = e->type == SDL_KEYDOWN;
        bool alt = (e->key.keysym.mod & KMOD_ALT) != 0 || key.virtual_key == 0x12;
        event->flags = (down ? (u32)os_key_down : 0u) | (e->key.repeat ? (u32)os_key_repeat : 0u) |
                       (key.extended ? (u32)os_key_extended : 0u) | (alt ? (u32)os_key_system : 0u);
        // The control characters that Windows delivers as typed text; SDL
        // gives them only as keys.
        if (down && !alt) {
            u8 control = 0;
            switch (e->key.keysym.scancode) {
            case SDL_SCANCODE_RETURN:
            case SDL_SCANCODE_KP_ENTER: control = 13; break;
            case SDL_SCANCODE_TAB: control = 9; break;
            case SDL_SCANCODE_ESCAPE: control = 27; break;
            case SDL_SCANCODE_BACKSPACE: control = 8; break;
            default: break;
            }
            if (control) {
                os_window_event_t text = {};
                text.kind = os_input_text;
                text.text[0] = control;
                text.text_size = 1;
                push_pending(&text);
            }
        }
        return true;
    }
    case SDL_TEXTINPUT: {
        event->kind = os_input_text;
        u32 size = 0;
        while (size < sizeof(event->text) && size < sizeof(e->text.text) && e->text.text[size]) {
            event->text[size] = (u8)e->text.text[size];
            ++size;
        }
        event->text_size = size;
        return size > 0;
    }
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP: {
        u32 button = 0;
        switch (e->button.button) {
        case SDL_BUTTON_LEFT: button = 1; break;
        case SDL_BUTTON_RIGHT: button = 2; break;
        case SDL_BUTTON_MIDDLE: button = 3; break;
        case SDL_BUTTON_X1: button = 4; break;
        case SDL_BUTTON_X2: button = 5; break;
        default: return false;
        }
        event->kind = os_input_button;
        event->button = button;
        event->flags = e->type == SDL_MOUSEBUTTONDOWN ? (u32)os_key_down : 0u;
        event->x = e->button.x;
        event->y = e->button.y;
        return true;
    }
    case SDL_MOUSEWHEEL: {
        event->kind = os_input_wheel;
        f32 notches = (f32)e->wheel.y;
        if (e->wheel.direction == SDL_MOUSEWHEEL_FLIPPED) notches = -notches;
        event->wheel = notches;
        return true;
    }
    case SDL_MOUSEMOTION:
        event->kind = os_input_mouse_move;
        event->x = e->motion.x;
        event->y = e->motion.y;
        return true;
    default: return false;
    }
}

} // namespace

bool os_window_create(const u8 *title, u64 title_size, i32 width, i32 height, i32 x, i32 y, u32 flags,
                      os_window_info_t *info, char *reason, u64 reason_size) {
    memset(info, 0, sizeof(*info));
    // Without a display SDL would fall back to its offscreen driver and draw
    // where nobody sees it (and libwayland would complain on stderr first).
    // SDL_VIDEODRIVER, when set, is the user's own choice and is honoured.
    const char *chosen_driver = getenv("SDL_VIDEODRIVER");
    bool driver_chosen = chosen_driver && chosen_driver[0];
    if (!driver_chosen && !has_text(getenv("DISPLAY")) && !has_text(getenv("WAYLAND_DISPLAY"))) {
        copy_reason(reason, reason_size, "no display: neither DISPLAY nor WAYLAND_DISPLAY is set", nullptr);
        return false;
    }
    // Only X11 is there to try: a failed Wayland attempt would only add
    // libwayland's complaint to the reason.
    if (!driver_chosen && !has_text(getenv("WAYLAND_DISPLAY"))) SDL_SetHint(SDL_HINT_VIDEODRIVER, "x11");
    setenv("SDL_VIDEO_X11_WMCLASS", window_class, 0);
    setenv("SDL_VIDEO_WAYLAND_WMCLASS", window_class, 0);
    SDL_SetHint(SDL_HINT_APP_NAME, window_class);
    // SDL's own SIGINT and SIGTERM handlers turn both into a quit event,
    // which is the close request the frame loop looks for.
    if (SDL_Init(SDL_INIT_VIDEO | SDL_INIT_EVENTS) != 0) {
        copy_reason(reason, reason_size, "no display: ", SDL_GetError());
        return false;
    }
    const char *driver = SDL_GetCurrentVideoDriver();
    if (!driver_chosen && driver && (strcmp(driver, "offscreen") == 0 || strcmp(driver, "dummy") == 0)) {
        SDL_Quit();
        copy_reason(reason, reason_size, "no display: only SDL's offscreen driver is available", nullptr);
        return false;
    }
    if (sdl_wake_event == (u32)-1) sdl_wake_event = SDL_RegisterEvents(1);

    SDL_DisplayMode mode = {};
    if (SDL_GetDesktopDisplayMode(0, &mode) == 0) {
        sdl_screen_width = mode.w;
        sdl_screen_height = mode.h;
        info->refresh_rate = mode.refresh_rate > 0 ? (u32)mode.refresh_rate : 0;
    }

    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MAJOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_MINOR_VERSION, 3);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_PROFILE_MASK, SDL_GL_CONTEXT_PROFILE_CORE);
    SDL_GL_SetAttribute(SDL_GL_CONTEXT_FLAGS, SDL_GL_CONTEXT_DEBUG_FLAG);
    SDL_GL_SetAttribute(SDL_GL_DOUBLEBUFFER, 1);
    SDL_GL_SetAttribute(SDL_GL_RED_SIZE, 8);
    SDL_GL_SetAttribute(SDL_GL_GREEN_SIZE, 8);
    SDL_GL_SetAttribute(SDL_GL_BLUE_SIZE, 8);
    SDL_GL_SetAttribute(SDL_GL_ALPHA_SIZE, 8);
    SDL_GL_SetAttribute(SDL_GL_DEPTH_SIZE, 24);
    SDL_GL_SetAttribute(SDL_GL_STENCIL_SIZE, 8);

    char title_z[2048];
    u64 title_length = title_size < sizeof(title_z) - 1 ? title_size : sizeof(title_z) - 1;
    memcpy(title_z, title, title_length);
    title_z[title_length] = 0;

    i32 left = x == os_window_centred ? (i32)SDL_WINDOWPOS_CENTERED : x;
    i32 top = y == os_window_centred ? (i32)SDL_WINDOWPOS_CENTERED : sdl_screen_height - height - y;
    u32 window_flags = SDL_WINDOW_OPENGL | SDL_WINDOW_RESIZABLE | SDL_WINDOW_ALLOW_HIGHDPI;
    if (flags & os_window_popup) window_flags |= SDL_WINDOW_BORDERLESS;
    if (flags & os_window_maximised) window_flags |= SDL_WINDOW_MAXIMIZED;
    sdl_window = SDL_CreateWindow(title_z, left, top, width, height, window_flags);
    if (!sdl_window) {
        copy_reason(reason, reason_size, "the window could not be made: ", SDL_GetError());
        return false;
    }
    SDL_Surface *icon = SDL_CreateRGBSurfaceWithFormatFrom((void *)window_icon_pixels, window_icon_size,
                                                           window_icon_size, 32, window_icon_size * 4,
                                                           SDL_PIXELFORMAT_ARGB8888);
    if (icon) {
        SDL_SetWindowIcon(sdl_window, icon);
        SDL_FreeSurface(icon);
    }
    sdl_context = SDL_GL_CreateContext(sdl_window);
    if (!sdl_context) {
        read_info(info);
        copy_reason(reason, reason_size, "no OpenGL 3.3 core context: ", SDL_GetError());
        return false;
    }
    SDL_GL_MakeCurrent(sdl_window, sdl_context);
    SDL_GL_SetSwapInterval(1);
    SDL_StartTextInput();
    read_info(info);
    info->has_gl = 1;
    return true;
}

void os_window_query(os_window_info_t *info) {
    u32 refresh = info->refresh_rate, has_gl = info->has_gl;
    read_info(info);
    info->refresh_rate = refresh;
    info->has_gl = has_gl;
}

bool os_window_poll(os_window_event_t *event) {
    if (pop_pending(event)) return true;
    SDL_Event e;
    while (SDL_PollEvent(&e)) {
        if (translate(&e, event)) return true;
    }
    return false;
}

bool os_window_wait(os_window_event_t *event) {
    if (pop_pending(event)) return true;
    SDL_Event e;
    for (;;) {
        if (!SDL_WaitEvent(&e)) return false;
        if (translate(&e, event)) return true;
    }
}

void os_window_wake() {
    if (sdl_wake_event == (u32)-1) return;
    SDL_Event e = {};
    e.type = sdl_wake_event;
    SDL_PushEvent(&e);
}

void os_window_pointer(i32 *x, i32 *y) {
    i32 mx = 0, my = 0;
    SDL_GetMouseState(&mx, &my);
    *x = mx;
    *y = my;
}

void os_window_capture_pointer(bool capture) { SDL_CaptureMouse(capture ? SDL_TRUE : SDL_FALSE); }

bool os_window_key_down_now(u32 virtual_key) {
    u32 buttons = SDL_GetMouseState(nullptr, nullptr);
    switch (virtual_key) {
    case 0x01: return (buttons & SDL_BUTTON_LMASK) != 0;
    case 0x02: return (buttons & SDL_BUTTON_RMASK) != 0;
    case 0x04: return (buttons & SDL_BUTTON_MMASK) != 0;
    case 0x05: return (buttons & SDL_BUTTON_X1MASK) != 0;
    case 0x06: return (buttons & SDL_BUTTON_X2MASK) != 0;
    default: break;
    }
    SDL_Scancode scancodes[2];
    u32 count = scancodes_of_virtual_key(virtual_key, scancodes);
    int state_count = 0;
    const u8 *state = SDL_GetKeyboardState(&state_count);
    for (u32 i = 0; i < count; ++i) {
        if ((int)scancodes[i] < state_count && state[scancodes[i]]) return true;
    }
    return false;
}

void os_window_swap() {
    if (sdl_window) SDL_GL_SwapWindow(sdl_window);
}

bool os_window_swap_interval(i32 interval) { return SDL_GL_SetSwapInterval(interval) == 0; }

void *os_window_gl_proc_address(const char *name) { return SDL_GL_GetProcAddress(name); }

void *os_cursor_load(u32 index) {
    static const SDL_SystemCursor kinds[5] = {SDL_SYSTEM_CURSOR_ARROW, SDL_SYSTEM_CURSOR_HAND,
                                              SDL_SYSTEM_CURSOR_IBEAM, SDL_SYSTEM_CURSOR_SIZENS,
                                              SDL_SYSTEM_CURSOR_SIZEWE};
    if (index >= 5) return nullptr;
    return SDL_CreateSystemCursor(kinds[index]);
}

void *os_cursor_set(void *cursor) {
    SDL_Cursor *previous = SDL_GetCursor();
    if ((SDL_Cursor *)cursor != previous) SDL_SetCursor((SDL_Cursor *)cursor);
    return previous;
}

bool os_clipboard_set(const u8 *text, u64 size) {
    // SDL wants a terminated string; the text is short (a selection).
    char *copy = (char *)SDL_malloc(size + 1);
    if (!copy) return false;
    memcpy(copy, text, size);
    copy[size] = 0;
    bool ok = SDL_SetClipboardText(copy) == 0;
    SDL_free(copy);
    return ok;
}

u64 os_clipboard_get(u8 *destination, u64 size) {
    if (!SDL_HasClipboardText()) return 0;
    char *text = SDL_GetClipboardText();
    if (!text) return 0;
    u64 length = strlen(text);
    if (length > size) length = size;
    memcpy(destination, text, length);
    SDL_free(text);
    return length;
}

void os_window_headless_push(const os_window_event_t *event) { push_pending(event); }
