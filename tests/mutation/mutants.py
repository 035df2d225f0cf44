"""Finds the mutants of a source file and writes the file so that a running program can choose one of them.

A mutant is one small change: another constant, operator or condition, a statement or a value left out. Most can be
chosen while the program runs: `a < b` becomes `(mutated(7) ? (a <= b) : (a < b))`. Those that the compiler refuses in
that form, such as the size of an array, need a build of their own.
"""

import re
from dataclasses import dataclass

from clang import cindex
from clang.cindex import CursorKind as Kind
from clang.cindex import TypeKind

OPERATORS = {
    "<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="],
}
COMPARISONS = {"<", "<=", ">", ">=", "==", "!="}
ARITHMETIC = {
    TypeKind.BOOL, TypeKind.CHAR_S, TypeKind.CHAR_U, TypeKind.SCHAR, TypeKind.UCHAR, TypeKind.SHORT, TypeKind.USHORT,
    TypeKind.INT, TypeKind.UINT, TypeKind.LONG, TypeKind.ULONG, TypeKind.LONGLONG, TypeKind.ULONGLONG, TypeKind.FLOAT,
    TypeKind.DOUBLE, TypeKind.LONGDOUBLE,
}
#: A constant whose value is chosen while the program runs, though nothing changes it.
CONSTANT = "MUTATED_CONSTANT"
BRANCHES = {Kind.IF_STMT, Kind.WHILE_STMT, Kind.DO_STMT, Kind.FOR_STMT, Kind.CONDITIONAL_OPERATOR}


@dataclass
class Mutant:
    """One change of a file: `new` in place of the bytes from `start` to `end`, which read `old`."""

    start: int
    end: int
    old: str
    new: str
    #: "expression", or, with what stands around the mutated code, "statement" and "condition".
    kind: str
    line: int = 0
    number: int = -1

    def describe(self):
        short = lambda text: re.sub(r"\s+", " ", text).strip()
        return f"{short(self.old)}  ->  {short(self.new) or '(nothing)'}"


class Source:
    """A source file as clang sees it."""

    def __init__(self, path, arguments):
        self.path = str(path)
        self.bytes = path.read_bytes()
        self._arguments = arguments
        options = cindex.TranslationUnit.PARSE_PRECOMPILED_PREAMBLE
        self._unit = cindex.Index.create().parse(self.path, args=arguments, options=options | 0x100)
        faults = self._faults()
        if faults:
            raise RuntimeError(f"{self.path}: clang cannot read it: {faults[0][1]}")

    def _faults(self):
        """(lines, text) of each error, with the lines that its notes name."""
        found = []
        for fault in self._unit.diagnostics:
            if fault.severity >= cindex.Diagnostic.Error:
                places = [fault.location] + [note.location for note in fault.children]
                lines = [p.line for p in places if p.file and p.file.name == self.path]
                found.append((lines, fault.spelling))
        return found

    def faults_of(self, text):
        """What the compiler says against another text in place of the file's own."""
        self._unit.reparse([(self.path, text.decode())],
                           options=cindex.TranslationUnit.PARSE_PRECOMPILED_PREAMBLE | 0x100)
        return self._faults()

    def line_of(self, offset):
        return self.bytes.count(b"\n", 0, offset) + 1

    def line_text(self, number):
        return self.bytes.decode().splitlines()[number - 1].strip()

    def mutants(self):
        """All changes, in the order of the file."""
        finder = _Finder(self)
        for cursor in self._unit.cursor.get_children():
            if cursor.location.file and cursor.location.file.name == self.path:
                finder.visit(cursor, None)
        # A text that two places of the tree share is changed once.
        self.constants = finder.constants
        unique = {(m.start, m.end, m.new): m for m in finder.found if m.new != m.old}
        mutants = sorted(unique.values(), key=lambda m: (m.start, -m.end))
        for mutant in mutants:
            mutant.line = self.line_of(mutant.start)
        return mutants


class _Finder:
    def __init__(self, source):
        self.source = source
        self.found = []
        #: Of each constant, the word "constexpr" and the whole: (start, end) twice.
        self.constants = []

    def text(self, start, end):
        return self.source.bytes[start:end].decode()

    def add(self, start, end, new, kind="expression"):
        self.found.append(Mutant(start, end, self.text(start, end), new, kind))

    def visit(self, cursor, parent, in_block=False):
        kind = cursor.kind
        in_block = in_block or kind == Kind.LAMBDA_EXPR
        if kind in (Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.CASE_STMT):
            return
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        children = list(cursor.get_children())
        text = self.text(start, end)
        if kind == Kind.VAR_DECL:
            for match in re.finditer(r"\bconstexpr\b", text.split("=")[0].split("{")[0]):
                self.constants.append(((start + match.start(), start + match.end()), (start, end)))
        if kind == Kind.INTEGER_LITERAL:
            self.integer(start, end, text)
        elif kind == Kind.FLOATING_LITERAL:
            self.floating(start, end, text)
        elif kind == Kind.STRING_LITERAL and (text.startswith('"') or text.isupper()):
            self.add(start, end, '""' if text != '""' else '"?"')
        elif kind == Kind.CHARACTER_LITERAL and re.fullmatch(r"'[!-&(-\[\]-}]'", text):
            self.add(start, end, f"'{chr(ord(text[1]) + 1)}'")
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.add(start, end, "false" if text == "true" else "true")
        elif kind == Kind.DECL_REF_EXPR:
            self.enumerator(cursor, start, end, text)
        elif kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR) or (
            kind == Kind.CALL_EXPR and cursor.spelling.startswith("operator") and len(children) == 3
        ):
            self.binary(cursor, start, end, children)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(start, end, text)
        elif kind == Kind.CALL_EXPR and cursor.spelling in ("min", "max"):
            other = {"min": "max", "max": "min"}[cursor.spelling]
            self.add(start, end, re.sub(rf"\b{cursor.spelling}\b", other, text, count=1))
        elif kind == Kind.RETURN_STMT:
            self.value_returned(children, start, in_block)
        if kind in BRANCHES:
            self.condition(kind, children)
        if self.is_statement(cursor, parent, start, end):
            self.add(start, self.source.bytes.index(b";", end) + 1, "", "statement")
        for child in children:
            self.visit(child, cursor, in_block)

    def integer(self, start, end, text):
        match = re.fullmatch(r"([0-9']+)([uUlLzZ]*)", text)
        if not match:
            return
        value = int(match[1].replace("'", ""))
        for other in [value + 1] + ([value - 1] if value else []):
            self.add(start, end, f"{other}{match[2]}")

    def floating(self, start, end, text):
        match = re.fullmatch(r"([0-9.eE+-]+)([fFlL]?)", text)
        if match:
            value = float(match[1])
            self.add(start, end, f"{value * 1.25 if value else 1.0!r}{match[2]}")

    def enumerator(self, cursor, start, end, text):
        if not cursor.referenced or cursor.referenced.kind != Kind.ENUM_CONSTANT_DECL:
            return
        name = cursor.referenced.spelling
        every = [c for c in cursor.referenced.semantic_parent.get_children() if c.kind == Kind.ENUM_CONSTANT_DECL]
        names = [c.spelling for c in every]
        if text.endswith(name) and len(names) > 1:
            self.add(start, end, text[: -len(name)] + names[(names.index(name) + 1) % len(names)])

    def binary(self, cursor, start, end, children):
        if cursor.kind == Kind.CALL_EXPR:
            # Left, operator, right; in the order of the tree the operator may come first.
            children = sorted(children, key=lambda c: c.extent.start.offset)
            left, right = children[0], children[2]
            token = cursor.spelling[len("operator"):]
        else:
            left, right = children
            token = self.text(left.extent.end.offset, right.extent.start.offset)
            token = re.sub(r"//[^\n]*|[\s()]", "", token)
        left_end, right_start = left.extent.end.offset, right.extent.start.offset
        if token in ("&&", "||"):
            # Each side alone; the brackets are those that the sides may stand in.
            between = self.text(left_end, right_start)
            at = left_end + between.index(token)
            for part_start, part_end in ((start, at), (at + 2, end)):
                part = self.text(part_start, part_end)
                self.add(start, end, f"static_cast<bool>({_balanced(part)})")
            return
        if token in ("+", "-", "*", "/", "%", "+=", "-=") and cursor.type.get_canonical().kind not in ARITHMETIC:
            return
        for other in OPERATORS.get(token, []):
            between = self.text(left_end, right_start)
            if token in between:
                changed = between.replace(token, other, 1)
                self.add(start, end, self.text(start, left_end) + changed + self.text(right_start, end))

    def unary(self, start, end, text):
        if text.startswith("!"):
            self.add(start, end, f"static_cast<bool>({text[1:]})")
        elif text.startswith("++") or text.endswith("++"):
            self.add(start, end, text.replace("++", "--"))
        elif text.startswith("--") or text.endswith("--"):
            self.add(start, end, text.replace("--", "++"))
        elif text.startswith("-"):
            self.add(start, end, f"+{text[1:]}")

    def condition(self, kind, children):
        if kind == Kind.DO_STMT:
            children = children[::-1]
        elif kind == Kind.FOR_STMT:
            # The one that a semicolon follows and that is no first part.
            children = [c for c in children[1:] if self.followed_by(c) == ";" and c.kind.is_expression()][:1]
        declared = children[0] if children and children[0].kind == Kind.VAR_DECL else None
        if declared is not None:
            if kind == Kind.IF_STMT:
                end = declared.extent.end.offset
                self.add(end, end, declared.spelling, "condition")
            return
        conditions = [c for c in children if c.kind.is_expression()]
        if conditions:
            start, end = conditions[0].extent.start.offset, conditions[0].extent.end.offset
            self.add(start, end, f"!({self.text(start, end)})")

    def value_returned(self, children, statement_start, in_block):
        if not children:
            return
        value = children[0]
        start, end = value.extent.start.offset, value.extent.end.offset
        type_kind = value.type.get_canonical().kind
        text = self.text(start, end)
        if type_kind == TypeKind.BOOL:
            if text not in ("true", "false"):
                self.add(start, end, f"!({text})")
        elif type_kind in ARITHMETIC:
            if not re.fullmatch(r"[0-9.]+", text):
                self.add(start, end, f"({text}) + 1")
        elif type_kind != TypeKind.VOID and not in_block and text not in ("{}", "nullptr", "std::nullopt"):
            stop = self.source.bytes.index(b";", end) + 1
            self.add(statement_start, stop, "return {};", "statement")

    def followed_by(self, cursor):
        rest = self.source.bytes[cursor.extent.end.offset:cursor.extent.end.offset + 80].decode(errors="replace")
        return rest.strip()[:1]

    def is_statement(self, cursor, parent, start, end):
        """Whether this is a whole statement that can be left out."""
        jump = cursor.kind in (Kind.BREAK_STMT, Kind.CONTINUE_STMT) or (
            cursor.kind == Kind.RETURN_STMT and self.text(start, end) == "return")
        if parent is None or not (cursor.kind.is_expression() or jump) or self.followed_by(cursor) != ";":
            return False
        if parent.kind == Kind.COMPOUND_STMT:
            return True
        if parent.kind not in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT):
            return False
        before = self.source.bytes[max(0, start - 200):start].decode(errors="replace")
        before = re.sub(r"//[^\n]*\n", "", before).rstrip()
        return before.endswith(")") or before.endswith("else")


def _balanced(text):
    """The text without brackets that only its other half closes."""
    text = text.strip()
    depth = 0
    for letter in text:
        depth += {"(": 1, ")": -1}.get(letter, 0)
    if depth > 0:
        text = text + ")" * depth
    elif depth < 0:
        text = "(" * -depth + text
    return text


def with_choices(source, mutants):
    """The file's text with all these mutants in it, each on lines of its own, to be chosen by their numbers."""
    # Outer before inner; those of one place together.
    places = {}
    for mutant in mutants:
        places.setdefault((mutant.start, mutant.end, mutant.kind), []).append(mutant)
    for word, (start, end) in source.constants:
        if any(start <= m.start and m.end <= end for m in mutants):
            places[(*word, "constant")] = []
    rank = {"statement": 0, "condition": 1, "expression": 2, "constant": 3}
    order = sorted(places, key=lambda p: (p[0], -p[1], rank[p[2]]))

    def render(start, end, inside):
        text, position = "", start
        while inside:
            place, rest = inside[0], inside[1:]
            nested = [p for p in rest if p[0] >= place[0] and p[1] <= place[1]]
            inside = [p for p in rest if p[0] >= place[1]]
            text += source.bytes[position:place[0]].decode()
            text += choice(places[place], place[2], render(place[0], place[1], nested))
            position = place[1]
        return text + source.bytes[position:end].decode()

    return render(0, len(source.bytes), order).encode()


def choice(mutants, kind, inner):
    if kind == "constant":
        return CONSTANT
    if kind == "condition":
        return "".join(f"; !\nmutated({m.number}) && {m.new}" for m in mutants) + "\n"
    alternatives = ""
    if kind == "statement":
        for m in mutants:
            alternatives += f"\nif (mutated({m.number})) {{ {m.new} }} else "
        return "{" + alternatives + "{\n" + inner + "\n}}"
    # Whatever a condition is, its changes are truth values.
    truth = "static_cast<bool>" if any(m.new.startswith(("!(", "static_cast<bool>(")) for m in mutants) else ""
    for m in mutants:
        alternatives += f"\nmutated({m.number}) ? {truth}({_on_one_line(m.new)}) :"
    return "\n(" + alternatives.lstrip() + f"\n{truth}({inner})\n)"


def _on_one_line(text):
    return re.sub(r"\s*\n\s*", " ", re.sub(r"//[^\n]*", "", text))


def with_change(source, mutant):
    """The file's text with this one change."""
    new = mutant.new
    if mutant.kind == "condition":
        new = f"; false && {mutant.new}"
    elif mutant.kind == "statement":
        new = f"{{ {mutant.new} }}"
    elif mutant.kind == "expression":
        new = f"({new})"
    return source.bytes[:mutant.start] + new.encode() + source.bytes[mutant.end:]


def choosable(source, mutants):
    """Splits mutants by what the compiler says: (those of one build, those that need builds of their own)."""
    chosen, alone = list(mutants), []
    while chosen:
        text = with_choices(source, chosen)
        faults = source.faults_of(text)
        if not faults:
            break
        refused = set()
        lines = text.decode().split("\n")
        for fault_lines, _ in faults:
            refused |= set(_blamed(lines, fault_lines))
        if not refused:
            raise RuntimeError(f"{source.path}: no mutant stands where the compiler says: {faults[0]}")
        alone += [m for m in chosen if m.number in refused]
        chosen = [m for m in chosen if m.number not in refused]
    source.faults_of(source.bytes)
    return chosen, alone


def _blamed(lines, fault_lines):
    """The mutant at a line that the fault names; else those of a constant there; else the nearest before."""
    numbers = lambda line: [int(n) for n in re.findall(r"mutated\((\d+)\)", line)]
    for number in fault_lines:
        if numbers(lines[number - 1]):
            return numbers(lines[number - 1])
    for number in fault_lines:
        if CONSTANT in lines[number - 1]:
            blamed = []
            for line in lines[number:]:
                blamed += numbers(line)
                if line.endswith(";"):
                    return blamed
    before = [numbers(line) for line in lines[: fault_lines[0]]] if fault_lines else []
    return next((found for found in reversed(before) if found), [])
