// common/text.h - memory of malloc with an owner.
#pragma once

#include <cstdlib>
#include <memory>

struct sb_freer {
    void operator()(void *memory) const noexcept { std::free(memory); }
};
using sb_text = std::unique_ptr<char, sb_freer>;
