// hosted/descriptors.cpp - file descriptors that have an owner, and reads and writes that finish.
#include "hosted/descriptors.h"

#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

namespace hosted {

descriptor &descriptor::operator=(descriptor &&other) noexcept {
    std::swap(number_, other.number_);
    return *this;
}

// Never retried: the number is free after an interrupted close, and may be another file's by then.
int descriptor::close() {
    const int number = release();
    return number >= 0 && ::close(number) != 0 && errno != EINTR ? errno : 0;
}

descriptor open_file(int directory, const char *path, int flags, mode_t mode) {
    return descriptor(retry_interrupted([&] { return openat(directory, path, flags | O_CLOEXEC | O_NOCTTY, mode); }));
}

ssize_t read_part(int file, std::span<char> buffer) {
    return retry_interrupted([&] { return read(file, buffer.data(), buffer.size()); });
}

int read_all(int file, std::span<char> buffer, std::string_view &text) {
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t got = read_part(file, buffer.subspan(filled));
        if (got < 0) return errno;
        if (got == 0) break;
        filled += static_cast<size_t>(got);
    }
    text = {buffer.data(), filled};
    return 0;
}

int read_all(int file, std::string &text, size_t limit) {
    constexpr size_t first_room = 8 << 10;
    size_t filled = 0;
    text.resize(std::min(std::max(text.capacity(), first_room), limit));
    while (true) {
        std::string_view more;
        if (const int error = read_all(file, std::span(text).subspan(filled), more)) {
            text.clear();
            return error;
        }
        filled += more.size();
        if (filled < text.size() || filled == limit) break;
        text.resize(filled <= limit / 2 ? 2 * filled : limit);
    }
    text.resize(filled);
    return 0;
}

int write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = retry_interrupted([&] { return write(file, text.data(), text.size()); });
        if (put <= 0) return put < 0 ? errno : EIO;
        text.remove_prefix(static_cast<size_t>(put));
    }
    return 0;
}

// ---- files that the user named --------------------------------------------------------------------------------------

namespace {

constexpr int MOST_LINKS = 40;  // on the way to a file, as the system allows
constexpr long PROC_SUPER_MAGIC = 0x9FA0;

// Whether a name may lead somewhere that its directory's other users chose.
bool is_foreign(int directory, const struct stat &named) {
    if (named.st_uid == geteuid() || named.st_uid == 0) return false;
    struct stat around {};
    return fstatat(directory, ".", &around, 0) != 0 || (around.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

// The links of /proc name open files, whatever their text; only the system can follow them.
bool is_proc(int directory) {
    struct statfs about {};
    return (directory == AT_FDCWD ? statfs(".", &about) : fstatfs(directory, &about)) == 0 &&
           about.f_type == PROC_SUPER_MAGIC;
}

// Opens one component of a path below its directory.
//   target  out: what the path continues with, where the component is a link that has to be followed
descriptor open_component(int directory, const char *name, int flags, mode_t mode, std::string &target) {
    descriptor opened = open_file(directory, name, flags | O_NOFOLLOW, mode);
    struct stat about {};
    const int error = errno;
    if (opened) {
        if (fstat(opened.get(), &about) != 0 || !S_ISFIFO(about.st_mode) || !is_foreign(directory, about))
            return opened;
        errno = EACCES;
    } else if ((error != ELOOP && error != ENOTDIR) || fstatat(directory, name, &about, AT_SYMLINK_NOFOLLOW) != 0 ||
               !S_ISLNK(about.st_mode)) {
        errno = error;
    } else if (is_foreign(directory, about)) {
        errno = EACCES;
    } else if (is_proc(directory)) {
        return open_file(directory, name, flags, mode);
    } else {
        target.resize(PATH_MAX);
        const ssize_t length = readlinkat(directory, name, target.data(), target.size());
        target.resize(length > 0 ? static_cast<size_t>(length) : 0);
    }
    return descriptor();
}

}  // namespace

descriptor open_named(std::string path, int flags, mode_t mode) {
    descriptor directory;
    if (path.empty()) errno = ENOENT;
    for (int links = 0; !path.empty();) {
        const size_t begin = path.find_first_not_of('/');
        if (begin != 0) directory = open_file(AT_FDCWD, "/", O_PATH | O_DIRECTORY);
        path.erase(0, begin);
        const size_t slash = path.find('/');
        const size_t next = std::min(path.find_first_not_of('/', slash), path.size());
        std::string rest = slash == path.npos ? "" : next == path.size() ? "." : path.substr(next);
        const std::string name = path.empty() ? "." : path.substr(0, slash);
        const int where = directory ? directory.get() : AT_FDCWD;
        std::string target;
        descriptor opened =
            open_component(where, name.c_str(), rest.empty() ? flags | O_NONBLOCK : O_PATH | O_DIRECTORY, mode, target);
        if (!opened && target.empty()) break;
        if (!target.empty()) {
            if (++links > MOST_LINKS) {
                errno = ELOOP;
                break;
            }
            path = rest.empty() ? target : target + "/" + rest;
        } else if (rest.empty()) {
            if ((flags & (O_NONBLOCK | O_PATH)) == 0) fcntl(opened.get(), F_SETFL, flags & ~O_NONBLOCK);
            return opened;
        } else {
            directory = std::move(opened);
            path = std::move(rest);
        }
    }
    return descriptor();
}

}  // namespace hosted
