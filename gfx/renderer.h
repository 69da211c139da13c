// renderer.h - everything on the screen is rectangles, text runs and images,
// recorded during the frame into batches and turned into OpenGL calls once,
// at the flush. Painter's order is the order of the batches and, within a
// batch, of its commands.
#pragma once

#include "base/memory.h"

struct font_set_t;

// ---- colours ------------------------------------------------------------------------
u32 color_pack(vec4 colour);
vec4 color_unpack(u32 packed);

// ---- vertex formats -----------------------------------------------------------------------
// Bits 0-1: position components - 2; bit 2: packed colour; bit 3: texture
// coordinates; bits 4-5: index size (1: 1 byte, 2: 2 bytes, 3: 4 bytes).
u8 gl_vertex_format(u32 dimensions, bool coloured, bool textured, u32 index_bytes);
u32 gl_vertex_floats(u8 format);
u32 gl_vertex_stride(u8 format);
u32 gl_vertex_dimensions(u8 format);
u32 gl_vertex_index_bytes(u8 format);

enum : u32 {
    gl_command_clear = 1,
    gl_command_viewport = 2,
    gl_command_boxes = 3,
    gl_command_line_strip = 4,
    gl_command_strip = 5,
    gl_command_image = 6,
    gl_command_text = 7,
    gl_command_draw_batch = 8,
    gl_command_scissor = 9,
};

struct gl_batch_t;

// One 64-byte record; the first word is its kind. The command blocks start
// 64-aligned, so every record stays on its own cache line.
struct gl_command_t {
    u32 kind;
    union {
        struct {
            u32 colour;
        } clear;
        struct {
            f32 x, y, width, height;
        } viewport;
        struct { // strip, image (line strip and boxes share it)
            u32 count;
            f32 *vertices;
            u32 texture;
            u32 bytes_per_pixel;
        } strip;
        struct {
            vec3 position;
            u32 font;
            data_t text;
            u32 colour;
            u32 glyphs;
            u32 glyphs_written;
            u32 skip_bearing;
        } text;
        struct {
            gl_batch_t *batch;
        } draw;
        struct {
            u32 enable;
            i32 x, y, width, height;
        } scissor;
    };
};
static_assert(sizeof(gl_command_t) == 64, "commands are 64 bytes");

enum : u32 {
    gl_batch_kind_rectangles = 5,
    gl_batch_kind_images = 6,
    gl_batch_kind_text = 7,
};

struct gl_batch_t {
    u32 kind;
    u32 command_count;
    data_t commands;
    data_t vertices; // vertex floats, or in a text batch the copied text
    u32 vertex_buffer;
    u64 vertex_buffer_size;
    u64 vertex_buffer_used;
    u32 next_vertex;
    u32 index_buffer;
    u64 index_buffer_size;
    u64 index_buffer_used;
    u32 program;
    f32 *projection;
    u8 format;
    font_set_t *font_set;
    u32 texture;
};

constexpr u32 gl_max_batches = 16;

struct gl_renderer_t {
    u32 command_count;
    data_t commands; // 0x80000 bytes
    data_t scratch;  // 0x80000 bytes of per-flush vertex and index staging
    gl_batch_t batches[gl_max_batches];
    u32 programs[gl_max_batches];
    f32 projection[16];
    u8 batch_count;
    u32 vertex_array;
};

struct gl_texture_t {
    u8 *pixels;
    u32 id;
    u32 width;
    u32 height;
    u32 bytes_per_pixel;
};

enum : u32 {
    gl_renderer_depth = 1,
    gl_renderer_cull = 2,
    gl_renderer_blend = 4,
};

enum : u32 {
    gl_texture_bgr = 1,
    gl_texture_linear = 2,
    gl_texture_mipmaps = 4,
};

u32 gl_program_create(const char *vertex_text, const char *fragment_text);

gl_renderer_t gl_renderer_create(i32 width, i32 height, u32 flags);
u32 gl_batch_create_rectangles(gl_renderer_t *renderer);
u32 gl_batch_create_text(gl_renderer_t *renderer, u32 characters, u32 commands, u8 format, u32 program,
                         f32 *projection, font_set_t *font_set, f32 font_size);
u32 gl_batch_create_images(gl_renderer_t *renderer);
u32 gl_batch_create_strips(gl_renderer_t *renderer, u32 texture);
gl_batch_t *gl_batch_get(gl_renderer_t *renderer, u32 index, bool must_exist);

void gl_renderer_frame_start(gl_renderer_t *renderer);
void gl_renderer_viewport(gl_renderer_t *renderer, f32 x, f32 y, f32 width, f32 height);
void gl_clear(gl_renderer_t *renderer, vec4 colour);
void gl_scissor(gl_renderer_t *renderer, bool enable, i32 x, i32 y, i32 width, i32 height);
void gl_batch_scissor(gl_batch_t *batch, bool enable, i32 x, i32 y, i32 width, i32 height);
// rect: left, bottom, right, top. uv null: (0, 0, 1, 1). corner_colours:
// bottom left, bottom right, top left, top right; null: white.
gl_command_t *gl_batch_rectangle(gl_batch_t *batch, const vec4 *rect, const vec4 *uv, const vec4 *corner_colours,
                                 vec4 colour);
gl_command_t *gl_batch_image(gl_batch_t *batch, const vec4 *rect, const vec4 *uv, const vec4 *corner_colours,
                             vec4 colour, u32 texture, u32 bytes_per_pixel);
void gl_batch_recolour(gl_batch_t *batch, gl_command_t *command, const vec4 *corner_colours, vec4 colour);
// Copies the text into the batch; glyphs 0 counts the code points. (x, y) is
// the pen at the first line's baseline.
gl_command_t *gl_batch_text(gl_batch_t *batch, const u8 *text, u64 bytes, u32 glyphs, f32 x, f32 y,
                            bool skip_bearing, u32 font, vec4 colour);
u32 gl_texture_create(const u8 *pixels, u32 width, u32 height, u32 bytes_per_pixel, u32 flags);
void gl_texture_delete(u32 *id);
void gl_renderer_flush(gl_renderer_t *renderer);
// Reads back a rectangle of the back buffer as RGBA, bottom row first; keeps
// and restores the pack state. For dumps and tests, never in the frame.
void gl_read_pixels(i32 x, i32 y, i32 width, i32 height, u8 *destination);
