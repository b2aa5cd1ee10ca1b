#!/usr/bin/env python3
"""check_eml.py SAMPLES: reads mail files with Python's own mail parser.

SAMPLES holds a folder for each message: message.eml, and play.json with the texts and the document
that it was made from; one without an address has no recipient. Every header, the text and the
document's bytes must be those. Prints what is not, and ends with 1. With --self-test it breaks each
thing in a copy of a good mail and proves that the check then fails.
"""
import base64
import email
import email.policy
import hashlib
import json
import pathlib
import re
import sys
import urllib.parse

BIG = 16 << 20  # bytes of a document


def document(size):
    block = bytes((i * 7 + (i >> 8)) & 0xFF for i in range(1 << 16))  # from here on it repeats itself
    return (block * (size // len(block) + 1))[:size]


def address_of(play):
    kind, address = play.get("AddressType", ""), play["Address"]
    if kind == "SMTP" and "@" in address:
        return address
    quoted = urllib.parse.quote(address, safe="+").replace(".", "%2E").replace("~", "%7E")
    return f"{kind}={quoted}@typed.sandbox.invalid" if kind else f"{quoted}@untyped.sandbox.invalid"


def lines_of(text):
    return text.replace("\r\n", "\n").replace("\r", "\n")


def without_big_document(raw, play):
    """RAW with another document in the place of one that a mail parser needs minutes and gigabytes
    for, PLAY changed likewise, and whether the big one was right."""
    size = play.get("AttachmentSize", 0)
    if size < BIG:
        return raw, play, True
    start = raw.index(b"\r\n\r\n", raw.rindex(b"Content-Transfer-Encoding: base64")) + 4
    end = raw.index(b"\r\n--", start)
    right = base64.b64decode(raw[start:end].replace(b"\r\n", b""), validate=True) == document(size)
    right &= set(map(len, raw[start:end].split(b"\r\n")[:-1])) == {76}
    small = base64.encodebytes(document(1000)).strip().replace(b"\n", b"\r\n")
    return raw[:start] + small + raw[end:], {**play, "AttachmentSize": 1000}, right


def problems(raw, play):
    """What is wrong with the mail file RAW, which was made from PLAY."""
    raw, play, right = without_big_document(raw, play)
    if not right:
        yield "the big document is not what was sent"
    if re.search(rb"[\r\n]", raw.replace(b"\r\n", b"")):
        yield "a line does not end in CRLF"
    longest = max(len(line) for line in raw.split(b"\r\n"))
    if longest > 78:
        yield f"a line has {longest} characters"
    if any(byte > 126 or byte < 9 for byte in raw):
        yield "there is a byte that is not printable ASCII"
    mail = email.message_from_bytes(raw, policy=email.policy.default)
    for part in mail.walk():
        for defect in part.defects:
            yield f"the parser found: {defect!r}"
        for name, value in part.items():
            for defect in getattr(value, "defects", ()):
                yield f"the parser found in {name}: {defect!r}"

    def differs(what, expected, actual):
        if expected != actual:
            yield f"{what}: {expected!r} was expected, {actual!r} is there"

    yield from differs("Subject", play["Subject"], mail["Subject"])
    sender = mail["From"].addresses
    yield from differs("number of senders", 1, len(sender))
    yield from differs("sender", play.get("Sender") or "Sandbox User", sender[0].display_name)
    if "Address" in play:
        recipients = mail["To"].addresses
        yield from differs("number of recipients", 1, len(recipients))
        yield from differs("name", play["Name"], recipients[0].display_name)
        yield from differs("address", address_of(play), recipients[0].addr_spec)
        yield from differs(
            "exact address", play.get("AddressType", "") + ":" + play["Address"], mail["X-Sandbox-Recipient"])
    else:
        yield from differs("recipients", None, mail["To"])
    if mail["Date"] is None or mail["Date"].datetime is None:
        yield "there is no date"
    if not re.fullmatch(r"<[\w.]+@sandbox\.invalid>", mail["Message-ID"] or ""):
        yield f"Message-ID: {mail['Message-ID']!r}"
    yield from differs("MIME-Version", "1.0", mail["MIME-Version"])

    text = mail.get_body(("plain",))
    yield from differs("charset", "utf-8", text.get_content_charset())
    yield from differs("body", lines_of(play["Body"]), lines_of(text.get_content()))

    parts = list(mail.iter_attachments())
    wanted = "AttachmentSize" in play
    yield from differs("number of documents", int(wanted), len(parts))
    if wanted and len(parts) == 1:
        yield from differs("document's name", play["AttachmentName"] or None, parts[0].get_filename())
        data = parts[0].get_payload(decode=True)
        if data != document(play["AttachmentSize"]):
            yield f"the document has {len(data)} bytes with {hashlib.sha256(data).hexdigest()}"


GOOD_PLAY = {"Subject": "S\u00fc", "Body": "one\n", "Sender": "A", "Name": "N", "Address": "0 1",
             "AddressType": "FAX", "AttachmentSize": 3, "AttachmentName": "a.bin"}
GOOD = (
    b'From: "A" <sender@sandbox.invalid>\r\nTo: "N" <FAX=0%201@typed.sandbox.invalid>\r\n'
    b"Subject: =?UTF-8?B?U8O8?=\r\nDate: Fri, 20 Nov 2026 08:05:09 +0000\r\n"
    b"Message-ID: <a.1@sandbox.invalid>\r\nX-Sandbox-Recipient: FAX:0 1\r\nMIME-Version: 1.0\r\n"
    b'Content-Type: multipart/mixed; boundary="=_b"\r\n\r\n--=_b\r\n'
    b'Content-Type: text/plain; charset="utf-8"\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n'
    b"one\r\n\r\n--=_b\r\nContent-Type: application/octet-stream\r\n"
    b'Content-Transfer-Encoding: base64\r\nContent-Disposition: attachment;\r\n filename="a.bin"\r\n\r\n'
    b"AAcO\r\n--=_b--\r\n"
)
BREAKAGES = [
    (b"\r\nSubject", b"\nSubject", "CRLF"),
    (b"0 1\r\nMIME", b"0 1" + b" " * 80 + b"x\r\nMIME", "characters"),
    (b"U8O8", b"U8O9", "Subject"),
    (b'"A"', b'"B"', "sender"),
    (b'"N"', b'"M"', "name"),
    (b"FAX=0%201", b"FAX=0%202", "address"),
    (b"FAX:0 1", b"FAX:0 2", "exact address"),
    (b"Date: Fri", b"Dote: Fri", "date"),
    (b"<a.1@sandbox.invalid>", b"<a.1@else>", "Message-ID"),
    (b"MIME-Version: 1.0", b"MIME-Version: 1.1", "MIME-Version"),
    (b'charset="utf-8"', b'charset="us-ascii"', "charset"),
    (b"one\r\n", b"two\r\n", "body"),
    (b'"a.bin"', b'"b.bin"', "document's name"),
    (b"AAcO", b"AAcP", "the document has"),
    (b"\r\n--=_b--", b"", "the parser found"),
    (b"one", b"on\xe9", "not printable"),
]


def self_test():
    failures = 0
    unaddressed = {name: value for name, value in GOOD_PLAY.items() if not name.startswith("Address")}
    big_play = {**GOOD_PLAY, "AttachmentSize": BIG}
    big = GOOD.replace(b"AAcO", base64.encodebytes(document(BIG)).strip().replace(b"\n", b"\r\n"))
    cases = [
        (GOOD, GOOD_PLAY, None),
        (re.sub(rb"\r\nTo: [^\r]*", b"", GOOD), unaddressed, None),
        (GOOD, unaddressed, "recipients"),
        (big, big_play, None),
        (big[:-40] + b"A" + big[-39:], big_play, "big document"),
    ]
    for old, new, expected in BREAKAGES:
        assert old in GOOD, old
        cases.append((GOOD.replace(old, new, 1), GOOD_PLAY, expected))
    for number, (raw, play, expected) in enumerate(cases):
        found = list(problems(raw, play))
        if found != [] if expected is None else not any(expected in problem for problem in found):
            print(f"mail {number}: {expected!r} was expected, found {found}")
            failures += 1
    print(f"check_eml: {len(cases)} self-tests, {failures} failed")
    return 1 if failures else 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    samples = pathlib.Path(sys.argv[1])
    if not samples.exists():
        print("check_eml: there are no samples; nothing was checked")
        return 1
    folders = sorted(path.parent for path in samples.glob("*/message.eml"))
    failures = 0
    for folder in folders:
        play = json.loads((folder / "play.json").read_text(encoding="utf-8"))
        for problem in problems((folder / "message.eml").read_bytes(), play):
            print(f"{folder.name}: {problem}")
            failures += 1
    print(f"check_eml: {len(folders)} mails, {failures} problems")
    return 1 if failures or not folders else 0


if __name__ == "__main__":
    sys.exit(main())
