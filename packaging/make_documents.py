#!/usr/bin/env python3
"""make_documents.py OUT [--windows]: makes in the folder OUT, anew, what is installed beside the programs.

On Windows the pages, the scripts and the rest of deploy/ as they lie beside QBC.exe, with Windows' ends of lines; on Linux share/ with manual pages,
completion and /usr/share/doc.
"""
import gzip
import os
import pathlib
import shutil
import subprocess
import sys
import textwrap
import time

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
TOP = HERE.parent
sys.path[:0] = [str(TOP / "tools"), str(HERE)]
from html_documents import Documents  # noqa: E402
from make_resources import read_version  # noqa: E402
from source_date import source_commit, source_date  # noqa: E402

# What Windows' programs read; the others are Ansible's, which reads them on Linux.
TEXTS = (".cmd", ".bat", ".ps1", ".txt", ".json", ".svg")
# Whose notices go along with QBC.exe and QBCReport.exe (docs/dependencies.md).
NOTICES = ("mingw-w64-common", "nlohmann-json3-dev")
VERSION = read_version(TOP / "src/resources/version.txt")["ProductVersion"]


def write(path, data):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def with_crlf(data):
    return data.replace(b"\r\n", b"\n").replace(b"\n", b"\r\n")


def files_below(folder):
    """Files to ship from a folder of the tree, which may not be there."""
    return sorted(path for path in folder.rglob("*") if path.is_file() and "__pycache__" not in path.parts)


def copies(*folders):
    """What is shipped of the tree beside the documents themselves: pictures and schemas that they show, and `folders`."""
    found = [*files_below(TOP / "docs/pictures"), *sorted((TOP / "docs").glob("*.json"))]
    found += [path for folder in folders for path in files_below(TOP / folder)]
    # Scripts look for QBC.exe beside themselves.
    return {path.name if path.suffix == ".cmd" else path.relative_to(TOP).as_posix(): path
            for path in found if path.suffix not in (".dot", ".md")}


def write_pages(out, ends, *folders):
    """The documents of the tree and of `folders`, with what they need."""
    documents, shipped = Documents(TOP, ["docs", *folders]), copies(*folders)
    for name in documents.names:
        write(out / (name[:-3] + ".html"), ends(documents.page(name, shipped).encode()))
    for name, path in shipped.items():
        write(out / name, ends(path.read_bytes()) if path.suffix.lower() in TEXTS else path.read_bytes())


def make_for_windows(out):
    write_pages(out, with_crlf, "deploy")
    text = (HERE / "windows.txt").read_text().replace("@VERSION@", VERSION).replace("@COMMIT@", source_commit())
    write(out / "READ-ME.txt", with_crlf(text.encode()))
    for package in NOTICES:
        write(out / f"licences/{package}.txt", with_crlf(pathlib.Path(f"/usr/share/doc/{package}/copyright").read_bytes()))


def compressed(data):
    return gzip.compress(data, 9, mtime=0)


def make_for_linux(out):
    doc = out / "share/doc/quillbay"
    write_pages(doc, lambda data: data)
    dated = {**os.environ, "SOURCE_DATE_EPOCH": str(source_date())}
    for source in sorted((TOP / "docs/man").glob("*.scd")):
        with source.open("rb") as text:
            page = subprocess.run(["scdoc"], stdin=text, capture_output=True, check=True, env=dated).stdout
        write(out / f"share/man/man1/{source.stem}.gz", compressed(page))
    write(doc / "copyright", (HERE / "debian/copyright").read_bytes())
    if (TOP / "CHANGELOG.md").exists():
        write(doc / "changelog.gz", compressed((TOP / "CHANGELOG.md").read_bytes()))
    date = time.strftime("%a, %d %b %Y %H:%M:%S +0000", time.gmtime(source_date()))
    built = "\n    ".join(textwrap.wrap(source_commit(), 70))
    entry = (HERE / "debian/changelog.in").read_text().replace("@VERSION@", VERSION).replace("@DATE@", date)
    write(doc / "changelog.Debian.gz", compressed(entry.replace("@COMMIT@", built).encode()))
    completions = out / "share/bash-completion/completions"
    write(completions / "workstation", (HERE / "completion/quillbay.bash").read_bytes())
    for name in ("qbc", "qbcreport"):
        (completions / name).symlink_to("workstation")


def main(arguments):
    if not arguments or arguments[1:] not in ([], ["--windows"]):
        sys.exit(__doc__)
    out = pathlib.Path(arguments[0])
    shutil.rmtree(out, ignore_errors=True)
    try:
        (make_for_windows if arguments[1:] else make_for_linux)(out)
    except FileNotFoundError as missing:
        sys.exit(f"make_documents.py: {missing} (tools/install-packages.sh installs what is missing)")
    except subprocess.CalledProcessError as failed:
        sys.exit(f"make_documents.py: {failed.cmd[0]}: {failed.stderr.decode().strip()}")


if __name__ == "__main__":
    main(sys.argv[1:])
