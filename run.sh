#!/usr/bin/env bash
# Builds the release build in build/release and starts Glinta, passing any arguments on to it.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build="$root/build/release"

"$root/scripts/deps.sh"

# Configure once; after that the build notices changed CMake files itself. A configure that failed
# half-way leaves a cache but no build files, and is simply run again.
if [[ ! -f $build/CMakeCache.txt || ! (-f $build/build.ninja || -f $build/Makefile) ]]; then
  generator=()
  if command -v ninja >/dev/null 2>&1; then
    generator=(-G Ninja)
  fi
  cmake -S "$root" -B "$build" "${generator[@]}" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGLINTA_SANITIZE=OFF -DGLINTA_BUILD_TESTS=OFF
fi
cmake --build "$build" --parallel "$(nproc)"

exec "$build/src/app/glinta" "$@"
