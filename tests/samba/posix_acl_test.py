"""The POSIX ACLs tarnwick sets with a descriptor, judged against a real smbd (smbd_harness.py).

    posix_acl_test.py <tarnwick-store-security>

For each descriptor of a set (owner only, user + group + Everyone, a deny entry, no entry for
the owner, SIDs no account stands for, single rights, inheritable entries on folders, CREATOR
OWNER and CREATOR GROUP, inherit-only and object-only entries, protected DACLs), two objects are made alike in the share:
smbcacls sets the descriptor on one through smbd, and tarnwick stores the very descriptor smbd
stored on the other. Then:
- the mode, "system.posix_acl_access", "system.posix_acl_default" and "user.SAMBA_PAI" of the two
  are byte for byte the same;
- smbd serves tarnwick's descriptor as it is (the descriptor an SMB client reads, NDR-encoded, is
  the same as for smbd's), so its "security.NTACL" hashes are current;
- the kernel grants what the DACL grants: a user with an allow entry (not the owner) reads
  tarnwick's file through SMB, a user without one cannot.
Exit code 77 when it cannot run (not root, Samba missing), as the harness decides.
"""

import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import smbd_harness  # noqa: E402

ATTRIBUTES = ["system.posix_acl_access", "system.posix_acl_default", "user.SAMBA_PAI"]

# name, folder?, the ACL entries smbcacls sets (A: the owner, B: another user, G: the group).
CASES = [
    ("owner-only", False, ["A:ALLOWED/0x0/FULL"]),
    ("user-group-everyone", False,
     ["S-1-1-0:ALLOWED/0x0/READ", "G:ALLOWED/0x0/READ", "A:ALLOWED/0x0/FULL",
      "B:ALLOWED/0x0/READ"]),
    ("deny", False,
     ["B:DENIED/0x0/0x00000002", "S-1-1-0:ALLOWED/0x0/READ", "A:ALLOWED/0x0/FULL"]),
    ("no-owner-entry", False, ["B:ALLOWED/0x0/CHANGE"]),
    ("unmapped", False,
     ["A:ALLOWED/0x0/0x00000001", "B:ALLOWED/0x0/0x00000116", "S-1-5-18:ALLOWED/0x0/FULL",
      "S-1-5-32-544:ALLOWED/0x0/FULL"]),
    ("inherited-entries", False, ["A:ALLOWED/0x10/FULL", "B:ALLOWED/0x10/READ"]),
    ("named-group-and-generic-rights", False,
     ["A:ALLOWED/0x0/0xA0000000", "S-1-22-2-100:ALLOWED/0x0/0x80000000",
      "B:ALLOWED/0x0/0x40000000"]),
    ("single-rights", False,
     ["A:ALLOWED/0x0/0x00000008", "B:ALLOWED/0x0/0x00000004", "S-1-22-2-100:ALLOWED/0x0/0x00000010",
      "S-1-1-0:ALLOWED/0x0/0x00000040"]),
    ("attribute-and-control-rights", False,
     ["A:ALLOWED/0x0/0x00000080", "B:ALLOWED/0x0/0x00000100", "S-1-22-2-100:ALLOWED/0x0/0x00020000",
      "S-1-1-0:ALLOWED/0x0/0x00010000"]),
    ("owner-write-only", False,
     ["A:ALLOWED/0x0/0x00000002", "B:ALLOWED/0x0/0x00000008", "S-1-22-2-100:ALLOWED/0x0/0x00000080"]),
    ("owner-attributes-only", False, ["A:ALLOWED/0x0/0x00000100", "B:ALLOWED/0x0/0x00000001"]),
    ("everyone-denied", False,
     ["S-1-1-0:DENIED/0x0/0x00000002", "A:ALLOWED/0x0/FULL", "B:ALLOWED/0x0/CHANGE"]),
    ("repeated-entries", False,
     ["B:ALLOWED/0x0/0x00000001", "A:ALLOWED/0x0/FULL", "B:ALLOWED/0x0/0x00000020"]),
    ("inheritable", True,
     ["A:ALLOWED/OI|CI/FULL", "S-1-5-18:ALLOWED/OI|CI/FULL", "S-1-5-32-544:ALLOWED/OI|CI/FULL"]),
    ("mixed-inheritance", True,
     ["A:ALLOWED/OI|CI/FULL", "B:ALLOWED/OI|CI/READ", "S-1-1-0:ALLOWED/CI/READ"]),
    ("creator-owner", True, ["S-1-3-0:ALLOWED/OI|CI|IO/FULL", "A:ALLOWED/0x0/FULL"]),
    ("creator-owner-write-only", True,
     ["S-1-3-0:ALLOWED/OI|CI|IO/0x00000002", "A:ALLOWED/0x0/FULL"]),
    ("creator-owner-write-only-mode-555", True,
     ["S-1-3-0:ALLOWED/OI|CI|IO/0x00000002", "A:ALLOWED/0x0/FULL"], 0o555),
    ("inherit-only-user-mode-555", True,
     ["A:ALLOWED/0x0/FULL", "B:ALLOWED/OI|CI|IO/READ"], 0o555),
    ("no-owner-entry-mode-440", False, ["B:ALLOWED/0x0/CHANGE"], 0o440),
    ("owner-reads-what-it-passes-on", True,
     ["A:ALLOWED/OI|CI/READ", "S-1-3-0:ALLOWED/OI|CI|IO/READ"]),
    ("folder-owner-reads", True, ["A:ALLOWED/0x0/READ", "B:ALLOWED/0x0/READ"]),
    ("folder-owner-writes", True, ["A:ALLOWED/0x0/0x00000002", "B:ALLOWED/0x0/0x00000002"]),
    ("creator-group", True, ["S-1-3-1:ALLOWED/OI|CI|IO/READ", "A:ALLOWED/OI|CI/FULL"]),
    ("inherit-only-user", True, ["A:ALLOWED/0x0/FULL", "B:ALLOWED/OI|CI|IO/READ"]),
    ("nothing-inheritable", True, ["A:ALLOWED/0x0/FULL", "B:ALLOWED/0x0/READ"]),
    ("object-inherit-only", True, ["A:ALLOWED/0x0/FULL", "B:ALLOWED/OI/READ"]),
    ("folder-deny", True,
     ["B:DENIED/OI|CI/0x00000002", "B:ALLOWED/OI|CI/READ", "A:ALLOWED/OI|CI/FULL"]),
]

# The same with a control word (protected DACLs), set in SDDL.
SDDL_CASES = [
    ("protected-file", False, "D:PAI(A;;FA;;;{A})(A;;FR;;;{B})"),
    ("protected-folder", True, "D:P(A;OICI;FA;;;{A})(A;OICIIO;FA;;;CO)(A;CI;FR;;;{B})"),
    ("inherited-folder", True, "D:AI(A;OICIID;FA;;;{A})(A;OICIIOID;FX;;;WD)"),
]


class Results:
    def __init__(self):
        self.failures = 0

    def check(self, name, ok, detail=""):
        print(f"{'ok' if ok else 'FAIL'}: {name}" + (f"\n    {detail}" if not ok and detail
                                                       else ""), flush=True)
        if not ok:
            self.failures += 1


def attributes(path):
    st = os.lstat(path)
    values = {"mode": oct(st.st_mode), "uid": st.st_uid, "gid": st.st_gid}
    for name in ATTRIBUTES:
        try:
            values[name] = os.getxattr(path, name, follow_symlinks=False).hex()
        except OSError:
            values[name] = None
    return values


def stored_descriptor_hex(path):
    from samba.dcerpc import xattr
    from samba.ndr import ndr_pack, ndr_unpack
    blob = ndr_unpack(xattr.NTACL, os.getxattr(path, "security.NTACL"))
    info = blob.info
    sd = info.sd if blob.version in (2, 3, 4) and hasattr(info, "sd") else info
    return ndr_pack(sd).hex()


def make_object(path, folder, mode=None):
    if folder:
        os.mkdir(path)
    else:
        with open(path, "w") as out:
            out.write("tarnwick\n")
    os.chmod(path, mode if mode is not None else 0o755 if folder else 0o640)
    os.chown(path, 0, 0)


def main():
    smbd_harness.check_can_run()
    smbd_harness.enter_private_network()
    tool = os.path.abspath(sys.argv[1])
    results = Results()
    share = tempfile.mkdtemp(prefix="tarnwick-posix-acl-")
    os.chmod(share, 0o755)
    try:
        with smbd_harness.SambaServer(shares={"s": share}) as server:
            run(results, server, share, tool)
    finally:
        shutil.rmtree(share, ignore_errors=True)
    print(f"{results.failures} failure(s)")
    return 1 if results.failures else 0


def run(results, server, share, tool):
    root = server.add_root()
    alice = server.add_user("alice")
    bob = server.add_user("bob")
    carol = server.add_user("carol")
    sids = {"A": server.user_sid(alice), "B": server.user_sid(bob), "G": "S-1-22-2-0"}
    env = dict(os.environ, TARNWICK_SMB_CONF=server.conf)

    def served_hex(item):
        """The descriptor smbd serves for item (owner, group, DACL as smbcacls asks for them),
        NDR-encoded in hex: read over one SMB session rather than one smbcacls each."""
        from samba.ndr import ndr_pack
        return ndr_pack(server.served_descriptor(root, "s", item)).hex()

    def compare(name, folder, smbcacls_args, mode=None):
        theirs, ours = f"smbd-{name}", f"ours-{name}"
        for item in (theirs, ours):
            make_object(os.path.join(share, item), folder, mode)
        server.smbcacls(root, "s", theirs, *smbcacls_args)
        stored = stored_descriptor_hex(os.path.join(share, theirs))
        stored_run = subprocess.run([tool, os.path.join(share, ours), stored], env=env,
                                    capture_output=True, text=True)
        results.check(f"{name}: tarnwick stores the descriptor", stored_run.returncode == 0,
                      stored_run.stderr)
        results.check(f"{name}: tarnwick's security.NTACL decodes with Samba's own tools to the "
                      "descriptor smbd stored",
                      stored_descriptor_hex(os.path.join(share, ours)) == stored)
        want, got = attributes(os.path.join(share, theirs)), attributes(os.path.join(share, ours))
        if "--dump" in sys.argv:
            print(f"== {name}\n{want}", flush=True)
        for key in want:
            results.check(f"{name}: {key} as smbd sets it", want[key] == got[key],
                          f"smbd {want[key]}\n    ours {got[key]}")
        served_theirs = served_hex(theirs)
        served_ours = served_hex(ours)
        results.check(f"{name}: smbd serves tarnwick's descriptor as it is",
                      served_theirs == served_ours, f"smbd\n{served_theirs}\n    ours\n{served_ours}")

    for name, folder, entries, *mode in CASES:
        acl = ",".join("ACL:" + sids.get(e.split(":", 1)[0], e.split(":", 1)[0]) + ":" +
                       e.split(":", 1)[1] for e in entries)
        compare(name, folder, ["--set", f"REVISION:1,OWNER:{sids['A']},GROUP:S-1-22-2-0,{acl}"],
                *mode)
    for name, folder, dacl in SDDL_CASES:
        compare(name, folder,
                ["--sddl", "--set", f"O:{sids['A']}G:S-1-22-2-0" + dacl.format(**sids)])

    # The kernel agrees with the DACL for smbd acting as the user.
    def can_read(user, item):
        result = server.smbclient(user, "s", f'get "{item}" /dev/null', check=False)
        return result.returncode == 0 and "NT_STATUS_" not in result.stdout

    results.check("bob (an allow entry) reads tarnwick's file through SMB",
                  can_read(bob, "ours-user-group-everyone"))
    results.check("carol (Everyone's entry) reads tarnwick's file through SMB",
                  can_read(carol, "ours-user-group-everyone"))
    results.check("carol (no entry) cannot read tarnwick's owner-only file",
                  not can_read(carol, "ours-owner-only"))
    results.check("alice (the owner) reads tarnwick's owner-only file",
                  can_read(alice, "ours-owner-only"))


if __name__ == "__main__":
    sys.exit(main())
