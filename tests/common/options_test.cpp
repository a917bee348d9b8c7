// tests/common/options_test.cpp - the option parser: order of options and operands, and the numbers that arguments
// hold.
#include "common/options.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

// An argument vector in which each text ends with its allocation, so that the sanitizer detects an overread.
class argument_vector {
public:
    explicit argument_vector(const std::vector<std::string> &arguments) : count(static_cast<int>(arguments.size())) {
        for (const std::string &text : arguments) {
            texts_.push_back(std::make_unique<char[]>(text.size() + 1));
            std::memcpy(texts_.back().get(), text.c_str(), text.size() + 1);
            pointers_.push_back(texts_.back().get());
        }
        pointers_.push_back(nullptr);
    }

    int count;
    char **vector() { return pointers_.data(); }

private:
    std::vector<std::unique_ptr<char[]>> texts_;
    std::vector<char *> pointers_;
};

std::string word(const char *text) { return text ? text : "(none)"; }

constexpr e_longopt long_options[] = {{"--sort", 1000}, {"--all", 'a'}, {"--all-common", 'c'}, {nullptr, 0}};

// A parse as one line: the options in order, 'T' and 1000 with their argument, then the operands.
std::string parsed(const std::vector<std::string> &arguments, bool permute, const e_longopt *table) {
    argument_vector args(arguments);
    int argc = args.count;
    char **argv = args.vector();
    e_optstate state;
    e_initoption(&state, &argc, &argv, permute);
    e_setlongoption(&state, table);

    std::string log;
    for (int option; (option = e_getoption(&state)) != E_END;) {
        if (option == E_HELP) {
            log += "help";
        } else if (option > ' ' && option < 0x7F) {
            log += static_cast<char>(option);
        } else {
            log += std::to_string(option);
        }
        if (option == 'T' || option == 1000) log += '(' + word(e_opt_getstr(&state)) + ')';
        log += ' ';
    }
    log += '|';
    for (int i = 0; i < argc; ++i) log += ' ' + word(argv[i]);
    if (argv[argc]) log += " (no null after them)";

    const int operands = argc;
    long long number = 0;
    if (e_getoption(&state) != E_END || argc != operands) log += " (the end did not last)";
    if (e_opt_getstr(&state) || e_opt_getint(&state, &number) != E_OPT_INVALID) log += " (an argument at the end)";
    return log;
}

TEST(Options, ReturnOptionsAndOperandsInOrder) {
    const struct {
        const char *name;
        std::vector<std::string> arguments;
        const char *expected;
        bool permute = true;
        const e_longopt *table = long_options;
    } cases[] = {
        {"nothing", {}, "|"},
        {"a cluster among operands", {"a", "-vhx", "b"}, "v h x | a b"},
        {"lone dash and empty element", {"-", "", "-v"}, "v | - "},
        {"no end marker", {"--", "-v"}, "- v |"},
        {"separate argument", {"-T", "100", "x"}, "T(100) | x"},
        {"attached text is skipped", {"-T100", "7", "x"}, "T(7) | x"},
        {"letters after one that takes an argument are lost", {"-Tv", "100"}, "T(100) |"},
        {"an argument may look like an option", {"-T", "-v", "-T", "--help"}, "T(-v) T(--help) |"},
        {"missing argument", {"x", "-T"}, "T((none)) | x"},
        {"help", {"-v", "--help", "x"}, "v help | x"},
        {"help without a table", {"--help"}, "help |", true, nullptr},
        {"long options", {"--all", "--all-common", "x"}, "a c | x"},
        {"long option with a value", {"--sort=2,d", "-v"}, "1000(2,d) v |"},
        {"long option with an empty value", {"--sort=", "x"}, "1000() | x"},
        {"long option with a separate value", {"--sort", "2,d", "x"}, "1000(2,d) | x"},
        {"a value that nobody takes", {"--all=3x", "-v"}, "a = 3 x v |"},
        {"an empty value that nobody takes", {"--all=", "-v"}, "a = v |"},
        {"abbreviated", {"--al"}, "- a l |"},
        {"no name before the equals sign", {"--=T"}, "- = T((none)) |"},
        {"bytes above 0x7F", {"-\x80"}, "-128 |"},
        {"bytes that would read as end and help", {"-\xff\xfe", "x", "-\xfe\xff"}, "255 254 254 255 | x"},
        {"stop at the first operand", {"-v", "a", "-h", "b"}, "v | a -h b", false},
        {"stop at an empty element", {"", "-h"}, "|  -h", false},
        {"lone dash as an option", {"-", "-v", "a"}, "0 v | a", false},
    };
    for (const auto &row : cases) EXPECT_EQ(parsed(row.arguments, row.permute, row.table), row.expected) << row.name;
}

// What a fetch of `-T ARGUMENT` stores, or the result of one that fails.
template <class Value, class Fetch> std::string fetched(argument_vector &args, Fetch fetch) {
    int argc = args.count;
    char **argv = args.vector();
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    EXPECT_EQ(e_getoption(&state), 'T');
    Value value = 7;
    const int result = fetch(&state, &value);
    if (result == E_OPT_DONE) return std::to_string(value);
    return (value == 7 ? "failed " : "stored a value and failed ") + std::to_string(result);
}

TEST(Options, ReadNumbersAndSizes) {
    const struct {
        std::vector<std::string> arguments;
        const char *number, *in_range, *size;  // the range: 0 to 100
        const char *left = nullptr;            // of the argument, where that changes
    } cases[] = {
        {{"-T", "0x10"}, "16", "16", "16"},
        {{"-T", "010"}, "8", "8", "8"},
        {{"-T", "12abc"}, "12", "12", "failed 2"},
        {{"-T", "abc"}, "0", "0", "failed 2"},
        {{"-T", "101"}, "101", "failed 3", "101"},
        {{"-T", "-1"}, "-1", "failed 3", "18446744073709551615"},
        {{"-T", "99999999999999999999"}, "9223372036854775807", "failed 3", "9223372036854775807"},
        {{"-T"}, "failed 1", "failed 1", "failed 1"},
        {{"-T", "4K"}, "4", "4", "4096"},
        {{"-T", "4KiB"}, "4", "4", "4096"},
        {{"-T", "4kb"}, "4", "4", "4000", "4Kb"},
        {{"-T", "2k"}, "2", "2", "2048", "2K"},
        {{"-T", "2kib"}, "2", "2", "failed 2"},
        {{"-T", "2m"}, "2", "2", "failed 2"},
        {{"-T", "15E"}, "15", "15", "17293822569102704640"},
        {{"-T", "3ZB"}, "3", "3", "11627460059052638208"},  // 3 * 10^21 modulo 2^64
        {{"-T", "1Y"}, "1", "1", "0"},
    };
    const auto in_range = [](e_optstate *state, long long *value) { return e_opt_getrangeint(state, value, 0, 100); };
    for (const auto &row : cases) {
        argument_vector args(row.arguments);
        SCOPED_TRACE(row.arguments.back());
        EXPECT_EQ(fetched<long long>(args, e_opt_getint), row.number);
        EXPECT_EQ(fetched<long long>(args, in_range), row.in_range);
        EXPECT_EQ(fetched<unsigned long long>(args, e_opt_getsize), row.size);
        EXPECT_EQ(args.vector()[args.count - 1], row.left ? row.left : row.arguments.back());
    }
}

}  // namespace
