// frame.cpp - the small sums of the start-up.
#include "app/app.h"

void app_text_cells(i32 screen_width, i32 screen_height, u32 *rows, u32 *columns) {
    u32 height = screen_height > 0 ? (u32)screen_height : 0;
    u32 width = screen_width > 0 ? (u32)screen_width : 0;
    *rows = (height + 13) / 14;
    *columns = width / 2;
}
