// html.h - one call for a whole document: tokens, then the tree. Include
// this for the everyday use; tokenizer.h, tree.h and encoding.h hold the
// pieces.
#pragma once

#include "html/encoding.h"
#include "html/tokenizer.h"
#include "html/tree.h"

struct html_document_t {
    html_tokens_t tokens;
    html_tree_t tree;
};

// Bytes an arena must have free for html_parse_document on `input`: the
// tokenizer's need plus the most the tree can take for those tokens.
u64 html_parse_document_size(const data_t *input);

// Tokenizes `input` and builds its tree on `arena`. A tokenizer error stops
// the tokens where it stood (the report is on log channel 0); the tree is
// still built from the tokens before it, so a tolerant caller always gets a
// walkable tree. `*error` holds the first error of either step (always 0
// for the tree's part when `tolerant`).
html_document_t html_parse_document(data_t *arena, const data_t *input, u32 tolerant, u32 *error);

// Walks a tree and calls `visit` for each node: entering is false when an
// element is being left. Its stack comes from `arena`.
typedef void html_visit_t(html_node_t *node, bool entering, void *context);
void html_tree_walk(data_t *arena, const html_tree_t *tree, html_visit_t *visit, void *context, u32 *error);
