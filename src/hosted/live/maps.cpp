// maps.cpp - mappings as views and memos.
#include "hosted/live/maps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <string>
#include <unordered_map>

#include "hosted/live/indexed_walk.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// A mapped file's identity.
using file_key = std::pair<uint64_t, uint64_t>;  // device, inode

struct file_hash {
    size_t operator()(const file_key &key) const { return key.second * 0x9E3779B97F4A7C15 ^ key.first; }
};

constexpr std::string_view DELETED = " (deleted)";

// What the kernel itself lays into every process: [vdso], [vvar], [vsyscall] and the like. Not [heap] and [stack].
bool is_fixed(const mapping_line &line) {
    constexpr std::string_view names[] = {"[v", "[sigpage]", "[vectors]", "[uprobes]"};
    return line.inode == 0 && std::any_of(std::begin(names), std::end(names),
                                          [&](std::string_view name) { return line.name.starts_with(name); });
}

// Whether a mapped file is a device, rather than shared memory that has its place beside the devices.
bool is_device(const mapping_line &line) {
    if (line.inode == 0 || !line.name.starts_with("/dev/") || line.name == "/dev/zero") return false;
    struct ::stat file {};
    return ::stat(std::string(line.name).c_str(), &file) == 0 && (S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode)) &&
           file.st_ino == line.inode &&
           makedev(static_cast<unsigned>(line.device >> 32), static_cast<unsigned>(line.device)) == file.st_dev;
}

// Shared memory never had a name to lose.
bool is_deleted(const mapping_line &line) {
    if (line.inode == 0 || !line.name.ends_with(DELETED)) return false;
    constexpr std::string_view unnamed[] = {"/dev/zero", "/memfd:", "/SYSV"};
    return std::none_of(std::begin(unnamed), std::end(unnamed),
                        [&](std::string_view name) { return line.name.starts_with(name); });
}

uint32_t view_flags(const mapping_line &line) {
    uint64_t flags = 0;
    if (!line.readable) flags |= VIEWFLAG_DENY_READ;
    if (!line.writable) flags |= VIEWFLAG_DENY_WRITE;
    if (!line.executable) flags |= VIEWFLAG_DENY_EXECUTE;
    if (line.shared) flags |= VIEWFLAG_SHARED;
    return static_cast<uint32_t>(flags);
}

// What tells the file of a mapping: "MAJOR:MINOR INODE".
bool parse_file(scanner &scan, mapping_line &out) {
    uint64_t major = 0, minor = 0;
    if (!scan.hexadecimal(major) || !scan.take(':') || !scan.hexadecimal(minor)) return false;
    out.device = major << 32 | (minor & 0xFFFFFFFF);
    return scan.decimal(out.inode);
}

}  // namespace

// "BEGIN-END PERMISSIONS OFFSET MAJOR:MINOR INODE    NAME"
bool parse_mapping(std::string_view line, mapping_line &out) {
    scanner scan(line);
    if (!scan.hexadecimal(out.begin) || !scan.take('-') || !scan.hexadecimal(out.end)) return false;
    const std::string_view permissions = scan.word();
    if (permissions.size() < 4 || out.end < out.begin) return false;
    out.readable = permissions[0] == 'r';
    out.writable = permissions[1] == 'w';
    out.executable = permissions[2] == 'x';
    out.shared = permissions[3] == 's';
    scan.skip_blanks();
    if (!scan.hexadecimal(out.offset)) return false;
    scan.skip_blanks();
    if (!parse_file(scan, out)) return false;
    scan.skip_blanks();
    out.name = scan.rest();
    return true;
}

// A listing of all processes asks this of each, so that only the part of a line is read that tells files apart, and of
// lines that tell the same one behind another the first. Few files get as far as the sort.
uint64_t count_memos(proc_root &root, int directory) {
    auto &files = root.mapped_files;
    files.clear();
    uint64_t unnamed = 0;
    char told[48];  // "MAJOR:MINOR INODE " of the line before
    size_t told_length = 0;
    bool told_unnamed = false;
    const int error = root.reader.lines(directory, "maps", [&](std::string_view text) {
        scanner scan(text);
        for (int word = 0; word < 3; word++) scan.skip_past(' ');  // addresses, permissions, offset
        const std::string_view rest = scan.rest();
        if (told_length != 0 && rest.starts_with(std::string_view(told, told_length))) {
            unnamed += told_unnamed;
            return;
        }
        mapping_line line;
        if (!parse_file(scan, line)) return;
        const bool whole = scan.take(' ');
        const size_t length = rest.size() - scan.rest().size();
        told_length = whole && length <= sizeof told ? rest.copy(told, length) : 0;
        told_unnamed = line.inode == 0;
        if (told_unnamed) {
            unnamed++;
        } else {
            files.emplace_back(line.device, line.inode);
        }
    });
    if (error != 0) return 0;
    std::sort(files.begin(), files.end());
    const auto distinct = std::unique(files.begin(), files.end()) - files.begin();
    return unnamed + static_cast<uint64_t>(distinct);
}

int process_map::read(proc_root &root, int directory) {
    std::unordered_map<file_key, uint32_t, file_hash> files;
    return root.reader.lines(directory, "maps", [&](std::string_view text) {
        mapping_line line;
        if (!parse_mapping(text, line) || views_.size() >= UINT32_MAX) return;
        const auto next = static_cast<uint32_t>(memos_.size());
        uint32_t shown = next;
        if (line.inode != 0) shown = files.try_emplace({line.device, line.inode}, next).first->second;
        if (shown == next) {
            memo &made = memos_.emplace_back();
            made.deleted = is_deleted(line);
            if (is_fixed(line)) {
                made.type = MEMO_FIX;
                made.address = line.begin;
            } else if (is_device(line)) {
                made.type = MEMO_HW;
                made.address = line.offset;
            }
        }
        memo &behind = memos_[shown];
        if (behind.type == MEMO_HW) behind.address = std::min(behind.address, line.offset);
        behind.size += line.end - line.begin;
        behind.views++;
        views_.push_back({line.begin, (line.end - line.begin) / root.page_size, line.offset / root.page_size, shown,
                          view_flags(line)});
    });
}

// "BEGIN-END ..." for each mapping, then a line "KEY: FIGURE kB" for each of its accounts. Mappings that have come or
// changed since the first reading are left out.
void process_map::read_resident(proc_root &root, int directory) {
    if (resident_known_) return;
    resident_known_ = true;
    size_t at = 0;
    memo *counted = nullptr;
    root.reader.lines(directory, "smaps", [&](std::string_view line) {
        constexpr std::string_view key = "Rss:";
        if (line.empty()) return;
        if (line[0] >= 'A' && line[0] <= 'Z') {
            uint64_t kilobytes = 0;
            if (counted == nullptr || !line.starts_with(key)) return;
            if (scanner(line.substr(key.size())).decimal(kilobytes)) counted->resident += kilobytes << 10;
            return;
        }
        uint64_t begin = 0;
        counted = nullptr;
        if (!scanner(line).hexadecimal(begin)) return;
        while (at < views_.size() && views_[at].begin < begin) at++;
        if (at < views_.size() && views_[at].begin == begin) counted = &memos_[views_[at].memo];
    });
}

uint64_t process_map::view_item(size_t index, uint64_t item, uint64_t &value) const {
    if (index >= views_.size()) return RESULT_NO_ITEM;
    const view &asked = views_[index];
    switch (item) {
    case OBJINFO_HANDLE: value = first_handle_ + index; break;
    case OBJINFO_OWNER: value = static_cast<uint64_t>(task_); break;
    case VIEWINFO_BEGIN: value = asked.begin; break;
    case VIEWINFO_PAGES: value = asked.pages; break;
    case VIEWINFO_OFFSET: value = asked.offset; break;
    case VIEWINFO_MEMO: value = first_handle_ + views_.size() + asked.memo; break;
    case VIEWINFO_FLAGS: value = asked.flags; break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

uint64_t process_map::memo_item(size_t index, uint64_t item, uint64_t &value) const {
    if (index >= memos_.size()) return RESULT_NO_ITEM;
    const memo &asked = memos_[index];
    switch (item) {
    case OBJINFO_HANDLE: value = first_handle_ + views_.size() + index; break;
    case OBJINFO_OWNER: value = static_cast<uint64_t>(task_); break;
    case MEMOINFO_SIZE: value = asked.size; break;
    case MEMOINFO_ALLOC: value = asked.resident; break;
    case MEMOINFO_VIEWS: value = asked.views; break;
    case MEMOINFO_DELETED: value = asked.deleted ? 1 : 0; break;
    case MEMOINFO_TYPE: value = asked.type; break;
    case MEMOINFO_COPIES:
    case MEMOINFO_RECLAIM: value = 0; break;
    case MEMOINFO_FIXADDR:
        if (asked.type != MEMO_FIX) return RESULT_NO_ITEM;
        value = asked.address;
        break;
    case MEMOINFO_HWADDR:
        if (asked.type != MEMO_HW) return RESULT_NO_ITEM;
        value = asked.address;
        break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

// ---- of all processes -----------------------------------------------------------------------------------------------

process_map *map_table::map_of(process &owner, uint64_t &result) {
    result = RESULT_SUCCESS;
    const int id = owner.number();
    if (const auto known = by_process_.find(id); known != by_process_.end()) return known->second;
    auto made = std::make_unique<process_map>(id, next_handle_);
    if (const int error = made->read(root_, owner.directory()); error != 0) {
        result = means_gone(error) ? RESULT_NO_OBJECT : RESULT_NOT_PERMITTED;
        return nullptr;
    }
    if (made->end_handle() > MAPPING_HANDLES.end) {
        result = RESULT_NO_MEMORY;
        return nullptr;
    }
    next_handle_ = made->end_handle();
    maps_.push_back(std::move(made));
    return by_process_[id] = maps_.back().get();
}

std::unique_ptr<walk> map_table::walk_views(process &owner, uint64_t &result) {
    process_map *map = map_of(owner, result);
    if (map == nullptr) return nullptr;
    return walk_indexed(map->view_count(), [map](size_t index, uint64_t item, uint64_t &value) {
        return map->view_item(index, item, value);
    });
}

// The walk holds the process's directory in case that resident amounts are asked for.
std::unique_ptr<walk> map_table::walk_memos(process &owner, uint64_t &result) {
    process_map *map = map_of(owner, result);
    if (map == nullptr) return nullptr;
    descriptor directory(fcntl(owner.directory(), F_DUPFD_CLOEXEC, 0));
    return walk_indexed(map->memo_count(),
                        [this, map, directory = std::move(directory)](size_t index, uint64_t item, uint64_t &value) {
                            if (item == MEMOINFO_ALLOC) map->read_resident(root_, directory.get());
                            return map->memo_item(index, item, value);
                        });
}

process_map *map_table::find(uint64_t handle) const {
    const auto behind = std::upper_bound(maps_.begin(), maps_.end(), handle,
                                         [](uint64_t wanted, const auto &map) { return wanted < map->first_handle(); });
    if (behind == maps_.begin()) return nullptr;
    process_map *found = std::prev(behind)->get();
    return handle < found->end_handle() ? found : nullptr;
}

// The resident amounts of a memo that no walk stands on come from whoever has the process's number now, if its mappings
// are still where they were.
uint64_t map_table::info(uint64_t handle, uint64_t item, uint64_t &value) {
    process_map *map = find(handle);
    if (map == nullptr) return RESULT_NO_OBJECT;
    const uint64_t index = handle - map->first_handle();
    if (index < map->view_count()) return map->view_item(index, item, value);
    if (item == MEMOINFO_ALLOC && !map->resident_known()) {
        process owner(root_);
        owner.open(map->task());
        map->read_resident(root_, owner.directory());
    }
    return map->memo_item(index - map->view_count(), item, value);
}

}  // namespace hosted::live
