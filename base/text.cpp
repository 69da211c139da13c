// text.cpp - search, character classes, flags and number text.
#include "base/text.h"
#include "base/profiler.h"

// ---- search and comparison -------------------------------------------------------

static u8 text_fold(u8 c) { return (c >= 'A' && c <= 'Z') ? (u8)(c + 32) : c; }

// An empty text (no bytes at all) is ordinary input: a cut attribute value,
// an empty header. Only a length without bytes is a caller's mistake.
bool data_equal_ignore_case(const data_t *a, const data_t *b) {
    assert_true((a->bytes || a->used == 0) && (b->bytes || b->used == 0));
    if (a->used != b->used) return false;
    for (u64 i = 0; i < a->used; i++)
        if (text_fold(a->bytes[i]) != text_fold(b->bytes[i])) return false;
    return true;
}

bool data_starts_with_ignore_case(const data_t *text, const data_t *prefix) {
    if (text->used < prefix->used) return false;
    for (u64 i = 0; i < prefix->used; i++)
        if (text_fold(text->bytes[i]) != text_fold(prefix->bytes[i])) return false;
    return true;
}

bool memory_starts_with(const u8 *first, const u8 *end, const void *prefix, u64 prefix_size) {
    assert_true((first || first == end) && (prefix || prefix_size == 0));
    if ((u64)(end - first) < prefix_size) return false;
    return memory_equal(first, prefix_size, prefix, prefix_size);
}

const u8 *memory_find_byte(const u8 *first, const u8 *end, u8 value) {
    const u8 *p = first;
    const u64 ones = 0x0101010101010101ull, tops = 0x8080808080808080ull, pattern = ones * value;
    while (end - p >= 8) {
        u64 word;
        __builtin_memcpy(&word, p, 8);
        word ^= pattern; // the byte sought is now zero; the lowest flag below is exact
        u64 zero = (word - ones) & ~word & tops;
        if (zero) return p + (__builtin_ctzll(zero) >> 3);
        p += 8;
    }
    while (p < end && *p != value) p++;
    return p;
}

const u8 *memory_find(const u8 *first, const u8 *end, const void *needle, u64 needle_size) {
    if (!first || !end || !needle || first >= end || needle_size == 0 || needle_size > (u64)(end - first))
        return end;
    const u8 *n = (const u8 *)needle;
    const u8 *last = end - needle_size;
    for (const u8 *p = first; p <= last; p++) {
        if (*p != n[0]) continue;
        u64 i = 1;
        while (i < needle_size && p[i] == n[i]) i++;
        if (i == needle_size) return p;
    }
    return end;
}

const u8 *memory_find_last(const u8 *first, const u8 *end, const void *needle, u64 needle_size) {
    if (!first || !end || !needle || first >= end || needle_size == 0 || needle_size > (u64)(end - first))
        return end;
    const u8 *n = (const u8 *)needle;
    for (const u8 *p = end - needle_size;; p--) {
        u64 i = 0;
        while (i < needle_size && p[i] == n[i]) i++;
        if (i == needle_size) return p;
        if (p == first) break;
    }
    return end;
}

const u8 *text_find_non_space(const u8 *first, const u8 *end) {
    for (const u8 *p = first; p < end; p++)
        if (!char_is_space(*p)) return p;
    return nullptr;
}

data_t data_trim_end(data_t *out, data_t *text, const data_t *set) {
    assert_true(text->bytes || text->used == 0);
    while (text->used > 0 && char_is_any_u8(text->bytes[text->used - 1], set->bytes, set->used)) text->used--;
    if (text->reserved < text->used) text->reserved = text->used;
    *out = *text;
    return *text;
}

u32 data_split_commas(const data_t *text, data_t *items, u32 capacity) {
    u32 count = 0;
    const u8 *p = text->bytes;
    const u8 *end = text->bytes + text->used;
    while (p < end && count < capacity) {
        const u8 *comma = p;
        while (comma < end && *comma != ',') comma++;
        const u8 *start = p;
        while (start < comma && char_is_space(*start)) start++;
        if (start < comma) items[count++] = data_from_range(start, comma);
        p = comma + 1;
    }
    return count;
}

void data_replace_chars(data_t *text, const char *from, const char *to) {
    u32 n = string_length(from);
    assert_message(n == string_length(to), "data_replace_chars: from and to differ in length.");
    for (u32 i = 0; i < n; i++)
        for (u64 k = 0; k < text->used; k++)
            if (text->bytes[k] == (u8)from[i]) text->bytes[k] = (u8)to[i];
}

u32 string_length(const char *text) {
    if (!text) return 0;
    u32 n = 0;
    while (text[n]) n++;
    return n;
}

u8 *data_push_raw(data_t *parent, const void *source, u64 size) {
    return (u8 *)data_push_copy(parent, source, size, 1);
}

u8 *data_push_c_string(data_t *parent, const char *source) {
    return data_push_raw(parent, source, string_length(source));
}

// ---- character classes -------------------------------------------------------------

bool char_is_ascii_upper(u32 c) { return c >= 'A' && c <= 'Z'; }
bool char_is_ascii_lower(u32 c) { return c >= 'a' && c <= 'z'; }
bool char_is_ascii_alpha(u32 c) { return char_is_ascii_upper(c) || char_is_ascii_lower(c); }
bool char_is_ascii_digit(u32 c) { return c >= '0' && c <= '9'; }
bool char_is_ascii_hex(u32 c) {
    return char_is_ascii_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
bool char_is_space(u32 c) { return c == 0x20 || c == 0x09 || c == 0x0B || c == 0x0C || c == 0x0A || c == 0x0D; }

bool char_is_any_u8(u32 c, const u8 *table, u64 size) {
    for (u64 i = 0; i < size; i++)
        if (table[i] == c) return true;
    return false;
}

bool char_is_any_u32(u32 c, const u32 *table, u64 count) {
    mark_start(label_char_is_any_u32);
    bool found = false;
    for (u64 i = 0; i < count; i++) {
        if (table[i] == c) {
            found = true;
            break;
        }
    }
    mark_end(label_char_is_any_u32);
    return found;
}

u32 char_to_ascii_lower(u32 c) { return char_is_ascii_upper(c) ? c + 32 : c; }
u32 char_hex_value(u32 c) {
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return c - '0';
}

// ---- flags --------------------------------------------------------------------------------

// ---- text to number ---------------------------------------------------------------------

static i64 text_digits_to_i64(const u8 *p, const u8 *end, bool negative) {
    u64 base = 10;
    if (end - p >= 3 && p[0] == '0' && p[1] == 'x') {
        base = 16;
        p += 2;
    }
    u64 value = 0;
    for (; p < end; p++) {
        u32 c = *p;
        if (base == 10 && char_is_ascii_digit(c)) value = value * 10 + (c - '0');
        else if (base == 16 && char_is_ascii_hex(c)) value = value * 16 + char_hex_value(c);
        else break;
    }
    return negative ? (i64)(0 - value) : (i64)value;
}

i64 text_to_i64(const u8 *pointer, u64 size) {
    const u8 *p = pointer;
    const u8 *end = pointer + size;
    while (p < end && char_is_space(*p)) p++;
    if (p >= end) return 0;
    bool negative = false;
    if (*p == '-' || *p == '+') {
        negative = *p == '-';
        p++;
    }
    return text_digits_to_i64(p, end, negative);
}

i64 text_to_i64_plus(const u8 *pointer, u64 size) {
    const u8 *p = pointer;
    const u8 *end = pointer + size;
    while (p < end && (char_is_space(*p) || *p == '+')) p++;
    if (p >= end) return 0;
    bool negative = false;
    if (*p == '-') {
        negative = true;
        p++;
    }
    return text_digits_to_i64(p, end, negative);
}

// ---- number to text ------------------------------------------------------------------------

static u64 number_group_width(u32 flags) {
    if (flags & number_hexadecimal) {
        if (flags & number_group_2) return 2;
        if (flags & number_group_4) return 4;
        if (flags & number_group_8) return 8;
        return 0;
    }
    return (flags & number_group_3) ? 3 : 0;
}

static u64 number_digit_width(u32 flags) {
    if (flags & number_digits_2) return 2;
    if (flags & number_digits_4) return 4;
    if (flags & number_digits_8) return 8;
    if (flags & number_digits_16) return 16;
    return 0;
}

// The common writer: `sign` is 0, '+' or '-'.
static u64 number_write(u8 *destination, u64 size, u64 value, u8 sign, u64 width, u8 fill, u32 flags) {
    bool hexadecimal = flags & number_hexadecimal;
    u64 base = hexadecimal ? 16 : 10;
    u64 digits = 1;
    for (u64 v = value / base; v; v /= base) digits++;

    u64 extra = sign ? 1 : 0;
    bool prefix = hexadecimal && !(flags & number_no_prefix);
    if (prefix) extra += 2;
    u64 group = number_group_width(flags);
    u64 shown = digits;
    if (hexadecimal) {
        u64 minimum = number_digit_width(flags);
        if (minimum > shown) shown = minimum;
    }
    if (group) extra += (shown - 1) / group;
    u64 fill_count = width > shown + extra ? width - (shown + extra) : 0;

    u64 n = 0;
    auto put = [&](u8 c) {
        if (n < size) destination[n++] = c;
    };
    bool sign_first = flags & number_sign_before_fill;
    if (sign && sign_first) put(sign);
    if (!(flags & number_left_justify))
        for (u64 i = 0; i < fill_count && n < size; i++) destination[n++] = fill;
    if (sign && !sign_first) put(sign);
    if (prefix) {
        put('0');
        put('x');
    }
    u64 to_come = shown;
    for (u64 i = 0; i < shown - digits; i++) {
        put('0');
        to_come--;
        if (group && to_come % group == 0) put(' ');
    }
    u8 text[64];
    for (u64 i = 0, v = value; i < digits; i++, v /= base) {
        u64 d = v % base;
        text[digits - 1 - i] = (u8)(d < 10 ? '0' + d : 'a' + d - 10);
    }
    for (u64 i = 0; i < digits; i++) {
        u64 remaining = digits - i; // this digit and those after it
        if (i > 0 && group && remaining % group == 0 && n < size) destination[n++] = ' ';
        if (n + remaining <= size) destination[n++] = text[i];
    }
    if (flags & number_left_justify)
        for (u64 i = 0; i < fill_count && n < size; i++) destination[n++] = fill;
    return n;
}

u64 number_to_text(u8 *destination, u64 size, u64 value, u64 width, u8 fill, u32 flags) {
    return number_write(destination, size, value, (flags & number_show_plus) ? '+' : 0, width, fill, flags);
}

u64 number_to_text_signed(u8 *destination, u64 size, i64 value, u64 width, u8 fill, u32 flags) {
    if (value < 0 && size != 0) {
        u64 magnitude = 0 - (u64)value; // exact, also for the most negative value
        return number_write(destination, size, magnitude, '-', width, fill, flags);
    }
    return number_to_text(destination, size, (u64)(value < 0 ? 0 - (u64)value : (u64)value), width, fill, flags);
}

u64 number_to_text_float(u8 *destination, u64 size, f64 value, u64 width, u8 fill, u32 decimals, u32 flags) {
    i64 integer = (i64)value;
    bool left = flags & number_left_justify;
    u64 n = left ? number_to_text_signed(destination, size, integer, 0, fill, flags & ~number_left_justify)
                 : number_to_text_signed(destination, size, integer, width, fill, flags);
    if (value < 0) value = -value;
    if (decimals != 0 && n < size) destination[n++] = '.';
    f64 fraction = value - (f64)(i64)value;
    for (u32 i = 0; i < decimals; i++) {
        fraction *= 10.0;
        if (fraction < 1.0 && n < size) destination[n++] = '0';
    }
    u64 rest = (u64)fraction;
    if (decimals != 0 && rest != 0) n += number_to_text(destination + n, size - n, rest, 0, ' ', 0);
    if (left)
        while (n < width && n < size) destination[n++] = fill;
    return n;
}

u64 data_push_number(data_t *destination, u64 value, u64 width, u8 fill, u32 flags) {
    u64 room = destination->reserved > destination->used ? destination->reserved - destination->used : 0;
    u64 n = number_to_text(data_end(destination), room, value, width, fill, flags);
    destination->used += n;
    return n;
}

u64 size_to_text(u64 byte_count, u8 *destination, u64 size) {
    static const char *const units[] = {"Kio", "Mio", "Gio", "Tio"};
    u64 n;
    const char *unit;
    if (byte_count < 1024) {
        n = number_to_text(destination, size, byte_count, 0, ' ', 0);
        unit = "o";
    } else {
        u32 level = 0;
        if (byte_count >= (1ull << 40)) level = 3;
        else if (byte_count >= (1ull << 30)) level = 2;
        else if (byte_count >= (1ull << 20)) level = 1;
        f64 divided = (f64)byte_count / (f64)(1ull << (10 * (level + 1)));
        n = number_to_text_float(destination, size, divided, 0, ' ', 3, 0);
        unit = units[level];
    }
    if (n < size) destination[n++] = ' ';
    for (const char *u = unit; *u && n < size; u++) destination[n++] = (u8)*u;
    return n;
}

data_t data_size_to_text(data_t *out, u64 byte_count, data_t *arena) {
    data_t block = data_block_reserve(arena, 16, 1);
    *out = data_t{};
    if (!block.bytes) return *out;
    u64 n = size_to_text(byte_count, block.bytes, 16);
    arena->used -= 16 - n;
    *out = data_t{n, n, block.bytes};
    return *out;
}

// ---- the list of code points ----------------------------------------------------------------

void code_point_list_init(code_point_list_t *list, u32 *code_points, u32 capacity) {
    list->code_points = code_points;
    list->capacity = capacity;
    u32 n = 0;
    auto add_range = [&](u32 first, u32 last) {
        for (u32 c = first; c <= last; c++) code_points[n++] = c;
    };
    add_range(0x20, 0x7E);
    add_range(0xA0, 0xA3);
    add_range(0xA5, 0xA5);
    add_range(0xA7, 0xA7);
    add_range(0xA9, 0xB3);
    add_range(0xB5, 0xB7);
    add_range(0xB9, 0xBB);
    add_range(0xBF, 0xFF);
    static const u32 extra[] = {0x20AC, 0x0160, 0x0161, 0x017D, 0x017E, 0x0152, 0x0153, 0x0178, 0xFFFD, 0x2026};
    for (u32 c : extra) code_points[n++] = c;
    assert_true(n == code_point_list_start_count);
    list->count = n;
}
