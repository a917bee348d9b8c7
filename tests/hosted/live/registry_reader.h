// tests/hosted/live/registry_reader.h - the contents of a registry as texts to compare.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "hosted/servers/registry_store.h"
#include "platform/protocol/registry.h"

// The names in a directory, each followed by a blank.
inline std::string names_in(hosted::registry_store &registry, std::string_view path) {
    const auto cursor = registry.list(path);
    if (!cursor) return "(none)";
    std::string names;
    for (hosted::registry_entry entry; cursor(entry);) names += entry.name + ' ';
    return names;
}

// A key: its type, and its value.
inline std::string key(hosted::registry_store &registry, std::string_view path) {
    uint16_t type = 0;
    uint32_t length = 0;
    uint64_t number = 0;
    std::string text;
    if (registry.describe(path, type, length) != 0) {
        EXPECT_NE(registry.read_binary(path, text), 0U) << path;
        return "(none)";
    }
    switch (type) {
    case REGTYPE_INT:
        EXPECT_EQ(length, 8U) << path;
        EXPECT_EQ(registry.read_int(path, number), 0U) << path;
        EXPECT_NE(registry.read_binary(path, text), 0U) << path;
        return "int " + std::to_string(static_cast<int64_t>(number));
    case REGTYPE_BIN:
        EXPECT_NE(registry.read_int(path, number), 0U) << path;
        if (const uint32_t error = registry.read_binary(path, text)) return "error " + std::to_string(error);
        EXPECT_EQ(length, text.size()) << path;
        return "bin " + text;
    default: EXPECT_EQ(length, 0U) << path; return "dir";
    }
}
