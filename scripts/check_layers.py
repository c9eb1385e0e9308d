#!/usr/bin/env python3
"""Fails when a lower layer includes a higher one, or a public header includes an internal one.

Layers, lowest first: platform; ziploom; renderer; the Frameloom subsystems files, actor, cache and
player (each may include only what its line below allows). A file's layer is the folder it lives in:
include/frameloom/<layer>/... or src/<layer>/... (src/frameloom/<subsystem>/... for the
subsystems). Public headers are included as <frameloom/<layer>/...>, internal ones as "<layer>/...".
"""
import pathlib
import re
import sys

ALLOWED = {
    "platform": {"platform"},
    "ziploom": {"platform", "ziploom"},
    "renderer": {"platform", "ziploom", "renderer"},
    "files": {"platform", "ziploom", "renderer", "files"},
    "actor": {"platform", "renderer", "files", "actor"},
    "cache": {"platform", "cache"},
    "player": {"platform", "renderer", "files", "actor", "cache", "player"},
    # The version header stands alone; anything may include it.
    "version": {"version"},
}
SUBSYSTEMS = {"files", "actor", "cache", "player"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.MULTILINE)


def layer_of_path(parts):
    """The layer of a path given as parts below include/frameloom or src."""
    if parts == ["Version.h"] or parts == ["frameloom", "Version.cpp"]:
        return "version"
    if parts[0] == "frameloom" and len(parts) > 2:
        parts = parts[1:]
    if parts[0] in ALLOWED or parts[0] in SUBSYSTEMS:
        return parts[0]
    return None


def layer_of_include(kind, name, including_file):
    parts = name.split("/")
    if kind == "<":
        if parts[0] != "frameloom":
            return None  # a system or third-party header
        return layer_of_path(parts[1:])
    if len(parts) == 1:
        return layer_of_file(including_file.parent / name)
    return layer_of_path(parts)


def layer_of_file(path):
    parts = list(path.parts)
    if parts[:2] == ["include", "frameloom"]:
        return layer_of_path(parts[2:])
    if parts[0] == "src":
        return layer_of_path(parts[1:])
    return None


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    faults = []
    for folder in ("include", "src"):
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            relative = path.relative_to(root)
            layer = layer_of_file(relative)
            if layer is None:
                faults.append(f"{relative}: not inside a layer's folder")
                continue
            for kind, name in INCLUDE.findall(path.read_text()):
                target = layer_of_include(kind, name, relative)
                if target is None:
                    continue
                if target not in ALLOWED[layer] and target != "version":
                    faults.append(f"{relative}: layer {layer} includes {name} of layer {target}")
                if folder == "include" and kind == '"':
                    faults.append(f"{relative}: public header includes internal header {name}")
    for fault in faults:
        print(fault)
    if faults:
        print(f"{len(faults)} layering faults")
        return 1
    print("layers: every include points down")
    return 0


if __name__ == "__main__":
    sys.exit(main())
