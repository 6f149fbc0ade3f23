#!/usr/bin/python3
"""Test helper over the Debian hivex Python module (an independent hive reader and writer).

  hive_tool.py dump HIVE                  print every key and value, one per line, sorted

Dump lines, with names as hex of their UTF-16LE bytes and paths joined by "5c00" ("\\"):
  K <path>
  V <path> <name> <type> <data hex>
"""
import sys

import hivex


def utf16hex(text):
    return text.encode("utf-16-le", "surrogatepass").hex()


def dump(path):
    h = hivex.Hivex(path)
    lines = []
    stack = [(h.root(), "")]
    while stack:
        node, prefix = stack.pop()
        lines.append("K " + (prefix or "-"))
        for v in h.node_values(node):
            kind, data = h.value_value(v)
            lines.append("V %s %s %d %s" % (prefix or "-", utf16hex(h.value_key(v)) or "-", kind,
                                            data.hex() or "-"))
        for child in h.node_children(node):
            name = utf16hex(h.node_name(child))
            stack.append((child, prefix + "5c00" + name if prefix else name))
    lines.sort()
    sys.stdout.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    if sys.argv[1] == "dump":
        dump(sys.argv[2])
    else:
        raise SystemExit(__doc__)
