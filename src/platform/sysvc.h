// sysvc.h - the client of the system service: the process model of tasks and the table of device major numbers.
//
// All calls go through one request and one payload buffer per process, under one lock held for the whole call; a lock
// that cannot be taken or given back ends the calling task. Nothing prints.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/device.h"
#include "platform/protocol/sysvc.h"

// System error numbers that the service's own errors map to.
enum : int {
    SYSERR_INVALID_ARGUMENT = 11,
    SYSERR_NOT_PERMITTED = 19,
    SYSERR_NO_SPACE = 22,
    SYSERR_NO_DEVICE = 31,
    SYSERR_NO_PROCESS = 45,
    SYSERR_NO_ADDRESS = 54,  // "No such device or address": everything else, a service that is not there included
};

extern device_record *g_sysvc_device;  // the service, once opened

// The service device, opened by the first call and kept in g_sysvc_device: the device that the environment variable
// SYSVC_DEVICE_NAME names, SYSVC_DEVICE where it is not set. Null when it cannot be opened. Never to be closed.
device_record *GetSystemService();

// Ids of a process: 0 and the id at *id (which may be null), or a SYSERR_ or other system error number and nothing
// stored. A service that fails with system error 0 gets just that, 0 and nothing stored.
//   task  the task's handle; for all but SysvcGetPid its process id
int SysvcGetPid(device_record *service, uint64_t task, uint64_t *pid);
int SysvcGetPPid(device_record *service, uint64_t task, uint64_t *ppid);
int SysvcGetPgid(device_record *service, uint64_t task, uint64_t *pgid);
int SysvcGetSid(device_record *service, uint64_t task, uint64_t *sid);

// The driver behind a device number.
//   name, size  room for its NUL-terminated name; too long a name is a failure
//   number      out
//   returns     false on failure; nothing is stored then
bool SysvcDecomposeDevice(device_record *service, uint64_t device_number, char *name, size_t size, uint32_t *number);

bool SysvcGetMaxMajor(device_record *service, uint32_t *max_major);
