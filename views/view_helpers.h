// view_helpers.h - small pieces the views share: fonts by index, a line of
// text fitted into a rectangle, the whole-pixel rectangle of a layout box.
#pragma once

#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "toolkit/layout.h"
#include "toolkit/text_edit.h"
#include "toolkit/ui_state.h"
#include "toolkit/widgets.h"
#include "views/views.h"

inline font_t *view_font(app_context *context, u32 index) { return font_get(context->ui->font_set, index); }

// The baseline that centres one line of the font in a rectangle, as the
// buttons place their labels.
f32 view_baseline(const font_t *font, vec4 rect);
// The first line of `text` cut to the rectangle's width (with "…" when cut)
// and drawn on the centred baseline; nothing when the batch is null.
void view_text_fitted(app_context *context, gl_batch_t *batch, vec4 rect, data_t text, u32 font, vec4 colour);
// Sets the clip of the toolkit and of the three batches of the ordinary layer.
void view_set_clip(app_context *context, vec4 rect);
// A layout box's screen rectangle (the box was added with whole pixels).
inline vec4 view_box_rect(const layout_command_t *command) { return command->box.rect; }
// A text field bound to a string of the reader that is edited in a copy of
// `capacity` bytes and written back (into the file storage when it grew).
// Replaces a string of the reader: in place when it fits, else in a block of
// the file storage (the old block, if it lay there, goes back).
void view_store_text(app_context *context, data_t *stored, const data_t *text);
u32 view_text_edit_stored(app_context *context, ui_id_t id, vec4 rect, data_t *stored, u64 capacity, u32 font);

constexpr vec4 view_white = {1, 1, 1, 1};
