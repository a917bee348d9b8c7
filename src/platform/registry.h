// platform/registry.h - the client of the system registry: a tree of keys addressed by paths with '/' between names.
//
// All calls share one request and one payload buffer per process, under one lock held for the whole call, so that any
// thread may call. A lock that cannot be taken or released ends the calling task. The calls return false where the
// server reports an error (such as a missing key), where the arguments do not fit the payload buffer (nothing is sent)
// and where the registry could not be opened. Outputs are filled on success only. Nothing prints.
#pragma once

#include <cstdint>

#include "platform/device.h"
#include "platform/protocol/registry.h"

extern device_record *g_registry_device;  // the registry, once opened

// The registry device. The first call opens it; g_registry_device holds it from then on.
//   returns  the record, never to be closed, or null where it cannot be opened
device_record *GetRegDev();

// What the registry allows.
//   max_name, max_binary  out, bytes of the longest key name and binary value; may be null
//   max_depth             out, levels of directories; may be null
bool RegCaps(device_record *registry, uint32_t *max_name, uint32_t *max_binary, uint32_t *max_depth);

// Describes a key.
//   type    out, REGTYPE_
//   length  out, bytes of its value: 8 for an integer, 0 for a directory. The server's word, unbounded
bool RegKeyInfo(device_record *registry, const char *key, uint16_t *type, uint32_t *length);

// Reads an integer key.
bool RegGetKeyInt(device_record *registry, const char *key, uint64_t *value);

// Reads a binary key.
//   buffer  no NUL is appended
//   length  in: the capacity asked for, bytes; out: bytes read, at most that
// Capacity and key must fit the payload buffer: RegBinaryRoom says how much does. With more, the call fails and touches
// neither buffer nor length, so that the buffer never has to hold more than RegBinaryRoom.
bool RegGetKeyBin(device_record *registry, const char *key, void *buffer, uint32_t *length);

// The largest capacity that fits beside a key, in bytes. Makes no kernel call.
uint64_t RegBinaryRoom(device_record *registry, const char *key);

// Makes or replaces a binary key.
//   length  bytes
bool RegSetKeyBin(device_record *registry, const char *key, const void *data, uint64_t length);

// Make a temporary directory, and a key guarded by a value.
bool RegCreateTmp(device_record *registry, const char *path);
bool RegCreateGuard(device_record *registry, const char *path, uint64_t value);

// Iterates over a directory: begin; while the call succeeded and record->on_entry is nonzero, use the entry (name,
// type, length) and step; end once after every successful begin, also one whose loop stopped early. A failed begin or
// step leaves the record on no entry.
//   record  the caller's, in and out. As the server sent it: its name may lack the NUL and fill the field
bool RegItBegin(device_record *registry, RegIterator *record, const char *path);
bool RegItNext(device_record *registry, RegIterator *record);
bool RegItEnd(device_record *registry, RegIterator *record);
