#!/bin/sh
# Hands the machine over to a downloaded installer: the running client is
# stopped at once, without its own shutdown, and the installer takes over.
# Usage: install_update.sh PID INSTALLER VOLUME

if [ $# -lt 3 ]; then
    echo "usage: $0 PID INSTALLER VOLUME" >&2
    exit 2
fi

PID=$1
INSTALLER=$2
VOLUME=$3

logger -t kestrelgap "INSTALLING NEW VERSION OF KESTRELGAP APP"
echo "pid: $PID"
echo "installer: $INSTALLER"
echo "volume: $VOLUME"
echo "Close Kestrelgap Application"
kill -9 "$PID"
chmod +x "$INSTALLER"
exec "$INSTALLER"
