#!/usr/bin/env python3
"""Fails when a program or a library below the given folders looks for libraries in the working
directory: when its run path has an empty or a relative entry, or when it names a library that it
needs by a relative path.

  tests/package/run_paths.py FOLDER...
"""
import pathlib
import re
import subprocess
import sys


def elf_files(folder):
    for path in sorted(folder.rglob("*")):
        if path.is_file() and not path.is_symlink() and path.suffix != ".o":
            with path.open("rb") as file:
                if file.read(4) == b"\x7fELF":
                    yield path


def dynamic_section(path):
    return subprocess.run(["readelf", "--dynamic", "--wide", path], check=True,
                          capture_output=True, text=True, env={"LC_ALL": "C"}).stdout


def run_path_is_safe(run_path):
    return all(re.match(r"/|\$ORIGIN(/|$)", entry) for entry in run_path.split(":"))


def needed_is_safe(library):
    # A name without a slash is searched for, never in the working directory.
    return "/" not in library or library.startswith("/")


def check(folders):
    """Complaints, and the number of files that were looked at."""
    complaints, count = [], 0
    for folder in folders:
        for path in elf_files(folder):
            count += 1
            for kind, value in re.findall(r"\((RUNPATH|RPATH|NEEDED)\).*\[(.*)\]",
                                          dynamic_section(path)):
                if not (needed_is_safe if kind == "NEEDED" else run_path_is_safe)(value):
                    complaints.append(f"{path}: {kind} [{value}]")
    return complaints, count


def main():
    complaints, count = check([pathlib.Path(folder) for folder in sys.argv[1:]])
    if count == 0:
        sys.exit(f"no program and no library in {sys.argv[1:]}")
    if complaints:
        sys.exit("\n".join(complaints))
    print(f"{count} files: none looks for libraries in the working directory")


if __name__ == "__main__":
    main()
