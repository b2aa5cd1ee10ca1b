"""Pages of Markdown as HTML."""
import unittest

import pages

PLACES = {
    "README.md": "README.html",
    "LICENSE": "LICENSE.txt",
    "docs/integration.md": "docs/integration.html",
    "tools/doctor/README.md": "docs/doctor.html",
    "docs/schema/a b.json": "docs/schema/a b.json",
    "docs/routes.svg": "docs/routes.svg",
}


def rendered(text, source="docs/integration.md"):
    return pages.Pages(PLACES, "9.8.7").render(text, source, PLACES[source])


class PagesTest(unittest.TestCase):
    def test_a_link_leads_to_where_the_file_is_in_the_package(self):
        for link, place in (
            ("../README.md", "../README.html"),
            ("../LICENSE", "../LICENSE.txt"),
            ("../tools/doctor/README.md#how", "doctor.html#how"),
            ("../tools/doctor", "doctor.html"),
            ("../tools/doctor/", "doctor.html"),
            ("schema", "schema"),
            ("schema/a%20b.json", "schema/a%20b.json"),
            ("#here", "#here"),
            ("https://example.invalid/x.md", "https://example.invalid/x.md"),
        ):
            self.assertIn(f'<a href="{place}">text</a>', rendered(f"[text]({link})"), link)

    def test_a_link_out_of_the_package_becomes_plain_text(self):
        self.assertIn("<p>see <strong>the</strong> code, <a href=\"#x\">here</a></p>",
                      rendered("see [**the** code](../app/main.cpp), [here](#x)"))

    def test_a_picture_that_is_not_in_the_package_becomes_its_text(self):
        self.assertIn('<img src="routes.svg" alt="two routes"', rendered("![two routes](routes.svg)"))
        self.assertIn("<p>two routes</p>", rendered("![two routes](elsewhere.svg)"))

    def test_headings_have_the_anchors_that_links_on_the_web_use(self):
        page = rendered("# Job file\n## `FilePath` & Co. (required)\n## Job file\n## Two_words, ä-Ö\n")
        for anchor in "job-file", "filepath--co-required", "job-file-1", "two_words-ä-ö":
            self.assertIn(f' id="{anchor}"', page)

    def test_a_table_below_an_entry_of_a_list_is_a_table(self):
        self.assertIn("<td>1</td>", rendered("1. **One**\n\n   | a |\n   |---|\n   | 1 |\n"))

    def test_the_title_is_the_first_heading_and_the_version_stands_below(self):
        page = rendered("# A < B\n")
        self.assertIn("<title>A &lt; B</title>", page)
        self.assertIn("Zentpost 9.8.7", page)

    def test_every_page_but_the_first_leads_to_the_first(self):
        self.assertIn('<header><a href="../README.html">Zentpost</a></header>', rendered("x"))
        self.assertNotIn("<header>", rendered("x", "README.md"))


if __name__ == "__main__":
    unittest.main()
