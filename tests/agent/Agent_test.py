#!/usr/bin/python3
# Runs the agent as an operator would, with scenarios and with its console.

import base64
import contextlib
import os
import pathlib
import pty
import re
import select
import signal
import socket
import subprocess
import termios
import time
import unittest

from programs import AGENT, FAKE_MODULE, LIBRARY, ProgramTest, read, rows

RUNS = pathlib.Path(__file__).parent / "runs"
SESSIONS = pathlib.Path(__file__).parent / "sessions"
UNLOADED = "The module is stopped and unloaded."


def agent(*arguments, **environment):
    """The exit status, and what was written to both outputs, without the transcript's times."""
    run = subprocess.run([AGENT, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                         env=os.environ | environment)
    return run.returncode, re.sub(r',"ms":[^}]*', "", run.stdout)


class Scenarios(ProgramTest):
    def run_scenario(self, state, scenario, *options, module=FAKE_MODULE, **environment):
        return agent("--module", module, "--state", self.file("state.json", state), "--scenario",
                     self.file("run.jsonl", scenario), "--trace-file", self.folder / "traces", *options, **environment)

    def test_a_whole_run_is_written_down_in_order(self):
        run = self.run_scenario('[{"OC":"0xE001","OE":"0x400","DA":1},{"OC":4660,"ST":12,"DA":"late"}]',
                                read(RUNS / "whole.scenario"), "--cabinet", "7")
        self.assertEqual(run, (0, read(RUNS / "whole.transcript")))

    def test_the_first_entry_that_fits_answers(self):
        status, output = self.run_scenario(read(RUNS / "answers.state"), read(RUNS / "answers.scenario"))
        self.assertEqual(re.findall(r'"answer":.*"OC":4660.*?"ST":(.*?)}', output),
                         ['0,"DA":"exact"', '0,"DA":[1]', '9', '1', '0,"DA":"set"', '1,"DA":"new"'])
        self.assertEqual(status, 0)

    def test_restart_and_threads(self):
        status, output = self.run_scenario('[{"OC":57345,"OE":1024,"DA":1}]', read(RUNS / "threads.scenario"))
        self.assertEqual(status, 0, output)
        for text, count in (('"step":"unmapped","result":true', 2), ('{"kind":"reply"', 3),
                            ('{"kind":"event"', 1), ('{"kind":"withheld"', 1)):  # after the restart events are off
            self.assertEqual(output.count(text), count, text)

    def test_what_is_wrong_is_told(self):
        for state, scenario, words in rows(RUNS / "refusals"):
            status, output = self.run_scenario(state, scenario)
            self.assertEqual(status, 1, words)
            self.assertIn(words, output)
            self.assertEqual('"unmapped"' in output, '"dlopen"' in output, "left loaded: " + words)
        for arguments, words in rows(RUNS / "command-lines"):
            status, output = agent(*arguments.split())
            self.assertEqual(status, 2, arguments)
            self.assertIn(words, output)
        self.assertEqual(agent("--help")[0], 0)
        for library, words in (("/nowhere/libx.so", "dlopen failed: /nowhere/libx.so: cannot open"),
                               ("libm.so.6", "undefined symbol: EM_Create")):
            status, output = self.run_scenario("[]", "", module=library)
            self.assertEqual(status, 1)
            self.assertIn(words, output)

    def test_trace_level_and_run_mode_reach_the_module(self):
        log = 'event log source "Hostwarden Agentless Service" registered'
        self.assertEqual(self.run_scenario("[]", "", "--trace", "4", "--run-mode", "5")[0], 0)
        self.assertIn(log, read(self.folder / "traces"))
        self.assertEqual(self.run_scenario("[]", "", "--trace", "4", LUME_LOG_DEBUG_LEVEL="2")[0], 0)
        traces = read(self.folder / "traces")
        self.assertIn("Server cabinet number = 0", traces)
        self.assertNotIn("event log source", traces)


class Session:
    """The agent with its console, at a terminal 40 columns wide or at a socket."""

    def __init__(self, test, module, *options, terminal=True):
        self.test = test
        self.output = b""
        if terminal:
            ours, theirs = map(os.fdopen, pty.openpty(), ("r+b", "r+b"), (0, 0))
            termios.tcsetwinsize(theirs, (24, 40))
        else:
            ours, theirs = socket.socketpair()
        self.end = ours
        environment = os.environ | {"TERM": "xterm", "HOME": "/nowhere", "LC_ALL": "C.UTF-8"}
        with theirs:
            self.agent = subprocess.Popen([AGENT, "--module", module, *options], stdin=theirs, stdout=theirs,
                                          start_new_session=True, env=environment)
        test.addCleanup(self.close)

    def close(self):
        self.agent.kill()
        self.agent.wait()
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
        self.output = self.output.partition(text.encode())[2]
        return True

    def sees(self, *texts):
        for text in texts:
            self.test.assertTrue(self.shows(text), f"no {text!r} in {self.output!r}")

    def follow(self, name, **names):
        """Types what stands behind "> " in a file of sessions/, and waits for what stands behind "< "."""
        text = re.sub("@([A-Z0-9]+)@", lambda match: names[match[1]], read(SESSIONS / name))
        for mark, line in re.findall("^([><]) (.*)$", text, re.M):
            if mark == ">":
                self.type(line + "\n")
            else:
                self.sees(line)

    def ends(self):
        self.sees(UNLOADED)
        self.test.assertEqual(self.agent.wait(), 0)


class Console(ProgramTest):
    def test_an_operator_sets_mails_up_and_handles_an_alert(self):
        refusing = self.serve("--reply", "MAIL=550 not from you")
        server = self.serve("--auth", "anna:geheim")
        session = Session(self, LIBRARY)
        session.follow("set-up", PORT1=refusing.port, PORT2=server.port)
        # A tone ends while a line is being typed that fills two rows of the screen: it is told above, the line stays.
        session.type("x" * 50)
        session.sees("\r\033[1A\033[J", "The speaker has played 1000 Hz for 1", "ms\r\n> xxxxxxxxxx")
        session.type("\025ack\n")
        session.sees("The pending alerts are acknowledged: the speaker is silent.")
        self.assertFalse(session.shows(" Hz for ", 0.7), "it sounds on")
        session.type("pending\nquit\n")
        session.sees("No alert is pending.")
        session.ends()
        mail = server.mails()[2]
        self.assertEqual((mail["from"], mail["to"]),
                         ("alerts@example.net", ["anna@example.net", "bert@example.net"]))
        self.assertIn(b"\r\nSubject: =?utf-8?Q?=C3=84rger_mit_Fan_1?=\r\n", base64.b64decode(mail["data"]))

    def test_what_is_right_is_told(self):
        mail = self.file("mail", "To: anna@example.net\n\ntext\n")
        session = Session(self, LIBRARY, terminal=False)
        session.follow("refusals", MAIL=str(mail))
        session.type("pending")  # the last line has no end
        session.end.shutdown(socket.SHUT_WR)
        session.sees("No alert is pending.\n" + UNLOADED + "\n")
        self.assertEqual(session.agent.wait(), 0)

    def test_lines_are_edited_recalled_and_completed(self):
        session = Session(self, FAKE_MODULE, "--trace-file", "/dev/null")
        session.sees("> ")
        for keys, shown in (
                ("pen\t", "ding "),
                ("\n", "An alert is pending."),
                ("se\t", "send-mail  set  setting\r\n> se"),
                ("t s\t\t", "sender  sender-name  servers  smtps\r\n> set s"),
                ("mt\t", "ps "),
                ("\t", "1  2\r\n> set smtps "),
                ("1 o\t", "on  off\r\n"),
                ("\025hlp\002\002e\n", "First steps"),  # control-U, and twice control-B
                ("get user\033[A", "help"),
                ("\033[A", "pending"),
                ("\n", "An alert is pending."),
                ("set password 1 x\n", "status 20"),
                ("\033[A", "pending")):
            session.type(keys)
            session.sees(shown)
        session.type("\025\004")  # control-D
        session.ends()

    def test_a_signal_ends_it_in_good_order(self):
        for terminal in (False, True):
            for number in (signal.SIGINT, signal.SIGTERM):
                session = Session(self, LIBRARY, "--transcript", self.folder / "transcript", terminal=terminal)
                session.sees('Type "help"')
                session.type("help pend")
                session.agent.send_signal(number)
                session.ends()
                self.assertIn('"step":"unmapped","result":true', read(self.folder / "transcript"))


unittest.main()
