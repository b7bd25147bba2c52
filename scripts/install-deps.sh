#!/usr/bin/env bash
# Installs every Debian package lumxd needs to build, test, fuzz and benchmark.
# Idempotent: does nothing when everything is already there.
set -euo pipefail

# GCC is what a plain "cmake -S . -B build" picks on Debian; the presets use
# clang (sanitizers, libFuzzer). Graphviz draws `lumx graph --png/--svg`.
PACKAGES=(
  cmake ninja-build pkg-config
  gcc g++
  clang lld libclang-rt-dev
  libevent-dev libsndfile1-dev
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  python3 procps
  graphviz
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all packages present"
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "install-deps: missing packages: ${missing[*]}" >&2
  echo "install-deps: run this script as root (or: sudo $0) to install them" >&2
  exit 1
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}"
