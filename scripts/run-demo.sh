#!/usr/bin/env bash
# Installs what is needed, builds the release preset and runs the demo:
# lumxd against the lumx-dspsim simulator, driven by the lumx shell tool.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
exec scripts/demo.sh build/release
