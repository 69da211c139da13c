// encoding.cpp - labels, and the decoding of one code point for every
// encoding: the single-byte family, UTF-8, UTF-16, replacement and
// x-user-defined here, the East Asian ones in decoders_multibyte.cpp.
#include "html/encoding.h"
#include "html/generated/html_tables.h"

// The label table: the Encoding Standard's labels by encoding, each
// encoding's labels in alphabetical order. Row 0 is never searched, and
// the rows of encoding 7 repeat those of 6 and so are never reached; both
// are kept as they are (see encoding_label_lookup).
const char *const encoding_labels[encoding_label_table_size] = {
    "unicode-1-1-utf-8", "utf-8", "utf8", "866", "cp866", "csibm866", "ibm866", "csisolatin2", "iso-8859-2",
    "iso-ir-101", "iso8859-2", "iso88592", "iso_8859-2", "iso_8859-2:1987", "l2", "latin2", "csisolatin3",
    "iso-8859-3", "iso-ir-109", "iso8859-3", "iso88593", "iso_8859-3", "iso_8859-3:1988", "l3", "latin3",
    "csisolatin4", "iso-8859-4", "iso-ir-110", "iso8859-4", "iso88594", "iso_8859-4", "iso_8859-4:1988", "l4",
    "latin4", "csisolatincyrillic", "cyrillic", "iso-8859-5", "iso-ir-144", "iso8859-5", "iso88595",
    "iso_8859-5", "iso_8859-5:1988", "csisolatincyrillic", "cyrillic", "iso-8859-5", "iso-ir-144",
    "iso8859-5", "iso88595", "iso_8859-5", "iso_8859-5:1988", "csisolatingreek", "ecma-118", "elot_928",
    "greek", "greek8", "iso-8859-7", "iso-ir-126", "iso8859-7", "iso88597", "iso_8859-7", "iso_8859-7:1987",
    "sun_eu_greek", "csiso88598e", "csisolatinhebrew", "hebrew", "iso-8859-8", "iso-8859-8-e", "iso-ir-138",
    "iso8859-8", "iso88598", "iso_8859-8", "iso_8859-8:1988", "visual", "csiso88598i", "iso-8859-8-i",
    "logical", "csisolatin6", "iso-8859-10", "iso-ir-157", "iso8859-10", "iso885910", "l6", "latin6",
    "iso-8859-13", "iso8859-13", "iso885913", "iso-8859-14", "iso8859-14", "iso885914", "csisolatin9",
    "iso-8859-15", "iso8859-15", "iso885915", "iso_8859-15", "l9", "iso-8859-16", "cskoi8r", "koi", "koi8",
    "koi8-r", "koi8_r", "koi8-ru", "koi8-u", "csmacintosh", "mac", "macintosh", "x-mac-roman", "dos-874",
    "iso-8859-11", "iso8859-11", "iso885911", "tis-620", "windows-874", "cp1250", "windows-1250", "x-cp1250",
    "cp1251", "windows-1251", "x-cp1251", "ansi_x3.4-1968", "ascii", "cp1252", "cp819", "csisolatin1",
    "ibm819", "iso-8859-1", "iso-ir-100", "iso8859-1", "iso88591", "iso_8859-1", "iso_8859-1:1987", "l1",
    "latin1", "us-ascii", "windows-1252", "x-cp1252", "cp1253", "windows-1253", "x-cp1253", "cp1254",
    "csisolatin5", "iso-8859-9", "iso-ir-148", "iso8859-9", "iso88599", "iso_8859-9", "iso_8859-9:1989", "l5",
    "latin5", "windows-1254", "x-cp1254", "cp1255", "windows-1255", "x-cp1255", "cp1256", "windows-1256",
    "x-cp1256", "cp1257", "windows-1257", "x-cp1257", "cp1258", "windows-1258", "x-cp1258", "x-mac-cyrillic",
    "x-mac-ukrainian", "chinese", "csgb2312", "csiso58gb231280", "gb2312", "gb_2312", "gb_2312-80", "gbk",
    "iso-ir-58", "x-gbk", "gb18030", "big5", "big5-hkscs", "cn-big5", "csbig5", "x-x-big5",
    "cseucpkdfmtjapanese", "euc-jp", "x-euc-jp", "csiso2022jp", "iso-2022-jp", "csshiftjis", "ms932",
    "ms_kanji", "shift-jis", "shift_jis", "sjis", "windows-31j", "x-sjis", "cseuckr", "csksc56011987",
    "euc-kr", "iso-ir-149", "korean", "ks_c_5601-1987", "ks_c_5601-1989", "ksc5601", "ksc_5601",
    "windows-949", "csiso2022kr", "hz-gb-2312", "iso-2022-cn", "iso-2022-cn-ext", "iso-2022-kr",
    "replacement", "utf-16be", "utf-16", "utf-16le", "x-user-defined",
};

const u8 encoding_label_sizes[encoding_label_table_size] = {
    17, 5, 4, 3, 5, 8, 6, 11, 10, 10, 9, 8, 10, 15, 2, 6, 11, 10, 10, 9, 8, 10, 15, 2, 6, 11, 10, 10, 9, 8,
    10, 15, 2, 6, 18, 8, 10, 10, 9, 8, 10, 15, 18, 8, 10, 10, 9, 8, 10, 15, 15, 8, 8, 5, 6, 10, 10, 9, 8, 10,
    15, 12, 11, 16, 6, 10, 12, 10, 9, 8, 10, 15, 6, 11, 12, 7, 11, 11, 10, 10, 9, 2, 6, 11, 10, 9, 11, 10, 9,
    11, 11, 10, 9, 11, 2, 11, 7, 3, 4, 6, 6, 7, 6, 11, 3, 9, 11, 7, 11, 10, 9, 7, 11, 6, 12, 8, 6, 12, 8, 14,
    5, 6, 5, 11, 6, 10, 10, 9, 8, 10, 15, 2, 6, 8, 12, 8, 6, 12, 8, 6, 11, 10, 10, 9, 8, 10, 15, 2, 6, 12, 8,
    6, 12, 8, 6, 12, 8, 6, 12, 8, 6, 12, 8, 14, 15, 7, 8, 15, 6, 7, 10, 3, 9, 5, 7, 4, 10, 7, 6, 8, 19, 6, 8,
    11, 11, 10, 5, 8, 9, 9, 4, 11, 6, 7, 13, 6, 10, 6, 14, 14, 7, 8, 11, 11, 10, 11, 15, 11, 11, 8, 6, 8, 14,
};

const u8 encoding_label_ids[encoding_label_table_size] = {
    1, 1, 1, 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4, 4, 4, 4, 5, 5, 5, 5, 5, 5, 5, 5, 5, 6,
    6, 6, 6, 6, 6, 6, 6, 7, 7, 7, 7, 7, 7, 7, 7, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 9, 9, 9, 9, 9, 9, 9, 9,
    9, 9, 9, 10, 10, 10, 11, 11, 11, 11, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 14, 14, 14, 15, 16,
    16, 16, 16, 16, 17, 17, 18, 18, 18, 18, 19, 19, 19, 19, 19, 19, 20, 20, 20, 21, 21, 21, 22, 22, 22, 22,
    22, 22, 22, 22, 22, 22, 22, 22, 22, 22, 22, 22, 22, 23, 23, 23, 24, 24, 24, 24, 24, 24, 24, 24, 24, 24,
    24, 24, 25, 25, 25, 26, 26, 26, 27, 27, 27, 28, 28, 28, 29, 29, 30, 30, 30, 30, 30, 30, 30, 30, 30, 31,
    32, 32, 32, 32, 32, 33, 33, 33, 34, 34, 35, 35, 35, 35, 35, 35, 35, 35, 36, 36, 36, 36, 36, 36, 36, 36,
    36, 36, 37, 37, 37, 37, 37, 37, 38, 39, 39, 40,
};

static const char *const encoding_names[encoding_count] = {
    "", "UTF-8", "IBM866", "ISO-8859-2", "ISO-8859-3", "ISO-8859-4", "ISO-8859-5", "ISO-8859-6", "ISO-8859-7",
    "ISO-8859-8", "ISO-8859-8-I", "ISO-8859-10", "ISO-8859-13", "ISO-8859-14", "ISO-8859-15", "ISO-8859-16",
    "KOI8-R", "KOI8-U", "macintosh", "windows-874", "windows-1250", "windows-1251", "windows-1252",
    "windows-1253", "windows-1254", "windows-1255", "windows-1256", "windows-1257", "windows-1258",
    "x-mac-cyrillic", "GBK", "gb18030", "Big5", "EUC-JP", "ISO-2022-JP", "Shift_JIS", "EUC-KR", "replacement",
    "UTF-16BE", "UTF-16LE", "x-user-defined",
};

static bool encoding_is_html_space(u8 c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0C || c == 0x0D; }

u32 encoding_label_lookup(const u8 *pointer, u64 size) {
    if (!pointer) return encoding_none;
    const u8 *first = pointer;
    const u8 *end = pointer + size;
    while (first < end && encoding_is_html_space(*first)) first++;
    while (end - first > 1 && encoding_is_html_space(end[-1])) end--;

    u8 label[128];
    u32 count = 0;
    for (const u8 *p = first; p < end && count < sizeof(label); p++) {
        u8 c = *p;
        if (c >= 127) break;
        if (c >= 'A' && c <= 'Z') c = (u8)(c + ('a' - 'A'));
        label[count++] = c;
    }
    if (count == 0) return encoding_none;

    // Row 0 ("unicode-1-1-utf-8") is left out of the search on purpose.
    for (u32 row = 1; row < encoding_label_table_size; row++) {
        if (encoding_label_sizes[row] != count) continue;
        const char *text = encoding_labels[row];
        u32 i = 0;
        while (i < count && (u8)text[i] == label[i]) i++;
        if (i == count) return encoding_label_ids[row];
    }
    return encoding_none;
}

const char *encoding_name(u32 encoding) { return encoding < encoding_count ? encoding_names[encoding] : ""; }

void encoding_decode_replacement(const u8 *first, const u8 *end, u32 *code_point, u8 *consumed, u32 *error) {
    if (*error) return;
    *code_point = code_point_none;
    *consumed = 0;
    if (first >= end) {
        *error = encoding_error_end_of_input;
        return;
    }
    // The standard gives one U+FFFD for the whole stream; here each byte
    // gives one, as the "already reported" flag lives only for one call.
    *consumed = 1;
    *error = encoding_error_replacement;
}

void encoding_decode(u32 encoding, const u8 *first, const u8 *end, u32 *code_point, u32 *second, u8 *consumed,
                     u8 *decoder_state, u32 *error) {
    if (*error) return;
    assert_true(code_point && consumed);
    if (second) *second = code_point_none;
    *code_point = code_point_none;
    *consumed = 0;
    if (encoding == encoding_none || encoding >= encoding_count) {
        *error = encoding_error_unknown_encoding;
        return;
    }
    const u16 *table = encoding_single_byte_tables[encoding];
    if (table) {
        if (first >= end) {
            *error = encoding_error_end_of_input;
            return;
        }
        u8 b = *first;
        *consumed = 1;
        if (b < 0x80) {
            *code_point = b;
        } else if (table[b - 0x80]) {
            *code_point = table[b - 0x80];
        } else {
            *error = encoding_error_single_byte_unmapped;
        }
        return;
    }
    switch (encoding) {
    case encoding_utf8:
        utf8_decode(first, end, code_point, consumed, error);
        // One U+FFFD for each bad byte: the caller steps over one byte only.
        if (*error && *error != encoding_error_end_of_input) *consumed = 1;
        return;
    case encoding_utf16be:
    case encoding_utf16le: {
        u8 units = 0;
        if (first >= end) {
            *error = encoding_error_end_of_input;
            return;
        }
        utf16_decode(first, end, code_point, &units, encoding == encoding_utf16be, error);
        // A lone last byte counts as the end of the input.
        *consumed = *error ? 2 : (u8)(units * 2);
        return;
    }
    case encoding_x_user_defined:
        if (first >= end) {
            *error = encoding_error_end_of_input;
            return;
        }
        *consumed = 1;
        *code_point = *first < 0x80 ? *first : *first + 0xF700u;
        return;
    case encoding_replacement:
        encoding_decode_replacement(first, end, code_point, consumed, error);
        return;
    case encoding_gbk:
    case encoding_gb18030:
        encoding_decode_gb18030(first, end, code_point, consumed, error);
        return;
    case encoding_big5: {
        assert_true(second);
        encoding_decode_big5(first, end, code_point, second, consumed, error);
        return;
    }
    case encoding_euc_jp:
        encoding_decode_euc_jp(first, end, code_point, consumed, error);
        return;
    case encoding_iso_2022_jp:
        assert_true(decoder_state);
        encoding_decode_iso_2022_jp(first, end, code_point, consumed, decoder_state, error);
        return;
    case encoding_shift_jis:
        encoding_decode_shift_jis(first, end, code_point, consumed, error);
        return;
    case encoding_euc_kr:
        encoding_decode_euc_kr(first, end, code_point, consumed, error);
        return;
    default:
        *error = encoding_error_unknown_encoding;
        return;
    }
}
