#!/usr/bin/env bash
# Prints (or, with --write, stores) the hash of a frozen AIDL API version, computed exactly as
# the Android build computes it, so that the device build accepts the frozen directory.
#
# The recipe, as the AIDL build rules define it: inside the version's directory, take every
# *.aidl file below "./" (paths as `find ./` prints them), sort the list bytewise
# (LC_ALL=C, NUL-separated), run sha1sum over the files in that order, and append one line
# holding the version that precedes this one ("latest-version" for version 1, otherwise the
# previous version's number). The SHA-1 of that whole text, as hex, is the hash. The build reads
# the first word of the directory's `.hash` file and compares.
#
# Usage: scripts/aidl_hash.sh [--write] API_VERSION_DIR
#   e.g. scripts/aidl_hash.sh aidl/aidl_api/vendor.norvo.hardware.vela/1
set -euo pipefail

write=0
if [ "${1:-}" = "--write" ]; then write=1; shift; fi
dir="${1:?usage: aidl_hash.sh [--write] API_VERSION_DIR}"
version="$(basename "$dir")"
case "$version" in
    ''|*[!0-9]*) echo "aidl_hash.sh: $dir does not end in a version number" >&2; exit 64 ;;
esac
if [ "$version" -gt 1 ]; then previous=$((version - 1)); else previous="latest-version"; fi

hash="$(cd "$dir" && { find ./ -name '*.aidl' -print0 | LC_ALL=C sort -z | xargs -0 sha1sum &&
        echo "$previous"; } | sha1sum | cut -d ' ' -f 1)"
if [ "$write" -eq 1 ]; then
    echo "$hash" > "$dir/.hash"
else
    echo "$hash"
fi
