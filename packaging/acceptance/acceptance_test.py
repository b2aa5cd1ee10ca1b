#!/usr/bin/python3
"""acceptance_test.py [--whole] [--zip FILE] x64|x86 WORKFOLDER: tries the acceptance tests of one bitness
under Wine, from a folder in WORKFOLDER whose path has blanks, umlauts, "&" and brackets, in a prefix made for it
alone. The quick selection by default; --whole runs all of it (minutes). --zip takes what ./package has packed.

Looks at the report, the exit codes, and at the registry and the files, which have to be as before: also
after a test program was killed, after the whole run was killed and run.cmd started again, and after an
interrupt. That is SIGINT, which Wine hands on as Ctrl-C; it shows nothing of a real console's "Terminate
batch job". Exit code 0: all as it should be; 1: not; 77: this machine cannot execute these programs.
"""
import argparse
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PATIENCE = 300  # seconds
WHOLE_PATIENCE = 3000
SAVED = "saved by run.cmd"
TEMPORARY = "C:\\Jürgen Groß"
USERS_SETTINGS = (
    ("HKCU\\Software\\Sollvex\\OutlookAddin", "TolvanAddinPort", "REG_SZ", "5000"),
    ("HKCU\\Software\\Sollvex\\OutlookAddin", "AddrExtFaxPrefix", "REG_SZ", "Büro="),
    ("HKLM\\Software\\Sollvex\\FaxClient", "LogLevel", "REG_DWORD", "0"),
    ("HKLM\\Software\\Clients\\Mail\\Somebody's", "DllPathEx", "REG_EXPAND_SZ", "C:\\none.dll"),
)
TREES = ("HKCU\\Software", "HKLM\\Software")
# What Wine and Windows change by themselves while programs run.
VOLATILE = re.compile(r"\\(Explorer|RNG|Drivers|Wine\\Debug)(\\|\]|$)", re.IGNORECASE)


class Machine:
    """A prefix of Wine's with a user's settings and log in it."""

    def __init__(self, arch, folder):
        self.arch, self.folder = arch, folder
        self.home = folder / "wine"
        self.environment = {**os.environ, "ZENTPOST_WINE_HOME": str(self.home)}
        self.outputs = 0

    def server(self, action):
        return subprocess.run([ROOT / "scripts" / "wine-server", action, self.arch], env=self.environment,
                              check=False).returncode

    def start(self, *command, folder=None, answer=""):
        """Its outputs go into a file: services that Wine starts may keep a pipe open."""
        self.outputs += 1
        output = self.folder / f"output-{self.outputs}.txt"
        with output.open("wb") as file, (self.folder / "answer.txt").open("w+", encoding="ascii") as given:
            given.write(answer)
            given.seek(0)
            process = subprocess.Popen([ROOT / "scripts" / "wine-run", self.arch, *command], cwd=folder or self.folder,
                                       env=self.environment, stdin=given, stdout=file, stderr=subprocess.STDOUT)
        process.output = output
        return process

    def run(self, *command, patience=PATIENCE, **options):
        process = self.start(*command, **options)
        return process.wait(patience), process.output.read_text(encoding="utf-8", errors="replace")

    def reg(self, *arguments):
        code, output = self.run("reg", *arguments)
        if code:
            sys.exit(f"reg {' '.join(arguments)}: {output}")

    @property
    def drive(self):
        return self.home / self.arch / "drive_c"

    @property
    def local_data(self):
        return next(path for path in self.drive.glob("users/*/AppData/Local") if "Public" not in path.parts)

    def prepare(self):
        for key, name, kind, data in USERS_SETTINGS:
            self.reg("add", key, "/v", name, "/t", kind, "/d", data, "/f")
        log = self.local_data / "VORNA" / "Client" / "Log" / "zentpost.log"
        log.parent.mkdir(parents=True)
        log.write_bytes(b"the user's\r\n")
        (self.drive / "Jürgen Groß").mkdir()

    def registry(self):
        """Each key's lines, in no order."""
        keys = {}
        for tree in TREES:
            self.reg("export", tree, "tree.reg", "/y")
            for block in (self.folder / "tree.reg").read_bytes().decode("utf-16").split("\r\n\r\n"):
                name, _, values = block.strip().partition("\r\n")
                if name.startswith("[") and not VOLATILE.search(name):
                    keys[name] = sorted(values.split("\r\n"))
        return keys

    def files(self):
        return {str(path.relative_to(self.drive)): path.stat().st_size if path.is_file() else None
                for path in self.drive.rglob("*") if not path.is_symlink()}

    def state(self):
        return self.registry(), self.files()

    def processes(self, name):
        """Those of this prefix whose program has that name."""
        found = []
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                command = (entry / "cmdline").read_bytes().split(b"\0")[0].decode(errors="replace")
                environment = (entry / "environ").read_bytes().split(b"\0")
                if re.split(r"[\\/]", command)[-1] == name and \
                        f"WINEPREFIX={self.home / self.arch}".encode() in environment:
                    found.append(int(entry.name))
        return found

    def wait_until(self, condition, what):
        deadline = time.monotonic() + PATIENCE
        while not condition():
            if time.monotonic() > deadline:
                sys.exit(f"{what}: waited in vain")
            time.sleep(0.1)


class Trial:
    def __init__(self, machine, folder, is_whole):
        self.machine, self.folder = machine, folder
        self.problems = []
        self.selection = () if is_whole else ("/quick",)
        self.patience = WHOLE_PATIENCE if is_whole else PATIENCE
        self.before = machine.state()

    @property
    def report(self):
        path = self.folder / "report.txt"
        if not path.exists():
            return ""
        data = path.read_bytes()
        self.demand(data.startswith(b"\xef\xbb\xbf") and data.count(b"\r\n") == data.count(b"\n"),
                    "report.txt is not text as editors on Windows want it")
        return data.decode("utf-8-sig").replace("\r\n", "\n")

    def demand(self, condition, text):
        if not condition:
            self.problems.append(text)
            print(f"WRONG: {text}", flush=True)

    def command(self, *arguments, temporary=TEMPORARY):
        # From another folder; and "call" has another exit code in Wine's cmd.exe.
        self.machine.environment["RUN"] = "Z:" + str(self.folder / "run.cmd").replace("/", "\\")
        self.machine.environment["WORK"] = temporary
        (self.machine.folder / "go.cmd").write_bytes(b'@set TEMP=%WORK%\r\n@set TMP=%WORK%\r\n@"%RUN%" %*\r\n')
        return "cmd", "/c", "go.cmd", *arguments

    def run(self, what, *arguments, code, temporary=TEMPORARY, **options):
        print(f"{what}: run.cmd {' '.join(arguments)}", flush=True)
        began = time.monotonic()
        given, output = self.machine.run(*self.command(*arguments, temporary=temporary), **options)
        print(f"  {time.monotonic() - began:.0f} s, exit code {given}", flush=True)
        self.demand(given == code, f"{what}: exit code {given}, not {code}:\n{output}")
        return output

    def demand_as_before(self, what):
        registry, files = self.machine.state()
        for name, now, before in (("registry", registry, self.before[0]), ("files", files, self.before[1])):
            different = sorted(key for key in {*now, *before} if now.get(key, 0) != before.get(key, 0))
            self.demand(not different, f"{what}: {name} changed: {different[:20]}")
        self.demand(not (self.folder / SAVED).exists(), f"{what}: the folder \"{SAVED}\" is left")

    def passes(self):
        output = self.run("all programs", "/y", *self.selection, code=0, patience=self.patience)
        report = self.report
        lines = re.findall(rf"^{self.machine.arch}  (.{{20}})(\w+) +(\d+) passed, 0 failed", report, re.MULTILINE)
        self.demand(len(lines) == 7 and all(word == "passed" and int(count) for _, word, count in lines),
                    f"the report has not seven programs that passed:\n{report}")
        self.demand("Everything is as it was." in report, "the report does not say that nothing was left")
        self.demand(f"zentpost_doctor, {self.machine.arch}\n" in report and '"5000"' in report,
                    "the doctor's report on the user's own settings is not in it")
        self.demand(re.search(r"^code pages +ANSI 1252", report, re.MULTILINE), "there is no code page in it")
        for private in (str(self.folder).replace("/", "\\"), "\\users\\" + os.environ.get("USER", "root")):
            self.demand(private not in report, f"the report tells {private}")
        self.demand("HKEY_CURRENT_USER\\Software\\Sollvex" in output, "it does not say what it changes")
        self.demand_as_before("after a run")

    def nothing(self):
        (self.folder / "report.txt").unlink()
        output = self.run("a user who says no", code=2, answer="n\n")
        self.demand("Nothing was run." in output, "it does not say that nothing was run")
        self.demand(not (self.folder / "report.txt").exists(), "it leaves a report of nothing")
        self.run("no answer", code=2)
        output = self.run("a wrong option", "/all", code=2)
        self.demand("Usage: run.cmd" in output, "it does not say how it is used")
        # Stands in for a folder that cannot be written: root, and so Wine, may write anywhere.
        (self.folder / SAVED).write_bytes(b"")
        output = self.run("a folder that cannot be written", "/y", code=2)
        self.demand("cannot be written" in output, "it does not say that the folder cannot be written")
        (self.folder / SAVED).unlink()
        long_path = self.folder.parent / ("a" * 100)
        home, self.folder = self.folder, long_path
        home.rename(long_path)
        output = self.run("a long path", "/y", code=2)
        self.demand("too long" in output, "it does not say that the path is too long")
        self.folder = home
        long_path.rename(home)
        self.demand_as_before("when nothing was run")

    def fails(self):
        probe = self.folder / self.machine.arch / "entry_point_probe.exe"
        probe.rename(self.folder / "probe.exe")
        self.run("a program that is missing", "/y", "/only", "entry point", code=1)
        report = self.report
        self.demand(re.search(r"entry point +FAILED", report) and "== failed: " in report and "EntryPoint." in report,
                    f"the report does not tell what failed:\n{report}")
        (self.folder / "probe.exe").rename(probe)
        self.demand_as_before("after a failure")

    @contextlib.contextmanager
    def replaced(self, program, system_program):
        path = self.folder / self.machine.arch / program
        path.rename(self.folder / "original.exe")
        shutil.copy(self.machine.drive / "windows" / "system32" / system_program, path)
        yield path
        (self.folder / "original.exe").replace(path)

    def tells_what_did_nothing(self):
        # Without input a command prompt prints its prompt and ends with 0.
        with self.replaced("entry_point_test.exe", "cmd.exe"):
            self.run("a program that tests nothing", "/y", "/only", "entry point", code=1)
        report = self.report
        self.demand(re.search(r"entry point +FAILED +no test was run$", report, re.MULTILINE),
                    f"the report does not tell that no test was run:\n{report}")
        # The prompt is the folder, in the ANSI code page.
        self.demand(f"<acceptance>\\{self.machine.arch}>" in report and "Zentpöst" not in report,
                    f"the report tells where run.cmd is:\n{report}")
        self.demand_as_before("after a program that tests nothing")

    def tells_what_the_system_does_not_run(self):
        # One ends with 0 and prints nothing; the other is no program.
        with self.replaced("zentpost_doctor.exe", "rundll32.exe") as doctor:
            for what in "silent programs", "what is no program":
                output = self.run(what, "/y", code=2)
                self.demand(re.search(r"all programs +skipped +this system does not run them", output),
                            f"{what}: it does not say that this system does not run them:\n{output}")
                doctor.write_bytes(b"MZ, but no program")
        # Prints its complaint and ends with 1.
        with self.replaced("zentpost_doctor.exe", "reg.exe"):
            output = self.run("programs that go wrong at once", "/y", code=1)
        self.demand("FAILED  not run: zentpost_doctor --version ends with exit code 0x00000001" in output,
                    f"it does not tell that zentpost_doctor goes wrong:\n{output}")
        self.demand_as_before("when no program can be run")

    def keeps_what_is_not_its_own(self):
        theirs = self.folder / SAVED / "holiday.jpg"
        theirs.parent.mkdir()
        theirs.write_bytes(b"theirs")
        ours = theirs.with_name("key-0.reg")
        ours.write_bytes(b"left by a run that was cut short")
        output = self.run("somebody's file among what is saved", "/y", code=2)
        self.demand("not run.cmd's" in output, "it does not say that the folder holds something else")
        self.demand(theirs.exists() and ours.exists(), "it removes what it refuses to use")
        theirs.unlink()
        theirs.mkdir()
        self.run("somebody's folder among what is saved", "/y", code=2)
        self.demand(theirs.exists() and ours.exists(), "it removes a folder that it refuses to use")
        theirs.rmdir()
        ours.unlink()
        theirs.parent.rmdir()

        kept = self.machine.folder / "zentpost-acceptance" / "keep.txt"
        kept.parent.mkdir()
        kept.write_bytes(b"theirs")
        output = self.run("no folder for temporary files", "/y", code=2, temporary="C:\\nope")
        self.demand("The folder for temporary files cannot be used" in output,
                    "it does not say that the folder for temporary files cannot be used")
        self.demand(kept.exists(), "it removes a folder in the current one")
        self.demand_as_before("when it refused")

    @contextlib.contextmanager
    def in_the_middle(self, what):
        """A run whose test program has the machine to itself."""
        print(what, flush=True)
        process = self.machine.start(*self.command("/y", "/only", "end to end"))
        aside = self.machine.local_data / "VORNA put aside by zentpost's tests"
        self.machine.wait_until(aside.exists, what)
        yield process
        self.machine.wait_until(lambda: not self.machine.processes("e2e_tests.exe"), what)

    def kill(self, name, how):
        processes = self.machine.processes(name)
        self.demand(processes, f"{name} does not run")
        for process in processes:
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, how)

    def survives_a_crash(self):
        with self.in_the_middle("a test program that is killed") as process:
            self.kill("e2e_tests.exe", signal.SIGKILL)
            self.demand(process.wait(PATIENCE) == 1, "a killed test program is no failure")
        report = self.report
        self.demand(re.search(r"end to end +FAILED", report) and "Put back by run.cmd" in report,
                    f"the report does not tell that a program was killed:\n{report}")
        self.demand_as_before("after a crash")

    def stops(self):
        with self.in_the_middle("an interrupt") as process:
            self.kill("acceptance.exe", signal.SIGINT)
            self.demand(process.wait(PATIENCE) == 1, "an interrupt is no failure")
        self.demand("stopped by the user" in self.report, "the report does not tell of the interrupt")
        self.demand_as_before("after an interrupt")

    def resumes(self):
        with self.in_the_middle("a run that is killed") as process:
            self.kill("acceptance.exe", signal.SIGKILL)
            process.wait(PATIENCE)
        theirs = self.folder / SAVED / "holiday.jpg"
        theirs.write_bytes(b"theirs")
        self.demand((self.folder / SAVED / "complete.txt").exists(), "nothing is saved")
        self.demand(self.machine.registry() != self.before[0], "the killed run had changed nothing")
        output = self.run("the start behind it", code=2, answer="n\n")
        self.demand("An earlier run was cut short. Put back" in output, "it does not put back what was left")
        self.demand([path.name for path in theirs.parent.iterdir()] == [theirs.name],
                    "it removes somebody's file with what was saved, or leaves of that")
        theirs.unlink()
        theirs.parent.rmdir()
        # What the tests had in the folder for temporary files was theirs.
        self.demand_as_before("after a run that was killed")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--whole", action="store_true")
    parser.add_argument("--zip", type=pathlib.Path, help="what ./package has packed, in place of what is built")
    parser.add_argument("arch", choices=("x64", "x86"))
    parser.add_argument("folder", type=pathlib.Path)
    options = parser.parse_args()
    options.folder = options.folder.resolve()
    machine = Machine(options.arch, options.folder)
    if options.folder.exists():
        machine.server("stop")
        shutil.rmtree(options.folder)
    unpacked = options.folder / "Zentpöst (a & b)"
    unpacked.mkdir(parents=True)
    if options.zip:
        shutil.unpack_archive(options.zip, unpacked)
    else:
        subprocess.run([ROOT / "packaging" / "acceptance" / "collect", "--output", unpacked, options.arch], check=True)
    if status := machine.server("start"):
        return status
    try:
        machine.prepare()
        trial = Trial(machine, unpacked, options.whole)
        for each in (trial.passes, trial.nothing, trial.fails, trial.tells_what_did_nothing,
                     trial.tells_what_the_system_does_not_run, trial.keeps_what_is_not_its_own, trial.survives_a_crash,
                     trial.stops, trial.resumes):
            each()
    finally:
        machine.server("stop")
    print("the acceptance tests are right" if not trial.problems else f"{len(trial.problems)} problems")
    return 1 if trial.problems else 0


if __name__ == "__main__":
    sys.exit(main())
