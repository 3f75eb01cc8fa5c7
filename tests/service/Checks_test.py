#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the service with checks and configurations of all kinds, and with what the package brings.

import base64
import datetime
import json
import os
import re
import signal
import subprocess
import time
import unittest

from programs import COMMAND, LIBRARY, read
from running import FILES, SERVICE, ServiceTest, configuration


class Checks(ServiceTest):
    def test_checks_that_fail_themselves(self):
        sleep = f"sleep 99.{os.getpid()}"  # no other run's
        missing = self.file("plugin", "#!/no/such/interpreter\n")
        missing.chmod(0o755)
        self.environment = {"NOTIFY_SOCKET": "/none", "WATCHDOG_USEC": "99000000"}
        os.makedirs(traces := "/etc/kestrel/HostwardenSuite/TraceConfig")
        self.addCleanup(os.rmdir, traces)
        self.start(more=configuration("failing-checks", sleep=sleep, missing=missing))
        expected = {"hangs": (0, "ended after 0.3 s without an answer"), "silent": (1, "no output, exit status 0"),
                    "missing": (2, f"{missing} cannot be started: No such file or directory"), "loud": (2, "loud"),
                    "updates": (0, "ended after 0.3 s without an answer"), "inherits": (1, f"PATH={os.environ['PATH']}"),
                    "windows": (1, "well"), "figures": (1, "no text in the first line of its output, exit status 0"),
                    "reported": (2, "no report has come within the time set for it")}
        self.awaits(lambda: all((one := self.component(name))["checked"] and (one["status"], one["text"]) == told
                                for name, told in expected.items()))
        self.assertIn(f"{traces} is there and holds no .ini file", self.logged())
        self.awaits(lambda: "components/updates/told" in read(self.folder / "state/registry"))
        self.assertNotIn("components/updates/updates=", read(self.folder / "state/registry"))  # it told of no number
        # Each run of it ends with its children, until the next one begins.
        self.awaits(lambda: subprocess.run(["pgrep", "-f", sleep], stdout=subprocess.DEVNULL).returncode == 1)
        self.assertEqual(json.loads(self.command("--json", "submit", "reported", "0", "well")[1])["status"], 1)
        for report in (2, 3):
            self.submit("reported", "reported", status=report)
            self.awaits(lambda: self.component("reported")["text"] == expected["reported"][1])
            self.assertEqual(self.component("reported")["status"], 3)  # no better than what was reported

    def test_a_configuration_is_refused_as_a_whole(self):
        config = self.configure(head='metrics = 1\nparallel = "many"', alerts='word-ok = ["OK"]',
                                more="\n" + configuration("mistakes"))
        run = subprocess.run(self.words(), capture_output=True, text=True)
        self.assertEqual(run.returncode, 2)
        self.assertRegex(read(FILES / "em-alertd.service"), r"(?s)Before=smart.* mdmonitor\..*RestartPreventExitStatus=2\n")
        checked = self.command("check-config", config)[1]
        mistakes = ((2, r"\[metrics] is a table"), (3, "parallel is a whole number"), (6, "word-ok is a text"),
                    (19, r"\[\[check]] freshness is a"), (20, "taken"), (22, "no program /no/such/plugin"),
                    (23, "speed is not known"), (24, "fleet is not known"), (26, "name is one line"),
                    (27, "begins with a program"), (30, "no program no-such-plugin"), (32, '"localhost:9093" is no'),
                    *((32, f'"http://{rest}" is no') for rest in ("", "a b:1", "h:99999", "h/[?]x")), (35, "command is a"),
                    *((line, "name is one") for line in (37, 39, 40)), (41, 'interval is .* to "366d"'),
                    (42, r"name is[^\n]*\n[^\n]*:43: [^\n]*retry"), (46, "command is a"), (47, "freshness is for"))
        for told in (run.stderr, checked):
            self.assertRegex(told, r"(?s)" + ".*".join(f"em-alertd.toml:{line}: [^\n]*{words}" for line, words in mistakes))
        config = self.configure(more=configuration("left-out"))
        self.assertEqual(subprocess.run([SERVICE, "--config", config, "--once", "--state", ""]).returncode, 2)
        self.assertIn(f"{config}: one check; left out, as the program is not installed: left out\n",
                      self.command("check-config", config)[1])
        once = subprocess.run([SERVICE, "--config", config, "--once"], capture_output=True, text=True)
        self.assertEqual((once.returncode, once.stdout), (0, "disk: OK - DISK OK\n"))
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.run([SERVICE, "--config", config, "--once"], stdout=full).returncode, 1)
        plugin = self.file("plugin", "#!/no/such/interpreter\n")
        plugin.chmod(0o755)
        for name, told in (("slow", "slow: UNKNOWN - ended after 0.1 s without an answer\nfine: OK - fine\n"),
                           ("crash", "crash: UNKNOWN - ended by signal 11\n"),
                           ("broken", f"broken: WARNING - {plugin} cannot be started: No such file or directory\n")):
            config = self.file("once.toml", configuration(name, plugin=plugin))
            once = subprocess.run([SERVICE, "--config", config, "--once"], capture_output=True, text=True)
            self.assertEqual((once.returncode, once.stdout), (1, told))
        hangs = self.file("hangs.toml", configuration("hangs", seconds=(seconds := f"99.{os.getpid()}98")))
        self.service = subprocess.Popen([SERVICE, "--config", hangs, "--once"])
        self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 0)
        self.assertEqual(self.end(signal.SIGINT), 1)
        self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 1)
        self.start()
        self.file("em-alertd.toml", 'check = 1\nmetrics = {textfile = "/tmp"}')
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: re.search(r"toml:1: each check[^\n]*\n.*toml:2: .* textfile is the", self.logged()))
        self.awaits(lambda: self.component()["status"] == 1)
        for name in ("disk", "later"):  # a first result outlives a kill soon
            self.awaits(lambda: f"components/{name}/told=true" in read(self.folder / "state/registry"))
            self.reload(read(self.configure()).replace('"disk"', '"later"'))

    def test_reloads_put_nothing_off(self):
        alone = f"mkdir {self.folder}/at || echo >>{self.folder}/not-alone; sleep 0.05; rmdir {self.folder}/at"
        config = configuration("reloads", alone=alone, folder=self.folder)
        self.file("em-alertd.toml", config)
        self.start()
        begun = time.monotonic()
        while time.monotonic() < begun + 4:
            self.reload(config)
        self.assertGreaterEqual(len(read(self.folder / "ran")), 2)
        self.assertEqual(self.component("reported")["status"], 2)
        self.assertFalse((self.folder / "not-alone").exists())
        self.assertEqual(read(self.folder / "patient"), "\n")

        def until(component):
            now = datetime.datetime.now(datetime.timezone.utc)
            return datetime.datetime.fromisoformat(component["next"]) - now
        self.assertLess(until(self.component("rare")), datetime.timedelta(minutes=10))
        self.assertLess(until(self.ask({"check": "rare"})[0]["component"]), datetime.timedelta(seconds=9))
        for _ in range(2):  # told, and still so: no more retries
            self.awaits(lambda: (rare := self.component("rare"))["status"] == 2 and until(rare).days == 29)
            self.assertEqual(until(self.ask({"check": "rare"})[0]["component"]).days, 29)
        config = config.replace('"/bin/false"', f'"/bin/sh", "-c", "echo >>{self.folder}/runs; sleep 99"')
        config = config.replace("parallel = 1", "parallel = 9")
        self.reload(config.replace("/runs", "/before"))
        with self.client() as client, client.makefile() as answers:
            client.sendall(b'{"check":"rare"}\n')
            self.awaits((self.folder / "before").exists)
            self.reload(config)  # the new command, at once
            self.awaits((self.folder / "runs").exists)
            client.sendall(b'{"check":"rare"}\n{"ask":"pending"}\n')
            answers.readline()
            self.submit("rare", status=0)  # which is no answer of the check
            self.reload(re.sub("(?m)^command = .*runs.*$", "", config))  # others report it from here on
            self.assertIn("there is no check rare any more", answers.readline())
        self.assertIsNone(self.component("rare")["next"])
        self.assertEqual(read(self.folder / "runs"), "\n")  # never two at a time
        self.assertEqual(self.end(signal.SIGINT), 0)  # with its checks, which write into the folder

    def test_what_the_package_brings_is_in_order(self):
        unit = self.file("em-alertd.service", read(FILES / "em-alertd.service").replace("/usr/bin/em-alertd", SERVICE))
        for words in (("verify", "--man=no"), ("security", "--offline=true", "--threshold=30")):
            run = subprocess.run(["systemd-analyze", *words, unit], capture_output=True, text=True)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
        run = subprocess.run([SERVICE, "--config", FILES / "em-alertd.toml", "--once"], capture_output=True, text=True)
        self.assertRegex(run.stdout, r"(?m)^disks: (OK|WARNING|CRITICAL) - DISK")
        self.assertEqual((run.returncode, run.stderr), (0, ""))

    def test_others_report(self):
        self.start(alerts='severity = 2\nreminder = "1d"')
        server = self.mail_server()

        def told_of(name):
            return sum(name in base64.b64decode(mail["data"]) for mail in server.mails())
        self.file("em-alert", f'#!/bin/sh\nexec {COMMAND} --socket {self.socket} "$@"\n').chmod(0o755)
        path = {"PATH": f"{self.folder}:/usr/bin:/bin"}
        smart = {"SMARTD_DEVICE": "/dev/sda", "SMARTD_FAILTYPE": "CurrentPendingSector", "SMARTD_MESSAGE": "8 sectors"}
        subprocess.run([FILES / "smartd-exec"], env=path | smart, check=True, stdout=subprocess.DEVNULL)
        told = self.component("smart-sda")
        self.assertEqual((told["status"], told["text"]), (3, "CurrentPendingSector: 8 sectors"))
        self.awaits(lambda: self.status()["pending"] == 1)
        self.reload(read(self.config).replace('"1d"', '"200ms"'))
        self.awaits(lambda: told_of(b"smart-sda") >= 3)  # reminders, until it is well
        self.assertEqual(self.command("submit", "smart-sda", "0", "replaced")[0], 0)
        reminders = told_of(b"smart-sda")
        disk = smart | {"SMARTD_DEVICE": "/dev/bus/0", "SMARTD_DEVICESTRING": "/dev/bus/0 [hpt_1/1/2] [SAT]"}
        subprocess.run([FILES / "smartd-exec"], env=path | disk, check=True, stdout=subprocess.DEVNULL)
        self.assertEqual(self.command("submit", "smart-0-hpt_1_1_2_SAT", "0", "replaced")[0], 0)
        for words, expected in ((("DegradedArray", "/dev/md0"), (3, "DegradedArray")),
                                (("Fail", "/dev/md0", "/dev/sdb1"), (3, "Fail of /dev/sdb1")),
                                (("Rebuild40", "/dev/md0"), (2, "Rebuild40")),
                                (("RebuildFinished", "/dev/md0", " mismatches: 8"), (2, "RebuildFinished: mismatches: 8")),
                                (("SpareActive", "/dev/md0", "/dev/sdc1"), (1, "SpareActive of /dev/sdc1")),
                                (("TestMessage", "/dev/md0"), (1, "SpareActive of /dev/sdc1")),
                                (("DeviceDisappeared", "/dev/md0"), (3, "DeviceDisappeared"))):
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
        self.end(signal.SIGTERM)
        reminders = told_of(b"fan")
        self.start()
        self.awaits(lambda: told_of(b"fan") > reminders)


if __name__ == "__main__":
    unittest.main(verbosity=2)
