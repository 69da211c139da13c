// decoders_multibyte.cpp - the East Asian decoders. Each reads one whole
// sequence per call, so none keeps a lead byte between calls; only
// ISO-2022-JP carries state, in three bytes the caller keeps.
//
// On a malformed sequence `consumed` says how far to step, and a last byte
// below 0x80 is left to be read again, so that an ASCII delimiter after a
// broken lead byte is never swallowed.
#include "html/encoding.h"
#include "html/generated/html_tables.h"

// Per-decoder error numbers.
enum : u32 {
    gb18030_error_lead = 9,
    gb18030_error_second = 10,
    gb18030_error_third = 11,
    gb18030_error_fourth = 12,
    gb18030_error_four_byte_unmapped = 13,
    big5_error_lead = 16,
    big5_error_unmapped = 17,
    euc_jp_error_lead = 19,
    euc_jp_error_unmapped = 20,
    iso_2022_jp_error_end_in_trail = 22,
    iso_2022_jp_error_end_in_escape = 23,
    iso_2022_jp_error_ascii = 25,
    iso_2022_jp_error_roman = 26,
    iso_2022_jp_error_katakana = 27,
    iso_2022_jp_error_lead = 28,
    iso_2022_jp_error_trail = 29,
    iso_2022_jp_error_escape_in_trail = 30,
    iso_2022_jp_error_escape_start = 31,
    iso_2022_jp_error_two_escapes = 32,
    iso_2022_jp_error_escape = 33,
    shift_jis_error_lead = 37,
    shift_jis_error_unmapped = 38,
    euc_kr_error_lead = 40,
    euc_kr_error_unmapped = 41,
};

static bool decoder_start(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (*error) return false;
    *code_point = code_point_none;
    *consumed = 0;
    if (first >= end) {
        *error = encoding_error_end_of_input;
        return false;
    }
    return true;
}

u32 encoding_index_lookup(u32 pointer, const encoding_index_run_t *runs, u32 run_count) {
    assert_true(pointer < 65535);
    u32 adjust = 0;
    u32 previous_end = 0;
    for (u32 i = 0; i < run_count; i++) {
        adjust += previous_end - runs[i].start;
        previous_end = runs[i].end;
        if (pointer < runs[i].end) {
            if (pointer < runs[i].start) return code_point_none;
            return pointer + adjust;
        }
    }
    return code_point_none;
}

template <typename T>
static u32 index_value(u32 pointer, const T *values, u32 count, const encoding_index_run_t *runs, u32 run_count) {
    if (pointer >= 65535) return code_point_none;
    u32 position = encoding_index_lookup(pointer, runs, run_count);
    if (position >= count || values[position] == 0) return code_point_none;
    return values[position];
}

static u32 jis0208_value(u32 pointer) {
    return index_value(pointer, encoding_index_jis0208, encoding_index_jis0208_count, encoding_index_jis0208_runs,
                       encoding_index_jis0208_run_count);
}

u32 encoding_gb18030_ranges_lookup(u32 pointer) {
    if ((pointer > 39419 && pointer < 189000) || pointer > 1237575) return code_point_none;
    if (pointer == 7457) return 0xE7C7;
    if (pointer >= 189000) return pointer - 123464;
    // The last pair whose pointer is not above this one.
    u32 low = 0, high = encoding_gb18030_range_count;
    while (high - low > 1) {
        u32 middle = (low + high) / 2;
        if (encoding_gb18030_ranges[middle].pointer <= pointer) low = middle;
        else high = middle;
    }
    const encoding_gb18030_range_t *pair = &encoding_gb18030_ranges[low];
    return pair->code_point + pointer - pair->pointer;
}

void encoding_decode_big5(const u8 *first, const u8 *end, u32 *code_point, u32 *second, u8 *consumed, u32 *error) {
    if (second && !*error) *second = code_point_none;
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u32 b = first[0];
    *consumed = 1;
    if (b <= 0x7F) {
        *code_point = b;
        return;
    }
    if (b < 0x81 || b > 0xFE) {
        *error = big5_error_lead;
        return;
    }
    if (end - first < 2) {
        *error = encoding_error_cut;
        return;
    }
    u32 t = first[1];
    *consumed = 2;
    if ((t >= 0x40 && t <= 0x7E) || (t >= 0xA1 && t <= 0xFE)) {
        u32 pointer = (b - 0x81) * 157 + t - (t < 0x7F ? 0x40 : 0x62);
        u32 pair_first = 0, pair_second = 0;
        switch (pointer) {
        case 1133: pair_first = 0x00CA, pair_second = 0x0304; break;
        case 1135: pair_first = 0x00CA, pair_second = 0x030C; break;
        case 1164: pair_first = 0x00EA, pair_second = 0x0304; break;
        case 1166: pair_first = 0x00EA, pair_second = 0x030C; break;
        default: break;
        }
        if (pair_first) {
            assert_true(second);
            *code_point = pair_first;
            *second = pair_second;
            return;
        }
        *code_point = index_value(pointer, encoding_index_big5, encoding_index_big5_count, encoding_index_big5_runs,
                                  encoding_index_big5_run_count);
    }
    if (*code_point == code_point_none) {
        if (t < 0x80) *consumed = 1;
        *error = big5_error_unmapped;
    }
}

void encoding_decode_gb18030(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u32 b = first[0];
    *consumed = 1;
    if (b <= 0x7F) {
        *code_point = b;
        return;
    }
    if (b == 0x80) {
        *code_point = 0x20AC;
        return;
    }
    if (b == 0xFF) {
        *error = gb18030_error_lead;
        return;
    }
    if (end - first < 2) {
        *error = encoding_error_cut;
        return;
    }
    u32 t = first[1];
    *consumed = 2;
    if (t >= 0x30 && t <= 0x39) {
        if (end - first < 3) {
            *error = encoding_error_cut;
            return;
        }
        u32 c = first[2];
        if (c < 0x81 || c > 0xFE) {
            *consumed = 1;
            *error = gb18030_error_third;
            return;
        }
        *consumed = 3;
        if (end - first < 4) {
            *error = encoding_error_cut;
            return;
        }
        u32 d = first[3];
        if (d < 0x30 || d > 0x39) {
            *consumed = 1;
            *error = gb18030_error_fourth;
            return;
        }
        *consumed = 4;
        u32 pointer = (b - 0x81) * 12600 + (t - 0x30) * 1260 + (c - 0x81) * 10 + d - 0x30;
        *code_point = encoding_gb18030_ranges_lookup(pointer);
        if (*code_point == code_point_none) *error = gb18030_error_four_byte_unmapped;
        return;
    }
    if ((t >= 0x40 && t <= 0x7E) || (t >= 0x80 && t <= 0xFE)) {
        u32 pointer = (b - 0x81) * 190 + t - (t < 0x7F ? 0x40 : 0x41);
        if (pointer < encoding_index_gb18030_count && encoding_index_gb18030[pointer])
            *code_point = encoding_index_gb18030[pointer];
    }
    if (*code_point == code_point_none) {
        if (t < 0x80) *consumed = 1;
        *error = gb18030_error_second;
    }
}

void encoding_decode_euc_jp(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u32 b = first[0];
    *consumed = 1;
    if (b <= 0x7F) {
        *code_point = b;
        return;
    }
    if (b != 0x8E && b != 0x8F && (b < 0xA1 || b > 0xFE)) {
        *error = euc_jp_error_lead;
        return;
    }
    if (end - first < 2) {
        *error = encoding_error_cut;
        return;
    }
    u32 t = first[1];
    *consumed = 2;
    if (b == 0x8E && t >= 0xA1 && t <= 0xDF) {
        *code_point = t + 0xFEC0;
        return;
    }
    bool jis0212 = false;
    if (b == 0x8F && t >= 0xA1 && t <= 0xFE) {
        if (end - first < 3) {
            *error = encoding_error_cut;
            return;
        }
        jis0212 = true;
        b = t;
        t = first[2];
        *consumed = 3;
    }
    if (b >= 0xA1 && b <= 0xFE && t >= 0xA1 && t <= 0xFE) {
        u32 pointer = (b - 0xA1) * 94 + t - 0xA1;
        *code_point = jis0212 ? index_value(pointer, encoding_index_jis0212, encoding_index_jis0212_count,
                                            encoding_index_jis0212_runs, encoding_index_jis0212_run_count)
                              : jis0208_value(pointer);
    }
    if (*code_point == code_point_none) {
        if (t < 0x80) *consumed = (u8)(*consumed - 1);
        *error = euc_jp_error_unmapped;
    }
}

void encoding_decode_shift_jis(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u32 b = first[0];
    *consumed = 1;
    if (b <= 0x80) {
        *code_point = b;
        return;
    }
    if (b >= 0xA1 && b <= 0xDF) {
        *code_point = b + 0xFEC0;
        return;
    }
    if (!((b >= 0x81 && b <= 0x9F) || (b >= 0xE0 && b <= 0xFC))) {
        *error = shift_jis_error_lead;
        return;
    }
    if (end - first < 2) {
        *error = encoding_error_cut;
        return;
    }
    u32 t = first[1];
    *consumed = 2;
    if ((t >= 0x40 && t <= 0x7E) || (t >= 0x80 && t <= 0xFC)) {
        u32 pointer = (b - (b < 0xA0 ? 0x81 : 0xC1)) * 188 + t - (t < 0x7F ? 0x40 : 0x41);
        if (pointer >= 8836 && pointer <= 10715) *code_point = pointer + 48508;
        else *code_point = jis0208_value(pointer);
    }
    if (*code_point == code_point_none) {
        if (t < 0x80) *consumed = 1;
        *error = shift_jis_error_unmapped;
    }
}

void encoding_decode_euc_kr(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u32 b = first[0];
    *consumed = 1;
    if (b <= 0x7F) {
        *code_point = b;
        return;
    }
    if (b < 0x81 || b > 0xFE) {
        *error = euc_kr_error_lead;
        return;
    }
    if (end - first < 2) {
        *error = encoding_error_cut;
        return;
    }
    u32 t = first[1];
    *consumed = 2;
    if (t >= 0x41 && t <= 0xFE) {
        u32 pointer = (b - 0x81) * 190 + t - 0x41;
        *code_point = index_value(pointer, encoding_index_euc_kr, encoding_index_euc_kr_count,
                                  encoding_index_euc_kr_runs, encoding_index_euc_kr_run_count);
    }
    if (*code_point == code_point_none) {
        if (t < 0x80) *consumed = 1;
        *error = euc_kr_error_unmapped;
    }
}

// ISO-2022-JP states. state[0] the state, state[1] the output state,
// state[2] the output flag (an escape sequence just came).
enum : u8 {
    iso_2022_jp_ascii = 1,
    iso_2022_jp_roman = 2,
    iso_2022_jp_katakana = 3,
    iso_2022_jp_lead = 4,
    iso_2022_jp_trail = 5,
    iso_2022_jp_escape_start = 6,
    iso_2022_jp_escape = 7,
};

void encoding_decode_iso_2022_jp(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u8 *state,
                                 u32 *error) {
    if (!decoder_start(first, end, code_point, consumed, error)) return;
    u8 &current = state[0];
    u8 &output_state = state[1];
    u8 &output_flag = state[2];
    if (current == 0 || current > iso_2022_jp_escape) {
        current = iso_2022_jp_ascii;
        output_state = iso_2022_jp_ascii;
        output_flag = 0;
    }
    u32 lead = 0;
    u32 escape_lead = 0;
    const u8 *p = first;
    while (p < end) {
        u32 b = *p++;
        *consumed = (u8)(p - first);
        switch (current) {
        case iso_2022_jp_ascii:
            if (b == 0x1B) {
                current = iso_2022_jp_escape_start;
                continue;
            }
            output_flag = 0;
            if (b < 0x80 && b != 0x0E && b != 0x0F) *code_point = b;
            else *error = iso_2022_jp_error_ascii;
            return;
        case iso_2022_jp_roman:
            if (b == 0x1B) {
                current = iso_2022_jp_escape_start;
                continue;
            }
            output_flag = 0;
            if (b == 0x5C) *code_point = 0x00A5;
            else if (b == 0x7E) *code_point = 0x203E;
            else if (b < 0x7F && b != 0x0E && b != 0x0F) *code_point = b;
            else *error = iso_2022_jp_error_roman;
            return;
        case iso_2022_jp_katakana:
            if (b == 0x1B) {
                current = iso_2022_jp_escape_start;
                continue;
            }
            output_flag = 0;
            if (b >= 0x21 && b <= 0x5F) *code_point = b + 0xFF40;
            else *error = iso_2022_jp_error_katakana;
            return;
        case iso_2022_jp_lead:
            if (b == 0x1B) {
                current = iso_2022_jp_escape_start;
                continue;
            }
            output_flag = 0;
            if (b >= 0x21 && b <= 0x7E) {
                lead = b;
                current = iso_2022_jp_trail;
                continue;
            }
            *error = iso_2022_jp_error_lead;
            return;
        case iso_2022_jp_trail:
            if (b == 0x1B) {
                current = iso_2022_jp_escape_start;
                *error = iso_2022_jp_error_escape_in_trail;
                return;
            }
            current = iso_2022_jp_lead;
            if (b >= 0x21 && b <= 0x7E) *code_point = jis0208_value((lead - 0x21) * 94 + b - 0x21);
            if (*code_point == code_point_none) *error = iso_2022_jp_error_trail;
            return;
        case iso_2022_jp_escape_start:
            if (b == 0x24 || b == 0x28) {
                escape_lead = b;
                current = iso_2022_jp_escape;
                continue;
            }
            *consumed = (u8)(*consumed - 1);
            output_flag = 0;
            current = output_state;
            *error = iso_2022_jp_error_escape_start;
            return;
        default: { // escape
            u8 next = 0;
            if (escape_lead == 0x28) {
                if (b == 0x42) next = iso_2022_jp_ascii;
                else if (b == 0x4A) next = iso_2022_jp_roman;
                else if (b == 0x49) next = iso_2022_jp_katakana;
            } else if (escape_lead == 0x24 && (b == 0x40 || b == 0x42)) {
                next = iso_2022_jp_lead;
            }
            if (!next) {
                // An escape state without its lead byte (carried over from
                // an earlier call) gives back only the byte at hand.
                *consumed = (u8)(*consumed - (escape_lead ? 2 : 1));
                output_flag = 0;
                current = output_state;
                *error = iso_2022_jp_error_escape;
                return;
            }
            current = next;
            output_state = next;
            bool was_set = output_flag != 0;
            output_flag = 1;
            if (was_set) {
                *error = iso_2022_jp_error_two_escapes;
                return;
            }
            continue;
        }
        }
    }
    // The bytes ran out before a code point came.
    switch (current) {
    case iso_2022_jp_ascii: *error = encoding_error_end_of_input; break;
    case iso_2022_jp_trail:
        current = iso_2022_jp_lead;
        *error = iso_2022_jp_error_end_in_trail;
        break;
    case iso_2022_jp_escape_start:
    case iso_2022_jp_escape:
        current = output_state;
        *error = iso_2022_jp_error_end_in_escape;
        break;
    default: *error = encoding_error_cut; break;
    }
}
