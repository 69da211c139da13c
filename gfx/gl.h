// gl.h - the OpenGL 3.3 core entry points the program uses, in its own
// table, loaded through the window layer; the constants it needs; the debug
// callback and the context report.
#pragma once

#include "base/base_core.h"

typedef unsigned int GLenum;
typedef unsigned int GLuint;
typedef int GLint;
typedef int GLsizei;
typedef unsigned int GLbitfield;
typedef unsigned char GLboolean;
typedef unsigned char GLubyte;
typedef char GLchar;
typedef float GLfloat;
typedef double GLdouble;
typedef ptrdiff_t GLintptr;
typedef ptrdiff_t GLsizeiptr;
typedef void(GL_DEBUG_PROC)(GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei length,
                            const GLchar *message, const void *user);

enum : GLenum {
    GL_NO_ERROR = 0,
    GL_FALSE = 0,
    GL_TRUE = 1,
    GL_LINE_STRIP = 0x0003,
    GL_TRIANGLE_STRIP = 0x0005,
    GL_DEPTH_BUFFER_BIT = 0x00000100,
    GL_COLOR_BUFFER_BIT = 0x00004000,
    GL_SRC_ALPHA = 0x0302,
    GL_ONE_MINUS_SRC_ALPHA = 0x0303,
    GL_CULL_FACE = 0x0B44,
    GL_DEPTH_TEST = 0x0B71,
    GL_BLEND = 0x0BE2,
    GL_SCISSOR_TEST = 0x0C11,
    GL_UNPACK_ALIGNMENT = 0x0CF5,
    GL_PACK_SWAP_BYTES = 0x0D00,
    GL_PACK_LSB_FIRST = 0x0D01,
    GL_PACK_ROW_LENGTH = 0x0D02,
    GL_PACK_SKIP_ROWS = 0x0D03,
    GL_PACK_SKIP_PIXELS = 0x0D04,
    GL_PACK_ALIGNMENT = 0x0D05,
    GL_PACK_SKIP_IMAGES = 0x806B,
    GL_PACK_IMAGE_HEIGHT = 0x806C,
    GL_TEXTURE_2D = 0x0DE1,
    GL_UNSIGNED_BYTE = 0x1401,
    GL_UNSIGNED_SHORT = 0x1403,
    GL_UNSIGNED_INT = 0x1405,
    GL_FLOAT = 0x1406,
    GL_RED = 0x1903,
    GL_RGB = 0x1907,
    GL_RGBA = 0x1908,
    GL_RG = 0x8227,
    GL_R8 = 0x8229,
    GL_RG8 = 0x822B,
    GL_RGB8 = 0x8051,
    GL_RGBA8 = 0x8058,
    GL_BGR = 0x80E0,
    GL_BGRA = 0x80E1,
    GL_VENDOR = 0x1F00,
    GL_RENDERER = 0x1F01,
    GL_VERSION = 0x1F02,
    GL_EXTENSIONS = 0x1F03,
    GL_NEAREST = 0x2600,
    GL_LINEAR = 0x2601,
    GL_LINEAR_MIPMAP_LINEAR = 0x2703,
    GL_TEXTURE_MAG_FILTER = 0x2800,
    GL_TEXTURE_MIN_FILTER = 0x2801,
    GL_TEXTURE_WRAP_S = 0x2802,
    GL_TEXTURE_WRAP_T = 0x2803,
    GL_TEXTURE_BASE_LEVEL = 0x813C,
    GL_TEXTURE_MAX_LEVEL = 0x813D,
    GL_CLAMP_TO_EDGE = 0x812F,
    GL_TEXTURE0 = 0x84C0,
    GL_TEXTURE1 = 0x84C1,
    GL_ARRAY_BUFFER = 0x8892,
    GL_ELEMENT_ARRAY_BUFFER = 0x8893,
    GL_PIXEL_PACK_BUFFER = 0x88EB,
    GL_PIXEL_PACK_BUFFER_BINDING = 0x88ED,
    GL_STREAM_DRAW = 0x88E0,
    GL_FRAGMENT_SHADER = 0x8B30,
    GL_VERTEX_SHADER = 0x8B31,
    GL_GEOMETRY_SHADER = 0x8DD9,
    GL_COMPILE_STATUS = 0x8B81,
    GL_LINK_STATUS = 0x8B82,
    GL_INFO_LOG_LENGTH = 0x8B84,
    GL_PRIMITIVE_RESTART = 0x8F9D,
    GL_MAJOR_VERSION = 0x821B,
    GL_MINOR_VERSION = 0x821C,
    GL_NUM_EXTENSIONS = 0x821D,
    GL_CONTEXT_FLAGS = 0x821E,
    GL_CONTEXT_PROFILE_MASK = 0x9126,
    GL_CONTEXT_CORE_PROFILE_BIT = 0x00000001,
    GL_CONTEXT_COMPATIBILITY_PROFILE_BIT = 0x00000002,
    GL_CONTEXT_FLAG_FORWARD_COMPATIBLE_BIT = 0x00000001,
    GL_CONTEXT_FLAG_DEBUG_BIT = 0x00000002,
    GL_DEBUG_OUTPUT_SYNCHRONOUS = 0x8242,
    GL_DEBUG_OUTPUT = 0x92E0,
    GL_DEBUG_SEVERITY_HIGH = 0x9146,
    GL_DEBUG_SEVERITY_MEDIUM = 0x9147,
    GL_DEBUG_SEVERITY_LOW = 0x9148,
    GL_DEBUG_SEVERITY_NOTIFICATION = 0x826B,
};

// name, return type, parameters
#define GL_FUNCTIONS(X)                                                                                        \
    X(glGetString, const GLubyte *, (GLenum name))                                                             \
    X(glGetStringi, const GLubyte *, (GLenum name, GLuint index))                                              \
    X(glGetIntegerv, void, (GLenum name, GLint * data))                                                        \
    X(glGetError, GLenum, (void))                                                                              \
    X(glViewport, void, (GLint x, GLint y, GLsizei width, GLsizei height))                                     \
    X(glScissor, void, (GLint x, GLint y, GLsizei width, GLsizei height))                                      \
    X(glClearColor, void, (GLfloat r, GLfloat g, GLfloat b, GLfloat a))                                        \
    X(glClear, void, (GLbitfield mask))                                                                        \
    X(glEnable, void, (GLenum cap))                                                                            \
    X(glDisable, void, (GLenum cap))                                                                           \
    X(glBlendFunc, void, (GLenum source, GLenum destination))                                                  \
    X(glFinish, void, (void))                                                                                  \
    X(glPixelStorei, void, (GLenum name, GLint value))                                                         \
    X(glReadPixels, void, (GLint x, GLint y, GLsizei w, GLsizei h, GLenum format, GLenum type, void *pixels))  \
    X(glGenTextures, void, (GLsizei n, GLuint * textures))                                                     \
    X(glDeleteTextures, void, (GLsizei n, const GLuint *textures))                                             \
    X(glBindTexture, void, (GLenum target, GLuint texture))                                                    \
    X(glTexParameteri, void, (GLenum target, GLenum name, GLint value))                                        \
    X(glTexImage2D, void,                                                                                      \
      (GLenum target, GLint level, GLint internal_format, GLsizei w, GLsizei h, GLint border, GLenum format,   \
       GLenum type, const void *pixels))                                                                       \
    X(glTexSubImage2D, void,                                                                                   \
      (GLenum target, GLint level, GLint x, GLint y, GLsizei w, GLsizei h, GLenum format, GLenum type,         \
       const void *pixels))                                                                                    \
    X(glActiveTexture, void, (GLenum texture))                                                                 \
    X(glGenerateMipmap, void, (GLenum target))                                                                 \
    X(glGenVertexArrays, void, (GLsizei n, GLuint * arrays))                                                   \
    X(glBindVertexArray, void, (GLuint array))                                                                 \
    X(glGenBuffers, void, (GLsizei n, GLuint * buffers))                                                       \
    X(glBindBuffer, void, (GLenum target, GLuint buffer))                                                      \
    X(glBufferData, void, (GLenum target, GLsizeiptr size, const void *data, GLenum usage))                    \
    X(glBufferSubData, void, (GLenum target, GLintptr offset, GLsizeiptr size, const void *data))              \
    X(glCreateShader, GLuint, (GLenum type))                                                                   \
    X(glShaderSource, void, (GLuint shader, GLsizei count, const GLchar *const *strings, const GLint *lengths)) \
    X(glCompileShader, void, (GLuint shader))                                                                  \
    X(glGetShaderiv, void, (GLuint shader, GLenum name, GLint * value))                                        \
    X(glGetShaderInfoLog, void, (GLuint shader, GLsizei size, GLsizei * length, GLchar * log))                 \
    X(glDeleteShader, void, (GLuint shader))                                                                   \
    X(glCreateProgram, GLuint, (void))                                                                         \
    X(glAttachShader, void, (GLuint program, GLuint shader))                                                   \
    X(glBindFragDataLocation, void, (GLuint program, GLuint color, const GLchar *name))                        \
    X(glLinkProgram, void, (GLuint program))                                                                   \
    X(glGetProgramiv, void, (GLuint program, GLenum name, GLint * value))                                      \
    X(glGetProgramInfoLog, void, (GLuint program, GLsizei size, GLsizei * length, GLchar * log))               \
    X(glUseProgram, void, (GLuint program))                                                                    \
    X(glDeleteProgram, void, (GLuint program))                                                                 \
    X(glGetUniformLocation, GLint, (GLuint program, const GLchar *name))                                       \
    X(glGetAttribLocation, GLint, (GLuint program, const GLchar *name))                                        \
    X(glUniform1i, void, (GLint location, GLint value))                                                        \
    X(glUniformMatrix4fv, void, (GLint location, GLsizei count, GLboolean transpose, const GLfloat *value))   \
    X(glEnableVertexAttribArray, void, (GLuint index))                                                         \
    X(glDisableVertexAttribArray, void, (GLuint index))                                                        \
    X(glVertexAttribPointer, void,                                                                             \
      (GLuint index, GLint size, GLenum type, GLboolean normalized, GLsizei stride, const void *pointer))      \
    X(glVertexAttribIPointer, void, (GLuint index, GLint size, GLenum type, GLsizei stride, const void *pointer)) \
    X(glDrawElements, void, (GLenum mode, GLsizei count, GLenum type, const void *indices))                   \
    X(glPrimitiveRestartIndex, void, (GLuint index))

struct gl_functions_t {
#define GL_FUNCTION_MEMBER(name, result, parameters) result(*name) parameters;
    GL_FUNCTIONS(GL_FUNCTION_MEMBER)
#undef GL_FUNCTION_MEMBER
    // Optional: the debug output of GL_KHR_debug or GL_ARB_debug_output.
    void (*glDebugMessageCallback)(GL_DEBUG_PROC *callback, const void *user);
};

// The table of the current context. Filled by gl_load_functions.
extern gl_functions_t gl;

// Loads every entry point of the current context and installs the debug
// callback (log channel 1; an assertion on high, medium and low severity).
// Returns false, with the table partly empty, when an entry point is missing.
bool gl_load_functions();
// Writes the version, profile, flags and extensions of the current context to
// log channel 1.
void gl_log_context();
// Errors that the debug callback would not assert on are none of its business;
// this counts the messages it saw, for tests.
extern u32 gl_debug_message_count;
