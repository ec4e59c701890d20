"""Reads Mach-O files: their architectures, sections, symbols, libraries, and the
protocols that the Objective-C runtime finds in them."""
import struct

FAT_MAGIC = 0xCAFEBABE
MACHO_64 = 0xFEEDFACF
ARCHITECTURES = {0x01000007: "x86_64", 0x0100000C: "arm64"}
SYMTAB, SEGMENT_64 = 0x2, 0x19
# Libraries are numbered in the order of these commands.
LOADS = {0xC: "load", 0x80000018: "load weakly", 0x8000001F: "re-export"}
IDENTITY = 0xD
CHAINED_FIXUPS = 0x80000034
# Of a symbol's type.
STAB, PRIVATE_EXTERNAL, TYPE, EXTERNAL = 0xE0, 0x10, 0x0E, 0x01
UNDEFINED, ABSOLUTE, DEFINED_IN_SECTION = 0x0, 0x2, 0xE


class Section:
    def __init__(self, segment, name, address, size, offset):
        self.segment, self.name = segment, name
        self.address, self.size, self.offset = address, size, offset


class Slice:
    """The file of one architecture."""

    def __init__(self, image):
        self.image = image
        magic, cpu, _, _, commands = struct.unpack_from("<5I", image)
        if magic != MACHO_64:
            raise ValueError("not a 64-bit Mach-O file")
        self.architecture = ARCHITECTURES[cpu]
        self.sections, self.symbols, self.libraries = [], [], []
        self.name = None
        at = 32
        for _ in range(commands):
            command, size = struct.unpack_from("<II", image, at)
            if command == SEGMENT_64:
                self._read_segment(at)
            elif command == SYMTAB:
                self._read_symbols(*struct.unpack_from("<4I", image, at + 8))
            elif command in LOADS:
                self.libraries.append(self._load_name(at))
            elif command == IDENTITY:
                self.name = self._load_name(at)
            elif command == CHAINED_FIXUPS:
                raise ValueError("its pointers are chained, which this reader cannot follow")
            at += size

    def _load_name(self, at):
        (offset,) = struct.unpack_from("<I", self.image, at + 8)
        return self._text_at(at + offset)

    def _text_at(self, offset):
        return self.image[offset:self.image.index(b"\0", offset)].decode()

    def _read_segment(self, at):
        (count,) = struct.unpack_from("<I", self.image, at + 64)
        for header in range(at + 72, at + 72 + 80 * count, 80):
            name, segment, address, size, offset = struct.unpack_from("<16s16sQQI", self.image,
                                                                      header)
            self.sections.append(Section(segment.rstrip(b"\0").decode(),
                                         name.rstrip(b"\0").decode(), address, size, offset))

    def _read_symbols(self, table, count, texts, _):
        for at in range(table, table + 16 * count, 16):
            name, kind, _, description, value = struct.unpack_from("<IBBHQ", self.image, at)
            if not kind & STAB:
                self.symbols.append((self._text_at(texts + name), kind, description, value))

    def section(self, segment, name):
        """The bytes of a section."""
        for each in self.sections:
            if (each.segment, each.name) == (segment, name):
                return self.image[each.offset:each.offset + each.size]
        raise ValueError(f"no section {segment},{name}")

    def imports(self):
        """The symbols that it takes from elsewhere, each with the name of its library."""
        own = self.exports()
        return {name: self._library(description >> 8) for name, kind, description, _
                in self.symbols if kind & TYPE == UNDEFINED and name not in own}

    def _library(self, ordinal):
        return self.libraries[ordinal - 1] if 1 <= ordinal <= len(self.libraries) else None

    def exports(self):
        return {name for name, kind, _, _ in self.symbols
                if kind & EXTERNAL and not kind & PRIVATE_EXTERNAL
                and kind & TYPE in (DEFINED_IN_SECTION, ABSOLUTE)}

    # For the runtime, at the addresses that the linker chose.

    def offset(self, address):
        for each in self.sections:
            if each.address <= address < each.address + each.size and each.offset:
                return each.offset + address - each.address
        raise ValueError(f"no bytes at {address:#x}")

    def pointers(self, address, count):
        return struct.unpack_from(f"<{count}Q", self.image, self.offset(address))

    def text(self, address):
        return self._text_at(self.offset(address))

    def protocols(self):
        """By name: the methods of each protocol, as (sign, selector, encoding)."""
        found = {}
        for each in self.sections:
            if each.name == "__objc_protolist":
                for address in self.pointers(each.address, each.size // 8):
                    name, methods = self._protocol(address)
                    found[name] = methods
        return found

    def _protocol(self, address):
        name, _, *lists = self.pointers(address + 8, 6)
        size, _ = struct.unpack_from("<II", self.image, self.offset(address + 64))
        if size < 80:
            raise ValueError("a protocol without extended encodings")
        (extended,) = self.pointers(address + 72, 1)
        methods = []
        for sign, methods_at in zip(("-", "+", "-?", "+?"), lists):
            for selector in self._selectors(methods_at) if methods_at else ():
                methods.append((sign, selector))
        encodings = self.pointers(extended, len(methods)) if methods else ()
        return self.text(name), [(*method, self.text(encoding))
                                 for method, encoding in zip(methods, encodings)]

    def _selectors(self, address):
        entry, count = struct.unpack_from("<II", self.image, self.offset(address))
        if entry != 24:
            raise ValueError(f"methods of {entry} bytes each")
        for index in range(count):
            yield self.text(self.pointers(address + 8 + 24 * index, 1)[0])


def slices(path):
    """The architectures of a file, universal or not."""
    with open(path, "rb") as file:
        image = file.read()
    magic, count = struct.unpack_from(">II", image)
    if magic != FAT_MAGIC:
        return [Slice(image)]
    found = []
    for index in range(count):
        _, _, offset, size, _ = struct.unpack_from(">5I", image, 8 + 20 * index)
        found.append(Slice(image[offset:offset + size]))
    return found
