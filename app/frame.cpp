// frame.cpp - the small sums of the start-up and the frame loop.
#include "app/app.h"

void app_text_cells(i32 screen_width, i32 screen_height, u32 *rows, u32 *columns) {
    u32 height = screen_height > 0 ? (u32)screen_height : 0;
    u32 width = screen_width > 0 ? (u32)screen_width : 0;
    *rows = (height + 13) / 14;
    *columns = width / 2;
}

u64 app_period_ms(u32 refresh_rate) {
    // Xvfb and some drivers report no rate at all.
    if (refresh_rate == 0) refresh_rate = 60;
    return 1000 / refresh_rate;
}

static u64 app_ticks_to_ms_up(u64 ticks, f64 frequency) {
    if (frequency <= 0) return 0;
    f64 ms = (f64)ticks * 1000.0 / frequency;
    u64 whole = (u64)ms;
    return (f64)whole < ms ? whole + 1 : whole;
}

u64 app_pacing_sleep_ms(u64 work_ticks, u64 message_ticks, f64 frequency, u64 period_ms) {
    u64 spent = app_ticks_to_ms_up(work_ticks, frequency) + app_ticks_to_ms_up(message_ticks, frequency);
    if (spent > period_ms) spent = period_ms;
    return period_ms - spent;
}
