#!/usr/bin/env python3
"""check-calls.py [FOLDER]: holds docs/windows-calls.md against src/win32/*.h and the tests. Every call that a header
declares has a row, no row names one that is gone, each test that a row names is there, and the counts are the table's.

check-calls.py --self-test: breaks each of these in a copy and demands that it is found."""
import collections
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

CLASSES = ("others", "ours", "documented", "belief")
DECLARED = re.compile(r"^(?!inline|using|template|struct|class)\w[\w: ]*[ *]+([A-Z]\w+)\(", re.M)
BOUND_AT_RUN_TIME = re.compile(r"^using (\w+)Function =", re.M)
CLASS = re.compile(r"^class (Xml\w+) \{(.*?)^\};", re.M | re.S)
METHOD = re.compile(r"^  HRESULT (\w+)\(", re.M)
TEST = re.compile(r"^TEST(?:_F|_P)?\((\w+), (\w+)\) \{(.*?)^\}", re.M | re.S)
PASSED_OVER = re.compile(r"^class (\w+) [^}]*?SetUp\(\) override \{ SKIP_ON_WINE", re.M)
SCENARIO = re.compile(r"^def (\w+)\(", re.M)
ROW = re.compile(r"^\| `([\w:]+)`(?:, [^|]*)? \| [^|]+ \| (\w+) \| (.+) \|$", re.M)
COUNTS = re.compile(r"^\d+ calls in \d+ rows: .*\.$", re.M)


def declared_calls(top):
    calls = set()
    for header in (top / "src/win32").glob("*.h"):
        text = re.sub(r"//.*", "", header.read_text())
        calls.update(DECLARED.findall(text), BOUND_AT_RUN_TIME.findall(text))
        calls.update(f"{name}::{method}" for name, body in CLASS.findall(text) for method in METHOD.findall(body))
    return calls


def known_tests(top):
    """All tests, and those among them that Wine does not pass over."""
    tests, under_wine = set(), set()
    for file in (top / "tests/contract").glob("*.cpp"):
        text = file.read_text()
        passed_over = PASSED_OVER.findall(text)
        for suite, name, body in TEST.findall(text):
            tests.add(f"{suite}.{name}")
            if suite not in passed_over and "SKIP_ON_WINE" not in body:
                under_wine.add(f"{suite}.{name}")
    for folder in ("wine", "stories"):
        for file in (top / "tests" / folder).glob("*.py"):
            under_wine.update(SCENARIO.findall(file.read_text()))
    return tests | under_wine, under_wine


def problems(top):
    text = (top / "docs/windows-calls.md").read_text()
    table = text[text.find("| Call |"):]
    rows, calls, (tests, under_wine) = ROW.findall(table), declared_calls(top), known_tests(top)
    unread = sum(line.startswith("|") for line in table.splitlines()) - 2 - len(rows)
    if unread:
        yield f"{unread} lines of the table cannot be read"
    for call in sorted(calls - {call for call, _, _ in rows}):
        yield f"{call} is declared and has no row"
    for call in sorted({call for call, _, _ in rows} - calls):
        yield f"{call} has a row and is declared nowhere"
    for call, kind, source in rows:
        named = re.findall(r"`([\w.]+)`", source)
        if kind not in CLASSES:
            yield f"{call}: {kind} is no class"
        if kind == "ours" and not under_wine & set(named):
            yield f"{call}: no test of ours that passes under Wine is named"
        for gone in (name for name in named if "." in name and name not in tests):
            yield f"{call}: there is no test {gone}"
    count = collections.Counter(kind for _, kind, _ in rows)
    right = f"{len(calls)} calls in {len(rows)} rows: {', '.join(f'{kind} {count[kind]}' for kind in CLASSES)}."
    if COUNTS.findall(text) != [right]:
        yield f"the counts are: {right}"


def self_test(top):
    header, doc = "src/win32/file.h", "docs/windows-calls.md"
    plants = [
        (header, "BOOL RemoveDirectoryW(", "BOOL RemoveNothingW(int x);\nBOOL RemoveDirectoryW(", "RemoveNothingW"),
        (header, "BOOL EncryptFileW(const char16_t* lpFileName);", "", "EncryptFileW has a row"),
        (header, "using CreateSymb", "using CreateAnotherFunction = int;\nusing CreateSymb", "CreateAnother"),
        ("src/win32/xml.h", "HRESULT put_text(", "HRESULT put_nothing(", "XmlNode::put_nothing"),
        (doc, "| belief | assumed", "| hope | assumed", "hope is no class"),
        (doc, "`Volumes.NamesPathsAndEnumeration`", "`Volumes.Gone`", "no test Volumes.Gone"),
        (doc, "`Volumes.NamesPathsAndEnumeration`", "`Volumes.AVolumeIsMountedOnAnEmptyFolder`", "passes under Wine"),
        (doc, "rows: others ", "rows: others 1", "the counts are"),
        (doc, "| `FindClose` |", "| FindClose |", "cannot be read"),
    ]
    with tempfile.TemporaryDirectory() as scratch:
        copy = pathlib.Path(scratch)
        for folder in ("src/win32", "docs", "tests/contract", "tests/wine", "tests/stories"):
            shutil.copytree(top / folder, copy / folder)
        for file, old, new, told in plants:
            whole = (copy / file).read_text()
            assert old in whole, f"nothing to break: {old} in {file}"
            (copy / file).write_text(whole.replace(old, new, 1))
            run = subprocess.run([sys.executable, __file__, copy], capture_output=True, text=True, check=False)
            if run.returncode == 0 or told not in run.stderr:
                sys.exit(f"not found: {told}\n{run.stderr}")
            (copy / file).write_text(whole)


def main():
    top = pathlib.Path(__file__).resolve().parent.parent
    if sys.argv[1:] == ["--self-test"]:
        return self_test(top)
    found = list(problems(pathlib.Path(sys.argv[1]) if sys.argv[1:] else top))
    sys.exit("docs/windows-calls.md:\n" + "\n".join(found) if found else 0)


if __name__ == "__main__":
    main()
