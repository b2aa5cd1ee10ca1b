"""check.py COMPILER ROOT SOURCE...: hands each source to the compiler, which has to refuse every line
that ends in "// refused: TEXT", with an error that has TEXT in it, and no other line."""
import pathlib
import re
import subprocess
import sys

REMARK = re.compile(r"// refused: (.+)$")


def errors_by_line(source, output):
    """What the compiler says is wrong, by the line of SOURCE that it named last before."""
    line, errors = 0, {}
    for text in output.splitlines():
        named = re.search(rf"{re.escape(source.name)}:(\d+)[:,]", text)
        line = int(named[1]) if named else line
        if "error:" in text:
            errors.setdefault(line, []).append(text)
    return errors


def check(compiler, root, source):
    command = [compiler, "-std=c++20", "-fsyntax-only", "-fmessage-length=0", f"-I{root}", str(source)]
    run = subprocess.run(command, capture_output=True, text=True, env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"})
    errors = errors_by_line(source, run.stderr)
    problems = refused = 0
    for number, text in enumerate(source.read_text(encoding="utf-8").splitlines(), 1):
        expected = REMARK.search(text)
        refused += expected is not None
        found = errors.pop(number, [])
        if (not any(expected[1] in error for error in found)) if expected else found:
            print(f"{source.name}:{number}: {text.strip()}\n  the compiler says {found}")
            problems += 1
    if errors or not refused:
        print(f"{source.name}: {refused} lines are to be refused; besides them {errors}")
        problems += 1
    return problems


compiler, root, *sources = sys.argv[1:]
sys.exit(1 if sum(check(compiler, root, pathlib.Path(source)) for source in sources) else 0)
