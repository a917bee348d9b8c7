// machine/main.cpp - the second executable: runs the verb that its first argument names.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "hosted/described/file.h"
#include "hosted/nearest.h"
#include "hosted/output.h"
#include "machine/verbs.h"

namespace {

constexpr char program[] = "ventix-machine";

// A verb of the command line. The usage is made from these rows.
struct verb {
    std::string_view name;
    const char *synopsis;
    const char *purpose;
    int (*run)(int argc, char **argv);
};

constexpr verb all_verbs[] = {
    {"check", "FILE...", "report all errors of machine files", verbs::check},
    {"snapshot", "[-o FILE] [--maps] [--redact]", "write the live machine as a machine file", verbs::snapshot},
    {"trace", "LOG", "print a call log for people", verbs::trace},
    {"run", "FILE [--socket PATH] [--save PATH] [--verbose] [-- COMMAND [ARGUMENT]...]",
     "keep a described machine running, for any number of processes", verbs::run},
};

int print_usage() {
    const char *lead = "Usage:";
    for (const verb &row : all_verbs) {
        std::printf("%-6s %s %s %s\n", lead, program, row.name.data(), row.synopsis);
        lead = "";
    }
    std::printf("       %s --help | --version\nMakes, checks, captures and runs the machines that ventix inspects.\n",
                program);
    for (const verb &row : all_verbs) std::printf("  %-10s%s\n", row.name.data(), row.purpose);
    return verbs::DONE;
}

// What a report of a fault in this program has to say of the build. CMakeLists.txt defines the words.
int print_version() {
#ifdef __clang__
    constexpr char compiler[] = "clang " __clang_version__;
#else
    constexpr char compiler[] = "gcc " __VERSION__;
#endif
    std::printf("%s v%s\ncompiler: %s\nbuild type: %s\nfeatures: %s\n", program, VENTIX_RELEASE, compiler,
                VENTIX_BUILD_TYPE, VENTIX_FEATURES);
    return verbs::DONE;
}

constexpr struct {
    const char *word;
    int (*print)();
} switches[] = {{"--help", print_usage}, {"--version", print_version}};

const verb *find_verb(std::string_view name) {
    const auto *const found = std::ranges::find(all_verbs, name, &verb::name);
    return found == std::end(all_verbs) ? nullptr : found;
}

int refuse_verb(const char *name) {
    std::vector<std::string_view> known;
    for (const verb &row : all_verbs) known.push_back(row.name);
    for (const auto &[word, print] : switches) known.push_back(word);
    const auto nearest = hosted::nearest_word(name, known);
    if (hosted::edit_distance(name, nearest) * 2 > nearest.size())
        return verbs::fail(verbs::WRONG_USE, "%s: unknown verb; try %s --help", name, program);
    return verbs::fail(verbs::WRONG_USE, "%s: unknown verb; did you mean \"%s\"?", name, nearest.data());
}

}  // namespace

namespace verbs {

int fail(int status, const char *format, ...) {
    va_list words;
    va_start(words, format);
    std::fprintf(stderr, "%s: ", program);
    std::vfprintf(stderr, format, words);
    std::fputc('\n', stderr);
    va_end(words);
    return status;
}

std::optional<command_line> parse(int argc, char **argv, std::initializer_list<option> options, size_t least,
                                  size_t most, bool has_command) {
    command_line read;
    std::vector<std::string_view> given;
    const auto refuse = [&](const char *word, const char *what) {
        fail(WRONG_USE, "%s: %s: %s", argv[0], word, what);
        return std::nullopt;
    };
    for (int i = 1; i < argc; ++i) {
        const char *const word = argv[i];
        const auto *const known = std::ranges::find(options, word, &option::name);
        if (std::strcmp(word, "--") == 0) {
            if (has_command) {
                read.command = argv + i + 1;
            } else {
                read.operands.insert(read.operands.end(), argv + i + 1, argv + argc);
            }
            break;
        }
        if (known != options.end()) {
            if (std::ranges::find(given, known->name) != given.end()) return refuse(word, "given twice");
            given.push_back(known->name);
            if (known->flag != nullptr) {
                *known->flag = true;
            } else if (i + 1 < argc) {
                *known->value = argv[++i];
            } else {
                return refuse(word, "needs a value");
            }
        } else if (word[0] == '-' && word[1] != '\0') {
            return refuse(word, "unknown option");
        } else {
            read.operands.push_back(word);
        }
    }
    if (read.operands.size() < least || read.operands.size() > most ||
        (read.command != nullptr && *read.command == nullptr)) {
        fail(WRONG_USE, "usage: %s %s %s", program, argv[0], find_verb(argv[0])->synopsis);
        return std::nullopt;
    }
    return read;
}

int write_result(const char *path, std::string_view text, hosted::described::file_access access) {
    if (path == nullptr) {
        std::fwrite(text.data(), 1, text.size(), stdout);  // a failure is found where standard output is checked
        return DONE;
    }
    std::string message;
    if (hosted::described::replace_file(path, text, message, access)) return DONE;
    return fail(FAILED, "%s", message.c_str());
}

}  // namespace verbs

int main(int argc, char **argv) {
    hosted::program_name = program;
    if (argc < 2) return verbs::fail(verbs::WRONG_USE, "no verb; try %s --help", program);
    if (const verb *const found = find_verb(argv[1])) {
        if (argc == 3 && std::strcmp(argv[2], "--help") == 0) return print_usage();
        try {
            return found->run(argc - 1, argv + 1);
        } catch (const std::bad_alloc &) {
            return verbs::fail(verbs::UNREADABLE, "%s: out of memory", argv[1]);
        }
    }
    for (const auto &[word, print] : switches) {
        if (std::strcmp(argv[1], word) != 0) continue;
        return argc == 2 ? print() : verbs::fail(verbs::WRONG_USE, "%s: expects no arguments", word);
    }
    return refuse_verb(argv[1]);
}
