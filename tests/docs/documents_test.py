#!/usr/bin/env python3
"""Checks the statements of the documents: their links, commands and messages.

usage: documents_test.py SOURCES [TEST...]"""

import pathlib
import re
import sys
import unittest

SOURCES = pathlib.Path(sys.argv.pop(1))
DOCUMENTS = sorted(document for pattern in ("*.md", "docs/**/*.md", "examples/**/*.md") for document in SOURCES.glob(pattern))


def without_code(document):
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)


class Links(unittest.TestCase):
    @staticmethod
    def anchors(document):
        headings = re.findall(r"^#+ (.*)$", without_code(document), re.MULTILINE)
        return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}

    def test_lead_to_files_and_headings(self):
        links = [(document, link) for document in DOCUMENTS
                 for link in re.findall(r"\]\(([^)\s]+)\)", re.sub(r"`[^`\n]*`", "", without_code(document)))
                 if not re.match(r"https?:|mailto:", link)]
        self.assertTrue(links)
        for document, link in links:
            path, _, anchor = link.partition("#")
            file = (document.parent / path).resolve() if path else document
            with self.subTest(document=document, link=link):
                self.assertTrue(file.exists())
                if anchor and file.suffix == ".md":
                    self.assertIn(anchor, self.anchors(file))

    def test_of_a_test_lead_to_its_file(self):
        for document in DOCUMENTS:
            for suite, test, link in re.findall(r"\[`(\w+)\.(\w+)`\]\(([^)\s]+\.cpp)\)", document.read_text()):
                with self.subTest(document=document, test=f"{suite}.{test}"):
                    source = (document.parent / link).read_text()
                    self.assertTrue(re.search(rf"TEST(_[FP])?\({suite}, {test}\)", source))


class Commands(unittest.TestCase):
    @staticmethod
    def run_ones():
        """Returns all commands that are run, as one string. A command with several checks is repeated for each check."""
        scripts = [script for script in sorted((SOURCES / "scripts").rglob("*")) if script.is_file()]
        places = [SOURCES / ".ci/run", *scripts, SOURCES / "docs/guide/first-message.md"]
        run = "\n".join(re.sub(r"^#.*$", "", place.read_text(), flags=re.MULTILINE) for place in places)
        checks = " ".join(re.findall(r"scripts/check ((?: ?[a-z]+)+)", run)).split()
        return run + "\n" + "\n".join(f"scripts/check {check}" for check in checks)

    def test_of_the_readme_are_run_by_a_script_or_the_tested_guide(self):
        readme = without_code(SOURCES / "README.md")
        shown = re.findall(r"^    (.*?)(?:\s+#.*)?$", readme, re.MULTILINE) + re.findall(r"`(scripts/[^`]*)`", readme)
        self.assertTrue(shown)
        run = self.run_ones()
        for command in shown:
            command = re.sub(r"^scripts/fresh-machine (--release \w+ )?", "", command)
            with self.subTest(command):
                self.assertTrue(re.search(re.escape(command) + r"(?![\w-])", run))

    def test_name_scripts_checks_and_proofs_that_exist(self):
        for document in DOCUMENTS:
            for name, argument in re.findall(r"(?:^    |`)(?:scripts/)([a-z-]+) ?([a-z0-9]*)", document.read_text(), re.MULTILINE):
                folder = {"check": "checks/", "prove": "proofs/"}.get(name)
                wanted = (folder + argument if argument else name) if folder else name
                with self.subTest(document=document, script=wanted):
                    self.assertTrue([*(SOURCES / "scripts").glob(wanted), *(SOURCES / "scripts").glob(wanted + ".py")])


class Messages(unittest.TestCase):
    """Messages consist of string literals. The headings of the page consist of literals, with "…" for the parts that vary."""

    HEADINGS = re.findall(r"^### (.*)$", (SOURCES / "docs/guide/troubleshooting.md").read_text(), re.MULTILINE)

    def setUp(self):
        self.literals = set()
        for file in (SOURCES / "rk").rglob("*.cpp"):
            code = "\n".join(line.split("//")[0] if '"' not in line.split("//")[0] else line
                             for line in file.read_text().splitlines() if not line.startswith("#"))
            code = re.sub(r'"\s*\n\s*"', "", code)  # a literal may go on in the next line
            self.literals |= set(re.findall(r'"((?:[^"\\\n]|\\.)*)"', code))
        self.assertGreaterEqual(len(self.literals), 40)

    def test_of_two_words_or_more_are_explained(self):
        for text in self.literals:
            with self.subTest(text):
                self.assertTrue(" " not in text or not re.search("[A-Za-z]", text)
                                or any(text.strip() in heading for heading in self.HEADINGS))

    def test_that_are_explained_are_made_by_a_source(self):
        texts = sorted(filter(None, (text.strip() for text in self.literals)), key=len, reverse=True)
        for heading in self.HEADINGS:
            for rest in heading.split("…"):
                for text in texts:
                    rest = rest.replace(text, "")
                rest = re.sub(r"SocketContext|send\(\)|recv\(\)", "", rest)
                with self.subTest(heading):
                    self.assertNotRegex(rest, "[A-Za-z]")


if __name__ == "__main__":
    unittest.main()
