#!/bin/bash
# build.sh PRESET [TARGET...]   configure quietly and build a CMake preset.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=$1
shift
mkdir -p "build/$preset"
if ! cmake --preset "$preset" >"build/$preset/configure.log" 2>&1; then
  cat "build/$preset/configure.log" >&2
  exit 1
fi
cmake --build --preset "$preset" ${1+--target "$@"} -- -j"${JOBS:-$(nproc)}"
