// dump_html.cpp - the html and decode commands: an HTML document's tokens
// and tree as JSON, and a file's bytes decoded from a web encoding.
#include "tools/tool/tool.h"

#include "base/files.h"
#include "base/log.h"
#include "base/text.h"
#include "html/html.h"

static const char *html_token_kind_name(u32 kind) {
    switch (kind) {
    case html_token_doctype: return "doctype";
    case html_token_start_tag: return "start_tag";
    case html_token_end_tag: return "end_tag";
    case html_token_comment: return "comment";
    case html_token_cdata: return "cdata";
    case html_token_text: return "text";
    default: return "none";
    }
}

static void html_dump_node_open(const html_node_t *node, bool first) {
    if (!first) out_c(",");
    if (node->kind == html_node_kind_text) {
        out_c("{\"text\":");
        out_json_data(&node->text);
        out_c("}");
        return;
    }
    data_t name = html_element_name(node->element);
    out_c("{\"element\":");
    out_json_data(&name);
    out_c(",\"attributes\":{");
    for (u32 i = 0; i < node->attribute_count; i++) {
        data_t attribute = html_attribute_name(node->attributes[i].attribute);
        if (i) out_c(",");
        out_json_data(&attribute);
        out_c(":");
        out_json_data(&node->attributes[i].value);
    }
    out_c("},\"children\":[");
}

// The children of `root` as JSON values, without recursion: the tolerant
// tree has no implied end tags, so a document of unclosed tags nests as deep
// as it has tags, and any tree the parser gives must print.
static void html_dump_children(const html_node_t *root, u64 node_count) {
    data_t stack_block = data_virtual_alloc((node_count + 1) * sizeof(u32), 0);
    assert_message(stack_block.bytes, "No memory for the tree walk.");
    u32 *next = (u32 *)stack_block.bytes; // per level: the next child to print
    u64 depth = 0;
    const html_node_t *parent = root;
    next[0] = 0;
    for (;;) {
        if (next[depth] < parent->child_count) {
            const html_node_t *child = parent->children[next[depth]];
            html_dump_node_open(child, next[depth]++ == 0);
            if (child->kind == html_node_kind_text) continue;
            parent = child;
            next[++depth] = 0;
            continue;
        }
        if (depth == 0) break;
        out_c("]}");
        parent = parent->parent;
        depth--;
    }
    data_virtual_free(&stack_block);
}

int tool_html(const tool_args_t *args) {
    if (args->item_count != 1) return tool_usage();
    data_t path = tool_item(args, 0);
    data_t input = {};
    u32 error = 0;
    file_read_all(&input, &path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(args->items[0]);
        print_error("\n");
        return 1;
    }
    data_t arena = data_virtual_alloc(html_parse_document_size(&input) + 4096, 0);
    assert_message(arena.bytes, "No memory for the document.");
    log_channel_t *main_log = log_channel(log_main);
    u64 log_start = main_log ? main_log->data.used : 0;
    u32 parse_error = 0;
    html_document_t document = html_parse_document(&arena, &input, args->strict ? 0 : 1, &parse_error);

    json_open("{");
    json_key("encoding");
    out_json_c(encoding_name(document.tokens.encoding));
    json_key("error");
    json_open("{");
    json_number("code", parse_error);
    data_t error_name = parse_error ? html_error_name(parse_error) : data_t{};
    json_string("name", &error_name);
    json_close("}");
    json_key("tokens");
    json_open("[");
    for (u64 i = 0; i < document.tokens.token_count; i++) {
        const html_token_t *t = &document.tokens.tokens[i];
        json_separator();
        json_open("{");
        json_key("kind");
        out_json_c(html_token_kind_name(t->kind));
        if (t->kind == html_token_doctype) {
            json_bool("legacy", t->legacy != 0);
        } else {
            json_string("text", &t->text);
        }
        if (t->kind == html_token_start_tag) {
            json_bool("self_closing", t->self_closing != 0);
            json_key("attributes");
            json_open("[");
            for (u32 a = 0; a < t->attribute_count; a++) {
                json_separator();
                json_open("[");
                json_separator();
                out_json_data(&t->attributes[a].name);
                json_separator();
                if (t->attributes[a].value.bytes) out_json_data(&t->attributes[a].value);
                else out_c("null");
                json_close("]");
            }
            json_close("]");
        }
        json_close("}");
    }
    json_close("]");
    json_key("tree");
    json_open("[");
    if (document.tree.nodes) html_dump_children(document.tree.nodes, document.tree.node_count);
    json_close("]");
    main_log = log_channel(log_main);
    data_t log_text = {};
    if (main_log && main_log->data.used > log_start) {
        log_text = data_t{main_log->data.used - log_start, main_log->data.used - log_start,
                          main_log->data.bytes + log_start};
    }
    json_string("log", &log_text);
    json_close("}");
    out_c("\n");
    return 0;
}

int tool_decode(const tool_args_t *args) {
    if (args->item_count != 2) return tool_usage();
    const char *label = args->items[0];
    u32 encoding = encoding_label_lookup((const u8 *)label, string_length(label));
    if (!encoding) {
        print_error("tidewrack-tool: unknown encoding label ");
        print_error(label);
        print_error("\n");
        return 2;
    }
    data_t path = tool_item(args, 1);
    data_t input = {};
    u32 error = 0;
    file_read_all(&input, &path, false, &error);
    if (error) {
        print_error("tidewrack-tool: can't read ");
        print_error(args->items[1]);
        print_error("\n");
        return 1;
    }
    const u8 *p = input.bytes;
    const u8 *end = input.bytes + input.used;
    if (encoding == encoding_replacement) {
        // The whole of any input is one U+FFFD, and empty input nothing.
        if (input.used) out_code_point(code_point_replacement);
        return 0;
    }
    u8 state[4] = {}; // the stateful decoders keep their state here (ISO-2022-JP uses three bytes)
    while (p && p < end) {
        u32 code_point = code_point_none;
        u32 second = code_point_none;
        u8 consumed = 0;
        u32 decode_error = 0;
        encoding_decode(encoding, p, end, &code_point, &second, &consumed, state, &decode_error);
        if (consumed == 0) consumed = 1;
        out_code_point(code_point == code_point_none ? code_point_replacement : code_point);
        if (second != code_point_none) out_code_point(second);
        p += consumed;
    }
    return 0;
}
