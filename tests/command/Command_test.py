#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the operator's command as operators do: at a terminal, in pipes, and one command at a time.

import base64
import contextlib
import fcntl
import itertools
import json
import os
import pathlib
import pty
import re
import select
import shlex
import shutil
import signal
import socket
import subprocess
import termios
import threading
import time
import unittest
import unittest.mock

from programs import AGENT, COMMAND, FAKE_MODULE, LIBRARY, SMTP_SERVER, ProgramTest, lines, read, rows

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
        for keys, shown in (
                ("\a\n", "No alert is pending."),
                ("pen\t", "ding "),
                ("\n", "No alert is pending."),
                ("se\t", "send-mail  set  setting\r\n> se"),
                ("t s\t\t", "sender  sender-name  servers  smtps\r\n> set s"),
                ("mt\t", "ps "),
                ("\t", "1  2\r\n> set smtps "),
                ("1 o\t", "on  off\r\n"),
                ("\025hlp\002\002e\n", "First steps"),  # control-U, and twice control-B
                ("get user\033[A", "help"),
                ("\033[A", "pending"),
                ("\n", "No alert is pending."),
                ("set password 1 x\n  \n", "status 20"),
                ("\033[A", "pending")):
            session.type(keys)
            session.sees(shown)
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


class Mails(ProgramTest):
    def test_what_becomes_of_a_mail_is_told(self):
        good = self.serve("--reply", "RCPT:bert@example.net=550 5.1.1 nobody",
                          "--reply", r"RCPT:carl@example.net=450-4.2.1 busy\n450 4.2.1 later")
        strict = self.serve("--reply", "RCPT:anna@example.net=550 no", "--reply", "DOT=554 no")
        follow_rows(self, "mails", LIBRARY=LIBRARY, GOOD=good.port, SPAM=self.serve("--reply", "DOT=554 spam").port,
                    STRICT=strict.port, AUTH=self.serve("--auth", "anna:geheim").port, LONG=99999 * "h", DELETE="\x7f",
                    MAIL=self.file("mail", "From: a@example.net\nTo: anna@example.net\n\nfrom a file"))
        mails = [base64.b64decode(mail["data"]) for mail in good.mails()]
        texts = [mail.partition(b"\r\n\r\n")[2] for mail in mails if not re.search(rb"\nSubject: \S*TEST.MAIL:", mail)]
        self.assertEqual(b" ".join(texts).split(), b"hello from a file a b is CPU 1 fan a b is F a b is D a b is D hello".split())


class Single(ProgramTest):
    def test_each_does_one_thing_and_tells_by_its_status(self):
        self.file("settings.json", '[{"OC":57345,"OE":1024,"DA":256},{"OC":57345,"OE":1040,"DA":257}]')
        follow_rows(self, "commands", LIBRARY=LIBRARY, FAKE=FAKE_MODULE, FOLDER=self.folder, LONG=99999 * "h",
                    LATIN="K\udce4se", DELETE="\x7f")
        self.assertEqual((self.folder / ".local/state").stat().st_mode & 0o777, 0o700)

    def test_a_second_signal_ends_it_while_a_mail_hangs(self):
        server = self.serve("--hang", "DOT")
        set_up(self, server)
        session = Session(self, LIBRARY, "test-mail")
        session.sees("mail server 1 of 1, ")
        session.interrupts_data(server)
        while session.program.poll() is None:
            session.program.send_signal(signal.SIGTERM)
            select.select([], [], [], 0.05)
        session.ends(-signal.SIGTERM)

    def test_a_mail_comes_from_a_pipe_or_a_socket(self):
        os.mkfifo(pipe := self.folder / "pipe")  # which nobody writes
        session = Session(self, LIBRARY, "send-mail", pipe, terminal=False)
        files = pathlib.Path(f"/proc/{session.program.pid}/fd")
        self.awaits(lambda: str(pipe) in map(os.path.realpath, files.iterdir()))
        session.program.send_signal(signal.SIGTERM)
        session.sees(f"reading the mail in {pipe} was broken off")
        session.ends(1)
        session = Session(self, LIBRARY, "send-mail", "-", terminal=False)
        session.type("\ufeffFrom: a@example.net\n\n")
        session.end.shutdown(socket.SHUT_WR)
        session.sees("no recipient is set up")

    def test_the_environment_sets_the_trace_level(self):
        traces = self.folder / "traces"
        for _ in range(2):
            self.assertEqual(run(self, f"--module {LIBRARY} --trace 1 --trace-file {traces} get servers", LUME_LOG_DEBUG_LEVEL="5"),
                             (0, "servers           0\n"))
        self.assertRegex(read(traces), "(?s)(Create module.*apply file lock using file.*){2}")

    def test_settings_are_kept_where_it_is_said(self):
        xdg = {"XDG_STATE_HOME": str(self.folder / "xdg")}
        for words, environment, place in (("", {"XDG_STATE_HOME": ""}, ".local/state/em-alert"), ("", xdg, "xdg/em-alert"),
                                          (f"--state {self.folder}/own", xdg, "own")):
            self.assertEqual(run(self, f"--module {LIBRARY} {words} setting beep off", **environment)[0], 0)
            (kept,) = self.folder.rglob("settings.json")
            self.assertEqual(kept.parent, self.folder / place)
            kept.unlink()
        run(self, f"--module {LIBRARY}", "setting beep off\nsetting beep\n", HOME="", XDG_STATE_HOME="")
        self.assertIn("\nbeep              (not set)\n", self.printed)
        self.assertEqual(self.errors, "em-alert: there is no place to keep the setting, which is not changed: say where with --state DIR\n")

    def test_settings_are_changed_one_after_the_other(self):
        with open(f"{self.folder}/settings.json.lock", "w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            command = subprocess.Popen([COMMAND, "--module", LIBRARY, "--state", self.folder, "setting", "beep", "on"],
                                       stdout=subprocess.DEVNULL)
            with self.assertRaises(subprocess.TimeoutExpired):
                command.wait(0.5)
            self.file("settings.json", '[{"OC":57345,"OE":1040,"DA":1}]')
        self.assertEqual(command.wait(20), 0)
        self.assertRegex(run(self, f"--module {LIBRARY} --state {self.folder} setting")[1], "(?s)beep +on.*mail +on")
        (self.folder / "settings.json").unlink()
        os.mkfifo(self.folder / "settings.json")
        command = subprocess.Popen(command.args, stdout=subprocess.DEVNULL)
        self.file("settings.json", "[]")  # for the first look
        with open(f"{self.folder}/settings.json.lock", "w") as lock:
            self.awaits(lambda: subprocess.run(["flock", "-n", lock.name, "true"]).returncode == 1)  # held while it reads
        self.file("settings.json", "[]")
        self.assertEqual(command.wait(20), 0)

    def test_wrong_causes_are_not_named(self):
        path = pathlib.Path("/etc/kestrel/HostwardenSuite/ManagedNode/Notifications/Notifications.xml")
        path.mkdir(parents=True)
        self.assertIn("Notifications.xml", run(self, "get")[1])
        path.rmdir()
        path.write_text("<Notifications><email>")
        for command in ("get", "test-mail", "set sender a@example.net", "check-config"):
            status, output = run(self, command)
            self.assertEqual((status, "Notifications.xml" in output), (1, True), output)
            self.assertNotIn("(not set)", output)
        for mail, told in (("off", "$"), ("on", "[^@]*Notifications.xml[^@]*The mail was not sent")):
            self.assertRegex(run(self, "", f"setting mail {mail}\nstatus 2 Fan F\n")[1], r"2 \(warning\).\n" + told)
        self.assertIn("one thing is wrong", output)
        path.write_text('<Notifications><email><SMTP><Server><Authentication Type="pop3"/></Server></SMTP></email></Notifications>')
        self.assertIn("authentication 1  pop3\n", run(self, "get")[1])
        for mode, words in ((0o640, "holds passwords and may be read"), (0o604, "holds passwords and may be read"),
                            (0o602, "may be changed"), (0o620, "may be changed")):
            path.chmod(mode)
            self.assertIn(f"{path} {words} by others: chmod 600", run(self, "check-config")[1])
        store = pathlib.Path("/etc/ssl/certs/ca-certificates.crt")
        self.addCleanup(store.write_text, store.read_text())
        store.write_text("hello")
        self.assertIn(f"WRONG  certificates   {store} holds no certificate", run(self, "check-config")[1])
        path.unlink()
        with open(f"{path}.lock", "w", encoding="ascii") as lock:
            lock.write("some\nbody #1")
            lock.flush()
            fcntl.flock(lock, fcntl.LOCK_EX)
            for command, held in (("set sender a@example.net", ": "), ("test-mail", ""), ("check-config", "WRONG  lock           ")):
                status, output = run(self, command)
                self.assertEqual((status, f"{held}{path}.lock is held by some" in output), (1, True), output)
            self.assertIn("held by some?body #1\n", output)

    def test_closed_input_is_an_end_and_what_cannot_be_read_a_failure(self):
        scenario = f'--scenario - --state {self.file("state", "[]")}'
        for program, (source, status) in itertools.product((COMMAND, AGENT, f"{AGENT} {scenario}"), (("&-", 0), ("/etc", 1))):
            command = f'exec {program} --module "{LIBRARY}" <{source}'
            done = subprocess.run(["sh", "-c", command], capture_output=True, timeout=20, check=False)
            self.assertEqual((done.returncode, b"standard input" in done.stderr), (status, status == 1), command)

    def test_output_that_stands_nowhere_is_a_failure(self):
        for words in (["get"], ["--help"], []):
            with open("/dev/full", "w") as full:
                done = subprocess.run([COMMAND, "--module", LIBRARY, *words], stdin=subprocess.DEVNULL, stdout=full,
                                      stderr=subprocess.PIPE, text=True, timeout=20, check=False)
            self.assertEqual((done.returncode, done.stderr), (1, "em-alert: standard output cannot be written\n"))

    def test_the_module_is_looked_for_where_it_is_needed(self):
        alone = shutil.copy(COMMAND, self.folder)
        for words, status, kind in (("--socket /none watch", 1, "error"), ("help", 0, "help"), ("get", 1, "error")):
            done = subprocess.run([alone, "--json", *words.split()], stdout=subprocess.PIPE, timeout=20, check=False)
            self.assertEqual((done.returncode, [*json.loads(done.stdout)]), (status, [kind]), words)

    def test_the_manual_says_what_the_help_says(self):
        page = run(self, "--man")[1]
        done = subprocess.run(["groff", "-mandoc", "-ww", "-Tascii", "-P-cbou", "-rLL=3000n"], input=page, capture_output=True,
                              text=True, check=True)
        shown = " ".join(done.stdout.split())
        self.assertEqual((done.stderr, shown.count("Needs the service."), shown.count("The names are listed below.")), ("", 4, 3))
        self.assertIn(" user 1|2 Who logs in. password 1|2 Stored ", shown)
        for name in [*run(self, "--complete ''")[1].split(), "trace", "quit"]:
            usage, _, text = run(self, f"help {name}")[1].partition("The names:")[0].partition(": ")
            self.assertIn(f"{usage} {text[0].upper()}{' '.join(text[1:].split())}", shown)
        for option in re.findall("^  (--?[a-z-]+)", run(self, "--help")[1], re.M):
            self.assertIn(".It Cm " + option.replace("-", "\\-"), page)

    def test_a_shell_completes(self):
        script = pathlib.Path(SMTP_SERVER).parents[1] / "command/em-alert.bash"
        program = 'compopt() { COMPREPLY=(-"$@"); }; . "$0"; COMP_WORDS=("" "$@"); COMP_CWORD=$#; _em_alert; echo ${COMPREPLY[@]}'
        for words, found in rows(SESSIONS / "shell"):
            done = subprocess.run(["bash", "-c", program, script, *words.split()], capture_output=True, text=True, check=True,
                                  env=os.environ | {"PATH": f"{os.path.dirname(COMMAND)}:/usr/bin:/bin"})
            self.assertEqual((done.stdout, done.stderr), (found + "\n", ""), words)


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
