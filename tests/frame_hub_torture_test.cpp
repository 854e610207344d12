#include "hub_fixture.h"
#include "hub_peer.h"

#include "camera/camera.h"
#include "frontend/frame_hub_p.h"

#include <gtest/gtest.h>
#include <lumo/log.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <limits>
#include <thread>

namespace Kelmo {
namespace FrameHub {

namespace {

typedef std::chrono::steady_clock Clock;

// Reads a camera's rings and requests from outside.
struct CameraPeek : Camera {
    static const BufferRing& raw(Camera& c) { return c.*(&CameraPeek::_rawBuffers); }
    static const BufferRing& converted(Camera& c) { return c.*(&CameraPeek::_buffers); }
    static size_t requests(Camera& c) { return (c.*(&CameraPeek::_preferences)).size(); }
};

// What each worker is doing, for the watchdog's report.
struct Worker {
    std::string name;
    std::atomic<const char*> operation { "starting" };
    std::atomic<uint64_t> calls { 0 };
    std::atomic<bool> done { false };

    void at(const char* what)
    {
        operation = what;
        ++calls;
    }
};

// Marks the call about to be made, then makes it; the count proves progress.
#define CALL(worker, call) ((worker).at(#call), (call))

// Ends the process with the list of workers that stopped moving, rather than
// letting a deadlock hang the test run.
class Watchdog {
public:
    Watchdog(const std::vector<std::unique_ptr<Worker>>& workers, Clock::duration limit)
        : _thread([this, &workers, limit] {
            if (_finished.get_future().wait_for(limit) == std::future_status::ready)
                return;
            std::fprintf(stderr, "Watchdog: the hub stalled; workers still running:\n");
            for (const auto& worker : workers)
                if (!worker->done)
                    std::fprintf(stderr, "  %s in %s after %llu calls\n", worker->name.c_str(),
                        worker->operation.load(), static_cast<unsigned long long>(worker->calls.load()));
            std::fflush(stderr);
            std::_Exit(EXIT_FAILURE);
        })
    {
    }
    ~Watchdog()
    {
        _finished.set_value();
        _thread.join();
    }

private:
    std::promise<void> _finished;
    std::thread _thread;
};

const ColorSpace kSpaces[] = { COLORSPACE_RGB_888, COLORSPACE_Y_8, COLORSPACE_BGR_888, COLORSPACE_HSY_888,
    COLORSPACE_YUV_422, COLORSPACE_H2RGB_888, COLORSPACE_U_8, COLORSPACE_YYCBCR_8888 };
const Resolution kSizes[] = { { 160, 120 }, { 320, 240 }, { 640, 480 } };

// Every kind of caller at once, for a bounded time: mono-stream clients on
// fixed cameras and on "Default", multi-stream clients switching cameras, two
// feeders that meet on every fresh camera, a registrar adding cameras, a
// mover of the default camera and a caller of the angular conversions. A
// watchdog turns a deadlock into a failure that names the stalled calls. At
// the end nobody is left, every count is back to 0, no request stays on a
// camera and every camera closes when its last client leaves.
TEST(HubTorture, EveryKindOfCallerAtOnce)
{
    lumo::log::setLevel(1); // misses before a feed and refused retargets are expected
    FrameHubPrivate hub;
    ASSERT_TRUE(hub.addCamera(simulator2D("front")));
    ASSERT_TRUE(hub.addCamera(simulator2D("back")));
    const auto deadline = Clock::now() + std::chrono::milliseconds(2500);
    auto running = [&] { return Clock::now() < deadline; };
    std::atomic<int> delivered { 0 }, wrong { 0 };
    std::atomic<int> registered { 2 };

    std::vector<std::unique_ptr<Worker>> workers;
    std::vector<std::thread> threads;
    auto spawn = [&](const std::string& name, std::function<void(Worker&)> body) {
        workers.emplace_back(new Worker);
        Worker& worker = *workers.back();
        worker.name = name;
        threads.emplace_back([&worker, body] {
            body(worker);
            worker.done = true;
        });
    };
    auto cameraName = [&](unsigned i) {
        const int count = registered.load();
        const unsigned pick = i % static_cast<unsigned>(count);
        return pick == 0 ? std::string("front") : pick == 1 ? std::string("back") : "extra" + std::to_string(pick - 2);
    };
    Watchdog watchdog(workers, std::chrono::seconds(60));

    // Two feeders walk the cameras in the same order, so each fresh camera is
    // opened by both at once.
    for (int f = 0; f < 2; ++f)
        spawn("feeder" + std::to_string(f), [&](Worker& w) {
            for (unsigned sequence = 0; running(); ++sequence) {
                for (const std::string& camera : CALL(w, hub.getCameraIndexes())) {
                    CameraPreferences expected = CALL(w, hub.getExpectedImageParameters(camera));
                    const Resolution size = expected.getResolution();
                    std::vector<uint8_t> rgb = rgbFrame(size.width, size.height, sequence);
                    CALL(w, hub.putImage(camera, size, expected.getColorSpace(), rgb.data()));
                }
            }
        });
    spawn("registrar", [&](Worker& w) {
        for (int i = 0; running() && i < 24; ++i) {
            if (CALL(w, hub.addCamera(simulator2D("extra" + std::to_string(i)))))
                ++registered;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    spawn("mover", [&](Worker& w) {
        for (unsigned i = 0; running(); ++i) {
            CALL(w, hub.setDefaultActiveCamera(cameraName(i)));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    spawn("angles", [&](Worker& w) {
        const float nan = std::numeric_limits<float>::quiet_NaN();
        for (unsigned i = 0; running(); ++i) {
            const std::string camera = i % 3 ? cameraName(i) : "Default";
            CALL(w, hub.getAngularPositionFromImagePosition(camera, { 0.25f, 0.75f }));
            CALL(w, hub.getImageInfoFromAngularInfo(camera, { 0.1f, -0.1f, nan, 0.2f }));
            CALL(w, hub.getImageInfoFromAngularInfoWithResolution(camera, { 0.1f, 0.1f, 0.3f, 0.3f }, kSizes[i % 3]));
            CALL(w, hub.getCameraParameterInfo(camera, PARAMETER_BRIGHTNESS));
        }
    });

    // Mono-stream clients: even ones on a named camera, odd ones on "Default".
    for (int c = 0; c < 6; ++c)
        spawn("client" + std::to_string(c), [&, c](Worker& w) {
            const ColorSpace space = kSpaces[c];
            const std::string stem = "client" + std::to_string(c);
            for (unsigned round = 0; running(); ++round) {
                const std::string name = CALL(w,
                    hub.subscribeCamera(
                        stem, c % 2 ? "Default" : cameraName(round), kSizes[(c + round) % 3], space, 15 + c));
                if (name.empty())
                    continue;
                for (int i = 0; i < 20 && running(); ++i) {
                    const bool raw = i % 5 == 0;
                    FrameHubPrivate::Buffer image
                        = raw ? CALL(w, hub.getDirectRawImage(name)) : CALL(w, hub.getImage(name));
                    if (image) {
                        ++delivered;
                        const Resolution r = image->getResolution();
                        const bool knownSize = r == kSizes[0] || r == kSizes[1] || r == kSizes[2];
                        // The request follows the subscriber wherever the default goes.
                        wrong += !knownSize || image->getColorSpace() != (raw ? COLORSPACE_YUV_422 : space);
                    }
                    CALL(w, hub.releaseImage(name));
                    if (i % 7 == 3)
                        CALL(w, hub.setResolution(name, kSizes[i % 3]));
                    if (i % 7 == 5)
                        CALL(w, hub.setFrameRate(name, i % 2 ? 5 : 30));
                    if (i % 11 == 10 && c % 2 == 0)
                        CALL(w, hub.setActiveCamera(name, cameraName(i)));
                }
                EXPECT_TRUE(CALL(w, hub.unsubscribe(name))) << name;
            }
        });
    // Multi-stream clients switching among the cameras, new ones included.
    for (int c = 0; c < 2; ++c)
        spawn("multi" + std::to_string(c), [&, c](Worker& w) {
            const ColorSpace space = kSpaces[6 + c];
            const std::string stem = "multi" + std::to_string(c);
            for (unsigned round = 0; running(); ++round) {
                const Resolution size = kSizes[round % 3];
                const std::string name
                    = CALL(w, hub.subscribeCameras(stem, { "front", "back" }, { size, size }, { space, space }, 30));
                if (name.empty())
                    continue;
                for (unsigned i = 0; i < 20 && running(); ++i) {
                    for (const auto& image : CALL(w, hub.getImages(name)))
                        if (image) {
                            ++delivered;
                            wrong += image->getColorSpace() != space && image->getColorSpace() != COLORSPACE_YUV_422;
                        }
                    CALL(w, hub.releaseImages(name));
                    CALL(w, hub.getDirectRawImages(name));
                    CALL(w, hub.releaseDirectRawImages(name));
                    if (i % 6 == 5) {
                        const std::string a = cameraName(i + round), b = cameraName(i + round + 1);
                        CALL(w,
                            hub.setActiveCameras(
                                name, a == b ? std::vector<std::string> { a } : std::vector<std::string> { a, b }));
                        CALL(w,
                            hub.setResolutions(name, std::vector<Resolution>(hub.getActiveCameras(name).size(), size)));
                    }
                }
                EXPECT_TRUE(CALL(w, hub.unsubscribe(name))) << name;
            }
        });

    for (auto& thread : threads)
        thread.join();
    lumo::log::setLevel(3);

    EXPECT_GT(delivered.load(), 0);
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_TRUE(hub.getSubscribers().empty());
    EXPECT_EQ(hub.getCameraIndexes().size(), static_cast<size_t>(registered.load()));
    for (const auto& camera : FrameHubPrivateTestPeer::cameras(hub)) {
        SCOPED_TRACE(camera->getName());
        for (const auto& buffer : CameraPeek::raw(*camera))
            EXPECT_EQ(buffer->lockCount, 0u);
        for (const auto& buffer : CameraPeek::converted(*camera))
            EXPECT_EQ(buffer->lockCount, 0u);
        EXPECT_EQ(CameraPeek::requests(*camera), 0u);
        // A feeder may have opened it last; one more client's departure must
        // close it, which a forgotten request would prevent.
        const std::string probe = hub.subscribeCamera("probe", camera->getName(), kSizes[0], COLORSPACE_Y_8, 5);
        EXPECT_TRUE(hub.unsubscribe(probe));
        EXPECT_FALSE(camera->isOpen());
    }
}

} // namespace
} // namespace FrameHub
} // namespace Kelmo
