"""Finds the places of a C++ source that can be mutated, and renders a source that holds mutants.

The sources are formatted by clang-format, so spaces tell a binary operator from a template bracket, a
pointer or a sign.
"""

import bisect
import re

TOKEN = re.compile(
    r"""(?P<space>\s+)
      | (?P<blank>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*)
      | (?P<text>(?:u8|u|U|L)?R"(?P<mark>[^(]*)\(.*?\)(?P=mark)"|(?:u8|u|U|L)?"(?:[^"\\]|\\.)*"|'(?:[^'\\]|\\.)+')
      | (?P<number>\.?\d(?:[eEpP][+-]|'?[\w.])*)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<sign><<=|>>=|->\*|\.\.\.|::|->|\+\+|--|<<|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)""",
    re.X | re.S | re.M)

PRECEDENCE = {"||": 1, "&&": 2, "|": 3, "^": 4, "&": 5, "==": 6, "!=": 6, "<": 7, "<=": 7, ">": 7, ">=": 7,
              "<<": 8, "+": 9, "-": 9, "*": 10, "/": 10, "%": 10}
SWAPS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&",
         "+": "-", "-": "+"}
OPEN, CLOSE = "([{", ")]}"
ENDS = {",", ";", "?", ":", "=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=",
        "return", "throw", "case", "else", "do"}
# What stands in a statement that the compiler evaluates, or that is no expression.
FIXED = {"constexpr", "static_assert", "enum", "case", "using", "template", "typedef", "operator", "goto",
         "friend", "extern", "alignas"}
AFTER_BLOCK_HEAD = {")", "const", "noexcept", "override", "final", "else", "do", "try", "mutable"}
# A call that only saves time, or prints text for developers, can be left out without a fault.
UNSEEN_CALLS = re.compile(r"(\.|->)(reserve|shrink_to_fit)\($|^(std::)?printf\($")


class Mutant:
    """One change of one source. `begin` and `end` delimit the part that is replaced by `text`."""

    def __init__(self, source, at, begin, end, text, change, kind="value"):
        self.source, self.begin, self.end = source, begin, end
        self.text, self.change, self.kind = text, change, kind
        self.line = source.line(at)
        self.last_line = source.line(end)
        self.code = source.lines[self.line - 1].strip()
        self.copy = 0  # counts equal changes of equal lines

    @property
    def key(self):
        return " | ".join([self.source.path, self.change + (f" ({self.copy + 1})" if self.copy else ""),
                           self.code])

    def __str__(self):
        return f"{self.source.path}:{self.line}: {self.change}: {self.code}"


class Source:
    def __init__(self, path, text):
        self.path, self.text, self.lines = path, text, text.split("\n")
        self.starts = [0]
        for line in self.lines:
            self.starts.append(self.starts[-1] + len(line) + 1)
        self.tokens, self.at = [], []
        plain = []
        for match in TOKEN.finditer(text):
            if match.lastgroup in ("space", "blank"):
                plain.append(" " * len(match[0]))
                continue
            plain.append(match[0])
            self.tokens.append((match.lastgroup if match.lastgroup != "mark" else "text", match[0]))
            self.at.append(match.start())
        self.plain = "".join(plain)  # without comments and line ends
        self.pairs = {}
        stack = []
        for i, (_, token) in enumerate(self.tokens):
            if token in OPEN and self.tokens[i][0] == "sign":
                stack.append(i)
            elif token in CLOSE and self.tokens[i][0] == "sign" and stack:
                begin = stack.pop()
                self.pairs[begin], self.pairs[i] = i, begin

    def line(self, offset):
        return bisect.bisect_right(self.starts, offset)

    def token(self, i):
        return self.tokens[i][1] if 0 <= i < len(self.tokens) else ""

    def end_of(self, i):
        return self.at[i] + len(self.token(i))

    def binary(self, i):
        """True for an operator with a space on both sides."""
        at, end = self.at[i], self.end_of(i)
        return (self.token(i) in PRECEDENCE and self.token(i - 1) != "operator" and self.tokens[i][0] == "sign"
                and self.text[at - 1].isspace() and self.text[end:end + 1].isspace())

    def fixed(self, i):
        """True where a value may be needed at compile time, or outside of expressions."""
        while i > 0:
            i -= 1
            token = self.token(i)
            if token in FIXED and self.tokens[i][0] == "word":
                return True
            if token in CLOSE and i in self.pairs:
                if token == "}" and self.token(i + 1) not in (",", ")", ";", "."):
                    i = self.enclosing(i)
                    if i < 0 or self.block(i):
                        return False
                    continue
                i = self.pairs[i]
            elif token == ";" and self.token(self.enclosing(i)) != "(":
                i = self.enclosing(i)
                if i < 0 or self.block(i):
                    return False
            elif token == "{" and self.block(i):
                return False
        return False

    def block(self, i):
        return self.token(i) == "{" and self.token(i - 1) in AFTER_BLOCK_HEAD

    def enclosing(self, i):
        """The innermost bracket that is open before token i, or -1."""
        while i > 0:
            i -= 1
            if self.tokens[i][0] == "sign":
                if self.token(i) in CLOSE and i in self.pairs:
                    i = self.pairs[i]
                elif self.token(i) in OPEN:
                    return i
        return -1

    def operand(self, i, step, precedence):
        """The last token of the expression around i, going left or right, that binds as tightly."""
        last = i
        while 0 <= (i := i + step) < len(self.tokens):
            token = self.token(i)
            kind = self.tokens[i][0]
            if kind == "sign" and token in (OPEN if step > 0 else CLOSE) and i in self.pairs:
                if token == "}" and step < 0 and self.token(i + 1) not in (".", "->"):
                    if self.token(self.pairs[i] - 1) in AFTER_BLOCK_HEAD | {";", "{", "}"}:
                        break
                i = self.pairs[i]
            elif kind == "sign" and token in OPEN + CLOSE or token in ENDS:
                break
            elif kind == "sign" and self.binary(i) and PRECEDENCE[token] < precedence:
                break
            last = i
        return last

    def postfix_end(self, i):
        """The last token of a unary operand that begins at token i."""
        while self.token(i) in ("*", "!", "&", "-"):
            i += 1
        if self.token(i) == "(":
            i = self.pairs[i]
        while True:
            following = self.token(i + 1)
            if following in ("(", "["):
                i = self.pairs[i + 1]
            elif following in (".", "->", "::"):
                i += 2
            elif following == "<" and self.at[i + 1] == self.end_of(i):
                while self.token(i) != ">":
                    i += 1
            else:
                return i

    def slice(self, first, last):
        return self.at[first], self.end_of(last)

    def replaced(self, begin, end, at, until, text):
        return self.plain[begin:at] + text + self.plain[until:end]

    def mutants(self):
        found = []
        for i, (kind, token) in enumerate(self.tokens):
            if kind == "number":
                found += self.constant(i, token)
            elif kind == "sign" and token in SWAPS and self.binary(i):
                found += self.swap(i, token)
            elif token == "!" and kind == "sign":
                found += self.negation(i)
            elif token in ("if", "while") and self.token(i + 1) == "(":
                found += self.condition(i + 1)
            if token in (";", "{", "}", ")", "else", ":") and self.tokens[i][0] != "text":
                found += self.call(i)
        # An assertion prints its condition.
        found = [mutant for mutant in found if "KESTRO_ASSERT" not in self.lines[mutant.line - 1]]
        seen = {}
        for mutant in sorted(found, key=lambda mutant: (mutant.line, mutant.begin)):
            mutant.copy = seen.get(mutant.key, 0)
            seen[mutant.key] = mutant.copy + 1
        return found

    def constant(self, i, token):
        match = re.fullmatch(r"(0[xX][\da-fA-F']+|[\d']+)([uUlL]*)", token)
        if not match or self.fixed(i):
            return []
        before, declared = self.token(i - 1), self.tokens[max(i - 3, 0)]
        if before == "[" and self.tokens[i - 2][0] == "word" and (declared[0] == "word" or declared[1] in ">*"):
            return []  # an array's size
        if before == "=" and self.token(i - 2) in (")", "const", "override"):
            return []  # a pure virtual function
        digits = match[1].replace("'", "")
        base = 16 if digits[:2].lower() == "0x" else 8 if len(digits) > 1 and digits[0] == "0" else 10
        text = (hex if base == 16 else str)(int(digits, base) + 1) + match[2]
        begin, end = self.slice(i, i)
        return [Mutant(self, begin, begin, end, text, f"{token} to {text}")]

    def swap(self, i, token):
        first, last = self.operand(i, -1, PRECEDENCE[token]), self.operand(i, 1, PRECEDENCE[token])
        if first == i or last == i or self.fixed(i):
            return []
        if token in "+-" and any(self.tokens[j][0] == "text" for j in range(first, last + 1)):
            return []  # joins texts
        begin, end = self.slice(first, last)
        at = self.at[i]
        text = self.replaced(begin, end, at, at + len(token), SWAPS[token])
        return [Mutant(self, at, begin, end, text, f"{token} to {SWAPS[token]}")]

    def negation(self, i):
        if self.fixed(i):
            return []
        begin, end = self.slice(i, self.postfix_end(i + 1))
        return [Mutant(self, begin, begin, end, f"bool({self.plain[begin + 1:end]})", "! dropped", "bool")]

    def condition(self, i):
        """Negates a condition that has no operator of its own."""
        first, last = i + 1, self.pairs[i] - 1
        for j in range(first, last + 1):
            if self.token(j) == ";" and self.enclosing(j) == i:
                first = j + 1
        if any(self.token(j) in ("=", "!", "true") or self.binary(j) and self.token(j) in SWAPS
               for j in range(first, last + 1)) or self.token(i - 2) == "do":
            return []
        begin, end = self.slice(first, last)
        return [Mutant(self, begin, begin, end, f"!bool({self.plain[begin:end]})", "negated", "bool")]

    def call(self, i):
        """Drops a call that is a statement and follows token i."""
        first = i + 1
        if self.token(i) == ":" and self.token(i - 2) not in ("case", "::") and self.token(i - 1) != "default":
            return []
        if self.token(i) == ")" and self.token(self.pairs.get(i, 0) - 1) not in ("if", "for", "while"):
            return []
        if self.tokens[first:first + 1] == [] or self.tokens[first][0] != "word" or \
                self.token(first) in FIXED | {"return", "throw", "delete", "else", "if", "for", "while", "new"}:
            return []
        last, called = first, False
        while last < len(self.tokens) and self.token(last) != ";":
            kind, token = self.tokens[last]
            if kind == "word" and last > first and (self.tokens[last - 1][0] == "word" or
                                                    self.token(last - 1) in (">", "*", "&")):
                return []  # a declaration
            if token in "([" and kind == "sign":
                called = called or token == "("
                if token == "(" and UNSEEN_CALLS.search(self.plain[self.at[first]:self.at[last] + 1]):
                    return []
                last = self.pairs[last]
            elif kind == "sign" and token == "<" and not self.binary(last):
                while self.token(last) != ">":
                    last += 1
            elif kind not in ("word",) and token not in ("::", ".", "->"):
                return []
            last += 1
        if not called or self.token(last - 1) != ")" or not self.in_function(first):
            return []
        begin, end = self.slice(first, last)
        name = self.plain[begin:self.at[self.pairs[last - 1]]]
        return [Mutant(self, begin, begin, end, "", f"{' '.join(name.split())}() dropped", "call")]

    def in_function(self, i):
        return self.block(self.enclosing(i)) or self.token(self.enclosing(i)) == "{" and \
            self.token(self.enclosing(i) - 1) in ("{", "}", ";", ":")


def render(source, numbered):
    """The source's text with the given (number, mutant) pairs, each chosen at run time by its number."""
    spans = {}
    for number, mutant in numbered:
        spans.setdefault((mutant.begin, -mutant.end), []).append((number, mutant))
    order = sorted(spans)
    out, next_span = [], [0]

    def fill(begin, end):
        at = begin
        while next_span[0] < len(order) and order[next_span[0]][0] < end:
            first, last = order[next_span[0]][0], -order[next_span[0]][1]
            group = spans[order[next_span[0]]]
            next_span[0] += 1
            if last > end or first < at:
                continue  # crosses another mutant: it stays unreached and is dropped
            out.append(source.text[at:first])
            if group[0][1].kind == "call":
                out.append("{ if (!KESTRO_MUTANT(%d)) " % group[0][0])
                fill(first, last)
                out.append(" }")
            else:
                as_bool = "bool" if any(mutant.kind == "bool" for _, mutant in group) else ""
                out.append("(")
                for number, mutant in group:
                    out.append(f"KESTRO_MUTANT({number}) ? {as_bool}({mutant.text}) : ")
                out.append(as_bool + "(")
                fill(first, last)
                out.append("))")
            at = last
        out.append(source.text[at:end])

    fill(0, len(source.text))
    return "".join(out)
