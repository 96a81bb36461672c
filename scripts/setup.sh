#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests, the benchmarks and the tools need:
# what the README's two commands (scripts/demo.sh, scripts/test.sh) use, and nothing else.
# The scripts with needs of their own add them when they run: scripts/check-format.sh
# (clang-format), fuzz/run.sh (clang and libFuzzer), scripts/test-arm64.sh (the cross compiler,
# qemu and the arm64 libraries). Idempotent; run as root (or with sudo available) on Debian 12.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/apt-install.sh \
    aidl android-liblog-dev android-libcutils-dev libjsoncpp-dev pkg-config \
    cmake ninja-build g++ help2man blueprint-tools \
    libgtest-dev libgmock-dev libbenchmark-dev libcli11-dev

# valijson (header-only; one test checks the shipped JSON Schema against the configuration
# reader with it) is unpacked from its Debian package without the package's dependencies:
# libvalijson-dev depends on every JSON library it has an adapter for (Qt 5, Poco with its
# MariaDB and ODBC clients, yaml-cpp, RapidJSON, picojson, nlohmann-json: some 150 packages
# beyond all the others here), and we use only its jsoncpp adapter. Installing it with dpkg
# and its dependencies forced would leave apt refusing every later install until they are met.
# The files go under /usr/local, where CMake finds the package's own relocatable
# valijsonConfig.cmake (the target `valijson`) in host and cross builds alike; dpkg does not
# know them, and `rm -r /usr/local/{include,share/cmake}/valijson` removes them.
valijson_config=/usr/local/share/cmake/valijson/valijsonConfig.cmake
if ! dpkg-query -W -f='${Status}' libvalijson-dev 2>/dev/null | grep -q "install ok installed" &&
    [ ! -f "$valijson_config" ]; then
    SUDO=""
    if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
    scratch="$(mktemp -d)"
    trap 'rm -rf "$scratch"' EXIT
    # apt downloads as its own unprivileged user when that user may write the directory.
    if [ "$(id -u)" -eq 0 ] && id _apt >/dev/null 2>&1; then chown _apt "$scratch"; fi
    # apt checks the file against the signed package lists, as for an install.
    # Lists that were never fetched (every other package was there already) are fetched once.
    (cd "$scratch" && apt-get download -qq libvalijson-dev 2>/dev/null) ||
        { $SUDO apt-get update -qq && (cd "$scratch" && apt-get download -qq libvalijson-dev); }
    dpkg-deb -x "$scratch"/libvalijson-dev_*.deb "$scratch/tree"
    $SUDO mkdir -p /usr/local/include /usr/local/share/cmake /usr/local/share/doc/valijson
    $SUDO cp -r "$scratch/tree/usr/include/valijson" /usr/local/include/
    $SUDO cp "$scratch/tree/usr/share/doc/libvalijson-dev/copyright" /usr/local/share/doc/valijson/
    # The package file last: it is what marks the copy as complete.
    $SUDO cp -r "$scratch/tree/usr/share/cmake/valijson" /usr/local/share/cmake/
fi
