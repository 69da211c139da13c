// tokenizer.h - the validating HTML tokenizer. Bytes in any web encoding
// become one flat array of tokens with UTF-8 text. At the first mistake it
// writes one numbered error with line, column and source line to log
// channel 0, stops, and keeps the tokens emitted so far. All output sizes
// are predicted from the input size before the first byte is read.
#pragma once

#include "base/memory.h"

// Error codes; the tree builder (tree.h) continues the numbering.
enum : u32 {
    html_parser_error_none = 0,
    html_tokenizer_error_eof = 1,
    html_tokenizer_error_eof_quoted_attribute_value = 2,
    html_tokenizer_error_quoted_attribute_value_missing_the_closing_quote = 3,
    html_tokenizer_error_attribute_value_not_followed_by_a_valid_character = 4,
    html_tokenizer_error_empty_attribute_not_followed_by_a_valid_character = 5,
    html_tokenizer_error_invalid_text_character = 6,
    html_tokenizer_error_invalid_text_character_in_cdata = 7,
    html_tokenizer_error_invalid_text_character_in_attribute_name = 8,
    html_tokenizer_error_invalid_character_in_unquoted_attribute_value = 9,
    html_tokenizer_error_expected_greater_than = 10,
    html_tokenizer_error_invalid_text_character_in_tag_name = 11,
    html_tokenizer_error_invalid_markup_syntax = 12,
    html_tokenizer_error_doctype_not_followed_by_a_space = 13,
    html_tokenizer_error_invalid_doctype = 14,
    html_tokenizer_error_comment_starts_with_invalid_character_sequence = 15,
    html_tokenizer_error_comment_contains_invalid_character_sequence = 16,
    html_tokenizer_error_invalid_text_character_in_comment = 17,
    html_tokenizer_error_ambiguous_ampersand_in_attribute_value = 18,
    html_tokenizer_error_invalid_string_in_raw_element = 19,
    html_tokenizer_error_invalid_string_in_escapable_raw_element = 20,
    html_tokenizer_error_ambiguous_ampersand_in_escapable_raw_element = 21,
    html_tokenizer_error_invalid_encoding_name = 22,
    html_tokenizer_error_not_enough_memory = 23,
    html_error_count = 34,
};

// Every code's name, html_parser_error_none first, through the tree's codes.
extern const data_t html_error_names[html_error_count];
// The report text of a tokenizer code (1 to 21), or null.
const char *html_tokenizer_error_text(u32 code);
// The name of any code of html_error_names; "" beyond the table.
data_t html_error_name(u32 code);

enum : u32 {
    html_token_none = 0,
    html_token_doctype = 1,
    html_token_start_tag = 2,
    html_token_end_tag = 3,
    html_token_comment = 4,
    html_token_cdata = 5,
    html_token_text = 6,
};

enum : u32 {
    hp_state_default = 1,
    hp_state_tag = 2,
    hp_state_xml = 5,
    hp_state_markup = 6,
    hp_state_raw = 7,
    hp_state_escapable_raw = 8,
};

enum : u32 {
    // After a quoted attribute value, any character may follow.
    hp_flag_no_space_after_attribute = 1,
};

struct html_token_attribute_t {
    data_t name;  // lower-cased A to Z only
    data_t value; // used 0 and bytes null for an attribute without a value
};

struct html_token_t {
    u32 kind;
    union {
        u32 legacy; // doctype: names "about:legacy-compat"
        data_t text; // tags: the name as written; comment, cdata, text: the content
    };
    u32 self_closing;
    u32 attribute_count;
    html_token_attribute_t *attributes;
};
static_assert(sizeof(html_token_t) == 48, "token records are 48 bytes");
static_assert(sizeof(html_token_attribute_t) == 48, "attribute records are 48 bytes");

struct html_tokens_t {
    data_t token_block;
    data_t attribute_block;
    data_t text_block;
    html_token_t *tokens;
    u64 token_count;
    u64 attribute_total;
    u32 encoding;
};

struct hp_reader_t {
    const u8 *position;
    const u8 *end;
    const u8 *line_start;
    u32 line;
    u32 decoder_state;
    u32 pending;
    u32 seen_carriage_return;
};

struct hp_cursor_t {
    hp_reader_t reader;
    hp_reader_t lookahead;
    hp_reader_t previous;
    u32 can_reconsume;
    u32 encoding;
    u32 state;
    html_token_t token;
    u32 flags;
};

// ---- character sets ------------------------------------------------------------------
bool hp_is_html_space(u32 c);
bool hp_is_invalid_text_character(u32 c);
bool hp_is_attribute_name_stop(u32 c);
bool hp_is_unquoted_value_stop(u32 c);

// ---- the whole job ---------------------------------------------------------------------
// Bytes the arena must have free for hp_tokenizer.
u64 hp_tokenizer_size(const data_t *input);
// Tokenizes the whole input. The three blocks are carved from `arena`; the
// unused tail of the text block goes back to it at the end.
html_tokens_t hp_tokenizer(data_t *arena, const data_t *input, u32 flags, u32 *error);

// ---- the pieces (the encoding prescan and the tests use them) ---------------------------
hp_cursor_t hp_cursor_create(const u8 *bytes, u64 size, u32 flags);
// The next code point at `reader`, 0xFFFFFFFF with `error` set at the end
// of the input. Malformed input comes out as U+FFFD.
u32 hp_decode_codepoint(hp_reader_t *reader, u32 encoding, u32 *error);
u32 hp_consume(hp_cursor_t *cursor, u32 *error);
void hp_reconsume(hp_cursor_t *cursor);
void hp_peek_start(hp_cursor_t *cursor);
u32 hp_peek(hp_cursor_t *cursor, u32 *error);
void hp_peek_commit(hp_cursor_t *cursor);
void hp_token_create(hp_cursor_t *cursor, u32 kind);
// Appends a code point as UTF-8 to `text_block`; `target` is a piece at its
// end that grows with it (a null `target->bytes` starts at the end).
void hp_push_codepoint(data_t *text_block, data_t *target, u32 code_point);
void hp_token_add_attribute(hp_cursor_t *cursor, html_tokens_t *tokens, data_t *name, data_t *value);
// Returns the state that follows: 7 after a start tag script or style, 8
// after textarea or title, else 0.
u32 hp_token_emit(hp_cursor_t *cursor, html_tokens_t *tokens);
// Parses one attribute after a tag name; an empty name means there is none.
void hp_parse_attribute(hp_cursor_t *cursor, data_t *text_block, data_t *name, data_t *value, u32 *error);
// Writes the report of `error` to log channel 0 and moves to the end.
void hp_report_error(hp_cursor_t *cursor, u32 error);

// ---- character references (references.cpp) ---------------------------------------------
// Resolves what follows an "&" at the cursor: 0, 1 or 2 code points. Only a
// success moves the cursor. `ambiguous` is set for alphanumerics and ";"
// that name nothing.
u32 hp_parse_character_reference(hp_cursor_t *cursor, u32 *first, u32 *second, u32 *ambiguous);
// Exact-case search of the named references; false if none has the name.
bool html_entity_find(const u8 *name, u64 size, u32 *first, u32 *second);

// ---- encoding prescan (detect.cpp) ------------------------------------------------------
// The encoding a meta element in the first 1024 bytes names, or 0.
u32 hp_detect_encoding(const data_t *input);
