// hosted/live/files.cpp - reading the operating system's files.
#include "hosted/live/files.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/sysvc.h"

namespace hosted::live {

namespace {

// read(file) returns 0 or an error number.
template <class Read> int open_and(const std::string &path, Read read) {
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    return unless_exhausted(file ? read(file.get()) : errno, path);
}

}  // namespace

int unless_exhausted(int error, const std::string &path) {
    if (error == EMFILE || error == ENFILE || error == ENOMEM) throw system_failure(path, error);
    return error;
}

void unless_absent(int error, const std::string &path) {
    switch (error) {
    case 0:
    case ENOENT:
    case ENOTDIR:
    case ESRCH:
    case EACCES:
    case EPERM: return;
    default: throw system_failure(path, error);
    }
}

// A poll of numbers that are not open reports each of them, and fails where they are more than the process may have
// open. Only where some are in use by files that this process was started with are the numbers taken to count them.
bool can_open(size_t count) {
    constexpr size_t first = STDERR_FILENO + 1;
    std::array<pollfd, 16> numbers{};
    count = std::min(count, numbers.size() - first);
    for (size_t i = 0; i < first + count; ++i) numbers[i].fd = i < first ? -1 : static_cast<int>(i);
    if (poll(numbers.data(), first + count, 0) == static_cast<int>(count)) return true;
    std::array<descriptor, numbers.size()> taken;
    for (size_t i = 0; i < count; ++i) {
        taken[i] = open_file(AT_FDCWD, "/", O_PATH);
        if (!taken[i]) return false;
    }
    return true;
}

int read_file(const std::string &path, std::span<char> buffer, std::string_view &text) {
    text = {};
    return open_and(path, [&](int file) { return read_all(file, buffer, text); });
}

int read_file(const std::string &path, std::string &text) {
    text.clear();
    return open_and(path, [&](int file) { return read_all(file, text, LARGEST_TEXT); });
}

std::string_view read_table(const std::string &path, std::span<char> buffer) {
    std::string_view text;
    unless_absent(read_file(path, buffer, text), path);
    return text;
}

std::string read_table(const std::string &path) {
    std::string text;
    unless_absent(read_file(path, text), path);
    return text;
}

uint32_t error_word(int error) {
    switch (error) {
    case EPERM:
    case EACCES: return static_cast<uint32_t>(RESULT_NOT_PERMITTED);
    case ENOENT:
    case ENODEV:
    case ENXIO:
    case EADDRNOTAVAIL: return IOERROR_NOT_FOUND;
    default: return SYSVCERR_SYSTEM + static_cast<uint32_t>(error);
    }
}

}  // namespace hosted::live
