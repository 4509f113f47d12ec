#!/usr/bin/env python3
"""check_exe.py EXE: what QBC.exe or QBCReport.exe itself must be, whoever runs it. One line a check, then "N passed, N
failed"."""
import pathlib
import struct
import sys
import xml.etree.ElementTree as xml
import zlib

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "tools"))
import make_resources as made  # noqa: E402
from checks import Checks  # noqa: E402
from pe import RELOCATIONS, PeFile  # noqa: E402

RESOURCES = HERE.parent.parent / "src" / "resources"
WINDOWS_DLLS = {"kernel32.dll", "user32.dll", "advapi32.dll", "shell32.dll", "shlwapi.dll", "netapi32.dll", "ole32.dll",
                "oleaut32.dll", "version.dll", "wininet.dll", "wtsapi32.dll", "msvcrt.dll"}
# The published identifiers of Windows Vista, 7, 8, 8.1 and 10.
SUPPORTED_WINDOWS = ["{e2011457-1546-43c5-a5fe-008deee3d3f0}", "{35138b9a-5d96-4fbd-8e2d-a2440225f93a}",
                     "{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}", "{1f676c76-80e1-4239-95bb-83d0f6d0da78}",
                     "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"]
# Texts that are printed as "<...>Command: %s \n\n  %s" must fit in the 1024 characters of such a message together with
# what the user typed; console lines keep within this width.
USAGE_IDS = [104, 106, 108, 110, 112, 114, 116, 118, 120, 122, 188, 189, 190, 192]
USAGE_LIMIT, COLUMNS, USAGE_INDENT = 850, 78, 3
# CRC-32 of each other text as UTF-16, by number: written down apart from the table, of which both sides of every other
# comparison are made.
TEXT_SUMS = """
    e68ccc9e fd7e2b30 614689c0 61f5a7cc 311ebdf4 e4f9f5d0 abef64f8 3478c28b 96156695 9caff39c 2fa7cbb4 9afda721
    d84da444 e8dadb9e 8693c40d d3b9f9f5 e30cb30e 172fe350 b233bcdc 4a3b4daf 2661d8fa a1c171c8 cb529cda 82f40f69
    a5c98e58 a9063cbf c2fcb10a c5814643 c41d03d8 ede649b2 5c9de049 be9a1c13 5d094cc7 6a35da02 ad777062 7020b722
    22f7d6db b2cc6f32 5bd92e43 9b8656d7 91a0cb2b 1b7152bc 2ac4b000 f0937170 e9de278f 92abb840 1518fbc0 a749aab5
    f353f107 ed73c05a 3e9318e4 aa4e2246 dd81ad7b 80d1b963 cf5466fb 93db477a a1630e98 a12185db 140c51ed 926ae87a
    30d4bf0e 96e5f1a6 d0acac96 0c58aac7 d067c3e2 67727bc5 6a4b854a 84c2f05e 4ea8719b ffb80b1d 4a8aa0ed a384b582
    eb97b8ec c194649c ae574c5e afadb955 091ad82d 0d91a01f e214dc3f 08715e14 554ce9fc 27917134"""


def check_headers(checks, exe):
    checks.equal("64-bit program for x64", exe.machine, 0x8664)
    checks.equal("console subsystem", exe.subsystem, 3)
    for name, bit in (("DYNAMIC_BASE", 0x40), ("HIGH_ENTROPY_VA", 0x20), ("NX_COMPAT", 0x100)):
        checks.true(f"{name} is set", exe.dll_characteristics & bit)
    checks.true("relocations are present", exe.directories[RELOCATIONS][1] > 0 and not exe.characteristics & 1)
    checks.equal("imports Windows' own DLLs only", sorted({name.lower() for name in exe.imports()} - WINDOWS_DLLS), [])


def check_manifest(checks, resources):
    manifests = [data for (kind, _, _), data in resources.items() if kind == made.RT_MANIFEST]
    checks.equal("one manifest", len(manifests), 1)
    root = xml.fromstring(manifests[0])
    levels = [(e.get("level"), e.get("uiAccess")) for e in
              root.iter("{urn:schemas-microsoft-com:asm.v3}requestedExecutionLevel")]
    checks.equal("runs as its invoker", levels, [("asInvoker", "false")])
    supported = [e.get("Id") for e in root.iter("{urn:schemas-microsoft-com:compatibility.v1}supportedOS")]
    checks.equal("supported Windows", supported, SUPPORTED_WINDOWS)


def check_version(checks, resources, program):
    block = resources.get((made.RT_VERSION, 1, made.VERSION_LANGUAGE), b"")
    made_block = made.version_block(made.read_version(RESOURCES / "version.txt", program))
    checks.true("the version names the file", f"{program}.exe".encode("utf-16-le") in block)
    checks.equal("version block is the Linux build's", block, made_block)
    fixed = block.find(struct.pack("<I", 0xFEEF04BD))
    versions = struct.unpack_from("<4I", block, fixed + 8) if fixed > 0 else ()
    checks.equal("file and product version are 2.34.1110.486", versions, (2 << 16 | 34, 1110 << 16 | 486) * 2)


def check_default_config(checks, resources):
    in_exe = {key: data for key, data in resources.items() if key[0] == made.CONFIG_TYPE}
    config = made.read_config(RESOURCES / "ServiceConfig.xml", made.read_version(RESOURCES / "version.txt"))
    checks.equal("default configuration file is the Linux build's", in_exe,
                 {(made.CONFIG_TYPE, made.CONFIG_ID, made.CONFIG_LANGUAGE): config})


def check_strings(checks, resources):
    strings = made.read_strings(RESOURCES / "strings.txt")
    in_exe = {(name, language): data for (kind, name, language), data in resources.items() if kind == made.RT_STRING}
    blocks = {(block, made.STRINGS_LANGUAGE): data for block, data in made.string_blocks(strings).items()}
    checks.equal("string blocks are the Linux build's", in_exe, blocks)
    checks.equal("strings 101 to 196 are all there", sorted(strings), list(range(101, 197)))
    fixed = [n for n in sorted(strings) if n not in USAGE_IDS]
    sums = [f"{zlib.crc32(strings[n].encode('utf-16-le')):08x}" for n in fixed]
    checks.equal("the other texts are as agreed",
                 [n for n, found, agreed in zip(fixed, sums, TEXT_SUMS.split()) if found != agreed], [])
    checks.equal("usage texts fit in an error message", [n for n in USAGE_IDS if len(strings[n]) > USAGE_LIMIT], [])
    wide = [n for n in USAGE_IDS for line in (" " * USAGE_INDENT + strings[n]).split("\n") if len(line) > COLUMNS]
    checks.equal(f"usage texts keep within {COLUMNS} columns", wide, [])
    checks.equal("usage texts are no formats", [n for n in USAGE_IDS if "%" in strings[n]], [])


def main():
    exe = PeFile(sys.argv[1])
    resources = exe.resources()
    checks = Checks()
    check_headers(checks, exe)
    check_manifest(checks, resources)
    check_version(checks, resources, pathlib.Path(sys.argv[1]).stem)
    check_strings(checks, resources)
    check_default_config(checks, resources)
    return checks.finish()


if __name__ == "__main__":
    sys.exit(main())
