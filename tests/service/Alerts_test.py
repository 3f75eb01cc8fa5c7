#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the service with plugins that do what a file says, and reads what becomes of its alerts and mails.

import base64
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time
import unittest

from programs import LIBRARY, read
from running import HERE, ServiceTest


class Alerts(ServiceTest):
    def test_a_state_settles_is_told_once_and_survives(self):
        forging = "Mail return code: 7"  # a trace of the module that names it is none of a mail
        self.environment = {"LUME_LOG_DEBUG_LEVEL": "3"}
        self.start(attempts=3, more="unknown = 3")
        server = self.mail_server()
        self.awaits(lambda: self.component()["status"] == 1)
        self.plugin(2, "DISK\tw\udce4rme \x1b[31mfull\x9b\xff | free=0 | used=1\nmore | lines")
        self.awaits(lambda: self.component()["status"] == 3)
        self.assertEqual(self.component()["text"], "DISK w?rme ?[31mfull?\xff")
        self.assertEqual((self.status()["system"], self.status()["pending"]), (3, 1))
        self.submit(forging)
        self.awaits(lambda: len(server.mails()) == 2 and not self.untold())
        self.assertIn(b"file system /", base64.b64decode(server.mails()[0]["data"]))
        since = self.component(forging)["since"]
        for sent, exit_status in ((signal.SIGKILL, 2), (signal.SIGTERM, 3)):
            self.submit("fan", status=0, text=f"before {sent:d}")  # told by nobody else: a stop keeps it
            self.assertEqual(self.end(sent), -9 if sent == signal.SIGKILL else 0)
            self.assertEqual(self.command("--module", LIBRARY, "get")[0], 0)  # nobody answers, whether a socket is left or not
            self.plugin(exit_status, "DISK gone")  # unknown is as bad: the cause persists, it is listed, not mailed again
            self.start()
            self.awaits(lambda: self.status()["pending"] == 2)
            self.submit(forging)  # news of what is told already
        self.assertLessEqual({"status": 1, "text": "before 15"}.items(), self.component("fan").items())
        self.assertIn((since, forging), [(one["since"], one["name"]) for one in self.ask({"ask": "pending"})[0]["alerts"]])
        self.assertIn({"name": "disk", "designation": "file system /", "severity": "error", "text": "DISK gone",
                       "since": self.component()["since"]}, json.loads(self.command("--json", "pending")[1]))
        self.assertEqual(self.ask({"acknowledge": True})[0]["alerts"], 2)
        self.assertEqual((self.status()["pending"], len(server.mails())), (0, 2))
        self.end()
        self.start()  # what is acknowledged is bad all the same
        self.assertEqual((self.status()["pending"], self.status()["system"]), (0, 3))
        self.submit(forging, status=0)
        self.awaits(lambda: [one["severity"] for one in self.ask({"ask": "pending"})[0]["alerts"]] == ["ok"])
        self.plugin(0, "DISK OK")
        self.awaits(lambda: self.status()["system"] == 1)
        self.assertEqual(self.status()["mail"]["failed"], 0)

    def test_a_mail_is_due_until_a_server_takes_it(self):
        self.start(more='kind = "update"')
        began = time.strftime("%FT%TZ", time.gmtime())
        server = self.mail_server("--reply", "MAIL=550 no")
        self.assertEqual(self.command("setting", "new-updates", "on")[0], 0)
        self.plugin(2, "DISK full, 3 updates")
        for subject in ("disk", "disk/updates"):
            self.awaits(lambda: f"{subject}: no server took the mail; it is tried again in 1 min" in self.logged())
        self.assertEqual(self.command("test-mail")[0], 1)
        self.assertEqual(set(re.findall(r"em-alertd: C\w+ *: (\S+)", self.logged())), {"ERROR!"})
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
        traces = [answer["text"] for answer in answers if (answer["kind"], answer.get("level")) == ("trace", 1)]
        self.assertTrue(traces and all(text.startswith("CSMTPClient ") for text in traces), traces)
        mail, now = self.status()["mail"], time.strftime("%FT%TZ", time.gmtime())
        self.assertEqual((mail["failed"], began <= mail["last"] <= now), (2, True), mail)  # test mails are about no alert
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
        other = '[[check]]\nname = "other"\ncommand = ["/bin/sh", "-c", "exit 1"]\ninterval = "200ms"\n'
        self.start()
        self.mail_server("--reply", "MAIL=550 no")
        self.submit("other", status=0)
        self.reload(read(self.config) + other)  # from here on it is no report's alone
        self.plugin(2, "DISK full")
        self.awaits(lambda: self.status()["pending"] == 2)
        text = read(self.config)
        self.reload(other)
        self.assertEqual([(one["name"], one["designation"]) for one in self.status()["components"]], [("other", "other")])
        self.reload("")  # nothing is bad any more
        self.awaits(lambda: (self.status()["system"], self.status()["pending"]) == (1, 0))
        self.reload(text)
        self.awaits(lambda: self.status()["pending"] == 2)
        self.end(signal.SIGTERM)
        self.config.write_text("[alerts]\nmail = true\nseverity = 1\n")
        (self.folder / "log").write_text("")
        self.start()
        self.assertEqual(self.status()["components"], [])
        self.awaits(lambda: all(f"{name}: no server took the mail; it is tried again" in self.logged()
                                for name in ("disk", "other")))
        self.submit("other", status=0)  # somebody watches it again, and its mail is still due
        self.end()
        server = self.mail_server(offline=True)
        self.start()
        self.awaits(lambda: len(server.mails()) == 2 and "components/disk" not in read(self.folder / "state/registry"))
        self.assertIn(b"file system /", b"".join(base64.b64decode(mail["data"]) for mail in server.mails()))

    def test_what_comes_again_is_told_as_its_own(self):
        nobody = '[alerts]\nmail = true\nseverity = 1\nsubject = "$(ComponentStatus)"\n'
        other = nobody + '[[check]]\nname = "other"\n'
        self.file("em-alertd.toml", other)
        self.start()
        server, hanging = self.mail_server(), self.serve("--hang", "DOT")
        server.process.send_signal(signal.SIGSTOP)
        self.submit("other", status=1)
        self.reload(nobody)
        self.reload(other)
        self.submit("other")  # another one; the mail about the first one has yet to go out
        with self.client() as client:
            client.sendall(b'{"request":{"OC":"0xE002","OE":"0x0432","DA":%s}}\n{"ask":"pending"}\n' % hanging.port.encode())
            client.makefile().readline()  # the request waits for the module
            server.process.send_signal(signal.SIGCONT)
            self.awaits(lambda: "DATA" in read(hanging.folder / "commands"))
        self.end()
        server = self.mail_server(offline=True)
        self.start()
        self.awaits(lambda: len(server.mails()) == 1 and self.status()["pending"] == 1)
        server.process.kill()
        self.reload(nobody)
        self.awaits(lambda: "other: no server took the mail" in self.logged())
        self.reload(other)  # which knows nothing of it yet but the mail that is due
        self.end(signal.SIGTERM)
        server = self.mail_server(offline=True)
        self.start()
        self.awaits(lambda: len(server.mails()) == 1 and not self.untold())

    def test_what_is_acknowledged_while_its_reminder_waits_stays_so(self):
        self.start(alerts='severity = 2\nreminder = "100ms"')
        self.submit("fan", "raid")
        self.awaits(lambda: self.status()["pending"] >= 2)
        server = self.mail_server("--hang", "DOT")
        self.awaits(lambda: "DATA" in read(server.folder / "commands"))
        begun = time.monotonic()
        self.awaits(lambda: time.monotonic() > begun + 0.3)  # for the reminder of the other one
        with self.client() as client:
            client.sendall(b'{"acknowledge":true}\n')
            self.awaits(lambda: "control socket: acknowledge" in self.logged())
            server.process.kill()
            self.assertEqual(json.loads(client.makefile().readline())["kind"], "acknowledged")
        self.submit("psu")
        self.awaits(lambda: self.status()["pending"] > 0)
        self.assertEqual({one["name"] for one in self.ask({"ask": "pending"})[0]["alerts"]}, {"psu"})

    def test_what_unknown_counts_as_may_change(self):
        self.start(more="unknown = 1")
        self.mail_server()
        self.plugin(3, "DISK unreadable")
        self.awaits(lambda: self.component()["text"] == "DISK unreadable")
        for counts, pending in ((3, 1), (1, 0)):
            self.reload(re.sub("unknown = .", f"unknown = {counts}", read(self.config)))
            self.awaits(lambda: (self.status()["system"], self.status()["pending"]) == (counts, pending))
        for counts, pending in ((3, 1), (1, 0)):
            self.end(signal.SIGTERM)
            self.start(more=f"unknown = {counts}")
            self.awaits(lambda: (self.status()["system"], self.status()["pending"]) == (counts, pending))
            self.awaits(lambda: not self.untold())

    def test_settings_changed_at_run_time_stay(self):
        subprocess.run(["mount", "--bind", HERE / "machine", "/sys/class"], check=True)  # with what firmware tells
        self.addCleanup(subprocess.run, ["umount", "/sys/class"], check=True)
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
        before = self.command("setting")[1]
        for name, value in re.findall(r"(?m)^(\S+) +(on|off)\b", before):
            self.command("setting", name, "off" if value == "on" else "on")
            self.command("reset", name)
            self.assertEqual(self.command("setting")[1], before, name)
        usual = pathlib.Path("/etc/em-alert/em-alertd.toml")  # of the private machine
        usual.parent.mkdir()
        self.addCleanup(shutil.rmtree, usual.parent)
        usual.write_text("[alerts]\nmail = true\n")
        self.assertEqual(self.command("setting", "mail", "off")[0], 0)
        self.reload(read(self.config))
        self.assertRegex(self.command("check-config")[1], "(?s)toml: 0 checks.*not mailed: em-alert setting mail on")
        self.assertIn("none answers at /no/socket: ", self.run_command("--socket", "/no/socket", "check-config")[1])
        self.assertNotIn("none answers", self.run_command("--module", LIBRARY, "check-config")[1])
        self.assertEqual(self.command("reset", "mail")[0], 0)
        self.assertIn("not mailed", self.command("check-config", self.file("next.toml", ""))[1])
        self.ask({"set": {"OC": "0xE001", "OE": "0x0411", "OI": 5, "DA": 1}},  # of one object, or cabinet: until the end
                 {"set": {"OC": "0xE001", "OE": "0x0411", "CA": 5, "DA": 1}},
                 {"set": {"OC": "0xE001", "OE": 9999, "DA": "theirs"}})  # as what is no setting
        self.end()
        self.start()
        self.assertRegex(self.command("setting")[1], "(?s)mail +on.*severity +2")
        self.assertNotIn("theirs", str(self.ask({"ask": "settings"}, {"reset": 0x210})))  # the asset tag is no setting
        text = read(self.configure(more='[alertmanager]\nurls = []'))
        message = '"by file: $(ComponentName) $(SystemModel) $(SystemSerialNr) $(SystemAssetID)'
        self.reload(text.replace("subject =", "# ").replace('"$(ComponentDesignation)', message))
        self.plugin(1, "DISK low")
        self.awaits(lambda: len(server.mails()) == 2)
        mail = base64.b64decode(server.mails()[1]["data"])
        for words in (b"Warning:_disk_on_alpha", b"\nby file: disk Tower 200 YK2X 4711\r"):
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
            self.awaits(lambda: f"speaker: {tone} Hz" in self.logged())
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


if __name__ == "__main__":
    unittest.main(verbosity=2)
