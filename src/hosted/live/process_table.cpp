// hosted/live/process_table.cpp - walks over processes, and finds, names and changes the process of a handle.
#include "hosted/live/process_table.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <functional>
#include <utility>

#include "hosted/live/control.h"
#include "hosted/live/files.h"
#include "hosted/live/handles.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

// Over all processes. What was read for a row is kept until the next step.
class process_walk : public walk {
public:
    process_walk(process_table &table, std::vector<int> numbers)
        : table_(table), numbers_(std::move(numbers)), current_(table.root_) {
        table_.walked_.push_back(&current_);
    }
    ~process_walk() override { std::erase(table_.walked_, &current_); }

    uint64_t step() override {
        while (at_ < numbers_.size()) {
            const uint64_t ticks = table_.now_ticks();
            if (!current_.open(numbers_[at_++])) continue;
            current_.assume_process();
            if (table_.was_ended(current_)) continue;
            table_.hand_out(current_, ticks);
            return RESULT_SUCCESS;
        }
        current_.close();
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        return current_.number() == 0 ? uint64_t{RESULT_NO_ITEM} : current_.item(item, value);
    }
    bool exists() override { return current_.exists(); }

private:
    process_table &table_;
    std::vector<int> numbers_;
    size_t at_ = 0;
    process current_;
};

class thread_walk : public walk {
public:
    thread_walk(process_table &table, descriptor tasks, std::vector<int> numbers, int owner)
        : table_(table), tasks_(std::move(tasks)), numbers_(std::move(numbers)), owner_(owner), current_(table.root_) {
        table_.walked_threads_.push_back(&current_);
    }
    ~thread_walk() override { std::erase(table_.walked_threads_, &current_); }

    // Opens the only thread of a process that is known to have one, for the first step. False: it is gone.
    bool open_only(const process &owner) {
        only_ = current_.open_only(owner.directory(), owner.number());
        if (only_) current_.assume(owner.stat_of_thread(), owner.switches_of_thread());
        return only_;
    }

    uint64_t step() override {
        if (std::exchange(only_, false)) return RESULT_SUCCESS;
        while (at_ < numbers_.size()) {
            if (current_.open(tasks_.get(), numbers_[at_++], owner_)) return RESULT_SUCCESS;
        }
        current_.close();
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        return current_.number() == 0 ? uint64_t{RESULT_NO_ITEM} : current_.item(item, value);
    }
    bool exists() override { return current_.exists(); }

private:
    process_table &table_;
    descriptor tasks_;
    std::vector<int> numbers_;
    size_t at_ = 0;
    int owner_;
    bool only_ = false;  // the only thread is open and not stepped on yet
    thread current_;
};

process_table::process_table(std::string path) : root_(std::move(path)), asked_(root_), asked_thread_(root_) {}

std::unique_ptr<walk> process_table::walk_all(uint64_t &result) {
    std::vector<int> numbers;
    result = result_of(root_.reader.list(root_.directory(), ".", numbers));
    if (result != RESULT_SUCCESS) return nullptr;
    if (std::find(numbers.begin(), numbers.end(), FIRST_PROCESS) == numbers.end())
        numbers.insert(numbers.begin(), FIRST_PROCESS);
    return std::make_unique<process_walk>(*this, std::move(numbers));
}

std::unique_ptr<walk> process_table::walk_threads(process &owner, uint64_t &result) {
    std::vector<int> numbers;
    descriptor tasks;
    result = RESULT_SUCCESS;
    if (owner.is_known_single()) {
        auto made = std::make_unique<thread_walk>(*this, descriptor(), std::vector<int>(), owner.number());
        if (made->open_only(owner)) return made;
    }
    result = result_of(owner.list_threads(numbers, tasks));
    if (result != RESULT_SUCCESS) return nullptr;
    return std::make_unique<thread_walk>(*this, std::move(tasks), std::move(numbers), owner.number());
}

uint64_t process_table::find(uint64_t handle, process *&found) {
    if (!PROCESS_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const int id = static_cast<int>(handle);
    for (process *one : walked_) {
        if (one->number() == id) {
            found = one;
            return RESULT_SUCCESS;
        }
    }
    // Further questions about the process that was asked for last go to that process, even if another has its number by
    // now.
    if (asked_.number() == id) {
        if (!asked_.exists()) return RESULT_NO_OBJECT;
    } else {
        if (!asked_.open(id)) return RESULT_NO_OBJECT;
        names_.erase(id);  // it may be another's that had the number when it was listed
        if (const uint64_t result = asked_.is_process(); result != RESULT_SUCCESS) {
            asked_.close();
            return result;
        }
    }
    if (was_ended(asked_)) return RESULT_NO_OBJECT;
    found = &asked_;
    return RESULT_SUCCESS;
}

uint64_t process_table::find_thread(uint64_t handle, thread *&found) {
    if (!THREAD_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const auto number = static_cast<int>(handle - THREAD_HANDLES.first);
    for (thread *one : walked_threads_) {
        if (one->number() == number) {
            found = one;
            return RESULT_SUCCESS;
        }
    }
    if (!asked_thread_.open(number)) return RESULT_NO_OBJECT;
    found = &asked_thread_;
    return RESULT_SUCCESS;
}

bool process_table::was_ended(process &candidate) {
    if (ended_.empty()) return false;
    const auto known = ended_.find(candidate.number());
    uint64_t start = 0;
    return known != ended_.end() && (!candidate.start(start) || start == known->second);
}

// A number that was handed out before is bound anew if another process has it now. What is known of the former one is
// forgotten.
void process_table::hand_out(process &candidate, uint64_t ticks) {
    const auto [given, is_new] = handed_out_.try_emplace(candidate.number(), binding{ticks});
    uint64_t start = 0;
    if (is_new || !candidate.start(start) || start <= given->second.ticks) return;
    given->second = {std::max(ticks, start)};
    names_.erase(candidate.number());
}

// The time stays that of the first listing.
void process_table::hand_out_by_name(int id, const std::string *name, uint64_t ticks) {
    binding &given = handed_out_.try_emplace(id, binding{ticks}).first->second;
    given.name_hash = name == nullptr ? 0 : std::hash<std::string>()(*name);
}

uint64_t process_table::now_ticks() const {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const uint64_t per_second = root_.ticks_per_second;
    return static_cast<uint64_t>(now.tv_sec) * per_second +
           static_cast<uint64_t>(now.tv_nsec) * per_second / 1000000000;
}

// ---- names ----------------------------------------------------------------------------------------------------------

// Only the number of a process that was not listed is looked up here: it may be a thread's.
uint64_t process_table::name(uint64_t handle, const std::string *&name) {
    if (!PROCESS_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const int id = static_cast<int>(handle);
    if (const auto known = names_.find(id); known != names_.end()) {
        name = &known->second;
        return RESULT_SUCCESS;
    }
    process *named = nullptr;
    std::string read;
    if (const uint64_t result = find(handle, named); result != RESULT_SUCCESS) return result;
    if (const uint64_t result = named->name(read); result != RESULT_SUCCESS) return result;
    name = &names_.emplace(id, std::move(read)).first->second;
    return RESULT_SUCCESS;
}

// For a listing, only the smallest file that has the name is read, unless the name may be cut.
uint64_t process_table::listed_name(int id, const std::string *&name) {
    name = nullptr;
    if (const auto known = names_.find(id); known != names_.end()) {
        name = &known->second;
        return RESULT_SUCCESS;
    }
    std::string_view text;
    const numbered_path path(id, "/comm");
    const int error = root_.reader.read(root_.directory(), path.c_str(), text);
    if (means_failure(error)) throw system_failure(PROCESS_DIRECTORY + std::string(path.c_str()), error);
    if (error != 0) return result_of(error);
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::string read(text);
    clean(read);
    if (text.size() == COMMAND_NAME_LENGTH) {
        process cut(root_);
        if (!cut.open(id)) return RESULT_NO_OBJECT;
        if (const uint64_t result = cut.name(read); result != RESULT_SUCCESS) return result;
    }
    name = &names_.emplace(id, std::move(read)).first->second;
    return RESULT_SUCCESS;
}

int process_table::listing::begin() { return table_.root_.reader.list(table_.root_.directory(), ".", numbers_); }

int process_table::listing::next(const std::string *&name) {
    while (at_ < numbers_.size()) {
        const int id = numbers_[at_++];
        const uint64_t ticks = table_.now_ticks();
        if (table_.handed_out_.contains(id) || table_.ended_.contains(id)) {
            process candidate(table_.root_);
            if (!candidate.open(id) || table_.was_ended(candidate)) continue;
            table_.hand_out(candidate, ticks);
        }
        const uint64_t result = table_.listed_name(id, name);
        if (result == RESULT_NO_OBJECT || result == RESULT_NOT_PERMITTED) continue;
        table_.hand_out_by_name(id, name, ticks);
        return id;
    }
    return 0;
}

// ---- acting ---------------------------------------------------------------------------------------------------------

// A process that is held to be acted on.
struct process_table::target {
    explicit target(proc_root &root) : looked_at(root) {}

    descriptor pidfd;
    process looked_at;
};

// The numbers in the process file system are those that the system calls take only where both see the same processes.
bool process_table::sees_itself() {
    char text[16];
    const ssize_t length = readlinkat(root_.directory(), "self", text, sizeof text);
    return length > 0 && std::string_view(text, static_cast<size_t>(length)) == numbered_path(root_.self).c_str();
}

// Every way to a call that acts goes through here. The descriptor is taken first and the process looked at afterwards,
// so that what is looked at and what is acted on are one process or, where it ended meanwhile, none.
uint64_t process_table::hold(uint64_t handle, target &held) {
    if (!PROCESS_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const int id = static_cast<int>(handle);
    held.pidfd = open_process(id);
    if (!held.pidfd) return errno == EINVAL ? RESULT_NO_OBJECT : result_of(errno);  // a thread's number
    if (!held.looked_at.open(id)) return RESULT_NO_OBJECT;
    if (const uint64_t result = held.looked_at.is_process(); result != RESULT_SUCCESS) return result;
    if (!sees_itself()) return RESULT_NOT_PERMITTED;
    if (was_ended(held.looked_at)) return RESULT_NO_OBJECT;
    uint64_t start = 0;
    if (!held.looked_at.start(start)) {
        if (held.looked_at.has_gone()) return RESULT_NO_OBJECT;
        return held.looked_at.failure() != RESULT_SUCCESS ? held.looked_at.failure() : uint64_t{RESULT_NOT_PERMITTED};
    }
    if (const auto given = handed_out_.find(id); given != handed_out_.end()) {
        const auto &[ticks, name_hash] = given->second;
        if (start > ticks) return RESULT_NO_OBJECT;
        // Within one tick of the system's times, it may be another one.
        std::string name;
        if (start == ticks && name_hash != 0 &&
            (held.looked_at.name(name) != RESULT_SUCCESS || std::hash<std::string>()(name) != name_hash))
            return RESULT_NO_OBJECT;
    }
    asked_.close();  // what is known of it may be about to change
    return RESULT_SUCCESS;
}

uint64_t process_table::end(uint64_t handle) {
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    const int id = held.looked_at.number();
    if (id == root_.self) return RESULT_SUCCESS;
    if (const uint64_t result = kill_process(held.pidfd); result != RESULT_SUCCESS) return result;
    uint64_t start = 0;
    held.looked_at.start(start);
    ended_[id] = start;
    names_.erase(id);
    return RESULT_SUCCESS;
}

uint64_t process_table::raise(uint64_t handle, uint64_t exception, uint64_t parameter) {
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    return signal_process(held.pidfd, exception, parameter);
}

uint64_t process_table::set_priority(uint64_t handle, uint64_t priority) {
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    return set_process_priority(held.looked_at, priority);
}

}  // namespace hosted::live
