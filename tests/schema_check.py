#!/usr/bin/python3
"""schema_check.py job-file|result|payload FILE...: holds JSON files against docs/schema.
schema_check.py --self-test: holds the schemas themselves against documents made up for it.

Prints what is wrong as FILE: PLACE: TEXT. Exit code 0: all files are as they should be; 1: one is
not; 2: wrong usage; 77: this machine's Python has no jsonschema (Debian: python3-jsonschema).
"""
import copy
import functools
import json
import operator
import pathlib
import sys

try:
    import jsonschema
except ImportError:
    print("schema_check: jsonschema is missing (python3-jsonschema); nothing was checked")
    sys.exit(77)

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "docs" / "schema"
NAMES = ("job-file", "result", "payload")
SCHEMAS = {name: json.loads((FOLDER / f"{name}.schema.json").read_text(encoding="utf-8")) for name in NAMES}


@functools.cache
def validator_for(name):
    """Takes the other schemas in, which are found by their $id."""
    schema = SCHEMAS[name]
    return jsonschema.Draft202012Validator({**schema, "$defs": {**SCHEMAS, **schema.get("$defs", {})}})


def members(pairs):
    """An object's members; the schemas cannot see a name that is there twice."""
    found = dict(pairs)
    if len(found) != len(pairs):
        raise ValueError("a name stands twice in one object")
    return found


def no_constant(name):
    raise ValueError(f"{name} is no JSON")


def problems(name, data):
    """What is wrong with these bytes, a line each."""
    try:
        # Job files may begin with a byte-order mark, the rest must not.
        text = data.decode("utf-8-sig" if name == "job-file" else "utf-8")
        document = json.loads(text, object_pairs_hook=members, parse_constant=no_constant)
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
    "SourceFileName": "a",
    "Cmd": {
        "Parameters": dict.fromkeys(PARAMETERS, "-"),
        "Commands": dict.fromkeys("BCEKNOPSUZ", "-"),
        "Receiver": ["0301", "0302"],
    },
    "Result": DELIVERED,
}


def failed(code, text):
    return {"Status": 1, "ErrorCode": code, "ErrorText": text}


# (schema, document, whether it is right); bytes stand for themselves
DOCUMENTS = [
    ("job-file", JOB, True),
    ("job-file", {"FilePath": "a", "SourceFileName": ""}, True),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Extra": 1, "Cmd": {"Extra": [1]}}, True),
    ("job-file", b'\xef\xbb\xbf{"FilePath": "a", "SourceFileName": "b"}', True),
    ("job-file", {"FilePath": "", "SourceFileName": "b"}, False),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Cmd": []}, False),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Cmd": {"Receiver": "0301"}}, False),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Cmd": {"Receiver": ["0301", 17]}}, False),
    ("job-file", {"FilePath": "a", "SourceFileName": "b", "Result": failed(0, "")}, False),
    ("job-file", [], False),
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
]

# A value that is of none of the types in the schemas.
WRONG_VALUE = 1.5


def members_in(document, *parents):
    """The places of all its members."""
    for key, value in document.items():
        yield *parents, key
        if isinstance(value, dict):
            yield from members_in(value, *parents, key)


def mutations():
    """Whole documents with one member taken out, or of the wrong type."""
    for name, document in ("job-file", JOB), ("result", DELIVERED), ("payload", PAYLOAD):
        for *parents, key in members_in(document):
            is_optional = "Cmd" in parents or key in ("Cmd", "Result")
            for is_removed in True, False:
                changed = copy.deepcopy(document)
                holder = functools.reduce(operator.getitem, parents, changed)
                if is_removed:
                    del holder[key]
                else:
                    holder[key] = WRONG_VALUE
                yield name, changed, is_removed and is_optional


def undescribed(schema, place):
    """The places of members that are not described where they are used."""
    for key, member in schema.get("properties", {}).items():
        if place == "the whole" and key == "Parameters" and "description" in schema:
            pass  # the payload's only member, told of with the whole
        elif "description" not in member and not member.get("$ref", "").startswith("#/$defs/"):
            yield f"{place}/{key}"
        yield from undescribed(member, f"{place}/{key}")
    for key, member in schema.get("$defs", {}).items():
        if "description" not in member:
            yield f"{place}/$defs/{key}"


def self_test():
    bad = []
    for name, schema in SCHEMAS.items():
        jsonschema.Draft202012Validator.check_schema(schema)
        if schema["$id"] != f"{name}.schema.json":
            bad.append(f"{name}: $id is {schema['$id']}")
        bad += [f"{name}: {place} has no description" for place in undescribed(schema, "the whole")]
    documents = DOCUMENTS + list(mutations())
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
