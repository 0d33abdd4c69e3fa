#!/usr/bin/env bash
# Builds the sanitizer build in build/test and runs the whole suite inside a private headless session
# (display, tray, session bus, keyring). Extra arguments go to ctest:
#
#   ./test.sh                  everything
#   ./test.sh -R tst_trend     only the tests whose names match (and no fuzzing)
#   ./test.sh -L unit          the tests that need no session: seconds
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build="$root/build/test"

"$root/scripts/deps.sh"

# The cheap checks first: the committed format, and includes that keep to the layers.
cd "$root"
if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  sources=()
  while IFS= read -r -d '' file; do
    [[ -e $file ]] && sources+=("$file")
  done < <(git ls-files -z --cached --others --exclude-standard -- '*.cpp' '*.h')
  if ! clang-format --dry-run --Werror "${sources[@]}"; then
    echo "test.sh: the files above differ from .clang-format; run clang-format -i on them" >&2
    exit 1
  fi
fi
"$root/scripts/check-layers.py"

"$root/scripts/configure-and-build.sh" "$build" -- \
  -DCMAKE_BUILD_TYPE=Debug -DGLINTA_SANITIZE=ON -DGLINTA_DEV_SERVICE_ADDRESS=ON -DGLINTA_WARNINGS_AS_ERRORS=ON

# ctest on its own reports an empty run as a success.
listing=$(ctest --test-dir "$build" --show-only "$@")
if [[ $listing =~ Total\ Tests:\ ([0-9]+) ]] && ((BASH_REMATCH[1] == 0)); then
  if [[ $# -gt 0 ]]; then
    echo "test.sh: no tests match the ctest arguments: $*" >&2
  else
    echo "test.sh: the build registered no tests at all; glinta_add_test() in tests/*/CMakeLists.txt adds them" >&2
  fi
  exit 1
fi

# The portable sides of the platform seams (build/portable): the core and its unit tests, once, on a run
# of everything.
if [[ $# -eq 0 ]]; then
  "$root/scripts/test-portable.sh"
fi

# The fuzz targets (scripts/run-fuzzers.sh, a clang build of its own in build/fuzz), 30 s each, on a run
# of everything; GLINTA_FUZZ_SECONDS sets the time, 0 leaves them out, and any value asks for them on a
# run with ctest arguments too. They go first because the exec below must stay last.
if [[ $# -eq 0 || -n ${GLINTA_FUZZ_SECONDS:-} ]]; then
  if ! "$root/scripts/run-fuzzers.sh" "${GLINTA_FUZZ_SECONDS:-30}"; then
    echo "test.sh: a fuzz target failed (above), so the tests were not run" >&2
    exit 1
  fi
fi

# exec, so that a signal meant for this script (a CI cancel, timeout(1)) reaches the session, which
# then ends the tests and itself in order.
exec "$root/scripts/headless-session.sh" "$root/scripts/run-ctest.sh" "$build" "$@"
