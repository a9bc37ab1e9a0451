#!/usr/bin/env python3
"""Unpacks from the runtime's jar what a host needs; used by scripts/get-runtime.

usage: unpack_runtime.py JAR FOLDER

The jar holds one tar.gz. Beside the runtime that has a Java binding, which is none of ours and
stays inside. The tar.gz is read as a stream, so no second copy of it is written.
"""
import fnmatch
import pathlib
import sys
import tarfile
import zipfile

WANTED = [
    "libcef.so", "*.pak", "*.dat", "*snapshot*.bin", "locales/*.pak", "LICENSE.txt",
    "libEGL.so", "libGLESv2.so", "libvk_swiftshader.so", "libvulkan.so.1", "vk_swiftshader_icd.json",
]


def wanted(name):
    """fnmatch lets '*' match '/', so the folder depth is compared too."""
    return any(fnmatch.fnmatch(name, pattern) and name.count("/") == pattern.count("/")
               for pattern in WANTED)


def unpack(jar, folder):
    with zipfile.ZipFile(jar) as archive:
        inner = [name for name in archive.namelist() if name.endswith(".tar.gz")]
        if len(inner) != 1:
            sys.exit(f"{jar}: expected one tar.gz inside, found {len(inner)}")
        with archive.open(inner[0]) as stream, tarfile.open(fileobj=stream, mode="r|gz") as tar:
            for member in tar:
                name = member.name.removeprefix("./")
                if member.isfile() and wanted(name):
                    write(tar.extractfile(member), folder / name, member.mode)


def write(source, path, mode):
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "wb") as out:
        while block := source.read(1 << 20):
            out.write(block)
    path.chmod(0o755 if mode & 0o100 else 0o644)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    unpack(sys.argv[1], pathlib.Path(sys.argv[2]))
