// hosted/live/maps.cpp - reads the mappings of processes.
#include "hosted/live/maps.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <unordered_map>

#include "hosted/kernel/indexed_walk.h"
#include "hosted/live/scanner.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr size_t PERMISSIONS = 4;  // characters

// A mapped file's identity.
using file_key = std::pair<uint64_t, uint64_t>;  // device, inode

struct file_hash {
    size_t operator()(const file_key &key) const { return key.second * 0x9E3779B97F4A7C15 ^ key.first; }
};

// What the kernel itself maps into every process: [vdso], [vvar], [vsyscall] and the like, but not [heap] and [stack].
bool is_fixed(const mapping_line &line) {
    constexpr std::string_view names[] = {"[v", "[sigpage]", "[vectors]", "[uprobes]"};
    return line.inode == 0 && std::any_of(std::begin(names), std::end(names),
                                          [&](std::string_view name) { return line.name.starts_with(name); });
}

// Whether the file of a mapping has the mapping's name. The system writes a line feed of a name as \012, and a
// backslash as itself: such a name is tried both ways.
bool has_name(const mapping_line &line, int directory, struct ::stat &file) {
    constexpr std::string_view escaped = "\\012";
    const dev_t device = makedev(static_cast<unsigned>(line.device >> 32), static_cast<unsigned>(line.device));
    std::string name(line.name);
    if (leads_to(directory, name, device, line.inode, file)) return true;
    size_t at = name.find(escaped);
    if (at == std::string::npos) return false;
    for (; at != std::string::npos; at = name.find(escaped, at + 1)) name.replace(at, escaped.size(), 1, '\n');
    return leads_to(directory, name, device, line.inode, file);
}

// Whether a mapped file is a device, rather than shared memory in a file beside the devices.
bool is_device(const mapping_line &line, int directory) {
    if (line.inode == 0 || !line.name.starts_with("/dev/") || line.name == "/dev/zero") return false;
    struct ::stat file {};
    return has_name(line, directory, file) && (S_ISCHR(file.st_mode) || S_ISBLK(file.st_mode));
}

// The system marks what has no name, memory that never had one included. A file may bear the mark in its name.
bool is_deleted(const mapping_line &line, int directory) {
    if (line.inode == 0 || !line.name.ends_with(DELETED_MARK)) return false;
    constexpr std::string_view nameless[] = {"/SYSV",  "/[aio]",  "/anon_hugepage", "/dev/zero",
                                             "/i915 ", "/memfd:", "/secretmem",     "/drm mm object"};
    struct ::stat file {};
    return std::none_of(std::begin(nameless), std::end(nameless),
                        [&](std::string_view name) { return line.name.starts_with(name); }) &&
           !has_name(line, directory, file);
}

uint32_t view_flags(const mapping_line &line) {
    uint64_t flags = 0;
    if (!line.readable) flags |= VIEWFLAG_DENY_READ;
    if (!line.writable) flags |= VIEWFLAG_DENY_WRITE;
    if (!line.executable) flags |= VIEWFLAG_DENY_EXECUTE;
    if (line.shared) flags |= VIEWFLAG_SHARED;
    return static_cast<uint32_t>(flags);
}

// The identity of a mapped file: "MAJOR:MINOR INODE".
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
    if (permissions.size() < PERMISSIONS || out.end < out.begin) return false;
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

namespace {

// Counts mappings as memos, file by file.
class memo_counter {
public:
    explicit memo_counter(proc_root &root) : files_(root.mapped_files) { files_.clear(); }

    // Returns whether it is one of a file.
    bool add(uint64_t device, uint64_t inode) {
        if (inode == 0) {
            ++unnamed_;
        } else if (files_.empty() || files_.back() != file_key(device, inode)) {
            files_.emplace_back(device, inode);
        }
        return inode != 0;
    }
    void add_unnamed(uint64_t count) { unnamed_ += count; }

    uint64_t count() {
        std::sort(files_.begin(), files_.end());
        return unnamed_ + static_cast<uint64_t>(std::unique(files_.begin(), files_.end()) - files_.begin());
    }

private:
    std::vector<file_key> &files_;
    uint64_t unnamed_ = 0;
};

// Of a line, only the part that identifies the file is read, and only where it differs from the line before.
int count_lines(proc_root &root, int directory, const char *path, uint64_t &count) {
    memo_counter memos(root);
    char last[48];  // "MAJOR:MINOR INODE " of the line before
    size_t last_length = 0;
    bool last_unnamed = false;
    const int error = root.reader.lines(directory, path, [&](std::string_view text) {
        scanner scan(text);
        scan.skip_past(' ');  // addresses
        scan.skip(PERMISSIONS + 1);
        scan.skip_past(' ');  // offset
        const std::string_view rest = scan.rest();
        if (last_length != 0 && rest.starts_with(std::string_view(last, last_length))) {
            memos.add_unnamed(last_unnamed);
            return;
        }
        mapping_line line;
        if (!parse_file(scan, line)) return;
        const bool whole = scan.take(' ');
        const size_t length = rest.size() - scan.rest().size();
        last_length = whole && length <= sizeof last ? rest.copy(last, length) : 0;
        last_unnamed = !memos.add(line.device, line.inode);
    });
    if (error == 0) count = memos.count();
    return error;
}

// The argument of an ioctl on "maps", from Linux 6.11 on, that answers for the mapping at or after an address. It
// spares the system from writing a text, which for files includes their paths.
struct mapping_query {
    uint64_t size;
    uint64_t flags;
    uint64_t address;
    uint64_t begin, end;  // from here on the answer
    uint64_t permissions, page_size, offset, inode;
    uint32_t device_major, device_minor;
    uint32_t name_size, build_id_size;  // 0: not asked for
    uint64_t name, build_id;
};
static_assert(sizeof(mapping_query) == 104);
constexpr unsigned long QUERY_MAPPING = _IOWR('f', 17, mapping_query);
constexpr uint64_t AT_OR_AFTER = 0x10;

// Returns 0, ENOTTY where the system does not answer so, or another error number.
//   end  out: of the last mapping
int count_queries(proc_root &root, int directory, const char *path, uint64_t &count, uint64_t &end) {
    const descriptor file = open_file(directory, path);
    if (!file) return errno;
    memo_counter memos(root);
    mapping_query query{};
    for (end = 0;; end = query.end) {
        query.size = sizeof query;
        query.flags = AT_OR_AFTER;
        query.address = end;
        if (ioctl(file.get(), QUERY_MAPPING, &query) != 0) break;
        if (query.end <= end) return ENOTTY;
        memos.add(uint64_t{query.device_major} << 32 | query.device_minor, query.inode);
    }
    if (errno != ENOENT && !means_gone(errno)) return errno;
    count = memos.count();
    return 0;
}

// Whether to count by queries: from the second process on, where the system answers them for this process.
bool has_queries(proc_root &root) {
    if (root.queries == proc_root::mapping_queries::unused) {
        root.queries = proc_root::mapping_queries::untried;
    } else if (root.queries == proc_root::mapping_queries::untried) {
        uint64_t lines = 0, answers = 0, end = 0;
        const bool answered = count_lines(root, root.directory(), "self/maps", lines) == 0 &&
                              count_queries(root, root.directory(), "self/maps", answers, end) == 0;
        root.queries =
            answered && answers <= lines ? proc_root::mapping_queries::answered : proc_root::mapping_queries::refused;
        root.unanswered_mappings = lines - answers;
    }
    return root.queries == proc_root::mapping_queries::answered;
}

}  // namespace

// A listing of all processes counts for each. The text of a 64-bit process may have a line for a page that the kernel
// shows in each of them but does not keep as a mapping of theirs ([vsyscall]); such lines of this process are those of
// every other one. A program of 32 bits does not have them, and has nothing above 4 GiB.
int count_memos(proc_root &root, int directory, uint64_t &count) {
    if (has_queries(root)) {
        uint64_t end = 0;
        const int error = count_queries(root, directory, "maps", count, end);
        if (error == 0 && (end >> 32 != 0 || root.unanswered_mappings == 0)) {
            count += root.unanswered_mappings;
            return 0;
        }
        if (means_gone(error) || means_hidden(error)) return error;
    }
    return count_lines(root, directory, "maps", count);
}

int process_map::read(proc_root &root, int directory) {
    std::unordered_map<file_key, uint32_t, file_hash> files;
    const int error = root.reader.lines(directory, "maps", [&](std::string_view text) {
        mapping_line line;
        if (!parse_mapping(text, line) || views_.size() >= UINT32_MAX) return;
        const auto next = static_cast<uint32_t>(memos_.size());
        uint32_t shown = next;
        if (line.inode != 0) shown = files.try_emplace({line.device, line.inode}, next).first->second;
        if (shown == next) {
            memo &made = memos_.emplace_back();
            made.deleted = is_deleted(line, directory);
            if (is_fixed(line)) {
                made.type = MEMO_FIX;
                made.address = line.begin;
            } else if (is_device(line, directory)) {
                made.type = MEMO_HW;
                made.address = line.offset;
            }
        }
        memo &mapped = memos_[shown];
        if (mapped.type == MEMO_HW) mapped.address = std::min(mapped.address, line.offset);
        mapped.size += line.end - line.begin;
        ++mapped.views;
        views_.push_back({line.begin, (line.end - line.begin) / root.page_size, line.offset / root.page_size, shown,
                          view_flags(line)});
    });
    views_.shrink_to_fit();  // they stay for the run, those of every process that is asked for
    memos_.shrink_to_fit();
    return error;
}

// "BEGIN-END ..." for each mapping, then a line "KEY: FIGURE kB" for each of its accounts. Mappings made or changed
// since read() are left out.
uint64_t process_map::read_resident(proc_root &root, int directory) {
    if (resident_known_) return RESULT_SUCCESS;
    for (memo &one : memos_) one.resident = 0;
    size_t at = 0;
    memo *counted = nullptr;
    const int error = root.reader.lines(directory, "smaps", [&](std::string_view line) {
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
        while (at < views_.size() && views_[at].begin < begin) ++at;
        if (at < views_.size() && views_[at].begin == begin) counted = &memos_[views_[at].memo];
    });
    resident_known_ = !means_failure(error);
    return resident_known_ ? uint64_t{RESULT_SUCCESS} : result_of(error);
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
    const handle_range handles = mapping_handles(id);
    uint64_t start = 0;  // stays 0 where it may not be read
    owner.start(start);
    process_map *const known = last_before(handles.end);
    const bool had_number = known != nullptr && known->task() == id;
    if (had_number && known->start() == start) return known;
    process_map made(id, start, had_number ? known->end_handle() : handles.first);
    const int directory = owner.memory_directory(result);
    if (result == RESULT_SUCCESS) result = result_of(made.read(root_, directory));
    if (result == RESULT_SUCCESS && made.end_handle() > handles.end) result = RESULT_NO_MEMORY;
    if (result != RESULT_SUCCESS) return nullptr;
    const uint64_t first = made.first_handle();
    return &maps_.insert_or_assign(first, std::move(made)).first->second;  // replaces one that had no mapping
}

std::unique_ptr<walk> map_table::walk_views(process &owner, uint64_t &result) {
    process_map *map = map_of(owner, result);
    if (map == nullptr) return nullptr;
    return walk_indexed(map->view_count(), [map](size_t index, uint64_t item, uint64_t &value) {
        return map->view_item(index, item, value);
    });
}

// The resident amounts are read below a directory that stays with the process.
uint64_t map_table::memo_item(process_map &map, int directory, size_t index, uint64_t item, uint64_t &value) {
    if (item == MEMOINFO_ALLOC) {
        if (const uint64_t result = map.read_resident(root_, directory); result != RESULT_SUCCESS) return result;
    }
    return map.memo_item(index, item, value);
}

std::unique_ptr<walk> map_table::walk_memos(process &owner, uint64_t &result) {
    process_map *map = map_of(owner, result);
    if (map == nullptr) return nullptr;
    descriptor directory(fcntl(owner.memory_directory(result), F_DUPFD_CLOEXEC, 0));
    if (result == RESULT_SUCCESS && !directory) result = result_of(errno);
    if (result != RESULT_SUCCESS) return nullptr;
    return walk_indexed(map->memo_count(),
                        [this, map, directory = std::move(directory)](size_t index, uint64_t item, uint64_t &value) {
                            return memo_item(*map, directory.get(), index, item, value);
                        });
}

process_map *map_table::last_before(uint64_t handle) {
    const auto next = maps_.lower_bound(handle);
    return next == maps_.begin() ? nullptr : &std::prev(next)->second;
}

process_map *map_table::find(uint64_t handle) {
    process_map *const found = last_before(handle + 1);
    return found != nullptr && handle < found->end_handle() ? found : nullptr;
}

// Without a walk, the process is opened anew for the resident amounts. They stay 0 where another has its number by now.
uint64_t map_table::info(uint64_t handle, uint64_t item, uint64_t &value) {
    process_map *map = find(handle);
    if (map == nullptr) return RESULT_NO_OBJECT;
    const uint64_t index = handle - map->first_handle();
    if (index < map->view_count()) return map->view_item(index, item, value);
    const size_t memo = index - map->view_count();
    process owner(root_);
    uint64_t start = 0;
    if (item != MEMOINFO_ALLOC || map->resident_known() || !owner.open(map->task()) || !owner.start(start) ||
        start != map->start())
        return map->memo_item(memo, item, value);
    uint64_t result = RESULT_SUCCESS;
    const int directory = owner.memory_directory(result);
    return result != RESULT_SUCCESS ? result : memo_item(*map, directory, memo, item, value);
}

}  // namespace hosted::live
