#include "timeUtils.h"

#include "platformTime.h"

namespace {

// Read once: the timebase of a machine never changes while it runs.
const mach_timebase_info_data_t& timebase() {
    static const mach_timebase_info_data_t info = [] {
        mach_timebase_info_data_t read{0, 0};
        if (mach_timebase_info(&read) != KERN_SUCCESS || read.denom == 0) {
            // Never seen; ticks as nanoseconds beat a division by zero.
            read = {1, 1};
        }
        return read;
    }();
    return info;
}

} // namespace

quint64 getSystenTimeInNanoseconds() {
    const mach_timebase_info_data_t& scale = timebase();
    return quint64(mach_absolute_time()) * scale.numer / scale.denom;
}

double milliseconds() {
    return double(getSystenTimeInNanoseconds()) / 1e6;
}
