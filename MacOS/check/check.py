#!/usr/bin/env python3
"""check.py BUILD-FOLDER: holds what was built for macOS against the contract and the link tables."""
import pathlib
import sys

import contract
from checker import check_build

problems = check_build(sys.argv[1], contract, pathlib.Path(__file__).resolve().parent.parent / "stubs")
for problem in problems:
    print(problem)
sys.exit(1 if problems else 0)
