// hosted/wire/host.h - the machine's side of the wire: the socket, and a thread for each connection.
//
// One thread of the machine serves each attached thread: it makes the kernel calls that arrive, and blocks in those
// that wait. The thread that calls serve() accepts connections and notices processes that end. No thread touches a
// socket while it holds the kernel's lock.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "hosted/descriptors.h"
#include "hosted/wire/running_machine.h"
#include "hosted/wire/wire.h"

namespace hosted::wire {

// What a running machine holds, to find leaks.
struct machine_counts {
    size_t tasks = 0, connections = 0, handles = 0, blocks = 0, descriptors = 0;
};

class host {
public:
    host() = default;
    ~host();
    host(const host &) = delete;
    host &operator=(const host &) = delete;

    // Loads the machine file, makes it the machine of this process, and opens its socket. From here on, the signals
    // that end a machine wait for serve(): the calling thread blocks them.
    //   save     where the machine is saved at the end of the run; empty: nowhere
    //   socket   path of the socket; empty: a new one
    //   message  out, on failure: "FILE: what is wrong", for a person
    bool open(const std::string &file, const std::string &save, std::string socket, std::string &message);

    const std::string &path() const { return path_; }

    // Serves until the command ends, or without one until SIGTERM, SIGHUP, SIGINT or SIGQUIT. SIGTERM and SIGHUP are
    // passed on to a command. A SIGHUP that the process ignores stays ignored.
    //   command  process id of a child; 0: none
    //   status   out: of the command, as waitpid() returns it
    //   message  out, on failure
    bool serve(pid_t command, int &status, std::string &message);

    // Closes all connections, and returns when none is left. The machine is saved later, at the end of the run, with
    // the effect of every call that was answered; the destructor removes the socket.
    void close();

    machine_counts counts();

private:
    struct connection;
    using connection_pointer = std::shared_ptr<connection>;

    bool share_memory(std::string &message);
    bool listen_at(const std::string &path, std::string &message);
    bool lock_path(std::string &message);
    std::string new_path(std::string &message);
    void accept_one();
    bool start_thread(const connection_pointer &made);
    void hang_up(uint64_t task);
    void interrupt(uint64_t number);

    void serve_connection(connection &served);
    bool greet(connection &greeted);
    bool send_hello(int to, const hello &said, bool with_memory) const;
    bool answer_one(connection &asked, const request &given, answer &made);
    void call(connection &asked, hosted::call which, const request &given, answer &made);
    bool serve_other(connection &asked, service what, const request &given, answer &made);
    void leave(connection_pointer left);

    std::string path_, directory_;  // of the socket, and of the private directory made for it
    descriptor lock_;               // of the file beside the socket
    descriptor memory_, listener_, events_, signals_;
    descriptor spare_;  // closed where no other is left, to accept a connection and refuse it
    running_machine *machine_ = nullptr;

    std::mutex connections_lock_;
    std::condition_variable all_left_;
    std::map<uint64_t, connection_pointer> connections_;  // by number
    uint64_t last_connection_ = 0;
};

}  // namespace hosted::wire
