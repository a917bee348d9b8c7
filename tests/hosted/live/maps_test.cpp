// tests/hosted/live/maps_test.cpp - views and memos of children of the test.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <map>
#include <random>
#include <set>
#include <vector>

#include "hosted/live/maps.h"
#include "hosted/live/process_table.h"
#include "own_child.h"
#include "platform/kernel.h"
#include "run_ventix.h"
#include "system_tree.h"

using namespace hosted;

namespace {

using items = std::map<uint64_t, uint64_t>;

std::vector<items> rows(walk &objects, std::initializer_list<uint64_t> wanted) {
    std::vector<items> out;
    while (objects.step() == RESULT_SUCCESS) {
        items row;
        for (const uint64_t item : wanted) {
            if (uint64_t value = 0; objects.info(item, value) == RESULT_SUCCESS) row[item] = value;
        }
        out.push_back(std::move(row));
    }
    return out;
}

class LiveMaps : public testing::Test {
protected:
    // Lists views and memos of a process, the memos by handle.
    void list(const own_child &child) {
        live::process *owner = nullptr;
        uint64_t result = processes.find(child.handle(), owner);
        ASSERT_EQ(result, RESULT_SUCCESS);
        const auto over_views = maps.walk_views(*owner, result);
        const auto over_memos = maps.walk_memos(*owner, result);
        ASSERT_TRUE(over_views && over_memos);
        views = rows(*over_views, {OBJINFO_HANDLE, OBJINFO_OWNER, VIEWINFO_BEGIN, VIEWINFO_PAGES, VIEWINFO_OFFSET,
                                   VIEWINFO_MEMO, VIEWINFO_FLAGS});
        for (auto &row : rows(*over_memos, {OBJINFO_HANDLE, OBJINFO_OWNER, MEMOINFO_SIZE, MEMOINFO_ALLOC,
                                            MEMOINFO_VIEWS, MEMOINFO_DELETED, MEMOINFO_TYPE, MEMOINFO_FIXADDR})) {
            memos[row[OBJINFO_HANDLE]] = row;
        }
        for (int times = 0; times < 3; ++times) {  // by its text, and then by queries
            uint64_t count = 0;
            EXPECT_EQ(live::count_memos(processes.root(), owner->directory(), count), 0);
            EXPECT_EQ(count, memos.size());
        }
    }
    items view_at(int64_t address) {
        for (auto &view : views) {
            if (view[VIEWINFO_BEGIN] == static_cast<uint64_t>(address)) return view;
        }
        ADD_FAILURE() << "no view at " << address;
        return {};
    }

    live::process_table processes;
    live::map_table maps{processes.root()};
    std::vector<items> views;
    std::map<uint64_t, items> memos;
};

TEST_F(LiveMaps, ViewsAndTheirMemos) {
    const scratch_directory scratch;
    const std::string kept = scratch.write("kept\n(deleted) (deleted)", std::string(8192, 'k')),
                      lost = scratch.write("lost", "l");
    own_child child([&](own_child &self) {
        const int file = open(kept.c_str(), O_RDWR), gone = open(lost.c_str(), O_RDWR);
        unlink(lost.c_str());
        const int memory = memfd_create("shared", 0);
        static_cast<void>(!ftruncate(memory, 8192));
        const auto map = [&](size_t size, int protection, int flags, int descriptor, off_t offset) {
            char *at = static_cast<char *>(mmap(nullptr, size, protection, flags, descriptor, offset));
            self.say(reinterpret_cast<intptr_t>(at));
            return at;
        };
        map(4096, PROT_READ, MAP_PRIVATE, file, 4096);
        map(8192, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        map(4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, gone, 0);
        map(8192, PROT_READ | PROT_WRITE, MAP_SHARED, memory, 0)[0] = 1;
        char *anonymous = map(65536, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        for (int i = 0; i < 3; ++i) anonymous[i * 4096] = 1;
        madvise(anonymous, 65536, MADV_NOHUGEPAGE);
        mprotect(anonymous + 32768, 32768, PROT_NONE);
        self.say(reinterpret_cast<intptr_t>(anonymous) + 32768);
    });
    int64_t at[6];
    for (int64_t &one : at) one = child.heard();
    list(child);

    const auto allowed = [](uint64_t bits) {
        return (VIEWFLAG_DENY_READ | VIEWFLAG_DENY_WRITE | VIEWFLAG_DENY_EXECUTE) & ~bits;
    };
    const uint64_t page = static_cast<uint64_t>(getpagesize());
    const struct {
        uint64_t bytes, offset, flags, memo_bytes, memo_views, deleted;
    } wanted[] = {
        {4096, 4096, allowed(VIEWFLAG_DENY_READ), 12288, 2, 0},
        {8192, 0, allowed(VIEWFLAG_DENY_READ | VIEWFLAG_DENY_WRITE) | VIEWFLAG_SHARED, 12288, 2, 0},
        {4096, 0, allowed(VIEWFLAG_DENY_READ | VIEWFLAG_DENY_EXECUTE), 4096, 1, 1},
        {8192, 0, allowed(VIEWFLAG_DENY_READ | VIEWFLAG_DENY_WRITE) | VIEWFLAG_SHARED, 8192, 1, 0},
        {32768, 0, allowed(VIEWFLAG_DENY_READ | VIEWFLAG_DENY_WRITE), 32768, 1, 0},
        {32768, 0, allowed(0), 32768, 1, 0},
    };
    for (size_t i = 0; i < std::size(wanted); ++i) {
        items view = view_at(at[i]), memo = memos[view[VIEWINFO_MEMO]];
        EXPECT_EQ(view[OBJINFO_OWNER], child.handle()) << i;
        EXPECT_EQ(view[VIEWINFO_PAGES] * page, wanted[i].bytes) << i;
        EXPECT_EQ(view[VIEWINFO_OFFSET] * page, wanted[i].offset) << i;
        EXPECT_EQ(view[VIEWINFO_FLAGS], wanted[i].flags) << i;
        EXPECT_EQ(memo[OBJINFO_OWNER], child.handle()) << i;
        EXPECT_EQ(memo[MEMOINFO_SIZE], wanted[i].memo_bytes) << i;
        EXPECT_EQ(memo[MEMOINFO_VIEWS], wanted[i].memo_views) << i;
        EXPECT_EQ(memo[MEMOINFO_DELETED], wanted[i].deleted) << i;
        EXPECT_EQ(memo[MEMOINFO_TYPE], 0u) << i;
    }
    EXPECT_EQ(view_at(at[0])[VIEWINFO_MEMO], view_at(at[1])[VIEWINFO_MEMO]);
    EXPECT_EQ(memos[view_at(at[4])[VIEWINFO_MEMO]][MEMOINFO_ALLOC], 3 * page);
    EXPECT_EQ(memos[view_at(at[5])[VIEWINFO_MEMO]][MEMOINFO_ALLOC], 0u);

    size_t fixed = 0;
    for (auto &[handle, memo] : memos) {
        if (memo[MEMOINFO_TYPE] != MEMO_FIX) continue;
        ++fixed;
        EXPECT_EQ(view_at(static_cast<int64_t>(memo[MEMOINFO_FIXADDR]))[VIEWINFO_MEMO], handle);
    }
    EXPECT_GE(fixed, 2u);  // code and data that the kernel maps into every process
    for (auto &view : views) {
        uint64_t owner = 0;
        EXPECT_EQ(maps.info(view[VIEWINFO_MEMO], OBJINFO_OWNER, owner), RESULT_SUCCESS);
        EXPECT_EQ(owner, child.handle());
    }
    EXPECT_FALSE(maps.knows(memos.rbegin()->first + 1));
    EXPECT_FALSE(maps.knows(views.front()[OBJINFO_HANDLE] - 1));
}

TEST_F(LiveMaps, OfAnEndedProcess) {
    own_child zombie([](own_child &) { _exit(0); });
    await_state(zombie.id(), "Z");
    list(zombie);
    EXPECT_TRUE(views.empty() && memos.empty());
    live::process *owner = nullptr;
    ASSERT_EQ(processes.find(zombie.handle(), owner), RESULT_SUCCESS);
    zombie.reap();
    live::map_table fresh(processes.root());
    uint64_t result = 0;
    EXPECT_EQ(fresh.walk_views(*owner, result), nullptr);
    EXPECT_EQ(result, RESULT_NO_OBJECT);
}

// The count skips what a line shares with the one before. The expected count parses every line in full: inodes of a
// common prefix differ, and one that exceeds 64 bits counts, too.
TEST(LiveMemos, CountEqualsThatOfParsedLines) {
    const char *files[] = {"00:00 0 ",   "08:01 1 /a", "08:01 12 /b", "08:01 1",    "08:1 1 /a", "18:01 1 /c",
                           "08:01 0 /d", "8:01 \t1",   "08:01 x",     "08:01:1 1 ", "0"};
    const std::string huge = "08:01 " + std::string(60, '1');
    const system_tree tree;
    std::mt19937 random(20);
    for (int round = 0; round < 200; ++round) {
        std::string text;
        uint64_t unnamed = 0;
        std::set<std::pair<uint64_t, uint64_t>> named;
        for (uint64_t count = random() % 12; count > 0; --count) {
            const size_t chosen = random() % (std::size(files) + 2);
            const std::string file =
                chosen < std::size(files) ? files[chosen] : huge + std::to_string(chosen % 2) + " /e";
            const std::string line = "1000-2000 r--p 00000000 " + file;
            text += line + '\n';
            live::mapping_line whole{};
            if (!live::parse_mapping(line, whole)) continue;
            if (whole.inode == 0)
                ++unnamed;
            else
                named.emplace(whole.device, whole.inode);
        }
        tree.put("proc/7/maps", text);
        live::proc_root root(tree.roots.proc);
        const int directory = open(tree.path("proc/7").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        uint64_t counted = 0;
        EXPECT_EQ(live::count_memos(root, directory, counted), 0);
        EXPECT_EQ(counted, unnamed + named.size()) << text;
        close(directory);
    }
}

// Another process has the number of one that was listed before.
TEST(LiveMemos, AreReadAgainForAReusedNumber) {
    const system_tree tree;
    live::process_table processes(tree.roots.proc);
    live::map_table maps(processes.root());
    uint64_t result = 0, first = 0;
    for (const std::string start : {"10", "10", "20"}) {
        tree.put("proc/7/stat", "7 (same) S 0 0 0 0 0 0 0 0 0 0 0 0 0 0 20 0 1 0 " + start + " 0 0");
        tree.put("proc/7/maps", "no mapping\n1000-2000 r--p 00000000 00:00 0\n");
        live::process owner(processes.root());
        ASSERT_TRUE(owner.open(7));
        const auto views = maps.walk_views(owner, result);
        ASSERT_TRUE(views && views->step() == RESULT_SUCCESS);
        uint64_t handle = 0, begin = 0;
        views->info(OBJINFO_HANDLE, handle);
        views->info(VIEWINFO_BEGIN, begin);
        EXPECT_EQ(begin, 0x1000u);
        if (first == 0) first = handle;
        EXPECT_EQ(handle == first, start == "10");
    }
}

}  // namespace
