#!/usr/bin/env python3
"""Makes the link stubs that the cross-build links against, from the tables in MacOS/stubs.

A table names one library of the system and what of it we use:

    # a comment
    install-name /usr/lib/libExample.dylib
    version 12.1 1          current and compatibility version
    symbol _example         a C symbol, with its leading underscore
    class NSExample         an Objective-C class

The linker refuses whatever no table names, so the tables are the complete list of what the product takes from
the system. The folder that is written looks like an SDK's: usr/lib/*.tbd and
System/Library/Frameworks/*.framework/*.tbd.
"""
import pathlib
import sys

TARGETS = "[ arm64-macos, x86_64-macos ]"
KEYWORDS = {"symbol": 1, "class": 1, "install-name": 1, "version": 2}


class Table:
    """One library: its install name, versions, symbols and classes."""

    def __init__(self, path):
        self.name = path.stem
        self.install_name = None
        self.versions = ("1", "1")
        self.entries = {"symbol": [], "class": []}
        for number, line in enumerate(path.read_text().splitlines(), 1):
            words = line.split("#")[0].split()
            if not words:
                continue
            keyword, values = words[0], words[1:]
            if KEYWORDS.get(keyword) != len(values):
                raise SystemExit(f"{path.name}:{number}: not understood: {line}")
            if keyword == "install-name":
                self.install_name = values[0]
            elif keyword == "version":
                self.versions = tuple(values)
            elif values[0] in self.entries[keyword]:
                raise SystemExit(f"{path.name}:{number}: {values[0]} is listed twice")
            else:
                self.entries[keyword].append(values[0])
        if not self.install_name:
            raise SystemExit(f"{path.name}: no install-name")

    def symbols(self):
        """Every name that the linker may bind to this library."""
        names = list(self.entries["symbol"])
        for class_name in self.entries["class"]:
            names += [f"_OBJC_CLASS_$_{class_name}", f"_OBJC_METACLASS_$_{class_name}"]
        return names

    def unused(self, used):
        """The entries that none of the used symbols belongs to."""
        classes = [name for name in self.entries["class"] if f"_OBJC_CLASS_$_{name}" not in used]
        return classes + [name for name in self.entries["symbol"] if name not in used]

    def place(self):
        """Where an SDK keeps the stub of this library."""
        if ".framework/" in self.install_name:
            return f"System/Library/Frameworks/{self.name}.framework/{self.name}.tbd"
        return f"usr/lib/{self.name}.tbd"

    def stub(self):
        lines = ["--- !tapi-tbd", "tbd-version: 4", f"targets: {TARGETS}",
                 f"install-name: '{self.install_name}'",
                 f"current-version: {self.versions[0]}", f"compatibility-version: {self.versions[1]}",
                 "exports:", f"  - targets: {TARGETS}"]
        for keyword, key in (("symbol", "symbols"), ("class", "objc-classes")):
            if self.entries[keyword]:
                names = ", ".join(f"'{name}'" for name in sorted(self.entries[keyword]))
                lines.append(f"    {key}: [ {names} ]")
        return "\n".join(lines + ["...", ""])


def read_tables(folder):
    return [Table(path) for path in sorted(pathlib.Path(folder).glob("*.txt"))]


def main(tables, sdk):
    for table in read_tables(tables):
        path = pathlib.Path(sdk) / table.place()
        path.parent.mkdir(parents=True, exist_ok=True)
        text = table.stub()
        # An unchanged stub keeps its time, so that nothing is linked again for it.
        if not path.exists() or path.read_text() != text:
            path.write_text(text)


if __name__ == "__main__":
    main(*sys.argv[1:])
