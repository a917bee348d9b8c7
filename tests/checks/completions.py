#!/usr/bin/env python3
# tests/checks/completions.py - types in a real bash and a real zsh on a pseudo-terminal, and compares the lines that TAB
# completes.
#   completions.py DIRECTORY    of an installation: its bin, share and lib
import os
import pty
import re
import select
import shutil
import sys
import tempfile
import time

# In a copy of the installation, the program is a script that counts how often it is started.
copy = tempfile.TemporaryDirectory()
root = copy.name
started = os.path.join(root, "started")
for part in ("bin", "share", "lib/ventix"):
    shutil.copytree(os.path.join(sys.argv[1], part), os.path.join(root, part), symlinks=True)
program = os.path.join(root, "bin/ventix")
os.rename(program, os.path.join(root, "bin/counted"))
with open(program, "w") as script:
    script.write(f'#!/bin/bash\necho >>{started}\nexec -a ventix {root}/bin/counted "$@"\n')
os.chmod(program, 0o755)
machine = '''{"state": {"KSTATE_PAGE_SIZE": 4096}, "tasks": [%s], "devices": [{"name": "disk 1"}]}''' % ", ".join(
    '{"handle": %d, "name": "%s", "info": {"TASKINFO_FLAGS": 0, "TASKINFO_PRIORITY": 1, "TASKINFO_THREADS": 0, '
    '"TASKINFO_MEMOS": 0, "TASKINFO_ALLOC_PAGES": 1, "TASKINFO_RESERVED_PAGES": 1}}' % task
    for task in ((4097, "Web Content"), (4098, "kworker/0:1"), (4099, "it's")))

# What is typed, the line after it, and what is shown besides. No program is started for these words.
fixed = [
    ("free --rec\t", "free --reclaim ", []),  # in a fresh shell
    ("ventix tas\t\t\t", "ventix task", ["taskkill", "delete tasks"]),
    ("ventix task --acc\t", "ventix task --accumtime ", []),
    ("ventix task --p\t\t", "ventix task --p", ["--pfnum", "--parent", "Show PF"]),
    ("ventix task --style=si\t", "ventix task --style=simple ", []),
    ("ventix task --sort 2,d\t", "ventix task --sort 2,desc ", []),
    ("ventix tview --sort \t\t", "ventix tview --sort ", ["7", "Owner"]),
    ("ventix devquery disk0 QUE\t", "ventix devquery disk0 QUERY_POWER_LEVEL ", []),
    ("ventix dumpktrace -\t\t", "ventix dumpktrace -", ["at most N entries: the last N, with"]),
    ("ventix sendlog x\t", "ventix sendlog x", []),
    ("ventix help \t", "ventix help ", []),
    ("ventix --install --v\t", "ventix --install --verbose ", []),
    ("lsmem --vir\t", "lsmem --virtual ", []),
    ("VENTIX_MACHINE=fir\t", "VENTIX_MACHINE=first.json", []),
    ("export VENTIX_MACHINE=fir\t", "export VENTIX_MACHINE=first.json", []),
    ("ventix-machine ch\tfir\t", "ventix-machine check first.json ", []),
    ("ventix-machine \t\t", "ventix-machine ", ["check", "trace", "print a call log"]),
    ("ventix-machine snapshot --m\t-o fir\t", "ventix-machine snapshot --maps -o first.json ", []),
    ("ventix-machine run x --save y -- ventix upt\t", "ventix-machine run x --save y -- ventix uptime ", []),
]
# One program is started at most for each key press.
dynamic = [
    ("threads regi\t", "threads registry ", []),
    ("links/threads regi\t", "links/threads registry ", []),
    ("ventix task -n --sort \t\t", "ventix task -n --sort ", ["6", "Name"]),
    ("ventix threads netd etherd regi\t", "ventix threads netd etherd registry ", []),
    ("ventix threads \\[\t", "ventix threads \\[", []),
    ("ventix threads -P 0x101\t\t", "ventix threads -P 0x101", ["0x1016", "diskd"]),
    ("ventix tprop pr\t-P 0x1022\t", "ventix tprop prior -P 0x1022 ", []),
    ("ventix raiseexc SIG\tin\t", "ventix raiseexc SIGNAL init ", []),
    ("ventix devping rt\teth\t", "ventix devping rtc0 eth0 ", []),
    ("ventix svccall demo ec\tnu\t", "ventix svccall demo echo number=", []),
    ("ventix readreg har\tnet/\tmt\t", "ventix readreg hardware/net/eth0/mtu ", []),
    ("ventix treereg config/b\t", "ventix treereg config/boot/", []),
    ("ventix-machine run x -- ventix threads regi\t", "ventix-machine run x -- ventix threads registry ", []),
    # A machine whose words have to be quoted, and one that cannot be used.
    (("first.json", "ventix threads We\t"), "ventix threads Web\\ Content ", []),
    (("first.json", "ventix threads 'We\t"), "ventix threads 'Web Content' ", []),
    (("first.json", "ventix threads kworker/0:\t"), "ventix threads kworker/0:1 ", []),
    (("first.json", "ventix threads it\t"), "ventix threads it\\'s ", []),
    (("first.json", "ventix devping di\t"), "ventix devping disk\\ 1 ", []),
    (("nosuch.json", "ventix threads a\t"), "ventix threads a", []),
]


class Shell:
    def __init__(self, name, directory):
        self.line_file = os.path.join(directory, "line")
        start = {
            "bash": f"""PS1='READY> '; bind 'set enable-bracketed-paste off'; bind 'set bell-style none'
                        set +o history; . /usr/share/bash-completion/bash_completion
                        show() {{ printf %s "$READLINE_LINE" >{self.line_file}.new; mv {self.line_file}.new {self.line_file}; }}
                        bind -x '"\\C-xp": show'""",
            "zsh": f"""PS1='READY> '; unsetopt beep auto_menu zle_bracketed_paste prompt_cr prompt_sp
                       fpath=({root}/share/zsh/site-functions $fpath); autoload -U compinit; compinit -u -d {directory}/dump
                       zle -N show; show() {{ print -rn -- "$BUFFER" >{self.line_file}.new; mv {self.line_file}.new {self.line_file}; }}
                       bindkey '^Xp' show; bindkey -e; bindkey '^Xp' show""",
        }[name]
        rc = os.path.join(directory, "rc")
        with open(rc, "w") as file:
            file.write(start + "\n")
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.chdir(directory)
            environment = {"PATH": f"{root}/lib/ventix/bin:{root}/bin:/usr/bin:/bin", "HOME": directory,
                           "XDG_DATA_DIRS": f"{root}/share:/usr/share", "TERM": "dumb", "COLUMNS": "200", "LANG": "C.UTF-8",
                           "VENTIX_MACHINE": f"{root}/share/ventix/machines/demo.json"}
            words = {"bash": ["bash", "--norc", "-i"], "zsh": ["zsh", "-f", "-i"]}[name]
            os.execvpe(words[0], words, environment)
        self.type(f" . {rc}\n")
        self.screen_until("READY> ", 60)

    def type(self, text):
        os.write(self.terminal, text.encode())

    def screen_until(self, wanted, seconds):
        screen, end = "", time.monotonic() + seconds
        while wanted not in screen and time.monotonic() < end:
            if select.select([self.terminal], [], [], 0.05)[0]:
                screen += os.read(self.terminal, 65536).decode(errors="replace")
        return screen

    # The line as the shell has it once all that was typed is done, and what came on the screen until then.
    def line(self):
        self.type("\x18p")
        screen, end = "", time.monotonic() + 60
        while not os.path.exists(self.line_file):
            assert time.monotonic() < end, f"the shell does not answer: {screen!r}"
            screen += self.screen_until("READY> ", 0.1)
        with open(self.line_file) as file:
            line = file.read()
        os.unlink(self.line_file)
        return line, screen

    # Types, and returns the line, what was shown, and how often a program was started beyond once for each key.
    def complete(self, keys):
        line = shown = ""
        starts = most = 0
        for part in re.split(r"(?<=\t)(?!\t)", keys):
            self.type(part)
            line, screen = self.line()
            shown += screen
            here = os.path.getsize(started)
            os.truncate(started, 0)
            starts += here
            most = max(most, here - part.count("\t"))
        self.type("\x15\x0b")  # what was typed is not run
        self.line()
        return line, shown, starts, most


open(started, "w").close()
failed = 0
for name in ("bash", "zsh"):
    with tempfile.TemporaryDirectory() as directory:
        with open(os.path.join(directory, "first.json"), "w") as file:
            file.write(machine)
        os.mkdir(os.path.join(directory, "links"))
        os.symlink(program, os.path.join(directory, "links/threads"))
        shell = Shell(name, directory)
        current = None
        for keys, expected, shown in fixed + dynamic:
            is_fixed = (keys, expected, shown) in fixed
            wanted, keys = keys if isinstance(keys, tuple) else (None, keys)
            if wanted != current:
                shell.type(f" export VENTIX_MACHINE={wanted}\n")
                shell.line()
                current = wanted
            line, screen, starts, most = shell.complete(keys)
            if line.rstrip() != expected.rstrip() or any(text not in screen for text in shown):
                print(f"{name}: {keys!r} gave {line!r}, not {expected!r}; on the screen: {screen!r}, expected: {shown}")
                failed += 1
            if (starts > 0) == is_fixed or most > 0:
                print(f"{name}: {keys!r} started {starts} programs")
                failed += 1
        os.close(shell.terminal)
        os.waitpid(shell.pid, 0)
sys.exit(failed > 0)
