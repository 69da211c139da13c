#!/usr/bin/env bash
# Runs the graphics benchmark under a private X server with Mesa's software
# OpenGL, then measures the program's processor use while idle.
# Usage: bench/gfx/run.sh [BUILD_DIR]   (default build/bench)
set -euo pipefail
cd "$(dirname "$0")/../.."
build="${1:-build/bench}"
xvfb-run -a -s "-screen 0 1920x1080x24 -nolisten tcp" env LIBGL_ALWAYS_SOFTWARE=1 \
  "$build/bench/gfx/gfx_bench"
bench/gfx/idle_cpu.sh "$build/app/tidewrack"
