"""zentpost-VERSION.spdx.json: every file that ships, and what it is made from, as SPDX 2.3."""
import hashlib
import json
import re
import time

import components

OURS = "MIT"
AUTHORS = "Organization: The Zentpost authors"
COPYRIGHT = "Copyright (c) 2026 The Zentpost authors"
NO_ASSERTION = "NOASSERTION"


def digest(algorithm, data):
    return hashlib.new(algorithm, data).hexdigest()


def checksums(data):
    return [{"algorithm": "SHA1", "checksumValue": digest("sha1", data)},
            {"algorithm": "SHA256", "checksumValue": digest("sha256", data)}]


def package_id(name):
    return "SPDXRef-Package-" + re.sub(r"[^A-Za-z0-9.]+", "-", name)


def file_id(package, name):
    return "SPDXRef-File-" + digest("sha1", f"{package}/{name}".encode())[:20]


def verification_code(sums):
    """SPDX 2.3, 7.9, of the SHA-1 sums of a package's files."""
    return digest("sha1", "".join(sorted(sums)).encode())


def conjunction(licences):
    """The licences of what is made of several, each once and in their order."""
    terms = dict.fromkeys(term for licence in licences for term in licence.split(" AND "))
    return " AND ".join(terms)


def component_package(component):
    version = components.version(component)
    package = {
        "SPDXID": package_id(component.name),
        "name": component.name,
        "versionInfo": version,
        "supplier": "Organization: Debian",
        "downloadLocation": NO_ASSERTION,
        "filesAnalyzed": False,
        "licenseConcluded": component.licence,
        "licenseDeclared": component.licence,
        "copyrightText": NO_ASSERTION,
        "primaryPackagePurpose": "LIBRARY",
    }
    source = components.source_package(component)
    if source:
        name, source_version = source
        package["sourceInfo"] = f"Debian's source package {name} {source_version}"
        # The source, since the programs of the two bitnesses take the same from packages of two names.
        quoted = source_version.replace("+", "%2B").replace(":", "%3A")
        package["externalRefs"] = [{
            "referenceCategory": "PACKAGE-MANAGER",
            "referenceType": "purl",
            "referenceLocator": f"pkg:deb/debian/{name}@{quoted}?arch=source",
        }]
    else:
        package["sourceInfo"] = "Debian's source package cjson, compiled"
    return package


def file_type(name, is_program):
    if is_program:
        return "BINARY"
    if name.endswith((".html", ".md")):
        return "DOCUMENTATION"
    return "SOURCE" if name.endswith((".cpp", ".h", ".py", ".ps1", ".cmake")) else "TEXT"


def document(version, commit, epoch, archives, installers):
    """ARCHIVES maps the file of each archive to the names of its files, their folder and whether programs among
    them are programs of ours and no food for tests; INSTALLERS the file of each installer to the archive of the same files."""
    packages, files, relationships, used = [], [], [], []

    def relate(one, relation, other):
        relationships.append({
            "spdxElementId": one, "relationshipType": relation, "relatedSpdxElement": other})

    product = package_id("zentpost")
    packages.append({
        "SPDXID": product,
        "name": "zentpost",
        "versionInfo": version,
        "supplier": AUTHORS,
        "downloadLocation": NO_ASSERTION,
        "filesAnalyzed": False,
        "licenseConcluded": OURS,
        "licenseDeclared": OURS,
        "copyrightText": COPYRIGHT,
        "primaryPackagePurpose": "APPLICATION",
    })
    relate("SPDXRef-DOCUMENT", "DESCRIBES", product)

    contents = {}
    for archive, (names, folder, has_programs) in archives.items():
        contents[archive] = []
        for name in names:
            path = folder / name
            data = path.read_bytes()
            linked = components.linked_into(path) if has_programs else []
            entry = {
                "SPDXID": file_id(archive.name, name),
                "fileName": f"./{name}",
                "fileTypes": [file_type(name, linked)],
                "checksums": checksums(data),
                "licenseConcluded": conjunction([OURS, *(one.licence for one in linked if one.linked == "static")]),
                "licenseInfoInFiles": [NO_ASSERTION],
                "copyrightText": NO_ASSERTION if linked else COPYRIGHT,
            }
            if name == "THIRD-PARTY-NOTICES.txt":
                entry["licenseConcluded"] = entry["copyrightText"] = NO_ASSERTION
            files.append(entry)
            contents[archive].append(entry)
            for one in linked:
                relate(entry["SPDXID"], f"{one.linked.upper()}_LINK", package_id(one.name))
                if one not in used:
                    used.append(one)

    for archive in [*archives, *installers]:
        those = contents[installers.get(archive, archive)]
        sums = [entry["checksums"][0]["checksumValue"] for entry in those]
        identifier = package_id(archive.name)
        packages.append({
            "SPDXID": identifier,
            "name": archive.name,
            "versionInfo": version,
            "packageFileName": f"./{archive.name}",
            "supplier": AUTHORS,
            "downloadLocation": NO_ASSERTION,
            "filesAnalyzed": True,
            "packageVerificationCode": {"packageVerificationCodeValue": verification_code(sums)},
            "checksums": checksums(archive.read_bytes()),
            "licenseConcluded": conjunction(
                entry["licenseConcluded"] for entry in those if entry["licenseConcluded"] != NO_ASSERTION),
            "licenseInfoFromFiles": [NO_ASSERTION],
            "licenseDeclared": OURS,
            "copyrightText": COPYRIGHT,
            "primaryPackagePurpose": "INSTALL" if archive in installers else "ARCHIVE",
        })
        relate(product, "CONTAINS", identifier)
        for entry in those:
            relate(identifier, "CONTAINS", entry["SPDXID"])

    packages += [component_package(one) for one in components.COMPONENTS if one in used]
    result = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"zentpost-{version}",
        # A name, and no address: "invalid" is a domain that nobody can have.
        "documentNamespace": f"https://zentpost.invalid/spdx/zentpost-{version}-{commit}",
        "creationInfo": {
            "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(epoch)),
            "creators": [f"Tool: zentpost-packaging-{version}", AUTHORS],
        },
        "packages": packages,
        "files": files,
        "relationships": relationships,
        "hasExtractedLicensingInfos": [
            {
                "licenseId": "LicenseRef-MinGW-w64",
                "name": "The licences of MinGW-w64's parts",
                "extractedText": components.MINGW.notices[0].read_text("utf-8"),
            },
            {
                "licenseId": "LicenseRef-STL",
                "name": "Notices in the headers of libstdc++",
                "extractedText": "\n\n\n".join(components.stl_notices()),
            },
        ],
    }
    return json.dumps(result, indent=1, ensure_ascii=False) + "\n"
