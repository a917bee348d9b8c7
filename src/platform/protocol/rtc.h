// platform/protocol/rtc.h - the real-time clock device.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

// Where the registry names the device that serves a clock: a directory per clock, with these two keys.
inline constexpr char RTC_DIRECTORY[] = "hardware/rtc/";
inline constexpr char RTC_DEVICE_KEY[] = "rtc0/device";                         // text
inline constexpr char RTC_UNIT_KEY[] = "rtc0/unit";                             // integer
inline constexpr std::string_view RTC_NAME = reg_component(RTC_DEVICE_KEY, 0);  // of the first clock and its device

enum : uint32_t {
    RTCCMD_READ = 0xC0870001,
    RTCCMD_SET = 0xC0870002,
};

struct rtc_time {
    uint32_t year;   // full
    uint16_t month;  // 1 to 12
    uint16_t day;    // 1 to 31
    uint16_t hour;
    uint16_t minute;
    uint16_t second;
    uint16_t millisecond;
};
static_assert(offsetof(rtc_time, month) == 4);
static_assert(offsetof(rtc_time, millisecond) == 14);
static_assert(sizeof(rtc_time) == 16);

struct rtc_request {
    IOreq header;
    rtc_time time;
};
static_assert(offsetof(rtc_request, time) == 120);
static_assert(sizeof(rtc_request) == 136);
