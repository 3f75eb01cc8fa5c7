#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# What the service promises of each alert, whatever happens to it.

import base64
import os
import random
import re
import signal
import time
import unittest

from programs import read
from running import ServiceTest

KILLS = int(os.environ.get("EM_KILLS", 12))  # at random moments


class Endurance(ServiceTest):
    def untold(self):
        """Of whom the state does not say that their mail is out."""
        return set(re.findall(r"(?m)^components/(.*)/told=false$", read(self.folder / "state/registry")))

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


if __name__ == "__main__":
    unittest.main(verbosity=2)
