#!/usr/bin/env python3
"""Signs a bundle, framework or extension folder ad hoc, without any tool of Apple's.

    sign.py FOLDER        what lies inside must be signed already

Writes _CodeSignature/CodeResources, which seals every file of the folder, and puts into each architecture of
its executable a code directory that holds the hashes of all pages, of the property list and of that seal.
Signing again gives the same bytes. An ad-hoc signature says that nothing was changed, not who made it.
"""
import hashlib
import os
import pathlib
import plistlib
import struct
import sys

LC_SEGMENT_64, LC_CODE_SIGNATURE = 0x19, 0x1D
MH_EXECUTE = 2
FAT_MAGIC, CPU_ARM64 = 0xCAFEBABE, 0x0100000C
CODE_DIRECTORY, REQUIREMENTS, SIGNATURE, WRAPPER = 0xFADE0C02, 0xFADE0C01, 0xFADE0CC0, 0xFADE0B01
SLOT_CODE_DIRECTORY, SLOT_INFORMATION, SLOT_REQUIREMENTS, SLOT_RESOURCES, SLOT_CMS = 0, 1, 2, 3, 0x10000
AD_HOC = 0x2
PAGE_SHIFT = 12
NO_REQUIREMENTS = struct.pack(">3I", REQUIREMENTS, 12, 0)

# How a folder is sealed, as every signed bundle states it. The heaviest rule that matches decides.
RULES = {
    "^Resources/": True,
    "^Resources/.*\\.lproj/": {"optional": True, "weight": 1000.0},
    "^Resources/.*\\.lproj/locversion.plist$": {"omit": True, "weight": 1100.0},
    "^Resources/Base\\.lproj/": {"weight": 1010.0},
    "^version.plist$": True,
}
NESTED = ("^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
          "Library/(Automator|Spotlight|LoginItems))/")
RULES2 = {
    ".*\\.dSYM($|/)": {"weight": 11.0},
    "^(.*/)?\\.DS_Store$": {"omit": True, "weight": 2000.0},
    NESTED: {"nested": True, "weight": 10.0},
    "^.*": True,
    "^Info\\.plist$": {"omit": True, "weight": 20.0},
    "^PkgInfo$": {"omit": True, "weight": 20.0},
    "^Resources/": {"weight": 20.0},
    "^Resources/.*\\.lproj/": {"optional": True, "weight": 1000.0},
    "^Resources/.*\\.lproj/locversion.plist$": {"omit": True, "weight": 1100.0},
    "^Resources/Base\\.lproj/": {"weight": 1010.0},
    "^[^/]+$": {"nested": True, "weight": 10.0},
    "^embedded\\.provisionprofile$": {"weight": 20.0},
    "^version\\.plist$": {"weight": 20.0},
}


class Folder:
    """Where the parts of a bundle lie: a framework keeps them in its version, everything else in Contents."""

    def __init__(self, path):
        self.path = pathlib.Path(path)
        self.is_framework = self.path.suffix == ".framework"
        self.root = self.path / ("Versions/A" if self.is_framework else "Contents")
        self.information_path = self.root / ("Resources/Info.plist" if self.is_framework else "Info.plist")
        information = plistlib.loads(self.information_path.read_bytes())
        self.identifier = information["CFBundleIdentifier"]
        name = information["CFBundleExecutable"]
        self.executable = self.root / name if self.is_framework else self.root / "MacOS" / name
        self.seal = self.root / "_CodeSignature/CodeResources"


def align(size, to):
    return -(-size // to) * to


def read_slices(data):
    if struct.unpack_from(">I", data)[0] != FAT_MAGIC:
        return [data]
    count = struct.unpack_from(">I", data, 4)[0]
    places = [struct.unpack_from(">5I", data, 8 + 20 * index) for index in range(count)]
    return [data[offset:offset + size] for _, _, offset, size, _ in places]


def join_slices(slices):
    if len(slices) == 1:
        return slices[0]
    header, body, offset = struct.pack(">2I", FAT_MAGIC, len(slices)), b"", 8 + 20 * len(slices)
    start = offset
    for part in slices:
        cpu, subtype = struct.unpack_from("<2I", part, 4)
        shift = 14 if cpu == CPU_ARM64 else 12
        offset = align(offset, 1 << shift)
        header += struct.pack(">5I", cpu, subtype, offset, len(part), shift)
        body = body.ljust(offset - start, b"\0") + part
        offset += len(part)
    return header + body


def load_commands(data):
    """Offset of each load command by its kind; segments by their name."""
    found, offset = {}, 32
    for _ in range(struct.unpack_from("<I", data, 16)[0]):
        command, size = struct.unpack_from("<2I", data, offset)
        if command == LC_SEGMENT_64:
            command = data[offset + 8:offset + 24].rstrip(b"\0").decode()
        found[command] = offset
        offset += size
    return found


def blob(magic, content):
    return struct.pack(">2I", magic, 8 + len(content)) + content


def code_directory(code, identifier, special, text_size):
    """`special` holds the hashes of slots 1, 2, …; all zero where a slot is empty."""
    name = identifier.encode() + b"\0"
    page = 1 << PAGE_SHIFT
    hashes = [hashlib.sha256(code[start:start + page]).digest() for start in range(0, len(code), page)]
    first_hash = 88 + len(name) + 32 * len(special)
    is_program = struct.unpack_from("<I", code, 12)[0] == MH_EXECUTE
    fields = struct.pack(">7I4B4I4Q", 0x20400, AD_HOC, first_hash, 88, len(special), len(hashes), len(code),
                         32, 2, 0, PAGE_SHIFT, 0, 0, 0, 0, 0, 0, text_size, int(is_program))
    return blob(CODE_DIRECTORY, fields + name + b"".join(reversed(special)) + b"".join(hashes))


def signature(code, folder, text_size):
    sealed = {SLOT_INFORMATION: folder.information_path.read_bytes(), SLOT_REQUIREMENTS: NO_REQUIREMENTS,
              SLOT_RESOURCES: folder.seal.read_bytes()}
    special = [hashlib.sha256(sealed[slot]).digest() for slot in sorted(sealed)]
    parts = {SLOT_CODE_DIRECTORY: code_directory(code, folder.identifier, special, text_size),
             SLOT_REQUIREMENTS: NO_REQUIREMENTS, SLOT_CMS: blob(WRAPPER, b"")}
    index, content = struct.pack(">I", len(parts)), b""
    for slot, part in parts.items():
        index += struct.pack(">2I", slot, 12 + 8 * len(parts) + len(content))
        content += part
    return blob(SIGNATURE, index + content)


def sign_slice(data, folder):
    """The image with its signature replaced. The linker made room for one, at the end."""
    commands = load_commands(data)
    if LC_CODE_SIGNATURE not in commands:
        raise SystemExit(f"{folder.executable}: linked without a signature to replace")
    at = commands[LC_CODE_SIGNATURE]
    limit = struct.unpack_from("<I", data, at + 8)[0]
    code = bytearray(data[:limit])
    text_size = struct.unpack_from("<Q", code, commands["__TEXT"] + 48)[0]
    size = align(len(signature(code, folder, text_size)), 16)
    # The size does not depend on the hashes, so the commands can be settled before they are hashed.
    struct.pack_into("<I", code, at + 12, size)
    link_edit = commands["__LINKEDIT"]
    file_offset = struct.unpack_from("<Q", code, link_edit + 40)[0]
    page = 0x4000 if struct.unpack_from("<I", code, 4)[0] == CPU_ARM64 else 0x1000
    file_size = limit + size - file_offset
    struct.pack_into("<Q", code, link_edit + 32, align(file_size, page))
    struct.pack_into("<Q", code, link_edit + 48, file_size)
    return bytes(code) + signature(code, folder, text_size).ljust(size, b"\0")


def code_hashes(path):
    """The hash by which each architecture of a signed executable is known."""
    for data in read_slices(path.read_bytes()):
        start = struct.unpack_from("<I", data, load_commands(data)[LC_CODE_SIGNATURE] + 8)[0]
        place = start + struct.unpack_from(">I", data, start + 16)[0]
        length = struct.unpack_from(">I", data, place + 4)[0]
        yield hashlib.sha256(data[place:place + length]).digest()[:20]


def seal(folder):
    """What CodeResources says: a hash of every file, and the code hash of every bundle inside."""
    files, files2 = {}, {}
    left_out = {folder.executable, folder.seal}
    if not folder.is_framework:
        left_out.add(folder.information_path)
    for directory, names, file_names in os.walk(folder.root):
        names.sort()
        for name in [name for name in names if pathlib.Path(name).suffix in (".framework", ".bundle")]:
            names.remove(name)
            inner = Folder(pathlib.Path(directory) / name)
            hashes = list(code_hashes(inner.executable))
            requirement = " or ".join(f'cdhash H"{value.hex()}"' for value in hashes)
            place = str(inner.path.relative_to(folder.root))
            files2[place] = {"cdhash": hashes[0], "requirement": requirement}
        for name in sorted(file_names):
            path = pathlib.Path(directory) / name
            if path in left_out:
                continue
            place, content = str(path.relative_to(folder.root)), path.read_bytes()
            if place.startswith("Resources/"):
                files[place] = hashlib.sha1(content).digest()
            files2[place] = {"hash2": hashlib.sha256(content).digest()}
    return plistlib.dumps({"files": files, "files2": files2, "rules": RULES, "rules2": RULES2})


def sign(path):
    folder = Folder(path)
    folder.seal.parent.mkdir(exist_ok=True)
    folder.seal.write_bytes(seal(folder))
    images = read_slices(folder.executable.read_bytes())
    signed = join_slices([sign_slice(image, folder) for image in images])
    # Never in place: a system that has seen the old file may keep what it knows of it.
    fresh = folder.executable.with_name(folder.executable.name + ".signed")
    fresh.write_bytes(signed)
    fresh.chmod(0o755)
    fresh.replace(folder.executable)


if __name__ == "__main__":
    sign(sys.argv[1])
