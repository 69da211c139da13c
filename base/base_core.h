// base_core.h - the words every file of the program speaks: fixed-width
// numbers, vectors, assertions and the error convention.
//
// Error convention: a function that takes part in a longer job has as its
// last parameter `u32 *error`. Zero means no error. Such a function does
// nothing when *error is already set; when it fails it writes its code and
// returns an empty result, so one test at the end of a chain is enough.
#pragma once

#include <stddef.h>
#include <stdint.h>

typedef uint8_t u8;
typedef uint16_t u16;
typedef uint32_t u32;
typedef uint64_t u64;
typedef int8_t i8;
typedef int16_t i16;
typedef int32_t i32;
typedef int64_t i64;
typedef float f32;
typedef double f64;

struct vec2 { f32 x, y; };
struct vec3 { f32 x, y, z; };
struct vec4 { f32 x, y, z, w; };

#define array_count(a) (sizeof(a) / sizeof((a)[0]))

// Stops the process at once with the text on stderr. Assertions stand for
// programmer mistakes and hard capacity limits; they stay on in every build.
[[noreturn]] void assert_fail(const char *text, const char *file, int line);

#define assert_true(condition)                                                 \
    do {                                                                       \
        if (!(condition)) assert_fail(#condition, __FILE__, __LINE__);         \
    } while (0)

#define assert_message(condition, text)                                        \
    do {                                                                       \
        if (!(condition)) assert_fail(text, __FILE__, __LINE__);               \
    } while (0)

// A string literal as a data_t view: reserved counts the terminating zero.
#define data_literal(s) data_t{sizeof(s), sizeof(s) - 1, (u8 *)(s)}
