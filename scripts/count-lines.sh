#!/usr/bin/env bash
# Prints the non-blank lines of the tests, of src and of tools, and the ratio of the tests to the code.
# Counts the files git knows plus untracked ones under those folders that are not ignored, so build
# directories never count.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/.."

count() {
  git ls-files --cached --others --exclude-standard -z -- "$@" \
    | while IFS= read -r -d '' file; do [[ -f $file ]] && printf '%s\0' "$file"; done \
    | xargs -0 -r cat | grep -cv '^[[:space:]]*$' || true
}

tests=$(count 'tests/*.cpp' 'tests/*.h')
src=$(count 'src/*.cpp' 'src/*.h')
tools=$(count 'tools/*.cpp' 'tools/*.h')
echo "tests: $tests"
echo "src:   $src"
echo "tools: $tools"
awk -v t="$tests" -v c="$((src + tools))" 'BEGIN { printf "ratio: %.3f (tests / (src + tools))\n", (c ? t / c : 0) }'
