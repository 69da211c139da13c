#!/usr/bin/env bash
# Installs what is missing, builds the program and starts it.
# Arguments go to the program: scripts/run.sh -path /tmp/feeds -log
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWRACK_TESTS=OFF > /dev/null
cmake --build build/release --target tidewrack
exec build/release/app/tidewrack "$@"
