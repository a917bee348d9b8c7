// tests/hosted/live/processes_test.cpp - tasks and threads of the live machine. Every call that acts names a child of
// the test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <thread>

#include "hosted/live/handles.h"
#include "hosted/live/process_table.h"
#include "own_child.h"
#include "platform/kernel.h"
#include "system_tree.h"

using namespace hosted;
using live::process_table;

namespace {

uint64_t item_of(process_table &table, uint64_t handle, uint64_t item) {
    live::process *found = nullptr;
    uint64_t value = ~uint64_t{0};
    if (table.find(handle, found) == RESULT_SUCCESS) found->item(item, value);
    return value;
}

// The published names of the processes.
std::map<int, std::string> published(process_table &table) {
    std::map<int, std::string> names;
    process_table::listing listing(table);
    EXPECT_EQ(listing.begin(), 0);
    const std::string *name = nullptr;
    while (const int id = listing.next(name)) names[id] = *name;
    return names;
}

TEST(LiveProcesses, ItemsAgreeWithTheSystem) {
    own_child child([](own_child &self) {
        static int word = 0;
        setpgid(0, 0);
        setpriority(PRIO_PROCESS, 0, 15);
        self.say(reinterpret_cast<intptr_t>(&word));
        const auto rest = [&self] {
            self.say(gettid());
            syscall(SYS_futex, &word, 0 /* wait */, 0, nullptr, nullptr, 0);
        };
        std::thread(rest).detach();
        std::thread(rest).detach();
    });
    const auto awaited = static_cast<uint64_t>(child.heard());
    for (int i = 0; i < 2; ++i) await_state(static_cast<int>(child.heard()), "S");
    await_state(child.id(), "S");
    process_table table;
    const auto pages = [&](const char *key) {
        return number_of(child.id(), key) * 1024 / static_cast<uint64_t>(getpagesize());
    };
    const std::map<uint64_t, uint64_t> wanted = {
        {OBJINFO_HANDLE, child.handle()},
        {OBJINFO_STATE, TASKSTATE_BLOCKED},
        {TASKINFO_PRIORITY, 135},
        {TASKINFO_THREADS, 3},
        {TASKINFO_ALLOC_PAGES, pages("VmRSS:")},
        {TASKINFO_VIRT_PAGES, pages("VmSize:")},
        {TASKINFO_RESERVED_PAGES, pages("VmData:") + pages("VmStk:")},
        {TASKINFO_GROUP, child.handle()},
        {TASKINFO_PARENT, static_cast<uint64_t>(getpid())},
        {TASKINFO_IDS, (getegid() & 0xFFFFu) << 16 | (geteuid() & 0xFFFFu)},
        {TASKINFO_FLAGS, geteuid() == 0 ? uint64_t{TASKFLAG_SUPER} : 0},
        {TASKINFO_SLAB_U, ~uint64_t{0}},  // unknown here: fails
    };
    for (const auto &[item, value] : wanted) EXPECT_EQ(item_of(table, child.handle(), item), value) << item;

    uint64_t voluntary = 0;
    std::set<uint64_t> threads;
    live::process *owner = nullptr;
    uint64_t result = table.find(child.handle(), owner);
    ASSERT_EQ(result, RESULT_SUCCESS);
    const auto walk = table.walk_threads(*owner, result);
    ASSERT_NE(walk, nullptr);
    while (walk->step() == RESULT_SUCCESS) {
        std::map<uint64_t, uint64_t> got;
        for (const uint64_t which : {OBJINFO_HANDLE, OBJINFO_STATE, OBJINFO_OWNER, THREADINFO_PC, THREADINFO_STACKPTR,
                                     THREADINFO_WAITON, THREADINFO_VOLCTXSW_LO}) {
            EXPECT_EQ(walk->info(which, got[which]), RESULT_SUCCESS);
        }
        const int id = static_cast<int>(got[OBJINFO_HANDLE] - live::THREAD_HANDLES.first);
        threads.insert(got[OBJINFO_HANDLE]);
        EXPECT_EQ(got[OBJINFO_STATE], THREADSTATE_WAIT);
        EXPECT_EQ(got[OBJINFO_OWNER], child.handle());
        EXPECT_TRUE(got[THREADINFO_PC] != 0 && got[THREADINFO_STACKPTR] != 0);
        EXPECT_EQ(got[THREADINFO_WAITON], id == child.id() ? 0 : awaited);
        EXPECT_EQ(got[THREADINFO_VOLCTXSW_LO], number_of(id, "voluntary_ctxt_switches:"));
        voluntary += got[THREADINFO_VOLCTXSW_LO];
        EXPECT_EQ(table.find(static_cast<uint64_t>(id), owner), id == child.id() ? RESULT_SUCCESS : RESULT_NO_OBJECT);
        live::thread *named = nullptr;
        EXPECT_EQ(table.find_thread(got[OBJINFO_HANDLE], named), RESULT_SUCCESS);
    }
    EXPECT_EQ(threads.size(), 3u);
    EXPECT_EQ(item_of(table, child.handle(), TASKINFO_VOLCTXSW_LO), voluntary);
}

TEST(LiveProcesses, StatesAndEndedProcesses) {
    own_child stopped([](own_child &) { raise(SIGSTOP); });
    own_child busy([](own_child &) {
        for (std::atomic<unsigned> i = 0;;) i++;
    });
    own_child zombie([](own_child &) { _exit(0); });
    own_child gone;
    await_state(stopped.id(), "T");
    await_state(busy.id(), "R");
    await_state(zombie.id(), "Z");
    process_table table;
    uint64_t result = 0;
    const auto walk = table.walk_all(result);
    std::map<uint64_t, uint64_t> states;
    while (walk->step() == RESULT_SUCCESS) {
        uint64_t handle = 0, state = 0, value = 77;
        EXPECT_EQ(walk->info(OBJINFO_HANDLE, handle), RESULT_SUCCESS);
        if (handle == gone.handle()) {  // ends as the walk's current process
            kill(gone.id(), SIGKILL);
            gone.reap();
            for (const uint64_t item : {TASKINFO_PRIORITY, TASKINFO_FLAGS, TASKINFO_IDS, TASKINFO_MEMOS,
                                        TASKINFO_RESERVED_PAGES, TASKINFO_SYSCALLS_LO, TASKINFO_VOLCTXSW_LO}) {
                EXPECT_EQ(walk->info(item, value), RESULT_SUCCESS);
                EXPECT_EQ(value, 0u) << item;
            }
            EXPECT_EQ(walk->info(OBJINFO_HANDLE, value), RESULT_SUCCESS);
            EXPECT_EQ(value, gone.handle());
        }
        EXPECT_EQ(walk->info(OBJINFO_STATE, state), RESULT_SUCCESS);
        states[handle] = state;
    }
    uint64_t value = 0;
    EXPECT_EQ(walk->info(OBJINFO_HANDLE, value), RESULT_NO_ITEM);
    EXPECT_EQ(walk->step(), RESULT_NO_ITEM);
    for (const auto &[handle, state] : {std::pair(gone.handle(), TASKSTATE_DELETED),
                                        {stopped.handle(), TASKSTATE_BLOCKED},
                                        {busy.handle(), TASKSTATE_READY},
                                        {zombie.handle(), TASKSTATE_ZOMBIE},
                                        {static_cast<uint64_t>(getpid()), TASKSTATE_RUNNING}}) {
        EXPECT_TRUE(states.contains(handle));
        EXPECT_EQ(states[handle], state);
    }
    EXPECT_EQ(item_of(table, gone.handle(), OBJINFO_HANDLE), ~uint64_t{0});
}

// Half of its state is released already and reads as -1.
TEST(LiveProcesses, Exiting) {
    system_tree tree;
    tree.put("proc/301/status", "Name:\tlast\nTgid:\t301\n");
    tree.put("proc/301/stat", "301 (last) X 0 -1 -1 0 -1 4 7 0 0 0 1 1 0 0 20 0 0 0 99 0 0 0 0\n");
    process_table table(tree.roots.proc);
    EXPECT_EQ(item_of(table, 301, OBJINFO_STATE), TASKSTATE_DELETED);
    for (const uint64_t item : {TASKINFO_GROUP, TASKINFO_PRIORITY, TASKINFO_PAGEFAULTS_LO, TASKINFO_IDS})
        EXPECT_EQ(item_of(table, 301, item), 0u) << item;
    const std::string *name = nullptr;
    EXPECT_EQ(table.name(301, name), RESULT_NO_OBJECT);
}

// Nothing that was read or summed for one row carries over to the next.
TEST(LiveProcesses, EachRowReportsItsOwnProcess) {
    system_tree tree;
    for (const int id : {301, 302, 303}) {
        const std::string number = std::to_string(id), at = "proc/" + number;
        tree.put(at + "/stat", number + " (many) S 0 0 0 0 0 0 0 0 0 0 0 0 0 0 20 0 2 0 0 0 0");
        tree.put(at + "/io", "rchar: 1\nsyscr: " + number + "\nsyscw: 1\n");
        tree.put(at + "/statm", "0 0 0 0 0 " + number);
        for (const char *thread : {"/task/1/status", "/task/2/status"})
            tree.put(at + thread, "\nvoluntary_ctxt_switches: " + number + "\nnonvoluntary_ctxt_switches: 1\n");
        std::string maps;
        for (const char *file : {"1", "2", "1", "2", "0"}) maps += std::string("1-2 r--p 0 8:1 ") + file + '\n';
        tree.put(at + "/maps", maps + (id == 302 ? "1-2 r--p 0 8:1 3\n" : ""));
        tree.put(at + "/task/" + number + "/stat", number + " (many) S 0 0 0 0 0 0 0 0 0 0 30 40 0 0 20 0 2 0 0 0 0");
        static_cast<void>(!chown(tree.path(at).c_str(), 70000, 65535));
    }
    process_table table(tree.roots.proc);
    uint64_t result = 0;
    const auto walk = table.walk_all(result);
    std::set<uint64_t> rows;
    for (uint64_t id = 0, value = 0; walk->step() == RESULT_SUCCESS; rows.insert(id)) {
        EXPECT_EQ(walk->info(OBJINFO_HANDLE, id), RESULT_SUCCESS);
        if (id == 1) continue;  // listed as a task even where it is hidden
        const std::map<uint64_t, uint64_t> wanted = {
            {TASKINFO_SYSCALLS_LO, id + 1},
            {TASKINFO_RESERVED_PAGES, id},
            {TASKINFO_MEMOS, id == 302 ? 4 : 3},
            {TASKINFO_VOLCTXSW_LO, 2 * id},
            {TASKINFO_INVCTXSW_LO, 2},
            {TASKINFO_IDS,
             geteuid() == 0 ? uint64_t{65535} << 16 | 65534 : (getegid() & 0xFFFFu) << 16 | (geteuid() & 0xFFFFu)},
        };
        for (const auto &[item, figure] : wanted) {
            EXPECT_EQ(walk->info(item, value), RESULT_SUCCESS);
            EXPECT_EQ(value, figure) << id << ' ' << item;
        }
        live::thread *thread = nullptr;
        EXPECT_EQ(table.find_thread(live::THREAD_HANDLES.first + id, thread), RESULT_SUCCESS);
        EXPECT_EQ(thread->item(THREADINFO_EXETIME, value), RESULT_SUCCESS);
        EXPECT_EQ(value, table.root().milliseconds(70)) << id;
    }
    EXPECT_EQ(rows, (std::set<uint64_t>{1, 301, 302, 303}));
}

TEST(LiveProcesses, NoDescriptorIsLeft) {
    own_child child([](own_child &self) {
        process_table table, fresh;
        uint64_t result = 0, value = 0;
        table.walk_all(result)->step();  // the sanitizer needs descriptors when it meets a type for the first time
        const auto walk = table.walk_all(result);
        const int next = dup(0);
        close(next);
        const rlimit none_left{static_cast<rlim_t>(next), static_cast<rlim_t>(next)};
        setrlimit(RLIMIT_NOFILE, &none_left);
        size_t rows = 0, failed = 0;
        for (; walk->step() == RESULT_SUCCESS; ++rows) {
            const bool listed = walk->info(OBJINFO_HANDLE, value) == RESULT_SUCCESS;
            for (const uint64_t item : {OBJINFO_STATE, TASKINFO_RESERVED_PAGES, TASKINFO_MEMOS, TASKINFO_VOLCTXSW_LO})
                failed += listed && walk->info(item, value) == RESULT_NO_MEMORY;
        }
        self.say(rows > 1 && failed == 4 * rows);
        const std::string *name = nullptr;
        self.say(static_cast<int64_t>(fresh.name(static_cast<uint64_t>(getpid()), name)));
        self.say(process_table::listing(fresh).begin() == EMFILE ? RESULT_NO_MEMORY : RESULT_SUCCESS);
        self.say(fresh.walk_all(result) == nullptr ? static_cast<int64_t>(result) : 0);
    });
    EXPECT_EQ(child.heard(), 1);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(child.heard(), static_cast<int64_t>(RESULT_NO_MEMORY));
}

// Where the main thread has ended, memory and arguments are read from a living thread.
TEST(LiveProcesses, AfterTheMainThreadHasEnded) {
    own_child child([](own_child &self) {
        std::thread([&self] {
            await_state(getpid(), "Z");
            self.say(1);
            while (true) pause();
        }).detach();
        syscall(SYS_exit, 0);
    });
    child.heard();
    process_table table;
    for (const uint64_t item : {TASKINFO_ALLOC_PAGES, TASKINFO_RESERVED_PAGES, TASKINFO_VIRT_PAGES, TASKINFO_MEMOS})
        EXPECT_GT(item_of(table, child.handle(), item), 1u) << item;
    EXPECT_EQ(item_of(table, child.handle(), OBJINFO_STATE), TASKSTATE_ZOMBIE);
}

TEST(LiveProcesses, Names) {
    const auto renamed = [](const char *name) {
        return [name](own_child &self) {
            prctl(PR_SET_NAME, name);
            self.say(1);
        };
    };
    own_child odd(renamed("a)(b\n\x1b\xc2\x9b\x9b\xe2\x80\xae\xc3\xa9")), empty(renamed("")),
        full(renamed("exactly-fifteen"));
    const auto path_of = [](int id) { return "/tmp/live-name-that-is-cut-" + std::to_string(id); };
    const auto run_as = [&](bool script) {
        return [&path_of, script](own_child &self) {
            const std::string path = path_of(getpid());
            if (symlink("/usr/bin/tail", path.c_str()) == 0) self.say(1);
            execl(path.c_str(), script ? "tail" : path.c_str(), "-fc0", script ? path.c_str() : "/dev/null",
                  static_cast<char *>(nullptr));
        };
    };
    const scratch_directory scratch;
    const std::string marked_path = scratch.path() + "/live-name-not (deleted)";
    std::filesystem::copy_file("/usr/bin/tail", marked_path);
    own_child cut(run_as(false)), script(run_as(true)), marked([&](own_child &self) {
        self.say(1);
        execl(marked_path.c_str(), "tail", "-fc0", "/dev/null", static_cast<char *>(nullptr));
    });
    for (own_child *one : {&odd, &empty, &full, &cut, &script, &marked}) one->heard();
    for (const int id : {cut.id(), script.id(), marked.id()}) {
        for (int i = 0; i < 5000 && !status_of(id, "Name:").starts_with("live-name-"); ++i) usleep(1000);
        await_state(id, "S");  // its arguments come after its name
        unlink(path_of(id).c_str());
    }

    const std::map<int, std::string> wanted = {{odd.id(), "a)(b????????\xc3\xa9"},
                                               {empty.id(), ""},
                                               {full.id(), "exactly-fifteen"},
                                               {cut.id(), path_of(cut.id()).substr(5)},
                                               {script.id(), path_of(script.id()).substr(5)},
                                               {marked.id(), "live-name-not (deleted)"}};
    process_table listed, looked_up;
    auto names = published(listed);
    for (const auto &[id, name] : wanted) {
        EXPECT_EQ(names[id], name);
        const std::string *found = nullptr;
        ASSERT_EQ(looked_up.name(static_cast<uint64_t>(id), found), RESULT_SUCCESS);
        EXPECT_EQ(*found, name);
    }
    prctl(PR_SET_NAME, "changed");  // a name is read once per run
    const std::string before = names[getpid()];
    EXPECT_EQ(published(listed)[getpid()], before);
}

TEST(LiveProcesses, EndsOneProcessNotItsGroup) {
    own_child child([](own_child &self) {
        setpgid(0, 0);
        self.say(1);
    });
    child.heard();
    own_child in_its_group([&](own_child &self) {
        setpgid(0, child.id());
        self.say(1);
    });
    in_its_group.heard();
    process_table table;
    EXPECT_EQ(table.end(static_cast<uint64_t>(getpid())), RESULT_SUCCESS);  // only agreed to
    EXPECT_EQ(table.end(0 - child.handle()), RESULT_NO_OBJECT);
    EXPECT_TRUE(child.is_alive());
    EXPECT_EQ(table.end(child.handle()), RESULT_SUCCESS);
    EXPECT_TRUE(in_its_group.is_alive());
    EXPECT_TRUE(WIFSIGNALED(child.reap()));
}

#if defined(__x86_64__)
// A 64-bit program that makes calls by the 32-bit interface: a futex, and a waitpid that has the number of poll.
TEST(LiveProcesses, CallsByTheInterfaceOf32Bits) {
    const struct {
        int number;
        bool waits;
    } calls[] = {{240, true}, {7, false}};
    for (const auto &call : calls) {
        own_child child([&](own_child &self) {
            const own_child awaited([](own_child &one) { one.say(1); });
            awaited.heard();  // from here on it ends with this one
            auto word = reinterpret_cast<uintptr_t>(
                mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0));
            self.say(static_cast<int64_t>(word));
            uint64_t result = static_cast<uint64_t>(call.number);
            if (!call.waits) word = UINT32_MAX;  // any child
            asm volatile("int $0x80"
                         : "+a"(result)
                         : "b"(word), "c"(0), "d"(0), "S"(0)
                         : "memory", "r8", "r9", "r10", "r11");
            _exit(1);
        });
        const int64_t word = child.heard();
        for (int i = 0; i < 5000 && status_of(child.id(), "State:") == "R"; ++i) usleep(1000);
        if (status_of(child.id(), "State:") == "Z") {
            ASSERT_TRUE(WIFSIGNALED(child.reap()));
            GTEST_SKIP() << "no such interface here";
        }
        process_table table;
        live::thread *waiting = nullptr;
        uint64_t value = 1;
        ASSERT_EQ(table.find_thread(live::THREAD_HANDLES.first + child.handle(), waiting), RESULT_SUCCESS);
        EXPECT_EQ(waiting->item(THREADINFO_WAITON, value), RESULT_SUCCESS);
        EXPECT_EQ(static_cast<int64_t>(value), call.waits ? word : 0);
    }
}
#endif

// Reuses the number of an ended process, in a process namespace of the test's own.
TEST(LiveProcesses, AHandleStaysWithItsProcess) {
    const auto pass_on = [](own_child &self) {
        const bool ready =
            mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 && mount("proc", "/proc", "proc", 0, nullptr) == 0;
        std::optional<own_child> first(std::in_place);
        const int id = first->id();
        process_table knows, never_listed, looks;
        const bool seen = published(knows).contains(id) && item_of(looks, first->handle(), TASKINFO_PARENT) == 1;
        first.reset();
        usleep(50000);  // start times count hundredths of a second
        const auto make_again = [id](std::optional<own_child> &again) {
            std::ofstream("/proc/sys/kernel/ns_last_pid") << id - 1;
            again.emplace();
        };
        std::optional<own_child> second, third;
        make_again(second);
        self.say(ready && second->id() == id);
        const std::string *name = nullptr;
        const auto handle = static_cast<uint64_t>(id);
        self.say(seen);
        self.say(static_cast<int64_t>(knows.raise(handle, EXC_SIGNAL, SIGKILL)));
        self.say(static_cast<int64_t>(knows.end(handle)));
        self.say(static_cast<int64_t>(looks.name(handle, name)));  // not the second's name beside the first's figures
        self.say(second->is_alive());
        // From here on the handle names the second. Its end is not that of the third, which has its name, too.
        const auto end_listed = [&] { return published(knows).contains(id) ? knows.end(handle) : ~uint64_t{0}; };
        self.say(static_cast<int64_t>(end_listed()));
        self.say(published(knows).contains(id));
        second.reset();
        usleep(50000);
        make_again(third);
        self.say(static_cast<int64_t>(end_listed()));
        self.say(WTERMSIG(third->reap()));
        third.reset();
        make_again(third);
        self.say(static_cast<int64_t>(never_listed.end(handle)));
    };
    own_child outside([&](own_child &self) {
        if (unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) _exit(1);
        const own_child inside([&](own_child &) { pass_on(self); });
        while (true) pause();
    });
    if (outside.heard() != 1) GTEST_SKIP() << "the next process number cannot be chosen";
    for (const uint64_t wanted :
         std::initializer_list<uint64_t>{true, RESULT_NO_OBJECT, RESULT_NO_OBJECT, RESULT_NO_OBJECT, true,
                                         RESULT_SUCCESS, false, RESULT_SUCCESS, SIGKILL, RESULT_SUCCESS}) {
        EXPECT_EQ(outside.heard(), static_cast<int64_t>(wanted));
    }
}

// A foreign process file system shows numbers that name other processes here.
TEST(LiveProcesses, NothingActsThroughAForeignProc) {
    own_child outside([](own_child &self) {
        if (unshare(CLONE_NEWPID) != 0) _exit(1);
        const own_child inside([&](own_child &) {
            const own_child victim;
            process_table table;
            for (const uint64_t result :
                 {table.end(victim.handle()), table.raise(victim.handle(), EXC_SIGNAL, SIGKILL)})
                self.say(result != RESULT_SUCCESS);
            self.say(victim.is_alive());
        });
        while (true) pause();
    });
    const int64_t first = outside.heard();
    if (first < 0) GTEST_SKIP() << "there are no process numbers of its own";
    EXPECT_TRUE(first == 1 && outside.heard() == 1 && outside.heard() == 1);
}

TEST(LiveProcesses, ExceptionsAreSignals) {
    own_child child([](own_child &self) {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_SETMASK, &all, nullptr);
        self.say(1);
        while (true) {
            siginfo_t info{};
            if (sigwaitinfo(&all, &info) < 0) continue;
            self.say(info.si_signo);
            self.say(info.si_code == SI_QUEUE ? reinterpret_cast<intptr_t>(info.si_value.sival_ptr) : 0);
        }
    });
    child.heard();
    process_table table;
    const struct {
        uint64_t exception, parameter;
        int signal;  // 0: refused
    } cases[] = {{EXC_USR1, 7, SIGUSR1},
                 {EXC_USR3, ~uint64_t{0} >> 1, SIGRTMIN + 3},
                 {EXC_SIGNAL, 0, 0},
                 {EXC_USR2, 0, SIGUSR2},
                 {EXC_SIGNAL, (uint64_t{1} << 32) + 9, 0},
                 {EXC_SIGNAL, 65, 0},
                 {EXC_SIGNAL, 15, 15},
                 {EXC_USR4, 1, SIGRTMIN + 4},
                 {0, 0, 0},
                 {EXC_SIGNAL, 64, 64},
                 {EXC_DEBUGCONSOLE, 0, 0},
                 {EXC_LIMIT, 0, 0}};
    for (const auto &[exception, parameter, signal] : cases) {
        const uint64_t result = table.raise(child.handle(), exception, parameter);
        ASSERT_EQ(result, signal == 0 ? RESULT_BAD_ARGUMENT : RESULT_SUCCESS) << exception << ' ' << parameter;
        if (signal == 0) continue;
        EXPECT_EQ(child.heard(), signal);
        EXPECT_EQ(child.heard(), exception == EXC_SIGNAL ? 0 : static_cast<int64_t>(parameter));
    }
    EXPECT_TRUE(child.is_alive());
}

TEST(LiveProcesses, PriorityOfEveryThread) {
    own_child child([](own_child &self) {
        std::thread([&self] {
            const sched_param none{};
            sched_setscheduler(0, SCHED_OTHER | SCHED_RESET_ON_FORK, &none);
            self.say(gettid());
            while (true) pause();
        }).detach();
    });
    const int second = static_cast<int>(child.heard());
    process_table table;
    auto set = static_cast<uint64_t>(120 + getpriority(PRIO_PROCESS, 0));
    for (const uint64_t wanted : {uint64_t{121}, uint64_t{139}, uint64_t{140}, ~uint64_t{0}, uint64_t{99},
                                  uint64_t{100}, uint64_t{98}, uint64_t{50}, uint64_t{0}, uint64_t{120}}) {
        const uint64_t result = table.set_priority(child.handle(), wanted);
        if (result == RESULT_NOT_PERMITTED && wanted < set) continue;  // an unprivileged run may only go down
        EXPECT_EQ(result, wanted <= 139 && wanted != 99 ? RESULT_SUCCESS : RESULT_BAD_ARGUMENT) << wanted;
        if (result == RESULT_SUCCESS) set = wanted;
        EXPECT_EQ(item_of(table, child.handle(), TASKINFO_PRIORITY), set) << wanted;
        for (const int thread : {child.id(), second}) {
            sched_param level{};
            sched_getparam(thread, &level);
            const int kept = thread == second ? SCHED_RESET_ON_FORK : 0;
            EXPECT_EQ(sched_getscheduler(thread), (set < 100 ? SCHED_RR : SCHED_OTHER) | kept) << wanted;
            EXPECT_EQ(level.sched_priority, set < 100 ? 99 - static_cast<int>(set) : 0) << wanted;
            EXPECT_TRUE(set < 100 ||
                        getpriority(PRIO_PROCESS, static_cast<id_t>(thread)) + 120 == static_cast<int>(set));
        }
    }
}

// A deadline has no priority: only its current value is accepted, which changes nothing.
TEST(LiveProcesses, PriorityOfADeadline) {
    constexpr int deadline = 6;
    own_child child([](own_child &self) {
        const struct {
            uint32_t size, policy;
            uint64_t flags, nice_and_priority, runtime, period[2];
        } wanted = {sizeof wanted, deadline, 0, 0, 1'000'000, {10'000'000, 10'000'000}};
        self.say(syscall(SYS_sched_setattr, 0, &wanted, 0));
    });
    if (child.heard() != 0) GTEST_SKIP() << "may not schedule by deadlines";
    process_table table;
    for (const uint64_t wanted : {0U, 50U, 120U})
        EXPECT_EQ(table.set_priority(child.handle(), wanted), wanted == 0 ? RESULT_SUCCESS : RESULT_NOT_PERMITTED);
    EXPECT_EQ(sched_getscheduler(child.id()), deadline);
}

// Another user's view, with the process file system mounted so that it hides what is not one's own.
TEST(LiveProcesses, HiddenProcesses) {
    own_child foreign;
    for (const char *options : {"hidepid=1", "hidepid=2"}) {
        own_child viewer([&](own_child &self) {
            const bool ready = unshare(CLONE_NEWNS) == 0 && mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                               mount("proc", "/proc", "proc", 0, options) == 0 && setresgid(65534, 65534, 65534) == 0 &&
                               setresuid(65534, 65534, 65534) == 0;
            self.say(ready ? 1 : 0);
            process_table table;
            self.say(published(table).contains(foreign.id()) ? 0 : 1);
            self.say(static_cast<int64_t>(table.end(foreign.handle())));
            uint64_t result = 0, first = 0, state = 0;
            const auto walk = table.walk_all(result);
            const bool shown = walk->step() == RESULT_SUCCESS && walk->info(OBJINFO_HANDLE, first) == RESULT_SUCCESS &&
                               walk->info(OBJINFO_STATE, state) == RESULT_SUCCESS;
            self.say(shown && first == 1 && state == TASKSTATE_BLOCKED);
            self.say(static_cast<int64_t>(table.end(1)));
        });
        if (viewer.heard() != 1) GTEST_SKIP() << "no right to mount";
        const bool hidden = std::string(options) == "hidepid=2";
        EXPECT_EQ(viewer.heard(), 1) << options;
        EXPECT_EQ(viewer.heard(), static_cast<int64_t>(hidden ? RESULT_NO_OBJECT : RESULT_NOT_PERMITTED)) << options;
        EXPECT_EQ(viewer.heard(), 1) << options;
        EXPECT_EQ(viewer.heard(), static_cast<int64_t>(RESULT_NOT_PERMITTED)) << options;
        EXPECT_TRUE(foreign.is_alive());
    }
}

}  // namespace
