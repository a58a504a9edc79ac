import json, os, socket
from pathlib import Path

def paths():
    """Where Corvane may listen, in the order to try."""
    if given := os.environ.get("CORVANE_SOCKET"):
        return [given]
    support = Path.home() / "Library/Application Support"
    if not support.is_dir():
        data = os.environ.get("XDG_DATA_HOME", "")
        support = Path(data) if data.startswith("/") else Path.home() / ".local/share"
    return [str(support / name / "control.sock") for name in ("Corvane", "Corvane Dev")]

def connect():
    for path in paths():
        connection = socket.socket(socket.AF_UNIX)
        connection.settimeout(10)
        try:
            connection.connect(path)
            return connection
        except OSError:
            connection.close()
    raise SystemExit("Corvane isn't running.")

with connect() as connection:
    connection.sendall(b'{"command":"list"}\n')
    answer = json.loads(connection.makefile(encoding="utf-8").readline())
if not answer["ok"]:
    raise SystemExit(answer.get("error", "refused"))
for workspace in answer["workspaces"]:
    print(workspace["name"], workspace["windows"])
