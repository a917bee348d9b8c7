// hosted/described/file.h - reading a machine file, holding it, and writing one.
#pragma once

#include <string>
#include <string_view>

namespace hosted::described {

// A machine file that was read. Where the machine is to be saved to the same file, it is locked from the reading to
// this object's end, so that runs on one file follow one another.
class machine_file {
public:
    machine_file() = default;
    ~machine_file();
    machine_file(const machine_file &) = delete;
    machine_file &operator=(const machine_file &) = delete;

    // Reads the file at path.
    //   save_path  where the machine is to be saved; empty: nowhere
    //   message    out, on failure: "FILE: the system's text"
    bool read(const std::string &path, const std::string &save_path, std::string &text, std::string &message);

private:
    int descriptor_ = -1;  // of the locked file
};

// Writes a file beside path and renames it, never through a symbolic link. A file that is there leaves its permissions
// to the new one; what is no plain file stays.
//   message  out, on failure: "FILE: the system's text"
bool replace_file(const std::string &path, std::string_view text, std::string &message);

}  // namespace hosted::described
