// tokenizer.cpp - the validating tokenizer: states, cursor, token output and
// the error report.
#include "html/tokenizer.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/text.h"
#include "html/encoding.h"

// ---- errors -------------------------------------------------------------------------

#define HTML_ERROR_NAME(name) data_literal(#name)
const data_t html_error_names[html_error_count] = {
    HTML_ERROR_NAME(html_parser_error_none),
    HTML_ERROR_NAME(html_tokenizer_error_eof),
    HTML_ERROR_NAME(html_tokenizer_error_eof_quoted_attribute_value),
    HTML_ERROR_NAME(html_tokenizer_error_quoted_attribute_value_missing_the_closing_quote),
    HTML_ERROR_NAME(html_tokenizer_error_attribute_value_not_followed_by_a_valid_character),
    HTML_ERROR_NAME(html_tokenizer_error_empty_attribute_not_followed_by_a_valid_character),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_text_character),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_text_character_in_cdata),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_text_character_in_attribute_name),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_character_in_unquoted_attribute_value),
    HTML_ERROR_NAME(html_tokenizer_error_expected_greater_than),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_text_character_in_tag_name),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_markup_syntax),
    HTML_ERROR_NAME(html_tokenizer_error_doctype_not_followed_by_a_space),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_doctype),
    HTML_ERROR_NAME(html_tokenizer_error_comment_starts_with_invalid_character_sequence),
    HTML_ERROR_NAME(html_tokenizer_error_comment_contains_invalid_character_sequence),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_text_character_in_comment),
    HTML_ERROR_NAME(html_tokenizer_error_ambiguous_ampersand_in_attribute_value),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_string_in_raw_element),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_string_in_escapable_raw_element),
    HTML_ERROR_NAME(html_tokenizer_error_ambiguous_ampersand_in_escapable_raw_element),
    HTML_ERROR_NAME(html_tokenizer_error_invalid_encoding_name),
    HTML_ERROR_NAME(html_tokenizer_error_not_enough_memory),
    HTML_ERROR_NAME(html_tree_construction_error_element_invalid_start_name),
    HTML_ERROR_NAME(html_tree_construction_error_element_invalid_end_name),
    HTML_ERROR_NAME(html_tree_construction_error_element_unexpected_end),
    HTML_ERROR_NAME(html_tree_construction_error_element_end_with_no_open_element),
    HTML_ERROR_NAME(html_tree_construction_error_attribute_invalid_name),
    HTML_ERROR_NAME(html_tree_construction_error_attribute_not_allowed_in_element),
    HTML_ERROR_NAME(html_tree_construction_error_attribute_name_already_present),
    HTML_ERROR_NAME(html_tree_construction_error_unclosed_tags),
    HTML_ERROR_NAME(html_tree_construction_error_not_enough_memory),
    HTML_ERROR_NAME(html_tree_traversal_error_not_enough_memory),
};
#undef HTML_ERROR_NAME

static const char *const html_tokenizer_error_texts[22] = {
    nullptr,
    "The end of the file has been reached.\n\n",
    "The end of the file was reached while parsing a quoted attirbute value.\n",
    "An quoted attribute value is missing the closing quote, either ' or \".\n",
    "An attribute value was not followed by a space (' ', '\\n', '\\r', '\\t', '\\f'), a slash ('/') or a greater "
    "than sign ('>').\n",
    "An empty attribute was not followed by a space (' ', '\\n', '\\r', '\\t', '\\f'), a slash ('/') or a greater "
    "than sign ('>').\n",
    "The text contains an invalid character.\n",
    "The text contains an invalid character in a CDATA section.\n",
    "The attribute name contains an invalid text character.\n",
    "An unquoted attribute value contains an invalid character.\n",
    "Greater than sign was expected.\n",
    "Invalid character in tag name. Only ascii alphanumeric character are allowed.\n",
    "Invalid markup syntax.\n",
    "\"<!doctype\" must be followed by a space (' ', '\\n', '\\r', '\\t', '\\f').\n",
    "Invalid doctype.\n",
    "A comment starts with an invalid character sequence. A comment can't start with '>' or '->'.\n",
    "A comment contains an invalid character sequence. A comment can't contain \"<!--\", \"-->\" or \"--!>\" and "
    "can't end with \"<!-\".\n",
    "A comment contains an invalid character.\n",
    "An attribute value contains an ambiguous ampersand: an ampersand ('&') followed by one or more ascii "
    "alphanumeric characters, followed by a semi-colon (';') but not evaluating to a valid named character "
    "reference.\n",
    "A raw element contains an invalid string: \"</script\" or \"</style\" followed by a space (' ', '\\n', '\\r', "
    "'\\t', '\\f') or a '/'.\n",
    "An escapable raw element contains an invalid string: \"</textarea\" or \"</title\" followed by a space (' ', "
    "'\\n', '\\r', '\\t', '\\f') or a '/'.\n",
    "An escapable raw element contains an ambiguous ampersand: an ampersand ('&') followed by one or more ascii "
    "alphanumeric characters, followed by a semi-colon (';') but not evaluating to a valid named character "
    "reference.\n",
};

const char *html_tokenizer_error_text(u32 code) {
    return code < array_count(html_tokenizer_error_texts) ? html_tokenizer_error_texts[code] : nullptr;
}

data_t html_error_name(u32 code) { return code < html_error_count ? html_error_names[code] : data_t{}; }

// ---- character sets -----------------------------------------------------------------
// Range tests, equal to the enumerated sets: 127 invalid text characters,
// 142 attribute name stops.

bool hp_is_html_space(u32 c) { return c == 0x20 || c == 0x09 || c == 0x0A || c == 0x0C || c == 0x0D; }

static bool hp_is_noncharacter(u32 c) { return (c >= 0xFDD0 && c <= 0xFDEF) || ((c & 0xFFFE) == 0xFFFE && c <= 0x10FFFF); }

bool hp_is_invalid_text_character(u32 c) {
    if (c < 0x20) return c <= 0x08 || c == 0x0B || c >= 0x0E;
    if (c < 0x7F) return false;
    if (c <= 0x9F) return true;
    return hp_is_noncharacter(c);
}

bool hp_is_attribute_name_stop(u32 c) {
    if (c <= 0x20) return c < 0x20 || c == 0x20;
    if (c == '"' || c == '\'' || c == '>' || c == '/' || c == '=') return true;
    if (c < 0x7F) return false;
    if (c <= 0x9F) return true;
    return hp_is_noncharacter(c);
}

bool hp_is_unquoted_value_stop(u32 c) {
    if (hp_is_html_space(c) || hp_is_invalid_text_character(c)) return true;
    return c == '"' || c == '\'' || c == '=' || c == '<' || c == '>' || c == '`';
}

static bool hp_is_alnum(u32 c) { return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z'); }

// ---- reading ---------------------------------------------------------------------------

hp_cursor_t hp_cursor_create(const u8 *bytes, u64 size, u32 flags) {
    hp_cursor_t cursor = {};
    cursor.reader.position = bytes;
    cursor.reader.end = bytes + size;
    cursor.reader.line_start = bytes;
    cursor.reader.pending = code_point_none;
    cursor.lookahead = cursor.reader;
    cursor.previous = cursor.reader;
    cursor.encoding = encoding_utf8;
    cursor.state = hp_state_default;
    cursor.flags = flags;
    return cursor;
}

// Encodings in which every byte below 0x80 stands for itself, whatever
// came before it: the frame reads such a byte without calling the decoder.
static const u8 hp_ascii_compatible[encoding_count] = {
    0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
    1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 0, 0, 0, 1,
};

u32 hp_decode_codepoint(hp_reader_t *reader, u32 encoding, u32 *error) {
    if (*error) return code_point_none;
    if (reader->pending == code_point_none && reader->position < reader->end && *reader->position < 0x80 &&
        encoding < encoding_count && hp_ascii_compatible[encoding]) {
        return *reader->position++;
    }
    if (reader->pending != code_point_none) {
        assert_true(encoding == encoding_big5);
        u32 code_point = reader->pending;
        reader->pending = code_point_none;
        return code_point;
    }
    mark_start(label_hp_decode_codepoint);
    u32 code_point = code_point_none;
    u32 local_error = 0;
    u8 consumed = 0;
    encoding_decode(encoding, reader->position, reader->end, &code_point, &reader->pending, &consumed,
                    (u8 *)&reader->decoder_state, &local_error);
    assert_true(reader->pending == code_point_none || local_error == 0);
    if (local_error == encoding_error_unknown_encoding) {
        *error = html_tokenizer_error_invalid_encoding_name;
        code_point = code_point_none;
    } else if (local_error == encoding_error_end_of_input) {
        if (encoding == encoding_iso_2022_jp) reader->position = reader->end;
        *error = html_tokenizer_error_eof;
        code_point = code_point_none;
    } else {
        if (local_error) code_point = code_point_replacement;
        u64 left = (u64)(reader->end - reader->position);
        reader->position += consumed <= left ? consumed : left;
    }
    mark_end(label_hp_decode_codepoint);
    return code_point;
}

// A lone LF counts a line only until the first CR; from then on CR does.
static void hp_track_line(hp_reader_t *reader, u32 code_point) {
    if (code_point == '\n') {
        if (!reader->seen_carriage_return) reader->line++;
        reader->line_start = reader->position;
    } else if (code_point == '\r') {
        reader->seen_carriage_return = 1;
        reader->line++;
        reader->line_start = reader->position;
    }
}

u32 hp_consume(hp_cursor_t *cursor, u32 *error) {
    if (*error) return 0;
    cursor->previous = cursor->reader;
    cursor->can_reconsume = 1;
    u32 code_point = hp_decode_codepoint(&cursor->reader, cursor->encoding, error);
    if (*error) return 0;
    hp_track_line(&cursor->reader, code_point);
    return code_point;
}

void hp_reconsume(hp_cursor_t *cursor) {
    assert_true(cursor->can_reconsume && cursor->previous.pending == code_point_none);
    cursor->reader = cursor->previous;
}

void hp_peek_start(hp_cursor_t *cursor) {
    cursor->lookahead = cursor->reader;
    cursor->can_reconsume = 0;
}

u32 hp_peek(hp_cursor_t *cursor, u32 *error) {
    if (*error) return 0;
    u32 code_point = hp_decode_codepoint(&cursor->lookahead, cursor->encoding, error);
    if (*error) return 0;
    hp_track_line(&cursor->lookahead, code_point);
    return code_point;
}

void hp_peek_commit(hp_cursor_t *cursor) {
    assert_true(!cursor->can_reconsume);
    cursor->reader = cursor->lookahead;
}

// Whether the next characters at the reader are `text` (exact, or folded
// to lower case); the lookahead stands after them when they are.
static bool hp_peek_matches(hp_cursor_t *cursor, const char *text, u32 size, bool fold) {
    u32 error = 0;
    hp_peek_start(cursor);
    for (u32 i = 0; i < size; i++) {
        u32 c = hp_peek(cursor, &error);
        if (error) return false;
        if (fold) c = char_to_ascii_lower(c);
        if (c != (u8)text[i]) return false;
    }
    return true;
}

// ---- output ------------------------------------------------------------------------------

void hp_token_create(hp_cursor_t *cursor, u32 kind) {
    mark_start(label_hp_token_create);
    cursor->token = html_token_t{};
    if (kind >= html_token_doctype && kind <= html_token_text) cursor->token.kind = kind;
    mark_end(label_hp_token_create);
}

void hp_push_codepoint(data_t *text_block, data_t *target, u32 code_point) {
    u8 *destination = text_block->bytes + text_block->used;
    const u8 *limit = text_block->bytes + text_block->reserved;
    if (!target->bytes) target->bytes = destination;
    if (code_point < 0x80 && destination < limit) {
        *destination = (u8)code_point;
        text_block->used++;
        target->used++;
        target->reserved++;
        return;
    }
    u8 size = 0;
    u32 error = 0;
    utf8_encode(destination, limit, code_point, &size, &error);
    if (error == coding_error_not_scalar) {
        error = 0;
        utf8_encode(destination, limit, code_point_replacement, &size, &error);
    }
    if (error) return; // no room: only a prescan's scratch block can be full
    text_block->used += size;
    target->used += size;
    target->reserved += size;
}

void hp_token_add_attribute(hp_cursor_t *cursor, html_tokens_t *tokens, data_t *name, data_t *value) {
    html_token_attribute_t *record =
        (html_token_attribute_t *)data_push(&tokens->attribute_block, sizeof(html_token_attribute_t), 8);
    assert_true(record);
    if (cursor->token.attribute_count == 0) cursor->token.attributes = record;
    for (u64 i = 0; i < name->used; i++) {
        u8 c = name->bytes[i];
        if (c >= 'A' && c <= 'Z') name->bytes[i] = (u8)(c + ('a' - 'A'));
    }
    record->name = *name;
    record->value = *value;
    cursor->token.attribute_count++;
}

static bool hp_text_is(const data_t *text, const char *literal) {
    u64 size = string_length(literal);
    return text->used == size && memory_equal(text->bytes, size, literal, size);
}

u32 hp_token_emit(hp_cursor_t *cursor, html_tokens_t *tokens) {
    mark_start(label_hp_token_emit);
    assert_true(cursor->token.kind != html_token_none);
    html_token_t *record = (html_token_t *)data_push(&tokens->token_block, sizeof(html_token_t), 8);
    assert_true(record);
    *record = cursor->token;
    tokens->token_count++;
    u32 next = 0;
    if (record->kind == html_token_start_tag) {
        tokens->attribute_total += record->attribute_count;
        if (hp_text_is(&record->text, "script") || hp_text_is(&record->text, "style")) next = hp_state_raw;
        else if (hp_text_is(&record->text, "textarea") || hp_text_is(&record->text, "title"))
            next = hp_state_escapable_raw;
    }
    cursor->token.kind = html_token_none;
    mark_end(label_hp_token_emit);
    return next;
}

// ---- the error report ----------------------------------------------------------------

void hp_report_error(hp_cursor_t *cursor, u32 error) {
    const char *text = html_tokenizer_error_text(error);
    assert_message(text != nullptr, "a tokenizer error without a report text");
    if (error == html_tokenizer_error_eof) {
        log_string(log_main, "Error: ");
        log_string(log_main, text);
    } else {
        const u8 *line_start = cursor->reader.line_start;
        const u8 *at = cursor->previous.position;
        u64 column = at >= line_start ? (u64)(at - line_start) : 0;
        log_string(log_main, "Error( ");
        log_number(log_main, (u64)cursor->reader.line + 1);
        log_string(log_main, ", ");
        log_number(log_main, column + 1);
        log_string(log_main, " ): ");
        log_string(log_main, text);
        log_string(log_main, "    ");
        hp_reader_t line = cursor->reader;
        line.position = line_start;
        line.decoder_state = 0;
        line.pending = code_point_none;
        for (;;) {
            u32 decode_error = 0;
            u32 c = hp_decode_codepoint(&line, cursor->encoding, &decode_error);
            if (decode_error || c == '\n' || c == '\r') break;
            u8 bytes[4];
            u8 size = 0;
            u32 encode_error = 0;
            utf8_encode(bytes, bytes + 4, c, &size, &encode_error);
            if (encode_error) {
                encode_error = 0;
                utf8_encode(bytes, bytes + 4, code_point_replacement, &size, &encode_error);
            }
            log_bytes(log_main, bytes, size);
        }
        log_string(log_main, "\n    ");
        for (u64 i = 0; i < column; i++) log_string(log_main, " ");
        log_string(log_main, "^\n");
        log_string(log_main, "\n");
    }
    cursor->reader.position = cursor->reader.end;
    cursor->reader.pending = code_point_none;
    cursor->state = hp_state_default;
}

// ---- attributes --------------------------------------------------------------------------

void hp_parse_attribute(hp_cursor_t *cursor, data_t *text_block, data_t *name, data_t *value, u32 *error) {
    *name = data_t{};
    *value = data_t{};
    u32 c = hp_consume(cursor, error);
    while (!*error && hp_is_html_space(c)) c = hp_consume(cursor, error);
    while (!*error && !hp_is_attribute_name_stop(c)) {
        hp_push_codepoint(text_block, name, c);
        c = hp_consume(cursor, error);
    }
    bool had_space = false;
    while (!*error && hp_is_html_space(c)) {
        had_space = true;
        c = hp_consume(cursor, error);
    }
    if (*error || name->used == 0) {
        if (!*error && (c == '>' || c == '/')) hp_reconsume(cursor);
        else *error = html_tokenizer_error_invalid_text_character_in_attribute_name;
        return;
    }
    if (c != '=') {
        if (!had_space && c != '>' && c != '/')
            *error = html_tokenizer_error_empty_attribute_not_followed_by_a_valid_character;
        else hp_reconsume(cursor);
        return;
    }
    c = hp_consume(cursor, error);
    while (!*error && hp_is_html_space(c)) c = hp_consume(cursor, error);
    if (*error) return;

    if (c != '"' && c != '\'') {
        while (!*error && !hp_is_unquoted_value_stop(c)) {
            hp_push_codepoint(text_block, value, c);
            c = hp_consume(cursor, error);
        }
        value->reserved = value->used;
        if (*error) return;
        if (!hp_is_html_space(c) && c != '>') *error = html_tokenizer_error_invalid_character_in_unquoted_attribute_value;
        else hp_reconsume(cursor);
        return;
    }

    u32 quote = c;
    c = hp_consume(cursor, error);
    hp_cursor_t saved = *cursor;
    while (!*error) {
        if (c == '&') {
            u32 first, second, ambiguous;
            u32 count = hp_parse_character_reference(cursor, &first, &second, &ambiguous);
            if (count) {
                hp_push_codepoint(text_block, value, first);
                if (count == 2) hp_push_codepoint(text_block, value, second);
                c = hp_consume(cursor, error);
                continue;
            }
            if (ambiguous) {
                *error = html_tokenizer_error_ambiguous_ampersand_in_attribute_value;
                break;
            }
        }
        if (hp_is_invalid_text_character(c) || c == quote) break;
        hp_push_codepoint(text_block, value, c);
        c = hp_consume(cursor, error);
    }
    if (!*error) {
        if (c == quote) c = hp_consume(cursor, error);
        else *error = html_tokenizer_error_quoted_attribute_value_missing_the_closing_quote;
    } else if (*error == html_tokenizer_error_eof) {
        *cursor = saved;
        *error = html_tokenizer_error_eof_quoted_attribute_value;
    }
    if (*error) return;
    if (cursor->flags & hp_flag_no_space_after_attribute) {
        hp_reconsume(cursor);
        return;
    }
    if (hp_is_html_space(c) || c == '>' || c == '/') hp_reconsume(cursor);
    else *error = html_tokenizer_error_attribute_value_not_followed_by_a_valid_character;
}

// ---- states -----------------------------------------------------------------------------

// Marks go around the multi-byte pushes only: one per ASCII character
// would cost more than the push itself.
static void hp_push(html_tokens_t *tokens, hp_cursor_t *cursor, u32 code_point) {
    if (code_point < 0x80) {
        hp_push_codepoint(&tokens->text_block, &cursor->token.text, code_point);
        return;
    }
    mark_start(label_hp_push_codepoint);
    hp_push_codepoint(&tokens->text_block, &cursor->token.text, code_point);
    mark_end(label_hp_push_codepoint);
}

static void hp_run_default(hp_cursor_t *cursor, html_tokens_t *tokens, u32 *error) {
    PROFILE_SCOPE(hp_state_default);
    *error = 0;
    cursor->token.kind = html_token_none;
    u32 c = hp_consume(cursor, error);
    if (c != '<' && !*error) hp_token_create(cursor, html_token_text);
    mark_start(label_hp_state_default_loop);
    while (!*error && c != '<') {
        if (c == '&') {
            u32 first, second, ambiguous;
            u32 count = hp_parse_character_reference(cursor, &first, &second, &ambiguous);
            if (count) {
                hp_push(tokens, cursor, first);
                if (count == 2) hp_push(tokens, cursor, second);
                c = hp_consume(cursor, error);
                continue;
            }
        }
        if (hp_is_invalid_text_character(c)) {
            *error = html_tokenizer_error_invalid_text_character;
            break;
        }
        hp_push(tokens, cursor, c);
        c = hp_consume(cursor, error);
    }
    mark_end(label_hp_state_default_loop);
    if ((!*error || *error == html_tokenizer_error_eof) && cursor->token.kind) hp_token_emit(cursor, tokens);
    if (*error == html_tokenizer_error_eof) *error = 0;
    if (!*error) cursor->state = hp_state_tag;
}

static void hp_run_tag(hp_cursor_t *cursor, html_tokens_t *tokens, u32 *error) {
    PROFILE_SCOPE(hp_state_tag);
    u32 c = hp_consume(cursor, error);
    if (*error) return;
    if (c == '?') {
        cursor->state = hp_state_xml;
        return;
    }
    if (c == '!') {
        cursor->state = hp_state_markup;
        return;
    }
    if (c == '/') {
        hp_token_create(cursor, html_token_end_tag);
        c = hp_consume(cursor, error);
        while (!*error && hp_is_alnum(c)) {
            hp_push(tokens, cursor, c);
            c = hp_consume(cursor, error);
        }
        while (!*error && hp_is_html_space(c)) c = hp_consume(cursor, error);
        if (*error) return;
        if (c == '>') {
            hp_token_emit(cursor, tokens);
            cursor->state = hp_state_default;
        } else {
            *error = html_tokenizer_error_expected_greater_than;
        }
        return;
    }
    if (!hp_is_alnum(c)) {
        *error = html_tokenizer_error_invalid_text_character_in_tag_name;
        return;
    }
    hp_token_create(cursor, html_token_start_tag);
    while (!*error && hp_is_alnum(c)) {
        hp_push(tokens, cursor, c);
        c = hp_consume(cursor, error);
    }
    bool had_space = false;
    while (!*error && hp_is_html_space(c)) {
        had_space = true;
        c = hp_consume(cursor, error);
    }
    if (had_space) {
        // End of input here falls to the attribute parser, which reports it
        // as a bad attribute name.
        if (!*error) hp_reconsume(cursor);
        else *error = 0;
        for (;;) {
            data_t name, value;
            hp_parse_attribute(cursor, &tokens->text_block, &name, &value, error);
            if (*error || name.used == 0) break;
            hp_token_add_attribute(cursor, tokens, &name, &value);
        }
        if (*error) return;
        c = hp_consume(cursor, error);
        while (!*error && hp_is_html_space(c)) c = hp_consume(cursor, error);
    }
    if (*error) return;
    if (c == '/') {
        cursor->token.self_closing = 1;
        c = hp_consume(cursor, error);
        if (*error) return;
    }
    if (c == '>') {
        u32 next = hp_token_emit(cursor, tokens);
        cursor->state = next ? next : hp_state_default;
    } else {
        *error = had_space ? html_tokenizer_error_expected_greater_than
                           : html_tokenizer_error_invalid_text_character_in_tag_name;
    }
}

static void hp_run_xml(hp_cursor_t *cursor, u32 *error) {
    PROFILE_SCOPE(hp_state_xml);
    u32 c = hp_consume(cursor, error);
    while (!*error) {
        if (c == '?') {
            u32 peek_error = 0;
            hp_peek_start(cursor);
            if (hp_peek(cursor, &peek_error) == '>' && !peek_error) {
                hp_peek_commit(cursor);
                cursor->state = hp_state_default;
                return;
            }
        }
        c = hp_consume(cursor, error);
    }
}

// Consumes `word` (folded) starting with the current `*c`; false at the
// first difference.
static bool hp_match_folded(hp_cursor_t *cursor, u32 *c, const char *word, u32 *error) {
    for (const char *p = word; *p; p++) {
        if (*error || char_to_ascii_lower(*c) != (u8)*p) return false;
        *c = hp_consume(cursor, error);
    }
    return !*error;
}

static u32 hp_skip_space(hp_cursor_t *cursor, u32 c, u32 *error) {
    while (!*error && hp_is_html_space(c)) c = hp_consume(cursor, error);
    return c;
}

static void hp_run_doctype(hp_cursor_t *cursor, html_tokens_t *tokens, u32 *error) {
    hp_token_create(cursor, html_token_doctype);
    u32 c = hp_consume(cursor, error);
    c = hp_skip_space(cursor, c, error);
    bool done = false;
    bool html = hp_match_folded(cursor, &c, "html", error);
    if (html) {
        if (c == '>') {
            done = true;
        } else if (hp_is_html_space(c)) {
            c = hp_skip_space(cursor, c, error);
            if (!*error && c == '>') done = true;
        } else {
            html = false;
        }
    }
    if (!done && html) {
        bool system = hp_match_folded(cursor, &c, "system", error) && hp_is_html_space(c);
        if (system) {
            c = hp_skip_space(cursor, c, error);
            if (!*error && (c == '"' || c == '\'')) {
                u32 quote = c;
                c = hp_consume(cursor, error);
                const char *legacy = "about:legacy-compat";
                bool same = true;
                for (const char *p = legacy; *p && same; p++) {
                    if (*error || c != (u8)*p) same = false;
                    else c = hp_consume(cursor, error);
                }
                if (same && !*error && c == quote) {
                    cursor->token.legacy = 1;
                    c = hp_consume(cursor, error);
                    c = hp_skip_space(cursor, c, error);
                    if (!*error && c == '>') done = true;
                }
            }
        } else if (hp_match_folded(cursor, &c, "public", error) && hp_is_html_space(c)) {
            c = hp_skip_space(cursor, c, error);
            if (!*error && (c == '"' || c == '\'')) {
                u32 quote = c;
                do c = hp_consume(cursor, error);
                while (!*error && c != quote);
            }
            c = hp_consume(cursor, error);
            c = hp_skip_space(cursor, c, error);
            if (!*error && (c == '"' || c == '\'')) {
                u32 quote = c;
                do c = hp_consume(cursor, error);
                while (!*error && c != quote);
            }
            if (!*error) {
                c = hp_consume(cursor, error);
                c = hp_skip_space(cursor, c, error);
                if (!*error && c == '>') done = true;
            }
        }
    }
    if (done) {
        hp_token_emit(cursor, tokens);
        cursor->state = hp_state_default;
    } else {
        *error = html_tokenizer_error_invalid_doctype;
    }
}

static void hp_run_markup(hp_cursor_t *cursor, html_tokens_t *tokens, u32 *error) {
    PROFILE_SCOPE(hp_state_markup);
    if (hp_peek_matches(cursor, "doctype", 7, true)) {
        u32 peek_error = 0;
        u32 c = hp_peek(cursor, &peek_error);
        hp_peek_commit(cursor);
        if (peek_error || !hp_is_html_space(c)) {
            *error = html_tokenizer_error_doctype_not_followed_by_a_space;
            return;
        }
        hp_run_doctype(cursor, tokens, error);
        return;
    }

    if (hp_peek_matches(cursor, "[CDATA[", 7, false)) {
        u32 c = hp_peek(cursor, error);
        hp_peek_commit(cursor);
        hp_token_create(cursor, html_token_cdata);
        while (!*error) {
            if (c == ']' && cursor->reader.end - cursor->reader.position >= 2 &&
                hp_peek_matches(cursor, "]>", 2, false)) {
                hp_peek_commit(cursor);
                break;
            }
            if (hp_is_invalid_text_character(c)) {
                *error = html_tokenizer_error_invalid_text_character_in_cdata;
                break;
            }
            hp_push(tokens, cursor, c);
            c = hp_consume(cursor, error);
        }
        if (!*error) {
            hp_token_emit(cursor, tokens);
            cursor->state = hp_state_default;
        }
        return;
    }

    if (cursor->reader.end - cursor->reader.position < 2 || !hp_peek_matches(cursor, "--", 2, false)) {
        *error = html_tokenizer_error_invalid_markup_syntax;
        return;
    }
    hp_token_create(cursor, html_token_comment);
    hp_peek_commit(cursor);
    u64 count = 0;
    u32 c = hp_consume(cursor, error);
    while (!*error) {
        if (c == '-' && cursor->reader.end - cursor->reader.position >= 2 && hp_peek_matches(cursor, "->", 2, false)) {
            hp_peek_commit(cursor);
            hp_token_emit(cursor, tokens);
            cursor->state = hp_state_default;
            return;
        }
        if (c == '>' && count == 0) {
            *error = html_tokenizer_error_comment_starts_with_invalid_character_sequence;
        } else if (c == '-') {
            if (count == 0 && hp_peek_matches(cursor, ">", 1, false))
                *error = html_tokenizer_error_comment_starts_with_invalid_character_sequence;
            else if (hp_peek_matches(cursor, "-!>", 3, false))
                *error = html_tokenizer_error_comment_contains_invalid_character_sequence;
        } else if (c == '<') {
            if (hp_peek_matches(cursor, "!--", 3, false)) {
                u32 peek_error = 0;
                u32 after = hp_peek(cursor, &peek_error);
                if (peek_error || after != '>')
                    *error = html_tokenizer_error_comment_contains_invalid_character_sequence;
            }
        }
        if (*error) break;
        if (c == '&') {
            u32 first, second, ambiguous;
            u32 n = hp_parse_character_reference(cursor, &first, &second, &ambiguous);
            if (n) {
                hp_push(tokens, cursor, first);
                if (n == 2) hp_push(tokens, cursor, second);
                count += n;
                c = hp_consume(cursor, error);
                continue;
            }
        }
        if (hp_is_invalid_text_character(c)) {
            *error = html_tokenizer_error_invalid_text_character_in_comment;
            break;
        }
        hp_push(tokens, cursor, c);
        count++;
        c = hp_consume(cursor, error);
    }
}

// script, style (7) and textarea, title (8): text up to the matching end
// tag, which is left for the default state.
static void hp_run_raw(hp_cursor_t *cursor, html_tokens_t *tokens, u32 *error) {
    PROFILE_SCOPE(hp_state_raw);
    assert_true(tokens->token_count > 0);
    data_t name = tokens->tokens[tokens->token_count - 1].text;
    u32 state = cursor->state;
    hp_peek_start(cursor);
    const u8 *text_end = cursor->lookahead.position;
    const u8 *before = text_end; // the position before the last peeked character
    u32 c = code_point_none;
    bool closed = false;
    while (!*error && !closed) {
        while (!*error && c != '<') {
            text_end = cursor->lookahead.position;
            before = text_end;
            c = hp_peek(cursor, error);
        }
        if (*error) break;
        const u8 *candidate = cursor->lookahead.position;
        before = candidate;
        c = hp_peek(cursor, error);
        if (*error) break;
        if (c != '/') {
            text_end = candidate;
            continue;
        }
        bool same = true;
        for (u64 i = 0; i < name.used; i++) {
            before = cursor->lookahead.position;
            c = hp_peek(cursor, error);
            if (*error || c != name.bytes[i]) {
                same = false;
                break;
            }
        }
        if (*error) break;
        if (!same) {
            // A "<" that breaks the name may start the real end tag; the
            // text then ends before it.
            if (c == '<') text_end = before;
            continue;
        }
        before = cursor->lookahead.position;
        c = hp_peek(cursor, error);
        if (*error) break;
        if (c == '>') {
            closed = true;
        } else if (hp_is_html_space(c) || c == '/') {
            *error = state == hp_state_raw ? html_tokenizer_error_invalid_string_in_raw_element
                                           : html_tokenizer_error_invalid_string_in_escapable_raw_element;
        } else if (c == '<') {
            text_end = before;
        }
    }
    if (*error == html_tokenizer_error_eof) {
        *error = 0;
        text_end = cursor->lookahead.end;
    }
    if (*error) return;
    if (cursor->reader.position != text_end) {
        hp_token_create(cursor, html_token_text);
        while (!*error && (cursor->reader.position < text_end || cursor->reader.pending != code_point_none)) {
            c = hp_consume(cursor, error);
            if (*error) break;
            if (state == hp_state_escapable_raw && c == '&') {
                u32 first, second, ambiguous;
                u32 n = hp_parse_character_reference(cursor, &first, &second, &ambiguous);
                if (n) {
                    hp_push(tokens, cursor, first);
                    if (n == 2) hp_push(tokens, cursor, second);
                    continue;
                }
                if (ambiguous) {
                    *error = html_tokenizer_error_ambiguous_ampersand_in_escapable_raw_element;
                    break;
                }
            }
            if (hp_is_invalid_text_character(c)) {
                *error = html_tokenizer_error_invalid_text_character;
                break;
            }
            hp_push(tokens, cursor, c);
        }
        if (*error == html_tokenizer_error_eof) *error = 0;
        if (*error) return;
        hp_token_emit(cursor, tokens);
    }
    cursor->state = hp_state_default;
}

// ---- the whole job ------------------------------------------------------------------

struct hp_prediction_t {
    u64 tokens;
    u64 attributes;
    u64 text;
};

static hp_prediction_t hp_predict(u64 n) {
    hp_prediction_t p;
    // A text of one byte between tags of three ("a<p>b<p>c") makes a token
    // for every two bytes and one more: n / 2 alone falls one short.
    p.tokens = n > 1 ? (n + 1) / 2 : 1;
    p.attributes = n > 4 ? (n - 3) / 2 : 1;
    p.text = 4 * n;
    return p;
}

u64 hp_tokenizer_size(const data_t *input) {
    hp_prediction_t p = hp_predict(input->used);
    u64 s = align_up(8 + sizeof(html_token_t) * p.tokens, 8);
    return s + sizeof(html_token_attribute_t) * p.attributes + p.text;
}

static bool hp_arena_has_room(const data_t *arena, u64 size) {
    return arena->bytes && arena->used <= arena->reserved && arena->reserved - arena->used >= size;
}

html_tokens_t hp_tokenizer(data_t *arena, const data_t *input, u32 flags, u32 *error) {
    html_tokens_t tokens = {};
    if (*error) return tokens;
    PROFILE_SCOPE(hp_tokenizer);
    data_t copy = *arena;
    hp_prediction_t p = hp_predict(input->used);
    if (!hp_arena_has_room(arena, hp_tokenizer_size(input))) {
        *error = html_tokenizer_error_not_enough_memory;
        *arena = copy;
        return tokens;
    }
    tokens.token_block = data_block_reserve(arena, sizeof(html_token_t) * p.tokens, 8);
    tokens.attribute_block = data_block_reserve(arena, sizeof(html_token_attribute_t) * p.attributes, 8);
    tokens.text_block = data_block_reserve(arena, p.text, 1);
    if (!tokens.token_block.bytes || !tokens.attribute_block.bytes || !tokens.text_block.bytes) {
        *error = html_tokenizer_error_not_enough_memory;
        *arena = copy;
        return html_tokens_t{};
    }
    tokens.tokens = (html_token_t *)data_push(&tokens.token_block, 0, 8);

    const u8 *bytes = input->bytes;
    u64 size = bytes ? input->used : 0;
    hp_cursor_t cursor = hp_cursor_create(bytes, size, flags);
    if (size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
        cursor.encoding = encoding_utf8;
        cursor.reader.position += 3;
    } else if (size >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF) {
        cursor.encoding = encoding_utf16be;
        cursor.reader.position += 2;
    } else if (size >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE) {
        cursor.encoding = encoding_utf16le;
        cursor.reader.position += 2;
    } else {
        cursor.encoding = hp_detect_encoding(input);
        if (cursor.encoding == encoding_none) cursor.encoding = encoding_utf8;
    }
    cursor.reader.line_start = cursor.reader.position;
    cursor.lookahead = cursor.previous = cursor.reader;

    u32 round_error = 0;
    mark_start(label_hp_tokenizer_loop);
    while (cursor.reader.position < cursor.reader.end) {
        round_error = 0;
        switch (cursor.state) {
        case hp_state_default: hp_run_default(&cursor, &tokens, &round_error); break;
        case hp_state_tag: hp_run_tag(&cursor, &tokens, &round_error); break;
        case hp_state_xml: hp_run_xml(&cursor, &round_error); break;
        case hp_state_markup: hp_run_markup(&cursor, &tokens, &round_error); break;
        case hp_state_raw:
        case hp_state_escapable_raw: hp_run_raw(&cursor, &tokens, &round_error); break;
        default: assert_message(false, "unknown tokenizer state");
        }
        if (round_error) hp_report_error(&cursor, round_error);
    }
    mark_end(label_hp_tokenizer_loop);
    *error = round_error;

    tokens.encoding = cursor.encoding;
    u64 given_back = data_trim(&tokens.text_block);
    data_pop(arena, given_back);
    return tokens;
}

// ---- debugging dump -------------------------------------------------------------------
