// view_article.h - what the article, entry and feed views share: links that
// act on release over one or more rectangles, the per-frame image look, the
// article walk of a pass, and the clip of a layout's batches.
#pragma once

#include "html/tree.h"
#include "net/image_query.h"
#include "toolkit/layout.h"
#include "toolkit/ui_state.h"
#include "views/views.h"

constexpr vec4 view_link_colour = {0.94f, 0.46f, 0.14f, 1};
constexpr vec4 view_link_pressed_colour = {0, 0.48f, 0.8f, 1};
constexpr vec4 view_error_colour = {1, 0, 0, 1};

// One frame's links of a view. A press on a link makes it active; the release
// clicks only over one of its own rectangles, which may belong to a later run
// of the same link, so an unclaimed release is settled by view_links_end.
struct view_links_t {
    ui_t *ui;
    ui_id_t released; // active link whose release no run has claimed yet
    u32 has_released;
};

// Hot over any of the rectangles; a press makes it active; a release over it
// is a click (1). Nothing outside the input pass.
u32 view_link_button(view_links_t *links, ui_id_t id, const vec4 *rects, u32 count);
// A link string's run: its segments as rectangles (empty ones skipped).
u32 view_link_string(view_links_t *links, ui_id_t id, const layout_command_t *command);
// After the frame's runs: a release that no run of its link claimed ends it.
void view_links_end(view_links_t *links);

// The article's tree walk for this pass, in the walk memory; an empty one
// when the parse failed (the walk has no memory then).
html_tree_traversal_t article_walk_start(view_state_t *state, u32 *error);
// Whether the selection's article failed to parse: it is drawn as its source.
bool article_failed(const view_state_t *state);
// Input replay of the article's commands: links and the images' fetch and size.
void article_interact(view_state_t *state, layout_t *layout, app_context *context, reader_t *reader,
                      view_links_t *links);
// The selected entry's image slot for an address, with the frame's look.
image_query_t *view_image_lookup(view_state_t *state, const data_t *address, bool create, u32 *frame_state);
// Clip of the batches that a layout's area draws into (shapes, text, images).
// A layout handed to view_layout_render has boxes whose `user` is null or a
// picture's address (a data_t).
void view_layout_clip(app_context *context, vec4 rect);
// The renderer's image batch, or null.
gl_batch_t *view_image_batch(app_context *context);

// The passes of the selected entry's view (RSS or Atom) and of the selected
// feed's form, without the drawing: what draw_entry_* and draw_feed_* lay
// out, input included, before they render it.
void entry_view_layout(app_context *context, reader_t *reader, vec4 rect, layout_t *layout);
void feed_view_layout(app_context *context, reader_t *reader, vec4 rect, layout_t *layout);
