#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test.
#   scripts/test.sh [ctest arguments]            Debug with AddressSanitizer and
#                                                 UndefinedBehaviorSanitizer (build/test)
#   scripts/test.sh --release [ctest arguments]  the same suite on an optimised
#                                                 Release build (build/test-release)
# TIDEWRACK_TEST_RELEASE=1 chooses the Release build as --release does.
set -euo pipefail
cd "$(dirname "$0")/.."
release="${TIDEWRACK_TEST_RELEASE:-0}"
if [[ "${1:-}" == "--release" ]]; then
  release=1
  shift
fi
scripts/deps.sh test
jobs="${JOBS:-2}"
if [[ "$release" == "1" ]]; then
  build=build/test-release
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release > /dev/null
else
  build=build/test
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTIDEWRACK_SANITIZE=ON > /dev/null
fi
cmake --build "$build" -j "$jobs"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
ctest --test-dir "$build" --output-on-failure -j "$jobs" "$@"
