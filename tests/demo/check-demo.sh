#!/usr/bin/env bash
# Runs ./run.sh --demo as a user would and checks what it promises: the tray title as it happens, the
# screenshots of the tray and the open panel, the published snapshot kept and decodable, and nothing of
# the demo left running or on disk once it has ended.
#
#   tests/demo/check-demo.sh RUN_SH
#
# ctest sets GLINTA_DEMO_BUILD (this build), GLINTA_DEMO_SECONDS and GLINTA_DEMO_OUTPUT.
set -euo pipefail

readonly me=check-demo
readonly title_timeout=90 # seconds until the first title, sign-in included (a sanitizer build is slow)
readonly run_limit=140    # seconds the whole demo may take before it is stopped

[[ $# -eq 1 ]] || {
  echo "usage: tests/demo/check-demo.sh RUN_SH" >&2
  exit 2
}
run=$1
: "${GLINTA_DEMO_BUILD:?the build to run}" "${GLINTA_DEMO_OUTPUT:?where the demo writes}"
: "${GLINTA_DEMO_SECONDS:?how long the demo runs}"

failures=0
failed() {
  echo "$me: FAIL: $*" >&2
  failures=$((failures + 1))
}

# Pictures from an earlier run must not pass for this one's.
rm -rf -- "$GLINTA_DEMO_OUTPUT"
log=$(mktemp -t glinta-check-demo.XXXXXXXX)
trap 'rm -f -- "$log"' EXIT

timeout -k 15 "$run_limit" "$run" --demo >"$log" 2>&1 </dev/null &
demo_pid=$!

deadline=$((SECONDS + title_timeout))
until grep -q '^Title: ' "$log"; do
  if ! kill -0 "$demo_pid" 2>/dev/null; then
    break
  fi
  if ((SECONDS >= deadline)); then
    failed "no title line within $title_timeout s; stopping the demo"
    kill -s TERM "$demo_pid" 2>/dev/null || true
    break
  fi
  sleep 0.2
done

status=0
wait "$demo_pid" || status=$?
echo "--- output of ./run.sh --demo ---"
cat "$log"
echo "---"

if ((status == 124)); then
  failed "the demo did not end within $run_limit s although GLINTA_DEMO_SECONDS=$GLINTA_DEMO_SECONDS"
elif ((status != 0)); then
  failed "./run.sh --demo exited with status $status"
fi

grep -q '^Title: ' "$log" || failed "the demo printed no title line"
# The widget saw the published reading, not only its empty state.
grep -q '^Title: [0-9]' "$log" || failed "no title line shows a reading"

for picture in tray panel; do
  file=$GLINTA_DEMO_OUTPUT/$picture.png
  if [[ ! -s $file ]]; then
    failed "no $picture screenshot at $file"
  elif [[ $(head -c 8 "$file" | od -An -tx1 | tr -d ' \n') != 89504e470d0a1a0a ]]; then
    failed "$file is not a PNG file"
  elif ! grep -qF "$file" "$log"; then
    failed "the demo did not print the path of $file"
  fi
done

# The published snapshot, kept past the private profile, read with the project's own decoder.
kept=$GLINTA_DEMO_OUTPUT/glucose-snapshot.json
if [[ ! -s $kept ]]; then
  failed "the demo kept no snapshot at $kept"
else
  decoded=$("$GLINTA_DEMO_BUILD/tools/sim/glinta-sim" --check-snapshot "$kept" 2>&1) ||
    failed "the kept snapshot does not decode: $decoded"
  [[ $decoded == *"latest "* ]] || failed "the kept snapshot holds no latest reading: $decoded"
fi
published=$(sed -n 's/^Snapshot: //p' "$log" | head -n 1)
[[ -n $published ]] || failed "the demo did not print the published snapshot's path"

# Nothing left behind: the private profile is gone, and no program the demo started still runs.
profile=$(sed -n 's/^demo: private profile: \(.*\) (removed at the end)$/\1/p' "$log" | head -n 1)
if [[ -z $profile ]]; then
  failed "the demo did not say where its private profile was"
elif [[ -e $profile ]]; then
  failed "the private profile $profile is still there"
fi
pids=$(sed -n 's/^demo: \(glinta\|glinta-sim\|glinta-widget\)[^(]*(pid \([0-9]*\)).*/\2/p' "$log")
[[ $(wc -w <<<"$pids") -eq 3 ]] ||
  failed "the demo did not name the process ids of glinta-sim, glinta-widget and glinta"
for pid in $pids; do
  exe=$(readlink "/proc/$pid/exe" 2>/dev/null || true)
  if [[ $exe == "$GLINTA_DEMO_BUILD"/* ]]; then
    failed "process $pid ($exe) still runs after the demo ended"
  fi
done

if ((failures > 0)); then
  echo "$me: $failures check(s) failed" >&2
  exit 1
fi
echo "$me: the demo showed the title, took both screenshots, kept a snapshot that decodes and left" \
  "nothing running"
