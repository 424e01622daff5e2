#!/usr/bin/env python3
"""Turns Doxygen's pages into the site: adds the menu and the search index, puts tables into scrollable boxes, and removes
pages that are not in the menu.

usage: finish.py INDEX.md HTML      the front page, whose sections are the groups of the menu, and the folder of the pages
"""

import html
import html.parser
import json
import pathlib
import re
import sys

FRONT = "index.html"
KINDS = re.compile(r" (Class|Class Template|Namespace|File|Struct)( Template)? Reference\b")
KEPT = {".css", ".js", ".svg"}


def page_of(target):
    """The file of a linked document, "guide/event-loops.md", or of a name, "rk::socket::Socket" or "rk/utils/Log.h"."""
    if target.endswith(".md"):
        return pathlib.Path(target).stem.replace("-", "_") + ".html"
    if target.endswith(".h"):
        return pathlib.Path(target).stem + "_8h.html"
    for kind in ("class", "namespace"):
        page = kind + target.replace("::", "_1_1") + ".html"
        if (folder / page).exists():
            return page
    sys.exit(f"{index}: no page of {target}")


def is_reference(page):
    """Namespaces that only contain classes have no page of their own."""
    name = page.name.removesuffix(".html")
    if name.endswith("-members"):
        return False
    return re.match("class|struct", name) and name != "classes" or re.match(r"namespacerk_1_1(\w+_1_1)[A-Z]", name) is not None


def read_menu():
    """The groups of the menu, each with its pages: [("Guides", [("The listener", "listener.html"), ...]), ...]."""
    groups = []
    for section in re.split(r"^## ", index.read_text(), flags=re.MULTILINE)[1:]:
        title, body = section.split("\n", 1)
        pages = []
        for line in re.findall(r"^(?:\| |- )(.*)", body, re.MULTILINE):
            cell = line.split(" |")[0]
            pages += [(text, page_of(target)) for text, target in re.findall(r"\[([^]]+)\]\(([^)#]+\.md)\)", cell)]
            pages += [(re.split("::|/", name)[-1], page_of(name)) for name in re.findall(r"`(rk[:/][^`]+)`", cell)]
        groups.append((title, pages))
    listed = {page for _, pages in groups for _, page in pages}
    reference = next(pages for title, pages in groups if title == "Reference")
    names = [(page.name.removesuffix(".html").split("_1_1")[-1], page.name)
             for page in sorted(folder.glob("*.html")) if is_reference(page) and page.name not in listed]
    reference[:] = [*reference, *names]
    return groups


def menu_html(groups, current):
    def entry(text, page):
        mark = ' aria-current="page"' if page == current else ""
        breakable = re.sub(r"(?<=[a-z])(?=[A-Z])", "<wbr>", html.escape(text))
        return f'<li><a href="{page}"{mark}>{breakable}</a></li>'

    parts = ["<ul>" + entry("Overview", FRONT) + "</ul>"]
    for title, pages in groups:
        parts.append(f"<h2>{title}</h2>\n<ul>" + "\n".join(entry(*page) for page in pages) + "</ul>")
    return "\n".join(parts)


def without_links_to_removed(text, removed):
    return re.sub(r'<a class="[^"]*" href="([^"#]+)[^"]*"[^>]*>(.*?)</a>',
                  lambda link: link[2] if link[1] in removed else link[0], text)


def without_empty_heads(table):
    head = re.search(r'<tr class="markdownTableHead">.*?</tr>', table[0], re.DOTALL)
    if head and not re.sub(r"<[^>]*>|\s", "", head[0]):
        return table[0].replace(head[0], "").replace('"markdownTable"', '"markdownTable figures"', 1)
    return table[0]


def with_use_first(text):
    """Moves the examples of a class after the first sentence of its description."""
    use = re.search(r'<dl class="section user"><dt>How to use it</dt>.*?</dl>\n?', text, re.DOTALL)
    return text.replace(use[0], "").replace("</p>", "</p>\n" + use[0], 1) if use else text


def finish(page, groups, removed):
    text = with_use_first(page.read_text())
    text = re.sub(r'<object type="image/svg\+xml" data="([^"]*)"[^>]*>(.*?)</object>', r'<img src="\1" alt="\2"/>', text)
    text = KINDS.sub("", text)
    text = re.sub(r"<div id=\"nav-path\".*?</div>", "", text, flags=re.DOTALL)
    text = re.sub(r"^<div class=\"ttc\".*\n", "", text, flags=re.MULTILINE)  # hints that a script would show
    text = re.sub(r"<div class=\"summary\">.*?</div>", "", text, flags=re.DOTALL)
    text = text.replace('<h2 class="groupheader">Detailed Description</h2>', "")
    text = text.replace("<h3>Table of Contents</h3>", "<h3>On this page</h3>").replace(">More...</a>", ">More</a>")
    text = re.sub(r'<table class="markdownTable">.*?</table>', without_empty_heads, text, flags=re.DOTALL)
    text = re.sub(r'(<table class="(?:markdownTable|params|exception|fieldtable)[^"]*">.*?</table>)',
                  r'<div class="scroll" tabindex="0">\1</div>', text, flags=re.DOTALL)
    text = without_links_to_removed(text, removed)
    text = text.replace("<!-- menu -->", menu_html(groups, page.name))
    if page.name == FRONT:
        text = re.sub(r"<title>.*?</title>", "<title>rk::socket: messaging sockets on ZeroMQ</title>", text)
    page.write_text(text)


class Sections(html.parser.HTMLParser):
    """Collects the text of a page by its headings: [anchor, heading, text]."""

    def __init__(self):
        super().__init__()
        self.sections = [["", "", ""]]
        self.title = ""
        self.anchor = ""
        self.inside = None
        self.seen_article = False
        self.hidden = 0

    def handle_starttag(self, tag, attributes):
        attributes = dict(attributes)
        if tag not in ("a", "b", "em", "code", "span"):
            self.sections[-1][2] += " "
        kind = attributes.get("class") or ""
        self.seen_article = self.seen_article or tag == "article"
        if tag == "a" and attributes.get("id"):
            self.anchor = attributes["id"]
        if tag == "div" and kind == "toc":
            self.hidden = 1
        elif self.hidden and tag == "div":
            self.hidden += 1
        if tag == "div" and kind == "title":
            self.inside = "title"
        elif self.seen_article and tag in ("h1", "h2", "h3", "h4") and "groupheader" not in kind and not self.hidden:
            anchor = attributes.get("id") or (self.anchor if "memtitle" in kind else "")
            self.sections.append([anchor, "", ""])
            self.inside = "heading"
        elif self.inside == "heading" and tag == "a" and attributes.get("id"):
            self.sections[-1][0] = attributes["id"]

    def handle_endtag(self, tag):
        if self.hidden and tag == "div":
            self.hidden -= 1
        if tag in ("h1", "h2", "h3", "h4", "div"):
            self.inside = None

    def handle_data(self, data):
        if not self.seen_article or self.hidden:
            return
        if self.inside == "title":
            self.title += data
        elif self.inside == "heading":
            self.sections[-1][1] += data.replace("\u25c6", "")
        else:
            self.sections[-1][2] += data


def search_entries(page):
    parser = Sections()
    parser.feed(page.read_text())
    for anchor, heading, text in parser.sections:
        words = [" ".join(part.split()) for part in (parser.title, heading, text)]
        if words[1] or words[2]:
            yield [page.name + ("#" + anchor if anchor else ""), *words]


index, folder = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
menu = read_menu()
listed_pages = {FRONT} | {page for _, pages in menu for _, page in pages}
unlisted = [document for document in index.parent.rglob("*.md")
            if document != index and page_of(document.name) not in listed_pages]
if unlisted:
    sys.exit(f"{index} does not list " + ", ".join(map(str, unlisted)))

removed_files = {file.name for file in folder.iterdir()
                 if file.name not in listed_pages and (file.suffix not in KEPT or file.name in
                                                       ("doxygen.css", "tabs.css", "doxygen.svg", "jquery.js", "dynsections.js"))}
for name in removed_files:
    (folder / name).unlink()
entries = []
for name in sorted(listed_pages):
    finish(folder / name, menu, removed_files)
    entries += search_entries(folder / name)
(folder / "search-index.js").write_text("searchIndex = " + json.dumps(entries, ensure_ascii=False) + ";\n")
print(f"{len(listed_pages)} pages, {len(entries)} sections to search")
