// view_links.cpp - opening links, the queues of the ten link configurations,
// and the links panel that edits them.
//
// A link never passes through a shell: the configured executable line is
// split into words by the program's command-line rules, each link is
// appended as a word of its own, and the program is started directly.
// Without an executable the system's handler gets the link.
#include <math.h>

#include "base/command_line.h"
#include "base/log.h"
#include "base/profiler.h"
#include "base/thread_queue.h"
#include "net/file_storage.h"
#include "os/os_process.h"
#include "views/view_helpers.h"

// What one start may hand over: the size of a command line of the program's
// platform model, in UTF-16 with its terminating zero.
constexpr u64 link_command_line_limit = 16384;
constexpr u32 link_argument_capacity = 4096;
constexpr u64 link_queue_step = 4096;

link_configuration_t *view_link_configuration(reader_t *reader, const feed_t *feed) {
    meta_t *meta = feed ? reader_get_meta(reader, feed->id) : nullptr;
    if (meta && meta->link_configuration) return meta->link_configuration;
    return &reader->link_configurations[0];
}

// The next space-separated word of `text` at or after *offset; empty at the end.
static data_t link_next_word(const data_t *text, u64 *offset) {
    u64 i = *offset;
    while (i < text->used && text->bytes[i] == ' ') i++;
    u64 start = i;
    while (i < text->used && text->bytes[i] != ' ') i++;
    *offset = i;
    return data_t{i - start, i - start, text->bytes + start};
}

u32 links_count(const link_configuration_t *configuration) {
    if (!configuration->queue_links) return 0;
    u32 count = 0;
    u64 offset = 0;
    for (;;) {
        data_t word = link_next_word(&configuration->queued_links, &offset);
        if (!word.used) break;
        count++;
    }
    return count;
}

u32 links_count_all(reader_t *reader) {
    u32 count = 0;
    for (const link_configuration_t &configuration : reader->link_configurations) count += links_count(&configuration);
    return count;
}

bool links_queue_append(file_storage_t *storage, link_configuration_t *configuration, const data_t *link) {
    data_t *queue = &configuration->queued_links;
    u64 needed = queue->used + link->used + 2;
    if (queue->reserved < needed) {
        u64 size = align_up(needed, link_queue_step);
        u8 *block = (u8 *)file_storage_alloc(storage, size);
        if (!block) return false;
        if (queue->used) memory_copy(block, queue->bytes, queue->used);
        if (queue->bytes && file_storage_owns(storage, queue->bytes)) file_storage_free(storage, queue->bytes, queue->reserved);
        queue->bytes = block;
        queue->reserved = size;
    }
    if (queue->used) queue->bytes[queue->used++] = ' ';
    memory_copy(queue->bytes + queue->used, link->bytes, link->used);
    queue->used += link->used;
    if (queue->used < queue->reserved) queue->bytes[queue->used] = 0;
    return true;
}

void view_open_link(app_context *context, reader_t *reader, const feed_t *feed, const data_t *link) {
    link_configuration_t *configuration = view_link_configuration(reader, feed);
    if (configuration->queue_links) links_queue_append(context->file_storage, configuration, link);
    else if (!link_open(link, configuration)) view_show_log(context);
}

// UTF-16 units of the text, an invalid byte counting as one replacement.
static u64 link_utf16_units(const data_t *text) {
    u64 units = 0;
    for (u64 i = 0; i < text->used;) {
        u32 code_point, error = 0;
        u8 length;
        utf8_decode(text->bytes + i, text->bytes + text->used, &code_point, &length, &error);
        if (error) length = 1, code_point = code_point_replacement;
        units += code_point >= 0x10000 ? 2 : 1;
        i += length;
    }
    return units;
}

// The argument array of one start: the executable's words (or the system's
// handler) and then `links`, one word each, or the whole text as one word.
// Built in the scratch block; null when it passes the command-line limit.
static const char *const *link_arguments(data_t *scratch, const link_configuration_t *configuration,
                                         const data_t *links, bool split_links) {
    const data_t *executable = &configuration->executable;
    u64 units = link_utf16_units(executable) + 1 + link_utf16_units(links) + 1;
    if (units * 2 > link_command_line_limit) return nullptr;

    char **words = (char **)data_push(scratch, sizeof(char *) * (link_argument_capacity + 1), 8);
    u32 count = 0;
    if (executable->used) {
        u64 room = executable->used + 2;
        u8 *out = (u8 *)data_push(scratch, room, 1);
        bool overflow;
        count = command_line_split(executable->bytes, executable->used, out, room, words, link_argument_capacity,
                                   &overflow);
    }
    if (count == 0) words[count++] = (char *)"xdg-open";
    auto add = [&](data_t word) {
        if (count == link_argument_capacity) return;
        char *copy = (char *)data_push(scratch, word.used + 1, 1);
        memory_copy(copy, word.bytes, word.used);
        copy[word.used] = 0;
        words[count++] = copy;
    };
    if (split_links && executable->used) {
        u64 offset = 0;
        for (data_t word = link_next_word(links, &offset); word.used; word = link_next_word(links, &offset)) add(word);
    } else {
        add(*links);
    }
    words[count] = nullptr;
    return words;
}

static bool link_start(const link_configuration_t *configuration, const data_t *links, bool split_links) {
    data_t scratch = scratch_block_take();
    const char *const *argv = link_arguments(&scratch, configuration, links, split_links);
    bool started = false;
    if (!argv) {
        log_string(log_main, "Link not opened: longer than a command line may be (");
        log_number(log_main, links->used);
        log_string(log_main, " bytes)\n");
    } else {
        started = os_process_start(argv);
        if (!started) {
            // The user must learn what is missing: the handler or their executable.
            u32 code = os_last_error();
            for (u32 channel : {(u32)log_main, (u32)log_user}) {
                if (channel == log_user) log_string(log_user, log_channel(log_user)->data.used ? "\n\n" : "");
                log_string(channel, "Link not opened: could not start ");
                log_string(channel, argv[0]);
                log_string(channel, ": ");
                log_system_error(channel, code);
                if (channel == log_main) log_string(log_main, "\n");
            }
            if (!configuration->executable.used)
                log_string(log_user, ". Install xdg-utils, or set an executable in the links panel (F3).");
        }
    }
    scratch_block_give_back();
    return started;
}

bool link_open(const data_t *link, const link_configuration_t *configuration) {
    if (!link->used) return false;
    return link_start(configuration, link, false);
}

void links_clear_queue(file_storage_t *storage, link_configuration_t *configuration) {
    data_t *queue = &configuration->queued_links;
    if (queue->bytes && file_storage_owns(storage, queue->bytes)) file_storage_free(storage, queue->bytes, queue->reserved);
    *queue = data_t{};
}

bool links_open_queue(file_storage_t *storage, link_configuration_t *configuration, bool clear) {
    if (!configuration->queue_links || !configuration->queued_links.used) return true;
    // A queue that could not be handed over stays, so no link is lost.
    bool started = link_start(configuration, &configuration->queued_links, true);
    if (clear && started) links_clear_queue(storage, configuration);
    return started;
}

void links_open_all(app_context *context, reader_t *reader, bool clear) {
    bool all_started = true;
    for (link_configuration_t &configuration : reader->link_configurations)
        all_started = links_open_queue(context->file_storage, &configuration, clear) && all_started;
    if (!all_started) view_show_log(context);
}

void links_remove(link_configuration_t *configuration, const data_t *link) {
    data_t *queue = &configuration->queued_links;
    u8 *end = queue->bytes + queue->used;
    u8 *start = link->bytes;
    u8 *after = link->bytes + link->used;
    assert_true(start >= queue->bytes && after <= end);
    while (after < end && *after == ' ') after++;
    u64 rest = (u64)(end - after);
    for (u64 i = 0; i < rest; i++) start[i] = after[i];
    queue->used -= (u64)(after - start);
    while (queue->used && queue->bytes[queue->used - 1] == ' ') queue->used--;
    if (queue->used < queue->reserved) queue->bytes[queue->used] = 0;
}

// ---- the links panel --------------------------------------------------------------------------------
constexpr u64 links_name_capacity = 128;
constexpr u64 links_executable_capacity = 1024;
constexpr u64 links_layout_arena_size = 0x100000;
constexpr vec4 links_rule_colour = {0.5f, 0.5f, 0.5f, 1};
constexpr vec4 links_row_hot_colour = {0.79f, 0.32f, 0, 1};

static const char links_help[] =
    "\nThis panel is used to configure how links are opened, and visualize queued links.\n\n"
    "After setting up an executable and configuration name here, you need to assign it to the desired feeds by "
    "clicking on a feed in the left panel and selecting the desired configuration.\n\n"
    "An empty executable line means that the configuration will use the default application from the operating "
    "system.\n\n"
    "[Get OS default] retrieves the default operating system executable path, file name and parameters used to "
    "open links. However, this application doesn't use the \"%1\" notation (you can/should remove it), and will "
    "only append links at the end, separated by spaces.\n\n"
    "Queuing links prevents the application to loose focus each time you open a link and waits to open all links "
    "at the same time. If you don't open the links manually, they will be opened when the application closes.\n\n"
    "If you want to use queued links, you'll most likely need to set up an executable, by clicking [Get OS "
    "default] and removing everything after the executable name.\n\n";

static layout_command_t *links_box(layout_t *layout, f32 width, f32 height, u32 flags) {
    return layout_add_box(layout, floorf(width), height, nullptr, flags | layout_box_whole_pixels);
}

static void links_gap(layout_t *layout, f32 height) {
    layout_new_line(layout);
    layout_move(layout, 0, height, 0);
}

static data_t links_label(const char *text) { return data_t{0, string_length(text), (u8 *)text}; }

void draw_links(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_links);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    const u32 font = view_font_normal;
    font_t *normal = view_font(context, font);
    auto text_width = [&](const char *text) {
        return layout_get_single_line_size(normal, (const u8 *)text, string_length(text), code_point_none).x;
    };
    const data_t get_default = links_label("Get OS default"), remove_all = links_label("Remove all"),
                 open_all = links_label("Open all"), open = links_label("Open"), remove = links_label("X"),
                 queue_label = links_label("Queue links and open them all later.");
    f32 label_width = text_width("Executable:");
    f32 name_width = text_width("Name:");
    vec2 get_default_size = ui_button_size(ui, &ui_theme.button, get_default, font);
    vec2 remove_all_size = ui_button_size(ui, &ui_theme.button, remove_all, font);
    vec2 open_all_size = ui_button_size(ui, &ui_theme.button, open_all, font);
    vec2 open_size = ui_button_size(ui, &ui_theme.button, open, font);
    vec2 remove_size = ui_button_size(ui, &ui_theme.button, remove, font);
    vec2 box_size = ui_text_box_size(ui, &ui_theme.text_edit, font);
    vec2 check_size = ui_checkbox_size(ui, &ui_theme.checkbox, queue_label, font);
    f32 inset = ui_style_top(&ui_theme.button);

    // The queue heads' texts, made once so that every pass lays the same bytes.
    char heads[reader_link_configuration_count][32];
    for (u32 c = 0; c < reader_link_configuration_count; c++) {
        data_t head = {sizeof(heads[c]), 0, (u8 *)heads[c]};
        data_push_number(&head, links_count(&reader->link_configurations[c]), 0, ' ', 0);
        data_push_c_string(&head, " queued links");
        heads[c][head.used] = 0;
    }

    data_t arena = data_block_reserve(&context->frame_memory, links_layout_arena_size, 8);
    layout_t layout = layout_create(&arena, ui->font_set, rect, state->links_scroll.x, state->links_scroll.y,
                                    layout_margin_t{4, 4, 4, 4});
    while (layout_pass_start(&layout)) {
        ui_set_pass_from_layout(ui, &layout);
        ui_layout_scrollbars(&state->links_scroll, ui, &layout, rect);
        if (layout_scroll_update(&layout, false)) continue;
        vec4 area = {layout.x, layout.y, layout.x + layout.width, layout.y + layout.height};
        ui_set_clip(ui, area);
        if (layout.state == layout_state_draw) view_set_clip(context, area);
        bool live = ui_pass_is_live(ui);
        bool draw = layout.state == layout_state_draw;

        layout_move(&layout, 340, 0, 0);
        layout_new_line(&layout);
        layout_set_flags(&layout, layout_flag_keep_partial);
        layout_set_font(&layout, view_font_title);
        layout_set_line_box(&layout, 0, layout_fill_width(&layout)->fill.width, layout_line_drop_break_space);
        layout_string_p(&layout, (const u8 *)"Links", 5);
        layout_new_line(&layout);
        layout_set_font(&layout, font);
        layout_string_p(&layout, (const u8 *)links_help, sizeof(links_help) - 1);
        layout_new_line(&layout);

        bool queue_changed = false;
        for (u32 c = 0; c < reader_link_configuration_count; c++) {
            link_configuration_t *configuration = &reader->link_configurations[c];
            ui_id_t id = ui_id(configuration);
            if (c == 0) {
                layout_move(&layout, 0, 10, 0);
            } else {
                layout_move(&layout, 0, 20, 0);
                layout_command_t *rule = links_box(&layout, layout_fill_width_floor(&layout)->fill.width, 2,
                                                   layout_box_move_down);
                if (draw && ui->rectangles) gl_batch_rectangle(ui->rectangles, &rule->box.rect, nullptr, nullptr,
                                                               links_rule_colour);
                layout_new_line(&layout);
                layout_move(&layout, 0, 20, 0);
            }
            // Name.
            layout_move(&layout, 0, inset, 0);
            layout_string_p(&layout, (const u8 *)"Name:", 5);
            layout_move(&layout, label_width + 2 - name_width, -inset, 0);
            f32 name_box_width = layout_fill_width_floor(&layout)->fill.width;
            if (name_box_width < box_size.x) name_box_width = box_size.x;
            layout_command_t *name_box = links_box(&layout, name_box_width, box_size.y, layout_box_move_right);
            // Executable.
            links_gap(&layout, 5);
            layout_move(&layout, 0, inset, 0);
            layout_string_p(&layout, (const u8 *)"Executable:", 11);
            layout_move(&layout, 2, -inset, 0);
            f32 executable_width = layout_fill_width_floor(&layout)->fill.width - get_default_size.x - 2;
            if (executable_width < box_size.x) executable_width = box_size.x;
            layout_command_t *executable_box = links_box(&layout, executable_width, box_size.y, layout_box_move_right);
            layout_move(&layout, 2, 0, 0);
            layout_command_t *default_button =
                links_box(&layout, get_default_size.x, get_default_size.y, layout_box_move_right);
            // Queue option.
            links_gap(&layout, 5);
            layout_command_t *check_box = links_box(&layout, check_size.x, check_size.y, layout_box_move_right);
            // Queue head.
            links_gap(&layout, inset + 20);
            layout_string_p(&layout, (const u8 *)heads[c], string_length(heads[c]));
            layout_move(&layout, 10, -inset, 0);
            layout_command_t *open_all_button = links_box(&layout, open_all_size.x, open_all_size.y,
                                                          layout_box_move_right);
            layout_move(&layout, 2, 0, 0);
            layout_command_t *remove_all_button = links_box(&layout, remove_all_size.x, remove_all_size.y,
                                                            layout_box_move_right);
            if (live && !queue_changed) {
                view_text_edit_stored(context, ui_id_child(id, 1), view_box_rect(name_box), &configuration->name,
                                      links_name_capacity, font);
                view_text_edit_stored(context, ui_id_child(id, 2), view_box_rect(executable_box),
                                      &configuration->executable, links_executable_capacity, font);
                if (ui_button(ui, ui_id_child(id, 3), view_box_rect(default_button), get_default, font)) {
                    char command[2048];
                    u64 n = os_default_browser_command(command, sizeof(command));
                    data_t text = {n, n, (u8 *)command};
                    view_store_text(context, &configuration->executable, &text);
                }
                ui_checkbox(ui, ui_id_child(id, 4), view_box_rect(check_box), &configuration->queue_links, queue_label,
                            font);
                if (ui_button(ui, ui_id_child(id, 5), view_box_rect(open_all_button), open_all, font) &&
                    !links_open_queue(context->file_storage, configuration, false))
                    view_show_log(context);
                if (ui_button(ui, ui_id_child(id, 6), view_box_rect(remove_all_button), remove_all, font)) {
                    links_clear_queue(context->file_storage, configuration);
                    layout_invalidate(&layout);
                    queue_changed = true;
                }
            }
            // One row a queued link.
            layout_new_line(&layout);
            u64 offset = 0;
            u32 position = 0;
            for (data_t link = link_next_word(&configuration->queued_links, &offset); link.used && !queue_changed;
                 link = link_next_word(&configuration->queued_links, &offset), position++) {
                if (position == 0) layout_move(&layout, 0, 5, 0);
                layout_command_t *row = links_box(&layout, layout_fill_width_floor(&layout)->fill.width,
                                                  open_size.y + 2, layout_box_move_down);
                layout_new_line(&layout);
                if (!live) continue;
                vec4 row_rect = view_box_rect(row);
                if (!rect_overlap(row_rect, ui->clip)) continue;
                ui_id_t row_id = ui_id_child(ui_id_child(id, 7), position + 1);
                vec4 remove_rect = rect_xywh(row_rect.z - remove_size.x, row_rect.y + 1, remove_size.x, remove_size.y);
                vec4 open_rect = rect_xywh(remove_rect.x - 2 - open_size.x, row_rect.y + 1, open_size.x, open_size.y);
                if (draw) {
                    bool hot = rect_contains_point(rect_clip(row_rect, ui->clip), ui->mouse);
                    if (hot && ui->rectangles)
                        gl_batch_rectangle(ui->rectangles, &row_rect, nullptr, nullptr, links_row_hot_colour);
                    vec4 text_rect = {row_rect.x + 2, row_rect.y, open_rect.x - 2, row_rect.w};
                    view_text_fitted(context, ui->text, text_rect, link, font, view_white);
                }
                if (ui_button(ui, ui_id_child(row_id, 1), open_rect, open, font) && !link_open(&link, configuration))
                    view_show_log(context);
                if (ui_button(ui, ui_id_child(row_id, 2), remove_rect, remove, font)) {
                    links_remove(configuration, &link);
                    layout_invalidate(&layout);
                    queue_changed = true;
                }
            }
        }
        layout_finish(&layout);
    }
    ui_set_pass(ui, ui_pass_all);
    view_layout_render(context, state, &layout);
    view_set_clip(context, rect);
}
