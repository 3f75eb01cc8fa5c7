#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# What the service promises of each alert, whatever happens to it.

import base64
import os
import pathlib
import random
import re
import signal
import struct
import time
import unittest

from programs import read
from running import Fleet, ServiceTest, configuration

DAY = 86400
KILLS = int(os.environ.get("EM_KILLS", 12))  # at random moments
WHOLE_DAY = "EM_DAY" in os.environ
COMPONENTS, MINUTES, CHANGING = (500, 1440, 0.005) if WHOLE_DAY else (100, 20, 0.05)


class Settling:
    """What is told of components that report numbers from 0 (OK) to 2, and what is pending then."""

    def __init__(self, names, attempts):
        self.told = dict.fromkeys(names, 0)
        self.bad = dict.fromkeys(names, 0)
        self.attempts = attempts
        self.events = []
        self.pending = []

    def take(self, name, status):
        self.bad[name] = self.bad[name] + 1 if status else 0
        if status == self.told[name] or (not self.told[name] and self.bad[name] < self.attempts):
            return
        self.told[name] = status
        self.events += [(name, ("Ok", "Warning", "Critical")[status])]
        self.pending = (self.pending + [(name, ("ok", "warning", "error")[status])])[-100:] if any(self.told.values()) else []


class Endurance(ServiceTest):
    def status(self):
        return self.ask({"ask": "status"})[0]["status"]

    def failed(self):
        return self.status()["mail"]["failed"]

    def clocks(self):
        """What moves the service's clocks, by seconds: the one on the wall, and the one that timers go by."""
        file = self.folder / "clocks"

        def move(wall, timers, holds_the_killed=False):
            with open(file, "r+b" if file.exists() else "wb") as clocks:  # which is mapped
                clocks.write(struct.pack("qqq", wall, timers, holds_the_killed))
        move(0, 0)
        self.preload(os.environ["EM_CLOCKS_LIBRARY"], EM_CLOCKS=str(file))
        return move

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
        return [(alert["name"], alert["severity"]) for alert in self.ask({"ask": "pending"})[0]["alerts"]]

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
            time.sleep(random.random() / 50)
            self.end(random.choice((signal.SIGKILL, signal.SIGTERM)))
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
        move = self.clocks()
        self.start(alerts='severity = 2\nreminder = "2h"', more=f"""
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
            move(wall, 0)
            self.pass_timers()
            self.assertEqual((self.failed(), self.component("reports")["status"]), (2, 1))
        before = len(Fleet.told)
        self.submit("raid", status=1)
        self.awaits(lambda: any("endsAt" in alert for _, alerts in Fleet.told[before:] for alert in alerts))
        now = time.strftime("%FT%TZ", time.gmtime(time.time() - DAY))
        for alert in (alert for _, alerts in Fleet.told[before:] for alert in alerts):
            self.assertLessEqual(alert["startsAt"], alert.get("endsAt", now))
            self.assertLessEqual(alert.get("endsAt", now), now)
        for timers, name in ((280, "late"), (320, "later")):
            move(-DAY, timers)
            news = []
            self.submit(name)
            self.awaits(lambda: news.extend(alerts for _, alerts in Fleet.told if f"'{name}'" in str(alerts)) or news)
            self.assertEqual("endsAt" in str(news[0]), timers < 300)  # for so long the end is told
        for timers, status in ((390, 503), (397, 503), (404, 200)):  # again each minute, and 5 s after a failure
            Fleet.status, told = status, len(Fleet.told)
            move(-DAY, timers)
            self.awaits(lambda: len(Fleet.told) > told)
        for words in ("fleet does not .* HTTP status 503", "fleet takes alerts again", r":\d+ does not .*Timeout was reached"):
            self.awaits(lambda: re.search(words, self.logged()))
        self.end(signal.SIGTERM)
        self.start()  # which has been told of times to come
        self.awaits(lambda: self.failed() == 4)
        for timers, status in ((3950, 1), (4050, 2)):
            move(-DAY, timers)
            self.pass_timers()
            self.assertEqual(self.component("reports")["status"], status)

    def test_the_watchdog_is_not_fed_when_the_module_is_stuck(self):
        move = self.clocks()
        heard = self.notices(watchdog=20000, traces=5)
        reader, log = os.pipe()
        self.addCleanup(lambda: [os.close(reader), os.close(log)])
        self.start(log)
        with open(os.open(f"/proc/self/fd/{log}", os.O_WRONLY | os.O_NONBLOCK), "wb", buffering=0) as filler:
            while filler.write(b"x" * 4096):
                pass

        def is_fed():
            before = len(heard)
            for _ in range(20):  # several times what is between two feeds
                self.ask({"check": "disk"})
            return len(heard) > before

        with self.client() as client:
            client.sendall(b'{"request":{"OC":"0x2240"}}\n')  # the module prints what it does, and waits for the reader
            for seconds, is_read, expected in ((0, 0, True), (250, 0, True), (310, 0, False), (311, 1 << 20, True)):
                move(0, seconds)
                os.read(reader, is_read)
                self.awaits(lambda: is_fed() == expected)

    def test_a_report_is_due_from_when_it_is_asked_for(self):
        move = self.clocks()
        rarely = 'interval = "30d"\ncommand = ["/bin/true"]\n'
        self.start(more=f'[[check]]\nname = "job"\n{rarely}[[check]]\nname = "slow"\ncommand = ["/bin/sleep", "99"]')
        self.assertEqual(self.command("check", "job")[0], 0)
        move(0, 3000)
        self.pass_timers()
        self.reload(read(self.config).replace(rarely, 'freshness = "1h"\n'))
        for timers, status in ((6000, 1), (6700, 2), (8000, 2), (10400, 1)):
            move(0, timers)
            self.pass_timers()
            self.assertEqual(self.component("job")["status"], status)
            if timers == 8000:  # the next one is due in an hour from here
                self.submit("job", status=0)
        self.awaits(lambda: self.component("slow")["text"] == "ended after 10 s without an answer")

    def test_what_cannot_be_killed_is_told_and_takes_no_room(self):
        move = self.clocks()
        move(0, 0, holds_the_killed=True)
        self.start(head="parallel = 1", more=configuration("held"))
        self.awaits(lambda: "does not end, although it was killed after 0.2 s" in (held := self.component("held"))["text"]
                    and held["next"] is None)
        self.awaits(lambda: self.component("held")["since"])  # told, as it has come twice
        self.plugin(2, "DISK full")
        self.awaits(lambda: self.component()["status"] == 3)
        more = "".join(configuration("held").replace('"held"', f'"held{number}"') for number in range(8))
        self.reload(read(self.configure(head="parallel = 9", more=configuration("held") + more)))
        self.awaits(lambda: self.component("held7")["checked"])
        begun = time.monotonic()
        self.reload(read(self.configure(head="parallel = 9", more=configuration("held"))))
        self.assertLess(time.monotonic() - begun, 4)  # not a second for each of them
        move(0, 0)
        self.awaits(lambda: self.component("held")["text"] == "ended after 0.2 s without an answer")

    def test_a_lost_mail_is_tried_again_after_its_pauses(self):
        move = self.clocks()
        self.start(more='kind = "update"')
        server = self.mail_server("--reply", "MAIL=550 no")
        self.assertEqual(self.command("setting", "new-updates", "on")[0], 0)
        self.plugin(0, "3 updates")
        self.submit("raid")
        passed = 0
        for tries, minutes in enumerate((1, 5, 15, 60), 1):
            for subject in ("raid", "disk/updates"):
                line = f"{subject}: no server took the mail; it is tried again in {minutes} min\n"
                self.awaits(lambda: line in self.logged())
            passed += minutes * 60
            move(0, passed - 20)
            self.pass_timers()
            self.assertEqual(self.failed(), 2 * tries)
            if minutes == 60:  # who acknowledges it has it listed again
                self.ask({"acknowledge": True})
            move(0, passed)
        self.awaits(lambda: self.logged().count(" is not tried again before the next event or start\n") == 2)
        self.assertEqual(self.pending(), [("raid", "error")])
        server = self.mail_server()
        move(0, passed + DAY)
        self.pass_timers()
        self.assertEqual((self.failed(), len(server.mails())), (10, 0))
        self.end(signal.SIGTERM)
        self.start()
        self.awaits(lambda: len(server.mails()) == 2)
        self.mail_server("--reply", "MAIL=550 no")
        self.assertEqual(self.command("setting", "severity", "1")[0], 0)
        self.reload(read(self.config).replace("[alerts]", '[alerts]\nreminder = "1min"'))
        for tries, status in enumerate((0, 1), 2):  # the mail that all is well is lost, and news begins anew
            self.submit("raid", status=status)
            self.awaits(lambda: self.logged().count("raid: no server took the mail; it is tried again in 1 min") == tries)
        server = self.mail_server()
        move(0, passed + DAY + 61)
        self.awaits(lambda: len(server.mails()) == 1 and not self.untold())
        self.pass_timers()
        self.assertEqual(len(server.mails()), 1)  # which is the reminder as well
        move(0, passed + DAY + 100)
        self.reload(read(self.config))
        move(0, passed + DAY + 125)
        self.awaits(lambda: len(server.mails()) == 2)  # the next one, which a reload has not put off

    def test_a_day_of_components_that_flap_and_a_reload_each_minute(self):
        names = [f"component{number}" for number in range(COMPONENTS)]
        checks = "".join(f'[[check]]\nname = "{name}"\nattempts = 3\n' for name in names)
        config = ("[alerts]\nmail = true\nseverity = 1\n"
                  f'message = "$(ComponentName) is $(ComponentStatus)."\n{checks}')
        self.file("em-alertd.toml", config)
        self.start()
        server = self.mail_server()
        settling = Settling(names, 3)
        state = dict.fromkeys(names, 0)
        memory = []  # KiB
        begun = time.monotonic()
        for minute in range(1, MINUTES + 1):
            orders = []
            for name in names:
                state[name] = random.choice((0, 0, 0, 1, 2)) if random.random() < CHANGING else state[name]
                status = random.choice((0, 1, 2)) if random.random() < CHANGING else state[name]
                settling.take(name, status)
                orders += [{"submit": {"name": name, "status": status, "text": f"in minute {minute}"}}]
            self.file("em-alertd.toml", config + minute % 2 * '[[check]]\nname = "at times"\nfreshness = "1h"\n')
            self.service.send_signal(signal.SIGHUP)
            self.ask(*orders)
            if minute % (MINUTES // 10) == 0:
                self.awaits(lambda: self.status()["mail"]["sent"] >= len(settling.events), 600)
                self.assertEqual(self.pending(), settling.pending)
                memory += map(int, re.findall(r"VmRSS:\s+(\d+) kB", read(pathlib.Path(f"/proc/{self.service.pid}/status"))))
            if minute % (MINUTES // 5) == 0:
                self.ask({"acknowledge": True})
                settling.pending = []
        found = (re.search(rb"(component\d+) is (\w+)\.", base64.b64decode(mail["data"])) for mail in server.mails())
        self.assertEqual([tuple(part.decode() for part in told.groups()) for told in found], settling.events)
        self.awaits(lambda: not self.untold())
        self.assertEqual((self.status()["mail"]["failed"], self.pending()), (0, []))
        self.end(signal.SIGTERM)
        print(f"{COMPONENTS * MINUTES} results, {len(settling.events)} changes in {time.monotonic() - begun:.0f} s, "
              f"{memory} KiB of memory")
        if WHOLE_DAY:
            self.assertLess(memory[-1], memory[0] + 2048)  # three bytes a result would be seen


if __name__ == "__main__":
    unittest.main(verbosity=2)
