// hosted/described/devices.cpp - the servers of a described machine's devices.
#include "hosted/described/devices.h"

#include <algorithm>

#include "hosted/described/text.h"
#include "hosted/kernel/kernel.h"
#include "hosted/servers/protocols.h"
#include "hosted/utf8.h"
#include "platform/protocol/device.h"
#include "platform/protocol/service.h"
#include "platform/protocol/sysvc.h"

namespace hosted::described {
namespace {

class counters : public counter_source {
public:
    explicit counters(const std::vector<unit_counters> &units) : units_(units) {}

    uint32_t read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) override {
        const unit_counters *const found = find_numbered(units_, unit);
        if (found == nullptr) return IOERROR_NOT_FOUND;
        bytes.clear();
        if (found->raw) bytes = found->raw->substr(0, room);
        for (const auto &[name, value] : found->list) {
            if (!append_counter(bytes, room, name, value)) break;
        }
        returned = found->returned.value_or(bytes.size());
        return 0;
    }

private:
    const std::vector<unit_counters> &units_;
};

// Each byte that is not UTF-8 becomes the replacement character.
std::u32string wide_text(std::string_view text) {
    std::u32string wide;
    for (size_t at = 0; at < text.size();) {
        char32_t character = 0;
        if (!next_character(text, at, character)) {
            character = U'\uFFFD';
            ++at;
        }
        wide.push_back(character);
    }
    return wide;
}

class services : public service_source {
public:
    explicit services(const device &from) : device_(from) {}

    size_t count() const override { return device_.services ? device_.services->size() : 0; }
    uint64_t total() const override { return device_.services_total.value_or(count()); }
    const service_description &describe(size_t index) const override { return listed(index).description; }

    uint32_t call(size_t index, service_call &call) override {
        const service &called = listed(index);
        if (called.error) return *called.error;
        for (size_t i = 0; i < called.values.size(); ++i) {
            const auto &value = called.values[i];
            switch (value.what) {
            case service_result::kind::word: call.set_word(i, value.word); break;
            case service_result::kind::argument: call.set_word(i, call.word(value.word)); break;
            case service_result::kind::text:
                set_result_text(called.description.results[i].type, value.text, i, call);
                break;
            }
        }
        return 0;
    }

private:
    const service &listed(size_t index) const { return (*device_.services)[index]; }

    static void set_result_text(uint64_t type, const std::string &text, size_t result, service_call &call) {
        if (type == SVCTYPE_WIDE_STRING) return call.set_wide(result, wide_text(text));
        if (type != SVCTYPE_SOCKADDR) return call.set_text(result, text);
        if (const auto address = parse_address(text)) call.set_address(result, *address);
    }

    const device &device_;
};

class log : public log_source {
public:
    explicit log(log_record &record) : record_(record) {}

    uint32_t length(uint64_t &characters) override {
        characters = record_.text.size();
        return 0;
    }

    uint32_t read(uint64_t offset, uint64_t room, std::string_view &text) override {
        const std::string_view all = record_.text;
        text = all.substr(std::min<uint64_t>(offset, all.size()), room);
        return 0;
    }

    uint32_t write(std::string_view message) override {
        record_.text += message;
        if (!message.ends_with('\n')) record_.text += '\n';
        return 0;
    }

    void emergency(uint64_t word1, uint64_t code, uint64_t word2) override {
        record_.emergencies.push_back({word1, code, word2});
    }

private:
    log_record &record_;
};

class clock : public clock_source {
public:
    explicit clock(rtc_time &shown) : shown_(shown) {}

    uint32_t read(rtc_time &time) override {
        time = shown_;
        return 0;
    }

    uint32_t set(const rtc_time &time) override {
        shown_ = time;
        return 0;
    }

private:
    rtc_time &shown_;
};

class processes : public process_source {
public:
    processes(const system_service &from, const machine_records &records, machine &running)
        : records_(records), running_(running), drivers_(from.majors.begin(), from.majors.end()),
          max_major_(from.max_major) {}

    uint32_t id(uint32_t command, uint64_t key, uint64_t &value) override {
        const task *const asked = command == SYSVCCMD_GET_PID ? by_handle(key) : by_process(key);
        if (asked == nullptr) {
            const auto foreign = running_.process_id(command, key);
            value = foreign.value_or(value);
            return foreign ? 0 : uint32_t{SYSVCERR_NO_PROCESS};
        }
        const std::optional<uint64_t> *id = nullptr;
        switch (command) {
        case SYSVCCMD_GET_PID: id = &asked->pid; break;
        case SYSVCCMD_GET_PPID: id = &asked->ppid; break;
        case SYSVCCMD_GET_PGID: id = &asked->pgid; break;
        case SYSVCCMD_GET_SID: id = &asked->sid; break;
        default: return IOERROR_BAD_COMMAND;
        }
        if (!id->has_value()) return SYSVCERR_NO_PROCESS;
        value = **id;
        return 0;
    }

    const driver_map &drivers() override { return drivers_; }
    std::optional<uint32_t> max_major() override {
        return max_major_ ? max_major_ : process_source::max_major().value_or(0);
    }

private:
    const task *by_handle(uint64_t handle) const {
        const auto *const found = records_.objects.find(handle);
        if (found == nullptr || found->what != object_index::kind::task || found->object->gone) return nullptr;
        return static_cast<const task *>(found->object);
    }

    const task *by_process(uint64_t pid) {
        if (by_process_.empty()) {
            for (const task &listed : records_.tasks) {
                if (listed.pid) by_process_.emplace(*listed.pid, &listed);
            }
        }
        // Several tasks may have one id: take the first of the file that is not gone.
        const task *first = nullptr;
        const auto [begin, end] = by_process_.equal_range(pid);
        for (auto at = begin; at != end; ++at) {
            if (!at->second->gone && (first == nullptr || at->second < first)) first = at->second;
        }
        return first != nullptr ? first : by_handle(pid);
    }

    const machine_records &records_;
    machine &running_;
    const driver_map drivers_;
    std::unordered_multimap<uint64_t, const task *> by_process_;  // filled at the first lookup
    const std::optional<uint32_t> max_major_;
};

}  // namespace

device *device_maker::find(std::string_view name) {
    if (by_name_.empty()) {
        for (auto &listed : records_.devices) by_name_.emplace(listed.name, &listed);
    }
    const auto found = by_name_.find(name);
    return found == by_name_.end() ? nullptr : found->second;
}

std::unique_ptr<server> device_maker::make(kernel &owner, std::string_view name) {
    device *const from = find(name);
    if (from == nullptr) return nullptr;
    device_behaviour behaviour = static_cast<const device_behaviour &>(*from);
    const bool serves = from->services || from->services_total;
    auto &classes = behaviour.classes;
    if (serves && std::find(classes.begin(), classes.end(), SERVICE_CLASS) == classes.end()) {
        classes.push_back(SERVICE_CLASS);
    }
    auto made = std::make_unique<device_server>(owner, std::move(behaviour));
    if (from->counters) made->add(make_counter_protocol(keep(std::make_shared<counters>(*from->counters))));
    if (serves) made->add(make_service_protocol(keep(std::make_shared<services>(*from))));
    if (from->log) made->add(make_log_protocol(keep(std::make_shared<log>(*from->log))));
    if (from->rtc) made->add(make_clock_protocol(keep(std::make_shared<clock>(*from->rtc))));
    if (from->system_service) {
        auto ids = std::make_shared<processes>(*from->system_service, records_, owner.machine());
        made->add(make_system_service_protocol(keep(std::move(ids))));
        made->make_context(SYSTEM_SERVICE_BUFFER);
    }
    return made;
}

}  // namespace hosted::described
