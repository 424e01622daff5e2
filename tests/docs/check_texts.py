#!/usr/bin/env python3
"""Checks that docs/guide/troubleshooting.md explains each message of the library, and no other.

usage: check_texts.py SOURCES

Messages consist of string literals. Each literal of two words or more must occur in a heading of the page. A heading
must consist of literals, with "…" for the parts that vary."""

import pathlib
import re
import sys

sources = pathlib.Path(sys.argv[1])
page = (sources / "docs/guide/troubleshooting.md").read_text()
literal = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
words = re.compile(r"[A-Za-z]")

literals = set()
for file in sorted((sources / "rk").rglob("*.cpp")):
    code = "\n".join(line.split("//")[0] if '"' not in line.split("//")[0] else line
                     for line in file.read_text().splitlines() if not line.startswith("#"))
    code = re.sub(r'"\s*\n\s*"', "", code)  # a literal may go on in the next line
    literals |= set(literal.findall(code))

headings = re.findall(r"^### (.*)$", page, re.MULTILINE)
failures = []

for text in sorted(literals):
    if words.search(text) and " " in text and not any(text.strip() in heading for heading in headings):
        failures.append(f"not explained: {text!r}")

numbers_and_names = re.compile(r"SocketContext|send\(\)|recv\(\)")
for heading in headings:
    for piece in heading.split("…"):
        rest = piece
        for text in sorted(literals, key=len, reverse=True):
            if text.strip():
                rest = rest.replace(text.strip(), "")
        rest = numbers_and_names.sub("", rest)
        if words.search(rest):
            failures.append(f"no source makes: {heading!r} ({rest.strip()!r})")

print("\n".join(failures) or f"{len(literals)} literals, {len(headings)} headings")
sys.exit(bool(failures) or len(literals) < 40)
