"""The rules of spdx_rules.py: a good document breaks none, and each bad one the rule that is meant."""
import copy
import hashlib
import unittest

import spdx_rules

SUMS = [{"algorithm": "SHA1", "checksumValue": "a" * 40}, {"algorithm": "SHA256", "checksumValue": "b" * 64}]
GOOD = {
    "spdxVersion": "SPDX-2.3",
    "dataLicense": "CC0-1.0",
    "SPDXID": "SPDXRef-DOCUMENT",
    "name": "it",
    "documentNamespace": "https://it.invalid/it-1",
    "creationInfo": {"created": "2026-01-02T03:04:05Z", "creators": ["Tool: it-1.0", "Organization: Its authors"]},
    "packages": [
        {
            "SPDXID": "SPDXRef-Package", "name": "it.zip", "downloadLocation": "NOASSERTION", "checksums": SUMS,
            "supplier": "Organization: Its authors", "primaryPackagePurpose": "ARCHIVE",
            "packageVerificationCode": {
                "packageVerificationCodeValue": hashlib.sha1(b"a" * 40).hexdigest()},
            "licenseConcluded": "MIT AND (GPL-3.0-or-later WITH GCC-exception-3.1 OR LicenseRef-Own)",
        },
        {
            "SPDXID": "SPDXRef-Library", "name": "library", "downloadLocation": "NONE", "filesAnalyzed": False,
            "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                              "referenceLocator": "pkg:deb/debian/library@1%3A2.0-1?arch=source"}],
        },
    ],
    "files": [{"SPDXID": "SPDXRef-File", "fileName": "./it.exe", "checksums": SUMS, "fileTypes": ["BINARY"]}],
    "relationships": [
        {"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": "SPDXRef-Package"},
        {"spdxElementId": "SPDXRef-Package", "relationshipType": "CONTAINS", "relatedSpdxElement": "SPDXRef-File"},
        {"spdxElementId": "SPDXRef-File", "relationshipType": "STATIC_LINK", "relatedSpdxElement": "SPDXRef-Library"},
    ],
    "hasExtractedLicensingInfos": [{"licenseId": "LicenseRef-Own", "extractedText": "Do as you like."}],
}
# The rule that is broken, where, and what stands there instead (None: nothing).
BAD = [
    ("members", ["name"], None),
    ("members", ["files", 0, "fileSize"], 7),
    ("members", ["relationships", 0, "comment"], "so"),
    ("clause_6_1_to_6_5", ["spdxVersion"], "SPDX-2.2"),
    ("clause_6_1_to_6_5", ["dataLicense"], "MIT"),
    ("clause_6_1_to_6_5", ["documentNamespace"], "https://it.invalid/it#1"),
    ("clause_6_1_to_6_5", ["documentNamespace"], "it"),
    ("clause_6_8_and_6_9", ["creationInfo", "created"], "2026-01-02 03:04:05"),
    ("clause_6_8_and_6_9", ["creationInfo", "creators", 0], "it-1.0"),
    ("clause_6_8_and_6_9", ["creationInfo", "creators"], []),
    ("clause_7_2_and_8_2", ["packages", 1, "SPDXID"], "SPDXRef-a_b"),
    ("clause_7_2_and_8_2", ["packages", 1, "SPDXID"], "SPDXRef-File"),
    ("clause_7_5_and_7_7", ["packages", 0, "supplier"], "Its authors"),
    ("clause_7_5_and_7_7", ["packages", 0, "downloadLocation"], "somewhere"),
    ("clause_7_8_and_7_9", ["packages", 0, "packageVerificationCode", "packageVerificationCodeValue"], "c" * 40),
    ("clause_7_8_and_7_9", ["packages", 0, "filesAnalyzed"], False),
    ("clause_7_8_and_7_9", ["packages", 1, "filesAnalyzed"], None),
    ("clause_7_10_and_8_4", ["files", 0, "checksums", 0, "checksumValue"], "A" * 40),
    ("clause_7_10_and_8_4", ["files", 0, "checksums", 1], None),
    ("clause_7_10_and_8_4", ["packages", 0, "checksums", 1, "algorithm"], "SHA1"),
    ("clause_7_21", ["packages", 1, "externalRefs", 0, "referenceLocator"], "deb:library@1"),
    ("clause_7_21", ["packages", 1, "externalRefs", 0, "referenceType"], "cpe23Type"),
    ("clause_7_24_and_8_3", ["packages", 0, "primaryPackagePurpose"], "ZIP"),
    ("clause_7_24_and_8_3", ["files", 0, "fileTypes"], ["PROGRAM"]),
    ("clause_8_1", ["files", 0, "fileName"], "it.exe"),
    ("clause_8_1", ["files", 0, "fileName"], "./../it.exe"),
    ("clause_8_1", ["files", 0, "fileName"], ".\\it.exe"),
    ("clause_10_1", ["hasExtractedLicensingInfos", 0, "licenseId"], "LicenseRef-Other"),
    ("clause_10_1", ["hasExtractedLicensingInfos", 0, "extractedText"], " "),
    ("clause_10_1", ["packages", 0, "licenseConcluded"], "MIT"),
    ("annex_d", ["files", 0, "licenseConcluded"], "MIT License"),
    ("annex_d", ["files", 0, "licenseConcluded"], "MIT AND"),
    ("annex_d", ["files", 0, "licenseConcluded"], "(MIT"),
    ("annex_d", ["files", 0, "licenseConcluded"], "GPL-3.0-or-later WITH Goodwill"),
    ("annex_d", ["files", 0, "licenseConcluded"], ""),
    ("clause_11_1", ["relationships", 2, "relationshipType"], "LINKS"),
    ("clause_11_1", ["relationships", 2, "relatedSpdxElement"], "SPDXRef-Nobody"),
    ("clause_11_1", ["relationships", 0, "relationshipType"], "CONTAINS"),
    ("clause_11_1", ["relationships", 1], GOOD["relationships"][2]),
    ("reachable", ["relationships", 2], None),
]


def changed(place, value):
    document = copy.deepcopy(GOOD)
    inner = document
    for step in place[:-1]:
        inner = inner[step]
    if value is not None:
        inner[place[-1]] = value
    elif isinstance(inner, list) or place[-1] in inner:
        del inner[place[-1]]
    return document


class RulesTest(unittest.TestCase):
    def test_a_good_document_breaks_none(self):
        self.assertEqual([], spdx_rules.problems(GOOD))

    def test_a_bad_document_breaks_the_rule_that_is_meant(self):
        for rule, place, value in BAD:
            with self.subTest(rule=rule, place=place, value=value):
                if rule == "members" and value is None:
                    self.assertTrue(list(spdx_rules.members(changed(place, value))))
                else:
                    self.assertIn(rule, {name for name, _ in spdx_rules.problems(changed(place, value))})

    def test_a_file_name_may_be_there_once_in_a_package(self):
        document = copy.deepcopy(GOOD)
        document["files"].append({**GOOD["files"][0], "SPDXID": "SPDXRef-Twin"})
        document["relationships"].append({**GOOD["relationships"][1], "relatedSpdxElement": "SPDXRef-Twin"})
        self.assertIn("clause_8_1", {name for name, _ in spdx_rules.problems(document)})

    def test_every_rule_is_broken_by_some_document(self):
        self.assertEqual({rule.__name__ for rule in spdx_rules.RULES}, {rule for rule, _, _ in BAD})


if __name__ == "__main__":
    unittest.main()
