// Helpers shared by the html tests: arenas of an exact size, decoding a
// whole byte string, tokens and trees as short strings.
#pragma once

#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "base/base_test_util.h"
#include "base/log.h"
#include "html/html.h"

namespace html_test {

inline data_t view(const std::string &s) { return data_t{s.size(), s.size(), (u8 *)s.data()}; }
inline std::string text(const data_t &d) { return d.bytes ? std::string((const char *)d.bytes, d.used) : std::string(); }

// An arena of exactly `size` bytes, in memory the sanitizer watches.
struct arena_t {
    std::vector<u8> memory;
    data_t data;
    explicit arena_t(u64 size) : memory(size ? size : 1) { data = data_t{size, 0, memory.data()}; }
};

// Every code point of `bytes` in `encoding` through the tokenizer's frame.
inline hp_reader_t reader_over(const void *bytes, u64 size) {
    hp_reader_t reader = {};
    reader.position = (const u8 *)bytes;
    reader.end = reader.position + size;
    reader.pending = code_point_none;
    return reader;
}

inline std::vector<u32> decode_all(u32 encoding, const std::string &bytes) {
    hp_reader_t reader = reader_over(bytes.data(), bytes.size());
    std::vector<u32> out;
    for (u64 guard = 0; guard < 4 * bytes.size() + 8; guard++) {
        u32 error = 0;
        u32 c = hp_decode_codepoint(&reader, encoding, &error);
        if (error) break;
        out.push_back(c);
    }
    return out;
}

// Tokens as one line each: "D0" doctype (legacy), "S:name/ a=v b" start tag
// ("/" when self-closing; "a" alone has no value), "E:name", "C:text",
// "X:text" (cdata), "T:text".
inline std::string token_string(const html_token_t &t) {
    switch (t.kind) {
    case html_token_doctype: return "D" + std::to_string(t.legacy);
    case html_token_start_tag: {
        std::string s = "S:" + text(t.text) + (t.self_closing ? "/" : "");
        for (u32 i = 0; i < t.attribute_count; i++) {
            s += " " + text(t.attributes[i].name);
            if (t.attributes[i].value.bytes) s += "=" + text(t.attributes[i].value);
        }
        return s;
    }
    case html_token_end_tag: return "E:" + text(t.text);
    case html_token_comment: return "C:" + text(t.text);
    case html_token_cdata: return "X:" + text(t.text);
    case html_token_text: return "T:" + text(t.text);
    default: return "?";
    }
}

struct tokenized_t {
    std::string tokens; // joined by "|"
    u32 error = 0;
    u32 encoding = 0;
};

inline tokenized_t tokenize(const std::string &input) {
    data_t in = view(input);
    arena_t arena(hp_tokenizer_size(&in));
    tokenized_t result;
    html_tokens_t tokens = hp_tokenizer(&arena.data, &in, 0, &result.error);
    for (u64 i = 0; i < tokens.token_count; i++) result.tokens += (i ? "|" : "") + token_string(tokens.tokens[i]);
    result.encoding = tokens.encoding;
    return result;
}

// A tree as nested text: "p(a:'x' b(...))" with attributes as [href=x].
inline void tree_string_node(const html_node_t *node, std::string &out) {
    if (node->kind == html_node_kind_text) return void(out += "'" + text(node->text) + "'");
    out += text(html_element_name(node->element));
    for (u32 i = 0; i < node->attribute_count; i++) {
        const html_node_attribute_t &a = node->attributes[i];
        out += "[" + text(html_attribute_name(a.attribute)) + (a.value.used ? "=" + text(a.value) : "") + "]";
    }
    for (u32 i = 0; i < node->child_count; i++) {
        out += i ? " " : "(";
        tree_string_node(node->children[i], out);
    }
    if (node->child_count) out += ")";
}

// Tokens and tree of `input`, with their arenas kept alive; the tree is
// built from the tokens before a tokenizer error.
struct parsed_t {
    u32 token_error = 0, tree_error = 0;
    std::string input;
    data_t in;
    arena_t token_arena;
    html_tokens_t tokens;
    arena_t tree_arena;
    html_tree_t tree;
    parsed_t(const std::string &s, u32 tolerant)
        : input(s), in(view(input)), token_arena(hp_tokenizer_size(&in)),
          tokens(hp_tokenizer(&token_arena.data, &in, 0, &token_error)), tree_arena(hp_tree_size(&tokens)),
          tree(hp_tree_construction(&tree_arena.data, &tokens, tolerant, &tree_error)) {}
    parsed_t(const parsed_t &) = delete;
    // The root's children as nested text.
    std::string shape() const {
        std::string out;
        for (u32 i = 0; tree.nodes && i < tree.nodes->child_count; i++) {
            if (i) out += " ";
            tree_string_node(tree.nodes->children[i], out);
        }
        return out;
    }
};

// A published index file: pointer -> code point.
inline std::map<u32, u32> read_index(const std::string &name) {
    std::map<u32, u32> table;
    std::istringstream lines(read_whole(std::string(TIDEWRACK_TEST_DATA) + "/html/index-" + name + ".txt"));
    std::string line;
    while (std::getline(lines, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        u32 pointer;
        std::string code_point;
        if (fields >> pointer >> code_point) table[pointer] = (u32)std::stoul(code_point, nullptr, 16);
    }
    return table;
}

} // namespace html_test
