// hosted/servers/protocols.h - the protocols that devices speak, each over a source of one machine.
//
// A source must outlive the server that its protocol was added to.
#pragma once

#include <memory>

#include "hosted/servers/device_server.h"
#include "hosted/servers/registry_store.h"
#include "hosted/servers/sources.h"

namespace hosted {

std::unique_ptr<device_protocol> make_registry_protocol(registry_store &store);
std::unique_ptr<device_protocol> make_system_service_protocol(process_source &source);
std::unique_ptr<device_protocol> make_counter_protocol(counter_source &source);
std::unique_ptr<device_protocol> make_service_protocol(service_source &source);
std::unique_ptr<device_protocol> make_log_protocol(log_source &source);
std::unique_ptr<device_protocol> make_clock_protocol(clock_source &source);

inline constexpr uint64_t SYSTEM_SERVICE_BUFFER = 4096;  // bytes of a client's payload buffer

}  // namespace hosted
