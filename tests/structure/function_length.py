#!/usr/bin/env python3
"""A long procedure reads as named steps: no function is over 60 lines
without its reason written beside it.

Measures every function defined in the sources (free functions, members,
constructors with their initialiser lists, functions defined in a class
body, Objective-C methods), from the first line of its signature to its
closing brace; lambdas and local classes count toward the function they are
written in. Braces in strings, character literals and comments do not
count, and each branch of an #if is measured on its own.

A function over the limit passes only when the comment block right above it
has a line starting "// Long:" followed by the reason it stays whole. Fails
naming each long function without one, and each "// Long:" reason whose
function is no longer long.

Usage: function_length.py SOURCE_ROOT
"""
import re

from structure_check import report, run

LIMIT = 60
SCANNED = ("core", "app", "platform")
SUFFIXES = (".h", ".cpp", ".mm", ".cc")
REASON = re.compile(r"^\s*//\s*Long:\s*\S")

IDENTIFIER = re.compile(r"[A-Za-z0-9_]")
# What may stand before a declaration at class or file scope without being
# part of it.
PREAMBLE = re.compile(
    r"(?:\s+|\bQ_(?:OBJECT|GADGET)\b|\b(?:public|private|protected)(?:\s+(?:slots|Q_SLOTS))?\s*:(?!:)"
    r"|\b(?:signals|Q_SIGNALS)\s*:(?!:)|@end\b|@implementation\s+\w+(?:\s*\(\s*\w*\s*\))?)*"
)
NAMESPACE = re.compile(r"^(?:inline\s+)?namespace\b|^extern\s*\"\"")
CLASS = re.compile(r"^(?:template\s*<.*>\s*)?(?:class|struct|union)\b", re.S)
ENUM = re.compile(r"^(?:template\s*<.*>\s*)?enum\b", re.S)
# A constructor's initialiser list, and a member initialised with braces in it.
INITIALISERS = re.compile(r"\)\s*(?:noexcept\s*)?:(?!:)")
BRACED_MEMBER = re.compile(r"[:,]\s*[A-Za-z_][\w:]*(?:\s*<[^{};]*>)?\s*$")


def blanked(text):
    """The text with comments, string and character literals emptied (their
    quotes kept), every line where it was."""
    out = []
    i = 0
    n = len(text)
    while i < n:
        c = text[i]
        if text.startswith("//", i):
            end = text.find("\n", i)
            end = n if end < 0 else end
            out.append(" " * (end - i))
            i = end
        elif text.startswith("/*", i):
            end = text.find("*/", i + 2)
            end = n if end < 0 else end + 2
            out.append(re.sub(r"[^\n]", " ", text[i:end]))
            i = end
        elif c == '"' and i > 0 and text[i - 1] == "R" and is_raw_prefix(text, i - 1):
            delimiter = text[i + 1:text.find("(", i + 1)]
            closing = ")" + delimiter + '"'
            end = text.find(closing, i + 1)
            end = n if end < 0 else end + len(closing)
            out.append('"' + re.sub(r"[^\n]", " ", text[i + 1:end - 1]) + '"')
            i = end
        elif c == '"' or (c == "'" and not is_digit_separator(text, i)):
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            end = min(j + 1, n)
            out.append(c + " " * max(0, end - i - 2) + (c if end - i >= 2 else ""))
            i = end
        else:
            out.append(c)
            i += 1
    return "".join(out)


def is_raw_prefix(text, r):
    """Whether the R at `r` opens a raw string (R, u8R, uR, UR, LR)."""
    start = r
    while start > 0 and IDENTIFIER.match(text[start - 1]):
        start -= 1
    return text[start:r] in ("", "u8", "u", "U", "L")


def is_digit_separator(text, i):
    """A quote inside a number (1'000) rather than a character literal."""
    start = i
    while start > 0 and re.match(r"[A-Za-z0-9_.']", text[start - 1]):
        start -= 1
    return start < i and text[start].isdigit()


class Scope:
    def __init__(self, kind, line=0, head=""):
        self.kind = kind  # "file", "namespace", "class", "function", "block", "inner"
        self.line = line  # where a function's signature begins
        self.head = head  # a function's signature


def function_name(head):
    """The name a signature defines, for the report."""
    depth = 0
    for index, c in enumerate(head):
        if c in "<[":
            depth += 1
        elif c in ">]":
            depth -= 1
        elif c == "(" and depth <= 0:
            match = re.search(r"((?:[\w~]+::)*(?:operator\s*\S+?|~?\w+))\s*$", head[:index])
            if match:
                return match.group(1)
            break
    return " ".join(head.split())[:60]


def functions(text):
    """(first line, last line, signature) of each function defined in `text`."""
    found = []
    stack = [Scope("file")]
    head, head_lines = [], []
    branches = []  # per open #if: (state where it began, state where its first branch ended)

    def state():
        return ([Scope(s.kind, s.line, s.head) for s in stack], list(head), list(head_lines))

    def restore(saved):
        nonlocal stack, head, head_lines
        stack, head, head_lines = [Scope(s.kind, s.line, s.head) for s in saved[0]], list(saved[1]), list(saved[2])

    lines = blanked(text).split("\n")
    number = 0
    while number < len(lines):
        line = lines[number]
        number += 1
        directive = re.match(r"\s*#\s*(\w+)", line)
        if directive:
            while line.endswith("\\") and number < len(lines):
                line = lines[number]
                number += 1
            word = directive.group(1)
            if word in ("if", "ifdef", "ifndef"):
                branches.append([state(), None])
            elif word in ("elif", "else") and branches:
                if branches[-1][1] is None:
                    branches[-1][1] = state()
                restore(branches[-1][0])
            elif word == "endif" and branches:
                began, first_ended = branches.pop()
                if first_ended is not None:
                    restore(first_ended)
            continue
        for c in line + "\n":
            scope = stack[-1]
            inside = scope.kind in ("function", "block", "inner")
            if c == "{":
                if inside:
                    stack.append(Scope("inner"))
                    continue
                text_before = "".join(head)
                skipped = PREAMBLE.match(text_before).end()
                signature = text_before[skipped:].strip()
                if text_before.count("(") > text_before.count(")") or (
                        INITIALISERS.search(signature) and BRACED_MEMBER.search(signature)):
                    # A brace inside a declaration: a default argument, a
                    # member's initialiser in a constructor's list.
                    stack.append(Scope("inner"))
                    head.append("{")
                    head_lines.append(number)
                    continue
                if NAMESPACE.match(signature):
                    kind = "namespace"
                elif CLASS.match(signature) and not signature.startswith("@"):
                    kind = "class"
                elif "(" in signature and not ENUM.match(signature) and not signature.startswith("@"):
                    kind = "function"
                else:
                    kind = "block"
                first = head_lines[skipped + len(text_before[skipped:]) - len(text_before[skipped:].lstrip())] \
                    if signature else number
                stack.append(Scope(kind, first, signature))
                head, head_lines = [], []
            elif c == "}":
                if len(stack) == 1:
                    continue
                closed = stack.pop()
                if closed.kind == "function":
                    found.append((closed.line, number, closed.head))
                if closed.kind == "inner" and stack[-1].kind not in ("function", "block", "inner"):
                    head.append("}")
                    head_lines.append(number)
                elif closed.kind != "inner":
                    head, head_lines = [], []
            elif not inside:
                if c == ";":
                    head, head_lines = [], []
                else:
                    head.append(c)
                    head_lines.append(number)
    return found


def has_reason(lines, first):
    """Whether the comment block right above line `first` gives a reason."""
    index = first - 2
    while index >= 0 and lines[index].strip().startswith("//"):
        if REASON.match(lines[index]):
            return True
        index -= 1
    return False


def main(root):
    failures = []
    files = 0
    measured = 0
    reasons = 0
    for top in SCANNED:
        for path in sorted((root / top).rglob("*")):
            if path.suffix not in SUFFIXES or not path.is_file():
                continue
            files += 1
            relative = path.relative_to(root).as_posix()
            text = path.read_text(errors="replace")
            lines = text.split("\n")
            for first, last, signature in functions(text):
                measured += 1
                length = last - first + 1
                reasoned = has_reason(lines, first)
                name = function_name(signature)
                if length > LIMIT and not reasoned:
                    failures.append(f"{relative}:{first}: {name} is {length} lines (over {LIMIT}): split it into "
                                    f"named steps, or say why it stays whole on a \"// Long:\" line above it")
                elif reasoned and length <= LIMIT:
                    failures.append(f"{relative}:{first}: {name} is {length} lines now: drop its \"// Long:\" reason")
                elif reasoned:
                    reasons += 1
    return report(failures, f"function length: {measured} functions in {files} files, {reasons} long with a "
                            f"reason, {len(failures)} against the rule")


if __name__ == "__main__":
    run(main, __doc__)
