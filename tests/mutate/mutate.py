#!/usr/bin/env python3
# tests/mutate/mutate.py - asks the tests whether they notice: changes the sources one place at a time and runs them.
#
#   tests/mutate/mutate.py [COUNT] [SEED] [PATH]
#
# Makes COUNT mutants (100) of the sources, or of those whose path begins with PATH. The same SEED (1) and sources make
# the same mutants. A mutant is a copy with one operator, bound, condition, call or returned value changed. It is caught
# when a test fails, ends badly or takes far too long. Survivors are listed at the end; build/mutate/report has a line
# for each mutant.
#
# Everything happens in a copy of the tree, at low priority, one process at a time. The tests run in process and mount
# namespaces of their own, because a mutant may kill whatever it sees.
import collections
import json
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
WORK = ROOT / "build" / "mutate"
COPY, BUILD = WORK / "tree", WORK / "build"
LIMIT = 300  # seconds for a few tests, on a busy machine
CONTAINED = ["unshare", "--pid", "--fork", "--mount", "--mount-proc", "--kill-child"]

SWAPS = {" == ": " != ", " != ": " == ", " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " && ": " || ",
         " || ": " && ", " + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ", " % ": " * ", " << ": " >> ",
         " >> ": " << ", " & ": " | ", " | ": " & ", " += ": " -= ", " -= ": " += ", " |= ": " = ", "++": "--",
         "--": "++", "std::min": "std::max", "std::max": "std::min"}
SWAP = re.compile("|".join(map(re.escape, sorted(SWAPS, key=len, reverse=True))))
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|0|[1-9]\d*)(?![\w.'])")
TRUTH = re.compile(r"\b(true|false)\b")
RETURN = re.compile(r"\breturn ([^;{}]+);")
CALL = re.compile(r"^\s+(?!return\b|delete\b|throw\b|using\b|else\b)[\w:.>\[\]-]+\(.*\);$")
# Places whose change no test can see: the compiler checks them, or they are hints about memory and time.
UNSEEN = re.compile(r"static_assert|^\s*#|\breserve\(|shrink_to_fit|\boperator\b|\btemplate\b|\bnoexcept\b|\bsetvbuf\b|"
                    r"sleep\(")
# Numbers without a meaning of their own: enumerators, initial values that are replaced, sizes of buffers.
ANY_NUMBER = re.compile(r"^\s*(?:[A-Z]\w+ = .*,?|(?!constexpr|static)(?:[\w:]+ )+\w+ = \w+;|virtual\b.*|"
                        r"(?:static )?[\w:<>, ]+ \w+(?:\[\d+\])?(?: = \{\})?;)\s*$")
ZEROES = ("0", "true", "false", "nullptr", "std::nullopt", "RESULT_SUCCESS", "IO_SUCCESS", "COLP_SUCCESS", "SB_DONE",
          "E_OPT_DONE", "DONE")
SKIPPED = re.compile(r"""//[^\n]*|/\*.*?\*/|R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])'""", re.S)


# The text with comments and literals blanked, of the same length and lines.
def masked(text):
    return SKIPPED.sub(lambda m: re.sub(r"[^\n]", "~" if m[0][0] in "R\"'" else " ", m[0]), text)


# Where the condition of an `if` that closes on its line begins and ends.
def condition(line):
    start = line.find("if (") + 4
    depth = 1
    for at in range(start, len(line)):
        depth += {"(": 1, ")": -1}.get(line[at], 0)
        if depth == 0:
            return None if ";" in line[start:at] or "=" in re.sub(r"[=!<>]=", "", line[start:at]) else (start, at)
    return None


# All single changes of a line: (from, to, new text). `code` is the line masked, `before` the one above it.
def changes(line, code, before):
    if UNSEEN.search(code):
        return []
    found = [(m.start(), m.end(), SWAPS[m[0]]) for m in SWAP.finditer(code)]
    found += [(*m.span(), str(int(m[0], 0) + 1)) for m in NUMBER.finditer(code) if not ANY_NUMBER.match(code)]
    found += [(*m.span(), "false" if m[0] == "true" else "true") for m in TRUTH.finditer(code)]
    found += [(*m.span(1), "{}") for m in RETURN.finditer(code) if m[1] not in ZEROES]
    if "if (" in code and "constexpr" not in code and (span := condition(code)):
        found.append((*span, f"!({line[span[0]:span[1]]})"))
    if CALL.match(code) and code.count("(") == code.count(")") and before.rstrip()[-1:] in (";", "{", "}"):
        found.append((len(code) - len(code.lstrip()), len(code), ";"))
    return found


# Endless mutants (file, line number, line, new line) with each layer in proportion to its lines of code.
def mutants(seed):
    layers = collections.defaultdict(list)
    for path in sorted((ROOT / "src").rglob("*")):
        if path.suffix not in (".cpp", ".h"):
            continue
        lines, codes = path.read_text().split("\n"), masked(path.read_text()).split("\n")
        parts = path.relative_to(ROOT / "src").parts[:-1]
        for number, (line, code) in enumerate(zip(lines, codes)):
            if code.strip():
                found = changes(line, code, codes[number - 1] if number else "")
                layers["/".join(parts)].append((path.relative_to(ROOT), number, line, found))
    picks = random.Random(seed)
    queue = []
    for name in sorted(layers):
        sites = [site for site in layers[name] if site[3]]
        picks.shuffle(sites)
        # The nth of a layer comes when that share of the whole is due, so any COUNT is spread evenly.
        queue += [((n + picks.random()) / len(layers[name]), name, site) for n, site in enumerate(sites)]
    queue.sort(key=lambda entry: entry[0])
    for _, name, (path, number, line, found) in queue:
        start, end, new = picks.choice(found)
        yield name, path, number, line, line[:start] + new + line[end:]


# What a mutant may use. The shared memory of a running machine is a sparse file of 8 GiB, mapped whole.
def limits():
    resource.setrlimit(resource.RLIMIT_FSIZE, (16 << 30, 16 << 30))
    resource.setrlimit(resource.RLIMIT_DATA, (8 << 30, 8 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


# Runs a command. Returns what is wrong with its end, or None.
def verdict(command, seconds):
    with open(WORK / "log", "w+", errors="replace") as log:
        process = subprocess.Popen(CONTAINED + command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=COPY,
                                   preexec_fn=limits, start_new_session=True)
        try:
            status = process.wait(seconds)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)  # its own session; the namespace ends with it
            process.wait()
            return "takes too long"
        log.seek(0)
        failed = re.search(r"\[  FAILED  \] ([^\n]*?)(?: \(\d+ ms\))?\n", log.read())
        return None if status == 0 else failed[1] if failed else f"status {status}"


TESTS = [str(BUILD / "ventix_tests"), "--gtest_fail_fast", "--gtest_color=no"]
SWEEP = [str(BUILD / "ventix_sweep"), "--sample", "1"]
# The tests that can notice a change below a folder; elsewhere all but those of the live machine and the column printer.
REACHING = {"src/hosted/live": "Live*:Robustness.*:Cases.live/*:Cases.machine/*", "src/colp": "*-Live*",
            "src/machine": "Cases.machine/*:Pages.*"}


# Runs the tests on a changed source: those nearest to it first, as most changes are caught there in a second.
class judge:

    # Runs all tests on the sources as they are, and learns where each is and how long it takes.
    def __init__(self):
        times = WORK / "times.json"
        if wrong := (verdict([*TESTS, f"--gtest_output=json:{times}"], 3600)
                     or verdict(SWEEP, 3600) or verdict([*SWEEP, "--words"], 3600)):
            sys.exit(f"mutate: the tests fail on the sources as they are: {wrong}")
        self.suites = json.loads(times.read_text())["testsuites"]

    # The filter for a source's nearest tests: the cases of a command, or the tests in its folder.
    def nearest(self, path):
        if path.parts[1] == "commands":
            return f"Cases.{path.stem}/*"
        folder = COPY / "tests" / path.relative_to("src").parent  # files are named relative to where they are compiled
        return ":".join(suite["name"] + ".*" for suite in self.suites
                        if any((BUILD / test["file"]).resolve().is_relative_to(folder) for test in suite["testsuite"]))

    # The first test that notices the change, or None.
    def __call__(self, path):
        nearest = self.nearest(path)
        reaching = next((names for folder, names in REACHING.items() if str(path).startswith(folder)), "*-Live*:Colp*")
        if wrong := nearest and verdict([*TESTS, f"--gtest_filter={nearest}"], LIMIT):
            return wrong
        rest = f"{reaching}{':' if '-' in reaching else '-'}{nearest}"  # what follows the dash is left out
        if wrong := verdict([*TESTS, f"--gtest_filter={rest}"], 4 * LIMIT):
            return wrong
        if "hosted/live" in str(path) or not link("ventix_sweep"):
            return None
        return verdict(SWEEP, LIMIT) or verdict([*SWEEP, "--words"], LIMIT)


def link(target, output=subprocess.DEVNULL):
    return subprocess.run(["ninja", "-j1", "-C", str(BUILD), target], stdout=output,
                          stderr=subprocess.DEVNULL).returncode == 0


def prepare():
    shutil.rmtree(COPY, ignore_errors=True)  # fresh times: an interrupted run may have left the objects of a mutant
    shutil.copytree(ROOT, COPY, ignore=shutil.ignore_patterns(".git", "build"), copy_function=shutil.copy)
    linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
    subprocess.run(["cmake", "-G", "Ninja", "-S", str(COPY), "-B", str(BUILD), "-DCMAKE_BUILD_TYPE=Debug", *linker,
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DVENTIX_TESTS=ON", "-DVENTIX_WERROR=OFF"],
                   check=True, stdout=sys.stderr, env={**os.environ, "CCACHE_DISABLE": "1"})
    if not link("ventix_tests", sys.stderr) or not link("ventix_sweep", sys.stderr):
        sys.exit("mutate: the sources do not build")


def main():
    count, seed = [int(word) for word in sys.argv[1:3]] + [100, 1][len(sys.argv[1:3]):]
    below = sys.argv[3] if len(sys.argv) > 3 else ""
    if subprocess.run([*CONTAINED, "true"]).returncode != 0:
        sys.exit("mutate: needs namespaces of its own (unshare), so that no mutant acts on your processes")
    os.nice(10)
    prepare()
    verdict_on, done, caught, survivors = judge(), collections.Counter(), collections.Counter(), []
    with open(WORK / "report", "w") as report:
        for layer, path, number, line, new in mutants(seed):
            if sum(done.values()) == count:
                break
            if not str(path).startswith(below):
                continue
            text = (COPY / path).read_text()
            split = text.split("\n")
            split[number] = new
            (COPY / path).write_text("\n".join(split))
            wrong = verdict_on(path) if link("ventix_tests") else "does not compile"
            (COPY / path).write_text(text)
            if wrong == "does not compile":
                continue
            done[layer] += 1
            caught[layer] += wrong is not None
            change = f"{path}:{number + 1}: {line.strip()}  ->  {new.strip()}"
            survivors += [change] if wrong is None else []
            fate = f"caught {change}  ({wrong})" if wrong else f"SURVIVED {change}"
            print(sum(done.values()), fate, file=report, flush=True)
    print("\n".join(survivors))
    for layer in sorted(done):
        print(f"{layer:20} {caught[layer]:3} of {done[layer]:3} caught")
    print(f"{sum(caught.values())} of {sum(done.values())} mutants caught, seed {seed}")


if __name__ == "__main__":
    main()
