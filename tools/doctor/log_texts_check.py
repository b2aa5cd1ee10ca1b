"""log_texts_check.py ROOT PAGE: the texts that the product's sources write into the log and those that PAGE
lists under "The log" are the same."""
import pathlib
import re
import sys

# What never ships as the tool itself.
NOT_THE_TOOL = {"bench", "build", "fake_mapi", "fuzz", "testing", "tests", "tools"}
# The log's own declarations and definitions, with the one text that it writes itself.
LOG = "diag/log_file."

TOKEN = re.compile(r'"(?:\\.|[^"\\\n])*"|//[^\n]*|/\*.*?\*/', re.DOTALL)
CALL = re.compile(r"\b(?:Log(?:Info|Warning|Error|Debug)|WriteLogEntry)(?:WithCode)?\s*\(")
LITERALS = re.compile(r'(?:u"(?:\\.|[^"\\\n])*"\s*)+')


def call_arguments(code, start):
    """What stands in the parentheses, the first of which ends right before START."""
    depth, place = 1, start
    while depth and place < len(code):
        string = TOKEN.match(code, place)
        depth += 0 if string else {"(": 1, ")": -1}.get(code[place], 0)
        place = string.end() if string else place + 1
    return code[start:place]


def written_texts(path, source):
    """The texts of all calls in a source, and what is wrong with the others."""
    code = TOKEN.sub(lambda match: match[0] if match[0].startswith('"') else " ", source)
    texts, problems = set(), []
    for call in CALL.finditer(code):
        literals = LITERALS.search(call_arguments(code, call.end()))
        if literals:
            text = "".join(re.findall(r'u"((?:\\.|[^"\\\n])*)"', literals[0]))
            texts.add(text.replace('\\"', '"'))
        elif not path.startswith(LOG):
            problems.append(f"{path}: {call[0]}...) has no text of its own, so that it cannot be found here")
    return texts, problems


def self_test():
    source = r'''LogInfo(u"a(): %s (b)\r\n", f(u"no")); // LogInfo(u"no");
      LogErrorWithCode(CodeOf(g(1)),
                       u"c(): \"d\" "
                       u"e"); LogDebug(text); LogOn(u"no");'''
    texts, problems = written_texts("mapi/a.cpp", source)
    assert texts == {r"a(): %s (b)\r\n", 'c(): "d" e'}, texts
    assert len(problems) == 1 and "LogDebug(" in problems[0], problems
    assert written_texts("diag/log_file.h", "void LogInfo(Text text);") == (set(), [])


def main():
    self_test()
    root, page = map(pathlib.Path, sys.argv[1:])
    written, problems = set(), []
    folders = [path for path in root.iterdir() if path.is_dir() and path.name not in NOT_THE_TOOL | {".git"}]
    for path in sorted(path for folder in folders for path in folder.rglob("*.*")):
        if path.suffix in (".cpp", ".h") and not path.name.endswith("_test.cpp"):
            texts, more = written_texts(path.relative_to(root).as_posix(), path.read_text(encoding="utf-8"))
            written |= texts
            problems += more
    log = re.search(r"^## The log$(.*?)^## ", page.read_text(encoding="utf-8"), re.MULTILINE | re.DOTALL)[1]
    listed = re.findall(r"^\| `(.*?)` \| ", log, re.MULTILINE)
    problems += [f"tools/doctor/log_texts.cpp does not list {text!r}" for text in sorted(written - set(listed))]
    problems += [f"the tool does not write {text!r}" for text in sorted(set(listed) - written)]
    problems += [f"{text!r} is listed twice" for text in sorted(set(listed)) if listed.count(text) > 1]
    print("\n".join(problems) or f"{len(written)} texts of the log are listed")
    return 1 if problems or not written else 0


sys.exit(main())
