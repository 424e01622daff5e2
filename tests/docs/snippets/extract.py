#!/usr/bin/env python3
"""Writes each ```cpp block of a document to a file, FOLDER/NAME-1.cpp and so on, and prints the names without ".cpp".

usage: extract.py DOCUMENT FOLDER

A ```text block after it has the program's output, and goes to FOLDER/NAME-1.txt. The compiler reports errors with the
line numbers of the document. A block that begins with a comment naming a file belongs to a larger example."""

import pathlib
import re
import sys

document, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
text = document.read_text(encoding="utf-8")
block, count = None, 0
for fence in re.finditer(r"^```(cpp|text)\n(.*?)^```", text, re.MULTILINE | re.DOTALL):
    language, body = fence.groups()
    if language == "text" and block:
        (folder / f"{block}.txt").write_text(body, encoding="utf-8")
    block = None
    if language == "cpp" and not re.match(r"// [a-z_]+\.cpp\n", body):
        count += 1
        block = f"{document.stem}-{count}"
        line = text.count("\n", 0, fence.start()) + 2
        (folder / f"{block}.cpp").write_text(f'#line {line} "{document}"\n{body}', encoding="utf-8")
        print(block)
