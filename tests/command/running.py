# SPDX-License-Identifier: Apache-2.0
"""The operator's command as operators run it: at a terminal, in a pipe, and one command at a time."""

import contextlib
import json
import os
import pathlib
import pty
import re
import select
import shlex
import signal
import socket
import subprocess
import termios
import time

from programs import COMMAND, LIBRARY, lines, read

signal.signal(signal.SIGQUIT, signal.SIG_DFL)  # a script's job in the background ignores it, and so would all that it runs
TESTS = pathlib.Path(__file__).parent
SESSIONS = TESTS / "sessions"


class Session:
    """The console, at a terminal 40 columns wide or at a socket."""

    def __init__(self, test, module, *options, terminal=True, program=COMMAND):
        self.test = test
        self.output = self.shown = b""
        if terminal:
            ours, theirs = map(os.fdopen, pty.openpty(), ("r+b", "r+b"), (0, 0))
            termios.tcsetwinsize(theirs, (24, 40))
        else:
            ours, theirs = socket.socketpair()
        self.end = ours
        # Whatever the locale, UTF-8 is typed.
        environment = os.environ | {"TERM": "xterm", "HOME": test.folder, "LC_ALL": "C", "NO_COLOR": "1"}
        with theirs:
            self.program = subprocess.Popen([program, "--module", module, *options], stdin=theirs, stdout=theirs,
                                            stderr=theirs, start_new_session=True, env=environment)
        test.addCleanup(self.close)

    def close(self):
        self.program.kill()
        self.program.wait()
        self.end.close()

    def type(self, text):
        os.write(self.end.fileno(), text.encode())

    def shows(self, text, limit=20):
        """Whether the agent writes it within the seconds, after what was seen before."""
        deadline = time.monotonic() + limit
        while text.encode() not in self.output:
            data = b""
            with contextlib.suppress(OSError):  # a terminal's end
                if select.select([self.end], [], [], max(0, deadline - time.monotonic()))[0]:
                    data = os.read(self.end.fileno(), 4096)
            if not data:
                return False
            self.output += data
            self.shown += data
        self.output = self.output.partition(text.encode())[2]
        return True

    def sees(self, *texts):
        for text in texts:
            self.test.assertTrue(self.shows(text), f"no {text!r} in {self.output!r}")

    def interrupts_data(self, server, *told):
        while "DATA" not in read(server.folder / "commands"):
            select.select([], [], [], 0.01)
        self.program.send_signal(signal.SIGINT)
        self.sees(*told)

    def follow(self, name, **names):
        """Types what stands behind "> " in a file of sessions/, and waits for what stands behind "< "."""
        text = re.sub("@([A-Z0-9]+)@", lambda match: names[match[1]], read(SESSIONS / name))
        for mark, line in re.findall("^([><]) (.*)$", text, re.M):
            if mark == ">":
                self.type(line + "\n")
            else:
                self.sees(line)

    def ends(self, status=0):
        self.test.assertEqual(self.program.wait(20), status)


def run(test, line, text="", **environment):
    """One command, as a shell starts it: its exit status, and both outputs."""
    done = subprocess.run([COMMAND, *shlex.split(line)], input=text, capture_output=True, text=True,
                          errors="surrogateescape", timeout=60, check=False,
                          env=os.environ | {"HOME": str(test.folder)} | environment)
    test.printed, test.errors = done.stdout, done.stderr
    return done.returncode, done.stdout + done.stderr


def follow_rows(test, name, line="", **names):
    """Runs the commands of a file of rows, which says at its head what they are, behind a line's beginning."""
    whole = ""
    for row in lines(re.sub("@([A-Z]+)@", lambda match: str(names[match[1]]), read(TESTS / name))):
        mark, text = row[0], re.sub(r"\\x(..)", lambda code: chr(int(code[1], 16)), row[2:])
        if mark == "$":
            command, _, given = text.partition(" < ")
            status, output = run(test, line + command, given.replace("\\n", "\n").replace("\\r", "\r"))
            rest, whole = output, ""
        elif mark == "<":
            test.assertIn(text, rest, f"{command}: {output}")
            rest = rest.partition(text)[2]
        elif mark == ":":
            whole += text + "\n"
        elif mark == ">":
            test.assertIn(json.loads(text), test.asked)
        elif mark == "!":
            test.assertNotIn(text, rest, command)
        elif mark == "=":
            test.assertEqual((status, whole or test.printed), (int(text), test.printed), f"{command}: {output}")
            if not re.search("--trace |--no-", command):
                test.assertRegex(output if text == "2" else test.errors, r"\A(em-alert: .+\n)%s\Z" % ("{0}", "+", "")[status])
            if "--json" in command and text != "2":
                json.loads(test.printed)


def set_up(test, server):
    for words in ("host 1 127.0.0.1", f"port 1 {server.port}", "sender 'A <a@example.net>'", "recipients b@example.net"):
        test.assertEqual(run(test, f"--module {LIBRARY} set {words}")[0], 0)
