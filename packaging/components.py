"""What others wrote of what is in the programs: versions, licences and notices, read from the packages
that the compiler and the linker take it from.
"""
import dataclasses
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOC = pathlib.Path("/usr/share/doc")
CJSON = ROOT / "build/third_party/cjson"
GCC_NOTICES = DOC / "gcc-mingw-w64-x86-64-posix-runtime/copyright"
GCC_LICENCE = "GPL-3.0-or-later WITH GCC-exception-3.1"
# The C++ library's headers are compiled into every program, those with notices of their own as well.
CXX_HEADERS = pathlib.Path("/usr/lib/gcc/x86_64-w64-mingw32/12-posix/include/c++")
HEADER_NOTICE = re.compile(r"/\*.*?\*/", re.DOTALL)


@dataclasses.dataclass(frozen=True)
class Component:
    name: str
    debian: str  # the package whose version counts
    licence: str  # as SPDX writes it
    notices: tuple  # of files
    about: str
    linked: str = "static"
    mark: bytes = b""  # a text of every program for Windows that has it


MINGW = Component(
    "MinGW-w64 runtime", "mingw-w64-x86-64-dev", "LicenseRef-MinGW-w64",
    (DOC / "mingw-w64-x86-64-dev/copyright",),
    "start-up code, parts of the C library and the import libraries of Windows; its notices must go with programs")
WINPTHREADS = Component(
    "winpthreads", "mingw-w64-x86-64-dev", "MIT AND BSD-3-Clause",
    (DOC / "mingw-w64-x86-64-dev/copyright",),
    "threads and locks, from the same source package; its notices must go with programs",
    mark=b"winpthreads")
LIBGCC = Component(
    "libgcc", "gcc-mingw-w64-x86-64-posix", GCC_LICENCE,
    (GCC_NOTICES,),
    "what the compiler calls; the GCC Runtime Library Exception lets programs carry it under terms of their own")
LIBSSP = Component(
    "libssp", "gcc-mingw-w64-x86-64-posix", GCC_LICENCE,
    (GCC_NOTICES,),
    "what the compiler calls when it finds the stack damaged; under the same exception",
    mark=b"*** stack smashing detected ***")
LIBSTDCXX = Component(
    "libstdc++", "g++-mingw-w64-x86-64-posix", f"{GCC_LICENCE} AND LicenseRef-STL",
    (GCC_NOTICES,),
    "the C++ library; under the same exception, and some of its headers under notices that must go with programs")
CJSON_COMPILED = Component(
    "cJSON", "", "MIT", (CJSON / "LICENSE",),
    "reads and writes JSON; its notice must go with programs",
    mark=b"%1.15g")
ASIO = Component(
    "asio", "libasio-dev", "BSL-1.0", (DOC / "libasio-dev/copyright",),
    "sockets, headers alone, in addin_listener and in test programs; asks nothing of programs that are compiled",
    mark=b"asio.")
GOOGLETEST = Component(
    "GoogleTest", "libgtest-dev", "BSD-3-Clause", (DOC / "libgtest-dev/copyright",),
    "in the test programs of the acceptance package; its notice must go with programs",
    mark=b"GTEST_")
LIBRARIES_OF_LINUX = [
    Component("cJSON (shared library)", "libcjson1", "MIT", (), "", "dynamic"),
    Component("libstdc++ (shared library)", "libstdc++6", GCC_LICENCE, (), "", "dynamic"),
    Component("libgcc (shared library)", "libgcc-s1", GCC_LICENCE, (), "", "dynamic"),
    Component("GNU C Library (shared library)", "libc6", "LGPL-2.1-or-later", (), "", "dynamic"),
]
STATIC = [MINGW, WINPTHREADS, LIBGCC, LIBSSP, LIBSTDCXX, CJSON_COMPILED, ASIO, GOOGLETEST]
COMPONENTS = STATIC + LIBRARIES_OF_LINUX

RUNTIMES = [MINGW, WINPTHREADS, LIBGCC, LIBSSP, LIBSTDCXX]
SONAMES = {
    "libcjson.so.1": "libcjson1",
    "libstdc++.so.6": "libstdc++6",
    "libgcc_s.so.1": "libgcc-s1",
    "libc.so.6": "libc6",
    "libm.so.6": "libc6",
    "ld-linux-x86-64.so.2": "libc6",
}


def linked_into(path):
    """The components of the program at PATH; [] where it is no program."""
    data = path.read_bytes()
    if data.startswith(b"MZ") and path.suffix in (".exe", ".dll"):
        return [one for one in STATIC if one.mark in data]
    if not data.startswith(b"\x7fELF"):
        return []
    dynamic = subprocess.run(["readelf", "--dynamic", "--wide", path], check=True, stdout=subprocess.PIPE,
                             encoding="utf-8").stdout
    debian = {SONAMES[library] for library in re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)}
    return [one for one in (ASIO,) if one.mark in data] + [one for one in LIBRARIES_OF_LINUX if one.debian in debian]


def version(component):
    if component is CJSON_COMPILED:
        parts = dict(re.findall(r"#define CJSON_VERSION_(\w+) (\d+)", (CJSON / "cJSON.h").read_text()))
        return f"{parts['MAJOR']}.{parts['MINOR']}.{parts['PATCH']}"
    query = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", component.debian],
                           check=True, stdout=subprocess.PIPE, encoding="utf-8")
    return query.stdout


def source_package(component):
    """Pairs a source package of Debian with its version; None for what is compiled from its source alone."""
    if component is CJSON_COMPILED:
        return None
    query = subprocess.run(
        ["dpkg-query", "--show", "--showformat=${source:Package} ${source:Version}", component.debian],
        check=True, stdout=subprocess.PIPE, encoding="utf-8")
    return tuple(query.stdout.split())


def stl_notices():
    """The notices in the C++ library's headers that must stand in a program's documentation."""
    found = {}
    for header in sorted(CXX_HEADERS.rglob("*")):
        if not header.is_file():
            continue
        for comment in HEADER_NOTICE.findall(header.read_text("utf-8", "replace")):
            text = "\n".join(re.sub(r"^\s*/?\*+/?", "", line).strip() for line in comment.splitlines())
            for notice in re.split(r"\n(?=Copyright \(c\))", text):
                words = " ".join(notice.split())
                if words.startswith("Copyright") and "appear in supporting documentation" in words:
                    found.setdefault(words, notice.strip())
    if not found:
        raise ValueError(f"no notice was found in the headers below {CXX_HEADERS}")
    return [found[words] for words in sorted(found)]
