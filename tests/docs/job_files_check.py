#!/usr/bin/python3
"""job_files_check.py BUILD: holds the job files' schemas and samples against the tool in BUILD.

Delivers job files to addin_listener: samples/jobs, the schemas' examples, and random ones. What is valid by
the strict schema must arrive as it stands in the file; what is valid by the tolerant one must give a job
with a document, and everything else one without. Every file must keep what it held and get its Result.
Prints what is wrong. Exit code 0: nothing; 1: something; 77: a Python package is missing.
"""
import collections
import copy
import json
import os
import pathlib
import random
import subprocess
import sys
import tempfile

from docs_check import ROOT, schema_check
from docs_run import SETTINGS, started, wait_for_output

RANDOM_JOBS = 500
# Letters that the payload can hold whatever stands beside them: docs/integration.md, Payload.
LETTERS = ["a", "B", "7", " ", "'", '"', ";", "\\", "/", "\t", "ä-", "ß.", "é ", "€x"]
MEMBERS = {
    "RecipientName": "RecipientName", "SenderName": "UserName", "Comment": "Comment", "Subject": "Subject",
    "SendTime": "SendTime",
}


def random_text(chance):
    return "".join(chance.choice(LETTERS) for _ in range(chance.randrange(1, 12)))


def random_job(chance):
    """As a careful writer writes it, but for a slip now and then."""
    slips = chance.choice([0, 0.03, 0.1])
    close = {"SourceFileName": ["a", "a.PDF", "a.pdf.txt", None, 7],
             "Receiver": [["0301", "0302"], [], "0301", [301]],
             "Preview": ["0", "", True, 0], "ECM": ["1", "", False, 1]}

    def entry(name, value):
        if chance.random() < slips:
            value = chance.choice(close.get(name, [7, 1.5, True, None, [], {}, [value], ""]))
        if chance.random() < slips:
            name = chance.choice([name.upper(), name.lower(), name + "s", name[1:]])
        return name, value

    def some(members):
        return dict(entry(name, value) for name, value in members.items() if chance.random() > 0.4)

    texts = {name: random_text(chance) for name in [*MEMBERS.values(), "Baudrate", "NGDX"]}
    fields = {**texts, "ECM": chance.choice("-0"), "Preview": chance.choice("-1")}
    command = [entry("Parameters", some(fields)), entry("Receiver", [random_text(chance).strip() or "0"])]
    if chance.random() < slips:
        command.append(entry("Commands", some({"S": "a", "P": "-", "U": "b"})))
    name = "".join(letter for letter in random_text(chance) if letter not in '\\/:*?"<>|\t')
    members = [entry("FilePath", "C:\\" + random_text(chance)), entry("SourceFileName", name + ".pdf"),
               entry("Cmd", dict(command))]
    return dict(member for member in members if chance.random() >= slips)


def unchanged(job):
    """The payload of a job that is as the strict schema wants it: what stands in the file."""
    fields = job["Cmd"].get("Parameters", {})
    return {"Receiver": job["Cmd"].get("Receiver", [""])[0], "FileName": job["FilePath"],
            "AttachmentName": job["SourceFileName"],
            **{member: fields.get(field, "") for member, field in MEMBERS.items()},
            "ECM": fields.get("ECM", "-") == "-", "Preview": fields.get("Preview", "-") != "-"}


def deliver(build, jobs):
    """What the listener got of each, and what stood in the file then."""
    after = []
    with tempfile.TemporaryDirectory(prefix="jobs") as parent, tempfile.NamedTemporaryFile() as output:
        folder = pathlib.Path(parent)
        with started([build / "tools" / "addin_listener" / "addin_listener", "--port-file", folder / "port", "--json",
                      "--count", str(len(jobs))], output.file) as listener:
            wait_for_output(listener, output.name)
            (folder / "registry.reg").write_text(SETTINGS.format(port=(folder / "port").read_text().strip()))
            for job in jobs:
                file = folder / "job.json"
                file.write_text(json.dumps(job, ensure_ascii=False), encoding="utf-8")
                run = subprocess.run([build / "zentpost", file], check=False, env={
                    **os.environ, "ZENTPOST_REGISTRY": str(folder / "registry.reg"), "HOME": parent})
                after.append((run.returncode, json.loads(file.read_text(encoding="utf-8"))))
            listener.wait(60)
        text = pathlib.Path(output.name).read_text(encoding="utf-8")
    payloads = []
    while "{" in text:
        text = text[text.index("{"):]
        payload, end = json.JSONDecoder().raw_decode(text)
        payloads.append(payload["Parameters"])
        text = text[end:]
    return zip(payloads, after, strict=True)


def problem(job, payload, after):
    """What is wrong with what became of the job, and which kind it is of."""
    data = json.dumps(job).encode()
    kind = "strict" if not schema_check.problems("job-file.strict", data) else \
        "tolerant" if not schema_check.problems("job-file", data) else "neither"
    kept = copy.deepcopy(job)
    result = next((name for name in kept if name.lower() == "result"), "Result")
    kept[result] = schema_check.DELIVERED
    if after != (0, kept):
        return kind, f"the file has become {after}"
    if kind == "strict" and payload != unchanged(job):
        return kind, f"arrived as {payload}"
    if (payload["AttachmentName"] != "") != (kind != "neither"):
        return kind, f"{kind}, but the attachment is {payload['AttachmentName']!r}"
    return kind, None


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    files = sorted((ROOT / "samples" / "jobs").glob("*.json"))
    samples = {path.name: json.loads(path.read_text(encoding="utf-8")) for path in files}
    for name in "job-file", "job-file.strict":
        for index, example in enumerate(schema_check.SCHEMAS[name]["examples"]):
            samples[f"{name}, example {index}"] = example
    chance = random.Random(4711)
    jobs = {**samples, **{f"random {index}": random_job(chance) for index in range(RANDOM_JOBS)}}
    kinds, wrong = collections.Counter(), []
    for (name, job), (payload, after) in zip(jobs.items(), deliver(build, list(jobs.values()))):
        kind, text = problem(job, payload, after)
        kinds[kind] += 1
        if text:
            wrong.append(f"{name}: {text}: {job}")
        if name.endswith(".json") and kind != "strict":
            wrong.append(f"{name}: not as the strict schema wants it")
    wrong += [f"too few are {kind}" for kind in ("strict", "tolerant", "neither") if kinds[kind] < RANDOM_JOBS // 20]
    print("\n".join(wrong + [f"job_files_check: {dict(kinds)} job files, {len(wrong)} problems"]))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
