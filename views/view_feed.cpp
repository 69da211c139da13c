// view_feed.cpp - the selected feed's settings: its address, the options of
// its meta record, the link configuration its links go through, and delete or
// restore. The form is laid out with boxes; the widgets run on the boxes'
// rectangles once a pass's layout is final.
#include "base/profiler.h"
#include "base/text.h"
#include "toolkit/text_edit.h"
#include "toolkit/widgets.h"
#include "views/view_article.h"

#include <math.h>

namespace {

data_t feed_literal(const char *text) { return data_t{string_length(text), string_length(text), (u8 *)text}; }

struct feed_form_t {
    layout_command_t *url_box, *save_box, *option_boxes[3], *executable_box, *delete_box;
};

void feed_passes(app_context *context, reader_t *reader, vec4 rect, bool rss, layout_t *out) {
    view_state_t *state = context->view_state;
    ui_t *ui = context->ui;
    feed_t *feed = state->selected_feed;
    assert_message(feed, "The feed view without a feed.");
    meta_t *meta = reader_get_meta(reader, feed->id);
    assert_message(meta, "A shown feed has no meta record.");

    const u32 font = view_font_normal;
    const f32 inset = ui_style_top(&ui_theme.dropdown);
    const data_t save = feed_literal("Save");
    const data_t options[3] = {feed_literal("Sort oldest to newest entries."), feed_literal("Hide enclosure."),
                               feed_literal("Draw enclosure image.")};
    const u32 option_bits[3] = {meta_sort_oldest_first, meta_hide_enclosure, meta_draw_enclosure_image};
    const u32 option_count = rss ? 3 : 1;
    vec2 field_size = ui_text_box_size(ui, &ui_theme.text_edit, font);
    vec2 save_size = ui_button_size(ui, &ui_theme.button, save, font);
    vec2 option_sizes[3];
    for (u32 i = 0; i < 3; i++) option_sizes[i] = ui_checkbox_size(ui, &ui_theme.checkbox, options[i], font);
    vec2 dropdown_size = ui_dropdown_size(ui, &ui_theme.dropdown, font);
    vec2 delete_size = ui_button_size(ui, &ui_theme.button, feed_literal("Restore feed"), font);
    // Widgets take whole-pixel rectangles.
    vec2 *sizes[] = {&field_size, &save_size, &option_sizes[0], &option_sizes[1], &option_sizes[2], &dropdown_size,
                     &delete_size};
    for (vec2 *size : sizes) *size = vec2{ceilf(size->x), ceilf(size->y)};
    data_t names[reader_link_configuration_count];
    u64 selected = 0;
    for (u32 i = 0; i < reader_link_configuration_count; i++) {
        names[i] = reader->link_configurations[i].name;
        if (meta->link_configuration == &reader->link_configurations[i]) selected = i;
    }

    u32 redraw = 0;
    const u32 box = layout_box_move_right | layout_box_whole_pixels;
    layout_t &layout = *out;
    layout = layout_create(&context->frame_memory, context->font_set, rect, state->content_scroll.x,
                           state->content_scroll.y, layout_margin_t{4, 4, 4, 4});
    while (layout_pass_start(&layout)) {
        ui_set_pass_from_layout(ui, &layout);
        // The bars only mean something once the content is measured: a
        // recording would clamp the scroll against what it has so far.
        if (!layout_is_recording(&layout)) ui_layout_scrollbars(&state->content_scroll, ui, &layout, rect);
        if (layout_scroll_update(&layout, false)) continue;
        vec4 clip = {layout.x, layout.y, layout.x + layout.width, layout.y + layout.height};
        if (layout.state == layout_state_draw) view_layout_clip(context, clip);
        else ui_set_clip(ui, clip);

        feed_form_t form = {};
        layout_set_font(&layout, font);
        layout_new_line(&layout);
        layout_move(&layout, 0, inset, 0);
        layout_string(&layout, feed_literal("URI: "));
        layout_move(&layout, 2, -inset, 0);
        f32 left = layout_fill_width_floor(&layout)->fill.width - save_size.x - 2;
        form.url_box = layout_add_box(&layout, left > 1 ? left : 1, field_size.y, nullptr, box);
        layout_move(&layout, 2, 0, 0);
        form.save_box = layout_add_box(&layout, save_size.x, save_size.y, nullptr, box);
        for (u32 i = 0; i < option_count; i++) {
            layout_new_line(&layout);
            layout_move(&layout, 0, i == 0 ? 10 : 2, 0);
            form.option_boxes[i] = layout_add_box(&layout, option_sizes[i].x, option_sizes[i].y, nullptr, box);
        }
        layout_new_line(&layout);
        layout_move(&layout, 0, 10 + inset, 0);
        layout_string(&layout, feed_literal("Executable: "));
        layout_move(&layout, 0, -inset, 0);
        f32 rest = layout_fill_width_floor(&layout)->fill.width;
        form.executable_box =
            layout_add_box(&layout, rest > dropdown_size.x ? rest : dropdown_size.x, dropdown_size.y, nullptr, box);
        layout_new_line(&layout);
        layout_move(&layout, 0, 10, 0);
        form.delete_box = layout_add_box(&layout, delete_size.x, delete_size.y, nullptr, box);
        layout_finish(&layout);

        if (layout_is_recording(&layout) || layout.dirty) continue;
        // The address field is known by the stored address it edits.
        ui_text_edit(ui, ui_id_pointer(feed->url.bytes), form.url_box->box.rect, &state->feed_url_text, font);
        if (ui_button(ui, ui_id(), form.save_box->box.rect, save, font)) {
            data_t *text = &state->feed_url_text;
            if (text->used <= feed->url.reserved) {
                memory_copy(feed->url.bytes, text->bytes, text->used);
                feed->url.used = text->used;
            } else {
                feed->url = reader_text_add(reader, text);
            }
        }
        for (u32 i = 0; i < option_count; i++) {
            u32 value = (meta->flags & option_bits[i]) ? 1 : 0;
            if (!ui_checkbox(ui, ui_id_child(ui_id(), i + 1), form.option_boxes[i]->box.rect, &value, options[i],
                             font))
                continue;
            meta->flags = value ? (meta->flags | option_bits[i]) : (meta->flags & ~option_bits[i]);
            redraw = 1;
            if (option_bits[i] == meta_sort_oldest_first) reader_sort_feed(reader, feed);
        }
        ui_dropdown(ui, ui_id(), form.executable_box->box.rect, names, reader_link_configuration_count, &selected,
                    font);
        meta->link_configuration = &reader->link_configurations[selected];
        bool deleted = feed_is_deleted(feed);
        if (ui_button(ui, ui_id(), form.delete_box->box.rect, feed_literal(deleted ? "Restore feed" : "Delete feed"),
                      font)) {
            if (deleted) feed_restore(reader, feed, true);
            else feed_mark_deleted(reader, feed);
            redraw = 1;
        }
    }
    if (redraw) state->redraw_requested = 1;
}

void draw_feed(app_context *context, reader_t *reader, vec4 rect, bool rss) {
    layout_t layout;
    feed_passes(context, reader, rect, rss, &layout);
    view_layout_clip(context, vec4{layout.x, layout.y, layout.x + layout.width, layout.y + layout.height});
    view_layout_render(context, context->view_state, &layout);
}

} // namespace

void feed_view_layout(app_context *context, reader_t *reader, vec4 rect, layout_t *layout) {
    feed_passes(context, reader, rect, feed_get_type(context->view_state->selected_feed) == reader_type_rss, layout);
}

void draw_feed_rss(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_feed_rss);
    draw_feed(context, reader, rect, true);
}

void draw_feed_atom(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_feed_atom);
    draw_feed(context, reader, rect, false);
}
