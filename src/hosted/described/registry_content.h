// hosted/described/registry_content.h - directory content of a machine file.
//
// Directories may nest deeper than any stack, so reading and writing do not recurse.
#pragma once

#include "hosted/described/document.h"
#include "hosted/described/registry.h"
#include "hosted/described/writer.h"

namespace hosted::described {

// Refuses a name that no entry can have.
void check_registry_name(json_value from, std::string_view name);

// Adds what a file gives to what the kernel publishes.
void read_registry(json_value from, registry &into);

// Writes what the file gave and the run added; the kernel publishes its own entries anew at every load.
void write_registry(json_writer &out, const registry &from);
bool is_registry_given(const registry &from);

}  // namespace hosted::described
