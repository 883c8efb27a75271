"""Every message that the library can write into its trace log stands in the masking's table.

formats_test.py ROOT
"""

import re
import sys
from pathlib import Path

ROOT = Path(sys.argv[1])
WRITERS = re.compile(r"\b(?:[A-Z_0-9]*TRACE[A-Z_0-9]*|replace_text)\(")
STRING = re.compile(r'"((?:[^"\\]|\\.)*)"')


def arguments(text, start):
    """What stands between the parenthesis that ends at start and its closing one."""
    depth, at, in_string = 1, start, False
    while depth:
        if in_string:
            at += 2 if text[at] == "\\" else 1
            in_string = text[at - 1] != '"' or text[at - 2] == "\\"
            continue
        in_string = text[at] == '"'
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        at += 1
    return text[start:at - 1]


def without_feeds(literal):
    return re.sub(r"(?<!\\)(?:\\n)+$", "", literal)


def library_formats():
    """Yields each format; adjacent literals are one. A call may choose between several."""
    for source in sorted((ROOT / "src").rglob("*.cpp")):
        text = re.sub(r"^\s*#define (?:.*\\\n)*.*\n", "\n", source.read_text(encoding="utf-8"), flags=re.M)
        for call in WRITERS.finditer(text):
            literals = STRING.findall(re.sub(r'"\s*"', "", arguments(text, call.end())))
            literals = [literal for literal in literals if not re.fullmatch(r"\w+", literal)]
            for literal in literals:
                if "%" in literal and literal != "%s":
                    yield source.name, without_feeds(literal)


def table():
    text = (ROOT / "tools" / "masking" / "trace_lines.cpp").read_text(encoding="utf-8")
    joined = re.sub(r'"\s*"', "", text)
    return set(re.findall(r'TraceLine\{\s*"((?:[^"\\]|\\.)*)"', joined))


def main():
    formats, known = list(library_formats()), table()
    missing = [(name, text) for name, text in formats if text not in known]
    for name, text in missing:
        print(f"{name}: not in tools/masking/trace_lines.cpp: {text}", file=sys.stderr)
    print(f"{len(formats)} messages, {len(known)} formats")
    sys.exit(1 if missing or len(formats) < 290 else 0)


main()
