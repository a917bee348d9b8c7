// hosted/live/mounts.cpp - the mounted file systems, from the list of the calling process. No mount is touched: to look
// at one may mount another or wait for a server.
#include "hosted/live/mounts.h"

#include <algorithm>

#include "hosted/live/scanner.h"

namespace hosted::live {

namespace {

struct mount_line {
    uint64_t number;
    std::string_view target, options, type, source;
    std::string_view system_options;  // of the file system, whichever way it is mounted
};

// "NUMBER PARENT MAJOR:MINOR ROOT TARGET OPTIONS TAG... - TYPE SOURCE OPTIONS"
bool parse_mount(std::string_view text, mount_line &out) {
    scanner line(text);
    if (!line.decimal(out.number)) return false;
    for (int skipped = 0; skipped < 3; ++skipped) line.word();
    out.target = line.word();
    out.options = line.word();
    for (std::string_view tag = line.word(); tag != "-"; tag = line.word()) {
        if (tag.empty()) return false;
    }
    out.type = line.word();
    line.take(' ');
    out.source = line.until(' ');  // may be empty
    out.system_options = line.word();
    return true;
}

// A text in which the system has written blanks and the like as '\' and three octal digits.
std::string unescaped(std::string_view text) {
    constexpr size_t length = 4;
    const auto is_octal = [](char c) { return c >= '0' && c <= '7'; };
    std::string plain;
    while (!text.empty()) {
        const std::string_view digits = text.substr(1, length - 1);
        const bool escape =
            text[0] == '\\' && digits.size() == length - 1 && std::all_of(digits.begin(), digits.end(), is_octal);
        plain +=
            escape ? static_cast<char>((digits[0] - '0') << 6 | (digits[1] - '0') << 3 | (digits[2] - '0')) : text[0];
        text.remove_prefix(escape ? length : 1);
    }
    return plain;
}

// The options of a mount and its file system in one list: writable only where both are.
std::string all_options(const mount_line &line) {
    scanner own(line.options), system(line.system_options);
    const std::string_view access = own.until(','), system_access = system.until(',');
    std::string all(system_access == "ro" ? system_access : access);
    for (const std::string_view more : {own.rest(), system.rest()}) {
        if (!more.empty()) (all += ',') += more;
    }
    return all;
}

class mount_directory : public numbered_directories {
public:
    explicit mount_directory(const file_roots &roots) : roots_(roots) {}

protected:
    std::vector<uint64_t> numbers() override {
        std::vector<uint64_t> numbers;
        for (const mount_line &line : lines()) numbers.push_back(line.number);
        return numbers;
    }

    node_pointer make(uint64_t number, bool) override {
        const auto &all = lines();
        const auto found =
            std::find_if(all.begin(), all.end(), [=](const auto &line) { return line.number == number; });
        if (found == all.end()) return nullptr;
        auto made = std::make_unique<whole_directory>();
        made->add("source", text_key(unescaped(found->source)));
        made->add("target", text_key(unescaped(found->target)));
        made->add("type", text_key(unescaped(found->type)));
        made->add("options", text_key(unescaped(all_options(*found))));
        return made;
    }

private:
    const std::vector<mount_line> &lines() {
        if (!lines_) {
            text_ = read_table(roots_.proc + "/self/mountinfo");
            std::vector<mount_line> found;
            mount_line line;
            for (scanner scan(text_); !scan.done();) {
                if (parse_mount(scan.line(), line)) found.push_back(line);
            }
            lines_ = std::move(found);
        }
        return *lines_;
    }

    const file_roots &roots_;
    std::string text_;
    std::optional<std::vector<mount_line>> lines_;  // parts of the text
};

}  // namespace

node_pointer make_mount_directory(const file_roots &roots) { return std::make_unique<mount_directory>(roots); }

}  // namespace hosted::live
