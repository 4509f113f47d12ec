#!/usr/bin/env python3
"""check-docs.py [FOLDER]: what the documents point to is there: links, files and folders named in backticks, sections named
with their document; and the README leads to each document.

check-docs.py --self-test: breaks each of these, and what tools/make-pictures --check holds, in a copy and demands that it is found."""
import importlib.machinery
import pathlib
import re
import shutil
import sys
import tempfile

LINK = re.compile(r"\]\(([^)\s]+)\)")
NAMED = re.compile(r"`([\w.][\w.*/-]*)`")
SECTION = re.compile(r'"([A-Z][^"]+)"(?:, | in | of )`([\w./-]+\.md)`|`([\w./-]+\.md)`, "([A-Z][^"]+)"')
HEADING = re.compile(r"^#+ (.+)$", re.M)
CODE = re.compile(r"^(?:    |```).*$", re.M)


def documents(top):
    return sorted(file for pattern in ("*.md", "docs/*.md", "deploy/**/*.md") for file in top.glob(pattern))


def places(top, document, name):
    """What a name in a document may mean, whichever of these is there."""
    for folder in (document.parent, top, top / "docs", top / "src", top / "tests"):
        yield from folder.glob(name.rstrip("/"))


def is_path(top, name):
    first = name.split("/")[0]
    return name.endswith(".md") or ("/" in name and any((top / above / first).is_dir() for above in ("", "src", "tests", "docs")))


def problems(top):
    for document in documents(top):
        text = CODE.sub("", document.read_text())
        shown = document.relative_to(top)
        for link in LINK.findall(text):
            if "://" not in link and not (document.parent / link.split("#")[0]).exists():
                yield f"{shown}: the link {link} leads nowhere"
        for name in sorted(set(NAMED.findall(text))):
            if is_path(top, name) and not name.startswith("build/") and not any(places(top, document, name)):
                yield f"{shown}: there is no {name}"
        for section, file, file_first, section_last in SECTION.findall(" ".join(text.split())):
            section, found = section or section_last, list(places(top, document, file or file_first))
            if found and not any(heading.startswith(section) for heading in HEADING.findall(found[0].read_text())):
                yield f'{shown}: {found[0].name} has no section "{section}"'
    readme = (top / "README.md").read_text()
    for document in top.glob("docs/*.md"):
        if f"docs/{document.name}" not in readme:
            yield f"README.md does not name docs/{document.name}"


def self_test(top):
    pictures = importlib.machinery.SourceFileLoader("pictures", str(top / "tools/make-pictures")).load_module()
    source = next((top / "docs/pictures").glob("*.dot")).relative_to(top)
    faults = {  # file: the text that is put in the place of another, and what must be said of it
        "a link": ("README.md", "docs/architecture.md", "[a](docs/gone.md) docs/architecture.md", "leads nowhere"),
        "a file": ("README.md", "`docs/architecture.md`", "`docs/architecture.md` `docs/gone.md`", "there is no"),
        "a source": ("docs/architecture.md", "`fsops/saved_items.*`", "`fsops/gone_items.*`", "there is no"),
        "a section": ("docs/what-is-refused.md", "### Places of other redirections", "### Other", "has no section"),
        "a document": ("README.md", "`docs/wine.md`", "", "does not name"),
        "a picture's source": (source, "digraph", "// changed\ndigraph", "was made from another"),
        "a picture": (source.with_suffix(".svg"), "</g>\n</svg>", "</g><g/>\n</svg>", "is not what Graphviz makes"),
        "a picture that nobody shows": ("docs/architecture.md", "pictures/", "images/", "no document shows"),
    }
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / "copy"
        shutil.copytree(top, copy, ignore=shutil.ignore_patterns("build", ".git*", "*.cpp"))
        before = {*problems(copy), *pictures.problems(copy)}  # the program's text is not copied
        for what, (file, old, new, said) in faults.items():
            text = (copy / file).read_text()
            (copy / file).write_text(text.replace(old, new))
            found = {*problems(copy), *pictures.problems(copy)} - before
            if old not in text or not any(said in line for line in found):
                sys.exit(f"check-docs.py does not find {what} that is wrong")
            (copy / file).write_text(text)
    print("Each planted fault was found.")


def main():
    top = pathlib.Path(__file__).resolve().parents[1]
    if sys.argv[1:] == ["--self-test"]:
        return self_test(top)
    found = list(problems(pathlib.Path(sys.argv[1]) if sys.argv[1:] else top))
    print("\n".join(found) or "What the documents point to is there.")
    return bool(found)


if __name__ == "__main__":
    sys.exit(main())
