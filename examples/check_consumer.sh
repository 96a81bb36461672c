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

# The installed service, declared by the manifest fragment installed beside the library, and
# the consumer reaching it with nothing set but the socket directory.
test -f "$prefix/etc/vintf/manifest/vela-service.xml"
mkdir -m 700 "$scratch/services"
HOSTBINDER_DIR="$scratch/services" "$prefix/bin/vela-service" -q &
service=$!
trap 'kill "$service" 2>/dev/null || true; rm -rf "$scratch"' EXIT
HOSTBINDER_DIR="$scratch/services" timeout 60 "$scratch/consumer/pax_consumer" | tee "$scratch/out"
# Any answer but -1 (no service) shows the service was found and asked.
grep -q '^velaResCtlRequest: ' "$scratch/out"
if grep -q '^velaResCtlRequest: -1$' "$scratch/out"; then
    echo "the consumer did not reach the installed service" >&2
    exit 1
fi
kill "$service"

# A manifest that declares nothing: every call fails at once instead of waiting.
mkdir -m 700 "$scratch/none"
HOSTBINDER_DIR="$scratch/none" HOSTBINDER_VINTF_DIR="$scratch/none/vintf" \
    "$scratch/consumer/pax_consumer"
echo "consumer built and ran against $prefix"
