#!/bin/bash
# Runs one command inside a private, headless desktop: an Xvfb display, an
# optional window manager, a real system tray and a private session bus.
# Everything started here is stopped again by PID when the command ends.
#
# Usage: scripts/desktop-session.sh [options] -- command [args...]
#   --size WxH            screen size, 24-bit depth (default 1920x1080)
#   --wm                  also run openbox as window manager
#   --no-tray             no system tray at all, as on a bare window manager
#   --notifications       run dunst as the session's notification service
#   --screenshot-dir DIR  save DIR/desktop-final.png of the whole screen when
#                         the command has ended; DIR is also exported to the
#                         command as DESKTOP_SESSION_SCREENSHOT_DIR
# A StatusNotifierItem panel is the test's own (tests/support/statusnotifierhost.h):
# Qt exports its icon that way only if a panel is there before the first icon.
# The exit status is the command's (or 2 for a usage error, 3 when the
# desktop could not be brought up).

# Functions below run from traps and through wait_until.
# shellcheck disable=SC2317
set -u

usage() {
    sed -n '6,17p' "$0" | sed 's/^# \{0,1\}//' >&2
    exit "${1:-2}"
}

size=1920x1080
with_wm=0
with_tray=1
with_notifications=0
screenshot_dir=""
while [ $# -gt 0 ]; do
    case "$1" in
        --size)
            [ $# -ge 2 ] || usage
            size=$2
            shift 2 ;;
        --size=*)
            size=${1#--size=}
            shift ;;
        --wm)
            with_wm=1
            shift ;;
        --no-tray)
            with_tray=0
            shift ;;
        --notifications)
            with_notifications=1
            shift ;;
        --screenshot-dir)
            [ $# -ge 2 ] || usage
            screenshot_dir=$2
            shift 2 ;;
        --screenshot-dir=*)
            screenshot_dir=${1#--screenshot-dir=}
            shift ;;
        --)
            shift
            break ;;
        -h|--help)
            usage 0 ;;
        *)
            echo "desktop-session: unexpected argument: $1" >&2
            usage ;;
    esac
done
[ $# -gt 0 ] || usage
if ! [[ "$size" =~ ^[0-9]+x[0-9]+$ ]]; then
    echo "desktop-session: bad --size '$size', expected WxH" >&2
    exit 2
fi

readonly STARTUP_TIMEOUT=15   # seconds per component

xvfb_pid=""
wm_pid=""
tray_pid=""
notifications_pid=""
bus_pid=""
cmd_pid=""
session_dir=$(mktemp -d "${TMPDIR:-/tmp}/desktop-session.XXXXXX")

log() { echo "desktop-session: $*" >&2; }

dump_logs() {
    local f
    for f in "$session_dir"/*.log; do
        [ -s "$f" ] || continue
        log "--- $(basename "$f") ---"
        tail -n 20 "$f" >&2
    done
}

stop_pid() {
    local pid=$1
    [ -n "$pid" ] || return 0
    kill -0 "$pid" 2>/dev/null || { wait "$pid" 2>/dev/null; return 0; }
    kill -TERM "$pid" 2>/dev/null
    local _
    for _ in $(seq 1 50); do
        kill -0 "$pid" 2>/dev/null || break
        sleep 0.1
    done
    if kill -0 "$pid" 2>/dev/null; then
        kill -KILL "$pid" 2>/dev/null
    fi
    wait "$pid" 2>/dev/null
    return 0
}

cleanup() {
    trap - EXIT HUP INT PIPE TERM
    stop_pid "$cmd_pid"
    stop_pid "$notifications_pid"
    stop_pid "$tray_pid"
    stop_pid "$wm_pid"
    stop_pid "$bus_pid"
    stop_pid "$xvfb_pid"
    rm -rf "$session_dir"
}

on_signal() {
    local status=$1
    log "interrupted, stopping the session"
    cleanup
    exit "$status"
}

trap cleanup EXIT
trap 'on_signal 129' HUP
trap 'on_signal 130' INT
trap 'on_signal 141' PIPE
trap 'on_signal 143' TERM

# Polls a test command every 100 ms until it succeeds, the helper process
# dies, or the timeout runs out.
wait_until() {
    local what=$1 pid=$2
    shift 2
    local deadline=$((SECONDS + STARTUP_TIMEOUT))
    while ! "$@" >/dev/null 2>&1; do
        if [ -n "$pid" ] && ! kill -0 "$pid" 2>/dev/null; then
            log "$what exited during start-up"
            return 1
        fi
        if [ $SECONDS -ge $deadline ]; then
            log "$what not ready after ${STARTUP_TIMEOUT}s"
            return 1
        fi
        sleep 0.1
    done
}

# Ready when the display answers and its lock file names our server, not one
# that another process started on the same number a moment earlier.
our_display_answers() {
    local n=$1 pid=$2
    [ "$(tr -d ' \n' <"/tmp/.X$n-lock" 2>/dev/null)" = "$pid" ] || return 1
    xdpyinfo -display ":$n"
}

wm_running() {
    xprop -root _NET_SUPPORTING_WM_CHECK | grep -q 'window id'
}

# The tray is usable once some client owns the manager selection of screen 0;
# Qt asks exactly this before it shows a tray icon.
tray_owned() {
    python3 - <<'EOF'
import ctypes, ctypes.util, sys
lib = ctypes.util.find_library("X11") or "libX11.so.6"
x = ctypes.cdll.LoadLibrary(lib)
x.XOpenDisplay.restype = ctypes.c_void_p
x.XOpenDisplay.argtypes = [ctypes.c_char_p]
x.XInternAtom.restype = ctypes.c_ulong
x.XInternAtom.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_int]
x.XGetSelectionOwner.restype = ctypes.c_ulong
x.XGetSelectionOwner.argtypes = [ctypes.c_void_p, ctypes.c_ulong]
x.XCloseDisplay.argtypes = [ctypes.c_void_p]
d = x.XOpenDisplay(None)
if not d:
    sys.exit(2)
owner = x.XGetSelectionOwner(d, x.XInternAtom(d, b"_NET_SYSTEM_TRAY_S0", 0))
x.XCloseDisplay(d)
sys.exit(0 if owner else 1)
EOF
}

# Xvfb: take the first display number from :90 up with no lock file and no
# socket; if another process wins the race for it, move on to the next.
# -noreset: otherwise the server resets when the last client (our own probe)
# disconnects, and the next client can be refused during the reset.
for n in $(seq 90 189); do
    [ -e "/tmp/.X$n-lock" ] && continue
    [ -e "/tmp/.X11-unix/X$n" ] && continue
    Xvfb ":$n" -screen 0 "${size}x24" -nolisten tcp -noreset >"$session_dir/xvfb.log" 2>&1 &
    xvfb_pid=$!
    if wait_until "Xvfb :$n" "$xvfb_pid" our_display_answers "$n" "$xvfb_pid"; then
        export DISPLAY=":$n"
        break
    fi
    stop_pid "$xvfb_pid"
    xvfb_pid=""
done
if [ -z "$xvfb_pid" ]; then
    log "could not start Xvfb on any display from :90"
    dump_logs
    exit 3
fi
unset WAYLAND_DISPLAY XAUTHORITY

if [ "$with_wm" -eq 1 ]; then
    openbox --sm-disable >"$session_dir/openbox.log" 2>&1 &
    wm_pid=$!
    if ! wait_until "openbox" "$wm_pid" wm_running; then
        dump_logs
        exit 3
    fi
fi

if [ "$with_tray" -eq 1 ]; then
    trayer --edge bottom --align right --widthtype request --height 24 \
        --SetDockType true --SetPartialStrut true --transparent false \
        --tint 0x303030 >"$session_dir/trayer.log" 2>&1 &
    tray_pid=$!
    if ! wait_until "trayer" "$tray_pid" tray_owned; then
        dump_logs
        exit 3
    fi
fi

# A private session bus; nothing offers a notification service on it unless
# asked to. It starts no services on demand either: an installed daemon (dunst
# is one) would otherwise come up at the first notification.
if command -v dbus-daemon >/dev/null 2>&1; then
    cat >"$session_dir/bus.conf" <<'BUSCONF'
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <keep_umask/>
  <listen>unix:tmpdir=/tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
BUSCONF
    dbus-daemon --config-file="$session_dir/bus.conf" --nofork --nopidfile --nosyslog \
        --address="unix:path=$session_dir/bus" \
        --print-address=1 >"$session_dir/bus.address" 2>"$session_dir/dbus.log" &
    bus_pid=$!
    if ! wait_until "dbus-daemon" "$bus_pid" test -s "$session_dir/bus.address"; then
        dump_logs
        exit 3
    fi
    DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$session_dir/bus.address")
    export DBUS_SESSION_BUS_ADDRESS
else
    log "dbus-daemon not found; running without a session bus"
    unset DBUS_SESSION_BUS_ADDRESS
fi

notifications_owned() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner string:org.freedesktop.Notifications | grep -q 'boolean true'
}

# dunst with a configuration of its own: the user's must not decide what a test sees. Top right,
# clear of the tray corner; its notifications stay until closed or acted on.
if [ "$with_notifications" -eq 1 ]; then
    if [ -z "$bus_pid" ]; then
        log "--notifications needs a session bus"
        exit 3
    fi
    cat >"$session_dir/dunstrc" <<'DUNSTRC'
[global]
    monitor = 0
    follow = none
    width = 420
    origin = top-right
    offset = 12x12
    font = DejaVu Sans 11
    frame_width = 1
    frame_color = "#419ab1"
    background = "#ffffff"
    foreground = "#202020"
    icon_position = left
    max_icon_size = 48
    show_indicators = yes
    markup = full
    format = "<b>%s</b>\n%b"
    # "dunstctl context" takes the Reply entry, as a user would from the menu.
    dmenu = /bin/grep -m1 -F Reply
[urgency_low]
    timeout = 0
[urgency_normal]
    timeout = 0
[urgency_critical]
    timeout = 0
DUNSTRC
    dunst -config "$session_dir/dunstrc" >"$session_dir/dunst.log" 2>&1 &
    notifications_pid=$!
    if ! wait_until "dunst" "$notifications_pid" notifications_owned; then
        dump_logs
        exit 3
    fi
fi

# Qt and others want a private runtime folder; lend them the session's own.
if [ -z "${XDG_RUNTIME_DIR:-}" ]; then
    export XDG_RUNTIME_DIR="$session_dir"
fi

if [ -n "$screenshot_dir" ]; then
    mkdir -p "$screenshot_dir"
    screenshot_dir=$(cd "$screenshot_dir" && pwd)
    export DESKTOP_SESSION_SCREENSHOT_DIR="$screenshot_dir"
fi

# Run in the background so that INT/TERM reach our trap at once; keep the
# caller's stdin, which a background job would otherwise lose.
exec 3<&0
"$@" <&3 3<&- &
cmd_pid=$!
exec 3<&-
wait "$cmd_pid"
status=$?
cmd_pid=""

if [ -n "$screenshot_dir" ]; then
    import -display "$DISPLAY" -window root "$screenshot_dir/desktop-final.png" 2>/dev/null \
        || log "screenshot failed"
fi

exit "$status"
