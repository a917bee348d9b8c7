// hosted/live/isrs.h - the interrupt lines that have a handler, as interrupt service routines of tasks.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/interrupts.h"
#include "hosted/live/process.h"

namespace hosted::live {

struct isr {
    uint64_t number;
    uint64_t count;  // over all processors, since boot
    int owner;       // a process

    uint64_t item(uint64_t item, uint64_t &value) const;  // RESULT_ codes
};

// The routines and their owners, as they were at the first question.
class isr_table {
public:
    isr_table(proc_root &root, interrupt_table &interrupts) : root_(root), interrupts_(interrupts) {}

    // Walks over the routines of one process in order of number; null where they cannot be read (result says why).
    std::unique_ptr<walk> walk_owned(int process, uint64_t &result);

    const isr *find(uint64_t handle);  // null: no such routine

private:
    uint64_t read();  // RESULT_ codes
    uint64_t find_threads(process &parent);
    uint64_t consider(int id);

    proc_root &root_;
    interrupt_table &interrupts_;
    bool read_ = false;
    std::vector<isr> routines_;  // in order of number
    std::unordered_map<int, std::vector<size_t>> owned_;
};

}  // namespace hosted::live
