// system_tree.h - trees of files that stand for the operating system's own, and plain reading of files.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "hosted/live/files.h"

// The sample: a system with odd texts in it, kept as files.
inline const hosted::live::file_roots &sample_system() {
    static const std::string base = VENTIX_SOURCE_DIR "/tests/hosted/live/system";
    static const hosted::live::file_roots roots = {base + "/proc", base + "/sys", base + "/dev", base + "/etc"};
    return roots;
}

// A directory of its own, with the roots below it; gone with its owner.
class system_tree {
public:
    system_tree() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ventix_live.XXXXXX").string();
        base_ = mkdtemp(pattern.data());
        for (const char *name : {"proc", "sys", "dev", "etc"}) std::filesystem::create_directory(base_ / name);
        roots = {path("proc"), path("sys"), path("dev"), path("etc")};
    }
    ~system_tree() { std::filesystem::remove_all(base_); }
    system_tree(const system_tree &) = delete;
    system_tree &operator=(const system_tree &) = delete;

    std::string path(std::string_view name) const { return (base_ / name).string(); }

    void put(std::string_view name, std::string_view text) const {
        std::filesystem::create_directories((base_ / name).parent_path());
        std::ofstream(path(name)) << text;
    }

    hosted::live::file_roots roots;

private:
    std::filesystem::path base_;
};

inline std::string text_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}
