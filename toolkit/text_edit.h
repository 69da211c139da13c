// text_edit.h - the single-line text field and the clipboard. The text lives
// in the caller's data_t, whose `reserved` size is the limit; the field keeps
// only its caret, selection anchor and horizontal scroll in the state record
// of its id (ui_state_get(ui, id)->text_edit; `changed` tells a view that the
// text was edited since the field was last activated). Offsets are bytes of
// the UTF-8 text. No undo, no multi-line mode.
#pragma once

#include "toolkit/widgets.h"

enum : u32 {
    ui_text_edit_enter = 13,
    ui_text_edit_line_feed = 10,
    ui_text_edit_escape = 27,
    ui_text_edit_tab = 9,
};

// Result: 0, or the key that ended the editing (13, 10, 27, 9); after it the
// field isn't active. Typing, paste (Control+V) and copy (Control+C) act while
// the field is active; a press on it activates it.
u32 ui_text_edit(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font);
// The two halves, for callers that split them.
u32 ui_text_edit_input(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font);
void ui_text_edit_draw(ui_t *ui, ui_id_t id, vec4 rect, data_t *text, u32 font);

// Appends the clipboard's text at the end of `data`, up to its free room
// (less one byte with `terminate`, which then appends a zero byte), stopping
// at the first NUL. Returns what was added; nothing on any failure.
data_t ui_clipboard_get(data_t *data, bool terminate);
// Puts UTF-8 text on the clipboard; false on invalid UTF-8 or a refusal.
bool ui_clipboard_set(data_t text);
