# SPDX-License-Identifier: Apache-2.0
"""Holds the numbers and names of sip/Vocabulary.h against docs/messages.md, and looks for such numbers anywhere else."""
import os
import pathlib
import re
import sys

SOURCES = pathlib.Path(os.environ["SOURCES"])
ROOMS = ("agent", "command", "service", "em_alert", "mail", "notification", "tasks", "bench")


def numbers(pattern, text):
    return {int(number, 0) for number in re.findall(pattern, text, re.M)}


def main():
    words = (SOURCES / "sip/Vocabulary.h").read_text()
    document = re.sub(r"```.*?```", "", (SOURCES / "docs/messages.md").read_text(), flags=re.S)  # examples show mistakes
    values = dict(re.findall(r"^    (\w+) = (0x\w+|\d+),", words, re.M))
    table = re.findall(r'^    \{(\w+), "(.*?)", WordKind::(\w+)', words, re.M)
    codes = {int(values[name], 0) for name, _, kind in table if kind != "Status"}
    statuses = {int(values[name], 0) for name, _, kind in table if kind == "Status"}
    told = numbers(r"0x[0-9A-F]{4}\b", document)
    told_statuses = numbers(r"^\| (\d+) \|", document.partition("| `ST` | Meaning")[2].partition("\n\n")[0])
    failures = [f"0x{code:04X} is in the vocabulary, but not in docs/messages.md" for code in codes - told]
    failures += [f"0x{code:04X} is in docs/messages.md, but not in the vocabulary" for code in told - codes]
    failures += [f"status {status} is in one of the two only" for status in statuses ^ told_statuses]
    names = {(int(values[name], 0), called) for name, called, _ in table}
    told_names = {(int(number, 0), called) for number, called in
                  re.findall(r"^\| (0x\w+|\d+) \| (.*) \|$", document.partition("## Names")[2].partition("\n## ")[0], re.M)}
    failures += [f"{number:#x} is called \"{called}\" in one of the two only" for number, called in names ^ told_names]
    for source in (path for room in ROOMS for path in (SOURCES / room).rglob("*") if path.suffix in (".h", ".cpp")):
        text = re.sub(r'"(?:[^"\\\n]|\\.)*"|//.*', "", source.read_text())
        failures += [f"{source.relative_to(SOURCES)} writes 0x{code:04X} down again"
                     for code in numbers(r"\b0x[0-9A-Fa-f]{4}\b", text) & codes]
    print(*sorted(failures), sep="\n")
    return 1 if failures or len(codes) < 40 else 0


if __name__ == "__main__":
    sys.exit(main())
