#!/usr/bin/env python3
"""What only another platform's build would catch, checked here.

Every source file named in a platform block of a CMakeLists.txt (`if(APPLE)`,
`elseif(...)`, `else()`, `if(NOT APPLE)`) must exist. And a header whose
classes or functions are defined, in part, in platform files (the `_macos`,
`_linux`, `_posix`, `_none` twins) must have every one of its out-of-line
members defined on every platform: in that platform's twin or in a common
file beside the header. A declaration that one twin lacks links here and
fails on the other platform's linker, which no machine of ours runs.

Usage: platform_twins.py SOURCE_ROOT
"""
import re

from structure_check import report, run

PLATFORMS = ("apple", "linux", "other")
SOURCE = re.compile(r"[\w${}./+-]+\.(?:cpp|mm|cc|c|h)\b")


def strip_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    return re.sub(r"//[^\n]*", "", text)


def for_platform(text, platform):
    """The text as the preprocessor leaves it on the platform, as far as
    `__APPLE__` decides it; other conditions keep every branch."""
    kept = []
    stack = []  # per open #if: whether its current branch is kept (None: not ours)
    for line in text.splitlines():
        directive = re.match(r"\s*#\s*(ifdef|ifndef|if|elif|else|endif)\b(.*)", line)
        if directive:
            word, rest = directive.group(1), directive.group(2).strip()
            if word in ("ifdef", "ifndef", "if"):
                apple = None
                if rest in ("__APPLE__", "defined(__APPLE__)", "defined __APPLE__"):
                    apple = word != "ifndef"
                elif rest in ("!defined(__APPLE__)", "!defined __APPLE__"):
                    apple = False
                stack.append(None if apple is None else (apple == (platform == "apple")))
            elif word == "else" and stack and stack[-1] is not None:
                stack[-1] = not stack[-1]
            elif word == "endif" and stack:
                stack.pop()
            continue
        if all(branch is not False for branch in stack):
            kept.append(line)
    return "\n".join(kept)


def platforms_of(condition):
    """The platforms an if()/elseif() condition holds on, or None when it
    does not depend on the platform."""
    condition = condition.strip()
    if condition == "APPLE":
        return {"apple"}
    if condition == "NOT APPLE":
        return {"linux", "other"}
    if re.fullmatch(r'CMAKE_SYSTEM_NAME STREQUAL "?Linux"?', condition):
        return {"linux"}
    return None


def platform_sources(root):
    """(file, platforms, cmake file, line) for every source named in a
    platform block of every CMakeLists.txt under the root."""
    found = []
    for cmake in sorted(root.rglob("CMakeLists.txt")):
        if "build" in cmake.relative_to(root).parts:
            continue
        # Each open if(): the platforms its current branch holds on (None when
        # it is no platform block) and those its earlier branches took.
        stack = []
        for number, line in enumerate(cmake.read_text().splitlines(), 1):
            code = line.split("#", 1)[0]
            opening = re.match(r"\s*if\s*\((.*)\)\s*$", code)
            branch = re.match(r"\s*elseif\s*\((.*)\)\s*$", code)
            if opening:
                platforms = platforms_of(opening.group(1))
                stack.append([platforms, set(platforms or ())])
                continue
            if branch and stack:
                platforms = platforms_of(branch.group(1))
                if stack[-1][0] is not None and platforms is not None:
                    platforms -= stack[-1][1]
                    stack[-1][1] |= platforms
                stack[-1][0] = platforms if stack[-1][0] is not None else None
                continue
            if re.match(r"\s*else\s*\(\s*\)", code) and stack:
                if stack[-1][0] is not None:
                    stack[-1][0] = set(PLATFORMS) - stack[-1][1]
                continue
            if re.match(r"\s*endif\s*\(", code) and stack:
                stack.pop()
                continue
            active = [entry[0] for entry in stack if entry[0] is not None]
            if not active:
                continue
            platforms = set.intersection(*active)
            for name in SOURCE.findall(code):
                name = name.replace("${PROJECT_SOURCE_DIR}/", "").replace("${CMAKE_SOURCE_DIR}/", "")
                if "${" in name:
                    continue
                path = root / name if "/" in name and (root / name.split("/")[0]).is_dir() else cmake.parent / name
                found.append((path, platforms, cmake, number))
    return found


def own_header(root, source):
    """The header a platform file implements: the include named as the file
    is without its platform suffix, else its first project include."""
    included = [root / name for name in re.findall(r'#\s*(?:include|import)\s+"([^"]+\.h)"', source.read_text())]
    stem = re.sub(r"_(?:macos|linux|posix|none)$", "", source.stem)
    for header in included:
        if header.stem == stem and header.exists():
            return header
    return included[0] if included and included[0].exists() else None


def declarations(header):
    """(owner, member) for every function the header declares without a
    body: members of its classes (owner = class name) and free functions
    (owner = None). Pure, defaulted and deleted ones are left out."""
    text = strip_comments(header.read_text())
    text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
    result = []
    owners = []  # (name or None, depth at which its body opened)
    depth = 0
    statement = ""
    for character in text:
        if character == "{":
            head = statement.strip()
            named = re.search(r"\b(?:class|struct)\s+(\w+)(?:\s+final)?\s*(?::[^{]*)?$", head)
            if named:
                owners.append((named.group(1), depth))
            elif re.search(r"\bnamespace\b", head):
                owners.append(("namespace", depth))
            else:
                owners.append((None, depth))  # a function body or an initializer
            depth += 1
            statement = ""
        elif character == "}":
            depth -= 1
            if owners:
                owners.pop()
            statement = ""
        elif character == ";":
            inside_body = any(owner is None for owner, _ in owners)
            head = " ".join(statement.split())
            head = re.sub(r"^(?:(?:public|private|protected)\s*:\s*)+", "", head)
            statement = ""
            if inside_body or "(" not in head:
                continue
            if re.search(r"=\s*(?:0|default|delete)\s*$", head) or head.startswith(("using ", "friend ", "typedef ")):
                continue
            if re.search(r"\boperator\b", head) or "static constexpr" in head:
                continue
            name = re.search(r"(~?\w+)\s*\(", head)
            if not name:
                continue
            classes = [owner for owner, _ in owners if owner not in (None, "namespace")]
            result.append((classes[-1] if classes else None, name.group(1)))
        else:
            statement += character
    return result


def defines(text, owner, member):
    if owner is None:
        return re.search(r"(?<![\w:~.>])" + re.escape(member) + r"\s*\([^;]*\)[^;{]*\{", text) is not None
    return re.search(r"\b" + re.escape(owner) + r"\s*::\s*" + re.escape(member) + r"\s*\(", text) is not None


def main(root):
    failures = []
    sources = platform_sources(root)
    for path, _, cmake, number in sources:
        if not path.exists():
            failures.append(f"{cmake.relative_to(root)}:{number}: names {path.relative_to(root)}, which does not exist")

    # Twins by the header they implement, by platform.
    twins = {}
    for path, platforms, _, _ in sources:
        if path.suffix not in (".cpp", ".mm", ".cc") or not path.exists():
            continue
        header = own_header(root, path)
        if header is None:
            continue
        for platform in platforms:
            twins.setdefault(header, {}).setdefault(platform, set()).add(path)

    platform_files = {path for path, _, _, _ in sources}
    for header, by_platform in sorted(twins.items()):
        stem = header.with_suffix("")
        common = [path for path in header.parent.iterdir()
                  if path.suffix in (".cpp", ".mm") and path not in platform_files
                  and (path.name.startswith(stem.name + ".") or own_header(root, path) == header)]
        common_text = "".join(strip_comments(path.read_text()) for path in common)
        common_by_platform = {platform: for_platform(common_text, platform) for platform in by_platform}
        twin_text = {platform: "".join(strip_comments(path.read_text()) for path in files)
                     for platform, files in by_platform.items()}
        for owner, member in declarations(header):
            # Only what some twin defines is the platforms' to define.
            if not any(defines(text, owner, member) for text in twin_text.values()):
                continue
            for platform, text in sorted(twin_text.items()):
                if not defines(text, owner, member) and not defines(common_by_platform[platform], owner, member):
                    files = ", ".join(str(path.relative_to(root)) for path in sorted(by_platform[platform]))
                    what = f"{owner}::{member}" if owner else member
                    failures.append(f"{header.relative_to(root)}: {what} is declared but not defined for "
                                    f"{platform} (looked in {files})")

    return report(failures, f"platform twins: {len(sources)} platform sources, {len(twins)} headers with twins, "
                            f"{len(failures)} problem(s)")


if __name__ == "__main__":
    run(main, __doc__)
