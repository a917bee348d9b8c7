// hosted/live/mounts.h - the mounted file systems, as the registry's run/mount/.
#pragma once

#include "hosted/live/files.h"
#include "hosted/live/registry_tree.h"

namespace hosted::live {

// A directory for each mount that the calling process sees, named by its number. roots must outlive it.
node_pointer make_mount_directory(const file_roots &roots);

}  // namespace hosted::live
