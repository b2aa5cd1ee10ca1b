#!/usr/bin/python3
"""docs_check.py BUILD: holds what the documents say against the tree and the programs in BUILD.

Looks at every *.md file: links and anchors, paths, options, variables and lines of the log that are
named, and fenced blocks. A block's info string says how it is held to be true (LANGUAGE MARK [NAME]):

  sh run, python run   executed by docs_run.py
  bat windows          executed by docs_run.py under Wine; "bat background" beside the block behind it. Those of
                       docs/installing.md, which need packages, are executed by packaging/msi/test
  text output          what the executed block before it prints; a line "..." stands for any lines
  json KIND            as docs/schema/KIND.schema.json wants it. job-file: as the strict one wants it;
                       job-file-tolerant: only the tolerant one takes it; wrong: neither does;
                       file: JSON that an executed block reads
  ... shown            not executed: programs, options, presets and targets are looked up

A block with a NAME is a file of that name in the folders of the executed blocks behind it.
Prints PLACE: TEXT for each problem. Exit code 0: none; 1: some; 77: a Python package is missing.
"""
import functools
import json
import pathlib
import re
import shlex
import subprocess
import sys

from documents import Document

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests"))
import schema_check  # noqa: E402  pylint: disable=wrong-import-position

MARKS = {
    "sh": {"run", "shown"},
    "bat": {"windows", "background", "shown"},
    "python": {"run", "shown"},
    "text": {"output", "shown"},
    "json": {"job-file", "job-file-tolerant", "wrong", "result", "payload", "doctor", "file"},
}
EXECUTED = {("sh", "run"), ("python", "run"), ("bat", "windows"), ("bat", "background")}
# Documents whose blocks another test executes, which needs packages.
EXECUTED_ELSEWHERE = {"docs/installing.md": "packaging/msi/test"}
# Folders that builds and programs make.
MADE = re.compile(r"(build|dist|Store|Drafts|Profiles|0001)/")
PATH = re.compile(r"(?:\./)?[\w.*-]+(?:/[\w.*-]*)+|\w+(?:_\w+)*\.(?:cpp|h|py|md|inc|cmake)")
OPTION = re.compile(r"(?<![\w-])--[a-z][\w-]*")
VARIABLE = re.compile(r"(?:-D)?((?:ZENTPOST|SANDBOX_MAPI|BUILD|CMAKE)_[A-Z_]+)\b")
LOG_LINE = re.compile(r"\d{4}/\d\d/\d\d \d\d:\d\d:\d\d - [A-Z]+ *: (.+)|(\w+\(\): .+)")
PROGRAMS = ("zentpost_doctor", "addin_listener", "sandbox_mapi")


class Tree:
    """What the documents may name."""

    def __init__(self, root, build):
        self.root = root
        listed = subprocess.run([ROOT / "scripts" / "source-files"], capture_output=True, text=True, check=True)
        self.files = [pathlib.PurePosixPath(line) for line in listed.stdout.splitlines()]
        self.documents = {}
        for path in sorted(file for file in self.files if file.suffix == ".md"):
            self.documents[path] = Document(path, (root / path).read_text(encoding="utf-8"))
        self.helps = {}
        for name in PROGRAMS:
            folder = build if (build / name).is_file() else build / "tools" / name
            run = subprocess.run([folder / name, "--help"], capture_output=True, text=True, check=False)
            self.helps[name] = set(OPTION.findall(run.stdout + run.stderr))

    @functools.cached_property
    def sources(self):
        """Everything but documents, the fuzzers' inputs and this test with the defects that it plants, by path."""
        return {path: (self.root / path).read_text(encoding="utf-8", errors="replace")
                for path in self.files
                if path.suffix != ".md" and "corpus" not in path.parts and not path.is_relative_to("tests/docs")}

    @functools.cached_property
    def words(self):
        return set(re.findall(r"\w+", "\n".join(self.sources.values())))

    @functools.cached_property
    def options(self):
        return set().union(*self.helps.values(), OPTION.findall("\n".join(self.sources.values())))

    @functools.cached_property
    def build_names(self):
        """What stands in the files of CMake: targets and tests among it."""
        names = set(re.findall(r"\w+", "\n".join(text for path, text in self.sources.items()
                                                 if path.name == "CMakeLists.txt" or path.suffix == ".cmake")))
        return names | {f"fuzz_{name}" for name in names}

    @functools.cached_property
    def presets(self):
        presets = json.loads(self.sources[pathlib.PurePosixPath("CMakePresets.json")])
        return {preset["name"] for preset in presets["configurePresets"]}

    @functools.cached_property
    def log_texts(self):
        """The log's texts without blanks, of the page that has them all."""
        page = (self.root / "docs" / "nothing-was-sent.md").read_text(encoding="utf-8")
        return list(map(blank_free, re.findall(r"^\| `(.+?)` \|", page.partition("\n## The log\n")[2], re.MULTILINE)))

    def logs(self, text):
        """Whether the tool logs the text, or lines that begin with it."""
        text = blank_free(text)
        return any(known.startswith(text) or
                   re.fullmatch(re.sub(r"%(\\\.\d)?\w", ".*", re.escape(known)), text) for known in self.log_texts)

    def has(self, name, document):
        """Whether there is a file or folder of that name, seen from the root or the document's folder. A name
        without an ending also stands for files that have one, and one without a folder for any such file."""
        name = name.removeprefix("./").rstrip("/")
        for place in (self.root / document.path).parent, self.root:
            if any(place.glob(name)) or any(place.glob(name + ".*")):
                return True
        return "/" not in name and any(file.match(name) for file in self.files)


def blank_free(text):
    return re.sub(r"\s+", "", text)


def checked_links(tree, document):
    for line, target in document.links():
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        # A folder is shown with what is in it.
        aim = (tree.root / document.path).parent / path
        if not aim.exists():
            yield line, f"the link leads nowhere: {target}"
        elif anchor:
            aimed = document if not path else tree.documents.get(
                pathlib.PurePosixPath(aim.resolve().relative_to(tree.root.resolve())))
            if not aimed or anchor not in aimed.anchors():
                yield line, f"there is no such heading: {target}"


def checked_command(tree, document, words):
    """A command: its program, the options of programs of ours, presets and targets."""
    while words and re.fullmatch(r"\w+=.*|time|sudo|do|then|if|while|!|call|start|/b|\"\"", words[0]):
        words = words[1:]
    if not words:
        return
    program = re.split(r"[/\\]", words[0])[-1].removesuffix(".exe")
    options = {option for word in words[1:] for option in OPTION.findall(word)}
    if program in tree.helps:
        known = tree.helps[program]
    elif words[0].startswith(("build/", "build\\")):
        known = options
        if program not in tree.build_names:
            yield f"nothing builds {words[0]}"
    elif "/" in words[0] and not words[0].startswith(("/", "$", "~")) and not MADE.match(words[0]):
        known = options
        if not tree.has(words[0], document):
            yield f"there is no {words[0]}"
        elif pathlib.PurePosixPath(words[0].removeprefix("./")) in tree.sources:
            known = set(OPTION.findall(tree.sources[pathlib.PurePosixPath(words[0].removeprefix("./"))]))
    else:
        known = options
    for option in sorted(options - known):
        yield f"{program} has no option {option}"
    if program == "reg":
        yield from (f"nothing reads a value {name}" for option, name in zip(words, words[1:])
                    if option == "/v" and name not in tree.words)
    if program in ("cmake", "ctest"):
        for option, name in zip(words, words[1:]):
            if option == "--preset" and name != "NAME" and name not in tree.presets:
                yield f"there is no preset {name}"
            if option in ("-R", "--target") and name not in tree.build_names:
                yield f"no test or target is named {name}"


def commands(block):
    """The commands of a block, as words."""
    text = re.sub(r"(?:\\|\^)\n", " ", block.text)
    for line in text.splitlines():
        for part in re.split(r"&&|\|\||[;|&]", re.sub(r"(^|\s)(?:#|rem\s|::).*", "", line)):
            try:
                yield shlex.split(part, posix=block.language == "sh")
            except ValueError:
                yield part.split()


def checked_spans(tree, document):
    for line, span in document.spans():
        name = re.sub(r":\d+$", "", span)
        if PATH.fullmatch(name) and not MADE.match(name) and not re.search(r"\b[A-Z]+\b[_./]", name):
            path = pathlib.PurePosixPath(name)
            is_built = path.suffix in (".exe", ".dll", ".so") and path.stem in tree.build_names
            if not is_built and not tree.has(name, document):
                yield line, f"there is no {name}"
        elif re.match(r"-", span):
            yield from ((line, f"nothing has the option {option}")
                        for option in OPTION.findall(span) if option not in tree.options)
        elif LOG_LINE.fullmatch(span):
            yield from ((line, problem) for problem in checked_log(tree, span))
        elif " " in span:
            yield from ((line, problem) for problem in checked_command(tree, document, span.split()))
        for variable in VARIABLE.findall(span):
            if variable not in tree.words:
                yield line, f"nothing reads {variable}"


def checked_log(tree, line):
    found = LOG_LINE.fullmatch(line)
    if found and not tree.logs(found[1] or found[2]):
        yield f"the tool logs no such line: {line}"


def is_json(data):
    try:
        schema_check.parsed(data)
        return True
    except ValueError:
        return False


def json_problems(kind, text):
    data = text.encode()
    if kind == "file":
        return [] if is_json(data) else ["no JSON in UTF-8"]
    if kind in ("result", "payload", "doctor"):
        return schema_check.problems(kind, data)
    strict = schema_check.problems("job-file.strict", data)
    tolerant = schema_check.problems("job-file", data)
    if kind == "job-file":
        return strict
    if kind == "job-file-tolerant":
        return tolerant or ([] if strict else ["the strict schema takes it as well: mark it job-file"])
    return [] if tolerant else ["this is marked as wrong, and the tool takes it"]


def checked_blocks(tree, document):
    if document.is_open:
        yield 0, "a fenced block has no end"
    executed_in = None
    for block, section in zip(document.blocks, document.sections):
        found = []
        kind = (block.language, block.mark)
        if not block.language or block.mark not in MARKS.get(block.language, {"shown"}):
            found = [f'no known mark: "{block.language} {block.mark}"']
        elif kind == ("json", "file") and not block.name:
            found = ["a file needs a name"]
        elif block.language == "json":
            found = json_problems(block.mark, block.text)
        elif kind in EXECUTED:
            executed_in = section
            if block.language == "bat" and not block.text.isascii():
                found = ["a batch file with letters beyond ASCII depends on the machine"]
            elif block.language == "bat" and re.search(r"&&|\|\|", block.text):
                found = ["Wine executes both sides of && and ||: use a line with errorlevel"]
        elif kind == ("text", "output") and executed_in != section:
            found = ["no executed block stands before this output in its section"]
        if block.language in ("sh", "bat"):
            found += [problem for words in commands(block) for problem in checked_command(tree, document, words)]
        elif block.language == "text":
            found += [problem for line in block.text.splitlines() for problem in checked_log(tree, line)]
        yield from ((block.line, problem) for problem in found)


def checked_elsewhere(tree, document):
    test = EXECUTED_ELSEWHERE.get(str(document.path))
    if test and document.path.name not in tree.sources.get(pathlib.PurePosixPath(test), ""):
        yield 0, f"{test} does not execute it"


def problems(tree, document):
    for check in checked_links, checked_spans, checked_blocks, checked_elsewhere:
        yield from (f"{document.path}:{line}: {problem}" for line, problem in check(tree, document))


def main():
    if len(sys.argv) != 2:
        print(__doc__.partition("\n")[0], file=sys.stderr)
        return 2
    tree = Tree(ROOT, pathlib.Path(sys.argv[1]).resolve())
    found = [problem for document in tree.documents.values() for problem in problems(tree, document)]
    blocks = sum(len(document.blocks) for document in tree.documents.values())
    count = f"{len(tree.documents)} documents with {blocks} fenced blocks"
    print("\n".join(found + [f"docs_check: {count}, {len(found)} problems"]))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
