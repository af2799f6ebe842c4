"""Reads C++ sources as far as it takes to find what they print, log and throw."""

import re
from typing import NamedTuple


class Token(NamedTuple):
    kind: str  # "name", "text" (a string literal's contents) or "sign"
    text: str
    line: int


class Unreadable(Exception):
    """A source does something that these functions cannot follow."""


TOKENS = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<raw>R"\()
      | (?P<text>"(?:\\.|[^"\\\n])*")
      | (?P<char>'(?:\\.|[^'\\\n])+')
      | (?P<name>[A-Za-z_]\w*)
      | (?P<number>\d(?:[\w.']*))
      | (?P<sign>[^\s\w])""",
    re.X | re.S,
)
ESCAPES = {"n": "\n", "t": "\t", '"': '"', "\\": "\\", "'": "'"}


def unescaped(literal, line):
    def character(match):
        if match.group(1) not in ESCAPES:
            raise Unreadable(f"line {line}: cannot read the escape {match.group(0)}")
        return ESCAPES[match.group(1)]

    return re.sub(r"\\(.)", character, literal)


def tokens_of(source):
    """The tokens of a source without comments; neighbouring string literals become one."""
    tokens = []
    line, seen = 1, 0
    for match in TOKENS.finditer(source):
        line += source.count("\n", seen, match.start())
        seen = match.start()
        kind = match.lastgroup
        if kind == "raw":
            raise Unreadable(f"line {line}: cannot read raw string literals")
        if kind == "comment" or kind == "char":
            continue
        text = match.group(0)
        if kind != "text":
            tokens.append(Token("sign" if kind == "number" else kind, text, line))
            continue
        contents = text[1:-1]
        if tokens and tokens[-1].kind == "text":
            tokens[-1] = Token("text", tokens[-1].text + contents, tokens[-1].line)
        else:
            tokens.append(Token("text", contents, line))
    return tokens


def arguments_at(tokens, opening):
    """The token lists of the arguments of the parenthesis at `opening`."""
    arguments, depth = [[]], 0
    for token in tokens[opening:]:
        if token.kind == "sign" and token.text in "([{":
            depth += 1
            if depth == 1:
                continue
        elif token.kind == "sign" and token.text in ")]}":
            depth -= 1
            if depth == 0:
                return arguments
        elif token.kind == "sign" and token.text == "," and depth == 1:
            arguments.append([])
            continue
        arguments[-1].append(token)
    raise Unreadable(f"line {tokens[opening].line}: a parenthesis does not end")


def literals_in(tokens):
    return [unescaped(token.text, token.line) for token in tokens if token.kind == "text"]


def is_called(tokens, index):
    """True when the name at `index` is followed by an opening parenthesis."""
    return index + 1 < len(tokens) and tokens[index + 1].text == "("


def without_outer_blanks(text):
    """The text as a page shows it: byte for byte, but for line ends and blanks at its ends."""
    return text.strip()
