// hosted/live/system_registry.h - the registry's directories hardware/ and kernel/ over the system's own files.
#pragma once

#include "hosted/live/files.h"
#include "hosted/live/registry_tree.h"

namespace hosted::live {

// The two directories below one. roots must outlive it.
node_pointer make_system_directory(const file_roots &roots);

}  // namespace hosted::live
