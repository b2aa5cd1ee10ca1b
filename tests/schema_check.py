#!/usr/bin/python3
"""schema_check.py job-file|job-file.strict|result|payload|doctor FILE...: holds JSON files against docs/schema.
schema_check.py --self-test: holds the schemas themselves against documents made up for it.

Prints what is wrong as FILE: PLACE: TEXT. Exit code 0: all files are as they should be; 1: one is
not; 2: wrong usage; 77: this machine's Python has no jsonschema (Debian: python3-jsonschema).
"""
import copy
import functools
import json
import operator
import pathlib
import shutil
import sys
import tempfile
import urllib.parse
import urllib.request

try:
    import jsonschema
    from jsonschema.exceptions import RefResolutionError
except ImportError:
    print("schema_check: jsonschema is missing (python3-jsonschema); nothing was checked")
    sys.exit(77)
try:
    import referencing
except ImportError:
    referencing = None  # jsonschema is older than 4.18

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "docs" / "schema"
NAMES = ("job-file", "job-file.strict", "result", "payload", "doctor")
SCHEMAS = {name: json.loads((FOLDER / f"{name}.schema.json").read_text(encoding="utf-8")) for name in NAMES}


def beside(folder):
    """Reads what a schema refers to, of this folder and nothing else."""
    def read(uri):
        path = pathlib.Path(urllib.request.url2pathname(urllib.parse.urlsplit(uri).path))
        if not uri.startswith("file:") or path.parent != folder:
            raise ValueError(f"{uri} is not in {folder}")
        return json.loads(path.read_text(encoding="utf-8"))
    return read


@functools.cache
def validator_for(name, folder=FOLDER):
    """Finds the other schemas as any program does that gets this one from its file: by their $id and $ref,
    which are file names in the same folder."""
    start, read = {"$ref": (folder / f"{name}.schema.json").as_uri()}, beside(folder)
    if referencing:
        registry = referencing.Registry(retrieve=lambda uri: referencing.Resource.from_contents(read(uri)))
        return jsonschema.Draft202012Validator(start, registry=registry)
    resolver = jsonschema.RefResolver("", start, handlers=dict.fromkeys(("file", "http", "https"), read))
    return jsonschema.Draft202012Validator(start, resolver=resolver)


def members(pairs):
    """An object's members; the schemas cannot see a name that is there twice."""
    found = dict(pairs)
    if len(found) != len(pairs):
        raise ValueError("a name stands twice in one object")
    return found


def no_constant(name):
    raise ValueError(f"{name} is no JSON")


def parsed(data, encoding="utf-8"):
    return json.loads(data.decode(encoding), object_pairs_hook=members, parse_constant=no_constant)


def problems(name, data):
    """What is wrong with these bytes, a line each."""
    try:
        # The tool takes a byte-order mark; nobody writes one who is careful, the tool neither.
        document = parsed(data, "utf-8-sig" if name == "job-file" else "utf-8")
    except ValueError as error:
        return [f"no JSON in UTF-8: {error}"]
    found = sorted(validator_for(name).iter_errors(document), key=lambda error: list(map(str, error.absolute_path)))
    return [f"{'/'.join(map(str, error.absolute_path)) or 'the whole'}: {error.message}" for error in found]


DELIVERED = {"Status": 0, "ErrorCode": 0, "ErrorText": ""}
TEXTS = "Receiver RecipientName SenderName FileName AttachmentName Comment Subject SendTime".split()
PAYLOAD = {"Parameters": {**dict.fromkeys(TEXTS, ""), "ECM": True, "Preview": False}}
PARAMETERS = "Baudrate ECM RecipientName Comment NGDX Preview Subject UserName SendTime".split()
JOB = {
    "FilePath": "C:\\a.pdf",
    "SourceFileName": "a.pdf",
    "Cmd": {
        "Parameters": {**dict.fromkeys(PARAMETERS, "-"), "Preview": "1"},
        "Commands": {"O": "a.json"},
        "Receiver": ["0301"],
    },
    "Result": DELIVERED,
}
MESSAGE = {
    "subject": "a",
    "body": "",
    "sender": "",
    "recipient": {"address": "0301", "type": "SMTP", "name": "b"},
    "attachment": {"name": "a.pdf", "size": 2**32},
}
REPORT = {
    "version": "1.1.0",
    "bitness": 64,
    "time": "2026-11-21T15:04:05",
    "verdict": {"route": "mapi", "delivered": True, "exit_code": 0, "text": "a"},
    "findings": [{"code": "D06", "severity": "note", "title": "a", "seen": ["b"], "remedy": "c"}],
    "settings": [{"name": "LogLevel", "hive": "HKCU", "type": "REG_DWORD", "value": "0", "effect": "a"}],
    "candidates": [
        {"path": "C:\\a.dll", "source": "MSI", "state": "usable", "bitness": 64, "exports": 8,
         "missing_exports": ["FreeProws"]},
    ],
    "rehearsal": {
        "job_file": "C:\\a.json",
        "document": "C:\\a.pdf",
        "document_fate": "kept",
        "result": DELIVERED,
        "fields": {"+FAX": "0301", "S": ""},
        "payload": None,
        "message": MESSAGE,
        "log": ["a"],
        "steps": ["a"],
    },
    "assumed": ["a"],
}


def with_value(document, place, value):
    """It with another value at this place, whose parts are parted by slashes."""
    changed = copy.deepcopy(document)
    *parents, key = (int(part) if part.isdigit() else part for part in place.split("/"))
    functools.reduce(operator.getitem, parents, changed)[key] = value
    return changed


report = functools.partial(with_value, REPORT)
job = functools.partial(with_value, JOB)


def on_route(route, payload, message):
    changed = report("verdict/route", route)
    changed["rehearsal"].update(payload=payload, message=message)
    return changed


def failed(code, text):
    return {"Status": 1, "ErrorCode": code, "ErrorText": text}


# (schema, document, whether it is right); bytes stand for themselves
DOCUMENTS = [
    ("job-file", JOB, True),
    ("job-file", {"FilePath": "a", "SourceFileName": ""}, True),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Extra": 1, "Cmd": {"Extra": [1]}}, True),
    ("job-file", b'\xef\xbb\xbf{"FilePath": "a", "SourceFileName": "b"}', True),
    ("job-file", {"FilePath": "", "SourceFileName": "", "Cmd": [], "Result": 5}, True),
    ("job-file", {"filePATH": "a", "SOURCEfilename": "b", "Cmd": {"Receiver": "0301", "Parameters": 1}}, True),
    ("job-file", {"FilePath": 1, "filepath": "a", "SourceFileName": "b"}, True),  # false of the tool: the order
    ("job-file", {"FilePath ": "a", "SourceFileName": "b"}, False),
    ("job-file", {"FilePath": "a", "SourceFileName": ["b"]}, False),
    ("job-file", [], False),
    ("job-file.strict", JOB, True),
    *(("job-file.strict", job(place, value), True)
      for place, value in (
          ("FilePath", "\\\\server\\fax\\a.pdf"), ("FilePath", "/tmp/a b'c.pdf"), ("SourceFileName", ".pdf"),
          ("Cmd/Receiver/0", "fax 0301@example"), ("Cmd/Parameters/Subject", ""), ("Cmd/Parameters/ECM", "0"),
          ("Result", failed(1003, "OutlookClient: Transmission failure.")))),
    *(("job-file.strict", job(place, value), False)
      for place, value in (
          ("FilePath", ""), ("FilePath", "a.pdf"), ("FilePath", "C:a.pdf"), ("FilePath", "C:\\a\0"),
          ("SourceFileName", "a"), ("SourceFileName", "a.PDF"), ("SourceFileName", "a.pdf.txt"),
          ("SourceFileName", "b\\a.pdf"), ("SourceFileName", "a.pdf\n"), ("Extra", 1), ("Cmd", []), ("Cmd/Extra", 1),
          ("Cmd/Parameters/Extra", "a"), ("Cmd/Parameters/subject", "a"), ("Cmd/Parameters/Subject", "a\0b"),
          ("Cmd/Parameters/Baudrate", 9600), ("Cmd/Parameters/Preview", "0"), ("Cmd/Parameters/Preview", ""),
          ("Cmd/Parameters/ECM", "1"), ("Cmd/Commands/S", "a"), ("Cmd/Commands/O", ""), ("Cmd/Receiver", "0301"),
          ("Cmd/Receiver", []), ("Cmd/Receiver", ["0301", "0302"]), ("Cmd/Receiver", [17]),
          ("Cmd/Receiver", [" 0301"]), ("Cmd/Receiver", [""]), ("Result", failed(0, "")))),
    ("job-file.strict", {**JOB, "Cmd": {"Parameters": {"Preview": "1"}}}, True),
    ("job-file.strict", {**JOB, "Cmd": {"Parameters": {"Preview": "-"}}}, False),
    ("job-file.strict", {**JOB, "Cmd": {}}, False),
    ("job-file.strict", b'\xef\xbb\xbf' + json.dumps(JOB).encode(), False),
    ("job-file", b'{"FilePath": "a", "FilePath": "a", "SourceFileName": "b"}', False),
    ("job-file", b'{"FilePath": "a", "SourceFileName": "\xfc"}', False),
    ("job-file", b"", False),
    ("result", DELIVERED, True),
    ("result", {**DELIVERED, "Extra": None}, True),
    ("result", failed(1000, "Outlook: Data encoding failure."), True),
    ("result", failed(1002, "OutlookClient: Unknown destination."), True),
    ("result", failed(1003, "OutlookClient: Transmission failure."), True),
    ("result", failed(1004, "OutlookClient: Connection cannot be established."), True),
    ("result", failed(-2147467259, "MAPI Error"), True),
    ("result", failed(1001, "OutlookClient: Connection cannot be established."), False),
    ("result", failed(1003, "OutlookClient: Connection cannot be established."), False),
    ("result", failed(1000, "OutlookClient: Data encoding failure."), False),
    ("result", failed(5, "MAPI Error"), False),
    ("result", failed(-2147467259, ""), False),
    ("result", failed(-2147483649, "MAPI Error"), False),
    ("result", failed(0, ""), False),
    ("result", {**DELIVERED, "ErrorCode": 1003}, False),
    ("result", {**DELIVERED, "ErrorText": "MAPI Error"}, False),
    ("result", {**DELIVERED, "Status": 2}, False),
    ("result", {**DELIVERED, "Status": False}, False),
    ("result", b'\xef\xbb\xbf{"Status": 0, "ErrorCode": 0, "ErrorText": ""}', False),
    ("result", b'{"Status": 0, "ErrorCode": NaN, "ErrorText": ""}', False),
    ("payload", PAYLOAD, True),
    ("payload", {**PAYLOAD, "Extra": 1}, False),
    ("payload", {"Parameters": {**PAYLOAD["Parameters"], "O": ""}}, False),
    ("payload", {"Parameters": []}, False),
    ("payload", PAYLOAD["Parameters"], False),
    ("payload", {}, False),
    ("doctor", REPORT, True),
    ("doctor", {**REPORT, "findings": [], "settings": [], "candidates": [], "assumed": []}, True),
    ("doctor", {**REPORT, "Extra": 1}, False),
    *(("doctor", report(f"{place}/Extra", "a"), False)
      for place in ("verdict", "findings/0", "settings/0", "candidates/0", "rehearsal", "rehearsal/result",
                    "rehearsal/message", "rehearsal/message/recipient", "rehearsal/message/attachment")),
    *(("doctor", report(place, None), True)
      for place in ("candidates/0/bitness", "candidates/0/exports", "rehearsal/job_file", "rehearsal/result",
                    "rehearsal/message", "rehearsal/message/recipient", "rehearsal/message/attachment")),
    *(("doctor", report(place, value), False)
      for place, value in (
          ("version", "1.1"), ("bitness", 16), ("time", "2026-11-21 15:04:05"), ("verdict/route", "MAPI"),
          ("verdict/exit_code", 2), ("verdict/text", ""), ("findings/0/code", "D36"),
          ("findings/0/severity", "fatal"), ("findings/0/seen", [""]), ("settings/0/name", "Loglevel"),
          ("settings/0/hive", "HKCR"), ("settings/0/type", "DWORD"), ("candidates/0/source", "dll"),
          ("candidates/0/state", "unknown"), ("candidates/0/path", None), ("candidates/0/exports", 10),
          ("candidates/0/missing_exports", ["a"]), ("rehearsal/document", None),
          ("rehearsal/document_fate", "lost"), ("rehearsal/result", failed(5, "MAPI Error")),
          ("rehearsal/fields/S", None), ("rehearsal/message/attachment/size", -1),
          ("rehearsal/payload", PAYLOAD), ("rehearsal/log", None), ("assumed", [1]))),
    ("doctor", {**REPORT, "candidates": [{**REPORT["candidates"][0], "path": None, "state": "unknown"}]}, True),
    ("doctor", on_route("addin", PAYLOAD, None), True),
    ("doctor", on_route("file", {"a": [1, {}]}, None), True),
    ("doctor", on_route("file", "no object", None), True),
    ("doctor", on_route("addin", [], None), False),
    ("doctor", on_route("addin", PAYLOAD, MESSAGE), False),
    ("doctor", on_route("skipped", None, None), True),
    ("doctor", on_route("none", PAYLOAD, None), False),
    ("doctor", on_route("none", None, MESSAGE), False),
    ("doctor", report("assumed/0", "\u00e4" * 4096), True),
    ("doctor", report("assumed/0", "\u00e4" * 4097), False),
    ("doctor", report("assumed/0", "\n" * 4096 + "... (4097 characters)"), True),
    ("doctor", report("assumed/0", "a" * 4095 + "... (4097 characters)!"), False),
    ("doctor", report("assumed/0", "a\0"), False),
]

# A value that is of none of the types in the schemas.
WRONG_VALUE = 1.5


def members_in(document, *parents):
    """The places of all its members."""
    for key, value in document.items():
        yield *parents, key
        if isinstance(value, dict):
            yield from members_in(value, *parents, key)
        elif isinstance(value, list):
            for index, element in enumerate(value):
                if isinstance(element, dict):
                    yield from members_in(element, *parents, key, index)


def mutations():
    """Whole documents with one member taken out, or of the wrong type."""
    for name, document in (("job-file", JOB), ("job-file.strict", JOB), ("result", DELIVERED), ("payload", PAYLOAD),
                           ("doctor", REPORT)):
        for *parents, key in members_in(document):
            is_optional = bool({"Cmd", "fields"} & {*parents}) or key in ("Result", "rehearsal")
            is_ignored = name == "job-file" and key not in ("FilePath", "SourceFileName")
            for is_removed in True, False:
                changed = copy.deepcopy(document)
                holder = functools.reduce(operator.getitem, parents, changed)
                if is_removed:
                    del holder[key]
                else:
                    holder[key] = WRONG_VALUE
                yield name, changed, is_ignored or is_removed and is_optional


def undescribed(schema, place):
    """The places of members that are not described where they are used."""
    for key, member in schema.get("properties", {}).items():
        if place == "the whole" and key == "Parameters" and "description" in schema:
            pass  # the payload's only member, told of with the whole
        elif "description" not in member and "#/$defs/" not in member.get("$ref", ""):
            yield f"{place}/{key}"
        yield from undescribed(member, f"{place}/{key}")
    if "items" in schema:
        yield from undescribed(schema["items"], f"{place}[]")
    for key, member in schema.get("$defs", {}).items():
        if "description" not in member:
            yield f"{place}/$defs/{key}"


def out_of_place():
    """The schemas in a folder of their own, with nothing else to find them by; and one that asks for more."""
    bad = []
    with tempfile.TemporaryDirectory() as parent:
        folder = pathlib.Path(parent).resolve() / "a folder"
        shutil.copytree(FOLDER, folder)
        for name, schema in SCHEMAS.items():
            validator = validator_for(name, folder)
            for example in schema["examples"]:
                bad += [f"{name}, elsewhere: {error.message}" for error in validator.iter_errors(example)]
        for target in "https://example.invalid/job-file.schema.json", "../job-file.schema.json":
            (folder / "far.schema.json").write_text(json.dumps({**SCHEMAS["result"], "$ref": target}))
            try:
                list(validator_for.__wrapped__("far", folder).iter_errors({}))
                bad.append(f"{target} was found")
            except RefResolutionError:
                pass
    return bad


def self_test():
    bad = []
    for name, schema in SCHEMAS.items():
        jsonschema.Draft202012Validator.check_schema(schema)
        if schema["$id"] != f"{name}.schema.json":
            bad.append(f"{name}: $id is {schema['$id']}")
        bad += [f"{name}: {place} has no description" for place in undescribed(schema, "the whole")]
        bad += [] if schema["examples"] else [f"{name} has no examples"]
    bad += out_of_place()
    examples = [(name, example, True) for name, schema in SCHEMAS.items() for example in schema["examples"]]
    documents = DOCUMENTS + list(mutations()) + examples
    documents += [("job-file", document, True) for name, document, is_right in documents
                  if name == "job-file.strict" and is_right]
    for name, document, is_right in documents:
        data = document if isinstance(document, bytes) else json.dumps(document).encode()
        found = problems(name, data)
        if is_right != (found == []):
            bad.append(f"{name}: {data!r}: expected {'no' if is_right else 'a'} problem, got {found}")
    print("\n".join(bad + [f"schema_check: {len(documents)} documents, {len(bad)} self-tests failed"]))
    return 1 if bad else 0


def main():
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) < 3 or sys.argv[1] not in NAMES:
        print(__doc__.split("\n\n")[0], file=sys.stderr)
        return 2
    name, *paths = sys.argv[1:]
    wrong = 0
    for path in paths:
        try:
            found = problems(name, pathlib.Path(path).read_bytes())
        except OSError as error:
            found = [str(error)]
        for problem in found:
            print(f"{path}: {problem}")
        wrong += bool(found)
    print(f"schema_check: {len(paths)} files held against {name}, {wrong} of them wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
