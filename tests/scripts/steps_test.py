"""steps_test.py STEPS: what scripts that source the file STEPS show, on a terminal and in a file."""
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

STEPS = pathlib.Path(sys.argv.pop(1)).resolve()
HEAD = f"""set -euo pipefail
root=$PWD logs=$PWD/logs
mkdir -p "$logs"
. '{STEPS}'
one_at_a_time
trap end_session EXIT
trap 'echo "interrupted"; exit 130' INT
"""


class Steps(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="steps mit Ümläuten ")
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def start(self, script, output):
        return subprocess.Popen(["bash", "-c", HEAD + script], cwd=self.folder, stdin=subprocess.DEVNULL,
                                stdout=output, stderr=output)

    def in_a_file(self, script):
        with tempfile.TemporaryFile() as output:
            status = self.start(script, output).wait(60)
            output.seek(0)
            return status, output.read().decode()

    def on_a_terminal(self, script):
        master, slave = pty.openpty()
        process = self.start(script, slave)
        os.close(slave)
        text = b""
        try:
            while piece := os.read(master, 4096):
                text += piece
        except OSError:  # the terminal's last user has ended
            pass
        os.close(master)
        return process.wait(60), text.decode().replace("\r\n", "\n")

    def test_a_file_gets_a_plain_line_for_each_step(self):
        status, text = self.in_a_file("step 'one thing' true\nstep another sleep 1.5")
        self.assertEqual(0, status)
        self.assertRegex(text, r"\Aone thing {25}passed +0\.\d s  \nanother {27}passed +1\.\d s  \n\Z")

    def test_a_terminal_is_told_the_step_and_its_seconds_meanwhile(self):
        status, text = self.on_a_terminal("step slow sleep 2.5")
        self.assertEqual(0, status)
        self.assertRegex(text, r"\r\x1b\[Kslow +1 s\r\x1b\[Kslow +2 s\r\x1b\[Kslow +passed +2\.\d s  \n\Z")

    def test_progress_gives_the_exit_code_and_takes_its_line_away(self):
        status, text = self.on_a_terminal("with_progress waiting bash -c 'sleep 1.2; exit 7'")
        self.assertEqual(7, status)
        self.assertRegex(text, r"waiting +1 s\r\x1b\[K\Z")
        self.assertEqual((7, ""), self.in_a_file("with_progress waiting bash -c 'exit 7'"))

    def test_a_step_that_fails_shows_the_end_of_its_output(self):
        status, text = self.in_a_file("step bad bash -c 'echo why; exit 3' || echo $? $passed $failed $skipped")
        self.assertEqual(0, status)
        self.assertRegex(text, r"bad +FAILED +0\.\d s  the end of logs/bad\.log:\n    why\n3 0 1 0\n\Z")

    def test_a_step_that_this_machine_cannot_do_says_why(self):
        _, text = self.in_a_file("step odd bash -c 'echo no Wine; exit 77' || echo $passed $failed $skipped")
        self.assertRegex(text, r"odd +skipped +0\.\d s  no Wine\n0 0 1\n\Z")

    def test_a_step_may_leave_a_remark(self):
        _, text = self.in_a_file("step 'with remark' bash -c 'echo 12 of them >\"$remark\"'")
        self.assertRegex(text, r"passed +0\.\d s  12 of them\n\Z")

    def test_one_script_at_a_time_works_in_a_tree(self):
        first = self.start(": >ready\nstep long sleep 60", subprocess.DEVNULL)
        self.wait_for("ready")
        status, text = self.in_a_file("echo not reached")
        self.assertEqual(1, status)
        self.assertRegex(text, r"\Aanother .* is running in this folder: type this again when it has ended\n\Z")
        first.send_signal(signal.SIGINT)
        self.assertEqual(130, first.wait(60))
        self.assertEqual((0, "reached\n"), self.in_a_file("echo reached"))

    def test_an_interrupted_step_leaves_nothing_running(self):
        with tempfile.TemporaryFile() as output:
            script = self.start("step long bash -c 'echo $$ >process; : >ready; sleep 60; true'", output)
            self.wait_for("ready")
            script.send_signal(signal.SIGINT)
            self.assertEqual(130, script.wait(60))
            output.seek(0)
            self.assertTrue(re.search(r"interrupted\n\Z", output.read().decode()))
        process = int((self.folder / "process").read_text())
        self.assertRaises(ProcessLookupError, os.kill, process, 0)

    def wait_for(self, name):
        deadline = time.monotonic() + 60
        while not (self.folder / name).exists():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)


unittest.main()
