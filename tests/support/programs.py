# SPDX-License-Identifier: Apache-2.0
"""The programs that tests in Python run. Their places come from the environment (em_add_program_test)."""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

AGENT, COMMAND, LIBRARY, FAKE_MODULE, SMTP_SERVER = (
    os.environ["EM_" + name] for name in ("AGENT", "COMMAND", "LIBRARY", "FAKE_MODULE", "SMTP_SERVER"))


def read(path):
    """The bytes of a file as text that can be turned into these bytes again; of a missing one ""."""
    return path.read_bytes().decode(errors="surrogateescape") if path.exists() else ""


def lines(text):
    return text.removesuffix("\n").split("\n") if text else []


def rows(path):
    """The columns of a table's rows, which " | " parts; "\\n" is a new line. A row behind "#" explains."""
    return [row.replace("\\n", "\n").split(" | ") for row in lines(read(path)) if not row.startswith("#")]


def forget_settings():
    """Of the private machine, where each test finds none."""
    for folder in ("/etc/kestrel", "/opt/kestrel"):
        shutil.rmtree(folder, ignore_errors=True)


class SmtpServer:
    """scripts/smtp-server, whose head describes the options, in a folder of its own."""

    def __init__(self, folder, *options):
        self.folder = folder
        command = [sys.executable, SMTP_SERVER, "--mails", folder / "mails", "--commands", folder / "commands",
                   "--certificate", folder / "certificate.pem", *options]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        self.port = self.process.stdout.readline().strip()

    def mails(self):
        """What it has accepted so far: a client that got its answer finds its mail here."""
        return [json.loads(line) for line in lines(read(self.folder / "mails"))]

    def stop(self):
        self.process.kill()
        self.process.communicate()


class ProgramTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        forget_settings()
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def serve(self, *options):
        server = SmtpServer(pathlib.Path(tempfile.mkdtemp(dir=self.folder)), *options)
        self.addCleanup(server.stop)
        return server

    def file(self, name, text):
        (self.folder / name).write_text(text)
        return self.folder / name

    def logged(self):
        return read(self.folder / "log")

    def awaits(self, condition, seconds=20):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                self.fail(self.logged())
            time.sleep(0.05)
