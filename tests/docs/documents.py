"""The documents of the project, and their Markdown taken apart as far as the checks need it."""

import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FOLDERS = ("docs", "tools", "tests", "examples", "packaging")  # besides the root itself
# The first page of the archive, whose folders are those of the repository: its links start there.
ARCHIVE_PAGE = ROOT / "packaging" / "README.md"


def pages():
    """All Markdown files of the repository, without those of build trees."""
    found = sorted(ROOT.glob("*.md"))
    for folder in FOLDERS:
        found += sorted((ROOT / folder).rglob("*.md"))
    return found


def blocks_of(page):
    """(prose, code blocks) of a page. Prose has its lines at their old numbers, those of code are
    empty in it. A code block is (language, number of its first line, its lines)."""
    prose, blocks, fence, after_blank = [], [], None, True
    for number, line in enumerate(page.splitlines(), 1):
        fenced = re.match(r"\s*(```+)\s*(\w*)\s*$", line)
        if fence is not None:
            if fenced and len(fenced.group(1)) >= len(fence) and not fenced.group(2):
                fence = None
            else:
                blocks[-1][2].append(line)
            prose.append("")
        elif fenced:
            fence = fenced.group(1)
            blocks.append((fenced.group(2), number + 1, []))
            prose.append("")
        elif re.match(r" {4}", line) and (after_blank or prose and prose[-1] is None):
            if after_blank:
                blocks.append(("", number, []))
            blocks[-1][2].append(line.strip())
            prose.append(None)
        else:
            prose.append(line)
        after_blank = not line.strip()
    return [line or "" for line in prose], blocks


def code_spans(prose):
    """(line number, contents) of what stands between backticks, also over a line's end."""
    text = "\n".join(prose)
    for match in re.finditer(r"(`+)(?!`)(.+?)(?<!`)\1(?!`)", text, re.S):
        if "\n\n" not in match.group(2):
            yield text.count("\n", 0, match.start()) + 1, " ".join(match.group(2).split())


def without_code_spans(prose):
    return [re.sub(r"(`+)(?!`)(.+?)(?<!`)\1(?!`)", "", line) for line in prose]
