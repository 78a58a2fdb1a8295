#!/usr/bin/env python3
"""Changes the library in one place at a time and looks whether the tests notice.

usage: tests/mutate.py [--count N] [--seed N] [--quick] [--survivors] FOLDER

Works in a copy of the sources in FOLDER, which also keeps the results, a line of JSON for each mutant: a run that was
stopped goes on where it was. --quick leaves out the sweeps, --survivors tries those again that nothing noticed. The
mutants are spread evenly over the files that write recordings, take snapshots, join and repair them.
"""
import argparse
import collections
import glob
import json
import os
import random
import re
import resource
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
FILES = ["engine/*.cpp", "box/vemo_atom.cpp", "box/sample_tables*.cpp", "box/mdat_atom.cpp", "box/trak_atom.cpp",
         "track/*.cpp", "stream/*.cpp"]
TARGETS = ["zrmp4_tests", "zrmp4_sweeps"]

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


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def write(path, text, mode="w"):
    with open(path, mode, encoding="utf-8") as file:
        file.write(text)


def mutants_of(path):
    """(line number, new line) for everything that can be changed."""
    found = []
    lines = text_of(os.path.join(ROOT, path)).split("\n")
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


def sources():
    return sorted(name for pattern in FILES for name in glob.glob(pattern, root_dir=ROOT))


def choose(count, seed):
    """A mutant of each file in turn, until there are enough."""
    pools = {}
    for path in sources():
        pools[path] = mutants_of(path)
        random.Random(f"{seed} {path}").shuffle(pools[path])
    chosen, used = [], set()
    while len(chosen) < count and any(pools.values()):
        for path, pool in pools.items():
            while pool and len(chosen) < count:
                number, line = pool.pop()
                if (path, number) not in used:
                    used.add((path, number))
                    chosen.append((path, number, line))
                    break
    return chosen


class Workshop:
    def __init__(self, folder, quick):
        self.tree, self.build = os.path.join(folder, "tree"), os.path.join(folder, "build")
        self.scratch = os.path.join(folder, "scratch")
        shutil.rmtree(self.tree, ignore_errors=True)
        shutil.copytree(ROOT, self.tree, ignore=shutil.ignore_patterns(".git", "build*"))
        for path in sources():  # a run that was stopped leaves one of them compiled with its change
            os.utime(os.path.join(self.tree, path))
        self.call(["cmake", "-S", self.tree, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                   "-DCMAKE_CXX_FLAGS=-O1", "-DZRMP4_BUILD_TOOLS=OFF"])
        if not self.compiles():
            sys.exit("the library does not build as it is")
        tests, report = os.path.join(self.build, "tests", "zrmp4_tests"), os.path.join(folder, "times.json")
        self.call([tests, "--gtest_output=json:" + report], 1000)
        slow = [f"{suite['name']}.{test['name']}" for suite in json.loads(text_of(report))["testsuites"]
                for test in suite["testsuite"] if float(test["time"].rstrip("s")) > 0.5]
        self.steps = {"quick tests": [tests, "--gtest_fail_fast", "--gtest_filter=-" + ":".join(slow)]}
        self.steps.update((name, [tests, "--gtest_filter=" + name]) for name in slow)
        if not quick:
            self.steps["sweeps"] = [os.path.join(self.build, "tests", "zrmp4_sweeps")]
        self.limits = {}
        for name, step in self.steps.items():
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            if not self.call(step, 1000):
                sys.exit("fails as it is: " + name)
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            self.limits[name] = int(10 + 4 * sum(after[:2]) - 4 * sum(before[:2]))

    def compiles(self):
        return self.call(["cmake", "--build", self.build, "-j", "1", "--target", *TARGETS])

    def call(self, command, seconds=None):
        """Whether it ends well, within so many seconds of processor time whatever else the machine does."""
        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
            resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        os.makedirs(self.scratch, exist_ok=True)
        try:
            return subprocess.run(command, cwd=self.scratch, env={**os.environ, "TMPDIR": self.scratch},
                                  preexec_fn=limit if seconds else None, timeout=60 + 20 * seconds if seconds else None,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL).returncode == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            shutil.rmtree(self.scratch, ignore_errors=True)

    def judge(self, path, number, line):
        target = os.path.join(self.tree, path)
        original = text_of(target)
        lines = original.split("\n")
        lines[number] = line
        try:
            write(target, "\n".join(lines))
            if not self.compiles():
                return "not compiled", ""
            by = next((name for name, step in self.steps.items() if not self.call(step, self.limits[name])), "")
            return "killed" if by else "survived", by
        finally:
            write(target, original)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder", type=os.path.abspath)
    for name, default in ("--count", 160), ("--seed", 1):
        parser.add_argument(name, type=int, default=default)
    for name in "--quick", "--survivors":
        parser.add_argument(name, action="store_true")
    options = parser.parse_args()
    os.makedirs(options.folder, exist_ok=True)
    results_path = os.path.join(options.folder, "results.jsonl")
    known = map(json.loads, text_of(results_path).splitlines() if os.path.exists(results_path) else ())
    results = {one["mutant"]: one for one in known}
    workshop = None
    for path, number, line in choose(options.count, options.seed):
        mutant = f"{path}:{number + 1}: {line.strip()}"
        if mutant not in results or results[mutant]["result"] == "survived" and options.survivors:
            workshop = workshop or Workshop(options.folder, options.quick)
            started = time.time()
            result, by = workshop.judge(path, number, line)
            results[mutant] = {"mutant": mutant, "result": result, "by": by, "seconds": round(time.time() - started)}
            write(results_path, json.dumps(results[mutant]) + "\n", "a")
            print(f"{result} {mutant}" + (f" ({by})" if by else ""), flush=True)
    counts = collections.Counter(one["result"] for one in results.values())
    print(f"{len(results)} mutants, {counts['not compiled']} not compiled,"
          f" {counts['killed']} of {counts['killed'] + counts['survived']} killed")
    print("\n".join("survived " + mutant for mutant, one in results.items() if one["result"] == "survived"))


if __name__ == "__main__":
    main()
