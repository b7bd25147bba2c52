#!/usr/bin/env bash
# Configures and builds one CMake preset: debug (ASan+UBSan), release, tsan, fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-release}"
shift || true
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" "$@"
