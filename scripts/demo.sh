#!/usr/bin/env bash
# Shows Glinta working without a LibreLinkUp account: starts glinta-sim, the simulated service, and the
# development build's glinta pointed at it, signed in to the demo account with a private profile. Prints
# each new tray title (through glinta-widget --status-line), the published snapshot's path and, where a
# tray icon shows, screenshots of the tray and of the open panel. Ctrl-C ends it. The simulated reading
# dips below 70 mg/dL about two minutes in and is back up after twenty, so a Low alert shows by itself.
#
#   scripts/demo.sh BUILD_DIR
#
# BUILD_DIR is a build configured with -DGLINTA_DEV_SERVICE_ADDRESS=ON (./run.sh --demo makes one).
# Without an X display (DISPLAY unset) everything runs inside scripts/headless-session.sh: a virtual
# display with a tray, its own session bus and keyring.
#
#   GLINTA_DEMO_OUTPUT   where screenshots, logs and the final snapshot go (default: build/demo-output)
#   GLINTA_DEMO_SECONDS  end by itself this many seconds after the start instead of waiting for Ctrl-C
#   GLINTA_DEMO_SIM_OPTIONS  more glinta-sim options, such as "--phone-zone Europe/Berlin --log-requests"
#
# The user's own settings, snapshot and keyring item are never touched: the configuration, data, cache
# and state directories are a throwaway one, and the keyring item is the demo account's own.
#
# shellcheck disable=SC2317 # cleanup and the await conditions are only ever called indirectly
set -euo pipefail

readonly me=demo
readonly startup_timeout=30 # seconds glinta-sim and the keyring get to come up
readonly publish_timeout=90 # seconds glinta gets to sign in and publish (a sanitizer build is slow)
readonly tray_timeout=20    # seconds the tray icon and the panel get to show
readonly stop_grace=10      # seconds a program gets to exit on SIGTERM before SIGKILL
readonly demo_email=ann@example.com

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { echo "$me: $*"; }
complain() { echo "$me: $*" >&2; }

usage() {
  echo "usage: scripts/demo.sh BUILD_DIR   (a build with -DGLINTA_DEV_SERVICE_ADDRESS=ON)" >&2
  exit 2
}
[[ $# -eq 1 && $1 != -h && $1 != --help ]] || usage

if [[ ! -d $1 ]]; then
  complain "no build directory at $1"
  exit 1
fi
build=$(cd "$1" && pwd)
if ! grep -qx 'GLINTA_DEV_SERVICE_ADDRESS:BOOL=ON' "$build/CMakeCache.txt" 2>/dev/null; then
  complain "$build is not a development build: the demo needs -DGLINTA_DEV_SERVICE_ADDRESS=ON in its" \
    "CMakeCache.txt, so that glinta can be pointed at the simulated service (./run.sh --demo builds one)"
  exit 1
fi
glinta=$build/src/app/glinta
widget=$build/src/widget/glinta-widget
sim=$build/tools/sim/glinta-sim
shot=$build/tools/shot/glinta-shot
for program in "$glinta" "$widget" "$sim" "$shot"; do
  if [[ ! -x $program ]]; then
    complain "$program is missing; build it with" \
      "cmake --build $build --target glinta glinta-widget glinta-sim glinta-shot"
    exit 1
  fi
done

if [[ -n ${GLINTA_DEMO_SECONDS:-} && ! $GLINTA_DEMO_SECONDS =~ ^[1-9][0-9]*$ ]]; then
  complain "GLINTA_DEMO_SECONDS must be a whole number of seconds, not '$GLINTA_DEMO_SECONDS'"
  exit 2
fi

# Absolute, so that it means the same inside the virtual session, which moves HOME.
output=${GLINTA_DEMO_OUTPUT:-$root/build/demo-output}
mkdir -p -- "$output"
output=$(cd "$output" && pwd)
export GLINTA_DEMO_OUTPUT=$output

# --- without a display: the same demo inside a virtual session -------------------------------------

if [[ -z ${DISPLAY:-} ]]; then
  if [[ -n ${GLINTA_DEMO_IN_SESSION:-} ]]; then
    complain "the virtual session provided no display"
    exit 1
  fi
  say "no X display here: running the demo in a virtual one (Xvfb, trayer, its own bus and keyring)"
  # Not exec: the session dies of the signal that ended it, while the demo counts Ctrl-C as its normal
  # end. The session runs in a group of its own (a background job would ignore SIGINT for good), so a
  # Ctrl-C in the terminal reaches only this script, which hands it on once.
  stopping=""
  forward() {
    [[ -n $stopping ]] && return
    stopping=$1
    kill -s "$1" "$session_pid" 2>/dev/null || true
  }
  trap 'forward INT' INT
  trap 'forward TERM' TERM
  trap 'forward HUP' HUP
  GLINTA_DEMO_IN_SESSION=1 setsid env --default-signal=INT,QUIT -- \
    "$root/scripts/headless-session.sh" "$root/scripts/demo.sh" "$build" &
  session_pid=$!
  status=0
  # A trapped signal interrupts wait; wait again until the session has wound down.
  while :; do
    status=0
    wait "$session_pid" || status=$?
    [[ -d /proc/$session_pid ]] || break
  done
  if [[ -n $stopping ]] && ((status == 0 || status > 128)); then
    exit 0
  fi
  exit "$status"
fi

# --- the demo -----------------------------------------------------------------------------------------

for tool in xdotool xwininfo xdpyinfo mkfifo timeout; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    complain "'$tool' is missing; scripts/deps.sh installs everything the demo needs"
    exit 1
  fi
done

# Glinta's tray icon and popup are X windows, whatever platform the environment may ask Qt for.
export QT_QPA_PLATFORM=xcb
# A sanitizer build (build/test) would report Qt's and the keyring library's leftovers at every exit.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0}

profile=""
status=0
password_saved=false
sim_pid="" widget_pid="" reader_pid="" glinta_pid=""
snapshot=""

# True while the process runs; an exited child stays a zombie until reaped, and kill -0 succeeds on one.
alive() {
  local stat
  [[ -n $1 ]] || return 1
  { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 1
  stat=${stat##*) }
  [[ ${stat%% *} != Z ]]
}

stop() { # stop PID NAME
  local pid=$1 tries=$((stop_grace * 10))
  alive "$pid" || {
    wait "$pid" 2>/dev/null || true
    return 0
  }
  kill -s TERM "$pid" 2>/dev/null || true
  while alive "$pid" && ((tries-- > 0)); do
    sleep 0.1
  done
  if alive "$pid"; then
    complain "$2 (pid $pid) outlived SIGTERM by $stop_grace s; killing it"
    kill -s KILL "$pid" 2>/dev/null || true
  fi
  wait "$pid" 2>/dev/null || true
}

show_log() { # show_log NAME
  if [[ -s $output/$1.log ]]; then
    complain "last output of $1 (all of it in $output/$1.log):"
    tail -n 20 "$output/$1.log" | sed 's/^/    /' >&2
  fi
}

fail() {
  complain "$*"
  status=1
  exit 1
}

cleanup() {
  local exit_status=$?
  set +e
  # Teardown is bounded by the grace periods; a second Ctrl-C must not leave half of it running.
  trap '' INT TERM HUP
  trap - EXIT
  ((status == 0)) && status=$exit_status
  echo
  say "stopping"
  # The snapshot lives in the private profile, which goes next.
  if [[ -n $snapshot && -f $snapshot ]]; then
    cp -- "$snapshot" "$output/glucose-snapshot.json" &&
      say "the last snapshot is kept as $output/glucose-snapshot.json"
  fi
  [[ -n $glinta_pid ]] && stop "$glinta_pid" glinta
  [[ -n $widget_pid ]] && stop "$widget_pid" glinta-widget
  [[ -n $reader_pid ]] && stop "$reader_pid" "the title printer"
  [[ -n $sim_pid ]] && stop "$sim_pid" glinta-sim
  if [[ $password_saved == true ]]; then
    timeout 40 "$sim" --forget-demo-password >/dev/null ||
      complain "could not remove the keyring item of $demo_email;" \
        "remove it with: $sim --forget-demo-password"
  fi
  [[ -n $profile ]] && rm -rf -- "$profile"
  exit "$status"
}

# Ctrl-C, or a session that ends, is the demo's normal end.
on_signal() {
  exit 0
}

trap cleanup EXIT
trap on_signal INT TERM HUP

# await TIMEOUT WHAT CONDITION...: polls CONDITION until it holds; fails when a program of the demo has
# ended or the time runs out.
await() {
  local deadline=$((SECONDS + $1)) what=$2
  shift 2
  until "$@" >/dev/null 2>&1; do
    if [[ -n $sim_pid ]] && ! alive "$sim_pid"; then
      show_log glinta-sim
      fail "glinta-sim ended while waiting for $what"
    fi
    if [[ -n $glinta_pid ]] && ! alive "$glinta_pid"; then
      show_log glinta
      fail "glinta ended while waiting for $what"
    fi
    if [[ -n $widget_pid ]] && ! alive "$widget_pid"; then
      show_log glinta-widget
      fail "glinta-widget ended while waiting for $what"
    fi
    if ((SECONDS >= deadline)); then
      [[ -n $glinta_pid ]] && show_log glinta
      fail "$what did not happen within $1 s"
    fi
    sleep 0.2
  done
}

rm -f -- "$output"/{tray.png,panel.png,glucose-snapshot.json,glinta.log,glinta-sim.log,glinta-widget.log}

# --- a private profile ----------------------------------------------------------------------------

# HOME stays: on a desktop the keyring daemon and the session bus belong to it. Glinta keeps everything
# else under the XDG directories, and its single-instance lock is keyed by the configuration directory,
# so the demo runs beside the user's own Glinta without meeting its settings or snapshot.
profile=$(mktemp -d -t glinta-demo.XXXXXXXX)
export XDG_CONFIG_HOME=$profile/config
export XDG_DATA_HOME=$profile/data
export XDG_CACHE_HOME=$profile/cache
export XDG_STATE_HOME=$profile/state
mkdir -p "$XDG_CONFIG_HOME/nordvik.com" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_STATE_HOME"
say "private profile: $profile (removed at the end)"

# --- the simulated service ------------------------------------------------------------------------

read -ra sim_options <<<"${GLINTA_DEMO_SIM_OPTIONS:-}"
# --early-low: the reading falls under 70 mg/dL within two minutes, so the demo shows a Low alert.
"$sim" --port 0 --early-low --address-file "$XDG_CONFIG_HOME/nordvik.com/service-address.json" \
  "${sim_options[@]}" >"$output/glinta-sim.log" 2>&1 </dev/null &
sim_pid=$!
await "$startup_timeout" "glinta-sim listening" grep -q '^glinta-sim listening on ' "$output/glinta-sim.log"
sim_url=$(sed -n 's/^glinta-sim listening on //p' "$output/glinta-sim.log" | head -n 1)
say "glinta-sim (pid $sim_pid) serves the demo account $demo_email at $sim_url"

# Signed in as the demo account: its e-mail in the preferences, its password in the keyring, both as
# glinta itself would have stored them after a sign-in.
printf '[General]\nlibreLinkUpEmail=%s\n' "$demo_email" >"$XDG_CONFIG_HOME/nordvik.com/glinta.conf"
password_saved=true # a refused save may still have left an item; the clean-up removes it either way
if ! timeout 40 "$sim" --save-demo-password >>"$output/glinta-sim.log" 2>&1; then
  show_log glinta-sim
  fail "the keyring did not take the demo account's password (is the desktop keyring locked or missing?)"
fi
say "the keyring holds the demo account's password (its own item, removed at the end)"

# --- the tray title, through the widget's status-line mode --------------------------------------------

titles=$profile/titles
mkfifo "$profile/titles.fifo"
# Every line the widget prints that differs from the one before: it repeats the title once a minute.
(
  last=""
  while IFS= read -r line; do
    if [[ $line != "$last" ]]; then
      echo "Title: $line"
      printf '%s\n' "$line" >>"$titles"
      last=$line
    fi
  done
) <"$profile/titles.fifo" &
reader_pid=$!
"$widget" --status-line=plain >"$profile/titles.fifo" 2>"$output/glinta-widget.log" </dev/null &
widget_pid=$!
say "glinta-widget --status-line (pid $widget_pid) prints each new title of the tray icon"

# --- glinta -------------------------------------------------------------------------------------------

"$glinta" >"$output/glinta.log" 2>&1 </dev/null &
glinta_pid=$!
say "glinta (pid $glinta_pid) started, signing in to the simulated service"

snapshot=$XDG_DATA_HOME/K3R8WQ5N2D.com.nordvik.glinta/glucose-snapshot.json
await "$publish_timeout" "glinta publishing a snapshot" test -s "$snapshot"
echo "Snapshot: $snapshot"
# The widget hears of the publish over the session bus; the title after "–" is the reading.
reading_title() { [[ -s $titles && $(tail -n 1 "$titles") != "–" ]]; }
await 20 "the reading in the tray title" reading_title

# --- screenshots ----------------------------------------------------------------------------------

# Glinta's own windows on screen, as "x y width height" lines: only this glinta's, not the user's.
demo_windows() {
  local id info x y w h
  for id in $(xdotool search --all --pid "$glinta_pid" --classname '^glinta$' 2>/dev/null); do
    info=$(xwininfo -id "$id" 2>/dev/null) || continue
    [[ $info == *"Map State: IsViewable"* ]] || continue
    x=$(sed -n 's/^ *Absolute upper-left X: *//p' <<<"$info")
    y=$(sed -n 's/^ *Absolute upper-left Y: *//p' <<<"$info")
    w=$(sed -n 's/^ *Width: *//p' <<<"$info")
    h=$(sed -n 's/^ *Height: *//p' <<<"$info")
    echo "$x $y $w $h"
  done
}

# The tray icon is a small square; the panel is the largest of the rest.
tray_icon=""
find_icon() {
  local x y w h
  while read -r x y w h; do
    if ((w == h && w > 8 && w <= 64)); then
      tray_icon="$x $y $w $h"
      return 0
    fi
  done < <(demo_windows)
  return 1
}
panel=""
find_panel() {
  local x y w h best=0
  panel=""
  while read -r x y w h; do
    if ((h > 100 && w * h > best)); then
      best=$((w * h))
      panel="$x $y $w $h"
    fi
  done < <(demo_windows)
  [[ -n $panel ]]
}

screen_w=0 screen_h=0
read -r screen_w screen_h < <(xdpyinfo 2>/dev/null |
  sed -n 's/^ *dimensions: *\([0-9]*\)x\([0-9]*\) pixels.*/\1 \2/p') || true

# shoot FILE LEFT TOP RIGHT BOTTOM ZOOM: the rectangle, kept on the screen.
shoot() {
  local left=$(($2 < 0 ? 0 : $2)) top=$(($3 < 0 ? 0 : $3))
  local right=$(($4 > screen_w ? screen_w : $4)) bottom=$(($5 > screen_h ? screen_h : $5))
  local said
  said=$("$shot" --crop "$left,$top,$((right - left)),$((bottom - top))" --zoom "$6" "$1" 2>&1) || {
    complain "$said"
    return 1
  }
}

take_screenshots() {
  local deadline=$((SECONDS + tray_timeout)) ix iy iw ih px py pw ph
  if ((screen_w == 0 || screen_h == 0)); then
    say "xdpyinfo does not tell the screen's size; no screenshots"
    return 0
  fi
  until find_icon; do
    if ((SECONDS >= deadline)) || ! alive "$glinta_pid"; then
      say "no tray icon of the demo appeared (a desktop without an XEmbed system tray?); no screenshots"
      return 0
    fi
    sleep 0.2
  done
  read -r ix iy iw ih <<<"$tray_icon"
  sleep 0.5 # the tray host paints its background after mapping the icon
  if ! shoot "$output/tray.png" $((ix - iw)) $((iy - ih / 4)) $((ix + 2 * iw)) $((iy + ih + ih / 4)) 4; then
    say "glinta-shot could not take the tray's picture; no screenshots"
    return 0
  fi
  echo "Screenshot of the tray: $output/tray.png"

  # Clicked as a user would; the pointer goes back to where it was.
  xdotool mousemove --sync $((ix + iw / 2)) $((iy + ih / 2)) click 1 mousemove restore >/dev/null 2>&1 ||
    true
  deadline=$((SECONDS + tray_timeout))
  until find_panel; do
    if ((SECONDS >= deadline)) || ! alive "$glinta_pid"; then
      say "the panel did not open on a click on the tray icon; no screenshot of it"
      return 0
    fi
    sleep 0.2
  done
  sleep 0.5 # its first paint
  if ! find_panel; then
    say "the panel closed again at once; no screenshot of it"
    return 0
  fi
  read -r px py pw ph <<<"$panel"
  # The panel and the icon it hangs from, with a margin.
  local left=$((px < ix ? px : ix)) top=$((py < iy ? py : iy))
  local right=$((px + pw > ix + iw ? px + pw : ix + iw)) bottom=$((py + ph > iy + ih ? py + ph : iy + ih))
  if shoot "$output/panel.png" $((left - 12)) $((top - 12)) $((right + 12)) $((bottom + 12)) 1; then
    echo "Screenshot of the open panel: $output/panel.png"
  else
    say "glinta-shot could not take the panel's picture"
  fi
}
take_screenshots

# --- running --------------------------------------------------------------------------------------

if [[ -n ${GLINTA_DEMO_SECONDS:-} ]]; then
  say "running; ends by itself $GLINTA_DEMO_SECONDS s after the start (GLINTA_DEMO_SECONDS), or on Ctrl-C"
else
  say "running; Ctrl-C ends it and everything it started"
fi
while :; do
  if ! alive "$glinta_pid"; then
    glinta_status=0
    wait "$glinta_pid" || glinta_status=$?
    glinta_pid=""
    if ((glinta_status == 0)); then
      say "glinta quit; the demo ends with it"
      exit 0
    fi
    show_log glinta
    fail "glinta ended with status $glinta_status"
  fi
  alive "$sim_pid" || {
    show_log glinta-sim
    fail "glinta-sim ended"
  }
  if [[ -n ${GLINTA_DEMO_SECONDS:-} ]] && ((SECONDS >= GLINTA_DEMO_SECONDS)); then
    exit 0
  fi
  sleep 0.2
done
