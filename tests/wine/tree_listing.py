#!/usr/bin/env python3
"""Lists a folder tree for comparing two migrations: one line per entry, sorted by path.

  tree_listing.py FOLDER

"D path" a folder, "L path -> target" a symbolic link, "F path sha256" a file, and for a registry
hive (a file starting with "regf") "H path" followed by its keys and values as read with hivex:
"  key\\path" and "    name type data-hex" lines. Times, security and attributes are left out.
"""
import hashlib
import os
import sys

import hivex


def hive_lines(path):
    h = hivex.Hivex(path)
    lines = []

    def walk(node, name):
        lines.append("  " + name)
        values = []
        for v in h.node_values(node):
            t, data = h.value_value(v)
            values.append("    %s %d %s" % (h.value_key(v), t, data.hex()))
        lines.extend(sorted(values))
        children = sorted(h.node_children(node), key=lambda c: h.node_name(c).lower())
        for child in children:
            walk(child, name + "\\" + h.node_name(child))

    walk(h.root(), "")
    return lines


def main():
    root = sys.argv[1]
    if not os.path.isdir(root):
        print("missing folder")
        return
    entries = []
    for folder, dirs, files in os.walk(root):
        for name in dirs + files:
            full = os.path.join(folder, name)
            entries.append((os.path.relpath(full, root), full))
    for rel, full in sorted(entries):
        if os.path.islink(full):
            print("L %s -> %s" % (rel, os.readlink(full)))
        elif os.path.isdir(full):
            print("D " + rel)
        else:
            with open(full, "rb") as f:
                data = f.read()
            if data[:4] == b"regf":
                print("H " + rel)
                for line in hive_lines(full):
                    print(line)
            else:
                print("F %s %s" % (rel, hashlib.sha256(data).hexdigest()))


main()
