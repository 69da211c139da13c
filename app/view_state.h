// view_state.h - what outlives a frame in the views. For now only what the
// frame loop itself reads and writes: the request for one more frame, the
// selection and the shown range of generations. The views take this record
// over and grow it (scroll positions, panels, text fields, article memory).
#pragma once

#include "base/base_core.h"

struct feed_t;
struct entry_t;

struct view_state_t {
    feed_t *selected_feed;
    entry_t *selected_entry;
    u32 generation_minimum; // the shown range, inclusive
    u32 generation_maximum;
    u32 redraw_requested;   // run one more frame without waiting for input
};
