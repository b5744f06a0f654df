#!/bin/sh
# Hands the machine over to a downloaded installer and starts the client again
# once it is done.
# Usage: install_update.sh PID INSTALLER VOLUME [PROGRAM]
#
# A Debian package goes to the system's package installer behind the desktop's
# privilege prompt while the client still runs: if the prompt is refused or the
# package fails, this exits non-zero and the client, still there, tells the
# user. Any other installer runs once the client is stopped, as the user.

if [ $# -lt 3 ]; then
    echo "usage: $0 PID INSTALLER VOLUME [PROGRAM]" >&2
    exit 2
fi

PID=$1
INSTALLER=$2
VOLUME=$3
PROGRAM=${4:-}

logger -t kestrelgap "INSTALLING NEW VERSION OF KESTRELGAP APP" 2>/dev/null
echo "pid: $PID"
echo "installer: $INSTALLER"
echo "volume: $VOLUME"

restart() {
    if [ -n "$PROGRAM" ] && [ -x "$PROGRAM" ]; then
        setsid "$PROGRAM" </dev/null >/dev/null 2>&1 &
    fi
}

case "$INSTALLER" in
    *.deb|*.DEB)
        # apt-get takes a file only as a path, never as a bare name.
        case "$INSTALLER" in /*) ;; *) INSTALLER=./$INSTALLER ;; esac
        if ! pkexec apt-get install -y "$INSTALLER"; then
            echo "the package was not installed" >&2
            exit 3
        fi
        echo "Close Kestrelgap Application"
        kill -9 "$PID"
        exec </dev/null >/dev/null 2>&1
        restart
        ;;
    *)
        echo "Close Kestrelgap Application"
        kill -9 "$PID"
        # Our output went to pipes the client read; with the client gone, an
        # installer that prints anything there would die of SIGPIPE.
        exec </dev/null >/dev/null 2>&1
        chmod +x "$INSTALLER"
        "$INSTALLER"
        restart
        ;;
esac
