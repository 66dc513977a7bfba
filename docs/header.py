# SPDX-License-Identifier: MIT
"""Reads a C header: its declarations by libclang, and the comments that describe them by where they stand."""

import re
from bisect import bisect_right
from pathlib import Path

from clang.cindex import CursorKind, Index, TokenKind, TranslationUnit

ROOT = Path(__file__).resolve().parent.parent
INCLUDES = ["include", "platform", "bus/include", "helpers/include"]
RECORDS = {CursorKind.STRUCT_DECL: "struct", CursorKind.UNION_DECL: "union", CursorKind.ENUM_DECL: "enum"}
MEMBERS = {CursorKind.FIELD_DECL: "field", CursorKind.ENUM_CONSTANT_DECL: "enumerator"}
KINDS = {
    CursorKind.FUNCTION_DECL: "function",
    CursorKind.VAR_DECL: "variable",
    CursorKind.TYPEDEF_DECL: "type",
    CursorKind.MACRO_DEFINITION: "macro",
    **RECORDS,
}


class Comment:
    """A comment with its markers taken off: kind is "doc", "trailing", "section", "file" or "plain"."""

    def __init__(self, text, start):
        self.start, self.end = start, start + len(text)
        self.title = ""
        body = text[2:-2]
        if body.startswith("*<"):
            self.kind, body = "trailing", body[2:]
        elif body.startswith("*"):
            self.kind, body = "doc", body[1:]
        else:
            self.kind = "plain"
        lines = [
            re.sub(r"^[ \t]*\*( |$)", "", row).rstrip() if row.lstrip().startswith("*") else row.strip()
            for row in body.split("\n")
        ]
        if self.kind == "plain" and re.match(r"\s*-{8,} ", body):
            self.kind = "section"
            self.title = lines[0].strip().strip("-").strip()
            lines = lines[1:]
        elif self.kind == "doc" and "@file" in body:
            self.kind = "file"
            lines = [row for row in lines if "@file" not in row]
        while lines and not lines[0].strip():
            lines.pop(0)
        while lines and not lines[-1].strip():
            lines.pop()
        self.lines = lines


class Entry:
    """A declaration, or a field or enumerator inside one. `code` is its text in one line."""

    def __init__(self, kind, name, code, start, end):
        self.kind, self.name, self.code, self.start, self.end = kind, name, code, start, end
        self.exported = False
        self.doc = None  # the comment of its own
        self.group = None  # the comment of the group it stands in
        self.members = []


def one_line(code):
    return re.sub(r"\( ", "(", re.sub(r"\s+", " ", re.sub(r"/\*.*?\*/", "", code, flags=re.S)).strip())


class Header:
    """What a header declares, in its order: `sections` holds (title, [Comment or Entry])."""

    def __init__(self, path):
        # libclang counts bytes: what is not ASCII keeps its count.
        self.text = path.read_bytes().decode("ascii", errors="replace")
        self.line_starts = [0] + [match.end() for match in re.finditer("\n", self.text)]
        self.introduction = []
        arguments = ["-x", "c", "-std=c11", *[f"-I{ROOT / folder}" for folder in INCLUDES]]
        unit = Index.create().parse(str(path), args=arguments, options=TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD)
        self.errors = [(error.location.line, error.spelling) for error in unit.diagnostics if error.severity >= 3]
        own = [
            cursor
            for cursor in unit.cursor.get_children()
            if cursor.location.file and cursor.location.file.name == str(path)
        ]
        self.hidden = []  # extents whose comments describe nothing: bodies of functions
        self.entries = sorted(filter(None, map(self.entry, own)), key=lambda entry: entry.start)
        comments = [
            Comment(token.spelling, token.extent.start.offset)
            for token in unit.get_tokens(extent=unit.cursor.extent)
            if token.kind == TokenKind.COMMENT
        ]
        self.comments = [
            comment for comment in comments if not any(start <= comment.start < end for start, end in self.hidden)
        ]
        for entry in self.everything():
            entry.line = self.line_of(entry.start)
        self.describe()
        self.sections = self.divide()

    def line_of(self, offset):
        return bisect_right(self.line_starts, offset)

    def everything(self):
        for entry in self.entries:
            yield entry
            yield from entry.members

    # ---- declarations

    def entry(self, cursor):
        kind = KINDS.get(cursor.kind)
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if kind in ("struct", "union", "enum"):
            return self.record(kind, cursor, start, end) if cursor.is_definition() else None
        if kind == "macro":
            return self.macro(cursor, start, end)
        if kind == "type" and any(child.is_definition() and child.kind in RECORDS for child in cursor.get_children()):
            return None  # the name of the record that it holds
        if kind == "function" and cursor.is_definition():
            body = next(child for child in cursor.get_children() if child.kind == CursorKind.COMPOUND_STMT)
            self.hidden.append((body.extent.start.offset, body.extent.end.offset))
            return Entry(kind, cursor.spelling, one_line(self.text[start : body.extent.start.offset]) + ";", start, end)
        if kind:
            end = self.text.index(";", end)
            entry = Entry(kind, cursor.spelling, one_line(self.text[start:end]) + ";", start, end)
            entry.exported = kind in ("function", "variable")
            return entry
        return None

    def record(self, kind, cursor, start, end):
        """A struct, union or enum; what its typedef calls it, if there is one."""
        tail = re.match(r"\s*(\w*)\s*;", self.text[end:])
        before = re.search(r"typedef\s+$", self.text[:start])
        name = tail.group(1) if before and tail else cursor.spelling
        entry = Entry(kind, name, "", before.start() if before else start, end)
        for child in cursor.get_children():
            if child.kind in MEMBERS:
                first, last = self.member_start(child.extent.start.offset), child.extent.end.offset
                code = one_line(self.text[first:last])
                if child.kind == CursorKind.ENUM_CONSTANT_DECL:
                    code = code.partition("=")[2].strip()
                entry.members.append(Entry(MEMBERS[child.kind], child.spelling, code, first, last))
        return entry

    def member_start(self, start):
        """Where a member's text begins: an attribute that is a macro stands before libclang's extent."""
        before = max(self.text.rfind(mark, 0, start) + len(mark) for mark in ("{", ";", ",", "*/"))
        return before + re.match(r"\s*", self.text[before:]).end()

    def macro(self, cursor, start, end):
        """A macro that stands for a value."""
        value = self.text[start + len(cursor.spelling) : end]
        return Entry("macro", cursor.spelling, one_line(value), start, end) if value[:1] not in ("", "(") else None

    # ---- what comments do

    def describe(self):
        """Gives every entry its own comment and that of its group."""
        entries = sorted(self.everything(), key=lambda entry: entry.start)
        starts = [entry.start for entry in entries]
        for comment in self.comments:
            following = bisect_right(starts, comment.start)
            if comment.kind == "trailing":
                before = [entry for entry in entries if entry.end <= comment.start]
                last = max(before, key=lambda entry: entry.end, default=None)
                if last and not last.doc:
                    last.doc = comment
            elif comment.kind == "doc" and following < len(entries):
                entries[following].doc = comment
            elif comment.kind == "plain" and not self.is_remark(comment, entries):
                self.group(comment, entries[following:])

    def is_remark(self, comment, entries):
        """Whether a comment stands behind a declaration, on its line."""
        return any(
            entry.end <= comment.start and self.line_of(entry.end) == self.line_of(comment.start) for entry in entries
        )

    def group(self, comment, entries):
        """A comment directly above declarations describes all that follow up to a blank line."""
        blank = re.compile(r"\n[ \t]*\n").search(self.text, comment.end)
        limit = blank.start() if blank else len(self.text)
        for entry in entries:
            if entry.start >= limit:
                return
            entry.group = comment

    def divide(self):
        sections = [("", [])]
        inside = [(entry.start, entry.end) for entry in self.entries if entry.members]
        opening = [
            comment
            for comment in self.comments
            if comment.kind in ("section", "file") and not any(start <= comment.start < end for start, end in inside)
        ]
        for item in sorted(opening + self.entries, key=lambda item: item.start):
            if isinstance(item, Entry):
                sections[-1][1].append(item)
            elif item.kind == "file":
                self.introduction = item.lines
            else:
                sections.append((item.title, [item] if item.lines else []))
        return sections

    def faults(self):
        """(line, message) of everything that is wrong."""
        yield from self.errors
        for entry in sorted(self.everything(), key=lambda entry: entry.start):
            if not (entry.doc and entry.doc.lines) and not (entry.group and entry.group.lines):
                yield entry.line, f"{entry.kind} {entry.name} has no doc comment"
