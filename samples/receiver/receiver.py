#!/usr/bin/env python3
"""Takes a mail add-in's deliveries, decodes them and prints their fields.

A sample to start from: Python 3.8 or later, standard library alone, Windows and
other systems. The page "Receiving deliveries" says what it does and why.

Exit codes: 0 all was good; 1 a delivery was not, or too few came; 2 the command
line cannot be used; 3 cannot listen.
"""
import argparse
import json
import selectors
import signal
import socket
import struct
import sys
import time

CODE_PAGES = (1250, 1251, 1252, 1253, 1254, 932, 936)
TEXTS = (
    "Receiver", "RecipientName", "SenderName", "FileName",
    "AttachmentName", "Comment", "Subject", "SendTime",
)
SWITCHES = ("ECM", "Preview")
# A delivery that grows beyond this is dropped. A job's texts are some hundred bytes as a rule, and JSON
# made to do harm takes more than eighty times its length in memory.
MOST_BYTES = 1 << 20
MOST_CONNECTIONS = 50
# A connection lasts no longer than so many read time-outs: as a rule 180 s. The tool itself closes
# after 160 s.
MOST_READ_TIMEOUTS = 6


class NotDecodable(Exception):
    """The bytes are not the sender's text in this code page, or what is left of it."""


class NotValid(Exception):
    """The text is not a payload."""


# ---------------------------------------------------------------------------------- the encoding


def characters(code_page):
    """{bytes: character} of each byte, or pair of bytes, that UTF-8 text can bring, as Windows reads
    them. Python's code pages leave out what Windows fills up."""
    in_utf8 = [byte for byte in range(256) if byte not in (0xC0, 0xC1) and byte < 0xF5]
    leads, trails = b"", b""
    if code_page == 932:
        leads, trails = bytes([*range(0x81, 0xA0), *range(0xE0, 0xFD)]), range(0x40, 0xFD)
    elif code_page == 936:
        leads, trails = bytes(range(0x81, 0xFF)), range(0x40, 0xFF)

    def read(code):
        try:
            return code.decode("cp%d" % code_page)
        except UnicodeDecodeError:
            return None

    table = {}
    for byte in in_utf8:
        if byte not in leads:
            # An undefined byte is the control character of its number, with these exceptions.
            odd = {(1253, 0xAA): "\uF8F9", (1253, 0xD2): "\uF8FA", (936, 0x80): "\u20AC"}
            code = bytes([byte])
            table[code] = read(code) or odd.get((code_page, byte), chr(byte))
    spare = 0xE766  # 936: the pairs without a character get those from here on, in their order
    for lead in leads:
        for trail in trails:
            if trail == 0x7F:
                continue
            code = bytes([lead, trail])
            character = read(code)
            if code_page == 936 and character is None:
                character = user_defined_936(lead, trail)
                if character is None:
                    character = chr(spare)
                    spare += 1
            if character is not None and lead in in_utf8 and trail in in_utf8:
                table[code] = character
    return table


def user_defined_936(lead, trail):
    """The character of a pair in one of the three areas that code page 936 leaves to its users."""
    if 0xAA <= lead <= 0xAF and trail >= 0xA1:
        return chr(0xE000 + 94 * (lead - 0xAA) + trail - 0xA1)
    if lead >= 0xF8 and trail >= 0xA1:
        return chr(0xE234 + 94 * (lead - 0xF8) + trail - 0xA1)
    if 0xA1 <= lead <= 0xA7 and trail <= 0xA0:
        return chr(0xE4C6 + 96 * (lead - 0xA1) + trail - 0x40 - (trail > 0x7F))
    return None


def way_back(code_page):
    """{character: bytes}, without the characters that have more than one origin: those are never
    guessed. U+30FB is also what code page 932 gives for a pair without a character."""
    table = {}
    twice = {"\u30FB"} if code_page == 932 else set()
    for code, character in characters(code_page).items():
        if table.setdefault(character, code) != code:
            twice.add(character)
    return {character: code for character, code in table.items() if character not in twice}


def decode(wire, table):
    """The payload's text. `table` is what way_back gives."""
    try:
        read_in_code_page = wire.decode("utf-8")
    except UnicodeDecodeError as error:
        raise NotDecodable("byte %d on the wire is not UTF-8" % error.start) from None
    try:
        utf8 = b"".join([table[character] for character in read_in_code_page])
    except KeyError as error:
        code = ord(error.args[0])
        raise NotDecodable("U+%04X has no byte that is certain in this code page" % code) from None
    try:
        # In code page 936 a "?" may stand for two bytes that were lost: what is left is not UTF-8.
        return utf8.decode("utf-8")
    except UnicodeDecodeError as error:
        raise NotDecodable("byte %d of the text is not UTF-8" % error.start) from None


def fields(text):
    """The payload's members: eight texts and two switches. Members unknown today are left out."""
    # Much of what reads texts ends them there. A backslash that is escaped begins no escape.
    if "\\u0000" in text.replace("\\\\", "  "):
        raise NotValid("a text or a name holds a zero character")
    try:
        document = json.loads(text, object_pairs_hook=without_doubles)
    except (ValueError, RecursionError) as error:
        raise NotValid("no JSON: %s" % error) from None
    members = document.get("Parameters") if isinstance(document, dict) else None
    if not isinstance(members, dict):
        raise NotValid('no object "Parameters"')
    for kind, names in ((str, TEXTS), (bool, SWITCHES)):
        for name in names:
            if name not in members:
                raise NotValid('no member "%s"' % name)
            if not isinstance(members[name], kind):
                raise NotValid('member "%s" has the wrong type' % name)
    return {name: members[name] for name in TEXTS + SWITCHES}


def without_doubles(pairs):
    members = dict(pairs)
    if len(members) != len(pairs):
        raise ValueError("a member stands twice")
    return members


def system_code_page():
    """The ANSI code page by which a program of this user converts."""
    if sys.platform != "win32":
        return 1252
    import ctypes

    # CPINFOEXW: the number stands behind the size (4), the default characters and the lead bytes.
    info = ctypes.create_string_buffer(600)
    thread_ansi = 3
    if not ctypes.windll.kernel32.GetCPInfoExW(thread_ansi, 0, info):
        return 1252
    return struct.unpack_from("<I", info, 20)[0]


# ---------------------------------------------------------------------------------- the connection


class Receiver:
    """Serves any number of connections on one thread, until `count` deliveries have ended."""

    def __init__(self, options):
        self.options = options
        self.table = way_back(options.code_page)
        self.selector = selectors.DefaultSelector()
        self.connections = {}  # a socket's number, its bytes, when it began and was last heard of; oldest first
        self.came = 0
        self.deliveries = 0
        self.all_good = True
        self.listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        if sys.platform == "win32":
            # Else another program could take the port over.
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_EXCLUSIVEADDRUSE, 1)
        else:
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(("127.0.0.1", options.port))
        self.listener.listen()
        self.listener.setblocking(False)
        self.selector.register(self.listener, selectors.EVENT_READ)
        self.port = self.listener.getsockname()[1]

    def run(self):
        while self.options.count == 0 or self.deliveries < self.options.count:
            # Windows does not wake a waiting program on Ctrl-C.
            for key, _ in self.selector.select(0.5):
                if key.fileobj is self.listener:
                    self.accept()
                elif key.fileobj in self.connections:  # else it had to go just now
                    self.read(key.fileobj)
            now = time.monotonic()
            read_timeout = self.options.read_timeout
            for connection, (_, _, began, heard) in list(self.connections.items()):
                if now - began > MOST_READ_TIMEOUTS * read_timeout:
                    self.end(connection, "not complete after %d s" % (MOST_READ_TIMEOUTS * read_timeout))
                elif now - heard > read_timeout:
                    self.end(connection, "not complete after %d s without a byte" % read_timeout)

    def accept(self):
        try:
            connection, _ = self.listener.accept()
        except OSError:
            return  # it has gone again
        self.came += 1
        if len(self.connections) == MOST_CONNECTIONS:
            # Who is slow keeps nobody out: a delivery takes no longer than a moment as a rule.
            self.end(next(iter(self.connections)), "the oldest of more than %d connections" % MOST_CONNECTIONS)
        connection.setblocking(False)
        now = time.monotonic()
        self.connections[connection] = (self.came, bytearray(), now, now)
        self.selector.register(connection, selectors.EVENT_READ)

    def read(self, connection):
        number, wire, began, _ = self.connections[connection]
        try:
            received = connection.recv(1 << 16)
        except BlockingIOError:
            return
        except OSError:
            return self.end(connection, "the connection was lost")
        if not received:
            return self.end(connection)
        wire += received
        self.connections[connection] = (number, wire, began, time.monotonic())
        if len(wire) > MOST_BYTES:
            self.end(connection, "more than %d bytes" % MOST_BYTES)

    def end(self, connection, problem=None):
        """Nothing is ever sent: the sender reads nothing, and would see its connection reset."""
        number, wire, _, _ = self.connections.pop(connection)
        self.selector.unregister(connection)
        connection.close()
        if not wire:
            say("connection %d: probe" % number)
            return
        self.deliveries += 1
        lines = []
        result = "NOT VALID"
        try:
            if problem:
                raise NotValid(problem)
            members = fields(decode(wire, self.table))
            result = "valid"
            lines = ["  %-16s%s" % (name + ":", shown(value)) for name, value in members.items()]
        except (NotDecodable, NotValid) as error:
            self.all_good = False
            result = "NOT DECODABLE" if isinstance(error, NotDecodable) else result
            lines = ["  problem: %s" % error]
        heading = "connection %d: %d bytes, %s" % (number, len(wire), result)
        say("\n".join([heading] + [line.rstrip(" ") for line in lines]))

    def close(self):
        for connection in self.connections:
            connection.close()
        self.listener.close()
        self.selector.close()


def shown(value):
    """In one line, and without what could command a terminal."""
    if isinstance(value, bool):
        return "true" if value else "false"
    return "".join(
        "<U+%04X>" % ord(c) if ord(c) < 0x20 or 0x7F <= ord(c) < 0xA0 else c for c in value
    )


def say(text):
    print(text, flush=True)


def number(lowest, highest):
    def read(text):
        if not (text.isascii() and text.isdigit() and lowest <= int(text) <= highest):
            wanted = "takes a number from %d to %d, not %r" % (lowest, highest, text)
            raise argparse.ArgumentTypeError(wanted)
        return int(text)

    return read


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--port", type=number(0, 65535), default=0, metavar="N",
                        help="0, the default, takes a free one")
    parser.add_argument(
        "--code-page", type=int, choices=CODE_PAGES, default=system_code_page(), metavar="N",
        help="the sender's ANSI code page: 1250 to 1254, 932, 936; "
             "the default is this system's, or 1252")
    parser.add_argument(
        "--count", type=number(0, 2**31 - 1), default=0, metavar="N",
        help="end after N deliveries; 0, the default: go on until Ctrl-C")
    parser.add_argument("--once", action="store_const", dest="count", const=1, help="the same as --count 1")
    parser.add_argument(
        "--read-timeout", type=number(1, 86400), default=30, metavar="SECONDS",
        help="drop a connection that brings nothing for so long (default 30), or is not complete after six "
             "times that")
    return parser.parse_args()


def main():
    sys.stdout.reconfigure(encoding="utf-8", errors="backslashreplace")
    options = parse_options()
    if options.code_page not in CODE_PAGES:
        print("receiver.py: this system's code page is %d: name one with --code-page" % options.code_page,
              file=sys.stderr)
        return 2
    # Whoever starts this in the background may have these ignored; a receiver must end.
    signal.signal(signal.SIGINT, signal.default_int_handler)
    try:
        receiver = Receiver(options)
    except OSError as error:
        print("receiver.py: cannot listen on 127.0.0.1:%d: %s" % (options.port, error), file=sys.stderr)
        return 3
    try:
        say("listening on 127.0.0.1:%d" % receiver.port)
        receiver.run()
    except KeyboardInterrupt:
        if options.count:
            receiver.all_good = False  # fewer than were asked for
    finally:
        receiver.close()
    return 0 if receiver.all_good else 1


if __name__ == "__main__":
    sys.exit(main())
