// platform/sysvc.cpp - the system service client: one request per question.
#include "platform/sysvc.h"

#include <cstdlib>
#include <cstring>

#include "platform/shared_request.h"

namespace {

constexpr char NAME_VARIABLE[] = "SYSVC_DEVICE_NAME";

// The system error number for a failed request's error word.
int system_error(uint32_t error) {
    if (error - SYSVCERR_SYSTEM < SYSVCERR_SYSTEM_LIMIT) return static_cast<int>(error - SYSVCERR_SYSTEM);
    switch (error) {
    case SYSVCERR_NO_SPACE: return SYSERR_NO_SPACE;
    case SYSVCERR_INVALID_2:
    case SYSVCERR_INVALID_4:
    case SYSVCERR_INVALID_5: return SYSERR_INVALID_ARGUMENT;
    case SYSVCERR_NO_DEVICE: return SYSERR_NO_DEVICE;
    case SYSVCERR_NO_PROCESS: return SYSERR_NO_PROCESS;
    case SYSVCERR_NOT_PERMITTED: return SYSERR_NOT_PERMITTED;
    default: return SYSERR_NO_ADDRESS;
    }
}

// Locks a service's request for an argument block.
//   block    bytes
//   returns  false, with nothing locked, where the buffer is smaller or the lock cannot be taken
bool begin(const device_record *service, uint64_t block, shared_request &shared) {
    return find_shared_request(service, shared) && block <= shared.size && lock_shared_request(shared);
}

int ask_id(const device_record *service, uint32_t command, uint64_t task, uint64_t *id) {
    shared_request shared{};
    if (!begin(service, sizeof(sysvc_id_block), shared)) return SYSERR_NO_ADDRESS;
    if (command == SYSVCCMD_GET_PID) {
        // Deliberate: the master handle is asked for and not used. The service knows a task by the handle as given.
        uint64_t master = 0;
        static_cast<void>(_SL_GetObjectInfo(task, OBJINFO_HANDLE, &master));
    }
    put(shared, 0, sysvc_id_block{task, 0});
    int error = 0;
    if (run_shared_request(shared, command) != IO_SUCCESS) {
        error = system_error(shared.request->error);
    } else if (id != nullptr) {
        *id = get<sysvc_id_block>(shared, 0).id;
    }
    unlock_shared_request(shared);
    return error;
}

// Copies the driver's name from the buffer; false where it does not end there or does not fit.
bool take_name(const shared_request &shared, char *name, size_t size) {
    constexpr size_t at = sizeof(sysvc_device_block);
    const auto *text = reinterpret_cast<const char *>(shared.buffer) + at;
    const size_t length = strnlen(text, shared.size - at);
    if (length == shared.size - at || length >= size) return false;
    std::memcpy(name, text, length);
    name[length] = '\0';
    return true;
}

}  // namespace

device_record *g_sysvc_device = nullptr;

device_record *GetSystemService() {
    const char *chosen = std::getenv(NAME_VARIABLE);
    return open_once(g_sysvc_device, chosen != nullptr ? chosen : SYSVC_DEVICE);
}

int SysvcGetPid(device_record *service, uint64_t task, uint64_t *pid) {
    return ask_id(service, SYSVCCMD_GET_PID, task, pid);
}

int SysvcGetPPid(device_record *service, uint64_t task, uint64_t *ppid) {
    return ask_id(service, SYSVCCMD_GET_PPID, task, ppid);
}

int SysvcGetPgid(device_record *service, uint64_t task, uint64_t *pgid) {
    return ask_id(service, SYSVCCMD_GET_PGID, task, pgid);
}

int SysvcGetSid(device_record *service, uint64_t task, uint64_t *sid) {
    return ask_id(service, SYSVCCMD_GET_SID, task, sid);
}

bool SysvcDecomposeDevice(device_record *service, uint64_t device_number, char *name, size_t size, uint32_t *number) {
    shared_request shared{};
    if (!begin(service, sizeof(sysvc_device_block) + 1, shared)) return false;
    put(shared, 0, device_number);
    const bool known =
        run_shared_request(shared, SYSVCCMD_DECOMPOSE_DEVICE) == IO_SUCCESS && take_name(shared, name, size);
    if (known) *number = get<sysvc_device_block>(shared, 0).number;
    unlock_shared_request(shared);
    return known;
}

bool SysvcGetMaxMajor(device_record *service, uint32_t *max_major) {
    shared_request shared{};
    if (!begin(service, sizeof(sysvc_max_major_block), shared)) return false;
    const bool known = run_shared_request(shared, SYSVCCMD_GET_MAX_MAJOR) == IO_SUCCESS;
    if (known) *max_major = get<sysvc_max_major_block>(shared, 0).max_major;
    unlock_shared_request(shared);
    return known;
}
