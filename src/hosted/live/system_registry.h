// hosted/live/system_registry.h - the registry's directories hardware/ and kernel/ over the system's own files.
#pragma once

#include "hosted/live/files.h"
#include "hosted/live/registry_tree.h"

namespace hosted::live {

class system_registry : public registry_tree {
public:
    explicit system_registry(const file_roots &roots);  // which must outlive this object
};

}  // namespace hosted::live
