#!/usr/bin/python3
"""Writes the .reg file (UTF-8, the form `hivexregedit --merge` reads) of the scenarios the
hive tests build with hivexregedit, all under the prefix HKEY_LOCAL_MACHINE\\SOFTWARE:

  Types   every value type REG_NONE (0) to REG_QWORD (11) and an unknown type (0x12345), empty
          and 1- to 4-byte values, a 100,000-byte value, the default value, non-ASCII value
          names, and sub keys with non-ASCII names
  Wide    a key with 5,000 sub keys (every 1,000th with a REG_DWORD "n")
  Deep000 512 levels of nested keys (Deep000\\Deep001\\...\\Deep511) starting at the root,
          the deepest with a REG_SZ "bottom" (deeper than 512 levels, reglookup stops)

  reg_scenarios.py OUT.reg
"""
import sys

PREFIX = "HKEY_LOCAL_MACHINE\\SOFTWARE"


def hexdata(kind, data):
    return "hex(%x):%s" % (kind, ",".join("%02x" % b for b in data))


def quoted(name):
    return '"' + name.replace("\\", "\\\\").replace('"', '\\"') + '"'


def sz(text):
    return (text + "\0").encode("utf-16-le")


def main(out):
    lines = ["Windows Registry Editor Version 5.00", ""]

    def key(path, values=()):
        lines.append("[%s\\%s]" % (PREFIX, path))
        for name, text in values:
            lines.append(("@" if name is None else quoted(name)) + "=" + text)
        lines.append("")

    key("Types", [
        (None, '"default"'),
        ("none", hexdata(0, b"")),
        ("sz", '"hello"'),
        ("expand", hexdata(2, sz("%USERPROFILE%\\Desktop"))),
        ("binary", "hex:" + ",".join("%02x" % (i & 0xFF) for i in range(512))),
        ("dword", "dword:12345678"),
        ("dwordbe", hexdata(5, (0x12345678).to_bytes(4, "big"))),
        ("link", hexdata(6, "\\Registry\\Machine\\Software".encode("utf-16-le"))),
        ("multi", hexdata(7, "one\0two\0\0".encode("utf-16-le"))),
        ("resource", hexdata(8, bytes(range(1, 9)))),
        ("full", hexdata(9, b"\x09" * 9)),
        ("requirements", hexdata(10, b"\x0a" * 10)),
        ("qword", hexdata(11, (0x1122334455667788).to_bytes(8, "little"))),
        ("unknown", hexdata(0x12345, b"custom")),
        ("empty", "hex:"),
        ("one", "hex:01"),
        ("two", "hex:01,02"),
        ("three", "hex:01,02,03"),
        ("four", "hex:01,02,03,04"),
        ("big", "hex:" + ",".join("%02x" % ((i * 7) & 0xFF) for i in range(100000))),
        ("caf\u00e9 \u65e5\u672c", hexdata(1, sz("\u00fcml\u00e4ut \u20ac"))),
        ("back\\slash", '"x"'),
    ])
    for name in ("\u00c4rger", "\u65e5\u672c\u8a9e", "\u0416\u0443\u043a"):
        key("Types\\" + name)

    key("Wide")
    for i in range(5000):
        values = [("n", "dword:%08x" % i)] if i % 1000 == 0 else []
        key("Wide\\Sub%05d" % i, values)

    path = ""
    for i in range(512):
        path += ("\\" if path else "") + "Deep%03d" % i
        key(path, [("bottom", '"deepest"')] if i == 511 else [])

    with open(out, "w", encoding="utf-8", newline="\n") as f:
        f.write("\n".join(lines))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    main(sys.argv[1])
