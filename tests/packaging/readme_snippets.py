#!/usr/bin/env python3
"""Compiles and links every C++ block of a Markdown file, each as a program of its own.

usage: readme_snippets.py FILE COMPILER-FLAG...

A block that nobody compiles is wrong a month later, and the first thing that a newcomer tries.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

BLOCK = re.compile(r"^```cpp\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def compile_block(folder, name, code, flags):
    source = folder / "snippet.cpp"
    source.write_text(code)
    result = subprocess.run(["g++", "-std=c++20", "-Wall", "-Wextra", "-Werror", "-o", folder / "snippet",
                             source, *flags], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if result.returncode != 0:
        sys.exit(f"{name} does not compile:\n{result.stdout}")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    path = pathlib.Path(sys.argv[1])
    text = path.read_text()
    blocks = list(BLOCK.finditer(text))
    if not blocks:
        sys.exit(f"{path}: no C++ block, so nothing was checked")
    with tempfile.TemporaryDirectory() as folder:
        for block in blocks:
            line = text.count("\n", 0, block.start()) + 1
            compile_block(pathlib.Path(folder), f"{path}:{line}", block[1], sys.argv[2:])


if __name__ == "__main__":
    main()
