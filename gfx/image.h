// image.h - the one function that scales bitmaps (article pictures on a
// worker, icons at start-up) and the small atlas of the toolkit's icons.
#pragma once

#include "base/memory.h"

enum : u32 {
    image_error_no_size = 1,  // neither width nor height given
    image_error_channels = 2, // channel count 0 or above 4 with real buffers
};

// Area-weighted box filter on 8-bit channels. A non-zero *width rules and
// *height is computed from it (truncated); otherwise *height rules. With null
// source and destination only the sizes are computed. gamma 1.0 for none.
// Touches only its arguments: any thread.
void image_resize(const u8 *source, u32 source_width, u32 source_height, u8 *destination, u32 *width,
                  u32 *height, u32 channels, bool swap_red_blue, f32 gamma, u32 *error);

struct ui_icon_source_t {
    const u8 *pixels;
    u32 source_width, source_height;
    u32 width, height; // wanted size
};

struct ui_atlas_t {
    u8 *pixels;
    u32 width, height;
    vec2 *uvs; // two per icon: lower left and upper right in texture coordinates
    u32 bytes_per_pixel;
};

enum : u32 {
    ui_icon_check_12 = 0,
    ui_icon_check_10 = 1,
    ui_icon_chevron_down_16 = 2,
    ui_icon_chevron_down_14 = 3,
    ui_icon_chevron_down_10 = 4,
    ui_icon_chevron_left_14 = 5,
    ui_icon_chevron_left_10 = 6,
    ui_icon_count = 7,
};

constexpr u32 ui_icon_mask_size = 64;
enum : u32 {
    ui_mask_check = 0,
    ui_mask_chevron_down = 1,
    ui_mask_chevron_left = 2,
};

// The three 64 by 64 coverage masks, bottom row first.
const u8 *ui_icon_mask(u32 mask);
// The seven icons of the toolkit, in atlas order.
void ui_icon_sources(ui_icon_source_t sources[ui_icon_count]);

ui_atlas_t ui_atlas_create(const ui_icon_source_t *icons, u32 count, u32 bytes_per_pixel);
// The texture rectangle of an icon: left, bottom, right, top.
vec4 ui_atlas_uv(const ui_atlas_t *atlas, u32 icon);
