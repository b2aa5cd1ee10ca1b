"""The vectors of this folder, and a receiver to hold against them. For `make` and for tests."""
import json
import pathlib
import re
import socket
import subprocess
import tempfile
import time

FOLDER = pathlib.Path(__file__).resolve().parent
CODE_PAGES = (1250, 1251, 1252, 1253, 1254, 932, 936)
# Only what is about to fail waits as long.
LONG_ENOUGH = 60


def vector_file(code_page):
    return FOLDER / ("cp%d.json" % code_page)


def load(code_page):
    return json.loads(vector_file(code_page).read_text(encoding="utf-8"))["vectors"]


class Running:
    """A receiver that listens on a free port. Its output goes to a file: services that Wine starts may
    keep a pipe open."""

    def __init__(self, command, *options, environment=None):
        self.output = tempfile.TemporaryFile()
        self.process = subprocess.Popen(
            [*command, "--port", "0", *map(str, options)],
            stdin=subprocess.DEVNULL, stdout=self.output, stderr=subprocess.STDOUT,
            env=environment,
        )
        first = self.await_text("\n").splitlines()[0]
        match = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)", first)
        if not match:
            self.process.kill()
            raise AssertionError("%s says %r" % (command[-1], first))
        self.port = int(match[1])

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.output.close()

    def text(self):
        """What it has printed so far, without what Windows puts before a line feed."""
        self.output.seek(0)
        return self.output.read().decode("utf-8").replace("\r\n", "\n")

    def await_text(self, wanted):
        end = time.monotonic() + LONG_ENOUGH
        while wanted not in self.text():
            if self.process.poll() is not None and wanted not in self.text() or time.monotonic() > end:
                self.process.kill()
                raise AssertionError("no %r in %r" % (wanted, self.text()))
            time.sleep(0.01)
        return self.text()

    def join(self):
        """Waits for the end. The exit code, and the output behind the first line."""
        code = self.process.wait(LONG_ENOUGH)
        return code, self.text().split("\n", 1)[1]


def connect(port):
    return socket.create_connection(("127.0.0.1", port), LONG_ENOUGH)


def deliver(port, wire):
    """As the tool does: a probe, then the delivery, closed without waiting for an answer."""
    connect(port).close()
    with connect(port) as connection:
        connection.sendall(wire)


def shown(text):
    """A text as the sample receivers print it."""
    return "".join(
        "<U+%04X>" % ord(c) if ord(c) < 0x20 or 0x7F <= ord(c) < 0xA0 else c for c in text
    )


def result_of(output, number):
    """What a sample receiver says of its connection NUMBER: the text behind "NN bytes, ", and the lines
    below it."""
    match = re.search(r"^connection %d: (?:\d+ bytes, )?(.*)\n((?:  .*\n)*)" % number, output, re.MULTILINE)
    return match.groups() if match else ("nothing", "")


def problems_with(vectors, output):
    """Sentences on what is wrong with a sample receiver's output on these vectors, each of which took two
    connections. That of a text that is not decodable must say so, and show nothing."""
    problems = []
    for place, vector in enumerate(vectors):
        result, lines = result_of(output, 2 * place + 2)
        if not vector["decodable"]:
            good = result == "NOT DECODABLE" and lines.startswith("  problem: ") and lines.count("\n") == 1
        else:
            comment = ("  %-16s%s" % ("Comment:", shown(vector["decoded"]))).rstrip(" ")
            good = result == "valid" and comment in lines.split("\n") and lines.count("\n") == 10
        if not good:
            problems.append("%s: %s\n%s" % (vector["name"], result, lines))
    return problems
