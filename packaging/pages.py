"""Pages of Markdown as HTML: as their readers know them from the web, with links that stay in the package."""
import html
import posixpath
import re
import urllib.parse

from markdown_it import MarkdownIt

# No file but the page itself.
TEMPLATE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title}</title>
<style>
body {{ max-width: 52rem; margin: 2rem auto; padding: 0 1rem; color: #1b1f24; background: #fff;
  font: 16px/1.55 "Segoe UI", system-ui, sans-serif; }}
h1, h2, h3 {{ line-height: 1.25; margin: 2rem 0 .75rem; }}
h1 {{ margin-top: 0; }}
h2 {{ border-bottom: 1px solid #d5dae0; padding-bottom: .25rem; }}
a {{ color: #0b5cad; }}
code, pre {{ font: .875em/1.45 Consolas, "DejaVu Sans Mono", monospace; background: #f3f5f7; }}
code {{ padding: .1em .3em; border-radius: 3px; overflow-wrap: anywhere; }}
pre {{ padding: .75rem 1rem; overflow-x: auto; border-radius: 4px; }}
pre code {{ padding: 0; font-size: 1em; overflow-wrap: normal; }}
table {{ border-collapse: collapse; display: block; overflow-x: auto; }}
th, td {{ border: 1px solid #d5dae0; padding: .35rem .65rem; text-align: left; vertical-align: top; }}
img {{ max-width: 100%; }}
header, footer {{ color: #59636e; font-size: .875rem; }}
header {{ margin-bottom: 2rem; }}
footer {{ margin-top: 3rem; border-top: 1px solid #d5dae0; padding-top: .5rem; }}
@media (prefers-color-scheme: dark) {{
  body {{ color: #dfe4ea; background: #16191d; }}
  a {{ color: #7db8f5; }}
  code, pre {{ background: #22272d; }}
  h2, th, td, footer {{ border-color: #3a424b; }}
  header, footer {{ color: #9aa5b1; }}
}}
</style>
</head>
<body>
{header}{body}<footer>Zentpost {version}</footer>
</body>
</html>
"""


def slug(heading, taken):
    """The anchor of a heading, and the number that makes it the only one on its page."""
    plain = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
    number = taken.get(plain)
    taken[plain] = 0 if number is None else number + 1
    return plain if number is None else f"{plain}-{taken[plain]}"


def plain_text(inline):
    return "".join(token.content for token in inline.children if token.type in ("text", "code_inline"))


class Pages:
    """Makes HTML of pages. PLACES maps the files of the tree to where they are in the package."""

    def __init__(self, places, version):
        self.places = places
        self.version = version
        self.markdown = MarkdownIt("commonmark", {"html": True}).enable(["table", "strikethrough"])

    def place_of(self, link, source, target):
        """Where LINK leads from the page at TARGET; None where the package has nothing there."""
        parts = urllib.parse.urlsplit(link)
        if parts.scheme or parts.netloc or not parts.path:
            return link
        meant = posixpath.normpath(posixpath.join(posixpath.dirname(source), urllib.parse.unquote(parts.path)))
        place = self.places.get(meant) or self.places.get(f"{meant}/README.md") or self.folder_of(meant)
        if place is None:
            return None
        relative = urllib.parse.quote(posixpath.relpath(place, posixpath.dirname(target) or "."))
        return urllib.parse.urlunsplit(("", "", relative, "", parts.fragment))

    def folder_of(self, meant):
        """The folder in the package with the files of the tree's folder MEANT, or None."""
        below = [posixpath.dirname(place) for name, place in self.places.items() if name.startswith(f"{meant}/")]
        return posixpath.commonpath(below) if below else None

    def adapt(self, tokens, source, target):
        """The tokens of a line with its links and pictures turned to where they are."""
        kept, dropped = [], []
        for token in tokens:
            if token.type == "link_open":
                place = self.place_of(token.attrs["href"], source, target)
                dropped.append(place is None)
                if place is None:
                    continue
                token.attrs["href"] = place
            elif token.type == "link_close":
                if dropped.pop():
                    continue
            elif token.type == "image":
                place = self.place_of(token.attrs["src"], source, target)
                if place is None:
                    token.type, token.tag, token.children = "text", "", None
                else:
                    token.attrs["src"] = place
            kept.append(token)
        return kept

    def render(self, text, source, target):
        tokens = self.markdown.parse(text)
        taken, title = {}, None
        for number, token in enumerate(tokens):
            if token.type == "heading_open":
                heading = plain_text(tokens[number + 1])
                title = title or heading
                token.attrs["id"] = slug(heading, taken)
            elif token.type == "inline":
                token.children = self.adapt(token.children, source, target)
        body = self.markdown.renderer.render(tokens, self.markdown.options, {})
        start = self.places.get("README.md")
        header = ""
        if start not in (None, target):
            home = posixpath.relpath(start, posixpath.dirname(target) or ".")
            header = f'<header><a href="{html.escape(home)}">Zentpost</a></header>\n'
        return TEMPLATE.format(title=html.escape(title or source), header=header, body=body, version=self.version)
