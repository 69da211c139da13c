// tool.h - what the parts of tidewrack-tool share: buffered output with a
// JSON writer (output.cpp), the parsed command line (main.cpp), the engine
// of the fetching commands (commands.cpp), and the commands themselves, one
// function each (commands.cpp, dump_reader.cpp, dump_html.cpp).
#pragma once

#include "app/engine.h"
#include "base/dates.h"
#include "base/memory.h"

// ---- output (stdout, buffered) ----------------------------------------------------------------
void out_bytes(const void *bytes, u64 size);
void out_c(const char *text);
void out_number(u64 value);
void out_code_point(u32 code_point);
// A JSON string of any bytes: valid UTF-8 passes, each byte that starts no
// valid sequence becomes U+FFFD.
void out_json_string(const u8 *bytes, u64 size);
void out_json_data(const data_t *data);
void out_json_c(const char *text);
// Writes what is buffered; false when stdout refused any of it.
bool out_finish();

// JSON objects and arrays with the comma rule: a value after another in the
// same object or array gets its comma from json_separator (json_key calls it).
void json_separator();
void json_open(const char *bracket);
void json_close(const char *bracket);
void json_key(const char *key);
void json_number(const char *key, u64 value);
void json_bool(const char *key, bool value);
void json_string(const char *key, const data_t *value);
void json_date(const char *key, date_t date); // "yyyy-mm-dd hh:mm:ss", null for no date
void json_flags(const char *key, const u32 *flags, u32 count);

void print_error(const char *text);
bool text_is(const data_t *text, const char *literal);

// ---- the command line ---------------------------------------------------------------------------
enum : u32 { // the options a command takes
    tool_option_path = 1,   // -path DIR and -log
    tool_option_url = 2,    // --url URL
    tool_option_strict = 4, // --strict
};

struct tool_args_t {
    data_t path;  // -path DIR
    data_t url;   // --url URL
    bool strict;  // --strict
    bool log;     // -log: the main log to log.txt at the end
    char **items; // the rest, in order (gathered at the front of argv's tail)
    u32 item_count;
    bool bad;
};

int tool_usage();
data_t tool_item(const tool_args_t *args, u32 index);

// ---- the engine of the commands ----------------------------------------------------------------
extern engine_t tool_engine;
// Opens the engine on the folder (-path or the default) and its newest
// snapshot, or on `file`. False, said on stderr, when that can't be done.
bool tool_open(const data_t *folder, const data_t *file);

// ---- the commands --------------------------------------------------------------------------------
int tool_update(const tool_args_t *args);
int tool_import(const tool_args_t *args);
int tool_export(const tool_args_t *args);
int tool_parse(const tool_args_t *args);
int tool_dump(const tool_args_t *args);
int tool_html(const tool_args_t *args);
int tool_decode(const tool_args_t *args);
int tool_discover(const tool_args_t *args); // discover.cpp
