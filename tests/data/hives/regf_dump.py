#!/usr/bin/python3
"""Test helper over libregf's Python module (pyregf, an independent hive reader).

  regf_dump.py HIVE     print every key and value, one per line, sorted

The lines are those of hive_tool.py dump (names as hex of their UTF-16LE bytes, paths joined
by "5c00"), plus one line per key with its class name:
  K <path>
  C <path> <class hex>
  V <path> <name> <type> <data hex>
"""
import sys

import pyregf


def utf16hex(text):
    return (text or "").encode("utf-16-le", "surrogatepass").hex()


def dump(path):
    f = pyregf.file()
    f.open(path)
    lines = []
    stack = [(f.get_root_key(), "")]
    while stack:
        key, prefix = stack.pop()
        shown = prefix or "-"
        lines.append("K " + shown)
        lines.append("C %s %s" % (shown, utf16hex(key.class_name) or "-"))
        for i in range(key.number_of_values):
            v = key.get_value(i)
            data = v.data or b""
            lines.append("V %s %s %d %s" % (shown, utf16hex(v.name) or "-", v.type,
                                            data.hex() or "-"))
        for i in range(key.number_of_sub_keys):
            child = key.get_sub_key(i)
            name = utf16hex(child.name)
            stack.append((child, prefix + "5c00" + name if prefix else name))
    f.close()
    lines.sort()
    sys.stdout.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    dump(sys.argv[1])
