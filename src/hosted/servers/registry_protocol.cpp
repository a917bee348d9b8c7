// hosted/servers/registry_protocol.cpp - the registry's commands over a machine's tree of keys.
#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "hosted/descriptors.h"
#include "hosted/servers/protocols.h"
#include "platform/protocol/registry.h"

namespace hosted {

namespace {

constexpr uint64_t LONGEST_PATH = uint64_t{1} << 20;  // bytes: no key's comes near it

// A command's argument block and a copy of the path that it points at.
template <class Block> struct arguments {
    Block *block = nullptr;  // null where either is out of reach, or the path too long
    std::string_view path;
};

template <class Block> arguments<Block> arguments_of(const request_view &request, std::string &copy) {
    auto *block = request.block<Block>();
    const auto path = block != nullptr ? request.text(read_once(block->path), LONGEST_PATH) : std::nullopt;
    if (!path) return {};
    copy.assign(*path);
    return {block, std::string_view(copy).substr(0, copy.find('\0'))};
}

class registry_protocol : public device_protocol {
public:
    explicit registry_protocol(registry_store &store) : store_(store) {}

    // Clients take a look-up that fails for a key that is not there, and an iteration that fails for one that is at its
    // end. What exists but cannot be read ends the run.
    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        try {
            return answer(command, request);
        } catch (const system_failure &failure) {
            throw lookup_failure(failure);
        }
    }

    std::string_view path_of(uint32_t command, const request_view &request) override {
        switch (command) {
        case REGCMD_KEY_INFO: return arguments_of<reg_info_block>(request, path_).path;
        case REGCMD_GET_INT:
        case REGCMD_CREATE_GUARD: return arguments_of<reg_int_block>(request, path_).path;
        case REGCMD_GET_BIN:
        case REGCMD_SET_BIN: return arguments_of<reg_bin_block>(request, path_).path;
        case REGCMD_CREATE_TMP: return arguments_of<reg_path_block>(request, path_).path;
        case REGCMD_ITERATOR_BEGIN: return arguments_of<reg_begin_block>(request, path_).path;
        default: return {};
        }
    }

    // An iteration that was never ended is released with the request that began it.
    void forget(arena &, uint64_t request) override {
        const auto first = words_.lower_bound({request, 0});
        auto last = first;
        for (; last != words_.end() && last->first == request; ++last) iterations_.erase(last->second);
        words_.erase(first, last);
    }

private:
    struct iteration {
        registry_cursor cursor;
        uint64_t request;
    };

    // Performs a command on its argument block and path.
    template <class Block>
    uint32_t on_path(const request_view &request,
                     uint32_t (registry_protocol::*act)(Block *, std::string_view, const request_view &)) {
        const auto [block, path] = arguments_of<Block>(request, path_);
        return block != nullptr ? (this->*act)(block, path, request) : uint32_t{IOERROR_BAD_COMMAND};
    }

    std::optional<uint32_t> answer(uint32_t command, const request_view &request) {
        switch (command) {
        case REGCMD_CAPS: return capabilities(request);
        case REGCMD_KEY_INFO: return on_path(request, &registry_protocol::key_info);
        case REGCMD_GET_INT: return on_path(request, &registry_protocol::get_int);
        case REGCMD_GET_BIN: return on_path(request, &registry_protocol::get_binary);
        case REGCMD_SET_BIN: return on_path(request, &registry_protocol::set_binary);
        case REGCMD_CREATE_TMP: return on_path(request, &registry_protocol::create_temporary);
        case REGCMD_CREATE_GUARD: return on_path(request, &registry_protocol::create_guard);
        case REGCMD_ITERATOR_BEGIN: return on_path(request, &registry_protocol::iterator_begin);
        case REGCMD_ITERATOR_NEXT: return iterator_next(request);
        case REGCMD_ITERATOR_END: return iterator_end(request);
        default: return std::nullopt;
        }
    }

    uint32_t capabilities(const request_view &request) const {
        auto *block = request.block<reg_caps_block>();
        if (block == nullptr) return IOERROR_BAD_COMMAND;
        const registry_limits limits = store_.limits();
        *block = {limits.name, limits.binary, limits.depth};
        return 0;
    }

    uint32_t key_info(reg_info_block *block, std::string_view path, const request_view &) {
        uint16_t type = 0;
        uint32_t length = 0;
        const uint32_t error = store_.describe(path, type, length);
        if (error != 0) return error;
        block->type = type;
        block->length = length;
        return 0;
    }

    uint32_t get_int(reg_int_block *block, std::string_view path, const request_view &) {
        uint64_t value = 0;
        const uint32_t error = store_.read_int(path, value);
        if (error == 0) block->value = value;
        return error;
    }

    // Delivers what fits the room.
    uint32_t get_binary(reg_bin_block *block, std::string_view path, const request_view &request) {
        const uint32_t error = store_.read_binary(path, value_);
        if (error != 0) return error;
        const uint64_t delivered = std::min<uint64_t>(read_once(block->length), value_.size());
        if (delivered != 0) {
            const auto room = request.bytes(read_once(block->data), delivered);
            if (room.empty()) return IOERROR_BAD_COMMAND;
            std::memcpy(room.data(), value_.data(), delivered);
        }
        block->length = delivered;
        return 0;
    }

    uint32_t set_binary(reg_bin_block *block, std::string_view path, const request_view &request) {
        const uint64_t length = read_once(block->length);
        const auto data = request.bytes(read_once(block->data), length);
        if (data.size() != length) return IOERROR_BAD_COMMAND;
        return store_.write_binary(path, {reinterpret_cast<const char *>(data.data()), data.size()});
    }

    uint32_t create_temporary(reg_path_block *, std::string_view path, const request_view &) {
        return store_.create_temporary(path);
    }

    uint32_t create_guard(reg_int_block *block, std::string_view path, const request_view &request) {
        return store_.create_guard(path, block->value, request.client);
    }

    uint32_t iterator_begin(reg_begin_block *block, std::string_view path, const request_view &request) {
        const auto record = request.bytes(read_once(block->record), sizeof(RegIterator));
        if (record.empty()) return IOERROR_BAD_COMMAND;
        auto cursor = store_.list(path);
        if (!cursor) return IOERROR_NOT_FOUND;
        do ++last_iteration_;
        while (last_iteration_ == 0 || iterations_.contains(last_iteration_));
        step(cursor, last_iteration_, record);
        words_.emplace(request.address, last_iteration_);
        iterations_.emplace(last_iteration_, iteration{std::move(cursor), request.address});
        return 0;
    }

    uint32_t iterator_next(const request_view &request) {
        const auto record = iterator_record(request);
        if (record.empty()) return IOERROR_BAD_COMMAND;
        const auto known = iterations_.find(server_word(record));
        if (known == iterations_.end()) return IOERROR_NOT_FOUND;
        step(known->second.cursor, known->first, record);
        return 0;
    }

    uint32_t iterator_end(const request_view &request) {
        const auto record = iterator_record(request);
        if (record.empty()) return IOERROR_BAD_COMMAND;
        const auto known = iterations_.find(server_word(record));
        if (known == iterations_.end()) return IOERROR_NOT_FOUND;
        words_.erase({known->second.request, known->first});
        iterations_.erase(known);
        std::fill(record.begin(), record.end(), std::byte{0});
        return 0;
    }

    static std::span<std::byte> iterator_record(const request_view &request) {
        const auto *block = request.block<reg_step_block>();
        return block != nullptr ? request.bytes(read_once(block->record), sizeof(RegIterator)) : std::span<std::byte>{};
    }

    static uint32_t server_word(std::span<const std::byte> record) {
        uint32_t word = 0;
        std::memcpy(&word, record.data(), sizeof word);
        return word;
    }

    // Moves a cursor to the next entry and writes its record.
    void step(const registry_cursor &cursor, uint32_t word, std::span<std::byte> record) {
        RegIterator shown{};
        shown.server_word = word;
        if (cursor(entry_)) {
            shown.on_entry = 1;
            shown.type = entry_.type;
            shown.length = entry_.length;
            std::memcpy(shown.name, entry_.name.data(), std::min(entry_.name.size(), sizeof shown.name - 1));
        }
        std::memcpy(record.data(), &shown, sizeof shown);
    }

    registry_store &store_;
    std::map<uint32_t, iteration> iterations_;       // by the server's word of their records
    std::set<std::pair<uint64_t, uint32_t>> words_;  // the same by their requests
    uint32_t last_iteration_ = 0;
    std::string path_, value_;  // these three are members so that look-ups reuse their memory
    registry_entry entry_;
};

}  // namespace

std::unique_ptr<device_protocol> make_registry_protocol(registry_store &store) {
    return std::make_unique<registry_protocol>(store);
}

}  // namespace hosted
