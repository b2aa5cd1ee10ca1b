#!/usr/bin/python3
"""receiver_test.py COMMAND...: holds a receiver against the test vectors, and against what arrives that is
no delivery. COMMAND starts it: receiver.py or receiver.cpp's program, perhaps through Wine."""
import os
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "vectors"))
import vectors  # noqa: E402

COMMAND = []
MOST_BYTES = 1 << 20
GOOD = next(vector for vector in vectors.load(1252) if vector["name"] == "german")
GOOD_WIRE = bytes.fromhex(GOOD["wire"])
MEMBERS = {"Receiver": "1", "RecipientName": "", "SenderName": "", "FileName": "", "AttachmentName": "",
           "Comment": "", "Subject": "", "SendTime": "", "ECM": "t", "Preview": "f"}


def payload(**changes):
    """A payload with other JSON values; None leaves a member out."""
    values = {"ECM": "true", "Preview": "false"}
    texts = {name: values.get(name, '"%s"' % text) for name, text in MEMBERS.items()}
    texts.update(changes)
    inner = ",".join('"%s":%s' % item for item in texts.items() if item[1] is not None)
    return ('{"Parameters":{%s}}' % inner).encode()


def run(*options, output):
    return subprocess.run([*COMMAND, *options], stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                          env=dict(os.environ, COLUMNS="80"), check=False, timeout=vectors.LONG_ENOUGH)


class Vectors(unittest.TestCase):
    def test_are_decoded_or_said_to_be_not_decodable(self):
        for code_page in vectors.CODE_PAGES:
            all_of_it = vectors.load(code_page)
            with self.subTest(code_page), vectors.Running(
                    COMMAND, "--code-page", code_page, "--count", len(all_of_it)) as running:
                for vector in all_of_it:
                    vectors.deliver(running.port, bytes.fromhex(vector["wire"]))
                code, output = running.join()
                self.assertEqual(vectors.problems_with(all_of_it, output), [])
                self.assertEqual(code, 0 if all(v["decodable"] for v in all_of_it) else 1)

    def test_no_text_is_taken_for_another(self):
        """What Windows gives for pairs without a character, and pairs with two origins."""
        cases = [(932, "\u30FB"), (932, "\u222A"), (936, "\uFFFD"), (936, "\u00E4?"), (1252, "\u0080"),
                 (1253, "\u00AA"), (1252, "\u4E2D"), (1251, "\u00E4"), (1252, "\u00E4")]
        for code_page in {case[0] for case in cases}:
            texts = [text for page, text in cases if page == code_page]
            with self.subTest(code_page), vectors.Running(
                    COMMAND, "--code-page", code_page, "--count", len(texts)) as running:
                for text in texts:
                    vectors.deliver(running.port, payload(Comment='"%s"' % text))
                code, output = running.join()
                self.assertEqual((code, output.count(", NOT DECODABLE\n")), (1, len(texts)), output)


class Connections(unittest.TestCase):
    def good_at_the_end(self, running, number, code):
        """The next delivery is taken as if nothing had been."""
        vectors.deliver(running.port, GOOD_WIRE)
        result, output = running.join()
        self.assertEqual(result, code, output)
        self.assertEqual(vectors.result_of(output, number)[0], "valid", output)
        return output

    def test_byte_by_byte_and_several_at_a_time(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", 3) as running:
            connections = [vectors.connect(running.port) for _ in range(3)]
            for connection in connections:
                connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            for place in range(len(GOOD_WIRE)):
                for connection in connections:
                    connection.sendall(GOOD_WIRE[place:place + 1])
            for connection in connections:
                connection.close()
            code, output = running.join()
        self.assertEqual(code, 0, output)
        for number in (1, 2, 3):
            self.assertIn("für später", vectors.result_of(output, number)[1])

    def test_probes_count_for_nothing(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--once") as running:
            for _ in range(5):
                vectors.connect(running.port).close()
            output = self.good_at_the_end(running, 7, 0)
        self.assertEqual(output.count("probe\n"), 6)

    def test_what_is_no_payload_is_told_and_not_fatal(self):
        nested = b"[" * 100000
        bad = [b"x", b"{", b"{}", b"[]", b"1", nested, b'{"Parameters":[]}', payload() + b"x", payload()[:-1],
               payload() + b"\0", payload(Comment=None), payload(Comment="1"), payload(ECM='"true"'),
               payload(Preview="null"), payload(comment='""', Comment=None),
               payload(Comment=r'"a\u0000b"'), payload(Comment=r'"\\\u0000"'), payload(Later=r'[{"x":"\u0000"}]'),
               payload(**{"ECM": None, r"ECM\u0000": "true"}), payload(**{r"Later\u0000": "1"}),
               payload().replace(b'"Receiver"', b'"Subject":"x","Receiver"'),
               payload().replace(b'"Parameters"', b'"Parameters":1,"Parameters"')]
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", len(bad) + 2) as running:
            for wire in bad:
                vectors.deliver(running.port, wire)
            vectors.deliver(running.port, payload(Later='"unknown today"'))
            output = self.good_at_the_end(running, 2 * len(bad) + 4, 1)
        for place, wire in enumerate(bad):
            with self.subTest(wire[:80]):
                result, lines = vectors.result_of(output, 2 * place + 2)
                self.assertEqual((result, lines.count("\n")), ("NOT VALID", 1), output)
        self.assertEqual(vectors.result_of(output, 2 * len(bad) + 2)[0], "valid")

    def test_bytes_that_are_not_utf8(self):
        bad = [b"\xFF", b"\xC3", b"\xC0\x80", b"\xED\xA0\x80", b"\xF4\x90\x80\x80", b"\xE0\x80\x80", b"\x80"]
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", len(bad)) as running:
            for wire in bad:
                vectors.deliver(running.port, wire)
            code, output = running.join()
        self.assertEqual((code, output.count(", NOT DECODABLE\n")), (1, len(bad)), output)

    def test_shown_text_cannot_command_a_terminal(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--once") as running:
            vectors.deliver(running.port, payload(Comment='"\\u001b[2J\\u009b\\r\\n"'))
            code, output = running.join()
        self.assertEqual(code, 0)
        self.assertIn("<U+001B>[2J<U+009B><U+000D><U+000A>\n", output)

    def test_connection_without_an_end_is_dropped(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--read-timeout", 1, "--count", 2) as running:
            silent, half = vectors.connect(running.port), vectors.connect(running.port)
            half.sendall(GOOD_WIRE[:50])
            output = running.await_text("without a byte")
            self.assertEqual(vectors.result_of(output, 2)[0], "NOT VALID")
            running.await_text("connection 1: probe")
            output = self.good_at_the_end(running, 4, 1)
            silent.close()
            half.close()

    def test_an_escaped_backslash_before_u0000_is_no_zero(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--once") as running:
            vectors.deliver(running.port, payload(Comment=r'"\\u0000 \\\\u0000 \"u0000 \u0001"'))
            code, output = running.join()
        self.assertEqual(code, 0, output)
        self.assertIn(r'\u0000 \\u0000 "u0000 <U+0001>' + "\n", output)

    def test_connection_that_brings_a_byte_now_and_then_is_dropped(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--read-timeout", 1, "--count", 2) as running:
            start = time.monotonic()
            with vectors.connect(running.port) as slow:
                while "connection 1: " not in running.text():
                    self.assertLess(time.monotonic() - start, vectors.LONG_ENOUGH)
                    try:
                        slow.sendall(b" ")
                    except OSError:
                        running.await_text("connection 1: ")
                    time.sleep(0.05)
            self.assertGreater(time.monotonic() - start, 6)
            running.await_text("  problem: not complete after 6 s\n")
            self.good_at_the_end(running, 3, 1)

    def test_connection_that_is_reset(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", 2) as running:
            connection = vectors.connect(running.port)
            connection.sendall(b"{")
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()
            output = running.await_text("connection 1: ")
            self.assertIn("NOT VALID", output)
            self.good_at_the_end(running, 3, 1)

    def test_more_than_the_most_is_dropped(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", 2) as running:
            with vectors.connect(running.port) as connection:
                try:
                    connection.sendall(b" " * (MOST_BYTES + (1 << 20)))
                except OSError:
                    pass  # it was dropped before the end
            running.await_text("more than %d bytes" % MOST_BYTES)
            self.good_at_the_end(running, 3, 1)

    def test_the_oldest_of_too_many_connections_is_dropped(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--count", 2) as running:
            connections = [vectors.connect(running.port)]
            connections[0].sendall(GOOD_WIRE[:50])
            connections += [vectors.connect(running.port) for _ in range(50)]
            output = running.await_text("  problem: the oldest of more than 50 connections\n")
            self.assertEqual(vectors.result_of(output, 1)[0], "NOT VALID")
            self.assertEqual(output.count("connection "), 1, output)
            # All places are taken, and both connections of a delivery find one.
            output = self.good_at_the_end(running, 53, 1)
            self.assertIn("connection 2: probe\n", output)
            for connection in connections:
                connection.close()

    def test_nothing_is_ever_sent(self):
        with vectors.Running(COMMAND, "--code-page", 1252, "--once") as running:
            with vectors.connect(running.port) as connection:
                connection.sendall(GOOD_WIRE)
                connection.shutdown(socket.SHUT_WR)
                connection.settimeout(vectors.LONG_ENOUGH)
                self.assertEqual(connection.recv(1), b"")
            self.assertEqual(running.join()[0], 0)

    def test_listens_on_this_machine_alone_and_keeps_its_port(self):
        with vectors.Running(COMMAND, "--code-page", 1252) as running:
            listeners = set()
            for line in pathlib.Path("/proc/net/tcp").read_text(encoding="ascii").splitlines()[1:]:
                own, state = line.split()[1], line.split()[3]
                if state == "0A" and int(own.split(":")[1], 16) == running.port:
                    listeners.add(own.split(":")[0])
            self.assertEqual(listeners, {"0100007F"})
            with tempfile.TemporaryFile() as output:
                second = run("--port", str(running.port), output=output)
                output.seek(0)
                text = output.read().decode()
            self.assertEqual(second.returncode, 3, text)
            self.assertIn("cannot listen on 127.0.0.1:%d: " % running.port, text)


class Program(unittest.TestCase):
    def test_ctrl_c_ends_it_within_two_seconds(self):
        for options, deliveries, code in (([], 1, 0), (["--count", "2"], 1, 1)):
            with self.subTest(options), vectors.Running(COMMAND, "--code-page", 1252, *options) as running:
                waiting = vectors.connect(running.port)
                waiting.sendall(b"{")
                for _ in range(deliveries):
                    vectors.deliver(running.port, GOOD_WIRE)
                running.await_text("für später")
                start = time.monotonic()
                # Wine makes Ctrl-C of it.
                running.process.send_signal(signal.SIGINT)
                self.assertEqual(running.process.wait(vectors.LONG_ENOUGH), code, running.text())
                self.assertLess(time.monotonic() - start, 2)
                self.assertNotIn("Traceback", running.text())
                waiting.close()

    def test_command_line_that_cannot_be_used(self):
        for options in (["--port", "65536"], ["--port", "x"], ["--port", ""], ["--port"], ["--else"], ["word"],
                        ["--code-page", "437"], ["--count", "-1"], ["--read-timeout", "0"]):
            with self.subTest(options), tempfile.TemporaryFile() as output:
                done = run(*options, output=output)
                output.seek(0)
                self.assertEqual(done.returncode, 2)
                self.assertIn("receiver", output.read().decode())

    def test_help_fits_a_console(self):
        with tempfile.TemporaryFile() as output:
            done = run("--help", output=output)
            output.seek(0)
            lines = output.read().decode().splitlines()
        self.assertEqual(done.returncode, 0)
        self.assertIn("--code-page", "".join(lines))
        self.assertLessEqual(max(map(len, lines)), 80)


if __name__ == "__main__":
    COMMAND = sys.argv[1:]
    if not COMMAND:
        sys.exit("usage: receiver_test.py COMMAND...")
    # Where Wine is in between, it may be one that cannot run here.
    if subprocess.run([*COMMAND, "--help"], stdin=subprocess.DEVNULL, check=False).returncode == 77:
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
