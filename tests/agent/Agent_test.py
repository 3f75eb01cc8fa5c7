#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the agent with scenarios, as those do who test a module.

import os
import pathlib
import re
import select
import signal
import subprocess
import unittest

from programs import AGENT, FAKE_MODULE, LIBRARY, ProgramTest, read, rows

RUNS = pathlib.Path(__file__).parent / "runs"


def agent(*arguments, **environment):
    """The exit status, and what was written to both outputs, without the transcript's times."""
    run = subprocess.run([AGENT, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False,
                         env=os.environ | environment)
    return run.returncode, re.sub(r',"ms":[^}]*', "", run.stdout)


class Scenarios(ProgramTest):
    def run_scenario(self, state, scenario, *options, module=FAKE_MODULE, **environment):
        return agent("--module", module, "--state", self.file("state.json", state), "--scenario",
                     self.file("run.jsonl", scenario), "--trace-file", self.folder / "traces", *options, **environment)

    def test_a_whole_run_is_written_down_in_order(self):
        run = self.run_scenario('[{"OC":"0xE001","OE":"0x400","DA":1},{"OC":4660,"ST":12,"DA":"late"}]',
                                read(RUNS / "whole.scenario"), "--cabinet", "7")
        self.assertEqual(run, (0, read(RUNS / "whole.transcript")))

    def test_the_first_entry_that_fits_answers(self):
        status, output = self.run_scenario(read(RUNS / "answers.state"), read(RUNS / "answers.scenario"))
        self.assertEqual(re.findall(r'"answer":.*"OC":4660.*?"ST":(.*?)}', output),
                         ['0,"DA":"exact"', '9', '0,"DA":[1]', '9', '1', '0,"DA":"set"', '9', '1,"DA":"new"'])
        self.assertEqual(status, 0)

    def test_restart_and_threads(self):
        status, output = self.run_scenario('[{"OC":57345,"OE":1024,"DA":1}]', read(RUNS / "threads.scenario"))
        self.assertEqual(status, 0, output)
        for text, count in (('"step":"unmapped","result":true', 2), ('{"kind":"reply"', 3),
                            ('{"kind":"event"', 1), ('{"kind":"withheld"', 1)):  # after the restart events are off
            self.assertEqual(output.count(text), count, text)

    def test_a_story_cuts_data_behind_100_characters_and_hides_passwords(self):
        quoted = r'\"' + "[" * 65  # no nesting: it stands in a text
        for text, told in (("x" * 98, "x" * 98 + '"'), ("x" * 99, "x" * 99 + "..."),
                           ("x" * 98 + "\u00e4", "x" * 98 + "..."), (quoted, quoted + '"')):
            output = self.run_scenario("[]", f'{{"request":{{"OC":1,"DA":"{text}"}}}}', "--story")[1]
            self.assertIn(f'data "{told}, refused', output)
        for code in ("0xE001", "0xE002"):
            secret = f'{{"request":{{"OC":"{code}","OE":"0x0439","DA":"geheim"}}}}'
            self.assertIn("data hidden, refused", self.run_scenario("[]", secret, "--story")[1])

    def test_what_is_wrong_is_told(self):
        for state, scenario, words in rows(RUNS / "refusals"):
            status, output = self.run_scenario(state, scenario)
            self.assertEqual(status, 1, words)
            self.assertIn(words, output)
            self.assertEqual('"EM_Delete"' in output and '"unmapped"' in output, '"dlopen"' in output, "left loaded: " + words)
        for option in ("--state", "--scenario"):  # a directory can be opened, and holds nothing
            status, output = self.run_scenario("[]", "", option, "/etc")
            self.assertEqual((status, "em-alert-agent: cannot read /etc: Is a directory" in output), (1, True), output)
        self.assertIn("state.json, line 1: the state is", agent("--module", FAKE_MODULE, "--state", self.file("state.json", "{}"))[1])
        self.assertEqual(self.run_scenario("[]", "", "--transcript", "/dev/full")[0], 1)
        for arguments, words in rows(RUNS / "command-lines"):
            status, output = agent(*arguments.split())
            self.assertEqual(status, 2, arguments)
            self.assertIn(words, output)
        self.assertEqual(agent("--help")[0], 0)
        self.assertRegex(agent("--version")[1], "^em-alert-agent [0-9.]+\n$")
        self.assertEqual(self.run_scenario("[]", "", "--transcript", "/dev/full"),
                         (1, "em-alert-agent: the transcript could not be written\n"))
        for library, words in (("/nowhere/libx.so", "dlopen failed: /nowhere/libx.so: cannot open"),
                               ("libm.so.6", "undefined symbol: EM_Create")):
            status, output = self.run_scenario("[]", "", module=library)
            self.assertEqual(status, 1)
            self.assertIn(words, output)

    def test_trace_level_and_run_mode_reach_the_module(self):
        log = 'event log source "Hostwarden Agentless Service" registered'
        self.assertEqual(self.run_scenario("[]", "", "--trace", "4", "--run-mode", "5")[0], 0)
        self.assertIn(log, read(self.folder / "traces"))
        self.assertEqual(self.run_scenario("[]", "", "--trace", "4", LUME_LOG_DEBUG_LEVEL="2")[0], 0)
        first, traces = read(self.folder / "traces").split("*** SCN_SWITCH_SHUTDOWN ***")[:2]  # appended
        self.assertIn(log, first)
        self.assertIn("Server cabinet number = 0", traces)
        self.assertNotIn("event log source", traces)

    def test_transcripts_and_traces_are_files_of_their_owner(self):
        transcript, traces = self.folder / "transcript", self.folder / "traces"
        command = [AGENT, "--module", LIBRARY, "--state", self.file("state.json", "[]"), "--scenario", "-",
                   "--transcript", transcript, "--trace", "2", "--trace-file", traces]
        for times in ([], ["--no-trace-times"]):
            with subprocess.Popen(command + times, stdin=subprocess.PIPE, text=True, env=os.environ) as run:
                while '"OnSwitchStarted"' not in read(transcript):
                    select.select([], [], [], 0.01)
                traces.rename(self.folder / "old")
                run.send_signal(signal.SIGHUP)
                run.communicate('{"notify":5}\n')
            self.assertEqual(run.returncode, 0)
            time = "" if times else r"2\d{3}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+0530  "
            for file, words in (("old", r"EM_ALERT            : ## OnSwitchStarted\(\) finished"),
                                ("traces", r"EM_ALERT            : \*\*\* SCN_SWITCH_SHUTDOWN")):
                self.assertRegex(read(self.folder / file), f"(?m)^{time}{words}")
            for file in (transcript, traces):
                self.assertEqual(file.stat().st_mode & 0o777, 0o600, file)
            traces.unlink()
            transcript.unlink()


unittest.main()
