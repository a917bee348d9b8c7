// hosted/live/run_registry.h - the registry's directories run/proc/ and run/dev/.
#pragma once

#include <memory>

#include "hosted/kernel/kernel.h"
#include "hosted/live/devices.h"
#include "hosted/live/process_table.h"
#include "hosted/live/registry_tree.h"

namespace hosted::live {

// The directory run/ with proc/ and dev/, to which more may be added. A process is a binary key that holds its name,
// and is named by its handle as protocol/task.h says. A device is an integer key that holds its port, which is made
// when the key is read. All must outlive the directory.
//   devices  those beside the system service
std::unique_ptr<whole_directory> make_run_directory(kernel &owner, process_table &processes, device_table &devices);

}  // namespace hosted::live
