// hosted/kernel/list_failure.h - a listing that cannot be read, in a call whose client would take the failure for the
// end of the list.
#pragma once

#include "hosted/descriptors.h"

namespace hosted {

// Thrown within a kernel call. Ends the run.
class list_failure : public system_failure {
public:
    explicit list_failure(const system_failure &cause) : system_failure(cause) {}
};

}  // namespace hosted
