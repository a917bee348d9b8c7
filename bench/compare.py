#!/usr/bin/env python3
"""Runs whole programs beside one another and prints how their costs compare.

    bench/compare.py [--rounds N] [--crowd N] [GROUP]...

Every comparison runs its programs in alternation, each round in another order, so that a disturbance of the machine
affects all of them (a large program leaves cold caches to the next one), and compares the medians of their processor time
(user and system, as the system accounts it to the ended process). All run from copies that are read from the disk, as
installed programs are since the system was started. A file that was just written may lie in larger pieces of memory, which
the system maps faster: a short run then costs up to a fifth less, the more the larger the program is. How the pieces lie
depends on the memory that is free at the time, so every fifty rounds begin with new copies.
Ratios hold on other machines; times do not. A goal is a ratio that should not be exceeded; nothing fails when one is.
"""

import argparse
import contextlib
import json
import os
import random
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
VENTIX = os.path.join(ROOT, "build/release/ventix")
BUILT = os.path.join(ROOT, "build/bench")  # floors, jobs and the benchmarks of parts
COPIES = tempfile.TemporaryDirectory()

PEERS = {  # what is compared with, and the Debian package that brings it
    "ps": "procps", "free": "procps", "uptime": "procps", "busybox": "busybox-static", "column": "bsdextrautils",
    "cat": "coreutils", "sort": "coreutils", "valgrind": "valgrind", "strace": "strace", "lsof": "lsof",
}


def copy_of(program):
    """Makes a new copy of a program, on the disk alone. Returns its path, or None where there is no such program."""
    found = shutil.which(program)
    if found is None:
        return None
    copy = os.path.join(COPIES.name, os.path.basename(found))
    with contextlib.suppress(FileNotFoundError):
        os.unlink(copy)
    with open(found, "rb") as source, open(copy, "wb", buffering=0) as target:
        target.write(source.read())
        os.fsync(target.fileno())
        os.posix_fadvise(target.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
    shutil.copymode(found, copy)
    return copy


class Program:
    """A command line, and where its output goes."""

    def __init__(self, label, *argv, output=None, environment=None, own_seconds=False):
        self.label = label
        self.argv = [str(argument) for argument in argv]
        self.copy = copy_of(self.argv[0])
        self.output = output  # None: /dev/null; "pipe"; a path
        self.environment = {**os.environ, **(environment or {})}
        self.own_seconds = own_seconds  # the program measures the step that counts and says so on standard error
        self.seconds = []

    @property
    def missing(self):
        return self.copy is None

    def run(self):
        with contextlib.ExitStack() as opened:
            reader = None
            if self.output == "pipe":
                reader = subprocess.Popen(["cat"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL)
                opened.callback(reader.wait)
                out = opened.enter_context(reader.stdin).fileno()
            else:
                out = opened.enter_context(open(self.output or os.devnull, "wb")).fileno()
            said = opened.enter_context(tempfile.TemporaryFile())
            pid = os.posix_spawn(self.copy, self.argv, self.environment, file_actions=[
                (os.POSIX_SPAWN_DUP2, out, 1), (os.POSIX_SPAWN_DUP2, said.fileno(), 2)])
            usage = os.wait4(pid, 0)[2]
            said.seek(0)
            text = said.read().decode(errors="replace")
        self.seconds.append(float(text) if self.own_seconds else usage.ru_utime + usage.ru_stime)

    def median(self):
        return statistics.median(self.seconds)

    def memory(self):
        """The most bytes that it had, in a run of its own; the last line is the measuring program's."""
        output = subprocess.run([os.path.join(BUILT, "floor_peak"), *self.argv], env=self.environment, check=True,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE).stderr
        return int(output.split()[-1])


def floor(label, name, *arguments, **options):
    return Program(label, os.path.join(BUILT, "floor_" + name), *arguments, **options)


def job(label, name, *arguments, **options):
    return Program(label, os.path.join(BUILT, "job_" + name), *arguments, **options)


def ventix(*arguments, **options):
    environment = {"VENTIX_MACHINE": "live", **options.pop("environment", {})}
    return Program("ventix " + " ".join(str(argument) for argument in arguments), VENTIX, *arguments,
                   environment=environment, **options)


def show(what, beside, ratio, goal):
    verdict = "" if goal is None else f"goal {goal:g}  " + ("reached" if ratio <= goal else "MISSED")
    print(f"{what:34} {beside:42} {ratio:8.3f}  {verdict}".rstrip(), flush=True)


def compare(subject, others, rounds, memory_goals=None):
    """Runs a program and the others in alternation; others are (program, goal) pairs."""
    here = [(program, goal) for program, goal in others if not program.missing]
    for program, _ in others:
        if program.missing:
            print(f"{subject.label:34} {program.label:42} not installed (./dev bench --setup)")
    if subject.missing:
        sys.exit(f"{subject.argv[0]} is missing: ./dev bench builds it")
    programs = [subject] + [program for program, _ in here]
    for done in range(rounds):
        if done % 50 == 0:
            for program in programs:
                copy_of(program.argv[0])
            for program in programs:
                program.run()  # once for the caches
                program.seconds.pop()
        for program in random.sample(programs, len(programs)):
            program.run()
    for program, goal in here:
        show(subject.label, program.label, subject.median() / program.median(), goal)
    for program, goal in here:
        if memory_goals and program.label in memory_goals:
            ratio = subject.memory() / program.memory()
            show(subject.label, program.label + ", memory", ratio, memory_goals[program.label])


# ---- groups ---------------------------------------------------------------------------------------------------------


def start_up(options):
    rounds = options.rounds or 400
    busybox, procps = "busybox", "procps"
    compare(ventix("--version"), [(floor("empty static program", "empty"), 1.15),
                                  (Program("busybox true", busybox, "true"), 0.9)], rounds)
    compare(ventix("uptime"), [(floor("asks the clock", "uptime"), 1.15),
                               (Program("busybox uptime", busybox, "uptime"), 0.9),
                               (Program("uptime", "uptime"), 0.25)], rounds)
    compare(ventix("free"), [(floor("reads the same files", "memory"), 1.15),
                             (Program("busybox free", busybox, "free"), 1.0),
                             (Program("free", "free"), 0.25)], rounds)
    size = os.path.getsize(VENTIX) / 1e6
    print(f"{'size of the executable':34} {size:.2f} MB, goal 1.5")


@contextlib.contextmanager
def helper(name, wanted, *arguments):
    """A helper that has said it is ready, with its count; ends when its standard input does."""
    process = subprocess.Popen([os.path.join(BUILT, "floor_" + name), str(wanted), *arguments], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE)
    try:
        count = process.stdout.readline().decode().strip()
        time.sleep(3)  # for its processes to start, and for the system to be done with those that have ended
        yield count
    finally:
        process.stdin.close()
        process.wait()
        process.stdout.close()


PS_COLUMNS = "pid,ppid,pgid,sid,pri,gid,uid,stat,flags,nlwp,rss,size,vsz,cputime,min_flt,maj_flt,lstart,comm"


def processes(options):
    rounds = options.rounds or 15
    alone = ventix("task").memory()
    beside = [(floor("reads stat, statm, maps", "processes", "stat", "statm", "maps"), 1.15),
              (Program("busybox ps", "busybox", "ps"), None)]
    for count, what, goal, *program in (
            (3000, "ordinary dynamic processes", 0.8, "sleep", "infinity"),
            (100, "processes of 2,000 mappings", None, os.path.join(BUILT, "floor_mappings"), "2000")):
        with helper("sleepers", count, *program) as made:
            print(f"with {made} {what} more:")
            compare(ventix("task"), [*beside, (Program("ps -e", "ps", "-e"), goal)], rounds)
    with helper("sleepers", options.crowd) as made:
        print(f"with {made} processes of few mappings more:")
        plain = ventix("task")
        compare(plain, [*beside, (Program("ps -e", "ps", "-e"), 0.75)], rounds)
        row = (plain.memory() - alone) / max(int(made), 1)
        print(f"{'ventix task':34} {'bytes of memory per row':42} {row:8.0f}  goal 2000")
        files = ["stat", "statm", "maps", "io", "status"]
        compare(ventix("task", "-A"), [(floor("reads " + ", ".join(files), "processes", *files), 1.15),
                                       (Program("ps with the same", "ps", "-eo", PS_COLUMNS), 1.0)], rounds)
        compare(ventix("task", "-n"),
                [(floor("reads stat, statm, maps", "processes", "stat", "statm", "maps"), 1.2)], rounds)
        compare(ventix("taskkill", "no-such-name"),
                [(floor("reads every comm", "processes", "--flat", "comm"), 1.2)], 2 * rounds)


def details(options):
    """200 programs as people run them, with shared libraries and some 40 mappings each, and 200 bare ones."""
    rounds = options.rounds or 25
    with contextlib.ExitStack() as opened:
        for _ in range(200):
            ordinary = subprocess.Popen(["sleep", "100000"], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
            opened.callback(ordinary.wait)
            opened.callback(ordinary.kill)
        print("with 200 ordinary processes more:")
        compare(ventix("treereg", "run/info"), [(Program("lsof -n", "lsof", "-n"), 1.5)], rounds)
    with helper("sleepers", 200) as made:
        print(f"with {made} bare processes more:")
        compare(ventix("treereg", "run/info"), [(Program("lsof -n", "lsof", "-n"), 1.5)], rounds)


def tables(options):
    rounds = options.rounds or 5
    rows = 1_000_000
    with tempfile.NamedTemporaryFile(mode="wb") as cells:
        subprocess.run([os.path.join(BUILT, "job_table"), "floor", str(rows)], stdout=cells, check=True)
        compare(job("fill, sort and print", "table", "colp", rows),
                [(job("libsmartcols", "smartcols", rows), 0.1),
                 (Program("column -t", "column", "-t", cells.name), 0.15),
                 (Program("sort -k 2,2", "sort", "-k", "2,2", cells.name), None),
                 (job("same cells into one buffer", "table", "floor", rows), None)],
                rounds, {"libsmartcols": 0.2})


def log(options):
    rounds = options.rounds or 9
    size = 64 << 20
    line = "[%8d.123456] something of some length happened to a device of the system\n"
    for blank, goal in ((False, 1.3), (True, 1.8)):
        with tempfile.TemporaryDirectory() as directory:
            path, out = os.path.join(directory, "log"), os.path.join(directory, "out")
            with open(path, "w", encoding="ascii") as file:
                written = number = 0
                while written < size:
                    number += 1
                    written += file.write("\n" if blank and number % 5 == 0 else line % number)
            for output, name in ((out, "file"), ("pipe", "pipe")):
                lines = "a fifth of the lines blank" if blank else "no blank lines"
                print(f"to a {name}, {lines}:")
                compare(job("readlog's display", "log", "display", path, output=output, own_seconds=True),
                        [(Program("cat", "cat", path, output=output), goal),
                         (job("one write of the same lines", "log", "floor", path, output=output,
                              own_seconds=True), None)], rounds)


def growth(label, rounds, runs):
    """runs: the programs for n and 2 n, in alternation."""
    for program in runs:
        program.run()
        program.seconds.clear()
    for _ in range(rounds):
        for program in runs:
            program.run()
    show(label, "twice the input", runs[1].median() / runs[0].median(), 2.3)


def growing(options):
    rounds = options.rounds or 5
    with contextlib.ExitStack() as opened:
        directory = opened.enter_context(tempfile.TemporaryDirectory())

        def machine(name, content):
            path = os.path.join(directory, name)
            with open(path, "w", encoding="ascii") as file:
                json.dump(content, file)
            return {"VENTIX_MACHINE": path}

        def keys(count):
            return machine(f"keys-{count}", {"registry": {"all": {"dir": {f"key{i}": i for i in range(count)}}}})

        def isrs(count):
            routine = [{"handle": 1000 + i, "info": {"ISRINFO_NUMBER": i * 7919 % count}} for i in range(count)]
            return machine(f"isrs-{count}", {"state": {"KSTATE_ISR_NUMBER_LIMIT": count},
                                             "tasks": [{"handle": 16, "isrs": routine}]})

        growth("treereg of 100000 keys", rounds,
               [ventix("treereg", "all", environment=keys(count)) for count in (50_000, 100_000)])
        growth("lsisr of 100000 routines", rounds,
               [ventix("lsisr", environment=isrs(count)) for count in (50_000, 100_000)])
        owners = [opened.enter_context(helper("mappings", count)) for count in (30_000, 60_000)]
        growth("tview of 60000 mappings", rounds, [ventix("tview", "-P", f"{int(pid):x}") for pid in owners])


def calls(_):
    """From the benchmarks of parts, which run threads and the kernel in one process."""
    text = subprocess.run([os.path.join(BUILT, "ventix_bench"), "--benchmark_filter=kernel_", "--benchmark_format=json",
                           "--benchmark_repetitions=5", "--benchmark_report_aggregates_only=true"],
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, check=True).stdout
    real = {run["run_name"]: run["real_time"] for run in json.loads(text)["benchmarks"]
            if run["aggregate_name"] == "median"}
    round_trip = real["kernel_floor_futex_round_trip/real_time"]
    for name, goal in (("kernel_call", 0.02), ("kernel_iterator_item", None), ("kernel_registry_read", 0.15)):
        show(name, "futex round trip of two threads", real[name + "/real_time"] / round_trip, goal)


def attach(options):
    """A kernel call of an attached process; both processes on one processor, and wherever the system puts them."""
    machine = [os.path.join(ROOT, "build/release/ventix-machine"), "run", os.path.join(ROOT, "machines/demo.json"), "--",
               os.path.join(BUILT, "job_attach"), str(options.rounds or 25), "2000"]
    allowed = os.sched_getaffinity(0)
    for processors, goal in ({min(allowed)}, 1.3), (allowed, 0.5):
        if processors != allowed or len(allowed) > 1:
            os.sched_setaffinity(0, processors)
            call, bare = map(float, subprocess.run(machine, stdout=subprocess.PIPE, check=True).stdout.split())
            show(f"attached call, {call:.1f} us", f"bare round trip, processors: {len(processors)}, {bare:.1f} us",
                 call / bare, goal)
    os.sched_setaffinity(0, allowed)


def counts(_):
    """Instructions and system calls of one run each: these do not depend on what else the machine does."""
    print(f"{'':34} {'instructions':>14} {'system calls':>14}")
    for program in (floor("empty static program", "empty"), ventix("--version"), floor("asks the clock", "uptime"),
                    ventix("uptime"), floor("reads the same files", "memory"), ventix("free"), ventix("task"),
                    ventix("task", "-A")):
        numbers = []
        with tempfile.TemporaryDirectory() as directory:
            summary = os.path.join(directory, "calls")
            for tool, path, pattern in (
                    (["valgrind", "--tool=callgrind", f"--callgrind-out-file={directory}/out"], None, r"Collected : (\d+)"),
                    (["strace", "-c", "-o", summary], summary, r"100\.00\s+\S+\s+(?:\d+\s+)?(\d+)")):
                if shutil.which(tool[0]) is None:
                    numbers.append("no " + tool[0])
                    continue
                output = subprocess.run(tool + program.argv, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                      env=program.environment, text=True, check=False).stderr
                if path:
                    with open(path, encoding="utf-8") as file:
                        output = file.read()
                numbers.append((re.search(pattern, output) or [None, "?"])[1])
        print(f"{program.label:34} {numbers[0]:>14} {numbers[1]:>14}", flush=True)


GROUPS = {"start": start_up, "processes": processes, "details": details, "tables": tables, "log": log, "growth": growing, "calls": calls,
          "attach": attach, "counts": counts}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("groups", nargs="*", metavar="GROUP", help=" ".join(GROUPS))
    parser.add_argument("--rounds", type=int, help="alternations of each comparison")
    parser.add_argument("--crowd", type=int, default=2000, help="processes added for the process lists")
    options = parser.parse_args()
    for name in options.groups:
        if name not in GROUPS:
            parser.error(f"no group {name}; there are {', '.join(GROUPS)}")
    for name in options.groups or GROUPS:
        print(f"-- {name}")
        GROUPS[name](options)


if __name__ == "__main__":
    main()
