#!/usr/bin/env python3
"""Makes the program's resources from strings.txt, version.txt, ServiceConfig.xml and qbc.manifest in the given folder.

make_resources.py rc  FOLDER OUT.rc [PROGRAM]
                                       resource script for windres (-c 65001); OUT.rc.manifest and OUT.rc.config are
                                       written beside it. PROGRAM: for a program of that name, QBC without
make_resources.py cpp FOLDER OUT.cpp   the same string blocks, version block and configuration file as C++ data
make_resources.py ids FOLDER OUT.h     the names of the strings
"""
import pathlib
import re
import struct
import sys

RT_STRING = 6
RT_VERSION = 16
RT_MANIFEST = 24
CONFIG_TYPE, CONFIG_ID = "BINARY", 102  # the default configuration file
STRINGS_LANGUAGE = 0      # neutral: what the program asks for first
CONFIG_LANGUAGE = 0
VERSION_LANGUAGE = 0x409  # as the version's own Translation says
CODE_PAGE = 1200          # UTF-16
STRINGS_IN_BLOCK = 16
DESCRIPTIONS = {"QBCReport": "Quillbay Redirection Report"}
UNESCAPED = {"n": "\n", "t": "\t", '"': '"', "\\": "\\"}


class SourceError(Exception):
    pass


# ---- Sources

def read_strings(path):
    """strings.txt as {id: text}."""
    return read_string_table(path)[0]


def read_string_table(path):
    """strings.txt as {id: text} and {id: name}."""
    strings, names = {}, {}
    current = None
    for number, line in enumerate(pathlib.Path(path).read_text(encoding="utf-8").splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        match = re.fullmatch(r'(?:(\d+) ([A-Za-z]+))?(?:\s+"((?:[^"\\]|\\.)*)")?\s*', line)
        if not match or (match[1] is None and current is None):
            raise SourceError(f'{path}:{number}: expected: number name "text"')
        if match[1]:
            current = int(match[1])
            if current in strings or not 0 < current < 0xFFF0:
                raise SourceError(f"{path}:{number}: {current} is used twice or out of range")
            strings[current], names[current] = "", match[2]
        strings[current] += unescape(match[3] or "", f"{path}:{number}")
    for number, text in strings.items():
        if not 0 < utf16_units(text) <= 0xFFFF:
            raise SourceError(f"{path}: {number} is empty or too long")
    return strings, names


def unescape(text, where):
    def one(match):
        if match[1] not in UNESCAPED:
            raise SourceError(f"{where}: unknown escape {match[0]}")
        return UNESCAPED[match[1]]
    return re.sub(r"\\(.)", one, text)


def read_version(path, program="QBC"):
    """version.txt as {name: text}, in the file's order, for the program of that name."""
    entries = {}
    for line in pathlib.Path(path).read_text(encoding="utf-8").splitlines():
        if line.strip() and not line.startswith("#"):
            name, _, text = line.partition(" ")
            entries[name] = text.strip()
    for name in ("FileVersion", "ProductVersion"):
        if not re.fullmatch(r"\d+(\.\d+){3}", entries.get(name, "")) or max(numbers(entries[name])) > 0xFFFF:
            raise SourceError(f"{path}: {name} must be four numbers below 65536")
    if program != "QBC":
        entries |= {"InternalName": program, "OriginalFilename": f"{program}.exe",
                    "FileDescription": DESCRIPTIONS[program]}
    return entries


def read_manifest(path, version):
    text = pathlib.Path(path).read_text(encoding="utf-8").replace("@ProductVersion@", version["ProductVersion"])
    return text.replace("Quillbay.QBC", f"Quillbay.{version['InternalName']}")


def read_config(path, version):
    """ServiceConfig.xml as the file is on disk: UTF-16LE with a byte-order mark, lines ended by CR LF."""
    text = pathlib.Path(path).read_text(encoding="utf-8").replace("@ProductVersion@", version["ProductVersion"])
    return b"\xff\xfe" + text.replace("\n", "\r\n").encode("utf-16-le")


def numbers(dotted):
    return [int(part) for part in dotted.split(".")]


def utf16_units(text):
    return len(text.encode("utf-16-le")) // 2


# ---- Resources as Windows stores them

def string_blocks(strings):
    """RT_STRING: {block number: bytes}. Block n holds the ids 16(n-1) to 16n-1, each a length and its UTF-16 units."""
    blocks = {}
    for block in sorted({number // STRINGS_IN_BLOCK for number in strings}):
        data = b""
        for number in range(block * STRINGS_IN_BLOCK, (block + 1) * STRINGS_IN_BLOCK):
            text = strings.get(number, "").encode("utf-16-le")
            data += struct.pack("<H", len(text) // 2) + text
        blocks[block + 1] = data
    return blocks


def padded(data):
    return data + bytes(-len(data) % 4)


def version_node(key, value=b"", value_length=0, is_text=0, children=()):
    """One VS_VERSIONINFO structure: length, value length, type, key, value and children, each on a 4-byte border."""
    body = padded(bytes(6) + key.encode("utf-16-le") + b"\0\0") + value
    for child in children:
        body = padded(body) + child
    return struct.pack("<HHH", len(body), value_length, is_text) + body[6:]


def version_text(key, text):
    value = text.encode("utf-16-le") + b"\0\0"
    return version_node(key, value, len(value) // 2, 1)


def version_block(version):
    """RT_VERSION: the whole VS_VERSIONINFO."""
    file, product = numbers(version["FileVersion"]), numbers(version["ProductVersion"])
    fixed = struct.pack("<13I", 0xFEEF04BD, 0x10000,
                        file[0] << 16 | file[1], file[2] << 16 | file[3],
                        product[0] << 16 | product[1], product[2] << 16 | product[3],
                        0x3F, 0, 0x40004, 1, 0, 0, 0)  # mask, flags, VOS_NT_WINDOWS32, VFT_APP, no subtype, no date
    table = version_node(f"{VERSION_LANGUAGE:04x}{CODE_PAGE:04x}", is_text=1,
                         children=[version_text(key, text) for key, text in version.items()])
    translation = version_node("Translation", struct.pack("<HH", VERSION_LANGUAGE, CODE_PAGE), 4)
    return version_node("VS_VERSION_INFO", fixed, len(fixed), children=[
        version_node("StringFileInfo", is_text=1, children=[table]),
        version_node("VarFileInfo", is_text=1, children=[translation])])


# ---- Outputs

def rc_text(text):
    escaped = text.replace("\\", "\\\\").replace('"', '""').replace("\n", "\\n").replace("\t", "\\t")
    return f'"{escaped}"'


def make_rc(strings, version, config_name, manifest_name):
    lines = [f"LANGUAGE {STRINGS_LANGUAGE}, 0", "STRINGTABLE", "BEGIN"]
    lines += [f"  {number} {rc_text(text)}" for number, text in sorted(strings.items())]
    lines += ["END", "", f"LANGUAGE {CONFIG_LANGUAGE}, 0", f"{CONFIG_ID} {CONFIG_TYPE} {rc_text(config_name)}"]
    lines += ["", f"LANGUAGE {VERSION_LANGUAGE & 0x3FF}, {VERSION_LANGUAGE >> 10}", "1 VERSIONINFO",
              f"FILEVERSION {','.join(map(str, numbers(version['FileVersion'])))}",
              f"PRODUCTVERSION {','.join(map(str, numbers(version['ProductVersion'])))}",
              "FILEFLAGSMASK 0x3f", "FILEFLAGS 0", "FILEOS 0x40004", "FILETYPE 1", "FILESUBTYPE 0",
              "BEGIN", '  BLOCK "StringFileInfo"', "  BEGIN",
              f'    BLOCK "{VERSION_LANGUAGE:04x}{CODE_PAGE:04x}"', "    BEGIN"]
    lines += [f"      VALUE {rc_text(key)}, {rc_text(text)}" for key, text in version.items()]
    lines += ["    END", "  END", '  BLOCK "VarFileInfo"', "  BEGIN",
              f'    VALUE "Translation", 0x{VERSION_LANGUAGE:x}, {CODE_PAGE}', "  END", "END", "",
              f"1 {RT_MANIFEST} {rc_text(manifest_name)}"]
    return "\n".join(lines) + "\n"


def resource_name(kind, name):
    return f"kResource{kind.lstrip('#')}_{name}"


def make_cpp(strings, version, config):
    resources = [(f"#{RT_STRING}", number, STRINGS_LANGUAGE, data) for number, data in string_blocks(strings).items()]
    resources.append((f"#{RT_VERSION}", 1, VERSION_LANGUAGE, version_block(version)))
    resources.append((CONFIG_TYPE, CONFIG_ID, CONFIG_LANGUAGE, config))
    lines = ['#include "resources/program_resources.h"', "", "namespace {", ""]
    for kind, name, _, data in resources:
        lines.append(f"alignas(4) constexpr unsigned char {resource_name(kind, name)}[] = {{")
        lines += ["  " + ",".join(map(str, data[i:i + 32])) + "," for i in range(0, len(data), 32)]
        lines += ["};", ""]
    lines.append("constexpr ProgramResource kResources[] = {")
    for kind, name, language, _ in resources:
        data = resource_name(kind, name)
        lines.append(f'  {{u"{kind}", u"#{name}", {language}, {data}, sizeof {data}}},')
    lines += ["};", "", "}  // namespace", "",
              "std::span<const ProgramResource> ProgramResources() { return kResources; }"]
    return "\n".join(lines) + "\n"


def make_ids(names):
    lines = ["// The texts of the string table, by name.", "#pragma once", "", "enum class StringId : unsigned {"]
    lines += [f"  {name} = {number}," for number, name in sorted(names.items())]
    return "\n".join(lines) + "\n};\n"


def main(arguments):
    if not (len(arguments) == 3 and arguments[0] in ("rc", "cpp", "ids") or
            len(arguments) == 4 and arguments[0] == "rc" and arguments[3] in DESCRIPTIONS):
        sys.exit(__doc__)
    kind, folder, out = arguments[0], pathlib.Path(arguments[1]), pathlib.Path(arguments[2])
    program = arguments[3] if len(arguments) == 4 else "QBC"
    try:
        strings, names = read_string_table(folder / "strings.txt")
        version = read_version(folder / "version.txt", program)
        config = read_config(folder / "ServiceConfig.xml", version)
        if kind == "rc":
            config_file = out.with_name(out.name + ".config")
            config_file.write_bytes(config)
            manifest = out.with_name(out.name + ".manifest")
            manifest.write_text(read_manifest(folder / "qbc.manifest", version), encoding="utf-8")
            out.write_text(make_rc(strings, version, config_file.name, manifest.name), encoding="utf-8")
        elif kind == "ids":
            out.write_text(make_ids(names), encoding="utf-8")
        else:
            out.write_text(make_cpp(strings, version, config), encoding="utf-8")
    except (SourceError, OSError) as error:
        sys.exit(f"make_resources.py: {error}")


if __name__ == "__main__":
    main(sys.argv[1:])
