// fuzz_decoders - any bytes in every encoding: the frame always ends, stays
// inside the input and yields scalar values; the label lookup takes any
// text. The first byte picks the encoding (and sometimes a bad number).
#include <stdlib.h>

#include "html/encoding.h"
#include "html/tokenizer.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size == 0) return 0;
    u32 encoding = bytes[0] % 44;
    const u8 *first = bytes + 1;
    const u8 *end = bytes + size;

    hp_reader_t reader = {};
    reader.position = first;
    reader.end = end;
    reader.pending = code_point_none;
    u64 steps = 0;
    for (;;) {
        u32 error = 0;
        u32 c = hp_decode_codepoint(&reader, encoding, &error);
        if (error) {
            if (error != html_tokenizer_error_eof && error != html_tokenizer_error_invalid_encoding_name) abort();
            if ((encoding == 0 || encoding > 40) != (error == html_tokenizer_error_invalid_encoding_name)) abort();
            break;
        }
        if (!unicode_is_scalar(c)) abort();
        if (reader.position < first || reader.position > end) abort();
        // Each byte gives at most two code points (Big5's pairs); escapes
        // of ISO-2022-JP may give a U+FFFD for no new byte, once.
        if (++steps > 2 * (u64)(end - first) + 2) abort();
    }

    // The same bytes one call at a time, without the frame.
    u8 state[4] = {};
    for (const u8 *p = first; p < end;) {
        u32 c, second, error = 0;
        u8 consumed = 0;
        encoding_decode(encoding, p, end, &c, &second, &consumed, state, &error);
        if (error == 1 || error == 47) break;
        if ((u64)consumed > (u64)(end - p)) abort();
        p += consumed ? consumed : 1;
    }

    encoding_label_lookup(first, (u64)(end - first));
    return 0;
}
