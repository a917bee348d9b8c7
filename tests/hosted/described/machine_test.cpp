// A described machine under the kernel's calls, its files, and what a saved machine keeps of a run.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hosted/boot.h"
#include "hosted/kernel/entry.h"
#include "platform/protocol/log.h"
#include "platform/protocol/terminal.h"
#include "platform/registry.h"
#include "platform/sysvc.h"
#include "platform/terminal.h"
#include "run_ventix.h"

namespace {

// A machine of some text, running under this process's kernel until it is saved or its scope ends.
class described {
public:
    explicit described(const std::string &text) {
        hosted::fault_list faults;
        std::string message;
        auto made = hosted::make_described_machine(scratch_.write("lab.json", text), saved_, faults, message);
        EXPECT_TRUE(made) << message;
        if (made) hosted::install(std::move(made), std::move(faults));
    }
    ~described() {
        g_registry_device = g_sysvc_device = nullptr;
        hosted::shut_down();
    }
    described(const described &) = delete;
    described &operator=(const described &) = delete;

    std::string saved() {
        std::string message;
        EXPECT_TRUE(hosted::running().machine().save(message)) << message;
        return read_file(saved_);
    }

private:
    scratch_directory scratch_;
    std::string saved_ = scratch_.file("saved.json");
};

// Value of an item, or the result code that reading it fails with behind FAILED.
constexpr uint64_t FAILED = uint64_t{0xF} << 60;
uint64_t info(uint64_t handle, uint64_t item) {
    uint64_t value = 0;
    const uint64_t result = _SL_GetObjectInfo(handle, item, &value);
    return result == RESULT_SUCCESS ? value : FAILED | result;
}
uint64_t data(uint64_t group, uint64_t index) {
    uint64_t value = 0;
    const uint64_t result = _SL_GetSystemData(group, index, &value);
    return result == RESULT_SUCCESS ? value : FAILED | result;
}

// Handles of a walk; each may be acted on while the walk stands on it.
std::vector<uint64_t> walked(uint64_t parent, uint64_t kind, void (*act)(uint64_t) = nullptr) {
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    EXPECT_EQ(_SL_BeginIterator(iterator, parent, kind), RESULT_SUCCESS);
    std::vector<uint64_t> handles;
    uint64_t handle = 0;
    while (_SL_StepIterator(iterator) == RESULT_SUCCESS &&
           _SL_GetIteratorInfo(iterator, OBJINFO_HANDLE, &handle) == RESULT_SUCCESS) {
        handles.push_back(handle);
        if (act != nullptr) act(handle);
    }
    _SL_DeleteObject(iterator, DELETE_HANDLE);
    return handles;
}

std::vector<std::string> listed(const char *path) {
    RegIterator record;
    std::vector<std::string> names;
    if (!RegItBegin(GetRegDev(), &record, path)) return {"no directory"};
    for (bool more = true; more && record.on_entry; more = RegItNext(GetRegDev(), &record)) {
        names.push_back(std::string(record.name) + ":" + std::to_string(record.type) + ":" +
                        std::to_string(record.length));
    }
    RegItEnd(GetRegDev(), &record);
    return names;
}

using handles = std::vector<uint64_t>;
using names = std::vector<std::string>;

constexpr char TASKS[] = R"({
    "tick": 7,
    "state": {"KSTATE_PAGE_SIZE": 4096, "KSTATE_EXIT_NOTICE_PORT": 77},
    "tasks": [
        {"handle": 48, "name": "b", "pid": 3, "ppid": 1, "info": {"TASKINFO_PRIORITY": 5, "OBJINFO_STATE": {"error": 9}},
         "threads": [{"handle": 50, "registers": {"1": [10, 11]}}, {"handle": 49}],
         "memos": [{"handle": 51}, {"handle": 52, "info": {"OBJINFO_OWNER": 32}}]},
        {"handle": 16, "pid": 3, "sid": 8},
        {"handle": 32, "name": "a", "pid": 2, "refuse": {"delete": 5, "control": 6, "exception": 4}}
    ],
    "memory_chunks": [{"handle": 64}], "virtual_spaces": [{"handle": 65}],
    "devices": [{"name": "sysvc", "system_service": {"majors": {"4": "tty"}}}]
})";

TEST(Machine, ObjectsAndTheirItems) {
    described machine(TASKS);
    EXPECT_EQ(walked(SYSTEM_WIDE, ITERSEL_TASKS), (handles{48, 16, 32}));
    EXPECT_EQ(walked(48, ITERSEL_THREADS), (handles{50, 49}));
    EXPECT_EQ(walked(SYSTEM_WIDE, ITERSEL_MEMCHUNKS), (handles{64}));
    EXPECT_EQ(walked(SYSTEM_WIDE, ITERSEL_VSPACES), (handles{65}));
    EXPECT_EQ(walked(16, ITERSEL_VIEWS), (handles{}));
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    EXPECT_EQ(_SL_BeginIterator(iterator, 50, ITERSEL_THREADS), RESULT_NO_OBJECT);
    EXPECT_EQ(_SL_BeginIterator(iterator, 48, ITERSEL_TASKS), RESULT_NO_OBJECT);
    EXPECT_EQ(_SL_BeginIterator(iterator, SYSTEM_WIDE, 5), RESULT_BAD_ARGUMENT);

    EXPECT_EQ(info(48, OBJINFO_HANDLE), 48u);
    EXPECT_EQ(info(48, OBJINFO_STATE), FAILED | 9);
    EXPECT_EQ(info(48, TASKINFO_HWID), FAILED | RESULT_NO_ITEM);
    EXPECT_EQ(info(48, OBJINFO_OWNER), FAILED | RESULT_NO_ITEM);
    EXPECT_EQ(info(51, OBJINFO_OWNER), 48u);  // a memo is its task's, unless the file says otherwise
    EXPECT_EQ(info(52, OBJINFO_OWNER), 32u);
    EXPECT_EQ(info(53, OBJINFO_HANDLE), FAILED | RESULT_NO_OBJECT);

    const uint64_t self = _SL_GetState(KSTATE_CURRENT_TASK), thread = _SL_GetState(KSTATE_CURRENT_THREAD);
    EXPECT_EQ(info(self, TASKINFO_FLAGS), TASKFLAG_SUPER);
    EXPECT_EQ(info(self, TASKINFO_PRIORITY), FAILED | RESULT_NO_ITEM);
    EXPECT_EQ(_SL_ControlObject(50, CTRL_FETCH_REGISTER, 1, 1, 0, 8), RESULT_SUCCESS);
    EXPECT_EQ(info(thread, THREADINFO_FETCHED_REGISTER), 11u);
    EXPECT_EQ(_SL_ControlObject(50, CTRL_FETCH_REGISTER, 1, 2, 0, 8), RESULT_NO_ITEM);
    EXPECT_EQ(_SL_ControlObject(49, CTRL_FETCH_REGISTER, 1, 0, 0, 8), RESULT_NO_ITEM);
    EXPECT_EQ(_SL_ControlObject(48, CTRL_FETCH_REGISTER, 1, 0, 0, 8), RESULT_NO_OBJECT);

    EXPECT_EQ(_SL_GetState(KSTATE_PAGE_SIZE), 4096u);
    EXPECT_EQ(_SL_GetState(KSTATE_FREE_PAGES), 0u);
    EXPECT_EQ(_SL_GetState(KSTATE_EXIT_NOTICE_PORT), 77u);
    EXPECT_EQ(_SL_GetState(KSTATE_TICK), 7u);
}

TEST(Machine, TheCallingTaskAndItsHandles) {
    const struct {
        const char *text;
        uint64_t task, thread, flags;
    } cases[] = {
        {R"({"self": {"task": 9, "thread": 10, "super": false}})", 9, 10, 0},
        {R"({"self": {"task": 9, "super": true}, "tasks": [{"handle": 9, "info": {"TASKINFO_FLAGS": 8}}]})", 9, 0, 8},
        {R"({"self": {"thread": 9}, "tasks": [{"handle": 5, "threads": [{"handle": 9}]}]})", 0, 9, TASKFLAG_SUPER},
        // Other handles lie behind all that the file lists, or around those at the end of all numbers.
        {R"({"tasks": [{"handle": "0x3FFFFFFFFFFFFFFF"}, {"handle": "0x4000000000000000"}]})", 0, 0, TASKFLAG_SUPER},
    };
    for (const auto &[text, task, thread, flags] : cases) {
        described machine(text);
        const uint64_t self = _SL_GetState(KSTATE_CURRENT_TASK), calling = _SL_GetState(KSTATE_CURRENT_THREAD);
        EXPECT_EQ(self, task != 0 ? task : self) << text;
        EXPECT_EQ(calling, thread != 0 ? thread : calling) << text;
        EXPECT_EQ(info(self, TASKINFO_FLAGS), flags) << text;
        EXPECT_EQ(info(calling, OBJINFO_HANDLE), calling) << text;
        std::set<uint64_t> given{self, calling, uint64_t{1} << 62, (uint64_t{1} << 62) - 1};
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(given.insert(_SL_CreateMsgPort(0, 0)).second) << text;
        EXPECT_EQ(machine.saved().find("\"tasks\"") == std::string::npos, std::strstr(text, "tasks") == nullptr);
    }
}

TEST(Machine, KeepsWhatIsDoneToTasks) {
    described machine(TASKS);
    for (const uint64_t task : {48u, 32u}) {
        const bool refused = task == 32;
        EXPECT_EQ(_SL_ControlObject(task, CTRL_SET_PROPERTY, TASKPROP_PRIORITY, 77, 0, 0), refused ? 6u : 0u);
        EXPECT_EQ(_SL_RaiseException(task, 0, EXC_SIGNAL, 9, 0), refused ? 4u : 0u);
    }
    EXPECT_EQ(_SL_ControlObject(48, CTRL_SET_PROPERTY, 2, 77, 0, 0), RESULT_BAD_ARGUMENT);
    EXPECT_EQ(info(48, TASKINFO_PRIORITY), 77u);
    EXPECT_EQ(_SL_RaiseException(50, 0, 1, 0, 0), RESULT_NO_OBJECT);
    const std::string saved = machine.saved();
    EXPECT_NE(saved.find("\"TASKINFO_PRIORITY\": 77"), std::string::npos);
    EXPECT_NE(saved.find("\"exceptions\": [[8, 9]]"), std::string::npos);
    EXPECT_NE(saved.find("\"tick\": 7,"), std::string::npos);
}

TEST(Machine, DeletedTasksAreGone) {
    described machine(TASKS);
    EXPECT_EQ(listed("run/proc/"), (names{"0000000000000030:176:1", "0000000000000020:176:1"}));
    // The walk stands on the task that ends, and passes over the one that ended before it came there.
    const auto act = [](uint64_t handle) {
        if (handle != 48) return;
        EXPECT_EQ(_SL_DeleteObject(48, DELETE_OBJECT), RESULT_SUCCESS);
        EXPECT_EQ(_SL_DeleteObject(32, DELETE_OBJECT), 5u);
        EXPECT_EQ(_SL_DeleteObject(16, DELETE_OBJECT), RESULT_SUCCESS);
    };
    EXPECT_EQ(walked(SYSTEM_WIDE, ITERSEL_TASKS, act), (handles{48, 32}));
    EXPECT_EQ(listed("run/proc"), (names{"0000000000000020:176:1"}));
    EXPECT_EQ(info(50, OBJINFO_HANDLE), FAILED | RESULT_NO_OBJECT);
    uint64_t pid = 0;
    EXPECT_EQ(SysvcGetPid(GetSystemService(), 48, &pid), SYSERR_NO_PROCESS);
    EXPECT_EQ(machine.saved().find("\"handle\": 48"), std::string::npos);
}

TEST(Machine, ProcessIdsAndMajors) {
    described machine(TASKS);
    device_record *const service = GetSystemService();
    uint64_t id = 0;
    EXPECT_EQ(SysvcGetPid(service, 16, &id), 0);
    EXPECT_EQ(id, 3u);
    EXPECT_EQ(SysvcGetPid(service, 3, &id), SYSERR_NO_PROCESS);
    EXPECT_EQ(SysvcGetPPid(service, 3, &id), 0);  // the first of two tasks of one process id
    EXPECT_EQ(id, 1u);
    EXPECT_EQ(SysvcGetSid(service, 3, &id), SYSERR_NO_PROCESS);
    EXPECT_EQ(SysvcGetSid(service, 16, &id), 0);  // by its handle, which is no process id
    EXPECT_EQ(id, 8u);
    EXPECT_EQ(SysvcGetPPid(service, 99, &id), SYSERR_NO_PROCESS);
    char name[8];
    uint32_t number = 0;
    EXPECT_TRUE(SysvcDecomposeDevice(service, 4 << 8 | 7, name, sizeof name, &number));
    EXPECT_STREQ(name, "tty");
    EXPECT_EQ(number, 7u);
    EXPECT_FALSE(SysvcDecomposeDevice(service, 5 << 8, name, sizeof name, &number));
    EXPECT_TRUE(SysvcGetMaxMajor(service, &number));
    EXPECT_EQ(number, 4u);
}

TEST(Machine, SystemDataOverRegistersAndTrace) {
    described machine(R"({
        "registers": [{"name": "pc", "id": 16, "type": 832}, {"name": "register9", "id": 9}],
        "trace": {"words_per_buffer": 3, "largest_entry": 2, "words": [1, 2, 3, 4, 5, 6, 7]},
        "system_data": {"KSYSIDX_REGISTERINFO": {"KSYSIDX_REGISTERINFO_COUNT": 99}, "KSYSIDX_REGISTERINFO_TABLE": {"5": 7},
                        "KSYSIDX_TRACE_ENTRY_WORDS": [{"error": 5}, 20], "5": [1]}
    })");
    const struct {
        uint64_t group, index, expected;
    } cases[] = {
        {KSYSIDX_REGISTERINFO, KSYSIDX_REGISTERINFO_COUNT, 99},
        {KSYSIDX_REGISTERINFO, KSYSIDX_REGISTERINFO_STRIDE, 4},
        {KSYSIDX_REGISTERINFO, KSYSIDX_REGISTERINFO_MAXNAMELEN, 9},
        {KSYSIDX_REGISTERINFO, 4, FAILED | RESULT_NO_ITEM},
        {KSYSIDX_REGISTERINFO_TABLE, 0, 16},
        {KSYSIDX_REGISTERINFO_TABLE, 1, 832},
        {KSYSIDX_REGISTERINFO_TABLE, 2, 'p' | 'c' << 8},
        {KSYSIDX_REGISTERINFO_TABLE, 3, 0},
        {KSYSIDX_REGISTERINFO_TABLE, 4, 9},
        {KSYSIDX_REGISTERINFO_TABLE, 5, 7},
        {KSYSIDX_REGISTERINFO_TABLE, 7, '9'},
        {KSYSIDX_REGISTERINFO_TABLE, 8, FAILED | RESULT_NO_ITEM},
        {KSYSIDX_REGISTERINFO_TABLE, ~uint64_t{0}, FAILED | RESULT_NO_ITEM},
        {KSYSIDX_TRACE, KSYSIDX_TRACE_WORDS, 7},
        {KSYSIDX_TRACE, KSYSIDX_TRACE_BUFFERS, 2},
        {KSYSIDX_TRACE, KSYSIDX_TRACE_WORDS_PER_BUFFER, 3},
        {KSYSIDX_TRACE, KSYSIDX_TRACE_LARGEST_ENTRY, 2},
        {KSYSIDX_TRACE_RAW_WORDS, 0, 1},
        {KSYSIDX_TRACE_RAW_WORDS, 7, FAILED | RESULT_NO_ITEM},
        {KSYSIDX_TRACE_ENTRY_WORDS, 0, FAILED | 5},
        {KSYSIDX_TRACE_ENTRY_WORDS, 1, 20},
        {KSYSIDX_TRACE_ENTRY_WORDS, 2, 3},
        {5, 0, 1},
        {5, 1, FAILED | RESULT_NO_ITEM},
        {6, 0, FAILED | RESULT_NO_ITEM},
    };
    for (const auto &[group, index, expected] : cases) EXPECT_EQ(data(group, index), expected) << group << " " << index;
}

TEST(Machine, RegistryWalksAndFinds) {
    described machine(R"({
        "tasks": [{"handle": 42, "name": "init"}, {"handle": 43, "name": ""}, {"handle": 44}],
        "devices": [{"name": "eth0"}],
        "registry": {
            "run": {"dir": {"proc": {"dir": {"000000000000002A": "another", "000000000000002C": "quiet"}}, "x": 1}},
            "int": -5, "text": "abc", "tree": {"dir": {"leaf": {"tmp": {}}}},
            "odd": {"type": 3, "length": 9, "value": "abc"}, "no": {"unreadable": 5}, "shut": {"unreadable": {"dir": {"k": 6}}}
        }
    })");
    EXPECT_EQ(listed(""),
              (names{"run:208:0", "int:16:8", "text:176:3", "tree:208:0", "odd:3:9", "no:16:8", "shut:208:0"}));
    EXPECT_EQ(listed("//run/"), (names{"proc:208:0", "dev:208:0", "x:16:8"}));
    EXPECT_EQ(listed("run/proc"), (names{"000000000000002A:176:4", "000000000000002B:176:0", "000000000000002A:176:7",
                                         "000000000000002C:176:5"}));
    EXPECT_EQ(listed("run//dev"), (names{"eth0:16:8"}));
    EXPECT_EQ(listed("tree/leaf"), (names{}));
    for (const char *path : {"int", "none", "shut", "odd", "int/x"}) EXPECT_EQ(listed(path), (names{"no directory"}));

    device_record *const registry = GetRegDev();
    uint64_t number = 0;
    EXPECT_TRUE(RegGetKeyInt(registry, "int", &number));
    EXPECT_EQ(number, uint64_t{0} - 5);
    EXPECT_TRUE(RegGetKeyInt(registry, "shut/k", &number));  // only reading the directory fails
    EXPECT_TRUE(RegGetKeyInt(registry, "run/dev/eth0", &number));
    EXPECT_EQ(number, GetDeviceMsgPort("eth0"));
    for (const char *path : {"", "no", "text", "int/", "tree"}) {
        EXPECT_EQ(RegGetKeyInt(registry, path, &number), std::strcmp(path, "int/") == 0) << path;
    }
    char text[16];
    uint32_t length = sizeof text;
    EXPECT_TRUE(RegGetKeyBin(registry, "run/proc/000000000000002A", text, &length));
    EXPECT_EQ(std::string(text, length), "init");
    length = sizeof text;
    EXPECT_TRUE(RegGetKeyBin(registry, "odd", text, &length));
    EXPECT_EQ(std::string(text, length), "abc");
    uint16_t type = 0;
    EXPECT_TRUE(RegKeyInfo(registry, "", &type, &length));
    EXPECT_EQ(type, REGTYPE_DIR);
    // The other entry of a name shows when the first is gone.
    EXPECT_EQ(_SL_DeleteObject(42, DELETE_OBJECT), RESULT_SUCCESS);
    length = sizeof text;
    EXPECT_TRUE(RegGetKeyBin(registry, "run/proc/000000000000002A", text, &length));
    EXPECT_EQ(std::string(text, length), "another");
}

TEST(Machine, RegistryKeysAreMade) {
    described machine(R"({"registry": {"int": 1, "dir": {"dir": {"k": 1}}}})");
    device_record *const registry = GetRegDev();
    const std::string long_name(52, 'n');
    const struct {
        std::string path;
        bool binary, temporary, guard;  // whether each of the three requests succeeds
    } cases[] = {
        {"dir/new", true, false, true},  // a key takes another value, but makes no room for a directory
        {"tmp", false, true, false},       {"dir", false, true, false},      {"tmp/inner", true, false, true},
        {"none/new", false, false, false}, {"int/new", false, false, false}, {"run/new", false, false, false},
        {"/run", false, false, false},     {"", false, false, false},        {long_name, false, false, false},
        {"bad\xFF", false, false, false},
    };
    for (const auto &[path, binary, temporary, guard] : cases) {
        EXPECT_EQ(temporary && RegCreateTmp(registry, path.c_str()), temporary) << path;
        EXPECT_EQ(RegSetKeyBin(registry, path.c_str(), "v", 1), binary) << path;
        EXPECT_EQ(RegCreateTmp(registry, path.c_str()), temporary) << path;
        EXPECT_EQ(RegCreateGuard(registry, path.c_str(), 6), guard) << path;
    }
    EXPECT_TRUE(RegSetKeyBin(registry, "int", "now a text", 10));
    const std::string saved = machine.saved();
    for (const char *part : {R"("int": "now a text")", R"("new": 6)", R"("tmp": {"tmp": {)", R"("inner": 6)"}) {
        EXPECT_NE(saved.find(part), std::string::npos) << part << saved;
    }
    EXPECT_EQ(listed("dir"), (names{"k:16:8", "new:16:8"}));
}

// Lookups and steps must not cost more the more keys there are: a quadratic one would take minutes here.
TEST(Machine, RegistryOfManyKeys) {
    std::string text = R"({"registry_limits": {"buffer": 65536}, "registry": {)";
    for (int i = 0; i < 30'000; ++i) text += "\"key" + std::to_string(i) + "\": 1, ";
    described machine(text + "\"last\": 1}}");
    RegIterator record;
    uint64_t sum = 0, number = 0;
    ASSERT_TRUE(RegItBegin(GetRegDev(), &record, ""));
    while (record.on_entry) {
        if (record.type == REGTYPE_INT && RegGetKeyInt(GetRegDev(), record.name, &number)) sum += number;
        ASSERT_TRUE(RegItNext(GetRegDev(), &record));
    }
    EXPECT_EQ(sum, 30'001u);
}

TEST(Machine, Terminals) {
    described machine(R"({"terminals": {"stdin": "us", "/dev/kbd0": "de"}})");
    char layout[TERM_LAYOUT_SIZE];
    std::memset(layout, '#', sizeof layout);
    EXPECT_EQ(ControlTerminal(0, TERMCTL_GET_LAYOUT, layout), 0);
    EXPECT_STREQ(layout, "us");
    for (const char *path : {"stdin", "/dev/kbd1"}) {
        EXPECT_EQ(OpenTerminal(path, TERM_OPEN_FLAGS), -1);
        EXPECT_EQ(errno, ENOENT);
    }
    const int descriptor = OpenTerminal("/dev/kbd0", TERM_OPEN_FLAGS);
    std::strcpy(layout, "a layout of exactly 31 bytes ..");
    EXPECT_EQ(ControlTerminal(descriptor, TERMCTL_SET_LAYOUT, layout), 0);
    EXPECT_NE(machine.saved().find("\"/dev/kbd0\": \"a layout of exactly 31 bytes ..\""), std::string::npos);
    std::memset(layout, '#', sizeof layout);
    EXPECT_EQ(ControlTerminal(descriptor, TERMCTL_SET_LAYOUT, layout), -1);
    EXPECT_EQ(errno, EINVAL);
    CloseTerminal(descriptor);
    for (const int closed : {descriptor, 1, -1, descriptor + 1}) {
        EXPECT_EQ(ControlTerminal(closed, TERMCTL_GET_LAYOUT, layout), -1);
        EXPECT_EQ(errno, ENOTTY);
    }
}

TEST(Machine, FaultsOfTheFile) {
    described machine(R"({"faults": [{"call": "_SL_CreateMsgPort", "nth": 2, "times": 2, "result": 6}]})");
    handles given;
    for (int i = 0; i < 4; ++i) given.push_back(_SL_CreateMsgPort(0, 0));
    EXPECT_EQ(std::count(given.begin(), given.end(), NO_OBJECT), 2);
    EXPECT_NE(given[0], NO_OBJECT);
    EXPECT_NE(given[3], NO_OBJECT);
}

// ---- files ----------------------------------------------------------------------------------------------------------

std::string load_failure(const std::string &path) {
    hosted::fault_list faults;
    std::string message;
    return hosted::make_described_machine(path, "", faults, message) ? "none" : message;
}

TEST(MachineFile, SaysWhatIsWrongWithIt) {
    const scratch_directory scratch;
    const std::string none = scratch.file("none.json");
    EXPECT_EQ(load_failure(none), none + ": No such file or directory");
    EXPECT_EQ(load_failure(scratch.path()), scratch.path() + ": Is a directory");
    const std::string broken = scratch.write("broken.json", "{\n!}");
    EXPECT_EQ(load_failure(broken), broken + ": 2:1: invalid literal; expected string literal");
    const std::string bad = scratch.write("bad.json", R"({"tick": "soon"})");
    EXPECT_EQ(load_failure(bad), bad + ": tick: expected a number");
}

// Loads one machine, does nothing with it, and saves it; the message where that failed.
std::string pass_through(const std::string &path, const std::string &save_path) {
    hosted::fault_list faults;
    std::string message;
    const auto machine = hosted::make_described_machine(path, save_path, faults, message);
    if (!machine) return message;
    machine->exit_notice(1, 2);
    return machine->save(message) ? "saved" : message;
}

TEST(MachineFile, IsWrittenBesideAndRenamed) {
    const scratch_directory scratch;
    const std::string path = scratch.write("lab.json", R"({"tick": 1})"), target = scratch.file("target.json");
    const std::string link = scratch.file("link.json"), fifo = scratch.file("fifo");
    ASSERT_EQ(symlink(scratch.write("victim", "mine").c_str(), link.c_str()), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const mode_t mask = umask(027);
    EXPECT_EQ(pass_through(path, target), "saved");
    umask(mask);
    struct stat about {};
    ASSERT_EQ(stat(target.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0640u);
    ASSERT_EQ(chmod(target.c_str(), 0600), 0);
    EXPECT_EQ(pass_through(path, target), "saved");
    ASSERT_EQ(stat(target.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600u);
    EXPECT_EQ(pass_through(path, link), "saved");
    EXPECT_EQ(read_file(scratch.file("victim")), "mine");
    EXPECT_EQ(pass_through(path, fifo), fifo + ": Not a plain file");
    EXPECT_EQ(pass_through(path, scratch.path()), scratch.path() + ": Is a directory");
    const std::string nowhere = scratch.file("none/saved.json");
    EXPECT_EQ(pass_through(path, nowhere), nowhere + ": No such file or directory");
    EXPECT_EQ(pass_through(path, ""), "saved");
    EXPECT_EQ(read_file(path), R"({"tick": 1})");
}

// Runs on one file follow one another: none loses what another did to it.
TEST(MachineFile, IsHeldFromLoadToSave) {
    constexpr int RUNS = 20;
    const scratch_directory scratch;
    const std::string path = scratch.write("lab.json", "{}");
    std::vector<pid_t> children;
    for (int i = 0; i < RUNS; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            const std::string other = i % 2 == 0 ? path : scratch.path() + "/./lab.json";
            _exit(pass_through(path, other) == "saved" ? 0 : 1);
        }
        children.push_back(child);
    }
    for (const pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const std::string saved = read_file(path);
    size_t notices = 0;
    for (size_t at = saved.find("[1, 2]"); at != std::string::npos; at = saved.find("[1, 2]", at + 1)) ++notices;
    EXPECT_EQ(notices, RUNS);
}

}  // namespace
