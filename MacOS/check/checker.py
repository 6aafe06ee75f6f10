"""Compares built bundles with the contract, in both directions."""
import fnmatch
import hashlib
import pathlib
import plistlib
import re
import sys

from machofile import MachOError, read_slices

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from linkstubs import read_tables  # noqa: E402

# Which functions of a runtime are called is the compiler's choice, so these tables may list more than is used.
COMPILER_LIBRARIES = {"libSystem", "libc++", "libobjc"}
MACOS = 1
SLOT_INFORMATION, SLOT_RESOURCES = 1, 3


def plain_name(name):
    """The name under which the runtime shows a protocol that is stored in mangled form."""
    match = re.fullmatch(r"_TtP(\d+)(.*)_", name)
    if not match:
        return name
    module, rest = match[2][:int(match[1])], match[2][int(match[1]):]
    inner = re.fullmatch(r"(\d+)(.*)", rest)
    return f"{module}.{inner[2]}" if inner and len(inner[2]) == int(inner[1]) else name


class Report:
    """The differences found, each a line that says where."""

    def __init__(self):
        self.problems = []

    def add(self, problem):
        self.problems.append(problem)

    def equal(self, where, wanted, found):
        if wanted != found:
            self.add(f"{where}: {found!r}, must be {wanted!r}")

    def same_names(self, where, wanted, found):
        """Compares two collections of names; returns those in both."""
        for name in wanted:
            if name not in found:
                self.add(f"{where}: {name} is missing")
        for name in found:
            if name not in wanted:
                self.add(f"{where}: {name} is not in the contract")
        return [name for name in wanted if name in found]


class ImageCheck:
    """One architecture of one module."""

    def __init__(self, report, contract, module, image):
        self.report, self.contract, self.module, self.image = report, contract, module, image
        self.where = f"{pathlib.Path(module['executable']).name} ({image.architecture})"

    def run(self, owners):
        image, module = self.image, self.module
        for what, wanted, found in (
                ("file type", module["file_type"], image.file_type), ("platform", MACOS, image.platform),
                ("minimum version", self.contract.MINIMUM_VERSION, image.minimum_version),
                ("two-level names", True, image.two_level_namespace),
                ("install name", module["install_name"], image.install_name),
                ("run paths", module["run_paths"], image.run_paths)):
            self.report.equal(f"{self.where} {what}", wanted, found)
        self.report.same_names(f"{self.where} libraries", module["libraries"], image.libraries)
        self.check_exports()
        for symbol, library in image.imports.items():
            self.report.equal(f"{self.where} library of {symbol}", owners.get(symbol), library)
        self.check_classes()
        self.check_protocols()

    def check_exports(self):
        patterns, found = self.module["exports"], self.image.exports
        for pattern in patterns:
            if not fnmatch.filter(found, pattern):
                self.report.add(f"{self.where} exports: {pattern} is missing")
        for symbol in found:
            if not any(fnmatch.fnmatchcase(symbol, pattern) for pattern in patterns):
                self.report.add(f"{self.where} exports: {symbol} is not in the contract")

    def check_classes(self):
        wanted_classes = self.module["classes"]
        for name in self.report.same_names(f"{self.where} classes", wanted_classes, self.image.classes):
            wanted, found, where = wanted_classes[name], self.image.classes[name], f"{self.where} {name}"
            self.report.equal(f"{where} superclass", wanted["superclass"], found.superclass)
            self.report.equal(f"{where} protocols", wanted["protocols"],
                              [plain_name(adopted) for adopted in found.protocols])
            ours = [method for method in found.methods
                    if method.selector not in self.contract.COMPILER_METHODS]
            self.check_methods(where, wanted["methods"], ours)
            self.report.equal(f"{where} class methods", [],
                              [method.selector for method in found.class_methods])

    def check_protocols(self):
        protocols = {plain_name(name): entry for name, entry in self.image.protocols.items()}
        for name in self.report.same_names(f"{self.where} protocols", self.module["protocols"], protocols):
            wanted, found, where = self.module["protocols"][name], protocols[name], f"{self.where} {name}"
            self.report.equal(f"{where} adopted", wanted["adopted"],
                              [plain_name(adopted) for adopted in found.adopted])
            self.check_methods(where, wanted["required"], found.required)
            self.check_methods(f"{where} optional", wanted["optional"], found.optional)
            self.report.equal(f"{where} class methods", [],
                              [method.selector for method in found.required_class + found.optional_class])
            for method in found.required + found.optional:
                if not method.extended:
                    self.report.add(f"{where} {method.selector}: no extended encoding")

    def check_methods(self, where, wanted, found):
        found = {method.selector: method for method in found}
        for selector in self.report.same_names(f"{where} methods", wanted, found):
            if wanted[selector] is None:
                continue
            types = wanted[selector].replace("{BOOL}", self.contract.BOOL[self.image.architecture])
            plain, _, extended = types.partition("|")
            self.report.equal(f"{where} {selector}", plain, found[selector].types)
            if found[selector].extended:
                self.report.equal(f"{where} {selector} extended", extended or plain, found[selector].extended)


class FolderCheck:
    """What lies around the image of a module: its property list, its files, and its seal."""

    def __init__(self, report, module, build):
        self.report, self.module, self.where = report, module, module["folder"]
        self.folder = build / module["folder"]

    def run(self, images):
        for name in self.module["files"]:
            if not (self.folder / name).exists():
                self.report.add(f"{self.where}: {name} is missing")
        information_path = self.folder / self.module["information_path"]
        information = plistlib.loads(information_path.read_bytes())
        wanted = self.module["information"]
        for key in self.report.same_names(f"{self.where} Info.plist", wanted, information):
            self.report.equal(f"{self.where} Info.plist {key}", wanted[key], information[key])

        root = self.folder / pathlib.Path(self.module["executable"]).parts[0]
        if root.name == "Versions":
            root = root / "A"
        seal = root / "_CodeSignature/CodeResources"
        sealed = {SLOT_INFORMATION: information_path, SLOT_RESOURCES: seal}
        for image in images:
            self.check_signature(image, sealed)
        self.check_seal(root, plistlib.loads(seal.read_bytes())["files2"],
                        left_out={self.folder / self.module["executable"], seal, root / "Info.plist"})

    def check_signature(self, image, sealed):
        where, signature = f"{self.where} ({image.architecture}) signature", image.signature
        if not signature:
            self.report.add(f"{where}: there is none")
            return
        self.report.equal(f"{where} of all pages", True, signature.pages_match)
        self.report.equal(f"{where} ad hoc", True, signature.ad_hoc)
        self.report.equal(f"{where} identifier", self.module["information"]["CFBundleIdentifier"],
                          signature.identifier)
        for slot, path in sealed.items():
            if hashlib.sha256(path.read_bytes()).digest() != signature.special.get(slot):
                self.report.add(f"{where}: {path.name} is not what was signed")

    def check_seal(self, root, entries, left_out):
        nested = {root / name for name, entry in entries.items() if "cdhash" in entry}
        files = {path for path in root.rglob("*") if path.is_file() and path not in left_out
                 and not any(folder in path.parents for folder in nested)}
        self.report.same_names(f"{self.where} sealed files", sorted(entries),
                               sorted(str(path.relative_to(root)) for path in files | nested))
        for path in files:
            entry = entries.get(str(path.relative_to(root)), {})
            if entry and entry.get("hash2") != hashlib.sha256(path.read_bytes()).digest():
                self.report.add(f"{self.where}: {path.name} is not what was sealed")
        for folder in nested:
            entry = entries[str(folder.relative_to(root))]
            executables = [path for path in folder.rglob(folder.stem)
                           if path.is_file() and not path.is_symlink()]
            hashes = [image.signature.cdhash
                      for path in executables for image in read_slices(path.read_bytes())]
            wanted = " or ".join(f'cdhash H"{value.hex()}"' for value in hashes)
            self.report.equal(f"{self.where} seal of {folder.name}", wanted, entry["requirement"])


def check_tables(report, tables, used):
    """What the table of a framework lists is used by some module."""
    for table in tables:
        if table.name not in COMPILER_LIBRARIES:
            for name in table.unused(used):
                report.add(f"stubs/{table.name}.txt: {name} is not used")


def check_build(build, contract, table_folder):
    """Every difference between what was built and the contract; none when all is as it must be."""
    build, report, used = pathlib.Path(build), Report(), set()
    tables = read_tables(table_folder)
    owners = {symbol: table.install_name for table in tables for symbol in table.symbols()}
    for module in contract.MODULES:
        try:
            images = read_slices((build / module["folder"] / module["executable"]).read_bytes())
            report.equal(f"{module['folder']} architectures", contract.ARCHITECTURES,
                         sorted(image.architecture for image in images))
            for image in images:
                ImageCheck(report, contract, module, image).run(owners)
                used |= image.imports.keys()
                # Later modules may take what this one offers.
                if module["install_name"]:
                    owners |= {symbol: module["install_name"] for symbol in image.exports}
            FolderCheck(report, module, build).run(images)
        except (OSError, MachOError, plistlib.InvalidFileException) as error:
            report.add(f"{module['folder']}: {error}")
    check_tables(report, tables, used)
    return report.problems
