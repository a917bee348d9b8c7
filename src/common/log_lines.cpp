// common/log_lines.cpp - the output engine of logs: writes lines to the descriptor without copying them.
#include "common/log_lines.h"

#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Pieces of text on their way to descriptor 1. Neighbours in memory become one piece.
class piece_writer {
public:
    void add(const char *text, size_t length) {
        // Written while the text is still in the cache.
        if (pending_ >= NEAR || count_ == pieces_.size()) flush();
        pending_ += length;
        if (count_ > 0) {
            iovec &last = pieces_[count_ - 1];
            if (static_cast<const char *>(last.iov_base) + last.iov_len == text) {
                last.iov_len += length;
                return;
            }
        }
        pieces_[count_++] = {const_cast<char *>(text), length};
    }

    // Writes what was added: retries while interrupted or cut short, and waits for a non-blocking descriptor that is
    // full. After a failed write the rest goes through the stream, whose error the check at the end of the run reports.
    void flush() {
        iovec *next = pieces_.data();
        auto left = static_cast<int>(count_);
        count_ = 0;
        pending_ = 0;
        while (left > 0) {
            const ssize_t written = failed_ ? write_to_stream(*next) : writev(STDOUT_FILENO, next, left);
            if (written < 0) {
                pollfd output = {STDOUT_FILENO, POLLOUT, 0};
                const bool full = errno == EAGAIN && poll(&output, 1, -1) >= 0;
                failed_ = !full && errno != EINTR;
                continue;
            }
            auto done = static_cast<size_t>(written);
            for (; left > 0 && done >= next->iov_len; --left) done -= next++->iov_len;
            if (left == 0) return;
            next->iov_base = static_cast<char *>(next->iov_base) + done;
            next->iov_len -= done;
        }
    }

private:
    static ssize_t write_to_stream(const iovec &piece) {
        std::fwrite(piece.iov_base, 1, piece.iov_len, stdout);
        return static_cast<ssize_t>(piece.iov_len);
    }

    static constexpr size_t NEAR = 128 << 10;  // bytes

    std::array<iovec, 1024> pieces_;  // as many as one call takes
    size_t count_ = 0;
    size_t pending_ = 0;  // bytes of them
    bool failed_ = false;
};

constexpr char LINE_FEED[] = "\n";

bool ends_line(char c) { return c == '\n' || c == '\r'; }

const char *skip_line_ends(const char *text) {
    while (ends_line(*text)) ++text;
    return text;
}

// Adds a line and its line feed, which is its own where that follows at once.
void add_line(piece_writer &out, const char *line, const char *end_of_line) {
    const bool fed = *end_of_line == '\n';
    out.add(line, static_cast<size_t>(end_of_line - line) + fed);
    if (!fed) out.add(LINE_FEED, 1);
}

const char *find(const char *text, const char *end, char wanted) {
    return static_cast<const char *>(std::memchr(text, wanted, static_cast<size_t>(end - text)));
}

}  // namespace

void sb_readlog_display(const char *text, uint32_t, int mode) {
    const bool half_lines = mode != 0;
    if (!half_lines) {
        text = std::strchr(text, '\n');  // the text before the first line feed may be half a line
        if (text == nullptr) return;
    }

    std::fflush(stdout);
    piece_writer out;
    const char *line = skip_line_ends(text);
    for (const char *feed; *(feed = strchrnul(line, '\n')) != '\0'; line = skip_line_ends(feed)) {
        const char *end_of_line = feed;  // after the last visible character
        while (ends_line(end_of_line[-1])) --end_of_line;
        add_line(out, line, end_of_line);
    }
    // After the last line feed, carriage returns end lines, and what is left is half of one.
    const char *const end = line + std::strlen(line);
    while (const char *line_end = find(line, end, '\r')) {
        add_line(out, line, line_end);
        line = skip_line_ends(line_end);
    }
    if (half_lines && line != end) {
        out.add(line, static_cast<size_t>(end - line));
        out.add(LINE_FEED, 1);
    }
    out.flush();
}
