// The per-frame hand-out: getImage plus releaseImage when a fresh converted
// image is waiting, on one and several threads, against the fetch that has
// to grab and convert a 640x480 frame.
#include "hub_fixture.h"

#include <framehub/frame_hub.h>
#include <lumo/log.h>
#include <lumo/os.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

const int kCameras = 8;

void put(FrameHub& hub, const std::string& name)
{
    std::vector<uint8_t> rgb(640 * 480 * 3);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<uint8_t>(i * 31);
    hub.putImage(name, Resolution(640, 480), COLORSPACE_RGB_888, rgb.data());
}

// One hub for the whole run: cameras cam0..cam7, each with eight cached
// subscribers (one a thread) and one that always converts.
struct Setup {
    FrameHub hub;
    std::vector<std::vector<std::string>> cached; // [camera][thread]
    std::vector<std::string> converting;

    Setup()
    {
        lumo::log::setLevel(1);
        for (int c = 0; c < kCameras; ++c) {
            const std::string name = "cam" + std::to_string(c);
            hub.addCamera(simulator2D(name));
            cached.emplace_back();
            // A stem of its own each: a stem takes at most seven subscribers.
            for (int t = 0; t < 8; ++t)
                cached.back().push_back(hub.subscribeCamera(
                    name + "_thread" + std::to_string(t), name, Resolution(640, 480), COLORSPACE_RGB_888, 1));
            // Taken far in the future on both clocks: the cached images never go stale.
            const auto future = [](lumo::os::timeval* tv) {
                tv->tv_sec = 4000000000LL;
                tv->tv_usec = 0;
            };
            lumo::os::setClock(future);
            lumo::os::setMonotonicClock(future);
            put(hub, name);
            for (const std::string& subscriber : cached.back()) {
                hub.getImage(subscriber);
                hub.releaseImage(subscriber);
            }
            lumo::os::setClock(std::function<void(lumo::os::timeval*)>());
            lumo::os::setMonotonicClock(std::function<void(lumo::os::timeval*)>());
        }
        // A frame stamped now is stale one period later, so every fetch of
        // this subscriber grabs the stored frame and converts it.
        hub.addCamera(simulator2D("live"));
        converting.push_back(hub.subscribeCamera("convert", "live", Resolution(640, 480), COLORSPACE_RGB_888, 30));
        converting.push_back(hub.subscribeCamera("convertY", "live", Resolution(640, 480), COLORSPACE_Y_8, 30));
        put(hub, "live");
    }
};

Setup& setup()
{
    static Setup* instance = new Setup;
    return *instance;
}

// A cached fetch and its release, by the subscriber the thread picks.
template <const std::string& (*Pick)(Setup&, int thread)> void cachedHandout(benchmark::State& state)
{
    Setup& s = setup();
    const std::string& name = Pick(s, state.thread_index());
    if (name.empty()) {
        state.SkipWithError("no subscriber");
        return;
    }
    for (auto _ : state) {
        auto image = s.hub.getImage(name);
        benchmark::DoNotOptimize(image.get());
        s.hub.releaseImage(name);
    }
    state.SetItemsProcessed(state.iterations());
}

// Every thread on the first camera, or each on a camera of its own.
const std::string& oneCamera(Setup& s, int thread) { return s.cached[0][thread]; }
const std::string& ownCamera(Setup& s, int thread) { return s.cached[thread % kCameras][0]; }

void BM_CachedHandoutOneCamera(benchmark::State& state) { cachedHandout<oneCamera>(state); }
void BM_CachedHandoutSeparateCameras(benchmark::State& state) { cachedHandout<ownCamera>(state); }

BENCHMARK(BM_CachedHandoutOneCamera)
    ->Threads(1)
    ->Threads(2)
    ->Threads(8)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_CachedHandoutSeparateCameras)
    ->Threads(1)
    ->Threads(2)
    ->Threads(8)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

// The same fetch when nothing fresh is cached: copy of the stored frame
// into the raw ring, then YUV 4:2:2 to the subscriber's format.
void BM_GrabAndConvert640x480(benchmark::State& state)
{
    Setup& s = setup();
    const std::string& name = s.converting[state.range(0)];
    for (auto _ : state) {
        auto image = s.hub.getImage(name);
        benchmark::DoNotOptimize(image.get());
        s.hub.releaseImage(name);
    }
    state.SetItemsProcessed(state.iterations());
    state.SetLabel(state.range(0) == 0 ? "RGB" : "Y");
}
BENCHMARK(BM_GrabAndConvert640x480)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

BENCHMARK_MAIN();
