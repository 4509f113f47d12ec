#!/usr/bin/env python3
"""make_documents.py OUT [--windows]: makes in the folder OUT, anew, what is installed beside the programs.

On Windows the pages and deploy/ as they lie beside QBC.exe, with Windows' ends of lines; on Linux share/ with manual pages,
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

# Files of deploy/ that Windows reads; the others are Ansible's, which reads them on Linux.
WINDOWS_TEXTS = (".cmd", ".bat", ".ps1", ".txt", ".html", ".json")
VERSION = read_version(TOP / "src/resources/version.txt")["ProductVersion"]


def write(path, data):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def with_crlf(data):
    return data.replace(b"\r\n", b"\n").replace(b"\n", b"\r\n")


def files_below(folder):
    """Files to ship from a folder of the tree, which may not be there."""
    return sorted(path for path in folder.rglob("*") if path.is_file() and "__pycache__" not in path.parts)


def companions():
    """What the documents show and name: pictures, schemas."""
    return [*files_below(TOP / "docs/pictures"), *sorted((TOP / "docs").glob("*.json"))]


def write_pages(out, ends, shipped):
    documents = Documents(TOP)
    for name in documents.names:
        write(out / (name[:-3] + ".html"), ends(documents.page(name, shipped).encode()))
    for path in companions():
        if path.suffix != ".dot":
            write(out / path.relative_to(TOP), path.read_bytes())


def shipped_names(*folders):
    return {path.relative_to(TOP).as_posix() for path in [*companions(), *(f for d in folders for f in files_below(d))]}


def make_for_windows(out):
    write_pages(out, with_crlf, shipped_names(TOP / "deploy"))
    for path in files_below(TOP / "deploy"):
        data = path.read_bytes()
        write(out / path.relative_to(TOP), with_crlf(data) if path.suffix.lower() in WINDOWS_TEXTS else data)
    text = (HERE / "windows.txt").read_text().replace("@VERSION@", VERSION).replace("@COMMIT@", source_commit())
    write(out / "READ-ME.txt", with_crlf(text.encode()))


def compressed(data):
    return gzip.compress(data, 9, mtime=0)


def make_for_linux(out):
    doc = out / "share/doc/quillbay"
    write_pages(doc, lambda data: data, shipped_names())
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
