# SPDX-License-Identifier: MIT
"""Finds the places of a C++ source where one small change makes a mutant.

Operators, one change each:
  relation    < and <=, > and >=, == and !=, each into the other of its pair
  arithmetic  + into -, - into +, * into /, / and % into *
  bits        & into |, | into &, << into >>, >> into <<
  logic       && into ||, || into &&
  step        ++ into --, -- into ++, += into -=, -= into +=, |= into &=, &= into |=
  condition   the condition of an if, a loop or a ?: into its opposite
  constant    a whole number n into n + 1, true into false, false into true
  statement   a call or an assignment that stands alone is left out
  result      what a function returns: a truth value into its opposite, a number into one more, an address into nullptr
"""

import dataclasses
import json
import pathlib
import shlex

from clang import cindex

PAIRS = {
    "relation": {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="},
    "arithmetic": {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*"},
    "bits": {"&": "|", "|": "&", "<<": ">>", ">>": "<<"},
    "logic": {"&&": "||", "||": "&&"},
    "step": {"++": "--", "--": "++", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|="},
}
OPERATORS = {old: (name, new) for name, pairs in PAIRS.items() for old, new in pairs.items()}

Kind = cindex.CursorKind
FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR)
NUMBERS = range(cindex.TypeKind.CHAR_U.value, cindex.TypeKind.INT128.value + 1)
UNCHANGED = (Kind.STATIC_ASSERT, Kind.ENUM_DECL)


@dataclasses.dataclass(frozen=True)
class Mutant:
    """One change: bytes `begin` to `end` of `file` become `new`."""

    file: str
    line: int
    function: str
    operator: str
    begin: int
    end: int
    old: str
    new: str
    row: str

    def key(self):
        """What names the mutant in the list of survivors: it stays when lines move."""
        return " | ".join((self.file, self.function, self.operator, f"{self.old} -> {self.new}", self.row))


class Finder:
    """Walks one translation unit."""

    def __init__(self, root, file, arguments):
        self.root, self.file = root, file
        self.source = (root / file).read_bytes()
        unit = cindex.Index.create().parse(str(root / file), args=arguments)
        broken = [str(each) for each in unit.diagnostics if each.severity >= cindex.Diagnostic.Error]
        if broken:
            raise SystemExit(f"{file} cannot be read: {broken[0]}")
        self.tokens = sorted(
            (token.extent.start.offset, token.spelling)
            for token in unit.get_tokens(extent=unit.cursor.extent)
            if token.location.file and token.location.file.name == str(root / file)
        )
        self.offsets = dict(self.tokens)
        self.mutants = []
        for cursor in unit.cursor.get_children():
            if cursor.location.file and cursor.location.file.name == str(root / file):
                self.walk(cursor, "", False)

    def text(self, begin, end):
        return self.source[begin:end].decode()

    def add(self, operator, function, begin, end, new):
        line = self.source.count(b"\n", 0, begin) + 1
        row = self.source.splitlines()[line - 1].decode().strip()
        old = " ".join(self.text(begin, end).split())
        self.mutants.append(Mutant(self.file, line, function, operator, begin, end, old, new, row))

    def starts_here(self, cursor):
        """Whether the text of the cursor stands in the file: what a macro makes does not."""
        extent = cursor.extent
        return extent.start.offset in self.offsets and extent.end.offset > extent.start.offset

    def walk(self, cursor, function, alone):
        if cursor.kind in UNCHANGED:
            return
        if cursor.kind in FUNCTIONS:
            function = cursor.spelling
        if self.starts_here(cursor):
            self.look_at(cursor, function, alone)
        children = list(cursor.get_children())
        for index, child in enumerate(children):
            self.walk(child, function, self.stands_alone(cursor, children, index))

    @staticmethod
    def stands_alone(parent, children, index):
        """Whether a child is a statement of its own."""
        if parent.kind == Kind.COMPOUND_STMT:
            return True
        if parent.kind == Kind.IF_STMT:
            return index > 0
        return parent.kind in (Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT) and index == len(children) - 1

    def look_at(self, cursor, function, alone):
        children = list(cursor.get_children())
        if cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) and len(children) == 2:
            self.operator_between(children, function)
        if cursor.kind == Kind.UNARY_OPERATOR:
            self.operator_of_one(cursor, function)
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR) and children:
            self.condition(cursor, children[0], function)
        if cursor.kind in (Kind.INTEGER_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR):
            self.constant(cursor, function)
        if cursor.kind == Kind.RETURN_STMT and children:
            self.result(children[0], function)
        if alone and self.is_effect(cursor, children):
            extent = cursor.extent
            self.add("statement", function, extent.start.offset, extent.end.offset, "(void)0")

    def is_effect(self, cursor, children):
        if cursor.kind in (Kind.CALL_EXPR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            return True
        return cursor.kind == Kind.BINARY_OPERATOR and len(children) == 2 and self.between(children)[1] == "="

    def between(self, children):
        """Offset and text of the token between two operands."""
        begin = children[0].extent.end.offset
        for offset in range(begin, children[1].extent.start.offset):
            if offset in self.offsets:
                return offset, self.offsets[offset]
        return begin, ""

    def operator_between(self, children, function):
        offset, token = self.between(children)
        if token in OPERATORS:
            name, new = OPERATORS[token]
            self.add(name, function, offset, offset + len(token), new)

    def operator_of_one(self, cursor, function):
        for offset in (cursor.extent.start.offset, cursor.extent.end.offset - 2):
            token = self.offsets.get(offset)
            if token in ("++", "--"):
                self.add("step", function, offset, offset + 2, OPERATORS[token][1])
                return

    def condition(self, parent, cursor, function):
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        in_macro = (parent.extent.start.offset, parent.extent.end.offset) == (begin, end)
        if cursor.kind != Kind.DECL_STMT and not in_macro and self.starts_here(cursor):
            self.add("condition", function, begin, end, f"!({self.text(begin, end)})")

    def constant(self, cursor, function):
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        old = self.offsets[begin]
        end = begin + len(old)
        if old in ("true", "false"):
            self.add("constant", function, begin, end, "false" if old == "true" else "true")
        elif old[:1].isdigit():
            self.add("constant", function, begin, end, f"({old} + 1)")

    def result(self, cursor, function):
        begin, end = cursor.extent.start.offset, cursor.extent.end.offset
        if not self.starts_here(cursor) or cursor.kind in (Kind.INTEGER_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR):
            return
        kind = cursor.type.get_canonical().kind
        old = self.text(begin, end)
        if kind == cindex.TypeKind.BOOL:
            self.add("result", function, begin, end, f"!({old})")
        elif kind == cindex.TypeKind.POINTER and old != "nullptr":
            self.add("result", function, begin, end, "nullptr")
        elif kind.value in NUMBERS:
            self.add("result", function, begin, end, f"({old}) + 1")


def compile_arguments(build, root, file):
    """How the build compiles a source: the first of its commands, without what names files."""
    for entry in json.loads((pathlib.Path(build) / "compile_commands.json").read_text()):
        if pathlib.Path(entry["file"]) == root / file:
            words = shlex.split(entry["command"])
            words = words[words.index(next(word for word in words if word.endswith(("c++", "g++", "clang++")))) + 1 :]
            kept = [word for word in words if word.startswith(("-I", "-D", "-std", "-isystem"))]
            for index, word in enumerate(words):
                if word == "-isystem":
                    kept += [words[index + 1]]
            return kept
    raise SystemExit(f"{file} is not compiled in {build}")


def find(build, root, file):
    """All mutants of a source, in its order."""
    found = Finder(pathlib.Path(root), file, compile_arguments(build, pathlib.Path(root), file)).mutants
    return sorted(set(found), key=lambda mutant: (mutant.begin, mutant.end, mutant.new))
