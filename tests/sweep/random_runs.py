#!/usr/bin/env python3
# tests/sweep/random_runs.py - random command lines on random machines, each run by both builds, twice; and little memory.
"""Usage: tests/sweep/random_runs.py SANITIZED SHIPPED PROMISES SECONDS [SEED]

A machine is one of the test machines with numbers, texts and keys changed, left out and doubled, and sometimes with
faults; a command line is one of the sweep's baselines with words changed. Each pair is run by the sanitized and by the
shipped executable, twice: all runs give the same bytes and the same status, which is one that the command promises
(PROMISES is the program that lists them); a run ends; and the machine that it saves loads and saves as itself.

Before that, one run of each command and machine is repeated by the shipped executable within every limit of address
space from 2 to 22 MiB: it ends with a promised status and prints all, or says what it could not do.

Prints each finding with its files, which stay, and the seed, from which the same pairs come again.
"""
import json
import os
import pathlib
import random
import re
import resource
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
EDGES = [0, 1, 2, 7, 8, 31, 32, 51, 52, 63, 64, 255, 256, 4095, 4096, 65536, 2**31 - 1, 2**31, 2**32 - 1, 2**32, 2**48,
         2**63 - 1, 2**63, 2**64 - 2, 2**64 - 1]
WORDS = ["", "-", "--", "0", "-1", "1", "0x10", "4294967296", "18446744073709551615", "a", "init", "shell", "nobody", "x" * 52,
         "run/proc", "eth0", "-n", "-a", "-S", "raw", "fancyw", "--sort", "1,desc", "-P", "-x", "-h", "%s", "k=v", "\xff\x1b", "/"]
CALLS = ["CreateMsgPort", "CreateHandle", "CreateIterator", "SendMsg", "RecvMsgPtr", "BeginIterator", "StepIterator",
         "GetIteratorInfo", "GetSystemData", "GetObjectInfo", "ControlObject", "DeleteObject", "WaitSemaphore", "SignalSemaphore"]
NAMING = ["lsisr", "task"]  # leave names out where the registry cannot be asked
BOUND = 60  # seconds that a run may take
DEADLOCK, BAD_MACHINE = 124, 125


def without_comments(path):
    return json.loads(re.sub(r"(?m)^\s*//.*$", "", path.read_text()))


def changed(value, chance, rng):
    """The value with parts of it changed; of objects and lists, members are left out, doubled and changed in turn."""
    if isinstance(value, dict):
        return {key: changed(member, chance, rng) for key, member in value.items() if rng.random() > chance / 4}
    if isinstance(value, list):
        kept = [changed(member, chance, rng) for member in value if rng.random() > chance / 4]
        return kept + [rng.choice(kept)] if kept and rng.random() < chance else kept
    if rng.random() > chance or isinstance(value, bool):
        return value
    if isinstance(value, int):
        return rng.choice([*EDGES, (value + 1) % 2**64, rng.getrandbits(64)])
    return rng.choice([value + "x", value[:-1], value * 20, "", "\u00e9\n\u001b[", value])[:300] if isinstance(value, str) else value


def machine(bases, rng):
    made = changed(rng.choice(bases), rng.choice([0, 0.01, 0.05, 0.2]), rng)
    if rng.random() < 0.3:
        made["faults"] = [{"call": "_SL_" + rng.choice(CALLS), "nth": rng.randrange(1, 30), "times": rng.choice([1, 1, 5, 2**40]),
                           "result": rng.choice([0, 2, 3, 4, 5, 6, 293, 310, 2**64 - 1])} for _ in range(rng.randrange(1, 3))]
    return made


def command_line(lines, rng):
    words = list(rng.choice(lines))
    for _ in range(rng.randrange(3)):
        at = rng.randrange(1, len(words) + 1)
        words[at:at + rng.randrange(2)] = [rng.choice(WORDS)]
    return words


def run(program, words, folder, loaded, saved, memory=resource.RLIM_INFINITY):
    environment = {"VENTIX_MACHINE": loaded, "VENTIX_MACHINE_SAVE": saved, "TZ": "UTC", "PATH": "/usr/bin:/bin",
                   "ASAN_OPTIONS": "detect_leaks=0:allocator_may_return_null=1:exitcode=99"}
    result = subprocess.run([b"ventix", *(word.encode("latin-1") for word in words)], executable=program, cwd=folder,
                            env=environment, stdin=subprocess.DEVNULL, capture_output=True, timeout=BOUND,
                            preexec_fn=lambda: (resource.setrlimit(resource.RLIMIT_CORE, (0, 0)),
                                                resource.setrlimit(resource.RLIMIT_AS, (memory, memory))))
    return result.returncode, result.stdout, result.stderr


def wrong_with(words, builds, promises, folder):
    """What is wrong with the runs of one pair; None where nothing is."""
    results = []
    try:
        for number, program in enumerate(builds * 2):
            results.append(run(program, words, folder, "machine.json", f"saved.{number}"))
        status, _, said = results[0]
        # The time of day, which some forms of date print or set a clock to, is nobody's to repeat: only its form is.
        shown = {(code, re.sub(rb"\d", b"N", output) if words[0] == "date" else output, errors) for code, output, errors in results}
        if len(shown) != 1:
            return "runs differ: " + "; ".join(f"{r[0]} {r[1][-200:]!r} {r[2][-300:]!r}" for r in results)
        if status == BAD_MACHINE:
            before, _, last = said.removesuffix(b"\n").rpartition(b"\n")  # a verbose run says what it begins
            verbose = before == b"" or before.startswith(words[0].encode() + b": ")
            return None if last.startswith(b"ventix: ") and verbose else f"refused with {said!r}"
        if status not in promises.get(words[0], [0, 1]) and status not in (DEADLOCK, -9):
            return f"status {status}: {said[-300:]!r}"
        files = [folder / f"saved.{number}" for number in range(len(results))]
        saves = [file.read_bytes() if file.exists() else None for file in files]
        if len({save and re.sub(rb"\d+", b"N", save) if words[0] == "date" else save for save in saves}) != 1:
            return "saves differ"
        if saves[0] is None:
            return None  # it never came to a kernel call, so it loaded no machine
        again = run(builds[1], ["uptime"], folder, "saved.0", "again.json")
        if again[0] != 0 or (folder / "again.json").read_bytes() != saves[0]:
            return f"what was saved loads as another machine: {again}"
    except subprocess.TimeoutExpired:
        return f"does not end in {BOUND} s"
    return None


def run_in_little_memory(program, lines, promises, folder):
    """The number of runs, and of findings, which it prints."""
    runs, findings, seen = 0, 0, set()
    limits = [limit for limit in range(2 << 20, 22 << 20, 1 << 18)
              if run(program, ["uptime", "--help"], folder, "live", "", limit)[0] == 0]  # in less no program starts
    for machine, *words in lines:
        if not machine or (machine, words[0]) in seen:
            continue
        seen.add((machine, words[0]))
        path = {"live": "live", "demo": str(ROOT / "machines/demo.json")}.get(machine, str(ROOT / "tests/machines" / machine))
        plain = run(program, words, folder, path, "")
        for limit in limits:
            runs += 1
            try:
                status, output, said = run(program, words, folder, path, "", limit)
            except subprocess.TimeoutExpired:
                status, output, said = "none in time", b"", b""
            if status in (*promises[words[0]], BAD_MACHINE) and (output or said or plain[0] == status) and \
                    (machine == "live" or words[0] in NAMING or status != plain[0] or said or output == plain[1]):
                continue
            findings += 1
            print(f"FINDING {machine}, {limit} bytes: {shlex.join(words)}: {status} {output[-200:]!r} {said[-200:]!r}", flush=True)
    return runs, findings


def main():
    builds, lister, seconds = [os.path.abspath(path) for path in sys.argv[1:3]], sys.argv[3], float(sys.argv[4])
    seed = int(sys.argv[5]) if len(sys.argv) > 5 else int(time.time())
    promises = {}
    for line in subprocess.run([lister, "--promises"], capture_output=True, text=True, check=True).stdout.splitlines():
        command, *statuses = line.split()
        promises[command] = [int(status) for status in statuses]
    bases = [without_comments(path) for path in sorted((ROOT / "tests/machines").glob("*.json"))]
    text = subprocess.run([lister, "--list"], capture_output=True, check=True).stdout.decode("latin-1")
    lines = [line.split("\0")[:-1] for line in text.split("\n") if line]
    with tempfile.TemporaryDirectory() as folder:
        limited, findings = run_in_little_memory(builds[1], lines, promises, folder)
    lines = [words for machine, *words in lines if machine != "live"]
    pairs, end = 0, time.monotonic() + seconds
    while time.monotonic() < end:
        rng = random.Random(f"{seed} {pairs}")
        folder = pathlib.Path(tempfile.mkdtemp(prefix="ventix-random."))
        (folder / "machine.json").write_text(json.dumps(machine(bases, rng)))
        words = command_line(lines, rng)
        wrong = wrong_with(words, builds, promises, folder)
        pairs += 1
        if wrong:
            findings += 1
            print(f"FINDING {folder}/machine.json: {shlex.join(words)}: {wrong}", flush=True)
        else:
            for file in folder.iterdir():
                file.unlink()
            folder.rmdir()
    print(f"seed {seed}: {pairs} pairs, {5 * pairs} runs, {limited} in little memory, {findings} findings")
    sys.exit(findings != 0 or pairs == 0)


if __name__ == "__main__":
    main()
