// view_list.cpp - the left side of the window: the menu of generation
// buttons, "Show empty" and the filter dropdown, and the list of feeds and
// their entries with every navigation key of the reader.
#include <math.h>

#include "base/profiler.h"
#include "gfx/window.h"
#include "net/feed_query.h"
#include "views/view_helpers.h"

// ---- geometry -----------------------------------------------------------------------------------
constexpr f32 list_margin = 2;        // around a block's content, each side
constexpr f32 list_strip_height = 20; // the title strip
constexpr f32 list_head_height = 26;  // margin, strip, its padding, margin
constexpr f32 list_row_height = 20;
constexpr f32 list_block_gap = 2;
constexpr f32 list_first_row = 24; // from a block's top to its first row
constexpr f32 list_bar_width = 16;
constexpr f32 list_bar_gap = 2;
constexpr f32 list_context = 160; // rows of context kept around a selection moved by keys
constexpr f32 list_wheel_step = 20 * 3;

constexpr f32 list_heading_height = 20; // the line naming the generations shown
constexpr vec4 list_note_colour = {0.75f, 0.75f, 0.75f, 1};
constexpr vec4 list_block_colour = {0.25f, 0.25f, 0.27f, 1};
constexpr vec4 list_row_colours[2] = {{0.35f, 0.35f, 0.35f, 1}, {0.45f, 0.45f, 0.45f, 1}};
constexpr vec4 list_selected_feed_colour = {0, 0.48f, 0.8f, 1};
constexpr vec4 list_selected_entry_colour = {0.79f, 0.32f, 0, 1};

// ---- filters ------------------------------------------------------------------------------------
void view_list_entry_filter(u32 list_filter, u32 *required, u32 *allowed) {
    *required = list_filter == list_filter_deleted ? reader_deleted : 0;
    *allowed = list_filter == list_filter_both ? reader_deleted : 0;
}

void view_list_feed_filter(u32 list_filter, u32 *required, u32 *allowed) {
    *required = 0;
    *allowed = list_filter == list_filter_deleted || list_filter == list_filter_both ? reader_deleted : 0;
}

bool view_list_feed_visible(u32 list_filter, u32 show_empty, u32 visible_entries, bool deleted, bool updating) {
    switch (list_filter) {
    case list_filter_feeds: return !deleted && (visible_entries > 0 || show_empty || updating);
    case list_filter_deleted: return deleted || visible_entries > 0;
    default: return visible_entries > 0 || deleted || show_empty || updating;
    }
}

// The view state's range and filters, gathered once for the walks.
struct list_walk_t {
    reader_t *reader;
    u32 minimum, maximum;
    u32 entry_required, entry_allowed;
    u32 feed_required, feed_allowed;
};

static list_walk_t list_walk(reader_t *reader, const view_state_t *state) {
    list_walk_t walk = {reader, state->generation_minimum, state->generation_maximum, 0, 0, 0, 0};
    view_list_entry_filter(state->list_filter, &walk.entry_required, &walk.entry_allowed);
    view_list_feed_filter(state->list_filter, &walk.feed_required, &walk.feed_allowed);
    return walk;
}

static bool list_entry_visible(const list_walk_t &walk, const entry_t *entry) {
    return entry->generation >= walk.minimum && entry->generation <= walk.maximum &&
           reader_flags_pass(entry->type_and_flags, walk.entry_required, walk.entry_allowed);
}

static entry_t *list_first_entry(const list_walk_t &w, feed_t *feed) {
    return reader_first_entry(w.reader, feed, w.minimum, w.maximum, w.entry_required, w.entry_allowed);
}
static entry_t *list_last_entry(const list_walk_t &w, feed_t *feed) {
    return reader_last_entry(w.reader, feed, w.minimum, w.maximum, w.entry_required, w.entry_allowed);
}
static entry_t *list_next_entry(const list_walk_t &w, feed_t *feed, entry_t *entry) {
    return reader_next_entry(w.reader, feed, entry, w.minimum, w.maximum, w.entry_required, w.entry_allowed);
}
static entry_t *list_previous_entry(const list_walk_t &w, feed_t *feed, entry_t *entry) {
    return reader_previous_entry(w.reader, feed, entry, w.minimum, w.maximum, w.entry_required, w.entry_allowed);
}
static feed_t *list_first_feed(const list_walk_t &w, bool show_empty) {
    return reader_first_feed(w.reader, show_empty, w.minimum, w.maximum, w.feed_required, w.feed_allowed,
                             w.entry_required, w.entry_allowed);
}
static feed_t *list_last_feed(const list_walk_t &w, bool show_empty) {
    return reader_last_feed(w.reader, show_empty, w.minimum, w.maximum, w.feed_required, w.feed_allowed,
                            w.entry_required, w.entry_allowed);
}
static feed_t *list_next_feed(const list_walk_t &w, feed_t *feed, bool show_empty) {
    return reader_next_feed(w.reader, feed, show_empty, w.minimum, w.maximum, w.feed_required, w.feed_allowed,
                            w.entry_required, w.entry_allowed);
}
static feed_t *list_previous_feed(const list_walk_t &w, feed_t *feed, bool show_empty) {
    return reader_previous_feed(w.reader, feed, show_empty, w.minimum, w.maximum, w.feed_required, w.feed_allowed,
                                w.entry_required, w.entry_allowed);
}

// ---- measuring ----------------------------------------------------------------------------------
view_list_stats_t view_list_measure(app_context *context, reader_t *reader, data_t *arena) {
    view_state_t *state = context->view_state;
    list_walk_t walk = list_walk(reader, state);
    view_list_stats_t stats = {};
    stats.selected_feed_index = view_none;
    stats.selected_feed_slot = view_none;
    stats.selected_entry_index = view_none;
    stats.selected_entry_in_feed = view_none;
    pool_t *feeds = &reader->feeds;
    pool_t *entries = &reader->entries;
    u32 used = feeds->entry_count;
    stats.feed_entry_counts = (u32 *)data_push(arena, sizeof(u32) * (used + 1), 4);
    stats.feed_updating = (u32 *)data_push(arena, sizeof(u32) * (used + 1), 4);
    assert_message(stats.feed_entry_counts && stats.feed_updating, "No frame memory for the list.");
    bool navigated = state->key_navigated != 0;

    u32 position = 0;
    for (u32 slot = 0; slot < feeds->max_entry_count && position < used; slot++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), slot);
        if (!feed_is_valid(feed)) continue;
        assert_message(reader_get_meta(reader, feed->id), "A feed without its settings record.");
        u32 seen = 0, visible = 0, selected_in_feed = view_none;
        for (u32 i = 0; i < entries->max_entry_count && seen < feed->entry_count; i++) {
            entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
            if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
            seen++;
            if (!list_entry_visible(walk, entry)) continue;
            if (navigated && entry == state->selected_entry) selected_in_feed = visible;
            visible++;
        }
        assert_message(seen == feed->entry_count, "A feed's entry count disagrees with its entries.");
        bool updating = feed_query_is_active(context->feed_queries, context->feed_query_count, feed->id);
        stats.feed_entry_counts[position] = view_none;
        stats.feed_updating[position] = updating;
        if (view_list_feed_visible(state->list_filter, state->show_empty, visible, feed_is_deleted(feed), updating)) {
            if (navigated && feed == state->selected_feed) {
                stats.selected_feed_index = stats.feed_count;
                stats.selected_feed_slot = position;
                stats.entries_before_selected_feed = stats.entry_count;
                if (selected_in_feed != view_none) {
                    stats.selected_entry_in_feed = selected_in_feed;
                    stats.selected_entry_index = stats.entry_count + selected_in_feed;
                }
            }
            stats.feed_entry_counts[position] = visible;
            stats.entry_count += visible;
            stats.feed_count++;
        }
        position++;
    }
    stats.used_feed_count = position;
    return stats;
}

f32 view_list_content_height(const view_list_stats_t *stats) {
    if (stats->feed_count == 0) return 0;
    return (f32)stats->feed_count * list_head_height + (f32)(stats->feed_count - 1) * list_block_gap +
           (f32)stats->entry_count * list_row_height;
}

f32 view_list_keep_visible(f32 list_scroll, f32 panel_height, const view_list_stats_t *stats, bool entry_selected) {
    if (stats->selected_feed_index == view_none) return list_scroll;
    f32 block_step = list_head_height + list_block_gap;
    if (entry_selected) {
        if (stats->selected_entry_index == view_none) return list_scroll;
        // Distances from the content's top; the panel's top is at 0 and its
        // bottom at -panel_height.
        f32 row = (f32)stats->selected_feed_index * block_step + list_first_row +
                  (f32)stats->selected_entry_index * list_row_height;
        f32 y = list_scroll - row;
        if (y - list_row_height <= -panel_height + list_context)
            list_scroll = row - panel_height + list_row_height + list_context;
        else if (y > -list_context)
            list_scroll = row - list_context;
        return list_scroll;
    }
    f32 offset = (f32)stats->selected_feed_index * block_step +
                 (f32)stats->entries_before_selected_feed * list_row_height;
    f32 height = list_head_height + list_row_height * (f32)stats->feed_entry_counts[stats->selected_feed_slot];
    if (list_scroll - offset - height <= -panel_height) list_scroll = offset - panel_height + height;
    if (list_scroll - offset > 0) list_scroll = offset;
    return list_scroll;
}

// ---- keys ------------------------------------------------------------------------------------------
static data_t list_entry_link(reader_t *reader, const entry_t *entry) {
    if (entry_get_type(entry) == reader_type_rss) return entry->rss.link;
    return reader_get_atom_link(reader, entry->id, entry->atom.link_count, atom_link_owner_entry,
                                atom_link_rel_alternate);
}

void view_list_handle_keys(app_context *context, reader_t *reader) {
    view_state_t *state = context->view_state;
    window_t *window = context->window;
    state->key_navigated = 0;
    feed_t *old_feed = state->selected_feed;
    entry_t *old_entry = state->selected_entry;
    if (ui_any_active(context->ui)) return;

    list_walk_t w = list_walk(reader, state);
    bool shift = key_is_down(window, key_shift);
    bool show_empty = state->show_empty != 0;
    feed_t *&feed = state->selected_feed;
    entry_t *&entry = state->selected_entry;
    auto held = [&](u32 key) { return key_went_down_or_repeated(window, key); };
    auto select_first = [&]() {
        feed = list_first_feed(w, false);
        entry = list_first_entry(w, feed);
    };
    auto scroll_to_top = [&]() { state->content_scroll = vec2{0, 0}; };

    if (held(key_up)) {
        state->key_navigated = 1;
        if (!feed) {
            select_first();
        } else if (entry) {
            if (entry_t *previous = list_previous_entry(w, feed, entry)) {
                entry = previous;
                scroll_to_top();
            } else if (feed_t *previous_feed = list_previous_feed(w, feed, false)) {
                feed = previous_feed;
                entry = list_last_entry(w, previous_feed);
                scroll_to_top();
            }
        } else {
            entry = list_last_entry(w, feed);
        }
    } else if (held(key_down)) {
        state->key_navigated = 1;
        if (!feed) {
            select_first();
        } else if (entry) {
            if (entry_t *next = list_next_entry(w, feed, entry)) {
                entry = next;
                scroll_to_top();
            } else if (feed_t *next_feed = list_next_feed(w, feed, false)) {
                feed = next_feed;
                entry = list_first_entry(w, next_feed);
                scroll_to_top();
            }
        } else {
            entry = list_first_entry(w, feed);
        }
    } else if (held(key_page_up) || held(key_page_down)) {
        state->key_navigated = 1;
        bool up = held(key_page_up);
        auto end_feed = [&]() { return up ? list_last_feed(w, show_empty) : list_first_feed(w, show_empty); };
        auto step_feed = [&](feed_t *from) {
            return up ? list_previous_feed(w, from, show_empty) : list_next_feed(w, from, show_empty);
        };
        if (!shift) {
            feed_t *target = feed ? step_feed(feed) : end_feed();
            if (target) {
                feed = target;
                entry = list_first_entry(w, target);
            }
        } else {
            if (!feed) {
                feed = end_feed();
            } else if (!entry) {
                feed_t *target = step_feed(feed);
                feed = target ? target : end_feed();
            }
            entry = nullptr;
        }
    } else if (held(key_home)) {
        state->key_navigated = 1;
        entry = feed ? list_first_entry(w, feed) : nullptr;
    } else if (held(key_end)) {
        state->key_navigated = 1;
        entry = feed ? list_last_entry(w, feed) : nullptr;
    } else if (held(key_delete)) {
        state->key_navigated = 1;
        if (entry) {
            entry_t *gone = entry;
            feed_t *gone_feed = feed;
            if (entry_t *next = list_next_entry(w, feed, gone)) {
                entry = next;
            } else if (entry_t *previous = list_previous_entry(w, feed, gone)) {
                entry = previous;
            } else if (feed_t *next_feed = list_next_feed(w, gone_feed, false)) {
                feed = next_feed;
                entry = list_first_entry(w, next_feed);
            } else if (feed_t *previous_feed = list_previous_feed(w, gone_feed, false)) {
                feed = previous_feed;
                entry = list_last_entry(w, previous_feed);
            } else {
                feed = nullptr;
                entry = nullptr;
            }
            if (entry_is_deleted(gone)) reader_delete_entry(reader, gone, gone_feed);
            else entry_mark_deleted(gone);
            scroll_to_top();
        } else if (feed) {
            if (!shift) {
                state->key_navigated = 0;
            } else {
                feed_t *gone = feed;
                if (feed_t *next_feed = list_next_feed(w, gone, show_empty)) {
                    feed = next_feed;
                    entry = list_first_entry(w, next_feed);
                } else if (feed_t *previous_feed = list_previous_feed(w, gone, show_empty)) {
                    feed = previous_feed;
                    entry = list_last_entry(w, previous_feed);
                } else {
                    feed = nullptr;
                    entry = nullptr;
                }
                if (feed_is_deleted(gone)) reader_delete_feed(reader, gone);
                else feed_mark_deleted(reader, gone);
                scroll_to_top();
            }
        }
    } else if (key_went_down(window, key_enter)) {
        if (entry) {
            data_t link = list_entry_link(reader, entry);
            view_open_link(context, reader, feed, &link);
            state->redraw_requested = 1;
        }
    } else if (key_went_down(window, key_backspace)) {
        if (entry) {
            if (feed_is_deleted(feed)) feed_restore(reader, feed, false);
            entry_restore(entry);
        } else if (feed) {
            feed_restore(reader, feed, shift);
        }
    }

    if (feed != old_feed || entry != old_entry) view_selection_changed(context);
}

// ---- the left menu -----------------------------------------------------------------------------------
struct list_button_t {
    const char *label;
    u32 key;
    bool shift; // the key acts only with Shift held exactly so
};

static const list_button_t list_buttons[7] = {
    {"|", key_s, false},          {"-]", key_numpad_subtract, true}, {"-", key_numpad_subtract, false},
    {"All", key_a, false},        {"+", key_numpad_add, false},      {"[+", key_numpad_add, true},
    {"|", key_e, false},
};

// The action of generation button `index`.
static void list_generation_action(reader_t *reader, view_state_t *state, u32 index) {
    u32 required, allowed;
    view_list_entry_filter(state->list_filter, &required, &allowed);
    u32 &minimum = state->generation_minimum;
    u32 &maximum = state->generation_maximum;
    auto step_down = [&]() {
        if (minimum != 0) minimum = reader_previous_generation(reader, minimum, required, allowed);
    };
    auto step_up = [&]() {
        if (maximum < reader->generation) maximum = reader_next_generation(reader, maximum, required, allowed);
    };
    bool clear = true;
    switch (index) {
    case 0: minimum = maximum = reader_next_generation(reader, 0, required, allowed); break;
    case 1: step_down(); clear = false; break;
    case 2: step_down(); maximum = minimum; break;
    case 3:
        minimum = reader_next_generation(reader, 0, required, allowed);
        maximum = reader_previous_generation(reader, reader->generation + 1, required, allowed);
        break;
    case 4: step_up(); minimum = maximum; break;
    case 5: step_up(); clear = false; break;
    default: minimum = maximum = reader_previous_generation(reader, reader->generation + 1, required, allowed); break;
    }
    if (clear) {
        state->selected_feed = nullptr;
        state->selected_entry = nullptr;
    }
}

// Where the left menu's widgets stand: the seven buttons in a row, then the
// check box and the dropdown behind them, or in a second row when the side
// is too narrow for one.
struct menu_left_t {
    data_t labels[7];
    vec2 sizes[7];
    vec2 check_size;
    f32 drop_width, row_height;
    u32 rows;
};

static const data_t list_filter_items[3] = {data_literal("Feeds"), data_literal("Deleted"), data_literal("Both")};

static menu_left_t menu_left_measure(app_context *context, f32 width) {
    ui_t *ui = context->ui;
    const u32 font = view_font_normal;
    menu_left_t menu = {};
    f32 buttons = 0;
    for (u32 i = 0; i < 7; i++) {
        menu.labels[i] = data_t{0, string_length(list_buttons[i].label), (u8 *)list_buttons[i].label};
        menu.sizes[i] = ui_button_size(ui, &ui_theme.button, menu.labels[i], font);
        buttons += menu.sizes[i].x + 2;
    }
    menu.row_height = menu.sizes[0].y;
    menu.check_size = ui_checkbox_size(ui, &ui_theme.checkbox, data_literal("Show empty"), font);
    vec2 deleted_size = layout_get_single_line_size(view_font(context, font), list_filter_items[1].bytes,
                                                    list_filter_items[1].used, code_point_none);
    menu.drop_width = ceilf(deleted_size.x) + ui_dropdown_size(ui, &ui_theme.dropdown, font).x;
    menu.rows = buttons - 2 + 10 + menu.check_size.x + 2 + menu.drop_width <= width ? 1 : 2;
    return menu;
}

f32 view_menu_left_height(app_context *context, f32 width) {
    menu_left_t menu = menu_left_measure(context, width);
    return menu.row_height * (f32)menu.rows + 2 * (f32)(menu.rows - 1);
}

void draw_menu_left(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_menu_left);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    window_t *window = context->window;
    view_set_clip(context, rect);
    const u32 font = view_font_normal;
    bool shift = key_is_down(window, key_shift);
    bool any_active = ui_any_active(ui);
    menu_left_t menu = menu_left_measure(context, rect.z - rect.x);

    f32 x = rect.x;
    f32 bottom = rect.w - menu.row_height;
    static const char list_button_site = 0; // the buttons' ids are children of this
    for (u32 i = 0; i < 7; i++) {
        vec4 button = rect_xywh(x, bottom, menu.sizes[i].x, menu.sizes[i].y);
        bool clicked = ui_button(ui, ui_id_child(ui_id(&list_button_site), i + 1), button, menu.labels[i], font);
        bool keyed = !any_active && key_went_down_or_repeated(window, list_buttons[i].key) &&
                     shift == list_buttons[i].shift;
        if (clicked || keyed) list_generation_action(reader, state, i);
        x += menu.sizes[i].x + 2;
    }

    // Like the other letter keys, H leaves a field being edited alone.
    if (!any_active && key_went_down(window, key_h)) {
        state->show_empty = !state->show_empty;
        if (state->selected_feed && state->selected_feed->entry_count == 0) {
            state->selected_feed = nullptr;
            state->selected_entry = nullptr;
        }
    }

    f32 check_x = x - 2 + 10;
    if (menu.rows == 2) {
        check_x = rect.x;
        bottom -= menu.row_height + 2;
    }
    // In a side too narrow even for the second row the label is cut, the dropdown not.
    f32 check_width = menu.check_size.x;
    if (check_x + check_width + 2 + menu.drop_width > rect.z) check_width = rect.z - 2 - menu.drop_width - check_x;
    if (check_width < menu.check_size.y) check_width = menu.check_size.y;
    f32 check_bottom = floorf(bottom + (menu.row_height - menu.check_size.y) * 0.5f);
    vec4 check = rect_xywh(check_x, check_bottom, floorf(check_width), menu.check_size.y);
    ui_checkbox(ui, ui_id(&state->show_empty), check, &state->show_empty, data_literal("Show empty"), font);

    f32 drop_x = rect.z - menu.drop_width;
    if (drop_x < check.z + 2) drop_x = check.z + 2;
    vec4 drop = rect_xywh(drop_x, bottom, menu.drop_width, ui_dropdown_size(ui, &ui_theme.dropdown, font).y);
    u64 selected = state->list_filter;
    ui_dropdown(ui, ui_id(&state->list_filter), drop, list_filter_items, 3, &selected, font);
    state->list_filter = (u32)selected;
}

// ---- the list ---------------------------------------------------------------------------------------
// A press on a block's strip or on a row: select it, or, when it is the
// selection already, bring the content back from a configuration panel.
static void list_click(app_context *context, feed_t *feed, entry_t *entry) {
    view_state_t *state = context->view_state;
    if (state->selected_feed == feed && state->selected_entry == entry) {
        if (state->panel != panel_content) view_selection_changed(context);
        return;
    }
    state->content_scroll = vec2{0, 0};
    state->selected_feed = feed;
    state->selected_entry = entry;
    view_selection_changed(context);
}

// The press-type hit area of the strip and the rows: hot under the pointer,
// a left press takes active and counts as the click, the release lets go.
static bool list_hit(ui_t *ui, ui_id_t id, vec4 rect) {
    if (ui_hit_test(ui, id, rect, ui->mouse)) ui_set_hot(ui, id);
    if (ui_is_active(ui, id) && key_went_up(ui->window, key_left_button)) ui_clear_active(ui);
    if (ui_is_hot(ui, id) && key_went_down(ui->window, key_left_button)) return ui_set_active(ui, id, ui_kind_button);
    return false;
}

// Whether an id is one of the list's: a feed's strip or an entry's row,
// named by the record's address. Other views name their links by a field
// inside a record (an entry's link or enclosure), which is not a record's
// start.
static bool list_owns(reader_t *reader, ui_id_t id) {
    const u8 *address = (const u8 *)id.slots[0];
    const pool_t *pools[2] = {&reader->feeds, &reader->entries};
    const u64 sizes[2] = {sizeof(feed_t), sizeof(entry_t)};
    for (u32 i = 0; i < 2; i++)
        if (address >= pools[i]->entries && address < pools[i]->entries + sizes[i] * pools[i]->max_entry_count)
            return (u64)(address - pools[i]->entries) % sizes[i] == 0;
    return false;
}

// "[Deleted] ", "Updating… " and the title, fitted into `rect`, in white.
static void list_label(app_context *context, vec4 rect, bool deleted, bool updating, data_t title, u32 font) {
    data_t *arena = &context->frame_memory;
    u64 mark = arena->used;
    u64 size = title.used + 32;
    u8 *bytes = (u8 *)data_push(arena, size, 1);
    if (bytes) {
        data_t text = {size, 0, bytes};
        if (deleted) data_push_c_string(&text, "[Deleted] ");
        if (updating) data_push_c_string(&text, "Updating\xE2\x80\xA6 ");
        data_push_raw(&text, title.bytes, title.used);
        view_text_fitted(context, context->ui->text, rect, text, font, view_white);
    }
    arena->used = mark;
}

// "Generation 7", "Generations 3 to 7" or "All generations", into `text`;
// true for the last.
static bool list_range_name(reader_t *reader, const view_state_t *state, data_t *text, bool lower) {
    u32 required, allowed;
    view_list_entry_filter(state->list_filter, &required, &allowed);
    u32 minimum = state->generation_minimum, maximum = state->generation_maximum;
    u32 first = reader_next_generation(reader, 0, required, allowed);
    u32 last = reader_previous_generation(reader, reader->generation + 1, required, allowed);
    if (minimum != maximum && minimum <= first && maximum >= last) {
        data_push_c_string(text, lower ? "all generations" : "All generations");
        return true;
    }
    data_push_c_string(text, lower ? "generation" : "Generation");
    if (minimum != maximum) data_push_c_string(text, "s");
    data_push_c_string(text, " ");
    data_push_number(text, minimum, 0, ' ', 0);
    if (minimum != maximum) {
        data_push_c_string(text, " to ");
        data_push_number(text, maximum, 0, ' ', 0);
    }
    return false;
}

// Above the list: the generations it shows.
static void list_draw_heading(app_context *context, reader_t *reader, vec4 rect) {
    if (reader->feeds.entry_count == 0) return; // nothing was ever fetched
    u8 bytes[64];
    data_t text = {sizeof(bytes), 0, bytes};
    list_range_name(reader, context->view_state, &text, false);
    vec4 box = {rect.x + list_margin + 1, rect.y, rect.z - list_margin, rect.w};
    view_text_fitted(context, context->ui->text, box, text, view_font_small, list_note_colour);
}

// Under the last block, when the range holds nothing that the filter shows.
static void list_draw_nothing(app_context *context, reader_t *reader, vec4 rect, f32 top) {
    const view_state_t *state = context->view_state;
    u8 bytes[96];
    data_t text = {sizeof(bytes), 0, bytes};
    data_push_c_string(&text, state->list_filter == list_filter_deleted ? "Nothing deleted in " : "Nothing new in ");
    bool all = list_range_name(reader, state, &text, true);
    data_push_c_string(&text, ".");
    vec4 line = {rect.x + list_margin + 1, top - list_row_height, rect.z - list_margin, top};
    view_text_fitted(context, context->ui->text, line, text, view_font_normal, list_note_colour);
    if (all) return;
    data_t hint = data_literal("Press A, or click All, to show every generation.");
    line = rect_move(line, 0, -list_row_height);
    view_text_fitted(context, context->ui->text, line, hint, view_font_normal, list_note_colour);
}

void draw_left_panel(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_left_panel);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    view_set_clip(context, rect);
    list_draw_heading(context, reader, vec4{rect.x, rect.w - list_heading_height, rect.z, rect.w});
    rect.w -= list_heading_height;
    if (rect.w < rect.y) rect.w = rect.y;
    view_set_clip(context, rect);
    // A row pressed and gone before its release (an update replaced it)
    // would hold the list's keys for ever: the press ends with the button.
    if (list_owns(reader, ui->active) && !key_is_down(context->window, key_left_button)) ui_clear_active(ui);
    view_list_handle_keys(context, reader);
    view_list_stats_t stats = view_list_measure(context, reader, &context->frame_memory);

    f32 panel_height = rect.w - rect.y;
    bool pointer_in = rect_contains_point(rect, ui->mouse) &&
                      !(ui->popup_open && rect_contains_point(ui->popup_rect, ui->mouse));
    if (pointer_in && context->window->wheel != 0) {
        state->list_scroll -= context->window->wheel * list_wheel_step;
        if (state->list_scroll < 0) state->list_scroll = 0;
    }
    if (state->key_navigated)
        state->list_scroll = view_list_keep_visible(state->list_scroll, panel_height, &stats,
                                                    state->selected_entry != nullptr);
    f32 content_height = view_list_content_height(&stats);
    f32 most = content_height - panel_height > 0 ? content_height - panel_height : 0;
    if (state->list_scroll > most) state->list_scroll = most;
    if (state->list_scroll < 0) state->list_scroll = 0;
    assert_true(state->list_scroll >= 0);

    f32 right = rect.z;
    if (content_height > panel_height) {
        vec4 bar = {rect.z - list_bar_width, rect.y, rect.z, rect.w};
        ui_scrollbar_vertical_f32(ui, ui_id(&state->list_scroll), bar, panel_height, content_height,
                                  &state->list_scroll, list_row_height);
        right -= list_bar_width + list_bar_gap;
    }

    gl_batch_t *shapes = ui->rectangles;
    gl_command_t *selected_block = nullptr, *selected_row = nullptr;
    list_walk_t walk = list_walk(reader, state);
    pool_t *feeds = &reader->feeds;
    pool_t *entries = &reader->entries;
    f32 top = rect.w + state->list_scroll; // the next block's top on the screen
    u32 position = 0;
    for (u32 slot = 0; slot < feeds->max_entry_count && position < stats.used_feed_count; slot++) {
        feed_t *feed = (feed_t *)pool_entry(feeds, sizeof(feed_t), slot);
        if (!feed_is_valid(feed)) continue;
        u32 index = position++;
        u32 visible = stats.feed_entry_counts[index];
        if (visible == view_none) continue;
        if (top <= rect.y) break; // everything further lies below the panel
        f32 height = list_head_height + list_row_height * (f32)visible;
        vec4 block = {rect.x, top - height, right, top};
        f32 next_top = top - height - list_block_gap;
        if (!rect_overlap(block, rect)) {
            top = next_top;
            continue;
        }
        gl_command_t *background = shapes ? gl_batch_rectangle(shapes, &block, nullptr, nullptr, list_block_colour)
                                          : nullptr;
        if (feed == state->selected_feed) selected_block = background;

        vec4 strip = {rect.x + list_margin, top - list_margin - list_strip_height, right - list_margin, top - list_margin};
        if (rect_overlap(strip, rect)) {
            vec4 text_box = {strip.x + 1, strip.y + 2, strip.z - 1, strip.w};
            list_label(context, text_box, feed_is_deleted(feed), stats.feed_updating[index] != 0,
                       feed_get_title(feed), view_font_title);
        }
        if (list_hit(ui, ui_id(feed), strip)) list_click(context, feed, nullptr);

        f32 row_top = top - list_first_row;
        u32 row = 0, seen = 0;
        for (u32 i = 0; i < entries->max_entry_count && seen < feed->entry_count && row < visible; i++) {
            if (row_top <= rect.y) break;
            entry_t *entry = (entry_t *)pool_entry(entries, sizeof(entry_t), i);
            if (!entry_is_valid(entry) || entry->feed_id != feed->id) continue;
            seen++;
            if (!list_entry_visible(walk, entry)) continue;
            vec4 row_rect = {rect.x + list_margin, row_top - list_row_height, right - list_margin, row_top};
            if (row_rect.w > rect.y && row_rect.y < rect.w) {
                gl_command_t *row_background =
                    shapes ? gl_batch_rectangle(shapes, &row_rect, nullptr, nullptr, list_row_colours[row & 1])
                           : nullptr;
                if (entry == state->selected_entry) selected_row = row_background;
                vec4 text_box = {row_rect.x + 3, row_rect.y + 2, row_rect.z - 3, row_rect.w - 2};
                list_label(context, text_box, entry_is_deleted(entry), false, entry_get_title(entry),
                           view_font_normal);
                if (list_hit(ui, ui_id(entry), row_rect)) list_click(context, feed, entry);
            }
            row_top -= list_row_height;
            row++;
        }
        top = next_top;
    }
    if (stats.entry_count == 0 && reader->feeds.entry_count > 0) list_draw_nothing(context, reader, rect, top);
    if (selected_block) gl_batch_recolour(shapes, selected_block, nullptr, list_selected_feed_colour);
    if (selected_row) gl_batch_recolour(shapes, selected_row, nullptr, list_selected_entry_colour);
}
