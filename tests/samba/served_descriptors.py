"""Shows files of a folder as a Windows client sees them through a real smbd (smbd_harness.py).

    served_descriptors.py <folder> <path>...

The folder becomes the share "t". For each path (relative, "/"-separated) this prints
"== <path>", smbcacls --numeric's lines (as an ordinary user of the server: root is not one, so
its files are owned by S-1-22-1-0 as the server maps unknown accounts), then smbclient
allinfo's "create_time:" (for the first path only) and "attributes:" lines. Exit code 77 when it
cannot run (not root, Samba missing), as the harness decides.
"""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import smbd_harness  # noqa: E402


def main():
    smbd_harness.check_can_run()
    smbd_harness.enter_private_network()
    folder, paths = sys.argv[1], sys.argv[2:]
    with smbd_harness.SambaServer(shares={"t": folder}) as server:
        user = server.add_user("reader")
        for path in paths:
            print(f"== {path}")
            print(server.smbcacls(user, "t", path, "--numeric").stdout.rstrip())
            info = server.smbclient(user, "t", f'allinfo "{path}"').stdout
            for line in info.splitlines():
                wanted = ("attributes:", "create_time:") if path == paths[0] else ("attributes:",)
                if line.startswith(wanted):
                    print(line.strip())
    return 0


if __name__ == "__main__":
    sys.exit(main())
