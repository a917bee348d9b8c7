// tests/hosted/described/machine_test.cpp - a described machine under kernel calls, its file on disk, and what a saved
// machine records of a run.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <thread>

#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "platform/protocol/log.h"
#include "platform/protocol/terminal.h"
#include "platform/registry.h"
#include "platform/sysvc.h"
#include "platform/terminal.h"
#include "run_ventix.h"

namespace {

// A machine of the given text under this process's kernel, to the end of the scope.
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

// The value of an item, or FAILED with the result code in its low bits.
constexpr uint64_t FAILED = uint64_t{0xF} << 60;
uint64_t info(uint64_t handle, uint64_t item) {
    uint64_t value = 0;
    const uint64_t result = _SL_GetObjectInfo(handle, item, &value);
    return result == RESULT_SUCCESS ? value : FAILED | result;
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

using names = std::vector<std::string>;

constexpr char TASKS[] = R"({
    "tasks": [
        {"handle": 48, "name": "b", "pid": 3, "ppid": 1, "info": {"OBJINFO_STATE": {"error": 9}},
         "threads": [{"handle": 50, "registers": {"1": [10, 11]}}, {"handle": 49}],
         "memos": [{"handle": 51}, {"handle": 52, "info": {"OBJINFO_OWNER": 32}}]},
        {"handle": 16, "pid": 3, "sid": 8},
        {"handle": 32, "name": "a", "pid": 2, "refuse": {"delete": 5}}
    ],
    "devices": [{"name": "sysvc", "system_service": {}}], "trace": {"words": [1]},
    "registry": {"run": {"dir": {"proc": {"dir": {"0000000000000030": "another"}}}}}
})";

TEST(Machine, ObjectsAndTheirItems) {
    described machine(TASKS);
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    EXPECT_EQ(_SL_BeginIterator(iterator, 48, ITERSEL_TASKS), RESULT_NO_OBJECT);
    EXPECT_EQ(_SL_BeginIterator(iterator, SYSTEM_WIDE, 5), RESULT_BAD_ARGUMENT);
    EXPECT_EQ(_SL_ControlObject(48, CTRL_SET_PROPERTY, 2, 77, 0, 0), RESULT_BAD_ARGUMENT);

    uint64_t none = 0;
    EXPECT_EQ(_SL_GetSystemData(KSYSIDX_REGISTERINFO, 7, &none), RESULT_NO_ITEM);
    EXPECT_EQ(_SL_GetSystemData(KSYSIDX_TRACE_RAW_WORDS, 1, &none), RESULT_NO_ITEM);
    EXPECT_EQ(_SL_GetSystemData(6, 0, &none), RESULT_NO_ITEM);

    const uint64_t self = _SL_GetState(KSTATE_CURRENT_TASK);
    const struct {
        uint64_t handle, item, value;
    } items[] = {
        {48, OBJINFO_HANDLE, 48},
        {48, OBJINFO_STATE, FAILED | 9},
        {48, OBJINFO_OWNER, FAILED | RESULT_NO_ITEM},
        {51, OBJINFO_OWNER, 48},  // a memo is its task's, unless the file says otherwise
        {52, OBJINFO_OWNER, 32},
        {53, OBJINFO_HANDLE, FAILED | RESULT_NO_OBJECT},
        {self, TASKINFO_PRIORITY, FAILED | RESULT_NO_ITEM},
    };
    for (const auto &[handle, item, value] : items) EXPECT_EQ(info(handle, item), value) << handle << ' ' << item;

    EXPECT_EQ(_SL_ControlObject(50, CTRL_FETCH_REGISTER, 1, 1, 0, 8), RESULT_SUCCESS);
    EXPECT_EQ(_SL_ControlObject(48, CTRL_FETCH_REGISTER, 1, 0, 0, 8), RESULT_NO_OBJECT);
}

// The current task of the walk ends, and so does one that the walk has not reached yet.
TEST(Machine, DeletedTasksAreGone) {
    described machine(TASKS);
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    EXPECT_EQ(_SL_BeginIterator(iterator, SYSTEM_WIDE, ITERSEL_TASKS), RESULT_SUCCESS);
    EXPECT_EQ(_SL_StepIterator(iterator), RESULT_SUCCESS);
    EXPECT_EQ(_SL_DeleteObject(48, DELETE_OBJECT), RESULT_SUCCESS);
    EXPECT_EQ(_SL_DeleteObject(32, DELETE_OBJECT), 5u);
    const uint64_t named = _SL_CreateHandle(0, _SL_CreateHandle(0, 16, RIGHTS_OPEN), RIGHTS_OPEN);
    EXPECT_EQ(info(named, OBJINFO_HANDLE), 16u);
    EXPECT_EQ(_SL_DeleteObject(named, DELETE_OBJECT), RESULT_SUCCESS);
    EXPECT_EQ(_SL_DeleteObject(named, DELETE_HANDLE), RESULT_NO_OBJECT);
    uint64_t value = 0;
    EXPECT_EQ(_SL_StepIterator(iterator), RESULT_SUCCESS);
    EXPECT_EQ(_SL_GetIteratorInfo(iterator, OBJINFO_HANDLE, &value), RESULT_SUCCESS);
    EXPECT_EQ(value, 32u);
    EXPECT_EQ(_SL_StepIterator(iterator), RESULT_NO_ITEM);
    EXPECT_EQ(_SL_GetIteratorInfo(iterator, OBJINFO_HANDLE, &value), RESULT_NO_ITEM);
    EXPECT_EQ(listed("run/proc"), (names{"0000000000000020:176:1", "0000000000000030:176:7"}));
    EXPECT_EQ(info(50, OBJINFO_HANDLE), FAILED | RESULT_NO_OBJECT);
    EXPECT_EQ(SysvcGetPid(GetSystemService(), 48, &value), SYSERR_NO_PROCESS);
}

// An id of several tasks names the first. A task without an id goes by its handle.
TEST(Machine, ProcessIds) {
    described machine(TASKS);
    const struct {
        int (*get)(device_record *, uint64_t, uint64_t *);
        uint64_t task, id;  // no id: there is no such process
    } cases[] = {{SysvcGetPid, 16, 3}, {SysvcGetPid, 3, 0},  {SysvcGetPPid, 3, 1},
                 {SysvcGetSid, 3, 0},  {SysvcGetSid, 16, 8}, {SysvcGetPPid, 99, 0}};
    for (const auto &[get, task, expected] : cases) {
        uint64_t id = 0;
        EXPECT_EQ(get(GetSystemService(), task, &id), expected != 0 ? 0 : SYSERR_NO_PROCESS) << task;
        EXPECT_EQ(id, expected) << task;
    }
}

TEST(Machine, RegistryKeysAreMade) {
    described machine(R"({"registry": {"int": 1, "dir": {"dir": {"k": 1}}}})");
    device_record *const registry = GetRegDev();
    const std::string long_name(52, 'n');
    const struct {
        std::string path;
        bool binary, temporary, guard;  // whether each of the three requests succeeds
    } cases[] = {
        {"dir/new", true, false, true},  // a key takes another value, but does not become a directory
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
    described machine(R"({"terminals": {"/dev/kbd0": "de"}})");
    const int descriptor = OpenTerminal("/dev/kbd0", TERM_OPEN_FLAGS);
    char layout[TERM_LAYOUT_SIZE];
    std::memset(layout, '#', sizeof layout);  // without an end
    EXPECT_EQ(ControlTerminal(descriptor, TERMCTL_SET_LAYOUT, layout), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ControlTerminal(descriptor, TERMCTL_GET_LAYOUT, layout), 0);
    EXPECT_STREQ(layout, "de");
    EXPECT_EQ(ControlTerminal(descriptor, 0, layout), -1);
    EXPECT_EQ(errno, ENOTTY);
    CloseTerminal(descriptor);
    EXPECT_EQ(OpenTerminal("/dev/kbd0", TERM_OPEN_FLAGS), descriptor);
    CloseTerminal(descriptor);
    for (const int closed : {descriptor, 1, -1, descriptor + 1}) {
        EXPECT_EQ(ControlTerminal(closed, TERMCTL_GET_LAYOUT, layout), -1);
        EXPECT_EQ(errno, ENOTTY);
    }
}

// ---- files ----------------------------------------------------------------------------------------------------------

int syncs = 0, failing_sync = 0, deadly_sync = 0;  // made so far; those that fail and kill, counted from 1

}  // namespace

// In place of the C library's.
extern "C" int fsync(int file) {
    if (++syncs == deadly_sync) raise(SIGKILL);
    if (syncs != failing_sync) return static_cast<int>(syscall(SYS_fsync, file));
    errno = EIO;
    return -1;
}

namespace {

// Loads a machine and saves it. Returns "saved", or the message of the failure.
std::string pass_through(const std::string &path, const std::string &save_path) {
    hosted::fault_list faults;
    std::string message;
    const auto machine = hosted::make_described_machine(path, save_path, faults, message);
    if (!machine) return message;
    machine->exit_notice(1, 2);
    return machine->save(message) ? "saved" : message;
}

TEST(MachineFile, IsReplacedByRename) {
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
    EXPECT_EQ(pass_through(path, ""), "saved");
    EXPECT_EQ(read_file(path), R"({"tick": 1})");
}

// A change by another program during the run survives, whether it replaced the file or wrote into it.
TEST(MachineFile, IsNotSavedOverAnotherChange) {
    for (const bool replaced : {true, false}) {
        const scratch_directory scratch;
        const std::string path = scratch.write("lab.json", "{}");
        hosted::fault_list faults;
        std::string message;
        const auto machine = hosted::make_described_machine(path, path, faults, message);
        ASSERT_TRUE(machine) << message;
        const std::string other = scratch.write(replaced ? "new.json" : "lab.json", "{ }");
        ASSERT_EQ(rename(other.c_str(), path.c_str()), 0);
        EXPECT_FALSE(machine->save(message));
        EXPECT_EQ(message, path + ": changed by another program during the run; not saved");
        EXPECT_EQ(read_file(path), "{ }");
    }
}

TEST(MachineFile, OtherUsersNamesAreNotTrusted) {
    if (geteuid() != 0) GTEST_SKIP() << "needs files of two users";
    const scratch_directory scratch;
    const std::string path = scratch.write("lab.json", "{}"), link = scratch.file("link"), fifo = scratch.file("fifo");
    const std::string theirs = scratch.write("theirs.json", "{}");
    ASSERT_EQ(symlink("lab.json", link.c_str()), 0);
    ASSERT_EQ(lchown(link.c_str(), 1, 1), 0);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
    ASSERT_EQ(chown(fifo.c_str(), 1, 1), 0);
    EXPECT_EQ(pass_through(link, ""), "saved");
    ASSERT_EQ(chmod(scratch.path().c_str(), 01777), 0);
    EXPECT_EQ(pass_through(link, ""), link + ": Permission denied");
    EXPECT_EQ(pass_through(scratch.path() + "/link/..", ""), scratch.path() + "/link/..: Permission denied");
    EXPECT_EQ(pass_through(fifo, ""), fifo + ": Permission denied");
    // A file of another user keeps its owner and gains no permission that the mask forbids.
    ASSERT_EQ(chmod(theirs.c_str(), 0606), 0);
    ASSERT_EQ(chown(theirs.c_str(), 1, 1), 0);
    const mode_t mask = umask(022);
    EXPECT_EQ(pass_through(path, theirs), "saved");
    EXPECT_EQ(pass_through(path, link), "saved");
    umask(mask);
    for (const auto &[file, owner, mode] : {std::tuple(theirs, 1U, 0604U), {link, 0U, 0644U}}) {
        struct stat about {};
        ASSERT_EQ(lstat(file.c_str(), &about), 0);
        EXPECT_EQ(about.st_mode, S_IFREG | mode) << file;
        EXPECT_EQ(about.st_uid, owner) << file;
    }
}

// Nobody else reads a machine while it is saved, and a signal in between leaves nothing beside it.
TEST(MachineFile, IsPrivateUntilItIsCompleteAndOutlivesSignals) {
    const scratch_directory scratch;
    const std::string long_text(size_t{16} << 20, 'x');  // takes long enough to write to be seen
    const std::string path = scratch.write("lab.json", "{\"registry\": {\"k\": \"" + long_text + "\"}}");
    constexpr int LATE = 50;  // times that this process may sleep through a whole save
    for (int late = 0, signal = SIGINT; signal != 0 && late < LATE;) {
        const pid_t child = fork();
        if (child == 0) {
            umask(0);
            _exit(pass_through(path, scratch.file("saved.json")) == "saved" ? 0 : 1);
        }
        const std::string beside = scratch.file(".ventix-" + std::to_string(child) + "-0");
        struct stat about {
        }, now{};
        int status = 0;
        while (about.st_mode == 0 && waitpid(child, &status, WNOHANG) == 0) {
            static_cast<void>(stat(beside.c_str(), &about));
        }
        late += about.st_mode == 0 || about.st_size > static_cast<off_t>(long_text.size());
        if (about.st_mode == 0) continue;
        kill(child, signal);
        waitpid(child, &status, 0);
        EXPECT_TRUE(status == signal || status == 0) << status;
        EXPECT_NE(stat(beside.c_str(), &now), 0);
        EXPECT_GT(read_file(scratch.file("saved.json")).size(), long_text.size());
        if (about.st_size > static_cast<off_t>(long_text.size())) continue;
        EXPECT_EQ(about.st_mode, S_IFREG | 0600u);
        signal = signal == SIGINT ? SIGTERM : 0;
    }
}

// A machine is on disk before it takes the place of the former one, and its name before the save reports success.
TEST(MachineFile, IsSyncedBeforeAndAfterItReplacesAnother) {
    const scratch_directory scratch;
    for (failing_sync = 1; failing_sync <= 2; ++failing_sync) {
        const std::string path = scratch.write("lab.json", "{}");
        syncs = 0;
        EXPECT_EQ(pass_through(path, path), path + ": Input/output error");
        EXPECT_EQ(read_file(path) == "{}", failing_sync == 1);
    }
    failing_sync = 0;
}

TEST(MachineFile, WaitForItsLockIsReported) {
    const scratch_directory scratch;
    const std::string path = scratch.write("lab.json", "{}");
    const int held = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::thread holder([held] {
        usleep(1'300'000);
        close(held);
    });
    testing::internal::CaptureStderr();
    EXPECT_EQ(pass_through(path, path), "saved");
    holder.join();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ventix: " + path + ": waiting for process " + std::to_string(getpid()) + ", which holds the file\n");
}

// Runs on one file exclude one another: none loses the change of another, whichever are killed before or after they
// have replaced the file.
TEST(MachineFile, IsLockedFromLoadToSave) {
    constexpr size_t RUNS = 100;
    const scratch_directory scratch;
    const std::string path = scratch.write("lab.json", "{}");
    pid_t children[RUNS];
    testing::internal::CaptureStderr();  // some report their wait
    for (size_t i = 0; i < RUNS; ++i) {
        if ((children[i] = fork()) != 0) continue;
        syncs = 0;
        deadly_sync = i % 10 == 4 ? 1 : i % 10 == 9 ? 2 : 0;
        _exit(pass_through(path, i % 2 == 0 ? path : scratch.path() + "/./lab.json") == "saved" ? 0 : 1);
    }
    for (size_t i = 0; i < RUNS; ++i) {
        int status = 0;
        waitpid(children[i], &status, 0);
        EXPECT_EQ(status, i % 5 == 4 ? SIGKILL : 0) << i;
    }
    testing::internal::GetCapturedStderr();
    const std::string saved = read_file(path);
    size_t notices = 0;
    constexpr char notice[] = R"(["0x1", 2])";
    for (size_t at = saved.find(notice); at != std::string::npos; at = saved.find(notice, at + 1)) ++notices;
    EXPECT_EQ(notices, RUNS * 9 / 10);
}

}  // namespace
