// hosted/described/save.h - the text of a machine file.
#pragma once

#include <string>

#include "hosted/described/records.h"

namespace hosted::described {

// The text that loads as these records. What is gone is left out, and so is what the kernel publishes by itself.
std::string machine_text(const machine_records &from);

}  // namespace hosted::described
