#!/usr/bin/python3
"""schema_check.py job-file|result|payload FILE...: holds JSON files against docs/schema.
schema_check.py --self-test: holds the schemas themselves against documents made up for it.

Prints what is wrong as FILE: PLACE: TEXT. Exit code 0: all files are as they should be; 1: one is
not; 2: wrong usage; 77: this machine's Python has no jsonschema (Debian: python3-jsonschema).
"""
import copy
import json
import pathlib
import sys

try:
    import jsonschema
except ImportError:
    print("schema_check: jsonschema is missing (python3-jsonschema); nothing was checked")
    sys.exit(77)

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "docs" / "schema"
NAMES = ("job-file", "result", "payload")


def load_schemas():
    """The schemas by the name under which they refer to each other."""
    schemas = {}
    for name in NAMES:
        path = FOLDER / f"{name}.schema.json"
        schemas[path.name] = json.loads(path.read_text(encoding="utf-8"))
    return schemas


def validator_for(schemas, name):
    schema = schemas[f"{name}.schema.json"]
    try:
        from referencing import Registry, Resource
    except ImportError:  # before jsonschema 4.18
        resolver = jsonschema.RefResolver.from_schema(schema, store=dict(schemas))
        return jsonschema.Draft202012Validator(schema, resolver=resolver)
    registry = Registry().with_resources(
        (key, Resource.from_contents(contents)) for key, contents in schemas.items()
    )
    return jsonschema.Draft202012Validator(schema, registry=registry)


def members(pairs):
    """An object's members; the schemas cannot see a name that is there twice."""
    found = dict(pairs)
    if len(found) != len(pairs):
        raise ValueError("a name stands twice in one object")
    return found


def no_constant(name):
    raise ValueError(f"{name} is no JSON")


def problems(validator, name, data):
    """What is wrong with these bytes, a line each."""
    try:
        # Job files may begin with a byte-order mark, the rest must not.
        text = data.decode("utf-8-sig" if name == "job-file" else "utf-8")
        document = json.loads(text, object_pairs_hook=members, parse_constant=no_constant)
    except ValueError as error:
        return [f"no JSON in UTF-8: {error}"]
    return [
        f"{'/'.join(map(str, error.absolute_path)) or 'the whole'}: {error.message}"
        for error in sorted(validator.iter_errors(document), key=lambda error: list(map(str, error.absolute_path)))
    ]


DELIVERED = {"Status": 0, "ErrorCode": 0, "ErrorText": ""}
PAYLOAD = {
    "Parameters": {
        "Receiver": "0301", "RecipientName": "", "SenderName": "", "FileName": "a.pdf",
        "AttachmentName": "a.pdf", "Comment": "", "Subject": "", "SendTime": "", "ECM": True,
        "Preview": False,
    }
}
JOB = {
    "FilePath": "C:\\a.pdf",
    "SourceFileName": "a",
    "Cmd": {
        "Parameters": dict.fromkeys(
            ["Baudrate", "ECM", "RecipientName", "Comment", "NGDX", "Preview", "Subject", "UserName", "SendTime"],
            "-",
        ),
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


def mutations():
    """Whole documents with one member taken out where it must not be, or of the wrong type."""
    required = [
        ("job-file", JOB, ["FilePath"]), ("job-file", JOB, ["SourceFileName"]),
        *(("result", DELIVERED, [key]) for key in DELIVERED),
        *(("job-file", JOB, ["Result", key]) for key in DELIVERED),
        ("payload", PAYLOAD, ["Parameters"]),
        *(("payload", PAYLOAD, ["Parameters", key]) for key in PAYLOAD["Parameters"]),
    ]
    optional = [
        ("job-file", JOB, ["Cmd"]), ("job-file", JOB, ["Result"]),
        *(("job-file", JOB, ["Cmd", key]) for key in JOB["Cmd"]),
        *(("job-file", JOB, ["Cmd", holder, key])
          for holder in ("Parameters", "Commands") for key in JOB["Cmd"][holder]),
    ]
    for name, document, path in required + optional:
        for is_removed in (True, False):
            changed = copy.deepcopy(document)
            holder = changed
            for key in path[:-1]:
                holder = holder[key]
            if is_removed:
                del holder[path[-1]]
            else:
                holder[path[-1]] = WRONG_VALUE
            yield name, changed, is_removed and (name, document, path) in optional


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
    schemas = load_schemas()
    bad = []
    for key, schema in schemas.items():
        jsonschema.Draft202012Validator.check_schema(schema)
        if schema["$id"] != key:
            bad.append(f"{key}: $id is {schema['$id']}")
        bad += [f"{key}: {place} has no description" for place in undescribed(schema, "the whole")]
    documents = DOCUMENTS + list(mutations())
    for name, document, is_right in documents:
        data = document if isinstance(document, bytes) else json.dumps(document).encode()
        found = problems(validator_for(schemas, name), name, data)
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
    name = sys.argv[1]
    validator = validator_for(load_schemas(), name)
    wrong = 0
    for path in sys.argv[2:]:
        try:
            found = problems(validator, name, pathlib.Path(path).read_bytes())
        except OSError as error:
            found = [str(error)]
        for problem in found:
            print(f"{path}: {problem}")
        wrong += bool(found)
    print(f"schema_check: {len(sys.argv) - 2} files held against {name}, {wrong} of them wrong")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
