#!/usr/bin/env bash
# Sets up, builds and runs every test. Tests bring their own X servers; this script adds a
# private session bus, keyring and sound server, and removes them afterwards.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh RelWithDebInfo
exec dbus-run-session -- bash scripts/test-services.sh \
    ctest --test-dir build/relwithdebinfo --output-on-failure -j"$(nproc)" --timeout 600 "$@"
