#include <lumo/os.h>

#include <atomic>
#include <mutex>
#include <time.h>

namespace lumo {
namespace os {

namespace {

struct ClockOverride {
    std::mutex mutex;
    std::function<void(timeval*)> clock;
    std::atomic<bool> active { false };
};

ClockOverride& clockOverride()
{
    static ClockOverride* instance = new ClockOverride;
    return *instance;
}

} // namespace

int gettimeofday(timeval* tv)
{
    if (!tv)
        return -1;
    ClockOverride& o = clockOverride();
    // The per-frame path reads the clock: test the flag before any lock.
    if (o.active.load(std::memory_order_acquire)) {
        std::function<void(timeval*)> clock;
        {
            std::lock_guard<std::mutex> lock(o.mutex);
            clock = o.clock;
        }
        if (clock) {
            clock(tv);
            return 0;
        }
    }
    struct timespec ts;
    clock_gettime(CLOCK_REALTIME, &ts);
    tv->tv_sec = static_cast<int64_t>(ts.tv_sec);
    tv->tv_usec = static_cast<int64_t>(ts.tv_nsec / 1000);
    return 0;
}

void setClock(std::function<void(timeval*)> clock)
{
    ClockOverride& o = clockOverride();
    std::lock_guard<std::mutex> lock(o.mutex);
    o.active.store(static_cast<bool>(clock), std::memory_order_release);
    o.clock = std::move(clock);
}

} // namespace os
} // namespace lumo
