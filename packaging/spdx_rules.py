"""The rules of SPDX 2.3 that a document of ours is held against, by the clause that has them. No package of
the registries that this build uses validates SPDX documents; the lists of licences are Debian's
(node-spdx-license-ids, node-spdx-exceptions).
"""
import collections
import hashlib
import json
import pathlib
import re

LISTS = pathlib.Path("/usr/share/nodejs")
SUM_LENGTHS = {"SHA1": 40, "SHA256": 64}
RELATIONSHIPS = {"DESCRIBES", "CONTAINS", "STATIC_LINK", "DYNAMIC_LINK"}  # those of 11.1 that are of use here
FILE_TYPES = set("SOURCE BINARY ARCHIVE APPLICATION AUDIO IMAGE TEXT VIDEO DOCUMENTATION SPDX OTHER".split())
PURPOSES = set("APPLICATION FRAMEWORK LIBRARY CONTAINER OPERATING-SYSTEM DEVICE FIRMWARE SOURCE ARCHIVE FILE INSTALL "
               "OTHER".split())
NEITHER = {"NONE", "NOASSERTION"}
MEMBERS = {
    "document": (
        {"spdxVersion", "dataLicense", "SPDXID", "name", "documentNamespace", "creationInfo"},
        {"packages", "files", "relationships", "hasExtractedLicensingInfos"}),
    "creationInfo": ({"created", "creators"}, set()),
    "package": (
        {"SPDXID", "name", "downloadLocation"},
        {"versionInfo", "packageFileName", "supplier", "filesAnalyzed", "packageVerificationCode", "checksums",
         "licenseConcluded", "licenseInfoFromFiles", "licenseDeclared", "copyrightText", "primaryPackagePurpose",
         "sourceInfo", "externalRefs"}),
    "file": (
        {"SPDXID", "fileName", "checksums"},
        {"fileTypes", "licenseConcluded", "licenseInfoInFiles", "copyrightText"}),
    "relationship": ({"spdxElementId", "relationshipType", "relatedSpdxElement"}, set()),
    "extracted licence": ({"licenseId", "extractedText"}, {"name"}),
}


def elements(document):
    return [*document["packages"], *document["files"]]


def contained(document):
    """The files of each package, by the package's identifier."""
    files = {entry["SPDXID"]: entry for entry in document["files"]}
    result = collections.defaultdict(list)
    for one in document["relationships"]:
        if one["relationshipType"] == "CONTAINS" and one["relatedSpdxElement"] in files:
            result[one["spdxElementId"]].append(files[one["relatedSpdxElement"]])
    return result


def members(document):
    """Each object has the members that it must have, and none that SPDX does not know."""
    objects = [("document", document), ("creationInfo", document["creationInfo"])]
    for kind, name in (("package", "packages"), ("file", "files"), ("relationship", "relationships"),
                       ("extracted licence", "hasExtractedLicensingInfos")):
        objects += [(kind, one) for one in document[name]]
    for kind, one in objects:
        required, optional = MEMBERS[kind]
        for name in required - one.keys():
            yield f"a {kind} has no {name}"
        for name in one.keys() - required - optional:
            yield f"a {kind} has an unknown {name}"


def clause_6_1_to_6_5(document):
    """Version, licence of the data, identifier, and a namespace that is a URI without a fragment."""
    for name, value in (("spdxVersion", "SPDX-2.3"), ("dataLicense", "CC0-1.0"), ("SPDXID", "SPDXRef-DOCUMENT")):
        if document[name] != value:
            yield f"{name} is {document[name]}"
    if not re.fullmatch(r"[a-z][a-z0-9+.-]*://?[^\s#<>\"{}|\\^`]+", document["documentNamespace"]):
        yield f"{document['documentNamespace']} is no URI, or has a fragment"


def clause_6_8_and_6_9(document):
    """Creators and the time, in their forms."""
    info = document["creationInfo"]
    if not info["creators"]:
        yield "there is no creator"
    for creator in info["creators"]:
        if not re.fullmatch(r"(Tool: [\w.]+-[\w.-]+|(Person|Organization): .+)", creator):
            yield f"{creator} is no creator"
    if not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ", info["created"]):
        yield f"{info['created']} is no time"


def clause_7_2_and_8_2(document):
    """Identifiers of letters, digits, dots and hyphens, each once."""
    counts = collections.Counter(one["SPDXID"] for one in elements(document))
    for identifier, count in counts.items():
        if not re.fullmatch(r"SPDXRef-[A-Za-z0-9.-]+", identifier):
            yield f"{identifier} is no identifier"
        if count > 1:
            yield f"{identifier} is there {count} times"


def clause_7_5_and_7_7(document):
    """Suppliers and places of download, in their forms."""
    for one in document["packages"]:
        if not re.fullmatch(r"NOASSERTION|(Person|Organization): .+", one.get("supplier", "NOASSERTION")):
            yield f"{one['supplier']} is no supplier"
        if one["downloadLocation"] not in NEITHER and not re.match(r"[a-z+]+://", one["downloadLocation"]):
            yield f"{one['downloadLocation']} is no place"


def clause_7_8_and_7_9(document):
    """A package whose files were looked at has the verification code of them; any other has neither."""
    files = contained(document)
    for one in document["packages"]:
        those = files[one["SPDXID"]]
        code = one.get("packageVerificationCode", {}).get("packageVerificationCodeValue")
        if one.get("filesAnalyzed", True):
            sums = sorted(entry["checksumValue"] for file in those for entry in file["checksums"]
                          if entry["algorithm"] == "SHA1")
            if code != hashlib.sha1("".join(sums).encode()).hexdigest():
                yield f"the verification code of {one['name']} is {code}"
            if not those:
                yield f"{one['name']} has no files"
        elif code or those or "licenseInfoFromFiles" in one:
            yield f"the files of {one['name']} were not looked at, but there are some"


def clause_7_10_and_8_4(document):
    """Sums of their lengths, each algorithm once; each file with SHA-1, and here with SHA-256."""
    for one in elements(document):
        algorithms = [entry["algorithm"] for entry in one.get("checksums", [])]
        if len(set(algorithms)) != len(algorithms):
            yield f"{one['SPDXID']} has an algorithm twice"
        if "checksums" in one and set(algorithms) != set(SUM_LENGTHS):
            yield f"{one['SPDXID']} has {algorithms}"
        for entry in one.get("checksums", []):
            if not re.fullmatch(rf"[0-9a-f]{{{SUM_LENGTHS.get(entry['algorithm'], 0)}}}", entry["checksumValue"]):
                yield f"{entry['checksumValue']} of {one['SPDXID']} is no {entry['algorithm']}"


def clause_7_21(document):
    """References to a package manager, in the form of a package URL."""
    for one in document["packages"]:
        for reference in one.get("externalRefs", []):
            if (reference["referenceCategory"], reference["referenceType"]) != ("PACKAGE-MANAGER", "purl"):
                yield f"{one['name']} has a reference of another kind"
            if not re.fullmatch(r"pkg:[a-z]+/[a-z0-9]+/[\w.%+-]+@[\w.%~-]+(\?[a-z_]+=[\w.%~-]+)?",
                                reference["referenceLocator"]):
                yield f"{reference['referenceLocator']} is no package URL"


def clause_7_24_and_8_3(document):
    """Purposes and types that there are."""
    for one in document["packages"]:
        if one.get("primaryPackagePurpose", "OTHER") not in PURPOSES:
            yield f"{one['primaryPackagePurpose']} is no purpose"
    for one in document["files"]:
        if not set(one.get("fileTypes", [])) <= FILE_TYPES:
            yield f"{one['fileTypes']} are no types"


def clause_8_1(document):
    """Names of files relative to their package, each once in it."""
    for one in document["files"]:
        if not one["fileName"].startswith("./") or "\\" in one["fileName"] or ".." in one["fileName"].split("/"):
            yield f"{one['fileName']} is no relative name"
    for package, files in contained(document).items():
        names = collections.Counter(one["fileName"] for one in files)
        for name in names:
            if names[name] > 1:
                yield f"{name} is {names[name]} times in {package}"


def clause_10_1(document):
    """Every LicenseRef is explained, once, and every explanation is of use."""
    explained = collections.Counter(one["licenseId"] for one in document["hasExtractedLicensingInfos"])
    used = set(re.findall(r"LicenseRef-[A-Za-z0-9.-]+", " ".join(licence_expressions(document))))
    for name in used ^ explained.keys():
        yield f"{name} is not both explained and used"
    for one in document["hasExtractedLicensingInfos"]:
        if explained[one["licenseId"]] > 1 or not one["extractedText"].strip():
            yield f"{one['licenseId']} has no text, or several"


def licence_expressions(document):
    for one in elements(document):
        for name in ("licenseConcluded", "licenseDeclared"):
            yield one.get(name, "NONE")
        for name in ("licenseInfoFromFiles", "licenseInfoInFiles"):
            yield from one.get(name, [])


def is_expression(text):
    """Whether TEXT is a licence expression (annex D) of licences that there are."""
    licences = set(json.loads((LISTS / "spdx-license-ids/index.json").read_text()))
    exceptions = set(json.loads((LISTS / "spdx-exceptions/index.json").read_text()))
    words = re.findall(r"[()]|[^\s()]+", text)

    def term(at):
        if words[at:at + 1] == ["("]:
            end = expression(at + 1)
            return end + 1 if end and words[end:end + 1] == [")"] else None
        if at >= len(words) or not (words[at].removesuffix("+") in licences
                                    or re.fullmatch(r"LicenseRef-[A-Za-z0-9.-]+", words[at])):
            return None
        if words[at + 1:at + 2] == ["WITH"]:
            return at + 3 if words[at + 2:at + 3] and words[at + 2] in exceptions else None
        return at + 1

    def expression(at):
        end = term(at)
        while end and words[end:end + 1] in (["AND"], ["OR"]):
            end = term(end + 1)
        return end

    return expression(0) == len(words)


def annex_d(document):
    """Licences as expressions of licences and exceptions that are in SPDX's lists."""
    for text in sorted(set(licence_expressions(document)) - NEITHER):
        if not is_expression(text):
            yield f"{text} is no licence expression"


def clause_11_1(document):
    """Relationships of known types between elements that there are, each once; the document describes one."""
    known = {one["SPDXID"] for one in elements(document)} | {"SPDXRef-DOCUMENT"}
    seen = collections.Counter(tuple(sorted(one.items())) for one in document["relationships"])
    for one in document["relationships"]:
        if one["relationshipType"] not in RELATIONSHIPS:
            yield f"{one['relationshipType']} is no relationship"
        for end in (one["spdxElementId"], one["relatedSpdxElement"]):
            if end not in known:
                yield f"{end} is not there"
    if seen and max(seen.values()) > 1:
        yield "a relationship is there twice"
    described = [one for one in document["relationships"] if one["relationshipType"] == "DESCRIBES"]
    if [one["spdxElementId"] for one in described] != ["SPDXRef-DOCUMENT"]:
        yield "the document does not describe one element"


def reachable(document):
    """Every element is reached from the document by its relationships."""
    reached, ahead = set(), ["SPDXRef-DOCUMENT"]
    following = collections.defaultdict(list)
    for one in document["relationships"]:
        following[one["spdxElementId"]].append(one["relatedSpdxElement"])
    while ahead:
        one = ahead.pop()
        if one not in reached:
            reached.add(one)
            ahead += following[one]
    for one in elements(document):
        if one["SPDXID"] not in reached:
            yield f"nothing leads to {one['SPDXID']}"


RULES = [members, clause_6_1_to_6_5, clause_6_8_and_6_9, clause_7_2_and_8_2, clause_7_5_and_7_7, clause_7_8_and_7_9,
         clause_7_10_and_8_4, clause_7_21, clause_7_24_and_8_3, clause_8_1, clause_10_1, annex_d, clause_11_1,
         reachable]


def problems(document):
    """Pairs of a rule's name and what breaks it."""
    return [(rule.__name__, text) for rule in RULES for text in rule(document)]
