#!/usr/bin/env bash
# Runs a command with a private keyring and sound server on the current session bus.
set -u
runtime=$(mktemp -d /tmp/qmservices.XXXXXX)
chmod 700 "$runtime"
export XDG_RUNTIME_DIR=$runtime
pids=()
cleanup() {
    for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
    wait 2>/dev/null
    rm -rf "$runtime"
}
trap cleanup EXIT

eval "$(echo -n ci-pass | gnome-keyring-daemon --unlock --components=secrets 2>/dev/null)" || true
[ -n "${GNOME_KEYRING_CONTROL:-}" ] && pids+=("$(pgrep -n gnome-keyring-d)")

# A sound server with two silent outputs. ci_sink is the default output: its monitor is the
# "system sound". Whatever plays into ci_voice comes out of ci_mic, the default input: a real
# source (a remap), not a monitor, so it counts as a microphone.
pulseaudio -n --daemonize=no --exit-idle-time=-1 --use-pid-file=no --log-target=stderr \
    -L module-native-protocol-unix \
    -L "module-null-sink sink_name=ci_sink" -L "module-null-sink sink_name=ci_voice" \
    -L "module-remap-source master=ci_voice.monitor source_name=ci_mic" 2>/dev/null &
pids+=($!)
export PULSE_SERVER=unix:$runtime/pulse/native
for _ in $(seq 100); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
pactl set-default-sink ci_sink 2>/dev/null
pactl set-default-source ci_mic 2>/dev/null
# Keep both outputs running in 10 ms steps, as a sound card does. Left to itself a silent
# output renders two seconds ahead, and a recording that starts then hears nothing, not even
# what is played meanwhile, for up to those two seconds.
for sink in ci_sink ci_voice; do
    parec --device=$sink.monitor --latency-msec=10 --raw >/dev/null 2>&1 &
    pids+=($!)
done

"$@"
