#!/usr/bin/env python3
"""The folders are the layers: an #include may point down, never up.

Each folder of the program has a layer (below); a file may include headers
of its own folder and of folders in lower layers. Folders in the same layer
are independent of each other. Fails naming each include that points up or
sideways, and each folder that has no layer yet.

Usage: layers.py SOURCE_ROOT
"""
import pathlib
import re

from structure_check import report, run

# Lowest first. A folder not listed (a new subsystem) must be given a place.
LAYERS = [
    ["core/support"],
    ["core/startup"],
    ["core/config"],
    ["core/launchd"],
    ["core/discovery", "core/reachability", "core/apps"],
    ["core/takeover", "core/gate"],
    ["app", "platform/macos", "tools/demo"],
    ["app/desktop"],
]
RANK = {folder: rank for rank, folders in enumerate(LAYERS) for folder in folders}
SCANNED = ("core", "app", "platform", "tools")
INCLUDE = re.compile(r'^\s*#\s*(?:include|import)\s+"((?:core|app|platform|tools)/[^"]+)"', re.M)


def folder_of(relative):
    """The layered folder a path belongs to: app/desktop/widgets is part of
    app/desktop, and so on."""
    parts = pathlib.PurePosixPath(relative).parts[:-1]
    for length in range(len(parts), 0, -1):
        candidate = "/".join(parts[:length])
        if candidate in RANK:
            return candidate
    return "/".join(parts)


def main(root):
    failures = []
    files = 0
    for top in SCANNED:
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in (".h", ".cpp", ".mm", ".cc") or not path.is_file():
                continue
            files += 1
            relative = path.relative_to(root).as_posix()
            source = folder_of(relative)
            if source not in RANK:
                failures.append(f"{relative}: its folder {source} has no layer (add it to LAYERS in {__file__})")
                continue
            for number, line in enumerate(path.read_text(errors="replace").splitlines(), 1):
                match = INCLUDE.match(line)
                if not match:
                    continue
                target = folder_of(match.group(1))
                if target == source:
                    continue
                if target not in RANK:
                    failures.append(f"{relative}:{number}: includes {match.group(1)}, whose folder has no layer")
                elif RANK[target] >= RANK[source]:
                    way = "up" if RANK[target] > RANK[source] else "sideways"
                    failures.append(f"{relative}:{number}: {source} includes {match.group(1)} ({way}: "
                                    f"{target} is not below {source})")
    return report(failures, f"layers: {files} files, {len(failures)} include(s) against the layers")


if __name__ == "__main__":
    run(main, __doc__)
