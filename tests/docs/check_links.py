#!/usr/bin/env python3
"""Fails when a link in a document leads nowhere.

Looks at every Markdown page of the repository: links, pictures, reference definitions, and the
href, src and srcset of HTML in it. A link to a file must lead to one of the repository, outside of
build/; a part behind "#" must be a heading of that page. Pictures in SVG must be well-formed XML.
Links into the web are counted and not followed: this test needs no network.
"""

import re
import sys
import urllib.parse
import xml.etree.ElementTree

from documents import ARCHIVE_PAGE, ROOT, blocks_of, pages, without_code_spans

WEB = re.compile(r"(?:https?|mailto):")
TARGETS = (
    re.compile(r"\]\(\s*<?([^()\s<>]+(?:\([^()\s]*\)[^()\s]*)?)>?(?:\s+\"[^\"]*\")?\s*\)"),
    re.compile(r"^\s{0,3}\[[^\]]+\]:\s*<?([^\s>]+)", re.M),
    re.compile(r"\b(?:href|src|srcset)\s*=\s*\"([^\"]+)\""),
)


def links_of(page):
    """(line number, target) of each link in a page's text."""
    prose = without_code_spans(blocks_of(page)[0])
    text = "\n".join(prose)
    for pattern in TARGETS:
        for match in pattern.finditer(text):
            yield text.count("\n", 0, match.start(1)) + 1, match.group(1)


def anchors_of(page):
    """What "#" can lead to: the headings, as web pages name them."""
    anchors = set()
    for line in blocks_of(page)[0]:
        heading = re.match(r"#{1,6}\s+(.*?)\s*#*$", line)
        if heading is None:
            continue
        words = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", heading.group(1)).lower()
        name = re.sub(r"[^\w\- ]", "", words).replace(" ", "-")
        again = 0
        while (f"{name}-{again}" if again else name) in anchors:
            again += 1
        anchors.add(f"{name}-{again}" if again else name)
    return anchors


def complaint_about(path, target, root=ROOT):
    """Why a link of the page at `path` is dead, or nothing."""
    folder = root if path == ARCHIVE_PAGE else path.parent
    if WEB.match(target):
        return None
    name, _, anchor = target.partition("#")
    linked = (folder / urllib.parse.unquote(name)).resolve() if name else path
    if not linked.is_relative_to(root) or not linked.exists():
        return "there is no such file"
    if linked.relative_to(root).parts[:1] == ("build",):
        return "it is in no clone"
    if anchor and (linked.suffix != ".md"
                   or anchor not in anchors_of(linked.read_text(encoding="utf-8"))):
        return "there is no such heading"
    if linked.suffix == ".svg":
        try:
            xml.etree.ElementTree.parse(linked)
        except xml.etree.ElementTree.ParseError as failure:
            return f"the picture cannot be read: {failure}"
    return None


def main():
    dead, counted, web = [], 0, 0
    for path in pages():
        for number, target in links_of(path.read_text(encoding="utf-8")):
            counted += 1
            web += bool(WEB.match(target))
            complaint = complaint_about(path, target)
            if complaint:
                dead.append(f"{path.relative_to(ROOT)}:{number}: {target}: {complaint}")
    print(f"{counted} links in {len(pages())} pages, {web} of them into the web and not followed")
    if counted == web:
        dead.append("no link was found")
    if dead:
        sys.exit("\n".join(dead))


if __name__ == "__main__":
    main()
