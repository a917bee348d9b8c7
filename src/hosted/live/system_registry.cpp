// hosted/live/system_registry.cpp - the registry's directories hardware/ and kernel/ over the system's own files.
//
// A directory is read when a client first lists it; a key's value when a listing reaches it, or when it is first
// described or read. Both stay for the run, so that a length and the content that follows it agree. A key that is named
// without a listing costs no more than the files on its own path.
#include "hosted/live/system_registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "hosted/live/counters.h"
#include "hosted/live/hardware_clock.h"
#include "hosted/live/host_services.h"
#include "hosted/live/memory.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

using node_pointer = std::unique_ptr<registry_node>;

struct registry_node {
    virtual ~registry_node() = default;

    uint16_t type = REGTYPE_DIR;
    uint64_t integer = 0;  // of an integer key
    std::string bytes;     // of a binary key

    uint32_t length() const {
        if (type == REGTYPE_INT) return sizeof integer;
        return static_cast<uint32_t>(bytes.size());
    }

    // The names in a directory, in their order. Some may turn out to have no entry.
    const std::vector<std::string> &list() {
        if (!listed_) {
            std::vector<std::string> found = names();
            std::erase_if(found, [](const std::string &name) { return !is_name(name); });
            std::sort(found.begin(), found.end());
            found.erase(std::unique(found.begin(), found.end()), found.end());
            listed_ = std::move(found);
        }
        return *listed_;
    }

    // The entry of a name; null where there is none.
    registry_node *entry(std::string_view name) {
        if (const auto known = entries_.find(name); known != entries_.end()) return known->second.get();
        if (!is_name(name)) return nullptr;
        if (only_names() && !std::binary_search(list().begin(), list().end(), name)) return nullptr;
        std::string key(name);
        node_pointer made = make(key);
        return entries_.emplace(std::move(key), std::move(made)).first->second.get();
    }

protected:
    // The names in a directory, and the entry of a name; null where there is none.
    virtual std::vector<std::string> names() const { return {}; }
    virtual node_pointer make(const std::string &) const { return nullptr; }

    // Whether make() may only be called with what names() returned.
    virtual bool only_names() const { return false; }

private:
    static bool is_name(std::string_view name) { return can_be_key(name) && name != "." && name != ".."; }

    std::optional<std::vector<std::string>> listed_;
    std::map<std::string, node_pointer, std::less<>> entries_;  // those asked for so far; null: there is none
};

namespace {

// ---- keys -----------------------------------------------------------------------------------------------------------

node_pointer number_key(uint64_t value) {
    auto made = std::make_unique<registry_node>();
    made->type = REGTYPE_INT;
    made->integer = value;
    return made;
}

// A binary key that holds a text of the system, cleaned.
node_pointer text_key(std::string_view text, line_feeds feeds = line_feeds::replaced) {
    auto made = std::make_unique<registry_node>();
    made->type = REGTYPE_BIN;
    made->bytes = text;
    clean(made->bytes, feeds);
    made->bytes.resize(std::min<size_t>(made->bytes.size(), registry_limits{}.binary));
    return made;
}

constexpr size_t FILE_ROOM = 4096;  // bytes read of a value's file: more than a value may have

// ---- directories of entries known beforehand ------------------------------------------------------------------------

struct table_entry {
    std::string_view name;
    node_pointer (*make)(const file_roots &roots);  // null where this machine does not have it
};

class table_directory : public registry_node {
public:
    table_directory(const file_roots &roots, std::span<const table_entry> table) : roots_(roots), table_(table) {}

protected:
    std::vector<std::string> names() const override {
        std::vector<std::string> names;
        for (const table_entry &entry : table_) names.emplace_back(entry.name);
        return names;
    }

    node_pointer make(const std::string &name) const override {
        for (const table_entry &entry : table_) {
            if (name == entry.name) return entry.make(roots_);
        }
        return nullptr;
    }

private:
    const file_roots &roots_;
    std::span<const table_entry> table_;
};

// ---- kernel/ --------------------------------------------------------------------------------------------------------

// Parameters whose reading does something: it counts anew, or the kernel logs that they are out of use. They are no
// keys. A name without a directory is one in any directory.
constexpr std::string_view READ_WITH_EFFECT[] = {
    "/vm/stat_refresh", "/vm/nr_pdflush_threads", "/kernel/panic_print", "/base_reachable_time", "/retrans_time",
};

// A parameter's text: an integer key where it is the plain decimal form of 64 signed bits, so that nothing of it is
// lost; else its bytes, with blanks for tabs and without the last line end.
node_pointer parameter_key(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc{} && end == text.data() + text.size();
    if (whole && std::to_string(number) == text) return number_key(static_cast<uint64_t>(number));
    std::string shown(text);
    std::replace(shown.begin(), shown.end(), '\t', ' ');
    return text_key(shown, line_feeds::kept);
}

// A directory of kernel parameters. What is on another file system than their root, or not readable, is left out;
// nothing here mounts anything or waits for a file.
class parameter_directory : public registry_node {
public:
    parameter_directory(std::string path, dev_t device) : path_(std::move(path)), device_(device) {}

    std::vector<std::string> names() const override {
        std::vector<std::string> names;
        descriptor file = open_file(AT_FDCWD, path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        DIR *listing = file ? fdopendir(file.get()) : nullptr;
        unless_exhausted(listing != nullptr ? 0 : errno, path_);
        if (listing == nullptr) return names;
        file.release();  // the listing closes it
        const std::unique_ptr<DIR, int (*)(DIR *)> closed(listing, closedir);
        for (errno = 0; const dirent *entry = readdir(listing); errno = 0) names.emplace_back(entry->d_name);
        if (errno != 0) throw system_failure(path_, errno);
        return names;
    }

    node_pointer make(const std::string &name) const override {
        const std::string path = path_ + '/' + name;
        for (const std::string_view effective : READ_WITH_EFFECT) {
            if (path.ends_with(effective)) return nullptr;
        }
        struct stat status {};
        if (fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT) != 0) return nullptr;
        if (status.st_dev != device_) return nullptr;
        if (S_ISDIR(status.st_mode)) return std::make_unique<parameter_directory>(path, device_);
        constexpr mode_t readable = S_IRUSR | S_IRGRP | S_IROTH;
        if (!S_ISREG(status.st_mode) || (status.st_mode & readable) == 0) return nullptr;
        std::array<char, FILE_ROOM> buffer;
        std::string_view text;
        return read_file(path, buffer, text) == 0 ? parameter_key(text) : nullptr;
    }

private:
    std::string path_;
    dev_t device_;
};

constexpr table_entry KERNEL[] = {
    {"release", [](const file_roots &) { return text_key(system_names().release); }},
    {"version", [](const file_roots &) { return text_key(system_names().version); }},
    {"hostname", [](const file_roots &) { return text_key(system_names().host); }},
    {"cmdline",
     [](const file_roots &roots) {
         std::array<char, FILE_ROOM> buffer;
         std::string_view text;
         return read_file(roots.proc + "/cmdline", buffer, text) == 0 ? text_key(trimmed(text)) : node_pointer();
     }},
};

// The entries of the table, and beside them the kernel's parameters.
class kernel_directory : public table_directory {
public:
    explicit kernel_directory(const file_roots &roots)
        : table_directory(roots, KERNEL), parameters_(roots.proc + "/sys", device_of(roots.proc + "/sys")) {}

protected:
    std::vector<std::string> names() const override {
        std::vector<std::string> names = table_directory::names();
        for (std::string &name : parameters_.names()) names.push_back(std::move(name));
        return names;
    }

    node_pointer make(const std::string &name) const override {
        if (node_pointer made = table_directory::make(name)) return made;
        return parameters_.make(name);
    }

private:
    static dev_t device_of(const std::string &path) {
        struct stat status {};
        stat(path.c_str(), &status);  // where it fails there are no parameters either
        return status.st_dev;
    }

    parameter_directory parameters_;
};

// ---- hardware/ ------------------------------------------------------------------------------------------------------

// The value of the first of two labels in a text like /proc/cpuinfo; null where it has neither.
node_pointer processor_key(const file_roots &roots, std::string_view label, std::string_view other_label) {
    std::array<char, 16384> buffer;  // several processors' worth; the first one's is taken
    for (scanner scan(read_table(roots.proc + "/cpuinfo", buffer)); !scan.done();) {
        const std::string_view line = scan.line();
        const size_t colon = line.find(':');
        const std::string_view found = trimmed(line.substr(0, colon));
        if (colon == line.npos || (found != label && found != other_label)) continue;
        return text_key(trimmed(line.substr(colon + 1)));
    }
    return nullptr;
}

// Processors of different makers name the same thing differently.
constexpr table_entry PROCESSOR[] = {
    {"architecture", [](const file_roots &) { return text_key(system_names().machine); }},
    {"count", [](const file_roots &) { return number_key(static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN))); }},
    {"vendor", [](const file_roots &roots) { return processor_key(roots, "vendor_id", "CPU implementer"); }},
    {"model", [](const file_roots &roots) { return processor_key(roots, "model name", "CPU part"); }},
    {"flags", [](const file_roots &roots) { return processor_key(roots, "flags", "Features"); }},
};

constexpr table_entry MEMORY[] = {
    {"page_size", [](const file_roots &) { return number_key(page_size()); }},
    {"total",
     [](const file_roots &roots) {
         const uint64_t total = memory_map(roots).account().total;
         return total != 0 ? number_key(total) : node_pointer();
     }},
};

// The keys by which a clock is found: the device that serves it, and its unit there.
constexpr table_entry CLOCK[] = {
    {reg_component(RTC_DEVICE_KEY, 1), [](const file_roots &) { return text_key(RTC_NAME); }},
    {reg_component(RTC_UNIT_KEY, 1), [](const file_roots &) { return number_key(0); }},
};

constexpr table_entry CLOCKS[] = {
    {RTC_NAME,
     [](const file_roots &roots) -> node_pointer {
         if (!hardware_clock(roots).exists()) return nullptr;
         return std::make_unique<table_directory>(roots, CLOCK);
     }},
};

// A key over a file that describes a device.
struct attribute {
    const char *name;
    const char *file;
    uint64_t unit;  // what one of the file's number counts for; 0 for a text
};

class attribute_directory : public registry_node {
public:
    attribute_directory(std::string folder, std::span<const attribute> attributes)
        : folder_(std::move(folder)), attributes_(attributes) {}

protected:
    std::vector<std::string> names() const override {
        std::vector<std::string> names;
        for (const attribute &one : attributes_) names.emplace_back(one.name);
        return names;
    }

    node_pointer make(const std::string &name) const override {
        for (const attribute &one : attributes_) {
            if (name != one.name) continue;
            std::array<char, FILE_ROOM> buffer;
            std::string_view text;
            if (read_file(folder_ + one.file, buffer, text) != 0) return nullptr;
            text = trimmed(text);
            if (one.unit == 0) return text_key(text);
            const auto number = whole_number(text);
            if (!number || *number > std::numeric_limits<uint64_t>::max() / one.unit) return nullptr;
            return number_key(*number * one.unit);
        }
        return nullptr;
    }

private:
    std::string folder_;
    std::span<const attribute> attributes_;
};

// A kind of devices: where their names come from, and what describes each.
struct device_kind {
    std::vector<std::string> (*names)(const file_roots &roots);
    const char *folder;
    std::span<const attribute> attributes;
};

class kind_directory : public registry_node {
public:
    kind_directory(const file_roots &roots, const device_kind &kind) : roots_(roots), kind_(kind) {}

protected:
    std::vector<std::string> names() const override { return kind_.names(roots_); }
    node_pointer make(const std::string &device) const override {
        std::string folder = roots_.sys;
        folder += kind_.folder;
        folder += device;
        return std::make_unique<attribute_directory>(std::move(folder), kind_.attributes);
    }
    bool only_names() const override { return true; }

private:
    const file_roots &roots_;
    const device_kind &kind_;
};

constexpr attribute NETWORK_ATTRIBUTES[] = {
    {"address", "/address", 0}, {"mtu", "/mtu", 1}, {"speed", "/speed", 1}, {"state", "/operstate", 0}};
constexpr attribute BLOCK_ATTRIBUTES[] = {{"model", "/device/model", 0},
                                          {"partition", "/partition", 1},
                                          {"read_only", "/ro", 1},
                                          {"removable", "/removable", 1},
                                          {"size", "/size", 512}};
constexpr device_kind NETWORK = {interface_names, "/class/net/", NETWORK_ATTRIBUTES};
constexpr device_kind BLOCK = {block_device_names, "/class/block/", BLOCK_ATTRIBUTES};

template <const auto &table> node_pointer make_table(const file_roots &roots) {
    return std::make_unique<table_directory>(roots, table);
}
template <const device_kind &kind> node_pointer make_kind(const file_roots &roots) {
    return std::make_unique<kind_directory>(roots, kind);
}

constexpr table_entry HARDWARE[] = {
    {"processor", make_table<PROCESSOR>},
    {"memory", make_table<MEMORY>},
    {reg_component(RTC_DIRECTORY, 1), make_table<CLOCKS>},
    {"network", make_kind<NETWORK>},
    {"block", make_kind<BLOCK>},
};

constexpr table_entry ROOT[] = {
    {reg_component(RTC_DIRECTORY, 0), make_table<HARDWARE>},
    {"kernel", [](const file_roots &roots) -> node_pointer { return std::make_unique<kernel_directory>(roots); }},
};

class node_cursor : public registry_cursor {
public:
    explicit node_cursor(registry_node &directory) : directory_(directory) {}

    bool next(registry_entry &entry) override {
        const std::vector<std::string> &names = directory_.list();
        while (at_ < names.size()) {
            const std::string &name = names[at_];
            const registry_node *node = directory_.entry(name);  // may throw: the next step tries this name again
            at_++;
            if (node == nullptr) continue;
            entry = {name, node->type, node->length()};
            return true;
        }
        return false;
    }

private:
    registry_node &directory_;
    size_t at_ = 0;
};

}  // namespace

// ---- the store ------------------------------------------------------------------------------------------------------

system_registry::system_registry(const file_roots &roots) : root_(make_table<ROOT>(roots)) {}

system_registry::~system_registry() = default;

registry_node *system_registry::find(std::string_view path) {
    registry_node *at = root_.get();
    for (auto name = next_component(path); at && !name.empty(); name = next_component(path)) at = at->entry(name);
    return at;
}

std::unique_ptr<registry_cursor> system_registry::list(std::string_view path) {
    registry_node *found = find(path);
    if (found == nullptr || found->type != REGTYPE_DIR) return nullptr;
    found->list();
    return std::make_unique<node_cursor>(*found);
}

uint32_t system_registry::describe(std::string_view path, uint16_t &type, uint32_t &length) {
    const registry_node *found = find(path);
    if (found == nullptr) return IOERROR_NOT_FOUND;
    type = found->type;
    length = found->length();
    return 0;
}

uint32_t system_registry::read_int(std::string_view path, uint64_t &value) {
    const registry_node *found = find(path);
    if (found == nullptr || found->type != REGTYPE_INT) return IOERROR_NOT_FOUND;
    value = found->integer;
    return 0;
}

uint32_t system_registry::read_binary(std::string_view path, std::string &value) {
    const registry_node *found = find(path);
    if (found == nullptr || found->type != REGTYPE_BIN) return IOERROR_NOT_FOUND;
    value = found->bytes;
    return 0;
}

}  // namespace hosted::live
