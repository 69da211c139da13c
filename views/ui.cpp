// ui.cpp - the window content: the split of the window, the right menu, and
// the dispatch of the right panel.
#include "views/views.h"

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
