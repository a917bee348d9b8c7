// machine/story.h - a call log as people read it.
#pragma once

#include <cstdio>
#include <string_view>

namespace verbs {

// Renders each whole line of a log: numbers by their names, handles as what they name, calls indented by the devices
// and requests that are open. What the kernel makes for a run (ports, semaphores, iterators) is counted by kind in
// place of its handle, so that two renderings differ only where the runs do. A line that no call wrote stays as it is.
void render_log(std::string_view log, std::FILE *to);

}  // namespace verbs
