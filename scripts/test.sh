#!/usr/bin/env bash
# Installs what is missing, builds everything with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
jobs="${JOBS:-2}"
cmake -S . -B build/test -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTIDEWRACK_SANITIZE=ON > /dev/null
cmake --build build/test -j "$jobs"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir build/test --output-on-failure -j "$jobs" "$@"
