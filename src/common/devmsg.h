// common/devmsg.h - single messages to devices that need not be opened: devping and devquery.
//
// The registry holds a device's port; a message of code n is answered with code n + 1 and the result in the second
// word. These functions print, in the words that both commands share, as the asker speaks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "common/commandline.h"
#include "common/text.h"

inline constexpr int64_t SB_DEVMSG_MAX_TIMEOUT = 0x7FFFFFFE;  // milliseconds
inline constexpr int64_t SB_DEVMSG_TIMEOUT = 5000;

// Who asks, and for what.
struct sb_devasker {
    const sb_commandline &line;
    const char *activity;  // "pinging": what is done with the time-out
    const char *reply;     // "a ping reply": what a good answer is
    int64_t timeout;       // milliseconds, for the send and again for the answer
    bool verbose;

    // Filled by sb_devasker_open.
    uint32_t max_name = 0;  // bytes
    sb_text path{};         // room for the key of the longest name
    size_t path_size = 0;   // bytes
};

// Gets ready to ask: the registry's capabilities and room for a key.
//   returns  SB_DONE, or SB_SETUP after a message
int sb_devasker_open(sb_devasker &asker);

// Asks one device, on a reply port of its own: a late or second answer never counts for another device.
//   result   the answer's word
//   returns  SB_DONE; after a message SB_SETUP where the port could not be made, else SB_FAILED
int sb_devasker_ask(const sb_devasker &asker, const char *device, uint32_t code, uint64_t parameter, uint64_t *result);
