// tests/pages_test.cpp - runs the examples of every documentation page as a reader types them and compares the output.
//
// An example is a line `$ COMMAND` in an indented or fenced block. The lines up to the next example, or to the end of
// the block, are its expected output, in which a line `...` matches any lines and `...` in a line any characters. The
// examples of a page run in order, in one shell and one directory; a `cat` of a missing file creates that file.
// Examples of manual pages run on machines/demo.json, those of other pages on the live machine unless they name one. In
// a block fenced as
// ```live, where figures differ, only the words of the first line are compared.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>

#include "case_file.h"
#include "run_ventix.h"

namespace {

namespace fs = std::filesystem;

struct example {
    int line = 0;
    bool live = false;
    std::string command, shown = {};
};

bool starts_with(const std::string &text, const char *start) { return text.rfind(start, 0) == 0; }

std::vector<example> examples_of(const std::string &page) {
    std::vector<example> found;
    std::istringstream stream(page);
    std::string line, indent = "    ", blank_lines;
    bool fenced = false, live = false, open = false;  // open: the last example's output goes on
    for (int number = 1; std::getline(stream, line); ++number) {
        if (const size_t fence = line.find("```");
            fence != std::string::npos && line.find_first_not_of(" \t") == fence) {
            fenced = !fenced;
            live = fenced && line.substr(fence) == "```live";
            indent = fenced ? line.substr(0, fence) : "    ";
            open = false;
        } else if (line.find_first_not_of(" \t") == std::string::npos) {
            blank_lines += '\n';
        } else if (!starts_with(line, indent.c_str())) {
            open = false;
        } else if (const std::string text = line.substr(indent.size()); starts_with(text, "$ ")) {
            found.push_back({.line = number, .live = live, .command = text.substr(2)});
            open = true;
            blank_lines.clear();
        } else if (open) {
            found.back().shown += blank_lines + text + '\n';
            blank_lines.clear();
        }
    }
    return found;
}

// Whether a page shows what was printed: a line ... matches any lines, ... in a line any characters.
bool shows(const std::string &shown, const std::string &printed) {
    const auto same = [](std::string pattern, const std::string &line) {
        for (size_t at; (at = pattern.find("...")) != std::string::npos;) pattern.replace(at, 3, "\1");
        return covers(pattern, line, '\1', std::equal_to<>());
    };
    return covers(lines_of(shown), lines_of(printed), "...", same);
}

// Blanks at the end of a line are invisible on a page.
std::string without_trailing_blanks(const std::string &text) {
    std::string result;
    for (const char c : text) {
        if (c == '\n') result.erase(result.find_last_not_of(' ') + 1);
        result += c;
    }
    return result;
}

std::string first_words(const std::string &text) {
    std::istringstream stream(text.substr(0, text.find('\n')));
    std::string words;
    for (std::string word; stream >> word;) words += word + ' ';
    return words;
}

std::vector<std::string> pages() {
    std::vector<std::string> all = {"README.md"};
    for (const auto &entry : fs::recursive_directory_iterator(VENTIX_SOURCE_DIR "/docs")) {
        const fs::path page = fs::relative(entry.path(), VENTIX_SOURCE_DIR);
        if (page.extension() == ".md" || page.extension() == ".scd") all.push_back(page.string());
    }
    return all;
}

class Pages : public testing::TestWithParam<std::string> {};

TEST_P(Pages, ExamplesPrintWhatThePageShows) {
    const std::string page = read_file(std::string(VENTIX_SOURCE_DIR "/") + GetParam());
    const std::vector<example> examples = examples_of(page);
    const bool manual = starts_with(GetParam(), "docs/man/");
    if (manual) {
        EXPECT_GE(examples.size(), 2u);
    }

    const scratch_directory directory;
    const fs::path program = ventix_program();
    for (const auto &name : {"ventix", "ventix-machine"}) {
        const fs::path built = program.parent_path() / name;
        if (fs::exists(built)) fs::create_symlink(built, directory.file(name));
    }
    fs::create_directory_symlink(VENTIX_SOURCE_DIR "/machines", directory.file("machines"));
    directory.write("dev", "#!/bin/sh\nshift\nexec ventix \"$@\"\n");
    fs::permissions(directory.file("dev"), fs::perms::owner_all);

    std::string script = "PATH=$PWD:$PATH LANG=C.UTF-8\nexport LANG\n" + std::string(manual ? "export" : "unset") +
                         " VENTIX_MACHINE" + (manual ? "=machines/demo.json\n" : "\n");
    for (size_t i = 0; i < examples.size(); ++i) {
        const std::string &command = examples[i].command, file = starts_with(command, "cat ") ? command.substr(4) : "";
        if (!file.empty() && file.find_first_of(" /|") == std::string::npos && !fs::exists(directory.file(file)))
            directory.write(file, examples[i].shown);
        script += "{ " + command + "\n} >out." + std::to_string(i) + " 2>&1 </dev/null\n";
    }
    const std::string path = directory.write("script", script);
    run_ventix({.arguments = {path}, .directory = directory.path(), .program = "/bin/sh"});

    for (size_t i = 0; i < examples.size(); ++i) {
        const auto &[line, live, command, shown] = examples[i];
        SCOPED_TRACE(GetParam() + ':' + std::to_string(line) + ": " + command);
        const std::string printed = without_trailing_blanks(read_file(directory.file("out." + std::to_string(i))));
        if (live) {
            EXPECT_EQ(first_words(printed), first_words(shown)) << printed;
        } else if (!shows(shown, printed)) {
            EXPECT_EQ(printed, shown);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, Pages, testing::ValuesIn(pages()), [](const auto &page) {
    std::string name = page.param;
    for (char &c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});

}  // namespace
