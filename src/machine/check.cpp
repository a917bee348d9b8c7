// machine/check.cpp - check: reports all that is wrong with machine files.
#include <algorithm>
#include <cstdint>
#include <cstdio>

#include "hosted/described/file.h"
#include "hosted/described/format.h"
#include "machine/verbs.h"

namespace verbs {
namespace {

using namespace hosted::described;

int check_file(const char *path) {
    std::string text;
    std::string message;
    if (!machine_file().read(path, "", text, message)) return fail(UNREADABLE, "%s", message.c_str());
    document file(true);
    if (!file.parse(text, message)) {
        std::printf("%s:%s\n", path, message.c_str());
        return FAILED;
    }
    machine_records records;
    read_machine(file, records);
    auto findings = file.take_findings();
    std::ranges::stable_sort(findings, {}, &bad_value::node);  // values are numbered in the order of the file
    for (const auto &[node, what] : findings) {
        const std::string place = file.path(node);
        std::printf("%s:%s: %s%s%s\n", path, file.position(node).c_str(), place.c_str(), place.empty() ? "" : ": ",
                    what.c_str());
    }
    return findings.empty() ? DONE : FAILED;
}

}  // namespace

int check(int argc, char **argv) {
    const auto line = parse(argc, argv, {}, 1, SIZE_MAX);
    if (!line) return WRONG_USE;
    int status = DONE;
    for (const char *const path : line->operands) status = std::max(status, check_file(path));
    return status;
}

}  // namespace verbs
