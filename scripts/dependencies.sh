#!/usr/bin/env bash
# Makes sure the Debian packages Frameloom builds, tests and benchmarks with are installed.
# As root it installs what is missing; otherwise it prints the command to run and fails.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang pkg-config
  zlib1g-dev libasio-dev libcurl4-openssl-dev libpcre2-dev nlohmann-json3-dev
  libutf8proc-dev uuid-dev librlottie-dev libpng-dev libwebp-dev libcli11-dev
  libgtest-dev libgmock-dev libbenchmark-dev libclang-rt-14-dev
  zip unzip python3
  libsdl2-dev xvfb
  libfreetype-dev libharfbuzz-dev libfontconfig-dev fonts-dejavu-core
  libdeflate-dev
  libgif-dev help2man
  dpkg-dev
  fonts-liberation
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
if [ "$(id -u)" -eq 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update
  apt-get install -y "${missing[@]}"
else
  echo "Frameloom needs these Debian packages. Install them with:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi
