#!/usr/bin/env python3
# tests/storm/attached.py - many processes on one running machine: they attach, run random commands and leave, while
# some are killed and some are stopped for a while at random moments.
#   attached.py VENTIX [PROCESSES [RUNS [SEED]]]     default: 64 processes, 200 runs each
# VENTIX is the built executable, with ventix-machine beside it. Ends with 1, and says why, where a command hangs or
# prints what none of the orders of the runs prints, or where the machine does not release what it held.
import os, random, re, signal, subprocess, sys, tempfile, threading, time

ventix = os.path.abspath(sys.argv[1])
processes, runs, seed = (int(given) for given in (sys.argv[2:] + ["64", "200", str(time.time_ns())][len(sys.argv) - 2 :]))
LIMIT = 300  # seconds for one command, on a machine that does much else
COMMANDS = {
    "task -S raw -n": rb"Handle Pri", "devping rtc0 eth0 disk0": rb"^$", "sendlog storm": rb"^$",
    "readlog": rb".", "counters eth0 0": rb"rx_|:", "svcinfo demo": rb".", "treereg run": rb"\|-- proc",
    "lsmem": rb".", "threads -A": rb".?", "free": rb".", "devquery eth0 PING": rb"Result", "date -D rtc0": rb".",
}
print(f"seed {seed}")
failures = []


def fail(what):
    failures.append(what)
    print(what, flush=True)


def work(number, environment):
    chance = random.Random(seed * 1000 + number)
    for _ in range(runs):
        command = chance.choice(list(COMMANDS))
        child = subprocess.Popen([ventix, *command.split()], env=environment, stdin=subprocess.DEVNULL,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        killed = number < 8 and chance.random() < 0.3
        if number < 12 and (killed or chance.random() < 0.3):
            time.sleep(chance.random() * 0.02)
            child.send_signal(signal.SIGKILL if killed else signal.SIGSTOP)
            time.sleep(chance.random() * 0.1)
            child.send_signal(signal.SIGCONT)
        try:
            printed, said = child.communicate(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            child.kill()
            return fail(f"{command}: hangs")
        if not killed and not re.search(COMMANDS[command], printed):
            fail(f"{command}: status {child.returncode}: {printed!r} {said!r}")
        if b"Sanitizer" in said:
            fail(f"{command}: {said.decode(errors='replace')}")


with tempfile.TemporaryDirectory() as directory:
    socket = directory + "/socket"
    environment = {"PATH": "/usr/bin:/bin", "VENTIX_MACHINE": socket, "ASAN_OPTIONS": "detect_leaks=0"}
    demo = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../machines/demo.json")
    machine = subprocess.Popen([os.path.join(os.path.dirname(ventix), "ventix-machine"), "run", "--verbose", "--socket",
                                socket, demo], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment)
    machine.stdout.readline()
    workers = [threading.Thread(target=work, args=(number, environment)) for number in range(processes)]
    for worker in workers: worker.start()
    for worker in workers: worker.join()
    machine.send_signal(signal.SIGTERM)
    said = machine.communicate(timeout=LIMIT)[1].decode(errors="replace")
    if machine.returncode != 0: fail(f"the machine ended with {machine.returncode}")
    counts = re.findall(r"tasks 0, connections 0, handles 0, blocks 0, descriptors (\d+)\n", said)
    if len(counts) != 2 or counts[0] != counts[1]: fail("something is left")
    if "Sanitizer" in said: fail("the machine: a finding")
    print(said, end="")
sys.exit(1 if failures else 0)
