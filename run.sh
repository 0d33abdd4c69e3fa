#!/usr/bin/env bash
# Builds Glinta and starts it.
#
#   ./run.sh [ARGS...]   the release build in build/release, with ARGS passed on to glinta
#   ./run.sh --demo      the demo (scripts/demo.sh): a development build in build/demo against the
#                        simulated service, signed in to its demo account, with a private profile;
#                        plain ./run.sh does the same where there is no display at all
#
# GLINTA_DEMO_BUILD=DIR makes --demo use an existing development build instead of build/demo.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

usage() {
  cat <<'EOF'
usage: ./run.sh [ARGS...]   build (build/release) and start Glinta; ARGS go on to glinta
       ./run.sh --demo      build a development build (build/demo) and run the demo: Glinta against the
                            simulated LibreLinkUp service, signed in to its demo account, with a private
                            profile; prints each new tray title and, where a tray shows the icon, writes
                            screenshots to build/demo-output/. Ctrl-C ends it.
Without a display (DISPLAY and WAYLAND_DISPLAY unset), plain ./run.sh runs the demo in a virtual one.
Environment for --demo: GLINTA_DEMO_BUILD=DIR (use that development build), GLINTA_DEMO_OUTPUT=DIR,
GLINTA_DEMO_SECONDS=N (end by itself after N seconds).
EOF
}

demo=false
if [[ ${1:-} == --demo ]]; then
  if [[ $# -gt 1 ]]; then
    echo "run.sh: --demo takes no further arguments" >&2
    exit 2
  fi
  demo=true
elif [[ ${1:-} == -h || ${1:-} == --help ]]; then
  usage
  exit 0
elif [[ $# -eq 0 && -z ${DISPLAY:-} && -z ${WAYLAND_DISPLAY:-} ]]; then
  echo "run.sh: no display here, so Glinta cannot show its tray icon; running the demo instead" \
    "(./run.sh --demo)"
  demo=true
fi

if [[ $demo == true && -n ${GLINTA_DEMO_BUILD:-} ]]; then
  if ! grep -qx 'GLINTA_DEV_SERVICE_ADDRESS:BOOL=ON' "$GLINTA_DEMO_BUILD/CMakeCache.txt" 2>/dev/null; then
    echo "run.sh: GLINTA_DEMO_BUILD=$GLINTA_DEMO_BUILD is not a development build (no" \
      "GLINTA_DEV_SERVICE_ADDRESS=ON in its CMakeCache.txt); unset it to let run.sh build build/demo" >&2
    exit 1
  fi
  exec "$root/scripts/demo.sh" "$GLINTA_DEMO_BUILD"
fi

"$root/scripts/deps.sh"

if [[ $demo == true ]]; then
  "$root/scripts/configure-and-build.sh" "$root/build/demo" glinta glinta-widget glinta-sim glinta-shot -- \
    -DCMAKE_BUILD_TYPE=Release -DGLINTA_SANITIZE=OFF -DGLINTA_DEV_SERVICE_ADDRESS=ON \
    -DGLINTA_BUILD_TESTS=OFF -DGLINTA_BUILD_BENCHMARKS=OFF
  exec "$root/scripts/demo.sh" "$root/build/demo"
fi

"$root/scripts/configure-and-build.sh" "$root/build/release" -- \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGLINTA_SANITIZE=OFF -DGLINTA_BUILD_TESTS=OFF
exec "$root/build/release/src/app/glinta" "$@"
