#!/usr/bin/python3
"""Builds the seed corpus of the hive fuzz target from the test hives.

  make_hive_seeds.py OUT_FOLDER SOURCE_FOLDER...

Every file of the source folders (searched to any depth) becomes a seed as it is, transaction
logs included; a hive with logs beside it ("<name>.LOG1", "<name>.LOG2", any case) also becomes
one container of fuzz_input.h holding the hive and its logs. NOTICE and script files are skipped.
"""
import os
import struct
import sys

SIGNATURE = b"TWHL"
NO_FILE = 0xFFFFFFFF


def container(hive, log1, log2):
    parts = [hive, log1, log2]
    lengths = [NO_FILE if p is None else len(p) for p in parts]
    return SIGNATURE + struct.pack("<3I", *lengths) + b"".join(p for p in parts if p is not None)


def read(path):
    with open(path, "rb") as f:
        return f.read()


def is_log(name):
    return name.upper().endswith((".LOG1", ".LOG2"))


def seeds(source):
    for folder, _, names in sorted(os.walk(source)):
        by_upper = {n.upper(): n for n in names}
        for name in sorted(names):
            if name.endswith((".md", ".py")):
                continue
            path = os.path.join(folder, name)
            label = os.path.relpath(path, source).replace(os.sep, "_")
            yield label, read(path)
            if is_log(name):
                continue
            logs = [by_upper.get((name + suffix).upper()) for suffix in (".LOG1", ".LOG2")]
            if any(logs):
                data = [None if n is None else read(os.path.join(folder, n)) for n in logs]
                yield label + ".with-logs", container(read(path), data[0], data[1])


def main():
    if len(sys.argv) < 3:
        raise SystemExit(__doc__)
    out = sys.argv[1]
    os.makedirs(out, exist_ok=True)
    count = 0
    for source in sys.argv[2:]:
        for label, data in seeds(source):
            with open(os.path.join(out, label), "wb") as f:
                f.write(data)
            count += 1
    print("%d seeds in %s" % (count, out))


if __name__ == "__main__":
    main()
