// ui.cpp - the window content: the split of the window, the right menu, and
// the dispatch of the right panel.
#include <math.h>

#include "base/log.h"
#include "base/profiler.h"
#include "gfx/window.h"
#include "net/feed_query.h"
#include "views/view_helpers.h"

constexpr vec4 window_background = {0.18f, 0.18f, 0.19f, 1};

// The split of the window: made on the first frame, its size changed by
// dragging and kept only for the run.
static ui_pair_t window_pair;
static bool window_pair_made;
static const char window_pair_site = 0;

void view_state_init(view_state_t *state, u32 start_generation) {
    memory_zero(state, sizeof(*state));
    state->generation_minimum = start_generation;
    state->generation_maximum = start_generation;
    state->log_auto_scroll = 1;
    state->panel = panel_add_feed;
    state->list_filter = list_filter_feeds;
    state->add_feed_url = data_t{view_text_field_size, 0, state->add_feed_url_bytes};
    state->add_feed_import_path = data_t{view_text_field_size, 0, state->add_feed_import_path_bytes};
    state->add_feed_export_path = data_t{view_text_field_size, 0, state->add_feed_export_path_bytes};
    state->feed_url_text = data_t{view_text_field_size, 0, state->feed_url_text_bytes};
}

void view_show_log(app_context *context) {
    context->view_state->log_scroll.x = 0;
    context->view_state->panel = panel_log;
}

void view_show_log_hook(void *context) { view_show_log((app_context *)context); }

void view_selection_changed(app_context *context) {
    view_state_t *state = context->view_state;
    state->panel = panel_content;
    state->article_ready = 0;
    if (state->selected_feed && !state->selected_entry) {
        state->feed_url_text.used = 0;
        const data_t *url = &state->selected_feed->url;
        if (url->used <= state->feed_url_text.reserved) data_push_data(&state->feed_url_text, url, 1);
    }
}

// A key, a button or the wheel acted in this frame, or text came in.
static bool window_input_seen(const window_t *window) {
    if (window->wheel != 0 || window->text_count != 0) return true;
    for (u32 key = key_left_button; key < sizeof(window->keys); key++)
        if (window->keys[key] & ~1u) return true; // a transition or a repeat
    return false;
}

void draw_window_content(app_context *context, reader_t *reader) {
    ui_t *ui = context->ui;
    ui_frame_start(ui);
    vec4 screen = {0, 0, (f32)context->window->width, (f32)context->window->height};
    ui_id_t pair_id = ui_id(&window_pair_site);
    if (!window_pair_made) {
        window_pair = ui_pair_make(ui_spacing_t{2, 2, 2, 4}, ui_spacing_t{2, 2, 4, 2}, 450, false);
        ui_pair_update(ui, pair_id, &window_pair, screen, true);
        window_pair_made = true;
    }
    if (ui->rectangles) gl_batch_rectangle(ui->rectangles, &screen, nullptr, nullptr, window_background);
    ui_pair_update(ui, pair_id, &window_pair, screen, true);
    ui_pair_draw(ui, pair_id, &window_pair, ui_spacing_t{2, 2, -3, -3});

    f32 menu_height = ui_text_box_size(ui, &ui_theme.button, view_font_normal).y;
    vec4 left = window_pair.first_rect;
    vec4 right = window_pair.second_rect;
    f32 left_cut = left.w - menu_height - 2;
    f32 right_cut = right.w - menu_height - 2;
    draw_menu_left(context, reader, vec4{left.x, left_cut, left.z, left.w});
    draw_left_panel(context, reader, vec4{left.x, left.y, left.z, left_cut});
    draw_menu_right(context, reader, vec4{right.x, right_cut, right.z, right.w});
    draw_right_panel(context, reader, vec4{right.x, right.y, right.z, right_cut});
    ui_apply_cursor(ui);
    // What input changed may have been drawn before the change (the menu's
    // count before the links panel's "X"): one more frame shows it.
    if (window_input_seen(context->window)) context->view_state->redraw_requested = 1;
}

void draw_right_panel(app_context *context, reader_t *reader, vec4 rect) {
    view_set_clip(context, rect);
    if (context->renderer) {
        gl_batch_t *images = gl_batch_get(context->renderer, view_batch_images, false);
        if (images)
            gl_batch_scissor(images, true, (i32)rect.x, (i32)rect.y, (i32)(rect.z - rect.x), (i32)(rect.w - rect.y));
    }
    view_state_t *state = context->view_state;
    switch (state->panel) {
    case panel_content:
        if (state->selected_entry) {
            assert_message(state->selected_feed, "An entry is selected without its feed.");
            u32 type = entry_get_type(state->selected_entry);
            assert_message(type == reader_type_rss || type == reader_type_atom, "The selected entry has no type.");
            if (type == reader_type_rss) draw_entry_rss(context, reader, rect);
            else draw_entry_atom(context, reader, rect);
        } else if (state->selected_feed) {
            u32 type = feed_get_type(state->selected_feed);
            assert_message(type == reader_type_rss || type == reader_type_atom, "The selected feed has no type.");
            if (type == reader_type_rss) draw_feed_rss(context, reader, rect);
            else draw_feed_atom(context, reader, rect);
        } else {
            draw_help(context, reader, rect);
        }
        break;
    case panel_help: draw_help(context, reader, rect); break;
    case panel_add_feed: draw_add_feed(context, reader, rect); break;
    case panel_links: draw_links(context, reader, rect); break;
    default: draw_log(context, reader, rect); break;
    }
}

// A save compacts the reader: records move and ids change. The selection is
// found again by the feed's address and the entry's guid.
static void menu_save(app_context *context, reader_t *reader) {
    view_state_t *state = context->view_state;
    u8 url_bytes[view_text_field_size], guid_bytes[view_text_field_size];
    data_t url = {sizeof(url_bytes), 0, url_bytes}, guid = {sizeof(guid_bytes), 0, guid_bytes};
    bool keep_feed = state->selected_feed && state->selected_feed->url.used <= url.reserved;
    if (keep_feed) data_push_data(&url, &state->selected_feed->url, 1);
    if (state->selected_entry) {
        data_t selected_guid = entry_get_guid(state->selected_entry);
        if (selected_guid.used <= guid.reserved) data_push_data(&guid, &selected_guid, 1);
    }
    u8 path_bytes[view_text_field_size + 64];
    data_t path = {sizeof(path_bytes), 0, path_bytes};
    bool saved = reader_save(reader, &context->user_folder, &context->frame_memory, nullptr, &path);
    log_string(log_user, log_channel(log_user)->data.used ? "\n\n" : "");
    log_string(log_user, saved ? "Saved " : "The reader could not be saved in ");
    log_data(log_user, saved && path.used ? &path : &context->user_folder);
    feed_t *feed = keep_feed ? reader_get_feed_by_url(reader, &url) : nullptr;
    entry_t *entry = feed && guid.used ? reader_get_entry_by_guid(reader, feed->id, &guid) : nullptr;
    state->selected_feed = feed;
    state->selected_entry = entry;
    state->article_ready = 0;
}

void draw_menu_right(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_menu_right);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    window_t *window = context->window;
    view_set_clip(context, rect);

    u8 queued_bytes[64];
    data_t queued = {sizeof(queued_bytes), 0, queued_bytes};
    data_push_c_string(&queued, "Open queued links (F4) (");
    data_push_number(&queued, links_count_all(reader), 0, ' ', 0);
    data_push_c_string(&queued, ")");
    data_t labels[8] = {data_literal("Help (F1)"), data_literal("Add feed (F2)"), data_literal("Links (F3)"),
                              queued,
                              data_literal("Update all (F5)"), data_literal("Update selected (F6)"),
                              data_literal("Log (F7)"), data_literal("Save (F8)")};
    static const char menu_site = 0;
    // A pane too narrow for the whole row cuts labels (ending them in "…")
    // rather than losing the last buttons.
    vec2 sizes[8];
    f32 total = 2 * 7;
    for (u32 i = 0; i < 8; i++) {
        sizes[i] = ui_button_size(ui, &ui_theme.button, labels[i], view_font_normal);
        total += sizes[i].x;
    }
    f32 room = rect.z - rect.x - 2 * 7;
    // A row that doesn't fit drops the keys from the labels first (the help
    // and the README name them); the count of queued links stays.
    u8 short_bytes[64];
    data_t short_queued = {sizeof(short_bytes), 0, short_bytes};
    if (total - 2 * 7 > room) {
        data_push_c_string(&short_queued, "Open queued links (");
        data_push_number(&short_queued, links_count_all(reader), 0, ' ', 0);
        data_push_c_string(&short_queued, ")");
        const data_t short_labels[8] = {data_literal("Help"), data_literal("Add feed"), data_literal("Links"),
                                        short_queued, data_literal("Update all"), data_literal("Update selected"),
                                        data_literal("Log"), data_literal("Save")};
        total = 2 * 7;
        for (u32 i = 0; i < 8; i++) {
            labels[i] = short_labels[i];
            sizes[i] = ui_button_size(ui, &ui_theme.button, labels[i], view_font_normal);
            total += sizes[i].x;
        }
    }
    // Still too wide: the widest are cut first, to one common width, but
    // never below a few characters; what then doesn't fit is clipped at the
    // pane's edge (the F keys still reach every button).
    constexpr f32 menu_min_button = 64;
    f32 cap = 3.4e38f;
    if (total - 2 * 7 > room) {
        f32 sorted[8];
        for (u32 i = 0; i < 8; i++) sorted[i] = sizes[i].x;
        for (u32 i = 1; i < 8; i++)
            for (u32 j = i; j > 0 && sorted[j - 1] > sorted[j]; j--) {
                f32 t = sorted[j];
                sorted[j] = sorted[j - 1];
                sorted[j - 1] = t;
            }
        f32 below = 0;
        for (u32 i = 0; i < 8; i++) {
            f32 w = (room - below) / (f32)(8 - i);
            if (w <= sorted[i]) {
                cap = floorf(w > menu_min_button ? w : menu_min_button);
                break;
            }
            below += sorted[i];
        }
    }
    f32 x = rect.x;
    for (u32 i = 0; i < 8; i++) {
        vec2 size = {sizes[i].x < cap ? sizes[i].x : cap, sizes[i].y};
        vec4 button = rect_xywh(x, rect.y + 2, size.x, size.y);
        x += size.x + 2;
        bool clicked = ui_button(ui, ui_id_child(ui_id(&menu_site), i + 1), button, labels[i], view_font_normal);
        if (!clicked && !key_went_down(window, key_f1 + i)) continue;
        switch (i) {
        case 0: state->help_scroll = vec2{0, 0}; state->panel = panel_help; break;
        case 1: state->add_feed_scroll = vec2{0, 0}; state->panel = panel_add_feed; break;
        case 2: state->links_scroll = vec2{0, 0}; state->panel = panel_links; break;
        case 3: links_open_all(context, reader, true); break;
        case 4: feed_query_update_all(context->feed_query_context, reader); break;
        case 5: feed_query_update_selected(context->feed_query_context, reader); break;
        case 6: view_show_log(context); break;
        default: menu_save(context, reader); break;
        }
    }
    // The key also shows the log after saving; a click only saves.
    if (key_went_down(window, key_f8)) view_show_log(context);
}
