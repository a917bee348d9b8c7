#!/usr/bin/env python3
# tests/mutate/mutate.py - asks the tests whether they notice: changes the sources one place at a time and runs them.
"""Usage: tests/mutate/mutate.py [COUNT] [SEED] [REPORT]

Makes COUNT mutants (100) of the sources, the same ones for the same SEED (1) and sources, each a copy with one operator,
bound, condition, call or returned value changed. A mutant is caught when a test fails, ends badly or takes far too long.
Those that survive are listed at the end. REPORT gets one line a mutant (build/mutate/report). All happens in a copy of
the tree, and the tests run in process and mount namespaces of their own: a mutant may kill whatever it sees.
"""
import collections
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
CONTAINED = ["unshare", "--pid", "--fork", "--mount", "--mount-proc", "--kill-child"]
SHARDS = min(os.cpu_count() or 1, 4)

SWAPS = {" == ": " != ", " != ": " == ", " < ": " <= ", " <= ": " < ", " > ": " >= ", " >= ": " > ", " && ": " || ",
         " || ": " && ", " + ": " - ", " - ": " + ", " * ": " / ", " / ": " * ", " % ": " * ", " << ": " >> ",
         " >> ": " << ", " & ": " | ", " | ": " & ", " += ": " -= ", " -= ": " += ", " |= ": " = ", "++": "--",
         "--": "++", "std::min": "std::max", "std::max": "std::min"}
SWAP = re.compile("|".join(map(re.escape, sorted(SWAPS, key=len, reverse=True))))
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|0|[1-9]\d*)(?![\w.'])")
TRUTH = re.compile(r"\b(true|false)\b")
RETURN = re.compile(r"\breturn ([^;{}]+);")
CALL = re.compile(r"^\s+(?!return\b|delete\b|throw\b|using\b|else\b)[\w:.>\[\]-]+\(.*\);$")
# Places whose change nobody could see: what the compiler checks or what is only a hint for memory.
UNSEEN = re.compile(r"static_assert|^\s*#|\breserve\(|\boperator\b|\btemplate\b|\bnoexcept\b|\bsetvbuf\b")
# Numbers that only have to differ from their neighbours, or are written over: enumerators, initial values.
ANY_NUMBER = re.compile(r"^\s*(?:[A-Z]\w+ = .*,?|(?!constexpr|static)(?:[\w:]+ )+\w+ = \w+;|virtual\b.*)\s*$")
SKIPPED = re.compile(r"""//[^\n]*|/\*.*?\*/|R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])'""", re.S)


def masked(text):
    """The text with comments and literals blanked, of the same length and lines."""
    return SKIPPED.sub(lambda m: re.sub(r"[^\n]", "~" if m[0][0] in "R\"'" else " ", m[0]), text)


def condition(line):
    """Where the condition of an `if` that closes on its line begins and ends."""
    start = line.find("if (") + 4
    depth = 1
    for at in range(start, len(line)):
        depth += {"(": 1, ")": -1}.get(line[at], 0)
        if depth == 0:
            return None if ";" in line[start:at] or "=" in re.sub(r"[=!<>]=", "", line[start:at]) else (start, at)
    return None


def changes(line, code, before):
    """All single changes of a line: (from, to, new text). `code` is the line masked, `before` the one above it."""
    if UNSEEN.search(code):
        return []
    found = [(m.start(), m.end(), SWAPS[m[0]]) for m in SWAP.finditer(code)]
    found += [(*m.span(), str(int(m[0], 0) + 1)) for m in NUMBER.finditer(code) if not ANY_NUMBER.match(code)]
    found += [(*m.span(), "false" if m[0] == "true" else "true") for m in TRUTH.finditer(code)]
    found += [(*m.span(1), "{}") for m in RETURN.finditer(code) if m[1] not in ("0", "true", "false", "nullptr", "std::nullopt")]
    if "if (" in code and "constexpr" not in code and (span := condition(code)):
        found.append((*span, f"!({line[span[0]:span[1]]})"))
    if CALL.match(code) and code.count("(") == code.count(")") and before.rstrip()[-1:] in (";", "{", "}"):
        found.append((len(code) - len(code.lstrip()), len(code), ";"))
    return found


def mutants(count, seed):
    """Endless mutants (file, line number, line, new line) with each layer in proportion to its lines of code."""
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
    total = sum(map(len, layers.values()))
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


def limits():
    resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))
    resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def verdict(commands, seconds):
    """Runs the commands beside each other; what is wrong with the first that fails, or None."""
    running = []
    for index, (command, environment) in enumerate(commands):
        log = open(WORK / f"log.{index}", "w+")
        running.append((subprocess.Popen(CONTAINED + command, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd=COPY,
                                         env={**os.environ, **environment}, preexec_fn=limits, start_new_session=True),
                        log))
    deadline, wrong, left = time.monotonic() + seconds, None, list(running)
    while left and not wrong:
        time.sleep(0.05)
        if time.monotonic() > deadline:
            wrong = "takes too long"
        for entry in [e for e in left if e[0].poll() is not None]:
            left.remove(entry)
            if entry[0].returncode != 0:
                entry[1].seek(0)
                failed = re.search(r"\[  FAILED  \] ([^\n]*?)(?: \(\d+ ms\))?\n", entry[1].read())
                wrong = failed[1] if failed else f"status {entry[0].returncode}"
    for process, log in running:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGKILL)  # its own session; the namespace goes with it
        process.wait()
        log.close()
    return wrong


def tests(pattern):
    base = [str(BUILD / "ventix_tests"), "--gtest_fail_fast", "--gtest_color=no", f"--gtest_filter={pattern}"]
    return [(base, {"GTEST_TOTAL_SHARDS": str(SHARDS), "GTEST_SHARD_INDEX": str(n)}) for n in range(SHARDS)]


def judge(path, seconds):
    """The first test that notices; those named after the changed command are asked first."""
    if path.parts[1] == "commands":
        if wrong := verdict(tests(f"Cases.{path.stem}/*"), seconds):
            return wrong
    return verdict(tests("*"), seconds) or verdict(
        [([str(BUILD / "ventix_sweep"), "--sample", "1", *more], {}) for more in ([], ["--words"])], seconds)


def build(quiet=True):
    return subprocess.run(["ninja", "-C", str(BUILD), "ventix", "ventix_tests", "ventix_sweep"],
                          stdout=subprocess.DEVNULL if quiet else sys.stderr, stderr=subprocess.DEVNULL).returncode == 0


def prepare():
    shutil.rmtree(COPY, ignore_errors=True)
    shutil.copytree(ROOT, COPY, symlinks=True, ignore=shutil.ignore_patterns(".git", "build"))
    linker = ["-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld"] if shutil.which("ld.lld") else []
    subprocess.run(["cmake", "-G", "Ninja", "-S", str(COPY), "-B", str(BUILD), "-DCMAKE_BUILD_TYPE=Debug", *linker,
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DVENTIX_TESTS=ON", "-DVENTIX_WERROR=OFF"],
                   check=True, stdout=sys.stderr, env={**os.environ, "CCACHE_DISABLE": "1"})
    if not build(quiet=False):
        sys.exit("mutate: the sources do not build")


def main():
    count, seed = [int(word) for word in sys.argv[1:3]] + [100, 1][len(sys.argv[1:3]):]
    report = pathlib.Path(sys.argv[3]) if len(sys.argv) > 3 else WORK / "report"
    if subprocess.run([*CONTAINED, "true"]).returncode != 0:
        sys.exit("mutate: needs namespaces of its own (unshare), so that no mutant acts on your processes")
    prepare()
    start = time.monotonic()
    if wrong := judge(pathlib.Path("src/none/none"), 1200):
        sys.exit(f"mutate: the tests fail on the sources as they are: {wrong}")
    seconds = 30 + 5 * (time.monotonic() - start)
    done, caught, survivors = collections.Counter(), collections.Counter(), []
    with open(report, "w") as lines:
        for layer, path, number, line, new in mutants(count, seed):
            if sum(done.values()) == count:
                break
            text = (COPY / path).read_text()
            split = text.split("\n")
            split[number] = new
            (COPY / path).write_text("\n".join(split))
            wrong = judge(path, seconds) if build() else "does not compile"
            (COPY / path).write_text(text)
            if wrong == "does not compile":
                continue
            done[layer] += 1
            caught[layer] += wrong is not None
            said = f"{path}:{number + 1}: {line.strip()}  ->  {new.strip()}"
            survivors += [said] if wrong is None else []
            print(f"{sum(done.values())} {'caught' if wrong else 'SURVIVED'} {said}" + (f"  ({wrong})" if wrong else ""),
                  file=lines, flush=True)
    print("\n".join(survivors))
    for layer in sorted(done):
        print(f"{layer:20} {caught[layer]:3} of {done[layer]:3} caught")
    print(f"{sum(caught.values())} of {sum(done.values())} mutants caught, seed {seed}")


if __name__ == "__main__":
    main()
