// machine/constants.h - the numbers of the kernel interface and the protocols by their names.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace verbs {

// 5 -> "RESULT_NOT_PERMITTED"; empty where no constant with this prefix has the value.
std::string_view constant_name(std::string_view prefix, uint64_t value);

// 0x500 -> "TASKFLAG_SUPER | TASKFLAG_KERNEL"; bits without a name follow as one number.
std::string flag_names(std::string_view prefix, uint64_t value);

// 7 -> "7", 10 -> "0xa"
std::string number_text(uint64_t value);

}  // namespace verbs
