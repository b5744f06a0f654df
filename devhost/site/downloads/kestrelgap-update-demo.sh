#!/bin/sh
# A harmless stand-in for a new release: the client's update hand-over runs it after it has
# stopped the client. It only records that it ran.
echo "$(date '+%Y-%m-%d %H:%M:%S') kestrelgap demo update ran (pid $$, args: $*)" >> /tmp/kestrelgap-update-demo.log
exit 0
