#include "hub_fixture.h"
#include "hub_peer.h"

#include "camera/camera.h"
#include "frontend/frame_hub_p.h"

#include <gtest/gtest.h>
#include <lumo/log.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace Kelmo {
namespace FrameHub {

namespace {

// Reads a camera's rings from outside.
struct RingPeek : Camera {
    static const BufferRing& raw(Camera& c) { return c.*(&RingPeek::_rawBuffers); }
    static const BufferRing& converted(Camera& c) { return c.*(&RingPeek::_buffers); }
};

// A feeder, eight clients that subscribe, fetch, check, release, retarget
// and leave in a loop, and a thread that moves the default camera, for a
// bounded time. Every count must come back and nobody may be left.
TEST(HubStress, ClientsFeederAndDefaultMover)
{
    lumo::log::setLevel(1); // the readers' misses before a feed are expected
    FrameHubPrivate hub;
    ASSERT_TRUE(hub.addCamera(simulator2D("front")));
    ASSERT_TRUE(hub.addCamera(simulator2D("back")));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(2500);
    auto running = [&] { return std::chrono::steady_clock::now() < deadline; };
    std::atomic<int> delivered { 0 }, wrong { 0 };

    std::thread feeder([&] {
        for (unsigned sequence = 0; running(); ++sequence)
            for (const char* camera : { "front", "back" }) {
                CameraPreferences expected = hub.getExpectedImageParameters(camera);
                const Resolution size = expected.getResolution();
                std::vector<uint8_t> rgb = rgbFrame(size.width, size.height, sequence);
                hub.putImage(camera, size, expected.getColorSpace(), rgb.data());
            }
    });
    std::thread mover([&] {
        for (int i = 0; running(); ++i) {
            hub.setDefaultActiveCamera(i % 2 ? "front" : "back");
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });

    const ColorSpace spaces[] = { COLORSPACE_RGB_888, COLORSPACE_Y_8, COLORSPACE_BGR_888, COLORSPACE_HSY_888,
        COLORSPACE_YUV_422, COLORSPACE_H2RGB_888, COLORSPACE_U_8, COLORSPACE_YYCBCR_8888 };
    const Resolution sizes[] = { { 160, 120 }, { 320, 240 }, { 640, 480 } };
    std::vector<std::thread> clients;
    for (int c = 0; c < 8; ++c)
        clients.emplace_back([&, c] {
            const ColorSpace space = spaces[c];
            const std::string stem = "client" + std::to_string(c);
            for (int round = 0; running(); ++round) {
                const Resolution size = sizes[(c + round) % 3];
                std::string name;
                if (c == 7)
                    name = hub.subscribeCameras(stem, { "front", "back" }, { size, size }, { space, space }, 30);
                else
                    name = hub.subscribeCamera(stem, c % 2 ? "Default" : "back", size, space, 15 + c);
                if (name.empty())
                    continue;
                for (int i = 0; i < 20 && running(); ++i) {
                    if (c == 7) {
                        for (const auto& image : hub.getImages(name))
                            if (image) {
                                ++delivered;
                                wrong += image->getColorSpace() != space;
                            }
                        hub.releaseImages(name);
                        continue;
                    }
                    FrameHubPrivate::Buffer image = i % 5 ? hub.getImage(name) : hub.getDirectRawImage(name);
                    if (image) {
                        ++delivered;
                        // The mover may swap the request under a subscriber on
                        // the alias, so check against what it could be.
                        const Resolution r = image->getResolution();
                        const bool knownSize = r == sizes[0] || r == sizes[1] || r == sizes[2];
                        // The alias is resolved before the locks are taken: when
                        // the default moves in between, the request is filed
                        // under the old camera and the subscriber is served
                        // the new camera's defaults instead (which later
                        // resolution changes then apply to).
                        const ColorSpace got = image->getColorSpace();
                        const bool expected
                            = got == (i % 5 ? space : COLORSPACE_YUV_422) || (c % 2 == 1 && got == COLORSPACE_YUV_422);
                        wrong += !knownSize || !expected;
                    }
                    hub.releaseImage(name);
                    if (i % 7 == 3)
                        hub.setResolution(name, sizes[i % 3]);
                    if (i % 7 == 5)
                        hub.setFrameRate(name, 5 + i);
                    if (i % 11 == 10)
                        hub.setActiveCamera(name, i % 2 ? "front" : "back");
                }
                EXPECT_TRUE(hub.unsubscribe(name)) << name;
            }
        });
    for (auto& t : clients)
        t.join();
    mover.join();
    feeder.join();

    lumo::log::setLevel(3);
    EXPECT_GT(delivered.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(hub.getSubscribers().empty());
    for (const auto& camera : FrameHubPrivateTestPeer::cameras(hub)) {
        for (const auto& buffer : RingPeek::raw(*camera))
            EXPECT_EQ(buffer->lockCount, 0u) << camera->getName();
        for (const auto& buffer : RingPeek::converted(*camera))
            EXPECT_EQ(buffer->lockCount, 0u) << camera->getName();
    }
}

} // namespace
} // namespace FrameHub
} // namespace Kelmo
