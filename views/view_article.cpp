// view_article.cpp - an entry's HTML as layout commands: the parse into the
// article memory, the walk that measures it (blocks break the line, headings
// change the font, links carry their address, pictures show by the state of
// their slot), the input replay that makes links and pictures act, and the
// drawing of a finished layout with its textures.
#include "views/view_article.h"

#include "base/log.h"
#include "base/profiler.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "net/http.h"
#include "toolkit/widgets.h"

#include <math.h>

// ---- article memory and the parse -----------------------------------------------------------

static void article_memory_setup(view_state_t *state) {
    if (state->article_space.bytes) return;
    state->article_space = data_address_space_reserve(view_article_space_size, 0);
    data_address_space_commit(&state->article_space, view_article_commit_step);
    state->article_memory = data_t{state->article_space.used, 0, state->article_space.bytes};
}

void *article_reserve(view_state_t *state, u64 size) {
    article_memory_setup(state);
    data_t *memory = &state->article_memory;
    u64 room = memory->reserved - memory->used;
    u64 need = size + 8; // room for the alignment
    if (room < need) {
        u64 step = align_up(need - room, view_article_commit_step);
        if (state->article_space.used + step > state->article_space.reserved) return nullptr;
        if (!data_address_space_commit(&state->article_space, step)) return nullptr;
        memory->reserved = state->article_space.used;
    }
    return data_push(memory, size, 8);
}

static data_t article_arena(view_state_t *state, u64 size) {
    u8 *bytes = (u8 *)article_reserve(state, size);
    return bytes ? data_t{size, 0, bytes} : data_t{};
}

void article_parse(view_state_t *state, const data_t *source, u32 *error) {
    if (*error || !source || !source->used || state->article_ready) return;
    state->article_ready = 1;
    article_memory_setup(state);
    state->article_memory.used = 0;
    state->article_tokens = html_tokens_t{};
    state->article_tree = html_tree_t{};
    state->article_walk = data_t{};
    const u8 *log_end = data_end(&log_channel(log_main)->data);

    data_t arena = article_arena(state, hp_tokenizer_size(source));
    state->article_tokens = hp_tokenizer(&arena, source, 0, error);
    if (!*error) {
        arena = article_arena(state, hp_tree_size(&state->article_tokens));
        // The tolerant tree always stands; of its complaints only a lack of
        // memory keeps the article from showing.
        u32 tree_error = 0;
        state->article_tree = hp_tree_construction(&arena, &state->article_tokens, 1, &tree_error);
        if (tree_error == html_tree_construction_error_not_enough_memory ||
            tree_error == html_tokenizer_error_not_enough_memory)
            *error = tree_error;
    }
    if (!*error) {
        u64 size = html_tree_traversal_size(state->article_tree.node_count);
        u8 *walk = (u8 *)article_reserve(state, size);
        if (walk) state->article_walk = data_t{size, 0, walk};
        else *error = html_tree_traversal_error_not_enough_memory;
    }
    if (*error) {
        state->article_walk = data_t{};
        log_copy_new_text_to_user(log_main, log_end);
    }
}

bool article_failed(const view_state_t *state) { return state->article_walk.bytes == nullptr; }

html_tree_traversal_t article_walk_start(view_state_t *state, u32 *error) {
    if (article_failed(state) || !state->article_tree.nodes) {
        if (!*error) *error = html_tree_traversal_error_not_enough_memory;
        return html_tree_traversal_t{};
    }
    state->article_walk.used = 0;
    return html_tree_traversal_create(&state->article_walk, state->article_tree.nodes,
                                      state->article_tree.node_count, error);
}

// ---- the measuring walk ---------------------------------------------------------------------

// Elements that stay on the line: phrasing content and `link`.
static bool article_is_phrasing(u32 element) {
    static const u8 elements[] = {
        html_element_a,        html_element_em,       html_element_strong,   html_element_small,
        html_element_s,        html_element_cite,     html_element_q,        html_element_dfn,
        html_element_abbr,     html_element_ruby,     html_element_data,     html_element_time,
        html_element_code,     html_element_var,      html_element_samp,     html_element_kbd,
        html_element_sub,      html_element_sup,      html_element_i,        html_element_b,
        html_element_u,        html_element_mark,     html_element_bdi,      html_element_bdo,
        html_element_span,     html_element_br,       html_element_wbr,      html_element_ins,
        html_element_del,      html_element_picture,  html_element_img,      html_element_iframe,
        html_element_embed,    html_element_object,   html_element_video,    html_element_audio,
        html_element_map,      html_element_area,     html_element_math,     html_element_svg,
        html_element_label,    html_element_input,    html_element_button,   html_element_select,
        html_element_datalist, html_element_textarea, html_element_output,   html_element_progress,
        html_element_meter,    html_element_script,   html_element_noscript, html_element_template,
        html_element_canvas,   html_element_link,
    };
    for (u8 e : elements)
        if (e == element) return true;
    return false;
}

static bool article_is_heading(u32 element) { return element >= html_element_h1 && element <= html_element_h6; }

static data_t article_literal(const char *text) { return data_t{string_length(text), string_length(text), (u8 *)text}; }

static const data_t article_no_alt = article_literal("No alternate description.");

image_query_t *view_image_lookup(view_state_t *state, const data_t *address, bool create, u32 *frame_state) {
    *frame_state = 0;
    if (!address || !state->selected_entry) return nullptr;
    image_query_t *slot = image_query_get(state->selected_entry->id, address, create);
    if (slot) *frame_state = image_query_look(slot);
    return slot;
}

static void article_image(view_state_t *state, layout_t *layout, html_node_t *node) {
    html_node_attribute_t *src = html_node_get_attribute(node, html_attr_src);
    html_node_attribute_t *alt = html_node_get_attribute(node, html_attr_alt);
    const data_t *address = src ? &src->value : nullptr;
    u32 frame_state = 0;
    image_query_t *slot = view_image_lookup(state, address, false, &frame_state);
    if (slot && frame_state == image_state_ready) {
        // A picture scaled to the column before a later one brought the
        // vertical bar is wider than the column now: its box shrinks to fit
        // (the texture is drawn into it), so no horizontal bar comes up.
        f32 width = (f32)slot->target_width, height = (f32)slot->target_height;
        f32 column = floorf(layout->width) - layout->margin.left - layout->margin.right;
        if (width > column && column >= 1) {
            height = floorf(height * column / width);
            width = column;
        }
        layout_add_box(layout, width, height, (void *)address, layout_box_move_right | layout_box_move_down);
    } else {
        image_placeholder(layout, alt ? &alt->value : &article_no_alt, address, slot);
    }
}

void html_size_pass(view_state_t *state, layout_t *layout, html_tree_traversal_t *walk, u32 font) {
    PROFILE_SCOPE(html_size_pass);
    layout_new_line(layout);
    layout_set_font(layout, font);
    const data_t *link = nullptr;
    u32 skip_text = 0;
    bool stopped = false;
    while (html_tree_traversal_has_next(walk)) {
        html_node_t *node = html_tree_traversal_node(walk);
        if (node->kind == html_node_kind_text) {
            if (!skip_text) layout_string(layout, node->text);
        } else if (html_tree_traversal_entering(walk)) {
            u32 element = node->element;
            if (!article_is_phrasing(element) || element == html_element_br) layout_new_line(layout);
            if (element == html_element_a) {
                if (link) {
                    layout_add_user(layout, 1, 0);
                    layout_pop_colour(layout);
                }
                html_node_attribute_t *href = html_node_get_attribute(node, html_attr_href);
                link = href ? &href->value : nullptr;
                if (link) {
                    layout_add_user(layout, 1, (u64)link);
                    layout_push_colour(layout, view_link_colour);
                }
            } else if (element == html_element_style || element == html_element_script) {
                skip_text = 1;
            } else if (article_is_heading(element)) {
                layout_move(layout, 0, 10, 0);
                layout_set_font(layout, view_font_title);
            } else if (element == html_element_img) {
                layout_new_line(layout);
                layout_move(layout, 0, 5, 0);
                article_image(state, layout, node);
                layout_move(layout, 0, 5, 0);
                layout_new_line(layout);
            }
        } else {
            u32 element = node->element;
            if (element == html_element_a) {
                if (link) {
                    link = nullptr;
                    layout_add_user(layout, 1, 0);
                    layout_pop_colour(layout);
                }
            } else if (element == html_element_style || element == html_element_script) {
                skip_text = 0;
            } else if (article_is_heading(element)) {
                layout_set_font(layout, font);
                layout_move(layout, 0, 10, 0);
            }
        }
        html_tree_traversal_step(walk);
        // This recording is repeated with a bar anyway: spare it the rest.
        if (layout_is_settled(layout)) {
            stopped = true;
            break;
        }
    }
    assert_message(stopped || !link, "A finished article walk left a link open.");
}

void image_placeholder(layout_t *layout, const data_t *description, const data_t *source, image_query_t *slot) {
    layout_add_box(layout, 1, 1, (void *)source, 0);
    f32 top = layout->cursor_y;
    layout_string(layout, article_literal("[img]"));
    layout_string(layout, *description);
    u32 state = slot ? (u32)slot->frame_state : image_state_fetching;
    switch (state) {
    case image_state_fetching:
        layout_string(layout, article_literal(" Loading..."));
        break;
    case image_state_fetch_failed:
        layout_push_colour(layout, view_error_colour);
        layout_string(layout, article_literal(" Loading error."));
        layout_string(layout, article_literal(" Code: "));
        layout_string(layout, article_literal(image_query_error_name(slot->error)));
        layout_pop_colour(layout);
        break;
    case image_state_decoded:
    case image_state_scaling:
        layout_string(layout, article_literal(" Resizing\u2026"));
        break;
    case image_state_scale_failed:
        layout_push_colour(layout, view_error_colour);
        layout_string(layout, article_literal(" Resize error."));
        layout_pop_colour(layout);
        break;
    case image_state_no_size:
        layout_push_colour(layout, view_error_colour);
        layout_string(layout, article_literal(" Invalide size requested."));
        layout_pop_colour(layout);
        break;
    default:
        break;
    }
    layout_string(layout, article_literal("[/img]"));
    if (layout->state == layout_state_record && slot) slot->layout_height = layout->content_height - top;
}

void image_request_resize(layout_t *layout, image_query_t *slot) {
    if (slot->frame_state != image_state_decoded || layout->state != layout_state_input) return;
    // A second box of the same picture in this pass finds the request made.
    if (image_query_state(slot) != image_state_decoded) return;
    f32 width = (f32)slot->width, height = (f32)slot->height;
    f32 sides = layout->margin.left + layout->margin.right;
    if (width + sides > layout->width) {
        width = ceilf(layout->width) - sides;
        height = (f32)(u32)(width / (f32)slot->width * (f32)slot->height);
        // Narrowed to the column, it may push the article past the view,
        // which then takes a bar: narrower by the bar's width.
        if (!layout->has_vertical_bar && layout->content_height - slot->layout_height + height > layout->height)
            width -= layout_bar_size;
    }
    u32 target = width >= 1 ? (u32)width : 0;
    image_query_request_size(slot, target, 0);
}

// ---- links ----------------------------------------------------------------------------------

u32 view_link_button(view_links_t *links, ui_id_t id, const vec4 *rects, u32 count) {
    ui_t *ui = links->ui;
    if (ui->pass == ui_pass_draw || ui->pass == ui_pass_none) return 0;
    for (u32 i = 0; i < count; i++) {
        if (ui_hit_test(ui, id, rects[i], ui->mouse)) {
            ui_set_hot(ui, id);
            break;
        }
    }
    bool hot = ui_is_hot(ui, id);
    if (ui_is_active(ui, id)) {
        if (hot) ui->cursor = cursor_hand;
        if (key_went_up(ui->window, key_left_button)) {
            if (hot) {
                ui_clear_active(ui);
                links->has_released = 0;
                return 1;
            }
            links->released = id;
            links->has_released = 1;
        }
    } else if (hot) {
        ui->cursor = cursor_hand;
        if (key_went_down(ui->window, key_left_button)) ui_set_active(ui, id, ui_kind_button);
    }
    return 0;
}

u32 view_link_string(view_links_t *links, ui_id_t id, const layout_command_t *command) {
    vec4 rects[64];
    u32 count = 0;
    u32 clicked = 0;
    for (u32 i = 0; i < command->string.segment_count; i++) {
        const layout_segment_t *segment = &command->string.segments[i];
        if (!segment->bytes) continue;
        rects[count++] = segment->rect;
        if (count == 64) {
            clicked |= view_link_button(links, id, rects, count);
            count = 0;
        }
    }
    if (count) clicked |= view_link_button(links, id, rects, count);
    return clicked;
}

void view_links_end(view_links_t *links) {
    if (links->has_released && ui_is_active(links->ui, links->released)) ui_clear_active(links->ui);
    links->has_released = 0;
}

// A run of a link (a string or a picture inside it) was clicked or is held.
static void article_link_run(view_state_t *state, app_context *context, reader_t *reader, view_links_t *links,
                             const data_t *link, layout_command_t *colour, u32 clicked) {
    ui_id_t id = ui_id_pointer(link);
    if (clicked) {
        if (colour) colour->colour_push.colour = view_link_pressed_colour;
        view_open_link(context, reader, state->selected_feed, link);
        state->redraw_requested = 1;
    }
    if (colour && ui_is_active(links->ui, id)) colour->colour_push.colour = view_link_pressed_colour;
}

void article_interact(view_state_t *state, layout_t *layout, app_context *context, reader_t *reader,
                      view_links_t *links) {
    const data_t *link = nullptr;
    layout_command_t *colour = nullptr;
    u32 end = (u32)state->article_command_count;
    if (end > layout->command_count) end = layout->command_count;
    for (u32 i = layout->next_command; i < end; i++) {
        layout_command_t *command = &layout->commands[i];
        switch (command->kind) {
        case layout_kind_user:
            assert_true(command->user.a == 1);
            link = (const data_t *)command->user.b;
            break;
        case layout_kind_colour_push:
            colour = command;
            layout_replay_state(layout, command);
            break;
        case layout_kind_string:
            if (link && layout_command_visible(layout, command)) {
                assert_message(colour, "A link's text has no colour of its own.");
                u32 clicked = view_link_string(links, ui_id_pointer(link), command);
                article_link_run(state, context, reader, links, link, colour, clicked);
            }
            break;
        case layout_kind_box:
            if (command->box.user && layout_command_visible(layout, command)) {
                // Pictures are fetched once they come into view.
                u32 frame_state = 0;
                image_query_t *slot =
                    view_image_lookup(state, (const data_t *)command->box.user, true, &frame_state);
                if (slot && frame_state == image_state_decoded) image_request_resize(layout, slot);
                if (slot && frame_state == image_state_ready && link) {
                    u32 clicked = view_link_button(links, ui_id_pointer(link), &command->box.rect, 1);
                    article_link_run(state, context, reader, links, link, colour, clicked);
                }
            }
            break;
        default:
            layout_replay_state(layout, command);
            break;
        }
    }
    if (end > layout->next_command) layout->next_command = end;
}

void article_layout(view_state_t *state, layout_t *layout, html_tree_traversal_t *walk, u32 font,
                    app_context *context, reader_t *reader) {
    if (layout_is_recording(layout)) {
        html_size_pass(state, layout, walk, font);
        state->article_command_count = layout->command_count;
    } else if (layout->state == layout_state_input) {
        view_links_t links = {context->ui, {}, 0};
        article_interact(state, layout, context, reader, &links);
        view_links_end(&links);
    } else {
        u32 end = (u32)state->article_command_count;
        if (end > layout->command_count) end = layout->command_count;
        for (u32 i = layout->next_command; i < end; i++) layout_replay_state(layout, &layout->commands[i]);
        if (end > layout->next_command) layout->next_command = end;
    }
}

// ---- drawing --------------------------------------------------------------------------------

gl_batch_t *view_image_batch(app_context *context) {
    gl_renderer_t *renderer = context->renderer;
    if (!renderer) return nullptr;
    for (u32 i = 0; i < renderer->batch_count; i++)
        if (renderer->batches[i].kind == gl_batch_kind_images) return &renderer->batches[i];
    return nullptr;
}


void view_layout_render(app_context *context, view_state_t *state, layout_t *layout) {
    assert_message(layout->state == layout_state_done, "A layout is drawn before its passes ended.");
    gl_batch_t *text = context->ui->text;
    gl_batch_t *images = view_image_batch(context);
    layout->font = 0;
    layout->colour = vec4{1, 1, 1, 1};
    layout->colour_stack = nullptr;
    for (u32 i = 0; i < layout->command_count; i++) {
        layout_command_t *command = &layout->commands[i];
        switch (command->kind) {
        case layout_kind_string:
            if (text && command->string.segment_count) layout_draw_string(layout, command, text);
            break;
        case layout_kind_box: {
            if (!command->box.user || !layout_command_visible(layout, command)) break;
            u32 frame_state = 0;
            image_query_t *slot = view_image_lookup(state, (const data_t *)command->box.user, false, &frame_state);
            // No image batch: no OpenGL either, so no texture.
            if (!slot || frame_state != image_state_ready || !images) break;
            if (!slot->texture)
                slot->texture = gl_texture_create(slot->resized.bytes, slot->target_width, slot->target_height,
                                                  slot->components, 0);
            gl_batch_image(images, &command->box.rect, nullptr, nullptr, vec4{1, 1, 1, 1}, slot->texture,
                                       slot->components);
            break;
        }
        case layout_kind_user:
            break;
        default:
            layout_replay_state(layout, command);
            break;
        }
    }
}
