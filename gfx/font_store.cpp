// font_store.cpp - glyphs beyond the start list, on FreeType.
//
// A character is looked up in a fixed-size map keyed by (font, code point):
// it names a face and a glyph of that face, and the advance the layout uses.
// The face is the font's own when it has the character, else a fallback
// face: first one already open that has it, else the one fontconfig picks
// for the character and its likely language (asked once per code point and
// remembered). A glyph is rasterised when it is first drawn, into the store
// keyed by (face, size, glyph) and a shelf of the atlas above the start
// glyphs. When the atlas is full the renderer empties the store and the
// frame places its own glyphs again: what was not drawn recently goes.
// Nothing here has a limit that stops the program; full tables forget.
//
// Thai has no spaces between words: a Thai run ends where libthai's
// dictionary says the word ends, so that lines break between words.
//
// Runs of complex scripts are shaped by HarfBuzz; their widths are
// remembered by their text, so that measuring a long article again is a
// table read per word.
//
// FreeType takes the program's memory through its FT_Memory: a small
// allocator of power-of-two classes over one block of this store. HarfBuzz
// and fontconfig take no allocator and use the C heap: HarfBuzz for one
// buffer and a font record per face, kept for the life of the program;
// libthai for its dictionary, loaded once.
#include "gfx/font_store.h"

#include "base/files.h"
#include "base/log.h"
#include "gfx/image.h"
#include "os/os_fonts.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_MODULE_H
#include FT_SIZES_H
#include FT_ADVANCES_H

#include <fribidi.h>
#include <hb.h>
#include <thai/thbrk.h>
#include <thai/thwbrk.h>

namespace {

constexpr u32 font_store_max_faces = 32;
constexpr u32 font_store_max_fonts = 8;
constexpr u32 font_store_char_capacity = 1u << 17;  // characters of all fonts
constexpr u32 font_store_glyph_capacity = 1u << 16; // rasterised glyphs
constexpr u32 font_store_run_capacity = 1u << 17;   // widths of shaped runs
constexpr u32 font_store_advance_slots = 1u << 13;  // a font's recent advances, by code point
constexpr u64 font_store_heap_size = 0x4000000;     // FreeType's memory: 64 MB of address space
constexpr u32 font_store_searches_per_frame = 64;   // fontconfig questions a frame may ask
constexpr u16 font_face_none = 0xFFFF;
constexpr u32 font_any = font_store_max_fonts;      // the map's key for "which face has it"

// ---- FreeType's memory ---------------------------------------------------------------------
// Blocks of 2^k bytes with a 16-byte head holding k; freed blocks wait on a
// list per class. Memory is bounded by twice what FreeType holds at its peak.
struct font_heap_t {
    data_t block;
    void *free_lists[48];
    u64 in_use;
};

void *font_heap_alloc(font_heap_t *heap, u64 size) {
    u32 k = 5;
    while (((u64)1 << k) < size + 16) ++k;
    u8 *p = (u8 *)heap->free_lists[k];
    if (p) heap->free_lists[k] = *(void **)(p + 16);
    else p = (u8 *)data_push(&heap->block, (u64)1 << k, 8);
    if (!p) return nullptr;
    *(u64 *)p = k;
    heap->in_use += (u64)1 << k;
    return p + 16;
}

void font_heap_free(font_heap_t *heap, void *pointer) {
    if (!pointer) return;
    u8 *p = (u8 *)pointer - 16;
    u64 k = *(u64 *)p;
    *(void **)(p + 16) = heap->free_lists[k];
    heap->free_lists[k] = p;
    heap->in_use -= (u64)1 << k;
}

void *font_ft_alloc(FT_Memory memory, long size) { return font_heap_alloc((font_heap_t *)memory->user, (u64)size); }
void font_ft_free(FT_Memory memory, void *block) { font_heap_free((font_heap_t *)memory->user, block); }
void *font_ft_realloc(FT_Memory memory, long current, long size, void *block) {
    font_heap_t *heap = (font_heap_t *)memory->user;
    if (block && ((u64)1 << *(u64 *)((u8 *)block - 16)) >= (u64)size + 16) return block;
    void *fresh = font_heap_alloc(heap, (u64)size);
    if (fresh && block) memory_copy(fresh, block, (u64)(current < size ? current : size));
    if (fresh) font_heap_free(heap, block);
    return fresh;
}

// ---- records ----------------------------------------------------------------------------------
struct font_face_t {
    FT_Face face;
    data_t file;
    hb_font_t *shaper; // made on the first run shaped in this face
    FT_Size sizes[font_store_max_fonts]; // made when the face is first drawn at a font's size
    u64 path_hash;
    u32 face_index;
    u32 bitmap_only; // colour bitmaps at fixed sizes (an emoji face): scaled down when drawn
};

struct font_char_t {
    u32 key; // (font << 21 | code point) + 1; 0 is empty
    u16 face;
    u16 provisional; // the face search was put off: look again in a later frame
    u32 glyph_index;
    glyph_t glyph;   // advance only
};

struct font_glyph_slot_t {
    u64 key; // (face << 40 | font << 32 | glyph) + 1; 0 is empty
    glyph_t glyph;
};

// The measuring's hot path: a small table per font, indexed by the code
// point's low bits, so that a long article touches few pages.
struct font_advance_slot_t {
    u32 code_point; // + 1; 0 is empty
    f32 advance;
};

struct font_run_slot_t {
    u64 key; // a hash of the font and the run's bytes; 0 is empty
    f32 width;
};

} // namespace

// The free part of an atlas: glyphs fill shelves from the bottom up.
struct font_shelf_t {
    u32 x, y, height;
};

struct font_store_t {
    font_heap_t heap;
    FT_MemoryRec_ memory;
    FT_Library library;
    font_face_t faces[font_store_max_faces];
    u32 face_count;
    u16 primary[font_store_max_fonts];
    f32 em[font_store_max_fonts]; // the em of each font in pixels: fallback faces share it
    font_char_t *chars;
    u32 char_count;
    font_glyph_slot_t *glyphs;
    u32 glyph_count;
    font_shelf_t shelf;        // of the grey atlas
    font_shelf_t colour_shelf; // of the colour atlas
    u32 overflowed;
    u32 evictions;
    u32 searches; // fontconfig questions in this frame
    u32 frame;
    font_run_slot_t *runs;
    u32 run_count;
    font_advance_slot_t *advances; // font_store_max_fonts tables
    hb_buffer_t *buffer;
};

namespace {

u64 font_hash(u64 key) {
    key ^= key >> 33;
    key *= 0xff51afd7ed558ccdull;
    key ^= key >> 33;
    return key;
}

// Open addressing with linear probing.
font_char_t *font_char_find(font_store_t *store, u32 key, bool *fresh) {
    *fresh = false;
    u32 mask = font_store_char_capacity - 1;
    for (u32 i = (u32)font_hash(key) & mask;; i = (i + 1) & mask) {
        font_char_t *c = &store->chars[i];
        if (c->key == key) return c;
        if (c->key == 0) {
            c->key = key;
            ++store->char_count;
            *fresh = true;
            return c;
        }
    }
}

font_glyph_slot_t *font_glyph_slot_find(font_store_t *store, u64 key, bool insert) {
    u32 mask = font_store_glyph_capacity - 1;
    for (u32 i = (u32)font_hash(key) & mask;; i = (i + 1) & mask) {
        font_glyph_slot_t *g = &store->glyphs[i];
        if (g->key == key) return g;
        if (g->key == 0) {
            if (!insert) return nullptr;
            g->key = key;
            ++store->glyph_count;
            return g;
        }
    }
}

u64 font_path_hash(const char *path, u64 length) {
    u64 h = 1469598103934665603ull;
    for (u64 i = 0; i < length; ++i) h = (h ^ (u8)path[i]) * 1099511628211ull;
    return h;
}

u16 font_face_open(font_store_t *store, const data_t *file, u64 path_hash, u32 face_index) {
    if (store->face_count >= font_store_max_faces || !file->bytes) return font_face_none;
    font_face_t *f = &store->faces[store->face_count];
    *f = font_face_t{};
    if (FT_New_Memory_Face(store->library, file->bytes, (FT_Long)file->used, (FT_Long)face_index, &f->face)) {
        f->face = nullptr;
        return font_face_none;
    }
    f->path_hash = path_hash;
    f->face_index = face_index;
    f->file = *file;
    f->bitmap_only = !FT_IS_SCALABLE(f->face) && f->face->num_fixed_sizes > 0;
    return (u16)store->face_count++;
}

// A guess at the language of a character, so that fontconfig prefers the
// face made for it (Noto Sans CJK has a face per language in one file).
const char *font_language_of(u32 c) {
    if (c >= 0x0590 && c <= 0x05FF) return "he";
    if ((c >= 0x0600 && c <= 0x06FF) || (c >= 0x0750 && c <= 0x077F) || (c >= 0x08A0 && c <= 0x08FF) ||
        (c >= 0xFB50 && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFF))
        return "ar";
    if (c >= 0x0900 && c <= 0x097F) return "hi";
    if (c >= 0x0980 && c <= 0x09FF) return "bn";
    if (c >= 0x0E00 && c <= 0x0E7F) return "th";
    if (c >= 0x3040 && c <= 0x30FF) return "ja";
    if ((c >= 0xAC00 && c <= 0xD7AF) || (c >= 0x1100 && c <= 0x11FF) || (c >= 0x3130 && c <= 0x318F)) return "ko";
    if ((c >= 0x2E80 && c <= 0x2FDF) || (c >= 0x3000 && c <= 0x303F) || (c >= 0x3400 && c <= 0x4DBF) ||
        (c >= 0x4E00 && c <= 0x9FFF) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFF00 && c <= 0xFFEF) ||
        (c >= 0x20000 && c <= 0x3FFFF))
        return "zh-cn";
    if ((c >= 0x1F000 && c <= 0x1FAFF) || (c >= 0x2600 && c <= 0x27BF)) return "und-zsye";
    return nullptr;
}

// Characters no face is asked for: controls, surrogates, private use,
// non-characters and what lies beyond Unicode. They draw the box.
bool font_never_searched(u32 c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0xD800 && c <= 0xDFFF) || (c >= 0xE000 && c <= 0xF8FF) ||
           (c >= 0xFDD0 && c <= 0xFDEF) || (c & 0xFFFE) == 0xFFFE || c >= 0xF0000;
}

// The face that has the character, for any font: open faces first, then
// fontconfig. font_face_none when nothing has it (or the search is put off:
// *provisional).
// The pictographs shown as emoji by default: drawn from a colour face where
// one is installed, even when the primary face has a plain glyph for them.
bool font_prefers_colour(u32 c) { return c >= 0x1F000 && c <= 0x1FAFF; }

u16 font_face_search(font_store_t *store, u32 code_point, bool *provisional) {
    *provisional = false;
    const bool colour = font_prefers_colour(code_point);
    for (u32 f = 0; colour && f < store->face_count; ++f)
        if (FT_HAS_COLOR(store->faces[f].face) && FT_Get_Char_Index(store->faces[f].face, code_point)) return (u16)f;
    for (u32 f = 0; !colour && f < store->face_count; ++f)
        if (FT_Get_Char_Index(store->faces[f].face, code_point)) return (u16)f;
    if (font_never_searched(code_point)) return font_face_none;
    if (store->searches >= font_store_searches_per_frame) {
        *provisional = true;
        return font_face_none;
    }
    ++store->searches;
    char path[4096];
    u32 face_index = 0;
    u64 length = os_font_find_for_code_point(code_point, font_language_of(code_point), path, sizeof(path), &face_index);
    if (length == 0) return font_face_none;
    u64 hash = font_path_hash(path, length);
    for (u32 f = 0; f < store->face_count; ++f)
        if (store->faces[f].path_hash == hash && store->faces[f].face_index == face_index)
            return colour && FT_Get_Char_Index(store->faces[f].face, code_point) ? (u16)f : font_face_none;
    if (store->face_count >= font_store_max_faces) return font_face_none;
    u32 error = 0;
    data_t file_path = data_t{length + 1, length, (u8 *)path};
    data_t file = {};
    file_read_all(&file, &file_path, false, &error); // kept for the life of the program, as the face needs it
    if (error) return font_face_none;
    u16 face = font_face_open(store, &file, hash, face_index);
    if (face == font_face_none || !FT_Get_Char_Index(store->faces[face].face, code_point)) return font_face_none;
    log_string(log_graphics, "Fallback face for U+");
    log_number(log_graphics, code_point, 4, '0', 1);
    log_string(log_graphics, ": ");
    log_string(log_graphics, path);
    log_string(log_graphics, "\n");
    return face;
}

bool font_face_size(font_store_t *store, u32 face, u32 font);

f32 font_advance(font_store_t *store, u32 face, u32 font, u32 glyph) {
    FT_Face f = store->faces[face].face;
    FT_Fixed units = 0;
    if (store->faces[face].bitmap_only) {
        // A face of bitmaps has no unscaled advances: its strike's, scaled
        // to the em like the bitmaps.
        if (!font_face_size(store, face, font) || FT_Get_Advance(f, glyph, FT_LOAD_COLOR, &units) ||
            !f->size->metrics.y_ppem)
            return store->em[font];
        return (f32)units / 65536.0f * store->em[font] / (f32)f->size->metrics.y_ppem;
    }
    if (!f->units_per_EM || FT_Get_Advance(f, glyph, FT_LOAD_NO_SCALE, &units)) return store->em[font] * 0.5f;
    return (f32)units * store->em[font] / (f32)f->units_per_EM;
}

// The map's record for a character of a font beyond the start list.
const font_char_t *font_char(font_store_t *store, u32 font, u32 code_point) {
    // A map past three quarters is emptied whole: everything in it can be
    // found again. (Here, before the two records a call may add.)
    if (store->char_count >= font_store_char_capacity / 4 * 3) {
        memory_zero(store->chars, (u64)font_store_char_capacity * sizeof(font_char_t));
        store->char_count = 0;
    }
    bool fresh = false;
    font_char_t *c = font_char_find(store, ((font << 21) | (code_point & 0x1FFFFF)) + 1, &fresh);
    if (!fresh && !(c->provisional && c->provisional != (u16)(store->frame + 1))) return c;
    u16 face = store->primary[font];
    u32 glyph = face != font_face_none ? FT_Get_Char_Index(store->faces[face].face, code_point) : 0;
    bool provisional = false;
    if (!glyph || font_prefers_colour(code_point)) {
        // Which face has it is the same for every font: asked once.
        bool fresh_any = false;
        font_char_t *any = font_char_find(store, ((font_any << 21) | (code_point & 0x1FFFFF)) + 1, &fresh_any);
        if (fresh_any || (any->provisional && any->provisional != (u16)(store->frame + 1))) {
            any->face = font_face_search(store, code_point, &provisional);
            any->provisional = provisional ? (u16)(store->frame + 1) : 0;
        }
        provisional = any->provisional != 0;
        if (any->face != font_face_none) {
            face = any->face;
            glyph = FT_Get_Char_Index(store->faces[face].face, code_point);
        }
    }
    c->face = face;
    c->glyph_index = glyph; // 0 in the primary face: its box
    c->provisional = provisional ? (u16)(store->frame + 1) : 0;
    c->glyph = glyph_t{};
    if (face != font_face_none) c->glyph.advance = font_advance(store, face, font, glyph);
    return c;
}

// The face's FT_Size for a font, made on first use.
bool font_face_size(font_store_t *store, u32 face, u32 font) {
    font_face_t *f = &store->faces[face];
    if (!f->sizes[font]) {
        if (FT_New_Size(f->face, &f->sizes[font])) return false;
        FT_Activate_Size(f->sizes[font]);
        if (f->bitmap_only) FT_Select_Size(f->face, 0);
        else FT_Set_Char_Size(f->face, 0, (FT_F26Dot6)(store->em[font] * 64.0f + 0.5f), 72, 72);
    }
    return FT_Activate_Size(f->sizes[font]) == 0;
}

// A free box of an atlas `size` pixels a side, w by h, on the current shelf
// or a new one.
bool font_atlas_take(font_shelf_t *shelf, u32 size, u32 w, u32 h, u32 *x, u32 *y) {
    if (shelf->x + w + 1 > size) {
        shelf->y += shelf->height;
        shelf->x = 0;
        shelf->height = 0;
    }
    if (shelf->y + h + 1 > size || w + 1 > size) return false;
    *x = shelf->x;
    *y = shelf->y;
    shelf->x += w + 1;
    if (h + 1 > shelf->height) shelf->height = h + 1;
    return true;
}

// Copies a colour bitmap (premultiplied blue, green, red, alpha; top row
// first) into the colour atlas as straight red, green, blue, alpha, bottom
// row first, the way the text shader blends it.
void font_colour_copy(font_set_t *set, const u8 *pixels, u32 w, u32 h, u32 x, u32 y) {
    for (u32 r = 0; r < h; ++r) {
        u8 *row = set->colour_atlas.bytes + ((u64)(y + h - 1 - r) * font_colour_atlas_size + x) * 4;
        for (u32 i = 0; i < w; ++i) {
            const u8 *p = &pixels[((u64)r * w + i) * 4];
            u32 a = p[3];
            for (u32 k = 0; k < 3; ++k) {
                u32 c = a ? (p[2 - k] * 255u + a / 2) / a : 0;
                row[i * 4 + k] = (u8)(c > 255 ? 255 : c);
            }
            row[i * 4 + 3] = (u8)a;
        }
    }
    if (y < set->colour_dirty_low) set->colour_dirty_low = y;
    if (y + h > set->colour_dirty_high) set->colour_dirty_high = y + h;
}

// Rasterises a glyph into the atlas. Colour bitmaps are scaled to the font's
// em and go to the colour atlas.
bool font_rasterise(font_set_t *set, u32 face, u32 font, u32 glyph, glyph_t *out) {
    font_store_t *store = set->store;
    font_face_t *f = &store->faces[face];
    if (!font_face_size(store, face, font)) return false;
    FT_Int32 flags = FT_LOAD_NO_HINTING | FT_LOAD_RENDER | (f->bitmap_only ? FT_LOAD_COLOR : 0);
    if (FT_Load_Glyph(f->face, glyph, flags)) return false;
    FT_GlyphSlot slot = f->face->glyph;
    const FT_Bitmap *b = &slot->bitmap;
    u32 w = b->width, h = b->rows;
    f32 scale = 1.0f;
    u8 *scaled = nullptr;
    if (b->pixel_mode == FT_PIXEL_MODE_BGRA && w && h) {
        // A colour strike: scaled to the em.
        scale = store->em[font] / (f32)(f->face->size->metrics.y_ppem ? f->face->size->metrics.y_ppem : 1);
        u32 width = (u32)((f32)w * scale + 0.5f), height = 0, error = 0;
        if (width == 0) width = 1;
        image_resize(nullptr, w, h, nullptr, &width, &height, 4, false, 1.0f, &error);
        scaled = (u8 *)font_heap_alloc(&store->heap, (u64)width * height * 4 + 4);
        if (!scaled || error) {
            font_heap_free(&store->heap, scaled);
            return false;
        }
        // FreeType's rows are top first; image_resize keeps the order.
        image_resize(b->buffer, w, h, scaled, &width, &height, 4, false, 1.0f, &error);
        w = width;
        h = height;
    } else if (b->pixel_mode != FT_PIXEL_MODE_GRAY && w && h) {
        return false;
    }
    u32 x = 0, y = 0;
    bool taken = scaled ? font_atlas_take(&store->colour_shelf, font_colour_atlas_size, w, h, &x, &y)
                        : font_atlas_take(&store->shelf, font_atlas_size, w, h, &x, &y);
    if (w && h && !taken) {
        font_heap_free(&store->heap, scaled);
        store->overflowed = 1;
        return false;
    }
    out->colour = scaled ? 1 : 0;
    if (scaled) {
        font_colour_copy(set, scaled, w, h, x, y);
    } else {
        for (u32 r = 0; r < h; ++r)
            memory_copy(set->atlas.bytes + (u64)(y + h - 1 - r) * font_atlas_size + x, b->buffer + (i64)r * b->pitch, w);
    }
    font_heap_free(&store->heap, scaled);
    if (h && !scaled) {
        if (y < set->dirty_low) set->dirty_low = y;
        if (y + h > set->dirty_high) set->dirty_high = y + h;
    }
    out->x0 = (u16)x;
    out->y0 = (u16)y;
    out->x1 = (u16)(x + w);
    out->y1 = (u16)(y + h);
    out->left = (f32)slot->bitmap_left * scale;
    out->top = (f32)slot->bitmap_top * scale;
    out->bottom = out->top - (f32)h;
    out->right = out->left + (f32)w;
    return true;
}

} // namespace

void font_store_create(font_set_t *set) {
    u64 chars = (u64)font_store_char_capacity * sizeof(font_char_t);
    u64 glyphs = (u64)font_store_glyph_capacity * sizeof(font_glyph_slot_t);
    u64 runs = (u64)font_store_run_capacity * sizeof(font_run_slot_t);
    u64 advances = (u64)font_store_max_fonts * font_store_advance_slots * sizeof(font_advance_slot_t);
    u64 atlas = (u64)font_atlas_size * font_atlas_size;
    u64 colour = (u64)font_colour_atlas_size * font_colour_atlas_size * 4;
    data_t block = data_virtual_alloc(
        sizeof(font_store_t) + chars + glyphs + runs + advances + atlas + colour + font_store_heap_size + 512, 0);
    assert_message(block.bytes, "No memory for the glyph store.");
    font_store_t *store = (font_store_t *)data_push(&block, sizeof(font_store_t), 8);
    memory_zero(store, sizeof(*store));
    store->chars = (font_char_t *)data_push(&block, chars, 8);
    store->glyphs = (font_glyph_slot_t *)data_push(&block, glyphs, 8);
    store->runs = (font_run_slot_t *)data_push(&block, runs, 8);
    memory_zero(store->runs, runs);
    store->advances = (font_advance_slot_t *)data_push(&block, advances, 8);
    memory_zero(store->advances, advances);
    set->atlas = data_t{atlas, atlas, (u8 *)data_push(&block, atlas, 8)};
    set->colour_atlas = data_t{colour, colour, (u8 *)data_push(&block, colour, 8)};
    memory_zero(set->colour_atlas.bytes, colour);
    set->colour_dirty_low = 0;
    set->colour_dirty_high = font_colour_atlas_size;
    store->heap.block = data_block_reserve_rest(&block, 16);
    memory_zero(store->chars, chars);
    memory_zero(store->glyphs, glyphs);
    memory_zero(set->atlas.bytes, atlas);
    set->atlas_width = (u16)font_atlas_size;
    set->atlas_height = (u16)font_atlas_size;
    set->store = store;
    set->dirty_low = 0;
    set->dirty_high = font_atlas_size;
    store->memory.user = &store->heap;
    store->memory.alloc = font_ft_alloc;
    store->memory.free = font_ft_free;
    store->memory.realloc = font_ft_realloc;
    if (FT_New_Library(&store->memory, &store->library)) {
        store->library = nullptr;
        log_string(log_graphics, "FreeType could not start: only the start glyphs are drawn.\n");
    } else {
        FT_Add_Default_Modules(store->library);
    }
    for (u32 i = 0; i < font_store_max_fonts; ++i) store->primary[i] = font_face_none;
    for (u32 i = 0; i < set->font_count && i < font_store_max_fonts; ++i) {
        font_t *font = &set->fonts[i];
        u16 face = font_face_none;
        for (u32 k = 0; k < i; ++k)
            if (set->fonts[k].info.data == font->info.data) face = store->primary[k];
        if (face == font_face_none && store->library && font->info.data) {
            // stb_truetype keeps the file's bytes; the whole file is needed.
            data_t file = data_t{font->file_size, font->file_size, (u8 *)font->info.data};
            face = font_face_open(store, &file, (u64)(uintptr_t)font->info.data, 0);
        }
        store->primary[i] = face;
        // The font's em in pixels, so that its own glyphs beyond the start
        // list and those of fallback faces come out at the size of its
        // start glyphs.
        if (face != font_face_none) store->em[i] = font->scale * (f32)store->faces[face].face->units_per_EM;
        else store->em[i] = font->size;
    }
}

void font_store_place_start_glyphs(font_set_t *set, const u8 *pixels, u32 width, u32 height) {
    assert_message(width <= font_atlas_size && height <= font_atlas_size / 2, "The start glyphs fill the atlas.");
    for (u32 r = 0; r < height; ++r)
        memory_copy(set->atlas.bytes + (u64)r * font_atlas_size, pixels + (u64)r * width, width);
    set->static_height = height;
    set->store->shelf.y = height;
    set->dirty_low = 0;
    set->dirty_high = font_atlas_size;
}

namespace {

// A glyph of a face at a font's size with its atlas box, rasterised on
// first use; `fallback` (without a box) when the atlas can't take it.
const glyph_t *font_glyph_placed(font_set_t *set, u32 face, u32 font, u32 glyph, const glyph_t *fallback) {
    font_store_t *store = set->store;
    u64 key = (((u64)face << 40) | ((u64)font << 32) | glyph) + 1;
    font_glyph_slot_t *slot = font_glyph_slot_find(store, key, false);
    if (slot) return &slot->glyph;
    if (store->overflowed) return fallback;
    if (store->glyph_count >= font_store_glyph_capacity / 4 * 3) {
        store->overflowed = 1;
        return fallback;
    }
    glyph_t g = *fallback;
    if (!font_rasterise(set, face, font, glyph, &g)) return fallback;
    slot = font_glyph_slot_find(store, key, true);
    slot->glyph = g;
    return &slot->glyph;
}

font_store_t *font_store_of(const font_t *font) {
    font_store_t *store = font->set ? font->set->store : nullptr;
    return store && store->library && font->index < font_store_max_fonts ? store : nullptr;
}

} // namespace

f32 font_store_advance(const font_t *font, u32 code_point) {
    font_store_t *store = font_store_of(font);
    if (!store) return 0;
    font_advance_slot_t *slot =
        &store->advances[font->index * font_store_advance_slots + (code_point & (font_store_advance_slots - 1))];
    if (slot->code_point == code_point + 1) return slot->advance;
    const font_char_t *c = font_char(store, font->index, code_point);
    // A character whose face search was put off may get another face later.
    if (!c->provisional) *slot = font_advance_slot_t{code_point + 1, c->glyph.advance};
    return c->glyph.advance;
}

const glyph_t *font_store_glyph(const font_t *font, u32 code_point, bool drawn) {
    font_store_t *store = font_store_of(font);
    if (!store) {
        static glyph_t none = {};
        return &none;
    }
    const font_char_t *c = font_char(store, font->index, code_point);
    if (!drawn || c->face == font_face_none) return &c->glyph;
    return font_glyph_placed(font->set, c->face, font->index, c->glyph_index, &c->glyph);
}

// ---- runs ---------------------------------------------------------------------------------------

namespace {

// The marks that join a run.
bool font_is_joining_mark(u32 c) {
    return (c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
           (c >= 0x200C && c <= 0x200D) || (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE00 && c <= 0xFE0F) ||
           (c >= 0xFE20 && c <= 0xFE2F);
}
// Which script a letter of a run belongs to: a run holds one script.
u32 font_script_group(u32 c) {
    if ((c >= 0x0590 && c <= 0x05FF) || (c >= 0xFB1D && c <= 0xFB4F)) return 1;
    if ((c >= 0x0600 && c <= 0x06FF) || (c >= 0x0750 && c <= 0x077F) || (c >= 0x08A0 && c <= 0x08FF) ||
        (c >= 0xFB50 && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFE))
        return 2;
    return c >> 7;
}

bool font_is_rtl(u32 c) { return (c >= 0x0590 && c <= 0x08FF) || (c >= 0xFB1D && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFE); }

u32 font_decode(const u8 *p, const u8 *end, u32 *size) {
    if (*p < 0x80) {
        *size = 1;
        return *p;
    }
    u32 code_point = 0, error = 0;
    u8 n = 0;
    utf8_decode(p, end, &code_point, &n, &error);
    *size = error ? 1 : n;
    return error ? code_point_replacement : code_point;
}

hb_font_t *font_shaper(font_store_t *store, u32 face) {
    font_face_t *f = &store->faces[face];
    if (!f->shaper) {
        hb_blob_t *blob = hb_blob_create((const char *)f->file.bytes, (unsigned)f->file.used, HB_MEMORY_MODE_READONLY,
                                         nullptr, nullptr);
        hb_face_t *hb_face = hb_face_create(blob, f->face_index);
        f->shaper = hb_font_create(hb_face);
        hb_face_destroy(hb_face);
        hb_blob_destroy(blob);
        int upem = (int)(f->face->units_per_EM ? f->face->units_per_EM : 1000);
        hb_font_set_scale(f->shaper, upem, upem);
    }
    return f->shaper;
}

// Shapes the run in its face; the buffer holds the result in visual order.
u32 font_shape(font_store_t *store, u32 font, const u8 *text, u64 bytes, u32 *face) {
    u32 size = 1;
    u32 first = font_decode(text, text + bytes, &size);
    const font_char_t *c = font_char(store, font, first);
    *face = c->face;
    if (c->face == font_face_none) return 0;
    if (!store->buffer) store->buffer = hb_buffer_create();
    hb_buffer_clear_contents(store->buffer);
    hb_buffer_add_utf8(store->buffer, (const char *)text, (int)bytes, 0, (int)bytes);
    hb_buffer_guess_segment_properties(store->buffer);
    hb_shape(font_shaper(store, c->face), store->buffer, nullptr, 0);
    return hb_buffer_get_length(store->buffer);
}

} // namespace

u64 font_run_length(const font_t *font, const u8 *text, u64 bytes) {
    font_store_t *store = font_store_of(font);
    if (!store || bytes == 0) return 0;
    const u8 *end = text + bytes;
    u32 size = 1;
    u32 first = font_decode(text, end, &size);
    if (!font_may_start_run(first)) return 0;
    if (font_char(store, font->index, first)->face == font_face_none) return 0;
    const u32 group = font_script_group(first);
    u64 at = size;
    u32 n = 1;
    wchar_t thai[font_run_max_code_points + 1]; // zero-terminated for libthai
    u32 offsets[font_run_max_code_points + 1] = {0};
    thai[0] = (wchar_t)first;
    for (; at < bytes && n < font_run_max_code_points; ++n) {
        u32 c = font_decode(text + at, end, &size);
        if (!font_is_joining_mark(c) && (!font_may_start_run(c) || font_script_group(c) != group)) break;
        offsets[n] = (u32)at;
        thai[n] = (wchar_t)c;
        at += size;
    }
    offsets[n] = (u32)at;
    thai[n] = 0;
    if (first >= 0x0E00 && first <= 0x0E7F && n > 1) {
        static ThBrk *breaker = th_brk_new(nullptr);
        int breaks[font_run_max_code_points];
        int found = breaker ? th_brk_wc_find_breaks(breaker, (const thwchar_t *)thai, breaks, n) : 0;
        // The first word ends at the first break (a break at the run's end
        // is not reported; the run then ends where it ends).
        if (found > 0 && breaks[0] > 0 && (u32)breaks[0] < n) return offsets[breaks[0]];
    }
    return at;
}

bool font_run_is_rtl(const font_t *font, const u8 *text, u64 bytes) {
    u32 size = 1;
    return bytes && font_is_rtl(font_decode(text, text + bytes, &size));
}

f32 font_run_width(const font_t *font, const u8 *text, u64 bytes) {
    font_store_t *store = font_store_of(font);
    if (!store) return 0;
    u64 key = 1469598103934665603ull ^ (u64)font->index;
    for (u64 i = 0; i < bytes; ++i) key = (key ^ text[i]) * 1099511628211ull;
    key = font_hash(key) | 1;
    if (store->run_count >= font_store_run_capacity / 4 * 3) {
        memory_zero(store->runs, (u64)font_store_run_capacity * sizeof(font_run_slot_t));
        store->run_count = 0;
    }
    u32 mask = font_store_run_capacity - 1, i = (u32)key & mask;
    for (; store->runs[i].key; i = (i + 1) & mask)
        if (store->runs[i].key == key) return store->runs[i].width;
    u32 face = 0;
    u32 count = font_shape(store, font->index, text, bytes, &face);
    f32 width = 0;
    if (count) {
        const hb_glyph_position_t *positions = hb_buffer_get_glyph_positions(store->buffer, nullptr);
        f32 scale = store->em[font->index] / (f32)(store->faces[face].face->units_per_EM ? store->faces[face].face->units_per_EM : 1000);
        for (u32 g = 0; g < count; ++g) width += (f32)positions[g].x_advance * scale;
    }
    store->runs[i] = font_run_slot_t{key, width};
    ++store->run_count;
    return width;
}

u32 font_run_glyphs(const font_t *font, const u8 *text, u64 bytes, font_run_glyph_t *out, u32 capacity) {
    font_store_t *store = font_store_of(font);
    if (!store) return 0;
    u32 face = 0;
    u32 count = font_shape(store, font->index, text, bytes, &face);
    const hb_glyph_info_t *infos = hb_buffer_get_glyph_infos(store->buffer, nullptr);
    const hb_glyph_position_t *positions = hb_buffer_get_glyph_positions(store->buffer, nullptr);
    f32 scale = store->em[font->index] / (f32)(store->faces[face].face->units_per_EM ? store->faces[face].face->units_per_EM : 1000);
    f32 pen = 0;
    u32 n = 0;
    static const glyph_t none = {};
    for (u32 g = 0; g < count && n < capacity; ++g) {
        out[n].glyph = font_glyph_placed(font->set, face, font->index, infos[g].codepoint, &none);
        out[n].x = pen + (f32)positions[g].x_offset * scale;
        out[n].y = (f32)positions[g].y_offset * scale;
        pen += (f32)positions[g].x_advance * scale;
        ++n;
    }
    return n;
}

void font_store_frame_end(font_set_t *set) {
    if (!set->store) return;
    set->store->searches = 0;
    ++set->store->frame;
}

bool font_set_atlas_overflowed(const font_set_t *set) { return set->store && set->store->overflowed; }

void font_set_atlas_evict(font_set_t *set) {
    font_store_t *store = set->store;
    if (!store) return;
    memory_zero(store->glyphs, (u64)font_store_glyph_capacity * sizeof(font_glyph_slot_t));
    store->glyph_count = 0;
    store->overflowed = 0;
    store->shelf = font_shelf_t{0, set->static_height, 0};
    store->colour_shelf = font_shelf_t{};
    memory_zero(set->atlas.bytes + (u64)set->static_height * font_atlas_size,
                (u64)(font_atlas_size - set->static_height) * font_atlas_size);
    set->dirty_low = set->static_height;
    set->dirty_high = font_atlas_size;
    ++store->evictions;
}

void font_set_forget(font_set_t *set) {
    font_store_t *store = set->store;
    if (!store) return;
    font_set_atlas_evict(set);
    --store->evictions;
    memory_zero(store->chars, (u64)font_store_char_capacity * sizeof(font_char_t));
    memory_zero(store->runs, (u64)font_store_run_capacity * sizeof(font_run_slot_t));
    memory_zero(store->advances, (u64)font_store_max_fonts * font_store_advance_slots * sizeof(font_advance_slot_t));
    store->char_count = 0;
    store->run_count = 0;
}

font_store_stats_t font_set_store_stats(const font_set_t *set) {
    font_store_stats_t s = {};
    if (!set->store) return s;
    s.faces = set->store->face_count;
    s.characters = set->store->char_count;
    s.glyphs = set->store->glyph_count;
    s.evictions = set->store->evictions;
    s.memory = sizeof(font_store_t) + (u64)font_store_char_capacity * sizeof(font_char_t) +
               (u64)font_store_glyph_capacity * sizeof(font_glyph_slot_t) +
               (u64)font_store_run_capacity * sizeof(font_run_slot_t) +
               (u64)font_store_max_fonts * font_store_advance_slots * sizeof(font_advance_slot_t) +
               (u64)font_atlas_size * font_atlas_size + (u64)font_colour_atlas_size * font_colour_atlas_size * 4 +
               set->store->heap.block.used;
    return s;
}

// ---- direction ----------------------------------------------------------------------------------
// FriBidi takes no allocator: it allocates a little from the C heap for the
// runs of each call and frees it before returning.

bool font_is_right_to_left(u32 code_point) { return font_is_rtl(code_point); }

bool font_starts_right_to_left(const u8 *text, u64 bytes) {
    const u8 *end = text + bytes;
    for (u32 n = 0; text < end && n < 256; ++n) {
        u32 size = 1;
        u32 c = font_decode(text, end, &size);
        text += size;
        if (c < 0x80 && !((c | 0x20) >= 'a' && (c | 0x20) <= 'z')) continue; // ASCII other than letters: weak
        FriBidiCharType type = fribidi_get_bidi_type(c);
        if (FRIBIDI_IS_STRONG(type)) return FRIBIDI_IS_RTL(type);
    }
    return false;
}

u8 font_bidi_levels(const u32 *code_points, u32 count, u8 *levels) {
    constexpr u32 chunk = 4096;
    static FriBidiCharType types[chunk];
    static FriBidiBracketType brackets[chunk];
    static FriBidiLevel out[chunk];
    if (count > chunk) count = chunk;
    fribidi_get_bidi_types(code_points, (FriBidiStrIndex)count, types);
    fribidi_get_bracket_types(code_points, (FriBidiStrIndex)count, types, brackets);
    FriBidiParType direction = FRIBIDI_PAR_ON;
    if (!fribidi_get_par_embedding_levels_ex(types, brackets, (FriBidiStrIndex)count, &direction, out)) {
        for (u32 i = 0; i < count; ++i) levels[i] = 0;
        return 0;
    }
    for (u32 i = 0; i < count; ++i) levels[i] = (u8)out[i];
    return direction == FRIBIDI_PAR_RTL ? 1 : 0;
}

void font_bidi_reorder(const u8 *levels, u32 count, u32 *order) {
    u8 high = 0, low_odd = 0xFF;
    for (u32 i = 0; i < count; ++i) {
        if (levels[i] > high) high = levels[i];
        if ((levels[i] & 1) && levels[i] < low_odd) low_odd = levels[i];
    }
    if (low_odd == 0xFF) return;
    // From the highest level down to the lowest odd one, each stretch at that
    // level or above turns around.
    for (u32 level = high; level >= low_odd; --level) {
        for (u32 k = 0; k < count;) {
            if (levels[order[k]] < level) {
                ++k;
                continue;
            }
            u32 e = k;
            while (e < count && levels[order[e]] >= level) ++e;
            for (u32 a = k, b = e - 1; a < b; ++a, --b) {
                u32 t = order[a];
                order[a] = order[b];
                order[b] = t;
            }
            k = e;
        }
    }
}
