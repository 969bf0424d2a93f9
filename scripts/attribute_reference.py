#!/usr/bin/env python3
"""Writes the attribute reference of docs/scene-format.md (between its
attribute-reference markers) from `shadenet nodes TYPE --json`, that is from
the notes kept beside the classes. With --check it only compares and fails
when the document is out of date.

Usage: scripts/attribute_reference.py [--check] [PROGRAM] [DOCUMENT]
"""
import json
import subprocess
import sys

START, END = "<!-- attribute-reference:start -->", "<!-- attribute-reference:end -->"

# Each family: a title, its types, and groups of them whose shared
# attributes are told once.
FAMILIES = [
    ("Lights", ["pointLight", "directionalLight", "spotLight", "areaLight", "ambientLight"],
     [["pointLight", "directionalLight", "spotLight", "areaLight", "ambientLight"], ["pointLight", "directionalLight", "spotLight", "areaLight"]]),
    ("Materials", ["lambert", "blinn", "phong", "phongE", "anisotropic", "rampShader"],
     [["lambert", "blinn", "phong", "phongE", "anisotropic", "rampShader"], ["lambert", "blinn", "phong", "phongE", "anisotropic"],
      ["blinn", "phong", "phongE", "anisotropic", "rampShader"]]),
    ("2D textures", ["checker", "grid", "bulge", "cloth", "fractal", "noise", "mountain", "ramp", "stencil", "water", "ocean"],
     [["checker", "grid", "bulge", "cloth", "fractal", "noise", "mountain", "ramp", "stencil", "water", "ocean"]]),
    ("Placement, transforms and cameras", ["place2dTexture", "place3dTexture", "transform", "camera"], []),
]


UNNOTED = []  # (type, attribute) a scene file can set that has no note


def attributes(program, type_name):
    listing = subprocess.run([program, "nodes", type_name, "--json"], capture_output=True, text=True, check=True).stdout
    found = [a for a in json.loads(listing)["attributes"] if not a["parent"]]
    UNNOTED.extend((type_name, a["long"]) for a in found
                   if a["description"] == "-" and "storable" in a["flags"] and "hidden" not in a["flags"])
    return [a for a in found if a["description"] != "-"]


def key(a):
    return (a["long"], a["description"], a["unit"], a["range"])


def row(a):
    if a["default"] == "by type":
        default = "by type"
    else:
        default = json.dumps(a["default"], separators=(", ", ": ")) if a["default"] is not None else "-"
        if len(default) > 40:
            default = "(see `nodes`)"
    unit = "" if a["unit"] == "-" else a["unit"]
    value_range = "" if a["range"] == "-" else a["range"]
    return f"| `{a['long']}` | {unit} | {value_range} | {default} | {a['description']} |"


def table(rows):
    # Attributes kept only so that files from elsewhere load intact go on one line.
    stored = [a["long"] for a in rows if a["description"].startswith("Stored")]
    rows = [a for a in rows if not a["description"].startswith("Stored")]
    lines = []
    if rows:
        lines += ["| Attribute | Unit | Range | Default | Meaning |", "|---|---|---|---|---|"] + [row(a) for a in rows]
    if stored:
        lines += ["", "Stored but not read by the reference renderer: " + ", ".join(f"`{s}`" for s in stored) + "."]
    return lines


def reference(program):
    out = []
    for title, types, groups in FAMILIES:
        out.append(f"### {title}\n")
        per = {t: attributes(program, t) for t in types}
        shown = set()
        # Attributes shared by a group of types are told once, before each type's own.
        for group in groups:
            rows = [dict(a) for a in per[group[0]]
                    if key(a) not in shown and all(any(key(b) == key(a) for b in per[t]) for t in group[1:])]
            for a in rows:
                if len({json.dumps(b["default"]) for t in group for b in per[t] if key(b) == key(a)}) > 1:
                    a["default"] = "by type"
            if not rows:
                continue
            out.append("Every one of " + ", ".join(f"`{t}`" for t in group) + ":\n")
            out += table(rows) + [""]
            shown |= {key(a) for a in rows}
        for t in types:
            rest = [a for a in per[t] if key(a) not in shown]
            if rest:
                out.append(f"`{t}`" + (" adds:" if groups else ":") + "\n")
                out += table(rest) + [""]
    return "\n".join(out).rstrip("\n") + "\n"


def main(argv):
    check = "--check" in argv
    args = [a for a in argv if a != "--check"]
    program = args[0] if args else "build/bin/shadenet"
    document = args[1] if len(args) > 1 else "docs/scene-format.md"
    text = open(document, encoding="utf-8").read()
    head, rest = text.split(START + "\n", 1)
    _, tail = rest.split(END, 1)
    updated = head + START + "\n" + reference(program) + END + tail
    for type_name, attribute in UNNOTED:
        print(f"{type_name}.{attribute}: a scene file can set it but it has no note")
    if check:
        if UNNOTED:
            return 1
        if updated != text:
            print(f"{document}: the attribute reference is out of date; run scripts/attribute_reference.py")
            return 1
        return 0
    open(document, "w", encoding="utf-8").write(updated)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
