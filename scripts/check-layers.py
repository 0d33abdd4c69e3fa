#!/usr/bin/env python3
"""Holds every #include in src/ and tools/ to the layer graph the build declares.

A layer is a folder of src/ with one library, glinta_<folder>, whose target_link_libraries in the
folder's CMakeLists.txt name the layers it may use. A file may include headers of its own layer and of
those layers only, and Linux-only headers (POSIX, QtDBus) only in a *_linux file. Exits 1 on a breach.
"""
import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
src = root / "src"

link_re = re.compile(r"target_link_libraries\(\s*(glinta_\w+)([^)]*)\)", re.S)
include_re = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
linux_only = re.compile(r"^(unistd\.h|fcntl\.h|csignal|signal\.h|sys/.*|linux/.*|QDBus\w*|QtDBus/.*)$")


def layer_uses(cmake_file):
    uses = {}
    for target, args in link_re.findall(cmake_file.read_text()):
        uses.setdefault(target, set()).update(re.findall(r"glinta_(\w+)", args))
    return uses


def main():
    layers = {d.name for d in src.iterdir() if (d / "CMakeLists.txt").exists()}
    allowed = {}
    for name in layers:
        uses = layer_uses(src / name / "CMakeLists.txt").get("glinta_" + name)
        if uses is None:
            print(f"src/{name}: no target_link_libraries(glinta_{name} ...)")
            return 1
        allowed[name] = {name} | (uses & layers)
    # Tools sit on top, with what their CMakeLists.txt links.
    for tool in (root / "tools").iterdir():
        if (tool / "CMakeLists.txt").exists():
            uses = set().union(*layer_uses(tool / "CMakeLists.txt").values() or [set()])
            allowed["tools/" + tool.name] = uses & layers

    # A cycle would let a layer reach one above it.
    def reaches(start, goal, seen=()):
        return any(u == goal or (u not in seen and reaches(u, goal, seen + (u,)))
                   for u in allowed[start] - {start})
    breaches = [f"layer {name} can reach itself through its links" for name in layers if reaches(name, name)]

    files = [p for p in src.rglob("*") if p.suffix in (".h", ".cpp", ".mm")]
    files += [p for p in (root / "tools").rglob("*") if p.suffix in (".h", ".cpp")]
    for path in sorted(files):
        rel = path.relative_to(root)
        owner = rel.parts[1] if rel.parts[0] == "src" else "tools/" + rel.parts[1]
        for kind, header in include_re.findall(path.read_text()):
            if kind == "<":
                if linux_only.match(header) and not path.stem.endswith("_linux"):
                    breaches.append(f"{rel}: <{header}> is Linux-only; it belongs in a *_linux file")
                continue
            if "/" not in header:
                if not (path.parent / header).exists() and not header.endswith((".moc", "Values.h")):
                    breaches.append(f'{rel}: "{header}" must be included from src/ ("layer/{header}")')
                continue
            layer = header.split("/")[0]
            if layer in layers and layer not in allowed[owner]:
                breaches.append(f'{rel}: "{header}" is in layer {layer}, which {owner} may not use')
    for breach in breaches:
        print(breach)
    if breaches:
        print(f"{len(breaches)} include(s) break the layers (src/CMakeLists.txt lists them)")
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main())
