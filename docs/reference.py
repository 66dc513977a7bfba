#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Writes docs/reference.md, every public name with its signature and comment, from the headers.

The headers are the only place where a name is described. What the script understands of them:

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

Every fault is reported as "file:line: message"; the exit status is 1 when there is one, else 0.
"""

import argparse
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
HEADERS = [
    "include/libvoice_plugin.h",
    "platform/kex.h",
    "platform/ziltrace.h",
    "bus/include/kex_host.h",
    "bus/include/kex_tap.h",
]
PAGE = "docs/reference.md"

TOKEN = re.compile(r"/\*.*?\*/|\"(?:\\.|[^\"\\])*\"|\n|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*|[^\n]", re.S | re.M)


class Comment:
    """A comment with its markers taken off: kind is "doc", "trailing", "section", "file" or "plain"."""

    def __init__(self, text, line):
        self.line = line
        self.end = line + text.count("\n")
        self.title = ""
        self.used = False
        body = text[2:-2]
        if body.startswith("*<"):
            self.kind, body = "trailing", body[2:]
        elif body.startswith("*"):
            self.kind, body = "doc", body[1:]
        else:
            self.kind = "plain"
        lines = [re.sub(r"^[ \t]*\*( |$)", "", row).rstrip() if row.lstrip().startswith("*") else row.strip()
                 for row in body.split("\n")]
        if self.kind == "plain" and re.match(r"\s*-{8,} ", body):
            self.kind = "section"
            self.title = lines[0].strip().strip("-").strip()
            lines = lines[1:]
        elif self.kind == "doc" and "@file" in body:
            self.kind = "file"
            lines = [row for row in lines if "@file" not in row]
        self.lines = [row.rstrip() for row in lines]
        while self.lines and not self.lines[0].strip():
            self.lines.pop(0)
        while self.lines and not self.lines[-1].strip():
            self.lines.pop()


class Entry:
    """A declaration, or a field or enumerator inside one."""

    def __init__(self, kind, name, code, line):
        self.kind, self.name, self.code, self.line = kind, name, code, line
        self.doc = None
        self.group = None
        self.members = []


def split(text):
    """The header as (kind, value, line): "comment", "directive", "blank" or "code" (one line's worth of it)."""
    line = 1
    code, code_line = "", 0
    pieces = []

    def flush():
        nonlocal code
        if code.strip():
            pieces.append(("code", code.strip(), code_line))
        code = ""

    line_is_empty = True
    for match in TOKEN.finditer(text):
        token = match.group()
        if token == "\n":
            flush()
            if line_is_empty:
                pieces.append(("blank", "", line))
            line_is_empty = True
        elif token.startswith("/*"):
            flush()
            pieces.append(("comment", Comment(token, line), line))
            line_is_empty = False
        elif token.lstrip().startswith("#") and not code.strip():
            code = ""
            directive = token
            comment = re.search(r"/\*.*", directive, re.S)
            if comment and "*/" in comment.group():
                directive = directive[:comment.start()]
            pieces.append(("directive", directive.strip(), line))
            if comment and "*/" in comment.group():
                pieces.append(("comment", Comment(comment.group().strip(), line), line))
            line_is_empty = False
        else:
            if not code.strip():
                code_line = line
            code += token
            if token.strip():
                line_is_empty = False
        line += token.count("\n")
    flush()
    return pieces


def one_line(code):
    code = re.sub(r"\s+", " ", code).strip()
    return re.sub(r"\( ", "(", code)


def declared_name(code):
    """The name that a declaration, field or typedef introduces."""
    code = re.sub(r"__attribute__\s*\(\(.*\)\)", "", code)
    code = re.sub(r"\b[A-Z]+_ALIGNAS\([^)]*\)|\bZIL_PRINTF\([^)]*\)", "", code)
    pointer = re.match(r"[^(]*\(\s*\*\s*(\w+)\s*\)\s*\(", code)
    if pointer:
        return pointer.group(1)
    function = re.match(r"[^(]*?(\w+)\s*\(", code)
    if function:
        return function.group(1)
    names = re.findall(r"(\w+)\s*(?:\[[^\]]*\]\s*)*$", code)
    return names[-1] if names else code


class Parser:
    def __init__(self, path, shown):
        self.shown = shown
        self.sections = [("", [])]  # title, items: Comment or Entry
        self.introduction = []
        self.entries = []
        self.pending = None  # a doc comment waiting for its declaration
        self.group = None    # a plain comment that describes until a blank line
        self.last = None     # what a trailing comment belongs to
        self.parse(split(path.read_text(encoding="utf-8")))

    # ---- what comments do

    def comment(self, comment, inside=False):
        if comment.kind == "trailing":
            if self.last is not None and self.last.doc is None:
                self.last.doc = comment
            return
        if comment.kind == "file":
            self.introduction = comment.lines
        elif comment.kind == "section" and not inside:
            self.sections.append((comment.title, []))
            if comment.lines:
                self.sections[-1][1].append(comment)
            self.pending = self.group = None
        elif comment.kind == "doc":
            self.pending = comment
        else:
            self.group = comment

    def add(self, entry, owner=None):
        entry.doc, self.pending = self.pending, None
        entry.group = self.group
        self.last = entry
        if owner:
            owner.members.append(entry)
        else:
            self.sections[-1][1].append(entry)
        self.entries.append(entry)
        return entry

    # ---- declarations

    def parse(self, pieces):
        statement, start = "", 0
        depth_skip = 0   # inside an inline function
        owner = None     # the struct or enum whose braces are open
        in_linkage = 0
        for kind, value, line in pieces:
            if kind == "blank":
                self.group = None
                continue
            if kind == "comment":
                same_line = self.last is not None and not statement
                if value.kind == "plain" and same_line and value.line == getattr(self.last, "end_line", 0):
                    continue  # a remark behind a declaration
                if owner is not None and statement and value.kind == "trailing":
                    self.close(owner, statement, line)  # the last enumerator needs no comma
                    statement = ""
                if not depth_skip and (not statement or owner):
                    self.comment(value, owner is not None)
                continue
            if kind == "directive":
                if not depth_skip:
                    self.directive(value, line)
                continue
            if depth_skip:
                depth_skip += value.count("{") - value.count("}")
                continue
            if value.startswith('extern "C"'):
                in_linkage += 1
                continue
            if not statement and value == "}" and not owner:
                continue  # the end of extern "C"
            if owner is not None and value.startswith("}"):
                self.close(owner, statement, line)
                tail = value[1:].strip().rstrip(";").strip()
                if tail:
                    owner.name = tail
                    owner.code += tail
                owner.end_line = line
                self.last, owner, statement = owner, None, ""
                continue
            if not statement:
                start = line
            statement = (statement + " " + value).strip() if statement else value
            if owner is not None:
                statement = self.members(owner, statement, start, line)
                continue
            if statement.endswith("{"):
                head = one_line(statement[:-1])
                opened = re.match(r"(typedef )?(struct|enum|union)\b\s*(\w*)$", head)
                if opened:
                    owner = self.add(Entry(opened.group(2), opened.group(3), head + " ", start))
                    owner.end_line = line
                else:
                    entry = self.add(Entry("function", declared_name(head), head + ";", start))
                    entry.end_line = line
                    depth_skip = 1
                statement = ""
                continue
            if statement.startswith("static inline") and "{" not in statement and not statement.endswith(";"):
                continue
            if statement.endswith(";"):
                self.declaration(one_line(statement), start, line)
                statement = ""

    def declaration(self, code, line, end):
        if re.match(r"(struct|enum|union) \w+;$", code):
            return  # a forward declaration
        kind = "type" if code.startswith("typedef") else "function" if "(" in code else "variable"
        entry = self.add(Entry(kind, declared_name(code.rstrip(";")), code, line))
        entry.end_line = end

    def members(self, owner, statement, start, line):
        mark = "," if owner.kind == "enum" else ";"
        if not statement.endswith(mark):
            return statement
        self.member(owner, one_line(statement), start, line)
        return ""

    def member(self, owner, code, start, end):
        code = code.rstrip(",;").strip()
        if owner.kind == "enum":
            name, _, number = code.partition("=")
            entry = self.add(Entry("enumerator", name.strip(), number.strip(), start), owner)
        else:
            entry = self.add(Entry("field", declared_name(code), code, start), owner)
        entry.end_line = end

    def close(self, owner, statement, line):
        if statement.strip():
            self.member(owner, one_line(statement), line, line)

    def directive(self, text, line):
        macro = re.match(r"#\s*define\s+(\w+)(\(?)\s*(.*)", text, re.S)
        if not macro or macro.group(2) or not macro.group(3).strip():
            return
        entry = self.add(Entry("macro", macro.group(1), one_line(macro.group(3)), line))
        entry.end_line = line

    def faults(self):
        for entry in self.entries:
            if not (entry.doc and entry.doc.lines) and not (entry.group and entry.group.lines):
                yield f"{self.shown}:{entry.line}: {entry.kind} {entry.name} has no doc comment"


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


def page(parsers):
    out = ["<!-- Written by docs/reference.py from the headers: edit those. -->", "# Reference", "",
           "Every public name, in the order of its header. The identifiers of signals, events and parameters "
           "(`libvoice_ids.h`) are in [vocabulary.md](vocabulary.md).", ""]
    for parser in parsers:
        out.append(f"- [{parser.shown}](#{anchor(parser.shown)})")
    for parser in parsers:
        out += ["", f"## {parser.shown}", "", *prose(parser.introduction)]
        for title, items in parser.sections:
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
    options.add_argument("headers", nargs="*", type=Path)
    arguments = options.parse_args()
    named = [(path, str(path)) for path in arguments.headers] or [(ROOT / name, name) for name in HEADERS]
    parsers = [Parser(path, shown) for path, shown in named]
    faults = [fault for parser in parsers for fault in parser.faults()]
    text = page(parsers) if not faults else ""
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
