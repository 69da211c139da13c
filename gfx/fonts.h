// fonts.h - the font set and its one glyph atlas. Every font of the set, at
// every size, is packed into one single-channel image from the shared list of
// code points; the set is rebuilt whole when the list grows.
#pragma once

#include "base/memory.h"
#include "base/text.h"

#include <stb/stb_truetype.h>

struct glyph_t {
    u16 x0, y0, x1, y1;              // box in the atlas, y from the atlas's bottom
    f32 left, bottom, right, top;    // quad relative to the pen, y up
    f32 advance;                     // pixels
    u32 kerning_count;
    u32 kerning_offset;              // relative to the font's kerning; stays 0
};

struct font_t {
    stbtt_fontinfo info;
    u32 *code_points; // the shared list, sorted by font_set_build
    glyph_t *glyphs;  // one per code point
    u32 *kerning;     // pairs: next code point, amount in font units
    u32 count;
    f32 size;
    f32 scale;
    i32 ascent, descent, line_gap; // font units
    u8 direct[256];
    u32 first_code_point;
    u32 first_searched;
    u32 monospaced;
};

struct font_set_t {
    data_t memory; // font records first, then glyphs, kerning and the atlas
    data_t atlas;  // one byte a pixel, bottom row first
    font_t *fonts;
    u16 atlas_width, atlas_height;
    u8 font_count;
};

struct font_metrics_t {
    u32 index;
    f32 line_height;
    f32 descent;
};

// Where a code point is not in a font's list, this glyph is drawn. It starts
// at 191 and the reader sets it to the position of U+FFFD when it loads or
// trims the list.
extern u32 replacement_glyph_index;

constexpr u32 font_max_code_points = 1023;

void font_set_add(font_set_t *font_set, const data_t *font_file, f32 size, u32 *code_points, u32 count,
                  bool monospaced);
void font_set_set_code_points(font_set_t *font_set, u32 *code_points, u32 count);
void font_set_build(font_set_t *font_set);
// Drops glyphs, kerning and atlas, keeping the font records, so that the set
// can be built again from a longer list.
void font_set_reset_glyphs(font_set_t *font_set);
font_t *font_get(font_set_t *font_set, u32 index);
u32 font_glyph_index(const font_t *font, u32 code_point);
i32 font_kerning(const font_t *font, const glyph_t *glyph, u32 next_code_point);
f32 font_line_height(const font_t *font, bool with_gap);
f32 font_descent(const font_t *font);
font_metrics_t font_metrics(font_set_t *font_set, u32 index);

// ---- finding and loading the application's fonts ----------------------------------------
// Finds a family through the window layer and reads the file whole into a
// block of its own, kept for the life of the program. A family that isn't installed falls back to the sans or monospace
// default, said on log channel 1. Returns an empty data_t when no font exists.
data_t font_file_load(const char *family, bool monospace);

// The application's set: "Verdana" at 14, 16, 20 and "Lucida Console" at 12
// (monospaced), from the given files, built over `code_points`.
void font_set_create_application(font_set_t *font_set, data_t font_memory, const data_t *sans_file,
                                 const data_t *mono_file, code_point_list_t *code_points);
// The frame's rebuild after the list grew: fonts kept, glyphs and atlas made again.
void font_set_rebuild(font_set_t *font_set, code_point_list_t *code_points);
