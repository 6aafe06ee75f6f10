"""checker_tests.py BUILD: the checker is content with what was built, and sees each difference that is planted
in the files, in the contract and in the link tables."""
import copy
import pathlib
import random
import shutil
import struct
import sys
import tempfile
import types
import unittest

import contract
from checker import check_build, plain_name
from machofile import MachOError, read_slices
from sign import sign

BUILD = pathlib.Path(sys.argv.pop())
TABLES = pathlib.Path(contract.__file__).parent.parent / "stubs"
PRODUCT = "CMIOExtensionSupport.bundle/Contents/MacOS/CMIOExtensionSupport"
CONSUMER = "CMIOExtensionSupport.VideoFrameConsumerService"
ENTRY_POINT = "TWCMIOExtensionSupportEntryPoint"


class CheckerTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.build = pathlib.Path(folder.name) / "build"
        for module in (contract.PRODUCT, contract.EXTENSION):
            shutil.copytree(BUILD / module["folder"], self.build / module["folder"], symlinks=True)
        self.tables = pathlib.Path(folder.name) / "stubs"
        shutil.copytree(TABLES, self.tables)
        self.contract = types.SimpleNamespace(**copy.deepcopy(
            {name: value for name, value in vars(contract).items() if name.isupper()}))
        self.logging, self.product, self.extension = self.contract.MODULES

    def problems(self):
        return check_build(self.build, self.contract, self.tables)

    def assert_seen(self, text):
        problems = self.problems()
        self.assertTrue(any(text in problem for problem in problems), f"{text!r} is not among {problems}")

    def replace(self, old, new, path=PRODUCT):
        """Puts other bytes, as many, into a built file, wherever the old ones are."""
        data = (self.build / path).read_bytes()
        self.assertIn(old, data)
        self.assertEqual(len(old), len(new))
        (self.build / path).write_bytes(data.replace(old, new))


class WhatWasBuilt(CheckerTest):
    def test_has_no_difference(self):
        self.assertEqual([], self.problems())


class DifferencesInTheContract(CheckerTest):
    """A name that only one side has, whichever it is."""

    def assert_both_ways(self, names, planted, is_there):
        """`names` is a collection of the contract: with one more, and with one less, the check fails."""
        if isinstance(names, dict):
            value = names.pop(is_there)
            self.assert_seen(f"{is_there} is not in the contract")
            names[is_there] = names[planted] = value
        else:
            names.remove(is_there)
            self.assert_seen(f"{is_there} is not in the contract")
            names += [is_there, planted]
        self.assert_seen(f"{planted} is missing")

    def test_a_class(self):
        self.assert_both_ways(self.product["classes"], "Planted", ENTRY_POINT)

    def test_a_method(self):
        self.assert_both_ways(self.product["classes"][ENTRY_POINT]["methods"], "planted", "stop")

    def test_a_protocol(self):
        self.assert_both_ways(self.product["protocols"], "Planted", CONSUMER)

    def test_a_selector_of_a_protocol(self):
        required = self.product["protocols"][CONSUMER]["required"]
        self.assert_both_ways(required, "planted", "targetFPSChangedTo:")

    def test_an_optional_selector(self):
        optional = self.product["protocols"]["NSObject"]["optional"]
        self.assert_both_ways(optional, "planted", "debugDescription")

    def test_an_export(self):
        exports = self.product["exports"]
        self.assert_both_ways(exports, "_planted", "_dynamically_register_mach_service_for_endpoint")

    def test_an_export_of_the_logging_module(self):
        self.logging["exports"] += ["__ZN4pavo7Planted*"]
        self.assert_seen("exports: __ZN4pavo7Planted* is missing")

    def test_a_library(self):
        libraries = self.product["libraries"]
        self.assert_both_ways(libraries, "/usr/lib/libplanted.dylib", "/usr/lib/libc++.1.dylib")

    def test_a_key_of_the_property_list(self):
        self.assert_both_ways(self.product["information"], "Planted", "CFBundleName")

    def test_an_architecture(self):
        self.contract.ARCHITECTURES.remove("x86_64")
        self.assert_seen("architectures")

    def test_a_superclass(self):
        self.product["classes"][ENTRY_POINT]["superclass"] = "NSResponder"
        self.assert_seen(f"{ENTRY_POINT} superclass: 'NSObject', must be 'NSResponder'")

    def test_a_conformance(self):
        self.product["classes"][ENTRY_POINT]["protocols"] = []
        self.assert_seen(f"{ENTRY_POINT} protocols")

    def test_an_adopted_protocol(self):
        name = "CMIOExtensionSupport.VideoFrameProducerServiceReportReceiving"
        self.product["protocols"][name]["adopted"] = []
        self.assert_seen("ReportReceiving adopted")

    def test_a_plain_encoding(self):
        self.product["protocols"][CONSUMER]["required"]["targetFPSChangedTo:"] = "v24@0:8f16"
        self.assert_seen("targetFPSChangedTo:: 'v24@0:8d16', must be 'v24@0:8f16'")

    def test_an_extended_encoding(self):
        methods = self.product["protocols"][CONSUMER]["required"]
        selector = "didRecieveRawFrame:timingInfo:"
        methods[selector] = methods[selector].replace("IOSurface", "NSData")
        self.assert_seen(f"{selector} extended")

    def test_a_truth_value_is_another_type_on_each_architecture(self):
        self.contract.BOOL["arm64"] = "c"
        problems = self.problems()
        self.assertTrue(problems)
        self.assertTrue(all("(arm64)" in problem for problem in problems), problems)

    def test_the_oldest_system(self):
        self.contract.MINIMUM_VERSION = "13.0"
        self.assert_seen("minimum version: '12.3', must be '13.0'")

    def test_paths_by_which_images_find_each_other(self):
        self.product["run_paths"] = []
        self.logging["install_name"] = "@rpath/Elsewhere"
        self.assert_seen("run paths")
        self.assert_seen("install name")

    def test_the_kind_of_an_image(self):
        self.product["file_type"] = "dylib"
        self.assert_seen("file type: 'bundle', must be 'dylib'")


class DifferencesInTheTables(CheckerTest):
    def table(self, name):
        return self.tables / f"{name}.txt"

    def test_a_symbol_that_is_not_used(self):
        with self.table("CoreMedia").open("a") as table:
            table.write("symbol _CMPlanted\n")
        self.assert_seen("CoreMedia.txt: _CMPlanted is not used")

    def test_a_class_that_is_not_used(self):
        with self.table("Foundation").open("a") as table:
            table.write("class NSPlanted\n")
        self.assert_seen("Foundation.txt: NSPlanted is not used")

    def test_a_symbol_that_no_table_has(self):
        text = self.table("CoreMedia").read_text()
        self.table("CoreMedia").write_text(text.replace("symbol _CMClockGetTime\n", ""))
        self.assert_seen("library of _CMClockGetTime")

    def test_a_symbol_in_the_table_of_another_library(self):
        for name, old, new in (("CoreMedia", "symbol _CMClockGetTime\n", ""),
                               ("CoreVideo", "", "symbol _CMClockGetTime\n")):
            text = self.table(name).read_text()
            self.table(name).write_text(text.replace(old, "", 1) + new)
        self.assert_seen("library of _CMClockGetTime")

    def test_a_line_that_says_nothing(self):
        with self.table("CoreMedia").open("a") as table:
            table.write("simbol _CMClockGetTime\n")
        with self.assertRaises(SystemExit):
            self.problems()


class DifferencesInTheFiles(CheckerTest):
    def test_a_selector(self):
        self.replace(b"didRecieveRawFrame:timingInfo:\0", b"didReceiveRawFrame:timingInfo:\0")
        self.assert_seen("didRecieveRawFrame:timingInfo: is missing")
        self.assert_seen("didReceiveRawFrame:timingInfo: is not in the contract")

    def test_an_encoding(self):
        self.replace(b"v24@0:8d16\0", b"v24@0:8q16\0")
        self.assert_seen("targetFPSChangedTo:: 'v24@0:8q16', must be 'v24@0:8d16'")

    def test_a_class_name(self):
        self.replace(b"CMIOExtensionSupport.ProviderSource\0", b"CMIOExtensionSupport_ProviderSource\0")
        self.assert_seen("CMIOExtensionSupport.ProviderSource is missing")

    def test_the_stored_name_of_a_protocol(self):
        self.replace(b"_TtP20CMIOExtensionSupport25VideoFrameConsumerService_\0",
                     b"_TtP20CMIOExtensionSupport24VideoFrameConsumerService_\0")
        self.assert_seen(f"{CONSUMER} is missing")

    def test_a_byte_of_code_that_was_not_signed_so(self):
        path = self.build / PRODUCT
        data = bytearray(path.read_bytes())
        data[struct.unpack_from(">I", data, 16)[0] + 0x4001] ^= 1
        path.write_bytes(data)
        self.assertTrue(any("signature of all pages" in problem for problem in self.problems()))

    def test_an_architecture_that_is_missing(self):
        data = (self.build / PRODUCT).read_bytes()
        offset, size = struct.unpack_from(">2I", data, 16)
        (self.build / PRODUCT).write_bytes(data[offset:offset + size])
        self.assert_seen("architectures")

    def test_a_property_list_that_was_not_signed_so(self):
        information = "CMIOExtensionSupport.bundle/Contents/Info.plist"
        self.replace(b"<string>en</string>", b"<string>de</string>", information)
        self.assert_seen("CFBundleDevelopmentRegion: 'de', must be 'en'")
        self.assert_seen("Info.plist is not what was signed")

    def test_a_resource_that_was_not_sealed_so(self):
        picture = "CMIOExtensionSupport.bundle/Contents/Resources/configure-pavo-full.png"
        with (self.build / picture).open("ab") as file:
            file.write(b"more")
        self.assert_seen("configure-pavo-full.png is not what was sealed")

    def test_a_file_that_was_not_sealed(self):
        (self.build / "CMIOExtensionSupport.bundle/Contents/Resources/planted").write_text("")
        self.assert_seen("Resources/planted is not in the contract")

    def test_a_seal_that_was_not_signed(self):
        seal = "CMIOExtensionSupport.bundle/Contents/_CodeSignature/CodeResources"
        with (self.build / seal).open("ab") as file:
            file.write(b"\n")
        self.assert_seen("CodeResources is not what was signed")

    def test_an_inner_bundle_with_another_signature(self):
        inner = "CMIOExtensionSupport.bundle/Contents/Frameworks/PavoLoggingSupport.framework/Versions/A"
        self.replace(b"com.tarnwell.macos.PavoLoggingSupport\0", b"com.tarnwell.macos.PavoLoggingSuppors\0",
                     f"{inner}/PavoLoggingSupport")
        self.assert_seen("seal of PavoLoggingSupport.framework")

    def test_a_file_that_is_missing(self):
        (self.build / PRODUCT).unlink()
        self.assert_seen("No such file")


class Signing(CheckerTest):
    def sign_all(self):
        for module in self.contract.MODULES:
            sign(self.build / module["folder"])

    def contents(self):
        return {path: path.read_bytes() for path in self.build.rglob("*") if path.is_file()}

    def test_again_gives_the_same_bytes(self):
        before = self.contents()
        self.sign_all()
        self.assertEqual(before, self.contents())

    def test_covers_what_was_changed_since(self):
        (self.build / "CMIOExtensionSupport.bundle/Contents/Resources/more").write_text("more")
        self.assertNotEqual([], self.problems())
        self.sign_all()
        self.assertEqual([], self.problems())


class DamagedFiles(CheckerTest):
    """Are refused, each with a reason, and never taken for something else."""

    def test_a_file_that_ends_early(self):
        data = (BUILD / PRODUCT).read_bytes()
        for size in (0, 3, 40, 300, 5000, len(data) // 2, len(data) - 30000):
            with self.subTest(size=size), self.assertRaises(MachOError):
                read_slices(data[:size])

    def test_a_file_with_any_byte_changed_is_read_or_refused(self):
        data = (BUILD / PRODUCT).read_bytes()
        offset, size = struct.unpack_from(">2I", data, 16)
        image, generator = data[offset:offset + size], random.Random(12)
        for _ in range(60):
            damaged = bytearray(image)
            # Where the load commands are: there a byte means most.
            damaged[generator.randrange(0, 4000)] ^= 1 << generator.randrange(8)
            try:
                read_slices(bytes(damaged))
            except MachOError:
                pass

    def test_a_file_of_another_kind(self):
        (self.build / PRODUCT).write_bytes(b"\x7fELF" + bytes(100))
        self.assert_seen("not a 64 bit program")


class ProtocolNames(unittest.TestCase):
    def test_are_shown_as_the_runtime_shows_them(self):
        self.assertEqual("M.Name", plain_name("_TtP1M4Name_"))
        for name in ("NSObject", "_TtP1M5Name_", "_TtP1M4Name", "_TtC1M4Name"):
            self.assertEqual(name, plain_name(name))


if __name__ == "__main__":
    unittest.main()
