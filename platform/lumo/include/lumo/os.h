#ifndef LUMO_OS_H
#define LUMO_OS_H

#include <cstdint>
#include <functional>

namespace lumo {
namespace os {

struct timeval {
    int64_t tv_sec;
    int64_t tv_usec;
};

// Wall clock, or the clock installed by setClock. 0 on success, -1 on a null argument.
int gettimeofday(timeval* tv);

// Installs a clock for tests; an empty function restores the system clock.
void setClock(std::function<void(timeval*)> clock);

// A clock that never steps: CLOCK_MONOTONIC, or the monotonic clock installed
// by setMonotonicClock, or else the clock installed by setClock, so that a test
// driving one clock drives both. 0 on success, -1 on a null argument.
int getmonotonictime(timeval* tv);

// Installs a monotonic clock for tests; an empty function removes it.
void setMonotonicClock(std::function<void(timeval*)> clock);

} // namespace os
} // namespace lumo

#endif
