#!/usr/bin/env bash
# A first session: starts the name server with scripts/run, registers a name, finds it, sees it go, and
# ends the server. Ends with status 0 when each step did what it should.

set -euo pipefail
cd "$(dirname "$0")/../.."
sorvctl=build/stage/bin/sorvctl

# within SECONDS COMMAND...: waits until the command succeeds; fails after that time, or without the server.
within() {
  local end=$((SECONDS + $1))
  shift
  until "$@" >/dev/null 2>&1; do
    if [ "$SECONDS" -ge "$end" ] || ! kill -0 "$server" 2>/dev/null; then
      echo "not reached: $*" >&2
      return 1
    fi
    sleep 0.1
  done
}

scripts/run &
server=$!
trap 'kill "$server" 2>/dev/null || true' EXIT
within 14400 "$sorvctl" ping  # it builds first
"$sorvctl" ping

"$sorvctl" register db1 --type database -- sleep 600 &
holder=$!
within 60 "$sorvctl" find db1
"$sorvctl" set-state db1 running
"$sorvctl" set-alert db1 'disk nearly full'
"$sorvctl" list
"$sorvctl" --json states
"$sorvctl" host-info
kill "$holder"
wait "$holder" || true

status=0
"$sorvctl" find db1 || status=$?
if [ "$status" -ne 1 ]; then
  echo "a name that has gone is found, or asking for it failed: status $status" >&2
  exit 1
fi
"$sorvctl" terminate
wait "$server"
