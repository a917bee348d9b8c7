// machine.cpp - the described machine.
#include <cstdio>
#include <cstdlib>

#include "hosted/boot.h"

namespace hosted {

std::unique_ptr<machine> make_described_machine(const std::string &, const std::string &, fault_list &, std::string &) {
    std::fputs("ventix: the described machine is not built yet\n", stderr);
    std::exit(70);
}

}  // namespace hosted
