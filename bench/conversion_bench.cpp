// Every 2D target at two source sizes, full width and half width, next to
// the baselines it is judged against, all in one run: memcpy of the same
// number of output bytes, the library YUY2 conversions of OpenCV and
// libyuv. After the usual table a summary prints the ratios.
#include "pipeline/camera_2d.h"
#include "pipeline/camera_2d_simd.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <libyuv.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgproc.hpp>

#include <cstdio>
#include <cstdlib>
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

struct Target {
    const char* name;
    ColorSpace space;
    bool (*convert)(Buffer, Buffer);
    uint64_t bytesPerPixel; // written, not allocated: YYCbCr fills half its block
    bool movesBytes; // judged against memcpy; the others against OpenCV
    const char* nearest; // library baseline doing the closest job, if any
};

const Target targets[] = {
    { "Y8", COLORSPACE_Y_8, &Camera2D::convertYUV422toY8, 1, true, "libyuv_YUY2ToY" },
    { "U8", COLORSPACE_U_8, &Camera2D::convertYUV422toU8, 1, true, "libyuv_YUY2ToI422" },
    { "V8", COLORSPACE_V_8, &Camera2D::convertYUV422toV8, 1, true, "libyuv_YUY2ToI422" },
    { "YUV422", COLORSPACE_YUV_422, &Camera2D::convertYUV422toYUV422, 2, true, "libyuv_CopyPlane" },
    { "YUV888", COLORSPACE_YUV_888, &Camera2D::convertYUV422toYUV888, 3, true, "" },
    { "YYCbCr", COLORSPACE_YYCBCR_8888, &Camera2D::convertYUV422toYYCbCr, 2, true, "" },
    { "RGB888", COLORSPACE_RGB_888, &Camera2D::convertYUV422toRGB888, 3, false, "libyuv_YUY2ToARGB" },
    { "BGR888", COLORSPACE_BGR_888, &Camera2D::convertYUV422toBGR888, 3, false, "libyuv_YUY2ToARGB" },
    { "R8", COLORSPACE_R_8, &Camera2D::convertYUV422toR8, 1, false, "libyuv_YUY2ToARGB" },
    { "G8", COLORSPACE_G_8, &Camera2D::convertYUV422toG8, 1, false, "libyuv_YUY2ToARGB" },
    { "B8", COLORSPACE_B_8, &Camera2D::convertYUV422toB8, 1, false, "libyuv_YUY2ToARGB" },
    { "H8", COLORSPACE_H_8, &Camera2D::convertYUV422toH8, 1, false, "" },
    { "S8", COLORSPACE_S_8, &Camera2D::convertYUV422toS8, 1, false, "" },
    { "HSY888", COLORSPACE_HSY_888, &Camera2D::convertYUV422toHSY888, 3, false, "" },
    { "HSMixed888", COLORSPACE_HSMIXED_888, &Camera2D::convertYUV422toHSMixed888, 3, false, "" },
    { "H2RGB", COLORSPACE_H2RGB_888, &Camera2D::convertYUV422toH2RGB, 3, false, "" },
};

const Resolution sources[] = { Resolution(640, 480), Resolution(1280, 960) };
const uint64_t ratios[] = { 1, 2 };

// Random bytes: the worst case for anything that branches on colour.
Buffer frame(const Resolution& size)
{
    Buffer b(new ImageBuffer("bench", size, COLORSPACE_YUV_422, true));
    std::mt19937 random(7);
    uint8_t* data = b->getData();
    const uint64_t bytes = b->getSize();
    for (uint64_t i = 0; i < bytes; ++i)
        data[i] = static_cast<uint8_t>(random());
    return b;
}

void convertBench(benchmark::State& state, const Target& target, Resolution size, uint64_t ratio)
{
    const Buffer src = frame(size);
    const Resolution out(size.width / ratio, size.height / ratio);
    const Buffer dst(new ImageBuffer("bench", out, target.space, true));
    dst->getData();
    for (auto _ : state) {
        target.convert(src, dst);
        benchmark::ClobberMemory();
    }
    count(state, out.width * out.height, out.width * out.height * target.bytesPerPixel);
}

void opencvBench(benchmark::State& state, Resolution size, int code, int outChannels, int threads)
{
    const Buffer src = frame(size);
    const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
    const cv::Mat in(h, w, CV_8UC2, src->getData());
    cv::Mat out(h, w, CV_8UC(outChannels));
    const int previous = cv::getNumThreads();
    if (threads > 0)
        cv::setNumThreads(threads);
    for (auto _ : state) {
        cv::cvtColor(in, out, code);
        benchmark::ClobberMemory();
    }
    cv::setNumThreads(previous);
    count(state, size.width * size.height, size.width * size.height * outChannels);
}

void libyuvBench(benchmark::State& state, Resolution size, const std::string& what)
{
    const Buffer src = frame(size);
    const int w = static_cast<int>(size.width), h = static_cast<int>(size.height);
    std::vector<uint8_t> out(size.width * size.height * 4);
    uint8_t* o = out.data();
    const uint8_t* in = src->getData();
    uint64_t bytes = 0;
    for (auto _ : state) {
        if (what == "YUY2ToARGB")
            libyuv::YUY2ToARGB(in, 2 * w, o, 4 * w, w, h);
        else if (what == "YUY2ToY")
            libyuv::YUY2ToY(in, 2 * w, o, w, w, h);
        else if (what == "YUY2ToI422")
            libyuv::YUY2ToI422(in, 2 * w, o, w, o + w * h, w / 2, o + w * h * 3 / 2, w / 2, w, h);
        else
            libyuv::CopyPlane(in, 2 * w, o, 2 * w, 2 * w, h);
        benchmark::ClobberMemory();
    }
    if (what == "YUY2ToARGB")
        bytes = 4;
    else if (what == "YUY2ToY")
        bytes = 1;
    else
        bytes = 2;
    count(state, size.width * size.height, size.width * size.height * bytes);
}

std::string convertName(const Target& t, const Resolution& s, uint64_t ratio)
{
    return std::string("convert/") + t.name + "/" + sizeName(s) + "/ratio" + std::to_string(ratio);
}

void registerAll()
{
    std::map<uint64_t, bool> copies;
    for (const Resolution& s : sources) {
        for (uint64_t ratio : ratios) {
            for (const Target& t : targets) {
                bench::withMinimum(
                    benchmark::RegisterBenchmark(convertName(t, s, ratio).c_str(), convertBench, t, s, ratio));
                copies[s.width / ratio * (s.height / ratio) * t.bytesPerPixel] = true;
            }
        }
        const std::string n = "/" + sizeName(s);
        benchmark::RegisterBenchmark(("opencv_YUY2toRGB" + n).c_str(), opencvBench, s, cv::COLOR_YUV2RGB_YUY2, 3, 0);
        benchmark::RegisterBenchmark(
            ("opencv_YUY2toRGB_1thread" + n).c_str(), opencvBench, s, cv::COLOR_YUV2RGB_YUY2, 3, 1);
        benchmark::RegisterBenchmark(("opencv_YUY2toBGR" + n).c_str(), opencvBench, s, cv::COLOR_YUV2BGR_YUY2, 3, 0);
        benchmark::RegisterBenchmark(("opencv_YUY2toGRAY" + n).c_str(), opencvBench, s, cv::COLOR_YUV2GRAY_YUY2, 1, 0);
        for (const char* f : { "YUY2ToARGB", "YUY2ToY", "YUY2ToI422", "CopyPlane" })
            bench::withMinimum(
                benchmark::RegisterBenchmark((std::string("libyuv_") + f + n).c_str(), libyuvBench, s, std::string(f)));
    }
    // What a half-size conversion reads: every second row of 2 W bytes.
    for (const Resolution& s : sources)
        copies[s.width * s.height] = true;
    for (const auto& c : copies)
        bench::withMinimum(benchmark::RegisterBenchmark(memcpyName(c.first).c_str(), memcpyBench, c.first));
}

// Per row of the summary: the conversion's time over memcpy's for its
// output bytes (the byte movers' target is 2 or less), OpenCV's YUY2-to-RGB
// time per pixel over the conversion's, with its default threads and with
// one (the others' target is 1 or more), and at full width the nearest
// library routine's time over the conversion's.
void printSummary(const bench::Collector& collector)
{
    const auto at = [&](const std::string& name) { return collector.at(name); };
    std::printf("\n%-11s %-9s %-5s %9s %9s %9s %10s %10s %5s %9s\n", "target", "source", "ratio", "ns/pixel", "MB/s",
        "x memcpy", "OpenCV/", "OpenCV 1/", "met", "nearest/");
    for (const Resolution& s : sources) {
        const double sourcePixels = static_cast<double>(s.width * s.height);
        const double cv = at("opencv_YUY2toRGB/" + sizeName(s)) / sourcePixels;
        const double cvOne = at("opencv_YUY2toRGB_1thread/" + sizeName(s)) / sourcePixels;
        for (uint64_t ratio : ratios) {
            for (const Target& t : targets) {
                const double pixels = static_cast<double>(s.width / ratio * (s.height / ratio));
                const double time = at(convertName(t, s, ratio));
                if (time == 0.0)
                    continue;
                const double perPixel = time / pixels;
                const double copy = at(memcpyName(static_cast<uint64_t>(pixels) * t.bytesPerPixel));
                const double nearest
                    = ratio == 1 && t.nearest[0] ? at(std::string(t.nearest) + "/" + sizeName(s)) : 0.0;
                const bool met = t.movesBytes ? copy > 0 && time <= 2 * copy : perPixel <= cv;
                std::printf("%-11s %-9s %-5llu %9.3f %9.0f %9.2f %10.2f %10.2f %5s", t.name, sizeName(s).c_str(),
                    static_cast<unsigned long long>(ratio), 1e9 * perPixel, pixels * t.bytesPerPixel / time / 1e6,
                    copy > 0 ? time / copy : 0.0, cv / perPixel, cvOne / perPixel, met ? "yes" : "no");
                if (nearest > 0)
                    std::printf(" %9.2f  %s", nearest / time, t.nearest);
                std::printf("\n");
            }
        }
    }
}

// The targets of the speed work, each beside the baseline it is judged
// against, from the same run: full-size RGB and BGR against libyuv's
// YUY2ToARGB (target 1 or less), the half-size byte movers and colour
// targets against memcpy of the source bytes they read (2 or less), the hue
// and saturation targets at 1280x960 against YUY2ToARGB (2 or less for the
// planes, 3 for the three-channel ones). All of them run on one thread, so
// CPU time is compared, of the fastest repetition: on a shared machine the
// median carries other processes' cache traffic, the minimum much less.
void printTargets(const bench::Collector& collector)
{
    const auto at = [&](const std::string& name) { return collector.minimumCpuAt(name); };
    struct Goal {
        const char* target;
        uint64_t ratio;
        bool bothSizes;
        bool againstCopy;
        double limit;
    };
    const Goal goals[] = {
        { "RGB888", 1, true, false, 1.0 },
        { "BGR888", 1, true, false, 1.0 },
        { "Y8", 2, true, true, 2.0 },
        { "YUV422", 2, true, true, 2.0 },
        { "RGB888", 2, true, true, 2.0 },
        { "BGR888", 2, true, true, 2.0 },
        { "H8", 1, false, false, 2.0 },
        { "S8", 1, false, false, 2.0 },
        { "HSY888", 1, false, false, 3.0 },
        { "HSMixed888", 1, false, false, 3.0 },
        { "H2RGB", 1, false, false, 3.0 },
    };
    std::printf("\n%-11s %-9s %-5s %10s  %-28s %10s %7s %7s %5s\n", "target", "source", "ratio", "min CPU us",
        "baseline", "min CPU us", "x base", "limit", "met");
    for (const Goal& g : goals)
        for (const Resolution& s : sources) {
            if (!g.bothSizes && s.width != 1280)
                continue;
            const Target* t = nullptr;
            for (const Target& candidate : targets)
                if (std::string(candidate.name) == g.target)
                    t = &candidate;
            const double time = t ? at(convertName(*t, s, g.ratio)) : 0.0;
            const std::string base
                = g.againstCopy ? memcpyName(s.width * s.height) : "libyuv_YUY2ToARGB/" + sizeName(s);
            const double baseTime = at(base);
            if (time == 0.0 || baseTime == 0.0)
                continue;
            const double ratio = time / baseTime;
            std::printf("%-11s %-9s %-5llu %10.1f  %-28s %10.1f %7.2f %7.2f %5s\n", g.target, sizeName(s).c_str(),
                static_cast<unsigned long long>(g.ratio), 1e6 * time, base.c_str(), 1e6 * baseTime, ratio, g.limit,
                ratio <= g.limit ? "yes" : "no");
        }
}

void printBoth(const bench::Collector& collector)
{
    printSummary(collector);
    printTargets(collector);
}

} // namespace

// FRAMEHUB_BENCH_AVX2=1 times the AVX2 kernels where the CPU has faster ones;
// empty or 0 leaves the choice to the CPU.
int main(int argc, char** argv)
{
    const char* avx2 = std::getenv("FRAMEHUB_BENCH_AVX2");
    const bool avx2Only = avx2 && *avx2 && std::strcmp(avx2, "0") != 0;
    using namespace Kelmo::FrameHub::simd;
    if (avx2Only)
        setAvx512Enabled(false);
    // On the error stream, so that the machine-readable formats stay clean.
    std::fprintf(stderr, "Vector kernels: %s\n", !enabled() ? "none" : avx512Enabled() ? "AVX-512" : "AVX2");
    return bench::runWithSummary(argc, argv, &registerAll, &printBoth);
}
