#!/usr/bin/env bash
# Makes docs/screenshot.png: builds a Release, serves the demo feeds on
# 127.0.0.1, runs the program in a private X server, adds the feeds by typing,
# selects the entry with the harbour picture and photographs the window.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWRACK_TESTS=OFF > /dev/null
cmake --build build/release -j "${JOBS:-2}" --target tidewrack tidewrack-tool
mkdir -p docs
LIBGL_ALWAYS_SOFTWARE=1 python3 tools/demo/screenshot.py build/release/app/tidewrack \
  build/release/tools/tool/tidewrack-tool docs/screenshot.png
