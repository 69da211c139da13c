// fuzz_article - any bytes as an entry's HTML: the parse into the article
// memory and every layout pass of the entry view over it (the measuring walk,
// the input replay with the pointer in the view, the drawing into a batch
// that is never flushed), through the RSS and the Atom view as the window
// draws them. The first byte picks the view, the scroll and the box width.
#include "gfx/fonts.h"
#include "gfx/renderer.h"
#include "gfx/window.h"
#include "reader/reader.h"
#include "toolkit/ui_state.h"
#include "views/view_article.h"

#include <vector>

namespace {

struct fuzz_t {
    reader_t reader = {};
    std::vector<u32> code_point_storage = std::vector<u32>(code_point_list_capacity);
    code_point_list_t code_points = {};
    font_set_t font_set = {};
    window_t window = {};
    ui_t ui = {};
    view_state_t state = {};
    app_context context = {};
    gl_batch_t batch = {};
    feed_t *feeds[2] = {};
    entry_t *entries[2] = {}; // RSS, Atom
};

fuzz_t *fuzz_setup() {
    static fuzz_t f;
    static bool done = false;
    if (done) return &f;
    done = true;
    static data_t sans = font_file_load_sans();
    static data_t mono = font_file_load_mono();
    system_info_get();
    reader_init(&f.reader);
    code_point_list_init(&f.code_points, f.code_point_storage.data(), (u32)f.code_point_storage.size());
    f.reader.code_points = &f.code_points;
    font_set_create_application(&f.font_set, data_virtual_alloc(0x2000000, 0), &sans, &mono);
    for (u32 type = 1; type <= 2; type++) {
        f.feeds[type - 1] = reader_new_feed(&f.reader, type);
        reader_new_meta(&f.reader, f.feeds[type - 1]);
        f.entries[type - 1] = reader_new_entry(&f.reader);
        reader_accept_entry(&f.reader, f.feeds[type - 1], f.entries[type - 1]);
    }
    f.context.frame_memory = data_virtual_alloc(0xA00000, 0);
    f.context.window = &f.window;
    f.context.view_state = &f.state;
    f.context.font_set = &f.font_set;
    f.ui = ui_create(&f.context.frame_memory, &f.window);
    f.ui.font_set = &f.font_set;
    f.batch.kind = gl_batch_kind_text;
    f.batch.commands = data_virtual_alloc(4u << 20, 0);
    f.batch.vertices = data_virtual_alloc(4u << 20, 0);
    f.batch.font_set = &f.font_set;
    f.ui.text = &f.batch;
    f.context.ui = &f.ui;
    view_state_init(&f.state, 0);
    return &f;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size) {
    if (size == 0) return 0;
    fuzz_t *f = fuzz_setup();
    if (f->font_set.font_count != 4) return 0;
    u8 knobs = bytes[0];
    u32 atom = knobs >> 7;
    data_t source = {size - 1, size - 1, (u8 *)bytes + 1};
    if (atom) f->entries[1]->atom.content = source;
    else f->entries[0]->rss.description = source;
    f->state.selected_feed = f->feeds[atom];
    f->state.selected_entry = f->entries[atom];
    f->state.article_ready = 0;
    f->state.content_scroll = vec2{0, (f32)(knobs & 0xF) * 150};
    f32 width = (knobs & 0x10) ? 120 : 800;
    f->window.mouse_x = 60;
    f->window.mouse_y = 300;
    for (int frame = 0; frame < 2; frame++) {
        f->batch.commands.used = 0;
        f->batch.command_count = 0;
        f->batch.vertices.used = 0;
        ui_frame_start(&f->ui);
        vec4 rect = {0, 0, width, 600};
        if (atom) draw_entry_atom(&f->context, &f->reader, rect);
        else draw_entry_rss(&f->context, &f->reader, rect);
    }
    return 0;
}
