"""Collects every line that the library can print or log and every text of an exception in it.

A line is a pair: where it appears ("log ERROR", "log INFO", "log DEBUG", "console", "stderr", or
"text" for the text of an exception) and its format as the sources have it.
"""

import pathlib
import re

from cpp_literals import (Unreadable, arguments_at, is_called, literals_in, tokens_of,
                          without_outer_blanks)

# Function: where its line appears, and which argument is the format.
PRINTERS = {
    "LogError": ("log ERROR", 0),
    "LogInfo": ("log INFO", 0),
    "LogDebug": ("log DEBUG", 0),
    "ConsolePrint": ("console", 0),
}
STREAM_PRINTERS = {"fputs": (0, 1), "fprintf": (1, 0)}  # format, stream
STREAMS = {"stdout": "console", "stderr": "stderr"}
# What prints the lines of others: the bodies of the functions above.
PASSES_ON = {"vprintf": "service/console.cpp", "vfprintf": "service/log.cpp"}
FORMATTING = set(PRINTERS) | {"LogWrite", "Add", "Append", "WriteLine"}
# Nothing of the library may print by these, as their lines would not be found.
UNKNOWN_STREAMS = {"cout", "cerr", "clog"}
UNKNOWN_CALLS = {
    "puts", "printf", "putchar", "putc", "fputc", "fwrite_unlocked",
    "perror", "dprintf", "vdprintf", "OutputDebugStringA", "OutputDebugStringW", "WriteConsoleA",
    "WriteConsoleW", "MessageBoxA", "MessageBoxW",
}


def lines_printed(source, name):
    """The lines of one source, whose path below src/ is `name`."""
    tokens = tokens_of(source)
    keepers = {
        after.text
        for token, sign, after in zip(tokens, tokens[1:], tokens[2:])
        if token.text == "ConsoleLines" and sign.text == "&"
    } | {
        after.text for token, after in zip(tokens, tokens[1:])
        if token.text == "ConsoleLines" and after.kind == "name"
    }
    lines = set()
    for index, token in enumerate(tokens):
        if token.kind != "name":
            continue
        here = f"{name}:{token.line}"
        if token.text in UNKNOWN_STREAMS or (token.text in UNKNOWN_CALLS
                                             and is_called(tokens, index)):
            raise Unreadable(f"{here}: {token.text} is a way to print that is not looked into")
        if token.text in PASSES_ON and name != PASSES_ON[token.text]:
            raise Unreadable(f"{here}: only {PASSES_ON[token.text]} may call {token.text}")
        if token.text in STREAMS:
            require_known_use(tokens, index, here)
        if not is_called(tokens, index):
            continue
        arguments = arguments_at(tokens, index + 1)
        if token.text in PRINTERS:
            where, position = PRINTERS[token.text]
            lines |= {(where, text) for text in formats(arguments, position, here)}
        elif token.text == "LogWrite":
            if not is_declaration(arguments[1]):
                raise Unreadable(f"{here}: LogWrite's level is not looked into")
        elif token.text in STREAM_PRINTERS:
            position, stream = STREAM_PRINTERS[token.text]
            where = STREAMS.get(arguments[stream][0].text)
            if where is None:
                raise Unreadable(f"{here}: cannot tell where {token.text} prints")
            lines |= {(where, text) for text in formats(arguments, position, here)}
        elif (token.text == "Add" and index > 1 and tokens[index - 1].text == "."
              and tokens[index - 2].text in keepers):
            lines |= {("console", text) for text in formats(arguments, 0, here)}
    # The console's keeper prints what was added to it, through this format.
    lines.discard(("console", "%s") if name == "service/console.cpp" else None)
    return lines


def require_known_use(tokens, index, here):
    for back in range(index, max(index - 60, 0), -1):
        if tokens[back].text in set(STREAM_PRINTERS) | {"fflush"}:
            return
        if tokens[back].text in ";{}":
            break
    raise Unreadable(f"{here}: {tokens[index].text} is used in a way that is not looked into")


def is_declaration(argument):
    words = [token.text for token in argument]
    return words[:2] == ["const", "char"]


def formats(arguments, position, here):
    if len(arguments) <= position:
        raise Unreadable(f"{here}: a line without a format")
    if is_declaration(arguments[position]):
        return set()
    texts = literals_in(arguments[position])
    if not texts:
        raise Unreadable(f"{here}: a line whose format is no literal")
    return {without_outer_blanks(text) for text in texts}


def formatting_functions(source):
    """The functions that the compiler is told to check like printf."""
    return set(re.findall(r"(\w+)\([^;{}]*?\)\s*__attribute__\(\(format\(printf", source))


def texts_thrown(source, name, defaults):
    """The texts of the exceptions that a source throws. `defaults` has those of exceptions that
    are thrown without one."""
    tokens = tokens_of(source)
    texts = set()
    for index, token in enumerate(tokens):
        if token.text != "throw" or index + 1 >= len(tokens):
            continue
        opening = index + 1
        while tokens[opening].kind == "name" or tokens[opening].text == ":":
            opening += 1
        if opening == index + 1 or tokens[opening].text != "(":
            continue  # passes on, or says what a function throws
        here = f"{name}:{token.line}"
        kind = tokens[opening - 1].text
        arguments = arguments_at(tokens, opening)
        found = literals_in(arguments[0])
        if not found and not arguments[0]:
            if kind not in defaults:
                raise Unreadable(f"{here}: the text of {kind} is not known")
            found = [defaults[kind]]
        elif not found:
            found = texts_passed_for(tokens, arguments[0][0].text)
        if not found:
            raise Unreadable(f"{here}: an exception whose text is not found")
        texts |= {("text", without_outer_blanks(text)) for text in found}
    return texts


def texts_passed_for(tokens, parameter):
    """The literals that are passed to the functions of a file whose only parameter this is."""
    names = {
        tokens[index - 5].text for index in range(5, len(tokens))
        if [token.text for token in tokens[index - 4:index + 1]]
        == ["(", "const", "char", "*", parameter]
    }
    texts = []
    for index, token in enumerate(tokens):
        if token.text in names and is_called(tokens, index):
            texts += literals_in(arguments_at(tokens, index + 1)[0])
    return texts


def default_texts(headers):
    """Exception class: the text that it has by itself."""
    pattern = re.compile(
        r"class\s+(\w+)\s*:\s*public\s+Exception\s*\{(?:(?!class\s).)*?"
        r"const\s+char\s*\*\s*w\s*=\s*\"([^\"]*)\"", re.S)
    return {name: text for header in headers for name, text in pattern.findall(header)}


# Thrown by the C++ runtime, which is no source of ours: memory that cannot be had.
RUNTIME_TEXTS = {("text", "std::bad_alloc")}


def lines_of_library(source_folder, osc_folder):
    """Everything below src/, and the texts that the OSC library throws when it reads or writes."""
    source_folder, osc_folder = pathlib.Path(source_folder), pathlib.Path(osc_folder)
    osc = {name: (osc_folder / name).read_text(encoding="latin-1") for name in (
        "OscReceivedElements.h", "OscReceivedElements.cpp", "OscOutboundPacketStream.h",
        "OscOutboundPacketStream.cpp")}
    defaults = default_texts(osc.values())
    lines = set(RUNTIME_TEXTS)
    for name, text in osc.items():
        lines |= texts_thrown(text, name, defaults)
    paths = sorted(path for path in source_folder.rglob("*") if path.suffix in (".h", ".cpp"))
    if not paths:
        raise Unreadable(f"no sources in {source_folder}")
    for path in paths:
        text = path.read_text(encoding="utf-8")
        name = path.relative_to(source_folder).as_posix()
        unknown = formatting_functions(text) - FORMATTING
        if unknown:
            raise Unreadable(f"{name}: {', '.join(sorted(unknown))} may print in an unknown way")
        lines |= lines_printed(text, name) | texts_thrown(text, name, defaults)
    return lines
