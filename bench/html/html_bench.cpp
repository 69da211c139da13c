// html_bench - MB/s of our tokenizer and tree on generated articles of 1 MB
// and 10 MB, beside libgumbo parsing the same bytes, and of the decoders.
#include <benchmark/benchmark.h>
#include <gumbo.h>

#include <string>
#include <vector>

#include "html/html.h"

// A realistic article: headings, paragraphs with links, emphasis and
// entities, images, lists, quotes and code, repeated to `size` bytes.
static std::string make_article(size_t size) {
    static const char *words[] = {"the",   "river",  "brought", "wreckage", "after", "storm",  "tide",   "reader",
                                  "feeds", "offline", "quiet",  "harbour",  "north", "lantern", "gull",  "ledger",
                                  "salt",  "rope",   "morning", "keeper",   "drift", "shore",  "window", "archive"};
    std::string out = "<!doctype html>\n<html><head><meta charset=\"utf-8\"><title>Tidewrack &amp; friends</title>"
                      "</head><body>\n<article>\n";
    unsigned seed = 7;
    auto next = [&seed](unsigned n) {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 16) % n;
    };
    auto sentence = [&](std::string &s) {
        unsigned count = 8 + next(14);
        for (unsigned i = 0; i < count; i++) {
            if (i) s += ' ';
            switch (next(40)) {
            case 0: s += "<a href=\"https://example.org/" + std::string(words[next(24)]) + "?id=" +
                         std::to_string(next(99999)) + "&amp;ref=feed\">" + words[next(24)] + "</a>";
                break;
            case 1: s += std::string("<em>") + words[next(24)] + "</em>"; break;
            case 2: s += std::string("<strong>") + words[next(24)] + "</strong>"; break;
            case 3: s += "&mdash;"; break;
            case 4: s += std::string(words[next(24)]) + "&#8217;s"; break;
            case 5: s += "caf\xC3\xA9"; break;
            case 6: s += "&lt;tag&gt;"; break;
            default: s += words[next(24)]; break;
            }
        }
        s += ". ";
    };
    while (out.size() < size) {
        switch (next(10)) {
        case 0: out += "<h2 id=\"s" + std::to_string(next(1000)) + "\">"; sentence(out); out += "</h2>\n"; break;
        case 1:
            out += "<p><img src=\"https://example.org/images/" + std::to_string(next(100000)) +
                   ".jpg\" alt=\"A picture of the " + words[next(24)] + "\" width=\"640\" height=\"480\"></p>\n";
            break;
        case 2:
            out += "<ul>\n";
            for (unsigned i = 0, n = 2 + next(4); i < n; i++) {
                out += "  <li>";
                sentence(out);
                out += "</li>\n";
            }
            out += "</ul>\n";
            break;
        case 3: out += "<blockquote><p>"; sentence(out); out += "</p></blockquote>\n"; break;
        case 4: out += "<pre><code>if (a &lt; b) {\n    return a;\n}</code></pre>\n"; break;
        default:
            out += "<p class=\"body\">";
            for (unsigned i = 0, n = 2 + next(5); i < n; i++) sentence(out);
            out += "</p>\n";
            break;
        }
    }
    out += "</article>\n</body></html>\n";
    return out;
}

static const std::string &article(size_t megabytes) {
    static std::string one = make_article(1 << 20), ten = make_article(10 << 20);
    return megabytes == 1 ? one : ten;
}

static void BM_tidewrack_tokens_and_tree(benchmark::State &state) {
    const std::string &input = article((size_t)state.range(0));
    data_t in = {input.size(), input.size(), (u8 *)input.data()};
    std::vector<u8> memory(html_parse_document_size(&in));
    for (auto _ : state) {
        data_t arena = {memory.size(), 0, memory.data()};
        u32 error = 0;
        html_document_t doc = html_parse_document(&arena, &in, 1, &error);
        if (error) state.SkipWithError("the article did not parse");
        benchmark::DoNotOptimize(doc.tree.node_count);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)input.size());
}

static void BM_tidewrack_tokens(benchmark::State &state) {
    const std::string &input = article((size_t)state.range(0));
    data_t in = {input.size(), input.size(), (u8 *)input.data()};
    std::vector<u8> memory(hp_tokenizer_size(&in));
    for (auto _ : state) {
        data_t arena = {memory.size(), 0, memory.data()};
        u32 error = 0;
        html_tokens_t tokens = hp_tokenizer(&arena, &in, 0, &error);
        benchmark::DoNotOptimize(tokens.token_count);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)input.size());
}

static void BM_gumbo(benchmark::State &state) {
    const std::string &input = article((size_t)state.range(0));
    for (auto _ : state) {
        GumboOutput *output = gumbo_parse_with_options(&kGumboDefaultOptions, input.data(), input.size());
        benchmark::DoNotOptimize(output->root);
        gumbo_destroy_output(&kGumboDefaultOptions, output);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)input.size());
}

static void BM_decode(benchmark::State &state) {
    u32 encoding = (u32)state.range(0);
    std::string input;
    if (encoding == encoding_utf8) input = article(1);
    else if (encoding == encoding_windows_1252) for (int i = 0; i < (1 << 20); i++) input += (char)(i * 7 % 256);
    else for (int i = 0; input.size() < (1 << 20); i++) input += "\xA4\x40\xB0\xA1 text ";
    for (auto _ : state) {
        hp_reader_t reader = {};
        reader.position = (const u8 *)input.data();
        reader.end = reader.position + input.size();
        reader.pending = code_point_none;
        u32 error = 0, sum = 0;
        while (!error) sum += hp_decode_codepoint(&reader, encoding, &error);
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)input.size());
}

BENCHMARK(BM_tidewrack_tokens_and_tree)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_tidewrack_tokens)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_gumbo)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_decode)->Arg(encoding_utf8)->Arg(encoding_windows_1252)->Arg(encoding_big5)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
