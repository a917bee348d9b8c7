// bench/jobs/attach.cpp - a kernel call on the running machine that VENTIX_MACHINE names, beside a bare exchange of
// packets of the same sizes between two processes that block, each on a processor of its own where there are two.
// Prints the medians of both, in microseconds.
//
//   attach ROUNDS EXCHANGES
#include <sched.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "hosted/wire/wire.h"
#include "platform/kernel.h"

namespace {

using clock_type = std::chrono::steady_clock;

void answer_packets(int socket) {
    hosted::wire::request asked;
    const hosted::wire::answer answered;
    while (recv(socket, &asked, sizeof asked, 0) == sizeof asked) send(socket, &answered, sizeof answered, 0);
}

bool exchange(int socket) {
    const hosted::wire::request asked;
    hosted::wire::answer answered;
    return send(socket, &asked, sizeof asked, 0) == sizeof asked &&
           recv(socket, &answered, sizeof answered, 0) == sizeof answered;
}

// Lets the calling process run on one of the processors that it may use, the first or the last.
void stay_on(const cpu_set_t &allowed, bool first) {
    cpu_set_t one;
    CPU_ZERO(&one);
    for (size_t i = 0; i < CPU_SETSIZE; ++i) {
        if (!CPU_ISSET(i, &allowed) || (first && CPU_COUNT(&one) != 0)) continue;
        CPU_ZERO(&one);
        CPU_SET(i, &one);
    }
    sched_setaffinity(0, sizeof one, &one);
}

bool call(int) { return _SL_GetState(KSTATE_CURRENT_TASK) != 0; }

}  // namespace

int main(int argc, char **argv) {
    int ends[2];
    if (argc != 3 || socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return 2;
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    const pid_t other = fork();  // before this process attaches
    if (other == 0) {
        close(ends[0]);
        stay_on(allowed, false);
        answer_packets(ends[1]);
        _exit(0);
    }
    close(ends[1]);
    struct subject {
        bool (*exchange)(int);
        std::vector<double> times;
    } subjects[] = {{call, {}}, {exchange, {}}};
    const int rounds = std::atoi(argv[1]), exchanges = std::atoi(argv[2]);
    for (int round = 0; round < rounds; ++round) {
        for (auto &[exchanged, times] : subjects) {
            exchanged == exchange ? stay_on(allowed, true) : void(sched_setaffinity(0, sizeof allowed, &allowed));
            const auto begin = clock_type::now();
            for (int i = 0; i < exchanges; ++i) {
                if (!exchanged(ends[0])) return 1;
            }
            times.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - begin).count() / exchanges);
        }
    }
    double medians[2];
    for (size_t i = 0; i < std::size(subjects); ++i) {
        std::vector<double> &times = subjects[i].times;
        std::nth_element(times.begin(), times.begin() + rounds / 2, times.end());
        medians[i] = times[static_cast<size_t>(rounds) / 2];
    }
    std::printf("%.2f %.2f\n", medians[0], medians[1]);
    close(ends[0]);
    waitpid(other, nullptr, 0);
    return 0;
}
