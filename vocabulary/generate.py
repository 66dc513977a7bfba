#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks the vocabulary of identifiers and writes everything that is derived from it.

ids.csv holds one row per identifier and packages.csv one per package; they are the only place where a name or a number
is typed. From them come

  include/libvoice_ids.h           the constants, part of the public header
  src/vocabulary_rows.inc          the data of the look-ups, included by src/vocabulary.cpp
  vocabulary/libvoice_meanings.h   number, name and short meaning for tools, in C, and their look-up
  docs/vocabulary.md               the reference page
  tool/wireshark/kexbus.lua        the dissector for captures, from the parts beside it

The outputs are committed and the build does not run this script: run it after an edit and commit what changed.

  generate.py            check and write
  generate.py --check    check and compare with the committed outputs

Every fault is reported as "file:line: message"; the exit status is 1 when there is one, else 0.
"""

import argparse
import csv
import random
import re
import sys
import textwrap
import zlib
from pathlib import Path

HERE = Path(__file__).resolve().parent
DISSECTOR = HERE.parent / "tool" / "wireshark" / "parts"
DISSECTOR_PARTS = ["fields", "reading", "records", "messages", "captures"]  # in this order, one file for Wireshark

ROWS = 265
COLUMNS = ["number", "name", "kind", "value type", "short", "meaning", "hex content"]
PACKAGE_COLUMNS = ["number", "name", "title", "source"]
TYPES = ["none", "integer", "string", "hex", "boolean"]  # by the number in bits 27..24
KINDS = {  # kind: class in bits 30..28, name prefix, carries a value
    "signal": (1, "LIBVOICE_SIGNAL_", False),
    "event": (2, "LIBVOICE_EVENT_", False),
    "signal parameter": (1, "LIBVOICE_PARAM_", True),
    "event parameter": (2, "LIBVOICE_PARAM_", True),
    "property": (0, "LIBVOICE_PARAM_", True),
}
HEX_CONTENTS = ["words", "bytes"]
# Kept: this parameter has sub-item 0 like its event and differs from it by the value type alone.
IRREGULAR = {"LIBVOICE_PARAM_zil_dect_property_sw_version"}

WIDTH = 120


class Faults:
    """What is wrong with the input, in the order found."""

    def __init__(self):
        self.lines = []

    def add(self, path, line, message):
        self.lines.append(f"{path}:{line}: {message}")


class Row:
    """One identifier, its fields as the number's bits give them."""

    def __init__(self, line, number, cells):
        self.line = line
        self.number = number
        self.name, self.kind, self.type, self.short, self.meaning, self.hex = cells
        self.cls = number >> 28 & 7
        self.type_code = number >> 24 & 15
        self.package = number >> 16 & 255
        self.item = number >> 8 & 255
        self.sub_item = number & 255


def read_table(path, columns, faults):
    """The rows of a CSV file as (line, cells); a header or a row with other columns is a fault."""
    rows = []
    try:
        with open(path, newline="", encoding="ascii") as file:
            reader = csv.reader(file, strict=True)
            for cells in reader:
                line = reader.line_num
                if line == 1:
                    if cells != columns:
                        faults.add(path, line, f"columns are not {','.join(columns)}")
                elif len(cells) != len(columns):
                    faults.add(path, line, f"{len(cells)} columns, a row has {len(columns)}")
                else:
                    rows.append((line, cells))
    except (OSError, UnicodeDecodeError, csv.Error) as error:
        faults.add(path, len(rows) + 2, str(error))
    return rows


def read_packages(path, faults):
    """Packages by number."""
    packages = {}
    for line, (number, name, title, source) in read_table(path, PACKAGE_COLUMNS, faults):
        if not re.fullmatch(r"0x[0-9A-F]{2}", number):
            faults.add(path, line, f'number "{number}" is not 0x and two upper-case hexadecimal digits')
        elif int(number, 16) in packages:
            faults.add(path, line, f"package number {number} stands on an earlier line too")
        elif name in (known[0] for known in packages.values()):
            faults.add(path, line, f'package name "{name}" stands on an earlier line too')
        elif not name or not title or not source:
            faults.add(path, line, "name, title or source is empty")
        else:
            packages[int(number, 16)] = (name, title, source)
    return packages


def read_rows(path, packages, faults):
    """All rows in file order, each checked by itself and against the others."""
    rows = []
    numbers, names = {}, {}
    last_line = 1
    for line, (number, *cells) in read_table(path, COLUMNS, faults):
        last_line = line
        if not re.fullmatch(r"0x[0-9A-F]{8}", number):
            faults.add(path, line, f'number "{number}" is not 0x and eight upper-case hexadecimal digits')
            continue
        row = Row(line, int(number, 16), cells)
        for message in row_faults(row, packages):
            faults.add(path, line, message)
        for value, shown, known in ((row.number, number, numbers), (row.name, row.name, names)):
            if value in known:
                faults.add(path, line, f"{shown} stands on line {known[value]} too")
            known.setdefault(value, line)
        rows.append(row)
    for before, row in zip(rows, rows[1:]):
        if row.short == before.short:  # a ladder shows the two side by side
            faults.add(path, row.line, f'short meaning "{row.short}" is that of the row above too')
    for row in rows:
        for message in parent_faults(row, {other.number: other for other in rows}):
            faults.add(path, row.line, message)
    if len(rows) != ROWS:
        faults.add(path, last_line, f"{len(rows)} rows, the vocabulary has {ROWS}")
    return rows


def row_faults(row, packages):
    """What is wrong with a row taken by itself."""
    if row.kind not in KINDS:
        yield f'unknown kind "{row.kind}"'
        return
    if row.type not in TYPES:
        yield f'unknown value type "{row.type}"'
        return
    cls, prefix, has_value = KINDS[row.kind]
    if row.number >> 31:
        yield "bit 31 is set"
    if row.cls != cls:
        yield f"class is {row.cls}, a {row.kind} has {cls}"
    if row.type_code != TYPES.index(row.type):
        yield f"value type in the number is {row.type_code}, {row.type} is {TYPES.index(row.type)}"
    if has_value and row.type == "none":
        yield f"a {row.kind} without a value type"
    if not has_value and row.type != "none":
        yield f"a {row.kind} with a value type"
    if row.package not in packages:
        yield f"no package has the number 0x{row.package:02X}"
    elif not re.fullmatch(prefix + re.escape(packages[row.package][0]) + r"_\w+", row.name):
        yield f'name does not begin with "{prefix}{packages[row.package][0]}_"'
    if row.kind == "property" and row.item != 0:
        yield f"item is 0x{row.item:02X}, a property has 0"
    if row.kind != "property" and row.item == 0:
        yield f"item is 0, a {row.kind} has one"
    if not has_value and row.sub_item != 0:
        yield f"sub-item is 0x{row.sub_item:02X}, a {row.kind} has 0"
    if has_value and (row.sub_item == 0) != (row.name in IRREGULAR):
        yield "sub-item is 0" if row.sub_item == 0 else "sub-item is not 0 in the one parameter where it is"
    if (row.hex in HEX_CONTENTS) != (row.type == "hex") or (row.type != "hex" and row.hex):
        yield f'hex content "{row.hex}" of a value of type {row.type}'
    if not 1 <= len(row.short.split(" ")) <= 3 or not row.short.strip() == row.short or not row.short:
        yield f'short meaning "{row.short}" is not one to three words'
    if not row.meaning or row.meaning.strip() != row.meaning or "*/" in row.meaning or "|" in row.meaning:
        yield "meaning is empty, has outer blanks, or holds */ or |"
    if '"' in row.short or "\\" in row.short:
        yield "short meaning holds a quote or a backslash"


def parent_faults(row, by_number):
    """A parameter belongs to the signal or event of the same class, package and item, and is named after it."""
    if not row.kind.endswith(" parameter"):
        return
    parent = by_number.get(row.number & 0x70FFFF00)
    if parent is None:
        yield f"no {row.kind.split()[0]} has the number 0x{row.number & 0x70FFFF00:08X}"
    elif not row.name.split("_", 2)[2].startswith(parent.name.split("_", 2)[2] + "_"):
        yield f"name does not continue that of {parent.name}"


# ------------------------------------------------------------------------------------------------- perfect hashes
# The upper bits of a key's hash choose one of 128 displacements, and the displacement moves the key to a place of its
# own. src/vocabulary.cpp does the same arithmetic and proves at compile time that every row is found. With these
# multipliers no place is left over. Other rows may leave some; when they need more than PLACES, others are sought.

NUMBER_MULTIPLIERS = (0x409BD305,)
NAME_MULTIPLIERS = (0x1014E6CB, 0xD53DCF4F, 0x7173ED45)
BUCKETS = 128
PLACES = 400


def hash_number(number, multipliers):
    return number * multipliers[0] & 0xFFFFFFFF


def hash_name(name, multipliers):
    last, middle, first = (int.from_bytes(name[at : at + 4 or None].encode("ascii"), "little") for at in (-4, -8, -12))
    words = (last + len(name), middle, first)
    return sum(word * multiplier for word, multiplier in zip(words, multipliers)) & 0xFFFFFFFF


def place_all(hashes):
    """(displacements, places): places hold the index of the key that lands there, or None. None: some have no place."""
    buckets = [[] for _ in range(BUCKETS)]
    for index, value in enumerate(hashes):
        buckets[value >> 25].append((value >> 17 & 0xFF, index))
    displacements, places = [0] * BUCKETS, [None] * PLACES
    for bucket in sorted(range(BUCKETS), key=lambda b: -len(buckets[b])):
        starts = [start for start, _ in buckets[bucket]]
        if len(set(starts)) < len(starts):
            return None
        for displacement in range(min(256, PLACES - max(starts, default=0))):
            if all(places[start + displacement] is None for start in starts):
                break
        else:
            return None
        displacements[bucket] = displacement
        for start, index in buckets[bucket]:
            places[start + displacement] = index
    while places[-1] is None:
        places.pop()
    return displacements, places


def perfect_hash(keys, hash_of, multipliers):
    """(multipliers, displacements, places); for the same keys always the same."""
    source = random.Random(1)
    while True:
        found = place_all([hash_of(key, multipliers) for key in keys])
        if found is not None:
            return multipliers, *found
        multipliers = [source.getrandbits(32) | 1 for _ in multipliers]


# ------------------------------------------------------------------------------------------------------- outputs


def described(row):
    """The line of meaning with its value type, and with what a hex value holds."""
    if row.type == "none":
        return row.meaning
    return f"{row.meaning} ({row.type}, {row.hex})" if row.hex else f"{row.meaning} ({row.type})"


def by_package(rows, packages):
    for number, package in sorted(packages.items()):
        members = [row for row in rows if row.package == number]
        if members:
            yield number, package, members


def ids_header(rows, packages):
    out = [
        "/* SPDX-License-Identifier: MIT */",
        "/* Written by vocabulary/generate.py from vocabulary/ids.csv: edit that one. */",
        "/**",
        " * @file libvoice_ids.h",
        " * The vocabulary: one 32-bit identifier for every signal, event, parameter and property.",
        " *",
        " *     31   30..28  27..24      23..16   15..8  7..0",
        " *    +---+-------+-----------+---------+------+----------+",
        " *    | 0 | class | value type| package | item | sub-item |",
        " *    +---+-------+-----------+---------+------+----------+",
        " *",
        " * class: 0 property, 1 signal, 2 event. Value type: 0 none (the signal or event itself), 1 integer (32 bits,",
        " * signed), 2 string (ends in a zero byte), 3 hex (32-bit words in host byte order or plain bytes: each says",
        " * which), 4 boolean (32 bits). Sub-item: the number of a parameter within its signal or event, or of a "
        "property",
        " * within its package. What tells a parameter from its signal or event is the value type, never the sub-item: "
        "one",
        " * parameter has sub-item 0.",
        " *",
        " * Names in text form, both ways: libvoice_param_str(), libvoice_str_to_param().",
        " */",
        "#ifndef LIBVOICE_IDS_H",
        "#define LIBVOICE_IDS_H",
        "",
        f"#define LIBVOICE_IDS {len(rows)} /**< Number of identifiers in this file. */",
        "",
        "/* clang-format off */",
    ]
    for number, (name, title, source), members in by_package(rows, packages):
        out += ["", f"/* Package {name} (0x{number:02X}): {title}, {source}. */"]
        width = max(len(row.name) for row in members)
        for row in members:
            head = f"#define {row.name:<{width}} 0x{row.number:08X}u "
            text = f"/**< {described(row)} */"
            if len(head + text) <= WIDTH:
                out.append(head + text)
            else:
                indent = " " * len(head)
                if len(head) > WIDTH * 2 // 3:
                    indent = " " * 12
                out += textwrap.wrap(
                    text, WIDTH, initial_indent=head, subsequent_indent=indent + "     ", break_on_hyphens=False
                )
    out += ["", "/* clang-format on */", "", "#endif"]
    return out


def packed(values, form):
    return textwrap.wrap(
        ", ".join(form.format(value) for value in values) + ",", WIDTH, initial_indent="    ", subsequent_indent="    "
    )


def string_block(texts):
    """(lines of string literals, {text: its offset})"""
    lines, offsets, position = [], {}, 0
    for text in texts:
        offsets[text] = position
        position += len(text) + 1
        lines.append(f'    "{text}\\0"')
    if position > 0xFFFF:
        raise SystemExit("the texts no longer fit 16-bit offsets")
    return lines, offsets


def table(kind, name, values, form="{}"):
    return [f"constexpr {kind} {name}[{len(values)}] = {{", *packed(values, form), "};", ""]


def rows_data(rows):
    lengths = [len(row.name) for row in rows]
    by_number, displaced, places = perfect_hash([row.number for row in rows], hash_number, NUMBER_MULTIPLIERS)
    by_name, names_displaced, name_places = perfect_hash([row.name for row in rows], hash_name, NAME_MULTIPLIERS)
    # The longest name stands last, so that as many characters can be read from the beginning of any.
    names, offsets = string_block(sorted((row.name for row in rows), key=lambda name: len(name) == max(lengths)))
    row_of = {index: place for place, index in enumerate(places) if index is not None}
    # What is left over holds a row that is looked for elsewhere.
    places = [0 if index is None else index for index in places]
    rows_by_name = [row_of[0 if index is None else index] for index in name_places]
    return [
        "// SPDX-License-Identifier: MIT",
        "// Written by vocabulary/generate.py from vocabulary/ids.csv: edit that one.",
        "// The data of the look-ups: offsets into string blocks in place of pointers, so that nothing needs "
        "relocation.",
        "",
        "// clang-format off",
        "",
        *table("uint32_t", "kNumberMultipliers", by_number, "0x{:08X}u"),
        *table("uint32_t", "kNameMultipliers", by_name, "0x{:08X}u"),
        *table("uint8_t", "kNumberDisplacements", displaced),
        *table("uint8_t", "kNameDisplacements", names_displaced),
        *table("uint32_t", "kNumbers", [rows[index].number for index in places], "0x{:08X}u"),
        *table("uint16_t", "kNameOffsets", [offsets[rows[index].name] for index in places]),
        *table("uint16_t", "kRowsByName", rows_by_name),
        f"constexpr uint32_t kShortestName = {min(lengths)};",
        f"constexpr uint32_t kLongestName = {max(lengths)};",
        "",
        "constexpr char kNames[] =",
        *names[:-1],
        names[-1] + ";",
        "",
        "// clang-format on",
    ]


def stamp(rows):
    """Tells one state of the vocabulary from another, for tools beside files that were generated from it."""
    text = "\n".join(f"{row.number:08X} {row.name} {row.short} {row.hex}" for row in rows)
    return f"0x{zlib.crc32(text.encode('ascii')):08X}"


def meanings_header(rows):
    out = [
        "/* SPDX-License-Identifier: MIT */",
        "/* Written by vocabulary/generate.py from vocabulary/ids.csv: edit that one. */",
        "/**",
        " * @file libvoice_meanings.h",
        " * Names and short meanings of all identifiers, for tools that show traffic to people. Sorted by number.",
        " */",
        "#ifndef LIBVOICE_MEANINGS_H",
        "#define LIBVOICE_MEANINGS_H",
        "",
        "#include <stdint.h>",
        "",
        "/** Tells this state of the vocabulary from another one. */",
        f"#define LIBVOICE_MEANINGS_STAMP {stamp(rows)}u",
        "",
        "/** One identifier. */",
        "struct libvoice_meaning {",
        "    uint32_t number;",
        "    const char *name;",
        '    const char *meaning; /**< one to three words: "off hook" */',
        "    char hex;            /**< what a hex value holds: 'w' words in host order, 'b' bytes; 0: not a hex "
        "value */",
        "};",
        "",
        "/* clang-format off */",
        f"static const struct libvoice_meaning libvoice_meanings[{len(rows)}] = {{",
    ]
    for row in sorted(rows, key=lambda row: row.number):
        content = f"'{row.hex[0]}'" if row.hex else "0"
        out.append(f'    {{0x{row.number:08X}u, "{row.name}", "{row.short}", {content}}},')
    return out + [
        "};",
        "/* clang-format on */",
        "",
        "/** The row of an identifier, or a null pointer. */",
        "static inline const struct libvoice_meaning *libvoice_meaning_of(uint32_t number) {",
        "    uint32_t first = 0;",
        f"    uint32_t end = {len(rows)};",
        "    while (first < end) {",
        "        const uint32_t middle = (first + end) / 2;",
        "        if (libvoice_meanings[middle].number < number)",
        "            first = middle + 1;",
        "        else",
        "            end = middle;",
        "    }",
        f"    return first < {len(rows)} && libvoice_meanings[first].number == number ? &libvoice_meanings[first] : 0;",
        "}",
        "",
        "#endif",
    ]


def dissector(rows):
    """The parts as one, with the rows in them: number, name without its prefix, meaning, what a hex value holds."""
    out = [
        "-- SPDX-License-Identifier: MIT",
        "-- Written by vocabulary/generate.py from vocabulary/ids.csv and the parts beside it: edit those.",
        "-- The licence goes with that of Wireshark, GPL-2.0-or-later.",
        f"-- Vocabulary {stamp(rows)}",
    ]
    template = "\n".join((DISSECTOR / f"{part}.lua").read_text(encoding="ascii") for part in DISSECTOR_PARTS)
    for line in template.splitlines():
        if line != "--@VOCABULARY@":
            out.append(line)
            continue
        for row in sorted(rows, key=lambda row: row.number):
            name = row.name.split("_", 2)[2]
            out.append(f'    {{ 0x{row.number:08X}, "{name}", "{row.short}", "{row.hex[:1]}" }},')
    return out


def reference_page(rows, packages):
    count = {kind: sum(row.kind == kind for row in rows) for kind in KINDS}
    out = [
        "<!-- Written by vocabulary/generate.py from vocabulary/ids.csv: edit that one. -->",
        "# Vocabulary",
        "",
        "Every signal to an endpoint, every event from one, and every parameter and property that travels with them is "
        "named",
        "by a 32-bit identifier after the package model of ITU-T H.248.",
        "",
        "| Bits | Field | Meaning |",
        "|---|---|---|",
        "| 31 | | always 0 |",
        "| 30..28 | class | 0 property, 1 signal, 2 event |",
        "| 27..24 | value type | 0 none, 1 integer, 2 string, 3 hex, 4 boolean |",
        "| 23..16 | package | |",
        "| 15..8 | item | the signal or event within its package; 0 for a property |",
        "| 7..0 | sub-item | the parameter within its signal or event, or the property within its package; else 0 |",
        "",
        "| Value type | Bytes of the value |",
        "|---|---|",
        "| none | none: the signal or event itself |",
        "| integer | one 32-bit signed integer in host byte order |",
        "| string | text that ends in a zero byte |",
        "| hex (words) | 32-bit words in host byte order |",
        "| hex (bytes) | bytes, their order independent of the host |",
        "| boolean | one 32-bit word in host byte order, 0 for false |",
        "",
        "What tells a parameter from its signal or event is the value type, never the sub-item:",
        "`LIBVOICE_PARAM_zil_dect_property_sw_version` has sub-item 0 like its event. The identifier 0 is the null",
        'identifier, shown as "sig_nil".',
        "",
        f"There are {len(rows)} identifiers in {len(list(by_package(rows, packages)))} packages: {count['signal']} "
        f"signals, {count['event']} events, {count['signal parameter']} parameters of",
        f"signals, {count['event parameter']} parameters of events and {count['property']} properties. Names are "
        "case-sensitive.",
        "",
        "| Package | Number | Title | Source |",
        "|---|---|---|---|",
        *[
            f"| [`{name}`](#{name}) | 0x{number:02X} | {title} | {source} |"
            for number, (name, title, source), _ in by_package(rows, packages)
        ],
    ]
    for number, (name, title, source), members in by_package(rows, packages):
        out += [
            "",
            f"## {name}",
            "",
            f"{title}, 0x{number:02X}, {source}.",
            "",
            "| Name | Identifier | Kind | Value | Meaning |",
            "|---|---|---|---|---|",
        ]
        for row in members:
            value = f"hex ({row.hex})" if row.hex else row.type
            out.append(f"| `{row.name}` | 0x{row.number:08X} | {row.kind} | {value} | {row.meaning} |")
    return out


def first_difference(expected, found):
    """The first line that differs, as one sentence."""
    for line, (want, have) in enumerate(zip(expected, found), 1):
        if want != have:
            return line, f'expected "{want}", found "{have}"'
    return min(len(expected), len(found)) + 1, f"expected {len(expected)} lines, found {len(found)}"


def main():
    parser = argparse.ArgumentParser(description="Checks the vocabulary and writes what is derived from it.")
    parser.add_argument("--check", action="store_true", help="compare with the committed outputs, write nothing")
    parser.add_argument("--ids", type=Path, default=HERE / "ids.csv", help="the rows (default: beside this script)")
    parser.add_argument("--packages", type=Path, default=HERE / "packages.csv", help="the packages (default: likewise)")
    parser.add_argument("--root", type=Path, default=HERE.parent, help="folder of the outputs (default: the project)")
    options = parser.parse_args()

    faults = Faults()
    packages = read_packages(options.packages, faults)
    rows = read_rows(options.ids, packages, faults)
    if not faults.lines:
        outputs = {
            "include/libvoice_ids.h": ids_header(rows, packages),
            "src/vocabulary_rows.inc": rows_data(rows),
            "vocabulary/libvoice_meanings.h": meanings_header(rows),
            "docs/vocabulary.md": reference_page(rows, packages),
            "tool/wireshark/kexbus.lua": dissector(rows),
        }
        for name, lines in outputs.items():
            path = options.root / name
            if not options.check:
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text("\n".join(lines) + "\n", encoding="ascii")
                continue
            found = path.read_text(encoding="utf-8") if path.exists() else ""
            if found != "\n".join(lines) + "\n":
                line, difference = first_difference(lines, found.split("\n")[:-1])
                faults.add(path, line, f"{difference}; run vocabulary/generate.py")
    for line in faults.lines:
        print(line, file=sys.stderr)
    return 1 if faults.lines else 0


if __name__ == "__main__":
    sys.exit(main())
