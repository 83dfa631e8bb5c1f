#!/usr/bin/env bash
# Sets up, builds (Release) and starts Quillmark in the tray.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
bash scripts/build.sh Release
exec build/release/src/app/quillmark "$@"
