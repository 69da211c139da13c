// json_test_util.h - just enough of a JSON reader for the tool's dumps.
#pragma once

#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

struct json_value_t {
    enum kind_t { null, boolean, number, string, array, object } kind = null;
    bool b = false;
    double n = 0;
    std::string s;
    std::vector<json_value_t> items;
    std::map<std::string, json_value_t> fields;

    const json_value_t &operator[](const std::string &key) const {
        static json_value_t missing;
        auto it = fields.find(key);
        return it == fields.end() ? missing : it->second;
    }
    const json_value_t &operator[](size_t i) const { return items.at(i); }
    size_t size() const { return kind == array ? items.size() : fields.size(); }
};

struct json_reader_t {
    const std::string &t;
    size_t p = 0;
    bool failed = false;

    void space() {
        while (p < t.size() && (t[p] == ' ' || t[p] == '\n' || t[p] == '\r' || t[p] == '\t')) p++;
    }
    bool eat(char c) {
        space();
        if (p < t.size() && t[p] == c) return ++p, true;
        return false;
    }
    static void utf8(std::string &out, unsigned c) {
        if (c < 0x80) out += (char)c;
        else if (c < 0x800) out += (char)(0xC0 | c >> 6), out += (char)(0x80 | (c & 63));
        else if (c < 0x10000)
            out += (char)(0xE0 | c >> 12), out += (char)(0x80 | ((c >> 6) & 63)), out += (char)(0x80 | (c & 63));
        else
            out += (char)(0xF0 | c >> 18), out += (char)(0x80 | ((c >> 12) & 63)),
                out += (char)(0x80 | ((c >> 6) & 63)), out += (char)(0x80 | (c & 63));
    }
    std::string string_body() {
        std::string out;
        while (p < t.size() && t[p] != '"') {
            char c = t[p++];
            if ((unsigned char)c < 0x20) failed = true;
            if (c != '\\') {
                out += c;
                continue;
            }
            char e = t[p++];
            switch (e) {
            case 'n': out += '\n'; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            case 'b': out += '\b'; break;
            case 'f': out += '\f'; break;
            case 'u': {
                unsigned c1 = std::strtoul(t.substr(p, 4).c_str(), nullptr, 16);
                p += 4;
                utf8(out, c1);
                break;
            }
            default: out += e;
            }
        }
        if (p >= t.size()) failed = true;
        p++;
        return out;
    }
    json_value_t value() {
        json_value_t v;
        space();
        if (p >= t.size()) return failed = true, v;
        char c = t[p];
        if (c == '{') {
            p++;
            v.kind = json_value_t::object;
            if (eat('}')) return v;
            do {
                if (!eat('"')) return failed = true, v;
                std::string key = string_body();
                if (!eat(':')) return failed = true, v;
                v.fields[key] = value();
            } while (eat(','));
            if (!eat('}')) failed = true;
        } else if (c == '[') {
            p++;
            v.kind = json_value_t::array;
            if (eat(']')) return v;
            do v.items.push_back(value());
            while (eat(','));
            if (!eat(']')) failed = true;
        } else if (c == '"') {
            p++;
            v.kind = json_value_t::string;
            v.s = string_body();
        } else if (t.compare(p, 4, "null") == 0) {
            p += 4;
        } else if (t.compare(p, 4, "true") == 0) {
            p += 4, v.kind = json_value_t::boolean, v.b = true;
        } else if (t.compare(p, 5, "false") == 0) {
            p += 5, v.kind = json_value_t::boolean;
        } else {
            char *end = nullptr;
            v.kind = json_value_t::number;
            v.n = std::strtod(t.c_str() + p, &end);
            if (end == t.c_str() + p) failed = true;
            p = (size_t)(end - t.c_str());
        }
        return v;
    }
};

// Parses a whole text; `ok` is false when it is not one JSON value.
inline json_value_t json_parse(const std::string &text, bool *ok) {
    json_reader_t r{text};
    json_value_t v = r.value();
    r.space();
    *ok = !r.failed && r.p == text.size();
    return v;
}
