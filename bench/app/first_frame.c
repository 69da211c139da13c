/* first_frame.c - preloaded into the program by bench/app/startup.py: at the
 * end of the first buffer swap it writes the monotonic clock, in
 * nanoseconds, to the file named by TIDEWRACK_FIRST_FRAME, then lets the
 * program go on as before. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

typedef struct SDL_Window SDL_Window;

void SDL_GL_SwapWindow(SDL_Window *window) {
    static void (*real)(SDL_Window *);
    static int written;
    if (!real) real = (void (*)(SDL_Window *))dlsym(RTLD_NEXT, "SDL_GL_SwapWindow");
    real(window);
    if (written) return;
    written = 1;
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const char *path = getenv("TIDEWRACK_FIRST_FRAME");
    if (!path) return;
    char part[4096];
    snprintf(part, sizeof(part), "%s.part", path);
    FILE *f = fopen(part, "w");
    if (!f) return;
    fprintf(f, "%lld\n", (long long)now.tv_sec * 1000000000LL + now.tv_nsec);
    fclose(f);
    rename(part, path);
}
