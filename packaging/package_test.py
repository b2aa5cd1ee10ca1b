"""The packages that packaging/assemble makes of what is built: their bytes, content, links and promises.

Needs the presets host, windows-x64 and windows-x86 built, as ./package builds them.
"""
import fcntl
import hashlib
import html.parser
import importlib.machinery
import importlib.util
import json
import os
import pathlib
import posixpath
import re
import shutil
import signal
import subprocess
import tarfile
import tempfile
import time
import unittest
import unittest.mock
import urllib.parse
import zipfile

import archives
import components
import contents
import spdx_rules

ROOT = pathlib.Path(__file__).resolve().parent.parent
ASSEMBLE = ROOT / "packaging/assemble"
CLEAN_ENVIRONMENT = {name: value for name, value in os.environ.items()
                     if name not in ("ZENTPOST_SIGN", "SOURCE_DATE_EPOCH", "TZ", "LC_ALL", "LANG")}


def git(*arguments):
    return subprocess.run(["git", "-c", f"safe.directory={ROOT}", *arguments], cwd=ROOT, check=True,
                          stdout=subprocess.PIPE, encoding="utf-8").stdout


# What is not committed yet is tested as well.
DIRTY = ["--allow-dirty"] if git("status", "--porcelain", "--untracked-files=all") else []


def load_assemble():
    loader = importlib.machinery.SourceFileLoader("assemble", str(ASSEMBLE))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("assemble", loader))
    loader.exec_module(module)
    return module


def assemble(output, *options, prefix=(), umask=0o022, dirty=True, **environment):
    return subprocess.run([*prefix, str(ASSEMBLE), "--output", str(output), *(DIRTY if dirty else []), *options],
                          env={**CLEAN_ENVIRONMENT, **environment}, umask=umask, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8")


class Page(html.parser.HTMLParser):
    """The anchors of a page, where its links lead and what it loads."""

    def __init__(self, text):
        super().__init__()
        self.anchors, self.links, self.loaded = set(), [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        attrs = dict(attrs)
        self.anchors.update(attrs[name] for name in ("id", "name") if name in attrs)
        if tag == "a" and "href" in attrs:
            self.links.append(attrs["href"])
        self.loaded += [attrs[name] for name in ("src", "srcset", "data") if name in attrs]
        if tag in ("link", "script", "iframe"):
            self.loaded.append(f"<{tag}>")


def broken_links(files):
    """Where the pages among FILES (a name and the bytes of each) lead to what is not among them."""
    pages = {name: Page(data.decode("utf-8")) for name, data in files.items() if name.endswith(".html")}
    folders = {str(parent) for name in files for parent in pathlib.PurePosixPath(name).parents}
    for name, page in pages.items():
        for link in [*page.links, *page.loaded]:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme in ("http", "https", "mailto") and link not in page.loaded:
                continue
            target = name
            if parts.path:
                target = posixpath.normpath(posixpath.join(posixpath.dirname(name), urllib.parse.unquote(parts.path)))
            if parts.scheme or parts.netloc or (target not in files and target not in folders):
                yield f"{name}: {link}"
            elif parts.fragment and urllib.parse.unquote(parts.fragment) not in pages[target].anchors:
                yield f"{name}: {link} (no such heading)"


class LinksTest(unittest.TestCase):
    def test_broken_links_are_found(self):
        good = b'<h1 id="x"></h1><a href="b/c.txt"></a><a href="b"></a><a href="#x"></a><a href="https://x/"></a>'
        self.assertEqual([], list(broken_links({"a.html": good, "b/c.txt": b""})))
        for bad in ('<a href="c.txt">', '<a href="#y">', '<a href="../b/c.txt">', '<img src="https://x/y.png">',
                    '<img src="y.png">', '<script>', '<a href="file:///etc">', '<a href="a.html#y">'):
            self.assertEqual(1, len(list(broken_links({"a.html": bad.encode(), "b/c.txt": b""}))), bad)


class PackagesTest(unittest.TestCase):
    """Two runs, as different as one machine allows."""

    @classmethod
    def setUpClass(cls):
        cls.scratch = pathlib.Path(tempfile.mkdtemp(prefix="zentpost-packages-"))
        cls.addClassCleanup(shutil.rmtree, cls.scratch)
        cls.dist = cls.scratch / "dist"
        cls.other = cls.scratch / "another folder, with blanks and Ümlaute/dist"
        cls.other.parent.mkdir()
        runs = (assemble(cls.dist, umask=0o077, LC_ALL="C", TZ="UTC"),
                assemble(cls.other, umask=0o000, LC_ALL="C.UTF-8", TZ="Asia/Kolkata",
                         prefix=["faketime", "-f", "+400d"]))
        for run in runs:
            if run.returncode or run.stdout:
                raise AssertionError(run.stdout)
        module = load_assemble()
        cls.resolve = staticmethod(module.resolve)
        cls.tree = module.tree_files(bool(DIRTY))
        cls.version = re.search(r"project\(zentpost VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text("utf-8"))[1]
        cls.epoch = int(git("log", "-1", "--format=%ct"))
        cls.zips = {}
        for package in contents.ZIPS:
            with zipfile.ZipFile(cls.dist / f"zentpost-{cls.version}-{package}.zip") as archive:
                cls.zips[package] = [(entry, archive.read(entry)) for entry in archive.infolist()]
        cls.spdx = json.loads((cls.dist / f"zentpost-{cls.version}.spdx.json").read_text("utf-8"))

    def files(self, package):
        return {entry.filename: data for entry, data in self.zips[package]}

    def source(self):
        with tarfile.open(self.dist / f"zentpost-{self.version}-source.tar.gz") as archive:
            return [(entry, archive.extractfile(entry).read()) for entry in archive.getmembers()]

    def test_other_folders_times_locales_and_masks_give_the_same_bytes(self):
        names = archives.files_below(self.dist)
        self.assertEqual(names, archives.files_below(self.other))
        for name in names:
            self.assertEqual((self.dist / name).read_bytes(), (self.other / name).read_bytes(), name)

    def test_everything_that_is_released_is_there(self):
        start = f"zentpost-{self.version}"
        self.assertEqual(
            sorted(["SHA256SUMS", f"{start}.spdx.json", f"{start}-source.tar.gz", f"{start}-windows-x64.zip",
                    f"{start}-windows-x86.zip", f"{start}-integrator.zip", f"{start}-policies.zip",
                    f"{start}-acceptance.zip", f"{start}-x64.msi", f"{start}-x86.msi"]),
            archives.files_below(self.dist))

    def test_the_sums_are_those_of_all_the_others(self):
        subprocess.run(["sha256sum", "--check", "--strict", "--quiet", "SHA256SUMS"], cwd=self.dist, check=True)
        listed = [line.split("  ")[1] for line in (self.dist / "SHA256SUMS").read_text().splitlines()]
        self.assertEqual([name for name in archives.files_below(self.dist) if name != "SHA256SUMS"], listed)

    def test_every_zip_holds_what_the_table_of_contents_says(self):
        made = {"made": ["THIRD-PARTY-NOTICES.txt"]}
        for preset in "host", "windows-x64", "windows-x86":
            suffix, library = ("", ".so") if preset == "host" else (".exe", ".dll")
            made[preset] = [f"bin/{name}{suffix}" for name in
                            ("addin_listener", "sandbox_mapi", "zentpost", "zentpost_doctor")]
            made[preset].append(f"bin/sandbox_mapi{library}")
        # What the folder of the acceptance package holds is for its own test.
        made["acceptance"] = [name for name in self.files("acceptance") if not name.isupper() and name != "LICENSE.txt"
                              and name != "THIRD-PARTY-NOTICES.txt"]
        for package, rows in contents.ZIPS.items():
            expected = self.resolve(rows, {"": self.tree, **made})
            self.assertEqual(sorted(expected), sorted(self.files(package)), package)
            for place, (kind, name) in expected.items():
                if not kind and not name.endswith(".md") and not place.endswith(".txt"):
                    self.assertEqual((ROOT / name).read_bytes(), self.files(package)[place], place)

    def test_what_readers_look_for_first_is_where_they_look(self):
        for package in "windows-x64", "windows-x86":
            self.assertLessEqual({"zentpost.exe", "zentpost_doctor.exe", "README.html", "CHANGELOG.html", "LICENSE.txt",
                                  "THIRD-PARTY-NOTICES.txt", "docs/integration.html",
                                  "docs/schema/job-file.schema.json"}, set(self.files(package)))
        self.assertLessEqual({"linux/addin_listener", "windows-x64/sandbox_mapi.dll", "windows-x86/addin_listener.exe",
                              "docs/addin_listener.html", "docs/sandbox_mapi.html"}, set(self.files("integrator")))
        self.assertLessEqual({"zentpost.admx", "en-US/zentpost.adml", "de-DE/zentpost.adml"},
                             set(self.files("policies")))

    def test_every_link_of_every_page_resolves_in_its_zip(self):
        for package in self.zips:
            self.assertEqual([], list(broken_links(self.files(package))), package)

    def test_the_source_is_what_git_tracks(self):
        start = f"zentpost-{self.version}/"
        entries = self.source()
        self.assertEqual(sorted((start + name for name in self.tree), key=str.encode),
                         [entry.name for entry, _ in entries])
        for entry, data in entries:
            self.assertEqual((ROOT / entry.name.removeprefix(start)).read_bytes(), data, entry.name)

    def test_times_owners_and_permissions_are_fixed(self):
        moment = time.gmtime(self.epoch)
        for package, entries in self.zips.items():
            names = [entry.filename for entry, _ in entries]
            self.assertEqual(sorted(names, key=str.encode), names, package)
            for entry, data in entries:
                # A zip counts in steps of two seconds.
                self.assertEqual((*moment[:5], moment[5] // 2 * 2), entry.date_time, entry.filename)
                mode = entry.external_attr >> 16
                self.assertIn(mode, (0o100644, 0o100755), entry.filename)
                if data.startswith((b"\x7fELF", b"MZ")) and not entry.filename.endswith((".so", ".dll")):
                    self.assertEqual(0o100755, mode, entry.filename)
                elif entry.filename.endswith((".html", ".json", ".txt")):
                    self.assertEqual(0o100644, mode, entry.filename)
        for entry, _ in self.source():
            executable = self.tree[entry.name.partition("/")[2]]
            self.assertEqual((self.epoch, 0, 0, "root", "root", 0o755 if executable else 0o644),
                             (entry.mtime, entry.uid, entry.gid, entry.uname, entry.gname, entry.mode), entry.name)
        for folder in self.dist, self.other:
            for path in folder.iterdir():
                self.assertEqual(0o644, path.stat().st_mode & 0o7777, path.name)

    def test_times_before_a_zip_knows_any_are_its_first(self):
        folder = self.scratch / "old"
        folder.mkdir()
        (folder / "file").write_text("x")
        archives.write_zip(self.scratch / "old.zip", folder, 0)
        with zipfile.ZipFile(self.scratch / "old.zip") as archive:
            self.assertEqual((1980, 1, 1, 0, 0, 0), archive.getinfo("file").date_time)

    def test_no_file_tells_where_it_was_made(self):
        paths = [str(ROOT) + "/", str(self.scratch), "/build/windows-x", "/build/host"]
        home = os.environ.get("HOME", "")
        if len(home) > 2:
            paths.append(home + "/")
        needles = {path: (path.encode(), path.encode("utf-16-le")) for path in paths}
        everything = [(f"{package}: {entry.filename}", data, True)
                      for package, entries in self.zips.items() for entry, data in entries]
        everything += [(path.name, path.read_bytes(), False) for path in self.dist.iterdir()]
        for name, data, has_programs in everything:
            for path, encodings in needles.items():
                # Documents may speak of build/; programs may not.
                if path.startswith("/build/") and not (has_programs and data.startswith((b"\x7fELF", b"MZ"))):
                    continue
                for needle in encodings:
                    self.assertNotIn(needle, data, f"{name} has {path}")

    def test_programs_are_stripped(self):
        for package in "windows-x64", "windows-x86", "integrator":
            for name, data in self.files(package).items():
                if data.startswith(b"MZ"):
                    header = int.from_bytes(data[0x3C:0x40], "little")
                    self.assertEqual(b"PE\0\0", data[header:header + 4])
                    # Time stamp, symbol table and number of symbols.
                    self.assertEqual(bytes(12), data[header + 8:header + 20], name)
                elif data.startswith(b"\x7fELF"):
                    path = self.scratch / "program"
                    path.write_bytes(data)
                    sections = subprocess.run(["readelf", "--sections", "--wide", path], check=True,
                                              stdout=subprocess.PIPE, encoding="utf-8").stdout
                    self.assertIn(".dynsym", sections)
                    self.assertNotRegex(sections, r"\.symtab|\.debug_", name)

    def test_the_notices_have_every_text_in_full(self):
        text = self.files("windows-x64")["THIRD-PARTY-NOTICES.txt"].decode("utf-8").replace("\r\n", "\n")
        for one in components.STATIC:
            self.assertIn(f"- {one.name} {components.version(one)}:", text)
            for path in one.notices:
                self.assertIn(path.read_text("utf-8").strip("\n"), text, path)
        self.assertIn(pathlib.Path("/usr/share/common-licenses/GPL-3").read_text("utf-8").strip("\n"), text)
        self.assertIn("GCC RUNTIME LIBRARY EXCEPTION", text)
        self.assertIn("Hewlett-Packard Company makes no", text)
        self.assertIn("Silicon Graphics makes no", text)
        for package in "windows-x86", "integrator", "acceptance":
            self.assertEqual(self.files("windows-x64")["THIRD-PARTY-NOTICES.txt"],
                             self.files(package)["THIRD-PARTY-NOTICES.txt"])

    def test_the_spdx_document_breaks_no_rule(self):
        self.assertEqual([], spdx_rules.problems(self.spdx))
        self.assertEqual(time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(self.epoch)),
                         self.spdx["creationInfo"]["created"])
        self.assertRegex(self.spdx["documentNamespace"],
                         f"/zentpost-{self.version}-{git('rev-parse', 'HEAD').strip()}(-changed)?$")

    def spdx_files(self, archive):
        """The names and sums that the document gives for what is in an archive."""
        package, = (one for one in self.spdx["packages"] if one.get("packageFileName") == f"./{archive}")
        ids = {one["relatedSpdxElement"] for one in self.spdx["relationships"]
               if one["relationshipType"] == "CONTAINS" and one["spdxElementId"] == package["SPDXID"]}
        return package, {one["fileName"].removeprefix("./"): one["checksums"] for one in self.spdx["files"]
                         if one["SPDXID"] in ids}

    def check_sums(self, name, checksums, data):
        self.assertEqual({"SHA1": hashlib.sha1(data).hexdigest(), "SHA256": hashlib.sha256(data).hexdigest()},
                         {one["algorithm"]: one["checksumValue"] for one in checksums}, name)

    def test_the_spdx_document_lists_what_is_really_there(self):
        contents_of = {f"zentpost-{self.version}-{package}.zip": self.files(package) for package in self.zips}
        contents_of[f"zentpost-{self.version}-source.tar.gz"] = {
            entry.name.partition("/")[2]: data for entry, data in self.source()}
        for arch, package in contents.INSTALLERS.items():
            contents_of[f"zentpost-{self.version}-{arch}.msi"] = self.files(package)
        others = {"SHA256SUMS", f"zentpost-{self.version}.spdx.json"}
        self.assertEqual(set(archives.files_below(self.dist)) - others, set(contents_of))
        self.assertEqual({f"./{name}" for name in contents_of},
                         {one["packageFileName"] for one in self.spdx["packages"] if "packageFileName" in one})
        for archive, files in contents_of.items():
            package, listed = self.spdx_files(archive)
            self.check_sums(archive, package["checksums"], (self.dist / archive).read_bytes())
            self.assertEqual(set(files), set(listed), archive)
            for name, data in files.items():
                self.check_sums(f"{archive}: {name}", listed[name], data)

    def test_an_installer_holds_the_files_of_the_zip(self):
        for arch, package in contents.INSTALLERS.items():
            folder = self.scratch / f"msi-{arch}"
            folder.mkdir()
            subprocess.run(["msiextract", "--directory", folder, self.dist / f"zentpost-{self.version}-{arch}.msi"],
                           check=True, stdout=subprocess.DEVNULL)
            found = {path.name: path for path in folder.rglob("zentpost*.exe")}
            self.assertEqual({"zentpost.exe", "zentpost_doctor.exe"}, set(found))
            top = found["zentpost.exe"].parent
            installed = {name: (top / name).read_bytes() for name in archives.files_below(top)}
            self.assertEqual(self.files(package), installed)


class ComponentsTest(unittest.TestCase):
    """components.py against the linker's own word."""

    PROGRAMS = ["zentpost.exe", "zentpost_doctor.exe", "tools/addin_listener/addin_listener.exe",
                "tools/sandbox_mapi/sandbox_mapi.exe", "tools/sandbox_mapi/sandbox_mapi.dll"]
    LIBRARIES = {"libgcc.a": "libgcc", "libgcc_eh.a": "libgcc", "libssp.a": "libssp", "libstdc++.a": "libstdc++",
                 "libpthread.a": "winpthreads", "libcjson_static.a": "cJSON"}

    def ninja(self, build, *arguments):
        return subprocess.run(["ninja", "-C", build, "-t", *arguments], check=True, stdout=subprocess.PIPE,
                              encoding="utf-8").stdout

    def linked(self, preset, program, scratch):
        build = ROOT / "build" / preset
        command = self.ninja(build, "commands", "-s", program).splitlines()[-1]
        output, linker_map = scratch / "program", scratch / "program.map"
        self.assertIn(f" -o {program} ", command)
        subprocess.run(command.replace(f" -o {program} ", f" -o {output} -Wl,-Map={linker_map} "), shell=True,
                       cwd=build, check=True)
        text = linker_map.read_text("utf-8", "replace").partition("\nDiscarded input sections")[0]
        found = set()
        for archive in re.findall(r"^(\S+\.a)\(\S+\)", text, re.MULTILINE):
            name = posixpath.basename(archive)
            if name in self.LIBRARIES:
                found.add(self.LIBRARIES[name])
            elif "-w64-mingw32/lib/" in archive:
                found.add("MinGW-w64 runtime")
            else:
                self.assertFalse(archive.startswith("/"), f"{archive} is of no known component")
        inputs = set(self.ninja(build, "inputs", program).split())
        for dependencies in self.ninja(build, "deps").split("\n\n"):
            if dependencies.partition(":")[0] in inputs and "/asio/" in dependencies:
                found.add("asio")
        return found

    def test_programs_are_linked_with_what_the_table_says(self):
        with tempfile.TemporaryDirectory() as scratch:
            for preset in "windows-x64", "windows-x86":
                for program in self.PROGRAMS:
                    path = ROOT / "build" / preset / program
                    self.assertEqual(self.linked(preset, program, pathlib.Path(scratch)),
                                     {one.name for one in components.linked_into(path)},
                                     f"{preset}: {program}")

    def test_both_cross_compilers_are_of_one_version(self):
        for one in components.RUNTIMES:
            twin = one.debian.replace("x86-64", "i686")
            self.assertNotEqual(one.debian, twin)
            versions = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}\n", one.debian, twin],
                                      check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout.split()
            self.assertEqual(1, len(set(versions)), one.name)


class RunTest(unittest.TestCase):
    """What can go wrong with a run."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="zentpost-run-")
        self.addCleanup(folder.cleanup)
        self.scratch = pathlib.Path(folder.name)
        self.dist = self.scratch / "dist"

    def release(self):
        """Something that looks like an earlier release."""
        self.dist.mkdir()
        (self.dist / "zentpost-1.0.0.spdx.json").write_text("{}")
        (self.dist / "SHA256SUMS").write_text(f"{64 * '0'}  zentpost-1.0.0.spdx.json\n")

    def assert_release_is_there(self):
        self.assertEqual(["SHA256SUMS", "zentpost-1.0.0.spdx.json"], sorted(path.name for path in self.dist.iterdir()))

    def assert_refused(self, run, text, left=("dist",)):
        self.assertEqual(1, run.returncode, run.stdout)
        self.assertIn(text, run.stdout.splitlines()[-1])
        self.assertNotIn("Traceback", run.stdout)
        self.assertEqual(sorted(left), sorted(path.name for path in self.scratch.iterdir()))

    def sign_with(self, script):
        """A command with a blank in its path and an argument of its own."""
        path = self.scratch / "sign it"
        path.write_text(f"#!/bin/bash\nset -e\n{script}\n")
        path.chmod(0o755)
        return f'"{path}" --as "The Zentpost authors"'

    def test_the_hook_signs_programs_and_then_installers(self):
        log = self.scratch / "log"
        hook = self.sign_with(f'[[ $# == 3 && $2 == "The Zentpost authors" ]]; echo "$3" >>"{log}"; echo signed >>"$3"')
        run = assemble(self.dist, ZENTPOST_SIGN=hook)
        self.assertEqual(0, run.returncode, run.stdout)
        lines = [line.rpartition(".dist.partial/")[2] for line in log.read_text().splitlines()]
        programs = [f"made/{preset}/bin/{name}" for preset in ("windows-x64", "windows-x86")
                    for name in ("addin_listener.exe", "sandbox_mapi.dll", "sandbox_mapi.exe", "zentpost.exe",
                                 "zentpost_doctor.exe")]
        installers = [re.sub(r"-[\d.]+-", "-VERSION-", line) for line in lines[len(programs):]]
        self.assertEqual(programs, lines[:len(programs)])
        self.assertEqual(["out/zentpost-VERSION-x64.msi", "out/zentpost-VERSION-x86.msi"], installers)
        subprocess.run(["sha256sum", "--check", "--strict", "--quiet", "SHA256SUMS"], cwd=self.dist, check=True)
        archive, = self.dist.glob("*-windows-x86.zip")
        with zipfile.ZipFile(archive) as packed:
            for name in "zentpost.exe", "zentpost_doctor.exe":
                self.assertTrue(packed.read(name).endswith(b"signed\n"), name)
        for installer in self.dist.glob("*.msi"):
            self.assertTrue(installer.read_bytes().endswith(b"signed\n"), installer)

    def test_a_hook_that_fails_ends_the_run_and_leaves_what_was_there(self):
        self.release()
        run = assemble(self.dist, ZENTPOST_SIGN=self.sign_with("echo no key; exit 3"))
        self.assert_refused(run, "sign failed", left=("dist", "sign it"))
        self.assertIn("no key", run.stdout)
        self.assertIn("failed for addin_listener.exe", run.stdout)
        self.assert_release_is_there()

    def test_a_hook_that_fails_at_an_installer_ends_the_run(self):
        run = assemble(self.dist, ZENTPOST_SIGN=self.sign_with("[[ $3 != *.msi ]]; echo signed >>$3"))
        self.assert_refused(run, "sign failed", left=("sign it",))
        self.assertRegex(run.stdout, r"failed for zentpost-[\d.]+-x64\.msi")

    def test_a_hook_that_signs_nothing_ends_the_run(self):
        run = assemble(self.dist, ZENTPOST_SIGN=self.sign_with("exit 0"))
        self.assert_refused(run, "sign failed", left=("sign it",))
        self.assertIn("left addin_listener.exe as it was", run.stdout)

    def test_the_hook_without_a_command_says_what_to_set(self):
        run = subprocess.run([ROOT / "packaging/sign", "x"], env=CLEAN_ENVIRONMENT, check=False,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8")
        self.assertEqual((2, True), (run.returncode, "set ZENTPOST_SIGN" in run.stdout))

    def test_a_tree_that_is_not_as_committed_is_refused(self):
        index = self.scratch / "index"
        environment = {"GIT_INDEX_FILE": str(index)}
        shutil.copyfile(ROOT / git("rev-parse", "--git-path", "index").strip(), index)
        subprocess.run(["git", "-c", f"safe.directory={ROOT}", "update-index", "--force-remove", "README.md"], cwd=ROOT,
                       env={**CLEAN_ENVIRONMENT, **environment}, check=True)
        for options in ["--check"], []:
            self.assert_refused(assemble(self.dist, *options, dirty=False, **environment), "is not as committed",
                                left=("index",))

    def test_a_folder_without_git_is_refused(self):
        module = load_assemble()
        with unittest.mock.patch.object(module, "ROOT", self.scratch), \
                self.assertRaisesRegex(module.Refusal, "no git clone"):
            module.tree_files(False)

    def test_a_preset_that_is_not_built_is_named(self):
        module = load_assemble()
        with unittest.mock.patch.object(module, "PRESETS", ("windows-arm",)), \
                self.assertRaisesRegex(module.Refusal, "windows-arm is not built: run ./package"):
            module.Assembly(self.scratch, True).install()

    def test_a_row_that_finds_nothing_is_named(self):
        module = load_assemble()
        with self.assertRaisesRegex(module.Refusal, r"host has no bin/b\*"):
            module.resolve([("host:bin/b*", "x/")], {"host": ["bin/a", "lib/b"]})

    def test_rows_take_patterns_and_exceptions(self):
        resolve = load_assemble().resolve
        tree = {"": ["d/a.md", "d/e/b.md", "d/e/c.json", "x.md"], "made": ["n.txt"]}
        self.assertEqual({"docs/a.html": ("", "d/a.md"), "docs/e/b.html": ("", "d/e/b.md"),
                          "docs/e/c.json": ("", "d/e/c.json")}, resolve([("d/**", "docs/")], tree))
        self.assertEqual({"docs/a.html": ("", "d/a.md")}, resolve([("d/*", "docs/")], tree))
        self.assertEqual({"docs/e/b.html": ("", "d/e/b.md"), "docs/e/c.json": ("", "d/e/c.json")},
                         resolve([("d/**", "docs/"), ("!d/a.md", "")], tree))
        self.assertEqual({"README.html": ("", "x.md"), "n.txt": ("made", "n.txt")},
                         resolve([("x.md", "README.html"), ("made:n.txt", "")], tree))

    def test_a_folder_with_other_things_is_not_replaced(self):
        self.release()
        for name in "letter.txt", "zentpost-customers.xlsx":
            (self.dist / name).write_text("Dear")
            for options in ["--check"], []:
                self.assert_refused(assemble(self.dist, *options), "holds other things than packages")
            self.assertEqual("Dear", (self.dist / name).read_text())
            (self.dist / name).unlink()

    def test_releases_kept_in_one_folder_are_not_replaced(self):
        self.dist.mkdir()
        (self.dist / "zentpost-1.0.0.spdx.json").write_text("{}")
        self.assert_refused(assemble(self.dist, "--check"), "holds other things than packages")

    def test_an_interrupt_between_the_two_renames_leaves_what_was_there(self):
        self.release()
        made, old = self.scratch / "made", self.scratch / "old"
        made.mkdir()
        rename = pathlib.Path.rename

        def interrupted_after_the_first(path, target):
            if path == made:
                raise KeyboardInterrupt
            return rename(path, target)

        with unittest.mock.patch.object(pathlib.Path, "rename", interrupted_after_the_first), \
                self.assertRaises(KeyboardInterrupt):
            load_assemble().replace(self.dist, made, old)
        self.assert_release_is_there()
        self.assertFalse(old.exists())

    def test_a_check_of_what_is_fit_packs_nothing(self):
        run = assemble(self.dist, "--check")
        self.assertEqual((0, "", []), (run.returncode, run.stdout, list(self.scratch.iterdir())))

    def test_an_earlier_release_is_replaced_and_what_an_ended_run_left_is_removed(self):
        self.release()
        (self.scratch / ".dist.partial/out").mkdir(parents=True)
        run = assemble(self.dist)
        self.assertEqual((0, ""), (run.returncode, run.stdout))
        self.assertEqual(["dist"], [path.name for path in self.scratch.iterdir()])
        self.assertFalse((self.dist / "zentpost-1.0.0.spdx.json").exists())

    def test_a_second_run_at_once_is_refused(self):
        with (ROOT / "build/assemble.lock").open("w") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            self.assert_refused(assemble(self.dist), "being assembled in this folder already", left=())

    def test_an_interrupted_run_leaves_what_was_there(self):
        self.release()
        for number in signal.SIGINT, signal.SIGTERM:
            with subprocess.Popen([ASSEMBLE, "--output", self.dist, *DIRTY], env=CLEAN_ENVIRONMENT,
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8") as run:
                while not (self.scratch / ".dist.partial/made").exists() and run.poll() is None:
                    time.sleep(0.01)
                run.send_signal(number)
                self.assertEqual(("interrupted\n", None), run.communicate())
            self.assertEqual(1, run.returncode)
            self.assertEqual(["dist"], [path.name for path in self.scratch.iterdir()])
            self.assert_release_is_there()

    def test_a_given_time_is_taken(self):
        run = assemble(self.dist, SOURCE_DATE_EPOCH="1000000000")
        self.assertEqual(0, run.returncode, run.stdout)
        archive, = self.dist.glob("*-policies.zip")
        with zipfile.ZipFile(archive) as packed:
            self.assertEqual((2001, 9, 9, 1, 46, 40), packed.infolist()[0].date_time)


class InstallTest(unittest.TestCase):
    """cmake --install, by component."""

    def installed(self, preset, component):
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run(["cmake", "--install", f"build/{preset}", "--component", component, "--prefix", folder],
                           cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
            return archives.files_below(pathlib.Path(folder))

    def test_the_components_hold_what_their_names_say(self):
        self.assertEqual(["bin/zentpost", "bin/zentpost_doctor"], self.installed("host", "runtime"))
        self.assertEqual(["bin/addin_listener", "bin/sandbox_mapi", "bin/sandbox_mapi.so"],
                         self.installed("host", "tools"))
        self.assertEqual(["bin/zentpost.exe", "bin/zentpost_doctor.exe"], self.installed("windows-x86", "runtime"))
        self.assertEqual(["bin/addin_listener.exe", "bin/sandbox_mapi.dll", "bin/sandbox_mapi.exe"],
                         self.installed("windows-x64", "tools"))
        documents = self.installed("host", "docs")
        wanted = [path.relative_to(ROOT).as_posix() for path in (ROOT / "docs").rglob("*") if path.is_file()]
        wanted += ["CHANGELOG.md", "LICENSE", "README.md", "SECURITY.md", "SUPPORT.md"]
        self.assertEqual(sorted(f"share/doc/zentpost/{name}" for name in wanted), sorted(documents))


if __name__ == "__main__":
    unittest.main()
