// The real window layer under a private X server: SDL events pushed into its
// queue come out of the pump as key bytes, text and close requests. (The
// end-to-end sessions drive the common keys and the wake through a real X
// server.)
#include "gfx/window.h"

#include <SDL.h>
#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

window_t window;

struct sdl_input_t : ::testing::Test {
    static void SetUpTestSuite() {
        data_t title = data_literal("input");
        window_create(&window, &title, 320, 200, window_centred, window_centred, 0);
    }
    void SetUp() override {
        ASSERT_EQ(window.running, 1u) << "no window: is the test run under xvfb-run?";
        settle();
        window.closing = 0;
    }
    // Lets the X server's own events (map, expose, focus) arrive and be
    // handled before the test pushes its own, so that a late focus change
    // can't reset the keys in the middle of a case.
    void settle() {
        int quiet = 0;
        for (int i = 0; i < 200 && quiet < 5; ++i) {
            SDL_PumpEvents();
            if (SDL_PeepEvents(nullptr, 0, SDL_PEEKEVENT, SDL_FIRSTEVENT, SDL_LASTEVENT) > 0) {
                window_handle_messages(&window, 0);
                quiet = 0;
            } else {
                ++quiet;
                usleep(10000);
            }
        }
        window_handle_messages(&window, 0);
    }
    void pump() { window_handle_messages(&window, 0); }
};

void push_key(SDL_Scancode scancode, SDL_Keycode sym, bool down, u16 mod = 0, bool repeat = false) {
    SDL_Event e = {};
    e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
    e.key.state = down ? SDL_PRESSED : SDL_RELEASED;
    e.key.repeat = repeat ? 1 : 0;
    e.key.keysym = {scancode, sym, mod, 0};
    SDL_PushEvent(&e);
}

// One key event and the pump after it.
void key(SDL_Scancode scancode, SDL_Keycode sym, bool down, u16 mod = 0, bool repeat = false) {
    push_key(scancode, sym, down, mod, repeat);
    window_handle_messages(&window, 0);
}

void push_text(const char *text) {
    SDL_Event e = {};
    e.type = SDL_TEXTINPUT;
    SDL_strlcpy(e.text.text, text, sizeof(e.text.text));
    SDL_PushEvent(&e);
}

TEST_F(sdl_input_t, LettersFollowTheLayout) {
    // On a layout where the key at the place of Q types "a", that key is A.
    key(SDL_SCANCODE_Q, SDLK_a, true);
    EXPECT_TRUE(key_is_down(&window, key_a));
    EXPECT_FALSE(key_is_down(&window, key_q));
    key(SDL_SCANCODE_Q, SDLK_a, false);
}

TEST_F(sdl_input_t, ControlKeysAlsoTypeTheirCharacter) {
    push_key(SDL_SCANCODE_RETURN, SDLK_RETURN, true);
    push_key(SDL_SCANCODE_RETURN, SDLK_RETURN, false);
    push_key(SDL_SCANCODE_BACKSPACE, SDLK_BACKSPACE, true);
    push_text("x\xC3\xA9");
    key(SDL_SCANCODE_TAB, SDLK_TAB, true);
    EXPECT_EQ(std::string((char *)window.text_utf8, window.text_bytes), std::string("\r\bx\xC3\xA9\t"));
    EXPECT_EQ(window.text_count, 5u);
    EXPECT_EQ(window.text_code_points[3], 0xE9u);
    EXPECT_EQ(key_transitions(&window, key_enter), 2u);
    push_key(SDL_SCANCODE_BACKSPACE, SDLK_BACKSPACE, false);
    key(SDL_SCANCODE_TAB, SDLK_TAB, false);
}

TEST_F(sdl_input_t, AltF4AndTheWindowsCloseButtonAskToClose) {
    for (u16 mod : {(u16)0, (u16)KMOD_LALT}) {
        key(SDL_SCANCODE_F4, SDLK_F4, true, mod);
        EXPECT_EQ(window.closing, mod ? 1u : 0u);
        EXPECT_EQ(window.text_count, 0u);
        key(SDL_SCANCODE_F4, SDLK_F4, false, mod);
    }

    window.closing = 0;
    SDL_Event e = {};
    e.window = {SDL_WINDOWEVENT, 0, 0, SDL_WINDOWEVENT_CLOSE};
    SDL_PushEvent(&e);
    pump();
    EXPECT_EQ(window.closing, 1u);
}

TEST_F(sdl_input_t, WheelAndButtons) {
    SDL_Event e = {};
    e.wheel = {SDL_MOUSEWHEEL, 0, 0, 0, 0, 1};
    SDL_PushEvent(&e);
    e.wheel.y = -3;
    SDL_PushEvent(&e);
    SDL_Event b = {};
    b.button = {SDL_MOUSEBUTTONDOWN, 0, 0, 0, SDL_BUTTON_RIGHT, SDL_PRESSED, 1, 0, 7, 9};
    SDL_PushEvent(&b);
    pump();
    EXPECT_EQ(window.wheel, -3.0f);
    EXPECT_TRUE(key_went_down(&window, key_right_button));
    EXPECT_EQ(window.mouse_x, 7);
    EXPECT_EQ(window.mouse_y, window.height - 1 - 9);
    b.type = SDL_MOUSEBUTTONUP;
    b.button.state = SDL_RELEASED;
    SDL_PushEvent(&b);
    pump();
    EXPECT_TRUE(key_went_up(&window, key_right_button));
}

} // namespace
