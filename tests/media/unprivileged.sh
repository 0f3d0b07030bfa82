#!/bin/sh
# Runs tst_packagearchive's "unprivileged" case as the user nobody. As root it
# first makes a shared sticky folder holding a world-writable file of root's,
# which nobody may write but not remove or chmod.
set -eu
test=$1
if [ "$(id -u)" -ne 0 ]; then
  exec "$test" unprivileged
fi
shared=$(mktemp -d)
trap 'rm -rf "$shared"' EXIT
chmod 1777 "$shared"
echo old >"$shared/shared-file"
chmod 0666 "$shared/shared-file"
SETUP_TEST_SHARED_FOLDER=$shared setpriv --reuid=65534 --regid=65534 --clear-groups "$test" unprivileged
