#!/usr/bin/env python3
"""kill_sweep.py [--quick] BUILD: ends the tool of the host build in the folder BUILD at every system
call that opens, writes, deletes, renames, cuts, connects or sends, and looks at what is left.
kill_sweep.py --self-test: shows the judge states that no kill may leave.

SIGKILL is injected at each call's entry, so that the call has no effect. Calls that change something
are met a second time, with SIGTERM at the entry: nobody handles it, so the process ends as soon as the
call has had its effect. The calls of the fake mail client, which is a library in the same process, and
those of the dynamic linker before main are among them.

After each kill the document is there byte for byte, or the mail client has all of it; and the job
file is whole, the old one or a new one. Two windows are open by design, and counted: the job file is
empty or cut between its truncation and its last write, and between the document's deletion and the
publication of the message the document is with the mail client, in a message that is not sent. Both
are recognised by the calls that were made, not by what is left alone.

--quick leaves out what opens files for reading, what writes the log and the mail client's report, and
what repeats itself. Exit code 0: no other state was found; 1: one was; 2: wrong usage; 77: this
machine has no strace, or does not let it trace.
"""
import argparse
import collections
import concurrent.futures
import contextlib
import dataclasses
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(ROOT / "tests"), str(ROOT / "tools" / "sandbox_mapi")]
import check_eml  # noqa: E402
import schema_check  # noqa: E402

CALLS = ("open", "openat", "creat", "write", "pwrite64", "writev", "unlink", "unlinkat", "rename",
         "renameat", "renameat2", "ftruncate", "connect", "sendto", "sendmsg")
PATIENCE = 120  # seconds

DELIVERED = {"Status": 0, "ErrorCode": 0, "ErrorText": ""}
REFUSED = {"Status": 1, "ErrorCode": 1004, "ErrorText": "OutlookClient: Connection cannot be established."}
NOT_SENT = {"Status": 1, "ErrorCode": 1003, "ErrorText": "OutlookClient: Transmission failure."}


@dataclasses.dataclass
class Scenario:
    """A job, and what an undisturbed run makes of it."""

    name: str
    arguments: tuple = ("job.json",)
    commands: dict = dataclasses.field(default_factory=dict)  # the job file's
    trailing: str = ""  # behind the job file's object
    document_size: int | None = 3000  # None: there is no document
    document_mode: int = 0o644
    has_addin: bool = False
    fault: tuple = ()  # (call, number, error): the add-in that fails
    between: dict | None = None  # the Result that stands until the second route has ended
    values: dict = dataclasses.field(default_factory=dict)  # of the registry, by key
    has_log: bool = True
    mail_folders: tuple = ()  # where the message is at the end
    address: tuple = ("SMTP", "0301234567")
    document_stays: bool = False
    output: str | None = None  # what field "O" names

    @property
    def document(self):
        return None if self.document_size is None else check_eml.document(self.document_size)

    @property
    def job(self):
        if self.arguments[0] != "job.json":
            return None
        parameters = {"RecipientName": "Erika Example", "Comment": "Line one, line two",
                      "Subject": "Your order", "UserName": "Sam Sender"}
        job = {"FilePath": "letter.pdf", "SourceFileName": "letter",
               "Cmd": {"Parameters": parameters, "Commands": self.commands, "Receiver": ["0301234567"]}}
        return (json.dumps(job) + self.trailing).encode()

    @property
    def play(self):
        """The message as check_eml wants it."""
        play = {"Subject": "Your order", "Body": "Line one, line two", "Sender": "Sam Sender",
                "Name": "Erika Example", "AddressType": self.address[0], "Address": self.address[1]}
        if self.document_size is not None:
            play |= {"AttachmentSize": self.document_size, "AttachmentName": "letter.pdf"}
        return play


ADDIN_KEY = "HKEY_CURRENT_USER\\Software\\Sollvex\\OutlookAddin"
CLIENT_KEY = "HKEY_CURRENT_USER\\Software\\Sollvex\\FaxClient"
ON_COMMAND_LINE = ("letter.pdf", "0301234567;EErika Example;KLine one, line two;SYour order;USam Sender",
                   "/attdisplayname", "letter.pdf")
AUTOMATION = {"AddrExtFaxEnabled": '"1"', "AddrExtFaxPrefix": '"[FAX:"', "AddrExtFaxPostfix": '"]"'}
SENT = ("Store/Sent Items",)

SCENARIOS = (
    Scenario("document on the command line, submitted", ON_COMMAND_LINE, mail_folders=SENT),
    Scenario("document on the command line, to the add-in", ON_COMMAND_LINE, has_addin=True,
             has_log=False, document_stays=True),
    Scenario("job file, to the add-in", has_addin=True, document_stays=True),
    Scenario("add-in gone after the probe, then submitted", has_addin=True,
             fault=("connect", 2, "ECONNREFUSED"), between=REFUSED, mail_folders=SENT),
    Scenario("add-in resets the connection, then submitted", has_addin=True,
             fault=("sendto", 1, "ECONNRESET"), between=NOT_SENT, mail_folders=SENT),
    Scenario("submitted, log on", mail_folders=SENT),
    Scenario("submitted, log off", has_log=False, mail_folders=SENT),
    Scenario("shown in the modal form", commands={"P": "1"}, mail_folders=("Drafts", *SENT)),
    Scenario("address automation", values={ADDIN_KEY: AUTOMATION}, mail_folders=SENT,
             address=("", "[FAX:0301234567]")),
    Scenario("diverted, with an add-in", commands={"O": "payload.json"}, has_addin=True,
             document_stays=True, output="temporary/payload.json"),
    Scenario("diverted, without an add-in", commands={"O": "./payload.json"}, document_stays=True,
             output="payload.json"),
    Scenario("sending skipped", values={CLIENT_KEY: {"SkipExtendedMapi": "dword:00000001"}},
             document_stays=True),
    Scenario("large document", document_size=1_000_000, has_log=False, mail_folders=SENT),
    Scenario("text behind the job file's object", trailing='\n{"more": 1} and so on\n', mail_folders=SENT),
    Scenario("read-only document", document_mode=0o444, mail_folders=SENT, document_stays=True),
    Scenario("missing document", document_size=None, mail_folders=SENT),
)


@dataclasses.dataclass
class Call:
    thread: str
    name: str
    arguments: str
    answer: str | None  # as the trace has it

    @property
    def result(self):
        """None: it did not return."""
        return None if self.answer in (None, "?") else int(self.answer)

    @property
    def changes_something(self):
        """Whether a kill behind it leaves something else than one before it. Connecting changes no
        file, and a signal at its entry interrupts it."""
        if self.name.startswith("open"):
            return "O_CREAT" in self.arguments or "O_TRUNC" in self.arguments
        return self.name != "connect"

    @property
    def is_routine(self):
        """What the quick sweep leaves out."""
        if self.name.startswith("open") and "O_CREAT" not in self.arguments:
            return True
        return "zentpost.log" in self.arguments or "/mail/report" in self.arguments


# Other names are none of the process's: an injected failure and a signal in one call may leave a call
# without a name behind.
NAME = "|".join(CALLS)
CALL = re.compile(rf"(\d+) +({NAME})\((.*?)(?: <unfinished \.\.\.>$|\)? += (-?\d+|\?))")
RESUMED = re.compile(rf"(\d+) +<\.\.\. (?:{NAME}) resumed>.*= (-?\d+|\?)")
ATTACHMENT_SAVED = re.compile(r" IAttach::SaveChanges\(.*= 0x00000000$", re.MULTILINE)
KILLED = re.compile(r"\d+ +\+\+\+ killed by (\w+)")


def read_trace(text):
    """The calls in the order in which they began, and the signal that ended the process."""
    calls, signal = [], None
    for line in text.splitlines():
        if match := CALL.match(line):
            calls.append(Call(*match.groups()))
        elif match := RESUMED.match(line):
            next(call for call in reversed(calls) if call.thread == match[1]).answer = match[2]
        elif match := KILLED.match(line):
            signal = match[1]
    return calls, signal


class Place:
    """How far a run had come, by its calls alone."""

    def __init__(self, calls):
        self.job_file_written = None  # bytes since the last truncation
        self.spooled = 0  # bytes of the document in the mail client's file
        self.spooled_at_deletion = None  # None: the document is not deleted
        self.is_message_published = False
        for call in calls:
            if call.result is None or call.result < 0:
                continue
            is_write = call.name in ("write", "pwrite64", "writev")
            is_cut = call.name == "ftruncate" or "O_TRUNC" in call.arguments
            if is_cut and ("/job.json>" in call.arguments or '"job.json"' in call.arguments):
                self.job_file_written = 0
            elif is_write and "/job.json>" in call.arguments:
                self.job_file_written = (self.job_file_written or 0) + call.result
            elif is_write and "/attachment-" in call.arguments:
                self.spooled += call.result
            elif call.name.startswith("unlink") and '"letter.pdf"' in call.arguments:
                self.spooled_at_deletion = self.spooled
            elif call.name.startswith("rename") and '.eml"' in call.arguments:
                self.is_message_published = True


@dataclasses.dataclass
class Left:
    """What a run has left."""

    document: bytes | None
    job: bytes | None
    spooled: list  # documents in the Outbox
    mails: dict  # by their place in the mail client's folder
    report: str  # the mail client's, of the calls that have returned
    output: bytes | None = None

    @staticmethod
    def read(folder, scenario):
        def contents(name):
            path = folder / name
            return path.read_bytes() if path.exists() else None

        mail = folder / "mail"
        return Left(
            contents("letter.pdf"),
            contents("job.json"),
            [path.read_bytes() for path in mail.glob("Store/Outbox/*/attachment-*")],
            {str(path.relative_to(mail).parent): path.read_bytes() for path in mail.rglob("*.eml")},
            "".join(path.read_text() for path in mail.glob("report*.txt")),
            contents(scenario.output) if scenario.output else None,
        )


def is_new_job_file(data, scenario, result):
    """Whether these bytes are all of the scenario's job file with this Result."""
    if schema_check.problems("job-file", data):
        return False
    old, _ = json.JSONDecoder().raw_decode(scenario.job.decode())
    return json.loads(data) == {**old, "Result": result}


def judge(scenario, final_job, left, place):
    """(which windows this is in, what is wrong)"""
    windows, wrong = set(), []
    for where, mail in left.mails.items():
        wrong += [f"the mail in {where}: {problem}" for problem in check_eml.problems(mail, scenario.play)]

    if left.document not in (scenario.document, None):
        wrong.append(f"the document has changed: {len(left.document)} bytes")
    elif left.document != scenario.document:
        if scenario.document_stays:
            wrong.append("the document is gone")
        elif left.mails and not wrong:
            pass
        elif (place.spooled_at_deletion == len(scenario.document) and not place.is_message_published
              and scenario.document in left.spooled and ATTACHMENT_SAVED.search(left.report)):
            windows.add(2)
        else:
            wrong.append("the document is gone, and the mail client does not have it")

    if left.job in (scenario.job, final_job):
        pass
    elif left.job is None:
        wrong.append("the job file is gone")
    elif scenario.between and is_new_job_file(left.job, scenario, scenario.between):
        pass
    elif (place.job_file_written is not None and len(left.job) == place.job_file_written < len(final_job)
          and final_job.startswith(left.job)):
        windows.add(1)
    else:
        wrong.append(f"the job file is neither the old nor a new one: {left.job!r}")
    return windows, wrong


@contextlib.contextmanager
def listening_addin(build):
    """The port of an add-in that takes deliveries until the end."""
    with subprocess.Popen([build / "tools/addin_listener/addin_listener", "--count", "0", "--quiet"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True) as addin:
        try:
            # The first line says where it listens.
            yield int(addin.stdout.readline().rpartition(":")[2])
        finally:
            addin.terminate()


class Machine:
    """Runs scenarios, each run in a folder of its own."""

    def __init__(self, build, folder, port):
        self.tool = build / "zentpost"
        self.folder = folder
        self.port = port
        registry = folder / "registration.reg"
        registry.write_text("Windows Registry Editor Version 5.00\n")
        subprocess.run([build / "tools/sandbox_mapi/sandbox_mapi", "register"], check=True,
                       env={**os.environ, "ZENTPOST_REGISTRY": str(registry)}, stdout=subprocess.DEVNULL)
        self.registration = registry.read_text()

    def prepare(self, folder, scenario):
        for name in ("temporary", "system", "local/VORNA/Client/Log"):
            (folder / name).mkdir(parents=True)
        values = {key: dict(names) for key, names in scenario.values.items()}
        if scenario.has_addin:
            values.setdefault(ADDIN_KEY, {})["TolvanAddinPort"] = f'"{self.port}"'
        if scenario.has_log:
            values.setdefault(CLIENT_KEY, {})["LogLevel"] = "dword:00000001"
        text = self.registration
        for key, names in values.items():
            text += f"\n[{key}]\n" + "".join(f'"{name}"={value}\n' for name, value in names.items())
        (folder / "registry.reg").write_text(text)
        if scenario.job is not None:
            (folder / "job.json").write_bytes(scenario.job)
        if scenario.document is not None:
            (folder / "letter.pdf").write_bytes(scenario.document)
            (folder / "letter.pdf").chmod(scenario.document_mode)

    def run(self, scenario, kill=None):
        """(calls, signal, exit code, Left) of one run. KILL: (call, number, signal)."""
        injections = {}  # one for each call's name: strace heeds no more
        if scenario.fault:
            name, number, error = scenario.fault
            injections[name] = f"error={error}:when={number}"
        if kill:
            name, number, signal = kill
            fault = f"error={error}:" if kill[:2] == scenario.fault[:2] else ""
            injections[name] = f"{fault}signal={signal}:when={number}"
        with tempfile.TemporaryDirectory(dir=self.folder) as name:
            folder = pathlib.Path(name)
            self.prepare(folder, scenario)
            trace = folder / "trace"
            environment = {
                **os.environ,
                "ZENTPOST_REGISTRY": str(folder / "registry.reg"),
                "ZENTPOST_SYSTEM_DIRECTORY": str(folder / "system"),
                "XDG_DATA_HOME": str(folder / "local"),
                "TMPDIR": str(folder / "temporary"),
                "SANDBOX_MAPI_FOLDER": str(folder / "mail"),
            }
            environment.pop("ZENTPOST_DEBUG_OUTPUT", None)
            # Not --seccomp-bpf: it leaves the injected signals out.
            done = subprocess.run(
                ["strace", "-f", "-y", "-s", "0", "-o", trace, "-e", "trace=" + ",".join(CALLS),
                 *(f"--inject={call}:{injection}" for call, injection in injections.items()),
                 self.tool, *scenario.arguments],
                cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT, timeout=PATIENCE)
            if done.stdout:
                raise RuntimeError(f"{scenario.name}: it printed {done.stdout!r}")
            calls, signal = read_trace(trace.read_text(errors="replace"))
            return calls, signal, done.returncode, Left.read(folder, scenario)


def problems_undisturbed(scenario, exit_code, left):
    """What is wrong with a run that nobody has ended."""
    if exit_code != 0:
        yield f"the exit code is {exit_code}"
    if scenario.job is not None and not is_new_job_file(left.job, scenario, DELIVERED):
        yield f"the job file is {left.job!r}"
    if left.document != (scenario.document if scenario.document_stays else None):
        yield "the document is gone" if scenario.document_stays else "the document is still there"
    if sorted(left.mails) != sorted(scenario.mail_folders):
        yield f"there are mails in {sorted(left.mails)}"
    if scenario.output and schema_check.problems("payload", left.output or b""):
        yield f"the payload is {left.output!r}"


def kills_of(calls, is_quick):
    """(call, number, signal) for each kill, the numbers counted as strace does, by call."""
    counts = collections.Counter()
    for call in calls:
        # Another thread's calls would be met at the wrong time.
        if call.thread != calls[0].thread:
            raise RuntimeError(f"a second thread calls {call.name}({call.arguments})")
        counts[call.name] += 1
        if is_quick and call.is_routine:
            continue
        yield call.name, counts[call.name], "SIGKILL"
        if call.changes_something and not (is_quick and call.name in ("write", "writev", "openat")):
            yield call.name, counts[call.name], "SIGTERM"


def meet(machine, scenario, final_job, kill):
    """(which windows, what is wrong, the call) of one kill."""
    name, number, wanted = kill
    calls, signal, _, left = machine.run(scenario, kill)
    last = calls[-1] if calls else Call("", "nothing", "", None)
    met = sum(call.name == name for call in calls)
    windows, wrong = judge(scenario, final_job, left, Place(calls))
    if signal != wanted or last.name != name or met != number or (last.result is None) != (wanted == "SIGKILL"):
        wrong.append(f"the kill was missed: {signal}, {last.name} number {met}, result {last.result}")
    return windows, wrong, f"{last.name}({last.arguments})"


def sweep(machine, is_quick):
    failures = calls_met = 0
    tallies = {scenario.name: collections.Counter() for scenario in SCENARIOS}  # of signals and windows
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        jobs = []
        for scenario, (calls, _, exit_code, left) in zip(SCENARIOS, pool.map(machine.run, SCENARIOS)):
            for problem in problems_undisturbed(scenario, exit_code, left):
                print(f"{scenario.name}: undisturbed: {problem}")
                failures += 1
            calls_met += len(calls)
            jobs += [(scenario, kill, pool.submit(meet, machine, scenario, left.job, kill))
                     for kill in kills_of(calls, is_quick)]
        for scenario, (name, number, signal), future in jobs:
            windows, wrong, call = future.result()
            tallies[scenario.name].update([signal, *windows])
            for problem in wrong:
                print(f"{scenario.name}: {signal} at {name} number {number}, {call}: {problem}")
            failures += bool(wrong)
    for scenario in SCENARIOS:
        tally = tallies[scenario.name]
        first, second = tally[1], tally[2]
        print(f"{scenario.name}: {tally['SIGKILL'] + tally['SIGTERM']} kills, {first} and {second} in the windows")
        # The windows are there by design: a sweep that does not see them has not looked.
        if (first == 0) != (scenario.job is None):
            print(f"{scenario.name}: {first} kills met the job file being rewritten")
            failures += 1
        is_sent = scenario.mail_folders and not scenario.document_stays and scenario.document is not None
        if (second != 0) != bool(is_sent):
            print(f"{scenario.name}: {second} kills met the document on its way")
            failures += 1
    total = sum(tallies.values(), collections.Counter())
    before, behind = total["SIGKILL"], total["SIGTERM"]
    print(f"kill_sweep: {len(SCENARIOS)} scenarios with {calls_met} calls, {before + behind} kills: "
          f"{before} before the call, {behind} behind it")
    print(f"kill_sweep: {total[1]} kills with the job file empty or cut while it was rewritten, "
          f"{total[2]} with the document on its way to the mail client, {failures} failures")
    return failures


def self_test():
    """No state may pass that a kill must not leave, and none of the windows without its place."""
    by_name = {scenario.name: scenario for scenario in SCENARIOS}
    sent, addin = by_name["submitted, log on"], by_name["job file, to the add-in"]
    final = json.dumps({**json.loads(sent.job), "Result": DELIVERED}).encode()
    document = sent.document
    truncated = Call("1", "ftruncate", "3</x/job.json>, 0", "0")
    not_truncated = dataclasses.replace(truncated, answer="-1")
    opened = Call("1", "openat", 'AT_FDCWD, "job.json", O_WRONLY|O_CREAT|O_TRUNC', "3")
    written = Call("1", "write", '3</x/job.json>, ""..., 9', "9")
    spooled = Call("1", "writev", "3</x/mail/Store/Outbox/0001/attachment-0.bin>, [...], 2", "3000")
    deleted = Call("1", "unlink", '"letter.pdf"', "0")
    not_deleted = dataclasses.replace(deleted, answer="-1")
    published = Call("1", "rename", '"/x/0001.part", "/x/0001.eml"', "0")
    saved = "32 #9 IAttach::SaveChanges(flags=0x0) = 0x00000000\n"
    not_saved = saved.replace("0x00000000", "0x80004005")


    def left(document, job, spooled=(), mails={}, report=saved):
        return Left(document, job, spooled, mails, report)

    cut, lost = "neither the old nor a new one", "the mail client does not have it"
    # (scenario, what is left, calls, the windows or a problem)
    cases = [
        (sent, left(document, sent.job), [], set()),
        (sent, left(document, final), [truncated], set()),
        (sent, left(document, b""), [truncated], {1}),
        (sent, left(document, b""), [opened], {1}),
        (sent, left(document, final[:9]), [truncated, written], {1}),
        (sent, left(document, b""), [], cut),
        (sent, left(document, b""), [not_truncated], cut),
        (sent, left(document, b""), [truncated, written], cut),
        (sent, left(document, final[:9]), [truncated], cut),
        (sent, left(document, b"x" * 9), [truncated, written], cut),
        (sent, left(document, None), [truncated], "the job file is gone"),
        (sent, left(document, sent.job[:-1]), [], cut),
        (sent, left(document[:-1], sent.job, [document]), [spooled, deleted], "the document has changed"),
        (sent, left(None, sent.job, [document]), [spooled, deleted], {2}),
        (sent, left(None, b"", [document]), [spooled, deleted, truncated], {1, 2}),
        (sent, left(None, sent.job, [document]), [spooled], lost),
        (sent, left(None, sent.job, [document]), [spooled, not_deleted], lost),
        (sent, left(None, sent.job, [document]), [deleted], lost),
        (sent, left(None, sent.job, [document[:-1]]), [spooled, deleted], lost),
        (sent, left(None, sent.job), [spooled, deleted], lost),
        (sent, left(None, sent.job, [document]), [deleted, spooled], lost),
        (sent, left(None, sent.job, [document]), [spooled, deleted, published], lost),
        (sent, left(None, sent.job, [document], report=not_saved), [spooled, deleted], lost),
        (sent, left(None, final, mails={SENT[0]: check_eml.GOOD}), [deleted], lost),
        (addin, left(document, addin.job), [], set()),
        (addin, left(None, addin.job, [document]), [spooled, deleted], "the document is gone"),
    ]
    failures = 0
    for number, (scenario, found, calls, expected) in enumerate(cases):
        windows, wrong = judge(scenario, final, found, Place(calls))
        is_wrong = isinstance(expected, str)
        if not any(expected in problem for problem in wrong) if is_wrong else (windows, wrong) != (expected, []):
            print(f"case {number}: {expected} was expected, found {windows}, {wrong}")
            failures += 1
    print(f"kill_sweep: {len(cases)} self-tests, {failures} failed")
    return failures


def can_trace():
    try:
        done = subprocess.run(["strace", "-f", "-o", os.devnull, "-e", "trace=unlink", "-e",
                               "inject=unlink:error=EPERM:signal=SIGKILL:when=1", "true"],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    except FileNotFoundError:
        return "strace is missing"
    return done.stdout.decode(errors="replace").strip() if done.returncode else None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--self-test", action="store_true")
    parser.add_argument("build", nargs="?", type=pathlib.Path)
    arguments = parser.parse_args()
    if arguments.self_test:
        return 1 if self_test() else 0
    if arguments.build is None:
        parser.error("BUILD is missing")
    reason = can_trace()
    if reason:
        print(f"kill_sweep: {reason}; nothing was checked")
        return 77
    begin = time.monotonic()
    build = arguments.build.resolve()
    with tempfile.TemporaryDirectory(prefix="kill-sweep-") as folder, listening_addin(build) as port:
        failures = sweep(Machine(build, pathlib.Path(folder), port), arguments.quick)
    times = os.times()
    print(f"kill_sweep: {time.monotonic() - begin:.0f} s, "
          f"{times.user + times.system + times.children_user + times.children_system:.0f} s of processor time")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
