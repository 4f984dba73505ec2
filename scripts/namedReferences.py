#!/usr/bin/env python3
"""Writes content/namedReferences.inc from Python's copy of the table in the HTML standard, section 13.5."""
import html.entities
import pathlib

WIDTH = 116
TARGET = pathlib.Path(__file__).resolve().parent.parent / "content/namedReferences.inc"


def filled(words):
    lines = [""]
    for word in words:
        if len(lines[-1]) + len(word) + 3 > WIDTH:
            lines.append("")
        lines[-1] += word + " "
    return "".join(f'"{line}"\n' for line in lines)


def main():
    table = html.entities.html5
    values = sorted((name[:-1], value) for name, value in table.items() if name.endswith(";"))
    bare = sorted(name for name in table if not name.endswith(";"))
    assert all(table[name] == table[name + ";"] for name in bare)
    bare = set(bare)
    words = [f"{name}{':' if name in bare else '='}{','.join(f'{ord(c):x}' for c in value)}" for name, value in values]
    TARGET.write_text("/* Made by scripts/namedReferences.py: NAME=HEX or NAME=HEX,HEX, sorted, a blank behind each; with\n"
                      "   \":\" for \"=\" those that count without their \";\" too. */\n" + filled(words))


main()
