// html.cpp - whole-document entry points.
#include "html/html.h"

u64 html_parse_document_size(const data_t *input) {
    // The tree's bound follows from the tokenizer's predictions.
    u64 n = input->used;
    u64 tokens = n > 1 ? (n + 1) / 2 : 1;
    u64 attributes = n > 4 ? (n - 3) / 2 : 1;
    html_tokens_t bound = {};
    bound.token_count = tokens;
    bound.attribute_total = attributes;
    bound.text_block.used = 4 * n;
    return hp_tokenizer_size(input) + hp_tree_size(&bound);
}

html_document_t html_parse_document(data_t *arena, const data_t *input, u32 tolerant, u32 *error) {
    html_document_t document = {};
    if (*error) return document;
    u32 token_error = 0;
    document.tokens = hp_tokenizer(arena, input, 0, &token_error);
    if (token_error == html_tokenizer_error_not_enough_memory) {
        *error = token_error;
        return document;
    }
    u32 tree_error = 0;
    document.tree = hp_tree_construction(arena, &document.tokens, tolerant, &tree_error);
    *error = token_error ? token_error : tree_error;
    return document;
}

void html_tree_walk(data_t *arena, const html_tree_t *tree, html_visit_t *visit, void *context, u32 *error) {
    if (*error || !tree->nodes) return;
    data_t copy = *arena;
    html_tree_traversal_t traversal = html_tree_traversal_create(arena, tree->nodes, tree->node_count, error);
    if (*error) return;
    while (html_tree_traversal_has_next(&traversal)) {
        html_node_t *node = html_tree_traversal_node(&traversal);
        visit(node, html_tree_traversal_entering(&traversal), context);
        html_tree_traversal_step(&traversal);
    }
    *arena = copy;
}
