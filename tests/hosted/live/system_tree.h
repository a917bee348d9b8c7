// tests/hosted/live/system_tree.h - trees of files that replace the operating system's own.
#pragma once

#include <filesystem>
#include <string>

#include "hosted/live/files.h"
#include "run_ventix.h"

// The sample: the files of a system with odd texts.
inline const hosted::live::file_roots &sample_system() {
    static const std::string base = VENTIX_SOURCE_DIR "/tests/hosted/live/system";
    static const hosted::live::file_roots roots = {base + "/proc", base + "/sys", base + "/dev", base + "/etc"};
    return roots;
}

// The roots in a directory of their own, which is removed with this object.
class system_tree {
    scratch_directory scratch_;  // declared before the roots, whose paths it supplies

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
