// hosted/described/file.cpp - reading, locking and replacing machine files.
#include "hosted/described/file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "hosted/output.h"

namespace hosted::described {
namespace {

constexpr size_t LARGEST_FILE = size_t{1} << 30;  // bytes; offsets within a document have 32 bits
constexpr int WRITER_WAIT = 1000;                 // milliseconds for a pipe's writer to appear
constexpr long QUIET_WAIT = 1000;                 // milliseconds of waiting for a lock that are not reported
constexpr long LOCK_RETRY = 10;                   // milliseconds
constexpr mode_t NEW_FILE = 0666;                 // less the user's mask
constexpr mode_t PRIVATE_FILE = 0600;
constexpr mode_t PERMISSIONS = 0777;

std::string system_text(const std::string &path, int error) { return path + ": " + std::strerror(error); }

bool same_file(const struct stat &a, const struct stat &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

bool same_version(const struct stat &a, const struct stat &b) {
    return same_file(a, b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// Waits for the writer of a pipe alone. Other files that have nothing to read yet (a terminal, /proc/kmsg) fail.
//   file     opened with O_NONBLOCK
//   returns  0, or a system error number
int read_machine(int file, std::string &text) {
    struct stat about {};
    if (fstat(file, &about) != 0) return errno;
    if (S_ISDIR(about.st_mode)) return EISDIR;
    if (S_ISFIFO(about.st_mode)) {  // without a writer it would read as empty at once
        if (fcntl(file, F_SETFL, O_RDONLY) != 0) return errno;
        pollfd pipe{file, POLLIN, 0};
        static_cast<void>(retry_interrupted([&] { return poll(&pipe, 1, WRITER_WAIT); }));
    }
    if (about.st_size > static_cast<off_t>(LARGEST_FILE)) return EFBIG;
    text.reserve(static_cast<size_t>(about.st_size) + 1);  // the whole file in one read
    const int error = read_all(file, text, LARGEST_FILE);
    return error == 0 && text.size() == LARGEST_FILE ? EFBIG : error;
}

// The process that holds the lock of a file; 0 where the system does not say.
int lock_holder(const struct stat &locked) {
    std::string locks;
    constexpr size_t longest_list = size_t{1} << 20;
    const descriptor file = open_file(AT_FDCWD, "/proc/locks");
    if (!file || read_all(file.get(), locks, longest_list) != 0) return 0;
    int holder = 0;
    for (size_t at = 0; at < locks.size(); at = std::min(locks.find('\n', at), locks.size() - 1) + 1) {
        int process = 0;
        unsigned major = 0;
        unsigned minor = 0;
        unsigned long inode = 0;
        // The widths keep every number in range. NOLINTNEXTLINE(cert-err34-c)
        if (std::sscanf(locks.c_str() + at, "%*u: FLOCK %*s %*s %9d %4x:%5x:%19lu", &process, &major, &minor, &inode) !=
            4)
            continue;
        if (inode != locked.st_ino || process <= 0) continue;
        holder = process;
        if (makedev(major, minor) == locked.st_dev) break;  // some file systems show another device number here
    }
    return holder;
}

// Takes the exclusive lock of a file, and reports a long wait for it. Returns 0 or a system error number.
int lock(int file, const std::string &path, const struct stat &about) {
    for (long waited = 0; waited < QUIET_WAIT; waited += LOCK_RETRY) {
        if (flock(file, LOCK_EX | LOCK_NB) == 0) return 0;
        if (errno != EWOULDBLOCK && errno != EINTR) return errno;
        const timespec pause{0, LOCK_RETRY * 1'000'000};
        nanosleep(&pause, nullptr);
    }
    const int holder = lock_holder(about);
    const std::string who = holder != 0 ? "process " + std::to_string(holder) : "another run";
    std::fprintf(stderr, "%s: %s: waiting for %s, which holds the file\n", program_name, path.c_str(), who.c_str());
    return retry_interrupted([&] { return flock(file, LOCK_EX); }) == 0 ? 0 : errno;
}

// Blocks every signal of this thread that can be blocked, for the length of a scope.
class blocked_signals {
public:
    blocked_signals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~blocked_signals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    blocked_signals(const blocked_signals &) = delete;
    blocked_signals &operator=(const blocked_signals &) = delete;

private:
    sigset_t before_{};
};

// Gives a complete temporary file the owner and the permissions of the file that it replaces, or those of a new file.
//   replaced  null where there is no plain file
//   returns   0 or a system error number
int pass_on_access(int file, const struct stat *replaced) {
    const mode_t mask = umask(~PRIVATE_FILE & PERMISSIONS);
    umask(mask);
    const mode_t permitted = NEW_FILE & ~mask;
    mode_t mode = permitted;
    if (replaced != nullptr) {
        mode = replaced->st_mode & PERMISSIONS;
        const bool owned = fchown(file, replaced->st_uid, replaced->st_gid) == 0;
        if (!owned || replaced->st_uid != geteuid()) mode &= permitted;
    }
    return fchmod(file, mode) == 0 ? 0 : errno;
}

// Returns 0 also for a kind of file that cannot be synced.
int sync(int file) { return fsync(file) == 0 || errno == EINVAL ? 0 : errno; }

}  // namespace

bool machine_file::read(const std::string &path, const std::string &save_path, std::string &text,
                        std::string &message) {
    save_path_ = save_path;
    for (;;) {
        descriptor file = open_named(path, O_RDONLY | O_NONBLOCK);
        int error = file ? 0 : errno;
        struct stat named {};
        bool locks = file && !save_path.empty() && fstat(file.get(), &version_) == 0;
        if (locks && save_path != path) {
            locks = stat(save_path.c_str(), &named) == 0 && same_file(version_, named);
            // Two names of one file: another run may have replaced it since it was opened.
            if (!locks && (stat(path.c_str(), &named) != 0 || !same_file(version_, named))) continue;
        }
        if (locks) {
            error = lock(file.get(), path, version_);
            // Whoever held the lock may have replaced the file.
            if (error == 0 && (stat(path.c_str(), &named) != 0 || !same_file(version_, named))) continue;
            if (error == 0 && fstat(file.get(), &version_) != 0) error = errno;
        }
        if (error == 0) error = read_machine(file.get(), text);
        if (error != 0) {
            message = system_text(path, error);
            return false;
        }
        if (locks) locked_ = std::move(file);
        return true;
    }
}

bool machine_file::save(std::string_view text, std::string &message) {
    struct stat now {};
    if (locked_ && (stat(save_path_.c_str(), &now) != 0 || !same_version(now, version_))) {
        message = save_path_ + ": changed by another program during the run; not saved";
        return false;
    }
    if (!replace_file(save_path_, text, message)) return false;
    if (locked_) static_cast<void>(stat(save_path_.c_str(), &version_));
    return true;
}

bool replace_file(const std::string &path, std::string_view text, std::string &message, file_access access) {
    const blocked_signals for_this_scope;
    const size_t name_at = path.rfind('/') + 1;  // npos + 1 is 0
    const std::string name = path.substr(name_at);
    const descriptor folder = open_named(name_at == 0 ? "." : path.substr(0, name_at), O_PATH | O_DIRECTORY);
    if (!folder) {
        message = system_text(path, errno);
        return false;
    }
    struct stat target {};
    if (fstatat(folder.get(), name.c_str(), &target, 0) == 0 && !S_ISREG(target.st_mode)) {
        message = path + ": " + (S_ISDIR(target.st_mode) ? std::strerror(EISDIR) : "Not a plain file");
        return false;
    }
    const bool replaces =
        fstatat(folder.get(), name.c_str(), &target, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(target.st_mode);

    std::string beside;
    descriptor file;
    for (unsigned attempt = 0; !file; ++attempt) {
        beside = ".ventix-" + std::to_string(getpid()) + "-" + std::to_string(attempt);
        file = open_file(folder.get(), beside.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, PRIVATE_FILE);
        if (!file && errno != EEXIST) {  // a file that an earlier process left stays
            message = system_text(path, errno);
            return false;
        }
    }
    int error = write_all(file.get(), text);
    if (error == 0 && access == file_access::inherited)
        error = pass_on_access(file.get(), replaces ? &target : nullptr);
    if (error == 0 && access == file_access::owner_only && fchmod(file.get(), PRIVATE_FILE) != 0) error = errno;
    if (error == 0) error = sync(file.get());
    if (const int failed = file.close(); error == 0) error = failed;
    if (error == 0 && renameat(folder.get(), beside.c_str(), folder.get(), name.c_str()) != 0) error = errno;
    if (error != 0) {
        unlinkat(folder.get(), beside.c_str(), 0);
    } else if (const descriptor synced = open_file(folder.get(), ".", O_RDONLY | O_DIRECTORY)) {
        error = sync(synced.get());  // a directory that its user may only write and search stays unsynced
    }
    if (error != 0) message = system_text(path, error);
    return error == 0;
}

}  // namespace hosted::described
