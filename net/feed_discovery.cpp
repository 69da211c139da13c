// feed_discovery.cpp - feed links of HTML pages, and address resolution.
#include "net/feed_discovery.h"

#include "base/text.h"
#include "html/tokenizer.h"
#include "net/http.h"

// ---- addresses -------------------------------------------------------------------------------------

// The parts of an address: [scheme:][//authority]path[?query][#fragment].
struct feed_discovery_url_t {
    data_t scheme; // without ":"
    data_t authority;
    data_t path;
    data_t query;    // with "?"
    data_t fragment; // with "#"
    bool has_authority;
};

static feed_discovery_url_t feed_discovery_split(const data_t *text) {
    feed_discovery_url_t url = {};
    const u8 *p = text->bytes, *end = p + text->used;
    const u8 *q = p;
    while (q < end && (char_is_ascii_alpha(*q) || (q > p && (char_is_ascii_digit(*q) || *q == '+' || *q == '-' ||
                                                              *q == '.'))))
        q++;
    if (q > p && q < end && *q == ':') url.scheme = data_from_range(p, q), p = q + 1;
    if (end - p >= 2 && p[0] == '/' && p[1] == '/') {
        url.has_authority = true;
        q = p + 2;
        while (q < end && *q != '/' && *q != '?' && *q != '#') q++;
        url.authority = data_from_range(p + 2, q);
        p = q;
    }
    q = p;
    while (q < end && *q != '?' && *q != '#') q++;
    url.path = data_from_range(p, q);
    p = q;
    if (p < end && *p == '?') {
        while (q < end && *q != '#') q++;
        url.query = data_from_range(p, q);
        p = q;
    }
    url.fragment = data_from_range(p, end);
    return url;
}

struct feed_discovery_out_t {
    u8 bytes[http_url_capacity];
    u64 used;
    bool cut;
};

static void feed_discovery_put(feed_discovery_out_t *out, const u8 *bytes, u64 size) {
    if (size > sizeof(out->bytes) - out->used) {
        out->cut = true;
        return;
    }
    memory_copy(out->bytes + out->used, bytes, size);
    out->used += size;
}

static void feed_discovery_put_data(feed_discovery_out_t *out, const data_t *data) {
    feed_discovery_put(out, data->bytes, data->used);
}

// Appends `path` to `out` with its "." and ".." segments removed.
static void feed_discovery_put_path(feed_discovery_out_t *out, const u8 *path, u64 size) {
    u64 start = out->used; // the path's output begins here
    const u8 *p = path, *end = path + size;
    auto is = [&](const char *text) {
        u64 n = string_length(text);
        return (u64)(end - p) >= n && memory_equal(p, n, text, n);
    };
    auto drop_last = [&]() {
        while (out->used > start && out->bytes[out->used - 1] != '/') out->used--;
        if (out->used > start) out->used--;
    };
    while (p < end && !out->cut) {
        if (is("../")) p += 3;
        else if (is("./")) p += 2;
        else if (is("/./")) p += 2;
        else if (end - p == 2 && is("/.")) p += 1, feed_discovery_put(out, (const u8 *)"/", 1), p = end;
        else if (is("/../")) p += 3, drop_last();
        else if (end - p == 3 && is("/..")) drop_last(), feed_discovery_put(out, (const u8 *)"/", 1), p = end;
        else if ((end - p == 1 && is(".")) || (end - p == 2 && is(".."))) p = end;
        else {
            const u8 *q = p + (*p == '/' ? 1 : 0); // a segment with the slash before it
            while (q < end && *q != '/') q++;
            feed_discovery_put(out, p, (u64)(q - p));
            p = q;
        }
    }
}

data_t feed_discovery_resolve(data_t *memory, const data_t *base_text, const data_t *reference) {
    feed_discovery_url_t base = feed_discovery_split(base_text);
    feed_discovery_url_t ref = feed_discovery_split(reference);
    if (!base.scheme.used) return data_t{};
    feed_discovery_out_t out;
    out.used = 0;
    out.cut = false;
    const feed_discovery_url_t *authority = ref.has_authority || ref.scheme.used ? &ref : &base;
    feed_discovery_put_data(&out, ref.scheme.used ? &ref.scheme : &base.scheme);
    feed_discovery_put(&out, (const u8 *)":", 1);
    if (authority->has_authority) {
        feed_discovery_put(&out, (const u8 *)"//", 2);
        feed_discovery_put_data(&out, &authority->authority);
    }
    const data_t *query = &ref.query;
    if (ref.scheme.used || ref.has_authority) {
        feed_discovery_put_path(&out, ref.path.bytes, ref.path.used);
    } else if (ref.path.used == 0) {
        feed_discovery_put_data(&out, &base.path);
        if (!ref.query.used) query = &base.query;
    } else if (ref.path.bytes[0] == '/') {
        feed_discovery_put_path(&out, ref.path.bytes, ref.path.used);
    } else {
        // The base's path up to its last "/", then the reference.
        u8 merged[http_url_capacity];
        u64 size = 0;
        if (base.has_authority && base.path.used == 0) merged[size++] = '/';
        u64 keep = base.path.used;
        while (keep > 0 && base.path.bytes[keep - 1] != '/') keep--;
        if (size + keep + ref.path.used > sizeof(merged)) return data_t{};
        memory_copy(merged + size, base.path.bytes, keep);
        memory_copy(merged + size + keep, ref.path.bytes, ref.path.used);
        feed_discovery_put_path(&out, merged, size + keep + ref.path.used);
    }
    feed_discovery_put_data(&out, query);
    feed_discovery_put_data(&out, &ref.fragment);
    if (out.cut) return data_t{};
    u8 *copy = (u8 *)data_push(memory, out.used, 1);
    if (!copy) return data_t{};
    memory_copy(copy, out.bytes, out.used);
    return data_t{out.used, out.used, copy};
}

// ---- the page -----------------------------------------------------------------------------------------

static bool feed_discovery_equal(const data_t *a, const char *literal) {
    u64 n = string_length(literal);
    if (a->used != n) return false;
    for (u64 i = 0; i < n; i++) {
        if (char_to_ascii_lower(a->bytes[i]) != (u32)(u8)literal[i]) return false;
    }
    return true;
}

// Whether a space-separated list holds `word` (any case).
static bool feed_discovery_has_word(const data_t *list, const char *word) {
    const u8 *p = list->bytes, *end = p + list->used;
    while (p < end) {
        while (p < end && char_is_space(*p)) p++;
        const u8 *q = p;
        while (q < end && !char_is_space(*q)) q++;
        data_t piece = data_from_range(p, q);
        if (q > p && feed_discovery_equal(&piece, word)) return true;
        p = q;
    }
    return false;
}

static data_t feed_discovery_trim(data_t text) {
    while (text.used && char_is_space(text.bytes[0])) text.bytes++, text.used--;
    while (text.used && char_is_space(text.bytes[text.used - 1])) text.used--;
    return text;
}

static const data_t *feed_discovery_attribute(const html_token_t *token, const char *name) {
    for (u32 i = 0; i < token->attribute_count; i++) {
        if (feed_discovery_equal(&token->attributes[i].name, name)) return &token->attributes[i].value;
    }
    return nullptr;
}

// The href of a `link` that names a feed, or null.
static const data_t *feed_discovery_feed_href(const html_token_t *token) {
    const data_t *rel = feed_discovery_attribute(token, "rel");
    const data_t *href = feed_discovery_attribute(token, "href");
    if (!rel || !href || !href->bytes) return nullptr;
    if (feed_discovery_has_word(rel, "feed")) return href;
    if (!feed_discovery_has_word(rel, "alternate")) return nullptr;
    const data_t *type = feed_discovery_attribute(token, "type");
    if (!type || !type->bytes) return nullptr;
    data_t kind = *type;
    for (u64 i = 0; i < kind.used; i++) {
        if (kind.bytes[i] == ';') kind.used = i;
    }
    kind = feed_discovery_trim(kind);
    bool named = feed_discovery_equal(&kind, "application/rss+xml") || feed_discovery_equal(&kind, "application/atom+xml") ||
                 feed_discovery_equal(&kind, "application/feed+json");
    return named ? href : nullptr;
}

static bool feed_discovery_is_tag(const html_token_t *token, const char *name) {
    return token->kind == html_token_start_tag && feed_discovery_equal(&token->text, name);
}

feed_discovery_t feed_discovery_find(data_t *memory, const data_t *page, const data_t *page_url) {
    feed_discovery_t result = {};
    // Room for the addresses first; the tokens take what is left, and a
    // page larger than that is read up to what fits.
    const u64 address_room = feed_discovery_capacity * http_url_capacity * 2 + http_url_capacity;
    if (memory->reserved < memory->used + address_room) return result;
    data_t work = data_block_view_rest(memory);
    work.reserved -= address_room;
    data_t input = *page;
    while (input.used && hp_tokenizer_size(&input) > work.reserved) input.used /= 2;
    if (!input.used) return result;
    u32 error = 0;
    html_tokens_t tokens = hp_tokenizer(&work, &input, hp_flag_no_space_after_attribute, &error);
    // The tokens stand as far as the first mistake: what came before is read.
    memory->used += work.used;

    data_t base = *page_url;
    for (u64 i = 0; i < tokens.token_count; i++) {
        const html_token_t *token = &tokens.tokens[i];
        if (!feed_discovery_is_tag(token, "base")) continue;
        const data_t *href = feed_discovery_attribute(token, "href");
        if (!href || !href->bytes) continue;
        data_t trimmed = feed_discovery_trim(*href);
        data_t resolved = feed_discovery_resolve(memory, page_url, &trimmed);
        if (resolved.used) base = resolved;
        break; // the first base with an address counts
    }
    for (u64 i = 0; i < tokens.token_count; i++) {
        const html_token_t *token = &tokens.tokens[i];
        if (!feed_discovery_is_tag(token, "link")) continue;
        const data_t *href = feed_discovery_feed_href(token);
        if (!href) continue;
        data_t trimmed = feed_discovery_trim(*href);
        if (!trimmed.used) continue;
        u64 mark = memory->used;
        data_t resolved = feed_discovery_resolve(memory, &base, &trimmed);
        bool repeat = !resolved.used;
        for (u64 k = 0; k < result.count && !repeat; k++) {
            repeat = memory_equal(result.links[k].bytes, result.links[k].used, resolved.bytes, resolved.used);
        }
        if (repeat || result.count == feed_discovery_capacity) memory->used = mark;
        if (repeat) continue;
        result.found++;
        if (result.count < feed_discovery_capacity) result.links[result.count++] = resolved;
    }
    return result;
}
