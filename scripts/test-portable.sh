#!/usr/bin/env bash
# Builds the core layers with the portable sides of the platform seams (GLINTA_PORTABLE: Qt only, what a
# macOS or Windows port starts from) in build/portable, and runs the core's tests that need no display, no
# session bus and no keyring against them. Small and without sanitizers, so that ./test.sh can afford it
# on every run. Extra arguments go to ctest.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build/portable"
layers=(glinta_support glinta_domain glinta_client glinta_snapshot glinta_persistence glinta_store glinta_update)
# Of the tests in these folders, those labelled unit: the rest need the headless session.
folders=(domain client store update persistence)

"$root/scripts/configure-and-build.sh" "$build" glinta_support -- \
  -DGLINTA_PORTABLE=ON -DCMAKE_BUILD_TYPE=Debug -DGLINTA_BUILD_BENCHMARKS=OFF -DGLINTA_WARNINGS_AS_ERRORS=ON

# The tests as ctest knows them, one line "name<TAB>program" each; glinta_add_test names the program after
# the test, less any ":zone".
listing=$(ctest --test-dir "$build" --show-only=json-v1 -L unit | python3 -c '
import json, os, sys
build, folders = sys.argv[1], sys.argv[2:]
for test in json.load(sys.stdin)["tests"]:
    directory = next(p["value"] for p in test["properties"] if p["name"] == "WORKING_DIRECTORY")
    if os.path.relpath(directory, build) in ["tests/" + f for f in folders]:
        print(test["name"] + "\t" + test["name"].split(":")[0])
' "$build" "${folders[@]}")
if [[ -z $listing ]]; then
  echo "test-portable.sh: no unit tests in tests/{$(IFS=,; echo "${folders[*]}")}" >&2
  exit 1
fi
mapfile -t programs < <(cut -f2 <<<"$listing" | sort -u)
names=$(cut -f1 <<<"$listing" | python3 -c 'import re, sys; print("|".join(re.escape(l.strip()) for l in sys.stdin))')

cmake --build "$build" --parallel "$(nproc)" --target "${layers[@]}" "${programs[@]}"

# Nothing of the session: a portable side that reached for one would fail here rather than pass by luck.
exec env -u DISPLAY -u WAYLAND_DISPLAY -u DBUS_SESSION_BUS_ADDRESS \
  "$root/scripts/run-ctest.sh" "$build" -L unit -R "^($names)\$" "$@"
