"""What goes into which package.

Each row is (FROM, TO). FROM names files of the tree, or, behind a name and a colon, files that were made:

    host: windows-x64: windows-x86:   what `cmake --install` gives of that preset, without symbols
    acceptance:                       what packaging/acceptance/collect gives
    made:                             what is written while packing

It may be a pattern, in which * stands for a part of a name and ** for any folders below; a row whose FROM
begins with ! takes files out again. TO is a file, or a folder when it ends with a slash; below it the
files stand as they stand below the pattern's fixed part. A page of Markdown that becomes .html, or that
goes into a folder, is made into HTML, in which links lead to where their targets are in the package.
"""

LEGAL = [
    ("LICENSE", "LICENSE.txt"),
    ("made:THIRD-PARTY-NOTICES.txt", "THIRD-PARTY-NOTICES.txt"),
]

DOCUMENTS = [
    *LEGAL,
    ("README.md", "README.html"),
    ("CHANGELOG.md", "CHANGELOG.html"),
    ("SECURITY.md", "SECURITY.html"),
    ("SUPPORT.md", "SUPPORT.html"),
    ("docs/**", "docs/"),
    ("!docs/architecture.md", ""),  # for those who change Zentpost; they have its source
    ("!docs/releasing.md", ""),
    ("tools/doctor/README.md", "docs/zentpost_doctor.html"),
]


def product(preset):
    return [
        (f"{preset}:bin/zentpost.exe", "zentpost.exe"),
        (f"{preset}:bin/zentpost_doctor.exe", "zentpost_doctor.exe"),
        *DOCUMENTS,
    ]


ZIPS = {
    "windows-x64": product("windows-x64"),
    "windows-x86": product("windows-x86"),
    "integrator": [
        ("host:bin/addin_listener", "linux/"),
        ("host:bin/sandbox_mapi", "linux/"),
        ("host:bin/sandbox_mapi.so", "linux/"),
        ("windows-x64:bin/addin_listener.exe", "windows-x64/"),
        ("windows-x64:bin/sandbox_mapi.exe", "windows-x64/"),
        ("windows-x64:bin/sandbox_mapi.dll", "windows-x64/"),
        ("windows-x86:bin/addin_listener.exe", "windows-x86/"),
        ("windows-x86:bin/sandbox_mapi.exe", "windows-x86/"),
        ("windows-x86:bin/sandbox_mapi.dll", "windows-x86/"),
        *DOCUMENTS,
        ("tools/addin_listener/README.md", "docs/addin_listener.html"),
        ("tools/sandbox_mapi/README.md", "docs/sandbox_mapi.html"),
        ("samples/**", "samples/"),
        ("!samples/vectors/make", ""),  # of use in the source alone, as are the templates
        ("!samples/**.in", ""),
        ("!samples/**/CMakeLists.txt", ""),  # of use in the tree alone
    ],
    "policies": [
        ("LICENSE", "LICENSE.txt"),
        ("packaging/policies/README.md", "README.html"),
        ("packaging/policies/*.admx", ""),
        ("packaging/policies/en-US/*.adml", "en-US/"),
        ("packaging/policies/de-DE/*.adml", "de-DE/"),
    ],
    "acceptance": [
        *LEGAL,
        ("acceptance:**", ""),
    ],
}

# A Windows Installer package holds the same files as a zip.
INSTALLERS = {
    "x64": "windows-x64",
    "x86": "windows-x86",
}
