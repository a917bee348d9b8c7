// hosted/live/system_log.h - the kernel's log, and writing to it or to the system logger.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/live/files.h"
#include "hosted/servers/sources.h"

namespace hosted::live {

// The kernel's log, one line per record. It is read whole when its length is asked for, so that later reads deliver
// what was measured. Writing goes to the kernel's log, or where that is refused to the system logger's socket.
class system_log : public log_source {
public:
    explicit system_log(const file_roots &roots) : roots_(roots) {}

    uint32_t length(uint64_t &characters) override;
    uint32_t read(uint64_t offset, uint64_t room, std::string_view &text) override;
    uint32_t write(std::string_view message) override;
    void emergency(uint64_t word1, uint64_t code, uint64_t word2) override;

private:
    uint32_t load();
    uint32_t send(int priority, std::string_view message);

    const file_roots &roots_;
    std::string text_;
    bool loaded_ = false;
};

// A text in which every character that steers a terminal is written as \xHH, byte by byte.
std::string escaped(std::string_view text);

// A record as the log's system call returns it. The prefix is what a reader sees of it: "[SECONDS.MICROSECONDS] ", or
// nothing where the kernel leaves out times.
struct log_record {
    std::string prefix, text;
};

// Appends the line of one record as /dev/kmsg delivers it; nothing for any other text. The device cuts records
// that do not fit its own buffer with their escapes.
//   records_at  called for a record that was cut, with its "[SECONDS.MICROSECONDS]"; returns the whole records of that
//               time
void append_log_line(std::string &log, std::string_view record,
                     const std::function<std::vector<log_record>(std::string_view time)> &records_at);

// Splits the text that the log's system call returns into records.
//   time     only records whose prefix begins with this
//   newest   asks the system call again, with room for so many bytes: it returns the newest records, whole ones, that
//            fit
//   records  out
//   returns  false where the log has changed meanwhile: a line that would have to be asked about is then a record
bool split_records(std::string_view lines, std::string_view time,
                   const std::function<std::string_view(size_t room)> &newest, std::vector<log_record> &records);

// The text of an emergency message's two words.
std::string emergency_text(uint64_t word1, uint64_t code, uint64_t word2);

}  // namespace hosted::live
