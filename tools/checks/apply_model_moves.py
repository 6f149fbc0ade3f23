#!/usr/bin/env python3
"""Brings a tree along with the moves of the model room (tools/checks/model_moves.txt).

  apply_model_moves.py            git mv every old path that still exists, then rewrite the
                                  include lines that name an old path
  apply_model_moves.py --resolve  after a merge: resolve every conflict hunk of a C++ file that
                                  holds only include lines (both sides and their base rewritten
                                  by every tools/checks/*_moves.txt): what either side added is
                                  kept, what either side removed goes; drop a repeated include;
                                  clang-format and `git add` the files done

Hunks with anything but include lines are left for a person, and listed. The model room holds
the offline-registry binding only by a forward declaration: an include of it is dropped there.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
INCLUDE = re.compile(r'^(\s*#\s*include\s+")([^"]+)(".*)$')
HUNK = re.compile(r"<<<<<<< [^\n]*\n(.*?)\|\|\|\|\|\|\| [^\n]*\n(.*?)=======\n(.*?)>>>>>>> [^\n]*\n",
                  re.S)
CPP = (".h", ".hpp", ".cpp", ".cc", ".c")


def git(*args):
    return subprocess.run(["git", *args], cwd=ROOT, check=True, capture_output=True,
                          text=True).stdout


def mapping(files):
    pairs = {}
    for f in files:
        for line in f.read_text().splitlines():
            if line.strip() and not line.startswith("#"):
                old, new = line.split()
                pairs[old] = new
    # Include lines name paths below src/ (and tests/ for the test helpers).
    return {re.sub(r"^(src|tests)/", "", o): re.sub(r"^(src|tests)/", "", n)
            for o, n in pairs.items()}


def moved(include, paths):
    """The include's new path: an exact entry, else the longest moved folder it lies in."""
    if include in paths:
        return paths[include]
    for old in sorted(paths, key=len, reverse=True):
        if include.startswith(old + "/"):
            return paths[old] + include[len(old):]
    return include


def rewrite(text, paths, path):
    out, seen = [], set()
    for line in text.splitlines(keepends=True):
        m = INCLUDE.match(line)
        if m:
            target = moved(m.group(2), paths)
            if path.startswith("src/migration/") and target.endswith("/offreg_wrapper.h"):
                continue
            if target in seen:
                continue
            seen.add(target)
            line = m.group(1) + target + m.group(3) + ("\n" if line.endswith("\n") else "")
        out.append(line)
    return "".join(out)


def resolve_hunks(text, path, left, paths):
    def key(line):
        m = INCLUDE.match(line)
        return moved(m.group(2), paths)

    def merge(m):
        ours, base, theirs = (m.group(i).splitlines(keepends=True) for i in (1, 2, 3))
        if any(l.strip() and not INCLUDE.match(l) for l in ours + base + theirs):
            left.append(path)
            return m.group(0)
        o, b, t = ({key(l) for l in side if l.strip()} for side in (ours, base, theirs))
        removed = {k for k in b if k not in o or k not in t}
        return "".join(l for l in ours + theirs if l.strip() and key(l) not in removed)
    return HUNK.sub(merge, text)


def main():
    own = ROOT / "tools/checks/model_moves.txt"
    if "--resolve" in sys.argv[1:]:
        paths = mapping(sorted((ROOT / "tools/checks").glob("*_moves.txt")))
        conflicted = [p for p in git("diff", "--name-only", "--diff-filter=U").splitlines()
                      if p.endswith(CPP)]
        left, done = [], []
        for p in conflicted:
            git("checkout", "--conflict=diff3", "--", p)  # the hunks with their base
            f = ROOT / p
            text = rewrite(resolve_hunks(f.read_text(), p, left, paths), paths, p)
            f.write_text(text)
            if p not in left:
                done.append(p)
        if done:
            subprocess.run(["clang-format", "-i", *done], cwd=ROOT, check=True)
            git("add", *done)
        print(f"resolved {len(done)} files" + (f"; left for a person: {sorted(set(left))}"
                                               if left else ""))
        return 1 if left else 0
    paths = mapping([own])
    for line in own.read_text().splitlines():
        if line.strip() and not line.startswith("#"):
            old, new = line.split()
            if (ROOT / old).is_file():
                (ROOT / new).parent.mkdir(parents=True, exist_ok=True)
                git("mv", old, new)
    tracked = [p for p in git("ls-files", "src", "tests", "tools", "bench").splitlines()
               if p.endswith(CPP)]
    changed = []
    for p in tracked:
        f = ROOT / p
        text = f.read_text()
        new = "".join(
            (lambda m: m.group(1) + paths.get(m.group(2), m.group(2)) + m.group(3) + "\n")(m)
            if (m := INCLUDE.match(l.rstrip("\n"))) else l
            for l in text.splitlines(keepends=True))
        if new != text:
            f.write_text(new)
            changed.append(p)
    if changed:
        subprocess.run(["clang-format", "-i", *changed], cwd=ROOT, check=True)
    print(f"rewrote includes in {len(changed)} files")
    return 0


if __name__ == "__main__":
    sys.exit(main())
