// hosted/described/file.h - reading, locking and replacing machine files.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "hosted/descriptors.h"

namespace hosted::described {

// A machine file and the path that its machine is saved to. Where both are one file, it is locked from read() until
// this object ends, so that runs on one file take turns.
class machine_file {
public:
    // Reads the file at path. A wait of more than a second for the lock is reported on standard error.
    //   save_path  where save() writes; empty: nowhere
    //   message    out, on failure: "FILE: the system's text"
    bool read(const std::string &path, const std::string &save_path, std::string &text, std::string &message);

    bool is_saved() const { return !save_path_.empty(); }
    const std::string &save_path() const { return save_path_; }

    // Replaces the file at the save path. Refused if that is the machine file and another program has changed it since
    // it was read.
    //   message  out, on failure: "FILE: what failed"
    bool save(std::string_view text, std::string &message);

private:
    std::string save_path_;
    descriptor locked_;       // of the machine file, if the machine is saved to it
    struct stat version_ {};  // of that file when it was read
};

// Who may read a file that replaces another. inherited: the owner of a plain file stays its owner where the system
// permits, and its permissions stay, but none that the user's mask takes away unless that file is the caller's own.
enum class file_access : uint8_t { inherited, owner_only };

// Writes a file beside path and renames it, both synced to disk. Readable by nobody else until it is complete. A
// symbolic link at path is replaced; anything that is neither a plain file nor a link to one is refused. Signals are
// blocked meanwhile, so that none leaves a temporary file.
//   message  out, on failure: "FILE: the system's text"
bool replace_file(const std::string &path, std::string_view text, std::string &message,
                  file_access access = file_access::inherited);

}  // namespace hosted::described
