// tests/main/dispatcher_test.cpp - the dispatcher under other names, and the links that it creates and removes.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "common/commandline.h"
#include "main/descriptions.h"
#include "main/tools.h"
#include "run_ventix.h"

namespace {

namespace fs = std::filesystem;

std::string per_command(const std::string &before, const std::string &after) {
    std::string text;
    for (const tool *row = s_tools; row->name; ++row) text += before + row->name + after;
    return text;
}

std::string unknown(const std::string &name) { return "Unknown command: \"" + name + "\".\n"; }

TEST(Dispatcher, SelectsTheCommandByItsOwnName) {
    const std::string usage = run_ventix({}).output;
    const std::string help = run_ventix({.arguments = {"devping", "--help"}}).output;
    ASSERT_EQ(help.find("Usage: devping "), 0u) << help;
    const struct {
        const char *link;
        std::vector<std::string> arguments;
        std::string output, diagnostics;
        int status = 1;
    } cases[] = {
        {"devping", {"--help"}, help, "", 0},
        {"a\\devping", {"--help"}, help, "", 0},
        {"./b\\devping", {"--help"}, usage, unknown("b\\devping")},  // a backslash after a slash is a character
        {"old-ventix", {"devping", "--help"}, help, "", 0},
        {"ventix-devping", {"--version", "extra"}, "ventix v0.2.2\n", "", 0},
        {"--list", {}, usage, unknown("--list")},
    };
    const scratch_directory place;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.link);
        fs::create_symlink(ventix_program(), place.file(row.link));
        const ventix_result result =
            run_ventix({.arguments = row.arguments, .directory = place.path(), .program = row.link});
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.diagnostics, row.diagnostics);
        EXPECT_EQ(result.status, row.status);
    }
}

TEST(Dispatcher, CreatesAndRemovesItsLinks) {
    const scratch_directory place;
    const auto run = [&place](std::vector<std::string> arguments) {
        const ventix_result result = run_ventix({.arguments = std::move(arguments), .directory = place.path()});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.diagnostics, "");
        return result.output;
    };
    const auto command_count = std::ranges::count(per_command("", "\n"), '\n');
    const auto count = [&place] {
        return std::distance(fs::directory_iterator(place.path()), fs::directory_iterator());
    };

    place.write("task", "not a link");
    EXPECT_EQ(run({"--install", "foo", "--verbose"}), "");  // --verbose counts only in second place
    EXPECT_EQ(count(), command_count);
    for (const tool *row = s_tools; row->name; ++row) {
        const fs::path link = place.file(row->name);
        if (link.filename() == "task") {
            EXPECT_EQ(read_file(link), "not a link");
        } else {
            EXPECT_EQ(fs::read_symlink(link), "ventix");
        }
    }
    EXPECT_EQ(run({"--install", "--verbose"}), per_command("Create symlink '", "'\n"));

    fs::remove(place.file("devping"));
    place.write("keep", "");
    EXPECT_EQ(run({"--uninstall", "--verbose"}), per_command("Remove symlink '", "'\n"));
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(run({"--uninstall"}), "");
}

TEST(Descriptions, HelpPrintsTheUsage) {
    for (const sb_description *row : sb_descriptions()) {
        const std::string name = row->line->command, usage = row->line->usage ? row->line->usage : "";
        const ventix_result help = run_ventix({.arguments = {name, "--help"}});
        EXPECT_EQ(help.output.find("Usage: " + name + ' '), 0u) << help.output;
        EXPECT_EQ(help.output.compare(0, usage.size(), usage), 0) << help.output;
        EXPECT_EQ(help.output.size() > usage.size(), row->line->print_usage != nullptr) << help.output;
        EXPECT_EQ(help.diagnostics, "");
        EXPECT_EQ(help.status, 0);
    }
}

TEST(Descriptions, NameTheCommandsInTheirOrder) {
    std::string described;
    for (const sb_description *row : sb_descriptions()) described += std::string(row->line->command) + '\n';
    EXPECT_EQ(described, per_command("", "\n"));
}

}  // namespace
