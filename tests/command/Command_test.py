#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs one command at a time: what it prints, what becomes of mails, and what its exit status says.

import base64
import fcntl
import itertools
import json
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import unittest

from programs import AGENT, COMMAND, FAKE_MODULE, LIBRARY, SMTP_SERVER, ProgramTest, read, rows
from running import SESSIONS, Session, follow_rows, run, set_up


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


unittest.main()
