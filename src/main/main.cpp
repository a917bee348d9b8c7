// main/main.cpp - the dispatcher: runs the command that the program's name or its first argument names.
//
// A few switches list the commands and make or remove links to them.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "main/tools.h"

namespace {
constexpr char program[] = "ventix";

constexpr char usage[] = R"(System toolbox.
Use "help" to list all commands.
Use "--install" to create symlinks in current directory.
Use "--uninstall" to remove symlinks in current directory.
  Additional "--verbose" will display the progress.
Use "--list" to list all tools.
Use "--version" to print version number.
)";

int print_usage() {
    std::fputs(usage, stdout);
    return 1;
}

// A backslash separates only in a name without any slash.
const char *base_name(const char *path) {
    const char *separator = std::strrchr(path, '/');
    if (separator == nullptr) separator = std::strrchr(path, '\\');
    return separator != nullptr ? separator + 1 : path;
}

// Skips links that exist already, or that cannot be made or removed.
int install(bool verbose) {
    for (const tool *row = s_tools; row->name != nullptr; ++row) {
        if (verbose) std::printf("Create symlink '%s'\n", row->name);
        static_cast<void>(symlink_wrap(program, row->name));
    }
    return 0;
}

int uninstall(bool verbose) {
    for (const tool *row = s_tools; row->name != nullptr; ++row) {
        if (verbose) std::printf("Remove symlink '%s'\n", row->name);
        static_cast<void>(unlink(row->name));
    }
    return 0;
}

int list(bool) {
    for (const tool *row = s_tools; row->name != nullptr; ++row) std::printf("%s\n", row->name);
    return 0;
}

int version(bool) {
    std::printf("ventix v%s\n", ventix_version);
    return 0;
}

int help(bool) {
    unsigned count = 0;
    std::fputs("System toolbox commands:\n", stdout);
    for (const tool *row = s_tools; row->name != nullptr; ++row, ++count) std::printf("    %s\n", row->name);
    std::printf("%u commands.\n", count);
    return 0;
}

constexpr struct {
    const char *name;
    int (*run)(bool verbose);
} switches[] = {
    {"--install", install}, {"--uninstall", uninstall}, {"--list", list}, {"--version", version}, {"help", help}};

int run_command(const char *name, int argc, char **argv) {
    for (const tool *row = s_tools; row->name != nullptr; ++row) {
        if (std::strcmp(row->name, name) == 0) return row->entry(argc, argv);
    }
    std::fprintf(stderr, "Unknown command: \"%s\".\n", name);
    return print_usage();
}
}  // namespace

int main(int argc, char **argv) {
    if (argc < 1) return print_usage();

    // Any name that contains the program's is its own: "old-ventix", "ventix.elf".
    const char *name = base_name(argv[0]);
    if (std::strstr(name, program) == nullptr) return run_command(name, argc - 1, argv + 1);

    if (argc == 1) return print_usage();
    for (const auto &[word, run] : switches) {
        if (std::strcmp(argv[1], word) == 0) return run(argc > 2 && std::strcmp(argv[2], "--verbose") == 0);
    }
    return run_command(argv[1], argc - 2, argv + 2);
}
