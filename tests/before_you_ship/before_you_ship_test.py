#!/usr/bin/env python3
"""before_you_ship_test.py BUILD: executes both forms of each trap in docs/before-you-ship.md with the host
build in the folder BUILD, and looks whether the wrong one goes wrong as the page says and the right one
works."""
import email
import email.policy
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PAGE = (ROOT / "docs" / "before-you-ship.md").read_text(encoding="utf-8")
JOB = json.loads(re.search("```json job-file-tolerant\n(.*?)```", PAGE, re.DOTALL)[1])
ROW = re.compile(r"^\| (\d+) \| (.*?) \| `(.*?)` \| `(.*?)` \|$", re.MULTILINE)
REGISTRY = "Windows Registry Editor Version 5.00\n"
FAX_CLIENT = r"HKEY_CURRENT_USER\Software\Sollvex\FaxClient"
ADDIN = r"HKEY_CURRENT_USER\Software\Sollvex\OutlookAddin"
PATIENCE = 60  # seconds


def job_with(member):
    """The page's job file with another member."""
    job = json.loads(json.dumps(JOB))
    (name, value), = json.loads("{" + member + "}").items()
    holder = (job if name in ("FilePath", "SourceFileName")
              else job["Cmd"] if name in ("Receiver", "Parameters", "Commands") else job["Cmd"]["Parameters"])
    holder[name] = value
    if name == "Commands":
        # What a letter says counts where the long name is not there.
        del job["Cmd"]["Parameters"]["Subject"]
    return json.dumps(job, ensure_ascii=False)


class Run:
    """What one form leaves: exit code, payload or message, Result, and the files."""

    def __init__(self, build, form, has_addin):
        self.place = tempfile.TemporaryDirectory()
        self.folder = pathlib.Path(self.place.name)
        self.build = build
        registry = REGISTRY
        job_file, command = json.dumps(JOB, ensure_ascii=False), "zentpost job.json"
        if form.startswith("{"):
            job_file = form
        elif re.match(r'"\w+"=', form):
            registry += f"\n[{FAX_CLIENT}]\n{form}\n"
        elif form.startswith('"'):
            job_file = job_with(form)
        else:
            command = form
        for name in "job.json", "it's.json", "my job.json":
            (self.folder / name).write_text(job_file, encoding="utf-8")
        (self.folder / "letter.pdf").write_text("%PDF-1.4")
        self.environment = {"PATH": f"{build}:{build}/tools/sandbox_mapi:{os.environ['PATH']}", "LC_ALL": "C.UTF-8",
                            "HOME": str(self.folder), "ZENTPOST_REGISTRY": str(self.folder / "registry.reg"),
                            "TMPDIR": str(self.folder), "ZENTPOST_SYSTEM_DIRECTORY": str(self.folder),
                            # A user who closes what he is shown.
                            "SANDBOX_MAPI_CONFIG": '{"ShowForm": "cancelled"}'}
        self.payload = self.message = self.draft = self.is_valid = None
        if has_addin:
            self.with_addin(command, registry)
        else:
            self.with_mail_client(command, registry)

    def execute(self, command):
        return subprocess.run(["bash", "-c", command], cwd=self.folder, env=self.environment, timeout=PATIENCE,
                              stdin=subprocess.DEVNULL).returncode

    def with_addin(self, command, registry):
        port_file = self.folder / "port.txt"
        listener = subprocess.Popen([f"{self.build}/tools/addin_listener/addin_listener", "--json", "--port-file",
                                     str(port_file), "--timeout", str(PATIENCE), "--out", str(self.folder)],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            deadline = time.monotonic() + PATIENCE
            while not port_file.exists():
                assert time.monotonic() < deadline and listener.poll() is None, "nobody listens"
                time.sleep(0.01)
            registry += f'\n[{ADDIN}]\n"TolvanAddinPort"="{port_file.read_text().strip()}"\n'
            (self.folder / "registry.reg").write_text(registry)
            self.exit_code = self.execute(command)
            delivered = self.folder / "delivery-0001.json"
            if self.exit_code == 0 and "\"O\"" not in (self.folder / "job.json").read_text(encoding="utf-8"):
                self.is_valid = listener.wait(PATIENCE) == 0
            if delivered.exists():
                self.payload = json.loads(delivered.read_bytes())["Parameters"]
        finally:
            listener.kill()
            listener.wait()

    def with_mail_client(self, command, registry):
        (self.folder / "registry.reg").write_text(registry)
        assert self.execute("sandbox_mapi register --folder mail > told.txt") == 0
        self.exit_code = self.execute(command)
        for name, folder in (("message", "Store/Sent Items"), ("draft", "Drafts")):
            files = list((self.folder / "mail" / folder).glob("*.eml"))
            assert len(files) <= 1
            if files:
                setattr(self, name, email.message_from_bytes(files[0].read_bytes(), policy=email.policy.default))

    def result(self, name="job.json"):
        return json.loads((self.folder / name).read_text(encoding="utf-8")).get("Result")

    def exists(self, name):
        return (self.folder / name).exists()


def attachments(message):
    return [part.get_content() for part in message.iter_attachments()]


DELIVERED = {"Status": 0, "ErrorCode": 0, "ErrorText": ""}
PDF = [b"%PDF-1.4"]


class Traps(unittest.TestCase):
    """A method for each trap, from the two runs of its row."""

    def compare(self, number, has_addin):
        wrong, right = (Run(BUILD, form, has_addin) for form in ROWS[number][1:])
        for run in wrong, right:
            self.addCleanup(run.place.cleanup)
            self.assertEqual(run.exit_code, 0, "each counts as delivered")
        return wrong, right

    def compare_payloads(self, number, name, in_wrong, in_right):
        wrong, right = self.compare(number, True)
        self.assertEqual((wrong.is_valid, right.is_valid), (True, True))
        self.assertEqual(wrong.payload[name], in_wrong)
        self.assertEqual(right.payload[name], in_right)
        return wrong, right

    def test_01_apostrophe_in_a_path(self):
        wrong, right = self.compare_payloads(1, "Receiver", "", "0301234567")
        self.assertEqual(wrong.payload["FileName"], "its.json")
        self.assertIsNone(wrong.result("it's.json"))
        self.assertEqual(right.result("my job.json"), DELIVERED)

    def test_02_position_of_options(self):
        self.compare_payloads(2, "Receiver", "0301234567", "0309")

    def test_03_options_set_no_fields(self):
        self.compare_payloads(3, "Preview", False, True)

    def test_04_fax_command_replaces_the_fields(self):
        self.compare_payloads(4, "Subject", "", "Invoice")

    def test_05_semicolon(self):
        self.compare_payloads(5, "Subject", "Bread", "Bread; rolls")

    def test_06_apostrophe_in_a_text(self):
        self.compare_payloads(6, "Subject", "Its done", "It's done")

    def test_07_letter_of_the_recipient(self):
        self.compare_payloads(7, "RecipientName", "", "Example Ltd")

    def test_08_wrong_comma(self):
        wrong, right = self.compare(8, False)
        self.assertFalse(wrong.exists("job.json"))
        self.assertTrue(wrong.exists("letter.pdf"))
        self.assertEqual(attachments(wrong.draft), [ROWS[8][1].encode()])
        self.assertEqual(right.result(), DELIVERED)
        self.assertEqual(attachments(right.draft), PDF)

    def test_09_utf_16(self):
        wrong, right = self.compare(9, False)
        self.assertFalse(wrong.exists("a.json"))
        self.assertTrue(wrong.exists("letter.pdf"))
        self.assertEqual(attachments(right.message), PDF)
        self.assertEqual(right.result("a.json"), DELIVERED)

    def test_10_ansi_code_page(self):
        self.compare_payloads(10, "RecipientName", "M\ufffdller", "Müller")

    def test_11_value_that_is_no_text(self):
        self.compare_payloads(11, "Subject", "", "4711")

    def test_12_number_that_is_no_list(self):
        self.compare_payloads(12, "Receiver", "", "0301234567")

    def test_13_long_name_among_the_letters(self):
        self.compare_payloads(13, "Subject", "", "Offer")

    def test_14_preview(self):
        self.compare_payloads(14, "Preview", True, False)

    def test_15_error_correction(self):
        self.compare_payloads(15, "ECM", False, True)

    def test_16_display_name(self):
        self.compare_payloads(16, "AttachmentName", "Letter.PDF.pdf", "Letter.pdf")

    def test_17_no_number(self):
        wrong, right = self.compare(17, False)
        self.assertIsNone(wrong.message)
        self.assertIsNotNone(wrong.draft)
        self.assertEqual(wrong.result(), DELIVERED)
        self.assertIsNotNone(right.message)
        self.assertIsNone(right.draft)

    def test_18_missing_document(self):
        wrong, right = self.compare(18, False)
        self.assertEqual(wrong.result(), DELIVERED)
        self.assertEqual(attachments(wrong.message), [])
        self.assertEqual(attachments(right.message), PDF)

    def test_19_skip_extended_mapi_as_text(self):
        wrong, right = self.compare(19, False)
        self.assertEqual(wrong.result(), DELIVERED)
        self.assertIsNone(wrong.message)
        self.assertTrue(wrong.exists("letter.pdf"))
        self.assertIsNotNone(right.message)

    def test_20_diverted_job(self):
        wrong, right = self.compare(20, True)
        self.assertEqual(wrong.result(), DELIVERED)
        self.assertIsNone(wrong.payload)
        self.assertEqual(right.payload["Receiver"], "0301234567")


    def test_21_text_that_looks_like_utf_8(self):
        wrong, right = self.compare(21, True)
        self.assertEqual((wrong.is_valid, right.is_valid), (False, True))
        self.assertEqual(wrong.result(), DELIVERED)
        self.assertIsNone(wrong.payload)
        self.assertEqual(right.payload["Subject"], "« Café »")


class Page(unittest.TestCase):
    def test_each_trap_has_a_test(self):
        tested = sorted(int(name.split("_")[1]) for name in dir(Traps) if name.startswith("test_"))
        self.assertEqual(sorted(ROWS), tested)
        self.assertEqual(tested, list(range(1, 22)))
        self.assertIn("## Twenty-one traps", PAGE)
        self.assertEqual(len(re.findall(r"^\| \d", PAGE, re.MULTILINE)), len(ROWS))

    def test_a_copy_stays_where_the_document_is_deleted(self):
        block, = re.findall("```sh run\n(.*?)```", PAGE, re.DOTALL)
        with tempfile.TemporaryDirectory() as folder:
            environment = {**os.environ, "PATH": f"{BUILD}:{BUILD}/tools/sandbox_mapi:{os.environ['PATH']}"}
            done = subprocess.run(["bash", "-euo", "pipefail", "-c", block], cwd=folder, env=environment,
                                  timeout=PATIENCE, capture_output=True)
        self.assertEqual(done.returncode, 0, done)


if __name__ == "__main__":
    BUILD = os.path.abspath(sys.argv.pop(1))
    ROWS = {int(number): (trap, wrong, right) for number, trap, wrong, right in ROW.findall(PAGE)}
    unittest.main()
