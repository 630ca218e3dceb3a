#!/usr/bin/env bash
# Runs a command where programs of another processor can be started. To be the first process of a user, mount, PID
# and network namespace of its own, so that what it registers is seen by nobody else and goes when it ends.
#
#   foreign.sh RULE COMMAND...     RULE is a file with a line for binfmt_misc, or empty
#
# With status 125 the rule could not be registered.

set -euo pipefail
rule=$1
shift

ip link set lo up
if [ -n "$rule" ]; then
  { mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc && cat "$rule" >/proc/sys/fs/binfmt_misc/register; } ||
    exit 125
fi
"$@"
