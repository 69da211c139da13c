// fonts.h - the font set and its glyph atlas. Each font is a face at a size.
// The start list of 193 code points is packed once per font (stb_truetype)
// at the bottom of the atlas; every other character is found when it is
// first measured or drawn: in the font's own face, else in a fallback face
// that fontconfig picks, remembered per character, and rasterised by
// FreeType into the rest of the atlas when first drawn. A full atlas
// forgets the glyphs not drawn in the current frame; nothing ever stops on
// the number of characters.
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
    u32 colour;                      // 1: the box is in the colour atlas, drawn in its own colours
};

struct font_set_t;
struct font_store_t; // faces, the character map and the glyph store (gfx/font_store.cpp)

struct font_t {
    stbtt_fontinfo info;
    u32 *code_points; // the start list, sorted by font_set_build
    glyph_t *glyphs;  // one per start code point
    u32 *kerning;     // pairs: next code point, amount in font units
    u32 count;
    f32 size;
    f32 scale;
    i32 ascent, descent, line_gap; // font units
    u8 direct[256];
    u32 first_code_point;
    u32 first_searched;
    u32 monospaced;
    font_set_t *set; // the set the font belongs to, for glyphs beyond the start list
    u32 index;       // its index in the set
    u64 file_size;   // bytes of the face's file (info.data points to them)
};

struct font_set_t {
    data_t memory; // font records first, then glyphs and kerning of the start list
    data_t atlas;  // one byte a pixel, bottom row first: the start glyphs, then glyphs on demand
    font_t *fonts;
    u16 atlas_width, atlas_height;
    u8 font_count;
    font_store_t *store;
    u32 static_height;           // atlas rows of the start glyphs
    u32 dirty_low, dirty_high;   // atlas rows written since the last upload
    u32 texture;                 // the GL texture of the atlas; 0 until the renderer makes it
    data_t colour_atlas;         // four bytes a pixel (red, green, blue, alpha), bottom row first: colour glyphs
    u32 colour_dirty_low, colour_dirty_high;
    u32 colour_texture;
};

struct font_metrics_t {
    u32 index;
    f32 line_height;
    f32 descent;
};

// The start list is at most this long; glyphs beyond it come on demand.
constexpr u32 font_max_code_points = 1023;
constexpr u32 font_glyph_none = 0xFFFFFFFF;
constexpr u32 font_atlas_size = 2048; // the atlas is square
constexpr u32 font_colour_atlas_size = 512; // square too: colour glyphs (emoji) on demand

void font_set_add(font_set_t *font_set, const data_t *font_file, f32 size, u32 *code_points, u32 count,
                  bool monospaced);
// Packs the start glyphs of every font and opens the faces for glyphs on
// demand. Called once, after the fonts are added.
void font_set_build(font_set_t *font_set);
font_t *font_get(font_set_t *font_set, u32 index);
// Index of the code point in the font's start list, font_glyph_none if absent.
u32 font_glyph_index(const font_t *font, u32 code_point);
// The advance of a glyph on demand, for a code point known not to be in
// the start list: the measuring's hot path.
f32 font_advance_on_demand(const font_t *font, u32 code_point);
// The glyph for measuring: a start glyph, or one found on demand (its
// advance is the face's; it has no kerning and no bearing shift). Never null:
// a character no installed face has gets the primary face's box glyph.
const glyph_t *font_glyph(const font_t *font, u32 code_point);
// The glyph for drawing: as font_glyph, with its box in the atlas made if it
// had none. A glyph the full atlas could not take has an empty box, and
// font_set_atlas_overflowed tells; font_set_atlas_evict then forgets every
// glyph on demand so that the frame can place its own again.
const glyph_t *font_glyph_drawn(const font_t *font, u32 code_point);
bool font_set_atlas_overflowed(const font_set_t *font_set);
void font_set_atlas_evict(font_set_t *font_set);
// Forgets every character, shaped run and glyph on demand (the faces stay
// open): the store as it is at start-up.
void font_set_forget(font_set_t *font_set);
// Figures of the store, for tests, benchmarks and the log.
struct font_store_stats_t {
    u32 faces;          // faces open, primary and fallback
    u32 characters;     // characters in the map
    u32 glyphs;         // glyphs with a box in the atlas
    u32 evictions;      // times the atlas was emptied
    u64 memory;         // bytes the store holds (tables, atlas, FreeType's heap), not the font files
};
font_store_stats_t font_set_store_stats(const font_set_t *font_set);
i32 font_kerning(const font_t *font, const glyph_t *glyph, u32 next_code_point);
f32 font_line_height(const font_t *font, bool with_gap);
f32 font_descent(const font_t *font);
font_metrics_t font_metrics(font_set_t *font_set, u32 index);

// ---- runs of shaped text ----------------------------------------------------------------------
// A run is a stretch of characters that only look right shaped together:
// Arabic and Hebrew letters, the Indic and South-East Asian scripts, with
// the marks that follow them, all of one script and at most
// font_run_max_code_points long. Layout and drawing cut runs the same way.
constexpr u32 font_run_max_code_points = 48;

// Letters of the scripts that need shaping: only these start a run.
inline bool font_may_start_run(u32 c) {
    return (c >= 0x0590 && c <= 0x08FF) || (c >= 0x0900 && c <= 0x0FFF) || (c >= 0x1000 && c <= 0x109F) ||
           (c >= 0x1780 && c <= 0x17FF) || (c >= 0xFB1D && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFE);
}
// The bytes of the run that starts at `text`, 0 when the character there
// doesn't start one.
u64 font_run_length(const font_t *font, const u8 *text, u64 bytes);
// The run's width shaped by HarfBuzz, remembered by its text.
f32 font_run_width(const font_t *font, const u8 *text, u64 bytes);
// Whether the run reads right to left.
bool font_run_is_rtl(const font_t *font, const u8 *text, u64 bytes);

struct font_run_glyph_t {
    const glyph_t *glyph; // with its atlas box
    f32 x, y;             // offset of its pen from the run's start
};
// The run's glyphs in visual order, left to right; returns their count.
u32 font_run_glyphs(const font_t *font, const u8 *text, u64 bytes, font_run_glyph_t *out, u32 capacity);

// ---- direction ---------------------------------------------------------------------------------
// Whether the first strong character of the text (within its first 256
// characters) reads right to left: such a paragraph stands at the right.
bool font_starts_right_to_left(const u8 *text, u64 bytes);
// A character of a right-to-left script (Hebrew, Arabic and their kin).
bool font_is_right_to_left(u32 code_point);
// The embedding levels of a paragraph's characters by the Unicode
// Bidirectional Algorithm (FriBidi), the paragraph's direction taken from its
// first strong character. Returns the paragraph's level (0 or 1).
u8 font_bidi_levels(const u32 *code_points, u32 count, u8 *levels);
// The visual order of items with these levels (rule L2): order[k] is the
// logical index of the k-th item from the left.
void font_bidi_reorder(const u8 *levels, u32 count, u32 *order);

// ---- finding and loading the application's fonts ----------------------------------------
// Reads the file of a family whole into a block of its own, kept for the life
// of the program. A family that isn't installed gives way to `stand_in` (named
// as well, so that installing more fonts never changes it), and then to any
// face of the kind; said on log channel 1. Returns an empty data_t when no
// font exists.
data_t font_file_load(const char *family, const char *stand_in, bool monospace);
// The application's two files: Verdana, else DejaVu Sans; Lucida Console,
// else DejaVu Sans Mono.
data_t font_file_load_sans();
data_t font_file_load_mono();

// The application's set: the sans face at 14, 16, 20 and the monospace face
// at 12 (monospaced), from the given files, over the start list.
void font_set_create_application(font_set_t *font_set, data_t font_memory, const data_t *sans_file,
                                 const data_t *mono_file);
