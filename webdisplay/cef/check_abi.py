#!/usr/bin/env python3
"""Compares the layout tables with those they were taken from, which hold the whole interface.

usage: check_abi.py SOURCE            fails, naming each row that says something else than SOURCE does
       check_abi.py SOURCE NAME...    prints the rows of these structs, enums and functions, to be put into the tables

SOURCE is a folder with structs-linux.tsv, structs-windows.tsv, enums.tsv, functions.tsv, aliases.tsv, growth.tsv and
versions.tsv. Nothing else needs it: the product is built from the tables in abi/ alone.
"""
import csv
import pathlib
import sys

TABLES = pathlib.Path(__file__).parent / "abi"


def rows_of(folder, name):
    with open(folder / name, newline="") as file:
        return [tuple(row) for row in csv.reader(file, delimiter="\t", quoting=csv.QUOTE_NONE)][1:]


def structs_of(source):
    """Both systems' structs in the form of our one table. A struct's order is that of the system that has more of it."""
    places = {}
    for column, system in enumerate(("linux", "windows")):
        for name, offset, size, member, declaration in rows_of(source, f"structs-{system}.tsv"):
            of_struct = places.setdefault(name, {})
            of_member = of_struct.setdefault((member, declaration), ["-", "-"])
            of_member[column] = offset if member == "(size)" else f"{offset}:{size}"
    for name, members in places.items():
        for (member, declaration), (linux, windows) in members.items():
            yield (name, member, declaration, linux, windows)


def source_rows(source):
    yield "structs.tsv", list(structs_of(source))
    yield "enums.tsv", rows_of(source, "enums.tsv")
    yield "functions.tsv", [row[:3] for row in rows_of(source, "functions.tsv") if row[3] == "both"]
    for name in ("aliases.tsv", "growth.tsv", "versions.tsv"):
        yield name, rows_of(source, name)


def main():
    source, names = pathlib.Path(sys.argv[1]), sys.argv[2:]
    faults = []
    for table, known in source_rows(source):
        for row in known:
            if row[0] in names:
                print("\t".join(row))
        if not names:
            faults += [f"{table}: {' | '.join(row)}" for row in rows_of(TABLES, table) if row not in known]
    print(*faults, sep="\n", end="\n" if faults else "")
    sys.exit(1 if faults else 0)


main()
