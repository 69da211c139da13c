// tree.cpp - tree construction from the tokens, the element and attribute
// tables, node access and the non-recursive walk.
#include "html/tree.h"
#include "base/log.h"
#include "base/profiler.h"

struct html_element_info_t {
    const char *name;
    u8 name_size;
    u8 allowed_count;  // attributes beyond the global ones
    u8 allowed_offset; // into html_element_allowed_attributes
    u8 flags;
};

static const html_element_info_t html_elements[html_element_count] = {
    {"invalid", 7, 0, 0, 0},
    {"html", 4, 1, 0, 0},
    {"head", 4, 0, 0, 0},
    {"title", 5, 0, 0, 0},
    {"base", 4, 2, 1, html_element_void},
    {"link", 4, 10, 3, html_element_inline | html_element_void},
    {"meta", 4, 4, 13, html_element_void},
    {"style", 5, 3, 17, 0},
    {"body", 4, 15, 20, 0},
    {"article", 7, 0, 0, 0},
    {"section", 7, 0, 0, 0},
    {"nav", 3, 0, 0, 0},
    {"aside", 5, 0, 0, 0},
    {"h1", 2, 0, 0, 0},
    {"h2", 2, 0, 0, 0},
    {"h3", 2, 0, 0, 0},
    {"h4", 2, 0, 0, 0},
    {"h5", 2, 0, 0, 0},
    {"h6", 2, 0, 0, 0},
    {"header", 6, 0, 0, 0},
    {"footer", 6, 0, 0, 0},
    {"p", 1, 0, 0, 0},
    {"address", 7, 0, 0, 0},
    {"hr", 2, 0, 0, html_element_void},
    {"pre", 3, 0, 0, 0},
    {"blockquote", 10, 1, 35, 0},
    {"ol", 2, 3, 36, 0},
    {"ul", 2, 0, 0, 0},
    {"li", 2, 1, 39, 0},
    {"dl", 2, 0, 0, 0},
    {"dt", 2, 0, 0, 0},
    {"dd", 2, 0, 0, 0},
    {"figure", 6, 0, 0, 0},
    {"figcaption", 10, 0, 0, 0},
    {"main", 4, 0, 0, 0},
    {"div", 3, 0, 0, 0},
    {"a", 1, 8, 40, html_element_inline},
    {"em", 2, 0, 0, html_element_inline},
    {"strong", 6, 0, 0, html_element_inline},
    {"small", 5, 0, 0, html_element_inline},
    {"s", 1, 0, 0, html_element_inline},
    {"cite", 4, 0, 0, html_element_inline},
    {"q", 1, 1, 48, html_element_inline},
    {"dfn", 3, 0, 0, html_element_inline},
    {"abbr", 4, 0, 0, html_element_inline},
    {"ruby", 4, 0, 0, html_element_inline},
    {"rb", 2, 0, 0, 0},
    {"rt", 2, 0, 0, 0},
    {"rtc", 3, 0, 0, 0},
    {"rp", 2, 0, 0, 0},
    {"data", 4, 1, 49, html_element_inline},
    {"time", 4, 1, 50, html_element_inline},
    {"code", 4, 0, 0, html_element_inline},
    {"var", 3, 0, 0, html_element_inline},
    {"samp", 4, 0, 0, html_element_inline},
    {"kbd", 3, 0, 0, html_element_inline},
    {"sub", 3, 0, 0, html_element_inline},
    {"sup", 3, 0, 0, html_element_inline},
    {"i", 1, 0, 0, html_element_inline},
    {"b", 1, 0, 0, html_element_inline},
    {"u", 1, 0, 0, html_element_inline},
    {"mark", 4, 0, 0, html_element_inline},
    {"bdi", 3, 0, 0, html_element_inline},
    {"bdo", 3, 0, 0, html_element_inline},
    {"span", 4, 0, 0, html_element_inline},
    {"br", 2, 0, 0, html_element_inline | html_element_void},
    {"wbr", 3, 0, 0, html_element_inline | html_element_void},
    {"ins", 3, 2, 51, html_element_inline},
    {"del", 3, 2, 53, html_element_inline},
    {"picture", 7, 0, 0, html_element_inline},
    {"source", 6, 5, 55, html_element_void},
    {"img", 3, 11, 60, html_element_inline | html_element_void},
    {"iframe", 6, 9, 71, html_element_inline},
    {"embed", 5, 4, 80, html_element_inline | html_element_void},
    {"object", 6, 7, 84, html_element_inline},
    {"param", 5, 2, 91, html_element_void},
    {"video", 5, 10, 93, html_element_inline},
    {"audio", 5, 7, 103, html_element_inline},
    {"track", 5, 5, 110, html_element_void},
    {"map", 3, 1, 115, html_element_inline},
    {"area", 4, 10, 116, html_element_inline | html_element_void},
    {"math", 4, 0, 0, html_element_inline},
    {"svg", 3, 0, 0, html_element_inline},
    {"table", 5, 1, 126, 0},
    {"caption", 7, 0, 0, 0},
    {"colgroup", 8, 1, 127, 0},
    {"col", 3, 1, 128, html_element_void},
    {"tbody", 5, 1, 129, 0},
    {"thead", 5, 1, 130, 0},
    {"tfoot", 5, 1, 131, 0},
    {"tr", 2, 1, 132, 0},
    {"td", 2, 4, 133, 0},
    {"th", 2, 7, 137, 0},
    {"form", 4, 8, 144, 0},
    {"label", 5, 1, 152, html_element_inline},
    {"input", 5, 31, 153, html_element_inline | html_element_void},
    {"button", 6, 11, 184, html_element_inline},
    {"select", 6, 8, 195, html_element_inline},
    {"datalist", 8, 0, 0, html_element_inline},
    {"optgroup", 8, 2, 203, 0},
    {"option", 6, 4, 205, 0},
    {"textarea", 8, 14, 209, html_element_inline},
    {"output", 6, 3, 223, html_element_inline},
    {"progress", 8, 2, 226, html_element_inline},
    {"meter", 5, 6, 228, html_element_inline},
    {"fieldset", 8, 3, 234, 0},
    {"legend", 6, 0, 0, 0},
    {"details", 7, 1, 237, 0},
    {"summary", 7, 0, 0, 0},
    {"dialog", 6, 1, 238, 0},
    {"script", 6, 7, 239, html_element_inline},
    {"noscript", 8, 0, 0, html_element_inline},
    {"template", 8, 0, 0, html_element_inline},
    {"canvas", 6, 2, 246, html_element_inline},
};

static const u8 html_element_allowed_attributes[248] = {
    78, 79, 80, 79, 81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92,
    93, 84, 85, 87, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104, 105,
    106, 107, 108, 109, 110, 111, 87, 112, 79, 80, 113, 82, 83, 86, 87, 88,
    109, 112, 114, 109, 114, 109, 114, 115, 87, 116, 89, 84, 117, 115, 116, 89,
    81, 118, 119, 120, 121, 88, 122, 115, 123, 90, 124, 125, 126, 120, 121, 88,
    115, 87, 120, 121, 127, 87, 128, 90, 129, 120, 121, 90, 112, 115, 81, 130,
    131, 132, 133, 134, 135, 120, 121, 115, 81, 131, 132, 133, 134, 135, 136, 115,
    137, 138, 139, 90, 117, 140, 113, 79, 86, 82, 141, 80, 87, 88, 142, 143,
    143, 144, 144, 144, 145, 146, 147, 148, 149, 146, 147, 148, 150, 151, 152, 153,
    154, 155, 156, 157, 158, 90, 159, 80, 160, 161, 117, 156, 162, 163, 164, 165,
    129, 166, 167, 168, 169, 170, 121, 171, 172, 173, 174, 175, 176, 90, 177, 178,
    179, 180, 181, 115, 182, 87, 112, 120, 162, 165, 129, 166, 167, 168, 169, 170,
    90, 87, 112, 156, 162, 165, 129, 176, 90, 180, 181, 165, 138, 165, 138, 183,
    112, 156, 162, 184, 164, 165, 129, 173, 175, 90, 178, 179, 180, 185, 186, 160,
    129, 90, 112, 172, 112, 174, 172, 187, 188, 189, 165, 129, 90, 190, 190, 115,
    87, 93, 191, 192, 81, 85, 120, 121,
};

static const char *const html_attribute_names[html_attribute_count] = {
    "invalid", "accesskey", "class", "contenteditable", "dir", "draggable", "hidden", "id", "lang",
    "spellcheck", "style", "tabindex", "title", "translate", "onabort", "onauxclick", "onblur", "oncancel",
    "oncanplay", "oncanplaythrough", "onchange", "onclick", "onclose", "oncuechange", "ondblclick", "ondrag",
    "ondragend", "ondragenter", "ondragexit", "ondragleave", "ondragover", "ondragstart", "ondrop",
    "ondurationchange", "onemptied", "onended", "onerror", "onfocus", "oninput", "oninvalid", "onkeydown",
    "onkeypress", "onkeyup", "onload", "onloadeddata", "onloadedmetadata", "onloadend", "onloadstart",
    "onmousedown", "onmouseenter", "onmouseleave", "onmousemove", "onmouseout", "onmouseover", "onmouseup",
    "onwheel", "onpause", "onplay", "onplaying", "onprogress", "onratechange", "onreset", "onresize",
    "onscroll", "onseeked", "onseeking", "onselect", "onshow", "onstalled", "onsubmit", "onsuspend",
    "ontimeupdate", "ontoggle", "onvolumechange", "onwaiting", "oncut", "oncopy", "onpaste", "manifest",
    "href", "target", "crossorigin", "rel", "rev", "media", "nonce", "hreflang", "type", "referrerpolicy",
    "sizes", "name", "http-equiv", "content", "charset", "onafterprint", "onbeforeprint", "onbeforeunload",
    "onhashchange", "onlanguagechange", "onmessage", "onoffline", "ononline", "onpagehide", "onpageshow",
    "onpopstate", "onrejectionhandled", "onstorage", "onunhandledrejection", "onunload", "cite", "reversed",
    "start", "value", "download", "datetime", "src", "srcset", "alt", "usemap", "ismap", "width", "height",
    "longdesc", "srcdoc", "sandbox", "allowfullscreen", "allowpaymentrequest", "data", "typemustmatch",
    "form", "poster", "preload", "autoplay", "loop", "muted", "controls", "kind", "srclang", "label",
    "default", "coords", "shape", "border", "span", "rowgroup", "row", "colspan", "rowspan", "headers",
    "cell", "scope", "abbr", "columnheader", "rowheader", "accept-charset", "action", "autocomplete",
    "enctype", "method", "novalidate", "for", "accept", "autofocus", "checked", "dirname", "disabled",
    "formaction", "formenctype", "formmethod", "formnovalidate", "formtarget", "list", "max", "maxlength",
    "min", "minlength", "multiple", "pattern", "placeholder", "readonly", "required", "size", "step",
    "selected", "cols", "rows", "wrap", "low", "high", "optimum", "open", "async", "defer",
};

data_t html_element_name(u32 element) {
    if (element >= html_element_count) return data_t{};
    const html_element_info_t *info = &html_elements[element];
    return data_from_pointer(info->name, info->name_size);
}

data_t html_attribute_name(u32 attribute) {
    if (attribute >= html_attribute_count) return data_t{};
    const char *name = html_attribute_names[attribute];
    u64 size = 0;
    while (name[size]) size++;
    return data_from_pointer(name, size);
}

u32 html_element_find(const u8 *name, u64 size) {
    for (u32 i = 1; i < html_element_count; i++) {
        const html_element_info_t *info = &html_elements[i];
        if (info->name_size == size && memory_equal(info->name, size, name, size)) return i;
    }
    return 0;
}

u32 html_attribute_find(const u8 *name, u64 size) {
    for (u32 i = 1; i < html_attribute_count; i++) {
        const char *text = html_attribute_names[i];
        u64 j = 0;
        while (j < size && text[j] && (u8)text[j] == name[j]) j++;
        if (j == size && text[j] == 0) return i;
    }
    return 0;
}

bool html_element_allows_attribute(u32 element, u32 attribute) {
    if (attribute >= 1 && attribute <= html_attribute_global_last) return true;
    if (element >= html_element_count) return false;
    const html_element_info_t *info = &html_elements[element];
    for (u32 i = 0; i < info->allowed_count; i++)
        if (html_element_allowed_attributes[info->allowed_offset + i] == attribute) return true;
    return false;
}

u8 html_element_has_flag(u32 element, u8 mask) {
    return element < html_element_count ? (u8)(html_elements[element].flags & mask) : 0;
}

// ---- construction --------------------------------------------------------------------

u64 hp_tree_size(const html_tokens_t *tokens) {
    u64 n = tokens->token_count + 1;
    u64 s = align_up(8 + sizeof(html_node_t) * n, 8);
    s = align_up(s + sizeof(html_node_attribute_t) * tokens->attribute_total, 8);
    s = align_up(s + 8 * n + tokens->text_block.used, 8);
    return s + 8 * n;
}

static bool html_tree_is_space(u8 c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0C || c == 0x0D; }

struct html_builder_t {
    html_tree_t *tree;
    html_node_t **stack;
    u64 depth;
    u8 last_byte;
    bool preserve;
    bool first_line_done;
};

// The open element that takes the next child, or null when it already has
// as many as its 16-bit count can hold: further children are dropped.
static html_node_t *html_builder_parent(html_builder_t *builder) {
    html_node_t *parent = builder->stack[builder->depth - 1];
    return parent->child_count == 0xFFFF ? nullptr : parent;
}

static void html_builder_start_tag(html_builder_t *builder, const html_token_t *token, u32 tolerant, u32 *error) {
    html_tree_t *tree = builder->tree;
    data_t saved_attributes = tree->attribute_block;
    html_node_attribute_t *run = (html_node_attribute_t *)data_end(&tree->attribute_block);
    u32 element = html_element_find(token->text.bytes, token->text.used);
    if (!element) *error = html_tree_construction_error_element_invalid_start_name;
    u32 count = 0;
    for (u32 a = 0; a < token->attribute_count && !*error; a++) {
        const html_token_attribute_t *source = &token->attributes[a];
        u32 attribute = html_attribute_find(source->name.bytes, source->name.used);
        if (!attribute) {
            *error = html_tree_construction_error_attribute_invalid_name;
        } else if (!html_element_allows_attribute(element, attribute)) {
            *error = html_tree_construction_error_attribute_not_allowed_in_element;
        } else {
            for (u32 j = 0; j < count; j++)
                if (run[j].attribute == attribute) *error = html_tree_construction_error_attribute_name_already_present;
        }
        if (!*error) {
            html_node_attribute_t *record =
                (html_node_attribute_t *)data_push(&tree->attribute_block, sizeof(html_node_attribute_t), 8);
            assert_true(record);
            *record = html_node_attribute_t{};
            record->attribute = (u8)attribute;
            if (source->value.used) {
                u8 *bytes = (u8 *)data_push_copy(&tree->text_block, source->value.bytes, source->value.used, 1);
                assert_true(bytes);
                record->value = data_t{source->value.used, source->value.used, bytes};
            }
            count++;
        } else if (tolerant) {
            *error = 0; // the attribute is dropped, the next one tried
        }
    }
    html_node_t *parent = html_builder_parent(builder);
    if (*error || !parent) {
        tree->attribute_block = saved_attributes;
        if (tolerant) *error = 0;
        return;
    }
    html_node_t *node = (html_node_t *)data_push(&tree->node_block, sizeof(html_node_t), 8);
    assert_true(node);
    *node = html_node_t{};
    node->kind = html_node_kind_element;
    node->element = (u8)element;
    node->attribute_count = (u8)count;
    node->attributes = run;
    node->parent = parent;
    parent->child_count++;
    tree->attribute_count += count;
    if (!token->self_closing && !html_element_has_flag(element, html_element_void)) builder->stack[builder->depth++] = node;
    if (element == html_element_br || !html_element_has_flag(element, html_element_inline)) builder->last_byte = 0;
    if (element == html_element_pre || element == html_element_textarea) {
        builder->preserve = true;
        builder->first_line_done = false;
    }
}

static void html_builder_end_tag(html_builder_t *builder, const html_token_t *token, u32 *error) {
    u32 element = html_element_find(token->text.bytes, token->text.used);
    if (!element) {
        *error = html_tree_construction_error_element_invalid_end_name;
    } else if (builder->depth == 0) {
        *error = html_tree_construction_error_element_end_with_no_open_element;
    } else if (builder->stack[builder->depth - 1]->element == element) {
        builder->depth--;
        // Only the end of a pre ends preserved text, also after a textarea.
        if (element == html_element_pre) builder->preserve = false;
    } else {
        *error = html_tree_construction_error_element_unexpected_end;
    }
}

static void html_builder_text(html_builder_t *builder, const html_token_t *token) {
    html_tree_t *tree = builder->tree;
    const u8 *p = token->text.bytes;
    const u8 *end = p + token->text.used;
    if (p == end) return;
    u8 *start = data_end(&tree->text_block);
    u8 *out = start;
    if (!builder->preserve) {
        bool keep_space = builder->last_byte != 0 && builder->last_byte != ' ';
        const u8 *first = p;
        while (p < end && html_tree_is_space(*p)) p++;
        if (p > first && keep_space) p--; // one blank survives
        bool in_space = false;
        for (; p < end; p++) {
            u8 b = *p;
            if (html_tree_is_space(b)) {
                if (in_space) continue;
                in_space = true;
                b = ' ';
            } else {
                in_space = false;
            }
            *out++ = b;
            builder->last_byte = b;
        }
    } else {
        if (!builder->first_line_done) {
            if (*p == '\n') p++;
            else if (*p == '\r' && end - p > 1 && p[1] == '\n') p += 2;
            builder->first_line_done = true;
        }
        while (p < end) *out++ = *p++;
    }
    u64 added = (u64)(out - start);
    if (!added) return;
    assert_true(tree->text_block.used + added <= tree->text_block.reserved);
    tree->text_block.used += added;
    html_node_t *parent = html_builder_parent(builder);
    if (!parent) return;
    html_node_t *node = (html_node_t *)data_push(&tree->node_block, sizeof(html_node_t), 8);
    assert_true(node);
    *node = html_node_t{};
    node->kind = html_node_kind_text;
    node->parent = parent;
    node->text = data_t{added, added, start};
    parent->child_count++;
}

static bool html_tree_has_room(const data_t *arena, u64 size) {
    return arena->bytes && arena->used <= arena->reserved && arena->reserved - arena->used >= size;
}

html_tree_t hp_tree_construction(data_t *arena, const html_tokens_t *tokens, u32 tolerant, u32 *error) {
    html_tree_t tree = {};
    if (*error) return tree;
    PROFILE_SCOPE(hp_tree_construction);
    data_t copy = *arena;
    u64 n = tokens->token_count + 1;
    if (!html_tree_has_room(arena, hp_tree_size(tokens))) {
        *error = html_tree_construction_error_not_enough_memory;
        *arena = copy;
        return tree;
    }
    tree.node_block = data_block_reserve(arena, sizeof(html_node_t) * n, 8);
    tree.attribute_block = data_block_reserve(arena, sizeof(html_node_attribute_t) * tokens->attribute_total, 8);
    tree.child_block = data_block_reserve(arena, 8 * n, 8);
    tree.text_block = data_block_reserve(arena, tokens->text_block.used, 1);
    data_t stack_block = data_block_reserve(arena, 8 * n, 8);
    if (!tree.node_block.bytes || !tree.attribute_block.bytes || !tree.child_block.bytes || !tree.text_block.bytes ||
        !stack_block.bytes) {
        *error = html_tree_construction_error_not_enough_memory;
        *arena = copy;
        return html_tree_t{};
    }

    html_builder_t builder = {};
    builder.tree = &tree;
    builder.stack = (html_node_t **)stack_block.bytes;
    html_node_t *root = (html_node_t *)data_push(&tree.node_block, sizeof(html_node_t), 8);
    *root = html_node_t{};
    root->kind = html_node_kind_element;
    builder.stack[0] = root;
    builder.depth = 1;
    tree.attributes = (html_node_attribute_t *)tree.attribute_block.bytes;

    u32 local_error = 0;
    for (u64 i = 0; i < tokens->token_count && (!local_error || tolerant); i++) {
        const html_token_t *token = &tokens->tokens[i];
        switch (token->kind) {
        case html_token_start_tag: html_builder_start_tag(&builder, token, tolerant, &local_error); break;
        case html_token_end_tag:
            html_builder_end_tag(&builder, token, &local_error);
            if (tolerant) local_error = 0;
            break;
        case html_token_text: html_builder_text(&builder, token); break;
        case html_token_doctype:
        case html_token_comment:
        case html_token_cdata: break; // no node: their content is dropped
        default: assert_message(false, "unknown token kind");
        }
    }
    if (builder.depth > 1) local_error = html_tree_construction_error_unclosed_tags;

    // Second pass: each element gets a dense child array. Parents come
    // before their children, so every parent's array exists in time.
    tree.nodes = root;
    tree.node_count = tree.node_block.used / sizeof(html_node_t);
    tree.children = (html_node_t **)tree.child_block.bytes;
    for (u64 i = 0; i < tree.node_count; i++) {
        html_node_t *node = &tree.nodes[i];
        if (node->kind == html_node_kind_element) {
            node->children = (html_node_t **)data_push(&tree.child_block, 8 * (u64)node->child_count, 8);
            assert_true(node->children);
            node->child_count = 0;
        }
        if (node->parent) node->parent->children[node->parent->child_count++] = node;
    }

    // The stack behind the text block is dead; only the text's unused tail
    // goes back.
    u64 given_back = data_trim(&tree.text_block);
    data_pop(arena, given_back);
    *error = tolerant ? 0 : local_error;
    return tree;
}

// ---- nodes --------------------------------------------------------------------------

html_node_t *html_node_child(const html_node_t *node, u32 index) {
    if (!node || node->kind != html_node_kind_element || index >= node->child_count) return nullptr;
    return node->children[index];
}

bool html_node_is_element(const html_node_t *node, u32 element) {
    return node && node->kind == html_node_kind_element && (element == 0 || node->element == element);
}

html_node_attribute_t *html_node_get_attribute(const html_node_t *node, u32 attribute) {
    if (!node || node->kind != html_node_kind_element) return nullptr;
    for (u32 i = 0; i < node->attribute_count; i++)
        if (node->attributes[i].attribute == attribute) return &node->attributes[i];
    return nullptr;
}

// ---- traversal ------------------------------------------------------------------------

u64 html_tree_traversal_size(u64 node_count) { return 4 * node_count + 4; }

html_tree_traversal_t html_tree_traversal_create(data_t *arena, html_node_t *root, u64 capacity, u32 *error) {
    html_tree_traversal_t traversal = {};
    if (*error) return traversal;
    traversal.stack = (u32 *)data_push(arena, 4 * capacity, 4);
    if (!traversal.stack) {
        *error = html_tree_traversal_error_not_enough_memory;
        return html_tree_traversal_t{};
    }
    traversal.current = root;
    return traversal;
}

bool html_tree_traversal_has_next(const html_tree_traversal_t *traversal) {
    return traversal->current &&
           (traversal->index < traversal->current->child_count || traversal->current->parent != nullptr);
}

bool html_tree_traversal_entering(const html_tree_traversal_t *traversal) {
    return traversal->index < traversal->current->child_count;
}

html_node_t *html_tree_traversal_node(const html_tree_traversal_t *traversal) {
    if (html_tree_traversal_entering(traversal)) return traversal->current->children[traversal->index];
    return traversal->current;
}

void html_tree_traversal_step(html_tree_traversal_t *traversal) {
    html_node_t *current = traversal->current;
    if (traversal->index >= current->child_count) {
        traversal->current = current->parent;
        traversal->depth--;
        traversal->index = traversal->stack[traversal->depth] + 1;
        return;
    }
    html_node_t *child = current->children[traversal->index];
    if (child->kind == html_node_kind_text || html_element_has_flag(child->element, html_element_void)) {
        traversal->index++;
        return;
    }
    traversal->stack[traversal->depth++] = traversal->index;
    traversal->current = child;
    traversal->index = 0;
}
