"""Finds the places of a source file where it can be mutated, and writes the file with all of them as run-time choices.

The places come from the compiler's syntax tree. Every choice falls back to the text as it stands, with the choices
inside of it; the mutated alternative is made of the original text, so that the file grows by a sum, not by a product.
No line is added, as log lines tell theirs."""
import dataclasses
import re
import sys

from macro_text import arguments_of
from mutant import Mutant

sys.path.append("/usr/lib/python3/dist-packages")
from clang import cindex  # pylint: disable=wrong-import-position

Kind = cindex.CursorKind
Type = cindex.TypeKind
FUNCTIONS = {
    Kind.FUNCTION_DECL,
    Kind.CXX_METHOD,
    Kind.CONSTRUCTOR,
    Kind.DESTRUCTOR,
    Kind.CONVERSION_FUNCTION,
    Kind.FUNCTION_TEMPLATE,
}
LITERALS = {Kind.INTEGER_LITERAL, Kind.STRING_LITERAL, Kind.CXX_BOOL_LITERAL_EXPR, Kind.CXX_NULL_PTR_LITERAL_EXPR}
INTEGERS = {Type.INT, Type.UINT, Type.LONG, Type.ULONG, Type.USHORT, Type.SHORT, Type.LONGLONG, Type.ULONGLONG}
COMPILED_ONLY = {"metaOf"}  # functions that no program calls; see compiled.py
OTHER_OPERATORS = {
    "<": ("<=", ">="),
    "<=": ("<", ">"),
    ">": (">=", "<="),
    ">=": (">", "<"),
    "==": ("!=",),
    "!=": ("==",),
    "+": ("-",),
    "-": ("+",),
    "*": ("+",),
    "/": ("*",),
    "&&": ("||",),
    "||": ("&&",),
}
COMPARISONS = {"<", "<=", ">", ">=", "==", "!=", "&&", "||"}
OTHER_CALLS = {
    "front": "back",
    "back": "front",
    "pop_front": "pop_back",
    "all_of": "any_of",
    "any_of": "all_of",
    "max": "min",
}


@dataclasses.dataclass
class Choice:
    """Replaces what stands from start to end; make(rendered, original) is the replacement."""

    start: int
    end: int
    rank: int  # of those with the same range: the lower one is the inner one
    make: object


def parse(path, flags):
    parsed = cindex.Index.create().parse(
        str(path), args=flags, options=cindex.TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
    )
    errors = [str(problem) for problem in parsed.diagnostics if problem.severity >= cindex.Diagnostic.Error]
    if errors:
        raise SystemExit("\n".join(errors))
    return parsed


class Source:
    """One file of a parsed unit, with its mutants. Numbers start at `first`."""

    def __init__(self, root, file, parsed, first):
        self.file = file
        self.path = str(root / file)
        self.original = self.text = (root / file).read_text(encoding="ascii")
        self.first = first
        self.mutants = []
        self.choices = []
        self.known = set()
        for token in parsed.get_tokens(extent=parsed.get_extent(self.path, (0, len(self.text)))):
            if token.kind == cindex.TokenKind.COMMENT:  # which would swallow what is moved behind it
                start, end = self.of(token)
                self.text = self.text[:start] + re.sub(r"[^\n]", " ", self.text[start:end]) + self.text[end:]
        self.macros = [
            (cursor.extent.start.offset, cursor.extent.end.offset)
            for cursor in parsed.cursor.get_children()
            if cursor.kind == Kind.MACRO_INSTANTIATION and self.is_here(cursor)
        ]
        for cursor in parsed.cursor.get_children():
            if self.is_here(cursor) and cursor.kind not in (Kind.MACRO_INSTANTIATION, Kind.MACRO_DEFINITION):
                self.visit(cursor, None, False)

    def is_here(self, cursor):
        return cursor.location.file is not None and cursor.location.file.name == self.path

    def of(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def text_of(self, cursor):
        start, end = self.of(cursor)
        return self.text[start:end]

    def in_macro(self, cursor):
        start, end = self.of(cursor)
        return end <= start or any(first <= start < last for first, last in self.macros)

    # ---- making mutants ----

    def mutant(self, place, operator, change):
        """A new mutant's number, or None when this one is there already."""
        key = (place, operator, change)
        if key in self.known:
            return None
        self.known.add(key)
        number = self.first + len(self.mutants)
        line = self.text.count("\n", 0, place) + 1
        self.mutants.append(
            Mutant(
                number, self.file, line, self.original.split("\n")[line - 1].strip(), operator, " ".join(change.split())
            )
        )
        return number

    def choose(self, cursor, constant, operator, change, make, rank=0):
        """make(on, rendered, original), where on is the condition's text."""
        start, end = self.of(cursor)
        self.choose_range(start, end, constant, operator, change, make, rank)

    def choose_range(self, start, end, constant, operator, change, make, rank=0):
        number = self.mutant(start, operator, change)
        if number is None:
            return
        self.choices.append(
            Choice(start, end, rank, lambda rendered, original: make(self.on(number, constant), rendered, original))
        )

    @staticmethod
    def on(number, constant):
        return f"::mutation::on{'UnlessConstant' if constant else ''}({number})"

    def alternative(self, cursor, constant, operator, text, rank=0):
        self.choose(
            cursor,
            constant,
            operator,
            f"{text} for {self.text_of(cursor)}",
            lambda on, rendered, _: f"({on} ? ({text}) : ({rendered}))",
            rank,
        )

    # ---- the tree ----

    def visit(self, cursor, function, constant, parent=None):
        kind = cursor.kind
        if kind in FUNCTIONS:
            start = cursor.extent.start.offset
            if cursor.spelling in COMPILED_ONLY:
                return
            function = cursor
            constant = "constexpr" in self.text[start : cursor.location.offset].split()
        elif kind == Kind.LAMBDA_EXPR:
            function = None
        elif (
            kind in (Kind.VAR_DECL, Kind.FIELD_DECL)
            and function is None
            and parent is not None
            and parent.kind != Kind.DECL_STMT
        ):
            return  # a constant of the namespace or the class
        elif (
            kind == Kind.VAR_DECL
            and "constexpr" in self.text[cursor.extent.start.offset : cursor.location.offset].split()
        ):
            return
        elif kind in (
            Kind.STATIC_ASSERT,
            Kind.ENUM_DECL,
            Kind.TEMPLATE_TYPE_PARAMETER,
            Kind.TYPE_ALIAS_DECL,
            Kind.TEMPLATE_NON_TYPE_PARAMETER,
            Kind.CXX_BASE_SPECIFIER,
            Kind.CONCEPT_DECL if hasattr(Kind, "CONCEPT_DECL") else Kind.STATIC_ASSERT,
        ):
            return
        children = list(cursor.get_children())
        if kind == Kind.CASE_STMT:
            children = children[1:]
        elif kind == Kind.IF_STMT and re.match(r"if\s+constexpr\b", self.text_of(cursor)):
            children = children[1:]  # the compiler's own choice
        if not self.in_macro(cursor) or kind in FUNCTIONS or kind == Kind.NAMESPACE:
            self.mutate(cursor, children, function, constant)
        for child in children:
            if self.is_here(child) or kind == Kind.LAMBDA_EXPR:
                self.visit(child, function, constant, cursor)

    def mutate(self, cursor, children, function, constant):
        kind = cursor.kind
        if kind == Kind.COMPOUND_STMT:
            for child in children:
                self.statement(child, constant)
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT):
            self.control(cursor, children, constant)
        elif kind == Kind.CONDITIONAL_OPERATOR:
            self.negate(children[0], constant)
        elif kind == Kind.BINARY_OPERATOR and len(children) == 2:
            self.binary(cursor, children, constant)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(cursor, constant)
        elif kind == Kind.CALL_EXPR:
            self.call(cursor, constant)
        elif kind == Kind.INIT_LIST_EXPR:
            if not self.text[: cursor.extent.start.offset].rstrip().endswith(":"):  # what is gone through, in any order
                self.swap(children, constant)
        elif kind in LITERALS:
            self.literal(cursor, constant)
        elif kind == Kind.DECL_REF_EXPR:
            self.enumerator(cursor, constant)
        elif kind == Kind.RETURN_STMT and children:
            self.result(children[0], function, constant)

    def statement(self, cursor, constant):
        start, end = self.of(cursor)
        text = self.text[start:end]
        log = re.match(r"GENRPC_LOG(_PLAIN|_AT)?\(", text)
        if self.in_macro(cursor) and not log:
            return
        deletable = cursor.kind.is_expression() or cursor.kind in (Kind.CONTINUE_STMT, Kind.BREAK_STMT) or log
        close = re.match(r"\s*;", self.text[end:])
        if not deletable or not close or text.startswith(("static_cast<", "delete ")):
            return
        end += close.end()
        if log:
            self.log(start, end, text, log[1])
        self.choose_range(
            start,
            end,
            constant,
            "statement left out",
            text,
            lambda on, rendered, _: f"{{ if (!{on}) {{ {rendered} }} }}",
            9,
        )

    def log(self, start, end, text, variant):
        """A log line's severity, text and arguments."""
        arguments = arguments_of(text)
        first = 2 if variant == "_AT" else 1

        def change(i, operator, make):
            left, right = arguments[i]
            lead = len(text[left:right]) - len(text[left:right].lstrip())
            self.choose_range(start + left + lead, start + right, False, operator, text[left:right].strip(), make)

        change(first, "another severity", lambda on, rendered, _: f"({on} ? 1234U : ({rendered}))")
        for i in range(first + 2, len(arguments)):
            change(i, "another value logged", lambda on, rendered, _: f"::mutation::other({on}, {rendered})")
        left = arguments[first + 1][0] + len(text[: arguments[first + 1][0]]) - arguments[first + 1][0]
        place = left + len(text[left:]) - len(text[left:].lstrip())
        self.choose_range(
            start,
            end,
            False,
            "another text logged",
            text[place : arguments[first + 1][1]],
            lambda on, rendered, original: f'{{ if ({on}) {{ {original[:place]}"~" '
            f"{original[place:]} }} else {{ {rendered} }} }}",
            8,
        )

    def negate(self, cursor, constant):
        if self.in_macro(cursor):
            return
        text = self.text_of(cursor)
        self.choose(
            cursor,
            constant,
            "condition negated",
            text,
            lambda on, rendered, _: f"({on} != static_cast<bool>({rendered}))",
            5,
        )
        # A comparison that the compiler makes of others is none in the tree.
        compared = re.split(r" (<=|>=|==|!=|<|>) ", text)
        if len(compared) == 3 and not re.search(r"&&|\|\|", text):
            for other in OTHER_OPERATORS[compared[1]]:
                self.alternative(cursor, constant, "another operator", f"{compared[0]} {other} {compared[2]}", 1)

    def control(self, cursor, children, constant):
        start, end = self.of(cursor)
        text = self.text[start:end]
        opening = text.index("(")
        if cursor.kind == Kind.IF_STMT and "constexpr" in text[:opening]:
            self.bodies(children, start + opening, constant)
            return
        depth, close = 0, opening
        for close in range(opening, len(text)):
            depth += {"(": 1, ")": -1}.get(text[close], 0)
            if depth == 0:
                break
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT):
            for child in children:
                if child.extent.end.offset == start + close and child.kind.is_expression():
                    self.negate(child, constant)
        elif cursor.kind == Kind.FOR_STMT:
            for child in children:
                if (
                    child.kind.is_expression()
                    and child.extent.end.offset < start + close
                    and re.match(r"\s*;", self.text[child.extent.end.offset :])
                ):
                    self.negate(child, constant)
        self.bodies(children, start + close, constant)

    def bodies(self, children, after, constant):
        for child in children:
            if child.extent.start.offset > after and child.kind != Kind.COMPOUND_STMT:
                self.statement(child, constant)

    def binary(self, cursor, children, constant):
        left, right = children
        operator = self.text[left.extent.end.offset : right.extent.start.offset].strip()
        if operator not in OTHER_OPERATORS or self.of(left)[0] == self.of(right)[0]:
            return
        if operator not in COMPARISONS and cursor.type.get_canonical().kind not in INTEGERS | {Type.POINTER}:
            return
        if operator == "-" and right.type.get_canonical().kind == Type.POINTER:
            return
        for other in OTHER_OPERATORS[operator]:
            self.alternative(
                cursor, constant, "another operator", f"{self.text_of(left)} {other} {self.text_of(right)}", 1
            )
        if operator in ("&&", "||"):
            for side in (left, right):
                if self.in_macro(side):
                    continue
                self.choose(
                    side,
                    constant,
                    "operand left out",
                    f"{self.text_of(side)} of {operator}",
                    (lambda on, rendered, _: f"(({rendered}) || {on})")
                    if operator == "&&"
                    else (lambda on, rendered, _: f"(({rendered}) && !{on})"),
                    6,
                )

    def unary(self, cursor, constant):
        text = self.text_of(cursor)
        if re.match("!(?!=)", text):
            self.negate(cursor, constant)

    def call(self, cursor, constant):
        arguments = list(cursor.get_arguments())
        name = re.fullmatch(r"operator(==|!=|<|>|<=|>=)", cursor.spelling)
        if name and len(arguments) == 2:
            left, right = arguments
            operator = self.text[left.extent.end.offset : right.extent.start.offset].strip()
            for other in OTHER_OPERATORS.get(operator, ()):
                self.alternative(
                    cursor, constant, "another operator", f"{self.text_of(left)} {other} {self.text_of(right)}", 1
                )
            return
        text = self.text_of(cursor)
        name = cursor.spelling
        callee = re.search(rf"\b{name}\(\)$|^std::{name}\(", text) if name in OTHER_CALLS else None
        if callee:
            self.alternative(
                cursor,
                constant,
                "another function",
                text[: callee.start()] + callee[0].replace(name, OTHER_CALLS[name]) + text[callee.end() :],
                2,
            )
        if cursor.spelling != "exchange":  # which changes the first, a place, to the second, a value
            self.swap(arguments, constant)

    def swap(self, arguments, constant):
        for left, right in zip(arguments, arguments[1:]):
            if left is None or right is None or self.in_macro(left) or self.in_macro(right):
                continue
            texts = self.text_of(left), self.text_of(right)
            if texts[0].startswith("."):
                continue  # named, in any order
            kinds = [side.type.get_canonical().spelling.replace("const ", "") for side in (left, right)]
            apart = self.text[left.extent.end.offset : right.extent.start.offset].strip() == ","
            if not apart or kinds[0] != kinds[1] or texts[0] == texts[1] or "dependent" in kinds[0]:
                continue
            number = self.mutant(left.extent.start.offset, "swapped", f"{texts[0]} and {texts[1]}")
            if number is None:
                continue
            for side, other in ((left, texts[1]), (right, texts[0])):
                self.choices.append(
                    Choice(
                        *self.of(side),
                        7,
                        lambda rendered, _, number=number, other=other: (
                            f"({self.on(number, constant)} ? ({other}) : ({rendered}))"
                        ),
                    )
                )

    def literal(self, cursor, constant):
        text = self.text_of(cursor)
        if not re.match(r'[\d"tf]', text):
            return  # part of an operator that the compiler made of others
        line = self.text[self.text.rfind("\n", 0, cursor.extent.start.offset) + 1 :].lstrip()
        if line.startswith("std::memcpy(&"):
            return  # beyond a local variable: what becomes of that is nothing to rely on, noticed or not
        if cursor.kind == Kind.INTEGER_LITERAL:
            self.alternative(cursor, constant, "another constant", f"{text} + 1")
        elif cursor.kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.alternative(cursor, constant, "another constant", f"!{text}")
        elif cursor.kind == Kind.STRING_LITERAL:
            self.alternative(cursor, constant, "another text", '"mutated"')

    def enumerator(self, cursor, constant):
        referenced = cursor.referenced
        if referenced is None or referenced.kind != Kind.ENUM_CONSTANT_DECL:
            return
        names = [child.spelling for child in referenced.semantic_parent.get_children()]
        text = self.text_of(cursor)
        other = names[(names.index(referenced.spelling) + 1) % len(names)]
        if other != referenced.spelling and text.endswith(referenced.spelling):
            self.alternative(cursor, constant, "another constant", text[: -len(referenced.spelling)] + other)

    def result(self, value, function, constant):
        text = self.text_of(value)
        if self.in_macro(value) or re.match(r'["\d]|nullptr$|true$|false$', text):
            return  # a literal, which is changed as such
        declared = (function.result_type if function is not None else value.type).get_canonical()
        if declared.kind == Type.BOOL:
            self.choose(
                value,
                constant,
                "result negated",
                text,
                lambda on, rendered, _: f"({on} != static_cast<bool>({rendered}))",
                7,
            )
        elif declared.kind in INTEGERS:
            self.choose(
                value,
                constant,
                "another result",
                f"{text} + 1",
                lambda on, rendered, _: f"static_cast<{declared.spelling}>(static_cast<{declared.spelling}>"
                f"({rendered}) + ({on} ? 1 : 0))",
                7,
            )
        elif declared.kind == Type.POINTER:
            self.choose(
                value,
                constant,
                "another result",
                f"nullptr for {text}",
                lambda on, rendered, _: f"({on} ? static_cast<std::decay_t<decltype({text})>>(nullptr) "
                f": ({rendered}))",
                7,
            )

    # ---- the file ----

    def rewritten(self):
        ordered = sorted(self.choices, key=lambda choice: (choice.start, -choice.end, -choice.rank))
        return self.render(0, len(self.text), ordered)

    def render(self, start, end, ordered):
        pieces, at, i = [], start, 0
        while i < len(ordered):
            choice = ordered[i]
            inner = i + 1
            while inner < len(ordered) and ordered[inner].start < choice.end:
                inner += 1
            pieces.append(self.text[at : choice.start])
            rendered = self.render(choice.start, choice.end, ordered[i + 1 : inner])
            pieces.append(
                choice.make(rendered, self.text[choice.start : choice.end]).replace("\n", " ")
                + "\n" * self.text.count("\n", choice.start, choice.end)
            )
            at, i = choice.end, inner
        pieces.append(self.text[at:end])
        return "".join(pieces)
