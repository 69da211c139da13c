#!/usr/bin/env bash
# Builds a Release of the program and its tools and installs them with the
# desktop entry, the icons and the manual pages.
# Usage: scripts/install.sh [PREFIX]   (default: ~/.local)
# With ~/.local the program is found by the menus of most desktops at once;
# ~/.local/bin must be on PATH to start it from a terminal.
set -euo pipefail
cd "$(dirname "$0")/.."
prefix="${1:-$HOME/.local}"
scripts/deps.sh build
cmake -S . -B build/install -G Ninja -DCMAKE_BUILD_TYPE=Release -DTIDEWRACK_TESTS=OFF \
      -DCMAKE_INSTALL_PREFIX="$prefix" > /dev/null
cmake --build build/install -j "${JOBS:-2}" --target tidewrack tidewrack-tool tidewrack-profile
cmake --install build/install
# Let the menus and the icon theme see the new files, where the tools exist.
command -v update-desktop-database > /dev/null && update-desktop-database -q "$prefix/share/applications" || true
command -v gtk-update-icon-cache > /dev/null && gtk-update-icon-cache -q -t "$prefix/share/icons/hicolor" || true
echo "Installed in $prefix"
