#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the service with checks and configurations of all kinds, and with what the package brings.

import base64
import datetime
import json
import os
import re
import shlex
import signal
import subprocess
import time
import tomllib
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
        self.start(more=configuration("failing-checks", sleep=sleep, missing=missing))
        expected = {"hangs": (0, "ended after 0.3 s without an answer"), "silent": (1, "no output, exit status 0"),
                    "missing": (2, f"{missing} cannot be started: No such file or directory"), "loud": (2, "loud"),
                    "updates": (0, "ended after 0.3 s without an answer"), "inherits": (1, f"PATH={os.environ['PATH']}"),
                    "windows": (1, "well"), "figures": (1, "no text in the first line of its output, exit status 0"),
                    "odd": (0, f"{'0' * 998}1?"), "reported": (2, "no report has come within the time set for it")}
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
        config = self.configure(more=configuration("left-out"))
        self.file("limits.toml", read(HERE / "configurations/limits.toml"))
        for words, told in rows(HERE / "uses"):
            run = subprocess.run([SERVICE, *shlex.split(words)], capture_output=True, text=True, cwd=self.folder)
            self.assertRegex(f"{run.returncode} {run.stdout}{run.stderr}", rf"(?s)^{told}\n*$")
        self.assertIn(f"{config}: one check; left out, as the program is not installed: left out\n",
                      self.command("check-config", config)[1])
        once = subprocess.run([SERVICE, "--config", config, "--once"], capture_output=True, text=True)
        self.assertEqual((once.returncode, once.stdout), (0, "disk: OK - DISK OK\n"))
        with open("/dev/full", "w") as full:
            self.assertEqual(subprocess.run([SERVICE, "--config", config, "--once"], stdout=full).returncode, 1)
        plugin = self.file("plugin", "#!/no/such/interpreter\n")
        plugin.chmod(0o755)
        for name, status, told in (
                ("slow", 1, "slow: UNKNOWN - ended after 0.1 s without an answer\nfine: OK - fine\n"),
                ("crash", 1, "crash: UNKNOWN - ended by signal 11\n"),
                ("broken", 1, f"broken: WARNING - {plugin} cannot be started: No such file or directory\n"),
                ("side-by-side", 0, "lets go: WARNING - free\nwaits: OK - waited\n"),
                ("in-turn", 0, "first: CRITICAL - alone\nsecond: UNKNOWN - alone\n")):
            config = self.file("once.toml", configuration(name, plugin=plugin, folder=self.folder))
            once = subprocess.run([SERVICE, "--config", config, "--once"], capture_output=True, text=True)
            self.assertEqual((once.returncode, once.stdout), (status, told))
        hangs = self.file("hangs.toml", configuration("hangs", seconds=(seconds := f"99.{os.getpid()}98")))
        for sent in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            once = subprocess.Popen([SERVICE, "--config", hangs, "--once"])
            self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 0)
            once.send_signal(sent)
            self.assertEqual(once.wait(20), 1)
            self.awaits(lambda: subprocess.run(["pgrep", "-f", seconds]).returncode == 1)
        self.start()
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
            wait = until(checked) - until(checked | {"next": checked["checked"]})
            self.assertAlmostEqual(wait.total_seconds(), int(name), delta=2)
        hangs = configuration("hangs", seconds=(seconds := f"99.{os.getpid()}97"))
        self.reload("".join(hangs.replace('"hangs"', f'"{number}"') for number in range(9)))
        with self.client() as client:
            client.sendall(b"".join(b'{"check":"%d"}\n' % number for number in range(9)) + b'{"ask":"pending"}\n')
            client.recv(100)
        self.assertEqual(subprocess.run(["pgrep", "-cf", seconds], capture_output=True).stdout, b"8\n")
        self.assertEqual(self.end(signal.SIGINT), 0)  # with its checks, which write into the folder

    def test_what_the_package_brings_is_in_order(self):
        unit = self.file("em-alertd.service", read(FILES / "em-alertd.service").replace("/usr/bin/em-alertd", SERVICE))
        for words in (("verify", "--man=no"), ("security", "--offline=true", "--threshold=29")):
            run = subprocess.run(["systemd-analyze", *words, unit], capture_output=True, text=True)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
        self.assertEqual({words for words, _ in rows(HERE / "unit")} - set(lines(read(unit))), set())
        shipped = tomllib.loads(read(FILES / "em-alertd.toml"))
        self.assertEqual([one["name"] for one in shipped["check"] if one["if-installed"]],
                         ["disks", "load", "processes", "raid", "sensors", "updates"])
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
