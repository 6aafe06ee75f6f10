"""Compares a built bundle with the contract, in both directions."""
import pathlib
import plistlib
import re
import sys

from machofile import MachOError, read_slices

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent))
from linkstubs import read_tables  # noqa: E402

# Which of a runtime's helpers are called is the compiler's choice, so their tables may list more than is used.
COMPILER_LIBRARIES = {"libSystem", "libc++", "libobjc"}
MACOS = 1


def plain_name(name):
    """The name under which the runtime shows a protocol that is stored in mangled form."""
    match = re.fullmatch(r"_TtP(\d+)(.*)_", name)
    if not match:
        return name
    module = match[2][:int(match[1])]
    rest = re.fullmatch(r"(\d+)(.*)", match[2][len(module):])
    if not rest or len(rest[2]) != int(rest[1]):
        return name
    return f"{module}.{rest[2]}"


class Report:
    """The differences found, each a sentence that says where."""

    def __init__(self):
        self.problems = []

    def equal(self, where, wanted, found):
        if wanted != found:
            self.problems.append(f"{where}: {found!r}, must be {wanted!r}")

    def same_names(self, where, wanted, found):
        """Compares two sets of names; returns those in both."""
        wanted, found = list(wanted), list(found)
        self.problems += [f"{where}: {name} is missing" for name in wanted if name not in found]
        self.problems += [f"{where}: {name} is not in the contract" for name in found if name not in wanted]
        return [name for name in wanted if name in found]


class ImageCheck:
    """One architecture of one module."""

    def __init__(self, report, module, image, owners, bools):
        self.report, self.module, self.image, self.owners = report, module, image, owners
        self.bool = bools[image.architecture]
        self.where = f"{module['path'].rsplit('/')[-1]} ({image.architecture})"

    def run(self, minimum_version):
        image, module, report = self.image, self.module, self.report
        for what, wanted, found in (
                ("file type", module["file_type"], image.file_type), ("platform", MACOS, image.platform),
                ("minimum version", minimum_version, image.minimum_version),
                ("two-level names", True, image.two_level_namespace),
                ("install name", module["install_name"], image.install_name),
                ("run paths", module["run_paths"], image.run_paths)):
            report.equal(f"{self.where} {what}", wanted, found)
        report.same_names(f"{self.where} libraries", module["libraries"], image.libraries)
        report.same_names(f"{self.where} exports", module["exports"], image.exports)
        self.check_imports()
        self.check_classes()
        self.check_protocols()
        self.check_signature()

    def check_imports(self):
        for symbol, library in self.image.imports.items():
            self.report.equal(f"{self.where} library of {symbol}", self.owners.get(symbol), library)

    def check_classes(self):
        for name in self.report.same_names(f"{self.where} classes", self.module["classes"], self.image.classes):
            wanted, found, where = self.module["classes"][name], self.image.classes[name], f"{self.where} {name}"
            self.report.equal(f"{where} superclass", wanted["superclass"], found.superclass)
            self.report.equal(f"{where} protocols", wanted["protocols"], [plain_name(p) for p in found.protocols])
            self.check_methods(where, wanted["methods"], found.methods)
            self.check_methods(f"{where} class", wanted["class_methods"], found.class_methods)

    def check_protocols(self):
        protocols = {plain_name(name): entry for name, entry in self.image.protocols.items()}
        for name in self.report.same_names(f"{self.where} protocols", self.module["protocols"], protocols):
            wanted, found, where = self.module["protocols"][name], protocols[name], f"{self.where} {name}"
            self.report.equal(f"{where} adopted", wanted["adopted"], [plain_name(p) for p in found.adopted])
            self.check_methods(where, wanted["required"], found.required)
            self.check_methods(f"{where} optional", wanted["optional"], found.optional)
            self.report.equal(f"{where} class methods", [], found.required_class + found.optional_class)

    def check_methods(self, where, wanted, found):
        found = {method.selector: method for method in found}
        for selector in self.report.same_names(f"{where} methods", wanted, found):
            method = found[selector]
            plain, _, extended = wanted[selector].replace("{BOOL}", self.bool).partition("|")
            self.report.equal(f"{where} {selector}", plain, method.types)
            # Where no class is named the two encodings are the same text; the extended one may not be kept.
            if method.extended is not None:
                self.report.equal(f"{where} {selector} extended", extended or plain, method.extended)
            elif extended:
                self.report.equal(f"{where} {selector} extended", extended, None)

    def check_signature(self):
        signature = self.image.signature
        if not signature:
            self.report.problems.append(f"{self.where}: not signed")
            return
        self.report.equal(f"{self.where} signed pages match", True, signature.pages_match)
        self.report.equal(f"{self.where} signature is ad hoc", True, signature.ad_hoc)
        self.report.equal(f"{self.where} signed identifier", self.module["identifier"], signature.identifier)


def check_tables(report, tables, used):
    """What a table of a framework lists is used by some module."""
    for table in tables:
        if table.name not in COMPILER_LIBRARIES:
            report.problems += [f"stubs/{table.name}.txt: {symbol} is not used" for symbol in table.unused(used)]


def check_information(report, module, bundle):
    path = bundle / module["information_path"]
    with path.open("rb") as file:
        found = plistlib.load(file)
    for key in report.same_names(str(path.relative_to(bundle)), module["information"], found):
        report.equal(f"{path.relative_to(bundle)} {key}", module["information"][key], found[key])


def check_bundle(bundle, contract, table_folder):
    """Every difference between the bundle folder and the contract; none when it is as it must be."""
    bundle, report = pathlib.Path(bundle), Report()
    tables = read_tables(table_folder)
    owners = {symbol: table.install_name for table in tables for symbol in table.symbols()}
    modules = []
    for module in contract.MODULES:
        try:
            modules.append((module, read_slices((bundle / module["path"]).read_bytes())))
        except (OSError, MachOError) as error:
            report.problems.append(f"{module['path']}: {error}")
    # A module may take from another one what that one exports.
    for module, images in modules:
        owners |= {symbol: module["install_name"] for symbol in module["exports"] if module["install_name"]}
    used = set()
    for module, images in modules:
        report.equal(f"{module['path']} architectures", contract.ARCHITECTURES,
                     sorted(image.architecture for image in images))
        for image in images:
            used |= image.imports.keys()
            ImageCheck(report, module, image, owners, contract.BOOL).run(contract.MINIMUM_VERSION)
        check_information(report, module, bundle)
    check_tables(report, tables, used)
    return report.problems
