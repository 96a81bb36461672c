#!/usr/bin/env bash
# Installs those of the Debian packages named on the command line that are not installed yet,
# without their recommendations. Idempotent: with everything present it neither updates the
# package lists nor needs root. Otherwise run it as root, or with sudo available.
#
# Usage: scripts/apt-install.sh PACKAGE...
set -euo pipefail

missing=()
for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
        missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
