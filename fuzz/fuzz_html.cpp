// fuzz_html - any bytes through the tokenizer and the tree builder, in
// arenas of exactly the predicted size, then a full walk of the tree.
// The first byte picks strict or tolerant construction.
#include <stdlib.h>
#include <string.h>

#include "html/html.h"

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size == 0) return 0;
    u32 tolerant = bytes[0] & 1;
    data_t input = {size - 1, size - 1, (u8 *)bytes + 1};

    u64 token_need = hp_tokenizer_size(&input);
    u8 *token_memory = (u8 *)malloc(token_need);
    data_t token_arena = {token_need, 0, token_memory};
    u32 error = 0;
    html_tokens_t tokens = hp_tokenizer(&token_arena, &input, 0, &error);
    if (tokens.token_count > (input.used > 1 ? (input.used + 1) / 2 : 1)) abort();
    for (u64 i = 0; i < tokens.token_count; i++) {
        const html_token_t *t = &tokens.tokens[i];
        if (t->kind < html_token_doctype || t->kind > html_token_text) abort();
    }

    u64 tree_need = hp_tree_size(&tokens) + html_tree_traversal_size(tokens.token_count + 1);
    u8 *tree_memory = (u8 *)malloc(tree_need);
    data_t tree_arena = {tree_need, 0, tree_memory};
    u32 tree_error = 0;
    html_tree_t tree = hp_tree_construction(&tree_arena, &tokens, tolerant, &tree_error);
    if (tolerant && tree_error) abort();
    if (tree.node_count < 1 || tree.node_count > tokens.token_count + 1) abort();

    u32 walk_error = 0;
    html_tree_traversal_t walk = html_tree_traversal_create(&tree_arena, tree.nodes, tree.node_count, &walk_error);
    if (walk_error) abort();
    u64 visits = 0;
    while (html_tree_traversal_has_next(&walk)) {
        html_node_t *node = html_tree_traversal_node(&walk);
        if (node->kind == html_node_kind_text) {
            if (node->text.used == 0) abort();
            // Text collapsing never leaves two blanks in a row outside pre.
        }
        html_tree_traversal_step(&walk);
        if (++visits > 2 * tree.node_count) abort();
    }
    free(tree_memory);
    free(token_memory);
    return 0;
}
