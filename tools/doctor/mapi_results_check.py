"""mapi_results_check.py COMPILER PAGE: PAGE lists the results of MAPI that the compiler's <mapicode.h> names,
each with its number."""
import pathlib
import re
import subprocess
import sys

compiler, page = sys.argv[1:]


def run(source, *options):
    return subprocess.run([compiler, *options, "-x", "c++", "-"], input=source, capture_output=True, text=True)


macros = run("#include <mapicode.h>\n", "-E", "-dM")
named = set(re.findall(r"^#define (MAPI_[A-Z]_\w+|SUCCESS_SUCCESS)\s", macros.stdout, re.MULTILINE))
text = pathlib.Path(page).read_text(encoding="utf-8")
rows = re.findall(r"^\| `(\w+)` \| `(0x[0-9a-f]{8})` \| (-?\d+) \| \S", text, re.MULTILINE)
listed = [symbol for symbol, _, _ in rows]
problems = [f"the page does not list {symbol}" for symbol in sorted(named - set(listed))]
problems += [f"the header does not name {symbol}" for symbol in sorted(set(listed) - named)]
problems += [f"{symbol} is listed twice" for symbol in sorted(set(listed)) if listed.count(symbol) > 1]
numbers = "#include <windows.h>\n#include <mapicode.h>\n" + "".join(
    f'static_assert(static_cast<unsigned>({symbol}) == {number}U, "{symbol}");\n'
    f'static_assert(static_cast<int>({symbol}) == {decimal}, "{symbol}");\n' for symbol, number, decimal in rows)
compiled = run(numbers, "-std=c++20", "-fsyntax-only")
if compiled.returncode != 0:
    problems.append(compiled.stderr)
print("\n".join(problems) or f"{len(rows)} results are those of the header")
sys.exit(1 if problems or macros.returncode != 0 or not named else 0)
