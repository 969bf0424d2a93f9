#!/usr/bin/env python3
"""Runs the fenced ```sh blocks of README.md and docs/*.md from the repository
root against the built program, so that every documented command works as
written.

Usage: run_doc_commands.py SOURCE_DIR BUILD_DIR PYTHON

- Each block runs with `sh -e`, one shell per block, in SOURCE_DIR. The built
  program is first on PATH (so `shadenet` and `build/bin/shadenet` both work
  when BUILD_DIR is SOURCE_DIR/build; `build/bin/` is rewritten to BUILD_DIR/bin/
  otherwise), `python3` is PYTHON and the package is on PYTHONPATH.
- A block whose lines start with "$ " is a transcript: each command runs and
  its output must equal the lines that follow it.
- Skipped on purpose: a block preceded by the line `<!-- no-run -->`; lines
  that run `make` or `cmake` (building is the harness's job, and `make demo`
  or `make test` would rebuild or recurse into this very test); and lines
  that run `build/bin/bench_*` (timed runs that belong to `make bench`).
"""
import os
import re
import subprocess
import sys
import tempfile

SKIPPED_LINE = re.compile(r"^\s*(make\b|cmake\b|build/bin/bench_)")


def blocks(path):
    """(line number, skip marker, lines) of each ```sh block."""
    lines = open(path, encoding="utf-8").read().splitlines()
    found, i = [], 0
    while i < len(lines):
        if lines[i].strip() == "```sh":
            previous = next((l.strip() for l in reversed(lines[:i]) if l.strip()), "")
            start, body = i + 1, []
            i += 1
            while i < len(lines) and lines[i].strip() != "```":
                body.append(lines[i])
                i += 1
            found.append((start, previous == "<!-- no-run -->", body))
        i += 1
    return found


def main():
    source, build, python = sys.argv[1:4]
    tools = tempfile.mkdtemp(prefix="doc-commands-")
    os.symlink(python, os.path.join(tools, "python3"))
    env = dict(os.environ)
    env["PATH"] = os.pathsep.join([tools, os.path.join(build, "bin"), env.get("PATH", "")])
    env["PYTHONPATH"] = os.path.join(build, "python")
    # The commands that make the docs' pictures write them elsewhere: a test
    # run must not change the checkout.
    pictures = tempfile.mkdtemp(prefix="doc-pictures-")
    rewrite = lambda text: text.replace("build/bin/", os.path.join(build, "bin") + "/").replace("docs/images/", pictures + "/")

    docs = [os.path.join(source, "README.md")] + sorted(
        os.path.join(source, "docs", f) for f in os.listdir(os.path.join(source, "docs")) if f.endswith(".md"))
    failures, ran, skipped = [], 0, 0
    for doc in docs:
        name = os.path.relpath(doc, source)
        for line, marked, body in blocks(doc):
            if marked:
                skipped += 1
                continue
            if any(l.startswith("$ ") for l in body):
                steps, command, expected = [], None, []
                for l in body:
                    if l.startswith("$ "):
                        if command:
                            steps.append((command, expected))
                        command, expected = l[2:], []
                    else:
                        expected.append(l)
                steps.append((command, expected))
            else:
                kept = [l for l in body if not SKIPPED_LINE.match(l)]
                skipped += len(body) - len(kept)
                steps = [("\n".join(kept), None)] if any(l.strip() for l in kept) else []
            for command, expected in steps:
                ran += 1
                r = subprocess.run(["sh", "-e", "-c", rewrite(command)], cwd=source, env=env, capture_output=True, text=True)
                where = f"{name}:{line}: {command.splitlines()[0]}"
                if r.returncode != 0:
                    failures.append(f"{where}\n  exit {r.returncode}\n  {r.stderr.strip()}")
                elif expected is not None and r.stdout.rstrip("\n").splitlines() != expected:
                    failures.append(f"{where}\n  expected {expected}\n  got {r.stdout.splitlines()}")
    print(f"{ran} documented commands ran, {skipped} skipped on purpose, {len(failures)} failed")
    for f in failures:
        print(f)
    return 1 if failures or ran == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
