#!/usr/bin/python3
"""docs_run.py BUILD: executes the blocks of the documents that are marked "run".
docs_run.py BUILD --emulator WINE_RUN ARCH: executes those marked "windows" and "background".

Each block is executed in an empty folder, with the blocks that have a NAME before it in its document as
files, and with the programs of BUILD in the search path; SAMPLES and DOCS name the tree's folders. It must
end with exit code 0, and so must each of its commands, but those before || and, for cmd.exe, those before a
line that looks at errorlevel: Wine executes what is behind || in any case. "text output" behind it is held
against what it prints. The port 5000 stands for one that is free. A block that starts the tool or the doctor
without choosing who gets the job finds a stand-in for the add-in at work.

Under Wine the folder is C:\\fax, and the programs are in C:\\zentpost. What a block leaves in the registry,
in the user's log folder and at the top of the drive is taken away. A "background" block runs beside the next
one, which starts when it has printed something; what it prints counts as printed behind the other's.
Prints PLACE: TEXT for each problem. Exit code 0: none; 1: some; 77: a Python package is missing.
"""
import argparse
import concurrent.futures
import contextlib
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

from docs_check import EXECUTED, EXECUTED_ELSEWHERE, ROOT
from documents import Document

SECONDS = 60
# Where the programs are that the documents call.
PROGRAM_FOLDERS = (".", "tools/addin_listener", "tools/sandbox_mapi")
DOCUMENTS_PORT = "5000"
STARTS_A_JOB = re.compile(r"\bzentpost(_doctor)?(\.exe)?\b")
CHOOSES_WHO_GETS_IT = re.compile(r"TolvanAddinPort|sandbox_mapi|addin_listener|ZENTPOST_REGISTRY")
SETTINGS = """Windows Registry Editor Version 5.00

[HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin]
"TolvanAddinPort"="{port}"
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


def with_port(text, port):
    return re.sub(rf"(?<![\d.]){DOCUMENTS_PORT}(?!\d)", port, text)


def normal(text):
    """Without what differs from run to run."""
    text = re.sub(r"\d{4}[/-]\d\d[/-]\d\d[ T]\d\d:\d\d:\d\d", "TIME", text.replace("\r", ""))
    text = re.sub(r"(?<=127\.0\.0\.1:)\d+|(?<=process )\d+", "NUMBER", text)
    return [line.rstrip() for line in text.strip("\n").split("\n")]


def output_problem(expected, printed):
    """The first line that is expected and was not printed, in order; a line "..." skips any lines."""
    printed, at, skips = normal(printed), 0, False
    for line in normal(expected):
        if line.strip() == "...":
            skips = True
            continue
        while skips and at < len(printed) and printed[at] != line:
            at += 1
        if at >= len(printed) or printed[at] != line:
            return f"not printed here: {line!r}" + (f", but {printed[at]!r}" if at < len(printed) else "")
        at, skips = at + 1, False
    return None if skips or at == len(printed) else f"printed as well: {printed[at]!r}"


@contextlib.contextmanager
def started(command, output, **options):
    """A process in a session of its own, of which nothing stays."""
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True,
                          **options) as process:
        try:
            yield process
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)


class Host:
    marks = {("sh", "run"), ("python", "run")}
    jobs = os.cpu_count()

    def __init__(self, build):
        self.path = [build / folder for folder in PROGRAM_FOLDERS]

    @contextlib.contextmanager
    def folder(self):
        with tempfile.TemporaryDirectory(prefix="docs") as parent:
            folder = pathlib.Path(parent) / "work"
            folder.mkdir()
            yield folder

    def command(self, block, text):
        del self
        return ["bash", "-euo", "pipefail", "-c", text] if block.language == "sh" else [sys.executable, "-c", text]

    def environment(self, folder):
        path = [*self.path, pathlib.Path(sys.executable).parent, "/usr/bin", "/bin"]
        return {"PATH": ":".join(map(str, path)), "HOME": str(folder.parent), "LC_ALL": "C.UTF-8",
                "SAMPLES": str(ROOT / "samples"), "DOCS": str(ROOT / "docs")}

    def add_in(self, port):
        return ["addin_listener", "--port", port, "--count", "0"]

    def configure(self, folder, environment, port):
        environment["ZENTPOST_REGISTRY"] = str(folder.parent / "registry.reg")
        pathlib.Path(environment["ZENTPOST_REGISTRY"]).write_text(SETTINGS.format(port=port), encoding="utf-8")

    def end(self):
        pass


class Wine:
    marks = {("bat", "windows"), ("bat", "background")}
    jobs = 1
    CLEAN_UP = ("@sandbox_mapi unregister", "@reg delete HKCU\\Software\\Sollvex /f",
                "@reg delete HKLM\\Software\\Sollvex /f")

    def __init__(self, build, emulator):
        self.emulator = [str(pathlib.Path(emulator[0]).resolve()), emulator[1]]
        self.run("cmd", "/c", "exit")
        self.drive = ROOT / "build" / "wine" / emulator[1] / "drive_c"
        self.programs = self.drive / "zentpost"
        self.before = None
        self.clean_up()
        self.before = set(self._kept())
        self.programs.mkdir()
        for folder in PROGRAM_FOLDERS:
            for file in [*(build / folder).glob("*.exe"), *(build / folder).glob("sandbox_mapi.dll")]:
                shutil.copy(file, self.programs)

    def run(self, *command):
        subprocess.run([*self.emulator, *command], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL, check=False, timeout=SECONDS, env=self.environment(None))

    def script(self, name, lines):
        (self.programs / f"{name}.cmd").write_bytes("".join(f"{line}\r\n" for line in lines).encode("ascii"))
        return f"C:\\zentpost\\{name}.cmd"

    def _kept(self):
        yield from self.drive.iterdir()
        yield from self.drive.glob("users/*/AppData/Local/*")

    @contextlib.contextmanager
    def folder(self):
        folder = self.drive / "fax"
        folder.mkdir()
        try:
            yield folder
        finally:
            self.clean_up()

    def command(self, block, text):
        # Batch files go on behind a command that fails, and so must be told not to.
        lines = [line for line in re.sub(r"\^\n", " ", text).splitlines() if line.strip()]
        script = ["@echo off"]
        for line, following in zip(lines, [*lines[1:], ""]):
            script.append(line)
            if "errorlevel" in line:
                script.append("cmd /c exit 0")
            elif "errorlevel" not in following:
                script.append("if errorlevel 1 exit /b 1")
        return [*self.emulator, "cmd", "/c", self.script(f"block{block.line}", script)]

    def environment(self, folder):
        del folder
        def windows(path):
            return "Z:" + str(path).replace("/", "\\")
        return {**os.environ, "WINEPATH": "C:\\zentpost", "SAMPLES": windows(ROOT / "samples"),
                "DOCS": windows(ROOT / "docs")}

    def add_in(self, port):
        return [*self.emulator, "C:\\zentpost\\addin_listener.exe", "--port", port, "--count", "0"]

    def configure(self, folder, environment, port):
        del folder, environment
        self.run("reg", "add", "HKCU\\Software\\Sollvex\\OutlookAddin", "/v", "TolvanAddinPort", "/d", port, "/f")

    def clean_up(self):
        if self.before is None:
            shutil.rmtree(self.programs, ignore_errors=True)
            shutil.rmtree(self.drive / "fax", ignore_errors=True)
            return
        self.run("cmd", "/c", self.script("clean_up", self.CLEAN_UP))
        for path in set(self._kept()) - self.before - {self.programs}:
            shutil.rmtree(path) if path.is_dir() else path.unlink()

    def end(self):
        self.before = None
        self.clean_up()


def wait_for_output(process, path):
    deadline = time.monotonic() + SECONDS
    while not os.path.getsize(path) and process.poll() is None and time.monotonic() < deadline:
        time.sleep(0.01)


def executed(system, block, background, files):
    """What the block printed, with its background behind it, and what is wrong."""
    with contextlib.ExitStack() as stack:
        folder = stack.enter_context(system.folder())
        environment = system.environment(folder)
        port = free_port()

        def start(command):
            output = stack.enter_context(tempfile.NamedTemporaryFile())
            return stack.enter_context(started(command, output, cwd=folder, env=environment)), output.name

        for name, text in files.items():
            (folder / name).write_text(text, encoding="utf-8")
        everything = "".join(each.text for each in [*background, block])
        if STARTS_A_JOB.search(everything) and not CHOOSES_WHO_GETS_IT.search(everything):
            wait_for_output(*start(system.add_in(port)))
            system.configure(folder, environment, port)
        runs = []
        for each in [*background, block]:
            runs.append((each, *start(system.command(each, with_port(each.text, port)))))
            if each is not block:
                wait_for_output(*runs[-1][1:])
        printed, found = "", []
        for each, process, output in reversed(runs):
            try:
                status = process.wait(SECONDS)
                problem = f"exit code {status}" if status else None
            except subprocess.TimeoutExpired:
                problem = f"not done within {SECONDS} seconds"
            text = pathlib.Path(output).read_text(encoding="utf-8", errors="replace").replace(port, DOCUMENTS_PORT)
            printed += text
            if problem:
                found.append(f"{each.place}: {problem}; it printed:\n{text}")
        return printed, found


def stories(document, marks):
    """Each block to execute, with its background blocks, the files before it and the outputs behind it."""
    files, background, outputs = {}, [], None
    for block in document.blocks:
        kind = (block.language, block.mark)
        if kind in EXECUTED:
            outputs = []
            if kind == ("bat", "background"):
                background = [*background, block]
                continue
            if kind in marks:
                yield block, background, dict(files), outputs
            background = []
        elif kind == ("text", "output") and outputs is not None:
            outputs.append(block)
        if block.name:
            files[block.name] = block.text


def run_story(system, story):
    block, background, files, outputs = story
    printed, found = executed(system, block, background, files)
    for output in outputs:
        problem = output_problem(output.text, printed)
        if problem and not found:
            found.append(f"{output.place}: {problem}")
    return found


def run_documents(system, documents):
    """(number of blocks executed, problems)"""
    found = [story for document in documents for story in list(stories(document, system.marks))]
    with concurrent.futures.ThreadPoolExecutor(system.jobs) as pool:
        problems = list(pool.map(lambda story: run_story(system, story), found))
    return len(found), sum(problems, [])


def all_documents():
    listed = subprocess.run([ROOT / "scripts" / "source-files", "*.md"], capture_output=True, text=True, check=True)
    return [Document(pathlib.PurePosixPath(line), (ROOT / line).read_text(encoding="utf-8"))
            for line in listed.stdout.splitlines() if line not in EXECUTED_ELSEWHERE]


@contextlib.contextmanager
def system_for(build, emulator):
    system = Wine(build.resolve(), emulator) if emulator else Host(build.resolve())
    try:
        yield system
    finally:
        system.end()


def main():
    parser = argparse.ArgumentParser(usage=__doc__.partition("\n\n")[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--emulator", nargs=2)
    arguments = parser.parse_args()
    with system_for(arguments.build, arguments.emulator) as system:
        count, problems = run_documents(system, all_documents())
    print("\n".join(problems + [f"docs_run: {count} blocks executed, {len(problems)} problems"]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
