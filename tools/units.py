#!/usr/bin/env python3
"""units.py TARGET FILE...: which of the files may be compiled together, as one translation unit that includes them all.

Prints it for CMake (cmake/together.cmake). Most of a compiler's time goes to the headers, again for every file: the
sanitizers' build and tools/check-style read them once for each unit."""
import functools
import os
import pathlib
import re
import sys

TOP = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = ("src", "tools", "tests", "bench")
GENERATED = "build/linux/generated"
LARGEST = 10


def texts_of(folders):
    """What our files say, by their paths."""
    return {str(path.relative_to(TOP)): path.read_text("utf-8") for folder in folders
            for path in sorted((TOP / folder).rglob("*")) if path.suffix in (".h", ".cpp", ".inc")}


@functools.cache
def includes(text):
    return re.findall(r'^ *# *include +"([^"]+)"', text, re.MULTILINE)


def closure(path, texts):
    """The file and all that it includes of ours."""
    seen, ahead = {path}, [path]
    while ahead:
        current = ahead.pop()
        for name in includes(texts[current]):
            for folder in ("src", "tools", "tests", GENERATED, os.path.dirname(current)):
                included = os.path.normpath(os.path.join(folder, name))
                if included in texts and included not in seen:
                    seen.add(included)
                    ahead.append(included)
    return seen


@functools.cache
def declared(text):
    """The names of what is declared in no function and no class."""
    names = set(re.findall(r"\bk[A-Z]\w*(?= = )", text))
    for line in re.findall(r"^(?!using (?!\w+ =)|namespace)\w.*", text, re.MULTILINE):
        kind = re.match(r"(?:class|struct|enum(?: class)?) (\w+)|TEST(?:_[FP])?(\(\w+, \w+)", line)
        names.update([kind[1] or kind[2]] if kind else re.findall(r"\w+", re.split(r"[=({;[]", line)[0])[-1:])
    return names - {"static_assert"}


def own_names(text):
    """The names that a file has for itself, in unnamed namespaces or as macros."""
    parts = re.findall(r"^namespace \{$(.*?)^\}  // namespace$", text, re.MULTILINE | re.DOTALL)
    return set(re.findall(r"^#define +(\w+)", text, re.MULTILINE)).union(*map(declared, parts))


def grouped(paths, texts, largest, kind=lambda path: None):
    """The files in groups, at most so large, all of one kind, in which none has a name for itself that another one has
    for itself, too, or from a header."""
    groups = []
    for path in paths:
        own = own_names(texts[path])
        known = own.union(*(declared(texts[included]) for included in closure(path, texts) if included != path))
        for members, all_own, all_known in groups:
            if (len(members) < largest and kind(path) == kind(members[0]) and
                    own.isdisjoint(all_known) and known.isdisjoint(all_own)):
                members.append(path)
                all_own |= own
                all_known |= known
                break
        else:
            groups.append(([path], own, known))
    return [members for members, _, _ in groups]


if __name__ == "__main__":
    target, *files = sys.argv[1:]
    paths = [os.path.relpath(path, TOP) for path in files]
    for number, unit in enumerate(grouped(paths, texts_of(FOLDERS), LARGEST)):
        print("set_source_files_properties(", *(TOP / path for path in unit))
        print(f"PROPERTIES UNITY_GROUP {target}_{number})")
