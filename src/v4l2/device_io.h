#ifndef FRAMEHUB_SRC_V4L2_DEVICE_IO_H
#define FRAMEHUB_SRC_V4L2_DEVICE_IO_H

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace Kelmo {
namespace FrameHub {

// Everything the V4L2 back-end asks of the kernel; tests pass a fake. Calls
// return what the system call returns and leave the reason in errno.
struct DeviceIo {
    virtual ~DeviceIo() = default;
    virtual int open(const char* path, int flags) = 0;
    virtual int close(int fd) = 0;
    // Not retried here: the caller retries on EINTR.
    virtual int ioctl(int fd, unsigned long request, void* arg) = 0;
    // MAP_FAILED on failure.
    virtual void* mmap(size_t length, int fd, off_t offset) = 0;
    virtual int munmap(void* address, size_t length) = 0;
    // Waits for a frame; returns poll's count and the revents in *events.
    virtual int poll(int fd, int timeoutMs, short* events) = 0;
    // The clock of the drivers' buffer time stamps, in microseconds.
    virtual int64_t monotonicMicroseconds() = 0;
};

// The real thing.
struct SystemDeviceIo : DeviceIo {
    int open(const char* path, int flags) override;
    int close(int fd) override;
    int ioctl(int fd, unsigned long request, void* arg) override;
    void* mmap(size_t length, int fd, off_t offset) override;
    int munmap(void* address, size_t length) override;
    int poll(int fd, int timeoutMs, short* events) override;
    int64_t monotonicMicroseconds() override;
};

// An ioctl retried while a signal interrupts it, a bounded number of times.
int ioctlRetried(DeviceIo& io, int fd, unsigned long request, void* arg);

} // namespace FrameHub
} // namespace Kelmo

#endif
