// machine/trace.cpp - trace: prints a call log for people.
#include <string>
#include <string_view>

#include "hosted/described/file.h"
#include "machine/call_line.h"
#include "machine/story.h"
#include "machine/verbs.h"

namespace verbs {

int trace(int argc, char **argv) {
    const auto line = parse(argc, argv, {}, 1, 1);
    if (!line) return WRONG_USE;
    const char *const path = line->operands[0];
    std::string log;
    std::string message;
    if (!hosted::described::machine_file().read(path, "", log, message)) return fail(UNREADABLE, "%s", message.c_str());
    // A file of which no line is a call's would come out as it is.
    const std::string_view first = std::string_view(log).substr(0, log.find('\n'));
    if (log.find('\n') != log.npos && log.find("\n_SL_") == log.npos && !parse_call(first))
        return fail(UNREADABLE, "%s: no call log", path);
    render_log(log, stdout);
    return DONE;
}

}  // namespace verbs
