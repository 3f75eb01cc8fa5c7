#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# What the service promises of each alert, whatever happens to it.

import base64
import os
import random
import re
import signal
import struct
import time
import unittest

from programs import read
from running import Fleet, ServiceTest

DAY = 86400
KILLS = int(os.environ.get("EM_KILLS", 12))  # at random moments


class Clocks:
    """The service's clocks, moved by seconds: the one on the wall, and the one that timers go by."""

    def __init__(self, folder):
        self.file = folder / "clocks"
        self.environment = {"EM_CLOCKS": str(self.file), "LD_PRELOAD": os.environ["EM_CLOCKS_LIBRARY"],
                            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
        self.file.write_bytes(struct.pack("qq", 0, 0))

    def set(self, wall, timers):
        with open(self.file, "r+b") as file:  # which is mapped
            file.write(struct.pack("qq", wall, timers))


class Endurance(ServiceTest):
    def status(self):
        return self.ask({"ask": "status"})[0]["status"]

    def failed(self):
        return self.status()["mail"]["failed"]

    def move_clocks(self):
        clocks = Clocks(self.folder)
        self.environment = clocks.environment
        return clocks

    def pass_timers(self):
        """Has the service do all that is due; the first of two checks may have begun before."""
        for order in ({"check": "disk"}, {"check": "disk"}, {"notify": 131073}):
            self.ask(order)

    def mails(self, server):
        """The run that sent each mail, and about whom, in the order in which they were taken."""
        for mail in server.mails():
            run, name = re.search(rb"run (\d+) tells of (\S+)\.", base64.b64decode(mail["data"])).groups()
            yield int(run), name.decode()

    def pending(self):
        return [alert["name"] for alert in self.ask({"ask": "pending"})[0]["alerts"]]

    def start_run(self, run):
        config = read(self.configure())
        self.file("em-alertd.toml", config.replace("$(ComponentDesignation)", f"run {run} tells of $(ComponentName)."))
        self.start()

    def test_sudden_ends_lose_nothing_and_repeat_one_mail_at_most(self):
        self.start_run(0)
        server = self.mail_server()
        untold = []  # when a run ended
        for run in range(KILLS):
            self.submit(*(f"report{run}-{n}" for n in range(3)))
            time.sleep(random.random() / 20)
            self.end()
            untold += [self.untold()]
            self.start_run(run + 1)
        self.awaits(lambda: not self.untold() and len(self.pending()) == min(KILLS * 3, 100))  # the module keeps so many
        self.assertEqual(len(set(self.pending())), len(self.pending()))
        self.end(signal.SIGTERM)
        mails = list(self.mails(server))
        self.assertEqual({name for _, name in mails}, {f"report{run}-{n}" for run in range(KILLS) for n in range(3)})
        for name in {name for _, name in mails}:
            runs = [run for run, about in mails if about == name]
            for one, other in zip(runs, runs[1:]):
                self.assertTrue(all(name in untold[run] for run in range(one, other)) and one < other, (name, runs))
        for run, names in enumerate(untold):
            sent = [name for sender, name in mails if sender == run]
            # The one that a server took in the very moment of the end.
            self.assertLessEqual(names & set(sent), set(sent[-1:]), (run, sent))
        print(f"{KILLS} kills, {KILLS * 3} reports, {len(mails)} mails, of which {len(mails) - KILLS * 3} may repeat")

    def test_the_clock_on_the_wall_decides_nothing(self):
        clocks = self.move_clocks()
        self.start(head='reminder = "2h"', more=f"""
[[check]]
name = "reports"
freshness = "1h"
{self.fleet()}
""")
        self.mail_server("--reply", "MAIL=550 no")
        self.submit("reports", status=0)
        self.submit("raid", "fan")
        self.awaits(lambda: self.failed() == 2)
        for wall in (DAY, -DAY):
            clocks.set(wall, 0)
            self.pass_timers()
            self.assertEqual((self.failed(), self.component("reports")["status"]), (2, 1))
        before = len(Fleet.told)
        self.submit("raid", status=1)
        self.awaits(lambda: any("endsAt" in alert for _, alerts in Fleet.told[before:] for alert in alerts))
        now = time.strftime("%FT%TZ", time.gmtime(time.time() - DAY))
        for alert in (alert for _, alerts in Fleet.told[before:] for alert in alerts):
            self.assertLessEqual(alert["startsAt"], alert.get("endsAt", now))
            self.assertLessEqual(alert.get("endsAt", now), now)
        self.end(signal.SIGTERM)
        self.start()  # which has been told of times to come
        self.awaits(lambda: self.failed() == 2)
        for timers, status in ((3500, 0), (3600, 2)):
            clocks.set(-DAY, timers)
            self.pass_timers()
            self.assertEqual(self.component("reports")["status"], status)

    def test_a_lost_mail_is_tried_again_after_its_pauses(self):
        clocks = self.move_clocks()
        self.start(more='kind = "update"')
        server = self.mail_server("--reply", "MAIL=550 no")
        self.assertEqual(self.command("setting", "new-updates", "on")[0], 0)
        self.plugin(0, "3 updates")
        self.submit("raid")
        passed = 0
        for tries, minutes in enumerate((1, 5, 15, 60), 1):
            for subject in ("raid", "disk/updates"):
                line = f"{subject}: no server took the mail; it is tried again in {minutes} min\n"
                self.awaits(lambda: line in read(self.folder / "log"))
            passed += minutes * 60
            clocks.set(0, passed - 20)
            self.pass_timers()
            self.assertEqual(self.failed(), 2 * tries)
            if minutes == 60:
                server = self.mail_server()
            clocks.set(0, passed)
        self.awaits(lambda: len(server.mails()) == 2)
        clocks.set(0, passed + DAY)
        self.pass_timers()
        self.assertEqual((self.failed(), len(server.mails())), (8, 2))


if __name__ == "__main__":
    unittest.main(verbosity=2)
