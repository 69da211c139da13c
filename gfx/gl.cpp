// gl.cpp - loading the entry points, the debug callback and the report of
// the context.
#include "gfx/gl.h"

#include "base/log.h"
#include "os/os_window.h"

gl_functions_t gl;
u32 gl_debug_message_count;

static void gl_debug_callback(GLenum source, GLenum type, GLuint id, GLenum severity, GLsizei length,
                              const GLchar *message, const void *user) {
    ++gl_debug_message_count;
    if (length < 0) {
        log_string(log_graphics, message);
    } else {
        log_bytes(log_graphics, message, (u64)length);
    }
    log_string(log_graphics, "\n");
    // Anything above a notification is a mistake of ours in how GL is used.
    assert_message(severity != GL_DEBUG_SEVERITY_HIGH && severity != GL_DEBUG_SEVERITY_MEDIUM &&
                       severity != GL_DEBUG_SEVERITY_LOW,
                   "OpenGL debug message; see log channel 1.");
}

bool gl_load_functions() {
    bool complete = true;
#define GL_FUNCTION_LOAD(name, result, parameters)                                                    \
    gl.name = (result(*) parameters)os_window_gl_proc_address(#name);                                 \
    if (!gl.name) {                                                                                   \
        log_string(log_graphics, "Missing OpenGL function: " #name "\n");                             \
        complete = false;                                                                             \
    }
    GL_FUNCTIONS(GL_FUNCTION_LOAD)
#undef GL_FUNCTION_LOAD
    gl.glDebugMessageCallback =
        (void (*)(GL_DEBUG_PROC *, const void *))os_window_gl_proc_address("glDebugMessageCallbackARB");
    if (!gl.glDebugMessageCallback)
        gl.glDebugMessageCallback =
            (void (*)(GL_DEBUG_PROC *, const void *))os_window_gl_proc_address("glDebugMessageCallback");
    if (complete && gl.glDebugMessageCallback) {
        gl.glDebugMessageCallback(gl_debug_callback, nullptr);
        gl.glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
    }
    return complete;
}

void gl_log_context() {
    if (!gl.glGetString) return;
    const char *version = (const char *)gl.glGetString(GL_VERSION);
    log_string(log_graphics, "GL_VERSION: ");
    log_string(log_graphics, version ? version : "");
    log_string(log_graphics, "\n");
    GLint major = 0, minor = 0;
    if (version && version[0] >= '0' && version[0] <= '9') {
        major = version[0] - '0';
        if (version[1] == '.' && version[2] >= '0' && version[2] <= '9') minor = version[2] - '0';
    }
    if (major > 3 || (major == 3 && minor >= 2)) {
        gl.glGetIntegerv(GL_MAJOR_VERSION, &major);
        gl.glGetIntegerv(GL_MINOR_VERSION, &minor);
        log_string(log_graphics, "GL_MAJOR_VERSION: ");
        log_number(log_graphics, (u64)major);
        log_string(log_graphics, " \nGL_MINOR_VERSION: ");
        log_number(log_graphics, (u64)minor);
        log_string(log_graphics, "\n");
        GLint profile = 0, flags = 0;
        gl.glGetIntegerv(GL_CONTEXT_PROFILE_MASK, &profile);
        log_string(log_graphics, "GL_CONTEXT_PROFILE_MASK: ");
        if (profile & GL_CONTEXT_CORE_PROFILE_BIT) log_string(log_graphics, "GL_CONTEXT_CORE_PROFILE_BIT\n");
        if (profile & GL_CONTEXT_COMPATIBILITY_PROFILE_BIT)
            log_string(log_graphics, "GL_CONTEXT_COMPATIBILITY_PROFILE_BIT\n");
        if (!(profile & 3)) log_string(log_graphics, "\n");
        gl.glGetIntegerv(GL_CONTEXT_FLAGS, &flags);
        log_string(log_graphics, "GL_CONTEXT_FLAGS: ");
        if (flags & GL_CONTEXT_FLAG_FORWARD_COMPATIBLE_BIT)
            log_string(log_graphics, "GL_CONTEXT_FLAG_FORWARD_COMPATIBLE_BIT ");
        if (flags & GL_CONTEXT_FLAG_DEBUG_BIT) log_string(log_graphics, "GL_CONTEXT_FLAG_DEBUG_BIT ");
        log_string(log_graphics, "\n\nExtensions ( >= 3.2 ):\n");
        GLint count = 0;
        gl.glGetIntegerv(GL_NUM_EXTENSIONS, &count);
        for (GLint i = 0; i < count; ++i) {
            const char *name = (const char *)gl.glGetStringi(GL_EXTENSIONS, (GLuint)i);
            if (!name) continue;
            log_string(log_graphics, name);
            log_string(log_graphics, "\n");
        }
    } else {
        log_string(log_graphics, "Extensions ( <= 3.1 ):\n");
        const char *extensions = (const char *)gl.glGetString(GL_EXTENSIONS);
        log_string(log_graphics, extensions ? extensions : "");
        log_string(log_graphics, "\n");
    }
}
