#!/usr/bin/env bash
# Configures a build directory once and builds it (or some of its targets):
#
#   scripts/configure-and-build.sh BUILD_DIR [TARGET...] -- [CMAKE_OPTION...]
#
# After the first configure the build notices changed CMake files itself. A configure that failed
# half-way leaves a cache but no build files, and is simply run again; so is one whose options are not
# (or no longer) the ones given, from a fresh cache, since some (the compiler) cannot change in place.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
[[ $# -ge 2 ]] || { echo "usage: $0 BUILD_DIR [TARGET...] -- [CMAKE_OPTION...]" >&2; exit 2; }
build=$1
shift
targets=()
while [[ $# -gt 0 && $1 != -- ]]; do
  targets+=("$1")
  shift
done
[[ ${1:-} == -- ]] || { echo "$0: missing -- before the CMake options" >&2; exit 2; }
shift
options=("$@")

configured=true
if [[ ! -f $build/CMakeCache.txt || ! (-f $build/build.ninja || -f $build/Makefile) ]]; then
  configured=false
else
  for option in "${options[@]}"; do
    [[ $option == -D* ]] || continue
    name=${option#-D}
    grep -q -- "^${name%%=*}:[A-Z]*=${name#*=}\$" "$build/CMakeCache.txt" || configured=false
  done
fi
if [[ $configured == false ]]; then
  generator=()
  if [[ -f $build/CMakeCache.txt ]]; then
    rm -rf -- "$build/CMakeCache.txt" "$build/CMakeFiles"
  fi
  if command -v ninja >/dev/null 2>&1 && [[ ! -f $build/Makefile ]]; then
    generator=(-G Ninja)
  fi
  cmake -S "$root" -B "$build" "${generator[@]}" "${options[@]}"
fi

target_arguments=()
if [[ ${#targets[@]} -gt 0 ]]; then
  target_arguments=(--target "${targets[@]}")
fi
cmake --build "$build" --parallel "$(nproc)" "${target_arguments[@]}"
