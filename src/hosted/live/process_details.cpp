// hosted/live/process_details.cpp - what the system reports of each process as text: command line, files, limits,
// threads, descriptors and mappings.
//
// Nothing here acts on a process or its files: links are read, not followed, and no memory but the arguments is. What a
// process does not have is no key, and what the caller may not see is a key that cannot be read.
#include "hosted/live/process_details.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <new>

#include "hosted/clocks.h"
#include "hosted/live/files.h"
#include "hosted/live/handles.h"
#include "hosted/live/maps.h"
#include "hosted/live/process.h"
#include "hosted/live/scanner.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"

namespace hosted::live {

namespace {

// The process that a directory was made for. One that has its number later is another.
struct process_identity {
    int number;
    uint64_t listed;                // milliseconds since boot when a list of processes had it; 0 if none had
    bool is_process = listed != 0;  // and not a further thread's
    std::optional<uint64_t> start = {};
    bool has_ended = false;
};

// Opens processes one at a time, so that a listing of all needs few descriptors.
class process_opener {
public:
    process_opener(proc_root &root, socket_table &sockets) : root_(root), sockets_(sockets), current_(root) {}

    // Null where the process has ended. Valid until the next call.
    process *open(process_identity &wanted);

    // Seconds since 1970 at a number of ticks since boot.
    uint64_t seconds(uint64_t ticks) const;

    proc_reader &reader() { return root_.reader; }
    socket_table &sockets() { return sockets_; }

private:
    proc_root &root_;
    socket_table &sockets_;
    process current_;
    const process_identity *opened_ = nullptr;  // whose process it is
};

process *process_opener::open(process_identity &wanted) {
    if (opened_ == &wanted) return &current_;
    if (wanted.has_ended) return nullptr;
    opened_ = nullptr;
    bool found = current_.open(wanted.number);
    if (found && !wanted.is_process) {
        const uint64_t result = current_.is_process();
        if (result == RESULT_NO_MEMORY) throw std::bad_alloc();
        found = result != RESULT_NO_OBJECT;
        wanted.is_process = found;
    }
    uint64_t start = 0;
    if (found && current_.start(start)) {
        const bool is_later = wanted.listed != 0 && root_.milliseconds(start) > wanted.listed;
        found = !is_later && start == wanted.start.value_or(start);
        wanted.start = start;
    } else if (found) {
        if (current_.failure() == RESULT_NO_MEMORY) throw std::bad_alloc();
        found = !current_.has_gone();
    }
    wanted.has_ended = !found;
    if (!found) return nullptr;
    opened_ = &wanted;
    return &current_;
}

uint64_t process_opener::seconds(uint64_t ticks) const {
    const uint64_t boot = nanoseconds_of(CLOCK_REALTIME) - nanoseconds_of(CLOCK_BOOTTIME);
    return (boot / 1000000 + root_.milliseconds(ticks)) / 1000;
}

// ---- one process ----------------------------------------------------------------------------------------------------

class process_view {
public:
    process_view(process_opener &opener, int number, uint64_t listed) : opener_(opener), who_{number, listed} {}

    process_opener &opener() { return opener_; }
    bool exists() { return opener_.open(who_) != nullptr; }

    // Where files and links are read from.
    enum class source : uint8_t {
        process,
        survivor,  // the same, or a thread that runs on where the main thread has ended
    };
    //   error  out: 0, or why there is no directory
    int directory(source from, int &error);

    // A key over a file or link of the survivor.
    //   show  std::string_view to node_pointer
    using read_call = int (proc_reader::*)(int, const char *, std::string_view &);
    template <class Show> node_pointer key(read_call read, const char *path, Show show) {
        int error = 0;
        const int below = directory(source::survivor, error);
        std::string_view text;
        if (error == 0) error = (opener_.reader().*read)(below, path, text);
        if (error == 0) return show(text);
        return means_gone(unless_exhausted(error, path)) ? nullptr : hidden_key();
    }

    // A key over the process as it is listed.
    template <class Show> node_pointer process_key(Show show) {
        process *opened = opener_.open(who_);
        if (opened == nullptr) return nullptr;
        const stat_record *stat = opened->stat();
        return stat != nullptr ? show(*opened, *stat) : hidden_key();
    }

private:
    process_opener &opener_;
    process_identity who_;
};

int process_view::directory(source from, int &error) {
    process *opened = opener_.open(who_);
    uint64_t result = RESULT_NO_OBJECT;
    int found = opened != nullptr ? opened->memory_directory(result) : -1;
    if (result == RESULT_SUCCESS && from == source::process) found = opened->directory();
    if (result == RESULT_NO_MEMORY) throw std::bad_alloc();
    error = result == RESULT_SUCCESS ? 0 : result == RESULT_NO_OBJECT ? ESRCH : EACCES;
    return found;
}

// ---- its keys -------------------------------------------------------------------------------------------------------

// The arguments, each of which a NUL ends. Without any (threads of the kernel, zombies) there is no command.
node_pointer command(process_view &of) {
    return of.key(&proc_reader::read_front, "cmdline", [](std::string_view text) -> node_pointer {
        if (text.empty()) return nullptr;
        std::string shown(text.substr(0, text.find_last_not_of('\0') + 1));
        std::replace(shown.begin(), shown.end(), '\0', ' ');
        return text_key(shown);
    });
}

// The hierarchies' lines, or of the only one its path: "0::PATH".
node_pointer cgroup(process_view &of) {
    return of.key(&proc_reader::read, "cgroup", [](std::string_view text) -> node_pointer {
        constexpr std::string_view unified = "0::";
        std::string shown(trimmed(text));
        if (shown.find('\n') == shown.npos && shown.starts_with(unified)) shown.erase(0, unified.size());
        std::replace(shown.begin(), shown.end(), '\n', ' ');
        return text_key(shown);
    });
}

// Below the heading of its file, a limit is "Max NAME   SOFT   HARD   UNIT" with 25 columns for the first.
class limits : public whole_directory {
public:
    explicit limits(process_view &of) : of_(of) {}

    size_t list() override {
        read();
        return whole_directory::list();
    }
    registry_node *entry(std::string_view name) override {
        read();
        return whole_directory::entry(name);
    }

private:
    void read() {
        constexpr size_t name_columns = 25;
        constexpr std::string_view lead = "Max ";
        if (read_) return;
        clear();  // what a reading found that ran out of memory
        of_.key(&proc_reader::read, "limits", [&](std::string_view text) -> node_pointer {
            scanner scan(text);
            for (scan.line(); !scan.done();) {
                const std::string_view line = scan.line();
                std::string name(trimmed(line.substr(0, name_columns)));
                if (!name.starts_with(lead) || line.size() < name_columns) continue;
                name.erase(0, lead.size());
                std::replace(name.begin(), name.end(), ' ', '_');
                scanner values(line.substr(name_columns));
                std::string value(values.word());
                for (auto word = values.word(); !word.empty(); word = values.word()) (value += ' ') += word;
                if (can_be_key(name)) add(std::move(name), text_key(value));
            }
            return nullptr;
        });
        read_ = true;
    }

    process_view &of_;
    bool read_ = false;
};

// The path of a number below a directory, and what is below that: "task/123/comm".
class path_of_number {
public:
    path_of_number(std::string_view directory, uint64_t number, std::string_view below = {}) {
        char *end = text_ + directory.copy(text_, ROOM);
        *end++ = '/';
        end = std::to_chars(end, end + DIGITS, number).ptr;
        end[below.copy(end, ROOM)] = '\0';
    }
    const char *c_str() const { return text_; }

private:
    static constexpr size_t ROOM = 8, DIGITS = 20;
    char text_[ROOM + 1 + DIGITS + ROOM + 1];
};

// The numbered entries of a directory of the process.
class entry_texts : public numbered_texts {
protected:
    entry_texts(process_view &of, process_view::source from, const char *directory)
        : of_(of), from_(from), directory_(directory) {}

    void find_all() override {
        int error = 0;
        const int below = of_.directory(from_, error);
        std::vector<int> numbers;
        if (error == 0) error = of_.opener().reader().list(below, directory_, numbers, nullptr, 0);
        unless_exhausted(error, directory_);
        for (const int number : numbers) add(static_cast<uint64_t>(number));
    }

    uint32_t read_entry(uint64_t number, std::string_view below, process_view::read_call how, std::string &text) {
        int error = 0;
        std::string_view found;
        const int directory = of_.directory(from_, error);
        const path_of_number path(directory_, number, below);
        if (error == 0) error = (of_.opener().reader().*how)(directory, path.c_str(), found);
        unless_exhausted(error, path.c_str());
        text = found;
        if (error == 0) return 0;
        return means_gone(error) ? uint32_t{IOERROR_NOT_FOUND} : static_cast<uint32_t>(RESULT_NOT_PERMITTED);
    }

    process_view &of_;

private:
    process_view::source from_;
    const char *directory_;
};

class thread_names : public entry_texts {
public:
    explicit thread_names(process_view &of) : entry_texts(of, process_view::source::process, "task") {}

protected:
    uint32_t read(uint64_t number, std::string &text) override {
        const uint32_t error = read_entry(number, "/comm", &proc_reader::read, text);
        if (text.ends_with('\n')) text.pop_back();
        return error;
    }
};

class open_files : public entry_texts {
public:
    explicit open_files(process_view &of) : entry_texts(of, process_view::source::survivor, "fd") {}

protected:
    uint32_t read(uint64_t number, std::string &text) override {
        const uint32_t error = read_entry(number, {}, &proc_reader::read_link, text);
        if (const auto inode = socket_inode(text)) {
            if (const std::string socket = of_.opener().sockets().describe(*inode); !socket.empty())
                (text += ' ') += socket;
        }
        return error;
    }
};

class mapped_files : public numbered_texts {
public:
    explicit mapped_files(process_view &of) : numbered_texts(number_names::hexadecimal), of_(of) {}

    registry_node *entry(std::string_view name) override {
        list();  // one file has them all
        return numbered_texts::entry(name);
    }

protected:
    void find_all() override {
        int error = 0;
        const int below = of_.directory(process_view::source::survivor, error);
        if (error == 0) {
            error = of_.opener().reader().lines(below, "maps", [this](std::string_view line) {
                if (mapping_line mapping; parse_mapping(line, mapping)) add(mapping.begin, mapping.name);
            });
        }
        unless_exhausted(error, "maps");
    }
    uint32_t read(uint64_t, std::string &) override { return IOERROR_NOT_FOUND; }

private:
    process_view &of_;
};

// A directory that a client may enter later. Each of these finds out beforehand whether it may.
template <class Directory> node_pointer visible_directory(process_view &of) {
    return of.process_key([&of](process &, const stat_record &) { return std::make_unique<Directory>(of); });
}

// Listing the mappings needs the right by which links are read.
node_pointer maps_directory(process_view &of) {
    int error = 0;
    std::string_view text;
    const int below = of.directory(process_view::source::survivor, error);
    if (error == 0 && faccessat(below, "maps", F_OK, 0) != 0) error = errno;
    if (error == 0 && means_hidden(of.opener().reader().read_link(below, "exe", text))) error = EACCES;
    if (error == 0) return std::make_unique<mapped_files>(of);
    return means_gone(error) ? nullptr : hidden_key();
}

node_pointer open_directory(process_view &of) {
    int error = 0;
    const int below = of.directory(process_view::source::survivor, error);
    if (error == 0 && faccessat(below, "fd", R_OK, AT_EACCESS) != 0) error = errno;
    if (error == 0) return std::make_unique<open_files>(of);
    return means_gone(error) ? nullptr : hidden_key();
}

template <const char *path> node_pointer path_key(process_view &of) {
    return of.key(&proc_reader::read_link, path, [](std::string_view target) { return text_key(target); });
}

enum class owner : uint8_t { user, group };
template <owner Which> node_pointer owner_key(process_view &of) {
    return of.process_key([](process &one, const stat_record &) {
        uint32_t user = 0, group = 0;
        return one.owner(user, group) ? number_key(Which == owner::user ? user : group) : hidden_key();
    });
}

constexpr char EXECUTABLE[] = "exe", DIRECTORY[] = "cwd";

constexpr table_entry<process_view> PROCESS[] = {
    {"cgroup", cgroup},
    {"command", command},
    {"directory", path_key<DIRECTORY>},
    {"executable", path_key<EXECUTABLE>},
    {"group", owner_key<owner::group>},
    {"limit", visible_directory<limits>},
    {"map", maps_directory},
    {"open", open_directory},
    {"root",
     [](process_view &of) {
         return of.key(&proc_reader::read_link, "root",
                       [](std::string_view target) { return target == "/" ? nullptr : text_key(target); });
     }},
    {"started",
     [](process_view &of) {
         return of.process_key(
             [&of](process &, const stat_record &stat) { return number_key(of.opener().seconds(stat.start_ticks)); });
     }},
    {"thread", visible_directory<thread_names>},
    {"user", owner_key<owner::user>},
};

class process_directory : private process_view, public table_directory<process_view> {
public:
    process_directory(process_opener &opener, int number, uint64_t listed)
        : process_view(opener, number, listed), table_directory<process_view>(static_cast<process_view &>(*this),
                                                                              PROCESS) {}
    using process_view::exists;
};

// ---- all processes --------------------------------------------------------------------------------------------------

class all_processes : public numbered_directories {
public:
    all_processes(proc_root &root, socket_table &sockets)
        : numbered_directories(number_names::hexadecimal), root_(root), opener_(root, sockets) {}

protected:
    std::vector<uint64_t> numbers() override {
        std::vector<int> found;
        if (const int error = root_.reader.list(root_.directory(), ".", found)) throw system_failure("/proc", error);
        listed_ = nanoseconds_of(CLOCK_BOOTTIME) / 1000000;
        return {found.begin(), found.end()};
    }

    // A process that has ended since it was listed is an empty directory, and no other process or thread that has its
    // number now.
    node_pointer make(uint64_t number, bool listed) override {
        if (!PROCESS_HANDLES.contains(number)) return nullptr;
        auto made = std::make_unique<process_directory>(opener_, static_cast<int>(number), listed ? listed_ : 0);
        if (!listed && !made->exists()) return nullptr;
        return made;
    }

private:
    proc_root &root_;
    process_opener opener_;
    uint64_t listed_ = 0;  // milliseconds since boot
};

}  // namespace

node_pointer make_process_directory(proc_root &root, socket_table &sockets) {
    return std::make_unique<all_processes>(root, sockets);
}

}  // namespace hosted::live
