#include "run_ventix.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

using std::chrono::steady_clock;

constexpr auto time_limit = std::chrono::seconds(20);

// A command may leave memory to the system at its end, and a size that cannot be had is refused, not a fault. What the
// sanitizers do find has a status that no command gives.
constexpr char sanitizer_settings[] = "ASAN_OPTIONS=detect_leaks=0:allocator_may_return_null=1:exitcode=99";

std::vector<std::string> environment_of(const ventix_run &run) {
    std::vector<std::string> all = run.environment;
    const auto add = [&all](const std::string &setting) {
        const std::string name = setting.substr(0, setting.find('=') + 1);
        for (const auto &given : all) {
            if (given.compare(0, name.size(), name) == 0) return;
        }
        all.push_back(setting);
    };
    add("PATH=/usr/bin:/bin");
    add("TZ=UTC");
    add("VENTIX_MACHINE=" + run.machine);
    add(sanitizer_settings);
    return all;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    for (auto &text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

struct pipe_ends {
    int read = -1;
    int write = -1;

    pipe_ends() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
        read = ends[0];
        write = ends[1];
    }
    ~pipe_ends() {
        close_end(read);
        close_end(write);
    }
    pipe_ends(const pipe_ends &) = delete;
    pipe_ends &operator=(const pipe_ends &) = delete;

    static void close_end(int &end) {
        if (end >= 0) close(end);
        end = -1;
    }
};

// Appends what is there; closes the end at its end.
void drain(int &end, std::string &text) {
    char buffer[65536];
    const ssize_t got = read(end, buffer, sizeof buffer);
    if (got > 0) text.append(buffer, static_cast<size_t>(got));
    if (got == 0 || (got < 0 && errno != EINTR)) pipe_ends::close_end(end);
}

// Writes what fits; closes the end when all is written or nobody reads.
void feed(int &end, const std::string &text, size_t &done) {
    const ssize_t put = write(end, text.data() + done, text.size() - done);
    if (put > 0) done += static_cast<size_t>(put);
    if (done == text.size() || (put < 0 && errno != EINTR && errno != EAGAIN)) pipe_ends::close_end(end);
}

// Moves input and outputs until both outputs are at their end. False when the time is up.
bool converse(const ventix_run &run, pipe_ends &in, pipe_ends &out, pipe_ends &err, ventix_result &result) {
    const auto deadline = steady_clock::now() + time_limit;
    size_t fed = 0;
    fcntl(in.write, F_SETFL, O_NONBLOCK);
    if (run.input.empty()) pipe_ends::close_end(in.write);
    while (out.read >= 0 || err.read >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
        if (left <= 0) return false;
        pollfd ends[] = {{in.write, POLLOUT, 0}, {out.read, POLLIN, 0}, {err.read, POLLIN, 0}};
        if (poll(ends, 3, static_cast<int>(left)) < 0) continue;
        if (ends[0].revents) feed(in.write, run.input, fed);
        if (ends[1].revents) drain(out.read, result.output);
        if (ends[2].revents) drain(err.read, result.diagnostics);
    }
    return true;
}

}  // namespace

// Another build can be put to the same tests, such as the one that is shipped.
std::string ventix_program() {
    const char *other = std::getenv("VENTIX_TEST_EXECUTABLE");
    return other ? other : VENTIX_EXECUTABLE;
}

ventix_result run_ventix(const ventix_run &run) {
    signal(SIGPIPE, SIG_IGN);  // a child that does not read its input is no fault of this process
    ventix_result result;
    const std::string program = run.program.empty() ? ventix_program() : run.program;
    std::vector<std::string> words = run.arguments;
    words.insert(words.begin(), run.program.empty() ? "ventix" : program);
    std::vector<std::string> settings = environment_of(run);

    pipe_ends in, out, err;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, run.directory.c_str());
    posix_spawn_file_actions_adddup2(&actions, in.read, 0);
    if (run.output_file.empty())
        posix_spawn_file_actions_adddup2(&actions, out.write, 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, run.output_file.c_str(), O_WRONLY | O_CREAT, 0666);
    posix_spawn_file_actions_adddup2(&actions, err.write, 2);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    pid_t child = 0;
    const int failure =
        posix_spawn(&child, program.c_str(), &actions, &attributes, pointers(words).data(), pointers(settings).data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) {
        result.diagnostics = program + ": " + std::strerror(failure);
        return result;
    }

    pipe_ends::close_end(in.read);
    pipe_ends::close_end(out.write);
    pipe_ends::close_end(err.write);
    const bool in_time = converse(run, in, out, err, result);
    if (!in_time) kill(child, SIGKILL);
    int ended = 0;
    while (waitpid(child, &ended, 0) < 0 && errno == EINTR) {
    }
    if (!in_time)
        result.diagnostics += "\n(ended by the test: its time was up)\n";
    else
        result.status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    return result;
}

scratch_directory::scratch_directory() {
    std::string name = (std::filesystem::temp_directory_path() / "ventix.XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error(name + ": " + std::strerror(errno));
    path_ = name;
}

scratch_directory::~scratch_directory() {
    std::error_code ignored;  // at worst a file stays behind
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
