// proc_files.cpp - reading files and directories of the process file system.
#include "hosted/live/proc_files.h"

#include <dirent.h>
#include <fcntl.h>

#include <algorithm>
#include <charconv>

namespace hosted::live {

ssize_t file_reader::read_some(int file, size_t filled) {
    if (!buffer_) grow();
    return read_once(file, {buffer_.get() + filled, capacity_ - filled});
}

void file_reader::grow() {
    const size_t wanted = capacity_ == 0 ? ROOM : 2 * capacity_;
    auto larger = std::make_unique_for_overwrite<char[]>(wanted);
    if (buffer_) std::memcpy(larger.get(), buffer_.get(), capacity_);
    buffer_ = std::move(larger);
    capacity_ = wanted;
}

int file_reader::read(int directory, const char *path, std::string_view &text) {
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

int file_reader::read_front(int directory, const char *path, std::string_view &text) {
    const descriptor file = open_file(directory, path);
    if (!file) return errno;
    const ssize_t got = read_some(file.get(), 0);
    if (got < 0) return errno;
    text = {buffer_.get(), static_cast<size_t>(got)};
    return 0;
}

descriptor open_directory(int below, const char *path) { return open_file(below, path, O_RDONLY | O_DIRECTORY); }

int number_scan::next() {
    while (true) {
        if (at_ >= filled_) {
            if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(ROOM);
            const ssize_t got = getdents64(directory_.get(), buffer_.get(), ROOM);
            if (got <= 0) return 0;
            at_ = 0;
            filled_ = static_cast<size_t>(got);
        }
        dirent64 entry;
        const char *record = buffer_.get() + at_;
        std::memcpy(&entry.d_reclen, record + offsetof(dirent64, d_reclen), sizeof entry.d_reclen);
        at_ += std::max<size_t>(entry.d_reclen, 1);
        const char *name = record + offsetof(dirent64, d_name);
        const char *end = name + std::strlen(name);
        int number = 0;
        const auto [behind, error] = std::from_chars(name, end, number);
        if (error == std::errc{} && behind == end && number > 0) return number;
    }
}

void number_scan::rewind() {
    lseek(directory_.get(), 0, SEEK_SET);
    at_ = filled_ = 0;
}

numbered_path::numbered_path(int number, std::string_view behind) {
    char *end = std::to_chars(text_, text_ + sizeof text_, number).ptr;
    const size_t room = static_cast<size_t>(text_ + sizeof text_ - 1 - end);
    end += behind.copy(end, room);
    *end = '\0';
}

}  // namespace hosted::live
