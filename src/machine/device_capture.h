// machine/device_capture.h - the devices of a live machine as a machine file describes them.
#pragma once

#include <string>
#include <vector>

#include "hosted/described/records.h"
#include "machine/redaction.h"

namespace verbs {

// Reads what a device serves, as any client does: every kind of request that a machine file can describe is tried.
//   name   as the registry publishes it
//   shown  its name in the file
hosted::described::device capture_device(const std::string &name, const std::string &shown, redaction &hide);

}  // namespace verbs
