// hosted/live/process_details.h - what the system reports of each process as text, as the registry's run/info/.
#pragma once

#include "hosted/live/proc_object.h"
#include "hosted/live/registry_tree.h"
#include "hosted/live/sockets.h"

namespace hosted::live {

// A directory for each process, named by its handle as below run/proc/. Both must outlive it.
node_pointer make_process_directory(proc_root &root, socket_table &sockets);

}  // namespace hosted::live
