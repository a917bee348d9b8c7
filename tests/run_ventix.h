// tests/run_ventix.h - runs the built executable as a user does, in its own process, on a machine chosen by the test.
#pragma once

#include <string>
#include <vector>

// One run. What is not set is what most tests want.
struct ventix_run {
    std::vector<std::string> arguments = {};    // after the program's name
    std::vector<std::string> environment = {};  // NAME=VALUE; beats what the run is given anyway (below)
    std::string machine = "empty.json";         // VENTIX_MACHINE: a path, absolute or in `directory`
    std::string directory = VENTIX_SOURCE_DIR "/tests/machines";  // where it runs
    std::string program = {};      // path to start, such as a symbolic link; empty: the built ventix
    std::string output_file = {};  // where standard output goes instead of ventix_result::output
};

struct ventix_result {
    int status = -1;     // exit status; 128 + the signal that ended it; -1 where it was not started or had to be killed
    std::string output;  // standard output
    std::string diagnostics;  // standard error, or why it was not started
};

// The path of the built ventix, or of the one that VENTIX_TEST_EXECUTABLE names in its place.
std::string ventix_program();

// Runs it to its end, or kills it after 60 seconds. Its outputs are files, its input is empty. Its environment is PATH,
// TZ=UTC, VENTIX_MACHINE and the sanitizers' options only, so the environment of the tests changes no result.
ventix_result run_ventix(const ventix_run &run);

// A directory that is removed, with all in it, at the end of its scope.
class scratch_directory {
public:
    scratch_directory();
    ~scratch_directory();
    scratch_directory(const scratch_directory &) = delete;
    scratch_directory &operator=(const scratch_directory &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + '/' + name; }
    std::string write(const std::string &name, const std::string &text) const;  // returns the path

private:
    std::string path_;
};

std::string read_file(const std::string &path);  // its bytes; none where it cannot be read
