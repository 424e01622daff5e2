#!/usr/bin/env python3
"""Reduces a record that abidw has written to the library's own interface, with one line per declaration.

A class outside of our namespace keeps its name and size and loses its members. A type that nothing of ours leads to is
dropped.

usage: prune.py FILE
"""

import sys
import xml.etree.ElementTree as xml

SCOPES = ("abi-instr", "namespace-decl")
CLASSES = ("class-decl", "union-decl")
REFERENCES = ("type-id", "naming-typedef-id", "containing-type-id")
SPLIT = SCOPES + CLASSES + ("abi-corpus", "elf-needed", "elf-function-symbols", "elf-variable-symbols", "enum-decl")


def foreign_scopes(scope):
    """Yield the scope and those within it, except for our namespace."""
    yield scope
    for element in scope:
        if element.tag in SCOPES and element.get("name") != "rk":
            yield from foreign_scopes(element)


def empty_classes(root):
    for scope in foreign_scopes(root):
        for element in scope:
            if element.tag in CLASSES:
                element[:] = []


def drop_unreferenced(root):
    """Drop each foreign type that nothing refers to, and report whether there was one."""
    used = {element.get(name) for element in root.iter() for name in REFERENCES}
    unused = [(scope, element) for scope in foreign_scopes(root) for element in scope
              if ("id" in element.attrib and element.get("id") not in used)
              or (element.tag in SCOPES and len(element) == 0)]
    for scope, element in unused:
        scope.remove(element)
    return bool(unused)


def lines(element, indent=""):
    for part in element.iter():
        part.text = part.tail = None
    if element.tag not in SPLIT or len(element) == 0:
        yield indent + xml.tostring(element, encoding="unicode")
        return
    children = list(element)
    element[:] = []
    yield indent + xml.tostring(element, encoding="unicode").replace(" />", ">")
    for child in children:
        yield from lines(child, indent + " ")
    yield f"{indent}</{element.tag}>"


def main():
    root = xml.parse(sys.argv[1]).getroot()
    empty_classes(root)
    while drop_unreferenced(root):
        pass
    with open(sys.argv[1], "w", encoding="utf-8") as file:
        file.write("\n".join(lines(root)) + "\n")


if __name__ == "__main__":
    main()
