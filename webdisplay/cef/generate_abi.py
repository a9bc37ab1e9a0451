#!/usr/bin/env python3
"""Makes the C++ declarations of the browser runtime's C interface from the layout tables.

usage: generate_abi.py TABLES linux|windows OUTPUT

Every struct gets a static assertion for its size and for the offset of each member, so a compiler that lays one out
otherwise stops the build instead of corrupting a call.
"""
import csv
import pathlib
import sys

OPAQUE = ("cef_string_list_t", "cef_string_map_t", "cef_string_multimap_t")
NOT_TABLED = ("cef_urlrequest_t", "cef_urlrequest_client_t")


def table(folder, name):
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
        lines += ["#include <pthread.h>", "#include <sys/types.h>", "", "struct _XDisplay;", "struct _XEvent;",
                  "typedef struct _XDisplay XDisplay;", "typedef struct _XEvent XEvent;"]
    else:
        lines += ["#include <windows.h>"]
    return lines


def enums(rows):
    for name, values in grouped(rows).items():
        numbers = [int(value) for _, value in values]
        kind = "unsigned" if min(numbers) >= 0 and max(numbers) > 0x7FFFFFFF else "int"
        yield f"enum {name} : {kind} {{ " + ", ".join(f"{n} = {v}" for n, v in values) + " };"


def member_type(declaration):
    words = declaration.split()
    return words[1] if words[0] == "const" else words[0]


def by_need(structs, aliases):
    """The structs in an order in which each one follows those it holds by value."""
    order, seen = [], set()

    def visit(name):
        if name in seen:
            return
        seen.add(name)
        for _, _, _, declaration in structs[name]:
            kind = aliases.get(member_type(declaration)) or member_type(declaration) if declaration else ""
            if kind in structs and "*" not in declaration:
                visit(kind)
        order.append(name)

    for name in structs:
        visit(name)
    return order


def typedefs(aliases):
    waiting = {name: kind for name, kind in aliases.items() if name not in OPAQUE}
    for name in OPAQUE:
        yield f"typedef struct {name[:-2]}_opaque* {name};"
    while waiting:
        ready = [name for name, kind in waiting.items() if kind.split()[0] not in waiting]
        for name in ready:
            yield f"typedef {waiting.pop(name)} {name};"


def struct(name, members):
    yield f"struct {name} {{"
    yield from (f"    {declaration};" for _, _, member, declaration in members if member != "(size)")
    yield "};"
    for offset, _, member, _ in members:
        if member == "(size)":
            yield f"static_assert(sizeof({name}) == {offset});"
        elif "[" not in member:
            yield f"static_assert(offsetof({name}, {member}) == {offset});"


def main():
    folder, system, output = pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3])
    column = {"linux": 1, "windows": 2}[system]
    structs = grouped(table(folder, f"structs-{system}.tsv"))
    aliases = {row[0]: row[column] for row in table(folder, "aliases.tsv") if row[column] != "-"}
    lines = head(system)
    lines += enums(table(folder, "enums.tsv"))
    lines += [f"struct {name};" for name in [*structs, *(n for n in NOT_TABLED if n not in structs)]]
    lines += typedefs(aliases)
    for name in by_need(structs, aliases):
        lines += struct(name, structs[name])
    lines += ["// Each function as the type that its name has in the runtime.", "namespace cef_function {"]
    for function, result, arguments, systems in table(folder, "functions.tsv"):
        if systems in ("both", system):
            lines.append(f"using {function} = {result}({arguments});")
    lines += ["}  // namespace cef_function"]
    hashes = {row[0]: row[column] for row in table(folder, "versions.tsv")}
    lines += [f'constexpr char k_cef_api_hash_13300[] = "{hashes["13300"]}";']
    for name, version, size in table(folder, "growth.tsv"):
        lines += [f"constexpr int k_{name}_grown_from = {version};", f"constexpr std::size_t k_{name}_grown_size = {size};"]
    output.parent.mkdir(parents=True, exist_ok=True)
    output.write_text("\n".join(lines) + "\n")


main()
