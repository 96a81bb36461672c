#!/usr/bin/env bash
# Installs the build into a scratch prefix and uses it as a user of the package would:
#  - the programs start from the prefix as they are (no LD_LIBRARY_PATH), with their man pages
#    and bash completion beside them;
#  - a consumer finds the package with nothing but the prefix, and builds with either include
#    form (<velaHalclient.h>, <norvo-pax-client/velaHalclient.h>);
#  - examples/consumer, built the same way, runs green against the installed vela-service,
#    started as a process of its own in a socket directory of this test's own.
#
# Usage: install_and_consume.sh CMAKE BUILD_DIR SCRATCH_DIR EXAMPLE_DIR INCLUDE_FORMS_DIR
#                               [CMAKE_ARGS for the consumers...]
set -euo pipefail

cmake=$1 build=$2 scratch=$3 example=$4 include_forms=$5
shift 5
consumer_args=("$@")

fail() {
    echo "install_and_consume.sh: $*" >&2
    exit 1
}

rm -rf "$scratch"
mkdir -p "$scratch"
prefix="$scratch/prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null

# Whatever the test runner put there, the installed files must find each other by themselves.
unset LD_LIBRARY_PATH
for program in velactl vela-service; do
    version="$("$prefix/bin/$program" --version)" || fail "$program --version failed"
    [[ "$version" =~ ^"$program "[0-9] ]] || fail "$program --version said: $version"
    for file in "share/man/man1/$program.1" "share/bash-completion/completions/$program"; do
        [ -f "$prefix/$file" ] || fail "$file is not installed"
    done
done

# build_consumer SOURCE_DIR BINARY_DIR: the prefix is the only place the package may come from.
build_consumer() {
    "$cmake" -S "$1" -B "$2" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF \
             "${consumer_args[@]}" >/dev/null
    "$cmake" --build "$2" >/dev/null
}
build_consumer "$include_forms" "$scratch/include-forms"
build_consumer "$example" "$scratch/consumer"

export HOSTBINDER_DIR="$scratch/services"
mkdir -m 700 "$HOSTBINDER_DIR"
service_pid=""
stop_service() {
    if [ -n "$service_pid" ]; then
        kill "$service_pid" 2>/dev/null || true
        wait "$service_pid" 2>/dev/null || true
    fi
}
trap stop_service EXIT

# The one place that makes the service known and running. vela-service declares its instance
# in $HOSTBINDER_DIR itself when it starts; a host runtime that leaves declaring to whoever
# starts the service would be served here, before the start.
start_service() {
    "$prefix/bin/vela-service" -q &
    service_pid=$!
    # Ready once it answers; a slow machine (an emulator, a sanitizer) may take seconds.
    for _ in $(seq 300); do
        "$prefix/bin/velactl" status >/dev/null 2>&1 && return 0
        kill -0 "$service_pid" 2>/dev/null || fail "vela-service exited before it answered"
        sleep 0.1
    done
    fail "vela-service did not answer within 30 s"
}
start_service

"$scratch/consumer/pax_consumer" || fail "examples/consumer failed against $prefix"
echo "installed into $prefix; the programs start from it and examples/consumer ran green"
