// utf8_buffer.cpp - decoding a whole UTF-8 range at once, with 512-bit
// vectors where the processor has them. The result is always the one that
// utf8_decode gives sequence by sequence, stepping one byte after an error.
#include <immintrin.h>

#include "base/memory.h"
#include "os/os_core.h"

u64 utf8_decode_buffer_scalar(const u8 *first, const u8 *end, u32 *out, u64 capacity, const u8 **next) {
    const u8 *p = first;
    u64 count = 0;
    while (p < end && count < capacity) {
        // Eight plain ASCII bytes at once.
        if (end - p >= 8 && capacity - count >= 8) {
            u64 word;
            __builtin_memcpy(&word, p, 8);
            if ((word & 0x8080808080808080ull) == 0) {
                for (int i = 0; i < 8; i++) out[count + i] = p[i];
                count += 8;
                p += 8;
                continue;
            }
        }
        u32 code_point = 0, error = 0;
        u8 size = 0;
        utf8_decode(p, end, &code_point, &size, &error);
        out[count++] = error ? 0xFFFFFFFFu : code_point;
        p += error ? 1 : size;
    }
    *next = p;
    return count;
}

#define UTF8_AVX512 __attribute__((target("avx512f,avx512bw,popcnt,bmi")))

// One window of 64 bytes that starts a sequence. Returns the bytes taken (0
// when the window holds anything but whole valid sequences, which are then
// left to the scalar decoder), and adds the code points written to *count.
// `p + 67 <= end` and room for 64 code points are the caller's.
UTF8_AVX512 static u64 utf8_window_avx512(const u8 *p, u32 *out, u64 *count) {
    __m512i v = _mm512_loadu_si512(p);
    u64 high = _mm512_movepi8_mask(v);
    if (high == 0) {
        for (int g = 0; g < 4; g++)
            _mm512_storeu_si512(out + 16 * g, _mm512_cvtepu8_epi32(_mm_loadu_si128((const __m128i *)(p + 16 * g))));
        *count += 64;
        return 64;
    }
#define at_least(value) ((u64)_mm512_cmpge_epu8_mask(v, _mm512_set1_epi8((char)(value))))
#define equal(value) ((u64)_mm512_cmpeq_epi8_mask(v, _mm512_set1_epi8((char)(value))))
    u64 lead = at_least(0xC0);
    u64 continuation = high & ~lead;
    u64 from_c2 = at_least(0xC2), from_e0 = at_least(0xE0), from_f0 = at_least(0xF0), from_f5 = at_least(0xF5);
    u64 lead2 = from_c2 & ~from_e0, lead3 = from_e0 & ~from_f0, lead4 = from_f0 & ~from_f5;
    // Each lead asks for its continuation bytes right behind it, and no
    // other byte may be one; C0, C1 and F5 to FF lead nothing.
    u64 expected = ((lead2 | lead3 | lead4) << 1) | ((lead3 | lead4) << 2) | (lead4 << 3);
    u64 wrong = (expected ^ continuation) | (lead & ~from_c2) | from_f5;
    // The narrower second byte after E0, ED, F0 and F4.
    wrong |= (equal(0xE0) << 1) & ~at_least(0xA0);
    wrong |= (equal(0xED) << 1) & at_least(0xA0);
    wrong |= (equal(0xF0) << 1) & ~at_least(0x90);
    wrong |= (equal(0xF4) << 1) & at_least(0x90);
#undef at_least
#undef equal
    if (wrong) return 0;
    // A sequence cut by the window's end is left for the next window.
    u64 cut = (lead2 & (1ull << 63)) | (lead3 & (3ull << 62)) | (lead4 & (7ull << 61));
    u64 taken = cut ? (u64)__builtin_ctzll(cut) : 64;
    u64 starts = ~continuation & (taken == 64 ? ~0ull : (1ull << taken) - 1);

    const __m512i low6 = _mm512_set1_epi32(0x3F);
    u32 *o = out;
    for (int g = 0; g < 4 && 16 * (u64)g < taken; g++) {
        const u8 *q = p + 16 * g;
        __mmask16 keep = (__mmask16)(starts >> (16 * g));
        __m512i b0 = _mm512_cvtepu8_epi32(_mm_loadu_si128((const __m128i *)q));
        __m512i b1 = _mm512_and_si512(_mm512_cvtepu8_epi32(_mm_loadu_si128((const __m128i *)(q + 1))), low6);
        __mmask16 two = (__mmask16)(lead2 >> (16 * g)), three = (__mmask16)(lead3 >> (16 * g)),
                  four = (__mmask16)(lead4 >> (16 * g));
        __m512i value = b0;
        value = _mm512_mask_mov_epi32(
            value, two,
            _mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(b0, _mm512_set1_epi32(0x1F)), 6), b1));
        if (three | four) {
            __m512i b2 = _mm512_and_si512(_mm512_cvtepu8_epi32(_mm_loadu_si128((const __m128i *)(q + 2))), low6);
            __m512i pair = _mm512_or_si512(_mm512_slli_epi32(b1, 6), b2);
            value = _mm512_mask_mov_epi32(
                value, three,
                _mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(b0, _mm512_set1_epi32(0x0F)), 12), pair));
            if (four) {
                __m512i b3 = _mm512_and_si512(_mm512_cvtepu8_epi32(_mm_loadu_si128((const __m128i *)(q + 3))), low6);
                __m512i rest = _mm512_or_si512(_mm512_slli_epi32(pair, 6), b3);
                value = _mm512_mask_mov_epi32(
                    value, four,
                    _mm512_or_si512(_mm512_slli_epi32(_mm512_and_si512(b0, _mm512_set1_epi32(0x07)), 18), rest));
            }
        }
        _mm512_storeu_si512(o, _mm512_maskz_compress_epi32(keep, value));
        o += __builtin_popcount(keep);
    }
    *count += (u64)(o - out);
    return taken;
}

UTF8_AVX512 static u64 utf8_decode_buffer_avx512(const u8 *first, const u8 *end, u32 *out, u64 capacity,
                                                 const u8 **next) {
    const u8 *p = first;
    u64 count = 0;
    while (end - p >= 67 && capacity - count >= 64) {
        u64 taken = utf8_window_avx512(p, out + count, &count);
        if (taken) {
            p += taken;
            continue;
        }
        // Something invalid in the window: its sequences one at a time.
        const u8 *stop = p + 64;
        while (p < stop) {
            u32 code_point = 0, error = 0;
            u8 size = 0;
            utf8_decode(p, end, &code_point, &size, &error);
            out[count++] = error ? 0xFFFFFFFFu : code_point;
            p += error ? 1 : size;
        }
    }
    // Leave the vector registers clean, or the plain code after this pays
    // for their upper halves on every instruction.
    _mm256_zeroupper();
    const u8 *rest = p;
    count += utf8_decode_buffer_scalar(rest, end, out + count, capacity - count, next);
    return count;
}

static bool utf8_vectors() {
    static int vectors = -1; // decided on the first call
    if (vectors < 0) vectors = os_cpu_has_avx512bw() ? 1 : 0;
    return vectors == 1;
}

u64 utf8_decode_buffer(const u8 *first, const u8 *end, u32 *out, u64 capacity, const u8 **next) {
    if (utf8_vectors()) return utf8_decode_buffer_avx512(first, end, out, capacity, next);
    return utf8_decode_buffer_scalar(first, end, out, capacity, next);
}

UTF8_AVX512 static const u8 *utf8_skip_printable_avx512(const u8 *p, const u8 *end) {
    const __m512i low = _mm512_set1_epi8(0x20), high = _mm512_set1_epi8(0x7E);
    while (end - p >= 64) {
        __m512i v = _mm512_loadu_si512(p);
        u64 other = _mm512_cmplt_epu8_mask(v, low) | _mm512_cmpgt_epu8_mask(v, high);
        if (other) {
            _mm256_zeroupper();
            return p + __builtin_ctzll(other);
        }
        p += 64;
    }
    _mm256_zeroupper();
    return p;
}

const u8 *utf8_skip_printable_ascii(const u8 *first, const u8 *end) {
    const u8 *p = first;
    if (utf8_vectors()) p = utf8_skip_printable_avx512(p, end);
    // Eight bytes at a time: a byte below 0x20, or above 0x7E, sets its top bit.
    const u64 ones = 0x0101010101010101ull, tops = 0x8080808080808080ull;
    while (end - p >= 8) {
        u64 word;
        __builtin_memcpy(&word, p, 8);
        u64 other = ((word - ones * 0x20) & ~word) | ((word + ones * (0x7F - 0x7E)) | word);
        if (other & tops) break;
        p += 8;
    }
    while (p < end && *p >= 0x20 && *p <= 0x7E) p++;
    return p;
}
