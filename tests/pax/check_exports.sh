#!/bin/sh
# Fails unless the shared library exports every Pax function under its unmangled C name.
set -u
lib=${1:?usage: check_exports.sh <shared library>}

symbols=$(nm -D --defined-only "$lib") || { echo "cannot read the symbols of $lib" >&2; exit 1; }

missing=0
for name in paxInit PaxEventAcquire PaxResAcquire PaxPlatformResAcquire PaxRelease PaxNotify \
        setRelatedSysInfo paxRuleCtl PaxGetHistory PaxMutiResStateRequest PaxResStateRequest \
        PaxGetPowerConsis PaxGetPMStatus Pax_fetch_dataset; do
    if ! printf '%s\n' "$symbols" | awk -v n="$name" '$2 == "T" && $3 == n { found = 1 } END { exit !found }'; then
        echo "not exported with C linkage: $name" >&2
        missing=1
    fi
done
exit $missing
