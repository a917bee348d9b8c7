// hosted/described/registry.h - the registry of a described machine.
//
// A tree of directories that keep the order of their entries. The kernel publishes run/proc and run/dev first; what the
// machine file gives for them follows. A directory of more than a few entries gets a hash index when the first path
// goes through it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/servers/registry_store.h"

namespace hosted {
class kernel;
}

namespace hosted::described {

class registry : public registry_store {
public:
    static constexpr uint32_t ROOT = 0;
    static constexpr uint32_t RUN = 1;
    static constexpr uint32_t PROC = 2;
    static constexpr uint32_t DEV = 3;

    struct entry {
        enum class kind : uint8_t { nothing, integer, port, bytes, directory };

        std::string name = {};
        kind holds = kind::nothing;  // what reading it returns; port: that of the device of this name
        bool temporary = false;      // a directory
        bool unreadable = false;     // listed and described only
        bool published = false;      // by the kernel
        bool gone = false;
        bool guarded = false;  // an integer that is a port: listed while the port exists
        uint32_t directory = 0;
        uint64_t number = 0;
        std::string bytes = {};
        std::optional<uint16_t> type = {};  // type and length are shown in place of the content's
        std::optional<uint32_t> length = {};

        uint16_t shown_type() const;
        uint32_t shown_length() const;
    };

    registry();

    // Appends an entry to a directory; one that holds a directory gets an empty one. The reference is valid until the
    // next entry is added.
    entry &add(uint32_t directory, entry added);

    // The directory that the kernel publishes under a name, to which a machine file may add; null if there is none.
    entry *published_directory(uint32_t directory, std::string_view name);

    // Add the entry of a running task or of a device, as the kernel does, and remove that of a task that has ended. A
    // withdrawn entry keeps its position, so that a walk goes on.
    void publish_task(uint64_t handle, std::string_view name);
    void publish_device(std::string_view name);
    void withdraw_task(uint64_t handle);

    // Allocates memory for that many more entries.
    void reserve(uint32_t directory, size_t count);

    entry &entry_at(uint32_t directory, size_t index) { return directories_[directory].entries[index]; }
    std::span<const entry> entries(uint32_t directory) const { return directories_[directory].entries; }

    // Entries that the machine file gives.
    size_t given_count() const;

    // Takes the kernel that knows the ports of devices.
    void attach(kernel &owner) { kernel_ = &owner; }

    registry_limits allowed;

    // ---- as the registry server asks ----------------------------------------------------------------------------

    registry_limits limits() const override { return allowed; }
    registry_cursor list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;
    uint32_t write_binary(std::string_view path, std::string_view value) override;
    uint32_t create_temporary(std::string_view path) override;
    uint32_t create_guard(std::string_view path, uint64_t value, uint64_t client) override;

private:
    struct folder {
        std::vector<entry> entries;
        std::vector<uint32_t> index;  // open addressing: 1 + the first entry of a name, 0 where free
        size_t indexed = 0;           // entries that the index knows
        std::shared_ptr<char> walks;  // shared with each walk that is under way
    };

    bool is_gone(const entry &there) const;
    void trim(uint32_t directory);
    entry *find(uint32_t directory, std::string_view name);
    entry *find(std::string_view path);  // null: no such entry, or the root
    std::optional<uint32_t> find_directory(std::string_view path);
    void bring_index_up(folder &where);
    static uint32_t &slot_of(folder &where, std::string_view name);
    uint32_t new_directory();
    uint32_t make_key(std::string_view path, entry made);

    std::vector<folder> directories_;  // one array: releasing a deep tree needs no recursion
    kernel *kernel_ = nullptr;
};

}  // namespace hosted::described
