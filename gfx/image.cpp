// image.cpp - the area-weighted box filter and the icon atlas.
#include "gfx/image.h"

#include "base/profiler.h"

#include <math.h>

void image_resize(const u8 *source, u32 source_width, u32 source_height, u8 *destination, u32 *width,
                  u32 *height, u32 channels, bool swap_red_blue, f32 gamma, u32 *error) {
    if (*error) return;
    if (*width == 0 && *height == 0) {
        *error = image_error_no_size;
        return;
    }
    if (source_width == 0 || source_height == 0) {
        *width = 0;
        *height = 0;
        return;
    }
    // Unit coordinates: the whole image is 1 by 1. The side that is computed
    // keeps its exact length, so a fraction of a pixel at the end is dropped
    // rather than stretched.
    f64 pixel_width, pixel_height;
    if (*width) {
        f64 exact = (f64)source_height * ((f64)*width / (f64)source_width);
        *height = (u32)exact;
        pixel_width = 1.0 / (f64)*width;
        pixel_height = 1.0 / exact;
    } else {
        f64 exact = (f64)source_width * ((f64)*height / (f64)source_height);
        *width = (u32)exact;
        pixel_width = 1.0 / exact;
        pixel_height = 1.0 / (f64)*height;
    }
    if (!source || !destination) return;
    if (channels == 0 || channels > 4) {
        *error = image_error_channels;
        return;
    }
    PROFILE_SCOPE(image_resize);
    const f64 source_step_x = 1.0 / (f64)source_width, source_step_y = 1.0 / (f64)source_height;
    const u64 source_stride = (u64)source_width * channels;
    u8 *out = destination;
    for (u32 j = 0; j < *height; ++j) {
        const f64 y0 = j * pixel_height, y1 = (j + 1) * pixel_height;
        const u32 first_row = (u32)floor((f64)source_height * y0);
        for (u32 i = 0; i < *width; ++i) {
            const f64 x0 = i * pixel_width, x1 = (i + 1) * pixel_width;
            const u32 first_column = (u32)floor((f64)source_width * x0);
            f32 sums[4] = {0, 0, 0, 0};
            for (u32 r = first_row; r < source_height && r * source_step_y < y1; ++r) {
                const f64 row_start = r * source_step_y, row_end = (r + 1) * source_step_y;
                const f64 overlap_y = (row_end < y1 ? row_end : y1) - (row_start > y0 ? row_start : y0);
                if (overlap_y <= 0) continue;
                const f32 weight_y = (f32)(overlap_y / pixel_height);
                const u8 *row = source + r * source_stride;
                for (u32 c = first_column; c < source_width && c * source_step_x < x1; ++c) {
                    const f64 column_start = c * source_step_x, column_end = (c + 1) * source_step_x;
                    const f64 overlap_x =
                        (column_end < x1 ? column_end : x1) - (column_start > x0 ? column_start : x0);
                    if (overlap_x <= 0) continue;
                    const f32 weight = (f32)(overlap_x / pixel_width) * weight_y;
                    const u8 *pixel = row + (u64)c * channels;
                    for (u32 k = 0; k < channels; ++k) sums[k] += (f32)pixel[k] * weight;
                }
            }
            for (u32 k = 0; k < channels; ++k) {
                f32 value = sums[k];
                if (gamma != 1.0f) {
                    f32 unit = value / 255.0f;
                    value = unit > 0 ? expf(gamma * logf(unit)) * 255.0f : 0.0f;
                }
                value += 0.5f;
                out[k] = value >= 255.0f ? 255 : value <= 0.0f ? 0 : (u8)value;
            }
            if (swap_red_blue && channels >= 3) {
                u8 t = out[0];
                out[0] = out[2];
                out[2] = t;
            }
            out += channels;
        }
    }
}

// ---- icon masks ------------------------------------------------------------------------------
namespace {

struct stroke_t {
    f32 ax, ay, bx, by;
};

f32 distance_to_segment(f32 px, f32 py, const stroke_t &s) {
    f32 dx = s.bx - s.ax, dy = s.by - s.ay;
    f32 t = ((px - s.ax) * dx + (py - s.ay) * dy) / (dx * dx + dy * dy);
    t = t < 0 ? 0 : t > 1 ? 1 : t;
    f32 x = s.ax + t * dx - px, y = s.ay + t * dy - py;
    return sqrtf(x * x + y * y);
}

// Thick strokes with round joints; the edge is antialiased by 4 by 4
// samples a pixel.
void draw_strokes(u8 *mask, const stroke_t *strokes, u32 count, f32 half_width) {
    for (u32 y = 0; y < ui_icon_mask_size; ++y) {
        for (u32 x = 0; x < ui_icon_mask_size; ++x) {
            u32 inside = 0;
            for (u32 sy = 0; sy < 4; ++sy) {
                for (u32 sx = 0; sx < 4; ++sx) {
                    f32 px = (f32)x + (sx + 0.5f) / 4.0f, py = (f32)y + (sy + 0.5f) / 4.0f;
                    for (u32 s = 0; s < count; ++s) {
                        if (distance_to_segment(px, py, strokes[s]) <= half_width) {
                            ++inside;
                            break;
                        }
                    }
                }
            }
            mask[y * ui_icon_mask_size + x] = (u8)((inside * 255 + 8) / 16);
        }
    }
}

u8 masks[3][ui_icon_mask_size * ui_icon_mask_size];
bool masks_drawn;

void masks_draw() {
    // y grows upwards: row 0 is the bottom row.
    const stroke_t check[2] = {{10, 34, 25, 17}, {25, 17, 54, 48}};
    const stroke_t down[2] = {{10, 44, 32, 20}, {32, 20, 54, 44}};
    const stroke_t left[2] = {{42, 10, 18, 32}, {18, 32, 42, 54}};
    draw_strokes(masks[ui_mask_check], check, 2, 5.0f);
    draw_strokes(masks[ui_mask_chevron_down], down, 2, 5.0f);
    draw_strokes(masks[ui_mask_chevron_left], left, 2, 5.0f);
    masks_drawn = true;
}

} // namespace

const u8 *ui_icon_mask(u32 mask) {
    assert_true(mask < 3);
    if (!masks_drawn) masks_draw();
    return masks[mask];
}

void ui_icon_sources(ui_icon_source_t sources[ui_icon_count]) {
    static const u32 mask_of_icon[ui_icon_count] = {ui_mask_check,        ui_mask_check,        ui_mask_chevron_down,
                                                    ui_mask_chevron_down, ui_mask_chevron_down, ui_mask_chevron_left,
                                                    ui_mask_chevron_left};
    static const u32 size_of_icon[ui_icon_count] = {12, 10, 16, 14, 10, 14, 10};
    for (u32 i = 0; i < ui_icon_count; ++i) {
        sources[i].pixels = ui_icon_mask(mask_of_icon[i]);
        sources[i].source_width = ui_icon_mask_size;
        sources[i].source_height = ui_icon_mask_size;
        sources[i].width = size_of_icon[i];
        sources[i].height = size_of_icon[i];
    }
}

// ---- the atlas ----------------------------------------------------------------------------------
ui_atlas_t ui_atlas_create(const ui_icon_source_t *icons, u32 count, u32 bytes_per_pixel) {
    ui_atlas_t atlas = {};
    atlas.bytes_per_pixel = bytes_per_pixel;
    for (u32 i = 0; i < count; ++i) {
        atlas.width += icons[i].width;
        if (icons[i].height > atlas.height) atlas.height = icons[i].height;
    }
    u64 pixel_bytes = align_up((u64)atlas.width * atlas.height * bytes_per_pixel, 4);
    data_t block = data_virtual_alloc(pixel_bytes + (u64)count * 16, 0);
    assert_message(block.bytes, "No memory for the icon atlas.");
    atlas.pixels = (u8 *)data_push(&block, pixel_bytes, 4);
    atlas.uvs = (vec2 *)data_push(&block, (u64)count * 16, 4);
    memory_zero(atlas.pixels, pixel_bytes);
    memory_zero(atlas.uvs, (u64)count * 16);

    static u8 icon_pixels[0x10000]; // 256 by 256 bytes at most per icon
    const u64 atlas_stride = (u64)atlas.width * bytes_per_pixel;
    u32 column = 0;
    for (u32 i = 0; i < count; ++i) {
        const ui_icon_source_t *icon = &icons[i];
        u32 width = icon->width, height = icon->height, error = 0;
        image_resize(nullptr, icon->source_width, icon->source_height, nullptr, &width, &height, bytes_per_pixel,
                     false, 1.0f, &error);
        if (!error && (u64)width * height * bytes_per_pixel <= sizeof(icon_pixels) && height <= atlas.height &&
            column + width <= atlas.width) {
            image_resize(icon->pixels, icon->source_width, icon->source_height, icon_pixels, &width, &height,
                         bytes_per_pixel, false, 1.0f, &error);
        } else if (!error) {
            error = 3;
        }
        if (!error) {
            const u64 row_bytes = (u64)width * bytes_per_pixel;
            for (u32 r = 0; r < height; ++r)
                memory_copy(atlas.pixels + r * atlas_stride + (u64)column * bytes_per_pixel,
                            icon_pixels + r * row_bytes, row_bytes);
            const f32 u = (f32)column / (f32)atlas.width;
            atlas.uvs[i * 2] = vec2{u, 0};
            atlas.uvs[i * 2 + 1] = vec2{u + (f32)width / (f32)atlas.width, (f32)height / (f32)atlas.height};
        }
        // A failed icon keeps zero coordinates and leaves its column empty.
        column += icon->width;
    }
    return atlas;
}

vec4 ui_atlas_uv(const ui_atlas_t *atlas, u32 icon) {
    vec2 a = atlas->uvs[icon * 2], b = atlas->uvs[icon * 2 + 1];
    return vec4{a.x, a.y, b.x, b.y};
}
