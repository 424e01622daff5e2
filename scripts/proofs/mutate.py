#!/usr/bin/env python3
"""The tests notice small mistakes that this script makes in the library, one at a time.

They notice a mistake by failing, crashing or hanging. Mistakes that do not change the library's behaviour are listed
with the reason in tests/robustness/mutation/equivalent.txt, and are not tried.

usage: scripts/prove mutate [--part N/M] [--seconds S] [--file PART-OF-NAME] [--write]

Only tests that execute the changed line are run, tests that execute little else first. Results are stored in
build/mutation, so that an interrupted run resumes there. Unnoticed mistakes are tried again when the tests have changed.
Remove the folder to try everything again. --part and --seconds try only some of the mistakes. --write puts the figures
into docs/proof.md. Fails if a mistake is not noticed."""

import argparse
import collections
import concurrent.futures
import datetime
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

root = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(root / "tests/robustness/mutation"))
from mutants import Source  # noqa: E402

build = root / "build/coverage"  # its tests say which lines they execute
work = root / "build/mutation"
library = "librk-socket.so.1"
executables = ["address_book_tests", "allocation_tests", "docs_tests", "exit_tests", "log_tests", "network_tests",
               "repair_tests", "socket_tests"]
quick = dict(os.environ, RK_TEST_ROUNDS="20")
most_specific = 20  # tests that are tried before all others
long = 1.0  # seconds; tests that take longer are tried after all others
at_once = 4  # most tests wait for something most of the time
instrumentation = re.compile(r"-fprofile-\S+|-fcoverage-\S+|-W\w\S*|-MD|-M[TF] \S+|^ccache ")


def run(command, **options):
    return subprocess.run(command, check=True, cwd=build, text=True, stdout=subprocess.PIPE, **options).stdout


def digest_of(*folders):
    digest = hashlib.sha256()
    for folder in folders:
        for file in sorted((root / folder).rglob("*")):
            if file.is_file() and "mutation" not in file.parts:
                digest.update(file.read_bytes())
    return digest.hexdigest()[:16]


# What the tests execute

class Tests:
    """The tests, with the lines of the library that each executes, and the seconds that it takes."""

    def __init__(self):
        kept = work / "tests.json"
        known = json.loads(kept.read_text()) if kept.exists() else {}
        state = digest_of("rk", "tests")
        if known.get("state") != state:
            known = {"state": state, "tests": self.learn()}
            kept.write_text(json.dumps(known))
        self.tests = known["tests"]

    @staticmethod
    def learn():
        listed = json.loads(run(["ctest", "--show-only=json-v1"]))["tests"]
        commands = [test["command"] for test in listed
                    if "command" in test and pathlib.Path(test["command"][0]).name in executables]
        shutil.rmtree(work / "profiles", ignore_errors=True)  # of a run that was ended
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            learnt = list(pool.map(Tests.learn_one, range(len(commands)), commands))
        shutil.rmtree(work / "profiles", ignore_errors=True)
        return learnt

    @staticmethod
    def learn_one(number, command):
        folder = work / "profiles" / str(number)
        folder.mkdir(parents=True)
        start = time.monotonic()
        ended = subprocess.run(command, cwd=build, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               env=dict(quick, LLVM_PROFILE_FILE=str(folder / "%p.profraw")))
        seconds = time.monotonic() - start
        if ended.returncode != 0:
            sys.exit(f"mutate: fails without any mistake: {shlex.join(command)}")
        profiles = [str(file) for file in folder.glob("*.profraw")]
        lines = collections.defaultdict(list)
        if profiles:
            run(["llvm-profdata-19", "merge", *profiles, "-o", str(folder / "merged")])
            report = run(["llvm-cov-19", "export", "-format=lcov", "-instr-profile", str(folder / "merged"), library])
            for line in report.splitlines():
                if line.startswith("SF:"):
                    file = os.path.relpath(line[3:], root)
                elif line.startswith("DA:"):
                    place, count = line[3:].split(",")[:2]
                    if count != "0":
                        lines[file].append(int(place))
        shutil.rmtree(folder)
        name = next(part for part in command if part.startswith("--gtest_filter=")).split("=", 1)[1]
        return {"executable": command[0], "name": name, "seconds": seconds, "lines": lines}

    def executing(self, mutant):
        """The tests that execute one of its lines, the most specific first; all of them, for a value that is no code."""
        def executes(test):
            lines = test["lines"].get(mutant.file, ())
            return any(mutant.line - 1 <= line <= mutant.last for line in lines)
        found = [test for test in self.tests if executes(test)] or [test for test in self.tests if test["lines"]]
        return sorted(found, key=lambda test: (sum(map(len, test["lines"].values())), test["seconds"]))


# Libraries with a mistake

class Library:
    """How the library is compiled and linked, without optimisation, with the headers of others compiled once."""

    def __init__(self):
        self.commands = {}
        for line in run(["ninja", "-t", "commands", library]).splitlines():
            if " -c " in line:
                source = os.path.relpath(line.split(" -c ")[1], root)
                self.commands[source] = shlex.split(instrumentation.sub("", line).split(" -o ")[0])
            elif " -shared " in line:
                link = instrumentation.sub("", line.removeprefix(": && ").removesuffix(" && :"))
                self.link = [word for word in shlex.split(link) if not word.endswith(".o")]
        self.link[self.link.index("-o"):self.link.index("-o") + 2] = []
        folder = work / "objects" / digest_of("rk")
        self.objects = {source: str(folder / f"{source}.o") for source in self.commands}
        self.headers = {source: str(folder / f"{source}.pch") for source in self.commands}
        for source, command in self.commands.items():
            if not pathlib.Path(self.objects[source]).exists():
                self.compile_anew(source, command, folder / f"{source}.h")

    def compile_anew(self, source, command, others):
        others.parent.mkdir(parents=True, exist_ok=True)
        text = (root / source).read_text() + "".join(file.read_text() for file in (root / "rk").rglob("*.h"))
        others.write_text("\n".join(sorted(set(re.findall(r"^#include <(?!rk/).*>$", text, re.MULTILINE)))))
        run([*command, "-x", "c++-header", str(others), "-o", self.headers[source]])
        if not self.compile(source, str(root / source), self.objects[source]):
            sys.exit(f"mutate: {source} does not compile")

    def compile(self, source, text, target, include=()):
        command = [*self.commands[source][:1], *include, *self.commands[source][1:],
                   "-w", "-include-pch", self.headers[source], "-include", "typeinfo", "-c", text, "-o", target]
        return subprocess.run(command, cwd=build, stderr=subprocess.DEVNULL).returncode == 0

    def make(self, mutant, folder):
        """Makes the library with the mistake in the folder. False if it does not compile or link."""
        objects = dict(self.objects)
        changed = folder / "include" / mutant.file
        changed.parent.mkdir(parents=True, exist_ok=True)
        changed.write_text(mutant.text)
        is_header = mutant.file.endswith(".h")
        for source in self.objects:
            if source == mutant.file or is_header and mutant.file in self.including(source):
                text = str(changed) if source == mutant.file else str(root / source)
                objects[source] = str(folder / (source.replace("/", "-") + ".o"))
                if not self.compile(source, text, objects[source], [f"-I{folder / 'include'}"]):
                    return False
        linked = subprocess.run([*self.link, *objects.values(), "-o", str(folder / library)], cwd=build,
                                stderr=subprocess.DEVNULL)
        return linked.returncode == 0

    @staticmethod
    def including(source):
        return re.findall(r"^#include <(rk/.*)>$", (root / source).read_text(), re.MULTILINE)


def notice(tests, folder):
    """How the tests notice the library in the folder: what failed, or None."""
    short = [test for test in tests if test["seconds"] <= long]
    for batch in (short[:most_specific], short[most_specific:], [test for test in tests if test["seconds"] > long]):
        by_executable = collections.defaultdict(list)
        for test in batch:
            by_executable[test["executable"]].append(test)
        for executable, chosen in by_executable.items():
            patience = 10 + 3 * sum(test["seconds"] for test in chosen)
            command = [executable, "--gtest_filter=" + ":".join(test["name"] for test in chosen), "--gtest_fail_fast",
                       "--gtest_brief=1"]
            verdict = verdict_of(command, folder, patience)
            if verdict:
                return verdict
    return None


def verdict_of(command, folder, patience):
    environment = dict(quick, LD_LIBRARY_PATH=str(folder))
    process = subprocess.Popen(command, cwd=folder, env=environment, text=True, errors="replace", start_new_session=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        output, _ = process.communicate(timeout=patience)
    except subprocess.TimeoutExpired:
        return "hangs"
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)  # it, if it hangs, and the processes that it has started
        except ProcessLookupError:
            pass
        process.wait()
    if process.returncode == 0:
        return None
    failed = re.search(r"^\[  FAILED  \] ([^\s,]+)", output, re.MULTILINE)
    return failed.group(1) if failed else f"ends with {process.returncode}"


# The mistakes

def all_mutants():
    files = sorted(file for kind in ("*.cpp", "*.h") for file in (root / "rk").rglob(kind))
    return [mutant for file in files for mutant in Source(str(file.relative_to(root)), file.read_text()).mutants()]


def read_equivalents():
    """The mistakes that change nothing, by name, with the reason: the comment in front of them."""
    reasons, reason = {}, ""
    for line in (root / "tests/robustness/mutation/equivalent.txt").read_text().splitlines():
        if line.startswith("# "):
            reason = line[2:]
        elif line:
            reasons[line] = reason
    return reasons


class Run:
    def __init__(self):
        self.tests = Tests()
        self.library = Library()
        self.results = work / "results"
        self.results.mkdir(parents=True, exist_ok=True)
        self.unnoticed = f"unnoticed by {digest_of('tests')}"

    def known(self, mutant):
        """The verdict, if there is one."""
        file = self.results / mutant.id
        verdict = file.read_text() if file.exists() else None
        if verdict == self.unnoticed:
            return "unnoticed"
        return verdict if verdict and not verdict.startswith("unnoticed") else None

    def attempt(self, mutant):
        folder = work / f"mutants/{os.getpid()}-{threading.get_ident()}"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        if self.library.make(mutant, folder):
            verdict = notice(self.tests.executing(mutant), folder) or "unnoticed"
        else:
            verdict = "does not compile"
        (self.results / mutant.id).write_text(self.unnoticed if verdict == "unnoticed" else verdict)
        if verdict == "unnoticed":
            print(f"unnoticed: {mutant.file}:{mutant.line}: {mutant.before} => {mutant.after}", flush=True)


def kind_of(verdict):
    if verdict is None:
        return "untried"
    if verdict.startswith("ends with"):
        return "ends"
    return {"unnoticed": "unnoticed", "does not compile": "invalid", "hangs": "hangs"}.get(verdict, "fails")


def report(run, mutants, equivalents):
    """The figures as a table, and the names of the mistakes that go unnoticed."""
    counts = collections.defaultdict(collections.Counter)
    unnoticed = []
    for mutant in mutants:
        kind = "equivalent" if mutant.name in equivalents else kind_of(run.known(mutant))
        if kind == "unnoticed":
            unnoticed.append(mutant)
        counts[mutant.file][kind] += 1
        counts["all"][kind] += 1
    kinds = {"fails": "a test fails", "ends": "a test crashes", "hangs": "a test hangs", "equivalent": "equivalent",
             "unnoticed": "unnoticed"}
    table = ["| file | mistakes | " + " | ".join(kinds.values()) + " |", "|---|" + "---|" * (len(kinds) + 1)]
    for file in [*(file for file in counts if file != "all"), "all"]:
        tried = sum(counts[file][kind] for kind in kinds)
        name = f"`{file}`" if file != "all" else file
        table.append(f"| {name} | {tried} | " + " | ".join(str(counts[file][kind]) for kind in kinds) + " |")
    table += ["", f"{counts['all']['invalid']} more do not compile, {counts['all']['untried']} have not been tried."]
    print("\n".join(table))
    return table, unnoticed


def write_figures(table):
    page = root / "docs/proof.md"
    text = page.read_text()
    figures = f"Last run: {datetime.date.today()}.\n\n" + "\n".join(table) + "\n"
    page.write_text(re.sub(r"(?s)(<!-- scripts/prove mutate --write -->\n).*?(<!-- end -->)", rf"\1\n{figures}\n\2", text))


def prepare():
    subprocess.run([root / "scripts/setup", "build", "test", "clang"], check=True)
    work.mkdir(parents=True, exist_ok=True)
    subprocess.run(["cmake", "--preset", "coverage"], cwd=root, check=True, stdout=subprocess.DEVNULL)
    subprocess.run(["cmake", "--build", "--preset", "coverage", "--target", *executables], cwd=root, check=True,
                   stdout=subprocess.DEVNULL)


def main():
    arguments = argparse.ArgumentParser(usage=__doc__)
    arguments.add_argument("--part", default="1/1")
    arguments.add_argument("--seconds", type=float, default=float("inf"))
    arguments.add_argument("--file", default="")
    arguments.add_argument("--write", action="store_true")
    chosen = arguments.parse_args()
    part, parts = map(int, chosen.part.split("/"))
    end = time.monotonic() + chosen.seconds
    prepare()
    run = Run()
    mutants = all_mutants()
    equivalents = read_equivalents()
    waiting = [mutant for mutant in mutants[part - 1::parts]
               if chosen.file in mutant.file and mutant.name not in equivalents and run.known(mutant) is None]
    with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
        list(pool.map(lambda mutant: run.attempt(mutant) if time.monotonic() < end else None, waiting))
    table, unnoticed = report(run, mutants, equivalents)
    for name in sorted(equivalents.keys() - {mutant.name for mutant in mutants}):
        print(f"equivalent, but no mistake of ours: {name}")
    for mutant in unnoticed:
        print(f"unnoticed: {mutant.name}")
    if chosen.write:
        write_figures(table)
    sys.exit(bool(unnoticed))


if __name__ == "__main__":
    main()
