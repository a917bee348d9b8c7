// hosted/live/system_tree.h - trees of files in place of the operating system's own.
#pragma once

#include <filesystem>
#include <string>

#include "hosted/live/files.h"
#include "run_ventix.h"

// The sample: a system with odd texts in it, kept as files.
inline const hosted::live::file_roots &sample_system() {
    static const std::string base = VENTIX_SOURCE_DIR "/tests/hosted/live/system";
    static const hosted::live::file_roots roots = {base + "/proc", base + "/sys", base + "/dev", base + "/etc"};
    return roots;
}

// A directory of its own, with the roots below it; gone with its owner.
class system_tree {
    scratch_directory scratch_;  // in front of the roots, which lie in it

public:
    const hosted::live::file_roots roots = {path("proc"), path("sys"), path("dev"), path("etc")};

    system_tree() {
        for (const char *name : {"proc", "sys", "dev", "etc"}) std::filesystem::create_directory(path(name));
    }

    std::string path(const std::string &name) const { return scratch_.file(name); }

    void put(const std::string &name, const std::string &text) const {
        std::filesystem::create_directories(std::filesystem::path(path(name)).parent_path());
        scratch_.write(name, text);
    }
};
