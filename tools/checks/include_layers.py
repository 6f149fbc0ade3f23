#!/usr/bin/env python3
"""Checks the #include graph between the rooms of the code against the layer table below.

Each first-level folder of src/ is one node ("base", "os", ...), src/main.cpp is the node "main",
a file below a room's program/ folder (an executable's wiring) also belongs to "main",
and each first-level folder of tools/ and bench/ is one node ("tools/hive", "bench/migration");
a file directly in tools/ or bench/ belongs to the node "tools" or "bench". An include is
resolved as the compiler resolves it: beside the including file, then below src/, then in the
folders of tools/ (the tools share a builder library). Includes that resolve to none of these
(the system's and third parties' headers) are not part of the graph.

The check fails (exit 1) on any edge the table does not allow and on any cycle between nodes,
listing the edges with one including file each. With --report-only it lists the same and exits 0.

Usage: include_layers.py [--report-only] [ROOT]   (ROOT: the repository, default: this checkout)
"""
import argparse
import pathlib
import re
import sys

# The layers of src/, lowest first. Each room may include only the rooms named for it (and
# itself). A core room "and below" means every core room listed before it plus the portable
# layers; no core room includes os/.
PORTABLE = {"base", "descriptor", "hive", "ports"}
LAYERS = {
    # Text, format and result types, the case table, pure utilities: depends on nothing.
    "base": set(),
    # The security descriptor codec.
    "descriptor": {"base"},
    # The offline registry engine.
    "hive": {"base", "descriptor"},
    # The port interfaces and the process-wide accessors. hive/ only for the plain types of the
    # offline-registry functions (hive/offreg_api.h), which the port's function types name.
    "ports": {"base", "descriptor", "hive"},
    # The adapters (Win32, POSIX): below them only the portable layers; never the core.
    "os": {"base", "descriptor", "hive", "ports"},
    # The core, lowest first. The log: it writes through the ports.
    "log": {"base", "ports"},
    # The shared model of a migration and the process-wide objects the tool names.
    "migration": {"base", "ports", "log"},
    # File security, access lists, privileges, the current user.
    "security": PORTABLE | {"log", "migration"},
    # The configuration file and the run's settings.
    "config": PORTABLE | {"log", "migration"},
    # The registry migration.
    "registry": PORTABLE | {"log", "migration", "security"},
    # The profile migration.
    "profile": PORTABLE | {"log", "migration", "security", "config", "registry"},
    # The run: the command line, the loop over the profiles, the report.
    "run": PORTABLE | {"log", "migration", "security", "config", "registry", "profile"},
    # The companion programs' libraries, above the whole core: the share survey reuses the tool's
    # own rules; the batch plans from the survey and runs the tool as child processes.
    "survey": PORTABLE | {"log", "migration", "security", "config", "registry", "profile", "run"},
    "batch": PORTABLE | {"log", "survey"},
}
SRC_ROOMS = set(LAYERS)
# The program's wiring (src/main.cpp): installs the ports and may use any room.
LAYERS["main"] = set(SRC_ROOMS)
# Tools and benchmarks: any room of src/ except the run (they are not the program), and each
# other's shared pieces (a cycle between them still fails).
OUTSIDE_ALLOWED = SRC_ROOMS - {"run"}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.M)
SOURCES = {".h", ".hpp", ".cpp", ".cc", ".c", ".inc"}


def node_of(root, path):
    rel = path.relative_to(root).parts
    if rel[0] == "src":
        if len(rel) == 2:
            return "main" if rel[1] == "main.cpp" else "src"
        # A room's program/ folder holds an executable's wiring, as src/main.cpp does.
        if len(rel) > 3 and rel[2] == "program":
            return "main"
        return rel[1]
    if rel[0] in ("tools", "bench"):
        return rel[0] if len(rel) == 2 else f"{rel[0]}/{rel[1]}"
    return None


def allowed(source, target):
    if source == target:
        return True
    if source in LAYERS:
        return target in LAYERS[source]
    if source.startswith(("tools", "bench")):
        # Rooms of src/ except run, and other tool or bench nodes.
        return target in OUTSIDE_ALLOWED or target.startswith(("tools", "bench"))
    return False  # a folder of src/ that the table does not know


def source_files(root):
    for top in ("src", "tools", "bench"):
        for path in sorted((root / top).rglob("*")):
            if path.is_file() and path.suffix in SOURCES:
                yield path


def resolve(root, path, name):
    candidates = [path.parent / name, root / "src" / name]
    candidates += [folder / name for folder in sorted((root / "tools").iterdir()) if folder.is_dir()]
    for candidate in candidates:
        if candidate.is_file():
            return candidate
    return None


def edges(root):
    found = {}
    for path in source_files(root):
        source = node_of(root, path)
        text = path.read_text(encoding="utf-8", errors="replace")
        for name in INCLUDE.findall(text):
            target_path = resolve(root, path, name)
            if target_path is None:
                continue
            target = node_of(root, target_path)
            if target is None or target == source:
                continue
            found.setdefault((source, target), str(path.relative_to(root)))
    return found


def cycles(graph_edges):
    """The strongly connected components with more than one node (Tarjan)."""
    graph = {}
    for source, target in graph_edges:
        graph.setdefault(source, set()).add(target)
        graph.setdefault(target, set())
    index, low, stack, on_stack, result = {}, {}, [], set(), []

    def visit(node):
        index[node] = low[node] = len(index)
        stack.append(node)
        on_stack.add(node)
        for nxt in sorted(graph[node]):
            if nxt not in index:
                visit(nxt)
                low[node] = min(low[node], low[nxt])
            elif nxt in on_stack:
                low[node] = min(low[node], index[nxt])
        if low[node] == index[node]:
            component = []
            while True:
                top = stack.pop()
                on_stack.discard(top)
                component.append(top)
                if top == node:
                    break
            if len(component) > 1:
                result.append(sorted(component))

    for node in sorted(graph):
        if node not in index:
            visit(node)
    return result


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--report-only", action="store_true",
                        help="list the violations but exit 0")
    parser.add_argument("root", nargs="?", default=pathlib.Path(__file__).resolve().parents[2])
    args = parser.parse_args()
    root = pathlib.Path(args.root).resolve()

    graph_edges = edges(root)
    bad = sorted((edge, where) for edge, where in graph_edges.items() if not allowed(*edge))
    loops = cycles(graph_edges)
    for (source, target), where in bad:
        print(f"include_layers: {source} -> {target} is against the layers (e.g. {where})")
    for component in loops:
        members = set(component)
        print("include_layers: cycle between " + ", ".join(component) + ":")
        for (source, target), where in sorted(graph_edges.items()):
            if source in members and target in members:
                print(f"  {source} -> {target} ({where})")
    if not bad and not loops:
        print(f"include_layers: {len(graph_edges)} edges between rooms, all along the layers")
        return 0
    return 0 if args.report_only else 1


if __name__ == "__main__":
    sys.exit(main())
