#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the examples of a document on a private machine and compares what they show. A block of code is marked behind
# its language; a block without a known mark fails, so that no example goes without a test.
#
#   state              the agent's answers from here on
#   file=PATH          a file that is there from here on; port 25 in it becomes that of the mail server
#   after=PATH         what a file holds now
#   start              the messages of the module's start (see docs/messages.md)
#   conversation       the messages after it; what a line with "asks" shows is compared when there is one
#   mail, trace        all mails, and lines of the trace in order, of the last start or conversation
#   excerpt=PATH       lines of a file of the sources
#   session            commands behind "$ ", each with its output; times of a transcript may differ

import base64
import difflib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

from programs import AGENT, LIBRARY, SmtpServer

SOURCES = pathlib.Path(__file__).parents[2]
PROGRAMS = pathlib.Path(AGENT).parent
BLOCK = re.compile(r"^```(\w*) ?(.*)\n((?:.*\n)*?)```$", re.M)
STATEMENT = re.compile(r"(?:EM_TRACE\(\s*|TraceSetting<)(\w+)(?:,|>\()(.*?)\);", re.S)
LITERAL = re.compile(r'"((?:[^"\\]|\\.)*)"')
TRACE_FILES = pathlib.Path("/etc/kestrel/HostwardenSuite/TraceConfig")
TIME = re.compile(r'(?<="ms":)\d+|^ *\d+\.\d{3}(?= s  )', re.M)
KINDS = {"returned": "returned", "reply": "reply", "event": "fires", "sync-request": "asks"}


def plain(command):
    """A command with its hexadecimal texts as the numbers that they stand for."""
    return {key: int(value, 0) if key != "DA" and isinstance(value, str) else value for key, value in command.items()}


def entry(kind, message):
    return {kind: plain(message["SIP"]["CMD"][0])}


class Examples:
    def __init__(self, document, folder):
        self.document = document
        self.folder = folder
        self.failures = 0
        self.server = SmtpServer(folder)
        (folder / "libem_alert.so").symlink_to(LIBRARY)

    def check(self, where, expected, actual):
        if expected != actual:
            self.failures += 1
            print(f"{where}: not as shown", *difflib.ndiff(expected, actual), sep="\n")

    def named(self, text):
        return re.sub(rf"\b{self.server.port}\b", "25", text)

    def run_agent(self, scenario):
        (self.folder / "mails").write_text("")
        (self.folder / "trace").unlink(missing_ok=True)
        (self.folder / "scenario").write_text("".join(json.dumps(line) + "\n" for line in scenario))
        command = [AGENT, "--module", LIBRARY, "--state", "state",
                   "--scenario", "scenario", "--transcript", "transcript", "--no-trace-times", "--trace-file", "trace"]
        if not TRACE_FILES.exists():
            command += ["--trace", "4"]
        subprocess.run(command, cwd=self.folder, check=True)
        return [json.loads(line) for line in (self.folder / "transcript").read_text().splitlines()]

    def conversation(self, where, text, mark):
        lines = [json.loads(line) for line in text.splitlines()]
        scenario, expected = [], []
        for line in lines:
            shown = {key: plain(value) for key, value in line.items()}
            if "reply" in line:
                scenario.append({"await": {"kind": "reply", "OC": line["reply"]["OC"]}, "ms": 20000})
            if line.keys() & {"returned", "reply", "fires", "asks"}:
                expected.append(shown)
            else:
                scenario.append(line)
        transcript = self.run_agent(scenario)
        started = [line.get("step") for line in transcript].index("OnSwitchStarted")
        actual = []
        for line in transcript[:started] if mark == "start" else transcript[started:]:
            kind = KINDS.get(line["kind"])
            if kind and (kind != "asks" or any("asks" in shown for shown in expected)):
                answer = entry("answer", line["answer"]) if "answer" in line else {}
                actual.append(entry(kind, line["message"]) | answer)
        # The worker may answer a request before it has come back.
        ordered = [sorted(side, key=lambda line: "returned" not in line) for side in (expected, actual)]
        self.check(where, *([json.dumps(line, sort_keys=True) for line in side] for side in ordered))

    def mail(self, where, text):
        shown = ""
        for mail in self.server.mails():
            shown += f"MAIL FROM {mail['from']}\n" + "".join(f"RCPT TO {address}\n" for address in mail["to"])
            shown += base64.b64decode(mail["data"]).decode().replace("\r", "\\r")
        self.check(where, text.splitlines(), shown.splitlines())

    def trace(self, where, text):
        trace = iter(self.named((self.folder / "trace").read_text()).splitlines())
        missing = [line for line in text.splitlines() if line not in trace]
        self.check(where, [], missing)

    def session(self, where, text):
        environment = os.environ | {"PATH": f"{PROGRAMS}:/usr/sbin:/usr/bin:/sbin:/bin"}  # no foreign python3
        shown = ""
        for command in re.findall(r"^\$ (.*)", text, re.M):
            run = subprocess.run(command, shell=True, cwd=self.folder, env=environment, text=True, check=False,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            shown += f"$ {command}\n{run.stdout}"
        self.check(where, *(TIME.sub("?", side).splitlines() for side in (text, shown)))

    def block(self, where, mark, text):
        name, _, path = mark.partition("=")
        if name == "state":
            (self.folder / "state").write_text(text)
        elif name == "file":
            (self.folder / path).parent.mkdir(parents=True, exist_ok=True)
            (self.folder / path).write_text(text.replace("<Port>25<", f"<Port>{self.server.port}<"))
        elif name == "excerpt":
            self.check(where, [text], [text] if text in (SOURCES / path).read_text() else [])
        elif name == "after":
            self.check(where, text.splitlines(), self.named((self.folder / path).read_text()).splitlines())
        elif name in ("start", "conversation"):
            self.conversation(where, text, name)
        elif name in ("mail", "trace", "session"):
            getattr(self, name)(where, text)
        else:
            self.check(where, ["a mark that says how to run it"], [mark])

    def table_rows(self, document):
        """Each `text` | level of a table must be a trace of the sources."""
        traces = [(level, "".join(LITERAL.findall(body)).replace('\\"', '"').replace("\\n", "\n"))
                  for folder in ("em_alert", "mail", "notification", "devices", "tasks", "platform")
                  for source in (SOURCES / folder).rglob("*.*")
                  for level, body in STATEMENT.findall(source.read_text())]
        for text, level in re.findall(r"^\| `([^`]+ [^`]+)` \| (\d) \|", document, re.M):
            found = [text] if any(level == at and text in trace for at, trace in traces) else []
            self.check(f"{self.document.name}, table", [text], found)

    def run(self):
        document = self.document.read_text()
        (self.folder / "state").write_text("[]")
        try:
            for block in BLOCK.finditer(document):
                line = document.count("\n", 0, block.start()) + 1
                self.block(f"{self.document.name}:{line}", block[2], block[3])
        finally:
            self.server.stop()
        self.table_rows(document)
        return self.failures


with tempfile.TemporaryDirectory() as scratch:
    sys.exit(1 if Examples(pathlib.Path(sys.argv[1]), pathlib.Path(scratch)).run() else 0)
