#!/usr/bin/env bash
# Cross-builds the whole tree for 64-bit Arm (warnings as errors) and runs the whole suite under
# qemu-aarch64. Installs the cross compiler, qemu and the arm64 multiarch packages it needs
# (idempotent; run as root or with sudo on Debian 12).
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

packages=(
    g++-aarch64-linux-gnu qemu-user
    libc6:arm64 libstdc++6:arm64
    android-liblog-dev:arm64 android-libcutils-dev:arm64 libjsoncpp-dev:arm64
    libgtest-dev:arm64 libgmock-dev:arm64
)
if ! dpkg --print-foreign-architectures | grep -qx arm64; then
    SUDO=""
    if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
    $SUDO dpkg --add-architecture arm64
fi
bash scripts/apt-install.sh "${packages[@]}"

build=build-arm64
# Benchmarks are left out: their figures would measure the emulator, not the code.
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
      -DPAX_WERROR=ON -DPAX_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"
readelf -h "$build/client/libnorvo-pax-client.so.1" | grep -q 'AArch64' ||
    { echo "test-arm64.sh: the library is not an arm64 binary" >&2; exit 1; }

# The emulator is slower than the machine: give each test more time than natively.
ctest --test-dir "$build" --output-on-failure -j"$(nproc)" --timeout 600
