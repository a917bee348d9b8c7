// tests/hosted/live/own_child.h - a child process of a test, in the state that the test needs.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

// The value of a key in the status of a process or thread; empty where there is none.
inline std::string status_of(int id, const std::string &key) {
    std::ifstream file("/proc/" + std::to_string(id) + "/status");
    for (std::string word; file >> word;) {
        if (word == key && file >> word) return word;
    }
    return {};
}

inline uint64_t number_of(int id, const std::string &key) {
    const std::string word = status_of(id, key);
    return word.empty() ? ~uint64_t{0} : std::stoull(word);
}

inline void await_state(int id, const std::string &wanted) {
    for (int i = 0; i < 5000 && status_of(id, "State:") != wanted; ++i) usleep(1000);
}

// Forks at once. The child runs the body, then waits until the end of the object's scope kills it.
class own_child {
public:
    own_child() : own_child([](own_child &) {}) {}
    template <class Body> explicit own_child(Body body) {
        if (pipe(says_) != 0) return;
        id_ = fork();
        if (id_ != 0) {
            close(says_[1]);
            return;
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(says_[0]);
        body(*this);
        while (true) pause();
    }
    own_child(const own_child &) = delete;
    own_child &operator=(const own_child &) = delete;
    ~own_child() {
        if (id_ > 0 && !reaped_) {
            kill(id_, SIGKILL);
            waitpid(id_, nullptr, 0);
        }
        close(says_[0]);
    }

    int id() const { return id_; }
    uint64_t handle() const { return static_cast<uint64_t>(id_); }

    // In the child: sends the test a number. In the test: waits for it; -1 where the child has ended or hangs.
    void say(int64_t word) const { static_cast<void>(!write(says_[1], &word, sizeof word)); }
    int64_t heard() const {
        int64_t word = -1;
        pollfd ready{says_[0], POLLIN, 0};
        if (poll(&ready, 1, 20000) <= 0) return -1;
        return read(says_[0], &word, sizeof word) == sizeof word ? word : -1;
    }

    // Whether it still runs: nothing done to others has hit it.
    bool is_alive() const { return waitpid(id_, nullptr, WNOHANG) == 0; }

    int reap() {
        int status = -1;
        waitpid(id_, &status, 0);
        reaped_ = true;
        return status;
    }

private:
    int says_[2] = {-1, -1};
    int id_ = -1;
    bool reaped_ = false;
};
