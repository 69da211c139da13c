// view_help.cpp - the two read-only panels of the right side: the help text
// (also shown when nothing is selected) and the log of what the user must
// see (channel 2), which opens by itself when a fetch fails.
#include "base/log.h"
#include "gfx/window.h"
#include "views/view_helpers.h"

// What a panel's layout may record; carved from the frame memory so that the
// widgets' own use of the frame memory never lands among its commands.
constexpr u64 help_layout_arena_size = 0x100000;

static const char help_title[] = "Help\n";

static const char help_text[] =
    "The left panel displays a list of feeds and their entries. They are grouped by \xC2\xABgenerations\xC2\xBB, "
    "which are more or less a run of the program. By default only the last generation will be displayed (any "
    "feeds or entries that were added in the last run of the program and that you didn't delete), and you can "
    "use the buttons at the top to configure the generation range.\n\n"
    "[ | ] Set the generation to the minimun <S>.\n"
    "[ -] ] Decrease the generation minimum, but keeps the generation maximum. <Shift + NumPad->.\n"
    "[ - ] Decrease the generation minimum and set the maximum to the same value. <NumPad->.\n"
    "[All] Display all generations. <A> .\n"
    "[ + ] Increase the generation maximum and set the minimum to the same value. <NumPad+>.\n"
    "[ [+ ] Increase the generation maximum, but keeps the generation minimum. <Shift + NumPad+>.\n"
    "[ | ] Set the generation to the maximum <E>.\n\n"
    "You can use [Show empty] to display feeds that don't contain any entries, and the dropdown list to display "
    "deleted entries.\n\n"
    "Use <Up arrow>, <Down arrow>, <Page up>, <Page down> to select a feed or entry, <Return> to open the link "
    "from the selected entry, <Delete> to remove the selected entry, <Shift + Delete> to remove the selected "
    "feed, <Backspace> to restore the selected entry or feed, <Shift + Backspace> to restore the selected feed "
    "and its entries.\n\n\n"
    "The right panel displays feed information, entry content or some configuration. The feed display gives "
    "some options (depending on the type of feed, RSS or Atom) and which configuration to use to open links. "
    "You can setup those configurations in the [Links F3] panel.\n\n"
    "Deleted feed and entries can be restored, but will be completly lost when the application closes. The "
    "application will not update the feed list on startup, you need to use one of the update button at the "
    "top. There is no need to manually save, the application will save on exit. The save button is there for "
    "testing.\n\n"
    "You can pass \"-path some_path\" as an argument to the program to use a different storage path. By default "
    "it's a \"tidewrack\" folder in the %AppData% folder.";

static const char help_windows_note[] =
    "\n\nOn Windows 7 some feed won't load because the operating system doesn't provide TLS 1.3 support.";

// The help text scrolls like the other panels: a small window cuts nothing off.
void draw_help(app_context *context, reader_t *reader, vec4 rect) {
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    vec4 inner = {rect.x + 4, rect.y + 4, rect.z - 4, rect.w - 4};
    if (inner.z <= inner.x || inner.w <= inner.y) return;
    data_t arena = data_block_reserve(&context->frame_memory, help_layout_arena_size, 8);
    layout_t layout = layout_create(&arena, ui->font_set, inner, state->help_scroll.x, state->help_scroll.y,
                                    layout_margin_t{4, 4, 4, 4});
    while (layout_pass_start(&layout)) {
        ui_set_pass_from_layout(ui, &layout);
        if (!layout_is_recording(&layout)) ui_layout_scrollbars(&state->help_scroll, ui, &layout, inner);
        if (layout_scroll_update(&layout, false)) continue;
        layout_set_flags(&layout, layout_flag_keep_partial);
        layout_set_font(&layout, view_font_title);
        layout_set_line_box(&layout, 0, layout.width - layout.margin.left - layout.margin.right,
                            layout_line_drop_break_space);
        layout_string_p(&layout, (const u8 *)help_title, sizeof(help_title) - 1);
        layout_new_line(&layout);
        layout_set_font(&layout, view_font_normal);
        layout_string_p(&layout, (const u8 *)help_text, sizeof(help_text) - 1);
        layout_new_line(&layout);
        layout_push_colour(&layout, vec4{1, 0, 0, 1});
        layout_string_p(&layout, (const u8 *)help_windows_note, sizeof(help_windows_note) - 1);
        layout_pop_colour(&layout);
        layout_new_line(&layout);
        layout_finish(&layout);
    }
    ui_set_pass(ui, ui_pass_all);
    if (ui->text)
        gl_batch_scissor(ui->text, true, (i32)layout.x, (i32)layout.y, (i32)layout.width, (i32)layout.height);
    view_layout_render(context, state, &layout);
    view_set_clip(context, rect);
}

void draw_log(app_context *context, reader_t *reader, vec4 rect) {
    ui_t *ui = context->ui;
    view_state_t *state = context->view_state;
    data_t label = data_literal("Auto scroll.");
    f32 check_height = ui_checkbox_size(ui, &ui_theme.checkbox, label, view_font_normal).y;
    vec4 check = {rect.x + 4, rect.w - 4 - check_height, rect.z - 4, rect.w - 4};
    if (check.z > check.x) ui_checkbox(ui, ui_id(&state->log_auto_scroll), check, &state->log_auto_scroll, label,
                                       view_font_normal);
    rect.w -= check_height + 4 + 5;
    if (rect.w <= rect.y || rect.z <= rect.x) return;

    // The wheel turned up over the text, or a hold on its bar: the user reads
    // back, and the automatic scroll lets go, as its check box then shows.
    bool wheel_up = context->window->wheel > 0 && rect_contains_point(rect, ui->mouse) && !ui_any_active(ui);
    if (wheel_up || ui_id_starts_with(ui->active, ui_id(&state->log_scroll))) state->log_auto_scroll = 0;
    constexpr f32 bottom_of_everything = 3.4028235e38f;
    if (state->log_auto_scroll) state->log_scroll.y = bottom_of_everything;
    log_channel_t *channel = log_channel(log_user);
    data_t text = {channel->data.used, channel->data.used, channel->data.bytes};

    data_t arena = data_block_reserve(&context->frame_memory, help_layout_arena_size, 8);
    layout_t layout = layout_create(&arena, ui->font_set, rect, state->log_scroll.x, state->log_scroll.y,
                                    layout_margin_t{4, 4, 4, 4});
    while (layout_pass_start(&layout)) {
        ui_set_pass_from_layout(ui, &layout);
        if (state->log_auto_scroll && layout_is_recording(&layout)) layout.scroll_y = bottom_of_everything;
        ui_layout_scrollbars(&state->log_scroll, ui, &layout, rect);
        if (layout_scroll_update(&layout, false)) continue;
        layout_set_flags(&layout, layout_flag_keep_partial);
        layout_set_font(&layout, view_font_console);
        if (text.used) layout_string(&layout, text);
        layout_new_line(&layout);
        layout_finish(&layout);
    }
    ui_set_pass(ui, ui_pass_all);
    if (ui->text) {
        gl_batch_scissor(ui->text, true, (i32)layout.x, (i32)layout.y, (i32)layout.width, (i32)layout.height);
    }
    view_layout_render(context, state, &layout);
    view_set_clip(context, rect);
}
