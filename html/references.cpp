// references.cpp - character references after "&". Stricter than the HTML
// standard: the semicolon is always required, and numeric references are
// taken as they are, with no table of replacements.
#include "base/profiler.h"
#include "html/generated/html_tables.h"
#include "html/tokenizer.h"

bool html_entity_find(const u8 *name, u64 size, u32 *first, u32 *second) {
    *first = code_point_none;
    *second = code_point_none;
    for (u32 row = 0; row < html_entity_count; row++) {
        if (html_entity_name_sizes[row] != size || !html_entity_names[row]) continue;
        const char *text = html_entity_names[row];
        u64 i = 0;
        while (i < size && (u8)text[i] == name[i]) i++;
        if (i != size) continue;
        *first = html_entity_code_points[row];
        if (row + 1 < html_entity_count && !html_entity_names[row + 1]) *second = html_entity_code_points[row + 1];
        return true;
    }
    return false;
}

// 0x0D and the invalid text characters never come of a numeric reference.
static bool hp_numeric_reference_refused(u32 value) { return value == 0x0D || hp_is_invalid_text_character(value); }

static bool hp_reference_alnum(u32 c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

u32 hp_parse_character_reference(hp_cursor_t *cursor, u32 *first, u32 *second, u32 *ambiguous) {
    PROFILE_SCOPE(hp_parse_character_reference);
    *first = code_point_none;
    *second = code_point_none;
    *ambiguous = 0;
    u32 error = 0;
    hp_peek_start(cursor);
    u32 c = hp_peek(cursor, &error);
    if (error) return 0;

    if (c == '#') {
        c = hp_peek(cursor, &error);
        u32 value = 0; // wraps on overflow, as it should
        if (c == 'x' || c == 'X') {
            c = hp_peek(cursor, &error);
            while (!error) {
                u32 digit;
                if (c >= '0' && c <= '9') digit = c - '0';
                else if ((c | 0x20) >= 'a' && (c | 0x20) <= 'f') digit = (c | 0x20) - 'a' + 10;
                else break;
                value = value * 16 + digit;
                c = hp_peek(cursor, &error);
            }
        } else {
            while (!error && c >= '0' && c <= '9') {
                value = value * 10 + (c - '0');
                c = hp_peek(cursor, &error);
            }
        }
        if (error || value == 0 || c != ';') return 0;
        if (!unicode_is_scalar(value) || hp_numeric_reference_refused(value)) return 0;
        *first = value;
        hp_peek_commit(cursor);
        return 1;
    }

    if (!hp_reference_alnum(c)) return 0;
    u8 name[31];
    u32 size = 0;
    while (!error && hp_reference_alnum(c) && size < sizeof(name)) {
        name[size++] = (u8)c;
        c = hp_peek(cursor, &error);
    }
    if (error) return 0;
    if (c != ';') {
        while (!error && hp_reference_alnum(c)) c = hp_peek(cursor, &error);
        if (!error && c == ';') *ambiguous = 1;
        return 0;
    }
    if (!html_entity_find(name, size, first, second)) {
        *ambiguous = 1;
        return 0;
    }
    hp_peek_commit(cursor);
    return *second == code_point_none ? 1 : 2;
}
