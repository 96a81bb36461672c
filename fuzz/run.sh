#!/usr/bin/env bash
# Builds the fuzz targets with clang, AddressSanitizer and UBSan in build-fuzz/ and runs each
# one for a bounded time, then prints executions and coverage per target.
#
#   fuzz/run.sh                 # 60 s per target
#   FUZZ_SECONDS=10 fuzz/run.sh
#
# New inputs go to build-fuzz/fuzz/corpus/<target>; the committed seeds are read, not written.
# A crash stops the script with the fuzzer's report and the reproducer's path.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-fuzz"
seconds=${FUZZ_SECONDS:-60}
jobs=${FUZZ_JOBS:-2}
targets=(string_utils_fuzzer scenario_lists_fuzzer notify_fuzzer)

if ((seconds > 60)); then
    echo "FUZZ_SECONDS is capped at 60" >&2
    seconds=60
fi

# clang and its libFuzzer runtime serve only these targets: scripts/setup.sh leaves them out.
bash "$root/scripts/setup.sh"
bash "$root/scripts/apt-install.sh" clang libclang-rt-14-dev
cmake -S "$root" -B "$build" -G Ninja \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
    -DPAX_SANITIZE=address -DPAX_BUILD_FUZZ=ON \
    -DPAX_BUILD_TESTS=OFF -DPAX_BUILD_BENCH=OFF >/dev/null

known=$(ninja -C "$build" -t targets all)
for t in "${targets[@]}"; do
    if ! grep -q "^$t:" <<<"$known"; then
        echo "no target $t: the top-level CMakeLists.txt does not add fuzz/" >&2
        exit 1
    fi
done
ninja -C "$build" -j "$jobs" "${targets[@]}"

summary=()
for t in "${targets[@]}"; do
    corpus="$build/fuzz/corpus/$t"
    log="$build/fuzz/$t.log"
    mkdir -p "$corpus"
    echo "== $t (${seconds}s)"
    # -rss_limit_mb: ASan's shadow memory counts against it; the inputs themselves are small.
    if ! (cd "$build/fuzz" && "./$t" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=4096 \
              -print_final_stats=1 "$corpus" "$root/fuzz/seeds/$t") >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "$t FAILED (log: $log)" >&2
        exit 1
    fi
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    cov=$(grep -o 'DONE *cov: [0-9]* ft: [0-9]*' "$log" | tail -n 1 | sed 's/DONE *//')
    summary+=("$(printf '%-24s executions: %-10s %s' "$t" "$runs" "$cov")")
done

echo
printf '%s\n' "${summary[@]}"
