// machine/redaction.h - placeholders for the texts of a live system. snapshot.cpp and device_capture.cpp decide which
// texts get one, the forms of items (hosted/described/names.h) which numbers are addresses.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace verbs {

// Replaces texts by placeholders such as "task-1", numbered as each kind's texts are first met. A text that comes again
// gets the same placeholder, so that what was equal stays equal.
class redaction {
public:
    // on  false: every text stays as it is
    explicit redaction(bool on) : on_(on) {}
    bool is_on() const { return on_; }

    // The placeholder of a text; an empty one stays.
    std::string text(std::string_view kind, std::string_view text);

    // The same for a text that has a placeholder already; any other stays.
    std::string known(std::string_view text) const;

    // The same for each line of a text.
    std::string lines(std::string_view kind, std::string_view text);

private:
    const bool on_;
    std::map<std::string, std::string, std::less<>> placeholders_;
    std::map<std::string, uint64_t, std::less<>> counts_;  // by kind
};

}  // namespace verbs
