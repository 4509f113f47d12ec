"""Reads what the checks need from a 64-bit PE file (Microsoft's PE format): headers, imports and resources."""
import pathlib
import struct

IMPORTS, RESOURCES, RELOCATIONS, DELAY_IMPORTS = 1, 2, 5, 13


class PeFile:
    def __init__(self, path):
        self.data = pathlib.Path(path).read_bytes()
        header = self.u32(0x3C)
        self.machine, section_count = struct.unpack_from("<HH", self.data, header + 4)
        optional_size, self.characteristics = struct.unpack_from("<HH", self.data, header + 20)
        optional = header + 24
        if self.data[header:header + 4] != b"PE\0\0" or self.u16(optional) != 0x20B:
            raise ValueError(f"{path} is no 64-bit PE file")
        self.subsystem, self.dll_characteristics = struct.unpack_from("<HH", self.data, optional + 68)
        self.directories = [struct.unpack_from("<II", self.data, optional + 112 + 8 * i)
                            for i in range(self.u32(optional + 108))]
        self.sections = [struct.unpack_from("<IIII", self.data, optional + optional_size + 40 * i + 8)
                         for i in range(section_count)]

    def u16(self, offset):
        return struct.unpack_from("<H", self.data, offset)[0]

    def u32(self, offset):
        return struct.unpack_from("<I", self.data, offset)[0]

    def offset(self, address):
        """The place in the file of a relative virtual address."""
        for size, start, raw_size, raw in self.sections:
            if start <= address < start + max(size, raw_size):
                return raw + address - start
        raise ValueError(f"no section holds {address:#x}")

    def imports(self):
        """The names of the DLLs that are loaded with the program, delayed ones too."""
        names = []
        for directory, entry_size, name_at in ((IMPORTS, 20, 12), (DELAY_IMPORTS, 32, 4)):
            address, size = self.directories[directory]
            entry = self.offset(address) if size else None
            while entry and self.u32(entry + name_at):
                name = self.offset(self.u32(entry + name_at))
                names.append(self.data[name:self.data.index(b"\0", name)].decode("ascii"))
                entry += entry_size
        return names

    def resources(self):
        """{(type, name, language): bytes}; texts for named types and names, numbers for the others."""
        address, size = self.directories[RESOURCES]
        if not size:
            return {}
        base = self.offset(address)

        def entries(directory):
            named, numbered = struct.unpack_from("<HH", self.data, base + directory + 12)
            for i in range(named + numbered):
                key, where = struct.unpack_from("<II", self.data, base + directory + 16 + 8 * i)
                if key & 0x80000000:
                    at = base + (key & 0x7FFFFFFF)
                    key = self.data[at + 2:at + 2 + 2 * self.u16(at)].decode("utf-16-le")
                yield key, where & 0x7FFFFFFF

        found = {}
        for type_key, names in entries(0):
            for name, languages in entries(names):
                for language, leaf in entries(languages):
                    data, length = struct.unpack_from("<II", self.data, base + leaf)
                    start = self.offset(data)
                    found[type_key, name, language] = self.data[start:start + length]
        return found
