#!/usr/bin/env bash
# Tries the packages in a root that is this machine's, and leaves the machine as it was.
#
#   try.sh FOLDER     FOLDER has the packages
#
# With status 77 this system has no such root.

set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
here=$(cd "$(dirname "$0")" && pwd)
cp "$1"/*.deb "$here"/* "$here/../../integration/programs/upgradable_server.py" "$folder"
if [ "$(id -u)" -ne 0 ] || ! unshare --mount --pid --net --fork true; then
  echo 'namespaces of its own need root'
  exit 77
fi
setpriv --pdeathsig KILL unshare --mount --pid --net --fork --kill-child "$here/overlay.sh" "$folder" \
  /packages/lifecycle.sh /packages
