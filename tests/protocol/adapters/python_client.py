#!/usr/bin/env python3
"""Asks a name server by the package sorvane of this tree.

  python_client.py HOST PORT TIMEOUT ping|list|states|alerts|host-info
  python_client.py HOST PORT TIMEOUT find NAME
  python_client.py HOST PORT TIMEOUT set-state|set-alert NAME TEXT

It prints JSON. The status is 0 for done, 1 if the server has refused or has nothing, and 3 if it was not reached.
"""

import json
import sys
from pathlib import Path

sys.dont_write_bytecode = True
sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "clients/python"))
import sorvane  # noqa: E402

DONE, NO, UNREACHED = 0, 1, 3


def told(entry: sorvane.Entry) -> dict[str, str]:
    return {"name": entry.name, "number": str(entry.number), "host": entry.host, "type": entry.type,
            "state": entry.state or "running", "alert": entry.alert}


def carry_out(client: sorvane.Client, action: str, words: list[str]) -> int:
    if action == "ping":
        client.ping()
    elif action == "find":
        entry = client.find(words[0])
        if entry is None:
            return NO
        print(json.dumps(told(entry)))
    elif action == "list":
        print(json.dumps([told(entry) for entry in client.list()]))
    elif action == "states":
        print(json.dumps([{"name": name, "state": state} for name, state in client.states().items()]))
    elif action == "alerts":
        print(json.dumps([{"name": name, "alert": alert} for name, alert in client.alerts().items()]))
    elif action == "host-info":
        host = client.host_info()
        print(json.dumps({"name": host.name, "address": host.address, "version": host.version}))
    else:
        (client.set_state if action == "set-state" else client.set_alert)(*words)
    return DONE


def main() -> int:
    host, port, timeout, action, *words = sys.argv[1:]
    limits = sorvane.Limits(connect=float(timeout), reply=float(timeout))
    try:
        with sorvane.Client(host, int(port), limits=limits) as client:
            return carry_out(client, action, words)
    except (sorvane.Refused, sorvane.Unsupported) as error:
        print(error, file=sys.stderr)
        return NO
    except sorvane.SorvaneError as error:
        print(error, file=sys.stderr)
        return UNREACHED


if __name__ == "__main__":
    sys.exit(main())
