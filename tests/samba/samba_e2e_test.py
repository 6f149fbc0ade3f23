#!/usr/bin/python3
"""tarnwick on a Samba file server, judged through a real smbd as a Windows client sees it.

    samba_e2e_test.py TARNWICK SAMPLE_SHARE_TOOL [--keep] [--verbose]

A user uploads a V1 and a V5 profile with smbclient into a share served with acl_xattr; she gives
her profile folders a protected DACL (herself, SYSTEM, Administrators, inheritable) with
smbcacls; one file of each gets an explicit extra entry; the share root holds a CREATOR OWNER
entry; some items get DOS attributes. tarnwick then migrates both profiles on the server (V1 to
V2, V5 to V6), with the share map taken from the test's smb.conf (TARNWICK_SMB_CONF). Then,
through smbd:
- every copied item has the source's owner, DACL control flags and DACL in its order, and the
  source's DOS attributes; every copied file the source's creation and write times;
- every item created without explicit security (default profile items, the saved ntuser.dat)
  has the entries Windows' inheritance gives it from its parent, and the source's owner;
- the user can list, read and write her new profiles and open their ntuser.dat; another user
  cannot list them;
- the source profiles are unchanged;
- the security.NTACL blobs written decode with Samba's own NDR code, and smbd serves exactly
  the descriptor they hold.
Exit status: 0 all passed, 1 a check failed, 77 skipped (not root, or tools missing; under
CI=true that is a failure instead).
"""

import os
import re
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import smbd_harness as harness  # noqa: E402

OI, CI, NP, IO, ID = 0x1, 0x2, 0x4, 0x8, 0x10
FULL = 0x001F01FF
READ = 0x001200A9
# Control bits of the DACL: protected, auto-inherited, auto-inherit request, defaulted, present.
DACL_CONTROL = 0x1000 | 0x0400 | 0x0100 | 0x0008 | 0x0004
CREATOR_OWNER, CREATOR_GROUP = "S-1-3-0", "S-1-3-1"
SHARE = "profiles"


class Results:
    def __init__(self):
        self.failed = []
        self.passed = 0

    def check(self, name, ok, detail=""):
        if ok:
            self.passed += 1
            print(f"PASS {name}", flush=True)
        else:
            self.failed.append(name)
            print(f"FAIL {name}" + (f"\n     {detail}" if detail else ""), flush=True)
        return ok

    def items(self, name, problems, kinds):
        """One check over many items (kinds: relative path -> is a folder): passes when no item
        had a problem; problems are (relative path, text)."""
        bad = sorted({rel for rel, _ in problems})
        folders = sum(1 for rel in bad if kinds.get(rel, False))
        lines = [f"{len(bad)} of {len(kinds)} items wrong ({folders} folders, "
                 f"{len(bad) - folders} files)"]
        # Some of the folders' problems and some of the files' (all with --verbose).
        limit = len(problems) if "--verbose" in sys.argv else 4
        shown = ([p for p in problems if kinds.get(p[0], False)][:limit] +
                 [p for p in problems if not kinds.get(p[0], False)][:limit])
        lines += [f"{rel or '(the profile folder)'}: {text}" for rel, text in shown]
        if len(problems) > len(shown):
            lines.append(f"... and {len(problems) - len(shown)} more")
        return self.check(f"{name} ({len(kinds)} items)", not problems, "\n     ".join(lines))


# -- what smbd shows

def parse_smbcacls(text):
    """smbcacls --numeric output: control, owner, group and the entries in their order."""
    sd = {"control": None, "owner": None, "group": None, "aces": []}
    for line in text.splitlines():
        if line.startswith("CONTROL:"):
            sd["control"] = int(line[8:], 16)
        elif line.startswith("OWNER:"):
            sd["owner"] = line[6:]
        elif line.startswith("GROUP:"):
            sd["group"] = line[6:]
        elif line.startswith("ACL:"):
            _, sid, rest = line.split(":", 2)
            kind, flags, mask = rest.split("/")
            sd["aces"].append((int(kind), int(flags, 16), int(mask, 16), sid))
    return sd


def format_aces(aces):
    return "[" + ", ".join(f"{sid}:{kind}/0x{flags:x}/0x{mask:08x}"
                           for kind, flags, mask, sid in aces) + "]"


def served_sd(server, user, path):
    """The descriptor of a share-relative path as smbd serves it to user, in parse_smbcacls's
    form (control, owner, group, entries in their order), or {"error": ...}."""
    try:
        sd = server.served_descriptor(user, SHARE, path)
    except Exception as error:  # noqa: BLE001 - any failure to read it is the finding
        return {"error": str(error)}
    return {"control": sd.type,
            "owner": str(sd.owner_sid) if sd.owner_sid else None,
            "group": str(sd.group_sid) if sd.group_sid else None,
            "aces": [(a.type, a.flags, a.access_mask, str(a.trustee))
                     for a in (sd.dacl.aces if sd.dacl else [])]}


def query_acls(server, user, paths):
    """The descriptors of share-relative paths as smbd serves them to user (one SMB session for
    all of them)."""
    return {path: served_sd(server, user, path) for path in paths}


ALLINFO_FIELDS = ("create_time", "write_time", "attributes")


def parse_allinfo(out):
    """The records of smbclient allinfo output, one per item, in order."""
    records = []
    for line in out.splitlines():
        if line.startswith("altname:"):
            records.append({})
        elif records and ":" in line:
            key, value = line.split(":", 1)
            if key in ALLINFO_FIELDS:
                records[-1][key] = value.strip()
    return records


def query_infos(server, user, paths):
    """create_time, write_time and attributes of share-relative paths (smbclient allinfo)."""
    infos = {}
    for start in range(0, len(paths), 40):
        batch = paths[start:start + 40]
        commands = "; ".join(f'allinfo "{p}"' for p in batch)
        records = parse_allinfo(server.smbclient(user, SHARE, commands, check=False).stdout)
        if len(records) != len(batch):  # an item failed: ask one by one
            records = []
            for p in batch:
                out = server.smbclient(user, SHARE, f'allinfo "{p}"', check=False).stdout
                one = parse_allinfo(out)
                records.append(one[0] if len(one) == 1 else {"error": out.strip()})
        infos.update(zip(batch, records))
    return infos


def tree(folder):
    """Relative paths below folder ("" for itself) and whether each is a folder."""
    items = {"": True}
    for parent, dirs, files in os.walk(folder):
        rel = os.path.relpath(parent, folder)
        rel = "" if rel == "." else rel
        for d in dirs:
            items[os.path.join(rel, d)] = True
        for f in files:
            items[os.path.join(rel, f)] = False
    return dict(sorted(items.items()))


def share_path(profile, rel):
    return (profile + "/" + rel if rel else profile).replace("/", "\\")


# -- Windows' inheritance, for the expected descriptors of items made without security

def inherited_aces(parent_aces, is_folder, owner, group):
    """The entries an object created in a folder with parent_aces receives, as Windows gives
    them: object and container inherit, inherit-only, no-propagate, CREATOR OWNER and CREATOR
    GROUP substitution, each inherited entry marked INHERITED_ACE."""
    out = []
    for kind, flags, mask, sid in parent_aces:
        if is_folder:
            if flags & CI:
                new = ID if flags & NP else (flags & (OI | CI)) | ID
            elif flags & OI and not flags & NP:
                new = OI | IO | ID
            else:
                continue
        else:
            if not flags & OI:
                continue
            new = ID
        creator = {CREATOR_OWNER: owner, CREATOR_GROUP: group}.get(sid)
        if creator is None:
            out.append((kind, new, mask, sid))
        elif new & IO:
            out.append((kind, new, mask, sid))
        elif new & (OI | CI):
            out.append((kind, ID, mask, creator))
            out.append((kind, new | IO, mask, sid))
        else:
            out.append((kind, ID, mask, creator))
    return out


# -- the run

def main():
    if len(sys.argv) < 3:
        print(__doc__)
        return 2
    tarnwick, sample_tool = os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2])
    harness.check_can_run()
    harness.enter_private_network()
    started = time.monotonic()
    results = Results()
    work = tempfile.mkdtemp(prefix="tarnwick-samba-e2e-")
    os.chmod(work, 0o755)
    try:
        run(results, work, tarnwick, sample_tool)
    finally:
        if "--keep" not in sys.argv:
            subprocess.run(["rm", "-rf", work])
    print(f"\n{results.passed} passed, {len(results.failed)} failed "
          f"in {time.monotonic() - started:.1f} s", flush=True)
    for name in results.failed:
        print(f"  failed: {name}")
    return 1 if results.failed else 0


def run(results, work, tarnwick, sample_tool):
    sample = os.path.join(work, "sample")
    subprocess.run([sample_tool, sample], check=True, capture_output=True)
    share = os.path.join(work, "share")
    os.mkdir(share, 0o777)
    os.chmod(share, 0o777)
    with harness.SambaServer({SHARE: share}) as server:
        prepare_and_check(results, server, share, sample, work, tarnwick)


def prepare_and_check(results, server, share, sample, work, tarnwick):
    root = server.add_root()
    alice = server.add_user("alice")
    mallory = server.add_user("mallory")
    alice_sid = server.user_sid(alice)

    # The share root as an administrator sets up a profile share: CREATOR OWNER full control
    # below, everyone may create their folder.
    server.smbcacls(root, SHARE, "", "--sddl", "--set",
                    "D:PAIAR(A;OICI;0x1f01ff;;;SY)(A;OICI;0x1f01ff;;;BA)"
                    "(A;OICIIO;0x1f01ff;;;CO)(A;;0x1200ad;;;WD)")

    v1, v5 = alice, alice + ".V5"
    profile_dacl = (f"D:PAIAR(A;OICI;0x1f01ff;;;{alice_sid})(A;OICI;0x1f01ff;;;SY)"
                    f"(A;OICI;0x1f01ff;;;BA)")
    layouts = {v1: "alice", v5: "frank.V5"}
    extra = {v1: "My Documents/letter.txt", v5: "Documents/letter.txt"}
    attributes = {
        v1: {"Local Settings": "+h", "Application Data": "+h", "notes.txt": "+r",
             "Scripts/logon.cmd": "+hs", "ntuser.dat": "+h"},
        v5: {"AppData": "+h", "Documents/letter.txt": "+r", "Scripts/logon.cmd": "+hs",
             "ntuser.dat": "+h"},
    }
    for profile, layout in layouts.items():
        # The user makes her profile folder and gives it a protected DACL, then writes it.
        server.smbclient(alice, SHARE, f'mkdir "{profile}"')
        server.smbcacls(alice, SHARE, profile, "--sddl", "--set", profile_dacl)
        server.smbclient(alice, SHARE, f'recurse ON; prompt OFF; lcd "{sample}/share/{layout}"; '
                                       f'cd "{profile}"; mput *')
        server.smbclient(alice, SHARE, "; ".join(
            f'setmode "{share_path(profile, rel)}" {mode}'
            for rel, mode in attributes[profile].items()))
        # One file with an explicit entry before its inherited ones, as a Windows client writes
        # it.
        server.smbcacls(alice, SHARE, share_path(profile, extra[profile]), "--sddl", "--set",
                        f"D:AIAR(A;;0x1200a9;;;BO)(A;ID;0x1f01ff;;;SY)(A;ID;0x1f01ff;;;BA)"
                        f"(A;ID;0x1f01ff;;;{alice_sid})")

    sources = {p: tree(os.path.join(share, p)) for p in layouts}
    source_paths = [share_path(p, rel) for p, items in sources.items() for rel in items]
    before_acls = query_acls(server, root, source_paths)
    before_infos = query_infos(server, root, source_paths)
    results.check("the uploaded source profiles are readable through smbd",
                  all("error" not in v for v in before_acls.values()) and
                  all("error" not in v for v in before_infos.values()))
    # The session's answers are what smbcacls shows (checked on the folder and the file whose
    # descriptors the users set with smbcacls).
    for path in (v1, share_path(v1, extra[v1])):
        shown = parse_smbcacls(server.smbcacls(root, SHARE, path, "--numeric").stdout)
        results.check(f"smbcacls shows the descriptor the SMB session reads for {path}",
                      shown == before_acls[path], f"{shown} != {before_acls[path]}")
    results.check("the explicit extra entry is on the source file",
                  before_acls[share_path(v1, extra[v1])]["aces"][0] == (0, 0, READ, "S-1-5-32-551"),
                  format_aces(before_acls[share_path(v1, extra[v1])]["aces"]))

    # tarnwick on the server, the share map from the test's smb.conf.
    env = {k: v for k, v in os.environ.items() if k != "TARNWICK_SHARES"}
    env.update(TARNWICK_SMB_CONF=server.conf,
               TARNWICK_PROFILE_ROOT=os.path.join(work, "profile-root"))
    runs = {v1: ([f"/s:\\\\{harness.SERVER_NAME}\\{SHARE}\\{v1}"], alice + ".V2"),
            v5: ([f"/s:\\\\{harness.SERVER_NAME.lower()}\\{SHARE}\\{v5}", "/V5TOV6"],
                 alice + ".V6")}
    targets = {}
    for profile, (args, target) in runs.items():
        result = subprocess.run([tarnwick] + args, env=env, capture_output=True, text=True,
                                cwd=work, timeout=120)
        results.check(f"tarnwick migrates {profile} to {target} on the server",
                      result.returncode == 0 and
                      "1 profiles were migrated" in result.stdout and
                      os.path.isdir(os.path.join(share, target)),
                      f"exit {result.returncode}\n{result.stdout[-1500:]}{result.stderr[-1500:]}")
        if os.path.isdir(os.path.join(share, target)):
            targets[profile] = target

    default_profile = os.path.join(os.path.dirname(tarnwick), "default-profile")
    default_files = {rel for rel, is_folder in tree(default_profile).items() if not is_folder}
    for profile, target in targets.items():
        check_target(results, server, root, share, profile, target, sources[profile],
                     before_acls, before_infos, default_files, alice_sid)
    for target in targets.values():
        check_access(results, server, alice, mallory, target, work)

    after_acls = query_acls(server, root, source_paths)
    after_infos = query_infos(server, root, source_paths)
    changed = [(p, f"{before_acls[p]} -> {after_acls[p]}") for p in source_paths
               if before_acls[p] != after_acls[p]]
    changed += [(p, f"{before_infos[p]} -> {after_infos[p]}") for p in source_paths
                if before_infos[p] != after_infos[p]]
    kinds = {share_path(p, rel): is_folder for p, items in sources.items()
             for rel, is_folder in items.items()}
    results.items("the source profiles seen through smbd are unchanged", changed, kinds)

    # The worked example of the README: the source folder and file with the extra entry, and
    # their migrated copies, as smbcacls shows them with names.
    if v1 in targets:
        print("\n== smbcacls of a source and its migrated target")
        for path in (v1, share_path(v1, extra[v1]), targets[v1],
                     share_path(targets[v1], extra[v1])):
            print(f"$ smbcacls //FS01/{SHARE} '{path}'")
            print(server.smbcacls(root, SHARE, path, check=False).stdout)


def check_target(results, server, root, share, profile, target, source_items, source_acls,
                 source_infos, default_files, alice_sid):
    items = tree(os.path.join(share, target))
    paths = [share_path(target, rel) for rel in items]
    acls = query_acls(server, root, paths)
    infos = query_infos(server, root, paths)
    source_root = source_acls[share_path(profile, "")]
    copied, created = [], []
    for rel, is_folder in items.items():
        made_here = rel not in source_items or (not is_folder and rel in default_files) or \
            rel.lower() == "ntuser.dat"
        (created if made_here else copied).append((rel, is_folder))

    problems = []
    for rel, _ in copied:
        src, dst = source_acls[share_path(profile, rel)], acls[share_path(target, rel)]
        if "error" in dst:
            problems.append((rel, f"{dst['error']}"))
            continue
        if dst["owner"] != src["owner"]:
            problems.append((rel, f"owner {dst['owner']}, source {src['owner']}"))
        if dst["control"] & DACL_CONTROL != src["control"] & DACL_CONTROL:
            problems.append((rel, f"control 0x{dst['control']:04x}, source 0x{src['control']:04x}"))
        if dst["aces"] != src["aces"]:
            problems.append((rel, f"DACL {format_aces(dst['aces'])}\n"
                            f"       source {format_aces(src['aces'])}"))
    results.items(f"{target}: copied items carry the source's owner, DACL control and DACL",
                  problems, dict(copied))

    # Attributes of every copied item; creation and write times of every copied file. A
    # folder's own times are carried only for the folders the second pass copies, not for the
    # special folders or the profile folder, which cannot be told apart from outside.
    problems = []
    for rel, is_folder in copied:
        if not rel:
            continue
        src, dst = source_infos[share_path(profile, rel)], infos[share_path(target, rel)]
        for field in ALLINFO_FIELDS if not is_folder else ("attributes",):
            if src.get(field) != dst.get(field):
                problems.append((rel, f"{field} {dst.get(field)!r}, source {src.get(field)!r}"))
    results.items(f"{target}: copied items show the source's DOS attributes, files also its "
                  f"creation and write times", problems,
                  {rel: is_folder for rel, is_folder in copied if rel})

    problems = []
    for rel, is_folder in created:
        dst = acls[share_path(target, rel)]
        parent = acls.get(share_path(target, os.path.dirname(rel)))
        if "error" in dst or parent is None or "error" in parent:
            problems.append((rel, f"{dst.get('error', 'no parent descriptor')}"))
            continue
        expected = inherited_aces(parent["aces"], is_folder, source_root["owner"], dst["group"])
        if dst["owner"] != source_root["owner"]:
            problems.append((rel, f"owner {dst['owner']}, expected {source_root['owner']}"))
        if dst["control"] & DACL_CONTROL != 0x0404:
            problems.append((rel, f"control 0x{dst['control']:04x}, expected DI and DP only"))
        if dst["aces"] != expected:
            problems.append((rel, f"DACL {format_aces(dst['aces'])}\n"
                            f"       expected {format_aces(expected)}"))
    results.items(f"{target}: items made without explicit security inherit as on Windows",
                  problems, dict(created))

    check_blobs(results, share, target, items, acls)


def check_blobs(results, share, target, items, acls):
    from samba.dcerpc import xattr
    from samba.ndr import ndr_unpack
    problems, versions = [], set()
    for rel in items:
        path = os.path.join(share, target, rel)
        try:
            blob = os.getxattr(path, "security.NTACL", follow_symlinks=False)
        except OSError as error:
            problems.append((rel, f"no security.NTACL ({error.strerror})"))
            continue
        try:
            ntacl = ndr_unpack(xattr.NTACL, blob)
        except Exception as error:  # noqa: BLE001 - any decoding failure is the finding
            problems.append((rel, f"security.NTACL does not decode: {error}"))
            continue
        versions.add(ntacl.version)
        sd = ntacl.info.sd if ntacl.version != 1 else ntacl.info
        stored = {
            "control": sd.type,
            "owner": str(sd.owner_sid) if sd.owner_sid else None,
            "aces": [(a.type, a.flags, a.access_mask, str(a.trustee))
                     for a in (sd.dacl.aces if sd.dacl else [])],
        }
        served = acls[share_path(target, rel)]
        for key, value in stored.items():
            if served.get(key) != value:
                problems.append((rel, f"smbd serves {key} {served.get(key)}, the blob holds {value}"))
    results.items(f"{target}: security.NTACL decodes with Samba's NDR code and smbd serves it "
                  f"as it is (versions {sorted(versions)})", problems, items)


def check_access(results, server, alice, mallory, target, work):
    listing = server.smbclient(alice, SHARE, f'ls "{target}\\*"', check=False)
    results.check(f"{alice} lists {target} over SMB",
                  listing.returncode == 0 and "NT_STATUS" not in listing.stdout
                  and "ntuser.dat" in listing.stdout.lower(), listing.stdout + listing.stderr)
    hive = os.path.join(work, f"{target}-ntuser.dat")
    note = os.path.join(work, "note.txt")
    with open(note, "w") as f:
        f.write("written over SMB\n")
    session = server.smbclient(
        alice, SHARE, f'get "{target}\\ntuser.dat" "{hive}"; put "{note}" "{target}\\note.txt"; '
                      f'get "{target}\\note.txt" "{note}.back"; del "{target}\\note.txt"',
        check=False)
    head = b""
    if os.path.exists(hive):
        with open(hive, "rb") as f:
            head = f.read(4)
    results.check(f"{alice} opens {target}\\ntuser.dat over SMB (a hive)",
                  head == b"regf", session.stdout + session.stderr)
    results.check(f"{alice} writes, reads back and deletes a file in {target} over SMB",
                  session.returncode == 0 and "NT_STATUS" not in session.stdout and
                  os.path.exists(note + ".back"), session.stdout + session.stderr)
    denied = server.smbclient(mallory, SHARE, f'ls "{target}\\*"', check=False)
    results.check(f"another user cannot list {target}",
                  re.search(r"NT_STATUS_ACCESS_DENIED", denied.stdout + denied.stderr) is not None,
                  denied.stdout + denied.stderr)


if __name__ == "__main__":
    sys.exit(main())
