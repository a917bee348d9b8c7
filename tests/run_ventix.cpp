// tests/run_ventix.cpp - starts and awaits runs of the executable.
#include "run_ventix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <stdexcept>

namespace {

constexpr int TIME_LIMIT = 60000;  // milliseconds; generous, for a machine that does much else

std::vector<std::string> environment_of(const ventix_run &run) {
    // A command may leave memory to the system at its end, and a size that cannot be had is refused, not a fault. What
    // the sanitizers do find has a status that no command gives.
    std::map<std::string, std::string> settings = {
        {"ASAN_OPTIONS", "detect_leaks=0:allocator_may_return_null=1:exitcode=99"},
        {"PATH", "/usr/bin:/bin"},
        {"TZ", "UTC"},
        {"VENTIX_MACHINE", run.machine}};
    for (const auto &given : run.environment) {
        const size_t end = given.find('=');
        settings[given.substr(0, end)] = given.substr(end + 1);
    }
    std::vector<std::string> all;
    for (const auto &[name, value] : settings) all.push_back(name + '=' + value);
    return all;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    for (auto &text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

// The exit status of a child, which is killed when its time is up.
int status_of(pid_t child) {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd ended = {handle, POLLIN, 0};
    const bool in_time = poll(&ended, 1, TIME_LIMIT) > 0;
    close(handle);
    if (!in_time) kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    if (!in_time) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

// Another build can be put to the same tests, such as the one that is shipped.
std::string ventix_program() {
    const char *other = std::getenv("VENTIX_TEST_EXECUTABLE");
    return other ? other : VENTIX_EXECUTABLE;
}

ventix_result run_ventix(const ventix_run &run) {
    signal(SIGPIPE, SIG_DFL);  // a child inherits it where whoever started the tests ignored it
    const std::string program = run.program.empty() ? ventix_program() : run.program;
    std::vector<std::string> words = run.arguments;
    words.insert(words.begin(), run.program.empty() ? "ventix" : program);
    std::vector<std::string> settings = environment_of(run);

    const scratch_directory streams;
    const std::string output = run.output_file.empty() ? streams.file("output") : run.output_file;
    const std::string diagnostics = streams.file("diagnostics");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, run.directory.c_str());
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT, 0666);
    posix_spawn_file_actions_addopen(&actions, 2, diagnostics.c_str(), O_WRONLY | O_CREAT, 0666);
    pid_t child = 0;
    const int failure =
        posix_spawn(&child, program.c_str(), &actions, nullptr, pointers(words).data(), pointers(settings).data());
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) return {-1, "", program + ": " + std::strerror(failure)};

    return {.status = status_of(child),
            .output = run.output_file.empty() ? read_file(output) : "",
            .diagnostics = read_file(diagnostics)};
}

scratch_directory::scratch_directory() {
    std::string name = (std::filesystem::temp_directory_path() / "ventix.XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error(name + ": " + std::strerror(errno));
    path_ = name;
}

scratch_directory::~scratch_directory() {
    std::error_code ignored;  // at worst a file remains
    std::filesystem::remove_all(path_, ignored);
}

std::string scratch_directory::write(const std::string &name, const std::string &text) const {
    std::ofstream(file(name), std::ios::binary) << text;
    return file(name);
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}
