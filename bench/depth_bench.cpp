// Every depth routine on a 640x480 frame, at the same size and at ratio 2,
// next to a memcpy of the same number of output bytes, all in one run.
// After the usual table a summary prints the ratios.
#include "pipeline/camera_3d.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

using namespace Kelmo::FrameHub;
using bench::count;
using bench::memcpyBench;
using bench::memcpyName;
using bench::sizeName;

namespace {

typedef boost::shared_ptr<ImageBuffer> Buffer;

const Resolution kSource(640, 480);
const uint64_t ratios[] = { 1, 2 };

class BenchCamera3D : public Camera3D {
public:
    BenchCamera3D()
        : Camera3D("Bench3D", "bench")
    {
        setNativelySupportedResolutions({ Resolution(320, 240), kSource });
        setNativelySupportedColorSpaces({ COLORSPACE_DEPTH_16 });
        setNativelySupportedFrameRates({ 30 });
        setFieldOfView(FieldOfView(1.0f, 0.78f));
    }

protected:
    bool _setResolution(const Resolution&) override { return true; }
    bool _setColorSpace(const ColorSpace&) override { return true; }
    bool _setFrameRate(int) override { return true; }
    bool _getDirectRawImage(Buffer) override { return true; }
};

enum Kind { DEPTH8, FALSE_COLOUR, POINT_CLOUD, DISTANCE, DEPTH_RESIZE, INFRARED_RESIZE };

struct Target {
    const char* name;
    Kind kind;
    ColorSpace space;
    uint64_t bytesPerPixel; // written, not allocated: distances fill half their block
};

const Target targets[] = {
    { "Depth8", DEPTH8, COLORSPACE_Y_8, 1 },
    { "RGB888", FALSE_COLOUR, COLORSPACE_RGB_888, 3 },
    { "XYZ", POINT_CLOUD, COLORSPACE_XYZ_323232, 12 },
    { "Distance", DISTANCE, COLORSPACE_DISTANCE_32, 2 },
    { "Depth16", DEPTH_RESIZE, COLORSPACE_DEPTH_16, 2 },
    { "Infrared16", INFRARED_RESIZE, COLORSPACE_INFRARED_16, 2 },
};

// Random samples over every range the false colour tells apart: zero, too
// near, the working range and beyond it.
Buffer frame(const Resolution& size, ColorSpace space)
{
    Buffer b(new ImageBuffer("bench", size, space, true));
    uint16_t* samples = reinterpret_cast<uint16_t*>(b->getData());
    std::mt19937 random(7);
    std::uniform_int_distribution<int> sample(0, 5000);
    for (uint64_t i = 0; i < size.width * size.height; ++i)
        samples[i] = static_cast<uint16_t>(sample(random));
    return b;
}

void convertBench(benchmark::State& state, const Target& target, uint64_t ratio)
{
    BenchCamera3D camera;
    camera._buildLUT(); // built once per camera, not per frame
    const Buffer src = frame(kSource, target.kind == INFRARED_RESIZE ? COLORSPACE_INFRARED_16 : COLORSPACE_DEPTH_16);
    const Resolution out(kSource.width / ratio, kSource.height / ratio);
    const Buffer dst(new ImageBuffer("bench", out, target.space, true));
    float* points = reinterpret_cast<float*>(dst->getData());
    const uint32_t w = static_cast<uint32_t>(out.width), h = static_cast<uint32_t>(out.height);
    for (auto _ : state) {
        switch (target.kind) {
        case DEPTH8:
            Camera3D::convertDepthtoYuv(src, dst);
            break;
        case FALSE_COLOUR:
            Camera3D::convertDepth16toRGB888(src, dst);
            break;
        case POINT_CLOUD:
            Camera3D::convertDepthtoIJZ(src, dst);
            camera.convertProjectiveToRealWorld(points, w, h);
            break;
        case DISTANCE:
            camera.convertDepthtoDistance(src, dst);
            break;
        case DEPTH_RESIZE:
            Camera3D::convertDepth16toDepth16(src, dst);
            break;
        case INFRARED_RESIZE:
            Camera3D::convertInfraredtoInfrared(src, dst);
            break;
        }
        benchmark::ClobberMemory();
    }
    count(state, out.width * out.height, out.width * out.height * target.bytesPerPixel);
}

// The one-time cost a first distance subscriber pays.
void buildTableBench(benchmark::State& state)
{
    BenchCamera3D camera;
    for (auto _ : state) {
        camera._buildLUT();
        benchmark::ClobberMemory();
    }
    count(state, kSource.width * kSource.height, kSource.width * kSource.height * sizeof(float));
}

std::string convertName(const Target& t, uint64_t ratio)
{
    return std::string("depth/") + t.name + "/" + sizeName(kSource) + "/ratio" + std::to_string(ratio);
}

uint64_t outputBytes(const Target& t, uint64_t ratio)
{
    return kSource.width / ratio * (kSource.height / ratio) * t.bytesPerPixel;
}

void registerAll()
{
    std::map<uint64_t, bool> copies;
    for (uint64_t ratio : ratios) {
        for (const Target& t : targets) {
            benchmark::RegisterBenchmark(convertName(t, ratio).c_str(), convertBench, t, ratio);
            copies[outputBytes(t, ratio)] = true;
        }
    }
    benchmark::RegisterBenchmark(("depth/BuildTable/" + sizeName(kSource)).c_str(), buildTableBench);
    for (const auto& c : copies)
        benchmark::RegisterBenchmark(memcpyName(c.first).c_str(), memcpyBench, c.first);
}

// Time of the routine over time of memcpy of its output: how far each is
// from only moving its bytes.
void printSummary(const bench::Collector& collector)
{
    const auto at = [&](const std::string& name) { return collector.at(name); };
    std::printf("\n%-11s %-6s %10s %10s %10s\n", "target", "ratio", "ns/pixel", "MB/s", "x memcpy");
    for (uint64_t ratio : ratios) {
        for (const Target& t : targets) {
            const uint64_t pixels = kSource.width / ratio * (kSource.height / ratio);
            const double time = at(convertName(t, ratio));
            if (time == 0.0)
                continue;
            const double copy = at(memcpyName(outputBytes(t, ratio)));
            std::printf("%-11s %-6llu %10.3f %10.0f %10.2f\n", t.name, static_cast<unsigned long long>(ratio),
                1e9 * time / pixels, outputBytes(t, ratio) / time / 1e6, copy > 0 ? time / copy : 0.0);
        }
    }
}

} // namespace

int main(int argc, char** argv) { return bench::runWithSummary(argc, argv, &registerAll, &printSummary); }
