// view_add_feed.cpp - the add feed panel: one address, a list file of
// addresses, and the export of every feed's address to a list file. Its
// "Browse" buttons start the desktop's file chooser (zenity) without waiting
// for it; the chosen path lands in the field when the chooser ends.
#include <math.h>

#include "base/files.h"
#include "base/log.h"
#include "base/profiler.h"
#include "gfx/window.h"
#include "net/feed_list.h"
#include "net/feed_query.h"
#include "os/os_core.h"
#include "os/os_process.h"
#include "views/view_helpers.h"

constexpr u64 add_feed_layout_arena_size = 0x40000;

// ---- export ----------------------------------------------------------------------------------------
// The list goes out as OPML when the path ends in ".opml", else as plain
// addresses, one a line; the text is built in the frame memory.
bool view_export_list(app_context *context, reader_t *reader, data_t *path) {
    if (path->used == 0) {
        data_push_raw(path, context->desktop_folder.bytes, context->desktop_folder.used);
        const char name[] = {os_path_separator, 'l', 'i', 's', 't', '.', 't', 'x', 't', 0};
        if (path->used + sizeof(name) - 1 <= path->reserved) data_push_c_string(path, name);
    }
    u32 error = 0;
    feed_list_export(reader, path, &context->frame_memory, &error);
    if (error) {
        log_string(log_main, "The feed list could not be written to ");
        log_data(log_main, path);
        log_string(log_main, "\n");
    }
    return error == 0;
}

// ---- the file chooser ---------------------------------------------------------------------------------
// One chooser at a time: its output, and the field it fills.
struct add_feed_dialog_t {
    os_process_output_t process;
    data_t *field;
    u8 output[4096];
};
static add_feed_dialog_t add_feed_dialog;

static void add_feed_dialog_wake(void *) { window_wake(); }

// Takes the chooser's answer into its field once it has ended: the path it
// printed, without the line end. A cancelled chooser prints nothing.
static void add_feed_dialog_poll() {
    add_feed_dialog_t *dialog = &add_feed_dialog;
    if (!dialog->field || os_process_state(&dialog->process) != os_process_done) return;
    data_t answer = {dialog->process.size, dialog->process.size, dialog->output};
    while (answer.used && (answer.bytes[answer.used - 1] == '\n' || answer.bytes[answer.used - 1] == '\r'))
        answer.used--;
    if (dialog->process.exit_code == 0 && answer.used && answer.used <= dialog->field->reserved) {
        dialog->field->used = 0;
        data_push_data(dialog->field, &answer, 1);
    }
    dialog->field = nullptr;
    dialog->process.state = os_process_idle;
}

static void add_feed_dialog_start(app_context *context, data_t *field) {
    add_feed_dialog_t *dialog = &add_feed_dialog;
    if (dialog->field) return; // one is open already
    char start[view_text_field_size + 16] = "--filename=";
    u64 prefix = string_length(start);
    memory_copy(start + prefix, field->bytes, field->used);
    start[prefix + field->used] = 0;
    const char *argv[] = {"zenity", "--file-selection", start, nullptr};
    dialog->process.buffer = dialog->output;
    dialog->process.capacity = sizeof(dialog->output);
    dialog->process.wake = add_feed_dialog_wake;
    dialog->process.wake_context = nullptr;
    if (os_process_read_async(argv, &dialog->process)) {
        dialog->field = field;
        return;
    }
    log_string(log_user, log_channel(log_user)->data.used ? "\n\n" : "");
    log_string(log_user, "No file chooser: zenity is not installed. Type the path in the field.");
    view_show_log(context);
}

// ---- the panel ---------------------------------------------------------------------------------------------
// A box for a widget at the pen, moving the pen to its right.
static layout_command_t *add_feed_box(layout_t *layout, f32 width, f32 height) {
    return layout_add_box(layout, floorf(width), height, nullptr, layout_box_move_right | layout_box_whole_pixels);
}

static void add_feed_text(layout_t *layout, const char *text) {
    layout_string_p(layout, (const u8 *)text, string_length(text));
}

static void add_feed_gap(layout_t *layout) {
    layout_new_line(layout);
    layout_move(layout, 0, 5, 0);
}

void draw_add_feed(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_add_feed);
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    add_feed_dialog_poll();
    const u32 font = view_font_normal;
    const data_t add = data_literal("Add"), browse = data_literal("Browse"), export_label = data_literal("Export");
    vec2 add_size = ui_button_size(ui, &ui_theme.button, add, font);
    vec2 browse_size = ui_button_size(ui, &ui_theme.button, browse, font);
    vec2 export_size = ui_button_size(ui, &ui_theme.button, export_label, font);
    vec2 box_size = ui_text_box_size(ui, &ui_theme.text_edit, font);
    auto field_width = [&](layout_t *layout, f32 buttons) {
        f32 width = layout_fill_width_floor(layout)->fill.width - buttons;
        return width > box_size.x ? width : box_size.x;
    };

    data_t arena = data_block_reserve(&context->frame_memory, add_feed_layout_arena_size, 8);
    layout_t layout = layout_create(&arena, ui->font_set, rect, state->add_feed_scroll.x, state->add_feed_scroll.y,
                                    layout_margin_t{4, 4, 4, 4});
    while (layout_pass_start(&layout)) {
        ui_set_pass_from_layout(ui, &layout);
        ui_layout_scrollbars(&state->add_feed_scroll, ui, &layout, rect);
        if (layout_scroll_update(&layout, false)) continue;
        vec4 area = {layout.x, layout.y, layout.x + layout.width, layout.y + layout.height};
        ui_set_clip(ui, area);
        if (layout.state == layout_state_draw) view_set_clip(context, area);
        bool live = ui_pass_is_live(ui);

        layout_set_font(&layout, view_font_title);
        add_feed_text(&layout, "Add feed");
        layout_new_line(&layout);
        layout_set_font(&layout, font);
        layout_move(&layout, 0, 5, 0);
        add_feed_text(&layout, "URL to a RSS or Atom feed.");
        add_feed_gap(&layout);
        layout_command_t *url_box = add_feed_box(&layout, field_width(&layout, 2 + add_size.x), box_size.y);
        layout_move(&layout, 2, 0, 0);
        layout_command_t *url_add = add_feed_box(&layout, add_size.x, add_size.y);
        if (live) {
            u32 ended = ui_text_edit(ui, ui_id(&state->add_feed_url), view_box_rect(url_box), &state->add_feed_url, font);
            bool clicked = ui_button(ui, ui_id(), view_box_rect(url_add), add, font);
            if (clicked || ended == ui_text_edit_enter || ended == ui_text_edit_line_feed)
                feed_query_add_url(context->feed_query_context, reader, &state->add_feed_url);
        }

        // A path field with "Browse" and an action button behind it, under its label; the
        // buttons are named from the caller's site.
        struct path_row_t {
            u32 ended;
            bool clicked;
        };
        auto path_row = [&](ui_id_t site, const char *label, data_t *path, data_t action, vec2 action_size) {
            add_feed_gap(&layout);
            add_feed_text(&layout, label);
            add_feed_gap(&layout);
            layout_command_t *box =
                add_feed_box(&layout, field_width(&layout, 2 + browse_size.x + 2 + action_size.x), box_size.y);
            layout_move(&layout, 2, 0, 0);
            layout_command_t *browse_box = add_feed_box(&layout, browse_size.x, browse_size.y);
            layout_move(&layout, 2, 0, 0);
            layout_command_t *action_box = add_feed_box(&layout, action_size.x, action_size.y);
            path_row_t row = {};
            if (!live) return row;
            row.ended = ui_text_edit(ui, ui_id(path), view_box_rect(box), path, font);
            if (ui_button(ui, ui_id_child(site, 1), view_box_rect(browse_box), browse, font))
                add_feed_dialog_start(context, path);
            row.clicked = ui_button(ui, ui_id_child(site, 2), view_box_rect(action_box), action, font);
            return row;
        };
        data_t *import_path = &state->add_feed_import_path;
        path_row_t import = path_row(ui_id(), "Path to a text file containing a list of RSS or Atom feed URLs.",
                                     import_path, add, add_size);
        if ((import.clicked || import.ended == ui_text_edit_enter || import.ended == ui_text_edit_line_feed) &&
            import_path->used)
            feed_query_add_list(context->feed_query_context, reader, import_path);
        // Enter in the export field does nothing.
        data_t *export_path = &state->add_feed_export_path;
        if (path_row(ui_id(), "Path to a text file to export a list of URLs from the feed added in the application.",
                     export_path, export_label, export_size)
                .clicked)
            view_export_list(context, reader, export_path);
        layout_finish(&layout);
    }
    ui_set_pass(ui, ui_pass_all);
    view_layout_render(context, state, &layout);
    view_set_clip(context, rect);
}
