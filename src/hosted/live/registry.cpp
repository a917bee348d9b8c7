// registry.cpp - the registry's directories hardware/ and kernel/ over the system's own files.
//
// A directory is read when a client first lists it, a key's value when it is first listed, described or read, and both
// are kept, so that a length and the content that follows it agree. A key that is named without a listing costs no more
// than the files on its own path.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <limits>

#include "hosted/live/devices.h"
#include "hosted/live/system.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

using node_pointer = std::unique_ptr<registry_node>;

struct registry_node {
    uint16_t type = REGTYPE_DIR;

    // Of a key.
    uint64_t number = 0;
    std::string text;

    // Of a directory: the names in it, and the entry of a name; null where there is none.
    std::function<std::vector<std::string>()> names;
    std::function<node_pointer(const std::string &name)> make;
    bool named_by_list = false;  // only the names that names() gives may be made
    bool listed = false;
    std::map<std::string, node_pointer, std::less<>> entries;  // those made so far; all, once it is listed

    uint32_t length() const {
        if (type == REGTYPE_INT) return sizeof number;
        return static_cast<uint32_t>(text.size());
    }

    void list() {
        if (listed || type != REGTYPE_DIR) return;
        listed = true;
        for (const std::string &name : names()) add(name);
    }

    registry_node *entry(std::string_view name) {
        if (type != REGTYPE_DIR) return nullptr;
        if (named_by_list) list();
        if (const auto known = entries.find(name); known != entries.end()) return known->second.get();
        return listed ? nullptr : add(std::string(name));
    }

private:
    registry_node *add(const std::string &name) {
        if (!can_be_key(name) || name == "." || name == "..") return nullptr;
        if (const auto known = entries.find(name); known != entries.end()) return known->second.get();
        node_pointer made = make(name);
        return made ? entries.emplace(name, std::move(made)).first->second.get() : nullptr;
    }
};

namespace {

// ---- keys -----------------------------------------------------------------------------------------------------------

node_pointer number_key(uint64_t value) {
    auto made = std::make_unique<registry_node>();
    made->type = REGTYPE_INT;
    made->number = value;
    return made;
}

node_pointer text_key(std::string_view text) {
    auto made = std::make_unique<registry_node>();
    made->type = REGTYPE_BIN;
    made->text = text.substr(0, registry_limits{}.binary);
    return made;
}

// A parameter's text: an integer key where it is the plain decimal form of 64 signed bits, so that nothing of it is
// lost; else its bytes without the last line end.
node_pointer parameter_key(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    int64_t number = 0;
    const auto [behind, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && behind == text.data() + text.size();
    if (whole && std::to_string(number) == text) return number_key(static_cast<uint64_t>(number));
    return text_key(text);
}

constexpr size_t FILE_ROOM = 4096;  // bytes read of a value's file: more than a value may have

// ---- directories ----------------------------------------------------------------------------------------------------

node_pointer directory(std::function<std::vector<std::string>()> names,
                       std::function<node_pointer(const std::string &)> make, bool named_by_list = false) {
    auto made = std::make_unique<registry_node>();
    made->names = std::move(names);
    made->make = std::move(make);
    made->named_by_list = named_by_list;
    return made;
}

struct fixed_entry {
    const char *name;
    std::function<node_pointer()> make;
};

// A directory of entries known beforehand; one that makes null is not there.
node_pointer fixed_directory(std::vector<fixed_entry> entries) {
    const auto shared = std::make_shared<const std::vector<fixed_entry>>(std::move(entries));
    return directory(
        [shared] {
            std::vector<std::string> names;
            for (const fixed_entry &entry : *shared) names.emplace_back(entry.name);
            return names;
        },
        [shared](const std::string &name) -> node_pointer {
            for (const fixed_entry &entry : *shared) {
                if (name == entry.name) return entry.make();
            }
            return nullptr;
        });
}

// ---- kernel/ --------------------------------------------------------------------------------------------------------

// A directory of kernel parameters. What is on another file system than its root, or not readable, is passed over;
// nothing here mounts anything or waits for a file.
class parameters {
public:
    parameters(std::string path, dev_t device) : path_(std::move(path)), device_(device) {}

    std::vector<std::string> names() const {
        std::vector<std::string> names;
        const int file = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        DIR *listing = file >= 0 ? fdopendir(file) : nullptr;
        if (!listing) return names;
        while (const dirent *entry = readdir(listing)) names.emplace_back(entry->d_name);
        closedir(listing);
        return names;
    }

    node_pointer make(const std::string &name) const {
        const std::string path = path_ + '/' + name;
        struct stat status {};
        if (fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) return nullptr;
        if (status.st_dev != device_) return nullptr;
        if (S_ISDIR(status.st_mode)) return open_directory(path, device_);
        constexpr mode_t readable = S_IRUSR | S_IRGRP | S_IROTH;
        if (!S_ISREG(status.st_mode) || (status.st_mode & readable) == 0) return nullptr;
        std::array<char, FILE_ROOM> buffer;
        const auto text = read_file(path, buffer);
        return text ? parameter_key(*text) : nullptr;
    }

    static node_pointer open_directory(const std::string &path, dev_t device) {
        const parameters below(path, device);
        return directory([below] { return below.names(); },
                         [below](const std::string &name) { return below.make(name); });
    }

private:
    std::string path_;
    dev_t device_;
};

node_pointer kernel_directory(const file_roots &roots) {
    node_pointer known = fixed_directory({
        {"release", [] { return text_key(system_names().release); }},
        {"version", [] { return text_key(system_names().version); }},
        {"hostname", [] { return text_key(system_names().nodename); }},
        {"cmdline",
         [&roots]() -> node_pointer {
             std::array<char, FILE_ROOM> buffer;
             const auto text = read_file(roots.proc + "/cmdline", buffer);
             return text ? text_key(trimmed(*text)) : nullptr;
         }},
    });
    const std::string root = roots.proc + "/sys";
    struct stat status {};
    if (stat(root.c_str(), &status) != 0) return known;
    const parameters all(root, status.st_dev);
    auto known_names = std::move(known->names);
    auto make_known = std::move(known->make);
    return directory(
        [all, known_names] {
            std::vector<std::string> names = known_names();
            for (std::string &name : all.names()) names.push_back(std::move(name));
            return names;
        },
        [all, make_known](const std::string &name) {
            node_pointer made = make_known(name);
            return made ? std::move(made) : all.make(name);
        });
}

// ---- hardware/ ------------------------------------------------------------------------------------------------------

// The value of the first of these labels in a text like /proc/cpuinfo; null where none stands there.
node_pointer processor_key(const file_roots &roots, std::initializer_list<std::string_view> labels) {
    std::array<char, 16384> buffer;  // several processors' worth; the first one's is taken
    std::string_view text = read_file(roots.proc + "/cpuinfo", buffer).value_or("");
    while (!text.empty()) {
        const std::string_view line = next_line(text);
        const size_t colon = line.find(':');
        const std::string_view label = trimmed(line.substr(0, colon));
        if (colon == line.npos || std::find(labels.begin(), labels.end(), label) == labels.end()) continue;
        return text_key(trimmed(line.substr(colon + 1)));
    }
    return nullptr;
}

node_pointer processor_directory(const file_roots &roots) {
    return fixed_directory({
        {"architecture", [] { return text_key(system_names().machine); }},
        {"count", [] { return number_key(static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN))); }},
        {"vendor",
         [&roots] {
             return processor_key(roots, {"vendor_id", "CPU implementer"});
         }},
        {"model",
         [&roots] {
             return processor_key(roots, {"model name", "CPU part"});
         }},
        {"flags",
         [&roots] {
             return processor_key(roots, {"flags", "Features"});
         }},
    });
}

node_pointer memory_directory(const file_roots &roots) {
    return fixed_directory({
        {"page_size", [] { return number_key(page_size()); }},
        {"total",
         [&roots] {
             std::array<char, 8192> buffer;
             return number_key(parse_memory_account(read_file(roots.proc + "/meminfo", buffer).value_or("")).total);
         }},
    });
}

// The keys by which a clock is found, named after the device that serves it.
node_pointer clock_directory(const file_roots &roots) {
    return fixed_directory({{"rtc0", [&roots]() -> node_pointer {
                                 if (!hardware_clock(roots).exists()) return nullptr;
                                 return fixed_directory({{"device", [] { return text_key("rtc0"); }},
                                                         {"unit", [] { return number_key(0); }}});
                             }}});
}

// A key over a file that describes a device.
struct attribute {
    const char *name;
    const char *file;
    uint64_t unit;  // what one of the file's number counts for; 0 for a text
};

node_pointer attribute_key(const std::string &path, uint64_t unit) {
    std::array<char, FILE_ROOM> buffer;
    const auto text = read_file(path, buffer);
    if (!text) return nullptr;
    if (unit == 0) return text_key(trimmed(*text));
    const auto number = whole_number(trimmed(*text));
    if (!number || *number > std::numeric_limits<uint64_t>::max() / unit) return nullptr;
    return number_key(*number * unit);
}

// The devices of a list, each a directory of attributes.
node_pointer device_directory(const file_roots &roots, std::vector<std::string> (*names)(const file_roots &),
                              std::string folder, std::span<const attribute> attributes) {
    const auto make = [&roots, folder = std::move(folder), attributes](const std::string &device) {
        std::vector<fixed_entry> keys;
        for (const attribute &key : attributes) {
            keys.push_back({key.name, [path = roots.sys + folder + device + key.file, unit = key.unit] {
                                return attribute_key(path, unit);
                            }});
        }
        return fixed_directory(std::move(keys));
    };
    return directory([&roots, names] { return names(roots); }, make, true);
}

constexpr attribute NETWORK_ATTRIBUTES[] = {
    {"address", "/address", 0}, {"mtu", "/mtu", 1}, {"speed", "/speed", 1}, {"state", "/operstate", 0}};
constexpr attribute BLOCK_ATTRIBUTES[] = {{"model", "/device/model", 0},
                                          {"partition", "/partition", 1},
                                          {"read_only", "/ro", 1},
                                          {"removable", "/removable", 1},
                                          {"size", "/size", 512}};

node_pointer hardware_directory(const file_roots &roots) {
    return fixed_directory({
        {"processor", [&roots] { return processor_directory(roots); }},
        {"memory", [&roots] { return memory_directory(roots); }},
        {"rtc", [&roots] { return clock_directory(roots); }},
        {"network", [&roots] { return device_directory(roots, interface_names, "/class/net/", NETWORK_ATTRIBUTES); }},
        {"block", [&roots] { return device_directory(roots, block_device_names, "/class/block/", BLOCK_ATTRIBUTES); }},
    });
}

class node_cursor : public registry_cursor {
public:
    explicit node_cursor(const registry_node &directory)
        : next_(directory.entries.begin()), end_(directory.entries.end()) {}

    bool next(registry_entry &entry) override {
        if (next_ == end_) return false;
        const auto &[name, node] = *next_++;
        entry = {name, node->type, node->length()};
        return true;
    }

private:
    decltype(registry_node::entries)::const_iterator next_, end_;
};

}  // namespace

// ---- the store ------------------------------------------------------------------------------------------------------

system_registry::system_registry(const file_roots &roots)
    : root_(fixed_directory({{"hardware", [&roots] { return hardware_directory(roots); }},
                             {"kernel", [&roots] { return kernel_directory(roots); }}})) {}

system_registry::~system_registry() = default;

registry_node *system_registry::find(std::string_view path) {
    registry_node *at = root_.get();
    while (at && !path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        if (!name.empty()) at = at->entry(name);
    }
    return at;
}

std::unique_ptr<registry_cursor> system_registry::list(std::string_view path) {
    registry_node *found = find(path);
    if (!found || found->type != REGTYPE_DIR) return nullptr;
    found->list();
    return std::make_unique<node_cursor>(*found);
}

uint32_t system_registry::describe(std::string_view path, uint16_t &type, uint32_t &length) {
    const registry_node *found = find(path);
    if (!found) return IOERROR_NOT_FOUND;
    type = found->type;
    length = found->length();
    return 0;
}

uint32_t system_registry::read_int(std::string_view path, uint64_t &value) {
    const registry_node *found = find(path);
    if (!found || found->type != REGTYPE_INT) return IOERROR_NOT_FOUND;
    value = found->number;
    return 0;
}

uint32_t system_registry::read_binary(std::string_view path, std::string &value) {
    const registry_node *found = find(path);
    if (!found || found->type != REGTYPE_BIN) return IOERROR_NOT_FOUND;
    value = found->text;
    return 0;
}

uint32_t system_registry::write_binary(std::string_view, std::string_view) {
    return static_cast<uint32_t>(RESULT_NOT_PERMITTED);
}

uint32_t system_registry::create_temporary(std::string_view) { return static_cast<uint32_t>(RESULT_NOT_PERMITTED); }

uint32_t system_registry::create_guard(std::string_view, uint64_t) {
    return static_cast<uint32_t>(RESULT_NOT_PERMITTED);
}

}  // namespace hosted::live
