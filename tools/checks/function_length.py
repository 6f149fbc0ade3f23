#!/usr/bin/env python3
"""Lists every function body in the given folders that is longer than a limit.

A function is a definition whose head ends in "{" (or whose "{" stands alone on the next line)
and whose closing "}" is the first later line with the same indentation. The count runs from
the head's first line to the closing brace, both included. The code is clang-formatted, so
indentation is a faithful guide. Lambdas inside a function count toward that function.

Usage: function_length.py [--max N] DIR...   (exit 1 when any function is longer)
"""
import argparse
import pathlib
import re
import sys

CONTROL = re.compile(r"^\s*(if|for|while|switch|catch|do|else|return|namespace|class|struct|enum|union)\b")
HEAD_END = re.compile(r"\)\s*(const)?\s*(noexcept(\([^)]*\))?)?\s*(override)?\s*(final)?\s*(->\s*[^{]+)?\s*(:\s.*)?\{\s*$")


def indent(line):
    return len(line) - len(line.lstrip(" "))


def functions(path):
    lines = path.read_text(encoding="utf-8", errors="replace").splitlines()
    i = 0
    while i < len(lines):
        line = lines[i]
        stripped = line.strip()
        if stripped and not CONTROL.match(line) and not stripped.startswith(("//", "#", "[", "}")) \
                and "=" not in stripped.split("(")[0] and HEAD_END.search(line):
            # The head may start on earlier lines (wrapped parameters): walk back to its first line.
            start = i
            while start > 0:
                prev = lines[start - 1]
                if not prev.strip() or prev.rstrip().endswith((";", "{", "}")) \
                        or prev.lstrip().startswith(("//", "#", "template", "public:", "private:", "protected:")):
                    break
                start -= 1
            depth = indent(lines[start])
            end = i + 1
            closing = " " * depth + "}"
            while end < len(lines) and not (lines[end].startswith(closing) and indent(lines[end]) == depth):
                end += 1
            if end < len(lines):
                name = re.sub(r"\s+", " ", " ".join(l.strip() for l in lines[start:i + 1]))
                yield start + 1, end - start + 1, name.split("(")[0].split(" ")[-1]
                i = end
        i += 1


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--max", type=int, default=60)
    parser.add_argument("dirs", nargs="+")
    args = parser.parse_args()
    long_ones = []
    for folder in args.dirs:
        for path in sorted(pathlib.Path(folder).rglob("*")):
            if path.suffix in (".cpp", ".h", ".cc", ".hpp"):
                for line, length, name in functions(path):
                    if length > args.max:
                        long_ones.append((length, f"{path}:{line}", name))
    for length, where, name in sorted(long_ones, reverse=True):
        print(f"{length:5} {where} {name}")
    if long_ones:
        print(f"{len(long_ones)} functions are longer than {args.max} lines", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
