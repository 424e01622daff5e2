#!/usr/bin/env python3
"""Runs the commands of a guide exactly as written. Without SOURCES it prints a shell script for another machine.

usage: run_guide.py GUIDE packages|folder [SOURCES]

One shell runs the guide's ```sh blocks in order. It starts in a copy of the sources and has a temporary home folder. A
block that begins with a comment naming a file is written to that file, in the current folder of the shell. A ```text
block must match the end of the output before it. A free port replaces that of the guide.

Where a guide shows two ways to install, one is followed: from the packages in build/packages, or into a folder. The
first line of a block says which way it belongs to."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "python"))
from ports import free_port  # noqa: E402

guide, way = pathlib.Path(sys.argv[1]), sys.argv[2]
left_out = {"packages": ("# builds the packages\n", "# into a folder\n"),
            "folder": ("# builds the packages\n", "# as root\n")}[way]
port_of_the_guide = "5555"


def step(language, body):
    """Returns the shell commands for a block."""
    file = re.match(r"(?://|#) ([A-Za-z_]+\.[a-z]+)\n", body)
    if file:
        return f"cat >{file[1]} <<'END OF FILE'\n{body}END OF FILE\n"
    if language == "sh":
        return f"{{\n{body}}} >\"$HOME/output\"\n"
    if language == "text":
        return f"diff - <(tail --lines={body.count(chr(10))} \"$HOME/output\") <<'END OF TEXT'\n{body}END OF TEXT\n"
    sys.exit(f"{guide}: unknown kind of block: {language!r}")


blocks = re.findall(r"^```(\w+)\n(.*?)^```$", guide.read_text(), re.MULTILINE | re.DOTALL)
steps = (step(language, body) for language, body in blocks if not body.startswith(left_out))
script = "set -euo pipefail\n" + "".join(steps)
script = script.replace(port_of_the_guide, str(free_port()))

if len(sys.argv) == 3:
    print(script)
    sys.exit()
sources = pathlib.Path(sys.argv[3])

with tempfile.TemporaryDirectory() as home:
    clone = pathlib.Path(home, "clone")
    shutil.copytree(sources, clone, ignore=shutil.ignore_patterns("build*", ".git", ".cache"))
    environment = {"HOME": home, "PATH": os.environ["PATH"], "LANG": "C.UTF-8"}
    shell = subprocess.Popen(["bash", "-c", script], cwd=clone, env=environment, start_new_session=True)
    try:
        status = shell.wait()
    finally:
        try:
            os.killpg(shell.pid, signal.SIGKILL)  # a server may still wait for a request
        except ProcessLookupError:
            pass
sys.exit(status)
