// hosted/described/load.h - the records of a machine file's text.
#pragma once

#include <string>
#include <string_view>

#include "hosted/described/records.h"

namespace hosted::described {

// Reads a machine file's text into empty records, which must stay where they are from here on.
//   message  out, on failure: "LINE:COLUMN: what is wrong" or "PATH.IN.FILE: what is wrong"
//   throws   std::bad_alloc and the like, for want of memory only
bool load(std::string_view text, machine_records &into, std::string &message);

}  // namespace hosted::described
