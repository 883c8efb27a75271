"""Every link of the pages leads to a file of the tree, and to a heading of it where it names one."""

import pathlib
import re
import unittest

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGES = sorted([*TOP.glob("*.md"), *TOP.glob("docs/**/*.md"), *TOP.glob("examples/**/*.md")])


def without_code(text):
    return re.sub(r"^ *```.*?^ *```", "", text, flags=re.M | re.S)


def anchors(page):
    headings = re.findall(r"^#+ (.+)$", without_code(page.read_text()), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def links(page):
    return re.findall(r"\]\(([^)\s]+)\)", without_code(page.read_text()))


class Links(unittest.TestCase):
    def test_they_lead_somewhere(self):
        seen = 0
        for page in PAGES:
            if "node_modules" in page.parts:
                continue
            for link in links(page):
                if re.match(r"[a-z]+:", link):
                    continue
                seen += 1
                path, _, anchor = link.partition("#")
                target = (page.parent / path).resolve() if path else page
                with self.subTest(page=str(page.relative_to(TOP)), link=link):
                    self.assertTrue(target.exists())
                    if anchor:
                        self.assertIn(anchor, anchors(target))
        self.assertGreater(seen, 100)

    def test_every_page_is_reached(self):
        reached = {(page.parent / link.partition("#")[0]).resolve() for page in PAGES for link in links(page)}
        for page in TOP.glob("docs/**/*.md"):
            with self.subTest(page=str(page.relative_to(TOP))):
                self.assertIn(page.resolve(), reached)


if __name__ == "__main__":
    unittest.main()
