// device.h - the client side of the device protocol: ports, devices, I/O requests and device queries.
//
// Order of calls: OpenDevice, CreateIOreq (with a reply port of the caller's), fill command and payload, SyncIO (or
// BeginIO and WaitIO), read the results, DeleteIOreq, CloseDevice. Records live in memory shared with the server and
// belong to it; nothing here frees them. Where they lie is the server's word, in its messages and in a request's device
// field, and is followed as it stands: whoever opens a device trusts its server with that, and with nothing else that
// it writes. Interrupted kernel calls are repeated unless a call says otherwise. Nothing prints.
#pragma once

#include <cstdint>

#include "platform/kernel.h"
#include "platform/protocol/device.h"

// Results of the I/O functions below 0; 0 is success, IO_FAILED an error reported by the server.
enum : int {
    IO_SUCCESS = 0,
    IO_FAILED = 1,          // the server finished the request with an error; see the request's error word
    IO_INTERRUPTED = -3,    // "Interrupted function call"
    IO_NO_REPLY = -20,      // "Input/output error": no usable reply
    IO_CANCELED = -35,      // "Operation canceled": the request was aborted
    IO_UNAVAILABLE = -47,   // "Resource temporarily unavailable": not sent, or the wait failed
    IO_TIME_EXPIRED = -73,  // "Time expired"
};

// Results of DeviceQuery.
enum : int {
    QUERY_SUCCESS = 0,
    QUERY_MISSING = 1,  // no registry device, or no name
    QUERY_UNKNOWN = 2,  // unknown query code; nothing was sent
    QUERY_NO_PORT = 4,
    QUERY_NO_DEVICE = 5,  // not in the registry
    QUERY_NOT_SENT = 6,
    QUERY_NO_REPLY = 7,
    QUERY_BAD_REPLY = 8,  // a reply with the wrong code
};

inline constexpr int64_t DEVICE_QUERY_TIMEOUT = 3000;  // milliseconds, for the send and again for the reply

// ---- time -----------------------------------------------------------------------------------------------------------

uint64_t TickGetCount();             // the kernel's tick counter, milliseconds
uint64_t TickSleep(uint32_t ticks);  // result of _SL_Delay

// ---- ports and tasks ------------------------------------------------------------------------------------------------

// Makes a port and a handle to it with the rights given, RIGHTS_SHARED added.
//   returns  the handle, or NO_OBJECT (the port is deleted again if the handle cannot be made)
uint64_t CreateSharedMsgPort(uint64_t reserved1, uint64_t reserved2, uint64_t task, uint64_t rights);

uint64_t DeleteMsgPort(uint64_t port);  // with all its handles; any handle to it will do. Result of _SL_DeleteObject
uint64_t DeleteTask(uint64_t task);     // 0 is the calling task. Result of _SL_DeleteObject
bool IsTaskSuper(uint64_t task);        // false too when its flags cannot be read
bool IsCurrentTaskSuper();

// ---- devices --------------------------------------------------------------------------------------------------------

// Finds a device's message port in the registry; REGISTRY_DEVICE itself is known by the kernel.
//   returns  the port, or NO_OBJECT
uint64_t GetDeviceMsgPort(const char *name);

// Opens a device by its name in the registry, or by its message port.
//   returns  the device record, or null; close it with CloseDevice
device_record *OpenDevice(const char *name);
device_record *OpenDeviceFromMsgPort(uint64_t port);

// Closes a device; a null record, or one that is no longer mapped, is ignored.
//   returns  0, or -1 where no reply port could be made
int64_t CloseDevice(device_record *device);

// ---- I/O requests ---------------------------------------------------------------------------------------------------

// Makes a request on an open device, under the device's semaphore.
//   unit        device unit that it addresses
//   size        total bytes, IOREQ_INLINE and the in-line area
//   reply_port  where its completion arrives
//   returns     the request, its header filled and its memory else zero, or null
IOreq *CreateIOreq(device_record *device, uint32_t unit, uint8_t flags, uint64_t size, uint64_t reply_port);

int DeleteIOreq(IOreq *request);       // 0, or IO_UNAVAILABLE where the device's semaphore could not be taken
int DeleteIOreqAsync(IOreq *request);  // does not wait for the server; 0 or IO_UNAVAILABLE

int BeginIO(IOreq *request);  // starts it; the completion arrives on its reply port. 0 or IO_UNAVAILABLE
int AbortIO(IOreq *request);  // asks for its abort; 0 or IO_UNAVAILABLE
int AbortIOEx(IOreq *request, int64_t timeout);  // the same; the send's time-out is clamped to 0..0x7FFFFFFF

// Waits for the completion of one started request.
//   timeout  milliseconds; WAIT_FOREVER never expires
//   returns  IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_TIME_EXPIRED, IO_UNAVAILABLE (the wait itself failed),
//            IO_NO_REPLY (a reply of unknown code)
// After IO_TIME_EXPIRED the request is still running in the server: abort it before deleting it.
int WaitIO(IOreq *request, int64_t timeout);

// Starts a request and waits for ever for its completion, ignoring replies of unknown code.
//   returns  IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_UNAVAILABLE (not sent; error word 1), IO_NO_REPLY (the receive
//            failed; error word 1)
int SyncIO(IOreq *request);

// Starts a request and waits for its completion with a time-out.
//   abort_on_timeout  on expiry or interruption abort the request and wait until the server has let go of it; when it
//                     turns out to have completed meanwhile, that counts
//   restart           repeat interrupted sends and receives (the time-out starts over)
//   returns           IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_NO_REPLY, IO_UNAVAILABLE, IO_TIME_EXPIRED, IO_INTERRUPTED
int SyncIOEx(IOreq *request, int64_t timeout, bool abort_on_timeout, bool restart);

// ---- queries: single messages that need no open device --------------------------------------------------------------

// Asks a device one query.
//   registry   the registry device (GetRegDev)
//   port       reply port, or 0 or NO_OBJECT for a temporary one
//   name       device name
//   code       DEVQUERY_GET_CLASS, DEVQUERY_PING, or one of the power-level pair
//   result     where the answer goes; may be null
//   returns    QUERY_
int DeviceQuery(device_record *registry, uint64_t port, const char *name, uint32_t code, uint64_t parameter,
                uint64_t *result);

// Tells whether a device lists a class code.
//   returns  0 it does, -1 it does not or a query failed, 1 no temporary port could be made
int CheckDeviceClass(device_record *registry, uint64_t port, const char *name, uint64_t device_class);
