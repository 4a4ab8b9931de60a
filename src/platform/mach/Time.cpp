#include "platformTime.h"

#include <ctime>
#include <memory>
#include <mutex>

namespace {

using Clock = std::function<std::uint64_t()>;

std::mutex clockMutex;
// Shared so that a reader can call its copy outside the lock while a test swaps the clock.
std::shared_ptr<const Clock> replacementClock;

std::uint64_t monotonicNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::uint64_t(now.tv_sec) * 1000000000u + std::uint64_t(now.tv_nsec);
}

} // namespace

std::uint64_t mach_absolute_time() {
    std::shared_ptr<const Clock> clock;
    {
        std::lock_guard<std::mutex> locker(clockMutex);
        clock = replacementClock;
    }
    return clock ? (*clock)() : monotonicNanoseconds();
}

kern_return_t mach_timebase_info(mach_timebase_info_t info) {
    if (!info) {
        return KERN_INVALID_ARGUMENT;
    }
    // The ticks are nanoseconds already.
    info->numer = 1;
    info->denom = 1;
    return KERN_SUCCESS;
}

void setMachAbsoluteTimeForTesting(std::function<std::uint64_t()> clock) {
    std::shared_ptr<const Clock> replacement;
    if (clock) {
        replacement = std::make_shared<const Clock>(std::move(clock));
    }
    std::lock_guard<std::mutex> locker(clockMutex);
    replacementClock = std::move(replacement);
}
