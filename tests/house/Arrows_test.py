# SPDX-License-Identifier: Apache-2.0
"""Holds what each room can include against the table in ARCHITECTURE.md: no more, no less."""
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

SOURCES = pathlib.Path(os.environ["SOURCES"])
ROW = re.compile(r"^\| `(\S+?)/` \| .+? \|(.*)\|$", re.M)


def drawn():
    """The table's rooms, each with the headers that it may include."""
    rows = ROW.findall((SOURCES / "ARCHITECTURE.md").read_text())
    headers = {room: {str(path.relative_to(SOURCES)) for path in (SOURCES / room).glob("*.h")} for room, _ in rows}
    used = {room: re.findall(r"`(\S+?)/?`", column) for room, column in rows}
    return headers, {room: set().union(*(headers.get(name, {name}) for name in names)) for room, names in used.items()}


def commands(build, rooms):
    """How a room's own library compiles one of its sources, for each room that has any."""
    libraries = {"/em_" + room.replace("/", "_").removeprefix("em_") + ".dir/": room for room in rooms}
    entries = json.loads((build / "compile_commands.json").read_text())
    return {room: entry for entry in entries for library, room in libraries.items() if library in entry["command"]}


def visible(entry, headers):
    """What the compiler finds of `headers` with a source's own options."""
    options = [option for option in shlex.split(entry["command"]) if option.startswith(("-I", "-std"))]
    probe = "".join(f'#if __has_include("{header}")\n{header}\n#endif\n' for header in headers)
    return set(subprocess.run([os.environ["CXX"], *options, "-x", "c++", "-E", "-P", "-"], input=probe, text=True,
                              capture_output=True, cwd=entry["directory"], check=True).stdout.split())


def main():
    headers, drawn_to = drawn()
    everything = set().union(*headers.values())
    failures = []
    for room, entry in commands(pathlib.Path(os.environ["BUILD"]), headers).items():
        seen = visible(entry, everything) - headers[room]
        failures += [f"{room} can include {header}, which ARCHITECTURE.md does not draw" for header in seen - drawn_to[room]]
        failures += [f"{room} cannot include {header}" for header in drawn_to[room] - headers[room] - seen]
    print(*sorted(failures), sep="\n")
    return 1 if failures or len(everything) < 100 else 0


if __name__ == "__main__":
    sys.exit(main())
