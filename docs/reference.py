#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes docs/reference.md, every public name with its signature and comment, from the headers.

The headers are the only place where a name is described. libclang reads the declarations; which comment describes what
is told by where it stands:

  /** text */            above a declaration: its description; '@param name text' and '@return text' inside it
  /**< text */           behind a declaration, a field, an enumerator or a macro, on its line: the same
  /* text */             directly above a declaration: a group; it describes all that follows up to a blank line
  /* ---- Title          begins a section; the comment's other lines introduce it
  /** @file name text */ introduces the header

Function-like macros, include guards, forward declarations and what stands inside inline functions need no description.
Everything else does.

  reference.py                    write docs/reference.md
  reference.py --check            compare with the committed page instead
  reference.py --output FILE ...  other headers, another page
  reference.py --names ...        print the functions ("f") and variables ("d") that the headers declare instead

Every fault is reported as "file:line: message"; the exit status is 1 when there is one, else 0.
"""

import argparse
import re
import sys
from pathlib import Path

from header import ROOT, Comment, Header

HEADERS = [
    "include/libvoice_plugin.h",
    "platform/kex.h",
    "platform/ziltrace.h",
    "bus/include/kex_host.h",
    "bus/include/kex_tap.h",
    "helpers/include/voice_records.h",
    "helpers/include/voice_start.h",
]
PAGE = "docs/reference.md"


# ------------------------------------------------------------------------------------------------------------ Page


def prose(lines):
    """Comment lines as Markdown, one line per paragraph. Drawings (four blanks and more) become code, lines that begin
    with "- " and @param and @return lists."""
    out, code = [], []
    open_item = False  # whether the next line goes on with the last one of `out`

    def end_code():
        if code:
            while code and not code[-1].strip():
                code.pop()
            out.extend(["", "```text", *code, "```", ""])
            code.clear()

    in_list = False
    for row in lines:
        if not in_list and (re.match(r" {4,}\S", row) or (code and not row.strip())):
            code.append(row[4:] if row.startswith("    ") else row)
            open_item = False
            continue
        end_code()
        if not row.strip():
            out.append("")
            open_item = in_list = False
            continue
        for part in re.split(r"(?=@(?:param|return)\b)", row.strip()):
            mark = re.match(r"@param\s+([\w,]+)\s+(.*)", part) or re.match(r"@(return)\s+(.*)", part)
            if mark:
                label = "returns" if mark.group(1) == "return" else f"`{mark.group(1)}`"
                part = f"- {label}: {mark.group(2)}"
            if part.startswith("- "):
                if not in_list:
                    out.append("")
                in_list = open_item = True
                out.append(escape(part).strip())
            elif part.strip():
                if open_item:
                    out[-1] += " " + escape(part).strip()
                else:
                    out.append(escape(part).strip())
                    open_item = True
    end_code()
    return out


def escape(text):
    return re.sub(r"(?<![`\w])(\*)(?=\w)|<(?=\w)", lambda m: "\\*" if m.group() == "*" else "&lt;", text)


def cell(comment, group):
    lines = comment.lines if comment else group.lines
    text = " ".join(row.strip() for row in lines)
    return escape(text).replace("|", "\\|")


def member_table(entry):
    if entry.kind == "enum":
        rows = ["| name | value | meaning |", "|---|---|---|"]
        rows += [f"| `{m.name}` | {m.code} | {cell(m.doc, m.group)} |" for m in entry.members]
    else:
        rows = ["| field | meaning |", "|---|---|"]
        rows += [f"| `{m.code}` | {cell(m.doc, m.group)} |" for m in entry.members]
    return rows


def page(headers):
    out = [
        "<!-- Written by docs/reference.py from the headers: edit those. -->",
        "# Reference",
        "",
        "Every public name, in the order of its header. The identifiers of signals, events and parameters "
        "(`libvoice_ids.h`) are in [vocabulary.md](vocabulary.md).",
        "",
    ]
    for shown, _ in headers:
        out.append(f"- [{shown}](#{anchor(shown)})")
    for shown, header in headers:
        out += ["", f"## {shown}", "", *prose(header.introduction)]
        for title, items in header.sections:
            if not items:
                continue
            if title:
                out += ["", f"### {title}"]
            write_items(out, items)
    text = "\n".join(row.rstrip() for row in out) + "\n"
    return re.sub(r"\n{3,}", "\n\n", text)


def anchor(title):
    return re.sub(r"[^\w -]", "", title.lower()).replace(" ", "-")


def write_items(out, items):
    macros, grouped = [], []

    def end_runs():
        if macros:
            out.extend(["", "| macro | value | meaning |", "|---|---|---|", *macros])
            macros.clear()
        if grouped:
            names = ", ".join(f"`{entry.name}`" for entry in grouped)
            out.extend(["", f"#### {names}", "", "```c"])
            for entry in grouped:
                remark = f" /* {' '.join(row.strip() for row in entry.doc.lines)} */" if entry.doc else ""
                out.append(entry.code + remark)
            out.extend(["```", "", *prose(grouped[0].group.lines)])
            grouped.clear()

    for item in items:
        if grouped and getattr(item, "group", None) is not grouped[0].group:
            end_runs()
        if isinstance(item, Comment):
            end_runs()
            out += ["", *prose(item.lines)]
        elif item.kind == "macro":
            value = item.code.replace("|", "\\|")
            macros.append(f"| `{item.name}` | `{value}` | {cell(item.doc, item.group)} |")
        elif item.kind in ("struct", "enum", "union"):
            end_runs()
            out += ["", f"#### `{item.name}`", ""]
            out += prose((item.doc or item.group).lines)
            out += ["", *member_table(item)]
        elif item.group:
            grouped.append(item)
        else:
            end_runs()
            out += ["", f"#### `{item.name}`", "", "```c", item.code, "```", "", *prose(item.doc.lines)]
    end_runs()


def main():
    options = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    options.add_argument("--check", action="store_true", help="compare with the committed page, write nothing")
    options.add_argument("--output", type=Path, default=ROOT / PAGE)
    options.add_argument("--names", action="store_true", help="print what is declared, write nothing")
    options.add_argument("headers", nargs="*", type=Path)
    arguments = options.parse_args()
    named = [(str(path), path) for path in arguments.headers] or [(name, ROOT / name) for name in HEADERS]
    headers = [(shown, Header(path)) for shown, path in named]
    if arguments.names:
        for _, header in headers:
            for entry in header.entries:
                if entry.exported:
                    print("f" if entry.kind == "function" else "d", entry.name)
        return 0
    faults = [f"{shown}:{line}: {message}" for shown, header in headers for line, message in header.faults()]
    text = page(headers) if not faults else ""
    if not faults and arguments.check:
        committed = arguments.output.read_text(encoding="utf-8") if arguments.output.exists() else ""
        if committed != text:
            rows, new = committed.split("\n"), text.split("\n")
            line = next((i for i, (a, b) in enumerate(zip(rows, new), 1) if a != b), min(len(rows), len(new)))
            faults.append(f"{arguments.output}:{line}: differs from the headers; run docs/reference.py")
    elif not faults:
        arguments.output.write_text(text, encoding="utf-8")
    for fault in faults:
        print(fault, file=sys.stderr)
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
