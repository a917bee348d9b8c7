// common/tasks.cpp - reading the registry's directory of running tasks.
#include "common/tasks.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/registry_entries.h"
#include "common/text.h"
#include "platform/kernel.h"
#include "platform/protocol/task.h"
#include "platform/registry.h"

namespace {
constexpr std::string_view process_directory = PROCESS_DIRECTORY;

// The registry path of a running task: the directory, copied once, and a key of at most REG_NAME_ROOM bytes.
class process_key {
public:
    process_key() { process_directory.copy(path_.data(), process_directory.size()); }
    const char *with(std::string_view name) {
        const size_t length = name.copy(path_.data() + process_directory.size(), REG_NAME_ROOM);
        path_[process_directory.size() + length] = '\0';
        return path_.data();
    }

private:
    std::array<char, process_directory.size() + REG_NAME_ROOM + 1> path_;
};
}  // namespace

uint64_t sb_gettaskhandle(const char *name) {
    device_record *registry = GetRegDev();
    uint32_t max_binary = 0;
    if (name == nullptr || !RegCaps(registry, nullptr, &max_binary, nullptr)) return NO_OBJECT;
    // A longest value that the registry's request cannot hold makes every read below fail.
    const uint64_t room = std::min<uint64_t>(max_binary, RegBinaryRoom(registry, PROCESS_DIRECTORY));
    const sb_text content(static_cast<char *>(std::malloc(room + 1)));
    RegIterator record;
    if (!content || !RegItBegin(registry, &record, PROCESS_DIRECTORY)) return NO_OBJECT;

    uint64_t handle = NO_OBJECT;
    process_key key;
    while (record.on_entry) {
        uint32_t length = max_binary;
        if (RegGetKeyBin(registry, key.with(sb_entryname(record)), content.get(), &length)) {
            content.get()[length] = '\0';
            if (std::strcmp(content.get(), name) == 0) {
                handle = parse_task_key(sb_entryname(record));
                break;
            }
        }
        if (!RegItNext(registry, &record)) break;
    }
    RegItEnd(registry, &record);
    return handle;
}

bool sb_gettaskname(uint64_t handle, char *buffer, size_t size) {
    if (size == 0) return false;
    std::array<char, TASK_KEY_SIZE> digits;
    write_task_key(digits.data(), handle);
    const std::string_view key_name(digits.data(), digits.size());
    auto length = static_cast<uint32_t>(std::min<size_t>(size - 1, UINT32_MAX));
    const bool known = RegGetKeyBin(GetRegDev(), process_key().with(key_name), buffer, &length);
    buffer[known ? length : key_name.copy(buffer, size - 1)] = '\0';
    return known;
}

bool sb_resolvetask(const char *operand, sb_taskoperand how, uint64_t *handle) {
    switch (how) {
    case sb_taskoperand::hex: *handle = parse_task_key(operand); return true;
    case sb_taskoperand::number: *handle = std::strtoul(operand, nullptr, 0); return true;
    case sb_taskoperand::name: break;
    }
    *handle = sb_gettaskhandle(operand);
    return *handle != NO_OBJECT;
}

uint64_t sb_get_master(uint64_t handle) {
    uint64_t master = 0;
    return _SL_GetObjectInfo(handle, OBJINFO_HANDLE, &master) == RESULT_SUCCESS ? master : handle;
}
