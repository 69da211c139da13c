// view_helpers.cpp - small pieces the views share.
#include "views/view_helpers.h"
#include "views/view_article.h"
#include "net/file_storage.h"

f32 view_baseline(const font_t *font, vec4 rect) {
    return (rect.y + rect.w) * 0.5f - font->size * 0.5f + font_descent(font);
}

void view_text_fitted(app_context *context, gl_batch_t *batch, vec4 rect, data_t text, u32 font, vec4 colour) {
    if (!batch || text.used == 0) return;
    font_t *f = view_font(context, font);
    u8 *bytes = (u8 *)data_push(&context->frame_memory, text.used + 4, 1);
    if (!bytes) return;
    data_t fitted = {text.used + 4, 0, bytes};
    vec2 size;
    layout_fit_single_line(f, &text, code_point_none, rect.z - rect.x, &fitted, &size, 0);
    if (fitted.used) gl_batch_text(batch, fitted.bytes, fitted.used, 0, rect.x, view_baseline(f, rect), true, font, colour);
}

// The toolkit's clip and the scissor of its batches, and of the pictures'
// batch when asked.
static void view_clip_batches(app_context *context, vec4 rect, bool images) {
    ui_t *ui = context->ui;
    ui_set_clip(ui, rect);
    i32 x = (i32)rect.x, y = (i32)rect.y;
    i32 width = (i32)(rect.z - rect.x), height = (i32)(rect.w - rect.y);
    if (width < 0) width = 0;
    if (height < 0) height = 0;
    gl_batch_t *batches[4] = {ui->rectangles, ui->text, ui->icons, images ? view_image_batch(context) : nullptr};
    for (gl_batch_t *batch : batches)
        if (batch) gl_batch_scissor(batch, true, x, y, width, height);
}

void view_set_clip(app_context *context, vec4 rect) { view_clip_batches(context, rect, false); }
void view_layout_clip(app_context *context, vec4 rect) { view_clip_batches(context, rect, true); }

u32 view_text_edit_stored(app_context *context, ui_id_t id, vec4 rect, data_t *stored, u64 capacity, u32 font) {
    u8 buffer[1024];
    if (capacity > sizeof(buffer)) capacity = sizeof(buffer);
    data_t field = {capacity, 0, buffer};
    u64 n = stored->used < capacity ? stored->used : capacity;
    memory_copy(buffer, stored->bytes, n);
    field.used = n;
    u32 result = ui_text_edit(context->ui, id, rect, &field, font);
    if (ui_state_get(context->ui, id)->text_edit.changed_now) view_store_text(context, stored, &field);
    return result;
}

void view_store_text(app_context *context, data_t *stored, const data_t *text) {
    if (text->used <= stored->reserved && stored->bytes) {
        memory_copy(stored->bytes, text->bytes, text->used);
        stored->used = text->used;
        return;
    }
    u8 *block = (u8 *)file_storage_alloc(context->file_storage, text->used);
    if (!block) return; // the stored text stays as it was
    memory_copy(block, text->bytes, text->used);
    if (stored->bytes && file_storage_owns(context->file_storage, stored->bytes))
        file_storage_free(context->file_storage, stored->bytes, stored->reserved);
    *stored = data_t{text->used, text->used, block};
}
