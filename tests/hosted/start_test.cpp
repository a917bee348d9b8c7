// Runs whose standard streams are not there.
#include <gtest/gtest.h>

#include "run_ventix.h"

namespace {

TEST(Start, NoFileTakesTheOutputOfAClosedStream) {
    const std::string call = "_SL_GetState(0x8) = 0x0\n";
    const struct {
        const char *line;  // of the shell; $0 is the program
        std::string diagnostics;
        int status;
    } cases[] = {
        {"\"$0\" free --what 2>&-", "", 100},
        {"\"$0\" task --help >&-", "ventix: write error: Bad file descriptor\n", 1},
        {"\"$0\" task --help <&- >&-", "ventix: write error: Bad file descriptor\n", 1},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.line);
        const scratch_directory place;
        const ventix_result result = run_ventix({.arguments = {"-c", row.line, ventix_program()},
                                                 .environment = {"VENTIX_CALL_LOG=" + place.file("calls")},
                                                 .program = "/bin/sh"});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.diagnostics, row.diagnostics);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(read_file(place.file("calls")), call);
    }
}

}  // namespace
