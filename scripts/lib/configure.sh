#!/usr/bin/env bash
# Sets up build/PRESET: "scripts/lib/configure.sh PRESET [CMAKE-OPTION...]". Says nothing unless it fails.
set -euo pipefail

cd "$(dirname "${BASH_SOURCE[0]}")/../.."
if [ $# -eq 0 ] || [[ "$1" == -* ]]; then
    echo "Usage: scripts/lib/configure.sh PRESET [CMAKE-OPTION...]" >&2
    exit 2
fi
preset=$1
shift
mkdir -p "build/$preset"
log=build/$preset/configure.log
if ! [ -w "build/$preset" ] || { [ -e "$log" ] && ! [ -w "$log" ]; }; then
    echo "build/$preset belongs to another user: remove it, or give it back with chown -R" >&2
    exit 1
fi
if ! cmake --preset "$preset" "$@" >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
