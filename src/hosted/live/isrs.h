// live/isrs.h - the interrupt lines that have a handler, as interrupt service routines of tasks.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hosted/live/process.h"
#include "hosted/live/system.h"

namespace hosted::live {

struct isr {
    uint64_t number;
    uint64_t count;  // over all processors, since boot
    int owner;       // a process

    uint64_t item(uint64_t item, uint64_t &value) const;
};

// Whose routines are whose, found out at the first question.
class isr_table {
public:
    isr_table(proc_root &root, interrupt_table &interrupts) : root_(root), interrupts_(interrupts) {}

    std::unique_ptr<walk> walk_owned(int process);  // in order of number

    const isr *find(uint64_t handle);  // null: no such routine

private:
    void read();
    void find_threads(process &parent);

    proc_root &root_;
    interrupt_table &interrupts_;
    bool read_ = false;
    std::vector<isr> routines_;
    std::unordered_map<int, std::vector<size_t>> owned_;
};

}  // namespace hosted::live
