// platform/sysvc.h - the client of the system service: the process model of tasks and the table of device major
// numbers.
//
// All calls share one request and one payload buffer per process, under one lock held for the whole call, so that any
// thread may call. A lock that cannot be taken or released ends the calling task. Nothing prints.
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
    SYSERR_NO_ADDRESS = 54,  // "No such device or address": everything else, also where there is no service
};

extern device_record *g_sysvc_device;  // the service, once opened

// The service device: the one that the environment variable SYSVC_DEVICE_NAME names, or SYSVC_DEVICE where that is not
// set. The first call opens it; g_sysvc_device holds it from then on.
//   returns  the record, never to be closed, or null where it cannot be opened
device_record *GetSystemService();

// Read the ids of a process.
//   task     the task's handle for SysvcGetPid, its process id for the others
//   pid ...  out, on success; may be null
//   returns  0, or a SYSERR_ or other system error number. Deliberate: where the service fails with system error 0, the
//            call returns 0 and stores nothing
int SysvcGetPid(device_record *service, uint64_t task, uint64_t *pid);
int SysvcGetPPid(device_record *service, uint64_t task, uint64_t *ppid);
int SysvcGetPgid(device_record *service, uint64_t task, uint64_t *pgid);
int SysvcGetSid(device_record *service, uint64_t task, uint64_t *sid);

// Finds the driver of a device number.
//   name, size  out: its NUL-terminated name, in a field of so many bytes
//   number      out: the number's part for that driver
//   returns     false, with nothing stored, where the service fails or the name does not fit
bool SysvcDecomposeDevice(device_record *service, uint64_t device_number, char *name, size_t size, uint32_t *number);

// The highest major number. False, with nothing stored, where the service fails.
bool SysvcGetMaxMajor(device_record *service, uint32_t *max_major);
