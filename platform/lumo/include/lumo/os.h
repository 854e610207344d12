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

} // namespace os
} // namespace lumo

#endif
