"""version_check.py VERSION CHANGELOG [WORD...] -- PROGRAM...: each program, started behind these words,
says "NAME VERSION", and the newest entry of the changelog is about that version."""
import pathlib
import re
import subprocess
import sys
import tempfile

version, changelog, *rest = sys.argv[1:]
launcher, programs = rest[: rest.index("--")], rest[rest.index("--") + 1 :]
newest = re.search(r"^## (\S+)", pathlib.Path(changelog).read_text(encoding="utf-8"), re.MULTILINE)[1]
problems = [] if newest == version else [f"the changelog begins with {newest}"]
for program in programs:
    # Not a pipe: services that Wine starts may keep it open.
    with tempfile.TemporaryFile() as output:
        subprocess.run([*launcher, program, "--version"], stdout=output, check=False)
        output.seek(0)
        said = output.read().decode()
    if said.strip() != f"{pathlib.Path(program).stem} {version}":
        problems.append(f"{program} says {said!r}")
print("\n".join(problems) or f"all are {version}")
sys.exit(1 if problems else 0)
