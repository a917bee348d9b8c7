// hosted/boot.h - the machines' constructors.
#pragma once

#include <memory>
#include <string>

#include "hosted/kernel/faults.h"
#include "hosted/kernel/machine.h"

namespace hosted {

// The Linux system that the program runs on.
//   message  out, on failure: "FILE: what is wrong", for a person
//   returns  null where too few file descriptors are left, or the process file system is not mounted or shows nothing
//            but processes
std::unique_ptr<machine> make_live_machine(std::string &message);

// Loads the machine file at path. With a save path the machine is written there at the end of the run. If both name the
// same file, it stays locked from here until then.
//   faults   out: the faults that the file lists
//   message  out, on failure: "FILE: what is wrong", for a person
//   returns  null on failure
std::unique_ptr<machine> make_described_machine(const std::string &path, const std::string &save_path,
                                                fault_list &faults, std::string &message);

}  // namespace hosted
