// base_bench - utf8_decode over 100 MB of mixed text beside a plain byte sum
// over the same bytes (what memory alone allows), and date_parse_rfc822 per
// call on the shapes feeds send.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "base/dates.h"
#include "base/memory.h"

// Mostly ASCII prose with Latin accents, Greek, CJK and emoji mixed in, the
// way feed text is: about 80% one-byte, the rest two to four bytes.
static const std::string &mixed_text() {
    static std::string text;
    if (!text.empty()) return text;
    const char *pieces[] = {"The tide brought ", "caf\xC3\xA9 ", "na\xC3\xAFve ", "\xCE\xBA\xCF\x8C\xCF\x83\xCE\xBC\xCE\xBF\xCF\x82 ",
                            "\xE6\x96\xB0\xE8\x81\x9E ", "wreckage to the shore, ", "\xF0\x9F\x93\xB0 ", "and readers ",
                            "followed the feeds. ", "\xE2\x82\xAC" "12 ", "Stra\xC3\x9F" "e ", "<p>markup</p> "};
    const size_t size = 100u << 20;
    text.reserve(size + 64);
    unsigned seed = 1;
    while (text.size() < size) {
        seed = seed * 1103515245u + 12345u;
        text += pieces[(seed >> 16) % (sizeof(pieces) / sizeof(pieces[0]))];
    }
    text.resize(size);
    return text;
}

static void BM_utf8_decode_100MB(benchmark::State &state) {
    const std::string &text = mixed_text();
    const u8 *begin = (const u8 *)text.data(), *end = begin + text.size();
    for (auto _ : state) {
        u64 sum = 0, errors = 0;
        for (const u8 *p = begin; p < end;) {
            u32 code_point, error = 0;
            u8 size;
            utf8_decode(p, end, &code_point, &size, &error);
            errors += error != 0;
            sum += code_point;
            p += size ? size : 1;
        }
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(errors);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_utf8_decode_100MB)->Unit(benchmark::kMillisecond);

// The same sum through the whole-buffer decoder, a block of code points at a
// time.
static void BM_utf8_decode_buffer_100MB(benchmark::State &state) {
    const std::string &text = mixed_text();
    const u8 *begin = (const u8 *)text.data(), *end = begin + text.size();
    static u32 block[4096];
    for (auto _ : state) {
        u32 sum = 0, errors = 0; // wrapping: only that every code point is read counts
        for (const u8 *p = begin; p < end;) {
            u64 count = utf8_decode_buffer(p, end, block, 4096, &p);
            for (u64 i = 0; i < count; i++) {
                errors += block[i] == 0xFFFFFFFFu;
                sum += block[i];
            }
        }
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(errors);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_utf8_decode_buffer_100MB)->Unit(benchmark::kMillisecond);

static void BM_byte_sum_100MB(benchmark::State &state) {
    const std::string &text = mixed_text();
    const u8 *begin = (const u8 *)text.data(), *end = begin + text.size();
    for (auto _ : state) {
        u64 sum = 0;
        for (const u8 *p = begin; p < end; p++) sum += *p;
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)text.size());
}
BENCHMARK(BM_byte_sum_100MB)->Unit(benchmark::kMillisecond);

static void BM_date_parse_rfc822(benchmark::State &state) {
    const std::vector<std::string> dates = {
        "Mon, 23 Nov 2026 04:15:00 GMT", "Tue, 01 Dec 2026 18:30:45 +0100", "2 Jan 2026 07:05:09 -0500",
        "Sun, 29 Feb 2032 23:59:59 PST", "Wed, 5 Aug 2026 12:00 EDT",       "not a date at all"};
    std::vector<data_t> views;
    for (const std::string &d : dates) views.push_back(data_t{d.size(), d.size(), (u8 *)d.data()});
    size_t i = 0;
    for (auto _ : state) {
        date_t date = date_parse_rfc822(&views[i]);
        benchmark::DoNotOptimize(date);
        if (++i == views.size()) i = 0;
    }
}
BENCHMARK(BM_date_parse_rfc822);

static void BM_date_parse_rfc3339(benchmark::State &state) {
    const std::vector<std::string> dates = {"2026-11-23T04:15:00Z", "2026-11-23T04:15:00.123+01:00",
                                            "2003-12-13T18:30:02-05:00"};
    std::vector<data_t> views;
    for (const std::string &d : dates) views.push_back(data_t{d.size(), d.size(), (u8 *)d.data()});
    size_t i = 0;
    for (auto _ : state) {
        date_t date = date_parse_rfc3339(&views[i]);
        benchmark::DoNotOptimize(date);
        if (++i == views.size()) i = 0;
    }
}
BENCHMARK(BM_date_parse_rfc3339);

BENCHMARK_MAIN();
