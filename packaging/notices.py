"""THIRD-PARTY-NOTICES.txt: whose work is in the programs, what that asks for, and the texts in full."""
import pathlib
import textwrap

import components

COMMON_LICENCES = pathlib.Path("/usr/share/common-licenses")
WIDTH = 78

PREFACE = """\
Zentpost's own licence is in LICENSE.txt. Its programs for Windows carry their runtime libraries inside,
so that nothing else needs to be installed. This page names these libraries, says what linking them
statically asks for, and gives their notices and licences in full, word for word as their packages state
them. These texts cover whole packages, and therefore more than is in the programs.

What is asked for: whoever passes the programs on passes this file on with them. That is all. The
libraries of MinGW-w64, winpthreads, cJSON and GoogleTest ask that their notices go with programs made
of them; so do some headers of the C++ library. GCC's libraries are under the GNU General Public License
with the GCC Runtime Library Exception, under which a program that a compiler of theirs made may be
passed on under terms of its own, without its source; the programs here were made by no other
compiler. Asio asks nothing of a compiled program and is named for completeness.

The programs for Linux in the integrator package carry none of these libraries but Asio. They use those
of the system."""


def wrap(text, **indents):
    return textwrap.fill(text, WIDTH, break_on_hyphens=False, **indents)


def rule(title):
    return f"{'=' * WIDTH}\n{title}\n{'=' * WIDTH}"


def third_party():
    """The text of the file."""
    sections = {}  # those whose notices a text has
    for one in components.STATIC:
        for path in one.notices:
            sections.setdefault(path.read_text("utf-8").strip("\n"), []).append(one)
    titles = {text: ", ".join(one.name for one in those) for text, those in sections.items()}
    stl, gpl = "\n\n\n".join(components.stl_notices()), (COMMON_LICENCES / "GPL-3").read_text("utf-8").strip("\n")
    sections[stl], titles[stl] = [components.LIBSTDCXX], "headers of libstdc++: notices that they ask to be repeated"
    sections[gpl] = [one for one in components.STATIC if "GPL-3.0" in one.licence]
    titles[gpl] = "GNU General Public License, version 3, to which GCC's libraries refer"

    parts = [rule("Third-party notices"), *(wrap(paragraph) for paragraph in PREFACE.split("\n\n"))]
    for one in components.STATIC:
        numbers = [str(number) for number, those in enumerate(sections.values(), 1) if one in those]
        parts.append(wrap(
            f"{one.name} {components.version(one)}: {one.about}. Licence: {one.licence}. See {', '.join(numbers)}.",
            initial_indent="- ", subsequent_indent="  "))
    for number, text in enumerate(sections, 1):
        parts += [rule(f"{number}. {titles[text]}"), text]
    return "\n\n".join(parts) + "\n"
