// machine/check.cpp - check: reports all that is wrong with machine files, and what is probably a slip.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <unordered_set>

#include "common/tasks.h"
#include "hosted/described/file.h"
#include "hosted/described/format.h"
#include "hosted/described/names.h"
#include "machine/verbs.h"
#include "platform/kernel.h"

namespace verbs {
namespace {

using namespace hosted::described;

// ---- syntax errors --------------------------------------------------------------------------------------------------

// What a person probably did to cause a syntax error; empty where that is not clear.
const char *explain(std::string_view text, const document &failed) {
    using syntax = document::syntax;
    const size_t at = failed.failed_at();
    const syntax in = failed.failed_in();
    const char here = at < text.size() ? text[at] : '\0';
    if (in == syntax::text) return here == '\n' ? "; a closing quote is missing in this line" : "";
    const size_t previous = at == 0 ? text.npos : text.find_last_not_of(" \t\r\n", at - 1);
    const char before = previous == text.npos ? '\0' : text[previous];
    // Only a comma asks for another member or element. A comment may follow it.
    if ((here == '}' && in == syntax::key) || (here == ']' && before != ':' && in != syntax::other))
        return "; the comma before it is one too many";
    if ((here == 'x' || here == 'X') && before == '0') return "; a hexadecimal number needs quotes, as in \"0x1f\"";
    if (here == '\'') return "; quotes are double quotes";
    if (std::isalpha(static_cast<unsigned char>(here)) || here == '_')
        return "; a quote is missing, before this word or earlier in the line";
    return "";
}

// ---- slips ----------------------------------------------------------------------------------------------------------

// Finds what a load accepts, and a person hardly meant. For a file without errors only.
class slips {
public:
    slips(const document &file, const machine_records &all) : file_(file), all_(all) {}

    std::vector<bad_value> find() {
        std::unordered_set<uint64_t> memos;
        std::unordered_set<uint64_t> pids;
        for (const auto &each : all_.tasks) {
            for (const auto &memo : each.memos) memos.insert(memo.handle);
        }
        for (const auto &each : all_.tasks) {
            check_items(each);
            if (each.pid && !pids.insert(*each.pid).second)
                add(json_value(file_, each.node).at("pid"), "another task has this process id");
            for (const auto &view : each.views) {
                const item *const memo = find_numbered(view.info, VIEWINFO_MEMO);
                if (memo != nullptr && !memo->error && memo->value != 0 && !memos.contains(memo->value))
                    add({file_, view.node}, "a view of a memo that no task has");
            }
        }
        if (file_.root().has("devices")) {
            for (const json_value device : file_.root().at("devices").items()) check_services(device);
        }
        return std::move(found_);
    }

private:
    void add(json_value at, std::string what) { found_.push_back({at.node(), std::move(what)}); }

    void check_items(const task &of) {
        std::string missing;
        for (const auto &[number, value] : SB_TASK_BASICS) {
            if (number != OBJINFO_HANDLE && find_numbered(of.info, number) == nullptr)
                missing.append(missing.empty() ? "" : ", ").append(item_name(naming::object, number));
        }
        if (!missing.empty()) add({file_, of.node}, "task omits this task for want of " + missing);
    }

    // Finds results that return an argument which the service does not have.
    void check_services(json_value device) {
        if (!device.has("services")) return;
        for (const json_value service : device.at("services").items()) {
            const uint32_t arguments = service.has("args") ? service.at("args").count() : 0;
            if (!service.has("results")) continue;
            for (const json_value result : service.at("results").items()) {
                for (const json_value value : result.items()) {
                    if (value.is_object() && value.has("arg") && value.at("arg").number() >= arguments)
                        add(value, "the service has no such argument");
                }
            }
        }
    }

    const document &file_;
    const machine_records &all_;
    std::vector<bad_value> found_;
};

// ---- the verb -------------------------------------------------------------------------------------------------------

void print(const char *path, const document &file, std::vector<bad_value> found, const char *mark) {
    locator places(file);
    std::ranges::stable_sort(found, {}, &bad_value::node);  // values are numbered in the order of the file
    for (const auto &[node, what] : found) {
        const std::string place = places.path(node);
        std::printf("%s:%s: %s%s%s%s\n", path, places.position(node).c_str(), mark, place.c_str(),
                    place.empty() ? "" : ": ", what.c_str());
    }
}

int check_file(const char *path) {
    std::string text;
    std::string message;
    if (!machine_file().read(path, "", text, message)) return fail(UNREADABLE, "%s", message.c_str());
    document file(true);
    if (!file.parse(text, message)) {
        std::printf("%s:%s%s\n", path, message.c_str(), explain(text, file));
        return FAILED;
    }
    machine_records records;
    read_machine(file, records);
    auto errors = file.take_findings();
    if (errors.empty()) {
        print(path, file, slips(file, records).find(), "warning: ");
        return DONE;
    }
    print(path, file, std::move(errors), "");
    return FAILED;
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
