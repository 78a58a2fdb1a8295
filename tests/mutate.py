#!/usr/bin/env python3
"""Changes the library in one place at a time and looks whether the tests notice.

usage: tests/mutate.py [--count N] [--seed N] [--quick] [--survivors] FOLDER

Works in a copy of the sources in FOLDER, which also keeps the results, a line of JSON for each mutant: a run that was
stopped goes on where it was. --quick leaves out the sweeps, --survivors tries those again that nothing noticed. The
mutants are spread evenly over the files that write recordings, take snapshots, join and repair them.
"""
import argparse
import collections
import itertools
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[1]
FILES = ["engine/*.cpp", "box/vemo_atom.cpp", "box/sample_tables*.cpp", "box/mdat_atom.cpp", "box/trak_atom.cpp",
         "track/*.cpp", "stream/*.cpp"]

# What stands in the code, and what it becomes.
CHANGES = [(re.compile(pattern), changed) for pattern, changed in [
    (r" < ", " <= "), (r" <= ", " < "), (r" > ", " >= "), (r" >= ", " > "), (r" == ", " != "), (r" != ", " == "),
    (r" && ", " || "), (r" \|\| ", " && "), (r" \+ ", " - "), (r" - ", " + "), (r" \* ", " / "), (r" / ", " * "),
    (r" % ", " / "), (r" \+= ", " -= "), (r" -= ", " += "), (r"\+\+", "--"), (r"(?<=\()!(?=\w)", ""),
    (r"\btrue\b", "false"), (r"\bfalse\b", "true"), (r"\bstd::min\b", "std::max"), (r"\bstd::max\b", "std::min"),
    (r"(?<![\w.'-])(\d+)(?=u?\b)(?!')", lambda found: str(int(found.group(1)) + 1)),
]]
# A call or an assignment that may as well not be there; what declares something may not.
STATEMENT = re.compile(r"^\s+(?!return|break|case|default|using|static_assert|ZR_|else|for|while|do\b)"
                       r"(?:if \(.*\) )?[*\w.>:\-\[\]()]+(?:\(.*\)| [-+|]?= .*|\+\+);\s*(?://.*)?$")
LOGGING = re.compile(r"(ZR_NOTE|ZR_FAIL|ZR_IO_FAIL|LogNullArgument|LogTrackArgument|printf)\(.*")


def mutants_of(path):
    """(line number, new line) for everything that can be changed."""
    found = []
    lines = (ROOT / path).read_text(encoding="utf-8").split("\n")
    for number, line in enumerate(lines):
        code = re.sub(r"//.*", "", LOGGING.sub("", line))  # what is said about it does not count
        code = re.sub(r'"(\\.|[^"])*"', lambda text: "\0" * len(text.group()), code)
        if line.startswith("#") or "template" in code or "operation" in code or "__LINE__" in code:
            continue
        for pattern, changed in CHANGES:
            for match in pattern.finditer(code):
                text = changed if isinstance(changed, str) else changed(match)
                found.append((number, line[:match.start()] + text + line[match.end():]))
        begins = re.search(r"(^|[;{}:]|//.*)$", lines[number - 1])
        if STATEMENT.match(line) and begins and not LOGGING.search(line):
            kept = re.match(r"\s+(if \(.*\) )?(?=\S)", line).group()
            found.append((number, kept.rstrip() + " ;  // dropped"))
    return found


def choose(count, seed):
    """A mutant of each file in turn, of each line one at most, until there are enough."""
    pools = []
    for path in sorted(str(path.relative_to(ROOT)) for pattern in FILES for path in ROOT.glob(pattern)):
        mutants = mutants_of(path)
        random.Random(f"{seed} {path}").shuffle(mutants)
        by_line = {}
        for number, line in reversed(mutants):
            by_line.setdefault(number, (path, number, line))
        pools.append(by_line.values())
    turns = itertools.chain.from_iterable(itertools.zip_longest(*pools))
    return list(itertools.islice(filter(None, turns), count))


class Workshop:
    def __init__(self, folder, quick):
        self.folder, self.tree, self.build = folder, folder / "tree", folder / "build"
        # Copies have times of their own, as a run that was stopped leaves one of them compiled with its change.
        shutil.rmtree(self.tree, ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns(".git", "build*"), copy_function=shutil.copy)
        self.call(f"cmake -S {self.tree} -B {self.build} -G Ninja -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O1"
                  " -DZRMP4_BUILD_TOOLS=OFF")
        self.tests = f"{self.build}/tests/zrmp4_tests --gtest_fail_fast"
        if not quick:
            self.tests += f" && {self.build}/tests/zrmp4_sweeps"
        if not self.compiles():
            sys.exit("the library does not build as it is")
        begun = time.monotonic()
        if not self.call(self.tests):
            sys.exit("the tests fail as it is")
        self.limit = int(10 + 4 * (time.monotonic() - begun))

    def compiles(self):
        return self.call(f"cmake --build {self.build} -j 1 --target zrmp4_tests zrmp4_sweeps")

    def call(self, command, seconds=1000):
        """Whether it ends well, within so many seconds of processor time whatever else the machine does."""
        limits = ["prlimit", f"--cpu={seconds}", f"--as={8 << 30}", "--core=0", "timeout", str(60 + 20 * seconds)]
        with tempfile.TemporaryDirectory(dir=self.folder) as scratch:
            done = subprocess.run([*limits, "sh", "-c", command], cwd=scratch, env={**os.environ, "TMPDIR": scratch},
                                  stdin=subprocess.DEVNULL, capture_output=True)
        return done.returncode == 0

    def judge(self, path, number, line):
        target = self.tree / path
        original = target.read_text(encoding="utf-8")
        lines = original.split("\n")
        lines[number] = line
        target.write_text("\n".join(lines), encoding="utf-8")
        try:
            if not self.compiles():
                return "not compiled"
            return "survived" if self.call(self.tests, self.limit) else "killed"
        finally:
            target.write_text(original, encoding="utf-8")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=lambda name: pathlib.Path(name).absolute())
    parser.add_argument("--count", type=int, default=160)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--survivors", action="store_true")
    options = parser.parse_args()
    options.folder.mkdir(parents=True, exist_ok=True)
    workshop = None
    with open(options.folder / "results.jsonl", "a+", encoding="utf-8") as file:
        file.seek(0)
        results = {one["mutant"]: one["result"] for one in map(json.loads, file)}
        for path, number, line in choose(options.count, options.seed):
            mutant = f"{path}:{number + 1}: {line.strip()}"
            if mutant not in results or results[mutant] == "survived" and options.survivors:
                workshop = workshop or Workshop(options.folder, options.quick)
                results[mutant] = workshop.judge(path, number, line)
                print(json.dumps({"mutant": mutant, "result": results[mutant]}), file=file, flush=True)
                print(results[mutant], mutant, flush=True)
    counts = collections.Counter(results.values())
    print(f"{len(results)} mutants, {counts['not compiled']} not compiled,"
          f" {counts['killed']} of {counts['killed'] + counts['survived']} killed")
    print(*("survived " + mutant for mutant, result in results.items() if result == "survived"), sep="\n")


if __name__ == "__main__":
    main()
