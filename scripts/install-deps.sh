#!/bin/sh
# Installs the Debian packages needed to build, test and run the client.
# Safe to run repeatedly: it only touches apt when something is missing.
#
# Usage: scripts/install-deps.sh [--check]
#   --check   only report missing packages; exit 1 if any are missing
set -eu

PACKAGES="
cmake
g++
make
pkg-config
qtbase5-dev
qtbase5-dev-tools
qttools5-dev
qttools5-dev-tools
qtmultimedia5-dev
libqt5multimedia5-plugins
libqt5webkit5-dev
qttranslations5-l10n
libqt5svg5
xvfb
xauth
trayer
dunst
openbox
x11-utils
x11-xserver-utils
xdotool
imagemagick
dbus
dbus-x11
python3
openssl
curl
weston
xwayland
qtwayland5
gstreamer1.0-plugins-base
"

check_only=0
case "${1:-}" in
    --check) check_only=1 ;;
    "") ;;
    -h|--help)
        sed -n '2,6p' "$0" | sed 's/^# \{0,1\}//'
        exit 0 ;;
    *)
        echo "install-deps: unknown option: $1" >&2
        exit 2 ;;
esac

missing=""
total=0
for pkg in $PACKAGES; do
    total=$((total + 1))
    status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$pkg" 2>/dev/null || true)
    case "$status" in
        ii*) ;;
        *) missing="$missing $pkg" ;;
    esac
done
missing=${missing# }

if [ -z "$missing" ]; then
    echo "install-deps: all $total packages already installed"
    exit 0
fi

count=$(echo "$missing" | wc -w)
if [ "$check_only" -eq 1 ]; then
    echo "install-deps: $count of $total packages missing: $missing"
    exit 1
fi

if [ "$(id -u)" -eq 0 ]; then
    SUDO=""
elif command -v sudo >/dev/null 2>&1; then
    SUDO="sudo"
else
    echo "install-deps: need root (or sudo) to install: $missing" >&2
    exit 1
fi

export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086
$SUDO env DEBIAN_FRONTEND=noninteractive apt-get update -qq
# shellcheck disable=SC2086
$SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null

echo "install-deps: installed $count of $total packages: $missing"
