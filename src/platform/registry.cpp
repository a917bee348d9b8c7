// platform/registry.cpp - the registry client: one argument block and one request per call.
#include "platform/registry.h"

#include <cstring>

#include "platform/shared_request.h"

namespace {

// Does one operation on the shared request, under its lock.
//   room     bytes of the buffer that it needs; fails without a request where there are fewer
//   fill     writes the argument block
//   collect  copies the outputs of a request that succeeded; false where they cannot be right
template <class Fill, class Collect>
bool operate(const device_record *registry, uint32_t command, uint64_t room, Fill fill, Collect collect) {
    shared_request shared{};
    if (!find_shared_request(registry, shared) || !lock_shared_request(shared)) return false;
    bool succeeded = false;
    if (room <= shared.size) {
        fill(shared);
        succeeded = run_shared_request(shared, command) == IO_SUCCESS && collect(shared);
    }
    unlock_shared_request(shared);
    return succeeded;
}

bool nothing(const shared_request &) { return true; }

// Writes a block that points at a path, then the path with its NUL.
template <class Block> void put_with_path(const shared_request &shared, Block block, const char *path, size_t size) {
    block.path = address_in(shared, sizeof block);
    put(shared, 0, block);
    std::memcpy(shared.buffer + sizeof block, path, size);
}

// Does one operation whose argument block points at a path alone.
template <class Block, class Collect>
bool operate_on_path(const device_record *registry, uint32_t command, Block block, const char *path, Collect collect) {
    const size_t size = std::strlen(path) + 1;
    return operate(
        registry, command, sizeof block + size,
        [=](const shared_request &shared) { put_with_path(shared, block, path, size); }, collect);
}

// Marks a record whose begin or step failed: it is on no entry.
void mark_failed(RegIterator *record) { std::memcpy(record, &REG_ITERATOR_FAILED, sizeof REG_ITERATOR_FAILED); }

bool step(const device_record *registry, uint32_t command, RegIterator *record) {
    constexpr size_t at = offsetof(reg_step_block, iterator);
    return operate(
        registry, command, sizeof(reg_step_block),
        [&](const shared_request &shared) {
            put(shared, 0, reg_step_block{address_in(shared, at), *record});
        },
        [&](const shared_request &shared) {
            *record = get<RegIterator>(shared, at);
            return true;
        });
}

}  // namespace

device_record *g_registry_device = nullptr;

device_record *GetRegDev() { return open_once(g_registry_device, REGISTRY_DEVICE); }

bool RegCaps(device_record *registry, uint32_t *max_name, uint32_t *max_binary, uint32_t *max_depth) {
    return operate(
        registry, REGCMD_CAPS, sizeof(reg_caps_block), [](const shared_request &) {},
        [=](const shared_request &shared) {
            const auto caps = get<reg_caps_block>(shared, 0);
            if (max_name != nullptr) *max_name = caps.max_name;
            if (max_binary != nullptr) *max_binary = caps.max_binary;
            if (max_depth != nullptr) *max_depth = caps.max_depth;
            return true;
        });
}

bool RegKeyInfo(device_record *registry, const char *key, uint16_t *type, uint32_t *length) {
    return operate_on_path(registry, REGCMD_KEY_INFO, reg_info_block{}, key, [=](const shared_request &shared) {
        const auto info = get<reg_info_block>(shared, 0);
        *type = info.type;
        *length = info.length;
        return true;
    });
}

bool RegGetKeyInt(device_record *registry, const char *key, uint64_t *value) {
    return operate_on_path(registry, REGCMD_GET_INT, reg_int_block{}, key, [=](const shared_request &shared) {
        *value = get<reg_int_block>(shared, 0).value;
        return true;
    });
}

bool RegGetKeyBin(device_record *registry, const char *key, void *buffer, uint32_t *length) {
    const size_t size = std::strlen(key) + 1;
    const size_t data = sizeof(reg_bin_block) + size;  // offset of the data
    const uint32_t room = *length;
    return operate(
        registry, REGCMD_GET_BIN, data + room,
        [=](const shared_request &shared) {
            put_with_path(shared, reg_bin_block{0, address_in(shared, data), room}, key, size);
        },
        [=](const shared_request &shared) {
            const uint64_t delivered = get<reg_bin_block>(shared, 0).length;
            if (delivered > room) return false;
            *length = static_cast<uint32_t>(delivered);
            if (delivered != 0) std::memcpy(buffer, shared.buffer + data, delivered);
            return true;
        });
}

uint64_t RegBinaryRoom(device_record *registry, const char *key) {
    shared_request shared{};
    const uint64_t used = sizeof(reg_bin_block) + std::strlen(key) + 1;
    return find_shared_request(registry, shared) && used < shared.size ? shared.size - used : 0;
}

bool RegSetKeyBin(device_record *registry, const char *key, const void *data, uint64_t length) {
    const size_t size = std::strlen(key) + 1;
    const size_t at = sizeof(reg_bin_block) + size;         // offset of the data
    const uint64_t copied = static_cast<uint32_t>(length);  // Deliberate: the low half alone
    return operate(
        registry, REGCMD_SET_BIN, at + copied,
        [=](const shared_request &shared) {
            put_with_path(shared, reg_bin_block{0, address_in(shared, at), length}, key, size);
            if (copied != 0) std::memcpy(shared.buffer + at, data, copied);
        },
        nothing);
}

bool RegCreateTmp(device_record *registry, const char *path) {
    return operate_on_path(registry, REGCMD_CREATE_TMP, reg_path_block{}, path, nothing);
}

bool RegCreateGuard(device_record *registry, const char *path, uint64_t value) {
    return operate_on_path(registry, REGCMD_CREATE_GUARD, reg_int_block{0, value}, path, nothing);
}

bool RegItBegin(device_record *registry, RegIterator *record, const char *path) {
    constexpr size_t at = offsetof(reg_begin_block, iterator);
    const size_t size = std::strlen(path) + 1;
    const bool begun = operate(
        registry, REGCMD_ITERATOR_BEGIN, sizeof(reg_begin_block) + size,
        [=](const shared_request &shared) {
            put_with_path(shared, reg_begin_block{address_in(shared, at), 0, {}}, path, size);
        },
        [=](const shared_request &shared) {
            *record = get<RegIterator>(shared, at);
            return true;
        });
    if (!begun) mark_failed(record);
    return begun;
}

bool RegItNext(device_record *registry, RegIterator *record) {
    const bool stepped = step(registry, REGCMD_ITERATOR_NEXT, record);
    if (!stepped) mark_failed(record);
    return stepped;
}

bool RegItEnd(device_record *registry, RegIterator *record) { return step(registry, REGCMD_ITERATOR_END, record); }
