// hosted/described/file.cpp - reading a machine file, holding it, and writing one.
#include "hosted/described/file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace hosted::described {
namespace {

constexpr size_t LARGEST_FILE = size_t{1} << 30;  // bytes; places in a document are counted in 32 bits
constexpr size_t PIECE = 65536;                   // bytes read at once, at least
constexpr mode_t NEW_FILE = 0666;                 // less the user's mask
constexpr mode_t PERMISSIONS = 0777;

std::string system_text(const std::string &path, int error) { return path + ": " + std::strerror(error); }

bool same_file(const struct stat &a, const struct stat &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

template <class Call> auto uninterrupted(Call call) {
    for (;;) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

// 0, or a system error number.
int read_all(int descriptor, std::string &text) {
    struct stat about {};
    if (fstat(descriptor, &about) != 0) return errno;
    if (S_ISDIR(about.st_mode)) return EISDIR;
    if (about.st_size > static_cast<off_t>(LARGEST_FILE)) return EFBIG;
    size_t filled = 0;
    text.resize(S_ISREG(about.st_mode) && about.st_size > 0 ? static_cast<size_t>(about.st_size) + 1 : PIECE);
    for (;;) {
        if (filled > LARGEST_FILE) return EFBIG;
        if (filled == text.size()) text.resize(filled * 2);
        const ssize_t count =
            uninterrupted([&] { return ::read(descriptor, text.data() + filled, text.size() - filled); });
        if (count < 0) return errno;
        if (count == 0) break;
        filled += static_cast<size_t>(count);
    }
    text.resize(filled);
    return 0;
}

int write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = uninterrupted([&] { return ::write(descriptor, text.data(), text.size()); });
        if (count < 0) return errno;
        text.remove_prefix(static_cast<size_t>(count));
    }
    return 0;
}

}  // namespace

machine_file::~machine_file() {
    if (descriptor_ >= 0) close(descriptor_);
}

bool machine_file::read(const std::string &path, const std::string &save_path, std::string &text,
                        std::string &message) {
    const auto failed = [&] {
        message = system_text(path, errno);
        return false;
    };
    for (;;) {
        descriptor_ = uninterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY); });
        if (descriptor_ < 0) return failed();
        struct stat opened {};
        struct stat named {};
        const bool kept = !save_path.empty() && fstat(descriptor_, &opened) == 0 &&
                          (save_path == path || (stat(save_path.c_str(), &named) == 0 && same_file(opened, named)));
        if (!kept) break;
        if (uninterrupted([&] { return flock(descriptor_, LOCK_EX); }) != 0) return failed();
        // Whoever held the lock may have put another file in this one's place.
        if (stat(path.c_str(), &named) == 0 && same_file(opened, named)) {
            const int error = read_all(descriptor_, text);
            if (error != 0) message = system_text(path, error);
            return error == 0;
        }
        close(descriptor_);
    }
    const int error = read_all(descriptor_, text);
    close(descriptor_);
    descriptor_ = -1;
    if (error != 0) message = system_text(path, error);
    return error == 0;
}

bool replace_file(const std::string &path, std::string_view text, std::string &message) {
    struct stat about {};
    const bool replaces = stat(path.c_str(), &about) == 0;
    if (replaces && !S_ISREG(about.st_mode)) {
        message = path + ": " + (S_ISDIR(about.st_mode) ? std::strerror(EISDIR) : "Not a plain file");
        return false;
    }
    const size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "" : path.substr(0, slash + 1);
    std::string beside;
    int descriptor = -1;
    for (unsigned attempt = 0; descriptor < 0; ++attempt) {
        beside = folder + ".ventix-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        descriptor = uninterrupted(
            [&] { return open(beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, NEW_FILE); });
        if (descriptor < 0 && errno != EEXIST) {  // one that is left of an earlier process stays
            message = system_text(path, errno);
            return false;
        }
    }
    // Who may read the file stays as it was.
    int error = replaces && fchmod(descriptor, about.st_mode & PERMISSIONS) != 0 ? errno : 0;
    if (error == 0) error = write_all(descriptor, text);
    if (close(descriptor) != 0 && error == 0) error = errno;
    if (error == 0 && rename(beside.c_str(), path.c_str()) != 0) error = errno;
    if (error == 0) return true;
    unlink(beside.c_str());
    message = system_text(path, error);
    return false;
}

}  // namespace hosted::described
