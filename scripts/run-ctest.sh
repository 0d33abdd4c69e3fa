#!/usr/bin/env bash
# Runs ctest over a build tree and then says why tests were skipped, which ctest itself never shows.
# test.sh runs it inside the headless session.
#
#   scripts/run-ctest.sh BUILD_DIR [CTEST_ARGS...]
set -euo pipefail

build=$1
shift
log="$build/Testing/Temporary/LastTest.log"

# A log left from an earlier run would report that run's skips.
rm -f "$log"
status=0
ctest --test-dir "$build" --output-on-failure --parallel "$(nproc)" --no-tests=error "$@" || status=$?

if [[ -f $log ]]; then
  reasons=$(awk '
    /^[0-9]+\/[0-9]+ Test: / { sub(/^[0-9]+\/[0-9]+ Test: /, ""); test = $0; next }
    /^SKIP   : / { sub(/^SKIP   : /, ""); print "  " test ": " $0 }' "$log")
  if [[ -n $reasons ]]; then
    echo
    echo "Why tests were skipped:"
    echo "$reasons"
  fi
fi

if ((status != 0)); then
  echo "The test run failed (ctest exit status $status)." >&2
fi
exit "$status"
