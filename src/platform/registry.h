// registry.h - the client of the system registry: a tree of keys addressed by slash-separated paths.
//
// All calls go through one request and one payload buffer per process, under one lock held for the whole call; a lock
// that cannot be taken or given back ends the calling task. They return false when the server reports an error (such as
// a missing key), when the arguments do not fit the payload buffer (nothing is sent then), and when the registry could
// not be opened; outputs are filled on success only. Nothing prints.
#pragma once

#include <cstdint>

#include "platform/device.h"
#include "platform/protocol/registry.h"

extern device_record *g_registry_device;  // the registry, once opened

// The registry device, opened by the first call and kept in g_registry_device; null when it cannot be opened. Never to
// be closed.
device_record *GetRegDev();

// What the registry allows, in bytes and levels; each pointer may be null.
bool RegCaps(device_record *registry, uint32_t *max_name, uint32_t *max_binary, uint32_t *max_depth);

// The kind of a key: REGTYPE_ and the length of its value in bytes (8 for an integer, 0 for a directory).
bool RegKeyInfo(device_record *registry, const char *key, uint16_t *type, uint32_t *length);

bool RegGetKeyInt(device_record *registry, const char *key, uint64_t *value);

// Reads a binary key.
//   length  in: room at buffer, bytes; out: bytes read. No NUL is appended.
bool RegGetKeyBin(device_record *registry, const char *key, void *buffer, uint32_t *length);

// The largest value, in bytes, that RegGetKeyBin can read of a key: what the payload buffer has room for beside the
// key. 0 where the registry could not be opened. Asks no server.
uint64_t RegBinaryRoom(device_record *registry, const char *key);

// Makes or replaces a binary key; length in bytes.
bool RegSetKeyBin(device_record *registry, const char *key, const void *data, uint64_t length);

bool RegCreateTmp(device_record *registry, const char *path);                    // a temporary directory
bool RegCreateGuard(device_record *registry, const char *path, uint64_t value);  // a key guarded by value

// Iterating a directory: begin; while the call succeeded and record->on_entry is nonzero, use the entry (name, type,
// length) and step; then end, once after every successful begin. A failed begin or step leaves the record on no entry.
// The record is as the server sent it: its name ends at a NUL or with its field, whichever comes first.
bool RegItBegin(device_record *registry, RegIterator *record, const char *path);
bool RegItNext(device_record *registry, RegIterator *record);
bool RegItEnd(device_record *registry, RegIterator *record);
