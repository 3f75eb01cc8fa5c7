#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the service with plugins that do what a file says, and asks it as the operator's command does.

import base64
import contextlib
import datetime
import itertools
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest

from programs import COMMAND, LIBRARY, read
from running import FILES, SERVICE, Fleet, ServiceTest


class Service(ServiceTest):
    def test_a_state_settles_is_told_once_and_survives(self):
        self.start(attempts=3, more="unknown = 3")
        server = self.mail_server()
        self.awaits(lambda: self.component()["status"] == 1)
        self.plugin(2, "DISK \x1b[31mfull\x9b\xff | free=0 | used=1\nmore | lines")
        self.awaits(lambda: self.component()["status"] == 3)
        self.assertEqual(self.component()["text"], "DISK ?[31mfull?\xff")
        self.assertEqual((self.status()["system"], self.status()["pending"]), (3, 1))
        self.submit("raid")
        self.awaits(lambda: len(server.mails()) == 2 and not self.untold())
        self.submit("fan", status=0)
        for sent, exit_status in ((signal.SIGKILL, 2), (signal.SIGTERM, 3)):
            self.assertEqual(self.end(sent), -9 if sent == signal.SIGKILL else 0)
            self.plugin(exit_status, "DISK gone")  # unknown is as bad: the cause persists, it is listed, not mailed again
            self.start()
            self.awaits(lambda: self.status()["pending"] == 2)
            self.submit("raid")  # news of what is told already
        self.assertEqual(self.component("fan")["status"], 1)
        self.assertIn('"severity":"error"', self.command("--json", "pending")[1].replace(": ", ":"))
        self.assertEqual(self.ask({"acknowledge": True})[0]["alerts"], 2)
        self.assertEqual((self.status()["pending"], len(server.mails())), (0, 2))
        self.submit("raid", status=0)
        self.plugin(0, "DISK OK")
        self.awaits(lambda: self.status()["system"] == 1)
        self.assertEqual(self.status()["mail"]["failed"], 0)

    def test_a_mail_is_due_until_a_server_takes_it(self):
        self.start(more='kind = "update"')
        server = self.mail_server("--reply", "MAIL=550 no")
        self.assertEqual(self.command("setting", "new-updates", "on")[0], 0)
        self.plugin(2, "DISK full, 3 updates")
        for subject in ("disk", "disk/updates"):
            self.awaits(lambda: f"{subject}: no server took the mail; it is tried again in 1 min" in
                        read(self.folder / "log"))
        self.assertEqual(self.command("test-mail")[0], 1)
        with self.client() as client:
            client.sendall(b'{"request":{"OC":"0x2242"}}\n')
            told = client.makefile()
            answers, awaited = [], {"returned", "reply"}
            while awaited:  # in either order
                answers.append(json.loads(next(told)))
                awaited.discard(answers[-1]["kind"])
            self.assertEqual(self.command("test-mail")[0], 1)  # somebody else's
            client.sendall(b'{"ask":"status"}\n')
            self.assertEqual(json.loads(next(told))["kind"], "status")
        traces = [answer["text"] for answer in answers if answer["kind"] == "trace"]
        self.assertTrue(traces and all(text.startswith("CSMTPClient ") for text in traces), traces)
        self.assertEqual(self.status()["mail"]["failed"], 2)  # test mails are about no alert
        self.end(signal.SIGTERM)
        server = self.mail_server("--hang", "DOT", offline=True)
        self.start()  # which sends it again, and is stopped while the server says nothing
        self.awaits(lambda: "DATA" in read(server.folder / "commands"))
        begun = time.monotonic()
        self.end(signal.SIGTERM)
        self.assertLess(time.monotonic() - begun, 4)
        server = self.mail_server(offline=True)
        for _ in range(2):
            self.start()
            self.awaits(lambda: self.status()["pending"] == 1 and len(server.mails()) == 2 and not self.untold())
            self.end(signal.SIGTERM)
        self.assertEqual(len(server.mails()), 2)
        server = self.mail_server("--hang", "DOT", offline=True)
        self.start()
        with self.client() as client:
            client.sendall(b'{"request":{"OC":"0x2242"}}\n')
            self.awaits(lambda: "DATA" in read(server.folder / "commands"))
            self.submit("fan")  # which waits for the end of that mail, and for the next run
            self.end(signal.SIGTERM)
        server = self.mail_server(offline=True)
        self.start()
        self.awaits(lambda: len(server.mails()) == 1)

    def test_what_is_no_longer_watched_is_over(self):
        other = f"""
[[check]]
name = "other"
command = ["/bin/sh", "-c", "exit 1"]
interval = "200ms"
"""
        self.start()
        self.submit("other", status=0)
        self.reload(read(self.folder / "em-alertd.toml") + other)  # from here on it is no report's alone
        self.plugin(2, "DISK full")
        self.awaits(lambda: self.status()["pending"] == 2)
        (self.folder / "em-alertd.toml").write_text(other)
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: [one["name"] for one in self.status()["components"]] == ["other"])
        (self.folder / "em-alertd.toml").write_text("")
        self.service.send_signal(signal.SIGHUP)  # nothing is bad any more
        self.awaits(lambda: (self.status()["system"], self.status()["pending"]) == (1, 0))
        self.configure(more=other)
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: self.status()["pending"] == 2)
        self.end(signal.SIGTERM)
        (self.folder / "em-alertd.toml").write_text("")
        self.start()
        self.assertEqual(self.status()["components"], [])

    def test_checks_that_fail_themselves(self):
        sleep = f"sleep 99.{os.getpid()}"  # no other run's
        missing = self.file("plugin", "#!/no/such/interpreter\n")
        missing.chmod(0o755)
        self.start(more="""
[[check]]
name = "hangs"
interval = "2s"
command = ["/bin/sh", "-c", "trap '' TERM; SLEEP & setsid -w SLEEP"]
timeout = "300ms"
[[check]]
name = "silent"
interval = "1s"
command = ["/bin/true"]
[[check]]
name = "missing"
interval = "1s"
command = ["MISSING"]
[[check]]
name = "updates"
kind = "update"
interval = "1s"
command = ["/bin/sleep", "70"]
timeout = "300ms"
[[check]]
name = "loud"
interval = "1s"
command = ["/bin/sh", "-c", "yes | head -c 10000000; exit 1"]
[[check]]
name = "reported"
freshness = "200ms"
attempts = 2
""".replace("SLEEP", sleep).replace("MISSING", str(missing)))
        expected = {"hangs": (0, "ended after 0.3 s without an answer"), "silent": (1, "no output, exit status 0"),
                    "missing": (2, f"{missing} cannot be started: No such file or directory"), "loud": (2, "y"),
                    "updates": (0, "ended after 0.3 s without an answer"),
                    "reported": (2, "no report has come within the time set for it")}
        self.awaits(lambda: all((one := self.component(name))["checked"] and (one["status"], one["text"]) == told
                                for name, told in expected.items()))
        self.awaits(lambda: "components/updates/told" in read(self.folder / "state/registry"))
        self.assertNotIn("components/updates/updates=", read(self.folder / "state/registry"))  # it told of no number
        # Each run of it ends with its children, until the next one begins.
        self.awaits(lambda: subprocess.run(["pgrep", "-f", sleep], stdout=subprocess.DEVNULL).returncode == 1)
        self.assertEqual(json.loads(self.command("--json", "submit", "reported", "0", "well")[1])["status"], 1)

    def test_a_configuration_is_refused_as_a_whole(self):
        config = self.configure(head='parallel = "many"', more="""
freshness = 5
[[check]]
name = "disk"
command = ["/no/such/plugin"]
speed = 1
[fleet]
[[check]]
name = "a\\u001b"
command = []
[[check]]
name = "in no folder"
command = ["no-such-plugin"]
[alertmanager]
urls = ["localhost:9093"]
[[check]]
name = "numbered"
command = ["/bin/true", 10]
""")
        run = subprocess.run([SERVICE, "--config", config, "--socket", self.socket, "--state", self.folder,
                              "--module", LIBRARY], capture_output=True, text=True)
        self.assertEqual(run.returncode, 2)
        checked = self.command("check-config", config)[1]
        mistakes = ((2, "parallel is a whole number"), (18, r"\[\[check]] freshness is a"), (19, "taken"),
                    (21, "no program /no/such/plugin"), (22, "speed is not known"), (23, "fleet is not known"),
                    (25, "name is one line"), (26, "begins with a program"), (29, "no program no-such-plugin"),
                    (31, '"localhost:9093" is no'), (34, "command is a list of texts"))
        for told in (run.stderr, checked):
            self.assertRegex(told, r"(?s)" + ".*".join(f"em-alertd.toml:{line}: [^\n]*{words}" for line, words in mistakes))
        config = self.configure(more="""
[[check]]
name = "left out"
command = ["/no/such/plugin"]
if-installed = true
""")
        self.assertIn(f"{config}: one check; left out, as the program is not installed: left out\n",
                      self.command("check-config", config)[1])
        once = subprocess.run([SERVICE, "--config", config, "--once"], capture_output=True, text=True)
        self.assertEqual((once.returncode, once.stdout), (0, "disk: OK - DISK OK\n"))
        slow = self.file("slow.toml", '[[check]]\nname = "slow"\ncommand = ["/bin/sleep", "9"]\ntimeout = "100ms"\n')
        once = subprocess.run([SERVICE, "--config", slow, "--once"], capture_output=True, text=True)
        self.assertEqual((once.returncode, once.stdout), (1, "slow: UNKNOWN - ended after 0.1 s without an answer\n"))
        self.start()
        self.file("em-alertd.toml", "check = 1")
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: "em-alertd.toml:1: each check" in read(self.folder / "log"))
        self.awaits(lambda: self.component()["status"] == 1)

    def test_each_request_gets_its_reply(self):
        self.start()
        with self.client() as client:
            client.sendall(b'{"request":{"OC":"0x2243"}}\n' * 500)  # whose replies overtake the requests' return
            answers = client.makefile()
            kinds = [json.loads(answers.readline())["kind"] for _ in range(1000)]
        self.assertEqual((kinds.count("returned"), kinds.count("reply")), (500, 500))

    def test_two_services_do_not_meet(self):
        self.start()
        for state, control, reason in (("state", "other", "another service keeps its state in"),
                                       ("other", "control", "another service answers at"),
                                       ("other", "says", "something else than a socket has this name")):
            run = subprocess.run([SERVICE, "--config", self.folder / "em-alertd.toml", "--module", LIBRARY, "--state",
                                  self.folder / state, "--socket", self.folder / control],
                                 capture_output=True, text=True, timeout=20)
            self.assertEqual((run.returncode, reason in run.stderr), (1, True), run.stderr)
        self.assertEqual(read(self.folder / "says"), "DISK OK")

    def test_nobody_has_to_read_the_log(self):
        reader, log = os.pipe()
        os.close(reader)
        self.addCleanup(os.close, log)
        self.service = subprocess.Popen([SERVICE, "--config", self.configure(), "--socket", self.socket, "--state",
                                         self.folder / "state", "--module", LIBRARY], stderr=log)
        self.addCleanup(self.end)
        self.awaits(lambda: self.service.poll() is not None or self.answers())
        self.submit("fan")
        self.service.terminate()
        self.assertEqual((self.service.wait(20), self.socket.exists()), (0, False))

    def test_what_cannot_be_written_is_told_once(self):
        os.mkdir(self.folder / "full")
        subprocess.run(["mount", "-t", "tmpfs", "-o", "nr_inodes=1", "none", self.folder / "full"], check=True)
        self.addCleanup(subprocess.run, ["umount", self.folder / "full"], check=True)
        (self.folder / "state").symlink_to("full")
        self.start(more=f'[metrics]\ntextfile = "{self.folder}/full/metrics"')
        for name in ("a", "b", "c"):
            self.submit(name)
        told = [f"cannot save the state in {self.folder}/state: No space left", f"cannot write {self.folder}/full/metrics"]
        self.awaits(lambda: all(words in read(self.folder / "log") for words in told))
        self.submit("d")
        subprocess.run(["mount", "-o", "remount,ro", self.folder / "full"], check=True)
        self.submit("other reasons")
        self.awaits(lambda: read(self.folder / "log").count("Read-only") == 2)
        subprocess.run(["mount", "-o", "remount,rw,nr_inodes=100", self.folder / "full"], check=True)
        self.submit("e")
        self.awaits(lambda: "is saved again" in read(self.folder / "log") and "is written again" in read(self.folder / "log"))
        self.assertEqual([read(self.folder / "log").count(words) for words in told], [1, 2])  # once for each reason
        subprocess.run(["mount", "-o", "remount,ro", self.folder / "full"], check=True)
        self.submit("late")
        self.awaits(lambda: read(self.folder / "log").count("Read-only") == 4)
        subprocess.run(["mount", "-o", "remount,rw", self.folder / "full"], check=True)
        self.end(signal.SIGTERM)
        self.assertIn("components/late/", read(self.folder / "state/registry"))

    def test_reloads_put_nothing_off(self):
        alone = f"mkdir {self.folder}/at || echo >>{self.folder}/not-alone; sleep 0.05; rmdir {self.folder}/at"
        config = f"""
parallel = 1
[[check]]
name = "first"
command = ["/bin/sh", "-c", "{alone}"]
interval = "100ms"
[[check]]
name = "next"
command = ["/bin/sh", "-c", "{alone}"]
interval = "100ms"
[[check]]
name = "second"
command = ["/bin/sh", "-c", "echo >>{self.folder}/ran"]
interval = "2s"
[[check]]
name = "reported"
freshness = "2s"
[[check]]
name = "rare"
command = ["/bin/false"]
interval = "30d"
attempts = 2
retry = "100ms"
"""
        self.file("em-alertd.toml", config)
        self.start()
        begun = time.monotonic()
        while time.monotonic() < begun + 4:
            self.reload(config)
        self.assertGreaterEqual(len(read(self.folder / "ran")), 2)
        self.assertEqual(self.component("reported")["status"], 2)
        self.assertFalse((self.folder / "not-alone").exists())

        def rare():
            now = datetime.datetime.now(datetime.timezone.utc)
            return datetime.datetime.fromisoformat(self.component("rare")["next"]) - now
        self.assertLess(rare(), datetime.timedelta(minutes=10))
        self.assertEqual(self.command("check", "rare")[0], 0)
        for _ in range(2):  # told, and still so: no more retries
            self.awaits(lambda: self.component("rare")["status"] == 2 and rare() > datetime.timedelta(days=29))
            self.assertEqual(self.command("check", "rare")[0], 0)
        self.end(signal.SIGTERM)  # with its checks, which write into the folder

    def test_what_the_package_brings_is_in_order(self):
        unit = self.file("em-alertd.service", read(FILES / "em-alertd.service").replace("/usr/bin/em-alertd", SERVICE))
        for words in (("verify", "--man=no"), ("security", "--offline=true", "--threshold=30")):
            run = subprocess.run(["systemd-analyze", *words, unit], capture_output=True, text=True)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
        run = subprocess.run([SERVICE, "--config", FILES / "em-alertd.toml", "--once"], capture_output=True, text=True)
        self.assertRegex(run.stdout, r"(?m)^disks: (OK|WARNING|CRITICAL) - DISK")
        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_others_report(self):
        self.start(head='reminder = "1d"')
        self.reload(read(self.folder / "em-alertd.toml").replace('"1d"', '"200ms"'))
        server = self.mail_server()

        def told_of(name):
            return sum(name in base64.b64decode(mail["data"]) for mail in server.mails())
        self.file("em-alert", f'#!/bin/sh\nexec {COMMAND} --socket {self.socket} "$@"\n').chmod(0o755)
        path = {"PATH": f"{self.folder}:/usr/bin:/bin"}
        smart = {"SMARTD_DEVICE": "/dev/sda", "SMARTD_FAILTYPE": "CurrentPendingSector", "SMARTD_MESSAGE": "8 sectors"}
        subprocess.run([FILES / "smartd-exec"], env=path | smart, check=True, stdout=subprocess.DEVNULL)
        told = self.component("smart-sda")
        self.assertEqual((told["status"], told["text"]), (3, "CurrentPendingSector: 8 sectors"))
        self.awaits(lambda: told_of(b"smart-sda") >= 3)  # reminders, until it is well
        self.assertEqual(self.command("submit", "smart-sda", "0", "replaced")[0], 0)
        reminders = told_of(b"smart-sda")
        disk = smart | {"SMARTD_DEVICE": "/dev/bus/0", "SMARTD_DEVICESTRING": "/dev/bus/0 [hpt_1/1/2] [SAT]"}
        subprocess.run([FILES / "smartd-exec"], env=path | disk, check=True, stdout=subprocess.DEVNULL)
        self.assertEqual(self.command("submit", "smart-0-hpt_1_1_2_SAT", "0", "replaced")[0], 0)
        for words, expected in ((("Fail", "/dev/md0", "/dev/sdb1"), (3, "Fail of /dev/sdb1")),
                                (("Rebuild40", "/dev/md0"), (2, "Rebuild40")),
                                (("SpareActive", "/dev/md0", "/dev/sdc1"), (1, "SpareActive of /dev/sdc1")),
                                (("TestMessage", "/dev/md0"), (1, "SpareActive of /dev/sdc1"))):
            subprocess.run([FILES / "mdadm-program", *words], env=path, check=True, stdout=subprocess.DEVNULL)
            told = self.component("raid-md0")
            self.assertEqual((told["status"], told["text"]), expected)
        self.assertEqual((self.component("raid-test")["status"], self.submit("raid-test", status=0)), (2, None))
        self.plugin(2, "DISK full")
        self.awaits(lambda: told_of(b"disk") >= 5)
        self.assertLessEqual(told_of(b"smart-sda"), reminders + 1)  # one may have been under way
        self.assertEqual(self.ask({"acknowledge": True})[0]["kind"], "acknowledged")
        reminders = told_of(b"disk")
        self.submit("fan")
        self.awaits(lambda: told_of(b"fan") >= 4)
        self.assertLessEqual(told_of(b"disk"), reminders + 1)

    def test_what_is_acknowledged_while_its_reminder_waits_stays_so(self):
        self.start(head='reminder = "100ms"')
        self.submit("fan", "raid")
        self.awaits(lambda: self.status()["pending"] >= 2)
        server = self.mail_server("--hang", "DOT")
        self.awaits(lambda: "DATA" in read(server.folder / "commands"))
        begun = time.monotonic()
        self.awaits(lambda: time.monotonic() > begun + 0.3)  # for the reminder of the other one
        with self.client() as client:
            client.sendall(b'{"acknowledge":true}\n')
            self.awaits(lambda: "control socket: acknowledge" in read(self.folder / "log"))
            server.process.kill()
            self.assertEqual(json.loads(client.makefile().readline())["kind"], "acknowledged")
        self.submit("psu")
        self.awaits(lambda: self.status()["pending"] > 0)
        self.assertEqual({one["name"] for one in self.ask({"ask": "pending"})[0]["alerts"]}, {"psu"})

    def test_each_order_is_answered_and_each_change_is_logged(self):
        self.environment = {"JOURNAL_STREAM": "1:2"}  # of the session, which writes somewhere else
        self.start()
        severity = {"OE": "0x0411", "DA": 3}
        orders = (({"ask": "status"}, "status", None),
                  ({"acknowledge": True}, "acknowledged", "acknowledge"),
                  ({"check": "disk"}, "checked", None),
                  ({"submit": {"name": "raid", "status": 0}}, "submitted", "submit raid"),
                  ({"check": "raid"}, "error", None),
                  ({"request": {"OC": "0xE001", "OE": "0x0414"}}, "returned", None),
                  ({"request": {"OC": "0xE002", "OE": "0x0414", "DA": "b@x"}}, "returned", "request recipients"),
                  ({"event": {"OC": "0x2322", "OI": 9, "DA": 1}}, "delivered", "event"),
                  ({"notice": {"OC": "0xE002", **severity}}, "delivered", "notice severity"),
                  ({"notify": 5}, "notified", "notify"),
                  ({"set": {"OC": "0xE001", **severity}}, "set", "set severity"),
                  ({"reset": 0x0411}, "reset", "reset severity"),
                  ({"subscribe": True}, "subscribed", None))
        for order, kind, _ in orders:
            self.assertEqual(self.ask(order)[0]["kind"], kind)
        self.assertEqual(re.findall(r"(?m)^em-alertd: root \(process \d+\) at the control socket: (.*)$",
                                    read(self.folder / "log")), [change for _, _, change in orders if change])

    def test_settings_changed_at_run_time_stay(self):
        self.start()
        self.assertEqual(self.command("setting", "severity", "3")[0], 0)
        server = self.mail_server()
        self.end(signal.SIGTERM)
        self.start()
        self.plugin(1, "DISK low")
        self.awaits(lambda: self.component()["status"] == 2 and self.status()["pending"] == 1)
        self.plugin(2, "DISK full")
        self.awaits(lambda: len(server.mails()) == 1)
        self.assertIn("severity          2\n", self.command("reset", "severity")[1])
        usual = pathlib.Path("/etc/em-alert/em-alertd.toml")  # of the private machine
        usual.parent.mkdir()
        self.addCleanup(shutil.rmtree, usual.parent)
        usual.write_text("[alerts]\nmail = true\n")
        self.assertEqual(self.command("setting", "mail", "off")[0], 0)
        self.assertRegex(self.command("check-config")[1], "(?s)toml: 0 checks.*not mailed: em-alert setting mail on")
        self.assertIn("none answers at /no/socket: ", self.run_command("--socket", "/no/socket", "check-config")[1])
        self.assertNotIn("none answers", self.run_command("--module", LIBRARY, "check-config")[1])
        self.assertEqual(self.command("reset", "mail")[0], 0)
        self.end()
        self.start()
        self.assertRegex(self.command("setting")[1], "mail +on")
        self.configure(more='[alertmanager]\nurls = []')
        config = self.folder / "em-alertd.toml"
        config.write_text(read(config).replace("subject =", "# ").replace('"$(ComponentDesignation)', '"by file: $(ComponentName)'))
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: "read again" in read(self.folder / "log"))
        self.plugin(1, "DISK low")
        self.awaits(lambda: len(server.mails()) == 2)
        mail = base64.b64decode(server.mails()[1]["data"])
        for words in (b"Warning:_disk_on_alpha", b"\nby file: disk\r"):
            self.assertIn(words, mail)

    def test_a_setting_that_nobody_names_any_more_gets_its_default_back(self):
        self.preload(os.environ["EM_SPEAKER"])
        config = read(self.configure())
        beeps = config.replace("[alerts]", '[alerts]\nbeep = true\nword-warning = "low"')
        self.file("em-alertd.toml", beeps.replace("[alerts]", '[alerts]\nwarning-tones = "700/10/10"\nerror-tones = "800/10/10"'))
        self.start()
        server = self.mail_server()

        def heard(name, tone):
            self.submit(name, status=1)
            self.awaits(lambda: f"speaker: {tone} Hz" in read(self.folder / "log"))
        heard("fan", 700)
        self.awaits(lambda: len(server.mails()) == 1)
        self.assertIn(b"low:", base64.b64decode(server.mails()[0]["data"]))
        self.reload(beeps)
        heard("fan again", 2300)
        low_high = "2300/150/100 2400/400/100"
        for name, tones in (("warning-tones", f"{low_high} 2300/150/100"), ("error-tones", " ".join([low_high] * 3))):
            self.assertIn(f" {tones}\n", self.command("setting", name)[1])
        self.reload(config)
        self.submit("quiet", status=1)
        self.awaits(lambda: len(server.mails()) == 3)
        self.assertIn(b"Warning:", base64.b64decode(server.mails()[2]["data"]))
        self.reload(config.replace("mail = true", ""))
        self.submit("not mailed")
        self.assertEqual(self.command("test-mail")[0], 0)  # which goes out after it
        self.assertEqual(len(server.mails()), 4)
        self.end()
        self.file("em-alertd.toml", config.replace("mail = true", "mail = false"))
        self.start()  # which lists again what is pending
        self.submit("nor this")
        self.assertEqual(self.command("test-mail")[0], 0)
        self.assertEqual(len(server.mails()), 5)
        answer, = self.ask({"set": {"OC": "0xE001", "OE": "0x0410"}})
        self.assertRegex(answer["error"], '"DA"')

    def test_hostile_clients_delay_nothing(self):
        self.start()
        clients = [socket.socket(socket.AF_UNIX) for _ in range(300)]
        with contextlib.ExitStack() as all_of_them:
            for client in clients:
                all_of_them.enter_context(client)
                with contextlib.suppress(OSError):
                    client.settimeout(0.2)
                    client.connect(str(self.socket))
            clients[1].setblocking(False)
            with contextlib.suppress(OSError):
                while True:
                    clients[1].send(b'{"ask":"status"}\n' * 1000)  # and reads nothing
            with contextlib.suppress(OSError):
                clients[0].settimeout(5)
                clients[0].sendall(b"x" * 10_000_000)
            self.plugin(2, "DISK full")
        self.awaits(lambda: (self.component() or {}).get("status") == 3)
        with self.client() as client:
            for line in ('{', '{"ask":"weather"}', '{"ask":"status","check":"disk"}', '{"submit":{"name":"a/b","status":1}}',
                         '{"submit":{"name":"a","status":9}}', '{"notify":"shutdown"}', '{"notify":131073}'):
                client.sendall(line.encode() + b"\n")
            answers = client.makefile()
            self.assertEqual([json.loads(answers.readline())["kind"] for _ in range(7)], ["error"] * 6 + ["notified"])
            client.sendall(b'{"check":"disk"}\n' * 2)  # each is answered, also by one result
            self.assertEqual([json.loads(answers.readline())["kind"] for _ in range(2)], ["checked"] * 2)
            client.sendall(b'{"ask":"pending"}\n')
            self.assertEqual(json.loads(answers.readline())["kind"], "pending")  # and no more than once

    def test_fleet_watchdog_and_updates(self):
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.addCleanup(notify.shutdown, socket.SHUT_RDWR)
        notify.bind(str(self.folder / "notify"))
        heard = []

        def listen():
            with contextlib.suppress(OSError):
                while True:
                    heard.append((notify.recv(100), time.monotonic()))
        threading.Thread(target=listen, daemon=True).start()
        journal = self.file("log", "").stat()
        os.environ |= {"NOTIFY_SOCKET": str(self.folder / "notify"), "WATCHDOG_USEC": "800000",
                       "JOURNAL_STREAM": f"{journal.st_dev}:{journal.st_ino}", "LUME_LOG_DEBUG_LEVEL": "4"}
        self.addCleanup(lambda: [os.environ.pop(name) for name in ("NOTIFY_SOCKET", "WATCHDOG_USEC", "JOURNAL_STREAM",
                                                                   "LUME_LOG_DEBUG_LEVEL")])
        self.start(head="", more=f"""
kind = "update"
{self.fleet()}
[metrics]
textfile = "{self.folder}/em_alert.prom"
""")
        server = self.mail_server()
        self.assertEqual(self.command("setting", "new-updates", "on")[0], 0)
        self.plugin(1, "5 packages available")
        self.awaits(lambda: 'status{component="disk"} 2\n' in read(self.folder / "em_alert.prom"))
        self.assertEqual((self.folder / "em_alert.prom").stat().st_mode & 0o777, 0o644)
        self.submit('C:\\ "data"', status=0)
        self.awaits(lambda: r'status{component="C:\\ \"data\""} 1' in read(self.folder / "em_alert.prom"))
        self.awaits(lambda: len(server.mails()) == 2)  # the status, and the number of updates
        labels = {"alertname": "ComponentStatus", "instance": socket.gethostname(), "component": "disk"}

        def lasts(severity, lasting):
            return any(alert["labels"] == labels | {"severity": severity} and ("endsAt" not in alert) == lasting
                       for path, alerts in Fleet.told if path == "/fleet/api/v2/alerts" for alert in alerts)
        self.awaits(lambda: lasts("warning", True))
        self.plugin(2, "5 packages available")
        self.awaits(lambda: lasts("critical", True) and lasts("warning", False))
        self.plugin(0, "0 packages available")
        self.awaits(lambda: lasts("critical", False))
        self.plugin(2, "5 packages available")
        self.awaits(lambda: self.component()["status"] == 3)
        Fleet.told.clear()
        self.reload(re.sub(r"(?s)\[\[check.*?(?=\[alertm)", "", read(self.folder / "em-alertd.toml")))
        self.awaits(lambda: lasts("critical", False))  # it hears of what a reload ends
        log = read(self.folder / "log")
        self.assertIn("http://127.0.0.1:1 does not take alerts (Couldn't connect to server); they are sent again", log)
        for line in ("<4>disk: 5 packages available", "<5>disk: 0 packages available", "<6>root (process ",
                     "<7>EM_ALERT            : Add warning alert to be acknowledged\n"):
            self.assertIn("\n" + line, "\n" + log)
        self.awaits(lambda: {word for word, _ in heard} == {b"READY=1", b"WATCHDOG=1", b"RELOADING=1"})

        def pauses():
            fed = [at for word, at in heard if word == b"WATCHDOG=1"]
            return [after - before for before, after in itertools.pairwise(fed)]
        self.awaits(lambda: min(pauses(), default=1) < 0.6)  # twice in the time that is set


if __name__ == "__main__":
    unittest.main(verbosity=2)
