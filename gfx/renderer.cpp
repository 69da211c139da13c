// renderer.cpp - batches of rectangles, text and images turned into OpenGL
// calls at the end of the frame: one buffer orphaning and one upload per
// batch, triangle strips joined by primitive restart, one draw call per
// scissor change.
#include "gfx/renderer.h"

#include "base/log.h"
#include "base/profiler.h"
#include "gfx/fonts.h"
#include "gfx/font_store.h"
#include "gfx/gl.h"

// ---- colours and formats ------------------------------------------------------------------
u32 color_pack(vec4 c) {
    u32 r = (u32)(i32)(c.x * 255.0f) & 0xFF;
    u32 g = (u32)(i32)(c.y * 255.0f) & 0xFF;
    u32 b = (u32)(i32)(c.z * 255.0f) & 0xFF;
    u32 a = (u32)(i32)(c.w * 255.0f) & 0xFF;
    return r | (g << 8) | (b << 16) | (a << 24);
}

vec4 color_unpack(u32 packed) {
    const f32 unit = 0.003921569f;
    return vec4{(f32)(packed & 0xFF) * unit, (f32)((packed >> 8) & 0xFF) * unit, (f32)((packed >> 16) & 0xFF) * unit,
                (f32)((packed >> 24) & 0xFF) * unit};
}

u8 gl_vertex_format(u32 dimensions, bool coloured, bool textured, u32 index_bytes) {
    assert_true(dimensions >= 2 && dimensions <= 4);
    u32 index_code = index_bytes == 1 ? 1 : index_bytes == 2 ? 2 : 3;
    return (u8)((dimensions - 2) | (coloured ? 4 : 0) | (textured ? 8 : 0) | (index_code << 4));
}

u32 gl_vertex_dimensions(u8 format) { return (u32)(format & 3) + 2; }
u32 gl_vertex_floats(u8 format) {
    return gl_vertex_dimensions(format) + ((format & 4) ? 1 : 0) + ((format & 8) ? 2 : 0);
}
u32 gl_vertex_stride(u8 format) { return gl_vertex_floats(format) * 4; }
u32 gl_vertex_index_bytes(u8 format) {
    u32 code = (format >> 4) & 3;
    return code == 1 ? 1 : code == 2 ? 2 : 4;
}

// ---- shaders --------------------------------------------------------------------------------
static const char *const shader_version = "#version 150\n";

// GLSL 1.50 has no "unsigned int" and no implicit int-to-uint conversion, so
// the type is uint and the masks carry the u suffix.
static const char *const shader_color_unpack =
    "vec4 color_unpack( uint color ) {\n"
    "    return vec4( float( ( color & 0x000000ffu ) >> 0u ), float( ( color & 0x0000ff00u ) >> 8u ),\n"
    "                 float( ( color & 0x00ff0000u ) >> 16u ), float( ( color & 0xff000000u ) >> 24u ) ) * ( 1.0 / 255.0 );\n"
    "}\n";

static const char *const shader_rectangles_vertex =
    "in vec3 position;\n"
    "in uint color;\n"
    "uniform mat4x4 projection;\n"
    "out vec4 out_color;\n"
    "void main() {\n"
    "    out_color = color_unpack( color );\n"
    "    gl_Position = projection * vec4( position, 1.0 );\n"
    "}\n";

static const char *const shader_rectangles_fragment =
    "in vec4 out_color;\n"
    "out vec4 fragment_out_color;\n"
    "void main() {\n"
    "    fragment_out_color = out_color;\n"
    "}\n";

static const char *const shader_textured_vertex =
    "in vec3 position;\n"
    "in vec2 in_uv;\n"
    "in uint color;\n"
    "uniform mat4x4 projection;\n"
    "out vec2 out_uv;\n"
    "out vec4 out_color;\n"
    "void main() {\n"
    "    out_uv = in_uv;\n"
    "    out_color = color_unpack( color );\n"
    "    gl_Position = projection * vec4( position, 1.0 );\n"
    "}\n";

// A glyph of the colour atlas comes with its u moved up by 2: it keeps its
// own colours and takes only the text's alpha.
static const char *const shader_text_fragment =
    "uniform sampler2D albedo;\n"
    "uniform sampler2D colour_atlas;\n"
    "in vec2 out_uv;\n"
    "in vec4 out_color;\n"
    "out vec4 fragment_out_color;\n"
    "void main() {\n"
    "    float c = texture( albedo, out_uv ).r;\n"
    "    vec4 e = texture( colour_atlas, out_uv - vec2( 2.0, 0.0 ) );\n"
    "    fragment_out_color = out_uv.x >= 1.5 ? vec4( e.rgb, e.a * out_color.a )\n"
    "                                         : vec4( out_color.r, out_color.g, out_color.b, out_color.a * c );\n"
    "}\n";

static const char *const shader_image_fragment =
    "uniform sampler2D albedo;\n"
    "uniform int bytes_per_pixel;\n"
    "in vec2 out_uv;\n"
    "in vec4 out_color;\n"
    "out vec4 fragment_out_color;\n"
    "void main() {\n"
    "    vec4 tex;\n"
    "    if ( bytes_per_pixel == 1 ) {\n"
    "        tex = vec4( texture( albedo, out_uv ).rrr, 1.0 );\n"
    "    } else {\n"
    "        tex = texture( albedo, out_uv );\n"
    "    }\n"
    "    fragment_out_color = tex * out_color;\n"
    "}\n";

static u32 gl_shader_create(GLenum type, const char *text) {
    GLuint shader = gl.glCreateShader(type);
    const GLchar *sources[3];
    GLsizei count = 0;
    sources[count++] = shader_version;
    if (type == GL_VERTEX_SHADER) sources[count++] = shader_color_unpack;
    sources[count++] = text;
    gl.glShaderSource(shader, count, sources, nullptr);
    gl.glCompileShader(shader);
    return shader;
}

static bool gl_shader_check(u32 *shader, GLenum type, const char *text) {
    GLint status = 0;
    gl.glGetShaderiv(*shader, GL_COMPILE_STATUS, &status);
    if (status) return true;
    char info[4096];
    GLsizei length = 0;
    gl.glGetShaderInfoLog(*shader, sizeof(info), &length, info);
    log_string(log_graphics, "Shader error:\n");
    log_string(log_graphics, "Handle: ");
    log_number(log_graphics, *shader);
    log_string(log_graphics, "Type: ");
    log_string(log_graphics, type == GL_VERTEX_SHADER     ? "vertex shader"
                             : type == GL_FRAGMENT_SHADER ? "fragment shader"
                                                          : "geometry shader");
    log_string(log_graphics, "Error:\n");
    log_bytes(log_graphics, info, (u64)(length > 0 ? length : 0));
    log_string(log_graphics, "Source:\n");
    log_string(log_graphics, text);
    gl.glDeleteShader(*shader);
    *shader = 0;
    return false;
}

static bool gl_program_check(u32 program) {
    GLint status = 0;
    gl.glGetProgramiv(program, GL_LINK_STATUS, &status);
    if (status) return true;
    char info[4096];
    GLsizei length = 0;
    gl.glGetProgramInfoLog(program, sizeof(info), &length, info);
    log_string(log_graphics, "Shader program error:\n");
    log_string(log_graphics, "Handle: ");
    log_number(log_graphics, program);
    log_string(log_graphics, "\nError:\n");
    log_bytes(log_graphics, info, (u64)(length > 0 ? length : 0));
    return false;
}

u32 gl_program_create(const char *vertex_text, const char *fragment_text) {
    u32 vertex = gl_shader_create(GL_VERTEX_SHADER, vertex_text);
    u32 fragment = gl_shader_create(GL_FRAGMENT_SHADER, fragment_text);
    bool ok = gl_shader_check(&vertex, GL_VERTEX_SHADER, vertex_text);
    ok = gl_shader_check(&fragment, GL_FRAGMENT_SHADER, fragment_text) && ok;
    if (!ok) {
        if (vertex) gl.glDeleteShader(vertex);
        if (fragment) gl.glDeleteShader(fragment);
        return 0;
    }
    u32 program = gl.glCreateProgram();
    gl.glAttachShader(program, vertex);
    gl.glAttachShader(program, fragment);
    gl.glBindFragDataLocation(program, 0, "fragment_out_color");
    gl.glLinkProgram(program);
    gl.glDeleteShader(vertex);
    gl.glDeleteShader(fragment);
    if (!gl_program_check(program)) {
        gl.glDeleteProgram(program);
        return 0;
    }
    return program;
}

// ---- renderer and batches -----------------------------------------------------------------------
static void gl_projection_set(f32 *m, f32 width, f32 height) {
    for (u32 i = 0; i < 16; ++i) m[i] = 0;
    m[0] = width > 0 ? 2.0f / width : 0;
    m[5] = height > 0 ? 2.0f / height : 0;
    m[10] = 1;
    m[15] = 1;
    m[12] = -1;
    m[13] = -1;
}

gl_renderer_t gl_renderer_create(i32 width, i32 height, u32 flags) {
    gl_renderer_t renderer = {};
    data_t block = data_virtual_alloc(0x100000, 0);
    assert_message(block.bytes, "No memory for the renderer.");
    renderer.commands = data_block_reserve(&block, 0x80000, 64);
    renderer.scratch = data_block_reserve(&block, 0x80000, 64);
    gl_projection_set(renderer.projection, (f32)width, (f32)height);
    gl.glGenVertexArrays(1, &renderer.vertex_array);
    gl.glBindVertexArray(renderer.vertex_array);
    if (flags & gl_renderer_blend) {
        gl.glEnable(GL_BLEND);
        gl.glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
    }
    if (flags & gl_renderer_depth) gl.glEnable(GL_DEPTH_TEST);
    if (flags & gl_renderer_cull) gl.glEnable(GL_CULL_FACE);
    gl.glViewport(0, 0, width, height);
    return renderer;
}

static u32 gl_batch_create(gl_renderer_t *renderer, u32 kind, u32 capacity, u32 command_capacity, u8 format,
                           u32 program, f32 *projection) {
    assert_message(renderer->batch_count < gl_max_batches, "At most 16 batches.");
    u32 index = renderer->batch_count++;
    gl_batch_t *batch = &renderer->batches[index];
    *batch = {};
    batch->kind = kind;
    if (format == 0) {
        format = kind == gl_batch_kind_rectangles ? gl_vertex_format(2, true, false, 2)
                 : kind == gl_batch_kind_text     ? gl_vertex_format(2, true, true, 4)
                                             : gl_vertex_format(2, true, true, 2);
    }
    batch->format = format;
    u64 stride = gl_vertex_stride(format);
    u64 index_bytes = gl_vertex_index_bytes(format);
    // Text keeps its bytes until the flush lays them out: 4 bytes a glyph.
    u64 vertex_block = kind == gl_batch_kind_text ? (u64)capacity * 4 : (u64)capacity * 4 * stride;
    u64 command_block = (u64)command_capacity * sizeof(gl_command_t);
    data_t block = data_virtual_alloc(vertex_block + command_block + 128, 0);
    assert_message(block.bytes, "No memory for a batch.");
    batch->commands = data_block_reserve(&block, command_block, 64);
    batch->vertices = data_block_reserve(&block, vertex_block, 16);
    batch->vertex_buffer_size = (u64)capacity * 4 * stride;
    batch->index_buffer_size = (u64)capacity * 5 * index_bytes;
    batch->projection = projection ? projection : renderer->projection;
    if (program == 0) {
        if (renderer->programs[index] == 0) {
            renderer->programs[index] =
                kind == gl_batch_kind_rectangles ? gl_program_create(shader_rectangles_vertex, shader_rectangles_fragment)
                : kind == gl_batch_kind_images   ? gl_program_create(shader_textured_vertex, shader_image_fragment)
                                            : gl_program_create(shader_textured_vertex, shader_text_fragment);
        }
        program = renderer->programs[index];
    } else {
        renderer->programs[index] = program;
    }
    batch->program = program;
    return index;
}

u32 gl_batch_create_rectangles(gl_renderer_t *renderer) {
    return gl_batch_create(renderer, gl_batch_kind_rectangles, 1000, 1000, 0, 0, nullptr);
}

u32 gl_batch_create_images(gl_renderer_t *renderer) {
    return gl_batch_create(renderer, gl_batch_kind_images, 1000, 1000, 0, 0, nullptr);
}

u32 gl_batch_create_strips(gl_renderer_t *renderer, u32 texture) {
    u32 program = renderer->batch_count > 1 ? renderer->programs[1] : 0;
    u32 index = gl_batch_create(renderer, gl_batch_kind_rectangles, 100, 100, gl_vertex_format(2, true, true, 2),
                                program, nullptr);
    gl_batch_t *batch = &renderer->batches[index];
    if (program == 0) {
        // Icons are coverage masks: the text program colours them.
        renderer->programs[index] = gl_program_create(shader_textured_vertex, shader_text_fragment);
        batch->program = renderer->programs[index];
    }
    batch->texture = texture;
    return index;
}

static font_set_t gl_default_font_set;
static u32 gl_default_code_points[code_point_list_start_count];

u32 gl_batch_create_text(gl_renderer_t *renderer, u32 characters, u32 commands, u8 format, u32 program,
                         f32 *projection, font_set_t *font_set, f32 font_size) {
    // The layout at the flush writes position, colour and coordinates.
    assert_true(format == 0 || format == gl_vertex_format(2, true, true, 4));
    u32 index = gl_batch_create(renderer, gl_batch_kind_text, characters, commands, format, program, projection);
    gl_batch_t *batch = &renderer->batches[index];
    if (!font_set) {
        // A batch without a set gets the sans face alone, with the start list.
        font_set = &gl_default_font_set;
        if (font_set->font_count == 0) {
            data_t memory = data_virtual_alloc(0x500000, 0);
            assert_message(memory.bytes, "No memory for the default font.");
            data_t file = font_file_load_sans();
            code_point_list_t list = {};
            code_point_list_init(&list, gl_default_code_points, code_point_list_start_count);
            font_set->memory = data_block_reserve_rest(&memory, 16);
            if (file.bytes) {
                font_set_add(font_set, &file, font_size > 0 ? font_size : 14.0f, gl_default_code_points, list.count,
                             false);
                font_set_build(font_set);
            }
        }
    }
    batch->font_set = font_set;
    return index;
}

gl_batch_t *gl_batch_get(gl_renderer_t *renderer, u32 index, bool must_exist) {
    assert_true(index < gl_max_batches);
    if (index >= renderer->batch_count) {
        assert_message(!must_exist, "The batch doesn't exist.");
        return nullptr;
    }
    return &renderer->batches[index];
}

void gl_renderer_frame_start(gl_renderer_t *renderer) {
    renderer->command_count = 0;
    renderer->commands.used = 0;
    for (u32 i = 0; i < renderer->batch_count; ++i) {
        gl_batch_t *batch = &renderer->batches[i];
        batch->command_count = 0;
        batch->commands.used = 0;
        batch->vertices.used = 0;
        batch->next_vertex = 0;
        batch->vertex_buffer_used = 0;
        batch->index_buffer_used = 0;
    }
}

static gl_command_t *gl_renderer_command(gl_renderer_t *renderer, u32 kind) {
    gl_command_t *command = (gl_command_t *)data_push(&renderer->commands, sizeof(gl_command_t), 8);
    assert_message(command, "The renderer's command list is full.");
    memory_zero(command, sizeof(*command));
    command->kind = kind;
    ++renderer->command_count;
    return command;
}

static gl_command_t *gl_batch_command(gl_batch_t *batch, u32 kind) {
    gl_command_t *command = (gl_command_t *)data_push(&batch->commands, sizeof(gl_command_t), 8);
    assert_message(command, "A batch's command block is full.");
    memory_zero(command, sizeof(*command));
    command->kind = kind;
    ++batch->command_count;
    return command;
}

void gl_renderer_viewport(gl_renderer_t *renderer, f32 x, f32 y, f32 width, f32 height) {
    gl_command_t *command = gl_renderer_command(renderer, gl_command_viewport);
    command->viewport.x = x;
    command->viewport.y = y;
    command->viewport.width = width;
    command->viewport.height = height;
    gl_projection_set(renderer->projection, width, height);
}

void gl_clear(gl_renderer_t *renderer, vec4 colour) {
    gl_command_t *command = gl_renderer_command(renderer, gl_command_clear);
    command->clear.colour = color_pack(colour);
}

static void gl_scissor_fill(gl_command_t *command, bool enable, i32 x, i32 y, i32 width, i32 height) {
    command->scissor.enable = enable ? 1 : 0;
    command->scissor.x = x < 0 ? 0 : x;
    command->scissor.y = y < 0 ? 0 : y;
    command->scissor.width = width < 0 ? 0 : width;
    command->scissor.height = height < 0 ? 0 : height;
}

void gl_scissor(gl_renderer_t *renderer, bool enable, i32 x, i32 y, i32 width, i32 height) {
    gl_scissor_fill(gl_renderer_command(renderer, gl_command_scissor), enable, x, y, width, height);
}

void gl_batch_scissor(gl_batch_t *batch, bool enable, i32 x, i32 y, i32 width, i32 height) {
    gl_scissor_fill(gl_batch_command(batch, gl_command_scissor), enable, x, y, width, height);
}

static vec4 colour_times(vec4 a, vec4 b) { return vec4{a.x * b.x, a.y * b.y, a.z * b.z, a.w * b.w}; }

// Four vertices in strip order: top left, bottom left, top right, bottom right.
static void gl_strip_colours(gl_batch_t *batch, f32 *vertices, const vec4 *corner_colours, vec4 colour) {
    if (!(batch->format & 4)) return;
    static const u32 corner_of_vertex[4] = {2, 0, 3, 1};
    u32 floats = gl_vertex_floats(batch->format);
    u32 at = gl_vertex_dimensions(batch->format);
    for (u32 v = 0; v < 4; ++v) {
        vec4 c = corner_colours ? colour_times(colour, corner_colours[corner_of_vertex[v]]) : colour;
        u32 packed = color_pack(c);
        memory_copy(&vertices[v * floats + at], &packed, 4);
    }
}

static gl_command_t *gl_batch_quad(gl_batch_t *batch, u32 kind, const vec4 *rect, const vec4 *uv,
                                   const vec4 *corner_colours, vec4 colour) {
    assert_true(rect);
    u32 floats = gl_vertex_floats(batch->format);
    f32 *vertices = (f32 *)data_push(&batch->vertices, (u64)floats * 4 * 4, 4);
    assert_message(vertices, "A batch's vertex block is full.");
    gl_command_t *command = gl_batch_command(batch, kind);
    command->strip.count = 2;
    command->strip.vertices = vertices;
    u32 dimensions = gl_vertex_dimensions(batch->format);
    const f32 xs[4] = {rect->x, rect->x, rect->z, rect->z};
    const f32 ys[4] = {rect->w, rect->y, rect->w, rect->y};
    vec4 box = uv ? *uv : vec4{0, 0, 1, 1};
    const f32 us[4] = {box.x, box.x, box.z, box.z};
    const f32 vs[4] = {box.w, box.y, box.w, box.y};
    for (u32 v = 0; v < 4; ++v) {
        f32 *vertex = vertices + v * floats;
        vertex[0] = xs[v];
        vertex[1] = ys[v];
        for (u32 d = 2; d < dimensions; ++d) vertex[d] = 0;
        u32 at = dimensions + ((batch->format & 4) ? 1 : 0);
        if (batch->format & 8) {
            vertex[at] = us[v];
            vertex[at + 1] = vs[v];
        }
    }
    gl_strip_colours(batch, vertices, corner_colours, colour);
    return command;
}

gl_command_t *gl_batch_rectangle(gl_batch_t *batch, const vec4 *rect, const vec4 *uv, const vec4 *corner_colours,
                                 vec4 colour) {
    return gl_batch_quad(batch, gl_command_strip, rect, uv, corner_colours, colour);
}

gl_command_t *gl_batch_image(gl_batch_t *batch, const vec4 *rect, const vec4 *uv, const vec4 *corner_colours,
                             vec4 colour, u32 texture, u32 bytes_per_pixel) {
    gl_command_t *command = gl_batch_quad(batch, gl_command_image, rect, uv, corner_colours, colour);
    command->strip.texture = texture;
    command->strip.bytes_per_pixel = bytes_per_pixel;
    return command;
}

void gl_batch_recolour(gl_batch_t *batch, gl_command_t *command, const vec4 *corner_colours, vec4 colour) {
    gl_strip_colours(batch, command->strip.vertices, corner_colours, colour);
}

gl_command_t *gl_batch_text(gl_batch_t *batch, const u8 *text, u64 bytes, u32 glyphs, f32 x, f32 y,
                            bool skip_bearing, u32 font, vec4 colour) {
    u8 *copy = bytes ? (u8 *)data_push_copy(&batch->vertices, text, bytes, 1) : nullptr;
    assert_message(copy || bytes == 0, "A text batch's text block is full.");
    if (glyphs == 0 && bytes) {
        // Lead bytes: one per code point of valid text, never fewer.
        for (u64 i = 0; i < bytes; ++i) glyphs += (text[i] & 0xC0) != 0x80;
    }
    gl_command_t *command = gl_batch_command(batch, gl_command_text);
    command->text.position = vec3{x, y, 0};
    command->text.font = font;
    command->text.text = data_t{bytes, bytes, copy};
    command->text.colour = color_pack(colour);
    command->text.glyphs = glyphs;
    command->text.glyphs_written = 0;
    command->text.skip_bearing = skip_bearing ? 1 : 0;
    return command;
}

// ---- textures --------------------------------------------------------------------------------------
u32 gl_texture_create(const u8 *pixels, u32 width, u32 height, u32 bytes_per_pixel, u32 flags) {
    assert_true(bytes_per_pixel >= 1 && bytes_per_pixel <= 4);
    static const GLenum formats[5] = {0, GL_RED, GL_RG, GL_RGB, GL_RGBA};
    static const GLenum internal_formats[5] = {0, GL_R8, GL_RG8, GL_RGB8, GL_RGBA8};
    GLenum format = formats[bytes_per_pixel];
    if (flags & gl_texture_bgr) {
        if (bytes_per_pixel == 3) format = GL_BGR;
        if (bytes_per_pixel == 4) format = GL_BGRA;
    }
    GLuint id = 0;
    gl.glGenTextures(1, &id);
    gl.glBindTexture(GL_TEXTURE_2D, id);
    bool linear = (flags & gl_texture_linear) != 0;
    bool mipmaps = linear && (flags & gl_texture_mipmaps);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER,
                       mipmaps ? GL_LINEAR_MIPMAP_LINEAR : linear ? GL_LINEAR : GL_NEAREST);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, linear ? GL_LINEAR : GL_NEAREST);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_BASE_LEVEL, 0);
    if (!mipmaps) gl.glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
    bool unaligned = ((u64)width * bytes_per_pixel) % 4 != 0;
    if (unaligned) gl.glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    gl.glTexImage2D(GL_TEXTURE_2D, 0, (GLint)internal_formats[bytes_per_pixel], (GLsizei)width, (GLsizei)height, 0,
                    format, GL_UNSIGNED_BYTE, pixels);
    if (unaligned) gl.glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    if (mipmaps) gl.glGenerateMipmap(GL_TEXTURE_2D);
    assert_message(gl.glGetError() == GL_NO_ERROR, "A texture upload failed.");
    return id;
}

void gl_texture_delete(u32 *id) {
    if (*id) gl.glDeleteTextures(1, id);
    *id = 0;
}

// ---- flushing --------------------------------------------------------------------------------------
constexpr u32 gl_text_line_items = 4096; // a longer line is drawn in pieces, each in its own order
constexpr u32 gl_text_run_glyphs = 4 * font_run_max_code_points;
static void gl_apply_scissor(const gl_command_t *command) {
    if (command->scissor.enable) {
        gl.glEnable(GL_SCISSOR_TEST);
        gl.glScissor(command->scissor.x, command->scissor.y, command->scissor.width, command->scissor.height);
    } else {
        gl.glDisable(GL_SCISSOR_TEST);
    }
}

// One step of a drawn line: a character or a shaped run (font_run_length
// cuts runs as the layout does), with its direction class.
struct gl_text_item_t {
    u32 offset, size;
    u32 code_point;
    u8 level;
};

// Lays out one text command into four vertices and five indices a glyph.
// Returns the glyphs written. With null vertices it only walks the glyphs so
// that each gets its place in the atlas.
static u32 gl_text_vertices(gl_batch_t *batch, gl_command_t *command, f32 *vertices, u32 *indices) {
    font_set_t *set = batch->font_set;
    if (!set || command->text.font >= set->font_count || !set->fonts[command->text.font].glyphs) return 0;
    const font_t *font = &set->fonts[command->text.font];
    const bool walk_only = !vertices;
    const f32 atlas_width = (f32)set->atlas_width, atlas_height = (f32)set->atlas_height;
    const u8 *text = command->text.text.bytes;
    const u64 bytes = command->text.text.used;
    const f32 x = command->text.position.x;
    f32 pen_x = x, pen_y = command->text.position.y;
    u32 written = 0;
    u32 vertex = batch->next_vertex;
    const f32 line_step = (f32)(font->descent - font->line_gap - font->ascent) * font->scale;

    auto quad = [&](const glyph_t *glyph, f32 gx, f32 gy) {
        if (walk_only || written >= command->text.glyphs) return;
        const f32 x0 = gx + glyph->left, x1 = gx + glyph->right;
        const f32 bottom = gy + glyph->bottom, top = gy + glyph->top;
        f32 u0 = glyph->x0 / atlas_width, u1 = glyph->x1 / atlas_width;
        f32 v0 = glyph->y0 / atlas_height, v1 = glyph->y1 / atlas_height;
        if (glyph->colour) {
            const f32 side = (f32)font_colour_atlas_size;
            u0 = 2.0f + glyph->x0 / side, u1 = 2.0f + glyph->x1 / side;
            v0 = glyph->y0 / side, v1 = glyph->y1 / side;
        }
        const f32 corners[4][4] = {{x0, bottom, u0, v0}, {x1, bottom, u1, v0}, {x0, top, u0, v1}, {x1, top, u1, v1}};
        f32 *out = vertices + (u64)written * 4 * 5;
        for (u32 v = 0; v < 4; ++v) {
            out[v * 5 + 0] = corners[v][0];
            out[v * 5 + 1] = corners[v][1];
            memory_copy(&out[v * 5 + 2], &command->text.colour, 4);
            out[v * 5 + 3] = corners[v][2];
            out[v * 5 + 4] = corners[v][3];
        }
        u32 *index = indices + (u64)written * 5;
        index[0] = vertex;
        index[1] = vertex + 1;
        index[2] = vertex + 2;
        index[3] = vertex + 3;
        index[4] = 0xFFFFFFFF;
        vertex += 4;
        ++written;
    };

    // The items of one line, in logical order, and the visual order.
    static gl_text_item_t items[gl_text_line_items];
    static u32 code_points[gl_text_line_items];
    static u8 levels[gl_text_line_items];
    static u32 order[gl_text_line_items];
    u64 at = 0;
    bool first = true;
    while (at < bytes) {
        if (text[at] == '\r' || text[at] == '\n') {
            if (text[at] == '\r' && at + 1 < bytes && text[at + 1] == '\n') ++at;
            ++at;
            pen_x = x;
            pen_y += line_step;
            first = true;
            continue;
        }
        // Cut the line into items up to its end, an invalid sequence (the
        // rest of the text isn't drawn) or the item table's end.
        u32 count = 0;
        bool right_to_left = false, stop = false;
        while (at < bytes && count < gl_text_line_items && text[at] != '\r' && text[at] != '\n') {
            u32 code_point = 0, error = 0;
            u8 size = 0;
            utf8_decode(text + at, text + bytes, &code_point, &size, &error);
            if (error) {
                stop = true;
                break;
            }
            u64 run = font_may_start_run(code_point) ? font_run_length(font, text + at, bytes - at) : 0;
            if (run < size) run = size;
            items[count] = gl_text_item_t{(u32)at, (u32)run, code_point, 0};
            code_points[count] = code_point;
            right_to_left = right_to_left || font_is_right_to_left(code_point);
            ++count;
            at += run;
        }
        for (u32 k = 0; k < count; ++k) order[k] = k;
        if (right_to_left) {
            font_bidi_levels(code_points, count, levels);
            for (u32 k = 0; k < count; ++k) items[k].level = levels[k];
            font_bidi_reorder(levels, count, order);
        }
        for (u32 k = 0; k < count; ++k) {
            const gl_text_item_t &item = items[order[k]];
            const u8 *start = text + item.offset;
            if (item.size > 1 && font_run_length(font, start, item.size) == item.size) {
                font_run_glyph_t run[gl_text_run_glyphs];
                u32 n = font_run_glyphs(font, start, item.size, run, gl_text_run_glyphs);
                for (u32 g = 0; g < n; ++g) quad(run[g].glyph, pen_x + run[g].x, pen_y + run[g].y);
                pen_x += font_run_width(font, start, item.size);
                first = false;
                continue;
            }
            const glyph_t *glyph = font_glyph_drawn(font, item.code_point);
            f32 advance = glyph->advance;
            f32 shift = 0;
            if (first && command->text.skip_bearing) {
                // The bearing the layout took off: a glyph on demand has none.
                shift = font->monospaced ? 0 : font_glyph(font, item.code_point)->left;
                advance -= shift;
            }
            first = false;
            // Kerning in logical order only; a reordered line has none.
            if (!right_to_left && glyph->kerning_count && order[k] + 1 < count)
                advance += (f32)font_kerning(font, glyph, items[order[k] + 1].code_point) * font->scale;
            quad(glyph, pen_x - shift, pen_y);
            pen_x += advance;
        }
        if (stop) break;
    }
    if (walk_only) return 0;
    batch->next_vertex = vertex;
    command->text.glyphs_written = written;
    return written;
}

// The colour atlas's changed rows go up to its texture, made on first use.
static void gl_text_colour_upload(font_set_t *set) {
    if (!set->colour_atlas.bytes) return;
    const u32 side = font_colour_atlas_size;
    if (set->colour_texture == 0) {
        set->colour_texture = gl_texture_create(set->colour_atlas.bytes, side, side, 4, gl_texture_linear);
    } else if (set->colour_dirty_high > set->colour_dirty_low) {
        gl.glBindTexture(GL_TEXTURE_2D, set->colour_texture);
        gl.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, (GLint)set->colour_dirty_low, (GLsizei)side,
                           (GLsizei)(set->colour_dirty_high - set->colour_dirty_low), GL_RGBA, GL_UNSIGNED_BYTE,
                           set->colour_atlas.bytes + (u64)set->colour_dirty_low * side * 4);
    }
    set->colour_dirty_low = side;
    set->colour_dirty_high = 0;
}

// Before any batch draws: every glyph of the frame's text gets its place in
// the atlas of its set. When the atlas fills up, the glyphs on demand are
// forgotten and the frame's own placed again, so only what was not drawn
// in this frame goes. Then the changed rows go up to the set's texture.
static void gl_text_prepare(gl_renderer_t *renderer) {
    for (u32 round = 0; round < 2; ++round) {
        bool overflowed = false;
        for (u32 i = 0; i < renderer->batch_count; ++i) {
            gl_batch_t *batch = &renderer->batches[i];
            if (batch->kind != gl_batch_kind_text || !batch->font_set) continue;
            gl_command_t *commands = (gl_command_t *)batch->commands.bytes;
            for (u32 c = 0; c < batch->command_count; ++c)
                if (commands[c].kind == gl_command_text) gl_text_vertices(batch, &commands[c], nullptr, nullptr);
            overflowed = overflowed || font_set_atlas_overflowed(batch->font_set);
        }
        if (!overflowed) break;
        for (u32 i = 0; i < renderer->batch_count; ++i) {
            gl_batch_t *batch = &renderer->batches[i];
            if (batch->kind == gl_batch_kind_text && batch->font_set && font_set_atlas_overflowed(batch->font_set))
                font_set_atlas_evict(batch->font_set);
        }
    }
    for (u32 i = 0; i < renderer->batch_count; ++i) {
        gl_batch_t *batch = &renderer->batches[i];
        font_set_t *set = batch->font_set;
        if (batch->kind != gl_batch_kind_text || !set || !set->atlas.bytes) continue;
        if (set->texture == 0) {
            set->texture = gl_texture_create(set->atlas.bytes, set->atlas_width, set->atlas_height, 1, gl_texture_linear);
        } else if (set->dirty_high > set->dirty_low) {
            gl.glBindTexture(GL_TEXTURE_2D, set->texture);
            gl.glTexSubImage2D(GL_TEXTURE_2D, 0, 0, (GLint)set->dirty_low, set->atlas_width,
                               (GLsizei)(set->dirty_high - set->dirty_low), GL_RED, GL_UNSIGNED_BYTE,
                               set->atlas.bytes + (u64)set->dirty_low * set->atlas_width);
        }
        set->dirty_low = set->atlas_height;
        set->dirty_high = 0;
        gl_text_colour_upload(set);
        font_store_frame_end(set);
    }
}

static void gl_batch_flush(gl_renderer_t *renderer, gl_batch_t *batch) {
    if (batch->command_count == 0) return;
    const u8 format = batch->format;
    const bool textured = (format & 8) != 0;
    gl.glUseProgram(batch->program);
    gl.glUniformMatrix4fv(gl.glGetUniformLocation(batch->program, "projection"), 1, GL_FALSE, batch->projection);
    GLint bytes_per_pixel_location = gl.glGetUniformLocation(batch->program, "bytes_per_pixel");
    if (textured && bytes_per_pixel_location >= 0) gl.glUniform1i(bytes_per_pixel_location, 4);

    if (!batch->vertex_buffer) {
        gl.glGenBuffers(1, &batch->vertex_buffer);
        gl.glGenBuffers(1, &batch->index_buffer);
    }
    gl.glBindBuffer(GL_ARRAY_BUFFER, batch->vertex_buffer);
    gl.glBufferData(GL_ARRAY_BUFFER, (GLsizeiptr)batch->vertex_buffer_size, nullptr, GL_STREAM_DRAW);
    gl.glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, batch->index_buffer);
    gl.glBufferData(GL_ELEMENT_ARRAY_BUFFER, (GLsizeiptr)batch->index_buffer_size, nullptr, GL_STREAM_DRAW);

    const u32 index_bytes = gl_vertex_index_bytes(format);
    const GLenum index_type = index_bytes == 1 ? GL_UNSIGNED_BYTE : index_bytes == 2 ? GL_UNSIGNED_SHORT : GL_UNSIGNED_INT;
    const u32 restart = index_bytes == 1 ? 0xFF : index_bytes == 2 ? 0xFFFF : 0xFFFFFFFF;

    for (u32 i = 0; i < 4; ++i) gl.glDisableVertexAttribArray(i);
    const GLsizei stride = (GLsizei)gl_vertex_stride(format);
    const u32 dimensions = gl_vertex_dimensions(format);
    GLint position = gl.glGetAttribLocation(batch->program, "position");
    GLint color = gl.glGetAttribLocation(batch->program, "color");
    GLint uv = gl.glGetAttribLocation(batch->program, "in_uv");
    u64 offset = 0;
    if (position >= 0) {
        gl.glEnableVertexAttribArray((GLuint)position);
        gl.glVertexAttribPointer((GLuint)position, (GLint)dimensions, GL_FLOAT, GL_FALSE, stride, (void *)offset);
    }
    offset += dimensions * 4;
    if (format & 4) {
        if (color >= 0) {
            gl.glEnableVertexAttribArray((GLuint)color);
            gl.glVertexAttribIPointer((GLuint)color, 1, GL_UNSIGNED_INT, stride, (void *)offset);
        }
        offset += 4;
    }
    if (textured && uv >= 0) {
        gl.glEnableVertexAttribArray((GLuint)uv);
        gl.glVertexAttribPointer((GLuint)uv, 2, GL_FLOAT, GL_FALSE, stride, (void *)offset);
    }

    // Upload.
    gl_command_t *commands = (gl_command_t *)batch->commands.bytes;
    data_t *scratch = &renderer->scratch;
    scratch->used = 0;
    if (batch->kind == gl_batch_kind_text) {
        for (u32 c = 0; c < batch->command_count; ++c) {
            gl_command_t *command = &commands[c];
            if (command->kind != gl_command_text || command->text.glyphs == 0) continue;
            u64 glyphs = command->text.glyphs;
            f32 *vertices = (f32 *)data_push(scratch, glyphs * 4 * 5 * 4, 8);
            u32 *indices = (u32 *)data_push(scratch, glyphs * 5 * 4, 8);
            assert_message(vertices && indices, "A text command is larger than the renderer's scratch.");
            u32 written = gl_text_vertices(batch, command, vertices, indices);
            u64 vertex_bytes = (u64)written * 4 * 5 * 4, index_bytes_used = (u64)written * 5 * 4;
            assert_message(batch->vertex_buffer_used + vertex_bytes <= batch->vertex_buffer_size &&
                               batch->index_buffer_used + index_bytes_used <= batch->index_buffer_size,
                           "A text batch's buffers are full.");
            if (written) {
                gl.glBufferSubData(GL_ARRAY_BUFFER, (GLintptr)batch->vertex_buffer_used, (GLsizeiptr)vertex_bytes,
                                   vertices);
                gl.glBufferSubData(GL_ELEMENT_ARRAY_BUFFER, (GLintptr)batch->index_buffer_used,
                                   (GLsizeiptr)index_bytes_used, indices);
            }
            batch->vertex_buffer_used += vertex_bytes;
            batch->index_buffer_used += index_bytes_used;
            scratch->used = 0;
        }
    } else {
        u8 *first = data_end(scratch);
        for (u32 c = 0; c < batch->command_count; ++c) {
            gl_command_t *command = &commands[c];
            if (command->kind != gl_command_strip && command->kind != gl_command_image) continue;
            u32 count = command->strip.count + 2;
            for (u32 k = 0; k <= count; ++k) {
                u32 value = k < count ? batch->next_vertex + k : restart;
                void *slot = data_push(scratch, index_bytes, index_bytes);
                assert_message(slot, "The renderer's scratch is full.");
                if (index_bytes == 1) *(u8 *)slot = (u8)value;
                else if (index_bytes == 2) *(u16 *)slot = (u16)value;
                else *(u32 *)slot = value;
            }
            batch->next_vertex += count;
        }
        u64 index_size = (u64)(data_end(scratch) - first);
        assert_message(batch->vertices.used <= batch->vertex_buffer_size && index_size <= batch->index_buffer_size,
                       "A batch's buffers are full.");
        gl.glBufferSubData(GL_ARRAY_BUFFER, 0, (GLsizeiptr)batch->vertices.used, batch->vertices.bytes);
        gl.glBufferSubData(GL_ELEMENT_ARRAY_BUFFER, 0, (GLsizeiptr)index_size, first);
        batch->vertex_buffer_used = batch->vertices.used;
        batch->index_buffer_used = index_size;
        scratch->used = 0;
    }

    if (textured) {
        GLint colour_location = gl.glGetUniformLocation(batch->program, "colour_atlas");
        if (batch->kind == gl_batch_kind_text && batch->font_set && colour_location >= 0) {
            gl.glActiveTexture(GL_TEXTURE1);
            gl.glBindTexture(GL_TEXTURE_2D, batch->font_set->colour_texture);
            gl.glUniform1i(colour_location, 1);
            gl.glUniform1i(gl.glGetUniformLocation(batch->program, "albedo"), 0);
        }
        gl.glActiveTexture(GL_TEXTURE0);
        if (batch->kind == gl_batch_kind_text && batch->font_set) batch->texture = batch->font_set->texture;
        gl.glBindTexture(GL_TEXTURE_2D, batch->texture);
    }
    gl.glEnable(GL_PRIMITIVE_RESTART);
    gl.glPrimitiveRestartIndex(restart);

    // Draw: one call per run between scissor changes; images one by one.
    u64 first_index = 0, sum = 0;
    auto draw = [&](u64 count) {
        if (count == 0) return;
        gl.glDrawElements(GL_TRIANGLE_STRIP, (GLsizei)count, index_type, (void *)(first_index * index_bytes));
        first_index += count;
    };
    for (u32 c = 0; c < batch->command_count; ++c) {
        gl_command_t *command = &commands[c];
        switch (command->kind) {
        case gl_command_strip: sum += command->strip.count + 3; break;
        case gl_command_text: sum += (u64)command->text.glyphs_written * 5; break;
        case gl_command_image:
            draw(sum);
            sum = 0;
            gl.glBindTexture(GL_TEXTURE_2D, command->strip.texture);
            if (bytes_per_pixel_location >= 0)
                gl.glUniform1i(bytes_per_pixel_location, (GLint)command->strip.bytes_per_pixel);
            draw(command->strip.count + 3);
            break;
        case gl_command_scissor:
            draw(sum);
            sum = 0;
            gl_apply_scissor(command);
            break;
        default: break; // boxes and line strips are not made by the program
        }
    }
    draw(sum);

    gl.glDisable(GL_PRIMITIVE_RESTART);
    batch->vertex_buffer_used = 0;
    batch->index_buffer_used = 0;
}

void gl_renderer_flush(gl_renderer_t *renderer) {
    gl_text_prepare(renderer);
    for (u32 i = 0; i < renderer->batch_count; ++i) {
        gl_command_t *command = gl_renderer_command(renderer, gl_command_draw_batch);
        command->draw.batch = &renderer->batches[i];
    }
    gl.glBindVertexArray(renderer->vertex_array);
    gl_command_t *commands = (gl_command_t *)renderer->commands.bytes;
    for (u32 c = 0; c < renderer->command_count; ++c) {
        gl_command_t *command = &commands[c];
        switch (command->kind) {
        case gl_command_clear: {
            vec4 colour = color_unpack(command->clear.colour);
            gl.glClearColor(colour.x, colour.y, colour.z, colour.w);
            gl.glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
            break;
        }
        case gl_command_viewport:
            gl.glViewport((GLint)command->viewport.x, (GLint)command->viewport.y, (GLsizei)command->viewport.width,
                          (GLsizei)command->viewport.height);
            break;
        case gl_command_draw_batch: gl_batch_flush(renderer, command->draw.batch); break;
        case gl_command_scissor: gl_apply_scissor(command); break;
        default: break;
        }
    }
}

void gl_read_pixels(i32 x, i32 y, i32 width, i32 height, u8 *destination) {
    static const GLenum names[8] = {GL_PACK_SWAP_BYTES, GL_PACK_LSB_FIRST,  GL_PACK_ROW_LENGTH, GL_PACK_SKIP_ROWS,
                                    GL_PACK_SKIP_PIXELS, GL_PACK_ALIGNMENT, GL_PACK_SKIP_IMAGES, GL_PACK_IMAGE_HEIGHT};
    GLint saved[8];
    for (u32 i = 0; i < 8; ++i) gl.glGetIntegerv(names[i], &saved[i]);
    GLint pack_buffer = 0;
    gl.glGetIntegerv(GL_PIXEL_PACK_BUFFER_BINDING, &pack_buffer);
    gl.glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    for (u32 i = 0; i < 8; ++i) gl.glPixelStorei(names[i], names[i] == GL_PACK_ALIGNMENT ? 1 : 0);
    gl.glReadPixels(x, y, width, height, GL_RGBA, GL_UNSIGNED_BYTE, destination);
    for (u32 i = 0; i < 8; ++i) gl.glPixelStorei(names[i], saved[i]);
    gl.glBindBuffer(GL_PIXEL_PACK_BUFFER, (GLuint)pack_buffer);
}
