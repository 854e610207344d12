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

    // The per-frame path reads the clock: test the flag before any lock.
    bool read(timeval* tv)
    {
        if (!active.load(std::memory_order_acquire))
            return false;
        std::function<void(timeval*)> copy;
        {
            std::lock_guard<std::mutex> lock(mutex);
            copy = clock;
        }
        if (!copy)
            return false;
        copy(tv);
        return true;
    }

    void install(std::function<void(timeval*)> replacement)
    {
        std::lock_guard<std::mutex> lock(mutex);
        active.store(static_cast<bool>(replacement), std::memory_order_release);
        clock = std::move(replacement);
    }
};

// Never destroyed: clocks are read from static destructors of other libraries.
ClockOverride& wallOverride()
{
    static ClockOverride* instance = new ClockOverride;
    return *instance;
}

ClockOverride& monotonicOverride()
{
    static ClockOverride* instance = new ClockOverride;
    return *instance;
}

void readSystemClock(clockid_t id, timeval* tv)
{
    struct timespec ts;
    clock_gettime(id, &ts);
    tv->tv_sec = static_cast<int64_t>(ts.tv_sec);
    tv->tv_usec = static_cast<int64_t>(ts.tv_nsec / 1000);
}

} // namespace

int gettimeofday(timeval* tv)
{
    if (!tv)
        return -1;
    if (!wallOverride().read(tv))
        readSystemClock(CLOCK_REALTIME, tv);
    return 0;
}

void setClock(std::function<void(timeval*)> clock) { wallOverride().install(std::move(clock)); }

int getmonotonictime(timeval* tv)
{
    if (!tv)
        return -1;
    if (!monotonicOverride().read(tv) && !wallOverride().read(tv))
        readSystemClock(CLOCK_MONOTONIC, tv);
    return 0;
}

void setMonotonicClock(std::function<void(timeval*)> clock) { monotonicOverride().install(std::move(clock)); }

} // namespace os
} // namespace lumo
