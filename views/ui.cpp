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
static f32 window_pair_wanted = 450; // the left side's width as made or last dragged
constexpr f32 window_pair_margins = 2 + 4 + 4 + 2; // left to right, outside the two panes
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
    // The left side keeps the width it was given or dragged to, as far as the
    // window lets the right side stay at least as wide.
    if (ui_is_active(ui, pair_id)) window_pair_wanted = window_pair.size;
    f32 half = floorf((screen.z - window_pair_margins) * 0.5f);
    window_pair.size = window_pair_wanted < half ? window_pair_wanted : (half > 0 ? half : 0);
    ui_pair_place(&window_pair, screen);
    ui_pair_draw(ui, pair_id, &window_pair, ui_spacing_t{2, 2, -3, -3});

    // Each menu takes the rows its side's width asks for.
    vec4 left = window_pair.first_rect;
    vec4 right = window_pair.second_rect;
    f32 left_cut = left.w - view_menu_left_height(context, left.z - left.x) - 2;
    f32 right_cut = right.w - view_menu_right_height(context, reader, right.z - right.x) - 2;
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

// The right menu's buttons: labels, sizes, and how many rows they take.
struct menu_right_t {
    u8 queued_bytes[64];
    data_t labels[8];
    vec2 sizes[8];
    f32 x[8];   // from the side's left edge
    u32 row[8]; // from the top
    u32 rows;
};

static void menu_right_measure(app_context *context, reader_t *reader, f32 width, menu_right_t *menu) {
    ui_t *ui = context->ui;
    data_t queued = {sizeof(menu->queued_bytes), 0, menu->queued_bytes};
    data_push_c_string(&queued, "Open queued links (F4) (");
    data_push_number(&queued, links_count_all(reader), 0, ' ', 0);
    data_push_c_string(&queued, ")");
    const data_t labels[8] = {data_literal("Help (F1)"), data_literal("Add feed (F2)"), data_literal("Links (F3)"),
                              queued, data_literal("Update all (F5)"), data_literal("Update selected (F6)"),
                              data_literal("Log (F7)"), data_literal("Save (F8)")};
    const f32 room = width - 2 * 7;
    f32 total = 0; // without the gaps
    for (u32 i = 0; i < 8; i++) {
        menu->labels[i] = labels[i];
        menu->sizes[i] = ui_button_size(ui, &ui_theme.button, labels[i], view_font_normal);
        total += menu->sizes[i].x;
    }
    // A row that doesn't fit drops the keys from the labels first (the help
    // and the README name them); the count of queued links stays.
    if (total > room) {
        queued.used = 0;
        data_push_c_string(&queued, "Open queued links (");
        data_push_number(&queued, links_count_all(reader), 0, ' ', 0);
        data_push_c_string(&queued, ")");
        const data_t short_labels[8] = {data_literal("Help"), data_literal("Add feed"), data_literal("Links"),
                                        queued, data_literal("Update all"), data_literal("Update selected"),
                                        data_literal("Log"), data_literal("Save")};
        for (u32 i = 0; i < 8; i++) {
            menu->labels[i] = short_labels[i];
            menu->sizes[i] = ui_button_size(ui, &ui_theme.button, short_labels[i], view_font_normal);
        }
    }
    // Still too wide: the row wraps, a button at a time; only a button wider
    // than the whole side is cut.
    f32 x = 0;
    menu->rows = 1;
    for (u32 i = 0; i < 8; i++) {
        if (menu->sizes[i].x > width) menu->sizes[i].x = width > 0 ? width : 0;
        if (x > 0 && x + menu->sizes[i].x > width) {
            x = 0;
            menu->rows++;
        }
        menu->x[i] = x;
        menu->row[i] = menu->rows - 1;
        x += menu->sizes[i].x + 2;
    }
}

static f32 menu_rows_height(app_context *context, u32 rows) {
    f32 row = ui_text_box_size(context->ui, &ui_theme.button, view_font_normal).y;
    return row * (f32)rows + 2 * (f32)(rows - 1);
}

f32 view_menu_right_height(app_context *context, reader_t *reader, f32 width) {
    menu_right_t menu;
    menu_right_measure(context, reader, width, &menu);
    return menu_rows_height(context, menu.rows);
}

void draw_menu_right(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_menu_right);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    window_t *window = context->window;
    view_set_clip(context, rect);
    static const char menu_site = 0;
    menu_right_t menu;
    menu_right_measure(context, reader, rect.z - rect.x, &menu);
    for (u32 i = 0; i < 8; i++) {
        vec4 button = rect_xywh(rect.x + menu.x[i], rect.w - menu_rows_height(context, menu.row[i] + 1),
                                menu.sizes[i].x, menu.sizes[i].y);
        bool clicked = ui_button(ui, ui_id_child(ui_id(&menu_site), i + 1), button, menu.labels[i], view_font_normal);
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
