"""Reads Mach-O files: what a loader, the Objective-C runtime and the signature check see in them.

Only the forms that our own linker writes are understood (64 bit, classic dyld info, absolute method lists);
anything else is refused with MachOError, never skipped.
"""
import dataclasses
import hashlib
import struct

ARCHITECTURES = {0x01000007: "x86_64", 0x0100000C: "arm64"}
FILE_TYPES = {2: "execute", 6: "dylib", 8: "bundle"}

LC_SYMTAB, LC_LOAD_DYLIB, LC_ID_DYLIB, LC_SEGMENT_64, LC_UUID = 0x2, 0xC, 0xD, 0x19, 0x1B
LC_CODE_SIGNATURE, LC_RPATH, LC_DYLD_INFO_ONLY, LC_BUILD_VERSION = 0x1D, 0x8000001C, 0x80000022, 0x32
REFUSED_COMMANDS = {0x80000034: "chained fixups", 0x80000018: "weak libraries",
                    0x8000001F: "re-exported libraries"}


class MachOError(Exception):
    """The file is not one that the reader understands."""


@dataclasses.dataclass
class Method:
    selector: str
    types: str
    extended: str = None  # only in protocols


@dataclasses.dataclass
class Protocol:
    name: str
    adopted: list
    required: list
    required_class: list
    optional: list
    optional_class: list


@dataclasses.dataclass
class ObjCClass:
    name: str
    superclass: str
    protocols: list
    methods: list
    class_methods: list


@dataclasses.dataclass
class Signature:
    identifier: str
    ad_hoc: bool
    linker_signed: bool
    pages_match: bool  # every page of the file has the hash that was signed
    special: dict  # slot number: hash
    cdhash: bytes


def read_slices(data):
    """The images of a file, universal or not."""
    try:
        if struct.unpack_from(">I", data)[0] != 0xCAFEBABE:
            return [Image(data)]
        count = struct.unpack_from(">I", data, 4)[0]
        images = []
        for index in range(count):
            _, _, offset, size, _ = struct.unpack_from(">5I", data, 8 + 20 * index)
            if offset + size > len(data):
                raise MachOError("a slice reaches beyond the file")
            images.append(Image(data[offset:offset + size]))
        return images
    except (struct.error, LookupError, ValueError, TypeError, AttributeError, RecursionError) as error:
        raise MachOError(f"damaged: {error}") from error


class Image:
    """One architecture of a file."""

    def __init__(self, data):
        self.data = data
        magic, cpu, _, file_type, self._command_count, _, flags, _ = struct.unpack_from("<8I", data)
        if magic != 0xFEEDFACF or cpu not in ARCHITECTURES or file_type not in FILE_TYPES:
            raise MachOError("not a 64 bit program, library or bundle for a Mac")
        self.architecture = ARCHITECTURES[cpu]
        self.file_type = FILE_TYPES[file_type]
        self.two_level_namespace = bool(flags & 0x80)
        self.libraries, self.run_paths = [], []
        self.install_name = self.minimum_version = self.platform = self.uuid = None
        self._segments, self._sections = [], {}
        self._symbol_table = self._dyld_info = self._signature_range = None
        self._read_commands()
        self._bound = self._read_binds()
        self.exports = sorted(self._read_exports())
        self.imports = self._read_imports()
        self.classes = {entry.name: entry for entry in map(self._read_class, self._list("__objc_classlist"))}
        self.protocols = {
            entry.name: entry for entry in map(self._read_protocol, self._list("__objc_protolist"))}
        self.signature = self._read_signature()

    # Load commands.

    def _read_commands(self):
        offset = 32
        for _ in range(self._command_count):
            command, size = struct.unpack_from("<2I", self.data, offset)
            if command in REFUSED_COMMANDS:
                raise MachOError(f"{REFUSED_COMMANDS[command]} are not understood")
            if size < 8:
                raise MachOError("a load command without size")
            self._read_command(command, offset)
            offset += size

    def _read_command(self, command, offset):
        words = lambda count: struct.unpack_from(f"<{count}I", self.data, offset + 8)
        text = lambda: self._text_at(offset + words(1)[0])
        if command == LC_SEGMENT_64:
            self._read_segment(offset)
        elif command == LC_LOAD_DYLIB:
            self.libraries.append(text())
        elif command == LC_ID_DYLIB:
            self.install_name = text()
        elif command == LC_RPATH:
            self.run_paths.append(text())
        elif command == LC_UUID:
            self.uuid = self.data[offset + 8:offset + 24].hex()
        elif command == LC_BUILD_VERSION:
            self.platform, minimum = words(2)
            self.minimum_version = f"{minimum >> 16}.{minimum >> 8 & 255}"
        elif command == LC_SYMTAB:
            self._symbol_table = words(3)
        elif command == LC_DYLD_INFO_ONLY:
            self._dyld_info = words(10)
        elif command == LC_CODE_SIGNATURE:
            self._signature_range = words(2)

    def _read_segment(self, offset):
        address, _, file_offset, file_size = struct.unpack_from("<4Q", self.data, offset + 24)
        self._segments.append((address, file_offset, file_size))
        for index in range(struct.unpack_from("<I", self.data, offset + 64)[0]):
            name, _, start, size = struct.unpack_from("<16s16s2Q", self.data, offset + 72 + 80 * index)
            self._sections[name.rstrip(b"\0").decode()] = (start, size)

    # Values in the file and at addresses of the loaded image.

    def _text_at(self, offset):
        return self.data[offset:self.data.index(b"\0", offset)].decode()

    def _uleb(self, offset):
        value = shift = 0
        while True:
            byte = self.data[offset]
            offset += 1
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return value, offset

    def _offset(self, address):
        for start, file_offset, file_size in self._segments:
            if start <= address < start + file_size:
                return address - start + file_offset
        raise MachOError(f"no part of the file has address {address:#x}")

    def _pointer(self, address):
        return struct.unpack_from("<Q", self.data, self._offset(address))[0]

    def _word(self, address):
        return struct.unpack_from("<I", self.data, self._offset(address))[0]

    def _text(self, address):
        return self._text_at(self._offset(address)) if address else None

    def _list(self, section):
        start, size = self._sections.get(section, (0, 0))
        return [self._pointer(start + 8 * index) for index in range(size // 8)]

    # What is taken from other images and given to them.

    def _read_imports(self):
        """Each undefined symbol with the install name of the library that it is bound to."""
        symbols, count, strings = self._symbol_table
        imports = {}
        for index in range(count):
            name, kind, _, description, _ = struct.unpack_from("<IBBHQ", self.data, symbols + 16 * index)
            if kind & 0xE0 or kind & 0x0E or not kind & 1:
                continue
            ordinal = description >> 8
            if not 0 < ordinal <= len(self.libraries):
                raise MachOError(f"{self._text_at(strings + name)} is bound to no library")
            imports[self._text_at(strings + name)] = self.libraries[ordinal - 1]
        return imports

    def _read_exports(self):
        offset, size = self._dyld_info[8:10]
        return list(self._walk_trie(offset, offset, "")) if size else []

    def _walk_trie(self, base, offset, prefix):
        payload, offset = self._uleb(offset)
        if payload:
            yield prefix
        offset += payload
        children = self.data[offset]
        offset += 1
        for _ in range(children):
            edge = self._text_at(offset)
            child, offset = self._uleb(offset + len(edge) + 1)
            yield from self._walk_trie(base, base + child, prefix + edge)

    def _read_binds(self):
        """Pointers that the loader fills: address → name of the symbol."""
        bound = {}
        offset, size = self._dyld_info[2:4]
        end, address, symbol = offset + size, 0, None
        while offset < end:
            operation, immediate = self.data[offset] & 0xF0, self.data[offset] & 0x0F
            offset += 1
            if operation in (0x00, 0x10, 0x30, 0x50):  # done, library, special library, type
                continue
            if operation in (0x20, 0x60):  # library, long form; addend
                _, offset = self._uleb(offset)
            elif operation == 0x40:
                symbol = self._text_at(offset)
                offset += len(symbol) + 1
            elif operation == 0x70:
                distance, offset = self._uleb(offset)
                address = self._segments[immediate][0] + distance
            elif operation == 0x80:
                distance, offset = self._uleb(offset)
                address = (address + distance) & (2**64 - 1)
            elif operation in (0x90, 0xA0, 0xB0, 0xC0):
                count, skip = 1, 0
                if operation == 0xA0:
                    skip, offset = self._uleb(offset)
                elif operation == 0xB0:
                    skip = 8 * immediate
                elif operation == 0xC0:
                    count, offset = self._uleb(offset)
                    skip, offset = self._uleb(offset)
                if count > len(self.data):
                    raise MachOError("more pointers than the file has room for")
                for _ in range(count):
                    bound[address] = symbol
                    address = (address + 8 + skip) & (2**64 - 1)
            else:
                raise MachOError(f"bind operation {operation:#x} is not understood")
        return bound

    # Objective-C metadata.

    def _read_methods(self, address):
        if not address:
            return []
        entry_size, count = self._word(address), self._word(address + 4)
        if entry_size & 0xFFFF0000:
            raise MachOError("relative method lists are not understood")
        starts = [address + 8 + 24 * index for index in range(count)]
        return [Method(self._text(self._pointer(start)), self._text(self._pointer(start + 8)))
                for start in starts]

    def _read_protocol_names(self, address):
        if not address:
            return []
        return [self._text(self._pointer(self._pointer(address + 8 + 8 * index) + 8))
                for index in range(self._pointer(address))]

    def _read_protocol(self, address):
        fields = [self._pointer(address + 8 * index) for index in range(8)]
        extended = self._pointer(address + 72) if self._word(address + 64) >= 80 else 0
        lists = [self._read_methods(field) for field in fields[3:7]]
        for index, method in enumerate(method for methods in lists for method in methods):
            method.extended = self._text(self._pointer(extended + 8 * index)) if extended else None
        return Protocol(self._text(fields[1]), self._read_protocol_names(fields[2]), *lists)

    def _class_data(self, address):
        return self._pointer(address + 32) & ~7

    def _read_class(self, address):
        data, meta = self._class_data(address), self._class_data(self._pointer(address))
        parent = self._pointer(address + 8)
        if parent:
            parent = self._text(self._pointer(self._class_data(parent) + 24))
        else:
            parent = self._bound[address + 8].removeprefix("_OBJC_CLASS_$_")
        return ObjCClass(self._text(self._pointer(data + 24)), parent,
                         self._read_protocol_names(self._pointer(data + 40)),
                         self._read_methods(self._pointer(data + 32)),
                         self._read_methods(self._pointer(meta + 32)))

    # Signature.

    def _read_signature(self):
        if not self._signature_range:
            return None
        start = self._signature_range[0]
        magic, _, count = struct.unpack_from(">3I", self.data, start)
        if magic != 0xFADE0CC0:
            raise MachOError("the signature is not one")
        for index in range(count):
            slot, offset = struct.unpack_from(">2I", self.data, start + 12 + 8 * index)
            if slot == 0:
                return self._read_code_directory(start + offset)
        raise MachOError("the signature has no code directory")

    def _read_code_directory(self, start):
        (_, length, _, flags, hashes, identifier, special, pages, limit, hash_size, hash_type, _,
         page_shift) = struct.unpack_from(">9I4B", self.data, start)
        if hash_type != 2:
            raise MachOError("only signatures with SHA-256 are understood")
        first = start + hashes
        signed = lambda slot: self.data[first + hash_size * slot:first + hash_size * (slot + 1)]
        page = 1 << page_shift
        # What is signed ends where the signature begins: nothing may lie between.
        match = limit == self._signature_range[0] and pages == -(-limit // page) and all(
            hashlib.sha256(self.data[page * index:min(page * (index + 1), limit)]).digest() == signed(index)
            for index in range(pages))
        return Signature(
            identifier=self._text_at(start + identifier), ad_hoc=bool(flags & 0x2),
            linker_signed=bool(flags & 0x20000), pages_match=match,
            special={slot: signed(-slot) for slot in range(1, special + 1) if any(signed(-slot))},
            cdhash=hashlib.sha256(self.data[start:start + length]).digest()[:20])
