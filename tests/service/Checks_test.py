#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the service with checks and configurations of all kinds, and with what the package brings.

import base64
import datetime
import json
import os
import pathlib
import re
import signal
import subprocess
import time
import unittest

from programs import COMMAND, LIBRARY, lines, read, rows
from running import FILES, HERE, SERVICE, ServiceTest, configuration


class Checks(ServiceTest):
    def test_checks_that_fail_themselves(self):
        sleep = f"sleep 99.{os.getpid()}"  # no other run's
        missing = self.file("plugin", "#!/no/such/interpreter\n")
        missing.chmod(0o755)
        self.environment = {"NOTIFY_SOCKET": "/none", "WATCHDOG_USEC": "99000000", "WATCHDOG_PID": "1"}
        os.makedirs(traces := "/etc/kestrel/HostwardenSuite/TraceConfig")
        self.addCleanup(os.rmdir, traces)
        self.start(more=configuration("failing-checks", sleep=sleep, missing=missing, path=os.environ["PATH"]))
        expected = {name: (int(status), text) for name, status, text in re.findall('name = "(.*)" # (.) (.*)', read(self.config))}
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
        for mistakes in HERE.glob("configurations/mistakes*"):
            config = self.file("em-alertd.toml", read(mistakes))
            expected = [f"{number}: {words}" for number, line in enumerate(lines(read(mistakes)), 1)
                        for words in line.split(" #: ")[1:]]
            run = subprocess.run(self.words(), capture_output=True, text=True)
            self.assertEqual((run.returncode, re.findall(f"em-alertd: {config}:(.*)", run.stderr)), (2, expected))
            self.assertEqual(re.findall(f"{config}:(.*)", self.command("check-config", config)[1]), expected)
        hangs = self.file("hangs.toml", configuration("hangs", seconds=(seconds := f"99.{os.getpid()}98")))
        for sent in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            once = subprocess.Popen([SERVICE, "--config", hangs, "--once"])
            self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 0)
            once.send_signal(sent)
            self.assertEqual(once.wait(20), 1)
            self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 1)
        self.start(more=configuration("left-out"))
        self.file("em-alertd.toml", 'check = 1\nmetrics = {textfile = "/tmp"}')
        self.service.send_signal(signal.SIGHUP)
        self.awaits(lambda: re.search(r"toml:1: each check.*\n.*toml:2: .* textfile is.*\n.*stays as it was\n", self.logged()))
        self.awaits(lambda: self.component()["status"] == 1)
        for name in ("disk", "later"):  # a first result outlives a kill soon
            self.awaits(lambda: f"components/{name}/told=true" in read(self.folder / "state/registry"))
            self.reload(read(self.configure(more=configuration("left-out"))).replace('"disk"', '"later"'))
        self.assertEqual(self.logged().count(": one check; left out, as the program is not installed: left out\n"), 3)

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
        self.assertTrue(datetime.timedelta(minutes=5) < until(self.component("rare")) < datetime.timedelta(minutes=10))
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
            self.awaits(lambda: subprocess.run(["pgrep", "-f", f"{self.folder}/before"]).returncode == 1)
            client.sendall(b'{"check":"rare"}\n{"ask":"pending"}\n')
            answers.readline()
            self.submit("rare", status=0)  # which is no answer of the check
            self.reload(re.sub("(?m)^command = .*runs.*$", "", config))  # others report it from here on
            self.assertIn("there is no check rare any more", answers.readline())
        self.assertIsNone(self.component("rare")["next"])
        self.assertEqual(read(self.folder / "runs"), "\n")  # never two at a time
        self.ask({"check": "patient"})  # is bad for the second time, of which its next command knows nothing
        config = config.replace("exit 2", "exit  2")
        self.reload(config)
        self.assertEqual(self.ask({"check": "patient"})[0]["component"]["status"], 0)
        self.reload(config.replace('"10min"', '"100ms"'))
        self.awaits(lambda: self.component("patient")["status"] == 3)
        self.reload(configuration("intervals"))
        for name in (one["name"] for one in self.status()["components"]):
            checked = self.ask({"check": name})[0]["component"]
            self.assertAlmostEqual((until(checked) - until({"next": checked["checked"]})).total_seconds(), int(name), delta=2)
        self.assertEqual(self.end(signal.SIGINT), 0)  # with its checks, which write into the folder

    def test_what_the_package_brings_is_in_order(self):
        unit = self.file("em-alertd.service", read(FILES / "em-alertd.service").replace("/usr/bin/em-alertd", SERVICE))
        self.assertEqual({words for words, _ in rows(HERE / "unit")} - set(lines(read(unit))), set())
        self.file("plugin", "#!/no/such/interpreter\n").chmod(0o755)
        self.configure(more=configuration("left-out"))
        for name in ("broken", "crash", "eight", "in-turn", "limits", "side-by-side", "slow"):
            self.file(f"{name}.toml", configuration(name, folder=self.folder))
        for line, told in rows(HERE / "uses"):
            run = subprocess.run(line, shell=True, cwd=self.folder, capture_output=True, text=True,
                                 env={"PATH": f"{pathlib.Path(SERVICE).parent}:/bin", "FILES": FILES})
            self.assertRegex(f"{run.returncode} {run.stdout}{run.stderr}", f"^{told}\n*$")

    def test_others_report(self):
        self.start(alerts='severity = 2\nreminder = "1d"')
        server = self.mail_server()

        def told_of(name):
            return sum(name in base64.b64decode(mail["data"]) for mail in server.mails())
        self.file("em-alert", f'#!/bin/sh\nexec {COMMAND} --socket {self.socket} "$@"\n').chmod(0o755)
        path = {"PATH": f"{self.folder}:/usr/bin:/bin"}
        for line, name, status, text in rows(HERE / "reports"):
            subprocess.run(line, shell=True, cwd=FILES, env=path, check=True, stdout=subprocess.DEVNULL)
            told = self.component(name)
            self.assertEqual((told["status"], told["text"]), (int(status), text), line)
        self.awaits(lambda: self.status()["pending"] == 1)
        self.reload(read(self.config).replace('"1d"', '"200ms"'))
        self.awaits(lambda: told_of(b"smart-sda") >= 3)  # reminders, until it is well
        self.assertEqual(self.command("submit", "smart-sda", "0", "replaced")[0], 0)
        reminders = told_of(b"smart-sda")
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
