// machine.cpp - the live machine.
#include <cstdio>
#include <cstdlib>

#include "hosted/boot.h"

namespace hosted {

std::unique_ptr<machine> make_live_machine() {
    std::fputs("ventix: the live machine is not built yet\n", stderr);
    std::exit(70);
}

}  // namespace hosted
