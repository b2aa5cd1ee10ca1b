"""Reads Markdown as far as docs_check.py needs it: headings, links, code spans and fenced blocks."""
import dataclasses
import pathlib
import re

FENCE = re.compile(r"^( *)(`{3,}|~{3,}) *(.*?) *$")
HEADING = re.compile(r"^#{1,6} +(.*?)(?: +#+)? *$", re.MULTILINE)
CODE_SPAN = re.compile(r"(?<!`)(`+)(?!`)(.+?)(?<!`)\1(?!`)", re.DOTALL)
LINK = re.compile(r"!?\[(?:[^\[\]]|\[[^\]]*\])*\]\(<?([^)\s>]+)>?(?: +\"[^\"]*\")?\)")


@dataclasses.dataclass
class Block:
    """A fenced block; its info string is LANGUAGE MARK [NAME]."""
    path: pathlib.Path
    line: int
    language: str
    mark: str
    name: str
    text: str

    @property
    def place(self):
        return f"{self.path}:{self.line}"


class Document:
    def __init__(self, path, text):
        self.path = path
        self.blocks = []
        self.sections = []  # for each block, the number of headings above it
        prose, block, fence = [], None, None
        for number, line in enumerate(text.splitlines(), 1):
            found = FENCE.match(line)
            if block is None and found:
                words = (found[3].split() + ["", "", ""])[:3]
                fence = found
                block = Block(path, number, *words, "")
                self.blocks.append(block)
                self.sections.append(sum(bool(HEADING.match(above)) for above in prose))
            elif block is not None and found and not found[3] and found[2].startswith(fence[2]):
                block = None
            elif block is not None:
                indent = len(fence[1])
                block.text += (line[indent:] if not line[:indent].strip() else line) + "\n"
            else:
                prose.append(line)
                continue
            prose.append("")
        self.is_open = block is not None
        self.prose = "\n".join(prose)

    def spans(self):
        """(line, text) of each code span."""
        for found in CODE_SPAN.finditer(self.prose):
            yield self._line(found), re.sub(r"\s+", " ", found[2]).strip()

    def links(self):
        """(line, target) of each link."""
        without_code = CODE_SPAN.sub(lambda found: re.sub(r"\S", "x", found[0]), self.prose)
        for found in LINK.finditer(without_code):
            yield self._line(found), found[1]

    def anchors(self):
        """The ids that the headings get on the web pages of a repository."""
        seen = {}
        for title in HEADING.findall(self.prose):
            title = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", title)
            title = re.sub(r"[`*\\]", "", title)
            anchor = re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")
            count = seen.setdefault(anchor, 0)
            seen[anchor] += 1
            yield f"{anchor}-{count}" if count else anchor

    def _line(self, found):
        return self.prose.count("\n", 0, found.start()) + 1
