#!/usr/bin/env bash
# Installs what is missing, builds, and starts the client from its staged program folder.
# With a display it runs there; without one it runs in a private desktop session and saves a
# screenshot once the start page has loaded.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
"$here/scripts/install-deps.sh"
"$here/scripts/build.sh" "$here/build"
stage="$here/build/stage"

if [ -n "${DISPLAY:-}" ]; then
    cd "$stage" && exec ./kestrelgap
fi

shot="$here/build/screenshot-start.png"
"$here/scripts/desktop-session.sh" --wm -- bash -c '
    cd "$1"
    ./kestrelgap & pid=$!
    # The start page sets the window title once it has loaded.
    for _ in $(seq 1 60); do
        if xdotool search --name "^Kestrelgap$" >/dev/null 2>&1; then break; fi
        sleep 0.5
    done
    sleep 3
    import -window root "$2"
    echo "screenshot: $2"
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
' _ "$stage" "$shot"
