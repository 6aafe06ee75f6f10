#!/bin/sh
# Says which lines of the macOS adapters their tests reach, file by file, and fails below the share that is
# asked for.
#     Tests/MacOS/coverage.sh [build folder] [least percentage of lines]
set -eu

root="$(cd "$(dirname "$0")/../.." && pwd)"
build="${1:-$root/build/adapter-coverage}"
least="${2:-90}"

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DPAVO_ADAPTER_COVERAGE=ON >"$build.log" 2>&1 ||
    { cat "$build.log"; exit 1; }
cmake --build "$build" --target MacOSAdapterTests
tests="$build/Tests/MacOS/MacOSAdapterTests"
LLVM_PROFILE_FILE="$build/adapters-%p.profraw" "$tests" --gtest_brief=1
llvm-profdata-19 merge -o "$build/adapters.profdata" "$build"/adapters-*.profraw
rm -f "$build"/adapters-*.profraw
# The build writes paths without the project's folder. What is compiled in from headers counts elsewhere.
cd "$root"
llvm-cov-19 report "$tests" -instr-profile "$build/adapters.profdata" -ignore-filename-regex='\.h$'
llvm-cov-19 export -summary-only "$tests" -instr-profile "$build/adapters.profdata" \
    -ignore-filename-regex='\.h$' |
    python3 -c '
import json, sys
lines = json.load(sys.stdin)["data"][0]["totals"]["lines"]
print("%d of %d lines: %.1f %%" % (lines["covered"], lines["count"], lines["percent"]))
sys.exit(lines["percent"] < float(sys.argv[1]))' "$least"
