#!/usr/bin/env python3
"""What samples/starter/starter.py does on its own: refusals, outcomes, and its part for Windows, whose
registry and processes are played here."""
import contextlib
import io
import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import types
import unittest
from unittest import mock

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
SCRIPT = ROOT / "samples" / "starter" / "starter.py"
sys.path.insert(0, str(SCRIPT.parent))
import starter  # noqa: E402

QUOTES = ("the job file's path holds a quote or an apostrophe, which the tool takes away: choose another folder "
          "with --job-folder: ")
NO_COMMAND = (" holds a semicolon, a quote, an apostrophe, a control character or a blank at one of its ends, "
              "which no fax command can carry: leave --fax-command out")
DELIVERED = '{"Result": {"Status": 0, "ErrorCode": 0, "ErrorText": ""}}'
FAILED = '{"Result": {"Status": 1, "ErrorCode": -2147467259, "ErrorText": "MAPI Error"}}'


def refusal(function, *arguments):
    """The sentence of a refusal; what the function gives when it refuses nothing."""
    try:
        return function(*arguments)
    except starter.Refused as refused:
        return str(refused)


class Registry(types.SimpleNamespace):
    """winreg, with the InstallDir of each view."""
    HKEY_LOCAL_MACHINE, KEY_READ, KEY_WOW64_64KEY, KEY_WOW64_32KEY, REG_SZ = "HKLM", 1, 256, 512, 1

    def OpenKey(self, root, key, reserved, access):
        view = access & (self.KEY_WOW64_64KEY | self.KEY_WOW64_32KEY)
        if (root, key, reserved) != ("HKLM", r"Software\Sollvex\Zentpost", 0) or view not in self.views:
            raise FileNotFoundError
        return contextlib.nullcontext(view)

    def QueryValueEx(self, view, name):
        assert name == "InstallDir"
        return self.views[view], self.kind


class Refusals(unittest.TestCase):
    def test_paths_that_the_command_line_cannot_carry(self):
        for path, sentence in (("/o'brien", QUOTES + "/o'brien"), ('/a"b', QUOTES + '/a"b'),
                               ("", "the job file's path is empty"),
                               ("/a\0", "the job file's path holds a zero character, at which the tool would end it"),
                               ("/\udcff", "the job file's path is no Unicode text"), ("/my jobs/ä;", None)):
            self.assertEqual(refusal(starter.check_path, path), sentence)

    def test_fields_that_no_fax_command_can_carry(self):
        for option in "to", "recipient", "sender", "subject", "comment":
            for text in "a;b", 'a"b', "a'b", "a\tb", "a\nb", "a\x7f", "\x85", " a", "a ", " ":
                options = {"to": "1", option: text}
                self.assertEqual(refusal(starter.fax_command, options), f"--{option}" + NO_COMMAND, repr(text))
        self.assertEqual(refusal(starter.fax_command, {"to": "/1"}),
                         "--to begins with a slash, and would be taken for an option: leave --fax-command out")
        self.assertEqual(starter.fax_command({"to": "1", "subject": "a b", "preview": "1"}), "1;P1;Sa b")

    def test_texts_that_the_job_file_cannot_carry(self):
        for option in "document", "name", "to", "recipient", "sender", "subject", "comment":
            for text, problem in (("a\0", "holds a zero character, at which the tool would end it"),
                                  ("a\ud800", "is no Unicode text")):
                options = {"document": "a", "name": "a", "to": "1", option: text}
                self.assertEqual(refusal(starter.job_file_text, options), f"--{option} {problem}")

    def test_command_lines_that_cannot_be_used(self):
        for words, sentence in (([], "--document is missing"), (["--document", "a"], "--to is missing"),
                                (["--document", "", "--to", "1"], "--document is missing"),
                                (["--to"], "--to needs a value"),
                                (["a.pdf"], "unknown option a.pdf; --help shows those there are"),
                                (["--To", "1"], "unknown option --To; --help shows those there are")):
            self.assertEqual(refusal(starter.read_options, words), sentence)

    def test_a_name_that_ends_in_pdf_does_so_in_small_letters(self):
        for path, name in (("/d/O'Brien.PDF", "O'Brien.pdf"), ("letter.tif", "letter.tif"), ("pdf", "pdf")):
            self.assertEqual(starter.display_name(path), name)

    def test_a_job_file_that_is_there_already_is_not_written_over(self):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "job.json")
            starter.write_job_file(path, "ä")
            self.assertEqual(pathlib.Path(path).read_bytes(), b"\xc3\xa4")
            self.assertRaises(FileExistsError, starter.write_job_file, path, "b")

    def test_a_job_file_that_cannot_be_written_leaves_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "a.pdf").touch()
            options = {"document": os.path.join(folder, "a.pdf"), "to": "1", "tool": "/t", "job-folder": folder}
            with mock.patch.object(starter, "write_job_file", side_effect=OSError(28, "No space left")):
                sentence = refusal(starter.run, options)
            self.assertRegex(sentence, "^the job file cannot be written: .*job.json: No space left$")
            self.assertEqual(os.listdir(folder), ["a.pdf"])

    def test_an_empty_job_folder_and_an_empty_name_are_as_good_as_none(self):
        with tempfile.TemporaryDirectory() as folder:
            document = os.path.join(folder, "a.PDF")
            pathlib.Path(document).touch()
            options = {"document": document, "to": "1", "tool": os.path.join(folder, "none"), "job-folder": "",
                       "name": ""}
            with mock.patch.object(tempfile, "tempdir", folder), \
                    mock.patch.object(starter, "write_job_file", side_effect=OSError(28, "No space left")):
                sentence = refusal(starter.run, options)
            self.assertIn(f"written: {folder}{os.sep}zentpost-job-", sentence)
            self.assertEqual(options["name"], "a.pdf")

    def test_the_one_for_powershell_is_ascii(self):
        """Windows PowerShell 5.1 reads a script without a byte-order mark in the ANSI code page."""
        self.assertTrue(SCRIPT.with_suffix(".ps1").read_bytes().isascii())


class Outcomes(unittest.TestCase):
    def told(self, exit_code, job_file):
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "job.json")
            starter.write_job_file(path, job_file)
            return starter.judge(exit_code, starter.read_result(path))

    def test_only_two_witnesses_that_agree_settle_it(self):
        self.assertEqual(self.told(0, DELIVERED), (0, "delivered"))
        self.assertEqual(self.told(1, FAILED),
                         (1, "not delivered: MAPI Error (error code -2147467259, 0x80004005)"))
        for exit_code, job_file, left in ((0, FAILED, "a Result with the status 1"),
                                          (1, DELIVERED, "a Result with the status 0"),
                                          (-9, DELIVERED, "a Result with the status 0"), (1, "{}", "no Result")):
            self.assertEqual(self.told(exit_code, job_file),
                             (3, f"unclear: the tool ended with exit code {exit_code} and left {left}"))

    def test_what_is_no_result(self):
        for job_file in ("", "{", "{}", "[]", '{"Result": 1}', '{"Result": {}}',
                         '{"Result": {"Status": 0, "ErrorCode": 0}}', DELIVERED.replace("0,", '"0",', 1),
                         DELIVERED.replace("0,", "0.5,", 1), DELIVERED.replace("0,", "false,", 1), DELIVERED + "x"):
            self.assertEqual(self.told(0, job_file),
                             (3, "unclear: the tool ended with exit code 0 and left no Result"), job_file)
        self.assertIsNone(starter.read_result("/no/such/file"))

    def test_the_user_is_told_that_a_window_may_be_open(self):
        process = mock.Mock()
        process.wait.side_effect = [subprocess.TimeoutExpired("", 1)] * (starter.PATIENCE + 5) + [0]
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            self.assertEqual(starter.wait_for(process), 0)
        self.assertEqual(errors.getvalue(), "starter: still waiting; the mail client may be showing a window\n")


    @unittest.skipIf(os.name == "nt", "signals are sent")
    def test_ctrl_c_ends_the_starter_and_not_the_tool(self):
        with tempfile.TemporaryDirectory() as folder:
            place = pathlib.Path(folder)
            tool = place / "tool"
            # Ends when the test says so, and leaves a sign.
            tool.write_text(f"#!/bin/sh\n: > '{place}/begun'\nread line < '{place}/go'\n: > '{place}/ended'\n")
            tool.chmod(0o700)
            os.mkfifo(place / "go")
            (place / "a.pdf").touch()
            command = [sys.executable, str(SCRIPT), "--tool", str(tool), "--document", str(place / "a.pdf"),
                       "--to", "1", "--job-folder", folder]
            # As a shell does it: the whole group is meant.
            started = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, start_new_session=True)
            self.wait_until((place / "begun").exists)
            os.killpg(started.pid, signal.SIGINT)
            told, _ = started.communicate()
            self.assertEqual(started.returncode, 3)
            self.assertRegex(told, "^unclear: the tool goes on with the job, and will leave its Result\n"
                                   "job file: .*/job.json\n$")
            (place / "go").write_text("on\n")
            self.wait_until((place / "ended").exists)
            self.assertEqual(len(list(place.glob("zentpost-job-*/job.json"))), 1)

    def wait_until(self, has_come):
        deadline = time.monotonic() + 60
        while not has_come():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)


class OnWindows(unittest.TestCase):
    def installed(self, views, kind=Registry.REG_SZ):
        with mock.patch.dict(sys.modules, winreg=Registry(views=views, kind=kind)):
            return refusal(starter.installed_tool).replace("/", "\\")

    def test_the_installed_tool_is_found_in_either_view(self):
        x64, x86 = {256: r"C:\64"}, {512: r"C:\86"}
        self.assertEqual(self.installed({**x86, **x64}), r"C:\64\zentpost.exe")
        self.assertEqual(self.installed(x86), r"C:\86\zentpost.exe")
        self.assertEqual(self.installed({256: "", **x86}), r"C:\86\zentpost.exe")
        for views, kind in ({}, 1), (x64, 4):
            self.assertEqual(self.installed(views, kind), "--tool is missing, and Zentpost is not installed")

    @unittest.skipIf(os.name == "nt", "there is a registry")
    def test_elsewhere_nothing_is_installed(self):
        self.assertEqual(refusal(starter.installed_tool), "--tool is missing")

    def test_the_tool_gets_the_line_as_it_stands(self):
        with mock.patch.object(starter.os, "name", "nt"), mock.patch.object(subprocess, "Popen") as started:
            starter.start(r"C:\my tools\z.exe", [r"C:\my jobs\ä\job.json", "1;Sa b"])
        started.assert_called_once_with(r'"C:\my tools\z.exe" "C:\my jobs\ä\job.json" "1;Sa b"',
                                        executable=r"C:\my tools\z.exe", stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


if __name__ == "__main__":
    unittest.main()
