#!/usr/bin/env bash
# Hash of a frozen ILumx API version, computed the way the Android build
# (system/tools/aidl/build/hash_gen.sh) does it: sha1sum of every .aidl file
# of the version directory (paths relative to it, sorted byte-wise), followed
# by a line naming the previous version ("latest-version" for version 1),
# all hashed once more with sha1sum.
#
#   update-api-hash.sh [N]           print the hash of aidl_api/lumx/N
#   update-api-hash.sh --check [N]   fail unless the last line of N/.hash matches
#   update-api-hash.sh --write [N]   append the hash to N/.hash if it differs
#
# N defaults to the newest frozen version. The binding's ILumx::hash must be
# the last line of that version's .hash file.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
api_root="$here/aidl_api/lumx"

mode=print
case "${1:-}" in
  --check) mode=check; shift ;;
  --write) mode=write; shift ;;
  -h|--help) sed -n '2,13p' "$0"; exit 0 ;;
esac

version="${1:-}"
if [ -z "$version" ]; then
  version="$(find "$api_root" -mindepth 1 -maxdepth 1 -type d -regex '.*/[0-9]+' -printf '%f\n' | sort -n | tail -n 1)"
fi
case "$version" in
  ''|*[!0-9]*) echo "update-api-hash.sh: bad version '$version'" >&2; exit 2 ;;
esac
dir="$api_root/$version"
if [ ! -d "$dir" ]; then
  echo "update-api-hash.sh: no frozen API directory $dir" >&2
  exit 2
fi

if [ "$version" -gt 1 ]; then
  previous=$((version - 1))
else
  previous=latest-version
fi

hash="$(cd "$dir" && (find ./ -name "*.aidl" -print0 | LC_ALL=C sort -z | xargs -0 sha1sum && echo "$previous") \
        | sha1sum | cut -d " " -f 1)"

recorded=""
if [ -f "$dir/.hash" ]; then
  recorded="$(tail -n 1 "$dir/.hash")"
fi

case "$mode" in
  print)
    echo "$hash"
    ;;
  check)
    if [ "$recorded" != "$hash" ]; then
      echo "update-api-hash.sh: $dir/.hash ends in '$recorded', the files hash to '$hash'" >&2
      exit 1
    fi
    ;;
  write)
    if [ "$recorded" != "$hash" ]; then
      echo "$hash" >> "$dir/.hash"
    fi
    echo "$hash"
    ;;
esac
