#!/usr/bin/env python3
"""write_cases.py FILE: 10,000 random jobs and what samples/starter/starter.py makes of them, each a line
of JSON, for the test that holds them against the tool's own parsing."""
import json
import pathlib
import random
import sys

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "samples" / "starter"))
import starter  # noqa: E402

CASES = 10_000
TOOL = r"C:\Program Files\Zentpost\zentpost.exe"
# Texts that other programs would choke on, and what has a meaning on a command line.
PLAIN = [*"aB7  -/\\.^&{}[,:*", "pdf", ".pdf", "%s", "ä", "Ã", "¤", "\u00a0", "€", "中", "\U0001f4e0", "\ufeff"]
MARKS = ['"', "'", ";", "\t", "\r\n", "\n", "\v", "\f", "\x1a", "\x01", "\x7f", "\x85", '\\"', "' ", '" ']


def text(choice, longest, with_marks):
    return "".join(choice.choice(MARKS if with_marks and choice.random() < 0.2 else PLAIN)
                   for _ in range(choice.randrange(longest)))


def random_job(choice):
    """The path of a job file, and the options that a user gave."""
    path = "C:\\" + text(choice, 12, choice.random() < 0.25) + choice.choice(["a", "a ", "a.", "a\t", "ä"])
    options = {"document": "C:\\" + text(choice, 12, True),
               "name": text(choice, 8, True) + choice.choice(["", ".pdf"]),
               "to": "0" + text(choice, 6, True)}
    has_fax_command = choice.random() < 1 / 3
    for option in "recipient", "comment", "subject", "sender":
        if choice.random() < 0.5:
            options[option] = text(choice, 30, not has_fax_command or choice.random() < 0.05)
    if choice.random() < 0.5:
        options["preview"] = "1"
    if has_fax_command:
        options["to"] = "0" + text(choice, 6, False)
        options["fax-command"] = "1"
    return path, options


def main(path):
    choice = random.Random(20261123)  # the same jobs each time
    with open(path, "w", encoding="utf-8", newline="\n") as file:
        for _ in range(CASES):
            job_path, options = random_job(choice)
            case = {"path": job_path, "options": options, "refusal": ""}
            try:
                starter.check_path(job_path)
                words = [job_path] + ([starter.fax_command(options)] if "fax-command" in options else [])
                case["job_file"] = starter.job_file_text(options)
                case["words"] = words
                case["command_line"] = starter.command_line(TOOL, words)
            except starter.Refused as refusal:
                case["refusal"] = str(refusal)
            file.write(json.dumps(case) + "\n")


if __name__ == "__main__":
    main(sys.argv[1])
