"""analyzer_test.py BUILD: the analyzer finds a planted mistake, and none in what was built."""
import json
import pathlib
import sys
import tempfile

import analyze

MISTAKE = "int read() { int* nothing = nullptr; return *nothing; }\n"


def main(build):
    commands = json.loads((pathlib.Path(build) / "compile_commands.json").read_text())
    sample = next(entry for entry in commands if entry["file"].endswith(".mm"))
    with tempfile.TemporaryDirectory() as folder:
        planted = pathlib.Path(folder) / "Planted.mm"
        planted.write_text(MISTAKE)
        command = sample["command"].replace(sample["file"], str(planted))
        for architecture in analyze.ARCHITECTURES:
            job = (sample["directory"], str(planted), architecture, analyze.analysis(command, architecture))
            if not analyze.run(job):
                print(f"The planted mistake was not found ({architecture})")
                return 1
    return analyze.main(build)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
