#!/usr/bin/env bash
# Checks that every tracked C/C++ source is formatted as the repository's .clang-format says,
# with Debian's clang-format, which it installs when missing (another version formats some
# constructs differently). Changes nothing; lists the files that differ and exits 1.
# To fix: clang-format -i FILE...
set -euo pipefail
cd "$(dirname "$0")/.."

# Not in scripts/setup.sh: it brings Python along, which nothing else needs.
bash scripts/apt-install.sh clang-format

mapfile -t sources < <(git ls-files '*.c' '*.cc' '*.cpp' '*.h' '*.hpp')
# One run over all files: each difference is reported as "FILE:LINE:COL: error: code should be
# clang-formatted".
status=0
report="$(clang-format --style=file --dry-run -Werror "${sources[@]}" 2>&1)" || status=$?
violation='s/^\(.*\):[0-9]*:[0-9]*: error: code should be clang-formatted.*/\1/p'
mapfile -t unformatted < <(printf '%s\n' "$report" | sed -n "$violation" | sort -u)
if [ "$status" -ne 0 ] && [ ${#unformatted[@]} -eq 0 ]; then
    # Not a formatting difference (an unreadable .clang-format, say): show what it said.
    printf '%s\n' "$report" >&2
    exit 1
fi

if [ ${#unformatted[@]} -ne 0 ]; then
    echo "check-format.sh: ${#unformatted[@]} of ${#sources[@]} files differ from .clang-format" \
         "($(clang-format --version)):" >&2
    printf '  %s\n' "${unformatted[@]}" >&2
    exit 1
fi
echo "check-format.sh: ${#sources[@]} files formatted as .clang-format says"
