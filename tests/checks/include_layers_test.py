#!/usr/bin/env python3
"""Tests of tools/checks/include_layers.py over small made-up trees."""
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "tools" / "checks" / "include_layers.py"


def run(files, *options):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for top in ("src", "tools", "bench"):
            (root / top).mkdir()
        for name, text in files.items():
            path = root / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        done = subprocess.run([sys.executable, str(SCRIPT), *options, str(root)],
                              capture_output=True, text=True, check=False)
        return done.returncode, done.stdout


class IncludeLayersTest(unittest.TestCase):
    def test_edges_along_the_layers_pass(self):
        code, out = run({
            "src/base/a.h": "",
            "src/ports/p.h": '#include "base/a.h"\n#include <vector>\n',
            "src/os/posix/files/f.cpp": '#include "ports/p.h"\n#include "os/posix/g.h"\n',
            "src/os/posix/g.h": "",
            "src/run/r.cpp": '#include "ports/p.h"\n',
            "src/main.cpp": '#include "run/r.h"\n#include "os/posix/g.h"\n',
            "tools/tool/main.cpp": '#include "local.h"\n#include "ports/p.h"\n',
            "tools/tool/local.h": "",
        })
        self.assertEqual(code, 0, out)
        self.assertIn("all along the layers", out)

    def test_an_edge_against_the_layers_fails_and_is_named(self):
        code, out = run({
            "src/log/l.h": "",
            "src/os/posix/x.cpp": '#include "log/l.h"\n',
        })
        self.assertEqual(code, 1)
        self.assertIn("os -> log is against the layers (e.g. src/os/posix/x.cpp)", out)

    def test_a_cycle_fails_with_its_edges(self):
        code, out = run({
            "src/profile/p.h": '#include "registry/r.h"\n',
            "src/registry/r.h": '#include "profile/p.h"\n',
        })
        self.assertEqual(code, 1)
        self.assertIn("cycle between profile, registry", out)
        self.assertIn("profile -> registry (src/profile/p.h)", out)

    def test_tools_may_not_include_the_run_or_an_unknown_room(self):
        code, out = run({
            "src/run/r.h": "",
            "src/platform/q.h": "",
            "bench/b.cpp": '#include "run/r.h"\n',
            "src/base/a.cpp": '#include "platform/q.h"\n',
        })
        self.assertEqual(code, 1)
        self.assertIn("bench -> run", out)
        self.assertIn("base -> platform", out)

    def test_report_only_lists_but_passes(self):
        code, out = run({"src/log/l.h": "", "src/os/x.cpp": '#include "log/l.h"\n'},
                        "--report-only")
        self.assertEqual(code, 0)
        self.assertIn("os -> log", out)


if __name__ == "__main__":
    unittest.main()
