#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test inside a private desktop session
# (Xvfb, a real system tray and a window manager), headless.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
build="${KESTRELGAP_TEST_BUILD_DIR:-$here/build}"
"$here/scripts/install-deps.sh"
"$here/scripts/build.sh" "$build"
"$here/scripts/desktop-session.sh" --wm -- ctest --test-dir "$build" --output-on-failure -j2
