// fonts.cpp - font records, the start glyphs and their kerning packed by
// stb_truetype, and the glyph store on demand (gfx/font_store.cpp).
#include "gfx/fonts.h"

#include "base/files.h"
#include "base/log.h"
#include "base/profiler.h"
#include "gfx/font_store.h"
#include "os/os_fonts.h"

void font_set_add(font_set_t *font_set, const data_t *font_file, f32 size, u32 *code_points, u32 count,
                  bool monospaced) {
    assert_true(font_file && font_file->bytes);
    assert_true(code_points);
    font_t *font = (font_t *)data_push(&font_set->memory, sizeof(font_t), alignof(font_t));
    assert_message(font, "No memory for a font record.");
    assert_message(!font_set->fonts || font == font_set->fonts + font_set->font_count,
                   "Fonts are added before any build.");
    memory_zero(font, sizeof(*font));
    if (!font_set->fonts) font_set->fonts = font;
    font->set = font_set;
    font->index = font_set->font_count;
    ++font_set->font_count;
    font->code_points = code_points;
    font->count = count;
    font->size = size;
    font->monospaced = monospaced ? 1 : 0;
    font->file_size = font_file->used;
    int offset = stbtt_GetFontOffsetForIndex(font_file->bytes, 0);
    if (offset >= 0 && stbtt_InitFont(&font->info, font_file->bytes, offset)) {
        font->scale = stbtt_ScaleForPixelHeight(&font->info, size);
        int ascent = 0, descent = 0, line_gap = 0;
        stbtt_GetFontVMetrics(&font->info, &ascent, &descent, &line_gap);
        font->ascent = ascent;
        font->descent = descent;
        font->line_gap = line_gap;
    } else {
        // A file the library refuses leaves a font with zero metrics and no glyphs.
        memory_zero(&font->info, sizeof(font->info));
        log_string(log_graphics, "The font file is not a font stb_truetype reads.\n");
    }
}

font_t *font_get(font_set_t *font_set, u32 index) {
    assert_true(index < font_set->font_count);
    return &font_set->fonts[index];
}

static void font_sort_code_points(u32 *list, u32 count) {
    // A plain exchange sort: the list is short and mostly sorted already.
    for (u32 i = 0; i + 1 < count; ++i) {
        for (u32 j = i + 1; j < count; ++j) {
            if (list[j] < list[i]) {
                u32 t = list[i];
                list[i] = list[j];
                list[j] = t;
            }
        }
    }
}

static void font_fill_lookup(font_t *font) {
    // 0xFF marks a code point of the window that isn't in the list.
    for (u8 &d : font->direct) d = 0xFF;
    font->first_code_point = font->count ? font->code_points[0] : 0;
    font->first_searched = 0;
    for (u32 i = 0; i < font->count; ++i) {
        u32 distance = font->code_points[i] - font->first_code_point;
        if (distance >= 256) {
            font->first_searched = i;
            break;
        }
        font->direct[distance] = (u8)i;
    }
}

// Every ordered pair of the font's code points is asked once; the non-zero
// amounts are kept in glyph order. Glyph indices are looked up once per code
// point rather than once per pair, and fonts made from the same file with the
// same list share one table: the pairs come out the same either way.
static void font_read_kerning(font_set_t *font_set, u32 index) {
    font_t *font = &font_set->fonts[index];
    for (u32 k = 0; k < index; ++k) {
        font_t *other = &font_set->fonts[k];
        if (other->info.data && other->info.data == font->info.data && other->code_points == font->code_points &&
            other->count == font->count && other->kerning) {
            font->kerning = other->kerning;
            for (u32 i = 0; i < font->count; ++i) font->glyphs[i].kerning_count = other->glyphs[i].kerning_count;
            return;
        }
    }
    font->kerning = (u32 *)data_push(&font_set->memory, 0, 4);
    if (!font->info.data) return;
    int glyph_indices[1024];
    for (u32 i = 0; i < font->count; ++i) glyph_indices[i] = stbtt_FindGlyphIndex(&font->info, (int)font->code_points[i]);
    // Only fonts with a kerning table or GPOS have pairs at all.
    if (!font->info.kern && !font->info.gpos) return;
    for (u32 i = 0; i < font->count; ++i) {
        u32 pairs = 0;
        for (u32 j = 0; j < font->count; ++j) {
            int amount = stbtt_GetGlyphKernAdvance(&font->info, glyph_indices[i], glyph_indices[j]);
            if (amount == 0) continue;
            u32 *pair = (u32 *)data_push(&font_set->memory, 8, 4);
            assert_message(pair, "No memory for kerning pairs.");
            pair[0] = font->code_points[j];
            pair[1] = (u32)amount;
            ++pairs;
        }
        font->glyphs[i].kerning_count = pairs;
    }
}

static void font_set_pack(font_set_t *font_set) {
    u32 width = 256, height = 256;
    static stbtt_packedchar packed[1024];
    for (;;) {
        u64 mark = font_set->memory.used;
        u8 *pixels = (u8 *)data_push(&font_set->memory, (u64)width * height, 4);
        assert_message(pixels, "No memory for the glyph atlas.");
        stbtt_pack_context context;
        bool fits = stbtt_PackBegin(&context, pixels, (int)width, (int)height, 0, 1, nullptr) != 0;
        assert_message(fits, "stb_truetype could not start packing.");
        stbtt_PackSetOversampling(&context, 2, 2);
        for (u32 f = 0; f < font_set->font_count && fits; ++f) {
            font_t *font = &font_set->fonts[f];
            assert_message(font->count < 1024, "A font holds fewer than 1024 code points.");
            if (!font->info.data || font->count == 0) continue;
            stbtt_pack_range range = {};
            range.font_size = font->size;
            range.first_unicode_codepoint_in_range = 0;
            range.array_of_unicode_codepoints = (int *)font->code_points;
            range.num_chars = (int)font->count;
            range.chardata_for_range = packed;
            if (!stbtt_PackFontRanges(&context, font->info.data, 0, &range, 1)) {
                fits = false;
                break;
            }
            for (u32 i = 0; i < font->count; ++i) {
                const stbtt_packedchar *p = &packed[i];
                glyph_t *g = &font->glyphs[i];
                u32 box_height = (u32)(p->y1 - p->y0);
                g->x0 = p->x0;
                g->x1 = p->x1;
                g->y0 = (u16)(height - p->y0 - box_height);
                g->y1 = (u16)(g->y0 + box_height);
                g->left = p->xoff;
                g->bottom = -p->yoff2;
                g->right = p->xoff2;
                g->top = -p->yoff;
                g->advance = p->xadvance;
            }
        }
        stbtt_PackEnd(&context);
        if (fits) {
            // The texture's origin is at the bottom: turn the rows over.
            for (u32 top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
                u32 *a = (u32 *)(pixels + (u64)top * width);
                u32 *b = (u32 *)(pixels + (u64)bottom * width);
                for (u32 i = 0; i < width / 4; ++i) {
                    u32 t = a[i];
                    a[i] = b[i];
                    b[i] = t;
                }
            }
            // The start glyphs go to the bottom left of the whole atlas.
            font_store_place_start_glyphs(font_set, pixels, width, height);
            font_set->memory.used = mark;
            return;
        }
        font_set->memory.used = mark;
        if (width > height) height *= 2;
        else width *= 2;
        assert_message(width <= 8192 && height <= 8192, "The glyph atlas would pass 8192 pixels a side.");
    }
}

void font_set_build(font_set_t *font_set) {
    for (u32 f = 0; f < font_set->font_count; ++f) {
        font_t *font = &font_set->fonts[f];
        assert_message(font->count < 1024, "A font holds fewer than 1024 code points.");
        font->glyphs = (glyph_t *)data_push(&font_set->memory, (u64)font->count * sizeof(glyph_t), 8);
        assert_message(font->glyphs || font->count == 0, "No memory for glyphs.");
        memory_zero(font->glyphs, (u64)font->count * sizeof(glyph_t));
        font_sort_code_points(font->code_points, font->count);
        font_fill_lookup(font);
        font_read_kerning(font_set, f);
    }
    font_store_create(font_set);
    font_set_pack(font_set);
}

u32 font_glyph_index(const font_t *font, u32 code_point) {
    u32 distance = code_point - font->first_code_point;
    if (distance < 256) return font->direct[distance] == 0xFF ? font_glyph_none : font->direct[distance];
    if (font->count == 0) return font_glyph_none;
    u32 low = font->first_searched, high = font->count - 1;
    while (low <= high) {
        u32 middle = low + (high - low) / 2;
        u32 value = font->code_points[middle];
        if (value == code_point) return middle;
        if (value < code_point) {
            low = middle + 1;
        } else {
            if (middle == 0) break;
            high = middle - 1;
        }
    }
    return font_glyph_none;
}

const glyph_t *font_glyph(const font_t *font, u32 code_point) {
    u32 index = font_glyph_index(font, code_point);
    if (index != font_glyph_none) return &font->glyphs[index];
    return font_store_glyph(font, code_point, false);
}

f32 font_advance_on_demand(const font_t *font, u32 code_point) { return font_store_advance(font, code_point); }

const glyph_t *font_glyph_drawn(const font_t *font, u32 code_point) {
    u32 index = font_glyph_index(font, code_point);
    if (index != font_glyph_none) return &font->glyphs[index];
    return font_store_glyph(font, code_point, true);
}

i32 font_kerning(const font_t *font, const glyph_t *glyph, u32 next_code_point) {
    // Every glyph reads from the head of the font's pairs, as far as its own
    // count goes: kerning_offset is never written.
    const u32 *pairs = font->kerning + (u64)glyph->kerning_offset * 2;
    for (u32 i = 0; i < glyph->kerning_count; ++i) {
        if (pairs[i * 2] == next_code_point) return (i32)pairs[i * 2 + 1];
    }
    return 0;
}

f32 font_line_height(const font_t *font, bool with_gap) {
    return (f32)(font->ascent - font->descent + (with_gap ? font->line_gap : 0)) * font->scale;
}

f32 font_descent(const font_t *font) { return (f32)(-font->descent) * font->scale; }

font_metrics_t font_metrics(font_set_t *font_set, u32 index) {
    if (!font_set || index >= font_set->font_count) return font_metrics_t{};
    const font_t *font = &font_set->fonts[index];
    return font_metrics_t{index, font_line_height(font, false), font_descent(font)};
}

data_t font_file_load(const char *family, const char *stand_in, bool monospace) {
    char path[4096];
    u32 face_index = 0;
    const char *found = family;
    u64 length = os_font_find_family(family, monospace, path, sizeof(path), &face_index);
    if (length == 0 && stand_in) {
        found = stand_in;
        length = os_font_find_family(stand_in, monospace, path, sizeof(path), &face_index);
    }
    if (length == 0) {
        found = nullptr;
        length = os_font_find_any(monospace, path, sizeof(path), &face_index);
    }
    if (length == 0) {
        log_string(log_graphics, "No font found for \"");
        log_string(log_graphics, family);
        log_string(log_graphics, "\", nor any fallback.\n");
        return data_t{};
    }
    if (found != family) {
        log_string(log_graphics, "The font \"");
        log_string(log_graphics, family);
        log_string(log_graphics, "\" isn't installed; using ");
        log_string(log_graphics, path);
        log_string(log_graphics, "\n");
    }
    u32 error = 0;
    data_t file_path = data_t{length + 1, length, (u8 *)path};
    data_t file = {};
    file_read_all(&file, &file_path, false, &error);
    if (error) {
        log_string(log_graphics, "The font file could not be read: ");
        log_string(log_graphics, path);
        log_string(log_graphics, "\n");
        return data_t{};
    }
    return file;
}

data_t font_file_load_sans() { return font_file_load("Verdana", "DejaVu Sans", false); }
data_t font_file_load_mono() { return font_file_load("Lucida Console", "DejaVu Sans Mono", true); }

void font_set_create_application(font_set_t *font_set, data_t font_memory, const data_t *sans_file,
                                 const data_t *mono_file) {
    *font_set = font_set_t{};
    font_set->memory = font_memory;
    font_set->memory.used = 0;
    // The fonts' own start list: the code point list the reader grows is
    // never read here, so nothing a save does to it moves a glyph. Every set
    // shares this one (the build sorts it in place, always the same way).
    static u32 start[code_point_list_start_count];
    code_point_list_t list = {code_point_list_start_count, code_point_list_start_count, start};
    if (start[0] == 0) code_point_list_init(&list, start, code_point_list_start_count);
    if (sans_file && sans_file->bytes) {
        font_set_add(font_set, sans_file, 14, start, list.count, false);
        font_set_add(font_set, sans_file, 16, start, list.count, false);
        font_set_add(font_set, sans_file, 20, start, list.count, false);
    }
    if (mono_file && mono_file->bytes) font_set_add(font_set, mono_file, 12, start, list.count, true);
    PROFILE_SCOPE(atlas_create);
    font_set_build(font_set);
}
