// common/service.h - what svcinfo and svccall share: reaching a service device, and the description of one of its
// services.
//
// These functions print what failed on standard error, as "COMMAND: DEVICE: ...".
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/commandline.h"
#include "platform/device.h"
#include "platform/protocol/service.h"

// A service device with one request on it.
struct sb_service {
    const sb_commandline &line;
    const char *name;  // of the device
    uint64_t reply_port;
    uint64_t size;  // of the request, bytes

    // Filled by sb_service_open.
    device_record *device = nullptr;  // also where only the request failed: closing it is the caller's
    IOreq *request = nullptr;
};

// Checks that the device offers services, opens it and makes the request.
//   returns  false after a message
bool sb_service_open(sb_service &service);

// The part of the request at an offset.
template <class T> T *sb_service_block(const sb_service &service, uint64_t offset) {
    return reinterpret_cast<T *>(reinterpret_cast<unsigned char *>(service.request) + offset);
}

// Performs one command whose argument block lies at an offset in the request. Result of SyncIO.
int sb_service_perform(const sb_service &service, uint32_t command, uint64_t offset);

// Asks for the description of one service. A name or a description that does not fit what is to be done with it is
// refused as one that the device does not have.
//   called     the service's name
//   offset     where in the request the description goes
//   name_room  bytes of the shortest field that the name has to fit, with its NUL
//   max_args   arguments that there is room for
//   info       out: a copy of the description's fixed part; the server can write to the request at any time
//   returns    false after a message
bool sb_service_describe(const sb_service &service, const char *called, uint64_t offset, size_t name_room,
                         uint64_t max_args, svc_info_block *info);

// The result descriptors after the fixed part of the description at an offset in the request.
inline const svc_descriptor *sb_service_results(const sb_service &service, uint64_t offset) {
    return sb_service_block<svc_descriptor>(service, offset + sizeof(svc_info_block));
}

// The length of a name in a field, which a server may have filled without a NUL; for "%.*s".
int sb_service_namelen(const char *name, uint64_t field_size);

// Whether a device lists a class code.
//   port     reply port, or 0 or NO_OBJECT for a temporary one
//   returns  0 it does, -1 it does not or a query failed, 1 no temporary port could be made
int sb_check_class(const char *device, uint64_t device_class, uint64_t port);

const char *sb_svcls_type(uint64_t code);  // the name of a SVCTYPE_; "??" for any other
