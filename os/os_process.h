// os_process.h - starting other programs: a link handler, a query of the
// desktop's settings, a file chooser. Arguments always go to the program as
// an array, never through a shell, so nothing in them is interpreted.
#pragma once

#include "base/base_core.h"

// Starts the program (found on PATH unless the name holds a '/') with the
// null-terminated argument array, argv[0] included, and returns without
// waiting. The child is waited for in the background, so none is left as a
// zombie. False when it could not be started.
bool os_process_start(const char *const *argv);

// Runs the program with the arguments and waits for it, with its standard
// output read into `destination` (what passes `size` is read and dropped)
// and its standard input empty. Returns the bytes kept; *exit_code gets the
// exit status, or -1 when it could not be started or did not exit normally.
u64 os_process_read(const char *const *argv, u8 *destination, u64 size, i32 *exit_code);

// The same without waiting: the output is collected on a thread of its own.
// The record is the caller's and must stay in place until state is done.
enum : u32 {
    os_process_idle = 0,
    os_process_running = 1,
    os_process_done = 2,
};
typedef void os_process_wake_t(void *context);
struct os_process_output_t {
    u8 *buffer;      // the caller's memory for the output
    u64 capacity;
    u64 size;        // bytes kept, valid once done
    i32 exit_code;   // as for os_process_read, valid once done
    u32 state;       // os_process_*; read it with os_process_state
    os_process_wake_t *wake; // called on the collecting thread when done (may be null)
    void *wake_context;
};
// False, with the record left idle, when the program could not be started.
bool os_process_read_async(const char *const *argv, os_process_output_t *output);
u32 os_process_state(const os_process_output_t *output);

// The command line the desktop starts web links with: the Exec line of the
// desktop entry that `xdg-mime query default x-scheme-handler/http` names,
// field codes (%u) left in. Zero-terminated; returns its length, 0 when the
// desktop names none.
u64 os_default_browser_command(char *destination, u64 size);
