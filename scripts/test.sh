#!/usr/bin/env bash
# Builds and runs the test suite. Usage: scripts/test.sh [--sanitize thread|address]
set -euo pipefail
cd "$(dirname "$0")/.."

sanitize=""
if [ "${1:-}" = "--sanitize" ]; then sanitize="${2:?thread or address}"; fi
build="build${sanitize:+-$sanitize}"

bash scripts/setup.sh
cmake -S . -B "$build" -G Ninja -DPAX_SANITIZE="$sanitize" -DPAX_WERROR=ON \
      -DPAX_BUILD_BENCH=$([ -z "$sanitize" ] && echo ON || echo OFF) >/dev/null
cmake --build "$build" -j"$(nproc)"

export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
export ASAN_OPTIONS="detect_leaks=1 abort_on_error=1 ${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1 ${UBSAN_OPTIONS:-}"
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 300
