// os_fonts.h - finding font files on the system (fontconfig on Linux): a
// face by its family name, and a face that has a given character.
#pragma once

#include "base/base_core.h"

// The file of a face of exactly this family (regular, upright, monospaced
// with `monospace`). Writes a zero-terminated path and the face's index in
// the file; returns the path's length, 0 when the family isn't installed.
u64 os_font_find_family(const char *family, bool monospace, char *path, u64 path_size, u32 *face_index);

// Any installed scalable or colour face that has the code point, the one
// fontconfig prefers for `language` (an RFC 3066 tag like "zh-cn", or null)
// first. Returns the path's length as above, 0 when no face has it.
u64 os_font_find_for_code_point(u32 code_point, const char *language, char *path, u64 path_size,
                                u32 *face_index);

// Any face of the system's generic sans-serif or monospace kind: the last
// resort when neither the wanted family nor its stand-in is installed.
u64 os_font_find_any(bool monospace, char *path, u64 path_size, u32 *face_index);
