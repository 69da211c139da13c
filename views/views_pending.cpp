// views_pending.cpp - stand-ins for the reading views (entries, feeds and the
// rendering of a finished layout) while those are being written: a selection
// shows the help text. Each is weak, so the real one wins wherever it is
// linked in; this file goes when the last of them has landed.
#include "views/view_helpers.h"

#define VIEWS_PENDING __attribute__((weak))

VIEWS_PENDING void draw_entry_rss(app_context *context, reader_t *reader, vec4 rect) { draw_help(context, reader, rect); }
VIEWS_PENDING void draw_entry_atom(app_context *context, reader_t *reader, vec4 rect) { draw_help(context, reader, rect); }
VIEWS_PENDING void draw_feed_rss(app_context *context, reader_t *reader, vec4 rect) { draw_help(context, reader, rect); }
VIEWS_PENDING void draw_feed_atom(app_context *context, reader_t *reader, vec4 rect) { draw_help(context, reader, rect); }

VIEWS_PENDING void view_layout_render(app_context *context, view_state_t *state, layout_t *layout) {
    if (context->ui->text) layout_draw(layout, context->ui->text);
}
