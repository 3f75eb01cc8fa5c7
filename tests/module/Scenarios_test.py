#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Each folder of scenarios, one for each call of this program, is one run of the agent with the library on a private
# machine:
#
#   scenario.jsonl      what happens, as the agent takes it
#   state.json          the agent's answers; without it, those of ../state.json
#   Notifications.xml   the notification file, if there is one; @PORT0@ and @PORT1@ become the servers' ports
#   ravlo.ini           the RAID manager's settings, if it is installed
#   smtp-0, smtp-1      options of the SMTP servers, one a line; a server runs for each file
#   options             further options of the agent
#   expected.jsonl      the transcript, without times (see transcript)
#   mails-0, mails-1    what each server got, carriage returns written as \r
#   ports               the accesses to the speaker's ports
#   words               what the agent's story calls operations, values and statuses
#   tones               the tones, each with the length that was asked for
#   commands-0, -1      what each server was told
#   traces              the alert module's own prints in their order (those of a request's return last), each with the
#                       trace level from which on it is printed: a further run for each level tells
#   trace-holds         expressions behind + or -: a line of the whole trace matches, or none does
#   Notifications.after the notification file at the end
#
# Each file is optional but the first. With EM_ACCEPT set, results are written into the files that are there instead of
# being compared: read them before they are committed.

import base64
import os
import pathlib
import re
import subprocess
import sys
import unittest

from programs import AGENT, LIBRARY, ProgramTest, forget_settings, lines, read

SCENARIO = pathlib.Path(sys.argv.pop())
NOTIFICATIONS = pathlib.Path("/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml")
RAID_MANAGER = pathlib.Path("/opt/kestrel/HostwardenSuite/ArrayKeeper/bin/ravlo.ini")
LEVELS = 4  # the module's own
OWN_PRINT = re.compile("EM_|EM DLL|###|---")
OTHER_PRINT = re.compile("creating event|CThread::|CDevice|COsInfo::|pthread_create|THREAD_RETURN")
WORD = re.compile(r"(?:asks for|answers|taken|replies to|event) (.*?\(0x.*?\))|(status \d+ \(.*?\))")
TONE = re.compile("^CDeviceBeeper       : (Beep .* msec\n)", re.M)


def put(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(text.encode(errors="surrogateescape"))


def with_last(rows, what):
    return sorted(rows, key=lambda row: what in row)


def transcript(text):
    """Without times and tones. Requests that come back are put last: the worker may answer before they do."""
    rows = [row[:row.rfind(',"ms":')] + "}\n" for row in lines(text) if '"kind":"tone"' not in row]
    return "".join(with_last(rows, '"kind":"returned"'))


def shown(mail):
    data = base64.b64decode(mail["data"]).decode(errors="surrogateescape")
    recipients = "".join(f"RCPT TO {address}\n" for address in mail["to"])
    return f"MAIL FROM {mail['from']}\n{recipients}" + data.replace("\r", "\\r") + "=====\n"


class Scenario(ProgramTest):
    def without_ports(self, text):
        for index, server in enumerate(self.servers):
            text = re.sub(rf"(?<!\d){server.port}(?!\d)", f"@PORT{index}@", text)
        return text

    def run_agent(self, level, *options):
        """Leaves transcript, trace and ports in the folder.
        Returns the module's prints."""
        forget_settings()
        out = self.folder / "out"
        out.mkdir(exist_ok=True)
        (out / "trace").unlink(missing_ok=True)  # which would be appended to
        for name, place in (("Notifications.xml", NOTIFICATIONS), ("ravlo.ini", RAID_MANAGER)):
            text = read(SCENARIO / name)
            for index, server in enumerate(self.servers):
                text = text.replace(f"@PORT{index}@", server.port)
            if (SCENARIO / name).exists():
                put(place, text)
        state = SCENARIO / "state.json"
        command = [AGENT, "--module", LIBRARY, "--scenario", SCENARIO / "scenario.jsonl",
                   "--state", state if state.exists() else SCENARIO.parent / "state.json", "--transcript",
                   out / "transcript", "--no-trace-times", "--trace-file", out / "trace", "--trace", str(level)]
        if (SCENARIO / "ports").exists():
            command += ["--port-log", out / "ports"]
        subprocess.run(command + read(SCENARIO / "options").split() + list(options), check=True)
        trace = lines(self.without_ports(read(out / "trace")))
        prints = (OTHER_PRINT.split(line)[0] for line in trace)  # some begin without a new line
        return with_last(filter(OWN_PRINT.match, prints), " (RET) ")

    def traces(self, prints):
        """The prints, each behind the level from which on it is printed."""
        left = [self.run_agent(level) for level in range(1, LEVELS)]
        rows = ""
        for line in prints:
            level = LEVELS
            while level > 1 and left[level - 2][:1] == [line]:
                level -= 1
                del left[level - 1][0]
            rows += f"{level} {line}\n"
        self.assertEqual(left, [[]] * (LEVELS - 1), "a level is no part of the next")
        return rows

    def check(self, name, actual):
        """Compares where the folder says what is right."""
        if "EM_ACCEPT" in os.environ and (SCENARIO / name).exists():
            put(SCENARIO / name, actual)
        elif (SCENARIO / name).exists():
            with self.subTest(name):
                self.assertEqual(actual, read(SCENARIO / name))

    def test_runs_as_expected(self):
        self.servers = [self.serve(*lines(read(SCENARIO / name))) for name in ("smtp-0", "smtp-1")
                        if (SCENARIO / name).exists()]
        prints = self.run_agent(LEVELS)
        trace = self.without_ports(read(self.folder / "out/trace"))
        for row in lines(read(SCENARIO / "trace-holds")):
            self.assertEqual(bool(re.search(row[1:], trace, re.M)), row[0] == "+", row)
        self.check("expected.jsonl", self.without_ports(transcript(read(self.folder / "out/transcript"))))
        for index, server in enumerate(self.servers):
            self.check(f"mails-{index}", "".join(map(shown, server.mails())))
            self.check(f"commands-{index}", read(server.folder / "commands"))
        self.check("ports", read(self.folder / "out/ports"))
        self.check("tones", "".join(TONE.findall(trace)))
        self.check("Notifications.after", self.without_ports(read(NOTIFICATIONS)))
        self.assertEqual(list(NOTIFICATIONS.parent.glob("*.lock")), [])
        if (SCENARIO / "traces").exists():
            self.check("traces", self.traces(prints))
        if (SCENARIO / "words").exists():
            self.run_agent(1, "--story")
            words = WORD.findall(read(self.folder / "out/transcript"))
            self.check("words", "".join(f"{word}\n" for word in sorted({"".join(found) for found in words})))


unittest.main()
