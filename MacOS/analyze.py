#!/usr/bin/env python3
"""analyze.py BUILD-FOLDER: runs clang's static analyzer over everything that was built for macOS.

Reads the folder's compile_commands.json; each file is analyzed for each architecture, and any finding is an
error.
"""
import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys

ARCHITECTURES = ("arm64", "x86_64")
ANALYZER = ["--analyze", "-Xanalyzer", "-analyzer-werror", "-Xanalyzer", "-analyzer-output=text",
            "-Xanalyzer", "-analyzer-checker=nullability,optin.cplusplus,optin.osx,optin.performance",
            "-o", os.devnull]


def analysis(command, architecture):
    """The compile command of a file, made an analysis for one architecture."""
    arguments, words = [], iter(shlex.split(command))
    for word in words:
        if word in ("-o", "-arch", "-MT", "-MF"):
            next(words)
        elif word not in ("-c", "-MD"):
            arguments.append(word)
    return arguments + ["-arch", architecture] + ANALYZER


def run(job):
    folder, file, architecture, arguments = job
    result = subprocess.run(arguments, cwd=folder, capture_output=True, text=True)
    # Anything that is said counts.
    return f"{file} ({architecture}):\n{result.stderr}" if result.returncode or result.stderr else None


def main(build):
    commands = json.loads((pathlib.Path(build) / "compile_commands.json").read_text())
    jobs = [(entry["directory"], entry["file"], architecture, analysis(entry["command"], architecture))
            for entry in commands for architecture in ARCHITECTURES]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        findings = [finding for finding in pool.map(run, jobs) if finding]
    print("\n".join(findings))
    print(f"{len(jobs)} analyses, {len(findings)} with findings")
    return 1 if findings or not jobs else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
