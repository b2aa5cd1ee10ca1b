#!/usr/bin/env python3
"""Hands one fax job to Zentpost and tells what became of it.

A sample for fax applications: Python 3.8 or later, the standard library alone, on Windows and, with
Zentpost's host build, elsewhere. README beside it tells what it does and why.
"""
import itertools
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

HELP = """\
usage: starter [--tool PATH] --document PATH --to NUMBER [options]

Hands one fax job to Zentpost, waits for its end and tells what became of it.

  --tool PATH        zentpost; else the one that is installed (Windows alone)
  --document PATH    the document; Zentpost may delete it once it is attached
  --to NUMBER        the fax number
  --name NAME        the document's name for its receiver; else its own
  --recipient NAME   the recipient's name
  --sender NAME      the sender's name
  --subject TEXT     the subject
  --comment TEXT     the text of the message
  --preview          show the message to the user before it goes out
  --job-folder PATH  where the job's own folder is made; else the folder for
                     temporary files
  --fax-command      number and texts go onto the command line, not into the
                     job file
  --help             show this text (also -h)

exit codes:
  0  delivered
  1  not delivered
  2  nothing was started: a wrong command line, or no tool
  3  unclear: do not send it again before you know
"""

DELIVERED, NOT_DELIVERED, NOTHING_STARTED, UNCLEAR = range(4)
WITH_VALUE = ("tool", "document", "to", "name", "recipient", "sender", "subject", "comment", "job-folder")
WITHOUT_VALUE = ("preview", "fax-command")
# The fields' names in the job file, and their letters in a fax command.
FIELDS = {"recipient": ("RecipientName", "E"), "comment": ("Comment", "K"),
          "preview": ("Preview", "P"), "subject": ("Subject", "S"), "sender": ("UserName", "U")}
PATIENCE = 60  # seconds until the user is told that the tool is still at work


class Refused(Exception):
    """Nothing is started. Says why, in one sentence."""


def read_options(words):
    """The options by name; those without a value are "1", as are their fields."""
    options = {}
    words = iter(words)
    for word in words:
        name = word[2:] if word.startswith("--") else ""
        if name in WITHOUT_VALUE:
            options[name] = "1"
        elif name in WITH_VALUE:
            value = next(words, None)
            if value is None:
                raise Refused(f"{word} needs a value")
            options[name] = value
        else:
            raise Refused(f"unknown option {word}; --help shows those there are")
    for name in "document", "to":
        if not options.get(name):
            raise Refused(f"--{name} is missing")
    return options


def check_text(what, text):
    """A text of the job file arrives as it is, whatever it holds, but for these."""
    if "\0" in text:
        raise Refused(f"{what} holds a zero character, at which the tool would end it")
    try:
        text.encode("utf-8")
    except UnicodeEncodeError:
        raise Refused(f"{what} is no Unicode text") from None


def check_path(path):
    """Whether the path of a job file survives the tool's command line, which takes all quotes away."""
    check_text("the job file's path", path)
    if not path:
        raise Refused("the job file's path is empty")
    if re.search("[\"']", path):
        raise Refused(f"the job file's path holds a quote or an apostrophe, which the tool takes away: "
                      f"choose another folder with --job-folder: {path}")


def display_name(document):
    """The document's own name. The tool looks for ".pdf" in small letters, and appends it where there is none."""
    name = os.path.basename(document)
    return name[:-4] + ".pdf" if name.lower().endswith(".pdf") else name


def job_file_text(options):
    """The job file: JSON, in which every value is a text."""
    job = {"FilePath": options["document"], "SourceFileName": options["name"]}
    if "fax-command" not in options:
        fields = {name: options[option] for option, (name, _) in FIELDS.items() if options.get(option)}
        job["Cmd"] = {"Parameters": fields, "Receiver": [options["to"]]}
    for option in "document", "to", "name", *FIELDS:
        check_text(f"--{option}", options.get(option, ""))
    return json.dumps(job, ensure_ascii=False, indent="\t")


def fax_command(options):
    """The number, and fields of a letter and a text: "0301234567;EExample Ltd;SInvoice"."""
    fields = [options["to"]]
    for option, (_, letter) in FIELDS.items():
        if options.get(option):
            fields.append(letter + options[option])
    for option in "to", *FIELDS:
        text = options.get(option, "")
        check_text(f"--{option}", text)
        if re.search("[;\"'\x00-\x1f\x7f-\x9f]", text) or text != text.strip(" "):
            raise Refused(f"--{option} holds a semicolon, a quote, an apostrophe, a control character or a blank "
                          f"at one of its ends, which no fax command can carry: leave --fax-command out")
    if options["to"].startswith("/"):
        raise Refused("--to begins with a slash, and would be taken for an option: leave --fax-command out")
    return ";".join(fields)


def command_line(tool, words):
    """What Windows hands to the tool. The tool takes its words apart by rules of its own, and knows no
    backslash before a quote: subprocess's own quoting, which is for other programs, would not do."""
    return " ".join(f'"{word}"' for word in [tool, *words])


def installed_tool():
    """Where the Windows Installer has put the tool; the 64-bit one first."""
    try:
        import winreg
    except ImportError:
        raise Refused("--tool is missing") from None
    for view in winreg.KEY_WOW64_64KEY, winreg.KEY_WOW64_32KEY:
        try:
            with winreg.OpenKey(winreg.HKEY_LOCAL_MACHINE, r"Software\Sollvex\Zentpost", 0,
                                winreg.KEY_READ | view) as key:
                folder, kind = winreg.QueryValueEx(key, "InstallDir")
        except OSError:
            continue
        if kind == winreg.REG_SZ and folder:
            return os.path.join(folder, "zentpost.exe")
    raise Refused("--tool is missing, and Zentpost is not installed")


def write_job_file(path, text):
    """In UTF-8 without a byte-order mark, and on the disk before anybody is told of it."""
    with open(path, "xb") as file:
        file.write(text.encode("utf-8"))
        file.flush()
        os.fsync(file.fileno())


def read_result(path):
    """The tool's Result as (Status, ErrorCode, ErrorText), or None where it wrote none."""
    try:
        with open(path, encoding="utf-8") as file:
            result = json.load(file)["Result"]
        status, code, text = result["Status"], result["ErrorCode"], result["ErrorText"]
    except (OSError, ValueError, KeyError, TypeError):
        return None
    is_right = all(type(number) is int for number in (status, code)) and isinstance(text, str)
    return (status, code, text) if is_right else None


def judge(exit_code, result):
    """The job's outcome, and what to tell of it. Only two witnesses that agree settle it."""
    if exit_code == 0 and result and result[0] == 0:
        return DELIVERED, "delivered"
    if exit_code == 1 and result and result[0] == 1:
        _, code, text = result
        return NOT_DELIVERED, f"not delivered: {text} (error code {code}, 0x{code & 0xFFFFFFFF:08X})"
    said = f"a Result with the status {result[0]}" if result else "no Result"
    return UNCLEAR, f"unclear: the tool ended with exit code {exit_code} and left {said}"


def start(tool, words):
    """The tool as a process. Ctrl-C ends the starter, never the tool in the middle of a job."""
    nothing = {name: subprocess.DEVNULL for name in ("stdin", "stdout", "stderr")}
    try:
        if os.name == "nt":
            return subprocess.Popen(command_line(tool, words), executable=tool, **nothing)
        return subprocess.Popen([tool, *words], start_new_session=True, **nothing)
    except OSError as error:
        raise Refused(f"the tool cannot be started: {tool}: {error.strerror}") from None


def wait_for(process):
    """No time-out: the mail client may be showing a window to the user, for as long as it likes."""
    for seconds in itertools.count(1):
        try:
            return process.wait(1)  # On Windows no longer wait is ended by Ctrl-C.
        except subprocess.TimeoutExpired:
            if seconds == PATIENCE:
                print("starter: still waiting; the mail client may be showing a window", file=sys.stderr, flush=True)


def run(options):
    options["document"] = os.path.abspath(options["document"])
    options["name"] = options.get("name") or display_name(options["document"])
    try:
        with open(options["document"], "rb"):
            pass
    except (OSError, ValueError):
        raise Refused(f"the document cannot be read: {options['document']}") from None
    tool = options.get("tool") or installed_tool()
    text = job_file_text(options)
    try:
        folder = tempfile.mkdtemp(prefix="zentpost-job-", dir=options.get("job-folder") or None)
    except OSError as error:
        raise Refused(f"no folder can be made for the job: {error.filename}: {error.strerror}") from None
    job_file = os.path.join(os.path.abspath(folder), "job.json")
    try:
        check_path(job_file)
        words = [job_file] + ([fax_command(options)] if "fax-command" in options else [])
        try:
            write_job_file(job_file, text)
        except OSError as error:
            raise Refused(f"the job file cannot be written: {job_file}: {error.strerror}") from None
        process = start(tool, words)
    except Refused:
        shutil.rmtree(folder, ignore_errors=True)
        raise
    try:
        exit_code = wait_for(process)
    except KeyboardInterrupt:
        print(f"unclear: the tool goes on with the job, and will leave its Result\njob file: {job_file}")
        return UNCLEAR
    outcome, told = judge(exit_code, read_result(job_file))
    print(told)
    if outcome == DELIVERED:
        shutil.rmtree(folder, ignore_errors=True)
    else:
        # The doctor reads it.
        print(f"job file: {job_file}")
    return outcome


def main(words):
    for stream in sys.stdout, sys.stderr:
        stream.reconfigure(encoding="utf-8", errors="backslashreplace")
    if words in (["-h"], ["--help"]):
        print(HELP, end="")
        return DELIVERED
    try:
        return run(read_options(words))
    except Refused as refusal:
        print(f"starter: {refusal}", file=sys.stderr)
        return NOTHING_STARTED


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
