"""Starts a name server in an installation of its own, sends it requests of every kind, and prints the bytes of
each reply, so that the outputs of two systems can be compared by line.

    replies.py FOLDER COMMAND...     COMMAND starts the name server; FOLDER is the installation, which must be empty
                                     but for what COMMAND needs

To be run in a network and a PID namespace of its own: the name server takes the usual port and goes into the background.
What may differ from run to run is made the same: the time of the last change is replaced by a word, as are the numbers
of processes and of the client's ports on the console, and the two lists of databaseStates, whose order is free, are
sorted.
"""

import re
import socket
import struct
import subprocess
import sys
import time
from pathlib import Path

PORT = 20221
SETTINGS = """
LockDirectory = "{folder}";
BonjourDisabled = YES;
DynamicAddress = NO;
HostName = "testhost";
Address = "192.0.2.10";
EthernetAddress = "02:00:00:00:00:01";
Aliases = {{ "192.0.2.77" = "198.51.100.7"; }};
MaxMessageBytes = 200000;
"""


def entry(key, value):
    return struct.pack(">HI", len(key), len(value)) + key + value


def frame(body, mark=b"SV", version=1, kind=1, length=None):
    return mark + struct.pack(">BBI", version, kind, len(body) if length is None else length) + body


def texts(**entries):
    return frame(b"".join(entry(key.encode(), text.encode() + b"\0") for key, text in entries.items()))


def action(word, **entries):
    return texts(action=word, **entries)


LONG = "x" * 70000

# The name of a connection, which is opened when first named, and the bytes that go over it; None closes it.
REQUESTS = [
    ("a", texts(ping="")),
    ("a", frame(b"")),
    ("a", texts(nothing="known")),
    # Registering, finding
    ("a", texts(acceptPort="")),
    ("a", texts(newPort="", portName="db1", portHost="hostA", portType="database")),
    ("b", texts(findPort="db1", portHost="client")),
    ("a", texts(acceptPort="")),
    ("b", texts(findPort="db1", portHost="client")),
    ("b", texts(findPort="db1", portHost="client", portHostAddress="192.0.2.5")),
    ("b", texts(findPort="VN_nameserver", portHost="client")),
    ("b", texts(findPort="VN_infoserver", portHost="client")),
    ("b", texts(findPort="db1")),
    ("b", frame(entry(b"findPort", b"") + entry(b"portHost", b"client\0"))),
    ("b", frame(entry(b"findPort", b"db1\0ignored") + entry(b"portHost", b"client"))),
    ("b", frame(entry(b"findPort", b"db\xff\0") + entry(b"portHost", b"client\0"))),
    ("c", texts(newPort="", portName="sorvexec", portHost="hostC", portType="launcher", portHostAddress="192.0.2.77")),
    ("c", texts(acceptPort="")),
    ("c", texts(findPort="sorvexec", portHost="client")),
    ("d", texts(reconnectPort="db\u00e4", portNumber="20300", portHost="hostD", portType="")),
    ("d", texts(findPort="db\u00e4", portHost="client")),
    ("d", texts(reconnectPort="db2", portNumber="99999999999999999999", portHost="hostD", portType="t")),
    ("d", texts(findPort="db2", portHost="client")),
    ("d", texts(reconnectPort="db3", portNumber="-5", portHost="hostD", portType="t")),
    ("d", texts(newPort="", portName=LONG, portHost=LONG, portType="t")),
    ("d", texts(acceptPort="")),
    ("d", texts(newPort="", portName="db4", portHost="hostD", portType="t")),
    ("d", texts(acceptPort="") + texts(findPort="db4", portHost="client") + texts(ping="")),
    # Watching
    ("b", action("didPortsChange")),
    ("b", action("DIDPORTSCHANGE")),
    ("e", action("watchPortChanges")),
    ("e", action("didPortsChange")),
    ("a", action("needsRefresh")),
    ("e", action("didPortsChange")),
    ("a", action("changeTimestamp")),
    ("a", action("needsRefresh", force="yes")),
    ("a", action("changeTimestamp")),
    # States and alerts
    ("a", action("setDatabaseState", databaseName="db1", state="stopping")),
    ("a", action("setDatabaseState", databaseName="nobody", state="stopping")),
    ("a", action("setDatabaseState", databaseName="db1")),
    ("a", action("setAlertState", databaseName="db4", state="disk full: yes")),
    ("a", action("setAlertState", state="x")),
    ("b", action("databaseStates")),
    # Hosts
    ("b", action("hostInfo")),
    ("b", action("hostInfo", hostAddress="localhost")),
    ("b", action("sorvexecConnectHost", hostName="hostC", portHostAddress="192.0.2.77",
                 ethernetAddress="02:00:00:00:00:01")),
    ("b", action("sorvexecConnectHost", hostName="hostE", portHostAddress="192.0.2.8", ethernetAddress="none")),
    ("b", action("sorvexecConnectHost", hostName="hostE")),
    ("a", action("hostList")),
    ("a", action("hostList", hostAddress="192.0.2.77")),
    # Preferences
    ("a", action("get_userpreferences_key", key="")),
    ("a", action("get_userpreferences", key="mary")),
    ("a", action("get_userpreferences", key="mary", **{"*": "default"})),
    ("a", action("set_userpreferences", key="mary", loginDisplay="list", databases="\u00e4 \"1\"\n\\ \U0001f600 \x01")),
    ("a", action("get_userpreferences", key="mary")),
    ("a", action("get_userpreferences", key="ann", **{"*": "mary"})),
    ("a", action("set_userpreferences", key="", changePreferences="YES", startDatabases="")),
    ("a", action("get_userpreferences", key="")),
    ("a", action("set_userpreferences_key", key="user:application")),
    ("a", action("get_userpreferences_key", key="")),
    ("a", action("set_userpreferences")),
    # The end of a connection
    ("d", None),
    ("a", texts(findPort="db4", portHost="client")),
    ("e", action("didPortsChange")),
    # Frames that are none, each behind one that is
    ("f", texts(ping="") + frame(b"", mark=b"XX")),
    ("g", texts(ping="") + frame(b"", version=2)),
    ("h", texts(ping="") + frame(b"", kind=0)),
    ("i", texts(ping="") + frame(entry(b"a", b"b"), length=200001)),
    ("j", texts(ping="") + frame(struct.pack(">HI", 1, 2) + b"ab")),
    ("k", texts(ping="") + frame(struct.pack(">HI", 1, 0xFFFFFFFF) + b"ab")),
    # Lengths whose sum is 4 in 32 bits. What follows makes sense to a reader that takes this sum.
    ("k2", texts(ping="") + frame(struct.pack(">HI", 5, 0xFFFFFFFF) + b"ping" + entry(b" " * 0x2020, b""))),
    ("l", texts(ping="") + frame(entry(b"a", b"1") + entry(b"a", b"2"))),
    ("m", texts(ping="") + frame(entry(b"\xff", b""))),
    ("n", texts(ping="") + frame(entry(b"a\0b", b""))),
    ("a", texts(ping="")),
    ("a", texts(terminate="")),
]


class Connection:
    def __init__(self):
        self.socket = socket.create_connection(("127.0.0.1", PORT))
        self.socket.settimeout(60)

    def take(self, count):
        taken = b""
        while len(taken) < count:
            more = self.socket.recv(count - len(taken))
            if not more:
                return taken
            taken += more
        return taken

    def reply(self):
        """The bytes of one frame; fewer when the server closes the connection before."""
        header = self.take(8)
        return header + self.take(struct.unpack(">I", header[4:])[0]) if len(header) == 8 else header


def frames_in(data):
    """How many replies are due: one for each frame that is complete in its length, and whatever closes."""
    count = 0
    while data:
        data = data[8 + struct.unpack_from(">I", data, 4)[0]:]
        count += 1
    return count


def entries_of(reply):
    at = 8
    while at < len(reply):
        key, value = struct.unpack_from(">HI", reply, at)
        at += 6 + key + value
        yield reply[at - value - key:at - value], reply[at - value:at]


def shown(request, reply):
    if b"changeTimestamp" in request:
        reply = re.sub(rb"\d{6,}\.\d{6}\0", b"TIME\0", reply)
    if b"databaseStates" in request:
        return repr([reply[:8]] + [(key, sorted(value[:-1].split(b"|")), value[-1:]) for key, value in entries_of(reply)])
    return repr(reply)


def wait_until(condition, what):
    end = time.monotonic() + 60
    while not condition():
        if time.monotonic() > end:
            sys.exit(f"in vain: {what}")
        time.sleep(0.02)


def is_listening():
    with socket.socket() as attempt:
        return attempt.connect_ex(("127.0.0.1", PORT)) == 0


def main():
    folder = Path(sys.argv[1])
    for name in ("etc", "Logs", "Config", "Users"):
        (folder / name).mkdir()
    (folder / "etc/sorvane.conf").write_text(SETTINGS.format(folder=folder))
    with open(folder / "console", "w") as console:
        started = subprocess.run(sys.argv[2:], stdout=console, stderr=console, timeout=60)
    print("the start ends with status", started.returncode)
    wait_until(is_listening, "the name server listens")

    connections = {}
    for name, request in REQUESTS:
        connection = connections.setdefault(name, None) or Connection()
        connections[name] = connection
        if request is None:
            connection.socket.close()
            wait_until(lambda: b"notFound" in ask(texts(findPort="db4", portHost="")), "the name goes")
            print(name, "is closed")
            continue
        connection.socket.sendall(request)
        for _ in range(frames_in(request)):
            print(name, shown(request, connection.reply()))

    wait_until(lambda: not is_listening(), "the name server ends")
    for file in ("console", "Logs/infoserver_log", "Users/SorvPreferences"):
        text = (folder / file).read_bytes().decode(errors="backslashreplace")
        text = re.sub(r"\[\d+\]", "[PROCESS]", text)
        text = re.sub(r"127\.0\.0\.1:\d+", "127.0.0.1:PORT", text)
        print(f"---- {file}\n{text}")


def ask(request):
    connection = Connection()
    connection.socket.sendall(request)
    return connection.reply()


main()
