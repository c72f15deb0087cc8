#!/usr/bin/env bash
# Runs a test of the emulated DVB adapter (the command given) when what it
# needs is there: root, /dev/fuse and a private mount namespace. Otherwise it
# fails (never skips) and says what is missing and what to do.
# Usage: dvb_needs.sh COMMAND [ARGS...]
set -u
why=()
if [ "$(id -u)" -ne 0 ]; then
  why+=("it runs as $(id -un) (uid $(id -u)), not root: mounting the emulator's FUSE file system and a private mount namespace need root")
fi
if [ ! -c /dev/fuse ]; then
  why+=("/dev/fuse is missing: load the fuse module (modprobe fuse); in a container, pass the device (--device /dev/fuse)")
elif [ ! -r /dev/fuse ] || [ ! -w /dev/fuse ]; then
  why+=("/dev/fuse cannot be opened for reading and writing by $(id -un)")
fi
if ! reason=$(unshare -m true 2>&1); then
  why+=("a private mount namespace cannot be made (${reason:-unshare -m failed}); in a container, CAP_SYS_ADMIN is needed (--privileged)")
fi
if [ ${#why[@]} -gt 0 ]; then
  echo "FAIL: this test mounts an emulated DVB adapter (FUSE) and cannot here:"
  printf '  - %s\n' "${why[@]}"
  echo "Run the suite as root where /dev/fuse exists (as CI does), or leave these tests out: ctest -E 'dvb|DVB'"
  exit 1
fi
exec "$@"
