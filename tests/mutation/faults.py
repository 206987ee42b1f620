"""Faults that can be planted in a C++ source: other operators and constants, other conditions, missing statements.

They are found on tokens, without a parser: a fault that the compiler refuses is counted and costs little. Comments, strings,
preprocessor lines and static assertions are left alone, and so is what only prefetches: that costs time and is not seen.
"""

import collections
import re

# begin and end of what `text` replaces
Fault = collections.namedtuple("Fault", "path begin end text")

_TOKEN = re.compile(
    r'''(?P<comment>//[^\n]*|/\*.*?\*/)
      |(?P<string>(?:u8|u|U|L)?R"(?P<mark>[^()\s\\]*)\(.*?\)(?P=mark)"|(?:u8|u|U|L)?"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+')
      |(?P<directive>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
      |(?P<number>(?:0[xX][0-9a-fA-F']+|[0-9][0-9']*)(?P<suffix>[uUlL]*))
      |(?P<word>[A-Za-z_]\w*)
      |(?P<mark_of_code><<=|>>=|->\*|\.\.\.|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|::|\S)
      |(?P<space>\s+)''', re.X | re.S | re.M)

# With blanks on both sides, as clang-format leaves them: angle brackets, references and pointers have none.
_BINARY = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&", "+": "-", "-": "+",
           "*": "+", "/": "*", "%": "/", "&": "|", "|": "&", "^": "|", "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=",
           "|=": "&=", "&=": "|=", "^=": "|="}
_ANYWHERE = {"++": "--", "--": "++", "true": "false", "false": "true", "!": ""}
_ASSIGNMENTS = {"=", "+=", "-=", "*=", "/=", "|=", "&=", "^=", "<<=", ">>=", "++", "--"}
_OPENING, _CLOSING = {"(", "[", "{"}, {")", "]", "}"}
# No expression begins with them. Memory that is not given back is the address sanitizer's to find.
_NO_EXPRESSION = {"return", "using", "typedef", "const", "static", "constexpr", "auto", "if", "for", "while", "switch", "case",
                  "default", "do", "else", "class", "struct", "union", "enum", "namespace", "template", "friend", "public",
                  "private", "protected", "extern", "inline", "explicit", "virtual", "throw", "try", "catch", "delete", "goto",
                  "operator", "static_assert", "new", "unsigned", "signed", "static_cast", "__extension__"}

_Token = collections.namedtuple("_Token", "kind text begin end")


def _tokens(source):
    """Without comments and blanks."""
    found = []
    for match in _TOKEN.finditer(source):
        kind = next(name for name in ("comment", "string", "directive", "number", "word", "mark_of_code", "space")
                    if match[name] is not None)
        if kind not in ("comment", "space", "directive"):
            found.append(_Token(kind, match[0], match.start(), match.end()))
    return found


def line_of(source, position):
    """Its text, without blanks around it."""
    end = source.find("\n", position)
    return source[source.rfind("\n", 0, position) + 1:end if end >= 0 else None].strip()


def line_number(source, position):
    return source.count("\n", 0, position) + 1


def planted(source, fault):
    return source[:fault.begin] + fault.text + source[fault.end:]


class _Finder:
    def __init__(self, path, source):
        self.path = path
        self.source = source
        self.tokens = _tokens(source)
        self.faults = []

    def find(self):
        braces = []  # whether each that is open holds statements
        for place, token in enumerate(self.tokens):
            if token.text == "{":
                braces.append(self._holds_statements(place))
            elif token.text == "}" and braces:
                braces.pop()
            self._at(place, token)
            if braces and braces[-1] and self._text(place) in (";", "{", "}"):
                self._statement(place + 1)
        return [fault for fault in self.faults if self._counts(fault)]

    def _text(self, place):
        return self.tokens[place].text if 0 <= place < len(self.tokens) else ""

    def _add(self, begin, end, text):
        self.faults.append(Fault(self.path, begin, end, text))

    def _counts(self, fault):
        line = line_of(self.source, fault.begin)
        return "prefetch" not in line.lower() and "static_assert" not in line

    def _at(self, place, token):
        if token.kind == "string" or self._text(place - 1) == "operator":
            return
        blanks = self.source[token.begin - 1:token.begin].isspace() and self.source[token.end:token.end + 1].isspace()
        if token.text in _BINARY and blanks:
            self._add(token.begin, token.end, _BINARY[token.text])
        elif token.text in _ANYWHERE:
            self._add(token.begin, token.end, _ANYWHERE[token.text])
        elif token.kind == "number":
            self._number(token)
        elif token.text == "if":
            self._condition(place + (2 if self._text(place + 1) == "constexpr" else 1))

    def _number(self, token):
        suffix = re.search(r"[uUlL]*$", token.text)[0]
        digits = token.text[:len(token.text) - len(suffix)].replace("'", "")
        value = int(digits, 16 if digits[:2].lower() == "0x" else 10)
        self._add(token.begin, token.end, f"{value + 1}{suffix}")
        if value > 0:
            self._add(token.begin, token.end, f"{value - 1}{suffix}")

    def _condition(self, place):
        end = self._closing(place)
        if end is None or any(token.text == ";" or token.text == "=" for token in self.tokens[place:end]):
            return  # it declares a variable
        texts = [token.text for token in self.tokens[place + 1:end]]
        if not {"&&", "||"} & set(texts) and (texts[:1] == ["!"] or {"==", "!="} & set(texts)):
            return  # the fault of the operator is the same
        begin, finish = self.tokens[place].begin, self.tokens[end].end
        self._add(begin, finish, f"(!{self.source[begin:finish]})")

    def _closing(self, place):
        """The bracket that closes the one at a place."""
        depth = 0
        for end in range(place, len(self.tokens)):
            depth += (self._text(end) in _OPENING) - (self._text(end) in _CLOSING)
            if depth == 0:
                return end
        return None

    def _holds_statements(self, place):
        """A function's brace follows its head; a type's and an initialiser's hold other things."""
        begin = place
        while begin and self._text(begin - 1) not in (";", "{", "}"):
            begin -= 1
        head = [token.text for token in self.tokens[begin:place]]
        if {"class", "struct", "union", "enum", "namespace"} & set(head) and "(" not in head:
            return False
        return bool(head) and (head[-1] in (")", "const", "noexcept", "override", "else", "do", "try", "]") or "->" in head)

    def _statement(self, begin):
        """Takes an expression or a jump away, when one begins here."""
        first = self.tokens[begin] if begin < len(self.tokens) else None
        if first is None or first.text in _NO_EXPRESSION:
            return
        if first.kind != "word" and first.text not in ("++", "--", "*"):
            return
        end = begin
        while end < len(self.tokens) and self._text(end) != ";":
            if self._text(end) in _OPENING:
                end = self._closing(end)
                if end is None:
                    return
            elif self._text(end) in _CLOSING:
                return
            end += 1
        if end < len(self.tokens) and (first.text in ("break", "continue") or self._is_expression(begin)):
            if not any("prefetch" in token.text.lower() for token in self.tokens[begin:end]):
                self._add(first.begin, self.tokens[end].end, ";")

    def _is_expression(self, place):
        """Names that belong together, and then a call or an assignment; a declaration has a blank between two names."""
        if self._text(place) in ("++", "--"):
            return True
        if self._text(place) == "*":
            place += 1
        while place < len(self.tokens):
            text = self._text(place)
            if text in _ASSIGNMENTS:
                return True
            if text in ("(", "["):
                end = self._closing(place)
                if end is None:
                    return False
                if text == "(" and self._text(end + 1) == ";":
                    return True
                place = end + 1
            elif text in ("::", ".", "->") or (self.tokens[place].kind == "word" and
                                               self.tokens[place - 1].kind not in ("word", "number") and
                                               self._text(place - 1) not in ("&", "*", ">")):
                place += 1
            else:
                return False
        return False


def faults_of(path, source):
    """Every fault of a source, in order."""
    found = _Finder(path, source).find()
    return sorted(set(found), key=lambda fault: (fault.begin, fault.end, fault.text))
