// doubler.h - what the server and the client of the device "doubler" share.
#pragma once

#include <cstdint>

inline constexpr char DOUBLER[] = "doubler";
inline constexpr uint32_t DOUBLE_NUMBER = 0xD0B10001;  // the argument block is the number, 64 bits
