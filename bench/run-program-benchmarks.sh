#!/usr/bin/env bash
# Measures the whole program in a private headless desktop session (scripts/headless-session.sh): the
# in-process benchmarks (bench_program), the start-up time of the real glinta, its idle cost over TLS
# beside the npm registry's LibreLinkUp client, and its memory once a new user has been through its
# windows. bench/README.md says what each figure means.
#
#   bench/run-program-benchmarks.sh [--build DIR] [--idle-seconds N] [--startup-runs N] [--npm-client DIR]
#                                   [--only micro|startup|npm-cycle|idle|windows] [--shots DIR]
#
# --build      a Release build with -DGLINTA_DEV_SERVICE_ADDRESS=ON (default build/bench)
# --idle-seconds  how long the idle runs last (default 600)
# --startup-runs  warm start-up runs after one cold one that is thrown away (default 10)
# --npm-client a directory where `npm install @diakem/libre-link-up-api-client @babel/runtime@7` was run;
#              without it the npm client's figures are left out
# --shots      a directory for a screenshot of each step of the windows part (to check it by eye)
set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$repo/build/bench
idle_seconds=600
startup_runs=10
npm_client=""
only=""
shots=""

while (($#)); do
  case $1 in
  --build) build=$(realpath "$2") && shift ;;
  --idle-seconds) idle_seconds=$2 && shift ;;
  --startup-runs) startup_runs=$2 && shift ;;
  --npm-client) npm_client=$(realpath "$2") && shift ;;
  --only) only=$2 && shift ;;
  --shots) mkdir -p "$2" && shots=$(realpath "$2") && shift ;;
  -h | --help)
    sed -n '2,16p' "$0" | sed 's/^# \{0,1\}//'
    exit 0
    ;;
  *)
    echo "run-program-benchmarks: unknown argument $1" >&2
    exit 2
    ;;
  esac
  shift
done

glinta=$build/src/app/glinta
sim=$build/tools/sim/glinta-sim
bench_program=$build/bench/bench_program
shot=$build/tools/shot/glinta-shot
for program in "$glinta" "$sim" "$bench_program" "$shot"; do
  if [[ ! -x $program ]]; then
    echo "run-program-benchmarks: $program is missing; build it first (bench/README.md)" >&2
    exit 1
  fi
done
if [[ -n $npm_client && ! -d $npm_client/node_modules/@diakem/libre-link-up-api-client ]]; then
  echo "run-program-benchmarks: no @diakem/libre-link-up-api-client under $npm_client" >&2
  exit 1
fi

# Everything below runs inside the throwaway session: X display, tray, bus and keyring of its own.
if [[ -z ${GLINTA_BENCH_IN_SESSION:-} ]]; then
  export GLINTA_BENCH_IN_SESSION=1
  exec "$repo/scripts/headless-session.sh" "$0" --build "$build" --idle-seconds "$idle_seconds" \
    --startup-runs "$startup_runs" ${npm_client:+--npm-client "$npm_client"} ${only:+--only "$only"} \
    ${shots:+--shots "$shots"}
fi

work=$(mktemp -d -t glinta-bench.XXXXXXXX)
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  wait 2>/dev/null || true
  rm -rf -- "$work"
}
trap cleanup EXIT

wanted() { [[ -z $only || $only == "$1" ]]; }
# glinta-sim's demo account, which the simulator serves and --save-demo-password stores.
demo_email=ann@example.com
demo_password="correct horse"
say() { printf '%s\n' "$*"; }
ticks_per_second=$(getconf CLK_TCK)

# A throwaway certificate for 127.0.0.1, so the program meets TLS as it does against the real service.
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 \
  -keyout "$work/key.pem" -out "$work/cert.pem" 2>/dev/null

# start_sim NAME [plain]: a glinta-sim over TLS, or plain HTTP; sets sim_url (root, with a trailing
# slash) and sim_pid.
start_sim() {
  local log=$work/sim-$1.log tls=(--tls-cert "$work/cert.pem" --tls-key "$work/key.pem")
  [[ ${2:-} != plain ]] || tls=()
  "$sim" --port 0 "${tls[@]}" --address-file "$work/address-$1.json" >"$log" 2>&1 &
  sim_pid=$!
  pids+=("$sim_pid")
  local tries=100
  until grep -q 'listening on' "$log"; do
    ((tries-- > 0)) || { cat "$log" >&2 && return 1; }
    sleep 0.1
  done
  sim_url=$(sed -n 's/.*listening on //p' "$log")
}

# The simulator's counters; the request that asks is a connection of its own, which is taken off.
sim_stats() {
  curl -s --cacert "$work/cert.pem" "${1}_sim/stats"
}
sim_connections() {
  local count
  # The top-level counter, which comes before any nested object ("requests" counts by path).
  count=$(sim_stats "$1" | sed -n 's/^{[^{]*"connections":\([0-9]*\),.*/\1/p')
  echo $((count - 1))
}
sim_reset() {
  curl -s -X POST --cacert "$work/cert.pem" "${1}_sim/reset" >/dev/null
}

# make_profile NAME SIM_NAME [signed-out]: a private configuration for glinta pointed at that simulator,
# with the demo account's e-mail saved (unless signed-out: a new user's) and an update check "just done",
# so none falls in the measured time.
make_profile() {
  local home=$work/profile-$1
  mkdir -p "$home/config/nordvik.com" "$home/data"
  mkdir -m 0700 "$home/run"
  sed "0,/{/s|{|{\n    \"caFile\": \"$work/cert.pem\",|" "$work/address-$2.json" \
    >"$home/config/nordvik.com/service-address.json"
  cat >"$home/config/nordvik.com/glinta.conf" <<EOF
[General]
SULastCheckTime=$(date -u +%Y-%m-%dT%H:%M:%SZ)
EOF
  [[ ${3:-} == signed-out ]] || echo "libreLinkUpEmail=$demo_email" >>"$home/config/nordvik.com/glinta.conf"
  profile=$home
}

# launch PROFILE: starts glinta with that profile and waits for its first title from a reading. Sets
# glinta_pid and launch_ms (exec to the title), or fails after 30 s.
launch() {
  local home=$1 line started
  started=$EPOCHREALTIME
  exec {glinta_out}< <(exec env XDG_CONFIG_HOME="$home/config" XDG_DATA_HOME="$home/data" \
    XDG_RUNTIME_DIR="$home/run" QT_QPA_PLATFORM=xcb \
    QT_LOGGING_RULES="com.nordvik.glinta.App.debug=true" "$glinta" 2>&1)
  glinta_pid=$!
  pids+=("$glinta_pid")
  while IFS= read -r -t 30 -u "$glinta_out" line; do
    if [[ $line == *"First title shown"* ]]; then
      launch_ms=$(awk -v a="$started" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.1f", (b - a) * 1000 }')
      # Keep reading its output so it never blocks on a full pipe.
      cat <&"$glinta_out" >"$home/glinta.log" &
      pids+=("$!")
      exec {glinta_out}<&-
      return 0
    fi
  done
  echo "run-program-benchmarks: glinta showed no title within 30 s" >&2
  return 1
}

stop_glinta() {
  kill "$glinta_pid" 2>/dev/null || true
  while kill -0 "$glinta_pid" 2>/dev/null; do sleep 0.05; done
}

cpu_seconds() { # cpu_seconds PID: user + system time so far, from /proc/PID/stat
  local stat
  read -r stat <"/proc/$1/stat"
  stat=${stat##*) }
  read -r -a fields <<<"$stat"
  # After "comm)", field 14 (utime) is at index 11 and field 15 (stime) at 12.
  awk -v u="${fields[11]}" -v s="${fields[12]}" -v t="$ticks_per_second" 'BEGIN { printf "%.3f", (u + s) / t }'
}
memory_mib() { # memory_mib PID FIELD: VmHWM or VmRSS in MiB
  awk -v f="$2:" '$1 == f { printf "%.1f", $2 / 1024 }' "/proc/$1/status"
}
# memory_report PID LINES: where the process's resident memory is, by mapping (the largest LINES) and by
# kind of mapping, and its totals.
memory_report() {
  say "glinta: where the resident memory is (MiB by mapping, largest first; [anon] is the heap and the like)"
  awk '/^[0-9a-f]+-[0-9a-f]+ / { name = NF >= 6 ? $6 : "[anon]"; sub(".*/", "", name) }
       /^Rss:/ { rss[name] += $2 } END { for (n in rss) printf "%8.1f %s\n", rss[n] / 1024, n }' \
    "/proc/$1/smaps" | sort -rn | head -n "$2"
  say "glinta: resident MiB by kind of mapping: $(awk '/^[0-9a-f]+-[0-9a-f]+ / { kind = (NF >= 6 && $6 ~ /^\//) ? "file " $2 : "anon " $2 }
       /^Rss:/ { rss[kind] += $2 } END { for (k in rss) printf "%s %.1f  ", k, rss[k] / 1024 }' "/proc/$1/smaps")"
  say "glinta: $(awk '$1 ~ /^(Rss|Pss|Anonymous|Shared_Clean|Private_Clean|Private_Dirty):$/ {
    printf "%s %.1f MiB  ", $1, $2 / 1024 }' "/proc/$1/smaps_rollup")"
}
subtract() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a - b }'; }
median() { sort -n | awk '{ v[NR] = $1 } END { if (NR % 2) print v[(NR + 1) / 2]; else printf "%.1f\n", (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

say "# Glinta program benchmarks, $(date -u +%Y-%m-%d), $(nproc) cores, $(sed -n 's/^PRETTY_NAME="\(.*\)"$/\1/p' /etc/os-release)"
# Other work on the machine moves every figure; note how busy it was.
say "load average at start: $(cut -d' ' -f1-3 /proc/loadavg)"

if wanted micro; then
  say
  say "## In-process (bench_program, platform xcb under Xvfb, glinta-sim over plain HTTP)"
  QT_QPA_PLATFORM=xcb "$bench_program" 2>/dev/null
  say
  say "## In-process (bench_program, platform offscreen)"
  QT_QPA_PLATFORM=offscreen "$bench_program" 2>/dev/null
fi

"$sim" --save-demo-password >/dev/null

if wanted startup; then
  say
  say "## Start-up: exec to the first title from a reading (TLS, saved e-mail, 1 cold run dropped)"
  start_sim startup
  make_profile startup startup
  times=()
  for ((run = 0; run <= startup_runs; run++)); do
    launch "$profile"
    stop_glinta
    ((run == 0)) || times+=("$launch_ms")
  done
  say "runs_ms: ${times[*]}"
  say "median_ms: $(printf '%s\n' "${times[@]}" | median)"
fi

if wanted npm-cycle && [[ -n $npm_client ]]; then
  say
  say "## npm client: one read (graph request, parse, mapping) back to back, plain HTTP like bench_program"
  start_sim npm-cycle plain
  LLU_CLIENT_DIR=$npm_client LLU_BASE_URL="${sim_url%/}/eu" LLU_EMAIL=$demo_email \
    LLU_PASSWORD=$demo_password NODE_EXTRA_CA_CERTS="$work/cert.pem" CYCLES=200 \
    node "$repo/bench/compare/llu-client-bench.mjs" cycle
fi

if wanted idle; then
  say
  say "## Idle: signed in over TLS, panel closed, ${idle_seconds} s"
  start_sim idle-glinta
  glinta_sim_url=$sim_url
  make_profile idle idle-glinta
  # A first launch of a profile is a new build's first launch; the measured one is an ordinary one.
  launch "$profile"
  stop_glinta
  sim_reset "$glinta_sim_url"
  launch "$profile"
  glinta_cpu0=$(cpu_seconds "$glinta_pid")
  say "glinta: signed in and showing a title after ${launch_ms} ms and ${glinta_cpu0} s of CPU"
  if [[ -n $npm_client ]]; then
    start_sim idle-npm
    npm_sim_url=$sim_url
    exec {npm_out}< <(LLU_CLIENT_DIR=$npm_client LLU_BASE_URL="${npm_sim_url%/}/eu" LLU_EMAIL=$demo_email \
      LLU_PASSWORD=$demo_password NODE_EXTRA_CA_CERTS="$work/cert.pem" \
      exec node "$repo/bench/compare/llu-client-bench.mjs" idle 2>&1)
    npm_pid=$!
    pids+=("$npm_pid")
    IFS= read -r -t 30 -u "$npm_out" line || true
    [[ $line == ready* ]] || { echo "run-program-benchmarks: the npm client did not sign in: $line" >&2 && exit 1; }
    cat <&"$npm_out" >"$work/npm.log" &
    pids+=("$!")
    npm_cpu0=$(cpu_seconds "$npm_pid")
  fi
  sleep "$idle_seconds"
  say "glinta: cpu_s=$(subtract "$(cpu_seconds "$glinta_pid")" "$glinta_cpu0") peak_MiB=$(memory_mib "$glinta_pid" VmHWM)" \
    "final_rss_MiB=$(memory_mib "$glinta_pid" VmRSS) connections=$(sim_connections "$glinta_sim_url")"
  say "glinta sim: $(sim_stats "$glinta_sim_url")"
  memory_report "$glinta_pid" 60
  if [[ -n $npm_client ]]; then
    say "npm client: cpu_s=$(subtract "$(cpu_seconds "$npm_pid")" "$npm_cpu0") peak_MiB=$(memory_mib "$npm_pid" VmHWM)" \
      "final_rss_MiB=$(memory_mib "$npm_pid" VmRSS) connections=$(sim_connections "$npm_sim_url")"
    say "npm sim: $(sim_stats "$npm_sim_url")"
    [[ ! -s $work/npm.log ]] || { say "npm client said:" && cat "$work/npm.log"; }
  fi
  stop_glinta
fi

# --- the windows a new user meets -------------------------------------------------------------------

# Glinta's viewable windows, one a line: "id x y width height title".
glinta_windows() {
  local id info
  for id in $(xdotool search --all --onlyvisible --pid "$glinta_pid" --classname '^glinta$' 2>/dev/null); do
    info=$(xwininfo -id "$id" 2>/dev/null) || continue
    [[ $info == *"Map State: IsViewable"* ]] || continue
    awk -v id="$id" '/^xwininfo: Window id:/ { title = $0; sub(/^[^"]*"?/, "", title); sub(/"$/, "", title) }
      /Absolute upper-left X:/ { x = $NF } /Absolute upper-left Y:/ { y = $NF }
      /^ *Width:/ { w = $NF } /^ *Height:/ { h = $NF } END { print id, x, y, w, h, title }' <<<"$info"
  done
}
# Sets window to "id x y width height" of the first of Glinta's windows the awk CONDITION picks (fields
# $2-$5 are x y width height, title the rest); fails when there is none.
find_window() {
  window=$(glinta_windows | awk '{ title = ""; for (i = 6; i <= NF; i++) title = title (i > 6 ? " " : "") $i }
    '"$1"' { print $1, $2, $3, $4, $5; exit }')
  [[ -n $window ]]
}
# The windows the part looks for, as awk conditions. The tray icon, the panel and its menus are all
# called "Glinta"; the panel is the first to show that is larger than an icon.
# shellcheck disable=SC2016 # the fields are awk's
tray_icon='$4 == $5 && $4 <= 64' \
  panel='title == "Glinta" && $4 > 300 && $5 > 64' \
  sign_in_window='title ~ /^Sign In to Glinta/' \
  settings_window='title ~ /^Glinta Settings/'

# Where the buttons the part clicks are, from the panel's corners (Xvfb at 96 dpi, the session's fonts).
prompt_sign_in_x=145
prompt_sign_in_from_bottom=61
gear_from_right=27
gear_from_bottom=28

# The files a process has mapped, one a line.
mapped_files() { awk '$6 ~ /^\// { print $6 }' "/proc/$1/maps" | sort -u; }

step=0
# shoot NAME: with --shots, a picture of the screen for that step.
shoot() {
  [[ -n $shots ]] || return 0
  step=$((step + 1))
  "$shot" "$shots/$(printf %02d "$step")-$1.png" || echo "run-program-benchmarks: glinta-shot failed" >&2
}
windows_failed() {
  shoot failed
  echo "run-program-benchmarks: windows: $*" >&2
  say "glinta's windows now (id x y width height title):"
  glinta_windows >&2
  [[ ! -s $work/windows-glinta.log ]] || { echo "glinta's output:" >&2 && tail -n 20 "$work/windows-glinta.log" >&2; }
  exit 1
}
# await_window CONDITION WHAT [gone]: waits up to 20 s for a window the condition picks (or for there to
# be none), failing clearly when it does not come (or go).
await_window() {
  local deadline=$((SECONDS + 20))
  while if [[ ${3:-} == gone ]]; then find_window "$1"; else ! find_window "$1"; fi; do
    kill -0 "$glinta_pid" 2>/dev/null || windows_failed "glinta ended while waiting for $2"
    ((SECONDS < deadline)) || windows_failed "$2 did not happen within 20 s"
    sleep 0.2
  done
}
# click X Y: a click of the first button there, the pointer left where it was.
click() { xdotool mousemove --sync "$1" "$2" click 1 mousemove restore; }
click_tray_icon() {
  local id x y w h
  find_window "$tray_icon" || windows_failed "no tray icon of glinta's to click"
  read -r id x y w h <<<"$window"
  # The panel does not reopen within moments of closing, as a second click on the icon closes it.
  sleep 0.5
  click $((x + w / 2)) $((y + h / 2))
}

if wanted windows; then
  say
  say "## Windows: a new user signs in, opens and closes the panel and Settings, then 60 s idle"
  # A new user: no e-mail saved, nothing of Glinta's in the keyring; signing in stores the password.
  "$sim" --forget-demo-password >/dev/null
  start_sim windows
  make_profile windows windows signed-out
  env XDG_CONFIG_HOME="$profile/config" XDG_DATA_HOME="$profile/data" XDG_RUNTIME_DIR="$profile/run" \
    QT_QPA_PLATFORM=xcb QT_LOGGING_RULES="com.nordvik.glinta.App.debug=true" "$glinta" \
    >"$work/windows-glinta.log" 2>&1 &
  glinta_pid=$!
  pids+=("$glinta_pid")
  await_window "$tray_icon" "the tray icon showing"
  shoot tray
  mapped_files "$glinta_pid" >"$work/windows-mapped-at-start"

  click_tray_icon
  await_window "$panel" "the panel showing its sign-in prompt on a click on the tray icon"
  shoot prompt
  read -r id x y w h <<<"$window"
  # The prompt's buttons, Quit and then Sign In, sit in a row above its last line of small print.
  click $((x + prompt_sign_in_x)) $((y + h - prompt_sign_in_from_bottom))
  await_window "$sign_in_window" "the sign-in window opening on a click on the prompt's Sign In button"
  shoot sign-in
  read -r id x y w h <<<"$window"
  # The e-mail field has the focus; Return in a field does not sign in, so the button is tabbed to.
  xdotool windowfocus --sync "$id"
  xdotool type --delay 30 "$demo_email"
  xdotool key Tab
  xdotool type --delay 30 "$demo_password"
  xdotool key Tab space
  await_window "$sign_in_window" "the sign-in window closing after signing in" gone
  deadline=$((SECONDS + 20))
  until grep -q "First title shown" "$work/windows-glinta.log"; do
    ((SECONDS < deadline)) || windows_failed "no reading in the tray title within 20 s of signing in"
    sleep 0.2
  done
  shoot signed-in

  click_tray_icon
  await_window "$panel" "the panel opening on a click on the tray icon"
  sleep 1
  shoot panel
  xdotool key Escape
  await_window "$panel" "the panel closing on Escape" gone

  click_tray_icon
  await_window "$panel" "the panel opening again on a click on the tray icon"
  read -r id x y w h <<<"$window"
  # The gear is the last button of the row at the panel's foot.
  click $((x + w - gear_from_right)) $((y + h - gear_from_bottom))
  await_window "\$1 != $id && \$4 < 300 && \$5 > 64" "the gear's menu opening on a click on the gear"
  shoot gear-menu
  # Up from the top wraps to Quit; Settings is the item above it.
  xdotool key Up Up Return
  await_window "$settings_window" "the Settings window opening from the gear's menu"
  sleep 1
  shoot settings
  read -r id x y w h <<<"$window"
  xdotool windowfocus --sync "$id" key Escape
  await_window "$settings_window" "the Settings window closing on Escape" gone
  find_window "$panel" && windows_failed "the panel is still open"
  shoot closed

  sleep 60
  say "glinta: peak_MiB=$(memory_mib "$glinta_pid" VmHWM) final_rss_MiB=$(memory_mib "$glinta_pid" VmRSS)"
  memory_report "$glinta_pid" 30
  say "glinta: files mapped since the tray icon showed: $(mapped_files "$glinta_pid" |
    comm -13 "$work/windows-mapped-at-start" - | sed 's|.*/||' | tr '\n' ' ')"
  stop_glinta
fi
