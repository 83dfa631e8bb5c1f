#!/usr/bin/env bash
# Runs one test in a throw-away desktop: its own HOME and XDG folders, its own session bus
# and, with --display, its own Xvfb and window manager, so tests never touch the user's
# session or each other (the program claims one bus name per session).
# With --sound it also gets a sound server of its own (scripts/test-services.sh), for tests
# that listen to what they play and must not hear other tests.
#   run-test.sh [--display WxH] [--monitor "NAME W/MMxH/MM+X+Y OUTPUT"]... [--tray] [--sound]
#               -- cmd…
set -u
size=""; tray=0; sound=0; monitors=()
while [ $# -gt 0 ]; do
    case "$1" in
    --display) size=$2; shift 2 ;;
    --monitor) monitors+=("$2"); shift 2 ;;
    --tray) tray=1; shift ;;
    --sound) sound=1; shift ;;
    --) shift; break ;;
    *) break ;;
    esac
done

tmp=$(mktemp -d /tmp/qmtest.XXXXXX)
export HOME=$tmp/home TMPDIR=$tmp/tmp XDG_RUNTIME_DIR=$tmp/run
export XDG_CONFIG_HOME=$HOME/.config XDG_DATA_HOME=$HOME/.local/share XDG_CACHE_HOME=$HOME/.cache
export XDG_STATE_HOME=$HOME/.local/state
mkdir -p "$TMPDIR" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME"
chmod 700 "$XDG_RUNTIME_DIR"
export OMP_THREAD_LIMIT=1 QT_QPA_PLATFORM=xcb
unset SESSION_MANAGER

pids=()
cleanup() {
    for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$tmp"
}
trap cleanup EXIT

wait_for() { # deadline of 20 s for a condition
    for _ in $(seq 400); do "$@" >/dev/null 2>&1 && return 0; sleep 0.05; done
    echo "run-test: timed out waiting for: $*" >&2
    return 1
}

if [ -n "$size" ]; then
    Xvfb -noreset -displayfd 3 -screen 0 "${size}x24" -nolisten tcp \
        3>"$tmp/display" 2>"$tmp/xvfb.log" &
    pids+=($!)
    wait_for test -s "$tmp/display" || { cat "$tmp/xvfb.log" >&2; exit 1; }
    export DISPLAY=:$(head -n1 "$tmp/display")
    wait_for xdpyinfo
    openbox --sm-disable >/dev/null 2>&1 &
    pids+=($!)
    # Without -noreset the server resets when xdpyinfo leaves, and a window manager that
    # connects during the reset gives up.
    wait_for sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"' || exit 1
    # The window manager resets RandR monitors when it starts, so declare them after it.
    for m in "${monitors[@]}"; do
        # shellcheck disable=SC2086
        xrandr --setmonitor $m || exit 1
    done
    if [ "$tray" = 1 ]; then
        trayer --edge top --align right --widthtype request --height 24 >/dev/null 2>&1 &
        pids+=($!)
        wait_for xdotool search --classname trayer || exit 1
    fi
else
    unset DISPLAY
fi

if [ "$sound" = 1 ]; then
    set -- bash "$(dirname "$0")/../scripts/test-services.sh" "$@"
fi
dbus-run-session -- "$@" 2> >(grep -v "Failed to set fd limit" >&2)
