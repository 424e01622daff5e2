#!/usr/bin/env python3
"""Checks the commands in documents. .ci/run, a script or the tested guide must run each command of README.md. Every
script, check and proof that a document names must exist.

usage: check_commands.py SOURCES"""

import pathlib
import re
import sys

sources = pathlib.Path(sys.argv[1])


def without_listings(document):
    return re.sub(r"^```.*?^```$", "", document.read_text(), flags=re.MULTILINE | re.DOTALL)


def shown_commands():
    readme = without_listings(sources / "README.md")
    shown = re.findall(r"^    (.*?)(?:\s+#.*)?$", readme, re.MULTILINE) + re.findall(r"`(scripts/[^`]*)`", readme)
    return sorted({re.sub(r"^scripts/fresh-machine (--release \w+ )?", "", command) for command in shown})


def run_commands():
    """Returns all commands that are run, as one string. A command with several checks is repeated for each check."""
    scripts = [script for script in sorted((sources / "scripts").rglob("*")) if script.is_file()]
    places = [sources / ".ci/run", *scripts, sources / "docs/guide/first-message.md"]
    run = "\n".join(re.sub(r"^#.*$", "", place.read_text(), flags=re.MULTILINE) for place in places)
    checks = " ".join(re.findall(r"scripts/check ((?: ?[a-z]+)+)", run)).split()
    return run + "\n" + "\n".join(f"scripts/check {check}" for check in checks)


def unknown_scripts():
    for document in [*sources.glob("*.md"), *sources.glob("docs/**/*.md"), *sources.glob("examples/**/*.md")]:
        for name, argument in re.findall(r"(?:^    |`)(?:scripts/)([a-z-]+) ?([a-z0-9]*)", document.read_text(), re.MULTILINE):
            folder = {"check": "checks/", "prove": "proofs/"}.get(name)
            wanted = (folder + argument if argument else name) if folder else name
            if not list((sources / "scripts").glob(wanted)) + list((sources / "scripts").glob(wanted + ".py")):
                yield f"{document.relative_to(sources)}: no script {wanted}"


run = run_commands()
commands = shown_commands()
failures = [f"not run: {command}" for command in commands if not re.search(re.escape(command) + r"(?![\w-])", run)]
failures += unknown_scripts()
print("\n".join(failures) or f"{len(commands)} commands")
sys.exit(bool(failures) or not commands)
