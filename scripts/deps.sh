#!/usr/bin/env bash
# Installs the Debian packages the project needs, when some are missing.
# Usage: scripts/deps.sh [build|test|bench]   (each includes the ones before)
set -euo pipefail
level="${1:-build}"

packages=(build-essential cmake ninja-build pkg-config
          libsdl2-dev libcurl4-openssl-dev libstb-dev libfontconfig-dev fonts-dejavu-core
          libfreetype-dev libharfbuzz-dev libfribidi-dev libthai-dev libgl1-mesa-dri)
if [ "$level" = test ] || [ "$level" = bench ]; then
  packages+=(googletest libgtest-dev xvfb xauth python3 clang xdotool imagemagick x11-utils iproute2 nginx
             fonts-noto-core fonts-noto-cjk fonts-noto-color-emoji)
fi
if [ "$level" = bench ]; then
  packages+=(libbenchmark-dev libgumbo-dev libxml2-dev newsboat hyperfine)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
