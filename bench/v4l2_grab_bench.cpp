// The V4L2 back-end's per-frame grab (poll, dequeue, copy into the raw
// buffer, re-queue) on a fake device, beside a plain memcpy of the frame.
#include "bench_support.h"
#include "fake_v4l2_device.h"

#include "v4l2/camera_v4l2.h"

#include <boost/make_shared.hpp>

#include <cstdio>

using namespace Kelmo::FrameHub;

namespace {

const Resolution kSizes[] = { { 640, 480 }, { 1280, 720 } };

struct Grabber : CameraV4L2 {
    using CameraV4L2::_getDirectRawImage;
    using CameraV4L2::CameraV4L2;
};

std::string grabName(const Resolution& r) { return "grab/" + bench::sizeName(r); }

void grabBench(benchmark::State& state, Resolution size)
{
    boost::shared_ptr<FakeV4L2Device> device = boost::make_shared<FakeV4L2Device>();
    device->formats = { { V4L2_PIX_FMT_YUYV, { size } } };
    device->recordCalls = false;
    device->fillFrames = false;
    Grabber camera("bench", "/dev/video0", device);
    camera.setNativelySupportedResolutions({ size });
    camera.setNativelySupportedColorSpaces({ COLORSPACE_YUV_422 });
    camera.setNativelySupportedFrameRates({ 30 });
    if (!camera.start()) {
        state.SkipWithError("the fake device did not start");
        return;
    }
    boost::shared_ptr<ImageBuffer> buffer = boost::make_shared<ImageBuffer>("bench", size, COLORSPACE_YUV_422, true);
    for (auto _ : state) {
        if (!camera._getDirectRawImage(buffer)) {
            state.SkipWithError("grab failed");
            break;
        }
        benchmark::ClobberMemory();
    }
    bench::count(state, size.width * size.height, size.width * size.height * 2);
}

void registerAll()
{
    for (const Resolution& size : kSizes) {
        const uint64_t bytes = size.width * size.height * 2;
        benchmark::RegisterBenchmark(
            bench::memcpyName(bytes).c_str(), [bytes](benchmark::State& s) { bench::memcpyBench(s, bytes); });
        benchmark::RegisterBenchmark(grabName(size).c_str(), [size](benchmark::State& s) { grabBench(s, size); });
    }
}

void printSummary(const bench::Collector& collector)
{
    std::printf("\nGrab against memcpy of the same frame (target: at most 1.5x)\n");
    for (const Resolution& size : kSizes) {
        const double grab = collector.at(grabName(size));
        const double copy = collector.at(bench::memcpyName(size.width * size.height * 2));
        if (grab > 0 && copy > 0)
            std::printf("  %-10s grab %8.1f us  memcpy %8.1f us  ratio %.2fx\n", bench::sizeName(size).c_str(),
                grab * 1e6, copy * 1e6, grab / copy);
    }
}

} // namespace

int main(int argc, char** argv) { return bench::runWithSummary(argc, argv, registerAll, printSummary); }
