"""reproducible_test.py SOURCE BUILD OPTION…: builds a copy of the sources, which lies elsewhere, and compares
every byte of what comes out with BUILD."""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

SOURCES = ("CMake", "CMakeLists.txt", "Bundle", "CMIOExtensionSupport", "Frameworks", "MacOS",
           "PavoLoggingSupport", "Platform", "Resources", "Stub")
RESULTS = ("CMIOExtensionSupport.bundle", "com.tarnwell.macos.cam.extension.systemextension",
           "Stub.entitlements")


def entry(path):
    if path.is_symlink():
        return "link", os.readlink(path)
    return ("folder", None) if path.is_dir() else (f"{path.stat().st_mode:o}", path.read_bytes())


def contents(build):
    """Everything under the results: what kind it is, and what it holds."""
    return {path.relative_to(build): entry(path)
            for result in RESULTS for path in (build / result, *(build / result).rglob("*"))}


def main(source, build, options):
    with tempfile.TemporaryDirectory(prefix="another-place-") as folder:
        copy = pathlib.Path(folder) / "with-another-name"
        copy.mkdir()
        for name in SOURCES:
            place = source / name
            if place.is_dir():
                shutil.copytree(place, copy / name)
            else:
                shutil.copy(place, copy / name)
        other = pathlib.Path(folder) / "out"
        configure = ["cmake", "-S", copy, "-B", other, "-G", "Ninja", *options]
        for command in (configure, ["cmake", "--build", other]):
            subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        first, second = contents(build), contents(other)
    paths = first.keys() | second.keys()
    different = sorted(str(path) for path in paths if first.get(path) != second.get(path))
    print(f"{len(first)} files and folders, {len(different)} different", *different, sep="\n")
    # A comparison of nothing with nothing is not a success.
    return 1 if different or not any(data for _, data in first.values()) else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3:]))
