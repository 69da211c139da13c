// text.h - search, character classes, flags, text to number and number to
// text. All text is UTF-8 bytes in a data_t or between two pointers; nothing
// here uses a locale or allocates except the data_push family.
#pragma once

#include "base/memory.h"

// ---- number-text flags --------------------------------------------------------
enum : u32 {
    number_hexadecimal = 0x1,
    number_no_prefix = 0x2,
    number_group_2 = 0x8,
    number_group_4 = 0x10,
    number_group_8 = 0x20,
    number_digits_2 = 0x80,
    number_digits_4 = 0x100,
    number_digits_8 = 0x200,
    number_digits_16 = 0x400,
    number_left_justify = 0x800,
    number_show_plus = 0x1000,
    number_sign_before_fill = 0x2000,
    number_group_3 = 0x4000,
};

// ---- search and comparison ------------------------------------------------------
bool data_equal_ignore_case(const data_t *a, const data_t *b);
bool data_starts_with_ignore_case(const data_t *text, const data_t *prefix);
bool memory_starts_with(const u8 *first, const u8 *end, const void *prefix, u64 prefix_size);
const u8 *memory_find(const u8 *first, const u8 *end, const void *needle, u64 needle_size);
// The first byte of that value in [first, end), or `end`; eight bytes a step.
const u8 *memory_find_byte(const u8 *first, const u8 *end, u8 value);
const u8 *memory_find_last(const u8 *first, const u8 *end, const void *needle, u64 needle_size);
const u8 *text_find_non_space(const u8 *first, const u8 *end);
data_t data_trim_end(data_t *out, data_t *text, const data_t *set);
u32 data_split_commas(const data_t *text, data_t *items, u32 capacity);
void data_replace_chars(data_t *text, const char *from, const char *to);
u32 string_length(const char *text);
u8 *data_push_raw(data_t *parent, const void *source, u64 size);
u8 *data_push_c_string(data_t *parent, const char *source);

// ---- character classes -------------------------------------------------------------
bool char_is_ascii_upper(u32 c);
bool char_is_ascii_lower(u32 c);
bool char_is_ascii_alpha(u32 c);
bool char_is_ascii_digit(u32 c);
bool char_is_ascii_hex(u32 c);
bool char_is_space(u32 c);
bool char_is_any_u8(u32 c, const u8 *table, u64 size);
bool char_is_any_u32(u32 c, const u32 *table, u64 count);
u32 char_to_ascii_lower(u32 c);
u32 char_hex_value(u32 c);

// ---- text to number --------------------------------------------------------------------
i64 text_to_i64(const u8 *pointer, u64 size);
i64 text_to_i64_plus(const u8 *pointer, u64 size);

// ---- number to text --------------------------------------------------------------------
u64 number_to_text(u8 *destination, u64 size, u64 value, u64 width, u8 fill, u32 flags);
u64 number_to_text_signed(u8 *destination, u64 size, i64 value, u64 width, u8 fill, u32 flags);
u64 number_to_text_float(u8 *destination, u64 size, f64 value, u64 width, u8 fill, u32 decimals, u32 flags);
u64 data_push_number(data_t *destination, u64 value, u64 width, u8 fill, u32 flags);
u64 size_to_text(u64 byte_count, u8 *destination, u64 size);
data_t data_size_to_text(data_t *out, u64 byte_count, data_t *arena);

// ---- the list of code points -----------------------------------------------------------
// Every code point that stored text uses, plus 193 fixed ones. The reader
// and the reader file share the one list; the fonts keep their own.
struct code_point_list_t {
    u32 count;
    u32 capacity;
    u32 *code_points;
};
constexpr u32 code_point_list_start_count = 193;
constexpr u32 code_point_list_capacity = 0x10FFFF;
// Fills the 193 start code points; `code_points` must hold `capacity` entries.
void code_point_list_init(code_point_list_t *list, u32 *code_points, u32 capacity);
