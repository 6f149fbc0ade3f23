"""The rows of a tarnwick-survey --json output that do not depend on the system that read the
share: one line per folder with its name, kind (and reason), files, bytes, the hive states and
each target's name and state, sorted by name. Owners, account names and temporary profiles are
the system's own and left out."""
import json
import sys


def main(path):
    with open(path, encoding="utf-8") as f:
        survey = json.load(f)
    lines = []
    for row in survey["profiles"]:
        targets = ",".join(
            "%s:%s" % (t["path"].split("\\")[-1], t["state"]) for t in row.get("targets", []))
        hive = row.get("hive") or {}
        classes = row.get("usrClass") or {}
        lines.append("|".join(str(x) for x in (
            row["name"], row["kind"], row.get("reason", ""), row.get("files"), row.get("bytes"),
            hive.get("state") if isinstance(hive, dict) else hive,
            classes.get("state") if isinstance(classes, dict) else classes, targets)))
    print("\n".join(sorted(lines)))


if __name__ == "__main__":
    main(sys.argv[1])
