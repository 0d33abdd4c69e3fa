#!/usr/bin/env bash
# Installs the Debian packages Glinta needs to build, test and run; does nothing when all are present.
set -euo pipefail

packages=(
  # build
  cmake ninja-build g++ ccache dpkg-dev pkg-config clang-format
  # Qt and friends
  qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-httpserver-dev
  qtkeychain-qt6-dev libsecret-1-0 qcoro-qt6-dev
  # glyphs for arrows, warning sign and bullet
  fonts-dejavu-core tzdata
  # headless desktop session for tests
  xvfb xauth trayer dunst dbus dbus-x11 gnome-keyring libsecret-tools openssl xdotool x11-utils
  # benchmarks and robustness
  libbenchmark-dev clang-14 libclang-rt-14-dev faketime
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

echo "Installing missing packages: ${missing[*]}"
if [[ $(id -u) -eq 0 ]]; then
  sudo=()
elif command -v sudo >/dev/null 2>&1; then
  sudo=(sudo)
else
  echo "error: these Debian packages are missing and installing them needs root or sudo:" >&2
  echo "  ${missing[*]}" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
# A fresh machine has no package lists yet; refresh once, then install.
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
