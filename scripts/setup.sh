#!/usr/bin/env bash
# Installs every Debian package the build, the tests, the benchmarks and the tools need.
# Idempotent; run as root (or with sudo available) on Debian 12.
set -euo pipefail

packages=(
    aidl android-liblog-dev android-libcutils-dev libjsoncpp-dev
    cmake ninja-build g++ clang libclang-rt-14-dev
    libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev libvalijson-dev help2man blueprint-tools
)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
