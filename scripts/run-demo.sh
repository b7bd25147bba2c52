#!/usr/bin/env bash
# Installs what is needed, builds the release preset and runs the demo:
# lumxd against the lumx-dspsim simulator, driven by the lumx shell tool. The
# demo shows `lumx top --once` and ends by drawing the connection graph with
# Graphviz into build/release/lumx-graph.png (LUMX_DEMO_GRAPH=FILE moves it)
# and saying where it is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh release
exec scripts/demo.sh build/release
