// os_fonts_fontconfig.cpp - font files through fontconfig. fontconfig
// allocates from the C heap and takes no allocator; its patterns live only
// for the length of one call here.
#include "os/os_fonts.h"

#include <fontconfig/fontconfig.h>
#include <string.h>
#include <strings.h>

namespace {

FcPattern *os_font_pattern(bool monospace) {
    FcPattern *pattern = FcPatternCreate();
    FcPatternAddInteger(pattern, FC_WEIGHT, FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, FC_SLANT_ROMAN);
    if (monospace) FcPatternAddInteger(pattern, FC_SPACING, FC_MONO);
    return pattern;
}

// The matched face's file and index; the family must equal `family` when
// one is given.
u64 os_font_take(FcPattern *match, const char *family, char *path, u64 path_size, u32 *face_index) {
    if (!match) return 0;
    FcChar8 *file = nullptr, *found_family = nullptr;
    int index = 0;
    u64 length = 0;
    bool same = !family || (FcPatternGetString(match, FC_FAMILY, 0, &found_family) == FcResultMatch &&
                            strcasecmp((const char *)found_family, family) == 0);
    if (same && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
        u64 n = strlen((const char *)file);
        if (n + 1 <= path_size) {
            memcpy(path, file, n + 1);
            length = n;
            if (FcPatternGetInteger(match, FC_INDEX, 0, &index) != FcResultMatch) index = 0;
            *face_index = (u32)index;
        }
    }
    FcPatternDestroy(match);
    return length;
}

u64 os_font_match(FcPattern *pattern, const char *family, char *path, u64 path_size, u32 *face_index) {
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern *match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    return os_font_take(match, family, path, path_size, face_index);
}

} // namespace

u64 os_font_find_family(const char *family, bool monospace, char *path, u64 path_size, u32 *face_index) {
    if (!FcInit()) return 0;
    FcPattern *pattern = os_font_pattern(monospace);
    FcPatternAddString(pattern, FC_FAMILY, (const FcChar8 *)family);
    FcPatternAddBool(pattern, FC_OUTLINE, FcTrue);
    // fontconfig always answers with something, often a face of another
    // family: only the family asked for counts.
    return os_font_match(pattern, family, path, path_size, face_index);
}

u64 os_font_find_any(bool monospace, char *path, u64 path_size, u32 *face_index) {
    if (!FcInit()) return 0;
    FcPattern *pattern = os_font_pattern(monospace);
    FcPatternAddString(pattern, FC_FAMILY, (const FcChar8 *)(monospace ? "monospace" : "sans-serif"));
    FcPatternAddBool(pattern, FC_OUTLINE, FcTrue);
    return os_font_match(pattern, nullptr, path, path_size, face_index);
}

u64 os_font_find_for_code_point(u32 code_point, const char *language, char *path, u64 path_size,
                                u32 *face_index) {
    if (!FcInit()) return 0;
    FcPattern *pattern = os_font_pattern(false);
    FcPatternAddString(pattern, FC_FAMILY, (const FcChar8 *)"sans-serif");
    FcCharSet *set = FcCharSetCreate();
    FcCharSetAddChar(set, code_point);
    FcPatternAddCharSet(pattern, FC_CHARSET, set);
    if (language) FcPatternAddString(pattern, FC_LANG, (const FcChar8 *)language);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern *match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    // The best match is only a candidate: it must really hold the character.
    FcCharSet *has = nullptr;
    bool covers = match && FcPatternGetCharSet(match, FC_CHARSET, 0, &has) == FcResultMatch &&
                  FcCharSetHasChar(has, code_point);
    FcCharSetDestroy(set);
    if (!covers) {
        if (match) FcPatternDestroy(match);
        return 0;
    }
    return os_font_take(match, nullptr, path, path_size, face_index);
}
