#!/usr/bin/env bash
# Configures and builds Quillmark: scripts/build.sh [Release|RelWithDebInfo|Debug]
set -euo pipefail
cd "$(dirname "$0")/.."
type=${1:-Release}
dir=build/$(echo "$type" | tr '[:upper:]' '[:lower:]')
werror=OFF
[ "${CI:-}" = true ] && werror=ON
launcher=""
command -v ccache >/dev/null && launcher=-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
cmake -S . -B "$dir" -G Ninja $launcher -DCMAKE_BUILD_TYPE="$type" -DQUILLMARK_WERROR=$werror \
      ${QUILLMARK_CMAKE_ARGS:-} >/dev/null
cmake --build "$dir" -j"$(nproc)"
