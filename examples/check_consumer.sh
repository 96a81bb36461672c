#!/usr/bin/env bash
# Installs the library into a scratch prefix, then builds and runs examples/consumer against
# that prefix only: proves that the installed headers, libraries and CMake package are enough
# for a program outside this tree.
#
# Usage: examples/check_consumer.sh [build-dir]
#   With a build directory (already configured and built), installs from it; otherwise
#   configures and builds the library (no tests, no benchmarks) in a scratch directory.
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
jobs="${JOBS:-$(nproc)}"
scratch="$(mktemp -d "${TMPDIR:-/tmp}/pax-consumer-XXXXXX")"
trap 'rm -rf "$scratch"' EXIT

build="${1:-}"
if [ -z "$build" ]; then
    build="$scratch/build"
    cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
          -DPAX_BUILD_TESTS=OFF -DPAX_BUILD_BENCH=OFF >/dev/null
    cmake --build "$build" -j"$jobs"
fi

prefix="$scratch/prefix"
cmake --install "$build" --prefix "$prefix" >/dev/null

cmake -S "$root/examples/consumer" -B "$scratch/consumer" -G Ninja \
      -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >/dev/null
cmake --build "$scratch/consumer" -j"$jobs"

# An empty service directory: nothing is declared, so every call fails at once.
mkdir -m 700 "$scratch/services"
HOSTBINDER_DIR="$scratch/services" "$scratch/consumer/pax_consumer"
echo "consumer built and ran against $prefix"
