#!/usr/bin/env python3
"""Thread-safety gate: clang's -Wthread-safety over the product sources, with the compile flags of
a configured host build (its compile_commands.json).

  check-thread-safety.py BUILD_DIR                  every impl/*.cpp compiles clean
  check-thread-safety.py BUILD_DIR --without FILE:FUNCTION[:N] ...
        for each: a copy of impl/FILE without the Nth lock (default the first) of FUNCTION, in
        BUILD_DIR/thread-safety/, must fail with a thread-safety diagnostic
  check-thread-safety.py BUILD_DIR --every-lock     the same for every lock of impl/, with the share
                                                    that fails

A lock is a line that constructs a Mutex::Autolock or calls lock() or unlock().
"""
import json
import os
import re
import shlex
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
IMPL = os.path.join(ROOT, "impl")
LOCK = re.compile(r"Mutex::Autolock\s+\w+\(|\.lock\(\)|\.unlock\(\)")
# A function definition starts at column 0 with a type and a qualified or plain name.
DEFINITION = re.compile(r"^[A-Za-z].*?\b(?:\w+::)*(~?\w+)\(")


def compile_flags(build, source):
    """The build's compile command of `source`, for clang, checking syntax only."""
    with open(os.path.join(build, "compile_commands.json")) as f:
        entries = json.load(f)
    for entry in entries:
        if os.path.realpath(entry["file"]) == os.path.realpath(source):
            args = entry.get("arguments") or shlex.split(entry["command"])
            break
    else:
        sys.exit(f"check-thread-safety: {source} is not in {build}/compile_commands.json")
    flags, skip = [], False
    for arg in args[1:]:
        if skip:
            skip = False
        elif arg in ("-o", "-c"):
            skip = True
        elif arg != source and not arg.endswith(".cpp"):
            flags.append(arg)
    # The sources' own folder first, as for the original, wherever the copy lives.
    return (["clang++"] + flags + ["-I", os.path.dirname(source), "-fsyntax-only",
            "-Wthread-safety", "-Wthread-safety-beta", "-Werror", "-Wno-unknown-warning-option"])


def run_clang(build, original, path):
    result = subprocess.run(compile_flags(build, original) + [path], capture_output=True,
                            text=True, cwd=build)
    return result.returncode, result.stderr


def locks(path):
    """(line index, enclosing function) of every lock of a source."""
    found, function = [], None
    with open(path) as f:
        for i, line in enumerate(f):
            match = DEFINITION.match(line)
            if match:
                function = match.group(1)
            if LOCK.search(line) and not line.lstrip().startswith("//"):
                found.append((i, function))
    return found


def without_lock(build, name, line_index, label):
    """Compiles a copy of impl/NAME without the line; True when the analysis catches it."""
    original = os.path.join(IMPL, name)
    with open(original) as f:
        lines = f.readlines()
    del lines[line_index]
    folder = os.path.join(build, "thread-safety")
    os.makedirs(folder, exist_ok=True)
    copy = os.path.join(folder, name)
    with open(copy, "w") as f:
        f.writelines(lines)
    status, output = run_clang(build, original, copy)
    caught = status != 0 and "-Wthread-safety" in output
    first = next((l for l in output.splitlines() if "-Wthread-safety" in l), "")
    print(f"{label}: {'caught: ' + first.split(': ', 1)[-1] if caught else 'NOT caught'}")
    if status != 0 and not caught:
        print(output)
    return caught


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    build = os.path.abspath(sys.argv[1])
    args = sys.argv[2:]
    sources = sorted(n for n in os.listdir(IMPL) if n.endswith(".cpp"))
    if not args:
        failed = False
        for name in sources:
            status, output = run_clang(build, os.path.join(IMPL, name), os.path.join(IMPL, name))
            if status != 0:
                print(output)
                failed = True
        print("check-thread-safety: impl/ " + ("FAILED" if failed else "clean"))
        return 1 if failed else 0
    if args[0] == "--every-lock":
        caught = total = 0
        for name in sources:
            for line_index, function in locks(os.path.join(IMPL, name)):
                total += 1
                caught += without_lock(build, name, line_index,
                                       f"{name}:{line_index + 1} ({function})")
        print(f"check-thread-safety: {caught} of {total} deleted locks caught")
        return 0
    if args[0] == "--without":
        failed = False
        for target in args[1:]:
            name, function, *rest = target.split(":")
            ordinal = int(rest[0]) if rest else 1
            matches = [i for i, f in locks(os.path.join(IMPL, name)) if f == function]
            if len(matches) < ordinal:
                print(f"{target}: no such lock")
                failed = True
                continue
            failed |= not without_lock(build, name, matches[ordinal - 1], target)
        return 1 if failed else 0
    sys.exit(__doc__)


if __name__ == "__main__":
    sys.exit(main())
