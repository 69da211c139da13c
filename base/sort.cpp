// sort.cpp - sorting and searching arrays of 64-bit keys in place.
#include "base/sort.h"

void sort_u64(u64 *values, u64 count) {
    // Heap sort: in place, no recursion, n log n on every input.
    if (count < 2) return;
    auto sift = [values](u64 root, u64 end) {
        for (;;) {
            u64 child = root * 2 + 1;
            if (child >= end) return;
            if (child + 1 < end && values[child + 1] > values[child]) child++;
            if (values[root] >= values[child]) return;
            u64 swap = values[root];
            values[root] = values[child];
            values[child] = swap;
            root = child;
        }
    };
    for (u64 start = count / 2; start-- > 0;) sift(start, count);
    for (u64 end = count - 1; end > 0; end--) {
        u64 swap = values[0];
        values[0] = values[end];
        values[end] = swap;
        sift(0, end);
    }
}

u64 sort_lower_bound_u64(const u64 *values, u64 count, u64 key) {
    u64 low = 0, high = count;
    while (low < high) {
        u64 middle = low + (high - low) / 2;
        if (values[middle] < key) low = middle + 1;
        else high = middle;
    }
    return low;
}

bool sort_contains_u64(const u64 *values, u64 count, u64 key) {
    u64 at = sort_lower_bound_u64(values, count, key);
    return at < count && values[at] == key;
}
