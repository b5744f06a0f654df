#!/bin/sh
# Hands the machine over to a downloaded installer: the running client is
# stopped at once, without its own shutdown, and the installer takes over.
# Nothing restarts the client; that is the installer's business.
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

# Our output went to pipes the client read; with the client gone, an installer
# that prints anything there would die of SIGPIPE.
exec </dev/null >/dev/null 2>&1

chmod +x "$INSTALLER"
exec "$INSTALLER"
