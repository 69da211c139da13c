// feed_atom.cpp - a `feed` tree to an Atom feed record and its entries, with
// persons, categories and links; an entry is judged on its `updated` date
// once it has been read whole.
#include "base/dates.h"
#include "feed/feed.h"

static date_t atom_date(const xml_node_t *node) {
    data_t text = node_text(node);
    return date_parse_feed(&text);
}

static const char *const atom_rel_names[5] = {"alternate", "related", "self", "enclosure", "via"};

// False when the atom links (or the text area) had no room.
static bool atom_link(feed_run_t *run, const xml_node_t *node, u32 owner_kind, u32 owner_id, u32 *link_count) {
    u64 raw = 0;
    for (u32 a = 0; a < node->attribute_count; a++) raw += node->attributes[a]->value.used;
    if (!reader_text_fits(run->reader, raw * 3)) return false;
    atom_link_t *link = reader_new_atom_link(run->reader, owner_kind, owner_id);
    if (!link) return false;
    for (u32 a = 0; a < node->attribute_count; a++) {
        const xml_attribute_t *attribute = node->attributes[a];
        const data_t *value = &attribute->value;
        switch (attribute->name_index) {
        case xml_attribute_href: feed_run_set(run, value, &link->href); break;
        case xml_attribute_type: feed_run_set(run, value, &link->type); break;
        case xml_attribute_hreflang: feed_run_set(run, value, &link->hreflang); break;
        case xml_attribute_title: feed_run_set(run, value, &link->title); break;
        case xml_attribute_length: link->length = (u64)text_to_i64(value->bytes, value->used); break;
        case xml_attribute_rel: // a rel not known names no address of the entry itself
            link->rel = atom_link_rel_other;
            for (u32 r = 0; r < 5; r++) {
                if (memory_equal(value->bytes, value->used, atom_rel_names[r], string_length(atom_rel_names[r])))
                    link->rel = r;
            }
            break;
        default: break;
        }
    }
    (*link_count)++;
    return true;
}

static bool atom_category(feed_run_t *run, const xml_node_t *node, u32 kind, u32 owner_id, u32 *count) {
    category_t raw = {};
    for (u32 a = 0; a < node->attribute_count; a++) {
        const xml_attribute_t *attribute = node->attributes[a];
        switch (attribute->name_index) {
        case xml_attribute_term: raw.term = attribute->value; break;
        case xml_attribute_scheme: raw.scheme = attribute->value; break;
        case xml_attribute_label: raw.label = attribute->value; break;
        default: break;
        }
    }
    return feed_link_category(run->reader, run->encoding, &raw, kind, owner_id, count, run->scratch);
}

// `author` and `contributor`: a person when any of the three parts is given.
static bool atom_person(feed_run_t *run, const xml_node_t *node, u32 kind, u32 owner_id, u32 *count) {
    person_t raw = {};
    for (u32 i = 0; i < node->child_count; i++) {
        const xml_node_t *part = node->children[i];
        switch (part->name_index) {
        case xml_name: raw.name = node_text(part); break;
        case xml_uri: raw.uri = node_text(part); break;
        case xml_email: raw.email = node_text(part); break;
        default: break;
        }
    }
    if (raw.name.used == 0 && raw.uri.used == 0 && raw.email.used == 0) return true;
    return feed_link_person(run->reader, run->encoding, &raw, kind, owner_id, count, run->scratch);
}

static void atom_entry(feed_run_t *run, const xml_node_t *node) {
    reader_t *reader = run->reader;
    // A full reader refuses the entry as the RSS mapping refuses an item.
    if (!feed_reserve_for_item(reader, node)) return;
    reader_text_mark_t mark = reader_text_mark(reader);
    date_t saved_newest = run->newest;
    entry_t *entry = reader_new_entry(reader);
    if (!entry) return;
    entry_atom_t *atom = &entry->atom;

    bool room = true; // false once a pool had no room for a part of the entry
    for (u32 i = 0; i < node->child_count && room; i++) {
        const xml_node_t *child = node->children[i];
        switch (child->name_index) {
        case xml_title: feed_run_set_node(run, child, &atom->title); break;
        case xml_link: room = atom_link(run, child, atom_link_owner_entry, entry->id, &atom->link_count); break;
        case xml_category:
            room = atom_category(run, child, link_kind_atom_entry_category, entry->id, &atom->category_count);
            break;
        case xml_author:
            room = atom_person(run, child, link_kind_atom_entry_author, entry->id, &atom->author_count);
            break;
        case xml_source: feed_run_set(run, &child->text, &atom->source); break; // its own text only
        case xml_id: feed_run_set_node(run, child, &atom->atom_id); break;
        case xml_updated:
            atom->updated = atom_date(child);
            run->newest = feed_later(run->newest, atom->updated);
            break;
        case xml_contributor:
            room = atom_person(run, child, link_kind_atom_entry_contributor, entry->id, &atom->contributor_count);
            break;
        case xml_rights: feed_run_set_node(run, child, &atom->rights); break;
        case xml_content: feed_run_set_node(run, child, &atom->content); break;
        case xml_published:
            atom->published = atom_date(child);
            if (date_is_empty(&atom->updated)) atom->updated = atom->published;
            run->newest = feed_later(run->newest, atom->published);
            break;
        case xml_summary: feed_run_set_node(run, child, &atom->summary); break;
        default: break;
        }
    }

    // Judged whole: an entry with no date at all is never new enough.
    if (!room || !date_is_after(atom->updated, run->threshold)) {
        entry->type_and_flags = reader_type_atom;
        reader_delete_entry(reader, entry, nullptr);
        reader_text_rollback(reader, mark);
        run->newest = saved_newest;
        return;
    }
    entry_t *twin = feed_run_find_twin(run, &atom->atom_id);
    if (twin) reader_delete_entry(reader, twin, run->feed);
    reader_accept_entry(reader, run->feed, entry);
}

feed_t *feed_map_atom(reader_t *reader, xml_node_t *feed_node, const data_t *url, feed_t *feed, u32 encoding,
                      data_t *scratch) {
    feed_run_t run = {};
    run.reader = reader;
    run.encoding = encoding;
    run.scratch = scratch;
    if (feed) {
        run.threshold = feed->atom.updated;
        // The document's links replace the stored ones.
        reader_delete_atom_links(reader, feed, atom_link_owner_feed);
    } else {
        // No room for the feed or its address: nothing is made.
        if (!reader_text_fits(reader, url->used)) return nullptr;
        feed = reader_new_feed(reader, reader_type_atom);
        if (!feed) return nullptr;
        feed_url_set(reader, url, &feed->url);
    }
    run.feed = feed;
    feed_atom_t *atom = &feed->atom;

    for (u32 i = 0; i < feed_node->child_count; i++) {
        const xml_node_t *child = feed_node->children[i];
        switch (child->name_index) {
        case xml_title: feed_run_set_node(&run, child, &atom->title); break;
        case xml_link: atom_link(&run, child, atom_link_owner_feed, feed->id, &atom->link_count); break;
        case xml_category:
            atom_category(&run, child, link_kind_atom_feed_category, feed->id, &atom->category_count);
            break;
        case xml_generator: {
            data_t text = node_text(child);
            if (text.used) feed_run_set(&run, &text, &atom->generator);
            const data_t *uri = node_attribute(child, xml_attribute_uri);
            if (uri) feed_run_set(&run, uri, &atom->generator_uri);
            const data_t *version = node_attribute(child, xml_attribute_version);
            if (version) feed_run_set(&run, version, &atom->generator_version);
            break;
        }
        case xml_author: atom_person(&run, child, link_kind_atom_feed_author, feed->id, &atom->author_count); break;
        case xml_id: feed_run_set_node(&run, child, &atom->atom_id); break;
        case xml_updated: {
            date_t date = atom_date(child);
            if (date_is_after(date, atom->updated)) atom->updated = date;
            break;
        }
        case xml_contributor:
            atom_person(&run, child, link_kind_atom_feed_contributor, feed->id, &atom->contributor_count);
            break;
        case xml_icon: feed_run_set_node(&run, child, &atom->icon); break;
        case xml_logo: feed_run_set_node(&run, child, &atom->logo); break;
        case xml_rights: feed_run_set_node(&run, child, &atom->rights); break;
        case xml_subtitle: feed_run_set_node(&run, child, &atom->subtitle); break;
        case xml_entry: atom_entry(&run, child); break;
        default: break;
        }
    }

    if (date_is_empty(&atom->updated) || date_is_after(run.newest, atom->updated)) atom->updated = run.newest;
    return feed;
}
