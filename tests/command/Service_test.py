#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the command with a service, which stands in the test.

import contextlib
import json
import os
import pty
import signal
import socket
import subprocess
import termios
import threading
import time
import unittest
import unittest.mock

from programs import COMMAND, LIBRARY, ProgramTest, lines, read
from running import SESSIONS, Session, follow_rows, run


def compact(value):
    return json.dumps(value, separators=(",", ":"), ensure_ascii=False)


def after(seconds):
    return time.strftime("%FT%TZ", time.gmtime(time.time() + seconds))


COMPONENT = {"name": "root", "designation": "file system /", "status": 2, "text": "95 % full",
             "since": "2026-11-25T08:00:00Z", "checked": None, "next": None}
NEW = COMPONENT | {"name": "lüfter扇", "status": 0, "text": "", "since": None, "next": "2020-01-01T00:00:00Z"}
WELL = COMPONENT | {"name": "well", "status": 1, "next": after(9000)}
STATUS = {"system": 2, "pending": 1, "components": [WELL, COMPONENT, NEW], "mail": {"sent": 3, "failed": 1, "last": COMPONENT["since"]}}
ALERT = {"name": "root", "designation": "file system /", "severity": "warning", "since": "2026-11-25T08:00:00Z",
         "text": "95 % full"}


REQUESTS = {  # what becomes of a request, by its OC, OE and OI
    (0x2242, 0, 0): [("trace", 'ERROR! Server "smtp://m:25", step MAIL: no (55), last refusal: 550 not you'),
                     ("reply", {"ST": 0, "DA": 1}), ("returned", {"ST": 22})],  # which may come in either order
    (0x2243, 0, 0): [("returned", {"ST": 1})],
    (0x2243, 1, 0): [("returned", {"ST": 0, "DA": 0})],
    (0xE001, 0x412, 0): [("trace", 'File "N" not loaded: bad'), ("returned", {"ST": 19})],
    (0xE001, 0x431, 0): [("returned", {"ST": 0, "DA": "m"})],
}
SERVICE = {  # what a service answers to the first member of a line
    "ask": {"status": [{"kind": "status", "status": STATUS},
                       {"kind": "component", "component": COMPONENT | {"checked": "2026-11-25T08:01:00Z"}},
                       {"kind": "component", "component": COMPONENT | {"status": 3}}],
            "pending": [{"kind": "pending", "alerts": [ALERT, ALERT | {"severity": "ok"}]}],
            "settings": [float("nan")]},  # which no JSON can be
    "acknowledge": [{"kind": "acknowledged", "alerts": 2}],
    "check": [{"kind": "checked", "component": COMPONENT}],
    "submit": [{"kind": "error", "error": "there is no component \"x\""}],
    "subscribe": [{"kind": "subscribed"}],
}


class Service(ProgramTest):
    """The control socket's other end, in a thread of the test."""

    def setUp(self):
        super().setUp()
        self.path = self.folder / "control"
        self.asked = []
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(str(self.path))
        listener.listen()
        self.addCleanup(listener.close)
        threading.Thread(target=self.serve_all, args=[listener], daemon=True).start()

    def serve_all(self, listener):
        while listener.fileno() >= 0:
            with contextlib.suppress(OSError):  # the client, or the listener, is gone
                connection = self.connection = listener.accept()[0]
                with connection, connection.makefile("rw") as stream:
                    for line in stream:
                        self.answer(stream, json.loads(line))

    def answer(self, stream, line):
        self.asked.append(line)
        kind, what = next(iter(line.items()))
        answers = self.to_request(what) if kind == "request" else SERVICE.get(kind, [])
        for answer in answers if isinstance(answers, list) else answers[what]:
            stream.write(json.dumps(answer) + "\n")
        stream.flush()

    @staticmethod
    def to_request(command):
        told = REQUESTS.get((command["OC"], command["OE"], command.get("OI", 0)), [("returned", {"ST": 19})])
        return [{"kind": kind, "text": "X: " + what} if kind == "trace" else
                {"kind": kind, "message": {"SIP": {"V": 1, "CMD": [command | what]}}} for kind, what in told]

    def test_it_is_asked_and_told(self):
        follow_rows(self, "service", f"--socket {self.path} ", FOLDER=self.folder,
                    STATUS=compact(STATUS))

    def test_a_view_tells_when_each_is_checked_next(self):
        for left, shown in ((110, r"in \d+ s"), (7000, r"in 1\d\d min"), (171000, "in 47 h"), (302400, "in 3 d"), (9000, "in 2 h")):
            WELL["next"] = after(left)
            self.assertRegex(run(self, f"--socket {self.path} status")[1], f" OK +{shown} +well ")

    def test_a_service_that_hangs_holds_nobody(self):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(self.folder / "hangs"))
            listener.listen()
            for request, ending in (("status", (1, True)), ("watch", (0, False)), ("pending", (1, False))):
                with subprocess.Popen([COMMAND, "--socket", self.folder / "hangs", request], stderr=subprocess.PIPE,
                                      text=True) as command, listener.accept()[0] as connection:
                    connection.recv(100)
                    command.send_signal(signal.SIGINT) if request != "pending" else connection.shutdown(socket.SHUT_RDWR)
                    self.assertEqual((command.wait(20), "was broken off" in command.stderr.read()), ending, request)

    def test_what_is_no_service_is_told(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as other:
            other.bind(path := f"{self.folder}/other")
            self.assertEqual(run(self, f"--socket {path} get"), (1, f"em-alert: cannot connect to the service at {path}: "
                                                                 "Protocol wrong type for socket\n"))

    def test_a_console_goes_on_after_a_view_and_after_a_restart_of_the_service(self):
        session = Session(self, LIBRARY, "--socket", self.path)
        for _ in range(2):
            session.type("watch\n")
            for shown in ("Ctrl-C ends the view.", "> "):  # the view's end is none of the two that end the console
                session.sees(shown)
                session.program.send_signal(signal.SIGINT)
            session.sees("^C\r\n")
            session.type("check root\n")
            session.sees("warning  root")
        self.connection.sendall(b"{}\n")  # which nobody reads any more
        self.connection.shutdown(socket.SHUT_RDWR)
        session.type("ack\n")
        session.sees("The 2 pending alerts are acknowledged")
        with unittest.mock.patch.dict(SERVICE, acknowledge=[]):
            session.type("ack\n")
            self.awaits(lambda: self.asked.count({"acknowledge": True}) == 2)
            session.program.send_signal(signal.SIGINT)
            session.sees("was broken off")
        with contextlib.suppress(OSError):
            self.connection.sendall(b'{"kind":"acknowledged","alerts":9}\n')  # for nobody
        session.type("ack\n")
        session.sees("The 2 pending alerts are acknowledged")
        self.path.unlink()
        self.connection.shutdown(socket.SHUT_RDWR)
        session.type("ack\nquit\n")
        session.sees(f"the service at {self.path}: it does not answer any more")
        session.ends()

    def view(self, size, environment, *options):
        """The lines of the first view on a terminal with these rows and columns."""
        ours, theirs = pty.openpty()
        termios.tcsetwinsize(theirs, size)
        with os.fdopen(ours, "rb", 0) as screen, subprocess.Popen([COMMAND, *options, "--socket", self.path, "watch"],
                                                                  stdin=theirs, stdout=theirs, env=environment) as watch:
            os.close(theirs)
            shown = b""
            while shown.count(b"\033[H\033[J") < 2 and b"}" not in shown:
                shown += screen.read(1000)
            watch.send_signal(signal.SIGINT)
            with contextlib.suppress(OSError):  # the terminal's end: until then it may have to be read
                while screen.read(1000):
                    pass
        return shown.decode(errors="ignore").split("\033[H\033[J", 2)[-2:][0].split("\r\n")

    def test_a_view_fits_its_terminal(self):
        plain = os.environ | {"TERM": "xterm", "NO_COLOR": "1"}
        lines = self.view((5, 50), plain)
        self.assertEqual(lines[2:], ["2026-11-25 13:30:00  warning  -           root    ", "2 more, 1 of them not OK",
                                     "Mails about alerts: 3 sent, 1 failed, the last 202"])
        self.assertEqual(self.view((3, 9), plain), ["This serv", "Since    ", "3 more, 2"])
        self.assertEqual(self.view((9, 49), plain)[4], "-                    unknown  now         lüfter")
        self.assertEqual(self.view((7, 50), plain, "--json")[0][:2], '{"')
        plain["NO_COLOR"] = ""
        self.assertEqual(self.view((5, 24), plain)[2], "2026-11-25 13:30:00  \033[33mwar\033[0m")  # nothing else is coloured

    def test_a_view_in_a_pipe_has_a_line_for_each_change(self):
        for options, shown in (([], lines(read(SESSIONS / "watch"))), (["--json"], [*map(compact, (STATUS, COMPONENT | {"status": 3}))])):
            with subprocess.Popen([COMMAND, *options, "--socket", self.path, "watch"], stdout=subprocess.PIPE, text=True) as watch:
                self.assertEqual([watch.stdout.readline().rstrip("\n") for _ in shown], shown)
                watch.send_signal(signal.SIGINT)
                self.assertEqual((watch.wait(20), watch.stdout.read()), (0, ""))
        self.assertEqual(self.asked.count({"subscribe": True}), 2)
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.run([COMMAND, "--socket", self.path, "watch"], stdout=full, timeout=20).returncode, 1)


unittest.main()
