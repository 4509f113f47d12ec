#!/usr/bin/env python3
"""make_zip.py TREE OUT: packs an installed tree, with the digests of its files, as OUT/quillbay-VERSION-windows-x64.zip.

The files stand in their order, with the commit's time and the same rights, so the bytes depend on nothing else.
"""
import hashlib
import pathlib
import sys
import time
import zipfile

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE.parent / "tools"), str(HERE)]
from make_resources import read_version  # noqa: E402
from source_date import source_date  # noqa: E402

OLDEST = 315532800  # a zip knows no time before 1980


def main(tree, out):
    version = read_version(HERE.parent / "src/resources/version.txt")["ProductVersion"]
    files = {path.relative_to(tree).as_posix(): path.read_bytes() for path in tree.rglob("*") if path.is_file()}
    sums = "".join(f"{hashlib.sha256(data).hexdigest()}  {name}\n" for name, data in sorted(files.items()))
    files["SHA256SUMS"] = sums.encode()
    date = time.gmtime(max(source_date(), OLDEST))[:6]
    folder = f"quillbay-{version}"
    with zipfile.ZipFile(out / f"{folder}-windows-x64.zip", "w") as archive:
        for name, data in sorted(files.items()):
            entry = zipfile.ZipInfo(f"{folder}/{name}", date)
            entry.create_system = 0  # MS-DOS: no rights but the archive bit
            entry.external_attr = 0x20
            archive.writestr(entry, data, zipfile.ZIP_DEFLATED, 9)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]))
