#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the command's console at a terminal and in a pipe.

import base64
import itertools
import os
import pathlib
import select
import signal
import socket
import subprocess
import termios
import time
import unittest

from programs import AGENT, COMMAND, FAKE_MODULE, LIBRARY, ProgramTest, read, rows
from running import SESSIONS, Session, run, set_up


class Terminal(ProgramTest):
    def test_an_operator_sets_mails_up_and_handles_an_alert(self):
        refusing = self.serve("--reply", "MAIL=550 not from you")
        server = self.serve("--auth", "anna:geheim")
        session = Session(self, LIBRARY)
        session.follow("set-up", PORT1=refusing.port, PORT2=server.port)
        # A tone ends while a line is being typed that fills two rows of the screen: it is told above, the line stays.
        session.type("x" * 50)
        session.sees("\r\033[1A\033[J", "The speaker has played 1000 Hz for 1", "ms\r\n> xxxxxxxxxx")
        session.type("\025ack\n")
        session.sees("The pending alert is acknowledged: the speaker is silent.")
        self.assertFalse(session.shows(" Hz for ", 0.7), "it sounds on")
        session.type("pending\nquit\n")
        session.sees("No alert is pending.")
        session.ends()
        self.assertNotRegex(session.shown, b"geheim|em-alert: ")
        mail = server.mails()[2]
        self.assertEqual((mail["from"], mail["to"]), ("alerts@example.net", ["anna@example.net", "bert@example.net"]))
        self.assertIn(b"\r\nSubject: =?utf-8?Q?=C3=84rger_mit_Fan_1?=\r\n", base64.b64decode(mail["data"]))

    def test_lines_are_edited_recalled_and_completed(self):
        self.file(".editrc", 'bind -s "^G" "pending"\n')
        session = Session(self, FAKE_MODULE, "--trace-file", traces := self.folder / "traces")
        session.sees("> ")
        traces.rename(self.folder / "old")
        session.program.send_signal(signal.SIGHUP)
        for keys, shown in rows(SESSIONS / "keys"):
            session.type(keys.encode().decode("unicode_escape"))
            session.sees(shown.encode().decode("unicode_escape"))
        session.type("\025\004")  # control-D
        session.sees("\r\n")
        session.ends()
        self.assertIn("SCN_SWITCH_SHUTDOWN", read(traces))

    def test_the_history_is_kept_without_passwords(self):
        for keys, shown in (("help pending\nset host 1 o@u:x@m\n set  password 1 x\n", "status 20"), ("\033[A\033[A", "help pending")):
            session, other = (Session(self, FAKE_MODULE, "--state", self.folder / "own") for _ in range(2))
            other.sees("> ")
            session.sees("> ")
            session.type(keys)
            session.sees(shown)
            for console in (session, other):
                console.type("\025quit\n")
                console.ends()
        history = self.folder / "own/history"
        self.assertNotRegex(read(history), "password|host")
        self.assertEqual(history.stat().st_mode & 0o777, 0o600)

    def test_the_keyboard_leaves_no_password_in_sight_and_no_terminal_without_echo(self):
        session = Session(self, FAKE_MODULE)
        session.type("set password 1\n")
        session.sees("password 1: ")
        session.program.send_signal(signal.SIGTSTP)  # no shell is there: it goes on at once
        session.sees("\rpassword 1: ")
        session.type("geheim\n")
        session.sees("\r\npassword 1 was not changed: ", "status 20", "> ")
        session.type("set password 1\n")
        session.sees("password 1: ")
        session.program.send_signal(signal.SIGINT)
        session.sees("No password was given, and none is changed.", "> ")
        modes = termios.tcgetattr(session.end)
        modes[3] |= termios.ECHO  # as a shell leaves it
        termios.tcsetattr(session.end, termios.TCSANOW, modes)
        for number in (signal.SIGCONT, signal.SIGWINCH):
            session.program.send_signal(number)
            session.sees("> ")
        self.assertFalse(termios.tcgetattr(session.end)[3] & termios.ECHO)
        self.assertNotIn(b"geheim", session.shown)
        session.program.send_signal(signal.SIGQUIT)
        session.ends(-signal.SIGQUIT)
        self.assertTrue(termios.tcgetattr(session.end)[3] & termios.ECHO)
        session = Session(self, FAKE_MODULE, "set", "password", "1")
        session.sees("password 1: ")
        session.type("geheim\n")
        session.program.wait(20)
        self.assertTrue(termios.tcgetattr(session.end)[3] & termios.ECHO)

    def test_signals_end_it_in_good_order(self):
        for terminal in (False, True):
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                session = Session(self, LIBRARY, "--transcript", self.folder / "transcript", "--trace", "1",
                                  terminal=terminal, program=AGENT)
                session.sees("### Start of module", 'Type "help"', *["> "] * terminal)
                session.type("help pend")
                interrupted = [("", "help pend"), ("x", "x"), ("pending\n", "No alert is pending.\r\n> ")]
                for typed, shown in interrupted * (terminal and number == signal.SIGINT):  # the first one takes the line back
                    session.type(typed)
                    session.sees(shown)
                    session.program.send_signal(number)
                    session.sees("^C\r\n", "> ")
                session.program.send_signal(number)
                session.sees("The module is stopped and unloaded.")
                session.ends()
                self.assertIn('"step":"unmapped","result":true', read(self.folder / "transcript"))

    def test_an_interrupt_ends_a_wait_and_the_next_one_is_for_its_own_answer(self):
        hanging, stuck, silent, server = (self.serve(*options) for options in [("--hang", "DOT")] * 3 + [()])
        set_up(self, hanging)
        session = Session(self, LIBRARY)
        for words, what in (("test-mail -v", "sending"), ("test-mail", "waiting")):
            (hanging.folder / "commands").write_text("")
            session.type(words + "\n")
            session.interrupts_data(hanging, f"{what} was broken off")
        session.type(f"set port 1 {server.port}\ntest-mail\n")
        session.sees("mail server 1 of 1")
        hanging.process.kill()  # now the first mail is answered, for which nobody waits
        session.sees("\r\033[K ", "server 1, ", "The mail was sent.")
        session.type(f"set port 1 {stuck.port}\ntest-mail\n")
        session.interrupts_data(stuck, "waiting was broken off")
        stuck.process.kill()
        session.sees("replies to send test mail")
        session.type(f"set port 1 {server.port}\ntest-mail\n")
        session.sees("The mail was sent.")
        os.mkfifo(pipe := self.folder / "pipe")
        session.type(f"send-mail {pipe}\n")
        with open(pipe, "w"):
            session.interrupts_data(hanging, "was broken off")
        session.type(f"set host 1 127.0.0.2\nset host 2 127.0.0.1\nset port 2 {silent.port}\nsetting mail on\nstatus 3 A B\n")
        session.sees("mail server 2 of 2, ")
        for told in ("Ctrl-C again ends the console.", "aborted"):
            session.interrupts_data(silent, told)
        session.ends()


class Console(ProgramTest):
    def test_what_is_right_is_told(self):
        mail = self.file("mail", "To: anna@example.net\n\ntext\n")
        session = Session(self, LIBRARY, terminal=False)
        session.follow("refusals", MAIL=str(mail))
        session.type("pending")  # the last line has no end
        session.end.shutdown(socket.SHUT_WR)
        session.sees("No alert is pending.\n")
        session.ends(1)  # commands have failed

    def test_settings_are_shown_as_the_module_takes_them(self):
        state = SESSIONS / "settings.state"  # a value of its own for each
        ports, sound, traces = (self.folder / name for name in ("ports", "wav", "traces"))
        session = Session(self, LIBRARY, "--state", state, "--story", "--wav", sound, "--port-log", ports, "--trace", "1",
                          "--trace-file", traces, terminal=False, program=AGENT)
        session.follow("settings")
        traces.rename(self.folder / "old")
        session.program.send_signal(signal.SIGHUP)  # after a rotation
        session.type("quit\n")
        session.sees("s  The library is gone from memory\n", "The module is stopped and unloaded.\n")
        session.ends(1)
        self.assertEqual((read(ports)[:12], sound.stat().st_size > 88200 * 0.1), ("open O_RDWR|", True))
        self.assertRegex(read(traces), r"\A(?!(?s:.)*### Start of)(?s:.)*### Stopping module EM_ALERT")

    def test_a_status_dates_from_its_first_report_and_a_hundred_alerts_are_kept(self):
        with subprocess.Popen([COMMAND, "--module", LIBRARY], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                              env=os.environ | {"HOME": str(self.folder)}) as console:
            def line_after(text, words):
                console.stdin.write(text)
                console.stdin.flush()
                return next(line for line in console.stdout if words in line)

            first = line_after("status 2 Fan F\nstatus\n", "warning  Fan")
            while time.strftime("%T") <= first[11:19]:
                select.select([], [], [], 0.05)
            self.assertEqual(line_after("status 2 Fan F\nstatus\n", "warning  Fan"), first)
            line_after("status 3 Fan F\n" * 100 + "status 2 Last L\nstatus 3 Fan F\npending\n", "error    Fan")
            listed = list(itertools.takewhile(lambda line: not line.startswith('"ack"'), console.stdout))
            self.assertEqual([line.split()[3] for line in listed][-3:], ["Fan", "Last", "Fan"])  # the oldest have gone
            self.assertIn("100 pending", line_after("ack\n", "acknowledged"))
            console.stdin.close()

    def test_traces_that_are_switched_off_are_told(self):
        folder = pathlib.Path("/etc/kestrel/HostwardenSuite/TraceConfig")
        folder.mkdir(parents=True)
        silent = f"{folder} is there and holds no .ini file"
        self.assertRegex(run(self, f"--module {LIBRARY}", "trace 3\ntrace on\n")[1], f"(?s)(prints nothing: {silent}).*\\1")
        for name, is_silent in (("ini", True), ("em_alert.ini.old", False)):
            (folder / name).touch()
            self.assertEqual(f"note   traces         {silent}" in run(self, f"--module {LIBRARY} check-config")[1], is_silent)


unittest.main()
