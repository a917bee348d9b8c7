// platform/device.h - the client side of the device protocol: ports, devices, I/O requests and device queries.
//
// Order of calls: OpenDevice, CreateIOreq (with a reply port of the caller's), fill command and payload, SyncIO (or
// BeginIO and WaitIO), read the results, DeleteIOreq, CloseDevice. A request may be run any number of times.
// Interrupted kernel calls are repeated unless a call says otherwise. Nothing prints.
//
// Ownership: device records and requests live in memory of the server's, mapped by both. CloseDevice and DeleteIOreq
// return them; nothing here frees them. A closed device takes its requests with it. A reply port is the caller's,
// and must outlive the requests that it was given to.
//
// Trust: the addresses of a device record, of its client context and of a request come from the server, in its messages
// and at the open. They are read once and followed unchecked: whoever opens a device trusts its server with those.
// Whatever else a server writes, then or later, can fail a request and no more: the library reads no pointer from a
// server's memory again, and sends to the ports that it read at the open. Callers must bound and copy what they read
// from a request: the server may write to it at any time.
//
// Threads: different requests may be used by different threads at once. One request is used by one thread at a time.
#pragma once

#include <cstdint>

#include "platform/kernel.h"
#include "platform/protocol/device.h"

// Results of the I/O functions.
enum : int {
    IO_SUCCESS = 0,
    IO_FAILED = 1,          // the request completed with an error: see its error word
    IO_INTERRUPTED = -3,    // "Interrupted function call"
    IO_NO_REPLY = -20,      // "Input/output error": no reply that can be used
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
    QUERY_NO_REPLY = 7,   // within DEVICE_QUERY_TIMEOUT
    QUERY_BAD_REPLY = 8,  // a reply with the wrong code
};

inline constexpr int64_t DEVICE_QUERY_TIMEOUT = 3000;  // milliseconds, for the send and again for the reply

// ---- time -----------------------------------------------------------------------------------------------------------

uint64_t TickGetCount();             // the kernel's tick counter, milliseconds
uint64_t TickSleep(uint32_t ticks);  // milliseconds; result of _SL_Delay

// ---- ports and tasks ------------------------------------------------------------------------------------------------

// Makes a port, and a handle to it that can be given to a server.
//   task     passed on to _SL_CreateHandle; 0
//   rights   RIGHTS_ word; RIGHTS_SHARED is added
//   returns  the handle, or NO_OBJECT with nothing created; delete it with DeleteMsgPort
uint64_t CreateSharedMsgPort(uint64_t reserved1, uint64_t reserved2, uint64_t task, uint64_t rights);

uint64_t DeleteMsgPort(uint64_t port);  // by any of its handles, with all of them. Result of _SL_DeleteObject
uint64_t DeleteTask(uint64_t task);     // 0: the calling task. Result of _SL_DeleteObject
bool IsTaskSuper(uint64_t task);        // false too where its flags cannot be read
bool IsCurrentTaskSuper();

// ---- devices --------------------------------------------------------------------------------------------------------

// Finds a device's message port in the registry. The port of REGISTRY_DEVICE is the kernel's to know.
//   returns  the port, or NO_OBJECT where the name is null or empty or has no device
uint64_t GetDeviceMsgPort(const char *name);

// Opens a device by its name in the registry, or by its message port. Waits for the server's answer for ever.
//   returns  the device record, or null: no such device, a refusal, or no memory. Close it with CloseDevice
device_record *OpenDevice(const char *name);
device_record *OpenDeviceFromMsgPort(uint64_t port);

// Closes a device and waits for the server's answer. A null record, or one that is no longer mapped, is ignored.
//   returns  0, or -1 with the device still open where no reply port could be made
int64_t CloseDevice(device_record *device);

// ---- I/O requests ---------------------------------------------------------------------------------------------------

// Makes a request on an open device, under the device's semaphore.
//   unit        the device unit that it addresses
//   flags       IOREQ_FLAGS_DEFAULT
//   size        bytes in total: IOREQ_INLINE and the in-line area
//   reply_port  a handle to the port where its completions arrive
//   returns     the request, with the fields of protocol/device.h that are set at creation, or null
IOreq *CreateIOreq(device_record *device, uint32_t unit, uint8_t flags, uint64_t size, uint64_t reply_port);

// Deletes a request that is not running. DeleteIOreq waits for the server, DeleteIOreqAsync does not.
//   returns  IO_SUCCESS, or IO_UNAVAILABLE with the request still there: the device's semaphore could not be taken, or
//            the message could not be sent
int DeleteIOreq(IOreq *request);
int DeleteIOreqAsync(IOreq *request);

// Start a request, and ask for the abort of a started one. The answers arrive on its reply port.
//   timeout  milliseconds for the send, clamped to 0..0x7FFFFFFF; the others wait for ever
//   returns  IO_SUCCESS, or IO_UNAVAILABLE: not sent
int BeginIO(IOreq *request);
int AbortIO(IOreq *request);
int AbortIOEx(IOreq *request, int64_t timeout);

// Waits for the completion of a started request: for one message on its reply port.
//   timeout  milliseconds
//   returns  IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_TIME_EXPIRED, IO_UNAVAILABLE (the receive failed), IO_NO_REPLY (a
//            message of unknown code)
// After IO_TIME_EXPIRED the request is still running in the server: abort it before deleting it.
int WaitIO(IOreq *request, int64_t timeout);

// Starts a request and waits for ever for its completion. Ignores messages of unknown code.
//   returns  IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_UNAVAILABLE (not sent; error word 1), IO_NO_REPLY (the receive
//            failed; error word 1)
int SyncIO(IOreq *request);

// Starts a request and waits for its completion with a time-out.
//   timeout           milliseconds for the completion; the send waits for ever
//   abort_on_timeout  on expiry or interruption abort the request and wait until the server has released it. A request
//                     that completed meanwhile is IO_SUCCESS
//   restart           repeat interrupted sends and receives; the time-out starts over
//   returns           IO_SUCCESS, IO_FAILED, IO_CANCELED, IO_NO_REPLY (a message of unknown code), IO_TIME_EXPIRED and
//                     IO_INTERRUPTED (aborted, or the begin was not sent), IO_UNAVAILABLE (anything else). The error
//                     word is 1 for the last three. Without abort_on_timeout the request may still run after
//                     IO_UNAVAILABLE
int SyncIOEx(IOreq *request, int64_t timeout, bool abort_on_timeout, bool restart);

// ---- queries: single messages that need no open device --------------------------------------------------------------

// Asks a device one query and waits for the answer, DEVICE_QUERY_TIMEOUT at most.
//   registry   the registry device (GetRegDev)
//   port       reply port, or 0 or NO_OBJECT for a temporary one
//   name       of the device
//   code       DEVQUERY_GET_CLASS, DEVQUERY_PING, or one of the power-level pair
//   parameter  the query's own
//   result     out, on success; may be null
//   returns    QUERY_
int DeviceQuery(device_record *registry, uint64_t port, const char *name, uint32_t code, uint64_t parameter,
                uint64_t *result);

// Asks whether a device lists a class code. Arguments as of DeviceQuery.
//   returns  0: it does; -1: it does not, or a query failed; 1: no temporary port could be made
int CheckDeviceClass(device_record *registry, uint64_t port, const char *name, uint64_t device_class);
