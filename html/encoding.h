// encoding.h - the web's encodings by number, their labels, and decoding of
// one code point at a time. Text is never converted as a whole: the
// tokenizer and the feed parser pull code points through encoding_decode.
#pragma once

#include "base/memory.h"

enum : u32 {
    encoding_none = 0,
    encoding_utf8 = 1,
    encoding_ibm866 = 2,
    encoding_iso_8859_2 = 3,
    encoding_iso_8859_3 = 4,
    encoding_iso_8859_4 = 5,
    encoding_iso_8859_5 = 6,
    encoding_iso_8859_6 = 7,
    encoding_iso_8859_7 = 8,
    encoding_iso_8859_8 = 9,
    encoding_iso_8859_8_i = 10,
    encoding_iso_8859_10 = 11,
    encoding_iso_8859_13 = 12,
    encoding_iso_8859_14 = 13,
    encoding_iso_8859_15 = 14,
    encoding_iso_8859_16 = 15,
    encoding_koi8_r = 16,
    encoding_koi8_u = 17,
    encoding_macintosh = 18,
    encoding_windows_874 = 19,
    encoding_windows_1250 = 20,
    encoding_windows_1251 = 21,
    encoding_windows_1252 = 22,
    encoding_windows_1253 = 23,
    encoding_windows_1254 = 24,
    encoding_windows_1255 = 25,
    encoding_windows_1256 = 26,
    encoding_windows_1257 = 27,
    encoding_windows_1258 = 28,
    encoding_x_mac_cyrillic = 29,
    encoding_gbk = 30,
    encoding_gb18030 = 31,
    encoding_big5 = 32,
    encoding_euc_jp = 33,
    encoding_iso_2022_jp = 34,
    encoding_shift_jis = 35,
    encoding_euc_kr = 36,
    encoding_replacement = 37,
    encoding_utf16be = 38,
    encoding_utf16le = 39,
    encoding_x_user_defined = 40,
    encoding_count = 41,
};

// Decoder errors. 1 and 47 reach the caller of the frame; every other value
// is a malformed sequence and comes out as U+FFFD.
enum : u32 {
    encoding_error_end_of_input = 1,
    encoding_error_cut = 2,
    encoding_error_single_byte_unmapped = 7,
    encoding_error_replacement = 43,
    encoding_error_unknown_encoding = 47,
};

constexpr u32 encoding_label_table_size = 213;
extern const char *const encoding_labels[encoding_label_table_size];
extern const u8 encoding_label_sizes[encoding_label_table_size];
extern const u8 encoding_label_ids[encoding_label_table_size];

// The encoding a label names (trimmed of HTML space, case folded), or 0.
u32 encoding_label_lookup(const u8 *pointer, u64 size);
// The encoding's name as the Encoding Standard writes it ("UTF-8",
// "windows-1252"); "" for 0 and for numbers without an encoding.
const char *encoding_name(u32 encoding);

// Decodes one code point at `first`. `code_point` gets the code point or
// 0xFFFFFFFF; `second` (may be null except for Big5) a second code point or
// 0xFFFFFFFF; `consumed` the bytes to step over, also on a malformed
// sequence. `decoder_state` (may be null except for ISO-2022-JP) holds the
// state of the stateful decoder between calls; start it at zero.
void encoding_decode(u32 encoding, const u8 *first, const u8 *end, u32 *code_point, u32 *second, u8 *consumed,
                     u8 *decoder_state, u32 *error);

// ---- the multi-byte decoders -------------------------------------------------------
// Each reads a whole sequence in one call; errors are per decoder (see the
// .cpp) and all mean a malformed sequence, except 1 (no input at all).
struct encoding_index_run_t;
u32 encoding_index_lookup(u32 pointer, const encoding_index_run_t *runs, u32 run_count);
u32 encoding_gb18030_ranges_lookup(u32 pointer);
void encoding_decode_big5(const u8 *first, const u8 *end, u32 *code_point, u32 *second, u8 *consumed, u32 *error);
void encoding_decode_gb18030(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error);
void encoding_decode_euc_jp(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error);
void encoding_decode_shift_jis(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error);
void encoding_decode_euc_kr(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error);
void encoding_decode_iso_2022_jp(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u8 *state,
                                 u32 *error);
void encoding_decode_replacement(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error);
