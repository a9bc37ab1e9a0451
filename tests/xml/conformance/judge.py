#!/usr/bin/env python3
"""Runs the W3C's XML test suite through a parser and counts what it says.

usage: judge.py SUITE-FOLDER PROGRAM

PROGRAM reads paths from standard input and prints a status for each. Documents that are not
well-formed must be refused. All others must be accepted, unless they have a document type
declaration, which must be refused as such; without a declaration that names no other file and no
entity they must be accepted, since then it says nothing about the text. Left out, and counted: XML 1.1,
tests of namespaces alone, what only the fifth edition of XML 1.0 has (more names than the fourth), and
what the suite itself leaves open (type "error").
"""
import collections
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

DOCTYPE = -2002
# Fewer would mean that the catalogue was read wrongly.
LEAST = {"not-wf": 1000, "with doctype": 300, "without doctype": 40, "doctype taken off": 200}
# A declaration that is plain enough to be cut out by this.
PLAIN_DOCTYPE = re.compile(rb"<!DOCTYPE\s+[^\s\[>]+\s*(?:\[([^\]]*)\]\s*)?>")
NOT_PLAIN = re.compile(rb"<!ENTITY|<!--|<\?|%")


def tests(folder):
    catalogue = folder / "cleaned" / "xmlconf-flattened.xml"
    pending = [(xml.etree.ElementTree.parse(catalogue).getroot(), folder / "xmlconf")]
    while pending:
        element, base = pending.pop()
        base = base / element.get("{http://www.w3.org/XML/1998/namespace}base", "")
        if element.tag == "TEST":
            yield element, base / element.get("URI")
        pending.extend((child, base) for child in element)


def is_left_out(test):
    recommendation = test.get("RECOMMENDATION", "XML1.0")
    return (test.get("TYPE") == "error" or test.get("VERSION") == "1.1"
            or recommendation.startswith("NS") or recommendation == "XML1.1"
            or "4" not in test.get("EDITION", "1 2 3 4 5"))


def has_doctype(path):
    data = path.read_bytes()
    wide = data[:2] in (b"\xfe\xff", b"\xff\xfe") or b"\0" in data[:4]
    text = data.replace(b"\0", b"") if wide else data
    other = rb"<!--.*?-->|<\?.*?\?>|<!\[CDATA\[.*?\]\]>"
    return b"<!DOCTYPE" in re.sub(other, b"", text, flags=re.DOTALL)


def without_doctype(path):
    """The document without its declaration, or None where that is more than layout."""
    data = path.read_bytes()
    found = PLAIN_DOCTYPE.search(data)
    if not found or NOT_PLAIN.search(found[1] or b"") or data.count(b"<!DOCTYPE") != 1:
        return None
    return data[:found.start()] + data[found.end():]


def taken_off(chosen, folder):
    """The documents with a declaration once more, in files without it."""
    for number, (kind, path) in enumerate(chosen):
        data = without_doctype(path) if kind == "with doctype" else None
        if data is not None:
            copy = pathlib.Path(folder) / f"{number}-{path.name}"
            copy.write_bytes(data)
            yield "doctype taken off", copy


def kind_of(test, path):
    if test.get("TYPE") == "not-wf":
        return "not-wf"
    return "with doctype" if has_doctype(path) else "without doctype"


def is_right(kind, status):
    return {"not-wf": status < 0, "with doctype": status == DOCTYPE,
            "without doctype": status == 0, "doctype taken off": status == 0}[kind]


def statuses_of(program, paths):
    answer = subprocess.run([program], input="".join(f"{path}\n" for path in paths),
                            stdout=subprocess.PIPE, text=True, check=True, timeout=120)
    statuses = [int(line) for line in answer.stdout.split()]
    if len(statuses) != len(paths):
        sys.exit(f"{len(statuses)} statuses for {len(paths)} documents")
    return statuses


def main():
    chosen, left_out = [], 0
    for test, path in tests(pathlib.Path(sys.argv[1])):
        if is_left_out(test):
            left_out += 1
        else:
            chosen.append((kind_of(test, path), path))
    with tempfile.TemporaryDirectory() as folder:
        chosen.extend(list(taken_off(chosen, folder)))
        statuses = statuses_of(sys.argv[2], [path for _, path in chosen])
    counts, wrong = collections.Counter(), 0
    for (kind, path), status in zip(chosen, statuses):
        counts[kind] += 1
        if not is_right(kind, status):
            wrong += 1
            print(f"{path}: {kind}, status {status}")
    for kind, least in LEAST.items():
        print(f"{kind}: {counts[kind]}")
        if counts[kind] < least:
            sys.exit(f"only {counts[kind]} documents are {kind}")
    print(f"left out: {left_out}; wrong: {wrong}")
    sys.exit(wrong > 0)


if __name__ == "__main__":
    main()
