#!/usr/bin/env bash
# Runs a command inside a private, throwaway desktop session: an X display (Xvfb), a session bus, an
# unlocked gnome-keyring, a system tray host (trayer) and a notification server (dunst). Nothing in it can reach the user's own
# display, bus, keyring or settings, and everything it starts is ended by process id when it exits,
# however it exits. The command's exit status becomes this script's.
#
#   scripts/headless-session.sh COMMAND [ARGS...]
#
# shellcheck disable=SC2317 # cleanup and the await conditions are only ever called indirectly
set -euo pipefail

readonly me=headless-session
readonly startup_timeout=20 # seconds each helper may take to come up (CI machines can be slow)
readonly helper_grace=5     # seconds a helper gets to exit on SIGTERM before SIGKILL
readonly command_grace=10   # the same for the command, which may have tests to wind down

usage() {
  echo "usage: scripts/headless-session.sh COMMAND [ARGS...]" >&2
  exit 2
}
[[ $# -ge 1 ]] || usage
[[ $1 == -h || $1 == --help ]] && usage

for tool in Xvfb xauth xdpyinfo xwininfo dbus-daemon dbus-send gnome-keyring-daemon secret-tool trayer dunst setsid timeout; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "$me: '$tool' is missing; scripts/deps.sh installs everything the session needs" >&2
    exit 1
  fi
done
if ! command -v -- "$1" >/dev/null 2>&1; then
  echo "$me: command not found: $1" >&2
  exit 127
fi

session_dir=""
command_pid=""
command_signal=TERM # what the command gets if we go down before it ends
caught_signal=""
helper_pids=()
declare -A helper_name=() helper_log=()

say() { echo "$me: $*" >&2; }

# True while the process runs. A child that has exited stays a zombie until we reap it, and kill -0
# still succeeds on a zombie, so look at its state instead.
alive() {
  local stat
  { read -r stat <"/proc/$1/stat"; } 2>/dev/null || return 1
  stat=${stat##*) }
  [[ ${stat%% *} != Z ]]
}

# Prints the live processes of a process group, one id a line.
group_members() {
  local pgid=$1 file stat state pgrp
  for file in /proc/[0-9]*/stat; do
    { read -r stat <"$file"; } 2>/dev/null || continue
    stat=${stat##*) } # "state ppid pgrp ..."; the command name before it may hold anything
    state=${stat%% *}
    stat=${stat#* }
    stat=${stat#* }
    pgrp=${stat%% *}
    if [[ $pgrp == "$pgid" && $state != Z ]]; then
      file=${file#/proc/}
      echo "${file%/stat}"
    fi
  done
}

# Every helper and the command run in a process group of their own (setsid), so that whatever they
# start themselves goes down with them, and so that a Ctrl-C in the terminal reaches only this script,
# which then ends things in order: the command first, then the session under it.
stop_group() { # stop_group PGID SIGNAL GRACE_SECONDS WHAT
  local pgid=$1 signal=$2 tries=$(($3 * 10))
  kill -s "$signal" -- "-$pgid" 2>/dev/null || kill -s "$signal" "$pgid" 2>/dev/null || true
  while [[ -n $(group_members "$pgid") ]] && ((tries-- > 0)); do
    sleep 0.1
  done
  if [[ -n $(group_members "$pgid") ]]; then
    say "$4 (process group $pgid) outlived SIG$signal by $3 s; killing it"
    kill -s KILL -- "-$pgid" 2>/dev/null || true
  fi
  wait "$pgid" 2>/dev/null || true
}

show_log() { # show_log PID
  local log=${helper_log[$1]}
  if [[ -s $log ]]; then
    say "last output of ${helper_name[$1]}:"
    tail -n 20 "$log" | sed 's/^/    /' >&2
  fi
}

describe_exit() { # describe_exit STATUS
  if (($1 > 128)); then echo "was killed by signal $(($1 - 128))"; else echo "exited with status $1"; fi
}

cleanup() {
  local status=$?
  set +e
  # Teardown is bounded by the grace periods; a second Ctrl-C must not leave half of it running.
  trap '' INT TERM HUP
  trap - EXIT

  if [[ -n $command_pid ]]; then
    if alive "$command_pid"; then
      stop_group "$command_pid" "$command_signal" "$command_grace" "the command"
    else
      local leftovers
      leftovers=$(group_members "$command_pid" | tr '\n' ' ')
      if [[ -n $leftovers ]]; then
        say "the command left processes running (pids ${leftovers% }); ending them"
        stop_group "$command_pid" TERM "$helper_grace" "what the command left"
      fi
    fi
  fi
  local i
  for ((i = ${#helper_pids[@]} - 1; i >= 0; i--)); do
    stop_group "${helper_pids[i]}" TERM "$helper_grace" "${helper_name[${helper_pids[i]}]}"
  done
  if [[ -n $session_dir ]]; then
    # Tests may leave read-only directories behind; without write access rm could not empty them.
    chmod -R u+rwX -- "$session_dir" 2>/dev/null
    rm -rf -- "$session_dir"
  fi
  # Dying of the signal, rather than exiting with 128+n, lets a calling shell stop as well (a loop
  # over test runs ends on Ctrl-C instead of starting the next one).
  if [[ -n $caught_signal ]]; then
    trap - "$caught_signal"
    kill -s "$caught_signal" $$
  fi
  exit "$status"
}

on_signal() {
  caught_signal=$1
  command_signal=$1
  exit "$2"
}

trap cleanup EXIT
trap 'on_signal INT 130' INT
trap 'on_signal TERM 143' TERM
trap 'on_signal HUP 129' HUP

start_helper() { # start_helper NAME COMMAND... (stdin: whatever the caller redirects)
  local name=$1
  shift
  setsid "$@" <&0 >"$session_dir/log/$name.log" 2>&1 &
  helper_pids+=("$!")
  helper_name[$!]=$name
  helper_log[$!]="$session_dir/log/$name.log"
  last_helper=$!
}

helper_failed() { # helper_failed PID: report a helper that exited during startup, then fail
  local status=0
  wait "$1" || status=$?
  say "${helper_name[$1]} (pid $1) $(describe_exit "$status") while starting"
  show_log "$1"
  exit 1
}

# await PID WHAT CONDITION...: polls CONDITION until it holds, failing early if the helper dies.
await() {
  local pid=$1 what=$2
  shift 2
  local deadline=$((SECONDS + startup_timeout))
  until "$@" >/dev/null 2>&1; do
    alive "$pid" || helper_failed "$pid"
    if ((SECONDS >= deadline)); then
      say "${helper_name[$pid]} (pid $pid) is running, but $what did not happen within ${startup_timeout} s"
      show_log "$pid"
      exit 1
    fi
    sleep 0.1
  done
}

# --- a private home ---------------------------------------------------------------------------------

session_dir=$(mktemp -d -t glinta-session.XXXXXXXX)
mkdir -p "$session_dir/log" "$session_dir/home"
mkdir -m 0700 "$session_dir/run"

export HOME="$session_dir/home"
export XDG_CONFIG_HOME="$HOME/.config"
export XDG_DATA_HOME="$HOME/.local/share"
export XDG_CACHE_HOME="$HOME/.cache"
export XDG_STATE_HOME="$HOME/.local/state"
export XDG_RUNTIME_DIR="$session_dir/run"
mkdir -p "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_STATE_HOME"

# Anything that points at the user's real session, or names a desktop, goes: QtKeychain picks KWallet
# over the Secret Service on a KDE desktop, and a platform theme changes fonts and palettes.
unset WAYLAND_DISPLAY DBUS_SESSION_BUS_ADDRESS GNOME_KEYRING_CONTROL SESSION_MANAGER \
  XDG_CURRENT_DESKTOP XDG_SESSION_DESKTOP DESKTOP_SESSION KDE_FULL_SESSION KDE_SESSION_VERSION \
  QT_QPA_PLATFORMTHEME
export XDG_SESSION_TYPE=x11
# A desktop session has a UTF-8 locale; without one Qt warns on every start and falls back itself.
if [[ -z ${LC_ALL:-}${LC_CTYPE:-}${LANG:-} ]]; then
  export LANG=C.UTF-8
fi

# --- X display ----------------------------------------------------------------------------------------

# Xvfb picks a free display number itself (-displayfd) and writes it once it accepts connections. The
# server takes every cookie in its auth file whatever the display number, so the client entry for the
# real number can be added afterwards. Cookies go through stdin to stay out of the process list.
export XAUTHORITY="$session_dir/Xauthority"
cookie=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
: >"$XAUTHORITY"
echo "add :0 MIT-MAGIC-COOKIE-1 $cookie" | xauth -q -f "$XAUTHORITY" source -

exec {display_fd}>"$session_dir/display"
start_helper Xvfb Xvfb -displayfd "$display_fd" -auth "$XAUTHORITY" -nolisten tcp -noreset \
  -screen 0 1280x800x24 -dpi 96 </dev/null
exec {display_fd}>&-
xvfb_pid=$last_helper

await "$xvfb_pid" "choosing a display" test -s "$session_dir/display"
display_number=$(tr -dc '0-9' <"$session_dir/display")
echo "add :$display_number MIT-MAGIC-COOKIE-1 $cookie" | xauth -q -f "$XAUTHORITY" source -
unset cookie
export DISPLAY=":$display_number"
await "$xvfb_pid" "answering on $DISPLAY" xdpyinfo

# --- session bus ------------------------------------------------------------------------------------

# Our own configuration rather than --session: it has no service directories, so the bus cannot
# activate daemons of its own (a second keyring, dconf, the accessibility bus) that this script did not
# start and could not end. Its socket lives in the private runtime directory.
cat >"$session_dir/bus.conf" <<EOF
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=$XDG_RUNTIME_DIR/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
EOF

exec {bus_fd}>"$session_dir/bus-address"
start_helper dbus-daemon dbus-daemon --nofork --nopidfile --config-file="$session_dir/bus.conf" \
  --print-address="$bus_fd" </dev/null
exec {bus_fd}>&-
bus_pid=$last_helper

await "$bus_pid" "listening" test -s "$session_dir/bus-address"
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$session_dir/bus-address")
export DBUS_SESSION_BUS_ADDRESS

# --- keyring ----------------------------------------------------------------------------------------

# Unlocking with a non-empty password makes gnome-keyring create the "login" collection, unlocked and
# the default, without a prompt. Nobody needs the password again, so it is random and only ever piped.
keyring_password=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
start_helper gnome-keyring-daemon gnome-keyring-daemon --foreground --unlock --components=secrets \
  < <(printf '%s' "$keyring_password")
unset keyring_password
keyring_pid=$last_helper

bus_call() { # bus_call DESTINATION PATH METHOD ARGS...
  local destination=$1 path=$2 method=$3
  shift 3
  timeout 10 dbus-send --session --print-reply --dest="$destination" "$path" "$method" "$@"
}

owns_secret_service() {
  local reply
  reply=$(bus_call org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.GetConnectionUnixProcessID string:org.freedesktop.secrets) || return 1
  [[ $reply =~ uint32\ ([0-9]+) && ${BASH_REMATCH[1]} == "$keyring_pid" ]]
}
await "$keyring_pid" "taking the Secret Service name on the bus" owns_secret_service

keyring_broken() {
  say "the keyring does not work: $*"
  show_log "$keyring_pid"
  exit 1
}

locked=$(bus_call org.freedesktop.secrets /org/freedesktop/secrets/collection/login \
  org.freedesktop.DBus.Properties.Get string:org.freedesktop.Secret.Collection string:Locked 2>&1) ||
  keyring_broken "gnome-keyring has no \"login\" collection ($locked)"
[[ $locked == *"boolean false"* ]] || keyring_broken "the \"login\" collection is locked"

# A full round trip through libsecret, the way the application goes. Each step has a time-out because
# a keyring that wants to prompt never answers.
probe="probe-$$-$RANDOM"
printf '%s' "$probe" | timeout 10 secret-tool store --label="headless session probe" glinta-session probe ||
  keyring_broken "secret-tool store failed"
found=$(timeout 10 secret-tool lookup glinta-session probe) || keyring_broken "secret-tool lookup found nothing"
[[ $found == "$probe" ]] || keyring_broken "secret-tool lookup returned something else than was stored"
timeout 10 secret-tool clear glinta-session probe || keyring_broken "secret-tool clear failed"
if timeout 10 secret-tool lookup glinta-session probe >/dev/null; then
  keyring_broken "secret-tool clear left the item in place"
fi
unset probe found

# --- system tray --------------------------------------------------------------------------------------

start_helper trayer trayer --edge top --align right --widthtype request --height 24 \
  --transparent false --expand true --SetDockType true </dev/null
trayer_pid=$last_helper

# No tool at hand can ask who owns the tray selection; trayer takes it a few milliseconds after it shows
# its panel, long before a program started next has connected to the display.
panel_shown() { [[ $(xwininfo -name panel 2>/dev/null) == *IsViewable* ]]; }
await "$trayer_pid" "showing its panel" panel_shown

# --- notifications -------------------------------------------------------------------------------

# Bottom right, away from the tray at the top that tests and the demo click.
printf '[global]\norigin = bottom-right\noffset = 10x10\n' >"$session_dir/dunstrc"
start_helper dunst dunst -config "$session_dir/dunstrc" </dev/null
notifications_up() {
  [[ $(timeout 10 dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications) == *"boolean true"* ]]
}
await "$last_helper" "owning the notification service" notifications_up

# --- the command ------------------------------------------------------------------------------------

# setsid puts the command in a group of its own (see stop_group); a background job started without job
# control ignores SIGINT and SIGQUIT, which env hands back. An explicit redirect keeps the caller's
# stdin, which a background job would otherwise lose, where there is a stdin at all.
if { true <&0; } 2>/dev/null; then
  setsid env --default-signal=INT,QUIT -- "$@" <&0 &
else
  setsid env --default-signal=INT,QUIT -- "$@" &
fi
command_pid=$!

watching=("${helper_pids[@]}")
while :; do
  finished=""
  status=0
  wait -n -p finished "$command_pid" "${watching[@]}" || status=$?
  [[ $finished == "$command_pid" ]] && break
  if [[ -z $finished ]]; then
    say "lost track of the command (wait returned $status)"
    break
  fi
  # A helper went down under the running command: say which, so the failures that follow make sense.
  say "${helper_name[$finished]} (pid $finished) $(describe_exit "$status") while the command was running"
  show_log "$finished"
  remaining=()
  for pid in "${watching[@]}"; do
    [[ $pid == "$finished" ]] || remaining+=("$pid")
  done
  watching=("${remaining[@]}")
done
exit "$status"
