// How cost grows with the number of subscribers: one simulated 640x480
// camera, fed at 30 Hz by a thread of its own, shared by 1 to 32 subscribers
// that each fetch at 30 Hz on a thread of their own, first all in one format,
// then each in a different one. For every point it prints the frames
// delivered per second (new images, by time stamp) and the process CPU time
// per delivered frame, with and without the feeder's share, and how long a
// fetch takes (median, 99th percentile, worst); with --csv=FILE
// it also writes them for bench/plot_scaling.py. Public API only.
#include "hub_fixture.h"

#include <framehub/frame_hub.h>
#include <lumo/log.h>

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace Kelmo::FrameHub;

namespace {

typedef std::chrono::steady_clock Clock;
const Clock::duration kPeriod = std::chrono::microseconds(1000000 / 30);

// Every 2D target, then the same at half size once the 16 are taken.
const ColorSpace kSpaces[] = { COLORSPACE_RGB_888, COLORSPACE_BGR_888, COLORSPACE_Y_8, COLORSPACE_YUV_422,
    COLORSPACE_HSY_888, COLORSPACE_H_8, COLORSPACE_S_8, COLORSPACE_HSMIXED_888, COLORSPACE_H2RGB_888, COLORSPACE_U_8,
    COLORSPACE_V_8, COLORSPACE_R_8, COLORSPACE_G_8, COLORSPACE_B_8, COLORSPACE_YUV_888, COLORSPACE_YYCBCR_8888 };
const size_t kSpaceCount = sizeof(kSpaces) / sizeof(kSpaces[0]);

double processCpuSeconds()
{
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec)
        + 1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

double threadCpuSeconds()
{
    timespec t;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

CameraInfo camera()
{
    return simulatorInfo(
        "cam", "Simulator2D", { { 160, 120 }, { 320, 240 }, { 640, 480 } }, { COLORSPACE_YUV_422 }, { 5, 15, 30 });
}

struct Point {
    int subscribers;
    bool mixed;
    double framesPerSecond, cpuPerFrame, cpuPerFrameWithoutFeeder, failures;
    double medianFetch, p99Fetch, maxFetch; // microseconds
};

// Counters one thread writes and the main thread samples.
struct Counter {
    std::atomic<uint64_t> delivered { 0 }, failed { 0 };
    std::atomic<bool> measuring { false };
    std::vector<float> fetchMicroseconds; // read after the thread has stopped
};

Point measure(int subscribers, bool mixed, double seconds)
{
    FrameHub hub;
    hub.addCamera(camera());
    std::vector<std::string> names;
    for (int i = 0; i < subscribers; ++i) {
        const size_t k = mixed ? static_cast<size_t>(i) : 0;
        const Resolution size = k < kSpaceCount ? Resolution(640, 480) : Resolution(320, 240);
        // A stem each: the hub takes a few instances of one stem only.
        names.push_back(hub.subscribeCamera("client" + std::to_string(i), "cam", size, kSpaces[k % kSpaceCount], 30));
    }

    std::vector<uint8_t> rgb(640 * 480 * 3);
    for (size_t i = 0; i < rgb.size(); ++i)
        rgb[i] = static_cast<uint8_t>(i * 31 + i / 1920);
    hub.putImage("cam", Resolution(640, 480), COLORSPACE_RGB_888, rgb.data());

    std::atomic<bool> stop(false);
    std::atomic<uint64_t> feederNanoseconds(0);
    std::vector<std::unique_ptr<Counter>> counters;
    std::vector<std::thread> threads;
    const Clock::time_point start = Clock::now();
    threads.emplace_back([&] {
        Clock::time_point next = start;
        while (!stop.load()) {
            const double before = threadCpuSeconds();
            hub.putImage("cam", Resolution(640, 480), COLORSPACE_RGB_888, rgb.data());
            feederNanoseconds += static_cast<uint64_t>(1e9 * (threadCpuSeconds() - before));
            std::this_thread::sleep_until(next += kPeriod);
        }
    });
    for (int i = 0; i < subscribers; ++i) {
        counters.emplace_back(new Counter);
        Counter& counter = *counters.back();
        counter.fetchMicroseconds.reserve(static_cast<size_t>(40 * (seconds + 1)));
        const std::string& name = names[static_cast<size_t>(i)];
        // Phases spread over the period, as independent clients would be,
        // none on the feeder's.
        const Clock::time_point first = start + kPeriod * (2 * i + 1) / (2 * subscribers);
        threads.emplace_back([&hub, &stop, &counter, &name, first] {
            Clock::time_point next = first;
            int64_t last = -1;
            while (!stop.load()) {
                std::this_thread::sleep_until(next);
                next += kPeriod;
                const Clock::time_point fetch = Clock::now();
                const FrameHub::Buffer image = hub.getImage(name);
                if (counter.measuring.load(std::memory_order_relaxed))
                    counter.fetchMicroseconds.push_back(
                        std::chrono::duration<float, std::micro>(Clock::now() - fetch).count());
                if (!image) {
                    counter.failed.fetch_add(1, std::memory_order_relaxed);
                    continue;
                }
                if (image->getTimeStamp() != last)
                    counter.delivered.fetch_add(1, std::memory_order_relaxed);
                last = image->getTimeStamp();
                hub.releaseImage(name);
            }
        });
    }

    const auto sample = [&](uint64_t& delivered, uint64_t& failed) {
        delivered = failed = 0;
        for (const auto& c : counters) {
            delivered += c->delivered.load();
            failed += c->failed.load();
        }
    };
    std::this_thread::sleep_for(std::chrono::milliseconds(300)); // warm-up
    uint64_t delivered0, failed0, delivered1, failed1;
    sample(delivered0, failed0);
    for (const auto& c : counters)
        c->measuring = true;
    const double cpu0 = processCpuSeconds();
    const uint64_t feeder0 = feederNanoseconds.load();
    const Clock::time_point t0 = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    sample(delivered1, failed1);
    for (const auto& c : counters)
        c->measuring = false;
    const double cpu1 = processCpuSeconds();
    const uint64_t feeder1 = feederNanoseconds.load();
    const double wall = std::chrono::duration<double>(Clock::now() - t0).count();
    stop = true;
    for (std::thread& t : threads)
        t.join();

    const double frames = static_cast<double>(delivered1 - delivered0);
    const double cpu = cpu1 - cpu0;
    const double feeder = 1e-9 * static_cast<double>(feeder1 - feeder0);
    Point p;
    p.subscribers = subscribers;
    p.mixed = mixed;
    p.framesPerSecond = frames / wall;
    p.cpuPerFrame = frames > 0 ? cpu / frames : 0.0;
    p.cpuPerFrameWithoutFeeder = frames > 0 ? (cpu - feeder) / frames : 0.0;
    p.failures = static_cast<double>(failed1 - failed0) / wall;
    std::vector<float> fetches;
    for (const auto& c : counters)
        fetches.insert(fetches.end(), c->fetchMicroseconds.begin(), c->fetchMicroseconds.end());
    std::sort(fetches.begin(), fetches.end());
    const auto at = [&fetches](double q) {
        return fetches.empty() ? 0.0 : static_cast<double>(fetches[static_cast<size_t>(q * (fetches.size() - 1))]);
    };
    p.medianFetch = at(0.5);
    p.p99Fetch = at(0.99);
    p.maxFetch = at(1.0);
    return p;
}

} // namespace

int main(int argc, char** argv)
{
    double seconds = 1.5;
    const char* csvPath = nullptr;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--seconds=", 10) == 0)
            seconds = std::atof(argv[i] + 10);
        else if (std::strncmp(argv[i], "--csv=", 6) == 0)
            csvPath = argv[i] + 6;
        else {
            std::fprintf(stderr, "usage: %s [--seconds=S] [--csv=FILE]\n", argv[0]);
            return 1;
        }
    }
    lumo::log::setLevel(std::getenv("SCALING_LOG") ? 4 : 1);
    FILE* csv = csvPath ? std::fopen(csvPath, "w") : nullptr;
    if (csv)
        std::fprintf(csv,
            "formats,subscribers,frames_per_second,cpu_us_per_frame,cpu_us_per_frame_without_feeder,"
            "fetch_us_median,fetch_us_p99\n");
    std::printf("%-9s %11s %9s %6s %13s %15s %10s %12s %12s %12s\n", "formats", "subscribers", "frames/s", "ideal",
        "CPU us/frame", "without feeder", "failures/s", "fetch us p50", "fetch us p99", "fetch us max");
    for (bool mixed : { false, true })
        for (int n : { 1, 2, 4, 8, 16, 32 }) {
            const Point p = measure(n, mixed, seconds);
            std::printf("%-9s %11d %9.1f %6d %13.1f %15.1f %10.1f %12.1f %12.1f %12.1f\n", mixed ? "different" : "one",
                n, p.framesPerSecond, 30 * n, 1e6 * p.cpuPerFrame, 1e6 * p.cpuPerFrameWithoutFeeder, p.failures,
                p.medianFetch, p.p99Fetch, p.maxFetch);
            std::fflush(stdout);
            if (csv)
                std::fprintf(csv, "%s,%d,%.2f,%.2f,%.2f,%.2f,%.2f\n", mixed ? "different" : "one", n, p.framesPerSecond,
                    1e6 * p.cpuPerFrame, 1e6 * p.cpuPerFrameWithoutFeeder, p.medianFetch, p.p99Fetch);
        }
    if (csv)
        std::fclose(csv);
    return 0;
}
