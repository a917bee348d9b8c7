#!/usr/bin/env python3
# tests/storm/storm.py - runs the executable on the live machine while processes start and end around it, and checks
# every row.
#
#   tests/storm/storm.py EXECUTABLE SANITIZED [RUNS]
#
# First it looks at rare and awkward processes: one with very many mappings, one with an odd name, a zombie, one under a
# debugger, a kernel thread, and all of these hidden. Then makers start hundreds of processes a second while the commands
# run in turn, for the calling user and, if that is root, for another one. Every eleventh turn runs the sanitized
# executable. Where the system permits it, the storm has process numbers of its own, and every new process gets the lowest
# free one: a number passes from one process to the next within a millisecond.
#
# Each process of the storm has a kind. It starts with its maker's name, then takes a name of its number and its kind, and
# then the mapping, the nice level and the user of that kind. A row that mixes two processes therefore shows, even where
# both had the same number. Signals that are sent to a process by its name carry its kind, so one that reaches the next
# process of its number shows as well. Everything that is started here ends with what started it.
import ctypes
import mmap
import os
import random
import re
import signal
import struct
import subprocess
import sys
import threading
import time

ROOT = os.geteuid() == 0
NICE = os.nice(0)
OTHER_USER, FIRST_USER = 65534, 20000  # of the unprivileged runs, of the storm
KINDS = 16
LOWEST = 300  # the storm's numbers are above it, where it has numbers of its own
RESERVED = 200  # the number that passes from one process to the next while a run is held
MAKERS, PACE, LEAST_RATE = 2, 300, 100  # processes a second: that each maker starts, that all must reach
MANY = 60000  # mappings
BOUND = 20  # seconds that a run may take
FIRST_SIGNAL = 40  # for processes of kind 0; no library uses these
SIGNALS = set(range(FIRST_SIGNAL, FIRST_SIGNAL + KINDS))
THREAD = 1 << 32  # handle of a thread: this + its number

libc = ctypes.CDLL(None)
libc.mmap.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int, ctypes.c_int, ctypes.c_int, ctypes.c_long]
libc.mmap.restype = ctypes.c_void_p
libc.ptrace.argtypes = [ctypes.c_long, ctypes.c_long, ctypes.c_void_p, ctypes.c_void_p]
libc.mprotect.argtypes = [ctypes.c_void_p, ctypes.c_size_t, ctypes.c_int]
PRIVATE_ANONYMOUS, JUST_THERE = 0x22, 0x100000  # of mappings
OWN_MOUNTS, OWN_NUMBERS = 0x20000, 0x20000000  # of namespaces
TRACE_ME, TRACE_CALLS, TRACE_DETACH, TRACE_OPTIONS, TRACE_CALL_INFO = 0, 24, 17, 0x4200, 0x420E
OPEN_PROCESS, FORK_AS = 434, 435  # system calls, on every architecture: take hold of a process; fork


def end_with_parent():
    libc.prctl(1, signal.SIGKILL)


def take_name(name):
    libc.prctl(15, name.encode())


def become(user):
    os.setgroups([])
    os.setresgid(user, user, user)
    os.setresuid(user, user, user)
    end_with_parent()  # changing the user has cleared it
    libc.prctl(4, 1)  # and who it is now may look at it


def mount_own_proc(options):
    alone = 1 << 18 | 1 << 14  # private, with all below
    return libc.mount(None, b"/", None, alone, None) == 0 and libc.mount(b"proc", b"/proc", b"proc", 0, options) == 0


def place_of(kind):
    return 0x200000000000 + (kind << 30)


def level_of(kind):
    return min(NICE + kind % 4, 19)  # little enough for them to come to their end soon


def fork(number):
    """Forks, for a number as soon as that is free. The system's counter of numbers is the makers'."""
    wanted = ctypes.c_int(number)
    options = struct.pack("11Q", 0, 0, 0, 0, signal.SIGCHLD, 0, 0, 0, ctypes.addressof(wanted), 1, 0)
    while (made := libc.syscall(FORK_AS, options, len(options))) < 0:
        time.sleep(0.001)
    return made


def await_stat(task, wanted):
    for _ in range(BOUND * 1000):
        with open(f"/proc/{task}/stat") as stat:
            if wanted in stat.read():
                return
        time.sleep(0.001)
    sys.exit(f"storm: a process did not become {wanted}")


class Child:
    """A process that runs a body and then waits until it is ended.

    number: that it has to have; 0: any"""

    def __init__(self, body, *arguments, number=0):
        self.id = fork(number) if number else os.fork()
        if self.id == 0:
            try:
                end_with_parent()
                body(*arguments)
                signal.pause()
            finally:
                os._exit(1)

    def await_stat(self, wanted):
        await_stat(self.id, wanted)
        return self

    def end(self):
        """Ends and reaps it; false where it had ended by itself."""
        os.kill(self.id, signal.SIGKILL)
        return os.waitpid(self.id, 0)[1] == signal.SIGKILL


# ---- runs and their findings ----------------------------------------------------------------------------------------


class Wrong(Exception):
    pass


def need(holds, what):
    if not holds:
        raise Wrong(what)


def number(cell):
    return int(cell.rstrip("^"), 0)


class Run:
    """One run of a command, and what it showed."""

    def __init__(self, executable, words, other=False, hidden=False, pauses=(), before_acting=None):
        def prepare():
            if hidden and not (libc.unshare(OWN_MOUNTS) == 0 and mount_own_proc(b"hidepid=2")):
                os._exit(98)
            if other and ROOT:
                become(OTHER_USER)
            end_with_parent()
            if before_acting:
                libc.ptrace(TRACE_ME, 0, None, None)

        self.words, self.sees = words, not hidden
        self.foreign = other and ROOT  # may see less of root's processes
        self.user = OTHER_USER if self.foreign else os.geteuid()
        # By its descriptor, since the other user may have no way to the file.
        process = subprocess.Popen(["ventix", *words], executable=f"/proc/self/fd/{executable}", pass_fds=[executable],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, preexec_fn=prepare,
                                   env={"VENTIX_MACHINE": "live", "ASAN_OPTIONS": "exitcode=99"})
        self.id = process.pid
        if before_acting and self.stops_before_acting():
            before_acting()
            libc.ptrace(TRACE_DETACH, self.id, None, None)
        for pause in pauses:
            time.sleep(pause)
            process.send_signal(signal.SIGSTOP)
            time.sleep(0.004)
            process.send_signal(signal.SIGCONT)
        try:
            texts = process.communicate(timeout=BOUND)
        except subprocess.TimeoutExpired:
            process.kill()
            texts = process.communicate()[0], b"it did not end"
        self.out, self.err = (text.decode(errors="replace") for text in texts)
        self.status = process.returncode

    def stops_before_acting(self):
        """Stops the run where it takes hold of a process; false where it ends without."""
        call = ctypes.create_string_buffer(88)  # byte 0: 1 at the beginning of a call; from byte 24: its number
        while os.WIFSTOPPED(os.waitpid(self.id, 0)[1]):
            libc.ptrace(TRACE_OPTIONS, self.id, None, 1)  # the stops of calls are marked
            libc.ptrace(TRACE_CALL_INFO, self.id, len(call), call)
            if call[0] == b"\1" and struct.unpack_from("Q", call, 24)[0] == OPEN_PROCESS:
                return True
            libc.ptrace(TRACE_CALLS, self.id, None, None)
        return False

    def check_end(self, may_refuse):
        said = self.err
        while may_refuse and said.startswith(f"{self.words[0]}: failed to start iteration\n"):
            said = said[said.index("\n") + 1:]
        need(said == "", f"says: {said}")
        need(self.status == (1 if self.err else 0), f"status {self.status}")
        need(self.out.endswith("\n") or (may_refuse and self.out == ""), "output ends within a line")

    def tasks(self):
        """The rows of a list of tasks: cells by their titles, as far as the state, and the name."""
        lines = self.out.splitlines()
        titles, rows = lines[0].split(), []
        for line in lines:
            if line.startswith(" 0x"):
                rows.append(dict(zip(titles, line.split()[: titles.index("St") + 1])))
                rows[-1].update(Name=line[lines[0].index("Name"):].rstrip(), line=line)
        need(lines[-1] == f"  Total: {len(rows)} tasks", f"{len(rows)} rows and {lines[-1]}")
        return rows

    def sections(self, task=0):
        """Rows of threads or views, each with its task: that of the heading, or the one given."""
        for line in self.out.splitlines():
            cells = line.split()
            if cells[:1] == ["Task"]:
                task = number(cells[1].rstrip(":"))
            elif cells and cells[0].startswith("0x"):
                yield task, cells, f"row of {task:#x}: {line}"


class Tally:
    def __init__(self, findings):
        self.runs = self.other = self.sanitized = self.rows = self.stormy = 0
        self.findings = findings  # of all tallies: the end of the report repeats them

    def judge(self, run, check):
        self.runs += 1
        self.other += run.foreign
        try:
            check(run)
        except Wrong as wrong:
            user = "" if run.sees and not run.foreign else f" (user {run.user}{'' if run.sees else ', hidden'})"
            self.find(f"ventix {' '.join(run.words)}{user}: {wrong}")

    def find(self, what):
        self.findings.append(what)
        print(f"FINDING {what}", flush=True)


# ---- what is rare and awkward ---------------------------------------------------------------------------------------


def map_many():
    page = mmap.PAGESIZE
    first = libc.mmap(None, MANY * page, 0, PRIVATE_ANONYMOUS, -1, 0)
    for i in range(0, MANY, 2):
        libc.mprotect(first + i * page, page, 1)


def be_debugged():
    libc.ptrace(0, 0, None, None)
    os.kill(os.getpid(), signal.SIGSTOP)


# Name, given and shown; state, of the system, the task and the thread; views at least (None: not one); what it does
AWKWARD = [
    ("many", "many", "SBW", MANY, map_many),
    ("a) Z 1 (b\nc", "a) Z 1 (b?c", "SBW", 1, lambda: None),
    ("debugged", "debugged", "tBB", 1, be_debugged),
    ("ended", "ended", "ZZN", None, lambda: os._exit(0)),
]


def look_at(tally, executables, task, name, shown, states, views):
    def check(run):
        command = run.words[0]
        if command == "threads":  # the registers of what may not be traced, or has no processor to stop on
            run.err = re.sub(r"threads: failed to read register .*: error 0x(5|125)\n", "", run.err)
        refused = command == "tview" and (run.foreign or views is None)
        run.check_end(refused or (not run.sees and command != "task"))
        if command == "task":
            rows = [(row["St"], row["Name"]) for row in run.tasks() if number(row["Handle"]) == task]
            need(rows == ([(states[1], shown)] if run.sees else []), f"shows {rows}")
        elif command == "threads":
            rows = [(number(cells[0]), cells[2]) for _, cells, _ in run.sections()]
            need(rows == ([(THREAD + task, states[2])] if run.sees else []), f"shows {rows}")
        elif command == "tview":
            rows = [number(cells[7]) for _, cells, _ in run.sections()]
            need(set(rows) <= {task} and (rows == [] if refused else len(rows) >= views), f"shows {len(rows)} views")

    lines = ["task -A -n", "task -a", f"threads -Prw {task:#x}", f"tview -fP {task:#x}", "lsisr -t -n"]
    for executable in executables:
        for hidden, other in ((False, False), (False, True), (True, True))[: 3 if ROOT else 2]:
            for line in lines:
                await_stat(task, f"({name}) {states[0]} ")  # whose registers were read has to come to its rest again
                tally.judge(Run(executable, line.split(), other, hidden), check)


def look_at_awkward(tally, executables):
    def be(name, body):
        take_name(name)
        body()

    for name, shown, states, views, body in AWKWARD:
        child = Child(be, name, body)
        try:
            look_at(tally, executables, child.id, name, shown, states, views)
        finally:
            child.end()
    with open("/proc/2/stat") as stat:
        if stat.read().startswith("2 (kthreadd) S 0 "):
            look_at(tally, executables, 2, "kthreadd", "[kernel]", "SBW", None)


# ---- the storm ------------------------------------------------------------------------------------------------------


def name_of(task, kind):
    name = f"{task}.{kind}"
    return name if kind % 2 else name.rjust(15, "0")  # with 15 characters it may have been cut, for all one knows


def be_stormy(kind, reached):
    take_name(name_of(os.getpid(), kind))
    libc.mmap(place_of(kind), mmap.PAGESIZE, 1, PRIVATE_ANONYMOUS | JUST_THERE, -1, 0)
    os.setpriority(os.PRIO_PROCESS, 0, level_of(kind))
    if ROOT:
        become(FIRST_USER + kind)
    time.sleep(kind % 4 * 0.001)
    for received in signal.sigpending() & SIGNALS:
        reached[received == FIRST_SIGNAL + kind] = 1
    os._exit(0)


def make(which, own_numbers, started):
    """One maker's processes are gone as they end, the other's stay zombies for a moment."""
    signal.signal(signal.SIGCHLD, signal.SIG_DFL if which else signal.SIG_IGN)
    last = os.open("/proc/sys/kernel/ns_last_pid", os.O_WRONLY) if own_numbers else None
    take_name("maker")
    signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
    begin, count, ended = time.monotonic(), 0, 0
    while True:
        if own_numbers:
            os.pwrite(last, str(LOWEST).encode(), 0)
        if os.fork() == 0:
            be_stormy((count + 3 * which) % KINDS, memoryview(started)[8 * MAKERS:])
        count += 1
        struct.pack_into("Q", started, 8 * which, count)
        time.sleep(max(begin + count / PACE - time.monotonic(), 0))
        while which and count > ended and os.waitpid(-1, os.WNOHANG)[0]:
            ended += 1


def stay(name, user, threads):
    if user != os.geteuid():
        become(user)
    for _ in range(threads - 1):
        threading.Thread(target=signal.pause, daemon=True).start()
    take_name(name)


class Storm:
    def __init__(self, tally, own_numbers):
        self.tally, self.own_numbers = tally, own_numbers
        # What each maker has started, and whether signals have reached others than those that they were sent to, or those.
        self.started = mmap.mmap(-1, 8 * MAKERS + 2)
        take_name("storm")
        self.everyone = {os.getpid(): ("storm", os.geteuid())}  # all of known name and user
        self.children, self.keepers = [], []
        for i in range(8):
            name, user = f"keeper-{i}", OTHER_USER if ROOT and i % 2 else os.geteuid()
            self.keepers.append(self.start(name, user, stay, name, user, 1 + i % 3))
        self.makers = [self.start("maker", os.geteuid(), make, i, own_numbers, self.started) for i in range(MAKERS)]

    def start(self, name, user, *body):
        self.children.append(Child(*body))
        self.everyone[self.children[-1].id] = (name, user)
        return self.children[-1].await_stat(f"({name}) ").id

    def take_number(self, name):
        return Child(take_name, name, number=RESERVED).await_stat(f"({name}) ")

    def pass_number_on(self, turn, executable):
        """A run finds a process by its name, and is held until another one has the number: in the same hundredth of a
        second under another name, or later under the same."""
        first, nexts = self.take_number("passes"), []

        def pass_on():
            first.end()
            time.sleep(turn % 2 * 0.02)
            nexts.append(self.take_number("passes" if turn % 2 else "takes"))

        def check(run):
            if not nexts:
                first.end()
                raise Wrong("was not held before it acted")
            need(nexts[0].end(), "acts on the next process of a number")
            need((run.err, run.status) == ("raiseexc: passes: failed to raise exception (0x0002).\n", 1),
                 f"says: {run.err}, status {run.status}")

        words = ["raiseexc", "-p", str(FIRST_SIGNAL), "SIGNAL", "passes"]
        self.tally.judge(Run(executable, words, before_acting=pass_on), check)

    def count(self):
        return sum(struct.unpack_from(f"{MAKERS}Q", self.started))

    def reached(self):
        return self.started[8 * MAKERS:]

    def run(self, turn, command, executable):
        if command == "pass on":
            self.pass_number_on(turn, executable)
            return
        keeper = self.keepers[turn // 6 % len(self.keepers)]
        name, user = self.everyone[keeper]
        other, by_number = turn % 2 == 1, self.own_numbers and turn // 2 % 3 != 0
        if command in ("task", "lsisr"):
            words = [command, "-A" if command == "task" else "-s", "-n"]
        elif command == "raiseexc":
            kind = random.randrange(KINDS)
            words = [command, "-p", str(FIRST_SIGNAL + kind), "SIGNAL", *(name_of(LOWEST + i, kind) for i in range(1, 5))]
        elif by_number:
            words = [command, "-nP" if command == "tview" else "-P", *(hex(LOWEST + i) for i in range(1, 5))]
        else:
            words = [command, name]

        def check(run):
            if command == "raiseexc":  # the process may have gone, or be another user's
                fates = re.compile(r"raiseexc: [\d.]+: (process not found|failed to raise exception \(0x000[25]\)\.)\n")
                run.err = fates.sub("", run.err)
                need(run.err == "" and run.status in (0, 1), f"says: {run.err}, status {run.status}")
                return
            listed = command in ("threads", "tview")
            refused = command == "tview" and run.foreign and user != run.user
            run.check_end(listed and (by_number or refused))
            if command == "task":
                self.check_tasks(run)
            elif command == "lsisr":
                for line in run.out.splitlines() if self.own_numbers else []:
                    need("owner:" not in line or "owner: 0x1 (storm)," in line, f"row: {line}")
            elif by_number:
                self.check_numbers(run, command == "tview")
            else:
                self.check_keeper(run, keeper, command == "tview", refused)

        # It is stopped now and then, so that much happens between one of its steps and the next.
        pauses = [random.random() * 0.001 for _ in range(4)]
        self.tally.judge(Run(executable, words, other, pauses=pauses), check)

    def check_tasks(self, run):
        rows = run.tasks()
        for row in rows:
            task, uid = number(row["Handle"]), number(row["UID"])
            if task == run.id:
                good = row["St"] == "r" and uid == run.user
            elif task in self.everyone:
                good = (row["Name"], uid) == self.everyone[task]
            elif self.own_numbers or number(row["Parent"]) in self.makers:
                good = self.may_be(row, task, uid)
                self.tally.stormy += 1
            else:
                good = True  # somebody else's
            need(good and number(row["HWID"]) == task, f"row: {row['line']}")
        shown = [number(row["Handle"]) for row in rows]
        missing = {run.id, *self.everyone} - set(shown)
        need(not missing and len(set(shown)) == len(shown), f"one is there twice, or these are missing: {missing}")
        self.tally.rows += len(rows)

    def may_be(self, row, task, uid):
        """A row of the storm: of one that has gone, of one that is its maker still, or all of one kind."""
        parent, level, gid = number(row["Parent"]), number(row["Pri"]) - 120, number(row["GID"])
        if row["Name"] == "":
            return row["St"] == "D" and (parent, level, uid, gid) == (0, -120, 0, 0)
        kinds = [kind for kind in range(KINDS) if row["Name"] == name_of(task, kind)]
        if kinds == [] and row["Name"] != "maker":
            return False
        # A named one may not have come to the rest yet.
        users = {FIRST_USER + kind for kind in kinds if ROOT}
        return (parent in self.makers and level in {NICE, *map(level_of, kinds)} and uid in {os.geteuid(), *users}
                and gid in {os.getegid(), *users} and (number(row["PID"]), number(row["PPID"])) == (task, parent))

    def check_numbers(self, run, views):
        """Whatever is listed by a number is of one process, whoever has that number."""
        for task, cells, row in run.sections():
            self.tally.rows += 1
            need(number(cells[7]) == task if views else number(cells[0]) == THREAD + task, row)
            if views and task != run.id and len(cells) > 8:
                self.tally.stormy += 1
                kinds = [kind for kind in range(KINDS) if cells[8] == name_of(task, kind)]
                places = [kind for kind in range(KINDS) if number(cells[1]) == place_of(kind)]
                need(kinds != [] or cells[8] == "maker", row)
                need(places in ([], kinds), row)

    def check_keeper(self, run, keeper, views, refused):
        rows = list(run.sections(keeper))
        self.tally.rows += len(rows)
        need((rows == []) == refused, f"{len(rows)} rows")
        if views:
            need(all(number(cells[7]) == keeper and cells[8] == "Self" for _, cells, _ in rows), "views of another")
        else:
            threads = {THREAD + int(thread) for thread in os.listdir(f"/proc/{keeper}/task")}
            need({number(cells[0]) for _, cells, _ in rows} == threads, "other threads than there are")


def storm(executables, own_numbers, runs, findings):
    tally = Tally(findings)
    around = Storm(tally, own_numbers)
    try:
        begin, before = time.monotonic(), around.count()
        commands = ("task", "threads", "tview", "lsisr", *(["raiseexc"] * 3 + ["pass on"] if own_numbers else []))
        for i in range(runs):
            turn, command = i // len(commands), commands[i % len(commands)]
            sanitized = turn % 11 == 10
            tally.sanitized += sanitized
            around.run(turn, command, executables[sanitized])
        seconds, processes = time.monotonic() - begin, around.count() - before
    finally:
        stayed = [child.end() for child in around.children]
    if not all(stayed):
        tally.find("one of the storm's own processes ended")
    if processes < LEAST_RATE * seconds:
        tally.find(f"not even {LEAST_RATE} processes a second")
    wrongly, rightly = around.reached()
    if wrongly:
        tally.find("a signal reached the next process of a number")
    if own_numbers and runs >= 300 and not rightly:  # by chance few of a hundred do
        tally.find("no signal reached the process that it was sent to")
    if tally.stormy == 0:
        tally.find("nothing of the storm was seen")
    print(f"{tally.runs} runs in {seconds:.1f} s, {tally.other} for another user, {tally.sanitized} sanitized; "
          f"{processes} processes started, {processes / seconds:.0f} a second"
          f"{', of the same few numbers' if own_numbers else ''}; "
          f"{tally.rows} rows, {tally.stormy} of the storm; "
          f"{len(findings)} findings", *findings, sep="\n", flush=True)
    return findings != []


def main():
    executables = [os.open(path, os.O_RDONLY) for path in sys.argv[1:3]]
    runs = int(sys.argv[3]) if len(sys.argv) > 3 else 1000
    if not ROOT:
        print("not root: all runs are for the calling user, and processes keep the numbers that they get")
    tally = Tally([])
    look_at_awkward(tally, executables)
    print(f"awkward processes: {tally.runs} runs, {len(tally.findings)} findings", flush=True)
    own_numbers = libc.unshare(OWN_MOUNTS | OWN_NUMBERS) == 0
    child = os.fork()
    if child == 0:
        failed = True
        try:
            end_with_parent()
            failed = own_numbers and not mount_own_proc(None) or storm(executables, own_numbers, runs, tally.findings)
        finally:
            os._exit(failed)
    sys.exit(os.waitpid(child, 0)[1] != 0)


main()
