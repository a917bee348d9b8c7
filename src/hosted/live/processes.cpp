// processes.cpp - walking, finding and naming processes.
#include "hosted/live/processes.h"

#include <cerrno>
#include <ctime>

#include "hosted/live/handles.h"
#include "platform/kernel.h"

namespace hosted::live {

// Over all processes. What a row has asked stays with it until the walk steps on.
class process_walk : public walk {
public:
    explicit process_walk(process_table &table)
        : table_(table), scan_(open_directory(table.root_.directory(), ".")), current_(table.root_) {
        table_.stood_on_.push_back(&current_);
    }
    ~process_walk() override { std::erase(table_.stood_on_, &current_); }

    bool lists() const { return scan_.directory() >= 0; }

    uint64_t step() override {
        while (const int id = scan_.next()) {
            if (!current_.open(id)) continue;
            current_.known_as_process();
            if (table_.was_ended(current_)) continue;
            table_.hand_out(id);
            return RESULT_SUCCESS;
        }
        current_.close();
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        return current_.number() == 0 ? uint64_t{RESULT_NO_ITEM} : current_.item(item, value);
    }

private:
    process_table &table_;
    number_scan scan_;
    process current_;
};

class thread_walk : public walk {
public:
    thread_walk(process_table &table, descriptor tasks, int owner)
        : table_(table), owner_(owner), scan_(std::move(tasks)), current_(table.root_) {
        table_.threads_stood_on_.push_back(&current_);
    }
    ~thread_walk() override { std::erase(table_.threads_stood_on_, &current_); }

    uint64_t step() override {
        while (const int id = scan_.next()) {
            if (current_.open(scan_.directory(), id, owner_)) return RESULT_SUCCESS;
        }
        current_.close();
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        return current_.number() == 0 ? uint64_t{RESULT_NO_ITEM} : current_.item(item, value);
    }

private:
    process_table &table_;
    int owner_;
    number_scan scan_;
    thread current_;
};

process_table::process_table(std::string path) : root_(std::move(path)), asked_(root_), asked_thread_(root_) {}

std::unique_ptr<walk> process_table::walk_all() {
    auto made = std::make_unique<process_walk>(*this);
    return made->lists() ? std::move(made) : nullptr;
}

std::unique_ptr<walk> process_table::walk_threads(process &owner, uint64_t &result) {
    descriptor tasks = open_directory(owner.directory(), "task");
    if (!tasks) {
        result = means_gone(errno) ? RESULT_NO_OBJECT : RESULT_NOT_PERMITTED;
        return nullptr;
    }
    result = RESULT_SUCCESS;
    return std::make_unique<thread_walk>(*this, std::move(tasks), owner.number());
}

uint64_t process_table::find(uint64_t handle, process *&found) {
    if (!PROCESS_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const int id = static_cast<int>(handle);
    for (process *one : stood_on_) {
        if (one->number() == id) {
            found = one;
            return RESULT_SUCCESS;
        }
    }
    // What is asked for the one that was asked last is about that process, also when another has its number by now.
    if (asked_.number() == id) {
        if (!asked_.exists()) return RESULT_NO_OBJECT;
    } else {
        if (!asked_.open(id)) return RESULT_NO_OBJECT;
        names_.erase(id);  // that of whoever had the number when it was listed
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
    for (thread *one : threads_stood_on_) {
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

void process_table::hand_out(int id) { handed_out_.try_emplace(id, now_ticks()); }

uint64_t process_table::now_ticks() const {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const uint64_t per_second = root_.ticks_per_second;
    return static_cast<uint64_t>(now.tv_sec) * per_second +
           static_cast<uint64_t>(now.tv_nsec) * per_second / 1000000000;
}

// ---- names ----------------------------------------------------------------------------------------------------------

// A number of which nothing is known yet is one of the system's processes, and no thread: only then is it looked up
// here.
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
    if (!named->name(read)) return RESULT_NO_OBJECT;
    name = &names_.emplace(id, std::move(read)).first->second;
    return RESULT_SUCCESS;
}

// Of a process that is only listed, just the smallest file is read that has its name, unless the name may be cut.
const std::string *process_table::listed_name(int id) {
    if (const auto known = names_.find(id); known != names_.end()) return &known->second;
    std::string_view text;
    if (root_.reader.read(root_.directory(), numbered_path(id, "/comm").c_str(), text) != 0) return nullptr;
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::string name(text);
    clean(name);
    if (text.size() == COMMAND_NAME_LENGTH) {
        process cut(root_);
        if (!cut.open(id) || !cut.name(name)) return nullptr;
    }
    return &names_.emplace(id, std::move(name)).first->second;
}

process_table::listing::listing(process_table &table)
    : table_(table), scan_(open_directory(table.root_.directory(), ".")) {}

int process_table::listing::next(const std::string *&name) {
    while (const int id = scan_.next()) {
        if (table_.ended_.contains(id)) {
            process candidate(table_.root_);
            if (!candidate.open(id) || table_.was_ended(candidate)) continue;
        }
        name = table_.listed_name(id);
        if (name == nullptr) continue;
        table_.hand_out(id);
        return id;
    }
    return 0;
}

}  // namespace hosted::live
