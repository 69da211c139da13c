// view_entry.cpp - the selected entry: title, a line of date and people, the
// link that opens or queues the article, an RSS enclosure, and the article.
// The RSS and Atom views differ only in the fields they read.
#include "base/profiler.h"
#include "base/text.h"
#include "base/dates.h"
#include "base/files.h"
#include "feed/feed.h"
#include "toolkit/widgets.h"
#include "views/view_article.h"

namespace {

struct entry_items_t {
    entry_t *entry;
    u32 is_atom;
    data_t title;
    const data_t *link; // the address the link carries, in the reader; empty when there is none
    data_t source;      // the article's HTML
    data_t date;
    data_t authors;
    data_t contributors;
    u32 contributor_count;
    const data_t *enclosure_url; // RSS only; empty when none
    data_t enclosure_name;       // what the enclosure's link reads
    data_t enclosure_length;
    u32 meta_flags;
    link_configuration_t *configuration;
};

data_t entry_literal(const char *text) { return data_t{string_length(text), string_length(text), (u8 *)text}; }

data_t entry_date_text(app_context *context, date_t date) {
    if (date_is_empty(&date)) return data_t{};
    data_t separator = entry_literal(" ");
    return date_to_string(date, &context->frame_memory, 0, &separator);
}

// What the enclosure's link reads: the file name, between the last "/" and
// the query; without a "/" the whole address. A "/" inside the query doesn't
// count, so "a/b.mp3?from=/c" reads "b.mp3".
data_t entry_file_name(const data_t *url) {
    const u8 *first = url->bytes, *end = url->bytes + url->used;
    const u8 *path_end = memory_find(first, end, "?", 1); // the end when there is no query
    const u8 *slash = memory_find_last(first, path_end, "/", 1);
    if (slash == path_end) return *url;
    return data_from_range(slash + 1, path_end);
}

// The Atom people: one walk of the links pool, entry authors and entry
// contributors of this entry, names joined by ", ".
void entry_atom_people(app_context *context, reader_t *reader, entry_items_t *items) {
    entry_t *entry = items->entry;
    u32 wanted = entry->atom.author_count + entry->atom.contributor_count;
    data_t *memory = &context->frame_memory;
    u32 found = 0;
    data_t comma = entry_literal(", ");
    for (u32 i = 0; i < reader->links.max_entry_count && found < wanted; i++) {
        link_t *link = (link_t *)pool_entry(&reader->links, sizeof(link_t), i);
        if (!link_is_valid(link) || link->owner_id != entry->id) continue;
        if (link->kind != link_kind_atom_entry_author && link->kind != link_kind_atom_entry_contributor) continue;
        found++;
        person_t *person = reader_get_person_by_id(reader, link->target_id);
        assert_message(person, "An entry's person link names no person.");
        data_t *text = link->kind == link_kind_atom_entry_author ? &items->authors : &items->contributors;
        // Each text is a small block of its own, grown by copying: people
        // lists are short.
        u64 size = text->used + (text->used ? comma.used : 0) + person->name.used;
        u8 *bytes = (u8 *)data_push(memory, size, 1);
        if (!bytes) break;
        memory_copy(bytes, text->bytes, text->used);
        u64 at = text->used;
        if (text->used) {
            memory_copy(bytes + at, comma.bytes, comma.used);
            at += comma.used;
        }
        memory_copy(bytes + at, person->name.bytes, person->name.used);
        *text = data_t{size, size, bytes};
    }
}

// The href of the entry's first alternate link, among its link_count atom
// links: the record's own field, so the address stays put from frame to
// frame (it is the link's identity).
const data_t *entry_alternate_link(reader_t *reader, const entry_t *entry) {
    u32 found = 0;
    for (u32 i = 0; i < reader->atom_links.max_entry_count && found < entry->atom.link_count; i++) {
        atom_link_t *link = (atom_link_t *)pool_entry(&reader->atom_links, sizeof(atom_link_t), i);
        if (!atom_link_is_valid(link) || link->owner_kind != atom_link_owner_entry || link->owner_id != entry->id)
            continue;
        found++;
        if (link->rel == atom_link_rel_alternate) return &link->href;
    }
    return nullptr;
}

entry_items_t entry_items(app_context *context, reader_t *reader) {
    view_state_t *state = context->view_state;
    assert_message(state->selected_feed, "An entry is shown without its feed.");
    entry_t *entry = state->selected_entry;
    assert_message(entry && entry->id != 0, "No entry to show.");
    meta_t *meta = reader_get_meta(reader, state->selected_feed->id);
    assert_message(meta, "A shown feed has no meta record.");

    entry_items_t items = {};
    items.entry = entry;
    items.meta_flags = meta->flags;
    items.configuration = meta->link_configuration ? meta->link_configuration : &reader->link_configurations[0];
    static const data_t empty = {};
    items.link = &empty;
    items.enclosure_url = &empty;
    u32 type = entry_get_type(entry);
    if (type == 1) {
        items.title = entry->rss.title;
        items.link = feed_rss_article_link(entry);
        items.source = entry->rss.description;
        items.date = entry_date_text(context, entry->rss.pub_date);
        items.authors = entry->rss.author;
        items.enclosure_url = &entry->rss.enclosure_url;
        if (entry->rss.enclosure_url.used) {
            items.enclosure_name = entry_file_name(&entry->rss.enclosure_url);
            data_size_to_text(&items.enclosure_length, entry->rss.enclosure_length, &context->frame_memory);
        }
    } else {
        assert_message(type == 2, "An entry of an unknown type.");
        items.is_atom = 1;
        if (entry->atom.title.used) {
            data_t title = entry->atom.title;
            data_t set = entry_literal(" \t\n\r\v\f");
            data_trim_end(&items.title, &title, &set);
        }
        if (const data_t *href = entry_alternate_link(reader, entry)) items.link = href;
        items.source = entry->atom.content.used ? entry->atom.content : entry->atom.summary;
        items.date = entry_date_text(context, entry->atom.updated);
        items.contributor_count = entry->atom.contributor_count;
        entry_atom_people(context, reader, &items);
    }
    return items;
}

// A link run of the header: begin, colour, text, colour, end; in the input
// pass the text acts as a link button.
void entry_link(app_context *context, reader_t *reader, layout_t *layout, view_links_t *links, const data_t *address,
                data_t text) {
    view_state_t *state = context->view_state;
    layout_add_user(layout, 1, (u64)address);
    layout_command_t *colour = layout_push_colour(layout, view_link_colour);
    layout_command_t *run = layout_string(layout, text);
    layout_pop_colour(layout);
    layout_add_user(layout, 1, 0);
    if (layout->state != layout_state_input || layout->dirty || !layout_command_visible(layout, run)) return;
    ui_id_t id = ui_id_pointer(address);
    if (view_link_string(links, id, run)) {
        colour->colour_push.colour = view_link_pressed_colour;
        view_open_link(context, reader, state->selected_feed, address);
        state->redraw_requested = 1;
    }
    if (ui_is_active(context->ui, id)) colour->colour_push.colour = view_link_pressed_colour;
}

void entry_header(app_context *context, reader_t *reader, layout_t *layout, view_links_t *links,
                  const entry_items_t *items) {
    PROFILE_SCOPE(layout_pass_header);
    layout_set_flags(layout, layout_flag_keep_partial);
    layout_push_colour(layout, vec4{1, 1, 1, 1});
    // Lines end at the right margin, so that wrapped text never reaches past
    // the box and brings up a horizontal bar of a few pixels.
    layout_set_line_box(layout, 0, layout->width - layout->margin.left - layout->margin.right,
                        layout_line_drop_break_space);
    layout_new_line(layout);
    layout_move(layout, 0, 5, 0);
    layout_set_font(layout, view_font_title);
    layout_string(layout, items->title);

    bool has_date = items->date.used != 0;
    bool has_authors = items->authors.used != 0;
    bool has_contributors = items->is_atom && items->contributors.used != 0;
    if (has_date || has_authors || has_contributors) {
        layout_new_line(layout);
        layout_set_font(layout, view_font_small);
        layout_move(layout, 0, 10, 0);
        layout_string(layout, items->date);
        if (has_authors) {
            if (has_date) layout_string(layout, entry_literal(" - "));
            layout_string(layout, items->authors);
        }
        if (has_contributors) {
            if (has_date && !has_authors) layout_string(layout, entry_literal(" - "));
            else if (has_authors) layout_string(layout, entry_literal(" "));
            layout_string(layout, entry_literal(items->contributor_count < 2 ? "Contributor: " : "Contributors: "));
            layout_string(layout, items->contributors);
        }
    }
    if (items->link->used) {
        layout_string(layout, entry_literal(" - "));
        entry_link(context, reader, layout, links, items->link,
                   entry_literal(items->configuration->queue_links ? "Queue article" : "Open article"));
    }
    if (!items->is_atom && items->enclosure_url->used && !(items->meta_flags & meta_hide_enclosure)) {
        layout_new_line(layout);
        layout_set_font(layout, view_font_small);
        layout_move(layout, 0, 5, 0);
        entry_link(context, reader, layout, links, items->enclosure_url, items->enclosure_name);
        layout_string(layout, entry_literal(" - "));
        layout_string(layout, items->enclosure_length);
    }
}

bool entry_draws_enclosure_image(const entry_items_t *items) {
    if (items->is_atom || !items->enclosure_url->used || !(items->meta_flags & meta_draw_enclosure_image)) return false;
    data_t extension = path_extension(items->enclosure_url);
    data_t kinds[3] = {entry_literal("png"), entry_literal("jpg"), entry_literal("jpeg")};
    for (const data_t &kind : kinds)
        if (data_equal(&extension, &kind)) return true;
    return false;
}

void entry_article(app_context *context, reader_t *reader, layout_t *layout, html_tree_traversal_t *walk,
                   const entry_items_t *items) {
    PROFILE_SCOPE(layout_pass_content);
    view_state_t *state = context->view_state;
    if (items->source.used) {
        layout_new_line(layout);
        layout_move(layout, 0, 10, 0);
        if (article_failed(state)) {
            layout_set_font(layout, view_font_normal);
            layout_string(layout, items->source);
        } else {
            article_layout(state, layout, walk, view_font_normal, context, reader);
        }
    }
    if (entry_draws_enclosure_image(items)) {
        layout_new_line(layout);
        layout_move(layout, 0, 5, 0);
        // Fetched as soon as the entry shows, in view or not.
        u32 frame_state = 0;
        image_query_t *slot =
            view_image_lookup(state, items->enclosure_url, layout->state == layout_state_input, &frame_state);
        if (slot && frame_state == image_state_ready) {
            layout_add_box(layout, (f32)slot->target_width, (f32)slot->target_height, (void *)items->enclosure_url,
                           layout_box_move_right | layout_box_move_down);
        } else {
            if (slot && frame_state == image_state_decoded) image_request_resize(layout, slot);
            image_placeholder(layout, items->enclosure_url, items->enclosure_url, slot);
        }
    }
    layout_finish(layout);
}

void entry_passes(app_context *context, reader_t *reader, vec4 rect, const entry_items_t *items, layout_t *layout) {
    view_state_t *state = context->view_state;
    ui_t *ui = context->ui;
    u32 error = 0;
    if (items->source.used && !state->article_ready) article_parse(state, &items->source, &error);
    state->article_ready = 1;

    *layout = layout_create(&context->frame_memory, context->font_set, rect, state->content_scroll.x,
                            state->content_scroll.y, layout_margin_t{4, 4, 4, 4});
    view_links_t links = {ui, {}, 0};
    while (layout_pass_start(layout)) {
        ui_set_pass_from_layout(ui, layout);
        // The bars only mean something once the content is measured: a
        // recording would clamp the scroll against what it has so far.
        if (!layout_is_recording(layout)) ui_layout_scrollbars(&state->content_scroll, ui, layout, rect);
        if (layout_scroll_update(layout, false)) continue;
        html_tree_traversal_t walk = {};
        if (items->source.used && !article_failed(state)) {
            u32 walk_error = 0;
            walk = article_walk_start(state, &walk_error);
        }
        entry_header(context, reader, layout, &links, items);
        entry_article(context, reader, layout, &walk, items);
    }
    view_links_end(&links);
}

void draw_entry(app_context *context, reader_t *reader, vec4 rect, const entry_items_t *items) {
    layout_t layout;
    entry_passes(context, reader, rect, items, &layout);
    view_layout_clip(context, vec4{layout.x, layout.y, layout.x + layout.width, layout.y + layout.height});
    view_layout_render(context, context->view_state, &layout);
}

} // namespace

void entry_view_layout(app_context *context, reader_t *reader, vec4 rect, layout_t *layout) {
    entry_items_t items = entry_items(context, reader);
    entry_passes(context, reader, rect, &items, layout);
}

void draw_entry_rss(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_entry_rss);
    entry_items_t items = entry_items(context, reader);
    assert_message(!items.is_atom, "An Atom entry in the RSS view.");
    draw_entry(context, reader, rect, &items);
}

void draw_entry_atom(app_context *context, reader_t *reader, vec4 rect) {
    PROFILE_SCOPE(draw_entry_atom);
    entry_items_t items;
    {
        PROFILE_SCOPE(draw_entry_atom_header);
        items = entry_items(context, reader);
    }
    assert_message(items.is_atom, "An RSS entry in the Atom view.");
    PROFILE_SCOPE(layout_passes);
    draw_entry(context, reader, rect, &items);
}
