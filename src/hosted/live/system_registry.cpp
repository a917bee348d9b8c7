// hosted/live/system_registry.cpp - the registry's directories hardware/ and kernel/ over the system's own files.
#include "hosted/live/system_registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <span>
#include <vector>

#include "hosted/live/counters.h"
#include "hosted/live/hardware_clock.h"
#include "hosted/live/host_services.h"
#include "hosted/live/interrupt_registry.h"
#include "hosted/live/memory.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

namespace {

constexpr size_t FILE_ROOM = 4096;  // bytes read of a value's file: more than a value may have

// What the entries of this registry are made from.
using system_entry = table_entry<const file_roots>;
using system_table = table_directory<const file_roots>;

// ---- kernel/ --------------------------------------------------------------------------------------------------------

// Parameters that have an effect when they are read: statistics are folded, or the kernel logs that the parameter is
// deprecated. They are not keys. A name without a directory is excluded in every directory.
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
class parameter_directory : public named_directory {
public:
    parameter_directory(std::string path, dev_t device, mode_t readers)
        : path_(std::move(path)), device_(device), readers_(readers) {}

    std::vector<std::string> names() override {
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

    node_pointer make(const std::string &name) override {
        const std::string path = path_ + '/' + name;
        for (const std::string_view effective : READ_WITH_EFFECT) {
            if (path.ends_with(effective)) return nullptr;
        }
        struct stat status {};
        const int failed = fstatat(AT_FDCWD, path.c_str(), &status, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT);
        if (failed != 0 && unless_exhausted(errno, path) != 0) return nullptr;
        if (status.st_dev != device_) return nullptr;
        if (S_ISDIR(status.st_mode)) return std::make_unique<parameter_directory>(path, device_, readers_);
        if (!S_ISREG(status.st_mode) || (status.st_mode & readers_) == 0) return nullptr;
        std::array<char, FILE_ROOM> buffer;
        std::string_view text;
        return read_file(path, buffer, text) == 0 ? parameter_key(text) : nullptr;
    }

private:
    std::string path_;
    dev_t device_;
    mode_t readers_;
};

constexpr system_entry KERNEL[] = {
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
class kernel_directory : public system_table {
public:
    explicit kernel_directory(const file_roots &roots)
        : system_table(roots, KERNEL), parameters_(roots.proc + "/sys", device_of(roots.proc + "/sys"), roots.readers) {
    }

protected:
    std::vector<std::string> names() override {
        std::vector<std::string> names = system_table::names();
        for (std::string &name : parameters_.names()) names.push_back(std::move(name));
        return names;
    }

    node_pointer make(const std::string &name) override {
        if (node_pointer made = system_table::make(name)) return made;
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
constexpr system_entry PROCESSOR[] = {
    {"architecture", [](const file_roots &) { return text_key(system_names().machine); }},
    {"count", [](const file_roots &) { return number_key(static_cast<uint64_t>(sysconf(_SC_NPROCESSORS_ONLN))); }},
    {"vendor", [](const file_roots &roots) { return processor_key(roots, "vendor_id", "CPU implementer"); }},
    {"model", [](const file_roots &roots) { return processor_key(roots, "model name", "CPU part"); }},
    {"flags", [](const file_roots &roots) { return processor_key(roots, "flags", "Features"); }},
};

constexpr system_entry MEMORY[] = {
    {"page_size", [](const file_roots &) { return number_key(page_size()); }},
    {"total",
     [](const file_roots &roots) {
         const uint64_t total = memory_map(roots).amounts().total;
         return total != 0 ? number_key(total) : node_pointer();
     }},
};

// The keys by which a clock is found: the device that serves it, and its unit there.
constexpr system_entry CLOCK[] = {
    {reg_component(RTC_DEVICE_KEY, 1), [](const file_roots &) { return text_key(RTC_NAME); }},
    {reg_component(RTC_UNIT_KEY, 1), [](const file_roots &) { return number_key(0); }},
};

constexpr system_entry CLOCKS[] = {
    {RTC_NAME,
     [](const file_roots &roots) -> node_pointer {
         if (!hardware_clock(roots).exists()) return nullptr;
         return std::make_unique<system_table>(roots, CLOCK);
     }},
};

// A key over a file that describes a device.
struct attribute {
    const char *name;
    const char *file;
    uint64_t unit;  // what one of the file's number counts for; 0 for a text
};

class attribute_directory : public named_directory {
public:
    attribute_directory(std::string folder, std::span<const attribute> attributes, mode_t readers)
        : folder_(std::move(folder)), attributes_(attributes), readers_(readers) {}

protected:
    std::vector<std::string> names() override {
        std::vector<std::string> names;
        for (const attribute &one : attributes_) names.emplace_back(one.name);
        return names;
    }

    node_pointer make(const std::string &name) override {
        for (const attribute &one : attributes_) {
            if (name != one.name) continue;
            std::array<char, FILE_ROOM> buffer;
            std::string_view text;
            struct stat status {};
            const std::string path = folder_ + one.file;
            if (stat(path.c_str(), &status) != 0 || (status.st_mode & readers_) == 0) return nullptr;
            if (read_file(path, buffer, text) != 0) return nullptr;
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
    mode_t readers_;
};

// A kind of devices: where their names come from, and what describes each.
struct device_kind {
    std::vector<std::string> (*names)(const file_roots &roots);
    const char *folder;
    std::span<const attribute> attributes;
};

class kind_directory : public named_directory {
public:
    kind_directory(const file_roots &roots, const device_kind &kind) : roots_(roots), kind_(kind) {}

protected:
    std::vector<std::string> names() override { return kind_.names(roots_); }
    node_pointer make(const std::string &device) override {
        std::string folder = roots_.sys;
        folder += kind_.folder;
        folder += device;
        return std::make_unique<attribute_directory>(std::move(folder), kind_.attributes, roots_.readers);
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
    return std::make_unique<system_table>(roots, table);
}
template <const device_kind &kind> node_pointer make_kind(const file_roots &roots) {
    return std::make_unique<kind_directory>(roots, kind);
}

constexpr system_entry HARDWARE[] = {
    {"processor", make_table<PROCESSOR>},
    {"memory", make_table<MEMORY>},
    {reg_component(RTC_DIRECTORY, 1), make_table<CLOCKS>},
    {"network", make_kind<NETWORK>},
    {"block", make_kind<BLOCK>},
    {"interrupt", [](const file_roots &roots) { return make_interrupt_directory(roots); }},
};

constexpr system_entry ROOT[] = {
    {reg_component(RTC_DIRECTORY, 0), make_table<HARDWARE>},
    {"kernel", [](const file_roots &roots) -> node_pointer { return std::make_unique<kernel_directory>(roots); }},
};

}  // namespace

node_pointer make_system_directory(const file_roots &roots) { return make_table<ROOT>(roots); }

}  // namespace hosted::live
