// hosted/live/proc_reader.cpp - reads files and directories of the process file system.
#include "hosted/live/proc_reader.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "platform/kernel.h"

namespace hosted::live {

uint64_t result_of(int error) {
    switch (error) {
    case 0: return RESULT_SUCCESS;
    case ESRCH:
    case ENOENT: return RESULT_NO_OBJECT;
    case EINVAL: return RESULT_BAD_ARGUMENT;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case EAGAIN: return RESULT_NO_MEMORY;
    default: return RESULT_NOT_PERMITTED;
    }
}

ssize_t proc_reader::read_some(int file, size_t filled) {
    if (!buffer_) grow();
    return read_part(file, {buffer_.get() + filled, capacity_ - filled});
}

void proc_reader::grow() {
    const size_t wanted = capacity_ == 0 ? ROOM : 2 * capacity_;
    auto larger = std::make_unique_for_overwrite<char[]>(wanted);
    if (buffer_) std::memcpy(larger.get(), buffer_.get(), capacity_);
    buffer_ = std::move(larger);
    capacity_ = wanted;
}

int proc_reader::read(int directory, const char *path, std::string_view &text) {
    const descriptor file = open_file(directory, path);
    if (!file) return errno;
    size_t filled = 0;
    while (true) {
        const ssize_t got = read_some(file.get(), filled);
        if (got < 0) return errno;
        filled += static_cast<size_t>(got);
        if (filled < capacity_ || capacity_ >= LARGEST_TEXT) break;
        grow();
    }
    text = {buffer_.get(), filled};
    return 0;
}

int proc_reader::read_front(int directory, const char *path, std::string_view &text) {
    const descriptor file = open_file(directory, path);
    if (!file) return errno;
    const ssize_t got = read_some(file.get(), 0);
    if (got < 0) return errno;
    text = {buffer_.get(), static_cast<size_t>(got)};
    return 0;
}

int proc_reader::read_link(int directory, const char *path, std::string_view &text) {
    if (!buffer_) grow();
    const ssize_t got = readlinkat(directory, path, buffer_.get(), capacity_);
    if (got < 0) return errno;
    text = {buffer_.get(), static_cast<size_t>(got)};
    return 0;
}

int proc_reader::list(int directory, const char *path, std::vector<int> &numbers, descriptor *opened, int least) {
    numbers.clear();
    descriptor listed = open_file(directory, path, O_RDONLY | O_DIRECTORY);
    if (!listed) return errno;
    if (!buffer_) grow();
    while (true) {
        const ssize_t got = getdents64(listed.get(), buffer_.get(), capacity_);
        if (got == 0) break;
        if (got < 0) {
            const int error = errno;
            numbers.clear();
            return error;
        }
        const char *record = buffer_.get(), *const end = record + got;
        while (record < end) {
            uint16_t length = 0;
            std::memcpy(&length, record + offsetof(dirent64, d_reclen), sizeof length);
            const char *name = record + offsetof(dirent64, d_name);
            const char *const name_end = name + std::strlen(name);
            int number = 0;
            const auto [stop, error] = std::from_chars(name, name_end, number);
            if (error == std::errc{} && stop == name_end && number >= least) numbers.push_back(number);
            record += std::max<size_t>(length, 1);
        }
    }
    if (opened != nullptr) *opened = std::move(listed);
    return 0;
}

numbered_path::numbered_path(int number, std::string_view below) {
    char *end = std::to_chars(text_, text_ + sizeof text_, number).ptr;
    const size_t room = static_cast<size_t>(text_ + sizeof text_ - 1 - end);
    end += below.copy(end, room);
    *end = '\0';
}

}  // namespace hosted::live
