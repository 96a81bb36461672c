#!/usr/bin/env bash
# The main job: installs what the build needs, builds the tool and the reference service, and
# runs the guided tour against a service embedded in the tool. Exits 0 when every step of the
# tour did what it says.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build --target velactl vela-service -j"$(nproc)"

exec build/tools/velactl/velactl --embedded demo
