#!/usr/bin/env bash
# Installs what is missing, builds, starts the local development service host and then the client
# from its staged program folder; the service host stops when the client ends.
# With a display the client runs there (leave it by the tray menu's Quit or Ctrl+Q). Without one it
# runs in a private desktop session, which signs in through the service host's demo channel and
# saves screenshots of the sign-in page and of the messenger; it fails when the client doesn't
# come up that far.
# Either way the client gets a throw-away HOME and runtime folder: the demo never touches your
# settings, cookies or start-up entries, and never wakes a client you have running.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
"$here/scripts/install-deps.sh"
"$here/scripts/build.sh" "$here/build"
stage="$here/build/stage"
devhost="$here/build/devhost/kestrelgap-devhost"
devhost_log="$here/build/devhost.log"
service=$(sed -n 's/^KESTRELGAP_SERVICE_HOST:STRING=//p' "$here/build/CMakeCache.txt")

devhost_pid=""
stop_devhost() {
    if [ -n "$devhost_pid" ]; then
        kill "$devhost_pid" 2>/dev/null || true
        wait "$devhost_pid" 2>/dev/null || true
        devhost_pid=""
    fi
}
demo_home=$(mktemp -d "${TMPDIR:-/tmp}/kestrelgap-demo.XXXXXX")
cleanup() {
    stop_devhost
    rm -rf "$demo_home"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Sound and the session bus are found through the real runtime folder; keep reaching them.
real_runtime=${XDG_RUNTIME_DIR:-}
if [ -n "$real_runtime" ]; then
    [ -S "$real_runtime/pulse/native" ] && export PULSE_SERVER="${PULSE_SERVER:-unix:$real_runtime/pulse/native}"
    [ -S "$real_runtime/bus" ] && export DBUS_SESSION_BUS_ADDRESS="${DBUS_SESSION_BUS_ADDRESS:-unix:path=$real_runtime/bus}"
fi
mkdir -p "$demo_home/config" "$demo_home/data" "$demo_home/cache" "$demo_home/runtime"
chmod 700 "$demo_home/runtime"
export HOME="$demo_home" XDG_CONFIG_HOME="$demo_home/config" XDG_DATA_HOME="$demo_home/data" \
    XDG_CACHE_HOME="$demo_home/cache" XDG_RUNTIME_DIR="$demo_home/runtime"

"$devhost" --listen "$service" >"$devhost_log" 2>&1 &
devhost_pid=$!
for _ in $(seq 1 50); do
    grep -q '^kestrelgap-devhost: serving' "$devhost_log" 2>/dev/null && break
    if ! kill -0 "$devhost_pid" 2>/dev/null; then
        # Most likely a service host is already running there; the client can use that one.
        echo "run: the local service host didn't start (see $devhost_log); going on without it" >&2
        devhost_pid=""
        break
    fi
    sleep 0.2
done
echo "run: service host http://$service/ (requests in $devhost_log)"

if [ -n "${DISPLAY:-}" ]; then
    # Not exec: the trap has to stop the service host when the client ends.
    cd "$stage"
    status=0
    ./kestrelgap || status=$?
    exit "$status"
fi

shots="$here/build"
"$here/scripts/desktop-session.sh" --wm -- bash -c '
    stage=$1 shots=$2 log=$3 service=$4 event=$5
    cd "$stage"
    ./kestrelgap & pid=$!
    fail() {
        echo "run: $1" >&2
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
        exit 1
    }
    wait_for() {
        for _ in $(seq 1 120); do
            grep -q "$1" "$log" && return 0
            kill -0 "$pid" 2>/dev/null || fail "the client ended before $2"
            sleep 0.25
        done
        fail "the client did not reach $2 within 30 s"
    }
    # The start page goes on to the sign-in page once the service host answers.
    wait_for "^GET /signin " "the sign-in page"
    timeout 30 xdotool search --sync --onlyvisible --pid "$pid" --name "^Kestrelgap\$" >/dev/null || fail "no window"
    sleep 2
    import -window root "$shots/screenshot-start.png" && echo "screenshot: $shots/screenshot-start.png"
    python3 -c "import sys, urllib.request; urllib.request.urlopen(sys.argv[1], sys.argv[2].encode())" \
        "http://$service/demo/events" "$event" >/dev/null
    wait_for "^GET /main.html 200" "the messenger"
    sleep 3
    import -window root "$shots/screenshot-messenger.png" && echo "screenshot: $shots/screenshot-messenger.png"
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
' _ "$stage" "$shots" "$devhost_log" "$service" '{"type": "signin"}'
