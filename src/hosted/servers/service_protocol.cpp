// hosted/servers/service_protocol.cpp - service devices: their list, the description of a service, and calls with typed
// results.
#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "hosted/servers/protocols.h"

namespace hosted {

namespace {

// Fills a field of a record with a text: no NUL where it takes the whole field, and cut where it is longer.
void fill(void *field, size_t size, std::string_view text) {
    std::memset(field, 0, size);
    std::memcpy(field, text.data(), std::min(text.size(), size));
}

// The text in a field, if it ends there.
template <size_t N> std::optional<std::string> read_field(const char (&field)[N]) {
    const size_t length = strnlen(field, N);
    if (length == N) return std::nullopt;
    return std::string(field, length);
}

svc_descriptor descriptor_of(const service_description::item &item) {
    svc_descriptor made{};
    fill(made.name, sizeof made.name, item.key);
    made.type = item.type;
    return made;
}

// One call, on the block of its request. Result texts are blocks of shared memory that live as long as the request.
class block_call : public service_call {
public:
    block_call(const request_view &request, svc_call_block &block, std::vector<uint64_t> &kept)
        : request_(request), block_(block), kept_(kept) {}

    uint64_t word(size_t argument) const override {
        return argument < SVC_MAX_ARGS ? read_once(block_.args[argument].value) : 0;
    }

    std::optional<std::string> text(size_t argument) const override {
        const auto found = request_.text(word(argument));
        return found ? std::optional<std::string>(*found) : std::nullopt;
    }

    std::optional<svc_sockaddr> address(size_t argument) const override {
        const auto bytes = request_.bytes(word(argument), sizeof(svc_sockaddr));
        if (bytes.empty()) return std::nullopt;
        svc_sockaddr value{};
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    void set_word(size_t result, uint64_t value) override {
        if (result < SVC_MAX_RESULTS) block_.results[result].value = value;
    }

    void set_text(size_t result, std::string_view value) override {
        keep(result, value.data(), value.size(), value.size() + 1);
    }

    void set_wide(size_t result, std::u32string_view value) override {
        keep(result, value.data(), value.size() * sizeof(char32_t), (value.size() + 1) * sizeof(char32_t));
    }

    void set_address(size_t result, const svc_sockaddr &value) override {
        keep(result, &value, sizeof value, sizeof value);
    }

private:
    // Copies a value into shared memory, followed by zeroes, and stores its address in the result's slot: 0 where there
    // is no memory.
    void keep(size_t result, const void *value, size_t bytes, size_t room) {
        if (result >= SVC_MAX_RESULTS) return;
        uint64_t &address = kept_.emplace_back();  // before the block, which would never be released without it
        address = request_.memory.allocate(room);
        if (address != 0) std::memcpy(request_.memory.span(address, room).data(), value, bytes);
        block_.results[result].value = address;
    }

    const request_view &request_;
    svc_call_block &block_;
    std::vector<uint64_t> &kept_;
};

class service_protocol : public device_protocol {
public:
    explicit service_protocol(service_source &source) : source_(source) {}

    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        switch (command) {
        case SVCCMD_LIST: return list(request);
        case SVCCMD_INFO: return info(request);
        case SVCCMD_CALL: return call(request);
        default: return std::nullopt;
        }
    }

    void forget(arena &memory, uint64_t request) override {
        const auto known = kept_.find(request);
        if (known == kept_.end()) return;
        for (const uint64_t address : known->second) memory.release(address);
        kept_.erase(known);
    }

private:
    uint32_t list(const request_view &request) const;
    uint32_t info(const request_view &request) const;
    uint32_t call(const request_view &request);

    // The index of the service of that name; nothing where there is none.
    std::optional<size_t> find(std::string_view name) const {
        for (size_t index = 0; index < source_.count(); ++index) {
            if (source_.describe(index).name == name) return index;
        }
        return std::nullopt;
    }

    service_source &source_;
    std::map<uint64_t, std::vector<uint64_t>> kept_;  // blocks of results, by the request that they go with
};

uint32_t service_protocol::list(const request_view &request) const {
    constexpr size_t fixed = offsetof(svc_list_block, names);
    const auto block = request.rest(request.payload);
    if (block.size() < fixed || request.payload % alignof(svc_list_block) != 0) return IOERROR_BAD_COMMAND;
    auto *shared = reinterpret_cast<svc_list_block *>(block.data());
    const uint64_t slots = std::min<uint64_t>(read_once(shared->capacity), (block.size() - fixed) / SVC_NAME_SIZE);
    const uint64_t returned = std::min<uint64_t>(slots, source_.count());
    for (size_t i = 0; i < returned; ++i) {
        fill(block.data() + fixed + i * SVC_NAME_SIZE, SVC_NAME_SIZE, source_.describe(i).name);
    }
    shared->total = source_.total();
    shared->returned = returned;
    return 0;
}

// Reports the true counts. Writes only the descriptors that the request has room for.
uint32_t service_protocol::info(const request_view &request) const {
    auto *block = request.block<svc_info_block>();
    const auto name = block != nullptr ? read_field(block->name) : std::nullopt;
    if (!name) return IOERROR_BAD_COMMAND;
    const auto index = find(*name);
    if (!index) return IOERROR_NOT_FOUND;
    const service_description &described = source_.describe(*index);
    block->arg_count = described.args.size();
    for (size_t i = 0; i < std::min(described.args.size(), SVC_MAX_ARGS); ++i) {
        block->args[i] = descriptor_of(described.args[i]);
    }
    block->result_count = described.results.size();
    const auto results = request.rest(request.payload).subspan(sizeof(svc_info_block));
    for (size_t i = 0; i < std::min(described.results.size(), results.size() / sizeof(svc_descriptor)); ++i) {
        const svc_descriptor result = descriptor_of(described.results[i]);
        std::memcpy(results.data() + i * sizeof result, &result, sizeof result);
    }
    return 0;
}

uint32_t service_protocol::call(const request_view &request) {
    auto *block = request.block<svc_call_block>();
    const auto name = block != nullptr ? read_field(block->name) : std::nullopt;
    if (!name) return IOERROR_BAD_COMMAND;
    const auto index = find(*name);
    if (!index) return IOERROR_NOT_FOUND;
    block_call made(request, *block, kept_[request.address]);
    return source_.call(*index, made);
}

}  // namespace

std::unique_ptr<device_protocol> make_service_protocol(service_source &source) {
    return std::make_unique<service_protocol>(source);
}

}  // namespace hosted
