// hosted/live/interrupt_registry.h - the interrupt lines, as the registry's hardware/interrupt/.
#pragma once

#include "hosted/live/files.h"
#include "hosted/live/registry_tree.h"

namespace hosted::live {

// A directory for each numbered line. roots must outlive it.
node_pointer make_interrupt_directory(const file_roots &roots);

}  // namespace hosted::live
