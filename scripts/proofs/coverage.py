#!/usr/bin/env python3
"""The tests execute every line of rk/, take every branch, and show that each condition decides independently (MC/DC).

Builds everything with clang 19. Nothing can be excluded."""

import json
import os
import pathlib
import shutil
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parents[2]
build = root / "build/coverage"
profiles = build / "profiles"
# Thirty repairs cover the same code as a thousand.
rounds = "30"


def run(*command, **options):
    return subprocess.run(command, cwd=root, check=True, text=True, **options)


def run_tests():
    shutil.rmtree(profiles, ignore_errors=True)
    # All processes and their children share a few files. Each process locks a file while it writes.
    environment = dict(os.environ, LLVM_PROFILE_FILE=str(profiles / "%8m.profraw"), RK_TEST_ROUNDS=rounds)
    run("cmake", "--workflow", "--preset", "coverage", env=environment)


def read_counts():
    merged = build / "tests.profdata"
    run("llvm-profdata-19", "merge", *map(str, profiles.glob("*.profraw")), "-o", str(merged))
    exported = run("llvm-cov-19", "export", "-instr-profile", str(merged), str(build / "librk-socket.so"),
                   "-object", str(build / "tests/socket_tests"), "-sources", "rk", stdout=subprocess.PIPE).stdout
    return json.loads(exported)["data"][0]


def lines_not_executed(file):
    """Returns the lines that llvm-cov shows with a count of 0. A segment is [line, column, count, has count, entry, gap]."""
    lines = set()
    for segment, following in zip(file["segments"], file["segments"][1:]):
        line, _, count, has_count, _, is_gap = segment
        if has_count and count == 0 and not is_gap:
            lines.update(range(line, following[0] + 1))
    return sorted(lines)


def gaps(file):
    """Describes the missing coverage of a file, by line."""
    found = [(line, "not executed") for line in lines_not_executed(file)]
    for line, _, _, _, taken, not_taken, *_ in file["branches"]:
        if taken == 0:
            found.append((line, "never true"))
        if not_taken == 0:
            found.append((line, "never false"))
    for record in file["mcdc_records"]:
        for number, shown in enumerate(record[-1], 1):
            if not shown:
                found.append((record[0], f"condition {number} of the decision never decides"))
    return sorted(set(found))


kinds = {"lines": "lines", "branches": "branches", "mcdc": "conditions"}


def report(counts):
    """Prints the figures and the missing coverage. Returns whether none is missing."""
    rows = [(str(pathlib.Path(file["filename"]).relative_to(root)), file["summary"]) for file in counts["files"]]
    rows.append(("all", counts["totals"]))
    print(f"\n{'':45}" + "".join(f"{name:>14}" for name in kinds.values()))
    for name, summary in rows:
        print(f"{name:45}" + "".join(f"{summary[kind]['covered']:>7} /{summary[kind]['count']:>5}" for kind in kinds))
    for file in counts["files"]:
        for line, gap in gaps(file):
            print(f"{pathlib.Path(file['filename']).relative_to(root)}:{line}: {gap}")
    return all(counts["totals"][kind]["covered"] == counts["totals"][kind]["count"] > 0 for kind in kinds)


def main():
    run("scripts/setup", "build", "test", "clang")
    run_tests()
    if not report(read_counts()):
        sys.exit("coverage: the tests leave out some of the library")


if __name__ == "__main__":
    try:
        main()
    except subprocess.CalledProcessError as failure:
        sys.exit(f"coverage: {failure.cmd[0]} failed")
