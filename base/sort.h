// sort.h - sorting and searching arrays of 64-bit keys in place, without
// memory of their own. Keys often pack two 32-bit values (high first), so
// that one sort orders by both.
#pragma once

#include "base/base_core.h"

// Heap sort, rising: in place, no recursion, n log n on every input.
void sort_u64(u64 *values, u64 count);
// The first position whose value is not below `key` in a rising array.
u64 sort_lower_bound_u64(const u64 *values, u64 count, u64 key);
bool sort_contains_u64(const u64 *values, u64 count, u64 key);
