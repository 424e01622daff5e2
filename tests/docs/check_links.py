#!/usr/bin/env python3
"""Checks the links in Markdown. Each must lead to a file, and to a heading in it. If the text of a link is the name of a
test, as in [`Suite.Name`](file), the file must contain this test.

usage: check_links.py SOURCES"""

import pathlib
import re
import sys

sources = pathlib.Path(sys.argv[1])
folders = [sources.glob("*.md"), sources.glob("docs/**/*.md"), sources.glob("examples/**/*.md")]
documents = sorted(document for found in folders for document in found)
links = 0
failures = []


def without_code(text):
    return re.sub(r"^```.*?^```$", "", text, flags=re.MULTILINE | re.DOTALL)


def anchors(document):
    headings = re.findall(r"^#+ (.*)$", without_code(document.read_text()), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


for document in documents:
    text = re.sub(r"`[^`\n]*`", "", without_code(document.read_text()))
    for target in re.findall(r"\]\(([^)\s]+)\)", text):
        if re.match(r"https?:|mailto:", target):
            continue
        links += 1
        path, _, anchor = target.partition("#")
        file = (document.parent / path).resolve() if path else document
        if not file.exists():
            failures.append(f"{document.relative_to(sources)}: {target}: no such file")
        elif anchor and file.suffix == ".md" and anchor not in anchors(file):
            failures.append(f"{document.relative_to(sources)}: {target}: no such heading")

    for suite, test, target in re.findall(r"\[`(\w+)\.(\w+)`\]\(([^)\s]+)\)", document.read_text()):
        file = document.parent / target
        if file.suffix == ".cpp" and not re.search(rf"TEST(_[FP])?\({suite}, {test}\)", file.read_text()):
            failures.append(f"{document.relative_to(sources)}: {target} has no test {suite}.{test}")

print("\n".join(failures) or f"{links} links in {len(documents)} documents")
sys.exit(bool(failures) or links == 0)
