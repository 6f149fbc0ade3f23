#!/usr/bin/python3
"""Test helper over the Debian hivex Python module (an independent hive reader and writer).

  hive_tool.py build START OUT SCENARIO   write a new hive made from START (the minimal hive)
  hive_tool.py dump HIVE                  print every key and value, one per line, sorted

Scenarios: "types" (every value type, an unknown type, empty and 1- to 4-byte values, a
100,000-byte value, non-ASCII names), "wide" (a key with 5,000 sub keys), "deep" (512 levels).

Dump lines, with names as hex of their UTF-16LE bytes and paths joined by "5c00" ("\\"):
  K <path>
  V <path> <name> <type> <data hex>
"""
import sys

import hivex


def utf16hex(text):
    return text.encode("utf-16-le", "surrogatepass").hex()


def value(name, kind, data):
    return {"key": name, "t": kind, "value": data}


def sz(text):
    return (text + "\0").encode("utf-16-le")


def build(start, out, scenario):
    h = hivex.Hivex(start, write=True)
    root = h.root()
    if scenario == "types":
        key = h.node_add_child(root, "Types")
        values = [
            value("none", 0, b""),
            value("sz", 1, sz("hello")),
            value("expand", 2, sz("%USERPROFILE%\\Desktop")),
            value("binary", 3, bytes(range(256)) * 2),
            value("dword", 4, (0x12345678).to_bytes(4, "little")),
            value("dwordbe", 5, (0x12345678).to_bytes(4, "big")),
            value("link", 6, "\\Registry\\Machine\\Software".encode("utf-16-le")),
            value("multi", 7, "one\0two\0\0".encode("utf-16-le")),
            value("resource", 8, b"\x01\x02\x03\x04\x05\x06\x07\x08"),
            value("full", 9, b"\x09" * 9),
            value("requirements", 10, b"\x0a" * 10),
            value("qword", 11, (0x1122334455667788).to_bytes(8, "little")),
            value("unknown", 0x12345, b"custom"),
            value("empty", 3, b""),
            value("one", 3, b"\x01"),
            value("two", 3, b"\x01\x02"),
            value("three", 3, b"\x01\x02\x03"),
            value("four", 3, b"\x01\x02\x03\x04"),
            value("big", 3, bytes((i * 7) & 0xFF for i in range(100000))),
            value("", 1, sz("default")),
            value("caf\u00e9 \u65e5\u672c", 1, sz("\u00fcml\u00e4ut \u20ac")),
        ]
        h.node_set_values(key, values)
        h.node_add_child(key, "\u00c4rger")
        h.node_add_child(key, "\u65e5\u672c\u8a9e")
        h.node_add_child(key, "\u0416\u0443\u043a")
    elif scenario == "wide":
        key = h.node_add_child(root, "Wide")
        for i in range(5000):
            child = h.node_add_child(key, "Sub%05d" % i)
            if i % 1000 == 0:
                h.node_set_value(child, value("n", 4, i.to_bytes(4, "little")))
    elif scenario == "deep":
        key = root
        for i in range(512):
            key = h.node_add_child(key, "L%03d" % i)
        h.node_set_value(key, value("bottom", 1, sz("deepest")))
    else:
        raise SystemExit("unknown scenario " + scenario)
    h.commit(out)


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
    if sys.argv[1] == "build":
        build(sys.argv[2], sys.argv[3], sys.argv[4])
    elif sys.argv[1] == "dump":
        dump(sys.argv[2])
    else:
        raise SystemExit(__doc__)
