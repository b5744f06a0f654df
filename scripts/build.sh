#!/usr/bin/env bash
# Configures and builds into build/ (or $1). Extra arguments go to cmake's configure step.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$here/build}"
shift || true
cmake -S "$here" -B "$build" "$@" >/dev/null
cmake --build "$build" -j"$(nproc)"
