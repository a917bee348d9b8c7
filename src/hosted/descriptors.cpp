// hosted/descriptors.cpp - file descriptors that have an owner, and reads and writes that finish.
#include "hosted/descriptors.h"

#include <unistd.h>

#include <algorithm>

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

ssize_t read_once(int file, std::span<char> buffer) {
    return retry_interrupted([&] { return read(file, buffer.data(), buffer.size()); });
}

int read_all(int file, std::span<char> buffer, std::string_view &text) {
    size_t filled = 0;
    while (filled < buffer.size()) {
        const ssize_t got = read_once(file, buffer.subspan(filled));
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

}  // namespace hosted
