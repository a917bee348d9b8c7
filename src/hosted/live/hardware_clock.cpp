// hosted/live/hardware_clock.cpp - the hardware clock of the machine.
#include "hosted/live/hardware_clock.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace hosted::live {

namespace {

// The record of the clock's driver. Its own header is not included: the names in it are those of our protocol.
struct driver_time {
    int second, minute, hour;
    int day;    // of the month
    int month;  // 0 to 11
    int year;   // since 1900
    int week_day, year_day, summer_time;
};
constexpr unsigned long READ_TIME = _IOR('p', 0x09, driver_time);
constexpr unsigned long SET_TIME = _IOW('p', 0x0A, driver_time);

constexpr int FIRST_YEAR = 1900;
constexpr uint32_t LAST_YEAR = 9999;

}  // namespace

bool hardware_clock::exists() const { return access((roots_.dev + "/rtc0").c_str(), F_OK) == 0; }

uint32_t hardware_clock::read(rtc_time &time) {
    const descriptor file = open_file(AT_FDCWD, (roots_.dev + "/rtc0").c_str());
    driver_time now{};
    if (!file || ioctl(file.get(), READ_TIME, &now) != 0) return error_word(errno);
    time = {.year = static_cast<uint32_t>(now.year + FIRST_YEAR),
            .month = static_cast<uint16_t>(now.month + 1),
            .day = static_cast<uint16_t>(now.day),
            .hour = static_cast<uint16_t>(now.hour),
            .minute = static_cast<uint16_t>(now.minute),
            .second = static_cast<uint16_t>(now.second),
            .millisecond = 0};
    return 0;
}

uint32_t hardware_clock::set(const rtc_time &time) {
    if (time.year < FIRST_YEAR || time.year > LAST_YEAR || time.month == 0) return error_word(EINVAL);
    const descriptor file = open_file(AT_FDCWD, (roots_.dev + "/rtc0").c_str());
    driver_time wanted{};
    wanted.second = time.second;
    wanted.minute = time.minute;
    wanted.hour = time.hour;
    wanted.day = time.day;
    wanted.month = time.month - 1;
    wanted.year = static_cast<int>(time.year) - FIRST_YEAR;
    if (!file || ioctl(file.get(), SET_TIME, &wanted) != 0) return error_word(errno);
    return 0;
}

}  // namespace hosted::live
