"""The mutants of a source file. Each is the file with one small mistake."""

import dataclasses
import hashlib
import re

# Operators and words that replace each other.
members = {
    "Protocol": ["Pub", "Sub", "Rep", "Req", "Undef"],
    "Transport": ["Inproc", "Ipc", "Tcp", "Undef"],
    "ClosePolicy": ["DropPending", "LingerTwoSeconds", "WaitForDelivery"],
    "PollResult": ["Input", "Timeout", "Failure"],
    "Level": ["Debug", "Warning", "Error"],
    "level": ["debug", "warn", "err"],
}
families = [
    *(members[scope] for scope in ("Protocol", "Transport", "Level", "level")),
    ["ZMQ_PUB", "ZMQ_SUB", "ZMQ_REP", "ZMQ_REQ"],
    ["ZMQ_SNDHWM", "ZMQ_RCVHWM", "ZMQ_SNDTIMEO"],
    ["ZMQ_RCVTIMEO", "ZMQ_SNDTIMEO"],
    ["ZMQ_SUBSCRIBE", "ZMQ_UNSUBSCRIBE"],
    ["ZMQ_LINGER", "ZMQ_SNDTIMEO"],
    ["ZMQ_POLLIN", "ZMQ_POLLOUT"],
    ["EFSM", "ETERM", "EAGAIN"],
    ["EADDRINUSE", "EACCES"],
    ["SIG_SETMASK", "SIG_BLOCK", "SIG_UNBLOCK"],
    ["true", "false"],
    ["min", "max"],
    ["rfind", "find"],
    ["logDebug", "logWarning"], ["logWarning", "logError"],
]
operators = {
    "==": ["!="], "!=": ["=="],
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "&": ["|"], "|": ["&"],
    "+=": ["-="], "++": ["--"],
}
token = re.compile(
    r'(?P<comment>//[^\n]*)|(?P<text>"(?:[^"\\\n]|\\.)*")|(?P<char>\'(?:[^\'\\]|\\.)\')'
    r"|(?P<number>\b(?:0[0-7]+|\d+\.\d+|\d+)\b)|(?P<name>\b[A-Za-z_]\w*\b)"
    r"|(?P<operator>(?<= )(?:==|!=|<=|>=|<|>|&&|\|\||\+=|\+|-|\*|/|&|\|)(?= |$)|\+\+|(?<![\w=])!(?!=))", re.MULTILINE)
# Lines without behaviour: declarations, and the labels of a switch, which must be distinct.
inert = re.compile(r"\s*(#|using |namespace |template|case |enum |///|//)|.* = (delete|default);")
declaration = re.compile(r"\s*(const |auto |static |constexpr |return\b|throw\b|using |[\w:<>,*& ]+ \w+(\{.*\})?( = .*)?;$)")
function = re.compile(r"\s*[\w:<>&* ]+ \w+\([^()]*\)( const)?( noexcept)?;|\s*(explicit |~)\w+\([^()]*\);")
guard = re.compile(r"\s*const (std::lock_guard<std::mutex>|ErrnoKeeper|SignalBlock) \w+(\(.*\))?;$")
leaving = re.compile(r"\s*(return|throw|continue)\b.*;$")
handler = re.compile(r"catch \((\.\.\.|const std::(?:exception|system_error)&( \w+)?)\)")
head = re.compile(r"^(?:class |struct )?[\w\[(~].*[({]$|^[\w\[(~].*\(.*")


@dataclasses.dataclass(frozen=True)
class Mutant:
    file: str
    function: str
    line: int  # the first that differs, from 1
    last: int
    before: str
    after: str
    text: str
    function_text: str  # with the mistake

    @property
    def name(self):
        """Returns a name that does not depend on the function's position in the file."""
        return f"{self.file}: {self.function}: {self.before} => {self.after}"

    @property
    def id(self):
        """The same as long as nothing but comments and the layout of the function change."""
        code = token.sub(lambda found: "" if found.lastgroup == "comment" else found.group(), self.function_text)
        return hashlib.sha256(f"{self.file} {' '.join(code.split())}".encode()).hexdigest()[:16]


def other_number(text):
    if "." in text:
        return [f"{float(text) * 2 or 1.0}"]
    value = int(text, 8) if re.fullmatch("0[0-7]+", text) else int(text)
    return [str(value + 1)] + ([str(value - 1)] if value > 0 else [])


def other_names(name, line, at):
    scope = re.search(r"(\w+)::$", line[:at])
    possible = [members[scope[1]]] if scope and scope[1] in members else families
    found = [family[(family.index(name) + step) % len(family)] for family in possible if name in family for step in (1, 2)]
    return [other for other in dict.fromkeys(found) if other != name]


def replacements(match, line):
    kind, text = match.lastgroup, match.group()
    if kind == "text":
        return [text[:-1] + '~"']
    if kind == "char":
        return ["'!'" if text == "'~'" else "'~'"]
    if kind == "number":
        return other_number(text)
    if kind == "name":
        return other_names(text, line, match.start())
    if kind == "operator" and not (text in "+-" and '"' in line):  # texts are only ever added
        return [""] if text == "!" else operators.get(text, [])
    return []


class Source:
    def __init__(self, file, text):
        self.file = file
        self.lines = text.split("\n")

    def mutants(self):
        """Yields every mutant once, in the order of the file."""
        if self.file.endswith(".h") and "/detail/" not in self.file:
            found = list(self.of_initialisers())
        else:
            found = [*self.of_tokens(range(len(self.lines))), *self.of_conditions(), *self.of_statements(),
                     *self.of_handlers()]
        unique = {}
        for mutant in sorted(found, key=lambda mutant: mutant.line):
            unique.setdefault(mutant.text, mutant)
        return list(unique.values())

    def mutant(self, first, last, new):
        """The file with the lines from `first` to `last` replaced by `new`."""
        begin, end = self.function_around(first, last)
        function_text = "\n".join(self.lines[begin:first] + new + self.lines[last + 1:end])
        text = "\n".join(self.lines[:first] + new + self.lines[last + 1:])
        shown = [" ".join(line.strip() for line in lines) for lines in (self.lines[first:last + 1], new)]
        return Mutant(self.file, self.function_at(first), first + 1, last + 1, shown[0], shown[1] or ";", text,
                      function_text)

    def function_around(self, first, last):
        """Where what lies between two closing braces in the first column begins and ends."""
        begin = max((number + 1 for number in range(first) if self.lines[number].startswith("}")), default=0)
        end = next((number for number in range(last, len(self.lines)) if self.lines[number].startswith("}")), None)
        return begin, len(self.lines) if end is None else end + 1

    def function_at(self, number):
        """Returns the name of the function that contains the line."""
        for line in reversed(self.lines[:number + 1]):
            found = re.match(r"(?:    )?(?:\[\[.*\]\] )?(?:[\w:<>*&, ]+[ *&])?([\w:~]+)\(.*[{:;,]$", line)
            if found and not re.match(r"\s*(if|for|while|switch|return|throw|const std::lock_guard)\b|.*\[&\]", line):
                if not line.startswith("    ") or line.rstrip().endswith("{") and not line.startswith("     "):
                    return found.group(1)
        return "file"

    def of_tokens(self, numbers):
        for number in numbers:
            line = self.lines[number]
            if inert.match(line):
                continue
            for match in token.finditer(line):
                if match.lastgroup == "comment":
                    break
                for new in replacements(match, line):
                    yield self.mutant(number, number, [line[:match.start()] + new + line[match.end():]])

    def of_initialisers(self):
        """Restricts a public header to the initial values of private members, which only the library compiles."""
        first = self.lines.index("private:") if "private:" in self.lines else len(self.lines)
        return self.of_tokens([number for number, line in enumerate(self.lines)
                               if number > first and re.match(r"    [\w:<>*]+ \w+( = .*|\{.*\});", line)])

    def of_conditions(self):
        for number, line in enumerate(self.lines):
            found = re.match(r"(\s*(?:\} else )?(?:if|while) \()(.*)(\) \{)$", line)
            if found:
                before, condition, behind = found.groups()
                constants = ["false"] if "while" in before else ["true", "false"]
                comparisons = len(re.findall(r" (?:[<>]=?|[=!]=) ", condition))
                opposite = [f"!({condition})"] if comparisons != 1 and not condition.startswith("!") else []
                for new in opposite + constants:
                    yield self.mutant(number, number, [before + new + behind])
            inside = re.search(r"\([^()]*\?", line)
            found = re.search(r" \? (.+) : (.+?)(?=%s)" % (r"\)" if inside else ";$"), line)
            if found:
                yes, no = found.groups()
                yield self.mutant(number, number, [line[:found.start()] + f" ? {no} : {yes}" + line[found.end():]])

    def statements(self):
        """Yields the first and last line of each simple statement of a function's body."""
        first = None
        for number, line in enumerate(self.lines):
            code = line.split("//")[0].rstrip() if '"' not in line else line
            if not code.startswith("    ") or inert.match(line) or code.endswith(("{", "}", ":")) or not code.strip():
                first = None
                continue
            if first is None:
                first = number
            if code.endswith(";"):
                yield first, number
                first = None

    def of_statements(self):
        previous = None
        for first, last in self.statements():
            whole = " ".join(line.strip() for line in self.lines[first:last + 1])
            indent = re.match(r" *", self.lines[first]).group()
            is_call = not declaration.match(whole) and not leaving.match(whole) and whole != "break;"
            ends_function = last + 1 < len(self.lines) and self.lines[last + 1] == "}"
            if is_call or guard.match(whole) or leaving.match(whole) and not ends_function:
                yield self.mutant(first, last, [indent + ";"])
            # Assignments of values that are not read in between may be in any order, and so may declarations.
            ordered = is_call and "(" in whole and not (self.file.endswith(".h") and function.fullmatch(whole))
            if previous and ordered and previous[1] + 1 == first and previous[2] == indent:
                swapped = self.lines[first:last + 1] + self.lines[previous[0]:previous[1] + 1]
                yield self.mutant(previous[0], last, swapped)
            previous = (first, last, indent) if ordered else None

    def of_handlers(self):
        for number, line in enumerate(self.lines):
            found = handler.search(line)
            if found:
                new = f"catch (const std::bad_typeid&{found.group(2) or ''})"
                yield self.mutant(number, number, [line[:found.start()] + new + line[found.end():]])
