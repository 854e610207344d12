#include "v4l2/device_io.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace Kelmo {
namespace FrameHub {

int SystemDeviceIo::open(const char* path, int flags) { return ::open(path, flags); }

int SystemDeviceIo::close(int fd) { return ::close(fd); }

int SystemDeviceIo::ioctl(int fd, unsigned long request, void* arg) { return ::ioctl(fd, request, arg); }

void* SystemDeviceIo::mmap(size_t length, int fd, off_t offset)
{
    return ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
}

int SystemDeviceIo::munmap(void* address, size_t length) { return ::munmap(address, length); }

int SystemDeviceIo::poll(int fd, int timeoutMs, short* events)
{
    pollfd p = { fd, POLLIN | POLLPRI, 0 };
    const int n = ::poll(&p, 1, timeoutMs);
    *events = n > 0 ? p.revents : 0;
    return n;
}

int64_t SystemDeviceIo::monotonicMicroseconds()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return static_cast<int64_t>(t.tv_sec) * 1000000 + t.tv_nsec / 1000;
}

int ioctlRetried(DeviceIo& io, int fd, unsigned long request, void* arg)
{
    // A signal storm must not turn into a hang.
    const int kAttempts = 100;
    int result = -1;
    for (int i = 0; i < kAttempts; ++i) {
        result = io.ioctl(fd, request, arg);
        if (result != -1 || errno != EINTR)
            return result;
    }
    return result;
}

} // namespace FrameHub
} // namespace Kelmo
