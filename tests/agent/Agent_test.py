#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
# Runs the agent with scenarios, as those do who test a module. Each runs/NAME.scenario is one run with the answers of
# NAME.state, which NAME.transcript and NAME.story tell.

import os
import pathlib
import re
import select
import signal
import subprocess
import time
import unittest

from programs import AGENT, FAKE_MODULE, LIBRARY, ProgramTest, lines, read, rows

RUNS = pathlib.Path(__file__).parent / "runs"
MANUAL = pathlib.Path(__file__).parents[2] / "docs/em-alert-agent.1"
TIME = re.compile(r',"ms":(\d+)|^ *(\d+)\.(\d{3}) s  ', re.M)

CLOCK = r"2\d{3}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}\+0530  "


class Scenarios(ProgramTest):
    def agent(self, *arguments, **environment):
        """The exit status, and what was written to each output, without the times of a transcript."""
        begin = time.monotonic()
        run = subprocess.run([AGENT, *arguments], capture_output=True, text=True, errors="replace", check=False,
                             env=os.environ | environment)
        self.times = [int("".join(parts)) for parts in TIME.findall(run.stdout)]
        limits = [0, *self.times, (time.monotonic() - begin) * 1000]
        self.assertEqual(limits, sorted(limits))
        return run.returncode, TIME.sub("", run.stdout), run.stderr

    def run_scenario(self, state, scenario, *options, module=FAKE_MODULE, **environment):
        return self.agent("--module", module, "--state", self.file("state.json", state), "--scenario",
                          self.file("run.jsonl", scenario), *options, **environment)

    def test_whole_runs_are_written_down_in_order(self):
        for path in RUNS.glob("*.scenario"):
            state, scenario = read(path.with_suffix(".state")), read(path)
            for form, options in ((".transcript", []), (".story", ["--story"])):
                status, output, errors = self.run_scenario(state, scenario, "--cabinet", "7", *options)
                in_order = sorted if path.stem == "threads" else list  # threads race
                expected = in_order(lines(read(path.with_suffix(form))))
                self.assertEqual((status, in_order(lines(output)), errors), (0, expected, ""), path)
                self.assertGreaterEqual(self.times[-1], max(map(int, re.findall(r'"wait":(\d+)', scenario)), default=0))

    def test_what_is_wrong_is_told(self):
        for state, scenario, words in rows(RUNS / "refusals"):
            status, output, errors = self.run_scenario(state, scenario)
            self.assertEqual((status, words in errors, errors[:16]), (1, True, "em-alert-agent: "), f"{words}, not {errors}")
            self.assertEqual('"EM_Delete"' in output and '"unmapped"' in output, '"dlopen"' in output, "left loaded: " + words)
        names = {"@FAKE@": FAKE_MODULE, "@STATE@": self.file("empty", "[]"), "@LARGE@": self.file("large", ""),
                 "@BAD@": "/nowhere/lib\udcff.so"}
        os.truncate(names["@LARGE@"], (64 << 20) + 1)
        for status, arguments, words in rows(RUNS / "command-lines"):
            run = self.agent(*(names.get(word, word) for word in arguments.split()))
            self.assertEqual((run[0], words in run[1] + run[2]), (int(status), True), f"{arguments}: {run}")
        self.assertRegex(self.agent("--version")[1], "^em-alert-agent [0-9.]+\n$")
        page, described = read(MANUAL), re.findall("^  .*--([a-z-]+)", self.agent("--help")[1], re.M)
        self.assertEqual(re.findall(r"(?m)^\.It.* -([a-z-]+)", page), described)
        self.assertEqual(self.run_scenario("[]", "", "--transcript", "/dev/full"),
                         (1, "", "em-alert-agent: the transcript could not be written\n"))

    def test_trace_level_and_run_mode_reach_the_module(self):
        log = 'event log source "Hostwarden Agentless Service" registered'
        traces = self.folder / "traces"
        self.assertRegex(self.run_scenario("[]", "", "--trace", "4", "--run-mode", "5", module=LIBRARY)[2],
                         f"^(?:{CLOCK}.*\n)+{CLOCK}.*{log}\n(?:{CLOCK}.*\n)+$")
        self.assertEqual(self.run_scenario("[]", "", "--trace", "0")[2], "")
        for _ in range(2):  # appended
            self.assertEqual(self.run_scenario("[]", "", "--trace", "4", "--trace-file", traces, LUME_LOG_DEBUG_LEVEL="2")[2], "")
        self.assertEqual(read(traces).count("Server cabinet number = 0"), 2)
        self.assertNotIn("event log source", read(traces))

    def test_a_speaker_plays_into_a_sound_file(self):
        output = self.run_scenario('[{"OC":57345,"OE":1024,"DA":1},{"OC":8975,"DA":2}]', read(RUNS / "tone.jsonl"),
                                   "--wav", self.folder / "wav", module=LIBRARY)[1]
        self.assertRegex(output, r'"kind":"tone","note":"2300 Hz for (1[5-9]\d|[2-9]\d\d|\d{4,}) ms"')
        self.assertGreater((self.folder / "wav").stat().st_size, 0.15 * 88200)

    def test_a_terminal_gets_the_story_and_a_reader_may_go_away(self):
        ours, theirs = os.openpty()
        with os.fdopen(ours, "rb", 0) as terminal:
            self.run_scenario("[]", "", "--transcript", os.ttyname(theirs))
            os.close(theirs)
            self.assertTrue(any(line.endswith(b" s  The module is stopped\r\n") for line in terminal))
        reader, writer = os.pipe()
        os.close(reader)
        with os.fdopen(writer) as output:
            self.assertEqual(subprocess.run([AGENT, "--module", FAKE_MODULE, "--state", self.folder / "state.json",
                                             "--scenario", "/dev/null"], stdout=output, stderr=subprocess.DEVNULL).returncode, 1)

    def test_transcripts_and_traces_are_files_of_their_owner(self):
        transcript, traces = self.folder / "transcript", self.folder / "traces"
        command = [AGENT, "--module", LIBRARY, "--state", self.file("state.json", "[]"), "--scenario", "-",
                   "--transcript", transcript, "--trace", "2", "--trace-file", traces]
        for times in ([], ["--no-trace-times"]):
            with subprocess.Popen(command + times, stdin=subprocess.PIPE, text=True, env=os.environ) as run:
                while "## OnSwitchStarted() finished" not in read(traces) and run.poll() is None:
                    select.select([], [], [], 0.01)
                traces.rename(self.folder / "old")
                run.send_signal(signal.SIGHUP)
                run.stdin.write('{"notify":5}\n')
                run.stdin.flush()
                while '"code 5"' not in read(transcript) and run.poll() is None:
                    select.select([], [], [], 0.01)
                run.communicate()
            self.assertEqual(run.returncode, 0)
            clock = "" if times else CLOCK
            for file, words in (("old", r"EM_ALERT            : ## OnSwitchStarted\(\) finished"),
                                ("traces", r"EM_ALERT            : \*\*\* SCN_SWITCH_SHUTDOWN")):
                self.assertRegex(read(self.folder / file), f"(?m)^{clock}{words}")
            for file in (transcript, traces):
                self.assertEqual(file.stat().st_mode & 0o777, 0o600, file)
            traces.unlink()
            self.assertEqual(read(transcript).count('"dlopen"'), 1)  # the last run's


unittest.main()
