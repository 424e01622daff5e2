#!/usr/bin/env python3
"""The tests notice small mistakes that this script makes in the library, one at a time.

They notice a mistake by failing, crashing or hanging. Mistakes that do not change the library's behaviour are listed
with the reason in tests/robustness/mutation/equivalent.txt, and are not tried.

usage: scripts/prove mutate [--file PART-OF-NAME]... [--jobs N] [--write]

Only tests that execute the changed line are run, tests that execute little else first. Results are stored in
build/mutation, so that an interrupted run resumes there. Unnoticed mistakes are tried again when the tests have changed.
Remove the folder to try everything again. --file tries only the mistakes of some files, in the order given. --write puts
the figures into docs/proof.md. Fails if a mistake is not noticed.

The sources may be edited during a run, but build/coverage must not be rebuilt."""

import argparse
import collections
import concurrent.futures
import datetime
import hashlib
import json
import os
import pathlib
import re
import select
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
quick = dict(os.environ, RK_TEST_ROUNDS="20", LLVM_PROFILE_FILE=os.devnull)
most_specific = 20  # tests that are tried before all others
long = 1.0  # seconds; tests that take longer are tried after all others
at_once = 4  # most tests wait for something most of the time
patience = 15  # seconds that a test may take beyond four times what it takes without a mistake
instrumentation = re.compile(r"-fprofile-\S+|-fcoverage-\S+|-W\w\S*|-MD|-M[TF] \S+|^ccache ")


def run(command, **options):
    return subprocess.run(command, check=True, cwd=build, text=True, stdout=subprocess.PIPE, **options).stdout


def files_in(folder, pattern="*"):
    return [file for file in sorted((root / folder).rglob(pattern)) if file.is_file() and "mutation" not in file.parts]


def digest_of(files):
    digest = hashlib.sha256()
    for file in files:
        digest.update(pathlib.Path(file).read_bytes())
    return digest.hexdigest()[:16]


def lines_naming(mutant):
    """The lines that contain the name that its line declares."""
    declared = re.search(r"(\w+)(?: =|[{;[])", mutant.before)
    name = re.compile(rf"\b{declared.group(1)}\b") if declared else re.compile(r"(?!)")
    return {number for number, line in enumerate(mutant.text.split("\n"), 1) if name.search(line)}


class Tests:
    """The tests, with the lines of the library that each executes, and the seconds that it takes."""

    def __init__(self):
        listed = json.loads(run(["ctest", "--show-only=json-v1"]))["tests"]
        commands = [test["command"] for test in listed if "--gtest_filter=" in " ".join(test.get("command", []))]
        self.sources = digest_of(files_in("rk"))
        self.noticed = collections.defaultdict(collections.Counter)  # by file, how many mistakes each test has noticed
        self.executables = {program: digest_of([program]) for program in {command[0] for command in commands}}
        shutil.rmtree(work / "profiles", ignore_errors=True)  # of a run that was ended
        with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
            self.tests = list(pool.map(self.known, range(len(commands)), commands))

    def known(self, number, command):
        """What the test executes, learnt again when the library or its program have changed."""
        key = hashlib.sha256(repr((self.sources, self.executables[command[0]], command)).encode())
        kept = work / "tests" / key.hexdigest()[:16]
        if not kept.exists():
            learnt = json.dumps(self.learn_one(number, command))
            kept.parent.mkdir(exist_ok=True)
            kept.write_text(learnt)
        return json.loads(kept.read_text())

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
            report = run(["llvm-cov-19", "export", "-format=lcov", "-instr-profile", str(folder / "merged"), library,
                          "-sources", str(root / "rk")], stderr=subprocess.DEVNULL)
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
        """The tests that execute one of its lines, first those that have noticed most in the file, then the most specific.
        For a value that is no code, the tests that execute a line with its name. If there are none, all tests."""
        lines = set(range(mutant.line - 1, mutant.last + 1))
        found = self.executing_one_of(mutant.file, lines) or self.executing_one_of(mutant.file, lines_naming(mutant))
        found = found or [test for test in self.tests if test["lines"]]
        noticed = self.noticed[mutant.file]
        return sorted(found, key=lambda test: (-noticed[test["name"]], sum(map(len, test["lines"].values())), test["seconds"]))

    def executing_one_of(self, file, lines):
        return [test for test in self.tests if not lines.isdisjoint(test["lines"].get(file, ()))]


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
        headers = files_in("rk", "*.h")
        self.headers = self.compile_headers(headers)
        self.folders = {source: work / "objects" / digest_of([root / source, *headers]) for source in self.commands}
        self.objects = {source: str(folder / f"{source}.o") for source, folder in self.folders.items()}
        with concurrent.futures.ThreadPoolExecutor(at_once) as pool:
            list(pool.map(lambda source: self.compile_unchanged(source, headers), self.commands))

    def compile_unchanged(self, source, headers):
        if not pathlib.Path(self.objects[source]).exists():
            self.copy([root / source, *headers], self.folders[source])
            if not self.compile(source, self.objects[source]):
                sys.exit(f"mutate: {source} does not compile")

    def compile_headers(self, own):
        """Compiles the headers of others that the library includes, once for all sources."""
        text = "".join(file.read_text() for file in [*own, *(root / source for source in self.commands)])
        included = "\n".join(sorted(set(re.findall(r"^#include <(?!rk/).*>$", text, re.MULTILINE))))
        file = work / "headers" / hashlib.sha256(included.encode()).hexdigest()[:16]
        compiled = file.with_suffix(".pch")
        if not compiled.exists():
            file.parent.mkdir(exist_ok=True)
            file.write_text(included)
            # Instantiating templates there takes more than half of the time off each compilation.
            run([*next(iter(self.commands.values())), "-w", "-fpch-instantiate-templates", "-x", "c++-header", str(file),
                 "-o", str(compiled)])
        return str(compiled)

    @staticmethod
    def copy(files, folder):
        """Copies files of rk/ so that they can be edited meanwhile."""
        for file in files:
            copied = folder / file.relative_to(root)
            copied.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, copied)

    def compile(self, source, target, changed=None):
        """Compiles the source, with the files in the folder `changed` in place of its own."""
        folders = [changed, self.folders[source]] if changed else [self.folders[source]]
        text = next(folder / source for folder in folders if (folder / source).exists())
        compiler, *options = self.commands[source]
        command = [compiler, *(f"-I{folder}" for folder in folders), *options, "-w", "-include-pch", self.headers,
                   "-include", "typeinfo", "-c", str(text), "-o", target]
        return subprocess.run(command, cwd=build, stderr=subprocess.DEVNULL, start_new_session=True).returncode == 0

    def make(self, mutant, folder):
        """Makes the library with the mistake in the folder. False if it does not compile or link."""
        objects = dict(self.objects)
        changed = folder / "changed" / mutant.file
        changed.parent.mkdir(parents=True, exist_ok=True)
        changed.write_text(mutant.text)
        for source in self.objects:
            if source == mutant.file or mutant.file.endswith(".h") and mutant.file in self.including(source):
                objects[source] = str(folder / (source.replace("/", "-") + ".o"))
                if not self.compile(source, objects[source], folder / "changed"):
                    return False
        linked = subprocess.run([*self.link, *objects.values(), "-o", str(folder / library)], cwd=build,
                                stderr=subprocess.DEVNULL, start_new_session=True)
        return linked.returncode == 0

    def including(self, source, file=None):
        """The headers of ours that the file of the source includes, directly or not."""
        text = (self.folders[source] / (file or source)).read_text()
        included = re.findall(r"^#include <(rk/.*)>$", text, re.MULTILINE)
        direct = [header for header in included if (self.folders[source] / header).exists()]  # others are generated
        return set(direct).union(*(self.including(source, header) for header in direct))


def notice(tests, folder):
    """How the tests notice the library in the folder: what failed, or None."""
    short = [test for test in tests if test["seconds"] <= long]
    for batch in (short[:most_specific], short[most_specific:], [test for test in tests if test["seconds"] > long]):
        by_executable = collections.defaultdict(dict)
        for test in batch:
            by_executable[test["executable"]][test["name"]] = test["seconds"]
        for executable, chosen in by_executable.items():
            verdict = verdict_of(executable, chosen, folder)
            if verdict:
                return verdict
    # An earlier test in the same process may have changed the settings that this one needs.
    alone = (verdict_of(test["executable"], {test["name"]: test["seconds"]}, folder) for test in short[:most_specific])
    return next(filter(None, alone), None)


def verdict_of(executable, seconds, folder):
    """What fails of the executable's tests, whose names come with the seconds that they take."""
    command = [executable, "--gtest_filter=" + ":".join(seconds), "--gtest_fail_fast"]
    process = subprocess.Popen(command, cwd=folder, env=dict(quick, LD_LIBRARY_PATH=str(folder)),
                               start_new_session=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        failed = follow(process, seconds)
    except TimeoutError:
        return "hangs"
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)  # it, if it hangs, and the processes that it has started
        except ProcessLookupError:
            pass
        process.wait()
        process.stdout.close()
    return failed or (f"ends with {process.returncode}" if process.returncode != 0 else None)


def follow(process, seconds):
    """Reads the output until the process ends or a test fails. Returns which. Raises TimeoutError if a test hangs."""
    ended = os.pidfd_open(process.pid)
    rest = b""
    end = time.monotonic() + patience
    try:
        while True:
            ready, _, _ = select.select([process.stdout, ended], [], [], max(end - time.monotonic(), 0))
            if not ready:
                raise TimeoutError
            output = os.read(process.stdout.fileno(), 1 << 16) if process.stdout in ready else b""
            if not output and ended in ready:
                process.wait()
                return None
            *lines, rest = (rest + output).split(b"\n")
            for line in lines:
                found = re.match(rb"\[ +(RUN|FAILED|OK) +\] ([^\s,]+)", line)
                if found:
                    test = found.group(2).decode()
                    if found.group(1) == b"FAILED":
                        return test
                    end = time.monotonic() + patience + 4 * seconds.get(test, 0)
    finally:
        os.close(ended)


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


class Verdicts:
    """What came of the mistakes, kept in files."""

    def __init__(self):
        self.folder = work / "results"
        self.folder.mkdir(parents=True, exist_ok=True)
        self.unnoticed = f"unnoticed by {digest_of(files_in('tests'))}"

    def of(self, mutant):
        """The verdict, if there is one."""
        file = self.folder / mutant.id
        verdict = file.read_text() if file.exists() else None
        if verdict == self.unnoticed:
            return "unnoticed"
        return verdict if verdict and not verdict.startswith("unnoticed") else None

    def add(self, mutant, verdict):
        (self.folder / mutant.id).write_text(self.unnoticed if verdict == "unnoticed" else verdict)
        if verdict == "unnoticed":
            print(f"unnoticed: {mutant.file}:{mutant.line}: {mutant.before} => {mutant.after}", flush=True)


class Run:
    def __init__(self, verdicts, mutants):
        self.verdicts = verdicts
        self.tests = Tests()
        for mutant in mutants:
            self.tests.noticed[mutant.file][verdicts.of(mutant)] += 1
        self.library = Library()

    def attempt(self, mutant):
        folder = work / f"mutants/{os.getpid()}-{threading.get_ident()}"
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        if self.library.make(mutant, folder):
            verdict = notice(self.tests.executing(mutant), folder) or "unnoticed"
        else:
            verdict = "does not compile"
        self.tests.noticed[mutant.file][verdict] += 1
        self.verdicts.add(mutant, verdict)


def kind_of(verdict):
    if verdict is None:
        return "untried"
    if verdict.startswith("ends with"):
        return "ends"
    return {"unnoticed": "unnoticed", "does not compile": "invalid", "hangs": "hangs"}.get(verdict, "fails")


def report(verdicts, mutants, equivalents):
    """The figures as a table, and the names of the mistakes that go unnoticed."""
    counts = collections.defaultdict(collections.Counter)
    unnoticed = []
    for mutant in mutants:
        kind = "equivalent" if mutant.name in equivalents else kind_of(verdicts.of(mutant))
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
    executables = re.findall(r"^(\w+_tests): phony$", run(["ninja", "-t", "targets", "all"]), re.MULTILINE)
    subprocess.run(["cmake", "--build", "--preset", "coverage", "--target", *executables], cwd=root, check=True,
                   stdout=subprocess.DEVNULL)


def main():
    arguments = argparse.ArgumentParser(usage=__doc__)
    arguments.add_argument("--file", action="append")
    arguments.add_argument("--jobs", type=int, default=at_once)
    arguments.add_argument("--write", action="store_true")
    chosen = arguments.parse_args()
    prepare()
    verdicts = Verdicts()
    mutants = all_mutants()
    equivalents = read_equivalents()
    waiting = dict.fromkeys(mutant for file in chosen.file or [""] for mutant in mutants
                            if file in mutant.file and mutant.name not in equivalents and verdicts.of(mutant) is None)
    if waiting:
        run = Run(verdicts, mutants)
        with concurrent.futures.ThreadPoolExecutor(chosen.jobs) as pool:
            list(pool.map(run.attempt, waiting))
    table, unnoticed = report(verdicts, mutants, equivalents)
    for name in sorted(equivalents.keys() - {mutant.name for mutant in mutants}):
        print(f"equivalent, but no mistake of ours: {name}")
    for mutant in unnoticed:
        print(f"unnoticed: {mutant.name}")
    if chosen.write:
        write_figures(table)
    sys.exit(bool(unnoticed))


if __name__ == "__main__":
    main()
