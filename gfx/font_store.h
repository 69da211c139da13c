// font_store.h - inside the font set: the faces (FreeType), the map from a
// font's characters to a face and glyph, the store of rasterised glyphs and
// the part of the atlas they fill. Only fonts.cpp and the renderer use it.
#pragma once

#include "gfx/fonts.h"

// Opens the primary face of every font of the set and makes the atlas.
void font_store_create(font_set_t *font_set);
// Copies the packed start glyphs to the bottom left of the atlas.
void font_store_place_start_glyphs(font_set_t *font_set, const u8 *pixels, u32 width, u32 height);
// A character beyond the start list: its glyph, with an atlas box when
// `drawn`.
const glyph_t *font_store_glyph(const font_t *font, u32 code_point, bool drawn);
// The advance of such a character, from a small table per font.
f32 font_store_advance(const font_t *font, u32 code_point);
// Called once a frame by the renderer after the text is drawn: characters
// whose face search was put off in this frame are looked for again.
void font_store_frame_end(font_set_t *font_set);

