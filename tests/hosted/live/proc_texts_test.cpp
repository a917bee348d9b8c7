// tests/hosted/live/proc_texts_test.cpp - parsing of process file system texts, and the readers below it.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "hosted/live/maps.h"
#include "hosted/live/thread.h"
#include "run_ventix.h"

using namespace hosted::live;

namespace {

const std::string numbers = " 1 20 30 0 -1 2097216 5 0 7 0 11 12 0 0 -3 0 4 0 999 8192";

TEST(LiveTexts, StatOfAnyName) {
    constexpr struct {
        const char *text;
        bool good;
        const char *name;
    } cases[] = {
        {"7 (sh) R", true, "sh"}, {"7 (a) R 9 (b)\n) S", true, "a) R 9 (b)\n"},
        {"7 () D", true, ""},     {"7 (sh R", false, ""},
        {"7 )sh( R", false, ""},  {"7 (sh)", false, ""},
        {"", false, ""},
    };
    for (const auto &one : cases) {
        stat_record record;
        ASSERT_EQ(parse_stat(one.text + numbers, record), one.good) << one.text;
        EXPECT_FALSE(parse_stat(one.text, record) ||
                     parse_stat(one.text + numbers.substr(0, numbers.rfind(' ')), record))
            << one.text;
        if (!one.good) continue;
        EXPECT_EQ(record.name(), one.name);
        EXPECT_TRUE(record.is_kernel_thread());
        EXPECT_EQ(std::tuple(record.group, record.page_faults(), record.task_priority(), record.start_ticks,
                             record.virtual_bytes),
                  std::tuple(20u, 12u, 97u, 999u, 8192u));
    }
    stat_record longest;
    EXPECT_TRUE(parse_stat("7 (" + std::string(500, 'n') + ") S" + numbers, longest));
    EXPECT_EQ(longest.name(), std::string(64, 'n'));
}

TEST(LiveTexts, BlockedCalls) {
    constexpr uint64_t NONE = ~uint64_t{0};
    constexpr struct {
        const char *text;
        bool blocked;
        uint64_t number, first, stack, counter;
    } cases[] = {
        {"running\n", false, NONE, 0, 0, 0},
        {"202 0xaa 0x1 0x2 0x3 0x4 0x5 0x7ffe0010 0x401000\n", true, 202, 0xaa, 0x7ffe0010, 0x401000},
        {"-1 0x7ffe0010 0x401000\n", true, NONE, 0, 0x7ffe0010, 0x401000},
        {"-1 0x7ffe0010\n", false, NONE, 0, 0, 0},
        {"1 0x1 0x2 0x3 0x4 0x5 0x6 0x7 0x8 0x9 0xa\n", true, 1, 1, 7, 8},
        {"", false, NONE, 0, 0, 0},
    };
    for (const auto &[text, blocked, number, first, stack, counter] : cases) {
        const blocked_call call = parse_blocked_call(text);
        EXPECT_EQ(std::tuple(call.blocked, call.number, call.arguments[0], call.stack_pointer, call.program_counter),
                  std::tuple(blocked, number, first, stack, counter))
            << text;
    }
}

TEST(LiveTexts, Mappings) {
    mapping_line line;
    ASSERT_TRUE(parse_mapping("7f00-9f00 r-xs 00003000 fe:0a 332383      /a b (deleted)", line));
    EXPECT_TRUE(line.readable && !line.writable && line.executable && line.shared);
    EXPECT_EQ(std::tuple(line.begin, line.end, line.offset, line.device, line.inode),
              std::tuple(0x7f00u, 0x9f00u, 0x3000u, uint64_t{0xfe} << 32 | 0x0a, 332383u));
    EXPECT_EQ(line.name, "/a b (deleted)");
    ASSERT_TRUE(parse_mapping("1000-2000 ---p 00000000 00:00 0", line));
    EXPECT_EQ(line.name, "");
    for (const char *bad :
         {"", "zz", "1000", "1000-", "2000-1000 r--p 0 00:00 0", "1000 2000 r--p 0 00:00 0", "1000-2000 r-",
          "1000-2000 r--p", "1000-2000 r--p 0 fe", "1000-2000 r--p 0 fe:00", "1000-2000 r--p 0 fe:00 x"}) {
        EXPECT_FALSE(parse_mapping(bad, line)) << bad;
    }
}

// Lines that end at, before and after the end of a read, and lines longer than one read.
TEST(LiveTexts, LinesAcrossPieces) {
    const scratch_directory scratch;
    const int directory = open(scratch.path().c_str(), O_PATH | O_DIRECTORY);
    proc_reader reader;
    for (const size_t length : std::initializer_list<size_t>{1, 65534, 65535, 65536, 65537, 200000}) {
        for (const char *end : {"\n", ""}) {
            std::string text = std::string(length, 'a') + "\n\nlast" + end, joined;
            scratch.write("file", text);
            size_t pieces = 0;
            ASSERT_EQ(reader.lines(directory, "file",
                                   [&](std::string_view line) {
                                       joined += line;
                                       ++pieces;
                                   }),
                      0);
            EXPECT_EQ(joined, std::string(length, 'a') + "last") << length;
            EXPECT_EQ(pieces >= 3 && pieces <= 4 + length / 65536, true) << length << ": " << pieces;
            std::string_view whole;
            ASSERT_EQ(reader.read(directory, "file", whole), 0);
            EXPECT_EQ(whole, text) << length;
        }
    }
    std::string_view none;
    EXPECT_EQ(reader.read(directory, "missing", none), ENOENT);
    close(directory);
}

}  // namespace
