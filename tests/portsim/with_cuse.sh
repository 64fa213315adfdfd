#!/bin/sh
# Starts a test that needs /dev/cuse.
[ -w /dev/cuse ] || { echo "SKIPPED: /dev/cuse is missing here (modprobe cuse, as root); scripts/test-machine has it"; exit 77; }
exec "$@"
