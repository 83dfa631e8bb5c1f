#!/usr/bin/env bash
# Builds Release and runs every benchmark on a private 3840x2160 X server, so screen
# benchmarks measure a 4K screen. Extra arguments go to each benchmark binary.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
# The app benchmark compares a full-screen capture with Flameshot, the tool a user would
# otherwise reach for; it is a reference only, so it is installed here and not by setup.sh.
if ! command -v flameshot >/dev/null; then
    SUDO=""
    [ "$(id -u)" -eq 0 ] || SUDO="sudo"
    DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends \
        flameshot >/dev/null || echo "bench: flameshot could not be installed" >&2
fi
bash scripts/build.sh Release
status=0
for b in $(find build/release/bench -type f -executable -name '*bench*' | sort); do
    echo "== $b"
    # A private sound server too, for the recording benchmark's two sound tracks.
    dbus-run-session -- bash scripts/test-services.sh \
        tests/run-test.sh --display 3840x2160 -- "$b" "$@" || status=1
done
exit $status
