#!/usr/bin/env python3
"""Makes the C++ declarations of the browser runtime's C interface from the layout tables.

usage: generate_abi.py TABLES linux|windows OUTPUT

The tables hold what is used of the interface. What lies between two members of a struct that are tabled becomes a gap
without a name. Every struct gets a static assertion for its size and for the offset and the size of each member, so a
compiler that lays one out otherwise stops the build instead of corrupting a call.
"""
import csv
import pathlib
import re
import sys

OPAQUE = ("cef_string_list_t", "cef_string_map_t", "cef_string_multimap_t")


class tables:
    """The rows of one system."""

    def __init__(self, folder, system):
        column = {"linux": -2, "windows": -1}[system]
        self.enums = grouped(rows_of(folder, "enums.tsv"))
        self.functions = rows_of(folder, "functions.tsv")
        self.growth = rows_of(folder, "growth.tsv")
        self.aliases = {row[0]: row[column] for row in rows_of(folder, "aliases.tsv") if row[column] != "-"}
        self.hashes = {row[0]: row[column] for row in rows_of(folder, "versions.tsv")}
        # struct: [(member, declaration, place)], where a place is "offset:size", of "(size)" the whole size.
        self.structs = grouped((name, member, declaration, places[column])
                               for name, member, declaration, *places in rows_of(folder, "structs.tsv")
                               if places[column] != "-")


def rows_of(folder, name):
    with open(folder / name, newline="") as file:
        return list(csv.reader(file, delimiter="\t", quoting=csv.QUOTE_NONE))[1:]


def grouped(rows):
    groups = {}
    for key, *rest in rows:
        groups.setdefault(key, []).append(rest)
    return groups


def head(system):
    lines = ["// Generated from the layout tables; do not edit.", "#pragma once", ""]
    lines += [f"#include <{name}>" for name in ("cstddef", "cstdint", "ctime")]
    if system == "linux":
        lines += ["struct _XEvent;", "typedef struct _XEvent XEvent;"]
    else:
        lines += ["#include <windows.h>"]
    return lines


def enums(table):
    for name, values in table.enums.items():
        numbers = [int(value) for _, value in values]
        kind = "unsigned" if min(numbers) >= 0 and max(numbers) > 0x7FFFFFFF else "int"
        yield f"enum {name} : {kind} {{ " + ", ".join(f"{n} = {v}" for n, v in values) + " };"


def untabled(table):
    """The types that are only pointed at. One that is passed whole would have an unknown size, so it is refused."""
    declarations = [row[1] for members in table.structs.values() for row in members]
    text = "; ".join(declarations + [f"{result} f({arguments})" for _, result, arguments in table.functions])
    known = {*table.structs, *table.enums, *table.aliases, *OPAQUE}
    whole = set(re.findall(r"\b(cef_\w+_t)\b(?!\s*\*)", text)) - known
    if whole:
        sys.exit(f"not in the tables, but passed whole: {', '.join(sorted(whole))}")
    return sorted(set(re.findall(r"\bcef_\w+_t\b", text)) - known)


def typedefs(table):
    waiting = {name: kind for name, kind in table.aliases.items() if name not in OPAQUE}
    for name in OPAQUE:
        yield f"typedef struct {name[:-2]}_opaque* {name};"
    while waiting:
        ready = [name for name, kind in waiting.items() if kind.split()[0] not in waiting]
        for name in ready:
            yield f"typedef {waiting.pop(name)} {name};"


def by_need(table):
    """The structs in an order in which each one follows those it holds by value."""
    order = []

    def visit(name):
        if name in order or name not in table.structs:
            return
        for _, declaration, _ in table.structs[name]:
            kind = re.match(r"(?:const )?(\w*)", declaration)[1]
            if "*" not in declaration:
                visit(table.aliases.get(kind, kind))
        order.append(name)

    for name in table.structs:
        visit(name)
    return order


def struct(name, members):
    """Less than 8 bytes between two members is the compiler's own padding; where it is not, an assertion says so."""
    end, checks = 0, []
    yield f"struct {name} {{"
    for member, declaration, place in members:
        offset, _, size = place.partition(":")
        if int(offset) - end >= 8:
            yield f"    unsigned char gap_at_{end}[{int(offset) - end}];"
        if member == "(size)":
            checks.append(f"static_assert(sizeof({name}) == {offset});")
            continue
        yield f"    {declaration};"
        bare = member.partition("[")[0]
        checks.append(f"static_assert(offsetof({name}, {bare}) == {offset});")
        checks.append(f"static_assert(sizeof({name}::{bare}) == {size});")
        end = int(offset) + int(size)
    yield "};"
    yield from checks


def main():
    folder, system, output = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
    table = tables(folder, system)
    lines = head(system)
    lines += enums(table)
    lines += [f"struct {name};" for name in [*table.structs, *untabled(table)]]
    lines += typedefs(table)
    for name in by_need(table):
        lines += struct(name, table.structs[name])
    lines += ["// Each function as the type that its name has in the runtime.", "namespace cef_function {"]
    lines += [f"using {name} = {result}({arguments});" for name, result, arguments in table.functions]
    lines += ["}  // namespace cef_function"]
    lines += [f'constexpr char k_cef_api_hash_{version}[] = "{text}";' for version, text in table.hashes.items()]
    for name, version, size in table.growth:
        lines += [f"constexpr int k_{name}_grown_from = {version};", f"constexpr std::size_t k_{name}_grown_size = {size};"]
    output.parent.mkdir(parents=True, exist_ok=True)
    output.write_text("\n".join(lines) + "\n")


main()
