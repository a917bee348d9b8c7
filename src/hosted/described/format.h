// hosted/described/format.h - the machine file: its records from its text, and its text from them.
#pragma once

#include <string>
#include <string_view>

#include "hosted/described/document.h"
#include "hosted/described/records.h"

namespace hosted::described {

// Reads a machine file's text into empty records, which must stay where they are from here on.
//   message  out, on failure: "LINE:COLUMN: what is wrong" or "PATH.IN.FILE: what is wrong"
//   throws   std::bad_alloc and the like, where there is no memory
bool load(std::string_view text, machine_records &into, std::string &message);

// Reads the records of a document. A document that collects keeps everything that is wrong; the records of one with
// findings are of no use.
//   throws  bad_value, unless the document collects
void read_machine(const document &file, machine_records &into);

// The text that loads as these records. What ended during the run is left out, and so is what the kernel publishes.
//   room  bytes of address space to take for the text, where its size cannot be known
std::string machine_text(const machine_records &from, size_t room = 0);

// How a whole machine is read, written and described.
struct value_format;
const value_format &machine_format();

}  // namespace hosted::described
