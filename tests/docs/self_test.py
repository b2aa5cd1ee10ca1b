#!/usr/bin/python3
"""self_test.py BUILD [--emulator WINE_RUN ARCH]: plants each kind of defect in a document and wants to see
docs_check.py, or docs_run.py on that system, find it. Exit code 0: each was found, and nothing in what is right."""
import argparse
import pathlib
import sys

import docs_run
from docs_check import ROOT, Tree, problems
from documents import Document

PATH = pathlib.PurePosixPath("docs/planted.md")
JOB = '{"FilePath": "C:/a.pdf", "SourceFileName": "a.pdf", "Cmd": {"Receiver": ["1"]}}'
LOG = "2026/11/20 23:58:07 - INFO   : "
RESULT = '{"Status": 0, "ErrorCode": 0, "ErrorText": ""}'


def fenced(info, *lines):
    return "\n".join([f"```{info}", *lines, "```"])


# (document, what its problem is; none when it is right)
CHECKED = [
    ("# A `b` c, d!\n# A `b` c, d!\n[x](#a-b-c-d) [x](#a-b-c-d-1) [x](../README.md#install) [x](schema)", None),
    ("[x](nowhere.md)", "leads nowhere"),
    ("[a `b`\nc](#nowhere)", "no such heading"),
    ("[x](../README.md#nowhere)", "no such heading"),
    ("`[x](nowhere.md)`", None),
    ("`app/main.cpp` `app/job_parameters` `tests/abi/` `mapiload/entry_points.*` `build/x/y` `listener.h`", None),
    ("`app/nowhere.cpp`", "there is no app/nowhere.cpp"),
    ("`tools/sandbox_mapi/sandbox_mapi.dll`", None),
    ("`tools/sandbox_mapi/nowhere.dll`", "there is no tools/sandbox_mapi/nowhere.dll"),
    ("`nowhere.cpp`", "there is no nowhere.cpp"),
    ("`scripts/nowhere --self-test`", "there is no scripts/nowhere"),
    ("`addin_listener --port-file port.txt` `--count` `./check --quick` `zentpost_doctor.exe --json`", None),
    ("`addin_listener --folder x`", "addin_listener has no option --folder"),
    ("`./check --quicker`", "check has no option --quicker"),
    ("`--no-such-option-anywhere`", "nothing has the option"),
    ("`ZENTPOST_REGISTRY` `-DBUILD_TESTING=OFF`", None),
    ("`ZENTPOST_NOWHERE`", "nothing reads ZENTPOST_NOWHERE"),
    ("`AddAttachment(): 'x.pdf'`", None),
    ("`AddAttachment(): nothing like it`", "logs no such line"),
    ("`ProcessToOutlookClient(): Created JSON:`", None),
    (fenced("", "x"), "no known mark"),
    (fenced("sh", "x"), "no known mark"),
    (fenced("sh executed", "x"), "no known mark"),
    (fenced("cpp shown", "x"), None),
    (fenced("json", "{}"), "no known mark"),
    ("```text shown\nx", "has no end"),
    (fenced("json job-file", JOB), None),
    (fenced("json job-file", JOB.replace("a.pdf", "a")), "does not match"),
    (fenced("json job-file", JOB + ","), "no JSON"),
    (fenced("json job-file-tolerant", JOB.replace("a.pdf", "a")), None),
    (fenced("json job-file-tolerant", JOB), "mark it job-file"),
    (fenced("json wrong", JOB + ","), None),
    (fenced("json wrong", JOB.replace("a.pdf", "a")), "the tool takes it"),
    (fenced("json result", RESULT), None),
    (fenced("json result", RESULT.replace("0,", "2,", 1)), "is not one of"),
    (fenced("json payload", RESULT), "required property"),
    (fenced("json doctor", RESULT), "required property"),
    (fenced("json file a.json", "[1]"), None),
    (fenced("json file a.json", "[1"), "no JSON"),
    (fenced("json file", "[1]"), "needs a name"),
    (fenced("sh shown", "cmake --preset host && ctest --preset host -R e2e"), None),
    (fenced("sh shown", "cmake --preset nowhere"), "no preset nowhere"),
    (fenced("sh shown", "cmake --build --preset host --target nowhere"), "no test or target"),
    (fenced("sh shown", "build/host/bench/nowhere 1"), "nothing builds"),
    (fenced("sh shown", "x | sandbox_mapi register \\", "  --nowhere"), "no option --nowhere"),
    (fenced("bat shown", "addin_listener.exe --nowhere"), "no option --nowhere"),
    (fenced("bat shown", "reg query HKCU\\Software /v TolvanAddinPort"), None),
    (fenced("bat shown", "reg query HKCU\\Software /v TolvanPort"), "nothing reads a value TolvanPort"),
    (fenced("bat windows", "echo ä"), "beyond ASCII"),
    (fenced("bat windows", "echo a || echo b"), "both sides"),
    (fenced("text shown", LOG + "StartZentpost(): C:\\a.pdf"), None),
    (fenced("text shown", LOG + "StartZentpost: C:\\a.pdf"), "logs no such line"),
    (fenced("sh run", "true") + "\n# Other\n" + fenced("text output", "x"), "no executed block"),
    (fenced("sh shown", "true") + "\n" + fenced("text output", "x"), "no executed block"),
]

ON_HOST = [
    (fenced("sh run", 'test -z "$(ls)"', "zentpost_doctor --version", 'test -d "$SAMPLES" -a -d "$DOCS"'), None),
    (fenced("python run", "import sys", "sys.exit(3)"), "exit code 3"),
    (fenced("sh run", "false", "true"), "exit code 1"),
    (fenced("sh run", "echo $NOWHERE"), "exit code"),
    (fenced("sh run", "sleep 60"), "not done within"),
    (fenced("sh shown", "false"), None),
    (fenced("json file a.json", "[4711]") + "\n" + fenced("sh run", "grep 4711 a.json"), None),
    (fenced("sh run", "grep 4711 a.json") + "\n" + fenced("json file a.json", "[4711]"), "exit code 2"),
    (fenced("sh run", "zentpost a.pdf 0301"), None),
    (fenced("sh run", "ZENTPOST_REGISTRY= zentpost a.pdf 0301"), "exit code 1"),
    *((fenced("sh run", "seq 4", "date '+%Y/%m/%d %T'") + "\n\nprints:\n\n" + fenced("text output", *lines), problem)
      for lines, problem in (
          (["1", "2", "3", "4", "2026/01/01 00:00:00"], None), (["1", "...", "4", "..."], None), (["..."], None),
          (["1", "3", "..."], "not printed here: '3'"), (["1", "2", "3", "4"], "printed as well"),
          (["2", "..."], "not printed here: '2'"), (["...", "4", "2", "..."], "not printed here: '2'"))),
]

ON_WINDOWS = [
    (fenced("bat background", "addin_listener --port 5000") + "\n" + fenced(
        "bat windows", "reg add HKCU\\Software\\Sollvex\\OutlookAddin /v TolvanAddinPort /d 5000 >nul",
        "zentpost a.pdf 0301") + "\n" + fenced("text output", "...", "  Receiver:       0301", "..."), None),
    # What a block leaves is taken away.
    (fenced("bat windows", "echo x >C:\\left.txt", "mkdir C:\\left", "mkdir %LOCALAPPDATA%\\VORNA"), None),
    (fenced("bat windows", "type C:\\left.txt"), "exit code 1"),
    (fenced("bat windows", "mkdir C:\\left", "mkdir %LOCALAPPDATA%\\VORNA"), None),
    (fenced("bat windows", "reg query HKCU\\Software\\Sollvex", "echo done"), "exit code 1"),
    (fenced("bat windows", "zentpost a.pdf 0301") + "\n" + fenced("text output", ""), None),
    (fenced("bat windows", "echo sandbox_mapi", "zentpost a.pdf 0301", "echo done"), "exit code 1"),
    (fenced("bat windows", "echo sandbox_mapi", "zentpost a.pdf 0301", "if errorlevel 1 echo failed", "echo done") +
     "\n" + fenced("text output", "sandbox_mapi", "failed", "done"), None),
]


def misses(cases, find):
    for text, expected in cases:
        found = find(Document(PATH, text))
        if expected is None and found or expected and not any(expected in problem for problem in found):
            yield f"expected {expected or 'no problem'}, found {found or 'none'}:\n{text}"


def main():
    parser = argparse.ArgumentParser(usage=__doc__.partition(":")[0])
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("--emulator", nargs=2)
    arguments = parser.parse_args()
    missed = []
    if not arguments.emulator:
        tree = Tree(ROOT, arguments.build.resolve())
        missed += misses(CHECKED, lambda document: list(problems(tree, document)))
        docs_run.SECONDS = 5
    cases = ON_WINDOWS if arguments.emulator else ON_HOST
    with docs_run.system_for(arguments.build, arguments.emulator) as system:
        missed += misses(cases, lambda document: docs_run.run_documents(system, [document])[1])
    count = len(cases) + (0 if arguments.emulator else len(CHECKED))
    print("\n".join(missed + [f"self_test: {count} documents, {len(missed)} wrong"]))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
