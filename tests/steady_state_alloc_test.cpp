// In its own executable: it replaces the global allocator to count the
// pixel blocks the library makes, and every allocation at all.
#include "fake_camera.h"
#include "hub_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> largeArrays { 0 };
std::atomic<long> allocations { 0 };
const std::size_t kPixelBlock = 4096; // smaller blocks are bookkeeping, not images
} // namespace

void* operator new(std::size_t size)
{
    ++allocations;
    if (void* p = std::malloc(size ? size : 1))
        return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size)
{
    if (size >= kPixelBlock)
        ++largeArrays;
    return operator new(size);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace Kelmo::FrameHub;

// Longer than a string's inline storage, so that a copy of it per frame
// would be counted.
const char kCamera[] = "front_stereo_left_camera";

class SteadyState : public ::testing::Test {
protected:
    ManualClock clock;
    FrameHub hub { { simulator2D(kCamera) } };
    const std::string rgb = hub.subscribeCamera("rgb", kCamera, Resolution(640, 480), COLORSPACE_RGB_888, 30);
    std::vector<uint8_t> frame = rgbFrame(640, 480, 1);
};

// Subscribers that release in time, fed frame after frame: once the rings
// and the store have their blocks, nothing allocates pixels any more.
TEST_F(SteadyState, NoPixelBlockIsAllocated)
{
    const std::string y = hub.subscribeCamera("y", kCamera, Resolution(320, 240), COLORSPACE_Y_8, 15);
    const std::string raw = hub.subscribeCamera("raw", kCamera, Resolution(640, 480), COLORSPACE_YUV_422, 30);
    auto cycle = [&] {
        clock.advanceMs(100);
        ASSERT_TRUE(hub.putImage(kCamera, Resolution(640, 480), COLORSPACE_RGB_888, frame.data()));
        for (const std::string& name : { rgb, y }) {
            ASSERT_TRUE(hub.getImage(name)) << name;
            ASSERT_TRUE(hub.releaseImage(name));
        }
        ASSERT_TRUE(hub.getDirectRawImage(raw));
        ASSERT_TRUE(hub.releaseDirectRawImage(raw));
    };
    for (int i = 0; i < 3; ++i)
        cycle();
    const long warm = largeArrays.load();
    EXPECT_GT(warm, 0); // the counter does see the library's blocks
    for (int i = 0; i < 50; ++i)
        cycle();
    EXPECT_EQ(largeArrays.load(), warm);
}

// The per-frame path of a client served from the cache: once warm, a fetch
// and its release allocate nothing at all, whether the client named its
// camera or asked for the default one.
TEST_F(SteadyState, CachedHandOutAllocatesNothing)
{
    const std::string byAlias
        = hub.subscribeCamera("rgbDefault", "Default", Resolution(640, 480), COLORSPACE_RGB_888, 30);
    ASSERT_TRUE(hub.putImage(kCamera, Resolution(640, 480), COLORSPACE_RGB_888, frame.data()));
    for (const std::string& name : { rgb, byAlias }) {
        ASSERT_TRUE(hub.getImage(name)) << name;
        ASSERT_TRUE(hub.releaseImage(name));
        const long warm = allocations.load();
        for (int i = 0; i < 100; ++i) {
            FrameHub::Buffer image = hub.getImage(name);
            ASSERT_TRUE(image);
            image.reset();
            ASSERT_TRUE(hub.releaseImage(name));
        }
        EXPECT_EQ(allocations.load(), warm) << name;
    }
}

} // namespace
