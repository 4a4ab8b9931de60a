#pragma once

// The monotonic clock under Mach's names: the real calls on Apple systems; elsewhere
// mach/Time.cpp, where the clock is CLOCK_MONOTONIC in nanoseconds and the timebase is 1/1.

#ifdef __APPLE__
#include <mach/mach_time.h>
#else
#include <cstdint>
#include <functional>

typedef int kern_return_t;
enum : kern_return_t { KERN_SUCCESS = 0, KERN_INVALID_ARGUMENT = 4 };

struct mach_timebase_info {
    std::uint32_t numer;
    std::uint32_t denom;
};
typedef struct mach_timebase_info mach_timebase_info_data_t;
typedef struct mach_timebase_info* mach_timebase_info_t;

// Ticks of the monotonic clock since an arbitrary moment.
std::uint64_t mach_absolute_time();
// Ticks times numer divided by denom are nanoseconds. KERN_INVALID_ARGUMENT for null.
kern_return_t mach_timebase_info(mach_timebase_info_t info);

// Replaces the clock that mach_absolute_time reads, so that tests can step time without
// sleeping; an empty function goes back to the system's clock.
void setMachAbsoluteTimeForTesting(std::function<std::uint64_t()> clock);
#endif
