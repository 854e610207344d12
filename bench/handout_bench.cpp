// The per-frame hand-out: getImage plus releaseImage when a fresh converted
// image is waiting, on one and several threads, against the fetch that has
// to grab and convert a 640x480 frame.
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

CameraInfo camera(const std::string& name)
{
    CameraInfo info;
    info.name = name;
    info.model = "Simulator2D";
    info.fieldOfView = FieldOfView(1.0f, 0.75f);
    info.resolutions = { { 160, 120 }, { 320, 240 }, { 640, 480 } };
    info.colorSpaces = { COLORSPACE_YUV_422, COLORSPACE_RGB_888 };
    info.frameRates = { 5, 15, 30 };
    return info;
}

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
            hub.addCamera(camera(name));
            cached.emplace_back();
            for (int t = 0; t < 8; ++t)
                cached.back().push_back(
                    hub.subscribeCamera("cached", name, Resolution(640, 480), COLORSPACE_RGB_888, 1));
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
        hub.addCamera(camera("live"));
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

void BM_CachedHandoutOneCamera(benchmark::State& state)
{
    Setup& s = setup();
    const std::string& name = s.cached[0][state.thread_index()];
    for (auto _ : state) {
        auto image = s.hub.getImage(name);
        benchmark::DoNotOptimize(image.get());
        s.hub.releaseImage(name);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CachedHandoutOneCamera)
    ->Threads(1)
    ->Threads(2)
    ->Threads(8)
    ->UseRealTime()
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void BM_CachedHandoutSeparateCameras(benchmark::State& state)
{
    Setup& s = setup();
    const std::string& name = s.cached[state.thread_index() % kCameras][0];
    for (auto _ : state) {
        auto image = s.hub.getImage(name);
        benchmark::DoNotOptimize(image.get());
        s.hub.releaseImage(name);
    }
    state.SetItemsProcessed(state.iterations());
}
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
