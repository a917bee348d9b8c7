// hosted/live/sockets.cpp - reads the system's tables of sockets, and finds the processes that have them open.
#include "hosted/live/sockets.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>

#include "hosted/live/files.h"
#include "hosted/live/process.h"
#include "hosted/live/scanner.h"
#include "hosted/live/socket_diagnosis.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr uint64_t FIRST_WITHOUT_INODE = uint64_t{1} << 32;  // inodes of sockets have 32 bits

constexpr std::string_view KIND_NAMES[] = {"tcp", "udp", "unix"};

// By the numbers in the system's tables; udp sockets have two of tcp's.
constexpr std::string_view TCP_STATES[] = {"",          "established", "syn_sent",    "syn_recv",   "fin_wait1",
                                           "fin_wait2", "time_wait",   "close",       "close_wait", "last_ack",
                                           "listen",    "closing",     "new_syn_recv"};
constexpr std::string_view LOCAL_STATES[] = {"", "unconnected", "connecting", "connected", "disconnecting"};
enum local_state : uint8_t { UNCONNECTED = 1, CONNECTING, CONNECTED, DISCONNECTING };
constexpr uint8_t UDP_UNCONNECTED = 7;
constexpr uint8_t LOCAL_LISTENS = 0xFF;  // no state of the table's, but a flag there

// A number of exactly so many hexadecimal digits, taken off the front of a text.
template <class Number> bool take_digits(std::string_view &text, size_t digits, Number &value) {
    const auto number = text.substr(0, digits);
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value, 16);
    if (error != std::errc{} || static_cast<size_t>(end - number.data()) != digits) return false;
    text.remove_prefix(digits);
    return true;
}

// "ADDRESS:PORT": 8 digits for each word of the address as it lies in memory, 4 for the port's number.
bool parse_end(std::string_view text, bool &is_v6, socket_end &out) {
    constexpr size_t word_digits = 8, port_digits = 4;
    const size_t digits = text.find(':');
    if (digits != word_digits && digits != std::size(out.address) * word_digits) return false;
    is_v6 = digits != word_digits;
    for (size_t i = is_v6 ? 0 : std::size(out.address) - 1; i < std::size(out.address); ++i) {
        if (!take_digits(text, word_digits, out.address[i])) return false;
    }
    text.remove_prefix(1);
    return take_digits(text, port_digits, out.port) && text.empty();
}

}  // namespace

// "SLOT: LOCAL REMOTE STATE ..."
bool parse_socket_ends(scanner &line, internet_socket &out) {
    line.word();
    bool remote_is_v6 = false;
    if (!parse_end(line.word(), out.is_v6, out.local) || !parse_end(line.word(), remote_is_v6, out.remote))
        return false;
    std::string_view state = line.word();
    return take_digits(state, 2, out.state);
}

// "... QUEUES TIMER RETRANSMITS USER TIMEOUT INODE ..."
bool parse_internet_socket(std::string_view text, internet_socket &out) {
    scanner line(text);
    if (!parse_socket_ends(line, out)) return false;
    for (int skipped = 0; skipped < 3; ++skipped) line.word();
    uint64_t user = 0;
    if (!line.decimal(user)) return false;
    out.user = static_cast<uint32_t>(user);
    line.word();
    return line.decimal(out.inode);
}

std::optional<uint64_t> socket_inode(std::string_view link) {
    constexpr std::string_view begin = "socket:[", end = "]";
    if (!link.starts_with(begin) || !link.ends_with(end)) return std::nullopt;
    return whole_number(link.substr(begin.size(), link.size() - begin.size() - end.size()));
}

void socket_table::read_internet(socket_kind kind, const char *path, std::vector<record> &into) {
    const int error = root_.reader.lines(root_.directory(), path, [&](std::string_view line) {
        record found{.number = 0, .kind = kind, .ends = {}};
        if (parse_internet_socket(line, found.ends)) into.push_back(found);
    });
    if (means_failure(error)) throw system_failure(path, error);
}

// The answers have the state of the protocol. The table's is derived from it and from whether a file refers to the
// socket; a NUL in an address reads as '@' there.
bool socket_table::ask_for_local(std::vector<record> &into) {
    const size_t others = into.size();
    const int error = for_each_local_socket([&](const local_socket &one) {
        record found{.number = 0, .kind = socket_kind::local, .ends = {}};
        const bool established = one.state == SOCKET_ESTABLISHED;
        if (one.state == SOCKET_LISTENS)
            found.ends.state = LOCAL_LISTENS;
        else if (one.inode != 0)
            found.ends.state = established ? CONNECTED : UNCONNECTED;
        else
            found.ends.state = established ? CONNECTING : DISCONNECTING;
        found.ends.inode = one.inode;
        found.ends.user = one.user.value_or(0);
        found.has_user = one.user.has_value();
        found.has_peer = one.peer.has_value();
        found.peer = one.peer.value_or(0);
        std::string_view address = one.address;
        if (!address.empty() && address.front() != '\0' && address.back() == '\0') address.remove_suffix(1);
        found.path = static_cast<uint32_t>(paths_.size());
        found.path_size = static_cast<uint32_t>(address.size());
        std::replace_copy(address.begin(), address.end(), std::back_inserter(paths_), '\0', '@');
        into.push_back(found);
    });
    if (unless_exhausted(error, "socket diagnosis") == 0) return true;
    into.resize(others, {});
    return false;
}

// "ADDRESS: REFERENCES PROTOCOL FLAGS TYPE STATE INODE PATH"
void socket_table::read_local(std::vector<record> &into) {
    constexpr uint64_t listens = 0x10000;
    if (local_ == local_source::diagnosis && ask_for_local(into)) return;
    const int error = root_.reader.lines(root_.directory(), "net/unix", [&](std::string_view text) {
        record found{.number = 0, .kind = socket_kind::local, .has_user = false, .ends = {}};
        scanner line(text);
        uint64_t flags = 0, state = 0;
        for (int skipped = 0; skipped < 3; ++skipped) line.word();
        line.skip_blanks();
        if (!line.hexadecimal(flags)) return;
        line.word();
        line.skip_blanks();
        if (!line.hexadecimal(state) || !line.decimal(found.ends.inode)) return;
        found.ends.state = (flags & listens) != 0 ? LOCAL_LISTENS : static_cast<uint8_t>(state);
        found.has_peer = found.ends.state == CONNECTING || found.ends.state == CONNECTED;
        line.take(' ');
        found.path = static_cast<uint32_t>(paths_.size());
        found.path_size = static_cast<uint32_t>(line.rest().size());
        paths_ += line.rest();
        into.push_back(found);
    });
    if (means_failure(error)) throw system_failure("net/unix", error);
}

// A path is in its table as it is, and a line feed in one can make a line of another socket. Where two lines with
// different paths claim one inode, neither path counts.
const std::vector<socket_table::record> &socket_table::all() {
    if (records_) return *records_;
    std::vector<record> found;
    paths_.clear();
    for (const char *path : {"net/tcp", "net/tcp6"}) read_internet(socket_kind::tcp, path, found);
    for (const char *path : {"net/udp", "net/udp6"}) read_internet(socket_kind::udp, path, found);
    read_local(found);
    uint64_t without_inode = FIRST_WITHOUT_INODE;
    for (record &one : found) one.number = one.ends.inode != 0 ? one.ends.inode : without_inode++;
    std::stable_sort(found.begin(), found.end(), [](const record &a, const record &b) { return a.number < b.number; });
    const auto merge = [this](record &first, const record &second) {
        if (first.number != second.number) return false;
        if (path_of(first) != path_of(second)) first.path_size = 0;
        return true;
    };
    size_t kept = 0;
    for (const record &one : found) {
        if (kept == 0 || !merge(found[kept - 1], one)) found[kept++] = one;
    }
    found.erase(found.begin() + static_cast<ptrdiff_t>(kept), found.end());
    records_ = std::move(found);
    return *records_;
}

const socket_table::record *socket_table::find(uint64_t number) {
    const auto &records = all();
    const auto before = [](const record &a, uint64_t b) { return a.number < b; };
    const auto found = std::lower_bound(records.begin(), records.end(), number, before);
    return found == records.end() || found->number != number ? nullptr : &*found;
}

std::vector<uint64_t> socket_table::numbers(socket_kind kind) {
    std::vector<uint64_t> numbers;
    for (const record &one : all()) {
        if (one.kind == kind) numbers.push_back(one.number);
    }
    return numbers;
}

bool socket_table::has(socket_kind kind, uint64_t number) {
    const record *found = find(number);
    return found != nullptr && found->kind == kind;
}

std::string socket_table::end_text(const record &of, const socket_end &end) const {
    std::array<char, INET6_ADDRSTRLEN> text;
    const bool is_v6 = of.ends.is_v6;
    const void *address = is_v6 ? end.address : &end.address[std::size(end.address) - 1];
    if (inet_ntop(is_v6 ? AF_INET6 : AF_INET, address, text.data(), text.size()) == nullptr) return {};
    const std::string shown = is_v6 ? '[' + std::string(text.data()) + ']' : std::string(text.data());
    return shown + ':' + std::to_string(end.port);
}

std::string socket_table::local_text(const record &of) const {
    return of.kind == socket_kind::local ? std::string(path_of(of)) : end_text(of, of.ends.local);
}

// The other end of a local socket is its number, which is unique, and its path, which is not: a server's connections
// all have the path that the server listens at. Empty where there is none or it is not known.
std::string socket_table::remote_text(const record &of) {
    if (of.kind != socket_kind::local) return end_text(of, of.ends.remote);
    if (of.peer == 0) return {};
    std::string text = std::to_string(of.peer);
    const record *peer = find(of.peer);
    if (peer != nullptr && peer->kind == socket_kind::local && peer->path_size != 0) (text += ' ') += path_of(*peer);
    return text;
}

namespace {

std::string state_text(socket_kind kind, uint8_t state) {
    const bool local = kind == socket_kind::local;
    if (local && state == LOCAL_LISTENS) return "listen";
    if (kind == socket_kind::udp && state == UDP_UNCONNECTED) return "unconnected";
    const size_t known = local ? std::size(LOCAL_STATES) : std::size(TCP_STATES);
    if (state == 0 || state >= known) return std::to_string(state);
    return std::string(local ? LOCAL_STATES[state] : TCP_STATES[state]);
}

}  // namespace

std::string socket_table::describe(uint64_t inode) {
    const record *found = inode < FIRST_WITHOUT_INODE ? find(inode) : nullptr;
    if (found == nullptr) return {};
    std::string text(KIND_NAMES[static_cast<size_t>(found->kind)]);
    if (const std::string local = local_text(*found); !local.empty()) (text += ' ') += local;
    const socket_end &remote = found->ends.remote;
    if (!remote.is_unspecified() || remote.port != 0 || found->peer != 0) (text += " -> ") += remote_text(*found);
    return text + ' ' + state_text(found->kind, found->ends.state);
}

// The first process by number is a socket's owner; others may have it open too. What the caller may not look into hides
// owners.
void socket_table::find_owners() {
    std::unordered_map<uint64_t, int> owners;
    std::vector<int> processes, numbers;
    descriptor opened;
    bool all_seen = true;
    const auto note = [&](int error, const char *path) {
        if (means_failure(error)) unless_exhausted(error, path);
        if (!means_gone(error)) all_seen = false;
    };
    if (const int error = root_.reader.list(root_.directory(), ".", processes)) note(error, ".");
    std::sort(processes.begin(), processes.end());
    if (processes.empty() || processes.front() != FIRST_PROCESS) all_seen = false;  // hidden processes are not listed
    for (const int process : processes) {
        const numbered_path path(process, "/fd");
        if (const int error = root_.reader.list(root_.directory(), path.c_str(), numbers, &opened, 0)) {
            note(error, path.c_str());
            continue;
        }
        for (const int number : numbers) {
            std::string_view link;
            if (const int error = root_.reader.read_link(opened.get(), numbered_path(number).c_str(), link))
                note(error, path.c_str());
            else if (const auto inode = socket_inode(link))
                owners.try_emplace(*inode, process);
        }
    }
    owners_ = std::move(owners);
    all_owners_seen_ = all_seen;
}

bool socket_table::read(uint64_t number, item asked, registry_node &key) {
    const record *found = find(number);
    if (found == nullptr) return false;
    const bool local = found->kind == socket_kind::local;
    switch (asked) {
    case item::local: key.set_text(local_text(*found)); return !local || found->path_size != 0;
    case item::remote:
        if (local && found->peer == 0) {
            key.set_hidden();
            return found->has_peer;
        }
        key.set_text(remote_text(*found));
        return true;
    case item::state: key.set_text(state_text(found->kind, found->ends.state)); return true;
    case item::user:
        if (found->has_user)
            key.set_number(found->ends.user);
        else
            key.set_hidden();
        return true;
    case item::task: break;
    }
    if (found->ends.inode == 0) return false;
    if (!owners_) find_owners();
    if (const auto owner = owners_->find(found->ends.inode); owner != owners_->end()) {
        key.set_number(static_cast<uint64_t>(owner->second));
        return true;
    }
    key.set_hidden();
    return !all_owners_seen_;
}

// ---- the registry's directories -------------------------------------------------------------------------------------

namespace {

// One socket. Its keys are made anew each time: what they show is in the table.
class socket_directory : public registry_node {
public:
    socket_directory(socket_table &table, uint64_t number) : table_(table), number_(number) {}

    size_t list() override { return std::size(ITEMS); }
    registry_node *at(size_t index, std::string &name) override {
        name = ITEMS[index].name;
        return table_.read(number_, ITEMS[index].which, key_) ? &key_ : nullptr;
    }
    registry_node *entry(std::string_view name) override {
        for (const auto &[known, which] : ITEMS) {
            if (name == known && table_.read(number_, which, key_)) return &key_;
        }
        return nullptr;
    }

private:
    using item = socket_table::item;
    static constexpr struct {
        std::string_view name;
        item which;
    } ITEMS[] = {{"local", item::local},
                 {"remote", item::remote},
                 {"state", item::state},
                 {"task", item::task},
                 {"user", item::user}};

    socket_table &table_;
    uint64_t number_;
    registry_node key_;
};

class kind_directory : public numbered_directories {
public:
    kind_directory(socket_table &table, socket_kind kind) : table_(table), kind_(kind) {}

protected:
    std::vector<uint64_t> numbers() override { return table_.numbers(kind_); }
    node_pointer make(uint64_t number, bool) override {
        return table_.has(kind_, number) ? std::make_unique<socket_directory>(table_, number) : nullptr;
    }

private:
    socket_table &table_;
    socket_kind kind_;
};

}  // namespace

node_pointer make_socket_directory(socket_table &table) {
    auto made = std::make_unique<whole_directory>();
    for (size_t kind = 0; kind < std::size(KIND_NAMES); ++kind)
        made->add(std::string(KIND_NAMES[kind]), std::make_unique<kind_directory>(table, socket_kind(kind)));
    return made;
}

}  // namespace hosted::live
